// Datetimes as text: format models with fractional-second and zone elements,
// and SQL datetime literals.
//
// A datetime model is a date model (ldx.h) with a few more elements: "FF"
// and "FF1" ... "FF9" (fractional seconds), "X" (radix character), "TZH",
// "TZM", "TZR" and "TZD" (zone). Those rows extend the date element table:
// the model is scanned with the date scanner, and at each item boundary the
// extension rows are tried first. Date elements are written one by one by
// the date writer (as one-item compiled models). Reading splits the model
// into runs of date items separated by extension elements; each run is read
// by the date reader on the longest prefix of the remaining text it accepts
// (the date reader stops quietly when the text runs out and refuses text
// left over, so the longest accepted prefix is where its run ends).
//
// Sections: extension rows; writing; reading; literals; UTF-16 forms; model
// checks; unparse.
#include <cstring>

#include "datetime/calendar/elements_impl.h"
#include "datetime/calendar/format_impl.h"
#include "datetime/types/ldi_impl.h"
#include "ltz.h"

using namespace ldi_internal;
using namespace ldx_internal;

namespace {

// ------------------------------------------------------------- extension rows

enum Ext : int32_t { X_NONE = 0, X_FF = 100, X_RADIX = 110, X_TZH, X_TZM, X_TZR, X_TZD };

struct ExtRow {
  const char *text;
  uint8_t len;
  int32_t code;  // X_FF + digits (0 = the caller's precision)
};
// Longest first, so that "FF3" wins over "FF".
constexpr ExtRow kExtRows[] = {
    {"FF1", 3, X_FF + 1}, {"FF2", 3, X_FF + 2}, {"FF3", 3, X_FF + 3}, {"FF4", 3, X_FF + 4},
    {"FF5", 3, X_FF + 5}, {"FF6", 3, X_FF + 6}, {"FF7", 3, X_FF + 7}, {"FF8", 3, X_FF + 8},
    {"FF9", 3, X_FF + 9}, {"TZH", 3, X_TZH},    {"TZM", 3, X_TZM},    {"TZR", 3, X_TZR},
    {"TZD", 3, X_TZD},    {"FF", 2, X_FF},      {"X", 1, X_RADIX},
};

inline uint8_t up(uint8_t c) { return c >= 'a' && c <= 'z' ? static_cast<uint8_t>(c - 32) : c; }

// The extension element at the scanner's position, or X_NONE. Only the
// model's own text holds them (territory formats are date models).
int32_t ext_at(const ldxscan &s, size_t *len) {
  if (s.outer || s.pos >= s.len) return X_NONE;
  for (const ExtRow &r : kExtRows) {
    if (s.pos + r.len > s.len) continue;
    bool ok = true;
    for (size_t k = 0; ok && k < r.len; ++k) ok = up(s.text[s.pos + k]) == static_cast<uint8_t>(r.text[k]);
    if (ok) {
      *len = r.len;
      return r.code;
    }
  }
  return X_NONE;
}

constexpr bool time_code(int32_t c) {
  return c == C_HH24 || c == C_HH || c == C_MI || c == C_SS || c == C_SSSSS || c == C_AMPM || c == C_AMPM_DOTS ||
         c == C_FX;
}

// The default model of a kind; without fraction digits the radix goes too.
const char *default_model(uint8_t kind, bool frac = true) {
  switch (kind) {
    case LDI_KIND_TIME: return frac ? "HH24:MI:SSXFF" : "HH24:MI:SS";
    case LDI_KIND_TIME_TZ: return frac ? "HH24:MI:SSXFF TZR" : "HH24:MI:SS TZR";
    case LDI_KIND_TSTZ: return frac ? "YYYY-MM-DD HH24:MI:SSXFF TZR" : "YYYY-MM-DD HH24:MI:SS TZR";
    case LDI_KIND_DATE: return nullptr;
    default: return frac ? "YYYY-MM-DD HH24:MI:SSXFF" : "YYYY-MM-DD HH24:MI:SS";
  }
}

// The kernel's record of a datetime; a kind-7 minute marked by a zone
// adjustment is written without its +60.
ldxdate ldx_of(const LdiDateTime &d) {
  ldxdate x = as_ldx(d);
  if (d.minute > 59) x.minute = static_cast<int8_t>(d.minute - 60);
  return x;
}

struct Sink {
  char *p;
  size_t cap, n;
  bool full;
  void put(const char *s, size_t k) {
    if (n + k > cap) {
      full = true;
      return;
    }
    std::memcpy(p + n, s, k);
    n += k;
  }
};

// ---------------------------------------------------------------------- writing

int32_t write_dt(ldxctx *ctx, const LdiDateTime &d, const char *fmt, size_t fmtlen, int32_t fsprec, Sink &o,
                 const void *tzimg) {
  if (!valid_kind(d.kind)) return LDI_ERR_KIND;
  if (fsprec < 0 || fsprec > 9) return LDI_ERR_PREC;
  if (!fmt || !fmtlen) {
    fmt = default_model(d.kind, fsprec > 0);
    if (!fmt) {
      // A date in the context's own default format.
      ldxdate x = ldx_of(d);
      int32_t err = 0;
      int32_t n = ctx ? format_date(ctx, o.p, o.cap, &x, nullptr, 0, &err)
                      : format_date(ctx, o.p, o.cap, &x, "DD-MON-RR", 9, &err);
      if (err) return err;
      o.n = static_cast<size_t>(n);
      return 0;
    }
    fmtlen = std::strlen(fmt);
  }
  const ldxdate x = ldx_of(d);
  ldxscan s;
  ldxsni(ctx, &s, fmt, fmtlen);
  for (;;) {
    size_t elen = 0;
    int32_t ext = ext_at(s, &elen);
    if (ext != X_NONE) {
      const bool upper = s.text[s.pos] >= 'A' && s.text[s.pos] <= 'Z';
      s.pos += elen;
      s.measure += elen;
      if (s.measure > kModelLimit) return E_MODEL_LONG;
      if (ext >= X_FF && ext <= X_FF + 9) {
        if (!has_time(d.kind)) return LDI_ERR_KINDS;
        int32_t nd = ext == X_FF ? fsprec : ext - X_FF;
        char buf[9];
        uint32_t f = d.fraction % static_cast<uint32_t>(kNsPerSec);
        for (int i = 8; i >= 0; --i) buf[i] = static_cast<char>('0' + f % 10), f /= 10;
        o.put(buf, static_cast<size_t>(nd));
      } else if (ext == X_RADIX) {
        o.put(".", 1);
      } else {
        if (!has_zone(d.kind)) return LDI_ERR_KINDS;
        int32_t zm = zone_minutes(d);
        if (d.region && tzimg && has_date(d.kind) && ext != X_TZR) {
          int32_t secs = 0;
          int32_t st = region_local_offset(tzimg, d.region, d, &secs);
          if (st) return st;
          zm = secs / 60;
        }
        int32_t a = zm < 0 ? -zm : zm;
        char buf[LTZ_NAME_MAX];
        if (ext == X_TZH) {
          buf[0] = zm < 0 ? '-' : '+';
          buf[1] = static_cast<char>('0' + a / 600);
          buf[2] = static_cast<char>('0' + a / 60 % 10);
          o.put(buf, 3);
        } else if (ext == X_TZM) {
          buf[0] = static_cast<char>('0' + a % 60 / 10);
          buf[1] = static_cast<char>('0' + a % 10);
          o.put(buf, 2);
        } else if (ext == X_TZR) {
          if (d.region) {
            if (!tzimg) return LDI_ERR_TZFILE;
            size_t n = 0;
            int32_t st = ltzName(tzimg, d.region, buf, sizeof buf, &n);
            if (st) return map_tz_status(st);
            o.put(buf, n);
          } else {
            o.put(buf, zone_text(zm, buf));
          }
        } else if (d.region && tzimg && has_date(d.kind)) {  // TZD
          LdiDateTime local = d;
          local.kind = LDI_KIND_TIMESTAMP;
          local.tzhour = local.tzminute = 0;
          local.region = 0;
          int32_t off = zone_minutes(d) * 60;
          uint8_t dst = 0;
          int32_t st = ltzGetLocalA(tzimg, d.region, &local, &off, buf, sizeof buf, &dst);
          if (st) return map_tz_status(st);
          size_t n = std::strlen(buf);
          if (!upper)
            for (size_t i = 0; i < n; ++i) buf[i] = static_cast<char>(buf[i] >= 'A' && buf[i] <= 'Z' ? buf[i] + 32 : buf[i]);
          o.put(buf, n);
        }
      }
      if (o.full) return E_OUT_SMALL;
      continue;
    }
    int32_t err = 0;
    int32_t code = scan_next(ctx, &s, &err);
    if (code < 0) return err;
    if (code == LDX_ITEM_END) break;
    if (code == LDX_ITEM_LITERAL) {
      o.put(reinterpret_cast<const char *>(s.lit), s.litlen);
    } else if (code == C_FX) {
      continue;
    } else {
      if (!has_date(d.kind) && !time_code(code)) return LDI_ERR_KINDS;
      const uint8_t one[5] = {0, kHdrBase, static_cast<uint8_t>(code), static_cast<uint8_t>(s.flags), 0};
      int32_t n = format_date(ctx, o.p + o.n, o.cap - o.n, &x, reinterpret_cast<const char *>(one), sizeof one, &err);
      if (err) return err;
      o.n += static_cast<size_t>(n);
    }
    if (o.full) return E_OUT_SMALL;
  }
  return o.full ? E_OUT_SMALL : 0;
}

// ---------------------------------------------------------------------- reading

// Which fields of the date reader's result a run of date items supplies.
enum : uint32_t { F_YEAR = 1, F_MONTH = 2, F_DAY = 4, F_HOUR = 8, F_MINUTE = 16, F_SECOND = 32, F_MERIDIAN = 64 };

uint32_t fields_of(int32_t code) {
  switch (code) {
    case C_Y: case C_YY: case C_YYY: case C_YYYY: case C_Y_YYY: case C_SYYYY: case C_SY_YYY:
    case C_RR: case C_RRRR: case C_NYYYY: return F_YEAR;
    case C_MM: case C_MON: case C_MONTH: case C_RM: return F_MONTH;
    case C_DD: return F_DAY;
    case C_DDD: return F_MONTH | F_DAY;
    case C_J: return F_YEAR | F_MONTH | F_DAY;
    case C_HH24: case C_HH: return F_HOUR;
    case C_MI: return F_MINUTE;
    case C_SS: return F_SECOND;
    case C_SSSSS: return F_HOUR | F_MINUTE | F_SECOND;
    case C_AMPM: case C_AMPM_DOTS: return F_MERIDIAN;
    default: return 0;
  }
}

struct Reading {
  ldxdate date{};
  uint32_t fraction = 0;
  int32_t zone = 0;  // minutes
  int tzsign = 1;
  bool zone_read = false;
  uint16_t region = 0;
};

constexpr size_t kMaxText = 256;

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Whether c is a character of a literal item of the model run.
bool in_literals(ldxctx *ctx, const char *run, size_t runlen, char c) {
  ldxscan s;
  ldxsni(ctx, &s, run, runlen);
  int32_t err = 0;
  for (int32_t code; (code = scan_next(ctx, &s, &err)) > 0;)
    if (code == LDX_ITEM_LITERAL && std::memchr(s.lit, c, s.litlen)) return true;
  return false;
}

// Reads one run of date items: (model run, run length) against text from
// pos; the longest accepted prefix ends it. *fields says what the run sets.
// On failure *stop gets where the reading of the whole rest stopped.
int32_t read_run(ldxctx *ctx, const char *run, size_t runlen, bool fill, uint32_t fields, bool last, const char *t,
                 size_t n, size_t *pos, Reading &r, size_t *stop) {
  char model[kModelLimit + 16];
  char text[kMaxText + 8];
  size_t ml = 0, lead = 0;
  if (fields & F_MERIDIAN && !(fields & F_HOUR)) {
    // A meridian indicator apart from its hour: the hour already read goes
    // in front, so that the date reader applies the indicator to it.
    std::memcpy(model, "HH12 ", 5);
    ml = 5;
    int32_t h12 = r.date.hour % 12 ? r.date.hour % 12 : 12;
    text[0] = static_cast<char>('0' + h12 / 10);
    text[1] = static_cast<char>('0' + h12 % 10);
    text[2] = ' ';
    lead = 3;
    fields |= F_HOUR;
  }
  if (fill) model[ml++] = 'F', model[ml++] = 'M';
  std::memcpy(model + ml, run, runlen);
  ml += runlen;
  if (lead) {
    std::memcpy(text + lead, t + *pos, n - *pos);
    t = text;
    n = lead + n - *pos;
    size_t p = 0, at = 0;
    int32_t st = read_run(ctx, model, ml, false, fields & ~F_MERIDIAN, last, t, n, &p, r, &at);
    if (st == 0) *pos += p - lead;
    else *stop = *pos + (at > lead ? at - lead : 0);
    return st;
  }
  if (fields == 0) {
    // Literals only: skip their characters and blanks. The characters are
    // those of the run's literal items, not of its text: quote marks and an
    // "FM" between two literals are not text to skip.
    while (*pos < n && (is_blank(t[*pos]) || in_literals(ctx, run, runlen, t[*pos]))) ++*pos;
    return 0;
  }
  int32_t first_err = 0;
  // The last run takes the rest of the text; others the longest prefix.
  for (size_t end = n; end + 1 > *pos && (!last || end == n); --end) {
    ldxdate got{};
    size_t at = 0;
    int32_t st = parse_date(ctx, &got, t + *pos, end - *pos, model, ml, &at);
    if (st == 0) {
      if (fields & F_YEAR) r.date.year = got.year;
      if (fields & F_MONTH) r.date.month = got.month;
      if (fields & F_DAY) r.date.day = got.day;
      if (fields & F_HOUR) r.date.hour = got.hour;
      if (fields & F_MINUTE) r.date.minute = got.minute;
      if (fields & F_SECOND) r.date.second = got.second;
      *pos = end;
      return 0;
    }
    if (!first_err) first_err = st, *stop = *pos + at;
    if (end == *pos) break;
  }
  return first_err;
}

// Reads a datetime; on failure *stop gets where the reading stopped (0 when
// the value as a whole is wrong).
int32_t read_dt(ldxctx *ctx, const char *t, size_t n, const char *fmt, size_t fmtlen, uint8_t kind,
                LdiDateTime *out, const void *tzimg, size_t *stop) {
  *stop = 0;
  if (!valid_kind(kind)) return LDI_ERR_KIND;
  if (n > kMaxText) return *stop = kMaxText, E_TEXT_LEFT;
  Reading r;
  // Defaults: the date reader's own (current year and month, day 1, midnight).
  if (int32_t st = parse_date(ctx, &r.date, "", 0, "HH24", 4)) return st;
  if (!fmt || !fmtlen) {
    fmt = default_model(kind);
    if (!fmt) {
      int32_t st = ctx ? parse_date(ctx, &r.date, t, n, nullptr, 0, stop)
                       : parse_date(ctx, &r.date, t, n, "DD-MON-RR", 9, stop);
      if (st) return st;
      fmt = "";
    }
    fmtlen = std::strlen(fmt);
  }
  ldxscan s;
  ldxsni(ctx, &s, fmt, fmtlen);
  size_t pos = 0, run_start = 0;
  bool run_fill = false;
  uint32_t run_fields = 0;
  bool run_any = false, stopped = false;
  for (;;) {
    size_t elen = 0;
    int32_t ext = ext_at(s, &elen);
    bool end = false;
    if (ext == X_NONE) {
      size_t before = s.pos;
      bool fill_before = s.fill;
      int32_t err = 0;
      int32_t code = scan_next(ctx, &s, &err);
      if (code < 0) return err;
      if (code == LDX_ITEM_END) {
        end = true;
      } else {
        if (!run_any) {
          run_start = before;
          run_fill = fill_before;
          run_any = true;
        }
        if (code != LDX_ITEM_LITERAL) {
          if (!has_date(kind) && !time_code(code)) return LDI_ERR_KINDS;
          uint32_t f = fields_of(code);
          run_fields |= f ? f : 0x100;  // 0x100: read but stored nowhere (weekday ...)
        }
        continue;
      }
    }
    // A run of date items ends here.
    if (run_any && !stopped) {
      size_t runend = end ? fmtlen : s.pos;
      if (pos >= n && run_fields) {
        stopped = true;
      } else {
        int32_t st =
            read_run(ctx, fmt + run_start, runend - run_start, run_fill, run_fields, end, t, n, &pos, r, stop);
        if (st) return st;
      }
      run_any = false;
      run_fields = 0;
    }
    if (end) break;
    s.pos += elen;
    s.measure += elen;
    if (s.measure > kModelLimit) return E_MODEL_LONG;
    if (ext >= X_FF && ext <= X_FF + 9) {
      if (!has_time(kind)) return LDI_ERR_KINDS;
    } else if (ext != X_RADIX && !has_zone(kind)) {
      return LDI_ERR_KINDS;
    }
    if (stopped) continue;
    while (pos < n && is_blank(t[pos])) ++pos;
    if (pos >= n) {
      stopped = true;
      continue;
    }
    *stop = pos;
    if (ext >= X_FF && ext <= X_FF + 9) {
      int32_t maxd = ext == X_FF ? 9 : ext - X_FF;
      uint32_t f = 0;
      int32_t nd = 0;
      while (nd < maxd && pos < n && is_digit(t[pos])) f = f * 10 + static_cast<uint32_t>(t[pos++] - '0'), ++nd;
      if (nd == 0) return E_NEED_DIGIT;
      r.fraction = f * static_cast<uint32_t>(kPow10[9 - nd]);
    } else if (ext == X_RADIX) {
      if (t[pos] != '.' && t[pos] != ',') return E_LITERAL;
      ++pos;
    } else if (ext == X_TZH) {
      int sign = 1;
      if (t[pos] == '+' || t[pos] == '-') sign = t[pos++] == '-' ? -1 : 1;
      int32_t h = 0, nd = 0;
      while (nd < 2 && pos < n && is_digit(t[pos])) h = h * 10 + (t[pos++] - '0'), ++nd;
      if (nd == 0) return E_NEED_DIGIT;
      if (h > (sign < 0 ? 12 : 14)) return LDI_ERR_TZTEXT;
      r.tzsign = sign;
      r.zone = sign * h * 60 + (r.zone % 60);
      r.zone_read = true;
    } else if (ext == X_TZM) {
      int32_t m = 0, nd = 0;
      while (nd < 2 && pos < n && is_digit(t[pos])) m = m * 10 + (t[pos++] - '0'), ++nd;
      if (nd == 0) return E_NEED_DIGIT;
      if (m > 59) return LDI_ERR_TZTEXT;
      r.zone = (r.zone / 60) * 60 + r.tzsign * m;
      r.zone_read = true;
    } else if (ext == X_TZR) {
      size_t b = pos;
      while (pos < n && !is_blank(t[pos])) ++pos;
      int32_t minutes = 0;
      uint16_t region = 0;
      int32_t st = parse_zone(t + b, pos - b, tzimg, &minutes, &region);
      if (st) return st;
      r.zone = minutes;
      r.region = region;
      r.zone_read = true;
    } else {  // TZD: the abbreviation is read and not used
      while (pos < n && ((t[pos] | 0x20) >= 'a' && (t[pos] | 0x20) <= 'z')) ++pos;
    }
  }
  while (pos < n && is_blank(t[pos])) ++pos;
  if (pos < n) return *stop = pos, E_TEXT_LEFT;
  *stop = 0;
  LdiDateTime d{};
  d.kind = kind;
  if (has_date(kind)) {
    d.year = r.date.year;
    d.month = static_cast<uint8_t>(r.date.month);
    d.day = static_cast<uint8_t>(r.date.day);
  }
  if (has_time(kind)) {
    d.hour = static_cast<uint8_t>(r.date.hour);
    d.minute = static_cast<uint8_t>(r.date.minute);
    d.second = static_cast<uint8_t>(r.date.second);
    d.fraction = r.fraction;
  }
  if (has_zone(kind)) {
    if (r.zone < -12 * 60 - 59 || r.zone > 14 * 60 + 59) return LDI_ERR_TZTEXT;
    set_zone_minutes(d, r.zone);
    d.region = r.region;
    if (d.region && tzimg && has_date(kind)) {
      int32_t secs = 0;
      int32_t st = region_local_offset(tzimg, d.region, d, &secs);
      if (st) return st;
      set_zone_minutes(d, secs / 60);
    }
  }
  if (LdiDateCheck(&d, 0, 0)) return LDI_ERR_VALUE;
  *out = d;
  return 0;
}

// --------------------------------------------------------------------- literals

int32_t write_literal(const LdiDateTime &d, int32_t fsprec, Sink &o, const void *tzimg) {
  if (!valid_kind(d.kind)) return LDI_ERR_KIND;
  if (fsprec < 0 || fsprec > 9) return LDI_ERR_PREC;
  char buf[64 + LTZ_NAME_MAX];
  size_t k = 0;
  auto num = [&](int64_t v, int w) {
    char tmp[12];
    int n = 0;
    do tmp[n++] = static_cast<char>('0' + v % 10), v /= 10;
    while (v);
    for (int i = n; i < w; ++i) buf[k++] = '0';
    while (n) buf[k++] = tmp[--n];
  };
  const char *kw = d.kind == LDI_KIND_DATE ? "DATE '" : has_date(d.kind) ? "TIMESTAMP '" : "TIME '";
  std::memcpy(buf, kw, std::strlen(kw));
  k = std::strlen(kw);
  if (has_date(d.kind)) {
    if (d.year < 0) buf[k++] = '-';
    num(d.year < 0 ? -d.year : d.year, 4);
    buf[k++] = '-';
    num(d.month, 2);
    buf[k++] = '-';
    num(d.day, 2);
    if (has_time(d.kind)) buf[k++] = ' ';
  }
  if (has_time(d.kind)) {
    num(d.hour, 2);
    buf[k++] = ':';
    num(d.minute > 59 ? d.minute - 60 : d.minute, 2);
    buf[k++] = ':';
    num(d.second, 2);
    if (fsprec > 0) {
      buf[k++] = '.';
      uint32_t f = d.fraction / static_cast<uint32_t>(kPow10[9 - fsprec]);
      num(f, fsprec);
    }
  }
  if (has_zone(d.kind)) {
    buf[k++] = ' ';
    if (d.region) {
      if (!tzimg) return LDI_ERR_TZFILE;
      size_t n = 0;
      int32_t st = ltzName(tzimg, d.region, buf + k, LTZ_NAME_MAX, &n);
      if (st) return map_tz_status(st);
      k += n;
    } else {
      k += zone_text(zone_minutes(d), buf + k);
    }
  }
  buf[k++] = '\'';
  o.put(buf, k);
  return o.full ? E_OUT_SMALL : 0;
}

int32_t read_literal(const char *t, size_t n, LdiDateTime *out, const void *tzimg) {
  size_t i = 0;
  auto blanks = [&] {
    while (i < n && is_blank(t[i])) ++i;
  };
  auto word = [&](const char *w) {
    size_t k = std::strlen(w);
    if (i + k > n) return false;
    for (size_t j = 0; j < k; ++j)
      if ((t[i + j] & ~0x20) != w[j]) return false;
    i += k;
    return true;
  };
  auto digits = [&](int minw, int maxw, int32_t *v) {
    int nd = 0;
    *v = 0;
    while (nd < maxw && i < n && is_digit(t[i])) *v = *v * 10 + (t[i++] - '0'), ++nd;
    return nd >= minw;
  };
  blanks();
  bool date = false, time = false;
  if (word("TIMESTAMP")) date = time = true;
  else if (word("TIME")) time = true;
  else if (word("DATE")) date = true;
  else return LDI_ERR_LITERAL;
  blanks();
  if (i >= n || t[i] != '\'') return LDI_ERR_LITERAL;
  ++i;
  int32_t y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
  uint32_t frac = 0;
  if (date) {
    int sign = 1;
    if (i < n && (t[i] == '-' || t[i] == '+')) sign = t[i++] == '-' ? -1 : 1;
    if (!digits(1, 4, &y) || i >= n || t[i++] != '-' || !digits(1, 2, &mo) || i >= n || t[i++] != '-' ||
        !digits(1, 2, &d))
      return LDI_ERR_LITERAL;
    y *= sign;
    if (time) {
      if (i >= n || t[i++] != ' ') return LDI_ERR_LITERAL;
      blanks();
    }
  }
  if (time) {
    if (!digits(1, 2, &h) || i >= n || t[i++] != ':' || !digits(1, 2, &mi) || i >= n || t[i++] != ':' ||
        !digits(1, 2, &s))
      return LDI_ERR_LITERAL;
    if (i < n && t[i] == '.') {
      ++i;
      int nd = 0;
      while (i < n && is_digit(t[i])) {
        if (nd < 9) frac = frac * 10 + static_cast<uint32_t>(t[i] - '0'), ++nd;
        ++i;
      }
      if (nd == 0) return LDI_ERR_LITERAL;
      frac *= static_cast<uint32_t>(kPow10[9 - nd]);
    }
  }
  // An optional zone up to the closing quote.
  size_t zb = i;
  while (i < n && t[i] != '\'') ++i;
  if (i >= n) return LDI_ERR_LITERAL;
  size_t ze = i++;
  blanks();
  if (i != n) return LDI_ERR_LITERAL;
  while (zb < ze && is_blank(t[zb])) ++zb;
  uint8_t kind = date && time ? LDI_KIND_TIMESTAMP : date ? LDI_KIND_DATE : LDI_KIND_TIME;
  int32_t minutes = 0;
  uint16_t region = 0;
  if (zb < ze) {
    if (kind == LDI_KIND_DATE) return LDI_ERR_LITERAL;
    int32_t st = parse_zone(t + zb, ze - zb, tzimg, &minutes, &region);
    if (st) return st;
    kind = kind == LDI_KIND_TIME ? LDI_KIND_TIME_TZ : LDI_KIND_TSTZ;
  }
  if (date && (y == 0 || y < -4712 || y > 9999)) return LDI_ERR_YEAR;
  LdiDateTime r{};
  int32_t st = LdiDateConstruct(nullptr, &r, y, mo, d, h, mi, s, frac, minutes / 60, minutes % 60, region, kind, tzimg);
  if (st) return st;
  *out = r;
  return 0;
}

// ----------------------------------------------------------------- UTF-16 forms

bool narrow(const uint16_t *in, size_t n, char *out, size_t cap, size_t *len) {
  return utf16_to_utf8(in, in ? n : 0, out, cap, len);
}

int32_t widen(const char *in, size_t n, uint16_t *out, size_t outsz, size_t *len) {
  return utf8_to_utf16(in, n, out, outsz, len) ? 0 : E_OUT_SMALL;
}

}  // namespace

KELAPI int32_t LdiDateToString(ldxctx *ctx, const LdiDateTime *d, const char *fmt, size_t fmtlen, int32_t fsprec,
                               char *out, size_t outsz, size_t *len, const void *tzimg) {
  Sink o{out, outsz, 0, false};
  int32_t st = write_dt(ctx, *d, fmt, fmtlen, fsprec, o, tzimg);
  if (st) return st;
  *len = o.n;
  return 0;
}

KELAPI int32_t LdiDateFromString(ldxctx *ctx, const char *txt, size_t txtlen, const char *fmt, size_t fmtlen,
                                 uint8_t kind, LdiDateTime *out, const void *tzimg) {
  size_t stop = 0;
  int32_t st = read_dt(ctx, txt ? txt : "", txt ? txtlen : 0, fmt, fmtlen, kind, out, tzimg, &stop);
  note_read(st, txt, txt ? txtlen : 0, stop);
  return st;
}

KELAPI int32_t LdiDateToStringU(ldxctx *ctx, const LdiDateTime *d, const uint16_t *fmt, size_t fmtlen,
                                int32_t fsprec, uint16_t *out, size_t outsz, size_t *len, const void *tzimg) {
  char model[kModelLimit * 4], tmp[1024];
  size_t ml = 0, n = 0;
  if (fmt && fmtlen && !narrow(fmt, fmtlen, model, sizeof model, &ml)) return E_MODEL_LONG;
  int32_t st = LdiDateToString(ctx, d, fmt ? model : nullptr, ml, fsprec, tmp, sizeof tmp, &n, tzimg);
  if (st) return st;
  return widen(tmp, n, out, outsz, len);
}

KELAPI int32_t LdiDateFromStringU(ldxctx *ctx, const uint16_t *txt, size_t txtlen, const uint16_t *fmt,
                                  size_t fmtlen, uint8_t kind, LdiDateTime *out, const void *tzimg) {
  char model[kModelLimit * 4], t[kMaxText * 4];
  size_t ml = 0, tn = 0;
  if (fmt && fmtlen && !narrow(fmt, fmtlen, model, sizeof model, &ml)) return E_MODEL_LONG;
  if (!narrow(txt, txtlen, t, sizeof t, &tn)) return E_TEXT_LEFT;
  size_t stop = 0;
  int32_t st = read_dt(ctx, t, tn, fmt ? model : nullptr, ml, kind, out, tzimg, &stop);
  note_read(st, t, tn, stop);
  return st;
}

KELAPI int32_t LdiDateToLiteral(const LdiDateTime *d, int32_t fsprec, char *out, size_t outsz, size_t *len,
                                const void *tzimg) {
  Sink o{out, outsz, 0, false};
  int32_t st = write_literal(*d, fsprec, o, tzimg);
  if (st) return st;
  *len = o.n;
  return 0;
}

KELAPI int32_t LdiDateFromLiteral(const char *txt, size_t txtlen, LdiDateTime *out, const void *tzimg) {
  return read_literal(txt ? txt : "", txt ? txtlen : 0, out, tzimg);
}

KELAPI int32_t LdiDateToLiteralU(const LdiDateTime *d, int32_t fsprec, uint16_t *out, size_t outsz, size_t *len,
                                 const void *tzimg) {
  char tmp[512];
  size_t n = 0;
  int32_t st = LdiDateToLiteral(d, fsprec, tmp, sizeof tmp, &n, tzimg);
  if (st) return st;
  return widen(tmp, n, out, outsz, len);
}

KELAPI int32_t LdiDateFromLiteralU(const uint16_t *txt, size_t txtlen, LdiDateTime *out, const void *tzimg) {
  char t[1024];
  size_t n = 0;
  if (!narrow(txt, txtlen, t, sizeof t, &n)) return LDI_ERR_LITERAL;
  return read_literal(t, n, out, tzimg);
}

// ------------------------------------------------------------- model checks

namespace {

// Checks a datetime model for a kind: the date items go through the date
// compiler (with its input checks when reading), the extension elements
// must suit the kind and appear once each.
int32_t check_model(ldxctx *ctx, const char *fmt, size_t fmtlen, uint8_t kind, bool input) {
  if (!valid_kind(kind)) return LDI_ERR_KIND;
  if (!fmt || !fmtlen) return 0;
  char stripped[kModelLimit + 8];
  size_t sn = 0;
  ldxscan s;
  ldxsni(ctx, &s, fmt, fmtlen);
  uint32_t seen = 0;
  size_t last = 0;
  for (;;) {
    size_t elen = 0;
    int32_t ext = ext_at(s, &elen);
    if (ext == X_NONE) {
      int32_t err = 0;
      int32_t code = scan_next(ctx, &s, &err);
      if (code < 0) return err;
      if (code == LDX_ITEM_END) break;
      if (code != LDX_ITEM_LITERAL && code != C_FX && !has_date(kind) && !time_code(code)) return LDI_ERR_KINDS;
      continue;
    }
    // The date items before the element, with the element left out.
    size_t k = s.pos - last;
    if (sn + k + 1 > sizeof stripped) return E_MODEL_LONG;
    std::memcpy(stripped + sn, fmt + last, k);
    sn += k;
    stripped[sn++] = ' ';
    s.pos += elen;
    s.measure += elen;
    if (s.measure > kModelLimit) return E_MODEL_LONG;
    last = s.pos;
    int bit = ext >= X_FF && ext <= X_FF + 9 ? 0 : ext - X_RADIX + 1;
    if (seen >> bit & 1) return E_DUP;
    seen |= 1u << bit;
    if (ext >= X_FF && ext <= X_FF + 9 ? !has_time(kind) : (ext != X_RADIX && !has_zone(kind))) return LDI_ERR_KINDS;
    if (input && ext == X_TZR && (seen & (1u << (X_TZH - X_RADIX + 1) | 1u << (X_TZM - X_RADIX + 1))))
      return E_DUP;
    if (input && (ext == X_TZH || ext == X_TZM) && (seen >> (X_TZR - X_RADIX + 1) & 1)) return E_DUP;
  }
  size_t k = fmtlen - last;
  if (sn + k > sizeof stripped) return E_MODEL_LONG;
  std::memcpy(stripped + sn, fmt + last, k);
  sn += k;
  uint8_t compiled[kCompiledMax];
  int32_t err = 0;
  compile(ctx, stripped, sn, compiled, sizeof compiled, input, &err);
  return err;
}

}  // namespace

KELAPI int32_t LdiParseForInput(ldxctx *ctx, const char *fmt, size_t fmtlen, uint8_t kind) {
  return check_model(ctx, fmt, fmtlen, kind, true);
}

KELAPI int32_t LdiParseForOutput(ldxctx *ctx, const char *fmt, size_t fmtlen, uint8_t kind) {
  return check_model(ctx, fmt, fmtlen, kind, false);
}

// ------------------------------------------------------------------- unparse

namespace {

bool plain_separator(uint8_t c) {
  return c == ' ' || c == '-' || c == '/' || c == ',' || c == '.' || c == ';' || c == ':';
}

// The canonical text of an element code: the first row of the table that
// carries it ("HH" for HH/HH12, "AM" for AM/PM ...).
const char *element_text(int32_t code) {
  size_t n = 0;
  const Element *rows = element_rows(false, &n);
  for (size_t i = 0; i < n; ++i)
    if (rows[i].code == code) return rows[i].text;
  return nullptr;
}

void put_cased(Sink &o, const char *t, uint32_t flags) {
  for (size_t i = 0; t[i]; ++i) {
    char c = t[i];
    bool upper = (flags & LDX_FLAG_UPPER) || ((flags & LDX_FLAG_INITCAP) && i == 0);
    if (!upper && c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    o.put(&c, 1);
  }
}

// One item of a datetime model as the readers and writers see it: a date
// element (code and flags), an extension element (its code) or literal text.
// At each item boundary the extension rows are tried before the date
// scanner, as the writers and readers do.
int32_t next_item(ldxctx *ctx, ldxscan &s, int32_t *err) {
  size_t elen = 0;
  int32_t ext = ext_at(s, &elen);
  if (ext == X_NONE) return scan_next(ctx, &s, err);
  s.pos += elen;
  s.measure += elen;
  if (s.measure > kModelLimit) {
    *err = E_MODEL_LONG;
    return -1;
  }
  s.code = ext;
  s.flags = 0;
  return ext;
}

bool same_item(const ldxscan &a, int32_t ca, const ldxscan &b, int32_t cb) {
  if (ca != cb || a.flags != b.flags) return false;
  return ca != LDX_ITEM_LITERAL || (a.litlen == b.litlen && std::memcmp(a.lit, b.lit, a.litlen) == 0);
}

// Whether the text written so far (out, n) scans as exactly the first
// `count` items of the model. Written one after the other, two items can
// read as something else: Y and Y as YY, D and Y as DY, Y "," YYY as Y,YYY,
// "-" and "-" as one literal; scanning the text again is the one test that
// covers every such pair, the territory formats' elements included.
bool reads_as(ldxctx *ctx, const char *fmt, size_t fmtlen, const char *out, size_t n, size_t count) {
  ldxscan a, b;
  ldxsni(ctx, &a, fmt, fmtlen);
  ldxsni(ctx, &b, out, n);
  for (size_t i = 0; i <= count; ++i) {
    int32_t ea = 0, eb = 0;
    int32_t ca = i < count ? next_item(ctx, a, &ea) : LDX_ITEM_END;
    int32_t cb = next_item(ctx, b, &eb);
    // Only the length limit can stop the canonical text where the model
    // went on (the separators it adds count): that is the caller's 1800.
    if (cb < 0) return eb == E_MODEL_LONG;
    if (i == count) return cb == LDX_ITEM_END;
    if (ca < 0 || !same_item(a, ca, b, cb)) return false;
  }
  return true;
}

}  // namespace

KELAPI int32_t LdiUnparse(ldxctx *ctx, const char *fmt, size_t fmtlen, char *out, size_t outsz, size_t *len) {
  if (!fmt) fmtlen = 0;
  Sink o{out, outsz, 0, false};
  ldxscan s;
  ldxsni(ctx, &s, fmt, fmtlen);
  bool fill = false;
  for (size_t count = 1;; ++count) {
    int32_t err = 0;
    int32_t code = next_item(ctx, s, &err);
    if (code < 0) return err;
    if (code == LDX_ITEM_END) break;
    const size_t mark = o.n;
    const bool was_fill = fill;
    // The item's text; when it would run into what is written before it, an
    // empty literal "" keeps the two apart (the scanner reads it as nothing).
    // Extension elements never need it, and could not take it: they are
    // only looked for where an item begins, which "" is not. A spelled
    // ordinal may also need its other spelling: D with "SPTH" reads as DS.
    const bool both = code < X_FF && (s.flags & 3) == 3;
    for (int attempt = 0; attempt < (code >= X_FF ? 1 : both ? 4 : 2); ++attempt) {
      const bool apart = attempt & 1, thsp = attempt & 2;
      o.n = mark;
      fill = was_fill;
      if (apart) o.put("\"\"", 2);
      if (code >= X_FF) {
        // Extension elements in upper case; "FF" keeps its digit.
        for (const ExtRow &r : kExtRows)
          if (r.code == code) o.put(r.text, r.len);
      } else if (code == LDX_ITEM_LITERAL) {
        bool plain = true;
        for (size_t k = 0; k < s.litlen; ++k) plain = plain && plain_separator(s.lit[k]);
        if (!plain) o.put("\"", 1);
        o.put(reinterpret_cast<const char *>(s.lit), s.litlen);
        if (!plain) o.put("\"", 1);
      } else {
        bool f = s.flags & LDX_FLAG_FILL;
        if (f != fill) o.put("FM", 2), fill = f;
        const char *t = element_text(code);
        if (!t) return E_BAD_ELEMENT;
        // A one-letter element carries no case: capitals read best.
        put_cased(o, t, t[1] ? s.flags : s.flags | LDX_FLAG_UPPER);
        // Lower-case ordinal letters are echoed as such.
        const bool low = s.flags & LDX_FLAG_THLOW;
        if (both) o.put(thsp ? (low ? "thSP" : "THSP") : (low ? "SPth" : "SPTH"), 4);
        else if (s.flags & 2) o.put("SP", 2);
        else if (s.flags & 1) o.put(low ? "th" : "TH", 2);
      }
      if (o.full) return E_OUT_SMALL;
      if (reads_as(ctx, fmt, fmtlen, out, o.n, count)) break;
    }
  }
  *len = o.n;
  return 0;
}
