// Reading text into a date by a format model (ldxsto, ldxstd, ldxstou).
//
// The reader walks the compiled model and the text side by side, gathering
// each field it meets into a Fields record; the date is assembled only at
// the end, when defaults (current year and month, day 1, midnight), the
// century window of RR/RRRR, the day-of-year and Julian-day forms and the
// cross-checks between fields can all be applied at once.
//
// Outside "FX" the reader is forgiving: blanks of the text are skipped
// before every element and every character of a literal, and a separator of
// the model matches any one separator character of the text ("-" and "/"
// alike, blanks counting as one; "-" is read as a sign only by the signed
// year elements), or none where the text has none; quoted text must be
// there as written, letters in either case, its separators read as the
// model's own; numbers may be shorter than their element and the text may
// stop early. Under "FX" literals must match byte for byte, numbers must have
// their full width (unless in fill mode) and the whole model must be read.
//
// A failed read leaves where it stopped for ldxrerr: the position in the
// text and the text from there.
//
// Text in exactly the layout of a fixed model (the common machine-made
// dates: "YYYY-MM-DD HH24:MI:SS" and the like) takes a shorter way through
// the fixed readers, which give the same results.
//
// Sections: text cursor / spelled numbers / field readers / fixed readers /
// assembly / the readers' entry points / exported functions.
#include <cstring>

#include "datetime/calendar/elements_impl.h"
#include "datetime/calendar/fixed_impl.h"
#include "datetime/calendar/format_impl.h"

namespace ldx_internal {

namespace {

// ------------------------------------------------------------ text cursor

inline bool is_digit(uint8_t c) { return c >= '0' && c <= '9'; }
inline bool is_alpha(uint8_t c) { return (c | 0x20) >= 'a' && (c | 0x20) <= 'z'; }
inline bool is_blank(uint8_t c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
inline uint8_t upper(uint8_t c) { return c >= 'a' && c <= 'z' ? static_cast<uint8_t>(c - 32) : c; }
// Case fold for matching words: ASCII, and the Latin-1 letters both as
// single bytes and as the second byte of their UTF-8 form. Folding the same
// way on both sides is all a match needs; the few other bytes it conflates
// cannot make two different territory words equal.
inline uint8_t fold(uint8_t c) {
  if (c >= 'a' && c <= 'z') return static_cast<uint8_t>(c - 32);
  if (((c >= 0xE0 && c <= 0xFE) || (c >= 0xA0 && c <= 0xBE)) && c != 0xF7 && c != 0xB7)
    return static_cast<uint8_t>(c - 0x20);
  return c;
}

struct Cursor {
  const uint8_t *t;
  size_t n;
  size_t pos;
  bool at_end() const { return pos >= n; }
  uint8_t peek(size_t k = 0) const { return pos + k < n ? t[pos + k] : 0; }
  void skip_blanks() {
    while (pos < n && is_blank(t[pos])) ++pos;
  }
  // Case-insensitive match of a word; the length matched, 0 for none.
  size_t match(const char *w) const {
    size_t k = 0;
    for (; w[k]; ++k)
      if (pos + k >= n || fold(t[pos + k]) != fold(static_cast<uint8_t>(w[k]))) return 0;
    return k;
  }
};

// The fields read so far, one slot each (Slot, fixed_impl.h), so that the
// fixed readers file a value by a slot number taken from a table.
struct Fields {
  int32_t v[16];
  static_assert(kSlots <= 16);
  Fields() {
    for (int32_t &x : v) x = -1;
    v[F_YKIND] = 0;
    v[F_YEAR] = 0;
    v[F_BC] = 0;
  }
  int32_t &operator[](int i) { return v[i]; }
  int32_t operator[](int i) const { return v[i]; }
};

// ------------------------------------------------------------ spelled numbers

const char *const kWords[] = {"ZERO",      "ONE",      "TWO",     "THREE",   "FOUR",   "FIVE",
                              "SIX",       "SEVEN",    "EIGHT",   "NINE",    "TEN",    "ELEVEN",
                              "TWELVE",    "THIRTEEN", "FOURTEEN", "FIFTEEN", "SIXTEEN", "SEVENTEEN",
                              "EIGHTEEN",  "NINETEEN", "TWENTY",  "THIRTY",  "FORTY",  "FIFTY",
                              "SIXTY",     "SEVENTY",  "EIGHTY",  "NINETY",  "HUNDRED", "THOUSAND",
                              "MILLION"};
constexpr int32_t kWordVal[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,
                                16, 17, 18, 19, 20, 30, 40, 50, 60, 70, 80, 90, 100, 1000, 1000000};
const struct {
  const char *ord;
  const char *card;
} kIrregular[] = {{"FIRST", "ONE"},   {"SECOND", "TWO"}, {"THIRD", "THREE"},
                  {"FIFTH", "FIVE"},  {"EIGHTH", "EIGHT"}, {"NINTH", "NINE"},
                  {"TWELFTH", "TWELVE"}};

// Value of the number word at w (length len), ordinal forms included; -1.
int32_t word_value(const uint8_t *w, size_t len) {
  char up[16];
  if (len == 0 || len >= sizeof up) return -1;
  for (size_t i = 0; i < len; ++i) up[i] = static_cast<char>(upper(w[i]));
  up[len] = 0;
  auto card = [](const char *s) -> int32_t {
    for (size_t i = 0; i < sizeof kWords / sizeof kWords[0]; ++i)
      if (std::strcmp(s, kWords[i]) == 0) return kWordVal[i];
    return -1;
  };
  int32_t v = card(up);
  if (v >= 0) return v;
  for (const auto &x : kIrregular)
    if (std::strcmp(up, x.ord) == 0) return card(x.card);
  if (len > 4 && std::strcmp(up + len - 4, "IETH") == 0) {
    up[len - 4] = 'Y';
    up[len - 3] = 0;
    return card(up);
  }
  if (len > 2 && std::strcmp(up + len - 2, "TH") == 0) {
    up[len - 2] = 0;
    return card(up);
  }
  return -1;
}

// Reads a spelled number (cardinal or ordinal); false when none is there.
bool read_spelled(Cursor &c, int64_t *value) {
  int64_t total = 0, cur = 0;
  size_t p = c.pos;
  bool any = false;
  for (;;) {
    size_t q = p;
    if (any) {
      if (q < c.n && (c.t[q] == ' ' || c.t[q] == '-')) ++q;
      else break;
    }
    size_t e = q;
    while (e < c.n && is_alpha(c.t[e])) ++e;
    int32_t v = word_value(c.t + q, e - q);
    if (v < 0) break;
    if (v == 100) cur = (cur ? cur : 1) * 100;
    else if (v >= 1000) {
      total += (cur ? cur : 1) * v;
      cur = 0;
    } else {
      cur += v;
    }
    any = true;
    p = e;
    if (total > 100000000) break;
  }
  if (!any) return false;
  c.pos = p;
  *value = total + cur;
  return true;
}

// ------------------------------------------------------------ field readers

struct Reader {
  Cursor c;
  const ldx_territory_view &v;
  bool fx = false;
};

// Reads a number of at most `width` digits (with a sign for signed
// elements), then the suffix. 0 or an error number.
int32_t read_number(Reader &r, int32_t code, uint32_t flags, int64_t *value, int32_t *ndigits) {
  const Attr &at = attr(code);
  Cursor &c = r.c;
  bool fill = flags & LDX_FLAG_FILL;
  if (flags & LDX_FLAG_SP) {
    if (!read_spelled(c, value)) return E_NEED_DIGIT;
    *ndigits = 0;
    return 0;
  }
  bool neg = false;
  bool signed_elt = code == C_SYYYY || code == C_SY_YYY || code == C_NYYYY || code == C_SCC;
  if (signed_elt) {
    uint8_t s = c.peek();
    if (s == '-' || s == '+') {
      neg = s == '-';
      ++c.pos;
    } else if (r.fx && !fill && s == ' ' && code != C_NYYYY) {
      ++c.pos;  // the blank written for a positive year
    }
  }
  int width = at.width;
  if (code == C_SYYYY || code == C_NYYYY) width = 4;
  int64_t v = 0;
  int k = 0;
  if (code == C_Y_YYY || code == C_SY_YYY) {
    // One digit, an optional comma, three digits; or up to four digits.
    while (k < 4 && is_digit(c.peek())) {
      v = v * 10 + (c.peek() - '0');
      ++c.pos;
      ++k;
      if (k == 1 && c.peek() == ',' && is_digit(c.peek(1))) ++c.pos;
    }
    width = 4;
  } else {
    while (k < width && is_digit(c.peek())) {
      v = v * 10 + (c.peek() - '0');
      ++c.pos;
      ++k;
    }
  }
  if (k == 0) return c.at_end() && !r.fx ? E_TEXT_SHORT : E_NEED_DIGIT;
  if (r.fx && !fill && k != width) return E_WIDTH;
  if (flags & LDX_FLAG_TH) {
    if (is_alpha(c.peek()) && is_alpha(c.peek(1))) c.pos += 2;
  }
  *value = neg ? -v : v;
  *ndigits = k;
  return 0;
}

// Longest case-insensitive match among `n` words; index or -1.
int32_t read_word(Cursor &c, const char *const *words, int32_t n, size_t *len) {
  int32_t best = -1;
  size_t bl = 0;
  for (int32_t i = 0; i < n; ++i) {
    if (!words[i] || !*words[i]) continue;
    size_t k = c.match(words[i]);
    if (k > bl) {
      bl = k;
      best = i;
    }
  }
  *len = bl;
  return best;
}

size_t longest(const char *const *names, int n) {
  size_t m = 0;
  for (int i = 0; i < n; ++i) m = std::strlen(names[i]) > m ? std::strlen(names[i]) : m;
  return m;
}

// Under FX, names written out of fill mode carry blanks to the longest name.
void eat_padding(Reader &r, uint32_t flags, size_t want) {
  if (!r.fx || (flags & LDX_FLAG_FILL)) return;
  while (want-- && r.c.peek() == ' ') ++r.c.pos;
}

// A month or weekday name, full or abbreviated whatever the element (the
// longer match wins); index or -1. The padding read after it is that of the
// element's own form.
int32_t read_name(Reader &r, uint32_t flags, const char *const *full, const char *const *abbr, int32_t n,
                  bool full_element) {
  size_t len = 0, la = 0;
  int32_t i = read_word(r.c, full, n, &len);
  int32_t j = read_word(r.c, abbr, n, &la);
  if (la > len) i = j, len = la;
  if (i < 0) return -1;
  r.c.pos += len;
  eat_padding(r, flags, longest(full_element ? full : abbr, n) - len);
  return i;
}

// Number elements the fast path leaves to read_number: signs and groups.
constexpr uint64_t kSpecialNum = (uint64_t{1} << C_SYYYY) | (uint64_t{1} << C_SY_YYY) | (uint64_t{1} << C_NYYYY) |
                                 (uint64_t{1} << C_Y_YYY) | (uint64_t{1} << C_SCC);

const char *const kRoman[12] = {"I", "II", "III", "IV", "V", "VI", "VII", "VIII", "IX", "X", "XI", "XII"};

// Files a number read for element `code` (nd digits) into the fields.
[[gnu::always_inline]] inline int32_t store_number(Fields &f, int32_t code, int32_t iv, int32_t nd,
                                                   int32_t first_day) {
  switch (code) {
    case C_Y: case C_YY: case C_YYY:
      f[F_YKIND] = code == C_Y ? 1 : code == C_YY ? 2 : 3;
      f[F_YEAR] = iv;
      break;
    case C_YYYY: case C_Y_YYY: f[F_YKIND] = 'F'; f[F_YEAR] = iv; break;
    case C_SYYYY: case C_SY_YYY: case C_NYYYY: f[F_YKIND] = 'S'; f[F_YEAR] = iv; break;
    case C_RR: f[F_YKIND] = 'R'; f[F_YEAR] = iv; break;
    case C_RRRR:
      if (nd == 4 || iv > 99) {
        f[F_YKIND] = 'F';
      } else {
        f[F_YKIND] = 'R';
      }
      f[F_YEAR] = iv;
      break;
    case C_MM: f[F_MONTH] = iv; break;
    case C_D: f[F_WDAY] = (iv - 1 + first_day) % 7; break;
    case C_DD: f[F_DAY] = iv; break;
    case C_DDD: f[F_DOY] = iv; break;
    case C_HH24: f[F_HOUR24] = iv; break;
    case C_HH: f[F_HOUR12] = iv; break;
    case C_MI: f[F_MINUTE] = iv; break;
    case C_SS: f[F_SECOND] = iv; break;
    case C_SSSSS: f[F_SSSSS] = iv; break;
    case C_J: f[F_JDAY] = iv; break;
    default: return E_NOT_INPUT;
  }
  return 0;
}

int32_t read_element(Reader &r, Fields &f, int32_t code, uint32_t flags) {
  const Attr &at = attr(code);
  Cursor &c = r.c;
  if (at.kind == Kind::Num) {
    int64_t v;
    int32_t nd;
    if (int32_t e = read_number(r, code, flags, &v, &nd)) return e;
    if (v < at.min || v > at.max) return at.err;
    return store_number(f, code, static_cast<int32_t>(v), nd, r.v.first_day);
  }
  size_t len = 0;
  switch (code) {
    case C_MONTH: case C_MON: {
      int32_t i = read_name(r, flags, r.v.months, r.v.mon_abbr, 12, code == C_MONTH);
      if (i < 0) return E_RANGE_MONTH;
      f[F_MONTH] = i + 1;
      return 0;
    }
    case C_DAY: case C_DY: {
      int32_t i = read_name(r, flags, r.v.days, r.v.day_abbr, 7, code == C_DAY);
      if (i < 0) return E_RANGE_WEEKDAY;
      f[F_WDAY] = i;
      return 0;
    }
    case C_AMPM: case C_AMPM_DOTS: {
      const char *w[4] = {r.v.am, r.v.pm, r.v.am_dots, r.v.pm_dots};
      int32_t i = read_word(c, w, 4, &len);
      if (i < 0) return E_NEED_MERIDIAN;
      c.pos += len;
      f[F_MERIDIAN] = i & 1;
      return 0;
    }
    case C_ADBC: case C_ADBC_DOTS: case C_E: case C_EE: {
      const char *w[6] = {r.v.ad, r.v.bc, r.v.ad_dots, r.v.bc_dots, r.v.era_full[0], r.v.era_full[1]};
      int32_t i = read_word(c, w, 6, &len);
      if (i < 0) return E_NEED_ERA;
      c.pos += len;
      f[F_BC] = i & 1;
      return 0;
    }
    case C_RM: {
      int32_t i = read_word(c, kRoman, 12, &len);
      if (i < 0) return E_RANGE_MONTH;
      c.pos += len;
      eat_padding(r, flags, 4 - len);
      f[F_MONTH] = i + 1;
      return 0;
    }
    default: return E_NOT_INPUT;
  }
}

// A separator of the model outside FX: the blanks of the text, and one other
// separator character when it has one (a blank of the model is matched by
// blanks alone when there are any).
inline size_t match_separator(const uint8_t *t, size_t n, size_t pos, uint8_t want) {
  const size_t start = pos;
  while (pos < n && is_blank(t[pos])) ++pos;
  if (pos < n && is_separator(t[pos]) && !(is_blank(want) && pos > start)) ++pos;
  return pos;
}

// A literal of the model against the text. Outside FX blanks are skipped
// before each of its characters, separators match as match_separator says,
// and anything else must be there (letters in either case) unless the text
// has ended.
int32_t read_literal(Reader &r, const uint8_t *lit, size_t k, bool ebcdic_model) {
  Cursor &c = r.c;
  for (size_t i = 0; i < k; ++i) {
    const uint8_t want = ebcdic_model ? kEbcdicToAscii[lit[i]] : lit[i];
    if (r.fx) {
      if (c.at_end()) return E_TEXT_SHORT;
      if (c.peek() != want) return E_LITERAL;
      ++c.pos;
    } else if (is_separator(want)) {
      c.pos = match_separator(c.t, c.n, c.pos, want);
    } else {
      c.skip_blanks();
      if (c.at_end()) return 0;  // the text may stop early
      if (upper(c.peek()) != upper(want)) return E_LITERAL;
      ++c.pos;
    }
  }
  return 0;
}

// ------------------------------------------------------------ fixed readers
//
// Text laid out exactly as a fixed model writes it (every number at its
// full width, every separator the model's own) is read without the general
// matching: by the model's layout plan, or, for models without one, by a
// walk of the model (read_fixed). They return false (fields spoiled) for
// anything else, which the general reader then takes on; it gives the same
// result for text the fast readers accept.

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "read_fixed packs digits little-endian");

// The value of w digits at t, or -1 when one of them is no digit.
[[gnu::always_inline]] inline int32_t fixed_digits(const uint8_t *t, size_t w) {
  if (w == 2) {
    uint16_t x;
    std::memcpy(&x, t, 2);
    if ((x & 0xF0F0u) != 0x3030u || ((x + 0x0606u) & 0xF0F0u) != 0x3030u) return -1;
    return (x & 0x0F) * 10 + ((x >> 8) & 0x0F);  // first character in the low byte
  }
  if (w == 4) {
    uint32_t x;
    std::memcpy(&x, t, 4);
    if ((x & 0xF0F0F0F0u) != 0x30303030u || ((x + 0x06060606u) & 0xF0F0F0F0u) != 0x30303030u) return -1;
    x &= 0x0F0F0F0Fu;
    x = x * 10 + (x >> 8);  // pairs in bytes 0 and 2
    return static_cast<int32_t>((x & 0xFF) * 100 + ((x >> 16) & 0xFF));
  }
  int32_t val = 0;
  for (size_t k = 0; k < w; ++k) {
    const uint32_t d = static_cast<uint32_t>(t[k] - '0');
    if (d > 9) return -1;
    val = val * 10 + static_cast<int32_t>(d);
  }
  return val;
}

// Walks the model over the text.
bool read_fixed(const uint8_t *m, size_t mlen, const uint8_t *t, size_t n, int32_t first_day, Fields &f) {
  size_t pos = 0;
  for (size_t i = 2; i < mlen; i += 2) {
    const uint8_t b = m[i];
    if (b == 0) return pos == n;
    if (i + 1 >= mlen) return false;
    if (b == 0x81) {
      if (pos >= n || t[pos] != m[i + 1]) return false;
      ++pos;
      continue;
    }
    if (b >= kFixedIn.size() || (m[i + 1] & (LDX_FLAG_TH | LDX_FLAG_SP))) return false;
    const FixedIn &e = kFixedIn[b];
    const size_t w = e.width;
    if (w == 0 || pos + w > n) return false;
    int32_t val = fixed_digits(t + pos, w);
    if (static_cast<uint32_t>(val - e.min) > e.span) return false;  // a bad digit gives -1
    pos += w;
    if (b == C_D) val = (val - 1 + first_day) % 7;
    f[e.slot] = val;
    f[e.kslot] = e.kval;
  }
  return false;
}

// Every byte of the text (of the plan's length) a digit where the model has
// a number and the model's separator where it has one.
inline bool text_fits(const Plan &p, const uint8_t *t, size_t n) {
  if (n != p.textlen) return false;
  U8x16 w[2];
  load_windows(t, n, w);
  auto bad = ((w[0] - p.lo[0]) > p.span[0]) | ((w[1] - p.lo[1]) > p.span[1]);
  uint64_t x[2];
  std::memcpy(x, &bad, 16);
  return (x[0] | x[1]) == 0;
}

bool read_plan(const Plan &p, const uint8_t *t, size_t n, int32_t first_day, Fields &f) {
  if (!text_fits(p, t, n)) return false;
  for (size_t i = 0; i < p.nfields; ++i) {
    const Plan::Field &e = p.fields[i];
    const uint8_t *d = t + e.off;
    int32_t val;
    if (e.width == 2) {
      val = d[0] * 10 + d[1] - ('0' * 11);
    } else if (e.width == 4) {
      val = (d[0] * 10 + d[1]) * 100 + d[2] * 10 + d[3] - ('0' * 1111);
    } else {
      val = 0;
      for (size_t k = 0; k < e.width; ++k) val = val * 10 + (d[k] - '0');
    }
    if (static_cast<uint32_t>(val - e.min) > e.span) return false;
    if (e.weekday) val = (val - 1 + first_day) % 7;
    f[e.slot] = val;
    f[e.kslot] = e.kval;
  }
  return true;
}

inline uint32_t two_digits(const uint8_t *d) { return d[0] * 10u + d[1] - '0' * 11u; }

// v inside the input range of element C.
template <int32_t C>
constexpr bool in_range(uint32_t v) {
  return v - static_cast<uint32_t>(kAttrTable[C].min) <= static_cast<uint32_t>(kAttrTable[C].max - kAttrTable[C].min);
}
static_assert(kAttrTable[C_YYYY].min == 0 && kAttrTable[C_YYYY].max == 9999 && kAttrTable[C_RRRR].min == 0 &&
                  kAttrTable[C_RRRR].max == 9999,
              "read_simple takes any four digits as a year");

// read_plan and assemble in one for a simple plan, whose text fits: false
// when a value is out of range (the general reader then names the error),
// else true with *err = 0 or the error assemble would give. Digits are known
// good, so values are taken without checks, and nothing can conflict: the
// year is full (0 ... 9999), month and day are given, hours are HH24.
inline bool read_simple(const Plan &p, const uint8_t *t, ldxdate *out, int32_t *err) {
  const uint8_t *y = t + p.oy;
  const int32_t year = static_cast<int32_t>(two_digits(y) * 100 + two_digits(y + 2));
  const uint32_t month = two_digits(t + p.om), day = two_digits(t + p.od);
  const uint32_t hour = p.oh != 0xFF ? two_digits(t + p.oh) : 0;
  const uint32_t minute = p.omi != 0xFF ? two_digits(t + p.omi) : 0;
  const uint32_t second = p.os != 0xFF ? two_digits(t + p.os) : 0;
  if (!in_range<C_MM>(month) || !in_range<C_DD>(day) || !in_range<C_HH24>(hour) || !in_range<C_MI>(minute) ||
      !in_range<C_SS>(second))
    return false;
  if (year == 0) {
    *err = E_RANGE_YEAR;
  } else if ((day > 28 && static_cast<int32_t>(day) > days_in_month(year, static_cast<int32_t>(month))) ||
             (year == 1582 && month == 10 && day >= 5 && day <= 14)) {
    *err = E_BAD_DAY_FOR_MONTH;
  } else {
    *err = 0;
    set_ymd(out, year, month, day);
    set_hms(out, hour, minute, second);
  }
  return true;
}

// ------------------------------------------------------------ assembly

int32_t window(int32_t t, int32_t r) {
  int32_t k = t % 100, base = t - k;
  if (k > 50) return r >= 50 ? base + r : base + 100 + r;
  return r < 50 ? base + r : base - 100 + r;
}

int32_t assemble(const ldx_territory_view &v, Fields &f, ldxdate *out) {
  ldxdate now_d{};
  bool need_now = f[F_YKIND] <= 3 || f[F_YKIND] == 'R' ||
                  (f[F_MONTH] < 0 && f[F_DOY] < 0 && f[F_JDAY] < 0);
  if (need_now) now(&now_d);
  int32_t year = 0;
  bool have_year = true;
  switch (f[F_YKIND]) {
    case 'F': year = f[F_BC] ? -f[F_YEAR] : f[F_YEAR]; break;
    case 'S': year = f[F_YEAR]; break;
    case 1: case 2: case 3: {
      int32_t p = f[F_YKIND] == 1 ? 10 : f[F_YKIND] == 2 ? 100 : 1000;
      year = now_d.year / p * p + f[F_YEAR];
      break;
    }
    case 'R': year = window(now_d.year, f[F_YEAR]); break;
    default: year = now_d.year; have_year = false; break;
  }
  int32_t month, day;
  if (f[F_JDAY] >= 0) {
    int32_t jy = 0, jm = 0, jd = 0;
    jtc(f[F_JDAY], &jy, &jm, &jd);
    if (have_year && jy != year) return E_JDAY_YEAR;
    if (f[F_MONTH] >= 0 && f[F_MONTH] != jm) return E_JDAY_MONTH;
    if (f[F_DAY] >= 0 && f[F_DAY] != jd) return E_JDAY_DAY;
    year = jy, month = jm, day = jd;
    if (year == 0) return E_RANGE_YEAR;  // a day of year 0; jtc stays inside -4712 ... 9999
  } else {
    if (year == 0 || year < -4712 || year > 9999) return E_RANGE_YEAR;
    if (f[F_DOY] >= 0) {
      int32_t dm, dd;
      if (dyc(year, f[F_DOY], &dm, &dd)) return E_DOY366;
      if ((f[F_MONTH] >= 0 && f[F_MONTH] != dm) || (f[F_DAY] >= 0 && f[F_DAY] != dd)) return E_DOY_CONFLICT;
      month = dm, day = dd;
    } else {
      month = f[F_MONTH] >= 0 ? f[F_MONTH] : now_d.month;
      day = f[F_DAY] >= 0 ? f[F_DAY] : 1;
    }
  }
  // Every month has 28 days: the month's length is needed only past them.
  if ((day > 28 && day > days_in_month(year, month)) || (year == 1582 && month == 10 && day >= 5 && day <= 14))
    return E_BAD_DAY_FOR_MONTH;
  int32_t hour = 0;
  if (f[F_HOUR24] >= 0) hour = f[F_HOUR24];
  else if (f[F_HOUR12] >= 0) hour = f[F_MERIDIAN] < 0 ? f[F_HOUR12] : f[F_HOUR12] % 12 + 12 * f[F_MERIDIAN];
  else if (f[F_MERIDIAN] == 1) hour = 12;
  int32_t minute = f[F_MINUTE] >= 0 ? f[F_MINUTE] : 0;
  int32_t second = f[F_SECOND] >= 0 ? f[F_SECOND] : 0;
  if (f[F_SSSSS] >= 0) {
    const auto [h, m, s] = hms_of(f[F_SSSSS]);
    if ((f[F_HOUR24] >= 0 || f[F_HOUR12] >= 0) && h != hour) return E_SSSSS_HOUR;
    if (f[F_MINUTE] >= 0 && m != minute) return E_SSSSS_MINUTE;
    if (f[F_SECOND] >= 0 && s != second) return E_SSSSS_SECOND;
    hour = h, minute = m, second = s;
  }
  if (f[F_WDAY] >= 0 && dow(ctj(year, month, day), 0) - 1 != f[F_WDAY]) return E_WEEKDAY_CONFLICT;
  set_ymd(out, year, month, day);
  set_hms(out, hour, minute, second);
  return 0;
}

// ------------------------------------------------------------ the readers' entry points

// The readers of fixed models, in order of speed: a simple plan, any plan,
// the walk of read_fixed. True when one of them took the text (*err = 0 or
// the error), false to leave it to the general reader.
bool parse_fixed(const ldx_territory_view &v, const uint8_t *m, size_t mlen, const uint8_t *t, size_t n,
                 ldxdate *out, int32_t *err) {
  const Plan *p = plan_for(m, mlen);
  if (p && p->simple) return text_fits(*p, t, n) && read_simple(*p, t, out, err);
  Fields f;
  if (p) {
    if (!read_plan(*p, t, n, v.first_day, f)) return false;
  } else if (!read_fixed(m, mlen, t, n, v.first_day, f)) {
    return false;
  }
  *err = assemble(v, f, out);
  return true;
}

// The general reader: EBCDIC, and text in any layout the model accepts.
// *stop gets where a failed read stopped: the element or literal that did
// not match, the text left over, or 0 when the date as a whole is wrong.
[[gnu::noinline]] int32_t parse_general(const ldx_territory_view &v, const uint8_t *m, size_t mlen, ldxdate *out,
                                        const char *txt, size_t txtlen, size_t *stop) {
  const bool ebcdic_model = m[1] & kHdrEbcdic;
  // EBCDIC text is read through its ASCII image.
  uint8_t conv[256];
  const uint8_t *t = reinterpret_cast<const uint8_t *>(txt ? txt : "");
  if (!txt) txtlen = 0;
  if (v.ebcdic) {
    if (txtlen > sizeof conv) return *stop = sizeof conv, E_TEXT_LEFT;
    for (size_t i = 0; i < txtlen; ++i) conv[i] = kEbcdicToAscii[t[i]];
    t = conv;
  }
  Reader r{Cursor{t, txtlen, 0}, v};
  Fields f;
  const int32_t v_first_day = v.first_day;
  // The hot loop keeps the text position in a register; the slower readers
  // take the cursor and hand the position back.
  const size_t n = txtlen;
  size_t pos = 0;
  auto fail = [stop](int32_t err, size_t at) {
    *stop = at;
    return err;
  };
  for (size_t i = 2;;) {
    if (i >= mlen) return fail(E_BAD_ELEMENT, pos);
    uint8_t b = m[i];
    if (b == 0) break;
    if (b & 0x80) {
      size_t k = b & 0x7F;
      if (i + 1 + k > mlen) return fail(E_BAD_ELEMENT, pos);
      if (!r.fx && pos >= n) break;
      if (!r.fx && k == 1 && !ebcdic_model && is_separator(m[i + 1])) {
        // The common case: one separator of the model.
        pos = match_separator(t, n, pos, m[i + 1]);
      } else {
        r.c.pos = pos;
        if (int32_t e = read_literal(r, m + i + 1, k, ebcdic_model)) return fail(e, r.c.pos);
        pos = r.c.pos;
      }
      i += 1 + k;
      continue;
    }
    if (i + 1 >= mlen || !compiled_code(b)) return fail(E_BAD_ELEMENT, pos);
    uint32_t flags = m[i + 1];
    i += 2;
    const Attr &at = attr(b);
    if (at.kind == Kind::Num && !r.fx && !(flags & (LDX_FLAG_TH | LDX_FLAG_SP)) &&
        !(kSpecialNum & (uint64_t{1} << b))) {
      // Plain digits: the bulk of machine-made dates.
      while (pos < n && is_blank(t[pos])) ++pos;
      if (pos >= n) break;
      const size_t start = pos;
      int32_t val = 0, k = 0;
      const int32_t w = at.width;
      const uint32_t d0 = static_cast<uint32_t>(t[pos] - '0');
      if (w == 2 && pos + 2 <= n && d0 < 10 && static_cast<uint32_t>(t[pos + 1] - '0') < 10) {
        val = static_cast<int32_t>(d0 * 10 + (t[pos + 1] - '0'));
        k = 2;
        pos += 2;
      } else if (w == 4 && pos + 4 <= n && d0 < 10 && static_cast<uint32_t>(t[pos + 1] - '0') < 10 &&
                 static_cast<uint32_t>(t[pos + 2] - '0') < 10 && static_cast<uint32_t>(t[pos + 3] - '0') < 10) {
        val = static_cast<int32_t>(d0 * 1000 + (t[pos + 1] - '0') * 100 + (t[pos + 2] - '0') * 10 + (t[pos + 3] - '0'));
        k = 4;
        pos += 4;
      } else {
        while (k < w && pos < n && is_digit(t[pos])) {
          val = val * 10 + (t[pos++] - '0');
          ++k;
        }
      }
      if (k == 0) return fail(E_NEED_DIGIT, start);
      if (val < at.min || val > at.max) return fail(at.err, start);
      if (int32_t e = store_number(f, b, val, k, v_first_day)) return fail(e, start);
      continue;
    }
    if (b == C_FX) {
      r.fx = !r.fx;
      continue;
    }
    if (!r.fx) {
      while (pos < n && is_blank(t[pos])) ++pos;
      if (pos >= n) break;
    } else if (pos >= n) {
      return fail(E_TEXT_SHORT, pos);
    }
    r.c.pos = pos;
    if (int32_t e = read_element(r, f, b, flags)) return fail(e, pos);
    pos = r.c.pos;
  }
  r.c.pos = pos;
  if (!r.fx) r.c.skip_blanks();
  if (!r.c.at_end()) return fail(E_TEXT_LEFT, r.c.pos);
  return fail(assemble(v, f, out), 0);
}

}  // namespace

int32_t parse_date(ldxctx *ctx, ldxdate *out, const char *txt, size_t txtlen, const char *fmt, size_t fmtlen,
                   size_t *stop) {
  uint8_t buf[kCompiledMax];
  size_t mlen, at = 0;
  int32_t err = 0;
  const uint8_t *m = compiled_model(fmt, fmtlen);
  if (m) {
    mlen = fmtlen;
  } else {
    m = resolve_model(ctx, fmt, fmtlen, true, buf, sizeof buf, &mlen, &err);
    if (err) return err;
  }
  const ldx_territory_view &v = view(ctx);
  // Fixed models, the bulk of machine-made dates, try the fixed readers
  // first; what they refuse they refuse as a whole date.
  if (txt && (m[1] & (kHdrFixed | kHdrEbcdic)) == kHdrFixed && !v.ebcdic &&
      parse_fixed(v, m, mlen, reinterpret_cast<const uint8_t *>(txt), txtlen, out, &err)) {
    if (stop) *stop = 0;
    return err;
  }
  err = parse_general(v, m, mlen, out, txt, txtlen, &at);
  if (stop) *stop = at;
  return err;
}

namespace {

// The calling thread's last read: its error and where it stopped.
struct LastRead {
  int32_t err;
  uint32_t pos;
  uint8_t len;
  char text[kReadTextMax];
};
thread_local LastRead tl_last_read;

}  // namespace

void note_read(int32_t err, const char *txt, size_t len, size_t stop) {
  LastRead &l = tl_last_read;
  l.err = err;
  if (err == 0) return;
  if (stop > len) stop = len;
  size_t k = len - stop < sizeof l.text ? len - stop : sizeof l.text;
  if (k) std::memcpy(l.text, txt + stop, k);
  l.len = static_cast<uint8_t>(k);
  l.pos = static_cast<uint32_t>(stop);
}

}  // namespace ldx_internal

using namespace ldx_internal;

extern "C" {

KELAPI int32_t ldxsto(ldxctx *ctx, ldxdate *out, const char *txt, size_t txtlen, const char *fmt,
                      size_t fmtlen, uint32_t options) {
  size_t stop = 0;
  int32_t err = parse_date(ctx, out, txt, txtlen, fmt, fmtlen, &stop);
  note_read(err, txt, txt ? txtlen : 0, stop);
  if (!err) return 0;
  if (options & LDX_OPT_QUIET) return -1;
  if (options & LDX_OPT_ERRNUM) return err;
  return raise(ctx, err);
}

KELAPI int32_t ldxstd(ldxctx *ctx, ldxdate *out, const char *txt, size_t txtlen, const char *fmt,
                      size_t fmtlen) {
  return ldxsto(ctx, out, txt, txtlen, fmt, fmtlen, 0);
}

KELAPI int32_t ldxstou(ldxctx *ctx, ldxdate *out, const uint16_t *txt, size_t txtlen,
                       const uint16_t *fmt, size_t fmtlen, uint32_t options) {
  char t[1024], m[kModelLimit * 4];
  size_t tn = 0, mn = 0;
  int32_t err = 0;
  if (!utf16_to_utf8(txt, txt ? txtlen : 0, t, sizeof t, &tn)) err = E_TEXT_LEFT;
  else if (fmt && fmtlen && !utf16_to_utf8(fmt, fmtlen, m, sizeof m, &mn)) err = E_MODEL_LONG;
  size_t stop = 0;
  if (!err) err = parse_date(ctx, out, t, tn, fmt ? m : nullptr, fmt ? mn : 0, &stop);
  note_read(err, t, tn, stop);
  if (!err) return 0;
  if (options & LDX_OPT_QUIET) return -1;
  if (options & LDX_OPT_ERRNUM) return err;
  return raise(ctx, err);
}

KELAPI int32_t ldxrerr(size_t *pos, char *text, size_t textsz) {
  const LastRead &l = tl_last_read;
  if (pos) *pos = l.err ? l.pos : 0;
  if (text && textsz) {
    size_t k = l.err ? (l.len < textsz - 1 ? l.len : textsz - 1) : 0;
    std::memcpy(text, l.text, k);
    text[k] = '\0';
  }
  return l.err;
}

}  // extern "C"
