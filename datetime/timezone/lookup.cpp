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
#include <cstring>

#include "datetime/calendar/ldx_impl.h"
#include "datetime/timezone/lookup_impl.h"
#include "datetime/types/key_impl.h"
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
  // The slot must carry the name the ID selects; the primary name needs only
  // a look at its first byte.
  if (r.n == 0) return LTZ_ERR_NOTFOUND;
  if (id >> 9 == 0) {
    uint32_t name = v.u32(slot + 4);
    if (name >= v.len) return LTZ_ERR_IMAGE;
    if (v.p[name] == 0) return LTZ_ERR_NOTFOUND;
  } else {
    uint32_t name = 0;
    size_t len = 0;
    st = slot_name(v, slot, id >> 9, &name, &len);
    if (st != LTZ_OK) return st;
  }
  r.trans = v.u32(kOffTrans);
  r.map = v.u32(kOffMap);
  r.types = v.u32(kOffTypes);
  r.dst = v.u32(kOffDst);
  uint64_t end = static_cast<uint64_t>(r.f) + r.n;
  if (!v.has(r.trans, end * kRecordSize) || !v.has(r.map, end * 2) || !v.has(r.dst, end)) return LTZ_ERR_IMAGE;
  return LTZ_OK;
}

using Key = ldi_internal::Key128;
using ldi_internal::full_key;

inline const uint8_t *record_at(const Region &r, uint32_t i) {
  return r.v.p + r.trans + static_cast<size_t>(i) * kRecordSize;
}
inline LdiDateTime record(const Region &r, uint32_t i) {
  LdiDateTime d;
  std::memcpy(&d, record_at(r, i), sizeof d);
  return d;
}
inline Key record_key(const Region &r, uint32_t i) { return full_key(record_at(r, i)); }

// Whether the record at p is not later than the instant of key t: the
// ordering key of full_key, compared as its two halves so that no 96-bit
// value is built on the search's chain of dependent steps.
struct SearchKey {
  int64_t k;      // date_key of the instant
  uint32_t frac;  // its fraction
};
inline SearchKey search_key(Key t) {
  return {static_cast<int64_t>(t >> 32), static_cast<uint32_t>(t)};
}
inline bool not_later(const uint8_t *p, SearchKey t) {
  const auto k = static_cast<int64_t>(ldi_internal::date_key(p));
  uint32_t f;
  std::memcpy(&f, p + 8, 4);
  return (k < t.k) | ((k == t.k) & (f <= t.frac));
}

// The first record among lo ... hi - 1 that is later than t (hi when none
// is), for records in ascending order. The loop has no data-dependent
// branch, which matters because lookups of unrelated instants defeat the
// branch predictor. The answer lies in base ... base + n throughout.
uint32_t first_later(const Region &r, uint32_t lo, uint32_t hi, Key key) {
  if (lo >= hi) return hi;
  const SearchKey t = search_key(key);
  uint32_t base = lo, n = hi - lo;
  while (n > 1) {
    uint32_t half = n / 2;
    base = not_later(record_at(r, base + half), t) ? base + half : base;
    n -= half;
  }
  return base + (not_later(record_at(r, base), t) ? 1 : 0);
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

  const Key t = full_key(*utc);
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
  return full_key(f);
}

inline int64_t seconds_of(const LdiDateTime &d) {
  return ldx_internal::to_seconds(d.year, d.month, d.day, d.hour, d.minute, d.second);
}

inline int64_t whole_minutes(int32_t off) { return static_cast<int64_t>(off / 60) * 60; }

// The two clock readings of transition j.
int32_t readings(const Region &r, uint32_t j, Sec &a, Sec &b) {
  int32_t before = 0, after = 0;
  if (type_of(r, j - 1, before, nullptr) != LTZ_OK || type_of(r, j, after, nullptr) != LTZ_OK)
    return LTZ_ERR_IMAGE;
  LdiDateTime d = record(r, j);
  int64_t t = seconds_of(d);
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

  const Sec l = {seconds_of(*local), local->fraction};
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
    ldxdate x{d.year, static_cast<int8_t>(d.month), static_cast<int8_t>(d.day), static_cast<int8_t>(d.hour),
              static_cast<int8_t>(d.minute), static_cast<int8_t>(d.second), 0};
    ldx_internal::to_ext7(x, p);
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
