// Heaps of both models against a shadow model: every live block's contents
// are checked before it is freed or resized, and no two live blocks overlap.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <thread>
#include <vector>

#include "lem.h"
#include "lmm.h"
#include "lpm.h"
#include "memory/heap_fixture.h"
#include "memory/lmm_impl.h"
#include "sl.h"

namespace {

struct Shadow {
  size_t size;
  uint8_t seed;
};

void fill(void *p, size_t n, uint8_t seed) {
  auto *b = static_cast<uint8_t *>(p);
  for (size_t i = 0; i < n; i++) b[i] = static_cast<uint8_t>(seed + i * 31);
}

bool check(const void *p, size_t n, uint8_t seed) {
  auto *b = static_cast<const uint8_t *>(p);
  for (size_t i = 0; i < n; i++)
    if (b[i] != static_cast<uint8_t>(seed + i * 31)) return false;
  return true;
}

size_t pick_size(std::mt19937_64 &rng) {
  switch (rng() % 8) {
    case 0: case 1: case 2: return 1 + rng() % 247;
    case 3: return 240 + rng() % 16;  // around the small/large edge
    case 4: case 5: return 248 + rng() % 4000;
    case 6: return 4096 + rng() % 40000;
    default: return 60000 + rng() % 200000;
  }
}

// Random allocate / reallocate / free; contents and disjointness checked
// against the shadow map (ordered by address).
void run_random(void *mctx, lmmheap *h, bool frees, uint64_t seed, int steps) {
  std::mt19937_64 rng(seed);
  std::map<uintptr_t, Shadow> live;
  auto disjoint = [&](uintptr_t p, size_t n) {
    auto it = live.lower_bound(p);
    if (it != live.end() && it->first < p + n) return false;
    if (it != live.begin()) {
      --it;
      if (it->first + it->second.size > p) return false;
    }
    return true;
  };
  for (int step = 0; step < steps; step++) {
    int op = static_cast<int>(rng() % 10);
    if (op < 5 || live.empty()) {
      size_t n = pick_size(rng);
      void *p = (rng() % 4 == 0) ? lmmcalloc(mctx, h, n, 0, "t", 1) : lmmmalloc(mctx, h, n, 0, "t", 1);
      ASSERT_NE(p, nullptr) << "size " << n;
      ASSERT_TRUE(disjoint(reinterpret_cast<uintptr_t>(p), n)) << "overlap at step " << step;
      auto seedb = static_cast<uint8_t>(rng());
      fill(p, n, seedb);
      live[reinterpret_cast<uintptr_t>(p)] = {n, seedb};
    } else {
      auto it = live.begin();
      std::advance(it, static_cast<long>(rng() % live.size()));
      void *p = reinterpret_cast<void *>(it->first);
      Shadow s = it->second;
      ASSERT_TRUE(check(p, s.size, s.seed)) << "contents changed at step " << step;
      live.erase(it);
      if (op < 8) {
        size_t n = pick_size(rng);
        void *q = lmmrealloc(mctx, h, p, n, 0, "t", 2);
        ASSERT_NE(q, nullptr);
        ASSERT_TRUE(check(q, std::min(n, s.size), s.seed)) << "realloc lost contents";
        ASSERT_TRUE(disjoint(reinterpret_cast<uintptr_t>(q), n));
        auto seedb = static_cast<uint8_t>(rng());
        fill(q, n, seedb);
        live[reinterpret_cast<uintptr_t>(q)] = {n, seedb};
      } else if (frees) {
        ASSERT_EQ(lmmfree(mctx, h, p, 0), 0);
      }
    }
  }
  for (auto &[p, s] : live) {
    ASSERT_TRUE(check(reinterpret_cast<void *>(p), s.size, s.seed));
    ASSERT_EQ(lmmfree(mctx, h, reinterpret_cast<void *>(p), 0), 0);
  }
}

TEST_F(Heaps, RandomSequencesAgainstShadow) {
  struct Case {
    const char *name;
    const lmmmfp *model;
    uint32_t flags;
  } cases[] = {
      {"standard locking", lmmgetstmfp(), 0},
      {"standard single-thread", lmmgetstmfp(), LMM_HP_NOLOCK},
      {"fast locking", lmmgetfsmfp(), 0},
      {"fast single-thread", lmmgetfsmfp(), LMM_HP_NOLOCK},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    for (uint64_t seed = 1; seed <= 3; seed++) {
      lmmheap *h = make(c.model, c.flags);
      ASSERT_NE(h, nullptr);
      run_random(mctx, h, true, seed, 3000);
      EXPECT_EQ(lmmhpfree(mctx, h, 0), 0);
    }
  }
  EXPECT_EQ(lemged(lem), 0) << "a successful sequence left records";
}

TEST_F(Heaps, SizeBoundaries) {
  lmmheap *h = make(nullptr, LMM_HP_NOLOCK);
  ASSERT_NE(h, nullptr);
  struct Case {
    size_t request;
    size_t usable;
  } cases[] = {
      {1, 23}, {23, 23}, {24, 55}, {55, 55}, {56, 119}, {119, 119}, {120, 247}, {247, 247},
      {248, 256}, {256, 256}, {257, 320}, {1000, 1024},
  };
  for (const Case &c : cases) {
    void *p = lmmmalloc(mctx, h, c.request, 0, "t", 1);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(lmm_internal::st_usable(p), c.usable) << "request " << c.request;
    if (c.request <= 247) {
      EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u) << "small blocks are 16-aligned";
    } else {
      EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 8, 0u);
    }
    EXPECT_EQ(lmmfree(mctx, h, p, 0), 0);
  }
  EXPECT_EQ(lmmhpfree(mctx, h, 0), 0);
}

// A freed block (kept from the top by a guard block) is the first fit. It is
// handed out whole when cutting would leave less than 296 bytes behind; a
// small-block chunk taken from it is cut to 8192 bytes when it has 16385 or
// more.
TEST_F(Heaps, CutAndChunkRules) {
  const struct {
    size_t freed, request, usable;  // usable: of the block, or of the chunk for a small request
  } cases[] = {
      {1024, 768, 1024},  // 1024 < 768 + 296: whole
      {1024, 704, 704},   // 1024 >= 704 + 296: cut
      {1024, 729, 1024},  // rounds to 768
      {16384, 16, 16384}, {16448, 16, 8192}, {2048, 16, 2048},
  };
  for (const auto &c : cases) {
    lmmheap *h = make(nullptr, LMM_HP_NOLOCK);
    void *a = lmmmalloc(mctx, h, c.freed, 0, "t", 1);
    void *guard = lmmmalloc(mctx, h, 256, 0, "t", 2);
    ASSERT_TRUE(a && guard);
    ASSERT_EQ(lmmfree(mctx, h, a, 0), 0);
    void *b = lmmmalloc(mctx, h, c.request, 0, "t", 3);
    ASSERT_NE(b, nullptr);
    if (c.request > 247) EXPECT_EQ(b, a) << "the freed block is the first fit";
    EXPECT_EQ(c.request > 247 ? lmm_internal::st_usable(b) : lmm_internal::st_chunk_usable(b), c.usable)
        << "freed " << c.freed << " request " << c.request;
    EXPECT_EQ(lmmhpfree(mctx, h, 0), 0);
  }
}

TEST_F(Heaps, LargestRequest) {
  lmmheap *h = make(lmmgetfsmfp(), LMM_HP_NOLOCK);
  lemces(lem);
  EXPECT_EQ(lmmmalloc(mctx, h, size_t{2147473648}, 0, "t", 1), nullptr);
  EXPECT_EQ(lemgec(lem, 1), 34);
  lemces(lem);
  void *p = lmmmalloc(mctx, h, size_t{2147473647}, 0, "t", 2);
  if (p == nullptr) {
    // A heap inside another cannot get an extent above the largest request
    // from its parent, but the request itself went to the model.
    EXPECT_EQ(lemgec(lem, 1), 3) << "the largest request must reach the model";
    EXPECT_EQ(lemgsc(lem, 1), 120);
  } else {
    static_cast<char *>(p)[0] = 1;
    static_cast<char *>(p)[2147473646] = 2;
  }
  EXPECT_EQ(lmmhpfree(mctx, h, 0), 0);
}

TEST_F(Heaps, MisuseIsRecorded) {
  lmmheap *h = make(nullptr, 0);
  struct Case {
    const char *what;
    std::function<bool()> call;
    int32_t msg;
  } cases[] = {
      {"null heap", [&] { return lmmmalloc(mctx, nullptr, 8, 0, "t", 1) == nullptr; }, 33},
      {"zero size", [&] { return lmmmalloc(mctx, h, 0, 0, "t", 1) == nullptr; }, 33},
      {"null context", [&] { return lmmhpinit(mctx, nullptr, h, 0, nullptr, "t", 1, nullptr) == -1; }, 33},
      {"free null", [&] { return lmmfree(mctx, h, nullptr, 0) == -1; }, 33},
      {"double free small", [&] {
         void *p = lmmmalloc(mctx, h, 40, 0, "t", 1);
         void *keep = lmmmalloc(mctx, h, 40, 0, "t", 1);
         bool ok = lmmfree(mctx, h, p, 0) == 0 && lmmfree(mctx, h, p, 0) == -1;
         lmmfree(mctx, h, keep, 0);
         return ok;
       }, 3},
      {"double free large", [&] {
         void *keep = lmmmalloc(mctx, h, 5000, 0, "t", 1);
         void *p = lmmmalloc(mctx, h, 5000, 0, "t", 1);
         void *keep2 = lmmmalloc(mctx, h, 5000, 0, "t", 1);
         bool ok = lmmfree(mctx, h, p, 0) == 0 && lmmfree(mctx, h, p, 0) == -1;
         lmmfree(mctx, h, keep, 0);
         lmmfree(mctx, h, keep2, 0);
         return ok;
       }, 3},
  };
  for (auto &c : cases) {
    lemces(lem);
    EXPECT_TRUE(c.call()) << c.what;
    ASSERT_GE(lemged(lem), 1) << c.what;
    EXPECT_EQ(lemgec(lem, 1), c.msg) << c.what;
    char fac[8];
    lemgef(lem, 1, fac, sizeof fac);
    EXPECT_STREQ(fac, "LMM") << c.what;
  }
  lemces(lem);
  // A refused double free names lmmfree under message 33 beneath the record.
  void *p = lmmmalloc(mctx, h, 40, 0, "t", 1);
  void *keep = lmmmalloc(mctx, h, 40, 0, "t", 1);
  lmmfree(mctx, h, p, 0);
  lmmfree(mctx, h, p, 0);
  EXPECT_EQ(lemgec(lem, 2), 33);
  EXPECT_EQ(lwemnmk(lem), 1) << "one failure, one mark";
  lmmfree(mctx, h, keep, 0);
  lemces(lem);
  EXPECT_EQ(lmmhpfree(mctx, h, 0), 0);
}

// On both models: valloc is page-aligned and keeps its contents through a
// realloc, calloc clears memory that was in use; a fast free touches nothing
// and nothing is reused.
TEST_F(Heaps, VallocCallocAndFastFree) {
  for (const lmmmfp *model : {lmmgetstmfp(), lmmgetfsmfp()}) {
    lmmheap *h = make(model, 0);
    for (size_t n : {1, 100, 4096, 5000, 70000}) {
      void *p = lmmvalloc(mctx, h, n, 0, "t", 1);
      ASSERT_NE(p, nullptr);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % slmmvallocsz(), 0u);
      memset(p, 0xAB, n);
      void *q = lmmrealloc(mctx, h, p, n + 10000, 0, "t", 2);
      ASSERT_NE(q, nullptr);
      EXPECT_EQ(static_cast<uint8_t *>(q)[n - 1], 0xAB);
      EXPECT_EQ(lmmfree(mctx, h, q, 0), 0);
    }
    for (size_t n : {16, 200, 3000, 90000}) {
      void *p = lmmmalloc(mctx, h, n, 0, "t", 1);
      fill(p, n, 7);
      lmmfree(mctx, h, p, 0);
      if (model == lmmgetfsmfp()) EXPECT_TRUE(check(p, n, 7)) << "a fast free must not touch the block";
      auto *q = static_cast<uint8_t *>(lmmcalloc(mctx, h, n, 0, "t", 2));
      ASSERT_NE(q, nullptr);
      if (model == lmmgetfsmfp()) EXPECT_NE(q, p) << "nothing is reused";
      EXPECT_TRUE(std::all_of(q, q + n, [](uint8_t b) { return b == 0; })) << n;
      lmmfree(mctx, h, q, 0);
    }
    EXPECT_EQ(lemged(lem), 0);
    EXPECT_EQ(lmmhpfree(mctx, h, 0), 0);
  }
}

TEST_F(Heaps, NestedHeapsAndObjectLists) {
  lmmheap *outer = make(nullptr, 0);
  lmmheap *inner = nullptr;
  ASSERT_EQ(lmmhpinit(mctx, &inner, outer, 0, nullptr, "t", 1, lmmgetfsmfp()), 0);
  lmmheap storage;
  lmmheap *mine = &storage;
  ASSERT_EQ(lmmhpinit(mctx, &mine, inner, LMM_HP_NOLOCK, nullptr, "t", 2, nullptr), 0);
  EXPECT_EQ(mine, &storage);
  run_random(mctx, mine, true, 11, 500);

  void *a = lmmomallocblklist(mctx, mine, 100, 0);
  void *b = lmmocallocblklist(mctx, mine, 5000, 0);
  void *c = lmmovallocblklist(mctx, mine, 10, 0);
  ASSERT_TRUE(a && b && c);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(c) % slmmvallocsz(), 0u);
  EXPECT_EQ(static_cast<uint8_t *>(b)[4999], 0);
  void *plain = lmmmalloc(mctx, mine, 64, 0, "t", 3);
  EXPECT_EQ(lmmofreeblklist(mctx, mine, plain, 0), 1) << "not a listed block";
  EXPECT_EQ(lmmofreeblklist(mctx, mine, nullptr, 0), -1);
  EXPECT_EQ(lmmfree(mctx, mine, a, 0), 0) << "lmmfree releases listed blocks";
  EXPECT_EQ(lmmofreeblklist(mctx, mine, a, 0), 1) << "gone from the list";
  a = lmmoreallocblklist(mctx, mine, b, 9000, 0);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(static_cast<uint8_t *>(a)[4999], 0);
  // b, c and the rest go with the heaps.
  EXPECT_EQ(lmmhpfree(mctx, mine, 0), 0);
  EXPECT_EQ(lmmhpfree(mctx, inner, 0), 0);
  EXPECT_EQ(lmmhpfree(mctx, outer, 0), 0);
  EXPECT_EQ(lemged(lem), 0);
}

#ifdef KEL_TEST_HOOKS
// The caller's switch: heap allocation n (and the count - 1 after it) fails
// as out of memory would, on any heap and through every allocation call.
TEST_F(Heaps, CallersCanFailTheNthAllocation) {
  lmmheap *h = make(lmmgetfsmfp(), 0);
  void *keep = lmmmalloc(mctx, h, 10, 0, "t", 1);
  ASSERT_EQ(lmmfailnth(2, 2), 0);
  EXPECT_NE(lmmmalloc(mctx, h, 10, 0, "t", 1), nullptr);
  EXPECT_EQ(lmmcalloc(mctx, lmmtophp(mctx), 10, 0, "t", 2), nullptr);
  EXPECT_EQ(lemgec(lem, 1), 3);
  EXPECT_EQ(lemgsc(lem, 1), 120);
  EXPECT_EQ(lmmrealloc(mctx, h, keep, 20, 0, "t", 3), nullptr);
  EXPECT_NE(lmmvalloc(mctx, h, 10, 0, "t", 4), nullptr) << "the window has passed";
  EXPECT_EQ(lmmfailhits(), 2);
  ASSERT_EQ(lmmfailnth(1, -1), 0);
  EXPECT_EQ(lmmomallocblklist(mctx, h, 10, 0), nullptr);
  EXPECT_EQ(lmmmalloc(mctx, h, 10, 0, "t", 5), nullptr) << "from then on";
  EXPECT_EQ(lmmfailnth(-1, 1), -1);
  EXPECT_EQ(lmmfailnth(0, 0), 0);
  EXPECT_EQ(lmmfailhits(), 0);
  EXPECT_NE(lmmmalloc(mctx, h, 10, 0, "t", 6), nullptr);
  lemces(lem);
  EXPECT_EQ(lmmhpfree(mctx, h, 0), 0);
}
#endif

TEST_F(Heaps, SharedHeapFromManyThreads) {
  for (const lmmmfp *model : {lmmgetstmfp(), lmmgetfsmfp()}) {
    lmmheap *h = make(model, 0);
    std::vector<std::thread> ts;
    for (int t = 0; t < 4; t++)
      ts.emplace_back([&, t] { run_random(mctx, h, true, 100 + t, 1500); });
    for (auto &t : ts) t.join();
    EXPECT_EQ(lmmhpfree(mctx, h, 0), 0);
  }
}

}  // namespace
