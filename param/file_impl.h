// file_impl.h - the file access of the parameter manager, over the system
// layer's file primitives: whole-file reads, writes of dumps, and the
// standard output for help listings.
#ifndef KEL_PARAM_FILE_IMPL_H
#define KEL_PARAM_FILE_IMPL_H

#include <cstddef>
#include <cstdint>

namespace lrm_file {

// Allocator and release of the reader's blocks (the caller's heap).
using allocfn = void *(*)(void *arg, size_t size);
using freefn = void (*)(void *arg, void *block);

// Reads the whole file `path`, at most `limit` bytes, into a new block from
// `alloc` with a NUL after the last byte. 0 on success (*data, *len set); 1
// when the file cannot be opened, 2 when reading fails, 3 when `alloc`
// fails, 4 when the file holds more than `limit` bytes; *syserr receives the
// system error number for 1 and 2. Nothing stays allocated on failure.
int32_t read_file(const char *path, size_t limit, allocfn alloc, freefn release, void *arg, char **data, size_t *len,
                  int32_t *syserr);

// An open output file for dumps.
struct outfile;
// Creates or truncates `path`; null with *syserr set on failure.
outfile *create_file(const char *path, int32_t *syserr);
// Writes len bytes; 0 / -1 (the error is remembered and given by close_file).
int32_t write_file(outfile *f, const char *data, size_t len);
// Flushes and closes; 0, or the first system error met.
int32_t close_file(outfile *f);

// Writes to the process's standard output (help listings).
void write_stdout(const char *data, size_t len);

}  // namespace lrm_file

#endif
