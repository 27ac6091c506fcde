/*
 * ldi.h - the datetime and interval records of kelcore10.
 *
 * These records cross the interface by value and are also the on-disk layout
 * of the time-zone image's transition table, so their sizes and field offsets
 * are fixed (checked by static_assert in the tests). The operations on them
 * (construction, arithmetic, text) belong to this header as they are added.
 */
#ifndef LDI_H
#define LDI_H

#include <stdint.h>

#include "kelapi.h"

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

KEL_END_DECLS

#endif /* LDI_H */
