// native.cpp - numbers to and from native integers, unsigned big-endian
// binary strings, and the byte-sortable canonical float forms.
//
// The range test of lnxsni is a byte comparison of the input's magnitude
// with limits that are ready-made numbers; only values in range (or the
// wrap-around mode) are accumulated into an integer.
#include <cstring>

#include "lnx.h"
#include "number/lnx_impl.h"

using namespace lnx_internal;

namespace {

bool size_ok(size_t size, int kind, bool from_native) {
  (void)from_native;
  switch (kind) {
    case 0:
    case 2: return size == 1 || size == 2 || size == 4 || size == 8;
    case 1: return size == 1 || size == 2 || size == 4;
    default: return false;
  }
}

void store(void *dst, size_t size, uint64_t v) {
  switch (size) {
    case 1: { uint8_t t = static_cast<uint8_t>(v); std::memcpy(dst, &t, 1); break; }
    case 2: { uint16_t t = static_cast<uint16_t>(v); std::memcpy(dst, &t, 2); break; }
    case 4: { uint32_t t = static_cast<uint32_t>(v); std::memcpy(dst, &t, 4); break; }
    default: std::memcpy(dst, &v, 8); break;
  }
}

// Magnitude digits of a 64-bit value, most significant first; returns the
// count and the base-100 exponent of the first digit.
int split100(uint64_t v, uint8_t *d, int &exp) {
  uint8_t rev[10];
  int n = 0;
  while (v) {
    rev[n++] = static_cast<uint8_t>(v % 100);
    v /= 100;
  }
  for (int i = 0; i < n; ++i) d[i] = rev[n - 1 - i];
  exp = n - 1;
  return n;
}

// Limits of lnxsni as ready-made numbers (the bytes of a positive value),
// built at compile time; index [kind][size code][negative input].
struct Limit {
  uint8_t bytes[12];
  uint8_t len;
  uint64_t clamp;  // value stored when the limit is exceeded (as a magnitude)
};

constexpr Limit make_limit(uint64_t mag) {
  Limit l{};
  l.clamp = mag;
  if (mag == 0) {
    l.bytes[0] = kZeroByte;
    l.len = 1;
    return l;
  }
  uint8_t rev[10] = {};
  int n = 0;
  for (uint64_t v = mag; v; v /= 100) rev[n++] = static_cast<uint8_t>(v % 100);
  l.bytes[0] = static_cast<uint8_t>(193 + n - 1);
  int k = 0;
  while (rev[k] == 0) ++k;  // trailing zero digits are not stored
  int len = 1;
  for (int i = n - 1; i >= k; --i) l.bytes[len++] = static_cast<uint8_t>(rev[i] + 1);
  l.len = static_cast<uint8_t>(len);
  return l;
}

struct Limits {
  Limit t[3][4][2];
};

constexpr Limits make_limits() {
  Limits L{};
  const uint64_t umax[4] = {0xFF, 0xFFFF, 0xFFFFFFFFu, ~uint64_t{0}};
  const uint64_t smax[4] = {0x7F, 0x7FFF, 0x7FFFFFFF, 0x7FFFFFFFFFFFFFFF};
  for (int s = 0; s < 4; ++s) {
    L.t[0][s][0] = make_limit(umax[s]);
    L.t[0][s][1] = make_limit(0);
    L.t[1][s][0] = make_limit(smax[s]);
    L.t[1][s][1] = make_limit(0);
    L.t[2][s][0] = make_limit(smax[s]);
    L.t[2][s][1] = make_limit(smax[s] + 1);  // stored as -(max + 1)
  }
  return L;
}

constexpr Limits kLimits = make_limits();
// The two limits quoted for signed 4-byte integers, checked at build time.
static_assert(kLimits.t[2][2][0].len == 6 && kLimits.t[2][2][0].bytes[0] == 0xC5 &&
              kLimits.t[2][2][0].bytes[5] == 0x30 && kLimits.t[2][2][1].bytes[5] == 0x31);

const Limits &limits() { return kLimits; }

int size_code(size_t size) { return size == 1 ? 0 : size == 2 ? 1 : size == 4 ? 2 : 3; }

}  // namespace

extern "C" {

KELAPI int32_t lnxmin(const void *src, size_t size, int32_t kind, uint8_t *out, size_t *outlen) {
  if (src == nullptr || !size_ok(size, kind, true)) return 3;
  uint64_t mag;
  bool neg = false;
  if (kind == 0) {
    switch (size) {
      case 1: { uint8_t v; std::memcpy(&v, src, 1); mag = v; break; }
      case 2: { uint16_t v; std::memcpy(&v, src, 2); mag = v; break; }
      case 4: { uint32_t v; std::memcpy(&v, src, 4); mag = v; break; }
      default: std::memcpy(&mag, src, 8); break;
    }
  } else {
    int64_t v;
    switch (size) {
      case 1: { int8_t t; std::memcpy(&t, src, 1); v = t; break; }
      case 2: { int16_t t; std::memcpy(&t, src, 2); v = t; break; }
      case 4: { int32_t t; std::memcpy(&t, src, 4); v = t; break; }
      default: std::memcpy(&v, src, 8); break;
    }
    neg = v < 0;
    // -(v + 1) + 1 forms the magnitude of the most negative value safely.
    mag = neg ? static_cast<uint64_t>(-(v + 1)) + 1 : static_cast<uint64_t>(v);
  }
  if (mag == 0) {
    emit_zero(out, outlen);
    return 0;
  }
  uint8_t d[12];
  int e;
  int n = split100(mag, d, e);
  encode(neg, e, d, n, out, outlen);
  return 0;
}

KELAPI int32_t lnxsni(const uint8_t *num, size_t len, void *dst, size_t size, uint32_t flags) {
  const int kind = static_cast<int>(flags & 0x7F);
  const bool wrap = (flags & 0x8000) != 0;
  if (dst == nullptr || !size_ok(size, kind, false)) return 3;
  Num x;
  decode_arg(num, len, x);
  const int sc = size_code(size);
  const uint64_t mask = size == 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * size)) - 1;
  if (x.kind == Kind::Zero) {
    store(dst, size, 0);
    return 0;
  }
  if (x.kind != Kind::Finite) {  // infinities clamp in both modes
    const bool ng = x.kind == Kind::NegInf;
    const Limit &lim = limits().t[kind][sc][ng ? 1 : 0];
    store(dst, size, ng && kind == 2 ? (~lim.clamp + 1) & mask : lim.clamp);
    return 1;
  }
  if (x.exp < 0) {  // magnitude below 1
    store(dst, size, 0);
    return 2;
  }
  if (x.neg && kind != 2) {
    store(dst, size, 0);
    return 1;
  }
  const Limit &lim = limits().t[kind][sc][x.neg ? 1 : 0];
  // The magnitude's bytes against the limit's: one comparison, no arithmetic.
  uint8_t mb[kBufBytes];
  size_t ml;
  if (x.neg) {
    lnxabs(num, len, mb, &ml);
  } else {
    size_t l = len;
    const uint8_t *p = resolve(num, l);
    std::memcpy(mb, p, l);
    ml = l;
  }
  const bool over = lnxcmp(mb, ml, lim.bytes, lim.len) > 0;
  if (over && !wrap) {
    store(dst, size, x.neg ? (~lim.clamp + 1) & mask : lim.clamp);
    return 1;
  }
  // Integer part, modulo 2^64 (exact when in range).
  uint64_t v = 0;
  for (int i = 0; i <= x.exp; ++i) v = v * 100 + (i < x.n ? x.d[i] : 0);
  if (x.neg) v = ~v + 1;
  store(dst, size, v & mask);
  return over ? 1 : 0;
}

KELAPI int32_t lnxr2n(const uint8_t *bytes, size_t n, uint8_t *out, size_t *outlen) {
  size_t i = 0;
  while (i < n && bytes[i] == 0) ++i;
  if (i == n) {
    emit_zero(out, outlen);
    return 0;
  }
  // Base-1,000,000 limbs, least significant first, fed twelve bits at a
  // time; seven limbs hold 42 digits, more than a number can keep.
  uint32_t limb[8] = {};
  int nl = 1;
  const size_t bits = (n - i) * 8;
  size_t first = bits % 12 == 0 ? 12 : bits % 12;
  size_t bitpos = 0;  // bits consumed from bytes[i]
  auto take = [&](size_t k) {
    uint32_t v = 0;
    for (size_t b = 0; b < k; ++b, ++bitpos) {
      const uint8_t byte = bytes[i + bitpos / 8];
      v = (v << 1) | ((byte >> (7 - bitpos % 8)) & 1);
    }
    return v;
  };
  for (size_t k = first; bitpos < bits; k = 12) {
    uint32_t add = take(k);
    uint64_t carry = add;
    for (int j = 0; j < nl; ++j) {
      uint64_t t = static_cast<uint64_t>(limb[j]) * (uint64_t{1} << k) + carry;
      limb[j] = static_cast<uint32_t>(t % 1000000);
      carry = t / 1000000;
    }
    while (carry) {
      if (nl == 7) {  // more than 42 digits
        emit_inf(false, out, outlen);
        return 1;
      }
      limb[nl++] = static_cast<uint32_t>(carry % 1000000);
      carry /= 1000000;
    }
  }
  uint8_t d[24];
  int nd = 0;
  for (int j = nl - 1; j >= 0; --j) {
    const uint32_t v = limb[j];
    uint8_t t[3] = {static_cast<uint8_t>(v / 10000), static_cast<uint8_t>(v / 100 % 100),
                    static_cast<uint8_t>(v % 100)};
    for (int k = 0; k < 3; ++k)
      if (nd > 0 || t[k] != 0) d[nd++] = t[k];
  }
  if (nd > kMaxDigits) {  // 10^40 or more does not fit
    emit_inf(false, out, outlen);
    return 1;
  }
  encode(false, nd - 1, d, nd, out, outlen);
  return 0;
}

KELAPI int32_t lnxn2r(const uint8_t *num, size_t len, uint8_t *out, size_t outsize) {
  if (lnxint(num, len) != 1 || lnxsgn(num, len) < 0) return 1;
  Num x;
  decode_arg(num, len, x);
  if (outsize != 0) std::memset(out, 0, outsize);  // out may be null when there is no room
  if (x.kind == Kind::Zero) return 0;
  // 16-bit limbs, least significant first: 10^126 needs 419 bits.
  uint32_t limb[32] = {};
  int nl = 1;
  auto muladd = [&](uint32_t m, uint32_t a) {
    uint32_t carry = a;
    for (int j = 0; j < nl; ++j) {
      uint32_t t = limb[j] * m + carry;
      limb[j] = t & 0xFFFF;
      carry = t >> 16;
    }
    while (carry) {
      limb[nl++] = carry & 0xFFFF;
      carry >>= 16;
    }
  };
  int i = 0;
  for (; i + 1 < x.n; i += 2) muladd(10000, x.d[i] * 100u + x.d[i + 1]);
  if (i < x.n) muladd(100, x.d[i]);
  for (int k = x.n; k <= x.exp; ++k) muladd(100, 0);
  size_t need = static_cast<size_t>(nl) * 2;
  if ((limb[nl - 1] >> 8) == 0) --need;
  if (need > outsize) return 2;
  for (size_t b = 0; b < need; ++b) {
    const uint32_t l = limb[b / 2];
    out[outsize - 1 - b] = static_cast<uint8_t>(b % 2 ? l >> 8 : l);
  }
  return 0;
}

// ---------------------------------------------------------------- canonical floats

KELAPI int32_t lfpcd2lnx(void *ctx, const uint8_t *canon, uint8_t *out, size_t *outlen) {
  uint64_t b = 0;
  for (int i = 0; i < 8; ++i) b = b << 8 | canon[i];
  b = (b >> 63) ? (b & ~(uint64_t{1} << 63)) : ~b;
  double d;
  std::memcpy(&d, &b, 8);
  return slfpd2lnx(ctx, d, out, outlen);
}

KELAPI int32_t lfpcf2lnx(void *ctx, const uint8_t *canon, uint8_t *out, size_t *outlen) {
  uint32_t b = 0;
  for (int i = 0; i < 4; ++i) b = b << 8 | canon[i];
  b = (b >> 31) ? (b & 0x7FFFFFFFu) : ~b;
  float f;
  std::memcpy(&f, &b, 4);
  return slfpf2lnx(ctx, f, out, outlen);
}

KELAPI int32_t lfplnx2cd(void *ctx, const uint8_t *num, size_t len, uint8_t *canon) {
  (void)ctx;
  const double d = slfplnx2d(num, len);
  uint64_t b;
  std::memcpy(&b, &d, 8);
  b = (b >> 63) ? ~b : (b | (uint64_t{1} << 63));
  // Coerce: negative zero to positive zero, every NaN to the one canonical NaN.
  if (b == ~(uint64_t{1} << 63)) b = uint64_t{1} << 63;
  const uint64_t raw = (b >> 63) ? (b & ~(uint64_t{1} << 63)) : ~b;
  if (((raw >> 52) & 0x7FF) == 0x7FF && (raw & ((uint64_t{1} << 52) - 1))) b = 0xFFF8000000000000u;
  for (int i = 7; i >= 0; --i, b >>= 8) canon[i] = static_cast<uint8_t>(b);
  return 0;
}

KELAPI int32_t lfplnx2cf(void *ctx, const uint8_t *num, size_t len, uint8_t *canon) {
  (void)ctx;
  const float f = slfplnx2f(num, len);
  uint32_t b;
  std::memcpy(&b, &f, 4);
  b = (b >> 31) ? ~b : (b | 0x80000000u);
  if (b == 0x7FFFFFFFu) b = 0x80000000u;
  const uint32_t raw = (b >> 31) ? (b & 0x7FFFFFFFu) : ~b;
  if (((raw >> 23) & 0xFF) == 0xFF && (raw & 0x7FFFFF)) b = 0xFFC00000u;
  for (int i = 3; i >= 0; --i, b >>= 8) canon[i] = static_cast<uint8_t>(b);
  return 0;
}

}  // extern "C"
