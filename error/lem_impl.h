// lem_impl.h - internals of the error manager shared by its files.
#ifndef KEL_ERROR_LEM_IMPL_H
#define KEL_ERROR_LEM_IMPL_H

#include "error/lwem_impl.h"
#include "lx.h"

// An open message catalogue of one product and facility.
struct lemcat {
  lemcat *next;
  char product[16];
  char facility[16];
  lmshdl *h;
};

// The frame context of one thread.
struct lemtfc {
  lemtfc *next;
  uint64_t tid;
  lemfctx fc;
};

// State of the error manager of one started library.
struct lemshared {
  lwectx *lwe;
  sltsctx *ts;
  sltsmx mx;                    // guards cats and frames
  std::atomic<uint64_t> owner;  // re-entrant owner of mx
  lemfac *fac;                  // "LEM"
  lcorectx *core;
  int32_t recording;            // 0: recorders do nothing
  lxctx nls;
  lemcat *cats;
  lemtfc *frames;
  bool ownlwe;     // lwe was made for this state (leminit without one)
  bool lsfloaded;  // the formatter package was loaded on this state's behalf
};

// The handle stored in a context record (field lemctx).
struct lemctx {
  uint32_t magic;
  uint32_t flags;  // LEMCTX_CALLER: the handle lives in caller storage
  lemshared *sh;
};
constexpr uint32_t LEMCTX_CALLER = 1;
static_assert(sizeof(lemctx) <= lemctxsz, "the handle must fit the caller's lemctxsz bytes");

namespace lem_internal {
lemshared *shared_of(void *ctx) noexcept;
void own(lemshared *sh, int32_t msg, const char *a, const char *b) noexcept;
int32_t message_text(lemshared *sh, const char *prod, const char *fac, int32_t msg, char *buf, size_t len);
}  // namespace lem_internal

#endif
