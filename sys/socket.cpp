// TCP client sockets: connects, sends and receives bounded by time limits,
// over the platform's single calls (socket_impl.h).
//
// Every wait is measured against a deadline on the monotonic clock, so an
// interrupted wait resumes with what is left of the time rather than with
// the whole limit again: a peer that stalls is given up on in time however
// many signals arrive meanwhile.
#include "sys/socket_impl.h"

#include "sl.h"
#include "sys/fault_impl.h"

using sl_internal::socket_os;

namespace {

// A time limit in milliseconds (< 0: none) turned into a deadline.
class Deadline {
 public:
  explicit Deadline(int32_t ms) noexcept : unlimited_(ms < 0), end_(slmonons() + (ms < 0 ? 0 : uint64_t(ms) * 1000000u)) {}
  // Milliseconds left, rounded up so that a wait never ends early; -1 when
  // there is no limit, 0 once the time has passed.
  int32_t left() const noexcept {
    if (unlimited_) return -1;
    uint64_t now = slmonons();
    if (now >= end_) return 0;
    return static_cast<int32_t>((end_ - now + 999999u) / 1000000u);
  }

 private:
  bool unlimited_;
  uint64_t end_;
};

// Waits for `what` until the deadline: 1 ready, 0 time limit, -1 failed.
int32_t wait_until(int64_t s, int32_t what, const Deadline &d) noexcept {
  for (;;) {
    int32_t r = socket_os().wait(s, what, d.left());
    if (r >= 0 || slerrno() != SL_ERR_INTR) return r;
    // A signal may cut even a wait of no time short; once the time is up an
    // interruption counts as the end of the wait.
    if (d.left() == 0) return 0;
  }
}

// One transfer, repeated when interrupted and after waiting while nothing
// can move: the count (>= 0), SL_SCK_ERR or SL_SCK_TIMEOUT. The deadline
// starts afresh for each call, which is each stretch without progress.
template <class Transfer>
int64_t transfer(int64_t s, int32_t what, int32_t ms, Transfer op) noexcept {
  Deadline d(ms);
  for (;;) {
    int64_t k = op();
    if (k >= 0) return k;
    int32_t err = slerrno();
    if (err == SL_ERR_INTR) continue;
    if (err != SL_ERR_AGAIN) return SL_SCK_ERR;
    int32_t w = wait_until(s, what, d);
    if (w == 0) return SL_SCK_TIMEOUT;
    if (w < 0) return SL_SCK_ERR;
  }
}

}  // namespace

int64_t slsckconn(const char *host, int32_t port, int32_t ms) noexcept {
  if (SL_FAULT(SL_FAULT_SOCKET)) return SL_SCK_ERR;
  const auto &os = socket_os();
  void *list = nullptr;
  if (host == nullptr || os.resolve(host, port, &list) != 0) return SL_SCK_NOHOST;
  Deadline d(ms);
  int64_t result = SL_SCK_ERR;
  for (const void *a = os.next(list, nullptr); a != nullptr; a = os.next(list, a)) {
    int64_t s = -1;
    int32_t rc = os.connect(a, &s);
    if (rc == 0) {
      int32_t w = wait_until(s, sl_internal::kSockWritable, d);
      if (w == 0) {
        os.close(s);
        slseterrno(SL_ERR_TIMEOUT);
        result = SL_SCK_TIMEOUT;
        break;
      }
      rc = w > 0 && os.connected(s) == 0 ? 1 : -1;
    }
    if (rc > 0) {
      result = s;
      break;
    }
    int32_t err = slerrno();
    if (s >= 0) os.close(s);
    slseterrno(err);
    result = err == SL_ERR_REFUSED ? SL_SCK_REFUSED : SL_SCK_ERR;
  }
  os.free_list(list);
  return result;
}

int64_t slscksend(int64_t s, const void *buf, size_t n, int32_t ms) noexcept {
  if (SL_FAULT(SL_FAULT_SOCKET)) return SL_SCK_ERR;
  auto *p = static_cast<const char *>(buf);
  while (n > 0) {
    int64_t k = transfer(s, sl_internal::kSockWritable, ms, [&]() -> int64_t {
      int64_t sent = socket_os().send(s, p, n);
      if (sent != 0) return sent;
      slseterrno(SL_ERR_AGAIN);  // no room yet: wait as for a full buffer
      return -1;
    });
    if (k < 0) return k;
    p += k;
    n -= static_cast<size_t>(k);
  }
  return 0;
}

int64_t slsckrecv(int64_t s, void *buf, size_t n, int32_t ms) noexcept {
  if (SL_FAULT(SL_FAULT_SOCKET)) return SL_SCK_ERR;
  return transfer(s, sl_internal::kSockReadable, ms, [&] { return socket_os().recv(s, buf, n); });
}

int32_t slsckwait(int64_t s, int32_t forwrite, int32_t ms) noexcept {
  return wait_until(s, forwrite ? sl_internal::kSockWritable : sl_internal::kSockReadable, Deadline(ms));
}

int32_t slsckidle(int64_t s) noexcept {
  // Anything to read on an idle connection (data or the peer's end) or an
  // error means it cannot carry the next request.
  return socket_os().wait(s, sl_internal::kSockReadable, 0) == 0 ? 1 : 0;
}

void slsckclose(int64_t s) noexcept {
  if (s >= 0) socket_os().close(s);
}
