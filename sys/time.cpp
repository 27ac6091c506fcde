// Clocks, sleeping and process exit.
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "sl.h"

extern "C" {

KELAPI uint64_t slmonons(void) {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

KELAPI int64_t slwallus(void) {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

KELAPI void slsleepms(uint32_t ms) {
  timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  // Resume after signals until the whole time has passed.
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

KELAPI void slzexit(int32_t status) { _exit(status); }

}  // extern "C"
