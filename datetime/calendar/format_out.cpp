// Writing a date by a format model (ldxdts, ldxdtsu) and spelling numbers.
//
// Numbers are written zero-padded to their element's width unless fill mode
// is in force; names are padded with blanks to the territory's longest name
// of the kind, again unless in fill mode. The case of names, words and
// spelled numbers follows the element as written in the model (all capitals,
// initial capital, or lower case; an element of one letter carries no case
// and is written in lower case); ordinal letters after digits are capitals
// only for an element in capitals whose suffix is in capitals too.
//
// Sections: spelling / output buffer / element writers / exported functions.
#include <array>
#include <cstring>

#include "datetime/calendar/elements_impl.h"
#include "datetime/calendar/fixed_impl.h"
#include "datetime/calendar/format_impl.h"

namespace ldx_internal {

// ------------------------------------------------------------ spelling

namespace {

const char *const kOnes[20] = {"ZERO",    "ONE",     "TWO",       "THREE",    "FOUR",
                               "FIVE",    "SIX",     "SEVEN",     "EIGHT",    "NINE",
                               "TEN",     "ELEVEN",  "TWELVE",    "THIRTEEN", "FOURTEEN",
                               "FIFTEEN", "SIXTEEN", "SEVENTEEN", "EIGHTEEN", "NINETEEN"};
const char *const kTens[10] = {"", "", "TWENTY", "THIRTY", "FORTY", "FIFTY", "SIXTY", "SEVENTY", "EIGHTY", "NINETY"};

struct Buf {
  char *p;
  size_t cap, n;
  void add(const char *s) {
    while (*s) {
      if (n < cap) p[n] = *s;
      ++n;
      ++s;
    }
  }
};

void cardinal(uint32_t v, Buf &b) {
  if (v >= 1000000) {
    cardinal(v / 1000000, b);
    b.add(" MILLION");
    v %= 1000000;
    if (!v) return;
    b.add(" ");
  }
  if (v >= 1000) {
    cardinal(v / 1000, b);
    b.add(" THOUSAND");
    v %= 1000;
    if (!v) return;
    b.add(" ");
  }
  if (v >= 100) {
    b.add(kOnes[v / 100]);
    b.add(" HUNDRED");
    v %= 100;
    if (!v) return;
    b.add(" ");
  }
  if (v < 20) {
    b.add(kOnes[v]);
  } else {
    b.add(kTens[v / 10]);
    if (v % 10) {
      b.add("-");
      b.add(kOnes[v % 10]);
    }
  }
}

}  // namespace

size_t spell(uint32_t n, bool ordinal, char *out, size_t cap) {
  Buf b{out, cap, 0};
  cardinal(n, b);
  if (ordinal && b.n <= cap) {
    // Turn the last word into its ordinal.
    size_t w = b.n;
    while (w > 0 && out[w - 1] != ' ' && out[w - 1] != '-') --w;
    static const struct {
      const char *card, *ord;
    } irregular[] = {{"ONE", "FIRST"}, {"TWO", "SECOND"}, {"THREE", "THIRD"}, {"FIVE", "FIFTH"},
                     {"EIGHT", "EIGHTH"}, {"NINE", "NINTH"}, {"TWELVE", "TWELFTH"}};
    size_t wl = b.n - w;
    bool done = false;
    for (const auto &x : irregular) {
      if (std::strlen(x.card) == wl && std::memcmp(out + w, x.card, wl) == 0) {
        b.n = w;
        b.add(x.ord);
        done = true;
        break;
      }
    }
    if (!done) {
      if (out[b.n - 1] == 'Y') {
        --b.n;
        b.add("IETH");
      } else {
        b.add("TH");
      }
    }
  }
  return b.n;
}

// ------------------------------------------------------------ output buffer

namespace {

struct Out {
  char *p;
  size_t cap;
  size_t n;
  bool ebcdic;
  bool full;
  bool utf8;
  void raw(const uint8_t *s, size_t k) {
    if (k == 1 && n < cap) {
      p[n++] = static_cast<char>(*s);
      return;
    }
    if (n + k > cap) {
      full = true;
      return;
    }
    std::memcpy(p + n, s, k);
    n += k;
  }
  void ch(char c) {
    if (n >= cap) {
      full = true;
      return;
    }
    p[n++] = static_cast<char>(ebcdic ? kAsciiToEbcdic[static_cast<uint8_t>(c)] : static_cast<uint8_t>(c));
  }
  void pad(size_t k) {
    while (k--) ch(' ');
  }
};

// Writes an upper-case word in the case the element asks for. Letters beyond
// ASCII are those of Latin-1, as single bytes or as UTF-8 (two bytes led by
// 0xC3); any other byte above 0x7F is taken as part of a letter and kept.
void cased(Out &o, const char *s, size_t len, uint32_t flags) {
  bool start = true;
  for (size_t i = 0; i < len; ++i) {
    uint8_t c = static_cast<uint8_t>(s[i]);
    bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c >= 0x80;
    if (letter) {
      bool up = (flags & LDX_FLAG_UPPER) || ((flags & LDX_FLAG_INITCAP) && start);
      if (c < 0x80) {
        if (up && c >= 'a') c = static_cast<uint8_t>(c - 32);
        if (!up && c <= 'Z') c = static_cast<uint8_t>(c + 32);
      } else if (o.utf8) {
        if (c == 0xC3 && i + 1 < len) {
          uint8_t d = static_cast<uint8_t>(s[i + 1]);
          if (!up && d >= 0x80 && d <= 0x9E && d != 0x97) d = static_cast<uint8_t>(d + 0x20);
          if (up && d >= 0xA0 && d <= 0xBE && d != 0xB7) d = static_cast<uint8_t>(d - 0x20);
          o.ch(static_cast<char>(c));
          c = d;
          ++i;
        }
      } else {
        if (!up && c >= 0xC0 && c <= 0xDE && c != 0xD7) c = static_cast<uint8_t>(c + 0x20);
        if (up && c >= 0xE0 && c <= 0xFE && c != 0xF7) c = static_cast<uint8_t>(c - 0x20);
      }
    }
    start = !letter && c != '\'';
    o.ch(static_cast<char>(c));
  }
}
void cased(Out &o, const char *s, uint32_t flags) { cased(o, s, std::strlen(s), flags); }

void digits(Out &o, uint64_t v, int width) {
  char tmp[24];
  int k = 0;
  do {
    tmp[k++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v);
  for (int i = k; i < width; ++i) o.ch('0');
  while (k) o.ch(tmp[--k]);
}

const char *ordinal_suffix(uint64_t v) {
  uint64_t t = v % 100;
  if (t >= 11 && t <= 13) return "TH";
  switch (v % 10) {
    case 1: return "ST";
    case 2: return "ND";
    case 3: return "RD";
    default: return "TH";
  }
}

size_t longest(const char *const *names, int n) {
  size_t m = 0;
  for (int i = 0; i < n; ++i) {
    size_t k = std::strlen(names[i]);
    if (k > m) m = k;
  }
  return m;
}

// A number element: sign handling, width, TH and SP suffixes.
void number(Out &o, int64_t v, int width, uint32_t flags, char sign_mode, bool group) {
  bool neg = v < 0;
  uint64_t a = static_cast<uint64_t>(neg ? -v : v);
  bool fill = flags & LDX_FLAG_FILL;
  if (sign_mode == 'S') {
    if (neg) o.ch('-');
    else if (!fill) o.ch(' ');
  } else if (sign_mode == 'N' && neg) {
    o.ch('-');
  }
  if (flags & LDX_FLAG_SP) {
    char buf[160];
    size_t n = spell(static_cast<uint32_t>(a), flags & LDX_FLAG_TH, buf, sizeof buf);
    cased(o, buf, n < sizeof buf ? n : sizeof buf, flags);
    return;
  }
  if (group) {
    // Y,YYY: thousands, comma, three digits.
    if (fill && a < 1000) {
      digits(o, a, 1);
    } else {
      digits(o, a / 1000, 1);
      o.ch(',');
      digits(o, a % 1000, 3);
    }
  } else {
    digits(o, a, fill ? 1 : width);
  }
  if (flags & LDX_FLAG_TH) {
    // The ordinal letters are capitals when the element asks for capitals
    // and the suffix was not written in lower case.
    const bool up = (flags & (LDX_FLAG_UPPER | LDX_FLAG_INITCAP)) && !(flags & LDX_FLAG_THLOW);
    const char *s = ordinal_suffix(a);
    for (int i = 0; s[i]; ++i) o.ch(up ? s[i] : static_cast<char>(s[i] + 32));
  }
}

void spelled_year(Out &o, int32_t y, uint32_t flags, bool sign) {
  char buf[160];
  Buf b{buf, sizeof buf, 0};
  uint32_t a = static_cast<uint32_t>(y < 0 ? -y : y);
  if (sign && y < 0) b.add("-");
  uint32_t hi = a / 100, lo = a % 100;
  if (a < 100 || hi % 10 == 0) {
    cardinal(a, b);
  } else {
    cardinal(hi, b);
    if (lo == 0) {
      b.add(" HUNDRED");
    } else {
      b.add(" ");
      cardinal(lo, b);
    }
  }
  cased(o, buf, b.n < sizeof buf ? b.n : sizeof buf, flags);
}

const char *const kRoman[12] = {"I", "II", "III", "IV", "V", "VI", "VII", "VIII", "IX", "X", "XI", "XII"};

// ------------------------------------------------------------ element writers

void element(Out &o, const ldx_territory_view &v, const ldxdate &d, int32_t code, uint32_t flags) {
  const int32_t y = d.year, ay = y < 0 ? -y : y;
  const bool fill = flags & LDX_FLAG_FILL;
  auto iso = [&] { return iso_year(d.year, d.month, d.day); };
  auto jday = [&] { return ctj(d.year, d.month, d.day); };
  switch (code) {
    case C_CC: number(o, (ay + 99) / 100, 2, flags, 0, false); break;
    case C_SCC: number(o, y < 0 ? -((ay + 99) / 100) : (ay + 99) / 100, 2, flags, 'S', false); break;
    case C_I: { int32_t i = iso(); number(o, (i < 0 ? -i : i) % 10, 1, flags, 0, false); break; }
    case C_IY: { int32_t i = iso(); number(o, (i < 0 ? -i : i) % 100, 2, flags, 0, false); break; }
    case C_IYY: { int32_t i = iso(); number(o, (i < 0 ? -i : i) % 1000, 3, flags, 0, false); break; }
    case C_IYYY: { int32_t i = iso(); number(o, i < 0 ? -i : i, 4, flags, 0, false); break; }
    case C_Y: number(o, ay % 10, 1, flags, 0, false); break;
    case C_YY: case C_RR: number(o, ay % 100, 2, flags, 0, false); break;
    case C_YYY: number(o, ay % 1000, 3, flags, 0, false); break;
    case C_YYYY: case C_RRRR: number(o, ay, 4, flags, 0, false); break;
    case C_Y_YYY: number(o, ay, 4, flags, 0, true); break;
    case C_SYYYY: number(o, y, 4, flags, 'S', false); break;
    case C_SY_YYY: number(o, y, 4, flags, 'S', true); break;
    case C_NYYYY: number(o, y, 4, flags, 'N', false); break;
    case C_YEAR: spelled_year(o, y, flags, false); break;
    case C_SYEAR: spelled_year(o, y, flags, true); break;
    case C_Q: number(o, (d.month + 2) / 3, 1, flags, 0, false); break;
    case C_MM: number(o, d.month, 2, flags, 0, false); break;
    case C_IW: number(o, iso_week(d.year, d.month, d.day), 2, flags, 0, false); break;
    case C_WW: number(o, (day_of_year(d.year, d.month, d.day) - 1) / 7 + 1, 2, flags, 0, false); break;
    case C_W: number(o, (d.day - 1) / 7 + 1, 1, flags, 0, false); break;
    case C_D: number(o, dow(jday(), v.first_day), 1, flags, 0, false); break;
    case C_DD: number(o, d.day, 2, flags, 0, false); break;
    case C_DDD: number(o, day_of_year(d.year, d.month, d.day), 3, flags, 0, false); break;
    case C_HH24: number(o, d.hour, 2, flags, 0, false); break;
    case C_HH: number(o, d.hour % 12 == 0 ? 12 : d.hour % 12, 2, flags, 0, false); break;
    case C_MI: number(o, d.minute, 2, flags, 0, false); break;
    case C_SS: number(o, d.second, 2, flags, 0, false); break;
    case C_SSSSS: number(o, (d.hour * 60 + d.minute) * 60 + d.second, 5, flags, 0, false); break;
    case C_J: number(o, jday(), 7, flags, 0, false); break;
    case C_MONTH: case C_MON: {
      const char *const *names = code == C_MONTH ? v.months : v.mon_abbr;
      const char *s = names[d.month - 1];
      cased(o, s, flags);
      if (!fill) o.pad(longest(names, 12) - std::strlen(s));
      break;
    }
    case C_DAY: case C_DY: {
      const char *const *names = code == C_DAY ? v.days : v.day_abbr;
      const char *s = names[dow(jday(), 0) - 1];
      cased(o, s, flags);
      if (!fill) o.pad(longest(names, 7) - std::strlen(s));
      break;
    }
    case C_AMPM: cased(o, d.hour < 12 ? v.am : v.pm, flags); break;
    case C_AMPM_DOTS: cased(o, d.hour < 12 ? v.am_dots : v.pm_dots, flags); break;
    case C_ADBC: cased(o, y < 0 ? v.bc : v.ad, flags); break;
    case C_ADBC_DOTS: cased(o, y < 0 ? v.bc_dots : v.ad_dots, flags); break;
    case C_E: cased(o, y < 0 ? v.bc : v.ad, flags); break;
    case C_EE: cased(o, v.era_full[y < 0 ? 1 : 0], flags); break;
    case C_RM: {
      const char *s = kRoman[d.month - 1];
      cased(o, s, flags);
      if (!fill) o.pad(4 - std::strlen(s));
      break;
    }
    default: break;  // FX and anything without output
  }
}

constexpr auto kPairsArr = [] {
  std::array<char, 200> a{};
  for (int i = 0; i < 100; ++i) {
    a[2 * i] = static_cast<char>('0' + i / 10);
    a[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return a;
}();
constexpr const char *kPairs = kPairsArr.data();

// The value of the elements that are plain unsigned numbers of a valid date,
// or -1 for the others.
inline int32_t plain_value(const ldxdate &d, int32_t code) {
  switch (code) {
    case C_YYYY: case C_RRRR: return d.year < 0 ? -d.year : d.year;
    case C_MM: return d.month;
    case C_DD: return d.day;
    case C_HH24: return d.hour;
    case C_HH: return d.hour % 12 == 0 ? 12 : d.hour % 12;
    case C_MI: return d.minute;
    case C_SS: return d.second;
    case C_YY: case C_RR: return (d.year < 0 ? -d.year : d.year) % 100;
    default: return -1;
  }
}

int32_t invalid_date(const ldxdate &d) {
  // The common case in one test; the details only for a bad date.
  if (d.year >= -4712 && d.year <= 9999 && d.year != 0 && d.month >= 1 && d.month <= 12 && d.day >= 1 &&
      (d.day <= 28 || d.day <= days_in_month(d.year, d.month)) && static_cast<uint8_t>(d.hour) < 24 &&
      static_cast<uint8_t>(d.minute) < 60 && static_cast<uint8_t>(d.second) < 60)
    return 0;
  uint32_t f = ldxchk(nullptr, &d, 0) & ~0x1000u;
  if (f & 0x2030) return E_RANGE_YEAR;
  if (f & 0x000C) return E_RANGE_MONTH;
  if (f & 0x0003) return E_RANGE_DAY;
  if (f & 0x0040) return E_RANGE_HOUR24;
  if (f & 0x0100) return E_RANGE_MINUTE;
  if (f & 0x0400) return E_RANGE_SECOND;
  return 0;
}

// Writes a valid date by the simple plan of a fixed model: the plan's text
// with every digit '0', then the fields over it. The caller has checked
// that the text fits.
inline void write_simple(const Plan &p, const ldxdate &d, char *out) {
  const size_t n = p.textlen;
  store_windows(p.lo, n, out);
  auto two = [out](uint8_t off, uint32_t v) { std::memcpy(out + off, kPairs + 2 * v, 2); };
  const uint32_t ay = static_cast<uint32_t>(d.year < 0 ? -d.year : d.year);
  two(p.oy, ay / 100);
  two(static_cast<uint8_t>(p.oy + 2), ay % 100);
  two(p.om, static_cast<uint32_t>(d.month));
  two(p.od, static_cast<uint32_t>(d.day));
  if (p.oh != 0xFF) two(p.oh, static_cast<uint32_t>(d.hour));
  if (p.omi != 0xFF) two(p.omi, static_cast<uint32_t>(d.minute));
  if (p.os != 0xFF) two(p.os, static_cast<uint32_t>(d.second));
}

// Writes a date by a fixed model (plain number elements at their full width
// and one-byte separators, see kHdrFixed) straight into the caller's buffer.
// -1 leaves the work to the general writer: an element this writer does not
// know, suffix or fill flags (a damaged model), or too little room left; the
// general writer then starts again from the beginning and gives the same
// text, or the error.
int32_t write_fixed(const uint8_t *m, size_t mlen, const ldxdate &d, char *out, size_t outsz) {
  char *q = out;
  char *const end = out + outsz;
  const uint32_t ay = static_cast<uint32_t>(d.year < 0 ? -d.year : d.year);
  auto two = [&q](uint32_t v) {
    std::memcpy(q, kPairs + 2 * v, 2);
    q += 2;
  };
  for (size_t i = 2; i < mlen; i += 2) {
    const uint8_t b = m[i];
    if (b == 0) return static_cast<int32_t>(q - out);
    if (i + 1 >= mlen || end - q < 8) return -1;
    const uint8_t x = m[i + 1];
    if (b == 0x81) {
      *q++ = static_cast<char>(x);
      continue;
    }
    if (x & (LDX_FLAG_TH | LDX_FLAG_SP | LDX_FLAG_FILL)) return -1;
    switch (b) {
      case C_YYYY: case C_RRRR: two(ay / 100); two(ay % 100); break;
      case C_YY: case C_RR: two(ay % 100); break;
      case C_MM: two(static_cast<uint32_t>(d.month)); break;
      case C_DD: two(static_cast<uint32_t>(d.day)); break;
      case C_HH24: two(static_cast<uint32_t>(d.hour)); break;
      case C_HH: two(d.hour % 12 == 0 ? 12u : static_cast<uint32_t>(d.hour % 12)); break;
      case C_MI: two(static_cast<uint32_t>(d.minute)); break;
      case C_SS: two(static_cast<uint32_t>(d.second)); break;
      default: return -1;
    }
  }
  return -1;
}

}  // namespace

namespace {

struct ModelCache {
  size_t clen;  // 0: empty
  uint8_t len;
  bool ebcdic;
  char text[64];
  uint8_t compiled[kCompiledMax];
};
thread_local ModelCache tl_models[2];

}  // namespace

const uint8_t *resolve_model(ldxctx *ctx, const char *fmt, size_t fmtlen, bool input, uint8_t *buf,
                             size_t bufsz, size_t *mlen, int32_t *err) {
  *err = 0;
  if (!fmt || fmtlen == 0) {
    const uint8_t *m = reinterpret_cast<const uint8_t *>(ctx->deffmt);
    *mlen = sizeof ctx->deffmt;
    if (m[0] != 0 || (m[1] & kHdrBase) == 0) *err = E_NOFMT;
    return m;
  }
  if (fmt[0] == 0) {
    // A compiled model from the caller's memory: the header is checked here,
    // the items by the walkers, which stay inside fmtlen.
    const uint8_t *m = reinterpret_cast<const uint8_t *>(fmt);
    *mlen = fmtlen;
    if (fmtlen < 3 || (m[1] & ~(kHdrBase | kHdrEbcdic | kHdrFixed)) != 0 || !(m[1] & kHdrBase))
      *err = E_BAD_ELEMENT;
    return m;
  }
  // Callers that pass model text each time (as with strptime) would pay
  // for compiling it on every call: each thread keeps its last compiled
  // model per direction. Models holding territory formats are not kept, as
  // they depend on more than their text.
  const bool ebcdic = view(ctx).ebcdic;
  if (fmtlen <= sizeof ModelCache::text) {
    ModelCache &c = tl_models[input ? 1 : 0];
    if (c.clen && c.len == fmtlen && c.ebcdic == ebcdic && equal_bytes(c.text, fmt, fmtlen)) {
      *mlen = c.clen;
      return c.compiled;
    }
    bool territory = false;
    size_t n = compile(ctx, fmt, fmtlen, c.compiled, sizeof c.compiled, input, err, &territory);
    if (*err || territory) {
      c.clen = 0;
      if (*err) return c.compiled;
      std::memcpy(buf, c.compiled, n < bufsz ? n : bufsz);
      *mlen = n;
      return buf;
    }
    std::memcpy(c.text, fmt, fmtlen);
    c.len = static_cast<uint8_t>(fmtlen);
    c.ebcdic = ebcdic;
    c.clen = n;
    *mlen = n;
    return c.compiled;
  }
  *mlen = compile(ctx, fmt, fmtlen, buf, bufsz, input, err);
  return buf;
}

int32_t format_date(ldxctx *ctx, char *out, size_t outsz, const ldxdate *d, const char *fmt,
                    size_t fmtlen, int32_t *err) {
  uint8_t buf[kCompiledMax];
  size_t mlen;
  const uint8_t *m = compiled_model(fmt, fmtlen);
  if (m) {
    mlen = fmtlen;
  } else {
    m = resolve_model(ctx, fmt, fmtlen, false, buf, sizeof buf, &mlen, err);
    if (*err) return -1;
  }
  if ((*err = invalid_date(*d))) return -1;
  const ldx_territory_view &v = view(ctx);
  if ((m[1] & (kHdrFixed | kHdrEbcdic)) == kHdrFixed && !v.ebcdic) {
    const Plan *p = plan_for(m, mlen);
    if (p && p->simple && !p->fill && outsz >= p->textlen) {
      write_simple(*p, *d, out);
      return p->textlen;
    }
    int32_t n = write_fixed(m, mlen, *d, out, outsz);
    if (n >= 0) return n;
  }
  Out o{out, outsz, 0, v.ebcdic, false, v.utf8};
  for (size_t i = 2;;) {
    if (i >= mlen) {
      *err = E_BAD_ELEMENT;
      return -1;
    }
    uint8_t b = m[i];
    if (b == 0) break;
    if (b & 0x80) {
      size_t k = b & 0x7F;
      if (i + 1 + k > mlen) {
        *err = E_BAD_ELEMENT;
        return -1;
      }
      o.raw(m + i + 1, k);
      i += 1 + k;
    } else {
      if (i + 1 >= mlen || !compiled_code(b)) {
        *err = E_BAD_ELEMENT;
        return -1;
      }
      uint32_t flags = m[i + 1];
      int32_t val = -1;
      if (!(flags & (LDX_FLAG_TH | LDX_FLAG_SP)) && !v.ebcdic) val = plain_value(*d, b);
      if (val >= 0 && o.n + 8 <= o.cap) {
        // Plain digits straight into the output, two at a time.
        const uint32_t u = static_cast<uint32_t>(val);
        const int nd = u < 10 ? 1 : u < 100 ? 2 : u < 1000 ? 3 : u < 10000 ? 4 : u < 100000 ? 5 : u < 1000000 ? 6 : 7;
        const int w = (flags & LDX_FLAG_FILL) ? nd : (attr(b).width > nd ? attr(b).width : nd);
        char *q = o.p + o.n + w;
        o.n += static_cast<size_t>(w);
        uint32_t x = u;
        int left = w;
        while (left >= 2) {
          q -= 2;
          std::memcpy(q, kPairs + 2 * (x % 100), 2);
          x /= 100;
          left -= 2;
        }
        if (left) *--q = static_cast<char>('0' + x % 10);
      } else {
        element(o, v, *d, b, flags);
      }
      i += 2;
    }
    if (o.full) break;
  }
  if (o.full) {
    *err = E_OUT_SMALL;
    return -1;
  }
  return static_cast<int32_t>(o.n);
}

}  // namespace ldx_internal

using namespace ldx_internal;

extern "C" {

KELAPI int32_t ldxdts(ldxctx *ctx, char *out, size_t outsz, const ldxdate *d, const char *fmt,
                      size_t fmtlen) {
  int32_t err = 0;
  int32_t n = format_date(ctx, out, outsz, d, fmt, fmtlen, &err);
  if (err) return raise(ctx, err);
  return n;
}

KELAPI int32_t ldxdtsu(ldxctx *ctx, uint16_t *out, size_t outsz, const ldxdate *d,
                       const uint16_t *fmt, size_t fmtlen) {
  char model[kModelLimit * 4];
  size_t ml = 0;
  if (fmt && fmtlen && !utf16_to_utf8(fmt, fmtlen, model, sizeof model, &ml)) return raise(ctx, E_MODEL_LONG);
  char tmp[1024];
  int32_t err = 0;
  int32_t n = format_date(ctx, tmp, sizeof tmp, d, fmt ? model : nullptr, fmt ? ml : 0, &err);
  if (err) return raise(ctx, err);
  size_t wn = 0;
  if (!utf8_to_utf16(tmp, static_cast<size_t>(n), out, outsz, &wn)) return raise(ctx, E_OUT_SMALL);
  return static_cast<int32_t>(wn);
}

}  // extern "C"
