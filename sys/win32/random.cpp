// Strong random bytes on Windows (random_impl.h): the system's preferred
// generator through BCryptGenRandom.
#include <windows.h>
#include <bcrypt.h>

#include "sys/random_impl.h"

namespace {

int64_t r_fill(void *buf, size_t n) {
  // One call takes at most a ULONG of bytes; the caller loops for the rest.
  ULONG chunk = n > 0x40000000u ? 0x40000000u : static_cast<ULONG>(n);
  NTSTATUS st = BCryptGenRandom(nullptr, static_cast<PUCHAR>(buf), chunk, BCRYPT_USE_SYSTEM_PREFERRED_RNG);
  if (st != 0) {
    // The generator fails only for want of memory or a bad argument.
    SetLastError(st == static_cast<NTSTATUS>(0xC0000017L) ? ERROR_NOT_ENOUGH_MEMORY : ERROR_INVALID_PARAMETER);
    return -1;
  }
  return chunk;
}

}  // namespace

namespace sl_internal {

const RandomOps kRandomOs = {
    .fill = r_fill,
};

}  // namespace sl_internal
