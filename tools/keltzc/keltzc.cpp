// keltzc - compiles the system's IANA time-zone data into the library's
// time-zone image (timezlrg.dat).
//
// Input: the compiled TZif files of a zoneinfo directory (version 2 or later:
// 64-bit data and the POSIX TZ footer), its tzdata.zi for the list of zones
// and links and the data release, and the committed list of region IDs.
//
// Region IDs are kept in users' data, so they never change: the ID list
// ("ID name" lines) is read first, names it does not know get new IDs (a new
// zone takes the lowest free directory slot; a new link joins its target's
// slot as the next alias, or takes a slot of its own when that one is full),
// and --write-ids writes the list back with the new lines added, so that a
// later release finds them taken.
//
// Each slot's history is the TZif file of its first name that exists: the
// state before the first change (the first standard-time type, as readers of
// the format take it), the changes the file lists, and after them those its
// footer rule makes. The image holds a span of that history per slot, its
// first record being the state at the span's start.
//
// Coverage. Every slot covers the years from --first-year (1970 by default,
// from when on the data promises that the clocks of one zone agree) to
// --last-year, by default the latest year that still fits the image's
// 524288 bytes. Slots whose spans hold the same records share one range of
// them, and a range whose changes end a longer range is read from that
// range's end. The room left then carries slots further back where it fits:
// a group of slots sharing a range back to where their histories part, a slot
// alone to the start of its history. The compiler reports the years covered, and
// fails, naming the region and the year that do not fit, when asked for
// years that cannot fit.
//
// Sections: command line; tzdata.zi and the ID list; TZif reading; footer
// rules; histories; spans, sharing and size; image writing; main.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "datetime/calendar/calendar_impl.h"
#include "datetime/timezone/image_impl.h"
#include "lfi.h"
#include "ltz.h"

namespace {

using namespace ltz_internal;
namespace cal = ldx_internal;

constexpr int kDefaultFirstYear = 1970;
constexpr int kMaxYear = 9999;

[[noreturn]] void die(const std::string &msg) {
  std::fprintf(stderr, "keltzc: %s\n", msg.c_str());
  std::exit(1);
}

// Seconds of the calendar kernel (day number * 86400 + second of day) at
// the start of year y.
int64_t year_start(int y) { return cal::to_seconds(y, 1, 1, 0, 0, 0); }

int year_of(int64_t s) {
  cal::Civil c{};
  return cal::from_seconds(s, &c) ? c.year : s < 0 ? -4712 : kMaxYear;
}

// ------------------------------------------------------------ command line

struct Options {
  std::string zoneinfo = "/usr/share/zoneinfo";
  std::string ids;
  std::string write_ids;
  std::string out;
  int first_year = kDefaultFirstYear;
  std::optional<int> last_year;  // none: as far as fits
  std::optional<int> content_version;
  bool quiet = false;
};

void usage(FILE *f) {
  std::fprintf(f,
               "usage: keltzc --ids FILE -o IMAGE [options]\n"
               "  --zoneinfo DIR       compiled IANA zoneinfo (default /usr/share/zoneinfo)\n"
               "  --ids FILE           list of region IDs (\"ID name\" lines; may be missing)\n"
               "  --write-ids FILE     write the list with the IDs given to new names\n"
               "  --first-year Y       first year every region covers (default %d)\n"
               "  --last-year Y        last year every region covers (default: as far as fits)\n"
               "  --content-version N  content version (default: from the tzdata release)\n"
               "  -o IMAGE             the image to write\n"
               "  -q                   print nothing but errors\n",
               kDefaultFirstYear);
}

Options parse_args(int argc, char **argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto next = [&]() -> std::string {
      if (i + 1 >= argc) die("option " + a + " needs a value");
      return argv[++i];
    };
    if (a == "--zoneinfo")
      o.zoneinfo = next();
    else if (a == "--ids")
      o.ids = next();
    else if (a == "--write-ids")
      o.write_ids = next();
    else if (a == "--first-year")
      o.first_year = std::atoi(next().c_str());
    else if (a == "--last-year")
      o.last_year = std::atoi(next().c_str());
    else if (a == "--content-version")
      o.content_version = std::atoi(next().c_str());
    else if (a == "-o")
      o.out = next();
    else if (a == "-q")
      o.quiet = true;
    else if (a == "-h" || a == "--help") {
      usage(stdout);
      std::exit(0);
    } else {
      usage(stderr);
      die("unknown option " + a);
    }
  }
  if (o.out.empty() && o.write_ids.empty()) {
    usage(stderr);
    die("nothing to do: give -o and/or --write-ids");
  }
  if (o.first_year < 1800 || o.first_year > kMaxYear || (o.last_year && (*o.last_year < o.first_year ||
                                                                           *o.last_year > kMaxYear)))
    die("the covered years must satisfy 1800 <= first <= last <= 9999");
  return o;
}

// ----------------------------------------------- tzdata.zi and the ID list

struct Tzdata {
  std::string version;                                     // e.g. "2025b"
  std::vector<std::string> zones;                          // in file order
  std::vector<std::pair<std::string, std::string>> links;  // (target, link name)
};

Tzdata read_tzdata(const std::string &dir) {
  std::ifstream in(dir + "/tzdata.zi");
  if (!in) die("cannot read " + dir + "/tzdata.zi (the list of zones and links)");
  Tzdata t;
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream s(line);
    std::string kind;
    s >> kind;
    if (kind == "#") {
      std::string word, v;
      s >> word >> v;
      if (word == "version") t.version = v;
    } else if (kind == "Z") {
      std::string name;
      s >> name;
      t.zones.push_back(name);
    } else if (kind == "L") {
      std::string target, name;
      s >> target >> name;
      t.links.emplace_back(target, name);
    }
  }
  if (t.zones.empty()) die(dir + "/tzdata.zi lists no zones");
  return t;
}

// Slot s holds names[s][k] with ID s | k << 9.
struct IdList {
  std::vector<std::vector<std::string>> names = std::vector<std::vector<std::string>>(kSlots);
  std::map<std::string, uint16_t> by_name;
  size_t added = 0;

  bool set(uint16_t id, const std::string &name) {
    uint32_t s = id & (kSlots - 1), k = id >> 9;
    auto &list = names[s];
    if (list.size() <= k) list.resize(k + 1);
    if (!list[k].empty() || by_name.count(name)) return false;
    list[k] = name;
    by_name[name] = id;
    return true;
  }
  void add_zone(const std::string &name) {
    uint32_t s = 1;
    while (s < kSlots && !names[s].empty()) ++s;
    if (s == kSlots) die("no free region slot for " + name);
    set(static_cast<uint16_t>(s), name);
    ++added;
  }
  void add_link(const std::string &target, const std::string &name) {
    auto it = by_name.find(target);
    if (it != by_name.end()) {
      uint32_t s = it->second & (kSlots - 1);
      if (names[s].size() < kMaxNamesPerSlot) {
        set(static_cast<uint16_t>(s | (names[s].size() << 9)), name);
        ++added;
        return;
      }
    }
    add_zone(name);  // a slot of its own, with the target's history read through the link
  }
};

IdList read_ids(const std::string &path) {
  IdList t;
  if (path.empty()) return t;
  std::ifstream in(path);
  if (!in) return t;  // a first run starts from nothing
  std::string line;
  int lineno = 0;
  while (std::getline(in, line)) {
    ++lineno;
    if (line.empty() || line[0] == '#') continue;
    std::istringstream s(line);
    long id = 0;
    std::string name;
    if (!(s >> id >> name) || id < 1 || id > LTZ_MAX_REGION || (id & (kSlots - 1)) == 0)
      die(path + ":" + std::to_string(lineno) + ": expected \"ID name\" with ID 1 ... 8191 outside slot 0");
    if (!t.set(static_cast<uint16_t>(id), name))
      die(path + ":" + std::to_string(lineno) + ": ID or name given twice");
  }
  return t;
}

// Writes the list (through a temporary file, so that a reader never sees
// half of it).
void write_ids(const std::string &path, const IdList &t, const std::string &version) {
  std::vector<std::pair<uint16_t, std::string>> all;
  for (const auto &[name, id] : t.by_name) all.emplace_back(id, name);
  std::sort(all.begin(), all.end(), [](const auto &a, const auto &b) {
    uint32_t sa = a.first & (kSlots - 1), sb = b.first & (kSlots - 1);
    return sa != sb ? sa < sb : a.first < b.first;
  });
  const std::string tmp = path + ".tmp";
  {
    std::ofstream out(tmp);
    if (!out) die("cannot write " + tmp);
    out << "# Region IDs of the time-zone image: \"ID name\". IDs are stored in users' data:\n"
           "# never change or reuse a line; keltzc --write-ids only adds lines for new names.\n"
           "# ID = slot | alias << 9 (slot 1 ... 511, alias 0 = the slot's primary name).\n"
           "# Last extended from tzdata "
        << version << ".\n";
    for (const auto &[id, name] : all) out << id << ' ' << name << '\n';
    if (!out) die("cannot write " + tmp);
  }
  // slfrename replaces an existing file on Windows too, where rename() does not.
  if (slfrename(tmp.c_str(), path.c_str()) != 0) die("cannot write " + path);
}

// ------------------------------------------------------------- TZif reading

struct LocalType {
  int32_t utoff = 0;
  bool isdst = false;
  std::string abbr;
  bool operator==(const LocalType &o) const { return utoff == o.utoff && isdst == o.isdst && abbr == o.abbr; }
  bool operator<(const LocalType &o) const {
    return utoff != o.utoff ? utoff < o.utoff : isdst != o.isdst ? isdst < o.isdst : abbr < o.abbr;
  }
};

struct Tzif {
  std::vector<int64_t> times;  // Unix seconds
  std::vector<uint8_t> idx;
  std::vector<LocalType> types;
  std::string footer;
};

int64_t be(const std::string &b, size_t at, int n) {
  if (at + n > b.size()) die("truncated TZif data");
  uint64_t v = 0;
  for (int i = 0; i < n; ++i) v = (v << 8) | static_cast<uint8_t>(b[at + i]);
  if (n == 4) return static_cast<int32_t>(static_cast<uint32_t>(v));
  return static_cast<int64_t>(v);
}

std::optional<Tzif> read_tzif(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (b.size() < 44 || b.compare(0, 4, "TZif") != 0) die(path + ": not a TZif file");
  if (b[4] < '2') die(path + ": TZif version 1 has no 64-bit data; version 2 or later is needed");
  auto counts = [&](size_t at, int64_t c[6]) {
    for (int i = 0; i < 6; ++i) c[i] = be(b, at + 20 + 4 * i, 4);
    for (int i = 0; i < 6; ++i)
      if (c[i] < 0) die(path + ": negative count");
  };
  int64_t c[6];  // isutcnt, isstdcnt, leapcnt, timecnt, typecnt, charcnt
  counts(0, c);
  size_t at = 44 + c[3] * 5 + c[4] * 6 + c[5] + c[2] * 8 + c[1] + c[0];
  if (at + 44 > b.size() || b.compare(at, 4, "TZif") != 0) die(path + ": no second header");
  counts(at, c);
  const int64_t isut = c[0], isstd = c[1], leap = c[2], timecnt = c[3], typecnt = c[4], charcnt = c[5];
  if (typecnt == 0) die(path + ": no local-time types");
  Tzif z;
  size_t p = at + 44;
  for (int64_t i = 0; i < timecnt; ++i) z.times.push_back(be(b, p + 8 * i, 8));
  p += 8 * timecnt;
  for (int64_t i = 0; i < timecnt; ++i) {
    auto t = static_cast<uint8_t>(be(b, p + i, 1));
    if (t >= typecnt) die(path + ": transition type out of range");
    z.idx.push_back(t);
  }
  p += timecnt;
  size_t chars = p + 6 * typecnt;
  if (chars + charcnt > b.size()) die(path + ": truncated");
  for (int64_t i = 0; i < typecnt; ++i) {
    LocalType t;
    t.utoff = static_cast<int32_t>(be(b, p + 6 * i, 4));
    t.isdst = be(b, p + 6 * i + 4, 1) != 0;
    auto ai = static_cast<size_t>(be(b, p + 6 * i + 5, 1));
    if (ai >= static_cast<size_t>(charcnt)) die(path + ": abbreviation index out of range");
    t.abbr = std::string(b.c_str() + chars + ai);
    if (t.abbr.size() > static_cast<size_t>(charcnt) - ai) die(path + ": abbreviation not terminated");
    z.types.push_back(t);
  }
  p = chars + charcnt + leap * 12 + isstd + isut;
  if (leap != 0) die(path + ": leap-second data (a \"right/\" file) is not a civil time zone");
  if (p < b.size() && b[p] == '\n') {
    size_t e = b.find('\n', p + 1);
    if (e != std::string::npos) z.footer = b.substr(p + 1, e - p - 1);
  }
  return z;
}

// ------------------------------------------------------------ footer rules
// The POSIX TZ string: std offset [dst [offset] [,start[/time],end[/time]]].

struct Rule {
  int kind = 0;  // 'J' Julian day 1..365, 'D' zero-based day, 'M' month.week.weekday
  int a = 0, b = 0, c = 0;
  int32_t time = 7200;
};

struct PosixTz {
  LocalType std_type, dst_type;
  bool has_dst = false;
  Rule start, end;
};

class TzParser {
 public:
  explicit TzParser(const std::string &s) : s_(s) {}
  bool parse(PosixTz &out) {
    if (!name(out.std_type.abbr) || !offset(out.std_type.utoff)) return false;
    out.std_type.utoff = -out.std_type.utoff;
    if (at_end()) return true;
    out.has_dst = true;
    out.dst_type.isdst = true;
    if (!name(out.dst_type.abbr)) return false;
    out.dst_type.utoff = out.std_type.utoff + 3600;
    if (!at_end() && peek() != ',') {
      int32_t o = 0;
      if (!offset(o)) return false;
      out.dst_type.utoff = -o;
    }
    if (at_end()) {  // no rule: the historical US default
      out.start = {'M', 3, 2, 0, 7200};
      out.end = {'M', 11, 1, 0, 7200};
      return true;
    }
    return eat(',') && rule(out.start) && eat(',') && rule(out.end) && at_end();
  }

 private:
  bool at_end() const { return i_ >= s_.size(); }
  char peek() const { return at_end() ? '\0' : s_[i_]; }
  bool eat(char c) {
    if (peek() != c) return false;
    ++i_;
    return true;
  }
  bool name(std::string &out) {
    if (eat('<')) {
      size_t e = s_.find('>', i_);
      if (e == std::string::npos) return false;
      out = s_.substr(i_, e - i_);
      i_ = e + 1;
      return !out.empty();
    }
    size_t b = i_;
    while (!at_end() && std::isalpha(static_cast<unsigned char>(peek()))) ++i_;
    out = s_.substr(b, i_ - b);
    return out.size() >= 3;
  }
  bool number(int &v) {
    if (!std::isdigit(static_cast<unsigned char>(peek()))) return false;
    v = 0;
    while (std::isdigit(static_cast<unsigned char>(peek()))) v = v * 10 + (s_[i_++] - '0');
    return true;
  }
  // [+-]hh[:mm[:ss]] in seconds (hours up to 167 for rule times).
  bool offset(int32_t &out) {
    int sign = 1;
    if (eat('-'))
      sign = -1;
    else
      eat('+');
    int h = 0, m = 0, sec = 0;
    if (!number(h)) return false;
    if (eat(':')) {
      if (!number(m)) return false;
      if (eat(':') && !number(sec)) return false;
    }
    out = sign * (h * 3600 + m * 60 + sec);
    return true;
  }
  bool rule(Rule &r) {
    if (eat('J')) {
      r.kind = 'J';
      if (!number(r.a)) return false;
    } else if (eat('M')) {
      r.kind = 'M';
      if (!number(r.a) || !eat('.') || !number(r.b) || !eat('.') || !number(r.c)) return false;
    } else {
      r.kind = 'D';
      if (!number(r.a)) return false;
    }
    r.time = 7200;
    if (eat('/')) return offset(r.time);
    return true;
  }
  const std::string &s_;
  size_t i_ = 0;
};

// Local seconds (kernel seconds on the clock in force) at which rule r fires
// in year y.
int64_t rule_local(const Rule &r, int y) {
  int64_t day = 0;
  const int32_t jan1 = cal::ctj(y, 1, 1);
  if (r.kind == 'J') {
    day = jan1 + r.a - 1 + (cal::is_leap(y) && r.a >= 60 ? 1 : 0);
  } else if (r.kind == 'D') {
    day = jan1 + r.a;
  } else {
    const int32_t first = cal::ctj(y, r.a, 1);
    const int wd = cal::dow(first, 0) - 1;  // 0 = Sunday
    int64_t d = first + ((r.c - wd) % 7 + 7) % 7 + 7 * (r.b - 1);
    while (d >= first + cal::days_in_month(y, r.a)) d -= 7;
    day = d;
  }
  return day * cal::kDaySecs + r.time;
}

// ------------------------------------------------------------- histories

// Local-time types of every slot, numbered once.
struct Types {
  std::vector<LocalType> list;
  std::map<LocalType, uint16_t> ids;
  uint16_t id(const LocalType &t) {
    auto it = ids.find(t);
    if (it != ids.end()) return it->second;
    if (list.size() >= 0xFFFF) die("too many local-time types");
    auto n = static_cast<uint16_t>(list.size());
    list.push_back(t);
    ids.emplace(t, n);
    return n;
  }
};

struct Change {
  int64_t at;     // kernel seconds; kBefore for the state before any change
  uint16_t type;  // in Types
  bool operator==(const Change &o) const { return at == o.at && type == o.type; }
  bool operator<(const Change &o) const { return at != o.at ? at < o.at : type < o.type; }
};
constexpr int64_t kBefore = INT64_MIN;

// A slot's whole history up to the end of year `last`, consecutive equal
// states merged: element 0 is the state before the first change.
std::vector<Change> history(const Tzif &z, const std::string &path, int last, Types &types) {
  std::vector<Change> all;
  // Before the first change: the first standard-time type, else type 0.
  size_t before = 0;
  while (before < z.types.size() && z.types[before].isdst) ++before;
  if (before == z.types.size()) before = 0;
  all.push_back({kBefore, types.id(z.types[before])});
  for (size_t i = 0; i < z.times.size(); ++i)
    all.push_back({z.times[i] + cal::kUnixEpochSecs, types.id(z.types[z.idx[i]])});
  if (!z.footer.empty()) {
    PosixTz tz;
    if (!TzParser(z.footer).parse(tz)) die(path + ": cannot read the TZ rule \"" + z.footer + "\"");
    const int64_t after = all.back().at;
    if (!tz.has_dst) {
      if (z.times.empty()) all.front().type = types.id(tz.std_type);
    } else {
      const uint16_t std_id = types.id(tz.std_type), dst_id = types.id(tz.dst_type);
      for (int y = z.times.empty() ? 1800 : year_of(after); y <= last; ++y) {
        // The start fires on standard time, the end on daylight time.
        Change two[2] = {{rule_local(tz.start, y) - tz.std_type.utoff, dst_id},
                         {rule_local(tz.end, y) - tz.dst_type.utoff, std_id}};
        if (two[1].at < two[0].at) std::swap(two[0], two[1]);
        for (const auto &c : two)
          if (c.at > after) all.push_back(c);
      }
    }
  }
  const int64_t end = year_start(last + 1);
  std::vector<Change> out;
  for (const auto &c : all) {
    if (c.at >= end) break;
    if (out.empty() || c.type != out.back().type) out.push_back(c);
  }
  return out;
}

// The records of the span [from, end) of a history: the state at `from`,
// then every change before `end`. The first record's instant is the span's
// start (for a whole history, from == kBefore, the start of the year of its
// first change).
std::vector<Change> span(const std::vector<Change> &h, int64_t from, int64_t end) {
  auto first = std::upper_bound(h.begin() + 1, h.end(), from, [](int64_t t, const Change &c) { return t < c.at; });
  auto last = std::lower_bound(first, h.end(), end, [](const Change &c, int64_t t) { return c.at < t; });
  int64_t start = from;
  if (from == kBefore) start = h.size() > 1 ? year_start(year_of(h[1].at)) : year_start(kDefaultFirstYear);
  std::vector<Change> out{{start, (first - 1)->type}};
  out.insert(out.end(), first, last);
  return out;
}

// The earliest instant from which every history of `hs` agrees with the
// others up to `from` (kBefore when they agree throughout).
int64_t agree_since(const std::vector<const std::vector<Change> *> &hs, int64_t from) {
  std::vector<int64_t> points;
  for (const auto *h : hs)
    for (const auto &c : *h)
      if (c.at != kBefore && c.at < from) points.push_back(c.at);
  std::sort(points.begin(), points.end(), std::greater<>());
  points.erase(std::unique(points.begin(), points.end()), points.end());
  auto state = [](const std::vector<Change> &h, int64_t t) {
    uint16_t s = h.front().type;
    for (const auto &c : h) {
      if (c.at > t) break;
      s = c.type;
    }
    return s;
  };
  int64_t since = from;
  for (size_t k = 0; k <= points.size(); ++k) {
    // The stretch before `since` back to the next point (or to the start).
    int64_t t = k < points.size() ? points[k] : kBefore;
    for (const auto *h : hs)
      if (state(*h, t) != state(*hs.front(), t)) return since;
    since = t;
  }
  return kBefore;
}

// ------------------------------------------------------ spans, sharing and size

struct Slot {
  std::vector<std::string> names;  // k-th = alias k
  std::vector<Change> history;
};

// A range of records shared by the slots that hold the same span.
struct Range {
  std::vector<uint32_t> slots;
  std::vector<Change> records;
  bool extended = false;  // carried back before the first covered year
  int host = -1;          // held as the last records of that range instead
};

struct Plan {
  std::vector<Range> ranges;
  size_t bytes = 0;
  size_t records = 0;
  size_t types = 0;
};

// Types of the image: (offset, abbreviation); the daylight flag is per record.
using ImageType = std::pair<int32_t, std::string>;

size_t measure(const std::vector<Slot> &slots, const Types &types, Plan &p) {
  size_t names = 0, entries = 0, records = 0;
  for (const auto &s : slots) {
    if (s.names.empty() || s.history.empty()) continue;
    for (const auto &n : s.names) names += n.size() + 1, ++entries;
    names += 1;
  }
  std::map<ImageType, int> used;
  std::map<std::string, int> abbrs;
  for (const auto &r : p.ranges) {
    if (r.host >= 0) continue;
    records += r.records.size();
    for (const auto &c : r.records) {
      const LocalType &t = types.list[c.type];
      used[{t.utoff, t.abbr}] = 1;
      abbrs[t.abbr] = 1;
    }
  }
  size_t abbr_bytes = 0;
  for (const auto &[a, x] : abbrs) abbr_bytes += a.size() + 1;
  p.records = records;
  p.types = used.size();
  p.bytes = LTZ_HEADER_SIZE + names + entries * kIndexEntrySize + records * (kRecordSize + 3) +
            used.size() * kTypeEntrySize + abbr_bytes;
  return p.bytes;
}

// A range whose changes are the last changes of a longer range, and whose
// first state is the state that range is in just before them, can be read
// from the end of that range: its first record then carries an earlier
// instant, which no lookup reads (the first record stands for all time
// before the second). Such ranges are held inside their host.
void embed(Plan &p) {
  std::vector<size_t> order(p.ranges.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return p.ranges[a].records.size() > p.ranges[b].records.size(); });
  for (size_t i = 0; i < order.size(); ++i) {
    Range &b = p.ranges[order[i]];
    const size_t n = b.records.size();
    for (size_t j = 0; j < i; ++j) {
      const Range &a = p.ranges[order[j]];
      if (a.host >= 0 || a.records.size() <= n) continue;
      const size_t k = a.records.size() - n;
      if (a.records[k].type == b.records[0].type &&
          std::equal(b.records.begin() + 1, b.records.end(), a.records.begin() + static_cast<ptrdiff_t>(k) + 1)) {
        b.host = static_cast<int>(order[j]);
        break;
      }
    }
  }
}

// Every named slot covering [first, last]; equal spans share a range.
Plan cover(const std::vector<Slot> &slots, const Types &types, int first, int last) {
  const int64_t from = year_start(first), end = year_start(last + 1);
  std::map<std::vector<Change>, size_t> seen;
  Plan p;
  for (uint32_t s = 0; s < slots.size(); ++s) {
    if (slots[s].history.empty()) continue;
    std::vector<Change> recs = span(slots[s].history, from, end);
    auto [it, fresh] = seen.emplace(recs, p.ranges.size());
    if (fresh) p.ranges.push_back({{}, std::move(recs)});
    p.ranges[it->second].slots.push_back(s);
  }
  embed(p);
  measure(slots, types, p);
  return p;
}

// Carries ranges back before `first` while the image has room: those whose
// extension costs least per slot first.
void extend_back(const std::vector<Slot> &slots, const Types &types, int first, int last, Plan &p) {
  const int64_t from = year_start(first), end = year_start(last + 1);
  struct Candidate {
    size_t range;
    std::vector<Change> records;
    double cost;
  };
  std::vector<Candidate> cands;
  for (size_t i = 0; i < p.ranges.size(); ++i) {
    const Range &r = p.ranges[i];
    if (r.host >= 0) continue;  // its records are another range's
    std::vector<const std::vector<Change> *> hs;
    for (uint32_t s : r.slots) hs.push_back(&slots[s].history);
    std::vector<Change> recs = span(*hs.front(), agree_since(hs, from), end);
    if (recs.size() <= r.records.size()) continue;
    double cost = static_cast<double>(recs.size() - r.records.size()) / static_cast<double>(r.slots.size());
    cands.push_back({i, std::move(recs), cost});
  }
  std::stable_sort(cands.begin(), cands.end(), [](const auto &a, const auto &b) { return a.cost < b.cost; });
  for (auto &c : cands) {
    Range &r = p.ranges[c.range];
    std::swap(r.records, c.records);
    if (measure(slots, types, p) <= LTZ_MAX_IMAGE) {
      r.extended = true;
    } else {
      std::swap(r.records, c.records);
      measure(slots, types, p);
    }
  }
}

// Names the region and year whose records pass the limit first.
[[noreturn]] void too_big(const std::vector<Slot> &slots, const Plan &p, int first, int last) {
  const size_t fixed = p.bytes - p.records * (kRecordSize + 3);
  const size_t room = fixed < LTZ_MAX_IMAGE ? (LTZ_MAX_IMAGE - fixed) / (kRecordSize + 3) : 0;
  size_t n = 0;
  std::string where = "the names alone";
  for (const auto &r : p.ranges) {
    if (r.host >= 0) continue;
    if (n + r.records.size() > room) {
      const Change &c = r.records[room > n ? room - n : 0];
      where = "the transitions of " + slots[r.slots.front()].names.front() + " from " +
              std::to_string(year_of(c.at)) + " on";
      break;
    }
    n += r.records.size();
  }
  die("the image for " + std::to_string(first) + " ... " + std::to_string(last) + " would be " +
      std::to_string(p.bytes) + " bytes (" + std::to_string(p.records) + " transitions), over the limit of " +
      std::to_string(LTZ_MAX_IMAGE) + ": " + where + " do not fit; cover fewer years (--first-year, --last-year)");
}

// The latest last year from `first` on whose image fits: steps that double
// until one does not fit, then halves between the last two.
int fitting_last_year(const std::vector<Slot> &slots, const Types &types, int first) {
  auto fits = [&](int y) { return cover(slots, types, first, y).bytes <= LTZ_MAX_IMAGE; };
  if (!fits(first)) return first;  // too_big names the culprit
  int lo = first, step = 1;
  while (lo < kMaxYear && fits(std::min(kMaxYear, lo + step))) {
    lo = std::min(kMaxYear, lo + step);
    step *= 2;
  }
  int hi = std::min(kMaxYear, lo + step) - 1;  // does not fit above hi
  if (lo == kMaxYear) return lo;
  while (lo < hi) {
    int mid = lo + (hi - lo + 1) / 2;
    if (fits(mid))
      lo = mid;
    else
      hi = mid - 1;
  }
  return lo;
}

// ---------------------------------------------------------- image writing

uint32_t fnv1a(const uint8_t *p, size_t n) {
  uint32_t h = 2166136261u;
  for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 16777619u;
  return h;
}

int name_cmp(const std::string &a, const std::string &b) { return ltzCmp(a.c_str(), b.c_str()); }

std::vector<uint8_t> build_image(const std::vector<Slot> &slots, const Types &types, const Plan &plan,
                                 uint16_t content, int first, int last) {
  // Areas in order: header, name lists, name index, records, type map, types,
  // abbreviations, daylight flags.
  std::vector<uint8_t> names;
  std::vector<uint32_t> list_off(kSlots, 0);
  struct IndexEntry {
    std::string name;
    uint32_t off;
    uint16_t id;
  };
  std::vector<IndexEntry> index;
  for (uint32_t s = 0; s < kSlots; ++s) {
    if (slots[s].history.empty()) continue;
    list_off[s] = LTZ_HEADER_SIZE + static_cast<uint32_t>(names.size());
    for (size_t k = 0; k < slots[s].names.size(); ++k) {
      const std::string &n = slots[s].names[k];
      if (n.empty()) die("slot " + std::to_string(s) + " has a gap in its alias list");
      index.push_back({n, LTZ_HEADER_SIZE + static_cast<uint32_t>(names.size()), static_cast<uint16_t>(s | (k << 9))});
      names.insert(names.end(), n.begin(), n.end());
      names.push_back(0);
    }
    names.push_back(0);  // the empty string that ends the list
  }
  std::sort(index.begin(), index.end(), [](const auto &a, const auto &b) { return name_cmp(a.name, b.name) < 0; });
  for (size_t i = 1; i < index.size(); ++i)
    if (name_cmp(index[i - 1].name, index[i].name) == 0)
      die("names \"" + index[i - 1].name + "\" and \"" + index[i].name + "\" are equal to the lookups");
  if (index.size() > 0xFFFF) die("too many names");

  std::map<ImageType, uint16_t> type_ids;
  std::vector<ImageType> itypes;
  std::map<std::string, uint32_t> abbr_off;
  std::vector<uint8_t> abbrs;
  for (const auto &r : plan.ranges)
    for (const auto &c : r.records) {
      if (r.host >= 0) break;
      const LocalType &t = types.list[c.type];
      ImageType key{t.utoff, t.abbr};
      if (type_ids.count(key)) continue;
      type_ids[key] = static_cast<uint16_t>(itypes.size());
      itypes.push_back(key);
      if (!abbr_off.count(t.abbr)) {
        abbr_off[t.abbr] = static_cast<uint32_t>(abbrs.size());
        abbrs.insert(abbrs.end(), t.abbr.begin(), t.abbr.end());
        abbrs.push_back(0);
      }
    }

  const size_t nrec = plan.records;
  const uint64_t off_names = LTZ_HEADER_SIZE;
  const uint64_t off_index = off_names + names.size();
  const uint64_t off_trans = off_index + index.size() * kIndexEntrySize;
  const uint64_t off_map = off_trans + nrec * kRecordSize;
  const uint64_t off_types = off_map + nrec * 2;
  const uint64_t off_abbr = off_types + itypes.size() * kTypeEntrySize;
  const uint64_t off_dst = off_abbr + abbrs.size();
  const uint64_t total = off_dst + nrec;
  if (total != plan.bytes || total > LTZ_MAX_IMAGE) die("internal error: the image's size was misjudged");

  std::vector<uint8_t> b(total, 0);
  put32(&b[kOffMagic], LTZ_MAGIC);
  put32(&b[kOffLength], static_cast<uint32_t>(total));
  put16(&b[kOffFormat], LTZ_FORMAT_VERSION);
  put16(&b[kOffContent], content);
  put16(&b[kOffIndexCount], static_cast<uint16_t>(index.size()));
  put32(&b[kOffRecordCount], static_cast<uint32_t>(nrec));
  put32(&b[kOffIndex], static_cast<uint32_t>(off_index));
  put32(&b[kOffTrans], static_cast<uint32_t>(off_trans));
  put32(&b[kOffTypes], static_cast<uint32_t>(off_types));
  put32(&b[kOffMap], static_cast<uint32_t>(off_map));
  put32(&b[kOffDst], static_cast<uint32_t>(off_dst));
  put16(&b[kOffFirstYear], static_cast<uint16_t>(first));
  put16(&b[kOffLastYear], static_cast<uint16_t>(last));
  put32(&b[kOffTypeCount], static_cast<uint32_t>(itypes.size()));
  std::copy(names.begin(), names.end(), b.begin() + static_cast<ptrdiff_t>(off_names));
  for (size_t i = 0; i < index.size(); ++i) {
    uint8_t *e = &b[off_index + i * kIndexEntrySize];
    put32(e, index[i].off);
    put16(e + 4, index[i].id);
  }
  size_t r = 0;
  std::vector<size_t> base(plan.ranges.size());
  for (size_t i = 0; i < plan.ranges.size(); ++i) {
    const Range &range = plan.ranges[i];
    if (range.host >= 0) continue;
    base[i] = r;
    for (const auto &c : range.records) {
      cal::Civil v{};
      if (!cal::from_seconds(c.at, &v)) die("a transition outside the calendar's years");
      uint8_t *rec = &b[off_trans + r * kRecordSize];
      put16(rec, static_cast<uint16_t>(v.year));
      rec[2] = static_cast<uint8_t>(v.month);
      rec[3] = static_cast<uint8_t>(v.day);
      rec[4] = static_cast<uint8_t>(v.hour);
      rec[5] = static_cast<uint8_t>(v.minute);
      rec[6] = static_cast<uint8_t>(v.second);
      rec[14] = LDI_KIND_TIMESTAMP;
      const LocalType &t = types.list[c.type];
      put16(&b[off_map + 2 * r], type_ids.at({t.utoff, t.abbr}));
      b[off_dst + r] = t.isdst ? 1 : 0;
      ++r;
    }
  }
  // The directory: a range held in its host is the host's last records.
  for (size_t i = 0; i < plan.ranges.size(); ++i) {
    const Range &range = plan.ranges[i];
    const size_t n = range.records.size();
    size_t first = base[i];
    if (range.host >= 0) {
      const Range &host = plan.ranges[static_cast<size_t>(range.host)];
      first = base[static_cast<size_t>(range.host)] + host.records.size() - n;
    }
    if (first > 0xFFFF || n > 0xFFFF) die("the transition table is too long for 16-bit record numbers");
    for (uint32_t s : range.slots) {
      uint8_t *slot = &b[kOffDirectory + s * kSlotSize];
      put16(slot, static_cast<uint16_t>(n));
      put16(slot + 2, static_cast<uint16_t>(first));
      put32(slot + 4, list_off[s]);
    }
  }
  for (size_t t = 0; t < itypes.size(); ++t) {
    uint8_t *e = &b[off_types + t * kTypeEntrySize];
    put32(e, static_cast<uint32_t>(itypes[t].first));
    put32(e + 4, static_cast<uint32_t>(off_abbr + abbr_off.at(itypes[t].second)));
  }
  std::copy(abbrs.begin(), abbrs.end(), b.begin() + static_cast<ptrdiff_t>(off_abbr));
  // The file ID: a checksum of everything but the ID itself.
  uint32_t h = fnv1a(b.data(), b.size());
  put16(&b[kOffFileId], static_cast<uint16_t>(h ^ (h >> 16)));
  return b;
}

uint16_t content_version(const std::string &release) {
  // "2025b" -> 2502: the year within its century, then the letter's number.
  if (release.size() < 5) return 0;
  int year = std::atoi(release.substr(0, 4).c_str());
  int letter = std::tolower(static_cast<unsigned char>(release[4])) - 'a' + 1;
  if (year < 1970 || letter < 1 || letter > 26) return 0;
  return static_cast<uint16_t>((year % 100) * 100 + letter);
}

}  // namespace

int main(int argc, char **argv) {
  Options o = parse_args(argc, argv);
  Tzdata tz = read_tzdata(o.zoneinfo);
  IdList ids = read_ids(o.ids);

  // New names: zones take free slots; links join their target's slot.
  std::vector<std::string> zones = tz.zones;
  std::sort(zones.begin(), zones.end());
  for (const auto &z : zones)
    if (!ids.by_name.count(z)) ids.add_zone(z);
  auto links = tz.links;
  std::sort(links.begin(), links.end(), [](const auto &a, const auto &b) { return a.second < b.second; });
  for (const auto &[target, name] : links)
    if (!ids.by_name.count(name)) ids.add_link(target, name);
  // The list is rewritten only when it gained names (or when it is a new file).
  if (!o.write_ids.empty() && (ids.added || o.write_ids != o.ids)) write_ids(o.write_ids, ids, tz.version);
  if (o.out.empty()) return 0;

  const int history_end = o.last_year ? *o.last_year : kMaxYear;
  Types types;
  std::vector<Slot> slots(kSlots);
  size_t named = 0, regions = 0;
  for (uint32_t s = 1; s < kSlots; ++s) {
    const auto &names = ids.names[s];
    if (names.empty()) continue;
    // The history comes from the first name that still has a file.
    std::optional<Tzif> z;
    std::string path;
    for (const auto &n : names) {
      if (n.empty()) continue;
      path = o.zoneinfo + "/" + n;
      z = read_tzif(path);
      if (z) break;
    }
    if (!z) {
      std::fprintf(stderr, "keltzc: warning: no zoneinfo file for slot %u (%s); left empty\n", s, names[0].c_str());
      continue;
    }
    slots[s].names = names;
    slots[s].history = history(*z, path, history_end, types);
    named += names.size();
    ++regions;
  }

  const int first = o.first_year;
  const int last = o.last_year ? *o.last_year : fitting_last_year(slots, types, first);
  Plan plan = cover(slots, types, first, last);
  if (plan.bytes > LTZ_MAX_IMAGE) too_big(slots, plan, first, last);
  extend_back(slots, types, first, last, plan);
  const uint16_t content =
      o.content_version ? static_cast<uint16_t>(*o.content_version) : content_version(tz.version);
  std::vector<uint8_t> img = build_image(slots, types, plan, content, first, last);

  std::string tmp = o.out + ".tmp";
  FILE *f = std::fopen(tmp.c_str(), "wb");
  if (f == nullptr) die("cannot write " + tmp + ": " + std::strerror(errno));
  bool ok = std::fwrite(img.data(), 1, img.size(), f) == img.size();
  ok = std::fclose(f) == 0 && ok;
  if (!ok || slfrename(tmp.c_str(), o.out.c_str()) != 0) die("cannot write " + o.out);
  if (!o.quiet) {
    size_t back = 0;
    for (const auto &r : plan.ranges)
      if (r.extended) back += r.slots.size();
    std::printf(
        "keltzc: %s: tzdata %s, %zu names in %zu regions, years %d ... %d for every region (%zu regions also "
        "further back), %zu transitions in %zu shared ranges, %zu types, %zu bytes\n",
        o.out.c_str(), tz.version.c_str(), named, regions, first, last, back, plan.records, plan.ranges.size(),
        plan.types, img.size());
    if (ids.added) std::printf("keltzc: %zu new region IDs given out\n", ids.added);
  }
  return 0;
}
