// image_impl.h - byte layout of the time-zone image and a bounds-checked
// view of it, shared by the lookups (datetime/timezone/lookup.cpp), the loader and
// the image compiler (tools/keltzc).
//
// The image is little-endian and read in place; every read goes through
// ImageView, which refuses anything outside the length the header states
// (itself checked against the largest image there can be). The loader makes
// sure that the buffer really holds that many bytes.
#ifndef KEL_DATETIME_TZ_IMAGE_IMPL_H
#define KEL_DATETIME_TZ_IMAGE_IMPL_H

#include <cstdint>
#include <cstring>

#include "ltz.h"

namespace ltz_internal {

// Header fields (byte offsets).
inline constexpr uint32_t kOffMagic = 0;
inline constexpr uint32_t kOffLength = 4;
inline constexpr uint32_t kOffFormat = 8;
inline constexpr uint32_t kOffContent = 10;
inline constexpr uint32_t kOffFileId = 12;
inline constexpr uint32_t kOffIndexCount = 14;
inline constexpr uint32_t kOffRecordCount = 16;  // informational: total transition records
inline constexpr uint32_t kOffIndex = 20;
inline constexpr uint32_t kOffTrans = 24;
inline constexpr uint32_t kOffTypes = 28;
inline constexpr uint32_t kOffMap = 32;
inline constexpr uint32_t kOffDst = 36;
inline constexpr uint32_t kOffDirectory = 40;
inline constexpr uint32_t kSlots = 512;
inline constexpr uint32_t kSlotSize = 8;
// Informational trailer of the header: the first and last year every region
// covers (some regions reach further back), the number of local-time types,
// and 4 spare bytes. The lookups do not read them.
inline constexpr uint32_t kOffFirstYear = 4136;
inline constexpr uint32_t kOffLastYear = 4138;
inline constexpr uint32_t kOffTypeCount = 4140;

inline constexpr uint32_t kRecordSize = 20;
inline constexpr uint32_t kIndexEntrySize = 8;
inline constexpr uint32_t kTypeEntrySize = 8;
inline constexpr uint32_t kMaxNamesPerSlot = 16;

static_assert(kOffDirectory + kSlots * kSlotSize + 12 == LTZ_HEADER_SIZE, "header layout");
static_assert(sizeof(LdiDateTime) == kRecordSize, "a transition record is one datetime record");

// A read-only window on an image of `len` bytes.
struct ImageView {
  const uint8_t *p = nullptr;
  uint32_t len = 0;

  bool has(uint64_t off, uint64_t n) const { return off <= len && n <= len - off; }
  uint16_t u16(uint32_t off) const {  // caller checked has(off, 2)
    return static_cast<uint16_t>(p[off] | (p[off + 1] << 8));
  }
  uint32_t u32(uint32_t off) const {  // caller checked has(off, 4)
    return static_cast<uint32_t>(p[off]) | (static_cast<uint32_t>(p[off + 1]) << 8) |
           (static_cast<uint32_t>(p[off + 2]) << 16) | (static_cast<uint32_t>(p[off + 3]) << 24);
  }
  // Length of the NUL-terminated string at off, or -1 when it runs off the end.
  int64_t strlen_at(uint32_t off) const {
    if (off >= len) return -1;
    const void *z = std::memchr(p + off, 0, len - off);
    return z == nullptr ? -1 : static_cast<const uint8_t *>(z) - (p + off);
  }
};

// Validates the header of `image` and fills `v`: 0, or LTZ_ERR_ARG (null),
// LTZ_ERR_IMAGE (magic, stated length), LTZ_ERR_VERSION.
inline int32_t open_image(const void *image, ImageView &v) {
  if (image == nullptr) return LTZ_ERR_ARG;
  const auto *p = static_cast<const uint8_t *>(image);
  ImageView h{p, 8};
  if (h.u32(kOffMagic) != LTZ_MAGIC) return LTZ_ERR_IMAGE;
  uint32_t len = h.u32(kOffLength);
  if (len < LTZ_HEADER_SIZE || len > LTZ_MAX_IMAGE) return LTZ_ERR_IMAGE;
  v.p = p;
  v.len = len;
  if (v.u16(kOffFormat) != LTZ_FORMAT_VERSION) return LTZ_ERR_VERSION;
  return LTZ_OK;
}

// Little-endian writers for the compiler.
inline void put16(uint8_t *p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}
inline void put32(uint8_t *p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace ltz_internal

#endif
