// arith_fast.cpp - addition, subtraction, multiplication and division of
// finite non-zero numbers straight from their bytes.
//
// The plain kernels in arith.cpp decode both operands into digit arrays and
// encode a digit string back, one base-100 digit at a time. Here the digit
// bytes are handled eight at a time as 64-bit words holding one base-100
// digit per byte, most significant digit in the top byte:
//  - the excess encodings (d + 1 for positives, 101 - d for negatives) are
//    removed and re-applied with one subtraction per word;
//  - addition and subtraction run as whole-word additions whose carries or
//    borrows cross the bytes by themselves; the top bit of each byte then
//    tells which bytes did (or did not) carry, and they are corrected in
//    one step;
//  - multiplication and division regroup the digit words into base-10^8
//    limbs with two multiply-adds per word, and turn the limbs of the
//    result back into digits two limbs at a time (in the vector unit when
//    there is one).
// The result is rounded, range-checked and written by `finish`, which
// applies exactly the rule of `encode_bytes`: round half up on the
// twenty-first digit, drop trailing zeros, infinity above the range, zero
// below it. Between the input bytes and the output bytes the digits stay
// in registers (plain variables, no arrays walked by loops): bytes stored
// and read back as words stall the loads.
//
// Where a value steers a shift or a length (the distance of the exponents,
// the leading zero digits of a result, a length of twenty digits), its
// common values get branches of their own with constant shifts. Predicted,
// such a branch lets the work after it start before the value is known;
// computed shifts would wait for it.
//
// Sections: words and operands; finishing; limbs and the long division;
// addition and subtraction; multiplication; division; the exported entry
// points.
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <utility>

#include "lnx.h"
#include "number/lnx_impl.h"

namespace lnx_internal {

namespace {

// ---------------------------------------------------------------- words
constexpr uint64_t kOnes = 0x0101010101010101ull;
constexpr uint64_t kNegBias = 101 * kOnes;  // a negative's digit byte is 101 - d
constexpr uint64_t kFix = 156;              // 256 - 100

inline uint64_t load_be(const uint8_t *p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return __builtin_bswap64(v);
}
inline void store_be(uint8_t *p, uint64_t v) {
  v = __builtin_bswap64(v);
  std::memcpy(p, &v, 8);
}

// A finite non-zero operand as it lies in its bytes.
struct Raw {
  const uint8_t *p;  // digit bytes
  int n;             // digit count (terminator excluded)
  int exp;           // base-100 exponent of the first digit
  bool neg;          // digits stored as 101 - d
};

// Returns false for zero, the infinities and a malformed digitless negative.
// The sign steers no branch: operands of either sign come in any order, and
// a branch on it would be mispredicted half the time.
inline bool raw(const uint8_t *p, size_t len, Raw &o) {
  p = resolve(p, len);
  const uint8_t e = p[0];
  if (len < 2 || (e == 0xFF && p[1] == kPosInfDigit)) return false;
  o.p = p + 1;
  const bool neg = (e & 0x80) == 0;
  o.neg = neg;
  o.exp = neg ? 62 - e : e - 193;
  o.n = static_cast<int>(len) - 1 - static_cast<int>(neg & (p[len - 1] == kTerm));
  return o.n > 0;
}

// The digits of `o` as values 0..99 in four words, the first digit in the
// top byte of w[0], zeros after the last. Reads only the operand's own
// bytes (overlapping loads, no staging copy: a copy read back in words
// stalls on store forwarding).
inline void digits(const Raw &o, uint64_t w[4]) {
  const uint8_t *p = o.p;
  const int n = o.n;
  // Every byte loaded below is a digit byte, so whole words are decoded
  // before the shifts that clear the places past the last digit.
  // v - 1 in every byte for a positive, 101 - v for a negative: v with its
  // bits flipped (a negative) plus one constant, no branch on the sign.
  const uint64_t flip = 0 - static_cast<uint64_t>(o.neg);
  const uint64_t add = (flip & (kNegBias + 1 + kOnes)) - kOnes;
  auto dec = [flip, add](uint64_t v) { return (v ^ flip) + add; };
  w[3] = 0;
  if (n == 20) {  // the usual length of a computed result: constant offsets
    w[0] = dec(load_be(p));
    w[1] = dec(load_be(p + 8));
    w[2] = dec(load_be(p + 12)) << 32;
  } else if (n > 16) {
    w[0] = dec(load_be(p));
    w[1] = dec(load_be(p + 8));
    w[2] = dec(load_be(p + n - 8)) << (8 * (24 - n));
  } else if (n >= 8) {
    w[0] = dec(load_be(p));
    w[1] = n > 8 ? dec(load_be(p + n - 8)) << (8 * (16 - n)) : 0;
    w[2] = 0;
  } else {
    uint64_t v;
    if (n >= 4) {
      uint32_t hi, lo;
      std::memcpy(&hi, p, 4);
      std::memcpy(&lo, p + n - 4, 4);
      v = (static_cast<uint64_t>(__builtin_bswap32(hi)) << 32) |
          (static_cast<uint64_t>(__builtin_bswap32(lo)) << (64 - 8 * n));
    } else {
      v = 0;
      for (int i = 0; i < n; ++i) v |= static_cast<uint64_t>(p[i]) << (56 - 8 * i);
    }
    const uint64_t mask = ~0ull << (64 - 8 * n);
    w[0] = o.neg ? (kNegBias & mask) - v : v - (kOnes & mask);
    w[1] = w[2] = 0;
  }
}

// Shifts the three words of an operand's digits (the fourth is empty)
// towards the less significant end by s bytes (0..31) into four words;
// digits shifted past the end are lost. The word part of the shift is a
// branch: operands met together mostly lie within a word of each other.
template <int S>
inline void shift_down_by(const uint64_t in[4], int s, uint64_t out[4]) {
  const int sh = S >= 0 ? S : s;
  const unsigned r = 8u * static_cast<unsigned>(sh & 7);
  // in >> r across the words; (x << 1) << (63 - r) is x << (64 - r), also for r = 0.
  const uint64_t t0 = in[0] >> r;
  const uint64_t t1 = (in[1] >> r) | ((in[0] << 1) << (63 - r));
  const uint64_t t2 = (in[2] >> r) | ((in[1] << 1) << (63 - r));
  const uint64_t t3 = (in[2] << 1) << (63 - r);
  switch (sh >> 3) {
    case 0: out[0] = t0, out[1] = t1, out[2] = t2, out[3] = t3; break;
    case 1: out[0] = 0, out[1] = t0, out[2] = t1, out[3] = t2; break;
    case 2: out[0] = 0, out[1] = 0, out[2] = t0, out[3] = t1; break;
    default: out[0] = 0, out[1] = 0, out[2] = 0, out[3] = t0; break;
  }
}
// The distances met most (operands within a word of each other) as a
// branch to constant shifts: predicted, it lets the addition start before
// the distance is known.
inline void shift_down(const uint64_t in[4], int s, uint64_t out[4]) {
  switch (s) {
    case 0: shift_down_by<0>(in, s, out); break;
    case 1: shift_down_by<1>(in, s, out); break;
    case 2: shift_down_by<2>(in, s, out); break;
    case 3: shift_down_by<3>(in, s, out); break;
    case 4: shift_down_by<4>(in, s, out); break;
    case 5: shift_down_by<5>(in, s, out); break;
    case 6: shift_down_by<6>(in, s, out); break;
    case 7: shift_down_by<7>(in, s, out); break;
    default: shift_down_by<-1>(in, s, out); break;
  }
}

// Base-100 addition of two words of digits plus a carry, with the carry out
// in c: each byte of x is biased by 156 so that a digit sum of 100 or more
// overflows the byte and carries into the next one by itself. A byte that
// carried holds its digit (0..99), one that did not holds digit + 156
// (156..255): its top bit tells which, and those give back their bias.
inline uint64_t add100(uint64_t x, uint64_t y, uint64_t &c) {
  uint64_t t, s;
  const bool o1 = __builtin_add_overflow(x + kFix * kOnes, y, &t);
  const bool o2 = __builtin_add_overflow(t, c, &s);
  c = o1 | o2;
  return s - ((s >> 7) & kOnes) * kFix;
}

// Base-100 subtraction with a borrow: a byte that borrowed holds its digit
// plus 156 (156..255), one that did not its digit (0..99); the top bit
// tells which gives back 156.
inline uint64_t sub100(uint64_t x, uint64_t y, uint64_t &c) {
  uint64_t t, s;
  const bool o1 = __builtin_sub_overflow(x, y, &t);
  const bool o2 = __builtin_sub_overflow(t, c, &s);
  c = o1 | o2;
  return s - ((s >> 7) & kOnes) * kFix;
}

// ---------------------------------------------------------------- finishing
// The bytes [k, k + 8) of the big-endian stream a, b (k in 0..7): a funnel
// shift that is also right for k = 0.
inline uint64_t window(uint64_t a, uint64_t b, int k) {
  const unsigned r = 8u * static_cast<unsigned>(k);
  return (a << r) | ((b >> 1) >> (63 - r));
}

// Writes the first t bytes (1..24) of the big-endian words o0, o1, o2 to
// dst: whole words, then one overlapping word that ends exactly at byte t.
// Nothing past byte t is touched.
inline void store_exact(uint8_t *dst, uint64_t o0, uint64_t o1, uint64_t o2, int t) {
  if (t >= 16) {
    store_be(dst, o0);
    store_be(dst + 8, o1);
    store_be(dst + t - 8, window(o1, o2, t - 16));
  } else if (t >= 8) {
    store_be(dst, o0);
    store_be(dst + t - 8, window(o0, o1, t - 8));
  } else if (t >= 4) {
    const uint32_t hi = __builtin_bswap32(static_cast<uint32_t>(o0 >> 32));
    const uint32_t lo = __builtin_bswap32(static_cast<uint32_t>(o0 >> (64 - 8 * t)));
    std::memcpy(dst, &hi, 4);
    std::memcpy(dst + t - 4, &lo, 4);
  } else {
    for (int i = 0; i < t; ++i) dst[i] = static_cast<uint8_t>(o0 >> (56 - 8 * i));
  }
}

inline void finish(bool neg, int exp0, const uint64_t w[4], uint8_t *out, size_t *outlen);

// A first word of zeros (a deep cancellation in a subtraction): the zero
// words are moved out before finishing.
[[gnu::noinline, gnu::cold]] void finish_deep(bool neg, int exp0, uint64_t w0, uint64_t w1, uint64_t w2,
                                              uint64_t w3, uint8_t *out, size_t *outlen) {
  const uint64_t w[4] = {w0, w1, w2, w3};  // by value: the caller's words stay in registers
  int k = 0;
  while (k < 4 && w[k] == 0) ++k;
  if (k == 4) {
    emit_zero(out, outlen);
    return;
  }
  uint64_t v[4];
  for (int j = 0; j < 4; ++j) v[j] = j + k < 4 ? w[j + k] : 0;
  finish(neg, exp0 - 8 * k, v, out, outlen);
}

// w[0..4) holds base-100 digits, the top byte of w[0] at base-100 exponent
// `exp0`. Writes the number they make, rounded to twenty digits. Does
// everything in registers: no digit is stored before the output.
[[gnu::always_inline]] inline void finish(bool neg, int exp0, const uint64_t w[4], uint8_t *out, size_t *outlen) {
  if (__builtin_expect(w[0] == 0, 0)) {
    finish_deep(neg, exp0, w[0], w[1], w[2], w[3], out, outlen);
    return;
  }
  // Twenty-four digits from the first non-zero one; the twenty-first (index
  // 20) is byte 4 of d2. The leading zero digits are found by tests on the
  // common counts first and the shift by them is a branch over those:
  // predicted, they let the rest start before the first digit is known.
  int lead;
  uint64_t d0, d1, d2;
  if (w[0] >> 56) {
    lead = 0;
    d0 = w[0], d1 = w[1], d2 = w[2];
  } else if (w[0] >> 48) {
    lead = 1;
    d0 = window(w[0], w[1], 1), d1 = window(w[1], w[2], 1), d2 = window(w[2], w[3], 1);
  } else {
    lead = __builtin_clzll(w[0]) >> 3;
    switch (lead) {
      case 2: d0 = window(w[0], w[1], 2), d1 = window(w[1], w[2], 2), d2 = window(w[2], w[3], 2); break;
      case 3: d0 = window(w[0], w[1], 3), d1 = window(w[1], w[2], 3), d2 = window(w[2], w[3], 3); break;
      default: d0 = window(w[0], w[1], lead), d1 = window(w[1], w[2], lead), d2 = window(w[2], w[3], lead); break;
    }
  }
  int exp = exp0 - lead;
  constexpr uint64_t kHigh4 = 0xFFFFFFFF00000000ull;
  const bool up = (d2 & 0xFF000000u) >= (50u << 24);
  d2 &= kHigh4;
  if (up && ((d2 >> 32) & 0xFF) != 99) {
    d2 += 1ull << 32;  // one unit at digit 19, which takes it without a carry
  } else if (up) {
    // One unit at digit 19, carried through 99s as in add100: on biased
    // digits a 99 overflows its byte. The four places after digit 19 get
    // no bias and stay empty. A sum below the unbiased word it started
    // from has overflowed into the next word.
    const uint64_t b2 = d2 + (kFix * kOnes & kHigh4) + (1ull << 32);
    const uint64_t b1 = d1 + kFix * kOnes + static_cast<uint64_t>(b2 < d2);
    const uint64_t b0 = d0 + kFix * kOnes + static_cast<uint64_t>(b1 < d1);
    if (__builtin_expect(b0 < d0, 0)) {  // 99..99 became 100..00
      d0 = 1ull << 56;
      d1 = d2 = 0;
      ++exp;
    } else {
      d2 = b2 - ((b2 >> 7) & kOnes) * kFix;
      d1 = b1 - ((b1 >> 7) & kOnes) * kFix;
      d0 = b0 - ((b0 >> 7) & kOnes) * kFix;
    }
  }
  if (__builtin_expect(static_cast<unsigned>(exp - kMinExp) > static_cast<unsigned>(kMaxExp - kMinExp), 0)) {
    if (exp > kMaxExp)
      emit_inf(neg, out, outlen);
    else
      emit_zero(out, outlen);
    return;
  }
  // Digit bytes: d + 1 for a positive, 101 - d for a negative. Past the
  // last digit a negative's bytes are 101; the one right after it becomes
  // the terminator 102 when there is room for one. `n` is the digit count.
  auto write = [&](int n) __attribute__((always_inline)) {  // one copy per call below
    uint64_t e0, e1, e2, eb;
    int len = n + 1;
    if (neg) {
      e0 = kNegBias - d0;
      e1 = kNegBias - d1;
      e2 = kNegBias - d2;
      eb = static_cast<uint64_t>(62 - exp);
      if (n < kMaxDigits) {
        const uint64_t tb = 1ull << (56 - 8 * (n & 7));
        if (n < 8)
          e0 += tb;
        else if (n < 16)
          e1 += tb;
        else
          e2 += tb;
        ++len;
      }
    } else {
      e0 = d0 + kOnes;
      e1 = d1 + kOnes;
      e2 = d2 + kOnes;
      eb = static_cast<uint64_t>(exp + 193);
    }
    if (outlen == nullptr) {  // length byte, exponent byte, digits
      const uint64_t hdr = (static_cast<uint64_t>(len) << 56) | (eb << 48);
      store_exact(out, hdr | (e0 >> 16), (e0 << 48) | (e1 >> 16), (e1 << 48) | (e2 >> 16), len + 1);
    } else {
      store_exact(out, (eb << 56) | (e0 >> 8), (e0 << 56) | (e1 >> 8), (e1 << 56) | (e2 >> 8), len);
      *outlen = static_cast<size_t>(len);
    }
  };
  // The usual case, twenty digits, gets a copy with a constant length.
  // Otherwise the count runs up to the last non-zero digit (d0 never is
  // zero).
  if ((d2 >> 32) & 0xFF)
    write(20);
  else if (d2 != 0)
    write(24 - (__builtin_ctzll(d2) >> 3));
  else if (d1 != 0)
    write(16 - (__builtin_ctzll(d1) >> 3));
  else
    write(8 - (__builtin_ctzll(d0) >> 3));
}

// ---------------------------------------------------------------- limbs
// Base-10^8 limbs of an operand, most significant first, always six (the
// digits are followed by zeros). Named fields rather than an array filled
// by a loop, which the compiler would keep in memory.
struct Limbs {
  uint64_t l0, l1, l2, l3, l4, l5;
};

// Two base-10^8 limbs from a word of eight digits: a 16-bit lane holding
// digits a, b is a * 256 + b, and taking a * 156 off it leaves a * 100 + b
// in place; likewise for the pairs in 32-bit lanes with 65536 - 10000.
inline void limbs_of_word(uint64_t w, uint64_t &hi, uint64_t &lo) {
  const uint64_t p = w - ((w >> 8) & 0x00FF00FF00FF00FFull) * 156;
  const uint64_t q = p - ((p >> 16) & 0x0000FFFF0000FFFFull) * 55536;
  hi = q >> 32;
  lo = q & 0xFFFFFFFFull;
}

inline Limbs limbs8(const Raw &o) {
  uint64_t w[4];
  digits(o, w);
  Limbs l;
  limbs_of_word(w[0], l.l0, l.l1);
  limbs_of_word(w[1], l.l2, l.l3);
  limbs_of_word(w[2], l.l4, l.l5);
  return l;
}

// Eight base-100 digits, one per byte, the first in the top byte, from two
// limbs below 10^8. Each limb is split into halves below 10^4 by one
// division by 10^4, and each half into two digits by one division by 100.
#if defined(__SSE2__)
// With SSE2 both limbs go through the divisions together, in the vector
// unit, and the one integer multiplier stays free for the limb arithmetic
// around it: 10^4 by a 32-bit multiply-high in 64-bit lanes, 100 in the
// 16-bit lanes as (x / 4) * 2622 / 65536, exact below 10^4.
inline uint64_t split8x2(uint32_t a, uint32_t b) {
  const __m128i v = _mm_set_epi64x(a, b);                                           // [a | b]
  const __m128i hi = _mm_srli_epi64(_mm_mul_epu32(v, _mm_set1_epi64x(109951163)), 40);  // v / 10^4
  const __m128i lo = _mm_sub_epi64(v, _mm_mul_epu32(hi, _mm_set1_epi64x(10000)));
  const __m128i x = _mm_or_si128(_mm_slli_epi64(hi, 16), lo);  // 16-bit lanes: hi, lo
  const __m128i q = _mm_mulhi_epu16(_mm_srli_epi16(x, 2), _mm_set1_epi16(2622));  // x / 100
  const __m128i r = _mm_sub_epi16(x, _mm_mullo_epi16(q, _mm_set1_epi16(100)));
  const __m128i d = _mm_or_si128(_mm_slli_epi16(q, 8), r);  // 32 bits a lane: the four digits
  return static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_shuffle_epi32(d, _MM_SHUFFLE(3, 3, 2, 0))));
}
#else
// Without it the four halves go through the division by 100 two at a time,
// as 32-bit lanes of one word (a half times 5243 stays within its lane).
inline uint64_t split8x2(uint32_t a, uint32_t b) {
  const uint64_t ha = a / 10000, la = a - ha * 10000;
  const uint64_t hb = b / 10000, lb = b - hb * 10000;
  const uint64_t E = (la << 32) | lb, O = (ha << 32) | hb;
  constexpr uint64_t kLane7 = 0x0000007F0000007Full;
  const uint64_t qE = ((E * 5243) >> 19) & kLane7, qO = ((O * 5243) >> 19) & kLane7;  // each lane / 100
  const uint64_t tE = (qE << 8) | (E - qE * 100), tO = (qO << 8) | (O - qO * 100);
  return (tO << 16) | tE;
}
#endif

// Long division Q = floor(U / V) in base 10^8 on little-endian limbs, for
// the fixed shape of the fast path: U has eleven limbs (U < V * B^6, its
// five lowest zero), V five whose top limb is at least 10^6 (it starts with
// a non-zero base-100 digit). The six limbs of Q come out in q[0..5].
//
// The remainder is kept as signed limbs from which each quotient limb's
// products are subtracted whole, with no carries between them, except for
// its top: everything from limb j + 4 upwards (step j finds quotient limb
// j) is one exact integer X. X * B plus the next limb, less the quotient
// limb times the top two limbs of V, is the next X; its true value stays
// below 10^16 in size, so wrapping 64-bit arithmetic gives it exactly
// whatever the words pass through on the way.
//
// A quotient limb is X and the limb under it times fixed-point reciprocals
// of V (scaled by 2^82), rounded to the nearest integer: one 64 x 64-bit
// multiplication and a shift, no floating point on the chain from one limb
// to the next. The estimate is off by less than 3 * 10^-6 (the lower limbs,
// each holding at most three products, under 2 * 10^16, and the
// reciprocals' precision), so the limb taken is within half a unit and a
// little of the true quotient: the remainder stays within (V / 2) * B^j
// plus a little in size, and the signed limbs within B / 2 plus a little
// (a limb too large is made good by negative ones after it). At the end
// the remainder's sign is found, the last limb lowered by one if it is
// negative, and the signed limbs carried into place.
inline void div_limbs(const uint32_t *u_in, const uint32_t *v, uint32_t *q) {
  constexpr int64_t B = 100000000;
  // V / B^3 in double precision (at least 10^14), and B^4 / V, B^3 / V as
  // fixed-point numbers with 82 fraction bits (below 2^63).
  const double vs = (static_cast<double>(v[4]) * 1e8 + static_cast<double>(v[3])) +
                    (static_cast<double>(v[2]) * 1e-8 +
                     (static_cast<double>(v[1]) * 1e-16 + static_cast<double>(v[0]) * 1e-24));
  const int64_t r1 = static_cast<int64_t>(0x1p82 * 1e8 / vs);
  const int64_t r0 = static_cast<int64_t>(0x1p82 / vs);
  const uint64_t v2 = static_cast<uint64_t>(v[4]) * B + v[3];
  int64_t u[9];
  for (int i = 0; i < 9; ++i) u[i] = u_in[i];
  uint64_t X = static_cast<uint64_t>(u_in[10]) * B + u_in[9];
  int64_t qs[6];
#pragma GCC unroll 6
  for (int j = 5; j >= 0; --j) {
    const __int128 e = static_cast<__int128>(static_cast<int64_t>(X)) * r1 + static_cast<__int128>(u[j + 3]) * r0;
    const int64_t qhat = static_cast<int64_t>((e + (static_cast<__int128>(1) << 81)) >> 82);
    X = X * B + static_cast<uint64_t>(u[j + 3]) - static_cast<uint64_t>(qhat) * v2;
    u[j + 2] -= qhat * v[2];
    u[j + 1] -= qhat * v[1];
    u[j] -= qhat * v[0];
    qs[j] = qhat;
  }
  // Sign of the remainder X * B^3 + L, L = u[2] * B^2 + u[1] * B + u[0]:
  // |L| < 2^105, so an X beyond 2^30 in size decides alone and is clamped
  // there, which keeps the sum within 128 bits.
  const int64_t Xs = static_cast<int64_t>(X);
  const int64_t xc = Xs > (1ll << 30) ? (1ll << 30) : (Xs < -(1ll << 30) ? -(1ll << 30) : Xs);
  constexpr __int128 B2 = static_cast<__int128>(B) * B, B3 = B2 * B;
  const __int128 rem = xc * B3 + (u[2] * B2 + (static_cast<__int128>(u[1]) * B + u[0]));
  qs[0] -= rem < 0;
  // Carry the signed limbs into [0, B). Each lies within B / 2 and a
  // little of zero, so the carry is 0 or -1; the top one is the quotient's
  // first limb, which the sum keeps below B.
  int64_t c = 0;
#pragma GCC unroll 6
  for (int j = 0; j <= 5; ++j) {
    const int64_t t = qs[j] + c;
    c = t >> 63;
    q[j] = static_cast<uint32_t>(t + (B & c));
  }
}

}  // namespace

// ---------------------------------------------------------------- add / sub
// The operand with the larger exponent fills the words from the top, the
// other is aligned under it; both must fit in the 32 places (always true
// within twelve places of each other, and so for most pairs met in
// practice; the rest go to the plain kernel). A carry out of the top makes
// a leading digit 1 one place up.
[[gnu::always_inline]] inline bool add_fast_in(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen,
                                               bool subtract, uint8_t *out, size_t *outlen) {
  Raw x, y;
  if (!raw(a, alen, x) || !raw(b, blen, y)) return false;
  bool xneg = x.neg, yneg = y.neg != subtract;
  if (x.exp < y.exp) {
    std::swap(x, y);
    std::swap(xneg, yneg);
  }
  const int diff = x.exp - y.exp;
  if (diff + y.n > 32) return false;
  // Plain variables rather than arrays walked by loops: the compiler keeps
  // those in memory, and every step would go through a store and a load.
  uint64_t t[4];
  digits(x, t);
  uint64_t X0 = t[0], X1 = t[1], X2 = t[2], X3 = 0;
  digits(y, t);
  uint64_t Y[4];
  shift_down(t, diff, Y);
  uint64_t Y0 = Y[0], Y1 = Y[1], Y2 = Y[2], Y3 = Y[3];
  uint64_t R[4];
  bool resneg = xneg;
  uint64_t c = 0;
  if (xneg == yneg) {
    R[3] = add100(X3, Y3, c);
    R[2] = add100(X2, Y2, c);
    R[1] = add100(X1, Y1, c);
    R[0] = add100(X0, Y0, c);
    if (c) {  // a carry out of the top: a digit 1 before the others
      const uint64_t W[4] = {(1ull << 56) | (R[0] >> 8), (R[0] << 56) | (R[1] >> 8), (R[1] << 56) | (R[2] >> 8),
                             (R[2] << 56) | (R[3] >> 8)};  // the last place drops: it is past the rounding
      finish(resneg, x.exp + 1, W, out, outlen);
      return true;
    }
  } else {
    if (diff == 0) {  // the larger magnitude goes first
      const bool eq0 = X0 == Y0, eq1 = X1 == Y1, eq2 = X2 == Y2;
      if (__builtin_expect(eq0 & eq1 & eq2 & (X3 == Y3), 0)) {
        emit_zero(out, outlen);
        return true;
      }
      const bool lt = !eq0 ? X0 < Y0 : !eq1 ? X1 < Y1 : !eq2 ? X2 < Y2 : X3 < Y3;
      if (lt) {
        std::swap(X0, Y0);
        std::swap(X1, Y1);
        std::swap(X2, Y2);
        std::swap(X3, Y3);
        resneg = yneg;
      }
    }
    R[3] = sub100(X3, Y3, c);
    R[2] = sub100(X2, Y2, c);
    R[1] = sub100(X1, Y1, c);
    R[0] = sub100(X0, Y0, c);
  }
  finish(resneg, x.exp, R, out, outlen);
  return true;
}

// ---------------------------------------------------------------- multiply
// Product scanning in base 10^8 (five products below 10^16 each fit a
// 64-bit column). Only the six limbs from the first non-zero one are turned
// back into digits: they hold at least twenty-one significant digits, all
// that rounding reads.
[[gnu::always_inline]] inline bool mul_fast_in(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen,
                                               uint8_t *out, size_t *outlen) {
  Raw x, y;
  if (!raw(a, alen, x) || !raw(b, blen, y)) return false;
  const Limbs A = limbs8(x), B = limbs8(y);
  // Always five limbs by five (short operands are padded with zero limbs at
  // the bottom, which leaves the leading product limbs as they are). Column
  // m sums the products of limbs i, j with i + j = m - 1, each below 10^16,
  // and takes the carry of the column below it.
  const uint64_t a0 = A.l0, a1 = A.l1, a2 = A.l2, a3 = A.l3, a4 = A.l4;
  const uint64_t b0 = B.l0, b1 = B.l1, b2 = B.l2, b3 = B.l3, b4 = B.l4;
  constexpr uint64_t kB = 100000000;
  uint64_t acc, carry;
  uint32_t p[10];
  auto put = [&](int m) {
    carry = acc / kB;
    p[m] = static_cast<uint32_t>(acc - carry * kB);
  };
  acc = a4 * b4;
  put(9);
  acc = carry + a3 * b4 + a4 * b3;
  put(8);
  acc = carry + a2 * b4 + a3 * b3 + a4 * b2;
  put(7);
  acc = carry + a1 * b4 + a2 * b3 + a3 * b2 + a4 * b1;
  put(6);
  acc = carry + a0 * b4 + a1 * b3 + a2 * b2 + a3 * b1 + a4 * b0;
  put(5);
  acc = carry + a0 * b3 + a1 * b2 + a2 * b1 + a3 * b0;
  put(4);
  acc = carry + a0 * b2 + a1 * b1 + a2 * b0;
  put(3);
  acc = carry + a0 * b1 + a1 * b0;
  put(2);
  acc = carry + a0 * b0;
  put(1);
  p[0] = static_cast<uint32_t>(carry);
  uint64_t w[4];
  w[3] = 0;
  int exp = x.exp + y.exp + 1;
  if (p[0] != 0) {
    w[0] = split8x2(p[0], p[1]);
    w[1] = split8x2(p[2], p[3]);
    w[2] = split8x2(p[4], p[5]);
  } else {
    w[0] = split8x2(p[1], p[2]);
    w[1] = split8x2(p[3], p[4]);
    w[2] = split8x2(p[5], p[6]);
    exp -= 4;
  }
  finish(x.neg != y.neg, exp, w, out, outlen);
  return true;
}

// ---------------------------------------------------------------- divide
// Long division in base 10^8. With A and B the operands' digits as
// integers of five limbs (each at least 10^38, as it starts with a non-zero
// base-100 digit), q = floor(100 * A * 10^40 / B) lies in (100^20, 100^22):
// six quotient limbs hold every digit of it, at least the twenty-one
// significant ones that rounding reads, all exact.
[[gnu::always_inline]] inline bool div_fast_in(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen,
                                               uint8_t *out, size_t *outlen) {
  Raw x, y;
  if (!raw(a, alen, x) || !raw(b, blen, y)) return false;
  // The limbs of 100 * A are those of A's digits with three zero digits
  // put in front and one after: the words shifted by three bytes.
  uint64_t w[4];
  digits(x, w);
  uint64_t a0, a1, a2, a3, a4, a5;
  limbs_of_word(w[0] >> 24, a0, a1);
  limbs_of_word((w[0] << 40) | (w[1] >> 24), a2, a3);
  limbs_of_word((w[1] << 40) | (w[2] >> 24), a4, a5);
  const Limbs L = limbs8(y);
  // U = 100 * A * B^5 and V = B, little-endian, both operands taken as
  // five limbs whatever their length (zero limbs below shorter ones leave
  // the quotient as it is): a fixed shape with no loops.
  const uint32_t u[11] = {0, 0, 0, 0, 0, static_cast<uint32_t>(a5), static_cast<uint32_t>(a4),
                          static_cast<uint32_t>(a3), static_cast<uint32_t>(a2), static_cast<uint32_t>(a1),
                          static_cast<uint32_t>(a0)};
  const uint32_t v[5] = {static_cast<uint32_t>(L.l4), static_cast<uint32_t>(L.l3), static_cast<uint32_t>(L.l2),
                         static_cast<uint32_t>(L.l1), static_cast<uint32_t>(L.l0)};
  uint32_t q[6];
  div_limbs(u, v, q);
  const uint64_t d[4] = {split8x2(q[5], q[4]), split8x2(q[3], q[2]), split8x2(q[1], q[0]), 0};
  finish(x.neg != y.neg, x.exp - y.exp + 2, d, out, outlen);
  return true;
}

// ---------------------------------------------------------------- entry points
// The fast paths are inlined into the exported functions, which hand the
// other shapes on to the plain kernels; the out-of-line copies serve the
// tests that hold them against those kernels.
bool add_fast(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, bool subtract, uint8_t *out,
              size_t *outlen) {
  return add_fast_in(a, alen, b, blen, subtract, out, outlen);
}
bool mul_fast(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out, size_t *outlen) {
  return mul_fast_in(a, alen, b, blen, out, outlen);
}
bool div_fast(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out, size_t *outlen) {
  return div_fast_in(a, alen, b, blen, out, outlen);
}

}  // namespace lnx_internal

using namespace lnx_internal;

extern "C" {

KELAPI void lnxadd(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out,
                   size_t *outlen) {
  if (!add_fast_in(a, alen, b, blen, false, out, outlen)) add_plain(a, alen, b, blen, false, out, outlen);
}

KELAPI void lnxsub(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out,
                   size_t *outlen) {
  if (!add_fast_in(a, alen, b, blen, true, out, outlen)) add_plain(a, alen, b, blen, true, out, outlen);
}

KELAPI void lnxmul(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out,
                   size_t *outlen) {
  if (!mul_fast_in(a, alen, b, blen, out, outlen)) mul_plain(a, alen, b, blen, out, outlen);
}

KELAPI void lnxdiv(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out,
                   size_t *outlen) {
  if (!div_fast_in(a, alen, b, blen, out, outlen)) div_plain(a, alen, b, blen, out, outlen);
}

}  // extern "C"
