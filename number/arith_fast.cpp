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
//    borrows cross the bytes by themselves; the bytes that did (or did not)
//    carry are then found from the carry vector and corrected in one step;
//  - multiplication and division regroup the digit words into base-10^8
//    limbs with two multiply-adds per word.
// The result is rounded, range-checked and written by `finish`, which
// applies exactly the rule of `encode_bytes`: round half up on the
// twenty-first digit, drop trailing zeros, infinity above the range, zero
// below it.
//
// Sections: words and operands; finishing; addition and subtraction;
// multiplication; division.
#include <cstring>
#include <utility>

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
inline bool raw(const uint8_t *p, size_t len, Raw &o) {
  p = resolve(p, len);
  const uint8_t e = p[0];
  if (len < 2 || (e == 0xFF && p[1] == kPosInfDigit)) return false;
  o.p = p + 1;
  if (e & 0x80) {
    o.neg = false;
    o.exp = e - 193;
    o.n = static_cast<int>(len) - 1;
  } else {
    o.neg = true;
    o.exp = 62 - e;
    o.n = static_cast<int>(len) - 1 - (p[len - 1] == kTerm ? 1 : 0);
  }
  return o.n > 0;
}

// Places the digits of `o` (as values 0..99) at byte `off` of a 32-byte
// window of four words, zeros elsewhere. Needs off + o.n <= 32. The window
// is first filled with the byte that encodes digit 0 in the operand's
// encoding, so that one subtraction per word decodes everything.
inline void window(const Raw &o, int off, uint64_t w[4]) {
  uint8_t b[32];
  std::memset(b, o.neg ? 101 : 1, sizeof b);
  copy_short(b + off, o.p, static_cast<size_t>(o.n));
  for (int k = 0; k < 4; ++k) {
    const uint64_t v = load_be(b + 8 * k);
    w[k] = o.neg ? kNegBias - v : v - kOnes;
  }
}

// ---------------------------------------------------------------- finishing
// r[0..32) holds base-100 digits, r[0] at base-100 exponent `exp0`, and
// r[32..64) is zero. Writes the number they make, rounded to twenty digits.
void finish(bool neg, int exp0, uint8_t *r, uint8_t *out, size_t *outlen) {
  uint64_t w[4];
  for (int k = 0; k < 4; ++k) w[k] = load_be(r + 8 * k);
  int k = 0;
  while (k < 4 && w[k] == 0) ++k;
  if (k == 4) {
    emit_zero(out, outlen);
    return;
  }
  const int lead = 8 * k + __builtin_clzll(w[k]) / 8;
  k = 3;
  while (w[k] == 0) --k;
  const int last = 8 * k + 7 - __builtin_ctzll(w[k]) / 8;
  uint8_t *d = r + lead;
  int n = last - lead + 1;
  int exp = exp0 - lead;
  if (n > kMaxDigits) {
    n = kMaxDigits;
    if (d[kMaxDigits] >= 50) {
      int i = kMaxDigits - 1;
      while (i >= 0 && d[i] == 99) d[i--] = 0;
      if (i >= 0) {
        ++d[i];
      } else {  // 99..99 became 100..00
        d[0] = 1;
        ++exp;
      }
    }
    while (d[n - 1] == 0) --n;  // stops at the first digit, never zero
  }
  if (exp > kMaxExp) {
    emit_inf(neg, out, outlen);
    return;
  }
  if (exp < kMinExp) {
    emit_zero(out, outlen);
    return;
  }
  uint8_t st[1 + 1 + 24 + 8];
  uint8_t *b = st + 1;
  if (neg) {
    b[0] = static_cast<uint8_t>(62 - exp);
    for (int j = 0; j < 3; ++j) store_be(b + 1 + 8 * j, kNegBias - load_be(d + 8 * j));
  } else {
    b[0] = static_cast<uint8_t>(exp + 193);
    for (int j = 0; j < 3; ++j) store_be(b + 1 + 8 * j, load_be(d + 8 * j) + kOnes);
  }
  size_t len = static_cast<size_t>(n) + 1;
  if (neg && n < kMaxDigits) b[len++] = kTerm;
  if (outlen == nullptr) {
    st[0] = static_cast<uint8_t>(len);
    copy_short(out, st, len + 1);
  } else {
    copy_short(out, b, len);
    *outlen = len;
  }
}

// Base-10^8 limbs of an operand, most significant first; the last is padded
// with zero digits. Returns their count.
inline int limbs8(const Raw &o, uint32_t *l) {
  uint64_t w[4];
  window(o, 0, w);
  const int k = (o.n + 3) / 4;
  for (int j = 0; 2 * j < k; ++j) {
    // eight digits -> four pairs (below 10^4) -> two quadruples (below 10^8)
    const uint64_t p = ((w[j] >> 8) & 0x00FF00FF00FF00FFull) * 100 + (w[j] & 0x00FF00FF00FF00FFull);
    const uint64_t q = ((p >> 16) & 0x0000FFFF0000FFFFull) * 10000 + (p & 0x0000FFFF0000FFFFull);
    l[2 * j] = static_cast<uint32_t>(q >> 32);
    l[2 * j + 1] = static_cast<uint32_t>(q);
  }
  return k;
}

// Four base-100 digits of a limb below 10^8.
inline void split8(uint32_t v, uint8_t *d) {
  const uint32_t hi = v / 10000, lo = v - hi * 10000;
  d[0] = static_cast<uint8_t>(hi / 100);
  d[1] = static_cast<uint8_t>(hi - d[0] * 100u);
  d[2] = static_cast<uint8_t>(lo / 100);
  d[3] = static_cast<uint8_t>(lo - d[2] * 100u);
}

}  // namespace

// ---------------------------------------------------------------- add / sub
// Byte 0 of the window is the carry place, one above the larger exponent;
// both operands must fit in the 31 places below it (always true within
// seven places of each other, and so for most pairs met in practice).
bool add_fast(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, bool subtract,
              uint8_t *out, size_t *outlen) {
  Raw x, y;
  if (!raw(a, alen, x) || !raw(b, blen, y)) return false;
  bool xneg = x.neg, yneg = y.neg != subtract;
  if (x.exp < y.exp) {
    std::swap(x, y);
    std::swap(xneg, yneg);
  }
  const int diff = x.exp - y.exp;
  if (diff + y.n > 31) return false;
  uint64_t X[4], Y[4];
  window(x, 1, X);
  window(y, 1 + diff, Y);
  alignas(8) uint8_t r[64];
  bool resneg = xneg;
  if (xneg == yneg) {
    // Each byte of X is biased by 156 so that a digit sum of 100 or more
    // overflows the byte and carries into the next one by itself; the bytes
    // that did not carry give back their bias afterwards.
    uint64_t c = 0;
    for (int k = 3; k >= 0; --k) {
      const uint64_t xb = X[k] + kFix * kOnes;
      uint64_t t, s;
      const bool o1 = __builtin_add_overflow(xb, Y[k], &t);
      const bool o2 = __builtin_add_overflow(t, c, &s);
      c = o1 | o2;
      const uint64_t cin = xb ^ Y[k] ^ s;  // carry into every bit
      const uint64_t cout = ((cin >> 8) & kOnes) | (c << 56);
      store_be(r + 8 * k, s - (~cout & kOnes) * kFix);
    }
  } else {
    if (diff == 0) {  // the larger magnitude goes first
      int k = 0;
      while (k < 4 && X[k] == Y[k]) ++k;
      if (k == 4) {
        emit_zero(out, outlen);
        return true;
      }
      if (X[k] < Y[k]) {
        for (int j = 0; j < 4; ++j) std::swap(X[j], Y[j]);
        resneg = yneg;
      }
    }
    // A byte that borrowed holds its digit plus 256 and gives back 156.
    uint64_t c = 0;
    for (int k = 3; k >= 0; --k) {
      uint64_t t, s;
      const bool o1 = __builtin_sub_overflow(X[k], Y[k], &t);
      const bool o2 = __builtin_sub_overflow(t, c, &s);
      c = o1 | o2;
      const uint64_t bin = X[k] ^ Y[k] ^ s;  // borrow into every bit
      const uint64_t bout = ((bin >> 8) & kOnes) | (c << 56);
      store_be(r + 8 * k, s - bout * kFix);
    }
  }
  std::memset(r + 32, 0, 32);
  finish(resneg, x.exp + 1, r, out, outlen);
  return true;
}

// ---------------------------------------------------------------- multiply
// Product scanning in base 10^8 (five products below 10^16 each fit a
// 64-bit column). Only the six limbs from the first non-zero one are turned
// back into digits: they hold at least twenty-one significant digits, all
// that rounding reads.
bool mul_fast(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out,
              size_t *outlen) {
  Raw x, y;
  if (!raw(a, alen, x) || !raw(b, blen, y)) return false;
  uint32_t la[6], lb[6];
  const int ka = limbs8(x, la), kb = limbs8(y, lb);
  const int K = ka + kb;
  uint32_t p[10];
  uint64_t carry = 0;
  for (int m = K - 1; m >= 0; --m) {
    uint64_t acc = carry;
    const int lo = m - kb > 0 ? m - kb : 0, hi = m - 1 < ka - 1 ? m - 1 : ka - 1;
    for (int i = lo; i <= hi; ++i) acc += static_cast<uint64_t>(la[i]) * lb[m - 1 - i];
    carry = acc / 100000000;
    p[m] = static_cast<uint32_t>(acc - carry * 100000000);
  }
  const int s0 = p[0] == 0 ? 1 : 0;
  const int s1 = K < s0 + 6 ? K : s0 + 6;
  alignas(8) uint8_t r[64] = {};
  for (int m = s0; m < s1; ++m) split8(p[m], r + 4 * (m - s0));
  finish(x.neg != y.neg, x.exp + y.exp + 1 - 4 * s0, r, out, outlen);
  return true;
}

// ---------------------------------------------------------------- divide
// Long division in base 10^8, developing seven quotient limbs: at least 24
// significant base-100 digits, so the twenty-first is exact.
bool div_fast(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out,
              size_t *outlen) {
  Raw x, y;
  if (!raw(a, alen, x) || !raw(b, blen, y)) return false;
  uint32_t la[6], lb[6];
  const int ka = limbs8(x, la), kb = limbs8(y, lb);
  constexpr int M = 6;
  const int k = kb - ka + M;
  uint32_t u[M + 5 + 1] = {}, v[5], q[M + 1];
  for (int t = 0; t < ka; ++t) u[k + t] = la[ka - 1 - t];
  for (int t = 0; t < kb; ++t) v[t] = lb[kb - 1 - t];
  if (kb == 1) {
    uint64_t rem = 0;
    for (int j = M; j >= 0; --j) {
      const uint64_t cur = rem * 100000000 + u[j];
      q[j] = static_cast<uint32_t>(cur / v[0]);
      rem = cur - static_cast<uint64_t>(q[j]) * v[0];
    }
  } else {
    knuth_div<100000000>(u, M, v, kb, q);
  }
  alignas(8) uint8_t r[64] = {};
  for (int i = 0; i <= M; ++i) split8(q[M - i], r + 4 * i);
  finish(x.neg != y.neg, x.exp - y.exp + 3, r, out, outlen);
  return true;
}

}  // namespace lnx_internal
