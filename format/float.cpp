// float.cpp - floating-point conversions (f F e E g G a A) without the C
// library.
//
// Design. A finite binary float is mant * 2^exp2 exactly, and so has a finite
// decimal expansion: mant * 2^exp2 when exp2 >= 0, (mant * 5^-exp2) / 10^-exp2
// when it is negative. We compute that integer in base 10^9 limbs on the
// stack (multiplying by 5^64q or 2^64q from compile-time tables, then by small
// powers), write out its leading digits as far as the rounding will look,
// and every decimal style (fixed, exponent, general) is then a matter of
// rounding a digit string to nearest, ties to even, and placing the point.
// The digits are exact, so the text is right for every value and every
// precision; digits beyond the expansion are zeros and are counted, not
// stored, so a precision of a billion needs no more memory than one of six.
//
// Bounds: a double needs at most 768 significant digits (the smallest
// subnormal, 2^-1074 = 5^1074 / 10^1074, times a 53-bit mantissa) and 86
// limbs; an x87 long double at most 11515 digits and 1281 limbs (a limb
// array needs one spare limb for the in-place multiplication). The long
// double path therefore uses about 17 KiB of stack, the double path 1.2 KiB.
//
// Hexadecimal (%a) needs no arithmetic beyond rounding the mantissa bits.
//
// Sections: big-number helpers and power tables; decimal expansion and
// rounding; the three decimal styles; hexadecimal; the entry points for
// double and long double.
#include <cfloat>
#include <climits>

#include "format/format_impl.h"

namespace lsf_internal {
namespace {

constexpr uint32_t kBase = 1000000000u;
constexpr uint32_t kPow5[14] = {1,       5,        25,        125,        625,        3125,        15625,
                                78125,   390625,   1953125,   9765625,    48828125,   244140625,   1220703125};

// L[0..n) little-endian base 10^9; multiplies in place by m < 2^31.
constexpr void mul_small(uint32_t *L, int &n, uint32_t m) {
  uint64_t carry = 0;
  for (int i = 0; i < n; ++i) {
    uint64_t t = static_cast<uint64_t>(L[i]) * m + carry;
    L[i] = static_cast<uint32_t>(t % kBase);
    carry = t / kBase;
  }
  while (carry) {
    L[n++] = static_cast<uint32_t>(carry % kBase);
    carry /= kBase;
  }
}

// L *= B[0..m), in place: the limbs of L are taken from the top down, so each
// one is read before the partial sums reach it. L needs room for n + m limbs.
void mul_big(uint32_t *L, int &n, const uint32_t *B, int m) {
  for (int i = n; i < n + m; ++i) L[i] = 0;
  for (int i = n - 1; i >= 0; --i) {
    uint64_t a = L[i];
    L[i] = 0;
    if (!a) continue;
    uint64_t carry = 0;
    for (int j = 0; j < m; ++j) {
      uint64_t t = L[i + j] + a * B[j] + carry;
      L[i + j] = static_cast<uint32_t>(t % kBase);
      carry = t / kBase;
    }
    for (int p = i + m; carry; ++p) {
      uint64_t t = L[p] + carry;
      L[p] = static_cast<uint32_t>(t % kBase);
      carry = t / kBase;
    }
  }
  n += m;
  while (n > 1 && L[n - 1] == 0) --n;
}

// 5^(64q) and 2^(64q) for q = 0..16 in base 10^9, made at compile time: one
// multiplication by a table entry replaces up to 79 passes of mul_small, which
// is what makes small and large doubles cheap.
constexpr int kTableSteps = 16;
struct PowTable {
  uint32_t limb[1100];
  uint16_t off[kTableSteps + 1];
  uint16_t len[kTableSteps + 1];
};

constexpr PowTable make_table(bool five) {
  PowTable t{};
  uint32_t cur[100] = {1};
  int n = 1;
  int pos = 0;
  for (int q = 0; q <= kTableSteps; ++q) {
    t.off[q] = static_cast<uint16_t>(pos);
    t.len[q] = static_cast<uint16_t>(n);
    for (int k = 0; k < n; ++k) t.limb[pos++] = cur[k];
    for (int e = 64; e > 0;) {
      int s = five ? (e < 13 ? e : 13) : (e < 29 ? e : 29);
      mul_small(cur, n, five ? kPow5[s] : (1u << s));
      e -= s;
    }
  }
  return t;
}

constexpr PowTable kFives = make_table(true);
constexpr PowTable kTwos = make_table(false);

// L *= base^e, base 5 or 2.
void mul_pow(uint32_t *L, int &n, int e, bool five) {
  const PowTable &t = five ? kFives : kTwos;
  while (e >= 64) {
    int q = e / 64 < kTableSteps ? e / 64 : kTableSteps;
    mul_big(L, n, t.limb + t.off[q], t.len[q]);
    e -= 64 * q;
  }
  while (e > 0) {
    int s = five ? (e < 13 ? e : 13) : (e < 29 ? e : 29);
    mul_small(L, n, five ? kPow5[s] : (1u << s));
    e -= s;
  }
}

constexpr char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Nine digits of a limb, leading zeros included.
inline void put9(char *p, uint32_t v) {
  p[8] = static_cast<char>('0' + v % 10);
  v /= 10;
  for (int i = 6; i >= 0; i -= 2) {
    uint32_t r = v % 100;
    v /= 100;
    p[i] = kPairs[2 * r];
    p[i + 1] = kPairs[2 * r + 1];
  }
}

}  // namespace

void decimal_expand(Decimal &d, uint64_t mant, int exp2, uint32_t *L, int limb_cap, char *digits,
                    int digit_cap, bool fixed, int64_t limit) {
  (void)limb_cap;
  (void)digit_cap;
  d.dig = digits;
  d.nd = 0;
  d.point = 0;
  if (mant == 0) return;
  int tz = __builtin_ctzll(mant);
  mant >>= tz;
  exp2 += tz;
  int n = 0;
  while (mant) {
    L[n++] = static_cast<uint32_t>(mant % kBase);
    mant /= kBase;
  }
  int shift10 = 0;
  if (exp2 > 0) {
    mul_pow(L, n, exp2, false);
  } else if (exp2 < 0) {
    shift10 = exp2;
    mul_pow(L, n, -exp2, true);
  }
  char tmp[9];
  put9(tmp, L[n - 1]);
  int lead = 0;
  while (tmp[lead] == '0') ++lead;
  int total = (9 - lead) + 9 * (n - 1);
  d.point = total + shift10;
  // Digits past the rounding position matter only as "anything nonzero":
  // write what the rounding reads and stand for the rest with one '1'.
  int64_t need = fixed ? static_cast<int64_t>(d.point) + limit + 1 : limit + 1;
  if (need < 1) need = 1;
  char *p = digits;
  for (int i = lead; i < 9; ++i) *p++ = tmp[i];
  int i = n - 2;
  for (; i >= 0 && p - digits < need; --i, p += 9) put9(p, L[i]);
  d.nd = static_cast<int>(p - digits);
  if (d.nd > need) {
    bool sticky = false;
    for (int j = static_cast<int>(need); j < d.nd; ++j) sticky |= digits[j] != '0';
    for (; i >= 0 && !sticky; --i) sticky = L[i] != 0;
    d.nd = static_cast<int>(need);
    if (sticky) digits[d.nd++] = '1';
  } else {
    bool sticky = false;
    for (; i >= 0 && !sticky; --i) sticky = L[i] != 0;
    if (sticky) digits[d.nd++] = '1';
  }
  while (d.nd > 0 && digits[d.nd - 1] == '0') --d.nd;
}

void decimal_round(Decimal &d, int k) {
  if (k >= d.nd) return;
  if (k < 0) {
    d.nd = 0;
    return;
  }
  bool up;
  char r = d.dig[k];
  if (r != '5') {
    up = r > '5';
  } else {
    up = k + 1 < d.nd;  // anything after the 5 (trailing zeros are stripped)
    if (!up) up = k > 0 && ((d.dig[k - 1] - '0') & 1);
  }
  d.nd = k;
  if (up) {
    int i = k - 1;
    while (i >= 0 && d.dig[i] == '9') --i;
    if (i < 0) {
      d.dig[0] = '1';
      d.nd = 1;
      ++d.point;
    } else {
      ++d.dig[i];
      d.nd = i + 1;
    }
  } else {
    while (d.nd > 0 && d.dig[d.nd - 1] == '0') --d.nd;
  }
}

namespace {

// Rounds to k significant digits where k may exceed int.
inline void round_to(Decimal &d, int64_t k) {
  if (k >= d.nd) return;
  decimal_round(d, static_cast<int>(k < 0 ? -1 : k));
}

// Digits at positions [from, from + count) of d, zeros outside it.
void emit_digits(Sink &o, const Decimal &d, int64_t from, uint64_t count) {
  if (count == 0) return;
  if (from < 0) {
    uint64_t z = static_cast<uint64_t>(-from);
    if (z > count) z = count;
    o.fill('0', z);
    count -= z;
    from += static_cast<int64_t>(z);
  }
  if (count && from < d.nd) {
    uint64_t k = static_cast<uint64_t>(d.nd - from);
    if (k > count) k = count;
    o.write(d.dig + from, k);
    count -= k;
  }
  if (count) o.fill('0', count);
}

struct Sign {
  char c = 0;
  int len() const { return c ? 1 : 0; }
};
inline Sign sign_of(const Spec &s, bool neg) {
  Sign g;
  if (neg)
    g.c = '-';
  else if (s.plus)
    g.c = '+';
  else if (s.space)
    g.c = ' ';
  return g;
}

// A decimal style's body, laid out once so its length is known before the
// padding is written.
struct Body {
  bool exp_style;
  uint64_t frac;  // digits after the point
  bool dot;
  int exp10;      // exponent style only
  char e_char;
};

uint64_t exp_digits(int x) {
  unsigned u = static_cast<unsigned>(x < 0 ? -x : x);
  uint64_t k = 1;
  while (u >= 10) {
    u /= 10;
    ++k;
  }
  return k < 2 ? 2 : k;
}

uint64_t body_len(const Decimal &d, const Body &b) {
  if (b.exp_style) return 1 + (b.dot ? 1 : 0) + b.frac + 2 + exp_digits(b.exp10);
  uint64_t ip = (d.nd > 0 && d.point > 0) ? static_cast<uint64_t>(d.point) : 1;
  return ip + (b.dot ? 1 : 0) + b.frac;
}

void body_emit(Sink &o, const Decimal &d, const Body &b) {
  if (b.exp_style) {
    o.put(d.nd > 0 ? d.dig[0] : '0');
    if (b.dot) o.put('.');
    emit_digits(o, d, 1, b.frac);
    char e[8];
    int x = b.exp10;
    int k = 0;
    unsigned u = static_cast<unsigned>(x < 0 ? -x : x);
    char tmp[8];
    int t = 0;
    do {
      tmp[t++] = static_cast<char>('0' + u % 10);
      u /= 10;
    } while (u);
    if (t < 2) tmp[t++] = '0';
    e[k++] = b.e_char;
    e[k++] = x < 0 ? '-' : '+';
    while (t) e[k++] = tmp[--t];
    o.write(e, static_cast<size_t>(k));
    return;
  }
  if (d.nd > 0 && d.point > 0)
    emit_digits(o, d, 0, static_cast<uint64_t>(d.point));
  else
    o.put('0');
  if (b.dot) o.put('.');
  emit_digits(o, d, d.point, b.frac);
}

// d holds the exact expansion of |v|; rounds it as the conversion asks.
Body layout_decimal(Decimal &d, const Spec &s) {
  Body b{};
  char c = s.conv;
  bool upper = c == 'E' || c == 'G';
  b.e_char = upper ? 'E' : 'e';
  int64_t prec = s.prec < 0 ? 6 : s.prec;
  if (c == 'f' || c == 'F') {
    if (d.nd) round_to(d, static_cast<int64_t>(d.point) + prec);
    if (d.nd == 0) d.point = 0;
    b.frac = static_cast<uint64_t>(prec);
    b.dot = prec > 0 || s.alt;
    return b;
  }
  if (c == 'e' || c == 'E') {
    round_to(d, prec + 1);
    b.exp_style = true;
    b.frac = static_cast<uint64_t>(prec);
    b.dot = prec > 0 || s.alt;
    b.exp10 = d.nd ? d.point - 1 : 0;
    return b;
  }
  // g, G: the style follows the exponent the value has once rounded to P
  // significant digits; both styles then show those same digits.
  int64_t P = prec == 0 ? 1 : prec;
  int64_t X0 = d.nd ? d.point - 1 : 0;
  round_to(d, P);
  int64_t X = d.nd ? d.point - 1 : 0;
  if (d.nd == 0) d.point = 0;
  if (s.alt && X0 == P - 1 && X == P) {
    // 9.5 with %#.1g: chosen as fixed with no fraction digit, then carried
    // into a new digit. The usual C library keeps "no fraction digits" and
    // writes "1.e+01"; we write the same so texts match it everywhere.
    b.exp_style = true;
    b.frac = 0;
    b.dot = true;
    b.exp10 = static_cast<int>(X);
    return b;
  }
  if (P > X && X >= -4) {
    int64_t f = P - 1 - X;
    if (!s.alt) {
      int64_t shown = d.nd - d.point;
      if (shown < 0) shown = 0;
      if (f > shown) f = shown;
    }
    b.frac = static_cast<uint64_t>(f);
    b.dot = f > 0 || s.alt;
    return b;
  }
  int64_t f = P - 1;
  if (!s.alt) f = d.nd > 0 ? d.nd - 1 : 0;
  b.exp_style = true;
  b.frac = static_cast<uint64_t>(f);
  b.dot = f > 0 || s.alt;
  b.exp10 = static_cast<int>(X);
  return b;
}

// The parts of a float as the conversions need them.
struct Parts {
  bool neg = false;
  int cls = 0;  // 0 zero, 1 finite nonzero, 2 inf, 3 nan
  uint64_t mant = 0;
  int exp2 = 0;  // value = mant * 2^exp2
  // hexadecimal layout: lead . frac(nfrac hex digits) p hexp
  unsigned lead = 0;
  uint64_t frac = 0;
  int nfrac = 0;
  int hexp = 0;
};

void emit_special(Sink &o, const Spec &s, const Parts &p) {
  bool upper = s.conv >= 'A' && s.conv <= 'Z';
  const char *t = p.cls == 2 ? (upper ? "INF" : "inf") : (upper ? "NAN" : "nan");
  Sign g = sign_of(s, p.neg);
  Pad pad = field_pad(s, static_cast<uint64_t>(g.len()), 3, false);
  o.fill(' ', pad.left);
  if (g.c) o.put(g.c);
  o.write(t, 3);
  o.fill(' ', pad.right);
}

void emit_hex(Sink &o, const Spec &s, Parts p) {
  bool upper = s.conv == 'A';
  const char *hexd = upper ? "0123456789ABCDEF" : "0123456789abcdef";
  unsigned lead = p.lead;
  uint64_t frac = p.frac;
  int hexp = p.hexp;
  int shown;  // fraction digits taken from frac (the rest of a precision are zeros)
  if (p.cls == 0) {
    lead = 0;
    frac = 0;
    hexp = 0;
  }
  if (s.prec < 0) {
    shown = p.nfrac;
    while (shown > 0 && ((frac >> (4 * (p.nfrac - shown))) & 0xf) == 0) --shown;
  } else if (s.prec < p.nfrac) {
    shown = s.prec;
    int drop = 4 * (p.nfrac - shown);
    unsigned __int128 v = (static_cast<unsigned __int128>(lead) << (4 * p.nfrac)) | frac;
    unsigned __int128 kept = v >> drop;
    unsigned __int128 rest = v & ((static_cast<unsigned __int128>(1) << drop) - 1);
    unsigned __int128 half = static_cast<unsigned __int128>(1) << (drop - 1);
    if (rest > half || (rest == half && (kept & 1))) ++kept;
    lead = static_cast<unsigned>(kept >> (4 * shown));
    frac = static_cast<uint64_t>(kept & ((static_cast<unsigned __int128>(1) << (4 * shown)) - 1));
    frac <<= drop;  // keep the digits left-aligned in nfrac digits
    if (lead >= 16) {  // 0xf.ff... rounded up: renormalise to 0x1.00...
      lead = 1;
      frac = 0;
      hexp += 4;
    }
  } else {
    shown = p.nfrac;
  }
  uint64_t prec_zeros = s.prec > shown ? static_cast<uint64_t>(s.prec - shown) : 0;
  uint64_t fdigits = static_cast<uint64_t>(shown) + prec_zeros;
  bool dot = fdigits > 0 || s.alt;
  char tail[16];
  int t = 0;
  tail[t++] = upper ? 'P' : 'p';
  tail[t++] = hexp < 0 ? '-' : '+';
  {
    unsigned u = static_cast<unsigned>(hexp < 0 ? -hexp : hexp);
    char tmp[8];
    int k = 0;
    do {
      tmp[k++] = static_cast<char>('0' + u % 10);
      u /= 10;
    } while (u);
    while (k) tail[t++] = tmp[--k];
  }
  Sign g = sign_of(s, p.neg);
  uint64_t prefix = static_cast<uint64_t>(g.len()) + 2;
  uint64_t body = 1 + (dot ? 1 : 0) + fdigits + static_cast<uint64_t>(t);
  Pad pad = field_pad(s, prefix, body, true);
  o.fill(' ', pad.left);
  if (g.c) o.put(g.c);
  o.put('0');
  o.put(upper ? 'X' : 'x');
  o.fill('0', pad.zeros);
  o.put(hexd[lead]);
  if (dot) o.put('.');
  for (int i = 0; i < shown; ++i) o.put(hexd[(frac >> (4 * (p.nfrac - 1 - i))) & 0xf]);
  o.fill('0', prec_zeros);
  o.write(tail, static_cast<size_t>(t));
  o.fill(' ', pad.right);
}

void emit_decimal(Sink &o, const Spec &s, const Parts &p, Decimal &d) {
  Body b = layout_decimal(d, s);
  Sign g = sign_of(s, p.neg);
  uint64_t len = body_len(d, b);
  Pad pad = field_pad(s, static_cast<uint64_t>(g.len()), len, true);
  o.fill(' ', pad.left);
  if (g.c) o.put(g.c);
  o.fill('0', pad.zeros);
  body_emit(o, d, b);
  o.fill(' ', pad.right);
}

Parts parts_of(double v) {
  uint64_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  Parts p;
  p.neg = bits >> 63;
  int e = static_cast<int>((bits >> 52) & 0x7ff);
  uint64_t f = bits & ((uint64_t{1} << 52) - 1);
  p.nfrac = 13;
  if (e == 0x7ff) {
    p.cls = f ? 3 : 2;
  } else if (e == 0) {
    if (f == 0) return p;
    p.cls = 1;
    p.mant = f;
    p.exp2 = -1074;
    p.lead = 0;
    p.frac = f;
    p.hexp = -1022;
  } else {
    p.cls = 1;
    p.mant = f | (uint64_t{1} << 52);
    p.exp2 = e - 1075;
    p.lead = 1;
    p.frac = f;
    p.hexp = e - 1023;
  }
  return p;
}

template <int kLimbs, int kDigits>
void format_parts(Sink &o, const Spec &s, const Parts &p) {
  if (p.cls >= 2) return emit_special(o, s, p);
  char c = s.conv;
  if (c == 'a' || c == 'A') return emit_hex(o, s, p);
  uint32_t limbs[kLimbs];
  char digits[kDigits];
  Decimal d;
  uint64_t mant = p.cls ? p.mant : 0;
  if ((c == 'f' || c == 'F') && mant) {
    // Below 10^-(prec+2) a fixed-point value rounds to zero: skip the
    // expansion, which for a tiny value is the longest there is.
    int64_t top = p.exp2 + (64 - __builtin_clzll(mant));  // value < 2^top
    int64_t prec = s.prec < 0 ? 6 : s.prec;
    if (top < 0 && -top * 30103 > (prec + 2) * 100000) mant = 0;
  }
  // What the rounding will read: digits to prec after the point (f), or
  // the significant digits of e (prec + 1) and g (P).
  int64_t prec = s.prec < 0 ? 6 : s.prec;
  bool fixed = c == 'f' || c == 'F';
  int64_t limit = fixed ? prec : (c == 'e' || c == 'E') ? prec + 1 : (prec == 0 ? 1 : prec);
  decimal_expand(d, mant, p.exp2, limbs, kLimbs, digits, kDigits, fixed, limit);
  emit_decimal(o, s, p, d);
}

}  // namespace

void format_double(Sink &o, const Spec &s, double v) { format_parts<90, 800>(o, s, parts_of(v)); }

#if LDBL_MANT_DIG == 64 && LDBL_MAX_EXP == 16384
void format_long_double(Sink &o, const Spec &s, long double v) {
  // x87 extended: 64-bit mantissa with an explicit integer bit, 15-bit
  // exponent. Hexadecimal output shows the top four mantissa bits as the
  // leading digit, so the exponent there is three less.
  unsigned char raw[sizeof(long double)];
  std::memcpy(raw, &v, sizeof v);
  uint64_t m;
  uint16_t se;
  std::memcpy(&m, raw, 8);
  std::memcpy(&se, raw + 8, 2);
  Parts p;
  p.neg = se >> 15;
  int e = se & 0x7fff;
  p.nfrac = 15;
  if (e == 0x7fff) {
    p.cls = (m << 1) ? 3 : 2;
  } else if (m == 0) {
    p.cls = 0;
  } else {
    p.cls = 1;
    p.mant = m;
    int eu = e == 0 ? 1 - 16383 : e - 16383;
    p.exp2 = eu - 63;
    p.lead = static_cast<unsigned>(m >> 60);
    p.frac = m & ((uint64_t{1} << 60) - 1);
    p.hexp = eu - 3;
  }
  format_parts<1290, 11600>(o, s, p);
}
#elif LDBL_MANT_DIG == 53
void format_long_double(Sink &o, const Spec &s, long double v) { format_double(o, s, static_cast<double>(v)); }
#else
#error "long double layout not supported by the formatter"
#endif

}  // namespace lsf_internal
