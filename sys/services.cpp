// Thread-services contexts: the mutexes and thread identifiers through which
// the portable families lock and tell threads apart (sl.h).
//
// Mutexes are critical sections; identifiers are the process-unique numbers
// of slthrself.
#include <cstdlib>

#include "lfi.h"
#include "sl.h"
#include "sys/error_impl.h"
#include "sys/fault_impl.h"

using sl_internal::fail;

// The context holds nothing yet but exists so that a port whose mutexes need
// a per-owner table (or a debugging registry) has somewhere to keep it.
struct sltsctx {
  uint32_t magic;
};

namespace {

constexpr uint32_t kTsMagic = 0x6B747363;  // "ktsc"

bool bad_ts(const sltsctx *ts) noexcept { return ts == nullptr || ts->magic != kTsMagic; }

}  // namespace

extern "C" {

KELAPI sltsctx *sltsini(void) {
  auto *ts = static_cast<sltsctx *>(ss_mem_alc(sizeof(sltsctx)));
  if (ts != nullptr) ts->magic = kTsMagic;
  return ts;
}

KELAPI int32_t sltster(sltsctx *ts) {
  if (bad_ts(ts)) return fail(SLF_E_BADARG);
  ts->magic = 0;
  ss_mem_fre(ts);
  return 0;
}

KELAPI int32_t sltsmxi(sltsctx *ts, sltsmx *mx) {
  if (bad_ts(ts) || mx == nullptr) return fail(SLF_E_BADARG);
  return slcsinit(&mx->cs);
}

KELAPI int32_t sltsmxd(sltsctx *ts, sltsmx *mx) {
  if (bad_ts(ts) || mx == nullptr) return fail(SLF_E_BADARG);
  return slcsdelete(&mx->cs);
}

KELAPI int32_t sltsmna(sltsctx *ts, sltsmx *mx) {
  if (mx == nullptr) return fail(SLF_E_BADARG);
  slcsenter(&mx->cs);
  return 0;
}

KELAPI int32_t sltsmnr(sltsctx *ts, sltsmx *mx) {
  if (mx == nullptr) return fail(SLF_E_BADARG);
  slcsleave(&mx->cs);
  return 0;
}

KELAPI int32_t sltsmnt(sltsctx *ts, sltsmx *mx) {
  if (mx == nullptr) return 0;
  return slcstry(&mx->cs);
}

KELAPI int32_t sltstidinit(sltsctx *ts, sltstid *tid) {
  if (tid == nullptr) return fail(SLF_E_BADARG);
  if (SL_FAULT(SL_FAULT_TID)) return -1;
  tid->id = 0;
  return 0;
}

KELAPI int32_t sltstgi(sltsctx *ts, sltstid *tid) {
  if (tid == nullptr) return fail(SLF_E_BADARG);
  tid->id = slthrself();
  return 0;
}

KELAPI int32_t sltstiddestroy(sltsctx *ts, sltstid *tid) {
  if (tid == nullptr) return fail(SLF_E_BADARG);
  if (SL_FAULT(SL_FAULT_TID)) return -1;
  tid->id = 0;
  return 0;
}

KELAPI int32_t sltstidcmp(sltsctx *ts, const sltstid *a, const sltstid *b) {
  if (a == nullptr || b == nullptr) return 0;
  return a->id == b->id ? 1 : 0;
}

KELAPI int32_t sltstidcpy(sltsctx *ts, sltstid *dst, const sltstid *src) {
  if (dst == nullptr || src == nullptr) return fail(SLF_E_BADARG);
  dst->id = src->id;
  return 0;
}

KELAPI int32_t sltstidnull(sltsctx *ts, const sltstid *tid) { return tid == nullptr || tid->id == 0 ? 1 : 0; }

}  // extern "C"
