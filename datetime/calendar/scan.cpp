// Scanning and compiling format models.
//
// The scanner walks a model one item at a time: runs of separators and
// quoted text come back as literal items, letters are matched against the
// element table (longest element of the initial letter's rows, any case),
// "FM" flips fill mode in the scan state, and "DL"/"DS"/"TS" are replaced by
// the territory's own format, scanned in place before the rest of the model.
// The compiler turns the items into the compact compiled form of
// ldx_impl.h and, for input models, applies the repetition, input and
// conflict checks.
//
// Sections: character helpers / scanner / compiler / exported functions.
#include <cstring>

#include "datetime/calendar/elements_impl.h"
#include "datetime/calendar/format_impl.h"
#include "datetime/calendar/ldx_impl.h"

namespace ldx_internal {

namespace {

// ------------------------------------------------------ character helpers

inline uint8_t to_ascii(const ldxscan *s, uint8_t c) { return s->ebcdic ? kEbcdicToAscii[c] : c; }
inline bool is_alpha(uint8_t a) { return (a | 0x20) >= 'a' && (a | 0x20) <= 'z'; }
inline bool is_upper(uint8_t a) { return a >= 'A' && a <= 'Z'; }
inline bool is_lower(uint8_t a) { return a >= 'a' && a <= 'z'; }
inline uint8_t upper(uint8_t a) { return is_lower(a) ? static_cast<uint8_t>(a - 32) : a; }

// Case-insensitive match of element text `e` (already in the model's
// character set) at s->text + pos.
bool matches(const ldxscan *s, size_t pos, const char *e, size_t n) {
  if (pos + n > s->len) return false;
  for (size_t i = 0; i < n; ++i) {
    uint8_t want = to_ascii(s, static_cast<uint8_t>(e[i]));
    if (upper(to_ascii(s, s->text[pos + i])) != want) return false;
  }
  return true;
}

const char *territory_format(const ldx_territory_view &v, int32_t code) {
  return code == C_DL ? v.longdate : code == C_DS ? v.shortdate : v.shorttime;
}

}  // namespace

// ------------------------------------------------------------ scanner

int32_t scan_next(ldxctx *ctx, ldxscan *s, int32_t *err) {
  for (;;) {
    if (s->pos >= s->len) {
      if (s->outer) {
        // Fill mode switched inside a territory format stays inside it.
        s->fill = s->outerfill;
        s->text = s->outer;
        s->len = s->outerlen;
        s->pos = s->outerpos;
        s->outer = nullptr;
        continue;
      }
      s->code = LDX_ITEM_END;
      s->flags = 0;
      return LDX_ITEM_END;
    }
    size_t start = s->pos;
    uint8_t a = to_ascii(s, s->text[start]);
    if (a == '"') {
      size_t close = start + 1;
      while (close < s->len && to_ascii(s, s->text[close]) != '"') ++close;
      if (close >= s->len) {
        *err = E_BAD_ELEMENT;
        return -1;
      }
      s->pos = close + 1;
      s->measure += s->pos - start;
      if (s->measure > kModelLimit) {
        *err = E_MODEL_LONG;
        return -1;
      }
      if (close == start + 1) continue;  // "" is nothing
      s->lit = s->text + start + 1;
      s->litlen = close - start - 1;
      s->code = LDX_ITEM_LITERAL;
      s->flags = 0;
      return LDX_ITEM_LITERAL;
    }
    if (is_separator(a)) {
      size_t end = start + 1;
      while (end < s->len && is_separator(to_ascii(s, s->text[end]))) ++end;
      s->pos = end;
      s->measure += end - start;
      if (s->measure > kModelLimit) {
        *err = E_MODEL_LONG;
        return -1;
      }
      s->lit = s->text + start;
      s->litlen = end - start;
      s->code = LDX_ITEM_LITERAL;
      s->flags = 0;
      return LDX_ITEM_LITERAL;
    }
    if (!is_alpha(a)) {
      *err = E_BAD_ELEMENT;
      return -1;
    }
    int32_t row = element_index(upper(a) - 'A');
    if (row < 0) {
      *err = E_BAD_ELEMENT;
      return -1;
    }
    size_t nrows;
    const Element *rows = element_rows(s->ebcdic, &nrows);
    const Element *best = nullptr;
    const uint8_t first = rows[row].text[0];
    for (size_t i = static_cast<size_t>(row); i < nrows && static_cast<uint8_t>(rows[i].text[0]) == first; ++i) {
      if ((!best || rows[i].len > best->len) && matches(s, start, rows[i].text, rows[i].len))
        best = &rows[i];
    }
    if (!best) {
      *err = E_BAD_ELEMENT;
      return -1;
    }
    int32_t code = best->code;
    size_t pos = start + best->len;
    uint32_t flags = 0;
    // The case an element is written in: only an element of more than one
    // letter can say it; a one-letter element is written in lower case.
    if (best->len > 1 && is_upper(a))
      flags |= is_lower(to_ascii(s, s->text[start + 1])) ? LDX_FLAG_INITCAP : LDX_FLAG_UPPER;
    const Attr &at = attr(code);
    if (at.suffix && pos < s->len) {
      static const struct {
        const char *t;
        uint8_t n;
        uint32_t f;
      } sfx[] = {{"SPTH", 4, 3}, {"THSP", 4, 3}, {"SP", 2, 2}, {"TH", 2, 1}};
      for (const auto &x : sfx) {
        bool ok = pos + x.n <= s->len;
        for (size_t k = 0; ok && k < x.n; ++k) ok = upper(to_ascii(s, s->text[pos + k])) == x.t[k];
        if (ok) {
          // Remember how the ordinal letters were written, to echo them.
          size_t tpos = x.t[0] == 'T' ? pos : pos + 2;
          if (x.f & 1 && is_lower(to_ascii(s, s->text[tpos]))) flags |= LDX_FLAG_THLOW;
          flags |= x.f;
          pos += x.n;
          break;
        }
      }
    }
    s->measure += pos - start;
    if (s->measure > kModelLimit) {
      *err = E_MODEL_LONG;
      return -1;
    }
    s->pos = pos;
    if (code == C_FM) {
      s->fill = !s->fill;
      continue;
    }
    if (at.kind == Kind::Expand) {
      const char *tf = territory_format(view(ctx), code);
      if (s->outer || !tf || !*tf) {
        *err = s->outer ? E_BAD_ELEMENT : E_EMPTY_TERR_FMT;
        return -1;
      }
      size_t n = std::strlen(tf);
      if (n > 100) n = 100;
      s->outer = s->text;
      s->outerlen = s->len;
      s->outerpos = s->pos;
      s->outerfill = s->fill;
      s->expanded = 1;
      s->text = reinterpret_cast<const uint8_t *>(tf);
      s->len = n;
      s->pos = 0;
      continue;
    }
    if (s->fill) flags |= LDX_FLAG_FILL;
    s->code = code;
    s->flags = flags;
    return code;
  }
}

// ------------------------------------------------------------ compiler

namespace {

struct Group {
  int32_t err;
  uint64_t members;
};
constexpr uint64_t bit(int32_t c) { return uint64_t{1} << c; }
constexpr Group kGroups[] = {
    {E_JDAY_DDD, bit(C_DDD) | bit(C_J)},
    {E_YEAR_TWICE, bit(C_Y) | bit(C_YY) | bit(C_YYY) | bit(C_YYYY) | bit(C_SYYYY) | bit(C_NYYYY) |
                       bit(C_Y_YYY) | bit(C_SY_YYY)},
    {E_HOUR_TWICE, bit(C_HH) | bit(C_HH24)},
    {E_MERIDIAN_TWICE, bit(C_AMPM) | bit(C_AMPM_DOTS)},
    {E_ERA_TWICE, bit(C_ADBC) | bit(C_ADBC_DOTS)},
    {E_MONTH_TWICE, bit(C_MONTH) | bit(C_MON) | bit(C_MM) | bit(C_RM)},
    {E_WEEKDAY_TWICE, bit(C_DAY) | bit(C_DY) | bit(C_D)},
};
constexpr uint64_t kNotInput = bit(C_CC) | bit(C_SCC) | bit(C_I) | bit(C_IY) | bit(C_IYY) |
                               bit(C_IYYY) | bit(C_YEAR) | bit(C_SYEAR) | bit(C_Q) | bit(C_IW) |
                               bit(C_WW) | bit(C_W);
constexpr uint64_t kMeridian = bit(C_AMPM) | bit(C_AMPM_DOTS);
constexpr uint64_t kEra = bit(C_ADBC) | bit(C_ADBC_DOTS);
constexpr uint64_t kSigned = bit(C_SYYYY) | bit(C_NYYYY) | bit(C_SY_YYY);

int32_t input_check(uint64_t *seen, int32_t code) {
  if (code >= 46 || code == C_FM || code == C_FX) return 0;
  if (kNotInput & bit(code)) return E_NOT_INPUT;
  if (*seen & bit(code)) return E_DUP;
  *seen |= bit(code);
  for (const Group &g : kGroups)
    if ((g.members & bit(code)) && (*seen & g.members & ~bit(code))) return g.err;
  if ((*seen & kMeridian) && (*seen & bit(C_HH24))) return E_HH24_MERIDIAN;
  if ((*seen & kSigned) && (*seen & kEra)) return E_SIGNED_ERA;
  return 0;
}

}  // namespace

size_t compile(ldxctx *ctx, const char *fmt, size_t len, uint8_t *out, size_t outsz, bool input,
               int32_t *err, bool *territory) {
  *err = 0;
  ldxscan s;
  ldxsni(ctx, &s, fmt, len);
  size_t n = 0;
  // Header, terminator.
  if (outsz < 3) {
    *err = E_OUT_SMALL;
    return 0;
  }
  out[n++] = 0;
  out[n++] = static_cast<uint8_t>(kHdrBase | (s.ebcdic ? kHdrEbcdic : 0));
  uint64_t seen = 0;
  bool fixed = !s.ebcdic;
  for (;;) {
    int32_t code = scan_next(ctx, &s, err);
    if (code < 0) return 0;
    if (code == LDX_ITEM_END) break;
    if (code == LDX_ITEM_LITERAL) {
      if (s.litlen != 1 || is_alpha(s.lit[0]) || (s.lit[0] >= '0' && s.lit[0] <= '9') || s.lit[0] >= 0x80) fixed = false;
      const uint8_t *p = s.lit;
      size_t left = s.litlen;
      while (left) {
        size_t k = left > 127 ? 127 : left;
        if (n + 1 + k + 1 > outsz) {
          *err = E_OUT_SMALL;
          return 0;
        }
        out[n++] = static_cast<uint8_t>(0x80 | k);
        std::memcpy(out + n, p, k);
        n += k;
        p += k;
        left -= k;
      }
      continue;
    }
    if (input) {
      *err = input_check(&seen, code);
      if (*err) return 0;
    }
    if (n + 2 + 1 > outsz) {
      *err = E_OUT_SMALL;
      return 0;
    }
    out[n++] = static_cast<uint8_t>(code);
    out[n++] = static_cast<uint8_t>(s.flags);
    constexpr uint64_t special = (uint64_t{1} << C_SYYYY) | (uint64_t{1} << C_SY_YYY) |
                                 (uint64_t{1} << C_NYYYY) | (uint64_t{1} << C_Y_YYY) | (uint64_t{1} << C_SCC);
    if (attr(code).kind != Kind::Num || (special >> code & 1) ||
        (s.flags & (LDX_FLAG_TH | LDX_FLAG_SP | LDX_FLAG_FILL)))
      fixed = false;
  }
  if (fixed) out[1] = static_cast<uint8_t>(out[1] | kHdrFixed);
  if (territory) *territory = s.expanded;
  out[n++] = 0;
  return n;
}

}  // namespace ldx_internal

using namespace ldx_internal;

extern "C" {

KELAPI void ldxsni(ldxctx *ctx, ldxscan *scan, const char *fmt, size_t len) {
  std::memset(scan, 0, sizeof *scan);
  scan->text = reinterpret_cast<const uint8_t *>(fmt ? fmt : "");
  scan->len = fmt ? len : 0;
  scan->ebcdic = view(ctx).ebcdic ? 1 : 0;
}

KELAPI int32_t ldxsnf(ldxctx *ctx, ldxscan *scan) {
  int32_t err = 0;
  int32_t code = scan_next(ctx, scan, &err);
  if (code < 0) raise(ctx, err);
  return code;
}

KELAPI size_t ldxsti(ldxctx *ctx, const char *fmt, size_t len, uint8_t *out, size_t outsz) {
  int32_t err = 0;
  size_t n = compile(ctx, fmt, len, out, outsz, true, &err);
  if (err) raise(ctx, err);
  return n;
}

KELAPI size_t ldxstiu(ldxctx *ctx, const uint16_t *fmt, size_t nchars, uint8_t *out, size_t outsz) {
  // Code units outside ASCII can only stand in quoted text, carried as UTF-8.
  char buf[kModelLimit * 4];
  size_t n = 0;
  if (!utf16_to_utf8(fmt, fmt ? nchars : 0, buf, sizeof buf, &n)) {
    raise(ctx, E_MODEL_LONG);
    return 0;
  }
  return ldxsti(ctx, buf, n, out, outsz);
}

}  // extern "C"
