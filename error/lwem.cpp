// The low-level message layer: facilities and the shared list of error
// records behind every thread's error stack.
//
// Design: records of all threads sit on one doubly linked list, newest at
// the head. A thread's stack is that list filtered on its thread number, so
// "record i" is the i-th record carrying the caller's number. The list is
// guarded by a re-entrant lock (mutex + owner) because a throw callback or a
// formatter may record while the lock is held. Records are single
// allocations from the system allocator: the fixed part, the argument rows
// and copies of the text arguments behind them.
//
// Each thread that has records (or has had some refused) has a small entry
// on the context's thread list with the depth of its stack and the count of
// records refused because the stack was full. A stack holds at most
// LEM_MAX_DEPTH records, so that a program that never reads its stacks
// cannot grow them without bound; a full stack refuses what comes next and
// never touches another thread's records. Only the owning thread adds or
// removes its records and changes its entry, always under the lock.
//
// Sections: locks; context; facilities; recording; marks and removal.
#include "error/lwem_impl.h"

#include <cstring>
#include <new>

// A thread's stack in numbers.
struct lwethr {
  lwethr *next;
  uint64_t tid;
  int32_t depth;
  int64_t dropped;
};

struct lwectx {
  sltsctx *ts;
  sltsmx mx;
  std::atomic<uint64_t> owner;
  lwerec *head;
  lwerec *tail;
  lwethr *threads;
  void *nlsglobal;
  int32_t localnls;
  char lang[64];
};

namespace lwem_internal {

namespace {
constexpr uint32_t kFacMagic = 0x4C464143;  // "LFAC"
}  // namespace

// ------------------------------------------------------------------ locks

bool relock(sltsctx *ts, sltsmx *mx, std::atomic<uint64_t> &owner) noexcept {
  uint64_t me = slthrself();
  if (owner.load(std::memory_order_relaxed) == me) return false;
  sltsmna(ts, mx);
  owner.store(me, std::memory_order_relaxed);
  return true;
}

void reunlock(sltsctx *ts, sltsmx *mx, std::atomic<uint64_t> &owner, bool locked) noexcept {
  if (!locked) return;
  owner.store(0, std::memory_order_relaxed);
  sltsmnr(ts, mx);
}

LweLock::LweLock(lwectx *c) noexcept : c_(c), locked_(relock(c->ts, &c->mx, c->owner)) {}
LweLock::~LweLock() { reunlock(c_->ts, &c_->mx, c_->owner, locked_); }

lwerec *find(lwectx *c, int32_t i) noexcept {
  if (i < 1) return nullptr;
  uint64_t me = slthrself();
  for (lwerec *r = c->head; r != nullptr; r = r->next)
    if (r->tid == me && --i == 0) return r;
  return nullptr;
}

namespace {

// The calling thread's entry (null when it has none). Call under the lock.
lwethr *thread_of(lwectx *c, uint64_t me) noexcept {
  for (lwethr *t = c->threads; t != nullptr; t = t->next)
    if (t->tid == me) return t;
  return nullptr;
}

// An entry with nothing to tell goes.
void forget_if_idle(lwectx *c, lwethr *t) noexcept {
  if (t == nullptr || t->depth > 0 || t->dropped > 0) return;
  for (lwethr **p = &c->threads; *p != nullptr; p = &(*p)->next)
    if (*p == t) {
      *p = t->next;
      ss_mem_fre(t);
      return;
    }
}

// Removes record r of the calling thread (entry t).
void unlink(lwectx *c, lwethr *t, lwerec *r) noexcept {
  if (r->prev) r->prev->next = r->next; else c->head = r->next;
  if (r->next) r->next->prev = r->prev; else c->tail = r->prev;
  t->depth--;
  ss_mem_fre(r);
}

}  // namespace
}  // namespace lwem_internal

using namespace lwem_internal;

// ---------------------------------------------------------------- context

lwectx *lwemist(const char *lang, void *nlsglobal, int32_t localnls) {
  auto *c = static_cast<lwectx *>(ss_mem_calc(sizeof(lwectx)));
  if (c == nullptr) return nullptr;
  new (&c->owner) std::atomic<uint64_t>(0);
  c->ts = sltsini();
  if (c->ts == nullptr) {
    ss_mem_fre(c);
    return nullptr;
  }
  if (sltsmxi(c->ts, &c->mx) != 0) {
    sltster(c->ts);
    ss_mem_fre(c);
    return nullptr;
  }
  c->nlsglobal = nlsglobal;
  c->localnls = localnls;
  if (lang != nullptr) {
    size_t n = strlen(lang);
    if (n >= sizeof c->lang) n = sizeof c->lang - 1;
    memcpy(c->lang, lang, n);
  }
  return c;
}

int32_t lwemdst(lwectx *c) {
  if (c == nullptr) return -1;
  while (c->head != nullptr) {
    lwerec *r = c->head;
    c->head = r->next;
    ss_mem_fre(r);
  }
  while (c->threads != nullptr) {
    lwethr *t = c->threads;
    c->threads = t->next;
    ss_mem_fre(t);
  }
  int32_t rc = sltsmxd(c->ts, &c->mx) == 0 ? 0 : -1;
  if (sltster(c->ts) != 0) rc = -1;
  ss_mem_fre(c);
  return rc;
}

sltsctx *lwemts(lwectx *c) { return c->ts; }

// ------------------------------------------------------------- facilities

lemfac *lwemfaa(lwectx *c, void *word, const char *product, const char *facility, int32_t internal,
                int32_t second) {
  if (c == nullptr || product == nullptr || facility == nullptr || *product == '\0' || *facility == '\0' ||
      internal == 0 || second == 0)
    return nullptr;
  size_t fl = strlen(facility), pl = strlen(product);
  auto *f = static_cast<lemfac *>(ss_mem_calc(sizeof(lemfac) + fl + pl + 2));
  if (f == nullptr) return nullptr;
  new (&f->owner) std::atomic<uint64_t>(0);
  if (sltsmxi(c->ts, &f->mx) != 0) {
    ss_mem_fre(f);
    return nullptr;
  }
  memcpy(f->names, facility, fl + 1);
  memcpy(f->names + fl + 1, product, pl + 1);
  f->word = word;
  f->facility = f->names;
  f->product = f->names + fl + 1;
  f->internal = internal;
  f->second = second;
  f->lwe = c;
  f->magic = kFacMagic;
  return f;
}

int32_t lwemfaf(lwectx *c, lemfac *f) {
  if (c == nullptr || f == nullptr || f->magic != kFacMagic) return -1;
  // Records still on the stacks point at the facility: forget it there so
  // that reading them later shows no names rather than freed memory.
  {
    LweLock lock(c);
    for (lwerec *r = c->head; r != nullptr; r = r->next)
      if (r->fac == f) r->fac = nullptr;
  }
  f->magic = 0;
  int32_t rc = sltsmxd(c->ts, &f->mx) == 0 ? 0 : -1;
  ss_mem_fre(f);
  return rc;
}

int32_t lwemfint(lemfac *f) {
  lwectx *c = f->lwe;
  bool locked = relock(c->ts, &f->mx, f->owner);
  int32_t n = f->internal;
  reunlock(c->ts, &f->mx, f->owner, locked);
  return n;
}

// -------------------------------------------------------------- recording

int32_t lwemrev(lwectx *c, lemfac *f, int32_t msg, int32_t sub, int32_t sev, int32_t type, int64_t syserr,
                va_list ap) {
  if (c == nullptr || f == nullptr) return -1;
  if (syserr == 0 && (msg == 0 || (msg == lwemfint(f) && sub == 0))) return -1;
  const uint64_t me = slthrself();
  {
    // A full stack takes nothing more; it only counts what it refused.
    LweLock lock(c);
    lwethr *t = thread_of(c, me);
    if (t != nullptr && t->depth >= LEM_MAX_DEPTH) {
      t->dropped++;
      return -1;
    }
  }

  // Collect the rows first so that the record is one allocation.
  lwearg rows[LEM_MAX_ARGS + 1];
  int32_t n = 0;
  size_t textlen = 0;
  for (;;) {
    int32_t t = va_arg(ap, int32_t);
    if (t == LEM_ARG_END) break;
    lwearg a{};
    a.type = t;
    if (t == LEM_ARG_TEXT) {
      a.v.s = va_arg(ap, const char *);
      if (a.v.s == nullptr) a.v.s = "";
    } else {
      a.v.i = va_arg(ap, int64_t);
    }
    if (n < LEM_MAX_ARGS) {
      if (t == LEM_ARG_TEXT) textlen += strlen(a.v.s) + 1;
      rows[n++] = a;
    }
  }
  size_t fl = strlen(f->facility), pl = strlen(f->product);
  auto *r = static_cast<lwerec *>(ss_mem_alc(sizeof(lwerec) + textlen + fl + pl + 2));
  if (r == nullptr) return -1;
  r->tid = me;
  r->fac = f;
  r->msg = msg;
  r->sub = sub;
  r->type = type;
  r->sev = sev;
  r->syserr = syserr;
  r->mark = 0;
  r->nargs = n;
  char *p = r->text;
  for (int32_t k = 0; k < n; k++) {
    r->args[k] = rows[k];
    if (rows[k].type == LEM_ARG_TEXT) {
      size_t l = strlen(rows[k].v.s);
      memcpy(p, rows[k].v.s, l + 1);
      r->args[k].v.s = p;
      p += l + 1;
    }
  }
  r->args[n] = lwearg{};
  memcpy(p, f->facility, fl + 1);
  r->facname = p;
  p += fl + 1;
  memcpy(p, f->product, pl + 1);
  r->prodname = p;

  LweLock lock(c);
  lwethr *t = thread_of(c, me);
  if (t == nullptr) {
    t = static_cast<lwethr *>(ss_mem_calc(sizeof(lwethr)));
    if (t == nullptr) {
      ss_mem_fre(r);
      return -1;
    }
    t->tid = me;
    t->next = c->threads;
    c->threads = t;
  }
  r->prev = nullptr;
  r->next = c->head;
  if (c->head) c->head->prev = r; else c->tail = r;
  c->head = r;
  t->depth++;
  return 0;
}

int32_t lwemrec(lwectx *c, lemfac *f, int32_t msg, int32_t sub, int32_t sev, ...) {
  va_list ap;
  va_start(ap, sev);
  int32_t rc = lwemrev(c, f, msg, sub, sev, LEM_TYPE_MSG, 0, ap);
  va_end(ap);
  return rc;
}

namespace {
int32_t rec_sys(lwectx *c, lemfac *f, int32_t msg, int64_t syserr, ...) {
  va_list ap;
  va_start(ap, syserr);
  int32_t rc = lwemrev(c, f, msg, 0, 1, LEM_TYPE_OSERR, syserr, ap);
  va_end(ap);
  return rc;
}
}  // namespace

int32_t lwemrec_sys(lwectx *c, lemfac *f, int32_t msg, int64_t syserr) {
  return rec_sys(c, f, msg, syserr, LEM_ARG_END);
}

int32_t lwemopv(lwectx *c, lemfac *f, uint8_t *flag, int32_t msg, int32_t sub, va_list ap) {
  if (lwemrev(c, f, msg, sub, 1, LEM_TYPE_MSG, 0, ap) != 0) return -1;
  if (flag != nullptr && *flag == 0) {
    // The first failure of an operation carries its one mark; a nested
    // call's mark becomes redundant.
    if (lwemnmkc(c) > 0 && lwemimkc(c, 2) == 1) lwemcmk(c);
    lwemmrk(c);
    *flag = 1;
  }
  return 0;
}

int32_t lwemop(lwectx *c, lemfac *f, uint8_t *flag, int32_t msg, int32_t sub, ...) {
  va_list ap;
  va_start(ap, sub);
  int32_t rc = lwemopv(c, f, flag, msg, sub, ap);
  va_end(ap);
  return rc;
}

// ----------------------------------------------------- marks and removal

int32_t lwemged(lwectx *c) {
  if (c == nullptr) return 0;
  LweLock lock(c);
  lwethr *t = thread_of(c, slthrself());
  return t == nullptr ? 0 : t->depth;
}

int64_t lwemgdr(lwectx *c) {
  if (c == nullptr) return 0;
  LweLock lock(c);
  lwethr *t = thread_of(c, slthrself());
  return t == nullptr ? 0 : t->dropped;
}

void lwemmrk(lwectx *c) {
  if (c == nullptr) return;
  LweLock lock(c);
  if (lwerec *r = find(c, 1)) r->mark = 1;
}

void lwemmrkn(lwectx *c, int32_t i) {
  if (c == nullptr) return;
  LweLock lock(c);
  if (lwerec *r = find(c, i)) r->mark = 1;
}

void lwemcmk(lwectx *c) {
  if (c == nullptr) return;
  LweLock lock(c);
  uint64_t me = slthrself();
  for (lwerec *r = c->head; r != nullptr; r = r->next)
    if (r->tid == me && r->mark) {
      r->mark = 0;
      return;
    }
}

int32_t lwemimkc(lwectx *c, int32_t i) {
  if (c == nullptr) return -1;
  LweLock lock(c);
  lwerec *r = find(c, i);
  return r == nullptr ? -1 : r->mark;
}

int32_t lwemnmkc(lwectx *c) {
  if (c == nullptr) return 0;
  LweLock lock(c);
  uint64_t me = slthrself();
  int32_t n = 0;
  for (lwerec *r = c->head; r != nullptr; r = r->next)
    if (r->tid == me && r->mark) n++;
  return n;
}

int32_t lwemdel(lwectx *c, int32_t i) {
  if (c == nullptr) return -1;
  LweLock lock(c);
  lwerec *r = find(c, i);
  if (r == nullptr) return -1;
  lwethr *t = thread_of(c, r->tid);
  unlink(c, t, r);
  forget_if_idle(c, t);
  return 0;
}

void lwemclr(lwectx *c) {
  if (c == nullptr) return;
  LweLock lock(c);
  uint64_t me = slthrself();
  lwethr *t = thread_of(c, me);
  if (t == nullptr) return;
  for (lwerec *r = c->head; r != nullptr && t->depth > 0;) {
    lwerec *next = r->next;
    if (r->tid == me) unlink(c, t, r);
    r = next;
  }
  t->dropped = 0;
  forget_if_idle(c, t);
}

// Nothing is ever written to a terminal by the library: pending messages of
// a library that is not started are simply ended.
void lwemdtm(lwectx *c) { lwemclr(c); }
