// Condition variables: the delivery protocol (counters and gate, read under
// the internal lock), every failure path through the fault points, and
// stress runs checked against a std::condition_variable-style contract (no
// lost wake-up, each item consumed once). The watchdog makes a lost wake-up
// fail its test instead of hanging ctest.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <deque>
#include <numeric>
#include <thread>
#include <vector>

#include "slt.h"
#include "tests/support/watchdog.h"

namespace {

struct Snap {
  int32_t waiters, released, towake;
  bool gate_open;
  bool operator==(const Snap &) const = default;
};

std::ostream &operator<<(std::ostream &os, const Snap &s) {
  return os << "{waiters " << s.waiters << ", released " << s.released << ", towake " << s.towake << ", gate "
            << (s.gate_open ? "open" : "closed") << "}";
}

// The counters and the gate, seen consistently: both only change under the
// internal lock.
Snap snap(w32cond &c) {
  slcsenter(c.lock);
  Snap s{c.waiters, c.released, c.towake, slevwait(c.gate, 0) == SL_WAIT_OK};
  slcsleave(c.lock);
  return s;
}

// Polls until pred(snap) holds; false after ~10 s.
template <class P>
bool await_state(w32cond &c, P pred) {
  for (int i = 0; i < 10000; ++i) {
    if (pred(snap(c))) return true;
    slsleepms(1);
  }
  return false;
}

// True when the semaphore's count is 0 (a successful probe takes one).
bool sem_empty(w32cond &c) { return slsemwait(c.sem, 0) == SL_WAIT_TIMEOUT; }

// True when some other thread holds m.
bool held_elsewhere(w32mutex &m) {
  int32_t got = -1;
  std::thread([&] {
    got = slcstry(&m.cs);
    if (got == 1) slcsleave(&m.cs);
  }).join();
  return got == 0;
}

struct Fixture {
  w32cond c{};
  w32mutex m{};
  Fixture() {
    EXPECT_EQ(slcsinit(&m.cs), 0);
    EXPECT_EQ(w32cond_init(&c), 0);
  }
  ~Fixture() {
    EXPECT_EQ(w32cond_destroy(&c), 0);
    EXPECT_EQ(slcsdelete(&m.cs), 0);
  }
};

constexpr Snap kIdle{0, 0, 0, true};

bool have_faults() { return slfaultarm(SL_FAULT_WAIT, 0, 0) == 0; }

// ------------------------------------------------------------ init/destroy

TEST(Condition, FreshState) {
  static_assert(offsetof(w32mutex, cs) == 0);

  Fixture f;
  ASSERT_NE(f.c.lock, nullptr);
  // Signals and broadcasts without a waiter change nothing and bank no
  // wake-up for a later waiter.
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(w32cond_signal(&f.c), 0);
    EXPECT_EQ(w32cond_broadcast(&f.c), 0);
  }
  EXPECT_EQ(snap(f.c), kIdle);
  EXPECT_TRUE(sem_empty(f.c));
  // The semaphore holds up to 0x7FFFFFFF and refuses one more.
  EXPECT_EQ(slsemrelease(f.c.sem, 0x7FFFFFFF), 0);
  EXPECT_EQ(slsemrelease(f.c.sem, 1), -1);
  EXPECT_EQ(slerrno(), SL_ERR_LIMIT);
  // The gate is manual-reset: a probe does not close it.
  EXPECT_EQ(slevwait(f.c.gate, 0), SL_WAIT_OK);
  EXPECT_EQ(slevwait(f.c.gate, 0), SL_WAIT_OK);
  EXPECT_EQ(w32cond_init(nullptr), -1);
  EXPECT_EQ(w32cond_destroy(nullptr), -1);
  EXPECT_EQ(w32cond_signal(nullptr), -1);
  EXPECT_EQ(w32cond_broadcast(nullptr), -1);
}

TEST(Condition, InitFailuresCloseWhatWasCreated) {
  if (!have_faults()) GTEST_SKIP() << "build without fault points";
  struct Case {
    int32_t point;
    int64_t closes;  // handles closed again on the way out
  } cases[] = {
      {SL_FAULT_SEM_CREATE, 0},
      {SL_FAULT_EVENT_CREATE, 1},  // the semaphore
      {SL_FAULT_MEM, 2},           // semaphore and gate
      {SL_FAULT_CS_INIT, 2},       // semaphore and gate; the lock's memory is freed (leak check)
  };
  for (const Case &k : cases) {
    SCOPED_TRACE(k.point);
    slfaultreset();
    ASSERT_EQ(slfaultarm(k.point, 1, 1), 0);
    ASSERT_EQ(slfaultarm(SL_FAULT_CLOSE, 0, 0), 0);
    w32cond c;
    EXPECT_EQ(w32cond_init(&c), -1);
    EXPECT_EQ(slfaulthits(k.point), 1);
    EXPECT_EQ(slfaultseen(SL_FAULT_CLOSE), k.closes);
    EXPECT_EQ(c.sem, nullptr);
    EXPECT_EQ(c.gate, nullptr);
    EXPECT_EQ(c.lock, nullptr);
    // The next attempt succeeds: nothing was left half made.
    EXPECT_EQ(w32cond_init(&c), 0);
    EXPECT_EQ(w32cond_destroy(&c), 0);
  }
  slfaultreset();
}

TEST(Condition, DestroyReportsHandlesThatCannotBeClosed) {
  if (!have_faults()) GTEST_SKIP() << "build without fault points";
  // Close order: internal lock, semaphore, gate.
  struct Case {
    int64_t nth, count;
    int32_t result;
  } cases[] = {
      {0, 0, 0},    // nothing fails
      {1, 1, 0},    // only the internal lock: the handles decide the result
      {2, 1, -1},   // the semaphore
      {3, 1, -1},   // the gate
      {1, -1, -1},  // everything
  };
  for (const Case &k : cases) {
    SCOPED_TRACE(k.nth * 10 + k.count);
    slfaultreset();
    w32cond c;
    ASSERT_EQ(w32cond_init(&c), 0);
    ASSERT_EQ(slfaultarm(SL_FAULT_CLOSE, k.nth, k.count), 0);
    EXPECT_EQ(w32cond_destroy(&c), k.result);
    EXPECT_EQ(slfaultseen(SL_FAULT_CLOSE), 3) << "every handle is released";
    EXPECT_EQ(c.lock, nullptr);
  }
  slfaultreset();
}

// -------------------------------------------------------- delivery protocol

// Starts n threads waiting on f (with a long time limit when `timed`);
// returned counts those that came back.
struct Waiters {
  Fixture &f;
  std::atomic<int> returned{0};
  std::vector<std::thread> threads;
  explicit Waiters(Fixture &fx) : f(fx) {}
  void start(int n, bool timed = false) {
    for (int i = 0; i < n; ++i)
      threads.emplace_back([this, timed] {
        slcsenter(&f.m.cs);
        EXPECT_EQ(timed ? w32cond_timedwait(&f.c, &f.m, 100000) : w32cond_wait(&f.c, &f.m), 0);
        slcsleave(&f.m.cs);
        returned.fetch_add(1);
      });
  }
  void join() {
    for (auto &t : threads) t.join();
    threads.clear();
  }
};

// One of the three waiters waits with a time limit: a signalled timed wait
// returns 0 and leaves the counters as an untimed one does.
TEST(Condition, SignalWakesOneBroadcastWakesTheRest) {
  Fixture f;
  Waiters w(f);
  w.start(1, true);
  w.start(2);
  ASSERT_TRUE(await_state(f.c, [](Snap s) { return s.waiters == 3; }));
  EXPECT_EQ(w32cond_signal(&f.c), 0);
  ASSERT_TRUE(await_state(f.c, [](Snap s) { return s == Snap{2, 0, 0, true}; })) << snap(f.c);
  slsleepms(50);  // give a wrongly woken second waiter time to show up
  EXPECT_EQ(w.returned.load(), 1);
  EXPECT_EQ(snap(f.c), (Snap{2, 0, 0, true}));
  EXPECT_EQ(w32cond_broadcast(&f.c), 0);
  w.join();
  EXPECT_EQ(w.returned.load(), 3);
  EXPECT_EQ(snap(f.c), kIdle);
  EXPECT_TRUE(sem_empty(f.c));
}

TEST(Condition, BroadcastKeepsLateWaiterAtTheGate) {
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE(round);
    Fixture f;
    Waiters w(f);
    w.start(3);
    ASSERT_TRUE(await_state(f.c, [](Snap s) { return s.waiters == 3; }));

    // Hold the internal lock so that the broadcast stops right after
    // closing the gate, then let a fourth thread arrive.
    slcsenter(f.c.lock);
    std::thread b([&] { EXPECT_EQ(w32cond_broadcast(&f.c), 0); });
    bool closed = false;
    for (int i = 0; i < 10000 && !closed; ++i) {
      closed = slevwait(f.c.gate, 0) == SL_WAIT_TIMEOUT;
      if (!closed) slsleepms(1);
    }
    std::atomic<bool> late_back{false};
    std::thread late([&] {
      slcsenter(&f.m.cs);
      EXPECT_EQ(w32cond_wait(&f.c, &f.m), 0);
      slcsleave(&f.m.cs);
      late_back = true;
    });
    slsleepms(round % 4 == 0 ? 20 : 1);
    EXPECT_EQ(f.c.waiters, 3);
    slcsleave(f.c.lock);
    ASSERT_TRUE(closed);

    // While any woken waiter is still to leave, the late one must not have
    // registered, and the gate stays closed.
    bool registered = false;
    for (uint64_t until = slmonons() + 20000000000ull; !registered && slmonons() < until;) {
      Snap s = snap(f.c);
      if (s.towake > 0) {
        EXPECT_EQ(s.waiters, s.towake) << s;
        EXPECT_EQ(s.released, s.towake) << s;
        EXPECT_FALSE(s.gate_open) << s;
      }
      registered = s == Snap{1, 0, 0, true} && w.returned.load() == 3;
      if (!registered) slyield();
    }
    b.join();
    w.join();
    EXPECT_TRUE(registered) << snap(f.c);
    EXPECT_EQ(w.returned.load(), 3);
    EXPECT_FALSE(late_back.load()) << "the late waiter took a wake-up of the broadcast";
    EXPECT_TRUE(sem_empty(f.c)) << "the broadcast released exactly three";
    EXPECT_EQ(w32cond_signal(&f.c), 0);
    late.join();
    EXPECT_EQ(snap(f.c), kIdle);
  }
}

TEST(Condition, TimedWaitTimeoutTouchesOnlyWaitersAndOpensTheGate) {
  Fixture f;
  // Pretend a delivery is pending for others: a timeout must not consume it.
  slcsenter(f.c.lock);
  f.c.waiters = 5;
  f.c.released = 2;
  f.c.towake = 2;
  slcsleave(f.c.lock);
  // Close the gate behind the waiter while it blocks: every timed return
  // reopens it.
  std::thread closer([&] {
    ASSERT_TRUE(await_state(f.c, [](Snap s) { return s.waiters == 6; }));
    EXPECT_EQ(slevreset(f.c.gate), 0);
  });
  slcsenter(&f.m.cs);
  uint64_t t0 = slmonons();
  EXPECT_EQ(w32cond_timedwait(&f.c, &f.m, 200), -1);
  uint64_t waited_ms = (slmonons() - t0) / 1000000;
  EXPECT_TRUE(held_elsewhere(f.m)) << "the mutex is held again on return";
  slcsleave(&f.m.cs);
  closer.join();
  EXPECT_GE(waited_ms, 190u);
  EXPECT_EQ(snap(f.c), (Snap{5, 2, 2, true}));
  EXPECT_TRUE(sem_empty(f.c));
  slcsenter(f.c.lock);
  f.c.waiters = f.c.released = f.c.towake = 0;
  slcsleave(f.c.lock);
}

// ---------------------------------------------------------- failure paths

TEST(Condition, FailedWaitsKeepTheMutexAndOpenTheGate) {
  if (!have_faults()) GTEST_SKIP() << "build without fault points";
  // The first wait of an operation is at the gate, the second on the semaphore.
  struct Case {
    bool timed;
    int64_t nth;
    int32_t result;
    Snap after;
  } cases[] = {
      {false, 1, -1, kIdle},
      {false, 2, -1, Snap{1, 0, 0, true}},  // the waiter count is left as it is
      {true, 1, -1, kIdle},
      {true, 2, -SL_ERR_FAULT, kIdle},  // negated system error number
  };
  for (const Case &k : cases) {
    SCOPED_TRACE(k.timed * 10 + k.nth);
    Fixture f;
    slfaultreset();
    ASSERT_EQ(slfaultarm(SL_FAULT_WAIT, k.nth, 1), 0);
    slcsenter(&f.m.cs);
    int32_t r = k.timed ? w32cond_timedwait(&f.c, &f.m, 1000) : w32cond_wait(&f.c, &f.m);
    EXPECT_EQ(r, k.result);
    EXPECT_TRUE(held_elsewhere(f.m));
    slcsleave(&f.m.cs);
    EXPECT_EQ(slfaulthits(SL_FAULT_WAIT), 1);
    slfaultreset();
    EXPECT_EQ(snap(f.c), k.after);
  }
}

TEST(Condition, FailedDeliveryReopensTheGateAndKeepsCounters) {
  if (!have_faults()) GTEST_SKIP() << "build without fault points";
  struct Case {
    bool broadcast;
    int32_t point;
  } cases[] = {
      {false, SL_FAULT_SEM_RELEASE},
      {true, SL_FAULT_SEM_RELEASE},
      {false, SL_FAULT_WAIT},  // the gate wait
      {true, SL_FAULT_WAIT},
      {false, SL_FAULT_EVENT_SET},  // closing the gate
      {true, SL_FAULT_EVENT_SET},
  };
  for (const Case &k : cases) {
    SCOPED_TRACE(k.broadcast * 100 + k.point);
    Fixture f;
    Waiters w(f);
    slfaultreset();
    w.start(2);
    // Both waiters must be past their own two waits (gate, semaphore)
    // before a fault is armed for the delivery.
    for (int i = 0; i < 10000 && slfaultseen(SL_FAULT_WAIT) < 4; ++i) slsleepms(1);
    ASSERT_EQ(slfaultseen(SL_FAULT_WAIT), 4);
    ASSERT_TRUE(await_state(f.c, [](Snap s) { return s.waiters == 2; }));
    ASSERT_EQ(slfaultarm(k.point, 1, 1), 0);
    EXPECT_EQ(k.broadcast ? w32cond_broadcast(&f.c) : w32cond_signal(&f.c), -1);
    EXPECT_EQ(slfaulthits(k.point), 1);
    slfaultreset();
    EXPECT_EQ(snap(f.c), (Snap{2, 0, 0, true}));
    EXPECT_TRUE(sem_empty(f.c));
    EXPECT_EQ(w.returned.load(), 0);
    // The condition still works.
    EXPECT_EQ(w32cond_broadcast(&f.c), 0);
    w.join();
    EXPECT_EQ(snap(f.c), kIdle);
  }
}

// ------------------------------------------------------------------ stress

// A bounded queue with many producers and consumers: every item arrives
// exactly once, whichever way the waits are woken.
TEST(Condition, ProducersConsumersStress) {
  struct Variant {
    bool broadcast;  // wake with broadcast instead of signal
    uint32_t timed;  // 0: untimed waits, else the consumers' time limit in ms
    int producers, consumers, per_producer;
  } variants[] = {
      {false, 0, 3, 3, 6000},
      {true, 0, 3, 3, 6000},
      {false, 1, 2, 4, 4000},
      {true, 0, 1, 6, 8000},
      {false, 0, 6, 1, 1500},
  };
  for (const Variant &v : variants) {
    SCOPED_TRACE(v.broadcast * 1000 + v.timed * 100 + v.producers * 10 + v.consumers);
    Fixture f;
    w32cond not_full{};
    ASSERT_EQ(w32cond_init(&not_full), 0);
    constexpr size_t kCap = 4;
    std::deque<int> q;  // guarded by f.m
    bool done = false;
    std::vector<std::vector<int>> got(v.consumers);
    auto wake = [&](w32cond *c) { EXPECT_EQ(v.broadcast ? w32cond_broadcast(c) : w32cond_signal(c), 0); };

    std::vector<std::thread> ts;
    for (int p = 0; p < v.producers; ++p)
      ts.emplace_back([&, p] {
        for (int i = 0; i < v.per_producer; ++i) {
          slcsenter(&f.m.cs);
          while (q.size() >= kCap) EXPECT_EQ(w32cond_wait(&not_full, &f.m), 0);
          q.push_back(p * v.per_producer + i);
          wake(&f.c);
          slcsleave(&f.m.cs);
        }
      });
    for (int c = 0; c < v.consumers; ++c)
      ts.emplace_back([&, c] {
        for (;;) {
          slcsenter(&f.m.cs);
          while (q.empty() && !done) {
            if (v.timed)
              w32cond_timedwait(&f.c, &f.m, v.timed);  // -1 on timeout: re-check
            else
              EXPECT_EQ(w32cond_wait(&f.c, &f.m), 0);
          }
          if (q.empty()) {
            slcsleave(&f.m.cs);
            return;
          }
          got[c].push_back(q.front());
          q.pop_front();
          wake(&not_full);
          slcsleave(&f.m.cs);
        }
      });
    for (int p = 0; p < v.producers; ++p) ts[p].join();
    slcsenter(&f.m.cs);
    done = true;
    EXPECT_EQ(w32cond_broadcast(&f.c), 0);
    slcsleave(&f.m.cs);
    for (size_t i = v.producers; i < ts.size(); ++i) ts[i].join();

    std::vector<int> all;
    for (auto &g : got) all.insert(all.end(), g.begin(), g.end());
    std::sort(all.begin(), all.end());
    std::vector<int> want(v.producers * v.per_producer);
    std::iota(want.begin(), want.end(), 0);
    EXPECT_EQ(all, want);
    if (!v.timed) {
      EXPECT_EQ(snap(f.c).waiters, 0);
      EXPECT_EQ(snap(not_full).waiters, 0);
    }
    EXPECT_EQ(w32cond_destroy(&not_full), 0);
  }
}

}  // namespace
