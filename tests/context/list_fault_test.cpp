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

}  // namespace
