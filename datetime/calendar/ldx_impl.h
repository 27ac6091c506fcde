// ldx_impl.h - internals of the date family shared by its files and tests:
// error numbers, the territory view, the silent calendar kernel and the
// compiled-model layout.
#ifndef KEL_DATETIME_LDX_IMPL_H
#define KEL_DATETIME_LDX_IMPL_H

#include <cstddef>
#include <cstdint>

#include "datetime/calendar/calendar_impl.h"
#include "ldx.h"

namespace ldx_internal {

// ------------------------------------------------------------ territory view
// Everything territory-dependent that the date code reads. Words are upper
// case, in ASCII or, for the letters beyond it, Latin-1 bytes or UTF-8
// (`utf8`); the model and date text may be EBCDIC (`ebcdic`), in which case
// generated text is translated on the way out and read text on the way in.
struct ldx_territory_view {
  const char *deffmt;     // default date format
  const char *longdate;   // "DL"
  const char *shortdate;  // "DS"
  const char *shorttime;  // "TS"
  int32_t first_day;      // first day of the week, 0 = Sunday
  bool gregorian;
  bool ebcdic;
  const char *months[12];
  const char *mon_abbr[12];
  const char *days[7];  // Sunday first
  const char *day_abbr[7];
  const char *am, *pm, *am_dots, *pm_dots;
  const char *ad, *bc, *ad_dots, *bc_dots;
  const char *era_full[2];  // AD, BC
  // Alternative calendars: month addition and last day. They return a value
  // whose low byte is non-zero when they did the work.
  int32_t (*eadm)(ldxctx *ctx, ldxdate *out, const ldxdate *in, int32_t months);
  int32_t (*eldd)(ldxctx *ctx, ldxdate *out, const ldxdate *in);
  // Releases an NLS handle the context opened itself.
  void (*release)(void *nlshd);
  // True when the territory data of the handle changed since it was begun.
  bool (*changed)(void *nlshd);
  // Words beyond ASCII are UTF-8 (else one byte per character).
  bool utf8;
};

// The American English view used for the null handle.
const ldx_territory_view &default_view();
// The view of an NLS handle (nls_view.cpp); null when the handle cannot give
// one.
const ldx_territory_view *view_for_handle(void *nlshd);

inline const ldx_territory_view &view(const ldxctx *ctx) {
  return ctx && ctx->terr ? *static_cast<const ldx_territory_view *>(ctx->terr) : default_view();
}

// ------------------------------------------------------------- calendar core
// The silent kernel on top of calendar_impl.h: results and error numbers, no
// callback. The exported functions wrap these and raise.
int32_t iso_week(int32_t y, int32_t m, int32_t d);
int32_t iso_year(int32_t y, int32_t m, int32_t d);
// Adds days and seconds; 0 or E_RANGE_YEAR.
int32_t add_days(ldxdate *out, const ldxdate *in, int32_t days, int64_t secs);
// Adds months (Gregorian rule); 0 or E_RANGE_YEAR.
int32_t add_months(ldxdate *out, const ldxdate *in, int32_t months);
// Truncation and rounding; 0, E_UNIT or E_RANGE_YEAR.
int32_t trunc_unit(const ldx_territory_view &v, ldxdate *out, const ldxdate *in, int32_t unit);
int32_t round_unit(const ldx_territory_view &v, ldxdate *out, const ldxdate *in, int32_t unit);

// The 7-byte and 11-byte external forms.
void to_ext7(const ldxdate &d, uint8_t out[7]);
void from_ext7(const uint8_t in[7], ldxdate *d);
void to_ext11(const ldxdate &d, uint32_t nanos, uint8_t out[11]);
void from_ext11(const uint8_t in[11], ldxdate *d, uint32_t *nanos);

// The current date (UTC) from the system clock, or the pinned instant.
void now(ldxdate *d);
// Tests pin "now" (microseconds since 1970-01-01 UTC); 0 unpins.
void pin_now_for_test(int64_t us);

// ------------------------------------------------------------- format models
enum Code : int32_t {
  C_CC = 1, C_SCC, C_I, C_Y, C_IY, C_YY, C_IYY, C_YYY, C_IYYY, C_YYYY, C_Y_YYY, C_SYYYY,
  C_SY_YYY, C_YEAR, C_SYEAR, C_Q, C_MM, C_IW, C_WW, C_W, C_D, C_DD, C_DDD, C_HH24, C_HH,
  C_MI, C_SS, C_SSSSS, C_J, C_MONTH, C_MON, C_DAY, C_DY, C_AMPM, C_AMPM_DOTS, C_ADBC,
  C_ADBC_DOTS, C_RM, C_FM, C_RR, C_RRRR, C_FX, C_E, C_EE, C_NYYYY,
  C_DL = 47, C_DS, C_TS
};
constexpr int32_t kMaxCode = 49;

// Compiled model: byte 0 is 0 (so that a compiled model is told apart from
// model text), byte 1 the header (bit 1: EBCDIC model), then items: an
// element as (code, flags), a literal as (0x80 | n, n bytes), and a closing 0.
constexpr uint8_t kHdrEbcdic = 0x02;
constexpr uint8_t kHdrBase = 0x01;
// Bit 2: every item is a plain number element (no suffix, no fill mode) or
// a one-character separator, and there is no FX: text in exactly that
// layout can be read in one pass without the general matching.
constexpr uint8_t kHdrFixed = 0x04;
constexpr size_t kModelLimit = 209;

// Compiles a model; input = apply the input checks of ldxsti. Returns the
// length, or 0 with *err set. *territory (if given) tells whether a
// territory format (DL, DS, TS) went into the result.
size_t compile(ldxctx *ctx, const char *fmt, size_t len, uint8_t *out, size_t outsz, bool input,
               int32_t *err, bool *territory = nullptr);

// Scanner core used by ldxsnf: returns the item, -1 with *err set.
int32_t scan_next(ldxctx *ctx, ldxscan *s, int32_t *err);

// Character-set helpers.
extern const uint8_t kEbcdicToAscii[256];
extern const uint8_t kAsciiToEbcdic[256];

// Raises err through the context (ldxerr) when err != 0; returns 0 or -1.
int32_t raise(ldxctx *ctx, int32_t err);

// Spelled English numbers (0 ... 999,999,999), upper case; ordinal with th.
size_t spell(uint32_t n, bool ordinal, char *out, size_t cap);

// Stores calendar fields in a date record (the record's fields are narrow;
// callers pass values already in range).
inline void set_ymd(ldxdate *out, int32_t y, int32_t m, int32_t d) {
  out->year = static_cast<int16_t>(y);
  out->month = static_cast<int8_t>(m);
  out->day = static_cast<int8_t>(d);
}
inline void set_hms(ldxdate *out, int32_t h, int32_t mi, int32_t s) {
  out->hour = static_cast<int8_t>(h);
  out->minute = static_cast<int8_t>(mi);
  out->second = static_cast<int8_t>(s);
}
inline void set_hms(ldxdate *out, int32_t sod) {
  const Hms t = hms_of(sod);
  set_hms(out, t.hour, t.minute, t.second);
}

}  // namespace ldx_internal

#endif  // KEL_DATETIME_LDX_IMPL_H
