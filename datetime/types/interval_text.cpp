// Intervals as text: the SQL forms ("+01-06", "-3 04:05:06.5", "+12:30")
// and ISO 8601 durations ("P1Y6M", "-P3DT4H5M6.5S"), written and read.
//
// Reading works on exact totals (months or nanoseconds) and spreads the
// total over the fields of the requested kind at the end, so "P36H" read as
// days to hours gives 1 day 12 hours and "1 25:00:00" is refused as a field
// out of range rather than silently carried.
#include <cstring>

#include "datetime/calendar/format_impl.h"
#include "datetime/types/ldi_impl.h"

using namespace ldi_internal;

namespace {

struct Sink {
  char *p;
  size_t cap, n;
  bool full;
  void ch(char c) {
    if (n >= cap) full = true;
    else p[n++] = c;
  }
  void num(uint64_t v, int w) {
    char tmp[24];
    int k = 0;
    do tmp[k++] = static_cast<char>('0' + v % 10), v /= 10;
    while (v);
    for (int i = k; i < w; ++i) ch('0');
    while (k) ch(tmp[--k]);
  }
  void frac(uint32_t f, int digits) {
    for (int i = 0; i < digits; ++i) {
      ch(static_cast<char>('0' + f / static_cast<uint32_t>(kPow10[8 - i]) % 10));
    }
  }
};

uint32_t absu(int32_t v) { return v < 0 ? 0u - static_cast<uint32_t>(v) : static_cast<uint32_t>(v); }

bool negative(const LdiInterval &iv) { return inter_total(iv) < 0; }

int32_t write_sql(const LdiInterval &in, int32_t leadprec, int32_t fracprec, Sink &o) {
  if (!valid_ikind(in.kind)) return LDI_ERR_KIND;
  if (leadprec < 0 || leadprec > 9 || fracprec < 0 || fracprec > 9) return LDI_ERR_PREC;
  LdiInterval iv = in;
  int32_t st = LdiInterRoundFS(&iv, leadprec, fracprec);
  if (st) return st;
  const IKind &k = kIKinds[iv.kind];
  o.ch(negative(iv) ? '-' : '+');
  static constexpr char kSepDs[4] = {0, ' ', ':', ':'};
  for (int u = k.first; u <= k.last; ++u) {
    if (u != k.first) o.ch(k.ym ? '-' : kSepDs[u]);
    o.num(absu(field(iv, u)), u == k.first ? (leadprec ? leadprec : 1) : 2);
  }
  if (k.frac && fracprec > 0) {
    o.ch('.');
    o.frac(absu(iv.fraction), fracprec);
  }
  return o.full ? LDI_ERR_OUTSPACE : 0;
}

int32_t write_iso(const LdiInterval &in, int32_t fracprec, Sink &o) {
  if (!valid_ikind(in.kind)) return LDI_ERR_KIND;
  if (fracprec < 0 || fracprec > 9) return LDI_ERR_PREC;
  LdiInterval iv = in;
  int32_t st = LdiInterRoundFS(&iv, 9, fracprec);
  if (st) return st;
  const IKind &k = kIKinds[iv.kind];
  // Written from the total, so every unit stays below the next one.
  i128 t = inter_total(iv);
  if (t < 0) o.ch('-'), t = -t;
  o.ch('P');
  if (k.ym) {
    uint64_t years = static_cast<uint64_t>(t / 12), months = static_cast<uint64_t>(t % 12);
    if (t == 0) {
      o.num(0, 1);
      o.ch(k.first == 0 && k.last == 0 ? 'Y' : 'M');
    }
    if (years) o.num(years, 1), o.ch('Y');
    if (months) o.num(months, 1), o.ch('M');
    return o.full ? LDI_ERR_OUTSPACE : 0;
  }
  uint64_t days = static_cast<uint64_t>(t / kNsPerDay);
  int64_t r = static_cast<int64_t>(t % kNsPerDay);
  uint64_t h = static_cast<uint64_t>(r / (3600 * kNsPerSec)), m = static_cast<uint64_t>(r / (60 * kNsPerSec) % 60),
           sec = static_cast<uint64_t>(r / kNsPerSec % 60);
  uint32_t frac = static_cast<uint32_t>(r % kNsPerSec);
  if (days) o.num(days, 1), o.ch('D');
  // Trailing zeros of the fraction say nothing.
  int fd = fracprec;
  while (fd > 0 && (frac / static_cast<uint32_t>(kPow10[9 - fd])) % 10 == 0) --fd;
  if (h || m || sec || fd || !days) {
    o.ch('T');
    if (h) o.num(h, 1), o.ch('H');
    if (m) o.num(m, 1), o.ch('M');
    if (sec || fd || (!days && !h && !m)) {
      o.num(sec, 1);
      if (fd) o.ch('.'), o.frac(frac, fd);
      o.ch('S');
    }
  }
  return o.full ? LDI_ERR_OUTSPACE : 0;
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

struct Cur {
  const char *t;
  size_t n, i;
  bool eat(char c) {
    if (i < n && t[i] == c) return ++i, true;
    return false;
  }
  // Digits into *v (up to 18 of them); false when there are none.
  bool digits(int64_t *v, int *nd = nullptr) {
    size_t b = i;
    *v = 0;
    while (i < n && is_digit(t[i])) {
      if (i - b < 18) *v = *v * 10 + (t[i] - '0');
      else *v = INT64_MAX / 4;  // far past any field; range checks refuse it
      ++i;
    }
    if (nd) *nd = static_cast<int>(i - b);
    return i > b;
  }
  // ".fff" into nanoseconds (digits past nine ignored).
  bool fraction(int64_t *ns) {
    *ns = 0;
    if (!eat('.') && !eat(',')) return true;
    size_t b = i;
    int nd = 0;
    while (i < n && is_digit(t[i])) {
      if (nd < 9) *ns = *ns * 10 + (t[i] - '0'), ++nd;
      ++i;
    }
    if (i == b) return false;
    *ns *= kPow10[9 - nd];
    return true;
  }
};

// ISO 8601 duration after the sign: "P..." into a total of the family.
int32_t read_iso(Cur &c, bool ym, i128 *total) {
  if (!c.eat('P') && !c.eat('p')) return LDI_ERR_ITEXT;
  i128 t = 0;
  bool in_time = false, any = false;
  // Units in their order; each at most once.
  const char *order = "YMWDHmS";
  int last = -1;
  while (c.i < c.n && !is_blank(c.t[c.i])) {
    if (c.eat('T') || c.eat('t')) {
      if (in_time) return LDI_ERR_ITEXT;
      in_time = true;
      continue;
    }
    int64_t v = 0;
    if (!c.digits(&v)) return LDI_ERR_ITEXT;
    int64_t ns = 0;
    if (!c.fraction(&ns)) return LDI_ERR_ITEXT;
    if (c.i >= c.n) return LDI_ERR_ITEXT;
    char u = static_cast<char>(c.t[c.i++] & ~0x20);
    if (u == 'M' && in_time) u = 'm';
    const char *p = std::strchr(order, u);
    if (!p || u == 0) return LDI_ERR_ITEXT;
    int idx = static_cast<int>(p - order);
    if (idx <= last) return LDI_ERR_ITEXT;
    last = idx;
    bool time_unit = u == 'H' || u == 'm' || u == 'S';
    if (time_unit != in_time) return LDI_ERR_ITEXT;
    if (ns && u != 'S') return LDI_ERR_ITEXT;
    if (ym) {
      if (u == 'Y') t += static_cast<i128>(v) * 12;
      else if (u == 'M') t += v;
      else return LDI_ERR_ITEXT;
    } else {
      static constexpr int64_t kNs[] = {0, 0, 7 * kNsPerDay, kNsPerDay, 3600 * kNsPerSec, 60 * kNsPerSec, kNsPerSec};
      if (idx < 2) return LDI_ERR_ITEXT;
      t += static_cast<i128>(v) * kNs[idx] + ns;
    }
    any = true;
  }
  if (!any) return LDI_ERR_ITEXT;
  *total = t;
  return 0;
}

// The SQL form of the kind after the sign.
int32_t read_sql(Cur &c, uint8_t kind, i128 *total) {
  const IKind &k = kIKinds[kind];
  static constexpr char kSepDs[4] = {0, ' ', ':', ':'};
  static constexpr int64_t kLim[4] = {0, 23, 59, 59};
  i128 t = 0;
  for (int u = k.first; u <= k.last; ++u) {
    if (u != k.first) {
      char sep = k.ym ? '-' : kSepDs[u];
      if (sep == ' ') {
        if (c.i >= c.n || !is_blank(c.t[c.i])) return LDI_ERR_ITEXT;
        while (c.i < c.n && is_blank(c.t[c.i])) ++c.i;
      } else if (!c.eat(sep)) {
        return LDI_ERR_ITEXT;
      }
    }
    int64_t v = 0;
    int nd = 0;
    if (!c.digits(&v, &nd)) return LDI_ERR_ITEXT;
    if (u != k.first && (nd > 2 || v > (k.ym ? 11 : kLim[u]))) return LDI_ERR_IVALUE;
    if (k.ym) t += u == 0 ? static_cast<i128>(v) * 12 : v;
    else t += static_cast<i128>(v) * kUnitNs[u];
  }
  if (k.frac) {
    int64_t ns = 0;
    if (!c.fraction(&ns)) return LDI_ERR_ITEXT;
    t += ns;
  }
  *total = t;
  return 0;
}

int32_t read_inter(const char *txt, size_t n, uint8_t kind, int32_t leadprec, int32_t fracprec, LdiInterval *out) {
  if (!valid_ikind(kind)) return LDI_ERR_KIND;
  if (leadprec < 0 || leadprec > 9 || fracprec < 0 || fracprec > 9) return LDI_ERR_PREC;
  Cur c{txt ? txt : "", txt ? n : 0, 0};
  while (c.i < c.n && is_blank(c.t[c.i])) ++c.i;
  int sign = 1;
  if (c.eat('-')) sign = -1;
  else c.eat('+');
  i128 total = 0;
  int32_t st = (c.i < c.n && (c.t[c.i] | 0x20) == 'p') ? read_iso(c, kIKinds[kind].ym, &total)
                                                        : read_sql(c, kind, &total);
  if (st) return st;
  while (c.i < c.n && is_blank(c.t[c.i])) ++c.i;
  if (c.i != c.n) return LDI_ERR_ITEXT;
  LdiInterval r{};
  st = inter_from_total(sign * total, kind, &r);
  if (st) return st;
  if (kIKinds[kind].frac && fracprec < 9) {
    st = LdiInterRoundFS(&r, leadprec, fracprec);
  } else {
    st = inter_check(r, leadprec);
  }
  if (st) return st;
  *out = r;
  return 0;
}

template <class F>
int32_t to_utf16(uint16_t *out, size_t outsz, size_t *len, F &&write) {
  char tmp[128];
  Sink o{tmp, sizeof tmp, 0, false};
  int32_t st = write(o);
  if (st) return st;
  return ldx_internal::utf8_to_utf16(tmp, o.n, out, outsz, len) ? 0 : LDI_ERR_OUTSPACE;
}

}  // namespace

KELAPI int32_t LdiInterToString(const LdiInterval *iv, int32_t leadprec, int32_t fracprec, char *out, size_t outsz,
                                size_t *len) {
  Sink o{out, outsz, 0, false};
  int32_t st = write_sql(*iv, leadprec, fracprec, o);
  if (st) return st;
  *len = o.n;
  return 0;
}

KELAPI int32_t LdiInterToStringISO(const LdiInterval *iv, int32_t fracprec, char *out, size_t outsz, size_t *len) {
  Sink o{out, outsz, 0, false};
  int32_t st = write_iso(*iv, fracprec, o);
  if (st) return st;
  *len = o.n;
  return 0;
}

KELAPI int32_t LdiInterFromString(const char *txt, size_t txtlen, uint8_t kind, LdiInterval *out) {
  return read_inter(txt, txtlen, kind, 9, 9, out);
}

KELAPI int32_t LdiInterFromStringPrec(const char *txt, size_t txtlen, uint8_t kind, int32_t leadprec,
                                      int32_t fracprec, LdiInterval *out) {
  return read_inter(txt, txtlen, kind, leadprec, fracprec, out);
}

KELAPI int32_t LdiInterToStringU(const LdiInterval *iv, int32_t leadprec, int32_t fracprec, uint16_t *out,
                                 size_t outsz, size_t *len) {
  return to_utf16(out, outsz, len, [&](Sink &o) { return write_sql(*iv, leadprec, fracprec, o); });
}

KELAPI int32_t LdiInterToStringISOU(const LdiInterval *iv, int32_t fracprec, uint16_t *out, size_t outsz,
                                    size_t *len) {
  return to_utf16(out, outsz, len, [&](Sink &o) { return write_iso(*iv, fracprec, o); });
}

KELAPI int32_t LdiInterFromStringU(const uint16_t *txt, size_t txtlen, uint8_t kind, LdiInterval *out) {
  return LdiInterFromStringPrecU(txt, txtlen, kind, 9, 9, out);
}

KELAPI int32_t LdiInterFromStringPrecU(const uint16_t *txt, size_t txtlen, uint8_t kind, int32_t leadprec,
                                       int32_t fracprec, LdiInterval *out) {
  char t[512];
  size_t n = 0;
  if (!ldx_internal::utf16_to_utf8(txt, txt ? txtlen : 0, t, sizeof t, &n)) return LDI_ERR_ITEXT;
  return read_inter(t, n, kind, leadprec, fracprec, out);
}
