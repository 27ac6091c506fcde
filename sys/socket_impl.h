// socket_impl.h - TCP client sockets, for the HTTP client.
//
// Two parts. The slsck* functions are what the library calls (sys/socket.cpp):
// connects bounded by an overall time limit, sends and receives bounded by a
// time limit for each stretch without progress, all repeated across
// interrupted calls with the time already spent taken off. Below them, the
// platform's table does one system call per entry on a non-blocking socket.
//
// A socket is an int64_t handle (-1: none); only the platform folder knows
// what it holds.
//
// Defined by sys/<platform>/socket.cpp as kSocketOs; the portable part calls it
// through socket_os() (table_impl.h), which test builds can redirect.
#ifndef KEL_SYS_SOCKET_IMPL_H
#define KEL_SYS_SOCKET_IMPL_H

#include <cstddef>
#include <cstdint>

#include "sys/table_impl.h"

// ------------------------------------------------------------ the library's

// Results of the socket calls besides a byte count.
constexpr int64_t SL_SCK_EOF = 0;       // peer closed (recv only)
constexpr int64_t SL_SCK_ERR = -1;      // system error (slerrno)
constexpr int64_t SL_SCK_TIMEOUT = -2;  // nothing within the time limit
constexpr int64_t SL_SCK_REFUSED = -3;  // connection refused
constexpr int64_t SL_SCK_NOHOST = -4;   // name did not resolve

// Connects to host:port (a name, a dotted IPv4 or an IPv6 literal without
// brackets), trying each address the name resolves to, within `ms`
// milliseconds overall (< 0: no limit). Returns the socket handle (>= 0) or
// one of the negative results above.
int64_t slsckconn(const char *host, int32_t port, int32_t ms) noexcept;
// Sends all n bytes, waiting at most `ms` for each stretch of progress.
// 0, SL_SCK_ERR or SL_SCK_TIMEOUT. Never raises SIGPIPE.
int64_t slscksend(int64_t s, const void *buf, size_t n, int32_t ms) noexcept;
// Receives up to n bytes, waiting at most `ms`: the count (> 0), SL_SCK_EOF,
// SL_SCK_ERR or SL_SCK_TIMEOUT.
int64_t slsckrecv(int64_t s, void *buf, size_t n, int32_t ms) noexcept;
// 1 when an idle kept-alive connection can still be used: nothing to read
// and not closed by the peer. 0 otherwise.
int32_t slsckidle(int64_t s) noexcept;
// Waits at most `ms` until s can be read (forwrite 0) or written (1): 1
// ready, 0 time-out, -1 error (slerrno). For the TLS sessions over s.
int32_t slsckwait(int64_t s, int32_t forwrite, int32_t ms) noexcept;
void slsckclose(int64_t s) noexcept;

// ------------------------------------------------------------- the platform's

namespace sl_internal {

// What a socket wait waits for.
constexpr int32_t kSockReadable = 1;
constexpr int32_t kSockWritable = 2;

struct SocketOps {
  // Resolves host:port to a list of stream addresses: 0 with *list set, or
  // -1 when the name does not resolve. next gives the address after `prev`
  // (null: the first), null after the last; free_list ends the list.
  int32_t (*resolve)(const char *host, int32_t port, void **list);
  const void *(*next)(void *list, const void *prev);
  void (*free_list)(void *list);
  // A new non-blocking socket for `addr` and the start of a connection to it:
  // 1 connected at once, 0 under way (wait until writable, then ask
  // connected), -1 failed (*s is then -1).
  int32_t (*connect)(const void *addr, int64_t *s);
  // The outcome of a connection that was under way: 0 connected, -1 failed
  // (a refusal reads as SL_ERR_REFUSED).
  int32_t (*connected)(int64_t s);
  // Waits until the socket is readable or writable (kSock*) or ms pass
  // (< 0: no limit): 1 ready, 0 time limit, -1 failed (SL_ERR_INTR: a signal
  // came first).
  int32_t (*wait)(int64_t s, int32_t what, int32_t ms);
  // One transfer: the count moved (> 0; a receive of 0 is the peer's end),
  // or -1 (SL_ERR_AGAIN: nothing could move without waiting).
  int64_t (*send)(int64_t s, const void *buf, size_t n);
  int64_t (*recv)(int64_t s, void *buf, size_t n);
  void (*close)(int64_t s);
};

extern const SocketOps kSocketOs;

KEL_SYS_TABLE(SocketOps, socket, kSocketOs)

}  // namespace sl_internal

#endif
