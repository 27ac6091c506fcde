// oracle.h - random conversions and their arguments, a way to pass an
// argument list chosen at run time to both vsnprintf and the formatter (so
// that the C library's printf is the oracle for every case), and builders of
// lsfpd's argument rows.
#pragma once

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "lsf.h"

#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-extra-args"

namespace lsftest {

// How an argument is passed through "...".
enum Kind { kInt, kLong, kDouble, kLongDouble, kPtr };

struct Arg {
  Kind kind = kInt;
  int i = 0;
  long long ll = 0;
  double d = 0;
  long double ld = 0;
  const void *p = nullptr;
  lsfarg row{};  // the same argument as an lsfpd row
  bool has_row = true;
};

// The outputs of one call: result and buffer contents (with the bytes just
// past len, to catch writes beyond the buffer).
struct Out {
  int r;
  std::string text;
  bool overrun;
};

constexpr size_t kGuard = 16;

template <class F>
Out capture(size_t len, F call) {
  std::vector<char> buf(len + kGuard, '\x5a');
  Out o;
  o.r = call(buf.data(), len);
  o.text.assign(buf.data(), len);
  o.overrun = std::any_of(buf.begin() + static_cast<long>(len), buf.end(), [](char c) { return c != '\x5a'; });
  // Bytes after the NUL are not part of the contract; keep up to the NUL.
  if (len) {
    size_t n = o.r >= 0 && static_cast<size_t>(o.r) < len ? static_cast<size_t>(o.r) : len - 1;
    if (o.r < 0) n = strnlen(buf.data(), len - 1);  // a failed call: up to its NUL
    o.text.resize(n + 1);
  }
  return o;
}

// A va_list that reads every argument from a caller-filled block, as a callee
// does once its register save area is used up (System V x86-64 layout). This
// lets one test pass an argument list chosen at run time to vsnprintf and
// lsfpv alike. On 64-bit Windows a va_list is that pointer already, and a
// long double travels as a pointer to it.
#if defined(_WIN64)
inline void va_list_at(va_list &ap, void *area) { ap = static_cast<char *>(area); }
#elif !(defined(__x86_64__) && defined(__linux__))
#error "the formatter's oracle tests build va_lists for System V x86-64 or 64-bit Windows"
#else
// Makes ap read every argument from `area`, 8-byte slots (16 for a long
// double) in order.
inline void va_list_at(va_list ap, void *area) {
  struct Tag {
    unsigned gp_offset, fp_offset;
    void *overflow_arg_area, *reg_save_area;
  };
  static_assert(sizeof(va_list) == sizeof(Tag));
  Tag *t = reinterpret_cast<Tag *>(ap);
  t->gp_offset = 48;   // all six integer registers taken
  t->fp_offset = 176;  // all eight vector registers taken
  t->overflow_arg_area = area;
  t->reg_save_area = nullptr;
}
#endif

struct ArgBlock {
  alignas(16) unsigned char area[64 * 16];
  size_t used = 0;

  explicit ArgBlock(const std::vector<Arg> &args) {
    for (const Arg &a : args) {
      switch (a.kind) {
        case kInt: {
          long long v = a.i;  // an int travels in an 8-byte slot
          put(&v, 8, 8);
          break;
        }
        case kLong: put(&a.ll, 8, 8); break;
        case kDouble: put(&a.d, 8, 8); break;
#ifdef _WIN64
        case kLongDouble: {
          const long double *p = &a.ld;
          put(&p, 8, 8);
          break;
        }
#else
        case kLongDouble: put(&a.ld, 16, 16); break;
#endif
        case kPtr: put(&a.p, 8, 8); break;
      }
    }
  }
  void put(const void *v, size_t size, size_t align) {
    used = (used + align - 1) / align * align;
    std::memset(area + used, 0, size);
    std::memcpy(area + used, v, size == 16 ? 10 : size);
    used += size;
  }
  // ap must be fresh for every call: va_arg advances it.
  void start(va_list &ap) { va_list_at(ap, area); }
};

inline std::string describe(const std::vector<Arg> &a) {
  std::string s;
  char t[128];
  for (const Arg &x : a) {
    switch (x.kind) {
      case kInt: snprintf(t, sizeof t, " int(%d)", x.i); break;
      case kLong: snprintf(t, sizeof t, " ll(%lld)", x.ll); break;
      case kDouble: snprintf(t, sizeof t, " double(%a)", x.d); break;
      case kLongDouble: snprintf(t, sizeof t, " ldouble(%La)", x.ld); break;
      case kPtr: snprintf(t, sizeof t, " ptr(%p)", x.p); break;
    }
    s += t;
  }
  return s;
}

// ------------------------------------------------------------ generator

struct Gen {
  std::mt19937_64 rng;
  explicit Gen(uint64_t seed) : rng(seed) {}

  uint64_t u64() { return rng(); }
  int range(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
  bool chance(int percent) { return range(0, 99) < percent; }

  long long int_value() {
    static const long long special[] = {0, 1, -1, 7, -7, 10, 100, 255, 256, -128, 32767, -32768, 65535,
                                        INT_MAX, INT_MIN, UINT_MAX, LLONG_MAX, LLONG_MIN};
    if (chance(30)) return special[range(0, sizeof special / sizeof *special - 1)];
    int bits = range(1, 64);
    uint64_t v = u64();
    if (bits < 64) v &= (uint64_t{1} << bits) - 1;
    return static_cast<long long>(v) * (chance(30) ? -1 : 1);
  }

  double double_value() {
    switch (range(0, 9)) {
      case 0: {
        uint64_t b = u64();
        double d;
        std::memcpy(&d, &b, 8);
        return d;
      }
      case 1: {
        // Where exact conversion matters most: the ends of the range, ties,
        // the first integers a double cannot hold, nines that carry.
        static const double sp[] = {0.0, -0.0, INFINITY, -INFINITY, NAN, -NAN, DBL_MIN, DBL_MAX, DBL_TRUE_MIN,
                                    -DBL_TRUE_MIN, DBL_EPSILON, 1.0, 0.1, 0.3, 0.5, 0.125, 1.5, 2.5, 9.5, 0.05,
                                    0.95, 999999.5, 1e15, 1e16, 1e17, 1e22, 1e23, 1e-300, 8.5e-5, 5e-324,
                                    2.2250738585072009e-308, 0x1.fffffffffffffp-1022, 0x1.fffffffffffffp+0,
                                    9007199254740993.0, 123456789012345678.0, 0.000099999995, 9.9999995};
        return sp[range(0, sizeof sp / sizeof *sp - 1)];
      }
      case 2: {  // a subnormal
        uint64_t b = u64() & ((uint64_t{1} << 52) - 1);
        double d;
        std::memcpy(&d, &b, 8);
        return chance(50) ? d : -d;
      }
      case 3:
      case 4: {  // decimal-looking values: many near-ties
        long long n = static_cast<long long>(u64() % 2000001) - 1000000;
        return static_cast<double>(n) / std::pow(10.0, range(0, 8));
      }
      case 5: {  // exact binary ties for some precision
        long long n = 2 * static_cast<long long>(u64() % 100000) + 1;
        return std::ldexp(static_cast<double>(n), -range(1, 20));
      }
      case 6: {  // large integers
        return std::ldexp(static_cast<double>(u64() >> 11), range(0, 200));
      }
      default: {
        double m = static_cast<double>(u64() >> 11) / 9007199254740992.0;
        return std::ldexp(m, range(-80, 80)) * (chance(25) ? -1 : 1);
      }
    }
  }

  long double long_double_value() {
    switch (range(0, 5)) {
      case 0:
        return static_cast<long double>(double_value());
      case 1: {
        static const long double sp[] = {0.0L, -0.0L, LDBL_MIN, LDBL_MAX, LDBL_TRUE_MIN, LDBL_EPSILON, 0.5L,
                                         1.5L, 2.5L, 0.1L, 1e4000L, 1e-4000L, 15.999999999999999999L,
                                         0x1.fffffffffffffffep+0L};
        return sp[range(0, sizeof sp / sizeof *sp - 1)];
      }
      case 2: {  // any exponent, normal or subnormal
        uint64_t m = u64();
        int e = range(0, 32766);
        if (e) m |= uint64_t{1} << 63; else m &= ~(uint64_t{1} << 63);
        return make_ld(m, e, chance(50));
      }
      default: {  // moderate exponents, where most values live
        uint64_t m = u64() | (uint64_t{1} << 63);
        int e = 16383 + range(-200, 200);
        return make_ld(m, e, chance(30));
      }
    }
  }

  static long double make_ld(uint64_t m, int e, bool neg) {
    long double v = 0;
    unsigned char raw[sizeof(long double)] = {};
    uint16_t se = static_cast<uint16_t>(e | (neg ? 0x8000 : 0));
    std::memcpy(raw, &m, 8);
    std::memcpy(raw + 8, &se, 2);
    std::memcpy(&v, raw, sizeof v);
    return v;
  }
};

inline const char *const kTexts[] = {"", "a", "hello", "Hello, world", "caf\xc3\xa9 na\xc3\xafve",
                                     "a somewhat longer text that goes on for a while", "%d %s not a format",
                                     "tab\there"};
inline const wchar_t *const kWideTexts[] = {L"", L"w", L"wide text", L"0123456789"};

inline lsfarg row_int(int64_t v, int32_t type = LSF_ARG_INT) {
  lsfarg r{};
  r.type = type;
  r.v.i = v;
  return r;
}
inline lsfarg row_double(double d) {
  lsfarg r{};
  r.type = LSF_ARG_DOUBLE;
  r.v.d = d;
  return r;
}
inline lsfarg row_ptr(const void *p, int32_t type) {
  lsfarg r{};
  r.type = type;
  r.v.p = p;
  return r;
}
inline lsfarg row_text(const char *s) { return row_ptr(s, LSF_ARG_TEXT); }

// What the C library prints for a format and its arguments.
inline std::string with_libc(const char *fmt, ...) {
  va_list ap, ap2;
  va_start(ap, fmt);
  va_copy(ap2, ap);
  int n = vsnprintf(nullptr, 0, fmt, ap);
  std::string out = "<libc failed>";
  if (n >= 0) {
    out.assign(static_cast<size_t>(n) + 1, '\0');
    vsnprintf(out.data(), out.size(), fmt, ap2);
    out.pop_back();
  }
  va_end(ap2);
  va_end(ap);
  return out;
}

}  // namespace lsftest
