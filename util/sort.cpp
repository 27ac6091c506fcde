// Heapsort and binary search over arrays of fixed-size elements.
//
// The heap is built by insertion (each new element sifted up) and then taken
// apart by moving the root to the end and sifting the new root down, taking
// the right child when the two children compare equal. Every exchange is a
// full swap of two array slots, so comparisons only ever see addresses inside
// the array. The order in which equal elements end up depends only on that
// sequence of comparisons and swaps; the fixed-size exchanges below do the
// same swaps as slmeswap, only without the per-call length loop, so results
// are identical whichever path is taken.
#include "lsr.h"

#include <cstring>

#include "sl.h"

namespace lsr_internal {
namespace {

// Exchange of two slots whose size is known at compile time.
template <size_t N>
struct FixedSwap {
  void operator()(unsigned char *a, unsigned char *b) const noexcept {
    unsigned char t[N];
    std::memcpy(t, a, N);
    std::memcpy(a, b, N);
    std::memcpy(b, t, N);
  }
};

struct AnySwap {
  size_t n;
  void operator()(unsigned char *a, unsigned char *b) const noexcept { slmeswap(a, b, n); }
};

// The two comparison shapes, called the same way by the sort.
struct Plain {
  lsrcmp f;
  int32_t operator()(const void *a, const void *b) const { return f(a, b); }
};
struct WithContext {
  lsrcmpx f;
  void *ctx;
  int32_t operator()(const void *a, const void *b) const { return f(ctx, a, b); }
};

// Positions are 1-based: slot i lives at base + (i - 1) * size.
template <class Cmp, class Swap>
void heapsort(unsigned char *base, size_t count, size_t size, Cmp cmp, Swap swap) {
  auto at = [base, size](size_t i) { return base + (i - 1) * size; };

  // Build a max-heap by sifting each new element up.
  for (size_t i = 2; i <= count; ++i) {
    size_t pos = i;
    while (pos != 1) {
      size_t parent = pos / 2;
      if (cmp(at(pos), at(parent)) <= 0) break;
      swap(at(pos), at(parent));
      pos = parent;
    }
  }

  // Move the largest to the end of the heap and restore the heap below it.
  for (size_t heap = count; heap > 1;) {
    swap(at(1), at(heap));
    --heap;
    if (heap == 1) break;
    size_t k = 1;
    while (2 * k <= heap) {
      size_t child = 2 * k;
      if (child + 1 <= heap && cmp(at(child), at(child + 1)) <= 0) ++child;
      if (cmp(at(child), at(k)) <= 0) break;
      swap(at(child), at(k));
      k = child;
    }
  }
}

template <class Cmp>
void sort_dispatch(void *base, size_t count, size_t size, Cmp cmp) {
  if (count < 2 || size == 0) return;
  auto *b = static_cast<unsigned char *>(base);
  switch (size) {
    case 1: return heapsort(b, count, size, cmp, FixedSwap<1>{});
    case 2: return heapsort(b, count, size, cmp, FixedSwap<2>{});
    case 4: return heapsort(b, count, size, cmp, FixedSwap<4>{});
    case 8: return heapsort(b, count, size, cmp, FixedSwap<8>{});
    case 16: return heapsort(b, count, size, cmp, FixedSwap<16>{});
    case 24: return heapsort(b, count, size, cmp, FixedSwap<24>{});
    case 32: return heapsort(b, count, size, cmp, FixedSwap<32>{});
    default: return heapsort(b, count, size, cmp, AnySwap{size});
  }
}

}  // namespace
}  // namespace lsr_internal

extern "C" {

KELAPI void lsrsrt(void *base, size_t count, size_t size, lsrcmp compare) {
  if (compare == nullptr) return;
  lsr_internal::sort_dispatch(base, count, size, lsr_internal::Plain{compare});
}

KELAPI void lsrsrx(void *base, size_t count, size_t size, lsrcmpx compare, void *context) {
  if (compare == nullptr) return;
  lsr_internal::sort_dispatch(base, count, size, lsr_internal::WithContext{compare, context});
}

KELAPI void *lsrbsx(const void *key, const void *base, size_t count, size_t size, lsrcmpx compare,
                    void *context) {
  if (compare == nullptr) return nullptr;
  auto *low = static_cast<const unsigned char *>(base);
  for (size_t n = count; n != 0;) {
    const unsigned char *probe = low + (n / 2) * size;
    int32_t r = compare(context, key, probe);
    if (r == 0) return const_cast<unsigned char *>(probe);
    if (r > 0) {
      low = probe + size;
      n = (n - 1) / 2;
    } else {
      n /= 2;
    }
  }
  return nullptr;
}

}  // extern "C"
