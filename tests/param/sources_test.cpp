// Sources of every kind (a string, a command line, a file with includes, a
// Unicode string) as tables of text and what it must store, or the status it
// must fail with and the place its record names: the edge cases of the
// language, qualified keys, includes, syntax errors and limits.
#include <cstring>

#include "tests/param/param_fixture.h"

namespace {

const lrmkey kKeys[] = {
    {"verbose", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, nullptr},
    {"name", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr},
    {"count", LRM_T_INT, 0, 1, 0, 0, 1000, "7", nullptr},
    {"mode", LRM_T_NAME, 1, 0, 0, 0, 0, nullptr, nullptr},
    {"size", LRM_T_INT8, 0, 0, 0, 0, 0, nullptr, nullptr},
    {"value", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr},
    {"values", LRM_T_STRING, 0, 0, 0, 0, 0, "v0", nullptr},
    {"amount", LRM_T_NUMBER, 0, 0, 0, 0, 0, nullptr, nullptr},
};
const lrmkeyset kSet = {kKeys, 8, 0, nullptr, nullptr, nullptr, nullptr};
const lrmkeyset kAny = {kKeys, 8, LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};

class Sources : public ParamTest {
 protected:
  void SetUp() override {
    ParamTest::SetUp();
    Write("inner.par", "b = 2\nc = (3\n 4)\n");
    Write("broken.par", "x = 1\ny = )\n");
    Write("loop.par", "k = 1\n@loop.par\n");
    Write("big.par", "k = " + std::string(100, 'v') + "\n");
  }
  // A new context for sources of `kind`: 's' a string, 'c' a command line,
  // 'f' the file top.par of the test's folder, 'u' a string in a Unicode
  // context. Strings and command lines know the declared keys only, files
  // and Unicode strings any key.
  void Prepare(char kind, uint32_t opts = 0) {
    Open(kind == 'u' ? LRM_F_UNICODE : 0);
    ASSERT_EQ(lrmpsvp(h, kind == 'f' || kind == 'u' ? &kAny : &kSet), 0u);
    lrmsopt(h, opts);
  }
  uint32_t Source(char kind, const std::string &text) {
    lemces(lem);
    if (kind == 'f') return lrmpfi(h, Write("top.par", text).c_str());
    return kind == 'c' ? ParseCmd(text) : Parse(text);
  }
  uint32_t Read(char kind, uint32_t opts, const std::string &text) {
    Prepare(kind, opts);
    return Source(kind, text);
  }
  // The values of a key given in UTF-8, in a Unicode context too.
  Strings Values(char kind, const char *key, const char *qual) {
    if (kind != 'u') return All(key, qual);
    uint16_t none = 0, *w = &none;
    size_t units = 0;
    if (*key != '\0') EXPECT_EQ(lrmpu8to16(h, key, strlen(key), &w, &units), 0u);
    uint32_t n = 0;
    EXPECT_EQ(lrmavlo(h, nullptr, w, units, &n), 0u);
    Strings v;
    for (uint32_t i = 0; i < n; i++) {
      const char *p = nullptr;
      EXPECT_EQ(lrmgsp(h, nullptr, nullptr, w, units, i, &p), 0u);
      v.push_back(p != nullptr ? p : "<none>");
    }
    if (w != &none) lrmpufree(h, w);
    return v;
  }
  // "@name" is the file name in the test's folder.
  static std::string Path(const char *s) { return s[0] == '@' ? Dir() + "/" + (s + 1) : s; }
};

TEST_F(Sources, WhatEachTextStores) {
  const uint32_t C = LRM_OPT_COMMENTS;
  struct Case {
    char kind;
    uint32_t opts;
    const char *text, *key, *qual;
    Strings want;
  } cases[] = {
      {'s', 0, "", "", nullptr, {}},
      {'s', 0, "a b c", "", nullptr, {"a", "b", "c"}},
      {'s', 0, "value=1 -name a b", "name", nullptr, {"a", "b"}},
      {'s', 0, "value\n= 1", "value", nullptr, {"1"}},
      {'s', 0, "-name=5", "name", nullptr, {"5"}},
      {'s', 0, "-name 5", "name", nullptr, {"5"}},
      {'c', 0, "-value -5 -name=x", "value", nullptr, {"-5"}},
      {'s', 0, "-verbose x", "", nullptr, {"x"}},
      {'s', 0, "-verbose x", "verbose", nullptr, {"<status 202>"}},
      {'s', 0, "-name -5", "name", nullptr, {"-5"}},
      {'s', 0, "-5", "", nullptr, {"-5"}},
      {'f', 0, "-x", "", nullptr, {"-x"}},  // no options in files
      {'s', 0, "\"a\"\"b\" 'it''s' 'say \"hi\"' \"a\\b\"", "", nullptr, {"a\"b", "it's", "say \"hi\"", "a\\b"}},
      {'s', 0, "name=\"ab\\\ncd\" \\\n  value=x", "name", nullptr, {"abcd"}},
      {'s', 0, "name=\"ab\\\ncd\" \\\n  value=x", "value", nullptr, {"x"}},
      {'s', 0, "a \\  \t\n b ab\\\ncd", "", nullptr, {"a", "b", "abcd"}},
      {'s', 0, "value=(a (b c) d)", "value", nullptr, {"a", "b", "c", "d"}},
      {'s', 0, "value=a)b", "value", nullptr, {"a)b"}},
      {'s', 0, "f(x) x) (f(x))", "", nullptr, {"f", "x", "x)", "f", "x"}},
      {'s', 0, "value=(a)b)", "value", nullptr, {"a", "b)"}},
      // An escape makes the scanner copy the word; it outgrows the first buffer.
      {'s', 0, "value=a\\=bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb\\=c", "value",
       nullptr, {"a=bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb=c"}},
      {'s', 0, "a\\=b\\#c\\(\\)\\,\\-\\\\ a\\qb", "", nullptr, {"a=b#c(),-\\", "a\\qb"}},
      {'c', 0, "a#b a #b", "", nullptr, {"a#b", "a", "#b"}},
      {'f', 0, "a # note\nb\r\nc", "", nullptr, {"a", "b", "c"}},
      {'f', C, "# whole line\na # note\nb\n# n", "", nullptr, {"a", "b"}},
      {'c', C, "-name 5 #c -value x", "name", nullptr, {"5"}},
      {'c', C, "a -verbose #c b", "", nullptr, {"a"}},
      {'s', LRM_OPT_COMMA, "a, b", "", nullptr, {"a", "b"}},
      {'s', 0, "(a, b)", "", nullptr, {"a", "b"}},
      {'s', 0, "name=x name=y", "name", nullptr, {"x", "y"}},
      {'s', 0, "mode=fast mode=slow", "mode", nullptr, {"SLOW"}},
      {'s', 0, "p q name=x -value a b", "", nullptr, {"p", "q"}},
      {'s', 0, "p q name=x -value a b", "value", nullptr, {"a", "b"}},
      {'s', 0, "-value=(a b) c", "value", nullptr, {"a", "b", "c"}},
      {'s', 0, "sec:name=x name=y", "name", nullptr, {"y"}},
      // Qualified keys: in settings and as options; the plain key is the
      // fallback of a qualifier without values of its own.
      {'s', 0, "name=plain db:name=q1 db:name=q2", "name", "db", {"q1", "q2"}},
      {'s', 0, "name=plain db:name=q1", "name", "other", {"plain"}},
      {'s', 0, "-sec:name 6 -sec:values=(a b)", "name", "sec", {"6"}},
      {'s', 0, "-sec:name 6 -sec:values=(a b)", "values", "sec", {"a", "b"}},
      {'s', 0, "-sec:verbose -x:name y", "verbose", "sec", {"<status 202>"}},
      {'s', 0, "-sec:name 6", "sec:name", nullptr, {"6"}},
      // A user's values replace the declared default, in the order given.
      {'s', 0, "", "values", nullptr, {"v0"}},
      {'s', 0, "values=u1 -values u2 u3", "values", nullptr, {"u1", "u2", "u3"}},
      {'s', 0, "sec:values=s", "values", nullptr, {"v0"}},
      // Blanks of the character set; bytes that are no character stay in
      // the word, and so do other letters.
      {'u', C, "a\xC2\xA0" "b", "", nullptr, {"a", "b"}},
      {'u', C, "\xC2\x85\xC3\xA4\xC2\xA0=\xC2\xA0'b'\xC2\xA0#c", "\xC3\xA4", nullptr, {"b"}},
      {'u', C, "a\\\xC2\xA0\nb", "", nullptr, {"ab"}},
      {'u', C, "\xC2x\xE2\x80\xA8y \xC2", "", nullptr, {"\xC2x\xE2\x80\xA8y", "\xC2"}},
      // Includes, where a line starts only.
      {'f', 0, "a = 1\n@inner.par\nd = 5\n  include \"inner.par\"\n", "c", nullptr, {"3", "4", "3", "4"}},
      {'f', 0, "a = 1\n@inner.par\nd = 5\n  include \"inner.par\"\n", "d", nullptr, {"5"}},
      {'f', 0, "s=\"a\n@b c\"", "s", nullptr, {"a\n@b c"}},
      {'f', 0, "s='x\ninclude y'", "s", nullptr, {"x\ninclude y"}},
      {'f', 0, "s=(a\ninclude b)", "s", nullptr, {"a", "include", "b"}},
      {'f', 0, "s=a \\\n@inner.par", "s", nullptr, {"a", "@inner.par"}},
      {'f', 0, "include = x\n@k=v\n@ inner.par \ninclude\tinner.par", "include", nullptr, {"x"}},
      {'f', 0, "include = x\n@k=v\n@ inner.par \ninclude\tinner.par", "@k", nullptr, {"v"}},
      {'f', 0, "include = x\n@k=v\n@ inner.par \ninclude\tinner.par", "b", nullptr, {"2", "2"}},
  };
  for (const Case &c : cases) {
    ASSERT_EQ(Read(c.kind, c.opts, c.text), 0u) << c.text << ": " << LastText();
    EXPECT_EQ(Values(c.kind, c.key, c.qual), c.want) << c.text;
  }
  ASSERT_EQ(Read('s', 0, "-sec:verbose"), 0u);
  uint8_t b = 0;
  char qname[LRM_QNAME_MAX];
  ASSERT_EQ(lrmgbv(h, "sec", qname, "verbose", 7, 0, &b), 0u);
  EXPECT_EQ(b, 1);
  EXPECT_STREQ(qname, "sec:verbose");
  // The default gives way to a user's value from any call, and comes back
  // with a new declaration.
  uint32_t n = 0;
  ASSERT_EQ(lrmgiv(h, nullptr, nullptr, "count", 5, 0, &n), 0u);
  EXPECT_EQ(n, 7u);
  ASSERT_EQ(lrmspv(h, "count", 5, "9", 1), 0u);
  ASSERT_EQ(lrmspv(h, "count", 5, "10", 2), 0u);
  ASSERT_EQ(lrmgiv(h, nullptr, nullptr, "count", 5, 1, &n), 0u);
  EXPECT_EQ(n, 10u);
  ASSERT_EQ(lrmgiv(h, nullptr, nullptr, "count", 5, 0, &n), 0u);
  EXPECT_EQ(n, 9u);
  // Lists nest up to 255 deep.
  EXPECT_EQ(Read('s', 0, "value = " + std::string(255, '(') + "x" + std::string(255, ')')), 0u) << LastText();
  EXPECT_EQ(Read('s', 0, "value = " + std::string(256, '(') + "x" + std::string(256, ')')), 109u);
  EXPECT_EQ(Where(), "string|1|264|value");
}

TEST_F(Sources, FailuresStoreNothingAndSayWhere) {
  struct Case {
    char kind;
    const char *text;
    uint32_t status;
    const char *arg;    // the record's first argument ("@": in the test's folder)
    const char *where;  // source|line|column|key
  } cases[] = {
      {'s', "name=kept count=2000", 102, "2000", "string|1|17|count"},
      {'s', "name=kept count=%q1", 103, "%q1", "string|1|17|count"},
      {'s', "name=kept\ncount=(1 1x)", 104, "1x", "string|2|10|count"},
      {'s', "name=kept verbose=perhaps", 105, "perhaps", "string|1|19|verbose"},
      {'s', "name=kept nosuch=1", 101, "nosuch", "string|1|11|nosuch"},
      {'s', "name=kept -sec:zz 1", 101, "zz", "string|1|12|sec:zz"},
      {'s', "name=kept -verb", 101, "verb", "string|1|12|verb"},
      {'s', "name=kept size=1K2", 104, "1K2", "string|1|16|size"},
      {'s', "name=kept amount=x1", 120, "x1", "string|1|18|amount"},
      {'s', "name=kept value=\"abc", 111, "\"abc", "string|1|17|value"},
      {'s', "name=kept value='ab", 111, "'ab", "string|1|17|value"},
      {'s', "name=kept value=a, b", 110, nullptr, "string|1|18|value"},
      {'s', "name=kept value=a = b", 109, "\"a\"", "string|1|17|value"},
      {'s', "name=kept\n\tvalue=(a b", 109, "-end of file-", "string|2|12|value"},
      {'c', "value=1 - =", 109, "\"=\"", "command line|1|11|value"},
      {'f', "a = 1\nb = (x y\n", 109, "-end of file-", "@top.par|3|1|b"},
      {'f', "a = 1\n= 2\n", 109, "\"1\"", "@top.par|1|5|a"},
      {'f', "a = 1\nb = c = \n", 109, "\"c\"", "@top.par|2|5|b"},
      {'f', "a = )\n", 109, "\")\"", "@top.par|1|5|a"},
      {'f', "a = 1\n\n\n(x) = 2\n", 109, "\"=\"", "@top.par|4|5|a"},
      {'f', "a = 1 b =\n", 109, "-end of file-", "@top.par|2|1|b"},
      {'f', "=", 109, "\"=\"", "@top.par|1|1|"},
      {'f', "x (a = 1)\n", 109, "\"a\"", "@top.par|1|4|"},
      {'f', "a = 1 #c\n)\n", 109, "\")\"", "@top.par|2|1|a"},
      {'f', "a = 1\n@broken.par\n", 109, "\")\"", "@broken.par|2|5|y"},
      {'f', "a = 1\n  @missing.par\n", 113, "@missing.par", "@top.par|2|3|"},
      {'f', "a = 1\n@loop.par\n", 115, "@loop.par", "@loop.par|2|1|"},
      {'f', "a = 1\n@big.par\n", 116, "@big.par", "@top.par|2|1|"},
      {'f', "a = \"0123456789abcdef\n", 111, "\"0123456789", "@top.par|1|5|a"},
  };
  for (const Case &c : cases) {
    Prepare(c.kind);
    ASSERT_EQ(lrmspv(h, "name", 4, "before", 6), 0u);
    const std::string before = Dump();
    lrmslim(h, 64);
    ASSERT_EQ(Source(c.kind, c.text), c.status) << c.text;
    EXPECT_EQ(LastError(), static_cast<int32_t>(c.status)) << c.text;
    if (c.arg != nullptr) EXPECT_EQ(Arg(1, 1), Path(c.arg)) << c.text;
    EXPECT_EQ(Where(), Path(c.where)) << c.text;
    EXPECT_NE(LastText().find(", line "), std::string::npos) << LastText();
    EXPECT_EQ(Dump(), before) << c.text;
    EXPECT_EQ(lrmslim(h, 0), 64u);
  }
  EXPECT_EQ(Source('c', "value=1 - ="), 109u);
  EXPECT_EQ(LastText(), "syntax error at \"=\" (command line, line 1, column 11, parameter \"value\")");
  // Outside a source the record still names the key.
  Prepare('s');
  EXPECT_EQ(lrmspv(h, "count", 5, "2000", 4), 102u);
  EXPECT_EQ(Where(), "|0|0|count");
  EXPECT_EQ(LastText(), "value \"2000\" of parameter \"count\" is outside the allowed range (parameter \"count\")");
  const char *more[] = {"9", "1x"};
  EXPECT_EQ(lrmavla(h, "count", 5, reinterpret_cast<const void *const *>(more), 2), 104u);
  uint32_t n = 0;
  EXPECT_EQ(lrmgiv(h, nullptr, nullptr, "count", 5, 0, &n), 0u);
  EXPECT_EQ(n, 7u) << "lrmavla stores all or nothing";
  // Columns count characters.
  ASSERT_EQ(Read('u', 0, "name=\xC3\xA4rger count=\xC3\xA4"), 104u);
  EXPECT_EQ(Where(), "string|1|18|count");
  // The limit stops a source that never ends, and any source too long.
  lrmslim(h, 1 << 20);
  EXPECT_EQ(lrmpfi(h, "/dev/zero"), 116u);
  EXPECT_EQ(LastText(), "parameter source \"/dev/zero\" is larger than the limit of 1048576 bytes");
  lrmslim(h, 8);
  EXPECT_EQ(ParseCmd("name=123"), 0u);
  EXPECT_EQ(ParseCmd("name=1234"), 116u);
  const char *argv[] = {"a=1", "b=2345"};
  EXPECT_EQ(lrmpaa(h, 2, argv), 116u);
  EXPECT_EQ(lrmslim(h, SIZE_MAX), 8u);
  EXPECT_EQ(lrmslim(h, 0), SIZE_MAX / 4);
  lemces(lem);
  EXPECT_EQ(lrmpfi(h, Path("@missing.par").c_str()), 113u);
  EXPECT_EQ(Where(), "|0|0|");
  EXPECT_EQ(lrmpfi(h, nullptr), 201u);
  EXPECT_EQ(lrmdtf(h, "/nonexistent-dir/x.par"), 113u);
}

}  // namespace
