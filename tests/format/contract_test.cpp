// The formatter's contract beyond plain printf: malformed formats, length
// limits, the row rules of lsfpd, positional edge cases. Expected texts come
// from snprintf wherever an equivalent C format exists.
#include <gtest/gtest.h>

#include <cstddef>

#include "tests/format/oracle.h"

namespace lsftest {
namespace {

// The row record is part of the interface: 16 bytes, value at offset 8.
static_assert(sizeof(lsfarg) == 16);
static_assert(offsetof(lsfarg, type) == 0 && offsetof(lsfarg, spare) == 4 && offsetof(lsfarg, v) == 8);

// A malformed format gives -1 and the text up to the bad conversion, for
// every buffer length, and never writes past the buffer.
TEST(FormatContract, MalformedFormatsStopAtTheBadConversion) {
  struct Case {
    const char *fmt;
    const char *before;  // the text formatted before the bad conversion
  };
  const Case cases[] = {
      {"abc%", "abc"},           {"abc%5", "abc"},          {"x%-", "x"},
      {"%.", ""},                {"ab%l", "ab"},            {"%hh", ""},
      {"%lL", ""},               {"%y", ""},                {"%k%d", ""},
      {"n: %n", "n: "},          {"%hn", ""},               {"%lln", ""},
      {"v=%Q", "v="},            {"%10.2W", ""},            {"%0$d", ""},
      {"%99999999999d", ""},     {"%.99999999999f", ""},    {"%2147483648d", ""},
      {"%'d", ""},               {"%C", ""},                {"%S", ""},
      {"%m", ""},                {"%5%", ""},               {"%-%", ""},
      {"%1$*d", ""},             {"%*1$d", ""},             {"%1$.*d", ""},
      {"%.*1$d", ""},            {"ok %% then %", "ok % then "}, {"%v %d", ""},
  };
  lsfarg rows[] = {row_int(1), row_int(2), row_int(3), lsfarg{}};
  for (const Case &c : cases) {
    std::string want = c.before;
    for (size_t len : {size_t{0}, size_t{1}, size_t{3}, size_t{64}}) {
      Out o = capture(len, [&](char *b, size_t k) { return lsfp(nullptr, b, k, c.fmt, 1, 2, 3); });
      Out d = capture(len, [&](char *b, size_t k) { return lsfpd(nullptr, b, k, c.fmt, rows); });
      std::string expect = len ? want.substr(0, len - 1) + '\0' : "";
      for (const Out *x : {&o, &d}) {
        EXPECT_EQ(x->r, -1) << c.fmt << " len " << len;
        EXPECT_EQ(x->text, expect) << c.fmt << " len " << len;
        EXPECT_FALSE(x->overrun) << c.fmt;
      }
    }
  }
  char buf[8] = "xxxxxxx";
  EXPECT_EQ(lsfp(nullptr, buf, sizeof buf, nullptr), -1);
  EXPECT_STREQ(buf, "");
  EXPECT_EQ(lsfpd(nullptr, buf, sizeof buf, nullptr, rows), -1);
}

// Positional and plain conversions cannot mix, and in a va_list every
// position must be used with one type: the text stops where that shows.
TEST(FormatContract, PositionalMisuse) {
  struct Case {
    const char *fmt;
    const char *va_text;  // lsfp with arguments 1, 2, 3 (ints)
    int32_t va_result;
    const char *row_text;  // lsfpd with rows 1, 2, 3
    int32_t row_result;
  };
  const Case cases[] = {
      {"a%1$d b%d", "a1 b", -1, "a1 b", -1},
      {"a%d b%1$d", "a1 b", -1, "a1 b", -1},
      {"%1$d %3$d", "1 ", -1, "1 3", 3},        // a gap: position 2's type is unknown
      {"%1$d %1$s", "1 ", -1, "1 1", 3},        // one position, two types
      {"%3$d%2$d%1$d", "321", 3, "321", 3},
      {"%65$d", "", -1, "", 0},                 // beyond LSF_MAX_POSITIONAL; no such row
      {"%1$d %4$d", "1 ", -1, "1 ", 2},         // row 4 is past the END row
      {"%2$*3$d%1$d|", "  21|", 5, "  21|", 5},
      {"%1$d %2$q", "1 ", -1, "1 ", -1},        // malformed after good ones
  };
  lsfarg rows[] = {row_int(1), row_int(2), row_int(3), lsfarg{}};
  for (const Case &c : cases) {
    char buf[64];
    EXPECT_EQ(lsfp(nullptr, buf, sizeof buf, c.fmt, 1, 2, 3), c.va_result) << c.fmt;
    EXPECT_STREQ(buf, c.va_text) << c.fmt;
    EXPECT_EQ(lsfpd(nullptr, buf, sizeof buf, c.fmt, rows), c.row_result) << c.fmt;
    EXPECT_STREQ(buf, c.row_text) << c.fmt;
  }
}

// The whole length must fit in 31 bits; the part that fits is still there.
TEST(FormatContract, LengthLimits) {
  char buf[16];
  EXPECT_EQ(lsfp(nullptr, buf, sizeof buf, "%2147483647d", 5), 2147483647);
  EXPECT_EQ(lsfp(nullptr, buf, sizeof buf, "%2147483647d%d", 5, 6), -1);
  EXPECT_EQ(std::string(buf), std::string(15, ' '));
  EXPECT_EQ(lsfp(nullptr, buf, sizeof buf, "%1073741824d%1073741824d", 1, 2), -1);
  EXPECT_EQ(lsfp(nullptr, buf, sizeof buf, "%1073741823d%1073741823d", 1, 2), 2147483646);
  EXPECT_EQ(lsfp(nullptr, buf, sizeof buf, "%*d", INT_MIN, 7), -1);  // |INT_MIN| overflows an int width
  EXPECT_EQ(lsfp(nullptr, nullptr, 0, "%s=%d", "abc", 42), 6);
  // Huge precisions cost time, not memory, and still match.
  std::vector<char> big(200000), ref(200000);
  for (const char *f : {"%.100000f", "%.100000e", "%#.100000g", "%.100000a"}) {
    int a = lsfp(nullptr, big.data(), big.size(), f, 0.1);
    int b = snprintf(ref.data(), ref.size(), f, 0.1);
    EXPECT_EQ(a, b) << f;
    EXPECT_EQ(std::string(big.data()), std::string(ref.data())) << f;
  }
}

// lsfpd: a conversion meets a row of another type (each compared with the
// C format that the documented rule names), missing rows, * from rows, and
// the argument list the error manager writes when a message text is missing.
TEST(FormatContract, Rows) {
  static const wchar_t wide[] = L"wide", accents[] = {0xe9, L'a', 0};
  static const char text[] = "abc";
  const void *some = reinterpret_cast<const void *>(uintptr_t{0x1234});
  struct Case {
    const char *fmt;
    std::vector<lsfarg> rows;
    std::string want;  // empty: the call fails
  };
  const Case cases[] = {
      {"%s", {row_int(42)}, with_libc("%lld", 42LL)},
      {"%8s|", {row_int(-7)}, with_libc("%8lld|", -7LL)},
      {"%-.2s|", {row_int(12345)}, with_libc("%-lld|", 12345LL)},  // precision dropped
      {"%s", {row_int(-1, LSF_ARG_UINT)}, with_libc("%llu", ~0ULL)},
      {"%s", {row_int(8, LSF_ARG_CODE)}, "8"},
      {"%s", {row_int('Q', LSF_ARG_CHAR)}, "Q"},
      {"%s", {row_double(3.25)}, with_libc("%g", 3.25)},
      {"%+12.1s|", {row_double(1e100)}, with_libc("%+12g|", 1e100)},
      {"%d", {row_text(text)}, "abc"},
      {"%5x|", {row_text(text)}, with_libc("%5s|", text)},
      {"%c", {row_text(text)}, "abc"},
      {"%d", {row_int(int64_t{1} << 40)}, with_libc("%lld", 1LL << 40)},  // rows are not cut to int
      {"%u", {row_int(-1)}, with_libc("%llu", ~0ULL)},
      {"%x", {row_int(-1)}, with_libc("%llx", ~0ULL)},
      {"%hhd", {row_int(300)}, with_libc("%hhd", 300)},
      {"%hu", {row_int(-1)}, with_libc("%hu", -1)},
      {"%c", {row_int(65)}, "A"},
      {"%.3f", {row_int(2)}, with_libc("%.3f", 2.0)},
      {"%e", {row_int(10, LSF_ARG_UINT)}, with_libc("%e", 10.0)},
      {"%Lf", {row_double(1.5)}, with_libc("%f", 1.5)},
      // "%#jx" is glibc's %p of a pointer other than null, on any system.
      {"%p", {row_int(0x1234)}, with_libc("%#jx", reinterpret_cast<uintmax_t>(some))},
      {"%p", {row_text(text)}, with_libc("%#jx", reinterpret_cast<uintmax_t>(text))},
      {"%d", {row_ptr(some, LSF_ARG_PTR)}, with_libc("%#jx", reinterpret_cast<uintmax_t>(some))},
      {"%s", {row_ptr(nullptr, LSF_ARG_PTR)}, "(nil)"},
      {"%s", {row_ptr(wide, LSF_ARG_WTEXT)}, with_libc("%ls", wide)},
      {"%-6d|", {row_ptr(wide, LSF_ARG_WTEXT)}, with_libc("%-6ls|", wide)},
      {"%s", {row_text(nullptr)}, "(null)"},
      {"%.3s|", {row_text(nullptr)}, "|"},
      {"[%5d]", {row_int(0, 77)}, "[]"},  // unknown row type: nothing
      {"%lc", {row_int(0xe9, LSF_ARG_CHAR)}, "\xc3\xa9"},
      {"%lc", {row_int(0x1f600, LSF_ARG_CHAR)}, "\xf0\x9f\x98\x80"},
      {"%lc", {row_int(0xd800, LSF_ARG_CHAR)}, "?"},
      {"%lc", {row_int(0x110000, LSF_ARG_CHAR)}, "?"},
      {"[%5d]", {}, "[]"},
      {"%d %d|", {row_int(1)}, "1 |"},
      {"%*d|", {row_int(5), row_int(42)}, with_libc("%5d|", 42)},
      {"%*d|", {row_int(-5), row_int(42)}, with_libc("%-5d|", 42)},
      {"%*d|", {row_text("w"), row_int(42)}, "42|"},
      {"%.*f", {row_int(-1), row_double(2.5)}, with_libc("%f", 2.5)},
      {"%.*f", {row_int(1), row_double(2.25)}, with_libc("%.1f", 2.25)},
      {"%*d|", {row_int(int64_t{1} << 40), row_int(1)}, ""},  // width clamps to 2^31 - 1: too long
      {"%2$s %1$s", {row_text("a"), row_text("b")}, "b a"},
      {"%1$s %1$s", {row_text("a")}, "a a"},
      {"%3$s|", {row_text("a"), row_text("b")}, "|"},
      {"; arguments: [%s] [%s]", {row_int(42), row_text("lsfpd")}, "; arguments: [42] [lsfpd]"},
      {"%.2ls|", {row_ptr(accents, LSF_ARG_WTEXT)}, "\xc3\xa9|"},
      {"%.1ls|", {row_ptr(accents, LSF_ARG_WTEXT)}, "|"},
      {"%.3ls|", {row_ptr(accents, LSF_ARG_WTEXT)}, "\xc3\xa9" "a|"},
  };
  for (const Case &c : cases) {
    std::vector<lsfarg> rows = c.rows;
    rows.push_back(lsfarg{});
    char buf[128];
    int32_t r = lsfpd(nullptr, buf, sizeof buf, c.fmt, rows.data());
    EXPECT_EQ(r, c.want.empty() ? -1 : static_cast<int32_t>(c.want.size())) << c.fmt;
    if (!c.want.empty()) EXPECT_EQ(std::string(buf), c.want) << c.fmt;
  }
  char buf[8];
  EXPECT_EQ(lsfpd(nullptr, buf, sizeof buf, "%d|%s", nullptr), 1);  // no array: no rows
  EXPECT_STREQ(buf, "|");
}

// The caller's va_list is left where it was: lsfpv works on a copy.
int twice(char *a, char *b, size_t n, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int r1 = lsfpv(nullptr, a, n, fmt, ap);
  int r2 = lsfpv(nullptr, b, n, fmt, ap);
  va_end(ap);
  return r1 == r2 ? r1 : -2;
}

TEST(FormatContract, VaListIsNotConsumed) {
  char a[64], b[64];
  EXPECT_EQ(twice(a, b, sizeof a, "%d %s %.1f", 7, "x", 0.25), 7);
  EXPECT_STREQ(a, "7 x 0.2");
  EXPECT_STREQ(b, "7 x 0.2");
}

}  // namespace
}  // namespace lsftest
