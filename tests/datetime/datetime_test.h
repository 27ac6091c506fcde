// datetime_test.h - what the date family's tests share: a date context that
// records what its callback is told, record builders and printers, a pinned
// "now", the time-zone image of this build, files in the build tree and the
// Python oracles.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "datetime/calendar/ldx_impl.h"
#include "ldi.h"
#include "ldx.h"
#include "ltz.h"
#include "sl.h"
#include "tests/support/python.h"

namespace dttest {

// ------------------------------------------------------------ the date kernel

// Collects the error numbers the date functions report through the
// context's callback.
struct Recorder {
  std::vector<int32_t> errs;
};
inline void record(ldxctx *ctx, int32_t err) { static_cast<Recorder *>(ctx->cbarg)->errs.push_back(err); }

// A started context reporting into its own recorder.
struct Ctx {
  ldxctx c{};
  Recorder rec;
  Ctx() { EXPECT_EQ(ldxbegin(&c, nullptr, record, &rec), 0); }
  int32_t last() const { return rec.errs.empty() ? 0 : rec.errs.back(); }
};

inline ldxdate D(int y, int m, int d, int hh = 0, int mi = 0, int ss = 0) {
  return ldxdate{static_cast<int16_t>(y), static_cast<int8_t>(m), static_cast<int8_t>(d),
                 static_cast<int8_t>(hh), static_cast<int8_t>(mi), static_cast<int8_t>(ss), 0};
}

inline std::string str(const ldxdate &d) {
  char b[64];
  std::snprintf(b, sizeof b, "%d-%02d-%02d %02d:%02d:%02d", d.year, d.month, d.day, d.hour, d.minute, d.second);
  return b;
}

// "now" pinned for the elements that take the current year or month; by
// default 2024-07-15 10:20:30 UTC.
constexpr int64_t kPinned = 1721038830LL * 1000000;
struct PinNow {
  explicit PinNow(int64_t us = kPinned) { ldx_internal::pin_now_for_test(us); }
  ~PinNow() { ldx_internal::pin_now_for_test(0); }
  PinNow(const PinNow &) = delete;
  PinNow &operator=(const PinNow &) = delete;
};

// ----------------------------------------------------------- the records

inline LdiDateTime dt(int kind, int y, int mo, int d, int h = 0, int mi = 0, int s = 0, uint32_t ns = 0,
                      int tzh = 0, int tzm = 0, uint16_t region = 0) {
  LdiDateTime v{};
  v.kind = static_cast<uint8_t>(kind);
  v.year = static_cast<int16_t>(y);
  v.month = static_cast<uint8_t>(mo);
  v.day = static_cast<uint8_t>(d);
  v.hour = static_cast<uint8_t>(h);
  v.minute = static_cast<uint8_t>(mi);
  v.second = static_cast<uint8_t>(s);
  v.fraction = ns;
  v.tzhour = static_cast<int8_t>(tzh);
  v.tzminute = static_cast<int8_t>(tzm);
  v.region = region;
  return v;
}
// A timestamp (kind 3), the form the time-zone lookups take.
inline LdiDateTime stamp(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  return dt(LDI_KIND_TIMESTAMP, y, mo, d, h, mi, s);
}

// A random valid record of a kind (years ylo ... yhi, 0 left out): the
// fields the kind does not hold are zero; kinds 4 and 5 get an offset of
// -12:00 ... +14:00 in whole minutes.
template <class Rng>
LdiDateTime random_dt(Rng &g, int kind, int ylo = -4712, int yhi = 9999) {
  int y = ylo + static_cast<int>(g() % static_cast<uint32_t>(yhi - ylo + 1));
  y = y ? y : 1;
  const int m = 1 + static_cast<int>(g() % 12);
  int d = 1 + static_cast<int>(g() % static_cast<uint32_t>(ldx_internal::days_in_month(y, m)));
  if (y == 1582 && m == 10 && d > 4 && d < 15) d = 4;
  const int z = static_cast<int>(g() % (26 * 60 + 1)) - 12 * 60;
  LdiDateTime v = dt(kind, y, m, d, static_cast<int>(g() % 24), static_cast<int>(g() % 60),
                     static_cast<int>(g() % 60), static_cast<uint32_t>(g() % 1000000000), z / 60, z % 60);
  if (kind == LDI_KIND_DATE) v.hour = v.minute = v.second = 0, v.fraction = 0;
  if (kind == LDI_KIND_TIME || kind == LDI_KIND_TIME_TZ) v.year = 0, v.month = v.day = 0;
  if (kind != LDI_KIND_TIME_TZ && kind != LDI_KIND_TSTZ) v.tzhour = v.tzminute = 0;
  return v;
}

inline LdiInterval iv(int kind, int32_t f1, int32_t f2 = 0, int32_t f3 = 0, int32_t f4 = 0, int32_t frac = 0) {
  LdiInterval v{};
  v.kind = static_cast<uint8_t>(kind);
  v.f1 = f1;
  v.f2 = f2;
  v.f3 = f3;
  v.f4 = f4;
  v.fraction = frac;
  return v;
}

inline std::string fields(const LdiDateTime &v) {
  return std::to_string(v.year) + " " + std::to_string(v.month) + " " + std::to_string(v.day) + " " +
         std::to_string(v.hour) + " " + std::to_string(v.minute) + " " + std::to_string(v.second);
}
// The fields with the kind, the fraction and the zone.
inline std::string whole(const LdiDateTime &v) {
  return std::to_string(v.kind) + ": " + fields(v) + "." + std::to_string(v.fraction) + " " + std::to_string(v.tzhour) +
         ":" + std::to_string(v.tzminute) + " r" + std::to_string(v.region);
}

// ------------------------------------------------- the image and the files

// The image of this build, loaded through the library's own loader.
inline const void *image() {
  slsetenv("KEL_TZFILE", KEL_TZFILE, 1);
  const void *img = nullptr;
  EXPECT_EQ(ltzGetImage(&img), LTZ_OK) << KEL_TZFILE;
  return img;
}

inline std::string temp_path(const std::string &tag) {
  return std::string(KEL_BINARY_DIR) + "/tests/datetime/" + tag;
}

inline std::vector<std::string> read_lines(const std::string &path) {
  std::vector<std::string> out;
  std::ifstream in(path);
  for (std::string l; std::getline(in, l);) out.push_back(l);
  return out;
}

// A region-id list ("id name" lines, # comments), as ids.txt keeps it.
inline std::map<std::string, unsigned> read_ids(const std::string &path) {
  std::map<std::string, unsigned> ids;
  for (const auto &l : read_lines(path)) {
    if (l.empty() || l[0] == '#') continue;
    std::istringstream s(l);
    unsigned id = 0;
    std::string name;
    s >> id >> name;
    ids[name] = id;
  }
  return ids;
}

// ------------------------------------------------------------ the oracles

// Runs tests/datetime/<script> with `args`; true when it succeeded.
inline bool run_script(const std::string &script, const std::string &args) {
  std::string printed;
  return kel_test::run_python("tests/datetime/" + script, args, printed);
}

// The time-zone oracle (timezone/tz_oracle.py).
inline bool run_tz_oracle(const std::string &args) { return run_script("timezone/tz_oracle.py", args); }

// The datetime oracle (types/ldi_oracle.py) over a list of queries: one
// answer per query.
inline std::vector<std::string> oracle(const std::string &tag, const std::vector<std::string> &queries) {
  const std::string q = temp_path(tag + ".q"), a = temp_path(tag + ".a");
  {
    std::ofstream out(q);
    for (const auto &l : queries) out << l << "\n";
  }
  EXPECT_TRUE(run_script("types/ldi_oracle.py", q + " " + a)) << tag;
  std::vector<std::string> out = read_lines(a);
  EXPECT_EQ(out.size(), queries.size());
  return out;
}

}  // namespace dttest
