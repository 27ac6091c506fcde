// A small HTTP/1.1 client.
//
// One request is one exchange over a connection: the request is written
// whole, then the status line, the header block and the body are read
// through a buffered reader whose every wait is bounded by the read time
// limit. The body's framing (none, Content-Length, chunked, or until the
// server closes) decides whether the connection can be kept; a kept
// connection is parked in the client and reused by the next request to
// the same host and port. A kept connection the server closed meanwhile is
// found out either before use (idle check) or by an end of data before the
// first byte of the response, and the request is then sent again once on a
// new connection. Redirects repeat the exchange with the resolved Location.
// The response is collected in growable internal buffers and copied at the
// end into a single block of the caller's heap.
//
// Sections: growable buffer; reader; request text; response parsing;
// proxy selection; exchange; lpuhreq and friends.
#include <new>
#include <string_view>

#include "lut.h"
#include "sl.h"
#include "sys/socket_impl.h"
#include "url/url_impl.h"

struct lpuhc {
  uint32_t magic;
  void *uctx;
  int64_t fd;  // parked connection, -1 none
  char host[256];
  int32_t port;
};

namespace lpu_internal {
namespace {

using sv = std::string_view;
constexpr uint32_t kClientMagic = 0x4C504843;  // "LPHC"
constexpr size_t kMaxLine = 16384;
constexpr size_t kMaxHeaders = 256;
constexpr uint64_t kMaxBody = uint64_t{1} << 32;

// ------------------------------------------------------- growable buffer
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
  bool putnum(uint64_t v) {
    char d[24];
    int k = 0;
    do {
      d[k++] = static_cast<char>('0' + v % 10);
      v /= 10;
    } while (v > 0);
    char r[24];
    for (int i = 0; i < k; i++) r[i] = d[k - 1 - i];
    return put(r, static_cast<size_t>(k));
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
  void clear() { n_ = 0; }
  void drop_last() {
    if (n_ > 0) n_--;
  }
  const char *data() const { return p_ ? p_ : ""; }
  size_t size() const { return n_; }
  sv view() const { return sv(data(), n_); }

 private:
  char *p_ = nullptr;
  size_t n_ = 0, cap_ = 0;
};

enum class Rc { ok, eof, io, timeout, bad, nomem };

// ---------------------------------------------------------------- reader
struct Reader {
  int64_t fd;  // -1: read from mem instead (the fuzz harness)
  int32_t ms;
  const char *mem = nullptr;
  size_t meml = 0;
  uint64_t got = 0;  // bytes received on this exchange
  size_t r = 0, w = 0;
  char buf[16384];

  Rc fill() {
    if (r == w) r = w = 0;
    int64_t k;
    if (fd >= 0) {
      k = slsckrecv(fd, buf + w, sizeof buf - w, ms);
    } else {
      // Small pieces, so that every boundary case of the buffer is met.
      k = static_cast<int64_t>(meml < 7 ? meml : 7);
      if (k > static_cast<int64_t>(sizeof buf - w)) k = static_cast<int64_t>(sizeof buf - w);
      memcpy(buf + w, mem, static_cast<size_t>(k));
      mem += k;
      meml -= static_cast<size_t>(k);
    }
    if (k > 0) {
      w += static_cast<size_t>(k);
      got += static_cast<uint64_t>(k);
      return Rc::ok;
    }
    if (k == SL_SCK_EOF) return Rc::eof;
    if (k == SL_SCK_TIMEOUT) return Rc::timeout;
    return Rc::io;
  }

  // One line without its LF (and a CR before it) into `line`.
  Rc line(Buf &out) {
    out.clear();
    for (;;) {
      for (size_t i = r; i < w; i++) {
        if (buf[i] == '\n') {
          if (!out.put(buf + r, i - r)) return Rc::nomem;
          r = i + 1;
          // The CR may have come in an earlier piece than its LF.
          if (out.size() > 0 && out.data()[out.size() - 1] == '\r') out.drop_last();
          if (out.size() > kMaxLine) return Rc::bad;
          return Rc::ok;
        }
      }
      if (!out.put(buf + r, w - r)) return Rc::nomem;
      r = w;
      if (out.size() > kMaxLine) return Rc::bad;
      Rc rc = fill();
      if (rc != Rc::ok) return rc;
    }
  }

  // Exactly n bytes into out (or discarded when out is null).
  Rc bytes(Buf *out, uint64_t n) {
    while (n > 0) {
      if (r == w) {
        Rc rc = fill();
        if (rc != Rc::ok) return rc;
      }
      size_t k = w - r < n ? w - r : static_cast<size_t>(n);
      if (out != nullptr && !out->put(buf + r, k)) return Rc::nomem;
      r += k;
      n -= k;
    }
    return Rc::ok;
  }
};

// ----------------------------------------------------- response parsing
bool tchar(char c) {
  return lutcis(static_cast<unsigned char>(c), LUT_C_ALNUM) || (c != 0 && sv("!#$%&'*+-.^_`|~").find(c) != sv::npos);
}

bool token(sv s) {
  if (s.empty()) return false;
  for (char c : s)
    if (!tchar(c)) return false;
  return true;
}

sv trim(sv s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

bool ieq(sv a, sv b) { return a.size() == b.size() && lutsnicmp(a.data(), b.data(), a.size()) == 0; }

// Does the comma-separated list `v` hold `tok` (case ignored)?
bool list_has(sv v, sv tok) {
  while (!v.empty()) {
    size_t c = v.find(',');
    if (ieq(trim(v.substr(0, c)), tok)) return true;
    if (c == sv::npos) break;
    v.remove_prefix(c + 1);
  }
  return false;
}

// The last element of a comma-separated list.
sv list_last(sv v) {
  size_t c = v.rfind(',');
  return trim(c == sv::npos ? v : v.substr(c + 1));
}

struct Response {
  int32_t status = 0;
  int32_t minor = 1;
  Buf reason;
  Buf heads;  // name NUL value NUL ...
  size_t nheads = 0;
  Buf body;
  bool keep = false;

  sv header(sv name) const {
    sv h = heads.view();
    for (size_t i = 0; i < nheads; i++) {
      size_t a = h.find('\0');
      sv n = h.substr(0, a);
      h.remove_prefix(a + 1);
      size_t b = h.find('\0');
      sv v = h.substr(0, b);
      h.remove_prefix(b + 1);
      if (ieq(n, name)) return v;
    }
    return sv();
  }
  bool has(sv name) const {
    sv h = heads.view();
    for (size_t i = 0; i < nheads; i++) {
      size_t a = h.find('\0');
      if (ieq(h.substr(0, a), name)) return true;
      h.remove_prefix(a + 1);
      h.remove_prefix(h.find('\0') + 1);
    }
    return false;
  }
};

struct Failure {
  Rc rc = Rc::ok;
  const char *what = "";
};

Rc status_line(Reader &rd, Buf &line, Response &rs, Failure &f) {
  Rc rc = rd.line(line);
  if (rc != Rc::ok) {
    f.what = "reading the status line";
    return rc;
  }
  sv s = line.view();
  if (s.size() < 12 || s.substr(0, 5) != "HTTP/" || !lutcis(s[5], LUT_C_DIGIT) || s[6] != '.' ||
      !lutcis(s[7], LUT_C_DIGIT) || s[8] != ' ' || !lutcis(s[9], LUT_C_DIGIT) || !lutcis(s[10], LUT_C_DIGIT) ||
      !lutcis(s[11], LUT_C_DIGIT) || (s.size() > 12 && s[12] != ' ') || s[5] != '1') {
    f.what = "bad status line";
    return Rc::bad;
  }
  rs.minor = s[7] - '0';
  rs.status = (s[9] - '0') * 100 + (s[10] - '0') * 10 + (s[11] - '0');
  if (rs.status < 100) {
    f.what = "bad status code";
    return Rc::bad;
  }
  rs.reason.clear();
  if (s.size() > 13 && !rs.reason.put(s.substr(13))) return Rc::nomem;
  return Rc::ok;
}

Rc header_block(Reader &rd, Buf &line, Response &rs, Failure &f) {
  rs.heads.clear();
  rs.nheads = 0;
  for (;;) {
    Rc rc = rd.line(line);
    if (rc != Rc::ok) {
      f.what = "reading the headers";
      return rc;
    }
    sv s = line.view();
    if (s.empty()) return Rc::ok;
    size_t colon = s.find(':');
    if (colon == sv::npos || !token(s.substr(0, colon))) {
      f.what = "bad header line";
      return Rc::bad;
    }
    sv v = trim(s.substr(colon + 1));
    for (char c : v) {
      if ((static_cast<unsigned char>(c) < 32 && c != '\t') || c == 127) {
        f.what = "control character in header";
        return Rc::bad;
      }
    }
    if (++rs.nheads > kMaxHeaders) {
      f.what = "too many headers";
      return Rc::bad;
    }
    if (!rs.heads.put(s.substr(0, colon)) || !rs.heads.putc('\0') || !rs.heads.put(v) || !rs.heads.putc('\0'))
      return Rc::nomem;
  }
}

Rc chunked(Reader &rd, Buf &line, Buf *body, Failure &f) {
  uint64_t total = 0;
  for (;;) {
    Rc rc = rd.line(line);
    if (rc != Rc::ok) {
      f.what = "reading a chunk size";
      return rc;
    }
    sv s = line.view();
    uint64_t n = 0;
    size_t i = 0;
    for (; i < s.size() && hexval(static_cast<unsigned char>(s[i])) >= 0; i++) {
      if (i >= 15) {
        f.what = "chunk size too large";
        return Rc::bad;
      }
      n = n * 16 + static_cast<uint64_t>(hexval(static_cast<unsigned char>(s[i])));
    }
    sv rest = trim(s.substr(i));
    if (i == 0 || (!rest.empty() && rest[0] != ';')) {
      f.what = "bad chunk size";
      return Rc::bad;
    }
    if (n == 0) break;
    total += n;
    if (total > kMaxBody) {
      f.what = "body too large";
      return Rc::bad;
    }
    rc = rd.bytes(body, n);
    if (rc != Rc::ok) {
      f.what = "reading a chunk";
      return rc;
    }
    rc = rd.line(line);
    if (rc != Rc::ok || line.size() != 0) {
      f.what = "chunk not followed by an empty line";
      return rc == Rc::ok ? Rc::bad : rc;
    }
  }
  // Trailer fields are read and dropped.
  for (;;) {
    Rc rc = rd.line(line);
    if (rc != Rc::ok) {
      f.what = "reading the trailer";
      return rc;
    }
    if (line.size() == 0) return Rc::ok;
  }
}

// Reads status, headers and body of one response (skipping interim ones).
Rc read_response(Reader &rd, bool head, Response &rs, Failure &f) {
  Buf line;
  for (;;) {
    Rc rc = status_line(rd, line, rs, f);
    if (rc != Rc::ok) return rc;
    rc = header_block(rd, line, rs, f);
    if (rc != Rc::ok) return rc;
    if (rs.status >= 200 || rs.status == 101) break;
  }
  sv conn = rs.header("Connection");
  rs.keep = rs.minor >= 1 ? !list_has(conn, "close") : list_has(conn, "keep-alive");
  rs.body.clear();
  if (head || rs.status == 204 || rs.status == 304 || rs.status < 200) return Rc::ok;
  if (rs.has("Transfer-Encoding")) {
    if (ieq(list_last(rs.header("Transfer-Encoding")), "chunked")) {
      if (rs.has("Content-Length")) rs.keep = false;
      return chunked(rd, line, &rs.body, f);
    }
    rs.keep = false;
  } else if (rs.has("Content-Length")) {
    // Every Content-Length field must carry the same plain number.
    sv h = rs.heads.view();
    int64_t len = -1;
    for (size_t i = 0; i < rs.nheads; i++) {
      size_t a = h.find('\0');
      sv n = h.substr(0, a);
      h.remove_prefix(a + 1);
      size_t b = h.find('\0');
      sv v = h.substr(0, b);
      h.remove_prefix(b + 1);
      if (!ieq(n, "Content-Length")) continue;
      uint64_t x = 0;
      if (v.empty() || v.size() > 12) {
        f.what = "bad Content-Length";
        return Rc::bad;
      }
      for (char c : v) {
        if (!lutcis(c, LUT_C_DIGIT)) {
          f.what = "bad Content-Length";
          return Rc::bad;
        }
        x = x * 10 + static_cast<uint64_t>(c - '0');
      }
      if (len >= 0 && static_cast<uint64_t>(len) != x) {
        f.what = "conflicting Content-Length";
        return Rc::bad;
      }
      len = static_cast<int64_t>(x);
    }
    if (static_cast<uint64_t>(len) > kMaxBody) {
      f.what = "body too large";
      return Rc::bad;
    }
    Rc rc = rd.bytes(&rs.body, static_cast<uint64_t>(len));
    if (rc != Rc::ok) f.what = "reading the body";
    return rc;
  } else {
    rs.keep = false;
  }
  // The body runs until the server closes.
  for (;;) {
    if (rd.r < rd.w) {
      if (!rs.body.put(rd.buf + rd.r, rd.w - rd.r)) return Rc::nomem;
      rd.r = rd.w;
      if (rs.body.size() > kMaxBody) {
        f.what = "body too large";
        return Rc::bad;
      }
    }
    Rc rc = rd.fill();
    if (rc == Rc::eof) return Rc::ok;
    if (rc != Rc::ok) {
      f.what = "reading the body";
      return rc;
    }
  }
}

// ------------------------------------------------------ proxy selection
struct Target {
  char host[256];
  int32_t port;
};

// Fills *px from http_proxy unless no_proxy exempts `host`; false when no
// proxy applies. A malformed proxy setting is ignored.
bool proxy_for(sv host, Target *px) {
  char np[1024];
  int32_t nl = slgetenv("no_proxy", np, sizeof np);
  if (nl > 0 && static_cast<size_t>(nl) < sizeof np) {
    sv list(np, static_cast<size_t>(nl));
    while (!list.empty()) {
      size_t c = list.find(',');
      sv e = trim(list.substr(0, c));
      if (!e.empty() && e[0] == '.') e.remove_prefix(1);
      if (e == "*") return false;
      if (!e.empty() && (ieq(host, e) || (host.size() > e.size() && host[host.size() - e.size() - 1] == '.' &&
                                         ieq(host.substr(host.size() - e.size()), e))))
        return false;
      if (c == sv::npos) break;
      list.remove_prefix(c + 1);
    }
  }
  char pv[1024];
  int32_t pl = slgetenv("http_proxy", pv + 7, sizeof pv - 7);
  if (pl <= 0 || static_cast<size_t>(pl) >= sizeof pv - 7) return false;
  const char *text = pv + 7;
  size_t len = static_cast<size_t>(pl);
  if (sv(text, len).find("://") == sv::npos) {
    memcpy(pv, "http://", 7);
    text = pv;
    len += 7;
  }
  lpuurl u;
  const char *why;
  if (parse_url(text, len, &u, &why) >= 0 || u.host.ptr == nullptr || u.host.len == 0 ||
      u.host.len >= sizeof px->host || !ieq(sv(u.scheme.ptr, u.scheme.len), "http"))
    return false;
  memcpy(px->host, u.host.ptr, u.host.len);
  px->host[u.host.len] = '\0';
  px->port = u.portnum >= 0 ? u.portnum : 80;
  return true;
}

// -------------------------------------------------------------- exchange
void park(lpuhc *hc, int64_t fd, const Target &t) {
  if (hc->fd >= 0) slsckclose(hc->fd);
  hc->fd = fd;
  memcpy(hc->host, t.host, sizeof hc->host);
  hc->port = t.port;
}

void drop(lpuhc *hc) {
  if (hc->fd >= 0) slsckclose(hc->fd);
  hc->fd = -1;
}

// Sends `request` to t and reads the response. Records its own failures.
int32_t exchange(lpuhc *hc, const Target &t, sv request, bool head, int32_t cms, int32_t rms, Response &rs,
                 int32_t *reused) {
  void *u = hc->uctx;
  for (int attempt = 0; attempt < 2; attempt++) {
    int64_t fd = -1;
    *reused = 0;
    if (attempt == 0 && hc->fd >= 0 && hc->port == t.port && strcmp(hc->host, t.host) == 0 &&
        slsckidle(hc->fd)) {
      fd = hc->fd;
      hc->fd = -1;
      *reused = 1;
    } else {
      drop(hc);
      fd = slsckconn(t.host, t.port, cms);
      if (fd < 0) {
        if (fd == SL_SCK_NOHOST) {
          rec(u, kelmsg::LPU_RESOLVE, t.host);
        } else if (fd == SL_SCK_TIMEOUT) {
          rec(u, kelmsg::LPU_TIMEOUT, "connecting");
        } else {
          char msg[128];
          slcgems(slerrno(), msg, sizeof msg);
          recsn(u, kelmsg::LPU_CONNECT, t.host, t.port, fd == SL_SCK_REFUSED ? "connection refused" : msg);
        }
        return -1;
      }
    }
    int64_t s = slscksend(fd, request.data(), request.size(), rms);
    auto *rd = static_cast<Reader *>(ss_mem_alc(sizeof(Reader)));
    if (rd == nullptr) {
      slsckclose(fd);
      rec(u, kelmsg::LPU_NOMEM, "HTTP reader");
      return -1;
    }
    new (rd) Reader;
    rd->fd = fd;
    rd->ms = rms;
    Failure f;
    Rc rc = Rc::ok;
    if (s == SL_SCK_TIMEOUT) {
      rc = Rc::timeout;
      f.what = "sending the request";
    } else if (s != 0) {
      rc = Rc::io;
      f.what = "sending the request";
    } else {
      rc = read_response(*rd, head, rs, f);
    }
    bool nothing = rd->got == 0;
    bool leftover = rd->r < rd->w;
    ss_mem_fre(rd);
    if (rc != Rc::ok) {
      slsckclose(fd);
      // A kept connection the server had closed: try once more afresh.
      if (*reused && nothing && (rc == Rc::eof || rc == Rc::io)) continue;
      switch (rc) {
        case Rc::timeout:
          rec(u, kelmsg::LPU_TIMEOUT, f.what);
          break;
        case Rc::bad:
          rec(u, kelmsg::LPU_BADRESP, f.what);
          break;
        case Rc::nomem:
          rec(u, kelmsg::LPU_NOMEM, "HTTP response");
          break;
        case Rc::eof:
          if (nothing) {
            rec(u, kelmsg::LPU_BADRESP, "connection closed without a response");
          } else {
            rec(u, kelmsg::LPU_BADRESP, "connection closed in the middle of the response");
          }
          break;
        default: {
          char msg[128];
          slcgems(slerrno(), msg, sizeof msg);
          rec2(u, kelmsg::LPU_IO, f.what, msg);
        }
      }
      return -1;
    }
    // Bytes beyond the response mean the framing is not understood: do not
    // reuse such a connection.
    if (rs.keep && !leftover)
      park(hc, fd, t);
    else
      slsckclose(fd);
    return 0;
  }
  rec(u, kelmsg::LPU_BADRESP, "connection closed without a response");
  return -1;
}

bool header_ok(const lpuhdr &h) {
  if (h.name == nullptr || h.value == nullptr || !token(h.name)) return false;
  for (const char *p = h.value; *p; p++)
    if (*p == '\r' || *p == '\n') return false;
  return true;
}

bool user_has(const lpureq *req, sv name) {
  for (size_t i = 0; i < req->nheaders; i++)
    if (ieq(req->headers[i].name, name)) return true;
  return false;
}

// Builds the request text for URL u.
bool build(Buf &b, const lpureq *req, sv method, const lpuurl &u, bool proxied, bool sendbody, const void *body,
           size_t bodyl) {
  bool ok = b.put(method) && b.putc(' ');
  if (proxied) {
    ok = ok && b.put("http://") && (u.hosttype != LPU_HOST_IPV6 || b.putc('[')) && b.put(u.host.ptr, u.host.len) &&
         (u.hosttype != LPU_HOST_IPV6 || b.putc(']'));
    if (u.portnum >= 0) ok = ok && b.putc(':') && b.putnum(static_cast<uint64_t>(u.portnum));
  }
  ok = ok && (u.path.len == 0 ? b.putc('/') : b.put(u.path.ptr, u.path.len));
  if (u.query.ptr != nullptr) ok = ok && b.putc('?') && b.put(u.query.ptr, u.query.len);
  ok = ok && b.put(" HTTP/1.1\r\n");
  if (!user_has(req, "Host")) {
    ok = ok && b.put("Host: ") && (u.hosttype != LPU_HOST_IPV6 || b.putc('[')) && b.put(u.host.ptr, u.host.len) &&
         (u.hosttype != LPU_HOST_IPV6 || b.putc(']'));
    if (u.portnum >= 0 && u.portnum != 80) ok = ok && b.putc(':') && b.putnum(static_cast<uint64_t>(u.portnum));
    ok = ok && b.put("\r\n");
  }
  if (!user_has(req, "User-Agent")) ok = ok && b.put("User-Agent: kelcore10\r\n");
  if (u.user.ptr != nullptr && !user_has(req, "Authorization")) {
    Buf cred;
    ok = ok && cred.put(u.user.ptr, u.user.len) && cred.putc(':') && cred.put(u.password.ptr, u.password.len);
    size_t need = 0;
    lpub64enc(nullptr, cred.data(), cred.size(), 0, nullptr, 0, &need);
    ok = ok && b.put("Authorization: Basic ") && b.reserve(b.size() + need + 1);
    if (ok) {
      char tmp[512];
      if (need < sizeof tmp && lpub64enc(nullptr, cred.data(), cred.size(), 0, tmp, sizeof tmp, &need) == 0)
        ok = b.put(tmp, need);
    }
    ok = ok && b.put("\r\n");
  }
  for (size_t i = 0; i < req->nheaders; i++) {
    if (!sendbody && ieq(req->headers[i].name, "Content-Length")) continue;
    ok = ok && b.put(req->headers[i].name) && b.put(": ") && b.put(req->headers[i].value) && b.put("\r\n");
  }
  if (sendbody && !user_has(req, "Content-Length"))
    ok = ok && b.put("Content-Length: ") && b.putnum(bodyl) && b.put("\r\n");
  ok = ok && b.put("\r\n");
  if (sendbody && bodyl > 0) ok = ok && b.put(body, bodyl);
  return ok;
}

// Copies the response into one block of the caller's heap.
int32_t deliver(void *uctx, void *mctx, lmmheap *heap, const Response &rs, sv url, int32_t redirects,
                int32_t reused, lpuresp *out) {
  size_t hsz = rs.nheads * sizeof(lpuhdr);
  size_t total = hsz + rs.reason.size() + 1 + url.size() + 1 + rs.heads.size() + rs.body.size() + 1;
  auto *blk = static_cast<char *>(lmmmalloc(mctx, heap, total, 0, "lpuhreq", __LINE__));
  if (blk == nullptr) {
    rec(uctx, kelmsg::LPU_NOMEM, "HTTP response");
    return -1;
  }
  auto *hdrs = reinterpret_cast<lpuhdr *>(blk);
  char *p = blk + hsz;
  auto copy = [&](sv s) {
    char *start = p;
    memcpy(p, s.data(), s.size());
    p += s.size();
    *p++ = '\0';
    return start;
  };
  out->reason = copy(rs.reason.view());
  out->url = copy(url);
  char *hp = p;
  memcpy(hp, rs.heads.data(), rs.heads.size());
  p += rs.heads.size();
  for (size_t i = 0; i < rs.nheads; i++) {
    hdrs[i].name = hp;
    hp += strlen(hp) + 1;
    hdrs[i].value = hp;
    hp += strlen(hp) + 1;
  }
  out->body = reinterpret_cast<const uint8_t *>(copy(rs.body.view()));
  out->bodyl = rs.body.size();
  out->headers = rs.nheads ? hdrs : nullptr;
  out->nheaders = rs.nheads;
  out->status = rs.status;
  out->redirects = redirects;
  out->reused = reused;
  out->block = blk;
  return 0;
}

}  // namespace

int32_t parse_response_mem(const char *p, size_t n, bool head, int32_t *status, size_t *bodyl) {
  auto *rd = static_cast<Reader *>(ss_mem_alc(sizeof(Reader)));
  if (rd == nullptr) return -1;
  new (rd) Reader;
  rd->fd = -1;
  rd->ms = 0;
  rd->mem = p;
  rd->meml = n;
  Response rs;
  Failure f;
  Rc rc = read_response(*rd, head, rs, f);
  ss_mem_fre(rd);
  if (rc != Rc::ok) return -1;
  *status = rs.status;
  *bodyl = rs.body.size();
  return 0;
}

}  // namespace lpu_internal

using namespace lpu_internal;

extern "C" {

KELAPI lpuhc *lpuhcnew(void *uctx) {
  if (ctx_of(uctx) == nullptr) return nullptr;
  auto *hc = static_cast<lpuhc *>(ss_mem_calc(sizeof(lpuhc)));
  if (hc == nullptr) {
    rec(uctx, kelmsg::LPU_NOMEM, "lpuhcnew");
    return nullptr;
  }
  hc->magic = kClientMagic;
  hc->uctx = uctx;
  hc->fd = -1;
  return hc;
}

KELAPI void lpuhcfree(lpuhc *hc) {
  if (hc == nullptr || hc->magic != kClientMagic) return;
  drop(hc);
  hc->magic = 0;
  ss_mem_fre(hc);
}

KELAPI int32_t lpuhreq(lpuhc *hc, const lpureq *req, void *mctx, lmmheap *heap, lpuresp *resp) {
  if (resp != nullptr) *resp = lpuresp{};
  if (hc == nullptr || hc->magic != kClientMagic) return -1;
  void *u = hc->uctx;
  if (req == nullptr || req->url == nullptr || resp == nullptr || heap == nullptr ||
      (req->nheaders > 0 && req->headers == nullptr) || (req->bodyl > 0 && req->body == nullptr)) {
    rec(u, kelmsg::LPU_BADARG, "lpuhreq");
    return -1;
  }
  sv method = req->method ? sv(req->method) : sv("GET");
  if (!token(method)) {
    rec(u, kelmsg::LPU_BADARG, "method is not a token");
    return -1;
  }
  for (size_t i = 0; i < req->nheaders; i++) {
    if (!header_ok(req->headers[i])) {
      rec(u, kelmsg::LPU_BADARG, "bad request header");
      return -1;
    }
  }
  int32_t cms = req->connect_ms > 0 ? req->connect_ms : 10000;
  int32_t rms = req->read_ms > 0 ? req->read_ms : 30000;
  int32_t maxr = req->maxredirects < 0 ? 5 : req->maxredirects;
  const void *body = req->body;
  size_t bodyl = req->bodyl;
  bool sendbody = body != nullptr || ieq(method, "POST") || ieq(method, "PUT");

  Buf cur, next, text;
  if (!cur.put(sv(req->url))) {
    rec(u, kelmsg::LPU_NOMEM, "lpuhreq");
    return -1;
  }
  Response rs;
  int32_t redirects = 0, reused = 0;
  for (;;) {
    lpuurl url;
    if (lpuparse(u, cur.data(), cur.size(), &url) != 0) return -1;
    if (url.scheme.ptr == nullptr || !ieq(sv(url.scheme.ptr, url.scheme.len), "http")) {
      char s[32];
      size_t k = url.scheme.ptr == nullptr ? 0 : (url.scheme.len < 31 ? url.scheme.len : 31);
      if (k > 0) memcpy(s, url.scheme.ptr, k);
      s[k] = '\0';
      rec(u, kelmsg::LPU_SCHEME, s);
      return -1;
    }
    if (url.host.ptr == nullptr || url.host.len == 0 || url.host.len >= 256) {
      rec(u, kelmsg::LPU_BADARG, "URL without host");
      return -1;
    }
    Target direct{};
    memcpy(direct.host, url.host.ptr, url.host.len);
    direct.port = url.portnum >= 0 ? url.portnum : 80;
    Target px{};
    bool proxied = proxy_for(sv(direct.host), &px);
    text.clear();
    if (!build(text, req, method, url, proxied, sendbody, body, bodyl)) {
      rec(u, kelmsg::LPU_NOMEM, "HTTP request");
      return -1;
    }
    if (exchange(hc, proxied ? px : direct, text.view(), ieq(method, "HEAD"), cms, rms, rs, &reused) != 0)
      return -1;
    bool redirect = rs.status == 301 || rs.status == 302 || rs.status == 303 || rs.status == 307 || rs.status == 308;
    sv loc = rs.header("Location");
    if (!redirect || loc.empty() || maxr == 0) break;
    if (redirects >= maxr) {
      recn(u, kelmsg::LPU_TOOMANYREDIR, maxr);
      return -1;
    }
    size_t need = 0;
    lpuresolve(nullptr, cur.data(), cur.size(), loc.data(), loc.size(), nullptr, 0, &need);
    if (!next.reserve(need + 1)) {
      rec(u, kelmsg::LPU_NOMEM, "redirect");
      return -1;
    }
    next.clear();
    char *dst = const_cast<char *>(next.data());
    if (lpuresolve(u, cur.data(), cur.size(), loc.data(), loc.size(), dst, need + 1, &need) != 0) {
      rec(u, kelmsg::LPU_BADRESP, "bad Location");
      return -1;
    }
    // Drop a fragment: it is never sent, and the request URL keeps none.
    sv nv(dst, need);
    size_t hash = nv.find('#');
    cur.clear();
    if (!cur.put(nv.substr(0, hash))) {
      rec(u, kelmsg::LPU_NOMEM, "redirect");
      return -1;
    }
    if (rs.status == 303 || ((rs.status == 301 || rs.status == 302) && ieq(method, "POST"))) {
      if (!ieq(method, "HEAD")) method = "GET";
      body = nullptr;
      bodyl = 0;
      sendbody = false;
    }
    redirects++;
  }
  return deliver(u, mctx, heap, rs, cur.view(), redirects, reused, resp);
}

KELAPI const char *lpuhget(const lpuresp *resp, const char *name) {
  if (resp == nullptr || name == nullptr) return nullptr;
  for (size_t i = 0; i < resp->nheaders; i++)
    if (lutsicmp(resp->headers[i].name, name) == 0) return resp->headers[i].value;
  return nullptr;
}

KELAPI int32_t lpuhrfree(void *mctx, lmmheap *heap, lpuresp *resp) {
  if (resp == nullptr) return -1;
  int32_t rc = resp->block ? lmmfree(mctx, heap, resp->block, 0) : 0;
  *resp = lpuresp{};
  return rc;
}

}  // extern "C"
