// parse.cpp - decimal literals to numbers.
//
// The scanner reads blanks, a sign, integer digits, a decimal character and
// fraction digits, an optional exponent and trailing blanks; it keeps only
// the first 41 significant digits, which is all that rounding to at most 40
// kept digits (half up, on the first dropped digit) can look at. Text never
// fails to parse: no digits give zero with nothing consumed, too large a
// value saturates to an infinity, too small a value gives zero, and a value
// wider than a requested precision is still produced but reported by a
// consumed count of 0.
//
// Sections: alphabets; scanning; rounding and encoding; the interface.
#include <cstring>

#include "lnx.h"
#include "number/lnx_impl.h"
#include "number/nls_view_impl.h"

namespace lnx_internal {

namespace {

// ---------------------------------------------------------------- alphabets
// The characters a literal can use, in the text's own character set.
struct Alpha {
  uint8_t zero, plus, minus, blank, e_lower, e_upper;
};
constexpr Alpha kAscii{'0', '+', '-', ' ', 'e', 'E'};
constexpr Alpha kEbcdic{0xF0, 0x4E, 0x60, 0x40, 0x85, 0xC5};

constexpr int kKeep = 41;  // significant digits kept by the scanner

struct Scan {
  char dig[kKeep];    // significant digits (values 0..9), first kKeep
  int64_t ndig = 0;   // all significant digits, trailing zeros included
  int64_t nint = 0;   // integer digits after leading zeros
  int64_t lead_frac_zeros = 0;  // fraction zeros before the first significant digit
  bool neg = false;
  bool any_digit = false;
  int64_t exp = 0;
  bool exp_neg = false;
  int exp_sig = 0;    // significant exponent digits
  size_t pos = 0;
};

void scan(const uint8_t *t, size_t n, const Alpha &a, uint32_t dec, Scan &s) {
  size_t i = 0;
  auto isdig = [&](size_t k) { return k < n && t[k] >= a.zero && t[k] <= a.zero + 9; };
  while (i < n && t[i] == a.blank) ++i;
  if (i < n && (t[i] == a.plus || t[i] == a.minus)) {
    s.neg = t[i] == a.minus;
    ++i;
  }
  auto take = [&](int v) {
    if (s.ndig < kKeep) s.dig[s.ndig] = static_cast<char>(v);
    ++s.ndig;
  };
  while (isdig(i)) {
    s.any_digit = true;
    int v = t[i] - a.zero;
    if (v != 0 || s.ndig > 0) {
      take(v);
      ++s.nint;
    }
    ++i;
  }
  if (i < n && t[i] == dec) {
    size_t j = i + 1;
    while (isdig(j)) {
      s.any_digit = true;
      int v = t[j] - a.zero;
      if (v == 0 && s.ndig == 0)
        ++s.lead_frac_zeros;
      else
        take(v);
      ++j;
    }
    i = j;
  }
  if (!s.any_digit) {
    s.pos = 0;
    return;
  }
  if (i < n && (t[i] == a.e_lower || t[i] == a.e_upper)) {
    size_t j = i + 1;
    bool eneg = false;
    if (j < n && (t[j] == a.plus || t[j] == a.minus)) {
      eneg = t[j] == a.minus;
      ++j;
    }
    if (isdig(j)) {
      int64_t e = 0;
      while (isdig(j)) {
        int v = t[j] - a.zero;
        if (e != 0 || v != 0) ++s.exp_sig;
        if (e < 100000) e = e * 10 + v;  // more than 3 digits saturate anyway
        ++j;
      }
      s.exp = eneg ? -e : e;
      s.exp_neg = eneg;
      i = j;
    }
  }
  while (i < n && t[i] == a.blank) ++i;
  s.pos = i;
}

// ---------------------------------------------------------------- rounding

uint8_t *finish(const Scan &s, bool pg, uint32_t prec, bool sg, int32_t scale, uint8_t *out,
                size_t *outlen, size_t *consumed, size_t consumed_units) {
  size_t used = consumed_units;
  auto done = [&](uint8_t *r) {
    if (consumed) *consumed = used;
    return r;
  };
  if (s.ndig == 0) {  // no digits, or only zeros
    emit_zero(out, outlen);
    return done(out);
  }
  if (s.exp_sig > 3) {
    if (s.exp_neg)
      emit_zero(out, outlen);
    else
      emit_inf(s.neg, out, outlen);
    return done(out);
  }
  int64_t E = s.nint > 0 ? s.exp + s.nint - 1 : s.exp - s.lead_frac_zeros - 1;
  const bool flags = pg || sg;
  const int64_t P = pg ? static_cast<int64_t>(prec) : 0x7FFFFFFF;
  const int64_t S = sg ? scale : 0;
  // Significant digits without the trailing zeros.
  int64_t nsig = s.ndig;
  if (nsig <= kKeep)
    while (nsig > 0 && s.dig[nsig - 1] == 0) --nsig;
  int64_t K = flags ? E + S + 1 : nsig;
  if (flags && K > P) used = 0;
  const int64_t cap = (E & 1) ? 40 : 39;
  if (K > cap) K = cap;
  char d[kKeep + 1];
  int nd;
  if (K < 0) {
    emit_zero(out, outlen);
    return done(out);
  }
  const int first_dropped = K < s.ndig ? s.dig[K] : -1;
  if (K == 0) {
    if (first_dropped < 5) {
      emit_zero(out, outlen);
      return done(out);
    }
    d[0] = 1;
    nd = 1;
    ++E;
    if (flags && E + S + 1 > P) used = 0;
  } else {
    nd = static_cast<int>(K < s.ndig ? K : (s.ndig < kKeep ? s.ndig : kKeep));
    std::memcpy(d, s.dig, static_cast<size_t>(nd));
    if (first_dropped >= 5) {
      int i = nd - 1;
      while (i >= 0 && d[i] == 9) --i;
      if (i >= 0) {
        ++d[i];
        nd = i + 1;
      } else {
        d[0] = 1;
        nd = 1;
        ++E;
        if (flags && E + S + 1 > P) used = 0;
      }
    }
    while (nd > 0 && d[nd - 1] == 0) --nd;
  }
  if (E > 125) {
    emit_inf(s.neg, out, outlen);
    return done(out);
  }
  if (E < -128) {  // below the smallest number, 10^-128
    emit_zero(out, outlen);
    return done(out);
  }
  // Pair the decimal digits on even powers of ten.
  uint8_t b100[kMaxDigits + 1];
  int nb = 0, k = 0;
  if ((E & 1) == 0) b100[nb++] = static_cast<uint8_t>(d[k++]);
  while (k < nd) {
    int hi = d[k++];
    int lo = k < nd ? d[k++] : 0;
    b100[nb++] = static_cast<uint8_t>(hi * 10 + lo);
  }
  const int e100 = static_cast<int>(E >= 0 ? E / 2 : -((-E + 1) / 2));
  encode(s.neg, e100, b100, nb, out, outlen);
  return done(out);
}

thread_local uint8_t t_scratch[kBufBytes];

}  // namespace

uint8_t *parse_number(const char *text, size_t textlen, const NlsView &view, uint8_t *out,
                      size_t *outlen, bool pg, uint32_t prec, bool sg, int32_t scale,
                      size_t *consumed) {
  if (out == nullptr) out = t_scratch;
  const uint8_t *t = reinterpret_cast<const uint8_t *>(text);
  if (text == nullptr) {
    emit_zero(out, outlen);
    if (consumed) *consumed = 0;
    return out;
  }
  if (textlen == 0) textlen = *t++;
  Scan s;
  if (view.alphabet == Alphabet::Utf16Be || view.alphabet == Alphabet::Utf16Le) {
    // One byte per code unit: ASCII units stand for themselves, the decimal
    // character becomes a marker byte, anything else a byte that no literal
    // character matches. At most 255 units are read.
    size_t units = textlen / 2;
    if (units > 255) units = 255;
    uint8_t narrow[255];
    constexpr uint8_t kDecMark = 0x01, kOther = 0xFF;
    for (size_t i = 0; i < units; ++i) {
      uint32_t u = view.alphabet == Alphabet::Utf16Be ? (t[2 * i] << 8 | t[2 * i + 1])
                                                       : (t[2 * i + 1] << 8 | t[2 * i]);
      narrow[i] = u == view.decimal ? kDecMark : (u < 0x80 ? static_cast<uint8_t>(u) : kOther);
    }
    scan(narrow, units, kAscii, kDecMark, s);
    return finish(s, pg, prec, sg, scale, out, outlen, consumed, s.pos * 2);
  }
  const Alpha &a = view.alphabet == Alphabet::Ebcdic ? kEbcdic : kAscii;
  scan(t, textlen, a, view.decimal, s);
  return finish(s, pg, prec, sg, scale, out, outlen, consumed, s.pos);
}

}  // namespace lnx_internal

using namespace lnx_internal;

extern "C" {

KELAPI uint8_t *lnxcpng(const char *text, size_t textlen, uint8_t *out, size_t *outlen,
                        uint8_t precgiven, uint32_t precision, uint8_t scalegiven, int32_t scale,
                        size_t *consumed, void *nlshandle, void *nlsglobal) {
  NlsView v = kDefaultView;
  if (nlshandle != nullptr && (nlsglobal == nullptr || !nls_view_from(nlshandle, nlsglobal, v))) {
    if (consumed) *consumed = 0;
    return nullptr;
  }
  return parse_number(text, textlen, v, out, outlen, precgiven != 0, precision, scalegiven != 0,
                      scale, consumed);
}

KELAPI uint8_t *lnxcpn(const char *text, size_t textlen, uint8_t *out, size_t *outlen,
                       uint8_t precgiven, uint32_t precision, uint8_t scalegiven, int32_t scale,
                       size_t *consumed, void *nlshandle) {
  void *glo = nlshandle ? nls_global_of(nlshandle) : nullptr;
  return lnxcpng(text, textlen, out, outlen, precgiven, precision, scalegiven, scale, consumed,
                 nlshandle, glo);
}

}  // extern "C"
