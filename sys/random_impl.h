// random_impl.h - strong random bytes from the system.
//
// slrndbytes (sys/random.cpp) is what the library calls; it loops over the
// platform's entry, which may deliver fewer bytes than asked or be
// interrupted.
//
// Defined by sys/<platform>/random.cpp as kRandomOs. Test builds call it
// through g_random_os, which a test may point at a copy with the entry
// replaced (tests/support/sys_swap.h).
#ifndef KEL_SYS_RANDOM_IMPL_H
#define KEL_SYS_RANDOM_IMPL_H

#include <atomic>
#include <cstddef>
#include <cstdint>

// Fills buf with n bytes from the system's cryptographic generator, waiting
// for it to be seeded at boot. 0, or -1 with the system error set.
int32_t slrndbytes(void *buf, size_t n) noexcept;

namespace sl_internal {

struct RandomOps {
  // Up to n (> 0) random bytes into buf: the count (> 0), or -1.
  int64_t (*fill)(void *buf, size_t n);
};

extern const RandomOps kRandomOs;

#ifdef KEL_TEST_HOOKS
inline std::atomic<const RandomOps *> g_random_os{&kRandomOs};
inline const RandomOps &random_os() noexcept { return *g_random_os.load(std::memory_order_acquire); }
#else
inline const RandomOps &random_os() noexcept { return kRandomOs; }
#endif

}  // namespace sl_internal

#endif
