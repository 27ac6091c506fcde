// Language services: environments, territory items, character sets and
// classes (Python's codecs and str methods as the oracle), and message
// catalogues.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "lx.h"
#include "tests/support/portable.h"
#include "tests/support/python.h"

namespace {

// Runs a Python snippet and returns what it printed.
std::string python(const std::string &code) {
  std::string path = std::string(KEL_BINARY_DIR) + "/kelnls_" + std::to_string(kel_test::process_id()) + ".py";
  {
    std::ofstream f(path);
    f << code;
  }
  std::string out;
  kel_test::run_python(path, "", out);
  std::filesystem::remove(path);
  return out;
}

std::string hex(const void *p, size_t n) {
  static const char *d = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; i++) {
    uint8_t b = static_cast<const uint8_t *>(p)[i];
    s += d[b >> 4];
    s += d[b & 15];
  }
  return s;
}

std::vector<uint8_t> unhex(const std::string &h) {
  std::vector<uint8_t> v;
  for (size_t i = 0; i + 1 < h.size(); i += 2) v.push_back(static_cast<uint8_t>(std::stoi(h.substr(i, 2), nullptr, 16)));
  return v;
}

const lxenv *env(const char *name) { return lxhLangEnv(nullptr, name, strlen(name)); }

TEST(Nls, EnvironmentsByName) {
  struct Case {
    const char *name;
    bool ok;
    int32_t csid;
  } cases[] = {
      {"AMERICAN_AMERICA.US7ASCII", true, LX_CSID_US7ASCII},
      {"american_america.we8iso8859p1", true, LX_CSID_WE8ISO8859P1},
      {".utf8", true, LX_CSID_AL32UTF8},
      {"AMERICAN_AMERICA.AL32UTF8", true, LX_CSID_AL32UTF8},
      {"AMERICAN_AMERICA.AL16UTF16", true, LX_CSID_AL16UTF16},
      {"AMERICAN_AMERICA.WE8EBCDIC37", true, LX_CSID_WE8EBCDIC37},
      {"AMERICAN_AMERICA", true, LX_CSID_US7ASCII},
      {"KLINGON_AMERICA.US7ASCII", false, 0},
      {"AMERICAN_AMERICA.NOSUCHSET", false, 0},
  };
  for (const Case &c : cases) {
    const lxenv *e = env(c.name);
    EXPECT_EQ(e != nullptr, c.ok) << c.name;
    if (e) EXPECT_EQ(lxhninfo(e, LX_CHARSET_ID), c.csid) << c.name;
  }
  EXPECT_EQ(env("AMERICAN_AMERICA.US7ASCII"), env("american_america.us7ascii")) << "one handle per environment";

  lxglo *g = lxlinit(nullptr, 0);
  ASSERT_NE(g, nullptr);
  const lxenv *e = lxhLangEnv(g, ".utf8", 5);
  ASSERT_NE(e, nullptr);
  lxctx c;
  EXPECT_EQ(lxinitc(&c, g, e), 0);
  EXPECT_EQ(c.env, e);
  EXPECT_EQ(lxinitc(&c, g, nullptr), 0);
  EXPECT_NE(c.env, nullptr);
  EXPECT_EQ(lxlterm(g), 0);
}

TEST(Nls, AmericanItems) {
  // Month and day names from Python's calendar module in the C locale.
  std::string out = python(
      "import calendar\n"
      "print('|'.join(calendar.month_name[1:]))\n"
      "print('|'.join(calendar.month_abbr[1:]))\n"
      "d=list(calendar.day_name); print('|'.join(d[6:]+d[:6]))\n"
      "d=list(calendar.day_abbr); print('|'.join(d[6:]+d[:6]))\n");
  std::istringstream in(out);
  std::string line;
  int base[] = {LX_MONTH_NAME, LX_MONTH_ABBR, LX_DAY_NAME, LX_DAY_ABBR};
  for (int b : base) {
    ASSERT_TRUE(std::getline(in, line));
    std::stringstream ss(line);
    std::string want;
    for (int i = 0; std::getline(ss, want, '|'); i++) {
      char buf[32];
      EXPECT_EQ(lxhlinfo(nullptr, b + i, buf, sizeof buf), static_cast<int32_t>(want.size()));
      EXPECT_EQ(want, buf) << b + i;
    }
  }
  struct Item {
    int32_t item;
    const char *text;
  } items[] = {
      {LX_DEFAULT_DATE_FMT, "DD-MON-RR"}, {LX_CHARSET_NAME, "US7ASCII"}, {LX_DECIMAL_CHAR, "."},
      {LX_GROUP_SEP, ","}, {LX_AM, "AM"}, {LX_PM, "PM"}, {LX_AM_DOTS, "A.M."}, {LX_PM_DOTS, "P.M."},
      {LX_AD, "AD"}, {LX_BC, "BC"}, {LX_AD_DOTS, "A.D."}, {LX_BC_DOTS, "B.C."},
      {LX_LANGUAGE_NAME, "AMERICAN"}, {LX_TERRITORY_NAME, "AMERICA"},
  };
  for (const Item &it : items) {
    char buf[64];
    EXPECT_EQ(lxhlinfo(nullptr, it.item, buf, sizeof buf), static_cast<int32_t>(strlen(it.text)));
    EXPECT_STREQ(buf, it.text) << it.item;
  }
  char small[4];
  EXPECT_EQ(lxhlinfo(nullptr, LX_DEFAULT_DATE_FMT, small, sizeof small), 9) << "full length when truncated";
  EXPECT_STREQ(small, "DD-");
  EXPECT_EQ(lxhlinfo(nullptr, 9999, small, sizeof small), -1);
  for (int32_t item : {LX_LONG_DATE_FMT, LX_SHORT_DATE_FMT, LX_SHORT_TIME_FMT})
    EXPECT_GT(lxhlinfo(nullptr, item, nullptr, 0), 0);
  EXPECT_EQ(lxhninfo(nullptr, LX_FIRST_DAY), 0);
  EXPECT_EQ(lxhninfo(env(".utf8"), LX_CHARSET_KIND), LX_CS_ASCII);
  EXPECT_EQ(lxhninfo(env("AMERICAN_AMERICA.WE8EBCDIC37"), LX_CHARSET_KIND), LX_CS_EBCDIC);
  EXPECT_EQ(lxhninfo(env("AMERICAN_AMERICA.AL16UTF16"), LX_CHARSET_KIND), LX_CS_UTF16);
  char cs[32];
  lxhlinfo(env("AMERICAN_AMERICA.WE8EBCDIC37"), LX_CHARSET_NAME, cs, sizeof cs);
  EXPECT_STREQ(cs, "WE8EBCDIC37");
}

// Conversions from UTF-8 into every set, compared with Python's encoders
// (errors='replace'), and back.
TEST(Nls, ConversionsMatchPython) {
  const char *samples[] = {"plain ASCII text 0123", "Caf\xc3\xa9 cr\xc3\xa8me br\xc3\xbbl\xc3\xa9" "e \xc3\x9f\xc3\xbf",
                           "\xe2\x82\xac and \xe4\xb8\xad\xe6\x96\x87", "astral \xf0\x9f\x98\x80!", "",
                           "{[|]}~^`\\@#$%&*"};
  struct Set {
    int32_t id;
    const char *codec;
  } sets[] = {{LX_CSID_US7ASCII, "ascii"}, {LX_CSID_WE8ISO8859P1, "latin-1"}, {LX_CSID_WE8EBCDIC37, "cp037"},
              {LX_CSID_AL32UTF8, "utf-8"}, {LX_CSID_AL16UTF16, "utf-16-be"}};
  std::string code = "import sys\nsamples=[";
  for (const char *s : samples) code += "bytes.fromhex('" + hex(s, strlen(s)) + "').decode('utf-8'),";
  code += "]\nfor c in [";
  for (const Set &s : sets) code += std::string("'") + s.codec + "',";
  code += "]:\n  print(' '.join((x.encode(c, errors='replace').hex() or '-') for x in samples))\n";
  std::istringstream in(python(code));
  for (const Set &s : sets) {
    std::string line;
    ASSERT_TRUE(std::getline(in, line)) << s.codec;
    std::istringstream words(line);
    for (const char *sample : samples) {
      std::string want;
      words >> want;
      if (want == "-") want.clear();
      uint8_t out[256];
      int64_t n = lxgcnv(out, sizeof out, s.id, sample, strlen(sample), LX_CSID_AL32UTF8);
      ASSERT_GE(n, 0) << s.codec;
      EXPECT_EQ(hex(out, static_cast<size_t>(n)), want) << s.codec << " of " << sample;
      // And back, for the sets that hold the whole sample.
      std::vector<uint8_t> enc = unhex(want);
      char back[256];
      int64_t m = lxgcnv(back, sizeof back, LX_CSID_AL32UTF8, enc.data(), enc.size(), s.id);
      ASSERT_GE(m, 0);
      if (std::string(s.codec).rfind("utf", 0) == 0) EXPECT_EQ(std::string(back, static_cast<size_t>(m)), sample);
    }
  }
}

TEST(Nls, ConversionEdges) {
  struct Case {
    const char *in;
    size_t inlen;
    int32_t from, to;
    const char *hexout;  // null: failure
    size_t room;
  } cases[] = {
      {"\xc0\xaf", 2, LX_CSID_AL32UTF8, LX_CSID_US7ASCII, "3f3f", 16},  // overlong: two bad bytes
      {"\xed\xa0\x80", 3, LX_CSID_AL32UTF8, LX_CSID_AL32UTF8, "efbfbdefbfbdefbfbd", 16},  // surrogate
      {"\xe2\x82", 2, LX_CSID_AL32UTF8, LX_CSID_WE8ISO8859P1, "3f3f", 16},  // truncated
      {"\xd8\x3d", 2, LX_CSID_AL16UTF16, LX_CSID_AL32UTF8, "efbfbd", 16},   // lone high surrogate
      {"\x00\x41\x00", 3, LX_CSID_AL16UTF16, LX_CSID_US7ASCII, "413f", 16},  // odd length
      {"\x80", 1, LX_CSID_US7ASCII, LX_CSID_AL32UTF8, "efbfbd", 16},
      {"abcd", 4, LX_CSID_US7ASCII, LX_CSID_AL16UTF16, nullptr, 7},  // no room
      {"abc", 3, LX_CSID_US7ASCII, 12345, nullptr, 16},
  };
  for (const Case &c : cases) {
    uint8_t out[64];
    int64_t n = lxgcnv(out, c.room, c.to, c.in, c.inlen, c.from);
    if (c.hexout == nullptr) {
      EXPECT_EQ(n, -1);
    } else {
      ASSERT_GE(n, 0);
      EXPECT_EQ(hex(out, static_cast<size_t>(n)), c.hexout);
    }
  }
  // One character at a time, as the class functions take it.
  struct Char {
    const char *env;
    const char *in;
    size_t inlen;
    int32_t len;
    uint32_t code;
  } chars[] = {
      {".AL32UTF8", "\xc2\xa0x", 3, 2, 0xA0},      {".AL32UTF8", "\xf0\x9f\x98\x80", 4, 4, 0x1F600},
      {".AL32UTF8", "a", 1, 1, 'a'},              {".AL32UTF8", "\xe2\x82", 2, -1, 0},
      {".AL32UTF8", "\xc0\xaf", 2, -1, 0},         {".AL32UTF8", "\xed\xa0\x80", 3, -1, 0},
      {".AL32UTF8", "", 0, 0, 0},                 {".AL16UTF16", "\xd8\x3d\xde\x00", 4, 4, 0x1F600},
      {".AL16UTF16LE", "\xa0\x00", 2, 2, 0xA0},    {".AL16UTF16", "\xdc\x00", 2, -1, 0},
      {".US7ASCII", "\x80", 1, 1, 0x80},           {".WE8EBCDIC37", "\x41", 1, 1, 0x41},
  };
  for (const Char &c : chars) {
    uint32_t code = 0;
    EXPECT_EQ(lxmdecx(env(c.env), c.in, c.inlen, &code), c.len) << c.env << " " << hex(c.in, c.inlen);
    EXPECT_EQ(code, c.code) << c.env << " " << hex(c.in, c.inlen);
  }
  EXPECT_EQ(lxhcsn("utf8", 4), LX_CSID_AL32UTF8);
  EXPECT_EQ(lxhcsn("WE8ISO8859P1", 12), LX_CSID_WE8ISO8859P1);
  EXPECT_EQ(lxhcsn("nope", 4), 0);
}

// Classes of every character of the Latin-1 and EBCDIC environments against
// Python's str methods on the same characters.
TEST(Nls, CharacterClassesMatchPython) {
  std::string out = python(
      "for cs in ['latin-1','cp037','ascii']:\n"
      "  row=[]\n"
      "  for b in range(256):\n"
      "    try: c=bytes([b]).decode(cs)\n"
      "    except UnicodeDecodeError: row.append('00000-'); continue\n"
      "    u=c.upper()\n"
      "    try: up=u.encode(cs).hex() if len(u)==1 else bytes([b]).hex()\n"
      "    except UnicodeEncodeError: up=bytes([b]).hex()\n"
      "    row.append(''.join('1' if f else '0' for f in (c.isalpha(),c.isupper(),c.islower(),c.isdecimal(),c.isspace()))+up)\n"
      "  print(' '.join(row))\n");
  std::istringstream in(out);
  for (const char *name : {"AMERICAN_AMERICA.WE8ISO8859P1", "AMERICAN_AMERICA.WE8EBCDIC37", "AMERICAN_AMERICA.US7ASCII"}) {
    const lxenv *e = env(name);
    std::string line;
    ASSERT_TRUE(std::getline(in, line));
    std::istringstream words(line);
    for (uint32_t b = 0; b < 256; b++) {
      std::string w;
      words >> w;
      std::string got = std::to_string(lxmalpx(e, b)) + std::to_string(lxmuppx(e, b)) + std::to_string(lxmlowx(e, b)) +
                        std::to_string(lxmdigx(e, b)) + std::to_string(lxmspax(e, b));
      EXPECT_EQ(got, w.substr(0, 5)) << name << " byte " << b;
      if (w[5] != '-') {
        EXPECT_EQ(lxmtupx(e, b), static_cast<uint32_t>(std::stoi(w.substr(5), nullptr, 16))) << name << " " << b;
        // Lower fold undoes an upper fold of a lower-case letter.
        if (lxmlowx(e, b) && lxmtupx(e, b) != b) EXPECT_EQ(lxmtlox(e, lxmtupx(e, b)), b);
      }
    }
  }
}

// ---------------------------------------------------------------- catalogues

TEST(Nls, BuiltInCataloguesHoldEveryNamedMessage) {
  struct Cat {
    const char *product, *facility;
    std::vector<int32_t> numbers;
  } cats[] = {
      {"KELCORE", "LPM", {2, 3, 4, 6, 8, 12, 30, 31, 32, 33, 60, 90, 91, 120, 121, 150, 151, 210, 211, 212}},
      {"KELCORE", "LMM", {3, 33, 34, 35, 36}},
      {"KELCORE", "LEM", {30, 31, 33, 900}},
      {"KELCORE", "LFI", {3, 4}},
      {"kelcore", "lht", {3, 4}},
  };
  for (const Cat &c : cats) {
    lmshdl *h = lmsaicmt(nullptr, c.product, c.facility);
    ASSERT_NE(h, nullptr) << c.facility;
    for (int32_t n : c.numbers) {
      char buf[256];
      EXPECT_GT(lmsagbf(h, n, buf, sizeof buf), 0) << c.facility << " " << n;
    }
    char buf[8];
    EXPECT_EQ(lmsagbf(h, 99999, buf, sizeof buf), -1);
    EXPECT_STREQ(buf, "");
    int32_t count = lmsacin(h);
    ASSERT_GT(count, 0);
    for (int32_t i = 1; i < count; i++) EXPECT_LT(lmsacbn(h, i - 1), lmsacbn(h, i));
    EXPECT_EQ(lmsacbn(h, count), -1);
    EXPECT_EQ(lmsatrm(h), 0);
  }
  EXPECT_EQ(lmsaicmt(nullptr, "KELCORE", "NOPE"), nullptr);
}

TEST(Nls, InstallationFileReplacesBuiltInTexts) {
  auto dir = std::filesystem::temp_directory_path() / ("kelhome_" + std::to_string(kel_test::process_id()));
  std::filesystem::create_directories(dir / "kelcore" / "mesg");
  {
    std::ofstream f(dir / "kelcore" / "mesg" / "kelcore_lfi.msg", std::ios::binary);
    f << "# replaced\n4, replaced text %s\r\n3, first\n3, second wins\nnot a line\n";
  }
  const char *old = std::getenv("KELTAR_HOME");
  std::string saved = old ? old : "";
  kel_test::set_env("KELTAR_HOME", dir.string().c_str());
  lmshdl *h = lmsaicmt(nullptr, "KELCORE", "LFI");
  ASSERT_NE(h, nullptr);
  char buf[64];
  EXPECT_EQ(lmsagbf(h, 4, buf, sizeof buf), 16);
  EXPECT_STREQ(buf, "replaced text %s");
  lmsagbf(h, 3, buf, sizeof buf);
  EXPECT_STREQ(buf, "second wins");
  EXPECT_EQ(lmsacin(h), 2);
  lmsatrm(h);
  // Catalogues without a file still come from the library.
  h = lmsaicmt(nullptr, "KELCORE", "LPM");
  EXPECT_GT(lmsagbf(h, 31, buf, sizeof buf), 0);
  lmsatrm(h);
  kel_test::set_env("KELTAR_HOME", old ? saved.c_str() : nullptr);
  std::filesystem::remove_all(dir);
}

}  // namespace
