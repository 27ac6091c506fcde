// lsrsrt against qsort and std::make_heap + std::sort_heap on the same data:
// 4-byte ints and 32-byte records, 1e3 to 1e6 elements. Every iteration
// copies the unsorted input back first (the same copy for every contender).
// After the usual output a table gives the ratio ours / peer per size; below
// 1 means lsrsrt is faster.
//
// "heap" compares through an inlined lambda, as a C++ caller would write it;
// "heap_fnptr" calls the same C comparison function as lsrsrt and qsort, which
// isolates the cost of the algorithm from the cost of the indirect call.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "lsr.h"
#include "bench/support/ratio.h"

namespace {

struct Rec32 {
  uint64_t key;
  char payload[24];
};
static_assert(sizeof(Rec32) == 32);

int32_t cmp_int(const void *a, const void *b) {
  int x = *static_cast<const int *>(a), y = *static_cast<const int *>(b);
  return (x > y) - (x < y);
}
int cmp_int_q(const void *a, const void *b) { return cmp_int(a, b); }

int32_t cmp_rec(const void *a, const void *b) {
  uint64_t x = static_cast<const Rec32 *>(a)->key, y = static_cast<const Rec32 *>(b)->key;
  return (x > y) - (x < y);
}
int cmp_rec_q(const void *a, const void *b) { return cmp_rec(a, b); }

template <class T>
std::vector<T> input(size_t n);

template <>
std::vector<int> input<int>(size_t n) {
  std::mt19937 rng(42);
  std::vector<int> v(n);
  for (auto &x : v) x = static_cast<int>(rng());
  return v;
}

template <>
std::vector<Rec32> input<Rec32>(size_t n) {
  std::mt19937_64 rng(42);
  std::vector<Rec32> v(n);
  for (auto &r : v) {
    r.key = rng() % (n * 4);  // some duplicates
    std::memset(r.payload, static_cast<int>(r.key), sizeof r.payload);
  }
  return v;
}

int32_t (*cmp_of(int *))(const void *, const void *) { return cmp_int; }
int32_t (*cmp_of(Rec32 *))(const void *, const void *) { return cmp_rec; }
int (*qcmp_of(int *))(const void *, const void *) { return cmp_int_q; }
int (*qcmp_of(Rec32 *))(const void *, const void *) { return cmp_rec_q; }
bool less(const int &a, const int &b) { return a < b; }
bool less(const Rec32 &a, const Rec32 &b) { return a.key < b.key; }

enum class Impl { Ours, Qsort, Heap, HeapFnptr };

template <class T>
void run(benchmark::State &state, Impl impl) {
  const size_t n = static_cast<size_t>(state.range(0));
  const std::vector<T> src = input<T>(n);
  std::vector<T> v(n);
  for (auto _ : state) {
    std::memcpy(v.data(), src.data(), n * sizeof(T));
    switch (impl) {
      case Impl::Ours: lsrsrt(v.data(), n, sizeof(T), cmp_of(static_cast<T *>(nullptr))); break;
      case Impl::Qsort: std::qsort(v.data(), n, sizeof(T), qcmp_of(static_cast<T *>(nullptr))); break;
      case Impl::Heap:
        std::make_heap(v.begin(), v.end(), [](const T &a, const T &b) { return less(a, b); });
        std::sort_heap(v.begin(), v.end(), [](const T &a, const T &b) { return less(a, b); });
        break;
      case Impl::HeapFnptr: {
        auto f = cmp_of(static_cast<T *>(nullptr));
        auto lt = [f](const T &a, const T &b) { return f(&a, &b) < 0; };
        std::make_heap(v.begin(), v.end(), lt);
        std::sort_heap(v.begin(), v.end(), lt);
        break;
      }
    }
    benchmark::DoNotOptimize(v.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
}

const char *const kImpl[] = {"lsrsrt", "qsort", "heap", "heap_fnptr"};
const char *const kGroups[] = {"sort_int", "sort_rec32"};
const int64_t kSizes[] = {1000, 10000, 100000, 1000000};

}  // namespace

int main(int argc, char **argv) {
  for (int i = 0; i < 4; ++i) {
    Impl impl = static_cast<Impl>(i);
    auto *a = benchmark::RegisterBenchmark((std::string("sort_int/") + kImpl[i]).c_str(),
                                           [impl](benchmark::State &s) { run<int>(s, impl); });
    auto *b = benchmark::RegisterBenchmark((std::string("sort_rec32/") + kImpl[i]).c_str(),
                                           [impl](benchmark::State &s) { run<Rec32>(s, impl); });
    for (int64_t n : kSizes) {
      a->Arg(n);
      b->Arg(n);
    }
    a->Unit(benchmark::kMicrosecond);
    b->Unit(benchmark::kMicrosecond);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  kelbench::RatioReporter rep;
  benchmark::RunSpecifiedBenchmarks(&rep);
  benchmark::Shutdown();

  std::printf("\nratio lsrsrt / peer (time; below 1 = lsrsrt faster)\n");
  std::printf("%-12s %9s %9s %9s %11s\n", "case", "n", "qsort", "heap", "heap_fnptr");
  for (const char *g : kGroups)
    for (int64_t n : kSizes) {
      auto name = [&](const char *impl) { return std::string(g) + "/" + impl + "/" + std::to_string(n); };
      if (rep.at(name("lsrsrt")) == 0) continue;
      std::printf("%-12s %9lld", g, static_cast<long long>(n));
      for (const char *peer : {"qsort", "heap", "heap_fnptr"}) {
        double r = rep.ratio("util", name("lsrsrt"), name(peer));
        if (r > 0)
          std::printf(peer == std::string("heap_fnptr") ? " %11.2f" : " %9.2f", r);
        else
          std::printf(peer == std::string("heap_fnptr") ? " %11s" : " %9s", "-");
      }
      std::printf("\n");
    }
  rep.print_ratios();
  return 0;
}
