// Environment variables (sl.h), over the platform's table (system_impl.h).
//
// Setting and reading the environment are not safe against each other in
// the C library; every access from the library goes through this one lock
// so that at least the library's own readers and writers never race.
#include <cstring>

#include "lfi.h"
#include "sl.h"
#include "sys/cslock_impl.h"
#include "sys/error_impl.h"
#include "sys/system_impl.h"

using sl_internal::fail;
using sl_internal::system_os;

namespace {

// Made on first use (a Windows section is not valid all zero) and never
// deleted: readers may come until the process ends.
slcs *env_lock() noexcept {
  static slcs *const cs = [] {
    static slcs storage;
    sl_internal::cs_init(&storage);
    return &storage;
  }();
  return cs;
}

class EnvLock {
 public:
  EnvLock() noexcept { sl_internal::cs_enter(env_lock()); }
  ~EnvLock() { sl_internal::cs_leave(env_lock()); }
  EnvLock(const EnvLock &) = delete;
  EnvLock &operator=(const EnvLock &) = delete;
};

bool bad_name(const char *name) noexcept { return name == nullptr || *name == '\0' || strchr(name, '=') != nullptr; }

}  // namespace

extern "C" {

KELAPI int32_t slgetenv(const char *name, char *buf, size_t len) {
  if (bad_name(name)) return -1;
  if (buf == nullptr) len = 0;
  EnvLock lock;
  return system_os().env_get(name, buf, len);
}

KELAPI int32_t slsetenv(const char *name, const char *value, int32_t overwrite) {
  if (bad_name(name) || value == nullptr) return fail(SLF_E_BADARG);
  EnvLock lock;
  return system_os().env_set(name, value, overwrite ? 1 : 0);
}

KELAPI int32_t slunsetenv(const char *name) {
  if (bad_name(name)) return fail(SLF_E_BADARG);
  EnvLock lock;
  return system_os().env_unset(name);
}

}  // extern "C"
