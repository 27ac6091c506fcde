// Truncation and rounding of a date to a unit named by a format element, and
// the compilation of a one-element model into such a unit (ldxgpc).
//
// Rounding moves a copy of the date forward by the unit's half and then
// truncates it with the same unit; the week units have their own year and
// month boundary rules, kept as they are because stored results depend on
// them.
#include "datetime/calendar/ldx_impl.h"

namespace ldx_internal {

namespace {

enum class Unit { Bad, Century, IsoYear, Year, Quarter, Month, IsoWeek, Week, WeekOfMonth, Weekday, Day, Hour, Minute };

Unit classify(int32_t code) {
  switch (code) {
    case C_CC: case C_SCC: return Unit::Century;
    case C_I: case C_IY: case C_IYY: case C_IYYY: return Unit::IsoYear;
    case C_Y: case C_YY: case C_YYY: case C_YYYY: case C_SYYYY: case C_YEAR: case C_SYEAR:
    case C_RR: case C_RRRR: case C_NYYYY: return Unit::Year;
    case C_Q: return Unit::Quarter;
    case C_MM: case C_MON: case C_MONTH: case C_RM: return Unit::Month;
    case C_IW: return Unit::IsoWeek;
    case C_WW: return Unit::Week;
    case C_W: return Unit::WeekOfMonth;
    case C_D: case C_DY: case C_DAY: return Unit::Weekday;
    case C_DD: case C_DDD: case C_J: return Unit::Day;
    case C_HH: case C_HH24: return Unit::Hour;
    case C_MI: return Unit::Minute;
    default: return Unit::Bad;
  }
}

int32_t monday_on_or_before(ldxdate *r) { return add_days(r, r, -iso_wday(ctj(r->year, r->month, r->day)), 0); }

}  // namespace

int32_t trunc_unit(const ldx_territory_view &v, ldxdate *out, const ldxdate *in, int32_t unit) {
  ldxdate r = *in;
  Unit u = classify(unit);
  if (u == Unit::Bad) return E_UNIT;
  int32_t err = 0;
  int32_t y = in->year;
  switch (u) {
    case Unit::Century: {
      int32_t cy = y >= 0 ? y - ((y - 1) % 100) : y + ((-y - 1) % 100) - 99;
      set_ymd(&r, cy, 1, 1);
      break;
    }
    case Unit::IsoYear:
      set_ymd(&r, iso_year(y, in->month, in->day), 1, 4);
      err = monday_on_or_before(&r);
      break;
    case Unit::Year: set_ymd(&r, y, 1, 1); break;
    case Unit::Quarter: set_ymd(&r, y, (in->month - 1) / 3 * 3 + 1, 1); break;
    case Unit::Month: r.day = 1; break;
    case Unit::IsoWeek: err = monday_on_or_before(&r); break;
    case Unit::Week: {
      int32_t doy = day_of_year(y, in->month, in->day);
      int32_t m, d;
      dyc(y, doy - ((doy - 1) % 7), &m, &d);
      set_ymd(&r, y, m, d);
      break;
    }
    case Unit::WeekOfMonth: r.day = static_cast<int8_t>(in->day - ((in->day - 1) % 7)); break;
    case Unit::Weekday: {
      int32_t j = ctj(y, in->month, in->day);
      err = add_days(&r, &r, 1 - dow(j, v.first_day), 0);
      break;
    }
    case Unit::Day: break;
    case Unit::Hour:
      r.minute = 0;
      r.second = 0;
      *out = r;
      return 0;
    case Unit::Minute:
      r.second = 0;
      *out = r;
      return 0;
    case Unit::Bad: break;
  }
  r.hour = r.minute = r.second = 0;
  *out = r;
  return err;
}

int32_t round_unit(const ldx_territory_view &v, ldxdate *out, const ldxdate *in, int32_t unit) {
  ldxdate r = *in;
  Unit u = classify(unit);
  if (u == Unit::Bad) return E_UNIT;
  int32_t err = 0;
  switch (u) {
    case Unit::Century: r.year = static_cast<int16_t>(r.year + 50); break;
    case Unit::IsoYear:
    case Unit::Year:
      // The ISO units round on the calendar month too.
      if (r.month >= 7) r.year = static_cast<int16_t>(r.year + 1);
      break;
    case Unit::Quarter: {
      int32_t p = (r.month - 1) % 3;
      if (p == 2 || (p == 1 && r.day >= 16)) {
        int32_t m = r.month + 3;
        if (m >= 13) {
          m = 1;
          r.year = static_cast<int16_t>(r.year + 1);
        }
        r.month = static_cast<int8_t>(m);
        r.day = 1;
      }
      break;
    }
    case Unit::Month:
      if (r.day >= 16) {
        if (r.month == 12) {
          r.month = 1;
          r.year = static_cast<int16_t>(r.year + 1);
        } else {
          r.month = static_cast<int8_t>(r.month + 1);
        }
        r.day = 1;
      }
      break;
    case Unit::IsoWeek:
    case Unit::Week: {
      ldxdate a;
      err = add_days(&a, in, 3, 43200);
      if (a.year != in->year) {
        r = *in;
        r.day = 31;
      } else {
        r = a;
      }
      break;
    }
    case Unit::WeekOfMonth: {
      ldxdate a;
      err = add_days(&a, in, 3, 43200);
      if (a.month != in->month && !(in->month == 2 && !is_leap(in->year))) {
        r = *in;
        r.day = 29;
      } else {
        r = a;
      }
      break;
    }
    case Unit::Weekday: err = add_days(&r, in, 3, 43200); break;
    case Unit::Day:
      if (r.hour >= 12) err = add_days(&r, in, 1, 0);
      break;
    case Unit::Hour:
      if (r.minute >= 30) err = add_days(&r, in, 0, 1800);
      break;
    case Unit::Minute:
      if (r.second >= 30) err = add_days(&r, in, 0, 30);
      break;
    case Unit::Bad: break;
  }
  if (err) {
    *out = r;
    return err;
  }
  if (r.year > 9999) {
    *out = *in;
    return E_RANGE_YEAR;
  }
  return trunc_unit(v, out, &r, unit);
}

}  // namespace ldx_internal

using namespace ldx_internal;

extern "C" {

KELAPI int32_t ldxtrn(ldxctx *ctx, ldxdate *out, const ldxdate *in, int32_t unit) {
  return raise(ctx, trunc_unit(view(ctx), out, in, unit));
}

KELAPI int32_t ldxrnd(ldxctx *ctx, ldxdate *out, const ldxdate *in, int32_t unit) {
  return raise(ctx, round_unit(view(ctx), out, in, unit));
}

KELAPI int32_t ldxgpc(ldxctx *ctx, const char *fmt, size_t len) {
  ldxctx local{};
  ldxctx *c = ctx ? ctx : &local;
  ldxscan s;
  ldxsni(c, &s, fmt, len);
  int32_t first = 0;
  int32_t err = 0;
  for (;;) {
    int32_t code = scan_next(c, &s, &err);
    if (code < 0) break;
    if (code == LDX_ITEM_END) break;
    if (code == LDX_ITEM_LITERAL) continue;
    if (first) {
      err = E_UNIT_MORE;
      break;
    }
    first = code;
  }
  if (!err) {
    bool ok = (first >= 1 && first <= 10) || first == 12 || (first >= 14 && first <= 26) ||
              (first >= 29 && first <= 33) || first == 38 || first == 40 || first == 41 ||
              first == 43 || first == 44 || first == 45;
    if (!ok) err = E_UNIT;
  }
  if (err) {
    raise(ctx, err);
    return 0;
  }
  return first;
}

}  // extern "C"
