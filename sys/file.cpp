// Files and directories of the system layer (slf* of lfi.h), over the
// platform's table (file_impl.h).
//
// The portable part: argument checks, fault points, and the loops that make
// the platform's single calls into the contracts of lfi.h. Every call is
// repeated when it was interrupted before doing anything (SL_ERR_INTR), so
// that a signal arriving in the server never looks like an I/O error to the
// layers above, and a write goes on until everything is written, so that a
// short write is only ever reported as the error that stopped it.
//
// Sections: files; file information and names; directories; the current
// and the temporary directory.
#include <cstring>

#include "lfi.h"
#include "sl.h"
#include "sys/error_impl.h"
#include "sys/fault_impl.h"
#include "sys/file_impl.h"

using sl_internal::fail;
using sl_internal::file_os;

namespace {

// Calls op() again as long as it fails with SL_ERR_INTR.
template <class Op>
auto retry(Op op) noexcept {
  for (;;) {
    auto r = op();
    if (r >= 0 || slerrno() != SL_ERR_INTR) return r;
  }
}

// A refused request at `point`; a refused write stands for a full disk, the
// one write failure the layers above must tell apart.
bool refused(int32_t point, int32_t cls = SLF_E_NONE) noexcept {
  if (!SL_FAULT(point)) return false;
  if (cls != SLF_E_NONE) slseterrno(sl_internal::os_error_of(cls));
  return true;
}

}  // namespace

extern "C" {

// ------------------------------------------------------------------ files

KELAPI int32_t slfopen(const char *path, uint32_t flags, int64_t *handle) {
  if (handle != nullptr) *handle = -1;
  if (path == nullptr || handle == nullptr || (flags & (SLF_READ | SLF_WRITE)) == 0) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_OPEN)) return -1;
  return retry([&] { return file_os().open(path, flags, handle); });
}

KELAPI int32_t slftemp(const char *dir, int64_t *handle) {
  if (handle != nullptr) *handle = -1;
  if (handle == nullptr) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_OPEN)) return -1;
  char tmp[4096];
  if (dir == nullptr || *dir == '\0') {
    if (sltmpdir(tmp, sizeof tmp) < 0) return -1;
    dir = tmp;
  }
  return retry([&] { return file_os().temp(dir, handle); });
}

KELAPI int64_t slfstd(int32_t which) { return which >= 0 && which <= 2 ? file_os().stdio(which) : -1; }

KELAPI int32_t slfclose(int64_t handle) {
  if (handle < 0) return fail(SLF_E_BADARG);
  // The handle is gone after close whatever it says, so an interrupted close
  // is not repeated (the handle number may already belong to another file).
  int32_t rc = file_os().close(handle);
  return rc == 0 || slerrno() == SL_ERR_INTR ? 0 : -1;
}

KELAPI int64_t slfread(int64_t handle, void *buf, size_t n) {
  if (handle < 0 || (buf == nullptr && n > 0)) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_READ)) return -1;
  return retry([&] { return file_os().read(handle, buf, n); });
}

KELAPI int64_t slfwrite(int64_t handle, const void *buf, size_t n) {
  if (handle < 0 || (buf == nullptr && n > 0)) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_WRITE, SLF_E_NOSPACE)) return -1;
  const char *p = static_cast<const char *>(buf);
  size_t done = 0;
  while (done < n) {
    int64_t w = retry([&] { return file_os().write(handle, p + done, n - done); });
    if (w < 0) return -1;
    // No progress and no error: nothing more fits.
    if (w == 0) return fail(SLF_E_NOSPACE);
    done += static_cast<size_t>(w);
  }
  return static_cast<int64_t>(done);
}

KELAPI int64_t slfseek(int64_t handle, int64_t offset, int32_t whence) {
  if (handle < 0 || whence < SLF_SEEK_SET || whence > SLF_SEEK_END) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_OTHER)) return -1;
  return file_os().seek(handle, offset, whence);
}

KELAPI int32_t slfsync(int64_t handle) {
  if (handle < 0) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_OTHER)) return -1;
  return retry([&] { return file_os().sync(handle); });
}

KELAPI int32_t slftruncate(int64_t handle, int64_t size) {
  if (handle < 0 || size < 0) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_OTHER)) return -1;
  return retry([&] { return file_os().truncate(handle, size); });
}

// ------------------------------------------------ file information and names

KELAPI int32_t slfstat(const char *path, slfinfo *info) {
  if (path == nullptr || info == nullptr) return fail(SLF_E_BADARG);
  return file_os().stat(path, info);
}

KELAPI int32_t slffstat(int64_t handle, slfinfo *info) {
  if (handle < 0 || info == nullptr) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_OTHER)) return -1;
  return file_os().fstat(handle, info);
}

KELAPI int32_t slfremove(const char *path) {
  if (path == nullptr) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_OTHER)) return -1;
  return file_os().remove(path);
}

KELAPI int32_t slfrename(const char *from, const char *to) {
  if (from == nullptr || to == nullptr) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_OTHER)) return -1;
  return file_os().rename(from, to);
}

// ------------------------------------------------------------ directories

KELAPI int32_t slfmkdir(const char *path) {
  if (path == nullptr) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_OTHER)) return -1;
  return file_os().mkdir(path);
}

KELAPI int32_t slfrmdir(const char *path) {
  if (path == nullptr) return fail(SLF_E_BADARG);
  if (refused(SL_FAULT_FILE_OTHER)) return -1;
  return file_os().rmdir(path);
}

KELAPI void *slfdopen(const char *path) {
  if (path == nullptr) {
    fail(SLF_E_BADARG);
    return nullptr;
  }
  if (refused(SL_FAULT_FILE_OTHER)) return nullptr;
  return file_os().dir_open(path);
}

KELAPI int32_t slfdnext(void *dir, char *buf, size_t len) {
  if (dir == nullptr || buf == nullptr || len == 0) return fail(SLF_E_BADARG);
  for (;;) {
    int32_t n = file_os().dir_next(dir, buf, len);
    if (n <= 0) return n;
    if (buf[0] == '.' && (n == 1 || (n == 2 && buf[1] == '.'))) continue;
    return n;
  }
}

KELAPI int32_t slfdclose(void *dir) {
  if (dir == nullptr) return fail(SLF_E_BADARG);
  return file_os().dir_close(dir);
}

// ------------------------------------- current and temporary directories

KELAPI int32_t slgetcwd(char *buf, size_t len) {
  if (buf == nullptr || len == 0) return fail(SLF_E_BADARG);
  return file_os().cwd(buf, len);
}

KELAPI int32_t sltmpdir(char *buf, size_t len) {
  if (buf == nullptr || len == 0) return fail(SLF_E_BADARG);
  char d[4096];
  int32_t l = file_os().tmpdir(d, sizeof d);
  if (l < 0) return -1;
  // "/tmp/" and "/tmp" name one place; a root stays as it is.
  while (l > 1 && (d[l - 1] == '/' || d[l - 1] == '\\') && d[l - 2] != ':') l--;
  if (static_cast<size_t>(l) + 1 > len) return fail(SLF_E_BADARG);
  memcpy(buf, d, static_cast<size_t>(l));
  buf[l] = '\0';
  return l;
}

}  // extern "C"
