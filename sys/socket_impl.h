// socket_impl.h - TCP client sockets and the host name, for the HTTP client
// and the diagnostic records. A socket is an int64_t handle (-1: none).
#ifndef KEL_SYS_SOCKET_IMPL_H
#define KEL_SYS_SOCKET_IMPL_H

#include <cstddef>
#include <cstdint>

// Results of the socket calls besides a byte count.
constexpr int64_t SL_SCK_EOF = 0;       // peer closed (recv only)
constexpr int64_t SL_SCK_ERR = -1;      // system error (slerrno)
constexpr int64_t SL_SCK_TIMEOUT = -2;  // nothing within the time limit
constexpr int64_t SL_SCK_REFUSED = -3;  // connection refused
constexpr int64_t SL_SCK_NOHOST = -4;   // name did not resolve

// Connects to host:port (a name, a dotted IPv4 or an IPv6 literal without
// brackets), trying each address the name resolves to, within `ms`
// milliseconds overall. Returns the socket handle (>= 0) or one of the
// negative results above.
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

// The machine's host name into buf (NUL-terminated, truncated); its length.
size_t slhostname(char *buf, size_t len) noexcept;
// The process id.
int64_t slprocid() noexcept;

#endif
