// lnxcpn with real language environments of kelnls10: the territory's
// decimal character, and the alphabet of the environment's character set
// (ASCII, EBCDIC, UTF-16 of either byte order). The expected numbers are
// built from their digits by the byte format, not by the parser.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "lnx.h"
#include "lx.h"
#include "tests/number/lnx_test_util.h"

using namespace lnxtest;

namespace {

const lxenv *env(const char *name) { return lxhLangEnv(nullptr, name, std::strlen(name)); }

// The literal as the environment's set writes it.
std::string in_set(const lxenv *e, const std::string &ascii) {
  char buf[256];
  int64_t n = lxgcnv(buf, sizeof buf, lxhninfo(e, LX_CHARSET_ID), ascii.data(), ascii.size(), LX_CSID_US7ASCII);
  EXPECT_GE(n, 0);
  return std::string(buf, static_cast<size_t>(n));
}

TEST(NumberNlsHandle, DecimalCharacterAndAlphabetOfEachSet) {
  const struct {
    const char *env;
    const char *text;  // in ASCII; converted to the set below
    Bytes want;
    size_t used;       // in characters of the text
  } cases[] = {
      {"AMERICAN_AMERICA.US7ASCII", " -12.50e3 ", make(true, 2, {1, 25}), 10},
      {"AMERICAN_AMERICA.US7ASCII", "1,5", make(false, 0, {1}), 1},
      {"GERMAN_GERMANY.WE8ISO8859P1", "1,5", make(false, 0, {1, 50}), 3},
      {"GERMAN_GERMANY.AL32UTF8", "-0,075E+2", make(true, 0, {7, 50}), 9},
      {"GERMAN_GERMANY.AL32UTF8", "1.5", make(false, 0, {1}), 1},
      {"FRENCH_FRANCE.AL32UTF8", "  3,14159  ", make(false, 0, {3, 14, 15, 90}), 11},
      {"AMERICAN_AMERICA.WE8EBCDIC37", "+99.5e-1", make(false, 0, {9, 95}), 8},
      {"AMERICAN_AMERICA.WE8EBCDIC37", "7,5", make(false, 0, {7}), 1},
      {"GERMAN_GERMANY.WE8EBCDIC37", "7,5", make(false, 0, {7, 50}), 3},
      {"AMERICAN_AMERICA.AL16UTF16", "  42.25 ", make(false, 0, {42, 25}), 8},
      {"AMERICAN_AMERICA.AL16UTF16LE", "-0.5", make(true, -1, {50}), 4},
      {"SPANISH_SPAIN.AL16UTF16", "6,02e23", make(false, 11, {60, 20}), 7},
      {"SPANISH_SPAIN.AL16UTF16LE", "6,02E23x", make(false, 11, {60, 20}), 7},
      {"GERMAN_GERMANY.AL16UTF16LE", "1.5", make(false, 0, {1}), 1},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.env) + " " + c.text);
    const lxenv *e = env(c.env);
    // Territories beyond American come from ICU at build time.
    if (e == nullptr && std::strncmp(c.env, "AMERICAN", 8) != 0) continue;
    ASSERT_NE(e, nullptr);
    const std::string t = in_set(e, c.text);
    const size_t unit = lxhninfo(e, LX_CHARSET_KIND) == LX_CS_UTF16 ? 2 : 1;
    uint8_t out[22];
    size_t ol = 0, used = 99;
    ASSERT_EQ(lnxcpn(t.data(), t.size(), out, &ol, 0, 0, 0, 0, &used, const_cast<lxenv *>(e)), out);
    EXPECT_EQ(hex(out, ol), hex(c.want.data(), c.want.size()));
    EXPECT_EQ(used, c.used * unit) << "consumed, in the caller's bytes";
    // The explicit-global form agrees; a missing global context consumes
    // nothing.
    size_t ol2 = 0, used2 = 99;
    uint8_t out2[22];
    lnxcpng(t.data(), t.size(), out2, &ol2, 0, 0, 0, 0, &used2, const_cast<lxenv *>(e), lxGetGloPtr(e));
    EXPECT_EQ(hex(out2, ol2), hex(out, ol));
    used2 = 99;
    EXPECT_EQ(lnxcpng(t.data(), t.size(), out2, &ol2, 0, 0, 0, 0, &used2, const_cast<lxenv *>(e), nullptr), nullptr);
    EXPECT_EQ(used2, 0u);
  }
}

// Environments of a global context of one's own reach it through the handle.
TEST(NumberNlsHandle, OwnGlobalContext) {
  lxglo *g = lxlinit(nullptr, 0);
  ASSERT_NE(g, nullptr);
  const lxenv *e = lxhLangEnv(g, "GERMAN_GERMANY.AL32UTF8", 23);
  if (e == nullptr) {
    lxlterm(g);
    GTEST_SKIP() << "built without ICU: no German territory";
  }
  EXPECT_EQ(lxGetGloPtr(e), g);
  uint8_t out[22];
  size_t ol = 0, used = 0;
  lnxcpn("0,001", 5, out, &ol, 0, 0, 0, 0, &used, const_cast<lxenv *>(e));
  Bytes want = make(false, -2, {10});
  EXPECT_EQ(hex(out, ol), hex(want.data(), want.size()));
  EXPECT_EQ(used, 5u);
  EXPECT_EQ(lxlterm(g), 0);
}

}  // namespace
