// The date family with real language environments: every territory writes
// and reads its own formats and names (round trips over three centuries),
// names agree with the environment's own items, weekday names and ldxdow
// agree with std::chrono's calendar, and the character sets (UTF-8, Latin-1,
// EBCDIC, UTF-16) carry the same dates.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "datetime/calendar/ldx_impl.h"
#include "ldx.h"
#include "tests/datetime/datetime_test.h"
#include "lx.h"

using namespace ldx_internal;
using namespace dttest;

namespace {

const lxenv *env(const std::string &n) { return lxhLangEnv(nullptr, n.data(), n.size()); }

std::string item(const lxenv *e, int32_t it) {
  char b[256];
  int32_t n = lxhlinfo(e, it, b, sizeof b);
  return n < 0 ? std::string() : std::string(b, static_cast<size_t>(n));
}

// Weekday 0 = Sunday, from std::chrono's proleptic Gregorian calendar.
int chrono_wday(int y, int m, int d) {
  using namespace std::chrono;
  return static_cast<int>(weekday(sys_days(year(y) / month(static_cast<unsigned>(m)) / day(static_cast<unsigned>(d)))).c_encoding());
}

// Pins "now" to 2026-06-01 so that the century window of RR is fixed:
// 00 ... 49 read as 2000 ... 2049, 50 ... 99 as 1950 ... 1999.
constexpr int64_t kRrNow = int64_t{1780272000} * 1000000;

const char *const kTerritories[] = {"AMERICAN_AMERICA", "GERMAN_GERMANY", "FRENCH_FRANCE", "SPANISH_SPAIN"};

// The territories beyond American are generated from ICU at build time; a
// build without ICU has only the American one.
bool have(const char *t) { return lxhLangEnv(nullptr, t, std::strlen(t)) != nullptr; }

TEST(DateTerritory, EachTerritoryRoundTripsItsFormats) {
  PinNow pin(kRrNow);
  for (const char *t : kTerritories) {
    if (!have(t)) continue;
    for (const char *cs : {"AL32UTF8", "WE8ISO8859P1"}) {
      const std::string name = std::string(t) + "." + cs;
      SCOPED_TRACE(name);
      const lxenv *e = env(name);
      ASSERT_NE(e, nullptr);
      Recorder rec;
      ldxctx c;
      ASSERT_EQ(ldxbegin(&c, const_cast<lxenv *>(e), record, &rec), 0);
      // Models with a two-digit year read back only inside the window.
      const struct {
        const char *model;
        bool window, time;
      } models[] = {
          {nullptr, true, false}, {"DL", false, false}, {"DS", true, false},
          {"DS TS", true, true}, {"DL HH24:MI:SS", false, true}, {"Dy DD Mon YYYY HH:MI:SS AM", false, true},
      };
      int checked = 0;
      for (int32_t j = ldxctj(&c, 1850, 1, 1); j < ldxctj(&c, 2150, 1, 1); j += 7 * 3 + 2) {
        ldxdate d{};
        ldxjtc(&c, j, &d);
        d.hour = static_cast<int8_t>(j % 24);
        d.minute = static_cast<int8_t>(j % 60);
        d.second = static_cast<int8_t>(j % 59);
        for (const auto &m : models) {
          if (m.window && (d.year < 1950 || d.year > 2049)) continue;
          char out[256];
          size_t ml = m.model ? std::strlen(m.model) : 0;
          int32_t n = ldxdts(&c, out, sizeof out, &d, m.model, ml);
          ASSERT_GT(n, 0) << str(d) << " " << (m.model ? m.model : "default");
          ldxdate back{};
          ASSERT_EQ(ldxsto(&c, &back, out, static_cast<size_t>(n), m.model, ml, LDX_OPT_ERRNUM), 0)
              << std::string(out, static_cast<size_t>(n)) << " by " << (m.model ? m.model : "default");
          ldxdate want = d;
          if (!m.time) want.hour = want.minute = want.second = 0;
          if (m.time && std::strstr(m.model, "SS") == nullptr && std::strcmp(t, "AMERICAN_AMERICA") != 0)
            want.second = 0;  // a short time without seconds
          ASSERT_EQ(str(back), str(want)) << std::string(out, static_cast<size_t>(n));
          ++checked;
        }
      }
      EXPECT_GT(checked, 10000);
      EXPECT_TRUE(rec.errs.empty());
    }
  }
}

TEST(DateTerritory, NamesAndWeekdaysComeFromTheEnvironment) {
  for (const char *t : kTerritories) {
    if (!have(t)) continue;
    const std::string name = std::string(t) + ".AL32UTF8";
    SCOPED_TRACE(name);
    const lxenv *e = env(name);
    Recorder rec;
    ldxctx c;
    ASSERT_EQ(ldxbegin(&c, const_cast<lxenv *>(e), record, &rec), 0);
    const int32_t first = lxhninfo(e, LX_FIRST_DAY);
    for (int m = 1; m <= 12; ++m) {
      for (int dd : {1, 13, 28}) {
        const ldxdate d{2031, static_cast<int8_t>(m), static_cast<int8_t>(dd), 0, 0, 0, 0};
        const int wd = chrono_wday(2031, m, dd);
        // The names as the environment writes them: the element's case is
        // taken from the name's first letter.
        const std::string month = item(e, LX_MONTH_NAME + m - 1), day = item(e, LX_DAY_NAME + wd);
        const std::string mon = item(e, LX_MONTH_ABBR + m - 1), dy = item(e, LX_DAY_ABBR + wd);
        auto el = [](const std::string &n, const char *cap, const char *low) {
          return std::string(n[0] >= 'a' && n[0] <= 'z' ? low : cap);
        };
        const std::string model = "fm" + el(day, "Day", "day") + "/" + el(dy, "Dy", "dy") + "/" +
                                  el(month, "Month", "month") + "/" + el(mon, "Mon", "mon") + "/D";
        char out[256];
        int32_t n = ldxdts(&c, out, sizeof out, &d, model.data(), model.size());
        ASSERT_GT(n, 0);
        const int dnum = (wd - first + 7) % 7 + 1;
        EXPECT_EQ(std::string(out, static_cast<size_t>(n)),
                  day + "/" + dy + "/" + month + "/" + mon + "/" + std::to_string(dnum));
        EXPECT_EQ(ldxdow(&c, ldxctj(&c, 2031, m, dd)), dnum);
      }
    }
    // Truncation to the week starts on the territory's first day.
    const ldxdate wed{2024, 5, 15, 10, 0, 0, 0};  // a Wednesday
    ldxdate w{};
    ASSERT_EQ(ldxtrn(&c, &w, &wed, C_D), 0);
    EXPECT_EQ(chrono_wday(w.year, w.month, w.day), first) << str(w);
    EXPECT_TRUE(rec.errs.empty());
  }
  // The first days themselves: Sunday in America, Monday in the others.
  EXPECT_EQ(lxhninfo(env("AMERICAN_AMERICA"), LX_FIRST_DAY), 0);
  for (const char *t : {"GERMAN_GERMANY", "FRENCH_FRANCE", "SPANISH_SPAIN"})
    if (have(t)) EXPECT_EQ(lxhninfo(env(t), LX_FIRST_DAY), 1) << t;
}

// The same date through Latin-1 and UTF-16 environments: what one set writes
// is the other set's text for the same characters (EBCDIC: below).
TEST(DateTerritory, CharacterSetsCarryTheSameText) {
  PinNow pin(kRrNow);
  const ldxdate d{2024, 3, 5, 17, 4, 9, 0};
  for (const char *t : kTerritories) {
    if (!have(t)) continue;
    SCOPED_TRACE(t);
    Recorder rec;
    ldxctx u8, l1, u16;
    const lxenv *e8 = env(std::string(t) + ".AL32UTF8"), *e1 = env(std::string(t) + ".WE8ISO8859P1");
    const lxenv *e16 = env(std::string(t) + ".AL16UTF16");
    ASSERT_EQ(ldxbegin(&u8, const_cast<lxenv *>(e8), record, &rec), 0);
    ASSERT_EQ(ldxbegin(&l1, const_cast<lxenv *>(e1), record, &rec), 0);
    ASSERT_EQ(ldxbeginu(&u16, const_cast<lxenv *>(e16), record, &rec), 0);
    char a[256], b[256];
    int32_t na = ldxdts(&u8, a, sizeof a, &d, "DL", 2);
    int32_t nb = ldxdts(&l1, b, sizeof b, &d, "DL", 2);
    ASSERT_GT(na, 0);
    ASSERT_GT(nb, 0);
    char conv[256];
    int64_t nc = lxgcnv(conv, sizeof conv, LX_CSID_AL32UTF8, b, static_cast<size_t>(nb), LX_CSID_WE8ISO8859P1);
    EXPECT_EQ(std::string(conv, static_cast<size_t>(nc)), std::string(a, static_cast<size_t>(na)));
    // UTF-16: the default format and DL written and read in code units.
    uint16_t w[128];
    const uint16_t dl[] = {'D', 'L'};
    int32_t nw = ldxdtsu(&u16, w, 128, &d, dl, 2);
    ASSERT_GT(nw, 0);
    char w8[256];
    int64_t n8 = lxgcnv(w8, sizeof w8, LX_CSID_AL32UTF8, w, static_cast<size_t>(nw) * 2, LX_CSID_AL16UTF16);
    // ldxdtsu writes native-order code units; on this machine (little
    // endian) compare through the LE set if the BE reading did not match.
    if (std::string(w8, static_cast<size_t>(n8)) != std::string(a, static_cast<size_t>(na)))
      n8 = lxgcnv(w8, sizeof w8, LX_CSID_AL32UTF8, w, static_cast<size_t>(nw) * 2, LX_CSID_AL16UTF16LE);
    EXPECT_EQ(std::string(w8, static_cast<size_t>(n8)), std::string(a, static_cast<size_t>(na)));
    ldxdate back{};
    ASSERT_EQ(ldxstou(&u16, &back, w, static_cast<size_t>(nw), dl, 2, LDX_OPT_ERRNUM), 0);
    EXPECT_EQ(str(back), "2024-03-05 00:00:00");
    EXPECT_TRUE(rec.errs.empty());
  }
}

// ldxcbeg keeps the caller's compiled default format: the environments here
// never report changed territory data.
TEST(DateTerritory, SavedDefaultFormatIsKept) {
  Recorder rec;
  ldxctx c, c2;
  const lxenv *e = env("GERMAN_GERMANY.AL32UTF8");
  if (e == nullptr) GTEST_SKIP() << "built without ICU: no German territory";
  ASSERT_EQ(ldxnbeg(&c, const_cast<lxenv *>(e), record, &rec, "YYYY/MM/DD", 10), 0);
  ASSERT_EQ(ldxcbeg(&c2, const_cast<lxenv *>(e), lxGetGloPtr(e), record, &rec, c.deffmt), 0);
  const ldxdate d{2024, 3, 5, 0, 0, 0, 0};
  char out[64];
  int32_t n = ldxdts(&c2, out, sizeof out, &d, nullptr, 0);
  EXPECT_EQ(std::string(out, static_cast<size_t>(n > 0 ? n : 0)), "2024/03/05");
  // Without a saved format the territory's own is compiled.
  ASSERT_EQ(ldxcbeg(&c2, const_cast<lxenv *>(e), lxGetGloPtr(e), record, &rec, nullptr), 0);
  n = ldxdts(&c2, out, sizeof out, &d, nullptr, 0);
  EXPECT_EQ(std::string(out, static_cast<size_t>(n > 0 ? n : 0)), "05.03.24");
  EXPECT_TRUE(rec.errs.empty());
}

}  // namespace

namespace {

// Views are made on first use and published without a lock: many threads
// asking for the same new environments at once must agree on what they
// write, in every character set, EBCDIC too. (Run under the tsan preset.)
TEST(DateTerritory, ViewsMadeConcurrentlyAgree) {
  const char *sets[] = {"AL32UTF8", "WE8ISO8859P1", "WE8EBCDIC37", "AL16UTF16LE", "US7ASCII"};
  std::vector<std::string> names;
  for (const char *t : kTerritories)
    if (have(t))
      for (const char *cs : sets) names.push_back(std::string(t) + "." + cs);
  const ldxdate d{2027, 11, 4, 8, 30, 0, 0};
  auto run = [&](std::vector<std::string> *out) {
    for (const std::string &n : names) {
      Recorder rec;
      ldxctx c;
      const lxenv *e = lxhLangEnv(nullptr, n.data(), n.size());
      if (e == nullptr || ldxbegin(&c, const_cast<lxenv *>(e), record, &rec) != 0) {
        out->push_back("begin failed");
        continue;
      }
      // An EBCDIC context takes its model, and writes its text, in EBCDIC.
      const bool ebcdic = lxhninfo(e, LX_CHARSET_KIND) == LX_CS_EBCDIC;
      char b[256], u[256];
      int32_t k = ldxdts(&c, b, sizeof b, &d, ebcdic ? "\xC4\xD3" : "DL", 2);
      int64_t m = k > 0 && ebcdic ? lxgcnv(u, sizeof u, LX_CSID_AL32UTF8, b, static_cast<size_t>(k), LX_CSID_WE8EBCDIC37)
                                  : k;
      if (ebcdic && m > 0) std::memcpy(b, u, static_cast<size_t>(m));
      out->push_back(m > 0 ? std::string(b, static_cast<size_t>(m)) : "write failed");
    }
  };
  std::vector<std::vector<std::string>> got(8);
  std::vector<std::thread> threads;
  for (auto &g : got) threads.emplace_back(run, &g);
  for (auto &t : threads) t.join();
  for (size_t i = 1; i < got.size(); ++i) EXPECT_EQ(got[i], got[0]);
  // This date's names are ASCII: every set writes the UTF-8 text (the first).
  ASSERT_EQ(got[0].size(), names.size());
  for (size_t i = 0; i < names.size(); ++i) EXPECT_EQ(got[0][i], got[0][i - i % std::size(sets)]) << names[i];
  EXPECT_NE(got[0][0].find("2027"), std::string::npos) << got[0][0];
}

}  // namespace
