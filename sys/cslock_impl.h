// cslock_impl.h - the critical section's lock word and its uncontended path.
//
// A critical section (slcs) is a three-state lock word in the first bytes of
// its storage: 0 free, 1 held, 2 held and somebody may be asleep on it. Taking
// a free section is one compare-exchange and leaving one that nobody waits
// for is one exchange, both inline here so that hot callers of the library
// (the heap mutex) pay no call for them; only a thread that finds the section
// held, or a leaver that finds a sleeper, goes to the out-of-line part
// (cslock.cpp), which spins briefly and then sleeps on the word through the
// kernel. Every user of slcs goes through these functions, so the state of a
// section always means the same thing.
#ifndef KEL_SYS_CSLOCK_IMPL_H
#define KEL_SYS_CSLOCK_IMPL_H

#include <atomic>
#include <cstdint>

#include "sl.h"

namespace sl_internal {

using csword = std::atomic<uint32_t>;
static_assert(sizeof(csword) == 4 && csword::is_always_lock_free, "the lock word must be a plain 32-bit word");
static_assert(sizeof(csword) <= sizeof(slcs) && alignof(csword) <= alignof(slcs), "slcs cannot hold the lock word");

constexpr uint32_t kCsFree = 0;
constexpr uint32_t kCsHeld = 1;
constexpr uint32_t kCsWaited = 2;

inline csword *cs_word(slcs *cs) noexcept { return reinterpret_cast<csword *>(cs->opaque); }

// The contended halves (cslock.cpp).
void cs_enter_slow(csword *w) noexcept;
void cs_wake(csword *w) noexcept;

inline void cs_enter(slcs *cs) noexcept {
  csword *w = cs_word(cs);
  uint32_t expect = kCsFree;
  if (w->compare_exchange_strong(expect, kCsHeld, std::memory_order_acquire, std::memory_order_relaxed)) [[likely]]
    return;
  cs_enter_slow(w);
}

inline bool cs_try(slcs *cs) noexcept {
  uint32_t expect = kCsFree;
  return cs_word(cs)->compare_exchange_strong(expect, kCsHeld, std::memory_order_acquire, std::memory_order_relaxed);
}

inline void cs_leave(slcs *cs) noexcept {
  csword *w = cs_word(cs);
  if (w->exchange(kCsFree, std::memory_order_release) == kCsWaited) [[unlikely]]
    cs_wake(w);
}

}  // namespace sl_internal

#endif
