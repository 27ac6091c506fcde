// round.cpp - rounding and truncation to decimal places, floor, ceiling,
// scaling by powers of ten and fitting to a precision and scale.
#include <cstring>

#include "lnx.h"
#include "number/lnx_impl.h"

namespace lnx_internal {

void round_num(const Num &x, int32_t places, bool truncate, uint8_t *out, size_t *outlen) {
  if (x.kind != Kind::Finite) {
    encode_num(x, out, outlen);
    return;
  }
  // The cut keeps decimal places down to 10^-places: base-100 exponent c,
  // entirely when -places is even, only its tens when odd.
  const int64_t negp = -static_cast<int64_t>(places);
  const int64_t c = negp >= 0 ? negp / 2 : -((-negp + 1) / 2);
  const bool half = (negp - 2 * c) != 0;
  // w[0] is a carry place at exponent x.exp + 1, w[i] holds x.d[i - 1].
  const int64_t cw64 = static_cast<int64_t>(x.exp) + 1 - c;
  const int len = x.n + 1;
  if (cw64 < 0) {
    emit_zero(out, outlen);
    return;
  }
  if (cw64 >= len) {
    encode_num(x, out, outlen);
    return;
  }
  const int cw = static_cast<int>(cw64);
  uint8_t w[kMaxDigits + 2];
  w[0] = 0;
  std::memcpy(w + 1, x.d, static_cast<size_t>(x.n));
  bool up;
  int unit = 1;
  if (half) {
    int r = w[cw] % 10;
    w[cw] = static_cast<uint8_t>(w[cw] - r);
    up = !truncate && r >= 5;
    unit = 10;
  } else {
    up = !truncate && cw + 1 < len && w[cw + 1] >= 50;
  }
  if (up) {
    int i = cw;
    int s = w[i] + unit;
    while (s >= 100) {
      w[i--] = static_cast<uint8_t>(s - 100);
      s = w[i] + 1;
    }
    w[i] = static_cast<uint8_t>(s);
  }
  encode(x.neg, x.exp + 1, w, cw + 1, out, outlen);
}

}  // namespace lnx_internal

using namespace lnx_internal;

namespace {

// Floor (toward -inf) or ceiling: truncate, then step away from zero when a
// fraction was dropped on the side that the direction moves to.
void floor_ceil(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen, bool ceil) {
  Num x;
  decode_arg(in, inlen, x);
  uint8_t t[kBufBytes];
  size_t tl;
  round_num(x, 0, true, t, &tl);
  if (x.kind == Kind::Finite && x.neg != ceil && lnxint(in, inlen) == 2) {
    Num tn, one;
    decode(t, tl, tn);
    std::memset(one.d, 0, sizeof one.d);
    one.kind = Kind::Finite;
    one.neg = false;
    one.exp = 0;
    one.n = 1;
    one.d[0] = 1;
    add_num(tn, one, !ceil, out, outlen);
    return;
  }
  emit(t, tl, out, outlen);
}

}  // namespace

extern "C" {

KELAPI void lnxrou(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen, int32_t places) {
  Num x;
  decode_arg(in, inlen, x);
  round_num(x, places, false, out, outlen);
}

KELAPI void lnxtru(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen, int32_t places) {
  Num x;
  decode_arg(in, inlen, x);
  round_num(x, places, true, out, outlen);
}

KELAPI void lnxflo(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen) {
  floor_ceil(in, inlen, out, outlen, false);
}

KELAPI void lnxcei(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen) {
  floor_ceil(in, inlen, out, outlen, true);
}

KELAPI void lnxshift(const uint8_t *in, size_t inlen, int32_t shift, uint8_t *out,
                     size_t *outlen) {
  Num x;
  decode_arg(in, inlen, x);
  if (x.kind != Kind::Finite) {
    encode_num(x, out, outlen);
    return;
  }
  // Beyond +-400 base-100 places every number is out of range anyway.
  int64_t s = shift;
  if (s > 800) s = 801;
  if (s < -800) s = -801;
  const int64_t t = s >= 0 ? s / 2 : -((-s + 1) / 2);
  uint8_t d[kMaxDigits + 2];
  if (s - 2 * t == 0) {
    std::memcpy(d, x.d, static_cast<size_t>(x.n));
    encode(x.neg, x.exp + static_cast<int>(t), d, x.n, out, outlen);
    return;
  }
  // Odd shift: multiply by ten, regrouping the decimal digits in pairs.
  uint8_t prev_lo = 0;
  for (int i = 0; i < x.n; ++i) {
    d[i] = static_cast<uint8_t>(prev_lo * 10 + x.d[i] / 10);
    prev_lo = x.d[i] % 10;
  }
  d[x.n] = static_cast<uint8_t>(prev_lo * 10);
  encode(x.neg, x.exp + 1 + static_cast<int>(t), d, x.n + 1, out, outlen);
}

KELAPI int32_t lnxsca(const uint8_t *in, size_t inlen, int32_t precision, int32_t scale,
                      uint8_t *out, size_t *outlen) {
  if (precision < 1 || precision > 38) return 3;
  Num x;
  decode_arg(in, inlen, x);
  if (x.kind == Kind::PosInf || x.kind == Kind::NegInf) {
    encode_num(x, out, outlen);
    return 2;
  }
  uint8_t r[kBufBytes];
  size_t rl;
  round_num(x, scale, false, r, &rl);
  emit(r, rl, out, outlen);
  Num y;
  decode(r, rl, y);
  if (y.kind == Kind::Zero) return 0;
  if (y.kind != Kind::Finite) return 1;
  // Decimal exponent of the first digit; the value is below 10^(D + 1).
  const int64_t D = 2 * static_cast<int64_t>(y.exp) + (y.d[0] >= 10 ? 1 : 0);
  return D + 1 <= static_cast<int64_t>(precision) - scale ? 0 : 1;
}

}  // extern "C"
