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
 * A client (lpuhc) keeps at most one idle connection open and reuses it for
 * the next request to the same host and port. Only "http" URLs are served.
 * When the environment variable http_proxy holds a URL ("http://host:port"),
 * requests go through that proxy unless the target host is listed in
 * no_proxy (comma-separated names; a leading "." or none matches a domain
 * suffix; "*" matches every host). A client is used by one thread at a
 * time; separate clients are independent. */

typedef struct lpuhc lpuhc;

typedef struct lpuhdr {
  const char *name;  /* NUL-terminated */
  const char *value; /* NUL-terminated */
} lpuhdr;

typedef struct lpureq {
  const char *method;    /* "GET", "HEAD", "POST", "PUT" (any token is sent) */
  const char *url;       /* absolute http URL, NUL-terminated */
  const lpuhdr *headers; /* extra request headers (may be null) */
  size_t nheaders;
  const void *body; /* request body (may be null); its length in bodyl */
  size_t bodyl;
  int32_t connect_ms;    /* connect time limit; 0 = 10000 */
  int32_t read_ms;       /* limit on each wait for response bytes; 0 = 30000 */
  int32_t maxredirects;  /* redirects followed; < 0 = 5, 0 = none */
} lpureq;

typedef struct lpuresp {
  int32_t status;     /* status code, e.g. 200 */
  int32_t redirects;  /* redirects followed */
  int32_t reused;     /* 1 when the final request went over a kept connection */
  int32_t spare;
  const char *reason; /* reason phrase */
  const char *url;    /* final URL (after redirects) */
  lpuhdr *headers;    /* response headers in order received */
  size_t nheaders;
  const uint8_t *body; /* the body (followed by a NUL not counted in bodyl) */
  size_t bodyl;
  void *block; /* the heap block holding all of the above (lpuhrfree) */
} lpuresp;

/* Makes a client; null when uctx is not a context of lpuini or out of
 * memory. */
KELAPI lpuhc *lpuhcnew(void *uctx);
/* Closes its connection and frees the client; null is ignored. */
KELAPI void lpuhcfree(lpuhc *hc);

/* Sends the request and reads the whole response into *resp, following
 * redirects (301, 302, 303, 307, 308 with a Location; 303, and 301/302
 * after POST, continue with GET and no body). Interim 1xx responses are
 * skipped. The body is read by Content-Length, chunked transfer coding or
 * until the server closes. Every part of *resp lives in one block of `heap`
 * (memory context mctx) freed by lpuhrfree. Any status the server sends is
 * success; failures (-1, *resp zeroed) are: a malformed URL or header
 * (LPU_BADURL, LPU_BADARG), a scheme other than http (LPU_SCHEME), a name
 * that does not resolve (LPU_RESOLVE), a refused or failed connection
 * (LPU_CONNECT), a time-out (LPU_TIMEOUT), a broken connection (LPU_IO), a
 * malformed response (LPU_BADRESP), too many redirects (LPU_TOOMANYREDIR)
 * and no memory (LPU_NOMEM). */
KELAPI int32_t lpuhreq(lpuhc *hc, const lpureq *req, void *mctx, lmmheap *heap, lpuresp *resp);
/* The value of the first response header named `name` (ASCII case
 * ignored), or null. */
KELAPI const char *lpuhget(const lpuresp *resp, const char *name);
/* Frees the block of a response and zeroes *resp; 0 / -1. */
KELAPI int32_t lpuhrfree(void *mctx, lmmheap *heap, lpuresp *resp);

KEL_END_DECLS

#endif /* LPU_H */
