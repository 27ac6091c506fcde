// Recursive mutexes, read-write locks, the mutex registry and timers,
// stress-tested with
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

// -------------------------------------------------------- recursive mutex

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
    std::atomic<int> readers_in{0}, writers_in{0};
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
        // readers only after the writers are done; and no more than the
        // writers write, since readers that never stop may keep writers out
        // for good where readers go first.
        int n = 0;
        do {
          ASSERT_EQ(rw.read(&lock), 0);
          readers_in.fetch_add(1);
          if (writers_in.load() != 0 || a != b) bad++;
          reads++;
          readers_in.fetch_sub(1);
          ASSERT_EQ(rw.unlock(&lock), 0);
        } while (++n < kWrites && !stop.load());
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
      std::vector<std::thread> ts;
      for (int i = 0; i < n; i++)
        ts.emplace_back([&, i] {
          ASSERT_EQ(ltsmxlock(reg, mx[i]), 0);
          holding++;
          while (holding.load() < n) std::this_thread::yield();
          int32_t rc = ltsmxlock(reg, mx[(i + 1) % n]);
          if (rc == 0) {
            ltsmxunlock(reg, mx[(i + 1) % n]);
          } else {
            EXPECT_EQ(rc, -1);
            refused++;
            auto [msg, text] = newest();
            EXPECT_EQ(msg, kelmsg::LTS_DEADLOCK);
            EXPECT_EQ(text.rfind("thread " + std::to_string(slthrself()) + " waits for", 0), 0u) << text;
            for (int k = 0; k < n; k++) EXPECT_NE(text.find("\"M" + std::to_string(k) + "\""), std::string::npos) << text;
          }
          ltsmxunlock(reg, mx[i]);  // a refused thread breaks the cycle
        });
      for (auto &t : ts) t.join();
      EXPECT_EQ(refused.load(), 1) << n << " threads, round " << round;
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

// ------------------------------------------------------------------ timers

// Timer callbacks note the time they ran.
struct Log {
  std::mutex m;
  std::vector<std::pair<int, uint64_t>> runs;  // (id, ltmnow)
};
struct Shot {
  Log *log;
  int id;
};
void note(void *p) {
  auto *s = static_cast<Shot *>(p);
  std::lock_guard<std::mutex> l(s->log->m);
  s->log->runs.push_back({s->id, ltmnow()});
}

// One-shots fire once, never early, in due order when their due windows do
// not overlap; a periodic timer (id 8, 25 ms) keeps the schedule
// start + k * period, skipping beats it missed rather than bunching them.
TEST(Timers, OneShotsInDueOrderAndPeriodicOnSchedule) {
  ltmctx *tc = ltmini();
  ASSERT_NE(tc, nullptr);
  Log log;
  const uint64_t delay_ms[] = {120, 20, 80, 40, 160, 60, 100, 140, 25};
  std::vector<Shot> shots;
  for (int i = 0; i < 9; i++) shots.push_back({&log, i});
  std::vector<ltmtimer *> tms;
  // Each due time lies between (lo, hi): before and after its start call.
  std::vector<uint64_t> lo(9), hi(9);
  for (int i = 0; i < 9; i++) {
    lo[i] = ltmnow() + delay_ms[i] * 1000000;
    tms.push_back(ltmstart(tc, delay_ms[i] * 1000, i == 8 ? 25000 : 0, note, &shots[i]));
    ASSERT_NE(tms.back(), nullptr);
    hi[i] = ltmnow() + delay_ms[i] * 1000000;
  }
  auto fired = [&] {
    std::lock_guard<std::mutex> l(log.m);
    return std::count_if(log.runs.begin(), log.runs.end(), [](auto &r) { return r.first != 8; });
  };
  for (int i = 0; i < 4000 && (fired() < 8 || i < 200); i++) slsleepms(5);
  ASSERT_EQ(ltmcancel(tc, tms[8]), 0);
  uint64_t end = ltmnow();
  std::lock_guard<std::mutex> l(log.m);
  std::vector<int> pos(8, -1);
  std::vector<uint64_t> beats;
  for (size_t k = 0; k < log.runs.size(); k++) {
    auto [id, at] = log.runs[k];
    if (id == 8) {
      beats.push_back(at);
      continue;
    }
    EXPECT_EQ(pos[id], -1) << "timer " << id << " fired twice";
    EXPECT_GE(at, lo[id]) << "timer " << id << " fired early";
    pos[id] = static_cast<int>(k);
  }
  for (int i = 0; i < 8; i++) {
    EXPECT_NE(pos[i], -1) << "timer " << i << " never fired";
    for (int j = 0; j < 8; j++)
      if (hi[i] < lo[j]) EXPECT_LT(pos[i], pos[j]) << "timer " << i << " is due before " << j;
    EXPECT_EQ(ltmfired(tc, tms[i]), 1u);
    EXPECT_EQ(ltmcancel(tc, tms[i]), 0);
  }
  // A loaded machine only lowers the count of beats.
  double expect = static_cast<double>(end - lo[8]) / 25e6 + 1;
  EXPECT_GE(beats.size(), static_cast<size_t>(expect * 0.25));
  EXPECT_LE(beats.size(), static_cast<size_t>(expect + 1));
  for (size_t i = 0; i < beats.size(); i++)
    EXPECT_GE(beats[i], lo[8] + i * 25000000u) << "beat " << i << " came early";
  EXPECT_EQ(ltmter(tc), 0);
}

// Cancel returns only once a running callback has finished, and nothing
// runs after it; a callback may cancel its own timer; pending timers go
// with the context.
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
  for (int round = 0; round < 3; round++) {
    ltmtimer *tm = ltmstart(tc, 0, 5000, cb, &slow);
    ASSERT_NE(tm, nullptr);
    while (slow.in.load() == slow.out.load()) std::this_thread::yield();  // a run is under way
    ASSERT_EQ(ltmcancel(tc, tm), 0);
    EXPECT_EQ(slow.in.load(), slow.out.load()) << "callback still running after cancel";
    int after = slow.in.load();
    slsleepms(30);
    EXPECT_EQ(slow.in.load(), after) << "callback ran after cancel";
  }
  struct Self {
    ltmctx *tc;
    ltmtimer *tm = nullptr;
    std::atomic<int> runs{0}, rc{1};
  } self{tc};
  static std::mutex gate;  // holds the callback until self.tm is set
  gate.lock();
  self.tm = ltmstart(tc, 1000, 1000,
                     [](void *p) {
                       auto *s = static_cast<Self *>(p);
                       std::lock_guard<std::mutex> g(gate);
                       s->runs++;
                       s->rc = ltmcancel(s->tc, s->tm);
                     },
                     &self);
  gate.unlock();
  while (self.rc.load() == 1) slsleepms(1);
  EXPECT_EQ(self.rc.load(), 0);
  slsleepms(30);
  EXPECT_EQ(self.runs.load(), 1);
  ltmstart(tc, 60000000, 0, cb, &slow);
  EXPECT_EQ(ltmter(tc), 0);
  EXPECT_EQ(ltmter(nullptr), -1);
}

// Our interval lies inside the steady clock's interval that brackets it.
TEST(Timers, ElapsedFollowsTheSteadyClock) {
  auto outer_start = std::chrono::steady_clock::now();
  uint64_t a = ltmnow();
  slsleepms(30);
  uint64_t ours = ltmelapsed(a);
  auto outer = std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - outer_start);
  EXPECT_GE(ours, 30u * 1000000u);
  EXPECT_LE(ours, static_cast<uint64_t>(outer.count()));
  EXPECT_EQ(ltmelapsed(ltmnow() + 1000000000), 0u);
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
  ASSERT_GE(sltmpdir(buf, sizeof buf), 0);
  EXPECT_STREQ(si.tmpdir, buf);
  EXPECT_EQ(ltssysinfo(nullptr), -1);
  EXPECT_EQ(slsihost(buf, 1), -1);
  EXPECT_EQ(slgetcwd(buf, 1), -1);
}

}  // namespace
