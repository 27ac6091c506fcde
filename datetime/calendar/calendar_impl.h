// calendar_impl.h - the calendar: day numbers, the Julian/Gregorian switch,
// leap years, calendar dates from day numbers, and instants counted in
// seconds. The date kernel, the datetime types, the time-zone lookups and
// the image compiler (tools/keltzc) all count days with these functions.
//
// Day 1 is 1 January -4712, a year kept common on purpose; from 1 March -4712
// on the numbers are the astronomical Julian day numbers. Up to 4 October
// 1582 dates are Julian-calendar dates, from 15 October 1582 Gregorian; the
// ten dates between do not exist and map onto 15 ... 24 October when
// converted. An instant in seconds counts from midnight starting day 0, so
// that seconds / 86400 (rounded down) is the day number.
//
// Nothing here validates: callers give months 1 ... 12 (ctj keeps any other
// month inside its table) and take the results as they are.
#ifndef KEL_DATETIME_CALENDAR_CALENDAR_IMPL_H
#define KEL_DATETIME_CALENDAR_CALENDAR_IMPL_H

#include <cstdint>

namespace ldx_internal {

// The date family's error numbers (texts in ldx_errors.def).
enum Err : int32_t {
#define LDX_ERROR(num, name, text) E_##name = num,
#include "datetime/calendar/ldx_errors.def"
#undef LDX_ERROR
};

constexpr int32_t kMaxJday = 5373484;      // 31 December 9999
constexpr int32_t kGregStart = 2299161;    // 15 October 1582
constexpr int32_t kUnixEpochJday = 2440588;  // 1 January 1970
constexpr int64_t kDaySecs = 86400;
constexpr int16_t kDaysBefore[14] = {0, 0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

constexpr bool is_leap(int32_t y) {
  if (y % 4 != 0) return false;
  if (y <= 1582) return y != -4712;
  return y % 100 != 0 || y % 400 == 0;
}
constexpr int32_t days_in_month(int32_t y, int32_t m) {
  return kDaysBefore[m + 1] - kDaysBefore[m] + (m == 2 && is_leap(y) ? 1 : 0);
}
constexpr int32_t day_of_year(int32_t y, int32_t m, int32_t d) {
  return kDaysBefore[m] + d + (m >= 3 && is_leap(y) ? 1 : 0);
}

// Day number of (y, m, d) by the kernel's defining steps: a base for the
// year (none for -4712), the Gregorian correction from 1583, the days before
// the month and the leap day, ten days fewer from 15 October 1582. Sums are
// taken in 64 bits so that no year makes them overflow.
constexpr int32_t ctj_plain(int32_t y, int32_t m, int32_t d) {
  if (m < 1) m = 1;
  if (m > 12) m = 12;
  int64_t base = 0;
  if (y != -4712) {
    base = 365 * int64_t{y} + 1719880 + (int64_t{y} + 4711) / 4;
    if (y >= 1583) base += (int64_t{y} - 1201) / 400 - (int64_t{y} - 1501) / 100 - 10;
  }
  int64_t j = base + kDaysBefore[m] + d;
  if (m >= 3 && is_leap(y)) ++j;
  if (y == 1582 && (m > 10 || (m == 10 && d >= 15))) j -= 10;
  return static_cast<int32_t>(j);
}

// Days from 1 March to the first of month m (1 ... 12) of a year counted
// from March.
constexpr int16_t kDaysFromMarch[13] = {0, 306, 337, 0, 31, 61, 92, 122, 153, 184, 214, 245, 275};

// The same day number, the common case without branches: for years -4711 ...
// 9999, months 1 ... 12 and days 1 ... 31 the year is counted from March (so
// that the leap day ends it), the Julian leap years are a shift, and the
// Gregorian correction is added from 15 October 1582 on, chosen by one
// comparison of the date packed into one integer. Anything else takes the
// defining steps. The two agree everywhere (tests/datetime/calendar).
constexpr int32_t ctj(int32_t y, int32_t m, int32_t d) {
  const bool common = (static_cast<uint32_t>(y + 4711) <= 14710u) & (static_cast<uint32_t>(m - 1) <= 11u) &
                      (static_cast<uint32_t>(d - 1) <= 30u);
  if (!common) return ctj_plain(y, m, d);
  const int32_t yy = y - (m < 3);  // -4712 ... 9999
  const int32_t julian = 365 * yy + ((yy + 4712) >> 2) + kDaysFromMarch[m] + d + (1721117 - 1178);
  const uint32_t uy = static_cast<uint32_t>(yy);  // only read when positive
  const int32_t correction = static_cast<int32_t>(uy / 400 - uy / 100) + 2;
  const bool gregorian = (y << 9 | m << 5 | d) >= (1582 << 9 | 10 << 5 | 15);
  return julian + (gregorian ? correction : 0);
}

// Month and day of day `doy` of year y; day 366 of a common year is E_DOY366
// (the outputs then hold month 13, day 1).
constexpr int32_t dyc(int32_t y, int32_t doy, int32_t *m, int32_t *d) {
  const int32_t leap = is_leap(y) ? 1 : 0;
  const int32_t t = doy > 59 + leap ? doy + 2 - leap : doy;
  const int32_t mo = (t + 91) * 100 / 3055 - 2;
  *m = mo;
  *d = (t + 91) - (mo + 2) * 3055 / 100;
  return doy == 366 && !leap ? E_DOY366 : 0;
}

// Calendar date of day number j: 0, or E_JDAY for j < 1 (outputs untouched).
constexpr int32_t jtc(int32_t j, int32_t *y, int32_t *m, int32_t *d) {
  if (j < 1) return E_JDAY;
  if (j < 366) {
    *y = -4712;
    return dyc(-4712, j, m, d);
  }
  if (j < kGregStart) {
    const int32_t g = (j - 366) / 1461;
    const int32_t r = j - 366 - 1461 * g;
    const int32_t k = r / 365, dd = r % 365;
    if (dd == 0 && k == 4) {
      *y = 4 * g - 4708;
      return dyc(*y, 366, m, d);
    }
    *y = 4 * g + k - 4711;
    return dyc(*y, dd + 1, m, d);
  }
  const int64_t a = 4 * static_cast<int64_t>(j) - 6884477;
  const int64_t q = a / 146097;
  const int64_t b = 4 * ((a - 146097 * q) / 4) + 3;
  const int64_t e = ((b % 1461) / 4) * 5 + 2;
  const int64_t mm = e / 153;
  *d = static_cast<int32_t>((e % 153) / 5 + 1);
  *m = static_cast<int32_t>(mm < 10 ? mm + 3 : mm - 9);
  *y = static_cast<int32_t>(b / 1461 + 100 * q + (mm >= 10 ? 1 : 0));
  return 0;
}

// Day of week 1 ... 7 of day number j counted from `first_day` (0 = Sunday);
// iso_wday: 0 = Monday ... 6 = Sunday.
constexpr int32_t dow(int32_t j, int32_t first_day) {
  int32_t r = (j - first_day - 2445029) % 7;
  return (r < 0 ? r + 7 : r) + 1;
}
constexpr int32_t iso_wday(int32_t j) {
  int32_t r = (j - 2445030) % 7;
  return r < 0 ? r + 7 : r;
}

// ------------------------------------------------------ instants in seconds

// A calendar date and time of day.
struct Civil {
  int32_t year, month, day, hour, minute, second;
};

// Hour, minute and second of a second of the day (0 ... 86399).
struct Hms {
  int32_t hour, minute, second;
};
constexpr Hms hms_of(int32_t sod) { return {sod / 3600, sod / 60 % 60, sod % 60}; }

constexpr int64_t to_seconds(int32_t y, int32_t m, int32_t d, int32_t hh, int32_t mi, int32_t ss) {
  return static_cast<int64_t>(ctj(y, m, d)) * kDaySecs + hh * 3600 + mi * 60 + ss;
}

// Day number and second of day of an instant, rounded down.
constexpr void split_seconds(int64_t s, int64_t *days, int32_t *sod) {
  int64_t q = s / kDaySecs, r = s % kDaySecs;
  if (r < 0) {
    r += kDaySecs;
    --q;
  }
  *days = q;
  *sod = static_cast<int32_t>(r);
}

// The calendar date and time of an instant whose day number is 1 ...
// kMaxJday (false, *c untouched, for any other).
constexpr bool from_seconds(int64_t s, Civil *c) {
  int64_t days = 0;
  int32_t sod = 0;
  split_seconds(s, &days, &sod);
  if (days < 1 || days > kMaxJday) return false;
  jtc(static_cast<int32_t>(days), &c->year, &c->month, &c->day);
  const Hms t = hms_of(sod);
  c->hour = t.hour;
  c->minute = t.minute;
  c->second = t.second;
  return true;
}

// Seconds between the start of day 0 and the Unix epoch.
constexpr int64_t kUnixEpochSecs = kUnixEpochJday * kDaySecs;

}  // namespace ldx_internal

#endif  // KEL_DATETIME_CALENDAR_CALENDAR_IMPL_H
