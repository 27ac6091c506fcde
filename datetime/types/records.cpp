// Datetime and interval records: validity checks, construction and copies,
// rounding of fractional seconds, comparison and the external byte forms.
//
// Sections: checks; construction; rounding; comparison; byte forms.
#include <cstring>

#include "datetime/types/key_impl.h"
#include "datetime/types/ldi_impl.h"
#include "ltz.h"

using namespace ldi_internal;


namespace {

uint32_t zone_flags(int32_t tzh, int32_t tzm, uint32_t region) {
  if (tzh < -12 || tzh > 14 || tzm < -59 || tzm > 59 || region > LTZ_MAX_REGION) return LDI_CHK_ZONE;
  return 0;
}

// Offset of the fields of each kind's byte form: date part (4 bytes or -1),
// time part (3 bytes), fraction, zone; and the form's length.
struct Form {
  int8_t date, time, frac, zone;
  uint8_t len;
};
constexpr Form form_of(int kind, bool frac) {
  switch (kind) {
    case 1: return {0, -1, -1, -1, 4};
    case 2: return {-1, 0, 3, -1, 7};
    case 3:
    case 7: return frac ? Form{0, 4, 7, -1, 11} : Form{0, 4, -1, -1, 7};
    case 4: return {-1, 0, 3, 7, 9};
    default: return {0, 4, 7, 11, 13};
  }
}

void put32(uint8_t *p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}
uint32_t get32(const uint8_t *p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

}  // namespace

// --------------------------------------------------------------------- checks

KELAPI uint32_t LdiDateCheck(const void *rec, int32_t mode, uint8_t kind) {
  if (!rec) return 0x8000;
  if (mode == 0) {
    const LdiDateTime &d = *static_cast<const LdiDateTime *>(rec);
    if (!valid_kind(d.kind)) return 0x8000;
    uint32_t f = 0;
    if (has_date(d.kind)) {
      ldxdate x = as_ldx(d);
      x.hour = x.minute = x.second = 0;
      f |= ldxchk(nullptr, &x, 0);
    }
    if (has_time(d.kind)) {
      ldxdate x{2000, 1, 1, 0, 0, 0, 0};
      int32_t mi = d.minute;
      // A kind-7 minute may carry +60 from a zone adjustment.
      if (d.kind == LDI_KIND_TSLTZ && mi >= 60 && mi <= 119) mi -= 60;
      x.hour = static_cast<int8_t>(d.hour > 127 ? -1 : d.hour);
      x.minute = static_cast<int8_t>(mi > 127 ? -1 : mi);
      x.second = static_cast<int8_t>(d.second > 127 ? -1 : d.second);
      f |= ldxchk(nullptr, &x, 0);
      if (d.fraction >= static_cast<uint32_t>(kNsPerSec)) f |= 0x0400;
    }
    if (has_zone(d.kind)) f |= zone_flags(d.tzhour, d.tzminute, d.region);
    return f;
  }
  if (mode != 2 || !valid_kind(kind)) return 0x8000;
  const uint8_t *b = static_cast<const uint8_t *>(rec);
  Form fm = form_of(kind, true);
  uint32_t f = 0;
  if (fm.date >= 0) {
    uint8_t x[7] = {b[0], b[1], b[2], b[3], 1, 1, 1};
    f |= ldxchk(nullptr, x, 2);
  }
  if (fm.time >= 0) {
    uint8_t x[7] = {120, 100, 1, 1, b[fm.time], b[fm.time + 1], b[fm.time + 2]};
    f |= ldxchk(nullptr, x, 2);
    if (get32(b + fm.frac) >= static_cast<uint32_t>(kNsPerSec)) f |= 0x0400;
  }
  if (fm.zone >= 0) {
    uint8_t h = b[fm.zone], m = b[fm.zone + 1];
    if (!(h & 0x80) && (h < 8 || h > 34 || m < 1 || m > 119)) f |= LDI_CHK_ZONE;
  }
  return f;
}

KELAPI int32_t LdiDateComparable(const LdiDateTime *a, const LdiDateTime *b) {
  if (!valid_kind(a->kind) || !valid_kind(b->kind)) return LDI_ERR_KIND;
  return a->kind == b->kind ? 0 : LDI_ERR_KINDS;
}

KELAPI int32_t LdiDefaultCheck(const LdiDateTime *d) {
  if (!valid_kind(d->kind)) return LDI_ERR_KIND;
  return LdiDateCheck(d, 0, 0) ? LDI_ERR_VALUE : 0;
}

KELAPI int32_t LdiInterCheck(const LdiInterval *iv, int32_t leadprec, int32_t fracprec) {
  if (fracprec < 0 || fracprec > 9 || leadprec < 0 || leadprec > 9) return LDI_ERR_PREC;
  return inter_check(*iv, leadprec);
}

KELAPI int32_t LdiInterComparable(const LdiInterval *a, const LdiInterval *b) {
  if (!valid_ikind(a->kind) || !valid_ikind(b->kind)) return LDI_ERR_KIND;
  return ym_kind(a->kind) == ym_kind(b->kind) ? 0 : LDI_ERR_KINDS;
}

// --------------------------------------------------------------- construction

KELAPI int32_t LdiDateConstruct(ldxctx *, LdiDateTime *out, int32_t year, int32_t month, int32_t day,
                                int32_t hour, int32_t minute, int32_t second, uint32_t fraction,
                                int32_t tzhour, int32_t tzminute, uint16_t region, uint8_t kind,
                                const void *tzimg) {
  if (!valid_kind(kind)) return LDI_ERR_KIND;
  LdiDateTime d{};
  d.kind = kind;
  if (has_date(kind)) {
    if (year < -4712 || year > 9999) return LDI_ERR_VALUE;
    if (month < 0 || month > 255 || day < 0 || day > 255) return LDI_ERR_VALUE;
    d.year = static_cast<int16_t>(year);
    d.month = static_cast<uint8_t>(month);
    d.day = static_cast<uint8_t>(day);
  }
  if (has_time(kind)) {
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59)
      return LDI_ERR_VALUE;
    d.hour = static_cast<uint8_t>(hour);
    d.minute = static_cast<uint8_t>(minute);
    d.second = static_cast<uint8_t>(second);
    d.fraction = fraction;
  }
  if (has_zone(kind)) {
    if (region > LTZ_MAX_REGION) return LDI_ERR_REGION;
    if (tzhour < -12 || tzhour > 14 || tzminute < -59 || tzminute > 59) return LDI_ERR_VALUE;
    d.tzhour = static_cast<int8_t>(tzhour);
    d.tzminute = static_cast<int8_t>(tzminute);
    d.region = region;
  }
  if (LdiDateCheck(&d, 0, 0)) return LDI_ERR_VALUE;
  if (d.region && tzimg) {
    int32_t secs = 0;
    int32_t st = region_local_offset(tzimg, d.region, d, &secs);
    if (st) return st;
    set_zone_minutes(d, secs / 60);
  }
  *out = d;
  return 0;
}

KELAPI int32_t LdiDateConstructN(ldxctx *ctx, LdiDateTime *out, int32_t year, int32_t month, int32_t day,
                                 int32_t hour, int32_t minute, int32_t second, uint32_t fraction,
                                 const char *tz, size_t tzlen, uint8_t kind, const void *tzimg) {
  int32_t minutes = 0;
  uint16_t region = 0;
  if (tz && tzlen) {
    int32_t st = parse_zone(tz, tzlen, tzimg, &minutes, &region);
    if (st) return st;
  }
  return LdiDateConstruct(ctx, out, year, month, day, hour, minute, second, fraction, minutes / 60,
                          minutes % 60, region, kind, tzimg);
}

KELAPI int32_t LdiDateCopy(const LdiDateTime *src, LdiDateTime *dst) {
  *dst = *src;
  return 0;
}

KELAPI int32_t LdiInterConstruct(LdiInterval *out, int32_t f1, int32_t f2, int32_t f3, int32_t f4,
                                 int32_t fraction, uint8_t kind, int32_t leadprec, int32_t fracprec) {
  if (!valid_ikind(kind)) return LDI_ERR_KIND;
  if (leadprec < 0 || leadprec > 9 || fracprec < 0 || fracprec > 9) return LDI_ERR_PREC;
  LdiInterval iv{f1, f2, f3, f4, fraction, kind, 0, 0};
  int32_t st = inter_check(iv, -1);
  if (st) return st;
  st = LdiInterRoundFS(&iv, leadprec, fracprec);
  if (st) return st;
  *out = iv;
  return 0;
}

KELAPI int32_t LdiInterCopy(const LdiInterval *src, LdiInterval *dst) {
  *dst = *src;
  return 0;
}

// ------------------------------------------------------------------- rounding

KELAPI int32_t LdiDateRoundFS(LdiDateTime *d, int32_t fsprec) {
  if (!valid_kind(d->kind)) return LDI_ERR_KIND;
  return round_fs(*d, fsprec);
}

KELAPI int32_t LdiInterRoundFS(LdiInterval *iv, int32_t leadprec, int32_t fsprec) {
  if (!valid_ikind(iv->kind)) return LDI_ERR_KIND;
  if (fsprec < 0 || leadprec < 0 || leadprec > 9) return LDI_ERR_PREC;
  LdiInterval r = *iv;
  if (kIKinds[iv->kind].frac && fsprec < 9) {
    i128 t = inter_total(r);
    int64_t unit = kPow10[9 - fsprec];
    i128 q = (t < 0 ? t - unit / 2 : t + unit / 2) / unit;
    int32_t st = inter_from_total(q * unit, r.kind, &r);
    if (st) return st;
  }
  int32_t st = inter_check(r, leadprec);
  if (st) return st;
  *iv = r;
  return 0;
}

// ----------------------------------------------------------------- comparison

namespace {

// Kind 7 values of different zones meet in a's zone first; a minute marked
// by a zone adjustment carries +60. Equal wall clocks of one region are
// ordered by their offsets: the larger offset is the earlier instant.
[[gnu::noinline]] int32_t compare_local(const LdiDateTime &a, const LdiDateTime &b, int32_t *result,
                                        const void *tzimg) {
  LdiDateTime x = a, y = b;
  if (x.minute > 59) x.minute = static_cast<uint8_t>(x.minute - 60);
  if (y.minute > 59) y.minute = static_cast<uint8_t>(y.minute - 60);
  if (x.tzhour != y.tzhour || x.tzminute != y.tzminute || x.region != y.region) {
    int32_t st = LdiTimeZoneAdjust(nullptr, &y, x.tzhour, x.tzminute, x.region, tzimg);
    if (st) return st;
  }
  const int64_t kx = static_cast<int64_t>(date_key(x)), ky = static_cast<int64_t>(date_key(y));
  int32_t r = kx != ky ? (kx < ky ? -1 : 1) : (x.fraction > y.fraction) - (x.fraction < y.fraction);
  if (r == 0 && x.region == y.region) {
    if (x.tzhour != y.tzhour) r = x.tzhour > y.tzhour ? -1 : 1;
    else if (x.tzminute != y.tzminute) r = x.tzminute > y.tzminute ? -1 : 1;
  }
  *result = r;
  return 0;
}

// The fields each kind compares (index: kind 0 ... 7), as a mask of the key
// and of the fraction; kind 7 takes compare_local, kinds 0 and 6 none.
constexpr uint64_t kCompareKey[8] = {0, kKeyDate, kKeyTime, kKeyAll, kKeyTime, kKeyAll, 0, kKeyAll};
constexpr uint32_t kCompareFrac[8] = {0, 0, ~0u, ~0u, ~0u, ~0u, 0, ~0u};

}  // namespace

KELAPI int32_t LdiDateCompare(const LdiDateTime *a, const LdiDateTime *b, int32_t *result, const void *tzimg) {
  const uint32_t k = a->kind;
  if (k == b->kind && k - 1u < 5u) {
    // Kinds 1 ... 5: the fields in order as one signed key, then the
    // fraction, without branches on the data (sorted or random input would
    // mispredict them).
    const int64_t x = static_cast<int64_t>(date_key(*a) & kCompareKey[k]);
    const int64_t y = static_cast<int64_t>(date_key(*b) & kCompareKey[k]);
    const uint32_t fa = a->fraction & kCompareFrac[k], fb = b->fraction & kCompareFrac[k];
    const int32_t r = (x > y) - (x < y), rf = (fa > fb) - (fa < fb);
    *result = r ? r : rf;
    return 0;
  }
  if (k != b->kind) return valid_kind(k) && valid_kind(b->kind) ? LDI_ERR_KINDS : LDI_ERR_KIND;
  if (k != LDI_KIND_TSLTZ) return LDI_ERR_KIND;
  return compare_local(*a, *b, result, tzimg);
}

KELAPI int32_t LdiDateDateSwap(LdiDateTime *a, LdiDateTime *b, int32_t *swapped, const void *tzimg) {
  int32_t r = 0;
  int32_t st = LdiDateCompare(a, b, &r, tzimg);
  if (st) return st;
  if (r > 0) {
    LdiDateTime t = *a;
    *a = *b;
    *b = t;
  }
  if (swapped) *swapped = r > 0;
  return 0;
}

KELAPI int32_t LdiInterCompare(const LdiInterval *a, const LdiInterval *b, int32_t *result) {
  int32_t st = LdiInterComparable(a, b);
  if (st) return st;
  i128 x = inter_total(*a), y = inter_total(*b);
  *result = x < y ? -1 : x > y;
  return 0;
}

// ----------------------------------------------------------------- byte forms

KELAPI int32_t LdiDateToArray(const LdiDateTime *d, int32_t fsprec, const LdiDateTime *zone, uint8_t *out,
                              size_t outsz, size_t *len, const void *tzimg) {
  if (!valid_kind(d->kind)) return LDI_ERR_KIND;
  if (fsprec < 0 || fsprec > 9) return LDI_ERR_PREC;
  LdiDateTime v = *d;
  if (v.kind == LDI_KIND_TSLTZ && zone) {
    int32_t st = LdiTimeZoneAdjust(nullptr, &v, zone->tzhour, zone->tzminute, zone->region, tzimg);
    if (st) return st;
  }
  int32_t st = round_fs(v, fsprec);
  if (st) return st;
  bool frac = fsprec != 0 && v.fraction != 0;
  Form fm = form_of(v.kind, frac);
  if (outsz < fm.len) return LDI_ERR_OUTSPACE;
  uint8_t ext[7];
  ldx_internal::to_ext7(as_ldx(v), ext);
  if (fm.date >= 0) std::memcpy(out + fm.date, ext, 4);
  if (fm.time >= 0) std::memcpy(out + fm.time, ext + 4, 3);
  if (fm.frac >= 0) put32(out + fm.frac, v.fraction);
  if (fm.zone >= 0) {
    if (v.region) {
      out[fm.zone] = static_cast<uint8_t>((v.region >> 6) | 0x80);
      out[fm.zone + 1] = static_cast<uint8_t>((v.region * 4) & 0xFF);
    } else {
      out[fm.zone] = static_cast<uint8_t>(v.tzhour + 20);
      out[fm.zone + 1] = static_cast<uint8_t>(v.tzminute + 60);
    }
  }
  *len = fm.len;
  return 0;
}

KELAPI int32_t LdiDateFromArray(const uint8_t *in, size_t len, uint8_t kind, LdiDateTime *out) {
  if (!valid_kind(kind)) return LDI_ERR_KIND;
  bool frac = (kind == 3 || kind == 7) ? len >= 11 : true;
  Form fm = form_of(kind, frac);
  if (len < fm.len) return LDI_ERR_OUTSPACE;
  // Gathered into the 13-byte layout so that the check sees one shape.
  uint8_t full[13] = {120, 100, 1, 1, 1, 1, 1, 0, 0, 0, 0, 20, 60};
  LdiDateTime d{};
  d.kind = kind;
  uint8_t ext[7] = {120, 100, 1, 1, 1, 1, 1};
  if (fm.date >= 0) std::memcpy(ext, in + fm.date, 4);
  if (fm.time >= 0) std::memcpy(ext + 4, in + fm.time, 3);
  std::memcpy(full, ext, 7);
  if (fm.frac >= 0) std::memcpy(full + 7, in + fm.frac, 4);
  if (fm.zone >= 0) std::memcpy(full + 11, in + fm.zone, 2);
  if (LdiDateCheck(full, 2, LDI_KIND_TSTZ)) return LDI_ERR_VALUE;
  ldxdate x{};
  ldx_internal::from_ext7(ext, &x);
  if (has_date(kind)) set_date(d, x);
  if (has_time(kind)) {
    set_time(d, x);
    d.fraction = get32(full + 7);
  }
  if (fm.zone >= 0) {
    uint8_t h = full[11], m = full[12];
    if (h & 0x80) {
      d.region = static_cast<uint16_t>(((h & 0x7F) << 6) | (m >> 2));
    } else {
      d.tzhour = static_cast<int8_t>(h - 20);
      d.tzminute = static_cast<int8_t>(m - 60);
    }
  }
  if (LdiDateCheck(&d, 0, 0)) return LDI_ERR_VALUE;
  *out = d;
  return 0;
}

KELAPI int32_t LdiInterToArray(const LdiInterval *iv, int32_t leadprec, int32_t fracprec, uint8_t *out,
                               size_t outsz, size_t *len) {
  if (!valid_ikind(iv->kind)) return LDI_ERR_KIND;
  const IKind &k = kIKinds[iv->kind];
  size_t n = 4 + (k.last - k.first) + (k.frac ? 4 : 0);
  if (outsz < n) return LDI_ERR_OUTSPACE;
  std::memset(out, 0, n);
  LdiInterval r = *iv;
  int32_t st = LdiInterRoundFS(&r, leadprec, k.frac ? fracprec : 9);
  if (st) return st;
  put32(out, static_cast<uint32_t>(field(r, k.first)) + 0x80000000u);
  size_t p = 4;
  for (int u = k.first + 1; u <= k.last; ++u) out[p++] = static_cast<uint8_t>(field(r, u) + 60);
  if (k.frac) put32(out + p, static_cast<uint32_t>(r.fraction) + 0x80000000u);
  *len = n;
  return 0;
}

KELAPI int32_t LdiInterFromArray(const uint8_t *in, size_t len, uint8_t kind, LdiInterval *out) {
  if (!valid_ikind(kind)) return LDI_ERR_KIND;
  const IKind &k = kIKinds[kind];
  size_t n = 4 + (k.last - k.first) + (k.frac ? 4 : 0);
  if (len < n) return LDI_ERR_OUTSPACE;
  LdiInterval r{};
  r.kind = kind;
  set_field(r, k.first, static_cast<int32_t>(get32(in) - 0x80000000u));
  size_t p = 4;
  for (int u = k.first + 1; u <= k.last; ++u) set_field(r, u, int32_t{in[p++]} - 60);
  if (k.frac) r.fraction = static_cast<int32_t>(get32(in + p) - 0x80000000u);
  int32_t st = inter_check(r, -1);
  if (st) return st;
  *out = r;
  return 0;
}
