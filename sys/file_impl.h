// file_impl.h - files and directories: the platform's table.
//
// The slf* functions of lfi.h (sys/file.cpp) check their arguments, count
// their fault points and loop; the platform does one system call per entry.
// An entry that fails returns -1 (null for pointers) and leaves the reason
// for slerrno(); an entry interrupted before it did anything fails with
// SL_ERR_INTR and is called again. Handles are the platform's file handles
// in an int64_t, -1 for none: only the platform folder knows what they are.
//
// Defined by sys/<platform>/file.cpp as kFileOs; the portable part calls it
// through file_os() (table_impl.h), which test builds can redirect.
#ifndef KEL_SYS_FILE_IMPL_H
#define KEL_SYS_FILE_IMPL_H

#include <cstddef>
#include <cstdint>

#include "lfi.h"
#include "sys/table_impl.h"

namespace sl_internal {

struct FileOps {
  // ------------------------------------------------------------ open files
  // Opens path with SLF_* flags (at least one of SLF_READ, SLF_WRITE); new
  // files get the process's default permissions; a directory is refused.
  int32_t (*open)(const char *path, uint32_t flags, int64_t *handle);
  // A new unnamed file for reading and writing in directory dir (given),
  // gone when it is closed.
  int32_t (*temp)(const char *dir, int64_t *handle);
  // The handle of standard input (0), output (1) or error (2).
  int64_t (*stdio)(int32_t which);
  // Closes; the handle is gone whatever the result.
  int32_t (*close)(int64_t handle);
  // One transfer at the current position: the count moved (n > 0: less than
  // n is allowed, a read of 0 is the end of the file) or -1.
  int64_t (*read)(int64_t handle, void *buf, size_t n);
  int64_t (*write)(int64_t handle, const void *buf, size_t n);
  // The new position from the start (whence: SLF_SEEK_*), or -1.
  int64_t (*seek)(int64_t handle, int64_t offset, int32_t whence);
  // The file's data to the medium / the file's length set.
  int32_t (*sync)(int64_t handle);
  int32_t (*truncate)(int64_t handle, int64_t size);
  // ----------------------------------------------------- names and details
  int32_t (*stat)(const char *path, slfinfo *info);
  int32_t (*fstat)(int64_t handle, slfinfo *info);
  int32_t (*remove)(const char *path);
  int32_t (*rename)(const char *from, const char *to);
  int32_t (*mkdir)(const char *path);
  int32_t (*rmdir)(const char *path);
  // ----------------------------------------------------------- directories
  // A cursor over a directory; next copies the next name, "." and ".."
  // included, into buf and returns its length, 0 after the last, -1 on
  // failure (a name longer than len - 1 included).
  void *(*dir_open)(const char *path);
  int32_t (*dir_next)(void *dir, char *buf, size_t len);
  int32_t (*dir_close)(void *dir);
  // The current directory / the system's temporary directory (possibly with
  // a trailing separator) into buf: its length or -1.
  int32_t (*cwd)(char *buf, size_t len);
  int32_t (*tmpdir)(char *buf, size_t len);
};

extern const FileOps kFileOs;

KEL_SYS_TABLE(FileOps, file, kFileOs)

}  // namespace sl_internal

#endif
