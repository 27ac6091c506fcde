// The contended half of critical sections: spin a little, then sleep on the
// lock word through the platform's word waiting. A sleeper marks the word 2
// so that whoever leaves the section wakes one sleeper; a woken thread marks
// it 2 again when it takes the section, since it cannot know whether others
// still sleep (one spare wake-up at worst). A sleep that ends early for no
// reason only costs another look at the word.
//
// Windows has no lock word: its sections are the system's (sys/win32).
#include "sys/cslock_impl.h"
#include "sys/thread_impl.h"

#ifndef _WIN32

namespace sl_internal {

namespace {

// Rounds of polling before sleeping: a heap operation holds its section for
// well under a microsecond, so a short wait usually ends without the kernel.
constexpr int kSpins = 100;

inline void cpu_relax() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

}  // namespace

void cs_enter_slow(csword *w) noexcept {
  for (int i = 0; i < kSpins; i++) {
    uint32_t expect = kCsFree;
    if (w->load(std::memory_order_relaxed) == kCsFree &&
        w->compare_exchange_weak(expect, kCsHeld, std::memory_order_acquire, std::memory_order_relaxed))
      return;
    cpu_relax();
  }
  while (w->exchange(kCsWaited, std::memory_order_acquire) != kCsFree) thread_os().word_wait(w, kCsWaited);
}

void cs_wake(csword *w) noexcept { thread_os().word_wake(w); }

}  // namespace sl_internal

#endif  // _WIN32
