// The fast paths for fixed models (plain numbers at their full width and
// one-byte separators) against the general reader and writer.
//
// A compiled model with the fixed bit cleared is the same model to the
// general code, which then does all the work; so every case below reads or
// writes once with the bit and once without, and the two must agree on the
// result, the error number and the date. Models are generated at random from
// the elements a fixed model may hold, in any order, with and without
// separators, so that the text lengths cover every reader (layout plans, the
// simple plans, and the model walk for texts too short or too long for a
// plan); texts are written by the model and then spoiled, or made of random
// digits in the model's layout, so that range errors, impossible dates and
// layouts the fast readers refuse all come up.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "datetime/calendar/ldx_impl.h"
#include "ldx.h"
#include "tests/datetime/datetime_test.h"
#include "lx.h"

namespace {

using namespace ldx_internal;
using namespace dttest;

std::string str(const ldxdate &d) {
  char b[64];
  std::snprintf(b, sizeof b, "%d-%02d-%02d %02d:%02d:%02d/%d", d.year, d.month, d.day, d.hour, d.minute, d.second,
                d.spare);
  return b;
}

// Elements of fixed models and the width they write. RR and RRRR may stand
// beside one element of the YYYY group; the others follow the input rules
// (one of a group, no repeats).
struct Elt {
  const char *text;
  int width;
  int group;  // elements of one group exclude each other; 0 = none
};
const Elt kElts[] = {
    {"YYYY", 4, 1}, {"YYY", 3, 1}, {"YY", 2, 1}, {"Y", 1, 1},  {"RR", 2, 2},  {"RRRR", 4, 3},
    {"MM", 2, 4},   {"DD", 2, 5},  {"DDD", 3, 6}, {"J", 7, 6}, {"D", 1, 7},   {"HH24", 2, 8},
    {"HH", 2, 8},   {"HH12", 2, 8}, {"MI", 2, 9}, {"SS", 2, 10}, {"SSSSS", 5, 11},
};
const char kSeps[] = {'-', '/', ':', '.', ' ', ',', ';'};

struct Model {
  std::string text;
  std::vector<uint8_t> fast, slow;  // compiled, with and without the fixed bit
  size_t textlen = 0;               // length of the text it writes
  std::vector<std::pair<const Elt *, char>> parts;  // an element, or (null, separator)
};

Model make_model(std::mt19937 &g, ldxctx *c) {
  for (;;) {
    std::vector<const Elt *> pick;
    std::vector<int> groups;
    const size_t want = 1 + g() % 11;
    for (int tries = 0; pick.size() < want && tries < 80; ++tries) {
      const Elt &e = kElts[g() % (sizeof kElts / sizeof kElts[0])];
      if (std::find(groups.begin(), groups.end(), e.group) != groups.end()) continue;
      groups.push_back(e.group);
      pick.push_back(&e);
    }
    // The common machine layouts come up often on their own.
    if (g() % 4 == 0) {
      static const Elt *const full[] = {&kElts[0], &kElts[6], &kElts[7], &kElts[11], &kElts[14], &kElts[15]};
      pick.assign(std::begin(full), std::begin(full) + 3 + g() % 4);
    } else {
      std::shuffle(pick.begin(), pick.end(), g);
    }
    Model m;
    auto sep = [&m](char ch) {
      m.text += ch == '#' ? std::string("\"#\"") : std::string(1, ch);
      m.parts.emplace_back(nullptr, ch);
      ++m.textlen;
    };
    for (size_t i = 0; i < pick.size(); ++i) {
      m.text += pick[i]->text;
      m.parts.emplace_back(pick[i], 0);
      m.textlen += static_cast<size_t>(pick[i]->width);
      if (i + 1 == pick.size()) break;
      switch (g() % 5) {
        case 0: break;  // digits run on: "YYYYMMDD"
        case 1: sep('#'); break;
        default: sep(kSeps[g() % sizeof kSeps]); break;
      }
    }
    if (g() % 8 == 0) sep(kSeps[g() % sizeof kSeps]);
    uint8_t buf[256];
    size_t n = ldxsti(c, m.text.data(), m.text.size(), buf, sizeof buf);
    if (n == 0 || !(buf[1] & kHdrFixed)) continue;  // a separator run or a conflict: pick again
    m.fast.assign(buf, buf + n);
    m.slow = m.fast;
    m.slow[1] = static_cast<uint8_t>(m.slow[1] & ~kHdrFixed);
    return m;
  }
}

ldxdate random_date(std::mt19937 &g) {
  int32_t y, mo, d;
  do {
    jtc(1 + static_cast<int32_t>(g() % kMaxJday), &y, &mo, &d);
  } while (y < 1);
  return ldxdate{static_cast<int16_t>(y), static_cast<int8_t>(mo), static_cast<int8_t>(d), static_cast<int8_t>(g() % 24),
                 static_cast<int8_t>(g() % 60), static_cast<int8_t>(g() % 60), 0};
}

// Text in the model's layout with values of each field chosen near the
// edges of its range and of the calendar: month 13, day 31 of a short month,
// 29 February, year 0, the days left out in October 1582, day of year 366,
// hour 24 and so on, mixed with values from anywhere in the field's width.
std::string edge_text(std::mt19937 &g, const Model &m) {
  std::string t;
  for (const auto &[e, ch] : m.parts) {
    if (!e) {
      t += g() % 16 ? ch : kSeps[g() % sizeof kSeps];
      continue;
    }
    const std::string el = e->text;
    std::vector<int64_t> edges;
    if (el == "YYYY" || el == "RRRR") edges = {0, 1, 1582, 1600, 1900, 2000, 2023, 2024, 9999};
    else if (el == "YYY") edges = {0, 1, 999};
    else if (el == "YY" || el == "RR") edges = {0, 23, 24, 49, 50, 99};
    else if (el == "MM") edges = {0, 1, 2, 4, 10, 12, 13};
    else if (el == "DD") edges = {0, 1, 4, 5, 14, 15, 28, 29, 30, 31, 32};
    else if (el == "DDD") edges = {0, 1, 59, 60, 365, 366, 367};
    else if (el == "J") edges = {0, 1, 365, 366, 1721057, 1721058, 1721423, 1721424, 2299160, 2299161, 5373484, 5373485};
    else if (el == "HH24") edges = {0, 12, 23, 24};
    else if (el == "HH" || el == "HH12") edges = {0, 1, 11, 12, 13};
    else if (el == "MI" || el == "SS") edges = {0, 59, 60};
    else if (el == "SSSSS") edges = {0, 3599, 43200, 86399, 86400};
    int64_t lim = 1;
    for (int k = 0; k < e->width; ++k) lim *= 10;
    int64_t v = !edges.empty() && g() % 3 ? edges[g() % edges.size()] : static_cast<int64_t>(g() % lim);
    char b[16];
    std::snprintf(b, sizeof b, "%0*lld", e->width, static_cast<long long>(v));
    t += b;
  }
  return t;
}

// Spoils a text the way hand-made or damaged input differs from the model.
void spoil(std::mt19937 &g, std::string &t) {
  const size_t at = t.empty() ? 0 : g() % t.size();
  switch (g() % 9) {
    case 0: if (!t.empty()) t[at] = static_cast<char>('0' + g() % 10); break;
    case 1: if (!t.empty()) t[at] = "-/ :.,;#+xA\t"[g() % 12]; break;
    case 2: if (!t.empty()) t.erase(at, 1); break;
    case 3: t.insert(at, 1, "0 -:"[g() % 4]); break;
    case 4: t += ' '; break;
    case 5: t.insert(0, 1, ' '); break;
    case 6: t.resize(t.size() / 2); break;
    case 7:
      // Digits at random where the model has digits.
      for (char &ch : t)
        if (ch >= '0' && ch <= '9') ch = static_cast<char>('0' + g() % 10);
      break;
    default: break;  // left as written
  }
}

// What reading t by a compiled model gives: the result and the date.
std::string read(ldxctx *c, const std::vector<uint8_t> &m, const std::string &t) {
  ldxdate d{1, 2, 3, 4, 5, 6, 7};
  int32_t r = ldxsto(c, &d, t.data(), t.size(), reinterpret_cast<const char *>(m.data()), m.size(), LDX_OPT_ERRNUM);
  return std::to_string(r) + " " + str(d);
}

// What writing d into cap bytes gives: the result, the errors reported and
// the text with the byte after it (which must stay untouched).
using Written = std::tuple<int32_t, std::vector<int32_t>, std::string>;
Written write(Ctx &x, const std::vector<uint8_t> &m, const ldxdate &d, size_t cap) {
  char out[160];
  std::memset(out, '?', sizeof out);
  x.rec.errs.clear();
  int32_t n = ldxdts(&x.c, out, cap, &d, reinterpret_cast<const char *>(m.data()), m.size());
  return {n, x.rec.errs, n >= 0 ? std::string(out, static_cast<size_t>(n) + 1) : ""};
}

TEST(DateFixedLayout, ReadersAgreeWithTheGeneralReader) {
  PinNow pin;
  std::mt19937 g(20261121);
  // The German territory counts weekdays from Monday, which "D" must follow.
  const char *names[] = {nullptr, "GERMAN_GERMANY.AL32UTF8"};
  int compared = 0, ok = 0, failed = 0, short_texts = 0, long_texts = 0, plan_texts = 0;
  for (const char *name : names) {
    Recorder rec;
    ldxctx c{};
    const lxenv *e = name ? lxhLangEnv(nullptr, name, std::strlen(name)) : nullptr;
    if (name && !e) continue;  // built without the generated territories
    ASSERT_EQ(ldxbegin(&c, const_cast<lxenv *>(e), record, &rec), 0);
    std::vector<Model> models;
    for (int i = 0; i < 300; ++i) models.push_back(make_model(g, &c));
    rec.errs.clear();  // models that broke the input rules were dropped
    // Models taken in turn, more of them than a thread keeps plans for, so
    // that plans are made, dropped and made again.
    for (int round = 0; round < 60; ++round) {
      for (const Model &m : models) {
        SCOPED_TRACE(m.text);
        const ldxdate d = random_date(g);
        char out[128];
        int32_t n = ldxdts(&c, out, sizeof out, &d, reinterpret_cast<const char *>(m.fast.data()), m.fast.size());
        ASSERT_EQ(n, static_cast<int32_t>(m.textlen)) << str(d);
        std::string t(out, static_cast<size_t>(n));
        if (g() % 3 == 0) t = edge_text(g, m);
        else spoil(g, t);
        const std::string a = read(&c, m.fast, t);
        ASSERT_EQ(a, read(&c, m.slow, t)) << "[" << t << "]";
        ++compared;
        (a.compare(0, 2, "0 ") == 0 ? ok : failed)++;
        (m.textlen < 8 ? short_texts : m.textlen > 32 ? long_texts : plan_texts)++;
      }
    }
    EXPECT_TRUE(rec.errs.empty());
  }
  EXPECT_GE(compared, 18000);
  // Both outcomes and every reader came up often.
  EXPECT_GT(ok, compared / 5);
  EXPECT_GT(failed, compared / 5);
  EXPECT_GT(short_texts, 1000);
  EXPECT_GT(long_texts, 300);
  EXPECT_GT(plan_texts, 5000);
  std::printf("compared %d: read %d, refused %d; texts under 8 bytes %d, over 32 %d, others %d\n", compared, ok,
              failed, short_texts, long_texts, plan_texts);
}

TEST(DateFixedLayout, OneBufferRecompiledWithOtherModels) {
  // Plans are kept by the bytes of the compiled model, not by where it
  // lies: a buffer compiled again with another model reads by the new one.
  PinNow pin;
  Ctx x;
  ldxctx &c = x.c;
  const struct {
    const char *model, *text, *want;
  } cases[] = {
      {"YYYY-MM-DD HH24:MI:SS", "2024-02-29 13:45:59", "2024-02-29 13:45:59/7"},
      {"YYYY-DD-MM HH24:MI:SS", "2024-02-11 13:45:59", "2024-11-02 13:45:59/7"},
      {"YYYY-MM-DD HH24:SS:MI", "2024-02-29 13:45:59", "2024-02-29 13:59:45/7"},
      {"DD.MM.YYYY", "2024-02-29 13:45:59", "error 1843"},  // month "24"
      {"DD.MM.YYYY", "29.02.2023", "error 1839"},
      {"DD.MM.RRRR", "29.02.2024", "2024-02-29 00:00:00/7"},
      {"DD.MM.RR", "29.02.24", "2024-02-29 00:00:00/7"},
      {"DD.MM.RR", "29.02.96", "1996-02-29 00:00:00/7"},
      {"DDD/YYYY", "366/2023", "error 1848"},
      {"YYYY-MM-DD HH24:MI:SS", "2024-02-29 13:45:59", "2024-02-29 13:45:59/7"},
  };
  uint8_t buf[64];
  std::memset(buf, 0x81, sizeof buf);
  for (const auto &k : cases) {
    SCOPED_TRACE(k.model);
    size_t n = ldxsti(&c, k.model, std::strlen(k.model), buf, sizeof buf);
    ASSERT_GT(n, 0u);
    // The model's own length, and the whole buffer with what an earlier,
    // longer model left behind its end.
    for (size_t len : {n, sizeof buf}) {
      ldxdate d{1, 2, 3, 4, 5, 6, 7};
      int32_t r = ldxsto(&c, &d, k.text, std::strlen(k.text), reinterpret_cast<const char *>(buf), len, LDX_OPT_ERRNUM);
      EXPECT_EQ(r ? "error " + std::to_string(r) : str(d), k.want) << len;
    }
  }
}

TEST(DateFixedLayout, DamagedCompiledModelsReadAsTheGeneralReaderReadsThem) {
  // A compiled model is the caller's memory: with the fixed bit set over
  // items that are no longer fixed (suffix flags, other codes, other
  // bytes), the fast readers must step aside, not read differently.
  PinNow pin;
  Ctx x;
  ldxctx &c = x.c;
  std::mt19937 g(7);
  int compared = 0;
  for (int i = 0; i < 3000; ++i) {
    Model m = make_model(g, &c);
    const size_t at = 2 + g() % (m.fast.size() - 2);
    const uint8_t v = static_cast<uint8_t>(g() % 3 == 0 ? g() % 64 : g() % 256);
    m.fast[at] = v;
    m.slow[at] = v;
    if (g() % 8 == 0) m.fast[1] |= kHdrEbcdic, m.slow[1] |= kHdrEbcdic;
    for (int k = 0; k < 5; ++k) {
      std::string t(m.textlen, '0');
      for (char &ch : t) ch = static_cast<char>(g() % 3 ? '0' + g() % 10 : kSeps[g() % sizeof kSeps]);
      ASSERT_EQ(read(&c, m.fast, t), read(&c, m.slow, t))
          << m.text << " byte " << at << " = " << int{v} << " [" << t << "]";
      ++compared;
    }
    const ldxdate d = random_date(g);
    ASSERT_EQ(write(x, m.fast, d, 128), write(x, m.slow, d, 128)) << m.text;
  }
  EXPECT_GE(compared, 15000);
}

TEST(DateFixedLayout, WriterAgreesWithTheGeneralWriter) {
  // Every output size from none to more than enough: the same text, or
  // the same error (1801) through the callback.
  Ctx x;
  ldxctx &c = x.c;
  std::mt19937 g(11);
  int compared = 0;
  for (int i = 0; i < 400; ++i) {
    const Model m = make_model(g, &c);
    SCOPED_TRACE(m.text);
    for (int k = 0; k < 6; ++k) {
      ldxdate d = random_date(g);
      if (k == 5) d.year = static_cast<int16_t>(-d.year);  // BC years write their digits alone
      for (size_t cap = 0; cap <= m.textlen + 9; ++cap) {
        const Written a = write(x, m.fast, d, cap);
        ASSERT_EQ(a, write(x, m.slow, d, cap)) << str(d) << " cap " << cap;
        if (std::get<0>(a) >= 0) ASSERT_EQ(std::get<2>(a), std::string(std::get<2>(a), 0, m.textlen) + "?");
        ++compared;
      }
    }
  }
  EXPECT_GT(compared, 30000);
}

}  // namespace

namespace {

TEST(DateFixedLayout, ThreadsKeepTheirOwnPlans) {
  // Each thread keeps plans of its own: threads reading and writing with
  // many models at once (more than a thread keeps) get what one thread
  // alone gets, and a date read and written again reads back the same.
  PinNow pin;
  Ctx x;
  ldxctx &c = x.c;
  Recorder &rec = x.rec;
  std::mt19937 g(3);
  std::vector<Model> models;
  for (int i = 0; i < 12; ++i) models.push_back(make_model(g, &c));
  rec.errs.clear();
  struct Case {
    size_t model;
    std::string text;
    int32_t r;
    std::string date;
  };
  std::vector<Case> cases;
  for (int i = 0; i < 600; ++i) {
    const size_t mi = g() % models.size();
    const Model &m = models[mi];
    std::string t = g() % 2 ? edge_text(g, m) : std::string(m.textlen, '1');
    ldxdate d{1, 2, 3, 4, 5, 6, 7};
    int32_t r = ldxsto(&c, &d, t.data(), t.size(), reinterpret_cast<const char *>(m.slow.data()), m.slow.size(),
                       LDX_OPT_ERRNUM);
    cases.push_back({mi, t, r, str(d)});
  }
  std::vector<int> bad(4, 0);
  std::vector<std::thread> threads;
  for (int k = 0; k < 4; ++k) {
    threads.emplace_back([&, k] {
      for (int round = 0; round < 20; ++round) {
        for (size_t i = static_cast<size_t>(k); i < cases.size(); i += 3) {
          const Case &x = cases[i];
          const Model &m = models[x.model];
          ldxdate d{1, 2, 3, 4, 5, 6, 7};
          int32_t r = ldxsto(&c, &d, x.text.data(), x.text.size(), reinterpret_cast<const char *>(m.fast.data()),
                             m.fast.size(), LDX_OPT_ERRNUM);
          if (r != x.r || str(d) != x.date) ++bad[static_cast<size_t>(k)];
          if (r == 0) {
            char out[64];
            int32_t n = ldxdts(&c, out, sizeof out, &d, reinterpret_cast<const char *>(m.fast.data()), m.fast.size());
            ldxdate back{1, 2, 3, 4, 5, 6, 7};
            if (n < 0 || ldxsto(&c, &back, out, static_cast<size_t>(n), reinterpret_cast<const char *>(m.fast.data()),
                                m.fast.size(), LDX_OPT_ERRNUM) != 0 || str(back) != x.date)
              ++bad[static_cast<size_t>(k)];
          }
        }
      }
    });
  }
  for (std::thread &t : threads) t.join();
  EXPECT_EQ(bad, std::vector<int>(4, 0));
  EXPECT_TRUE(rec.errs.empty());
}

}  // namespace
