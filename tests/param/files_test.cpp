// Parameter files: a corpus of real-looking files parsed, dumped and parsed
// again; the environment; command-line arguments.
#include <cstdio>
#include <cstdlib>
#include <map>

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
      size_t colon = k.find(':');
      s[k] = colon == std::string::npos ? All(k.c_str()) : All(k.substr(colon + 1).c_str(), k.substr(0, colon).c_str());
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
