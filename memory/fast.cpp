// The fast heap model: a bump pointer through extents.
//
// Each extent starts with {previous extent, next free byte, end of the
// extent, allocations, total size} (models_impl.h); each allocation is
// preceded by a 16-byte header {rounded size, 0} so that realloc knows how
// much to copy. Single frees do
// nothing: the heap is meant to die whole. Extents grow with the request (five
// times it, at least 8 KiB) so that a run of like requests costs one extent
// per five.
#include <cstring>

#include "memory/lmm_impl.h"
#include "memory/models_impl.h"

using namespace lmm_internal;
using namespace lmm_model;

namespace {

constexpr size_t kHdr = kFsHdr;
constexpr size_t kMinExtent = 8192;
constexpr size_t kHuge = 0x7FFFD8A0;

fsvrt *new_vrt(lmmctx *c, lmmheap *heap, size_t size, bool quiet) noexcept {
  if (heap->parent == nullptr) {
    size_t page = slmmvallocsz();
    size = (size + page - 1) & ~(page - 1);
  }
  void *p = quiet ? nullptr : extent_get(c, heap, size, 0, nullptr, "lmmfsvr", 120);
  if (p == nullptr) return nullptr;
  auto *v = static_cast<fsvrt *>(p);
  v->prev = static_cast<fsmodel *>(heap->model)->cur;
  v->free = static_cast<char *>(p) + sizeof(fsvrt);
  v->end = static_cast<char *>(p) + size;
  v->count = 0;
  v->total = size;
  static_cast<fsmodel *>(heap->model)->cur = v;
  return v;
}

// A new extent for a request of r bytes (header included).
fsvrt *grow(lmmctx *c, lmmheap *heap, size_t r) noexcept {
  size_t exact = r + sizeof(fsvrt);
  if (r >= kHuge / 5) return new_vrt(c, heap, exact, false);
  size_t want = 5 * r + 80;
  if (want < kMinExtent) want = kMinExtent;
  fsvrt *v = new_vrt(c, heap, want, false);
  if (v == nullptr) v = new_vrt(c, heap, exact, false);
  return v;
}

int32_t fs_init(void *mctx, lmmheap *heap, uint32_t flags) {
  lmmctx *c = ctx_of(mctx);
  auto *m = static_cast<fsmodel *>(state_get(c, heap, sizeof(fsmodel), "lmmfshi", 60));
  if (m == nullptr) {
    fail(c, 600, "In Fast hpinit: generic malloc fail.");
    return -1;
  }
  m->cur = nullptr;
  heap->model = m;
  if (new_vrt(c, heap, kMinExtent, false) == nullptr) {
    fail(c, 601, "In Fast hpinit: fast get vrt blk fail.");
    heap->model = nullptr;
    state_put(c, heap, m);
    return -1;
  }
  return 0;
}

int32_t fs_freehp(void *mctx, lmmheap *heap, uint32_t flags) {
  lmmctx *c = ctx_of(mctx);
  auto *m = static_cast<fsmodel *>(heap->model);
  if (m == nullptr) return -1;
  for (fsvrt *v = m->cur; v != nullptr;) {
    fsvrt *prev = v->prev;
    extent_put(c, heap, v, v->total);
    v = prev;
  }
  heap->model = nullptr;
  state_put(c, heap, m);
  return 0;
}

void *fs_malloc(void *mctx, lmmheap *heap, size_t n, uint32_t flags) {
  size_t r = ((n + 7) & ~size_t{7}) + kHdr;
  auto *m = static_cast<fsmodel *>(heap->model);
  fsvrt *v = m->cur;
  if (static_cast<size_t>(v->end - v->free) < r) [[unlikely]] {
    lmmctx *c = ctx_of(mctx);
    v = grow(c, heap, r);
    if (v == nullptr) {
      fail(c, 610, "In Fast malloc: fast get vrt blk fail.");
      return nullptr;
    }
  }
  v->count++;
  char *p = v->free;
  v->free += r;
  reinterpret_cast<size_t *>(p)[0] = r - kHdr;
  reinterpret_cast<size_t *>(p)[1] = 0;
  return p + kHdr;
}

int32_t fs_free(void *, lmmheap *, void *, uint32_t) { return 0; }

void *fs_calloc(void *mctx, lmmheap *heap, size_t n, uint32_t flags) {
  void *p = fs_malloc(mctx, heap, n, flags);
  if (p != nullptr) memset(p, 0, n);
  return p;
}

void *fs_realloc(void *mctx, lmmheap *heap, void *p, size_t n, uint32_t flags) {
  if (p == nullptr) return fs_malloc(mctx, heap, n, flags);
  size_t have = reinterpret_cast<size_t *>(static_cast<char *>(p) - kHdr)[0];
  if (n <= have) return p;
  void *q = fs_malloc(mctx, heap, n, flags);
  if (q != nullptr) memcpy(q, p, have);
  return q;
}

// Page-aligned: allocate with room to step forward, and keep a header in
// front of the aligned block so that realloc still finds its size.
void *fs_memalign(void *mctx, lmmheap *heap, size_t n, size_t align, uint32_t flags) {
  auto *raw = static_cast<char *>(fs_malloc(mctx, heap, n + align + kHdr, flags));
  if (raw == nullptr) return nullptr;
  auto a = (reinterpret_cast<uintptr_t>(raw) + kHdr + align - 1) & ~(uintptr_t{align} - 1);
  char *p = reinterpret_cast<char *>(a);
  reinterpret_cast<size_t *>(p - kHdr)[0] = n;
  reinterpret_cast<size_t *>(p - kHdr)[1] = 0;
  return p;
}

void *fs_valloc(void *mctx, lmmheap *heap, size_t n, uint32_t flags) {
  return fs_memalign(mctx, heap, n, slmmvallocsz(), flags);
}


}  // namespace

namespace lmm_model {
const lmmmfp kFastOps = {fs_init, fs_freehp, fs_malloc, fs_free, fs_calloc, fs_realloc, fs_valloc};
}

extern "C" KELAPI const lmmmfp *lmmgetfsmfp(void) { return &kFastOps; }
