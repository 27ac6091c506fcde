// Start and stop of the library: the context record, the family table and
// the process slot.
//
// The start makes the record in one system allocation, the low-level message
// context, and then starts the core families in table order; the stop runs
// the at-term callbacks, finishes the caller's instance and stops the
// families in reverse order. Neither is thread-safe: the process slot is a
// plain global, and a second start returns the record of the first.
//
// A family that fails to start leaves the families before it running. This
// is deliberate: their state is reachable from nothing, but the stop of a
// half-started library could not be told apart from a real stop.
#include <cstring>

#include "context/lpm_impl.h"
#include "lem.h"
#include "lfi.h"
#include "lmm.h"
#include "lx.h"

using namespace lpm_internal;

namespace {

using rist_fn = int32_t (*)(lcorectx *, void *, int32_t);

// The core families in start order; stopped in reverse.
constexpr rist_fn kFamilies[] = {lmmrist, lpmrist, lfirist, lemrist, nullptr};
constexpr int kFamilyCount = 4;

// The family list of a start (lpmpgif): the handle, the count and the
// functions.
struct famlist {
  void *handle;
  int32_t count;
  rist_fn fns[kFamilyCount];
};

famlist lpmpgif(void *handle) noexcept {
  famlist l{handle, 0, {}};
  for (const rist_fn *f = kFamilies; *f != nullptr; f++) l.fns[l.count++] = *f;
  return l;
}

constexpr uint32_t kLmlMagic = 0x4C4D4C48;  // "LMLH"

}  // namespace

namespace lpm_internal {

void *lmlinit(void *, void *, void *) noexcept {
  auto *h = static_cast<uint32_t *>(ss_mem_calc(16));
  if (h != nullptr) *h = kLmlMagic;
  return h;
}

int32_t lmlterm(void *h) noexcept {
  if (h == nullptr || *static_cast<uint32_t *>(h) != kLmlMagic) return -1;
  *static_cast<uint32_t *>(h) = 0;
  ss_mem_fre(h);
  return 0;
}

}  // namespace lpm_internal

extern "C" {

}  // extern "C"

namespace {

// The start record lives in caller storage (lpmpmai): never freed here.
constexpr uint8_t kCallerRecord = 1;

void free_record(lcorectx *rec) {
  if (rec->flagspare[0] != kCallerRecord) slslfree(rec);
}

// Both starts: storage null makes the record with the system allocator.
lcorectx *start(void *storage, size_t size, void *lml, size_t memopt, void *lang, void *nlsglobal,
                int32_t localnls) {
  if (lcorectx *slot = slslgetmeta()) {
    lpmreg *reg = reg_of(slot);
    return reg != nullptr && reg->root != nullptr ? reg->root->rec : slot;
  }
  bool own = lml == nullptr;
  if (own && (lml = lmlinit(nullptr, nullptr, nullptr)) == nullptr) return nullptr;
  lcorectx *rec = nullptr;
  void *handle = nullptr;
  if (lxzinit() != 0 || (storage ? slslmeta_in(storage, size, &rec, &handle)
                                   : slslameta(sizeof(lcorectx), &rec, &handle)) != 0) {
    if (own) lmlterm(lml);
    return nullptr;
  }
  rec->flagspare[0] = storage ? kCallerRecord : 0;
  rec->langenv = lang;
  rec->nlsglobal = nlsglobal;
  rec->localnls = static_cast<uint8_t>(localnls != 0);
  rec->lmlh = lml;
  rec->ownslml = own ? 1 : 0;
  rec->version = LCORECTX_VERSION;
  rec->initialised = 0;

  auto fail = [&]() -> lcorectx * {
    if (rec->lwemctx) lwemdst(static_cast<lwectx *>(rec->lwemctx));
    free_record(rec);
    if (own) lmlterm(lml);
    return nullptr;
  };
  rec->lwemctx = lwemist("AMERICAN_AMERICA.US7ASCII", nlsglobal, localnls);
  if (rec->lwemctx == nullptr) return fail();
  famlist fams = lpmpgif(handle);
  if (slslini(rec, handle) != 0) return fail();
  for (int32_t i = 0; i < fams.count; i++)
    if (fams.fns[i](rec, fams.handle, 0) != 0) return fail();

  lpmstoremeta(rec);
  lpmreg *reg = reg_of(rec);
  uint8_t flag = 0;
  lpminst *root = nullptr;
  if (lpmpali(rec, reg, &root, false, nullptr, 0, &flag, false, memopt, false) != 0) {
    lpmterm(rec);
    return nullptr;
  }
  reg->root = root;
  rec->initialised = 1;
  root->rec->initialised = 1;
  return root->rec;
}

}  // namespace

extern "C" {

KELAPI lcorectx *lpminitm(void *lml, size_t memopt, void *lang, void *nlsglobal, int32_t localnls) {
  return start(nullptr, 0, lml, memopt, lang, nlsglobal, localnls);
}

KELAPI lcorectx *lpmpmai(void *storage, size_t size, void *lml, size_t memopt, void *lang, void *nlsglobal,
                         int32_t localnls) {
  if (slslgetmeta() == nullptr && (storage == nullptr || size < LPM_MAIN_CTXSZ)) return nullptr;
  return start(storage, size, lml, memopt, lang, nlsglobal, localnls);
}

KELAPI lcorectx *lpminit(void) { return lpminitm(nullptr, 0, nullptr, nullptr, 0); }

KELAPI lcorectx *lpmprinit(void) { return lpminitm(nullptr, 0, nullptr, nullptr, 1); }

KELAPI int32_t lpmstoremeta(lcorectx *ctx) {
  slpmstor(ctx);
  return 0;
}

KELAPI int32_t lpmterm(lcorectx *) {
  lcorectx *rec = slslgetmeta();
  if (rec == nullptr) return 0;
  lpmreg *reg = reg_of(rec);
  if (reg != nullptr) {
    for (int i = reg->atcount; i-- > 0;) reg->atfn[i](reg->atarg[i]);
    reg->atcount = 0;
  }
  rec->initialised = 0;
  if (reg != nullptr && reg->root != nullptr) {
    reg->root->rec->initialised = 0;
    uint8_t flag = 0;
    lpmpfin(rec, reg, reg->root, &flag, false);
    reg->root = nullptr;
  }
  slpmstor(nullptr);
  auto *handle = static_cast<void *>(reinterpret_cast<char *>(rec->slblock) + sizeof(slslops));
  for (int i = kFamilyCount; i-- > 0;)
    if (kFamilies[i](rec, handle, 1) != 0) return -1;
  if (rec->ownslml) {
    lmlterm(rec->lmlh);
    rec->lmlh = nullptr;
    rec->ownslml = 0;
  }
  lwemdst(static_cast<lwectx *>(rec->lwemctx));
  free_record(rec);
  return 0;
}

KELAPI int32_t lpmdone(lcorectx *ctx) { return lpmterm(ctx); }

}  // extern "C"
