// Heaps: the model-independent layer of the memory manager, its start and
// stop, package sub-contexts and the object block lists.
//
// Every public call checks its arguments, takes the heap mutex when the heap
// locks, calls the model operation and records what failed. Internal
// requests of the manager (model state, extents from a parent heap) carry
// the flags 0x420000 / 0x600000 and leave the operation's mark to the
// outermost call, so that one failure shows one mark. Test builds can refuse
// any allocation call (fault point SL_FAULT_HEAP, also reachable as
// lmmfailnth) as if the model had failed.
//
// Sections: recording; extents and model state; heaps; allocation calls;
// start and stop; package sub-contexts; test builds only.
#include <cstring>
#include <new>

#include "kelmsg_kelcore_lmm.h"
#include "memory/lmm_impl.h"
#include "memory/models_impl.h"
#include "sys/cslock_impl.h"
#include "sys/fault_impl.h"

using namespace lmm_internal;

namespace lmm_internal {

// -------------------------------------------------------------- recording

void rec(lmmctx *c, uint8_t *flag, int32_t msg, int32_t sub, ...) noexcept {
  if (c == nullptr || c->fac == nullptr) return;
  va_list ap;
  va_start(ap, sub);
  lwemopv(c->lwe, c->fac, flag, msg, sub, ap);
  va_end(ap);
}

void fail(lmmctx *c, int32_t sub, const char *text) noexcept {
  rec(c, nullptr, kelmsg::LMM_INTERNAL, sub, LEM_ARG_TEXT, text, LEM_ARG_END);
}

// ------------------------------------------------ extents and model state

void *extent_get(lmmctx *c, lmmheap *heap, size_t size, int32_t sub, const char *text, const char *comment,
                 int32_t line) noexcept {
  void *p;
  if (heap->parent == nullptr)
    p = slwmmgetmem(size);
  else
    p = lmmmalloc(c, heap->parent, size, kOwnAlloc, comment, line);
  if (p == nullptr && sub != 0) fail(c, sub, text);
  return p;
}

void extent_put(lmmctx *c, lmmheap *heap, void *p, size_t size) noexcept {
  if (heap->parent == nullptr)
    slwmmputmem(p, size);
  else
    lmmfree(c, heap->parent, p, kOwnFree);
}

void *state_get(lmmctx *c, lmmheap *heap, size_t size, const char *comment, int32_t line) noexcept {
  if (heap->parent == nullptr) return ss_mem_calc(size);
  return lmmcalloc(c, heap->parent, size, kOwnAlloc, comment, line);
}

void state_put(lmmctx *c, lmmheap *heap, void *p) noexcept {
  if (heap->parent == nullptr)
    ss_mem_fre(p);
  else
    lmmfree(c, heap->parent, p, kOwnFree);
}

}  // namespace lmm_internal

namespace {

// The mark of a public call goes on its first record unless the call is one
// of the manager's own nested requests.
inline uint8_t *op_flag(uint32_t flags, uint8_t *flag) noexcept {
  return (flags & kOwnAllocCis) == kOwnAllocCis ? nullptr : flag;
}

// The heap mutex is a critical section of the system layer; taking it here
// through the section's inline path is what sltsmna/sltsmnr do, without two
// calls around every allocation.
inline void heap_enter(lmmheap *h) noexcept { sl_internal::cs_enter(&h->mutex.cs); }
inline void heap_leave(lmmheap *h) noexcept { sl_internal::cs_leave(&h->mutex.cs); }

class HeapLock {
 public:
  HeapLock(lmmctx *, lmmheap *h) noexcept : h_(h->locking ? h : nullptr) {
    if (h_) heap_enter(h_);
  }
  ~HeapLock() {
    if (h_) heap_leave(h_);
  }
  HeapLock(const HeapLock &) = delete;
  HeapLock &operator=(const HeapLock &) = delete;

 private:
  lmmheap *h_;
};

// Quick paths: a small request of a standard heap that its class list or its
// current chunk can serve, a request that a fast heap's current extent can
// hold, and the free of a small block that leaves its chunk in use. They do
// exactly what the model operations do in those cases (same blocks, same
// tags and headers); everything else goes through the heap's table. A heap
// is recognised by its table's address, so a heap made with any other table
// (even a copy of one of these) always goes through it.
inline void *quick_alloc(lmmheap *h, size_t n) noexcept {
  using namespace lmm_model;
  if (h->ops == &kFastOps) return fs_bump(h, n);
  if (h->ops != &kStandardOps || n > kSmallMax) return nullptr;
  auto *m = static_cast<stmodel *>(h->model);
  int k = class_of(n);
  if (m->cls[k] != nullptr) return st_pop(m, k);
  chunk *ch = m->clast;
  if (ch == nullptr || ch->room < block_size(k)) return nullptr;
  return st_carve(ch, k);
}

// True when p was freed here; false when the model's free must do it.
inline bool quick_free(lmmheap *h, void *p) noexcept {
  using namespace lmm_model;
  if (h->ops == &kFastOps) return true;
  if (h->ops != &kStandardOps) return false;
  uint8_t t = tag_of(p);
  if ((t & 0xFC) != kInUse) return false;  // not a small block in use
  auto *m = static_cast<stmodel *>(h->model);
  chunk *ch = chunk_of(p);
  if (ch->inuse <= 1 && ch != m->clast) return false;  // the chunk goes back
  ch->inuse--;
  st_push(m, t & 3, p);
  return true;
}

enum class Call { Malloc, Calloc, Valloc };

// What a request the model could not serve records.
[[gnu::noinline]] void *model_failed(lmmctx *c, uint32_t flags) {
  uint8_t flag = 0;
  rec(c, op_flag(flags, &flag), kelmsg::LMM_INTERNAL, 120, LEM_ARG_TEXT, "Underlying model-specific malloc call failed",
      LEM_ARG_END);
  return nullptr;
}

// Test builds refuse a heap request at fault point SL_FAULT_HEAP as if the
// model had run out of memory. `fault`: this call is where the request
// passes the point (lmmmalloc passes it before its quick path).
[[gnu::noinline]] void *alloc_call(Call kind, void *mctx, lmmheap *heap, size_t size, uint32_t flags,
                                   const char *name, bool fault) {
  lmmctx *c = ctx_of(mctx);
  uint8_t flag = 0;
  if (c == nullptr || heap == nullptr || size == 0) {
    rec(c, op_flag(flags, &flag), kelmsg::LMM_BADARG, 0, LEM_ARG_TEXT, name, LEM_ARG_END);
    return nullptr;
  }
  if (size > LMM_MAX_REQUEST) {
    rec(c, op_flag(flags, &flag), kelmsg::LMM_TOOBIG, 0, LEM_ARG_TEXT, name, LEM_ARG_END);
    return nullptr;
  }
  if (fault && SL_FAULT(SL_FAULT_HEAP)) return model_failed(c, flags);
  void *p;
  {
    HeapLock lock(c, heap);
    p = kind == Call::Malloc   ? heap->ops->malloc(c, heap, size, flags)
        : kind == Call::Calloc ? heap->ops->calloc(c, heap, size, flags)
                               : heap->ops->valloc(c, heap, size, flags);
  }
  return p != nullptr ? p : model_failed(c, flags);
}

[[gnu::noinline]] void *locked_malloc(void *mctx, lmmheap *heap, size_t size, uint32_t flags) {
  heap_enter(heap);
  void *p = quick_alloc(heap, size);
  heap_leave(heap);
  return p != nullptr ? p : alloc_call(Call::Malloc, mctx, heap, size, flags, "lmmmalloc", false);
}

}  // namespace

extern "C" {

// ------------------------------------------------------------------- heaps

KELAPI int32_t lmmhpinit(void *mctx, lmmheap **heap, lmmheap *parent, uint32_t flags, void *reserved,
                         const char *comment, int32_t line, const lmmmfp *model) {
  lmmctx *c = ctx_of(mctx);
  uint8_t flag = 0;
  if (c == nullptr || heap == nullptr || parent == nullptr) {
    rec(c, &flag, kelmsg::LMM_BADARG, 0, LEM_ARG_TEXT, "lmmhpinit", LEM_ARG_END);
    return -1;
  }
  lmmheap *h = *heap;
  bool own = h == nullptr;
  if (own) {
    h = static_cast<lmmheap *>(lmmmalloc(c, parent, sizeof(lmmheap), kOwnAlloc, "lmmhpinit", line));
    if (h == nullptr) {
      rec(c, &flag, kelmsg::LMM_INTERNAL, 61, LEM_ARG_TEXT, "Unable to allocate memory in lmmhpinit", LEM_ARG_END);
      return -1;
    }
  }
  memset(static_cast<void *>(h), 0, sizeof *h);
  h->caller = own ? 0 : 1;
  h->parent = parent;
  h->spare = 0;
  if ((flags & LMM_HP_NOLOCK) == 0) {
    h->locking = 1;
    if (sltsmxi(c->ts, &h->mutex) != 0) {
      rec(c, &flag, kelmsg::LMM_INTERNAL, 330, LEM_ARG_TEXT, "Unable to initialize mutex in lmmhpinit", LEM_ARG_END);
      if (own) lmmfree(c, parent, h, kOwnFree);
      return -1;
    }
  }
  h->ops = model != nullptr ? model : lmmgetstmfp();
  if (h->ops->inithp(c, h, flags) != 0) {
    rec(c, &flag, kelmsg::LMM_INTERNAL, 60, LEM_ARG_TEXT, "lmmhpinit fail due to underlying init heap fail", LEM_ARG_END);
    if (h->locking) sltsmxd(c->ts, &h->mutex);
    if (own) lmmfree(c, parent, h, kOwnFree);
    return -1;
  }
  *heap = h;
  return 0;
}

KELAPI int32_t lmmhpfree(void *mctx, lmmheap *heap, uint32_t flags) {
  lmmctx *c = ctx_of(mctx);
  uint8_t flag = 0;
  if (c == nullptr || heap == nullptr) {
    rec(c, &flag, kelmsg::LMM_BADARG, 0, LEM_ARG_TEXT, "lmmhpfree", LEM_ARG_END);
    return -1;
  }
  int32_t rc = 0;
  {
    HeapLock lock(c, heap);
    obj_free_all(c, heap);
    if (heap->ops->freehp(c, heap, flags) != 0) rc = -1;
  }
  if (heap->locking && sltsmxd(c->ts, &heap->mutex) != 0) rc = -1;
  if (heap->caller == 0 && heap->parent != nullptr) lmmfree(c, heap->parent, heap, kOwnFree);
  return rc;
}

// -------------------------------------------------------- allocation calls

KELAPI void *lmmmalloc(void *mctx, lmmheap *heap, size_t size, uint32_t flags, const char *comment, int32_t line) {
  // The common case inline; everything else (new chunks and extents, large
  // blocks, bad arguments, failures) takes the checked path out of line.
  auto *c = static_cast<lmmctx *>(mctx);
  if (c != nullptr && heap != nullptr && size - 1 < LMM_MAX_REQUEST && c->magic == kCtxMagic) [[likely]] {
    if (SL_FAULT(SL_FAULT_HEAP)) return model_failed(c, flags);
    if (heap->locking) return locked_malloc(mctx, heap, size, flags);
    if (void *p = quick_alloc(heap, size)) [[likely]] return p;
  }
  return alloc_call(Call::Malloc, mctx, heap, size, flags, "lmmmalloc", false);
}

KELAPI void *lmmcalloc(void *mctx, lmmheap *heap, size_t size, uint32_t flags, const char *comment, int32_t line) {
  return alloc_call(Call::Calloc, mctx, heap, size, flags, "lmmcalloc", true);
}

KELAPI void *lmmvalloc(void *mctx, lmmheap *heap, size_t size, uint32_t flags, const char *comment, int32_t line) {
  return alloc_call(Call::Valloc, mctx, heap, size, flags, "lmmvalloc", true);
}

KELAPI void *lmmrealloc(void *mctx, lmmheap *heap, void *ptr, size_t size, uint32_t flags, const char *comment,
                        int32_t line) {
  lmmctx *c = ctx_of(mctx);
  uint8_t flag = 0;
  if (c == nullptr || heap == nullptr || size == 0) {
    rec(c, &flag, kelmsg::LMM_BADARG, 0, LEM_ARG_TEXT, "lmmrealloc", LEM_ARG_END);
    return nullptr;
  }
  if (size > LMM_MAX_REQUEST) {
    rec(c, &flag, kelmsg::LMM_TOOBIG, 0, LEM_ARG_TEXT, "lmmrealloc", LEM_ARG_END);
    return nullptr;
  }
  if (SL_FAULT(SL_FAULT_HEAP)) return model_failed(c, flags);
  void *p;
  {
    HeapLock lock(c, heap);
    p = heap->ops->realloc(c, heap, ptr, size, flags);
  }
  return p != nullptr ? p : model_failed(c, flags);
}

}  // extern "C"

namespace {

[[gnu::noinline]] int32_t free_call(void *mctx, lmmheap *heap, void *ptr, uint32_t flags) {
  lmmctx *c = ctx_of(mctx);
  uint8_t flag = 0;
  if (c == nullptr || heap == nullptr || ptr == nullptr) {
    rec(c, op_flag(flags, &flag), kelmsg::LMM_BADARG, 0, LEM_ARG_TEXT, "lmmfree", LEM_ARG_END);
    return -1;
  }
  int32_t rc;
  if (!heap->locking && heap->objlist == nullptr) {
    rc = heap->ops->free(c, heap, ptr, flags);
  } else {
    HeapLock lock(c, heap);
    rc = obj_free(c, heap, ptr);
    if (rc == 1) rc = heap->ops->free(c, heap, ptr, flags);
  }
  if (rc != 0) {
    rec(c, op_flag(flags, &flag), kelmsg::LMM_INTERNAL, 240, LEM_ARG_TEXT, "Underyling model-specific free call fail", LEM_ARG_END);
    return -1;
  }
  return 0;
}

// The quick path of a locking heap, out of line so that the unlocked path
// keeps no frame; it falls back to the checked path like the unlocked one.
// The object block list changes under the mutex, so it is looked at only
// while holding it.
[[gnu::noinline]] int32_t locked_free(void *mctx, lmmheap *heap, void *ptr, uint32_t flags) {
  heap_enter(heap);
  bool done = heap->objlist == nullptr && quick_free(heap, ptr);
  heap_leave(heap);
  return done ? 0 : free_call(mctx, heap, ptr, flags);
}

}  // namespace

extern "C" {

KELAPI int32_t lmmfree(void *mctx, lmmheap *heap, void *ptr, uint32_t flags) {
  if (mctx != nullptr && heap != nullptr && ptr != nullptr) [[likely]] {
    if (heap->locking) return locked_free(mctx, heap, ptr, flags);
    if (heap->objlist == nullptr && quick_free(heap, ptr)) [[likely]] return 0;
  }
  return free_call(mctx, heap, ptr, flags);
}

KELAPI lmmheap *lmmtophp(void *mctx) {
  lmmctx *c = ctx_of(mctx);
  return c == nullptr ? nullptr : c->heap;
}

// --------------------------------------------------------- start and stop

KELAPI int32_t lmmrist(lcorectx *ctx, void *handle, int32_t mode) {
  if (ctx == nullptr) return -1;
  auto *lwe = static_cast<lwectx *>(ctx->lwemctx);
  if (mode == 0) {
    lemfac *fac = lwemfaa(lwe, nullptr, "KELCORE", "LMM", kelmsg::LMM_INTERNAL, kelmsg::LMM_FAIL);
    if (fac == nullptr) return -1;
    // The records are built in a fixed order; a failure undoes them all.
    void *product = ss_mem_calc(64);
    lmmctx *c = product ? static_cast<lmmctx *>(ss_mem_calc(sizeof(lmmctx))) : nullptr;
    void *priv = c ? ss_mem_calc(64) : nullptr;
    void *primary = priv ? ss_mem_calc(64) : nullptr;
    const char *why = nullptr;
    int32_t sub = 0;
    if (product == nullptr) sub = 700, why = "In lmmrist: Cannot init product descriptor";
    else if (c == nullptr) sub = 701, why = "In lmmrist: Cannot init lmm context";
    else if (priv == nullptr) sub = 702, why = "In lmmrist: Cannot init priv inst context";
    else if (primary == nullptr) sub = 703, why = "In lmmrist: Cannot init primary context";
    lmmctx tmp{};
    tmp.magic = kCtxMagic;
    tmp.lwe = lwe;
    tmp.fac = fac;
    tmp.ts = lwe ? lwemts(lwe) : nullptr;
    uint8_t flag = 0;
    if (why == nullptr) {
      c->kind = 1;
      c->magic = kCtxMagic;
      c->ts = lwemts(lwe);
      c->lwe = lwe;
      c->fac = fac;
      c->root = c;
      c->product = product;
      c->priv = priv;
      c->primary = primary;
      lmmheap *top = &c->topstore;
      memset(static_cast<void *>(top), 0, sizeof *top);
      top->caller = 1;
      top->locking = 1;
      top->ops = lmmgetstmfp();
      c->top = c->heap = top;
      if (sltsmxi(c->ts, &top->mutex) != 0) {
        sub = 330, why = "Unable to initialize mutex in lmmrist";
      } else if (top->ops->inithp(c, top, 0) != 0) {
        sub = 705, why = "In lmmrist: Cannot init standard context";
        sltsmxd(c->ts, &top->mutex);
      }
    }
    if (why != nullptr) {
      rec(&tmp, &flag, kelmsg::LMM_INTERNAL, sub, LEM_ARG_TEXT, why, LEM_ARG_END);
      rec(&tmp, &flag, kelmsg::LMM_START, 0, LEM_ARG_TEXT, "lmmrist", LEM_ARG_END);
      ss_mem_fre(primary);
      ss_mem_fre(priv);
      ss_mem_fre(c);
      ss_mem_fre(product);
      lwemfaf(lwe, fac);
      return -1;
    }
    ctx->lmmctx = c;
    return 0;
  }
  if (mode != 1) return -1;
  lmmctx *c = ctx_of(ctx->lmmctx);
  if (c == nullptr) return -1;
  int32_t rc = 0;
  uint8_t flag = 0;
  lmmheap *top = c->top;
  if (top->ops->freehp(c, top, 0) != 0) rc = -1;
  if (sltsmxd(c->ts, &top->mutex) != 0) {
    fail(c, 331, "Unable to destroy lock in lmmrist");
    rc = -1;
  }
  if (rc != 0) rec(c, &flag, kelmsg::LMM_STOP, 0, LEM_ARG_TEXT, "lmmrist", LEM_ARG_END);
  lemfac *fac = c->fac;
  ss_mem_fre(c->primary);
  ss_mem_fre(c->priv);
  ss_mem_fre(c->product);
  c->magic = 0;
  ss_mem_fre(c);
  ctx->lmmctx = nullptr;
  if (rc == 0) lwemfaf(lwe, fac);
  return rc;
}

// -------------------------------------------------- package sub-contexts

KELAPI int32_t lmmcis(lcorectx *ctx, void **out, void *component, size_t memopt) {
  lmmctx *c = ctx == nullptr ? nullptr : ctx_of(ctx->lmmctx);
  if (c == nullptr || out == nullptr) return -1;
  lmmctx *root = c->root;
  lmmheap *top = root->top;
  auto *sub = static_cast<lmmctx *>(lmmmalloc(root, top, sizeof(lmmctx), kOwnAllocCis, "lmmcis", 180));
  auto **link = sub ? static_cast<void **>(lmmmalloc(root, top, 2 * sizeof(void *), kOwnAllocCis, "lmmcis", 181))
                    : nullptr;
  void *heaprec = link ? lmmmalloc(root, top, 2 * sizeof(void *), kOwnAllocCis, "lmmcis", 182) : nullptr;
  if (heaprec == nullptr) {
    if (link) lmmfree(root, top, link, kOwnFree);
    if (sub) lmmfree(root, top, sub, kOwnFree);
    return -1;
  }
  // The fixed words of the root's context. Its top-heap storage stays the
  // root's: other threads take that heap's mutex meanwhile.
  static_assert(offsetof(lmmctx, topstore) + sizeof(lmmheap) == sizeof(lmmctx), "topstore must come last");
  std::memcpy(static_cast<void *>(sub), root, offsetof(lmmctx, topstore));
  std::memset(static_cast<void *>(&sub->topstore), 0, sizeof sub->topstore);
  sub->kind = 9;
  sub->extent = memopt != 0 ? memopt : root->extent;
  sub->link = link;
  sub->heaprec = heaprec;
  static_cast<void **>(heaprec)[0] = root;
  static_cast<void **>(heaprec)[1] = nullptr;
  link[0] = component;
  link[1] = heaprec;
  lmmheap *heap = nullptr;
  if (lmmhpinit(sub, &heap, top, 0, nullptr, "lmmcis", 187, nullptr) != 0) {
    lmmfree(root, top, heaprec, kOwnFree);
    lmmfree(root, top, link, kOwnFree);
    sub->magic = 0;
    lmmfree(root, top, sub, kOwnFree);
    return -1;
  }
  sub->heap = heap;
  static_cast<void **>(heaprec)[1] = heap;
  *out = sub;
  return 0;
}

KELAPI int32_t lmmcit(lcorectx *ctx, void *subctx, void *component) {
  lmmctx *sub = ctx_of(subctx);
  if (sub == nullptr || sub->kind != 9) return -1;
  lmmctx *root = sub->root;
  lmmheap *top = root->top;
  int32_t rc = lmmhpfree(sub, sub->heap, 0);
  if (lmmfree(root, top, sub->heaprec, kOwnFree) != 0) rc = -1;
  if (lmmfree(root, top, sub->link, kOwnFree) != 0) rc = -1;
  sub->magic = 0;
  if (lmmfree(root, top, sub, kOwnFree) != 0) rc = -1;
  return rc;
}

}  // extern "C"

#ifdef KEL_TEST_HOOKS
// -------------------------------------------------------- test builds only

extern "C" {

KELAPI int32_t lmmfailnth(int64_t nth, int64_t count) { return slfaultarm(SL_FAULT_HEAP, nth, count); }

KELAPI int64_t lmmfailhits(void) { return slfaulthits(SL_FAULT_HEAP); }

}  // extern "C"
#endif
