// Hash tables under several threads, for every kind, on one chunk and on
// many, on system memory and on a shared heap: writers insert and remove
// (growing and shrinking the table many times) while readers search and
// probe without a lock and an iterator walks the table now and then. Run
// under the tsan and asan presets.
//
// Every answer a reader gets must be the key's state before or after the
// changes that overlapped the read. Each toggled key has a version that its
// one writer moves to odd before a change and to the next even number after
// it; at an even version v the key is present (with value val(k, v)) when
// v % 4 == 2 and absent when v % 4 == 0. A reader notes the version before
// and after its read: the answer must be a state whose version lies between.
// String and arbitrary keys are heap copies that the writer frees as soon as
// Remove returns, so a search still comparing against one is caught.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/hash/lht_test_util.h"

using namespace lht_test;

namespace {

constexpr uint32_t kToggled = 1500, kStable = 300, kNever = 300;
constexpr uint32_t kWriters = 2, kReaders = 2, kPhases = 6, kOpsPerPhase = 1500;

void *val(uint32_t k, uint32_t v) { return reinterpret_cast<void *>((uintptr_t{k} << 32) | v); }

struct Race : Kinds {
  std::vector<std::atomic<uint32_t>> ver = std::vector<std::atomic<uint32_t>>(kToggled);
  std::vector<std::unique_ptr<char[]>> stored = std::vector<std::unique_ptr<char[]>>(kToggled + kStable);

  static void text(uint32_t k, char (&buf)[16]) { std::snprintf(buf, sizeof buf, "k%u", k); }
  // A fresh heap copy of key k's text, kept while the key is in the table.
  const char *keep(uint32_t k) {
    stored[k].reset(new char[16]);
    std::snprintf(stored[k].get(), 16, "k%u", k);
    return stored[k].get();
  }
  uint32_t version(uint32_t k) const {
    return k < kToggled ? ver[k].load(std::memory_order_acquire) : k < kToggled + kStable ? 2 : 0;
  }

  // Inserts key k; `dup`: it is present, so the key passed is a temporary.
  int32_t insert(uint32_t k, void *v, bool dup = false) {
    char b[16];
    text(k, b);
    return Kinds::insert(k, kind == kInt ? nullptr : dup ? b : keep(k), v);
  }
  int32_t remove(uint32_t k, void **v) {
    char b[16];
    text(k, b);
    return Kinds::remove(k, b, v);
  }
  // Search (or the probe function): 1 found, 0 not found, -1 anything else.
  int read(uint32_t k, bool probe, void **v) {
    char b[16];
    text(k, b);
    int32_t rc = probe ? Kinds::probe(k, b, nullptr, nullptr) : search(k, b, v);
    return rc == (probe ? LHT_FOUND : 1) ? 1 : rc == (probe ? LHT_NOTFOUND : -LHT_ERR_NOKEY) ? 0 : -1;
  }
  // Every entry, by an iteration (writers are refused meanwhile); -1 on a
  // key seen twice. `more` counts further errors before the iteration ends.
  template <class More>
  int walk(std::map<uint32_t, void *> &out, More more) {
    if (begin() != 0) return -1;
    uint32_t pos = 0, k;
    void *v;
    int bad = 0;
    for (const char *s = nullptr; yield(&k, &s, &v, &pos) == 1; s = nullptr) {
      if (s != nullptr) k = static_cast<uint32_t>(std::stoul(s + 1));
      bad += !out.emplace(k, v).second;
    }
    bad += more(out);
    return bad == 0 && end() == 1 ? 0 : -1;
  }
};

// The hash of the arbitrary keys: now and then it gives up the processor,
// so that reads are caught in the middle by resizes.
uint32_t slow_hash(const void *key, uint32_t size, void *uctx) {
  thread_local uint32_t calls = 0;
  if (++calls % 16 == 0) std::this_thread::yield();
  return fnv_hash(key, size, uctx);
}

// The answer (found, with value v) is that of a state between versions v1
// and v2 of key k.
bool plausible(uint32_t k, uint32_t v1, uint32_t v2, int found, const void *v, bool probe) {
  for (uint32_t w = v1 & ~1u; w <= ((v2 + 1) & ~1u); w += 2)
    if (found == 1 ? w % 4 == 2 && (probe || v == val(k, w)) : found == 0 && w % 4 == 0) return true;
  return false;
}

TEST(LhtThreads, ReadsRaceChangesAndResizes) {
  struct Row {
    int kind;
    uint32_t chunk;  // slots per chunk (0: one chunk)
    bool heap;       // slot storage on a memory-manager heap shared by the threads
  };
  const Row rows[] = {{kInt, 0, false}, {kStr, 0, true},   {kArb, 0, false},
                      {kInt, 40, true}, {kStr, 40, false}, {kArb, 40, false}};
  lcorectx *ctx = lib();
  for (const Row &row : rows) {
    SCOPED_TRACE(std::string(kind_name(row.kind)) + " chunk " + std::to_string(row.chunk) +
                 (row.heap ? " heap" : ""));
    lmmheap *heap = nullptr;
    if (row.heap)
      ASSERT_EQ(lmmhpinit(ctx->lmmctx, &heap, lmmtophp(ctx->lmmctx), 0, nullptr, "lht race", __LINE__, nullptr), 0);
    LhtMem mem{heap, nullptr, nullptr, nullptr};
    Race race{{row.kind, make(row.kind, ctx, 1, &mem, row.chunk, slow_hash)}};
    ASSERT_NE(race.t, nullptr);
    for (uint32_t k = kToggled; k < kToggled + kStable; ++k) ASSERT_EQ(race.insert(k, val(k, 2)), 1);

    std::atomic<uint32_t> writing{kWriters};
    std::vector<int> errors(kWriters + kReaders + 1, 0);
    // Writers wait at the end of each phase until every reader has read a
    // while, so that reads overlap every phase however the threads are run.
    std::vector<std::atomic<uint32_t>> reads(kReaders);
    auto readers_reached = [&](uint32_t n) {
      for (auto &r : reads)
        while (r.load(std::memory_order_relaxed) < n) std::this_thread::yield();
    };
    std::vector<std::thread> threads;
    for (uint32_t w = 0; w < kWriters; ++w)
      threads.emplace_back([&, w] {
        std::mt19937 rng(w + 1);
        for (uint32_t phase = 0; phase < kPhases; readers_reached(++phase * 200))
          for (uint32_t op = 0; op < kOpsPerPhase; ++op) {
            // Fill in even phases, drain in odd ones: the table grows and
            // shrinks through several sizes while the readers read.
            bool add = rng() % 10 < (phase % 2 == 0 ? 8u : 2u);
            uint32_t k = rng() % (kToggled / kWriters) * kWriters + w;
            uint32_t v = race.ver[k].load(std::memory_order_relaxed);
            bool present = v % 4 == 2;
            void *out = nullptr;
            int32_t rc;
            if (add != present) race.ver[k].store(v + 1, std::memory_order_release);
            while ((rc = add ? race.insert(k, val(k, v + 2), present) : race.remove(k, &out)) == -LHT_ERR_ITER)
              std::this_thread::yield();
            if (add != present) {
              race.ver[k].store(v + 2, std::memory_order_release);
              if (!add) race.stored[k].reset();  // the key's memory goes at once
            }
            if (add)
              errors[w] += rc != (present ? -LHT_ERR_DUP : 1);
            else
              errors[w] += rc != (present ? 1 : -LHT_ERR_NOKEY) || (present && out != val(k, v));
          }
        writing.fetch_sub(1);
      });
    for (uint32_t r = 0; r < kReaders; ++r)
      threads.emplace_back([&, r] {
        std::mt19937 rng(100 + r);
        while (writing.load() != 0) {
          uint32_t k = rng() % (kToggled + kStable + kNever);
          bool probe = rng() % 4 == 0;
          uint32_t v1 = race.version(k);
          void *v = nullptr;
          int found = race.read(k, probe, &v);
          uint32_t v2 = race.version(k);
          errors[kWriters + r] += !plausible(k, v1, v2, found, v, probe);
          reads[r].fetch_add(1, std::memory_order_relaxed);
        }
      });
    threads.emplace_back([&] {
      for (int n = 0; n < 15 && writing.load() != 0; ++n) {
        // No change can finish during the iteration: a key whose version
        // is even now is in exactly that state, one whose version is odd
        // in the state before or after.
        std::map<uint32_t, void *> seen;
        errors[kWriters + kReaders] += race.walk(seen, [&](const std::map<uint32_t, void *> &in) {
          int bad = 0;
          for (uint32_t k = 0; k < kToggled + kStable; ++k) {
            uint32_t ver = race.version(k);
            auto it = in.find(k);
            bad += !plausible(k, ver, ver, it != in.end(), it != in.end() ? it->second : nullptr, false);
          }
          return bad + static_cast<int>(in.size() > kToggled + kStable);
        }) != 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
      }
    });
    for (auto &th : threads) th.join();

    for (size_t i = 0; i < errors.size(); ++i) EXPECT_EQ(errors[i], 0) << "thread " << i;
    // What is left is what the writers' versions say, and the table drains
    // back to its smallest size.
    std::map<uint32_t, void *> want, got;
    for (uint32_t k = 0; k < kToggled + kStable; ++k)
      if (race.version(k) % 4 == 2) want[k] = val(k, race.version(k));
    ASSERT_EQ(race.walk(got, [](auto &) { return 0; }), 0);
    EXPECT_EQ(got, want);
    for (auto &[k, v] : want) {
      void *out = nullptr;
      EXPECT_EQ(race.remove(k, &out), 1);
      EXPECT_EQ(out, v);
    }
    EXPECT_EQ(lht_internal::table_count(race.t), 0u);
    EXPECT_EQ(lht_internal::table_size(race.t), 11u);
    EXPECT_EQ(race.destroy(), 1);
    if (heap != nullptr) EXPECT_EQ(lmmhpfree(ctx->lmmctx, heap, 0), 0);
  }
}

// A read held open (its hash callback waits) while another thread grows the
// table: the storage the read began in is kept and the read goes on in it,
// inserts go on until all the room for kept storage is used, and the next
// change then waits for the read to end. The check that the writer waits is
// one-sided: with the read held, no load can let the writer get further.
TEST(LhtThreads, HeldReadKeepsItsStorage) {
  static std::atomic<int> gate;  // 1: the read is inside; 2: let it go
  static const char *held;
  gate.store(0);
  auto hash = [](const void *key, uint32_t size, void *) -> uint32_t {
    if (key == held && gate.load() == 0) {
      gate.store(1);
      while (gate.load() != 2) std::this_thread::yield();
    }
    return fnv_hash(key, size, nullptr);
  };
  LhtTable *t = LhtArbCreate(nullptr, nullptr, 1, nullptr, hash, str_cmp, nullptr);
  ASSERT_NE(t, nullptr);
  std::vector<std::string> keys;
  for (uint32_t k = 0; k < 140; ++k) keys.push_back("k" + std::to_string(k));
  for (uint32_t k = 0; k < 10; ++k) ASSERT_EQ(LhtArbInsert(t, keys[k].c_str(), val(k, 2)), 1);
  ASSERT_EQ(lht_internal::table_size(t), 11u);
  std::string copy = keys[5];  // its own address: only the held search stops
  held = copy.c_str();
  int32_t found = 0;
  void *v = nullptr;
  std::thread reader([&] { found = LhtArbSearch(t, held, &v); });
  while (gate.load() != 1) std::this_thread::yield();
  // 11 -> 17 -> 37 -> 67 -> 131 slots: four storages kept, all the room;
  // the insert after the 67th entry waits.
  std::atomic<uint32_t> inserted{10};
  std::thread writer([&] {
    for (uint32_t k = 10; k < 140; ++k) {
      EXPECT_EQ(LhtArbInsert(t, keys[k].c_str(), val(k, 2)), 1);
      inserted.fetch_add(1);
    }
  });
  const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  while (inserted.load() < 67 && std::chrono::steady_clock::now() < give_up) std::this_thread::yield();
  EXPECT_EQ(inserted.load(), 67u) << "the inserts stopped before the room for kept storage was used";
  EXPECT_EQ(lht_internal::table_size(t), 131u);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(inserted.load(), 67u) << "a change went on while every kept storage could still be read";
  gate.store(2);
  reader.join();
  writer.join();
  EXPECT_EQ(found, 1);
  EXPECT_EQ(v, val(5, 2));
  EXPECT_EQ(lht_internal::table_size(t), 257u);
  EXPECT_EQ(lht_internal::table_count(t), 140u);
  EXPECT_EQ(LhtArbDestroy(t), 1);
}

}  // namespace
