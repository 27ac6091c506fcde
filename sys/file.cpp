// Files and directories of the system layer.
//
// Plain descriptors under 64-bit handles: the portable layer never sees a
// descriptor number's meaning, only "a handle or -1". Every call retries on
// EINTR so that a signal arriving in the server never looks like an I/O error
// to the layers above, and writes loop until everything is written so that a
// short write is only ever reported as the error that stopped it.
//
// Sections: error classes; files; file information; names; directories;
// system information about paths (current and temporary directory).
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lfi.h"
#include "sl.h"
#include "slt.h"
#include "sys/fault_impl.h"

namespace {

int fd_of(int64_t h) noexcept { return (h < 0 || h > 0x7FFFFFFF) ? -1 : static_cast<int>(h); }

// A refused write stands for a full disk, the one write failure tests need
// to drive; other points keep the fault error.
bool fault(int32_t point, int err = 0) noexcept {
  if (!SL_FAULT(point)) return false;
  if (err != 0) errno = err;
  return true;
}

int32_t fill_info(const struct stat &st, slfinfo *info) noexcept {
  info->size = static_cast<int64_t>(st.st_size);
  info->mtimeus = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000 + st.st_mtim.tv_nsec / 1000;
  info->mode = static_cast<uint32_t>(st.st_mode & 07777);
  info->type = S_ISREG(st.st_mode) ? SLF_TYPE_FILE : S_ISDIR(st.st_mode) ? SLF_TYPE_DIR : SLF_TYPE_OTHER;
  return 0;
}

}  // namespace

extern "C" {

// ---------------------------------------------------------- error classes

KELAPI int32_t slfclass(int32_t err) {
  switch (err) {
    case 0: return SLF_E_NONE;
    case ENOENT: return SLF_E_NOTFOUND;
    case EEXIST: return SLF_E_EXISTS;
    case EACCES:
    case EPERM:
    case EROFS: return SLF_E_DENIED;
    case EISDIR: return SLF_E_ISDIR;
    case ENOTDIR: return SLF_E_NOTDIR;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return SLF_E_NOSPACE;
    case ENOTEMPTY: return SLF_E_NOTEMPTY;
    case EBADF:
    case EINVAL: return SLF_E_BADARG;
    default: return SLF_E_OTHER;
  }
}

// ------------------------------------------------------------------ files

KELAPI int32_t slfopen(const char *path, uint32_t flags, int64_t *handle) {
  if (handle != nullptr) *handle = -1;
  if (path == nullptr || handle == nullptr || (flags & (SLF_READ | SLF_WRITE)) == 0) {
    errno = EINVAL;
    return -1;
  }
  if (fault(SL_FAULT_FILE_OPEN)) return -1;
  int o = O_CLOEXEC;
  if ((flags & SLF_READ) && (flags & SLF_WRITE))
    o |= O_RDWR;
  else if (flags & SLF_WRITE)
    o |= O_WRONLY;
  else
    o |= O_RDONLY;
  if (flags & SLF_APPEND) o |= O_APPEND;
  if (flags & SLF_CREATE) o |= O_CREAT;
  if (flags & SLF_EXCL) o |= O_CREAT | O_EXCL;
  if (flags & SLF_TRUNC) o |= O_TRUNC;
  int fd;
  do fd = open(path, o, 0666);
  while (fd < 0 && errno == EINTR);
  if (fd < 0) return -1;
  // A directory opens read-only on this system; the callers want a file.
  struct stat st;
  if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    close(fd);
    errno = EISDIR;
    return -1;
  }
  *handle = fd;
  return 0;
}

KELAPI int32_t slftemp(const char *dir, int64_t *handle) {
  if (handle != nullptr) *handle = -1;
  if (handle == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (fault(SL_FAULT_FILE_OPEN)) return -1;
  char tmp[4096];
  if (dir == nullptr || *dir == '\0') {
    if (sltmpdir(tmp, sizeof tmp) < 0) return -1;
    dir = tmp;
  }
  // An unnamed file: nothing is left behind however the process ends.
  int fd;
  do fd = open(dir, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  while (fd < 0 && errno == EINTR);
  if (fd < 0 && (errno == EOPNOTSUPP || errno == EISDIR)) {
    char name[4200];
    size_t n = strlen(dir);
    if (n + 16 >= sizeof name) {
      errno = ENAMETOOLONG;
      return -1;
    }
    memcpy(name, dir, n);
    memcpy(name + n, "/kelXXXXXX", 11);
    fd = mkostemp(name, O_CLOEXEC);
    if (fd >= 0) unlink(name);
  }
  if (fd < 0) return -1;
  *handle = fd;
  return 0;
}

KELAPI int64_t slfstd(int32_t which) { return which >= 0 && which <= 2 ? which : -1; }

KELAPI int32_t slfclose(int64_t handle) {
  int fd = fd_of(handle);
  if (fd < 0) {
    errno = EBADF;
    return -1;
  }
  // The descriptor is gone after close whatever it says; EINTR is not retried.
  int rc = close(fd);
  if (rc != 0 && errno == EINTR) return 0;
  return rc == 0 ? 0 : -1;
}

KELAPI int64_t slfread(int64_t handle, void *buf, size_t n) {
  int fd = fd_of(handle);
  if (fd < 0 || (buf == nullptr && n > 0)) {
    errno = fd < 0 ? EBADF : EINVAL;
    return -1;
  }
  if (fault(SL_FAULT_FILE_READ, EIO)) return -1;
  ssize_t r;
  do r = read(fd, buf, n);
  while (r < 0 && errno == EINTR);
  return r;
}

KELAPI int64_t slfwrite(int64_t handle, const void *buf, size_t n) {
  int fd = fd_of(handle);
  if (fd < 0 || (buf == nullptr && n > 0)) {
    errno = fd < 0 ? EBADF : EINVAL;
    return -1;
  }
  if (fault(SL_FAULT_FILE_WRITE, ENOSPC)) return -1;
  const char *p = static_cast<const char *>(buf);
  size_t done = 0;
  while (done < n) {
    ssize_t w = write(fd, p + done, n - done);
    if (w < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (w == 0) {
      errno = ENOSPC;
      return -1;
    }
    done += static_cast<size_t>(w);
  }
  return static_cast<int64_t>(done);
}

KELAPI int64_t slfseek(int64_t handle, int64_t offset, int32_t whence) {
  int fd = fd_of(handle);
  int w = whence == SLF_SEEK_SET ? SEEK_SET : whence == SLF_SEEK_CUR ? SEEK_CUR : whence == SLF_SEEK_END ? SEEK_END : -1;
  if (fd < 0 || w < 0) {
    errno = fd < 0 ? EBADF : EINVAL;
    return -1;
  }
  if (fault(SL_FAULT_FILE_OTHER)) return -1;
  off_t r = lseek(fd, static_cast<off_t>(offset), w);
  return r < 0 ? -1 : static_cast<int64_t>(r);
}

KELAPI int32_t slfsync(int64_t handle) {
  int fd = fd_of(handle);
  if (fd < 0) {
    errno = EBADF;
    return -1;
  }
  if (fault(SL_FAULT_FILE_OTHER)) return -1;
  int rc;
  do rc = fdatasync(fd);
  while (rc != 0 && errno == EINTR);
  return rc == 0 ? 0 : -1;
}

KELAPI int32_t slftruncate(int64_t handle, int64_t size) {
  int fd = fd_of(handle);
  if (fd < 0 || size < 0) {
    errno = fd < 0 ? EBADF : EINVAL;
    return -1;
  }
  if (fault(SL_FAULT_FILE_OTHER)) return -1;
  int rc;
  do rc = ftruncate(fd, static_cast<off_t>(size));
  while (rc != 0 && errno == EINTR);
  return rc == 0 ? 0 : -1;
}

// ------------------------------------------------------- file information

KELAPI int32_t slfstat(const char *path, slfinfo *info) {
  if (path == nullptr || info == nullptr) {
    errno = EINVAL;
    return -1;
  }
  struct stat st;
  if (stat(path, &st) != 0) return -1;
  return fill_info(st, info);
}

KELAPI int32_t slffstat(int64_t handle, slfinfo *info) {
  int fd = fd_of(handle);
  if (fd < 0 || info == nullptr) {
    errno = fd < 0 ? EBADF : EINVAL;
    return -1;
  }
  if (fault(SL_FAULT_FILE_OTHER)) return -1;
  struct stat st;
  if (fstat(fd, &st) != 0) return -1;
  return fill_info(st, info);
}

// ------------------------------------------------------------------ names

KELAPI int32_t slfremove(const char *path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (fault(SL_FAULT_FILE_OTHER)) return -1;
  return unlink(path) == 0 ? 0 : -1;
}

KELAPI int32_t slfrename(const char *from, const char *to) {
  if (from == nullptr || to == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (fault(SL_FAULT_FILE_OTHER)) return -1;
  return rename(from, to) == 0 ? 0 : -1;
}

// ------------------------------------------------------------ directories

KELAPI int32_t slfmkdir(const char *path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (fault(SL_FAULT_FILE_OTHER)) return -1;
  return mkdir(path, 0777) == 0 ? 0 : -1;
}

KELAPI int32_t slfrmdir(const char *path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (fault(SL_FAULT_FILE_OTHER)) return -1;
  return rmdir(path) == 0 ? 0 : -1;
}

KELAPI void *slfdopen(const char *path) {
  if (path == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  if (fault(SL_FAULT_FILE_OTHER)) return nullptr;
  return opendir(path);
}

KELAPI int32_t slfdnext(void *dir, char *buf, size_t len) {
  if (dir == nullptr || buf == nullptr || len == 0) {
    errno = EINVAL;
    return -1;
  }
  for (;;) {
    errno = 0;
    struct dirent *e = readdir(static_cast<DIR *>(dir));
    if (e == nullptr) return errno == 0 ? 0 : -1;
    const char *n = e->d_name;
    if (n[0] == '.' && (n[1] == '\0' || (n[1] == '.' && n[2] == '\0'))) continue;
    size_t l = strlen(n);
    if (l + 1 > len) {
      errno = ENAMETOOLONG;
      return -1;
    }
    memcpy(buf, n, l + 1);
    return static_cast<int32_t>(l);
  }
}

KELAPI int32_t slfdclose(void *dir) {
  if (dir == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return closedir(static_cast<DIR *>(dir)) == 0 ? 0 : -1;
}

// ------------------------------------- current and temporary directories

KELAPI int32_t slgetcwd(char *buf, size_t len) {
  if (buf == nullptr || len == 0) {
    errno = EINVAL;
    return -1;
  }
  if (getcwd(buf, len) == nullptr) return -1;
  return static_cast<int32_t>(strlen(buf));
}

KELAPI int32_t sltmpdir(char *buf, size_t len) {
  if (buf == nullptr || len == 0) {
    errno = EINVAL;
    return -1;
  }
  char v[4096];
  int32_t n = slgetenv("TMPDIR", v, sizeof v);
  const char *d = (n > 0 && static_cast<size_t>(n) < sizeof v) ? v : "/tmp";
  size_t l = strlen(d);
  while (l > 1 && d[l - 1] == '/') l--;  // "/tmp/" and "/tmp" name one place
  if (l + 1 > len) {
    errno = ERANGE;
    return -1;
  }
  memcpy(buf, d, l);
  buf[l] = '\0';
  return static_cast<int32_t>(l);
}

}  // extern "C"
