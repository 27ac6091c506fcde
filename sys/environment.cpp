// Environment variables.
//
// setenv/unsetenv are not thread-safe against getenv in the C library; every
// access from the library goes through this one lock so that at least the
// library's own readers and writers never race each other.
#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "sl.h"

namespace {
pthread_mutex_t g_env_lock = PTHREAD_MUTEX_INITIALIZER;

bool bad_name(const char *name) noexcept { return name == nullptr || *name == '\0' || strchr(name, '=') != nullptr; }
}  // namespace

extern "C" {

KELAPI int32_t slgetenv(const char *name, char *buf, size_t len) {
  if (bad_name(name)) return -1;
  pthread_mutex_lock(&g_env_lock);
  const char *v = getenv(name);
  int32_t result = -1;
  if (v != nullptr) {
    size_t n = strlen(v);
    if (buf != nullptr && len > 0) {
      size_t c = n < len - 1 ? n : len - 1;
      memcpy(buf, v, c);
      buf[c] = '\0';
    }
    result = n > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n);
  }
  pthread_mutex_unlock(&g_env_lock);
  return result;
}

KELAPI int32_t slsetenv(const char *name, const char *value, int32_t overwrite) {
  if (bad_name(name) || value == nullptr) {
    errno = EINVAL;
    return -1;
  }
  pthread_mutex_lock(&g_env_lock);
  int rc = setenv(name, value, overwrite ? 1 : 0);
  pthread_mutex_unlock(&g_env_lock);
  return rc == 0 ? 0 : -1;
}

KELAPI int32_t slunsetenv(const char *name) {
  if (bad_name(name)) {
    errno = EINVAL;
    return -1;
  }
  pthread_mutex_lock(&g_env_lock);
  int rc = unsetenv(name);
  pthread_mutex_unlock(&g_env_lock);
  return rc == 0 ? 0 : -1;
}

}  // extern "C"
