// Small utilities checked against the C library, std:: containers and a
// Python model of the random generator.
#include <gtest/gtest.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "lpm.h"
#include "lut.h"
#include "tests/support/python.h"

namespace {

std::string rnd_text(std::mt19937_64 &g, size_t maxlen, const std::string &alphabet) {
  std::string s(g() % (maxlen + 1), ' ');
  for (auto &c : s) c = alphabet[g() % alphabet.size()];
  return s;
}

int sign(int v) { return (v > 0) - (v < 0); }

TEST(Utilities, StringRoutinesAgreeWithLibc) {
  std::mt19937_64 g(42);
  const std::string alpha = "abcABC xyz\t\n,;.-Q";
  for (int it = 0; it < 3000; it++) {
    std::string a = rnd_text(g, 20, alpha), b = rnd_text(g, 20, alpha);
    size_t cap = g() % 24;
    // bounded copy against snprintf
    char d1[32], d2[32];
    memset(d1, 'x', sizeof d1);
    memset(d2, 'x', sizeof d2);
    size_t r = lutscpy(d1, cap, a.c_str());
    int want = cap ? snprintf(d2, cap, "%s", a.c_str()) : static_cast<int>(a.size());
    EXPECT_EQ(r, static_cast<size_t>(want));
    EXPECT_EQ(memcmp(d1, d2, sizeof d1), 0) << a << " cap " << cap;
    // concatenation against std::string
    if (cap > 0) {
      std::string pre = a.substr(0, std::min(a.size(), cap - 1));
      memcpy(d1, pre.c_str(), pre.size() + 1);
      size_t rc = lutscat(d1, cap, b.c_str());
      std::string full = pre + b;
      EXPECT_EQ(rc, full.size());
      EXPECT_EQ(std::string(d1), full.substr(0, cap - 1));
    }
    // case-insensitive comparison against strcasecmp / strncasecmp (C locale)
    EXPECT_EQ(sign(lutsicmp(a.c_str(), b.c_str())), sign(strcasecmp(a.c_str(), b.c_str()))) << a << "|" << b;
    size_t n = g() % 8;
    EXPECT_EQ(sign(lutsnicmp(a.c_str(), b.c_str(), n)), sign(strncasecmp(a.c_str(), b.c_str(), n)));
    // trimming against string_view searches
    size_t off;
    size_t tl = lutstrim(a.data(), a.size(), &off);
    const char *ws = " \t\n\v\f\r";
    size_t f = a.find_first_not_of(ws);
    if (f == std::string::npos) {
      EXPECT_EQ(tl, 0u);
    } else {
      EXPECT_EQ(off, f);
      EXPECT_EQ(off + tl, a.find_last_not_of(ws) + 1);
    }
    // tokenising against a hand split
    std::vector<std::string> want_toks, got_toks;
    std::string cur;
    for (char c : a) {
      if (c == ',' || c == ';' || c == ' ') {
        if (!cur.empty()) want_toks.push_back(cur);
        cur.clear();
      } else {
        cur += c;
      }
    }
    if (!cur.empty()) want_toks.push_back(cur);
    size_t pos = 0, len;
    while (const char *t = lutstok(a.data(), a.size(), ",; ", &pos, &len)) got_toks.emplace_back(t, len);
    EXPECT_EQ(got_toks, want_toks) << a;
    // searching against std::string::find
    std::string needle = b.substr(0, g() % 3);
    const char *p = lutsfind(a.data(), a.size(), needle.data(), needle.size());
    size_t w = a.find(needle);
    EXPECT_EQ(p ? static_cast<size_t>(p - a.data()) : std::string::npos, w);
    std::string la = a, ln = needle;
    for (auto &c : la) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    for (auto &c : ln) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    p = lutsifind(a.data(), a.size(), needle.data(), needle.size());
    EXPECT_EQ(p ? static_cast<size_t>(p - a.data()) : std::string::npos, la.find(ln));
  }
  // Bytes with NULs and the high bit are searched as bytes.
  const char hay[] = {'a', 0, 'b', '\xff', 'c'};
  EXPECT_EQ(lutsfind(hay, 5, "\0b", 2), hay + 1);
  EXPECT_EQ(lutsfind(hay, 5, "\xff" "c", 2), hay + 3);
  EXPECT_EQ(lutsfind(hay, 5, "cd", 2), nullptr);
  EXPECT_EQ(lutsfind("xab", 2, "ab", 2), nullptr) << "matched past the given length";
  char small[4] = {'a', 'b', 'c', 'd'};  // no terminator: nothing written
  EXPECT_EQ(lutscat(small, 4, "xy"), 6u);
  EXPECT_EQ(memcmp(small, "abcd", 4), 0);
}

TEST(Utilities, CharacterClassesMatchTheCLocale) {
  struct {
    uint32_t bit;
    int (*f)(int);
  } rows[] = {{LUT_C_UPPER, isupper}, {LUT_C_LOWER, islower}, {LUT_C_DIGIT, isdigit}, {LUT_C_SPACE, isspace},
              {LUT_C_PUNCT, ispunct}, {LUT_C_CNTRL, iscntrl}, {LUT_C_XDIGIT, isxdigit}, {LUT_C_BLANK, isblank},
              {LUT_C_ALPHA, isalpha}, {LUT_C_ALNUM, isalnum}};
  for (int c = -1; c < 300; c++) {
    int cc = (c >= 0 && c < 256) ? c : EOF;
    for (auto &r : rows) EXPECT_EQ(lutcis(c, r.bit), (c >= 0 && c < 256 && r.f(cc)) ? 1 : 0) << c << " " << r.bit;
    if (c >= 0 && c < 128) {
      EXPECT_EQ(lutcupper(c), toupper(c)) << c;
      EXPECT_EQ(lutclower(c), tolower(c)) << c;
    } else {
      EXPECT_EQ(lutcupper(c), c);
      EXPECT_EQ(lutclower(c), c);
    }
  }
}

TEST(Utilities, BitVectorsAgreeWithVectorBool) {
  std::mt19937_64 g(7);
  for (size_t nbits : {1u, 63u, 64u, 65u, 127u, 128u, 200u, 1000u}) {
    size_t words = LUT_BV_WORDS(nbits);
    // A guard word after the vector and the unused high bits must survive.
    std::vector<uint64_t> a(words + 1, 0), b(words + 1, 0), d(words + 1, 0);
    const uint64_t guard = 0xA5A5A5A5A5A5A5A5ull;
    uint64_t hi = nbits % 64 ? ~((uint64_t{1} << (nbits % 64)) - 1) : 0;
    a[words] = b[words] = d[words] = guard;
    a[words - 1] |= hi;
    d[words - 1] |= hi;
    std::vector<bool> ma(nbits), mb(nbits);
    for (int it = 0; it < 2000; it++) {
      size_t i = g() % (nbits + 2);
      int op = static_cast<int>(g() % 4);
      int32_t rc = op == 0 ? lutbvset(a.data(), nbits, i)
                 : op == 1 ? lutbvclr(a.data(), nbits, i)
                 : op == 2 ? lutbvflp(a.data(), nbits, i)
                           : lutbvset(b.data(), nbits, i);
      if (i >= nbits) {
        EXPECT_EQ(rc, -1);
        continue;
      }
      if (op == 0) ma[i] = true;
      if (op == 1) ma[i] = false;
      if (op == 2) ma[i] = !ma[i];
      if (op == 3) mb[i] = true;
      size_t from = g() % (nbits + 1);
      size_t fs = std::find(ma.begin() + from, ma.end(), true) - ma.begin();
      size_t fc = std::find(ma.begin() + from, ma.end(), false) - ma.begin();
      EXPECT_EQ(lutbvffs(a.data(), nbits, from), fs == nbits ? SIZE_MAX : fs);
      EXPECT_EQ(lutbvffc(a.data(), nbits, from), fc == nbits ? SIZE_MAX : fc);
      EXPECT_EQ(lutbvcnt(a.data(), nbits), static_cast<size_t>(std::count(ma.begin(), ma.end(), true)));
      EXPECT_EQ(lutbvtst(a.data(), nbits, i), ma[i] ? 1 : 0);
    }
    auto check = [&](auto f, const char *what) {
      for (size_t i = 0; i < nbits; i++) ASSERT_EQ(lutbvtst(d.data(), nbits, i), f(ma[i], mb[i]) ? 1 : 0) << what << i;
      EXPECT_EQ(d[words], guard) << what;
      EXPECT_EQ(d[words - 1] & hi, hi) << what;
    };
    lutbvand(d.data(), a.data(), b.data(), nbits);
    check([](bool x, bool y) { return x && y; }, "and");
    lutbvor(d.data(), a.data(), b.data(), nbits);
    check([](bool x, bool y) { return x || y; }, "or");
    lutbvxor(d.data(), a.data(), b.data(), nbits);
    check([](bool x, bool y) { return x != y; }, "xor");
    lutbvnot(d.data(), a.data(), nbits);
    check([](bool x, bool) { return !x; }, "not");
    lutbvall(d.data(), nbits, 1);
    EXPECT_EQ(lutbvcnt(d.data(), nbits), nbits);
    EXPECT_EQ(lutbvffc(d.data(), nbits, 0), SIZE_MAX);
    lutbvall(d.data(), nbits, 0);
    check([](bool, bool) { return false; }, "clear");
    EXPECT_EQ(a[words], guard);
  }
  lcorectx *ctx = lpminit();
  void *m = ctx->lmmctx;
  uint64_t *v = lutbvalc(m, lmmtophp(m), 130);
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(lutbvcnt(v, 130), 0u);
  EXPECT_EQ(lutbvalc(m, lmmtophp(m), 0), nullptr);
  lmmfree(m, lmmtophp(m), v, 0);
  lpmterm(ctx);
}

TEST(Utilities, FastGeneratorMatchesPythonModel) {
  // The generator written out in Python from the published algorithm.
  std::string out;
  ASSERT_TRUE(kel_test::run_python("tests/util/xoshiro_model.py", "", out));
  std::istringstream in(out);
  unsigned long long seed, want;
  unsigned long long last_seed = 1;
  lutrng st;
  int lines = 0;
  bool first = true;
  while (in >> seed >> want) {
    if (first || seed != last_seed) lutrseed(&st, seed);
    first = false;
    last_seed = seed;
    EXPECT_EQ(lutrnext(&st), want) << "seed " << seed;
    lines++;
  }
  EXPECT_EQ(lines, 200);

  // Bounded values stay in range and are evenly spread (chi-square, 6
  // degrees of freedom, far beyond the 0.1% point of 22.5 means a fault).
  lutrseed(&st, 99);
  std::vector<int> counts(7);
  for (int i = 0; i < 70000; i++) {
    uint64_t v = lutrrange(&st, 7);
    ASSERT_LT(v, 7u);
    counts[v]++;
  }
  double chi = 0;
  for (int c : counts) chi += (c - 10000.0) * (c - 10000.0) / 10000.0;
  EXPECT_LT(chi, 22.5);
  EXPECT_EQ(lutrrange(&st, 0), 0u);
  EXPECT_LT(lutrrange(&st, 1), 1u);
  uint64_t big = (uint64_t{1} << 63) + 1;  // most rejections happen here
  for (int i = 0; i < 1000; i++) ASSERT_LT(lutrrange(&st, big), big);
  for (int i = 0; i < 1000; i++) {
    double d = lutrdbl(&st);
    ASSERT_GE(d, 0.0);
    ASSERT_LT(d, 1.0);
  }
}

TEST(Utilities, StrongRandomBytesLookRandom) {
  std::vector<uint8_t> a(1 << 16), b(1 << 16);
  ASSERT_EQ(lutrstrong(a.data(), a.size()), 0);
  ASSERT_EQ(lutrstrong(b.data(), b.size()), 0);
  EXPECT_NE(a, b);
  std::vector<int> counts(256);
  for (uint8_t x : a) counts[x]++;
  double chi = 0, e = a.size() / 256.0;
  for (int c : counts) chi += (c - e) * (c - e) / e;
  EXPECT_LT(chi, 350.0);  // 255 degrees of freedom; 0.01% point is about 340
  EXPECT_EQ(lutrstrong(nullptr, 0), 0);
  EXPECT_EQ(lutrstrong(nullptr, 1), -1);
}

TEST(Utilities, VersionTexts) {
  // The version the build stamps on the shared library.
  std::ifstream f(std::string(KEL_SOURCE_DIR) + "/CMakeLists.txt");
  std::string all((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  std::smatch m;
  ASSERT_TRUE(std::regex_search(all, m, std::regex(R"(project\(kelcore10 VERSION (\d+)\.(\d+)\.(\d+))")));
  EXPECT_EQ(std::string(lutver()), m[1].str() + "." + m[2].str() + "." + m[3].str());
  EXPECT_EQ(lutvernum(), std::stoi(m[1]) * 10000 + std::stoi(m[2]) * 100 + std::stoi(m[3]));

  struct {
    const char *a, *b;
    int want;
  } rows[] = {
      {"1.2", "1.2.0", 0},     {"1.2", "1.10", -1},   {"10.0.0", "9.9.9", 1}, {"1.02", "1.2", 0},
      {"1.2rc1", "1.2", -1},   {"1.2rc1", "1.2rc2", -1}, {"1.2a", "1.2b", -1}, {"1.2.1", "1.2rc1", 1},
      {"", "0", 0},            {"", "1", -1},         {"v1.0", "v1.0.0", 0}, {"1-2", "1.2", 0},
      {"18446744073709551616", "18446744073709551615", 1}, {"1.0beta", "1.0alpha", 1}, {"1.2ab", "1.2a", 1},
  };
  for (auto &r : rows) {
    EXPECT_EQ(lutvercmp(r.a, r.b), r.want) << r.a << " vs " << r.b;
    EXPECT_EQ(lutvercmp(r.b, r.a), -r.want) << r.b << " vs " << r.a;
  }
  EXPECT_EQ(lutvercmp(nullptr, "1"), -1);
  EXPECT_EQ(lutvercmp(nullptr, nullptr), 0);

  // Sorting random versions with it must give a consistent order: every
  // adjacent pair in order, and equal texts adjacent.
  std::mt19937_64 g(5);
  std::vector<std::string> v;
  for (int i = 0; i < 400; i++) v.push_back(rnd_text(g, 6, "0129.ab-"));
  std::sort(v.begin(), v.end(), [](const std::string &x, const std::string &y) { return lutvercmp(x.c_str(), y.c_str()) < 0; });
  for (size_t i = 0; i + 1 < v.size(); i++)
    for (size_t j = i + 1; j < v.size(); j++) ASSERT_LE(lutvercmp(v[i].c_str(), v[j].c_str()), 0) << v[i] << " " << v[j];
}

}  // namespace
