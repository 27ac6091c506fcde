/*
 * lmm.h - the memory manager: heaps made from larger extents, nested inside
 * each other and freed whole.
 *
 * A heap is served by one of two models through a table of seven operations:
 * the standard model (size-classed small blocks in chunks, best-fitting large
 * blocks in 64-byte buckets, freed memory reused) and the fast model (a bump
 * pointer through extents; single frees do nothing, the heap dies whole).
 * Extents of a top heap come from the system (slwmmgetmem); those of any other
 * heap are allocated from its parent heap.
 *
 * `mctx` is the memory manager context: field lmmctx of the context record
 * (lpm.h). Failures are recorded on the calling thread's error stack under
 * facility "LMM" of product "KELCORE" (messages 3 with a sub-code, 33 null
 * argument, 34 size too large) and the heap stays usable.
 *
 * Thread safety: a heap made without LMM_HP_NOLOCK takes its mutex around
 * every operation and may be shared by threads; one made with it is for one
 * thread at a time. Small blocks (at most 247 bytes) are 16-byte aligned,
 * larger ones 8-byte aligned; lmmvalloc gives page alignment.
 */
#ifndef LMM_H
#define LMM_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"
#include "lpm.h"
#include "sl.h"

KEL_BEGIN_DECLS

struct lmmheap;

/* The seven model operations, in table order. They take no lock (lmm* calls
 * hold the heap mutex around them) and report failure with null or -1. */
typedef struct lmmmfp {
  int32_t (*inithp)(void *mctx, struct lmmheap *heap, uint32_t flags);
  int32_t (*freehp)(void *mctx, struct lmmheap *heap, uint32_t flags);
  void *(*malloc)(void *mctx, struct lmmheap *heap, size_t size, uint32_t flags);
  int32_t (*free)(void *mctx, struct lmmheap *heap, void *ptr, uint32_t flags);
  void *(*calloc)(void *mctx, struct lmmheap *heap, size_t size, uint32_t flags);
  void *(*realloc)(void *mctx, struct lmmheap *heap, void *ptr, size_t size, uint32_t flags);
  void *(*valloc)(void *mctx, struct lmmheap *heap, size_t size, uint32_t flags);
} lmmmfp;

/* Heap descriptor. Callers may supply its storage to lmmhpinit; otherwise
 * the manager allocates it from the parent heap. Fields are the manager's. */
typedef struct lmmheap {
  struct lmmheap *parent;  /* heap that supplies the extents; null for a top heap */
  void *model;             /* model state */
  const lmmmfp *ops;       /* model operations */
  uint64_t caller;         /* 1: storage given by the caller */
  sltsmx mutex;            /* heap mutex (locking heaps) */
  uint64_t spare;
  uint64_t locking;        /* 1: every operation takes the mutex */
  void *objlist;           /* object block list (lmmo*blklist) */
} lmmheap;

/* Heap creation flag: no mutex, one thread at a time. */
#define LMM_HP_NOLOCK 0x1u
/* Request flag of the standard model: take the extent size of a new extent
 * from bits 0-4 of the flags (times 8192 bytes). */
#define LMM_EXTSZ 0x20u

/* Largest request lmmmalloc passes on to the model. */
#define LMM_MAX_REQUEST 2147473647u

/* The standard and the fast model's operation tables. */
KELAPI const lmmmfp *lmmgetstmfp(void);
KELAPI const lmmmfp *lmmgetfsmfp(void);

/* Makes a heap whose extents come from `parent`. *heap is either null (the
 * descriptor is allocated from the parent) or caller storage for it. `model`
 * null selects the standard model. flags: LMM_HP_NOLOCK. `comment` and
 * `line` are for diagnostics only. 0 / -1 (then *heap is not a heap; caller
 * storage may be reused). */
KELAPI int32_t lmmhpinit(void *mctx, lmmheap **heap, lmmheap *parent, uint32_t flags, void *reserved,
                         const char *comment, int32_t line, const lmmmfp *model);

/* Frees a heap, everything allocated in it, and its descriptor unless the
 * caller supplied it. Heaps made inside it must be freed first. 0 / -1. */
KELAPI int32_t lmmhpfree(void *mctx, lmmheap *heap, uint32_t flags);

/* Allocates `size` bytes (1 to LMM_MAX_REQUEST) from `heap`; null on failure
 * (message 33 for a null argument or size 0, 34 for a size too large, 3 when
 * the model fails). The block is not cleared. */
KELAPI void *lmmmalloc(void *mctx, lmmheap *heap, size_t size, uint32_t flags, const char *comment, int32_t line);

/* As lmmmalloc, the block cleared to zero. */
KELAPI void *lmmcalloc(void *mctx, lmmheap *heap, size_t size, uint32_t flags, const char *comment, int32_t line);

/* As lmmmalloc, the block aligned to the system page size. */
KELAPI void *lmmvalloc(void *mctx, lmmheap *heap, size_t size, uint32_t flags, const char *comment, int32_t line);

/* Resizes `ptr` (null: as lmmmalloc) to `size` bytes, keeping the smaller of
 * the old and new contents. Returns the block (possibly moved), or null with
 * `ptr` untouched and still owned by the caller. */
KELAPI void *lmmrealloc(void *mctx, lmmheap *heap, void *ptr, size_t size, uint32_t flags, const char *comment,
                        int32_t line);

/* Frees `ptr`, a block of `heap`. A pointer whose tag says free or invalid is
 * refused (message 33) and nothing is freed. In a fast heap it does nothing.
 * 0 / -1. */
KELAPI int32_t lmmfree(void *mctx, lmmheap *heap, void *ptr, uint32_t flags);

/* The heap of a memory context: the root top heap for the library's own
 * context, the instance heap for a package's sub-context. */
KELAPI lmmheap *lmmtophp(void *mctx);

/* The start/stop entry of the memory manager in the family table (mode 0
 * start, 1 stop, else -1). Called by lpminitm/lpmterm only. */
KELAPI int32_t lmmrist(lcorectx *ctx, void *handle, int32_t mode);

/* Makes the memory sub-context of a package instance: a context of its own
 * with a locking standard heap inside the top heap; memopt, when not 0,
 * becomes the default extent size. *out receives the sub-context. 0 / -1. */
KELAPI int32_t lmmcis(lcorectx *ctx, void **out, void *component, size_t memopt);

/* Ends a sub-context made by lmmcis, freeing its heap. 0 / -1. */
KELAPI int32_t lmmcit(lcorectx *ctx, void *sub, void *component);

/* Object block lists: blocks kept on a per-heap list so that they can be
 * found and released with the heap. Allocation calls are as lmmmalloc & co.
 * lmmofreeblklist answers 0 when it freed a listed block, 1 when `ptr` is not
 * on the heap's list, -1 on failure. lmmohfreeblklist frees every listed
 * block of the heap. */
KELAPI void *lmmomallocblklist(void *mctx, lmmheap *heap, size_t size, uint32_t flags);
KELAPI void *lmmocallocblklist(void *mctx, lmmheap *heap, size_t size, uint32_t flags);
KELAPI void *lmmovallocblklist(void *mctx, lmmheap *heap, size_t size, uint32_t flags);
KELAPI void *lmmoreallocblklist(void *mctx, lmmheap *heap, void *ptr, size_t size, uint32_t flags);
KELAPI int32_t lmmofreeblklist(void *mctx, lmmheap *heap, void *ptr, uint32_t flags);
KELAPI int32_t lmmohfreeblklist(void *mctx, lmmheap *heap, uint32_t flags);

#ifdef KEL_TEST_HOOKS
/* ------------------------------------------------------ test builds only
 * Out of memory on demand, for the caller's own failure tests. A library
 * built with KEL_TEST_HOOKS (its test builds) exports these two functions; a
 * release build has neither. Compile the tests that use them with
 * KEL_TEST_HOOKS defined.
 *
 * lmmfailnth makes heap allocation number `nth`, counted from this call
 * (1 = the next one), and the `count` - 1 after it fail as if the heap had
 * run out of memory (count < 0: every one from the nth on); nth 0 turns the
 * failures off. Heap allocations are the calls lmmmalloc, lmmcalloc,
 * lmmrealloc, lmmvalloc and lmmo*blklist on any heap from any thread, the
 * library's own included: a heap's extents taken from its parent, heap
 * descriptors, and whatever a family allocates on a heap (parameter values,
 * hash tables, transition arrays, log records, HTTP responses...). A refused
 * allocation behaves as a real failure: null, and message 3 with sub-code
 * 120 of "LMM" on the calling thread's stack. Returns 0, or -1 when nth < 0.
 * It is fault point SL_FAULT_HEAP of sl.h under another name.
 *
 * lmmfailhits: the number of heap allocations refused since the last
 * lmmfailnth. */
KELAPI int32_t lmmfailnth(int64_t nth, int64_t count);
KELAPI int64_t lmmfailhits(void);
#endif

KEL_END_DECLS

#endif /* LMM_H */
