/*
 * slt.h - threads, synchronisation, timers and system information.
 *
 * Sections: condition variables (w32cond_*); threads (slt*); recursive
 * mutexes and read-write locks (sltsrm*, SltsPr*, sltskr*); the registry of
 * owned mutexes with deadlock detection (ltsr*, ltsmx*); timers (ltm*);
 * system information (slsi*).
 *
 * Condition variables (w32cond_*) built from the primitives of sl.h: a
 * counting semaphore on which waiters block, a manual-reset "gate" event that
 * keeps newly arriving waiters out while a signal or broadcast is being
 * delivered, and three counters guarded by an internal critical section.
 *
 * The caller's mutex is a w32mutex, a record whose first field is its
 * critical section; any record that starts with an slcs (an sltsmx, for
 * instance) may be passed by casting its address.
 *
 * Results are 0 for success and -1 for failure unless a function says
 * otherwise; the reason of a failure is the calling thread's system error
 * (slerrno). Spurious wake-ups are possible: a caller re-checks its
 * predicate after every return, as with any condition variable.
 */
#ifndef SLT_H
#define SLT_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"
#include "lfi.h"
#include "lpm.h"
#include "sl.h"

KEL_BEGIN_DECLS

/* ------------------------------------------------------ condition variables */

/* A caller's mutex as the condition variables see it: the critical section
 * must be the first field of the record. Initialise and delete it with
 * slcsinit / slcsdelete; lock it with slcsenter / slcsleave. */
typedef struct w32mutex {
  slcs cs;
} w32mutex;

/* A condition variable. The fields are the implementation's; callers only
 * pass the record's address. Counters are read and written only under `lock`. */
typedef struct w32cond {
  slcs *lock;       /* internal lock, allocated separately (system allocator) */
  int32_t waiters;  /* threads inside a wait that have not left it yet */
  int32_t released; /* waiters for which the semaphore was released, not yet consumed */
  int32_t towake;   /* released waiters still to wake since the last signal/broadcast */
  slsem *sem;       /* waiters block here: initial 0, maximum 0x7FFFFFFF */
  slevt *gate;      /* manual-reset event, set (open) unless a delivery is in progress */
} w32cond;

/* Initialises `cond`: creates the semaphore, then the gate (open), then
 * allocates and initialises the internal lock, and zeroes the counters.
 * Returns 0, or -1 when any step fails (a null cond included); whatever was
 * created before the failing step is closed again, and the record's handles
 * are left null. Not thread-safe with respect to other uses of `cond`. */
KELAPI int32_t w32cond_init(w32cond *cond);

/* Waits on `cond`. The caller holds `mutex`; it is released while the thread
 * blocks and held again when the function returns, whatever the result.
 * Waits first, without limit, for the gate to open (a signal or broadcast in
 * progress), then registers as a waiter and blocks on the semaphore.
 * Returns 0 when woken; -1 when the gate wait or the semaphore wait failed
 * (after a failed semaphore wait the waiter count is deliberately left as it
 * is and the gate is opened). Thread-safe. */
KELAPI int32_t w32cond_wait(w32cond *cond, w32mutex *mutex);

/* As w32cond_wait, but the semaphore wait is limited to `milliseconds`
 * (SL_INFINITE: no limit; the gate wait is never limited). Returns 0 when
 * signalled; -1 on timeout (or any other wait result that is not a failure)
 * and when the gate wait failed; for a failed semaphore wait -1 when the
 * system error is SL_ERR_TIMEOUT, else the negated system error number.
 * The gate is opened on every return from the semaphore wait. `mutex` is
 * held again on return. Thread-safe. */
KELAPI int32_t w32cond_timedwait(w32cond *cond, w32mutex *mutex, uint32_t milliseconds);

/* Wakes one waiter of `cond`, if there is one that has not been woken yet.
 * Waits for the gate and closes it; the woken waiter opens it again once it
 * has left. With nobody to wake, the gate is reopened at once and nothing
 * else changes. Returns 0; -1 when the gate could not be waited for or
 * closed, or the semaphore could not be released (the gate is then open and
 * the counters unchanged). The caller may or may not hold the mutex used by
 * the waiters. Thread-safe. */
KELAPI int32_t w32cond_signal(w32cond *cond);

/* As w32cond_signal, but wakes every waiter registered and not yet woken:
 * the semaphore is released by that number in one call, and the gate stays
 * closed until the last of them has left. Thread-safe. */
KELAPI int32_t w32cond_broadcast(w32cond *cond);

/* Deletes and frees the internal lock, then closes the semaphore and the
 * gate. Every handle is released whatever happens; returns -1 when closing
 * the semaphore or the gate failed, else 0. Nobody may wait on `cond` or be
 * about to. */
KELAPI int32_t w32cond_destroy(w32cond *cond);

/* ------------------------------------------------------------------ threads */

/* A started thread, until it is joined or detached. */
typedef struct sltthread sltthread;

/* The body of a thread: its result is handed to sltjoin. */
typedef void *(*sltbody)(void *arg);

/* Starts a thread running body(arg) with a stack of at least `stacksize`
 * bytes (0: the system's default). Returns its handle, or null (nothing
 * started). Thread-safe. */
KELAPI sltthread *sltcreate(sltbody body, void *arg, size_t stacksize);
/* Waits for the thread to end, stores its result in *result (may be null)
 * and frees the handle. Exactly one of sltjoin / sltdetach per handle; a
 * thread cannot join itself (-1). */
KELAPI int32_t sltjoin(sltthread *t, void **result);
/* Lets the thread run on by itself and frees the handle; its resources go
 * back to the system when it ends. */
KELAPI int32_t sltdetach(sltthread *t);
/* The thread's process-unique number (as slthrself gives inside it); waits
 * until the new thread has taken it, which is at most a moment after start. */
KELAPI uint64_t sltid(sltthread *t);

/* ---------------------------------------------------------- recursive mutex
 * A mutex the owner may take again; it is free once released as often as it
 * was taken. */
typedef struct sltsrmx {
  slcs cs;
  uint64_t owner; /* slthrself of the owner, 0 when free */
  uint32_t depth;
  uint32_t spare;
} sltsrmx;

KELAPI int32_t sltsrmi(sltsrmx *m);
/* Takes the mutex (again, for its owner). */
KELAPI int32_t sltsrma(sltsrmx *m);
/* 1 taken, 0 held by another thread. */
KELAPI int32_t sltsrmt(sltsrmx *m);
/* Releases once; -1 (nothing changes) when the caller does not own it. */
KELAPI int32_t sltsrmr(sltsrmx *m);
/* Destroys a free mutex; -1 when it is held (it is left as it was). */
KELAPI int32_t sltsrmd(sltsrmx *m);

/* --------------------------------------------------------- read-write locks
 * Many readers or one writer, built on the condition variables. Two
 * policies over one record:
 *   SltsPr*  writers first: once a writer waits, new readers wait behind it,
 *            so a steady stream of readers cannot starve writers;
 *   sltskr*  readers first: a reader enters whenever no writer holds the
 *            lock, so a thread that holds it for reading may take it for
 *            reading again even while a writer waits. Writers can starve
 *            under a steady stream of readers; use it where reads nest.
 * Neither is recursive for writers; a reader may not upgrade to writer.
 * Unlock releases whichever mode the caller holds. All are thread-safe on
 * an initialised lock; init and destroy are not. */
typedef struct sltsrw {
  w32mutex m;      /* guards the counters */
  w32cond readers; /* readers wait here */
  w32cond writers; /* writers wait here */
  int32_t active;  /* atomic: readers holding, writer bit, pending bit */
  int32_t rwait;   /* readers waiting */
  int32_t wwait;   /* writers waiting */
  int32_t policy;  /* 1 writers first, 2 readers first */
} sltsrw;

typedef sltsrw SltsPrLock;

KELAPI int32_t SltsPrInit(SltsPrLock *rw);
KELAPI int32_t SltsPrRead(SltsPrLock *rw);
KELAPI int32_t SltsPrWrite(SltsPrLock *rw);
/* -1 when the lock is not held at all. */
KELAPI int32_t SltsPrUnlock(SltsPrLock *rw);
/* -1 when the lock is held or waited for (it is left as it was), or when a
 * condition variable could not be destroyed. */
KELAPI int32_t SltsPrDestroy(SltsPrLock *rw);

/* The readers-first lock; `ts` is the thread-services context of the caller
 * (checked, for symmetry with sltsmx*). */
KELAPI int32_t sltskrinit(sltsctx *ts, sltsrw *rw);
KELAPI int32_t sltskrread(sltsctx *ts, sltsrw *rw);
KELAPI int32_t sltskrwrite(sltsctx *ts, sltsrw *rw);
KELAPI int32_t sltskrunlock(sltsctx *ts, sltsrw *rw);
KELAPI int32_t sltskrdestroy(sltsctx *ts, sltsrw *rw);

/* ------------------------------------------- mutex registry and deadlocks
 * Mutexes made in a registry record who owns them and who waits for them.
 * An acquire that would have to wait for a mutex whose owner (directly, or
 * through a chain of owners waiting for other registered mutexes) waits for
 * a mutex the caller owns would never return: it is refused at once with a
 * record of facility "LTS" (message LTS_DEADLOCK) that names the cycle,
 * thread by thread and mutex by mutex, and returns -1. The caller still
 * owns what it owned; releasing something breaks the cycle.
 * Everything is thread-safe except ltsrcreate / ltsrdestroy. */
typedef struct ltsreg ltsreg;
typedef struct ltsmx ltsmx;

/* Makes a registry whose records go to the error stacks of `ctx` (facility
 * "LTS" is registered with it). Null on failure. */
KELAPI ltsreg *ltsrcreate(lcorectx *ctx);
/* Frees the registry; -1 (nothing freed) while mutexes are registered. */
KELAPI int32_t ltsrdestroy(ltsreg *reg);

/* A new mutex named `name` (copied; shown in cycle reports). Null with a
 * record on failure. */
KELAPI ltsmx *ltsmxnew(ltsreg *reg, const char *name);
/* Frees a mutex nobody holds or waits for; -1 with LTS_BUSY otherwise. */
KELAPI int32_t ltsmxfree(ltsreg *reg, ltsmx *mx);
/* Takes the mutex, waiting as long as needed unless waiting would deadlock.
 * 0 taken; -1 with LTS_DEADLOCK (cycle) or LTS_RELOCK (the caller owns it
 * already: these mutexes are not recursive, and waiting would hang). */
KELAPI int32_t ltsmxlock(ltsreg *reg, ltsmx *mx);
/* 1 taken, 0 owned by a thread (the caller included), -1 bad arguments. */
KELAPI int32_t ltsmxtry(ltsreg *reg, ltsmx *mx);
/* Releases; -1 with LTS_NOTOWNER when the caller does not own it. */
KELAPI int32_t ltsmxunlock(ltsreg *reg, ltsmx *mx);
/* The owner's thread number (slthrself), 0 when free. */
KELAPI uint64_t ltsmxowner(ltsreg *reg, ltsmx *mx);
/* The number of threads waiting for the mutex. */
KELAPI int32_t ltsmxwaiters(ltsreg *reg, ltsmx *mx);

/* ------------------------------------------------------------------ timers
 * One timer thread per timer context runs the callbacks, one at a time, in
 * the order of their due times. A slow callback delays those after it; a
 * periodic timer keeps its schedule (due times advance by the period) but
 * skips beats it has missed rather than firing them in a burst. */
typedef struct ltmctx ltmctx;
typedef struct ltmtimer ltmtimer;
typedef void (*ltmcallback)(void *arg);

/* Starts a timer context and its thread. Null on failure. */
KELAPI ltmctx *ltmini(void);
/* Cancels every timer (as ltmcancel), stops and joins the thread and frees
 * the context. Not from a callback. 0 / -1. */
KELAPI int32_t ltmter(ltmctx *tc);
/* Schedules cb(arg) in `delay_us` microseconds, then every `period_us`
 * microseconds (0: once). Returns the timer, or null. A timer stays valid,
 * fired or not, until ltmcancel or ltmter. Thread-safe. */
KELAPI ltmtimer *ltmstart(ltmctx *tc, uint64_t delay_us, uint64_t period_us, ltmcallback cb, void *arg);
/* Cancels and frees a timer. When it returns, the callback is not running
 * and will not run again, unless it is called from the timer's own callback:
 * then the current run finishes and the timer is freed after it. 0 / -1. */
KELAPI int32_t ltmcancel(ltmctx *tc, ltmtimer *tm);
/* Times the timer's callback has run (so far). */
KELAPI uint64_t ltmfired(ltmctx *tc, ltmtimer *tm);
/* Monotonic time in nanoseconds and the nanoseconds elapsed since `start`
 * (a value of ltmnow). */
KELAPI uint64_t ltmnow(void);
KELAPI uint64_t ltmelapsed(uint64_t start);

/* ----------------------------------------------------- system information
 * Thread-safe; text results go into caller buffers (NUL-terminated) and
 * return their length, or -1 when the buffer is too small or the system
 * cannot tell (buf is then unspecified). */

/* The process's identifier. */
KELAPI int64_t slsipid(void);
/* The host's name. */
KELAPI int32_t slsihost(char *buf, size_t len);
/* The name of the account the process runs as (its effective user). */
KELAPI int32_t slsiuser(char *buf, size_t len);
/* Processors available to the process (at least 1). */
KELAPI int32_t slsincpu(void);
/* The virtual-memory page size in bytes. */
KELAPI size_t slsipage(void);
/* Physical memory in bytes (0 when unknown). */
KELAPI uint64_t slsimem(void);
/* The current and the temporary directory: slgetcwd and sltmpdir of lfi.h. */

/* Everything above in one record. */
typedef struct ltssi {
  int64_t pid;
  int32_t ncpu;
  int32_t spare;
  size_t pagesize;
  uint64_t memory;
  char host[256];
  char user[256];
  char cwd[4096];
  char tmpdir[4096];
} ltssi;

/* Fills *si. 0; -1 when si is null or a text could not be told (it is left
 * empty, everything else is filled). Thread-safe. */
KELAPI int32_t ltssysinfo(ltssi *si);

KEL_END_DECLS

#endif /* SLT_H */
