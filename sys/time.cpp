// Clocks and sleeping (sl.h), over the platform's table (time_impl.h).
#include "sl.h"
#include "sys/time_impl.h"

using sl_internal::time_os;

extern "C" {

KELAPI uint64_t slmonons(void) { return time_os().mono_ns(); }

KELAPI int64_t slwallus(void) { return time_os().wall_us(); }

KELAPI void slsleepms(uint32_t ms) {
  // Whatever cuts a sleep short, the caller gets its whole time.
  uint64_t end = slmonons() + uint64_t{ms} * 1000000u;
  for (uint64_t now = slmonons(); now < end; now = slmonons())
    time_os().sleep_ms(static_cast<uint32_t>((end - now + 999999u) / 1000000u));
}

}  // extern "C"
