// Timers: a list of due times served by one thread.
//
// The thread sleeps on a condition until the earliest due time (or until a
// new earlier timer or a stop wakes it), takes the first due timer off the
// list and runs its callback without the lock held. `running` names the
// timer whose callback is executing, so that a cancel from another thread
// can wait until that run has finished: after ltmcancel returns the
// callback is neither running nor due. Periodic timers are put back with
// their next due time, the missed beats of a late run skipped.
//
// The list is kept sorted (insertion is linear): a process holds a handful
// of timers, and the thread only ever needs the first.
//
// Sections: records; the timer thread; interface.
#include "slt.h"

struct ltmtimer {
  ltmtimer *next;
  uint64_t due;     // monotonic ns
  uint64_t period;  // ns, 0 = once
  ltmcallback cb;
  void *arg;
  uint64_t fired;
  bool queued;
  bool cancelled;  // cancelled from its own callback: free after the run
};

struct ltmctx {
  w32mutex lock;
  w32cond wake;  // the timer thread sleeps here
  w32cond done;  // cancellers wait here for a run to end
  ltmtimer *head;
  ltmtimer *running;
  uint64_t thread_id;
  sltthread *thread;
  bool stop;
};

namespace {

void enqueue(ltmctx *tc, ltmtimer *tm) noexcept {
  ltmtimer **p = &tc->head;
  while (*p != nullptr && (*p)->due <= tm->due) p = &(*p)->next;
  tm->next = *p;
  *p = tm;
  tm->queued = true;
}

void dequeue(ltmctx *tc, ltmtimer *tm) noexcept {
  for (ltmtimer **p = &tc->head; *p != nullptr; p = &(*p)->next)
    if (*p == tm) {
      *p = tm->next;
      break;
    }
  tm->queued = false;
  tm->next = nullptr;
}

// ------------------------------------------------------------ timer thread

void *timer_thread(void *p) {
  auto *tc = static_cast<ltmctx *>(p);
  slcsenter(&tc->lock.cs);
  while (!tc->stop) {
    if (tc->head == nullptr) {
      w32cond_wait(&tc->wake, &tc->lock);
      continue;
    }
    uint64_t now = slmonons();
    ltmtimer *tm = tc->head;
    if (tm->due > now) {
      uint64_t ms = (tm->due - now + 999999) / 1000000;
      w32cond_timedwait(&tc->wake, &tc->lock, ms > 0x7FFFFFFF ? 0x7FFFFFFFu : static_cast<uint32_t>(ms));
      continue;
    }
    dequeue(tc, tm);
    tc->running = tm;
    slcsleave(&tc->lock.cs);
    tm->cb(tm->arg);
    slcsenter(&tc->lock.cs);
    tc->running = nullptr;
    tm->fired++;
    if (tm->cancelled) {
      ss_mem_fre(tm);
    } else if (tm->period != 0) {
      uint64_t after = slmonons();
      tm->due += tm->period;
      if (tm->due <= after) tm->due += ((after - tm->due) / tm->period + 1) * tm->period;
      enqueue(tc, tm);
    }
    w32cond_broadcast(&tc->done);
  }
  slcsleave(&tc->lock.cs);
  return nullptr;
}

}  // namespace

extern "C" {

// --------------------------------------------------------------- interface

KELAPI uint64_t ltmnow(void) { return slmonons(); }

KELAPI uint64_t ltmelapsed(uint64_t start) {
  uint64_t now = slmonons();
  return now > start ? now - start : 0;
}

KELAPI ltmctx *ltmini(void) {
  auto *tc = static_cast<ltmctx *>(ss_mem_calc(sizeof(ltmctx)));
  if (tc == nullptr) return nullptr;
  int stage = 0;
  if (slcsinit(&tc->lock.cs) == 0 && (stage = 1, w32cond_init(&tc->wake) == 0) &&
      (stage = 2, w32cond_init(&tc->done) == 0) && (stage = 3, (tc->thread = sltcreate(timer_thread, tc, 0)) != nullptr)) {
    tc->thread_id = sltid(tc->thread);
    return tc;
  }
  if (stage >= 3) w32cond_destroy(&tc->done);
  if (stage >= 2) w32cond_destroy(&tc->wake);
  if (stage >= 1) slcsdelete(&tc->lock.cs);
  ss_mem_fre(tc);
  return nullptr;
}

KELAPI int32_t ltmter(ltmctx *tc) {
  if (tc == nullptr || slthrself() == tc->thread_id) return -1;
  slcsenter(&tc->lock.cs);
  tc->stop = true;
  w32cond_signal(&tc->wake);
  slcsleave(&tc->lock.cs);
  int32_t rc = sltjoin(tc->thread, nullptr);
  while (tc->head != nullptr) {
    ltmtimer *tm = tc->head;
    tc->head = tm->next;
    ss_mem_fre(tm);
  }
  if (w32cond_destroy(&tc->wake) != 0) rc = -1;
  if (w32cond_destroy(&tc->done) != 0) rc = -1;
  if (slcsdelete(&tc->lock.cs) != 0) rc = -1;
  ss_mem_fre(tc);
  return rc;
}

KELAPI ltmtimer *ltmstart(ltmctx *tc, uint64_t delay_us, uint64_t period_us, ltmcallback cb, void *arg) {
  if (tc == nullptr || cb == nullptr || delay_us > (UINT64_MAX / 4000) || period_us > (UINT64_MAX / 4000)) return nullptr;
  auto *tm = static_cast<ltmtimer *>(ss_mem_calc(sizeof(ltmtimer)));
  if (tm == nullptr) return nullptr;
  tm->due = slmonons() + delay_us * 1000;
  tm->period = period_us * 1000;
  tm->cb = cb;
  tm->arg = arg;
  slcsenter(&tc->lock.cs);
  enqueue(tc, tm);
  // Only a new first timer changes how long the thread must sleep.
  if (tc->head == tm) w32cond_signal(&tc->wake);
  slcsleave(&tc->lock.cs);
  return tm;
}

KELAPI int32_t ltmcancel(ltmctx *tc, ltmtimer *tm) {
  if (tc == nullptr || tm == nullptr) return -1;
  slcsenter(&tc->lock.cs);
  if (tm->queued) dequeue(tc, tm);
  if (tc->running == tm) {
    if (slthrself() == tc->thread_id) {
      // From its own callback: the thread frees it when the run ends.
      tm->cancelled = true;
      slcsleave(&tc->lock.cs);
      return 0;
    }
    while (tc->running == tm) w32cond_wait(&tc->done, &tc->lock);
    // The run has ended; a periodic timer was put back meanwhile.
    if (tm->queued) dequeue(tc, tm);
  }
  slcsleave(&tc->lock.cs);
  ss_mem_fre(tm);
  return 0;
}

KELAPI uint64_t ltmfired(ltmctx *tc, ltmtimer *tm) {
  if (tc == nullptr || tm == nullptr) return 0;
  slcsenter(&tc->lock.cs);
  uint64_t n = tm->fired;
  slcsleave(&tc->lock.cs);
  return n;
}

}  // extern "C"
