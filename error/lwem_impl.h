// lwem_impl.h - the low-level message layer under the error manager.
//
// One message context per started library (field lwemctx of the context
// record) holds every thread's error records on one shared list, newest
// first, guarded by a re-entrant lock (a plain mutex plus an owner thread).
// A thread's stack is the list filtered on its thread number; each stack
// has its own limit (LEM_MAX_DEPTH). The package
// and memory managers record through this layer directly; lem* is a thin
// checking layer over it.
#ifndef KEL_ERROR_LWEM_IMPL_H
#define KEL_ERROR_LWEM_IMPL_H

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include "lem.h"
#include "sl.h"

struct lwectx;

// A facility record: one allocation holding the names inline behind it.
struct lemfac {
  void *word;
  const char *product;
  const char *facility;
  int32_t internal;
  int32_t second;
  std::atomic<uint64_t> owner;  // thread holding mx (re-entrant lock)
  sltsmx mx;
  lemthrowfn throwfn;
  lwectx *lwe;
  uint32_t magic;
  char names[];  // facility name, NUL, product name, NUL
};

// One argument row; the layout of the formatter's argument rows.
struct lwearg {
  int32_t type;
  int32_t spare;
  union {
    int64_t i;
    const char *s;
  } v;
};

struct lwerec {
  lwerec *next;  // older
  lwerec *prev;  // newer
  uint64_t tid;
  lemfac *fac;           // null once the facility is freed
  const char *facname;   // copies of the names, in text[]: a record keeps
  const char *prodname;  // them after its facility is freed
  int32_t msg;
  int32_t sub;
  int32_t type;
  int32_t sev;
  int64_t syserr;
  uint8_t mark;
  int32_t nargs;
  lwearg args[LEM_MAX_ARGS + 1];  // ended by a type-0 row
  char text[];                    // copies of the text arguments
};

namespace lwem_internal {

// Re-entrant lock of the message context or of a facility: takes the mutex
// only when the calling thread is not the owner already. Returns whether it
// locked; pass that to unlock.
bool relock(sltsctx *ts, sltsmx *mx, std::atomic<uint64_t> &owner) noexcept;
void reunlock(sltsctx *ts, sltsmx *mx, std::atomic<uint64_t> &owner, bool locked) noexcept;

// Guard for the message context's lock.
class LweLock {
 public:
  explicit LweLock(lwectx *c) noexcept;
  ~LweLock();
  LweLock(const LweLock &) = delete;
  LweLock &operator=(const LweLock &) = delete;

 private:
  lwectx *c_;
  bool locked_;
};

// The calling thread's record i (1 = newest), or null. Call under the lock.
lwerec *find(lwectx *c, int32_t i) noexcept;

}  // namespace lwem_internal

// Makes / destroys the message context. `lang` names the language
// environment used for texts. Null / -1 on failure.
lwectx *lwemist(const char *lang, void *nlsglobal, int32_t localnls);
int32_t lwemdst(lwectx *c);
sltsctx *lwemts(lwectx *c);

// Facilities.
lemfac *lwemfaa(lwectx *c, void *word, const char *product, const char *facility, int32_t internal, int32_t second);
int32_t lwemfaf(lwectx *c, lemfac *f);
int32_t lwemfint(lemfac *f);  // internal-error number, read under the facility lock

// Appends a record for the calling thread. Refuses (-1, nothing recorded)
// message 0 and the internal-error message with sub-code 0 when syserr is
// 0, a record its full stack cannot take (counted), and when memory runs
// out. 0 on success.
int32_t lwemrev(lwectx *c, lemfac *f, int32_t msg, int32_t sub, int32_t sev, int32_t type, int64_t syserr,
                va_list ap);
int32_t lwemrec(lwectx *c, lemfac *f, int32_t msg, int32_t sub, int32_t sev, ...);
// Records an operating-system error (type 1) carrying `syserr`.
int32_t lwemrec_sys(lwectx *c, lemfac *f, int32_t msg, int64_t syserr);

// Records, and on the first record of an operation (*flag 0) marks it and
// sets the flag. Returns 0 when recorded.
int32_t lwemopv(lwectx *c, lemfac *f, uint8_t *flag, int32_t msg, int32_t sub, va_list ap);
int32_t lwemop(lwectx *c, lemfac *f, uint8_t *flag, int32_t msg, int32_t sub, ...);

int32_t lwemged(lwectx *c);             // depth of the calling thread's stack
int64_t lwemgdr(lwectx *c);             // records its full stack refused
void lwemmrk(lwectx *c);                // mark record 1
void lwemmrkn(lwectx *c, int32_t i);    // mark record i
void lwemcmk(lwectx *c);                // clear the newest marked record
int32_t lwemimkc(lwectx *c, int32_t i);  // 1 / 0 / -1
int32_t lwemnmkc(lwectx *c);
int32_t lwemdel(lwectx *c, int32_t i);  // remove record i
void lwemclr(lwectx *c);                // remove every record of the calling thread
void lwemdtm(lwectx *c);                // end pending messages (dropped)

#endif
