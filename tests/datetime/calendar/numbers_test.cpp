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
  ldxctx &c = x.c;
  Recorder &rec = x.rec;
  auto num = [](const char *t) {
    std::vector<uint8_t> v(22);
    size_t l = 0, used = 0;
    lnxcpn(t, std::strlen(t), v.data(), &l, 0, 0, 0, 0, &used, nullptr);
    v.resize(l);
    return v;
  };
  const struct {
    const char *num;
    int32_t err;
    const char *date;  // y-m-d h:m:s
  } cases[] = {
      {"2451545.75", 0, "2000-1-1 18:0:0"},
      {"2451545.999999999", 0, "2000-1-2 0:0:0"},  // rounds to the next midnight
      {"2451545.0000057", 0, "2000-1-1 0:0:0"},    // below half a second
      {"2451545.0000058", 0, "2000-1-1 0:0:1"},    // half a second and more
      {"1", 0, "-4712-1-1 0:0:0"}, {"5373484.99999", 0, "9999-12-31 23:59:59"},
      {"5373484.999999999", 1841, ""},  // the next midnight is out of range
      {"0.5", 1841, ""}, {"-3", 1841, ""}, {"1e30", 1841, ""},
  };
  for (const auto &k : cases) {
    rec.errs.clear();
    auto n = num(k.num);
    ldxdate d{1, 1, 1, 0, 0, 0, 0};
    int32_t r = ldxn2d(&c, n.data(), n.size(), &d);
    if (k.err) {
      EXPECT_EQ(r, -1) << k.num;
      EXPECT_EQ(rec.errs, std::vector<int32_t>{k.err}) << k.num;
      EXPECT_EQ(d.year, 1) << "untouched";
      continue;
    }
    char b[64];
    std::snprintf(b, sizeof b, "%d-%d-%d %d:%d:%d", d.year, d.month, d.day, d.hour, d.minute, d.second);
    EXPECT_EQ(r, 0) << k.num;
    EXPECT_EQ(std::string(b), k.date) << k.num;
  }
  // Infinity and invalid dates.
  rec.errs.clear();
  const uint8_t inf[2] = {0xFF, 0x65};
  ldxdate d{};
  EXPECT_EQ(ldxn2d(&c, inf, 2, &d), -1);
  ldxdays inc{};
  EXPECT_EQ(ldxn2i(&c, inf, 2, &inc), -1);
  uint8_t n[22];
  size_t nl = 0;
  const ldxdate bad[] = {{2023, 2, 29, 0, 0, 0, 0}, {2023, 13, 1, 0, 0, 0, 0}, {0, 1, 1, 0, 0, 0, 0},
                         {2023, 1, 1, 24, 0, 0, 0}};
  for (const ldxdate &b : bad) EXPECT_EQ(ldxd2n(&c, &b, n, &nl), -1);
  EXPECT_EQ(rec.errs, (std::vector<int32_t>{1841, 1841, 1847, 1843, 1841, 1850}));
}

}  // namespace
