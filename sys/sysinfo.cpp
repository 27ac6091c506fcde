// The process and the system it runs on (slsi* of slt.h, slzexit of sl.h),
// over the platform's table (system_impl.h).
#include <cstdlib>
#include <cstring>

#include "lfi.h"
#include "slt.h"
#include "sys/error_impl.h"
#include "sys/memory_impl.h"
#include "sys/system_impl.h"

using sl_internal::fail;
using sl_internal::system_os;

namespace {

// Asks `get` for a text into a scratch buffer and copies it out whole, or
// fails when it does not fit the caller's buffer.
int32_t text_of(int32_t (*get)(char *, size_t), char *buf, size_t len) noexcept {
  char work[1024];
  if (get(work, sizeof work) != 0) return -1;
  work[sizeof work - 1] = '\0';
  size_t n = strlen(work);
  if (buf == nullptr || n + 1 > len || n > 0x7FFFFFFF) return fail(SLF_E_BADARG);
  memcpy(buf, work, n + 1);
  return static_cast<int32_t>(n);
}

}  // namespace

extern "C" {

KELAPI int64_t slsipid(void) { return system_os().pid(); }

KELAPI int32_t slsihost(char *buf, size_t len) { return text_of(system_os().host, buf, len); }

KELAPI int32_t slsiuser(char *buf, size_t len) { return text_of(system_os().user, buf, len); }

KELAPI int32_t slsincpu(void) {
  int32_t n = system_os().ncpu();
  return n < 1 ? 1 : n;
}

KELAPI size_t slsipage(void) { return slmmvallocsz(); }

KELAPI uint64_t slsimem(void) { return system_os().memory(); }

KELAPI void slzexit(int32_t status) {
  system_os().exit(status);
  abort();  // an exit that returned would break the promise of the name
}

}  // extern "C"
