// time_impl.h - clocks and sleeping: the platform's table.
//
// The exported functions (sys/time.cpp) are thin; sleeping is a loop that
// sleeps again for what is left until the monotonic clock has passed the
// deadline, since the platform's sleep may end early (a signal).
//
// Defined by sys/<platform>/time.cpp as kTimeOs. Test builds call it through
// g_time_os, which a test may point at a copy with entries replaced
// (tests/support/sys_swap.h).
#ifndef KEL_SYS_TIME_IMPL_H
#define KEL_SYS_TIME_IMPL_H

#include <atomic>
#include <cstdint>

namespace sl_internal {

struct TimeOps {
  // Nanoseconds on a clock that never goes back (arbitrary origin).
  uint64_t (*mono_ns)(void);
  // Microseconds since 1970-01-01 00:00:00 UTC.
  int64_t (*wall_us)(void);
  // Sleeps about `ms` milliseconds; may end early.
  void (*sleep_ms)(uint32_t ms);
};

extern const TimeOps kTimeOs;

#ifdef KEL_TEST_HOOKS
inline std::atomic<const TimeOps *> g_time_os{&kTimeOs};
inline const TimeOps &time_os() noexcept { return *g_time_os.load(std::memory_order_acquire); }
#else
inline const TimeOps &time_os() noexcept { return kTimeOs; }
#endif

}  // namespace sl_internal

#endif
