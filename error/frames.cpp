// Error frames: a caller pushes a frame holding a jump buffer, and a throw
// records an error and jumps back to the innermost frame.
//
// The frame context of a thread is made on its first use and kept on the
// error manager's list until the manager stops; frames themselves are caller
// storage. Nothing here owns an object with a destructor across a longjmp.
#include <csetjmp>
#include <cstring>

#include "kelmsg_kelcore_lem.h"
#include "error/lem_impl.h"

using namespace lwem_internal;
using namespace lem_internal;

static_assert(sizeof(jmp_buf) <= sizeof(static_cast<lemframe *>(nullptr)->jb),
              "the frame's jump buffer area is too small for this platform");

namespace {

// Pops the innermost frame and jumps to it with `code`.
[[noreturn]] void jump(lemfctx *fc, int32_t code) {
  lemframe *fr = fc->top;
  fc->top = fr->prev;
  fc->depth--;
  longjmp(*reinterpret_cast<jmp_buf *>(fr->jb), code == 0 ? 1 : code);
}

void throw_to(lemfctx *fc, lemfac *fac, int32_t code, int32_t flag) {
  if (fc->top == nullptr) {
    lemric(fc->lemctx, fac, 4, 2, LEM_ARG_END);
    return;
  }
  if (fac != nullptr) {
    lemthrowfn fn = nullptr;
    if (fac->lwe != nullptr) {
      bool locked = relock(lwemts(fac->lwe), &fac->mx, fac->owner);
      fn = fac->throwfn;
      reunlock(lwemts(fac->lwe), &fac->mx, fac->owner, locked);
    }
    if (fn != nullptr) fn(fac->word, fc->top->prev, code, flag);
  }
  jump(fc, code);
}

}  // namespace

extern "C" {

KELAPI lemfctx *lemgfc(void *ctx) {
  lemshared *sh = shared_of(ctx);
  if (sh == nullptr) return nullptr;
  uint64_t me = slthrself();
  bool locked = relock(sh->ts, &sh->mx, sh->owner);
  lemtfc *t = sh->frames;
  while (t != nullptr && t->tid != me) t = t->next;
  if (t == nullptr) {
    t = static_cast<lemtfc *>(ss_mem_calc(sizeof(lemtfc)));
    if (t != nullptr) {
      t->tid = me;
      t->fc.lemctx = sh->core != nullptr && sh->core->lemctx != nullptr ? sh->core->lemctx : ctx;
      t->next = sh->frames;
      sh->frames = t;
    }
  }
  reunlock(sh->ts, &sh->mx, sh->owner, locked);
  return t == nullptr ? nullptr : &t->fc;
}

KELAPI void lemptfs(lemfctx *fc, lemframe *frame) {
  if (fc == nullptr) return;
  if (frame == nullptr) {
    own(shared_of(fc->lemctx), kelmsg::LEM_BADARG, "fr", "lemptfs");
    return;
  }
  frame->prev = fc->top;
  fc->top = frame;
  fc->depth++;
}

KELAPI void lemptfr(lemfctx *fc, lemframe *frame) {
  if (fc == nullptr) return;
  if (frame == nullptr) {
    own(shared_of(fc->lemctx), kelmsg::LEM_BADARG, "fr", "lemptfr");
    return;
  }
  if (fc->top != frame) return;
  fc->top = frame->prev;
  fc->depth--;
}

KELAPI void lempbas(void *ctx, lemframe *frame) { lemptfs(lemgfc(ctx), frame); }
KELAPI void lempbar(void *ctx, lemframe *frame) { lemptfr(lemgfc(ctx), frame); }

KELAPI void lemptpo(lemfctx *fc, lemfac *fac, int32_t code, int32_t flag) {
  if (fc == nullptr) return;
  throw_to(fc, fac, code, flag);
}

KELAPI void lemptrs(lemfctx *fc) {
  if (fc == nullptr) return;
  lemshared *sh = shared_of(fc->lemctx);
  if (sh == nullptr) return;
  int32_t msg = -1;
  lemfac *fac = nullptr;
  {
    LweLock lock(sh->lwe);
    if (lwerec *r = find(sh->lwe, 1)) {
      msg = r->msg;
      fac = r->fac;
    }
  }
  if (msg < 0) {
    // Sub-code 1: the internal-error message with sub-code 0 is refused.
    lwemrec(sh->lwe, sh->fac, kelmsg::LEM_RETHROW, 1, 1, LEM_ARG_TEXT, "lemptrs", LEM_ARG_END);
    return;
  }
  throw_to(fc, fac, msg, 0);
}

KELAPI void lemprse(void *ctx) { lemptrs(lemgfc(ctx)); }

KELAPI void lemtev(lemfctx *fc, lemfac *fac, int32_t msg, int32_t sev, va_list ap) {
  if (fc == nullptr) return;
  lemrev(fc->lemctx, fac, msg, sev, ap);
  throw_to(fc, fac, msg, 0);
}

KELAPI void lemtec(lemfctx *fc, lemfac *fac, int32_t msg, int32_t sev, ...) {
  va_list ap;
  va_start(ap, sev);
  lemtev(fc, fac, msg, sev, ap);
  va_end(ap);
}

KELAPI void lemtiv(lemfctx *fc, lemfac *fac, int32_t subcode, int32_t sev, va_list ap) {
  if (fc == nullptr) return;
  lemshared *sh = shared_of(fc->lemctx);
  if (subcode == 0) {
    own(sh, kelmsg::LEM_BADARG, "ec", "lemtic");
    return;
  }
  if (sev <= 0) {
    own(sh, kelmsg::LEM_BADARG, "sv", "lemtic");
    return;
  }
  lemriv(fc->lemctx, fac, subcode, sev, ap);
  throw_to(fc, fac, fac ? lwemfint(fac) : 0, 0);
}

KELAPI void lemtic(lemfctx *fc, lemfac *fac, int32_t subcode, int32_t sev, ...) {
  va_list ap;
  va_start(ap, sev);
  lemtiv(fc, fac, subcode, sev, ap);
  va_end(ap);
}

KELAPI void lemsev(void *ctx, lemfac *fac, int32_t msg, int32_t sev, va_list ap) {
  lemtev(lemgfc(ctx), fac, msg, sev, ap);
}

KELAPI void lemsec(void *ctx, lemfac *fac, int32_t msg, int32_t sev, ...) {
  va_list ap;
  va_start(ap, sev);
  lemsev(ctx, fac, msg, sev, ap);
  va_end(ap);
}

}  // extern "C"
