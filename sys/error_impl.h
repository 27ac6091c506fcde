// error_impl.h - system errors: the platform's part.
//
// The calling thread's last system error is kept where the platform keeps it
// (errno, GetLastError) and read through slerrno(), which reports the
// conditions the layer acts on as the library's own codes (SL_ERR_* of sl.h):
// an interrupted call, one that would block, a refused connection, a time
// limit. Every other number is the platform's: good for a message (slcgems)
// and for its class (slfclass), never compared with a platform constant
// outside the platform folder. Portable code that must fail with a reason of
// its own (a bad argument, a full disk) asks for the platform's number of
// that class.
//
// Implemented by sys/<platform>/error.cpp, which also defines slerrno and
// slseterrno; slcgems and slfclass are portable (sys/error.cpp).
#ifndef KEL_SYS_ERROR_IMPL_H
#define KEL_SYS_ERROR_IMPL_H

#include <cstddef>
#include <cstdint>

#include "sl.h"

namespace sl_internal {

// The platform's text for a platform error number into buf (NUL-terminated,
// truncated; len > 0); returns its length. Library codes never reach it.
size_t os_error_text(int32_t err, char *buf, size_t len) noexcept;

// The SLF_E_* class (lfi.h) of a platform error number.
int32_t os_error_class(int32_t err) noexcept;

// The platform's error number for an SLF_E_* class other than SLF_E_NONE
// and SLF_E_OTHER.
int32_t os_error_of(int32_t cls) noexcept;

// Records the platform's number of class `cls` as the thread's system error
// and returns -1, for "return fail(SLF_E_BADARG);".
inline int32_t fail(int32_t cls) noexcept {
  slseterrno(os_error_of(cls));
  return -1;
}

}  // namespace sl_internal

#endif
