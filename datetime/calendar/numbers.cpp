// Dates and day counts as library numbers. A date is its Julian day number
// plus the part of the day gone by (seconds / 86400); an increment is its
// days plus seconds / 86400. Going back, the fraction is rounded to the
// nearest second, so a date survives the trip although most fractions are
// not exact in decimal.
#include <cstdint>

#include "datetime/calendar/ldx_impl.h"
#include "lnx.h"

using namespace ldx_internal;

namespace {

// num = whole + secs / 86400.
void compose(int32_t whole, int32_t secs, uint8_t *out, size_t *outlen) {
  uint8_t w[22], s[22], day[22], frac[22];
  size_t wl, sl, dl, fl;
  int32_t ds = static_cast<int32_t>(kDaySecs);
  lnxmin(&whole, sizeof whole, LNX_SIGNED, w, &wl);
  lnxmin(&secs, sizeof secs, LNX_SIGNED, s, &sl);
  lnxmin(&ds, sizeof ds, LNX_SIGNED, day, &dl);
  lnxdiv(s, sl, day, dl, frac, &fl);
  lnxadd(w, wl, frac, fl, out, outlen);
}

// Splits num into whole days (floor, or toward zero for `trunc`) and the
// rest in seconds, rounded; false when the days do not fit 32 bits or the
// number is an infinity.
bool split(const uint8_t *num, size_t len, bool trunc, int32_t *days, int32_t *secs) {
  if (lnxchk(num, len) != 1) return false;
  uint8_t whole[22], rest[22], day[22], t[22], r[22];
  size_t wl, rl, dl, tl, rrl;
  if (trunc) lnxtru(num, len, whole, &wl, 0);
  else lnxflo(num, len, whole, &wl);
  int32_t d = 0;
  if (lnxsni(whole, wl, &d, sizeof d, LNX_SIGNED) == 1) return false;
  lnxsub(num, len, whole, wl, rest, &rl);
  int32_t ds = static_cast<int32_t>(kDaySecs);
  lnxmin(&ds, sizeof ds, LNX_SIGNED, day, &dl);
  lnxmul(rest, rl, day, dl, t, &tl);
  lnxrou(t, tl, r, &rrl, 0);
  int32_t s = 0;
  lnxsni(r, rrl, &s, sizeof s, LNX_SIGNED);
  // Rounding up to a whole day carries.
  if (s == kDaySecs || s == -kDaySecs) {
    if (d == (s > 0 ? INT32_MAX : INT32_MIN)) return false;
    d += s > 0 ? 1 : -1;
    s = 0;
  }
  *days = d;
  *secs = s;
  return true;
}

}  // namespace

extern "C" {

KELAPI int32_t ldxd2n(ldxctx *ctx, const ldxdate *d, uint8_t *out, size_t *outlen) {
  uint32_t f = ldxchk(ctx, d, 0) & ~0x1000u;
  if (f) return raise(ctx, (f & 0x2030) ? E_RANGE_YEAR : (f & 0x000C) ? E_RANGE_MONTH
                           : (f & 0x0003) ? E_RANGE_DAY : (f & 0x0040) ? E_RANGE_HOUR24
                           : (f & 0x0100) ? E_RANGE_MINUTE : E_RANGE_SECOND);
  compose(ctj(d->year, d->month, d->day), (d->hour * 60 + d->minute) * 60 + d->second, out, outlen);
  return 0;
}

KELAPI int32_t ldxn2d(ldxctx *ctx, const uint8_t *num, size_t len, ldxdate *out) {
  int32_t j = 0, s = 0;
  if (!split(num, len, false, &j, &s) || j < 1 || j > kMaxJday) return raise(ctx, E_RANGE_YEAR);
  int32_t y = 0, m = 0, d = 0;
  jtc(j, &y, &m, &d);
  set_ymd(out, y, m, d);
  set_hms(out, s);
  return 0;
}

KELAPI int32_t ldxi2n(ldxctx *ctx, const ldxdays *inc, uint8_t *out, size_t *outlen) {
  (void)ctx;
  // days + seconds / 86400 with any signs: carry whole days out of the
  // seconds first so that the fraction is below one day.
  int64_t total = int64_t{inc->days} * kDaySecs + inc->seconds;
  int64_t days = total / kDaySecs, secs = total % kDaySecs;
  if (days < INT32_MIN || days > INT32_MAX) return raise(ctx, E_RANGE_YEAR);
  compose(static_cast<int32_t>(days), static_cast<int32_t>(secs), out, outlen);
  return 0;
}

KELAPI int32_t ldxn2i(ldxctx *ctx, const uint8_t *num, size_t len, ldxdays *out) {
  int32_t d = 0, s = 0;
  if (!split(num, len, true, &d, &s)) return raise(ctx, E_RANGE_YEAR);
  out->days = d;
  out->seconds = s;
  return 0;
}

}  // extern "C"
