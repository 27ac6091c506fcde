// float.cpp - exact conversions between binary floating point and decimal:
// correctly rounded digits of a double (slfpdtoa), doubles and floats to
// numbers (slfpd2lnx, slfpd2lnxl, slfpf2lnx) and numbers to the nearest
// double or float (slfplnx2d, slfplnx2f).
//
// Every conversion is done with exact big-integer arithmetic on the value
// m * 2^e of the float and M * 100^s of the number, so the results do not
// depend on the C library's formatting or parsing. Quotients are found a
// few digits at a time from a 64-bit estimate of the leading bits that is
// never too large, then corrected by at most a few subtractions.
//
// Sections: the big integer; rounding a binary quotient to a float format;
// digits of a double; numbers to floats; the interface.
#include <cmath>
#include <cstring>

#include "lnx.h"
#include "number/lnx_impl.h"

namespace sl_float_internal {

// ---------------------------------------------------------------- big integer
// Non-negative integer in little-endian 32-bit limbs; 1536 bits cover every
// intermediate (a double's range times 10^9, a number's range times 2^64).
struct Big {
  static constexpr int kLimbs = 48;
  uint32_t l[kLimbs];
  int n = 0;  // limbs in use, no leading zero limbs

  static Big of(uint64_t v) {
    Big b;
    while (v) {
      b.l[b.n++] = static_cast<uint32_t>(v);
      v >>= 32;
    }
    return b;
  }
  bool zero() const { return n == 0; }
  void add_small(uint32_t v) {
    uint64_t c = v;
    for (int i = 0; i < n && c; ++i) {
      uint64_t t = static_cast<uint64_t>(l[i]) + c;
      l[i] = static_cast<uint32_t>(t);
      c = t >> 32;
    }
    if (c) l[n++] = static_cast<uint32_t>(c);
  }
  void trim() {
    while (n > 0 && l[n - 1] == 0) --n;
  }
  void mul_small(uint32_t m) {
    uint64_t c = 0;
    for (int i = 0; i < n; ++i) {
      uint64_t t = static_cast<uint64_t>(l[i]) * m + c;
      l[i] = static_cast<uint32_t>(t);
      c = t >> 32;
    }
    if (c) l[n++] = static_cast<uint32_t>(c);
  }
  void mul_pow10(int k) {
    static const uint32_t p10[10] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000,
                                     1000000000};
    while (k >= 9) {
      mul_small(p10[9]);
      k -= 9;
    }
    if (k > 0) mul_small(p10[k]);
  }
  void shl(int bits) {
    if (n == 0 || bits == 0) return;
    const int w = bits / 32, b = bits % 32;
    if (b == 0) {
      for (int i = n - 1; i >= 0; --i) l[i + w] = l[i];
    } else {
      l[n + w] = 0;
      for (int i = n - 1; i >= 0; --i) {
        l[i + w + 1] |= l[i] >> (32 - b);
        l[i + w] = l[i] << b;
      }
    }
    for (int i = 0; i < w; ++i) l[i] = 0;
    n += w + (b ? 1 : 0);
    trim();
  }
  int bitlen() const { return n == 0 ? 0 : 32 * (n - 1) + (32 - __builtin_clz(l[n - 1])); }
  // Bits [s, s + 128) as an integer.
  unsigned __int128 bits_from(int s) const {
    const int w = s / 32, b = s % 32;
    unsigned __int128 lo = 0;
    for (int i = 3; i >= 0; --i) lo = (lo << 32) | (w + i < n ? l[w + i] : 0u);
    lo >>= b;
    if (b && w + 4 < n) lo |= static_cast<unsigned __int128>(l[w + 4]) << (128 - b);
    return lo;
  }
  void mul_u64(uint64_t m) {
    unsigned __int128 c = 0;
    for (int i = 0; i < n; ++i) {
      unsigned __int128 t = static_cast<unsigned __int128>(l[i]) * m + c;
      l[i] = static_cast<uint32_t>(t);
      c = t >> 32;
    }
    while (c) {
      l[n++] = static_cast<uint32_t>(c);
      c >>= 32;
    }
  }
  bool any_below(int s) const {  // any bit below position s set
    const int w = s / 32, b = s % 32;
    for (int i = 0; i < w && i < n; ++i)
      if (l[i]) return true;
    return b && w < n && (l[w] & ((1u << b) - 1));
  }
};

int cmp(const Big &a, const Big &b) {
  if (a.n != b.n) return a.n > b.n ? 1 : -1;
  for (int i = a.n - 1; i >= 0; --i)
    if (a.l[i] != b.l[i]) return a.l[i] > b.l[i] ? 1 : -1;
  return 0;
}

void sub(Big &a, const Big &b) {  // a -= b, a >= b
  int64_t br = 0;
  for (int i = 0; i < a.n; ++i) {
    int64_t t = static_cast<int64_t>(a.l[i]) - (i < b.n ? b.l[i] : 0) - br;
    br = t < 0;
    a.l[i] = static_cast<uint32_t>(t + (br ? (int64_t{1} << 32) : 0));
  }
  a.trim();
}

// floor(num / den) for quotients below 2^64; num becomes the remainder.
uint64_t div_small_quotient(Big &num, const Big &den) {
  if (cmp(num, den) < 0) return 0;
  if (den.bitlen() <= 64) {  // both fit machine words: divide exactly
    const unsigned __int128 N = num.bits_from(0);
    const uint64_t D = static_cast<uint64_t>(den.bits_from(0));
    const uint64_t q = static_cast<uint64_t>(N / D);
    const uint64_t r = static_cast<uint64_t>(N % D);
    num = Big::of(r);
    return q;
  }
  // The top 64 bits of the divisor (its leading bit set) plus one never
  // overestimate; the estimate is short by at most a few units.
  const int s = den.bitlen() - 64;
  const unsigned __int128 N = num.bits_from(s);
  const uint64_t D = static_cast<uint64_t>(den.bits_from(s));
  uint64_t q = static_cast<uint64_t>(N / (static_cast<unsigned __int128>(D) + 1));
  if (q) {
    Big t = den;
    t.mul_u64(q);
    sub(num, t);
  }
  while (cmp(num, den) >= 0) {
    sub(num, den);
    ++q;
  }
  return q;
}

// ---------------------------------------------------------------- rounding
// Rounds q * 2^e2 (plus a sticky fraction below it) half to even to a binary
// format with p-bit significands, normal exponents emin..emax, and returns
// its bit pattern without the sign.
uint64_t round_binary(uint64_t q, bool sticky, int e2, int p, int emin, int emax) {
  if (q == 0) return 0;
  const int L = 64 - __builtin_clzll(q);
  int e = L - 1 + e2;  // exponent of the leading bit
  int keep = e >= emin ? p : p - (emin - e);
  const int drop = L - keep;
  uint64_t kept;
  if (drop <= 0) {
    kept = q << (-drop);
  } else if (drop > 64) {
    return 0;
  } else {
    const uint64_t rem = drop == 64 ? q : (q & ((uint64_t{1} << drop) - 1));
    const uint64_t half = uint64_t{1} << (drop - 1);
    kept = drop == 64 ? 0 : q >> drop;
    if (rem > half || (rem == half && (sticky || (kept & 1)))) ++kept;
  }
  const uint64_t top = uint64_t{1} << (p - 1);
  if (e < emin) return kept;  // subnormal; a carry into `top` is the smallest normal
  if (kept >> p) {            // carry out of the significand
    kept >>= 1;
    ++e;
  }
  if (e > emax) return static_cast<uint64_t>(2 * emax + 1) << (p - 1);  // infinity
  const uint64_t bias = static_cast<uint64_t>(emax);
  return ((static_cast<uint64_t>(e) + bias) << (p - 1)) | (kept - top);
}

// ---------------------------------------------------------------- digits
// The first n (1..40) significant decimal digits of m * 2^e (m > 0),
// correctly rounded half to even, as ASCII with trailing zeros removed;
// *k receives the decimal exponent of the first digit.
int double_digits(uint64_t m, int e, int n, char *out, int *k) {
  // num / den = v / 10^(k + 1), brought into [0.1, 1).
  const double v = std::ldexp(static_cast<double>(m), e);
  int kk = static_cast<int>(std::floor(std::log10(v)));
  Big num, den;
  for (;;) {
    num = Big::of(m);
    den = Big::of(1);
    if (e > 0) num.shl(e);
    if (e < 0) den.shl(-e);
    if (kk + 1 >= 0)
      den.mul_pow10(kk + 1);
    else
      num.mul_pow10(-(kk + 1));
    if (cmp(num, den) >= 0) {
      ++kk;
      continue;
    }
    Big ten = num;
    ten.mul_small(10);
    if (cmp(ten, den) < 0) {
      --kk;
      continue;
    }
    break;
  }
  char d[48];
  int nd = 0;
  while (nd < n) {
    int c = n - nd < 9 ? n - nd : 9;
    num.mul_pow10(c);
    uint64_t chunk = div_small_quotient(num, den);
    for (int i = c - 1; i >= 0; --i) {
      d[nd + i] = static_cast<char>('0' + chunk % 10);
      chunk /= 10;
    }
    nd += c;
  }
  // Half to even on the remainder.
  num.shl(1);
  const int c = cmp(num, den);
  if (c > 0 || (c == 0 && ((d[n - 1] - '0') & 1))) {
    int i = n - 1;
    while (i >= 0 && d[i] == '9') d[i--] = '0';
    if (i >= 0) {
      ++d[i];
    } else {
      d[0] = '1';
      ++kk;
    }
  }
  while (n > 1 && d[n - 1] == '0') --n;
  std::memcpy(out, d, static_cast<size_t>(n));
  out[n] = '\0';
  *k = kk;
  return n;
}

// ---------------------------------------------------------------- to floats
// Nearest binary value of a finite non-zero number in a format with p-bit
// significands and exponents emin..emax; returns the bits without sign.
uint64_t number_to_binary(const lnx_internal::Num &x, int p, int emin, int emax) {
  // x = M * 100^s with the integer M of the digits.
  Big M = Big::of(0);
  for (int i = 0; i < x.n; ++i) {
    M.mul_small(100);
    M.add_small(x.d[i]);
  }
  const int s = x.exp - x.n + 1;
  if (s >= 0) {
    M.mul_pow10(2 * s);
    const int L = M.bitlen();
    if (L <= 64) return round_binary(static_cast<uint64_t>(M.bits_from(0)), false, 0, p, emin, emax);
    const uint64_t q = static_cast<uint64_t>(M.bits_from(L - 64));
    return round_binary(q, M.any_below(L - 64), L - 64, p, emin, emax);
  }
  Big den = Big::of(1);
  den.mul_pow10(-2 * s);
  // q = floor(M * 2^sh / den) in [2^62, 2^64).
  const int sh = 63 + den.bitlen() - M.bitlen();
  if (sh > 0) M.shl(sh);
  else if (sh < 0) den.shl(-sh);
  const uint64_t q = div_small_quotient(M, den);
  return round_binary(q, !M.zero(), -sh, p, emin, emax);
}

}  // namespace sl_float_internal

using namespace sl_float_internal;
using namespace lnx_internal;

extern "C" {

KELAPI int32_t slfpdtoa(double value, int32_t ndigits, char *digits, int32_t *ndigout,
                        int32_t *exp10, int32_t *negative) {
  uint64_t bits;
  std::memcpy(&bits, &value, 8);
  const bool neg = bits >> 63;
  const int bexp = static_cast<int>((bits >> 52) & 0x7FF);
  uint64_t frac = bits & ((uint64_t{1} << 52) - 1);
  if (bexp == 0x7FF) {
    if (frac) return 3;
    if (negative) *negative = neg;
    return 2;
  }
  if (negative) *negative = neg;
  if (bexp == 0 && frac == 0) {
    if (digits) {
      digits[0] = '0';
      digits[1] = '\0';
    }
    if (ndigout) *ndigout = 1;
    if (exp10) *exp10 = 0;
    return 1;
  }
  uint64_t m = bexp ? (frac | (uint64_t{1} << 52)) : frac;
  int e = (bexp ? bexp : 1) - 1075;
  if (ndigits < 1) ndigits = 1;
  if (ndigits > 40) ndigits = 40;
  char buf[48];
  int k;
  int n = double_digits(m, e, ndigits, buf, &k);
  if (digits) std::memcpy(digits, buf, static_cast<size_t>(n) + 1);
  if (ndigout) *ndigout = n;
  if (exp10) *exp10 = k;
  return 0;
}

KELAPI int32_t slfpd2lnxl(void *ctx, double value, int32_t ndigits, uint8_t *out, size_t *outlen) {
  (void)ctx;
  char dig[48];
  int32_t n = 0, k = 0, neg = 0;
  switch (slfpdtoa(value, ndigits, dig, &n, &k, &neg)) {
    case 3: return 3;
    case 2: emit_inf(neg != 0, out, outlen); return 0;
    case 1: emit_zero(out, outlen); return 0;
    default: break;
  }
  // "+digits" "e" exponent, read back by the literal parser.
  char text[64];
  int t = 0;
  text[t++] = neg ? '-' : '+';
  std::memcpy(text + t, dig, static_cast<size_t>(n));
  t += n;
  text[t++] = 'e';
  int ex = k - (n - 1);
  if (ex < 0) {
    text[t++] = '-';
    ex = -ex;
  }
  char rev[12];
  int r = 0;
  do {
    rev[r++] = static_cast<char>('0' + ex % 10);
    ex /= 10;
  } while (ex);
  while (r) text[t++] = rev[--r];
  lnxcpng(text, static_cast<size_t>(t), out, outlen, 0, 0, 0, 0, nullptr, nullptr, nullptr);
  return 0;
}

KELAPI int32_t slfpd2lnx(void *ctx, double value, uint8_t *out, size_t *outlen) {
  return slfpd2lnxl(ctx, value, 17, out, outlen);
}

KELAPI int32_t slfpf2lnx(void *ctx, float value, uint8_t *out, size_t *outlen) {
  return slfpd2lnxl(ctx, static_cast<double>(value), 9, out, outlen);
}

KELAPI double slfplnx2d(const uint8_t *num, size_t len) {
  Num x;
  decode_arg(num, len, x);
  uint64_t bits;
  switch (x.kind) {
    case Kind::Zero: bits = 0; break;
    case Kind::PosInf: bits = uint64_t{0x7FF} << 52; break;
    case Kind::NegInf: bits = uint64_t{0xFFF} << 52; break;
    default:
      bits = number_to_binary(x, 53, -1022, 1023) | (x.neg ? uint64_t{1} << 63 : 0);
  }
  double d;
  std::memcpy(&d, &bits, 8);
  return d;
}

KELAPI float slfplnx2f(const uint8_t *num, size_t len) {
  Num x;
  decode_arg(num, len, x);
  uint32_t bits;
  switch (x.kind) {
    case Kind::Zero: bits = 0; break;
    case Kind::PosInf: bits = 0x7F800000u; break;
    case Kind::NegInf: bits = 0xFF800000u; break;
    default:
      bits = static_cast<uint32_t>(number_to_binary(x, 24, -126, 127)) | (x.neg ? 0x80000000u : 0);
  }
  float f;
  std::memcpy(&f, &bits, 4);
  return f;
}

}  // extern "C"
