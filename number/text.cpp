// text.cpp - the text forms of a number: plain positional, shortest
// (plain or scientific) and fixed places. Every form except the infinities
// parses back through lnxcpn to the number it came from.
#include <cstring>

#include "lnx.h"
#include "number/lnx_impl.h"

namespace lnx_internal {

namespace {

// Significant decimal digits of a finite number and the decimal exponent
// of the first one.
struct Digits {
  char s[kMaxDigits * 2 + 1];
  int len;
  int dexp;
};

void significant(const Num &x, Digits &g) {
  int k = 0;
  for (int i = 0; i < x.n; ++i) {
    g.s[k++] = static_cast<char>('0' + x.d[i] / 10);
    g.s[k++] = static_cast<char>('0' + x.d[i] % 10);
  }
  int start = x.d[0] < 10 ? 1 : 0;
  if (g.s[k - 1] == '0') --k;
  std::memmove(g.s, g.s + start, static_cast<size_t>(k - start));
  g.len = k - start;
  g.dexp = 2 * x.exp + (x.d[0] >= 10 ? 1 : 0);
}

struct Out {
  char *buf;
  size_t cap, n = 0;
  bool ok = true;
  void put(char c) {
    if (n < cap)
      buf[n++] = c;
    else
      ok = false;
  }
  void put(const char *s, size_t len) {
    for (size_t i = 0; i < len; ++i) put(s[i]);
  }
  void zeros(int64_t k) {
    for (int64_t i = 0; i < k && ok; ++i) put('0');
  }
};

// Positional text of the digits, with at least `minfrac` fraction digits.
void plain(bool neg, const Digits &g, int64_t minfrac, Out &o) {
  if (neg) o.put('-');
  const int64_t D = g.dexp, len = g.len;
  int64_t frac;
  if (D >= len - 1) {
    o.put(g.s, static_cast<size_t>(len));
    o.zeros(D - len + 1);
    frac = 0;
  } else if (D >= 0) {
    o.put(g.s, static_cast<size_t>(D + 1));
    o.put('.');
    o.put(g.s + D + 1, static_cast<size_t>(len - D - 1));
    frac = len - D - 1;
  } else {
    o.put('0');
    o.put('.');
    o.zeros(-D - 1);
    o.put(g.s, static_cast<size_t>(len));
    frac = -D - 1 + len;
  }
  if (minfrac > frac) {
    if (frac == 0) o.put('.');
    o.zeros(minfrac - frac);
  }
}

void scientific(bool neg, const Digits &g, Out &o) {
  if (neg) o.put('-');
  o.put(g.s[0]);
  if (g.len > 1) {
    o.put('.');
    o.put(g.s + 1, static_cast<size_t>(g.len - 1));
  }
  o.put('E');
  int e = g.dexp;
  o.put(e < 0 ? '-' : '+');
  if (e < 0) e = -e;
  char t[8];
  int k = 0;
  do {
    t[k++] = static_cast<char>('0' + e % 10);
    e /= 10;
  } while (e);
  while (k) o.put(t[--k]);
}

}  // namespace

size_t to_text(const Num &x, TextForm form, int32_t places, char *buf, size_t cap) {
  Out o{buf, cap};
  if (x.kind == Kind::PosInf || x.kind == Kind::NegInf) {
    if (x.kind == Kind::NegInf) o.put('-');
    o.put("Infinity", 8);
    return o.ok ? o.n : 0;
  }
  if (form == TextForm::Fixed) {
    uint8_t r[kBufBytes];
    size_t rl;
    round_num(x, places, false, r, &rl);
    Num y;
    decode(r, rl, y);
    const int64_t minfrac = places > 0 ? places : 0;
    if (y.kind == Kind::Finite) {
      Digits g;
      significant(y, g);
      plain(y.neg, g, minfrac, o);
    } else if (y.kind == Kind::Zero) {
      o.put('0');
      if (minfrac) {
        o.put('.');
        o.zeros(minfrac);
      }
    } else {  // rounding overflowed
      return to_text(y, TextForm::Plain, 0, buf, cap);
    }
    return o.ok ? o.n : 0;
  }
  if (x.kind == Kind::Zero) {
    o.put('0');
    return o.ok ? o.n : 0;
  }
  Digits g;
  significant(x, g);
  char tmp[kPlainTextMax];
  Out p{tmp, sizeof tmp};
  plain(x.neg, g, 0, p);
  if (form == TextForm::Shortest) {
    char st[64];
    Out s{st, sizeof st};
    scientific(x.neg, g, s);
    if (s.n < p.n) {
      o.put(st, s.n);
      return o.ok ? o.n : 0;
    }
  }
  o.put(tmp, p.n);
  return o.ok ? o.n : 0;
}

}  // namespace lnx_internal

using namespace lnx_internal;

extern "C" KELAPI int32_t lnxn2t(const uint8_t *num, size_t len, int32_t form, int32_t places,
                                 char *buf, size_t bufsize, size_t *textlen) {
  if (textlen) *textlen = 0;
  if (form < LNX_TEXT_PLAIN || form > LNX_TEXT_FIXED || buf == nullptr) return -1;
  Num x;
  decode_arg(num, len, x);
  size_t n = to_text(x, static_cast<TextForm>(form), places, buf, bufsize);
  if (n == 0) return -1;
  if (textlen) *textlen = n;
  return 0;
}
