// The package registry: its lists, start and stop, error recording, the
// package table, at-term callbacks and saved component contexts.
//
// Lock order: the instance-list mutex before the package-block list mutex;
// an instance's own mutex and a block's initialisation mutex only with both
// released. The call stack and the saved-context list have mutexes of their
// own that are never held with another.
//
// Sections: lists; lookup and recording; start and stop; package table and
// at-term callbacks; saved contexts.
#include <cstring>

#include "kelmsg_kelcore_lpm.h"
#include "context/lpm_impl.h"

using namespace lpm_internal;

namespace lpm_internal {

// ------------------------------------------------------------------- lists

void lpmllil(lpmlist *l) noexcept { *l = lpmlist{nullptr, 0, nullptr}; }

void lpmllae(lpmlist *l, lpmlink *e) noexcept {
  e->next = nullptr;
  e->prev = l->last;
  if (l->last) l->last->next = e; else l->first = e;
  l->last = e;
  l->count++;
}

int32_t lpmllmem(const lpmlist *l, const lpmlink *e) noexcept {
  for (const lpmlink *p = l->first; p != nullptr; p = p->next)
    if (p == e) return 1;
  return 2;
}

bool lpmllok(const lpmlist *l) noexcept {
  if (l == nullptr) return false;
  const lpmlink *prev = nullptr, *e = l->first;
  for (uint64_t i = 0; i < l->count; ++i) {
    if (e == nullptr || e->prev != prev) return false;
    prev = e;
    e = e->next;
  }
  return e == nullptr && l->last == prev;
}

int32_t lpmllre(lpmlist *l, lpmlink *e) noexcept {
  if (e == nullptr || lpmllmem(l, e) != 1) return -1;
  if (e->prev) e->prev->next = e->next; else l->first = e->next;
  if (e->next) e->next->prev = e->prev; else l->last = e->prev;
  e->next = e->prev = nullptr;
  l->count--;
  return 0;
}

// --------------------------------------------------- lookup and recording

lpminst *inst_of(lcorectx *ctx) noexcept {
  if (ctx == nullptr || ctx->pkgh == nullptr) return nullptr;
  return static_cast<lpminsth *>(ctx->pkgh)->inst;
}

lpmreg *reg_of(lcorectx *ctx) noexcept {
  lpminst *i = inst_of(ctx);
  return i == nullptr ? nullptr : i->reg;
}

lpmreg *reg_checked(lcorectx *ctx, bool args_ok, const char *fn, uint8_t *flag) noexcept {
  lpmreg *reg = reg_of(ctx);
  if (reg != nullptr && args_ok) return reg;
  lpmprec(ctx, flag, kelmsg::LPM_NULLARG, 0, LEM_ARG_TEXT, fn, LEM_ARG_END);
  return nullptr;
}

void lpmprec(lcorectx *ctx, uint8_t *flag, int32_t msg, int32_t sub, ...) noexcept {
  if (ctx == nullptr || !ctx->initialised) return;
  lpmreg *reg = reg_of(ctx);
  if (reg == nullptr) return;
  va_list ap;
  va_start(ap, sub);
  lwemopv(static_cast<lwectx *>(ctx->lwemctx), reg->fac, flag, msg, sub, ap);
  va_end(ap);
}

void lpmpce(lcorectx *ctx) noexcept {
  if (ctx != nullptr && !ctx->initialised) lwemdtm(static_cast<lwectx *>(ctx->lwemctx));
}

void lpmpchex(lcorectx *ctx, int32_t depth, uint8_t *flag) noexcept {
  if (ctx == nullptr || !ctx->initialised) return;
  auto *lwe = static_cast<lwectx *>(ctx->lwemctx);
  int32_t now = lwemged(lwe);
  if (now <= depth) return;
  int32_t n = now - depth;
  if (lwemimkc(lwe, n) != 1) lwemmrkn(lwe, n);
  for (int32_t i = 1; i < n; i++)
    if (lwemimkc(lwe, i) == 1) lwemcmk(lwe);
  if (*flag) lwemcmk(lwe);
  *flag = 1;
}

}  // namespace lpm_internal

namespace {

void free_saved(lpmreg *reg) noexcept {
  while (lpmlink *e = reg->saved.first) {
    lpmllre(&reg->saved, e);
    ss_mem_fre(e);
  }
}

}  // namespace

extern "C" {

// ---------------------------------------------------------- start and stop

KELAPI int32_t lpmrist(lcorectx *ctx, void *handle, int32_t mode) {
  if (ctx == nullptr) return -1;
  auto *lwe = static_cast<lwectx *>(ctx->lwemctx);
  if (mode == 0) {
    // Each step undoes what came before it on failure.
    auto *reg = static_cast<lpmreg *>(ss_mem_calc(sizeof(lpmreg)));
    if (reg == nullptr) return -1;
    auto *h = static_cast<lpminsth *>(ss_mem_calc(sizeof(lpminsth)));
    if (h == nullptr) goto free_reg;
    reg->self = static_cast<lpminst *>(ss_mem_calc(sizeof(lpminst)));
    if (reg->self == nullptr) goto free_h;
    reg->ts = sltsini();
    if (reg->ts == nullptr) goto free_self;
    reg->fac = lwemfaa(lwe, nullptr, "KELCORE", "LPM", kelmsg::LPM_INTERNAL, kelmsg::LPM_STEP);
    if (reg->fac == nullptr) goto free_ts;
    lpmllil(&reg->blocks);
    if (sltsmxi(reg->ts, &reg->blockmx) != 0) goto free_fac;
    lpmllil(&reg->insts);
    if (sltsmxi(reg->ts, &reg->instmx) != 0) goto free_blockmx;
    lpmllil(&reg->calls);
    if (sltsmxi(reg->ts, &reg->callmx) != 0) goto free_instmx;
    lpmllil(&reg->saved);
    if (sltsmxi(reg->ts, &reg->savedmx) != 0) goto free_callmx;
    if (sltsmxi(reg->ts, &reg->self->mx) != 0) goto free_savedmx;
    reg->self->flags = kInstRoot;
    reg->self->reg = reg;
    reg->self->rec = ctx;
    reg->self->handle = h;
    if (slpmini(&reg->table) != 0) goto free_selfmx;
    if (slpmadp(ctx, reg->table, slpmgpt(), 0, nullptr, nullptr, 0, 1) != 0) goto free_table;
    reg->owner = ctx;
    h->inst = reg->self;
    ctx->insth = h;
    ctx->pkgh = h;
    return 0;

  free_table:
    slpmtrm(reg->table);
  free_selfmx:
    sltsmxd(reg->ts, &reg->self->mx);
  free_savedmx:
    sltsmxd(reg->ts, &reg->savedmx);
  free_callmx:
    sltsmxd(reg->ts, &reg->callmx);
  free_instmx:
    sltsmxd(reg->ts, &reg->instmx);
  free_blockmx:
    sltsmxd(reg->ts, &reg->blockmx);
  free_fac:
    lwemfaf(lwe, reg->fac);
  free_ts:
    sltster(reg->ts);
  free_self:
    ss_mem_fre(reg->self);
  free_h:
    ss_mem_fre(h);
  free_reg:
    ss_mem_fre(reg);
    return -1;
  }
  if (mode != 1) return -1;
  lpmreg *reg = reg_of(ctx);
  if (reg == nullptr) return -1;
  int32_t rc = 0;
  uint8_t flag = 0;
  slpmtrm(reg->table);
  free_saved(reg);
  if (sltsmxd(reg->ts, &reg->self->mx) != 0) rc = -1;
  if (sltsmxd(reg->ts, &reg->savedmx) != 0) rc = -1;
  if (reg->calls.count != 0) {
    lpmprec(ctx, &flag, kelmsg::LPM_STEP, 0, LEM_ARG_TEXT, "lpmcste().the stack is not empty", LEM_ARG_END);
    rc = -1;
  }
  if (sltsmxd(reg->ts, &reg->callmx) != 0) rc = -1;
  if (sltsmxd(reg->ts, &reg->instmx) != 0) rc = -1;
  if (sltsmxd(reg->ts, &reg->blockmx) != 0) rc = -1;
  if (lwemfaf(lwe, reg->fac) != 0) rc = -1;
  if (sltster(reg->ts) != 0) rc = -1;
  ss_mem_fre(ctx->pkgh);
  ss_mem_fre(reg->self);
  ss_mem_fre(reg);
  ctx->pkgh = ctx->insth = nullptr;
  return rc;
}

// ------------------------------------------ package table, at-term callbacks

KELAPI int32_t lpmapd(lcorectx *ctx, const lpmpdesc *rows, int32_t count, int32_t *where, void *reserved) {
  uint8_t flag = 0;
  lpmreg *reg = reg_checked(ctx, rows != nullptr, "lpmapd().", &flag);
  if (reg == nullptr) return -1;
  sltsmna(reg->ts, &reg->blockmx);
  int32_t rc = slpmadp(ctx, reg->table, rows, count, where, reserved, 1, 1);
  sltsmnr(reg->ts, &reg->blockmx);
  if (rc == -1) lpmprec(ctx, &flag, kelmsg::LPM_NOMEM, 0, LEM_ARG_TEXT, "lpmapd(): Out of Memory.", LEM_ARG_END);
  return rc;
}

KELAPI int32_t lpmatterm(lcorectx *ctx, lpmatfn fn, void *arg) {
  lpmreg *reg = reg_of(ctx);
  if (reg == nullptr || fn == nullptr || reg->atcount >= 10) return -1;
  reg->atfn[reg->atcount] = fn;
  reg->atarg[reg->atcount] = arg;
  reg->atcount++;
  return 0;
}

// ----------------------------------------------------------- saved contexts

KELAPI int32_t lpmsavecompctx(lcorectx *ctx, const char *name, void *context, int32_t replace) {
  uint8_t flag = 0;
  lpmreg *reg = reg_checked(ctx, name != nullptr, "lpmsavecompctx().", &flag);
  if (reg == nullptr) return -1;
  size_t len = strlen(name);
  if (len > kMaxSavedName) {
    lpmprec(ctx, &flag, kelmsg::LPM_SAVELONG, 0, LEM_ARG_TEXT, name, LEM_ARG_NUM, int64_t{16}, LEM_ARG_END);
    return -1;
  }
  int32_t rc = 0;
  sltsmna(reg->ts, &reg->savedmx);
  if (!lpmllok(&reg->saved)) {
    sltsmnr(reg->ts, &reg->savedmx);
    lpmprec(ctx, &flag, kelmsg::LPM_INTERNAL, context ? 91 : 92, LEM_ARG_TEXT,
            "Invalid list structure or list elelment pointer", LEM_ARG_END);
    lpmpce(ctx);
    return -1;
  }
  lpmsce *found = nullptr;
  for (lpmlink *e = reg->saved.first; e != nullptr; e = e->next) {
    auto *s = reinterpret_cast<lpmsce *>(e);
    if (s->namel == len && memcmp(s->name, name, len) == 0) {
      found = s;
      break;
    }
  }
  if (found != nullptr) {
    if (context != nullptr) {
      if (found->saved == nullptr || replace) {
        found->saved = context;
      } else {
        lpmprec(ctx, &flag, kelmsg::LPM_SAVETAKEN, 0, LEM_ARG_TEXT, name, LEM_ARG_END);
        rc = -1;
      }
    } else if (lpmllre(&reg->saved, &found->link) != 0) {
      lpmprec(ctx, &flag, kelmsg::LPM_INTERNAL, 92, LEM_ARG_TEXT, "Invalid list structure or list elelment pointer", LEM_ARG_END);
      rc = -1;
    } else {
      ss_mem_fre(found);
    }
  } else if (context != nullptr) {
    auto *s = static_cast<lpmsce *>(ss_mem_calc(sizeof(lpmsce)));
    if (s == nullptr) {
      lpmprec(ctx, &flag, kelmsg::LPM_NOMEM, 0, LEM_ARG_TEXT, "lpmsavecompctx(): Out of Memory.", LEM_ARG_END);
      rc = -1;
    } else {
      s->saved = context;
      s->namel = len;
      memcpy(s->name, name, len);
      lpmllae(&reg->saved, &s->link);
    }
  }
  sltsmnr(reg->ts, &reg->savedmx);
  lpmpce(ctx);
  return rc;
}

KELAPI void *lpmgetcompctx(lcorectx *ctx, const char *name) {
  uint8_t flag = 0;
  lpmreg *reg = reg_checked(ctx, name != nullptr, "lpmgetcompctx().", &flag);
  if (reg == nullptr) return nullptr;
  size_t len = strlen(name);
  if (len > kMaxSavedName) {
    lpmprec(ctx, &flag, kelmsg::LPM_GETLONG, 0, LEM_ARG_TEXT, name, LEM_ARG_NUM, int64_t{16}, LEM_ARG_END);
    return nullptr;
  }
  void *out = nullptr;
  bool found = false;
  sltsmna(reg->ts, &reg->savedmx);
  if (!lpmllok(&reg->saved)) {
    sltsmnr(reg->ts, &reg->savedmx);
    lpmprec(ctx, &flag, kelmsg::LPM_INTERNAL, 150, LEM_ARG_TEXT, "Invalid list structure pointer", LEM_ARG_END);
    lpmpce(ctx);
    return nullptr;
  }
  for (lpmlink *e = reg->saved.first; e != nullptr; e = e->next) {
    auto *s = reinterpret_cast<lpmsce *>(e);
    if (s->namel == len && memcmp(s->name, name, len) == 0) {
      out = s->saved;
      found = true;
      break;
    }
  }
  sltsmnr(reg->ts, &reg->savedmx);
  if (!found) lpmprec(ctx, &flag, kelmsg::LPM_NOCTX, 0, LEM_ARG_TEXT, name, LEM_ARG_END);
  lpmpce(ctx);
  return out;
}

}  // extern "C"
