// The %N directive: field handling and rounding against Python's decimal,
// the forms and failures that the oracle does not cover, and the bad-number
// report on the error stack.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "lem.h"
#include "lnx.h"
#include "lsf.h"
#include "support/library.h"
#include "support/python.h"
#include "tests/format/oracle.h"

namespace {

struct Num {
  uint8_t b[LNX_BUFSIZE] = {};
  explicit Num(const std::string &t) {
    size_t used = 0;
    lnxcpn(t.c_str(), t.size(), b, nullptr, 0, 0, 0, 0, &used, nullptr);
  }
};

std::string fmt1(const char *f, const void *arg) {
  char buf[1024];
  int32_t n = lsfp(nullptr, buf, sizeof buf, f, arg);
  return n < 0 ? "<fail>" : std::string(buf, static_cast<size_t>(n));
}

TEST(FormatNumber, MatchesDecimalOracle) {
  std::string text;
  ASSERT_TRUE(kel_test::run_python("tests/format/number_oracle.py", "", text));
  std::istringstream in(text);
  std::string line;
  int cases = 0;
  while (std::getline(in, line)) {
    size_t a = line.find('\t'), b = line.find('\t', a + 1);
    ASSERT_NE(b, std::string::npos) << line;
    std::string num = line.substr(0, a), f = line.substr(a + 1, b - a - 1), want = line.substr(b + 1);
    Num n(num);
    ASSERT_EQ(lnxchk(n.b, 0), 1) << num;
    ASSERT_EQ(fmt1(f.c_str(), n.b), want) << num << " " << f;
    ++cases;
  }
  EXPECT_GT(cases, 3000);
}

TEST(FormatNumber, FormsAndFields) {
  Num big("1.5E+120"), tiny("-5E-128"), pi("3.14159"), half("-2.5");
  uint8_t pinf[3] = {2, 0xFF, 0x65}, ninf[2] = {1, 0x00};
  struct {
    const char *f;
    const void *n;
    const char *want;
  } rows[] = {
      {"%#N", big.b, "1.5E+120"},
      {"%#N", tiny.b, "-5E-128"},
      {"%#N", pi.b, "3.14159"},
      {"%N", pinf, "Infinity"},
      {"%N", ninf, "-Infinity"},
      {"%+012N", pinf, "   +Infinity"},
      {"%-10.2N|", ninf, "-Infinity |"},
      {"%.0N", half.b, "-3"},
      {"%08.3N", half.b, "-002.500"},
  };
  for (auto &r : rows) EXPECT_EQ(fmt1(r.f, r.n), r.want) << r.f;
  char out[64];
  EXPECT_EQ(lsfp(nullptr, out, sizeof out, "[%*.*N]", 8, 1, pi.b), 10);
  EXPECT_STREQ(out, "[     3.1]");
  EXPECT_EQ(lsfp(nullptr, out, sizeof out, "%2$.*1$N", 2, half.b), 5);
  EXPECT_STREQ(out, "-2.50");

  // A huge precision: exact digits, then zeros, no buffer of that size.
  std::vector<char> wide(1200);
  EXPECT_EQ(lsfp(nullptr, wide.data(), wide.size(), "%.1000N", pi.b), 1002);
  EXPECT_EQ(std::string(wide.data()), "3.14159" + std::string(995, '0'));
  // Truncation counts the whole text, as snprintf does.
  EXPECT_EQ(lsfp(nullptr, out, 4, "%N", pi.b), 7);
  EXPECT_STREQ(out, "3.1");
}

TEST(FormatNumber, RowsMeetConversions) {
  Num pi("3.14159");
  const lsfarg rows[] = {lsftest::row_ptr(pi.b, LSF_ARG_NUMBER), lsftest::row_int(-42), lsftest::row_text("text"), {}};
  char out[128];
  ASSERT_GT(lsfpd(nullptr, out, sizeof out, "%.2N %N %.2N", rows), 0);
  EXPECT_STREQ(out, "3.14 -42 text");
  ASSERT_GT(lsfpd(nullptr, out, sizeof out, "%8s|%d|%s", rows), 0);
  EXPECT_STREQ(out, " 3.14159|-42|text");
}

using FormatNumberReport = kel_test::StartedLibrary;

TEST_F(FormatNumberReport, BadNumberFailsAndIsReported) {
  const uint8_t bad_len[2] = {0, 0xC1};                    // length byte 0
  const uint8_t bad_digit[3] = {2, 0xC1, 0x00};            // digit byte 0 is no digit
  const uint8_t trailing_zero[4] = {3, 0xC1, 0x02, 0x01};  // last digit zero
  char out[64];
  for (const uint8_t *b : {bad_len, bad_digit, trailing_zero, static_cast<const uint8_t *>(nullptr)}) {
    EXPECT_EQ(lsfp(nullptr, out, sizeof out, "x=%N;", b), -1);
    EXPECT_STREQ(out, "x=");
  }
  EXPECT_EQ(lsfp(ctx, out, sizeof out, "v=%N and more", bad_digit), -1);
  ASSERT_EQ(lemged(lem), 1);
  EXPECT_EQ(lemgec(lem, 1), 10);
  char text[256], fac[16];
  ASSERT_GT(lemgem(lem, 1, text, sizeof text), 0);
  EXPECT_STREQ(text, "lsfpcon() failed due to bad keltar number");
  lemgef(lem, 1, fac, sizeof fac);
  EXPECT_STREQ(fac, "LSF");
  // A good number records nothing.
  lemces(lem);
  Num one("1");
  EXPECT_EQ(lsfp(ctx, out, sizeof out, "%N", one.b), 1);
  EXPECT_EQ(lemged(lem), 0);
}

}  // namespace
