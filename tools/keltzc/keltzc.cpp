// keltzc - compiles the system's IANA time-zone data into the library's
// time-zone image (timezlrg.dat).
//
// Input: the compiled TZif files of a zoneinfo directory (version 2 or later,
// 64-bit data and the POSIX TZ footer), its tzdata.zi for the list of zones
// and links and the data release, and the checked-in table of region IDs.
//
// Region IDs are kept in users' data, so they never change: the ID table
// ("ID name" lines) is read first, names it does not know get new IDs (a new
// zone takes the lowest free directory slot; a new link joins its target's
// slot as the next alias, or takes a slot of its own when that one is full),
// and --write-ids writes the table back with the new lines added.
//
// Each slot's history is the TZif file of its first name that exists, cut
// to the covered years: the first record is the state at 1 January of the
// first year (UTC), then every change up to the end of the last year,
// changes after the file's explicit list expanded from the footer rule.
// Consecutive states that agree on offset, abbreviation and daylight flag
// are merged. The image has no room for sharing between slots, so the year
// range decides the size; the compiler fails when the image would pass the
// 524288-byte limit.
//
// Sections: command line, tzdata.zi and the ID table, TZif reading, footer
// rules, history per slot, image layout and writing, main.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "datetime/tz_image_impl.h"
#include "ltz.h"

namespace {

using namespace ltz_internal;

// The default covered years: from the Unix epoch to the end of 2037, where
// 32-bit clocks stop. Measured with tzdata 2025b: 598 names, 21256
// transitions, 128 local-time types, 508930 bytes; every further year costs
// about 6 KiB (two changes in each of the ~130 zones that keep daylight
// saving), every earlier year about 3 KiB.
constexpr int kDefaultFirstYear = 1970;
constexpr int kDefaultLastYear = 2037;

[[noreturn]] void die(const std::string &msg) {
  std::fprintf(stderr, "keltzc: %s\n", msg.c_str());
  std::exit(1);
}

// ------------------------------------------------------------ command line

struct Options {
  std::string zoneinfo = "/usr/share/zoneinfo";
  std::string ids;
  std::string write_ids;
  std::string out;
  int first_year = kDefaultFirstYear;
  int last_year = kDefaultLastYear;
  std::optional<int> content_version;
  bool verbose = false;
};

void usage(FILE *f) {
  std::fprintf(f,
               "usage: keltzc --ids FILE -o IMAGE [options]\n"
               "  --zoneinfo DIR       compiled IANA zoneinfo (default /usr/share/zoneinfo)\n"
               "  --ids FILE           table of region IDs (\"ID name\" lines; may be missing)\n"
               "  --write-ids FILE     write the table with the IDs given to new names\n"
               "  --first-year Y       first year covered (default %d)\n"
               "  --last-year Y        last year covered (default %d)\n"
               "  --content-version N  content version (default: from the tzdata release)\n"
               "  -o IMAGE             the image to write\n"
               "  -v                   print what was done\n",
               kDefaultFirstYear, kDefaultLastYear);
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
    else if (a == "-v")
      o.verbose = true;
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
  if (o.first_year < 1800 || o.last_year > 9999 || o.first_year > o.last_year)
    die("the covered years must satisfy 1800 <= first <= last <= 9999");
  return o;
}

// ----------------------------------------------- tzdata.zi and the ID table

struct Tzdata {
  std::string version;                           // e.g. "2025b"
  std::vector<std::string> zones;                // in file order
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
struct IdTable {
  std::vector<std::vector<std::string>> names = std::vector<std::vector<std::string>>(kSlots);
  std::map<std::string, uint16_t> by_name;
  std::vector<std::pair<uint16_t, std::string>> added;

  bool set(uint16_t id, const std::string &name) {
    uint32_t s = id & (kSlots - 1), k = id >> 9;
    auto &list = names[s];
    if (list.size() <= k) list.resize(k + 1);
    if (!list[k].empty() || by_name.count(name)) return false;
    list[k] = name;
    by_name[name] = id;
    return true;
  }
  int free_slot() const {
    for (uint32_t s = 1; s < kSlots; ++s)
      if (names[s].empty()) return static_cast<int>(s);
    return -1;
  }
  void add_zone(const std::string &name) {
    int s = free_slot();
    if (s < 0) die("no free region slot for " + name);
    set(static_cast<uint16_t>(s), name);
    added.emplace_back(static_cast<uint16_t>(s), name);
  }
  void add_link(const std::string &target, const std::string &name) {
    auto it = by_name.find(target);
    if (it != by_name.end()) {
      uint32_t s = it->second & (kSlots - 1);
      if (names[s].size() < kMaxNamesPerSlot) {
        auto id = static_cast<uint16_t>(s | (names[s].size() << 9));
        set(id, name);
        added.emplace_back(id, name);
        return;
      }
    }
    add_zone(name);  // its own slot, with the target's history read through the link
  }
};

IdTable read_ids(const std::string &path) {
  IdTable t;
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

void write_ids(const std::string &path, const IdTable &t, const std::string &version) {
  std::vector<std::pair<uint16_t, std::string>> all;
  for (const auto &[name, id] : t.by_name) all.emplace_back(id, name);
  std::sort(all.begin(), all.end(), [](const auto &a, const auto &b) {
    uint32_t sa = a.first & (kSlots - 1), sb = b.first & (kSlots - 1);
    return sa != sb ? sa < sb : a.first < b.first;
  });
  std::ofstream out(path);
  if (!out) die("cannot write " + path);
  out << "# Region IDs of the time-zone image: \"ID name\". IDs are stored in users' data:\n"
         "# never change or reuse a line; keltzc --write-ids only adds lines for new names.\n"
         "# ID = slot | alias << 9 (slot 1 ... 511, alias 0 = the slot's primary name).\n"
         "# Last extended from tzdata "
      << version << ".\n";
  for (const auto &[id, name] : all) out << id << ' ' << name << '\n';
  if (!out) die("cannot write " + path);
}

// ------------------------------------------------------------- TZif reading

struct LocalType {
  int32_t utoff = 0;
  bool isdst = false;
  std::string abbr;
  bool operator==(const LocalType &o) const { return utoff == o.utoff && isdst == o.isdst && abbr == o.abbr; }
};

struct Tzif {
  std::vector<int64_t> times;
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

int64_t days_from_civil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void civil_from_days(int64_t z, int &y, int &m, int &d) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const auto doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  y = static_cast<int>(static_cast<int64_t>(yoe) + era * 400 + (m <= 2));
}

bool leap_year(int y) { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); }

// Local seconds (since 1970, on the clock in force) at which rule r fires in year y.
int64_t rule_local(const Rule &r, int y) {
  int64_t day = 0;
  if (r.kind == 'J') {
    day = days_from_civil(y, 1, 1) + r.a - 1;
    if (leap_year(y) && r.a >= 60) ++day;
  } else if (r.kind == 'D') {
    day = days_from_civil(y, 1, 1) + r.a;
  } else {
    static const int kMonthDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int64_t first = days_from_civil(y, static_cast<unsigned>(r.a), 1);
    int wd = static_cast<int>(((first + 4) % 7 + 7) % 7);  // 1970-01-01 was a Thursday (4)
    int64_t d = first + ((r.c - wd) % 7 + 7) % 7 + 7 * (r.b - 1);
    int len = kMonthDays[r.a - 1] + (r.a == 2 && leap_year(y) ? 1 : 0);
    while (d >= first + len) d -= 7;
    day = d;
  }
  return day * 86400 + r.time;
}

// ------------------------------------------------------- history per slot

struct Change {
  int64_t at;  // UTC seconds since 1970
  LocalType type;
};

int64_t year_start(int y) { return days_from_civil(y, 1, 1) * 86400; }

// The states of one zone over [first, last]: first element = the state at
// the start of the first year, then the changes.
std::vector<Change> history(const Tzif &z, const std::string &path, int first, int last) {
  std::vector<Change> all;
  // The state before the first transition is type 0 (RFC 8536).
  all.push_back({INT64_MIN, z.types[0]});
  for (size_t i = 0; i < z.times.size(); ++i) all.push_back({z.times[i], z.types[z.idx[i]]});
  if (!z.footer.empty()) {
    PosixTz tz;
    if (!TzParser(z.footer).parse(tz)) die(path + ": cannot read the TZ rule \"" + z.footer + "\"");
    int64_t after = z.times.empty() ? INT64_MIN : z.times.back();
    if (!tz.has_dst) {
      if (z.times.empty()) all.front().type = tz.std_type;
    } else {
      int from = z.times.empty() ? first : 1970;
      if (!z.times.empty()) {
        int y, m, d;
        civil_from_days(after / 86400 - (after % 86400 < 0), y, m, d);
        from = y;
      }
      for (int y = std::max(from, first - 1); y <= last; ++y) {
        // The start fires on standard time, the end on daylight time.
        Change s{rule_local(tz.start, y) - tz.std_type.utoff, tz.dst_type};
        Change e{rule_local(tz.end, y) - tz.dst_type.utoff, tz.std_type};
        Change two[2] = {s, e};
        if (two[1].at < two[0].at) std::swap(two[0], two[1]);
        for (const auto &c : two)
          if (c.at > after) all.push_back(c);
      }
    }
  }
  const int64_t lo = year_start(first), hi = year_start(last + 1);
  std::vector<Change> out;
  out.push_back({lo, all.front().type});
  for (const auto &c : all) {
    if (c.at <= lo)
      out.front().type = c.type;
    else if (c.at < hi && !(c.type == out.back().type))
      out.push_back(c);
  }
  return out;
}

// ---------------------------------------------------- image layout and writing

struct Slot {
  std::vector<std::string> names;  // k-th = alias k (may hold "" for a gap)
  std::vector<Change> changes;
};

struct Image {
  std::vector<uint8_t> bytes;
  size_t records = 0;
  size_t types = 0;
};

uint32_t fnv1a(const uint8_t *p, size_t n) {
  uint32_t h = 2166136261u;
  for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 16777619u;
  return h;
}

int name_cmp(const std::string &a, const std::string &b) { return ltzCmp(a.c_str(), b.c_str()); }

Image build_image(const std::vector<Slot> &slots, uint16_t content, int first, int last) {
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
    if (slots[s].changes.empty()) continue;
    list_off[s] = LTZ_HEADER_SIZE + static_cast<uint32_t>(names.size());
    for (size_t k = 0; k < slots[s].names.size(); ++k) {
      const std::string &n = slots[s].names[k];
      if (n.empty()) die("slot " + std::to_string(s) + " has a gap in its alias list");
      uint32_t off = LTZ_HEADER_SIZE + static_cast<uint32_t>(names.size());
      index.push_back({n, off, static_cast<uint16_t>(s | (k << 9))});
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

  // Types shared by all slots: (offset, abbreviation).
  std::map<std::pair<int32_t, std::string>, uint16_t> type_ids;
  std::vector<std::pair<int32_t, std::string>> types;
  std::map<std::string, uint32_t> abbr_off;
  std::vector<uint8_t> abbrs;
  size_t nrec = 0;
  for (const auto &s : slots) {
    nrec += s.changes.size();
    for (const auto &c : s.changes) {
      auto key = std::make_pair(c.type.utoff, c.type.abbr);
      if (type_ids.count(key)) continue;
      if (types.size() >= 0xFFFF) die("too many local-time types");
      type_ids[key] = static_cast<uint16_t>(types.size());
      types.push_back(key);
      if (!abbr_off.count(c.type.abbr)) {
        abbr_off[c.type.abbr] = static_cast<uint32_t>(abbrs.size());
        abbrs.insert(abbrs.end(), c.type.abbr.begin(), c.type.abbr.end());
        abbrs.push_back(0);
      }
    }
  }

  const uint64_t off_names = LTZ_HEADER_SIZE;
  const uint64_t off_index = off_names + names.size();
  const uint64_t off_trans = off_index + index.size() * kIndexEntrySize;
  const uint64_t off_map = off_trans + nrec * kRecordSize;
  const uint64_t off_types = off_map + nrec * 2;
  const uint64_t off_abbr = off_types + types.size() * kTypeEntrySize;
  const uint64_t off_dst = off_abbr + abbrs.size();
  const uint64_t total = off_dst + nrec;
  if (total > LTZ_MAX_IMAGE) {
    die("the image for " + std::to_string(first) + " ... " + std::to_string(last) + " would be " +
        std::to_string(total) + " bytes (" + std::to_string(nrec) + " transitions), over the limit of " +
        std::to_string(LTZ_MAX_IMAGE) + "; cover fewer years (--first-year / --last-year)");
  }

  Image img;
  img.records = nrec;
  img.types = types.size();
  std::vector<uint8_t> &b = img.bytes;
  b.assign(total, 0);
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
  put32(&b[kOffTypeCount], static_cast<uint32_t>(types.size()));
  std::copy(names.begin(), names.end(), b.begin() + static_cast<ptrdiff_t>(off_names));
  for (size_t i = 0; i < index.size(); ++i) {
    uint8_t *e = &b[off_index + i * kIndexEntrySize];
    put32(e, index[i].off);
    put16(e + 4, index[i].id);
  }
  size_t r = 0;
  for (uint32_t s = 0; s < kSlots; ++s) {
    const auto &ch = slots[s].changes;
    if (ch.empty()) continue;
    if (r > 0xFFFF || ch.size() > 0xFFFF)
      die("the transition table is too long for 16-bit record numbers; cover fewer years");
    uint8_t *slot = &b[kOffDirectory + s * kSlotSize];
    put16(slot, static_cast<uint16_t>(ch.size()));
    put16(slot + 2, static_cast<uint16_t>(r));
    put32(slot + 4, list_off[s]);
    for (const auto &c : ch) {
      LdiDateTime d{};
      int y, m, dd;
      int64_t days = c.at / 86400, rem = c.at % 86400;
      if (rem < 0) {
        rem += 86400;
        --days;
      }
      civil_from_days(days, y, m, dd);
      d.year = static_cast<int16_t>(y);
      d.month = static_cast<uint8_t>(m);
      d.day = static_cast<uint8_t>(dd);
      d.hour = static_cast<uint8_t>(rem / 3600);
      d.minute = static_cast<uint8_t>(rem / 60 % 60);
      d.second = static_cast<uint8_t>(rem % 60);
      d.kind = LDI_KIND_TIMESTAMP;
      uint8_t *rec = &b[off_trans + r * kRecordSize];
      put16(rec, static_cast<uint16_t>(d.year));
      rec[2] = d.month;
      rec[3] = d.day;
      rec[4] = d.hour;
      rec[5] = d.minute;
      rec[6] = d.second;
      rec[14] = d.kind;
      put16(&b[off_map + 2 * r], type_ids.at({c.type.utoff, c.type.abbr}));
      b[off_dst + r] = c.type.isdst ? 1 : 0;
      ++r;
    }
  }
  for (size_t t = 0; t < types.size(); ++t) {
    uint8_t *e = &b[off_types + t * kTypeEntrySize];
    put32(e, static_cast<uint32_t>(types[t].first));
    put32(e + 4, static_cast<uint32_t>(off_abbr + abbr_off.at(types[t].second)));
  }
  std::copy(abbrs.begin(), abbrs.end(), b.begin() + static_cast<ptrdiff_t>(off_abbr));
  // The file ID: a checksum of everything but the ID itself.
  uint32_t h = fnv1a(b.data(), b.size());
  put16(&b[kOffFileId], static_cast<uint16_t>(h ^ (h >> 16)));
  return img;
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
  IdTable ids = read_ids(o.ids);

  // New names: zones take free slots; links join their target's slot.
  std::vector<std::string> zones = tz.zones;
  std::sort(zones.begin(), zones.end());
  for (const auto &z : zones)
    if (!ids.by_name.count(z)) ids.add_zone(z);
  auto links = tz.links;
  std::sort(links.begin(), links.end(), [](const auto &a, const auto &b) { return a.second < b.second; });
  for (const auto &[target, name] : links)
    if (!ids.by_name.count(name)) ids.add_link(target, name);

  if (!o.write_ids.empty()) write_ids(o.write_ids, ids, tz.version);
  if (o.out.empty()) return 0;

  std::vector<Slot> slots(kSlots);
  size_t named = 0;
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
    slots[s].changes = history(*z, path, o.first_year, o.last_year);
    named += names.size();
  }
  uint16_t content = o.content_version ? static_cast<uint16_t>(*o.content_version) : content_version(tz.version);
  Image img = build_image(slots, content, o.first_year, o.last_year);

  std::string tmp = o.out + ".tmp";
  FILE *f = std::fopen(tmp.c_str(), "wb");
  if (f == nullptr) die("cannot write " + tmp + ": " + std::strerror(errno));
  bool ok = std::fwrite(img.bytes.data(), 1, img.bytes.size(), f) == img.bytes.size();
  ok = std::fclose(f) == 0 && ok;
  if (!ok || std::rename(tmp.c_str(), o.out.c_str()) != 0) die("cannot write " + o.out);
  if (o.verbose)
    std::printf("keltzc: %s: tzdata %s, years %d ... %d, %zu names, %zu transitions, %zu types, %zu bytes\n",
                o.out.c_str(), tz.version.c_str(), o.first_year, o.last_year, named, img.records, img.types,
                img.bytes.size());
  return 0;
}
