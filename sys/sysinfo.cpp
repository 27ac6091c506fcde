// System information: process, host, user, processors and memory.
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "slt.h"

namespace {

int32_t copy_out(const char *s, char *buf, size_t len) noexcept {
  size_t n = strlen(s);
  if (buf == nullptr || n + 1 > len || n > 0x7FFFFFFF) {
    errno = ERANGE;
    return -1;
  }
  memcpy(buf, s, n + 1);
  return static_cast<int32_t>(n);
}

}  // namespace

extern "C" {

KELAPI int64_t slsipid(void) { return static_cast<int64_t>(getpid()); }

KELAPI int32_t slsihost(char *buf, size_t len) {
  char name[256];
  if (gethostname(name, sizeof name) != 0) return -1;
  name[sizeof name - 1] = '\0';
  return copy_out(name, buf, len);
}

KELAPI int32_t slsiuser(char *buf, size_t len) {
  // The account the process runs as, not whatever $USER claims.
  struct passwd pw;
  struct passwd *res = nullptr;
  char work[4096];
  if (getpwuid_r(geteuid(), &pw, work, sizeof work, &res) != 0 || res == nullptr) {
    if (errno == 0) errno = ENOENT;
    return -1;
  }
  return copy_out(pw.pw_name, buf, len);
}

KELAPI int32_t slsincpu(void) {
  long n = sysconf(_SC_NPROCESSORS_ONLN);
  return n < 1 ? 1 : static_cast<int32_t>(n);
}

KELAPI size_t slsipage(void) {
  long n = sysconf(_SC_PAGESIZE);
  return n < 1 ? 4096 : static_cast<size_t>(n);
}

KELAPI uint64_t slsimem(void) {
  long pages = sysconf(_SC_PHYS_PAGES);
  long size = sysconf(_SC_PAGESIZE);
  if (pages < 1 || size < 1) return 0;
  return static_cast<uint64_t>(pages) * static_cast<uint64_t>(size);
}

}  // extern "C"
