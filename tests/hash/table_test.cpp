// Hash tables: hash values against an independent Python model, the edge
// cases of sizing and iteration, randomised operation sequences against
// std::unordered_map for every kind, allocator and chunk size, and the probe
// paths against an independent walk.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "tests/hash/lht_test_util.h"
#include "tests/support/python.h"

using namespace lht_test;
using lht_internal::kSizes;

namespace {

// ------------------------------------------------------------ hash values

std::vector<uint8_t> unhex(const std::string &h) {
  std::vector<uint8_t> out;
  if (h == "-") return out;
  for (size_t i = 0; i + 1 < h.size(); i += 2) out.push_back(static_cast<uint8_t>(std::stoul(h.substr(i, 2), nullptr, 16)));
  return out;
}

TEST(LhtHash, MatchesIndependentModel) {
  std::string text;
  ASSERT_TRUE(kel_test::run_python("tests/hash/hash_oracle.py", "", text));
  std::istringstream in(text);
  std::string kind, key;
  uint64_t size, h1, h2;
  int ints = 0, strs = 0, guarded = 0;
  while (in >> kind >> key >> size >> h1 >> h2) {
    auto sz = static_cast<uint32_t>(size);
    if (kind == "i") {
      auto k = static_cast<uint32_t>(std::stoul(key));
      ASSERT_EQ(LhtInq1Hash(k, sz), h1) << "k=" << k << " size=" << sz;
      ASSERT_EQ(LhtInq2Hash(k, sz), h2) << "k=" << k << " size=" << sz;
      ++ints;
    } else {
      std::vector<uint8_t> b = unhex(key);
      std::string s(b.begin(), b.end());
      ASSERT_EQ(LhtStq1Hash(s.c_str(), sz), h1) << "s=" << key << " size=" << sz;
      ASSERT_EQ(LhtStq2Hash(s.c_str(), sz), h2) << "s=" << key << " size=" << sz;
      if (s.size() > 4) ++guarded;  // five bytes pass the guard threshold of both folds
      ++strs;
    }
  }
  EXPECT_GT(ints, 10000);
  EXPECT_GT(strs, 2000);
  EXPECT_GT(guarded, 1000);
}

TEST(LhtHash, EmptyStringAndArbitraryStride) {
  for (uint32_t size : {11u, 17u, 521u, 33554467u}) {
    EXPECT_EQ(LhtStq1Hash("", size), LhtInq1Hash(0, size));
    EXPECT_EQ(LhtStq2Hash("", size), LhtInq2Hash(0, size));
  }
  const struct { uint32_t n, b, c, want; } quad[] = {
      {0, 14, 0, 0}, {1, 14, 0, 14}, {5, 14, 0, 70}, {3, 1, 1, 12}, {65536, 0, 65536, 0},
  };
  for (auto &q : quad) EXPECT_EQ(LhtArqQuad(q.n, q.b, q.c), q.want);
}

// ----------------------------------------------------------- uniform face

// Key n of the tests: the integer itself, or the string "key<n>" kept in a
// pool whose strings never move (the table stores key pointers).
struct Pool {
  std::unordered_map<uint32_t, std::string> names;
  const char *name(uint32_t n) {
    auto it = names.find(n);
    if (it == names.end()) it = names.emplace(n, "key" + std::to_string(n)).first;
    return it->second.c_str();
  }
};

// Inserts store the pool's pointer; other calls pass a copy of the text.
struct Face : Kinds {
  Pool *pool;
  std::string probe_copy;

  const char *copy(uint32_t n) {
    probe_copy = pool->name(n);
    return probe_copy.c_str();
  }
  int32_t insert(uint32_t n, void *v) { return Kinds::insert(n, pool->name(n), v); }
  int32_t remove(uint32_t n, void **v) { return Kinds::remove(n, copy(n), v); }
  int32_t search(uint32_t n, void **v) { return Kinds::search(n, copy(n), v); }
  // Yields key number n; a string key must come back as the very pointer
  // that was inserted.
  int32_t yield(uint32_t *n, void **v, uint32_t *pos) {
    const char *s = nullptr;
    int32_t rc = Kinds::yield(n, &s, v, pos);
    if (rc == 1 && kind != kInt) {
      *n = static_cast<uint32_t>(std::stoul(s + 3));
      EXPECT_EQ(s, pool->name(*n)) << "the table must hand back the stored key pointer";
    }
    return rc;
  }
  // Every entry by iteration.
  std::map<uint32_t, void *> all() {
    std::map<uint32_t, void *> out;
    EXPECT_EQ(begin(), 0);
    uint32_t pos = 0, n;
    void *v;
    int32_t rc;
    while ((rc = yield(&n, &v, &pos)) == 1) EXPECT_TRUE(out.emplace(n, v).second) << "key seen twice: " << n;
    EXPECT_EQ(rc, -LHT_ERR_END);
    EXPECT_EQ(end(), 1);
    return out;
  }
};

void *val(uint32_t n) { return reinterpret_cast<void *>(static_cast<uintptr_t>(n) * 16 + 8); }

// ----------------------------------------------------------------- sizing

TEST(LhtEdges, CreationSizes) {
  const struct { uint32_t request, slots; } cases[] = {
      {0, 521}, {1, 11}, {5, 11}, {11, 11}, {12, 17}, {17, 17}, {18, 37}, {521, 521}, {522, 1031},
      {1031, 1031}, {1032, 2053}, {65537, 65537}, {65538, 131101},
  };
  for (int kind : {kInt, kStr, kArb})
    for (auto &c : cases) {
      LhtTable *t = make(kind, nullptr, c.request, nullptr);
      ASSERT_NE(t, nullptr);
      EXPECT_EQ(lht_internal::table_size(t), c.slots) << kind_name(kind) << " request " << c.request;
      Pool pool;
      Face{{kind, t}, &pool}.destroy();
    }
  EXPECT_EQ(LhtIntCreate(nullptr, nullptr, LHT_MAX_ENTRIES + 1, nullptr), nullptr);
  EXPECT_EQ(LhtStrCreate(nullptr, nullptr, UINT32_MAX, nullptr), nullptr);
  EXPECT_EQ(LhtArbCreate(nullptr, nullptr, 10, nullptr, nullptr, str_cmp, nullptr), nullptr);
  EXPECT_EQ(LhtArbCreate(nullptr, nullptr, 10, nullptr, fnv_hash, nullptr, nullptr), nullptr);
  LhtMem half{nullptr, CountingAlloc::alloc, nullptr, nullptr};
  EXPECT_EQ(LhtIntCreate(nullptr, nullptr, 10, &half), nullptr);
  LhtMem heap_without_ctx{reinterpret_cast<lmmheap *>(&half), nullptr, nullptr, nullptr};
  EXPECT_EQ(LhtIntCreate(nullptr, nullptr, 10, &heap_without_ctx), nullptr);
}

TEST(LhtEdges, DuplicatesIterationAndEnd) {
  for (int kind : {kInt, kStr, kArb}) {
    SCOPED_TRACE(kind_name(kind));
    Pool pool;
    Face f{{kind, make(kind, nullptr, 0, nullptr)}, &pool};
    uint32_t pos = 0, n = 0;
    void *v = nullptr;
    ASSERT_EQ(f.begin(), 0);
    EXPECT_EQ(f.yield(&n, &v, &pos), -LHT_ERR_END) << "empty table ends at once";
    EXPECT_EQ(f.insert(1, val(1)), -LHT_ERR_ITER);
    EXPECT_EQ(f.remove(1, &v), -LHT_ERR_ITER);
    EXPECT_EQ(f.resize(5), -LHT_ERR_ITER);
    EXPECT_EQ(f.destroy(), -LHT_ERR_ITER) << "a table being iterated is not freed";
    EXPECT_EQ(f.end(), 1);
    EXPECT_EQ(f.end(), -LHT_ERR_ARG) << "no iteration open";

    EXPECT_EQ(f.insert(7, val(7)), 1);
    EXPECT_EQ(f.insert(7, val(8)), -LHT_ERR_DUP);
    EXPECT_EQ(f.search(7, &v), 1);
    EXPECT_EQ(v, val(7)) << "the first value stays";
    EXPECT_EQ(f.search(8, &v), -LHT_ERR_NOKEY);
    EXPECT_EQ(f.search(7, nullptr), 1);

    // Two iterations at once: changes wait for both to end.
    ASSERT_EQ(f.begin(), 0);
    ASSERT_EQ(f.begin(), 0);
    EXPECT_EQ(f.end(), 1);
    EXPECT_EQ(f.insert(9, val(9)), -LHT_ERR_ITER);
    EXPECT_EQ(f.search(7, &v), 1) << "searches go on during iteration";
    pos = 0;
    EXPECT_EQ(f.yield(&n, nullptr, &pos), 1);
    EXPECT_EQ(n, 7u);
    EXPECT_EQ(f.yield(&n, &v, &pos), -LHT_ERR_END);
    pos = 521;
    EXPECT_EQ(f.yield(&n, &v, &pos), -LHT_ERR_END) << "position at the size";
    pos = UINT32_MAX;
    EXPECT_EQ(f.yield(&n, &v, &pos), -LHT_ERR_END);
    EXPECT_EQ(f.end(), 1);
    EXPECT_EQ(f.insert(9, val(9)), 1);
    EXPECT_EQ(f.destroy(), 1);
  }
  // Null arguments and tables of another kind.
  LhtTable *ti = LhtIntCreate(nullptr, nullptr, 0, nullptr);
  LhtTable *ts = LhtStrCreate(nullptr, nullptr, 0, nullptr);
  uint32_t k, pos = 0;
  const char *s;
  EXPECT_EQ(LhtIntYield(ti, nullptr, nullptr, &pos), -LHT_ERR_ARG);
  EXPECT_EQ(LhtIntYield(ti, &k, nullptr, nullptr), -LHT_ERR_ARG);
  EXPECT_EQ(LhtStrInsert(ts, nullptr, nullptr), -LHT_ERR_ARG);
  EXPECT_EQ(LhtStrSearch(ts, nullptr, nullptr), -LHT_ERR_ARG);
  EXPECT_EQ(LhtStrInsert(ti, "x", nullptr), -LHT_ERR_ARG);
  EXPECT_EQ(LhtIntInsert(ts, 1, nullptr), -LHT_ERR_ARG);
  EXPECT_EQ(LhtStrYield(ti, &s, nullptr, &pos), -LHT_ERR_ARG);
  EXPECT_EQ(LhtArbDestroy(ti), -LHT_ERR_ARG);
  EXPECT_EQ(LhtIntInsert(nullptr, 1, nullptr), -LHT_ERR_ARG);
  EXPECT_EQ(LhtIntSearch(nullptr, 1, nullptr), -LHT_ERR_ARG);
  EXPECT_EQ(LhtIntBeginIter(nullptr), -LHT_ERR_ARG);
  EXPECT_EQ(LhtInqResize(ti, 2), -LHT_ERR_ARG);
  EXPECT_EQ(LhtInqResize(ti, 26), -LHT_ERR_ARG);
  for (uint32_t i = 0; i < 20; ++i) ASSERT_EQ(LhtIntInsert(ti, i, nullptr), 1);
  EXPECT_EQ(LhtInqResize(ti, 3), -LHT_ERR_FULL) << "20 entries do not fit 11 slots";
  EXPECT_EQ(LhtInqResize(ti, 4), -LHT_ERR_FULL) << "nor 17";
  EXPECT_EQ(LhtInqResize(ti, 5), 1);
  EXPECT_EQ(lht_internal::table_size(ti), 37u);
  EXPECT_EQ(LhtIntDestroy(ti), 1);
  EXPECT_EQ(LhtStrDestroy(ts), 1);
}

// ------------------------------------------------------ randomised model

struct ModelCase {
  int kind;
  AllocKind alloc;
  uint32_t initial;
  uint32_t chunk_limit;  // 0: the real limit (one chunk)
  LhtArbHashFn hash;
};

// Mirrors the sizing rule independently: the size-list position after each
// successful insert or remove.
struct SizeModel {
  uint32_t ix;
  void inserted(size_t count) {
    if (count > kSizes[ix] - 1 && ix < 25) ++ix;
  }
  void removed(size_t count) {
    if (count < kSizes[ix] / 4 && ix > 3) --ix;
  }
};

void run_model(const ModelCase &mc, uint32_t ops, uint32_t universe, uint64_t seed) {
  SCOPED_TRACE(std::string(kind_name(mc.kind)) + "/" + alloc_name(mc.alloc) + " initial " +
               std::to_string(mc.initial) + " chunk " + std::to_string(mc.chunk_limit));
  CountingAlloc counting;
  LhtMem cb = counting.mem();
  lmmheap *heap = nullptr;
  LhtMem hm{};
  const LhtMem *mem = nullptr;
  lcorectx *ctx = nullptr;
  if (mc.alloc == AllocKind::Callback) mem = &cb;
  if (mc.alloc == AllocKind::Heap) {
    ctx = lib();
    ASSERT_NE(ctx, nullptr);
    ASSERT_EQ(lmmhpinit(ctx->lmmctx, &heap, lmmtophp(ctx->lmmctx), 0, nullptr, "lht test", __LINE__, nullptr), 0);
    hm.heap = heap;
    mem = &hm;
  }
  Pool pool;
  Face f{{mc.kind, make(mc.kind, ctx, mc.initial, mem, mc.chunk_limit, mc.hash)}, &pool};
  ASSERT_NE(f.t, nullptr);
  SizeModel sm{static_cast<uint32_t>(lht_internal::index_for_request(mc.initial))};
  std::unordered_map<uint32_t, void *> model;
  std::vector<uint32_t> present;                 // the model's keys, for picking one at random
  std::unordered_map<uint32_t, size_t> where;    // key -> index in present
  auto add = [&](uint32_t k) {
    where[k] = present.size();
    present.push_back(k);
  };
  auto drop = [&](uint32_t k) {
    size_t i = where[k];
    where[present.back()] = i;
    present[i] = present.back();
    present.pop_back();
    where.erase(k);
  };
  std::mt19937_64 rng(seed);
  uint32_t max_size = 0;
  bool saw_shrink = false;
  for (uint32_t op = 0; op < ops; ++op) {
    // Phases: fill, drain, churn, so that tables grow and shrink repeatedly.
    uint32_t phase = (op / 2500) % 3;
    uint32_t insert_pct = phase == 0 ? 65 : phase == 1 ? 5 : 35;
    uint32_t remove_pct = phase == 0 ? 10 : phase == 1 ? 70 : 35;
    uint32_t r = static_cast<uint32_t>(rng() % 100);
    uint32_t key = static_cast<uint32_t>(rng() % universe);
    // Most removes and searches name a present key, the rest a random one.
    if (r >= insert_pct && !present.empty() && rng() % 4 != 0) key = present[rng() % present.size()];
    void *v = reinterpret_cast<void *>(uintptr_t{0xDEAD});
    bool has = model.count(key) != 0;
    uint32_t before = lht_internal::table_size(f.t);
    if (r < insert_pct) {
      void *nv = reinterpret_cast<void *>(static_cast<uintptr_t>(rng()));
      int32_t rc = f.insert(key, nv);
      ASSERT_EQ(rc, has ? -LHT_ERR_DUP : 1) << "insert " << key << " op " << op;
      if (!has) {
        model[key] = nv;
        add(key);
        sm.inserted(model.size());
      }
    } else if (r < insert_pct + remove_pct) {
      int32_t rc = f.remove(key, &v);
      ASSERT_EQ(rc, has ? 1 : -LHT_ERR_NOKEY) << "remove " << key << " op " << op;
      if (has) {
        ASSERT_EQ(v, model[key]);
        model.erase(key);
        drop(key);
        sm.removed(model.size());
      } else {
        ASSERT_EQ(v, reinterpret_cast<void *>(uintptr_t{0xDEAD})) << "output untouched on failure";
      }
    } else {
      int32_t rc = f.search(key, &v);
      ASSERT_EQ(rc, has ? 1 : -LHT_ERR_NOKEY) << "search " << key << " op " << op;
      if (has) ASSERT_EQ(v, model[key]);
    }
    uint32_t size = lht_internal::table_size(f.t);
    ASSERT_EQ(size, kSizes[sm.ix]) << "op " << op << " entries " << model.size();
    ASSERT_EQ(lht_internal::table_count(f.t), model.size());
    ASSERT_LT(model.size(), size) << "a free slot always remains";
    max_size = std::max(max_size, size);
    saw_shrink |= size < before;
    if (op % 1499 == 0) {
      std::map<uint32_t, void *> seen = f.all();
      ASSERT_EQ(seen.size(), model.size());
      for (auto &[k, mv] : model) ASSERT_EQ(seen[k], mv) << k;
    }
  }
  EXPECT_GT(max_size, 1031u);
  EXPECT_TRUE(saw_shrink);
  if (mc.chunk_limit != 0) EXPECT_GT(lht_internal::table_chunks(f.t), 1u);
  // Drain completely: back to the smallest size.
  for (auto &[k, mv] : model) {
    void *v;
    ASSERT_EQ(f.remove(k, &v), 1);
  }
  EXPECT_EQ(lht_internal::table_size(f.t), 11u);
  // Blocks for the caller come from the table's allocator and go back to it.
  void *block = LhtqmAlloc(f.t, 40);
  ASSERT_NE(block, nullptr);
  memset(block, 1, 40);
  LhtqmFree(f.t, block);
  EXPECT_EQ(LhtqmAlloc(f.t, 0), nullptr);
  EXPECT_EQ(f.destroy(), 1);
  if (mc.alloc == AllocKind::Callback) {
    EXPECT_EQ(counting.live_blocks(), 0u) << "every chunk given back";
    EXPECT_EQ(counting.bad_frees, 0);
  }
  if (heap != nullptr) EXPECT_EQ(lmmhpfree(lib()->lmmctx, heap, 0), 0);
}

TEST(LhtModel, AllKindsAllocatorsAndChunks) {
  std::vector<std::pair<ModelCase, uint32_t>> cases;  // and the number of operations
  for (int kind : {kInt, kStr, kArb}) {
    for (AllocKind a : {AllocKind::System, AllocKind::Callback, AllocKind::Heap})
      for (uint32_t initial : {0u, 12u}) cases.push_back({{kind, a, initial, 0, fnv_hash}, 14000});
    // Chunks of 7 and 1000 slots: the chunk arithmetic of lookups, resize
    // and iteration, which real sizes (one chunk up to 33554467 slots) never use.
    for (uint32_t limit : {7u, 1000u}) cases.push_back({{kind, AllocKind::Callback, 1, limit, fnv_hash}, 9000});
  }
  // Every key with the same home slot: the stride of 14 must still reach
  // every slot, and the longest probe paths must stay right.
  cases.push_back({{kArb, AllocKind::System, 1, 0, const_hash}, 8000});
  uint64_t seed = 1;
  for (auto &[mc, ops] : cases) run_model(mc, ops, ops * 3 / 7, seed++);
}

// ------------------------------------------------------------------ probes

// Walks the probe path of an integer key independently (with the exported
// hash functions, checked above against the Python model) and compares the
// answer of the probe function.
TEST(LhtProbe, IntegerPathMatchesIndependentWalk) {
  LhtTable *t = LhtIntCreate(nullptr, nullptr, 1000, nullptr);
  std::mt19937 rng(5);
  std::unordered_map<uint32_t, bool> in;
  for (int i = 0; i < 900; ++i) {
    uint32_t k = rng() % 3000;
    if (LhtIntInsert(t, k, nullptr) == 1) in[k] = true;
  }
  for (int i = 0; i < 400; ++i) {
    uint32_t k = rng() % 3000;
    if (LhtIntRemove(t, k, nullptr) == 1) in.erase(k);
  }
  uint32_t size = lht_internal::table_size(t);
  uint32_t any;
  LhtIntSlot *s0;
  ASSERT_EQ(LhtInqGetIndex(t, in.begin()->first, &any, &s0), LHT_FOUND);
  const LhtIntSlot *base = s0 - any;  // one chunk: slots are contiguous
  int deleted_paths = 0;
  for (uint32_t k = 0; k < 3000; ++k) {
    uint32_t i = LhtInq1Hash(k, size), step = LhtInq2Hash(k, size), first_del = UINT32_MAX, want = UINT32_MAX;
    bool found = false;
    for (uint32_t n = 0; n < size; ++n, i = (i + step) % size) {
      const LhtIntSlot &s = base[i];
      if (s.state == LHT_SLOT_EMPTY) {
        want = first_del != UINT32_MAX ? first_del : i;
        break;
      }
      if (s.state == LHT_SLOT_DELETED && first_del == UINT32_MAX) first_del = i;
      if (s.state == LHT_SLOT_USED && s.key == k) {
        found = true;
        want = i;
        break;
      }
    }
    deleted_paths += !found && first_del != UINT32_MAX;
    uint32_t got;
    LhtIntSlot *slot;
    ASSERT_EQ(LhtInqGetIndex(t, k, &got, &slot), found ? LHT_FOUND : LHT_NOTFOUND) << k;
    ASSERT_EQ(found, in.count(k) == 1) << k;
    ASSERT_EQ(got, want) << k;
    ASSERT_EQ(slot, base + want);
  }
  EXPECT_GT(deleted_paths, 50) << "the case of a reused deleted slot was exercised";
  LhtIntDestroy(t);
}

// Searches stop at the reach or the marks of the key's home slot, and read
// ahead on large integer tables; the probe functions walk on to the empty
// slot. On tables kept full by churn (long paths, deleted slots, reaches too
// long to count) both must agree with the model on every key, present or not.
// Churn at a constant count can also use up every empty slot (the last one
// taken by an insert whose path met no deleted slot): then no path ends
// early, and a search for a missing key must give up after `size` probes.
struct AgreeCase {
  int kind;
  uint32_t chunk;    // 0: one chunk
  uint32_t request;  // creation size
  uint32_t free;     // slots left free while churning
  int rounds;        // remove-insert pairs; 0: until no slot is empty
};

TEST(LhtProbe, SearchesAgreeWithTheFullProbe) {
  const AgreeCase cases[] = {
      {kInt, 0, 1000, 1, 3000},   {kStr, 0, 1000, 1, 3000},   {kArb, 0, 1000, 1, 3000},
      {kInt, 100, 1000, 1, 3000}, {kStr, 100, 1000, 1, 3000}, {kArb, 100, 1000, 1, 3000},
      // Past kCachedBytes of slots: the read-ahead of integer searches.
      {kInt, 0, 16000, 800, 4000},
      {kInt, 0, 1, 1, 0}, {kStr, 4, 1, 1, 0}, {kArb, 0, 1, 1, 0}, {kArb, 4, 1, 1, 0},
  };
  for (const AgreeCase &c : cases) {
    const int kind = c.kind;
    SCOPED_TRACE(std::string(kind_name(kind)) + " chunk " + std::to_string(c.chunk) + " size " +
                 std::to_string(c.request));
    Pool pool;
    Face f{{kind, make(kind, nullptr, c.request, nullptr, c.chunk)}, &pool};
    ASSERT_NE(f.t, nullptr);
    const uint32_t size = lht_internal::table_size(f.t);
    if (c.request > 10000) ASSERT_GT(size_t{size} * sizeof(LhtIntSlot), lht_internal::kCachedBytes);
    // Slots whose state or reach is `want`.
    auto count = [&](bool reach, uint32_t want) {
      const lht_internal::Storage &st = f.t->st;
      uint32_t n = 0;
      for (uint32_t i = 0; i < size; ++i) {
        auto &s = static_cast<const lht_internal::ISlot<uint64_t> *>(st.chunks[i / st.per_chunk])[i % st.per_chunk];
        n += (reach ? s.reach : s.state) == want;
      }
      return n;
    };
    const uint32_t universe = c.rounds == 0 ? 100 : 3 * size;
    std::mt19937 rng(kind * 10 + c.chunk + c.request);
    std::vector<uint32_t> in;
    std::vector<bool> has(universe);
    while (in.size() < size - c.free) {
      uint32_t k = rng() % universe;
      if (has[k]) continue;
      ASSERT_EQ(f.insert(k, val(k)), 1);
      has[k] = true;
      in.push_back(k);
    }
    for (int round = 0; c.rounds == 0 ? round < 10000 && count(false, LHT_SLOT_EMPTY) != 0 : round < c.rounds;
         ++round) {
      size_t i = rng() % in.size();
      uint32_t k;
      do k = rng() % universe;
      while (has[k]);
      void *v;
      ASSERT_EQ(f.remove(in[i], &v), 1);
      has[in[i]] = false;
      ASSERT_EQ(f.insert(k, val(k)), 1);
      has[k] = true;
      in[i] = k;
    }
    ASSERT_EQ(lht_internal::table_size(f.t), size) << "the count stays, so does the size";
    if (c.rounds == 0) ASSERT_EQ(count(false, LHT_SLOT_EMPTY), 0u);
    if (c.rounds != 0 && c.free == 1)
      EXPECT_GT(count(true, lht_internal::kReachOpen), 0u) << "some home's entries went further than a reach can count";
    for (uint32_t k = 0; k < universe; ++k) {
      void *pv = nullptr;
      int32_t pr = f.probe(k, f.copy(k), nullptr, &pv);
      ASSERT_EQ(pr, has[k] ? LHT_FOUND : LHT_NOTFOUND) << k;
      void *v = nullptr;
      ASSERT_EQ(f.search(k, &v), has[k] ? 1 : -LHT_ERR_NOKEY) << k;
      if (has[k]) ASSERT_EQ(v, val(k)) << k;
      if (pr == LHT_FOUND) ASSERT_EQ(v, pv) << k;
    }
    EXPECT_EQ(f.destroy(), 1);
  }
}

}  // namespace
