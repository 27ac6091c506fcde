// tls_impl.h - TLS client sessions over a connected socket, for the HTTP
// client. The platform's own TLS library does the cryptography (OpenSSL in
// sys/posix/tls.cpp, Schannel in sys/win32/tls.cpp); none of its types shows
// here, so the families above see two opaque handles and a few calls. The
// calls are named slssl* to keep them apart from thread-local storage
// (sltls*).
//
// A trust (SlTlsTrust) is what handshakes verify against: the system's trust
// store, or the certificates of a CA file, or nothing at all when the caller
// turned verification off. It is made once per client, is read-only after,
// and may be shared by any number of sessions on any threads.
//
// A session (SlTls) runs over a socket (socket_impl.h) that the caller
// connected and keeps owning: slsslclose ends the session and frees it, the
// caller then closes the socket. A session is used by one thread at a time.
// Versions: TLS 1.2 and 1.3, nothing older. The server name is sent (SNI)
// unless it is an IP literal, and unless verification is off the server's
// certificate chain must lead to the trust and name that host (DNS name or
// IP address).
//
// Results besides a byte count are the socket results of socket_impl.h
// (SL_SCK_EOF, SL_SCK_ERR with slerrno, SL_SCK_TIMEOUT) and the two below.
// Calls that can fail for a TLS reason write a short English reason into
// the caller's `why` buffer (NUL-terminated, truncated).
//
// Fault points (test builds): SL_FAULT_SSL_TRUST refuses slssltrust,
// SL_FAULT_SSL_OPEN a handshake, SL_FAULT_SSL_IO a send or a receive (each
// as a system error).
#ifndef KEL_SYS_TLS_IMPL_H
#define KEL_SYS_TLS_IMPL_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "sl.h"
#include "sys/socket_impl.h"

constexpr int64_t SL_SSL_VERIFY = -5;  // the server's certificate or name was not accepted
constexpr int64_t SL_SSL_PROTO = -6;   // the handshake or a record failed (versions, alerts, bad data)

// Flags of slssltrust.
constexpr uint32_t SL_SSL_NOVERIFY = 0x1;  // accept any certificate for any name

struct SlTlsTrust;
struct SlTls;

// Makes a trust: the certificates of the PEM file `cafile`, or the system's
// trust store when cafile is null, or none with SL_SSL_NOVERIFY. Null on
// failure (a CA file that cannot be read or holds no certificate, no
// memory) with the reason in why.
SlTlsTrust *slssltrust(const char *cafile, uint32_t flags, char *why, size_t whyl) noexcept;
// Frees a trust; null is ignored. Its sessions must be closed first.
void slssltrustfree(SlTlsTrust *t) noexcept;

// Starts a session on socket s and runs the handshake with server `host`
// (a name or an IP literal without brackets) within `ms` milliseconds.
// 0 with *out set, or SL_SCK_TIMEOUT, SL_SCK_ERR (the socket failed),
// SL_SCK_EOF (the server closed), SL_SSL_VERIFY or SL_SSL_PROTO with *out
// null and the reason in why.
int64_t slsslopen(SlTlsTrust *t, int64_t s, const char *host, int32_t ms, SlTls **out, char *why,
                  size_t whyl) noexcept;
// Sends all n bytes, waiting at most `ms` for each stretch of progress:
// 0, SL_SCK_ERR, SL_SCK_TIMEOUT or SL_SSL_PROTO.
int64_t slsslsend(SlTls *tls, const void *buf, size_t n, int32_t ms, char *why, size_t whyl) noexcept;
// Receives up to n bytes of application data, waiting at most `ms`: the
// count (> 0), SL_SCK_EOF (the server ended the session or closed the
// connection), SL_SCK_ERR, SL_SCK_TIMEOUT or SL_SSL_PROTO.
int64_t slsslrecv(SlTls *tls, void *buf, size_t n, int32_t ms, char *why, size_t whyl) noexcept;
// 1 when an idle session can still carry a request: nothing but protocol
// housekeeping (session tickets) arrived and the server did not close. 0
// otherwise.
int32_t slsslidle(SlTls *tls) noexcept;
// The negotiated version: 12 for TLS 1.2, 13 for TLS 1.3.
int32_t slsslversion(const SlTls *tls) noexcept;
// Ends the session (a closing alert when it can go at once) and frees it;
// null is ignored. The socket stays open.
void slsslclose(SlTls *tls) noexcept;

namespace sl_internal {

// Writes "a" or "a: b" into the caller's reason buffer (none when null).
inline void tls_say(char *why, size_t whyl, const char *a, const char *b = nullptr) {
  if (why == nullptr || whyl == 0) return;
  if (b != nullptr)
    snprintf(why, whyl, "%s: %s", a, b);
  else
    snprintf(why, whyl, "%s", a);
}

// What is left of a wait of `ms` (negative: no limit) begun at `start`
// (slmonons), never below 0.
inline int32_t tls_left_ms(int32_t ms, uint64_t start) {
  if (ms < 0) return -1;
  int64_t gone = static_cast<int64_t>((slmonons() - start) / 1000000u);
  return gone >= ms ? 0 : static_cast<int32_t>(ms - gone);
}

}  // namespace sl_internal

#endif
