// printf.cpp - the conversion-language driver behind lsfp, lsfpv and lsfpd.
//
// Design. One loop (run) copies literal text and hands each parsed
// conversion to an argument source; the source finds the argument (next in
// a va_list, by position from a va_list fetched ahead, or from an lsfarg
// row), and emit() writes it. Parsing never reads past the format's NUL and
// the Sink never writes past the buffer, so a hostile format can at worst
// produce -1.
//
// Positional arguments in a va_list cannot be fetched out of order. A format
// whose first conversion carries a position is therefore started again: a
// first walk records the type of every position, the arguments are fetched
// in order, and a second walk formats. A malformed conversion found by the
// first walk is where the second one stops. Plain formats take one walk.
//
// Sections: parsing; integer, character and text conversions; emit; the
// argument sources; the entry points.
#include <cwchar>

#include "format/format_impl.h"
#include "lsf.h"

namespace lsf_internal {
namespace {

// ---------------------------------------------------------------- parsing

enum class Mode : uint8_t { unknown, plain, positional };

struct Conv {
  Spec s;
  int32_t pos = 0;  // argument position, 0 = the next one
  bool wstar = false, pstar = false;
  int32_t wpos = 0, ppos = 0;
};

inline bool is_digit(char c) { return c >= '0' && c <= '9'; }

// A decimal number up to INT32_MAX; false when it is larger.
bool read_num(const char *&p, int64_t &v) {
  v = 0;
  while (is_digit(*p)) {
    v = v * 10 + (*p - '0');
    if (v > INT32_MAX) return false;
    ++p;
  }
  return true;
}

// "digits$" at p: the position (>= 1) in pos and p moved past the '$';
// returns false for a malformed position, leaves p alone when there is none.
bool read_pos(const char *&p, int32_t &pos) {
  pos = 0;
  if (!is_digit(*p)) return true;
  const char *q = p;
  int64_t v;
  if (!read_num(q, v)) return false;
  if (*q != '$') return true;
  if (v == 0) return false;
  pos = static_cast<int32_t>(v);
  p = q + 1;
  return true;
}

bool note_mode(Mode &mode, bool positional) {
  Mode want = positional ? Mode::positional : Mode::plain;
  if (mode == Mode::unknown) mode = want;
  return mode == want;
}

// p points just past the '%' (not a "%%"); on success it points past the
// conversion letter.
bool parse(const char *&p, Conv &c, Mode &mode) {
  const char *q = p;
  if (!read_pos(q, c.pos)) return false;
  if (!note_mode(mode, c.pos != 0)) return false;
  for (;; ++q) {
    switch (*q) {
      case '-': c.s.minus = true; continue;
      case '+': c.s.plus = true; continue;
      case ' ': c.s.space = true; continue;
      case '#': c.s.alt = true; continue;
      case '0': c.s.zero = true; continue;
      default: break;
    }
    break;
  }
  if (*q == '*') {
    ++q;
    c.wstar = true;
    if (!read_pos(q, c.wpos)) return false;
    if ((c.wpos != 0) != (c.pos != 0)) return false;
  } else {
    int64_t w;
    if (!read_num(q, w)) return false;
    c.s.width = w;
  }
  if (*q == '.') {
    ++q;
    if (*q == '*') {
      ++q;
      c.pstar = true;
      if (!read_pos(q, c.ppos)) return false;
      if ((c.ppos != 0) != (c.pos != 0)) return false;
    } else {
      int64_t v;
      if (!read_num(q, v)) return false;
      c.s.prec = static_cast<int32_t>(v);
    }
  }
  switch (*q) {
    case 'h':
      ++q;
      if (*q == 'h') {
        ++q;
        c.s.len = Len::hh;
      } else {
        c.s.len = Len::h;
      }
      break;
    case 'l':
      ++q;
      if (*q == 'l') {
        ++q;
        c.s.len = Len::ll;
      } else {
        c.s.len = Len::l;
      }
      break;
    case 'q': ++q; c.s.len = Len::ll; break;
    case 'j': ++q; c.s.len = Len::j; break;
    case 'z': ++q; c.s.len = Len::z; break;
    case 't': ++q; c.s.len = Len::t; break;
    case 'L': ++q; c.s.len = Len::L; break;
    default: break;
  }
  switch (*q) {
    case 'd': case 'i': case 'u': case 'o': case 'x': case 'X': case 'c': case 's': case 'p':
    case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A': case 'N':
      c.s.conv = *q;
      p = q + 1;
      return true;
    default:
      // The end of the format, %n (never honoured) and anything unknown.
      return false;
  }
}

inline bool is_float_conv(char c) {
  switch (c) {
    case 'f': case 'F': case 'e': case 'E': case 'g': case 'G': case 'a': case 'A': return true;
    default: return false;
  }
}

// ------------------------------------------ integer, character and text

constexpr char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Integer conversions d i u o x X, and p (hexadecimal with 0x, where the
// sign flags still apply as they do for a signed number).
void emit_int(Sink &o, const Spec &s, uint64_t mag, bool neg, bool sign_flags) {
  char tmp[24];
  char *e = tmp + sizeof tmp;
  char *b = e;
  const char *prefix = nullptr;
  size_t plen = 0;
  char sign = 0;
  switch (s.conv) {
    case 'o':
      for (uint64_t v = mag; v; v >>= 3) *--b = static_cast<char>('0' + (v & 7));
      break;
    case 'x':
    case 'X': {
      const char *hexd = s.conv == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
      for (uint64_t v = mag; v; v >>= 4) *--b = hexd[v & 15];
      if (s.alt && mag) {
        prefix = s.conv == 'x' ? "0x" : "0X";
        plen = 2;
      }
      break;
    }
    default: {
      uint64_t v = mag;
      while (v >= 100) {
        uint64_t r = v % 100;
        v /= 100;
        b -= 2;
        b[0] = kPairs[2 * r];
        b[1] = kPairs[2 * r + 1];
      }
      if (v >= 10) {
        b -= 2;
        b[0] = kPairs[2 * v];
        b[1] = kPairs[2 * v + 1];
      } else if (v) {
        *--b = static_cast<char>('0' + v);
      }
      break;
    }
  }
  // b..e is empty for zero; a zero shows as "0" unless the precision is 0.
  if (b == e && s.prec != 0) *--b = '0';
  uint64_t nd = static_cast<uint64_t>(e - b);
  uint64_t zeros = s.prec > 0 && static_cast<uint64_t>(s.prec) > nd ? s.prec - nd : 0;
  if (s.conv == 'o' && s.alt && zeros == 0 && (nd == 0 || *b != '0')) zeros = 1;
  if (neg)
    sign = '-';
  else if (sign_flags && s.plus)
    sign = '+';
  else if (sign_flags && s.space)
    sign = ' ';
  uint64_t pre = (sign ? 1 : 0) + plen;
  Pad pad = field_pad(s, pre, zeros + nd, s.prec < 0);
  o.fill(' ', pad.left);
  if (sign) o.put(sign);
  if (plen) o.write(prefix, plen);
  o.fill('0', pad.zeros + zeros);
  o.write(b, nd);
  o.fill(' ', pad.right);
}

void emit_text(Sink &o, const Spec &s, const char *t, uint64_t n) {
  Pad pad = field_pad(s, 0, n, false);
  o.fill(' ', pad.left);
  o.write(t, n);
  o.fill(' ', pad.right);
}

// UTF-8 of a code point; '?' for what is no Unicode scalar value.
int utf8(uint32_t c, char *out) {
  if (c < 0x80) {
    out[0] = static_cast<char>(c);
    return 1;
  }
  if (c < 0x800) {
    out[0] = static_cast<char>(0xc0 | (c >> 6));
    out[1] = static_cast<char>(0x80 | (c & 0x3f));
    return 2;
  }
  if ((c >= 0xd800 && c <= 0xdfff) || c > 0x10ffff) {
    out[0] = '?';
    return 1;
  }
  if (c < 0x10000) {
    out[0] = static_cast<char>(0xe0 | (c >> 12));
    out[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3f));
    out[2] = static_cast<char>(0x80 | (c & 0x3f));
    return 3;
  }
  out[0] = static_cast<char>(0xf0 | (c >> 18));
  out[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3f));
  out[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3f));
  out[3] = static_cast<char>(0x80 | (c & 0x3f));
  return 4;
}

void emit_string(Sink &o, const Spec &s, const char *t) {
  if (!t) {
    // As the C library does: a precision too small for the marker hides it.
    if (s.prec >= 0 && s.prec < 6) return emit_text(o, s, "", 0);
    return emit_text(o, s, "(null)", 6);
  }
  uint64_t n = 0;
  if (s.prec < 0) {
    n = std::strlen(t);
  } else {
    // The text need not be terminated within the precision: read no further.
    while (n < static_cast<uint64_t>(s.prec) && t[n]) ++n;
  }
  emit_text(o, s, t, n);
}

void emit_wstring(Sink &o, const Spec &s, const wchar_t *w) {
  if (!w) return emit_string(o, s, nullptr);
  char u[4];
  uint64_t n = 0;
  const wchar_t *p = w;
  for (; *p; ++p) {
    uint64_t k = static_cast<uint64_t>(utf8(static_cast<uint32_t>(*p), u));
    if (s.prec >= 0 && n + k > static_cast<uint64_t>(s.prec)) break;
    n += k;
    if (s.prec >= 0 && n == static_cast<uint64_t>(s.prec)) {
      ++p;
      break;
    }
  }
  const wchar_t *end = p;
  Pad pad = field_pad(s, 0, n, false);
  o.fill(' ', pad.left);
  for (p = w; p != end; ++p) o.write(u, static_cast<size_t>(utf8(static_cast<uint32_t>(*p), u)));
  o.fill(' ', pad.right);
}

// ------------------------------------------------------------------ emit

// An argument as fetched: which member is live follows from the conversion.
union Raw {
  int64_t i;
  double d;
  long double ld;
  const void *p;
};

int64_t narrow_signed(Len len, int64_t v) {
  switch (len) {
    case Len::hh: return static_cast<signed char>(v);
    case Len::h: return static_cast<short>(v);
    case Len::none: return static_cast<int>(v);
    default: return v;
  }
}

uint64_t narrow_unsigned(Len len, int64_t v) {
  switch (len) {
    case Len::hh: return static_cast<unsigned char>(v);
    case Len::h: return static_cast<unsigned short>(v);
    case Len::none: return static_cast<unsigned int>(v);
    default: return static_cast<uint64_t>(v);
  }
}

// False only for a %N whose argument is no number (the sink notes it).
bool emit(Sink &o, const Spec &s, const Raw &r) {
  switch (s.conv) {
    case 'N':
      if (lsfpcon(o, s, static_cast<const unsigned char *>(r.p))) return true;
      o.bad_number = true;
      return false;
    case 'd':
    case 'i': {
      int64_t v = narrow_signed(s.len, r.i);
      uint64_t mag = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
      emit_int(o, s, mag, v < 0, true);
      return true;
    }
    case 'u':
    case 'o':
    case 'x':
    case 'X':
      emit_int(o, s, narrow_unsigned(s.len, r.i), false, false);
      return true;
    case 'c': {
      char u[4];
      int k;
      if (s.len == Len::l)
        k = utf8(static_cast<uint32_t>(r.i), u);
      else
        u[0] = static_cast<char>(static_cast<unsigned char>(r.i)), k = 1;
      emit_text(o, s, u, static_cast<uint64_t>(k));
      return true;
    }
    case 's':
      if (s.len == Len::l)
        emit_wstring(o, s, static_cast<const wchar_t *>(r.p));
      else
        emit_string(o, s, static_cast<const char *>(r.p));
      return true;
    case 'p': {
      if (!r.p) {
        emit_text(o, s, "(nil)", 5);
        return true;
      }
      Spec h = s;
      h.conv = 'x';
      h.alt = true;
      emit_int(o, h, reinterpret_cast<uintptr_t>(r.p), false, true);
      return true;
    }
    default:
      if (s.len == Len::L)
        format_long_double(o, s, r.ld);
      else
        format_double(o, s, r.d);
      return true;
  }
}

void apply_width(Spec &s, int64_t w) {
  if (w < 0) {
    s.minus = true;
    w = -w;
  }
  s.width = w;
}

// ------------------------------------------------------ argument sources

enum class ArgClass : uint8_t { none, i32, i64, dbl, ldbl, ptr };

ArgClass class_of(const Spec &s) {
  switch (s.conv) {
    case 'c': return ArgClass::i32;
    case 's':
    case 'p':
    case 'N': return ArgClass::ptr;
    case 'd': case 'i': case 'u': case 'o': case 'x': case 'X':
      return (s.len == Len::none || s.len == Len::h || s.len == Len::hh) ? ArgClass::i32 : ArgClass::i64;
    default: return s.len == Len::L ? ArgClass::ldbl : ArgClass::dbl;
  }
}

Raw fetch(va_list *ap, ArgClass c) {
  Raw r;
  r.ld = 0;
  switch (c) {
    case ArgClass::i32: r.i = va_arg(*ap, int); break;
    case ArgClass::i64: r.i = va_arg(*ap, long long); break;
    case ArgClass::dbl: r.d = va_arg(*ap, double); break;
    case ArgClass::ldbl: r.ld = va_arg(*ap, long double); break;
    case ArgClass::ptr: r.p = va_arg(*ap, const void *); break;
    case ArgClass::none: break;
  }
  return r;
}

// Walks fmt, copying text and handing conversions to src. fail: a
// conversion is malformed, src cannot serve one, or the walk reached stop
// (the conversion a first walk found malformed); restart: src needs the
// positional walk instead.
enum class Step : uint8_t { ok, fail, restart };

template <class Src>
Step run(Sink &o, const char *f, Src &src, const char *stop) {
  Mode mode = Mode::unknown;
  for (;;) {
    const char *q = f;
    while (*q && *q != '%') ++q;
    o.write(f, static_cast<size_t>(q - f));
    if (!*q) return Step::ok;
    if (q[1] == '%') {
      o.put('%');
      f = q + 2;
      continue;
    }
    if (q == stop) return Step::fail;
    const char *p = q + 1;
    Conv c;
    if (!parse(p, c, mode)) return Step::fail;
    Step r = src.convert(o, c);
    if (r != Step::ok) return r;
    f = p;
  }
}

struct VaNext {
  va_list *ap;
  Step convert(Sink &o, Conv &c) {
    // Positions show at the first conversion (parse refuses a later switch),
    // before any argument was taken: the caller starts over positionally.
    if (c.pos) return Step::restart;
    if (c.wstar) apply_width(c.s, va_arg(*ap, int));
    if (c.pstar) {
      int v = va_arg(*ap, int);
      c.s.prec = v < 0 ? -1 : v;
    }
    return emit(o, c.s, fetch(ap, class_of(c.s))) ? Step::ok : Step::fail;
  }
};

struct VaPositional {
  Raw vals[LSF_MAX_POSITIONAL];
  int have = 0;  // positions 1..have were fetched
  Step convert(Sink &o, Conv &c) {
    if (c.wstar) {
      if (c.wpos > have) return Step::fail;
      apply_width(c.s, static_cast<int>(vals[c.wpos - 1].i));
    }
    if (c.pstar) {
      if (c.ppos > have) return Step::fail;
      int v = static_cast<int>(vals[c.ppos - 1].i);
      c.s.prec = v < 0 ? -1 : v;
    }
    if (c.pos > have) return Step::fail;
    return emit(o, c.s, vals[c.pos - 1]) ? Step::ok : Step::fail;
  }
};

// First walk of a positional format: the class of every position up to the
// first malformed conversion, which is returned (null if none).
const char *collect_classes(const char *f, ArgClass *cls) {
  Mode mode = Mode::unknown;
  auto need = [&](int32_t pos, ArgClass c) {
    if (pos > LSF_MAX_POSITIONAL) return false;
    ArgClass &have = cls[pos - 1];
    if (have != ArgClass::none && have != c) return false;
    have = c;
    return true;
  };
  for (;;) {
    const char *q = std::strchr(f, '%');
    if (!q) return nullptr;
    if (q[1] == '%') {
      f = q + 2;
      continue;
    }
    const char *p = q + 1;
    Conv c;
    if (!parse(p, c, mode)) return q;
    if (c.wstar && !need(c.wpos, ArgClass::i32)) return q;
    if (c.pstar && !need(c.ppos, ArgClass::i32)) return q;
    if (!need(c.pos, class_of(c.s))) return q;
    f = p;
  }
}

bool format_va(Sink &o, const char *fmt, va_list *ap) {
  VaNext next{ap};
  Step r = run(o, fmt, next, nullptr);
  if (r != Step::restart) return r == Step::ok;
  o.n = 0;
  ArgClass cls[LSF_MAX_POSITIONAL] = {};
  const char *bad = collect_classes(fmt, cls);
  VaPositional src;
  while (src.have < LSF_MAX_POSITIONAL && cls[src.have] != ArgClass::none) {
    src.vals[src.have] = fetch(ap, cls[src.have]);
    ++src.have;
  }
  return run(o, fmt, src, bad) == Step::ok && bad == nullptr;
}

inline bool int_row(int32_t t) {
  return t == LSF_ARG_INT || t == LSF_ARG_UINT || t == LSF_ARG_CHAR || t == LSF_ARG_CODE;
}

struct Rows {
  const lsfarg *a;
  uint64_t count;
  uint64_t next = 0;

  const lsfarg *take(int32_t pos) {
    uint64_t i = pos ? static_cast<uint64_t>(pos) - 1 : next++;
    return i < count ? &a[i] : nullptr;
  }
  // A * value: only an integer row gives one.
  bool star(int32_t pos, int64_t &v) {
    const lsfarg *r = take(pos);
    if (!r || !int_row(r->type)) return false;
    v = r->v.i < INT32_MIN ? INT32_MIN : r->v.i > INT32_MAX ? INT32_MAX : r->v.i;
    return true;
  }

  Step convert(Sink &o, Conv &c) {
    int64_t v;
    if (c.wstar && star(c.wpos, v)) apply_width(c.s, v);
    if (c.pstar && star(c.ppos, v)) c.s.prec = v < 0 ? -1 : static_cast<int32_t>(v);
    const lsfarg *r = take(c.pos);
    if (!r) return Step::ok;
    Spec s = c.s;
    Raw x;
    x.ld = 0;
    // A row of another kind than the conversion prints in its own form.
    auto natural = [&](char conv, Len len) {
      s.conv = conv;
      s.len = len;
      s.prec = -1;
    };
    if (s.conv == 'N' && r->type != LSF_ARG_NUMBER) natural('s', Len::none);
    switch (r->type) {
      case LSF_ARG_NUMBER:
        x.p = r->v.p;
        if (s.conv != 'N' && s.conv != 'p') natural('N', Len::none);
        break;
      case LSF_ARG_INT:
      case LSF_ARG_UINT:
      case LSF_ARG_CHAR:
      case LSF_ARG_CODE:
        if (is_float_conv(s.conv)) {
          x.d = r->type == LSF_ARG_UINT ? static_cast<double>(r->v.u) : static_cast<double>(r->v.i);
          if (s.len == Len::L) s.len = Len::none;
          break;
        }
        x.i = r->v.i;
        if (s.conv == 'p') {
          x.p = reinterpret_cast<const void *>(static_cast<uintptr_t>(r->v.u));
          break;
        }
        if (s.conv == 's')
          natural(r->type == LSF_ARG_UINT ? 'u' : r->type == LSF_ARG_CHAR ? 'c' : 'd',
                  r->type == LSF_ARG_CHAR ? Len::none : Len::ll);
        else if (s.conv != 'c' && s.len != Len::h && s.len != Len::hh)
          s.len = Len::ll;  // rows are 64-bit: plain %d must not cut them
        break;
      case LSF_ARG_DOUBLE:
        x.d = r->v.d;
        if (!is_float_conv(s.conv))
          natural('g', Len::none);
        else if (s.len == Len::L)
          s.len = Len::none;
        break;
      case LSF_ARG_TEXT:
      case LSF_ARG_WTEXT: {
        bool wide = r->type == LSF_ARG_WTEXT;
        x.p = r->v.p;
        if (s.conv == 's')
          s.len = wide ? Len::l : Len::none;
        else if (s.conv != 'p')
          natural('s', wide ? Len::l : Len::none);
        break;
      }
      case LSF_ARG_PTR:
        x.p = r->v.p;
        if (s.conv != 'p') natural('p', Len::none);
        break;
      default:
        return Step::ok;
    }
    return emit(o, s, x) ? Step::ok : Step::fail;
  }
};

int32_t finish(void *ctx, Sink &o, size_t len, bool ok) {
  if (len) o.buf[o.n < o.cap ? o.n : o.cap] = '\0';
  if (o.bad_number) report_bad_number(ctx);
  if (!ok || o.n > static_cast<uint64_t>(INT32_MAX)) return -1;
  return static_cast<int32_t>(o.n);
}

}  // namespace
}  // namespace lsf_internal

using namespace lsf_internal;

extern "C" KELAPI int32_t lsfpv(void *ctx, char *buf, size_t len, const char *fmt, va_list ap) {
  if (!buf) len = 0;
  Sink o{buf, len ? len - 1 : 0};
  if (!fmt) return finish(ctx, o, len, false);
  va_list cp;
  va_copy(cp, ap);
  bool ok = format_va(o, fmt, &cp);
  va_end(cp);
  return finish(ctx, o, len, ok);
}

extern "C" KELAPI int32_t lsfp(void *ctx, char *buf, size_t len, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int32_t r = lsfpv(ctx, buf, len, fmt, ap);
  va_end(ap);
  return r;
}

extern "C" KELAPI int32_t lsfpd(void *ctx, char *buf, size_t len, const char *fmt, const lsfarg *args) {
  if (!buf) len = 0;
  Sink o{buf, len ? len - 1 : 0};
  if (!fmt) return finish(ctx, o, len, false);
  uint64_t count = 0;
  if (args)
    while (args[count].type != LSF_ARG_END) ++count;
  Rows src{args, count};
  return finish(ctx, o, len, run(o, fmt, src, nullptr) == Step::ok);
}
