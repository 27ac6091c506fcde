// codec.cpp - decoding number bytes into digits and encoding digit strings
// back, with the family's single rounding and range rule.
#include "number/lnx_impl.h"

namespace lnx_internal {

void decode(const uint8_t *p, size_t len, Num &x) {
  std::memset(x.d, 0, sizeof x.d);
  x.neg = false;
  x.exp = 0;
  x.n = 0;
  if (len == 0) {  // only reachable with a zero length byte; treat as zero
    x.kind = Kind::Zero;
    return;
  }
  uint8_t e = p[0];
  if (e & 0x80) {
    if (len == 1) {
      x.kind = Kind::Zero;
      return;
    }
    if (e == 0xFF && p[1] == kPosInfDigit) {
      x.kind = Kind::PosInf;
      return;
    }
    x.kind = Kind::Finite;
    x.exp = e - 193;
    int n = static_cast<int>(len) - 1;
    for (int i = 0; i < n; ++i) x.d[i] = static_cast<uint8_t>(p[i + 1] - 1);
    x.n = n;
    return;
  }
  x.neg = true;
  if (len == 1) {
    x.kind = Kind::NegInf;
    return;
  }
  x.kind = Kind::Finite;
  x.exp = (255 - e) - 193;
  int n = static_cast<int>(len) - 1;
  if (p[len - 1] == kTerm) --n;
  for (int i = 0; i < n; ++i) x.d[i] = static_cast<uint8_t>(101 - p[i + 1]);
  x.n = n;
  if (n == 0) x.kind = Kind::Zero, x.neg = false;  // malformed; keep it harmless
}

int encode_bytes(bool neg, int exp, uint8_t *d, int n, uint8_t *b) {
  while (n > 0 && d[0] == 0) {
    ++d;
    --n;
    --exp;
  }
  if (n == 0) {
    b[0] = kZeroByte;
    return 1;
  }
  if (n > kMaxDigits) {
    n = kMaxDigits;
    if (d[kMaxDigits] >= 50) {
      int i = kMaxDigits - 1;
      while (i >= 0 && d[i] == 99) d[i--] = 0;
      if (i >= 0) {
        ++d[i];
      } else {  // carried off the top: 99..99 became 100..00
        d[0] = 1;
        n = 1;
        ++exp;
      }
    }
  }
  while (n > 0 && d[n - 1] == 0) --n;
  if (exp > kMaxExp) {
    if (neg) {
      b[0] = 0x00;
      return 1;
    }
    b[0] = 0xFF;
    b[1] = kPosInfDigit;
    return 2;
  }
  if (exp < kMinExp) {
    b[0] = kZeroByte;
    return 1;
  }
  if (!neg) {
    b[0] = static_cast<uint8_t>(exp + 193);
    for (int i = 0; i < n; ++i) b[i + 1] = static_cast<uint8_t>(d[i] + 1);
    return n + 1;
  }
  b[0] = static_cast<uint8_t>(255 - (exp + 193));
  for (int i = 0; i < n; ++i) b[i + 1] = static_cast<uint8_t>(101 - d[i]);
  if (n < kMaxDigits) {
    b[n + 1] = kTerm;
    return n + 2;
  }
  return n + 1;
}

void encode_num(const Num &x, uint8_t *out, size_t *outlen) {
  switch (x.kind) {
    case Kind::Zero: emit_zero(out, outlen); return;
    case Kind::PosInf: emit_inf(false, out, outlen); return;
    case Kind::NegInf: emit_inf(true, out, outlen); return;
    case Kind::Finite: break;
  }
  uint8_t d[kMaxDigits + 2];
  std::memcpy(d, x.d, static_cast<size_t>(x.n));
  encode(x.neg, x.exp, d, x.n, out, outlen);
}

}  // namespace lnx_internal
