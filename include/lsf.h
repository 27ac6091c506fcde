/*
 * lsf.h - formatted output: the library's own printf-like formatter.
 *
 * Three entry points share one conversion language:
 *   lsfp   arguments from the call (like snprintf)
 *   lsfpv  arguments from a va_list (like vsnprintf)
 *   lsfpd  arguments from an array of typed rows (lsfarg), which is how a
 *          stored argument list (an error record's, say) is substituted into
 *          a message text fetched at run time.
 *
 * The formatter does not depend on the C library's formatting: integers and
 * floating-point values are converted here, floats exactly (the text equals
 * what an exact decimal or hexadecimal expansion rounded to nearest, ties to
 * even, gives), so that output is the same on every platform.
 *
 * Conversion language
 * -------------------
 *   %[n$][flags][width][.precision][length]conversion
 *
 *   conversions  d i      signed decimal
 *                u o x X  unsigned decimal, octal, hexadecimal
 *                c        character (lc: a wide character, written as UTF-8)
 *                s        text (ls: wide text, written as UTF-8); a null
 *                         pointer prints "(null)" unless the precision is
 *                         below 6, then nothing
 *                p        pointer as 0x... in hexadecimal; null prints "(nil)"
 *                f F e E g G a A   floating point ("inf", "nan", "-nan"...)
 *                N        a library decimal number (lnx.h): the argument is
 *                         a const uint8_t * to the number in the
 *                         length-prefixed convention (length byte first).
 *                         Written exactly, in positional notation ("-0.001",
 *                         "12300"); with '#' in the shorter of that and the
 *                         scientific form ("1.23E+130"); with a precision p
 *                         rounded half away from zero to p places and shown
 *                         with exactly p decimals. Infinities print
 *                         "Infinity" / "-Infinity" (never zero-padded). The
 *                         flags + space - 0 and the width work as for %f;
 *                         length modifiers are ignored. A null pointer or
 *                         bytes that lnxchk refuses make the call fail (see
 *                         below).
 *                %        a percent sign (no argument)
 *   flags        - + space # 0 (any order, repeatable)
 *   width        digits, or * (next argument), or *m$ (argument m)
 *   precision    .digits, or .* or .*m$; a negative precision taken from
 *                an argument counts as none, a negative width as the '-'
 *                flag with its magnitude
 *   length       hh h l ll j z t L q (q = ll; L on an integer = ll; L on a
 *                float takes a long double, any other length on a float is
 *                ignored; l on c and s selects wide characters, any other
 *                length there and on p is ignored)
 *
 * Positional arguments: "%2$s %1$d" takes arguments by number (1 = first),
 * so that a message catalogue can reorder them between languages. A format
 * uses either positions throughout (widths and precisions from arguments
 * then as *m$) or none at all. In lsfp and lsfpv every position from 1 to
 * the highest one used must be referenced, by conversions of one argument
 * type each; at most LSF_MAX_POSITIONAL positions.
 *
 * Malformed formats: an incomplete conversion, an unknown conversion letter
 * or flag, a width or precision above 2^31 - 1, position 0, a mix of
 * positional and plain conversions, a position gap or type conflict (lsfp,
 * lsfpv), and:
 *   %n   is refused everywhere: message texts come from outside the program,
 *        and a format must never be able to write to memory.
 * The result is then -1 and the buffer holds (NUL-terminated) the text
 * formatted up to the bad conversion. A %N whose argument is no number ends
 * the call the same way and, when ctx is a started library context,
 * records message 10 of facility "LSF" ("lsfpcon() failed due to bad keltar
 * number") on the calling thread's error stack.
 *
 * Results (all three functions)
 * -----------------------------
 * The length of the whole formatted text, not counting the NUL, even when it
 * did not fit (as snprintf). At most len - 1 bytes are written followed by a
 * NUL, whenever len > 0; with len == 0 nothing is written and buf may be
 * null. -1 for a malformed format (see above), for a null fmt, and when the
 * whole text would be longer than 2^31 - 1 bytes (the buffer then holds the
 * part that fits). The format is never read past its NUL, the buffer never
 * written past len.
 *
 * The formatter allocates no memory: every conversion works in stack
 * buffers (about 1.5 KiB for a double, 18 KiB for a long double). Huge
 * precisions and widths cost time proportional to the bytes produced, not
 * memory.
 *
 * Thread safety: the functions keep no state; they are safe to call from any
 * number of threads. ctx is the library context record or null; it is used
 * only to report a bad %N argument.
 */
#ifndef LSF_H
#define LSF_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"

KEL_BEGIN_DECLS

/* Row types of an lsfarg array. Values 1, 8 and 25 are those of the error
 * manager's record arguments, so that a record's argument list can be passed
 * to lsfpd as it is. */
#define LSF_ARG_END 0     /* ends the array; its value is not read */
#define LSF_ARG_INT 1     /* signed 64-bit number, v.i */
#define LSF_ARG_UINT 2    /* unsigned 64-bit number, v.u */
#define LSF_ARG_DOUBLE 3  /* double, v.d */
#define LSF_ARG_PTR 4     /* pointer, v.p (only its value is printed) */
#define LSF_ARG_CHAR 5    /* character code, v.i (Unicode code point for %lc) */
#define LSF_ARG_WTEXT 6   /* NUL-terminated wide text (wchar_t), v.p */
#define LSF_ARG_CODE 8    /* an integer code, v.i; formats as LSF_ARG_INT */
#define LSF_ARG_NUMBER 9  /* a library number, length-prefixed, v.p (%N) */
#define LSF_ARG_TEXT 25   /* NUL-terminated text, v.s */

/* Most positions that one lsfp/lsfpv format may use. */
#define LSF_MAX_POSITIONAL 64

typedef struct lsfarg {
  int32_t type;  /* LSF_ARG_* */
  int32_t spare; /* not read */
  union {
    int64_t i;
    uint64_t u;
    double d;
    const void *p;
    const char *s;
  } v;
} lsfarg;

/* lsfp: format the arguments that follow fmt into buf[0..len).
 * Reads fmt and the arguments; writes buf. Result and failures as in
 * "Results" above. */
KELAPI int32_t lsfp(void *ctx, char *buf, size_t len, const char *fmt, ...);

/* lsfpv: lsfp with the arguments taken from ap. The formatter works on a
 * copy of ap (va_copy): the caller's ap is not advanced, and the caller
 * still owns (va_end) it. */
KELAPI int32_t lsfpv(void *ctx, char *buf, size_t len, const char *fmt, va_list ap);

/* lsfpd: lsfp with the arguments taken from the rows of args, an array ended
 * by a row of type LSF_ARG_END (args may be null: no rows). Each conversion,
 * and each * width or precision, takes the next row, or row m - 1 for a
 * position m. The array is never read past its END row.
 *
 * A conversion meets a row of another type as follows:
 *  - integer rows (INT, UINT, CHAR, CODE) serve d i u o x X c and p alike:
 *    the 64-bit value is read as signed by d i and as unsigned by u o x X;
 *    no length modifier narrows it except h and hh (as a C cast would); c
 *    writes the low byte (lc: the code point as UTF-8); p prints it as an
 *    address.
 *  - f F e E g G a A of an integer row convert the integer to double.
 *  - TEXT, WTEXT, PTR and NUMBER rows serve p (their address).
 *  - N takes a NUMBER row; any other row meeting N prints in its own form
 *    (below), and a NUMBER row meeting any other conversion prints as %N.
 *  - otherwise the row prints in its own form, as %d (INT, CODE), %u (UINT),
 *    %g (DOUBLE), %p (PTR), %c (CHAR), %s (TEXT), %ls (WTEXT), keeping the
 *    conversion's flags and width and dropping its precision. So %s of a
 *    number prints the number in decimal and %d of a text prints the text.
 *  - a * width or precision takes the value of an integer row; a row of
 *    another type leaves the width or precision unset.
 *  - a conversion with no row left (or a position past the END row), or a
 *    row of an unknown type, prints nothing, not even its padding.
 * A wide character that is no Unicode scalar value is written as '?'.
 */
KELAPI int32_t lsfpd(void *ctx, char *buf, size_t len, const char *fmt, const lsfarg *args);

KEL_END_DECLS

#endif /* LSF_H */
