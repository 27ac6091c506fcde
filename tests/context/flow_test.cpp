// The life of a program using the library: start, register a facility,
// record errors from two threads, walk each thread's stack, format the
// messages, throw into an error frame, stop.
#include <gtest/gtest.h>

#include <csetjmp>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "lem.h"
#include "lmm.h"
#include "lpm.h"

namespace {

struct Seen {
  int depth = 0;
  std::vector<std::string> texts;
};

void worker(void *lem, lemfac *fac, const char *who, Seen *out) {
  lemrec(lem, fac, 31, 1, LEM_ARG_TEXT, who, LEM_ARG_END);
  lemrec(lem, fac, 150, 1, LEM_ARG_TEXT, who, LEM_ARG_NUM, int64_t{16}, LEM_ARG_END);
  lemric(lem, fac, 42, 1, LEM_ARG_TEXT, "In flow: step failed", LEM_ARG_END);
  out->depth = lemged(lem);
  for (int i = 1; i <= out->depth; i++) {
    char buf[256];
    lemgem(lem, i, buf, sizeof buf);
    out->texts.push_back(buf);
  }
  lemces(lem);
}

TEST(Flow, StartRecordFormatThrowStop) {
  lcorectx *ctx = lpminit();
  ASSERT_NE(ctx, nullptr);
  void *lem = ctx->lemctx;
  // The facility reuses the package manager's catalogue for its texts.
  lemfac *fac = lemfaa(lem, nullptr, "KELCORE", "LPM", 3, 4);
  ASSERT_NE(fac, nullptr);

  Seen a, b;
  std::thread ta(worker, lem, fac, "alpha", &a);
  std::thread tb(worker, lem, fac, "beta", &b);
  ta.join();
  tb.join();
  for (Seen *s : {&a, &b}) {
    const char *who = s == &a ? "alpha" : "beta";
    ASSERT_EQ(s->depth, 3);
    EXPECT_EQ(s->texts[0], "internal error of the package manager: In flow: step failed");
    EXPECT_EQ(s->texts[1], std::string("context name ") + who + " is longer than 16 characters");
    EXPECT_EQ(s->texts[2], std::string("package ") + who + " is not in the package table or its entry cannot be found");
  }
  EXPECT_EQ(lemged(lem), 0) << "the main thread recorded nothing";

  // Memory from the caller's heap on the way.
  lmmheap *h = lmmtophp(ctx->lmmctx);
  void *p = lmmmalloc(ctx->lmmctx, h, 1000, 0, "flow", __LINE__);
  ASSERT_NE(p, nullptr);

  lemfctx *fc = lemgfc(lem);
  static lemframe fr;
  lemptfs(fc, &fr);
  int code = setjmp(*reinterpret_cast<jmp_buf *>(LEM_FRAME_JB(&fr)));
  if (code == 0) {
    lemtec(fc, fac, 60, 2, LEM_ARG_TEXT, "thrown", LEM_ARG_END);
    FAIL() << "the throw returned";
  }
  EXPECT_EQ(code, 60);
  char buf[128];
  lemgem(lem, 1, buf, sizeof buf);
  EXPECT_STREQ(buf, "package thrown is not loaded");

  EXPECT_EQ(lmmfree(ctx->lmmctx, h, p, 0), 0);
  lemces(lem);
  EXPECT_EQ(lemfaf(lem, fac), 0);
  EXPECT_EQ(lpmterm(ctx), 0);
}

}  // namespace
