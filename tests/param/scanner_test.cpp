// The scanner and what the parser makes of its tokens: the edge cases of
// the language, each with the values it must store.
#include <csetjmp>
#include <cstring>

#include "param/lrm_impl.h"
#include "tests/param/param_fixture.h"

namespace {

struct Tok {
  int code;
  std::string text;
  bool operator==(const Tok &o) const { return code == o.code && text == o.text; }
};
std::ostream &operator<<(std::ostream &os, const Tok &t) { return os << "{" << t.code << ",'" << t.text << "'}"; }

class Scanner : public ParamTest {
 protected:
  // Tokens of `text` as source `kind`, or the status raised.
  std::vector<Tok> Lex(const std::string &text, uint8_t kind, uint32_t *status) {
    auto *c = lrm_internal::rec(h);
    c->src = lrm_internal::lrmsource{text.data(), text.size(), 0, 1, kind, 0, "test"};
    c->bol = 1;
    c->depth = c->comment_follows = c->dash_seen = 0;
    std::vector<Tok> *toks = new std::vector<Tok>;
    *status = 0;
    lemfctx *fc = lemgfc(lem);
    lemframe fr;
    lemptfs(fc, &fr);
    if (setjmp(*static_cast<jmp_buf *>(LEM_FRAME_JB(&fr))) == 0) {
      for (int guard = 0; guard < 1000; guard++) {
        lrmpztok *t = lrmplex(h, 1, nullptr);
        if (t == nullptr) break;
        toks->push_back({t->code, t->text});
        int code = t->code;
        lrmplex(h, 4, t);
        if (code == 0) break;
      }
      lemptfr(fc, &fr);
    } else {
      *status = c->status;
    }
    std::vector<Tok> r = *toks;
    delete toks;
    return r;
  }
};

const int E = 0, LP = 40, RP = 41, D = 45, EQ = 61, FL = 259, KY = 260, Q = 261, S = 262, ID = 263, CM = 264;

TEST_F(Scanner, Tokens) {
  static const lrmkey keys[] = {
      {"flag", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, nullptr},
      {"n", LRM_T_INT, 0, 0, 0, 0, 0, nullptr, nullptr},
      {"v", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr},
  };
  static const lrmkeyset set = {keys, 3, 0, nullptr, nullptr, nullptr, nullptr};
  ASSERT_EQ(lrmpsvp(h, &set), 0u);
  struct Case {
    const char *in;
    uint8_t kind;
    uint32_t options;
    std::vector<Tok> want;
  } cases[] = {
      {"", 2, 0, {{E, ""}}},
      {"a b c", 2, 0, {{S, "a"}, {S, "b"}, {S, "c"}, {E, ""}}},
      {"x = 1", 2, 0, {{ID, "x"}, {EQ, "="}, {S, "1"}, {E, ""}}},
      {"x\n= 1", 2, 0, {{ID, "x"}, {EQ, "="}, {S, "1"}, {E, ""}}},
      {"-n=5", 1, 0, {{D, "-"}, {KY, "n"}, {EQ, "="}, {S, "5"}, {E, ""}}},
      {"-n 5", 3, 0, {{D, "-"}, {KY, "n"}, {S, "5"}, {E, ""}}},
      {"-flag x", 1, 0, {{D, "-"}, {FL, "flag"}, {S, "x"}, {E, ""}}},
      {"-5", 1, 0, {{S, "-5"}, {E, ""}}},
      {"-n -5", 1, 0, {{D, "-"}, {KY, "n"}, {S, "-5"}, {E, ""}}},
      {"-x", 2, 0, {{S, "-x"}, {E, ""}}},  // no options in files
      {"\"a\"\"b\"", 2, 0, {{Q, "a\"b"}, {E, ""}}},
      {"'it''s'", 2, 0, {{Q, "it's"}, {E, ""}}},
      {"'say \"hi\"'", 2, 0, {{Q, "say \"hi\""}, {E, ""}}},
      {"\"ab\\\ncd\"", 2, 0, {{Q, "abcd"}, {E, ""}}},
      {"\"a\\b\"", 2, 0, {{Q, "a\\b"}, {E, ""}}},
      {"a \\\n b", 2, 0, {{S, "a"}, {S, "b"}, {E, ""}}},
      {"a \\  \t\n b", 2, 0, {{S, "a"}, {S, "b"}, {E, ""}}},
      {"ab\\\ncd", 2, 0, {{S, "abcd"}, {E, ""}}},
      {"(a (b c) d)", 2, 0,
       {{LP, "("}, {S, "a"}, {LP, "("}, {S, "b"}, {S, "c"}, {RP, ")"}, {S, "d"}, {RP, ")"}, {E, ""}}},
      {"f(x)", 2, 0, {{S, "f"}, {LP, "("}, {S, "x"}, {RP, ")"}, {E, ""}}},
      {"x) y", 2, 0, {{S, "x)"}, {S, "y"}, {E, ""}}},
      {"(f(x))", 2, 0, {{LP, "("}, {S, "f"}, {LP, "("}, {S, "x"}, {RP, ")"}, {RP, ")"}, {E, ""}}},
      {"a)b", 2, 0, {{S, "a)b"}, {E, ""}}},
      {"a\\=b\\#c\\(\\)\\,\\-\\\\", 2, 0, {{S, "a=b#c(),-\\"}, {E, ""}}},
      {"a\\qb", 2, 0, {{S, "a\\qb"}, {E, ""}}},
      {"a#b", 1, 0, {{S, "a#b"}, {E, ""}}},
      {"a #b", 1, 0, {{S, "a"}, {S, "#b"}, {E, ""}}},
      {"a # note\nb", 2, 0, {{S, "a"}, {S, "b"}, {E, ""}}},
      {"# whole line\na", 2, LRM_OPT_COMMENTS, {{S, "a"}, {E, ""}}},
      {"a # note\nb", 2, LRM_OPT_COMMENTS, {{S, "a"}, {CM, " note"}, {S, "b"}, {E, ""}}},
      {"'q' #n", 2, LRM_OPT_COMMENTS, {{Q, "q"}, {CM, "n"}, {E, ""}}},
      {"a\n# n", 2, LRM_OPT_COMMENTS, {{S, "a"}, {E, ""}}},
      {"a #x", 1, LRM_OPT_COMMENTS, {{S, "a"}, {CM, "x"}, {E, ""}}},
      {"-flag #c", 1, LRM_OPT_COMMENTS, {{D, "-"}, {FL, "flag"}, {E, ""}}},
      {"-n 5 #c", 1, LRM_OPT_COMMENTS, {{D, "-"}, {KY, "n"}, {S, "5"}, {CM, "c"}, {E, ""}}},
      {"a, b", 2, LRM_OPT_COMMA, {{S, "a"}, {S, "b"}, {E, ""}}},
      {"(a, b)", 2, 0, {{LP, "("}, {S, "a"}, {S, "b"}, {RP, ")"}, {E, ""}}},
      {"a=b", 2, 0, {{ID, "a"}, {EQ, "="}, {S, "b"}, {E, ""}}},
      {"k:x = 1", 2, 0, {{ID, "k:x"}, {EQ, "="}, {S, "1"}, {E, ""}}},
      {"a\r\nb", 2, 0, {{S, "a"}, {S, "b"}, {E, ""}}},
  };
  for (const Case &c : cases) {
    lrmsopt(h, c.options);
    uint32_t st = 0;
    EXPECT_EQ(Lex(c.in, c.kind, &st), c.want) << c.in;
    EXPECT_EQ(st, 0u) << c.in;
  }
}

TEST_F(Scanner, MultiByteBlanksAreTheSetsSpaceClass) {
  Open(LRM_F_UNICODE);
  lrmsopt(h, LRM_OPT_COMMENTS);
  struct Case {
    const char *in;
    std::vector<Tok> want;
  } cases[] = {
      {"a\xC2\xA0" "b", {{S, "a"}, {S, "b"}, {E, ""}}},
      {"\xC2\x85\xC3\xA4\xC2\xA0=\xC2\xA0'b'\xC2\xA0#c", {{ID, "\xC3\xA4"}, {EQ, "="}, {Q, "b"}, {CM, "c"}, {E, ""}}},
      {"a\\\xC2\xA0\nb", {{S, "ab"}, {E, ""}}},
      // Bytes that are no character stay in the word; so do other letters.
      {"\xC2x\xE2\x80\xA8y \xC2", {{S, "\xC2x\xE2\x80\xA8y"}, {S, "\xC2"}, {E, ""}}},
  };
  for (const Case &c : cases) {
    uint32_t st = 0;
    EXPECT_EQ(Lex(c.in, 2, &st), c.want) << c.in;
    EXPECT_EQ(st, 0u) << c.in;
  }
}

TEST_F(Scanner, FailuresRaiseTheirStatus) {
  static const lrmkey keys[] = {{"v", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr}};
  static const lrmkeyset set = {keys, 1, LRM_KS_NOHELP, nullptr, nullptr, nullptr, nullptr};
  ASSERT_EQ(lrmpsvp(h, &set), 0u);
  struct Case {
    const char *in;
    uint8_t kind;
    uint32_t status;
    const char *arg;  // first text argument of the newest record
  } cases[] = {
      {"\"abcdefghijklmnop", 2, 111, "\"abcdefghij"},
      {"'ab", 2, 111, "'ab"},
      {"a, b", 2, 110, nullptr},
      {"-zz", 1, 101, "zz"},
      {"-help", 1, 101, "help"},
  };
  for (const Case &c : cases) {
    lemces(lem);
    uint32_t st = 0;
    Lex(c.in, c.kind, &st);
    EXPECT_EQ(st, c.status) << c.in;
    if (c.status == 110) {
      EXPECT_EQ(lemgec(lem, 2), 117) << c.in;
      EXPECT_EQ(Arg(2, 1), ",");
    }
    if (c.arg != nullptr) EXPECT_EQ(Arg(1, 1), c.arg) << c.in;
  }
  EXPECT_EQ(lrmplex(h, 3, nullptr), nullptr);
  EXPECT_EQ(lrm_internal::rec(h)->status, 100u);
}

TEST_F(Scanner, PushBackIsLastInFirstOut) {
  uint32_t st = 0;
  Lex("", 2, &st);
  auto *a = static_cast<lrmpztok *>(calloc(1, sizeof(lrmpztok)));
  auto *b = static_cast<lrmpztok *>(calloc(1, sizeof(lrmpztok)));
  a->code = 1;
  b->code = 2;
  lrmplex(h, 2, a);
  lrmplex(h, 2, b);
  EXPECT_EQ(lrmplex(h, 1, nullptr), b);
  EXPECT_EQ(lrmplex(h, 1, nullptr), a);
  free(a);
  free(b);
}

}  // namespace
