/*
 * lpu.h - URLs, percent-coding, base64 and a small HTTP/1.1 client.
 *
 * The text routines (parse, compose, resolve, percent-coding, base64) work
 * on caller buffers and allocate nothing. The HTTP client returns response
 * bodies and headers in a heap of the memory manager that the caller names.
 *
 * Errors: every function takes the URL context `uctx` made by lpuini as its
 * first argument. On failure a record of facility "LPU" (product "KELCORE")
 * is put on the calling thread's error stack, read with lem.h. `uctx` may be
 * null for the pure text routines: they then fail silently with -1.
 *
 * Results: 0 for success, -1 for failure; pointer results null on failure.
 *
 * Thread safety: all functions may be called from several threads at once;
 * an lpuconn (HTTP connection) must be used by one thread at a time.
 *
 * Output buffers: functions writing text take (buf, bufl, &outl). On success
 * *outl is the number of bytes written and, when room is left, a NUL follows
 * them. When the buffer is too small they fail (message LPU_BUFSMALL) with
 * *outl set to the number of bytes needed (without the NUL) and the buffer
 * contents unspecified. `buf` may be null with bufl 0 to ask for the length.
 */
#ifndef LPU_H
#define LPU_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"
#include "lmm.h"
#include "lpm.h"

KEL_BEGIN_DECLS

/* ---------------------------------------------------------------- context */

/* Makes the URL context of a started library: registers the facility "LPU"
 * with the context's error manager. Null when ctx is null or out of memory.
 * Free it with lputrm before lpmterm. Thread-safe once made. */
KELAPI void *lpuini(lcorectx *ctx);
/* Frees a context of lpuini; 0, or -1 for a null or freed context. */
KELAPI int32_t lputrm(void *uctx);

/* ------------------------------------------------------------------- URLs
 * A URL in parts. Each part is a (pointer, length) pair; a null pointer
 * means the part is absent, which is not the same as present and empty
 * ("http://h/?" has an empty query, "http://h/" none). After lpuparse the
 * pointers point into the parsed text (no copies): keep it alive.
 * The host excludes the brackets of an IPv6 literal. The authority is
 * present exactly when host.ptr is not null. */
typedef struct lpupart {
  const char *ptr;
  size_t len;
} lpupart;

#define LPU_HOST_NONE 0 /* no authority */
#define LPU_HOST_NAME 1 /* registered name (may be empty, as in file:///x) */
#define LPU_HOST_IPV4 2 /* dotted IPv4 address */
#define LPU_HOST_IPV6 3 /* bracketed IP literal (IPv6 or IPvFuture) */

typedef struct lpuurl {
  lpupart scheme;   /* without ":" */
  lpupart user;     /* user part of the user information */
  lpupart password; /* after the first ":" of the user information */
  lpupart host;
  lpupart port;     /* digits after ":" (may be present and empty) */
  lpupart path;     /* always present after lpuparse, possibly empty */
  lpupart query;    /* without "?" */
  lpupart fragment; /* without "#" */
  int32_t hosttype; /* LPU_HOST_* */
  int32_t portnum;  /* the port as a number, -1 when absent or empty */
} lpuurl;

/* Parses the URI reference text[0..len) (absolute or relative) into *url,
 * checking every character against the generic syntax: percent escapes
 * must be complete, IP literals well-formed, ports decimal and at most
 * 65535, no space or control byte anywhere. Nothing is decoded. On failure
 * (LPU_BADURL with the offset) *url is zeroed. */
KELAPI int32_t lpuparse(void *uctx, const char *text, size_t len, lpuurl *url);

/* Composes *url into buf: scheme ":", "//" user ":" password "@" host
 * ":" port (host in brackets for LPU_HOST_IPV6) when the host is present,
 * then path, "?" query, "#" fragment. A port part wins over portnum; with
 * no port part a portnum >= 0 is written. Parts are copied as they are,
 * except that a path that would be misread is prefixed: "/." before a path
 * starting "//" when there is no host, "./" before a relative path whose
 * first segment holds a ":" when there is neither scheme nor host. */
KELAPI int32_t lpucompose(void *uctx, const lpuurl *url, char *buf, size_t bufl, size_t *outl);

/* Resolves the reference `ref` against the absolute URL `base` by the
 * generic rules (merging paths and removing dot segments) and writes the
 * target into buf. Fails for a malformed base or reference and for a base
 * without scheme (LPU_NOTABS). */
KELAPI int32_t lpuresolve(void *uctx, const char *base, size_t basel, const char *ref, size_t refl, char *buf,
                          size_t bufl, size_t *outl);

/* Removes "." and ".." segments from the path p[0..len) into buf. */
KELAPI int32_t lpurmdot(void *uctx, const char *p, size_t len, char *buf, size_t bufl, size_t *outl);

/* ------------------------------------------------------- percent-coding */

/* Flags of lpupenc / lpupdec. */
#define LPU_PCT_PATH 0x1u  /* encoder keeps "/" */
#define LPU_PCT_PLUS 0x2u  /* encoder: space as "+"; decoder: "+" as space (forms) */
#define LPU_PCT_LOWER 0x4u /* encoder writes lower-case hex digits */

/* Percent-encodes src[0..len): every byte except the unreserved characters
 * (letters, digits, "-", ".", "_", "~"), the bytes of `keep` (a NUL-terminated
 * set, may be null) and, with LPU_PCT_PATH, "/" becomes "%HH". */
KELAPI int32_t lpupenc(void *uctx, const void *src, size_t len, const char *keep, uint32_t flags, char *buf,
                       size_t bufl, size_t *outl);
/* Decodes "%HH" escapes (either case) of src[0..len) into bytes; a "%" not
 * followed by two hex digits fails (LPU_BADPCT with its offset). The output
 * is never longer than the input; it may hold NUL bytes. */
KELAPI int32_t lpupdec(void *uctx, const char *src, size_t len, uint32_t flags, void *buf, size_t bufl,
                       size_t *outl);

/* ----------------------------------------------------------------- base64 */

#define LPU_B64_NOPAD 0x1u /* encoder: no "=" padding; decoder: padding optional */
#define LPU_B64_URL 0x2u   /* the URL-safe alphabet ("-" and "_" for "+" and "/") */

/* Encodes src[0..len) as base64 (4 characters per 3 bytes, padded with "="
 * unless LPU_B64_NOPAD). */
KELAPI int32_t lpub64enc(void *uctx, const void *src, size_t len, uint32_t flags, char *buf, size_t bufl,
                         size_t *outl);
/* Decodes base64. Refused (LPU_BADB64 with the offset): a character outside
 * the alphabet (white space included), padding anywhere but at the end or
 * of the wrong amount, a missing padding without LPU_B64_NOPAD, a length of
 * 1 modulo 4, and non-zero bits left over in the last character. */
KELAPI int32_t lpub64dec(void *uctx, const char *src, size_t len, uint32_t flags, void *buf, size_t bufl,
                         size_t *outl);

/* ---------------------------------------------------------- HTTP client
 * A client (lpuhc) serves "http" and "https" URLs. It keeps at most one
 * idle connection open and reuses it for the next request that goes the
 * same way (scheme, host, port, proxy). A client is used by one thread at a
 * time; separate clients are independent.
 *
 * https: TLS 1.2 or 1.3 through the platform's TLS library. The server's
 * certificate must lead to a trusted root (the system's trust store, or
 * the certificates of the request's cafile) and name the URL's host (a DNS
 * name or an IP address); the host name is sent for the server to choose
 * its certificate (SNI). Only LPU_TLS_NOVERIFY turns these checks off.
 *
 * Proxies: when the environment variable http_proxy (https_proxy for https
 * URLs) holds a URL ("http://[user:password@]host:port"), requests go
 * through that proxy unless the target host is listed in no_proxy
 * (comma-separated names; a leading "." or none matches a domain suffix;
 * "*" matches every host). https goes through a tunnel the proxy opens on
 * CONNECT. The proxy URL's user information, percent-decoded, is sent to
 * the proxy as Proxy-Authorization (Basic), never to a server.
 *
 * Credentials: the user information of a URL ("http://user:pw@host/"),
 * percent-decoded, is sent as Authorization (Basic) with the request for
 * that URL. The caller's Authorization and Cookie headers go only to the
 * scheme, host and port of req->url: after a redirect elsewhere (another
 * host, port or scheme; 127.0.0.1 and [::1] are different hosts) they are
 * left out. A caller's Proxy-Authorization header goes to a proxy only.
 *
 * Resending: a kept connection that the server closed before answering is
 * replaced and the request sent again when its method is idempotent (GET,
 * HEAD, PUT, DELETE, OPTIONS, TRACE); any other request (POST) fails with
 * LPU_NORESEND, as the server may have acted on it.
 *
 * Message numbers (lemgec) are in kelmsg_kelcore_lpu.h, installed with
 * this header: KELMSG_LPU_TIMEOUT, KELMSG_LPU_CONNECT ... (in C++ also
 * kelmsg::LPU_TIMEOUT ...). */

typedef struct lpuhc lpuhc;

typedef struct lpuhdr {
  const char *name;  /* NUL-terminated */
  const char *value; /* NUL-terminated */
} lpuhdr;

struct lpuresp;

/* Receives the body of the final response as it arrives. Called first once
 * with data null and n 0 when the status and headers are known (in *head;
 * its body is empty), then with each piece of the body in order. `head`
 * and `data` are valid during the call only. Return 0 to go on; anything
 * else stops the request (LPU_ABORTED). */
typedef int32_t (*lpusinkfn)(void *arg, const struct lpuresp *head, const void *data, size_t n);

/* Supplies the request body: writes up to bufl bytes of the body, starting
 * at byte `offset`, into buf and returns their number; 0 only at the end
 * of a body of unknown length. -1 stops the request (LPU_ABORTED). Offsets
 * start at 0 and grow, but start at 0 again when the body must be sent
 * again (a redirect by 307 or 308, a resend on a new connection): a source
 * that cannot go back returns -1 then. */
typedef int64_t (*lpusrcfn)(void *arg, uint64_t offset, void *buf, size_t bufl);

#define LPU_TLS_NOVERIFY 0x1u /* accept any certificate for any host */

typedef struct lpureq {
  const char *method;    /* "GET", "HEAD", "POST", "PUT" (any token is sent); null = GET */
  const char *url;       /* absolute http or https URL, NUL-terminated */
  const lpuhdr *headers; /* extra request headers (may be null) */
  size_t nheaders;
  const void *body; /* request body (may be null); its length in bodyl */
  size_t bodyl;
  int32_t connect_ms;   /* limit on connecting, and on the TLS handshake; 0 = 10000 */
  int32_t read_ms;      /* limit on each wait for response bytes; 0 = 30000 */
  int32_t maxredirects; /* redirects followed; < 0 = 5, 0 = none */
  int32_t total_ms;     /* limit on the whole request, redirects included; 0 = none */
  uint32_t tlsflags;    /* LPU_TLS_NOVERIFY or 0 */
  const char *cafile;   /* PEM file of the certificates to trust instead of
                           the system's store; null = the system's */
  lpusinkfn sink;       /* receives the body instead of the response block */
  void *sinkarg;
  lpusrcfn source; /* supplies the body instead of body/bodyl */
  void *sourcearg;
  int64_t sourcel; /* the source's body length; < 0 = unknown (sent chunked) */
} lpureq;

typedef struct lpuresp {
  int32_t status;     /* status code, e.g. 200 */
  int32_t redirects;  /* redirects followed */
  int32_t reused;     /* 1 when the final request went over a kept connection */
  int32_t tls;        /* the final exchange's TLS version: 12, 13, or 0 (plain) */
  const char *reason; /* reason phrase */
  const char *url;    /* final URL (after redirects) */
  lpuhdr *headers;    /* response headers in order received */
  size_t nheaders;
  const uint8_t *body; /* the body, followed by a NUL not counted in bodyl;
                          with a sink: an empty text */
  size_t bodyl;        /* the body's length; with a sink: the bytes it took */
  void *block; /* the heap block holding all of the above (lpuhrfree) */
} lpuresp;

/* Makes a client; null when uctx is not a context of lpuini or out of
 * memory. */
KELAPI lpuhc *lpuhcnew(void *uctx);
/* Closes its connection and frees the client; null is ignored. */
KELAPI void lpuhcfree(lpuhc *hc);

/* Sends the request and reads the response into *resp, following
 * redirects (301, 302, 303, 307, 308 with a Location; 303, and 301/302
 * after POST, continue with GET and no body). Interim 1xx responses are
 * skipped; folded header lines are joined with a space. The body is read
 * by Content-Length, chunked transfer coding or until the server closes;
 * it goes to req->sink when there is one, else into *resp (a body kept in
 * memory may be at most 4 GiB; one of known length costs its size once).
 * Every part of *resp lives in one block of `heap` (memory context mctx)
 * freed by lpuhrfree. A request body comes from body/bodyl or from
 * req->source (sent with Content-Length when sourcel >= 0, else chunked).
 *
 * Time limits: connect_ms bounds connecting and the TLS handshake, read_ms
 * every wait for the server, total_ms (when > 0) the whole request, so
 * that a server sending a byte now and then is cut off too.
 *
 * Any status the server sends is success; failures (-1, *resp zeroed) are:
 * a malformed URL or request (LPU_BADURL, LPU_BADARG), a scheme other than
 * http and https (LPU_SCHEME), a name that does not resolve (LPU_RESOLVE),
 * a refused or failed connection or a proxy refusing a tunnel
 * (LPU_CONNECT), a time-out of any limit (LPU_TIMEOUT), a broken
 * connection (LPU_IO), a certificate not accepted (LPU_CERT, with the
 * reason: expired, wrong host, untrusted ...), any other TLS failure
 * (LPU_TLS), a CA file or trust store that cannot be loaded (LPU_TRUST), a
 * malformed response (LPU_BADRESP), too many redirects (LPU_TOOMANYREDIR),
 * a kept connection closed under a request that is not resent
 * (LPU_NORESEND), a sink or source that stopped the request (LPU_ABORTED)
 * and no memory (LPU_NOMEM). A sink may have been called before a failure. */
KELAPI int32_t lpuhreq(lpuhc *hc, const lpureq *req, void *mctx, lmmheap *heap, lpuresp *resp);
/* The value of the first response header named `name` (ASCII case
 * ignored), or null. */
KELAPI const char *lpuhget(const lpuresp *resp, const char *name);
/* Frees the block of a response and zeroes *resp; 0 / -1. */
KELAPI int32_t lpuhrfree(void *mctx, lmmheap *heap, lpuresp *resp);

KEL_END_DECLS

#endif /* LPU_H */
