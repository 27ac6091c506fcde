// Datetime and interval arithmetic: subtraction of datetimes, adding
// intervals to datetimes (the month step keeps the day, unlike ldxadm), the
// overlap predicates, interval arithmetic, conversions between kinds and to
// the date kernel's records, rounding to units and extraction of fields.
//
// Sections: subtraction; adding intervals; overlaps; interval arithmetic;
// conversions; units and fields.
#include "datetime/types/ldi_impl.h"
#include "ltz.h"

using namespace ldi_internal;

namespace {

// The kind whose units run from `first` to `last` in a family.
uint8_t kind_for(bool ym, int first, int last) {
  for (uint8_t k = 1; k <= 13; ++k)
    if (kIKinds[k].ym == ym && kIKinds[k].first == first && kIKinds[k].last == last) return k;
  return 0;
}

// Whole months from b to a, the last month counted only when complete.
int64_t months_between(const LdiDateTime &a, const LdiDateTime &b) {
  int64_t m = (static_cast<int64_t>(a.year) * 12 + a.month) - (static_cast<int64_t>(b.year) * 12 + b.month);
  // The rest of each value within its month, compared as one key.
  auto rest = [](const LdiDateTime &d) {
    return ((((static_cast<i128>(d.day) * 24 + d.hour) * 60 + d.minute) * 60 + d.second) * kNsPerSec) + d.fraction;
  };
  i128 ra = rest(a), rb = rest(b);
  if (m > 0 && ra < rb) --m;
  if (m < 0 && ra > rb) ++m;
  return m;
}

LdiInterval negated(const LdiInterval &iv) {
  LdiInterval n = iv;
  n.f1 = -iv.f1;
  n.f2 = -iv.f2;
  n.f3 = -iv.f3;
  n.f4 = -iv.f4;
  n.fraction = -iv.fraction;
  return n;
}

int32_t subtract(ldxctx *, const LdiDateTime &a, const LdiDateTime &b, uint8_t ikind, LdiInterval *out,
                 const void *tzimg, bool tz) {
  int32_t st = LdiDateComparable(&a, &b);
  if (st) return st;
  if (!valid_ikind(ikind)) return LDI_ERR_KIND;
  LdiDateTime x = a, y = b;
  if (tz && has_zone(a.kind)) {
    st = LdiTZ2T(&a, &x, tzimg);
    if (!st) st = LdiTZ2T(&b, &y, tzimg);
    if (st) return st;
  }
  if (ym_kind(ikind)) {
    if (!has_date(a.kind)) return LDI_ERR_KINDS;
    return inter_from_total(months_between(x, y), ikind, out);
  }
  return inter_from_total(wall_ns(x) - wall_ns(y), ikind, out);
}

}  // namespace

// ---------------------------------------------------------------- subtraction

KELAPI int32_t LdiDateDateSubtract(ldxctx *ctx, const LdiDateTime *a, const LdiDateTime *b, uint8_t ikind,
                                   LdiInterval *out) {
  return subtract(ctx, *a, *b, ikind, out, nullptr, false);
}

KELAPI int32_t LdiDateDateSubtractWithTZ(ldxctx *ctx, const LdiDateTime *a, const LdiDateTime *b, uint8_t ikind,
                                         LdiInterval *out, const void *tzimg) {
  return subtract(ctx, *a, *b, ikind, out, tzimg, true);
}

// ----------------------------------------------------------- adding intervals

KELAPI int32_t LdiDateIntertimeAdd(const LdiDateTime *d, const LdiInterval *iv, LdiDateTime *out) {
  if (!valid_kind(d->kind) || !valid_ikind(iv->kind) || ym_kind(iv->kind)) return LDI_ERR_KIND;
  LdiDateTime r = *d;
  int32_t st = set_wall_ns(r, wall_ns(r) + inter_total(*iv));
  if (st) return st;
  if (r.kind == LDI_KIND_DATE) r.hour = r.minute = r.second = 0, r.fraction = 0;
  *out = r;
  return 0;
}

KELAPI int32_t LdiDateIntertimeSubtract(const LdiDateTime *d, const LdiInterval *iv, LdiDateTime *out) {
  LdiInterval n = negated(*iv);
  return LdiDateIntertimeAdd(d, &n, out);
}

KELAPI int32_t LdiDateInterAddTZ(ldxctx *ctx, const LdiDateTime *d, const LdiInterval *iv, LdiDateTime *out,
                                 const void *tzimg) {
  if (!valid_kind(d->kind) || !valid_ikind(iv->kind)) return LDI_ERR_KIND;
  LdiDateTime r = *d;
  if (ym_kind(iv->kind)) {
    if (!has_date(d->kind)) return LDI_ERR_KINDS;
    const auto &v = ldx_internal::view(ctx);
    if (!v.gregorian && v.eadm) {
      ldxdate in = as_ldx(r), o = in;
      int32_t rc = v.eadm(ctx, &o, &in, iv->f1 * 12 + iv->f2);
      if (rc & 0xFF) return rc;
      set_date(r, o);
    } else {
      int64_t n = static_cast<int64_t>(r.month) + iv->f2;
      int64_t year = r.year + static_cast<int64_t>(iv->f1) + n / 12;
      int64_t month = n % 12;
      if (month < 1) {
        month += 12;
        year -= 1;
      }
      // Year 0 exists only in the day count; the ten days the calendar
      // switch left out of October 1582 exist in no month.
      if (year < -4712 || year > 9999 || year == 0) return LDI_ERR_YEAR;
      if (r.day > ldx_internal::days_in_month(static_cast<int32_t>(year), static_cast<int32_t>(month)) ||
          (year == 1582 && month == 10 && r.day >= 5 && r.day <= 14))
        return LDI_ERR_DAY_MONTH;
      r.year = static_cast<int16_t>(year);
      r.month = static_cast<uint8_t>(month);
    }
  } else {
    int32_t st = LdiDateIntertimeAdd(&r, iv, &r);
    if (st) return st;
  }
  if (tzimg && r.region && has_zone(r.kind) && has_date(r.kind)) {
    int32_t secs = 0;
    int32_t st = region_local_offset(tzimg, r.region, r, &secs);
    if (st) return st;
    set_zone_minutes(r, secs / 60);
  }
  *out = r;
  return 0;
}

KELAPI int32_t LdiDateInterAdd(ldxctx *ctx, const LdiDateTime *d, const LdiInterval *iv, LdiDateTime *out) {
  return LdiDateInterAddTZ(ctx, d, iv, out, nullptr);
}

KELAPI int32_t LdiDateInterSubtract(ldxctx *ctx, const LdiDateTime *d, const LdiInterval *iv, LdiDateTime *out) {
  LdiInterval n = negated(*iv);
  return LdiDateInterAddTZ(ctx, d, &n, out, nullptr);
}

KELAPI int32_t LdiDateInterSubtractTZ(ldxctx *ctx, const LdiDateTime *d, const LdiInterval *iv, LdiDateTime *out,
                                      const void *tzimg) {
  LdiInterval n = negated(*iv);
  return LdiDateInterAddTZ(ctx, d, &n, out, tzimg);
}

// ------------------------------------------------------------------- overlaps

KELAPI int32_t LdiDateDateOverlap(ldxctx *, const LdiDateTime *s1, const LdiDateTime *e1, const LdiDateTime *s2,
                                  const LdiDateTime *e2, int32_t *result, const void *tzimg) {
  LdiDateTime a = *s1, b = *e1, c = *s2, d = *e2;
  int32_t st = LdiDateDateSwap(&a, &b, nullptr, tzimg);
  if (!st) st = LdiDateDateSwap(&c, &d, nullptr, tzimg);
  int32_t r = 0;
  if (!st) st = LdiDateCompare(&a, &c, &r, tzimg);
  if (st) return st;
  if (r == 0) {
    *result = 1;
    return 0;
  }
  // The later start must come before the other period's end.
  int32_t q = 0;
  st = r > 0 ? LdiDateCompare(&a, &d, &q, tzimg) : LdiDateCompare(&c, &b, &q, tzimg);
  if (st) return st;
  *result = q < 0;
  return 0;
}

KELAPI int32_t LdiDateInterOverlap(ldxctx *ctx, const LdiDateTime *s1, const LdiDateTime *e1, const LdiDateTime *s2,
                                   const LdiInterval *i2, int32_t *result, const void *tzimg) {
  LdiDateTime e2;
  int32_t st = LdiDateInterAddTZ(ctx, s2, i2, &e2, tzimg);
  if (st) return st;
  return LdiDateDateOverlap(ctx, s1, e1, s2, &e2, result, tzimg);
}

KELAPI int32_t LdiInterInterOverlap(ldxctx *ctx, const LdiDateTime *s1, const LdiInterval *i1, const LdiDateTime *s2,
                                    const LdiInterval *i2, int32_t *result, const void *tzimg) {
  LdiDateTime e1;
  int32_t st = LdiDateInterAddTZ(ctx, s1, i1, &e1, tzimg);
  if (st) return st;
  return LdiDateInterOverlap(ctx, s1, &e1, s2, i2, result, tzimg);
}

// ------------------------------------------------------- interval arithmetic

namespace {

int32_t combine(const LdiInterval &a, const LdiInterval &b, bool sub, LdiInterval *out) {
  int32_t st = LdiInterComparable(&a, &b);
  if (st) return st;
  const IKind &ka = kIKinds[a.kind], &kb = kIKinds[b.kind];
  uint8_t kind = kind_for(ka.ym, ka.first < kb.first ? ka.first : kb.first, ka.last > kb.last ? ka.last : kb.last);
  i128 t = sub ? inter_total(a) - inter_total(b) : inter_total(a) + inter_total(b);
  return inter_from_total(t, kind, out);
}

}  // namespace

KELAPI int32_t LdiInterInterAdd(const LdiInterval *a, const LdiInterval *b, LdiInterval *out) {
  return combine(*a, *b, false, out);
}

KELAPI int32_t LdiInterInterSubtract(const LdiInterval *a, const LdiInterval *b, LdiInterval *out) {
  return combine(*a, *b, true, out);
}

KELAPI int32_t LdiIIntMult(const LdiInterval *iv, int32_t n, LdiInterval *out) {
  if (!valid_ikind(iv->kind)) return LDI_ERR_KIND;
  return inter_from_total(inter_total(*iv) * n, iv->kind, out);
}

// ---------------------------------------------------------------- conversions

KELAPI int32_t LdiInterInterConvert(const LdiInterval *in, uint8_t kind, LdiInterval *out) {
  if (!valid_ikind(in->kind) || !valid_ikind(kind)) return LDI_ERR_KIND;
  if (ym_kind(in->kind) != ym_kind(kind)) return LDI_ERR_KINDS;
  return inter_from_total(inter_total(*in), kind, out);
}

KELAPI int32_t LdiDateDateConvert(const LdiDateTime *in, uint8_t kind, const LdiDateTime *ref,
                                  const LdiDateTime *zone, LdiDateTime *out, const void *tzimg) {
  if (!valid_kind(in->kind) || !valid_kind(kind)) return LDI_ERR_KIND;
  LdiDateTime v = *in;
  if (v.kind == LDI_KIND_TSLTZ && zone) {
    int32_t st = LdiTimeZoneAdjust(nullptr, &v, zone->tzhour, zone->tzminute, zone->region, tzimg);
    if (st) return st;
  }
  LdiDateTime r{};
  r.kind = kind;
  if (has_date(kind)) {
    const LdiDateTime *src = has_date(v.kind) ? &v : ref;
    if (!src || !has_date(src->kind)) return LDI_ERR_KINDS;
    r.year = src->year;
    r.month = src->month;
    r.day = src->day;
  }
  if (has_time(kind) && has_time(v.kind)) {
    r.hour = v.hour;
    r.minute = v.minute;
    r.second = v.second;
    r.fraction = v.fraction;
  }
  if (has_zone(kind)) {
    const LdiDateTime *z = has_zone(v.kind) ? &v : zone;
    if (z) {
      r.tzhour = z->tzhour;
      r.tzminute = z->tzminute;
      r.region = z->region;
    }
    if (!has_zone(v.kind) && z && z->region && tzimg && has_date(kind)) {
      int32_t secs = 0;
      int32_t st = region_local_offset(tzimg, z->region, r, &secs);
      if (st) return st;
      set_zone_minutes(r, secs / 60);
    }
  }
  *out = r;
  return 0;
}

KELAPI int32_t LdiDateFromLDX(const ldxdate *in, uint8_t kind, LdiDateTime *out) {
  if (kind != LDI_KIND_DATE && kind != LDI_KIND_TIMESTAMP) return LDI_ERR_KIND;
  LdiDateTime r{};
  r.kind = kind;
  set_date(r, *in);
  if (kind == LDI_KIND_TIMESTAMP) set_time(r, *in);
  *out = r;
  return 0;
}

KELAPI int32_t LdiDateToLDX(const LdiDateTime *in, ldxdate *out) {
  if (!valid_kind(in->kind)) return LDI_ERR_KIND;
  if (!has_date(in->kind)) return LDI_ERR_KINDS;
  *out = as_ldx(*in);
  return 0;
}

KELAPI int32_t LdiDateToJDays(const LdiDateTime *in, int32_t *jdays) {
  if (!valid_kind(in->kind)) return LDI_ERR_KIND;
  if (!has_date(in->kind)) return LDI_ERR_KINDS;
  *jdays = ldx_internal::ctj(in->year, in->month, in->day);
  return 0;
}

KELAPI int32_t LdiDays2Cal(int32_t jdays, int32_t *year, int32_t *month, int32_t *day) {
  if (jdays < 1 || jdays > kMaxJday) return LDI_ERR_YEAR;
  ldx_internal::jtc(jdays, year, month, day);
  return 0;
}

KELAPI int32_t LdiJDaysToDate(int32_t jdays, LdiDateTime *out) {
  int32_t y = 0, m = 0, d = 0;
  int32_t st = LdiDays2Cal(jdays, &y, &m, &d);
  if (st) return st;
  LdiDateTime r{};
  r.kind = LDI_KIND_DATE;
  r.year = static_cast<int16_t>(y);
  r.month = static_cast<uint8_t>(m);
  r.day = static_cast<uint8_t>(d);
  *out = r;
  return 0;
}

KELAPI int32_t LdiDateToJulian(const LdiDateTime *in, ldxdays *out) {
  int32_t st = LdiDateToJDays(in, &out->days);
  if (st) return st;
  out->seconds = in->hour * 3600 + in->minute * 60 + in->second;
  return 0;
}

KELAPI int32_t LdiJulianToDate(const ldxdays *in, LdiDateTime *out) {
  if (in->seconds < 0 || in->seconds > 86399) return LDI_ERR_VALUE;
  LdiDateTime r;
  int32_t st = LdiJDaysToDate(in->days, &r);
  if (st) return st;
  r.kind = LDI_KIND_TIMESTAMP;
  set_time(r, in->seconds);
  *out = r;
  return 0;
}

// ------------------------------------------------------------ units and fields

namespace {

int32_t unit_op(ldxctx *ctx, const LdiDateTime &d, int32_t unit, LdiDateTime *out, bool round) {
  using namespace ldx_internal;
  if (!valid_kind(d.kind)) return LDI_ERR_KIND;
  bool time_unit = unit == C_HH24 || unit == C_HH || unit == C_MI;
  if (!has_date(d.kind) && !time_unit) return LDI_ERR_KINDS;
  ldxdate in = as_ldx(d), o = in;
  int32_t st = round ? round_unit(view(ctx), &o, &in, unit) : trunc_unit(view(ctx), &o, &in, unit);
  if (st) return st;
  LdiDateTime r = d;
  if (has_date(d.kind)) set_date(r, o);
  set_time(r, o);
  r.fraction = 0;
  *out = r;
  return 0;
}

}  // namespace

KELAPI int32_t LdiRound(ldxctx *ctx, const LdiDateTime *d, int32_t unit, LdiDateTime *out) {
  return unit_op(ctx, *d, unit, out, true);
}

KELAPI int32_t LdiTruncate(ldxctx *ctx, const LdiDateTime *d, int32_t unit, LdiDateTime *out) {
  return unit_op(ctx, *d, unit, out, false);
}

KELAPI int32_t LdiDateExtract(const LdiDateTime *d, int32_t field, int32_t *value) {
  if (!valid_kind(d->kind)) return LDI_ERR_KIND;
  bool dt = has_date(d->kind), tm = has_time(d->kind), zn = has_zone(d->kind);
  switch (field) {
    case LDI_FIELD_YEAR: if (!dt) break; *value = d->year; return 0;
    case LDI_FIELD_MONTH: if (!dt) break; *value = d->month; return 0;
    case LDI_FIELD_DAY: if (!dt) break; *value = d->day; return 0;
    case LDI_FIELD_HOUR: if (!tm) break; *value = d->hour; return 0;
    case LDI_FIELD_MINUTE: if (!tm) break; *value = d->minute; return 0;
    case LDI_FIELD_SECOND: if (!tm) break; *value = d->second; return 0;
    case LDI_FIELD_FRACTION: if (!tm) break; *value = static_cast<int32_t>(d->fraction); return 0;
    case LDI_FIELD_TZHOUR: if (!zn) break; *value = d->tzhour; return 0;
    case LDI_FIELD_TZMINUTE: if (!zn) break; *value = d->tzminute; return 0;
    case LDI_FIELD_REGION: if (!zn) break; *value = d->region; return 0;
    default: break;
  }
  return LDI_ERR_FIELD;
}

KELAPI int32_t LdiDateExtractTZ(const LdiDateTime *d, int32_t field, int32_t *value, char *name, size_t namesz,
                                const void *tzimg) {
  LdiDateTime v = *d;
  if (valid_kind(v.kind) && has_zone(v.kind) && v.region && tzimg) {
    if (field == LDI_FIELD_REGION && name) {
      int32_t st = ltzName(tzimg, v.region, name, namesz, nullptr);
      if (st) return map_tz_status(st);
    }
    if ((field == LDI_FIELD_TZHOUR || field == LDI_FIELD_TZMINUTE) && has_date(v.kind)) {
      int32_t secs = 0;
      int32_t st = region_local_offset(tzimg, v.region, v, &secs);
      if (st) return st;
      set_zone_minutes(v, secs / 60);
    }
  }
  return LdiDateExtract(&v, field, value);
}

KELAPI int32_t LdiInterExtract(const LdiInterval *iv, int32_t field, int32_t *value) {
  if (!valid_ikind(iv->kind)) return LDI_ERR_KIND;
  const IKind &k = kIKinds[iv->kind];
  int u;
  if (k.ym) {
    if (field != LDI_FIELD_YEAR && field != LDI_FIELD_MONTH) return LDI_ERR_FIELD;
    u = field == LDI_FIELD_YEAR ? 0 : 1;
  } else {
    if (field == LDI_FIELD_FRACTION) {
      if (!k.frac) return LDI_ERR_FIELD;
      *value = iv->fraction;
      return 0;
    }
    if (field < LDI_FIELD_DAY || field > LDI_FIELD_SECOND) return LDI_ERR_FIELD;
    u = field - LDI_FIELD_DAY;
  }
  if (u < k.first || u > k.last) return LDI_ERR_FIELD;
  *value = ldi_internal::field(*iv, u);
  return 0;
}
