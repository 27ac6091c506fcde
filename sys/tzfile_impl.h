// tzfile_impl.h - reading the time-zone image file (system layer, internal).
#ifndef KEL_SYS_TZFILE_IMPL_H
#define KEL_SYS_TZFILE_IMPL_H

#include <cstddef>
#include <cstdint>

namespace sl_internal {

// Reads at most `max` bytes of the file at `path` into a new block of the
// system allocator (ss_mem_alc; the caller frees it with ss_mem_fre).
// Returns 0 with *data and *len set; -1 when the file cannot be opened or
// read; -2 when memory runs out. *data is null on failure.
int32_t tz_read_file(const char *path, size_t max, uint8_t **data, size_t *len);

}  // namespace sl_internal

#endif
