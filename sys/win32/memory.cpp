// Memory on Windows (memory_impl.h): the process heap for records,
// VirtualAlloc for extents (reserved and committed at once, released whole).
#include <windows.h>

#include "sys/memory_impl.h"

namespace {

// The heap's blocks are aligned to 16 bytes on 64-bit Windows, which the
// contract of ss_mem_alc promises. The heap does not set the system error
// when it fails (short of raising exceptions), so that is done here.
void *heap_result(void *p) noexcept {
  if (p == nullptr) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return p;
}

void *m_alloc(size_t size) { return heap_result(HeapAlloc(GetProcessHeap(), 0, size)); }
void *m_zalloc(size_t size) { return heap_result(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size)); }

void *m_resize(void *p, size_t size) {
  if (p == nullptr) return m_alloc(size);
  return heap_result(HeapReAlloc(GetProcessHeap(), 0, p, size));
}

void m_release(void *p) {
  if (p != nullptr) HeapFree(GetProcessHeap(), 0, p);
}

// Fresh committed pages read as zero.
void *m_map(size_t size) { return VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE); }

// MEM_RELEASE frees the whole reservation and wants a size of 0.
int32_t m_unmap(void *p, size_t size) { return VirtualFree(p, 0, MEM_RELEASE) ? 0 : -1; }

size_t m_page() {
  SYSTEM_INFO si;
  GetSystemInfo(&si);
  return si.dwPageSize > 0 ? static_cast<size_t>(si.dwPageSize) : size_t{4096};
}

}  // namespace

namespace sl_internal {

const MemoryOps kMemoryOs = {
    .alloc = m_alloc,
    .zalloc = m_zalloc,
    .resize = m_resize,
    .release = m_release,
    .map = m_map,
    .unmap = m_unmap,
    .page = m_page,
};

}  // namespace sl_internal
