// Time-zone lookups: ltzGet (UTC instant to offset) and ltzGetLocal (local
// time to offset) beside cctz's time_zone::lookup and glibc's localtime_r /
// mktime, each over the same 4096 instants in the same zones. The program
// ends with a table of ratios (ours / peer) of CPU time, steadier than wall
// time on a shared machine; below 1 means we are faster.
#include <benchmark/benchmark.h>
#include <cctz/civil_time.h>
#include <cctz/time_zone.h>
#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "ldi.h"
#include "ltz.h"
#include "sl.h"
#include "bench/datetime/bench_parts.h"

namespace {

const char *const kZones[] = {"America/New_York", "Europe/Paris", "Asia/Tokyo", "Australia/Lord_Howe"};
constexpr int kCount = 4096;

struct Instants {
  std::vector<time_t> epoch;
  std::vector<LdiDateTime> rec;  // the same instants as records
  Instants() {
    std::mt19937_64 rng(42);
    std::uniform_int_distribution<int64_t> when(946684800, 2145916799);  // 2000 ... 2037
    for (int i = 0; i < kCount; ++i) {
      time_t t = static_cast<time_t>(when(rng));
      epoch.push_back(t);
      struct tm tm;
      gmtime_r(&t, &tm);
      LdiDateTime d{};
      d.year = static_cast<int16_t>(tm.tm_year + 1900);
      d.month = static_cast<uint8_t>(tm.tm_mon + 1);
      d.day = static_cast<uint8_t>(tm.tm_mday);
      d.hour = static_cast<uint8_t>(tm.tm_hour);
      d.minute = static_cast<uint8_t>(tm.tm_min);
      d.second = static_cast<uint8_t>(tm.tm_sec);
      d.kind = LDI_KIND_TIMESTAMP;
      rec.push_back(d);
    }
  }
};

const Instants &instants() {
  static const Instants i;
  return i;
}

}  // namespace

const void *bench_image() {
  static const void *img = [] {
    slsetenv("KEL_TZFILE", KEL_TZFILE, 0);
    const void *p = nullptr;
    if (ltzGetImage(&p) != LTZ_OK) {
      std::fprintf(stderr, "cannot load %s\n", KEL_TZFILE);
      std::exit(1);
    }
    return p;
  }();
  return img;
}

namespace {

uint16_t region(const char *name) {
  uint16_t id = 0;
  ltzID(bench_image(), name, std::strlen(name), &id);
  return id;
}

void set_tz(const char *name) {
  setenv("TZ", name, 1);
  tzset();
}

// ----------------------------------------------------------- UTC -> local

void BM_ltzGet(benchmark::State &st) {
  uint16_t id = region(kZones[st.range(0)]);
  const auto &in = instants();
  size_t i = 0;
  for (auto _ : st) {
    int32_t off;
    char abbr[LTZ_ABBR_MAX];
    uint8_t dst;
    ltzGet(bench_image(), id, &in.rec[i], &off, abbr, sizeof abbr, &dst);
    benchmark::DoNotOptimize(off);
    i = (i + 1) & (kCount - 1);
  }
}

void BM_cctz_lookup(benchmark::State &st) {
  cctz::time_zone tz;
  cctz::load_time_zone(kZones[st.range(0)], &tz);
  const auto &in = instants();
  std::vector<cctz::time_point<cctz::seconds>> tps;
  for (time_t t : in.epoch) tps.push_back(std::chrono::time_point_cast<cctz::seconds>(std::chrono::system_clock::from_time_t(t)));
  size_t i = 0;
  for (auto _ : st) {
    auto al = tz.lookup(tps[i]);
    benchmark::DoNotOptimize(al.offset);
    benchmark::DoNotOptimize(al.abbr);
    i = (i + 1) & (kCount - 1);
  }
}

void BM_glibc_localtime_r(benchmark::State &st) {
  set_tz(kZones[st.range(0)]);
  const auto &in = instants();
  size_t i = 0;
  for (auto _ : st) {
    struct tm tm;
    localtime_r(&in.epoch[i], &tm);
    benchmark::DoNotOptimize(tm.tm_gmtoff);
    i = (i + 1) & (kCount - 1);
  }
}

// ----------------------------------------------------------- local -> UTC

void BM_ltzGetLocal(benchmark::State &st) {
  uint16_t id = region(kZones[st.range(0)]);
  const auto &in = instants();
  size_t i = 0;
  for (auto _ : st) {
    int32_t off = 0;
    uint8_t dst;
    ltzGetLocal(bench_image(), id, &in.rec[i], &off, &dst);
    benchmark::DoNotOptimize(off);
    i = (i + 1) & (kCount - 1);
  }
}

void BM_cctz_civil_lookup(benchmark::State &st) {
  cctz::time_zone tz;
  cctz::load_time_zone(kZones[st.range(0)], &tz);
  const auto &in = instants();
  std::vector<cctz::civil_second> cs;
  for (const auto &d : in.rec) cs.emplace_back(d.year, d.month, d.day, d.hour, d.minute, d.second);
  size_t i = 0;
  for (auto _ : st) {
    auto cl = tz.lookup(cs[i]);
    benchmark::DoNotOptimize(cl.pre);
    i = (i + 1) & (kCount - 1);
  }
}

void BM_glibc_mktime(benchmark::State &st) {
  set_tz(kZones[st.range(0)]);
  const auto &in = instants();
  size_t i = 0;
  for (auto _ : st) {
    const LdiDateTime &d = in.rec[i];
    struct tm tm {};
    tm.tm_year = d.year - 1900;
    tm.tm_mon = d.month - 1;
    tm.tm_mday = d.day;
    tm.tm_hour = d.hour;
    tm.tm_min = d.minute;
    tm.tm_sec = d.second;
    tm.tm_isdst = -1;
    benchmark::DoNotOptimize(mktime(&tm));
    i = (i + 1) & (kCount - 1);
  }
}

void zones(benchmark::internal::Benchmark *b) {
  for (int z = 0; z < static_cast<int>(sizeof kZones / sizeof kZones[0]); ++z) b->Arg(z);
}

BENCHMARK(BM_ltzGet)->Apply(zones);
BENCHMARK(BM_cctz_lookup)->Apply(zones);
BENCHMARK(BM_glibc_localtime_r)->Apply(zones);
BENCHMARK(BM_ltzGetLocal)->Apply(zones);
BENCHMARK(BM_cctz_civil_lookup)->Apply(zones);
BENCHMARK(BM_glibc_mktime)->Apply(zones);

}  // namespace

void report_timezone(kelbench::RatioReporter &rep) {
  std::printf("\nratios (ours / peer; below 1 = ours faster)\n");
  std::printf("%-22s %-18s %10s %10s\n", "zone", "ours vs peer", "ratio", "ours cpu ns");
  struct Pair {
    const char *ours, *peer;
  } pairs[] = {{"BM_ltzGet", "BM_cctz_lookup"},
               {"BM_ltzGet", "BM_glibc_localtime_r"},
               {"BM_ltzGetLocal", "BM_cctz_civil_lookup"},
               {"BM_ltzGetLocal", "BM_glibc_mktime"}};
  for (const auto &p : pairs) {
    for (int z = 0; z < static_cast<int>(sizeof kZones / sizeof kZones[0]); ++z) {
      std::string a = std::string(p.ours) + "/" + std::to_string(z), b = std::string(p.peer) + "/" + std::to_string(z);
      double r = rep.ratio("datetime", a, b);
      if (r <= 0) continue;
      std::printf("%-22s %-18s %10.2f %10.1f\n", kZones[z], (std::string(p.ours + 3) + "/" + (p.peer + 3)).c_str(),
                  r, rep.at(a));
    }
  }
}
