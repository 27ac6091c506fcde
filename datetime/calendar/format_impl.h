// format_impl.h - shared by the writers and readers of format models.
#ifndef KEL_DATETIME_FORMAT_IMPL_H
#define KEL_DATETIME_FORMAT_IMPL_H

#include <cstring>

#include "datetime/calendar/ldx_impl.h"

namespace ldx_internal {

// The separator characters: between the elements of a model, and matching
// one another in the text read by one.
constexpr bool is_separator(uint8_t c) {
  return c == ' ' || c == '-' || c == '/' || c == ',' || c == '.' || c == ';' || c == ':' || c == '\t' ||
         c == '\n' || c == '\r';
}

// Room for any compiled model: every model byte gives at most two compiled
// bytes, and the territory formats stay inside the same scanned length.
constexpr size_t kCompiledMax = 2 * kModelLimit + 8;

// The compiled model for (fmt, fmtlen): the context's default (null or
// empty), a compiled model (first byte 0), or model text compiled into buf.
// *mlen receives the bytes the model may occupy (walkers stay inside them).
const uint8_t *resolve_model(ldxctx *ctx, const char *fmt, size_t fmtlen, bool input, uint8_t *buf,
                             size_t bufsz, size_t *mlen, int32_t *err);

// A compiled model passed by the caller whose header is sound, or null for
// anything else (model text, the default, a bad header), which
// resolve_model then takes on. Inline: the hot callers pass compiled models.
inline const uint8_t *compiled_model(const char *fmt, size_t fmtlen) {
  const uint8_t *m = reinterpret_cast<const uint8_t *>(fmt);
  if (!fmt || fmtlen < 3 || m[0] != 0 || (m[1] & ~(kHdrBase | kHdrEbcdic | kHdrFixed)) != 0 || !(m[1] & kHdrBase))
    return nullptr;
  return m;
}

// Equal byte strings of n bytes, for the short keys of the per-thread model
// caches: 8-byte words and an overlapping last word, no library call.
inline uint64_t load_word(const uint8_t *p) {
  uint64_t w;
  std::memcpy(&w, p, 8);
  return w;
}
inline bool equal_bytes(const void *a, const void *b, size_t n) {
  const uint8_t *x = static_cast<const uint8_t *>(a), *y = static_cast<const uint8_t *>(b);
  if (n < 8) {
    for (size_t i = 0; i < n; ++i)
      if (x[i] != y[i]) return false;
    return true;
  }
  for (size_t i = 0; i + 8 < n; i += 8)
    if (load_word(x + i) != load_word(y + i)) return false;
  return load_word(x + n - 8) == load_word(y + n - 8);
}

// Codes a compiled model may hold: every element but FM and DL/DS/TS, which
// the compiler resolves.
constexpr uint64_t kCompiledCodes = ((uint64_t{1} << 46) - 2) & ~(uint64_t{1} << 39);
constexpr bool compiled_code(uint8_t b) { return b < 46 && (kCompiledCodes >> b & 1); }

// Writes *d; the length, or -1 with *err set.
int32_t format_date(ldxctx *ctx, char *out, size_t outsz, const ldxdate *d, const char *fmt,
                    size_t fmtlen, int32_t *err);

// Reads text into *out; 0 or an error number. *stop (may be null) gets
// where a failed read stopped (0 when the date as a whole is wrong).
int32_t parse_date(ldxctx *ctx, ldxdate *out, const char *txt, size_t txtlen, const char *fmt, size_t fmtlen,
                   size_t *stop = nullptr);

// Records how the calling thread's last read ended, for ldxrerr: err 0 for
// success, else the error and the text from `stop` on (at most
// kReadTextMax bytes of it are kept).
constexpr size_t kReadTextMax = 48;
void note_read(int32_t err, const char *txt, size_t len, size_t stop);

// UTF-16 <-> UTF-8 (utf16.cpp): false when the output would not fit.
bool utf16_to_utf8(const uint16_t *in, size_t n, char *out, size_t cap, size_t *len);
bool utf8_to_utf16(const char *in, size_t n, uint16_t *out, size_t cap, size_t *len);

}  // namespace ldx_internal

#endif  // KEL_DATETIME_FORMAT_IMPL_H
