/*
 * lpm.h - start and stop of kelcore10, the context record and the package
 * manager.
 *
 * A caller starts the library once with lpminit() (or lpmprinit()/lpminitm()),
 * receives the context record, hands it (or a record reached from it) to the
 * families it uses, and stops the library with lpmterm(). Start and stop are
 * not thread-safe: call them from one thread while no other thread uses the
 * library. Everything else in this header is thread-safe.
 *
 * A typical program:
 *
 *   lcorectx *ctx = lpminit();
 *   void *mctx = ctx->lmmctx;                    (memory: lmm.h)
 *   void *p = lmmmalloc(mctx, lmmtophp(mctx), 100, 0, __FILE__, __LINE__);
 *   lemfac *fac = lemfaa(ctx->lemctx, NULL, "MYPROD", "MYF", 3, 4);   (errors: lem.h)
 *   if (p == NULL) {
 *     char msg[512];
 *     lemgem(ctx->lemctx, 1, msg, sizeof msg);   (newest record of this thread)
 *   }
 *   lmmfree(mctx, lmmtophp(mctx), p, 0);
 *   lemfaf(ctx->lemctx, fac);
 *   lpmterm(ctx);
 *
 * Results: 0 for success and -1 for failure unless a function says otherwise;
 * pointer results are null on failure. The reason of a failure is recorded on
 * the calling thread's error stack (facility "LPM" of product "KELCORE", read
 * with the functions of lem.h through the record's lemctx).
 */
#ifndef LPM_H
#define LPM_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"

KEL_BEGIN_DECLS

/* ---------------------------------------------------------- context record
 * Fourteen 64-bit words, in this order. A package instance gets a copy of its
 * creator's record (fields 2 and 6 then name the instance, fields 4, 5 and 7
 * its own memory, error and file sub-contexts); a copy made for a child
 * instance is one word longer (lcorectxc) and carries its parent. */
typedef struct lcorectx {
  uint64_t length;        /* 1: allocated length of the record in bytes */
  void *insth;            /* 2: package-instance handle the record belongs to */
  uint32_t version;       /* 3: always LCORECTX_VERSION */
  uint32_t spare;         /*    (second half of word 3) */
  void *lmmctx;           /* 4: memory manager context (lmm.h) */
  void *lemctx;           /* 5: error manager context (lem.h) */
  void *pkgh;             /* 6: package handle (the same as field 2) */
  void *lfictx;           /* 7: file interface context */
  void *slblock;          /* 8: system-layer block */
  uint8_t initialised;    /* 9: 1 once the start has finished, 0 while starting or stopping */
  uint8_t ownslml;        /*    1: the record made its low-level memory handle */
  uint8_t flagspare[6];
  void *lwemctx;          /* 10: low-level message context */
  void *lmlh;             /* 11: low-level memory handle */
  void *langenv;          /* 12: language environment handle (lx.h), 0 = none */
  void *nlsglobal;        /* 13: NLS global context (lx.h), 0 = none */
  uint8_t localnls;       /* 14: 1 = a family without an NLS global context sets up its own */
  uint8_t nlsspare[7];
} lcorectx;

/* A context record made for a child instance: the record and its parent. */
typedef struct lcorectxc {
  lcorectx base;
  lcorectx *parent;       /* 15 */
} lcorectxc;

#define LCORECTX_VERSION 5u

/* ------------------------------------------------------------ start, stop */

/* Starts the library: lpminitm(0, 0, 0, 0, 0). */
KELAPI lcorectx *lpminit(void);

/* As lpminit, with local language services: lpminitm(0, 0, 0, 0, 1). */
KELAPI lcorectx *lpmprinit(void);

/* Starts the library and returns the root instance's context record.
 *   lml       low-level memory handle, or null to make one (then owned by the record)
 *   memopt    default extent size in bytes of the root instance's heap (0 = system default)
 *   lang      language environment handle (lx.h), or null
 *   nlsglobal NLS global context (lx.h), or null
 *   localnls  1: families set up their own language services when nlsglobal is null
 * When the library is already started, returns the same record again (no
 * count is kept: one lpmterm stops it for everybody). Null on failure; a
 * family that fails to start leaves the families before it started. */
KELAPI lcorectx *lpminitm(void *lml, size_t memopt, void *lang, void *nlsglobal, int32_t localnls);

/* Bytes of caller storage that lpmpmai needs for the start record. */
#define LPM_MAIN_CTXSZ 160

/* As lpminitm, with the start record placed in `storage` (at least
 * LPM_MAIN_CTXSZ bytes given as `size`, aligned for a pointer), for a
 * program's main entry that keeps it on its stack until lpmterm. The
 * storage must stay valid until lpmterm, which does not free it. Null for
 * storage that is missing, too small or misaligned, and as lpminitm. When the
 * library is already started the storage is not used. */
KELAPI lcorectx *lpmpmai(void *storage, size_t size, void *lml, size_t memopt, void *lang, void *nlsglobal,
                         int32_t localnls);

/* Stops the library started in this process, whatever record is given (ctx
 * may be null): runs the lpmatterm callbacks last-registered first, finishes
 * the root instance and stops the families in reverse start order. 0 when
 * nothing was started or the stop succeeded; -1 when a family failed to stop
 * (the families after it in stop order are left started). */
KELAPI int32_t lpmterm(lcorectx *ctx);

/* Another name of lpmterm. */
KELAPI int32_t lpmdone(lcorectx *ctx);

/* Stores `ctx` (or null) in the process-global context slot; returns 0. The
 * slot is what lpminitm and lpmterm read; it is a plain global. */
KELAPI int32_t lpmstoremeta(lcorectx *ctx);

/* The start/stop entry of the package manager in the family table (mode 0
 * start, 1 stop, else -1). Called by lpminitm/lpmterm only. */
KELAPI int32_t lpmrist(lcorectx *ctx, void *handle, int32_t mode);

/* ----------------------------------------------------------------- packages */

/* Entry function of a package. `ctx` is the instance's own context record,
 * `priv` its private area (null before lpmmkpri), op 1 = initialise,
 * 2 = terminate, any other value a caller's function code passed through by
 * lpmcall. Returns 0 for success. */
typedef int32_t (*lpmentry)(lcorectx *ctx, void *priv, int32_t op, void *arg, void *result);

/* Package table row flags. */
#define LPM_PKG_STATIC 0x0001u /* the entry is `entry` */
#define LPM_PKG_DYNLIB 0x0008u /* load `lib` by name and look `sym` up */
#define LPM_PKG_OTHER  0x0010u /* the system layer's other loader (refused on this platform) */
#define LPM_PKG_END    0x8000u /* marks the row after the last one */

/* A package table row. Strings need not be NUL-terminated: lengths rule. The
 * table copies every string it is given. */
typedef struct lpmpdesc {
  const char *name;
  size_t namel;
  const char *lib;
  size_t libl;
  const char *sym;
  size_t syml;
  lpmentry entry;
  uint16_t flags;
} lpmpdesc;

/* Function pointer type of an interface vector slot. */
typedef void (*lpmfunc)(void);

/* Interface vector published by a package (lpmarrfuncs). */
typedef struct lpmiftab {
  void *object;
  int32_t count;
  int32_t spare;
  lpmfunc funcs[1]; /* `count` entries (the record is allocated to fit) */
} lpmiftab;

/* Adds package table rows: `count` rows, or with count 0 the rows up to the
 * first one flagged LPM_PKG_END. A name already in the table (same length,
 * equal ignoring case) stops the call with -2 and the index of the offending
 * row in *where (where may be null); passing 100 rows in the table gives -3.
 * On -2 and -3 the table is left as it was before the call. 0 on success, -1
 * for a null argument or when memory ran out. `reserved` is ignored. */
KELAPI int32_t lpmapd(lcorectx *ctx, const lpmpdesc *rows, int32_t count, int32_t *where, void *reserved);

/* Finds or makes the shared instance of package `name` (NUL-terminated),
 * locates its entry and calls operation 1 once; returns its interface vector
 * (the same vector on every later call), or null on failure. Each success
 * must be balanced by one lpmdelete. */
KELAPI lpmiftab *lpmloadpkg(lcorectx *ctx, const char *name);

/* Releases one use of the shared instance of `name`; operation 2 runs when
 * the last use goes. 0 / -1 (not loaded: message 60). */
KELAPI int32_t lpmdelete(lcorectx *ctx, const char *name);

/* Runs the entry of package `name` once with function `code`, `arg` and
 * `result` in a private instance (initialising the package first if needed),
 * then finishes the instance. Returns the entry's result, or the status given
 * to lpmexitprog when the package left through it; -1 when the package could
 * not be loaded or called. Several threads may call at once. */
KELAPI int32_t lpmcall(lcorectx *ctx, const char *name, int32_t code, void *arg, void *result);

/* Leaves the innermost lpmcall of the calling thread with `status` (a
 * longjmp back into lpmcall). Outside a call it ends the process with status
 * 1. The package must own no object with a destructor on the frames left. */
KELAPI KEL_NORETURN void lpmexitprog(lcorectx *ctx, int32_t status);

/* From inside operation 1: publishes the interface vector of the calling
 * instance's package (object, `count` functions copied in order). When the
 * package already has one, returns it unchanged. Null when out of memory. */
KELAPI lpmiftab *lpmarrfuncs(lcorectx *ctx, void *object, int32_t count, const lpmfunc *functions);

/* From inside the package: makes the instance's private area of `size` bytes
 * (zero-filled) and returns it; if the instance already has one, returns null
 * and leaves it as it is. Null also when out of memory (message 2). The area
 * lives until the instance is finished. */
KELAPI void *lpmmkpri(lcorectx *ctx, size_t size);

/* Saves `context` under `name` (at most 16 characters): a taken name is
 * replaced only with replace != 0 (else message 151, -1); a null context
 * removes the name. 0 / -1. */
KELAPI int32_t lpmsavecompctx(lcorectx *ctx, const char *name, void *context, int32_t replace);

/* The context saved under `name`, or null (not found: message 90; name over
 * 16 characters: message 91). */
KELAPI void *lpmgetcompctx(lcorectx *ctx, const char *name);

/* At-term callback, run by lpmterm with its argument. */
typedef void (*lpmatfn)(void *arg);

/* Registers an at-term callback; at most 10. -1 for a null function or when
 * 10 are registered. Not thread-safe (call it while starting up). */
KELAPI int32_t lpmatterm(lcorectx *ctx, lpmatfn fn, void *arg);

KEL_END_DECLS

#endif /* LPM_H */
