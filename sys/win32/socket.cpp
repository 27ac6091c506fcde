// TCP client sockets on Windows: Winsock, getaddrinfo lists, non-blocking
// sockets in the int64_t handles, select for waiting (socket_impl.h).
// Winsock's errors come through GetLastError, and its "would block",
// "interrupted" and "refused" are the library's SL_ERR_* numbers.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <cstdio>

#include "sys/socket_impl.h"

namespace {

// Winsock is started once per process, on first use, and left running: it
// must outlive every socket, and the process's end cleans it up.
bool winsock_up() noexcept {
  static const int rc = [] {
    WSADATA d;
    return WSAStartup(MAKEWORD(2, 2), &d);
  }();
  if (rc != 0) WSASetLastError(rc);
  return rc == 0;
}

SOCKET sock_of(int64_t s) noexcept { return static_cast<SOCKET>(s); }

int32_t s_resolve(const char *host, int32_t port, void **list) {
  if (!winsock_up()) return -1;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  char serv[16];
  snprintf(serv, sizeof serv, "%d", port);
  addrinfo *res = nullptr;
  int rc = getaddrinfo(host, serv, &hints, &res);
  if (rc != 0 || res == nullptr) {
    if (rc != 0) WSASetLastError(rc);
    return -1;
  }
  *list = res;
  return 0;
}

const void *s_next(void *list, const void *prev) {
  return prev == nullptr ? list : static_cast<const addrinfo *>(prev)->ai_next;
}

void s_free_list(void *list) {
  if (list != nullptr) freeaddrinfo(static_cast<addrinfo *>(list));
}

int32_t s_connect(const void *addr, int64_t *s) {
  auto *a = static_cast<const addrinfo *>(addr);
  *s = -1;
  if (!winsock_up()) return -1;
  // Not inherited by child processes, as SOCK_CLOEXEC on POSIX.
  SOCKET fd = WSASocketW(a->ai_family, a->ai_socktype, a->ai_protocol, nullptr, 0, WSA_FLAG_NO_HANDLE_INHERIT);
  if (fd == INVALID_SOCKET) return -1;
  u_long on = 1;
  if (ioctlsocket(fd, FIONBIO, &on) != 0) {
    int e = WSAGetLastError();
    closesocket(fd);
    WSASetLastError(e);
    return -1;
  }
  // Requests are written whole; waiting to merge them with more only adds
  // a round trip's delay.
  BOOL one = TRUE;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char *>(&one), sizeof one);
  *s = static_cast<int64_t>(fd);
  if (connect(fd, a->ai_addr, static_cast<int>(a->ai_addrlen)) == 0) return 1;
  return WSAGetLastError() == WSAEWOULDBLOCK ? 0 : -1;
}

int32_t s_connected(int64_t s) {
  int err = 0;
  int el = sizeof err;
  if (getsockopt(sock_of(s), SOL_SOCKET, SO_ERROR, reinterpret_cast<char *>(&err), &el) != 0) return -1;
  WSASetLastError(err);
  return err == 0 ? 0 : -1;
}

int32_t s_wait(int64_t s, int32_t what, int32_t ms) {
  // select rather than WSAPoll: older WSAPoll never reports a connection
  // that failed. A failed connection shows in the exception set, and counts
  // as ready so that connected() can tell why.
  fd_set rd, wr, ex;
  FD_ZERO(&rd);
  FD_ZERO(&wr);
  FD_ZERO(&ex);
  SOCKET fd = sock_of(s);
  if (what == sl_internal::kSockReadable)
    FD_SET(fd, &rd);
  else
    FD_SET(fd, &wr);
  FD_SET(fd, &ex);
  timeval tv{ms / 1000, (ms % 1000) * 1000};
  int r = select(0, &rd, &wr, &ex, ms < 0 ? nullptr : &tv);
  return r == SOCKET_ERROR ? -1 : r > 0 ? 1 : 0;
}

// One call moves at most an int of bytes; the portable loop asks again.
int chunk(size_t n) noexcept { return n > 0x40000000u ? 0x40000000 : static_cast<int>(n); }

int64_t s_send(int64_t s, const void *buf, size_t n) {
  int r = send(sock_of(s), static_cast<const char *>(buf), chunk(n), 0);
  return r == SOCKET_ERROR ? -1 : r;
}

int64_t s_recv(int64_t s, void *buf, size_t n) {
  int r = recv(sock_of(s), static_cast<char *>(buf), chunk(n), 0);
  return r == SOCKET_ERROR ? -1 : r;
}

void s_close(int64_t s) { closesocket(sock_of(s)); }

}  // namespace

namespace sl_internal {

const SocketOps kSocketOs = {
    .resolve = s_resolve,
    .next = s_next,
    .free_list = s_free_list,
    .connect = s_connect,
    .connected = s_connected,
    .wait = s_wait,
    .send = s_send,
    .recv = s_recv,
    .close = s_close,
};

}  // namespace sl_internal
