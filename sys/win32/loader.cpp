// Dynamic libraries on Windows (loader_impl.h): LoadLibraryA, GetProcAddress
// and FreeLibrary. The system keeps only an error number, so the text of a
// failure is made from it and the name of what failed.
#include <windows.h>

#include <cstdio>
#include <cstring>

#include "sys/error_impl.h"
#include "sys/loader_impl.h"

namespace {

void *l_open(const char *file) {
  // No message box for a missing or damaged library: the caller is told.
  UINT old = SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
  HMODULE h = LoadLibraryA(file);
  DWORD e = GetLastError();
  SetErrorMode(old);
  SetLastError(e);
  return reinterpret_cast<void *>(h);
}

void *l_sym(void *lib, const char *name) {
  return reinterpret_cast<void *>(GetProcAddress(static_cast<HMODULE>(lib), name));
}

int32_t l_close(void *lib) { return FreeLibrary(static_cast<HMODULE>(lib)) ? 0 : -1; }

// "<what>: <the system's text>"; the system error stays as it was for
// slerrno.
size_t l_error(const char *what, char *buf, size_t len) {
  DWORD e = GetLastError();
  char text[256];
  sl_internal::os_error_text(static_cast<int32_t>(e), text, sizeof text);
  int n = snprintf(buf, len, "%s: %s", what, text);
  SetLastError(e);
  if (n < 0) return 0;
  return static_cast<size_t>(n) < len ? static_cast<size_t>(n) : len - 1;
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
