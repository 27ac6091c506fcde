// Clocks and sleeping on POSIX (time_impl.h).
#include <time.h>

#include "sys/time_impl.h"

namespace {

uint64_t t_mono_ns() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

int64_t t_wall_us() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

void t_sleep_ms(uint32_t ms) {
  timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  nanosleep(&ts, nullptr);
}

}  // namespace

namespace sl_internal {

const TimeOps kTimeOs = {
    .mono_ns = t_mono_ns,
    .wall_us = t_wall_us,
    .sleep_ms = t_sleep_ms,
};

}  // namespace sl_internal
