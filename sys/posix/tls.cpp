// TLS client sessions with OpenSSL: see tls_impl.h.
//
// The socket is non-blocking (slsckconn makes it so). An OpenSSL call that
// needs more bytes than the socket has ready, or room it does not have,
// returns at once with SSL_ERROR_WANT_READ / WANT_WRITE; the session then
// waits for the socket within the caller's limit and calls again. OpenSSL
// reaches the socket through a small BIO of our own over the sockets' table
// (socket_impl.h), whose send never raises SIGPIPE in the caller's process
// when a server closes on us, and which keeps the error of a failed call for
// us.
// OpenSSL's error queue is per thread and shared with whatever else in the
// process uses OpenSSL: every call here starts with it empty and leaves it
// empty.
//
// Sections: reasons; the socket BIO; waiting on an OpenSSL call; trust;
// sessions.
#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>

#include <climits>
#include <cstdio>

#include "sl.h"
#include "sys/fault_impl.h"
#include "sys/tls_impl.h"

using sl_internal::socket_os;
using sl_internal::tls_left_ms;
using sl_internal::tls_say;

struct SlTlsTrust {
  SSL_CTX *ctx;
};

struct SlTls {
  SSL *ssl;
  int64_t s;
  int32_t err;  // system error of the BIO's last failed socket call, 0 none
  bool broken;  // a fatal error happened: no closing alert may be sent
};

namespace {

// --------------------------------------------------------------- reasons
// The reason of OpenSSL's first queued error after `what`, then an empty
// queue.
void say_queue(char *why, size_t whyl, const char *what) {
  unsigned long e = ERR_get_error();
  const char *r = e != 0 ? ERR_reason_error_string(e) : nullptr;
  tls_say(why, whyl, what, r);
  ERR_clear_error();
}

// ------------------------------------------------------------ socket BIO
// One transfer through the sockets' table (so that test builds can fail,
// interrupt or stall it as they do the plain sockets): the count, or -1 with
// the retry flag set when nothing could move now, or with the error kept.
template <class Transfer>
int bio_transfer(BIO *b, bool write, Transfer op) {
  auto *t = static_cast<SlTls *>(BIO_get_data(b));
  BIO_clear_retry_flags(b);
  for (;;) {
    int64_t k = op(t->s);
    if (k > 0 || (k == 0 && !write)) return static_cast<int>(k);
    int32_t err = k == 0 ? SL_ERR_AGAIN : slerrno();  // a send that took nothing had no room
    if (err == SL_ERR_INTR) continue;
    if (err != SL_ERR_AGAIN)
      t->err = err;
    else if (write)
      BIO_set_retry_write(b);
    else
      BIO_set_retry_read(b);
    return -1;
  }
}

// The table's send never raises SIGPIPE.
int bio_write(BIO *b, const char *buf, int len) {
  return bio_transfer(b, true, [&](int64_t s) { return socket_os().send(s, buf, static_cast<size_t>(len)); });
}

int bio_read(BIO *b, char *buf, int len) {
  return bio_transfer(b, false, [&](int64_t s) { return socket_os().recv(s, buf, static_cast<size_t>(len)); });
}

long bio_ctrl(BIO *, int cmd, long, void *) { return cmd == BIO_CTRL_FLUSH ? 1 : 0; }

int bio_create(BIO *b) {
  BIO_set_init(b, 1);
  return 1;
}

// Made once; OpenSSL's method tables live as long as the process.
BIO_METHOD *bio_method() {
  static BIO_METHOD *m = [] {
    BIO_METHOD *x = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "kelcore socket");
    if (x != nullptr) {
      BIO_meth_set_write(x, bio_write);
      BIO_meth_set_read(x, bio_read);
      BIO_meth_set_ctrl(x, bio_ctrl);
      BIO_meth_set_create(x, bio_create);
    }
    return x;
  }();
  return m;
}

// ----------------------------------------------- waiting on an OpenSSL call
constexpr int64_t kAgain = 1;

// After an OpenSSL call on t returned r <= 0: waits for the socket when the
// call wants it (kAgain: call again), else gives the session's result.
int64_t settle(SlTls *t, int r, int32_t ms, char *why, size_t whyl) {
  int e = SSL_get_error(t->ssl, r);
  if (e == SSL_ERROR_WANT_READ || e == SSL_ERROR_WANT_WRITE) {
    ERR_clear_error();
    int32_t w = slsckwait(t->s, e == SSL_ERROR_WANT_WRITE, ms);
    return w > 0 ? kAgain : w == 0 ? SL_SCK_TIMEOUT : SL_SCK_ERR;
  }
  if (e == SSL_ERROR_ZERO_RETURN) {
    ERR_clear_error();
    return SL_SCK_EOF;
  }
  t->broken = true;
  if (e == SSL_ERROR_SYSCALL && ERR_peek_error() == 0) {
    ERR_clear_error();
    if (t->err == 0) return SL_SCK_EOF;  // closed without a closing alert
    slseterrno(t->err);
    return SL_SCK_ERR;
  }
  say_queue(why, whyl, "TLS failure");
  return SL_SSL_PROTO;
}

void free_session(SlTls *t) {
  SSL_free(t->ssl);  // frees the BIO with it
  ss_mem_fre(t);
}

}  // namespace

// ----------------------------------------------------------------- trust
SlTlsTrust *slssltrust(const char *cafile, uint32_t flags, char *why, size_t whyl) noexcept {
  if (SL_FAULT(SL_FAULT_SSL_TRUST)) {
    tls_say(why, whyl, "refused by a fault point");
    return nullptr;
  }
  ERR_clear_error();
  auto *t = static_cast<SlTlsTrust *>(ss_mem_calc(sizeof(SlTlsTrust)));
  SSL_CTX *ctx = t != nullptr ? SSL_CTX_new(TLS_client_method()) : nullptr;
  if (ctx == nullptr) {
    say_queue(why, whyl, "out of memory");
    ss_mem_fre(t);
    return nullptr;
  }
  SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
#ifdef SSL_OP_IGNORE_UNEXPECTED_EOF
  // A server that closes without the closing alert ends the data; HTTP's own
  // framing tells a cut body from a complete one.
  SSL_CTX_set_options(ctx, SSL_OP_IGNORE_UNEXPECTED_EOF);
#endif
  bool ok = true;
  if ((flags & SL_SSL_NOVERIFY) != 0) {
    SSL_CTX_set_verify(ctx, SSL_VERIFY_NONE, nullptr);
  } else {
    SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, nullptr);
    if (cafile != nullptr) {
      ok = SSL_CTX_load_verify_locations(ctx, cafile, nullptr) == 1;
      if (!ok) say_queue(why, whyl, "cannot use the CA file");
    } else {
      ok = SSL_CTX_set_default_verify_paths(ctx) == 1;
      if (!ok) say_queue(why, whyl, "cannot use the system's trust store");
    }
  }
  if (!ok) {
    SSL_CTX_free(ctx);
    ss_mem_fre(t);
    return nullptr;
  }
  t->ctx = ctx;
  return t;
}

void slssltrustfree(SlTlsTrust *t) noexcept {
  if (t == nullptr) return;
  SSL_CTX_free(t->ctx);
  ss_mem_fre(t);
}

// -------------------------------------------------------------- sessions
int64_t slsslopen(SlTlsTrust *trust, int64_t s, const char *host, int32_t ms, SlTls **out, char *why,
                  size_t whyl) noexcept {
  *out = nullptr;
  if (SL_FAULT(SL_FAULT_SSL_OPEN)) {
    tls_say(why, whyl, "refused by a fault point");
    return SL_SCK_ERR;
  }
  ERR_clear_error();
  auto *t = static_cast<SlTls *>(ss_mem_calc(sizeof(SlTls)));
  BIO *bio = bio_method() != nullptr ? BIO_new(bio_method()) : nullptr;
  SSL *ssl = t != nullptr && bio != nullptr ? SSL_new(trust->ctx) : nullptr;
  if (ssl == nullptr) {
    say_queue(why, whyl, "out of memory");
    BIO_free(bio);
    ss_mem_fre(t);
    return SL_SCK_ERR;
  }
  t->ssl = ssl;
  t->s = s;
  BIO_set_data(bio, t);
  SSL_set_bio(ssl, bio, bio);

  // The name goes out for the server to choose its certificate (never an
  // address: the protocol forbids it) and is what the certificate must name.
  unsigned char ip[16];
  bool literal = inet_pton(AF_INET, host, ip) == 1 || inet_pton(AF_INET6, host, ip) == 1;
  bool ok = literal || SSL_set_tlsext_host_name(ssl, host) == 1;
  if (ok && SSL_CTX_get_verify_mode(trust->ctx) != SSL_VERIFY_NONE) {
    X509_VERIFY_PARAM *p = SSL_get0_param(ssl);
    X509_VERIFY_PARAM_set_hostflags(p, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    ok = (literal ? X509_VERIFY_PARAM_set1_ip_asc(p, host) : X509_VERIFY_PARAM_set1_host(p, host, 0)) == 1;
  }
  if (!ok) {
    say_queue(why, whyl, "bad server name");
    free_session(t);
    return SL_SSL_PROTO;
  }
  uint64_t start = slmonons();
  for (;;) {
    int r = SSL_connect(ssl);
    if (r == 1) break;
    int64_t st = settle(t, r, tls_left_ms(ms, start), why, whyl);
    if (st == kAgain) continue;
    long v = SSL_get_verify_result(ssl);
    if (st == SL_SSL_PROTO && v != X509_V_OK) {
      tls_say(why, whyl, X509_verify_cert_error_string(v));
      st = SL_SSL_VERIFY;
    }
    free_session(t);
    return st;
  }
  *out = t;
  return 0;
}

int64_t slsslsend(SlTls *t, const void *buf, size_t n, int32_t ms, char *why, size_t whyl) noexcept {
  if (SL_FAULT(SL_FAULT_SSL_IO)) {
    t->broken = true;
    return SL_SCK_ERR;
  }
  auto *p = static_cast<const char *>(buf);
  while (n > 0) {
    int k = static_cast<int>(n < (1u << 30) ? n : (1u << 30));
    int r = SSL_write(t->ssl, p, k);
    if (r > 0) {
      p += r;
      n -= static_cast<size_t>(r);
      continue;
    }
    int64_t st = settle(t, r, ms, why, whyl);
    if (st != kAgain) return st == SL_SCK_EOF ? SL_SCK_ERR : st;
  }
  return 0;
}

int64_t slsslrecv(SlTls *t, void *buf, size_t n, int32_t ms, char *why, size_t whyl) noexcept {
  if (SL_FAULT(SL_FAULT_SSL_IO)) {
    t->broken = true;
    return SL_SCK_ERR;
  }
  int k = static_cast<int>(n < INT_MAX ? n : INT_MAX);
  for (;;) {
    int r = SSL_read(t->ssl, buf, k);
    if (r > 0) return r;
    int64_t st = settle(t, r, ms, why, whyl);
    if (st != kAgain) return st;
  }
}

int32_t slsslidle(SlTls *t) noexcept {
  if (t->broken) return 0;
  if (slsckidle(t->s)) return 1;
  // Something came: a session ticket is no reason to give the connection
  // up; application data, a closing alert or the end of the stream are.
  char c;
  int r = SSL_peek(t->ssl, &c, 1);
  int e = r > 0 ? SSL_ERROR_NONE : SSL_get_error(t->ssl, r);
  ERR_clear_error();
  return e == SSL_ERROR_WANT_READ && slsckidle(t->s) ? 1 : 0;
}

int32_t slsslversion(const SlTls *t) noexcept { return SSL_version(t->ssl) == TLS1_3_VERSION ? 13 : 12; }

void slsslclose(SlTls *t) noexcept {
  if (t == nullptr) return;
  if (!t->broken) SSL_shutdown(t->ssl);  // the closing alert, if the socket takes it now
  ERR_clear_error();
  free_session(t);
}
