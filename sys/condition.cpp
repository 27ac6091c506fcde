// Condition variables over a counting semaphore, a gate event and counters.
//
// A waiter registers itself (waiters + 1) under the internal lock while it
// still holds the caller's mutex, so a signaller that takes the mutex
// afterwards always sees it. A signal or broadcast first waits for the gate
// and closes it, then releases the semaphore for the registered waiters not
// yet released and records how many of them are still to wake. While that
// delivery is in progress the gate stays closed, so a thread that starts
// waiting now cannot take a wake-up meant for an earlier waiter; the last
// woken waiter opens the gate as it leaves.
//
// The counters are only touched under the internal lock, and the gate is
// opened under it as well (except on the failure path of an untimed wait), so
// a reader holding the lock sees counters and gate agree. The caller's mutex
// is never held while blocking on the semaphore.
//
// Sections: helpers; init/destroy; wait and timed wait; signal and broadcast.
#include "slt.h"

#include "sl.h"

namespace slt_internal {
namespace {

// Locks the internal lock for the scope of a block.
class Guard {
 public:
  explicit Guard(slcs *cs) noexcept : cs_(cs) { slcsenter(cs_); }
  ~Guard() { slcsleave(cs_); }
  Guard(const Guard &) = delete;
  Guard &operator=(const Guard &) = delete;

 private:
  slcs *cs_;
};

constexpr int32_t kSemMax = 0x7FFFFFFF;

// Shared by signal and broadcast: `all` releases every registered waiter not
// yet released, otherwise one.
int32_t deliver(w32cond *cond, bool all) noexcept {
  if (cond == nullptr || cond->lock == nullptr) return -1;
  if (slevwait(cond->gate, SL_INFINITE) != SL_WAIT_OK) return -1;
  if (slevreset(cond->gate) != 0) return -1;
  Guard g(cond->lock);
  if (cond->released < cond->waiters) {
    int32_t n = all ? cond->waiters - cond->released : 1;
    if (slsemrelease(cond->sem, n) != 0) {
      slevset(cond->gate);
      return -1;
    }
    cond->released += n;
    cond->towake = n;
    // The gate stays closed until the last of these has woken.
  } else {
    slevset(cond->gate);  // nobody to wake
  }
  return 0;
}

}  // namespace
}  // namespace slt_internal

using slt_internal::Guard;

extern "C" {

// ------------------------------------------------------------ init/destroy

KELAPI int32_t w32cond_init(w32cond *cond) {
  if (cond == nullptr) return -1;
  cond->lock = nullptr;
  cond->gate = nullptr;
  cond->sem = slsemcreate(0, slt_internal::kSemMax);
  if (cond->sem == nullptr) return -1;
  cond->gate = slevcreate(1, 1);
  if (cond->gate != nullptr) {
    auto *lock = static_cast<slcs *>(ss_mem_alc(sizeof(slcs)));
    if (lock != nullptr) {
      if (slcsinit(lock) == 0) {
        cond->lock = lock;
        cond->waiters = 0;
        cond->released = 0;
        cond->towake = 0;
        return 0;
      }
      ss_mem_fre(lock);
    }
    slevclose(cond->gate);
    cond->gate = nullptr;
  }
  slsemclose(cond->sem);
  cond->sem = nullptr;
  return -1;
}

KELAPI int32_t w32cond_destroy(w32cond *cond) {
  if (cond == nullptr) return -1;
  if (cond->lock != nullptr) {
    // A critical section that cannot be deleted is freed all the same; only
    // the two handles decide the result.
    slcsdelete(cond->lock);
    ss_mem_fre(cond->lock);
    cond->lock = nullptr;
  }
  int32_t rc = 0;
  if (cond->sem == nullptr || slsemclose(cond->sem) != 0) rc = -1;
  if (cond->gate == nullptr || slevclose(cond->gate) != 0) rc = -1;
  cond->sem = nullptr;
  cond->gate = nullptr;
  return rc;
}

// ----------------------------------------------------- wait and timed wait

KELAPI int32_t w32cond_wait(w32cond *cond, w32mutex *mutex) {
  if (cond == nullptr || cond->lock == nullptr || mutex == nullptr) return -1;
  if (slevwait(cond->gate, SL_INFINITE) != SL_WAIT_OK) return -1;
  {
    Guard g(cond->lock);
    ++cond->waiters;
  }
  slcsleave(&mutex->cs);
  if (slsemwait(cond->sem, SL_INFINITE) != SL_WAIT_OK) {
    // The waiter count is left as it is: this thread cannot tell whether a
    // release meant for it is still pending.
    slcsenter(&mutex->cs);
    slevset(cond->gate);
    return -1;
  }
  {
    Guard g(cond->lock);
    --cond->waiters;
    --cond->released;
    if (cond->towake-- == 1) slevset(cond->gate);  // the last released waiter
  }
  slcsenter(&mutex->cs);
  return 0;
}

KELAPI int32_t w32cond_timedwait(w32cond *cond, w32mutex *mutex, uint32_t milliseconds) {
  if (cond == nullptr || cond->lock == nullptr || mutex == nullptr) return -1;
  if (slevwait(cond->gate, SL_INFINITE) != SL_WAIT_OK) return -1;
  {
    Guard g(cond->lock);
    ++cond->waiters;
  }
  slcsleave(&mutex->cs);
  int32_t w = slsemwait(cond->sem, milliseconds);
  int32_t result;
  if (w == SL_WAIT_OK) {
    result = 0;
  } else if (w != SL_WAIT_FAILED) {
    result = -1;  // timed out
  } else {
    int32_t err = slerrno();
    result = err == SL_ERR_TIMEOUT || err <= 0 ? -1 : -err;
  }
  {
    Guard g(cond->lock);
    --cond->waiters;
    if (w == SL_WAIT_OK) {
      --cond->released;
      --cond->towake;
    }
    // Opened on every return: a waiter that timed out may have been the one a
    // delivery was counting on.
    slevset(cond->gate);
  }
  slcsenter(&mutex->cs);
  return result;
}

// --------------------------------------------------- signal and broadcast

KELAPI int32_t w32cond_signal(w32cond *cond) { return slt_internal::deliver(cond, false); }

KELAPI int32_t w32cond_broadcast(w32cond *cond) { return slt_internal::deliver(cond, true); }

}  // extern "C"
