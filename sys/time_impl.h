// time_impl.h - clocks and sleeping: the platform's table.
//
// The exported functions (sys/time.cpp) are thin; sleeping is a loop that
// sleeps again for what is left until the monotonic clock has passed the
// deadline, since the platform's sleep may end early (a signal).
//
// Defined by sys/<platform>/time.cpp as kTimeOs; the portable part calls it
// through time_os() (table_impl.h), which test builds can redirect.
#ifndef KEL_SYS_TIME_IMPL_H
#define KEL_SYS_TIME_IMPL_H

#include <cstdint>

#include "sys/table_impl.h"

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

KEL_SYS_TABLE(TimeOps, time, kTimeOs)

}  // namespace sl_internal

#endif
