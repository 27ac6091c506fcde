// The date family's benchmarks in one binary: every case beside its peer,
// then one table of ratios (ours / peer, CPU time, so that a loaded machine
// still compares like with like).
#include "bench/datetime/bench_parts.h"

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  bench_image();
  kelbench::RatioReporter rep(kelbench::RatioReporter::Clock::kCpu);
  benchmark::RunSpecifiedBenchmarks(&rep);
  report_calendar(rep);
  report_types(rep);
  report_timezone(rep);
  rep.print_ratios();
  return 0;
}
