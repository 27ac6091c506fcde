// Threads, locks, the mutex registry and timers, stress-tested with
// invariants that a broken lock would violate (and ThreadSanitizer would
// flag), under the watchdog so that a lock that hangs fails its test.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kelmsg_kelcore_lts.h"
#include "lem.h"
#include "lpm.h"
#include "sl.h"
#include "slt.h"
#include "tests/support/fault_walk.h"
#include "tests/support/library.h"
#include "tests/support/portable.h"
#include "tests/support/watchdog.h"

namespace {

// ----------------------------------------------------------------- threads

TEST(Threads, CreateJoinDetachAndIdentifiers) {
  struct Arg {
    int64_t in;
    std::atomic<uint64_t> self{0};
  };
  static auto body = [](void *p) -> void * {
    auto *a = static_cast<Arg *>(p);
    a->self = slthrself();
    return reinterpret_cast<void *>(a->in * 2);
  };
  std::vector<Arg> args(16);
  std::vector<sltthread *> ts;
  for (size_t i = 0; i < args.size(); i++) {
    args[i].in = static_cast<int64_t>(i) + 1;
    ts.push_back(sltcreate(body, &args[i], i % 2 ? 0 : 128 * 1024));
    ASSERT_NE(ts.back(), nullptr);
  }
  std::vector<uint64_t> ids;
  for (size_t i = 0; i < ts.size(); i++) {
    uint64_t id = sltid(ts[i]);
    void *r = nullptr;
    ASSERT_EQ(sltjoin(ts[i], &r), 0);
    EXPECT_EQ(reinterpret_cast<int64_t>(r), args[i].in * 2);
    EXPECT_EQ(id, args[i].self.load());
    EXPECT_NE(id, slthrself());
    ids.push_back(id);
  }
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(std::unique(ids.begin(), ids.end()), ids.end()) << "thread numbers repeat";

  // A detached thread runs to its end on its own.
  static std::atomic<int> ran;
  ran = 0;
  sltthread *d = sltcreate([](void *) -> void * { ran++; return nullptr; }, nullptr, 0);
  ASSERT_NE(d, nullptr);
  ASSERT_EQ(sltdetach(d), 0);
  while (ran.load() == 0) slsleepms(1);

  if (slfaultarm(SL_FAULT_THREAD, 1, 1) == 0) {
    EXPECT_EQ(sltcreate(body, &args[0], 0), nullptr);
    slfaultreset();
  }
  EXPECT_EQ(sltcreate(nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(sltjoin(nullptr, nullptr), -1);
}

TEST(Threads, RecursiveMutexCountsAndExcludes) {
  static sltsrmx m;
  ASSERT_EQ(sltsrmi(&m), 0);
  ASSERT_EQ(sltsrma(&m), 0);
  ASSERT_EQ(sltsrma(&m), 0);
  EXPECT_EQ(sltsrmt(&m), 1);
  std::atomic<int> other{-2};
  std::thread([&] { other = sltsrmt(&m); }).join();
  EXPECT_EQ(other.load(), 0);
  std::thread([&] { other = sltsrmr(&m); }).join();
  EXPECT_EQ(other.load(), -1) << "a non-owner released it";
  EXPECT_EQ(sltsrmd(&m), -1) << "destroyed while held";
  for (int i = 0; i < 3; i++) EXPECT_EQ(sltsrmr(&m), 0);
  EXPECT_EQ(sltsrmr(&m), -1);
  // Many threads, nested takes, a plain counter: no lost update.
  static long counter;
  counter = 0;
  std::vector<std::thread> ts;
  for (int t = 0; t < 4; t++)
    ts.emplace_back([] {
      for (int i = 0; i < 5000; i++) {
        sltsrma(&m);
        sltsrma(&m);
        counter++;
        sltsrmr(&m);
        sltsrmr(&m);
      }
    });
  for (auto &t : ts) t.join();
  EXPECT_EQ(counter, 20000);
  EXPECT_EQ(sltsrmd(&m), 0);
}

// -------------------------------------------------------- read-write locks

// Both interfaces behind one face for the table-driven tests.
struct Rw {
  const char *name;
  bool writers_first;
  int32_t (*init)(sltsrw *);
  int32_t (*read)(sltsrw *);
  int32_t (*write)(sltsrw *);
  int32_t (*unlock)(sltsrw *);
  int32_t (*destroy)(sltsrw *);
};

sltsctx *g_ts = nullptr;
const Rw kRw[] = {
    {"writers first", true, SltsPrInit, SltsPrRead, SltsPrWrite, SltsPrUnlock, SltsPrDestroy},
    {"readers first", false, [](sltsrw *r) { return sltskrinit(g_ts, r); },
     [](sltsrw *r) { return sltskrread(g_ts, r); }, [](sltsrw *r) { return sltskrwrite(g_ts, r); },
     [](sltsrw *r) { return sltskrunlock(g_ts, r); }, [](sltsrw *r) { return sltskrdestroy(g_ts, r); }},
};

class RwLocks : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { g_ts = sltsini(); }
  static void TearDownTestSuite() { sltster(g_ts); }
};

TEST_F(RwLocks, ManyReadersAndWritersKeepTheInvariants) {
  for (const Rw &rw : kRw) {
    SCOPED_TRACE(rw.name);
    sltsrw lock;
    ASSERT_EQ(rw.init(&lock), 0);
    // Writers move both halves; a reader that sees them differ, or a writer
    // that finds anybody else inside, proves the lock broken.
    long a = 0, b = 0;
    std::atomic<int> readers_in{0}, writers_in{0}, max_readers{0};
    std::atomic<long> bad{0}, reads{0};
    const int kWriters = 3, kReaders = 4, kWrites = 600;
    std::vector<std::thread> ts;
    for (int w = 0; w < kWriters; w++)
      ts.emplace_back([&] {
        for (int i = 0; i < kWrites; i++) {
          ASSERT_EQ(rw.write(&lock), 0);
          if (writers_in.fetch_add(1) != 0 || readers_in.load() != 0) bad++;
          a++;
          if ((i & 63) == 0) std::this_thread::yield();
          b++;
          writers_in.fetch_sub(1);
          ASSERT_EQ(rw.unlock(&lock), 0);
        }
      });
    std::atomic<bool> stop{false};
    for (int r = 0; r < kReaders; r++)
      ts.emplace_back([&] {
        // At least one read each, even when a loaded machine starts the
        // readers only after the writers are done.
        do {
          ASSERT_EQ(rw.read(&lock), 0);
          int in = readers_in.fetch_add(1) + 1;
          int m = max_readers.load();
          while (in > m && !max_readers.compare_exchange_weak(m, in)) {
          }
          if (writers_in.load() != 0 || a != b) bad++;
          reads++;
          readers_in.fetch_sub(1);
          ASSERT_EQ(rw.unlock(&lock), 0);
        } while (!stop.load());
      });
    for (int w = 0; w < kWriters; w++) ts[w].join();
    stop = true;
    for (size_t i = kWriters; i < ts.size(); i++) ts[i].join();
    EXPECT_EQ(bad.load(), 0);
    EXPECT_EQ(a, long{kWriters} * kWrites) << "lost update";
    EXPECT_EQ(b, a);
    EXPECT_GT(reads.load(), 0);
    EXPECT_EQ(rw.destroy(&lock), 0);
  }
}

// The policy: a waiting writer holds back a new reader, or lets it pass.
TEST_F(RwLocks, PolicyTowardsWaitingWriters) {
  for (const Rw &rw : kRw) {
    SCOPED_TRACE(rw.name);
    sltsrw lock;
    ASSERT_EQ(rw.init(&lock), 0);
    ASSERT_EQ(rw.read(&lock), 0);
    std::atomic<int> writer_done{0}, reader_in{0};
    std::thread writer([&] {
      rw.write(&lock);
      writer_done = 1;
      rw.unlock(&lock);
    });
    auto waiting_writers = [&] {
      slcsenter(&lock.m.cs);
      int n = lock.wwait;
      slcsleave(&lock.m.cs);
      return n;
    };
    while (waiting_writers() == 0) slsleepms(1);
    std::thread reader([&] {
      rw.read(&lock);
      reader_in = 1 + writer_done.load();
      rw.unlock(&lock);
    });
    if (rw.writers_first) {
      slsleepms(50);
      EXPECT_EQ(reader_in.load(), 0) << "a new reader passed a waiting writer";
    } else {
      while (reader_in.load() == 0) slsleepms(1);
      EXPECT_EQ(reader_in.load(), 1) << "the reader waited for the writer";
    }
    EXPECT_EQ(rw.destroy(&lock), -1) << "destroyed while held";
    ASSERT_EQ(rw.unlock(&lock), 0);
    writer.join();
    reader.join();
    if (rw.writers_first) EXPECT_EQ(reader_in.load(), 2) << "the writer did not go first";
    EXPECT_EQ(rw.unlock(&lock), -1) << "unlocked a free lock";
    EXPECT_EQ(rw.destroy(&lock), 0);
    for (auto *f : {rw.init, rw.read, rw.write, rw.unlock, rw.destroy}) EXPECT_EQ(f(nullptr), -1);
  }
}

TEST_F(RwLocks, InitFailuresReleaseEverything) {
  for (const Rw &rw : kRw)
    for (int point : {SL_FAULT_CS_INIT, SL_FAULT_SEM_CREATE, SL_FAULT_EVENT_CREATE})
      kel_test::walk_failures(point, kel_test::Fail::Once, [&](int64_t) {
        sltsrw lock;
        int32_t rc = rw.init(&lock);
        EXPECT_EQ(rc, slfaulthits(point) > 0 ? -1 : 0) << rw.name;
        if (rc == 0) EXPECT_EQ(rw.destroy(&lock), 0);
      });
}

// --------------------------------------------------------- mutex registry

class Registry : public kel_test::StartedLibrary {
 protected:
  void SetUp() override {
    StartedLibrary::SetUp();
    if (HasFatalFailure()) return;
    reg = ltsrcreate(ctx);
    ASSERT_NE(reg, nullptr);
  }
  void TearDown() override {
    slfaultreset();
    if (reg != nullptr) EXPECT_EQ(ltsrdestroy(reg), 0);
    StartedLibrary::TearDown();
  }
  // The calling thread's newest record, as (message, text argument 2).
  std::pair<int32_t, std::string> newest() {
    int32_t msg = lemgec(lem, 1);
    const char *t = nullptr;
    int64_t n = 0;
    std::string text;
    if (lemgnp(lem, 1, 2, &n, &t) == LEM_ARG_TEXT) text = t;
    lemces(lem);
    return {msg, text};
  }
  ltsreg *reg = nullptr;
};

// N threads each hold mutex i and then ask for mutex i+1 (mod N): the last
// request to arrive closes the cycle and is refused; nobody hangs.
TEST_F(Registry, CyclesOfTwoAndThreeAreRefusedWithAReport) {
  for (int n : {2, 3}) {
    for (int round = 0; round < 20; round++) {
      std::vector<ltsmx *> mx;
      for (int i = 0; i < n; i++) mx.push_back(ltsmxnew(reg, ("M" + std::to_string(i)).c_str()));
      std::atomic<int> holding{0}, refused{0};
      std::vector<std::pair<int32_t, std::string>> report(n);
      std::vector<std::thread> ts;
      for (int i = 0; i < n; i++)
        ts.emplace_back([&, i] {
          ASSERT_EQ(ltsmxlock(reg, mx[i]), 0);
          holding++;
          while (holding.load() < n) std::this_thread::yield();
          int32_t rc = ltsmxlock(reg, mx[(i + 1) % n]);
          if (rc == 0) {
            ltsmxunlock(reg, mx[(i + 1) % n]);
            ltsmxunlock(reg, mx[i]);
          } else {
            EXPECT_EQ(rc, -1);
            refused++;
            report[i] = newest();
            EXPECT_EQ(report[i].second.rfind("thread " + std::to_string(slthrself()) + " waits for", 0), 0u)
                << report[i].second;
            ltsmxunlock(reg, mx[i]);  // breaks the cycle
          }
        });
      for (auto &t : ts) t.join();
      EXPECT_EQ(refused.load(), 1) << n << " threads, round " << round;
      for (auto &r : report) {
        if (r.first == 0) continue;
        EXPECT_EQ(r.first, kelmsg::LTS_DEADLOCK);
        for (int i = 0; i < n; i++)
          EXPECT_NE(r.second.find("\"M" + std::to_string(i) + "\""), std::string::npos) << r.second;
      }
      for (auto *m : mx) {
        EXPECT_EQ(ltsmxowner(reg, m), 0u);
        EXPECT_EQ(ltsmxfree(reg, m), 0);
      }
    }
  }
}

TEST_F(Registry, OwnershipMistakesAreRefused) {
  ltsmx *m = ltsmxnew(reg, "lonely");
  ASSERT_NE(m, nullptr);
  ASSERT_EQ(ltsmxlock(reg, m), 0);
  EXPECT_EQ(ltsmxowner(reg, m), slthrself());
  EXPECT_EQ(ltsmxlock(reg, m), -1);
  EXPECT_EQ(newest().first, kelmsg::LTS_RELOCK);
  EXPECT_EQ(ltsmxtry(reg, m), 0);
  EXPECT_EQ(ltsmxfree(reg, m), -1);
  EXPECT_EQ(newest().first, kelmsg::LTS_BUSY);
  std::atomic<int> rc{0};
  std::pair<int32_t, std::string> rec;
  std::thread([&] {
    rc = ltsmxunlock(reg, m);
    rec = newest();
  }).join();
  EXPECT_EQ(rc.load(), -1);
  EXPECT_EQ(rec.first, kelmsg::LTS_NOTOWNER);
  // A waiter shows in the count while it waits.
  std::thread w([&] {
    ltsmxlock(reg, m);
    ltsmxunlock(reg, m);
  });
  while (ltsmxwaiters(reg, m) == 0) slsleepms(1);
  EXPECT_EQ(ltsmxwaiters(reg, m), 1);
  EXPECT_EQ(ltsrdestroy(reg), -1) << "destroyed with mutexes registered";
  ASSERT_EQ(ltsmxunlock(reg, m), 0);
  w.join();
  EXPECT_EQ(ltsmxwaiters(reg, m), 0);
  EXPECT_EQ(ltsmxfree(reg, m), 0);
  EXPECT_EQ(lemged(lem), 0);
  EXPECT_EQ(ltsmxfree(reg, nullptr), -1);
}

// Threads take random pairs in random order; a refusal backs off and
// retries. Everything finishes, and the guarded counters lose nothing.
TEST_F(Registry, RandomOrdersNeverHang) {
  const int kMx = 4, kThreads = 4, kIters = 1500;
  std::vector<ltsmx *> mx;
  for (int i = 0; i < kMx; i++) mx.push_back(ltsmxnew(reg, ("R" + std::to_string(i)).c_str()));
  std::vector<long> guarded(kMx, 0);
  std::atomic<long> refusals{0};
  std::vector<std::thread> ts;
  for (int t = 0; t < kThreads; t++)
    ts.emplace_back([&, t] {
      std::mt19937 rng(t * 7 + 1);
      for (int i = 0; i < kIters; i++) {
        int x = static_cast<int>(rng() % kMx), y = static_cast<int>(rng() % kMx);
        if (x == y) y = (x + 1) % kMx;
        for (;;) {
          ASSERT_EQ(ltsmxlock(reg, mx[x]), 0);
          if (ltsmxlock(reg, mx[y]) == 0) break;
          refusals++;
          lemces(lem);
          ltsmxunlock(reg, mx[x]);
          std::this_thread::yield();
        }
        guarded[x]++;
        guarded[y]++;
        ltsmxunlock(reg, mx[y]);
        ltsmxunlock(reg, mx[x]);
      }
    });
  for (auto &t : ts) t.join();
  long total = 0;
  for (long g : guarded) total += g;
  EXPECT_EQ(total, 2L * kThreads * kIters);
  for (auto *m : mx) EXPECT_EQ(ltsmxfree(reg, m), 0);
}

// ------------------------------------------------------------------ timers

TEST(Timers, OneShotsFireInDueOrder) {
  ltmctx *tc = ltmini();
  ASSERT_NE(tc, nullptr);
  struct Shot {
    std::mutex *m;
    std::vector<int> *order;
    int id;
  };
  std::mutex m;
  std::vector<int> order;
  const uint64_t delays_ms[] = {120, 20, 80, 40, 160, 60, 100, 140};
  std::vector<Shot> shots;
  for (int i = 0; i < 8; i++) shots.push_back({&m, &order, i});
  std::vector<ltmtimer *> tms;
  // Each due time lies between (before, after) of its start call plus the
  // delay; two timers whose windows do not overlap must fire in due order,
  // however late the machine lets the main thread run.
  std::vector<uint64_t> lo(8), hi(8);
  uint64_t t0 = ltmnow();
  for (int i = 0; i < 8; i++) {
    lo[i] = ltmnow() + delays_ms[i] * 1000000;
    tms.push_back(ltmstart(tc, delays_ms[i] * 1000, 0,
                           [](void *p) {
                             auto *s = static_cast<Shot *>(p);
                             std::lock_guard<std::mutex> l(*s->m);
                             s->order->push_back(s->id);
                           },
                           &shots[i]));
    hi[i] = ltmnow() + delays_ms[i] * 1000000;
  }
  for (;;) {
    {
      std::lock_guard<std::mutex> l(m);
      if (order.size() == 8) break;
    }
    slsleepms(5);
  }
  EXPECT_GE(ltmelapsed(t0), 160u * 1000000u) << "a timer fired early";
  std::vector<int> pos(8);
  for (int k = 0; k < 8; k++) pos[order[k]] = k;
  for (int i = 0; i < 8; i++)
    for (int j = 0; j < 8; j++)
      if (hi[i] < lo[j]) EXPECT_LT(pos[i], pos[j]) << "timer " << i << " is due before " << j;
  for (auto *tm : tms) {
    EXPECT_EQ(ltmfired(tc, tm), 1u);
    EXPECT_EQ(ltmcancel(tc, tm), 0);
  }
  EXPECT_EQ(ltmter(tc), 0);
}

TEST(Timers, PeriodicKeepsItsPeriod) {
  ltmctx *tc = ltmini();
  ASSERT_NE(tc, nullptr);
  struct Beat {
    std::mutex m;
    std::vector<uint64_t> at;
  } beat;
  uint64_t t0 = ltmnow();
  ltmtimer *tm = ltmstart(tc, 25000, 25000,
                          [](void *p) {
                            auto *b = static_cast<Beat *>(p);
                            std::lock_guard<std::mutex> l(b->m);
                            b->at.push_back(ltmnow());
                          },
                          &beat);
  ASSERT_NE(tm, nullptr);
  slsleepms(1000);
  ASSERT_EQ(ltmcancel(tc, tm), 0);
  uint64_t span = ltmelapsed(t0);
  std::lock_guard<std::mutex> l(beat.m);
  // Beats stay on the schedule t0 + k * 25 ms: a late beat delays nothing
  // after it and missed beats are skipped, so beat i never comes before
  // t0 + (i + 1) * 25 ms, and a loaded machine only lowers the count.
  double expect = static_cast<double>(span) / 25e6;
  EXPECT_GE(beat.at.size(), static_cast<size_t>(expect * 0.25));
  EXPECT_LE(beat.at.size(), static_cast<size_t>(expect + 1));
  for (size_t i = 0; i < beat.at.size(); i++)
    EXPECT_GE(beat.at[i] - t0, (i + 1) * 25u * 1000000u) << "beat " << i << " came early";
  if (beat.at.size() > 4) {
    double mean = static_cast<double>(beat.at.back() - beat.at.front()) / (beat.at.size() - 1) / 1e6;
    EXPECT_NEAR(mean, 25.0, 15.0);
  }
  EXPECT_EQ(ltmter(tc), 0);
}

TEST(Timers, CancelIsImmediate) {
  ltmctx *tc = ltmini();
  ASSERT_NE(tc, nullptr);
  struct Slow {
    std::atomic<int> in{0}, out{0};
  } slow;
  auto cb = [](void *p) {
    auto *s = static_cast<Slow *>(p);
    s->in++;
    slsleepms(40);
    s->out++;
  };
  for (int round = 0; round < 5; round++) {
    ltmtimer *tm = ltmstart(tc, 0, 5000, cb, &slow);
    ASSERT_NE(tm, nullptr);
    while (slow.in.load() == slow.out.load()) std::this_thread::yield();  // a run is under way
    ASSERT_EQ(ltmcancel(tc, tm), 0);
    EXPECT_EQ(slow.in.load(), slow.out.load()) << "callback still running after cancel";
    int after = slow.in.load();
    slsleepms(30);
    EXPECT_EQ(slow.in.load(), after) << "callback ran after cancel";
  }
  // A timer that never fired, and one cancelled from its own callback.
  ltmtimer *late = ltmstart(tc, 60000000, 0, cb, &slow);
  EXPECT_EQ(ltmcancel(tc, late), 0);
  struct Self {
    ltmctx *tc;
    ltmtimer *tm = nullptr;
    std::atomic<int> runs{0};
    std::atomic<int> rc{1};
  } self{tc};
  std::mutex start;
  start.lock();
  static std::mutex *gate;
  gate = &start;
  self.tm = ltmstart(tc, 1000, 1000,
                     [](void *p) {
                       auto *s = static_cast<Self *>(p);
                       gate->lock();
                       gate->unlock();
                       s->runs++;
                       s->rc = ltmcancel(s->tc, s->tm);
                     },
                     &self);
  start.unlock();
  while (self.rc.load() == 1) slsleepms(1);
  EXPECT_EQ(self.rc.load(), 0);
  slsleepms(30);
  EXPECT_EQ(self.runs.load(), 1);
  // Pending timers go with the context.
  ltmstart(tc, 60000000, 0, cb, &slow);
  EXPECT_EQ(ltmter(tc), 0);
}

TEST(Timers, ElapsedFollowsTheSteadyClock) {
  // Our interval lies inside the steady clock's interval that brackets it.
  auto outer_start = std::chrono::steady_clock::now();
  uint64_t a = ltmnow();
  slsleepms(30);
  uint64_t ours = ltmelapsed(a);
  auto outer = std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - outer_start);
  EXPECT_GE(ours, 30u * 1000000u);
  EXPECT_LE(ours, static_cast<uint64_t>(outer.count()));
  EXPECT_EQ(ltmelapsed(ltmnow() + 1000000000), 0u);
  EXPECT_EQ(ltmter(nullptr), -1);
}

// ------------------------------------------------------- system information

// ltssysinfo gathers the system layer's answers; the C library is the oracle.
TEST(SystemInfo, AgreesWithTheCLibrary) {
  char buf[512];
  ltssi si;
  ASSERT_EQ(ltssysinfo(&si), 0);
  EXPECT_EQ(si.pid, static_cast<int64_t>(kel_test::process_id()));
  EXPECT_EQ(si.host, kel_test::host_name());
  EXPECT_EQ(si.user, kel_test::user_name());
  EXPECT_EQ(std::string(si.cwd), std::filesystem::current_path().string());
  EXPECT_EQ(si.ncpu, static_cast<int32_t>(kel_test::cpu_count()));
  EXPECT_EQ(si.pagesize, static_cast<size_t>(kel_test::page_size()));
  EXPECT_EQ(si.pagesize, slmmvallocsz());
  EXPECT_GT(si.memory, 16u << 20);
  EXPECT_EQ(si.memory % si.pagesize, 0u);
  EXPECT_EQ(ltssysinfo(nullptr), -1);
  EXPECT_EQ(slsihost(buf, 1), -1);
  EXPECT_EQ(slgetcwd(buf, 1), -1);
}

TEST(SystemInfo, EnvironmentAndTemporaryDirectory) {
  KEL_SKIP_ON_WINDOWS("the temporary folder comes from TMP and TEMP, not TMPDIR");
  char saved[4096], buf[4096];
  int32_t had = slgetenv("TMPDIR", saved, sizeof saved);
  const char *cases[][2] = {{nullptr, "/tmp"}, {"/var/tmp/", "/var/tmp"}, {"/x//", "/x"}, {"", "/tmp"}, {"/", "/"}};
  for (auto &c : cases) {
    ASSERT_EQ(c[0] ? slsetenv("TMPDIR", c[0], 1) : slunsetenv("TMPDIR"), 0);
    const char *sys = getenv("TMPDIR");
    EXPECT_STREQ(sys ? sys : "(unset)", c[0] ? c[0] : "(unset)") << "the C library disagrees";
    ASSERT_GE(sltmpdir(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, c[1]) << (c[0] ? c[0] : "(unset)");
    ltssi si;
    ltssysinfo(&si);
    EXPECT_STREQ(si.tmpdir, c[1]);
  }
  (void)(had >= 0 ? slsetenv("TMPDIR", saved, 1) : slunsetenv("TMPDIR"));
}

}  // namespace
