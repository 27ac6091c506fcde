// The retry and time-limit code of the system layer, driven through its
// platform tables: calls interrupted before they did anything, transfers
// shorter than asked, waits that end early, and a peer that stalls. Each
// case replaces platform entries (tests/support/sys_swap.h) and checks the
// exported contract: nothing lost, nothing repeated that must not be, and
// every time limit kept however often the wait is cut short.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "lfi.h"
#include "sl.h"
#include "slt.h"
#include "support/sys_swap.h"
#include "sys/file_impl.h"
#include "sys/random_impl.h"
#include "sys/socket_impl.h"
#include "sys/thread_impl.h"
#include "sys/time_impl.h"
#include "sys/tls_impl.h"

#ifdef KEL_TEST_HOOKS

namespace {

using kel_test::Swap;
namespace sli = sl_internal;

// Every third call through a scripted entry is interrupted before it does
// anything; the rest move at most kPiece bytes.
std::atomic<int> g_calls{0}, g_interrupts{0};
constexpr size_t kPiece = 7;

bool interrupted() {
  if (g_calls.fetch_add(1) % 3 != 2) return false;
  g_interrupts++;
  slseterrno(SL_ERR_INTR);
  return true;
}

// ------------------------------------------------------------------ files

TEST(FileRetry, InterruptedAndShortTransfersLoseNothing) {
  Swap<sli::FileOps> files(sli::g_file_os);
  files.ops.temp = [](const char *dir, int64_t *h) { return interrupted() ? -1 : sli::kFileOs.temp(dir, h); };
  files.ops.write = [](int64_t h, const void *b, size_t n) -> int64_t {
    return interrupted() ? -1 : sli::kFileOs.write(h, b, std::min(n, kPiece));
  };
  files.ops.read = [](int64_t h, void *b, size_t n) -> int64_t {
    return interrupted() ? -1 : sli::kFileOs.read(h, b, std::min(n, kPiece));
  };
  files.ops.sync = [](int64_t h) { return interrupted() ? -1 : sli::kFileOs.sync(h); };
  files.ops.truncate = [](int64_t h, int64_t size) { return interrupted() ? -1 : sli::kFileOs.truncate(h, size); };
  g_calls = g_interrupts = 0;

  std::string data;
  for (int i = 0; i < 3000; i++) data += static_cast<char>('a' + i * 7 % 26);
  int64_t h;
  for (int round = 0; round < 3; round++) {  // each entry meets an interruption
    ASSERT_EQ(slftemp(nullptr, &h), 0);
    ASSERT_EQ(slfwrite(h, data.data(), data.size()), static_cast<int64_t>(data.size()));
    ASSERT_EQ(slftruncate(h, static_cast<int64_t>(data.size()) - 1), 0);
    ASSERT_EQ(slfsync(h), 0);
    ASSERT_EQ(slfseek(h, 0, SLF_SEEK_SET), 0);
    std::string back;
    char buf[64];
    for (int64_t n; (n = slfread(h, buf, sizeof buf)) != 0;) {
      ASSERT_GT(n, 0);
      ASSERT_LE(static_cast<size_t>(n), kPiece);
      back.append(buf, static_cast<size_t>(n));
    }
    EXPECT_EQ(back, data.substr(0, data.size() - 1));
    EXPECT_EQ(slfclose(h), 0);
  }
  EXPECT_GT(g_interrupts.load(), 100);
}

TEST(FileRetry, CloseIsNeverRepeatedAndNoProgressIsAFullDisk) {
  static std::atomic<int> closes{0};
  Swap<sli::FileOps> files(sli::g_file_os);
  // The handle is gone once close returns, even when it says it was
  // interrupted: a second close could hit a file opened meanwhile.
  files.ops.close = [](int64_t h) {
    closes++;
    sli::kFileOs.close(h);
    slseterrno(SL_ERR_INTR);
    return -1;
  };
  files.ops.write = [](int64_t, const void *, size_t) -> int64_t { return 0; };
  int64_t h;
  ASSERT_EQ(slftemp(nullptr, &h), 0);
  EXPECT_EQ(slfwrite(h, "x", 1), -1);
  EXPECT_EQ(slfclass(slerrno()), SLF_E_NOSPACE);
  EXPECT_EQ(slfclose(h), 0);
  EXPECT_EQ(closes.load(), 1);
}

// -------------------------------------------------------------- sockets
// A scripted peer behind the socket table. The name resolves to `addresses`
// addresses, of which the first `refusals` refuse; the next accepts as
// handle 7, at once or (`stalls`) never. Sends are taken a few bytes at a
// time (or never, with `full`), receives are served from `inbox`, and
// waits are answered by `wait`.

struct Peer {
  int addresses = 1, refusals = 0;
  bool stalls = false, full = false;
  std::string sent, inbox;
  int32_t (*wait)(int32_t ms) = [](int32_t) { return 1; };
};
Peer g_peer;
int g_addr[8];

int64_t would_block() {
  slseterrno(SL_ERR_AGAIN);
  return -1;
}

void script_peer(sli::SocketOps &o) {
  o.resolve = [](const char *, int32_t, void **list) -> int32_t {
    *list = g_addr;
    return g_peer.addresses > 0 ? 0 : -1;
  };
  o.next = [](void *, const void *prev) -> const void * {
    const int *p = prev == nullptr ? g_addr : static_cast<const int *>(prev) + 1;
    return p - g_addr < g_peer.addresses ? p : nullptr;
  };
  o.free_list = [](void *) {};
  o.connect = [](const void *a, int64_t *s) -> int32_t {
    *s = 7;
    if (static_cast<const int *>(a) - g_addr < g_peer.refusals) {
      slseterrno(SL_ERR_REFUSED);
      return -1;
    }
    return g_peer.stalls ? 0 : 1;
  };
  o.connected = [](int64_t) { return 0; };
  o.wait = [](int64_t, int32_t, int32_t ms) { return g_peer.wait(ms); };
  o.send = [](int64_t, const void *b, size_t n) -> int64_t {
    if (interrupted()) return -1;
    if (g_peer.full || g_calls % 4 == 0) return would_block();
    if (g_calls % 5 == 0) return 0;  // took nothing, said nothing
    size_t k = std::min(n, kPiece);
    g_peer.sent.append(static_cast<const char *>(b), k);
    return static_cast<int64_t>(k);
  };
  o.recv = [](int64_t, void *b, size_t n) -> int64_t {
    if (interrupted()) return -1;
    if (g_peer.inbox.empty() || g_calls % 4 == 0) return would_block();
    size_t k = std::min({n, kPiece, g_peer.inbox.size()});
    g_peer.inbox.copy(static_cast<char *>(b), k);
    g_peer.inbox.erase(0, k);
    return static_cast<int64_t>(k);
  };
  o.close = [](int64_t) {};
}

TEST(SocketRetry, TransfersSurviveInterruptsAndShortPieces) {
  Swap<sli::SocketOps> sockets(sli::g_socket_os);
  script_peer(sockets.ops);
  g_peer = Peer{};
  g_peer.addresses = 3;
  g_peer.refusals = 2;
  ASSERT_EQ(slsckconn("peer", 80, 1000), 7) << "the third address accepts";

  std::string msg;
  for (int i = 0; i < 1002; i++) msg += static_cast<char>(' ' + i % 90);  // ends in a 1-byte piece
  EXPECT_EQ(slscksend(7, msg.data(), msg.size(), 1000), 0);
  EXPECT_EQ(g_peer.sent, msg);

  g_peer.inbox = msg.substr(0, 500);
  std::string got;
  char buf[100];
  while (got.size() < 500) {
    int64_t k = slsckrecv(7, buf, sizeof buf, 1000);
    ASSERT_GT(k, 0);
    ASSERT_LE(static_cast<size_t>(k), kPiece);
    got.append(buf, static_cast<size_t>(k));
  }
  EXPECT_EQ(got, msg.substr(0, 500));
  g_peer.wait = [](int32_t) { return 0; };
  EXPECT_EQ(slsckrecv(7, buf, sizeof buf, 1000), SL_SCK_TIMEOUT);

  g_peer.refusals = 3;
  EXPECT_EQ(slsckconn("peer", 80, 1000), SL_SCK_REFUSED);
  g_peer.addresses = 0;
  EXPECT_EQ(slsckconn("nowhere", 80, 1000), SL_SCK_NOHOST);
}

// A peer that never answers while signals keep cutting every wait short: the
// call ends after its time limit, not after the limit counted afresh from the
// last interruption (which would never come).
TEST(SocketRetry, StalledPeerIsGivenUpInTime) {
  Swap<sli::SocketOps> sockets(sli::g_socket_os);
  script_peer(sockets.ops);
  struct Case {
    const char *what;
    int64_t (*call)();
  } cases[] = {
      {"connect", [] { return slsckconn("peer", 80, 80); }},
      {"send", [] { return slscksend(7, "request", 7, 80); }},
      {"recv", [] {
         char buf[16];
         return slsckrecv(7, buf, sizeof buf, 80);
       }},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    g_peer = Peer{};
    g_peer.stalls = g_peer.full = true;
    g_peer.wait = [](int32_t ms) -> int32_t {
      std::this_thread::sleep_for(std::chrono::milliseconds(ms < 0 || ms > 10 ? 10 : ms));
      slseterrno(SL_ERR_INTR);
      return -1;
    };
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(c.call(), SL_SCK_TIMEOUT);
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_GE(ms, 80);
    EXPECT_LT(ms, 2000);
  }
}

// A TLS session reaches its socket through the same table: the client's
// hello goes out in short, interrupted pieces, and a server that never
// answers is given up on in time however often the wait is cut short.
TEST(SocketRetry, TlsHandshakeGoesThroughTheTable) {
  Swap<sli::SocketOps> sockets(sli::g_socket_os);
  script_peer(sockets.ops);
  sockets.ops.wait = [](int64_t, int32_t what, int32_t ms) -> int32_t {
    if (what == sli::kSockWritable) return 1;
    std::this_thread::sleep_for(std::chrono::milliseconds(ms < 0 || ms > 10 ? 10 : ms));
    slseterrno(SL_ERR_INTR);
    return -1;
  };
  g_peer = Peer{};
  g_calls = g_interrupts = 0;
  char why[128] = "";
  SlTlsTrust *trust = slssltrust(nullptr, SL_SSL_NOVERIFY, why, sizeof why);
  ASSERT_NE(trust, nullptr) << why;
  SlTls *tls = nullptr;
  auto t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(slsslopen(trust, 7, "peer", 80, &tls, why, sizeof why), SL_SCK_TIMEOUT) << why;
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
  EXPECT_GE(ms, 80);
  EXPECT_LT(ms, 2000);
  EXPECT_EQ(tls, nullptr);
  ASSERT_GT(g_peer.sent.size(), 40u);
  EXPECT_EQ(g_peer.sent.substr(0, 2), std::string("\x16\x03", 2)) << "a handshake record";
  EXPECT_GT(g_interrupts.load(), 0);
  slssltrustfree(trust);
}

// -------------------------------------------------------- threads and time

// Every sleep on a lock word ends at once and every sleep of slsleepms after
// at most 2 ms, as if signals kept arriving: sections still exclude, sleeps
// still last their time, and a thread slow to start is still waited for.
TEST(ThreadRetry, WaitsThatEndEarlyKeepExclusionAndTime) {
  Swap<sli::ThreadOps> threads(sli::g_thread_os);
  Swap<sli::TimeOps> times(sli::g_time_os);
#ifndef _WIN32  // Windows sections are the system's and sleep in no table entry
  threads.ops.word_wait = [](std::atomic<uint32_t> *, uint32_t) {};
#endif
  times.ops.sleep_ms = [](uint32_t ms) { sli::kTimeOs.sleep_ms(ms < 2 ? ms : 2); };
  threads.ops.start = [](void *record, size_t stack, uint64_t *os) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return sli::kThreadOs.start(record, stack, os);
  };

  slcs cs;
  ASSERT_EQ(slcsinit(&cs), 0);
  long counter = 0;
  std::vector<std::thread> ts;
  for (int t = 0; t < 4; t++)
    ts.emplace_back([&] {
      for (int i = 0; i < 20000; i++) {
        slcsenter(&cs);
        counter++;
        slcsleave(&cs);
      }
    });
  for (auto &t : ts) t.join();
  EXPECT_EQ(counter, 80000);
  EXPECT_EQ(slcsdelete(&cs), 0);

  auto t0 = std::chrono::steady_clock::now();
  slsleepms(30);
  EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(30));

  static std::atomic<uint64_t> inside{0};
  sltthread *t = sltcreate(
      [](void *arg) -> void * {
        inside = slthrself();
        return arg;
      },
      &counter, 0);
  ASSERT_NE(t, nullptr);
  uint64_t id = sltid(t);
  void *result = nullptr;
  ASSERT_EQ(sltjoin(t, &result), 0);
  EXPECT_EQ(id, inside.load());
  EXPECT_EQ(result, &counter);
}

// ---------------------------------------------------------- random bytes

TEST(RandomRetry, ShortAndInterruptedDeliveriesFillEverything) {
  Swap<sli::RandomOps> random(sli::g_random_os);
  random.ops.fill = [](void *b, size_t n) -> int64_t {
    if (interrupted()) return -1;
    size_t k = std::min(n, kPiece);
    std::fill_n(static_cast<unsigned char *>(b), k, 0xA5);
    return static_cast<int64_t>(k);
  };
  std::vector<unsigned char> buf(1002, 0);  // ends in a 1-byte piece
  ASSERT_EQ(slrndbytes(buf.data(), buf.size()), 0);
  EXPECT_EQ(std::count(buf.begin(), buf.end(), 0xA5), 1002);
}

// A call that fails for a reason other than an interruption is not repeated:
// the exported function reports exactly -1 and the platform's reason.
std::atomic<int> g_failed{0};
constexpr int32_t kReason = 5;  // a platform error number of no special meaning

int64_t fail_once() {
  g_failed++;
  slseterrno(kReason);
  return -1;
}

TEST(PlatformFailure, ReachesTheCallerUnchanged) {
  Swap<sli::RandomOps> random(sli::g_random_os);
  Swap<sli::FileOps> files(sli::g_file_os);
  Swap<sli::ThreadOps> threads(sli::g_thread_os);
  random.ops.fill = [](void *, size_t) { return fail_once(); };
  files.ops.write = [](int64_t, const void *, size_t) { return fail_once(); };
  threads.ops.detach = [](uint64_t) { return static_cast<int32_t>(fail_once()); };

  static unsigned char buf[8];
  static int64_t h;
  static sltthread *t;
  ASSERT_EQ(slftemp(nullptr, &h), 0);
  t = sltcreate([](void *) -> void * { return nullptr; }, nullptr, 0);
  ASSERT_NE(t, nullptr);
  struct Case {
    const char *what;
    int64_t (*call)();
  } cases[] = {
      {"slrndbytes", [] { return int64_t{slrndbytes(buf, sizeof buf)}; }},
      {"slfwrite", [] { return slfwrite(h, buf, sizeof buf); }},
      {"sltdetach", [] { return int64_t{sltdetach(t)}; }},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    g_failed = 0;
    EXPECT_EQ(c.call(), -1);
    EXPECT_EQ(slerrno(), kReason);
    EXPECT_EQ(g_failed.load(), 1) << "a failure was retried";
  }
  EXPECT_EQ(sltjoin(t, nullptr), 0) << "a thread whose detach failed stays joinable";
  EXPECT_EQ(slfclose(h), 0);
}

}  // namespace

#endif  // KEL_TEST_HOOKS
