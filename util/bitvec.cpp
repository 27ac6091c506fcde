// Bit vectors over caller-owned 64-bit words.
//
// Whole words are processed at a time; the last, partial word is masked so
// that bits at or beyond nbits are neither read nor changed.
#include <bit>

#include "lut.h"

namespace lut_internal {
namespace {

constexpr size_t kNone = static_cast<size_t>(-1);

// Mask of the valid bits of word w of an nbits vector.
inline uint64_t valid(size_t w, size_t nbits) {
  size_t rem = nbits - w * 64;
  return rem >= 64 ? ~uint64_t{0} : (uint64_t{1} << rem) - 1;
}

template <class F>
void combine(uint64_t *dst, size_t nbits, F f) {
  size_t words = LUT_BV_WORDS(nbits);
  for (size_t w = 0; w < words; w++) {
    uint64_t m = valid(w, nbits);
    dst[w] = (dst[w] & ~m) | (f(w) & m);
  }
}

// First bit at or after `from` that is set in the word stream x(w).
template <class F>
size_t first(size_t nbits, size_t from, F x) {
  if (from >= nbits) return kNone;
  size_t w = from / 64;
  uint64_t v = x(w) & (~uint64_t{0} << (from % 64));
  size_t words = LUT_BV_WORDS(nbits);
  for (;;) {
    v &= valid(w, nbits);
    if (v != 0) return w * 64 + static_cast<size_t>(std::countr_zero(v));
    if (++w >= words) return kNone;
    v = x(w);
  }
}

}  // namespace
}  // namespace lut_internal

using namespace lut_internal;

extern "C" {

KELAPI uint64_t *lutbvalc(void *mctx, lmmheap *heap, size_t nbits) {
  if (nbits == 0) return nullptr;
  return static_cast<uint64_t *>(
      lmmcalloc(mctx, heap, LUT_BV_WORDS(nbits) * sizeof(uint64_t), 0, "lutbvalc", __LINE__));
}

KELAPI int32_t lutbvset(uint64_t *bv, size_t nbits, size_t i) {
  if (i >= nbits) return -1;
  bv[i / 64] |= uint64_t{1} << (i % 64);
  return 0;
}

KELAPI int32_t lutbvclr(uint64_t *bv, size_t nbits, size_t i) {
  if (i >= nbits) return -1;
  bv[i / 64] &= ~(uint64_t{1} << (i % 64));
  return 0;
}

KELAPI int32_t lutbvflp(uint64_t *bv, size_t nbits, size_t i) {
  if (i >= nbits) return -1;
  bv[i / 64] ^= uint64_t{1} << (i % 64);
  return 0;
}

KELAPI int32_t lutbvtst(const uint64_t *bv, size_t nbits, size_t i) {
  if (i >= nbits) return -1;
  return static_cast<int32_t>((bv[i / 64] >> (i % 64)) & 1);
}

KELAPI void lutbvall(uint64_t *bv, size_t nbits, int32_t value) {
  uint64_t v = value ? ~uint64_t{0} : 0;
  combine(bv, nbits, [&](size_t) { return v; });
}

KELAPI size_t lutbvcnt(const uint64_t *bv, size_t nbits) {
  size_t n = 0, words = LUT_BV_WORDS(nbits);
  for (size_t w = 0; w < words; w++) n += static_cast<size_t>(std::popcount(bv[w] & valid(w, nbits)));
  return n;
}

KELAPI size_t lutbvffs(const uint64_t *bv, size_t nbits, size_t from) {
  return first(nbits, from, [&](size_t w) { return bv[w]; });
}

KELAPI size_t lutbvffc(const uint64_t *bv, size_t nbits, size_t from) {
  return first(nbits, from, [&](size_t w) { return ~bv[w]; });
}

KELAPI void lutbvand(uint64_t *dst, const uint64_t *a, const uint64_t *b, size_t nbits) {
  combine(dst, nbits, [&](size_t w) { return a[w] & b[w]; });
}

KELAPI void lutbvor(uint64_t *dst, const uint64_t *a, const uint64_t *b, size_t nbits) {
  combine(dst, nbits, [&](size_t w) { return a[w] | b[w]; });
}

KELAPI void lutbvxor(uint64_t *dst, const uint64_t *a, const uint64_t *b, size_t nbits) {
  combine(dst, nbits, [&](size_t w) { return a[w] ^ b[w]; });
}

KELAPI void lutbvnot(uint64_t *dst, const uint64_t *a, size_t nbits) {
  combine(dst, nbits, [&](size_t w) { return ~a[w]; });
}

}  // extern "C"
