// System errors on POSIX: errno is the thread's last system error. The
// conditions the layer acts on read as the library's codes; texts come from
// strerror_r; classes from the errno values.
#include <cerrno>
#include <cstring>

#include "lfi.h"
#include "sl.h"
#include "sys/error_impl.h"

extern "C" {

KELAPI int32_t slerrno(void) {
  int e = errno;
  switch (e) {
    case EINTR: return SL_ERR_INTR;
    case EAGAIN: return SL_ERR_AGAIN;
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK: return SL_ERR_AGAIN;
#endif
    case ECONNREFUSED: return SL_ERR_REFUSED;
    default: return e;
  }
}

KELAPI void slseterrno(int32_t err) { errno = err; }

}  // extern "C"

namespace sl_internal {

size_t os_error_text(int32_t err, char *buf, size_t len) noexcept {
  char scratch[256];
  // GNU strerror_r may return a static text instead of filling scratch.
  const char *text = strerror_r(err, scratch, sizeof scratch);
  size_t n = strlen(text);
  if (n >= len) n = len - 1;
  memcpy(buf, text, n);
  buf[n] = '\0';
  return n;
}

int32_t os_error_class(int32_t err) noexcept {
  switch (err) {
    case 0: return SLF_E_NONE;
    case ENOENT: return SLF_E_NOTFOUND;
    case EEXIST: return SLF_E_EXISTS;
    case EACCES:
    case EPERM:
    case EROFS: return SLF_E_DENIED;
    case EISDIR: return SLF_E_ISDIR;
    case ENOTDIR: return SLF_E_NOTDIR;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return SLF_E_NOSPACE;
    case ENOTEMPTY: return SLF_E_NOTEMPTY;
    case EBADF:
    case EINVAL:
    case ERANGE:
    case ENAMETOOLONG: return SLF_E_BADARG;
    default: return SLF_E_OTHER;
  }
}

int32_t os_error_of(int32_t cls) noexcept {
  switch (cls) {
    case SLF_E_NOTFOUND: return ENOENT;
    case SLF_E_EXISTS: return EEXIST;
    case SLF_E_DENIED: return EACCES;
    case SLF_E_ISDIR: return EISDIR;
    case SLF_E_NOTDIR: return ENOTDIR;
    case SLF_E_NOSPACE: return ENOSPC;
    case SLF_E_NOTEMPTY: return ENOTEMPTY;
    case SLF_E_BADARG: return EINVAL;
    default: return EIO;
  }
}

}  // namespace sl_internal
