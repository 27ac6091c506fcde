// Package instances and blocks, loading, calling and leaving packages.
//
// A package block exists once per package name and holds the located entry
// and the published interface vector; an instance is one user of a block
// with its own context record copy and sub-contexts. lpmloadpkg shares one
// instance per name between all its users; lpmcall makes a private instance
// for each call and finishes it afterwards. Operation 1 of a package runs
// once per block, under the block's initialisation mutex.
//
// lpmcall and lpmexitprog meet through setjmp/longjmp: the paths between
// them hold no object with a destructor.
//
// Sections: blocks; instances; loading and deleting; calls; what a package
// calls back.
#include <cstring>

#include "kelmsg_kelcore_lpm.h"
#include "context/lpm_impl.h"
#include "lem.h"
#include "lfi.h"
#include "lmm.h"

using namespace lpm_internal;

namespace {

// ------------------------------------------------------------------ blocks

lpmpblk *lpmpapb(lpmreg *reg, const char *name, size_t len) noexcept {
  auto *b = static_cast<lpmpblk *>(ss_mem_calc(sizeof(lpmpblk) + len + 1));
  if (b == nullptr) return nullptr;
  if (sltsmxi(reg->ts, &b->initmx) != 0) {
    ss_mem_fre(b);
    return nullptr;
  }
  b->name = reinterpret_cast<char *>(b + 1);
  memcpy(b->name, name, len);
  b->namel = len;
  b->flags = kBlkNew;
  lpmllae(&reg->blocks, &b->link);
  return b;
}

lpmpblk *find_block(lpmreg *reg, const char *name, size_t len) noexcept {
  for (lpmlink *e = reg->blocks.first; e != nullptr; e = e->next) {
    auto *b = reinterpret_cast<lpmpblk *>(e);
    if (b->namel == len && memcmp(b->name, name, len) == 0) return b;
  }
  return nullptr;
}

// Releases one user of a block; the last one terminates the package and
// unloads it. The block-list mutex is held only to count and unlink, so that
// operation 2 may use the package manager itself.
int32_t lpmpfpb(lcorectx *ctx, lpmreg *reg, lpmpblk *b, uint8_t *flag) noexcept {
  sltsmna(reg->ts, &reg->blockmx);
  int32_t left = --b->users;
  const bool unlinked = left <= 0 && lpmllre(&reg->blocks, &b->link) == 0;
  sltsmnr(reg->ts, &reg->blockmx);
  if (left <= 0 && !unlinked) {
    // Not on the list: someone else's block, or a broken list. Leave it.
    lpmprec(ctx, flag, kelmsg::LPM_INTERNAL, 160, LEM_ARG_TEXT, "List element not found.", LEM_ARG_END);
    return -1;
  }
  if (!unlinked) return left > 0 ? left : 0;
  int32_t rc = 0;
  if ((b->flags & (kBlkLocated | kBlkTried)) == (kBlkLocated | kBlkTried) && b->entry != nullptr) {
    int32_t depth = lwemged(static_cast<lwectx *>(ctx->lwemctx));
    if (b->entry(ctx, nullptr, 2, nullptr, nullptr) != 0) rc = -1;
    lpmpchex(ctx, depth, flag);
  }
  if (slpmfpb(ctx, b->module) != 0) rc = -1;
  sltsmxd(reg->ts, &b->initmx);
  ss_mem_fre(b->ift);
  ss_mem_fre(b);
  return rc;
}

// Runs operation 1 of the block's package once. 0 / -1 (recorded).
int32_t init_package(lcorectx *ctx, lpmreg *reg, lpminst *inst, uint8_t *flag) noexcept {
  lpmpblk *b = inst->block;
  int32_t rc = 0;
  sltsmna(reg->ts, &b->initmx);
  if ((b->flags & kBlkInit) == 0) {
    int32_t depth = lwemged(static_cast<lwectx *>(ctx->lwemctx));
    if (b->entry(inst->rec, inst->priv, 1, nullptr, nullptr) != 0) {
      lpmpchex(ctx, depth, flag);
      rc = -1;
    } else if (inst->priv == nullptr) {
      lpmprec(ctx, flag, kelmsg::LPM_NOPRIV, 0, LEM_ARG_TEXT, b->name, LEM_ARG_END);
      rc = -1;
    } else if (b->ift == nullptr) {
      b->flags |= kBlkTried;
      lpmprec(ctx, flag, kelmsg::LPM_NOIFACE, 0, LEM_ARG_TEXT, b->name, LEM_ARG_END);
      rc = -1;
    } else {
      b->flags |= kBlkInit | kBlkTried;
    }
  }
  sltsmnr(reg->ts, &b->initmx);
  return rc;
}

// Locates the block's entry when it is not located yet. Call with the
// block-list mutex held. 0 / -1 (recorded).
int32_t locate(lcorectx *ctx, lpmreg *reg, lpmpblk *b, uint8_t *flag) noexcept {
  if (b->flags & kBlkLocated) return 0;
  if (slpmloc(ctx, reg->table, &b->module, b->name, b->namel, &b->entry) != 0) {
    lpmprec(ctx, flag, kelmsg::LPM_NOTFOUND, 0, LEM_ARG_TEXT, b->name, LEM_ARG_END);
    return -1;
  }
  b->flags |= kBlkLocated;
  b->flags &= ~kBlkTried;
  return 0;
}

}  // namespace

namespace lpm_internal {

// --------------------------------------------------------------- instances

int32_t lpmpali(lcorectx *ctx, lpmreg *reg, lpminst **out, bool wantblock, const char *name, size_t len,
                uint8_t *flag, bool child, size_t memopt, bool instlocked) noexcept {
  size_t reclen = child ? sizeof(lcorectxc) : sizeof(lcorectx);
  auto *inst = static_cast<lpminst *>(ss_mem_calc(sizeof(lpminst)));
  if (inst == nullptr) {
    lpmprec(ctx, flag, kelmsg::LPM_NOMEM, 0, LEM_ARG_TEXT, "lpmpali()", LEM_ARG_END);
    return -1;
  }
  auto *rec = static_cast<lcorectx *>(ss_mem_calc(reclen));
  auto *h = rec ? static_cast<lpminsth *>(ss_mem_calc(sizeof(lpminsth))) : nullptr;
  if (h == nullptr) {
    lpmprec(ctx, flag, kelmsg::LPM_NOMEM, 0, LEM_ARG_TEXT, "lpmpali().", LEM_ARG_END);
    ss_mem_fre(rec);
    ss_mem_fre(inst);
    return -1;
  }
  if (wantblock) {
    sltsmna(reg->ts, &reg->blockmx);
    lpmpblk *b = find_block(reg, name, len);
    if (b == nullptr) b = lpmpapb(reg, name, len);
    if (b != nullptr) b->users++;  // held by this instance from now on
    sltsmnr(reg->ts, &reg->blockmx);
    if (b == nullptr) {
      lpmprec(ctx, flag, kelmsg::LPM_STEP, 0, LEM_ARG_TEXT, "llpmpali().", LEM_ARG_END);
      ss_mem_fre(h);
      ss_mem_fre(rec);
      ss_mem_fre(inst);
      return -1;
    }
    inst->block = b;
  }
  memcpy(rec, ctx, sizeof(lcorectx));
  rec->length = reclen;
  rec->insth = rec->pkgh = h;
  if (child) reinterpret_cast<lcorectxc *>(rec)->parent = ctx;
  h->inst = inst;
  inst->rec = rec;
  inst->handle = h;
  inst->reg = reg;

  // Undo ladder for the rest.
  int stage = 0;
  if (sltsmxi(reg->ts, &inst->mx) != 0) {
    lpmprec(ctx, flag, kelmsg::LPM_THREAD, 0, LEM_ARG_TEXT, "lpmpali(): failure to initialize mutex", LEM_ARG_END);
  } else {
    stage = 1;
    if (!instlocked) sltsmna(reg->ts, &reg->instmx);
    lpmllae(&reg->insts, &inst->link);
    if (!instlocked) sltsmnr(reg->ts, &reg->instmx);
    stage = 2;
    if (slpmali(ctx, &inst->sldata) != 0) {
      lpmprec(ctx, flag, kelmsg::LPM_STEP, 0, LEM_ARG_TEXT, "lpmpali() - slpmali().", LEM_ARG_END);
    } else if (stage = 3, lmmcis(ctx, &inst->memsub, rec, memopt) != 0) {
      lpmprec(ctx, flag, kelmsg::LPM_NOMEMSUB, 0, LEM_ARG_END);
    } else if (stage = 4, lficis(ctx, &inst->filesub, rec) != 0) {
      lpmprec(ctx, flag, kelmsg::LPM_NOFILESUB, 0, LEM_ARG_END);
    } else if (stage = 5, lemcis(ctx, &inst->errsub, rec) != 0) {
      lpmprec(ctx, flag, kelmsg::LPM_NOERRSUB, 0, LEM_ARG_END);
    } else {
      rec->lmmctx = inst->memsub;
      rec->lfictx = inst->filesub;
      rec->lemctx = inst->errsub;
      *out = inst;
      return 0;
    }
  }
  if (stage >= 5) lficit(ctx, inst->filesub, rec);
  if (stage >= 4) lmmcit(ctx, inst->memsub, rec);
  if (stage >= 3) slpmfin(ctx, inst->sldata);
  if (stage >= 2) {
    if (!instlocked) sltsmna(reg->ts, &reg->instmx);
    lpmllre(&reg->insts, &inst->link);
    if (!instlocked) sltsmnr(reg->ts, &reg->instmx);
  }
  if (stage >= 1) sltsmxd(reg->ts, &inst->mx);
  if (inst->block != nullptr) lpmpfpb(ctx, reg, inst->block, flag);
  ss_mem_fre(h);
  ss_mem_fre(rec);
  ss_mem_fre(inst);
  return -1;
}

int32_t lpmpfin(lcorectx *ctx, lpmreg *reg, lpminst *inst, uint8_t *flag, bool instlocked) noexcept {
  int32_t rc = 0;
  if (inst->block != nullptr) {
    if (lpmpfpb(ctx, reg, inst->block, flag) < 0) {
      lpmprec(ctx, flag, kelmsg::LPM_STEP, 0, LEM_ARG_TEXT, "lpmpfin() - lpmpfpb().", LEM_ARG_END);
      rc = -1;
    }
  }
  if (!instlocked) sltsmna(reg->ts, &reg->instmx);
  bool last = true;
  if (inst->flags & kInstShared) last = --inst->refs <= 0;
  if (last && lpmllre(&reg->insts, &inst->link) != 0) {
    lpmprec(ctx, flag, kelmsg::LPM_INTERNAL, 160, LEM_ARG_TEXT, "List element not found.", LEM_ARG_END);
    lpmprec(ctx, flag, kelmsg::LPM_STEP, 0, LEM_ARG_TEXT, "lpmpfin() - lpmprec().", LEM_ARG_END);
    rc = -1;
  }
  if (!instlocked) sltsmnr(reg->ts, &reg->instmx);
  if (!last) return rc;
  // The block went with the last reference above; the rest of the
  // instance goes now, every step tried.
  inst->block = nullptr;
  if (slpmfin(ctx, inst->sldata) != 0) {
    lpmprec(ctx, flag, kelmsg::LPM_STEP, 0, LEM_ARG_TEXT, "lpmpfin() - slpmfin().", LEM_ARG_END);
    rc = -1;
  }
  if (sltsmxd(reg->ts, &inst->mx) != 0) {
    lpmprec(ctx, flag, kelmsg::LPM_THREAD, 0, LEM_ARG_TEXT, "lpmpfin(): failure to terminate mutex", LEM_ARG_END);
    rc = -1;
  }
  if (lemcit(ctx, inst->errsub, inst->rec) != 0) {
    lpmprec(ctx, flag, kelmsg::LPM_STEP, 0, LEM_ARG_TEXT, "lpmpfin() - lemcit().", LEM_ARG_END);
    rc = -1;
  }
  if (lficit(ctx, inst->filesub, inst->rec) != 0) {
    lpmprec(ctx, flag, kelmsg::LPM_STEP, 0, LEM_ARG_TEXT, "lpmpfin() - lficit().", LEM_ARG_END);
    rc = -1;
  }
  if (lmmcit(ctx, inst->memsub, inst->rec) != 0) {
    lpmprec(ctx, flag, kelmsg::LPM_STEP, 0, LEM_ARG_TEXT, "lpmpfin() - lmmcit().", LEM_ARG_END);
    rc = -1;
  }
  ss_mem_fre(inst->priv);
  ss_mem_fre(inst->handle);
  ss_mem_fre(inst->rec);
  ss_mem_fre(inst);
  return rc;
}

}  // namespace lpm_internal

namespace {

// Takes the instance-list and package-block-list locks, in that order, and
// finds the shared instance of package `name` (null in *inst when there is
// none). A damaged list releases both locks, records internal error `sub`
// and gives false.
bool lock_find_shared(lcorectx *ctx, lpmreg *reg, const char *name, size_t len, int32_t sub, uint8_t *flag,
                      lpminst **inst) {
  sltsmna(reg->ts, &reg->instmx);
  sltsmna(reg->ts, &reg->blockmx);
  if (!lpmllok(&reg->insts) || !lpmllok(&reg->blocks)) {
    sltsmnr(reg->ts, &reg->blockmx);
    sltsmnr(reg->ts, &reg->instmx);
    lpmprec(ctx, flag, kelmsg::LPM_INTERNAL, sub, LEM_ARG_TEXT, "Invalid list structure pointer", LEM_ARG_END);
    lpmpce(ctx);
    return false;
  }
  *inst = nullptr;
  for (lpmlink *e = reg->insts.first; e != nullptr; e = e->next) {
    auto *i = reinterpret_cast<lpminst *>(e);
    if ((i->flags & kInstShared) && i->block && i->block->namel == len && memcmp(i->block->name, name, len) == 0) {
      *inst = i;
      break;
    }
  }
  return true;
}

}  // namespace

extern "C" {

// -------------------------------------------------- loading and deleting

KELAPI lpmiftab *lpmloadpkg(lcorectx *ctx, const char *name) {
  uint8_t flag = 0;
  lpmreg *reg = reg_checked(ctx, name != nullptr, "lpmloadpkg().", &flag);
  if (reg == nullptr) return nullptr;
  size_t len = strlen(name);
  lpminst *inst = nullptr;
  if (!lock_find_shared(ctx, reg, name, len, 30, &flag, &inst)) return nullptr;
  if (inst == nullptr) {
    sltsmnr(reg->ts, &reg->blockmx);
    if (lpmpali(ctx, reg, &inst, true, name, len, &flag, false, 0, true) != 0) {
      lpmprec(ctx, &flag, kelmsg::LPM_NOINST, 0, LEM_ARG_END);
      sltsmnr(reg->ts, &reg->instmx);
      lpmpce(ctx);
      return nullptr;
    }
    sltsmna(reg->ts, &reg->blockmx);
    inst->flags |= kInstShared;
  } else {
    inst->block->users++;
  }
  inst->refs++;
  if (locate(ctx, reg, inst->block, &flag) != 0) {
    sltsmnr(reg->ts, &reg->blockmx);
    lpmpfin(ctx, reg, inst, &flag, true);
    sltsmnr(reg->ts, &reg->instmx);
    lpmpce(ctx);
    return nullptr;
  }
  sltsmnr(reg->ts, &reg->blockmx);
  sltsmnr(reg->ts, &reg->instmx);

  lpmiftab *ift = nullptr;
  if (init_package(ctx, reg, inst, &flag) == 0) {
    ift = inst->block->ift;
  } else {
    lpmpfin(ctx, reg, inst, &flag, false);
  }
  lpmpce(ctx);
  return ift;
}

KELAPI int32_t lpmdelete(lcorectx *ctx, const char *name) {
  uint8_t flag = 0;
  lpmreg *reg = reg_checked(ctx, name != nullptr, "lpmdelete().", &flag);
  if (reg == nullptr) return -1;
  size_t len = strlen(name);
  lpminst *inst = nullptr;
  if (!lock_find_shared(ctx, reg, name, len, 60, &flag, &inst)) return -1;
  sltsmnr(reg->ts, &reg->blockmx);
  int32_t rc = 0;
  if (inst == nullptr) {
    lpmprec(ctx, &flag, kelmsg::LPM_NOTLOADED, 0, LEM_ARG_TEXT, name, LEM_ARG_END);
    rc = -1;
  } else if (lpmpfin(ctx, reg, inst, &flag, true) != 0) {
    lpmprec(ctx, &flag, kelmsg::LPM_NOFINISH, 0, LEM_ARG_END);
    rc = -1;
  }
  sltsmnr(reg->ts, &reg->instmx);
  lpmpce(ctx);
  return rc;
}

// ------------------------------------------------------------------- calls

KELAPI int32_t lpmcall(lcorectx *ctx, const char *name, int32_t code, void *arg, void *result) {
  uint8_t flag = 0;
  lpmreg *reg = reg_checked(ctx, name != nullptr, "lpmcall().", &flag);
  if (reg == nullptr) return -1;
  lpminst *inst = nullptr;
  if (lpmpali(ctx, reg, &inst, true, name, strlen(name), &flag, false, 0, false) != 0) {
    lpmprec(ctx, &flag, kelmsg::LPM_NOINST, 0, LEM_ARG_END);
    lpmpce(ctx);
    return -1;
  }
  sltsmna(reg->ts, &reg->blockmx);
  int32_t located = locate(ctx, reg, inst->block, &flag);
  sltsmnr(reg->ts, &reg->blockmx);
  if (located != 0 || init_package(ctx, reg, inst, &flag) != 0) {
    lpmpfin(ctx, reg, inst, &flag, false);
    lpmpce(ctx);
    return -1;
  }
  auto *cse = static_cast<lpmcse *>(ss_mem_calc(sizeof(lpmcse)));
  if (cse == nullptr) {
    lpmprec(ctx, &flag, kelmsg::LPM_NOMEM, 0, LEM_ARG_TEXT, "lpmcall(): Out of Memory.", LEM_ARG_END);
    lpmpfin(ctx, reg, inst, &flag, false);
    lpmpce(ctx);
    return -1;
  }
  if (sltstidinit(reg->ts, &cse->tid) != 0 || sltstgi(reg->ts, &cse->tid) != 0) {
    lpmprec(ctx, &flag, kelmsg::LPM_THREAD, 0, LEM_ARG_TEXT, "lpmcspu(): failure to initialize Thread ID", LEM_ARG_END);
    ss_mem_fre(cse);
    lpmpfin(ctx, reg, inst, &flag, false);
    lpmpce(ctx);
    return -1;
  }
  cse->ctx = inst->rec;
  sltsmna(reg->ts, &reg->callmx);
  lpmllae(&reg->calls, &cse->link);
  sltsmnr(reg->ts, &reg->callmx);
  inst->call = cse;
  int32_t depth = lwemged(static_cast<lwectx *>(ctx->lwemctx));

  volatile int32_t status = -1;
  if (setjmp(inst->jb) == 0) {
    inst->flags |= kInstInCall;
    status = inst->block->entry(inst->rec, inst->priv, code, arg, result);
    lpmpchex(ctx, depth, &flag);
    sltsmna(reg->ts, &reg->callmx);
    int32_t popped = lpmllre(&reg->calls, &cse->link);
    sltsmnr(reg->ts, &reg->callmx);
    if (popped != 0)
      lpmprec(ctx, &flag, kelmsg::LPM_INTERNAL, 170, LEM_ARG_TEXT, "Stack element not found.", LEM_ARG_END);
    sltstiddestroy(reg->ts, &cse->tid);
    inst->flags &= ~kInstInCall;
  } else {
    // Back from lpmexitprog, which popped the element already.
    lpmpchex(ctx, depth, &flag);
    status = inst->exitstatus;
    inst->flags &= ~kInstInCall;
    inst->flags |= kInstExited;
  }
  inst->call = nullptr;
  ss_mem_fre(cse);
  int32_t rc = status;
  lpmpfin(ctx, reg, inst, &flag, false);
  lpmpce(ctx);
  return rc;
}

KELAPI void lpmexitprog(lcorectx *ctx, int32_t status) {
  lpmreg *reg = reg_of(ctx);
  uint8_t flag = 0;
  if (reg == nullptr) slzexit(1);
  uint64_t me = slthrself();
  sltsmna(reg->ts, &reg->callmx);
  lpmcse *cse = nullptr;
  for (lpmlink *e = reg->calls.last; e != nullptr; e = e->prev) {
    auto *c = reinterpret_cast<lpmcse *>(e);
    if (c->tid.id == me) {
      cse = c;
      break;
    }
  }
  if (cse != nullptr) lpmllre(&reg->calls, &cse->link);
  sltsmnr(reg->ts, &reg->callmx);
  if (cse == nullptr) {
    lpmprec(ctx, &flag, kelmsg::LPM_EXITNOCALL, 0, LEM_ARG_END);
    slzexit(1);
  }
  if (sltstiddestroy(reg->ts, &cse->tid) != 0) {
    lpmprec(ctx, &flag, kelmsg::LPM_THREAD, 0, LEM_ARG_TEXT, "lpmexitprog(): failure to destroy Thread ID", LEM_ARG_END);
    slzexit(1);
  }
  lpminst *inst = inst_of(cse->ctx);
  if (inst == nullptr || (inst->flags & kInstInCall) == 0 || inst->call != cse) {
    lpmprec(ctx, &flag, kelmsg::LPM_EXITNOINST, 0, LEM_ARG_END);
    slzexit(1);
  }
  inst->exitstatus = status;
  longjmp(inst->jb, 1);
}

// ------------------------------------------------- what a package calls back

KELAPI lpmiftab *lpmarrfuncs(lcorectx *ctx, void *object, int32_t count, const lpmfunc *functions) {
  uint8_t flag = 0;
  lpminst *inst = inst_of(ctx);
  if (inst == nullptr || inst->block == nullptr || count < 0 || (count > 0 && functions == nullptr)) {
    lpmprec(ctx, &flag, kelmsg::LPM_NULLARG, 0, LEM_ARG_TEXT, "lpmarrfuncs().", LEM_ARG_END);
    return nullptr;
  }
  lpmpblk *b = inst->block;
  if (b->ift != nullptr) return b->ift;
  size_t n = count > 0 ? static_cast<size_t>(count) : 1;
  auto *ift = static_cast<lpmiftab *>(ss_mem_calc(offsetof(lpmiftab, funcs) + n * sizeof(lpmfunc)));
  if (ift == nullptr) {
    lpmprec(ctx, &flag, kelmsg::LPM_NOMEM, 0, LEM_ARG_TEXT, "lpmarrfuncs(): Out of Memory.", LEM_ARG_END);
    return nullptr;
  }
  ift->object = object;
  ift->count = count;
  for (int32_t i = 0; i < count; i++) ift->funcs[i] = functions[i];
  b->ift = ift;
  return ift;
}

KELAPI void *lpmmkpri(lcorectx *ctx, size_t size) {
  uint8_t flag = 0;
  lpminst *inst = inst_of(ctx);
  if (inst == nullptr) {
    lpmprec(ctx, &flag, kelmsg::LPM_NULLARG, 0, LEM_ARG_TEXT, "lpmmkpri().", LEM_ARG_END);
    return nullptr;
  }
  if (inst->priv != nullptr) return nullptr;
  inst->priv = ss_mem_calc(size);
  if (inst->priv == nullptr)
    lpmprec(ctx, &flag, kelmsg::LPM_NOMEM, 0, LEM_ARG_TEXT, "lpmmkpri(): Out of Memory.", LEM_ARG_END);
  return inst->priv;
}

}  // extern "C"
