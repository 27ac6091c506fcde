// The error manager: its context, start and stop, facilities, recorders,
// readers and message formatting.
//
// Design: the lem context is a small handle {magic, shared state}. The shared
// state belongs to the started library and points at the low-level message
// context that holds every stack; a package instance's error sub-context is
// another handle on the same state, so a package's records land on the
// calling thread's one stack. The shared state also keeps the facility
// "LEM", the open message catalogues (one per product and facility, opened on
// first use) and the per-thread frame contexts.
//
// Sections: context and start/stop; facilities; recording; reading and
// marks; message formatting.
#include <cstddef>
#include <cstring>
#include <new>

#include "kelmsg_kelcore_lem.h"
#include "error/lem_impl.h"
#include "lpm.h"
#include "lsf.h"
#include "lx.h"

using namespace lwem_internal;

// Records hand their argument rows to the formatter as they are.
static_assert(sizeof(lwearg) == sizeof(lsfarg) && offsetof(lwearg, v) == offsetof(lsfarg, v) &&
              offsetof(lwearg, type) == offsetof(lsfarg, type));

namespace lem_internal {

namespace {
constexpr uint32_t kLemMagic = 0x4C454D43;  // "LEMC"
}

lemshared *shared_of(void *ctx) noexcept {
  auto *h = static_cast<lemctx *>(ctx);
  if (h == nullptr || h->magic != kLemMagic) return nullptr;
  return h->sh;
}

lemctx *make_handle(lemshared *sh) noexcept {
  auto *h = static_cast<lemctx *>(ss_mem_calc(sizeof(lemctx)));
  if (h == nullptr) return nullptr;
  h->magic = kLemMagic;
  h->sh = sh;
  return h;
}

void free_handle(lemctx *h) noexcept {
  if (h == nullptr) return;
  h->magic = 0;
  ss_mem_fre(h);
}

// Records one of the manager's own misuse messages (facility "LEM").
void own(lemshared *sh, int32_t msg, const char *a, const char *b) noexcept {
  if (sh == nullptr || !sh->recording) return;
  lwemrec(sh->lwe, sh->fac, msg, 1, 1, LEM_ARG_TEXT, a, LEM_ARG_TEXT, b, LEM_ARG_END);
}

}  // namespace lem_internal

using namespace lem_internal;

extern "C" {

// ---------------------------------------------------- context, start/stop

}  // extern "C"

namespace {

// The internal start: shared state over lwe (null: made here and owned),
// its handle in `storage` (null: allocated). Null on failure, with nothing
// left behind.
lemctx *lempint(lcorectx *ctx, void *storage, lwectx *lwe) {
  bool ownlwe = lwe == nullptr;
  if (ownlwe && (lwe = lwemist("AMERICAN_AMERICA.US7ASCII", ctx->nlsglobal, ctx->localnls)) == nullptr)
    return nullptr;
  auto *sh = static_cast<lemshared *>(ss_mem_calc(sizeof(lemshared)));
  if (sh == nullptr) {
    if (ownlwe) lwemdst(lwe);
    return nullptr;
  }
  new (&sh->owner) std::atomic<uint64_t>(0);
  sh->lwe = lwe;
  sh->ownlwe = ownlwe;
  sh->ts = lwemts(lwe);
  sh->core = ctx;
  sh->recording = 1;
  if (sltsmxi(sh->ts, &sh->mx) != 0) {
    ss_mem_fre(sh);
    if (ownlwe) lwemdst(lwe);
    return nullptr;
  }
  sh->fac = lwemfaa(lwe, nullptr, "KELCORE", "LEM", kelmsg::LEM_RETHROW, kelmsg::LEM_FAIL);
  lemctx *h = nullptr;
  if (sh->fac != nullptr) {
    if (storage != nullptr) {
      h = static_cast<lemctx *>(storage);
      std::memset(h, 0, lemctxsz);
      h->magic = kLemMagic;
      h->flags = LEMCTX_CALLER;
      h->sh = sh;
    } else {
      h = make_handle(sh);
    }
  }
  if (h == nullptr) {
    if (sh->fac) lwemfaf(lwe, sh->fac);
    sltsmxd(sh->ts, &sh->mx);
    ss_mem_fre(sh);
    if (ownlwe) lwemdst(lwe);
    return nullptr;
  }
  lxinitc(&sh->nls, static_cast<lxglo *>(ctx->nlsglobal), static_cast<const lxenv *>(ctx->langenv));
  return h;
}

// The stop of a state and its handle. Every step runs even after one
// failed; -1 when any did.
int32_t stop(lemctx *h) {
  lemshared *sh = h->sh;
  int32_t rc = 0;
  // The formatter keeps no state per error context: lsfpd works on the
  // caller's buffers only, so there is nothing of it to clean here.
  for (lemcat *c = sh->cats; c != nullptr;) {
    lemcat *next = c->next;
    if (c->h != nullptr && lmsatrm(c->h) != 0) rc = -1;
    ss_mem_fre(c);
    c = next;
  }
  sh->cats = nullptr;
  for (lemtfc *t = sh->frames; t != nullptr;) {
    lemtfc *next = t->next;
    ss_mem_fre(t);
    t = next;
  }
  if (sh->lsfloaded && sh->core != nullptr && lpmdelete(sh->core, "lsf") != 0) rc = -1;
  if (lwemfaf(sh->lwe, sh->fac) != 0) rc = -1;
  if (sltsmxd(sh->ts, &sh->mx) != 0) rc = -1;
  if (sh->ownlwe && lwemdst(sh->lwe) != 0) rc = -1;
  ss_mem_fre(sh);
  if (h->flags & LEMCTX_CALLER) {
    h->magic = 0;
    h->sh = nullptr;
  } else {
    free_handle(h);
  }
  return rc;
}

}  // namespace

extern "C" {

KELAPI int32_t lemrist(lcorectx *ctx, void *handle, int32_t mode) {
  if (ctx == nullptr) return -1;
  if (mode == 0) {
    auto *lwe = static_cast<lwectx *>(ctx->lwemctx);
    if (lwe == nullptr) return -1;
    lemctx *h = lempint(ctx, nullptr, lwe);
    if (h == nullptr) return -1;
    ctx->lemctx = h;
    return 0;
  }
  if (mode != 1) return -1;
  if (shared_of(ctx->lemctx) == nullptr) return -1;
  int32_t rc = stop(static_cast<lemctx *>(ctx->lemctx));
  ctx->lemctx = nullptr;
  return rc;
}

KELAPI void *leminit(lcorectx *ctx, void *storage, void *lwe) {
  if (ctx == nullptr || storage == nullptr) return nullptr;
  return lempint(ctx, storage, static_cast<lwectx *>(lwe));
}

KELAPI void *lemini(lcorectx *ctx, void *storage) { return leminit(ctx, storage, nullptr); }

KELAPI int32_t lemfre(void *lemh) {
  if (shared_of(lemh) == nullptr) return -1;
  return stop(static_cast<lemctx *>(lemh));
}

KELAPI int32_t lemcis(lcorectx *ctx, void **out, void *component) {
  if (ctx == nullptr || out == nullptr) return -1;
  lemshared *sh = shared_of(ctx->lemctx);
  if (sh == nullptr) return -1;
  lemctx *h = make_handle(sh);
  if (h == nullptr) return -1;
  *out = h;
  return 0;
}

KELAPI int32_t lemcit(lcorectx *ctx, void *sub, void *component) {
  if (shared_of(sub) == nullptr) return -1;
  free_handle(static_cast<lemctx *>(sub));
  return 0;
}

// ------------------------------------------------------------ facilities

KELAPI lemfac *lemfaa(void *ctx, void *word, const char *product, const char *facility, int32_t internal,
                      int32_t second) {
  lemshared *sh = shared_of(ctx);
  if (sh == nullptr) return nullptr;
  return lwemfaa(sh->lwe, word, product, facility, internal, second);
}

KELAPI int32_t lemfaf(void *ctx, lemfac *fac) {
  lemshared *sh = shared_of(ctx);
  if (sh == nullptr || fac == nullptr) return -1;
  return lwemfaf(sh->lwe, fac);
}

KELAPI void lemfasc(void *ctx, lemfac *fac, lemthrowfn fn) {
  if (shared_of(ctx) == nullptr || fac == nullptr) return;
  bool locked = relock(fac->lwe ? lwemts(fac->lwe) : nullptr, &fac->mx, fac->owner);
  fac->throwfn = fn;
  reunlock(lwemts(fac->lwe), &fac->mx, fac->owner, locked);
}

// ------------------------------------------------------------- recording

KELAPI void lemrev(void *ctx, lemfac *fac, int32_t msg, int32_t sev, va_list ap) {
  lemshared *sh = shared_of(ctx);
  if (sh == nullptr || fac == nullptr || !sh->recording) return;
  va_list cp;
  va_copy(cp, ap);
  lwemrev(sh->lwe, fac, msg, 0, sev, LEM_TYPE_MSG, 0, cp);
  va_end(cp);
}

KELAPI void lemrec(void *ctx, lemfac *fac, int32_t msg, int32_t sev, ...) {
  va_list ap;
  va_start(ap, sev);
  lemrev(ctx, fac, msg, sev, ap);
  va_end(ap);
}

KELAPI void lemriv(void *ctx, lemfac *fac, int32_t subcode, int32_t sev, va_list ap) {
  lemshared *sh = shared_of(ctx);
  if (sh == nullptr || fac == nullptr || !sh->recording) return;
  va_list cp;
  va_copy(cp, ap);
  lwemrev(sh->lwe, fac, lwemfint(fac), subcode, sev, LEM_TYPE_MSG, 0, cp);
  va_end(cp);
}

KELAPI void lemric(void *ctx, lemfac *fac, int32_t subcode, int32_t sev, ...) {
  va_list ap;
  va_start(ap, sev);
  lemriv(ctx, fac, subcode, sev, ap);
  va_end(ap);
}

KELAPI int32_t lemprc(void *ctx, lemfac *fac, int32_t msg, int32_t subcode, int32_t sev, uint8_t *flag, ...) {
  lemshared *sh = shared_of(ctx);
  if (sh == nullptr || fac == nullptr || !sh->recording) return subcode;
  va_list ap;
  va_start(ap, flag);
  int32_t rc = lwemrev(sh->lwe, fac, msg, subcode, sev, LEM_TYPE_MSG, 0, ap);
  va_end(ap);
  if (rc == 0 && flag != nullptr && *flag == 0) {
    lwemmrk(sh->lwe);
    *flag = 1;
  }
  return subcode;
}

KELAPI void lemrse(void *ctx, lemfac *fac, int32_t msg, int64_t syserr) {
  lemshared *sh = shared_of(ctx);
  if (sh == nullptr || fac == nullptr || !sh->recording) return;
  lwemrec_sys(sh->lwe, fac, msg, syserr);
}

// ---------------------------------------------------- reading and marks

KELAPI int32_t lemged(void *ctx) {
  lemshared *sh = shared_of(ctx);
  return sh == nullptr ? 0 : lwemged(sh->lwe);
}

KELAPI int64_t lemgdr(void *ctx) {
  lemshared *sh = shared_of(ctx);
  return sh == nullptr ? 0 : lwemgdr(sh->lwe);
}

}  // extern "C"

namespace {

// Reads one field of record i under the lock; `dflt` when there is none.
template <typename T, typename F>
T read_rec(void *ctx, int32_t i, T dflt, F f) {
  lemshared *sh = shared_of(ctx);
  if (sh == nullptr || i < 1) return dflt;
  LweLock lock(sh->lwe);
  lwerec *r = find(sh->lwe, i);
  return r == nullptr ? dflt : f(r);
}

// Writes v in decimal into out (24 bytes at least); returns the length.
// (std::to_chars would leak template symbols into the library's exports.)
size_t decimal(int64_t v, char *out) {
  char tmp[24];
  size_t n = 0;
  uint64_t u = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
  do {
    tmp[n++] = static_cast<char>('0' + u % 10);
    u /= 10;
  } while (u != 0);
  size_t k = 0;
  if (v < 0) out[k++] = '-';
  while (n > 0) out[k++] = tmp[--n];
  return k;
}

int32_t copy_name(const char *s, char *buf, size_t len) {
  if (s == nullptr || buf == nullptr || len < 1) return 0;
  size_t n = strlen(s);
  if (n > len - 1) n = len - 1;
  memcpy(buf, s, n);
  buf[n] = '\0';
  return static_cast<int32_t>(n);
}

}  // namespace

extern "C" {

KELAPI int32_t lemgec(void *ctx, int32_t i) {
  return read_rec<int32_t>(ctx, i, -1, [](lwerec *r) { return r->msg; });
}

KELAPI int32_t lemget(void *ctx, int32_t i) {
  return read_rec<int32_t>(ctx, i, LEM_TYPE_NONE, [](lwerec *r) { return r->type; });
}

KELAPI int32_t lemgef(void *ctx, int32_t i, char *buf, size_t len) {
  if (len < 1) return 0;
  return read_rec<int32_t>(ctx, i, 0, [&](lwerec *r) {
    return copy_name(r->facname, buf, len);
  });
}

KELAPI int32_t lemgpd(void *ctx, int32_t i, char *buf, size_t len) {
  if (len < 1) return 0;
  return read_rec<int32_t>(ctx, i, 0, [&](lwerec *r) {
    return copy_name(r->prodname, buf, len);
  });
}

KELAPI int32_t lemgep(void *ctx, int32_t i) {
  return read_rec<int32_t>(ctx, i, -1, [](lwerec *r) { return r->nargs; });
}

KELAPI int32_t lemgsv(void *ctx, int32_t i) {
  return read_rec<int32_t>(ctx, i, -1, [](lwerec *r) { return r->sev; });
}

KELAPI int32_t lemgsc(void *ctx, int32_t i) {
  return read_rec<int32_t>(ctx, i, -1, [](lwerec *r) { return r->sub; });
}

KELAPI int64_t lemgse(void *ctx, int32_t i) {
  return read_rec<int64_t>(ctx, i, 0, [](lwerec *r) { return r->syserr; });
}

KELAPI int32_t lemgnp(void *ctx, int32_t i, int32_t n, int64_t *num, const char **text) {
  return read_rec<int32_t>(ctx, i, 0, [&](lwerec *r) -> int32_t {
    if (n < 1 || n > r->nargs) return 0;
    const lwearg &a = r->args[n - 1];
    if (a.type == LEM_ARG_TEXT) {
      if (text) *text = a.v.s;
    } else if (num) {
      *num = a.v.i;
    }
    return a.type;
  });
}

KELAPI int64_t lemgia(void *ctx, int32_t i) {
  return read_rec<int64_t>(ctx, i, -1, [](lwerec *r) -> int64_t {
    return r->nargs > 0 && r->args[0].type == LEM_ARG_INT ? r->args[0].v.i : -1;
  });
}

KELAPI void lemmrk(void *ctx) {
  if (lemshared *sh = shared_of(ctx)) lwemmrk(sh->lwe);
}

KELAPI void lemcmk(void *ctx) {
  if (lemshared *sh = shared_of(ctx)) lwemcmk(sh->lwe);
}

KELAPI int32_t lwemimk(void *ctx, int32_t i) {
  lemshared *sh = shared_of(ctx);
  return sh == nullptr ? -1 : lwemimkc(sh->lwe, i);
}

KELAPI int32_t lwemnmk(void *ctx) {
  lemshared *sh = shared_of(ctx);
  return sh == nullptr ? 0 : lwemnmkc(sh->lwe);
}

KELAPI int32_t lemdec(void *ctx, int32_t i) {
  lemshared *sh = shared_of(ctx);
  return sh == nullptr ? -1 : lwemdel(sh->lwe, i);
}

KELAPI void lemces(void *ctx) {
  if (lemshared *sh = shared_of(ctx)) lwemclr(sh->lwe);
}

KELAPI void lemdtm(void *ctx) {
  if (lemshared *sh = shared_of(ctx)) lwemdtm(sh->lwe);
}

// ------------------------------------------------------ message formatting

KELAPI int32_t lemgem(void *ctx, int32_t i, char *buf, size_t len) {
  lemshared *sh = shared_of(ctx);
  if (sh == nullptr || i < 1) return 0;
  if (len < 1 || buf == nullptr) {
    own(sh, kelmsg::LEM_BADARG, "length", "lempgem");
    return 0;
  }
  buf[0] = '\0';
  LweLock lock(sh->lwe);
  lwerec *r = find(sh->lwe, i);
  if (r == nullptr) return 0;
  if (r->type == LEM_TYPE_OSERR) return static_cast<int32_t>(slcgems(static_cast<int32_t>(r->syserr), buf, len));
  if (r->type != LEM_TYPE_MSG) {
    own(sh, kelmsg::LEM_BADREC, "lempgem", "Unknown exception type");
    return 0;
  }
  char fac[11] = {0}, prod[11] = {0};
  strncpy(fac, r->facname, 10);
  strncpy(prod, r->prodname, 10);

  char text[768];
  int32_t tl = message_text(sh, prod, fac, r->msg, text, sizeof text);
  if (tl >= 0) {
    if (tl > 0 && static_cast<size_t>(tl) < sizeof text && text[tl - 1] == '\n') text[tl - 1] = '\0';
    auto *rows = reinterpret_cast<const lsfarg *>(r->args);
    int32_t n = lsfpd(nullptr, buf, len, text, rows);
    if (n >= 0) return n;
  }
  // No text (or one the formatter refused): name the message and list the
  // arguments so that nothing the family recorded is lost.
  char fb[768];
  size_t k = 0;
  auto add = [&](const char *s, size_t n) {
    if (k + n >= sizeof fb) n = sizeof fb - 1 - k;
    memcpy(fb + k, s, n);
    k += n;
  };
  auto add_num = [&](int64_t v) {  // at most 20 characters
    if (sizeof fb - 1 - k >= 20) k += decimal(v, fb + k);
  };
  add("Message ", 8);
  add_num(r->msg);
  add(" not found; product=", 20);
  add(prod, strlen(prod));
  add("; facility=", 11);
  add(fac, strlen(fac));
  add("; arguments:", 12);
  for (int32_t a = 0; a < r->nargs; a++) {
    add(" [", 2);
    if (r->args[a].type == LEM_ARG_TEXT) {
      // A bracket or percent sign in a text must not become a directive.
      for (const char *s = r->args[a].v.s; *s; s++) add(*s == '%' ? "%%" : s, *s == '%' ? 2 : 1);
    } else {
      add_num(r->args[a].v.i);
    }
    add("]", 1);
  }
  fb[k] = '\0';
  lsfarg end{};
  int32_t n = lsfpd(nullptr, buf, len, fb, &end);
  return n < 0 ? 0 : n;
}

}  // extern "C"

namespace lem_internal {

int32_t message_text(lemshared *sh, const char *prod, const char *fac, int32_t msg, char *buf, size_t len) {
  bool locked = relock(sh->ts, &sh->mx, sh->owner);
  lemcat *c = sh->cats;
  for (; c != nullptr; c = c->next)
    if (strcmp(c->product, prod) == 0 && strcmp(c->facility, fac) == 0) break;
  if (c == nullptr) {
    c = static_cast<lemcat *>(ss_mem_calc(sizeof(lemcat)));
    if (c != nullptr) {
      strncpy(c->product, prod, sizeof c->product - 1);
      strncpy(c->facility, fac, sizeof c->facility - 1);
      c->next = sh->cats;
      sh->cats = c;
    }
  }
  // A catalogue that could not be opened (none, or no memory then) is asked
  // for again next time rather than taken as missing for good.
  if (c != nullptr && c->h == nullptr) c->h = lmsaicmt(sh->nls.env, prod, fac);
  int32_t n = (c != nullptr && c->h != nullptr) ? lmsagbf(c->h, msg, buf, len) : -1;
  reunlock(sh->ts, &sh->mx, sh->owner, locked);
  return n;
}

}  // namespace lem_internal
