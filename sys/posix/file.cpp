// Files and directories on POSIX: descriptors in the int64_t handles, one
// system call per entry (file_impl.h), errno left for slerrno.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sl.h"
#include "sys/file_impl.h"

namespace {

int fd_of(int64_t h) noexcept { return (h < 0 || h > 0x7FFFFFFF) ? -1 : static_cast<int>(h); }

int32_t bad_handle() noexcept {
  errno = EBADF;
  return -1;
}

int32_t fill_info(const struct stat &st, slfinfo *info) noexcept {
  info->size = static_cast<int64_t>(st.st_size);
  info->mtimeus = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000 + st.st_mtim.tv_nsec / 1000;
  info->mode = static_cast<uint32_t>(st.st_mode & 07777);
  info->type = S_ISREG(st.st_mode) ? SLF_TYPE_FILE : S_ISDIR(st.st_mode) ? SLF_TYPE_DIR : SLF_TYPE_OTHER;
  return 0;
}

int32_t f_open(const char *path, uint32_t flags, int64_t *handle) {
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
  int fd = open(path, o, 0666);
  if (fd < 0) return -1;
  // A directory opens read-only here; the callers want a file.
  struct stat st;
  if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    close(fd);
    errno = EISDIR;
    return -1;
  }
  *handle = fd;
  return 0;
}

int32_t f_temp(const char *dir, int64_t *handle) {
  // An unnamed file: nothing is left behind however the process ends.
  int fd = open(dir, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
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

int64_t f_stdio(int32_t which) { return which; }

int32_t f_close(int64_t h) {
  int fd = fd_of(h);
  if (fd < 0) return bad_handle();
  return close(fd) == 0 ? 0 : -1;
}

int64_t f_read(int64_t h, void *buf, size_t n) {
  int fd = fd_of(h);
  if (fd < 0) return bad_handle();
  return read(fd, buf, n);
}

int64_t f_write(int64_t h, const void *buf, size_t n) {
  int fd = fd_of(h);
  if (fd < 0) return bad_handle();
  return write(fd, buf, n);
}

int64_t f_seek(int64_t h, int64_t offset, int32_t whence) {
  int fd = fd_of(h);
  if (fd < 0) return bad_handle();
  int w = whence == SLF_SEEK_SET ? SEEK_SET : whence == SLF_SEEK_CUR ? SEEK_CUR : SEEK_END;
  off_t r = lseek(fd, static_cast<off_t>(offset), w);
  return r < 0 ? -1 : static_cast<int64_t>(r);
}

int32_t f_sync(int64_t h) {
  int fd = fd_of(h);
  if (fd < 0) return bad_handle();
  return fdatasync(fd) == 0 ? 0 : -1;
}

int32_t f_truncate(int64_t h, int64_t size) {
  int fd = fd_of(h);
  if (fd < 0) return bad_handle();
  return ftruncate(fd, static_cast<off_t>(size)) == 0 ? 0 : -1;
}

int32_t f_stat(const char *path, slfinfo *info) {
  struct stat st;
  if (stat(path, &st) != 0) return -1;
  return fill_info(st, info);
}

int32_t f_fstat(int64_t h, slfinfo *info) {
  int fd = fd_of(h);
  if (fd < 0) return bad_handle();
  struct stat st;
  if (fstat(fd, &st) != 0) return -1;
  return fill_info(st, info);
}

int32_t f_remove(const char *path) { return unlink(path) == 0 ? 0 : -1; }
int32_t f_rename(const char *from, const char *to) { return rename(from, to) == 0 ? 0 : -1; }
int32_t f_mkdir(const char *path) { return mkdir(path, 0777) == 0 ? 0 : -1; }
int32_t f_rmdir(const char *path) { return rmdir(path) == 0 ? 0 : -1; }

void *f_dir_open(const char *path) { return opendir(path); }

int32_t f_dir_next(void *dir, char *buf, size_t len) {
  errno = 0;
  struct dirent *e = readdir(static_cast<DIR *>(dir));
  if (e == nullptr) return errno == 0 ? 0 : -1;
  size_t l = strlen(e->d_name);
  if (l + 1 > len) {
    errno = ENAMETOOLONG;
    return -1;
  }
  memcpy(buf, e->d_name, l + 1);
  return static_cast<int32_t>(l);
}

int32_t f_dir_close(void *dir) { return closedir(static_cast<DIR *>(dir)) == 0 ? 0 : -1; }

int32_t f_cwd(char *buf, size_t len) {
  if (getcwd(buf, len) == nullptr) return -1;
  return static_cast<int32_t>(strlen(buf));
}

int32_t f_tmpdir(char *buf, size_t len) {
  // $TMPDIR when it is set and not empty, as every POSIX tool reads it.
  int32_t n = slgetenv("TMPDIR", buf, len);
  if (n > 0 && static_cast<size_t>(n) < len) return n;
  if (len < 5) {
    errno = ERANGE;
    return -1;
  }
  memcpy(buf, "/tmp", 5);
  return 4;
}

}  // namespace

namespace sl_internal {

const FileOps kFileOs = {
    .open = f_open,
    .temp = f_temp,
    .stdio = f_stdio,
    .close = f_close,
    .read = f_read,
    .write = f_write,
    .seek = f_seek,
    .sync = f_sync,
    .truncate = f_truncate,
    .stat = f_stat,
    .fstat = f_fstat,
    .remove = f_remove,
    .rename = f_rename,
    .mkdir = f_mkdir,
    .rmdir = f_rmdir,
    .dir_open = f_dir_open,
    .dir_next = f_dir_next,
    .dir_close = f_dir_close,
    .cwd = f_cwd,
    .tmpdir = f_tmpdir,
};

}  // namespace sl_internal
