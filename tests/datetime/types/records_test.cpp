// Records, byte forms, rounding, comparison and interval addition: the fixed
// edge cases and round trips of random values.
#include <cstddef>
#include <cstring>
#include <random>
#include <tuple>

#include "datetime/types/ldi_impl.h"
#include "tests/datetime/datetime_test.h"
#include "ldx.h"

using namespace dttest;

namespace {

TEST(LdiRound, FractionalSeconds) {
  struct Case {
    LdiDateTime in;
    int p;
    LdiDateTime want;
  } cases[] = {
      // Carry through every field into the next day; a time wraps.
      {dt(3, 2001, 12, 31, 23, 59, 59, 960000000), 1, dt(3, 2002, 1, 1, 0, 0, 0, 0)},
      {dt(2, 0, 0, 0, 23, 59, 59, 960000000), 1, dt(2, 0, 0, 0, 0, 0, 0, 0)},
      {dt(4, 0, 0, 0, 23, 59, 59, 999999999, 5, 30), 8, dt(4, 0, 0, 0, 0, 0, 0, 0, 5, 30)},
      {dt(3, 2000, 2, 28, 23, 59, 59, 500000000), 0, dt(3, 2000, 2, 29, 0, 0, 0, 0)},
      {dt(3, 1582, 10, 4, 23, 59, 59, 500000000), 0, dt(3, 1582, 10, 15, 0, 0, 0, 0)},
      // Half up, then cut.
      {dt(3, 2024, 5, 6, 7, 8, 9, 123450000), 4, dt(3, 2024, 5, 6, 7, 8, 9, 123500000)},
      {dt(3, 2024, 5, 6, 7, 8, 9, 123449999), 4, dt(3, 2024, 5, 6, 7, 8, 9, 123400000)},
      {dt(3, 2024, 5, 6, 7, 8, 9, 499999999), 0, dt(3, 2024, 5, 6, 7, 8, 9, 0)},
      // Precision 9 and dates are left alone.
      {dt(3, 2024, 5, 6, 7, 8, 9, 123456789), 9, dt(3, 2024, 5, 6, 7, 8, 9, 123456789)},
      {dt(1, 2024, 5, 6), 0, dt(1, 2024, 5, 6)},
  };
  for (const auto &c : cases) {
    LdiDateTime v = c.in;
    ASSERT_EQ(LdiDateRoundFS(&v, c.p), 0);
    EXPECT_EQ(whole(v), whole(c.want)) << whole(c.in) << " p" << c.p;
  }
  LdiDateTime last = dt(3, 9999, 12, 31, 23, 59, 59, 999999999);
  EXPECT_EQ(LdiDateRoundFS(&last, 3), LDI_ERR_YEAR);
}

TEST(LdiArray, EdgeForms) {
  uint8_t b[16];
  size_t n = 0;
  // Fraction 0 at precision 9, and 1 ns at precision 0: 7 bytes.
  LdiDateTime t = dt(3, 2024, 2, 29, 13, 14, 15, 0);
  ASSERT_EQ(LdiDateToArray(&t, 9, nullptr, b, sizeof b, &n, nullptr), 0);
  EXPECT_EQ(n, 7u);
  const uint8_t want7[] = {120, 124, 2, 29, 14, 15, 16};
  EXPECT_EQ(std::memcmp(b, want7, 7), 0);
  t.fraction = 1;
  ASSERT_EQ(LdiDateToArray(&t, 0, nullptr, b, sizeof b, &n, nullptr), 0);
  EXPECT_EQ(n, 7u);
  ASSERT_EQ(LdiDateToArray(&t, 9, nullptr, b, sizeof b, &n, nullptr), 0);
  EXPECT_EQ(n, 11u);
  EXPECT_EQ(b[10], 1);
  // Region 8191 and offset -12:00.
  LdiDateTime z = dt(5, 2024, 1, 1, 0, 0, 0, 0, 0, 0, 8191);
  ASSERT_EQ(LdiDateToArray(&z, 9, nullptr, b, sizeof b, &n, nullptr), 0);
  ASSERT_EQ(n, 13u);
  EXPECT_EQ(b[11], 0xFF);
  EXPECT_EQ(b[12], 0xFC);
  z = dt(5, 2024, 1, 1, 0, 0, 0, 0, -12, 0);
  ASSERT_EQ(LdiDateToArray(&z, 9, nullptr, b, sizeof b, &n, nullptr), 0);
  EXPECT_EQ(b[11], 8);
  EXPECT_EQ(b[12], 60);
  // Lengths per kind and the short area.
  const struct {
    LdiDateTime v;
    size_t len;
  } kinds[] = {{dt(1, -4712, 1, 1), 4},
               {dt(2, 0, 0, 0, 1, 2, 3, 5), 7}, {dt(4, 0, 0, 0, 1, 2, 3, 5, -3, -30), 9},
               {dt(5, 1, 1, 1, 1, 2, 3, 5, 14, 0), 13},
               {dt(7, 1999, 12, 31, 23, 59, 59, 5), 11}};
  for (const auto &k : kinds) {
    ASSERT_EQ(LdiDateToArray(&k.v, 9, nullptr, b, sizeof b, &n, nullptr), 0);
    EXPECT_EQ(n, k.len);
    EXPECT_EQ(LdiDateToArray(&k.v, 9, nullptr, b, k.len - 1, &n, nullptr), LDI_ERR_OUTSPACE);
  }
  LdiDateTime bad = dt(6, 2000, 1, 1);
  EXPECT_EQ(LdiDateToArray(&bad, 9, nullptr, b, sizeof b, &n, nullptr), LDI_ERR_KIND);
}

TEST(LdiArray, RandomRoundTrips) {
  std::mt19937 rng(7);
  uint8_t b[16];
  for (int i = 0; i < 3000; ++i) {
    const uint8_t kind = "\1\2\3\4\5\7"[rng() % 6];
    LdiDateTime v = random_dt(rng, kind);
    if (kind == LDI_KIND_TSTZ && rng() % 4 == 0) v.tzhour = v.tzminute = 0, v.region = 1 + rng() % 8191;
    size_t n = 0;
    ASSERT_EQ(LdiDateToArray(&v, 9, nullptr, b, sizeof b, &n, nullptr), 0);
    EXPECT_EQ(LdiDateCheck(b, 2, kind), 0u);
    LdiDateTime back{};
    ASSERT_EQ(LdiDateFromArray(b, n, kind, &back), 0) << i;
    EXPECT_EQ(std::memcmp(&back, &v, sizeof v), 0) << whole(back) << " from " << whole(v);
  }
}

TEST(LdiArray, Intervals) {
  uint8_t b[16];
  size_t n = 0;
  // 100 days with leading precision 2.
  LdiInterval d100 = iv(3, 100);
  EXPECT_EQ(LdiInterToArray(&d100, 2, 0, b, sizeof b, &n), LDI_ERR_LEADING);
  EXPECT_EQ(LdiInterToArray(&d100, 3, 0, b, sizeof b, &n), 0);
  LdiInterval zero = iv(1, 0);
  EXPECT_EQ(LdiInterToArray(&zero, 0, 0, b, sizeof b, &n), 0);
  LdiInterval one = iv(1, 1);
  EXPECT_EQ(LdiInterToArray(&one, 0, 0, b, sizeof b, &n), LDI_ERR_LEADING);
  LdiInterval k0 = iv(0, 0), k14 = iv(14, 0);
  EXPECT_EQ(LdiInterToArray(&k0, 9, 9, b, sizeof b, &n), LDI_ERR_KIND);
  EXPECT_EQ(LdiInterToArray(&k14, 9, 9, b, sizeof b, &n), LDI_ERR_KIND);
  // Encoding of -1 day 2 hours ... with fraction.
  LdiInterval v = iv(10, -1, -2, -3, -4, -5);
  ASSERT_EQ(LdiInterToArray(&v, 9, 9, b, sizeof b, &n), 0);
  const uint8_t want[] = {0x7F, 0xFF, 0xFF, 0xFF, 58, 57, 56, 0x7F, 0xFF, 0xFF, 0xFB};
  ASSERT_EQ(n, sizeof want);
  EXPECT_EQ(std::memcmp(b, want, n), 0);
  EXPECT_EQ(LdiInterToArray(&v, 9, 9, b, n - 1, &n), LDI_ERR_OUTSPACE);
  const size_t lens[14] = {0, 4, 4, 4, 4, 4, 8, 5, 5, 6, 11, 5, 10, 9};
  std::mt19937 rng(11);
  for (int i = 0; i < 2000; ++i) {
    uint8_t kind = static_cast<uint8_t>(1 + rng() % 13);
    const auto &k = ldi_internal::kIKinds[kind];
    int sign = rng() % 2 ? -1 : 1;
    LdiInterval x{};
    x.kind = kind;
    const int32_t lim[4] = {999999999, k.ym ? 11 : 23, 59, 59};
    for (int u = k.first; u <= k.last; ++u)
      ldi_internal::set_field(x, u, sign * static_cast<int32_t>(rng() % (uint32_t(lim[u == 0 ? 0 : u] + 1))));
    if (k.ym && k.first == 1) x.f2 = sign * static_cast<int32_t>(rng() % 1000000);
    if (!k.ym && k.first > 0) ldi_internal::set_field(x, k.first, sign * static_cast<int32_t>(rng() % 1000000));
    if (k.frac) x.fraction = sign * static_cast<int32_t>(rng() % 1000000000);
    ASSERT_EQ(LdiInterToArray(&x, 9, 9, b, sizeof b, &n), 0) << i;
    EXPECT_EQ(n, lens[kind]);
    LdiInterval back{};
    ASSERT_EQ(LdiInterFromArray(b, n, kind, &back), 0);
    EXPECT_EQ(std::memcmp(&back, &x, sizeof x), 0) << i;
  }
}

TEST(LdiCompare, KindsAndOrder) {
  int32_t r = 9;
  LdiDateTime d = dt(1, 2000, 1, 1), t = dt(3, 2000, 1, 1);
  EXPECT_EQ(LdiDateCompare(&d, &t, &r, nullptr), LDI_ERR_KINDS);
  LdiDateTime k6 = dt(6, 2000, 1, 1);
  EXPECT_EQ(LdiDateCompare(&k6, &k6, &r, nullptr), LDI_ERR_KIND);
  struct Case {
    LdiDateTime a, b;
    int want;
  } cases[] = {
      {dt(1, 2000, 1, 1, 5), dt(1, 2000, 1, 1, 7), 0},  // a date ignores the time
      {dt(1, -1, 12, 31), dt(1, 1, 1, 1), -1}, {dt(3, 2000, 1, 1, 0, 0, 0, 2), dt(3, 2000, 1, 1, 0, 0, 0, 1), 1},
      {dt(2, 0, 0, 0, 1), dt(2, 0, 0, 0, 0, 59, 59, 999999999), 1},
      // Kind 5 compares wall clocks only.
      {dt(5, 2000, 1, 1, 10, 0, 0, 0, 5), dt(5, 2000, 1, 1, 9, 0, 0, 0, 0), 1},
      // Kind 7: b is brought into a's zone first.
      {dt(7, 2000, 1, 1, 10, 0, 0, 0, 5), dt(7, 2000, 1, 1, 5, 0, 0, 0, 0), 0},
      {dt(7, 2000, 1, 1, 10, 0, 0, 0, 5), dt(7, 2000, 1, 1, 5, 0, 1, 0, 0), -1},
      {dt(7, 2000, 1, 1, 0, 30, 0, 0, -3, -30), dt(7, 2000, 1, 1, 4, 0, 0, 0, 0), 0},
  };
  for (const auto &c : cases) {
    ASSERT_EQ(LdiDateCompare(&c.a, &c.b, &r, nullptr), 0);
    EXPECT_EQ(r, c.want) << fields(c.a) << " vs " << fields(c.b);
    ASSERT_EQ(LdiDateCompare(&c.b, &c.a, &r, nullptr), 0);
    EXPECT_EQ(r, -c.want);
  }
}

TEST(LdiCompare, RandomAgainstTupleOrder) {
  std::mt19937 rng(21);
  for (int i = 0; i < 20000; ++i) {
    const uint8_t kind = static_cast<uint8_t>(i % 3 == 0 ? 5 : i % 3 == 1 ? 3 : 1 + rng() % 3);
    LdiDateTime a = random_dt(rng, kind), b = random_dt(rng, kind);
    a.tzhour = b.tzhour, a.tzminute = b.tzminute;  // wall clocks only
    // Often sharing all fields down to one, where the order is decided late.
    switch (rng() % 8) {
      case 0: b.fraction = a.fraction; [[fallthrough]];
      case 1: b.second = a.second; [[fallthrough]];
      case 2: b.minute = a.minute; [[fallthrough]];
      case 3: b.hour = a.hour; [[fallthrough]];
      case 4: b.day = a.day, b.month = a.month, b.year = a.year; break;
      default: break;
    }
    auto key = [](const LdiDateTime &v) {
      return std::make_tuple(v.year, v.month, v.day, v.hour, v.minute, v.second, v.fraction);
    };
    const int want = key(a) < key(b) ? -1 : key(b) < key(a) ? 1 : 0;
    int32_t r = 9;
    ASSERT_EQ(LdiDateCompare(&a, &b, &r, nullptr), 0);
    EXPECT_EQ(r, want) << whole(a) << " vs " << whole(b);
  }
}

TEST(LdiAdd, MonthStepKeepsTheDay) {
  ldxctx ctx{};
  ASSERT_EQ(ldxbegin(&ctx, nullptr, nullptr, nullptr), 0);
  LdiDateTime out{};
  LdiDateTime jan31 = dt(1, 2001, 1, 31);
  LdiInterval month = iv(2, 0, 1);
  EXPECT_EQ(LdiDateInterAdd(&ctx, &jan31, &month, &out), LDI_ERR_DAY_MONTH);
  // The kernel's month addition goes to the month end instead.
  ldxdate x{2001, 1, 31, 0, 0, 0, 0}, y{};
  ASSERT_EQ(ldxadm(&ctx, &y, &x, 1), 0);
  EXPECT_EQ(y.month, 2);
  EXPECT_EQ(y.day, 28);
  struct Case {
    LdiDateTime d;
    LdiInterval i;
    int32_t st;
    int y, m, dd;
  } cases[] = {
      {dt(3, 2000, 2, 29, 1, 2, 3), iv(1, 4), 0, 2004, 2, 29},
      {dt(3, 2000, 2, 29), iv(1, 1), LDI_ERR_DAY_MONTH, 0, 0, 0},
      {dt(1, 2000, 1, 15), iv(7, -1, -1), 0, 1998, 12, 15}, {dt(1, 2000, 12, 15), iv(2, 0, 1), 0, 2001, 1, 15},
      {dt(1, 2000, 1, 15), iv(2, 0, -12), 0, 1999, 1, 15}, {dt(1, 9999, 12, 1), iv(2, 0, 1), LDI_ERR_YEAR, 0, 0, 0},
      {dt(1, -4712, 1, 1), iv(2, 0, -1), LDI_ERR_YEAR, 0, 0, 0},
      {dt(2, 0, 0, 0, 1), iv(2, 0, 1), LDI_ERR_KINDS, 0, 0, 0},
      // Year 0 and the ten days of October 1582 exist in no calendar.
      {dt(1, 1, 1, 15), iv(2, 0, -1), LDI_ERR_YEAR, 0, 0, 0}, {dt(1, -1, 12, 15), iv(2, 0, 1), LDI_ERR_YEAR, 0, 0, 0},
      {dt(1, 1, 1, 15), iv(2, 0, -13), 0, -1, 12, 15}, {dt(1, 1582, 9, 10), iv(2, 0, 1), LDI_ERR_DAY_MONTH, 0, 0, 0},
      {dt(1, 1582, 9, 4), iv(2, 0, 1), 0, 1582, 10, 4}, {dt(1, 1582, 11, 15), iv(2, 0, -1), 0, 1582, 10, 15},
      {dt(3, 1, 1, 1), iv(3, -1), LDI_ERR_YEAR, 0, 0, 0},
  };
  for (const auto &c : cases) {
    int32_t st = LdiDateInterAdd(&ctx, &c.d, &c.i, &out);
    EXPECT_EQ(st, c.st) << fields(c.d);
    if (st == 0 && c.st == 0) {
      EXPECT_EQ(out.year, c.y);
      EXPECT_EQ(out.month, c.m);
      EXPECT_EQ(out.day, c.dd);
      EXPECT_EQ(out.hour, c.d.hour);
    }
  }
}

TEST(LdiAdd, DaySecondCarries) {
  struct Case {
    LdiDateTime d;
    LdiInterval i;
    int32_t st;
    LdiDateTime want;
  } cases[] = {
      {dt(3, 1582, 10, 4, 12), iv(3, 1), 0, dt(3, 1582, 10, 15, 12)},
      {dt(3, 2000, 1, 1), iv(6, 0, 0, 0, -1, -1), 0, dt(3, 1999, 12, 31, 23, 59, 58, 999999999)},
      {dt(2, 0, 0, 0, 23, 30), iv(5, 0, 0, 45), 0, dt(2, 0, 0, 0, 0, 15)},
      {dt(4, 0, 0, 0, 0, 15, 0, 0, 2), iv(4, 0, -1), 0, dt(4, 0, 0, 0, 23, 15, 0, 0, 2)},
      {dt(3, 9999, 12, 31, 23, 59, 59), iv(6, 0, 0, 0, 1), LDI_ERR_YEAR, {}},
      {dt(3, -4712, 1, 1), iv(6, 0, 0, 0, -1), LDI_ERR_YEAR, {}},
      {dt(3, 2000, 1, 1), iv(10, 999999999, 23, 59, 59, 999999999), LDI_ERR_YEAR, {}},
  };
  for (const auto &c : cases) {
    LdiDateTime out{};
    int32_t st = LdiDateIntertimeAdd(&c.d, &c.i, &out);
    EXPECT_EQ(st, c.st) << fields(c.d);
    if (st == 0 && c.st == 0) EXPECT_EQ(whole(out), whole(c.want));
  }
}

TEST(LdiCheck, FlagsPerKind) {
  struct Case {
    LdiDateTime v;
    uint32_t want;
  } cases[] = {
      {dt(1, 2001, 2, 29), 0x0001}, {dt(1, 1582, 10, 10), 0x1000}, {dt(1, 0, 1, 1), 0x2000},
      {dt(1, 2000, 1, 1, 99, 99, 99), 0},      // a date's time fields are not its own
      {dt(2, 0, 0, 0, 24), 0x0040},            // nor a time's date fields
      {dt(3, 2000, 13, 1, 0, 60), 0x0004 | 0x0100},
      {dt(7, 2000, 1, 1, 0, 119), 0},          // a shifted minute
      {dt(7, 2000, 1, 1, 0, 120), 0x0100}, {dt(3, 2000, 1, 1, 0, 0, 0, 1000000000), 0x0400},
      {dt(5, 2000, 1, 1, 0, 0, 0, 0, 15, 0), LDI_CHK_ZONE}, {dt(5, 2000, 1, 1, 0, 0, 0, 0, -12, -59), 0},
      {dt(4, 0, 0, 0, 0, 0, 0, 0, 0, 60), LDI_CHK_ZONE}, {dt(5, 2000, 1, 1, 0, 0, 0, 0, 0, 0, 8192), LDI_CHK_ZONE},
      {dt(6, 2000, 1, 1), 0x8000},
  };
  for (const auto &c : cases) EXPECT_EQ(LdiDateCheck(&c.v, 0, 0), c.want) << fields(c.v) << " kind " << int(c.v.kind);
  // Zone bytes of the byte form.
  uint8_t b[13] = {120, 100, 1, 1, 1, 1, 1, 0, 0, 0, 0, 7, 60};
  EXPECT_EQ(LdiDateCheck(b, 2, 5), LDI_CHK_ZONE);
  b[11] = 34, b[12] = 119;
  EXPECT_EQ(LdiDateCheck(b, 2, 5), 0u);
  b[11] = 35;
  EXPECT_EQ(LdiDateCheck(b, 2, 5), LDI_CHK_ZONE);
  b[11] = 0x80 | 35;  // a region: not checked as an offset
  EXPECT_EQ(LdiDateCheck(b, 2, 5), 0u);
  EXPECT_EQ(LdiDateCheck(b, 3, 5), 0x8000u);
}

TEST(LdiInter, ConstructCheckAndArithmetic) {
  LdiInterval out{};
  struct Bad {
    LdiInterval v;
    int lead;
    int32_t st;
  } bad[] = {
      {iv(10, 1, -2), 9, LDI_ERR_IVALUE},   // signs disagree
      {iv(10, 1, 24), 9, LDI_ERR_IVALUE},   // hours past 23
      {iv(7, 1, 12), 9, LDI_ERR_IVALUE},    // months past 11
      {iv(4, 5, 1), 9, LDI_ERR_IVALUE},     // a field the kind does not hold
      {iv(3, 100), 2, LDI_ERR_LEADING}, {iv(3, -99), 2, 0}, {iv(11, 0, 99, 59), 2, 0}, {iv(20, 0), 2, LDI_ERR_KIND},
  };
  for (const auto &b : bad) EXPECT_EQ(LdiInterCheck(&b.v, b.lead, 9), b.st) << int(b.v.kind);
  // Construction rounds the fraction and carries.
  ASSERT_EQ(LdiInterConstruct(&out, 0, 0, 0, 59, 999999999, 13, 9, 3), 0);
  EXPECT_EQ(out.f3, 1);
  EXPECT_EQ(out.f4, 0);
  EXPECT_EQ(out.fraction, 0);
  ASSERT_EQ(LdiInterConstruct(&out, 0, 0, 0, -1, -500000000, 6, 9, 0), 0);
  EXPECT_EQ(out.f4, -2);
  // Sums take the kind covering both.
  LdiInterval a = iv(3, 1), h = iv(12, 0, 23, 0, 0, 500000000);
  ASSERT_EQ(LdiInterInterAdd(&a, &h, &out), 0);
  EXPECT_EQ(out.kind, LDI_IKIND_DAY_SECOND);
  EXPECT_EQ(out.f1, 1);
  EXPECT_EQ(out.f2, 23);
  ASSERT_EQ(LdiInterInterSubtract(&a, &h, &out), 0);
  EXPECT_EQ(out.f1, 0);
  EXPECT_EQ(out.f2, 0);
  EXPECT_EQ(out.f3, 59);
  EXPECT_EQ(out.f4, 59);
  EXPECT_EQ(out.fraction, 500000000);
  LdiInterval y = iv(1, 1), m = iv(2, 0, 13);
  ASSERT_EQ(LdiInterInterAdd(&y, &m, &out), 0);
  EXPECT_EQ(out.kind, LDI_IKIND_YEAR_MONTH);
  EXPECT_EQ(out.f1, 2);
  EXPECT_EQ(out.f2, 1);
  EXPECT_EQ(LdiInterInterAdd(&y, &a, &out), LDI_ERR_KINDS);
  const LdiInterval mi = iv(5, 0, 0, 2), sec = iv(6, 0, 0, 0, 3);
  ASSERT_EQ(LdiInterInterAdd(&mi, &sec, &out), 0);
  EXPECT_EQ(out.kind, LDI_IKIND_MINUTE_SECOND);
  EXPECT_EQ(out.f3 * 100 + out.f4, 203);
  int32_t r = 0;
  ASSERT_EQ(LdiInterCompare(&m, &y, &r), 0);
  EXPECT_EQ(r, 1);
  LdiInterval big = iv(3, 2000000000);
  EXPECT_EQ(LdiIIntMult(&big, 2, &out), LDI_ERR_OVERFLOW);
  ASSERT_EQ(LdiIIntMult(&h, -3, &out), 0);
  EXPECT_EQ(out.f2, -69);
  EXPECT_EQ(out.f4, -1);
  EXPECT_EQ(out.fraction, -500000000);
  ASSERT_EQ(LdiInterInterConvert(&h, LDI_IKIND_MINUTE, &out), 0);
  EXPECT_EQ(out.f3, 23 * 60);
}

TEST(LdiOverlap, Periods) {
  struct Case {
    int s1, e1, s2, e2;
    int want;
  } cases[] = {
      {1, 5, 4, 8, 1}, {1, 5, 5, 8, 0}, {5, 1, 8, 4, 1}, {1, 1, 1, 3, 1},
      {3, 3, 1, 5, 1}, {1, 2, 3, 4, 0}, {6, 8, 1, 5, 0}, {2, 2, 2, 2, 1},
  };
  for (const auto &c : cases) {
    LdiDateTime s1 = dt(1, 2000, 1, c.s1), e1 = dt(1, 2000, 1, c.e1), s2 = dt(1, 2000, 1, c.s2), e2 = dt(1, 2000, 1, c.e2);
    int32_t r = -1;
    ASSERT_EQ(LdiDateDateOverlap(nullptr, &s1, &e1, &s2, &e2, &r, nullptr), 0);
    EXPECT_EQ(r, c.want) << c.s1 << c.e1 << c.s2 << c.e2;
    LdiInterval len2 = iv(3, c.e2 - c.s2);
    ASSERT_EQ(LdiDateInterOverlap(nullptr, &s1, &e1, &s2, &len2, &r, nullptr), 0);
    EXPECT_EQ(r, c.want);
  }
}

TEST(LdiConvert, KernelRecordsAndDays) {
  LdiDateTime out{};
  const struct {
    int32_t j;
    int y, m, d;
  } refs[] = {{1, -4712, 1, 1}, {1721058, 0, 1, 1}, {2299161, 1582, 10, 15}, {5373484, 9999, 12, 31}};
  for (const auto &r : refs) {
    ASSERT_EQ(LdiJDaysToDate(r.j, &out), 0);
    EXPECT_EQ(out.year, r.y);
    EXPECT_EQ(out.month, r.m);
    EXPECT_EQ(out.day, r.d);
    int32_t j = 0;
    ASSERT_EQ(LdiDateToJDays(&out, &j), 0);
    EXPECT_EQ(j, r.j);
  }
  EXPECT_EQ(LdiJDaysToDate(0, &out), LDI_ERR_YEAR);
  EXPECT_EQ(LdiJDaysToDate(5373485, &out), LDI_ERR_YEAR);
  ldxdate x{1999, 12, 31, 23, 59, 58, 0};
  ASSERT_EQ(LdiDateFromLDX(&x, 3, &out), 0);
  ldxdate y{};
  ASSERT_EQ(LdiDateToLDX(&out, &y), 0);
  EXPECT_EQ(std::memcmp(&x, &y, sizeof x), 0);
  ldxdays days{};
  ASSERT_EQ(LdiDateToJulian(&out, &days), 0);
  EXPECT_EQ(days.seconds, 86398);
  LdiDateTime back{};
  ASSERT_EQ(LdiJulianToDate(&days, &back), 0);
  EXPECT_EQ(fields(back), fields(out));
  // Extraction follows the kind.
  int32_t v = 0;
  LdiDateTime tz = dt(4, 0, 0, 0, 1, 2, 3, 4, -5, -30);
  EXPECT_EQ(LdiDateExtract(&tz, LDI_FIELD_YEAR, &v), LDI_ERR_FIELD);
  ASSERT_EQ(LdiDateExtract(&tz, LDI_FIELD_TZMINUTE, &v), 0);
  EXPECT_EQ(v, -30);
  LdiInterval i = iv(12, 0, 5, 6, 7, 8);
  EXPECT_EQ(LdiInterExtract(&i, LDI_FIELD_DAY, &v), LDI_ERR_FIELD);
  ASSERT_EQ(LdiInterExtract(&i, LDI_FIELD_MINUTE, &v), 0);
  EXPECT_EQ(v, 6);
  const LdiInterval ym = iv(7, 3, 4);
  ASSERT_EQ(LdiInterExtract(&ym, LDI_FIELD_YEAR, &v), 0);
  EXPECT_EQ(v, 3);
  // Units: the kernel's truncation and rounding, the fraction dropped.
  LdiDateTime ts = dt(3, 2000, 6, 15, 13, 45, 30, 999);
  ASSERT_EQ(LdiTruncate(nullptr, &ts, 1 /* CC */, &out), 0);
  EXPECT_EQ(fields(out), "1901 1 1 0 0 0");
  ASSERT_EQ(LdiRound(nullptr, &ts, 26 /* MI */, &out), 0);
  EXPECT_EQ(fields(out), "2000 6 15 13 46 0");
  EXPECT_EQ(out.fraction, 0u);
  LdiDateTime tm = dt(2, 0, 0, 0, 23, 45);
  EXPECT_EQ(LdiTruncate(nullptr, &tm, 17 /* MM */, &out), LDI_ERR_KINDS);
}

}  // namespace
