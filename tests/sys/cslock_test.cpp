// Critical sections: mutual exclusion under contention, sleepers woken when
// the holder leaves, try and delete on a held section.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "sl.h"

namespace {

// Threads add to a plain counter inside the section; any lost update shows
// in the total (and ThreadSanitizer sees a race if the section leaks).
TEST(CriticalSection, ExcludesUnderContention) {
  struct Case {
    int threads, rounds;
  } cases[] = {{2, 20000}, {4, 10000}, {8, 3000}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.threads);
    slcs cs;
    ASSERT_EQ(slcsinit(&cs), 0);
    long counter = 0;
    std::vector<std::thread> ts;
    for (int t = 0; t < c.threads; t++)
      ts.emplace_back([&] {
        for (int i = 0; i < c.rounds; i++) {
          slcsenter(&cs);
          counter++;
          slcsleave(&cs);
        }
      });
    for (auto &t : ts) t.join();
    EXPECT_EQ(counter, static_cast<long>(c.threads) * c.rounds);
    EXPECT_EQ(slcsdelete(&cs), 0);
  }
}

// Waiters that find the section held long enough to go to sleep all get it
// once the holder leaves, one after the other.
TEST(CriticalSection, SleepersAreWoken) {
  slcs cs;
  ASSERT_EQ(slcsinit(&cs), 0);
  slcsenter(&cs);
  std::atomic<int> started{0}, done{0};
  std::vector<std::thread> ts;
  for (int t = 0; t < 4; t++)
    ts.emplace_back([&] {
      started++;
      slcsenter(&cs);
      done++;
      slcsleave(&cs);
    });
  while (started.load() < 4) std::this_thread::yield();
  slsleepms(50);  // long past their spinning
  EXPECT_EQ(done.load(), 0);
  slcsleave(&cs);
  for (auto &t : ts) t.join();
  EXPECT_EQ(done.load(), 4);
  EXPECT_EQ(slcsdelete(&cs), 0);
}

TEST(CriticalSection, TryAndDeleteSeeTheHolder) {
  slcs cs;
  ASSERT_EQ(slcsinit(&cs), 0);
  EXPECT_EQ(slcstry(&cs), 1);
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
  EXPECT_EQ(slcsdelete(&cs), 0);
}

}  // namespace
