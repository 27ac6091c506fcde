// The format-element vocabulary: the element table sorted by text (ASCII and
// an EBCDIC copy made at compile time), the initial-letter index, the suffix
// table, the per-element attributes, and the ASCII/EBCDIC translation tables.
#include <array>

#include "datetime/calendar/elements_impl.h"

namespace ldx_internal {

namespace {

constexpr std::array<uint8_t, 256> make_a2e() {
  std::array<uint8_t, 256> t{};
  for (auto &b : t) b = 0x3F;  // SUB
  const char *punct = " !\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~";
  const uint8_t pe[] = {0x40, 0x5A, 0x7F, 0x7B, 0x5B, 0x6C, 0x50, 0x7D, 0x4D, 0x5D, 0x5C, 0x4E,
                        0x6B, 0x60, 0x4B, 0x61, 0x7A, 0x5E, 0x4C, 0x7E, 0x6E, 0x6F, 0x7C, 0xBA,
                        0xE0, 0xBB, 0xB0, 0x6D, 0x79, 0xC0, 0x4F, 0xD0, 0xA1};
  for (int i = 0; punct[i]; ++i) t[static_cast<uint8_t>(punct[i])] = pe[i];
  for (int i = 0; i < 10; ++i) t['0' + i] = static_cast<uint8_t>(0xF0 + i);
  for (int i = 0; i < 26; ++i) {
    int blk = i < 9 ? 0xC1 + i : i < 18 ? 0xD1 + (i - 9) : 0xE2 + (i - 18);
    t['A' + i] = static_cast<uint8_t>(blk);
    t['a' + i] = static_cast<uint8_t>(blk - 0x40);
  }
  t['\t'] = 0x05;
  t['\n'] = 0x25;
  t[0] = 0;
  return t;
}

constexpr std::array<uint8_t, 256> make_e2a(const std::array<uint8_t, 256> &a2e) {
  std::array<uint8_t, 256> t{};
  for (auto &b : t) b = 0x1A;
  for (int a = 0; a < 128; ++a)
    if (a2e[a] != 0x3F) t[a2e[a]] = static_cast<uint8_t>(a);
  return t;
}

constexpr auto kA2E = make_a2e();
constexpr auto kE2A = make_e2a(kA2E);

// Sorted by text: the initial-letter index and the longest-match search rely
// on all rows of one letter being adjacent.
constexpr Element kAscii[] = {
    {"A.D.", 4, C_ADBC_DOTS}, {"A.M.", 4, C_AMPM_DOTS}, {"AD", 2, C_ADBC},   {"AM", 2, C_AMPM},
    {"B.C.", 4, C_ADBC_DOTS}, {"BC", 2, C_ADBC},        {"CC", 2, C_CC},     {"D", 1, C_D},
    {"DAY", 3, C_DAY},        {"DD", 2, C_DD},          {"DDD", 3, C_DDD},   {"DL", 2, C_DL},
    {"DS", 2, C_DS},          {"DY", 2, C_DY},          {"E", 1, C_E},       {"EE", 2, C_EE},
    {"FM", 2, C_FM},          {"FX", 2, C_FX},          {"HH", 2, C_HH},     {"HH12", 4, C_HH},
    {"HH24", 4, C_HH24},      {"I", 1, C_I},            {"IW", 2, C_IW},     {"IY", 2, C_IY},
    {"IYY", 3, C_IYY},        {"IYYY", 4, C_IYYY},      {"J", 1, C_J},       {"MI", 2, C_MI},
    {"MM", 2, C_MM},          {"MON", 3, C_MON},        {"MONTH", 5, C_MONTH}, {"NYYYY", 5, C_NYYYY},
    {"P.M.", 4, C_AMPM_DOTS}, {"PM", 2, C_AMPM},        {"Q", 1, C_Q},       {"RM", 2, C_RM},
    {"RR", 2, C_RR},          {"RRRR", 4, C_RRRR},      {"SCC", 3, C_SCC},   {"SS", 2, C_SS},
    {"SSSSS", 5, C_SSSSS},    {"SY,YYY", 6, C_SY_YYY},  {"SYEAR", 5, C_SYEAR}, {"SYYYY", 5, C_SYYYY},
    {"TS", 2, C_TS},          {"W", 1, C_W},            {"WW", 2, C_WW},     {"Y", 1, C_Y},
    {"Y,YYY", 5, C_Y_YYY},    {"YEAR", 4, C_YEAR},      {"YY", 2, C_YY},     {"YYY", 3, C_YYY},
    {"YYYY", 4, C_YYYY},
};
constexpr size_t kRows = sizeof kAscii / sizeof kAscii[0];

constexpr std::array<Element, kRows> make_ebcdic() {
  std::array<Element, kRows> t{};
  for (size_t i = 0; i < kRows; ++i) {
    t[i] = kAscii[i];
    for (int k = 0; k < kAscii[i].len; ++k)
      t[i].text[k] = static_cast<char>(kA2E[static_cast<uint8_t>(kAscii[i].text[k])]);
  }
  return t;
}
constexpr auto kEbcdic = make_ebcdic();

constexpr std::array<int8_t, 26> make_index() {
  std::array<int8_t, 26> idx{};
  for (auto &x : idx) x = -1;
  for (size_t i = kRows; i-- > 0;) idx[kAscii[i].text[0] - 'A'] = static_cast<int8_t>(i);
  return idx;
}
constexpr auto kIndex = make_index();

constexpr bool sorted() {
  for (size_t i = 1; i < kRows; ++i) {
    const char *a = kAscii[i - 1].text, *b = kAscii[i].text;
    int k = 0;
    while (a[k] && a[k] == b[k]) ++k;
    if (static_cast<uint8_t>(a[k]) >= static_cast<uint8_t>(b[k])) return false;
  }
  return true;
}
static_assert(sorted(), "the element table must stay sorted by text");
static_assert(kIndex['G' - 'A'] < 0 && kIndex['K' - 'A'] < 0 && kIndex['L' - 'A'] < 0 &&
              kIndex['O' - 'A'] < 0 && kIndex['U' - 'A'] < 0 && kIndex['V' - 'A'] < 0 &&
              kIndex['X' - 'A'] < 0 && kIndex['Z' - 'A'] < 0);

}  // namespace




const uint8_t kAsciiToEbcdic[256] = {
#define R(i) kA2E[i]
#define R8(i) R(i), R(i + 1), R(i + 2), R(i + 3), R(i + 4), R(i + 5), R(i + 6), R(i + 7)
#define R64(i) R8(i), R8(i + 8), R8(i + 16), R8(i + 24), R8(i + 32), R8(i + 40), R8(i + 48), R8(i + 56)
    R64(0), R64(64), R64(128), R64(192)};
#undef R
#define R(i) kE2A[i]
const uint8_t kEbcdicToAscii[256] = {R64(0), R64(64), R64(128), R64(192)};
#undef R
#undef R8
#undef R64

const Element *element_rows(bool ebcdic, size_t *count) {
  *count = kRows;
  return ebcdic ? kEbcdic.data() : kAscii;
}

int32_t element_index(int letter) { return letter >= 0 && letter < 26 ? kIndex[letter] : -1; }


}  // namespace ldx_internal
