// Clocks and sleeping on Windows (time_impl.h): the performance counter for
// the monotonic clock, the precise system time for the wall clock.
#include <windows.h>

#include "sys/time_impl.h"

namespace {

// The counter's frequency is fixed at boot.
uint64_t counter_hz() noexcept {
  static const uint64_t hz = [] {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return f.QuadPart > 0 ? static_cast<uint64_t>(f.QuadPart) : uint64_t{1};
  }();
  return hz;
}

uint64_t t_mono_ns() {
  LARGE_INTEGER c;
  QueryPerformanceCounter(&c);
  uint64_t ticks = static_cast<uint64_t>(c.QuadPart);
  uint64_t hz = counter_hz();
  // Whole seconds and the remainder apart, so that ticks * 10^9 never wraps.
  return ticks / hz * 1000000000ull + ticks % hz * 1000000000ull / hz;
}

// FILETIME counts 100 ns since 1601-01-01 UTC.
constexpr int64_t kUnixEpochIn100ns = 116444736000000000LL;

int64_t t_wall_us() {
  FILETIME ft;
  GetSystemTimePreciseAsFileTime(&ft);
  int64_t t = static_cast<int64_t>((static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime);
  return (t - kUnixEpochIn100ns) / 10;
}

void t_sleep_ms(uint32_t ms) { Sleep(ms == INFINITE ? INFINITE - 1 : ms); }

}  // namespace

namespace sl_internal {

const TimeOps kTimeOs = {
    .mono_ns = t_mono_ns,
    .wall_us = t_wall_us,
    .sleep_ms = t_sleep_ms,
};

}  // namespace sl_internal
