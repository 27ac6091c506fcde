// lmm_impl.h - internals of the memory manager shared by its files.
#ifndef KEL_MEMORY_LMM_IMPL_H
#define KEL_MEMORY_LMM_IMPL_H

#include <cstdarg>
#include <cstdint>

#include "error/lwem_impl.h"
#include "lmm.h"

// The memory manager context: one for the library (kind 1) and one per
// package instance (kind 9, a copy of the library's with a heap of its own).
struct lmmctx {
  uint32_t kind;
  uint32_t magic;
  lmmheap *top;     // the root top heap
  lmmheap *heap;    // the heap of this context (top for the root)
  size_t extent;    // default extent size; 0 = the system's
  sltsctx *ts;
  lwectx *lwe;
  lemfac *fac;      // "LMM"
  lmmctx *root;
  void *product;    // records built by lmmrist (kept for their owners)
  void *priv;
  void *primary;
  void **link;      // sub-context: {component record, heap record}
  void *heaprec;
  lmmheap topstore;  // storage of the root top heap
};

namespace lmm_internal {

constexpr uint32_t kCtxMagic = 0x4C4D4D43;  // "LMMC"

// Internal allocation and free flags of the manager's own requests.
constexpr uint32_t kOwnAlloc = 0x420000;
constexpr uint32_t kOwnAllocCis = 0x400000;
constexpr uint32_t kOwnFree = 0x600000;

inline lmmctx *ctx_of(void *mctx) noexcept {
  auto *c = static_cast<lmmctx *>(mctx);
  return (c != nullptr && c->magic == kCtxMagic) ? c : nullptr;
}

// Records message `msg` with sub-code `sub` under "LMM"; the record is the
// operation's mark when *flag is 0 (flag may be null: no mark).
void rec(lmmctx *c, uint8_t *flag, int32_t msg, int32_t sub, ...) noexcept;
// Internal failure: message 3 with sub-code and the place's text.
void fail(lmmctx *c, int32_t sub, const char *text) noexcept;

// Extents of a heap: from the system for a top heap, from the parent
// otherwise. Null on failure (the failure is recorded with `sub`/`text`).
void *extent_get(lmmctx *c, lmmheap *heap, size_t size, int32_t sub, const char *text, const char *comment,
                 int32_t line) noexcept;
void extent_put(lmmctx *c, lmmheap *heap, void *p, size_t size) noexcept;

// Model state of a heap: from the system for a top heap, else its parent.
void *state_get(lmmctx *c, lmmheap *heap, size_t size, const char *comment, int32_t line) noexcept;
void state_put(lmmctx *c, lmmheap *heap, void *p) noexcept;

// The object block list of a heap (called with the heap mutex held).
int32_t obj_free(lmmctx *c, lmmheap *heap, void *ptr) noexcept;
int32_t obj_free_all(lmmctx *c, lmmheap *heap) noexcept;

// Standard model internals for tests: the usable size of a live block and
// the in-use flag of its tag.
size_t st_usable(const void *p) noexcept;
int32_t st_in_use(const void *p) noexcept;
// Usable size of the large block a small block's chunk was cut from.
size_t st_chunk_usable(const void *small) noexcept;

}  // namespace lmm_internal

#endif
