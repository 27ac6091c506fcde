// ratio.h - the one reporter every benchmark binary uses to compare our
// function with its peer.
//
// Absolute times on a shared, loaded machine say little; the ratio of two
// cases measured in the same process moments apart says more. The reporter
// prints Google Benchmark's usual console table, keeps the time per
// iteration of every run (in nanoseconds, whatever unit a case reports in),
// and lets the binary name pairs (ours, peer) for which it prints
//
//   RATIO <family> <ours> <peer> <ratio>
//
// lines once the runs are over: ratio = time(ours) / time(peer), below 1
// means ours is faster. bench/ratios.py collects those lines from every
// binary into one table. Names never contain blanks (benchmark names have
// none), so the lines split on white space.
#ifndef KEL_BENCH_SUPPORT_RATIO_H
#define KEL_BENCH_SUPPORT_RATIO_H

#include <benchmark/benchmark.h>

#include <cstdio>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

namespace kelbench {

// One RATIO line, for a binary that measures its pairs in its own way.
inline void print_ratio_line(const std::string &family, const std::string &ours, const std::string &peer,
                             double ratio) {
  std::printf("RATIO %s %s %s %.4f\n", family.c_str(), ours.c_str(), peer.c_str(), ratio);
}

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  // Which clock the ratios use. CPU time is steadier on a loaded machine for
  // single-threaded cases; real time is the right one where threads wait.
  enum class Clock { kReal, kCpu };

  explicit RatioReporter(Clock clock = Clock::kReal) : clock_(clock) {}

  // Time per iteration in nanoseconds of every run that finished, by name.
  std::map<std::string, double> time;

  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &r : runs) {
      if (r.run_type != Run::RT_Iteration || r.error_occurred) continue;
      double t = clock_ == Clock::kCpu ? r.GetAdjustedCPUTime() : r.GetAdjustedRealTime();
      time[r.benchmark_name()] = t * 1e9 / benchmark::GetTimeUnitMultiplier(r.time_unit);
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // Time of a run in ns, or 0 when it did not run (filtered out or failed).
  double at(const std::string &name) const {
    auto it = time.find(name);
    return it == time.end() ? 0.0 : it->second;
  }

  // The first run whose name starts with `prefix` (names carry suffixes such
  // as "/real_time" or "/threads:2"), or `prefix` itself when none does.
  std::string named(const std::string &prefix) const {
    auto it = time.lower_bound(prefix);
    return it != time.end() && it->first.compare(0, prefix.size(), prefix) == 0 ? it->first : prefix;
  }

  // Ratio ours / peer, remembered for print_ratios(); 0 when either run is
  // missing (then nothing is remembered).
  double ratio(const std::string &family, const std::string &ours, const std::string &peer) {
    double o = at(ours), p = at(peer);
    if (o <= 0 || p <= 0) return 0.0;
    pairs_.push_back({family, ours, peer, o / p});
    return o / p;
  }

  // A table of the named pairs that both ran (ours, peer, their times and
  // the ratio), each remembered as by ratio().
  struct NamePair {
    const char *ours, *peer;
  };
  void print_pair_table(const std::string &family, std::initializer_list<NamePair> pairs) {
    std::printf("\n%-24s %-26s %10s %10s %8s\n", "ours", "peer", "ours ns", "peer ns", "ratio");
    for (const NamePair &p : pairs) {
      const double r = ratio(family, p.ours, p.peer);
      if (r > 0) std::printf("%-24s %-26s %10.1f %10.1f %8.2f\n", p.ours, p.peer, at(p.ours), at(p.peer), r);
    }
  }

  // Prints one RATIO line per remembered pair, in the order they were named.
  void print_ratios() const {
    if (pairs_.empty()) return;
    std::printf("\n");
    for (const Pair &q : pairs_) print_ratio_line(q.family, q.ours, q.peer, q.value);
    std::fflush(stdout);
  }

 private:
  struct Pair {
    std::string family, ours, peer;
    double value;
  };
  Clock clock_;
  std::vector<Pair> pairs_;
};

}  // namespace kelbench

#endif
