// Time zones of datetimes: resolving region offsets through the time-zone
// image, converting between a zone's wall clock and UTC, adjusting a value
// into another zone, and zone text ("+05:30", region names) and zone
// intervals.
//
// A region value keeps the offset in force in its zone fields; whenever an
// image is at hand the offset is looked up again rather than trusted, since
// arithmetic may have moved the value across a transition.
#include <cstring>

#include "datetime/types/ldi_impl.h"
#include "ltz.h"

using namespace ldi_internal;

namespace ldi_internal {

int32_t map_tz_status(int32_t st) {
  switch (st) {
    case 0: return 0;
    case LTZ_ERR_ARG:
    case LTZ_ERR_IMAGE:
    case LTZ_ERR_VERSION: return LDI_ERR_TZFILE;
    case LTZ_ERR_RANGE: return LDI_ERR_REGION;
    case LTZ_ERR_NOTFOUND: return LDI_ERR_NOREGION;
    default: return LDI_ERR_OUTSPACE;
  }
}

int32_t region_local_offset(const void *img, uint16_t region, const LdiDateTime &d, int32_t *secs) {
  LdiDateTime local = d;
  local.kind = LDI_KIND_TIMESTAMP;
  local.tzhour = local.tzminute = 0;
  local.region = 0;
  local.flags = 0;
  int32_t off = zone_minutes(d) * 60;  // chooses in a repeated hour
  uint8_t dst = 0;
  int32_t st = ltzGetLocal(img, region, &local, &off, &dst);
  if (st) return map_tz_status(st);
  *secs = off;
  return 0;
}

int32_t region_utc_offset(const void *img, uint16_t region, i128 utc_ns, int32_t *secs) {
  LdiDateTime u{};
  u.kind = LDI_KIND_TIMESTAMP;
  int32_t st = set_wall_ns(u, utc_ns);
  if (st) return st;
  int32_t off = 0;
  st = ltzGet(img, region, &u, &off, nullptr, 0, nullptr);
  if (st) return map_tz_status(st);
  *secs = off;
  return 0;
}

int32_t to_utc_ns(const LdiDateTime &d, const void *img, i128 *utc) {
  int32_t secs = zone_minutes(d) * 60;
  if (d.region && img && has_date(d.kind)) {
    int32_t st = region_local_offset(img, d.region, d, &secs);
    if (st) return st;
  }
  LdiDateTime v = d;
  if (v.kind == LDI_KIND_TSLTZ && v.minute > 59) v.minute = static_cast<uint8_t>(v.minute - 60);
  *utc = wall_ns(v) - static_cast<i128>(secs) * kNsPerSec;
  return 0;
}

namespace {
bool word_is(const char *s, size_t n, const char *w) {
  if (std::strlen(w) != n) return false;
  for (size_t i = 0; i < n; ++i)
    if ((s[i] | 0x20) != (w[i] | 0x20)) return false;
  return true;
}
}  // namespace

size_t zone_text(int32_t minutes, char *out) {
  const int32_t a = minutes < 0 ? -minutes : minutes;
  out[0] = minutes < 0 ? '-' : '+';
  out[1] = static_cast<char>('0' + a / 600 % 10);
  out[2] = static_cast<char>('0' + a / 60 % 10);
  out[3] = ':';
  out[4] = static_cast<char>('0' + a % 60 / 10);
  out[5] = static_cast<char>('0' + a % 10);
  return kZoneTextMax;
}

bool parse_offset(const char *s, size_t n, int32_t *minutes) {
  while (n && s[0] == ' ') ++s, --n;
  while (n && s[n - 1] == ' ') --n;
  if (word_is(s, n, "Z") || word_is(s, n, "UTC") || word_is(s, n, "GMT")) {
    *minutes = 0;
    return true;
  }
  if (n < 2 || (s[0] != '+' && s[0] != '-')) return false;
  int sign = s[0] == '-' ? -1 : 1;
  size_t i = 1;
  int32_t h = 0, m = 0, nd = 0;
  while (i < n && s[i] >= '0' && s[i] <= '9' && nd < 2) h = h * 10 + (s[i++] - '0'), ++nd;
  if (nd == 0) return false;
  if (i < n && s[i] == ':') ++i;
  if (i < n) {
    if (n - i != 2 || s[i] < '0' || s[i] > '9' || s[i + 1] < '0' || s[i + 1] > '9') return false;
    m = (s[i] - '0') * 10 + (s[i + 1] - '0');
  }
  if (m > 59 || h > 14 || (sign < 0 && h > 12) || (h == 14 && m > 0 && sign > 0)) return false;
  *minutes = sign * (h * 60 + m);
  return true;
}

int32_t parse_zone(const char *s, size_t n, const void *img, int32_t *minutes, uint16_t *region) {
  if (parse_offset(s, n, minutes)) {
    *region = 0;
    return 0;
  }
  while (n && s[0] == ' ') ++s, --n;
  while (n && s[n - 1] == ' ') --n;
  if (!img || n == 0 || s[0] == '+' || s[0] == '-' || (s[0] >= '0' && s[0] <= '9')) return LDI_ERR_TZTEXT;
  uint16_t id = 0;
  int32_t st = ltzID(img, s, n, &id);
  if (st) return st == LTZ_ERR_NOTFOUND ? LDI_ERR_NOREGION : map_tz_status(st);
  *region = id;
  *minutes = 0;
  return 0;
}

}  // namespace ldi_internal

KELAPI int32_t LdiTimeZoneAdjust(ldxctx *, LdiDateTime *d, int32_t tzhour, int32_t tzminute, uint16_t region,
                                 const void *tzimg) {
  if (!valid_kind(d->kind)) return LDI_ERR_KIND;
  if (!has_zone(d->kind)) return LDI_ERR_KIND;
  if (region > LTZ_MAX_REGION) return LDI_ERR_REGION;
  if (tzhour < -12 || tzhour > 14 || tzminute < -59 || tzminute > 59) return LDI_ERR_VALUE;
  i128 utc = 0;
  int32_t st = to_utc_ns(*d, tzimg, &utc);
  if (st) return st;
  int32_t secs = tzhour * 3600 + tzminute * 60;
  if (region && tzimg && has_date(d->kind)) {
    st = region_utc_offset(tzimg, region, utc, &secs);
    if (st) return st;
  }
  LdiDateTime r = *d;
  r.flags = static_cast<uint8_t>(r.flags & ~LDI_FLAG_SHIFTED);
  st = set_wall_ns(r, utc + static_cast<i128>(secs) * kNsPerSec);
  if (st) return st;
  set_zone_minutes(r, secs / 60);
  r.region = region;
  *d = r;
  return 0;
}

KELAPI int32_t LdiTimeZoneShift(ldxctx *, LdiDateTime *d, const LdiInterval *shift) {
  if (!valid_kind(d->kind)) return LDI_ERR_KIND;
  if (!valid_ikind(shift->kind) || ym_kind(shift->kind)) return LDI_ERR_KIND;
  i128 ns = shift->region ? (static_cast<i128>(shift->f2) * 60 + shift->f3) * 60 * kNsPerSec : inter_total(*shift);
  LdiDateTime r = *d;
  int32_t st = set_wall_ns(r, wall_ns(r) + ns);
  if (st) return st;
  *d = r;
  return 0;
}

KELAPI int32_t LdiTZ2T(const LdiDateTime *in, LdiDateTime *out, const void *tzimg) {
  if (!valid_kind(in->kind)) return LDI_ERR_KIND;
  if (!has_zone(in->kind)) return LDI_ERR_KIND;
  i128 utc = 0;
  int32_t st = to_utc_ns(*in, tzimg, &utc);
  if (st) return st;
  LdiDateTime r{};
  r.kind = in->kind == LDI_KIND_TIME_TZ ? LDI_KIND_TIME : LDI_KIND_TIMESTAMP;
  st = set_wall_ns(r, utc);
  if (st) return st;
  *out = r;
  return 0;
}

KELAPI int32_t LdiT2TZ(const LdiDateTime *utc, int32_t tzhour, int32_t tzminute, uint16_t region, LdiDateTime *out,
                       const void *tzimg) {
  if (utc->kind != LDI_KIND_TIMESTAMP) return valid_kind(utc->kind) ? LDI_ERR_KINDS : LDI_ERR_KIND;
  if (region > LTZ_MAX_REGION) return LDI_ERR_REGION;
  if (region && !tzimg) return LDI_ERR_TZFILE;
  LdiDateTime r = *utc;
  r.kind = LDI_KIND_TSTZ;
  r.tzhour = r.tzminute = 0;
  r.region = 0;
  int32_t st = LdiTimeZoneAdjust(nullptr, &r, tzhour, tzminute, region, tzimg);
  if (st) return st;
  *out = r;
  return 0;
}

KELAPI int32_t LdiFixTSLTZ(LdiDateTime *d, const LdiDateTime *sess, const void *tzimg) {
  if (d->kind != LDI_KIND_TSLTZ) return valid_kind(d->kind) ? LDI_ERR_KINDS : LDI_ERR_KIND;
  LdiDateTime r = *d;
  if (r.minute > 59) r.minute = static_cast<uint8_t>(r.minute - 60);
  r.flags = static_cast<uint8_t>(r.flags & ~LDI_FLAG_SHIFTED);
  int32_t st = LdiTimeZoneAdjust(nullptr, &r, sess->tzhour, sess->tzminute, sess->region, tzimg);
  if (st) return st;
  *d = r;
  return 0;
}

KELAPI int32_t LdiInterFromTZ(const char *tz, size_t tzlen, LdiInterval *out, const void *tzimg) {
  int32_t minutes = 0;
  uint16_t region = 0;
  int32_t st = parse_zone(tz ? tz : "", tz ? tzlen : 0, tzimg, &minutes, &region);
  if (st) return st;
  LdiInterval r{};
  r.kind = LDI_IKIND_HOUR_MINUTE;
  r.f2 = minutes / 60;
  r.f3 = minutes % 60;
  if (region) {
    r.region = 1;
    r.f1 = region;
  }
  *out = r;
  return 0;
}

KELAPI int32_t LdiInterToTZ(const LdiInterval *iv, char *out, size_t outsz, size_t *len, const void *tzimg) {
  if (iv->region) {
    if (!tzimg) return LDI_ERR_TZFILE;
    size_t n = 0;
    int32_t st = ltzName(tzimg, static_cast<uint16_t>(iv->f1), out, outsz, &n);
    if (st) return map_tz_status(st);
    *len = n;
    return 0;
  }
  // Only a zone's offset has a zone text.
  const int64_t m = int64_t{iv->f2} * 60 + iv->f3;
  if (m < -(14 * 60 + 59) || m > 14 * 60 + 59) return LDI_ERR_TZTEXT;
  char buf[kZoneTextMax];
  size_t n = zone_text(static_cast<int32_t>(m), buf);
  if (n > outsz) return LDI_ERR_OUTSPACE;
  std::memcpy(out, buf, n);
  *len = n;
  return 0;
}
