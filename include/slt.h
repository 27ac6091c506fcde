/*
 * slt.h - threads and synchronisation of the system layer.
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

KEL_END_DECLS

#endif /* SLT_H */
