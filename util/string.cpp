// Bounded string routines and ASCII character classes.
//
// The class table is built at compile time; case-insensitive routines fold
// through it so that their result never depends on the process locale.
#include <cstring>

#include "lut.h"

namespace lut_internal {
namespace {

constexpr auto kCls = [] {
  struct T {
    uint8_t v[128]{};
  } t;
  for (int c = 0; c < 32; c++) t.v[c] = LUT_C_CNTRL;
  t.v[127] = LUT_C_CNTRL;
  for (int c = 33; c < 127; c++) t.v[c] = LUT_C_PUNCT;
  for (int c = 'A'; c <= 'Z'; c++) t.v[c] = LUT_C_UPPER;
  for (int c = 'a'; c <= 'z'; c++) t.v[c] = LUT_C_LOWER;
  for (int c = '0'; c <= '9'; c++) t.v[c] = LUT_C_DIGIT | LUT_C_XDIGIT;
  for (int c = 'A'; c <= 'F'; c++) t.v[c] |= LUT_C_XDIGIT;
  for (int c = 'a'; c <= 'f'; c++) t.v[c] |= LUT_C_XDIGIT;
  for (int c = 9; c <= 13; c++) t.v[c] |= LUT_C_SPACE;
  t.v[static_cast<int>(' ')] = LUT_C_SPACE | LUT_C_BLANK;
  t.v[static_cast<int>('\t')] |= LUT_C_BLANK;
  return t;
}();

inline uint32_t cls(int32_t c) { return (c >= 0 && c < 128) ? kCls.v[c] : 0; }
inline unsigned char lower(unsigned char c) { return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c + 32) : c; }

}  // namespace
}  // namespace lut_internal

using namespace lut_internal;

extern "C" {

KELAPI size_t lutscpy(char *dst, size_t dstl, const char *src) {
  size_t n = strlen(src);
  if (dstl > 0) {
    size_t k = n < dstl - 1 ? n : dstl - 1;
    memcpy(dst, src, k);
    dst[k] = '\0';
  }
  return n;
}

KELAPI size_t lutscat(char *dst, size_t dstl, const char *src) {
  const char *end = static_cast<const char *>(memchr(dst, '\0', dstl));
  if (end == nullptr) return dstl + strlen(src);
  size_t have = static_cast<size_t>(end - dst);
  return have + lutscpy(dst + have, dstl - have, src);
}

KELAPI int32_t lutsnicmp(const char *a, const char *b, size_t n) {
  for (size_t i = 0; i < n; i++) {
    unsigned char x = lower(static_cast<unsigned char>(a[i])), y = lower(static_cast<unsigned char>(b[i]));
    if (x != y) return x < y ? -1 : 1;
    if (x == 0) return 0;
  }
  return 0;
}

KELAPI int32_t lutsicmp(const char *a, const char *b) { return lutsnicmp(a, b, SIZE_MAX); }

KELAPI size_t lutstrim(const char *s, size_t len, size_t *off) {
  size_t i = 0;
  while (i < len && (cls(static_cast<unsigned char>(s[i])) & LUT_C_SPACE)) i++;
  while (len > i && (cls(static_cast<unsigned char>(s[len - 1])) & LUT_C_SPACE)) len--;
  if (off != nullptr) *off = i;
  return len - i;
}

KELAPI const char *lutstok(const char *s, size_t len, const char *delims, size_t *pos, size_t *toklen) {
  auto delim = [&](char c) { return delims != nullptr && c != '\0' && strchr(delims, c) != nullptr; };
  size_t i = *pos;
  while (i < len && delim(s[i])) i++;
  if (i >= len) {
    *pos = len;
    return nullptr;
  }
  size_t start = i;
  while (i < len && !delim(s[i])) i++;
  *pos = i;
  if (toklen != nullptr) *toklen = i - start;
  return s + start;
}

KELAPI const char *lutsfind(const char *hay, size_t hl, const char *needle, size_t nl) {
  if (nl == 0) return hay;
  if (nl > hl) return nullptr;
  const char *last = hay + (hl - nl);
  for (const char *p = hay; p <= last;) {
    p = static_cast<const char *>(memchr(p, needle[0], static_cast<size_t>(last - p) + 1));
    if (p == nullptr) return nullptr;
    if (memcmp(p, needle, nl) == 0) return p;
    p++;
  }
  return nullptr;
}

KELAPI const char *lutsifind(const char *hay, size_t hl, const char *needle, size_t nl) {
  if (nl == 0) return hay;
  for (size_t i = 0; i + nl <= hl; i++) {
    size_t k = 0;
    while (k < nl && lower(static_cast<unsigned char>(hay[i + k])) == lower(static_cast<unsigned char>(needle[k]))) k++;
    if (k == nl) return hay + i;
  }
  return nullptr;
}

KELAPI uint32_t lutccls(int32_t c) { return cls(c); }
KELAPI int32_t lutcis(int32_t c, uint32_t mask) { return (cls(c) & mask) != 0 ? 1 : 0; }
KELAPI int32_t lutcupper(int32_t c) { return (c >= 'a' && c <= 'z') ? c - 32 : c; }
KELAPI int32_t lutclower(int32_t c) { return (c >= 'A' && c <= 'Z') ? c + 32 : c; }

}  // extern "C"
