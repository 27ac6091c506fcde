// Character sets: the tables of the single-byte sets, conversion between
// any two sets through Unicode, and character classes.
//
// Conversions decode the source to code points and encode them into the
// target. Bytes that do not decode, and code points the target cannot hold,
// become the target's replacement character ('?' in the single-byte sets,
// U+FFFD in the Unicode ones), so a conversion never stops half way for bad
// data; only an unknown set or a target that is too small fails.
#include <array>

#include "nls/nls_impl.h"

namespace nls_internal {

namespace {

constexpr uint16_t kNone = 0xFFFF;
constexpr uint32_t kBad = 0xFFFFFFFFu;
constexpr uint32_t kRepl = 0xFFFD;

constexpr std::array<uint16_t, 256> make_ascii() {
  std::array<uint16_t, 256> t{};
  for (int i = 0; i < 256; i++) t[i] = i < 128 ? static_cast<uint16_t>(i) : kNone;
  return t;
}

constexpr std::array<uint16_t, 256> make_latin1() {
  std::array<uint16_t, 256> t{};
  for (int i = 0; i < 256; i++) t[i] = static_cast<uint16_t>(i);
  return t;
}

constexpr std::array<uint16_t, 256> kAscii = make_ascii();
constexpr std::array<uint16_t, 256> kLatin1 = make_latin1();

// EBCDIC code page 37 to Unicode.
constexpr std::array<uint16_t, 256> kEbcdic37 = {
    0x00, 0x01, 0x02, 0x03, 0x9C, 0x09, 0x86, 0x7F, 0x97, 0x8D, 0x8E, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F,
    0x10, 0x11, 0x12, 0x13, 0x9D, 0x85, 0x08, 0x87, 0x18, 0x19, 0x92, 0x8F, 0x1C, 0x1D, 0x1E, 0x1F,
    0x80, 0x81, 0x82, 0x83, 0x84, 0x0A, 0x17, 0x1B, 0x88, 0x89, 0x8A, 0x8B, 0x8C, 0x05, 0x06, 0x07,
    0x90, 0x91, 0x16, 0x93, 0x94, 0x95, 0x96, 0x04, 0x98, 0x99, 0x9A, 0x9B, 0x14, 0x15, 0x9E, 0x1A,
    0x20, 0xA0, 0xE2, 0xE4, 0xE0, 0xE1, 0xE3, 0xE5, 0xE7, 0xF1, 0xA2, 0x2E, 0x3C, 0x28, 0x2B, 0x7C,
    0x26, 0xE9, 0xEA, 0xEB, 0xE8, 0xED, 0xEE, 0xEF, 0xEC, 0xDF, 0x21, 0x24, 0x2A, 0x29, 0x3B, 0xAC,
    0x2D, 0x2F, 0xC2, 0xC4, 0xC0, 0xC1, 0xC3, 0xC5, 0xC7, 0xD1, 0xA6, 0x2C, 0x25, 0x5F, 0x3E, 0x3F,
    0xF8, 0xC9, 0xCA, 0xCB, 0xC8, 0xCD, 0xCE, 0xCF, 0xCC, 0x60, 0x3A, 0x23, 0x40, 0x27, 0x3D, 0x22,
    0xD8, 0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0xAB, 0xBB, 0xF0, 0xFD, 0xFE, 0xB1,
    0xB0, 0x6A, 0x6B, 0x6C, 0x6D, 0x6E, 0x6F, 0x70, 0x71, 0x72, 0xAA, 0xBA, 0xE6, 0xB8, 0xC6, 0xA4,
    0xB5, 0x7E, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0xA1, 0xBF, 0xD0, 0xDD, 0xDE, 0xAE,
    0x5E, 0xA3, 0xA5, 0xB7, 0xA9, 0xA7, 0xB6, 0xBC, 0xBD, 0xBE, 0x5B, 0x5D, 0xAF, 0xA8, 0xB4, 0xD7,
    0x7B, 0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0xAD, 0xF4, 0xF6, 0xF2, 0xF3, 0xF5,
    0x7D, 0x4A, 0x4B, 0x4C, 0x4D, 0x4E, 0x4F, 0x50, 0x51, 0x52, 0xB9, 0xFB, 0xFC, 0xF9, 0xFA, 0xFF,
    0x5C, 0xF7, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0xB2, 0xD4, 0xD6, 0xD2, 0xD3, 0xD5,
    0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0xB3, 0xDB, 0xDC, 0xD9, 0xDA, 0x9F,
};

// The reverse of code page 37 (it maps all of Latin-1, one to one).
constexpr std::array<uint8_t, 256> make_rev37() {
  std::array<uint8_t, 256> r{};
  for (int i = 0; i < 256; i++) r[kEbcdic37[i]] = static_cast<uint8_t>(i);
  return r;
}
constexpr std::array<uint8_t, 256> kRev37 = make_rev37();
static_assert(kRev37[0x20] == 0x40 && kRev37['A'] == 0xC1 && kRev37['0'] == 0xF0);

constexpr charset kSets[] = {
    {LX_CSID_US7ASCII, "US7ASCII", LX_CS_ASCII, 1, kAscii.data()},
    {LX_CSID_WE8ISO8859P1, "WE8ISO8859P1", LX_CS_ASCII, 1, kLatin1.data()},
    {LX_CSID_WE8EBCDIC37, "WE8EBCDIC37", LX_CS_EBCDIC, 1, kEbcdic37.data()},
    {LX_CSID_AL32UTF8, "AL32UTF8", LX_CS_ASCII, 4, nullptr},
    {LX_CSID_AL16UTF16, "AL16UTF16", LX_CS_UTF16, 4, nullptr},
    {LX_CSID_AL16UTF16LE, "AL16UTF16LE", LX_CS_UTF16, 4, nullptr},
};

// Decodes one character at src (n > 0 bytes left); sets *used.
uint32_t decode(const charset *cs, const uint8_t *s, size_t n, size_t *used) noexcept {
  if (cs->to_uni != nullptr) {
    *used = 1;
    uint16_t u = cs->to_uni[s[0]];
    return u == kNone ? kBad : u;
  }
  if (cs->id == LX_CSID_AL16UTF16 || cs->id == LX_CSID_AL16UTF16LE) {
    if (n < 2) {
      *used = n;
      return kBad;
    }
    const bool le = cs->id == LX_CSID_AL16UTF16LE;
    auto unit = [&](size_t i) { return le ? (uint32_t{s[i + 1]} << 8) | s[i] : (uint32_t{s[i]} << 8) | s[i + 1]; };
    uint32_t u = unit(0);
    *used = 2;
    if (u >= 0xD800 && u < 0xDC00) {
      if (n < 4) return kBad;
      uint32_t lo = unit(2);
      if (lo < 0xDC00 || lo >= 0xE000) return kBad;
      *used = 4;
      return 0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00);
    }
    if (u >= 0xDC00 && u < 0xE000) return kBad;
    return u;
  }
  // UTF-8, strict: no overlong forms, no surrogates, nothing above U+10FFFF.
  uint8_t b = s[0];
  *used = 1;
  if (b < 0x80) return b;
  int len;
  uint32_t u, min;
  if (b >= 0xC2 && b <= 0xDF) len = 2, u = b & 0x1F, min = 0x80;
  else if (b >= 0xE0 && b <= 0xEF) len = 3, u = b & 0x0F, min = 0x800;
  else if (b >= 0xF0 && b <= 0xF4) len = 4, u = b & 0x07, min = 0x10000;
  else return kBad;
  if (n < static_cast<size_t>(len)) return kBad;
  for (int i = 1; i < len; i++) {
    if ((s[i] & 0xC0) != 0x80) return kBad;
    u = (u << 6) | (s[i] & 0x3F);
  }
  if (u < min || u > 0x10FFFF || (u >= 0xD800 && u < 0xE000)) return kBad;
  *used = static_cast<size_t>(len);
  return u;
}

// Encodes code point u (kBad: the replacement); returns bytes or 0 when it
// does not fit in room.
size_t encode(const charset *cs, uint32_t u, uint8_t *d, size_t room) noexcept {
  if (cs->to_uni != nullptr) {
    uint32_t c = u == kBad ? kBad : from_unicode(cs, u);
    if (c == kBad) c = from_unicode(cs, '?');
    if (room < 1) return 0;
    d[0] = static_cast<uint8_t>(c);
    return 1;
  }
  if (u == kBad) u = kRepl;
  if (cs->id == LX_CSID_AL16UTF16 || cs->id == LX_CSID_AL16UTF16LE) {
    const int hb = cs->id == LX_CSID_AL16UTF16LE ? 1 : 0;  // where the high byte goes
    auto put = [&](uint8_t *p, uint32_t x) {
      p[hb] = static_cast<uint8_t>(x >> 8);
      p[1 - hb] = static_cast<uint8_t>(x);
    };
    if (u < 0x10000) {
      if (room < 2) return 0;
      put(d, u);
      return 2;
    }
    if (room < 4) return 0;
    uint32_t v = u - 0x10000;
    put(d, 0xD800 + (v >> 10));
    put(d + 2, 0xDC00 + (v & 0x3FF));
    return 4;
  }
  size_t len = u < 0x80 ? 1 : u < 0x800 ? 2 : u < 0x10000 ? 3 : 4;
  if (room < len) return 0;
  switch (len) {
    case 1:
      d[0] = static_cast<uint8_t>(u);
      break;
    case 2:
      d[0] = static_cast<uint8_t>(0xC0 | (u >> 6));
      d[1] = static_cast<uint8_t>(0x80 | (u & 0x3F));
      break;
    case 3:
      d[0] = static_cast<uint8_t>(0xE0 | (u >> 12));
      d[1] = static_cast<uint8_t>(0x80 | ((u >> 6) & 0x3F));
      d[2] = static_cast<uint8_t>(0x80 | (u & 0x3F));
      break;
    default:
      d[0] = static_cast<uint8_t>(0xF0 | (u >> 18));
      d[1] = static_cast<uint8_t>(0x80 | ((u >> 12) & 0x3F));
      d[2] = static_cast<uint8_t>(0x80 | ((u >> 6) & 0x3F));
      d[3] = static_cast<uint8_t>(0x80 | (u & 0x3F));
  }
  return len;
}

// Classes of the Latin-1 range, as Unicode defines them.
bool is_upper_l1(uint32_t u) { return (u >= 'A' && u <= 'Z') || (u >= 0xC0 && u <= 0xDE && u != 0xD7); }
bool is_lower_l1(uint32_t u) {
  return (u >= 'a' && u <= 'z') || u == 0xAA || u == 0xB5 || u == 0xBA || (u >= 0xDF && u <= 0xFF && u != 0xF7);
}
bool is_alpha_l1(uint32_t u) { return is_upper_l1(u) || is_lower_l1(u); }
bool is_space_l1(uint32_t u) { return (u >= 9 && u <= 13) || (u >= 0x1C && u <= 0x20) || u == 0x85 || u == 0xA0; }

const charset *cs_of(const lxenv *env) noexcept {
  static const lxenv *dflt = lxhLangEnv(nullptr, "AMERICAN_AMERICA.US7ASCII", 25);
  return (env ? env : dflt)->cs;
}

template <typename F>
int32_t classify(const lxenv *env, uint32_t c, F f) {
  uint32_t u = to_unicode(cs_of(env), c);
  return u != kBad && u < 256 && f(u) ? 1 : 0;
}

template <typename F>
uint32_t fold(const lxenv *env, uint32_t c, F f) {
  const charset *cs = cs_of(env);
  uint32_t u = to_unicode(cs, c);
  if (u == kBad || u >= 256) return c;
  uint32_t v = f(u);
  uint32_t back = from_unicode(cs, v);
  return back == kBad ? c : back;
}

}  // namespace

const charset *find_charset(int32_t id) noexcept {
  for (const charset &c : kSets)
    if (c.id == id) return &c;
  return nullptr;
}

const charset *find_charset_name(std::string_view name) noexcept {
  if (iequal(name, "UTF8") || iequal(name, ".utf8") || iequal(name, "utf8") || iequal(name, "UTF-8"))
    return find_charset(LX_CSID_AL32UTF8);
  for (const charset &c : kSets)
    if (iequal(name, c.name)) return &c;
  return nullptr;
}

uint32_t to_unicode(const charset *cs, uint32_t c) noexcept {
  if (cs->to_uni != nullptr) {
    if (c > 255) return kBad;
    uint16_t u = cs->to_uni[c];
    return u == kNone ? kBad : u;
  }
  return c <= 0x10FFFF && !(c >= 0xD800 && c < 0xE000) ? c : kBad;
}

uint32_t from_unicode(const charset *cs, uint32_t u) noexcept {
  switch (cs->id) {
    case LX_CSID_US7ASCII:
      return u < 128 ? u : kBad;
    case LX_CSID_WE8ISO8859P1:
      return u < 256 ? u : kBad;
    case LX_CSID_WE8EBCDIC37:
      return u < 256 ? kRev37[u] : kBad;
    default:
      return to_unicode(cs, u);
  }
}

}  // namespace nls_internal

using namespace nls_internal;

extern "C" {

KELAPI int32_t lxhcsn(const char *name, size_t len) {
  if (name == nullptr) return 0;
  const charset *cs = find_charset_name(std::string_view(name, len));
  return cs ? cs->id : 0;
}

KELAPI int64_t lxgcnv(void *dst, size_t dstlen, int32_t dstcs, const void *src, size_t srclen, int32_t srccs) {
  const charset *from = find_charset(srccs), *to = find_charset(dstcs);
  if (from == nullptr || to == nullptr || (src == nullptr && srclen > 0) || (dst == nullptr && dstlen > 0))
    return -1;
  auto *s = static_cast<const uint8_t *>(src);
  auto *d = static_cast<uint8_t *>(dst);
  size_t out = 0;
  for (size_t i = 0; i < srclen;) {
    size_t used = 1;
    uint32_t u = decode(from, s + i, srclen - i, &used);
    i += used;
    size_t w = encode(to, u, d + out, dstlen - out);
    if (w == 0) return -1;
    out += w;
  }
  return static_cast<int64_t>(out);
}

KELAPI int32_t lxmalpx(const lxenv *env, uint32_t c) { return classify(env, c, is_alpha_l1); }
KELAPI int32_t lxmuppx(const lxenv *env, uint32_t c) { return classify(env, c, is_upper_l1); }
KELAPI int32_t lxmlowx(const lxenv *env, uint32_t c) { return classify(env, c, is_lower_l1); }
KELAPI int32_t lxmdigx(const lxenv *env, uint32_t c) {
  return classify(env, c, [](uint32_t u) { return u >= '0' && u <= '9'; });
}
KELAPI int32_t lxmspax(const lxenv *env, uint32_t c) { return classify(env, c, is_space_l1); }

KELAPI int32_t lxmdecx(const lxenv *env, const void *src, size_t len, uint32_t *c) {
  if (len == 0 || src == nullptr || c == nullptr) return len == 0 ? 0 : -1;
  const charset *cs = cs_of(env);
  const auto *s = static_cast<const uint8_t *>(src);
  if (cs->to_uni != nullptr) {
    *c = s[0];
    return 1;
  }
  size_t used = 1;
  uint32_t u = decode(cs, s, len, &used);
  if (u == kBad) return -1;
  *c = u;
  return static_cast<int32_t>(used);
}

// Letters whose other case lies outside Latin-1 (sharp s, y with diaeresis,
// micro sign) or that have none keep their value.
KELAPI uint32_t lxmtupx(const lxenv *env, uint32_t c) {
  return fold(env, c, [](uint32_t u) -> uint32_t {
    if (u >= 'a' && u <= 'z') return u - 32;
    if (u >= 0xE0 && u <= 0xFE && u != 0xF7) return u - 32;
    return u;
  });
}

KELAPI uint32_t lxmtlox(const lxenv *env, uint32_t c) {
  return fold(env, c, [](uint32_t u) -> uint32_t {
    if (u >= 'A' && u <= 'Z') return u + 32;
    if (u >= 0xC0 && u <= 0xDE && u != 0xD7) return u + 32;
    return u;
  });
}

}  // extern "C"
