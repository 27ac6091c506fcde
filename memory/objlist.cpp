// Object block lists: blocks of a heap kept on the heap's own list, so that
// they can be told from ordinary blocks and released with the heap. Each
// listed block is preceded by a 32-byte node {next, previous, start of the
// model block, user size}. lmmfree offers every pointer here first; a heap
// that never used the lists answers at once.
#include <cstring>

#include "kelmsg_kelcore_lmm.h"
#include "memory/lmm_impl.h"
#include "sys/fault_impl.h"

using namespace lmm_internal;

namespace {

struct objnode {
  objnode *next;
  objnode *prev;
  void *real;
  size_t size;
};
static_assert(sizeof(objnode) == 32);

objnode *&head_of(lmmheap *h) noexcept { return *reinterpret_cast<objnode **>(&h->objlist); }

void link_node(lmmheap *h, objnode *n) noexcept {
  n->prev = nullptr;
  n->next = head_of(h);
  if (n->next) n->next->prev = n;
  head_of(h) = n;
}

void unlink_node(lmmheap *h, objnode *n) noexcept {
  if (n->prev) n->prev->next = n->next; else head_of(h) = n->next;
  if (n->next) n->next->prev = n->prev;
}

objnode *find_node(lmmheap *h, void *ptr) noexcept {
  for (objnode *n = head_of(h); n != nullptr; n = n->next)
    if (reinterpret_cast<char *>(n + 1) == ptr) return n;
  return nullptr;
}

class Lock {
 public:
  Lock(lmmctx *c, lmmheap *h) noexcept : c_(c), h_(h->locking ? h : nullptr) {
    if (h_) sltsmna(c_->ts, &h_->mutex);
  }
  ~Lock() {
    if (h_) sltsmnr(c_->ts, &h_->mutex);
  }
  Lock(const Lock &) = delete;
  Lock &operator=(const Lock &) = delete;

 private:
  lmmctx *c_;
  lmmheap *h_;
};

// A listed block of `size` user bytes aligned to `align` (0: none).
void *listed(void *mctx, lmmheap *heap, size_t size, size_t align, bool zero, uint32_t flags) {
  lmmctx *c = ctx_of(mctx);
  uint8_t flag = 0;  // the first record of a failure carries its mark
  if (c == nullptr || heap == nullptr || size == 0 || size > LMM_MAX_REQUEST) {
    rec(c, &flag, kelmsg::LMM_BADARG, 0, LEM_ARG_TEXT, "lmmomallocblklist", LEM_ARG_END);
    return nullptr;
  }
  Lock lock(c, heap);
  size_t total = size + sizeof(objnode) + align;
  auto *real = SL_FAULT(SL_FAULT_HEAP) ? nullptr : static_cast<char *>(heap->ops->malloc(c, heap, total, flags));
  if (real == nullptr) {
    rec(c, &flag, kelmsg::LMM_INTERNAL, 120, LEM_ARG_TEXT, "Underlying model-specific malloc call failed", LEM_ARG_END);
    return nullptr;
  }
  char *user = real + sizeof(objnode);
  if (align != 0) {
    auto a = (reinterpret_cast<uintptr_t>(user) + align - 1) & ~(uintptr_t{align} - 1);
    user = reinterpret_cast<char *>(a);
  }
  auto *n = reinterpret_cast<objnode *>(user) - 1;
  n->real = real;
  n->size = size;
  link_node(heap, n);
  if (zero) memset(user, 0, size);
  return user;
}

}  // namespace

namespace lmm_internal {

int32_t obj_free(lmmctx *c, lmmheap *heap, void *ptr) noexcept {
  if (heap->objlist == nullptr) return 1;
  objnode *n = find_node(heap, ptr);
  if (n == nullptr) return 1;
  unlink_node(heap, n);
  return heap->ops->free(c, heap, n->real, kOwnFree);
}

int32_t obj_free_all(lmmctx *c, lmmheap *heap) noexcept {
  int32_t rc = 0;
  while (objnode *n = head_of(heap)) {
    unlink_node(heap, n);
    if (heap->ops->free(c, heap, n->real, kOwnFree) != 0) rc = -1;
  }
  return rc;
}

}  // namespace lmm_internal

extern "C" {

KELAPI void *lmmomallocblklist(void *mctx, lmmheap *heap, size_t size, uint32_t flags) {
  return listed(mctx, heap, size, 0, false, flags);
}

KELAPI void *lmmocallocblklist(void *mctx, lmmheap *heap, size_t size, uint32_t flags) {
  return listed(mctx, heap, size, 0, true, flags);
}

KELAPI void *lmmovallocblklist(void *mctx, lmmheap *heap, size_t size, uint32_t flags) {
  return listed(mctx, heap, size, slmmvallocsz(), false, flags);
}

KELAPI void *lmmoreallocblklist(void *mctx, lmmheap *heap, void *ptr, size_t size, uint32_t flags) {
  if (ptr == nullptr) return listed(mctx, heap, size, 0, false, flags);
  lmmctx *c = ctx_of(mctx);
  if (c == nullptr || heap == nullptr) return nullptr;
  size_t have;
  {
    Lock lock(c, heap);
    objnode *n = find_node(heap, ptr);
    if (n == nullptr) {
      rec(c, nullptr, kelmsg::LMM_BADARG, 0, LEM_ARG_TEXT, "lmmoreallocblklist", LEM_ARG_END);
      return nullptr;
    }
    have = n->size;
  }
  if (size <= have) return ptr;
  void *q = listed(mctx, heap, size, 0, false, flags);
  if (q == nullptr) return nullptr;
  memcpy(q, ptr, have);
  lmmofreeblklist(mctx, heap, ptr, flags);
  return q;
}

KELAPI int32_t lmmofreeblklist(void *mctx, lmmheap *heap, void *ptr, uint32_t flags) {
  lmmctx *c = ctx_of(mctx);
  if (c == nullptr || heap == nullptr || ptr == nullptr) return -1;
  Lock lock(c, heap);
  return obj_free(c, heap, ptr);
}

KELAPI int32_t lmmohfreeblklist(void *mctx, lmmheap *heap, uint32_t flags) {
  lmmctx *c = ctx_of(mctx);
  if (c == nullptr || heap == nullptr) return -1;
  Lock lock(c, heap);
  return obj_free_all(c, heap);
}

}  // extern "C"
