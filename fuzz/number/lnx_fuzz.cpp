// Arbitrary bytes as numbers: whatever lnxchk accepts is fed to every
// operation, in both length conventions and in place, and every result must
// be well formed; the text forms must parse back to the number, packed and
// zoned fields to the number rounded to their scale. The byte-level fast
// paths of the four arithmetic operations must give the same bytes as the
// plain digit-array kernels, write nothing past the result, and nothing at
// all when they hand on; division also meets dividends that are the divisor's
// product, where quotient limbs sit a hair off whole numbers.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "lnx.h"
#include "number/lnx_impl.h"

namespace {

void check(const uint8_t *n, size_t l) {
  if (lnxchk(n, l) != 1) abort();
}

using Bin = void (*)(const uint8_t *, size_t, const uint8_t *, size_t, uint8_t *, size_t *);
using Un = void (*)(const uint8_t *, size_t, uint8_t *, size_t *);

void binary(Bin f, const uint8_t *a, size_t al, const uint8_t *b, size_t bl) {
  uint8_t o[22], p[22];
  size_t ol;
  f(a, al, b, bl, o, &ol);
  check(o, ol);
  // Length-prefixed, in place over a copy of a.
  p[0] = static_cast<uint8_t>(al);
  memcpy(p + 1, a, al);
  f(p, 0, b, bl, p, nullptr);
  if (p[0] != ol || memcmp(p + 1, o, ol) != 0) abort();
}

void unary(Un f, const uint8_t *a, size_t al) {
  uint8_t o[22], p[22];
  size_t ol;
  f(a, al, o, &ol);
  check(o, ol);
  p[0] = static_cast<uint8_t>(al);
  memcpy(p + 1, a, al);
  f(p, 0, p, nullptr);
  if (p[0] != ol || memcmp(p + 1, o, ol) != 0) abort();
}

void same_as_plain(const uint8_t *a, size_t al, const uint8_t *b, size_t bl) {
  using namespace lnx_internal;
  constexpr uint8_t kFence = 0xA5;
  uint8_t f[32], p[22];
  size_t fl, pl;
  for (int op = 0; op < 4; ++op) {
    memset(f, kFence, sizeof f);
    bool taken;
    switch (op) {
      case 0:
      case 1: taken = add_fast(a, al, b, bl, op == 1, f, &fl); break;
      case 2: taken = mul_fast(a, al, b, bl, f, &fl); break;
      default: taken = div_fast(a, al, b, bl, f, &fl); break;
    }
    for (size_t i = taken ? fl : 0; i < sizeof f; ++i)
      if (f[i] != kFence) abort();
    if (!taken) continue;
    switch (op) {
      case 0:
      case 1: add_plain(a, al, b, bl, op == 1, p, &pl); break;
      case 2: mul_plain(a, al, b, bl, p, &pl); break;
      default: div_plain(a, al, b, bl, p, &pl); break;
    }
    if (fl != pl || memcmp(f, p, fl) != 0) abort();
  }
}

void one(const uint8_t *a, size_t al, int32_t k) {
  uint8_t o[22], q[22];
  size_t ol, ql;
  for (Un f : {lnxabs, lnxneg, lnxcopy, lnxflo, lnxcei}) unary(f, a, al);
  lnxrou(a, al, o, &ol, k % 90);
  check(o, ol);
  lnxtru(a, al, o, &ol, k % 90);
  check(o, ol);
  lnxshift(a, al, k % 300, o, &ol);
  check(o, ol);
  if (lnxsca(a, al, 1 + (k & 31), k % 50, o, &ol) < 3) check(o, ol);
  uint8_t buf[22];
  size_t bl = al;
  memcpy(buf, a, al);
  lnxinc(buf, &bl);
  check(buf, bl);
  lnxdec(buf, &bl);
  check(buf, bl);
  lnxneg(a, al, o, &ol);
  lnxneg(o, ol, q, &ql);
  if (ql != al || memcmp(q, a, al) != 0) abort();
  (void)lnxsgn(a, al);
  (void)lnxint(a, al);
  // Text round trip.
  char t[LNX_TEXT_MAX];
  size_t tl;
  for (int form : {LNX_TEXT_PLAIN, LNX_TEXT_SHORTEST}) {
    if (lnxn2t(a, al, form, 0, t, sizeof t, &tl) != 0) abort();
    if (lnxint(a, al) >= 3) continue;
    size_t used;
    lnxcpn(t, tl, o, &ol, 0, 0, 0, 0, &used, nullptr);
    if (used != tl || ol != al || memcmp(o, a, al) != 0) abort();
  }
  if (lnxn2t(a, al, LNX_TEXT_FIXED, k % 40, t, sizeof t, &tl) == 0 && lnxint(a, al) < 3) {
    lnxcpn(t, tl, o, &ol, 0, 0, 0, 0, nullptr, nullptr);
    check(o, ol);
  }
  // Native conversions.
  int64_t v;
  (void)lnxsni(a, al, &v, 8, 2 | (k & 0x8000));
  uint8_t raw[64];
  if (lnxn2r(a, al, raw, sizeof raw) == 0) {
    if (lnxr2n(raw, sizeof raw, o, &ol) == 0 && (ol != al || memcmp(o, a, al) != 0)) abort();
  }
  double d = slfplnx2d(a, al);
  if (slfpd2lnx(nullptr, d, o, &ol) == 0) check(o, ol);
  uint8_t c[8];
  lfplnx2cd(nullptr, a, al, c);
  lfplnx2cf(nullptr, a, al, c);
  uint8_t pd[16], zd[31];
  lnxrou(a, al, q, &ql, k % 20);
  if (lnxn2pd(a, al, k % 20, pd, sizeof pd) == 0 &&
      (lnxpd2n(pd, sizeof pd, k % 20, o, &ol) != 0 || ol != ql || memcmp(o, q, ql) != 0))
    abort();
  if (lnxn2zd(a, al, k % 20, zd, sizeof zd) == 0 &&
      (lnxzd2n(zd, sizeof zd, k % 20, o, &ol) != 0 || ol != ql || memcmp(o, q, ql) != 0))
    abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 3) return 0;
  const int32_t k = static_cast<int8_t>(data[0]) * 257 + data[1];
  size_t al = data[2] % 22;
  if (al == 0 || 3 + al > size) return 0;
  const uint8_t *a = data + 3;
  if (!lnxchk(a, al)) return 0;
  one(a, al, k);
  const uint8_t *rest = a + al;
  size_t left = size - 3 - al;
  if (left < 2) return 0;
  size_t bl = rest[0] % 22;
  if (bl == 0 || 1 + bl > left) return 0;
  const uint8_t *b = rest + 1;
  if (!lnxchk(b, bl)) return 0;
  for (Bin f : {lnxadd, lnxsub, lnxmul, lnxdiv, lnxmod, lnxrem}) binary(f, a, al, b, bl);
  same_as_plain(a, al, b, bl);
  uint8_t prod[22];
  size_t pl;
  lnxmul(a, al, b, bl, prod, &pl);
  if (k & 1 && pl > 1 && prod[0] != 0 && prod[0] != 0xFF) {  // one unit of the last place off
    const int e = prod[0] >= 0x80 ? prod[0] - 193 : 62 - prod[0];
    const uint8_t ulp[3] = {static_cast<uint8_t>(e - 19 + 193), 2};
    if (e - 19 >= -64) lnxadd(prod, pl, ulp, 2, prod, &pl);
  }
  same_as_plain(prod, pl, b, bl);
  int c1 = lnxcmp(a, al, b, bl), c2 = lnxcmp(b, bl, a, al);
  if ((c1 > 0) != (c2 < 0) || (c1 == 0) != (c2 == 0)) abort();
  const uint8_t *nums[2] = {a, b};
  size_t lens[2] = {al, bl};
  uint8_t o[22];
  size_t ol;
  lnxsum(nums, lens, 2, o, &ol);
  check(o, ol);
  return 0;
}
