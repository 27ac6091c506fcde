// lfi_impl.h - the file context shared by the file family's sources.
#ifndef KEL_FILE_LFI_IMPL_H
#define KEL_FILE_LFI_IMPL_H

#include <cstdint>

#include "error/lwem_impl.h"
#include "lfi.h"
#include "lmm.h"

namespace lfi_internal {

// The library's context (kind 1) and a package instance's (kind 2, a copy
// of the library's with `component` set to the instance's context record).
struct lfictx {
  uint32_t magic;
  uint32_t kind;    // 1 library, 2 instance
  lfictx *root;
  lemfac *fac;      // "LFI"
  void *component;  // instance: its context record
  lcorectx *core;   // the record whose memory and message contexts serve callers
  slcs lock;        // guards `files`
  lfifile *files;   // open files, closed with the context at the latest
};

// Open files are linked into their context so that a context that ends
// (library stop, package instance end) closes what its users left open.
void track(lfictx *c, lfifile *f) noexcept;
void untrack(lfictx *c, lfifile *f) noexcept;
// Closes every file still open in `c` (written out as far as possible, no
// records: nobody is left to read them). Returns how many were closed.
int32_t close_all(lfictx *c) noexcept;

constexpr uint32_t kMagic = 0x4C464943;  // "LFIC"

lfictx *ctx_of(void *p) noexcept;

// The memory and message contexts a file context works with.
void *mctx_of(const lfictx *c) noexcept;
lwectx *lwe_of(const lfictx *c) noexcept;

// Records message `msg` of "LFI" for an operation on `name`, carrying the
// system error `syserr` (0: none) and its text, and marks it as the start
// of the operation's failure.
void rec(const lfictx *c, int32_t msg, const char *name, int32_t syserr) noexcept;
// As rec, choosing the message from the system error's class: one of the
// specific messages, else `general`.
void rec_sys(const lfictx *c, int32_t general, const char *name, int32_t syserr) noexcept;

}  // namespace lfi_internal

#endif
