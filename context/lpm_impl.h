// lpm_impl.h - internals of the package manager shared by its files.
#ifndef KEL_CONTEXT_LPM_IMPL_H
#define KEL_CONTEXT_LPM_IMPL_H

#include <atomic>
#include <csetjmp>
#include <cstdint>

#include "error/lwem_impl.h"
#include "lpm.h"
#include "sl.h"
#include "sys/slpm_impl.h"

// Element links and list heads: {first, count, last}; elements begin with
// {next, previous}.
struct lpmlink {
  lpmlink *next;
  lpmlink *prev;
};

struct lpmlist {
  lpmlink *first;
  uint64_t count;
  lpmlink *last;
};

struct lpmreg;

// Package block: one per distinct package name.
struct lpmpblk {
  lpmlink link;
  char *name;
  size_t namel;
  // kBlk*: written under the block-list mutex (locating) or the block's
  // initialisation mutex (operation 1), so read and written atomically.
  std::atomic<uint32_t> flags;
  lpmentry entry;
  int32_t users;
  void *module;    // dynamic library handle
  lpmiftab *ift;
  sltsmx initmx;   // serialises operation 1 of the package
};

// Package-instance handle (fields 2 and 6 of a context record).
struct lpminsth {
  struct lpminst *inst;
  uint64_t spare;
  int32_t status;
};

struct lpmcse;

// Package instance.
struct lpminst {
  lpmlink link;
  int32_t refs;
  // kInst*: lpmcall changes its instance's flags without the instance-list
  // mutex while lpmloadpkg and lpmdelete read every instance's under it.
  std::atomic<uint32_t> flags;
  lcorectx *rec;
  void *priv;
  void *memsub;
  void *errsub;
  void *filesub;
  void *sldata;
  lpmpblk *block;
  sltsmx mx;
  alignas(16) jmp_buf jb;
  int32_t exitstatus;
  lpmreg *reg;
  lpminsth *handle;
  lpmcse *call;  // the call-stack element of the running lpmcall
};

// Call-stack element.
struct lpmcse {
  lpmlink link;
  lcorectx *ctx;
  sltstid tid;
};

// Saved component context.
struct lpmsce {
  lpmlink link;
  void *saved;
  size_t namel;
  char name[17];
};

// The package registry of a started library.
struct lpmreg {
  lpmlist blocks;
  sltsmx blockmx;
  lpmlist insts;
  sltsmx instmx;
  slpmtab *table;
  lpmlist calls;
  sltsmx callmx;
  lpmlist saved;
  sltsmx savedmx;
  lcorectx *owner;
  lemfac *fac;  // "LPM"
  sltsctx *ts;
  lpminst *root;  // the caller's own instance (lpminitm)
  lpminst *self;  // the library's instance (lpmrist)
  lpmatfn atfn[10];
  void *atarg[10];
  uint8_t atcount;
};

namespace lpm_internal {

constexpr uint32_t kBlkNew = 2, kBlkLocated = 4, kBlkInit = 8, kBlkTried = 16;
constexpr uint32_t kInstRoot = 128, kInstInCall = 0x400, kInstShared = 0x800, kInstExited = 0x1000;
constexpr size_t kMaxSavedName = 16;

// Lists: add at the tail, remove after checking membership.
void lpmllil(lpmlist *l) noexcept;
void lpmllae(lpmlist *l, lpmlink *e) noexcept;
int32_t lpmllmem(const lpmlist *l, const lpmlink *e) noexcept;  // 1 member, 2 not
// True when the list is whole: count links forward from first, each linked
// back to the one before, ending at last. Walks that trust the links check
// this first and report a list fault instead of following a broken one.
bool lpmllok(const lpmlist *l) noexcept;
int32_t lpmllre(lpmlist *l, lpmlink *e) noexcept;                // 0 / -1 (not a member)

// The registry and instance of a context record (null if it has none).
lpmreg *reg_of(lcorectx *ctx) noexcept;
lpminst *inst_of(lcorectx *ctx) noexcept;
// The registry for an entry point named `fn` ("lpmcall()."): null after
// recording a null-argument error when there is none or the entry point's
// own arguments are not ok.
lpmreg *reg_checked(lcorectx *ctx, bool args_ok, const char *fn, uint8_t *flag) noexcept;

// Records an error of the package manager (only once the library is
// initialised); the first record of an operation carries its mark.
void lpmprec(lcorectx *ctx, uint8_t *flag, int32_t msg, int32_t sub, ...) noexcept;
// Ends an operation: pending messages of a library not yet started go.
void lpmpce(lcorectx *ctx) noexcept;
// Keeps one mark for what a package recorded since `depth`.
void lpmpchex(lcorectx *ctx, int32_t depth, uint8_t *flag) noexcept;

// Makes an instance (with its block when name is given). `instlocked`: the
// caller holds the instance-list mutex. 0 / -1.
int32_t lpmpali(lcorectx *ctx, lpmreg *reg, lpminst **out, bool wantblock, const char *name, size_t len,
                uint8_t *flag, bool child, size_t memopt, bool instlocked) noexcept;
// Finishes an instance (a shared one only when its last reference goes).
int32_t lpmpfin(lcorectx *ctx, lpmreg *reg, lpminst *inst, uint8_t *flag, bool instlocked) noexcept;

// Low-level memory handle of a context record.
void *lmlinit(void *a, void *b, void *c) noexcept;
int32_t lmlterm(void *h) noexcept;

}  // namespace lpm_internal

#endif
