// Hash tables under several threads. Changes (insert, remove, and the
// resizes they cause) go through the table's mutex and may come from many
// threads at once; reads (search, probe, iteration) take no lock and may run
// together, but never alongside a change. Run under the tsan preset.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/hash/lht_test_util.h"

using namespace lht_test;

namespace {

void *val(uint32_t k) { return reinterpret_cast<void *>(static_cast<uintptr_t>(k) * 2 + 1); }

// Each worker owns the keys k with k % workers == id, so it knows exactly
// which of its keys are in the table; the iterating thread checks that what
// it sees is consistent (no key twice, every value the key's own). The
// workers do not search: a search must not overlap another thread's change.
TEST(LhtThreads, InsertRemoveAndIterate) {
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

// Reads share a table: phases of changes (several writers, each under the
// table's mutex) alternate with phases of reads (several searching threads
// and an iterating one, no writer). Every reader checks every key of the
// universe against what the writers left, so a read that saw a half-made
// change, or a data race that ThreadSanitizer sees, fails the test.
enum class Kind { Int, Str, Arb };

struct Shared {
  Kind kind;
  LhtTable *t;
  std::vector<std::string> names;  // the stored string keys (stable)

  int32_t insert(uint32_t k) {
    if (kind == Kind::Int) return LhtIntInsert(t, k, val(k));
    if (kind == Kind::Str) return LhtStrInsert(t, names[k].c_str(), val(k));
    return LhtArbInsert(t, names[k].c_str(), val(k));
  }
  int32_t remove(uint32_t k) {
    void *v = nullptr;
    int32_t rc = kind == Kind::Int   ? LhtIntRemove(t, k, &v)
                 : kind == Kind::Str ? LhtStrRemove(t, names[k].c_str(), &v)
                                     : LhtArbRemove(t, names[k].c_str(), &v);
    return rc == 1 && v != val(k) ? -1000 : rc;
  }
  // Searches with a copy of the key, so that strings are compared by content;
  // the probe function must agree with the search.
  bool search_agrees(uint32_t k, bool in) {
    void *v = nullptr;
    int32_t rc, probe;
    if (kind == Kind::Int) {
      rc = LhtIntSearch(t, k, &v);
      probe = LhtInqGetIndex(t, k, nullptr, nullptr);
    } else {
      std::string copy = names[k];
      if (kind == Kind::Str) {
        rc = LhtStrSearch(t, copy.c_str(), &v);
        probe = LhtStqGetIndex(t, copy.c_str(), nullptr, nullptr);
      } else {
        rc = LhtArbSearch(t, copy.c_str(), &v);
        probe = LhtArqGetIndex(t, copy.c_str(), nullptr, nullptr);
      }
    }
    if (in) return rc == 1 && v == val(k) && probe == LHT_FOUND;
    return rc == -LHT_ERR_NOKEY && probe == LHT_NOTFOUND;
  }
  int32_t walk(std::map<uint32_t, void *> &seen) {
    int32_t rc = kind == Kind::Int ? LhtIntBeginIter(t) : kind == Kind::Str ? LhtStrBeginIter(t) : LhtArbBeginIter(t);
    if (rc != 0) return rc;
    uint32_t pos = 0;
    void *v;
    int dups = 0;
    for (;;) {
      uint32_t k;
      if (kind == Kind::Int) {
        if (LhtIntYield(t, &k, &v, &pos) != 1) break;
      } else {
        const char *s = nullptr;
        const void *a = nullptr;
        if ((kind == Kind::Str ? LhtStrYield(t, &s, &v, &pos) : LhtArbYield(t, &a, &v, &pos)) != 1) break;
        if (kind == Kind::Arb) s = static_cast<const char *>(a);
        k = static_cast<uint32_t>(std::stoul(s + 1));
      }
      dups += !seen.emplace(k, v).second;
    }
    int32_t end = kind == Kind::Int ? LhtIntEndIter(t) : kind == Kind::Str ? LhtStrEndIter(t) : LhtArbEndIter(t);
    return dups == 0 && end == 1 ? 0 : -1;
  }
};

TEST(LhtThreads, ReadersShareATableBetweenChangePhases) {
  constexpr uint32_t kWriters = 3, kReaders = 3, kUniverse = 3000, kPhases = 6;
  for (Kind kind : {Kind::Int, Kind::Str, Kind::Arb}) {
    SCOPED_TRACE(static_cast<int>(kind));
    Shared sh{kind, nullptr, {}};
    for (uint32_t k = 0; k < kUniverse; ++k) sh.names.push_back("k" + std::to_string(k));
    sh.t = kind == Kind::Int   ? LhtIntCreate(nullptr, nullptr, 0, nullptr)
           : kind == Kind::Str ? LhtStrCreate(nullptr, nullptr, 0, nullptr)
                               : LhtArbCreate(nullptr, nullptr, 0, nullptr, fnv_hash, str_cmp, nullptr);
    ASSERT_NE(sh.t, nullptr);
    std::vector<uint8_t> in(kUniverse, 0);  // writer w owns the keys k % kWriters == w
    for (uint32_t phase = 0; phase < kPhases; ++phase) {
      // Changes: fill up in even phases, drain in odd ones, so that the
      // table grows and shrinks while several threads change it.
      std::vector<int> werr(kWriters, 0);
      std::vector<std::thread> writers;
      for (uint32_t w = 0; w < kWriters; ++w)
        writers.emplace_back([&, w] {
          uint32_t x = phase * 7919u + w * 104729u + 1;
          for (uint32_t op = 0; op < 2500; ++op) {
            x = x * 1664525u + 1013904223u;
            uint32_t k = ((x >> 8) % (kUniverse / kWriters)) * kWriters + w;
            bool add = (x >> 4) % 10 < (phase % 2 == 0 ? 8u : 2u);
            if (add) {
              if (sh.insert(k) != (in[k] ? -LHT_ERR_DUP : 1)) ++werr[w];
              in[k] = 1;
            } else {
              if (sh.remove(k) != (in[k] ? 1 : -LHT_ERR_NOKEY)) ++werr[w];
              in[k] = 0;
            }
          }
        });
      for (auto &th : writers) th.join();
      for (uint32_t w = 0; w < kWriters; ++w) ASSERT_EQ(werr[w], 0) << "phase " << phase << " writer " << w;

      // Reads: every reader checks every key, starting at a different one;
      // an iterator walks the table at the same time.
      std::vector<int> rerr(kReaders + 1, 0);
      std::vector<std::thread> readers;
      for (uint32_t r = 0; r < kReaders; ++r)
        readers.emplace_back([&, r] {
          for (uint32_t j = 0; j < kUniverse; ++j) {
            uint32_t k = (j + r * (kUniverse / kReaders)) % kUniverse;
            if (!sh.search_agrees(k, in[k] != 0)) ++rerr[r];
          }
        });
      readers.emplace_back([&] {
        std::map<uint32_t, void *> seen;
        if (sh.walk(seen) != 0) ++rerr[kReaders];
        size_t want = 0;
        for (uint32_t k = 0; k < kUniverse; ++k) want += in[k];
        if (seen.size() != want) ++rerr[kReaders];
        for (auto &[k, v] : seen)
          if (!in[k] || v != val(k)) ++rerr[kReaders];
      });
      for (auto &th : readers) th.join();
      for (uint32_t r = 0; r <= kReaders; ++r) EXPECT_EQ(rerr[r], 0) << "phase " << phase << " reader " << r;
    }
    EXPECT_EQ(kind == Kind::Int ? LhtIntDestroy(sh.t) : kind == Kind::Str ? LhtStrDestroy(sh.t) : LhtArbDestroy(sh.t),
              1);
  }
}

}  // namespace
