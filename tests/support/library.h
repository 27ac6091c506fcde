// library.h - a test fixture with a started library: its context and error
// manager, and at the end the fault points disarmed, the error stack
// cleared and the library ended.
#pragma once

#include <gtest/gtest.h>

#include "lem.h"
#include "lpm.h"
#include "sl.h"

namespace kel_test {

class StartedLibrary : public ::testing::Test {
 protected:
  // Fixtures that set up more call this first and stop when it failed
  // (HasFatalFailure()); their TearDown ends with StartedLibrary::TearDown.
  void SetUp() override {
    ctx = lpminit();
    ASSERT_NE(ctx, nullptr);
    lem = ctx->lemctx;
  }
  void TearDown() override {
    slfaultreset();
    if (ctx == nullptr) return;
    lemces(lem);
    EXPECT_EQ(lpmterm(ctx), 0);
  }
  lcorectx *ctx = nullptr;
  void *lem = nullptr;
};

}  // namespace kel_test
