// Dates and increments as library numbers, against Python's datetime and
// decimal (numbers_oracle.py), and back again.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "ldx.h"
#include "lnx.h"
#include "tests/datetime/datetime_test.h"
#include "tests/support/python.h"

namespace {

using namespace dttest;

std::vector<std::string> oracle() {
  std::string out;
  std::vector<std::string> lines;
  if (!kel_test::run_python("tests/datetime/calendar/numbers_oracle.py", "", out)) return lines;
  std::istringstream in(out);
  for (std::string l; std::getline(in, l);) lines.push_back(l + "\n");
  return lines;
}

std::string text20(const uint8_t *n, size_t len) {
  char buf[LNX_TEXT_MAX];
  size_t tl = 0;
  EXPECT_EQ(lnxn2t(n, len, LNX_TEXT_FIXED, 20, buf, sizeof buf, &tl), 0);
  return std::string(buf, tl);
}

TEST(DateNumbers, AgreeWithPythonBothWays) {
  const auto lines = oracle();
  ASSERT_EQ(lines.size(), 4000u) << "oracle did not run";
  Ctx x;
  ldxctx &c = x.c;
  Recorder &rec = x.rec;
  for (const std::string &l : lines) {
    std::istringstream in(l);
    std::string kind, want;
    in >> kind;
    uint8_t n[22];
    size_t nl = 0;
    if (kind == "D") {
      int y, m, d, hh, mi, ss;
      in >> y >> m >> d >> hh >> mi >> ss >> want;
      const ldxdate date{static_cast<int16_t>(y), static_cast<int8_t>(m), static_cast<int8_t>(d),
                         static_cast<int8_t>(hh), static_cast<int8_t>(mi), static_cast<int8_t>(ss), 0x5A};
      ASSERT_EQ(ldxd2n(&c, &date, n, &nl), 0) << l;
      ASSERT_EQ(text20(n, nl), want) << l;
      ldxdate back{};
      back.spare = 7;
      ASSERT_EQ(ldxn2d(&c, n, nl, &back), 0) << l;
      EXPECT_EQ(back.spare, 7);
      back.spare = date.spare;
      ASSERT_EQ(ldxcmp(&c, &back, &date), 0) << l;
    } else {
      int32_t days, secs;
      in >> days >> secs >> want;
      const ldxdays inc{days, secs};
      ASSERT_EQ(ldxi2n(&c, &inc, n, &nl), 0) << l;
      ASSERT_EQ(text20(n, nl), want) << l;
      // Back as a normalised increment of the same length of time.
      ldxdays back{};
      ASSERT_EQ(ldxn2i(&c, n, nl, &back), 0) << l;
      EXPECT_EQ(int64_t{back.days} * 86400 + back.seconds, int64_t{days} * 86400 + secs) << l;
      EXPECT_LT(back.seconds < 0 ? -back.seconds : back.seconds, 86400) << l;
    }
  }
  EXPECT_TRUE(rec.errs.empty());
}

TEST(DateNumbers, EdgesAndErrors) {
  Ctx x;
  const struct {
    const char *num, *want;
  } cases[] = {
      {"2451545.75", "2000-01-01 18:00:00"},
      {"2451545.999999999", "2000-01-02 00:00:00"},  // rounds to the next midnight
      {"2451545.0000057", "2000-01-01 00:00:00"},    // below half a second
      {"2451545.0000058", "2000-01-01 00:00:01"},    // half a second and more
      {"1", "-4712-01-01 00:00:00"},                 {"5373484.99999", "9999-12-31 23:59:59"},
      {"5373484.999999999", "error 1841"},  // the next midnight is out of range
      {"0.5", "error 1841"}, {"-3", "error 1841"}, {"1e30", "error 1841"},
  };
  for (const auto &k : cases) {
    uint8_t n[22];
    size_t l = 0, used = 0;
    lnxcpn(k.num, std::strlen(k.num), n, &l, 0, 0, 0, 0, &used, nullptr);
    ldxdate d = D(1, 1, 1);
    const int32_t r = ldxn2d(&x.c, n, l, &d);
    EXPECT_EQ(r ? "error " + std::to_string(x.last()) : str(d), k.want) << k.num;
    if (r) EXPECT_EQ(str(d), "1-01-01 00:00:00") << "untouched";
  }
  // Infinity, and dates that are not valid.
  x.rec.errs.clear();
  const uint8_t inf[2] = {0xFF, 0x65};
  ldxdate d{};
  EXPECT_EQ(ldxn2d(&x.c, inf, 2, &d), -1);
  ldxdays inc{};
  EXPECT_EQ(ldxn2i(&x.c, inf, 2, &inc), -1);
  uint8_t n[22];
  size_t nl = 0;
  for (const ldxdate &b : {D(2023, 2, 29), D(2023, 13, 1), D(0, 1, 1), D(2023, 1, 1, 24)})
    EXPECT_EQ(ldxd2n(&x.c, &b, n, &nl), -1);
  EXPECT_EQ(x.rec.errs, (std::vector<int32_t>{1841, 1841, 1847, 1843, 1841, 1850}));
}

}  // namespace
