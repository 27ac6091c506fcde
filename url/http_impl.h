// http_impl.h - internals of the HTTP client shared by its files: a
// growable buffer, the time limits of a request, the connection (a socket,
// with a TLS session over it for https), and the reader of responses with
// its parsing (http_wire.cpp). http.cpp drives requests with them.
#ifndef KEL_URL_HTTP_IMPL_H
#define KEL_URL_HTTP_IMPL_H

#include <string_view>

#include "sl.h"
#include "sys/socket_impl.h"
#include "sys/tls_impl.h"
#include "url/url_impl.h"

namespace lpu_internal {

using sv = std::string_view;

// --------------------------------------------------------- growable buffer
class Buf {
 public:
  Buf() = default;
  ~Buf() { ss_mem_fre(p_); }
  Buf(const Buf &) = delete;
  Buf &operator=(const Buf &) = delete;
  bool put(const void *s, size_t n) {
    if (!reserve(n_ + n)) return false;
    if (n > 0) memcpy(p_ + n_, s, n);
    n_ += n;
    return true;
  }
  bool put(sv s) { return put(s.data(), s.size()); }
  bool putc(char c) { return put(&c, 1); }
  bool putnum(uint64_t v, unsigned base = 10) {
    char d[24];
    int k = sizeof d;
    do {
      d[--k] = "0123456789abcdef"[v % base];
      v /= base;
    } while (v > 0);
    return put(d + k, sizeof d - static_cast<size_t>(k));
  }
  bool reserve(size_t n) {
    if (n <= cap_) return true;
    size_t c = cap_ < 256 ? 256 : cap_;
    while (c < n) c *= 2;
    char *q = static_cast<char *>(ss_mem_ralc(p_, c));
    if (q == nullptr) return false;
    p_ = q;
    cap_ = c;
    return true;
  }
  // Room for k more bytes after the end (null when out of memory); commit
  // what was written there.
  char *tail(size_t k) { return reserve(n_ + k) ? p_ + n_ : nullptr; }
  void commit(size_t k) { n_ += k; }
  void clear() { n_ = 0; }
  void drop_last() {
    if (n_ > 0) n_--;
  }
  const char *data() const { return p_ ? p_ : ""; }
  char *raw() { return p_; }
  size_t size() const { return n_; }
  sv view() const { return sv(data(), n_); }

 private:
  char *p_ = nullptr;
  size_t n_ = 0, cap_ = 0;
};

enum class Rc { ok, eof, io, timeout, bad, nomem, tls, abort };

// ------------------------------------------------------------ time limits
// Every wait of a request is bounded by the per-wait limit and by what is
// left of the limit on the whole request, when there is one.
struct Clock {
  uint64_t end = 0;  // monotonic ns when the whole request must be done; 0: no such limit
  int32_t total_ms = 0;
  // The limit for the next wait of at most `per` ms.
  int32_t next(int32_t per) const {
    if (end == 0) return per;
    uint64_t now = slmonons();
    if (now >= end) return 0;
    uint64_t left = (end - now + 999999) / 1000000;
    return left < static_cast<uint64_t>(per) ? static_cast<int32_t>(left) : per;
  }
  bool over() const { return end != 0 && slmonons() >= end; }
};

// ------------------------------------------------------------- connection
struct Conn {
  int64_t fd = -1;
  SlTls *tls = nullptr;
  char why[160] = "";  // the reason of the last TLS failure

  int64_t send(const void *p, size_t n, int32_t ms) {
    return tls ? slsslsend(tls, p, n, ms, why, sizeof why) : slscksend(fd, p, n, ms);
  }
  int64_t recv(void *p, size_t n, int32_t ms) {
    return tls ? slsslrecv(tls, p, n, ms, why, sizeof why) : slsckrecv(fd, p, n, ms);
  }
  bool idle() { return tls ? slsslidle(tls) == 1 : slsckidle(fd) == 1; }
  void close() {
    slsslclose(tls);
    tls = nullptr;
    slsckclose(fd);
    fd = -1;
  }
};

// The transport result of a send or receive as the reader's Rc.
inline Rc rc_of(int64_t k) {
  if (k == SL_SCK_EOF) return Rc::eof;
  if (k == SL_SCK_TIMEOUT) return Rc::timeout;
  if (k == SL_SSL_PROTO || k == SL_SSL_VERIFY) return Rc::tls;
  return Rc::io;
}

// ----------------------------------------------------------------- reader
struct Reader {
  Conn *conn = nullptr;  // null: read from mem instead (the fuzz harness)
  const Clock *clock = nullptr;
  int32_t ms = 0;
  const char *mem = nullptr;
  size_t meml = 0;
  uint64_t got = 0;  // bytes received on this exchange
  size_t r = 0, w = 0;
  char buf[16384];

  // Starts a new exchange on conn (the buffer is left as it is).
  void reset(Conn *c, const Clock *clk, int32_t wait_ms) {
    conn = c;
    clock = clk;
    ms = wait_ms;
    got = 0;
    r = w = 0;
  }
  // Receives what comes next into p[0..cap), *k bytes.
  Rc recv_into(char *p, size_t cap, size_t *k);
  // Receives more into the buffer.
  Rc fill();
  // One line without its LF (and a CR before it) into `out`.
  Rc line(Buf &out);
};

// Where the bytes of a body go.
struct BodyOut {
  enum Kind { discard, grow, fixed, call } kind = discard;
  Buf *buf = nullptr;        // grow
  char *at = nullptr;        // fixed: room for `cap` bytes
  uint64_t cap = ~uint64_t{0};  // the most it takes (more: "body too large")
  lpusinkfn fn = nullptr;    // call
  void *arg = nullptr;
  const lpuresp *head = nullptr;
  uint64_t n = 0;            // bytes taken

  Rc put(const char *p, size_t k);
};

// A response as it is read: the header block as "name NUL value NUL ...".
struct Response {
  int32_t status = 0;
  int32_t minor = 1;
  Buf reason;
  Buf heads;
  size_t nheads = 0;
  bool keep = false;
  enum Framing { no_body, by_length, by_chunks, by_close } framing = no_body;
  uint64_t length = 0;  // the Content-Length, when framing is `length`

  sv header(sv name) const;
  bool has(sv name) const { return header(name).data() != nullptr; }
};

struct Failure {
  const char *what = "";
};

// Reads the status line and header block of the next final response,
// skipping interim (1xx) ones, and works out its framing (keep, length).
Rc read_head(Reader &rd, Buf &line, bool head, Response &rs, Failure &f);
// Reads the body of the response whose head was just read into `out`.
Rc read_body(Reader &rd, Buf &line, Response &rs, BodyOut &out, Failure &f);

bool tchar(char c);
bool token(sv s);
sv trim(sv s);
bool ieq(sv a, sv b);

}  // namespace lpu_internal

#endif
