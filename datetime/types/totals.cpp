// Exact totals of datetimes and intervals and their inverse: an interval
// spread over the fields of its kind, its checks, a datetime's wall clock set
// from nanoseconds, and the rounding of fractional seconds. Every other file
// of the types builds on these; they call nothing but the calendar.
#include "datetime/types/ldi_impl.h"

namespace ldi_internal {

int32_t inter_from_total(i128 total, uint8_t kind, LdiInterval *out) {
  const IKind &k = kIKinds[kind];
  LdiInterval r{};
  r.kind = kind;
  r.region = 0;
  if (k.ym) {
    i128 lead = k.first == 0 ? total / 12 : total;
    if (lead > INT32_MAX || lead < INT32_MIN) return LDI_ERR_OVERFLOW;
    if (k.first == 0) {
      r.f1 = static_cast<int32_t>(lead);
      if (k.last == 1) r.f2 = static_cast<int32_t>(total % 12);
    } else {
      r.f2 = static_cast<int32_t>(lead);
    }
  } else {
    i128 lead = total / kUnitNs[k.first];
    if (lead > INT32_MAX || lead < INT32_MIN) return LDI_ERR_OVERFLOW;
    set_field(r, k.first, static_cast<int32_t>(lead));
    i128 rem = total - lead * kUnitNs[k.first];
    for (int u = k.first + 1; u <= k.last; ++u) {
      i128 v = rem / kUnitNs[u];
      set_field(r, u, static_cast<int32_t>(v));
      rem -= v * kUnitNs[u];
    }
    if (k.frac) r.fraction = static_cast<int32_t>(rem);
  }
  *out = r;
  return 0;
}

int32_t inter_check(const LdiInterval &iv, int32_t leadprec) {
  if (!valid_ikind(iv.kind)) return LDI_ERR_KIND;
  const IKind &k = kIKinds[iv.kind];
  static constexpr int32_t kLimit[4] = {0, 23, 59, 59};
  int sign = 0;
  for (int u = 0; u < 4; ++u) {
    int32_t v = field(iv, u);
    if (u < k.first || u > k.last) {
      if (v != 0) return LDI_ERR_IVALUE;
      continue;
    }
    if (v != 0) {
      int s = v < 0 ? -1 : 1;
      if (sign && s != sign) return LDI_ERR_IVALUE;
      sign = s;
    }
    if (u != k.first) {
      int32_t lim = k.ym ? 11 : kLimit[u];
      if (v > lim || v < -lim) return LDI_ERR_IVALUE;
    }
  }
  if (k.ym && k.first == 0 && k.last == 1 && (iv.f2 > 11 || iv.f2 < -11)) return LDI_ERR_IVALUE;
  if (iv.fraction != 0) {
    if (!k.frac || iv.fraction >= kNsPerSec || iv.fraction <= -kNsPerSec) return LDI_ERR_IVALUE;
    int s = iv.fraction < 0 ? -1 : 1;
    if (sign && s != sign) return LDI_ERR_IVALUE;
  }
  if (leadprec >= 0) {
    if (leadprec > 9) return LDI_ERR_PREC;
    int64_t lead = field(iv, k.first);
    if (lead < 0) lead = -lead;
    if (lead > kPow10[leadprec] - 1) return LDI_ERR_LEADING;
  }
  return 0;
}

int32_t set_wall_ns(LdiDateTime &d, i128 ns) {
  i128 secs = ns / kNsPerSec;
  i128 frac = ns - secs * kNsPerSec;
  if (frac < 0) {
    frac += kNsPerSec;
    --secs;
  }
  if (!has_date(d.kind)) {
    // A time of day wraps around midnight.
    int64_t s = static_cast<int64_t>(secs % 86400);
    set_time(d, static_cast<int32_t>(s < 0 ? s + 86400 : s));
    d.fraction = static_cast<uint32_t>(frac);
    return 0;
  }
  ldx_internal::Civil c{};
  // Year 0 is a year of the day count only: no datetime holds it.
  if (secs < INT64_MIN / 2 || secs > INT64_MAX / 2 || !ldx_internal::from_seconds(static_cast<int64_t>(secs), &c) ||
      c.year == 0)
    return LDI_ERR_YEAR;
  d.year = static_cast<int16_t>(c.year);
  d.month = static_cast<uint8_t>(c.month);
  d.day = static_cast<uint8_t>(c.day);
  d.hour = static_cast<uint8_t>(c.hour);
  d.minute = static_cast<uint8_t>(c.minute);
  d.second = static_cast<uint8_t>(c.second);
  d.fraction = static_cast<uint32_t>(frac);
  return 0;
}

int32_t round_fs(LdiDateTime &d, int32_t p) {
  if (p < 0) return LDI_ERR_PREC;
  if (p >= 9 || d.kind == LDI_KIND_DATE) return 0;
  uint64_t f = d.fraction + 5ull * kPow10[8 - p];
  if (f >= static_cast<uint64_t>(kNsPerSec)) {
    f -= kNsPerSec;
    LdiDateTime t = d;
    t.fraction = 0;
    // Carry one second through the fields; the time kinds wrap at midnight.
    int32_t st = set_wall_ns(t, wall_ns(t) + kNsPerSec);
    if (st) return st;
    d = t;
  }
  d.fraction = static_cast<uint32_t>(f - f % kPow10[9 - p]);
  return 0;
}

}  // namespace ldi_internal
