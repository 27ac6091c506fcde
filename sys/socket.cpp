// TCP client sockets: non-blocking connect bounded by poll, sends and
// receives bounded by poll, and the host name and process id.
#include "sys/socket_impl.h"

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "sl.h"
#include "sys/fault_impl.h"

namespace {

int wait_for(int fd, short ev, int ms) {
  pollfd p{fd, ev, 0};
  for (;;) {
    int r = poll(&p, 1, ms < 0 ? -1 : ms);
    if (r < 0 && errno == EINTR) continue;
    return r;  // 1 ready, 0 time-out, -1 error
  }
}

int64_t elapsed_ms(uint64_t start) { return static_cast<int64_t>((slmonons() - start) / 1000000u); }

}  // namespace

int64_t slsckconn(const char *host, int32_t port, int32_t ms) noexcept {
  if (SL_FAULT(SL_FAULT_SOCKET)) return SL_SCK_ERR;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  char serv[16];
  snprintf(serv, sizeof serv, "%d", port);
  addrinfo *res = nullptr;
  if (getaddrinfo(host, serv, &hints, &res) != 0 || res == nullptr) return SL_SCK_NOHOST;
  uint64_t start = slmonons();
  int64_t result = SL_SCK_ERR;
  for (addrinfo *a = res; a != nullptr; a = a->ai_next) {
    int fd = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
    if (fd < 0) {
      slseterrno(errno);
      continue;
    }
    int rc = connect(fd, a->ai_addr, a->ai_addrlen);
    if (rc != 0 && errno == EINPROGRESS) {
      int left = ms < 0 ? -1 : static_cast<int>(ms - elapsed_ms(start));
      if (ms >= 0 && left <= 0) left = 0;
      int w = wait_for(fd, POLLOUT, left);
      if (w == 0) {
        close(fd);
        result = SL_SCK_TIMEOUT;
        break;
      }
      int err = 0;
      socklen_t el = sizeof err;
      if (w < 0 || getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &el) != 0) err = errno;
      rc = err == 0 ? 0 : -1;
      errno = err;
    }
    if (rc == 0) {
      int one = 1;
      setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
      result = fd;
      break;
    }
    slseterrno(errno);
    result = errno == ECONNREFUSED ? SL_SCK_REFUSED : SL_SCK_ERR;
    close(fd);
  }
  freeaddrinfo(res);
  return result;
}

int64_t slscksend(int64_t s, const void *buf, size_t n, int32_t ms) noexcept {
  if (SL_FAULT(SL_FAULT_SOCKET)) return SL_SCK_ERR;
  auto *p = static_cast<const char *>(buf);
  while (n > 0) {
    ssize_t k = send(static_cast<int>(s), p, n, MSG_NOSIGNAL);
    if (k > 0) {
      p += k;
      n -= static_cast<size_t>(k);
      continue;
    }
    if (k < 0 && errno == EINTR) continue;
    if (k < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      int w = wait_for(static_cast<int>(s), POLLOUT, ms);
      if (w == 0) return SL_SCK_TIMEOUT;
      if (w > 0) continue;
    }
    slseterrno(errno);
    return SL_SCK_ERR;
  }
  return 0;
}

int64_t slsckrecv(int64_t s, void *buf, size_t n, int32_t ms) noexcept {
  if (SL_FAULT(SL_FAULT_SOCKET)) return SL_SCK_ERR;
  for (;;) {
    ssize_t k = recv(static_cast<int>(s), buf, n, 0);
    if (k >= 0) return k;
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      int w = wait_for(static_cast<int>(s), POLLIN, ms);
      if (w == 0) return SL_SCK_TIMEOUT;
      if (w > 0) continue;
    }
    slseterrno(errno);
    return SL_SCK_ERR;
  }
}

int32_t slsckwait(int64_t s, int32_t forwrite, int32_t ms) noexcept {
  int w = wait_for(static_cast<int>(s), forwrite ? POLLOUT : POLLIN, ms);
  if (w < 0) slseterrno(errno);
  return w < 0 ? -1 : w;
}

int32_t slsckidle(int64_t s) noexcept {
  pollfd p{static_cast<int>(s), POLLIN, 0};
  int r = poll(&p, 1, 0);
  if (r == 0) return 1;  // nothing pending: still usable
  return 0;              // readable (data or EOF) or an error: do not reuse
}

void slsckclose(int64_t s) noexcept {
  if (s >= 0) close(static_cast<int>(s));
}

size_t slhostname(char *buf, size_t len) noexcept {
  if (len == 0) return 0;
  char name[256];
  if (gethostname(name, sizeof name) != 0) name[0] = '\0';
  name[sizeof name - 1] = '\0';
  size_t n = strlen(name);
  if (n >= len) n = len - 1;
  memcpy(buf, name, n);
  buf[n] = '\0';
  return n;
}

int64_t slprocid() noexcept { return static_cast<int64_t>(getpid()); }
