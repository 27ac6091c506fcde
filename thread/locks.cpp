// Recursive mutexes and read-write locks.
//
// The read-write lock is the textbook monitor (one mutex guards the
// waiting counts; readers and writers sleep on separate conditions so that a
// release wakes only those who can proceed) with a lock-free quick path for
// the common case that nobody waits. The two policies differ only in
// whether a waiting writer holds back new readers.
//
// Sections: recursive mutexes; read-write lock core; the two interfaces.
#include "slt.h"

namespace {

constexpr int32_t kWritersFirst = 1;
constexpr int32_t kReadersFirst = 2;

// Owner word of a recursive mutex, read by non-owners without the lock:
// only the owner writes its own number there, so a stale read by another
// thread can never equal that thread's own number.
uint64_t load_owner(const sltsrmx *m) noexcept { return __atomic_load_n(&m->owner, __ATOMIC_RELAXED); }
void store_owner(sltsrmx *m, uint64_t v) noexcept { __atomic_store_n(&m->owner, v, __ATOMIC_RELAXED); }

// --------------------------------------------------- read-write lock core
//
// `active` is an atomic word: the number of readers holding the lock, the
// writer bit, and a "pending" bit. While pending is clear, taking and
// releasing the lock is one compare-and-swap, and nobody touches the mutex.
// A thread that cannot proceed at once takes the mutex and sets pending;
// from then on every change goes through the mutex (the swaps of the quick
// paths fail on the changed word), so waiters on the conditions cannot miss
// a wake-up. Pending is cleared under the mutex once nobody waits.

constexpr int32_t kWriter = 0x40000000;
constexpr int32_t kPending = 0x20000000;
constexpr int32_t kReaders = 0x1FFFFFFF;

int32_t load(const sltsrw *rw) noexcept { return __atomic_load_n(&rw->active, __ATOMIC_ACQUIRE); }
bool swap(sltsrw *rw, int32_t from, int32_t to) noexcept {
  return __atomic_compare_exchange_n(&rw->active, &from, to, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED);
}
void set_bits(sltsrw *rw, int32_t bits) noexcept { __atomic_fetch_or(&rw->active, bits, __ATOMIC_ACQ_REL); }
void clear_bits(sltsrw *rw, int32_t bits) noexcept { __atomic_fetch_and(&rw->active, ~bits, __ATOMIC_ACQ_REL); }
void add(sltsrw *rw, int32_t n) noexcept { __atomic_fetch_add(&rw->active, n, __ATOMIC_ACQ_REL); }

// Under the mutex, when the slow path leaves: nobody waits any more, so the
// quick paths may run again.
void settle(sltsrw *rw) noexcept {
  if (rw->rwait == 0 && rw->wwait == 0) clear_bits(rw, kPending);
}

int32_t rw_init(sltsrw *rw, int32_t policy) noexcept {
  if (rw == nullptr) return -1;
  if (slcsinit(&rw->m.cs) != 0) return -1;
  if (w32cond_init(&rw->readers) != 0) {
    slcsdelete(&rw->m.cs);
    return -1;
  }
  if (w32cond_init(&rw->writers) != 0) {
    w32cond_destroy(&rw->readers);
    slcsdelete(&rw->m.cs);
    return -1;
  }
  rw->active = rw->rwait = rw->wwait = 0;
  rw->policy = policy;
  return 0;
}

int32_t rw_read(sltsrw *rw) noexcept {
  if (rw == nullptr) return -1;
  int32_t s = load(rw);
  if ((s & (kWriter | kPending)) == 0 && swap(rw, s, s + 1)) return 0;
  slcsenter(&rw->m.cs);
  set_bits(rw, kPending);
  int32_t rc = 0;
  while ((load(rw) & kWriter) != 0 || (rw->policy == kWritersFirst && rw->wwait > 0)) {
    rw->rwait++;
    rc = w32cond_wait(&rw->readers, &rw->m);
    rw->rwait--;
    if (rc != 0) break;
  }
  if (rc == 0) add(rw, 1);
  settle(rw);
  slcsleave(&rw->m.cs);
  return rc == 0 ? 0 : -1;
}

int32_t rw_write(sltsrw *rw) noexcept {
  if (rw == nullptr) return -1;
  if (swap(rw, 0, kWriter)) return 0;
  slcsenter(&rw->m.cs);
  set_bits(rw, kPending);
  int32_t rc = 0;
  rw->wwait++;
  while ((load(rw) & (kWriter | kReaders)) != 0) {
    rc = w32cond_wait(&rw->writers, &rw->m);
    if (rc != 0) break;
  }
  rw->wwait--;
  if (rc == 0) {
    set_bits(rw, kWriter);
  } else if (rw->wwait == 0 && rw->rwait > 0 && (load(rw) & kWriter) == 0) {
    // Readers held back for this writer must not wait for it any longer.
    w32cond_broadcast(&rw->readers);
  }
  settle(rw);
  slcsleave(&rw->m.cs);
  return rc == 0 ? 0 : -1;
}

int32_t rw_unlock(sltsrw *rw) noexcept {
  if (rw == nullptr) return -1;
  int32_t s = load(rw);
  if ((s & kPending) == 0) {
    if (s == kWriter && swap(rw, s, 0)) return 0;
    if ((s & kWriter) == 0 && (s & kReaders) > 0 && swap(rw, s, s - 1)) return 0;
  }
  slcsenter(&rw->m.cs);
  set_bits(rw, kPending);
  s = load(rw);
  if ((s & (kWriter | kReaders)) == 0) {
    settle(rw);
    slcsleave(&rw->m.cs);
    return -1;
  }
  if (s & kWriter)
    clear_bits(rw, kWriter);
  else
    add(rw, -1);
  int32_t rc = 0;
  if ((load(rw) & (kWriter | kReaders)) == 0) {
    if (rw->policy == kWritersFirst) {
      if (rw->wwait > 0)
        rc = w32cond_signal(&rw->writers);
      else if (rw->rwait > 0)
        rc = w32cond_broadcast(&rw->readers);
    } else {
      if (rw->rwait > 0)
        rc = w32cond_broadcast(&rw->readers);
      else if (rw->wwait > 0)
        rc = w32cond_signal(&rw->writers);
    }
  }
  settle(rw);
  slcsleave(&rw->m.cs);
  return rc;
}

int32_t rw_destroy(sltsrw *rw) noexcept {
  if (rw == nullptr) return -1;
  slcsenter(&rw->m.cs);
  bool busy = (load(rw) & (kWriter | kReaders)) != 0 || rw->rwait != 0 || rw->wwait != 0;
  slcsleave(&rw->m.cs);
  if (busy) return -1;
  int32_t rc = 0;
  if (w32cond_destroy(&rw->readers) != 0) rc = -1;
  if (w32cond_destroy(&rw->writers) != 0) rc = -1;
  if (slcsdelete(&rw->m.cs) != 0) rc = -1;
  return rc;
}

}  // namespace

extern "C" {

// ------------------------------------------------------- recursive mutexes

KELAPI int32_t sltsrmi(sltsrmx *m) {
  if (m == nullptr || slcsinit(&m->cs) != 0) return -1;
  m->owner = 0;
  m->depth = 0;
  m->spare = 0;
  return 0;
}

KELAPI int32_t sltsrma(sltsrmx *m) {
  if (m == nullptr) return -1;
  uint64_t me = slthrself();
  if (load_owner(m) == me) {
    m->depth++;
    return 0;
  }
  slcsenter(&m->cs);
  store_owner(m, me);
  m->depth = 1;
  return 0;
}

KELAPI int32_t sltsrmt(sltsrmx *m) {
  if (m == nullptr) return -1;
  uint64_t me = slthrself();
  if (load_owner(m) == me) {
    m->depth++;
    return 1;
  }
  if (!slcstry(&m->cs)) return 0;
  store_owner(m, me);
  m->depth = 1;
  return 1;
}

KELAPI int32_t sltsrmr(sltsrmx *m) {
  if (m == nullptr || load_owner(m) != slthrself() || m->depth == 0) return -1;
  if (--m->depth == 0) {
    store_owner(m, 0);
    slcsleave(&m->cs);
  }
  return 0;
}

KELAPI int32_t sltsrmd(sltsrmx *m) {
  if (m == nullptr || load_owner(m) != 0) return -1;
  return slcsdelete(&m->cs);
}

// --------------------------------------------------------- writers first

KELAPI int32_t SltsPrInit(SltsPrLock *rw) { return rw_init(rw, kWritersFirst); }
KELAPI int32_t SltsPrRead(SltsPrLock *rw) { return rw_read(rw); }
KELAPI int32_t SltsPrWrite(SltsPrLock *rw) { return rw_write(rw); }
KELAPI int32_t SltsPrUnlock(SltsPrLock *rw) { return rw_unlock(rw); }
KELAPI int32_t SltsPrDestroy(SltsPrLock *rw) { return rw_destroy(rw); }

// --------------------------------------------------------- readers first

KELAPI int32_t sltskrinit(sltsctx *ts, sltsrw *rw) { return ts == nullptr ? -1 : rw_init(rw, kReadersFirst); }
KELAPI int32_t sltskrread(sltsctx *ts, sltsrw *rw) { return ts == nullptr ? -1 : rw_read(rw); }
KELAPI int32_t sltskrwrite(sltsctx *ts, sltsrw *rw) { return ts == nullptr ? -1 : rw_write(rw); }
KELAPI int32_t sltskrunlock(sltsctx *ts, sltsrw *rw) { return ts == nullptr ? -1 : rw_unlock(rw); }
KELAPI int32_t sltskrdestroy(sltsctx *ts, sltsrw *rw) { return ts == nullptr ? -1 : rw_destroy(rw); }

}  // extern "C"
