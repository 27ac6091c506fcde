// System errors on Windows: GetLastError is the thread's last system error,
// and Winsock reports through the same value. The library's own codes
// (SL_ERR_*) are Windows numbers already, so most errors pass through as they
// are; the few other numbers that mean the same condition are folded in.
#include <windows.h>

#include <cstdio>
#include <cstring>

#include "lfi.h"
#include "sl.h"
#include "sys/error_impl.h"

// Not in every SDK's headers.
#ifndef ERROR_DIRECTORY_NOT_SUPPORTED
#define ERROR_DIRECTORY_NOT_SUPPORTED 336L
#endif
#ifndef ERROR_DISK_QUOTA_EXCEEDED
#define ERROR_DISK_QUOTA_EXCEEDED 1295L
#endif

extern "C" {

KELAPI int32_t slerrno(void) {
  DWORD e = GetLastError();
  switch (e) {
    case ERROR_CONNECTION_REFUSED: return SL_ERR_REFUSED;
    case WAIT_TIMEOUT: return SL_ERR_TIMEOUT;
    default: return static_cast<int32_t>(e);
  }
}

KELAPI void slseterrno(int32_t err) { SetLastError(static_cast<DWORD>(err)); }

}  // extern "C"

namespace sl_internal {

size_t os_error_text(int32_t err, char *buf, size_t len) noexcept {
  char scratch[512];
  DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                           static_cast<DWORD>(err), MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), scratch,
                           sizeof scratch, nullptr);
  // The system's texts end in ".\r\n"; a message line wants neither.
  while (n > 0 && (scratch[n - 1] == '\r' || scratch[n - 1] == '\n' || scratch[n - 1] == ' ' || scratch[n - 1] == '.'))
    --n;
  if (n == 0) n = static_cast<DWORD>(snprintf(scratch, sizeof scratch, "Windows error %ld", static_cast<long>(err)));
  size_t l = n < len ? n : len - 1;
  memcpy(buf, scratch, l);
  buf[l] = '\0';
  return l;
}

int32_t os_error_class(int32_t err) noexcept {
  switch (static_cast<DWORD>(err)) {
    case ERROR_SUCCESS: return SLF_E_NONE;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_MOD_NOT_FOUND: return SLF_E_NOTFOUND;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: return SLF_E_EXISTS;
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_PRIVILEGE_NOT_HELD: return SLF_E_DENIED;
    case ERROR_DIRECTORY_NOT_SUPPORTED: return SLF_E_ISDIR;
    case ERROR_DIRECTORY: return SLF_E_NOTDIR;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_DISK_QUOTA_EXCEEDED:
    case ERROR_FILE_TOO_LARGE: return SLF_E_NOSPACE;
    case ERROR_DIR_NOT_EMPTY: return SLF_E_NOTEMPTY;
    case ERROR_INVALID_HANDLE:
    case ERROR_INVALID_PARAMETER:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE:
    case ERROR_BUFFER_OVERFLOW:
    case ERROR_INSUFFICIENT_BUFFER:
    case ERROR_NEGATIVE_SEEK:
    case ERROR_NO_UNICODE_TRANSLATION: return SLF_E_BADARG;
    default: return SLF_E_OTHER;
  }
}

int32_t os_error_of(int32_t cls) noexcept {
  switch (cls) {
    case SLF_E_NOTFOUND: return ERROR_FILE_NOT_FOUND;
    case SLF_E_EXISTS: return ERROR_ALREADY_EXISTS;
    case SLF_E_DENIED: return ERROR_ACCESS_DENIED;
    case SLF_E_ISDIR: return ERROR_DIRECTORY_NOT_SUPPORTED;
    case SLF_E_NOTDIR: return ERROR_DIRECTORY;
    case SLF_E_NOSPACE: return ERROR_DISK_FULL;
    case SLF_E_NOTEMPTY: return ERROR_DIR_NOT_EMPTY;
    case SLF_E_BADARG: return ERROR_INVALID_PARAMETER;
    default: return ERROR_IO_DEVICE;
  }
}

}  // namespace sl_internal
