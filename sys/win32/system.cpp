// The environment and the system's description on Windows (system_impl.h).
// Variables live in the process's environment block (not the C runtime's
// copy), so child processes and every module of the process see the same
// values; names and values are UTF-8 here and UTF-16 to the system.
#include <windows.h>

#include <cstdlib>
#include <cstring>

#include "sys/system_impl.h"

namespace {

// UTF-8 to a heap UTF-16 string (free()), null with the system error set.
wchar_t *widen(const char *s) noexcept {
  int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, s, -1, nullptr, 0);
  if (n <= 0) return nullptr;
  auto *w = static_cast<wchar_t *>(malloc(static_cast<size_t>(n) * sizeof(wchar_t)));
  if (w == nullptr) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, s, -1, w, n);
  return w;
}

// The value of a variable as a heap UTF-16 string; null when it is not set
// (*missing) or on failure.
wchar_t *env_wide(const wchar_t *name, bool *missing) noexcept {
  *missing = false;
  wchar_t *v = nullptr;
  DWORD cap = 256;
  for (;;) {
    auto *nv = static_cast<wchar_t *>(realloc(v, cap * sizeof(wchar_t)));
    if (nv == nullptr) {
      free(v);
      SetLastError(ERROR_NOT_ENOUGH_MEMORY);
      return nullptr;
    }
    v = nv;
    SetLastError(ERROR_SUCCESS);
    DWORD n = GetEnvironmentVariableW(name, v, cap);
    if (n == 0 && GetLastError() == ERROR_ENVVAR_NOT_FOUND) {
      free(v);
      *missing = true;
      return nullptr;
    }
    if (n < cap) {
      v[n] = L'\0';
      return v;
    }
    cap = n;  // the size needed, NUL included; the value may grow meanwhile
  }
}

int32_t y_env_get(const char *name, char *buf, size_t len) {
  wchar_t *wn = widen(name);
  if (wn == nullptr) return -1;
  bool missing;
  wchar_t *wv = env_wide(wn, &missing);
  free(wn);
  if (wv == nullptr) return -1;
  int n = WideCharToMultiByte(CP_UTF8, 0, wv, -1, nullptr, 0, nullptr, nullptr);  // NUL included
  char *u = n > 0 ? static_cast<char *>(malloc(static_cast<size_t>(n))) : nullptr;
  if (u == nullptr) {
    free(wv);
    if (n > 0) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return -1;
  }
  WideCharToMultiByte(CP_UTF8, 0, wv, -1, u, n, nullptr, nullptr);
  free(wv);
  size_t full = static_cast<size_t>(n) - 1;
  if (len > 0) {
    size_t c = full < len - 1 ? full : len - 1;
    memcpy(buf, u, c);
    buf[c] = '\0';
  }
  free(u);
  return full > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int32_t>(full);
}

int32_t y_env_set(const char *name, const char *value, int32_t overwrite) {
  wchar_t *wn = widen(name);
  if (wn == nullptr) return -1;
  if (!overwrite) {
    SetLastError(ERROR_SUCCESS);
    if (GetEnvironmentVariableW(wn, nullptr, 0) != 0 || GetLastError() != ERROR_ENVVAR_NOT_FOUND) {
      free(wn);
      return 0;
    }
  }
  wchar_t *wv = widen(value);
  if (wv == nullptr) {
    free(wn);
    return -1;
  }
  BOOL ok = SetEnvironmentVariableW(wn, wv);
  free(wv);
  free(wn);
  return ok ? 0 : -1;
}

int32_t y_env_unset(const char *name) {
  wchar_t *wn = widen(name);
  if (wn == nullptr) return -1;
  // Removing a variable that is not set is not a failure, as with unsetenv.
  BOOL ok = SetEnvironmentVariableW(wn, nullptr) || GetLastError() == ERROR_ENVVAR_NOT_FOUND;
  free(wn);
  return ok ? 0 : -1;
}

int64_t y_pid() { return static_cast<int64_t>(GetCurrentProcessId()); }

// A UTF-16 name of n units into buf as UTF-8 with its NUL: 0 / -1.
int32_t put_name(const wchar_t *w, DWORD n, char *buf, size_t len) noexcept {
  int need = WideCharToMultiByte(CP_UTF8, 0, w, static_cast<int>(n), nullptr, 0, nullptr, nullptr);
  if (need <= 0) return -1;
  if (static_cast<size_t>(need) + 1 > len) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return -1;
  }
  WideCharToMultiByte(CP_UTF8, 0, w, static_cast<int>(n), buf, need, nullptr, nullptr);
  buf[need] = '\0';
  return 0;
}

int32_t y_host(char *buf, size_t len) {
  wchar_t w[256];
  DWORD n = 256;
  if (!GetComputerNameExW(ComputerNameDnsHostname, w, &n)) return -1;
  return put_name(w, n, buf, len);
}

int32_t y_user(char *buf, size_t len) {
  // The account of the process's token, not whatever USERNAME claims.
  wchar_t w[257];
  DWORD n = 257;
  if (!GetUserNameW(w, &n) || n == 0) return -1;
  return put_name(w, n - 1, buf, len);  // n counted the NUL
}

int32_t y_ncpu() {
  DWORD n = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
  return n < 1 ? 0 : static_cast<int32_t>(n);
}

uint64_t y_memory() {
  MEMORYSTATUSEX ms;
  ms.dwLength = sizeof ms;
  return GlobalMemoryStatusEx(&ms) ? ms.ullTotalPhys : 0;
}

[[noreturn]] void y_exit(int32_t status) {
  // TerminateProcess runs no exit handlers and no library's detach code;
  // ExitProcess only if it somehow returned.
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
  ExitProcess(static_cast<UINT>(status));
}

}  // namespace

namespace sl_internal {

const SystemOps kSystemOs = {
    .env_get = y_env_get,
    .env_set = y_env_set,
    .env_unset = y_env_unset,
    .pid = y_pid,
    .host = y_host,
    .user = y_user,
    .ncpu = y_ncpu,
    .memory = y_memory,
    .exit = y_exit,
};

}  // namespace sl_internal
