// tz_datetime_impl.h - the small part of datetime arithmetic that the
// time-zone lookups need: day numbers, comparison of two datetime records and
// adding a signed number of minutes (or seconds) to one.
//
// These helpers are meant to be shared with the datetime family proper:
//  - ldi_internal::day_number / civil_from_day_number follow the library's day
//    numbering (day 1 = 1 January -4712, Julian calendar up to 4 October 1582,
//    Gregorian from 15 October 1582, year -4712 a common year);
//  - compare_fields compares year, month, day, hour, minute, second, fraction
//    in that order and returns -1, 0, 1 (zone, kind and region are ignored, so
//    callers bring both values to one zone first);
//  - add_seconds / add_minutes carry through days with the day numbers and
//    leave every other field (fraction, zone, kind, region) as it was.
// They do no validation: fields are taken as they are.
#ifndef KEL_DATETIME_TZ_DATETIME_IMPL_H
#define KEL_DATETIME_TZ_DATETIME_IMPL_H

#include <cstdint>

#include "ldi.h"

namespace ldi_internal {

// Days before each month of a common year, index 1 ... 13.
inline constexpr int32_t kDaysBefore[14] = {0, 0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

constexpr bool is_leap(int32_t y) {
  if (y % 4 != 0) return false;
  if (y <= 1582) return y != -4712;
  return y % 100 != 0 || y % 400 == 0;
}

// Calendar date to day number. No validation: the day may overflow its month;
// a month outside 1 ... 12 is clamped, so that no field value can make the
// table lookup go astray.
constexpr int32_t day_number(int32_t y, int32_t m, int32_t d) {
  if (m < 1) m = 1;
  if (m > 12) m = 12;
  int32_t base = y == -4712 ? 0 : 365 * y + 1719880 + (y + 4711) / 4;
  if (y >= 1583) base += (y - 1201) / 400 - (y - 1501) / 100 - 10;
  int32_t r = base + kDaysBefore[m] + d;
  if (m >= 3 && is_leap(y)) r += 1;
  if (y == 1582 && (m > 10 || (m == 10 && d >= 15))) r -= 10;
  return r;
}

// Day number (>= 1) to calendar date.
constexpr void civil_from_day_number(int32_t j, int32_t &y, int32_t &m, int32_t &d) {
  // Estimate the year, then settle it against the exact conversion.
  int64_t est = (static_cast<int64_t>(j) - 1721058) * 400 / 146097;
  y = static_cast<int32_t>(est);
  if (y < -4712) y = -4712;
  while (y > -4712 && day_number(y, 1, 1) > j) --y;
  while (day_number(y + 1, 1, 1) <= j) ++y;
  // No month is longer than 31 days, so this guess is never too late.
  m = (j - day_number(y, 1, 1)) / 31 + 1;
  if (m > 12) m = 12;
  while (m < 12 && day_number(y, m + 1, 1) <= j) ++m;
  d = j - day_number(y, m, 1) + 1;
  if (y == 1582 && m == 10 && d > 4) d += 10;  // the ten dropped days
}

// Seconds since day number 0 at midnight; the time-of-day fields included.
constexpr int64_t to_seconds(const LdiDateTime &v) {
  return static_cast<int64_t>(day_number(v.year, v.month, v.day)) * 86400 + v.hour * 3600 + v.minute * 60 +
         v.second;
}

// Sets the date and time-of-day fields from a seconds count of to_seconds.
constexpr void from_seconds(LdiDateTime &v, int64_t s) {
  int64_t days = s / 86400;
  int64_t rem = s % 86400;
  if (rem < 0) {
    rem += 86400;
    --days;
  }
  int32_t y = 0, m = 0, d = 0;
  civil_from_day_number(static_cast<int32_t>(days), y, m, d);
  v.year = static_cast<int16_t>(y);
  v.month = static_cast<uint8_t>(m);
  v.day = static_cast<uint8_t>(d);
  v.hour = static_cast<uint8_t>(rem / 3600);
  v.minute = static_cast<uint8_t>(rem / 60 % 60);
  v.second = static_cast<uint8_t>(rem % 60);
}

constexpr void add_seconds(LdiDateTime &v, int64_t seconds) { from_seconds(v, to_seconds(v) + seconds); }
constexpr void add_minutes(LdiDateTime &v, int32_t minutes) { add_seconds(v, static_cast<int64_t>(minutes) * 60); }

// -1, 0, 1 on year, month, day, hour, minute, second, fraction.
constexpr int compare_fields(const LdiDateTime &a, const LdiDateTime &b) {
  const int64_t ka[] = {a.year, a.month, a.day, a.hour, a.minute, a.second, a.fraction};
  const int64_t kb[] = {b.year, b.month, b.day, b.hour, b.minute, b.second, b.fraction};
  for (int i = 0; i < 7; ++i) {
    if (ka[i] != kb[i]) return ka[i] < kb[i] ? -1 : 1;
  }
  return 0;
}

}  // namespace ldi_internal

#endif
