// Recursive mutexes and read-write locks.
//
// The read-write lock is the textbook monitor: one mutex guards three
// counters, readers and writers sleep on separate conditions so that a
// release wakes only those who can proceed. The two policies differ only in
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
  slcsenter(&rw->m.cs);
  int32_t rc = 0;
  while (rw->active < 0 || (rw->policy == kWritersFirst && rw->wwait > 0)) {
    rw->rwait++;
    rc = w32cond_wait(&rw->readers, &rw->m);
    rw->rwait--;
    if (rc != 0) break;
  }
  if (rc == 0) rw->active++;
  slcsleave(&rw->m.cs);
  return rc == 0 ? 0 : -1;
}

int32_t rw_write(sltsrw *rw) noexcept {
  if (rw == nullptr) return -1;
  slcsenter(&rw->m.cs);
  int32_t rc = 0;
  rw->wwait++;
  while (rw->active != 0) {
    rc = w32cond_wait(&rw->writers, &rw->m);
    if (rc != 0) break;
  }
  rw->wwait--;
  if (rc == 0) {
    rw->active = -1;
  } else if (rw->wwait == 0 && rw->rwait > 0 && rw->active >= 0) {
    // Readers held back for this writer must not wait for it any longer.
    w32cond_broadcast(&rw->readers);
  }
  slcsleave(&rw->m.cs);
  return rc == 0 ? 0 : -1;
}

int32_t rw_unlock(sltsrw *rw) noexcept {
  if (rw == nullptr) return -1;
  slcsenter(&rw->m.cs);
  if (rw->active == 0) {
    slcsleave(&rw->m.cs);
    return -1;
  }
  if (rw->active < 0)
    rw->active = 0;
  else
    rw->active--;
  int32_t rc = 0;
  if (rw->active == 0) {
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
  slcsleave(&rw->m.cs);
  return rc;
}

int32_t rw_destroy(sltsrw *rw) noexcept {
  if (rw == nullptr) return -1;
  slcsenter(&rw->m.cs);
  bool busy = rw->active != 0 || rw->rwait != 0 || rw->wwait != 0;
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
