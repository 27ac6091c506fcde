// Memory on Windows (memory_impl.h): the C runtime's allocator for records,
// VirtualAlloc for extents (reserved and committed at once, released whole).
#include <windows.h>

#include <cstdlib>

#include "sys/memory_impl.h"

namespace {

// The 64-bit C runtime aligns its blocks to 16 bytes, which the contract of
// ss_mem_alc promises.
static_assert(alignof(max_align_t) >= 16, "malloc does not align to 16 here");

void *m_alloc(size_t size) { return malloc(size); }
void *m_zalloc(size_t size) { return calloc(1, size); }
void *m_resize(void *p, size_t size) { return realloc(p, size); }
void m_release(void *p) { free(p); }

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
