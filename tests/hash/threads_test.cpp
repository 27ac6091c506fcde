// Hash tables under several threads: inserts, removes and searches on one
// table, with iterations that freeze it in between. Run under the tsan preset.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <thread>
#include <vector>

#include "tests/hash/lht_test_util.h"

using namespace lht_test;

namespace {

void *val(uint32_t k) { return reinterpret_cast<void *>(static_cast<uintptr_t>(k) * 2 + 1); }

// Each worker owns the keys k with k % workers == id, so it knows exactly
// which of its keys are in the table; the iterating thread checks that what
// it sees is consistent (no key twice, every value the key's own).
TEST(LhtThreads, InsertRemoveSearchAndIterate) {
  constexpr uint32_t kWorkers = 4, kOps = 20000, kKeysPerWorker = 3000;
  LhtTable *t = LhtIntCreate(nullptr, nullptr, 1, nullptr);
  ASSERT_NE(t, nullptr);
  std::atomic<bool> stop{false};
  std::atomic<int> refused{0}, iterations{0};
  std::vector<std::vector<uint8_t>> present(kWorkers, std::vector<uint8_t>(kKeysPerWorker, 0));
  std::vector<int> errors(kWorkers + 1, 0);

  auto worker = [&](uint32_t id) {
    uint32_t x = id * 2654435761u + 1;
    for (uint32_t op = 0; op < kOps; ++op) {
      x = x * 1664525u + 1013904223u;
      uint32_t slot = (x >> 8) % kKeysPerWorker;
      uint32_t key = slot * kWorkers + id;
      bool in = present[id][slot] != 0;
      // Grow for the first half, then drain: the table resizes both ways
      // while the others work on it.
      bool want_insert = ((x >> 4) % 10) < (op < kOps / 2 ? 7u : 3u);
      void *v = nullptr;
      int32_t rc;
      if (want_insert) {
        while ((rc = LhtIntInsert(t, key, val(key))) == -LHT_ERR_ITER) {
          refused.fetch_add(1, std::memory_order_relaxed);
          std::this_thread::yield();
        }
        if (rc != (in ? -LHT_ERR_DUP : 1)) ++errors[id];
        present[id][slot] = 1;
      } else {
        while ((rc = LhtIntRemove(t, key, &v)) == -LHT_ERR_ITER) {
          refused.fetch_add(1, std::memory_order_relaxed);
          std::this_thread::yield();
        }
        if (rc != (in ? 1 : -LHT_ERR_NOKEY) || (in && v != val(key))) ++errors[id];
        present[id][slot] = 0;
      }
      rc = LhtIntSearch(t, key, &v);
      if (rc != (present[id][slot] ? 1 : -LHT_ERR_NOKEY)) ++errors[id];
    }
  };
  auto iterator = [&] {
    // A bounded number of walks, spread over the run: while one is open the
    // workers can change nothing, so many walks would starve them.
    for (int walk = 0; walk < 40 && !stop.load(std::memory_order_relaxed); ++walk) {
      if (LhtIntBeginIter(t) != 0) {
        ++errors[kWorkers];
        return;
      }
      std::map<uint32_t, void *> seen;
      uint32_t pos = 0, k;
      void *v;
      while (LhtIntYield(t, &k, &v, &pos) == 1)
        if (!seen.emplace(k, v).second || v != val(k)) ++errors[kWorkers];
      LhtIntEndIter(t);
      iterations.fetch_add(1, std::memory_order_relaxed);
      // Leave the workers room: an open iteration stops all their changes.
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  };

  std::vector<std::thread> threads;
  for (uint32_t id = 0; id < kWorkers; ++id) threads.emplace_back(worker, id);
  std::thread it(iterator);
  for (auto &th : threads) th.join();
  stop = true;
  it.join();

  for (uint32_t i = 0; i <= kWorkers; ++i) EXPECT_EQ(errors[i], 0) << "thread " << i;
  EXPECT_GT(iterations.load(), 0);
  // The final content is exactly what the workers believe is present.
  std::map<uint32_t, void *> want;
  for (uint32_t id = 0; id < kWorkers; ++id)
    for (uint32_t s = 0; s < kKeysPerWorker; ++s)
      if (present[id][s]) want[s * kWorkers + id] = val(s * kWorkers + id);
  ASSERT_EQ(LhtIntBeginIter(t), 0);
  std::map<uint32_t, void *> got;
  uint32_t pos = 0, k;
  void *v;
  while (LhtIntYield(t, &k, &v, &pos) == 1) got[k] = v;
  ASSERT_EQ(LhtIntEndIter(t), 1);
  EXPECT_EQ(got, want);
  EXPECT_EQ(LhtIntDestroy(t), 1);
}

// String keys through a memory-manager heap shared by the threads.
TEST(LhtThreads, StringTableOnAHeap) {
  constexpr uint32_t kWorkers = 3, kKeys = 2000;
  lcorectx *ctx = lib();
  lmmheap *heap = nullptr;
  ASSERT_EQ(lmmhpinit(ctx->lmmctx, &heap, lmmtophp(ctx->lmmctx), 0, nullptr, "lht threads", __LINE__, nullptr), 0);
  LhtMem mem{heap, nullptr, nullptr, nullptr};
  LhtTable *t = LhtStrCreate(ctx, nullptr, 0, &mem);
  ASSERT_NE(t, nullptr);
  std::vector<std::vector<std::string>> names(kWorkers);
  for (uint32_t id = 0; id < kWorkers; ++id)
    for (uint32_t k = 0; k < kKeys; ++k) names[id].push_back("w" + std::to_string(id) + "-" + std::to_string(k));
  std::vector<int> errors(kWorkers, 0);
  auto worker = [&](uint32_t id) {
    for (int round = 0; round < 3; ++round) {
      for (uint32_t k = 0; k < kKeys; ++k)
        if (LhtStrInsert(t, names[id][k].c_str(), val(k)) != 1) ++errors[id];
      for (uint32_t k = 0; k < kKeys; ++k) {
        std::string copy = names[id][k];
        void *v = nullptr;
        if (LhtStrSearch(t, copy.c_str(), &v) != 1 || v != val(k)) ++errors[id];
        if (LhtStrRemove(t, copy.c_str(), &v) != 1 || v != val(k)) ++errors[id];
      }
    }
  };
  std::vector<std::thread> threads;
  for (uint32_t id = 0; id < kWorkers; ++id) threads.emplace_back(worker, id);
  for (auto &th : threads) th.join();
  for (uint32_t id = 0; id < kWorkers; ++id) EXPECT_EQ(errors[id], 0) << id;
  EXPECT_EQ(lht_internal::table_count(t), 0u);
  EXPECT_EQ(lht_internal::table_size(t), 11u);
  EXPECT_EQ(LhtStrDestroy(t), 1);
  EXPECT_EQ(lmmhpfree(ctx->lmmctx, heap, 0), 0);
}

}  // namespace
