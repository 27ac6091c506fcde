// ASCII <-> EBCDIC (code page 037) for the names and abbreviations of the
// time-zone image, which are ASCII. Only the 128 ASCII characters have
// counterparts; everything else becomes the substitute character.
#include <array>
#include <cstdint>

#include "ltz.h"

namespace ltz_internal {
namespace {

constexpr uint8_t kEbcdicSub = 0x3F;
constexpr uint8_t kAsciiSub = 0x1A;

// Code page 037 positions of the ASCII characters.
constexpr std::array<uint8_t, 128> make_to_ebcdic() {
  std::array<uint8_t, 128> t{};
  // Control characters: the ones that keep their value, then the moved ones.
  for (int c : {0x00, 0x01, 0x02, 0x03, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x13, 0x18, 0x19, 0x1C,
                0x1D, 0x1E, 0x1F})
    t[c] = static_cast<uint8_t>(c);
  const uint8_t moved[][2] = {{0x04, 0x37}, {0x05, 0x2D}, {0x06, 0x2E}, {0x07, 0x2F}, {0x08, 0x16},
                              {0x09, 0x05}, {0x0A, 0x25}, {0x14, 0x3C}, {0x15, 0x3D}, {0x16, 0x32},
                              {0x17, 0x26}, {0x1A, 0x3F}, {0x1B, 0x27}, {0x7F, 0x07}};
  for (const auto &m : moved) t[m[0]] = m[1];
  // Letters come in three runs of nine (or eight) per case.
  for (int i = 0; i < 9; ++i) {
    t['a' + i] = static_cast<uint8_t>(0x81 + i);
    t['j' + i] = static_cast<uint8_t>(0x91 + i);
    t['A' + i] = static_cast<uint8_t>(0xC1 + i);
    t['J' + i] = static_cast<uint8_t>(0xD1 + i);
  }
  for (int i = 0; i < 8; ++i) {
    t['s' + i] = static_cast<uint8_t>(0xA2 + i);
    t['S' + i] = static_cast<uint8_t>(0xE2 + i);
  }
  for (int i = 0; i < 10; ++i) t['0' + i] = static_cast<uint8_t>(0xF0 + i);
  const uint8_t punct[][2] = {{' ', 0x40}, {'!', 0x5A}, {'"', 0x7F}, {'#', 0x7B}, {'$', 0x5B}, {'%', 0x6C},
                              {'&', 0x50}, {'\'', 0x7D}, {'(', 0x4D}, {')', 0x5D}, {'*', 0x5C}, {'+', 0x4E},
                              {',', 0x6B}, {'-', 0x60}, {'.', 0x4B}, {'/', 0x61}, {':', 0x7A}, {';', 0x5E},
                              {'<', 0x4C}, {'=', 0x7E}, {'>', 0x6E}, {'?', 0x6F}, {'@', 0x7C}, {'[', 0xBA},
                              {'\\', 0xE0}, {']', 0xBB}, {'^', 0xB0}, {'_', 0x6D}, {'`', 0x79}, {'{', 0xC0},
                              {'|', 0x4F}, {'}', 0xD0}, {'~', 0xA1}};
  for (const auto &p : punct) t[p[0]] = p[1];
  return t;
}

constexpr std::array<uint8_t, 128> kToEbcdic = make_to_ebcdic();

constexpr std::array<uint8_t, 256> make_to_ascii() {
  std::array<uint8_t, 256> t{};
  for (auto &x : t) x = kAsciiSub;
  for (int c = 0; c < 128; ++c) t[kToEbcdic[c]] = static_cast<uint8_t>(c);
  return t;
}

constexpr std::array<uint8_t, 256> kToAscii = make_to_ascii();

// The table must be one-to-one, or the way back would lose characters.
constexpr bool one_to_one() {
  for (int c = 0; c < 128; ++c)
    if (kToAscii[kToEbcdic[c]] != c) return false;
  return true;
}
static_assert(one_to_one(), "code page 037 table has a duplicate");

}  // namespace
}  // namespace ltz_internal

extern "C" {

KELAPI void ltzAscEbcConvert(char *dst, const char *src, size_t len) {
  using ltz_internal::kToEbcdic;
  if (dst == nullptr || src == nullptr) return;
  for (size_t i = 0; i < len; ++i) {
    auto c = static_cast<uint8_t>(src[i]);
    dst[i] = static_cast<char>(c < 128 ? kToEbcdic[c] : ltz_internal::kEbcdicSub);
  }
}

KELAPI void ltzAscEbcConvertR(char *dst, const char *src, size_t len) {
  if (dst == nullptr || src == nullptr) return;
  for (size_t i = 0; i < len; ++i) dst[i] = static_cast<char>(ltz_internal::kToAscii[static_cast<uint8_t>(src[i])]);
}

}  // extern "C"
