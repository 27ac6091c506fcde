// System memory (sl.h): the allocator for the library's core records and
// whole extents for the memory manager's top heaps, over the platform's
// table (memory_impl.h).
#include <cstring>

#include "lfi.h"
#include "sl.h"
#include "sys/error_impl.h"
#include "sys/fault_impl.h"
#include "sys/memory_impl.h"

using sl_internal::fail;
using sl_internal::memory_os;

namespace {

size_t page_size() noexcept {
  static const size_t size = memory_os().page();
  return size;
}

}  // namespace

extern "C" {

KELAPI void *ss_mem_alc(size_t size) {
  if (SL_FAULT(SL_FAULT_MEM)) return nullptr;
  return memory_os().alloc(size ? size : 1);
}

KELAPI void *ss_mem_calc(size_t size) {
  if (SL_FAULT(SL_FAULT_MEM)) return nullptr;
  return memory_os().zalloc(size ? size : 1);
}

KELAPI void *ss_mem_ralc(void *p, size_t size) {
  if (SL_FAULT(SL_FAULT_MEM)) return nullptr;
  return memory_os().resize(p, size ? size : 1);
}

KELAPI void ss_mem_fre(void *p) { memory_os().release(p); }

KELAPI void *slwmmgetmem(size_t size) {
  if (SL_FAULT(SL_FAULT_EXTENT)) return nullptr;
  size_t page = page_size();
  if (size == 0 || size > SIZE_MAX - page) {
    fail(SLF_E_BADARG);
    return nullptr;
  }
  return memory_os().map((size + page - 1) & ~(page - 1));
}

KELAPI int32_t slwmmputmem(void *extent, size_t size) {
  size_t page = page_size();
  if (extent == nullptr || size == 0 || size > SIZE_MAX - page) return fail(SLF_E_BADARG);
  return memory_os().unmap(extent, (size + page - 1) & ~(page - 1));
}

KELAPI size_t slmmvallocsz(void) { return page_size(); }

// 64 KiB: large enough that a heap of small records costs few system calls,
// small enough that a package's private heap does not waste much.
KELAPI size_t slmmstmsr(void) { return 65536; }

KELAPI void slmeswap(void *a, void *b, size_t n) {
  auto *p = static_cast<unsigned char *>(a);
  auto *q = static_cast<unsigned char *>(b);
  // Word-sized steps first; sorts of records of 8, 16, 24 ... bytes are the
  // common case and memcpy of a constant size compiles to plain moves.
  while (n >= 8) {
    uint64_t x, y;
    memcpy(&x, p, 8);
    memcpy(&y, q, 8);
    memcpy(p, &y, 8);
    memcpy(q, &x, 8);
    p += 8;
    q += 8;
    n -= 8;
  }
  while (n--) {
    unsigned char t = *p;
    *p++ = *q;
    *q++ = t;
  }
}

}  // extern "C"
