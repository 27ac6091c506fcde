// The generated parser tables and the driver, checked against the grammar
// itself: an Earley recogniser written here from the rule list decides which
// token strings belong to the language, and the driver must agree on every
// string up to a length; every rule's own example must reduce by that rule.
#include <gtest/gtest.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "lem.h"
#include "lpm.h"
#include "lrm.h"
#include "param/pz_impl.h"

namespace {

// ------------------------------------------------------------------ oracle
// Symbols: terminals are token codes (< 1000), nonterminals 1000 + index.
enum Nt { kInput = 1000, kPos, kParams, kLop, kKeySpec, kUnix, kEnding, kLov, kValue, kVal2 };
const int kEnd = 0, LP = 40, RP = 41, DASH = 45, EQ = 61, FLAG = 259, KEY = 260, QS = 261, STR = 262, ID = 263,
          COM = 264;

struct Rule {
  int lhs;
  std::vector<int> rhs;
};
// The grammar, in rule order (rule 0 is the start rule).
const std::vector<Rule> kRules = {
    {999, {kInput, kEnd}},
    {kInput, {kPos, kParams}},
    {kPos, {kLov}},
    {kPos, {}},
    {kParams, {kLop}},
    {kParams, {}},
    {kLop, {kKeySpec, kLop}},
    {kLop, {kUnix, kLov}},
    {kLop, {kKeySpec}},
    {kKeySpec, {ID, EQ, kLov}},
    {kKeySpec, {kUnix}},
    {kUnix, {DASH, FLAG}},
    {kUnix, {DASH, KEY, kEnding}},
    {kEnding, {kValue}},
    {kEnding, {EQ, kValue}},
    {kLov, {kValue, kLov}},
    {kLov, {kValue}},
    {kValue, {kVal2, COM}},
    {kValue, {kVal2}},
    {kVal2, {STR}},
    {kVal2, {QS}},
    {kVal2, {LP, kLov, RP}},
};

bool earley(const std::vector<int> &in) {
  using Item = std::tuple<int, int, int>;  // rule, dot, origin
  size_t n = in.size();
  std::vector<std::set<Item>> S(n + 1);
  auto nullable = [](int sym) { return sym == kPos || sym == kParams; };
  S[0].insert({1, 0, 0});
  for (size_t i = 0; i <= n; i++) {
    bool changed = true;
    while (changed) {
      changed = false;
      std::vector<Item> items(S[i].begin(), S[i].end());
      for (auto [r, d, o] : items) {
        const Rule &R = kRules[r];
        if (d < static_cast<int>(R.rhs.size())) {
          int sym = R.rhs[d];
          if (sym >= 1000) {
            for (size_t k = 1; k < kRules.size(); k++)
              if (kRules[k].lhs == sym && S[i].insert({static_cast<int>(k), 0, static_cast<int>(i)}).second)
                changed = true;
            if (nullable(sym) && S[i].insert({r, d + 1, o}).second) changed = true;
          } else if (i < n && in[i] == sym) {
            S[i + 1].insert({r, d + 1, o});
          }
        } else {
          for (auto [r2, d2, o2] : std::vector<Item>(S[o].begin(), S[o].end())) {
            const Rule &R2 = kRules[r2];
            if (d2 < static_cast<int>(R2.rhs.size()) && R2.rhs[d2] == R.lhs &&
                S[i].insert({r2, d2 + 1, o2}).second)
              changed = true;
          }
        }
      }
    }
  }
  for (auto [r, d, o] : S[n])
    if (r == 1 && o == 0 && d == 2) return true;
  return false;
}

// ----------------------------------------------------------- driver harness

struct Feed {
  std::vector<int> codes;
  size_t pos = 0;
  int live = 0;  // token records not yet released
  std::vector<int> rules;
  int errors = 0;
  int accepted = 0;
  std::string trace;
};

lrmpztok *source(void *src, int32_t op, lrmpztok *tok) {
  auto *f = static_cast<Feed *>(src);
  if (op == 4) {
    delete[] tok->text;
    delete tok;
    f->live--;
    return nullptr;
  }
  auto *t = new lrmpztok{};
  if (op == 8) {
    *t = *tok;
    t->text = new char[strlen(tok->text) + 1];
    strcpy(t->text, tok->text);
  } else {
    t->code = static_cast<uint16_t>(f->pos < f->codes.size() ? f->codes[f->pos++] : 0);
    std::string s = std::to_string(t->code);
    t->text = new char[s.size() + 1];
    strcpy(t->text, s.c_str());
  }
  f->live++;
  return t;
}

int32_t on_reduce(void *user, int32_t rule, void *const *, int32_t, void **) {
  static_cast<Feed *>(user)->rules.push_back(rule);
  return 0;
}
void on_error(void *user, int32_t status, const lrmpztok *) {
  EXPECT_EQ(status, 109);
  static_cast<Feed *>(user)->errors++;
}
void on_accept(void *user, void *) { static_cast<Feed *>(user)->accepted++; }
void on_trace(void *user, const char *text) { static_cast<Feed *>(user)->trace += text; }

class Grammar : public ::testing::Test {
 protected:
  void SetUp() override {
    ctx = lpminit();
    ASSERT_NE(ctx, nullptr);
  }
  void TearDown() override {
    lemces(ctx->lemctx);
    EXPECT_EQ(lpmterm(ctx), 0);
  }
  int Run(Feed &f, uint16_t flags16 = 0, uint8_t level = 0) {
    lrmpzcb cb{};
    cb.token = source;
    cb.action = on_reduce;
    cb.error = on_error;
    cb.accept = on_accept;
    cb.trace = on_trace;
    cb.user = &f;
    cb.ctx = ctx;
    return lrmpzpparse(&f, &cb, flags16, level);
  }
  lcorectx *ctx = nullptr;
};

TEST_F(Grammar, AgreesWithEarleyOnEveryShortInput) {
  const std::vector<int> alphabet = {LP, RP, DASH, EQ, FLAG, KEY, QS, STR, ID, COM};
  int accepted = 0, total = 0;
  for (size_t len = 0; len <= 5; len++) {
    std::vector<size_t> idx(len, 0);
    for (;;) {
      std::vector<int> in;
      for (size_t k : idx) in.push_back(alphabet[k]);
      bool want = earley(in);
      Feed f;
      f.codes = in;
      int rc = Run(f, 0, static_cast<uint8_t>(total % 4));
      ASSERT_EQ(rc == 0, want) << "input of " << len << " tokens, first " << (in.empty() ? -1 : in[0]);
      ASSERT_EQ(f.live, 0) << "a token record was not released";
      ASSERT_EQ(f.errors, want ? 0 : 1);
      ASSERT_EQ(f.accepted, want ? 1 : 0);
      accepted += want;
      total++;
      size_t k = 0;
      while (k < len && ++idx[k] == alphabet.size()) idx[k++] = 0;
      if (k == len) break;
    }
  }
  EXPECT_GT(accepted, 100);
  EXPECT_EQ(total, 111111);
}

TEST_F(Grammar, EachRuleReducesOnItsExample) {
  struct Case {
    int rule;
    std::vector<int> in;
  } cases[] = {
      {0, {}}, {1, {STR}}, {2, {STR, QS}}, {3, {ID, EQ, STR}}, {4, {ID, EQ, STR}}, {5, {STR}},
      {6, {ID, EQ, STR, ID, EQ, QS}}, {7, {DASH, FLAG, STR, STR}}, {8, {ID, EQ, STR}}, {9, {ID, EQ, STR, STR}},
      {10, {DASH, FLAG}}, {11, {DASH, FLAG}}, {12, {DASH, KEY, STR}}, {13, {DASH, KEY, QS}},
      {14, {DASH, KEY, EQ, STR}}, {15, {STR, STR}}, {16, {STR}}, {17, {STR, COM}}, {18, {QS}}, {19, {STR}},
      {20, {QS}}, {21, {LP, STR, LP, QS, RP, RP}},
  };
  for (const Case &c : cases) {
    Feed f;
    f.codes = c.in;
    ASSERT_EQ(Run(f), 0) << "rule " << c.rule;
    // Rule 0 is the accept: no callback, but the parse completes.
    if (c.rule == 0)
      EXPECT_EQ(f.accepted, 1);
    else
      EXPECT_NE(std::find(f.rules.begin(), f.rules.end(), c.rule), f.rules.end()) << "rule " << c.rule;
  }
}

// The driver reads its actions from dense tables written next to the packed
// ones: they must give what the packed tables give, probe by probe.
TEST_F(Grammar, DenseTablesReadAsThePackedOnes) {
  const pz_internal::pztables *t = &pz_internal::kParamTables;
  ASSERT_NE(t->dense, nullptr);
  for (int32_t state = 0; state < t->nstates; state++) {
    for (int32_t code = 0; code <= 300; code++) {
      pz_internal::Action a = pz_internal::packed_action(t, state, code), b = pz_internal::action_of(t, state, code);
      ASSERT_TRUE(a.kind == b.kind && a.value == b.value) << "state " << state << " code " << code;
    }
    for (int32_t nt = 0; nt < t->nnonterms; nt++)
      ASSERT_EQ(pz_internal::packed_goto(t, nt, state), pz_internal::goto_of(t, nt, state)) << nt << " " << state;
  }
}

TEST_F(Grammar, ReductionOrderOfASmallInput) {
  // x=1 -v a : a hand derivation, rightmost in reverse.
  Feed f;
  f.codes = {ID, EQ, STR, DASH, KEY, STR, STR};
  ASSERT_EQ(Run(f), 0);
  std::vector<int> want = {3, 19, 18, 16, 9, 19, 18, 13, 12, 19, 18, 16, 7, 6, 4, 1};
  EXPECT_EQ(f.rules, want);
}

TEST_F(Grammar, TraceShowsStackActionsAndRules) {
  Feed f;
  f.codes = {STR};
  ASSERT_EQ(Run(f, 1, 0), 0);
  EXPECT_NE(f.trace.find("\n       (PAR STK) [0]"), std::string::npos) << f.trace;
  EXPECT_NE(f.trace.find("SHFT]"), std::string::npos);
  EXPECT_NE(f.trace.find("REDU] val2: STRING"), std::string::npos);
  EXPECT_NE(f.trace.find("ACC ]"), std::string::npos);
  Feed g;
  g.codes = {RP};
  ASSERT_EQ(Run(g, 1, 3), -1);
  EXPECT_NE(g.trace.find("ERR ]"), std::string::npos);
  EXPECT_EQ(g.live, 0);
}


}  // namespace

namespace {

// A token source that raises an error after two tokens, as the scanner does.
struct Raiser {
  lcorectx *ctx;
  lemfac *fac;
  int32_t code;
  int given = 0;
  int live = 0;
};

lrmpztok *raising_source(void *src, int32_t op, lrmpztok *tok) {
  auto *r = static_cast<Raiser *>(src);
  if (op == 4) {
    delete[] tok->text;
    delete tok;
    r->live--;
    return nullptr;
  }
  if (r->given == 2) lemsec(r->ctx->lemctx, r->fac, r->code, 2, LEM_ARG_END);
  auto *t = new lrmpztok{};
  t->code = 262;
  t->text = new char[2]{'x', 0};
  r->given++;
  r->live++;
  return t;
}

TEST_F(Grammar, ErrorsRaisedIntoTheParse) {
  struct Case {
    const char *product, *facility;
    bool passed_on;
  } cases[] = {{"lrmpzp", "par", false}, {"KELCORE", "LRM", true}};
  for (const Case &c : cases) {
    Raiser r{ctx, lemfaa(ctx->lemctx, nullptr, c.product, c.facility, 10000, 10000), 109};
    ASSERT_NE(r.fac, nullptr);
    lrmpzcb cb{};
    cb.token = raising_source;
    cb.ctx = ctx;
    cb.user = &r;
    lemfctx *fc = lemgfc(ctx->lemctx);
    lemframe fr;
    lemptfs(fc, &fr);
    volatile bool caught = false;
    volatile int rc = 0;
    if (setjmp(*static_cast<jmp_buf *>(LEM_FRAME_JB(&fr))) == 0) {
      rc = lrmpzpparse(&r, &cb, 0, 0);
      lemptfr(fc, &fr);
    } else {
      caught = true;
    }
    EXPECT_EQ(caught, c.passed_on) << c.facility;
    if (!c.passed_on) EXPECT_EQ(rc, -1);
    EXPECT_EQ(r.live, 0) << "tokens held by the parse were not released";
    EXPECT_EQ(fc->depth, 0);
    lemces(ctx->lemctx);
    lemfaf(ctx->lemctx, r.fac);
  }
}

}  // namespace
