// packed.cpp - packed decimal (two digits a byte, sign in the last nibble)
// and zoned decimal (one digit a byte, sign in the last byte's zone), with
// an implied scale.
//
// Both directions go through decimal digit text: out of a number with the
// plain text form after rounding to the scale, into a number with the
// literal parser, so the rounding rules are those of the rest of the family.
#include <cstring>

#include "lnx.h"
#include "number/lnx_impl.h"
#include "number/nls_view_impl.h"

using namespace lnx_internal;

namespace {

constexpr size_t kMaxDecDigits = 63;  // packed field of 32 bytes

// The integer round(x * 10^scale) as decimal digits (no leading zeros, "" for
// zero). Returns false for an infinity.
bool scaled_digits(const uint8_t *num, size_t len, int32_t scale, char *dig, size_t &nd, bool &neg) {
  Num x;
  decode_arg(num, len, x);
  if (x.kind == Kind::PosInf || x.kind == Kind::NegInf) return false;
  uint8_t r[kBufBytes];
  size_t rl;
  round_num(x, scale, false, r, &rl);
  Num y;
  decode(r, rl, y);
  neg = y.kind == Kind::Finite && y.neg;
  nd = 0;
  if (y.kind != Kind::Finite) return true;
  char t[kPlainTextMax];
  const size_t tl = to_text(y, TextForm::Plain, 0, t, sizeof t);
  int64_t frac = -1;
  for (size_t i = 0; i < tl; ++i) {
    if (t[i] == '-') continue;
    if (t[i] == '.') {
      frac = 0;
      continue;
    }
    if (frac >= 0) ++frac;
    if (nd == 0 && t[i] == '0') continue;
    if (nd < 200) dig[nd++] = t[i];
  }
  if (frac < 0) frac = 0;
  // Now value = dig * 10^-frac; bring it to units of 10^-scale.
  int64_t pad = static_cast<int64_t>(scale) - frac;
  while (pad > 0 && nd < 200) {
    dig[nd++] = '0';
    --pad;
  }
  while (pad < 0 && nd > 0) {  // rounded to the scale: these are zeros
    --nd;
    ++pad;
  }
  return true;
}

// Digits and an implied scale to a number, through the literal parser.
void digits_to_number(bool neg, const char *dig, size_t nd, int32_t scale, uint8_t *out,
                      size_t *outlen) {
  char text[kMaxDecDigits + 20];
  size_t t = 0;
  text[t++] = neg ? '-' : '+';
  if (nd == 0) text[t++] = '0';
  std::memcpy(text + t, dig, nd);
  t += nd;
  text[t++] = 'e';
  int64_t e = -static_cast<int64_t>(scale);
  if (e < 0) {
    text[t++] = '-';
    e = -e;
  }
  if (e > 99999) e = 99999;  // saturates like any longer exponent
  char rev[8];
  int r = 0;
  do {
    rev[r++] = static_cast<char>('0' + e % 10);
    e /= 10;
  } while (e);
  while (r) text[t++] = rev[--r];
  parse_number(text, t, kDefaultView, out, outlen, false, 0, false, 0, nullptr);
}

}  // namespace

extern "C" {

KELAPI int32_t lnxn2pd(const uint8_t *num, size_t len, int32_t scale, uint8_t *out, size_t outsize) {
  if (outsize == 0 || outsize > (kMaxDecDigits + 1) / 2) return 3;
  char dig[208];
  size_t nd;
  bool neg;
  if (!scaled_digits(num, len, scale, dig, nd, neg)) return 2;
  const size_t cap = 2 * outsize - 1;
  if (nd > cap) return 1;
  std::memset(out, 0, outsize);
  // Nibble k (0 = first) of the field; the digits end at nibble cap - 1.
  for (size_t i = 0; i < nd; ++i) {
    const size_t k = cap - nd + i;
    const uint8_t v = static_cast<uint8_t>(dig[i] - '0');
    out[k / 2] = static_cast<uint8_t>(out[k / 2] | (k % 2 ? v : v << 4));
  }
  out[outsize - 1] = static_cast<uint8_t>(out[outsize - 1] | (neg ? 0x0D : 0x0C));
  return 0;
}

KELAPI int32_t lnxpd2n(const uint8_t *pd, size_t size, int32_t scale, uint8_t *out, size_t *outlen) {
  if (size == 0 || size > (kMaxDecDigits + 1) / 2) return 3;
  const uint8_t sign = pd[size - 1] & 0x0F;
  if (sign < 0x0A) return 1;
  char dig[kMaxDecDigits];
  size_t nd = 0;
  for (size_t k = 0; k < 2 * size - 1; ++k) {
    const uint8_t v = k % 2 ? pd[k / 2] & 0x0F : pd[k / 2] >> 4;
    if (v > 9) return 1;
    if (nd == 0 && v == 0) continue;
    dig[nd++] = static_cast<char>('0' + v);
  }
  digits_to_number(sign == 0x0B || sign == 0x0D, dig, nd, scale, out, outlen);
  return 0;
}

KELAPI int32_t lnxn2zd(const uint8_t *num, size_t len, int32_t scale, uint8_t *out, size_t outsize) {
  if (outsize == 0 || outsize > kMaxDecDigits) return 3;
  char dig[208];
  size_t nd;
  bool neg;
  if (!scaled_digits(num, len, scale, dig, nd, neg)) return 2;
  if (nd > outsize) return 1;
  for (size_t i = 0; i < outsize; ++i) {
    const size_t j = i + nd;  // digit index when i >= outsize - nd
    const uint8_t v = j >= outsize ? static_cast<uint8_t>(dig[j - outsize] - '0') : 0;
    out[i] = static_cast<uint8_t>(0xF0 | v);
  }
  out[outsize - 1] = static_cast<uint8_t>((out[outsize - 1] & 0x0F) | (neg ? 0xD0 : 0xC0));
  return 0;
}

KELAPI int32_t lnxzd2n(const uint8_t *zd, size_t size, int32_t scale, uint8_t *out, size_t *outlen) {
  if (size == 0 || size > kMaxDecDigits) return 3;
  char dig[kMaxDecDigits];
  size_t nd = 0;
  bool neg = false;
  for (size_t i = 0; i < size; ++i) {
    const uint8_t zone = zd[i] >> 4, v = zd[i] & 0x0F;
    if (v > 9) return 1;
    if (i + 1 < size) {
      if (zone != 0x0F && zone != 0x03) return 1;
    } else {
      if (zone == 0x0D || zone == 0x0B)
        neg = true;
      else if (zone < 0x0A && zone != 0x03)
        return 1;
    }
    if (nd == 0 && v == 0) continue;
    dig[nd++] = static_cast<char>('0' + v);
  }
  digits_to_number(neg, dig, nd, scale, out, outlen);
  return 0;
}

}  // extern "C"
