// The registry of owned mutexes and its deadlock check.
//
// Every registered mutex carries its owner and a condition its waiters sleep
// on; one registry lock guards all of them and the list of threads that
// wait, so the wait-for graph is always read in one consistent state. The
// graph needs no storage of its own: a waiting thread's entry lives on its
// own stack for as long as it waits, naming the mutex it wants, and a mutex
// names its owner. Before a thread waits, it walks owner -> wanted mutex ->
// owner ... from the mutex it wants; reaching itself means a cycle, and the
// wait is refused instead of hanging. Each thread waits for at most one
// mutex, so the walk is a simple path and ends within (waiting threads + 1)
// steps.
//
// One registry lock makes contended acquires serialise on it; the registry
// is for the mutexes whose ordering matters (a server's latches and
// dictionary locks), not for the hottest short critical sections.
//
// Sections: records; recording; registry; mutexes.
#include <cstring>

#include "error/lwem_impl.h"
#include "kelmsg_kelcore_lts.h"
#include "slt.h"

namespace lts_internal {

struct waiter {
  uint64_t tid;
  ltsmx *want;
  waiter *next;
};

}  // namespace lts_internal

using lts_internal::waiter;

struct ltsreg {
  uint32_t magic;
  w32mutex lock;
  lwectx *lwe;
  lemfac *fac;
  waiter *waiting;  // threads blocked in ltsmxlock
  int32_t nwaiting;
  int32_t nmutex;
};

struct ltsmx {
  uint32_t magic;
  ltsreg *reg;
  uint64_t owner;  // under reg->lock
  int32_t waiters;
  w32cond cv;
  char name[];
};

namespace {

constexpr uint32_t kRegMagic = 0x4C545352;  // "LTSR"
constexpr uint32_t kMxMagic = 0x4C54534D;   // "LTSM"

// --------------------------------------------------------------- recording

void rec(ltsreg *reg, int32_t msg, ...) noexcept {
  if (reg == nullptr || reg->lwe == nullptr || reg->fac == nullptr) return;
  va_list ap;
  va_start(ap, msg);
  if (lwemrev(reg->lwe, reg->fac, msg, 0, 1, LEM_TYPE_MSG, 0, ap) == 0) lwemmrk(reg->lwe);
  va_end(ap);
}

bool good(ltsreg *reg, ltsmx *mx, const char *fn) noexcept {
  if (reg == nullptr || reg->magic != kRegMagic) return false;
  if (mx == nullptr || mx->magic != kMxMagic || mx->reg != reg) {
    rec(reg, kelmsg::LTS_BADARG, LEM_ARG_TEXT, fn, LEM_ARG_END);
    return false;
  }
  return true;
}

const waiter *waiting_of(const ltsreg *reg, uint64_t tid) noexcept {
  for (const waiter *w = reg->waiting; w != nullptr; w = w->next)
    if (w->tid == tid) return w;
  return nullptr;
}

// Appends to a bounded text; the cycle report is cut, never overrun.
struct Text {
  char buf[1024];
  size_t n = 0;
  void add(const char *s) noexcept {
    while (*s != '\0' && n + 1 < sizeof buf) buf[n++] = *s++;
    buf[n] = '\0';
  }
  void num(uint64_t v) noexcept {
    char d[24];
    int i = 0;
    do d[i++] = static_cast<char>('0' + v % 10);
    while ((v /= 10) != 0);
    char r[24];
    for (int j = 0; j < i; j++) r[j] = d[i - 1 - j];
    r[i] = '\0';
    add(r);
  }
};

// Under the registry lock: does waiting for `mx` close a cycle back to
// `me`? If so, describe it in `t`.
bool closes_cycle(const ltsreg *reg, const ltsmx *mx, uint64_t me, Text &t) noexcept {
  const ltsmx *m = mx;
  t.add("thread ");
  t.num(me);
  for (int32_t steps = 0; steps <= reg->nwaiting; steps++) {
    t.add(" waits for \"");
    t.add(m->name);
    t.add("\" held by thread ");
    t.num(m->owner);
    if (m->owner == me) return true;
    const waiter *w = waiting_of(reg, m->owner);
    if (w == nullptr) return false;
    m = w->want;
    t.add(", which");
  }
  return false;
}

}  // namespace

extern "C" {

// ---------------------------------------------------------------- registry

KELAPI ltsreg *ltsrcreate(lcorectx *ctx) {
  if (ctx == nullptr || ctx->lwemctx == nullptr) return nullptr;
  auto *reg = static_cast<ltsreg *>(ss_mem_calc(sizeof(ltsreg)));
  if (reg == nullptr) return nullptr;
  if (slcsinit(&reg->lock.cs) != 0) {
    ss_mem_fre(reg);
    return nullptr;
  }
  reg->lwe = static_cast<lwectx *>(ctx->lwemctx);
  reg->fac = lwemfaa(reg->lwe, nullptr, "KELCORE", "LTS", kelmsg::LTS_INTERNAL, kelmsg::LTS_FAIL);
  if (reg->fac == nullptr) {
    slcsdelete(&reg->lock.cs);
    ss_mem_fre(reg);
    return nullptr;
  }
  reg->magic = kRegMagic;
  return reg;
}

KELAPI int32_t ltsrdestroy(ltsreg *reg) {
  if (reg == nullptr || reg->magic != kRegMagic) return -1;
  slcsenter(&reg->lock.cs);
  bool busy = reg->nmutex != 0;
  slcsleave(&reg->lock.cs);
  if (busy) return -1;
  reg->magic = 0;
  int32_t rc = lwemfaf(reg->lwe, reg->fac);
  if (slcsdelete(&reg->lock.cs) != 0) rc = -1;
  ss_mem_fre(reg);
  return rc == 0 ? 0 : -1;
}

// ----------------------------------------------------------------- mutexes

KELAPI ltsmx *ltsmxnew(ltsreg *reg, const char *name) {
  if (reg == nullptr || reg->magic != kRegMagic) return nullptr;
  if (name == nullptr) name = "";
  size_t n = strlen(name);
  auto *mx = static_cast<ltsmx *>(ss_mem_calc(sizeof(ltsmx) + n + 1));
  if (mx == nullptr) {
    rec(reg, kelmsg::LTS_NOMEM, LEM_ARG_TEXT, "ltsmxnew", LEM_ARG_END);
    return nullptr;
  }
  if (w32cond_init(&mx->cv) != 0) {
    rec(reg, kelmsg::LTS_FAIL, LEM_ARG_TEXT, "ltsmxnew: condition variable", LEM_ARG_END);
    ss_mem_fre(mx);
    return nullptr;
  }
  memcpy(mx->name, name, n + 1);
  mx->reg = reg;
  mx->magic = kMxMagic;
  slcsenter(&reg->lock.cs);
  reg->nmutex++;
  slcsleave(&reg->lock.cs);
  return mx;
}

KELAPI int32_t ltsmxfree(ltsreg *reg, ltsmx *mx) {
  if (!good(reg, mx, "ltsmxfree")) return -1;
  slcsenter(&reg->lock.cs);
  bool busy = mx->owner != 0 || mx->waiters != 0;
  if (!busy) {
    reg->nmutex--;
    mx->magic = 0;
  }
  slcsleave(&reg->lock.cs);
  if (busy) {
    rec(reg, kelmsg::LTS_BUSY, LEM_ARG_TEXT, mx->name, LEM_ARG_END);
    return -1;
  }
  int32_t rc = w32cond_destroy(&mx->cv);
  ss_mem_fre(mx);
  return rc;
}

KELAPI int32_t ltsmxlock(ltsreg *reg, ltsmx *mx) {
  if (!good(reg, mx, "ltsmxlock")) return -1;
  uint64_t me = slthrself();
  slcsenter(&reg->lock.cs);
  if (mx->owner == 0) {
    mx->owner = me;
    slcsleave(&reg->lock.cs);
    return 0;
  }
  if (mx->owner == me) {
    slcsleave(&reg->lock.cs);
    rec(reg, kelmsg::LTS_RELOCK, LEM_ARG_TEXT, mx->name, LEM_ARG_END);
    return -1;
  }
  Text cycle;
  if (closes_cycle(reg, mx, me, cycle)) {
    slcsleave(&reg->lock.cs);
    rec(reg, kelmsg::LTS_DEADLOCK, LEM_ARG_TEXT, mx->name, LEM_ARG_TEXT, cycle.buf, LEM_ARG_END);
    return -1;
  }
  waiter self{me, mx, reg->waiting};
  reg->waiting = &self;
  reg->nwaiting++;
  mx->waiters++;
  int32_t rc = 0;
  while (mx->owner != 0) {
    rc = w32cond_wait(&mx->cv, &reg->lock);
    if (rc != 0) break;
  }
  mx->waiters--;
  reg->nwaiting--;
  for (waiter **p = &reg->waiting; *p != nullptr; p = &(*p)->next)
    if (*p == &self) {
      *p = self.next;
      break;
    }
  if (rc == 0) mx->owner = me;
  slcsleave(&reg->lock.cs);
  if (rc != 0) rec(reg, kelmsg::LTS_WAIT, LEM_ARG_TEXT, mx->name, LEM_ARG_END);
  return rc == 0 ? 0 : -1;
}

KELAPI int32_t ltsmxtry(ltsreg *reg, ltsmx *mx) {
  if (!good(reg, mx, "ltsmxtry")) return -1;
  slcsenter(&reg->lock.cs);
  bool took = mx->owner == 0;
  if (took) mx->owner = slthrself();
  slcsleave(&reg->lock.cs);
  return took ? 1 : 0;
}

KELAPI int32_t ltsmxunlock(ltsreg *reg, ltsmx *mx) {
  if (!good(reg, mx, "ltsmxunlock")) return -1;
  slcsenter(&reg->lock.cs);
  if (mx->owner != slthrself()) {
    slcsleave(&reg->lock.cs);
    rec(reg, kelmsg::LTS_NOTOWNER, LEM_ARG_TEXT, mx->name, LEM_ARG_END);
    return -1;
  }
  mx->owner = 0;
  int32_t rc = mx->waiters > 0 ? w32cond_signal(&mx->cv) : 0;
  slcsleave(&reg->lock.cs);
  return rc == 0 ? 0 : -1;
}

KELAPI uint64_t ltsmxowner(ltsreg *reg, ltsmx *mx) {
  if (!good(reg, mx, "ltsmxowner")) return 0;
  slcsenter(&reg->lock.cs);
  uint64_t o = mx->owner;
  slcsleave(&reg->lock.cs);
  return o;
}

KELAPI int32_t ltsmxwaiters(ltsreg *reg, ltsmx *mx) {
  if (!good(reg, mx, "ltsmxwaiters")) return -1;
  slcsenter(&reg->lock.cs);
  int32_t n = mx->waiters;
  slcsleave(&reg->lock.cs);
  return n;
}

}  // extern "C"
