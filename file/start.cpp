// Start and stop of the file interface and its package sub-context.
//
// The file context of the library holds the facility "LFI"; a package
// instance gets a context of its own that points at the library's, so that
// files it opens can later be tracked and closed with the instance.
#include "error/lwem_impl.h"
#include "kelmsg_kelcore_lfi.h"
#include "lfi.h"
#include "sl.h"

namespace lfi_internal {

struct lfictx {
  uint32_t magic;
  uint32_t kind;    // 1 library, 2 instance
  lfictx *root;
  lemfac *fac;      // "LFI"
  void *component;  // instance: its context record
};

constexpr uint32_t kMagic = 0x4C464943;  // "LFIC"

lfictx *ctx_of(void *p) noexcept {
  auto *c = static_cast<lfictx *>(p);
  return (c != nullptr && c->magic == kMagic) ? c : nullptr;
}

}  // namespace lfi_internal

using namespace lfi_internal;

extern "C" {

KELAPI int32_t lfirist(lcorectx *ctx, void *handle, int32_t mode) {
  if (ctx == nullptr) return -1;
  auto *lwe = static_cast<lwectx *>(ctx->lwemctx);
  if (mode == 0) {
    auto *c = static_cast<lfictx *>(ss_mem_calc(sizeof(lfictx)));
    if (c == nullptr) return -1;
    c->fac = lwemfaa(lwe, nullptr, "KELCORE", "LFI", kelmsg::LFI_INTERNAL, kelmsg::LFI_FAIL);
    if (c->fac == nullptr) {
      ss_mem_fre(c);
      return -1;
    }
    c->magic = kMagic;
    c->kind = 1;
    c->root = c;
    ctx->lfictx = c;
    return 0;
  }
  if (mode != 1) return -1;
  lfictx *c = ctx_of(ctx->lfictx);
  if (c == nullptr || c->kind != 1) return -1;
  int32_t rc = lwemfaf(lwe, c->fac);
  c->magic = 0;
  ss_mem_fre(c);
  ctx->lfictx = nullptr;
  return rc;
}

KELAPI int32_t lficis(lcorectx *ctx, void **out, void *component) {
  lfictx *c = ctx == nullptr ? nullptr : ctx_of(ctx->lfictx);
  if (c == nullptr || out == nullptr) return -1;
  auto *sub = static_cast<lfictx *>(ss_mem_calc(sizeof(lfictx)));
  if (sub == nullptr) return -1;
  *sub = *c->root;
  sub->kind = 2;
  sub->component = component;
  *out = sub;
  return 0;
}

KELAPI int32_t lficit(lcorectx *ctx, void *subctx, void *component) {
  lfictx *sub = ctx_of(subctx);
  if (sub == nullptr || sub->kind != 2) return -1;
  sub->magic = 0;
  ss_mem_fre(sub);
  return 0;
}

}  // extern "C"
