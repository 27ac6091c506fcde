// Reporting errors through the date context: the one place that calls the
// context's callback.
#include "datetime/calendar/ldx_impl.h"

namespace ldx_internal {

int32_t raise(ldxctx *ctx, int32_t err) {
  if (err == 0) return 0;
  ldxerr(ctx, err);
  return -1;
}

}  // namespace ldx_internal

using namespace ldx_internal;

extern "C" {

KELAPI void ldxerr(ldxctx *ctx, int32_t err) {
  if (!ctx) return;
  if (ctx->ownhd && ctx->savedhd) {
    void *hd = ctx->savedhd;
    ctx->ownhd = 0;
    ctx->savedhd = nullptr;
    const ldx_territory_view &v = view(ctx);
    if (v.release) v.release(hd);
  }
  if (ctx->errcb) ctx->errcb(ctx, err);
}

}  // extern "C"
