// Strong random bytes on Linux (random_impl.h): getrandom, which blocks
// until the kernel's generator is seeded.
#include <sys/random.h>

#include "sys/random_impl.h"

namespace {

int64_t r_fill(void *buf, size_t n) { return getrandom(buf, n, 0); }

}  // namespace

namespace sl_internal {

const RandomOps kRandomOs = {
    .fill = r_fill,
};

}  // namespace sl_internal
