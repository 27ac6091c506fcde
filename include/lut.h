/*
 * lut.h - small utilities: bounded strings, ASCII character classes, bit
 * vectors, random numbers and version strings.
 *
 * Everything here is a pure function of its arguments (the random
 * generators of their caller-owned state) and is thread-safe as long as no
 * two threads write the same buffer or state. Nothing is recorded on the
 * error stack: failures are told by the results each function lists, except
 * for lutbvalc, whose failure the memory manager records.
 *
 * Character routines work on ASCII bytes only: a byte of 128 or more is in
 * no class and is never changed by case conversion, whatever the locale.
 */
#ifndef LUT_H
#define LUT_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"
#include "lmm.h"

KEL_BEGIN_DECLS

/* ---------------------------------------------------------------- strings */

/* Copies the NUL-terminated src into dst of dstl bytes, truncating to
 * dstl - 1 bytes and always terminating when dstl > 0. Returns strlen(src):
 * a result >= dstl means the copy was truncated. */
KELAPI size_t lutscpy(char *dst, size_t dstl, const char *src);
/* Appends src to the NUL-terminated text in dst (dstl bytes), truncating
 * and terminating as lutscpy. Returns the length the whole text would have
 * (initial length + strlen(src)); if dst holds no NUL within dstl bytes,
 * nothing is written and dstl + strlen(src) is returned. */
KELAPI size_t lutscat(char *dst, size_t dstl, const char *src);
/* Compares ASCII texts ignoring case: <0, 0, >0 as strcmp on the texts
 * folded to lower case. lutsnicmp looks at no more than n bytes. */
KELAPI int32_t lutsicmp(const char *a, const char *b);
KELAPI int32_t lutsnicmp(const char *a, const char *b, size_t n);
/* Trims ASCII white space (space, \t, \n, \v, \f, \r) from both ends of
 * s[0..len): returns the trimmed length and its start offset in *off. */
KELAPI size_t lutstrim(const char *s, size_t len, size_t *off);
/* Tokenising without state of its own: finds the next token of s[0..len)
 * at or after *pos, a run of bytes none of which is in the NUL-terminated
 * set `delims`. Returns its start (and its length in *toklen) and moves
 * *pos past it, or null when no token is left. */
KELAPI const char *lutstok(const char *s, size_t len, const char *delims, size_t *pos, size_t *toklen);
/* First occurrence of needle[0..nl) in hay[0..hl) (bytes, NULs allowed),
 * or null; an empty needle is found at hay. lutsifind ignores ASCII case. */
KELAPI const char *lutsfind(const char *hay, size_t hl, const char *needle, size_t nl);
KELAPI const char *lutsifind(const char *hay, size_t hl, const char *needle, size_t nl);

/* --------------------------------------------------- ASCII character classes */

#define LUT_C_UPPER 0x01u
#define LUT_C_LOWER 0x02u
#define LUT_C_DIGIT 0x04u
#define LUT_C_SPACE 0x08u /* space \t \n \v \f \r */
#define LUT_C_PUNCT 0x10u /* printable, not alphanumeric, not space */
#define LUT_C_CNTRL 0x20u /* 0-31 and 127 */
#define LUT_C_XDIGIT 0x40u
#define LUT_C_BLANK 0x80u /* space and \t */
#define LUT_C_ALPHA (LUT_C_UPPER | LUT_C_LOWER)
#define LUT_C_ALNUM (LUT_C_ALPHA | LUT_C_DIGIT)

/* The class bits of byte c (any int; values outside 0..127 have none). */
KELAPI uint32_t lutccls(int32_t c);
/* 1 when c has any of the bits in mask, else 0. */
KELAPI int32_t lutcis(int32_t c, uint32_t mask);
/* ASCII case conversion; other values come back unchanged. */
KELAPI int32_t lutcupper(int32_t c);
KELAPI int32_t lutclower(int32_t c);

/* ------------------------------------------------------------- bit vectors
 * A bit vector is an array of 64-bit words owned by the caller; bit i is
 * bit (i % 64) of word i / 64. Functions take the number of bits `nbits`
 * and never touch bits at or beyond it (the unused high bits of the last
 * word are left as they are and ignored). Indexes >= nbits are refused. */

/* Words needed for n bits. */
#define LUT_BV_WORDS(n) (((n) + 63u) / 64u)

/* A zeroed vector of nbits bits from `heap` of the memory manager (free it
 * with lmmfree on the same heap); null when out of memory or nbits is 0. */
KELAPI uint64_t *lutbvalc(void *mctx, lmmheap *heap, size_t nbits);
/* Set, clear, flip: 0, or -1 for an index out of range. */
KELAPI int32_t lutbvset(uint64_t *bv, size_t nbits, size_t i);
KELAPI int32_t lutbvclr(uint64_t *bv, size_t nbits, size_t i);
KELAPI int32_t lutbvflp(uint64_t *bv, size_t nbits, size_t i);
/* 1 when bit i is set, 0 when clear, -1 for an index out of range. */
KELAPI int32_t lutbvtst(const uint64_t *bv, size_t nbits, size_t i);
/* Sets or clears every bit. */
KELAPI void lutbvall(uint64_t *bv, size_t nbits, int32_t value);
/* Number of set bits. */
KELAPI size_t lutbvcnt(const uint64_t *bv, size_t nbits);
/* Index of the first set (lutbvffs) or clear (lutbvffc) bit at or after
 * `from`, or (size_t)-1 when there is none. */
KELAPI size_t lutbvffs(const uint64_t *bv, size_t nbits, size_t from);
KELAPI size_t lutbvffc(const uint64_t *bv, size_t nbits, size_t from);
/* dst = a op b, bit by bit, for nbits bits; dst may be a or b. */
KELAPI void lutbvand(uint64_t *dst, const uint64_t *a, const uint64_t *b, size_t nbits);
KELAPI void lutbvor(uint64_t *dst, const uint64_t *a, const uint64_t *b, size_t nbits);
KELAPI void lutbvxor(uint64_t *dst, const uint64_t *a, const uint64_t *b, size_t nbits);
/* dst = not a; dst may be a. */
KELAPI void lutbvnot(uint64_t *dst, const uint64_t *a, size_t nbits);

/* ---------------------------------------------------------- random numbers */

/* State of the fast generator (xoshiro256**): 32 bytes of caller storage.
 * Not for secrets: use lutrstrong for those. */
typedef struct lutrng {
  uint64_t s[4];
} lutrng;

/* Seeds the state; equal seeds give equal sequences on every platform. */
KELAPI void lutrseed(lutrng *st, uint64_t seed);
/* The next 64 random bits. */
KELAPI uint64_t lutrnext(lutrng *st);
/* A uniform value in [0, n) without modulo bias; 0 for n = 0. */
KELAPI uint64_t lutrrange(lutrng *st, uint64_t n);
/* A uniform double in [0, 1) with 53 random bits. */
KELAPI double lutrdbl(lutrng *st);
/* Fills buf with n cryptographically strong random bytes from the operating
 * system. 0, or -1 when the system cannot supply them. Thread-safe. */
KELAPI int32_t lutrstrong(void *buf, size_t n);

/* --------------------------------------------------------- version strings */

/* The library's version as text ("10.0.0"), a static string. */
KELAPI const char *lutver(void);
/* The library's version as major * 10000 + minor * 100 + patch. */
KELAPI int32_t lutvernum(void);
/* Compares two version texts: they are split into runs of digits and runs
 * of letters (any other byte separates runs); digit runs compare as numbers
 * (leading zeros ignored), letter runs by bytes, and a digit run sorts after
 * a letter run. A missing run counts as 0 so "1.2" equals "1.2.0", while a
 * letter run after the common part sorts first ("1.2rc1" < "1.2").
 * Returns -1, 0 or 1; a null text sorts before every text. */
KELAPI int32_t lutvercmp(const char *a, const char *b);

KEL_END_DECLS

#endif /* LUT_H */
