// lnx_impl.h - internals of the decimal number family, shared by the number/
// sources, the float conversions in sys/ and the tests.
//
// A number travels through the library as a short byte string whose byte
// order is its numeric order. Arithmetic never works on those bytes directly:
// each operation decodes its operands into `Num` (sign, base-100 exponent,
// plain digits 0..99), computes an exact or sufficiently wide intermediate
// digit string and hands it to `encode`, the one place that rounds to twenty
// base-100 digits (half away from zero, on the twenty-first digit), applies
// overflow to infinity and underflow to zero and writes the bytes out.
// Because every operation decodes before it writes, an output buffer may
// alias any input.
//
// Sections: byte-level constants; the decoded form; argument conventions;
// encoding; text rendering (for the formatter and the text functions).
#ifndef KEL_NUMBER_LNX_IMPL_H
#define KEL_NUMBER_LNX_IMPL_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace lnx_internal {

// ---------------------------------------------------------------- bytes
constexpr int kMaxDigits = 20;        // base-100 digits in a number
constexpr int kMaxBytes = 21;         // exponent byte + digits (+ terminator)
constexpr int kBufBytes = 22;         // length-prefixed buffer
constexpr uint8_t kZeroByte = 0x80;
constexpr uint8_t kTerm = 102;        // terminator of negative numbers
constexpr uint8_t kPosInfDigit = 101; // second byte of positive infinity
constexpr int kMinExp = -64;          // base-100 exponent range of finite numbers
constexpr int kMaxExp = 62;

// ---------------------------------------------------------------- decoded form
enum class Kind : uint8_t { Zero, Finite, PosInf, NegInf };

struct Num {
  Kind kind;
  bool neg;          // sign of a finite number (and of NegInf)
  int exp;           // base-100 exponent of d[0]
  int n;             // number of digits, 1..20 for Finite
  uint8_t d[kMaxDigits + 4];  // base-100 digits, most significant first; zero beyond n
};

// Resolves the length convention: a zero length means the first byte is the
// length. Returns the number's bytes and stores their count in *len; the
// count is clamped to 21 so that malformed input never reads past a buffer.
inline const uint8_t *resolve(const uint8_t *p, size_t &len) {
  if (len == 0) {
    len = p[0];
    ++p;
  }
  if (len > static_cast<size_t>(kMaxBytes)) len = kMaxBytes;
  return p;
}

// Decodes a number (not validated: arithmetic trusts its input, callers
// with outside bytes run lnxchk first). Never reads beyond `len` bytes.
void decode(const uint8_t *p, size_t len, Num &out);
inline void decode_arg(const uint8_t *p, size_t len, Num &out) {
  p = resolve(p, len);
  decode(p, len, out);
}

// ---------------------------------------------------------------- encoding
// Copies 0..24 bytes between buffers that do not overlap, with a few
// fixed-size moves instead of a library call: numbers are short, and a call
// per copy was a large share of an addition.
inline void copy_short(uint8_t *dst, const uint8_t *src, size_t n) {
  if (n >= 16) {
    std::memcpy(dst, src, 16);
    std::memcpy(dst + n - 8, src + n - 8, 8);
  } else if (n >= 8) {
    std::memcpy(dst, src, 8);
    std::memcpy(dst + n - 8, src + n - 8, 8);
  } else if (n >= 4) {
    std::memcpy(dst, src, 4);
    std::memcpy(dst + n - 4, src + n - 4, 4);
  } else {
    for (size_t i = 0; i < n; ++i) dst[i] = src[i];
  }
}

// Writes `bytes` (len 1..21) in the caller's output convention: with a null
// length pointer the length byte comes first.
inline void emit(const uint8_t *bytes, size_t len, uint8_t *out, size_t *outlen) {
  // `bytes` is always the caller's private copy, never the output buffer.
  if (outlen == nullptr) {
    uint8_t tmp[kBufBytes + 2];
    tmp[0] = static_cast<uint8_t>(len);
    copy_short(tmp + 1, bytes, len);
    copy_short(out, tmp, len + 1);
  } else {
    copy_short(out, bytes, len);
    *outlen = len;
  }
}

// Encodes a digit string (base-100 digits 0..99, most significant first, the
// first at base-100 exponent `exp`) into number bytes. Leading zero digits are
// skipped, more than twenty digits are rounded half up on the twenty-first,
// trailing zeros dropped, exponents beyond the range give infinity of the
// sign or zero. `d` is scratch (modified). Returns the byte count (1..21).
int encode_bytes(bool neg, int exp, uint8_t *d, int n, uint8_t *bytes);

// Writes straight into the destination: callers have read all of their
// inputs into `d` (or elsewhere) before, so an aliased output is safe, and
// no staging copy is loaded right after its bytes were stored.
inline void encode(bool neg, int exp, uint8_t *d, int n, uint8_t *out, size_t *outlen) {
  if (outlen != nullptr) {
    *outlen = static_cast<size_t>(encode_bytes(neg, exp, d, n, out));
  } else {
    out[0] = static_cast<uint8_t>(encode_bytes(neg, exp, d, n, out + 1));
  }
}

// Writes a decoded number (Num digits are already normalised).
void encode_num(const Num &x, uint8_t *out, size_t *outlen);

inline void emit_zero(uint8_t *out, size_t *outlen) {
  const uint8_t z = kZeroByte;
  emit(&z, 1, out, outlen);
}
inline void emit_inf(bool neg, uint8_t *out, size_t *outlen) {
  static const uint8_t pinf[2] = {0xFF, kPosInfDigit};
  static const uint8_t ninf[1] = {0x00};
  if (neg)
    emit(ninf, 1, out, outlen);
  else
    emit(pinf, 2, out, outlen);
}

// ---------------------------------------------------------------- text
// Text forms of a number. All write plain ASCII without a terminating NUL
// and return the length, or 0 when `cap` is too small (nothing useful is
// left in `buf` then).
//  - Plain: positional notation, exact, no exponent ("-123.45", "0.001",
//    "100"); infinities are "Infinity" and "-Infinity"; zero is "0".
//  - Shortest: the shorter of the plain form and the scientific form
//    ("1.2345E+130", "-5E-128"), preferring plain on a tie. Both parse back
//    to the same number.
//  - Fixed: the value rounded half up to `places` decimal places and shown
//    with exactly max(places, 0) digits after the point ("2.50", "-0.00"
//    is printed as "0.00").
// The formatter's directive for numbers calls these directly.
enum class TextForm : int { Plain = 0, Shortest = 1, Fixed = 2 };
constexpr size_t kPlainTextMax = 176;   // enough for any number in Plain form
size_t to_text(const Num &x, TextForm form, int32_t places, char *buf, size_t cap);

// Arithmetic kernels on decoded numbers, used by the composite operations
// (sum, modulo, scale) without re-encoding in between.
void add_num(const Num &a, const Num &b, bool subtract, uint8_t *out, size_t *outlen);
// The plain multiplication and division on decoded operands: every operand
// shape, and the reference the byte-level fast paths are tested against.
void mul_num(const Num &a, const Num &b, uint8_t *out, size_t *outlen);
void div_num(const Num &a, const Num &b, uint8_t *out, size_t *outlen);

// Fast paths straight from the bytes for finite non-zero operands (the
// common case): they read the base-100 digit bytes eight at a time into
// 64-bit words and never build a decoded copy. Each returns false, having
// written nothing, for the shapes it leaves to the plain kernels (zeros,
// infinities, operands too far apart); when it returns true its output is
// byte for byte what the plain kernel gives.
bool add_fast(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, bool subtract,
              uint8_t *out, size_t *outlen);
bool mul_fast(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out,
              size_t *outlen);
bool div_fast(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out,
              size_t *outlen);
// The same operations through the plain kernels, on arguments in the
// caller's conventions (decoded first): what the entry points fall back to.
void add_plain(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, bool subtract, uint8_t *out,
               size_t *outlen);
void mul_plain(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out, size_t *outlen);
void div_plain(const uint8_t *a, size_t alen, const uint8_t *b, size_t blen, uint8_t *out, size_t *outlen);

// Round (truncate == false) or truncate to `places` decimal places.
void round_num(const Num &x, int32_t places, bool truncate, uint8_t *out, size_t *outlen);

// Long division in base B (10000 or 10^8) on little-endian limbs:
// q[0..m] = u / v where u has m + n limbs (and room for one more), v has
// n >= 2 limbs with a non-zero top one. The remainder is left in u[0..n),
// multiplied by the returned factor. u and v are modified.
template <int64_t B>
uint32_t knuth_div(uint32_t *u, int m, uint32_t *v, int n, uint32_t *q);

}  // namespace lnx_internal

#endif
