// tz_load_impl.h - the uncached image load behind ltzGetImage, for tests.
#ifndef KEL_DATETIME_TZ_LOAD_IMPL_H
#define KEL_DATETIME_TZ_LOAD_IMPL_H

#include <cstdint>

namespace ltz_internal {

// Reads and checks the image at `path`. 0 with *image set to a new block of
// the system allocator (freed with ss_mem_fre); else LTZ_ERR_NOTFOUND (cannot
// read), LTZ_ERR_IMAGE (not an image), LTZ_ERR_NOMEM; *image is then null.
int32_t load_image(const char *path, const uint8_t **image);

}  // namespace ltz_internal

#endif
