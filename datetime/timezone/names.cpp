// Time-zone image: header fields and the name side of the lookups (name to
// region ID through the sorted name index, ID to name through the region
// directory's name lists, enumeration of the index).
#include <cstring>

#include "datetime/timezone/lookup_impl.h"
#include "ltz.h"

namespace ltz_internal {

namespace {

inline unsigned fold(unsigned char c) {
  if (c >= 'A' && c <= 'Z') return c + ('a' - 'A');
  if (c == '-') return '_';
  return c;
}

// Orders (a, alen) against (b, blen) with the name comparison.
int compare_names(const char *a, size_t alen, const char *b, size_t blen) {
  size_t n = alen < blen ? alen : blen;
  for (size_t i = 0; i < n; ++i) {
    unsigned x = fold(static_cast<unsigned char>(a[i]));
    unsigned y = fold(static_cast<unsigned char>(b[i]));
    if (x != y) return x < y ? -1 : 1;
  }
  if (alen == blen) return 0;
  return alen < blen ? -1 : 1;
}

// Header checks shared by the three field getters.
int32_t header_u16(const void *image, uint32_t off, uint16_t *out) {
  if (out == nullptr) return LTZ_ERR_ARG;
  ImageView v;
  int32_t st = open_image(image, v);
  if (st == LTZ_ERR_VERSION && off == kOffFormat) {
    *out = v.u16(off);
    return st;
  }
  if (st != LTZ_OK) return st;
  *out = v.u16(off);
  return LTZ_OK;
}

}  // namespace

int32_t slot_name(const ImageView &v, uint32_t slot, uint32_t k, uint32_t *off, size_t *len) {
  if (v.u16(slot) == 0) return LTZ_ERR_NOTFOUND;
  uint32_t at = v.u32(slot + 4);
  for (uint32_t i = 0;; ++i) {
    int64_t n = v.strlen_at(at);
    if (n < 0) return LTZ_ERR_IMAGE;
    if (n == 0) return LTZ_ERR_NOTFOUND;  // the list ended before name k
    if (i == k) {
      *off = at;
      *len = static_cast<size_t>(n);
      return LTZ_OK;
    }
    at += static_cast<uint32_t>(n) + 1;
  }
}

int32_t copy_out(const ImageView &v, uint32_t off, size_t n, char *buf, size_t buflen) {
  if (n + 1 > buflen) {
    if (buflen > 0) buf[0] = '\0';
    return LTZ_ERR_SPACE;
  }
  std::memcpy(buf, v.p + off, n);
  buf[n] = '\0';
  if constexpr (kEbcdicHost) ltzAscEbcConvert(buf, buf, n);
  return LTZ_OK;
}

}  // namespace ltz_internal

using namespace ltz_internal;

extern "C" {

KELAPI int32_t ltzGetFileVersion(const void *image, uint16_t *version) {
  return header_u16(image, kOffFormat, version);
}

KELAPI int32_t ltzGetFileContentVer(const void *image, uint16_t *version) {
  return header_u16(image, kOffContent, version);
}

KELAPI int32_t ltzGetFileID(const void *image, uint16_t *id) { return header_u16(image, kOffFileId, id); }

KELAPI int32_t ltzCmp(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : (a == nullptr ? -1 : 1);
  return compare_names(a, std::strlen(a), b, std::strlen(b));
}

KELAPI int32_t ltzID(const void *image, const char *name, size_t len, uint16_t *id) {
  if (name == nullptr || id == nullptr) return LTZ_ERR_ARG;
  *id = 0;
  ImageView v;
  int32_t st = open_image(image, v);
  if (st != LTZ_OK) return st;
  uint32_t count = v.u16(kOffIndexCount);
  uint32_t index = v.u32(kOffIndex);
  if (!v.has(index, static_cast<uint64_t>(count) * kIndexEntrySize)) return LTZ_ERR_IMAGE;

  // Names are at most a few dozen bytes; a longer key cannot be in the index,
  // and converting it on an EBCDIC host needs a bounded copy.
  char ascii[LTZ_NAME_MAX];
  const char *key = name;
  if constexpr (kEbcdicHost) {
    if (len >= sizeof ascii) return LTZ_ERR_NOTFOUND;
    ltzAscEbcConvertR(ascii, name, len);
    key = ascii;
  }

  uint32_t lo = 0, hi = count;
  while (lo < hi) {
    uint32_t mid = lo + (hi - lo) / 2;
    uint32_t e = index + mid * kIndexEntrySize;
    uint32_t off = v.u32(e);
    int64_t n = v.strlen_at(off);
    if (n < 0) return LTZ_ERR_IMAGE;
    int c = compare_names(key, len, reinterpret_cast<const char *>(v.p + off), static_cast<size_t>(n));
    if (c == 0) {
      *id = v.u16(e + 4);
      return LTZ_OK;
    }
    if (c < 0)
      hi = mid;
    else
      lo = mid + 1;
  }
  return LTZ_ERR_NOTFOUND;
}

KELAPI int32_t ltzName(const void *image, uint16_t id, char *buf, size_t buflen, size_t *outlen) {
  if (buf == nullptr) return LTZ_ERR_ARG;
  if (buflen > 0) buf[0] = '\0';
  if (outlen != nullptr) *outlen = 0;
  ImageView v;
  int32_t st = open_image(image, v);
  if (st != LTZ_OK) return st;
  if (id < 1 || id > LTZ_MAX_REGION) return LTZ_ERR_RANGE;
  uint32_t off = 0;
  size_t n = 0;
  st = slot_name(v, kOffDirectory + (id & (kSlots - 1)) * kSlotSize, id >> 9, &off, &n);
  if (st != LTZ_OK) return st;
  st = copy_out(v, off, n, buf, buflen);
  if (st == LTZ_OK && outlen != nullptr) *outlen = n;
  return st;
}

KELAPI int32_t ltzStep(const void *image, uint32_t i, char *buf, size_t buflen, uint16_t *id) {
  if (buf == nullptr) return LTZ_ERR_ARG;
  if (buflen > 0) buf[0] = '\0';
  ImageView v;
  int32_t st = open_image(image, v);
  if (st != LTZ_OK) return st;
  uint32_t count = v.u16(kOffIndexCount);
  if (i >= count) return LTZ_ERR_NOTFOUND;
  uint32_t e = v.u32(kOffIndex);
  if (!v.has(e, static_cast<uint64_t>(i + 1) * kIndexEntrySize)) return LTZ_ERR_IMAGE;
  e += i * kIndexEntrySize;
  uint32_t off = v.u32(e);
  int64_t n = v.strlen_at(off);
  if (n < 0) return LTZ_ERR_IMAGE;
  st = copy_out(v, off, static_cast<size_t>(n), buf, buflen);
  if (st == LTZ_OK && id != nullptr) *id = v.u16(e + 4);
  return st;
}

}  // extern "C"
