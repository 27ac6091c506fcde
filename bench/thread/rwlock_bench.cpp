// Read-write locks: ours (writers first, SltsPr*) against pthread_rwlock_t
// and std::shared_mutex. Uncontended: one thread taking and releasing the
// lock for reading, then for writing. Contended: two threads, nine reads to
// one write, each holding the lock for a few dozen instructions. A ratio
// table (time ours / peer; below 1 = ours faster) closes the run.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <map>
#include <shared_mutex>
#include <string>

#include "slt.h"
#include "bench/support/ratio.h"

namespace {

SltsPrLock g_ours;
pthread_rwlock_t g_posix = PTHREAD_RWLOCK_INITIALIZER;
std::shared_mutex g_std;
volatile long g_cell[8];

struct Ours {
  static void rd() { SltsPrRead(&g_ours); }
  static void wr() { SltsPrWrite(&g_ours); }
  static void un() { SltsPrUnlock(&g_ours); }
  static void unr() { SltsPrUnlock(&g_ours); }
};
struct Posix {
  static void rd() { pthread_rwlock_rdlock(&g_posix); }
  static void wr() { pthread_rwlock_wrlock(&g_posix); }
  static void un() { pthread_rwlock_unlock(&g_posix); }
  static void unr() { pthread_rwlock_unlock(&g_posix); }
};
struct Std {
  static void rd() { g_std.lock_shared(); }
  static void wr() { g_std.lock(); }
  static void un() { g_std.unlock(); }
  static void unr() { g_std.unlock_shared(); }
};

template <class L>
void uncontended_read(benchmark::State &state) {
  for (auto _ : state) {
    L::rd();
    benchmark::DoNotOptimize(g_cell[0]);
    L::unr();
  }
}

template <class L>
void uncontended_write(benchmark::State &state) {
  for (auto _ : state) {
    L::wr();
    g_cell[0] = g_cell[0] + 1;
    L::un();
  }
}

template <class L>
void contended(benchmark::State &state) {
  unsigned i = static_cast<unsigned>(state.thread_index()) * 7;
  for (auto _ : state) {
    if (++i % 10 == 0) {
      L::wr();
      for (auto &c : g_cell) c = c + 1;
      L::un();
    } else {
      L::rd();
      long s = 0;
      for (auto &c : g_cell) s += c;
      benchmark::DoNotOptimize(s);
      L::unr();
    }
  }
}

}  // namespace

BENCHMARK_TEMPLATE(uncontended_read, Ours);
BENCHMARK_TEMPLATE(uncontended_read, Posix);
BENCHMARK_TEMPLATE(uncontended_read, Std);
BENCHMARK_TEMPLATE(uncontended_write, Ours);
BENCHMARK_TEMPLATE(uncontended_write, Posix);
BENCHMARK_TEMPLATE(uncontended_write, Std);
BENCHMARK_TEMPLATE(contended, Ours)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(contended, Posix)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(contended, Std)->Threads(2)->UseRealTime();

int main(int argc, char **argv) {
  if (SltsPrInit(&g_ours) != 0) return 1;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  kelbench::RatioReporter rep;
  benchmark::RunSpecifiedBenchmarks(&rep);
  benchmark::Shutdown();
  std::printf("\nratio SltsPr / peer (time; below 1 = ours faster)\n%-20s %16s %18s\n", "case", "/ pthread_rwlock",
              "/ std::shared_mutex");
  for (const char *c : {"uncontended_read", "uncontended_write", "contended"}) {
    std::string ours = rep.named(std::string(c) + "<Ours>");
    double posix = rep.ratio("thread", ours, rep.named(std::string(c) + "<Posix>"));
    double sm = rep.ratio("thread", ours, rep.named(std::string(c) + "<Std>"));
    std::printf("%-20s %16.2f %18.2f\n", c, posix, sm);
  }
  rep.print_ratios();
  SltsPrDestroy(&g_ours);
  return 0;
}
