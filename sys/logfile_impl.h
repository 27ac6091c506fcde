// logfile_impl.h - the plain file calls of the diagnostic log: appending
// writes, sizes, renames and sequential reads. Handles are int64_t (-1:
// none); failures leave the system error for slerrno.
#ifndef KEL_SYS_LOGFILE_IMPL_H
#define KEL_SYS_LOGFILE_IMPL_H

#include <cstddef>
#include <cstdint>

// Opens for appending, creating the file (mode 0644) when missing.
int64_t sllogopena(const char *path) noexcept;
// Opens for reading.
int64_t sllogopenr(const char *path) noexcept;
// Current size of an open file, or -1.
int64_t sllogsize(int64_t fd) noexcept;
// Writes all n bytes (one system call when the system allows): 0 / -1.
int32_t sllogwrite(int64_t fd, const void *buf, size_t n) noexcept;
// Reads up to n bytes: the count, 0 at the end, -1 on error.
int64_t sllogread(int64_t fd, void *buf, size_t n) noexcept;
void sllogclose(int64_t fd) noexcept;
// Renames (replacing the target): 0 / -1 (-1 also when from is missing).
int32_t sllogrename(const char *from, const char *to) noexcept;
// Removes a file: 0 / -1.
int32_t sllogremove(const char *path) noexcept;
// 1 when the path exists.
int32_t sllogexists(const char *path) noexcept;

#endif
