// The standard heap model.
//
// Design. Requests of at most 247 bytes are small: they are served from four
// size classes (23, 55, 119, 247 usable bytes) carved out of 8 KiB chunks;
// each small block carries 9 bytes before the user area: a tag byte and the
// address of its chunk. Freed small blocks go on a per-class free list
// (doubly linked, so that a chunk whose last block is freed can take its
// blocks off the lists and return to the large pool at once). The chunk
// being carved is kept even when empty, so that a malloc/free pair does not
// fetch and return a chunk every time; it is released when the next chunk
// replaces it.
//
// Larger requests are rounded to 64 bytes and served from large blocks: each
// has a 40-byte header (physical neighbours, usable size, the tag in the
// header's 32nd byte, the bucket it is filed in) and, while free, the bucket
// links in its user area. Free large blocks are filed in 1025 buckets (size /
// 64 below 64 KiB, bucket 1024 above) with a two-level bitmap over buckets
// 0-1023, so the first non-empty bucket at or above a size is found with two
// bit scans. Free neighbours merge on free; a block with room to spare is cut
// when the rest would be at least 296 bytes.
//
// Large blocks live in virtual blocks (extents): the system's pages for a
// top heap, a block of the parent heap otherwise. Each ends with a 32-byte
// trailer {start, next extent, next free extent, total size}. When a free
// block spans its whole extent the extent goes on the heap's free-extent
// list; more than kKeepFreeExtents of those are handed back.
//
// Sections: layout; bucket bitmap; extents; cutting and merging; chunks and
// small blocks; the seven operations; the table.
#include <bit>
#include <cstring>

#include "kelmsg_kelcore_lmm.h"
#include "memory/lmm_impl.h"
#include "memory/models_impl.h"

using namespace lmm_internal;
using namespace lmm_model;

namespace {

// Free extents a heap keeps for reuse before handing them back: enough
// that a heap which shrinks and grows again does not go back to the system
// (or its parent) every time, bounded so that a heap that was once large
// does not hold its peak for ever.
constexpr size_t kKeepFreeExtents = 64;
constexpr size_t kKeepFreeBytes = size_t{256} << 20;
// New extents grow with the heap: at least a quarter of what it holds, up
// to kMaxGrowth, so that a heap of many large blocks needs few extents.
constexpr size_t kMaxGrowth = size_t{64} << 20;

// ---------------------------------------------------------- bucket bitmap

void file_free(stmodel *m, large *b) noexcept {
  int i = bucket_of(b->size);
  b->tag = kLarge;
  b->bucket = &m->bucket[i];
  b->bprev = nullptr;
  b->bnext = m->bucket[i];
  if (b->bnext) b->bnext->bprev = b;
  m->bucket[i] = b;
  if (i < 1024 && b->bnext == nullptr) {
    m->bits[i >> 5] |= 1u << (i & 31);
    m->summary |= 1u << (i >> 5);
  }
}

void unfile(stmodel *m, large *b) noexcept {
  if (b->bprev) b->bprev->bnext = b->bnext; else *b->bucket = b->bnext;
  if (b->bnext) b->bnext->bprev = b->bprev;
  int i = static_cast<int>(b->bucket - m->bucket);
  if (i < 1024 && m->bucket[i] == nullptr) {
    m->bits[i >> 5] &= ~(1u << (i & 31));
    if (m->bits[i >> 5] == 0) m->summary &= ~(1u << (i >> 5));
  }
  b->bucket = nullptr;
}

// First free block of at least n bytes (n a multiple of 64), or null.
large *find_fit(stmodel *m, size_t n) noexcept {
  int i = bucket_of(n);
  if (i < 1024) {
    int w = i >> 5;
    uint32_t bits = m->bits[w] & (~0u << (i & 31));
    if (bits) {
      return m->bucket[(w << 5) + std::countr_zero(bits)];
    }
    uint32_t s = w == 31 ? 0 : m->summary & (~0u << (w + 1));
    if (s) {
      int w2 = std::countr_zero(s);
      return m->bucket[(w2 << 5) + std::countr_zero(m->bits[w2])];
    }
  }
  for (large *b = m->bucket[1024]; b != nullptr; b = b->bnext)
    if (b->size >= n) return b;
  return nullptr;
}

// ------------------------------------------------------------------ extents

// An extent whose first large block (free, unfiled) has at least n usable
// bytes; n already includes nothing of the overhead.
large *get_vrt(lmmctx *c, lmmheap *heap, stmodel *m, size_t n, uint32_t flags) noexcept {
  size_t need = n + kVrtOverhead;
  for (vtrail **pp = &m->freev; *pp != nullptr; pp = &(*pp)->freenext) {
    vtrail *t = *pp;
    if (t->total >= need) {
      *pp = t->freenext;
      t->freenext = nullptr;
      m->nfreev--;
      m->freebytes -= t->total;
      return reinterpret_cast<large *>(t->start);
    }
  }
  size_t ext = (flags & LMM_EXTSZ) ? (flags & 31u) * 8192 : c->extent ? c->extent : slmmstmsr();
  size_t grow = m->vbytes / 4 < kMaxGrowth ? m->vbytes / 4 : kMaxGrowth;
  if (ext < grow) ext = grow;
  size_t size = need > ext ? need : ext;
  if (heap->parent == nullptr) {
    size_t page = slmmvallocsz();
    size = (size + page - 1) & ~(page - 1);
  } else {
    size = (size + 63) & ~size_t{63};
  }
  char *p = static_cast<char *>(extent_get(c, heap, size, heap->parent ? 430 : 340,
                                           heap->parent ? "In Std getvrt: generic malloc fail."
                                                        : "Call to slwmmgetmem failed in lmmstvrt",
                                           "lmmstvr", 221));
  if (p == nullptr) return nullptr;
  auto *t = reinterpret_cast<vtrail *>(p + size - kTrailer);
  t->start = p;
  t->total = size;
  t->freenext = nullptr;
  t->next = m->allv;
  m->allv = t;
  m->vbytes += size;
  auto *b = reinterpret_cast<large *>(p);
  b->pphys = b->nphys = nullptr;
  b->size = size - kVrtOverhead;
  b->tag = kLarge;
  b->bucket = nullptr;
  return b;
}

// Hands an extent back to where it came from and forgets it.
void release_vrt(lmmctx *c, lmmheap *heap, stmodel *m, vtrail *t) noexcept {
  for (vtrail **pp = &m->allv; *pp != nullptr; pp = &(*pp)->next) {
    if (*pp == t) {
      *pp = t->next;
      break;
    }
  }
  m->vbytes -= t->total;
  extent_put(c, heap, t->start, t->total);
}

// A free block that spans its whole extent: keep a few extents for reuse.
void park_vrt(lmmctx *c, lmmheap *heap, stmodel *m, large *b) noexcept {
  vtrail *t = trailer_of(b);
  if (m->nfreev >= kKeepFreeExtents || m->freebytes + t->total > kKeepFreeBytes) {
    release_vrt(c, heap, m, t);
    return;
  }
  b->tag = kLarge;
  t->freenext = m->freev;
  m->freev = t;
  m->nfreev++;
  m->freebytes += t->total;
}

// ----------------------------------------------------- cutting and merging

// Keeps `want` bytes of the in-use block b and files the rest as a new free
// block when it is worth a header.
void cut(stmodel *m, large *b, size_t want) noexcept {
  if (want < kMinLarge) want = kMinLarge;
  if (b->size < want + kMinRest) return;
  auto *rest = reinterpret_cast<large *>(user_of(b) + want);
  rest->size = b->size - want - kLargeHdr;
  rest->pphys = b;
  rest->nphys = b->nphys;
  if (b->nphys) b->nphys->pphys = rest;
  b->nphys = rest;
  b->size = want;
  file_free(m, rest);
}

inline bool is_free_large(large *b) noexcept { return b != nullptr && b->tag == kLarge; }

// Frees large block b: merge with free neighbours, then file it or park its
// extent.
void free_large(lmmctx *c, lmmheap *heap, stmodel *m, large *b) noexcept {
  b->tag = kLarge;
  if (is_free_large(b->nphys)) {
    large *n = b->nphys;
    unfile(m, n);
    b->size += n->size + kLargeHdr;
    b->nphys = n->nphys;
    if (n->nphys) n->nphys->pphys = b;
  }
  if (is_free_large(b->pphys)) {
    large *p = b->pphys;
    unfile(m, p);
    p->size += b->size + kLargeHdr;
    p->nphys = b->nphys;
    if (b->nphys) b->nphys->pphys = p;
    b = p;
  }
  if (b->pphys == nullptr && b->nphys == nullptr) {
    park_vrt(c, heap, m, b);
    return;
  }
  file_free(m, b);
}

// ------------------------------------------------- chunks and small blocks

// Returns an empty chunk to the large pool: its free blocks leave their
// class lists first (all but `except`, the block being freed, which is on
// none). Rather than unlinking them one by one, each run of them that lies
// back to back on a list is cut out at once, joining the list from the
// block before the run to the block after it; the blocks left on the lists
// keep their order. Blocks freed in a row form one run per class, which a
// single pass over the chunk finds with its two ends; otherwise each run's
// end is found by following the list from its start.
//
// The pass steps from block to block by their tags, but a chunk usually
// holds one class only, and then the blocks sit at a fixed stride: the pass
// assumes that stride (so no load waits for the one before) and falls back
// to following the tags when a tag says otherwise. The stride reaches every
// block up to the first of another class, so that block is always seen.
void free_chunk(lmmctx *c, lmmheap *heap, stmodel *m, chunk *ch, void *except) noexcept {
  char *lo = first_block(ch), *hi = ch->free;
  // One unsigned comparison; a null link falls outside too.
  auto inside = [base = reinterpret_cast<uintptr_t>(lo), span = static_cast<uintptr_t>(hi - lo)](sfree *f) {
    return reinterpret_cast<uintptr_t>(f) - base < span;
  };
  auto cut_out = [m](int k, sfree *before, sfree *after) {
    if (before) before->next = after; else m->cls[k] = after;
    if (after) after->prev = before;
  };
  sfree *first[4] = {}, *last[4] = {};
  int runs[4] = {};
  auto note = [&](char *user, int k) {
    if (user == except) return;
    auto *f = reinterpret_cast<sfree *>(user);
    if (!inside(f->prev)) {
      first[k] = f;
      runs[k]++;
    }
    if (!inside(f->next)) last[k] = f;
  };
  bool uniform = true;
  if (lo < hi) {
    int k0 = tag_of(lo + kSmallHdr) & 3;
    size_t step = block_size(k0);
    for (char *blk = lo; blk < hi; blk += step) {
      if ((tag_of(blk + kSmallHdr) & 3) != k0) {
        uniform = false;
        break;
      }
      note(blk + kSmallHdr, k0);
    }
  }
  if (!uniform) {
    for (int k = 0; k < 4; k++) first[k] = last[k] = nullptr, runs[k] = 0;
    for (char *blk = lo; blk < hi;) {
      int k = tag_of(blk + kSmallHdr) & 3;
      note(blk + kSmallHdr, k);
      blk += block_size(k);
    }
  }
  bool simple = runs[0] <= 1 && runs[1] <= 1 && runs[2] <= 1 && runs[3] <= 1;
  if (simple) {
    for (int k = 0; k < 4; k++)
      if (runs[k] == 1) cut_out(k, first[k]->prev, last[k]->next);
  } else {
    for (char *blk = lo; blk < hi;) {
      char *user = blk + kSmallHdr;
      int k = tag_of(user) & 3;
      blk += block_size(k);
      auto *f = reinterpret_cast<sfree *>(user);
      if (user == except || inside(f->prev)) continue;
      sfree *after = f->next;
      while (inside(after)) after = after->next;
      cut_out(k, f->prev, after);
    }
  }
  if (ch->prev) ch->prev->next = ch->next; else m->cfirst = ch->next;
  if (ch->next) ch->next->prev = ch->prev; else m->clast = ch->prev;
  free_large(c, heap, m, reinterpret_cast<large *>(reinterpret_cast<char *>(ch) - kLargeHdr));
}

chunk *get_chunk(lmmctx *c, lmmheap *heap, stmodel *m, uint32_t flags) noexcept {
  large *b = find_fit(m, kChunkFrom);
  if (b != nullptr) {
    unfile(m, b);
  } else {
    b = get_vrt(c, heap, m, kChunk, flags);
    if (b == nullptr) {
      fail(c, 397, "In Std getchnk: get virtual blk fail");
      return nullptr;
    }
  }
  b->tag = kLarge | kInUse;
  if (b->size >= kChunkCut) cut(m, b, kChunk);
  auto *ch = reinterpret_cast<chunk *>(user_of(b));
  ch->inuse = 0;
  ch->free = first_block(ch);
  ch->room = static_cast<size_t>(user_of(b) + b->size - ch->free);
  chunk *old = m->clast;
  ch->next = nullptr;
  ch->prev = old;
  if (old) old->next = ch; else m->cfirst = ch;
  m->clast = ch;
  // The chunk that was kept only because it was being carved goes now.
  if (old != nullptr && old->inuse == 0) free_chunk(c, heap, m, old, nullptr);
  return ch;
}

void *get_small(lmmctx *c, lmmheap *heap, stmodel *m, size_t n, uint32_t flags) noexcept {
  int k = class_of(n);
  if (m->cls[k] != nullptr) return st_pop(m, k);
  chunk *ch = m->clast;
  if (ch == nullptr || ch->room < block_size(k)) {
    ch = get_chunk(c, heap, m, flags);
    if (ch == nullptr) {
      fail(c, 425, "In Std getsml: std get chunk fail");
      return nullptr;
    }
  }
  return st_carve(ch, k);
}

void *get_large(lmmctx *c, lmmheap *heap, stmodel *m, size_t n, uint32_t flags) noexcept {
  n = (n + 63) & ~size_t{63};
  large *b = find_fit(m, n);
  if (b != nullptr) {
    unfile(m, b);
  } else {
    b = get_vrt(c, heap, m, n, flags);
    if (b == nullptr) {
      fail(c, 412, "In Std getlrg: std get vrt blk fail.");
      return nullptr;
    }
  }
  b->tag = kLarge | kInUse;
  cut(m, b, n);
  return user_of(b);
}

// Usable bytes of a live block (any kind), following an aligned block back.
size_t usable(void *p) noexcept {
  uint8_t t = tag_of(p);
  if ((t & 7) == kAligned) {
    size_t dist = *reinterpret_cast<size_t *>(static_cast<char *>(p) - 8);
    return usable(static_cast<char *>(p) - dist) - dist;
  }
  if ((t & 7) == kLarge) return hdr_of(p)->size;
  return kClassSize[t & 7];
}

// ---------------------------------------------------------- the operations

int32_t st_init(void *mctx, lmmheap *heap, uint32_t flags) {
  lmmctx *c = ctx_of(mctx);
  auto *m = static_cast<stmodel *>(state_get(c, heap, sizeof(stmodel), "lmmsthi", 150));
  if (m == nullptr) {
    fail(c, 350, "In Std hpinit: cannot allocate context.");
    return -1;
  }
  memset(m, 0, sizeof *m);
  heap->model = m;
  return 0;
}

int32_t st_freehp(void *mctx, lmmheap *heap, uint32_t flags) {
  lmmctx *c = ctx_of(mctx);
  auto *m = static_cast<stmodel *>(heap->model);
  if (m == nullptr) return -1;
  while (m->allv != nullptr) {
    vtrail *t = m->allv;
    m->allv = t->next;
    extent_put(c, heap, t->start, t->total);
  }
  heap->model = nullptr;
  state_put(c, heap, m);
  return 0;
}

void *st_malloc(void *mctx, lmmheap *heap, size_t n, uint32_t flags) {
  lmmctx *c = ctx_of(mctx);
  auto *m = static_cast<stmodel *>(heap->model);
  if (n <= kSmallMax) {
    void *p = get_small(c, heap, m, n, flags);
    if (p == nullptr) fail(c, 360, "In Std malloc: Get small blk fail");
    return p;
  }
  void *p = get_large(c, heap, m, n, flags);
  if (p == nullptr) fail(c, 361, "In Std malloc: Get large blk fail");
  return p;
}

// A tag that may be freed: in use and of a known kind.
bool valid_tag(uint8_t t) noexcept { return (t & kInUse) != 0 && (t & 7) != 4 && (t & 7) != 5; }

int32_t st_free(void *mctx, lmmheap *heap, void *p, uint32_t flags) {
  lmmctx *c = ctx_of(mctx);
  auto *m = static_cast<stmodel *>(heap->model);
  uint8_t t = tag_of(p);
  if (!valid_tag(t)) {
    rec(c, nullptr, kelmsg::LMM_BADARG, 0, LEM_ARG_TEXT, "lmmfree", LEM_ARG_END);
    return -1;
  }
  if ((t & 7) == kAligned) {
    p = static_cast<char *>(p) - *reinterpret_cast<size_t *>(static_cast<char *>(p) - 8);
    t = tag_of(p);
    if (!valid_tag(t) || (t & 7) == kAligned) {
      rec(c, nullptr, kelmsg::LMM_BADARG, 0, LEM_ARG_TEXT, "lmmfree", LEM_ARG_END);
      return -1;
    }
  }
  if ((t & 7) == kLarge) {
    free_large(c, heap, m, hdr_of(p));
    return 0;
  }
  int k = t & 7;
  chunk *ch = chunk_of(p);
  if (--ch->inuse == 0 && ch != m->clast) {
    free_chunk(c, heap, m, ch, p);
    return 0;
  }
  st_push(m, k, p);
  return 0;
}

void *st_calloc(void *mctx, lmmheap *heap, size_t n, uint32_t flags) {
  void *p = st_malloc(mctx, heap, n, flags);
  if (p != nullptr) memset(p, 0, n);
  return p;
}

void *st_realloc(void *mctx, lmmheap *heap, void *p, size_t n, uint32_t flags) {
  if (p == nullptr) return st_malloc(mctx, heap, n, flags);
  uint8_t t = tag_of(p);
  if (!valid_tag(t)) {
    rec(ctx_of(mctx), nullptr, 33, 0, LEM_ARG_TEXT, "lmmrealloc", LEM_ARG_END);
    return nullptr;
  }
  size_t have = usable(p);
  if (n <= have) return p;
  void *q = st_malloc(mctx, heap, n, flags);
  if (q == nullptr) return nullptr;
  memcpy(q, p, have);
  st_free(mctx, heap, p, flags);
  return q;
}

void *st_valloc(void *mctx, lmmheap *heap, size_t n, uint32_t flags) {
  size_t page = slmmvallocsz();
  // Room to step forward to a page boundary with 16 bytes of tag space.
  auto *real = static_cast<char *>(st_malloc(mctx, heap, n + page + 16 > kSmallMax ? n + page + 16 : kSmallMax + 1,
                                             flags));
  if (real == nullptr) return nullptr;
  auto a = (reinterpret_cast<uintptr_t>(real) + 16 + page - 1) & ~(uintptr_t{page} - 1);
  char *p = reinterpret_cast<char *>(a);
  *reinterpret_cast<size_t *>(p - 8) = static_cast<size_t>(p - real);
  tag_of(p) = kAligned | kInUse;
  return p;
}


}  // namespace

namespace lmm_internal {

size_t st_usable(const void *p) noexcept { return usable(const_cast<void *>(p)); }
int32_t st_in_use(const void *p) noexcept { return (tag_of(const_cast<void *>(p)) & kInUse) ? 1 : 0; }
size_t st_chunk_usable(const void *small) noexcept {
  chunk *ch = chunk_of(const_cast<void *>(small));
  return reinterpret_cast<large *>(reinterpret_cast<char *>(ch) - kLargeHdr)->size;
}

}  // namespace lmm_internal

namespace lmm_model {
const lmmmfp kStandardOps = {st_init, st_freehp, st_malloc, st_free, st_calloc, st_realloc, st_valloc};
}

extern "C" KELAPI const lmmmfp *lmmgetstmfp(void) { return &kStandardOps; }
