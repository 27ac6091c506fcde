// A broken list of the package registry is reported (message 3 with the
// sub-code of the place) instead of being followed. The lists are broken by
// hand through the registry's internals and mended afterwards.
#include <gtest/gtest.h>

#include <functional>

#include "context/lpm_impl.h"
#include "lem.h"
#include "lpm.h"

using namespace lpm_internal;

namespace {

TEST(ListFault, EachWalkReportsItsSubCode) {
  lcorectx *ctx = lpminit();
  ASSERT_NE(ctx, nullptr);
  lpmreg *reg = reg_of(ctx);
  ASSERT_NE(reg, nullptr);
  int dummy = 0;
  ASSERT_EQ(lpmsavecompctx(ctx, "kept", &dummy, 0), 0);
  void *lem = ctx->lemctx;
  const struct {
    lpmlist *list;
    int32_t sub;
    std::function<bool()> op;  // true when the operation failed as it should
  } cases[] = {
      {&reg->insts, 30, [&] { return lpmloadpkg(ctx, "lsf") == nullptr; }},
      {&reg->blocks, 30, [&] { return lpmloadpkg(ctx, "lsf") == nullptr; }},
      {&reg->insts, 60, [&] { return lpmdelete(ctx, "lsf") == -1; }},
      {&reg->saved, 91, [&] { return lpmsavecompctx(ctx, "other", &dummy, 0) == -1; }},
      {&reg->saved, 92, [&] { return lpmsavecompctx(ctx, "kept", nullptr, 0) == -1; }},
      {&reg->saved, 150, [&] { return lpmgetcompctx(ctx, "kept") == nullptr; }},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.sub);
    lemces(lem);
    c.list->count += 1;  // one element more than the links hold
    EXPECT_TRUE(c.op());
    c.list->count -= 1;
    ASSERT_GE(lemged(lem), 1);
    EXPECT_EQ(lemgec(lem, 1), 3);
    EXPECT_EQ(lemgsc(lem, 1), c.sub);
    EXPECT_EQ(lwemnmk(lem), 1) << "one mark for the operation";
  }
  // Mended, everything works again.
  lemces(lem);
  EXPECT_EQ(lpmgetcompctx(ctx, "kept"), &dummy);
  EXPECT_NE(lpmloadpkg(ctx, "lsf"), nullptr);
  EXPECT_EQ(lpmdelete(ctx, "lsf"), 0);
  EXPECT_EQ(lpmsavecompctx(ctx, "kept", nullptr, 0), 0);
  EXPECT_EQ(lemged(lem), 0);
  EXPECT_EQ(lpmterm(ctx), 0);
}

// A package whose call takes its own element off the call stack, as memory
// corruption would, so that the pop after the call finds nothing.
lpmreg *g_reg = nullptr;
lpmlink *g_taken = nullptr;
int32_t pops_itself(lcorectx *ctx, void *, int32_t op, void *, void *) {
  if (op == 1) {
    const lpmfunc f[] = {reinterpret_cast<lpmfunc>(&pops_itself)};
    return lpmmkpri(ctx, 8) != nullptr && lpmarrfuncs(ctx, nullptr, 1, f) != nullptr ? 0 : -1;
  }
  if (op == 7) {
    g_taken = g_reg->calls.last;
    lpmllre(&g_reg->calls, g_taken);
  }
  return 0;
}

TEST(ListFault, ElementsMissingFromTheirListsAreReported) {
  lcorectx *ctx = lpminit();
  ASSERT_NE(ctx, nullptr);
  g_reg = reg_of(ctx);
  void *lem = ctx->lemctx;
  lpmpdesc row{"popper", 6, nullptr, 0, nullptr, 0, pops_itself, LPM_PKG_STATIC};
  ASSERT_EQ(lpmapd(ctx, &row, 1, nullptr, nullptr), 0);

  // Sub-code 170: the call's stack element is gone when the call returns.
  lemces(lem);
  EXPECT_EQ(lpmcall(ctx, "popper", 7, nullptr, nullptr), 0);
  ASSERT_NE(g_taken, nullptr);
  ASSERT_GE(lemged(lem), 1);
  EXPECT_EQ(lemgec(lem, 1), 3);
  EXPECT_EQ(lemgsc(lem, 1), 170);

  // Sub-code 160: a loaded package whose block is no longer on the block
  // list cannot be released through it.
  lemces(lem);
  ASSERT_NE(lpmloadpkg(ctx, "lsf"), nullptr);
  lpmlink *blk = g_reg->blocks.last;
  ASSERT_EQ(lpmllre(&g_reg->blocks, blk), 0);
  EXPECT_EQ(lpmdelete(ctx, "lsf"), -1);
  bool found = false;
  for (int32_t i = 1; i <= lemged(lem); i++) found |= lemgec(lem, i) == 3 && lemgsc(lem, i) == 160;
  EXPECT_TRUE(found);
  // Mended: the block goes back on its list, a new load takes it up and the
  // delete ends the package; the library stops cleanly.
  lpmllae(&g_reg->blocks, blk);
  lemces(lem);
  EXPECT_NE(lpmloadpkg(ctx, "lsf"), nullptr);
  EXPECT_EQ(lpmdelete(ctx, "lsf"), 0);
  EXPECT_EQ(g_reg->blocks.count, 0u);
  EXPECT_EQ(lemged(lem), 0);
  EXPECT_EQ(lpmterm(ctx), 0);
}

}  // namespace
