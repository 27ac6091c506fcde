// Parsing a parameter file of about 10 MB (made at start-up) with lrmpfi,
// against inih's ini_parse on the equivalent INI file: the same sections,
// keys, values and comments. inih runs twice: with a handler that does
// nothing (the parse alone) and with one that stores every value in an
// std::unordered_map (what lrmpfi does: every value is kept for lookup).
// Then reading back each of 400,000 occurrences of one key, against an
// std::unordered_map of vectors.
// The table at the end gives MB/s and the ratio of times ours / peer, from
// CPU time: every case runs on one thread, and on a shared machine the wall
// clock mostly measures the wait for a core.
#include <benchmark/benchmark.h>
#include <ini.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <unistd.h>
#include <unordered_map>
#include <vector>

#include "lpm.h"
#include "lrm.h"
#include "bench/support/ratio.h"

namespace {

std::string g_par, g_ini;
size_t g_par_bytes = 0, g_ini_bytes = 0;

void MakeFiles() {
  std::string par, ini;
  par.reserve(11 << 20);
  ini.reserve(11 << 20);
  char line[160];
  for (int s = 0; par.size() < (10u << 20); s++) {
    snprintf(line, sizeof line, "[section%d]\n", s);
    ini += line;
    snprintf(line, sizeof line, "# settings of part %d\n", s);
    par += line;
    ini += line;
    for (int k = 0; k < 40; k++) {
      snprintf(line, sizeof line, "section%d:key%d = value_%d_%d_some_text\n", s, k, s, k);
      par += line;
      snprintf(line, sizeof line, "key%d = value_%d_%d_some_text\n", k, s, k);
      ini += line;
    }
  }
  char dir[] = "/tmp/kelparambenchXXXXXX";
  if (mkdtemp(dir) == nullptr) abort();
  g_par = std::string(dir) + "/big.par";
  g_ini = std::string(dir) + "/big.ini";
  FILE *f = fopen(g_par.c_str(), "wb");
  fwrite(par.data(), 1, par.size(), f);
  fclose(f);
  f = fopen(g_ini.c_str(), "wb");
  fwrite(ini.data(), 1, ini.size(), f);
  fclose(f);
  g_par_bytes = par.size();
  g_ini_bytes = ini.size();
}

lcorectx *g_ctx = nullptr;
const lrmkeyset kAny = {nullptr, 0, LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};

void BM_lrmpfi(benchmark::State &state) {
  for (auto _ : state) {
    lrmctx *h = lrmini(g_ctx, nullptr, nullptr);
    lrmpsvp(h, &kAny);
    if (lrmpfi(h, g_par.c_str()) != 0) state.SkipWithError("lrmpfi failed");
    lrmtrm(h);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * g_par_bytes));
}

int NoOp(void *, const char *, const char *, const char *) { return 1; }

int Store(void *user, const char *section, const char *name, const char *value) {
  auto *m = static_cast<std::unordered_map<std::string, std::vector<std::string>> *>(user);
  (*m)[std::string(section) + ":" + name].emplace_back(value);
  return 1;
}

void BM_inih_parse(benchmark::State &state) {
  for (auto _ : state)
    if (ini_parse(g_ini.c_str(), NoOp, nullptr) != 0) state.SkipWithError("ini_parse failed");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * g_ini_bytes));
}

void BM_inih_store(benchmark::State &state) {
  for (auto _ : state) {
    std::unordered_map<std::string, std::vector<std::string>> m;
    if (ini_parse(g_ini.c_str(), Store, &m) != 0) state.SkipWithError("ini_parse failed");
    benchmark::DoNotOptimize(m.size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * g_ini_bytes));
}

// Reading every occurrence of a key that holds 400,000 values, one getter
// call each, against the same read from the map inih_store fills.
constexpr uint32_t kOccurrences = 400000;

void BM_lrmgsp_occurrences(benchmark::State &state) {
  lrmctx *h = lrmini(g_ctx, nullptr, nullptr);
  lrmpsvp(h, &kAny);
  std::vector<std::string> values(kOccurrences);
  std::vector<const char *> ptrs(kOccurrences);
  for (uint32_t i = 0; i < kOccurrences; i++) {
    values[i] = "value_" + std::to_string(i);
    ptrs[i] = values[i].c_str();
  }
  if (lrmavla(h, "k", 1, reinterpret_cast<const void *const *>(ptrs.data()), kOccurrences) != 0)
    state.SkipWithError("lrmavla failed");
  for (auto _ : state) {
    size_t total = 0;
    for (uint32_t i = 0; i < kOccurrences; i++) {
      const char *p = nullptr;
      lrmgsp(h, nullptr, nullptr, "k", 1, i, &p);
      total += p != nullptr;
    }
    benchmark::DoNotOptimize(total);
  }
  lrmtrm(h);
}

void BM_map_occurrences(benchmark::State &state) {
  std::unordered_map<std::string, std::vector<std::string>> m;
  for (uint32_t i = 0; i < kOccurrences; i++) m["section:k"].push_back("value_" + std::to_string(i));
  for (auto _ : state) {
    size_t total = 0;
    for (uint32_t i = 0; i < kOccurrences; i++) {
      auto it = m.find(std::string("section") + ":" + "k");
      total += it != m.end() && i < it->second.size() && it->second[i].c_str() != nullptr;
    }
    benchmark::DoNotOptimize(total);
  }
}

}  // namespace

int main(int argc, char **argv) {
  MakeFiles();
  g_ctx = lpminit();
  if (g_ctx == nullptr) return 1;
  benchmark::RegisterBenchmark("param/lrmpfi", BM_lrmpfi)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("param/inih_parse", BM_inih_parse)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("param/inih_store", BM_inih_store)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("param/lrmgsp_occurrences", BM_lrmgsp_occurrences)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("param/map_occurrences", BM_map_occurrences)->Unit(benchmark::kMillisecond);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  kelbench::RatioReporter rep(kelbench::RatioReporter::Clock::kCpu);
  benchmark::RunSpecifiedBenchmarks(&rep);
  benchmark::Shutdown();
  double ours = rep.at("param/lrmpfi") / 1e6;  // ms
  std::printf("\nfiles: %.1f MB parameter file, %.1f MB INI file\n", g_par_bytes / 1048576.0,
              g_ini_bytes / 1048576.0);
  auto mbs = [](double ms, size_t bytes) { return ms > 0 ? bytes / 1048576.0 / (ms / 1000.0) : 0.0; };
  std::printf("%-18s %10s %10s %14s\n", "case", "cpu ms", "MB/s", "ratio ours/peer");
  std::printf("%-18s %10.1f %10.1f %14s\n", "lrmpfi", ours, mbs(ours, g_par_bytes), "-");
  for (const char *peer : {"param/inih_parse", "param/inih_store"}) {
    double p = rep.at(peer) / 1e6;
    std::printf("%-18s %10.1f %10.1f %14.2f\n", peer + 6, p, mbs(p, g_ini_bytes), rep.ratio("param", "param/lrmpfi", peer));
  }
  std::printf("%-18s %10.1f %10s %14.2f\n", "occurrences", rep.at("param/lrmgsp_occurrences") / 1e6, "-",
              rep.ratio("param", "param/lrmgsp_occurrences", "param/map_occurrences"));
  rep.print_ratios();
  std::remove(g_par.c_str());
  std::remove(g_ini.c_str());
  lpmterm(g_ctx);
  return 0;
}
