// Conversions to and from native integers, binary strings and binary
// floating point: the listed edge cases, round trips, and random values
// compared with Python (integers, exact decimal values of doubles, correctly
// rounded float conversions) and with snprintf for the digit generator.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "lnx.h"
#include "tests/number/lnx_test_util.h"

using namespace lnxtest;

namespace {

// A native integer of `size` bytes (little-endian), widened.
int64_t native(const uint8_t *raw, size_t size, bool is_signed) {
  uint64_t u = 0;
  memcpy(&u, raw, size);
  const int drop = 64 - 8 * static_cast<int>(size);
  return is_signed && drop ? static_cast<int64_t>(u << drop) >> drop : static_cast<int64_t>(u);
}

TEST(NumberNative, SniListedCases) {
  struct {
    const char *text;
    size_t size;
    uint32_t flags;
    int64_t want;
    int status;
  } cases[] = {
      {"2147483648", 4, LNX_SIGNED, 0x7FFFFFFF, 1},
      {"-2147483648", 4, LNX_SIGNED, INT32_MIN, 0},
      {"-2147483649", 4, LNX_SIGNED, INT32_MIN, 1},
      {"-5", 4, LNX_UNSIGNED, 0, 1},
      {"-0.5", 4, LNX_UNSIGNED, 0, 2},
      {"12.99", 1, LNX_UNSIGNED, 12, 0},
      {"12.99", 2, LNX_NONNEG, 12, 0},
      {"-12.99", 8, LNX_SIGNED, -12, 0},
      {"0.7", 8, LNX_SIGNED, 0, 2},
      {"0", 2, LNX_SIGNED, 0, 0},
      {"256", 1, LNX_UNSIGNED, 255, 1},
      {"256", 1, LNX_UNSIGNED | LNX_WRAP, 0, 1},
      {"257", 1, LNX_UNSIGNED | LNX_WRAP, 1, 1},
      {"-129", 1, LNX_SIGNED, -128, 1},
      {"-129", 1, LNX_SIGNED | LNX_WRAP, 127, 1},
      {"40000", 2, LNX_NONNEG, 32767, 1},
      {"18446744073709551615", 8, LNX_UNSIGNED, -1, 0},
      {"18446744073709551616", 8, LNX_UNSIGNED, -1, 1},
      {"18446744073709551617", 8, LNX_UNSIGNED | LNX_WRAP, 1, 1},
      {"-9223372036854775808", 8, LNX_SIGNED, INT64_MIN, 0},
      {"9223372036854775808", 8, LNX_SIGNED, INT64_MAX, 1},
      {"1e30", 8, LNX_SIGNED | LNX_WRAP, static_cast<int64_t>(0x4674EDEA40000000ull), 1},  // 10^30 mod 2^64
      {"1e200", 4, LNX_SIGNED, 0x7FFFFFFF, 1},           // positive infinity
      {"-1e200", 2, LNX_SIGNED, INT16_MIN, 1},
      {"5", 3, LNX_SIGNED, 0, 3},
      {"5", 8, LNX_NONNEG, 0, 3},
      {"5", 4, 7, 0, 3},
  };
  for (const auto &c : cases) {
    uint8_t n[22], raw[8] = {};
    size_t nl;
    lnxcpn(c.text, strlen(c.text), n, &nl, 0, 0, 0, 0, nullptr, nullptr);
    const int st = lnxsni(n, nl, raw, c.size, c.flags);
    EXPECT_EQ(st, c.status) << c.text;
    if (st != 3) EXPECT_EQ(native(raw, c.size, (c.flags & 0x7F) != LNX_UNSIGNED), c.want) << c.text;
  }
}

// Integers of every size and kind to numbers against Python, and back
// exactly; binary strings up to 18 bytes (beyond 10^40 is refused) likewise.
TEST(NumberNative, IntegersAndBinaryStringsAgainstPython) {
  Gen g(555);
  std::vector<std::string> lines;
  const int64_t specials[] = {0, 1, -1, 99, 100, -100, INT8_MIN, INT8_MAX, INT16_MIN, INT16_MAX,
                              INT32_MIN, INT32_MAX, INT64_MIN, INT64_MAX, 1000000000000000000};
  for (int i = 0; i < 40000; ++i) {
    const uint64_t u = g.rng() >> g.uni(0, 63);
    const int64_t v = i < 15 ? specials[i] : static_cast<int64_t>(g.uni(0, 1) ? u : 0 - u);
    const int kind = g.uni(0, 2);
    const size_t sizes[] = {1, 2, 4, 8};
    const size_t size = g.uni(0, 1) ? sizes[g.uni(0, kind == LNX_NONNEG ? 2 : 3)] : kind == LNX_NONNEG ? 4 : 8;
    uint8_t raw[8], out[22], back[8] = {};
    size_t ol;
    memcpy(raw, &v, 8);
    ASSERT_EQ(lnxmin(raw, size, kind, out, &ol), 0);
    const int64_t seen = native(raw, size, kind != LNX_UNSIGNED);
    const std::string text = kind == LNX_UNSIGNED ? std::to_string(static_cast<uint64_t>(seen)) : std::to_string(seen);
    lines.push_back("int " + text + " " + hex(out, ol));
    // The non-negative kind refuses negatives.
    const bool refused = kind == LNX_NONNEG && seen < 0;
    EXPECT_EQ(lnxsni(out, ol, back, size, static_cast<uint32_t>(kind)), refused ? 1 : 0) << text;
    if (!refused) EXPECT_EQ(hex(back, size), hex(raw, size)) << text;
  }
  for (int i = 0; i < 20000; ++i) {
    Bytes b(static_cast<size_t>(g.uni(0, 18)));
    for (auto &x : b) x = static_cast<uint8_t>(g.uni(0, 3) == 0 ? 0 : g.uni(0, 255));
    uint8_t out[22];
    size_t ol;
    const int st = lnxr2n(b.data(), b.size(), out, &ol);
    lines.push_back("r2n " + (b.empty() ? std::string("-") : hex(b)) + " " + std::to_string(st) + " " + hex(out, ol));
    Bytes back(b.size() + 3, 0xEE);
    if (st == 0) {
      ASSERT_EQ(lnxn2r(out, ol, back.data(), back.size()), 0);
      EXPECT_EQ(hex(back), "000000" + hex(b));
    }
  }
  EXPECT_TRUE(oracle_agrees("native", lines));
}

TEST(NumberNative, BinaryStringsListed) {
  const uint8_t b256[] = {0, 0, 1, 0};
  uint8_t out[22];
  size_t ol;
  EXPECT_EQ(lnxr2n(b256, 4, out, &ol), 0);
  EXPECT_EQ(hex(out, ol), "c20339");
  EXPECT_EQ(lnxr2n(b256, 0, out, &ol), 0);
  EXPECT_EQ(hex(out, ol), "80");
  uint8_t r[4];
  const uint8_t half[] = {0xC0, 0x33}, neg[] = {0x3E, 0x64, 0x66}, inf[] = {0xFF, 0x65};
  EXPECT_EQ(lnxn2r(half, 2, r, 4), 1);
  EXPECT_EQ(lnxn2r(neg, 3, r, 4), 1);
  EXPECT_EQ(lnxn2r(inf, 2, r, 4), 1);
  const uint8_t big[] = {0xC3, 0x02};  // 10000 = 0x2710
  EXPECT_EQ(lnxn2r(big, 2, r, 1), 2);
  EXPECT_EQ(lnxn2r(big, 2, nullptr, 0), 2) << "no room at all";
  EXPECT_EQ(lnxn2r(out, ol, nullptr, 0), 0) << "zero needs none";
  EXPECT_EQ(lnxn2r(big, 2, r, 2), 0);
  EXPECT_EQ(hex(r, 2), "2710");
  // 10^120 fits in 50 bytes.
  uint8_t e120[] = {0xFD, 0x02};
  uint8_t wide[60];
  EXPECT_EQ(lnxn2r(e120, 2, wide, sizeof wide), 0);
  uint8_t rt[22];
  EXPECT_EQ(lnxr2n(wide, sizeof wide, rt, &ol), 1);  // too many digits to come back
}

TEST(NumberNative, MinListed) {
  uint8_t out[22];
  size_t ol;
  int64_t mn = INT64_MIN;
  ASSERT_EQ(lnxmin(&mn, 8, LNX_SIGNED, out, &ol), 0);
  char text[64];
  size_t tl;
  ASSERT_EQ(lnxn2t(out, ol, LNX_TEXT_PLAIN, 0, text, sizeof text, &tl), 0);
  EXPECT_EQ(std::string(text, tl), "-9223372036854775808");
  int32_t x = 5;
  EXPECT_EQ(lnxmin(&x, 3, LNX_SIGNED, out, &ol), 3);
  EXPECT_EQ(lnxmin(&x, 16, LNX_SIGNED, out, &ol), 3);
  EXPECT_EQ(lnxmin(&x, 8, LNX_NONNEG, out, &ol), 3);
}

TEST(NumberFloat, ListedAndCanonical) {
  uint8_t out[22] = {0xAB};
  size_t ol = 77;
  EXPECT_EQ(slfpd2lnx(nullptr, std::nan(""), out, &ol), 3);
  EXPECT_EQ(out[0], 0xAB);
  EXPECT_EQ(ol, 77u);
  EXPECT_EQ(slfpd2lnx(nullptr, INFINITY, out, &ol), 0);
  EXPECT_EQ(hex(out, ol), "ff65");
  EXPECT_EQ(slfpd2lnx(nullptr, -INFINITY, out, &ol), 0);
  EXPECT_EQ(hex(out, ol), "00");
  EXPECT_EQ(slfpd2lnx(nullptr, -0.0, out, &ol), 0);
  EXPECT_EQ(hex(out, ol), "80");
  EXPECT_EQ(slfpd2lnx(nullptr, 0.1, out, &ol), 0);
  EXPECT_EQ(hex(out, ol), "c00b010101010101010b");  // 0.10000000000000001
  EXPECT_EQ(slfpf2lnx(nullptr, 0.1f, out, &ol), 0);
  EXPECT_EQ(hex(out, ol), "c00b0101010b");  // 0.100000001

  struct {
    const char *num;
    const char *cd, *cf;
  } canon[] = {
      {"80", "8000000000000000", "80000000"},
      {"c102", "bff0000000000000", "bf800000"},
      {"3e6466", "400fffffffffffff", "407fffff"},
      {"ff65", "fff0000000000000", "ff800000"},
      {"00", "000fffffffffffff", "007fffff"},
  };
  for (const auto &c : canon) {
    Bytes n = hexbytes(c.num);
    uint8_t cd[8], cf[4];
    EXPECT_EQ(lfplnx2cd(nullptr, n.data(), n.size(), cd), 0);
    EXPECT_EQ(hex(cd, 8), c.cd) << c.num;
    EXPECT_EQ(lfplnx2cf(nullptr, n.data(), n.size(), cf), 0);
    EXPECT_EQ(hex(cf, 4), c.cf) << c.num;
    // And back.
    EXPECT_EQ(lfpcd2lnx(nullptr, cd, out, &ol), 0);
    EXPECT_EQ(hex(out, ol), c.num);
    EXPECT_EQ(lfpcf2lnx(nullptr, cf, out, &ol), 0);
    EXPECT_EQ(hex(out, ol), c.num);
  }
  // Canonical negative zero reads as zero; canonical NaN is refused.
  const uint8_t negzero[8] = {0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(lfpcd2lnx(nullptr, negzero, out, &ol), 0);
  EXPECT_EQ(hex(out, ol), "80");
  const uint8_t nan[8] = {0xFF, 0xF8, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(lfpcd2lnx(nullptr, nan, out, &ol), 3);
  // Beyond the double's range: infinity; below: zero.
  const uint8_t huge[] = {0xFF, 0x02}, tiny[] = {0x81, 0x02};
  EXPECT_EQ(slfplnx2d(huge, 2), 1e124);
  EXPECT_EQ(slfplnx2d(tiny, 2), 1e-128);
  EXPECT_EQ(slfplnx2f(tiny, 2), 0.0f);
  EXPECT_TRUE(std::isinf(slfplnx2f(huge, 2)));
}

// Packed and zoned fields beyond the oracle's round trips (differential_test):
// refusals (infinity, no room, bad sign or digit nibbles, a bad zone) and the
// forms only a reader meets, an F sign and ASCII zones.
TEST(NumberPacked, FieldsAReaderRefusesOrAccepts) {
  const uint8_t inf[] = {0xFF, 0x65}, badsign[] = {0x12, 0x34}, baddigit[] = {0x1A, 0x3C}, pf[] = {0x12, 0x3F},
                zbad[] = {0xF1, 0x42}, zascii[] = {0x31, 0x32, 0xD3};
  uint8_t f[8], r[22];
  size_t rl;
  EXPECT_EQ(lnxn2pd(inf, 2, 0, f, 4), 2);
  EXPECT_EQ(lnxn2pd(inf, 2, 0, f, 0), 3);
  EXPECT_EQ(lnxpd2n(badsign, 2, 0, r, &rl), 1);
  EXPECT_EQ(lnxpd2n(baddigit, 2, 0, r, &rl), 1);
  EXPECT_EQ(lnxzd2n(zbad, 2, 0, r, &rl), 1);
  ASSERT_EQ(lnxpd2n(pf, 2, 1, r, &rl), 0);
  EXPECT_EQ(hex(r, rl), hex(make(false, 0, {12, 30})));
  ASSERT_EQ(lnxzd2n(zascii, 3, 0, r, &rl), 0);
  EXPECT_EQ(hex(r, rl), hex(make(true, 1, {1, 23})));
}

double random_double(Gen &g) {
  int k = g.uni(0, 9);
  if (k == 0) {  // any bit pattern (NaN excluded by the caller)
    uint64_t b = g.rng();
    double d;
    memcpy(&d, &b, 8);
    return d;
  }
  if (k == 1) return std::ldexp(static_cast<double>(g.rng() >> 11), g.uni(-1126, -1000));  // subnormal area
  if (k == 2) return static_cast<double>(g.uni(-1000000, 1000000)) / std::pow(10.0, g.uni(0, 8));
  return std::ldexp(static_cast<double>(g.rng() >> 11) * (g.uni(0, 1) ? 1 : -1), g.uni(-600, 500));
}

std::string bits_hex(uint64_t b, int digits) {
  char t[20];
  snprintf(t, sizeof t, "%0*llx", digits, static_cast<unsigned long long>(b));
  return t;
}
std::string double_hex(double d) {
  uint64_t b;
  memcpy(&b, &d, 8);
  return bits_hex(b, 16);
}
std::string float_hex(float f) {
  uint32_t b;
  memcpy(&b, &f, 4);
  return bits_hex(b, 8);
}

// Doubles and floats to numbers and numbers to the nearest double and float
// against Python (the numbers made from doubles and random ones); the digit
// generator against the C library's correctly rounded %.*e.
TEST(NumberFloat, DoublesAgainstPythonAndSnprintf) {
  Gen g(8080);
  std::vector<std::string> lines;
  auto to_binary = [&](const uint8_t *n, size_t l) {
    lines.push_back("n2d " + hex(n, l) + " " + double_hex(slfplnx2d(n, l)));
    lines.push_back("n2f " + hex(n, l) + " " + float_hex(slfplnx2f(n, l)));
  };
  for (int i = 0; i < 34000; ++i) {
    double d = random_double(g);
    int nd = i % 3 == 0 ? g.uni(1, 40) : 17;
    uint8_t out[22];
    size_t ol;
    if (i >= 30000) {  // floats, with 9 digits
      uint32_t b = static_cast<uint32_t>(g.rng());
      float f;
      memcpy(&f, &b, 4);
      if (std::isnan(f)) continue;
      ASSERT_EQ(slfpf2lnx(nullptr, f, out, &ol), 0);
      d = f, nd = 9;
    } else if (std::isnan(d)) {
      continue;
    } else {
      ASSERT_EQ(slfpd2lnxl(nullptr, d, nd, out, &ol), 0);
    }
    ASSERT_EQ(lnxchk(out, ol), 1);
    lines.push_back("d2n " + double_hex(d) + " " + std::to_string(nd) + " " + hex(out, ol));
    to_binary(out, ol);
    if (std::isfinite(d) && d != 0) {
      char dig[48], ref[128];
      int32_t n, e, neg;
      ASSERT_EQ(slfpdtoa(d, nd, dig, &n, &e, &neg), 0);
      snprintf(ref, sizeof ref, "%.*e", nd - 1, std::fabs(d));
      std::string mant;
      for (const char *p = ref; *p && *p != 'e'; ++p)
        if (*p != '.') mant += *p;
      while (mant.size() > 1 && mant.back() == '0') mant.pop_back();
      EXPECT_EQ(std::string(dig, static_cast<size_t>(n)), mant) << ref;
      EXPECT_EQ(e, atoi(strchr(ref, 'e') + 1)) << ref;
      EXPECT_EQ(neg, d < 0 ? 1 : 0);
    }
  }
  for (int i = 0; i < 30000; ++i) {
    Bytes a = i % 2 ? g.any() : g.finite(g.uni(-63, 62));
    to_binary(a.data(), a.size());
  }
  EXPECT_TRUE(oracle_agrees("float", lines));
}

}  // namespace
