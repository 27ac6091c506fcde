// Packed and zoned decimal against hand-written fields: signs, rounding,
// negative scales, and the fields a reader refuses (random fields go to the
// oracle with the other differential cases).
#include <gtest/gtest.h>

#include <cstring>

#include "lnx.h"
#include "tests/number/lnx_test_util.h"

using namespace lnxtest;

namespace {

Bytes num(const char *t) {
  uint8_t o[22];
  size_t l;
  lnxcpn(t, strlen(t), o, &l, 0, 0, 0, 0, nullptr, nullptr);
  return Bytes(o, o + l);
}

TEST(NumberPacked, Fields) {
  struct {
    const char *value;
    int32_t scale;
    size_t size;
    const char *packed, *zoned;
    int status;
  } cases[] = {
      {"123.45", 2, 4, "0012345c", "f0f0f1f2f3f4c5", 0},
      {"-123.45", 2, 3, "12345d", "f1f2f3f4d5", 0},
      {"-123.456", 2, 3, "12346d", "f1f2f3f4d6", 0},  // rounded half away from zero
      {"0", 0, 2, "000c", "f0f0c0", 0},
      {"-0.004", 2, 2, "000c", "f0f0c0", 0},             // rounds to zero: positive sign
      {"1200", -2, 2, "012c", "f0f1c2", 0},
      {"99999", 0, 3, "99999c", "f9f9f9f9c9", 0},
      {"100000", 0, 3, "", "", 1},
  };
  for (const auto &c : cases) {
    Bytes n = num(c.value);
    uint8_t pd[32], zd[64];
    size_t zsize = 2 * c.size - 1;
    EXPECT_EQ(lnxn2pd(n.data(), n.size(), c.scale, pd, c.size), c.status) << c.value;
    EXPECT_EQ(lnxn2zd(n.data(), n.size(), c.scale, zd, zsize), c.status) << c.value;
    if (c.status) continue;
    EXPECT_EQ(hex(pd, c.size), c.packed) << c.value;
    EXPECT_EQ(hex(zd, zsize), c.zoned) << c.value;
    // Back: the value rounded to the scale.
    uint8_t r[22], ref[22];
    size_t rl, refl;
    lnxrou(n.data(), n.size(), ref, &refl, c.scale);
    ASSERT_EQ(lnxpd2n(pd, c.size, c.scale, r, &rl), 0);
    EXPECT_EQ(hex(r, rl), hex(ref, refl)) << c.value;
    ASSERT_EQ(lnxzd2n(zd, zsize, c.scale, r, &rl), 0);
    EXPECT_EQ(hex(r, rl), hex(ref, refl)) << c.value;
  }
  const uint8_t inf[] = {0xFF, 0x65};
  uint8_t f[8];
  uint8_t r[22];
  size_t rl;
  EXPECT_EQ(lnxn2pd(inf, 2, 0, f, 4), 2);
  EXPECT_EQ(lnxn2pd(inf, 2, 0, f, 0), 3);
  const uint8_t badsign[] = {0x12, 0x34};
  const uint8_t baddigit[] = {0x1A, 0x3C};
  const uint8_t pf[] = {0x12, 0x3F};
  EXPECT_EQ(lnxpd2n(badsign, 2, 0, r, &rl), 1);
  EXPECT_EQ(lnxpd2n(baddigit, 2, 0, r, &rl), 1);
  ASSERT_EQ(lnxpd2n(pf, 2, 1, r, &rl), 0);  // F sign: positive 12.3
  EXPECT_EQ(hex(r, rl), hex(num("12.3")));
  const uint8_t zbad[] = {0xF1, 0x42};
  EXPECT_EQ(lnxzd2n(zbad, 2, 0, r, &rl), 1);
  const uint8_t zascii[] = {0x31, 0x32, 0xD3};
  ASSERT_EQ(lnxzd2n(zascii, 3, 0, r, &rl), 0);
  EXPECT_EQ(hex(r, rl), hex(num("-123")));
}

}  // namespace
