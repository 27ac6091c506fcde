// Random numbers: xoshiro256** seeded through splitmix64 for speed and
// repeatability, and the kernel's generator for anything secret.
#include "lut.h"
#include "sys/random_impl.h"

namespace lut_internal {
namespace {

inline uint64_t rotl(uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }

inline uint64_t splitmix(uint64_t &x) {
  uint64_t z = (x += 0x9E3779B97F4A7C15ull);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

}  // namespace
}  // namespace lut_internal

using namespace lut_internal;

extern "C" {

KELAPI void lutrseed(lutrng *st, uint64_t seed) {
  // splitmix64 never yields four zero words in a row, so the state is valid.
  for (auto &w : st->s) w = splitmix(seed);
}

KELAPI uint64_t lutrnext(lutrng *st) {
  uint64_t *s = st->s;
  uint64_t result = rotl(s[1] * 5, 7) * 9;
  uint64_t t = s[1] << 17;
  s[2] ^= s[0];
  s[3] ^= s[1];
  s[1] ^= s[2];
  s[0] ^= s[3];
  s[2] ^= t;
  s[3] = rotl(s[3], 45);
  return result;
}

KELAPI uint64_t lutrrange(lutrng *st, uint64_t n) {
  if (n == 0) return 0;
  // Multiply-shift with rejection of the few low products that would make
  // some results more likely than others.
  unsigned __int128 m = static_cast<unsigned __int128>(lutrnext(st)) * n;
  uint64_t low = static_cast<uint64_t>(m);
  if (low < n) {
    uint64_t floor = (0 - n) % n;
    while (low < floor) {
      m = static_cast<unsigned __int128>(lutrnext(st)) * n;
      low = static_cast<uint64_t>(m);
    }
  }
  return static_cast<uint64_t>(m >> 64);
}

KELAPI double lutrdbl(lutrng *st) { return static_cast<double>(lutrnext(st) >> 11) * 0x1.0p-53; }

KELAPI int32_t lutrstrong(void *buf, size_t n) {
  if (buf == nullptr && n > 0) return -1;
  return slrndbytes(buf, n);
}

}  // extern "C"
