// Threads and synchronisation on POSIX (thread_impl.h): pthreads, pthread
// keys, futexes for the lock word, and semaphores and events each made of a
// mutex, a condition variable on the monotonic clock and a counter.
//
// Sections: threads; thread-local storage; word waiting; semaphores and
// events; the table.
#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "sys/thread_impl.h"

namespace {

// ------------------------------------------------------------------ threads

static_assert(sizeof(pthread_t) <= sizeof(uint64_t), "pthread_t does not fit the handle");

void *trampoline(void *record) {
  sl_internal::thread_main(record);
  return nullptr;
}

int32_t t_start(void *record, size_t stack, uint64_t *os) {
  pthread_attr_t attr;
  int rc = pthread_attr_init(&attr);
  if (rc == 0 && stack > 0) rc = pthread_attr_setstacksize(&attr, stack);
  pthread_t th;
  if (rc == 0) rc = pthread_create(&th, &attr, trampoline, record);
  pthread_attr_destroy(&attr);
  if (rc != 0) {
    errno = rc;
    return -1;
  }
  *os = static_cast<uint64_t>(th);
  return 0;
}

int32_t t_join(uint64_t os) {
  int rc = pthread_join(static_cast<pthread_t>(os), nullptr);
  if (rc != 0) errno = rc;
  return rc == 0 ? 0 : -1;
}

int32_t t_detach(uint64_t os) {
  int rc = pthread_detach(static_cast<pthread_t>(os));
  if (rc != 0) errno = rc;
  return rc == 0 ? 0 : -1;
}

void t_yield() { sched_yield(); }

// ----------------------------------------------------- thread-local storage

static_assert(sizeof(pthread_key_t) <= sizeof(uint32_t), "pthread_key_t does not fit the key");

int32_t t_tls_create(void (*dtor)(void *), uint32_t *key) {
  pthread_key_t k;
  int rc = pthread_key_create(&k, dtor);
  if (rc != 0) {
    errno = rc;
    return -1;
  }
  *key = static_cast<uint32_t>(k);
  return 0;
}

int32_t t_tls_delete(uint32_t key) { return pthread_key_delete(static_cast<pthread_key_t>(key)) == 0 ? 0 : -1; }

void *t_tls_get(uint32_t key) { return pthread_getspecific(static_cast<pthread_key_t>(key)); }

int32_t t_tls_set(uint32_t key, void *value) {
  int rc = pthread_setspecific(static_cast<pthread_key_t>(key), value);
  if (rc != 0) errno = rc;
  return rc == 0 ? 0 : -1;
}

// ------------------------------------------------------------- word waiting

void t_word_wait(std::atomic<uint32_t> *word, uint32_t expect) {
  syscall(SYS_futex, reinterpret_cast<uint32_t *>(word), FUTEX_WAIT_PRIVATE, expect, nullptr, nullptr, 0);
}

void t_word_wake(std::atomic<uint32_t> *word) {
  syscall(SYS_futex, reinterpret_cast<uint32_t *>(word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

// --------------------------------------------------- semaphores and events

// A condition variable waiting on CLOCK_MONOTONIC.
int init_cond(pthread_cond_t *cv) noexcept {
  pthread_condattr_t attr;
  if (pthread_condattr_init(&attr) != 0) return -1;
  int rc = pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
  if (rc == 0) rc = pthread_cond_init(cv, &attr);
  pthread_condattr_destroy(&attr);
  return rc == 0 ? 0 : -1;
}

timespec deadline_after(uint32_t ms) noexcept {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  ts.tv_sec += ms / 1000;
  ts.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
  if (ts.tv_nsec >= 1000000000L) {
    ts.tv_sec += 1;
    ts.tv_nsec -= 1000000000L;
  }
  return ts;
}

// What semaphores and events share: a mutex, a condition and their state.
struct waitable {
  pthread_mutex_t mu;
  pthread_cond_t cv;
};

template <class T>
T *make() noexcept {
  auto *o = static_cast<T *>(malloc(sizeof(T)));
  if (o == nullptr) return nullptr;
  if (pthread_mutex_init(&o->mu, nullptr) != 0) {
    free(o);
    return nullptr;
  }
  if (init_cond(&o->cv) != 0) {
    pthread_mutex_destroy(&o->mu);
    free(o);
    return nullptr;
  }
  return o;
}

template <class T>
int32_t unmake(T *o) noexcept {
  int rc = pthread_cond_destroy(&o->cv);
  rc |= pthread_mutex_destroy(&o->mu);
  free(o);
  return rc == 0 ? 0 : -1;
}

// Waits under the object's mutex until ready(), then consume();
// SL_WAIT_TIMEOUT when the deadline passes first.
template <class T, class Ready, class Consume>
int32_t wait_for(T *o, uint32_t ms, Ready ready, Consume consume) noexcept {
  timespec until{};
  if (ms != SL_INFINITE) until = deadline_after(ms);
  pthread_mutex_lock(&o->mu);
  int32_t result = SL_WAIT_OK;
  while (!ready(o)) {
    int rc = ms == SL_INFINITE ? pthread_cond_wait(&o->cv, &o->mu) : pthread_cond_timedwait(&o->cv, &o->mu, &until);
    if (rc == ETIMEDOUT) {
      if (ready(o)) break;
      result = SL_WAIT_TIMEOUT;
      break;
    }
    if (rc != 0) {
      result = SL_WAIT_FAILED;
      errno = rc;
      break;
    }
  }
  if (result == SL_WAIT_OK) consume(o);
  pthread_mutex_unlock(&o->mu);
  return result;
}

}  // namespace

struct slsem : waitable {
  int32_t count;
  int32_t maximum;
};

struct slevt : waitable {
  bool set;
  bool manual;
};

namespace {

slsem *t_sem_create(int32_t initial, int32_t maximum) {
  slsem *s = make<slsem>();
  if (s == nullptr) return nullptr;
  s->count = initial;
  s->maximum = maximum;
  return s;
}

int32_t t_sem_wait(slsem *sem, uint32_t ms) {
  return wait_for(sem, ms, [](slsem *s) { return s->count > 0; }, [](slsem *s) { --s->count; });
}

int32_t t_sem_release(slsem *sem, int32_t count) {
  pthread_mutex_lock(&sem->mu);
  if (count > sem->maximum - sem->count) {
    pthread_mutex_unlock(&sem->mu);
    errno = SL_ERR_LIMIT;
    return -1;
  }
  sem->count += count;
  if (count == 1)
    pthread_cond_signal(&sem->cv);
  else
    pthread_cond_broadcast(&sem->cv);
  pthread_mutex_unlock(&sem->mu);
  return 0;
}

int32_t t_sem_close(slsem *sem) { return unmake(sem); }

slevt *t_ev_create(int32_t manual_reset, int32_t initially_set) {
  slevt *e = make<slevt>();
  if (e == nullptr) return nullptr;
  e->set = initially_set != 0;
  e->manual = manual_reset != 0;
  return e;
}

int32_t t_ev_set(slevt *ev) {
  pthread_mutex_lock(&ev->mu);
  ev->set = true;
  if (ev->manual)
    pthread_cond_broadcast(&ev->cv);
  else
    pthread_cond_signal(&ev->cv);
  pthread_mutex_unlock(&ev->mu);
  return 0;
}

int32_t t_ev_reset(slevt *ev) {
  pthread_mutex_lock(&ev->mu);
  ev->set = false;
  pthread_mutex_unlock(&ev->mu);
  return 0;
}

int32_t t_ev_wait(slevt *ev, uint32_t ms) {
  return wait_for(ev, ms, [](slevt *e) { return e->set; },
                  [](slevt *e) {
                    if (!e->manual) e->set = false;
                  });
}

int32_t t_ev_close(slevt *ev) { return unmake(ev); }

}  // namespace

// -------------------------------------------------------------------- table

namespace sl_internal {

const ThreadOps kThreadOs = {
    .start = t_start,
    .join = t_join,
    .detach = t_detach,
    .yield = t_yield,
    .tls_create = t_tls_create,
    .tls_delete = t_tls_delete,
    .tls_get = t_tls_get,
    .tls_set = t_tls_set,
    .word_wait = t_word_wait,
    .word_wake = t_word_wake,
    .sem_create = t_sem_create,
    .sem_wait = t_sem_wait,
    .sem_release = t_sem_release,
    .sem_close = t_sem_close,
    .ev_create = t_ev_create,
    .ev_set = t_ev_set,
    .ev_reset = t_ev_reset,
    .ev_wait = t_ev_wait,
    .ev_close = t_ev_close,
};

}  // namespace sl_internal
