// Parameter files: a corpus of real-looking files parsed, dumped and parsed
// again; syntax errors with their token and line; includes; the
// environment; file errors.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "sl.h"
#include "tests/param/param_fixture.h"

namespace {

std::string TempDir() {
  static std::string dir = [] {
    char tmpl[] = "/tmp/kelparamXXXXXX";
    const char *d = mkdtemp(tmpl);
    return std::string(d != nullptr ? d : "/tmp");
  }();
  return dir;
}

std::string Write(const std::string &name, const std::string &text) {
  std::string path = TempDir() + "/" + name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

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
  std::string Dump() {
    std::string d;
    EXPECT_EQ(lrmdtw(h, Collect, &d), 0u);
    return d;
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
  static const lrmkeyset any = {nullptr, 0, LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};
  for (uint32_t opts : {0u, static_cast<uint32_t>(LRM_OPT_COMMENTS)}) {
    for (const CorpusFile &f : kCorpus) {
      ASSERT_EQ(lrmtrm(h), 0);
      h = lrminiu(ctx, nullptr, opts | LRM_OPT_COMMA, nullptr, nullptr);
      ASSERT_NE(h, nullptr);
      ASSERT_EQ(lrmpsvp(h, &any), 0u);
      std::string path = Write(f.name, f.text);
      ASSERT_EQ(lrmpfi(h, path.c_str()), 0u) << f.name << ": " << LastText();
      Snapshot first = Snap(f.keys);
      for (const auto &[k, v] : f.want) EXPECT_EQ(first[k], v) << f.name << " " << k;
      std::string dumped = TempDir() + "/dump.par";
      ASSERT_EQ(lrmdtf(h, dumped.c_str()), 0u);
      std::string d = Dump();
      if (opts != 0 && std::string(f.name) == "server.ora")
        EXPECT_NE(d.find("host=db01.example.com # the primary\n"), std::string::npos) << d;
      ASSERT_EQ(lrmtrm(h), 0);
      h = lrminiu(ctx, nullptr, opts | LRM_OPT_COMMA, nullptr, nullptr);
      ASSERT_EQ(lrmpsvp(h, &any), 0u);
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
  ASSERT_EQ(lrmpst(h, "n=%h10 big=2M on=yes s=(\"a b\" '-c' '#')", 39), 0u) << LastText();
  std::string d = Dump();
  EXPECT_EQ(d, "n=16\nbig=2097152\non=yes\ns=\"a b\"\ns=\"-c\"\ns=\"#\"\n");
  ASSERT_EQ(lrmtrm(h), 0);
  h = lrmini(ctx, nullptr, nullptr);
  ASSERT_EQ(lrmpsvp(h, &set), 0u);
  std::string path = Write("typed.par", d);
  ASSERT_EQ(lrmpfi(h, path.c_str()), 0u) << LastText();
  EXPECT_EQ(Dump(), d);
}

TEST_F(Files, SyntaxErrorsNameTokenFileAndLine) {
  static const lrmkeyset any = {nullptr, 0, LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};
  ASSERT_EQ(lrmpsvp(h, &any), 0u);
  struct Case {
    const char *text;
    const char *token;
    int line;
  } cases[] = {
      {"a = 1\nb = (x y\n", "-end of file-", 3},
      {"a = 1\n= 2\n", "\"1\"", 1},
      {"a = 1\nb = c = \n", "\"c\"", 2},
      {"a = )\n", "\")\"", 1},
      {"a = 1\n\n\n(x) = 2\n", "\"=\"", 4},
      {"a = 1 b =\n", "-end of file-", 2},
      {"=", "\"=\"", 1},
      {"a = \n", "-end of file-", 2},
      {"x (a = 1)\n", "\"a\"", 1},
      {"a = 1 #c\n)\n", "\")\"", 2},
  };
  for (const Case &c : cases) {
    lemces(lem);
    std::string path = Write("bad.par", c.text);
    ASSERT_EQ(lrmpfi(h, path.c_str()), 109u) << c.text;
    ASSERT_EQ(LastError(), 109) << c.text;
    EXPECT_EQ(Arg(1, 1), c.token) << c.text;
    EXPECT_EQ(Arg(1, 2), path) << c.text;
    EXPECT_EQ(Arg(1, 3), std::to_string(c.line)) << c.text;
  }
  // Lists nest up to 255 deep.
  lemces(lem);
  std::string deep = "a = " + std::string(255, '(') + "x" + std::string(255, ')');
  EXPECT_EQ(Parse(deep), 0u) << LastText();
  deep = "a = " + std::string(256, '(') + "x" + std::string(256, ')');
  EXPECT_EQ(Parse(deep), 109u);
  EXPECT_EQ(LastError(), 109);
  // On the command line too.
  lemces(lem);
  ASSERT_EQ(ParseCmd("a=1 - ="), 109u);
  EXPECT_EQ(Arg(1, 1), "\"=\"");
  EXPECT_EQ(Arg(1, 2), "command line");
}

TEST_F(Files, IncludesAndFileErrors) {
  static const lrmkeyset any = {nullptr, 0, LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};
  ASSERT_EQ(lrmpsvp(h, &any), 0u);
  Write("inner.par", "b = 2\nc = (3\n 4)\n");
  std::string outer = Write("outer.par", "a = 1\n@inner.par\nd = 5\n  include \"inner.par\"\n");
  ASSERT_EQ(lrmpfi(h, outer.c_str()), 0u) << LastText();
  EXPECT_EQ(All("a"), (Strings{"1"}));
  EXPECT_EQ(All("b"), (Strings{"2", "2"}));
  EXPECT_EQ(All("c"), (Strings{"3", "4", "3", "4"}));
  EXPECT_EQ(All("d"), (Strings{"5"}));
  // A syntax error in an included file names that file and its line.
  Write("broken.par", "x = 1\ny = )\n");
  std::string top = Write("top.par", "a = 1\n@broken.par\n");
  lemces(lem);
  ASSERT_EQ(lrmpfi(h, top.c_str()), 109u);
  EXPECT_EQ(Arg(1, 2), TempDir() + "/broken.par");
  EXPECT_EQ(Arg(1, 3), "2");
  std::string loop = Write("loop.par", "@loop.par\n");
  EXPECT_EQ(lrmpfi(h, loop.c_str()), 115u);
  lemces(lem);
  std::string missing = TempDir() + "/missing.par";
  EXPECT_EQ(lrmpfi(h, missing.c_str()), 113u);
  EXPECT_EQ(LastError(), 113);
  EXPECT_EQ(Arg(1, 1), missing);
  EXPECT_EQ(lrmpfi(h, TempDir().c_str()), 113u);
  EXPECT_EQ(lrmpfi(h, nullptr), 201u);
  EXPECT_EQ(lrmdtf(h, "/nonexistent-dir/x.par"), 113u);
  // Unterminated quote in a file: 111 with the first ten characters.
  lemces(lem);
  std::string q = Write("quote.par", "a = \"0123456789abcdef\n");
  EXPECT_EQ(lrmpfi(h, q.c_str()), 111u);
  EXPECT_EQ(Arg(1, 1), "\"0123456789");
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
}

TEST_F(Files, CommandLineArguments) {
  static const lrmkey keys[] = {{"v", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, nullptr},
                                {"o", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr}};
  static const lrmkeyset set = {keys, 2, 0, nullptr, nullptr, nullptr, nullptr};
  ASSERT_EQ(lrmpsvp(h, &set), 0u);
  const char *argv[] = {"a.c", "b.c", "-v", "-o", "out.o", "x#y"};
  ASSERT_EQ(lrmpaa(h, 6, argv), 0u) << LastText();
  EXPECT_EQ(All(""), (Strings{"a.c", "b.c"}));
  EXPECT_EQ(All("o"), (Strings{"out.o", "x#y"}));
  EXPECT_EQ(lrmpaa(h, 1, nullptr), 201u);
}

}  // namespace
