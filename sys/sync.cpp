// Critical sections, counting semaphores and events over POSIX threads.
//
// Critical sections are the lock word of cslock_impl.h (one atomic operation
// to enter and one to leave when nobody waits).
//
// Semaphores and events are each a mutex, a condition variable on the
// monotonic clock and a counter, which gives the platform-neutral semantics
// the portable layer relies on: a bounded maximum for semaphores, manual and
// automatic reset for events, and millisecond time limits that do not move
// when the wall clock does.
#include <pthread.h>
#include <time.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include "sl.h"
#include "sys/cslock_impl.h"
#include "sys/fault_impl.h"

namespace {

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

// Shared shape of semaphores and events: wait until ready() under the lock,
// then consume(); SL_WAIT_TIMEOUT when the deadline passes first.
template <class Obj, class Ready, class Consume>
int32_t wait_for(Obj *o, uint32_t ms, Ready ready, Consume consume) noexcept {
  if (o == nullptr) {
    errno = EINVAL;
    return SL_WAIT_FAILED;
  }
  if (SL_FAULT(SL_FAULT_WAIT)) return SL_WAIT_FAILED;
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

struct slsem {
  pthread_mutex_t mu;
  pthread_cond_t cv;
  int32_t count;
  int32_t maximum;
};

struct slevt {
  pthread_mutex_t mu;
  pthread_cond_t cv;
  bool set;
  bool manual;
};

extern "C" {

// ------------------------------------------------------- critical sections

KELAPI int32_t slcsinit(slcs *cs) {
  if (cs == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (SL_FAULT(SL_FAULT_CS_INIT)) return -1;
  new (sl_internal::cs_word(cs)) sl_internal::csword(sl_internal::kCsFree);
  return 0;
}

KELAPI void slcsenter(slcs *cs) { sl_internal::cs_enter(cs); }

KELAPI int32_t slcstry(slcs *cs) { return sl_internal::cs_try(cs) ? 1 : 0; }

KELAPI void slcsleave(slcs *cs) { sl_internal::cs_leave(cs); }

KELAPI int32_t slcsdelete(slcs *cs) {
  if (cs == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (SL_FAULT(SL_FAULT_CLOSE)) return -1;
  // A section still held is in use: refuse, as a busy mutex would be.
  if (sl_internal::cs_word(cs)->load(std::memory_order_relaxed) != sl_internal::kCsFree) {
    errno = EBUSY;
    return -1;
  }
  return 0;
}

// -------------------------------------------------------------- semaphores

KELAPI slsem *slsemcreate(int32_t initial, int32_t maximum) {
  if (initial < 0 || maximum < 0 || initial > maximum) {
    errno = EINVAL;
    return nullptr;
  }
  if (SL_FAULT(SL_FAULT_SEM_CREATE)) return nullptr;
  auto *s = static_cast<slsem *>(malloc(sizeof(slsem)));
  if (s == nullptr) return nullptr;
  if (pthread_mutex_init(&s->mu, nullptr) != 0) {
    free(s);
    return nullptr;
  }
  if (init_cond(&s->cv) != 0) {
    pthread_mutex_destroy(&s->mu);
    free(s);
    return nullptr;
  }
  s->count = initial;
  s->maximum = maximum;
  return s;
}

KELAPI int32_t slsemwait(slsem *sem, uint32_t ms) {
  return wait_for(
      sem, ms, [](slsem *s) { return s->count > 0; }, [](slsem *s) { --s->count; });
}

KELAPI int32_t slsemrelease(slsem *sem, int32_t count) {
  if (sem == nullptr || count <= 0) {
    errno = EINVAL;
    return -1;
  }
  if (SL_FAULT(SL_FAULT_SEM_RELEASE)) return -1;
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

KELAPI int32_t slsemclose(slsem *sem) {
  if (sem == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int rc = pthread_cond_destroy(&sem->cv);
  rc |= pthread_mutex_destroy(&sem->mu);
  free(sem);
  if (SL_FAULT(SL_FAULT_CLOSE)) return -1;
  return rc == 0 ? 0 : -1;
}

// ------------------------------------------------------------------ events

KELAPI slevt *slevcreate(int32_t manual_reset, int32_t initially_set) {
  if (SL_FAULT(SL_FAULT_EVENT_CREATE)) return nullptr;
  auto *e = static_cast<slevt *>(malloc(sizeof(slevt)));
  if (e == nullptr) return nullptr;
  if (pthread_mutex_init(&e->mu, nullptr) != 0) {
    free(e);
    return nullptr;
  }
  if (init_cond(&e->cv) != 0) {
    pthread_mutex_destroy(&e->mu);
    free(e);
    return nullptr;
  }
  e->set = initially_set != 0;
  e->manual = manual_reset != 0;
  return e;
}

KELAPI int32_t slevset(slevt *ev) {
  if (ev == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (SL_FAULT(SL_FAULT_EVENT_SET)) return -1;
  pthread_mutex_lock(&ev->mu);
  ev->set = true;
  if (ev->manual)
    pthread_cond_broadcast(&ev->cv);
  else
    pthread_cond_signal(&ev->cv);
  pthread_mutex_unlock(&ev->mu);
  return 0;
}

KELAPI int32_t slevreset(slevt *ev) {
  if (ev == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (SL_FAULT(SL_FAULT_EVENT_SET)) return -1;
  pthread_mutex_lock(&ev->mu);
  ev->set = false;
  pthread_mutex_unlock(&ev->mu);
  return 0;
}

KELAPI int32_t slevwait(slevt *ev, uint32_t ms) {
  return wait_for(
      ev, ms, [](slevt *e) { return e->set; },
      [](slevt *e) {
        if (!e->manual) e->set = false;
      });
}

KELAPI int32_t slevclose(slevt *ev) {
  if (ev == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int rc = pthread_cond_destroy(&ev->cv);
  rc |= pthread_mutex_destroy(&ev->mu);
  free(ev);
  if (SL_FAULT(SL_FAULT_CLOSE)) return -1;
  return rc == 0 ? 0 : -1;
}

}  // extern "C"
