// thread_impl.h - threads and synchronisation: the platform's table.
//
// What the portable code of sys/ builds on: starting and ending threads,
// thread-local storage, sleeping on a 32-bit word (the lock word of the
// critical sections, cslock_impl.h; Windows uses its own sections), and the
// platform's counting semaphores and events, which keep the semantics of
// sl.h (a bounded maximum, manual or automatic reset, millisecond limits that
// do not move with the wall clock).
// The exported functions (sys/thread.cpp, sys/sync.cpp) check arguments and
// count fault points; the entries only do the platform's work. Failures
// return -1 (null for pointers) with the reason for slerrno().
//
// Defined by sys/<platform>/thread.cpp as kThreadOs; the portable part calls it
// through thread_os() (table_impl.h), which test builds can redirect.
#ifndef KEL_SYS_THREAD_IMPL_H
#define KEL_SYS_THREAD_IMPL_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "sl.h"
#include "sys/table_impl.h"

namespace sl_internal {

// The body every started thread runs (sys/thread.cpp): the platform's entry
// calls it with the record that start was given.
void thread_main(void *record) noexcept;

struct ThreadOps {
  // --------------------------------------------------------------- threads
  // Starts a thread that runs thread_main(record) on a stack of at least
  // `stack` bytes (0: the default); the platform's handle goes to *os.
  int32_t (*start)(void *record, size_t stack, uint64_t *os);
  // Waits for the thread to end and gives its handle back.
  int32_t (*join)(uint64_t os);
  // Gives the handle back; the thread runs on and cleans up after itself.
  int32_t (*detach)(uint64_t os);
  void (*yield)(void);
  // --------------------------------------------------- thread-local storage
  // A key whose `dtor` (may be null) runs at thread exit for a non-null value.
  int32_t (*tls_create)(void (*dtor)(void *), uint32_t *key);
  int32_t (*tls_delete)(uint32_t key);
  void *(*tls_get)(uint32_t key);
  int32_t (*tls_set)(uint32_t key, void *value);
#ifndef _WIN32
  // ---------------------------------------------------------- word waiting
  // Where the lock word sleeps (Windows sections are the system's own and
  // need none). Sleeps while *word holds `expect`; may return early for no
  // reason (a signal, a spurious wake-up), so the caller looks at the word
  // again.
  void (*word_wait)(std::atomic<uint32_t> *word, uint32_t expect);
  // Wakes one thread sleeping on word, if any.
  void (*word_wake)(std::atomic<uint32_t> *word);
#endif
  // ------------------------------------------------ semaphores and events
  // As slsem* / slev* of sl.h, with arguments already checked.
  slsem *(*sem_create)(int32_t initial, int32_t maximum);
  int32_t (*sem_wait)(slsem *sem, uint32_t ms);
  int32_t (*sem_release)(slsem *sem, int32_t count);
  int32_t (*sem_close)(slsem *sem);
  slevt *(*ev_create)(int32_t manual_reset, int32_t initially_set);
  int32_t (*ev_set)(slevt *ev);
  int32_t (*ev_reset)(slevt *ev);
  int32_t (*ev_wait)(slevt *ev, uint32_t ms);
  int32_t (*ev_close)(slevt *ev);
};

extern const ThreadOps kThreadOs;

KEL_SYS_TABLE(ThreadOps, thread, kThreadOs)

}  // namespace sl_internal

#endif
