// key_impl.h - the ordering key of a datetime record, read from its bytes.
//
// Bytes 2 ... 6 of the record (month, day, hour, minute, second) are already
// in order of significance; read as a big-endian number with the year put on
// top, the first eight bytes order two records by year, month, day, hour,
// minute and second with one comparison of signed 64-bit keys, whatever
// values the fields hold (the unsigned fields below the signed year compare
// as unsigned bits when the years are equal). The fraction (bytes 8 ... 11)
// decides ties. The comparison of datetimes and the binary search of the
// time-zone image's transition records both use it.
#ifndef KEL_DATETIME_TYPES_KEY_IMPL_H
#define KEL_DATETIME_TYPES_KEY_IMPL_H

#include <bit>
#include <cstdint>
#include <cstddef>
#include <cstring>

#include "ldi.h"

namespace ldi_internal {

// The image's records are little-endian and are read in place as records.
static_assert(std::endian::native == std::endian::little, "records are read in place");
static_assert(offsetof(LdiDateTime, month) == 2 && offsetof(LdiDateTime, second) == 6 &&
                  offsetof(LdiDateTime, fraction) == 8,
              "the key reads the record's bytes in place");

// Key masks: every field, the date fields only, the time-of-day fields only.
constexpr uint64_t kKeyAll = 0xFFFFFFFFFFFFFF00ull;
constexpr uint64_t kKeyDate = 0xFFFFFFFF00000000ull;
constexpr uint64_t kKeyTime = 0x00000000FFFFFF00ull;

// The key of the record at p (20 bytes, the year little-endian), to be
// compared as a signed number after masking.
inline uint64_t date_key(const uint8_t *p) {
  uint64_t x;
  std::memcpy(&x, p, 8);
  return x << 48 | (__builtin_bswap64(x) & 0x0000FFFFFFFFFF00ull);
}
inline uint64_t date_key(const LdiDateTime &d) { return date_key(reinterpret_cast<const uint8_t *>(&d)); }

// Key and fraction as one signed 96-bit value, for the searches that want a
// single comparison.
using Key128 = __int128;
inline Key128 full_key(const uint8_t *p) {
  uint32_t frac;
  std::memcpy(&frac, p + 8, 4);
  return static_cast<Key128>(static_cast<int64_t>(date_key(p))) * (Key128{1} << 32) + frac;
}
inline Key128 full_key(const LdiDateTime &d) { return full_key(reinterpret_cast<const uint8_t *>(&d)); }

}  // namespace ldi_internal

#endif  // KEL_DATETIME_TYPES_KEY_IMPL_H
