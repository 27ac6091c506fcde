// The generated territories against ICU, asked afresh from the test: names,
// words, first day of the week and number symbols, in the character sets
// that can hold them. The American row is hand-kept and checked elsewhere.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "lx.h"

#ifdef KEL_HAVE_ICU
#include <unicode/ucal.h>
#include <unicode/udat.h>
#include <unicode/unum.h>
#include <unicode/ustring.h>

namespace {

struct Terr {
  const char *locale, *name;
};
constexpr Terr kTerrs[] = {{"de_DE", "GERMAN_GERMANY"}, {"fr_FR", "FRENCH_FRANCE"}, {"es_ES", "SPANISH_SPAIN"}};

std::u16string sym(UDateFormat *f, UDateFormatSymbolType t, int32_t i) {
  UChar buf[128];
  UErrorCode st = U_ZERO_ERROR;
  int32_t n = udat_getSymbols(f, t, i, buf, 128, &st);
  EXPECT_TRUE(U_SUCCESS(st));
  return std::u16string(reinterpret_cast<char16_t *>(buf), static_cast<size_t>(n));
}

std::u16string num_sym(const char *loc, UNumberFormatSymbol s) {
  UErrorCode st = U_ZERO_ERROR;
  UNumberFormat *nf = unum_open(UNUM_DECIMAL, nullptr, 0, loc, nullptr, &st);
  UChar buf[16];
  int32_t n = unum_getSymbol(nf, s, buf, 16, &st);
  unum_close(nf);
  EXPECT_TRUE(U_SUCCESS(st));
  return std::u16string(reinterpret_cast<char16_t *>(buf), static_cast<size_t>(n));
}

// The bytes a character set should hold for s: UTF-8 by ICU, Latin-1 and
// UTF-16 by hand ('?' for what Latin-1 cannot hold).
std::string encode(const std::u16string &s, int32_t cs) {
  std::string out;
  if (cs == LX_CSID_AL32UTF8) {
    char buf[512];
    int32_t n = 0;
    UErrorCode st = U_ZERO_ERROR;
    u_strToUTF8(buf, sizeof buf, &n, reinterpret_cast<const UChar *>(s.data()), static_cast<int32_t>(s.size()), &st);
    return std::string(buf, static_cast<size_t>(n));
  }
  for (char16_t c : s) {
    if (cs == LX_CSID_WE8ISO8859P1) {
      out += c < 256 ? static_cast<char>(c) : '?';
    } else if (cs == LX_CSID_AL16UTF16) {
      out += static_cast<char>(c >> 8);
      out += static_cast<char>(c & 0xFF);
    } else {
      out += static_cast<char>(c & 0xFF);
      out += static_cast<char>(c >> 8);
    }
  }
  return out;
}

std::string item(const lxenv *e, int32_t it) {
  char buf[512];
  int32_t n = lxhlinfo(e, it, buf, sizeof buf);
  EXPECT_GE(n, 0) << it;
  return n < 0 ? std::string() : std::string(buf, static_cast<size_t>(n));
}

TEST(Territories, AgreeWithIcu) {
  for (const Terr &t : kTerrs) {
    UErrorCode st = U_ZERO_ERROR;
    UDateFormat *df = udat_open(UDAT_DEFAULT, UDAT_DEFAULT, t.locale, nullptr, 0, nullptr, 0, &st);
    ASSERT_TRUE(U_SUCCESS(st));
    UCalendar *cal = ucal_open(nullptr, 0, t.locale, UCAL_GREGORIAN, &st);
    const int32_t first = ucal_getAttribute(cal, UCAL_FIRST_DAY_OF_WEEK) - 1;
    ucal_close(cal);
    for (int32_t cs : {LX_CSID_AL32UTF8, LX_CSID_WE8ISO8859P1, LX_CSID_AL16UTF16, LX_CSID_AL16UTF16LE}) {
      std::string name = std::string(t.name) + "." + (cs == LX_CSID_AL32UTF8       ? "AL32UTF8"
                                                      : cs == LX_CSID_WE8ISO8859P1 ? "WE8ISO8859P1"
                                                      : cs == LX_CSID_AL16UTF16    ? "AL16UTF16"
                                                                                   : "AL16UTF16LE");
      SCOPED_TRACE(name);
      const lxenv *e = lxhLangEnv(nullptr, name.data(), name.size());
      ASSERT_NE(e, nullptr);
      EXPECT_EQ(lxhninfo(e, LX_FIRST_DAY), first);
      EXPECT_EQ(lxhninfo(e, LX_GREGORIAN), 1);
      for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(item(e, LX_MONTH_NAME + i), encode(sym(df, UDAT_MONTHS, i), cs));
        EXPECT_EQ(item(e, LX_MONTH_ABBR + i), encode(sym(df, UDAT_SHORT_MONTHS, i), cs));
      }
      for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(item(e, LX_DAY_NAME + i), encode(sym(df, UDAT_WEEKDAYS, i + 1), cs));
        EXPECT_EQ(item(e, LX_DAY_ABBR + i), encode(sym(df, UDAT_SHORT_WEEKDAYS, i + 1), cs));
      }
      EXPECT_EQ(item(e, LX_AM), encode(sym(df, UDAT_AM_PMS, 0), cs));
      EXPECT_EQ(item(e, LX_PM), encode(sym(df, UDAT_AM_PMS, 1), cs));
      EXPECT_EQ(item(e, LX_BC), encode(sym(df, UDAT_ERAS, 0), cs));
      EXPECT_EQ(item(e, LX_AD), encode(sym(df, UDAT_ERAS, 1), cs));
      EXPECT_EQ(item(e, LX_AD_NAME), encode(sym(df, UDAT_ERA_NAMES, 1), cs));
      EXPECT_EQ(item(e, LX_DECIMAL_CHAR), encode(num_sym(t.locale, UNUM_DECIMAL_SEPARATOR_SYMBOL), cs));
      EXPECT_EQ(item(e, LX_GROUP_SEP), encode(num_sym(t.locale, UNUM_GROUPING_SEPARATOR_SYMBOL), cs));
      // Names of the environment stay ASCII whatever the set.
      EXPECT_EQ(item(e, LX_TERRITORY_NAME), std::string(t.name).substr(std::string(t.name).find('_') + 1));
      // Every territory has the four formats.
      for (int32_t f : {LX_DEFAULT_DATE_FMT, LX_LONG_DATE_FMT, LX_SHORT_DATE_FMT, LX_SHORT_TIME_FMT})
        EXPECT_GT(lxhlinfo(e, f, nullptr, 0), 0) << f;
    }
    udat_close(df);
  }
}

// The decimal character as the number parser reads it: one byte of EBCDIC,
// one code unit of either byte order of UTF-16.
TEST(Territories, DecimalCharacterInEverySet) {
  const struct {
    const char *env;
    std::string want;
  } cases[] = {
      {"GERMAN_GERMANY.WE8EBCDIC37", "\x6B"},  // ',' in code page 37
      {"AMERICAN_AMERICA.WE8EBCDIC37", "\x4B"},
      {"GERMAN_GERMANY.AL16UTF16", std::string("\0,", 2)},
      {"GERMAN_GERMANY.AL16UTF16LE", std::string(",\0", 2)},
      {"FRENCH_FRANCE.US7ASCII", ","},
  };
  for (const auto &c : cases) {
    const lxenv *e = lxhLangEnv(nullptr, c.env, std::strlen(c.env));
    ASSERT_NE(e, nullptr) << c.env;
    EXPECT_EQ(item(e, LX_DECIMAL_CHAR), c.want) << c.env;
  }
  // The UTF-16 set of either byte order round-trips through UTF-8.
  const char *s = "Gr\xC3\xBC\xC3\x9F" "e \xE2\x82\xAC \xF0\x9F\x98\x80";
  for (int32_t cs : {LX_CSID_AL16UTF16, LX_CSID_AL16UTF16LE}) {
    char mid[64], back[64];
    int64_t n = lxgcnv(mid, sizeof mid, cs, s, std::strlen(s), LX_CSID_AL32UTF8);
    ASSERT_GT(n, 0);
    int64_t m = lxgcnv(back, sizeof back, LX_CSID_AL32UTF8, mid, static_cast<size_t>(n), cs);
    EXPECT_EQ(std::string(back, static_cast<size_t>(m)), s);
  }
}

}  // namespace
#endif
