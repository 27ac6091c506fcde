/*
 * sl.h - the system layer of kelcore10.
 *
 * Every operating-system call of the library lives behind these functions
 * (folder sys/); the portable families above never include an OS header.
 * A port to another system supplies the platform's tables of sys/ (see
 * sys/README.md); these contracts stay as they are.
 *
 * Unless a function says otherwise: results are 0 for success and -1 for
 * failure, the reason of a failure is the calling thread's system error
 * (slerrno), and every function is safe to call from several threads at once
 * on different objects. Objects (critical sections, semaphores, events) are
 * thread-safe as far as their own operations go, as on any platform.
 */
#ifndef SL_H
#define SL_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"

KEL_BEGIN_DECLS

/* ------------------------------------------------------------------ errors
 * slerrno() reports the conditions that callers and the layer itself act on
 * as the library's own codes below, whatever the platform; any other value is
 * the platform's own number, good for a message (slcgems) and for its class
 * (slfclass of lfi.h), and not to be compared with anything else. The codes
 * are the numbers the Windows API gives the same conditions, and no POSIX
 * system uses them. */
#define SL_ERR_TIMEOUT 1460   /* a wait ran out of time */
#define SL_ERR_LIMIT   298    /* a count would pass its maximum (semaphore release) */
#define SL_ERR_FAULT   1455   /* refused by an armed fault-injection point */
#define SL_ERR_INTR    10004  /* interrupted before it did anything (the layer calls again) */
#define SL_ERR_AGAIN   10035  /* nothing could be done without blocking (the layer waits) */
#define SL_ERR_REFUSED 10061  /* the peer refused the connection */

/* The calling thread's last system error number (0 if none was recorded). */
KELAPI int32_t slerrno(void);

/* Sets the calling thread's system error number. */
KELAPI void slseterrno(int32_t err);

/* Writes the text of system error `err` into buf (NUL-terminated, truncated to
 * len - 1 bytes) and returns the length written. len 0 writes nothing. */
KELAPI size_t slcgems(int32_t err, char *buf, size_t len);

/* -------------------------------------------------------- fault injection
 * Test builds (KEL_TEST_HOOKS) count the requests that reach each fault point
 * and can be told to refuse some of them, so that the failure paths of every
 * family can be driven from tests. The point numbers are fixed and never
 * reused. Numbers 20-23 belong to allocations of the memory manager and of
 * the language services, 40-47 to TLS connections.
 *
 * The functions are not part of the shared library: tests link the library's
 * archive. In other builds they are inline stand-ins that arm nothing
 * (slfaultarm returns -1) and count nothing.
 */
#define SL_FAULT_MEM          1  /* ss_mem_alc / ss_mem_calc / ss_mem_ralc */
#define SL_FAULT_EXTENT       2  /* slwmmgetmem */
#define SL_FAULT_CS_INIT      3  /* slcsinit, sltsmxi */
#define SL_FAULT_SEM_CREATE   4  /* slsemcreate */
#define SL_FAULT_EVENT_CREATE 5  /* slevcreate */
#define SL_FAULT_SEM_RELEASE  6  /* slsemrelease */
#define SL_FAULT_WAIT         7  /* slsemwait, slevwait */
#define SL_FAULT_CLOSE        8  /* slsemclose, slevclose, slcsdelete, sltsmxd */
#define SL_FAULT_TID          9  /* sltstidinit, sltstiddestroy */
#define SL_FAULT_DLOPEN      10  /* sldlopen */
#define SL_FAULT_TLS         11  /* sltlscreate, sltlsset */
#define SL_FAULT_EVENT_SET   12  /* slevset, slevreset */
#define SL_FAULT_ANYMEM      13  /* both SL_FAULT_MEM and SL_FAULT_EXTENT, one count */
#define SL_FAULT_FILE_OPEN   14  /* file layer: open */
#define SL_FAULT_FILE_READ   15  /* file layer: read */
#define SL_FAULT_FILE_WRITE  16  /* file layer: write (disk full) */
#define SL_FAULT_FILE_OTHER  17  /* file layer: seek, sync, rename, remove, directories */
#define SL_FAULT_THREAD      18  /* thread creation */
#define SL_FAULT_SOCKET      19  /* socket layer */
#define SL_FAULT_HEAP        20  /* heap allocations: lmmmalloc, lmmcalloc, lmmrealloc, lmmvalloc,
                                     lmmo*blklist (either model) */
#define SL_FAULT_NLS         21  /* every allocation of kelnls10 */
#define SL_FAULT_DATE_VIEW   22  /* the date family's territory view of an NLS handle */
#define SL_FAULT_SSL_TRUST   40  /* TLS sessions: loading the trust (system store or CA file) */
#define SL_FAULT_SSL_OPEN    41  /* TLS sessions: a handshake */
#define SL_FAULT_SSL_IO      42  /* TLS sessions: a send or a receive */
#define SL_FAULT_MAX         63

#ifdef KEL_TEST_HOOKS
/* Arms fault point `point`: counting from the next request that reaches it,
 * request number `nth` (1 = the very next) and the `count` - 1 after it fail
 * (count < 0: every request from the nth on). nth 0 disarms the point.
 * Returns 0, or -1 for a bad point. */
int32_t slfaultarm(int32_t point, int64_t nth, int64_t count);

/* Requests that reached `point` since it was last armed or reset. */
int64_t slfaultseen(int32_t point);

/* Number of requests refused at `point` since it was last armed or reset. */
int64_t slfaulthits(int32_t point);

/* Disarms every point and clears the counters. */
void slfaultreset(void);
#else
static inline int32_t slfaultarm(int32_t point, int64_t nth, int64_t count) {
  (void)point;
  (void)nth;
  (void)count;
  return -1;
}
static inline int64_t slfaultseen(int32_t point) {
  (void)point;
  return 0;
}
static inline int64_t slfaulthits(int32_t point) {
  (void)point;
  return 0;
}
static inline void slfaultreset(void) {}
#endif

/* ------------------------------------------------------------------ memory */

/* The system allocator: serves the library's own core records. Blocks are
 * aligned to 16 bytes. A size of 0 is served as 1 byte. Null on failure. */
KELAPI void *ss_mem_alc(size_t size);
/* As ss_mem_alc, the block zero-filled. */
KELAPI void *ss_mem_calc(size_t size);
/* Resizes a block of ss_mem_alc (p may be null); null on failure, p kept. */
KELAPI void *ss_mem_ralc(void *p, size_t size);
/* Frees a block of ss_mem_alc; null is ignored. */
KELAPI void ss_mem_fre(void *p);

/* Whole extents straight from the operating system: `size` bytes (rounded up
 * to the page size), page-aligned and zero-filled; null on failure. An extent
 * is given back whole with slwmmputmem and the same size. */
KELAPI void *slwmmgetmem(size_t size);
KELAPI int32_t slwmmputmem(void *extent, size_t size);

/* The system page size (the alignment of valloc-type allocations). */
KELAPI size_t slmmvallocsz(void);

/* The default extent size for heaps whose memory context sets none. */
KELAPI size_t slmmstmsr(void);

/* Exchanges n bytes between a and b (the regions must not overlap). */
KELAPI void slmeswap(void *a, void *b, size_t n);

/* ------------------------------------------------- critical sections
 * A plain (not recursive) mutex held in caller storage. */
typedef struct slcs {
  uint64_t opaque[8];
} slcs;

KELAPI int32_t slcsinit(slcs *cs);
KELAPI void slcsenter(slcs *cs);
/* 1 when the section was free and is now held by the caller, else 0. */
KELAPI int32_t slcstry(slcs *cs);
KELAPI void slcsleave(slcs *cs);
KELAPI int32_t slcsdelete(slcs *cs);

/* ------------------------------------------------ semaphores and events */

#define SL_INFINITE 0xFFFFFFFFu /* wait without a time limit */

/* Results of the wait functions. */
#define SL_WAIT_OK       0   /* signalled */
#define SL_WAIT_TIMEOUT  1   /* the time limit passed */
#define SL_WAIT_FAILED (-1)  /* the wait itself failed; see slerrno */

typedef struct slsem slsem;
typedef struct slevt slevt;

/* A counting semaphore with the given initial count and maximum (both >= 0,
 * initial <= maximum); null on failure. */
KELAPI slsem *slsemcreate(int32_t initial, int32_t maximum);
/* Waits until the count is positive and takes one, or `ms` milliseconds pass
 * (SL_INFINITE: no limit). SL_WAIT_OK, SL_WAIT_TIMEOUT or SL_WAIT_FAILED. */
KELAPI int32_t slsemwait(slsem *sem, uint32_t ms);
/* Adds `count` (> 0) to the count; -1 with SL_ERR_LIMIT when the maximum
 * would be passed (the count is then unchanged). */
KELAPI int32_t slsemrelease(slsem *sem, int32_t count);
/* Frees the semaphore; -1 if it cannot be closed (it is freed regardless). */
KELAPI int32_t slsemclose(slsem *sem);

/* An event: manual_reset 1 stays set until slevreset, 0 resets itself when it
 * releases one waiter. Null on failure. */
KELAPI slevt *slevcreate(int32_t manual_reset, int32_t initially_set);
KELAPI int32_t slevset(slevt *ev);
KELAPI int32_t slevreset(slevt *ev);
/* Waits until the event is set; results as slsemwait. */
KELAPI int32_t slevwait(slevt *ev, uint32_t ms);
KELAPI int32_t slevclose(slevt *ev);

/* --------------------------------------------- thread-services context
 * The context through which the portable families make their mutexes and
 * thread identifiers. One per family instance; thread-safe. */
typedef struct sltsctx sltsctx;

typedef struct sltsmx {
  slcs cs;
} sltsmx;

/* A thread identifier record: 0 = not initialised / no thread. Identifiers are
 * process-unique and never reused, unlike the platform's thread handles. */
typedef struct sltstid {
  uint64_t id;
} sltstid;

/* Makes a thread-services context; null on failure. */
KELAPI sltsctx *sltsini(void);
/* Frees it; 0 / -1. */
KELAPI int32_t sltster(sltsctx *ts);

KELAPI int32_t sltsmxi(sltsctx *ts, sltsmx *mx); /* initialise */
KELAPI int32_t sltsmxd(sltsctx *ts, sltsmx *mx); /* destroy */
KELAPI int32_t sltsmna(sltsctx *ts, sltsmx *mx); /* acquire */
KELAPI int32_t sltsmnr(sltsctx *ts, sltsmx *mx); /* release */
/* Try to acquire: 1 acquired, 0 held elsewhere. */
KELAPI int32_t sltsmnt(sltsctx *ts, sltsmx *mx);

/* Initialises a thread identifier record to "no thread". */
KELAPI int32_t sltstidinit(sltsctx *ts, sltstid *tid);
/* Stores the calling thread's identifier in tid. */
KELAPI int32_t sltstgi(sltsctx *ts, sltstid *tid);
/* Ends a thread identifier record (it reads as "no thread" afterwards). */
KELAPI int32_t sltstiddestroy(sltsctx *ts, sltstid *tid);
/* 1 when a and b name the same thread, else 0. */
KELAPI int32_t sltstidcmp(sltsctx *ts, const sltstid *a, const sltstid *b);
/* Copies src into dst. */
KELAPI int32_t sltstidcpy(sltsctx *ts, sltstid *dst, const sltstid *src);
/* 1 when tid is "no thread". */
KELAPI int32_t sltstidnull(sltsctx *ts, const sltstid *tid);

/* The calling thread's process-unique number (never 0), without a context. */
KELAPI uint64_t slthrself(void);

/* ------------------------------------------------- thread-local storage */
typedef struct sltlskey {
  uint32_t key;
  uint32_t valid;
} sltlskey;

/* Makes a key; `dtor` (may be null) runs at thread exit for a non-null value. */
KELAPI int32_t sltlscreate(sltlskey *key, void (*dtor)(void *));
KELAPI int32_t sltlsdelete(sltlskey *key);
/* The calling thread's value (null if never set). */
KELAPI void *sltlsget(const sltlskey *key);
KELAPI int32_t sltlsset(const sltlskey *key, void *value);

/* ------------------------------------------------ environment variables */

/* Copies the value of `name` into buf (NUL-terminated, truncated to len - 1
 * bytes; buf may be null when len is 0) and returns the full length of the
 * value, or -1 when the variable is not set. */
KELAPI int32_t slgetenv(const char *name, char *buf, size_t len);
/* Sets `name` to `value`; an existing value is kept when overwrite is 0. */
KELAPI int32_t slsetenv(const char *name, const char *value, int32_t overwrite);
/* Removes `name` (0 also when it was not set). */
KELAPI int32_t slunsetenv(const char *name);

/* ------------------------------------------------------ dynamic libraries */

/* Loads a dynamic library by file name (a name without a path is searched the
 * platform's way); null on failure, with the reason for sldlerror. */
KELAPI void *sldlopen(const char *file);
/* The address of exported symbol `name`, or null. */
KELAPI void *sldlsym(void *lib, const char *name);
/* Unloads; 0 / -1. */
KELAPI int32_t sldlclose(void *lib);
/* The calling thread's last loader error text into buf; returns its length. */
KELAPI size_t sldlerror(char *buf, size_t len);

/* ------------------------------------------------------------------- time */

/* Monotonic clock in nanoseconds (arbitrary origin, never goes back). */
KELAPI uint64_t slmonons(void);
/* Wall clock: microseconds since 1970-01-01 00:00:00 UTC. */
KELAPI int64_t slwallus(void);
/* Sleeps at least `ms` milliseconds. */
KELAPI void slsleepms(uint32_t ms);
/* Gives up the rest of the calling thread's time slice. */
KELAPI void slyield(void);

/* ---------------------------------------------------------------- process */

/* Ends the process at once with `status`, running no library stop code and no
 * exit handlers. */
KELAPI KEL_NORETURN void slzexit(int32_t status);

KEL_END_DECLS

#endif /* SL_H */
