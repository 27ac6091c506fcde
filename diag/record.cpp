// The text form of a diagnostic record: formatting, escaping, parsing and
// the time stamp.
//
// A record is one line: the marker "ldm1", then TAB-separated "tag=value"
// fields. Values never hold a TAB, line feed or other control byte, because
// texts escape them; a reader can therefore split a file on line feeds and
// a line on TABs without looking at the texts. Time stamps are written as
// UTC calendar time with microseconds when their year has four digits, and
// as "@" and the raw microsecond count otherwise, so that any 64-bit time
// reads back unchanged.
//
// Sections: calendar conversion; escaping; ldmfmt; ldmparse.
#include <string_view>

#include "diag/diag_impl.h"

namespace ldm_internal {
namespace {

using sv = std::string_view;

// ---------------------------------------------------- calendar conversion
// Days since 1970-01-01 of a proleptic Gregorian date, and back.
int64_t days_from_civil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2;
  int64_t era = (y >= 0 ? y : y - 399) / 400;
  int64_t yoe = y - era * 400;
  int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void civil_from_days(int64_t z, int64_t *y, int64_t *m, int64_t *d) {
  z += 719468;
  int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  int64_t doe = z - era * 146097;
  int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  int64_t mp = (5 * doy + 2) / 153;
  *d = doy - (153 * mp + 2) / 5 + 1;
  *m = mp < 10 ? mp + 3 : mp - 9;
  *y = yoe + era * 400 + (*m <= 2);
}

constexpr int64_t kDayUs = 86400000000LL;

struct Sink {
  char *buf;
  size_t cap;
  size_t n = 0;
  void put(char c) {
    if (n < cap) buf[n] = c;
    n++;
  }
  void put(sv s) {
    for (char c : s) put(c);
  }
  // v in decimal, zero-padded to `width` digits (at most 20).
  void num(uint64_t v, int width = 0) {
    char d[20];
    size_t k = 0;
    do {
      d[k++] = static_cast<char>('0' + v % 10);
      v /= 10;
    } while (v > 0);
    while (k < sizeof d && static_cast<int>(k) < width) d[k++] = '0';
    for (size_t i = k; i > 0; i--) put(d[i - 1]);
  }
  void snum(int64_t v) {
    if (v < 0) {
      put('-');
      num(0 - static_cast<uint64_t>(v));
    } else {
      num(static_cast<uint64_t>(v));
    }
  }
};

void put_time(Sink &s, int64_t us) {
  // Floor division keeps times before 1970 on the right day.
  int64_t days = us / kDayUs, rem = us % kDayUs;
  if (rem < 0) {
    rem += kDayUs;
    days--;
  }
  int64_t y, m, d;
  civil_from_days(days, &y, &m, &d);
  if (y < 0 || y > 9999) {
    s.put('@');
    s.snum(us);
    return;
  }
  int64_t secs = rem / 1000000, frac = rem % 1000000;
  s.num(static_cast<uint64_t>(y), 4);
  s.put('-');
  s.num(static_cast<uint64_t>(m), 2);
  s.put('-');
  s.num(static_cast<uint64_t>(d), 2);
  s.put('T');
  s.num(static_cast<uint64_t>(secs / 3600), 2);
  s.put(':');
  s.num(static_cast<uint64_t>(secs / 60 % 60), 2);
  s.put(':');
  s.num(static_cast<uint64_t>(secs % 60), 2);
  s.put('.');
  s.num(static_cast<uint64_t>(frac), 6);
  s.put('Z');
}

bool digits(sv s, int64_t *v) {
  if (s.empty() || s.size() > 18) return false;
  int64_t x = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    x = x * 10 + (c - '0');
  }
  *v = x;
  return true;
}

bool unsigned_num(sv s, uint64_t *v) {
  if (s.empty() || s.size() > 20) return false;
  uint64_t x = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
    uint64_t nx = x * 10 + static_cast<uint64_t>(c - '0');
    if (nx / 10 != x) return false;
    x = nx;
  }
  *v = x;
  return true;
}

bool signed_num(sv s, int64_t *v) {
  bool neg = !s.empty() && s[0] == '-';
  if (neg) s.remove_prefix(1);
  uint64_t x;
  if (s.size() > 19 || !unsigned_num(s, &x)) return false;
  uint64_t lim = neg ? (uint64_t{1} << 63) : (uint64_t{1} << 63) - 1;
  if (x > lim) return false;
  *v = neg ? static_cast<int64_t>(0 - x) : static_cast<int64_t>(x);
  return true;
}

bool parse_time(sv s, int64_t *us) {
  if (!s.empty() && s[0] == '@') return signed_num(s.substr(1), us);
  // YYYY-MM-DDTHH:MM:SS.ffffffZ
  if (s.size() != 27 || s[4] != '-' || s[7] != '-' || s[10] != 'T' || s[13] != ':' || s[16] != ':' ||
      s[19] != '.' || s[26] != 'Z')
    return false;
  int64_t y, mo, d, h, mi, se, f;
  if (!digits(s.substr(0, 4), &y) || !digits(s.substr(5, 2), &mo) || !digits(s.substr(8, 2), &d) ||
      !digits(s.substr(11, 2), &h) || !digits(s.substr(14, 2), &mi) || !digits(s.substr(17, 2), &se) ||
      !digits(s.substr(20, 6), &f))
    return false;
  if (mo < 1 || mo > 12 || d < 1 || h > 23 || mi > 59 || se > 59) return false;
  static const int kMonth[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  if (d > kMonth[mo - 1] + (mo == 2 && leap)) return false;
  *us = days_from_civil(y, mo, d) * kDayUs + ((h * 60 + mi) * 60 + se) * 1000000 + f;
  return true;
}

// ---------------------------------------------------------------- escaping
void put_text(Sink &s, const char *p, size_t n) {
  static const char hex[] = "0123456789abcdef";
  for (size_t i = 0; i < n; i++) {
    auto c = static_cast<unsigned char>(p[i]);
    if (c == '\\') {
      s.put("\\\\");
    } else if (c == '\t') {
      s.put("\\t");
    } else if (c == '\n') {
      s.put("\\n");
    } else if (c == '\r') {
      s.put("\\r");
    } else if (c < 32 || c == 127) {
      s.put("\\x");
      s.put(hex[c >> 4]);
      s.put(hex[c & 15]);
    } else {
      s.put(static_cast<char>(c));
    }
  }
}

int hexv(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Unescapes v into out; returns the length, or -1 for a bad escape or a raw
// control byte.
int64_t unescape(sv v, char *out) {
  size_t o = 0;
  for (size_t i = 0; i < v.size(); i++) {
    auto c = static_cast<unsigned char>(v[i]);
    if (c < 32 || c == 127) return -1;
    if (c != '\\') {
      out[o++] = static_cast<char>(c);
      continue;
    }
    if (++i >= v.size()) return -1;
    switch (v[i]) {
      case '\\': out[o++] = '\\'; break;
      case 't': out[o++] = '\t'; break;
      case 'n': out[o++] = '\n'; break;
      case 'r': out[o++] = '\r'; break;
      case 'x': {
        if (i + 2 >= v.size()) return -1;
        int h = hexv(v[i + 1]), l = hexv(v[i + 2]);
        if (h < 0 || l < 0) return -1;
        out[o++] = static_cast<char>(h * 16 + l);
        i += 2;
        break;
      }
      default: return -1;
    }
  }
  return static_cast<int64_t>(o);
}

}  // namespace
}  // namespace ldm_internal

using namespace ldm_internal;

extern "C" {

KELAPI size_t ldmfmt(const ldmrec *r, char *buf, size_t bufl) {
  if (r == nullptr) return 0;
  Sink s{buf, buf == nullptr ? 0 : bufl};
  s.put("ldm1\tts=");
  put_time(s, r->time_us);
  s.put("\tsev=");
  s.snum(r->severity);
  s.put("\tpid=");
  s.snum(r->pid);
  s.put("\ttid=");
  s.num(r->tid);
  struct {
    const char *tag;
    const char *p;
    size_t n;
  } texts[] = {{"\tinst=", r->instance, r->instancel}, {"\thost=", r->host, r->hostl},
               {"\tcomp=", r->component, r->componentl}, {"\tmsg=", r->message, r->messagel},
               {"\tdet=", r->detail, r->detaill}};
  for (auto &t : texts) {
    if (t.p == nullptr) continue;
    s.put(t.tag);
    put_text(s, t.p, t.n);
  }
  s.put('\n');
  return s.n;
}

KELAPI int32_t ldmparse(const char *line, size_t len, char *scratch, ldmrec *r) {
  if (line == nullptr || r == nullptr || (scratch == nullptr && len > 0)) return -1;
  if (parse_line(line, len, scratch, r) == 0) return 0;
  *r = ldmrec{};
  return -1;
}

}  // extern "C"

namespace ldm_internal {

int32_t parse_line(const char *line, size_t len, char *scratch, ldmrec *r) {
  *r = ldmrec{};
  sv s(line, len);
  if (!s.empty() && s.back() == '\n') s.remove_suffix(1);
  size_t tab = s.find('\t');
  if (s.substr(0, tab) != "ldm1") return -1;
  bool have_ts = false, have_sev = false, have_pid = false, have_tid = false;
  size_t used = 0;
  while (tab != sv::npos) {
    s.remove_prefix(tab + 1);
    tab = s.find('\t');
    sv field = s.substr(0, tab);
    size_t eq = field.find('=');
    if (eq == sv::npos) return -1;
    sv tag = field.substr(0, eq), val = field.substr(eq + 1);
    const char **tp = nullptr;
    size_t *tl = nullptr;
    if (tag == "ts") {
      if (have_ts || !parse_time(val, &r->time_us)) return -1;
      have_ts = true;
    } else if (tag == "sev") {
      int64_t v;
      if (have_sev || !digits(val, &v) || v < 1 || v > 99) return -1;
      r->severity = static_cast<int32_t>(v);
      have_sev = true;
    } else if (tag == "pid") {
      if (have_pid || !signed_num(val, &r->pid)) return -1;
      have_pid = true;
    } else if (tag == "tid") {
      if (have_tid || !unsigned_num(val, &r->tid)) return -1;
      have_tid = true;
    } else if (tag == "inst") {
      tp = &r->instance, tl = &r->instancel;
    } else if (tag == "host") {
      tp = &r->host, tl = &r->hostl;
    } else if (tag == "comp") {
      tp = &r->component, tl = &r->componentl;
    } else if (tag == "msg") {
      tp = &r->message, tl = &r->messagel;
    } else if (tag == "det") {
      tp = &r->detail, tl = &r->detaill;
    } else {
      continue;  // a tag of a later version
    }
    if (tp != nullptr) {
      if (*tp != nullptr) return -1;
      int64_t n = unescape(val, scratch + used);
      if (n < 0) return -1;
      *tp = scratch + used;
      *tl = static_cast<size_t>(n);
      used += static_cast<size_t>(n);
    }
  }
  return have_ts && have_sev ? 0 : -1;
}

}  // namespace ldm_internal
