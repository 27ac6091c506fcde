// TCP client sockets on POSIX: getaddrinfo lists, non-blocking descriptors
// in the int64_t handles, poll for waiting (socket_impl.h).
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "sys/socket_impl.h"

namespace {

int32_t s_resolve(const char *host, int32_t port, void **list) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  char serv[16];
  snprintf(serv, sizeof serv, "%d", port);
  addrinfo *res = nullptr;
  if (getaddrinfo(host, serv, &hints, &res) != 0 || res == nullptr) return -1;
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
  int fd = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
  if (fd < 0) return -1;
  // Requests are written whole; waiting to merge them with more only adds
  // a round trip's delay.
  int one = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  *s = fd;
  if (connect(fd, a->ai_addr, a->ai_addrlen) == 0) return 1;
  return errno == EINPROGRESS ? 0 : -1;
}

int32_t s_connected(int64_t s) {
  int err = 0;
  socklen_t el = sizeof err;
  if (getsockopt(static_cast<int>(s), SOL_SOCKET, SO_ERROR, &err, &el) != 0) return -1;
  errno = err;
  return err == 0 ? 0 : -1;
}

int32_t s_wait(int64_t s, int32_t what, int32_t ms) {
  pollfd p{static_cast<int>(s), static_cast<short>(what == sl_internal::kSockReadable ? POLLIN : POLLOUT), 0};
  int r = poll(&p, 1, ms < 0 ? -1 : ms);
  return r < 0 ? -1 : r > 0 ? 1 : 0;
}

int64_t s_send(int64_t s, const void *buf, size_t n) { return send(static_cast<int>(s), buf, n, MSG_NOSIGNAL); }

int64_t s_recv(int64_t s, void *buf, size_t n) { return recv(static_cast<int>(s), buf, n, 0); }

void s_close(int64_t s) { close(static_cast<int>(s)); }

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
