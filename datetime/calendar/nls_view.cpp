// The territory view of an NLS handle: everything territory-dependent that
// the date code reads (formats, names, words, first day of the week, calendar
// kind, character set) gathered in one record, so that the date code never
// talks to the language services directly. The null handle is American
// English; any other handle is a kelnls10 language environment (lxenv).
//
// A view is made the first time a (language, territory, character set) is
// seen and then kept for the life of the process: environments of kelnls10
// do not change, there are few of them, and keying by their contents rather
// than by the handle's address keeps a view valid after the global context
// that made the handle is gone. Views are published lock-free into a small
// fixed table.
//
// Encodings: the date writers and readers work on ASCII-compatible bytes.
// Texts of an ASCII-based set are kept as the set writes them (UTF-8 for
// AL32UTF8, one byte per character otherwise); the UTF-16 sets are served
// through UTF-8, which is what the date family's UTF-16 functions convert
// to; an EBCDIC set keeps its format models in EBCDIC (the scanner reads
// EBCDIC models) and its words in ASCII, translated on the way out.
#include <atomic>
#include <cstring>
#include <new>
#include <string_view>

#include "datetime/calendar/ldx_impl.h"
#include "lx.h"
#include "sl.h"
#include "sys/fault_impl.h"

namespace ldx_internal {

namespace {

constexpr ldx_territory_view kAmerican = {
    "DD-MON-RR",
    "fmDay, Month DD, YYYY",
    "fmMM/DD/YYYY",
    "HH:MI:SS AM",
    0,
    true,
    false,
    {"JANUARY", "FEBRUARY", "MARCH", "APRIL", "MAY", "JUNE", "JULY", "AUGUST", "SEPTEMBER",
     "OCTOBER", "NOVEMBER", "DECEMBER"},
    {"JAN", "FEB", "MAR", "APR", "MAY", "JUN", "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"},
    {"SUNDAY", "MONDAY", "TUESDAY", "WEDNESDAY", "THURSDAY", "FRIDAY", "SATURDAY"},
    {"SUN", "MON", "TUE", "WED", "THU", "FRI", "SAT"},
    "AM", "PM", "A.M.", "P.M.",
    "AD", "BC", "A.D.", "B.C.",
    {"ANNO DOMINI", "BEFORE CHRIST"},
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    false,
};

// ------------------------------------------------------------ calendar hooks

const lxenv *env_of(const ldxctx *ctx) { return ctx ? static_cast<const lxenv *>(ctx->nlshd) : nullptr; }

int32_t nls_add_months(ldxctx *ctx, ldxdate *out, const ldxdate *in, int32_t months) {
  int32_t y = in->year, m = in->month, d = in->day;
  int32_t r = lxeadm(env_of(ctx), &y, &m, &d, months);
  if (r & 0xFF) {
    *out = *in;
    set_ymd(out, y, m, d);
  }
  return r;
}

int32_t nls_last_day(ldxctx *ctx, ldxdate *out, const ldxdate *in) {
  int32_t y = in->year, m = in->month, d = in->day;
  int32_t r = lxeldd(env_of(ctx), &y, &m, &d);
  if (r & 0xFF) {
    *out = *in;
    set_ymd(out, y, m, d);
  }
  return r;
}

// The handle a context opened for itself is a global context of its own.
void release_global(void *hd) { lxlterm(static_cast<lxglo *>(hd)); }

bool data_changed(void *hd) { return lxhninfo(static_cast<const lxenv *>(hd), LX_TERR_CHANGED) == 1; }

// ------------------------------------------------------------ view records

// Upper case of the letters the writers and readers fold: ASCII and the
// Latin-1 range (as UTF-8 or as single bytes). Sharp s has no single
// upper-case letter and is kept.
void to_upper(char *s, size_t n, bool utf8) {
  auto *p = reinterpret_cast<uint8_t *>(s);
  for (size_t i = 0; i < n; ++i) {
    uint8_t c = p[i];
    if (c >= 'a' && c <= 'z') {
      p[i] = static_cast<uint8_t>(c - 32);
    } else if (utf8) {
      if (c == 0xC3 && i + 1 < n && p[i + 1] >= 0xA0 && p[i + 1] <= 0xBE && p[i + 1] != 0xB7)
        p[i + 1] = static_cast<uint8_t>(p[i + 1] - 0x20);
      if (c == 0xC3) ++i;
    } else if (c >= 0xE0 && c <= 0xFE && c != 0xF7) {
      p[i] = static_cast<uint8_t>(c - 0x20);
    }
  }
}

struct Record {
  ldx_territory_view v;
  char lang[32], terr[32];
  int32_t csid;
  char pool[4096];
  size_t used;
};

constexpr size_t kSlots = 64;
std::atomic<Record *> g_views[kSlots];

// Fetches text item `item` in the working encoding into the record's pool;
// the word items are upper-cased. Null when the item is missing or the pool
// is full.
const char *fetch(Record &r, const lxenv *env, int32_t kind, int32_t csid, int32_t item, size_t cap,
                  bool word) {
  char raw[512];
  int32_t n = lxhlinfo(env, item, raw, sizeof raw);
  if (n < 0 || static_cast<size_t>(n) >= sizeof raw) return nullptr;
  char conv[512];
  const char *s = raw;
  int64_t len = n;
  int32_t target = 0;
  if (kind == LX_CS_UTF16) target = LX_CSID_AL32UTF8;
  else if (kind == LX_CS_EBCDIC && word) target = LX_CSID_US7ASCII;
  if (target) {
    len = lxgcnv(conv, sizeof conv, target, raw, static_cast<size_t>(n), csid);
    if (len < 0) return nullptr;
    s = conv;
  }
  size_t k = static_cast<size_t>(len) < cap ? static_cast<size_t>(len) : cap;
  if (r.used + k + 1 > sizeof r.pool) return nullptr;
  char *d = r.pool + r.used;
  std::memcpy(d, s, k);
  d[k] = '\0';
  r.used += k + 1;
  if (word) to_upper(d, k, r.v.utf8);
  return d;
}

// Builds the view of env, or null when the handle does not give one.
Record *build(const lxenv *env, const char *lang, const char *terr, int32_t csid) {
  const int32_t kind = lxhninfo(env, LX_CHARSET_KIND);
  if (kind != LX_CS_ASCII && kind != LX_CS_EBCDIC && kind != LX_CS_UTF16) return nullptr;
  Record *r = SL_FAULT(SL_FAULT_DATE_VIEW) ? nullptr : new (std::nothrow) Record{};
  if (!r) return nullptr;
  std::strcpy(r->lang, lang);
  std::strcpy(r->terr, terr);
  r->csid = csid;
  ldx_territory_view &v = r->v;
  v.ebcdic = kind == LX_CS_EBCDIC;
  v.utf8 = kind == LX_CS_UTF16 || csid == LX_CSID_AL32UTF8;
  v.first_day = lxhninfo(env, LX_FIRST_DAY);
  if (v.first_day < 0 || v.first_day > 6) v.first_day = 0;
  v.gregorian = lxhninfo(env, LX_GREGORIAN) != 0;
  auto fmt = [&](int32_t item, size_t cap) { return fetch(*r, env, kind, csid, item, cap, false); };
  auto word = [&](int32_t item) { return fetch(*r, env, kind, csid, item, 100, true); };
  v.deffmt = fmt(LX_DEFAULT_DATE_FMT, 60);
  v.longdate = fmt(LX_LONG_DATE_FMT, 100);
  v.shortdate = fmt(LX_SHORT_DATE_FMT, 100);
  v.shorttime = fmt(LX_SHORT_TIME_FMT, 100);
  bool ok = true;
  for (int i = 0; i < 12; ++i) {
    ok &= (v.months[i] = word(LX_MONTH_NAME + i)) != nullptr;
    ok &= (v.mon_abbr[i] = word(LX_MONTH_ABBR + i)) != nullptr;
  }
  for (int i = 0; i < 7; ++i) {
    ok &= (v.days[i] = word(LX_DAY_NAME + i)) != nullptr;
    ok &= (v.day_abbr[i] = word(LX_DAY_ABBR + i)) != nullptr;
  }
  const char **words[] = {&v.am, &v.pm, &v.am_dots, &v.pm_dots, &v.ad, &v.bc, &v.ad_dots, &v.bc_dots,
                          &v.era_full[0], &v.era_full[1]};
  const int32_t items[] = {LX_AM, LX_PM, LX_AM_DOTS, LX_PM_DOTS, LX_AD, LX_BC, LX_AD_DOTS, LX_BC_DOTS,
                           LX_AD_NAME, LX_BC_NAME};
  for (size_t i = 0; i < sizeof items / sizeof items[0]; ++i) ok &= (*words[i] = word(items[i])) != nullptr;
  if (!ok) {
    delete r;
    return nullptr;
  }
  if (!v.gregorian) {
    v.eadm = nls_add_months;
    v.eldd = nls_last_day;
  }
  v.release = release_global;
  v.changed = data_changed;
  return r;
}

bool same(const Record *r, const char *lang, const char *terr, int32_t csid) {
  return r->csid == csid && std::strcmp(r->lang, lang) == 0 && std::strcmp(r->terr, terr) == 0;
}

}  // namespace

const ldx_territory_view &default_view() { return kAmerican; }

const ldx_territory_view *view_for_handle(void *nlshd) {
  if (nlshd == nullptr) return &kAmerican;
  const lxenv *env = static_cast<const lxenv *>(nlshd);
  char lang[32], terr[32];
  int32_t ln = lxhlinfo(env, LX_LANGUAGE_NAME, lang, sizeof lang);
  int32_t tn = lxhlinfo(env, LX_TERRITORY_NAME, terr, sizeof terr);
  int32_t csid = lxhninfo(env, LX_CHARSET_ID);
  if (ln < 0 || tn < 0 || csid < 0 || ln >= 32 || tn >= 32) return nullptr;
  for (size_t i = 0; i < kSlots; ++i) {
    Record *r = g_views[i].load(std::memory_order_acquire);
    if (!r) break;
    if (same(r, lang, terr, csid)) return &r->v;
  }
  Record *mine = build(env, lang, terr, csid);
  if (!mine) return nullptr;
  for (size_t i = 0; i < kSlots; ++i) {
    Record *expected = nullptr;
    if (g_views[i].compare_exchange_strong(expected, mine, std::memory_order_acq_rel)) return &mine->v;
    if (same(expected, lang, terr, csid)) {
      delete mine;  // another thread published the same view first
      return &expected->v;
    }
  }
  // The table is full (more distinct environments than any installation
  // has): the view is still valid, only not shared.
  return &mine->v;
}

}  // namespace ldx_internal
