// random_impl.h - the system's source of strong random bytes.
#ifndef KEL_SYS_RANDOM_IMPL_H
#define KEL_SYS_RANDOM_IMPL_H

#include <cstddef>
#include <cstdint>

// Fills buf with n bytes from the kernel's cryptographic generator, waiting
// for it to be seeded at boot. 0, or -1 with the system error set.
int32_t slrndbytes(void *buf, size_t n) noexcept;

#endif
