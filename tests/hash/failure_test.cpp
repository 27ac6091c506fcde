// Hash tables: what a failure leaves on the error stack, and failure
// injection in every allocation of creation, growth and shrink.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "lx.h"
#include "sl.h"
#include "tests/hash/lht_test_util.h"
#include "tests/support/fault_walk.h"

using namespace lht_test;
using lht_internal::table_count;
using lht_internal::table_size;

namespace {

void *val(uint32_t n) { return reinterpret_cast<void *>(static_cast<uintptr_t>(n) + 1); }

struct Stack {
  void *ec = lib()->lemctx;
  Stack() { lemces(ec); }
  ~Stack() { lemces(ec); }
  int32_t depth() { return lemged(ec); }
  std::string facility(int32_t i) {
    char b[32] = {0};
    lemgef(ec, i, b, sizeof b);
    return b;
  }
  std::string product(int32_t i) {
    char b[32] = {0};
    lemgpd(ec, i, b, sizeof b);
    return b;
  }
  std::string text(int32_t i) {
    char b[512] = {0};
    lemgem(ec, i, b, sizeof b);
    return b;
  }
};

// Each failing call leaves exactly one record, marked, in facility "LHT",
// numbered with the status code and carrying the argument that says what
// failed. Answers that are not failures leave nothing.
TEST(LhtErrors, OneRecordPerFailure) {
  Stack stack;
  lcorectx *ctx = lib();
  LhtTable *ti = LhtIntCreate(ctx, nullptr, 0, nullptr);
  LhtTable *ts = LhtStrCreate(ctx, nullptr, 0, nullptr);
  ASSERT_NE(ti, nullptr);
  ASSERT_NE(ts, nullptr);
  ASSERT_EQ(LhtIntInsert(ti, 42, val(1)), 1);
  ASSERT_EQ(LhtStrInsert(ts, "abc", val(1)), 1);
  uint32_t k, pos = 0;
  void *v;

  struct Case {
    const char *what;
    std::function<int32_t()> call;
    int32_t code;     // 0: no record expected
    int32_t argtype;  // LEM_ARG_NUM / LEM_ARG_TEXT / 0
    int64_t num;
    const char *text;
  };
  const std::vector<Case> cases = {
      {"duplicate integer", [&] { return LhtIntInsert(ti, 42, val(2)); }, 12, LEM_ARG_NUM, 42, nullptr},
      {"duplicate string", [&] { return LhtStrInsert(ts, "abc", val(2)); }, 12, LEM_ARG_TEXT, 0, "abc"},
      {"remove missing", [&] { return LhtIntRemove(ti, 5, &v); }, 27, LEM_ARG_NUM, 5, nullptr},
      {"remove missing string", [&] { return LhtStrRemove(ts, "zz", &v); }, 27, LEM_ARG_TEXT, 0, "zz"},
      {"yield without key output", [&] { return LhtIntYield(ti, nullptr, &v, &pos); }, 6, LEM_ARG_NUM, 2, nullptr},
      {"yield without position", [&] { return LhtIntYield(ti, &k, &v, nullptr); }, 6, LEM_ARG_NUM, 4, nullptr},
      {"end without begin", [&] { return LhtIntEndIter(ti); }, 6, LEM_ARG_NUM, 1, nullptr},
      {"resize index", [&] { return LhtInqResize(ti, 26); }, 6, LEM_ARG_NUM, 2, nullptr},
      {"null string key", [&] { return LhtStrInsert(ts, nullptr, v); }, 6, LEM_ARG_NUM, 2, nullptr},
      {"insert while iterating", [&] {
         LhtIntBeginIter(ti);
         int32_t rc = LhtIntInsert(ti, 1, nullptr);
         LhtIntEndIter(ti);
         return rc;
       }, 18, 0, 0, nullptr},
      // The facility opened just for this report is closed again; the
      // record still names it and its text still comes from the catalogue.
      {"past the largest size", [&] { return LhtIntCreate(ctx, nullptr, LHT_MAX_ENTRIES + 1, nullptr) ? 0 : -6; }, 6,
       LEM_ARG_NUM, 3, nullptr},
      {"search miss", [&] { return LhtIntSearch(ti, 7, &v); }, 0, 0, 0, nullptr},
      {"yield past the end", [&] { pos = 600; return LhtIntYield(ti, &k, &v, &pos); }, 0, 0, 0, nullptr},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    int32_t before = stack.depth();
    int32_t rc = c.call();
    EXPECT_LT(rc, 0);
    if (c.code == 0) {
      EXPECT_EQ(stack.depth(), before);
      continue;
    }
    EXPECT_EQ(rc, -c.code);
    ASSERT_EQ(stack.depth(), before + 1);
    EXPECT_EQ(lemgec(stack.ec, 1), c.code);
    EXPECT_EQ(stack.facility(1), "LHT");
    EXPECT_EQ(stack.product(1), "KELCORE");
    EXPECT_EQ(lwemimk(stack.ec, 1), 1);
    int64_t num = -1;
    const char *text = nullptr;
    EXPECT_EQ(lemgnp(stack.ec, 1, 1, &num, &text), c.argtype);
    if (c.argtype == LEM_ARG_NUM) EXPECT_EQ(num, c.num);
    if (c.argtype == LEM_ARG_TEXT) EXPECT_STREQ(text, c.text);
  }
  // The oldest record is the duplicate key 42; its text comes from the catalogue.
  EXPECT_EQ(stack.text(11), "key 42 is already in the hash table");
  EXPECT_NE(stack.text(1).find("3"), std::string::npos);

  // Without an error context nothing is recorded, but results are the same.
  LhtTable *quiet = LhtIntCreate(nullptr, nullptr, 0, nullptr);
  int32_t before = stack.depth();
  ASSERT_EQ(LhtIntInsert(quiet, 1, nullptr), 1);
  EXPECT_EQ(LhtIntInsert(quiet, 1, nullptr), -LHT_ERR_DUP);
  EXPECT_EQ(stack.depth(), before);
  LhtIntDestroy(quiet);
  LhtIntDestroy(ti);
  LhtStrDestroy(ts);
}

// ------------------------------------------------------- failure injection

// Checks that the table holds exactly keys 1..n with their values and is
// still usable (insert and remove one more key).
void expect_intact(LhtTable *t, uint32_t n, uint32_t size) {
  EXPECT_EQ(table_count(t), n);
  EXPECT_EQ(table_size(t), size);
  for (uint32_t k = 1; k <= n + 1; ++k) {
    void *v = nullptr;
    int32_t rc = LhtIntSearch(t, k, &v);
    ASSERT_EQ(rc, k <= n ? 1 : -LHT_ERR_NOKEY) << k;
    if (k <= n) ASSERT_EQ(v, val(k));
  }
}

TEST(LhtFaults, GrowthFailsOnSystemMemory) {
  Stack stack;
  LhtTable *t = LhtIntCreate(lib(), nullptr, 1, nullptr);
  for (uint32_t k = 1; k <= 10; ++k) ASSERT_EQ(LhtIntInsert(t, k, val(k)), 1);
  // The 11th insert must grow; refuse its first allocation, then its second.
  for (int64_t nth : {1, 2}) {
    ASSERT_EQ(slfaultarm(SL_FAULT_MEM, nth, 1), 0);
    int32_t rc = LhtIntInsert(t, 11, val(11));
    EXPECT_EQ(slfaulthits(SL_FAULT_MEM), 1);
    slfaultreset();
    EXPECT_EQ(rc, -LHT_ERR_NOMEM);
    EXPECT_EQ(lemgec(stack.ec, 1), 9);
    int64_t bytes = 0;
    EXPECT_EQ(lemgnp(stack.ec, 1, 1, &bytes, nullptr), LEM_ARG_NUM);
    EXPECT_EQ(bytes, nth == 1 ? 8 : 17 * 24) << "the chunk array, then the chunk of 17 slots";
    expect_intact(t, 10, 11);
  }
  ASSERT_EQ(LhtIntInsert(t, 11, val(11)), 1);
  expect_intact(t, 11, 17);
  LhtIntDestroy(t);
}

// A failing caller callback at every allocation of a growth into many
// chunks: each failure leaves the table as it was and frees what the
// growth had taken.
TEST(LhtFaults, EveryAllocationOfAChunkedGrowth) {
  CountingAlloc a;
  LhtMem mem = a.mem();
  auto *t = static_cast<LhtTable *>(
      lht_internal::create(lht_internal::Kind::Int, nullptr, nullptr, 1, &mem, nullptr, nullptr, nullptr, 5));
  ASSERT_NE(t, nullptr);
  uint32_t n = 0;
  while (table_size(t) < 131 || table_count(t) < 130) {
    ++n;
    ASSERT_EQ(LhtIntInsert(t, n, val(n)), 1);
  }
  ASSERT_EQ(table_size(t), 131u);
  size_t blocks = a.live_blocks();
  int failures = 0;
  for (int64_t k = 1;; ++k) {
    a.fail(k, 1);
    int32_t rc = LhtIntInsert(t, n + 1, val(n + 1));
    bool hit = a.requests >= k;
    a.heal();
    if (!hit) {
      ASSERT_EQ(rc, 1);
      break;
    }
    ASSERT_EQ(rc, -LHT_ERR_NOMEM) << "allocation " << k;
    ASSERT_EQ(a.live_blocks(), blocks) << "allocation " << k;
    expect_intact(t, n, 131);
    ++failures;
  }
  EXPECT_EQ(failures, 1 + (257 + 4) / 5) << "the chunk array and every chunk of 5 slots";
  ++n;
  expect_intact(t, n, 257);
  // A shrink that cannot allocate is skipped: the remove stands.
  a.fail(1, -1);
  void *v;
  for (; table_count(t) >= 257 / 4; --n) ASSERT_EQ(LhtIntRemove(t, n, &v), 1);
  EXPECT_EQ(table_size(t), 257u);
  a.heal();
  ASSERT_EQ(LhtIntRemove(t, n, &v), 1);
  --n;
  EXPECT_EQ(table_size(t), 131u) << "the next remove shrinks";
  expect_intact(t, n, 131);
  LhtIntDestroy(t);
  EXPECT_EQ(a.live_blocks(), 0u);
  EXPECT_EQ(a.bad_frees, 0);
}

// Creation with each of its system requests refused in turn: null and a
// record (9 or 30), or a working table.
TEST(LhtFaults, CreationUnderFailures) {
  Stack stack;
  for (int32_t point : {SL_FAULT_MEM, SL_FAULT_CS_INIT}) {
    int64_t refused = kel_test::walk_failures(point, kel_test::Fail::Once, [&](int64_t) {
      lemces(stack.ec);
      LhtTable *t = LhtIntCreate(lib(), nullptr, 100, nullptr);
      if (t == nullptr) {
        EXPECT_EQ(slfaulthits(point), 1);
        int32_t code = lemgec(stack.ec, 1);  // 9 no memory, 30 no mutex
        if (stack.depth() > 0) EXPECT_TRUE(code == 30 || (code == 9 && point == SL_FAULT_MEM)) << code;
        return;
      }
      EXPECT_EQ(LhtIntInsert(t, 1, val(1)), 1);
      EXPECT_EQ(LhtIntSearch(t, 1, nullptr), 1);
      EXPECT_EQ(LhtIntDestroy(t), 1);
    });
    EXPECT_GT(refused, 0) << point;
  }
}

}  // namespace

namespace {

// Every status the tables record has a text in the facility's catalogue.
TEST(LhtErrors, EveryStatusHasACatalogueText) {
  lmshdl *h = lmsaicmt(nullptr, "KELCORE", "LHT");
  ASSERT_NE(h, nullptr);
  for (int32_t code : {LHT_ERR_ARG, LHT_ERR_NOMEM, LHT_ERR_DUP, LHT_ERR_END, LHT_ERR_ITER, LHT_ERR_FULL,
                       LHT_ERR_NOKEY, LHT_ERR_MUTEX, 3, 4}) {
    char buf[256];
    EXPECT_GT(lmsagbf(h, code, buf, sizeof buf), 0) << code;
  }
  EXPECT_EQ(lmsatrm(h), 0);
}

}  // namespace
