// UTF-16 <-> UTF-8 for the "u" forms of the date functions. Date texts and
// models are short, so both directions work on caller-sized buffers and
// refuse what does not fit; unpaired surrogates become U+FFFD.
#include "datetime/calendar/format_impl.h"

namespace ldx_internal {

bool utf16_to_utf8(const uint16_t *in, size_t n, char *out, size_t cap, size_t *len) {
  size_t k = 0;
  for (size_t i = 0; i < n; ++i) {
    uint32_t c = in[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < n && in[i + 1] >= 0xDC00 && in[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (in[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    const size_t need = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    if (k + need > cap) return false;
    if (need == 1) {
      out[k++] = static_cast<char>(c);
    } else if (need == 2) {
      out[k++] = static_cast<char>(0xC0 | (c >> 6));
      out[k++] = static_cast<char>(0x80 | (c & 0x3F));
    } else if (need == 3) {
      out[k++] = static_cast<char>(0xE0 | (c >> 12));
      out[k++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out[k++] = static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out[k++] = static_cast<char>(0xF0 | (c >> 18));
      out[k++] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out[k++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out[k++] = static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  *len = k;
  return true;
}

bool utf8_to_utf16(const char *in, size_t n, uint16_t *out, size_t cap, size_t *len) {
  const auto *s = reinterpret_cast<const uint8_t *>(in);
  size_t k = 0;
  for (size_t i = 0; i < n;) {
    uint32_t c = s[i];
    size_t extra = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : 9;
    if (extra == 9 || i + extra >= n + (extra ? 0 : 1)) {
      c = 0xFFFD;
      extra = 0;
    } else if (extra) {
      c &= 0x3Fu >> extra;
      for (size_t e = 1; e <= extra; ++e) c = (c << 6) | (s[i + e] & 0x3F);
    }
    i += 1 + extra;
    if (c >= 0x10000) {
      if (k + 2 > cap) return false;
      c -= 0x10000;
      out[k++] = static_cast<uint16_t>(0xD800 + (c >> 10));
      out[k++] = static_cast<uint16_t>(0xDC00 + (c & 0x3FF));
    } else {
      if (k + 1 > cap) return false;
      out[k++] = static_cast<uint16_t>(c);
    }
  }
  *len = k;
  return true;
}

}  // namespace ldx_internal
