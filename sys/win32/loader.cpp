// Dynamic libraries on Windows (loader_impl.h): LoadLibraryA, GetProcAddress
// and FreeLibrary. The system keeps only an error number, so the text of the
// thread's last failure is made and kept here.
#include <windows.h>

#include <cstdio>
#include <cstring>

#include "sys/error_impl.h"
#include "sys/loader_impl.h"

namespace {

thread_local char t_last[320];

// "<what>: <the system's text>" as the thread's last failure; the system
// error stays as it was for slerrno.
void keep(const char *what) noexcept {
  DWORD e = GetLastError();
  char text[256];
  sl_internal::os_error_text(static_cast<int32_t>(e), text, sizeof text);
  snprintf(t_last, sizeof t_last, "%s: %s", what, text);
  SetLastError(e);
}

void *l_open(const char *file) {
  // No message box for a missing or damaged library: the caller is told.
  UINT old = SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
  HMODULE h = LoadLibraryA(file);
  if (h == nullptr) keep(file);
  SetErrorMode(old);
  return reinterpret_cast<void *>(h);
}

void *l_sym(void *lib, const char *name) {
  FARPROC p = GetProcAddress(static_cast<HMODULE>(lib), name);
  if (p == nullptr) keep(name);
  return reinterpret_cast<void *>(p);
}

int32_t l_close(void *lib) {
  if (FreeLibrary(static_cast<HMODULE>(lib))) return 0;
  keep("FreeLibrary");
  return -1;
}

size_t l_error(char *buf, size_t len) {
  size_t n = strlen(t_last);
  if (n >= len) n = len - 1;
  memcpy(buf, t_last, n);
  buf[n] = '\0';
  return n;
}

}  // namespace

namespace sl_internal {

const LoaderOps kLoaderOs = {
    .open = l_open,
    .sym = l_sym,
    .close = l_close,
    .error = l_error,
};

}  // namespace sl_internal
