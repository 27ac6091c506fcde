// The literal parser: the listed edge cases, the territory views (decimal
// character, EBCDIC, two-byte Unicode), and random literals compared with
// the oracle's reading of the same rules.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "lnx.h"
#include "number/nls_view_impl.h"
#include "tests/number/lnx_test_util.h"

using namespace lnxtest;

namespace {

struct Parsed {
  std::string hex;
  size_t consumed;
};

Parsed parse(const std::string &t, int pg = 0, uint32_t p = 0, int sg = 0, int32_t s = 0) {
  uint8_t out[22];
  size_t ol = 0, used = 99;
  uint8_t *r = lnxcpn(t.data(), t.size(), out, &ol, static_cast<uint8_t>(pg), p,
                      static_cast<uint8_t>(sg), s, &used, nullptr);
  EXPECT_EQ(r, out);
  EXPECT_EQ(lnxchk(out, ol), 1) << t;
  return {hex(out, ol), used};
}

TEST(NumberParse, ListedCases) {
  struct {
    const char *text;
    int pg;
    uint32_t p;
    int sg;
    int32_t s;
    const char *want;
    size_t used;
  } cases[] = {
      {"", 0, 0, 0, 0, "80", 0},
      {"    ", 0, 0, 0, 0, "80", 0},
      {"1e126", 0, 0, 0, 0, "ff65", 5},
      {"-1e126", 0, 0, 0, 0, "00", 6},
      {"1e-131", 0, 0, 0, 0, "80", 6},
      {"12e", 0, 0, 0, 0, "c10d", 2},
      {"12e+", 0, 0, 0, 0, "c10d", 2},
      {"9.99", 1, 3, 1, 1, "c10b", 4},   // 10.0 needs 3 digits
      {"9.99", 1, 2, 1, 1, "c10b", 0},   // value still 10, precision violated
      {"0.5", 0, 0, 1, 0, "c102", 3},
      {"0.4", 0, 0, 1, 0, "80", 3},
      {" -12.50e3 ", 0, 0, 0, 0, "3c644c66", 10},
      {"123.45", 0, 0, 0, 0, "c202182e", 6},
      {"-123.45", 0, 0, 0, 0, "3d644e3866", 7},
      {"1e-128", 0, 0, 0, 0, "8102", 6},
      {"1e-129", 0, 0, 0, 0, "80", 6},
      {"+.5x", 0, 0, 0, 0, "c033", 3},
      {"-", 0, 0, 0, 0, "80", 0},
      {".", 0, 0, 0, 0, "80", 0},
      {"000", 0, 0, 0, 0, "80", 3},
      {"5e1000", 0, 0, 0, 0, "ff65", 6},     // four exponent digits
      {"5e-0000001", 0, 0, 0, 0, "c033", 10},  // leading zeros are not significant
      {"5e-1000", 0, 0, 0, 0, "80", 7},
      {"149", 0, 0, 1, -2, "c202", 3},
      {"150", 0, 0, 1, -2, "c203", 3},
  };
  for (const auto &c : cases) {
    Parsed r = parse(c.text, c.pg, c.p, c.sg, c.s);
    EXPECT_EQ(r.hex, c.want) << '"' << c.text << '"';
    EXPECT_EQ(r.consumed, c.used) << '"' << c.text << '"';
  }
}

TEST(NumberParse, DigitLimitFollowsParity) {
  auto rep = [](const char *x, int n) {
    std::string r;
    for (int i = 0; i < n; ++i) r += x;
    return r;
  };
  struct {
    std::string text, want;
  } cases[] = {
      // 41 digits, first at 10^40 (even): 39 kept, the dropped '1' does not round.
      {rep("1", 40) + "5", "d502" + rep("0c", 19)},
      // 42 digits, first at 10^41 (odd): 40 kept, the 41st '5' rounds up.
      {rep("1", 40) + "50", "d5" + rep("0c", 19) + "0d"},
      // 40 digits at an odd power: all kept.
      {rep("1", 39) + "5", "d4" + rep("0c", 19) + "10"},
      {rep("9", 39) + "5", "d4" + rep("64", 19) + "60"},
      // 41 nines at an even power: 39 kept, rounding carries to 10^41.
      {rep("9", 41), "d50b"},
  };
  for (const auto &c : cases) EXPECT_EQ(parse(c.text).hex, c.want) << c.text;
}

TEST(NumberParse, LengthPrefixedTextScratchAndNullLength) {
  char t[8] = {5, '-', '2', '.', '5', '0'};
  uint8_t *r = lnxcpn(t, 0, nullptr, nullptr, 0, 0, 0, 0, nullptr, nullptr);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(hex(r, static_cast<size_t>(r[0]) + 1), "043e633366");
}

// Territory views, through the internal entry that the handle adapter feeds.
TEST(NumberParse, TerritoryViews) {
  using namespace lnx_internal;
  struct {
    NlsView view;
    std::string text;
    const char *want;
    size_t used;
  } cases[] = {
      {{',', Alphabet::Ascii}, "12,5", "c10d33", 4},
      {{',', Alphabet::Ascii}, "12.5", "c10d", 2},
      {{0x4B, Alphabet::Ebcdic}, std::string("\x60\xF1\xF2\x4B\xF5\x85\xF1\x40", 8), "3d644c66", 8},  // -12.5e1
      {{0x6B, Alphabet::Ebcdic}, std::string("\xF1\x6B\xF5", 3), "c10233", 3},                    // 1,5
      {{0x4B, Alphabet::Ebcdic}, "12", "80", 0},  // ASCII digits mean nothing in EBCDIC
      {{'.', Alphabet::Utf16Be}, std::string("\0-\0" "1\0.\0" "5\0 ", 10), "3e643366", 10},
      {{'.', Alphabet::Utf16Le}, std::string("2\0.\0" "5\0E\0" "2\0", 10), "c20333", 10},
      {{0x066B, Alphabet::Utf16Be}, std::string("\0" "3\x06\x6B\0" "5", 6), "c10433", 6},
      {{'.', Alphabet::Utf16Be}, std::string("\0" "3\x06\x6B\0" "5", 6), "c104", 2},
  };
  for (const auto &c : cases) {
    uint8_t out[22];
    size_t ol = 0, used = 99;
    parse_number(c.text.data(), c.text.size(), c.view, out, &ol, false, 0, false, 0, &used);
    EXPECT_EQ(hex(out, ol), c.want) << hex(reinterpret_cast<const uint8_t *>(c.text.data()), c.text.size());
    EXPECT_EQ(used, c.used) << hex(reinterpret_cast<const uint8_t *>(c.text.data()), c.text.size());
  }
  // A handle without a reachable global context consumes nothing.
  int fake_handle = 0;
  size_t used = 7;
  uint8_t out[22];
  size_t ol;
  EXPECT_EQ(lnxcpng("12", 2, out, &ol, 0, 0, 0, 0, &used, &fake_handle, nullptr), nullptr);
  EXPECT_EQ(used, 0u);
}

// Random literals: mixtures of blanks, signs, leading zeros, long digit runs,
// fractions, exponents of every size and garbage, with random limits.
TEST(NumberParse, RandomLiteralsAgainstOracle) {
  Gen g(2024);
  std::vector<std::string> lines;
  const char *junk[] = {"", "", "", "x", " ", "  7", "e", "E-", ".", "+", "-1", ",5"};
  for (int i = 0; i < 60000; ++i) {
    std::string t;
    for (int k = g.uni(0, 2); k > 0; --k) t += ' ';
    int sg = g.uni(0, 3);
    if (sg == 1) t += '+';
    if (sg == 2) t += '-';
    for (int k = g.uni(0, 4) == 0 ? g.uni(1, 6) : 0; k > 0; --k) t += '0';
    int ni = g.uni(0, 4) == 0 ? g.uni(0, 60) : g.uni(0, 22);
    int style = g.uni(0, 3);
    for (int k = 0; k < ni; ++k) t += static_cast<char>('0' + (style == 1 ? 9 : style == 2 ? (g.uni(0, 3) ? 0 : 5) : g.uni(0, 9)));
    if (g.uni(0, 2)) {
      t += '.';
      for (int k = g.uni(0, 3) == 0 ? g.uni(0, 8) : 0; k > 0; --k) t += '0';
      int nf = g.uni(0, 4) == 0 ? g.uni(0, 60) : g.uni(0, 22);
      for (int k = 0; k < nf; ++k) t += static_cast<char>('0' + (style == 1 ? 9 : g.uni(0, 9)));
    }
    if (g.uni(0, 2) == 0) {
      t += g.uni(0, 1) ? 'e' : 'E';
      int es = g.uni(0, 2);
      if (es == 1) t += '-';
      if (es == 2) t += '+';
      int ev = g.uni(0, 5) == 0 ? g.uni(0, 2000) : g.uni(0, 140);
      if (g.uni(0, 9) == 0) t += "00";
      if (g.uni(0, 20) != 0) t += std::to_string(ev);
    }
    for (int k = g.uni(0, 2); k > 0; --k) t += ' ';
    t += junk[g.uni(0, 11)];
    int pg = g.uni(0, 3) == 0, scg = g.uni(0, 3) == 0;
    uint32_t p = static_cast<uint32_t>(g.uni(1, 45));
    int32_t s = g.uni(-20, 45);
    uint8_t out[22];
    size_t ol = 0, used = 0;
    lnxcpn(t.data(), t.size(), out, &ol, static_cast<uint8_t>(pg), p, static_cast<uint8_t>(scg), s, &used, nullptr);
    ASSERT_EQ(lnxchk(out, ol), 1) << t;
    lines.push_back("parse " + (t.empty() ? std::string("-") : hex(reinterpret_cast<const uint8_t *>(t.data()), t.size())) +
                    " " + std::to_string(pg) + " " + std::to_string(p) + " " + std::to_string(scg) + " " +
                    std::to_string(s) + " " + std::to_string(used) + " " + hex(out, ol));
  }
  EXPECT_TRUE(oracle_agrees("parse", lines));
}

}  // namespace
