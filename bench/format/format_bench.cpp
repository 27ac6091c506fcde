// lsfp against the C library's snprintf on the same formats and arguments.
// Each case runs as ours/<case> and libc/<case>; the table at the end gives
// the ratio of times (ours / libc), so that figures from a noisy shared
// machine remain comparable.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

#include "lsf.h"
#include "bench/support/ratio.h"

namespace {

const int kInts[] = {0, 7, -42, 123456, -2147483647, 65535, 1000000007, 31};
const char *const kWords[] = {"alpha", "a much longer word of text", "x", "lsfpd"};
const double kDoubles[] = {3.14159265358979, -0.1, 1e300, 6.02214076e23, 2.5e-310, 123456.789, 0.5, 42.0};

template <class F>
void run(benchmark::State &st, F f) {
  char buf[512];
  unsigned i = 0;
  for (auto _ : st) {
    int n = f(buf, sizeof buf, i++ & 7);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buf);
  }
}

#define PAIR(name, fmt, ...)                                                                            \
  void ours_##name(benchmark::State &st) {                                                              \
    run(st, [](char *b, size_t n, unsigned i) { return lsfp(nullptr, b, n, fmt, __VA_ARGS__); });      \
  }                                                                                                     \
  void libc_##name(benchmark::State &st) {                                                              \
    run(st, [](char *b, size_t n, unsigned i) { return snprintf(b, n, fmt, __VA_ARGS__); });           \
  }                                                                                                     \
  BENCHMARK(ours_##name)->Name("ours/" #name);                                                          \
  BENCHMARK(libc_##name)->Name("libc/" #name);

PAIR(int, "%d", kInts[i])
PAIR(ints, "%d %u %x %08lld", kInts[i], static_cast<unsigned>(kInts[i]), kInts[i], static_cast<long long>(kInts[i]) * 1000)
PAIR(string, "%s", kWords[i & 3])
PAIR(strings, "[%s] %-12s|%.3s", kWords[i & 3], kWords[(i + 1) & 3], kWords[(i + 2) & 3])
PAIR(message, "error %d in %s at line %5d: %s (%p)", kInts[i], kWords[i & 3], kInts[(i + 3) & 7] & 0xffff,
     kWords[(i + 1) & 3], static_cast<const void *>(kWords[i & 3]))
PAIR(double_f, "%f", kDoubles[i])
PAIR(double_3f, "%.3f", kDoubles[i] < 1e20 ? kDoubles[i] : 1.5)
PAIR(double_e, "%e", kDoubles[i])
PAIR(double_g, "%g", kDoubles[i])
PAIR(double_17g, "%.17g", kDoubles[i])
PAIR(double_a, "%a", kDoubles[i])
PAIR(positional, "%2$s=%1$d", kInts[i], kWords[i & 3])

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  kelbench::RatioReporter rep(kelbench::RatioReporter::Clock::kCpu);
  benchmark::RunSpecifiedBenchmarks(&rep);
  benchmark::Shutdown();
  std::printf("\n%-14s %12s %12s %8s\n", "case", "ours cpu ns", "libc cpu ns", "ours/libc");
  for (const auto &[name, t] : rep.time) {
    if (name.rfind("ours/", 0) != 0) continue;
    std::string c = name.substr(5);
    double r = rep.ratio("format", name, "libc/" + c);
    if (r > 0) std::printf("%-14s %12.1f %12.1f %8.2f\n", c.c_str(), t, rep.at("libc/" + c), r);
  }
  rep.print_ratios();
  return 0;
}
