// Plain file calls for the diagnostic log.
#include "sys/logfile_impl.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sl.h"
#include "sys/fault_impl.h"

namespace {
int64_t fail() {
  slseterrno(errno);
  return -1;
}
}  // namespace

int64_t sllogopena(const char *path) noexcept {
  if (SL_FAULT(SL_FAULT_FILE_OPEN)) return -1;
  int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  return fd < 0 ? fail() : fd;
}

int64_t sllogopenr(const char *path) noexcept {
  if (SL_FAULT(SL_FAULT_FILE_OPEN)) return -1;
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  return fd < 0 ? fail() : fd;
}

int64_t sllogsize(int64_t fd) noexcept {
  struct stat st;
  if (fstat(static_cast<int>(fd), &st) != 0) return fail();
  return static_cast<int64_t>(st.st_size);
}

int32_t sllogwrite(int64_t fd, const void *buf, size_t n) noexcept {
  if (SL_FAULT(SL_FAULT_FILE_WRITE)) return -1;
  auto *p = static_cast<const char *>(buf);
  while (n > 0) {
    ssize_t k = write(static_cast<int>(fd), p, n);
    if (k < 0) {
      if (errno == EINTR) continue;
      fail();
      return -1;
    }
    p += k;
    n -= static_cast<size_t>(k);
  }
  return 0;
}

int64_t sllogread(int64_t fd, void *buf, size_t n) noexcept {
  if (SL_FAULT(SL_FAULT_FILE_READ)) return -1;
  for (;;) {
    ssize_t k = read(static_cast<int>(fd), buf, n);
    if (k >= 0) return k;
    if (errno != EINTR) return fail();
  }
}

void sllogclose(int64_t fd) noexcept {
  if (fd >= 0) close(static_cast<int>(fd));
}

int32_t sllogrename(const char *from, const char *to) noexcept {
  if (SL_FAULT(SL_FAULT_FILE_OTHER)) return -1;
  return rename(from, to) == 0 ? 0 : static_cast<int32_t>(fail());
}

int32_t sllogremove(const char *path) noexcept { return unlink(path) == 0 ? 0 : static_cast<int32_t>(fail()); }

int32_t sllogexists(const char *path) noexcept {
  struct stat st;
  return stat(path, &st) == 0 ? 1 : 0;
}
