/*
 * ldx.h - the date kernel and date format models of kelcore10.
 *
 * Dates are held as an `ldxdate` record (calendar fields) and converted to a
 * Julian day number (day 1 = 1 January -4712) for arithmetic. Dates up to
 * 4 October 1582 are Julian-calendar dates, dates from 15 October 1582 are
 * Gregorian. Every operation takes the date context (`ldxctx`) first and
 * reports failures through the context's error callback (`ldxerr`); an
 * operation whose callback returns carries on with the values it has.
 *
 * Format models ("DD-MON-RR", "YYYY-MM-DD HH24:MI:SS" ...) are scanned
 * element by element (`ldxsnf`), compiled (`ldxsti`) and used to write
 * (`ldxdts`) and read (`ldxsto`, `ldxstd`) dates.
 *
 * Thread safety: the kernel functions touch nothing but their arguments; a
 * context may be shared by threads as long as none of them begins it again,
 * it holds no NLS handle of its own (ldxerr releases that one), and its
 * callback is itself thread-safe. The writers and readers keep the last
 * model text they compiled per thread, so repeating a model text is cheap,
 * and the layout of the last few fixed models (numbers and one-character
 * separators, "YYYY-MM-DD HH24:MI:SS" and the like) they used, so that
 * converting many dates with one compiled model walks the model once.
 */
#ifndef LDX_H
#define LDX_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"

KEL_BEGIN_DECLS

/* ------------------------------------------------------------- records */

/* A date and time of day (8 bytes, copied as one unit). year -4712 ... 9999
 * (0 is arithmetically a leap year but not a valid date), month 1 ... 12,
 * day 1 ... 31, hour 0 ... 23, minute and second 0 ... 59. `spare` is carried
 * along unchanged and ignored by comparisons. */
typedef struct ldxdate {
  int16_t year;
  int8_t month;
  int8_t day;
  int8_t hour;
  int8_t minute;
  int8_t second;
  uint8_t spare;
} ldxdate;

/* A day-and-second pair: an instant (Julian day number, second of day
 * 0 ... 86399) or an increment (days, seconds of any sign). */
typedef struct ldxdays {
  int32_t days;
  int32_t seconds;
} ldxdays;

struct ldxctx;

/* The error callback: called with the context and the error number. It may
 * unwind (longjmp) or record and return; the library tolerates both. The
 * callback's own argument is the context's `cbarg`. */
typedef void (*ldxerrcb)(struct ldxctx *ctx, int32_t err);

/* The date context. Fill it with one of the begin functions; the fields are
 * public so that a callback can read `cbarg`, nothing else should be set by
 * hand. */
typedef struct ldxctx {
  void *nlshd;          /* language/territory environment of kelnls10 (may be null) */
  void *nlsgbl;         /* the NLS global area */
  ldxerrcb errcb;       /* error callback (may be null: errors are then dropped) */
  void *cbarg;          /* the callback's own argument */
  void *savedhd;        /* an NLS handle the context opened itself */
  const void *terr;     /* territory view the date code reads (internal) */
  uint8_t nongreg;      /* 1: the territory's calendar is not Gregorian */
  uint8_t ownhd;        /* 1: `savedhd` is released by ldxerr before the callback */
  uint8_t spare[6];
  uint64_t deffmt[6];   /* the compiled default format model (48 bytes) */
} ldxctx;

/* The 7-byte date form: century+100, year of century+100, month, day,
 * hour+1, minute+1, second+1. The 11-byte timestamp form adds 4 bytes of
 * nanoseconds, big-endian. */
#define LDX_EXT7_LEN 7
#define LDX_EXT11_LEN 11

/* Error numbers: 600 (no default format), 1800 ... 1899; their texts are in
 * the message catalogue kelcore_ldx.msg. */

/* ------------------------------------------------------ calendar kernel */

/* Julian day number of (year, month, day). No validation: the caller gives
 * month 1 ... 12 and a day of that month. Dates 5 ... 14 October 1582 map to
 * the day numbers of 15 ... 24 October. Pure. */
KELAPI int32_t ldxctj(ldxctx *ctx, int32_t year, int32_t month, int32_t day);

/* Writes the calendar date of day number `jday` into out->year/month/day;
 * the time fields of *out are untouched. jday < 1 raises 1854 and leaves *out
 * unchanged. Returns 0, or -1 after an error. */
KELAPI int32_t ldxjtc(ldxctx *ctx, int32_t jday, ldxdate *out);

/* Month and day of day `doy` (1 ... 366) of `year` into *month, *day. Day 366
 * of a common year raises 1848 (the outputs then hold month 13, day 1).
 * Returns 0 or -1. */
KELAPI int32_t ldxdyc(ldxctx *ctx, int32_t year, int32_t doy, int32_t *month, int32_t *day);

/* Date to (day number, second of day). Pure, no validation. */
KELAPI void ldxdtd(ldxctx *ctx, const ldxdate *in, ldxdays *out);

/* Inverse of ldxdtd: clears *out, then fills it. Errors as ldxjtc; returns
 * 0 or -1. */
KELAPI int32_t ldxdfd(ldxctx *ctx, const ldxdays *in, ldxdate *out);

/* Validity check. mode 0: `rec` is an ldxdate; 1: an ldxdays; 2: the 7-byte
 * form. Returns 0 for a valid record, else the accumulated flags:
 * 0x0001 day over the month's length (or day number >= 5373485 in mode 1),
 * 0x0003 day 0 (day number 0), 0x0004 month over 12, 0x000C month 0,
 * 0x0010 year over 9999 (mode 2: a year byte over 199), 0x0030 year below
 * -4712 (mode 2: century byte below 53 or year byte below 1), 0x0040 hour
 * invalid, 0x00C0 hour byte 0, 0x0100 minute invalid, 0x0300 minute byte 0,
 * 0x0400 second invalid (seconds over 86399 in mode 1), 0x0C00 second byte
 * 0, 0x1000 a date 5 ... 14 October 1582, 0x2000 year 0, 0x8000 bad mode. */
KELAPI uint32_t ldxchk(ldxctx *ctx, const void *rec, int32_t mode);

/* -1, 0 or 1 as a is before, equal to or after b (spare byte ignored). */
KELAPI int32_t ldxcmp(ldxctx *ctx, const ldxdate *a, const ldxdate *b);

/* *out = *in plus inc->days days and inc->seconds seconds (either sign). A
 * result before day 1 or after year 9999 raises 1841. out may equal in.
 * Returns 0 or -1. */
KELAPI int32_t ldxads(ldxctx *ctx, ldxdate *out, const ldxdate *in, const ldxdays *inc);

/* *out = *in plus `months` months. The last day of a month goes to the last
 * day of the result month; any other day is capped at the result month's
 * length. Time kept. A year below -4712, or a month count whose year would
 * pass 10000, raises 1841 (January ... November of year 10000 pass this
 * test deliberately). Non-Gregorian territories use the NLS calendar first.
 * Returns 0 or -1. */
KELAPI int32_t ldxadm(ldxctx *ctx, ldxdate *out, const ldxdate *in, int32_t months);

/* *out = *in with the day set to the last day of its month. Returns 0. */
KELAPI int32_t ldxldd(ldxctx *ctx, ldxdate *out, const ldxdate *in);

/* *out = the first date strictly after *in that falls on weekday `wday`
 * (1 ... 7 in the territory's numbering), time kept. A weekday outside
 * 1 ... 7 raises 1846, a result after 9999 raises 1841. Returns 0 or -1. */
KELAPI int32_t ldxnxd(ldxctx *ctx, ldxdate *out, const ldxdate *in, int32_t wday);

/* Day of week 1 ... 7 of day number jday, 1 being the territory's first day
 * of the week (Sunday for the default territory). */
KELAPI int32_t ldxdow(ldxctx *ctx, int32_t jday);

/* ISO 8601 week number (1 ... 53) and week-numbering year of *d. */
KELAPI int32_t ldxisw(ldxctx *ctx, const ldxdate *d);
KELAPI int32_t ldxisy(ldxctx *ctx, const ldxdate *d);

/* Truncates / rounds *in to the unit `unit` (an element code, see
 * ldxgpc) into *out. An invalid unit raises 1899. Returns 0 or -1. */
KELAPI int32_t ldxtrn(ldxctx *ctx, ldxdate *out, const ldxdate *in, int32_t unit);
KELAPI int32_t ldxrnd(ldxctx *ctx, ldxdate *out, const ldxdate *in, int32_t unit);

/* Compiles a one-element model ("YYYY", "IW", "MI" ...) into its unit code.
 * An element that is no unit raises 1899, a second element 1898, a bad
 * model its scanner error; the result is then 0. */
KELAPI int32_t ldxgpc(ldxctx *ctx, const char *fmt, size_t len);

/* Reports error `err`: releases an NLS handle the context opened itself,
 * then calls the context's error callback (if any). */
KELAPI void ldxerr(ldxctx *ctx, int32_t err);

/* ------------------------------------------------ dates as numbers
 * Library numbers (lnx.h; out needs 22 bytes, *outlen gets the length). */

/* *d as its Julian day number plus the part of the day gone by (seconds of
 * the day / 86400, rounded to the number's precision): 1 January 2000 at
 * 18:00 is 2451545.75. An invalid date raises its range error (1841 for the
 * year, 1843 month, 1847 day, 1850 hour, 1851 minute, 1852 second) and
 * writes nothing. Returns 0 or -1. */
KELAPI int32_t ldxd2n(ldxctx *ctx, const ldxdate *d, uint8_t *out, size_t *outlen);

/* The date of a number as ldxd2n makes it: the whole part (floor) is the
 * day number, the fraction times 86400 rounded half away from zero the
 * second of the day (a fraction that rounds to 86400 is the next midnight).
 * A day number below 1 or above 5373484, an infinity or a malformed number
 * raises 1841 and leaves *out unchanged (its spare byte is always kept).
 * Returns 0 or -1. */
KELAPI int32_t ldxn2d(ldxctx *ctx, const uint8_t *num, size_t len, ldxdate *out);

/* An increment (days and seconds, any signs) as a number of days: days +
 * seconds / 86400. Returns 0, or -1 after 1841 when the day count leaves
 * 32 bits. */
KELAPI int32_t ldxi2n(ldxctx *ctx, const ldxdays *inc, uint8_t *out, size_t *outlen);

/* A number of days as an increment: days = the whole part toward zero,
 * seconds = the rest times 86400, rounded, with the number's sign (-1.5 is
 * -1 day and -43200 seconds). An infinity, a malformed number or a day
 * count beyond 32 bits raises 1841. Returns 0 or -1. */
KELAPI int32_t ldxn2i(ldxctx *ctx, const uint8_t *num, size_t len, ldxdays *out);

/* -------------------------------------------------------- format models */

/* Element codes returned by ldxsnf besides the element codes 1 ... 49. */
#define LDX_ITEM_END     0   /* end of the model */
#define LDX_ITEM_LITERAL 64  /* separator or quoted text: scan->lit, scan->litlen */

/* Element flags. The case flags come from how an element of two or more
 * letters is written: an upper-case first letter gives INITCAP when the
 * second letter is lower case ("Month"), else UPPER ("MONTH"); a lower-case
 * first letter gives neither ("month"). An element of one letter ("D", "J",
 * "Q", "E", "Y" ...) never carries a case flag. Names, words and spelled
 * numbers of an element with neither flag are written in lower case ("E"
 * writes "ad", "DSP" "three"); ordinal letters after digits are capitals only
 * when the element has a case flag and its suffix is written in capitals
 * ("DDTH" writes "03RD", "DDth" and "DTH" write "03rd" and "3rd"). */
#define LDX_FLAG_TH     0x01 /* ordinal suffix */
#define LDX_FLAG_SP     0x02 /* spelled out */
#define LDX_FLAG_INITCAP 0x04
#define LDX_FLAG_UPPER  0x08
#define LDX_FLAG_FILL   0x10 /* fill mode in force */
#define LDX_FLAG_THLOW  0x20 /* the ordinal suffix was written in lower case */

/* Scan state of ldxsnf. Set it up with ldxsni; the fields after `flags` are
 * the scanner's own. */
typedef struct ldxscan {
  int32_t code;          /* last item returned */
  uint32_t flags;        /* its flags */
  const uint8_t *lit;    /* literal item: its bytes (quotes removed) */
  size_t litlen;
  const uint8_t *text;   /* model text being scanned */
  size_t len;
  size_t pos;
  const uint8_t *outer;  /* the model around an expanded DL/DS/TS */
  size_t outerlen;
  size_t outerpos;
  size_t measure;        /* bytes scanned so far (limit 209) */
  uint8_t fill;          /* fill mode */
  uint8_t ebcdic;        /* the model is EBCDIC */
  uint8_t outerfill;     /* fill mode around an expanded DL/DS/TS */
  uint8_t expanded;      /* a territory format was scanned */
  uint8_t spare[4];
} ldxscan;

/* Prepares *scan for the model (fmt, len) in the context's character set. */
KELAPI void ldxsni(ldxctx *ctx, ldxscan *scan, const char *fmt, size_t len);

/* Returns the next item of the model: an element code (1 ... 49, with its
 * flags in scan->flags), LDX_ITEM_LITERAL, or LDX_ITEM_END; -1 after an
 * error has been raised (1800, 1821, 1890). "FM" toggles fill mode and is
 * not returned; "DL", "DS", "TS" are replaced by the territory's format. */
KELAPI int32_t ldxsnf(ldxctx *ctx, ldxscan *scan);

/* Compiles the model (fmt, len) into out (size outsz bytes), checking it
 * for use as an input model; the result serves ldxdts as well. Returns the
 * compiled length, or 0 after an error (1800, 1801, 1810 ... 1821, 1890).
 * A compiled model begins with a zero byte, so the model arguments of
 * ldxdts/ldxsto/ldxstd take either a compiled model or model text; a damaged
 * compiled model is refused with 1821. Output-only elements ("CC", "IW",
 * "YEAR" ...) are written from model text. */
KELAPI size_t ldxsti(ldxctx *ctx, const char *fmt, size_t len, uint8_t *out, size_t outsz);
/* As ldxsti with the model in UTF-16 (nchars code units). */
KELAPI size_t ldxstiu(ldxctx *ctx, const uint16_t *fmt, size_t nchars, uint8_t *out, size_t outsz);

/* Begins a context: clears it, installs the callback, and compiles the
 * territory's default date format into ctx->deffmt. nlshd null means the
 * default territory (American English). No default format raises 600.
 * Returns 0 or -1. */
KELAPI int32_t ldxbegin(ldxctx *ctx, void *nlshd, ldxerrcb cb, void *cbarg);
/* As ldxbegin with the caller's NLS global area and an already compiled
 * default format (six 64-bit words); the format is compiled afresh only when
 * the territory data are marked as changed. */
KELAPI int32_t ldxcbeg(ldxctx *ctx, void *nlshd, void *nlsgbl, ldxerrcb cb, void *cbarg,
                       const uint64_t deffmt[6]);
/* As ldxbegin but the default format is the model (fmt, len) given here. */
KELAPI int32_t ldxnbeg(ldxctx *ctx, void *nlshd, ldxerrcb cb, void *cbarg, const char *fmt,
                       size_t len);
/* UTF-16 forms of the begin functions (the NLS environment is a UTF-16 one;
 * ldxnbegu takes its model in UTF-16). */
KELAPI int32_t ldxbeginu(ldxctx *ctx, void *nlshd, ldxerrcb cb, void *cbarg);
KELAPI int32_t ldxcbegu(ldxctx *ctx, void *nlshd, void *nlsgbl, ldxerrcb cb, void *cbarg,
                        const uint64_t deffmt[6]);
KELAPI int32_t ldxnbegu(ldxctx *ctx, void *nlshd, ldxerrcb cb, void *cbarg, const uint16_t *fmt,
                        size_t nchars);

/* Writes *d as text by the model (fmt, fmtlen: compiled or text; null or
 * length 0 = the context's default format) into out (size outsz, no NUL
 * added). Returns the length written, or -1 after an error (model errors,
 * 1801 output too small). */
KELAPI int32_t ldxdts(ldxctx *ctx, char *out, size_t outsz, const ldxdate *d, const char *fmt,
                      size_t fmtlen);

/* Reading options of ldxsto. */
#define LDX_OPT_QUIET  0x1 /* on error return -1 and raise nothing */
#define LDX_OPT_ERRNUM 0x2 /* on error return the error number, raise nothing */

/* Reads text (txt, txtlen) into *out by the model (compiled or text; null =
 * the default format). Returns 0; on error -1 or the error number, see the
 * options (with neither bit the error is raised and -1 returned). *out is
 * written only on success, its spare byte kept. Parts the text does not give
 * default to the current year and month (UTC), day 1 and midnight; "Y",
 * "YY", "YYY" replace the last digits of the current year; "RR" and a
 * two-digit "RRRR" use the century window around the current year.
 *
 * Matching, outside "FX": blanks (blank, tab, newline, carriage return) in
 * the text are skipped before every element and every character of a
 * literal. Each separator of the model (blank, tab, newline, "-", "/", ",",
 * ".", ";", ":") matches any one separator character of the text, blanks
 * counting as one, or none where the text has none, the same for every
 * separator ("05-03-2024" reads with "DD/MM/YYYY" as "05/03/2024" does with
 * "DD-MM-YYYY"; "05--03-2024" does not read); a "-" in the text is a minus
 * sign only where the model reads a signed year ("SYYYY", "SY,YYY",
 * "NYYYY", "SCC"). Quoted text must appear
 * in the text as written, letters in either case, its separators matching as
 * the model's own do. Numbers may have fewer digits than their element,
 * names may be full or abbreviated, and the text may end before the model
 * (the rest takes its defaults). After "FX" (until a second "FX") every literal must match byte
 * for byte, numbers must have their full width unless in fill mode, and the
 * text may not end early (1840). Where a read failed: ldxrerr. */
KELAPI int32_t ldxsto(ldxctx *ctx, ldxdate *out, const char *txt, size_t txtlen, const char *fmt,
                      size_t fmtlen, uint32_t options);
/* Where the calling thread's last read (ldxsto, ldxstd, ldxstou and the
 * datetime readers of ldi.h: LdiDateFromString, LdiDateFromStringU) failed:
 * returns its error number, or 0 when that read succeeded. *pos (may be
 * null) gets the offset in the text at which the reader stopped (the element
 * or literal that did not match, the text left over; 0 when the date as a
 * whole is wrong, e.g. 31 April), and text (textsz bytes, may be null) the
 * text from there, NUL-terminated, cut to textsz - 1 bytes and to at most 48.
 * For the UTF-16 readers both refer to the text's UTF-8 form. An error
 * callback may call it. Thread-safe: each thread has its own record. */
KELAPI int32_t ldxrerr(size_t *pos, char *text, size_t textsz);
/* As ldxsto with options 0: errors are raised through the callback. */
KELAPI int32_t ldxstd(ldxctx *ctx, ldxdate *out, const char *txt, size_t txtlen, const char *fmt,
                      size_t fmtlen);
/* UTF-16 text and model forms of ldxsto and ldxdts (ldxdtsu writes UTF-16
 * code units and returns their count). */
KELAPI int32_t ldxstou(ldxctx *ctx, ldxdate *out, const uint16_t *txt, size_t txtlen,
                       const uint16_t *fmt, size_t fmtlen, uint32_t options);
KELAPI int32_t ldxdtsu(ldxctx *ctx, uint16_t *out, size_t outsz, const ldxdate *d,
                       const uint16_t *fmt, size_t fmtlen);

KEL_END_DECLS

#endif /* LDX_H */
