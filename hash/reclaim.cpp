// The reader records of the hash tables and the scans that changes make of
// them (see reclaim_impl.h).
//
// Sections: records; scans.
#include "hash/reclaim_impl.h"

#include "sl.h"

namespace lht_internal {

std::atomic<uint64_t> g_epoch{1};

namespace {

// ---------------------------------------------------------------- records

Reader g_readers[kMaxReaders];
// Records ever taken: the scans look at g_readers[0, g_high) only.
std::atomic<uint32_t> g_high{0};

// Set once this thread has given its record back: a read from a destructor
// that runs later reads under the mutex rather than take a record for ever.
thread_local bool tl_ended = false;

// Gives the record back when its thread ends. Touched only when a record is
// taken, so that the read path reads a plain pointer.
struct Detach {
  Reader *r = nullptr;
  ~Detach() {
    tl_ended = true;
    tl_reader = nullptr;
    if (r == nullptr) return;
    r->epoch.store(0, std::memory_order_release);
    r->taken.store(0, std::memory_order_release);
  }
};
thread_local Detach tl_detach;

bool take(Reader &r) noexcept {
  uint32_t free = 0;
  return r.taken.load(std::memory_order_relaxed) == 0 &&
         r.taken.compare_exchange_strong(free, 1, std::memory_order_acquire, std::memory_order_relaxed);
}

}  // namespace

Reader *reader_attach() noexcept {
  if (tl_ended) return nullptr;
  Reader *got = nullptr;
  uint32_t high = g_high.load(std::memory_order_seq_cst);
  for (uint32_t i = 0; i < high && got == nullptr; ++i)
    if (take(g_readers[i])) got = &g_readers[i];
  for (uint32_t i = high; got == nullptr && i < kMaxReaders; ++i) {
    if (!take(g_readers[i])) continue;
    // Past the high mark: claimed first, so that no other thread takes it,
    // then brought into the scans before this thread announces any read.
    got = &g_readers[i];
    uint32_t h = g_high.load(std::memory_order_seq_cst);
    while (h <= i && !g_high.compare_exchange_weak(h, i + 1, std::memory_order_seq_cst)) {
    }
  }
  if (got == nullptr) return nullptr;
  tl_detach.r = got;
  tl_reader = got;
  return got;
}

// ------------------------------------------------------------------ scans

namespace {

// Orders the change's stores before the scan's loads (see reclaim_impl.h).
// ThreadSanitizer does not model fences; the scans it must see ordered load
// the records acquire.
void scan_fence() noexcept {
#if defined(__SANITIZE_THREAD__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wtsan"
#endif
  std::atomic_thread_fence(std::memory_order_seq_cst);
#if defined(__SANITIZE_THREAD__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
}

}  // namespace

bool readers_idle(const Reader *ignore) noexcept {
  scan_fence();
  uint32_t high = g_high.load(std::memory_order_seq_cst);
  for (uint32_t i = 0; i < high; ++i)
    if (&g_readers[i] != ignore && g_readers[i].epoch.load(std::memory_order_seq_cst) != 0) return false;
  return true;
}

uint64_t oldest_reading_epoch() noexcept {
  scan_fence();
  uint64_t oldest = UINT64_MAX;
  uint32_t high = g_high.load(std::memory_order_seq_cst);
  for (uint32_t i = 0; i < high; ++i) {
    uint64_t e = g_readers[i].epoch.load(std::memory_order_seq_cst);
    if (e != 0 && e < oldest) oldest = e;
  }
  return oldest;
}

void wait_readers_past(uint64_t e, const Reader *ignore) noexcept {
  scan_fence();
  uint32_t high = g_high.load(std::memory_order_seq_cst);
  for (uint32_t i = 0; i < high; ++i) {
    if (&g_readers[i] == ignore) continue;
    for (;;) {
      uint64_t at = g_readers[i].epoch.load(std::memory_order_seq_cst);
      if (at == 0 || at > e) break;
      slyield();
    }
  }
}

void wait_for_readers() noexcept {
  const Reader *self = tl_reader;
  if (readers_idle(self)) return;
  wait_readers_past(epoch_advance(), self);
}

}  // namespace lht_internal
