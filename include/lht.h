/*
 * lht.h - open-addressing hash tables with integer, string and caller-defined
 * keys.
 *
 * Three kinds share one design and differ only in their keys and probes:
 *   integer    (LhtInt*, LhtInq*)  unsigned 32-bit keys, double hashing with
 *                                  LhtInq1Hash / LhtInq2Hash
 *   string     (LhtStr*, LhtStq*)  NUL-terminated byte strings, double hashing
 *                                  with LhtStq1Hash / LhtStq2Hash
 *   arbitrary  (LhtArb*, LhtArq*)  keys the caller hashes and compares through
 *                                  callbacks; home slot from the caller's hash,
 *                                  then the fixed stride of LhtArqQuad
 *
 * A table maps each key to one pointer-sized value. The table stores keys as
 * given: a string or arbitrary key is kept by pointer, so the caller keeps the
 * key's memory alive and unchanged while the key is in the table. Values are
 * the caller's; the table never looks at them.
 *
 * Sizes. A table has a prime number of slots from a fixed list of 26 sizes
 * (0, 2, 5, 11, 17, 37, 67, 131, 257, 521, 1031, 2053, ... 33554467). It grows
 * to the next size when an insert leaves no slot free, and shrinks to the
 * previous size when a remove leaves fewer entries than a quarter of the
 * slots, never below 11 slots. 33554467 is also the most entries a table holds.
 *
 * Results. Calls return 1 for success (the probe functions 2 / -2, see there)
 * or a negated status code (LHT_ERR_*): -6, -9, -12, ... A failure is
 * recorded once on the calling thread's error stack of the error manager
 * (lem.h) under facility "LHT" of product "KELCORE", message number = the
 * status code, when the table has an error context and that context records
 * errors. Answers that are not failures are returned without a record: a
 * search that misses (-27) and the end of an iteration (-15). Calls on a null
 * table cannot record (no context is known) and only return -6.
 *
 * Memory. Slot storage comes from the allocator chosen at creation (LhtMem):
 * a heap of the memory manager, a caller's pair of callbacks, or the system
 * allocator. The table's own header always comes from the system allocator.
 *
 * Thread safety. Every call on a table but Destroy may come from any number
 * of threads at once (Create is thread-safe too).
 *   - Changes (Insert, Remove, Lht*Resize) and BeginIter / EndIter take the
 *     table's mutex, one at a time.
 *   - Reads (Search, Yield and the probe functions Lht*GetIndex) take no
 *     lock and may overlap each other and any change, the resizes that
 *     inserts and removes cause included. A read answers as the table was
 *     either before or after each change it overlaps, never a mixture: a
 *     search for a key being inserted finds it with its value or misses it,
 *     one for a key being removed finds it with its value or misses it, and
 *     keys that no change touches are found (or missed) as always. A read
 *     never touches memory that a change freed: storage a resize replaced is
 *     freed only once no read can still be in it. A table keeps at most
 *     four replaced storages for reads still in them; once all four are
 *     held, its next change waits until the reads in them end (reads are
 *     short, but a hash or compare callback that blocks holds its read).
 *   - A read that keeps meeting changes (a stream of them on one table)
 *     waits for the mutex after a few tries, so it always ends.
 *   - While any iteration is open, inserts, removes and resizes are refused
 *     (-18), so an iteration sees every entry exactly once.
 *   - Remove of a string or arbitrary key returns only when no read that
 *     could still compare against the removed key is running, so the caller
 *     may free the key as soon as Remove returns.
 *   - Destroy needs the table idle: no call on it running or to come.
 * A thread's first read takes a small record of the library's (given back
 * when the thread ends); reads cost one locked store more than a lone
 * thread's would. The hash functions are pure.
 */
#ifndef LHT_H
#define LHT_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"
#include "lmm.h"
#include "lpm.h"

KEL_BEGIN_DECLS

/* ------------------------------------------------------------ status codes */

#define LHT_OK 1              /* success */
#define LHT_FOUND 2           /* probe: the key is in the table */
#define LHT_NOTFOUND (-2)     /* probe: the key is not in the table */

#define LHT_ERR_ARG 6         /* invalid argument (recorded with its position) */
#define LHT_ERR_NOMEM 9       /* out of memory (recorded with the bytes asked for) */
#define LHT_ERR_DUP 12        /* key already present (recorded with the key) */
#define LHT_ERR_END 15        /* no further entry: the iteration is over */
#define LHT_ERR_ITER 18       /* the table is being iterated: insert/remove refused */
#define LHT_ERR_FULL 24       /* the table holds the most entries it can */
#define LHT_ERR_NOKEY 27      /* key not found, or the table is empty */
#define LHT_ERR_MUTEX 30      /* the table's mutex could not be created */

/* Most entries (and most slots) of a table. */
#define LHT_MAX_ENTRIES 33554467u
/* Slot storage is split into chunks of at most this many slots, so that no
 * single allocation reaches 2 GiB. */
#define LHT_CHUNK_SLOTS 89478068u

/* --------------------------------------------------------------- slots
 * A slot holds the key, the value and a state byte, in this order. The probe
 * functions hand out pointers to slots; everything else uses keys. */
#define LHT_SLOT_EMPTY 2      /* never used since the storage was made */
#define LHT_SLOT_DELETED 4    /* held an entry that was removed */
#define LHT_SLOT_USED 8       /* holds an entry */

typedef struct LhtIntSlot {
  uint32_t key;
  void *value;
  uint8_t state;
} LhtIntSlot;

typedef struct LhtStrSlot {
  const char *key;
  void *value;
  uint8_t state;
} LhtStrSlot;

typedef struct LhtArbSlot {
  const void *key;
  void *value;
  uint8_t state;
} LhtArbSlot;

/* A hash table of any kind (opaque). Each function checks that the table is
 * of its kind and refuses another with -6 on argument 1. */
typedef struct LhtTable LhtTable;

/* ------------------------------------------------------------- allocators
 * The allocator of a table's slot storage, chosen at creation:
 *   heap != null             the memory manager: lmmmalloc/lmmfree on `heap`
 *                            with the memory context of the creation's
 *                            context record (which must then be given)
 *   heap null, alloc != null the caller's callbacks, called with `actx`;
 *                            `free` must then be given too
 *   both null (or no LhtMem) the system allocator (ss_mem_alc / ss_mem_fre)
 * The table calls the callbacks under its mutex, from whichever thread is
 * changing it (storage a resize replaced while another thread was reading is
 * freed by a later change, or by Destroy); LhtqmAlloc/LhtqmFree call them
 * directly (without the mutex).
 * `alloc` returns null when it cannot serve the request; blocks need the
 * alignment of a pointer. */
typedef void *(*LhtAllocFn)(void *actx, size_t size);
typedef void (*LhtFreeFn)(void *actx, void *ptr);

typedef struct LhtMem {
  lmmheap *heap;
  LhtAllocFn alloc;
  LhtFreeFn free;
  void *actx;
} LhtMem;

/* Allocates `size` bytes (size > 0) from the allocator of table `t`; null on
 * failure or for a null table, with nothing recorded (the caller reports).
 * Free the block with LhtqmFree on the same table. Thread-safe as the chosen
 * allocator is (the memory manager's locking heaps and the system allocator
 * are). */
KELAPI void *LhtqmAlloc(LhtTable *t, size_t size);
/* Frees a block of LhtqmAlloc of the same table; null is ignored. */
KELAPI void LhtqmFree(LhtTable *t, void *ptr);

/* ---------------------------------------------------------- hash functions
 * Stored tables depend on these values: they never change. `size` is the
 * number of slots (at least 2). */

/* Home slot of integer key k: trunc(size * frac(k * 0.6180339887498949)),
 * computed in IEEE double precision. Result in [0, size). */
KELAPI uint32_t LhtInq1Hash(uint32_t k, uint32_t size);
/* Probe step of integer key k: ((k + 777) mod (size - 1)) + 1, unsigned 32-bit
 * (k + 777 wraps). Result in [1, size - 1]; 1 when size < 2. */
KELAPI uint32_t LhtInq2Hash(uint32_t k, uint32_t size);
/* Home slot of string s: the bytes (unsigned) folded as h = h * 128 + c with
 * an overflow guard once h passes 0xFFFFFF (h = h * 128 + c - (0x7FFFFFFF / h)
 * * h, wrapping), then LhtInq1Hash(h, size). A null or empty string folds to
 * h = 0. */
KELAPI uint32_t LhtStq1Hash(const char *s, uint32_t size);
/* Probe step of string s: the same fold with multiplier 131 and guard
 * threshold 0xFA232C, then LhtInq2Hash(h, size). */
KELAPI uint32_t LhtStq2Hash(const char *s, uint32_t size);
/* n * (b + c * n), unsigned 32-bit: the offset of probe n of the arbitrary
 * kind, which uses b = 14, c = 0 (a linear stride of 14 slots). */
KELAPI uint32_t LhtArqQuad(uint32_t n, uint32_t b, uint32_t c);

/* --------------------------------------------------------------- creation
 * Common arguments of the three Create functions:
 *   ctx   the library context record (lpm.h). Needed for a memory-manager
 *         heap (its lmmctx) and for reporting when errh is null; may be null
 *         otherwise.
 *   errh  the error manager context to record failures into (lem.h); null
 *         means ctx->lemctx. With neither, failures are only returned.
 *   size  the requested size: 0 gives 521 slots, 1 to 11 give 11, a larger
 *         request the first size of the list that is at least as large.
 *         Above 33554467: error 6 on argument 3.
 *   mem   the allocator of the slot storage (see LhtMem); null = system.
 *         A heap without ctx->lmmctx, or only one of alloc/free: error 6 on
 *         argument 4.
 * The table registers facility "LHT" with errh for its life; records made
 * before its creation finished (and after its destruction) show no facility
 * name. Returns the table, or null after recording the failure: 6, 9 (the
 * header or the storage; bytes asked for), 30 (mutex). Free the table with
 * the Destroy of its kind. Thread-safe. */
KELAPI LhtTable *LhtIntCreate(lcorectx *ctx, void *errh, uint32_t size, const LhtMem *mem);
KELAPI LhtTable *LhtStrCreate(lcorectx *ctx, void *errh, uint32_t size, const LhtMem *mem);

/* Callbacks of the arbitrary kind, both called with the `uctx` of creation:
 * under the table's mutex by insert, remove and resize, and without it by
 * Search and LhtArqGetIndex, which may run in several threads at once and
 * alongside a change (the callbacks must then be safe to call concurrently).
 * A read may call them more than once for one key, and, when a change
 * overlaps it, with stored keys it then does not answer with. They may search
 * tables; they must not change any (a change from inside a search can find
 * no room to retire storage and fail with -9, and a Remove from inside one
 * does not wait for that search):
 *   hash(key, size, uctx)          the home slot of key, in [0, size) (a
 *                                  larger result is taken modulo size); equal
 *                                  keys must give equal results
 *   cmp(stored, key, uctx)         0 when the keys are equal, else non-zero
 * Keys are passed through unchanged, null included. */
typedef uint32_t (*LhtArbHashFn)(const void *key, uint32_t size, void *uctx);
typedef int32_t (*LhtArbCmpFn)(const void *stored, const void *key, void *uctx);

/* Arguments as above, then the hash callback (null: error 6 on argument 5),
 * the compare callback (null: error 6 on argument 6) and their user context. */
KELAPI LhtTable *LhtArbCreate(lcorectx *ctx, void *errh, uint32_t size, const LhtMem *mem, LhtArbHashFn hash,
                              LhtArbCmpFn cmp, void *uctx);

/* Frees the slot storage, the mutex and the table itself; keys and values
 * are the caller's and are not touched. Refused with -18 while an iteration
 * is open (the table stays usable). 1, or -6 for a null table or one of
 * another kind. The table must not be in use by another thread. */
KELAPI int32_t LhtIntDestroy(LhtTable *t);
KELAPI int32_t LhtStrDestroy(LhtTable *t);
KELAPI int32_t LhtArbDestroy(LhtTable *t);

/* ----------------------------------------------------------------- entries */

/* Adds key -> value. Returns 1, or:
 *   -6   null table / wrong kind; null string key (argument 2)
 *   -18  an iteration is open
 *   -24  the table already holds 33554467 entries
 *   -12  the key is present (recorded with the key); its value is unchanged
 *   -9   the insert filled the table and it could not grow (recorded with the
 *        bytes asked for); the table is unchanged (no search saw the key)
 * A string or arbitrary key is stored by pointer (see the top of the file). */
KELAPI int32_t LhtIntInsert(LhtTable *t, uint32_t key, void *value);
KELAPI int32_t LhtStrInsert(LhtTable *t, const char *key, void *value);
KELAPI int32_t LhtArbInsert(LhtTable *t, const void *key, void *value);

/* Removes key; its value goes to *value (value may be null). Returns 1, or
 * -6 (as Insert), -18 (iteration open), -27 (the key is not present or the
 * table is empty; recorded with the key). *value is untouched on failure.
 * When the entries drop below a quarter of the slots the table shrinks; a
 * shrink that finds no memory is skipped silently (the remove stands, the
 * table keeps its size and tries again on a later remove).
 * A string or arbitrary key: Remove returns once no search or probe that
 * began before the key left the table is still running (on other threads),
 * so the caller may free the key's memory at once. */
KELAPI int32_t LhtIntRemove(LhtTable *t, uint32_t key, void **value);
KELAPI int32_t LhtStrRemove(LhtTable *t, const char *key, void **value);
KELAPI int32_t LhtArbRemove(LhtTable *t, const void *key, void **value);

/* Finds key; its value goes to *value (value may be null: a membership
 * test). Returns 1, -27 when the key is not present (not recorded: a miss is
 * an answer, not a failure; *value untouched), or -6 (as Insert; a null
 * string key is recorded, argument 2).
 * Takes no lock and writes nothing in the table: any number of threads may
 * search one table at once, alongside iterations and changes (see the top of
 * the file: the answer is the key's state before or after each overlapping
 * change). A table grows only when completely full, so the probe path to an
 * empty slot can be long; a search stops as soon as no entry of the key's
 * home slot can lie further on, and most misses end at the home slot
 * itself. */
KELAPI int32_t LhtIntSearch(LhtTable *t, uint32_t key, void **value);
KELAPI int32_t LhtStrSearch(LhtTable *t, const char *key, void **value);
KELAPI int32_t LhtArbSearch(LhtTable *t, const void *key, void **value);

/* --------------------------------------------------------------- iteration
 * An iteration walks the slots in slot order:
 *
 *   int32_t first = LhtIntBeginIter(t);          (0, or a negated code)
 *   if (first < 0) ...;
 *   uint32_t pos = (uint32_t)first, key; void *val;
 *   while (LhtIntYield(t, &key, &val, &pos) == 1) { ... }
 *   LhtIntEndIter(t);
 *
 * While any iteration of a table is open, its inserts and removes are refused
 * with -18 (searches go on), so every entry is seen exactly once. Several
 * iterations may be open at once; each BeginIter needs one EndIter. */

/* Opens an iteration: counts it under the mutex and returns the first
 * position, 0. -6 for a null table or one of another kind. */
KELAPI int32_t LhtIntBeginIter(LhtTable *t);
KELAPI int32_t LhtStrBeginIter(LhtTable *t);
KELAPI int32_t LhtArbBeginIter(LhtTable *t);

/* From slot *pos onwards, finds the next entry: writes its key to *key, its
 * value to *value (value may be null) and the slot after it to *pos, and
 * returns 1. Returns -15 when no entry is left at or after *pos (also at
 * once for *pos at or past the size, and for an empty table); outputs are
 * then untouched and nothing is recorded. -6 for a null table or wrong kind
 * (argument 1), a null key output (argument 2, recorded) or a null position
 * (argument 4, recorded). Takes no lock: call it between BeginIter and
 * EndIter, where the table cannot change (outside an iteration it still
 * answers from one consistent table, but a change between calls can move
 * entries past or before *pos). A string key is the stored pointer. */
KELAPI int32_t LhtIntYield(LhtTable *t, uint32_t *key, void **value, uint32_t *pos);
KELAPI int32_t LhtStrYield(LhtTable *t, const char **key, void **value, uint32_t *pos);
KELAPI int32_t LhtArbYield(LhtTable *t, const void **key, void **value, uint32_t *pos);

/* Closes one iteration. 1, or -6 for a null table, one of another kind, or
 * one with no iteration open (recorded, argument 1). */
KELAPI int32_t LhtIntEndIter(LhtTable *t);
KELAPI int32_t LhtStrEndIter(LhtTable *t);
KELAPI int32_t LhtArbEndIter(LhtTable *t);

/* ------------------------------------------------------ resize and probes */

/* Moves every entry into new storage of the size at position `index` (3 to
 * 25) of the size list, then frees the old storage. Insert and remove call
 * this themselves; a caller may use it to size a table ahead of a load.
 * Returns 1, or -6 (null table or wrong kind: argument 1; index out of range:
 * argument 2), -18 (iteration open), -24 (the entries would not leave a slot
 * free at that size), -9 (no memory: recorded with the bytes asked for; the
 * table keeps its old storage and stays usable). Takes the mutex; searches
 * go on in the old storage while the new one is filled. */
KELAPI int32_t LhtInqResize(LhtTable *t, uint32_t index);
KELAPI int32_t LhtStqResize(LhtTable *t, uint32_t index);
KELAPI int32_t LhtArqResize(LhtTable *t, uint32_t index);

/* Probes for key as insert, remove and search do. Returns 2 when the key is
 * present (*slotno = its slot number, *slot = its slot), or -2 when it is
 * not: then *slotno and *slot name the slot where it would go (the first
 * deleted slot on the probe path, else the empty slot that ended it), or
 * UINT32_MAX and null when the path holds neither. Either output may be null.
 * -6 for a null table or wrong kind (or a null string key). Takes no lock,
 * with the contract of Search: the answer is the key's state before or after
 * each overlapping change. The slot pointer is for reading, and valid only
 * while the table cannot change: until the next change on this thread, or
 * for as long as an iteration is open when other threads may change the
 * table (a resize frees the storage it points into). Change entries only
 * through Insert/Remove. */
KELAPI int32_t LhtInqGetIndex(LhtTable *t, uint32_t key, uint32_t *slotno, LhtIntSlot **slot);
KELAPI int32_t LhtStqGetIndex(LhtTable *t, const char *key, uint32_t *slotno, LhtStrSlot **slot);
KELAPI int32_t LhtArqGetIndex(LhtTable *t, const void *key, uint32_t *slotno, LhtArbSlot **slot);

KEL_END_DECLS

#endif /* LHT_H */
