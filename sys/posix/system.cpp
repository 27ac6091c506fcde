// The environment and the system's description on POSIX (system_impl.h).
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "sys/system_impl.h"

namespace {

int32_t s_env_get(const char *name, char *buf, size_t len) {
  const char *v = getenv(name);
  if (v == nullptr) return -1;
  size_t n = strlen(v);
  if (len > 0) {
    size_t c = n < len - 1 ? n : len - 1;
    memcpy(buf, v, c);
    buf[c] = '\0';
  }
  return n > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int32_t>(n);
}

int32_t s_env_set(const char *name, const char *value, int32_t overwrite) {
  return setenv(name, value, overwrite) == 0 ? 0 : -1;
}

int32_t s_env_unset(const char *name) { return unsetenv(name) == 0 ? 0 : -1; }

int64_t s_pid() { return static_cast<int64_t>(getpid()); }

int32_t s_host(char *buf, size_t len) {
  if (gethostname(buf, len) != 0) return -1;
  buf[len - 1] = '\0';
  return 0;
}

int32_t s_user(char *buf, size_t len) {
  // The account the process runs as, not whatever $USER claims.
  struct passwd pw;
  struct passwd *res = nullptr;
  char work[4096];
  errno = 0;
  if (getpwuid_r(geteuid(), &pw, work, sizeof work, &res) != 0 || res == nullptr) {
    if (errno == 0) errno = ENOENT;
    return -1;
  }
  size_t n = strlen(pw.pw_name);
  if (n + 1 > len) {
    errno = ERANGE;
    return -1;
  }
  memcpy(buf, pw.pw_name, n + 1);
  return 0;
}

int32_t s_ncpu() {
  long n = sysconf(_SC_NPROCESSORS_ONLN);
  return n < 1 ? 0 : static_cast<int32_t>(n);
}

uint64_t s_memory() {
  long pages = sysconf(_SC_PHYS_PAGES);
  long size = sysconf(_SC_PAGESIZE);
  if (pages < 1 || size < 1) return 0;
  return static_cast<uint64_t>(pages) * static_cast<uint64_t>(size);
}

void s_exit(int32_t status) { _exit(status); }

}  // namespace

namespace sl_internal {

const SystemOps kSystemOs = {
    .env_get = s_env_get,
    .env_set = s_env_set,
    .env_unset = s_env_unset,
    .pid = s_pid,
    .host = s_host,
    .user = s_user,
    .ncpu = s_ncpu,
    .memory = s_memory,
    .exit = s_exit,
};

}  // namespace sl_internal
