/*
 * ldi.h - the datetime and interval records of kelcore10.
 *
 * These records cross the interface by value and are also the on-disk layout
 * of the time-zone image's transition table, so their sizes and field offsets
 * are fixed (checked by static_assert in the tests).
 *
 * Every operation returns a 32-bit status: 0 for success, otherwise one of
 * the date family's message numbers (LDI_ERR_*, texts in kelcore_ldx.msg).
 * Nothing is raised through the date context's callback; the context (`ctx`,
 * may be null for the default American English territory) only supplies the
 * calendar and the territory's names. On failure the output records are
 * left untouched unless a contract says otherwise.
 *
 * Zones: a zone is either an offset (zone hours and minutes of the same sign,
 * region 0) or a region of the time-zone image (ltz.h), whose offset in force
 * is kept in the zone fields. Local wall-clock time = UTC + offset. Functions
 * taking a time-zone image (`tzimg`, from ltzGetImage) accept null; regions
 * are then taken at the offset stored in the record.
 *
 * Thread safety: all functions touch only their arguments and the read-only
 * image; they are safe to call from any thread.
 */
#ifndef LDI_H
#define LDI_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"
#include "ldx.h"

KEL_BEGIN_DECLS

/* Datetime kinds (the `kind` field). */
#define LDI_KIND_DATE        1 /* date only */
#define LDI_KIND_TIME        2 /* time of day only */
#define LDI_KIND_TIMESTAMP   3 /* date and time, no zone */
#define LDI_KIND_TIME_TZ     4 /* time with time zone */
#define LDI_KIND_TSTZ        5 /* timestamp with time zone */
#define LDI_KIND_TSLTZ       7 /* timestamp with local time zone */

/* The datetime record, 20 bytes:
 *   offset 0  year      -4712 ... 9999, not 0
 *   offset 2  month 1 ... 12, day 1 ... 31
 *   offset 4  hour 0 ... 23, minute 0 ... 59, second 0 ... 59
 *   offset 7  pad (carried along, not interpreted)
 *   offset 8  fraction  fractional second in nanoseconds
 *   offset 12 zone hours -12 ... 14, zone minutes -59 ... 59
 *   offset 14 kind (LDI_KIND_*), flag byte
 *   offset 16 region    time-zone region ID, 0 when the zone is an offset
 *   offset 18 pad to the record's 4-byte alignment */
typedef struct LdiDateTime {
  int16_t year;
  uint8_t month;
  uint8_t day;
  uint8_t hour;
  uint8_t minute;
  uint8_t second;
  uint8_t pad1;
  uint32_t fraction;
  int8_t tzhour;
  int8_t tzminute;
  uint8_t kind;
  uint8_t flags;
  uint16_t region;
  uint16_t pad2;
} LdiDateTime;

/* Interval kinds (the `kind` field of LdiInterval). */
#define LDI_IKIND_YEAR        1
#define LDI_IKIND_MONTH       2
#define LDI_IKIND_DAY         3
#define LDI_IKIND_HOUR        4
#define LDI_IKIND_MINUTE      5
#define LDI_IKIND_SECOND      6
#define LDI_IKIND_YEAR_MONTH  7
#define LDI_IKIND_DAY_HOUR    8
#define LDI_IKIND_DAY_MINUTE  9
#define LDI_IKIND_DAY_SECOND  10
#define LDI_IKIND_HOUR_MINUTE 11
#define LDI_IKIND_HOUR_SECOND 12
#define LDI_IKIND_MINUTE_SECOND 13

/* The interval record, 24 bytes: f1 ... f4 are years, months (year-month
 * kinds) or days, hours, minutes, seconds (day-second kinds); fraction in
 * nanoseconds; kind (LDI_IKIND_*); region byte when the interval stands for a
 * time zone; two pad bytes. */
typedef struct LdiInterval {
  int32_t f1;
  int32_t f2;
  int32_t f3;
  int32_t f4;
  int32_t fraction;
  uint8_t kind;
  uint8_t region;
  uint16_t pad;
} LdiInterval;


/* Status numbers. */
#define LDI_OK              0
#define LDI_ERR_TZFILE      1804 /* time-zone image unusable */
#define LDI_ERR_DAY_MONTH   1839 /* day not valid in the resulting month */
#define LDI_ERR_YEAR        1841 /* year out of range */
#define LDI_ERR_VALUE       1863 /* datetime field out of range */
#define LDI_ERR_IVALUE      1864 /* interval field out of range */
#define LDI_ERR_KIND        1866 /* invalid datetime or interval kind */
#define LDI_ERR_DIVZERO     1867 /* interval divided by zero */
#define LDI_ERR_OVERFLOW    1868 /* interval arithmetic overflows */
#define LDI_ERR_KINDS       1870 /* kinds that cannot be combined */
#define LDI_ERR_PREC        1872 /* precision outside its range */
#define LDI_ERR_LEADING     1873 /* leading interval field exceeds its precision */
#define LDI_ERR_ITEXT       1874 /* interval text not valid */
#define LDI_ERR_TZTEXT      1875 /* zone text not valid */
#define LDI_ERR_FIELD       1876 /* field cannot be extracted from this kind */
#define LDI_ERR_LITERAL     1877 /* datetime literal not valid */
#define LDI_ERR_NUMBER      1878 /* library number not usable here */
#define LDI_ERR_REGION      1881 /* region ID out of range */
#define LDI_ERR_NOREGION    1882 /* region not found */
#define LDI_ERR_OUTSPACE    1891 /* output area too small, or other zone failure */

/* Flag byte of LdiDateTime. */
#define LDI_FLAG_SHIFTED 0x01 /* kind 7: the minute carries +60 from a zone adjustment */

/* Validity-check flags besides those of ldxchk (ldx.h). */
#define LDI_CHK_ZONE 0x4000 /* zone hours, zone minutes or region out of range */

/* ------------------------------------------------- construction and checks */

/* Fills *out with a datetime of `kind` from its fields: the date fields are
 * ignored (set to 0) for the time kinds 2 and 4, the time fields for kind 1,
 * the zone for kinds 1, 2, 3. The zone is region `region` when non-zero (its
 * offset at that wall-clock time is looked up in tzimg when given, else
 * tzhour/tzminute are kept), else the offset tzhour:tzminute. Statuses: 0;
 * 1866 bad kind; 1863 a field out of range (LdiDateCheck); 1881/1882/1804
 * region failures. */
KELAPI int32_t LdiDateConstruct(ldxctx *ctx, LdiDateTime *out, int32_t year, int32_t month,
                                int32_t day, int32_t hour, int32_t minute, int32_t second,
                                uint32_t fraction, int32_t tzhour, int32_t tzminute,
                                uint16_t region, uint8_t kind, const void *tzimg);
/* As LdiDateConstruct with the zone given as text ("+05:30", "-8:00", "UTC",
 * or a region name of the image; length tzlen, null/0 for no zone). Status
 * 1875 for zone text that is neither. */
KELAPI int32_t LdiDateConstructN(ldxctx *ctx, LdiDateTime *out, int32_t year, int32_t month,
                                 int32_t day, int32_t hour, int32_t minute, int32_t second,
                                 uint32_t fraction, const char *tz, size_t tzlen, uint8_t kind,
                                 const void *tzimg);
/* *dst = *src. Always 0. */
KELAPI int32_t LdiDateCopy(const LdiDateTime *src, LdiDateTime *dst);
/* Validity flags of a datetime: mode 0 reads `rec` as an LdiDateTime (its
 * own kind); mode 2 reads the byte form of `kind` (LdiDateToArray) at its
 * longest (11 bytes for kinds 3 and 7, the fraction included). Flags
 * are ldxchk's (date flags only for kinds with a date, time flags only for
 * kinds with a time; kind 7 admits minutes up to 119) plus LDI_CHK_ZONE;
 * 0x8000 for an unknown mode or kind. Returns 0 for a valid value. */
KELAPI uint32_t LdiDateCheck(const void *rec, int32_t mode, uint8_t kind);
/* 0 when datetimes a and b may be compared or subtracted (same kind, or
 * both timestamps of kinds 3, 5, 7), 1866 for a bad kind, else 1870. */
KELAPI int32_t LdiDateComparable(const LdiDateTime *a, const LdiDateTime *b);

/* Fills *out with an interval of `kind`: the fields the kind does not hold
 * are set to 0 (for kind 6 f4 holds the seconds; for kind 1 f1 the years,
 * for kind 2 f2 the months ...: field positions never move). The sign of the
 * value is that of its non-zero fields, which must agree; every field after
 * the leading one must lie within its natural range (months 0 ... 11, hours
 * 0 ... 23, minutes and seconds 0 ... 59, fraction 0 ... 999999999 in
 * magnitude). The leading field is checked against leadprec (0 ... 9) and
 * the fraction rounded to fracprec (0 ... 9). Statuses: 0; 1866; 1872;
 * 1864; 1873. */
KELAPI int32_t LdiInterConstruct(LdiInterval *out, int32_t f1, int32_t f2, int32_t f3,
                                 int32_t f4, int32_t fraction, uint8_t kind, int32_t leadprec,
                                 int32_t fracprec);
/* *dst = *src. Always 0. */
KELAPI int32_t LdiInterCopy(const LdiInterval *src, LdiInterval *dst);
/* Checks an interval as LdiInterConstruct does (without rounding). */
KELAPI int32_t LdiInterCheck(const LdiInterval *iv, int32_t leadprec, int32_t fracprec);
/* 0 when intervals a and b belong to one family (year-month or day-second),
 * 1866 for a bad kind, else 1870. */
KELAPI int32_t LdiInterComparable(const LdiInterval *a, const LdiInterval *b);
/* Checks a datetime with the default precisions: 0 when LdiDateCheck finds
 * nothing, else 1863 (1866 for a bad kind). */
KELAPI int32_t LdiDefaultCheck(const LdiDateTime *d);

/* ------------------------------------------------ comparison and arithmetic */

/* *result = -1, 0 or 1 as a is before, equal to or after b. The kinds must
 * be equal (1870; 1866 for kinds outside 1, 2, 3, 4, 5, 7). Kind 7 values
 * of different zones are compared after bringing b into a's zone; kind 5
 * values are compared on their wall-clock fields (bring them to one zone
 * first, e.g. with LdiTZ2T). tzimg may be null. */
KELAPI int32_t LdiDateCompare(const LdiDateTime *a, const LdiDateTime *b, int32_t *result,
                              const void *tzimg);
/* *out = a - b as an interval of kind `ikind`. Year-month kinds (1, 2, 7)
 * count whole months between the dates (days and time of a against b decide
 * whether the last month is complete); day-second kinds give the exact
 * difference with the leading field of the kind taking what the larger units
 * would hold and the fields after the kind's last unit cut off (toward zero).
 * Both values are taken on their wall-clock fields (kinds 1, 2, 3, 4 and
 * values of one zone). Statuses: 0; 1866; 1870 (different kinds, or a
 * year-month interval of time values). */
KELAPI int32_t LdiDateDateSubtract(ldxctx *ctx, const LdiDateTime *a, const LdiDateTime *b,
                                   uint8_t ikind, LdiInterval *out);
/* As LdiDateDateSubtract after converting both values to UTC (LdiTZ2T; their
 * regions looked up in tzimg when given). */
KELAPI int32_t LdiDateDateSubtractWithTZ(ldxctx *ctx, const LdiDateTime *a, const LdiDateTime *b,
                                         uint8_t ikind, LdiInterval *out, const void *tzimg);
/* *out = d + iv. Year-month intervals (kinds 1, 2, 7) need a datetime with a
 * date (1870 otherwise) and keep the day: a day the result month lacks is
 * 1839 (31 January + 1 month), and so is a day of 5 ... 14 October 1582,
 * which the calendar switch left out (10 September 1582 + 1 month); a year
 * outside -4712 ... 9999, or year 0 (15 January 1 - 1 month), is 1841.
 * Day-second intervals are added with carries through the day numbers
 * (LdiDateIntertimeAdd). With tzimg and a region zone, the zone offset is
 * looked up again for the result's wall-clock time (LdiDateInterAddTZ; the
 * old offset chooses in a repeated hour); a failed lookup maps to 1804 (the
 * image is not usable), 1881 (region ID outside 1 ... 8191), 1882 (no such
 * region: an empty slot or an alias the slot does not carry) or 1891. On
 * failure *out is untouched. out may equal d. */
KELAPI int32_t LdiDateInterAdd(ldxctx *ctx, const LdiDateTime *d, const LdiInterval *iv,
                               LdiDateTime *out);
KELAPI int32_t LdiDateInterAddTZ(ldxctx *ctx, const LdiDateTime *d, const LdiInterval *iv,
                                 LdiDateTime *out, const void *tzimg);
/* *out = d - iv (as the additions with the interval negated). */
KELAPI int32_t LdiDateInterSubtract(ldxctx *ctx, const LdiDateTime *d, const LdiInterval *iv,
                                    LdiDateTime *out);
KELAPI int32_t LdiDateInterSubtractTZ(ldxctx *ctx, const LdiDateTime *d, const LdiInterval *iv,
                                      LdiDateTime *out, const void *tzimg);
/* Adds / subtracts a day-second interval (kinds 3 ... 6, 8 ... 13; others
 * 1866): days, hours, minutes, seconds and nanoseconds with carries. Time
 * kinds 2 and 4 wrap around midnight; a date leaving -4712 ... 9999, or
 * landing in year 0, is 1841. Zone fields are kept. */
KELAPI int32_t LdiDateIntertimeAdd(const LdiDateTime *d, const LdiInterval *iv, LdiDateTime *out);
KELAPI int32_t LdiDateIntertimeSubtract(const LdiDateTime *d, const LdiInterval *iv,
                                        LdiDateTime *out);
/* Overlap of two periods, each given by its two ends in either order (the
 * SQL OVERLAPS predicate): *result = 1 when they share an instant, else 0.
 * LdiDateDateOverlap: (s1, e1) and (s2, e2); LdiDateInterOverlap: (s1, e1)
 * and (s2, s2 + i2); LdiInterInterOverlap: (s1, s1 + i1) and (s2, s2 + i2).
 * Statuses of the comparisons and additions. */
KELAPI int32_t LdiDateDateOverlap(ldxctx *ctx, const LdiDateTime *s1, const LdiDateTime *e1,
                                  const LdiDateTime *s2, const LdiDateTime *e2, int32_t *result,
                                  const void *tzimg);
KELAPI int32_t LdiDateInterOverlap(ldxctx *ctx, const LdiDateTime *s1, const LdiDateTime *e1,
                                   const LdiDateTime *s2, const LdiInterval *i2, int32_t *result,
                                   const void *tzimg);
KELAPI int32_t LdiInterInterOverlap(ldxctx *ctx, const LdiDateTime *s1, const LdiInterval *i1,
                                    const LdiDateTime *s2, const LdiInterval *i2, int32_t *result,
                                    const void *tzimg);
/* Puts a and b in order (swaps them when a is after b). *swapped (may be
 * null) = 1 when they were swapped. Statuses of LdiDateCompare. */
KELAPI int32_t LdiDateDateSwap(LdiDateTime *a, LdiDateTime *b, int32_t *swapped, const void *tzimg);
/* *result = -1, 0, 1 comparing two intervals of one family (1870 across
 * families, 1866 bad kind). */
KELAPI int32_t LdiInterCompare(const LdiInterval *a, const LdiInterval *b, int32_t *result);
/* *out = a + b, a - b of one family; the result has the kind covering both
 * (years and months give years to months ...). 1868 when the leading field
 * overflows 32 bits. */
KELAPI int32_t LdiInterInterAdd(const LdiInterval *a, const LdiInterval *b, LdiInterval *out);
KELAPI int32_t LdiInterInterSubtract(const LdiInterval *a, const LdiInterval *b, LdiInterval *out);
/* *out = iv * n, iv / n with n a library number (num, numlen as in lnx.h):
 * the result is rounded to the nanosecond (day-second) or cut to whole months
 * (year-month), kind kept. 1867 division by zero, 1868 overflow, 1878 a
 * number that is not valid. */
KELAPI int32_t LdiInterMultiply(const LdiInterval *iv, const uint8_t *num, size_t numlen,
                                LdiInterval *out);
KELAPI int32_t LdiInterDivide(const LdiInterval *iv, const uint8_t *num, size_t numlen,
                              LdiInterval *out);
/* *out = iv * n for a native integer n (1868 on overflow). */
KELAPI int32_t LdiIIntMult(const LdiInterval *iv, int32_t n, LdiInterval *out);

/* ---------------------------------------------------------------- conversion */

/* Converts a datetime to `kind`: a date gets midnight, a time gets the
 * date of `ref` (may be null: then 1870), time fields are dropped for kind 1,
 * date fields for 2 and 4. A value without zone that needs one gets the
 * zone of `zone` (may be null: UTC); a zoned value going to a zoneless kind
 * keeps its wall clock, except kind 7 which is first brought into `zone`.
 * Statuses: 0, 1866, 1870, zone failures. */
KELAPI int32_t LdiDateDateConvert(const LdiDateTime *in, uint8_t kind, const LdiDateTime *ref,
                                  const LdiDateTime *zone, LdiDateTime *out, const void *tzimg);
/* Converts an interval to another kind of its family (1870 across families):
 * the value is kept exactly in the target's fields; units finer than the
 * target's last are cut toward zero. */
KELAPI int32_t LdiInterInterConvert(const LdiInterval *in, uint8_t kind, LdiInterval *out);
/* ldxdate <-> datetime (the fraction is lost going to ldxdate; from ldxdate
 * the kind is `kind`, 1 or 3, fraction 0). */
KELAPI int32_t LdiDateFromLDX(const ldxdate *in, uint8_t kind, LdiDateTime *out);
KELAPI int32_t LdiDateToLDX(const LdiDateTime *in, ldxdate *out);
/* Julian day number (day 1 = 1 January -4712) of a datetime's date, and the
 * date (kind 1) of a day number (1 ... 5373484, else 1841). */
KELAPI int32_t LdiDateToJDays(const LdiDateTime *in, int32_t *jdays);
KELAPI int32_t LdiJDaysToDate(int32_t jdays, LdiDateTime *out);
/* Year, month and day of day number jdays (1841 out of range). */
KELAPI int32_t LdiDays2Cal(int32_t jdays, int32_t *year, int32_t *month, int32_t *day);
/* A datetime as day number and second of day, and back (kind 3 result). */
KELAPI int32_t LdiDateToJulian(const LdiDateTime *in, ldxdays *out);
KELAPI int32_t LdiJulianToDate(const ldxdays *in, LdiDateTime *out);
/* Julian day with fraction of the day as a library number (num: at least
 * 22 bytes, *numlen gets its length), and back (the fraction rounded to the
 * nanosecond, kind 3). 1878 for an unusable number, 1841 out of range. */
KELAPI int32_t LdiJulianToNumber(const LdiDateTime *in, uint8_t *num, size_t *numlen);
KELAPI int32_t LdiJulianFromNumber(const uint8_t *num, size_t numlen, LdiDateTime *out);
/* An interval as a number of its smallest whole unit family: months for the
 * year-month kinds, seconds (with fraction) for the day-second kinds; and
 * back into `kind`. 1878, 1868, 1866. */
KELAPI int32_t LdiInterToNumber(const LdiInterval *iv, uint8_t *num, size_t *numlen);
KELAPI int32_t LdiInterFromNumber(const uint8_t *num, size_t numlen, uint8_t kind,
                                  LdiInterval *out);
/* Byte forms. LdiDateToArray writes the form of d's kind into out (outsz
 * bytes) and its length into *len; fsprec (0 ... 9) is the precision the
 * fraction is rounded to first (kinds 3 and 7 drop a zero fraction); kind 7
 * is first brought into the zone of `zone` (may be null: kept). 1891 short
 * area, 1866 bad kind. LdiDateFromArray reads len bytes of the form of
 * `kind`; 1863 when the bytes are not a valid value, 1891 when too short. */
KELAPI int32_t LdiDateToArray(const LdiDateTime *d, int32_t fsprec, const LdiDateTime *zone,
                              uint8_t *out, size_t outsz, size_t *len, const void *tzimg);
KELAPI int32_t LdiDateFromArray(const uint8_t *in, size_t len, uint8_t kind, LdiDateTime *out);
/* Interval byte forms: leading field as 4 bytes big-endian of value +
 * 0x80000000, each following field one byte of value + 60, the fraction 4
 * bytes big-endian + 0x80000000. The area is cleared first. Statuses: 1866,
 * 1891, 1873 (leadprec 0 ... 9), 1872. */
KELAPI int32_t LdiInterToArray(const LdiInterval *iv, int32_t leadprec, int32_t fracprec,
                               uint8_t *out, size_t outsz, size_t *len);
KELAPI int32_t LdiInterFromArray(const uint8_t *in, size_t len, uint8_t kind, LdiInterval *out);

/* -------------------------------------------------------------------- text */

/* Writes d by the datetime format model (fmt, fmtlen: model text; null or
 * length 0 for the kind's default, the context's date format for kind 1).
 * Besides the date elements of ldx.h the model may hold "FF" (fraction with
 * fsprec digits), "FF1" ... "FF9", "X" (the radix character '.'), "TZH",
 * "TZM" (zone hours with sign, zone minutes), "TZR" (region name, or the
 * offset as +hh:mm) and "TZD" (the daylight abbreviation; needs tzimg).
 * The text is written to out (outsz bytes, no NUL) and its length to *len.
 * Statuses: 0; model errors of ldx.h (1800, 1821 ...); 1801 out too small;
 * 1866; 1870 an element the kind does not hold. */
KELAPI int32_t LdiDateToString(ldxctx *ctx, const LdiDateTime *d, const char *fmt, size_t fmtlen,
                               int32_t fsprec, char *out, size_t outsz, size_t *len,
                               const void *tzimg);
/* Reads text into *out of `kind` by the model (as LdiDateToString). Parts
 * missing from the text default as in ldxsto; a missing zone is UTC; "TZR"
 * reads an offset or a region name (then the offset is looked up in tzimg).
 * Text is matched as ldxsto matches it (ldx.h); where a read failed is
 * told by ldxrerr. Statuses: 0; model and reading errors of ldx.h (1830,
 * 1840, 1858 ...); 1875 zone text; 1882 region not found; 1866. */
KELAPI int32_t LdiDateFromString(ldxctx *ctx, const char *txt, size_t txtlen, const char *fmt,
                                 size_t fmtlen, uint8_t kind, LdiDateTime *out,
                                 const void *tzimg);
/* UTF-16 forms (lengths in code units). */
KELAPI int32_t LdiDateToStringU(ldxctx *ctx, const LdiDateTime *d, const uint16_t *fmt,
                                size_t fmtlen, int32_t fsprec, uint16_t *out, size_t outsz,
                                size_t *len, const void *tzimg);
KELAPI int32_t LdiDateFromStringU(ldxctx *ctx, const uint16_t *txt, size_t txtlen,
                                  const uint16_t *fmt, size_t fmtlen, uint8_t kind,
                                  LdiDateTime *out, const void *tzimg);
/* SQL literals: DATE 'YYYY-MM-DD', TIME 'HH:MI:SS[.f][ +hh:mm]', TIMESTAMP
 * 'YYYY-MM-DD HH:MI:SS[.f][ zone]' (zone +hh:mm or a region name). Written
 * with fsprec fraction digits (none when 0); the kind of the literal read
 * is that of its keyword and zone (4 and 5 when a zone is present). Status
 * 1877 for a malformed literal, field errors 1863, 1839, zone errors. */
KELAPI int32_t LdiDateToLiteral(const LdiDateTime *d, int32_t fsprec, char *out, size_t outsz,
                                size_t *len, const void *tzimg);
KELAPI int32_t LdiDateFromLiteral(const char *txt, size_t txtlen, LdiDateTime *out,
                                  const void *tzimg);
KELAPI int32_t LdiDateToLiteralU(const LdiDateTime *d, int32_t fsprec, uint16_t *out,
                                 size_t outsz, size_t *len, const void *tzimg);
KELAPI int32_t LdiDateFromLiteralU(const uint16_t *txt, size_t txtlen, LdiDateTime *out,
                                   const void *tzimg);
/* Interval text in the SQL forms: "+YY-MM" for years to months, "+DD HH:MI:SS.f"
 * for days to seconds, and the kind's part of it for the others ("+DD",
 * "+HH:MI", "+MI:SS.f" ...), the leading field padded to leadprec digits and
 * fracprec fraction digits. LdiInterToStringISO writes an ISO 8601 duration
 * ("P1Y2M", "P3DT4H5M6.5S", "-P1D", "PT0S"). 1801 out too small. */
KELAPI int32_t LdiInterToString(const LdiInterval *iv, int32_t leadprec, int32_t fracprec,
                                char *out, size_t outsz, size_t *len);
KELAPI int32_t LdiInterToStringISO(const LdiInterval *iv, int32_t fracprec, char *out,
                                   size_t outsz, size_t *len);
/* Reads interval text of `kind`: the SQL form of the kind (leading blanks
 * and sign allowed, the leading field any number of digits) or an ISO 8601
 * duration (P...; its units must fit the kind's family). The result is
 * normalised into the kind's fields. LdiInterFromStringPrec also checks the
 * leading precision and rounds to fracprec. Statuses: 0, 1874, 1866, 1864,
 * 1868, 1873, 1872. */
KELAPI int32_t LdiInterFromString(const char *txt, size_t txtlen, uint8_t kind, LdiInterval *out);
KELAPI int32_t LdiInterFromStringPrec(const char *txt, size_t txtlen, uint8_t kind,
                                      int32_t leadprec, int32_t fracprec, LdiInterval *out);
KELAPI int32_t LdiInterToStringU(const LdiInterval *iv, int32_t leadprec, int32_t fracprec,
                                 uint16_t *out, size_t outsz, size_t *len);
KELAPI int32_t LdiInterToStringISOU(const LdiInterval *iv, int32_t fracprec, uint16_t *out,
                                    size_t outsz, size_t *len);
KELAPI int32_t LdiInterFromStringU(const uint16_t *txt, size_t txtlen, uint8_t kind,
                                   LdiInterval *out);
KELAPI int32_t LdiInterFromStringPrecU(const uint16_t *txt, size_t txtlen, uint8_t kind,
                                       int32_t leadprec, int32_t fracprec, LdiInterval *out);

/* Checks a datetime model (as LdiDateToString takes) for reading
 * (LdiParseForInput: the input rules of ldxsti, and a zone given either by
 * "TZR" or by "TZH"/"TZM") or writing values of `kind`. Statuses: 0; the
 * model errors of ldx.h (1800, 1810 ... 1821, 1890); 1810 an extension
 * element twice; 1870 an element the kind does not hold; 1866. */
KELAPI int32_t LdiParseForInput(ldxctx *ctx, const char *fmt, size_t fmtlen, uint8_t kind);
KELAPI int32_t LdiParseForOutput(ldxctx *ctx, const char *fmt, size_t fmtlen, uint8_t kind);
/* Writes a datetime model back in canonical form into out (outsz bytes, no
 * NUL), *len its length: each element spelled by its first name in the
 * element table ("HH" for "HH12", "AM" for "PM") in the case it was written
 * (all capitals, initial capital or lower case; an element of one letter,
 * which carries no case, in capitals), suffixes as "TH"/"SP"/
 * "SPTH" ("THSP" where that would read as another element: D with "SPTH"
 * is DS; the ordinal letters in lower case when they were), "FM" where
 * fill mode changes, "DL"/"DS"/"TS" expanded to the territory's model,
 * separators as they are and other literal text quoted, and an empty
 * literal "" between two items that would otherwise read as one or as
 * others (Y""Y, two one-digit years, does not become YY). The result scans
 * as the same items, so it reads and writes as the model does (an expanded
 * territory model or the added "" may take it past the length limit, 1800).
 * Statuses: 0; model errors (1800, 1821, 1890); 1801 out too small. */
KELAPI int32_t LdiUnparse(ldxctx *ctx, const char *fmt, size_t fmtlen, char *out, size_t outsz, size_t *len);
/* The byte-form length of a datetime kind (interval 0) or of an interval
 * kind (interval non-zero): the longest LdiDateToArray / LdiInterToArray
 * writes. 1866 for a bad kind. */
KELAPI int32_t LdiMaxSize(uint8_t kind, int32_t interval, size_t *size);
/* The widest text of a kind in its default form (LdiDateToString without a
 * model, LdiInterToString) for the given precisions; a region zone counts at
 * the longest region name. 1866, 1872. */
KELAPI int32_t LdiMaxDispWidth(uint8_t kind, int32_t interval, int32_t leadprec, int32_t fracprec,
                               size_t *width);
/* Packs a leading and a fractional precision (0 ... 9 each) into one byte:
 * leading precision in the high four bits. 1872 out of range. */
KELAPI int32_t LdiPrecisionCode(int32_t leadprec, int32_t fracprec, uint8_t *code);

/* ------------------------------------------------------------------- zones */

/* Brings d (kinds 4, 5, 7) into the zone tzhour:tzminute, or region when
 * non-zero (its offset looked up in tzimg for the instant; without tzimg the
 * offset given is used): the instant is kept, the wall clock and zone fields
 * change. Kind 4 wraps around midnight. Kinds 1, 2, 3: 1866. */
KELAPI int32_t LdiTimeZoneAdjust(ldxctx *ctx, LdiDateTime *d, int32_t tzhour, int32_t tzminute,
                                 uint16_t region, const void *tzimg);
/* Moves the wall clock of d by the zone shift `shift` (a zone interval of
 * LdiInterFromTZ: hours and minutes) without changing its zone fields. */
KELAPI int32_t LdiTimeZoneShift(ldxctx *ctx, LdiDateTime *d, const LdiInterval *shift);
/* Zoned datetime (4, 5, 7) -> its UTC wall clock, kind 3 (kind 2 for 4).
 * A region zone is resolved in tzimg from the wall clock (the stored offset
 * chooses in a repeated hour); without tzimg the stored offset is used. */
KELAPI int32_t LdiTZ2T(const LdiDateTime *in, LdiDateTime *out, const void *tzimg);
/* UTC timestamp (kind 3) -> kind 5 in zone tzhour:tzminute or region
 * (offset looked up at the instant; tzimg needed, else 1804). */
KELAPI int32_t LdiT2TZ(const LdiDateTime *utc, int32_t tzhour, int32_t tzminute, uint16_t region,
                       LdiDateTime *out, const void *tzimg);
/* Brings a kind-7 value into the session zone `sess` (kind 4/5 or a zone
 * interval's fields copied: only its zone fields are read) and clears the
 * shifted-minute flag, normalising a minute over 59. */
KELAPI int32_t LdiFixTSLTZ(LdiDateTime *d, const LdiDateTime *sess, const void *tzimg);
/* Zone text ("+05:30", "-08:00", "UTC", "Z", or a region name of tzimg) ->
 * a zone interval (kind 11: hours in f2, minutes in f3). For a region the
 * region byte is 1, f1 holds the region ID and f2, f3 are 0 (a region has
 * no offset until an instant is given). 1875, 1882. */
KELAPI int32_t LdiInterFromTZ(const char *tz, size_t tzlen, LdiInterval *out, const void *tzimg);
/* A zone interval -> zone text ("+hh:mm" or the region name) in out (outsz
 * bytes, no NUL), its length in *len. Statuses: 0; 1891 out too small;
 * 1875 an offset beyond +-14:59; 1804 a region without tzimg; 1881, 1882 a
 * region ID out of range or not in the image. */
KELAPI int32_t LdiInterToTZ(const LdiInterval *iv, char *out, size_t outsz, size_t *len,
                            const void *tzimg);

/* --------------------------------------------------------------- rounding */

/* Rounds the fraction half up to fsprec digits (0 ... 8; 9 and over, and
 * kind 1, leave d as is), carrying into seconds, minutes, hours and (except
 * for the time kinds, which wrap) the date. 1841 past 9999. */
KELAPI int32_t LdiDateRoundFS(LdiDateTime *d, int32_t fsprec);
/* Rounds an interval's fraction half away from zero to fsprec digits,
 * carrying into its fields; 1873 when the leading field then exceeds
 * leadprec digits, 1866 bad kind. */
KELAPI int32_t LdiInterRoundFS(LdiInterval *iv, int32_t leadprec, int32_t fsprec);
/* Rounds / truncates d to the unit `unit` (a unit code of ldxgpc); the
 * fraction becomes 0. Zone fields are kept. 1899 bad unit, 1866 time kinds
 * with date units. */
KELAPI int32_t LdiRound(ldxctx *ctx, const LdiDateTime *d, int32_t unit, LdiDateTime *out);
KELAPI int32_t LdiTruncate(ldxctx *ctx, const LdiDateTime *d, int32_t unit, LdiDateTime *out);
/* Field numbers of the extraction functions. */
#define LDI_FIELD_YEAR      1
#define LDI_FIELD_MONTH     2
#define LDI_FIELD_DAY       3
#define LDI_FIELD_HOUR      4
#define LDI_FIELD_MINUTE    5
#define LDI_FIELD_SECOND    6
#define LDI_FIELD_FRACTION  7 /* nanoseconds */
#define LDI_FIELD_TZHOUR    8
#define LDI_FIELD_TZMINUTE  9
#define LDI_FIELD_REGION    10
/* *value = the field of d (1876 when the kind does not hold it). */
KELAPI int32_t LdiDateExtract(const LdiDateTime *d, int32_t field, int32_t *value);
/* As LdiDateExtract, the zone fields taken from tzimg for a region zone
 * (offset in force at d's wall clock); the region name is written to name
 * (namesz bytes, may be null) for LDI_FIELD_REGION. */
KELAPI int32_t LdiDateExtractTZ(const LdiDateTime *d, int32_t field, int32_t *value, char *name,
                                size_t namesz, const void *tzimg);
/* *value = the field (YEAR ... FRACTION, MONTH meaning months) of iv, with
 * the sign of the interval; 1876 when its kind does not hold it. */
KELAPI int32_t LdiInterExtract(const LdiInterval *iv, int32_t field, int32_t *value);

KEL_END_DECLS

#endif /* LDI_H */
