// The calendar kernel against independent oracles: Python's datetime for the
// Gregorian era (one generated file per run), a Julian-calendar day count
// written here for the era before, and a separate implementation of the
// month-end rule.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "datetime/calendar/ldx_impl.h"
#include "ldx.h"
#include "tests/datetime/datetime_test.h"

namespace {

using namespace ldx_internal;
using namespace dttest;

static_assert(sizeof(ldxdate) == 8 && offsetof(ldxdate, month) == 2 && offsetof(ldxdate, second) == 6 &&
              offsetof(ldxdate, spare) == 7);
static_assert(sizeof(ldxdays) == 8 && offsetof(ldxdays, seconds) == 4);
static_assert(sizeof(ldxctx) == 104 && offsetof(ldxctx, deffmt) == 56 && sizeof(((ldxctx *)0)->deffmt) == 48);

// Julian-calendar day number by the classic astronomical formula (years
// counted astronomically; -4712 leap). Independent of the kernel.
int64_t julian_jdn(int64_t y, int64_t m, int64_t d) {
  int64_t a = (14 - m) / 12;
  int64_t yy = y + 4800 - a;
  int64_t mm = m + 12 * a - 3;
  return d + (153 * mm + 2) / 5 + 365 * yy + yy / 4 - 32083;
}

TEST(DateKernel, ReferenceDayNumbers) {
  Ctx x;
  const struct {
    int y, m, d;
    int32_t j;
  } cases[] = {{1, 1, 1, 1721424},      {0, 1, 1, 1721058},     {-1, 12, 31, 1721057},
               {1582, 10, 4, 2299160}, {1582, 10, 15, 2299161}, {1970, 1, 1, 2440588},
               {2000, 1, 1, 2451545}, {9999, 12, 31, 5373484}, {-4712, 1, 1, 1},
               {-4712, 12, 31, 365}, {-4711, 1, 1, 366}, {-4712, 3, 1, 60},
               {1582, 10, 5, 2299161},  {1582, 10, 14, 2299170}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.j);
    EXPECT_EQ(ldxctj(&x.c, c.y, c.m, c.d), c.j);
    if (!(c.y == 1582 && c.m == 10 && c.d > 4 && c.d < 15)) {
      ldxdate out = D(0, 0, 0, 7, 8, 9);
      ASSERT_EQ(ldxjtc(&x.c, c.j, &out), 0);
      EXPECT_EQ(out.year, c.y);
      EXPECT_EQ(out.month, c.m);
      EXPECT_EQ(out.day, c.d);
      EXPECT_EQ(out.hour, 7);  // time untouched
    }
  }
  ldxdate out{};
  EXPECT_EQ(ldxjtc(&x.c, 0, &out), -1);
  EXPECT_EQ(ldxjtc(&x.c, -5, &out), -1);
  EXPECT_EQ(x.rec.errs, (std::vector<int32_t>{1854, 1854}));
  // The day form and back; the spare byte is cleared.
  const ldxdate d = D(2000, 1, 1, 12, 30, 15);
  ldxdays s;
  ldxdtd(nullptr, &d, &s);
  EXPECT_EQ(int64_t{s.days} * 100000 + s.seconds, 2451545LL * 100000 + 45015);
  std::memset(&out, 0xAB, sizeof out);
  ASSERT_EQ(ldxdfd(nullptr, &s, &out), 0);
  EXPECT_EQ(std::memcmp(&out, &d, sizeof d), 0);
  // A context without a callback drops errors but still fails.
  ldxctx quiet{};
  ldxdays bad{0, 0};
  EXPECT_EQ(ldxdfd(&quiet, &bad, &out), -1);
}

// ctj takes the common dates a shorter way; every date, the edges around
// the common ones and dates no calendar has give what the defining steps
// give.
TEST(DateKernel, FastDayNumbersAreTheDefiningSteps) {
  for (int32_t y = -4720; y <= 10010; ++y)
    for (int32_t m = -1; m <= 14; ++m)
      for (int32_t d = -1; d <= 33; ++d)
        if (ctj(y, m, d) != ctj_plain(y, m, d)) FAIL() << y << "-" << m << "-" << d;
  for (int32_t y : {-1000000, -40000, 40000, 1000000})
    for (int32_t d : {1, 40, -100000})
      EXPECT_EQ(ctj(y, 3, d), ctj_plain(y, 3, d)) << y << " " << d;
}

TEST(DateKernel, LeapRuleAndDayOfYear) {
  Ctx x;
  for (int y : {-4708, 0, -100, 100, 1500, 1600, 2000, 2024, 9996, -4712, 1582, 1700, 1900, 2023, -1}) {
    const bool leap = y > -4712 && y % 4 == 0 && (y < 1583 || y % 100 != 0 || y % 400 == 0);
    EXPECT_EQ(is_leap(y), leap) << y;
    int32_t m, d;
    x.rec.errs.clear();
    ldxdyc(&x.c, y, 366, &m, &d);
    EXPECT_EQ(x.rec.errs.size(), leap ? 0u : 1u) << y;
    ldxdyc(&x.c, y, 60, &m, &d);
    EXPECT_EQ(m * 100 + d, leap ? 229 : 301) << y;
  }
  // Every day of a common and a leap year, counted through the months.
  for (int y : {2023, 2024})
    for (int32_t doy = 1, m = 1, d = 1; m <= 12; ++doy, d = d < days_in_month(y, m) ? d + 1 : (++m, 1)) {
      int32_t om, od;
      ASSERT_EQ(ldxdyc(&x.c, y, doy, &om, &od), 0);
      ASSERT_EQ(om * 100 + od, m * 100 + d) << y << " day " << doy;
    }
}

// Loads the Python oracle (generated once per process).
const std::vector<uint16_t> &oracle() {
  static std::vector<uint16_t> data = [] {
    std::string path = std::string(KEL_BINARY_DIR) + "/datetime_oracle.bin";
    std::vector<uint16_t> v;
    if (!run_script("calendar/calendar_oracle.py", path)) return v;
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return v;
    std::fseek(f, 0, SEEK_END);
    long n = std::ftell(f);
    std::fseek(f, 0, SEEK_SET);
    v.resize(static_cast<size_t>(n) / 2);
    size_t got = std::fread(v.data(), 2, v.size(), f);
    std::fclose(f);
    v.resize(got);
    return v;
  }();
  return data;
}

TEST(DateKernel, EveryDayAgreesWithPythonAndJulianCalendar) {
  Ctx x;
  const auto &py = oracle();
  ASSERT_EQ(py.size(), static_cast<size_t>(kMaxJday - kGregStart + 1) * 4) << "oracle not generated";
  size_t bad = 0;
  for (int32_t j = 1; j <= kMaxJday && bad < 10; ++j) {
    ldxdate d{};
    int32_t y, m, dd;
    if (jtc(j, &y, &m, &dd) != 0 || ctj(y, m, dd) != j || (ldxchk(nullptr, &(d = D(y, m, dd)), 0) & ~0x2000u) != 0) {
      ADD_FAILURE() << "round trip or validity at day " << j;
      ++bad;
      continue;
    }
    const int32_t wd = ldxdow(&x.c, j);  // 1 = Sunday
    if (j >= kGregStart) {
      const uint16_t *r = &py[static_cast<size_t>(j - kGregStart) * 4];
      const int py_wd_sun = (r[2] & 0xFF) % 7 + 1;
      bool ok = r[0] == y && (r[1] >> 8) == m && (r[1] & 0xFF) == dd && py_wd_sun == wd;
      // ISO weeks count days of the year from the Julian 1 January 1582, so
      // the weeks of ISO year 1582 (up to 2 January 1583) run one ahead of
      // the proleptic calendar; the ISO year itself agrees throughout.
      ok = ok && r[3] == iso_year(y, m, dd);
      if (r[3] > 1582) ok = ok && (r[2] >> 8) == iso_week(y, m, dd);
      if (!ok) {
        ADD_FAILURE() << "day " << j << " kernel " << y << "-" << m << "-" << dd << " wd " << wd << " iw "
                      << iso_week(y, m, dd) << " iy " << iso_year(y, m, dd) << " python " << r[0] << "-"
                      << (r[1] >> 8) << "-" << (r[1] & 0xFF) << " wd " << py_wd_sun << " iw " << (r[2] >> 8)
                      << " iy " << r[3];
        ++bad;
      }
    } else {
      // Before the switch: the Julian calendar, with -4712 kept common so that
      // January and February of that year are one day later.
      int64_t jdn = julian_jdn(y, m, dd);
      int64_t want = (y == -4712 && m <= 2) ? jdn + 1 : jdn;
      int want_wd = static_cast<int>((jdn + 1) % 7) + 1;
      if (want != j || (j >= 60 && want_wd != wd)) {
        ADD_FAILURE() << "day " << j << " julian oracle " << want << " weekday " << want_wd << " got " << wd;
        ++bad;
      }
    }
  }
}

TEST(DateKernel, ValidityFlags) {
  const struct {
    ldxdate d;
    uint32_t flags;
  } dates[] = {
      {D(2024, 2, 29), 0}, {D(2023, 2, 29), 0x0001}, {D(2024, 4, 31), 0x0001},
      {D(2024, 1, 32), 0x0001}, {D(2024, 1, 0), 0x0003}, {D(2024, 13, 1), 0x0004},
      {D(2024, 0, 1), 0x000C}, {D(10000, 1, 1), 0x0010}, {D(-4713, 1, 1), 0x0030},
      {D(2024, 1, 1, 24), 0x0040}, {D(2024, 1, 1, 0, 60), 0x0100}, {D(2024, 1, 1, 0, 0, 60), 0x0400},
      {D(1582, 10, 10), 0x1000}, {D(1582, 10, 4), 0}, {D(1582, 10, 15), 0},
      {D(0, 1, 1), 0x2000}, {D(-4712, 2, 29), 0x0001}, {D(0, 2, 29), 0x2000},
      {D(2024, 0, 0, -1, -1, -1), 0x000C | 0x0003 | 0x0040 | 0x0100 | 0x0400},
  };
  for (const auto &c : dates) {
    SCOPED_TRACE(testing::Message() << c.d.year << "-" << int(c.d.month) << "-" << int(c.d.day));
    EXPECT_EQ(ldxchk(nullptr, &c.d, 0), c.flags);
    // The same through the 7-byte form, where it can be encoded.
    if (c.d.month >= 0 && c.d.hour >= 0 && c.d.minute >= 0 && c.d.second >= 0 && c.d.year >= -4799 &&
        c.d.year <= 9999) {
      uint8_t b[7];
      to_ext7(c.d, b);
      ldxdate back{};
      from_ext7(b, &back);
      EXPECT_EQ(ldxcmp(nullptr, &back, &c.d), 0);
      EXPECT_EQ(ldxchk(nullptr, b, 2), c.flags);
    }
  }
  const struct {
    uint8_t b[7];
    uint32_t flags;
  } bytes[] = {
      {{120, 124, 1, 1, 1, 1, 1}, 0}, {{120, 124, 1, 1, 0, 1, 1}, 0x00C0},
      {{120, 124, 1, 1, 25, 1, 1}, 0x0040}, {{120, 124, 1, 1, 1, 0, 1}, 0x0300},
      {{120, 124, 1, 1, 1, 61, 1}, 0x0100}, {{120, 124, 1, 1, 1, 1, 0}, 0x0C00},
      {{120, 124, 1, 1, 1, 1, 61}, 0x0400}, {{52, 124, 1, 1, 1, 1, 1}, 0x0030},
      {{120, 0, 1, 1, 1, 1, 1}, 0x0030}, {{200, 100, 1, 1, 1, 1, 1}, 0x0010},
      {{120, 124, 13, 31, 1, 1, 1}, 0x0004}, {{120, 124, 13, 32, 1, 1, 1}, 0x0005},
      {{120, 124, 0, 31, 1, 1, 1}, 0x000C}, {{53, 88, 1, 1, 1, 1, 1}, 0}, {{100, 99, 12, 31, 24, 60, 60}, 0},
  };
  for (const auto &c : bytes) {
    SCOPED_TRACE(testing::Message() << int(c.b[0]) << "," << int(c.b[1]) << "," << int(c.b[2]));
    EXPECT_EQ(ldxchk(nullptr, c.b, 2), c.flags);
  }
  const struct {
    ldxdays d;
    uint32_t flags;
  } days[] = {{{1, 0}, 0}, {{5373484, 86399}, 0}, {{5373485, 0}, 0x0001}, {{0, 0}, 0x0003},
              {{-7, 0}, 0}, {{1, 86400}, 0x0400}};
  for (const auto &c : days) EXPECT_EQ(ldxchk(nullptr, &c.d, 1), c.flags);
  ldxdate any{};
  EXPECT_EQ(ldxchk(nullptr, &any, 3), 0x8000u);
}

TEST(DateKernel, ExternalFormsEncodeTheDocumentedBytes) {
  const struct {
    int y;
    uint8_t b0, b1;
  } cases[] = {{2024, 120, 124}, {-1, 100, 99}, {-4712, 53, 88}, {1, 100, 101}, {-100, 99, 100}, {9999, 199, 199}};
  for (auto c : cases) {
    uint8_t b[11];
    to_ext11(D(c.y, 12, 31, 23, 59, 58), 123456789u, b);
    EXPECT_EQ(b[0], c.b0);
    EXPECT_EQ(b[1], c.b1);
    EXPECT_EQ(b[4], 24);
    EXPECT_EQ(b[6], 59);
    EXPECT_EQ((b[7] << 24 | b[8] << 16 | b[9] << 8 | b[10]), 123456789);
    ldxdate d;
    uint32_t ns;
    from_ext11(b, &d, &ns);
    EXPECT_EQ(d.year, c.y);
    EXPECT_EQ(ns, 123456789u);
  }
}

TEST(DateKernel, CompareIgnoresSpareByte) {
  ldxdate a = D(2024, 5, 6, 7, 8, 9), b = a;
  b.spare = 77;
  EXPECT_EQ(ldxcmp(nullptr, &a, &b), 0);
  const ldxdate later[] = {D(2025, 1, 1), D(2024, 6, 1), D(2024, 5, 7), D(2024, 5, 6, 8), D(2024, 5, 6, 7, 9),
                           D(2024, 5, 6, 7, 8, 10)};
  for (const auto &l : later) {
    EXPECT_EQ(ldxcmp(nullptr, &a, &l), -1);
    EXPECT_EQ(ldxcmp(nullptr, &l, &a), 1);
  }
}

TEST(DateKernel, AddDaysAndSeconds) {
  Ctx x;
  const struct {
    ldxdate in;
    int32_t days, secs;
    const char *want;
  } cases[] = {
      {D(1582, 10, 4), 1, 0, "1582-10-15 00:00:00"}, {D(2024, 1, 3), 0, -86401, "2024-01-01 23:59:59"},
      {D(9999, 12, 31), 1, 0, "error 1841"}, {D(-4712, 1, 1), -1, 0, "error 1841"},
      {D(2024, 2, 28, 23, 0, 0), 0, 3600, "2024-02-29 00:00:00"}, {D(-1, 12, 31, 23, 59, 59), 0, 1, "0-01-01 00:00:00"},
      {D(2000, 1, 1, 12), 365, 86400 * 3 + 1, "2001-01-03 12:00:01"},
  };
  for (const auto &c : cases) {
    ldxdate out{};
    const ldxdays inc{c.days, c.secs};
    const int32_t r = ldxads(&x.c, &out, &c.in, &inc);
    EXPECT_EQ(r ? "error " + std::to_string(x.last()) : str(out), c.want) << str(c.in);
  }
  // Random increments against day-number arithmetic.
  std::mt19937 rng(7);
  for (int i = 0; i < 20000; ++i) {
    const int32_t j = static_cast<int32_t>(rng() % kMaxJday) + 1, sod = static_cast<int32_t>(rng() % 86400);
    const ldxdays inc{static_cast<int32_t>(rng() % 20000) - 10000, static_cast<int32_t>(rng() % 2000000) - 1000000};
    const ldxdays at{j, sod};
    ldxdate in{}, out{};
    ldxdfd(nullptr, &at, &in);
    const int64_t total = (int64_t{j} + inc.days) * 86400 + sod + inc.seconds, wj = total / 86400;
    x.rec.errs.clear();
    ldxads(&x.c, &out, &in, &inc);
    if (wj < 1 || wj > kMaxJday) {
      EXPECT_EQ(x.rec.errs, std::vector<int32_t>{1841});
      continue;
    }
    ldxdays got;
    ldxdtd(nullptr, &out, &got);
    ASSERT_EQ(got.days * int64_t{86400} + got.seconds, total) << str(in) << " + " << inc.days << " d " << inc.seconds;
  }
}

// The month-end rule, written independently: months counted from year 0;
// false when the result is out of range.
bool add_months_oracle(int64_t y, int64_t m, int64_t d, int64_t k, int64_t *out) {
  auto mlen = [](int64_t yy, int64_t mm) {
    const bool leap = yy % 4 == 0 && (yy < 1583 ? yy != -4712 : yy % 100 != 0 || yy % 400 == 0);
    return int64_t{"\37\34\37\36\37\36\37\37\36\37\36\37"[mm - 1]} + (mm == 2 && leap);
  };
  const int64_t idx = y * 12 + (m - 1) + k;  // floor-based month index
  const int64_t ny = idx >= 0 ? idx / 12 : -((-idx + 11) / 12), nm = idx - ny * 12 + 1;
  if (ny < -4712 || ny > 10000 || (ny == 10000 && nm == 12)) return false;
  *out = ny * 10000 + nm * 100 + (d == mlen(y, m) ? mlen(ny, nm) : std::min(d, mlen(ny, nm)));
  return true;
}

TEST(DateKernel, AddMonthsFollowsTheMonthEndRule) {
  Ctx x;
  const struct {
    ldxdate in;
    int32_t k;
    const char *want;
  } fixed[] = {{D(2000, 1, 31), 1, "2000-02-29 00:00:00"},          {D(2000, 2, 29), 12, "2001-02-28 00:00:00"},
               {D(2001, 2, 28), 1, "2001-03-31 00:00:00"}, {D(2024, 4, 30, 1, 2, 3), 1, "2024-05-31 01:02:03"},
               {D(1, 1, 15), -1, "0-12-15 00:00:00"}, {D(0, 1, 15), -1, "-1-12-15 00:00:00"},
               {D(9999, 12, 31), 11, "10000-11-30 00:00:00"}};
  for (const auto &c : fixed) {
    ldxdate out{};
    ASSERT_EQ(ldxadm(&x.c, &out, &c.in, c.k), 0);
    EXPECT_EQ(str(out), c.want);
  }
  std::mt19937 rng(11);
  int checked = 0;
  for (int i = 0; i < 200000; ++i) {
    int32_t y, m, d;
    jtc(static_cast<int32_t>(rng() % kMaxJday) + 1, &y, &m, &d);
    // Month ends weigh most: that is where the rule acts.
    if (rng() % 3) d = days_in_month(y, m) - static_cast<int32_t>(rng() % 2);
    const int32_t k = static_cast<int32_t>(rng() % 4 == 0 ? rng() % 240000 - 120000 : rng() % 50 - 25);
    int64_t want = 0;
    const bool ok = add_months_oracle(y, m, d, k, &want);
    ldxdate in = D(y, m, d, 5, 6, 7), out{};
    x.rec.errs.clear();
    const int32_t r = ldxadm(&x.c, &out, &in, k);
    ASSERT_EQ(r, ok ? 0 : -1) << str(in) << " + " << k;
    ASSERT_EQ(x.rec.errs, ok ? std::vector<int32_t>{} : std::vector<int32_t>{1841});
    if (!ok) continue;
    ASSERT_EQ(out.year * 10000 + out.month * 100 + out.day, want) << str(in) << " + " << k;
    ASSERT_EQ(out.hour * 3600 + out.minute * 60 + out.second, 5 * 3600 + 6 * 60 + 7);
    ++checked;
  }
  EXPECT_GT(checked, 150000);
}

TEST(DateKernel, LastDayNextWeekdayAndWeekdayNumbering) {
  Ctx x;
  const struct {
    ldxdate in;
    int day;
  } last[] = {{D(2024, 2, 10), 29}, {D(2023, 2, 1), 28}, {D(1500, 2, 1), 29}, {D(1700, 2, 1), 28}, {D(2024, 12, 5), 31}};
  for (const auto &c : last) {
    ldxdate out{};
    ldxldd(&x.c, &out, &c.in);
    EXPECT_EQ(out.day, c.day);
  }
  // 2024-05-15 is a Wednesday (4 in Sunday-first numbering).
  ldxdate wed = D(2024, 5, 15, 10, 11, 12);
  EXPECT_EQ(ldxdow(&x.c, ldxctj(&x.c, 2024, 5, 15)), 4);
  for (int want = 1; want <= 7; ++want) {
    ldxdate out{};
    ASSERT_EQ(ldxnxd(&x.c, &out, &wed, want), 0);
    int32_t j = ldxctj(&x.c, out.year, out.month, out.day);
    int32_t j0 = ldxctj(&x.c, 2024, 5, 15);
    EXPECT_GT(j, j0);
    EXPECT_LE(j, j0 + 7);
    EXPECT_EQ(ldxdow(&x.c, j), want);
    EXPECT_EQ(out.hour, 10);
  }
  ldxdate end = D(9999, 12, 31);
  ldxdate out{};
  x.rec.errs.clear();
  EXPECT_EQ(ldxnxd(&x.c, &out, &end, 1), -1);
  EXPECT_EQ(ldxnxd(&x.c, &out, &wed, 0), -1);
  EXPECT_EQ(ldxnxd(&x.c, &out, &wed, 8), -1);
  EXPECT_EQ(x.rec.errs, (std::vector<int32_t>{1841, 1846, 1846}));
}

}  // namespace
