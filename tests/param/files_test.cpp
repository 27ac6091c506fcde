// Parameter files: a corpus of real-looking files parsed, dumped and parsed
// again; syntax errors with their place; includes; size limits; the
// environment; command-line arguments.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>

#include "sl.h"
#include "tests/param/param_fixture.h"

namespace {

// Every stored value, as (qualified key, occurrence text) in dump order:
// read back through the dump itself is no oracle, so this walks the getters.
using Snapshot = std::map<std::string, Strings>;

class Files : public ParamTest {
 protected:
  Snapshot Snap(const Strings &keys) {
    Snapshot s;
    for (const std::string &k : keys) {
      std::string q, key = k;
      size_t colon = k.find(':');
      if (colon != std::string::npos) {
        q = k.substr(0, colon);
        key = k.substr(colon + 1);
      }
      uint32_t n = 0;
      lrmavlo(h, q.empty() ? nullptr : q.c_str(), key.c_str(), key.size(), &n);
      for (uint32_t i = 0; i < n; i++) {
        const char *p = nullptr;
        uint32_t st = lrmgsp(h, q.empty() ? nullptr : q.c_str(), nullptr, key.c_str(), key.size(), i, &p);
        s[k].push_back(st == 0 && p != nullptr ? p : "?" + std::to_string(st));
      }
    }
    return s;
  }
  void Any() {
    static const lrmkeyset any = {nullptr, 0, LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};
    ASSERT_EQ(lrmpsvp(h, &any), 0u);
  }
};

struct CorpusFile {
  const char *name;
  const char *text;
  Strings keys;      // keys to compare (qualified as "q:k"; "" = positional)
  Snapshot want;     // expected values of some of them
};

const CorpusFile kCorpus[] = {
    {"server.ora",
     "# Listener settings\n"
     "host = db01.example.com      # the primary\n"
     "port = 1521\n"
     "\n"
     "services = (sales (hr payroll) \"web shop\")\n"
     "path = '/opt/kel/home dir'\n"
     "banner = \"He said \"\"hi\"\"\"\n"
     "options = fast, safe\n",
     {"host", "port", "services", "path", "banner", "options"},
     {{"host", {"db01.example.com"}},
      {"services", {"sales", "hr", "payroll", "web shop"}},
      {"banner", {"He said \"hi\""}},
      {"options", {"fast", "safe"}}}},
    {"continued.par",
     "files = a.dat \\\n"
     "        b.dat \\\n"
     "        c.dat\n"
     "note = 'a long \\\n"
     "text'\n"
     "log:level = debug\n"
     "log:file = /var/log/x.log\n"
     "level = info\n",
     {"files", "note", "log:level", "log:file", "level"},
     {{"files", {"a.dat", "b.dat", "c.dat"}}, {"note", {"a long text"}}, {"log:level", {"debug"}}}},
    {"positional.par",
     "input1.txt input2.txt\n"
     "mode = copy\n"
     "empty = \"\"\n"
     "escaped = a\\=b\\#c\n",
     {"", "mode", "empty", "escaped"},
     {{"", {"input1.txt", "input2.txt"}}, {"empty", {""}}, {"escaped", {"a=b#c"}}}},
    {"crlf.par", "a = 1\r\nb = (x\r\n y)\r\n", {"a", "b"}, {{"b", {"x", "y"}}}},
    {"dashes.par", "range = -5 -x\nneg = -1\n", {"range", "neg"}, {{"range", {"-5", "-x"}}}},
};

TEST_F(Files, CorpusParsesDumpsAndParsesBack) {
  for (uint32_t opts : {0u, static_cast<uint32_t>(LRM_OPT_COMMENTS)}) {
    for (const CorpusFile &f : kCorpus) {
      Open(opts | LRM_OPT_COMMA);
      Any();
      std::string path = Write(f.name, f.text);
      ASSERT_EQ(lrmpfi(h, path.c_str()), 0u) << f.name << ": " << LastText();
      Snapshot first = Snap(f.keys);
      for (const auto &[k, v] : f.want) EXPECT_EQ(first[k], v) << f.name << " " << k;
      std::string dumped = Dir() + "/dump.par";
      ASSERT_EQ(lrmdtf(h, dumped.c_str()), 0u);
      std::string d = Dump();
      if (opts != 0 && std::string(f.name) == "server.ora")
        EXPECT_NE(d.find("host=db01.example.com # the primary\n"), std::string::npos) << d;
      Open(opts | LRM_OPT_COMMA);
      Any();
      ASSERT_EQ(lrmpfi(h, dumped.c_str()), 0u) << f.name << ": " << LastText() << "\n" << d;
      EXPECT_EQ(Snap(f.keys), first) << f.name << "\n" << d;
      EXPECT_EQ(Dump(), d);
    }
  }
}

TEST_F(Files, TypedValuesDumpAndParseBack) {
  static const lrmkey keys[] = {
      {"n", LRM_T_INT, 0, 0, 0, 0, 0, nullptr, nullptr},
      {"big", LRM_T_INT8, 0, 0, 0, 0, 0, nullptr, nullptr},
      {"on", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, nullptr},
      {"s", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr},
  };
  static const lrmkeyset set = {keys, 4, 0, nullptr, nullptr, nullptr, nullptr};
  ASSERT_EQ(lrmpsvp(h, &set), 0u);
  ASSERT_EQ(Parse("n=%h10 big=2M on=yes on=n s=(\"a b\" '-c' '#')"), 0u) << LastText();
  std::string d = Dump();
  EXPECT_EQ(d, "n=16\nbig=2097152\non=TRUE\non=FALSE\ns=\"a b\"\ns=\"-c\"\ns=\"#\"\n");
  ASSERT_EQ(lrmpsvp(h, &set), 0u);
  std::string path = Write("typed.par", d);
  ASSERT_EQ(lrmpfi(h, path.c_str()), 0u) << LastText();
  EXPECT_EQ(Dump(), d);
}

TEST_F(Files, SyntaxErrorsNameTokenAndPlace) {
  Any();
  struct Case {
    const char *text;
    const char *token;
    const char *where;  // line|column|key
  } cases[] = {
      {"a = 1\nb = (x y\n", "-end of file-", "3|1|b"},
      {"a = 1\n= 2\n", "\"1\"", "1|5|a"},
      {"a = 1\nb = c = \n", "\"c\"", "2|5|b"},
      {"a = )\n", "\")\"", "1|5|a"},
      {"a = 1\n\n\n(x) = 2\n", "\"=\"", "4|5|a"},
      {"a = 1 b =\n", "-end of file-", "2|1|b"},
      {"=", "\"=\"", "1|1|"},
      {"x (a = 1)\n", "\"a\"", "1|4|"},
      {"a = 1 #c\n)\n", "\")\"", "2|1|a"},
  };
  for (const Case &c : cases) {
    lemces(lem);
    std::string path = Write("bad.par", c.text);
    ASSERT_EQ(lrmpfi(h, path.c_str()), 109u) << c.text;
    ASSERT_EQ(LastError(), 109) << c.text;
    EXPECT_EQ(Arg(1, 1), c.token) << c.text;
    EXPECT_EQ(Where(), path + "|" + c.where) << c.text;
  }
  // Lists nest up to 255 deep.
  lemces(lem);
  std::string deep = "a = " + std::string(255, '(') + "x" + std::string(255, ')');
  EXPECT_EQ(Parse(deep), 0u) << LastText();
  deep = "a = " + std::string(256, '(') + "x" + std::string(256, ')');
  EXPECT_EQ(Parse(deep), 109u);
  EXPECT_EQ(Where(), "string|1|260|a");
  // On the command line too.
  lemces(lem);
  ASSERT_EQ(ParseCmd("a=1 - ="), 109u);
  EXPECT_EQ(Arg(1, 1), "\"=\"");
  EXPECT_EQ(Where(), "command line|1|7|a");
  EXPECT_EQ(LastText(), "syntax error at \"=\" (command line, line 1, column 7, parameter \"a\")");
}

// Simple settings are stored without the driver (sources.cpp); on any input
// that must come to the same as parsing it all with the driver.
TEST_F(Files, SimpleSettingsAsTheDriverStoresThem) {
  static const lrmkey keys[] = {{"n", LRM_T_INT, 0, 0, 0, 0, 0, "1", nullptr},
                                {"f", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, nullptr},
                                {"one", LRM_T_STRING, 1, 0, 0, 0, 0, nullptr, nullptr}};
  static const lrmkeyset set = {keys, 3, LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};
  Write("inc.par", "n = 7 k = v\n");
  static const char *const kPieces[] = {
      "k = v", "n = 5", "n = x", "s:k = 'q r'", "one = a", "k = a b c d e f g", "k = (a b)", "= 2", "x",
      "-f", "-n 3", "k = v # note", "\n", "\n@inc.par\n", "\\\n", "\"open", ",", "k = -5", "a=b=c", "#c\n"};
  std::mt19937 rng(11);
  for (int round = 0; round < 3000; round++) {
    std::string text;
    for (int k = static_cast<int>(rng() % 9); k > 0; k--) text += std::string(kPieces[rng() % 20]) + (rng() % 3 ? " " : "\n");
    const uint8_t kind = static_cast<uint8_t>(1 + rng() % 3);
    const uint32_t opts = rng() % 4 == 0 ? LRM_OPT_COMMENTS : 0;
    std::string got[2];
    for (int plain = 0; plain < 2; plain++) {
      Open(opts);
      ASSERT_EQ(lrmpsvp(h, &set), 0u);
      lrm_internal::rec(h)->plain_parse = plain != 0;
      lemces(lem);
      std::string name = Dir() + "/top.par";
      auto *c = lrm_internal::rec(h);
      lrm_internal::begin_call(c);
      uint32_t st = lrm_internal::parse_source(c, text.data(), text.size(), kind, 0, name.c_str(), 0);
      lrm_internal::end_call(c, st == 0);
      got[plain] = std::to_string(st) + "|" + (st != 0 ? LastText() : "") + "|" + Dump();
    }
    ASSERT_EQ(got[0], got[1]) << "kind " << int(kind) << ": " << text;
  }
}

TEST_F(Files, Includes) {
  Any();
  Write("inner.par", "b = 2\nc = (3\n 4)\n");
  struct Case {
    const char *text;
    Strings keys;
    Snapshot want;
  } cases[] = {
      {"a = 1\n@inner.par\nd = 5\n  include \"inner.par\"\n",
       {"a", "b", "c", "d"},
       {{"a", {"1"}}, {"b", {"2", "2"}}, {"c", {"3", "4", "3", "4"}}, {"d", {"5"}}}},
      // Where no line starts, there is no include line.
      {"s=\"a\n@b c\"", {"s"}, {{"s", {"a\n@b c"}}}},
      {"s='x\ninclude y'", {"s"}, {{"s", {"x\ninclude y"}}}},
      {"s=(a\ninclude b)", {"s"}, {{"s", {"a", "include", "b"}}}},
      {"s=a \\\n@inner.par", {"s", "b"}, {{"s", {"a", "@inner.par"}}, {"b", {}}}},
      {"include = x\n@k=v\n@ inner.par \ninclude\tinner.par", {"include", "@k", "b"},
       {{"include", {"x"}}, {"@k", {"v"}}, {"b", {"2", "2"}}}},
  };
  for (const Case &c : cases) {
    Any();
    std::string path = Write("outer.par", c.text);
    ASSERT_EQ(lrmpfi(h, path.c_str()), 0u) << c.text << ": " << LastText();
    Snapshot got = Snap(c.keys);
    for (const auto &[k, v] : c.want) EXPECT_EQ(got[k], v) << c.text << " " << k;
  }
}

TEST_F(Files, FileErrorsSayWhereAndStoreNothing) {
  Any();
  const std::string d = Dir() + "/";
  Write("broken.par", "x = 1\ny = )\n");
  Write("loop.par", "k = 1\n@loop.par\n");
  Write("big.par", "k = " + std::string(100, 'v') + "\n");
  struct Case {
    const char *text;  // of the top file, top.par
    uint32_t status;
    std::string arg;
    std::string where;  // source|line|column|key
  } cases[] = {
      {"a = 1\n@broken.par\n", 109, "\")\"", d + "broken.par|2|5|y"},
      {"a = 1\n  @missing.par\n", 113, d + "missing.par", d + "top.par|2|3|"},
      {"a = 1\n@loop.par\n", 115, d + "loop.par", d + "loop.par|2|1|"},
      {"a = 1\n@big.par\n", 116, d + "big.par", d + "top.par|2|1|"},
      {"a = \"0123456789abcdef\n", 111, "\"0123456789", d + "top.par|1|5|a"},
  };
  for (const Case &c : cases) {
    lemces(lem);
    lrmslim(h, 64);
    std::string top = Write("top.par", c.text);
    ASSERT_EQ(lrmpfi(h, top.c_str()), c.status) << c.text;
    EXPECT_EQ(LastError(), static_cast<int32_t>(c.status)) << c.text;
    EXPECT_EQ(Arg(1, 1), c.arg) << c.text;
    EXPECT_EQ(Where(), c.where) << c.text;
    EXPECT_EQ(Dump(), "") << c.text;
    EXPECT_EQ(lrmslim(h, 0), 64u);
  }
  // The limit stops a source that never ends, and any source too long.
  lrmslim(h, 1 << 20);
  EXPECT_EQ(lrmpfi(h, "/dev/zero"), 116u);
  EXPECT_EQ(LastText(), "parameter source \"/dev/zero\" is larger than the limit of 1048576 bytes");
  lrmslim(h, 8);
  EXPECT_EQ(ParseCmd("a=1 b=23"), 0u);
  EXPECT_EQ(ParseCmd("a=1 b=234"), 116u);
  const char *argv[] = {"a=1", "b=2345"};
  EXPECT_EQ(lrmpaa(h, 2, argv), 116u);
  EXPECT_EQ(lrmslim(h, SIZE_MAX), 8u);
  EXPECT_EQ(lrmslim(h, 0), SIZE_MAX / 4);
  lemces(lem);
  std::string missing = d + "missing.par";
  EXPECT_EQ(lrmpfi(h, missing.c_str()), 113u);
  EXPECT_EQ(Where(), "|0|0|");
  EXPECT_EQ(lrmpfi(h, nullptr), 201u);
  EXPECT_EQ(lrmdtf(h, "/nonexistent-dir/x.par"), 113u);
}

TEST_F(Files, Environment) {
  static const lrmkey keys[] = {{"v", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, nullptr},
                                {"n", LRM_T_INT, 0, 0, 0, 0, 0, nullptr, nullptr}};
  static const lrmkeyset set = {keys, 2, 0, nullptr, nullptr, nullptr, nullptr};
  ASSERT_EQ(lrmpsvp(h, &set), 0u);
  ASSERT_EQ(slsetenv("KEL_PARAM_TEST", "in.txt -v -n 3", 1), 0);
  ASSERT_EQ(lrmpev(h, "KEL_PARAM_TEST"), 0u) << LastText();
  EXPECT_EQ(All(""), (Strings{"in.txt"}));
  uint32_t n = 0;
  EXPECT_EQ(lrmgiv(h, nullptr, nullptr, "n", 1, 0, &n), 0u);
  EXPECT_EQ(n, 3u);
  slunsetenv("KEL_PARAM_TEST_UNSET");
  EXPECT_EQ(lrmpev(h, "KEL_PARAM_TEST_UNSET"), 0u);
  ASSERT_EQ(slsetenv("KEL_PARAM_TEST", "-q", 1), 0);
  EXPECT_EQ(lrmpev(h, "KEL_PARAM_TEST"), 101u);
  EXPECT_EQ(LastText(),
            "\"q\" is not a known parameter name (environment variable \"KEL_PARAM_TEST\", line 1, column 2, "
            "parameter \"q\")");
}

TEST_F(Files, CommandLineArguments) {
  static const lrmkey keys[] = {{"v", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, nullptr},
                                {"o", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr}};
  static const lrmkeyset set = {keys, 2, 0, nullptr, nullptr, nullptr, nullptr};
  ASSERT_EQ(lrmpsvp(h, &set), 0u);
  const char *argv[] = {"a.c", "b.c", "-v", "-sec:v", "-sec:o", "6", "-o", "out.o", "x#y"};
  ASSERT_EQ(lrmpaa(h, 9, argv), 0u) << LastText();
  EXPECT_EQ(All(""), (Strings{"a.c", "b.c"}));
  EXPECT_EQ(All("o"), (Strings{"out.o", "x#y"}));
  EXPECT_EQ(All("o", "sec"), (Strings{"6"}));
  EXPECT_EQ(lrmpaa(h, 1, nullptr), 201u);
}

}  // namespace
