// ldi_impl.h - internals of the datetime and interval types shared by the
// datetime/types/*.cpp files and their tests: kind predicates, the interval
// kind table, exact totals of datetimes and intervals, and zone helpers.
//
// Arithmetic is done on exact totals: a datetime becomes nanoseconds since
// the start of day number 0 (its wall clock), an interval either a month
// count (year-month family) or a nanosecond count (day-second family). The
// largest day-second interval (10^9 - 1 days) does not fit 64 bits in
// nanoseconds, so those totals are 128-bit.
#ifndef KEL_DATETIME_LDI_IMPL_H
#define KEL_DATETIME_LDI_IMPL_H

#include <cstdint>

#include "datetime/calendar/ldx_impl.h"
#include "ldi.h"

namespace ldi_internal {

using i128 = __int128;

constexpr int64_t kNsPerSec = 1000000000;
constexpr int64_t kNsPerDay = 86400 * kNsPerSec;
using ldx_internal::kMaxJday;
constexpr int32_t kPow10[10] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};

// ------------------------------------------------------------------ kinds
constexpr bool valid_kind(int k) { return k == 1 || k == 2 || k == 3 || k == 4 || k == 5 || k == 7; }
constexpr bool has_date(int k) { return k != LDI_KIND_TIME && k != LDI_KIND_TIME_TZ; }
constexpr bool has_time(int k) { return k != LDI_KIND_DATE; }
constexpr bool has_zone(int k) { return k == LDI_KIND_TIME_TZ || k == LDI_KIND_TSTZ || k == LDI_KIND_TSLTZ; }

// Interval kinds: family, first and last unit (year-month: 0 years, 1
// months; day-second: 0 days, 1 hours, 2 minutes, 3 seconds), and whether a
// fraction is held. Units sit in f1 ... f4 by number, whatever the kind.
struct IKind {
  bool ym;
  uint8_t first, last;
  bool frac;
};
constexpr IKind kIKinds[14] = {
    {false, 0, 0, false},                                                          // 0 unused
    {true, 0, 0, false},  {true, 1, 1, false},  {false, 0, 0, false},  {false, 1, 1, false},
    {false, 2, 2, false}, {false, 3, 3, true},  {true, 0, 1, false},   {false, 0, 1, false},
    {false, 0, 2, false}, {false, 0, 3, true},  {false, 1, 2, false},  {false, 1, 3, true},
    {false, 2, 3, true},
};
constexpr bool valid_ikind(int k) { return k >= 1 && k <= 13; }
constexpr bool ym_kind(int k) { return k == 1 || k == 2 || k == 7; }

inline int32_t field(const LdiInterval &iv, int u) {
  const int32_t f[4] = {iv.f1, iv.f2, iv.f3, iv.f4};
  return f[u];
}
inline void set_field(LdiInterval &iv, int u, int32_t v) {
  int32_t *f[4] = {&iv.f1, &iv.f2, &iv.f3, &iv.f4};
  *f[u] = v;
}

// Nanoseconds in one day-second unit.
constexpr int64_t kUnitNs[4] = {kNsPerDay, 3600 * kNsPerSec, 60 * kNsPerSec, kNsPerSec};

// Exact totals of an interval: months (year-month) or nanoseconds.
inline i128 inter_total(const LdiInterval &iv) {
  if (ym_kind(iv.kind)) return static_cast<i128>(iv.f1) * 12 + iv.f2;
  i128 t = 0;
  for (int u = 0; u < 4; ++u) t += static_cast<i128>(field(iv, u)) * kUnitNs[u];
  return t + iv.fraction;
}
// Spreads a total over the fields of `kind` (units before the first go into
// the leading field, units after the last are cut toward zero). Returns 0 or
// LDI_ERR_OVERFLOW when the leading field leaves 32 bits.
int32_t inter_from_total(i128 total, uint8_t kind, LdiInterval *out);

// 0, or the status of an invalid interval (kind, sign, field ranges, leading
// precision when leadprec >= 0).
int32_t inter_check(const LdiInterval &iv, int32_t leadprec);

// Wall clock of a datetime in nanoseconds since the start of day number 0
// (time kinds: since midnight).
inline i128 wall_ns(const LdiDateTime &d) {
  int64_t s = has_date(d.kind) ? ldx_internal::to_seconds(d.year, d.month, d.day, d.hour, d.minute, d.second)
                                : d.hour * 3600 + d.minute * 60 + d.second;
  return static_cast<i128>(s) * kNsPerSec + d.fraction;
}
// Sets the wall-clock fields from wall_ns (date kinds: 1841 when the day
// number leaves 1 ... 5373484; time kinds wrap around midnight).
int32_t set_wall_ns(LdiDateTime &d, i128 ns);

// The zone offset of a record in minutes.
inline int32_t zone_minutes(const LdiDateTime &d) { return d.tzhour * 60 + d.tzminute; }
inline void set_zone_minutes(LdiDateTime &d, int32_t m) {
  d.tzhour = static_cast<int8_t>(m / 60);
  d.tzminute = static_cast<int8_t>(m % 60);
}
// Status of a failed time-zone lookup.
int32_t map_tz_status(int32_t st);
// Offset (seconds) of region `region` at the wall clock of d, the stored
// offset choosing in a repeated hour. 0 or a status.
int32_t region_local_offset(const void *img, uint16_t region, const LdiDateTime &d, int32_t *secs);
// Offset (seconds) of the region at a UTC instant given as wall_ns.
int32_t region_utc_offset(const void *img, uint16_t region, i128 utc_ns, int32_t *secs);
// The UTC instant (wall_ns form) of a zoned value.
int32_t to_utc_ns(const LdiDateTime &d, const void *img, i128 *utc);

// Round half up of the fraction to p digits on the raw fields.
int32_t round_fs(LdiDateTime &d, int32_t p);

// An offset in minutes (within +-14:59) as zone text "+hh:mm" / "-hh:mm";
// returns the length, kZoneTextMax.
constexpr size_t kZoneTextMax = 6;
size_t zone_text(int32_t minutes, char *out);
// Zone text: "+hh:mm", "-h:mm", "+hh", "UTC", "Z", "GMT" -> minutes (true),
// else false.
bool parse_offset(const char *s, size_t n, int32_t *minutes);
// Zone text that may also be a region name. 0 or a status.
int32_t parse_zone(const char *s, size_t n, const void *img, int32_t *minutes, uint16_t *region);

// The calendar fields of a datetime as the date kernel's record (fractions
// and zone dropped); a value without a date stands on 1 January 2000.
inline ldxdate as_ldx(const LdiDateTime &d) {
  ldxdate x{};
  x.year = has_date(d.kind) ? d.year : int16_t{2000};
  x.month = static_cast<int8_t>(has_date(d.kind) ? d.month : 1);
  x.day = static_cast<int8_t>(has_date(d.kind) ? d.day : 1);
  x.hour = static_cast<int8_t>(d.hour);
  x.minute = static_cast<int8_t>(d.minute);
  x.second = static_cast<int8_t>(d.second);
  return x;
}
// And back: the date fields, and the time of day fields.
inline void set_date(LdiDateTime &d, const ldxdate &x) {
  d.year = x.year;
  d.month = static_cast<uint8_t>(x.month);
  d.day = static_cast<uint8_t>(x.day);
}
inline void set_time(LdiDateTime &d, const ldxdate &x) {
  d.hour = static_cast<uint8_t>(x.hour);
  d.minute = static_cast<uint8_t>(x.minute);
  d.second = static_cast<uint8_t>(x.second);
}
inline void set_time(LdiDateTime &d, int32_t sod) {
  const ldx_internal::Hms t = ldx_internal::hms_of(sod);
  d.hour = static_cast<uint8_t>(t.hour);
  d.minute = static_cast<uint8_t>(t.minute);
  d.second = static_cast<uint8_t>(t.second);
}

}  // namespace ldi_internal

#endif  // KEL_DATETIME_LDI_IMPL_H
