// The silent calendar kernel: ISO weeks and years, adding days and seconds,
// adding months with the month-end rule, the external 7-byte and 11-byte
// forms, and the current date. Results and error numbers only; the exported
// functions (calendar.cpp, units.cpp) raise the errors.
#include <atomic>

#include "datetime/calendar/ldx_impl.h"
#include "sl.h"

namespace ldx_internal {

int32_t iso_week(int32_t y, int32_t m, int32_t d) {
  int32_t doy = day_of_year(y, m, d);
  int32_t w = iso_wday(ctj(y, 1, 1));
  int32_t week = (doy + (w < 4 ? w + 6 : w - 1)) / 7;
  if (week == 0) {
    int32_t pw = iso_wday(ctj(y - 1, 1, 1));
    int32_t pdoy = doy + 365 + (is_leap(y - 1) ? 1 : 0);
    week = (pdoy + (pw < 4 ? pw + 6 : pw - 1)) / 7;
  } else if (week == 53) {
    if (iso_wday(ctj(y + 1, 1, 1)) < 4) week = 1;
  }
  return week;
}

int32_t iso_year(int32_t y, int32_t m, int32_t d) {
  int32_t doy = day_of_year(y, m, d);
  if (doy < 4) {
    int32_t w = iso_wday(ctj(y, 1, 1));
    if (w > 3 && doy <= 7 - w) return y - 1;
  } else if (doy >= 363) {
    int32_t w = iso_wday(ctj(y + 1, 1, 1));
    int32_t len = 365 + (is_leap(y) ? 1 : 0);
    if (w < 4 && len - doy < w) return y + 1;
  }
  return y;
}

int32_t add_days(ldxdate *out, const ldxdate *in, int32_t days, int64_t secs) {
  ldxdate r = *in;
  int64_t dd = days;
  if (secs != 0) {
    int64_t carry = 0;
    int32_t sod = 0;
    split_seconds((static_cast<int64_t>(in->hour) * 60 + in->minute) * 60 + in->second + secs, &carry, &sod);
    dd += carry;
    set_hms(&r, sod);
  }
  int32_t err = 0;
  if (dd != 0) {
    int64_t j = ctj(in->year, in->month, in->day) + dd;
    if (j < 1 || j > kMaxJday) {
      // Days beyond 9999 would decode to year 10000 or more.
      err = E_RANGE_YEAR;
    } else {
      int32_t y = 0, m = 0, d = 0;
      jtc(static_cast<int32_t>(j), &y, &m, &d);
      r.year = static_cast<int16_t>(y);
      r.month = static_cast<int8_t>(m);
      r.day = static_cast<int8_t>(d);
    }
  }
  *out = r;
  return err;
}

int32_t add_months(ldxdate *out, const ldxdate *in, int32_t months) {
  ldxdate r = *in;
  int64_t n = 12 * static_cast<int64_t>(in->year) + in->month + months;
  int64_t y, m;
  int32_t err = 0;
  if (n <= 0) {
    y = n / 12 - 1;
    m = n % 12 + 12;
    if (y < -4712) err = E_RANGE_YEAR;
  } else {
    y = n / 12 - (n % 12 == 0 ? 1 : 0);
    m = n % 12 == 0 ? 12 : n % 12;
    // The bound is tested on n / 12 - 1 on purpose: January ... November of
    // year 10000 are let through here.
    if (n / 12 - 1 > 9999) err = E_RANGE_YEAR;
  }
  if (err) {
    *out = r;
    return err;
  }
  int32_t last_in = days_in_month(in->year, in->month);
  int32_t last_out = days_in_month(static_cast<int32_t>(y), static_cast<int32_t>(m));
  int32_t day = in->day == last_in ? last_out : (in->day < last_out ? in->day : last_out);
  r.year = static_cast<int16_t>(y);
  r.month = static_cast<int8_t>(m);
  r.day = static_cast<int8_t>(day);
  *out = r;
  return 0;
}

// ------------------------------------------------------------ external forms

void to_ext7(const ldxdate &d, uint8_t out[7]) {
  int32_t y = d.year;
  if (y >= 0) {
    out[0] = static_cast<uint8_t>(y / 100 + 100);
    out[1] = static_cast<uint8_t>(y % 100 + 100);
  } else {
    out[0] = static_cast<uint8_t>(100 - (-y) / 100);
    out[1] = static_cast<uint8_t>(100 - (-y) % 100);
  }
  out[2] = static_cast<uint8_t>(d.month);
  out[3] = static_cast<uint8_t>(d.day);
  out[4] = static_cast<uint8_t>(d.hour + 1);
  out[5] = static_cast<uint8_t>(d.minute + 1);
  out[6] = static_cast<uint8_t>(d.second + 1);
}

void from_ext7(const uint8_t in[7], ldxdate *d) {
  d->year = static_cast<int16_t>(in[0] * 100 + in[1] - 10100);
  d->month = static_cast<int8_t>(in[2]);
  d->day = static_cast<int8_t>(in[3]);
  d->hour = static_cast<int8_t>(in[4] - 1);
  d->minute = static_cast<int8_t>(in[5] - 1);
  d->second = static_cast<int8_t>(in[6] - 1);
}

void to_ext11(const ldxdate &d, uint32_t nanos, uint8_t out[11]) {
  to_ext7(d, out);
  out[7] = static_cast<uint8_t>(nanos >> 24);
  out[8] = static_cast<uint8_t>(nanos >> 16);
  out[9] = static_cast<uint8_t>(nanos >> 8);
  out[10] = static_cast<uint8_t>(nanos);
}

void from_ext11(const uint8_t in[11], ldxdate *d, uint32_t *nanos) {
  from_ext7(in, d);
  *nanos = (uint32_t{in[7]} << 24) | (uint32_t{in[8]} << 16) | (uint32_t{in[9]} << 8) | in[10];
}

// ------------------------------------------------------------ "now"

namespace {
// Tests pin the clock so that the century window and the defaults taken
// from the current date can be checked; relaxed is enough for a setting
// made before the readers run.
std::atomic<int64_t> g_pinned_us{0};
}  // namespace

void pin_now_for_test(int64_t us) { g_pinned_us.store(us, std::memory_order_relaxed); }

void now(ldxdate *d) {
  int64_t pinned = g_pinned_us.load(std::memory_order_relaxed);
  int64_t us = pinned ? pinned : slwallus();
  // Floor division: a clock before 1970 still names the second it is in.
  int64_t secs = us / 1000000 - (us % 1000000 < 0 ? 1 : 0);
  Civil c{};
  from_seconds(kUnixEpochSecs + secs, &c);
  *d = ldxdate{};
  set_ymd(d, c.year, c.month, c.day);
  set_hms(d, c.hour, c.minute, c.second);
}

}  // namespace ldx_internal

