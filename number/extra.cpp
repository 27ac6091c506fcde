// extra.cpp - exact sums of many numbers and the two remainders.
//
// Both compute their result exactly before the single rounding in encode:
// sums in a digit accumulator that spans every exponent a number can have,
// remainders by long division of the two digit strings brought to a common
// scale.
#include <cstring>

#include "lnx.h"
#include "number/lnx_impl.h"

namespace lnx_internal {
namespace {

// ---------------------------------------------------------------- sums

// Accumulator slots by base-100 exponent: the lowest digit a number can
// have is at -64 - 19; the top leaves room for the carries of 2^64 terms.
constexpr int kAccLow = kMinExp - (kMaxDigits - 1);
constexpr int kAccSlots = (kMaxExp + 12) - kAccLow + 1;

struct Acc {
  uint64_t pos[kAccSlots] = {}, neg[kAccSlots] = {};
  bool any_inf = false;
  bool inf_neg = false;

  void add(const uint8_t *p, size_t len) {
    Num x;
    decode_arg(p, len, x);
    if (x.kind == Kind::Zero) return;
    if (x.kind != Kind::Finite) {
      if (!any_inf) {
        any_inf = true;
        inf_neg = x.kind == Kind::NegInf;
      }
      return;
    }
    uint64_t *a = x.neg ? neg : pos;
    for (int i = 0; i < x.n; ++i) a[x.exp - i - kAccLow] += x.d[i];
  }

  void finish(uint8_t *out, size_t *outlen) {
    if (any_inf) {
      emit_inf(inf_neg, out, outlen);
      return;
    }
    normalise(pos);
    normalise(neg);
    int c = 0;
    for (int i = kAccSlots - 1; i >= 0 && c == 0; --i) c = (pos[i] > neg[i]) - (pos[i] < neg[i]);
    if (c == 0) {
      emit_zero(out, outlen);
      return;
    }
    uint64_t *big = c > 0 ? pos : neg, *small = c > 0 ? neg : pos;
    int64_t borrow = 0;
    for (int i = 0; i < kAccSlots; ++i) {
      int64_t v = static_cast<int64_t>(big[i]) - static_cast<int64_t>(small[i]) - borrow;
      borrow = v < 0;
      big[i] = static_cast<uint64_t>(borrow ? v + 100 : v);
    }
    uint8_t d[kAccSlots];
    for (int i = 0; i < kAccSlots; ++i) d[i] = static_cast<uint8_t>(big[kAccSlots - 1 - i]);
    encode(c < 0, kAccLow + kAccSlots - 1, d, kAccSlots, out, outlen);
  }

  static void normalise(uint64_t *a) {
    uint64_t carry = 0;
    for (int i = 0; i < kAccSlots; ++i) {
      uint64_t v = a[i] + carry;
      carry = v / 100;
      a[i] = v % 100;
    }
  }
};

// ---------------------------------------------------------------- remainders

// Little-endian base-10000 limbs of the integer made of `n` base-100 digits
// followed by `zeros` zero digits.
int limbs_of(const uint8_t *d, int n, int zeros, uint32_t *l) {
  int total = n + zeros, k = 0;
  for (int pos = total - 1; pos >= 0; pos -= 2) {
    uint32_t lo = pos < n ? d[pos] : 0;
    uint32_t hi = (pos - 1 >= 0 && pos - 1 < n) ? d[pos - 1] : 0;
    l[k++] = hi * 100 + lo;
  }
  while (k > 1 && l[k - 1] == 0) --k;
  return k;
}

int cmp_limbs(const uint32_t *a, int na, const uint32_t *b, int nb) {
  if (na != nb) return na > nb ? 1 : -1;
  for (int i = na - 1; i >= 0; --i)
    if (a[i] != b[i]) return a[i] > b[i] ? 1 : -1;
  return 0;
}

void mod_num(const Num &a, const Num &b, bool nearest, uint8_t *out, size_t *outlen) {
  if (a.kind == Kind::PosInf || a.kind == Kind::NegInf) {
    emit_zero(out, outlen);
    return;
  }
  if (a.kind == Kind::Zero || b.kind != Kind::Finite) {
    encode_num(a, out, outlen);
    return;
  }
  // a = A * 100^sa, b = B * 100^sb with integer digit strings A and B.
  const int sa = a.exp - a.n + 1, sb = b.exp - b.n + 1, s = sa < sb ? sa : sb;
  // Exponents span at most 146 places, so the scaled operands stay below
  // 170 base-100 digits.
  uint32_t u[96] = {}, v[96] = {}, q[96];
  int nu = limbs_of(a.d, a.n, sa - s, u);
  int nv = limbs_of(b.d, b.n, sb - s, v);
  uint32_t r[96] = {};
  int nr;
  bool q_odd;
  if (cmp_limbs(u, nu, v, nv) < 0) {
    std::memcpy(r, u, sizeof(uint32_t) * static_cast<size_t>(nu));
    nr = nu;
    q_odd = false;
  } else if (nv == 1) {
    uint32_t rem = 0;
    for (int j = nu - 1; j >= 0; --j) {
      uint32_t cur = rem * 10000 + u[j];
      q[j] = cur / v[0];
      rem = cur % v[0];
    }
    r[0] = rem;
    nr = 1;
    q_odd = q[0] & 1;
  } else {
    uint32_t vv[96];
    std::memcpy(vv, v, sizeof vv);
    uint32_t f = knuth_div<10000>(u, nu - nv, vv, nv, q);
    uint32_t rem = 0;
    for (int j = nv - 1; j >= 0; --j) {  // undo the normalising factor
      uint32_t cur = rem * 10000 + u[j];
      r[j] = cur / f;
      rem = cur % f;
    }
    nr = nv;
    q_odd = q[0] & 1;
  }
  bool neg = a.neg;
  if (nearest) {
    // Compare 2r with b: beyond the half (or at it with an odd quotient) the
    // nearest multiple is the next one, and the remainder is b - r.
    uint32_t r2[97];
    uint32_t c = 0;
    for (int i = 0; i < nr; ++i) {
      uint32_t t = r[i] * 2 + c;
      r2[i] = t % 10000;
      c = t / 10000;
    }
    int n2 = nr;
    if (c) r2[n2++] = c;
    while (n2 > 1 && r2[n2 - 1] == 0) --n2;
    int cmp = cmp_limbs(r2, n2, v, nv);
    if (cmp > 0 || (cmp == 0 && q_odd)) {
      int64_t borrow = 0;
      for (int i = 0; i < nv; ++i) {
        int64_t t = static_cast<int64_t>(v[i]) - (i < nr ? r[i] : 0) - borrow;
        borrow = t < 0;
        r[i] = static_cast<uint32_t>(borrow ? t + 10000 : t);
      }
      nr = nv;
      neg = !neg;
    }
  }
  uint8_t d[2 * 96];
  for (int i = 0; i < nr; ++i) {
    uint32_t limb = r[nr - 1 - i];
    d[2 * i] = static_cast<uint8_t>(limb / 100);
    d[2 * i + 1] = static_cast<uint8_t>(limb % 100);
  }
  // The last digit of d is at exponent s.
  encode(neg, s + 2 * nr - 1, d, 2 * nr, out, outlen);
}

}  // namespace
}  // namespace lnx_internal

using namespace lnx_internal;

extern "C" {

KELAPI void lnxsum(const uint8_t *const *nums, const size_t *lens, size_t count, uint8_t *out,
                   size_t *outlen) {
  Acc acc;
  for (size_t i = 0; i < count; ++i) acc.add(nums[i], lens ? lens[i] : 0);
  acc.finish(out, outlen);
}

KELAPI void lnxvsum(const uint8_t *base, size_t stride, size_t count, uint8_t *out,
                    size_t *outlen) {
  Acc acc;
  for (size_t i = 0; i < count; ++i) acc.add(base + i * stride, 0);
  acc.finish(out, outlen);
}

KELAPI void lnxmod(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out,
                   size_t *outlen) {
  Num x, y;
  decode_arg(a, alen, x);
  decode_arg(b, blen, y);
  mod_num(x, y, false, out, outlen);
}

KELAPI void lnxrem(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out,
                   size_t *outlen) {
  Num x, y;
  decode_arg(a, alen, x);
  decode_arg(b, blen, y);
  mod_num(x, y, true, out, outlen);
}

}  // extern "C"
