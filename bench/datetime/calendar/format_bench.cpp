// Date parsing, formatting and day-number conversion next to their closest
// well-known peers: glibc strptime/strftime, and Howard Hinnant's date
// library (date::parse, and its civil-day algorithms behind
// year_month_day <-> sys_days). Ratios (ours / peer, CPU time per call, so
// that a loaded machine still compares like with like) are printed at the end.
#include <benchmark/benchmark.h>

#if KEL_PEER_DATE
#include <date/date.h>
#endif

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ldx.h"
#include "bench/datetime/bench_parts.h"

namespace {

void ignore(ldxctx *, int32_t) {}

struct Fixture {
  ldxctx ctx;
  uint8_t model[128];
  size_t mlen;
  std::vector<std::string> texts;
  std::vector<ldxdate> dates;
  Fixture() {
    ldxbegin(&ctx, nullptr, ignore, nullptr);
    mlen = ldxsti(&ctx, "YYYY-MM-DD HH24:MI:SS", 21, model, sizeof model);
    for (int i = 0; i < 1024; ++i) {
      ldxdate d{static_cast<int16_t>(1900 + i % 200), static_cast<int8_t>(1 + i % 12), static_cast<int8_t>(1 + i % 28),
                static_cast<int8_t>(i % 24), static_cast<int8_t>(i % 60), static_cast<int8_t>((i * 7) % 60), 0};
      dates.push_back(d);
      char buf[32];
      std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", d.year, d.month, d.day, d.hour, d.minute,
                    d.second);
      texts.push_back(buf);
    }
  }
};
Fixture &fx() {
  static Fixture f;
  return f;
}

void BM_ldxsto(benchmark::State &st) {
  Fixture &f = fx();
  size_t i = 0;
  for (auto _ : st) {
    const std::string &t = f.texts[i++ & 1023];
    ldxdate d;
    ldxsto(&f.ctx, &d, t.data(), t.size(), reinterpret_cast<const char *>(f.model), f.mlen, LDX_OPT_QUIET);
    benchmark::DoNotOptimize(d);
  }
}
void BM_ldxsto_textmodel(benchmark::State &st) {
  Fixture &f = fx();
  size_t i = 0;
  for (auto _ : st) {
    const std::string &t = f.texts[i++ & 1023];
    ldxdate d;
    ldxsto(&f.ctx, &d, t.data(), t.size(), "YYYY-MM-DD HH24:MI:SS", 21, LDX_OPT_QUIET);
    benchmark::DoNotOptimize(d);
  }
}
void BM_strptime(benchmark::State &st) {
  Fixture &f = fx();
  size_t i = 0;
  for (auto _ : st) {
    std::tm tm{};
    benchmark::DoNotOptimize(strptime(f.texts[i++ & 1023].c_str(), "%Y-%m-%d %H:%M:%S", &tm));
    benchmark::DoNotOptimize(tm);
  }
}
// Three layouts in turn, as a loader reading columns of different formats
// would: each reader keeps what it learnt of more than one model.
struct Mixed {
  const char *model, *peer, *text;
  uint8_t compiled[128];
  size_t clen, tlen;
};
Mixed *mixed() {
  static Mixed m[3] = {{"YYYY-MM-DD HH24:MI:SS", "%Y-%m-%d %H:%M:%S", "2031-07-19 08:41:07", {}, 0, 0},
                       {"DD.MM.YYYY", "%d.%m.%Y", "19.07.2031", {}, 0, 0},
                       {"YYYYMMDDHH24MISS", "%Y%m%d%H%M%S", "20310719084107", {}, 0, 0}};
  static bool done = [] {
    for (Mixed &x : m) {
      x.clen = ldxsti(&fx().ctx, x.model, std::strlen(x.model), x.compiled, sizeof x.compiled);
      x.tlen = std::strlen(x.text);
    }
    return true;
  }();
  (void)done;
  return m;
}
void BM_ldxsto_mixed(benchmark::State &st) {
  Fixture &f = fx();
  Mixed *m = mixed();
  size_t i = 0;
  for (auto _ : st) {
    const Mixed &x = m[i++ % 3];
    ldxdate d;
    ldxsto(&f.ctx, &d, x.text, x.tlen, reinterpret_cast<const char *>(x.compiled), x.clen,
           LDX_OPT_QUIET);
    benchmark::DoNotOptimize(d);
  }
}
void BM_strptime_mixed(benchmark::State &st) {
  Mixed *m = mixed();
  size_t i = 0;
  for (auto _ : st) {
    const Mixed &x = m[i++ % 3];
    std::tm tm{};
    benchmark::DoNotOptimize(strptime(x.text, x.peer, &tm));
    benchmark::DoNotOptimize(tm);
  }
}
#if KEL_PEER_DATE
void BM_date_parse(benchmark::State &st) {
  Fixture &f = fx();
  size_t i = 0;
  std::istringstream in;
  for (auto _ : st) {
    in.clear();
    in.str(f.texts[i++ & 1023]);
    std::chrono::system_clock::time_point tp;
    in >> date::parse("%Y-%m-%d %H:%M:%S", tp);
    benchmark::DoNotOptimize(tp);
  }
}
#endif
void BM_ldxdts(benchmark::State &st) {
  Fixture &f = fx();
  size_t i = 0;
  char out[64];
  for (auto _ : st) {
    benchmark::DoNotOptimize(ldxdts(&f.ctx, out, sizeof out, &f.dates[i++ & 1023],
                                    reinterpret_cast<const char *>(f.model), f.mlen));
  }
}
void BM_ldxdts_textmodel(benchmark::State &st) {
  Fixture &f = fx();
  size_t i = 0;
  char out[64];
  for (auto _ : st)
    benchmark::DoNotOptimize(ldxdts(&f.ctx, out, sizeof out, &f.dates[i++ & 1023], "YYYY-MM-DD HH24:MI:SS", 21));
}
void BM_strftime(benchmark::State &st) {
  Fixture &f = fx();
  size_t i = 0;
  char out[64];
  std::vector<std::tm> tms;
  for (const auto &d : f.dates) {
    std::tm tm{};
    tm.tm_year = d.year - 1900, tm.tm_mon = d.month - 1, tm.tm_mday = d.day;
    tm.tm_hour = d.hour, tm.tm_min = d.minute, tm.tm_sec = d.second;
    tms.push_back(tm);
  }
  for (auto _ : st) benchmark::DoNotOptimize(std::strftime(out, sizeof out, "%Y-%m-%d %H:%M:%S", &tms[i++ & 1023]));
}
void BM_ldxctj(benchmark::State &st) {
  Fixture &f = fx();
  size_t i = 0;
  for (auto _ : st) {
    const ldxdate &d = f.dates[i++ & 1023];
    benchmark::DoNotOptimize(ldxctj(&f.ctx, d.year, d.month, d.day));
  }
}
#if KEL_PEER_DATE
void BM_date_days_from_civil(benchmark::State &st) {
  Fixture &f = fx();
  size_t i = 0;
  for (auto _ : st) {
    const ldxdate &d = f.dates[i++ & 1023];
    date::sys_days sd = date::year(d.year) / d.month / d.day;
    benchmark::DoNotOptimize(sd);
  }
}
#endif
void BM_ldxjtc(benchmark::State &st) {
  Fixture &f = fx();
  size_t i = 0;
  ldxdate out{};
  for (auto _ : st) {
    ldxjtc(&f.ctx, static_cast<int32_t>(2299161 + (i++ & 0xFFFFF) * 2), &out);
    benchmark::DoNotOptimize(out);
  }
}
#if KEL_PEER_DATE
void BM_date_civil_from_days(benchmark::State &st) {
  size_t i = 0;
  for (auto _ : st) {
    date::year_month_day ymd{date::sys_days{date::days{static_cast<int>(-141427 + (i++ & 0xFFFFF) * 2)}}};
    benchmark::DoNotOptimize(ymd);
  }
}
#endif

BENCHMARK(BM_ldxsto);
BENCHMARK(BM_ldxsto_textmodel);
BENCHMARK(BM_strptime);
#if KEL_PEER_DATE
BENCHMARK(BM_date_parse);
#endif
BENCHMARK(BM_ldxsto_mixed);
BENCHMARK(BM_strptime_mixed);
BENCHMARK(BM_ldxdts);
BENCHMARK(BM_ldxdts_textmodel);
BENCHMARK(BM_strftime);
BENCHMARK(BM_ldxctj);
#if KEL_PEER_DATE
BENCHMARK(BM_date_days_from_civil);
#endif
BENCHMARK(BM_ldxjtc);
#if KEL_PEER_DATE
BENCHMARK(BM_date_civil_from_days);
#endif

}  // namespace

void report_calendar(kelbench::RatioReporter &rep) {
  rep.print_pair_table("datetime", {{"BM_ldxsto", "BM_strptime"},
                                    {"BM_ldxsto_textmodel", "BM_strptime"},
                                    {"BM_ldxsto", "BM_date_parse"},
                                    {"BM_ldxsto_mixed", "BM_strptime_mixed"},
                                    {"BM_ldxdts", "BM_strftime"},
                                    {"BM_ldxdts_textmodel", "BM_strftime"},
                                    {"BM_ldxctj", "BM_date_days_from_civil"},
                                    {"BM_ldxjtc", "BM_date_civil_from_days"}});
}
