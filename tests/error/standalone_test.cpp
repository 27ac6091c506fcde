// Free-standing error contexts (lemini, leminit, lemfre): their own stacks or
// the library's, formatting through their own catalogue handles and a clean
// stop. (Allocation failures of the start: tests/robust.)
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "lem.h"
#include "lpm.h"

namespace {

struct Lib {
  lcorectx *ctx = lpminit();
  ~Lib() { lpmterm(ctx); }
};

std::string text(void *lem, int32_t i) {
  char buf[256];
  int32_t n = lemgem(lem, i, buf, sizeof buf);
  return std::string(buf, static_cast<size_t>(n > 0 ? n : 0));
}

TEST(ErrorStandalone, OwnStackOrTheLibrarys) {
  Lib lib;
  ASSERT_NE(lib.ctx, nullptr);
  void *core = lib.ctx->lemctx;
  alignas(16) unsigned char own_store[lemctxsz], shared_store[lemctxsz];
  EXPECT_EQ(lemini(nullptr, own_store), nullptr);
  EXPECT_EQ(lemini(lib.ctx, nullptr), nullptr);
  void *own = lemini(lib.ctx, own_store);
  void *shared = leminit(lib.ctx, shared_store, lib.ctx->lwemctx);
  ASSERT_EQ(own, static_cast<void *>(own_store));
  ASSERT_EQ(shared, static_cast<void *>(shared_store));
  const int32_t base = lemged(core);

  // A record on the own stack is not on the library's, and the reverse.
  lemfac *f = lemfaa(own, nullptr, "KELCORE", "LPM", 3, 4);
  ASSERT_NE(f, nullptr);
  lemrec(own, f, 2, 1, LEM_ARG_TEXT, "standalone()", LEM_ARG_END);
  EXPECT_EQ(lemged(own), 1);
  EXPECT_EQ(lemged(core), base);
  EXPECT_EQ(lemgec(own, 1), 2);
  const std::string own_text = text(own, 1);
  EXPECT_NE(own_text.find("standalone()"), std::string::npos) << own_text;

  // leminit over the library's low-level context shares its stack.
  lemfac *g = lemfaa(shared, nullptr, "KELCORE", "LPM", 3, 4);
  ASSERT_NE(g, nullptr);
  lemrec(shared, g, 2, 1, LEM_ARG_TEXT, "shared()", LEM_ARG_END);
  EXPECT_EQ(lemged(core), base + 1);
  EXPECT_EQ(lemgec(core, 1), 2);
  EXPECT_EQ(text(shared, 1), text(core, 1));
  EXPECT_EQ(lemged(own), 1);

  // Stop: the shared one leaves the library's stack in place, the own one
  // takes its records with it. A stopped handle is refused.
  EXPECT_EQ(lemfaf(own, f), 0);
  EXPECT_EQ(lemfaf(shared, g), 0);
  EXPECT_EQ(lemfre(own), 0);
  EXPECT_EQ(lemfre(own), -1);
  EXPECT_EQ(lemged(own), 0);
  EXPECT_EQ(lemfre(shared), 0);
  EXPECT_EQ(lemged(core), base + 1);
  EXPECT_EQ(lemgec(core, 1), 2);
  lemces(core);
  EXPECT_EQ(lemfre(nullptr), -1);
}

}  // namespace
