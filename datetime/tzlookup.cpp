// Time-zone image: offset lookups and transition lists.
//
// A region owns records f ... f + n - 1 of the transition table, each a UTC
// instant in the datetime record layout, in ascending order; record f is the
// state at the start of the covered years. For each record the
// transition-to-type map gives a local-time type (UTC offset, abbreviation)
// and the daylight-flag array its flag.
//
// Sections: region access (bounds checks done once per call), UTC instant to
// state, local time to state, transition lists, allocation of caller blocks.
//
// The records are sorted, so "the first record later than the instant" is
// found by binary search rather than a walk; the answer is the same.
#include <bit>
#include <cstring>

#include "datetime/tz_datetime_impl.h"
#include "datetime/tz_lookup_impl.h"
#include "lmm.h"
#include "ltz.h"
#include "sl.h"

namespace ltz_internal {
namespace {

// ------------------------------------------------------------ region access

struct Region {
  ImageView v;
  uint32_t f = 0;      // first record
  uint32_t n = 0;      // record count (>= 1)
  uint32_t trans = 0;  // table offsets
  uint32_t map = 0;
  uint32_t types = 0;
  uint32_t dst = 0;
};

int32_t open_region(const void *image, uint16_t id, Region &r) {
  int32_t st = open_image(image, r.v);
  if (st != LTZ_OK) return st;
  if (id < 1 || id > LTZ_MAX_REGION) return LTZ_ERR_RANGE;
  const ImageView &v = r.v;
  uint32_t slot = kOffDirectory + (id & (kSlots - 1)) * kSlotSize;
  r.n = v.u16(slot);
  r.f = v.u16(slot + 2);
  if (r.n == 0) return LTZ_ERR_NOTFOUND;
  r.trans = v.u32(kOffTrans);
  r.map = v.u32(kOffMap);
  r.types = v.u32(kOffTypes);
  r.dst = v.u32(kOffDst);
  uint64_t end = static_cast<uint64_t>(r.f) + r.n;
  if (!v.has(r.trans, end * kRecordSize) || !v.has(r.map, end * 2) || !v.has(r.dst, end)) return LTZ_ERR_IMAGE;
  return LTZ_OK;
}

// Comparison key of a datetime: the fields in order of significance, the
// fraction in the low 32 bits, so that one integer comparison orders two
// datetimes.
using Key = unsigned __int128;

inline Key key_of(const LdiDateTime &d) {
  uint64_t k = (static_cast<uint64_t>(static_cast<uint16_t>(d.year) ^ 0x8000u) << 48) |
               (static_cast<uint64_t>(d.month) << 40) | (static_cast<uint64_t>(d.day) << 32) |
               (static_cast<uint64_t>(d.hour) << 24) | (static_cast<uint64_t>(d.minute) << 16) |
               (static_cast<uint64_t>(d.second) << 8);
  return (static_cast<Key>(k) << 32) | d.fraction;
}

inline LdiDateTime record(const Region &r, uint32_t i) {
  LdiDateTime d;
  std::memcpy(&d, r.v.p + r.trans + static_cast<size_t>(i) * kRecordSize, sizeof d);
  return d;
}

// key_of for record i, straight from its bytes: bytes 2 ... 6 (month ...
// second) are already in order of significance once the first eight bytes
// are read as one big-endian number; the year is put on top.
inline Key record_key(const Region &r, uint32_t i) {
  const uint8_t *p = r.v.p + r.trans + static_cast<size_t>(i) * kRecordSize;
  uint64_t x;
  std::memcpy(&x, p, 8);
  if constexpr (std::endian::native == std::endian::little) x = __builtin_bswap64(x);
  uint64_t year = static_cast<uint64_t>(p[0] | p[1] << 8) ^ 0x8000u;
  uint32_t frac = static_cast<uint32_t>(p[8]) | static_cast<uint32_t>(p[9]) << 8 |
                  static_cast<uint32_t>(p[10]) << 16 | static_cast<uint32_t>(p[11]) << 24;
  return (static_cast<Key>((year << 48) | (x & 0x0000FFFFFFFFFF00ull)) << 32) | frac;
}

// The first record among lo ... hi - 1 that is later than t (hi when none
// is), for records in ascending order. The loop has no data-dependent
// branch, which matters because lookups of unrelated instants defeat the
// branch predictor.
uint32_t first_later(const Region &r, uint32_t lo, uint32_t hi, Key t) {
  if (lo >= hi) return hi;
  uint32_t base = lo, n = hi - lo;
  while (n > 1) {
    uint32_t half = n / 2;
    base = record_key(r, base + half) <= t ? base + half : base;
    n -= half;
  }
  return base + (record_key(r, base) <= t ? 1 : 0);
}

// Local-time type of record i: offset and abbreviation offset.
int32_t type_of(const Region &r, uint32_t i, int32_t &offset, uint32_t *abbr) {
  uint32_t t = r.v.u16(r.map + 2 * i);
  uint64_t e = r.types + static_cast<uint64_t>(t) * kTypeEntrySize;
  if (!r.v.has(e, kTypeEntrySize)) return LTZ_ERR_IMAGE;
  offset = static_cast<int32_t>(r.v.u32(static_cast<uint32_t>(e)));
  if (abbr != nullptr) *abbr = r.v.u32(static_cast<uint32_t>(e) + 4);
  return LTZ_OK;
}

// Writes the results of record i (absolute number) to the caller.
int32_t report(const Region &r, uint32_t i, int32_t *offset, char *abbr, size_t abbrlen, uint8_t *dst) {
  int32_t off = 0;
  uint32_t a = 0;
  int32_t st = type_of(r, i, off, &a);
  if (st != LTZ_OK) return st;
  if (abbr != nullptr) {
    int64_t n = r.v.strlen_at(a);
    if (n < 0) return LTZ_ERR_IMAGE;
    st = copy_out(r.v, a, static_cast<size_t>(n), abbr, abbrlen);
    if (st != LTZ_OK) return st;
  }
  *offset = off;
  if (dst != nullptr) *dst = r.v.p[r.dst + i];
  return LTZ_OK;
}

// ------------------------------------------------------ UTC instant to state

int32_t get_utc(const void *image, uint16_t id, const LdiDateTime *utc, int32_t *offset, char *abbr,
                size_t abbrlen, uint8_t *dst, uint32_t *index) {
  if (image == nullptr || utc == nullptr || offset == nullptr) return LTZ_ERR_ARG;
  Region r;
  int32_t st = open_image(image, r.v);
  if (st != LTZ_OK) return st;
  if (utc->kind != LDI_KIND_TIMESTAMP) return LTZ_ERR_IMAGE;
  st = open_region(image, id, r);
  if (st != LTZ_OK) return st;

  const Key t = key_of(*utc);
  // First record among f + 1 ... f + n - 1 later than the instant.
  uint32_t lo = first_later(r, r.f + 1, r.f + r.n, t);
  uint32_t res = lo - 1;  // the last record passed, or f when none was
  uint32_t rel = res - r.f;
  if (res == r.f && r.n > 1 && utc->year == 0 && utc->month == 0 && utc->day == 0 &&
      t < record_key(r, r.f)) {
    res = r.f + 1;  // a time-only value reads the first real state
    rel = 0;
  }
  st = report(r, res, offset, abbr, abbrlen, dst);
  if (st == LTZ_OK && index != nullptr) *index = rel;
  return st;
}

// ------------------------------------------------------ local time to state
//
// Transition j happens at UTC instant T(j). On the local clock it is read as
// A(j) = T(j) + offset(j - 1) just before and B(j) = T(j) + offset(j) just
// after (offsets in whole minutes). When B > A the local times [A, B) do not
// exist (clocks go forward); when B < A the local times [B, A) happen twice.
// The first j whose later reading max(A, B) is still ahead of the local time
// decides: before min(A, B) the state is j - 1; in a gap it is j - 1 as
// well (the time is read on the clock that was running); in a repeated
// stretch it is j unless the caller's offset names the earlier one.

struct Sec {
  int64_t s;
  uint32_t frac;
};
inline bool earlier(const Sec &a, const Sec &b) { return a.s < b.s || (a.s == b.s && a.frac < b.frac); }

// Midnight at least two days (more than any offset) before d, on the
// fields alone: an earlier floor only makes the walk a little longer.
inline Key two_days_before(const LdiDateTime &d) {
  LdiDateTime f = d;
  f.hour = f.minute = f.second = 0;
  f.fraction = 0;
  if (f.day > 2) {
    f.day = static_cast<uint8_t>(f.day - 2);
  } else if (f.month > 1) {
    f.month = static_cast<uint8_t>(f.month - 1);
    f.day = 26;
  } else {
    f.year = static_cast<int16_t>(f.year - 1);
    f.month = 12;
    f.day = 26;
  }
  return key_of(f);
}

inline int64_t whole_minutes(int32_t off) { return static_cast<int64_t>(off / 60) * 60; }

// The two clock readings of transition j.
int32_t readings(const Region &r, uint32_t j, Sec &a, Sec &b) {
  int32_t before = 0, after = 0;
  if (type_of(r, j - 1, before, nullptr) != LTZ_OK || type_of(r, j, after, nullptr) != LTZ_OK)
    return LTZ_ERR_IMAGE;
  LdiDateTime d = record(r, j);
  int64_t t = ldi_internal::to_seconds(d);
  a = {t + whole_minutes(before), d.fraction};
  b = {t + whole_minutes(after), d.fraction};
  return LTZ_OK;
}

int32_t get_local(const void *image, uint16_t id, const LdiDateTime *local, int32_t *offset, char *abbr,
                  size_t abbrlen, uint8_t *dst, uint32_t start, uint32_t *index) {
  if (image == nullptr || local == nullptr || offset == nullptr) return LTZ_ERR_ARG;
  Region r;
  int32_t st = open_image(image, r.v);
  if (st != LTZ_OK) return st;
  if (local->kind != LDI_KIND_TIMESTAMP) return LTZ_ERR_IMAGE;
  st = open_region(image, id, r);
  if (st != LTZ_OK) return st;

  const Sec l = {ldi_internal::to_seconds(*local), local->fraction};
  // No clock is more than 26 hours away from UTC (beyond anything the
  // zoneinfo format can express), so transitions at
  // UTC instants up to the local time minus that bound are behind us whatever
  // their offsets; a binary search on the stored instants skips them, and a
  // short walk with the clock readings settles the rest.
  const Key floor_key = two_days_before(*local);
  uint32_t lo = r.f + 1, hi = r.f + r.n;
  Sec a{}, b{};
  // The hint: when the local time is past transition `start`, search after it.
  if (start != LTZ_NO_HINT && start >= 1 && start < r.n) {
    if (readings(r, r.f + start, a, b) != LTZ_OK) return LTZ_ERR_IMAGE;
    if (!earlier(l, earlier(a, b) ? b : a)) lo = r.f + start + 1;
  }
  lo = first_later(r, lo, hi, floor_key);
  for (; lo < r.f + r.n; ++lo) {
    if (readings(r, lo, a, b) != LTZ_OK) return LTZ_ERR_IMAGE;
    if (earlier(l, earlier(a, b) ? b : a)) break;
  }
  uint32_t res;
  if (lo == r.f + r.n) {
    res = r.f + r.n - 1;
  } else {
    if (earlier(l, earlier(a, b) ? a : b) || earlier(a, b)) {
      res = lo - 1;  // before the change, or in a gap (a, b are those of lo)
    } else {
      // A repeated stretch: the earlier reading only on request.
      int32_t before = 0;
      if (type_of(r, lo - 1, before, nullptr) != LTZ_OK) return LTZ_ERR_IMAGE;
      res = (*offset != 0 && *offset == before) ? lo - 1 : lo;
    }
  }
  st = report(r, res, offset, abbr, abbrlen, dst);
  if (st == LTZ_OK && index != nullptr) *index = res - r.f;
  return st;
}

// --------------------------------------------------------- transition lists

uint8_t century_byte(int32_t y) { return static_cast<uint8_t>(y >= 0 ? y / 100 + 100 : 100 - (-y / 100)); }
uint8_t year_byte(int32_t y) { return static_cast<uint8_t>(y >= 0 ? y % 100 + 100 : 100 - (-y % 100)); }

}  // namespace

// ----------------------------------------------- allocation of caller blocks
// Blocks made for a caller come from the memory manager heap the caller
// names (its memory context's top heap when only the context is given), so
// that freeing the heap frees them too. A caller with no memory context at
// all (the image tools, tests) gets the system allocator; the block must
// then be freed the same way, which ltzFreeTransArray does when given the
// same null arguments.
void *caller_alloc(void *memctx, void *heap, size_t size) {
  if (memctx == nullptr) return ss_mem_alc(size);
  lmmheap *h = heap ? static_cast<lmmheap *>(heap) : lmmtophp(memctx);
  if (h == nullptr) return nullptr;
  return lmmmalloc(memctx, h, size, 0, "ltzGetTransArray", __LINE__);
}

void caller_free(void *memctx, void *heap, void *block) {
  if (memctx == nullptr) {
    ss_mem_fre(block);
    return;
  }
  lmmheap *h = heap ? static_cast<lmmheap *>(heap) : lmmtophp(memctx);
  if (h != nullptr) lmmfree(memctx, h, block, 0);
}

}  // namespace ltz_internal

using namespace ltz_internal;

extern "C" {

KELAPI int32_t ltzGet(const void *image, uint16_t id, const LdiDateTime *utc, int32_t *offset, char *abbr,
                      size_t abbrlen, uint8_t *dst) {
  return get_utc(image, id, utc, offset, abbr, abbrlen, dst, nullptr);
}

KELAPI int32_t ltzGetIndex(const void *image, uint16_t id, const LdiDateTime *utc, int32_t *offset, char *abbr,
                           size_t abbrlen, uint8_t *dst, uint32_t *index) {
  return get_utc(image, id, utc, offset, abbr, abbrlen, dst, index);
}

KELAPI int32_t ltzGetLocal(const void *image, uint16_t id, const LdiDateTime *local, int32_t *offset,
                           uint8_t *dst) {
  return get_local(image, id, local, offset, nullptr, 0, dst, LTZ_NO_HINT, nullptr);
}

KELAPI int32_t ltzGetLocalA(const void *image, uint16_t id, const LdiDateTime *local, int32_t *offset,
                            char *abbr, size_t abbrlen, uint8_t *dst) {
  return get_local(image, id, local, offset, abbr, abbrlen, dst, LTZ_NO_HINT, nullptr);
}

KELAPI int32_t ltzGetLocalByIndex(const void *image, uint16_t id, const LdiDateTime *local, int32_t *offset,
                                  char *abbr, size_t abbrlen, uint8_t *dst, uint32_t start, uint32_t *index) {
  return get_local(image, id, local, offset, abbr, abbrlen, dst, start, index);
}

KELAPI int32_t ltzGetTransArray(const void *image, void *memctx, void *heap, uint16_t id, uint8_t **array,
                                size_t *len) {
  if (array == nullptr || len == nullptr) return LTZ_ERR_ARG;
  *array = nullptr;
  *len = 0;
  if (image == nullptr) return LTZ_ERR_ARG;
  Region r;
  int32_t st = open_region(image, id, r);
  if (st != LTZ_OK) return st;
  // Check every type before allocating, so that a damaged image leaks nothing.
  for (uint32_t i = 0; i < r.n; ++i) {
    int32_t off = 0;
    if (type_of(r, r.f + i, off, nullptr) != LTZ_OK) return LTZ_ERR_IMAGE;
  }
  size_t size = static_cast<size_t>(r.n) * 10 + 1;
  auto *out = static_cast<uint8_t *>(caller_alloc(memctx, heap, size));
  if (out == nullptr) return LTZ_ERR_NOMEM;
  out[0] = static_cast<uint8_t>(r.n);
  uint8_t *p = out + 1;
  for (uint32_t i = 0; i < r.n; ++i, p += 10) {
    LdiDateTime d = record(r, r.f + i);
    int32_t off = 0;
    type_of(r, r.f + i, off, nullptr);
    int32_t minutes = off / 60;
    p[0] = century_byte(d.year);
    p[1] = year_byte(d.year);
    p[2] = d.month;
    p[3] = d.day;
    p[4] = static_cast<uint8_t>(d.hour + 1);
    p[5] = static_cast<uint8_t>(d.minute + 1);
    p[6] = static_cast<uint8_t>(d.second + 1);
    p[7] = static_cast<uint8_t>(minutes / 60 + 20);
    p[8] = static_cast<uint8_t>(minutes % 60 + 60);
    p[9] = r.v.p[r.dst + r.f + i];
  }
  *array = out;
  *len = size;
  return LTZ_OK;
}

KELAPI void ltzFreeTransArray(void *memctx, void *heap, uint8_t *array) {
  if (array != nullptr) caller_free(memctx, heap, array);
}

}  // extern "C"
