// The byte format, validation, the byte-level operations and the listed
// boundary behaviour of the arithmetic, each checked against bytes written
// out by hand from the format's definition.
#include <gtest/gtest.h>

#include <cstring>

#include "lnx.h"
#include "tests/number/lnx_test_util.h"

using namespace lnxtest;

namespace {

Bytes B(const char *h) { return hexbytes(h); }

std::string run1(void (*f)(const uint8_t *, size_t, uint8_t *, size_t *), const Bytes &a) {
  uint8_t o[22];
  size_t l;
  f(a.data(), a.size(), o, &l);
  return hex(o, l);
}

TEST(NumberFormat, CheckRejectsMalformed) {
  struct {
    const char *h;
    int ok;
  } cases[] = {
      {"80", 1}, {"8000", 0}, {"81", 0}, {"00", 1}, {"01", 0}, {"ff65", 1}, {"ff6502", 0},
      {"c102", 1}, {"c101", 0},            // trailing digit byte 1 is a zero digit
      {"c10102", 0},                       // leading zero digit
      {"c165", 0},                         // digit byte 101 in a positive
      {"3e64", 0},                         // negative of length 2
      {"3e6466", 1}, {"3e6566", 0},        // -1; leading digit byte 101 (zero)
      {"3e646566", 0},                     // last digit byte 101
      {"3e640166", 0},                     // digit byte 1 in a negative
      {"3e646567", 0},                     // no terminator, wrong length
      {"8002", 0}, {"7f6466", 0},          // exponent bytes outside the range
  };
  for (const auto &c : cases) {
    Bytes b = B(c.h);
    EXPECT_EQ(lnxchk(b.data(), b.size()), c.ok) << c.h;
  }
  // Negatives of 20 and 21 bytes without terminator.
  Bytes n21 = make(true, 0, std::vector<int>(20, 7));
  ASSERT_EQ(n21.size(), 21u);
  EXPECT_EQ(lnxchk(n21.data(), 21), 1);
  Bytes n20(n21.begin(), n21.end() - 1);
  EXPECT_EQ(lnxchk(n20.data(), 20), 0);
  Bytes too_long = make(false, 0, std::vector<int>(21, 7));
  EXPECT_EQ(lnxchk(too_long.data(), too_long.size()), 0);
  EXPECT_EQ(lnxchk(nullptr, 3), 0);
  const uint8_t zero_len[] = {0, 0x80};
  EXPECT_EQ(lnxchk(zero_len, 0), 0);
  const uint8_t prefixed[] = {2, 0xC1, 0x02};
  EXPECT_EQ(lnxchk(prefixed, 0), 1);
}

TEST(NumberFormat, SignIntegerAbsNeg) {
  struct {
    const char *h;
    int sgn, intk;
    const char *abs, *neg;
  } cases[] = {
      {"80", 0, 1, "80", "80"},
      {"c102", 1, 1, "c102", "3e6466"},
      {"3e6466", -1, 1, "c102", "c102"},
      {"c033", 1, 2, "c033", "3f3366"},
      {"c202182e", 1, 2, "c202182e", "3d644e3866"},
      {"3d644e3866", -1, 2, "c202182e", "c202182e"},
      {"ff65", 1, 3, "ff65", "00"},
      {"00", -1, 4, "ff65", "ff65"},
      {"c302", 1, 1, "c302", "3c6466"},      // 10000
      {"c10202", 1, 2, "c10202", "3e646466"},  // 1.01
  };
  for (const auto &c : cases) {
    Bytes b = B(c.h);
    EXPECT_EQ(lnxsgn(b.data(), b.size()), c.sgn) << c.h;
    EXPECT_EQ(lnxint(b.data(), b.size()), c.intk) << c.h;
    EXPECT_EQ(run1(lnxabs, b), c.abs) << c.h;
    EXPECT_EQ(run1(lnxneg, b), c.neg) << c.h;
  }
  // 21-byte positive negates to 21 bytes; 20-byte to 21 ending in 102.
  Bytes p21 = make(false, 3, std::vector<int>(20, 42));
  Bytes p20 = make(false, 3, std::vector<int>(19, 42));
  uint8_t o[22];
  size_t l;
  lnxneg(p21.data(), p21.size(), o, &l);
  EXPECT_EQ(l, 21u);
  EXPECT_NE(o[20], 102);
  lnxneg(p20.data(), p20.size(), o, &l);
  EXPECT_EQ(l, 21u);
  EXPECT_EQ(o[20], 102);
}

TEST(NumberFormat, LengthConventionsAndAliasing) {
  // In place with the length-prefixed convention.
  uint8_t buf[22] = {2, 0xC1, 0x02};
  lnxneg(buf, 0, buf, nullptr);
  EXPECT_EQ(hex(buf, 4), "033e6466");
  // Output overlapping the input shifted by one byte (explicit in, prefixed out).
  uint8_t ov[24] = {0xC2, 0x02, 0x18, 0x2E};
  lnxcopy(ov, 4, ov, nullptr);
  EXPECT_EQ(hex(ov, 5), "04c202182e");
  uint8_t a[22] = {0xC1, 0x03}, b2[22] = {3, 0x3E, 0x64, 0x66};
  size_t al = 2;
  lnxadd(a, al, b2, 0, a, &al);  // 2 + -1 into a
  EXPECT_EQ(hex(a, al), "c102");
  lnxmul(b2, 0, b2, 0, b2, nullptr);  // (-1)^2 in place, prefixed
  EXPECT_EQ(hex(b2, 3), "02c102");
}

TEST(NumberFormat, Constants) {
  struct {
    const uint8_t *(*f)();
    const char *h;
  } cases[] = {
      {lnxqgtzero, "0180"},
      {lnxqgtone, "02c102"},
      {lnxqgtten, "02c10b"},
      {lnxqgtneg1, "033e6466"},
      {lnxqgtpi, "15c1040f105d42245a5021272f1b2c272150331d5515"},
      {lnxqgte, "15c10348535253553c053524250358300e354319624d"},
      {lnxqgtln10, "15c1031f1a560a1e5f05395502505c2e2f55252b083d"},
  };
  for (const auto &c : cases) {
    const uint8_t *p = c.f();
    EXPECT_EQ(hex(p, static_cast<size_t>(p[0]) + 1), c.h);
    EXPECT_EQ(lnxchk(p, 0), 1);
  }
}

TEST(NumberArith, IncrementDecrement) {
  struct {
    const char *in, *inc, *dec;
  } cases[] = {
      {"80", "c102", "80"},
      {"c033", "c102", "80"},          // 0.5
      {"3e6266", "c102", "80"},        // -3
      {"c164", "c202", "c163"},        // 99 -> 100 / 98
      {"c202", "c20202", "c164"},      // 100 -> 101 / 99
      {"c10233", "c10333", "c033"},    // 1.5 -> 2.5 / 0.5
      {"c102", "c103", "80"},          // 1 -> 2 / 0
      {"d402", "c102", "80"},          // 10^38 is out of range
      {"ff65", "c102", "80"},
      {"c302", "c3020102", "c26464"},    // 10000 -> 10001 / 9999
  };
  for (const auto &c : cases) {
    Bytes b = B(c.in);
    uint8_t buf[22];
    size_t l = b.size();
    std::memcpy(buf, b.data(), l);
    lnxinc(buf, &l);
    EXPECT_EQ(hex(buf, l), c.inc) << "inc " << c.in;
    l = b.size();
    std::memcpy(buf, b.data(), l);
    lnxdec(buf, &l);
    EXPECT_EQ(hex(buf, l), c.dec) << "dec " << c.in;
    // Length-prefixed in place.
    buf[0] = static_cast<uint8_t>(b.size());
    std::memcpy(buf + 1, b.data(), b.size());
    lnxinc(buf, nullptr);
    EXPECT_EQ(hex(buf + 1, buf[0]), c.inc) << "inc prefixed " << c.in;
  }
}

}  // namespace
