// stream_impl.h - records and tags shared by the files of the stream family.
#ifndef KEL_STREAM_IMPL_H
#define KEL_STREAM_IMPL_H

#include <cstdint>

#include "kelstream.h"

namespace kelstream_internal {

// Tags of live records; a terminated record carries kDeadTag instead.
constexpr uint32_t kMemTag = 0x4B4D454Du;     // "KMEM"
constexpr uint32_t kStreamTag = 0x4B535452u;  // "KSTR"
constexpr uint32_t kDeadTag = 0xDEADBEEFu;

}  // namespace kelstream_internal

// A memory context: the caller's allocator pair and its context word.
struct KelMem {
  uint32_t tag;
  void *word;
  KelMemAllocFn alloc;
  KelMemFreeFn free;
};

#endif
