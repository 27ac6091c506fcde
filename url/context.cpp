// The URL family's context: its error facility, made once per started
// library, and the small recorders the other files of the family use.
#include "lem.h"
#include "sl.h"
#include "url/url_impl.h"

namespace lpu_internal {

void rec(void *uctx, int32_t msg, const char *text) noexcept {
  lpuctx *c = ctx_of(uctx);
  if (c == nullptr) return;
  lemrec(c->lemctx, c->fac, msg, 1, LEM_ARG_TEXT, text ? text : "", LEM_ARG_END);
}

void recn(void *uctx, int32_t msg, int64_t num, const char *text) noexcept {
  lpuctx *c = ctx_of(uctx);
  if (c == nullptr) return;
  if (text != nullptr)
    lemrec(c->lemctx, c->fac, msg, 1, LEM_ARG_NUM, num, LEM_ARG_TEXT, text, LEM_ARG_END);
  else
    lemrec(c->lemctx, c->fac, msg, 1, LEM_ARG_NUM, num, LEM_ARG_END);
}

void rec2(void *uctx, int32_t msg, const char *text, const char *text2) noexcept {
  lpuctx *c = ctx_of(uctx);
  if (c == nullptr) return;
  lemrec(c->lemctx, c->fac, msg, 1, LEM_ARG_TEXT, text, LEM_ARG_TEXT, text2, LEM_ARG_END);
}

void recsn(void *uctx, int32_t msg, const char *text, int64_t num, const char *text2) noexcept {
  lpuctx *c = ctx_of(uctx);
  if (c == nullptr) return;
  if (text2 != nullptr)
    lemrec(c->lemctx, c->fac, msg, 1, LEM_ARG_TEXT, text, LEM_ARG_NUM, num, LEM_ARG_TEXT, text2, LEM_ARG_END);
  else
    lemrec(c->lemctx, c->fac, msg, 1, LEM_ARG_TEXT, text, LEM_ARG_NUM, num, LEM_ARG_END);
}

}  // namespace lpu_internal

using namespace lpu_internal;

extern "C" {

KELAPI void *lpuini(lcorectx *ctx) {
  if (ctx == nullptr || ctx->lemctx == nullptr) return nullptr;
  auto *c = static_cast<lpuctx *>(ss_mem_calc(sizeof(lpuctx)));
  if (c == nullptr) return nullptr;
  c->fac = lemfaa(ctx->lemctx, nullptr, "KELCORE", "LPU", kelmsg::LPU_INTERNAL, kelmsg::LPU_FAIL);
  if (c->fac == nullptr) {
    ss_mem_fre(c);
    return nullptr;
  }
  c->core = ctx;
  c->lemctx = ctx->lemctx;
  c->magic = kMagic;
  return c;
}

KELAPI int32_t lputrm(void *uctx) {
  lpuctx *c = ctx_of(uctx);
  if (c == nullptr) return -1;
  int32_t rc = lemfaf(c->lemctx, c->fac);
  c->magic = 0;
  ss_mem_fre(c);
  return rc;
}

}  // extern "C"
