// Truncation and rounding to units, the unit lookup, the error callback,
// territory views (EBCDIC, alternative calendars, first day of week) and the
// message catalogue.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "datetime/calendar/ldx_impl.h"
#include "ldx.h"
#include "tests/datetime/datetime_test.h"

namespace {

using namespace ldx_internal;
using namespace dttest;

int32_t unit(Ctx &x, const char *u) { return ldxgpc(&x.c, u, std::strlen(u)); }

TEST(DateUnits, UnitLookup) {
  Ctx x;
  const std::map<std::string, int32_t> codes = {
      {"CC", 1}, {"scc", 2}, {"I", 3}, {"Y", 4}, {"IY", 5}, {"YY", 6}, {"IYY", 7},
      {"YYY", 8}, {"IYYY", 9}, {"yyyy", 10}, {"SYYYY", 12}, {"Year", 14}, {"SYEAR", 15}, {"Q", 16},
      {"MM", 17}, {"IW", 18}, {"WW", 19}, {"W", 20}, {"D", 21}, {"DD", 22}, {"DDD", 23},
      {"HH24", 24}, {"HH", 25}, {"HH12", 25}, {"MI", 26}, {"J", 29}, {"MONTH", 30}, {"MON", 31},
      {"DAY", 32}, {"DY", 33}, {"RM", 38}, {"RR", 40}, {"RRRR", 41}, {"E", 43}, {"EE", 44},
      {"NYYYY", 45}, {"FMDD", 22}, {"\"x\"MM", 17}};
  for (const auto &[t, c] : codes) {
    x.rec.errs.clear();
    EXPECT_EQ(unit(x, t.c_str()), c) << t;
    EXPECT_TRUE(x.rec.errs.empty()) << t;
  }
  const struct {
    const char *u;
    int32_t err;
  } bad[] = {{"SS", 1899}, {"SSSSS", 1899}, {"AM", 1899}, {"A.D.", 1899}, {"FX", 1899}, {"Y,YYY", 1899},
             {"", 1899},   {"YYYY MM", 1898}, {"DD-DD", 1898}, {"GG", 1821}};
  for (const auto &b : bad) {
    x.rec.errs.clear();
    EXPECT_EQ(unit(x, b.u), 0) << b.u;
    EXPECT_EQ(x.rec.errs, std::vector<int32_t>{b.err}) << b.u;
  }
}

TEST(DateUnits, TruncateAndRoundTables) {
  Ctx x;
  const struct {
    ldxdate in;
    const char *u;
    bool round;
    const char *want;
  } cases[] = {
      {D(2000, 6, 15, 1, 2, 3), "CC", false, "1901-01-01 00:00:00"},
      {D(1950, 1, 1), "CC", false, "1901-01-01 00:00:00"}, {D(2001, 1, 1), "SCC", false, "2001-01-01 00:00:00"},
      {D(-1, 5, 5), "CC", false, "-100-01-01 00:00:00"}, {D(-100, 5, 5), "CC", false, "-100-01-01 00:00:00"},
      {D(-101, 5, 5), "CC", false, "-200-01-01 00:00:00"}, {D(1950, 1, 1), "CC", true, "1901-01-01 00:00:00"},
      {D(1951, 1, 1), "CC", true, "2001-01-01 00:00:00"},
      {D(2024, 5, 17, 13, 14, 15), "YYYY", false, "2024-01-01 00:00:00"},
      {D(2024, 6, 30), "YEAR", true, "2024-01-01 00:00:00"}, {D(2024, 7, 1), "RR", true, "2025-01-01 00:00:00"},
      {D(2024, 5, 17), "Q", false, "2024-04-01 00:00:00"}, {D(2024, 5, 15), "Q", true, "2024-04-01 00:00:00"},
      {D(2024, 5, 16), "Q", true, "2024-07-01 00:00:00"}, {D(2024, 6, 1), "Q", true, "2024-07-01 00:00:00"},
      {D(2024, 12, 1), "Q", true, "2025-01-01 00:00:00"}, {D(2024, 5, 17, 9), "MM", false, "2024-05-01 00:00:00"},
      {D(2024, 5, 15), "MON", true, "2024-05-01 00:00:00"}, {D(2024, 5, 16), "MONTH", true, "2024-06-01 00:00:00"},
      {D(2024, 12, 16), "RM", true, "2025-01-01 00:00:00"}, {D(2024, 5, 17), "IW", false, "2024-05-13 00:00:00"},
      {D(2024, 5, 13), "IW", false, "2024-05-13 00:00:00"}, {D(2024, 5, 16, 11), "IW", true, "2024-05-13 00:00:00"},
      {D(2024, 5, 16, 12), "IW", true, "2024-05-20 00:00:00"},
      {D(2023, 12, 30), "IW", true, "2023-12-25 00:00:00"},  // year boundary: day 31 instead
      {D(2024, 5, 17), "WW", false, "2024-05-13 00:00:00"},  // 2024 starts on a Monday
      {D(2023, 5, 17), "WW", false, "2023-05-14 00:00:00"},  // 2023 starts on a Sunday
      {D(2024, 5, 17), "W", false, "2024-05-15 00:00:00"}, {D(2024, 5, 11, 12), "W", true, "2024-05-15 00:00:00"},
      {D(2024, 5, 27, 12), "W", true, "2024-05-29 00:00:00"},  // month change: day 29
      {D(2023, 2, 26, 12), "W", true, "2023-03-01 00:00:00"},  // February of a common year keeps it
      {D(2024, 5, 17, 9), "D", false, "2024-05-12 00:00:00"},  // back to Sunday
      {D(2024, 5, 15, 12), "DAY", true, "2024-05-19 00:00:00"},
      {D(2024, 5, 15, 11, 59, 59), "DY", true, "2024-05-12 00:00:00"},
      {D(2024, 5, 17, 11, 59, 59), "DD", true, "2024-05-17 00:00:00"},
      {D(2024, 5, 17, 12), "J", true, "2024-05-18 00:00:00"},
      {D(2024, 12, 31, 12), "DDD", true, "2025-01-01 00:00:00"},
      {D(2024, 5, 17, 9, 29, 59), "HH", true, "2024-05-17 09:00:00"},
      {D(2024, 5, 17, 23, 30), "HH24", true, "2024-05-18 00:00:00"},
      {D(2024, 5, 17, 9, 29, 59), "HH12", false, "2024-05-17 09:00:00"},
      {D(2024, 5, 17, 9, 29, 30), "MI", true, "2024-05-17 09:30:00"},
      {D(2024, 5, 17, 9, 29, 29), "MI", true, "2024-05-17 09:29:00"},
      {D(2021, 1, 2), "IYYY", false, "2019-12-30 00:00:00"}, {D(2021, 1, 4), "IYYY", false, "2021-01-04 00:00:00"},
      {D(2020, 12, 31), "IY", false, "2019-12-30 00:00:00"}, {D(2020, 7, 1), "I", true, "2021-01-04 00:00:00"},
      {D(2020, 6, 30), "IYY", true, "2019-12-30 00:00:00"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << str(c.in) << " " << c.u << (c.round ? " round" : " trunc"));
    ldxdate out{};
    int32_t code = unit(x, c.u);
    ASSERT_NE(code, 0);
    ASSERT_EQ(c.round ? ldxrnd(&x.c, &out, &c.in, code) : ldxtrn(&x.c, &out, &c.in, code), 0);
    EXPECT_EQ(str(out), c.want);
  }
  // Units that are no truncation units.
  ldxdate d = D(2024, 1, 1), out{};
  x.rec.errs.clear();
  for (int32_t bad : {0, 27, 28, 34, 43, 44, 46, 47, 99}) {
    EXPECT_EQ(ldxtrn(&x.c, &out, &d, bad), -1);
    EXPECT_EQ(ldxrnd(&x.c, &out, &d, bad), -1);
  }
  EXPECT_EQ(x.rec.errs, std::vector<int32_t>(18, 1899));
  ldxdate top = D(9999, 12, 31, 23, 59, 59);
  x.rec.errs.clear();
  EXPECT_EQ(ldxrnd(&x.c, &out, &top, unit(x, "DD")), -1);
  EXPECT_EQ(ldxrnd(&x.c, &out, &top, unit(x, "YYYY")), -1);
  EXPECT_EQ(x.rec.errs, (std::vector<int32_t>{1841, 1841}));
}

TEST(DateUnits, WeekTruncationProperties) {
  Ctx x;
  std::mt19937 rng(5);
  const int32_t iw = unit(x, "IW"), ww = unit(x, "WW"), w = unit(x, "W"), dd = unit(x, "D"), iy = unit(x, "IYYY");
  for (int i = 0; i < 20000; ++i) {
    int32_t j = ctj(1600, 1, 1) + static_cast<int32_t>(rng() % (kMaxJday - ctj(1600, 1, 1) - 7));
    int32_t y, m, d;
    jtc(j, &y, &m, &d);
    ldxdate in = D(y, m, d, 7, 8, 9), out{};
    auto jd = [](const ldxdate &o) { return ctj(o.year, o.month, o.day); };
    ASSERT_EQ(ldxtrn(&x.c, &out, &in, iw), 0);
    ASSERT_EQ(ldxdow(&x.c, jd(out)), 2);  // Monday
    ASSERT_LE(j - jd(out), 6);
    ASSERT_EQ(out.hour + out.minute + out.second, 0);
    if (j - ctj(y, 1, 1) >= 7) {
      ASSERT_EQ(ldxtrn(&x.c, &out, &in, ww), 0);
      ASSERT_EQ((jd(out) - ctj(y, 1, 1)) % 7, 0);
      ASSERT_LE(j - jd(out), 6);
    }
    ASSERT_EQ(ldxtrn(&x.c, &out, &in, w), 0);
    ASSERT_EQ((out.day - 1) % 7, 0);
    ASSERT_LE(in.day - out.day, 6);
    ASSERT_EQ(ldxtrn(&x.c, &out, &in, dd), 0);
    ASSERT_EQ(ldxdow(&x.c, jd(out)), 1);
    ASSERT_LE(j - jd(out), 6);
    ASSERT_EQ(ldxtrn(&x.c, &out, &in, iy), 0);
    ASSERT_EQ(ldxisw(&x.c, &out), 1);
    ASSERT_EQ(ldxisy(&x.c, &out), ldxisy(&x.c, &in));
    ASSERT_EQ(ldxdow(&x.c, jd(out)), 2);
  }
}

// ------------------------------------------------------------ territory views

ldx_territory_view custom_view() { return default_view(); }

int g_released = 0;
void release(void *) { ++g_released; }

TEST(DateUnits, ErrorReleasesTheSavedHandleFirst) {
  ldx_territory_view v = custom_view();
  v.release = release;
  Ctx x;
  ldxctx &c = x.c;
  Recorder &rec = x.rec;
  c.terr = &v;
  int handle;
  c.savedhd = &handle;
  c.ownhd = 1;
  g_released = 0;
  ldxerr(&c, 1841);
  ldxerr(&c, 1848);
  EXPECT_EQ(g_released, 1);
  EXPECT_EQ(c.ownhd, 0);
  EXPECT_EQ(c.savedhd, nullptr);
  EXPECT_EQ(rec.errs, (std::vector<int32_t>{1841, 1848}));
}

TEST(DateUnits, FirstDayOfWeekComesFromTheTerritory) {
  ldx_territory_view v = custom_view();
  v.first_day = 1;  // Monday
  Ctx x;
  ldxctx &c = x.c;
  c.terr = &v;
  int32_t wed = ctj(2024, 5, 15);
  EXPECT_EQ(ldxdow(&c, wed), 3);
  ldxdate d = D(2024, 5, 15), out{};
  ASSERT_EQ(ldxtrn(&c, &out, &d, ldxgpc(&c, "D", 1)), 0);
  EXPECT_EQ(str(out), "2024-05-13 00:00:00");
  char buf[8];
  ASSERT_EQ(ldxdts(&c, buf, sizeof buf, &d, "D", 1), 1);
  EXPECT_EQ(buf[0], '3');
  ldxdate back{};
  ASSERT_EQ(ldxsto(&c, &back, "3 15-05-2024", 12, "D DD-MM-YYYY", 12, LDX_OPT_ERRNUM), 0);
  EXPECT_EQ(ldxsto(&c, &back, "4 15-05-2024", 12, "D DD-MM-YYYY", 12, LDX_OPT_ERRNUM), 1835);
}

// A fake alternative calendar: months are 30 days, it refuses to add a
// negative count (falls back to the Gregorian rule).
int32_t fake_adm(ldxctx *, ldxdate *out, const ldxdate *in, int32_t months) {
  if (months < 0) return 0x100;  // low byte 0: not handled
  *out = *in;
  out->day = 30;
  out->month = static_cast<int8_t>((in->month - 1 + months) % 12 + 1);
  return 1;
}
int32_t fake_ldd(ldxctx *, ldxdate *out, const ldxdate *in) {
  *out = *in;
  out->day = 30;
  return 1;
}

TEST(DateUnits, AlternativeCalendarIsAskedFirst) {
  ldx_territory_view v = custom_view();
  v.gregorian = false;
  v.eadm = fake_adm;
  v.eldd = fake_ldd;
  Ctx x;
  ldxctx &c = x.c;
  c.terr = &v;
  ldxdate d = D(2024, 1, 31), out{};
  ASSERT_EQ(ldxadm(&c, &out, &d, 1), 0);
  EXPECT_EQ(str(out), "2024-02-30 00:00:00");
  ASSERT_EQ(ldxadm(&c, &out, &d, -1), 0);  // declined: Gregorian
  EXPECT_EQ(str(out), "2023-12-31 00:00:00");
  ASSERT_EQ(ldxldd(&c, &out, &d), 0);
  EXPECT_EQ(out.day, 30);
  // A Gregorian territory never calls them.
  v.gregorian = true;
  ASSERT_EQ(ldxadm(&c, &out, &d, 1), 0);
  EXPECT_EQ(str(out), "2024-02-29 00:00:00");
  ASSERT_EQ(ldxldd(&c, &out, &d), 0);
  EXPECT_EQ(out.day, 31);
}

std::string to_ebcdic(const std::string &s) {
  std::string r = s;
  for (auto &ch : r) ch = static_cast<char>(kAsciiToEbcdic[static_cast<uint8_t>(ch)]);
  return r;
}

TEST(DateUnits, EbcdicModelsAndText) {
  ldx_territory_view v = custom_view();
  v.ebcdic = true;
  static const std::string dl = to_ebcdic("fmDay, Month DD, YYYY");
  v.longdate = dl.c_str();
  Recorder rec;
  ldxctx c, a;
  ASSERT_EQ(ldxbegin(&c, nullptr, record, &rec), 0);
  ASSERT_EQ(ldxbegin(&a, nullptr, record, &rec), 0);
  c.terr = &v;
  const ldxdate d = D(2024, 2, 29, 13, 5, 9);
  const char *models[] = {"DD-MON-RR", "Day, Month ddth, YYYY \"quoted\"", "fmDay YEAR HH:MI:SS P.M.", "DL", "J SSSSS"};
  for (const char *m : models) {
    SCOPED_TRACE(m);
    std::string em = to_ebcdic(m);
    char ea[256], eb[256];
    int32_t na = ldxdts(&a, ea, sizeof ea, &d, m, std::strlen(m));
    int32_t nb = ldxdts(&c, eb, sizeof eb, &d, em.data(), em.size());
    ASSERT_GT(na, 0);
    ASSERT_EQ(nb, na);
    EXPECT_EQ(std::string(eb, static_cast<size_t>(nb)), to_ebcdic(std::string(ea, static_cast<size_t>(na))));
  }
  // Reading EBCDIC text by an EBCDIC model.
  std::string em = to_ebcdic("DD-MON-YYYY HH24:MI:SS \"at\""), et = to_ebcdic("29-feb-2024 13:05:09 AT");
  ldxdate back{};
  ASSERT_EQ(ldxsto(&c, &back, et.data(), et.size(), em.data(), em.size(), LDX_OPT_ERRNUM), 0);
  EXPECT_EQ(str(back), str(d));
  // Element letters of the EBCDIC blocks; a letter with no element.
  std::string g = to_ebcdic("GG");
  uint8_t out[64];
  rec.errs.clear();
  EXPECT_EQ(ldxsti(&c, g.data(), g.size(), out, sizeof out), 0u);
  EXPECT_EQ(rec.errs, std::vector<int32_t>{1821});
  std::string rz = to_ebcdic("rrrr-sssss-zz");
  rec.errs.clear();
  EXPECT_EQ(ldxsti(&c, rz.data(), rz.size(), out, sizeof out), 0u);
  EXPECT_EQ(rec.errs, std::vector<int32_t>{1821});
}

// Model text compiled once per thread must not carry one territory's
// formats over to another, nor input checks over to output.
TEST(DateUnits, RepeatedModelTextFollowsTheTerritory) {
  ldx_territory_view a = custom_view(), b = custom_view();
  b.shortdate = "DD.MM.YYYY";
  Recorder rec;
  ldxctx ca, cb;
  ASSERT_EQ(ldxbegin(&ca, nullptr, record, &rec), 0);
  ASSERT_EQ(ldxbegin(&cb, nullptr, record, &rec), 0);
  ca.terr = &a;
  cb.terr = &b;
  const ldxdate d = D(2024, 2, 9);
  char out[64];
  for (int i = 0; i < 3; ++i) {
    int32_t n = ldxdts(&ca, out, sizeof out, &d, "DS", 2);
    EXPECT_EQ(std::string(out, static_cast<size_t>(n)), "2/9/2024");
    n = ldxdts(&cb, out, sizeof out, &d, "DS", 2);
    EXPECT_EQ(std::string(out, static_cast<size_t>(n)), "09.02.2024");
    ldxdate back{};
    ASSERT_EQ(ldxsto(&cb, &back, "09.02.2024", 10, "DS", 2, LDX_OPT_ERRNUM), 0);
    EXPECT_EQ(str(back), "2024-02-09 00:00:00");
    // Written, then refused as an input model, then written again.
    EXPECT_EQ(ldxdts(&ca, out, sizeof out, &d, "CC-YYYY", 7), 7);
    EXPECT_EQ(ldxsto(&ca, &back, "21-2024", 7, "CC-YYYY", 7, LDX_OPT_ERRNUM), 1820);
  }
  EXPECT_TRUE(rec.errs.empty());
}

TEST(DateUnits, EmptyTerritoryFormat) {
  ldx_territory_view v = custom_view();
  v.shorttime = "";
  Ctx x;
  ldxctx &c = x.c;
  Recorder &rec = x.rec;
  c.terr = &v;
  uint8_t out[64];
  EXPECT_EQ(ldxsti(&c, "DD TS", 5, out, sizeof out), 0u);
  EXPECT_EQ(rec.errs, std::vector<int32_t>{1890});
}

// The catalogue file holds exactly the list the code is built from.
TEST(DateUnits, MessageCatalogueMatchesTheErrorList) {
  std::vector<std::string> want;
#define LDX_ERROR(num, name, text) want.push_back(std::to_string(num) + ", " + text);
#include "datetime/calendar/ldx_errors.def"
#undef LDX_ERROR
  std::ifstream f(std::string(KEL_SOURCE_DIR) + "/nls/messages/kelcore_ldx.msg");
  ASSERT_TRUE(f.good());
  std::vector<std::string> got;
  for (std::string line; std::getline(f, line);)
    if (!line.empty()) got.push_back(line);
  EXPECT_EQ(got, want);
  for (int n : {600, 1800, 1801, 1841, 1848, 1854, 1898, 1899}) {
    bool found = false;
    for (const auto &l : got) found = found || l.rfind(std::to_string(n) + ",", 0) == 0;
    EXPECT_TRUE(found) << n;
  }
}

}  // namespace
