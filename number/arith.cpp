// arith.cpp - addition, subtraction, multiplication and division.
//
// Each operation forms a digit string that holds the exact result (addition
// and multiplication) or enough of it (division keeps at least 23 base-100
// digits of the truncated quotient, so the 21st digit that decides the
// rounding is exact), and leaves rounding, overflow and underflow to
// `encode`. Multiplication and division work in base-10^8 limbs, four
// base-100 digits each, to shorten the inner loops.
//
// These are the plain kernels: they serve every operand shape and are the
// reference for the fast paths in arith_fast.cpp, whose entry points try
// the fast path first for finite non-zero operands and come here for the
// rest.
#include <cstring>
#include <utility>

#include "lnx.h"
#include "number/lnx_impl.h"

namespace lnx_internal {

namespace {

// Compares magnitudes of two finite numbers.
int cmp_mag(const Num &a, const Num &b) {
  if (a.exp != b.exp) return a.exp > b.exp ? 1 : -1;
  int n = a.n < b.n ? a.n : b.n;
  for (int i = 0; i < n; ++i)
    if (a.d[i] != b.d[i]) return a.d[i] > b.d[i] ? 1 : -1;
  return (a.n > b.n) - (a.n < b.n);
}

// Splits the digits into base-10^8 limbs of four digits, most significant
// first; the digits beyond n are zero, so the last limb is padded.
inline int to_limbs8(const Num &x, uint32_t *l) {
  const int k = (x.n + 3) / 4;
  for (int j = 0; j < k; ++j) {
    const uint8_t *p = x.d + 4 * j;
    l[j] = ((p[0] * 100u + p[1]) * 100u + p[2]) * 100u + p[3];
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

void add_num(const Num &a, const Num &b_in, bool subtract, uint8_t *out, size_t *outlen) {
  // Infinities first: the first operand's infinity wins, with the one kept
  // exception that +inf - +inf is zero.
  if (a.kind == Kind::PosInf || a.kind == Kind::NegInf) {
    if (subtract && a.kind == Kind::PosInf && b_in.kind == Kind::PosInf)
      emit_zero(out, outlen);
    else
      emit_inf(a.kind == Kind::NegInf, out, outlen);
    return;
  }
  if (b_in.kind == Kind::PosInf || b_in.kind == Kind::NegInf) {
    emit_inf((b_in.kind == Kind::NegInf) != subtract, out, outlen);
    return;
  }
  if (a.kind == Kind::Zero) {
    if (b_in.kind == Kind::Zero) {
      emit_zero(out, outlen);
      return;
    }
    Num b = b_in;
    b.neg = b.neg != subtract;
    encode_num(b, out, outlen);
    return;
  }
  if (b_in.kind == Kind::Zero) {
    encode_num(a, out, outlen);
    return;
  }

  const Num *x = &a, *y = &b_in;
  bool xneg = a.neg, yneg = b_in.neg != subtract;
  if (x->exp < y->exp) {
    std::swap(x, y);
    std::swap(xneg, yneg);
  }
  // An operand more than 24 base-100 places below the other can only affect
  // the rounding digit through a borrow, so it is replaced by one unit at
  // place 24: the first 22 digits of the result, and so its rounding, stay
  // the same, and the work area stays small.
  Num sticky;
  int diff = x->exp - y->exp;
  if (diff > 24) {
    std::memset(sticky.d, 0, sizeof sticky.d);
    sticky.kind = Kind::Finite;
    sticky.neg = y->neg;
    sticky.exp = x->exp - 24;
    sticky.n = 1;
    sticky.d[0] = 1;
    y = &sticky;
    diff = 24;
  }
  bool resneg = xneg;
  if (xneg != yneg) {
    int c = cmp_mag(*x, *y);
    if (c == 0) {
      emit_zero(out, outlen);
      return;
    }
    if (c < 0) {
      std::swap(x, y);
      resneg = yneg;
      diff = 0;  // equal exponents when the second is larger
    }
  }
  // w[0] is the carry place at exponent x->exp + 1.
  uint8_t w[48] = {};
  int L = 1 + (x->n > diff + y->n ? x->n : diff + y->n);
  std::memcpy(w + 1, x->d, kMaxDigits);  // zero beyond x->n
  if (xneg == yneg) {
    int carry = 0;
    int i = diff + y->n;
    for (int j = y->n - 1; j >= 0; --j, --i) {
      int s = w[i] + y->d[j] + carry;
      carry = s >= 100;
      w[i] = static_cast<uint8_t>(carry ? s - 100 : s);
    }
    while (carry) {
      int s = w[i] + 1;
      carry = s >= 100;
      w[i--] = static_cast<uint8_t>(carry ? 0 : s);
    }
  } else {
    int borrow = 0;
    int i = diff + y->n;
    for (int j = y->n - 1; j >= 0; --j, --i) {
      int s = w[i] - y->d[j] - borrow;
      borrow = s < 0;
      w[i] = static_cast<uint8_t>(borrow ? s + 100 : s);
    }
    while (borrow) {
      int s = w[i] - 1;
      borrow = s < 0;
      w[i--] = static_cast<uint8_t>(borrow ? 99 : s);
    }
  }
  encode(resneg, x->exp + 1, w, L, out, outlen);
}

// Knuth's long division in base B (10000 or 10^8) on little-endian limbs:
// q = u / v, u has m + n limbs (plus room for one more), v has n >= 2 limbs
// with a non-zero top limb. u and v are modified; the remainder is left in
// u[0..n) multiplied by the returned normalising factor.
template <int64_t B>
uint32_t knuth_div(uint32_t *u, int m, uint32_t *v, int n, uint32_t *q) {
  const uint64_t f = static_cast<uint64_t>(B / (v[n - 1] + 1));
  if (f > 1) {
    uint64_t c = 0;
    for (int i = 0; i < m + n; ++i) {
      uint64_t t = u[i] * f + c;
      c = t / B;
      u[i] = static_cast<uint32_t>(t - c * B);
    }
    u[m + n] = static_cast<uint32_t>(c);
    c = 0;
    for (int i = 0; i < n; ++i) {
      uint64_t t = v[i] * f + c;
      c = t / B;
      v[i] = static_cast<uint32_t>(t - c * B);
    }
  } else {
    u[m + n] = 0;
  }
  const int64_t v1 = v[n - 1], v2 = v[n - 2];
  // Hardware division is slow; the two top limbs stay below 2^53, so a
  // double reciprocal gives floor(num / v1) to within one, fixed up exactly.
  const double rv1 = 1.0 / static_cast<double>(v1);
  for (int j = m; j >= 0; --j) {
    int64_t num = u[j + n] * B + u[j + n - 1];
    int64_t qhat = static_cast<int64_t>(static_cast<double>(num) * rv1);
    int64_t rhat = num - qhat * v1;
    while (rhat < 0) {
      --qhat;
      rhat += v1;
    }
    while (rhat >= v1) {
      ++qhat;
      rhat -= v1;
    }
    while (qhat >= B || qhat * v2 > B * rhat + u[j + n - 2]) {
      --qhat;
      rhat += v1;
      if (rhat >= B) break;
    }
    int64_t borrow = 0, carry = 0;
    for (int i = 0; i < n; ++i) {
      int64_t p = qhat * v[i] + carry;
      carry = p / B;
      int64_t t = u[i + j] - (p - carry * B) - borrow;
      borrow = t < 0;
      u[i + j] = static_cast<uint32_t>(borrow ? t + B : t);
    }
    int64_t t = u[j + n] - carry - borrow;
    if (t < 0) {
      u[j + n] = static_cast<uint32_t>(t + B);
      --qhat;
      uint64_t c = 0;
      for (int i = 0; i < n; ++i) {
        uint64_t s = static_cast<uint64_t>(u[i + j]) + v[i] + c;
        c = s >= static_cast<uint64_t>(B);
        u[i + j] = static_cast<uint32_t>(c ? s - B : s);
      }
      u[j + n] = static_cast<uint32_t>((u[j + n] + c) % B);
    } else {
      u[j + n] = static_cast<uint32_t>(t);
    }
    q[j] = static_cast<uint32_t>(qhat);
  }
  return static_cast<uint32_t>(f);
}
template uint32_t knuth_div<10000>(uint32_t *, int, uint32_t *, int, uint32_t *);
template uint32_t knuth_div<100000000>(uint32_t *, int, uint32_t *, int, uint32_t *);

void mul_num(const Num &a, const Num &b, uint8_t *out, size_t *outlen) {
  if (a.kind == Kind::Zero || b.kind == Kind::Zero) {
    emit_zero(out, outlen);
    return;
  }
  const bool aneg = a.kind == Kind::NegInf || (a.kind == Kind::Finite && a.neg);
  const bool bneg = b.kind == Kind::NegInf || (b.kind == Kind::Finite && b.neg);
  if (a.kind != Kind::Finite || b.kind != Kind::Finite) {
    emit_inf(aneg != bneg, out, outlen);
    return;
  }
  uint32_t la[5], lb[5];
  const int ka = to_limbs8(a, la), kb = to_limbs8(b, lb);
  // Product scanning in base 10^8: each column is summed in a register from
  // the least significant end and carried into the next (five products of
  // at most 10^16 each fit in 64 bits).
  const int K = ka + kb;
  uint8_t d[40];
  uint64_t carry = 0;
  for (int m = K - 1; m >= 0; --m) {
    uint64_t acc = carry;
    const int lo = m - kb > 0 ? m - kb : 0, hi = m - 1 < ka - 1 ? m - 1 : ka - 1;
    for (int i = lo; i <= hi; ++i) acc += static_cast<uint64_t>(la[i]) * lb[m - 1 - i];
    carry = acc / 100000000;
    split8(static_cast<uint32_t>(acc - carry * 100000000), d + 4 * m);
  }
  encode(aneg != bneg, a.exp + b.exp + 1, d, 4 * K, out, outlen);
}

void div_num(const Num &a, const Num &b, uint8_t *out, size_t *outlen) {
  if (a.kind == Kind::Zero) {
    emit_zero(out, outlen);
    return;
  }
  const bool aneg = a.kind == Kind::NegInf || (a.kind == Kind::Finite && a.neg);
  const bool bneg = b.kind == Kind::NegInf || (b.kind == Kind::Finite && b.neg);
  if (a.kind != Kind::Finite) {
    emit_inf(aneg != bneg, out, outlen);
    return;
  }
  if (b.kind == Kind::Zero) {
    emit_inf(aneg, out, outlen);
    return;
  }
  if (b.kind != Kind::Finite) {
    emit_zero(out, outlen);
    return;
  }
  uint32_t la[5], lb[5];
  const int ka = to_limbs8(a, la), kb = to_limbs8(b, lb);
  // u = A * (10^8)^k with k chosen so that the quotient has M + 1 limbs, at
  // least 47 decimal digits: more than the 21 base-100 digits rounding needs.
  constexpr int M = 6;
  const int k = kb - ka + M;
  uint32_t u[M + 5 + 1] = {}, v[5], q[M + 1];
  for (int t = 0; t < ka; ++t) u[k + t] = la[ka - 1 - t];
  for (int t = 0; t < kb; ++t) v[t] = lb[kb - 1 - t];
  if (kb == 1) {
    uint64_t r = 0;
    for (int j = M; j >= 0; --j) {
      uint64_t cur = r * 100000000 + u[j];
      q[j] = static_cast<uint32_t>(cur / v[0]);
      r = cur - static_cast<uint64_t>(q[j]) * v[0];
    }
  } else {
    knuth_div<100000000>(u, M, v, kb, q);
  }
  uint8_t d[4 * (M + 1)];
  for (int i = 0; i <= M; ++i) split8(q[M - i], d + 4 * i);
  encode(aneg != bneg, a.exp - b.exp + 3, d, 4 * (M + 1), out, outlen);
}

// The operations on arguments as they come, for the shapes the fast paths
// leave over; the exported entry points are in arith_fast.cpp, next to the
// fast paths they try first.
void add_plain(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, bool subtract, uint8_t *out,
               size_t *outlen) {
  Num x, y;
  decode_arg(a, alen, x);
  decode_arg(b, blen, y);
  add_num(x, y, subtract, out, outlen);
}

void mul_plain(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out, size_t *outlen) {
  Num x, y;
  decode_arg(a, alen, x);
  decode_arg(b, blen, y);
  mul_num(x, y, out, outlen);
}

void div_plain(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out, size_t *outlen) {
  Num x, y;
  decode_arg(a, alen, x);
  decode_arg(b, blen, y);
  div_num(x, y, out, outlen);
}

}  // namespace lnx_internal
