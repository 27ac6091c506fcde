// random_impl.h - strong random bytes from the system.
//
// slrndbytes (sys/random.cpp) is what the library calls; it loops over the
// platform's entry, which may deliver fewer bytes than asked or be
// interrupted.
//
// Defined by sys/<platform>/random.cpp as kRandomOs; the portable part calls it
// through random_os() (table_impl.h), which test builds can redirect.
#ifndef KEL_SYS_RANDOM_IMPL_H
#define KEL_SYS_RANDOM_IMPL_H

#include <cstddef>
#include <cstdint>

#include "sys/table_impl.h"

// Fills buf with n bytes from the system's cryptographic generator, waiting
// for it to be seeded at boot. 0, or -1 with the system error set.
int32_t slrndbytes(void *buf, size_t n) noexcept;

namespace sl_internal {

struct RandomOps {
  // Up to n (> 0) random bytes into buf: the count (> 0), or -1.
  int64_t (*fill)(void *buf, size_t n);
};

extern const RandomOps kRandomOs;

KEL_SYS_TABLE(RandomOps, random, kRandomOs)

}  // namespace sl_internal

#endif
