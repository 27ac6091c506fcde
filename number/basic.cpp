// basic.cpp - operations that work on the bytes without decoding them:
// validation, comparison, sign and integer tests, absolute value, negation,
// copy, the constants, and the counters lnxinc / lnxdec.
#include <cstring>

#include "lnx.h"
#include "number/lnx_impl.h"

using namespace lnx_internal;

namespace {

// Reads the input into a private copy so that outputs may overlap it.
struct Local {
  uint8_t b[kBufBytes];
  size_t n;
  Local(const uint8_t *p, size_t len) {
    p = resolve(p, len);
    n = len;
    std::memcpy(b, p, len);
  }
};

}  // namespace

extern "C" {

KELAPI int32_t lnxchk(const uint8_t *num, size_t len) {
  if (num == nullptr) return 0;
  if (len == 0) {
    len = num[0];
    ++num;
    if (len == 0) return 0;
  }
  const uint8_t e = num[0];
  if (e < 0x80) {
    if (len == 1) return e == 0 ? 1 : 0;
    if (len == 2 || len > static_cast<size_t>(kMaxBytes)) return 0;
    if (e == 0x7F) return 0;  // would be the complement of an exponent below the range
    size_t end = len;
    if (num[len - 1] == kTerm)
      --end;
    else if (len != static_cast<size_t>(kMaxBytes))
      return 0;
    if (num[1] > 100 || num[end - 1] > 100) return 0;
    for (size_t i = 1; i < end; ++i)
      if (num[i] < 2 || num[i] > 101) return 0;
    return 1;
  }
  if (len == 1) return e == 0x80 ? 1 : 0;
  if (e == 0xFF && num[1] == kPosInfDigit) return len == 2 ? 1 : 0;
  if (len > static_cast<size_t>(kMaxBytes) || e == 0x80) return 0;
  if (num[1] < 2 || num[len - 1] < 2) return 0;
  for (size_t i = 1; i < len; ++i)
    if (num[i] < 1 || num[i] > 100) return 0;
  return 1;
}

KELAPI int32_t lnxcmp(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen) {
  if (alen == 0) alen = *a++;
  if (blen == 0) blen = *b++;
  size_t m = alen < blen ? alen : blen;
  for (size_t i = 0; i < m; ++i)
    if (a[i] != b[i]) return static_cast<int32_t>(a[i]) - static_cast<int32_t>(b[i]);
  return static_cast<int32_t>(alen) - static_cast<int32_t>(blen);
}

KELAPI int32_t lnxsgn(const uint8_t *num, size_t len) {
  const uint8_t e = len == 0 ? num[1] : num[0];
  return e > 0x80 ? 1 : (e == 0x80 ? 0 : -1);
}

KELAPI int32_t lnxint(const uint8_t *num, size_t len) {
  const uint8_t *p = resolve(num, len);
  const uint8_t e = p[0];
  if (len <= 1) return (e & 0x80) ? 1 : 4;
  if (e & 0x80) {
    if (e == 0xFF && p[1] == kPosInfDigit) return 3;
    return static_cast<int>(len) - 1 <= e - 192 ? 1 : 2;
  }
  int n = static_cast<int>(len) - 1 - (p[len - 1] == kTerm ? 1 : 0);
  return n <= (255 - e) - 192 ? 1 : 2;
}

KELAPI void lnxabs(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen) {
  Local x(in, inlen);
  if (x.b[0] & 0x80) {
    emit(x.b, x.n, out, outlen);
    return;
  }
  if (x.n == 1) {
    emit_inf(false, out, outlen);
    return;
  }
  size_t n = x.n;
  if (x.b[n - 1] == kTerm) --n;
  x.b[0] = static_cast<uint8_t>(255 - x.b[0]);
  for (size_t i = 1; i < n; ++i) x.b[i] = static_cast<uint8_t>(102 - x.b[i]);
  emit(x.b, n, out, outlen);
}

KELAPI void lnxneg(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen) {
  Local x(in, inlen);
  if (x.n == 1) {
    if (x.b[0] == kZeroByte)
      emit_zero(out, outlen);
    else
      emit_inf(false, out, outlen);
    return;
  }
  if (x.b[0] == 0xFF && x.b[1] == kPosInfDigit) {
    emit_inf(true, out, outlen);
    return;
  }
  const bool wasneg = !(x.b[0] & 0x80);
  size_t n = x.n;
  if (wasneg && x.b[n - 1] == kTerm) --n;
  x.b[0] = static_cast<uint8_t>(255 - x.b[0]);
  for (size_t i = 1; i < n; ++i) x.b[i] = static_cast<uint8_t>(102 - x.b[i]);
  if (!wasneg && n < static_cast<size_t>(kMaxBytes)) x.b[n++] = kTerm;
  emit(x.b, n, out, outlen);
}

KELAPI void lnxcopy(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen) {
  Local x(in, inlen);
  emit(x.b, x.n, out, outlen);
}

// ---------------------------------------------------------------- constants

namespace {
#define D(v) (v + 1)
alignas(8) const uint8_t kZeroC[] = {1, 0x80};
alignas(8) const uint8_t kOneC[] = {2, 0xC1, 0x02};
alignas(8) const uint8_t kTenC[] = {2, 0xC1, 0x0B};
alignas(8) const uint8_t kNeg1C[] = {3, 0x3E, 0x64, 0x66};
alignas(8) const uint8_t kPiC[] = {21,    0xC1,  D(3),  D(14), D(15), D(92), D(65), D(35),
                                   D(89), D(79), D(32), D(38), D(46), D(26), D(43), D(38),
                                   D(32), D(79), D(50), D(28), D(84), D(20)};
alignas(8) const uint8_t kEC[] = {21,    0xC1,  D(2),  D(71), D(82), D(81), D(82), D(84),
                                  D(59), D(4),  D(52), D(35), D(36), D(2),  D(87), D(47),
                                  D(13), D(52), D(66), D(24), D(97), D(76)};
alignas(8) const uint8_t kLn10C[] = {21,    0xC1,  D(2),  D(30), D(25), D(85), D(9),  D(29),
                                     D(94), D(4),  D(56), D(84), D(1),  D(79), D(91), D(45),
                                     D(46), D(84), D(36), D(42), D(7),  D(60)};
#undef D
}  // namespace

KELAPI const uint8_t *lnxqgtzero(void) { return kZeroC; }
KELAPI const uint8_t *lnxqgtone(void) { return kOneC; }
KELAPI const uint8_t *lnxqgtten(void) { return kTenC; }
KELAPI const uint8_t *lnxqgtneg1(void) { return kNeg1C; }
KELAPI const uint8_t *lnxqgtpi(void) { return kPiC; }
KELAPI const uint8_t *lnxqgte(void) { return kEC; }
KELAPI const uint8_t *lnxqgtln10(void) { return kLn10C; }

// ---------------------------------------------------------------- counters

// Counters run over 1 <= x < 10^38, base-100 exponents 0..18. Outside that
// range the increment restarts at 1 and the decrement at 0, deliberately:
// a counter that was never set, or ran away, starts over instead of failing.
static bool counter_range(const uint8_t *p, size_t len) {
  if (len < 2 || p[0] < 0xC1 || p[0] > 0xC1 + 18) return false;
  return true;
}

KELAPI void lnxinc(uint8_t *num, size_t *len) {
  size_t l = len ? *len : 0;
  size_t rl = l;
  const uint8_t *p = resolve(num, rl);
  if (!counter_range(p, rl)) {
    static const uint8_t one[2] = {0xC1, 0x02};
    emit(one, 2, num, len);
    return;
  }
  lnxadd(num, l, kOneC + 1, 2, num, len);
}

KELAPI void lnxdec(uint8_t *num, size_t *len) {
  size_t l = len ? *len : 0;
  size_t rl = l;
  const uint8_t *p = resolve(num, rl);
  if (!counter_range(p, rl)) {
    emit_zero(num, len);
    return;
  }
  lnxsub(num, l, kOneC + 1, 2, num, len);
}

}  // extern "C"
