// Critical sections: mutual exclusion under contention, sleepers woken when
// the holder leaves, try and delete on a held section.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "sl.h"

namespace {

// Threads add to a plain counter inside the section; any lost update shows
// in the total (and ThreadSanitizer sees a race if the section leaks). The
// first round starts while the section is held long enough for every
// thread to go to sleep on it: leaving must wake them all, one by one.
TEST(CriticalSection, ExcludesAndWakesSleepers) {
  struct Case {
    int threads, rounds;
    bool held_at_start;
  } cases[] = {{4, 1, true}, {2, 20000, false}, {4, 10000, false}, {8, 3000, true}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.threads * 100000 + c.rounds);
    slcs cs;
    ASSERT_EQ(slcsinit(&cs), 0);
    if (c.held_at_start) slcsenter(&cs);
    long counter = 0;
    std::atomic<int> started{0};
    std::vector<std::thread> ts;
    for (int t = 0; t < c.threads; t++)
      ts.emplace_back([&] {
        started++;
        for (int i = 0; i < c.rounds; i++) {
          slcsenter(&cs);
          counter++;
          slcsleave(&cs);
        }
      });
    if (c.held_at_start) {
      while (started.load() < c.threads) std::this_thread::yield();
      slsleepms(50);  // long past their spinning
      EXPECT_EQ(counter, 0);
      slcsleave(&cs);
    }
    for (auto &t : ts) t.join();
    EXPECT_EQ(counter, static_cast<long>(c.threads) * c.rounds);
    EXPECT_EQ(slcsdelete(&cs), 0);
  }
}

// Not recursive: the holder's own try fails as another thread's does.
TEST(CriticalSection, TryAndDeleteSeeTheHolder) {
  slcs cs;
  ASSERT_EQ(slcsinit(&cs), 0);
  EXPECT_EQ(slcstry(&cs), 1);
  EXPECT_EQ(slcstry(&cs), 0) << "the holder took its section twice";
  int32_t other = -1;
  std::thread([&] { other = slcstry(&cs); }).join();
  EXPECT_EQ(other, 0) << "a held section was taken twice";
  EXPECT_EQ(slcsdelete(&cs), -1) << "a held section was deleted";
  slcsleave(&cs);
  std::thread([&] {
    other = slcstry(&cs);
    if (other == 1) slcsleave(&cs);
  }).join();
  EXPECT_EQ(other, 1);
  if (slfaultarm(SL_FAULT_CLOSE, 1, 1) == 0) EXPECT_EQ(slcsdelete(&cs), -1);  // refused: still there
  EXPECT_EQ(slcsdelete(&cs), 0);
}

}  // namespace
