// Heapsort and binary search, checked against std::sort / std::equal_range
// as oracles and, for the order of equal elements, against a plain
// reference heapsort written here with byte-by-byte exchanges.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "lsr.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Elements are compared by a key in their first one or two bytes; the rest
// is payload that makes the order of equal keys visible.
unsigned key_of(const void *p, size_t size) {
  auto *b = static_cast<const unsigned char *>(p);
  return size == 1 ? b[0] : unsigned(b[0]) | unsigned(b[1]) << 8;
}

// What every comparison checks and counts.
struct Ctx {
  size_t size = 0;
  const unsigned char *lo = nullptr, *hi = nullptr;
  long calls = 0;
  bool descending = false;
  bool stray = false;  // a pointer outside the array or between elements
  void check(const void *p) {
    auto *b = static_cast<const unsigned char *>(p);
    if (b < lo || b >= hi || (b - lo) % static_cast<ptrdiff_t>(size) != 0) stray = true;
  }
};

int32_t cmp_keys(Ctx *c, const void *a, const void *b) {
  c->check(a);
  c->check(b);
  ++c->calls;
  unsigned x = key_of(a, c->size), y = key_of(b, c->size);
  if (c->descending) std::swap(x, y);
  return x < y ? -1 : x > y ? 1 : 0;
}

Ctx *g_ctx;  // for the context-free entry point (tests run on one thread)
int32_t cmp_plain(const void *a, const void *b) { return cmp_keys(g_ctx, a, b); }
int32_t cmp_ctx(void *ctx, const void *a, const void *b) { return cmp_keys(static_cast<Ctx *>(ctx), a, b); }

// The plain algorithm: 1-based heap built by sifting up, taken apart by
// sifting down with the right child taken on equal children; one byte at a
// time for every exchange.
void reference_heapsort(unsigned char *base, size_t n, size_t size, Ctx *ctx) {
  auto at = [&](size_t i) { return base + (i - 1) * size; };
  auto swap = [&](size_t i, size_t j) {
    for (size_t k = 0; k < size; ++k) std::swap(at(i)[k], at(j)[k]);
  };
  if (n < 2) return;
  for (size_t i = 2; i <= n; ++i)
    for (size_t p = i; p > 1 && cmp_keys(ctx, at(p), at(p / 2)) > 0; p /= 2) swap(p, p / 2);
  for (size_t m = n; m > 1;) {
    swap(1, m--);
    size_t k = 1;
    while (2 * k <= m) {
      size_t c = 2 * k;
      if (c + 1 <= m && cmp_keys(ctx, at(c), at(c + 1)) <= 0) ++c;
      if (cmp_keys(ctx, at(c), at(k)) <= 0) break;
      swap(c, k);
      k = c;
    }
  }
}

enum class Shape { Random, FewKeys, Sorted, Reversed, AllEqual, OrganPipe };

Bytes make(size_t n, size_t size, Shape shape, std::mt19937 &rng) {
  Bytes v(n * size);
  for (auto &c : v) c = static_cast<unsigned char>(rng());
  unsigned limit = size == 1 ? 256 : 65536;
  for (size_t i = 0; i < n; ++i) {
    unsigned k = 0;
    switch (shape) {
      case Shape::Random: k = rng() % limit; break;
      case Shape::FewKeys: k = rng() % 5; break;
      case Shape::Sorted: k = static_cast<unsigned>(i * (limit - 1) / std::max<size_t>(n, 1)); break;
      case Shape::Reversed: k = static_cast<unsigned>((n - i) * (limit - 1) / std::max<size_t>(n, 1)); break;
      case Shape::AllEqual: k = 7; break;
      case Shape::OrganPipe: k = static_cast<unsigned>(std::min(i, n - i) % limit); break;
    }
    v[i * size] = static_cast<unsigned char>(k);
    if (size > 1) v[i * size + 1] = static_cast<unsigned char>(k >> 8);
  }
  return v;
}

std::vector<unsigned> keys(const Bytes &v, size_t size) {
  std::vector<unsigned> k;
  for (size_t i = 0; i < v.size(); i += size) k.push_back(key_of(&v[i], size));
  return k;
}

std::vector<std::string> elements(const Bytes &v, size_t size) {
  std::vector<std::string> e;
  for (size_t i = 0; i < v.size(); i += size) e.emplace_back(reinterpret_cast<const char *>(&v[i]), size);
  std::sort(e.begin(), e.end());
  return e;
}

Ctx ctx_for(Bytes &v, size_t size) {
  Ctx c;
  c.size = size;
  c.lo = v.data();
  c.hi = v.data() + v.size();
  return c;
}

TEST(Sort, MatchesStdSortAndThePlainAlgorithm) {
  const size_t sizes[] = {1, 2, 3, 4, 7, 8, 12, 16, 24, 32, 33, 100};
  const size_t counts[] = {2, 3, 5, 16, 17, 100, 777, 2048};
  const Shape shapes[] = {Shape::Random, Shape::FewKeys, Shape::Sorted, Shape::Reversed, Shape::AllEqual,
                          Shape::OrganPipe};
  std::mt19937 rng(20261121);
  for (size_t size : sizes)
    for (size_t n : counts)
      for (Shape shape : shapes) {
        SCOPED_TRACE(testing::Message() << "size " << size << " count " << n << " shape " << int(shape));
        Bytes in = make(n, size, shape, rng);

        Bytes ours = in;
        Ctx c = ctx_for(ours, size);
        g_ctx = &c;
        lsrsrt(ours.data(), n, size, cmp_plain);
        ASSERT_FALSE(c.stray);

        std::vector<unsigned> want = keys(in, size);
        std::sort(want.begin(), want.end());
        ASSERT_EQ(keys(ours, size), want);
        ASSERT_EQ(elements(ours, size), elements(in, size)) << "elements lost or mangled";

        // Equal keys end in the order of the plain algorithm, exactly.
        Bytes ref = in;
        Ctx rc = ctx_for(ref, size);
        reference_heapsort(ref.data(), n, size, &rc);
        ASSERT_EQ(ours, ref);
        ASSERT_EQ(c.calls, rc.calls);

        // The context entry point does the same.
        Bytes viax = in;
        Ctx xc = ctx_for(viax, size);
        lsrsrx(viax.data(), n, size, cmp_ctx, &xc);
        ASSERT_EQ(viax, ours);
        ASSERT_FALSE(xc.stray);
      }
}

TEST(Sort, ShortArraysAreNotTouched) {
  Bytes one = {9, 8, 7};
  Bytes saved = one;
  Ctx c = ctx_for(one, 3);
  g_ctx = &c;
  lsrsrt(one.data(), 1, 3, cmp_plain);
  lsrsrt(one.data(), 0, 3, cmp_plain);
  lsrsrt(nullptr, 0, 3, cmp_plain);
  lsrsrx(one.data(), 1, 3, cmp_ctx, &c);
  lsrsrx(nullptr, 0, 3, cmp_ctx, &c);
  EXPECT_EQ(one, saved);
  EXPECT_EQ(c.calls, 0);

  // Two elements: one comparison decides, a swap only when out of order.
  struct Case {
    Bytes in, out;
  } cases[] = {{{1, 2}, {1, 2}}, {{2, 1}, {1, 2}}, {{5, 5}, {5, 5}}};
  for (auto &k : cases) {
    Ctx c1 = ctx_for(k.in, 1);
    lsrsrx(k.in.data(), 2, 1, cmp_ctx, &c1);
    EXPECT_EQ(k.in, k.out);
  }
}

// ------------------------------------------------------------ binary search

struct Rec {
  int32_t key;
  char pad[9];
};

// The key is an int, the elements are records: the search must call
// compare(context, key, element) in that order.
int32_t cmp_key_rec(void *ctx, const void *key, const void *elem) {
  ++*static_cast<long *>(ctx);
  int32_t k = *static_cast<const int32_t *>(key);
  int32_t e = static_cast<const Rec *>(elem)->key;
  return k < e ? -1 : k > e ? 1 : 0;
}

TEST(BinarySearch, FindsPresentKeysAndOnlyThem) {
  std::mt19937 rng(3);
  for (size_t n : {1u, 2u, 3u, 4u, 7u, 8u, 31u, 64u, 1000u}) {
    SCOPED_TRACE(n);
    // Keys 0, 2, 4 ...: every odd number and the two ends are absent.
    std::vector<Rec> a(n);
    for (size_t i = 0; i < n; ++i) a[i] = Rec{static_cast<int32_t>(2 * i), {}};
    long calls = 0;
    for (int32_t k = -3; k <= static_cast<int32_t>(2 * n + 2); ++k) {
      auto *got = static_cast<Rec *>(lsrbsx(&k, a.data(), n, sizeof(Rec), cmp_key_rec, &calls));
      bool present = k >= 0 && k % 2 == 0 && k < static_cast<int32_t>(2 * n);
      if (present) {
        ASSERT_NE(got, nullptr) << k;
        EXPECT_EQ(got, &a[k / 2]);
      } else {
        EXPECT_EQ(got, nullptr) << k;
      }
    }
    // Logarithmic: no more than floor(log2 n) + 1 probes per search.
    long searches = 2 * static_cast<long>(n) + 6;
    EXPECT_LE(calls, searches * (static_cast<long>(std::log2(double(n))) + 1));
  }
  long calls = 0;
  int32_t k = 0;
  Rec r{0, {}};
  EXPECT_EQ(lsrbsx(&k, &r, 0, sizeof r, cmp_key_rec, &calls), nullptr);
  EXPECT_EQ(lsrbsx(&k, nullptr, 0, sizeof r, cmp_key_rec, &calls), nullptr);
  EXPECT_EQ(calls, 0);
}

TEST(BinarySearch, DuplicatesGiveSomeEqualElement) {
  std::mt19937 rng(17);
  for (int trial = 0; trial < 200; ++trial) {
    size_t n = 1 + rng() % 60;
    std::vector<Rec> a(n);
    for (auto &r : a) r = Rec{static_cast<int32_t>(rng() % 8), {}};
    std::sort(a.begin(), a.end(), [](const Rec &x, const Rec &y) { return x.key < y.key; });
    long calls = 0;
    for (int32_t k = -1; k <= 8; ++k) {
      auto range = std::equal_range(a.begin(), a.end(), Rec{k, {}},
                                    [](const Rec &x, const Rec &y) { return x.key < y.key; });
      auto *got = static_cast<Rec *>(lsrbsx(&k, a.data(), n, sizeof(Rec), cmp_key_rec, &calls));
      if (range.first == range.second) {
        EXPECT_EQ(got, nullptr);
      } else {
        ASSERT_NE(got, nullptr);
        EXPECT_TRUE(got >= &*range.first && got < a.data() + (range.second - a.begin())) << k;
      }
    }
  }
  // Five equal elements: the first probe, in the middle, already matches.
  std::vector<Rec> same(5, Rec{4, {}});
  long calls = 0;
  int32_t k = 4;
  EXPECT_EQ(lsrbsx(&k, same.data(), 5, sizeof(Rec), cmp_key_rec, &calls), &same[2]);
  EXPECT_EQ(calls, 1);
}

}  // namespace
