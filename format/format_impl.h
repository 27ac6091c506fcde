// format_impl.h - internals of the formatter shared by its files and tests:
// the output sink, the parsed conversion, and the number conversions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace lsf_internal {

// Where the text goes. Counts every byte produced, stores only those that fit
// in cap (the buffer length less the NUL), so a too-small buffer costs no
// extra pass: the count is the snprintf result.
struct Sink {
  char *buf;
  uint64_t cap;
  uint64_t n = 0;
  bool bad_number = false;  // a %N met bytes that are no number: reported once

  void put(char c) {
    if (n < cap) buf[n] = c;
    ++n;
  }
  void write(const char *s, size_t k) {
    if (k == 0) return;  // buf may be null when nothing is to be stored
    if (n + k <= cap) {  // the common case: it all fits
      std::memcpy(buf + n, s, k);
    } else if (n < cap) {
      uint64_t room = cap - n;
      std::memcpy(buf + n, s, k < room ? k : static_cast<size_t>(room));
    }
    n += k;
  }
  // Runs of padding are counted, not looped over, beyond the buffer: a width
  // of two billion costs nothing once the buffer is full.
  void fill(char c, uint64_t k) {
    if (k == 0) return;
    if (n < cap) {
      uint64_t room = cap - n;
      std::memset(buf + n, c, static_cast<size_t>(k < room ? k : room));
    }
    n += k;
  }
};

enum class Len : uint8_t { none, hh, h, l, ll, j, z, t, L };

// One parsed conversion, after any * width or precision has been resolved.
struct Spec {
  bool minus = false, plus = false, space = false, alt = false, zero = false;
  int64_t width = 0;  // 0 = none; up to 2^31 (a negated INT_MIN from an argument)
  int32_t prec = -1;  // -1 = none
  Len len = Len::none;
  char conv = 0;
};

// Padding around a field of `body` bytes preceded by `prefix` bytes (sign,
// 0x): how many spaces go before and after, and how many zeros go between
// prefix and body when the '0' flag pads.
struct Pad {
  uint64_t left = 0, zeros = 0, right = 0;
};
inline Pad field_pad(const Spec &s, uint64_t prefix, uint64_t body, bool zero_ok) {
  Pad p;
  uint64_t used = prefix + body;
  if (static_cast<uint64_t>(s.width) <= used) return p;
  uint64_t extra = static_cast<uint64_t>(s.width) - used;
  if (s.minus)
    p.right = extra;
  else if (s.zero && zero_ok)
    p.zeros = extra;
  else
    p.left = extra;
  return p;
}

// Floating point, f F e E g G a A (inf and nan included).
void format_double(Sink &out, const Spec &s, double v);
void format_long_double(Sink &out, const Spec &s, long double v);

// Exact decimal expansion of mant * 2^exp2: digits without leading or
// trailing zeros, value = 0.d1d2d3... * 10^point. nd == 0 means zero.
struct Decimal {
  char *dig;
  int nd;
  int point;
};
// limbs/digits: caller's scratch; capacities must cover the value (see
// float.cpp for the bounds of double and long double). Only the digits that
// rounding needs are kept: up to `limit` after the point when fixed, else
// `limit` significant ones, plus one; any further nonzero digits show as a
// final '1', which rounds the same way.
void decimal_expand(Decimal &d, uint64_t mant, int exp2, uint32_t *limbs, int limb_cap, char *digits,
                    int digit_cap, bool fixed, int64_t limit);
// Keep the first k significant digits, rounding to nearest, ties to even.
void decimal_round(Decimal &d, int k);

// %N: a library number (length-prefixed bytes) as text under the conversion's
// flags, width and precision; false, with nothing written, for a null
// pointer or malformed bytes.
bool lsfpcon(Sink &o, const Spec &s, const unsigned char *num);
// Records the bad-number message on the error stack of the library context
// ctx (nothing when ctx is null).
void report_bad_number(void *ctx);

}  // namespace lsf_internal
