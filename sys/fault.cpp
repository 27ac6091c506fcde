// Fault-injection points (test builds only): see fault_impl.h and sl.h.
#include "sys/fault_impl.h"

#ifdef KEL_TEST_HOOKS

#include <atomic>

#include "sl.h"

namespace sl_internal {
namespace {

struct Point {
  std::atomic<int64_t> seen{0};
  std::atomic<int64_t> hits{0};
  std::atomic<int64_t> first{0};  // 0: disarmed
  std::atomic<int64_t> count{0};  // < 0: no end
};

Point g_points[SL_FAULT_MAX + 1];

bool window_hit(Point &p) noexcept {
  int64_t n = p.seen.fetch_add(1, std::memory_order_relaxed) + 1;
  int64_t first = p.first.load(std::memory_order_relaxed);
  if (first == 0 || n < first) return false;
  int64_t count = p.count.load(std::memory_order_relaxed);
  if (count >= 0 && n >= first + count) return false;
  p.hits.fetch_add(1, std::memory_order_relaxed);
  return true;
}

}  // namespace

bool fault_hit(int32_t point) noexcept {
  bool hit = window_hit(g_points[point]);
  // Memory points also feed the shared "any memory" point, so one number can
  // walk every allocation of an operation whichever kind it is.
  if (point == SL_FAULT_MEM || point == SL_FAULT_EXTENT) hit = window_hit(g_points[SL_FAULT_ANYMEM]) || hit;
  if (hit) slseterrno(SL_ERR_FAULT);
  return hit;
}

}  // namespace sl_internal

using sl_internal::g_points;

extern "C" {

int32_t slfaultarm(int32_t point, int64_t nth, int64_t count) {
  if (point < 1 || point > SL_FAULT_MAX || nth < 0) return -1;
  auto &p = g_points[point];
  p.first.store(0, std::memory_order_relaxed);
  p.seen.store(0, std::memory_order_relaxed);
  p.hits.store(0, std::memory_order_relaxed);
  p.count.store(count, std::memory_order_relaxed);
  p.first.store(nth, std::memory_order_relaxed);
  return 0;
}

int64_t slfaultseen(int32_t point) {
  if (point < 1 || point > SL_FAULT_MAX) return 0;
  return g_points[point].seen.load(std::memory_order_relaxed);
}

int64_t slfaulthits(int32_t point) {
  if (point < 1 || point > SL_FAULT_MAX) return 0;
  return g_points[point].hits.load(std::memory_order_relaxed);
}

void slfaultreset(void) {
  for (auto &p : g_points) {
    p.first.store(0, std::memory_order_relaxed);
    p.count.store(0, std::memory_order_relaxed);
    p.seen.store(0, std::memory_order_relaxed);
    p.hits.store(0, std::memory_order_relaxed);
  }
}

}  // extern "C"

#endif  // KEL_TEST_HOOKS
