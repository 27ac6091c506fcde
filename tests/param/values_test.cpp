// Key sets, storage, conversions and getters: what a caller sees.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "lnx.h"
#include "tests/param/param_fixture.h"

namespace {

const lrmkey kKeys[] = {
    {"verbose", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, "print more\nand more"},
    {"name", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, "the name"},
    {"count", LRM_T_INT, 0, 1, 0, 0, 1000, "7", "how many"},
    {"mode", LRM_T_NAME, 1, 0, 0, 0, 0, nullptr, nullptr},
    {"size", LRM_T_INT8, 0, 0, 0, 0, 0, nullptr, "bytes"},
    {"value", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr},
    {"values", LRM_T_STRING, 0, 0, 0, 0, 0, "v0", nullptr},
    {"amount", LRM_T_NUMBER, 0, 0, 0, 0, 0, nullptr, nullptr},
};
const lrmkeyset kSet = {kKeys, 8, 0, nullptr, nullptr, nullptr, nullptr};

class Values : public ParamTest {
 protected:
  void Declare(const lrmkeyset *set = &kSet) { ASSERT_EQ(lrmpsvp(h, set), 0u); }
};

// Every conversion of text, each checked by an oracle: the letters and word
// lists for booleans, strtoul for integers, the shifts for sizes, the
// number family's own literal parser for numbers.
TEST_F(Values, Conversions) {
  static const char *const on[] = {"on", nullptr};
  static const char *const off[] = {"off", nullptr};
  static const lrmkeyset words = {kKeys, 8, 0, on, off, nullptr, nullptr};
  struct Case {
    char kind;  // b boolean (w: with the word lists), i integer, 8 size, n number
    const char *text;
    uint32_t status;
    int64_t want;  // booleans and sizes
  } cases[] = {
      {'b', "Yes", 0, 1},  {'b', "y", 0, 1},        {'b', "TRUE", 0, 1},     {'b', "tomato", 0, 1},
      {'b', "No", 0, 0},   {'b', "FALSE", 0, 0},    {'b', "f", 0, 0},        {'b', "maybe", 105, 0},
      {'b', "", 105, 0},   {'b', "1", 105, 0},      {'w', "On", 0, 1},       {'w', "ON", 0, 1},
      {'w', "off", 0, 0},  {'w', "yes", 105, 0},    {'w', "o", 105, 0},      {'w', "onn", 105, 0},
      {'i', "%h1F", 0, 0}, {'i', "%H1f", 0, 0},     {'i', "%d10", 0, 0},     {'i', "%D10", 0, 0},
      {'i', "%x10", 103, 0}, {'i', "%", 103, 0},    {'i', "12", 0, 0},       {'i', "4294967295", 0, 0},
      {'i', "4294967296", 104, 0}, {'i', "12a", 104, 0}, {'i', "", 104, 0},  {'i', "%d", 104, 0},
      {'i', "%hFFFFFFFF", 0, 0}, {'i', "%h", 104, 0}, {'i', " 1", 104, 0},   {'i', "0x10", 104, 0},
      {'i', "%h-1", 0, 0}, {'8', "4K", 0, 4096},    {'8', "1m", 0, 1048576}, {'8', "2G", 0, 2147483648LL},
      {'8', "1K2", 104, 0}, {'8', "12", 0, 12},     {'8', "k", 104, 0},      {'8', "", 104, 0},
      {'8', "-1", 104, 0}, {'8', "9223372036854775807", 0, INT64_MAX},      {'8', "9223372036854775808", 104, 0},
      {'8', "8589934592G", 104, 0}, {'8', "3T", 104, 0},                    {'n', "12.5", 0, 0},
      {'n', "-0.001", 0, 0}, {'n', "0", 0, 0}, {'n', "1e10", 0, 0},   {'n', "123456789012345678901234567890", 0, 0},
      {'n', "", 120, 0},   {'n', "abc", 120, 0},    {'n', "1.2.3", 120, 0},  {'n', "12x", 120, 0},
  };
  for (const Case &c : cases) {
    Declare(c.kind == 'w' ? &words : &kSet);
    const size_t len = strlen(c.text);
    if (c.kind == 'b' || c.kind == 'w') {
      uint8_t v = 9;
      EXPECT_EQ(lrmt2b(h, c.text, len, &v), c.status) << c.text;
      EXPECT_EQ(v, c.status == 0 ? c.want : 9) << c.text;
    } else if (c.kind == '8') {
      int64_t v = -7;
      EXPECT_EQ(lrmt2i8(h, c.text, len, &v), c.status) << c.text;
      EXPECT_EQ(v, c.status == 0 ? c.want : -7) << c.text;
    } else if (c.kind == 'i') {
      uint32_t v = 12345;
      EXPECT_EQ(lrmt2i(h, c.text, len, &v), c.status) << c.text;
      const bool hex = c.text[0] == '%' && (c.text[1] | 0x20) == 'h';
      const char *digits = c.text[0] == '%' ? c.text + 2 : c.text;
      EXPECT_EQ(v, c.status == 0 ? static_cast<uint32_t>(strtoll(digits, nullptr, hex ? 16 : 10)) : 12345u) << c.text;
    } else {
      uint8_t want[22], got[22];
      size_t wantlen = 0, gotlen = 0, consumed = 0;
      EXPECT_EQ(lrmt2on(h, c.text, len, got, &gotlen), c.status) << c.text;
      if (c.status != 0) continue;
      ASSERT_NE(lnxcpn(c.text, len, want, &wantlen, 0, 0, 0, 0, &consumed, nullptr), nullptr);
      EXPECT_EQ(std::string(reinterpret_cast<char *>(got), gotlen), std::string(reinterpret_cast<char *>(want), wantlen));
      ASSERT_EQ(lrmspv(h, "amount", 6, c.text, len), 0u);
      uint8_t num[22];
      EXPECT_EQ(lrmgonv(h, nullptr, nullptr, "amount", 6, 0, num, &gotlen), 0u);
      EXPECT_EQ(std::string(reinterpret_cast<char *>(num), gotlen), std::string(reinterpret_cast<char *>(want), wantlen));
    }
  }
  // A -flag is true without asking the words, and dumps as the set's word.
  Declare(&words);
  ASSERT_EQ(Parse("-verbose"), 0u) << LastText();
  EXPECT_EQ(Dump(), "count=7\nvalues=v0\nverbose=on\n");
  uint8_t num[22];
  size_t len = 0;
  EXPECT_EQ(lrmgonv(h, nullptr, nullptr, "name", 4, 0, num, &len), 202u);
}

TEST_F(Values, GettersCheckTypesAndCapacity) {
  Declare();
  ASSERT_EQ(Parse("name=abcdefgh size=4K verbose=yes count=%h10"), 0u) << LastText();
  uint32_t n = 0;
  EXPECT_EQ(lrmgiv(h, nullptr, nullptr, "name", 4, 0, &n), 202u);
  EXPECT_EQ(LastError(), 202);
  uint8_t b = 0;
  EXPECT_EQ(lrmgbv(h, nullptr, nullptr, "count", 5, 0, &b), 202u);
  int64_t s = 0;
  EXPECT_EQ(lrmg8v(h, nullptr, nullptr, "size", 4, 0, &s), 0u);
  EXPECT_EQ(s, 4096);
  EXPECT_EQ(lrmgbv(h, nullptr, nullptr, "verbose", 7, 0, &b), 0u);
  EXPECT_EQ(b, 1);
  EXPECT_EQ(lrmgiv(h, nullptr, nullptr, "count", 5, 0, &n), 0u);
  EXPECT_EQ(n, 16u);
  // Capacity 9 and 8 hold the value with and without its terminator; 7 is
  // too small and leaves the buffer alone.
  for (size_t cap : {9, 8, 7}) {
    char buf[10];
    memset(buf, 'z', sizeof buf);
    size_t len = 0;
    EXPECT_EQ(lrmgsv(h, nullptr, nullptr, "name", 4, 0, buf, cap, &len), cap >= 8 ? 0u : 206u) << cap;
    EXPECT_EQ(std::string(buf, 10), cap == 9   ? std::string("abcdefgh\0z", 10)
                                    : cap == 8 ? "abcdefghzz"
                                               : "zzzzzzzzzz");
    if (cap < 8) EXPECT_NE(LastText().find("name"), std::string::npos) << LastText();
  }
  // No such occurrence: success, result untouched.
  n = 77;
  EXPECT_EQ(lrmgiv(h, nullptr, nullptr, "count", 5, 5, &n), 0u);
  EXPECT_EQ(n, 77u);
  const char *p = nullptr;
  EXPECT_EQ(lrmgsp(h, nullptr, nullptr, "name", 4, 0, &p), 0u);
  EXPECT_STREQ(p, "abcdefgh");
  EXPECT_EQ(lrmgsp(h, nullptr, nullptr, "size", 4, 0, &p), 202u);
  char buf[8];
  EXPECT_EQ(lrmgsv(nullptr, nullptr, nullptr, "name", 4, 0, buf, 8, nullptr), 201u);
}

TEST_F(Values, AbbreviationsAndBuiltIns) {
  static const lrmkeyset abbrev = {kKeys, 8, LRM_KS_ABBREV, nullptr, nullptr, nullptr, nullptr};
  Declare(&abbrev);
  uint8_t type = 0;
  EXPECT_EQ(lrmckv(h, "verb", 4, &type), 0u);
  EXPECT_EQ(type, LRM_T_BOOL);
  EXPECT_EQ(lrmckv(h, "s:cou", 5, &type), 0u);
  EXPECT_EQ(type, LRM_T_INT);
  EXPECT_EQ(lrmckv(h, "value", 5, &type), 0u);  // exact beats the longer "values"
  EXPECT_EQ(lrmckv(h, "val", 3, &type), 107u);
  EXPECT_EQ(LastError(), 107);
  EXPECT_EQ(Arg(1, 1), "val");
  uint32_t idx = 99;
  EXPECT_EQ(lrmpatk(h, "si", 2, &idx), 0u);
  EXPECT_EQ(idx, 4u);
  EXPECT_EQ(lrmpatk(h, "zz", 2, &idx), 101u);
  out.clear();
  EXPECT_EQ(lrmckv(h, "hel", 3, &type), 0u);
  EXPECT_EQ(type, LRM_T_BOOL);
  // Each key: its help, then what it takes.
  EXPECT_NE(out.find("verbose\t\tprint more\n\t\tand more\n\t\ttype boolean\n"), std::string::npos) << out;
  EXPECT_NE(out.find("count\t\thow many\n\t\ttype integer, default \"7\", range 0 to 1000\n"), std::string::npos);
  EXPECT_NE(out.find("mode\t\t\n\t\ttype name\n"), std::string::npos);
  EXPECT_NE(out.find("size\t\tbytes\n\t\ttype size (K, M, G)\n"), std::string::npos);
  // Help lines come sorted by name.
  Strings names;
  for (size_t p = 0; p < out.size();) {
    size_t e = out.find('\n', p);
    if (out[p] != '\t') names.push_back(out.substr(p, out.find('\t', p) - p));
    p = e + 1;
  }
  Strings sorted = names;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(names, sorted);
  EXPECT_EQ(names.size(), 8u);
  Declare();
  EXPECT_EQ(lrmpatk(h, "si", 2, &idx), 211u);
  EXPECT_EQ(lrmckv(h, "verb", 4, &type), 101u);
  EXPECT_EQ(LastError(), 101);
  out.clear();
  EXPECT_EQ(lrmckv(h, "?", 1, &type), 0u);
  EXPECT_FALSE(out.empty());
  static int versions = 0;
  static const lrmkeyset nohelp = {kKeys, 8, LRM_KS_NOHELP, nullptr, nullptr,
                                   [](void *, lrmctx *) { versions++; }, nullptr};
  Declare(&nohelp);
  EXPECT_EQ(lrmckv(h, "usage", 5, &type), 101u);
  EXPECT_EQ(lrmckv(h, "version", 7, &type), 0u);
  EXPECT_EQ(versions, 1);
  static const lrmkeyset none = {kKeys, 8, LRM_KS_NOVERSION | LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};
  Declare(&none);
  EXPECT_EQ(lrmckv(h, "version", 7, &type), 0u);
  EXPECT_EQ(type, LRM_T_STRING);
  EXPECT_EQ(lrmckv(nullptr, "x", 1, &type), 201u);
  // Command line with the built-in: stored as a flag the caller can test.
  Declare();
  out.clear();
  ASSERT_EQ(ParseCmd("-help"), 0u);
  uint8_t b = 0;
  EXPECT_EQ(lrmgbv(h, nullptr, nullptr, "help", 4, 0, &b), 0u);
  EXPECT_EQ(b, 1);
  EXPECT_FALSE(out.empty());
}

TEST_F(Values, CaseAndBlanksFollowTheCharacterSet) {
  // The same text in three character sets: the declared key "ärger" is
  // given in upper case, with a no-break space between two values.
  struct Case {
    uint32_t flags;
    const char *charset;
    const char *key;    // "ärger" in the set
    const char *input;  // "ÄRGER=x<NBSP>y mode=<ä>" in the set
    Strings values;
    const char *mode;   // the name value upper-cased
  } cases[] = {
      {LRM_F_UNICODE, nullptr, "\xC3\xA4rger", "\xC3\x84RGER=x\xC2\xA0y mode=\xC3\xA4", {"x", "y"}, "\xC3\x84"},
      {0, "AMERICAN_AMERICA.AL32UTF8", "\xC3\xA4rger", "\xC3\x84RGER=x\xC2\xA0y mode=\xC3\xA4", {"x", "y"},
       "\xC3\x84"},
      {0, "AMERICAN_AMERICA.WE8ISO8859P1", "\xE4rger", "\xC4RGER=x\xA0y mode=\xE4", {"x", "y"}, "\xC4"},
      // US7ASCII has no such letters or blank: the bytes are themselves.
      {0, nullptr, "\xE4rger", "\xE4rger=x\xA0y mode=\xE4", {"x\xA0y"}, "\xE4"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.charset != nullptr ? c.charset : c.flags ? "Unicode" : "US7ASCII");
    Open(c.flags, c.charset);
    const lrmkey keys[] = {{c.key, LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, "angry"},
                           {"mode", LRM_T_NAME, 0, 0, 0, 0, 0, nullptr, nullptr},
                           {"Zebra", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr}};
    const lrmkeyset set = {keys, 3, 0, nullptr, nullptr, nullptr, nullptr};
    ASSERT_EQ(lrmpsvp(h, &set), 0u);
    ASSERT_EQ(lrmpst(h, c.input, strlen(c.input)), 0u) << LastText();
    // Occurrence i of a key given in the inside character set.
    auto get = [&](const char *key, uint32_t i) -> std::string {
      const char *p = nullptr;
      uint32_t st;
      if (c.flags) {
        uint16_t *w = nullptr;
        size_t units = 0;
        EXPECT_EQ(lrmpu8to16(h, key, strlen(key), &w, &units), 0u);
        st = lrmgsp(h, nullptr, nullptr, w, units, i, &p);
        lrmpufree(h, w);
      } else {
        st = lrmgsp(h, nullptr, nullptr, key, strlen(key), i, &p);
      }
      EXPECT_EQ(st, 0u);
      return p != nullptr ? p : "<none>";
    };
    Strings got;
    for (uint32_t i = 0; i < 3; i++) got.push_back(get(c.key, i));
    Strings want = c.values;
    want.resize(3, "<none>");
    EXPECT_EQ(got, want);
    EXPECT_EQ(get("MODE", 0), c.mode);
    // The dump reads back the same; help sorts by the set's case rules.
    std::string d = Dump();
    ASSERT_EQ(lrmpsvp(h, &set), 0u);
    ASSERT_EQ(lrmpst(h, d.data(), d.size()), 0u) << d;
    EXPECT_EQ(Dump(), d);
    out.clear();
    ASSERT_EQ(lrmprh(h), 0u);
    EXPECT_EQ(out.substr(0, 4), "mode") << out;
  }
}

TEST_F(Values, CaseSensitiveSetsAndBadDeclarations) {
  Declare();
  ASSERT_EQ(Parse("NAME=a Name=b"), 0u);
  EXPECT_EQ(All("name"), (Strings{"a", "b"}));
  static const lrmkey k2[] = {{"Key", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr},
                              {"key", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr}};
  static const lrmkeyset cs = {k2, 2, LRM_KS_CASE, nullptr, nullptr, nullptr, nullptr};
  Declare(&cs);
  ASSERT_EQ(Parse("Key=1 key=2"), 0u);
  EXPECT_EQ(All("Key"), (Strings{"1"}));
  EXPECT_EQ(All("key"), (Strings{"2"}));
  static const lrmkeyset ci = {k2, 2, 0, nullptr, nullptr, nullptr, nullptr};
  EXPECT_EQ(lrmpsvp(h, &ci), 213u);
  static const lrmkey bad[] = {{"x", 9, 0, 0, 0, 0, 0, nullptr, nullptr}};
  static const lrmkeyset badset = {bad, 1, 0, nullptr, nullptr, nullptr, nullptr};
  EXPECT_EQ(lrmpsvp(h, &badset), 212u);
  static const lrmkey baddef[] = {{"x", LRM_T_INT, 0, 0, 0, 0, 0, "seven", nullptr}};
  static const lrmkeyset baddefset = {baddef, 1, 0, nullptr, nullptr, nullptr, nullptr};
  EXPECT_EQ(lrmpsvp(h, &baddefset), 212u);
  // The failed declarations left the case-sensitive set in place.
  EXPECT_EQ(All("Key"), (Strings{"1"}));
}

TEST_F(Values, SetAndListFunctions) {
  Declare();
  EXPECT_EQ(lrmspv(h, "name", 4, "one", 3), 0u);
  const char *more[] = {"two", "three"};
  EXPECT_EQ(lrmavla(h, "name", 4, reinterpret_cast<const void *const *>(more), 2), 0u);
  EXPECT_EQ(All("name"), (Strings{"one", "two", "three"}));
  EXPECT_EQ(lrmspv2(h, "s", "name", 4, "q", 1), 0u);
  EXPECT_EQ(lrmspv(h, "s:name", 6, "r", 1), 0u);
  EXPECT_EQ(All("name", "s"), (Strings{"q", "r"}));
  EXPECT_EQ(lrmavlc(h, nullptr, "name", 4), 0u);
  EXPECT_EQ(Count("name"), 0u);
  EXPECT_EQ(All("name", "s"), (Strings{"q", "r"}));
  uint8_t type = 0;
  // The value is the first four bytes only: the record must not read on.
  EXPECT_EQ(lrmvskv(h, "count", 5, "5000garbage", 4, &type), 102u);
  EXPECT_EQ(type, LRM_T_INT);
  EXPECT_NE(LastText().find("5000"), std::string::npos) << LastText();
  EXPECT_EQ(LastText().find("garbage"), std::string::npos) << LastText();
  EXPECT_NE(LastText().find("count"), std::string::npos) << LastText();
  EXPECT_EQ(lrmvskv(h, "count", 5, "50", 2, &type), 0u);
  EXPECT_EQ(Count("count"), 1u);
  EXPECT_EQ(lrmspv(h, "nope", 4, "1", 1), 101u);
}

TEST_F(Values, UnicodeInterface) {
  Open(LRM_F_UNICODE);
  Declare();
  const char *utf8 = "name=\xC3\xA9t\xC3\xA9 value=\xF0\x9F\x98\x80";
  ASSERT_EQ(Parse(utf8), 0u) << LastText();
  const uint16_t key[] = {'n', 'a', 'm', 'e'};
  uint16_t buf[16];
  size_t units = 0;
  ASSERT_EQ(lrmgsv(h, nullptr, nullptr, key, 4, 0, buf, sizeof buf, &units), 0u);
  ASSERT_EQ(units, 3u);
  EXPECT_EQ(buf[0], 0xE9);
  EXPECT_EQ(buf[1], 't');
  EXPECT_EQ(buf[3], 0);
  const uint16_t key2[] = {'v', 'a', 'l', 'u', 'e'};
  buf[2] = 0x7777;
  ASSERT_EQ(lrmgsv(h, nullptr, nullptr, key2, 5, 0, buf, 4, &units), 0u);
  ASSERT_EQ(units, 2u);
  EXPECT_EQ(buf[0], 0xD83D);
  EXPECT_EQ(buf[1], 0xDE00);
  EXPECT_EQ(buf[2], 0x7777) << "no room for the terminator";
  EXPECT_EQ(lrmgsv(h, nullptr, nullptr, key2, 5, 0, buf, 3, &units), 206u);
  const uint16_t val[] = {0x4E2D, 0x6587};
  ASSERT_EQ(lrmspv(h, key, 4, val, 2), 0u);
  const char *p = nullptr;
  ASSERT_EQ(lrmgsp(h, nullptr, nullptr, key, 4, 1, &p), 0u);
  EXPECT_STREQ(p, "\xE4\xB8\xAD\xE6\x96\x87");
  const uint16_t lone[] = {0xD800, 'x'};
  EXPECT_EQ(lrmspv(h, key, 4, lone, 2), 221u);
  // Round trips through the exported conversions.
  char *u8 = nullptr;
  size_t n8 = 0;
  ASSERT_EQ(lrmpu16to8(h, val, 2, &u8, &n8), 0u);
  uint16_t *u16 = nullptr;
  size_t n16 = 0;
  ASSERT_EQ(lrmpu8to16(h, u8, n8, &u16, &n16), 0u);
  EXPECT_EQ(n16, 2u);
  EXPECT_EQ(memcmp(u16, val, 4), 0);
  lrmpufree(h, u8);
  lrmpufree(h, u16);
  EXPECT_EQ(lrmpu8to16(h, "\xC0\x80", 2, &u16, &n16), 221u);
  EXPECT_EQ(lrmpu8to16(h, "\xE4\xB8", 2, &u16, &n16), 221u);
}

TEST_F(Values, InitialisationCallbackAndFailures) {
  EXPECT_EQ(lrmini(nullptr, nullptr, nullptr), nullptr);
  auto refuse = [](void *, char *) -> int32_t { return 1; };
  EXPECT_EQ(lrmini(ctx, refuse, nullptr), nullptr);
  EXPECT_EQ(lrminit(ctx, lxhLangEnv(nullptr, ".AL16UTF16", 10), nullptr, nullptr), nullptr);
  auto name = [](void *, char *buf) -> int32_t {
    strcpy(buf, "tool");
    return 0;
  };
  lrmctx *g = lrmini(ctx, name, nullptr);
  ASSERT_NE(g, nullptr);
  EXPECT_EQ(lrmtrm(g), 0);
}

TEST_F(Values, ErrorPrefix) {
  Declare();
  ASSERT_EQ(Parse("nosuch=1"), 101u);
  char buf[256];
  lrmpfmt(h, buf, sizeof buf);
  EXPECT_EQ(std::string(buf), "LRM-00101: \"nosuch\" is not a known parameter name (string, line 1, column 1, "
                              "parameter \"nosuch\")");
  EXPECT_EQ(lrmperr(h, 206, LEM_ARG_TEXT, "k", LEM_ARG_END), 206u);
  EXPECT_EQ(LastError(), 206);
}

}  // namespace
