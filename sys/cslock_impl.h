// cslock_impl.h - the critical section: what an slcs holds, and its
// uncontended path.
//
// On Windows an slcs holds the system's own CRITICAL_SECTION, and the
// functions below are thin calls into sys/win32/thread.cpp: the system's
// section already spins before it sleeps and is what debuggers and the
// system's wait-chain tools understand.
//
// Elsewhere a critical section is a three-state lock word in the first
// bytes of its storage: 0 free, 1 held, 2 held and somebody may be asleep on
// it. Taking a free section is one compare-exchange and leaving one that
// nobody waits for is one exchange, both inline here so that hot callers of
// the library (the heap mutex) pay no call for them; only a thread that finds
// the section held, or a leaver that finds a sleeper, goes to the out-of-line
// part (cslock.cpp), which spins briefly and then sleeps on the word through
// the platform's word waiting (thread_impl.h). Every user of slcs goes
// through these functions, so the state of a section always means the same
// thing.
//
// ThreadSanitizer cannot see a lock in atomic operations on a word: it would
// report races on the data a section guards and miss lock-order inversions.
// Sanitizer builds therefore tell it what each operation is (KEL_TSAN_LOCKS);
// other builds compile the annotations to nothing.
#ifndef KEL_SYS_CSLOCK_IMPL_H
#define KEL_SYS_CSLOCK_IMPL_H

#include <atomic>
#include <cstdint>
#include <new>

#include "sl.h"

#if defined(__SANITIZE_THREAD__)
#define KEL_TSAN_LOCKS 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KEL_TSAN_LOCKS 1
#endif
#endif

#ifdef KEL_TSAN_LOCKS
#include <sanitizer/tsan_interface.h>
#define KEL_TSAN_MUTEX(op, ...) __tsan_mutex_##op(__VA_ARGS__)
#else
#define KEL_TSAN_MUTEX(op, ...) ((void)0)
#endif

#ifdef _WIN32

namespace sl_internal {

// sys/win32/thread.cpp, over the CRITICAL_SECTION in the slcs's storage.
void cs_init(slcs *cs) noexcept;
void cs_enter(slcs *cs) noexcept;
// Not recursive, as on every platform: the holder's own try fails.
bool cs_try(slcs *cs) noexcept;
void cs_leave(slcs *cs) noexcept;
// Ends a free section (true); a held one is left as it is (false).
bool cs_destroy(slcs *cs) noexcept;

}  // namespace sl_internal

#else

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

inline void cs_init(slcs *cs) noexcept {
  new (cs_word(cs)) csword(kCsFree);
  KEL_TSAN_MUTEX(create, cs_word(cs), 0);
}

inline void cs_enter(slcs *cs) noexcept {
  csword *w = cs_word(cs);
  KEL_TSAN_MUTEX(pre_lock, w, 0);
  uint32_t expect = kCsFree;
  if (!w->compare_exchange_strong(expect, kCsHeld, std::memory_order_acquire, std::memory_order_relaxed)) [[unlikely]]
    cs_enter_slow(w);
  KEL_TSAN_MUTEX(post_lock, w, 0, 0);
}

inline bool cs_try(slcs *cs) noexcept {
  csword *w = cs_word(cs);
  KEL_TSAN_MUTEX(pre_lock, w, __tsan_mutex_try_lock);
  uint32_t expect = kCsFree;
  bool got = w->compare_exchange_strong(expect, kCsHeld, std::memory_order_acquire, std::memory_order_relaxed);
  KEL_TSAN_MUTEX(post_lock, w, got ? __tsan_mutex_try_lock : __tsan_mutex_try_lock | __tsan_mutex_try_lock_failed, 0);
  return got;
}

inline void cs_leave(slcs *cs) noexcept {
  csword *w = cs_word(cs);
  KEL_TSAN_MUTEX(pre_unlock, w, 0);
  if (w->exchange(kCsFree, std::memory_order_release) == kCsWaited) [[unlikely]]
    cs_wake(w);
  KEL_TSAN_MUTEX(post_unlock, w, 0);
}

// Ends a free section (true); a held one is left as it is (false).
inline bool cs_destroy(slcs *cs) noexcept {
  csword *w = cs_word(cs);
  if (w->load(std::memory_order_relaxed) != kCsFree) return false;
  KEL_TSAN_MUTEX(destroy, w, 0);
  return true;
}

}  // namespace sl_internal

#endif  // _WIN32

#endif
