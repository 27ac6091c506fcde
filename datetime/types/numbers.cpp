// Datetimes and intervals meeting library numbers: intervals multiplied and
// divided by numbers, intervals as counts of months or seconds, and Julian
// days with a fraction of the day.
//
// Values go through their exact 128-bit totals (months or nanoseconds); a
// number is built from a total in two 18-digit halves and read back the same
// way, so no step rounds except the one the operation asks for.
#include "datetime/types/ldi_impl.h"
#include "lnx.h"

using namespace ldi_internal;

namespace {

constexpr int64_t kHalf = 1000000000000000000;  // 10^18

struct Num {
  uint8_t b[LNX_BUFSIZE];
  size_t n;
};

Num from_total(i128 v) {
  int64_t hi = static_cast<int64_t>(v / kHalf), lo = static_cast<int64_t>(v % kHalf);
  Num a{}, b{}, r{};
  lnxmin(&hi, 8, LNX_SIGNED, a.b, &a.n);
  lnxshift(a.b, a.n, 18, a.b, &a.n);
  lnxmin(&lo, 8, LNX_SIGNED, b.b, &b.n);
  lnxadd(a.b, a.n, b.b, b.n, r.b, &r.n);
  return r;
}

// An integer number back to a total; false when it does not fit.
bool to_total(const Num &x, i128 *v) {
  int32_t k = lnxint(x.b, x.n);
  if (k != 1) return false;
  Num q{}, back{}, lo{};
  lnxshift(x.b, x.n, -18, q.b, &q.n);
  lnxtru(q.b, q.n, q.b, &q.n, 0);
  int64_t hi = 0, l = 0;
  int32_t st = lnxsni(q.b, q.n, &hi, 8, LNX_SIGNED);
  if (st == 1 || st == 3) return false;
  lnxshift(q.b, q.n, 18, back.b, &back.n);
  lnxsub(x.b, x.n, back.b, back.n, lo.b, &lo.n);
  st = lnxsni(lo.b, lo.n, &l, 8, LNX_SIGNED);
  if (st == 1 || st == 3) return false;
  *v = static_cast<i128>(hi) * kHalf + l;
  return true;
}

bool usable(const uint8_t *num, size_t len) { return num && lnxchk(num, len) && lnxint(num, len) <= 2; }

void emit(const Num &x, uint8_t *num, size_t *numlen) {
  lnxcopy(x.b, x.n, num, numlen);
}

// Scales a total by a number (multiply or divide), rounding day-second
// results to the nanosecond and cutting year-month results to whole months.
int32_t scale(const LdiInterval &iv, const uint8_t *num, size_t numlen, bool divide, LdiInterval *out) {
  if (!valid_ikind(iv.kind)) return LDI_ERR_KIND;
  if (!usable(num, numlen)) return LDI_ERR_NUMBER;
  if (divide && lnxsgn(num, numlen) == 0) return LDI_ERR_DIVZERO;
  Num t = from_total(inter_total(iv)), r{};
  if (divide) lnxdiv(t.b, t.n, num, numlen, r.b, &r.n);
  else lnxmul(t.b, t.n, num, numlen, r.b, &r.n);
  if (ym_kind(iv.kind)) lnxtru(r.b, r.n, r.b, &r.n, 0);
  else lnxrou(r.b, r.n, r.b, &r.n, 0);
  i128 v = 0;
  if (!to_total(r, &v)) return LDI_ERR_OVERFLOW;
  return inter_from_total(v, iv.kind, out);
}

}  // namespace

KELAPI int32_t LdiInterMultiply(const LdiInterval *iv, const uint8_t *num, size_t numlen, LdiInterval *out) {
  return scale(*iv, num, numlen, false, out);
}

KELAPI int32_t LdiInterDivide(const LdiInterval *iv, const uint8_t *num, size_t numlen, LdiInterval *out) {
  return scale(*iv, num, numlen, true, out);
}

KELAPI int32_t LdiInterToNumber(const LdiInterval *iv, uint8_t *num, size_t *numlen) {
  if (!valid_ikind(iv->kind)) return LDI_ERR_KIND;
  Num t = from_total(inter_total(*iv));
  if (!ym_kind(iv->kind)) lnxshift(t.b, t.n, -9, t.b, &t.n);  // nanoseconds to seconds: exact
  emit(t, num, numlen);
  return 0;
}

KELAPI int32_t LdiInterFromNumber(const uint8_t *num, size_t numlen, uint8_t kind, LdiInterval *out) {
  if (!valid_ikind(kind)) return LDI_ERR_KIND;
  if (!usable(num, numlen)) return LDI_ERR_NUMBER;
  Num t{};
  lnxcopy(num, numlen, t.b, &t.n);
  if (ym_kind(kind)) {
    lnxtru(t.b, t.n, t.b, &t.n, 0);
  } else {
    lnxshift(t.b, t.n, 9, t.b, &t.n);
    lnxrou(t.b, t.n, t.b, &t.n, 0);
  }
  i128 v = 0;
  if (!to_total(t, &v)) return LDI_ERR_OVERFLOW;
  return inter_from_total(v, kind, out);
}

KELAPI int32_t LdiJulianToNumber(const LdiDateTime *in, uint8_t *num, size_t *numlen) {
  if (!valid_kind(in->kind)) return LDI_ERR_KIND;
  if (!has_date(in->kind)) return LDI_ERR_KINDS;
  Num t = from_total(wall_ns(*in)), day = from_total(kNsPerDay), r{};
  lnxdiv(t.b, t.n, day.b, day.n, r.b, &r.n);
  emit(r, num, numlen);
  return 0;
}

KELAPI int32_t LdiJulianFromNumber(const uint8_t *num, size_t numlen, LdiDateTime *out) {
  if (!usable(num, numlen)) return LDI_ERR_NUMBER;
  Num day = from_total(kNsPerDay), t{};
  lnxmul(num, numlen, day.b, day.n, t.b, &t.n);
  lnxrou(t.b, t.n, t.b, &t.n, 0);
  i128 v = 0;
  if (!to_total(t, &v)) return LDI_ERR_YEAR;
  LdiDateTime r{};
  r.kind = LDI_KIND_TIMESTAMP;
  int32_t st = set_wall_ns(r, v);
  if (st) return st;
  *out = r;
  return 0;
}
