// heap_fixture.h - a started library and heaps made under its top heap, for
// the memory tests.
#pragma once

#include <gtest/gtest.h>

#include "lmm.h"
#include "lpm.h"
#include "sl.h"

class Heaps : public ::testing::Test {
 protected:
  void SetUp() override {
    ctx = lpminit();
    ASSERT_NE(ctx, nullptr);
    mctx = ctx->lmmctx;
    lem = ctx->lemctx;
  }
  void TearDown() override {
    slfaultreset();
    EXPECT_EQ(lpmterm(ctx), 0);
  }
  lmmheap *make(const lmmmfp *model, uint32_t flags) {
    lmmheap *h = nullptr;
    EXPECT_EQ(lmmhpinit(mctx, &h, lmmtophp(mctx), flags, nullptr, "test", __LINE__, model), 0);
    return h;
  }
  lcorectx *ctx = nullptr;
  void *mctx = nullptr;
  void *lem = nullptr;
};
