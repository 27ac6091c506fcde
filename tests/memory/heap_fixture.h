// heap_fixture.h - a started library and heaps made under its top heap, for
// the memory tests.
#pragma once

#include <gtest/gtest.h>

#include "lmm.h"
#include "lpm.h"
#include "sl.h"
#include "tests/support/library.h"

class Heaps : public kel_test::StartedLibrary {
 protected:
  void SetUp() override {
    StartedLibrary::SetUp();
    if (HasFatalFailure()) return;
    mctx = ctx->lmmctx;
  }
  lmmheap *make(const lmmmfp *model, uint32_t flags) {
    lmmheap *h = nullptr;
    EXPECT_EQ(lmmhpinit(mctx, &h, lmmtophp(mctx), flags, nullptr, "test", __LINE__, model), 0);
    return h;
  }
  void *mctx = nullptr;
};
