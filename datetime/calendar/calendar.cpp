// The exported calendar kernel: day numbers (calendar_impl.h), validity,
// comparison, day/second and month arithmetic (days.cpp), weekdays and ISO
// weeks. Errors are raised through the context (errors.cpp).
#include <cstring>

#include "datetime/calendar/ldx_impl.h"

using namespace ldx_internal;

extern "C" {

KELAPI int32_t ldxctj(ldxctx *, int32_t year, int32_t month, int32_t day) { return ctj(year, month, day); }

KELAPI int32_t ldxjtc(ldxctx *ctx, int32_t jday, ldxdate *out) {
  int32_t y = 0, m = 0, d = 0;
  int32_t err = jtc(jday, &y, &m, &d);
  if (err == E_JDAY) return raise(ctx, err);
  set_ymd(out, y, m, d);
  return raise(ctx, err);
}

KELAPI int32_t ldxdyc(ldxctx *ctx, int32_t year, int32_t doy, int32_t *month, int32_t *day) {
  return raise(ctx, dyc(year, doy, month, day));
}

KELAPI void ldxdtd(ldxctx *, const ldxdate *in, ldxdays *out) {
  out->days = ctj(in->year, in->month, in->day);
  out->seconds = (in->hour * 60 + in->minute) * 60 + in->second;
}

KELAPI int32_t ldxdfd(ldxctx *ctx, const ldxdays *in, ldxdate *out) {
  std::memset(out, 0, sizeof *out);
  int32_t s = in->seconds;
  set_hms(out, s);
  return ldxjtc(ctx, in->days, out);
}

KELAPI uint32_t ldxchk(ldxctx *, const void *rec, int32_t mode) {
  uint32_t f = 0;
  int32_t y, m, d, hh, mi, ss;
  if (mode == 1) {
    const ldxdays *p = static_cast<const ldxdays *>(rec);
    if (p->days >= kMaxJday + 1) f |= 0x0001;
    if (p->days == 0) f |= 0x0003;
    if (p->seconds > 86399 || p->seconds < 0) f |= 0x0400;
    return f;
  }
  if (mode == 0) {
    const ldxdate *p = static_cast<const ldxdate *>(rec);
    y = p->year, m = p->month, d = p->day, hh = p->hour, mi = p->minute, ss = p->second;
    if (hh < 0 || hh > 23) f |= 0x0040;
    if (mi < 0 || mi > 59) f |= 0x0100;
    if (ss < 0 || ss > 59) f |= 0x0400;
  } else if (mode == 2) {
    const uint8_t *b = static_cast<const uint8_t *>(rec);
    if (b[0] > 199 || b[1] > 199) f |= 0x0010;
    if (b[0] < 53 || b[1] < 1) f |= 0x0030;
    y = b[0] * 100 + b[1] - 10100;
    m = b[2], d = b[3];
    if (b[4] == 0) f |= 0x00C0;
    else if (b[4] > 24) f |= 0x0040;
    if (b[5] == 0) f |= 0x0300;
    else if (b[5] > 60) f |= 0x0100;
    if (b[6] == 0) f |= 0x0C00;
    else if (b[6] > 60) f |= 0x0400;
  } else {
    return 0x8000;
  }
  if (y > 9999) f |= 0x0010;
  if (y < -4712) f |= 0x0030;
  if (y == 0) f |= 0x2000;
  bool month_ok = true;
  if (m == 0) {
    f |= 0x000C;
    month_ok = false;
  } else if (m > 12 || m < 0) {
    f |= 0x0004;
    month_ok = false;
  }
  // Once the month is flagged the day is measured against December.
  int32_t mlen = month_ok ? days_in_month(y, m) : 31;
  if (d == 0) f |= 0x0003;
  else if (d < 0 || d > 31 || d > mlen) f |= 0x0001;
  if (y == 1582 && m == 10 && d >= 5 && d <= 14) f |= 0x1000;
  return f;
}

KELAPI int32_t ldxcmp(ldxctx *, const ldxdate *a, const ldxdate *b) {
  const int32_t av[6] = {a->year, a->month, a->day, a->hour, a->minute, a->second};
  const int32_t bv[6] = {b->year, b->month, b->day, b->hour, b->minute, b->second};
  for (int i = 0; i < 6; ++i)
    if (av[i] != bv[i]) return av[i] < bv[i] ? -1 : 1;
  return 0;
}

KELAPI int32_t ldxads(ldxctx *ctx, ldxdate *out, const ldxdate *in, const ldxdays *inc) {
  return raise(ctx, add_days(out, in, inc->days, inc->seconds));
}

KELAPI int32_t ldxadm(ldxctx *ctx, ldxdate *out, const ldxdate *in, int32_t months) {
  const ldx_territory_view &v = view(ctx);
  if ((!v.gregorian || (ctx && ctx->nongreg)) && v.eadm) {
    int32_t r = v.eadm(ctx, out, in, months);
    if (r & 0xFF) return 0;
  }
  return raise(ctx, add_months(out, in, months));
}

KELAPI int32_t ldxldd(ldxctx *ctx, ldxdate *out, const ldxdate *in) {
  const ldx_territory_view &v = view(ctx);
  if ((!v.gregorian || (ctx && ctx->nongreg)) && v.eldd) {
    int32_t r = v.eldd(ctx, out, in);
    if (r & 0xFF) return 0;
  }
  ldxdate r = *in;
  int32_t m = in->month < 1 ? 1 : in->month > 12 ? 12 : in->month;
  r.day = static_cast<int8_t>(days_in_month(in->year, m));
  *out = r;
  return 0;
}

KELAPI int32_t ldxdow(ldxctx *ctx, int32_t jday) { return dow(jday, view(ctx).first_day); }

KELAPI int32_t ldxnxd(ldxctx *ctx, ldxdate *out, const ldxdate *in, int32_t wday) {
  if (wday < 1 || wday > 7) return raise(ctx, E_RANGE_WEEKDAY);
  int32_t j = ctj(in->year, in->month, in->day);
  int32_t d = wday - dow(j, view(ctx).first_day);
  if (d < 1) d += 7;
  ldxdate r = *in;
  int32_t err = add_days(&r, in, d, 0);
  *out = r;
  return raise(ctx, err);
}

KELAPI int32_t ldxisw(ldxctx *, const ldxdate *d) { return iso_week(d->year, d->month, d->day); }

KELAPI int32_t ldxisy(ldxctx *, const ldxdate *d) { return iso_year(d->year, d->month, d->day); }

}  // extern "C"
