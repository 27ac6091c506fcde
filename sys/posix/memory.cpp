// Memory on POSIX (memory_impl.h): the C library's allocator for records,
// anonymous private mappings for extents.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

#include "sys/memory_impl.h"

namespace {

// glibc's malloc aligns to 16 bytes on 64-bit systems, which the contract of
// ss_mem_alc promises.
static_assert(alignof(max_align_t) >= 16, "malloc does not align to 16 here");

void *m_alloc(size_t size) { return malloc(size); }
void *m_zalloc(size_t size) { return calloc(1, size); }
void *m_resize(void *p, size_t size) { return realloc(p, size); }
void m_release(void *p) { free(p); }

void *m_map(size_t size) {
  void *p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : p;
}

int32_t m_unmap(void *p, size_t size) { return munmap(p, size) == 0 ? 0 : -1; }

size_t m_page() {
  long n = sysconf(_SC_PAGESIZE);
  return n > 0 ? static_cast<size_t>(n) : size_t{4096};
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
