// lpmpmai: the start record in the caller's storage.
#include <gtest/gtest.h>

#include <cstring>

#include "lem.h"
#include "lmm.h"
#include "lpm.h"

namespace {

TEST(MainStart, RecordInCallerStorage) {
  alignas(16) unsigned char store[LPM_MAIN_CTXSZ + 8];
  EXPECT_EQ(lpmpmai(nullptr, sizeof store, nullptr, 0, nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(lpmpmai(store, LPM_MAIN_CTXSZ - 1, nullptr, 0, nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(lpmpmai(store + 1, LPM_MAIN_CTXSZ, nullptr, 0, nullptr, nullptr, 0), nullptr);

  std::memset(store, 0xA5, sizeof store);
  lcorectx *ctx = lpmpmai(store, sizeof store, nullptr, 0, nullptr, nullptr, 0);
  ASSERT_NE(ctx, nullptr);
  EXPECT_EQ(ctx->version, LCORECTX_VERSION);
  EXPECT_EQ(ctx->initialised, 1);
  // The root instance's record is a copy of the one in the storage.
  auto *rec = reinterpret_cast<lcorectx *>(store);
  EXPECT_EQ(rec->lwemctx, ctx->lwemctx);
  EXPECT_EQ(store[LPM_MAIN_CTXSZ], 0xA5) << "nothing written past the record";
  // A second start of either kind returns the same record.
  EXPECT_EQ(lpminit(), ctx);
  alignas(16) unsigned char other[LPM_MAIN_CTXSZ];
  EXPECT_EQ(lpmpmai(other, sizeof other, nullptr, 0, nullptr, nullptr, 0), ctx);
  // The families work.
  void *p = lmmmalloc(ctx->lmmctx, lmmtophp(ctx->lmmctx), 64, 0, "t", __LINE__);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(lmmfree(ctx->lmmctx, lmmtophp(ctx->lmmctx), p, 0), 0);
  EXPECT_EQ(lemged(ctx->lemctx), 0);
  // The stop leaves the storage alone (freeing it would crash or be caught
  // by the sanitizers) and the library can start again normally.
  EXPECT_EQ(lpmterm(ctx), 0);
  lcorectx *again = lpminit();
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(lpmterm(again), 0);
}

}  // namespace
