// Start and stop of the file interface and its package sub-context.
//
// The file context of the library holds the facility "LFI"; a package
// instance gets a context of its own that points at the library's. Each
// context keeps the files opened through it and closes those still open
// when it ends, so a package that forgets a file leaks no handle.
#include "file/lfi_impl.h"
#include "kelmsg_kelcore_lfi.h"
#include "sl.h"

namespace lfi_internal {

lfictx *ctx_of(void *p) noexcept {
  auto *c = static_cast<lfictx *>(p);
  return (c != nullptr && c->magic == kMagic) ? c : nullptr;
}

void *mctx_of(const lfictx *c) noexcept { return c->core == nullptr ? nullptr : c->core->lmmctx; }

lwectx *lwe_of(const lfictx *c) noexcept {
  return c->core == nullptr ? nullptr : static_cast<lwectx *>(c->core->lwemctx);
}

namespace {
void rec_args(const lfictx *c, int32_t msg, int32_t syserr, ...) noexcept {
  lwectx *lwe = lwe_of(c);
  if (lwe == nullptr || c->fac == nullptr) return;
  va_list ap;
  va_start(ap, syserr);
  int32_t rc = lwemrev(lwe, c->fac, msg, 0, 1, LEM_TYPE_MSG, syserr, ap);
  va_end(ap);
  if (rc == 0) lwemmrk(lwe);
}
}  // namespace

void rec(const lfictx *c, int32_t msg, const char *name, int32_t syserr) noexcept {
  char text[256] = "";
  if (syserr != 0) slcgems(syserr, text, sizeof text);
  rec_args(c, msg, syserr, LEM_ARG_TEXT, name == nullptr ? "" : name, LEM_ARG_TEXT, text, LEM_ARG_END);
}

void rec_sys(const lfictx *c, int32_t general, const char *name, int32_t syserr) noexcept {
  int32_t msg = general;
  switch (slfclass(syserr)) {
    case SLF_E_NOTFOUND: msg = kelmsg::LFI_NOTFOUND; break;
    case SLF_E_EXISTS: msg = kelmsg::LFI_EXISTS; break;
    case SLF_E_DENIED: msg = kelmsg::LFI_DENIED; break;
    case SLF_E_ISDIR: msg = kelmsg::LFI_ISDIR; break;
    case SLF_E_NOTDIR: msg = kelmsg::LFI_NOTDIR; break;
    case SLF_E_NOSPACE: msg = kelmsg::LFI_NOSPACE; break;
    case SLF_E_NOTEMPTY: msg = kelmsg::LFI_NOTEMPTY; break;
    default: break;
  }
  rec(c, msg, name, syserr);
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
    if (slcsinit(&c->lock) != 0) {
      lwemfaf(lwe, c->fac);
      ss_mem_fre(c);
      return -1;
    }
    c->magic = kMagic;
    c->kind = 1;
    c->root = c;
    c->core = ctx;
    ctx->lfictx = c;
    return 0;
  }
  if (mode != 1) return -1;
  lfictx *c = ctx_of(ctx->lfictx);
  if (c == nullptr || c->kind != 1) return -1;
  close_all(c);
  int32_t rc = lwemfaf(lwe, c->fac);
  if (slcsdelete(&c->lock) != 0) rc = -1;
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
  if (slcsinit(&sub->lock) != 0) {
    ss_mem_fre(sub);
    return -1;
  }
  sub->magic = kMagic;
  sub->root = c->root;
  sub->fac = c->root->fac;
  sub->core = c->root->core;
  sub->kind = 2;
  sub->component = component;
  // A package instance's files and records belong to the instance.
  if (component != nullptr) sub->core = static_cast<lcorectx *>(component);
  *out = sub;
  return 0;
}

KELAPI int32_t lficit(lcorectx *ctx, void *subctx, void *component) {
  lfictx *sub = ctx_of(subctx);
  if (sub == nullptr || sub->kind != 2) return -1;
  close_all(sub);
  int32_t rc = slcsdelete(&sub->lock) == 0 ? 0 : -1;
  sub->magic = 0;
  ss_mem_fre(sub);
  return rc;
}

}  // extern "C"
