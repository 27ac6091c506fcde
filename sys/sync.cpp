// Critical sections, counting semaphores and events (sl.h).
//
// Critical sections are the lock word of cslock_impl.h: one atomic operation
// to enter and one to leave when nobody waits, the platform's word waiting
// only under contention. Semaphores and events are the platform's
// (thread_impl.h); this file checks their arguments and counts their fault
// points.
#include <new>

#include "lfi.h"
#include "sl.h"
#include "sys/cslock_impl.h"
#include "sys/error_impl.h"
#include "sys/fault_impl.h"
#include "sys/thread_impl.h"

using sl_internal::fail;
using sl_internal::thread_os;

extern "C" {

// ------------------------------------------------------- critical sections

KELAPI int32_t slcsinit(slcs *cs) {
  if (cs == nullptr) return fail(SLF_E_BADARG);
  if (SL_FAULT(SL_FAULT_CS_INIT)) return -1;
  sl_internal::cs_init(cs);
  return 0;
}

KELAPI void slcsenter(slcs *cs) { sl_internal::cs_enter(cs); }

KELAPI int32_t slcstry(slcs *cs) { return sl_internal::cs_try(cs) ? 1 : 0; }

KELAPI void slcsleave(slcs *cs) { sl_internal::cs_leave(cs); }

KELAPI int32_t slcsdelete(slcs *cs) {
  if (cs == nullptr) return fail(SLF_E_BADARG);
  if (SL_FAULT(SL_FAULT_CLOSE)) return -1;
  // A section still held is in use: refuse, as a busy mutex would be.
  if (!sl_internal::cs_destroy(cs)) return fail(SLF_E_BADARG);
  return 0;
}

// -------------------------------------------------------------- semaphores

KELAPI slsem *slsemcreate(int32_t initial, int32_t maximum) {
  if (initial < 0 || maximum < 0 || initial > maximum) {
    fail(SLF_E_BADARG);
    return nullptr;
  }
  if (SL_FAULT(SL_FAULT_SEM_CREATE)) return nullptr;
  return thread_os().sem_create(initial, maximum);
}

KELAPI int32_t slsemwait(slsem *sem, uint32_t ms) {
  if (sem == nullptr) return fail(SLF_E_BADARG);
  if (SL_FAULT(SL_FAULT_WAIT)) return SL_WAIT_FAILED;
  return thread_os().sem_wait(sem, ms);
}

KELAPI int32_t slsemrelease(slsem *sem, int32_t count) {
  if (sem == nullptr || count <= 0) return fail(SLF_E_BADARG);
  if (SL_FAULT(SL_FAULT_SEM_RELEASE)) return -1;
  return thread_os().sem_release(sem, count);
}

KELAPI int32_t slsemclose(slsem *sem) {
  if (sem == nullptr) return fail(SLF_E_BADARG);
  int32_t rc = thread_os().sem_close(sem);
  // The semaphore is gone either way; a refusal only changes the answer.
  if (SL_FAULT(SL_FAULT_CLOSE)) return -1;
  return rc;
}

// ------------------------------------------------------------------ events

KELAPI slevt *slevcreate(int32_t manual_reset, int32_t initially_set) {
  if (SL_FAULT(SL_FAULT_EVENT_CREATE)) return nullptr;
  return thread_os().ev_create(manual_reset != 0, initially_set != 0);
}

KELAPI int32_t slevset(slevt *ev) {
  if (ev == nullptr) return fail(SLF_E_BADARG);
  if (SL_FAULT(SL_FAULT_EVENT_SET)) return -1;
  return thread_os().ev_set(ev);
}

KELAPI int32_t slevreset(slevt *ev) {
  if (ev == nullptr) return fail(SLF_E_BADARG);
  if (SL_FAULT(SL_FAULT_EVENT_SET)) return -1;
  return thread_os().ev_reset(ev);
}

KELAPI int32_t slevwait(slevt *ev, uint32_t ms) {
  if (ev == nullptr) return fail(SLF_E_BADARG);
  if (SL_FAULT(SL_FAULT_WAIT)) return SL_WAIT_FAILED;
  return thread_os().ev_wait(ev, ms);
}

KELAPI int32_t slevclose(slevt *ev) {
  if (ev == nullptr) return fail(SLF_E_BADARG);
  int32_t rc = thread_os().ev_close(ev);
  if (SL_FAULT(SL_FAULT_CLOSE)) return -1;
  return rc;
}

}  // extern "C"
