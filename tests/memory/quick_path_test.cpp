// The inline paths of lmmmalloc/lmmfree against the model operations they
// stand in for, and the order of the standard model's class lists.
//
// A heap whose table is a copy of a model's table is never recognised by the
// quick paths, so every request of it goes through the table. Two heaps, one
// of each kind, given the same random requests must hand out the same blocks:
// same tags and headers, same places in their chunks and extents, the same
// freed block reused at the same moment, the same class lists. Addresses of
// two heaps differ, so blocks, chunks and extents are compared by the order
// in which each heap first showed them.
//
// The class lists are checked against a plain list kept by the test: a free
// pushes at the head, an allocation takes the head, and a chunk that goes
// back to the large pool takes its blocks off the lists without disturbing
// the order of the others.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "lem.h"
#include "lmm.h"
#include "lpm.h"
#include "memory/heap_fixture.h"
#include "memory/lmm_impl.h"
#include "memory/models_impl.h"

namespace {

using namespace lmm_model;

// What one heap showed for a request, with its own addresses replaced by
// names (numbers by first appearance), so that the records of two heaps can
// be compared.
struct Observer {
  std::map<const void *, long> ids;
  long of(const void *p) { return ids.try_emplace(p, static_cast<long>(ids.size())).first->second; }

  std::string show(bool fast, lmmheap *h, void *p) {
    char b[200];
    if (p == nullptr) return "null";
    const auto at = [](const void *x, const void *base) { return static_cast<const char *>(x) - static_cast<const char *>(base); };
    if (fast) {
      fsvrt *v = static_cast<fsmodel *>(h->model)->cur;
      auto *hdr = reinterpret_cast<size_t *>(static_cast<char *>(p) - kFsHdr);
      snprintf(b, sizeof b, "fast hdr={%zu,%zu} extent=%ld at=%td count=%zu left=%td total=%zu", hdr[0], hdr[1], of(v),
               at(p, v), v->count, v->end - v->free, v->total);
    } else if ((tag_of(p) & 7) <= 3) {
      chunk *ch = chunk_of(p);
      snprintf(b, sizeof b, "small tag=%d block=%ld chunk=%ld at=%td inuse=%zu room=%zu", tag_of(p), of(p), of(ch),
               at(p, ch), ch->inuse, ch->room);
    } else {
      snprintf(b, sizeof b, "large tag=%d block=%ld size=%zu", tag_of(p), of(p), hdr_of(p)->size);
    }
    return b;
  }

  // The class lists, head first, as block names.
  std::string lists(lmmheap *h) {
    auto *m = static_cast<stmodel *>(h->model);
    std::string s;
    for (int k = 0; k < 4; k++) {
      s += "|";
      for (sfree *f = m->cls[k]; f != nullptr; f = f->next) s += std::to_string(of(f)) + ",";
    }
    return s;
  }
};

class QuickPaths : public Heaps {};

// Mostly small requests, around the class edges, with some large ones so
// that chunks are carved from blocks the large path left behind.
size_t request(std::mt19937_64 &rng) {
  static const size_t edges[] = {1, 8, 9, 23, 24, 55, 56, 119, 120, 247};
  switch (rng() % 6) {
    case 0: return edges[rng() % std::size(edges)];
    case 1: return 248 + rng() % 3000;
    default: return 1 + rng() % 247;
  }
}

TEST_F(QuickPaths, SameBlocksAsTheModelTable) {
  struct Case {
    const char *name;
    const lmmmfp *model;
    uint32_t flags;
  } cases[] = {
      {"standard single-thread", lmmgetstmfp(), LMM_HP_NOLOCK},
      {"standard locking", lmmgetstmfp(), 0},
      {"fast single-thread", lmmgetfsmfp(), LMM_HP_NOLOCK},
      {"fast locking", lmmgetfsmfp(), 0},
  };
  for (const Case &c : cases) {
    for (uint64_t seed = 1; seed <= 4; seed++) {
      SCOPED_TRACE(std::string(c.name) + " seed " + std::to_string(seed));
      const lmmmfp plain_ops = *c.model;  // same operations, unrecognised table
      lmmheap *quick = make(c.model, c.flags);
      lmmheap *plain = make(&plain_ops, c.flags);
      ASSERT_NE(quick, nullptr);
      ASSERT_NE(plain, nullptr);
      bool fast = c.model == lmmgetfsmfp();
      Observer oq, op;
      std::mt19937_64 rng(seed);
      std::vector<std::pair<void *, void *>> live;
      for (int step = 0; step < 6000; step++) {
        // Runs of allocations then runs of frees, so that chunks empty out
        // whole as well as one block at a time.
        bool alloc = live.empty() || ((step / 300) % 2 == 0 ? rng() % 4 != 0 : rng() % 4 == 0);
        if (alloc) {
          size_t n = request(rng);
          void *pq = lmmmalloc(mctx, quick, n, 0, "t", 1);
          void *pp = lmmmalloc(mctx, plain, n, 0, "t", 1);
          ASSERT_NE(pq, nullptr);
          ASSERT_EQ(oq.show(fast, quick, pq), op.show(fast, plain, pp)) << "malloc of " << n << " at step " << step;
          live.emplace_back(pq, pp);
        } else {
          size_t i = rng() % live.size();
          // Mostly the newest blocks (freed in a row), sometimes any.
          if (rng() % 2 == 0) i = live.size() - 1 - i % std::min<size_t>(live.size(), 8);
          auto [pq, pp] = live[i];
          live.erase(live.begin() + static_cast<long>(i));
          ASSERT_EQ(lmmfree(mctx, quick, pq, 0), 0);
          ASSERT_EQ(lmmfree(mctx, plain, pp, 0), 0);
        }
        if (!fast) ASSERT_EQ(oq.lists(quick), op.lists(plain)) << "class lists differ at step " << step;
      }
      EXPECT_EQ(lmmhpfree(mctx, quick, 0), 0);
      EXPECT_EQ(lmmhpfree(mctx, plain, 0), 0);
    }
  }
}

// The class lists against the test's own lists: a freed small block goes on
// the head of its class list unless its chunk empties and goes back (then
// every block of that chunk leaves the lists); an allocation of a class whose
// list is not empty takes the head. Free orders cover one chunk emptied in a
// row (its blocks back to back on a list) and scattered orders (its blocks in
// many runs among other chunks' blocks).
TEST_F(QuickPaths, ClassListsKeepTheirOrder) {
  struct Case {
    const char *name;
    uint32_t flags;
    int scatter;  // out of 4: how often a free picks any live block
  } cases[] = {
      {"in a row, single-thread", LMM_HP_NOLOCK, 0},
      {"in a row, locking", 0, 0},
      {"scattered", LMM_HP_NOLOCK, 4},
      {"mixed", LMM_HP_NOLOCK, 2},
  };
  for (const Case &c : cases) {
    for (uint64_t seed = 1; seed <= 3; seed++) {
      SCOPED_TRACE(std::string(c.name) + " seed " + std::to_string(seed));
      lmmheap *h = make(lmmgetstmfp(), c.flags);
      ASSERT_NE(h, nullptr);
      auto *m = static_cast<stmodel *>(h->model);
      std::deque<void *> expect[4];
      // The chunk of each small block, noted while it is live: a block's own
      // bytes are not read once its chunk may have gone back.
      std::map<void *, chunk *> chunk_at;
      auto chunks = [&] {
        std::set<chunk *> s;
        for (chunk *ch = m->cfirst; ch != nullptr; ch = ch->next) s.insert(ch);
        return s;
      };
      // Blocks of chunks that went back leave the expected lists.
      auto drop_gone = [&] {
        std::set<chunk *> alive = chunks();
        for (auto &l : expect)
          l.erase(std::remove_if(l.begin(), l.end(), [&](void *p) { return alive.count(chunk_at[p]) == 0; }), l.end());
      };
      auto same_lists = [&] {
        for (int k = 0; k < 4; k++) {
          std::vector<void *> got;
          sfree *prev = nullptr;
          for (sfree *f = m->cls[k]; f != nullptr; prev = f, f = f->next) {
            if (f->prev != prev) return false;  // links that disagree
            got.push_back(f);
          }
          if (got != std::vector<void *>(expect[k].begin(), expect[k].end())) return false;
        }
        return true;
      };
      std::mt19937_64 rng(seed * 7919);
      std::vector<void *> live;
      for (int step = 0; step < 8000; step++) {
        bool alloc = live.empty() || ((step / 500) % 2 == 0 ? rng() % 5 != 0 : rng() % 5 == 0);
        if (alloc) {
          size_t n = rng() % 8 == 0 ? 248 + rng() % 2000 : 1 + rng() % 247;
          int k = n <= 23 ? 0 : n <= 55 ? 1 : n <= 119 ? 2 : 3;
          void *want = n <= kSmallMax && !expect[k].empty() ? expect[k].front() : nullptr;
          void *p = lmmmalloc(mctx, h, n, 0, "t", 1);
          ASSERT_NE(p, nullptr);
          if (want != nullptr) {
            ASSERT_EQ(p, want) << "class " << k << " did not take its list's head at step " << step;
            expect[k].pop_front();
          }
          live.push_back(p);
          if ((tag_of(p) & 7) <= 3) chunk_at[p] = chunk_of(p);
        } else {
          size_t i = static_cast<int>(rng() % 4) < c.scatter ? rng() % live.size() : live.size() - 1;
          void *p = live[i];
          live.erase(live.begin() + static_cast<long>(i));
          bool small = (tag_of(p) & 7) <= 3;
          int k = tag_of(p) & 3;
          ASSERT_EQ(lmmfree(mctx, h, p, 0), 0);
          if (small && chunks().count(chunk_at[p]) != 0) expect[k].push_front(p);
        }
        drop_gone();
        ASSERT_TRUE(same_lists()) << "class lists differ at step " << step;
      }
      EXPECT_EQ(lmmhpfree(mctx, h, 0), 0);
    }
  }
}

}  // namespace
