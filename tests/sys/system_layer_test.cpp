// The system layer: memory, waits, threads and their identifiers, TLS,
// environment, loader and clocks, checked against the C library and std::
// equivalents.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "lfi.h"
#include "sl.h"
#include "slt.h"
#include "tests/support/portable.h"

namespace {

TEST(SysMemory, SystemAllocatorAlignsAndResizes) {
  for (size_t n : {0u, 1u, 15u, 16u, 17u, 4096u, 1000000u}) {
    auto *p = static_cast<unsigned char *>(ss_mem_alc(n));
    ASSERT_NE(p, nullptr) << n;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    memset(p, 0xA5, n);
    p = static_cast<unsigned char *>(ss_mem_ralc(p, n + 100));
    ASSERT_NE(p, nullptr);
    for (size_t i = 0; i < n; ++i) ASSERT_EQ(p[i], 0xA5);
    ss_mem_fre(p);
  }
  auto *z = static_cast<unsigned char *>(ss_mem_calc(333));
  ASSERT_NE(z, nullptr);
  EXPECT_TRUE(std::all_of(z, z + 333, [](unsigned char c) { return c == 0; }));
  ss_mem_fre(z);
  ss_mem_fre(nullptr);
}

TEST(SysMemory, ExtentsArePageAlignedZeroedAndReturnable) {
  size_t page = slmmvallocsz();
  ASSERT_GE(page, 4096u);
  EXPECT_EQ(page & (page - 1), 0u) << "page size is a power of two";
  EXPECT_GE(slmmstmsr(), page);
  for (size_t n : {size_t{1}, page, page + 1, size_t{3} << 20}) {
    auto *p = static_cast<unsigned char *>(slwmmgetmem(n));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % page, 0u);
    EXPECT_TRUE(std::all_of(p, p + n, [](unsigned char c) { return c == 0; }));
    p[n - 1] = 1;
    EXPECT_EQ(slwmmputmem(p, n), 0);
  }
  EXPECT_EQ(slwmmgetmem(0), nullptr);
  EXPECT_EQ(slwmmputmem(nullptr, 10), -1);
}

TEST(SysMemory, ByteSwapMatchesSwapRanges) {
  std::mt19937 rng(7);
  for (size_t n = 0; n < 70; ++n) {
    std::vector<unsigned char> a(n), b(n);
    for (auto &c : a) c = static_cast<unsigned char>(rng());
    for (auto &c : b) c = static_cast<unsigned char>(rng());
    auto ea = b, eb = a;
    slmeswap(a.data(), b.data(), n);
    EXPECT_EQ(a, ea);
    EXPECT_EQ(b, eb);
  }
}

TEST(SysFault, ArmedWindowRefusesExactlyThoseRequests) {
  if (slfaultarm(SL_FAULT_MEM, 0, 0) != 0) GTEST_SKIP() << "build without fault points";
  EXPECT_EQ(slfaultarm(0, 1, 1), -1);
  EXPECT_EQ(slfaultarm(SL_FAULT_MAX + 1, 1, 1), -1);
  EXPECT_EQ(slfaultseen(0), 0);
  EXPECT_EQ(slfaulthits(SL_FAULT_MAX + 1), 0);

  // A refused write is a full disk, the one write failure callers act on.
  int64_t h;
  ASSERT_EQ(slftemp(nullptr, &h), 0);
  ASSERT_EQ(slfaultarm(SL_FAULT_FILE_WRITE, 1, 1), 0);
  EXPECT_EQ(slfwrite(h, "x", 1), -1);
  EXPECT_EQ(slfclass(slerrno()), SLF_E_NOSPACE);
  EXPECT_EQ(slfwrite(h, "x", 1), 1);
  // Every refused request fails with exactly -1.
  char c;
  sltstid tid;
  sltlskey key;
  const int32_t points[] = {SL_FAULT_FILE_READ, SL_FAULT_FILE_OTHER, SL_FAULT_TID, SL_FAULT_TLS};
  for (int32_t p : points) ASSERT_EQ(slfaultarm(p, 1, 1), 0);
  EXPECT_EQ(slfread(h, &c, 1), -1);
  EXPECT_EQ(slfremove("kel-no-such-file"), -1);
  EXPECT_EQ(sltstidinit(nullptr, &tid), -1);
  EXPECT_EQ(sltlscreate(&key, nullptr), -1);
  for (int32_t p : points) EXPECT_EQ(slfaulthits(p), 1) << p;
  EXPECT_EQ(slfclose(h), 0);
  EXPECT_EQ(slfstd(-1), -1);
  EXPECT_EQ(slfstd(3), -1);

  ASSERT_EQ(slfaultarm(SL_FAULT_MEM, 2, 2), 0);
  std::vector<void *> got;
  for (int i = 0; i < 5; ++i) got.push_back(ss_mem_alc(8));
  EXPECT_NE(got[0], nullptr);
  EXPECT_EQ(got[1], nullptr);
  EXPECT_EQ(got[2], nullptr);
  EXPECT_NE(got[3], nullptr);
  EXPECT_NE(got[4], nullptr);
  EXPECT_EQ(slfaultseen(SL_FAULT_MEM), 5);
  EXPECT_EQ(slfaulthits(SL_FAULT_MEM), 2);
  for (void *p : got) ss_mem_fre(p);

  // The shared memory point counts both kinds of request in one sequence.
  ASSERT_EQ(slfaultarm(SL_FAULT_ANYMEM, 2, -1), 0);
  void *a = ss_mem_alc(8);
  EXPECT_NE(a, nullptr);
  EXPECT_EQ(slwmmgetmem(100), nullptr);
  EXPECT_EQ(slerrno(), SL_ERR_FAULT);
  EXPECT_EQ(ss_mem_alc(8), nullptr);
  slfaultreset();
  void *b = slwmmgetmem(100);
  EXPECT_NE(b, nullptr);
  slwmmputmem(b, 100);
  ss_mem_fre(a);
}

// Counts up to its maximum and no further; a release of many wakes that
// many waiters; waits time out in their time.
TEST(SysSync, SemaphoresCountWakeAndTimeOut) {
  slsem *s = slsemcreate(1, 6);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(slsemwait(s, 0), SL_WAIT_OK);
  uint64_t t0 = slmonons();
  EXPECT_EQ(slsemwait(s, 30), SL_WAIT_TIMEOUT);
  EXPECT_GE(slmonons() - t0, 29'000'000u);
  std::atomic<int> woke{0};
  std::vector<std::thread> ts;
  for (int i = 0; i < 6; ++i)
    ts.emplace_back([&] {
      if (slsemwait(s, SL_INFINITE) == SL_WAIT_OK) woke.fetch_add(1);
    });
  ASSERT_EQ(slsemrelease(s, 4), 0);
  ASSERT_EQ(slsemrelease(s, 2), 0);
  for (auto &t : ts) t.join();
  EXPECT_EQ(woke.load(), 6);
  EXPECT_EQ(slsemrelease(s, 6), 0);
  EXPECT_EQ(slsemrelease(s, 1), -1);
  EXPECT_EQ(slerrno(), SL_ERR_LIMIT);
  EXPECT_EQ(slsemrelease(s, 0), -1);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(slsemwait(s, SL_INFINITE), SL_WAIT_OK);
  EXPECT_EQ(slsemwait(s, 0), SL_WAIT_TIMEOUT);
  EXPECT_EQ(slsemclose(s), 0);
  EXPECT_EQ(slsemcreate(2, 1), nullptr);
  EXPECT_EQ(slsemcreate(-1, 1), nullptr);
  EXPECT_EQ(slsemwait(nullptr, 0), SL_WAIT_FAILED);
}

TEST(SysSync, EventsResetManuallyOrByThemselves) {
  slevt *m = slevcreate(1, 0);
  slevt *a = slevcreate(0, 1);
  ASSERT_NE(m, nullptr);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(slevwait(m, 0), SL_WAIT_TIMEOUT);
  EXPECT_EQ(slevset(m), 0);
  EXPECT_EQ(slevwait(m, 0), SL_WAIT_OK);
  EXPECT_EQ(slevwait(m, 0), SL_WAIT_OK) << "manual reset stays set";
  EXPECT_EQ(slevreset(m), 0);
  EXPECT_EQ(slevwait(m, 10), SL_WAIT_TIMEOUT);

  EXPECT_EQ(slevwait(a, 0), SL_WAIT_OK);
  EXPECT_EQ(slevwait(a, 0), SL_WAIT_TIMEOUT) << "auto reset releases one waiter";

  // A manual event set once releases every thread waiting on it.
  std::atomic<int> through{0};
  std::vector<std::thread> ts;
  for (int i = 0; i < 4; ++i)
    ts.emplace_back([&] {
      if (slevwait(m, SL_INFINITE) == SL_WAIT_OK) through.fetch_add(1);
    });
  slsleepms(5);
  slevset(m);
  for (auto &t : ts) t.join();
  EXPECT_EQ(through.load(), 4);
  EXPECT_EQ(slevclose(m), 0);
  EXPECT_EQ(slevclose(a), 0);
}

// Started threads hand back their results, and every thread (started here
// or not) has its own number, never reused, which the thread-services
// identifiers carry.
TEST(SysThreads, CreateJoinDetachAndIdentifiers) {
  static sltsctx *ts;  // reached by the threads' body
  ts = sltsini();
  ASSERT_NE(ts, nullptr);
  sltstid me, again;
  ASSERT_EQ(sltstidinit(ts, &me), 0);
  EXPECT_EQ(sltstidnull(ts, &me), 1);
  EXPECT_EQ(sltstgi(ts, &me), 0);
  sltstgi(ts, &again);
  EXPECT_EQ(sltstidnull(ts, &me), 0);
  EXPECT_EQ(sltstidcmp(ts, &me, &again), 1);
  EXPECT_EQ(sltstidcmp(ts, nullptr, &me), 0);
  EXPECT_EQ(me.id, slthrself());

  struct Arg {
    int64_t in;
    std::atomic<uint64_t> self{0};
    sltstid tid{};
  };
  static auto body = [](void *p) -> void * {
    auto *a = static_cast<Arg *>(p);
    a->self = slthrself();
    sltstgi(ts, &a->tid);
    return reinterpret_cast<void *>(a->in * 2);
  };
  std::vector<Arg> args(16);
  std::vector<sltthread *> threads;
  for (size_t i = 0; i < args.size(); i++) {
    args[i].in = static_cast<int64_t>(i) + 1;
    threads.push_back(sltcreate(body, &args[i], i % 2 ? 0 : 128 * 1024));
    ASSERT_NE(threads.back(), nullptr);
  }
  std::set<uint64_t> seen{me.id};
  for (size_t i = 0; i < threads.size(); i++) {
    uint64_t id = sltid(threads[i]);
    void *r = nullptr;
    ASSERT_EQ(sltjoin(threads[i], &r), 0);
    EXPECT_EQ(reinterpret_cast<int64_t>(r), args[i].in * 2);
    EXPECT_EQ(id, args[i].self.load());
    EXPECT_EQ(args[i].tid.id, id);
    EXPECT_EQ(sltstidcmp(ts, &args[i].tid, &me), 0);
    EXPECT_TRUE(seen.insert(id).second) << "thread number " << id << " reused";
  }
  std::thread([&] { EXPECT_TRUE(seen.insert(slthrself()).second) << "a foreign thread's number reused"; }).join();

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

  sltstid copy;
  sltstidcpy(ts, &copy, &me);
  EXPECT_EQ(sltstidcmp(ts, &copy, &me), 1);
  EXPECT_EQ(sltstiddestroy(ts, &copy), 0);
  EXPECT_EQ(sltstidnull(ts, &copy), 1);
  sltsmx mx;
  ASSERT_EQ(sltsmxi(ts, &mx), 0);
  EXPECT_EQ(sltsmna(ts, &mx), 0);
  std::thread([&] { EXPECT_EQ(sltsmnt(ts, &mx), 0); }).join();
  EXPECT_EQ(sltsmnr(ts, &mx), 0);
  EXPECT_EQ(sltsmxd(ts, &mx), 0);
  EXPECT_EQ(sltsmxi(nullptr, &mx), -1);
  EXPECT_EQ(sltster(ts), 0);
}

std::atomic<int> g_tls_dtors{0};

TEST(SysThreads, ThreadLocalValuesAreSeparateAndDestroyed) {
  sltlskey key;
  ASSERT_EQ(sltlscreate(&key, [](void *p) {
              g_tls_dtors.fetch_add(1);
              delete static_cast<int *>(p);
            }),
            0);
  EXPECT_EQ(sltlsget(&key), nullptr);
  int mine = 5;
  ASSERT_EQ(sltlsset(&key, &mine), 0);
  std::vector<std::thread> ts;
  for (int i = 0; i < 3; ++i)
    ts.emplace_back([&, i] {
      EXPECT_EQ(sltlsget(&key), nullptr);
      sltlsset(&key, new int(i));
      EXPECT_EQ(*static_cast<int *>(sltlsget(&key)), i);
    });
  for (auto &t : ts) t.join();
  EXPECT_EQ(g_tls_dtors.load(), 3);
  EXPECT_EQ(sltlsget(&key), &mine);
  sltlsset(&key, nullptr);
  EXPECT_EQ(sltlsdelete(&key), 0);
  EXPECT_EQ(sltlsget(&key), nullptr);
}

TEST(SysEnvironment, SetGetTruncateUnset) {
  const char *name = "KEL_SYS_TEST_VAR";
  slunsetenv(name);
  EXPECT_EQ(slgetenv(name, nullptr, 0), -1);
  ASSERT_EQ(slsetenv(name, "hello world", 1), 0);
  char buf[6];
  EXPECT_EQ(slgetenv(name, buf, sizeof buf), 11);
  EXPECT_STREQ(buf, "hello");
  EXPECT_EQ(slsetenv(name, "other", 0), 0);
  char full[32];
  EXPECT_EQ(slgetenv(name, full, sizeof full), 11);
  EXPECT_STREQ(full, "hello world");
  EXPECT_EQ(slunsetenv(name), 0);
  EXPECT_EQ(slgetenv(name, full, sizeof full), -1);
  EXPECT_EQ(slsetenv("A=B", "x", 1), -1);
  EXPECT_EQ(slsetenv("", "x", 1), -1);
  EXPECT_EQ(slsetenv(name, nullptr, 1), -1);
}

#ifndef _WIN32
// The temporary directory follows TMPDIR, as the C library sees it, without
// trailing slashes.
TEST(SysEnvironment, TemporaryDirectoryFollowsTmpdir) {
  char saved[4096], buf[4096];
  int32_t had = slgetenv("TMPDIR", saved, sizeof saved);
  const char *cases[][2] = {{nullptr, "/tmp"}, {"/var/tmp/", "/var/tmp"}, {"/x//", "/x"}, {"", "/tmp"}, {"/", "/"}};
  for (auto &c : cases) {
    ASSERT_EQ(c[0] ? slsetenv("TMPDIR", c[0], 1) : slunsetenv("TMPDIR"), 0);
    const char *sys = getenv("TMPDIR");
    EXPECT_STREQ(sys ? sys : "(unset)", c[0] ? c[0] : "(unset)") << "the C library disagrees";
    ASSERT_GE(sltmpdir(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, c[1]) << (c[0] ? c[0] : "(unset)");
  }
  (void)(had >= 0 ? slsetenv("TMPDIR", saved, 1) : slunsetenv("TMPDIR"));
}
#endif

TEST(SysLoader, FindsSymbolsAndReportsFailures) {
  void *lib = sldlopen(kel_test::kMathLibrary);
  ASSERT_NE(lib, nullptr);
  auto *cosine = reinterpret_cast<double (*)(double)>(sldlsym(lib, "cos"));
  ASSERT_NE(cosine, nullptr);
  EXPECT_DOUBLE_EQ(cosine(0.5), std::cos(0.5));
  EXPECT_EQ(sldlsym(lib, "kel_no_such_symbol"), nullptr);
  char text[256];
  EXPECT_GT(sldlerror(text, sizeof text), 0u);
  EXPECT_NE(strstr(text, "kel_no_such_symbol"), nullptr) << text;
  EXPECT_EQ(sldlclose(lib), 0);
  EXPECT_EQ(sldlopen("libkel_does_not_exist.so"), nullptr);
  EXPECT_GT(sldlerror(text, sizeof text), 0u);
  EXPECT_EQ(sldlopen(nullptr), nullptr);
}

TEST(SysTime, ClocksAdvanceAndSleepWaits) {
  uint64_t a = slmonons();
  int64_t w = slwallus();
  EXPECT_GT(w, 1'600'000'000'000'000LL) << "after 2020";
  slsleepms(20);
  uint64_t b = slmonons();
  EXPECT_GE(b - a, 20'000'000u);
  EXPECT_GE(slwallus(), w);
  char text[64];
  EXPECT_GT(slcgems(SL_ERR_TIMEOUT, text, sizeof text), 0u);
  EXPECT_EQ(slcgems(2, text, 4), 3u);
  EXPECT_EQ(strlen(text), 3u);
}

TEST(SysProcess, ExitEndsTheProcessWithItsStatus) {
  EXPECT_EXIT(slzexit(7), testing::ExitedWithCode(7), "");
}

}  // namespace
