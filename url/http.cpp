// A small HTTP/1.1 client over plain and TLS connections.
//
// A request is one exchange per URL it visits (redirects add more). For
// each, the route is chosen: straight to the server, through an http proxy,
// or for https through a tunnel that a proxy opens on CONNECT. The client's
// parked connection is taken when it goes the same way and is still idle,
// else a new one is opened (with a TLS session for https). The request is
// written, then the head of the response is read, and only then is it known
// where the body goes: dropped for a redirect that is followed, else to the
// caller's receiver or into the block of the caller's heap that carries
// the whole response. The body's framing decides whether the connection is
// parked for the next request.
//
// Two rules guard the caller. A kept connection that the server closed
// before answering is replaced and the request sent again only when its
// method is idempotent: a POST may already have been acted on. And the
// credentials the caller gives (Authorization and Cookie headers) go only
// to the origin, scheme, host and port, of the URL the caller asked for;
// those of a URL's user information only to the URL they are part of.
//
// Sections: client; routes and proxies; trust; opening connections;
// request text; sending; exchange; failures; response block; lpuhreq and
// friends.
#include <new>

#include "lut.h"
#include "url/http_impl.h"

namespace lpu_internal {
namespace {

constexpr uint32_t kClientMagic = 0x4C504843;  // "LPHC"
constexpr uint64_t kMaxBuffered = uint64_t{1} << 32;  // a body kept in memory
constexpr size_t kInlineBody = 16384;  // a body up to this size goes out with the head

// Where a connection goes, as far as reusing it is concerned.
struct Route {
  char host[256] = "";  // the server, or the proxy
  int32_t port = 0;
  bool tls = false;
  bool tunnel = false;   // https through a proxy: CONNECT to name first
  char name[256] = "";   // the server (TLS name, tunnel end); "" for a plain proxy
  int32_t nport = 0;
  bool v6 = false;       // name is an IPv6 literal

  bool same(const Route &o) const {
    return port == o.port && tls == o.tls && tunnel == o.tunnel && strcmp(host, o.host) == 0 &&
           (!tls || (nport == o.nport && strcmp(name, o.name) == 0));
  }
};

}  // namespace
}  // namespace lpu_internal

using namespace lpu_internal;

// ----------------------------------------------------------------- client
struct lpuhc {
  uint32_t magic;
  void *uctx;
  Conn conn;  // the parked connection (fd -1: none)
  Route route;
  SlTlsTrust *trust;  // made for the first https request, kept while its settings hold
  uint32_t trustflags;
  char *cafile;  // the trust's CA file (system allocator), null: the system's store
};

namespace lpu_internal {
namespace {

void drop(lpuhc *hc) { hc->conn.close(); }

// ----------------------------------------------------- routes and proxies
// A proxy from the environment: host, port and the Basic credentials of
// its URL's user information ("" none).
struct Proxy {
  char host[256];
  int32_t port;
  Buf auth;
};

// Appends "Basic " and base64 of user ":" password, both percent-decoded.
bool put_basic(Buf &b, const lpuurl &u) {
  Buf cred;
  char *c = cred.tail(u.user.len + u.password.len + 2);
  if (c == nullptr) return false;
  size_t ul = 0, pl = 0, need = 0, n = 0;
  lpupdec(nullptr, u.user.ptr, u.user.len, 0, c, u.user.len + 1, &ul);
  c[ul] = ':';
  lpupdec(nullptr, u.password.ptr, u.password.len, 0, c + ul + 1, u.password.len + 1, &pl);
  lpub64enc(nullptr, c, ul + 1 + pl, 0, nullptr, 0, &need);
  char *out = b.put("Basic ") ? b.tail(need + 1) : nullptr;
  if (out == nullptr) return false;
  lpub64enc(nullptr, c, ul + 1 + pl, 0, out, need + 1, &n);
  b.commit(n);
  return true;
}

// Does no_proxy exempt `host`? Comma-separated names; a name matches itself
// and, with or without a leading ".", its subdomains; "*" matches all.
bool exempt(sv host) {
  char np[1024];
  int32_t nl = slgetenv("no_proxy", np, sizeof np);
  if (nl <= 0 || static_cast<size_t>(nl) >= sizeof np) return false;
  sv list(np, static_cast<size_t>(nl));
  while (!list.empty()) {
    size_t c = list.find(',');
    sv e = trim(list.substr(0, c));
    if (!e.empty() && e[0] == '.') e.remove_prefix(1);
    if (e == "*") return true;
    if (!e.empty() && (ieq(host, e) || (host.size() > e.size() && host[host.size() - e.size() - 1] == '.' &&
                                        ieq(host.substr(host.size() - e.size()), e))))
      return true;
    if (c == sv::npos) break;
    list.remove_prefix(c + 1);
  }
  return false;
}

// Fills *px from http_proxy (https_proxy for https) unless no_proxy
// exempts `host`; false when no proxy applies. A malformed setting is
// ignored.
bool proxy_for(sv host, bool https, Proxy *px) {
  if (exempt(host)) return false;
  char pv[1024];
  int32_t pl = slgetenv(https ? "https_proxy" : "http_proxy", pv + 7, sizeof pv - 7);
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
  px->auth.clear();
  return u.user.ptr == nullptr || put_basic(px->auth, u);
}

}  // namespace
}  // namespace lpu_internal

namespace lpu_internal {
namespace {

// What one call of lpuhreq works with.
struct Job {
  lpuhc *hc;
  void *u;
  const lpureq *req;
  sv method;
  Clock clk;
  int32_t cms, rms;
  Reader *rd;
  char *sendbuf;  // kSendBuf bytes, after the reader in the same allocation
  Buf line;
};

constexpr size_t kSendBuf = 16384;

// A request body: in memory, or from the caller's source.
struct Body {
  bool send = false;  // the request carries a body (maybe empty)
  const void *mem = nullptr;
  size_t len = 0;
  lpusrcfn fn = nullptr;
  void *arg = nullptr;
  int64_t fnlen = -1;  // < 0: not known, sent chunked
};

// --------------------------------------------------------------- failures
void timeout(const Job &j, const char *what) {
  Buf t;
  bool ok = t.put(what);
  if (j.clk.over())
    ok = ok && t.put(" (the limit of ") && t.putnum(static_cast<uint64_t>(j.clk.total_ms)) &&
         t.put(" ms on the whole request ran out)");
  ok = ok && t.putc('\0');
  rec(j.u, kelmsg::LPU_TIMEOUT, ok ? t.data() : what);
}

// Records the failure rc of an exchange with `host`.
void fail(const Job &j, Rc rc, const Failure &f, const Conn &c, bool nothing, const char *host) {
  void *u = j.u;
  switch (rc) {
    case Rc::timeout:
      timeout(j, f.what);
      break;
    case Rc::bad:
      rec(u, kelmsg::LPU_BADRESP, f.what);
      break;
    case Rc::nomem:
      rec(u, kelmsg::LPU_NOMEM, "HTTP response");
      break;
    case Rc::eof:
      rec(u, kelmsg::LPU_BADRESP,
          nothing ? "connection closed without a response" : "connection closed in the middle of the response");
      break;
    case Rc::tls:
      rec2(u, kelmsg::LPU_TLS, host, c.why);
      break;
    case Rc::abort:
      rec(u, kelmsg::LPU_ABORTED, f.what);
      break;
    default: {
      char msg[128];
      slcgems(slerrno(), msg, sizeof msg);
      rec2(u, kelmsg::LPU_IO, f.what, msg);
    }
  }
}

// ------------------------------------------------------------------ trust
// Makes the client's trust for the request's TLS settings unless it has it.
int32_t ensure_trust(const Job &j) {
  lpuhc *hc = j.hc;
  uint32_t fl = (j.req->tlsflags & LPU_TLS_NOVERIFY) ? SL_SSL_NOVERIFY : 0;
  const char *ca = fl == 0 && j.req->cafile != nullptr && j.req->cafile[0] != '\0' ? j.req->cafile : nullptr;
  if (hc->trust != nullptr && hc->trustflags == fl && (ca == nullptr) == (hc->cafile == nullptr) &&
      (ca == nullptr || strcmp(ca, hc->cafile) == 0))
    return 0;
  if (hc->route.tls) drop(hc);  // its session was checked against the old trust
  slssltrustfree(hc->trust);
  hc->trust = nullptr;
  ss_mem_fre(hc->cafile);
  hc->cafile = nullptr;
  char *copy = nullptr;
  if (ca != nullptr) {
    size_t n = strlen(ca) + 1;
    copy = static_cast<char *>(ss_mem_alc(n));
    if (copy == nullptr) {
      rec(j.u, kelmsg::LPU_NOMEM, "CA file name");
      return -1;
    }
    memcpy(copy, ca, n);
  }
  char why[160] = "";
  hc->trust = slssltrust(ca, fl, why, sizeof why);
  if (hc->trust == nullptr) {
    ss_mem_fre(copy);
    rec2(j.u, kelmsg::LPU_TRUST, ca != nullptr ? ca : "the system's trust store", why);
    return -1;
  }
  hc->cafile = copy;
  hc->trustflags = fl;
  return 0;
}

// ----------------------------------------------------- opening connections
bool put_authority(Buf &b, const char *host, bool v6, int32_t port) {
  return (!v6 || b.putc('[')) && b.put(sv(host)) && (!v6 || b.putc(']')) && b.putc(':') &&
         b.putnum(static_cast<uint64_t>(port));
}

const lpuhdr *user_header(const lpureq *req, sv name) {
  for (size_t i = 0; i < req->nheaders; i++)
    if (ieq(req->headers[i].name, name)) return &req->headers[i];
  return nullptr;
}

// Asks the proxy at the other end of c for a tunnel to the server of r.
int32_t tunnel(Job &j, const Route &r, const Buf &pauth, Conn &c) {
  Buf t;
  const lpuhdr *ua = user_header(j.req, "Proxy-Authorization");
  bool ok = t.put("CONNECT ") && put_authority(t, r.name, r.v6, r.nport) && t.put(" HTTP/1.1\r\nHost: ") &&
            put_authority(t, r.name, r.v6, r.nport) && t.put("\r\n");
  if (ua != nullptr || pauth.size() > 0)
    ok = ok && t.put("Proxy-Authorization: ") && t.put(ua != nullptr ? sv(ua->value) : pauth.view()) && t.put("\r\n");
  if (!(ok && t.put("\r\n"))) {
    rec(j.u, kelmsg::LPU_NOMEM, "CONNECT request");
    return -1;
  }
  Failure f{"sending the CONNECT request"};
  Response rs;
  j.rd->reset(&c, &j.clk, j.rms);
  int64_t s = c.send(t.data(), t.size(), j.clk.next(j.rms));
  Rc rc = s != 0 ? rc_of(s) : read_head(*j.rd, j.line, true, rs, f);
  if (rc != Rc::ok) {
    fail(j, rc, f, c, j.rd->got == 0, r.host);
    return -1;
  }
  if (rs.status / 100 != 2 || j.rd->r < j.rd->w) {
    Buf why;
    bool w = why.put("the proxy refused the tunnel: ") && why.putnum(static_cast<uint64_t>(rs.status)) &&
             why.putc(' ') && why.put(rs.reason.view()) && why.putc('\0');
    recsn(j.u, kelmsg::LPU_CONNECT, r.name, r.nport, w ? why.data() : "the proxy refused the tunnel");
    return -1;
  }
  return 0;
}

// Opens a connection along r: TCP, the tunnel when there is one, and TLS
// for https. Records its failures.
int32_t open_conn(Job &j, const Route &r, const Buf &pauth, Conn &c) {
  void *u = j.u;
  int64_t fd = slsckconn(r.host, r.port, j.clk.next(j.cms));
  if (fd < 0) {
    if (fd == SL_SCK_NOHOST) {
      rec(u, kelmsg::LPU_RESOLVE, r.host);
    } else if (fd == SL_SCK_TIMEOUT) {
      timeout(j, "connecting");
    } else {
      char msg[128];
      slcgems(slerrno(), msg, sizeof msg);
      recsn(u, kelmsg::LPU_CONNECT, r.host, r.port, fd == SL_SCK_REFUSED ? "connection refused" : msg);
    }
    return -1;
  }
  c.fd = fd;
  if (r.tunnel && tunnel(j, r, pauth, c) != 0) {
    c.close();
    return -1;
  }
  if (!r.tls) return 0;
  int64_t st = slsslopen(j.hc->trust, fd, r.name, j.clk.next(j.cms), &c.tls, c.why, sizeof c.why);
  if (st == 0) return 0;
  if (st == SL_SSL_VERIFY) {
    rec2(u, kelmsg::LPU_CERT, r.name, c.why);
  } else if (st == SL_SSL_PROTO) {
    rec2(u, kelmsg::LPU_TLS, r.name, c.why);
  } else if (st == SL_SCK_EOF) {
    rec2(u, kelmsg::LPU_TLS, r.name, "the server closed the connection during the handshake");
  } else if (st == SL_SCK_TIMEOUT) {
    timeout(j, "starting TLS");
  } else {
    char msg[128];
    slcgems(slerrno(), msg, sizeof msg);
    rec2(u, kelmsg::LPU_IO, "starting TLS", msg);
  }
  c.close();
  return -1;
}

// ----------------------------------------------------------- request text
bool header_ok(const lpuhdr &h) {
  if (h.name == nullptr || h.value == nullptr || !token(h.name)) return false;
  for (const char *p = h.value; *p; p++)
    if (*p == '\r' || *p == '\n') return false;
  return true;
}

// The request head for URL u, with a small body in memory after it.
// `origin`: u has the scheme, host and port of the caller's URL, so the
// caller's credentials may go. `proxied`: through a plain http proxy, which
// takes the absolute URL and the proxy's credentials.
bool build(Buf &b, const Job &j, const lpuurl &u, bool https, bool proxied, bool origin, const Buf &pauth,
           const Body &body) {
  const lpureq *req = j.req;
  bool v6 = u.hosttype == LPU_HOST_IPV6;
  bool ok = b.put(j.method) && b.putc(' ');
  if (proxied)
    ok = ok && b.put("http://") && (!v6 || b.putc('[')) && b.put(u.host.ptr, u.host.len) && (!v6 || b.putc(']')) &&
         (u.portnum < 0 || (b.putc(':') && b.putnum(static_cast<uint64_t>(u.portnum))));
  ok = ok && (u.path.len == 0 ? b.putc('/') : b.put(u.path.ptr, u.path.len));
  if (u.query.ptr != nullptr) ok = ok && b.putc('?') && b.put(u.query.ptr, u.query.len);
  ok = ok && b.put(" HTTP/1.1\r\n");
  if (user_header(req, "Host") == nullptr) {
    ok = ok && b.put("Host: ") && (!v6 || b.putc('[')) && b.put(u.host.ptr, u.host.len) && (!v6 || b.putc(']'));
    if (u.portnum >= 0 && u.portnum != (https ? 443 : 80))
      ok = ok && b.putc(':') && b.putnum(static_cast<uint64_t>(u.portnum));
    ok = ok && b.put("\r\n");
  }
  if (user_header(req, "User-Agent") == nullptr) ok = ok && b.put("User-Agent: kelcore10\r\n");
  if (u.user.ptr != nullptr && !(origin && user_header(req, "Authorization") != nullptr))
    ok = ok && b.put("Authorization: ") && put_basic(b, u) && b.put("\r\n");
  if (proxied && pauth.size() > 0 && user_header(req, "Proxy-Authorization") == nullptr)
    ok = ok && b.put("Proxy-Authorization: ") && b.put(pauth.view()) && b.put("\r\n");
  for (size_t i = 0; i < req->nheaders; i++) {
    sv name(req->headers[i].name);
    if ((!body.send && ieq(name, "Content-Length")) ||
        (!origin && (ieq(name, "Authorization") || ieq(name, "Cookie"))) ||
        (!proxied && ieq(name, "Proxy-Authorization")))
      continue;
    ok = ok && b.put(name) && b.put(": ") && b.put(req->headers[i].value) && b.put("\r\n");
  }
  if (body.send && body.fn != nullptr && body.fnlen < 0)
    ok = ok && b.put("Transfer-Encoding: chunked\r\n");
  else if (body.send && user_header(req, "Content-Length") == nullptr)
    ok = ok && b.put("Content-Length: ") &&
         b.putnum(body.fn != nullptr ? static_cast<uint64_t>(body.fnlen) : body.len) && b.put("\r\n");
  ok = ok && b.put("\r\n");
  if (body.send && body.len > 0 && body.len <= kInlineBody) ok = ok && b.put(body.mem, body.len);
  return ok;
}

// ---------------------------------------------------------------- sending
Rc send_all(Job &j, Conn &c, const void *p, size_t n) {
  if (j.clk.over()) return Rc::timeout;
  int64_t s = c.send(p, n, j.clk.next(j.rms));
  return s == 0 ? Rc::ok : rc_of(s);
}

// Sends the request head and its body.
Rc send_request(Job &j, Conn &c, sv text, const Body &body, Failure &f) {
  f.what = "sending the request";
  Rc rc = send_all(j, c, text.data(), text.size());
  if (rc == Rc::ok && body.send && body.len > kInlineBody) rc = send_all(j, c, body.mem, body.len);
  if (rc != Rc::ok || !body.send || body.fn == nullptr) return rc;
  // From the source, in pieces of the send buffer; a piece of unknown total
  // length goes as a chunk, its size line in front and CR LF after it.
  bool chunked = body.fnlen < 0;
  uint64_t off = 0;
  for (;;) {
    uint64_t want = kSendBuf - 32;
    if (!chunked) {
      if (off == static_cast<uint64_t>(body.fnlen)) return Rc::ok;
      if (want > static_cast<uint64_t>(body.fnlen) - off) want = static_cast<uint64_t>(body.fnlen) - off;
    }
    char *data = j.sendbuf + 24;
    int64_t k = body.fn(body.arg, off, data, static_cast<size_t>(want));
    if (k < 0 || static_cast<uint64_t>(k) > want || (k == 0 && !chunked)) {
      f.what = k < 0 ? "body source" : k == 0 ? "body source: it ended before the stated length"
                                              : "body source: it gave more bytes than asked for";
      return Rc::abort;
    }
    off += static_cast<uint64_t>(k);
    char *start = data;
    size_t n = static_cast<size_t>(k);
    if (chunked) {
      if (k == 0) return send_all(j, c, "0\r\n\r\n", 5);
      Buf size;
      if (!size.putnum(n, 16) || !size.put("\r\n")) return Rc::nomem;
      start -= size.size();
      memcpy(start, size.data(), size.size());
      memcpy(data + n, "\r\n", 2);
      n += size.size() + 2;
    }
    rc = send_all(j, c, start, n);
    if (rc != Rc::ok) return rc;
  }
}

// --------------------------------------------------------------- exchange
bool idempotent(sv m) {
  return ieq(m, "GET") || ieq(m, "HEAD") || ieq(m, "PUT") || ieq(m, "DELETE") || ieq(m, "OPTIONS") ||
         ieq(m, "TRACE");
}

// Sends the request along r and reads the head of the response into rs,
// on the parked connection when it goes the same way and is still idle.
// Records its failures.
int32_t exchange(Job &j, const Route &r, const Buf &pauth, sv text, const Body &body, Conn &c, Response &rs,
                 int32_t *reused) {
  lpuhc *hc = j.hc;
  bool head = ieq(j.method, "HEAD");
  for (int attempt = 0;; attempt++) {
    *reused = 0;
    if (attempt == 0 && hc->conn.fd >= 0 && hc->route.same(r) && hc->conn.idle()) {
      c = hc->conn;
      hc->conn.fd = -1;
      hc->conn.tls = nullptr;
      *reused = 1;
    } else {
      drop(hc);
      if (open_conn(j, r, pauth, c) != 0) return -1;
    }
    j.rd->reset(&c, &j.clk, j.rms);
    Failure f;
    Rc rc = send_request(j, c, text, body, f);
    if (rc == Rc::ok) rc = read_head(*j.rd, j.line, head, rs, f);
    if (rc == Rc::ok) return 0;
    bool nothing = j.rd->got == 0;
    if (*reused && nothing && (rc == Rc::eof || rc == Rc::io || rc == Rc::tls)) {
      // The server closed the kept connection; whether it saw the request
      // first cannot be known.
      c.close();
      if (idempotent(j.method)) continue;
      Buf m;
      rec(j.u, kelmsg::LPU_NORESEND, m.put(j.method) && m.putc('\0') ? m.data() : "the request");
      return -1;
    }
    fail(j, rc, f, c, nothing, r.tls ? r.name : r.host);
    c.close();
    return -1;
  }
}

// Parks c for the next request when the response left it in step.
void finish(Job &j, Conn &c, const Response &rs, const Route &r) {
  if (rs.keep && j.rd->r == j.rd->w) {
    drop(j.hc);
    j.hc->conn = c;
    j.hc->route = r;
  } else {
    c.close();
  }
  c.fd = -1;
  c.tls = nullptr;
}

// --------------------------------------------------------- response block
// Lays the head of rs, the final URL and room for bodycap body bytes and a
// NUL out in one block of the caller's heap and points *out at them.
char *make_block(const Job &j, void *mctx, lmmheap *heap, const Response &rs, sv url, uint64_t bodycap,
                 lpuresp *out) {
  size_t hsz = rs.nheads * sizeof(lpuhdr);
  size_t total = hsz + rs.reason.size() + 1 + url.size() + 1 + rs.heads.size() + static_cast<size_t>(bodycap) + 1;
  auto *blk = static_cast<char *>(lmmmalloc(mctx, heap, total, 0, "lpuhreq", __LINE__));
  if (blk == nullptr) {
    rec(j.u, kelmsg::LPU_NOMEM, "HTTP response");
    return nullptr;
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
  const char *hp = p;
  memcpy(p, rs.heads.data(), rs.heads.size());
  p += rs.heads.size();
  for (size_t i = 0; i < rs.nheads; i++) {
    hdrs[i].name = hp;
    hp += strlen(hp) + 1;
    hdrs[i].value = hp;
    hp += strlen(hp) + 1;
  }
  *p = '\0';
  out->body = reinterpret_cast<const uint8_t *>(p);
  out->bodyl = 0;
  out->headers = rs.nheads ? hdrs : nullptr;
  out->nheaders = rs.nheads;
  out->status = rs.status;
  out->block = blk;
  return blk;
}

// Reads the final response's body where the caller wants it and finishes
// *out. Records its failures; *out is then freed and zeroed.
int32_t deliver(Job &j, void *mctx, lmmheap *heap, Conn &c, Response &rs, const Route &r, sv url, lpuresp *out) {
  const lpureq *req = j.req;
  BodyOut bo;
  Buf grown;
  Failure f;
  Rc rc = Rc::ok;
  if (req->sink != nullptr) {
    bo.kind = BodyOut::call;
    bo.fn = req->sink;
    bo.arg = req->sinkarg;
    bo.head = out;
    if (make_block(j, mctx, heap, rs, url, 0, out) == nullptr) return -1;
    if (req->sink(req->sinkarg, out, nullptr, 0) != 0) {
      rc = Rc::abort;
      f.what = "body receiver";
    }
  } else if (rs.framing == Response::by_length && rs.length <= kMaxBuffered) {
    // Straight into the block: a large body costs its size once.
    bo.kind = BodyOut::fixed;
    bo.cap = rs.length;
    if (make_block(j, mctx, heap, rs, url, rs.length, out) == nullptr) return -1;
    bo.at = const_cast<char *>(reinterpret_cast<const char *>(out->body));
  } else {
    bo.kind = BodyOut::grow;
    bo.buf = &grown;
    bo.cap = kMaxBuffered;
  }
  if (rc == Rc::ok) rc = read_body(*j.rd, j.line, rs, bo, f);
  out->tls = c.tls != nullptr ? slsslversion(c.tls) : 0;
  if (rc == Rc::ok && out->block == nullptr &&
      make_block(j, mctx, heap, rs, url, grown.size(), out) != nullptr)
    memcpy(const_cast<uint8_t *>(out->body), grown.data(), grown.size());
  if (rc != Rc::ok || out->block == nullptr) {
    if (rc != Rc::ok) fail(j, rc, f, c, false, r.tls ? r.name : r.host);
    c.close();
    lpuhrfree(mctx, heap, out);
    return -1;
  }
  finish(j, c, rs, r);
  out->bodyl = static_cast<size_t>(bo.n);
  if (bo.kind != BodyOut::call) const_cast<uint8_t *>(out->body)[out->bodyl] = '\0';
  return 0;
}

}  // namespace
}  // namespace lpu_internal

// --------------------------------------------------- lpuhreq and friends
extern "C" {

KELAPI lpuhc *lpuhcnew(void *uctx) {
  if (ctx_of(uctx) == nullptr) return nullptr;
  auto *hc = static_cast<lpuhc *>(ss_mem_calc(sizeof(lpuhc)));
  if (hc == nullptr) {
    rec(uctx, kelmsg::LPU_NOMEM, "lpuhcnew");
    return nullptr;
  }
  new (hc) lpuhc{};
  hc->magic = kClientMagic;
  hc->uctx = uctx;
  return hc;
}

KELAPI void lpuhcfree(lpuhc *hc) {
  if (hc == nullptr || hc->magic != kClientMagic) return;
  drop(hc);
  slssltrustfree(hc->trust);
  ss_mem_fre(hc->cafile);
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
  if (req->body != nullptr && req->source != nullptr) {
    rec(u, kelmsg::LPU_BADARG, "a request has a body or a body source, not both");
    return -1;
  }
  Job j{};
  j.hc = hc;
  j.u = u;
  j.req = req;
  j.method = req->method ? sv(req->method) : sv("GET");
  if (!token(j.method)) {
    rec(u, kelmsg::LPU_BADARG, "method is not a token");
    return -1;
  }
  for (size_t i = 0; i < req->nheaders; i++) {
    if (!header_ok(req->headers[i])) {
      rec(u, kelmsg::LPU_BADARG, "bad request header");
      return -1;
    }
  }
  j.cms = req->connect_ms > 0 ? req->connect_ms : 10000;
  j.rms = req->read_ms > 0 ? req->read_ms : 30000;
  if (req->total_ms > 0) {
    j.clk.total_ms = req->total_ms;
    j.clk.end = slmonons() + static_cast<uint64_t>(req->total_ms) * 1000000u;
  }
  int32_t maxr = req->maxredirects < 0 ? 5 : req->maxredirects;
  Body body;
  body.mem = req->body;
  body.len = req->bodyl;
  body.fn = req->source;
  body.arg = req->sourcearg;
  body.fnlen = req->sourcel;
  body.send = body.mem != nullptr || body.fn != nullptr || ieq(j.method, "POST") || ieq(j.method, "PUT");

  Buf cur, next, text, pauth;
  auto *work = static_cast<char *>(ss_mem_alc(sizeof(Reader) + kSendBuf));
  if (work == nullptr || !cur.put(sv(req->url))) {
    ss_mem_fre(work);
    rec(u, kelmsg::LPU_NOMEM, "lpuhreq");
    return -1;
  }
  j.rd = new (work) Reader;
  j.sendbuf = work + sizeof(Reader);
  Response rs;
  Conn c;
  bool https0 = false;
  int32_t port0 = 0;
  char host0[256] = "";
  int32_t redirects = 0, reused = 0, rc = -1;
  for (;;) {
    lpuurl url;
    if (lpuparse(u, cur.data(), cur.size(), &url) != 0) break;
    sv scheme = url.scheme.ptr ? sv(url.scheme.ptr, url.scheme.len) : sv();
    bool https = ieq(scheme, "https");
    if (scheme.empty()) {
      rec(u, kelmsg::LPU_BADARG, "not an absolute URL (no scheme)");
      break;
    }
    if (!https && !ieq(scheme, "http")) {
      char s[32];
      size_t k = scheme.size() < 31 ? scheme.size() : 31;
      memcpy(s, scheme.data(), k);
      s[k] = '\0';
      rec(u, kelmsg::LPU_SCHEME, s);
      break;
    }
    if (url.host.ptr == nullptr || url.host.len == 0 || url.host.len >= 256) {
      rec(u, kelmsg::LPU_BADARG, "URL without host");
      break;
    }
    Route r;
    memcpy(r.name, url.host.ptr, url.host.len);
    r.nport = url.portnum >= 0 ? url.portnum : https ? 443 : 80;
    r.v6 = url.hosttype == LPU_HOST_IPV6;
    r.tls = https;
    if (redirects == 0) {
      memcpy(host0, r.name, sizeof host0);
      port0 = r.nport;
      https0 = https;
    }
    bool origin = https == https0 && r.nport == port0 && ieq(sv(r.name), sv(host0));
    Proxy px;
    bool proxied = proxy_for(sv(r.name), https, &px);
    if (proxied) {
      memcpy(r.host, px.host, sizeof r.host);
      r.port = px.port;
      r.tunnel = https;
    } else {
      memcpy(r.host, r.name, sizeof r.host);
      r.port = r.nport;
    }
    if (!https) r.name[0] = '\0';
    pauth.clear();
    if (proxied && !pauth.put(px.auth.view())) {
      rec(u, kelmsg::LPU_NOMEM, "proxy credentials");
      break;
    }
    if (https && ensure_trust(j) != 0) break;
    text.clear();
    if (!build(text, j, url, https, proxied && !https, origin, pauth, body)) {
      rec(u, kelmsg::LPU_NOMEM, "HTTP request");
      break;
    }
    if (exchange(j, r, pauth, text.view(), body, c, rs, &reused) != 0) break;
    bool redirect = rs.status == 301 || rs.status == 302 || rs.status == 303 || rs.status == 307 || rs.status == 308;
    sv loc = rs.header("Location");
    if (!redirect || loc.empty() || maxr == 0) {
      if (deliver(j, mctx, heap, c, rs, r, cur.view(), resp) != 0) break;
      resp->redirects = redirects;
      resp->reused = reused;
      rc = 0;
      break;
    }
    if (redirects >= maxr) {
      c.close();
      recn(u, kelmsg::LPU_TOOMANYREDIR, maxr);
      break;
    }
    size_t need = 0;
    next.clear();
    lpuresolve(nullptr, cur.data(), cur.size(), loc.data(), loc.size(), nullptr, 0, &need);
    char *dst = next.tail(need + 1);
    if (dst == nullptr || lpuresolve(u, cur.data(), cur.size(), loc.data(), loc.size(), dst, need + 1, &need) != 0) {
      c.close();
      rec(u, dst == nullptr ? kelmsg::LPU_NOMEM : kelmsg::LPU_BADRESP, dst == nullptr ? "redirect" : "bad Location");
      break;
    }
    // The body of a redirect is read to keep the connection in step, and
    // dropped.
    BodyOut drop_it;
    Failure f;
    Rc brc = read_body(*j.rd, j.line, rs, drop_it, f);
    if (brc != Rc::ok) {
      fail(j, brc, f, c, false, r.tls ? r.name : r.host);
      c.close();
      break;
    }
    finish(j, c, rs, r);
    // A fragment is never sent, and the request URL keeps none.
    sv nv(dst, need);
    cur.clear();
    if (!cur.put(nv.substr(0, nv.find('#')))) {
      rec(u, kelmsg::LPU_NOMEM, "redirect");
      break;
    }
    if (rs.status == 303 || ((rs.status == 301 || rs.status == 302) && ieq(j.method, "POST"))) {
      if (!ieq(j.method, "HEAD")) j.method = "GET";
      body = Body{};
    }
    redirects++;
  }
  j.rd->~Reader();
  ss_mem_fre(work);
  return rc;
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
