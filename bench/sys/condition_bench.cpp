// Condition-variable ping-pong: two threads hand a turn back and forth, each
// waiting for its turn under the mutex and signalling the other. One
// iteration is a full round trip (two hand-overs, two wake-ups). Ours is
// w32cond with a w32mutex; the peer is std::mutex with
// std::condition_variable. A ratio table (time ours / peer; below 1 = ours
// faster) follows the usual output.
//
// Beside it, the critical section alone against std::mutex: enter and leave
// by one thread, and by two threads taking turns at random on one section.
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "slt.h"
#include "bench/support/ratio.h"

namespace {

// state.range(0): 1 = signal while holding the mutex, 0 = signal after
// leaving it (the waker then does not make the woken thread wait for the
// mutex it still holds).
void pingpong_w32(benchmark::State &state) {
  const bool held = state.range(0) != 0;
  w32mutex m;
  w32cond c;
  if (slcsinit(&m.cs) != 0 || w32cond_init(&c) != 0) {
    state.SkipWithError("init failed");
    return;
  }
  int turn = 0;  // 0: main thread, 1: partner, -1: stop
  std::thread partner([&] {
    slcsenter(&m.cs);
    for (;;) {
      while (turn == 0) w32cond_wait(&c, &m);
      if (turn < 0) break;
      turn = 0;
      if (held) {
        w32cond_signal(&c);
      } else {
        slcsleave(&m.cs);
        w32cond_signal(&c);
        slcsenter(&m.cs);
      }
    }
    slcsleave(&m.cs);
  });
  slcsenter(&m.cs);
  for (auto _ : state) {
    turn = 1;
    if (held) {
      w32cond_signal(&c);
    } else {
      slcsleave(&m.cs);
      w32cond_signal(&c);
      slcsenter(&m.cs);
    }
    while (turn == 1) w32cond_wait(&c, &m);
  }
  turn = -1;
  slcsleave(&m.cs);
  w32cond_signal(&c);
  partner.join();
  w32cond_destroy(&c);
  slcsdelete(&m.cs);
  state.SetItemsProcessed(state.iterations());
}

void pingpong_std(benchmark::State &state) {
  const bool held = state.range(0) != 0;
  std::mutex m;
  std::condition_variable c;
  int turn = 0;
  std::thread partner([&] {
    std::unique_lock<std::mutex> l(m);
    for (;;) {
      while (turn == 0) c.wait(l);
      if (turn < 0) break;
      turn = 0;
      if (held) {
        c.notify_one();
      } else {
        l.unlock();
        c.notify_one();
        l.lock();
      }
    }
  });
  {
    std::unique_lock<std::mutex> l(m);
    for (auto _ : state) {
      turn = 1;
      if (held) {
        c.notify_one();
      } else {
        l.unlock();
        c.notify_one();
        l.lock();
      }
      while (turn == 1) c.wait(l);
    }
    turn = -1;
    c.notify_one();
  }
  partner.join();
  state.SetItemsProcessed(state.iterations());
}

// Enter and leave a section in a loop; Threads(2) makes both threads share
// the one section (made by thread 0 before the others start).
slcs g_cs;
std::mutex g_mx;
long g_count;  // what the section guards

void section_sl(benchmark::State &state) {
  if (state.thread_index() == 0) slcsinit(&g_cs);
  for (auto _ : state) {
    slcsenter(&g_cs);
    benchmark::DoNotOptimize(++g_count);
    slcsleave(&g_cs);
  }
  if (state.thread_index() == 0) slcsdelete(&g_cs);
}

void section_std(benchmark::State &state) {
  for (auto _ : state) {
    std::lock_guard<std::mutex> l(g_mx);
    benchmark::DoNotOptimize(++g_count);
  }
}

}  // namespace

BENCHMARK(pingpong_w32)->Arg(1)->Arg(0)->UseRealTime()->MinTime(1.0);
BENCHMARK(pingpong_std)->Arg(1)->Arg(0)->UseRealTime()->MinTime(1.0);
BENCHMARK(section_sl);
BENCHMARK(section_std);
BENCHMARK(section_sl)->Threads(2)->UseRealTime();
BENCHMARK(section_std)->Threads(2)->UseRealTime();

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  kelbench::RatioReporter rep;
  benchmark::RunSpecifiedBenchmarks(&rep);
  benchmark::Shutdown();
  std::printf("\nratio w32cond / std::condition_variable (round-trip time; below 1 = ours faster)\n");
  for (const char *arg : {"1", "0"}) {
    // Names look like "pingpong_w32/1/min_time:1.000/real_time".
    double r = rep.ratio("sys", rep.named(std::string("pingpong_w32/") + arg + "/"),
                         rep.named(std::string("pingpong_std/") + arg + "/"));
    const char *label = arg[0] == '1' ? "signal under the mutex" : "signal after unlocking";
    if (r > 0)
      std::printf("%-24s %8.2f\n", label, r);
    else
      std::printf("%-24s %8s\n", label, "-");
  }
  std::printf("\nratio slcs / std::mutex (enter and leave; below 1 = ours faster)\n");
  for (const char *threads : {"", "/"}) {  // "section_sl", then "section_sl/real_time/threads:2"
    double r = rep.ratio("sys", rep.named(std::string("section_sl") + threads),
                         rep.named(std::string("section_std") + threads));
    std::printf("%-24s %8.2f\n", threads[0] ? "two threads" : "one thread", r);
  }
  rep.print_ratios();
  return 0;
}
