// File access of the parameter manager over the POSIX file calls.
#include "sys/paramfile_impl.h"

#include "sl.h"
#include "sys/fault_impl.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sys_param {

int32_t read_file(const char *path, allocfn alloc, void *arg, char **data, size_t *len, int32_t *syserr) {
  *syserr = 0;
  if (SL_FAULT(SL_FAULT_FILE_OPEN)) {
    *syserr = slerrno();
    return 1;
  }
  int fd;
  do fd = ::open(path, O_RDONLY | O_CLOEXEC);
  while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    *syserr = errno;
    return 1;
  }
  struct stat st;
  if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    *syserr = S_ISDIR(st.st_mode) ? EISDIR : errno;
    ::close(fd);
    return 1;
  }
  size_t cap = st.st_size > 0 ? static_cast<size_t>(st.st_size) + 1 : 4096;
  char *buf = static_cast<char *>(alloc(arg, cap));
  if (buf == nullptr) {
    ::close(fd);
    return 3;
  }
  size_t used = 0;
  for (;;) {
    if (used + 1 >= cap) {
      // The file grew (or has no size, like a pipe): move to a bigger block.
      size_t ncap = cap * 2;
      char *n = static_cast<char *>(alloc(arg, ncap));
      if (n == nullptr) {
        ::close(fd);
        return 3;
      }
      memcpy(n, buf, used);
      buf = n;  // the old block goes with the caller's heap
      cap = ncap;
    }
    ssize_t r = SL_FAULT(SL_FAULT_FILE_READ) ? (errno = EIO, -1) : ::read(fd, buf + used, cap - 1 - used);
    if (r < 0) {
      if (errno == EINTR) continue;
      *syserr = errno;
      ::close(fd);
      return 2;
    }
    if (r == 0) break;
    used += static_cast<size_t>(r);
  }
  ::close(fd);
  buf[used] = '\0';
  *data = buf;
  *len = used;
  return 0;
}

struct outfile {
  int fd;
  int32_t err;
};

outfile *create_file(const char *path, int32_t *syserr) {
  if (SL_FAULT(SL_FAULT_FILE_OPEN)) {
    *syserr = slerrno();
    return nullptr;
  }
  int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    *syserr = errno;
    return nullptr;
  }
  auto *f = static_cast<outfile *>(malloc(sizeof(outfile)));
  if (f == nullptr) {
    ::close(fd);
    *syserr = ENOMEM;
    return nullptr;
  }
  f->fd = fd;
  f->err = 0;
  return f;
}

int32_t write_file(outfile *f, const char *data, size_t len) {
  while (len > 0 && f->err == 0) {
    ssize_t w = SL_FAULT(SL_FAULT_FILE_WRITE) ? (errno = ENOSPC, -1) : ::write(f->fd, data, len);
    if (w < 0) {
      if (errno == EINTR) continue;
      f->err = errno;
      break;
    }
    data += w;
    len -= static_cast<size_t>(w);
  }
  return f->err == 0 ? 0 : -1;
}

int32_t close_file(outfile *f) {
  int32_t err = f->err;
  if (::close(f->fd) != 0 && err == 0) err = errno;
  free(f);
  return err;
}

void write_stdout(const char *data, size_t len) {
  while (len > 0) {
    ssize_t w = ::write(1, data, len);
    if (w < 0) {
      if (errno == EINTR) continue;
      return;
    }
    data += w;
    len -= static_cast<size_t>(w);
  }
}

}  // namespace sys_param
