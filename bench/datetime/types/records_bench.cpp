// Datetime comparison and interval addition next to their closest peers:
// std::chrono time points (comparison, duration addition) and cctz civil
// times (field-wise values normalised on addition, as ours are). Ratios
// (ours / peer, CPU time per operation, so that a loaded machine still
// compares like with like) are printed at the end.
#include <benchmark/benchmark.h>

#include <cctz/civil_time.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "ldi.h"
#include "bench/datetime/bench_parts.h"

namespace {

constexpr size_t kN = 1024;

struct Data {
  std::vector<LdiDateTime> a, b;
  std::vector<std::chrono::sys_time<std::chrono::nanoseconds>> ca, cb;
  std::vector<cctz::civil_second> za, zb;
  std::vector<LdiInterval> ds, ym;
  std::vector<std::chrono::nanoseconds> cds;
  std::vector<int64_t> secs;
  std::vector<int> months;
  Data() {
    std::mt19937 rng(1);
    for (size_t i = 0; i < kN; ++i) {
      LdiDateTime x{};
      x.kind = LDI_KIND_TIMESTAMP;
      x.year = static_cast<int16_t>(1900 + rng() % 200);
      x.month = static_cast<uint8_t>(1 + rng() % 12);
      x.day = static_cast<uint8_t>(1 + rng() % 28);
      x.hour = static_cast<uint8_t>(rng() % 24);
      x.minute = static_cast<uint8_t>(rng() % 60);
      x.second = static_cast<uint8_t>(rng() % 60);
      x.fraction = rng() % 1000000000;
      LdiDateTime y = x;
      // Most pairs differ late (same day), as in sorted or clustered data.
      if (rng() % 4) y.second = static_cast<uint8_t>(rng() % 60);
      else y.year = static_cast<int16_t>(1900 + rng() % 200);
      a.push_back(x);
      b.push_back(y);
      auto tp = [](const LdiDateTime &v) {
        using namespace std::chrono;
        sys_days d = year_month_day{year{v.year}, month{v.month}, day{v.day}};
        return sys_time<nanoseconds>(d) + hours{v.hour} + minutes{v.minute} + seconds{v.second} +
               nanoseconds{v.fraction};
      };
      ca.push_back(tp(x));
      cb.push_back(tp(y));
      za.emplace_back(x.year, x.month, x.day, x.hour, x.minute, x.second);
      zb.emplace_back(y.year, y.month, y.day, y.hour, y.minute, y.second);
      int64_t s = static_cast<int64_t>(rng() % 20000000) - 10000000;
      secs.push_back(s);
      LdiInterval v{};
      v.kind = LDI_IKIND_DAY_SECOND;
      v.f1 = static_cast<int32_t>(s / 86400);
      v.f2 = static_cast<int32_t>(s % 86400 / 3600);
      v.f3 = static_cast<int32_t>(s % 3600 / 60);
      v.f4 = static_cast<int32_t>(s % 60);
      ds.push_back(v);
      cds.push_back(std::chrono::seconds{s});
      int m = static_cast<int>(rng() % 48) - 24;
      months.push_back(m);
      LdiInterval w{};
      w.kind = LDI_IKIND_YEAR_MONTH;
      w.f1 = m / 12;
      w.f2 = m % 12;
      ym.push_back(w);
    }
  }
};

const Data &data() {
  static const Data d;
  return d;
}

void BM_LdiDateCompare(benchmark::State &st) {
  const Data &d = data();
  size_t i = 0;
  int64_t acc = 0;
  for (auto _ : st) {
    int32_t r = 0;
    LdiDateCompare(&d.a[i], &d.b[i], &r, nullptr);
    acc += r;
    i = (i + 1) & (kN - 1);
  }
  benchmark::DoNotOptimize(acc);
}

void BM_chrono_compare(benchmark::State &st) {
  const Data &d = data();
  size_t i = 0;
  int64_t acc = 0;
  for (auto _ : st) {
    auto x = d.ca[i], y = d.cb[i];
    benchmark::DoNotOptimize(x);
    acc += (x < y) ? -1 : (y < x);
    i = (i + 1) & (kN - 1);
  }
  benchmark::DoNotOptimize(acc);
}

void BM_cctz_compare(benchmark::State &st) {
  const Data &d = data();
  size_t i = 0;
  int64_t acc = 0;
  for (auto _ : st) {
    const cctz::civil_second &x = d.za[i], &y = d.zb[i];
    acc += (x < y) ? -1 : (y < x);
    i = (i + 1) & (kN - 1);
  }
  benchmark::DoNotOptimize(acc);
}

void BM_LdiDateInterAdd_ds(benchmark::State &st) {
  const Data &d = data();
  size_t i = 0;
  LdiDateTime out{};
  for (auto _ : st) {
    LdiDateInterAdd(nullptr, &d.a[i], &d.ds[i], &out);
    benchmark::DoNotOptimize(out);
    i = (i + 1) & (kN - 1);
  }
}

void BM_chrono_add(benchmark::State &st) {
  const Data &d = data();
  size_t i = 0;
  for (auto _ : st) {
    auto r = d.ca[i] + d.cds[i];
    benchmark::DoNotOptimize(r);
    i = (i + 1) & (kN - 1);
  }
}

// Fields in, fields out: the chrono addition with the civil conversions
// around it, which is what adding to a record of fields costs.
void BM_chrono_add_fields(benchmark::State &st) {
  using namespace std::chrono;
  const Data &d = data();
  size_t i = 0;
  for (auto _ : st) {
    const LdiDateTime &v = d.a[i];
    sys_days day = year_month_day{year{v.year}, month{v.month}, std::chrono::day{v.day}};
    auto tp = sys_time<nanoseconds>(day) + hours{v.hour} + minutes{v.minute} + seconds{v.second} +
              nanoseconds{v.fraction} + d.cds[i];
    auto dd = floor<days>(tp);
    year_month_day ymd{dd};
    hh_mm_ss<nanoseconds> t{tp - dd};
    benchmark::DoNotOptimize(ymd);
    benchmark::DoNotOptimize(t);
    i = (i + 1) & (kN - 1);
  }
}

void BM_cctz_add(benchmark::State &st) {
  const Data &d = data();
  size_t i = 0;
  for (auto _ : st) {
    cctz::civil_second r = d.za[i] + d.secs[i];
    benchmark::DoNotOptimize(r);
    i = (i + 1) & (kN - 1);
  }
}

void BM_LdiDateInterAdd_ym(benchmark::State &st) {
  const Data &d = data();
  size_t i = 0;
  LdiDateTime out{};
  for (auto _ : st) {
    LdiDateInterAdd(nullptr, &d.a[i], &d.ym[i], &out);
    benchmark::DoNotOptimize(out);
    i = (i + 1) & (kN - 1);
  }
}

void BM_cctz_add_months(benchmark::State &st) {
  const Data &d = data();
  size_t i = 0;
  for (auto _ : st) {
    cctz::civil_month r = cctz::civil_month(d.za[i]) + d.months[i];
    benchmark::DoNotOptimize(r);
    i = (i + 1) & (kN - 1);
  }
}

BENCHMARK(BM_LdiDateCompare);
BENCHMARK(BM_chrono_compare);
BENCHMARK(BM_cctz_compare);
BENCHMARK(BM_LdiDateInterAdd_ds);
BENCHMARK(BM_chrono_add);
BENCHMARK(BM_chrono_add_fields);
BENCHMARK(BM_cctz_add);
BENCHMARK(BM_LdiDateInterAdd_ym);
BENCHMARK(BM_cctz_add_months);

}  // namespace

void report_types(kelbench::RatioReporter &rep) {
  rep.print_pair_table("datetime", {{"BM_LdiDateCompare", "BM_chrono_compare"},
                               {"BM_LdiDateCompare", "BM_cctz_compare"},
                               {"BM_LdiDateInterAdd_ds", "BM_chrono_add"},
                               {"BM_LdiDateInterAdd_ds", "BM_chrono_add_fields"},
                               {"BM_LdiDateInterAdd_ds", "BM_cctz_add"},
                               {"BM_LdiDateInterAdd_ym", "BM_cctz_add_months"}});
}
