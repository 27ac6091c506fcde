// Beginning a date context: callback, NLS handle, territory view and the
// compiled default format model.
#include <cstring>

#include "datetime/calendar/ldx_impl.h"

using namespace ldx_internal;

namespace {

void reset(ldxctx *ctx, void *nlshd, void *nlsgbl, ldxerrcb cb, void *cbarg) {
  std::memset(ctx, 0, sizeof *ctx);
  ctx->nlshd = nlshd;
  ctx->nlsgbl = nlsgbl;
  ctx->errcb = cb;
  ctx->cbarg = cbarg;
}

// Installs the territory view of the handle; 600 when there is none.
int32_t attach_view(ldxctx *ctx) {
  const ldx_territory_view *v = view_for_handle(ctx->nlshd);
  if (!v) return E_NOFMT;
  ctx->terr = v;
  ctx->nongreg = v->gregorian ? 0 : 1;
  return 0;
}

int32_t compile_default(ldxctx *ctx, const char *fmt, size_t len) {
  if (!fmt || len == 0) return raise(ctx, E_NOFMT);
  int32_t err = 0;
  std::memset(ctx->deffmt, 0, sizeof ctx->deffmt);
  compile(ctx, fmt, len, reinterpret_cast<uint8_t *>(ctx->deffmt), sizeof ctx->deffmt, true, &err);
  return raise(ctx, err);
}

int32_t territory_default(ldxctx *ctx) {
  const char *f = view(ctx).deffmt;
  size_t n = f ? std::strlen(f) : 0;
  if (n > 60) n = 60;
  return compile_default(ctx, f, n);
}

}  // namespace

extern "C" {

KELAPI int32_t ldxbegin(ldxctx *ctx, void *nlshd, ldxerrcb cb, void *cbarg) {
  reset(ctx, nlshd, nullptr, cb, cbarg);
  if (int32_t e = attach_view(ctx)) return raise(ctx, e);
  return territory_default(ctx);
}

KELAPI int32_t ldxcbeg(ldxctx *ctx, void *nlshd, void *nlsgbl, ldxerrcb cb, void *cbarg,
                       const uint64_t deffmt[6]) {
  reset(ctx, nlshd, nlsgbl, cb, cbarg);
  if (int32_t e = attach_view(ctx)) return raise(ctx, e);
  const ldx_territory_view &v = view(ctx);
  if (!deffmt || (v.changed && v.changed(nlshd))) return territory_default(ctx);
  std::memcpy(ctx->deffmt, deffmt, sizeof ctx->deffmt);
  return 0;
}

KELAPI int32_t ldxnbeg(ldxctx *ctx, void *nlshd, ldxerrcb cb, void *cbarg, const char *fmt,
                       size_t len) {
  reset(ctx, nlshd, nullptr, cb, cbarg);
  if (int32_t e = attach_view(ctx)) return raise(ctx, e);
  return compile_default(ctx, fmt, len);
}

KELAPI int32_t ldxbeginu(ldxctx *ctx, void *nlshd, ldxerrcb cb, void *cbarg) {
  return ldxbegin(ctx, nlshd, cb, cbarg);
}

KELAPI int32_t ldxcbegu(ldxctx *ctx, void *nlshd, void *nlsgbl, ldxerrcb cb, void *cbarg,
                        const uint64_t deffmt[6]) {
  return ldxcbeg(ctx, nlshd, nlsgbl, cb, cbarg, deffmt);
}

KELAPI int32_t ldxnbegu(ldxctx *ctx, void *nlshd, ldxerrcb cb, void *cbarg, const uint16_t *fmt,
                        size_t nchars) {
  reset(ctx, nlshd, nullptr, cb, cbarg);
  if (int32_t e = attach_view(ctx)) return raise(ctx, e);
  if (!fmt || nchars == 0) return raise(ctx, E_NOFMT);
  std::memset(ctx->deffmt, 0, sizeof ctx->deffmt);
  size_t n = ldxstiu(ctx, fmt, nchars, reinterpret_cast<uint8_t *>(ctx->deffmt), sizeof ctx->deffmt);
  return n ? 0 : -1;
}

}  // extern "C"
