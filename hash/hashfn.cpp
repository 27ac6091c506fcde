// The hash functions of the three kinds and the size selection of creation.
// The kernels live in lht_impl.h so that the probes inline them; these are
// their exported faces.
#include "hash/lht_impl.h"

namespace lht_internal {

int32_t index_for_request(uint32_t size) noexcept {
  if (size == 0) return kDefaultIndex;
  if (size <= kSizes[kMinIndex]) return kMinIndex;
  if (size > kSizes[kMaxIndex]) return -1;
  for (uint32_t i = kMinIndex + 1; i <= kMaxIndex; ++i)
    if (kSizes[i] >= size) return static_cast<int32_t>(i);
  return -1;  // not reached: the last size is the maximum
}

}  // namespace lht_internal

using namespace lht_internal;

extern "C" {

KELAPI uint32_t LhtInq1Hash(uint32_t k, uint32_t size) { return inq1(k, size); }

KELAPI uint32_t LhtInq2Hash(uint32_t k, uint32_t size) { return inq2(k, size); }

KELAPI uint32_t LhtStq1Hash(const char *s, uint32_t size) { return inq1(fold1(s), size); }

KELAPI uint32_t LhtStq2Hash(const char *s, uint32_t size) { return inq2(fold2(s), size); }

KELAPI uint32_t LhtArqQuad(uint32_t n, uint32_t b, uint32_t c) { return n * (b + c * n); }

}  // extern "C"
