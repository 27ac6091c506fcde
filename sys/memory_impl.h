// memory_impl.h - memory: the platform's table.
//
// The system allocator that serves the library's core records, and whole
// extents of pages for the memory manager's top heaps. The exported
// functions (sys/memory.cpp) count the fault points, serve a size of 0 as 1
// and round extents to whole pages; the entries do the platform's work.
//
// Defined by sys/<platform>/memory.cpp as kMemoryOs; the portable part calls it
// through memory_os() (table_impl.h), which test builds can redirect.
#ifndef KEL_SYS_MEMORY_IMPL_H
#define KEL_SYS_MEMORY_IMPL_H

#include <cstddef>
#include <cstdint>

#include "sys/table_impl.h"

namespace sl_internal {

struct MemoryOps {
  // Blocks of at least `size` (> 0) bytes aligned to 16, zero-filled for
  // zalloc; resize keeps the contents (p may be null) and leaves p as it was
  // on failure; release takes null. Null on failure.
  void *(*alloc)(size_t size);
  void *(*zalloc)(size_t size);
  void *(*resize)(void *p, size_t size);
  void (*release)(void *p);
  // `size` bytes (a multiple of the page size) of fresh zero-filled pages,
  // page-aligned, null on failure; unmap gives an extent back whole.
  void *(*map)(size_t size);
  int32_t (*unmap)(void *p, size_t size);
  // The page size: a power of two.
  size_t (*page)(void);
};

extern const MemoryOps kMemoryOs;

KEL_SYS_TABLE(MemoryOps, memory, kMemoryOs)

}  // namespace sl_internal

#endif
