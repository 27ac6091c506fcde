/*
 * lem.h - the error manager: facilities, per-thread error stacks, message
 * texts and error frames.
 *
 * A family records an error on the calling thread's stack and returns its
 * failure result; the caller reads the stack by index (1 = the calling
 * thread's newest record) and formats messages with lemgem. `ctx` is the
 * error manager context: field lemctx of the context record (lpm.h).
 *
 * Arguments of a record are (type, value) pairs ending with type 0:
 *   LEM_ARG_TEXT (25)  const char *      (copied into the record)
 *   LEM_ARG_NUM  (1)   int64_t           (pass a 64-bit value: (int64_t)x)
 *   LEM_ARG_INT  (8)   int64_t           (an integer lemgia returns)
 * At most LEM_MAX_ARGS pairs are kept.
 *
 * Thread safety: every function may be called from many threads at once;
 * each thread sees only its own records. Frame contexts are per thread.
 *
 * Capacity: each thread's stack holds at most LEM_MAX_DEPTH records, so
 * that a program that never clears its stacks cannot grow them without
 * bound. A full stack records nothing more for its thread (the records it
 * has are kept; the newest failures are the ones lost) and counts what it
 * refused (lemgdr); other threads' stacks are never touched. Records stay
 * until their thread removes them (lemdec, lemces) or the error manager
 * stops: a thread that ends with records left should clear its stack. Text
 * pointers returned by lemgnp are valid while their record exists.
 */
#ifndef LEM_H
#define LEM_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"
#include "lpm.h"

KEL_BEGIN_DECLS

#define LEM_ARG_END 0
#define LEM_ARG_NUM 1
#define LEM_ARG_INT 8
#define LEM_ARG_TEXT 25
#define LEM_MAX_ARGS 16

/* Most records one thread's stack holds. */
#define LEM_MAX_DEPTH 4096

/* Record types (lemget). */
#define LEM_TYPE_OSERR 1   /* operating-system error with system information */
#define LEM_TYPE_MSG 2     /* message record */
#define LEM_TYPE_NONE 3    /* no such record */

/* Size of the error manager's context handle record in bytes. */
#define lemctxsz 48

/* Opaque facility handle. */
typedef struct lemfac lemfac;

/* ------------------------------------------------------------ start, stop */

/* Start/stop entry of the error manager in the family table (mode 0 start,
 * 1 stop, else -1). Called by lpminitm/lpmterm only. */
KELAPI int32_t lemrist(lcorectx *ctx, void *handle, int32_t mode);

/* A free-standing error context whose handle lives in `storage` (lemctxsz
 * bytes, pointer-aligned, owned by the caller) for code that keeps error
 * stacks apart from the started library's: leminit builds it over the
 * low-level message context `lwe` (a context record's lwemctx), or, with a
 * null lwe, over one made for it and ended by lemfre; lemini(ctx, storage)
 * is leminit(ctx, storage, null). ctx supplies the language settings and is
 * the record through which a loaded formatter package is released. Returns
 * the handle (== storage) to pass as the error context, or null for a null
 * ctx or storage or when out of memory. Not thread-safe against lemfre. */
KELAPI void *leminit(lcorectx *ctx, void *storage, void *lwe);
KELAPI void *lemini(lcorectx *ctx, void *storage);

/* Stops an error context of leminit: closes every message catalogue it
 * opened (lmsatrm), releases the "lsf" package if it was loaded for it,
 * frees its facility and frame contexts, destroys its mutex and, when it
 * made its own, the low-level message context with every record on it. The
 * caller's storage is left cleared of the handle. 0, or -1 for a handle that
 * is not a live error context or when a step failed (the other steps are
 * still done). */
KELAPI int32_t lemfre(void *lemh);

/* The error sub-context of a package instance: *out receives a new error
 * context that shares the creator's stacks (lemcis); lemcit frees it. 0 / -1. */
KELAPI int32_t lemcis(lcorectx *ctx, void **out, void *component);
KELAPI int32_t lemcit(lcorectx *ctx, void *sub, void *component);

/* -------------------------------------------------------------- facilities */

/* Registers (product, facility) with its internal-error message number and a
 * second number (its meaning is the family's). `word` is kept unchanged.
 * Null when ctx, product or facility is null/empty or either number is 0.
 * The handle lives until lemfaf. */
KELAPI lemfac *lemfaa(void *ctx, void *word, const char *product, const char *facility, int32_t internal,
                      int32_t second);
/* Frees a facility handle; 0 / -1. */
KELAPI int32_t lemfaf(void *ctx, lemfac *fac);

/* --------------------------------------------------------------- recording
 * Recorders return nothing; a null ctx or facility is ignored, and so are
 * message number 0 and the internal-error message with sub-code 0. When the
 * stack cannot grow, nothing is recorded. */

/* Records message `msg` of `fac` with severity `sev` and argument pairs. */
KELAPI void lemrec(void *ctx, lemfac *fac, int32_t msg, int32_t sev, ...);
KELAPI void lemrev(void *ctx, lemfac *fac, int32_t msg, int32_t sev, va_list ap);

/* Records the facility's internal-error message with `subcode`; the usual
 * argument is one text naming the place. */
KELAPI void lemric(void *ctx, lemfac *fac, int32_t subcode, int32_t sev, ...);
KELAPI void lemriv(void *ctx, lemfac *fac, int32_t subcode, int32_t sev, va_list ap);

/* Internal recorder of the manager's own checks: records `msg` with
 * `subcode`; if it was recorded and *flag is 0, marks the stack and sets
 * *flag to 1 (flag may be null). Returns `subcode`. */
KELAPI int32_t lemprc(void *ctx, lemfac *fac, int32_t msg, int32_t subcode, int32_t sev, uint8_t *flag, ...);

/* ----------------------------------------------------------------- reading */

/* Depth of the calling thread's stack (0 for a null ctx). */
KELAPI int32_t lemged(void *ctx);
/* Number of records the calling thread's stack refused because it held
 * LEM_MAX_DEPTH records already, since it was last cleared with lemces
 * (0 for a null ctx). Records refused for want of memory are not counted. */
KELAPI int64_t lemgdr(void *ctx);
/* Message number of record i, or -1 for i < 1, a null ctx or no such record. */
KELAPI int32_t lemgec(void *ctx, int32_t i);
/* Record type of record i (LEM_TYPE_*); LEM_TYPE_NONE for no record. */
KELAPI int32_t lemget(void *ctx, int32_t i);
/* Facility / product name of record i into buf (NUL-terminated, truncated
 * to len - 1); returns the length written, 0 for i < 1, len < 1 or none. */
KELAPI int32_t lemgef(void *ctx, int32_t i, char *buf, size_t len);
KELAPI int32_t lemgpd(void *ctx, int32_t i, char *buf, size_t len);
/* Number of argument pairs of record i (-1: no record). */
KELAPI int32_t lemgep(void *ctx, int32_t i);
/* Severity of record i (-1: no record). */
KELAPI int32_t lemgsv(void *ctx, int32_t i);
/* Sub-code of record i (-1: no record). */
KELAPI int32_t lemgsc(void *ctx, int32_t i);
/* System-error information of record i (0: none). */
KELAPI int64_t lemgse(void *ctx, int32_t i);
/* The n-th (from 1) argument of record i: its type is returned (0: none)
 * and its value written to *num (numbers) or *text (texts; the pointer
 * stays valid while the record exists). Either out may be null. */
KELAPI int32_t lemgnp(void *ctx, int32_t i, int32_t n, int64_t *num, const char **text);
/* The integer of a type-8 first argument of record i, else -1. */
KELAPI int64_t lemgia(void *ctx, int32_t i);
/* The formatted message of record i into buf of len bytes: the facility's
 * catalogue text with the arguments substituted, or "; arguments:" and each
 * argument in brackets when there is no text. Returns the full length (as
 * snprintf), 0 for i < 1 or no record. */
KELAPI int32_t lemgem(void *ctx, int32_t i, char *buf, size_t len);

/* Records an operating-system error `syserr` (LEM_TYPE_OSERR); lemgem gives
 * the system's text for it. */
KELAPI void lemrse(void *ctx, lemfac *fac, int32_t msg, int64_t syserr);

/* -------------------------------------------------------------------- marks */

/* Marks record 1. */
KELAPI void lemmrk(void *ctx);
/* Clears the newest marked record of the calling thread. */
KELAPI void lemcmk(void *ctx);
/* 1 when record i is marked, 0 when not, -1 when there is no record i. */
KELAPI int32_t lwemimk(void *ctx, int32_t i);
/* Number of marked records of the calling thread. */
KELAPI int32_t lwemnmk(void *ctx);
/* Removes record i of the calling thread; 0 / -1. */
KELAPI int32_t lemdec(void *ctx, int32_t i);
/* Clears the calling thread's stack and its count of refused records. */
KELAPI void lemces(void *ctx);
/* Ends the calling thread's pending messages (drops them). */
KELAPI void lemdtm(void *ctx);

/* ------------------------------------------------------------------- frames
 * A frame holds a jump buffer. Push it, then call setjmp on its buffer in
 * the caller's own function:
 *
 *   lemframe fr;
 *   lemfctx *fc = lemgfc(ctx);
 *   lemptfs(fc, &fr);
 *   int code = setjmp(*(jmp_buf *)LEM_FRAME_JB(&fr));
 *   if (code == 0) { ... work that may throw ...; lemptfr(fc, &fr); }
 *   else { ... thrown: the frame is already popped, `code` is the message ... }
 *
 * A thrown frame is popped before the jump. Code between push and pop must
 * own nothing with a destructor. */
#ifdef __cplusplus
#define LEM_ALIGN16 alignas(16)
#else
#define LEM_ALIGN16 _Alignas(16)
#endif
typedef struct lemframe {
  struct lemframe *prev;
  uint64_t spare;
  LEM_ALIGN16 unsigned char jb[512];
} lemframe;
#define LEM_FRAME_JB(f) ((void *)(f)->jb)

/* Frame context: the innermost frame and the depth. */
typedef struct lemfctx {
  lemframe *top;
  int32_t depth;
  int32_t spare;
  void *lemctx;          /* error context that throws record into */
} lemfctx;

/* Throw callback of a facility, called before the jump. */
typedef void (*lemthrowfn)(void *facword, void *frameword, int32_t code, int32_t flag);

/* The calling thread's frame context of `ctx` (made on first use; null when
 * out of memory). It lives until the error manager stops. */
KELAPI lemfctx *lemgfc(void *ctx);
/* Sets the throw callback of a facility (null removes it). */
KELAPI void lemfasc(void *ctx, lemfac *fac, lemthrowfn fn);

/* Push `frame` on the calling thread's frame context of ctx / pop it. */
KELAPI void lempbas(void *ctx, lemframe *frame);
KELAPI void lempbar(void *ctx, lemframe *frame);
/* Push `frame` (null: message 30). */
KELAPI void lemptfs(lemfctx *fc, lemframe *frame);
/* Pop `frame` when it is the innermost one; another frame is ignored, null
 * records message 30. */
KELAPI void lemptfr(lemfctx *fc, lemframe *frame);
/* Throw `code` to the innermost frame. With no frame, records internal
 * sub-code 4 of `fac` and returns. */
KELAPI void lemptpo(lemfctx *fc, lemfac *fac, int32_t code, int32_t flag);
/* Re-throw the message number of record 1 (with none: records message 900
 * of "LEM" and returns). */
KELAPI void lemptrs(lemfctx *fc);
/* lemptrs on the calling thread's frame context of ctx. */
KELAPI void lemprse(void *ctx);

/* Record and throw to the calling thread's frame context of ctx. */
KELAPI void lemsec(void *ctx, lemfac *fac, int32_t msg, int32_t sev, ...);
KELAPI void lemsev(void *ctx, lemfac *fac, int32_t msg, int32_t sev, va_list ap);
/* Record and throw on a frame context: a message (lemtec/lemtev) or the
 * internal-error message with a sub-code (lemtic/lemtiv; code 0 or sev <= 0
 * is refused with message 30). */
KELAPI void lemtec(lemfctx *fc, lemfac *fac, int32_t msg, int32_t sev, ...);
KELAPI void lemtev(lemfctx *fc, lemfac *fac, int32_t msg, int32_t sev, va_list ap);
KELAPI void lemtic(lemfctx *fc, lemfac *fac, int32_t subcode, int32_t sev, ...);
KELAPI void lemtiv(lemfctx *fc, lemfac *fac, int32_t subcode, int32_t sev, va_list ap);

KEL_END_DECLS

#endif /* LEM_H */
