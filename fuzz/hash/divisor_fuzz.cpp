// The probes' modulus by multiplication against the % operator: the input is
// a divisor and dividends (32-bit words, little-endian); every dividend and
// the edges of 32-bit arithmetic are divided by it and by every divisor the
// tables use (a size less one).
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "hash/lht_impl.h"

namespace {

void check(uint32_t d, uint32_t a) {
  if (d != 0 && lht_internal::Divisor(d).mod(a) != a % d) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  uint32_t w[64] = {0};
  size_t n = std::min(size / 4, size_t{64});
  memcpy(w, data, n * 4);
  for (uint32_t d : {w[0], w[0] | 1u, 1u, 2u, 3u, 7u, 13u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    for (uint32_t a : {0u, 1u, d - 1, d, d + 1, 776u, 777u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu})
      check(d, a);
    for (size_t i = 1; i < n; i++) check(d, w[i]);
  }
  for (uint32_t s : lht_internal::kSizes)
    for (size_t i = 0; i < n; i++) check(s - 1, w[i]);
  return 0;
}
