/*
 * lnx.h - Keltar Number: the variable-length decimal number of kelcore10,
 * its arithmetic, its text forms and its conversions to and from native
 * integers, binary strings, packed and zoned decimal and binary floating
 * point.
 *
 * The format. A number is 1 to 21 bytes: an exponent byte and up to twenty
 * base-100 digit bytes (40 decimal digits), plus a terminator byte 102 after
 * a negative number that is shorter than 21 bytes. Zero is 80; a positive
 * number has exponent byte 193 + e (e the base-100 exponent of the first
 * digit, -64..62) and digit bytes d + 1; a negative number has the complement
 * 255 - (193 + e) and digit bytes 101 - d. Positive infinity is FF 65,
 * negative infinity 00. First and last digits are never zero. Comparing two
 * numbers as unsigned byte strings (shorter prefix first) gives their
 * numeric order, so numbers can be stored and indexed as plain bytes.
 *
 * Conventions shared by every function below:
 *  - An input number is (pointer, length); a length of 0 means that the first
 *    byte is the length and the number follows it ("length-prefixed").
 *  - An output number is (pointer, length pointer); with a null length
 *    pointer the result is written length-prefixed and the destination needs
 *    LNX_BUFSIZE (22) bytes; otherwise the number is written from the first
 *    byte (up to LNX_MAXLEN = 21 bytes) and its length stored through the
 *    pointer.
 *  - Outputs may overlap inputs in any way; every function reads all of its
 *    inputs before it writes.
 *  - Arithmetic does not validate its inputs: bytes from outside go through
 *    lnxchk first. Results are always well formed. Arithmetic never fails:
 *    results are rounded half away from zero to 20 base-100 digits, overflow
 *    gives the infinity of the result's sign and underflow gives zero.
 *  - All functions are pure (no state, no allocation) and thread-safe.
 */
#ifndef LNX_H
#define LNX_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"

KEL_BEGIN_DECLS

#define LNX_MAXLEN 21  /* longest number in bytes */
#define LNX_BUFSIZE 22 /* length-prefixed buffer for any number */

/* ------------------------------------------------------------ validation */

/* 1 when (num, len) is a well-formed number, 0 otherwise (also for a null
 * pointer and for a length-prefixed number whose length byte is 0). Besides
 * the digit and terminator rules, exponent bytes 80 and 7F followed by digits
 * are refused: they would stand for exponents below the smallest number. */
KELAPI int32_t lnxchk(const uint8_t *num, size_t len);

/* Numeric comparison, done on the bytes: negative, zero or positive as a is
 * below, equal to or above b. Infinities order outside every finite value. */
KELAPI int32_t lnxcmp(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen);

/* -1 for a negative number (negative infinity included), 0 for zero, 1 for a
 * positive one. */
KELAPI int32_t lnxsgn(const uint8_t *num, size_t len);

/* 1 the value is an integer (zero included), 2 it has a fractional part,
 * 3 positive infinity, 4 negative infinity. */
KELAPI int32_t lnxint(const uint8_t *num, size_t len);

/* ------------------------------------------------------------ unary */

/* |in|: negative infinity becomes positive infinity. */
KELAPI void lnxabs(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen);

/* -in: zero stays zero, the infinities swap. */
KELAPI void lnxneg(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen);

/* Copies a number, possibly between the two length conventions. */
KELAPI void lnxcopy(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen);

/* ------------------------------------------------------------ arithmetic */

/* a + b. An infinite first operand gives its own infinity whatever b is
 * (so +inf + -inf is +inf); otherwise an infinite b gives its infinity. */
KELAPI void lnxadd(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen,
                   uint8_t *out, size_t *outlen);

/* a - b. Infinite a gives a's infinity, except that +inf - +inf is zero;
 * otherwise an infinite b gives the opposite of b's infinity. */
KELAPI void lnxsub(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen,
                   uint8_t *out, size_t *outlen);

/* a * b. A zero operand gives zero (zero times infinity is zero); otherwise
 * an infinite operand gives the infinity of the product's sign. */
KELAPI void lnxmul(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen,
                   uint8_t *out, size_t *outlen);

/* a / b, rounded half away from zero to 20 base-100 digits. Special values,
 * checked in this order:
 *  - a zero dividend gives zero, whatever the divisor (0 / 0 is 0);
 *  - an infinite dividend gives the infinity of the quotient's sign (a zero
 *    divisor counts as positive);
 *  - a zero divisor gives the infinity of the dividend's sign;
 *  - an infinite divisor (finite non-zero dividend) gives zero. */
KELAPI void lnxdiv(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen,
                   uint8_t *out, size_t *outlen);

/* Rounds half away from zero to `places` decimal places (negative: to the
 * left of the point, -2 rounds to hundreds). Infinities are unchanged; a
 * carry beyond the largest exponent gives infinity. */
KELAPI void lnxrou(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen,
                   int32_t places);

/* Truncates toward zero to `places` decimal places (negative as in lnxrou). */
KELAPI void lnxtru(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen,
                   int32_t places);

/* Floor (largest integer not above) and ceiling (smallest integer not below).
 * Infinities are unchanged. */
KELAPI void lnxflo(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen);
KELAPI void lnxcei(const uint8_t *in, size_t inlen, uint8_t *out, size_t *outlen);

/* In place: adds (lnxinc) or subtracts (lnxdec) 1. They serve counters and
 * work on values from 1 to below 10^38; lnxinc sets any other value (zero,
 * fractions below 1, negatives, infinities, 10^38 and above) to 1, lnxdec
 * sets it to 0. `len` null: the number is length-prefixed in `num` (22-byte
 * buffer); otherwise *len is its length on entry and receives the new one. */
KELAPI void lnxinc(uint8_t *num, size_t *len);
KELAPI void lnxdec(uint8_t *num, size_t *len);

/* in * 10^shift, exact when it fits; rounded to 20 base-100 digits when the
 * shift moves the digits across a base-100 boundary and they no longer fit;
 * overflow gives infinity, underflow zero. Infinities are unchanged. */
KELAPI void lnxshift(const uint8_t *in, size_t inlen, int32_t shift, uint8_t *out,
                     size_t *outlen);

/* Fits a number to a column of `precision` significant decimal digits with
 * `scale` digits after the point (scale may be negative or above precision):
 * the value is rounded half away from zero to `scale` places and written.
 * Result 0 when the rounded value fits (|value| < 10^(precision - scale)),
 * 1 when it does not (the rounded value is still written), 2 for an infinite
 * input (copied) and 3 for a precision outside 1..38 (nothing written). */
KELAPI int32_t lnxsca(const uint8_t *in, size_t inlen, int32_t precision, int32_t scale,
                      uint8_t *out, size_t *outlen);

/* a modulo b with the sign of a: a - b * trunc(a / b), computed exactly and
 * then rounded to 20 base-100 digits. b = 0 gives a; an infinite a gives
 * zero; an infinite b with a finite a gives a. */
KELAPI void lnxmod(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen,
                   uint8_t *out, size_t *outlen);

/* Remainder to the nearest multiple: a - b * n where n is a / b rounded to the
 * nearest integer, ties to even (the IEEE remainder), so |result| <= |b| / 2.
 * Special values as lnxmod. */
KELAPI void lnxrem(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen,
                   uint8_t *out, size_t *outlen);

/* Sum of `count` numbers, computed exactly and rounded once (so the order of
 * the operands does not matter). nums[i] with length lens[i] (0: length-
 * prefixed); lens may be null when every number is length-prefixed. No
 * operands give zero. Infinities: the first infinite operand decides. */
KELAPI void lnxsum(const uint8_t *const *nums, const size_t *lens, size_t count,
                   uint8_t *out, size_t *outlen);

/* As lnxsum over a vector of length-prefixed numbers laid out every `stride`
 * bytes from `base` (stride 22 for an array of LNX_BUFSIZE buffers). */
KELAPI void lnxvsum(const uint8_t *base, size_t stride, size_t count, uint8_t *out,
                    size_t *outlen);

/* ------------------------------------------------------------ constants */

/* Read-only length-prefixed constants, rounded half up to 20 base-100
 * digits: 0, 1, 10, -1, pi, e and ln 10. */
KELAPI const uint8_t *lnxqgtzero(void);
KELAPI const uint8_t *lnxqgtone(void);
KELAPI const uint8_t *lnxqgtten(void);
KELAPI const uint8_t *lnxqgtneg1(void);
KELAPI const uint8_t *lnxqgtpi(void);
KELAPI const uint8_t *lnxqgte(void);
KELAPI const uint8_t *lnxqgtln10(void);

/* ------------------------------------------------------------ text */

#define LNX_TEXT_PLAIN 0    /* positional, exact: "-123.45", "0.001" */
#define LNX_TEXT_SHORTEST 1 /* the shorter of plain and "1.2345E+130" */
#define LNX_TEXT_FIXED 2    /* rounded to `places`, exactly that many decimals */
#define LNX_TEXT_MAX 176    /* buffer enough for the plain and shortest forms */

/* Writes the text of a number in ASCII, without a terminating NUL, to buf
 * (capacity bufsize) and stores its length in *textlen. Infinities are
 * "Infinity" and "-Infinity", zero is "0" (fixed form: "0.00" etc.). Every
 * text except the infinities parses back (lnxcpn) to the same number; the
 * fixed form gives the rounded value. `places` is read by the fixed form only
 * (negative rounds to the left of the point and prints no decimals).
 * Returns 0, or -1 for an unknown form or a buffer too small (then *textlen
 * is 0 and buf holds nothing useful). */
KELAPI int32_t lnxn2t(const uint8_t *num, size_t len, int32_t form, int32_t places,
                      char *buf, size_t bufsize, size_t *textlen);

/* ------------------------------------------------------------ parsing */

/* Parses a decimal literal: blanks, an optional sign, digits with an
 * optional decimal character and fraction, an optional exponent ("e" or "E",
 * optional sign, digits; an "e" without digits ends the literal before it)
 * and trailing blanks.
 *  text, textlen   the literal; textlen 0 means the first byte is its length.
 *  out, outlen     the result number in the output convention; a null `out`
 *                  uses a per-thread scratch buffer (valid until the thread's
 *                  next parse).
 *  precgiven, precision, scalegiven, scale
 *                  with either flag set the value is rounded half up to
 *                  `scale` decimal places (0 when not given; negative rounds
 *                  left of the point) and must need at most `precision`
 *                  significant digits (unlimited when not given); a value
 *                  that needs more is still produced, but *consumed is 0.
 *  consumed        receives the characters consumed (in the caller's units:
 *                  bytes, or bytes of two-byte Unicode text); 0 for text
 *                  without digits and on a precision violation. May be null.
 *  nlshandle       territory settings: the decimal character and the
 *                  character set (ASCII-based, EBCDIC or two-byte Unicode);
 *                  null means ASCII with ".".
 * Without limits, up to 40 significant digits are kept (39 when the first
 * digit stands at an even power of ten), rounded half up on the next one.
 * Results saturate: above 10^126 (in magnitude) to an infinity, below
 * 10^-128 to zero. Returns the buffer holding the result, or null (with
 * *consumed 0 and nothing written) when a handle is given whose language
 * settings cannot be reached. Thread-safe. */
KELAPI uint8_t *lnxcpn(const char *text, size_t textlen, uint8_t *out, size_t *outlen,
                       uint8_t precgiven, uint32_t precision, uint8_t scalegiven, int32_t scale,
                       size_t *consumed, void *nlshandle);

/* As lnxcpn with the handle's NLS global context passed explicitly; a
 * non-null handle with a null global context consumes nothing and returns
 * null. */
KELAPI uint8_t *lnxcpng(const char *text, size_t textlen, uint8_t *out, size_t *outlen,
                        uint8_t precgiven, uint32_t precision, uint8_t scalegiven, int32_t scale,
                        size_t *consumed, void *nlshandle, void *nlsglobal);

/* ------------------------------------------------------------ native integers */

/* Kinds of native integers for lnxmin and lnxsni. */
#define LNX_UNSIGNED 0    /* sizes 1, 2, 4, 8 */
#define LNX_NONNEG 1      /* signed source, non-negative target; sizes 1, 2, 4 */
#define LNX_SIGNED 2      /* sizes 1, 2, 4, 8 */
#define LNX_WRAP 0x8000   /* lnxsni flag: reduce out-of-range values modulo the width */

/* Native integer at `src` (`size` bytes, native byte order, read as unsigned
 * for LNX_UNSIGNED and as signed otherwise) to a number. Returns 0, or 3 for
 * a size the kind does not allow (nothing written). Exact for every value. */
KELAPI int32_t lnxmin(const void *src, size_t size, int32_t kind, uint8_t *out, size_t *outlen);

/* Number to a native integer of `size` bytes at `dst`; the kind is the low
 * seven bits of `flags`. Status:
 *  0  stored exactly, or truncated toward zero (12.99 stores 12);
 *  1  out of range: a negative number for the unsigned and non-negative
 *     kinds stores 0; a magnitude above the kind's limit stores the limit
 *     (the most negative value for negative signed input), or, with
 *     LNX_WRAP, the integer part reduced modulo 2^(8 * size). The limit test
 *     compares the whole magnitude, so 2147483647.5 is out of range for a
 *     signed 4-byte integer (it still stores 2147483647). Infinities store
 *     the limit in both modes;
 *  2  magnitude below 1 (non-zero): stores 0;
 *  3  a size the kind does not allow: nothing stored. */
KELAPI int32_t lnxsni(const uint8_t *num, size_t len, void *dst, size_t size, uint32_t flags);

/* Unsigned big-endian binary string of n bytes (leading zeros allowed, n = 0
 * is zero) to a number. Returns 0, or 1 when the value is 10^40 or more and
 * cannot be held exactly: positive infinity is written then. */
KELAPI int32_t lnxr2n(const uint8_t *bytes, size_t n, uint8_t *out, size_t *outlen);

/* The inverse of lnxr2n: writes a non-negative integer number as an unsigned
 * big-endian integer filling all `outsize` bytes of `out` (zero bytes on the
 * left; zero is all zero bytes). Returns 0; 1 for a negative, infinite or
 * fractional number (out untouched); 2 when outsize is too small (out holds
 * zeros). With outsize 0, out may be null: zero gives 0, any other value 2. */
KELAPI int32_t lnxn2r(const uint8_t *num, size_t len, uint8_t *out, size_t outsize);

/* ------------------------------------------------------------ binary floating point */

/* Correctly rounded decimal digits of a double: the first `ndigits` (1..40,
 * clamped) significant digits rounded half to even, as ASCII without
 * trailing zeros and NUL-terminated in `digits` (41 bytes), their count in
 * *ndigout, and the decimal exponent of the first digit in *exp10 (the value
 * is d1.d2d3... * 10^exp10). *negative receives the sign. Returns 0 for a
 * finite non-zero value, 1 for zero (digits "0"), 2 for an infinity, 3 for a
 * NaN (nothing written). Output pointers may be null. */
KELAPI int32_t slfpdtoa(double value, int32_t ndigits, char *digits, int32_t *ndigout,
                        int32_t *exp10, int32_t *negative);

/* The nearest double (or float, rounded once from the exact value) to a
 * number, ties to even; beyond the format's range the infinity of the sign,
 * below it zero of the sign. Infinities map to infinities. */
KELAPI double slfplnx2d(const uint8_t *num, size_t len);
KELAPI float slfplnx2f(const uint8_t *num, size_t len);

/* Double to number through its shortest-safe decimal form: the value rounded
 * to `ndigits` significant digits (slfpdtoa) and read by the literal parser.
 * slfpd2lnx uses 17 digits (every double comes back exactly through
 * slfplnx2d); slfpf2lnx widens a float and uses 9. Zero gives 80, infinities
 * FF 65 and 00. Returns 0, or 3 for a NaN (nothing written). `ctx` is the
 * caller's context, unused for now and may be null. */
KELAPI int32_t slfpd2lnxl(void *ctx, double value, int32_t ndigits, uint8_t *out, size_t *outlen);
KELAPI int32_t slfpd2lnx(void *ctx, double value, uint8_t *out, size_t *outlen);
KELAPI int32_t slfpf2lnx(void *ctx, float value, uint8_t *out, size_t *outlen);

/* Canonical float forms: IEEE bits most significant byte first, with the top
 * bit set for a positive sign and every bit complemented for a negative one,
 * so that byte order is numeric order; negative zero is stored as positive
 * zero and every NaN as FF F8 00.. (double) or FF C0 00 00 (float).
 * lfpcd2lnx / lfpcf2lnx read 8 / 4 canonical bytes and convert as slfpd2lnx /
 * slfpf2lnx (3 for a NaN). lfplnx2cd / lfplnx2cf write the canonical bytes of
 * the nearest double / float to a number and return 0. */
KELAPI int32_t lfpcd2lnx(void *ctx, const uint8_t *canon, uint8_t *out, size_t *outlen);
KELAPI int32_t lfpcf2lnx(void *ctx, const uint8_t *canon, uint8_t *out, size_t *outlen);
KELAPI int32_t lfplnx2cd(void *ctx, const uint8_t *num, size_t len, uint8_t *canon);
KELAPI int32_t lfplnx2cf(void *ctx, const uint8_t *num, size_t len, uint8_t *canon);

/* ------------------------------------------------------------ packed and zoned decimal */

/* Packed decimal: `size` bytes (1..32) hold 2 * size - 1 decimal digits, two
 * per byte, most significant first, and a sign in the last nibble (C for
 * positive and zero, D for negative when writing; A, C, E, F positive and B,
 * D negative when reading). Zoned decimal: `size` bytes (1..63), one digit
 * per byte in the low nibble with zone F (3 is read as well), the last byte's
 * zone holding the sign (C / D written; A, C, E, F, 3 positive and B, D
 * negative read). Both carry an implied `scale`: the field holds the integer
 * value * 10^scale.
 *
 * lnxn2pd / lnxn2zd round the number half away from zero to `scale` places
 * and write the field. Returns 0; 1 when the digits do not fit (out
 * unspecified); 2 for an infinity and 3 for an unsupported size (nothing
 * written).
 * lnxpd2n / lnxzd2n read a field into a number (more than 40 significant
 * digits are rounded as by lnxcpn). Returns 0; 1 for an invalid digit, zone
 * or sign (nothing written); 3 for an unsupported size. */
KELAPI int32_t lnxn2pd(const uint8_t *num, size_t len, int32_t scale, uint8_t *out, size_t size);
KELAPI int32_t lnxpd2n(const uint8_t *pd, size_t size, int32_t scale, uint8_t *out, size_t *outlen);
KELAPI int32_t lnxn2zd(const uint8_t *num, size_t len, int32_t scale, uint8_t *out, size_t size);
KELAPI int32_t lnxzd2n(const uint8_t *zd, size_t size, int32_t scale, uint8_t *out, size_t *outlen);

KEL_END_DECLS

#endif /* LNX_H */
