// The built image against the system's own zoneinfo, read by Python's
// zoneinfo module: offsets, abbreviations and daylight flags at UTC instants
// and at local times (repeated and skipped hours included), and the names.
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "datetime/calendar/calendar_impl.h"
#include "datetime/timezone/image_impl.h"
#include "tz_test_util.h"

namespace {

using tztest::built_image;

struct Name {
  std::string name;
  uint16_t id;
};

// Every name of the index, enumerated with ltzStep.
std::vector<Name> all_names(const void *img) {
  std::vector<Name> out;
  char buf[LTZ_NAME_MAX];
  uint16_t id = 0;
  for (uint32_t i = 0; ltzStep(img, i, buf, sizeof buf, &id) == LTZ_OK; ++i) out.push_back({buf, id});
  return out;
}

int64_t epoch_of(const LdiDateTime &d) {
  return ldx_internal::to_seconds(d.year, d.month, d.day, d.hour, d.minute, d.second) - ldx_internal::kUnixEpochSecs;
}

LdiDateTime from_epoch(int64_t t) {
  ldx_internal::Civil c{};
  ldx_internal::from_seconds(t + ldx_internal::kUnixEpochSecs, &c);
  return tztest::stamp(c.year, c.month, c.day, c.hour, c.minute, c.second);
}

// UTC instants of a region's transitions (from its external list).
std::vector<int64_t> transitions(const void *img, uint16_t id) {
  uint8_t *arr = nullptr;
  size_t len = 0;
  std::vector<int64_t> out;
  if (ltzGetTransArray(img, nullptr, nullptr, id, &arr, &len) != LTZ_OK) return out;
  for (size_t p = 11; p + 10 <= len; p += 10) {  // record 0 is the starting state
    int y = arr[p] * 100 + arr[p + 1] - 10100;
    out.push_back(epoch_of(tztest::stamp(y, arr[p + 2], arr[p + 3], arr[p + 4] - 1, arr[p + 5] - 1, arr[p + 6] - 1)));
  }
  ltzFreeTransArray(nullptr, nullptr, arr);
  return out;
}

struct Query {
  bool utc;
  std::string name;
  uint16_t id;
  int64_t t;  // UTC epoch, or local seconds counted the same way
};

TEST(TimezoneOracle, EveryRegionAgreesWithPythonZoneinfo) {
  const void *img = built_image();
  ASSERT_NE(img, nullptr);
  std::vector<Name> names = all_names(img);
  ASSERT_GT(names.size(), 500u);

  const int64_t lo = epoch_of(tztest::stamp(1970, 1, 2)), hi = epoch_of(tztest::stamp(2037, 12, 30));
  std::mt19937_64 rng(20251121);
  std::uniform_int_distribution<int64_t> when(lo, hi);
  std::vector<Query> qs;
  std::map<uint32_t, bool> slot_done;
  for (const auto &n : names) {
    // Every name gets random instants; each slot once also every transition's
    // neighbourhood, on both clocks.
    for (int i = 0; i < 600; ++i) qs.push_back({true, n.name, n.id, when(rng)});
    for (int i = 0; i < 600; ++i) qs.push_back({false, n.name, n.id, when(rng)});
    if (slot_done[n.id & 511]) continue;
    slot_done[n.id & 511] = true;
    for (int64_t t : transitions(img, n.id)) {
      if (t < lo || t > hi) continue;
      for (int64_t d : {-3601, -1, 0, 1, 3599}) qs.push_back({true, n.name, n.id, t + d});
      for (int64_t d : {-14 * 3600, -7200, -3600, -1800, -1, 0, 1, 1800, 3600, 7200, 14 * 3600})
        qs.push_back({false, n.name, n.id, t + d});
    }
  }
  std::string qpath = tztest::temp_path("oracle_queries.txt"), apath = tztest::temp_path("oracle_answers.txt");
  {
    FILE *f = std::fopen(qpath.c_str(), "w");
    ASSERT_NE(f, nullptr);
    for (const auto &q : qs) {
      if (q.utc) {
        std::fprintf(f, "U %s %" PRId64 "\n", q.name.c_str(), q.t);
      } else {
        LdiDateTime d = from_epoch(q.t);
        std::fprintf(f, "L %s %d %d %d %d %d %d\n", q.name.c_str(), d.year, d.month, d.day, d.hour, d.minute,
                     d.second);
      }
    }
    std::fclose(f);
  }
  ASSERT_TRUE(tztest::run_oracle(qpath + " " + apath));
  std::vector<std::string> answers = tztest::read_lines(apath);
  ASSERT_EQ(answers.size(), qs.size());

  size_t failures = 0, overlaps = 0, gaps = 0;
  auto fail = [&](const Query &q, const std::string &what) {
    if (++failures <= 20) ADD_FAILURE() << q.name << (q.utc ? " UTC " : " local ") << q.t << ": " << what;
  };
  for (size_t i = 0; i < qs.size(); ++i) {
    const Query &q = qs[i];
    std::istringstream a(answers[i]);
    LdiDateTime d = from_epoch(q.t);
    char abbr[LTZ_ABBR_MAX];
    int32_t off = 0;
    uint8_t dst = 0;
    if (q.utc) {
      int32_t want_off, want_dst;
      std::string want_abbr;
      a >> want_off >> want_dst >> want_abbr;
      int32_t st = ltzGet(img, q.id, &d, &off, abbr, sizeof abbr, &dst);
      if (st != LTZ_OK || off != want_off || dst != want_dst || want_abbr != abbr)
        fail(q, "got " + std::to_string(st) + " " + std::to_string(off) + " " + std::to_string(dst) + " " + abbr +
                    ", zoneinfo " + answers[i]);
      continue;
    }
    int32_t o[2], ds[2];
    std::string ab[2];
    a >> o[0] >> ds[0] >> ab[0] >> o[1] >> ds[1] >> ab[1];
    // Python: fold 0 is the earlier reading of a repeated time and the old
    // offset in a gap; the library's default is the later reading in a
    // repeated time, the old offset in a gap, and the earlier reading when
    // the caller names its offset.
    int want_default = o[0] > o[1] ? 1 : 0;
    overlaps += o[0] > o[1];
    gaps += o[0] < o[1];
    off = 0;
    int32_t st = ltzGetLocalA(img, q.id, &d, &off, abbr, sizeof abbr, &dst);
    int w = want_default;
    if (st != LTZ_OK || off != o[w] || dst != ds[w] || ab[w] != abbr)
      fail(q, "default: got " + std::to_string(st) + " " + std::to_string(off) + " " + std::to_string(dst) + " " +
                  abbr + ", zoneinfo " + answers[i]);
    // Zero means "no preference", so an earlier reading at UTC+0 cannot be
    // asked for; it then stays the later one.
    if (o[0] > o[1] && o[0] != 0) {
      off = o[0];
      st = ltzGetLocal(img, q.id, &d, &off, &dst);
      if (st != LTZ_OK || off != o[0] || dst != ds[0])
        fail(q, "earlier reading asked: got " + std::to_string(off) + ", zoneinfo " + answers[i]);
    }
    // The start hint never changes the answer.
    uint32_t idx = 0, idx2 = 0;
    int32_t off2 = 0;
    off = 0;
    ASSERT_EQ(ltzGetLocalByIndex(img, q.id, &d, &off, nullptr, 0, &dst, LTZ_NO_HINT, &idx), LTZ_OK);
    ASSERT_EQ(ltzGetLocalByIndex(img, q.id, &d, &off2, nullptr, 0, &dst, idx > 0 ? idx - 1 : 0, &idx2), LTZ_OK);
    if (off != off2 || idx != idx2) fail(q, "start hint changed the answer");
  }
  EXPECT_EQ(failures, 0u) << "of " << qs.size() << " queries";
  // The sample must really reach the hard cases.
  EXPECT_GT(overlaps, 1000u);
  EXPECT_GT(gaps, 1000u);
}

std::string vary(const std::string &n, int how) {
  std::string s = n;
  for (auto &c : s) {
    if (how == 1) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (how == 2) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (how == 3 && c == '_') c = '-';
    if (how == 3 && c == '-') c = '_';
  }
  return s;
}

TEST(TimezoneOracle, EverySystemNameIsFoundInAnySpelling) {
  const void *img = built_image();
  ASSERT_NE(img, nullptr);
  std::string path = tztest::temp_path("oracle_names.txt");
  ASSERT_TRUE(tztest::run_oracle("names > " + path));
  std::vector<std::string> names = tztest::read_lines(path);
  ASSERT_GT(names.size(), 500u);
  std::set<uint16_t> ids;
  size_t found = 0;
  for (const auto &n : names) {
    if (n == "localtime") continue;  // the host's own setting, not a region
    uint16_t id = 0;
    ASSERT_EQ(ltzID(img, n.data(), n.size(), &id), LTZ_OK) << n;
    EXPECT_TRUE(ids.insert(id).second) << n << " shares ID " << id;
    char back[LTZ_NAME_MAX];
    size_t len = 0;
    ASSERT_EQ(ltzName(img, id, back, sizeof back, &len), LTZ_OK) << n;
    EXPECT_EQ(std::string(back), n);
    EXPECT_EQ(len, n.size());
    for (int how = 1; how <= 3; ++how) {
      std::string v = vary(n, how);
      uint16_t id2 = 0;
      EXPECT_EQ(ltzID(img, v.data(), v.size(), &id2), LTZ_OK) << v;
      EXPECT_EQ(id2, id) << v;
    }
    ++found;
  }
  // Enumeration covers exactly these names, in the index's order.
  std::vector<Name> listed = all_names(img);
  EXPECT_EQ(listed.size(), found);
  for (size_t i = 1; i < listed.size(); ++i)
    EXPECT_LT(ltzCmp(listed[i - 1].name.c_str(), listed[i].name.c_str()), 0) << listed[i].name;
  // Near misses are not found.
  for (const char *miss : {"Europe/Pari", "Europe/Pariss", "", "Europe", "Europe/Paris/", "UTC "}) {
    uint16_t id = 7;
    EXPECT_EQ(ltzID(img, miss, std::strlen(miss), &id), LTZ_ERR_NOTFOUND) << miss;
    EXPECT_EQ(id, 0);
  }
}

TEST(TimezoneOracle, CheckedInIdsAreWhatTheImageUses) {
  const void *img = built_image();
  ASSERT_NE(img, nullptr);
  std::vector<std::string> lines = tztest::read_lines(std::string(KEL_SOURCE_DIR) + "/datetime/timezone/ids.txt");
  size_t n = 0;
  for (const auto &l : lines) {
    if (l.empty() || l[0] == '#') continue;
    std::istringstream s(l);
    unsigned id = 0;
    std::string name;
    s >> id >> name;
    uint16_t got = 0;
    ASSERT_EQ(ltzID(img, name.data(), name.size(), &got), LTZ_OK) << name;
    EXPECT_EQ(got, id) << name;
    ++n;
  }
  EXPECT_GT(n, 500u);
}

TEST(TimezoneOracle, HeaderCarriesTheDataRelease) {
  const void *img = built_image();
  ASSERT_NE(img, nullptr);
  std::ifstream zi("/usr/share/zoneinfo/tzdata.zi");
  std::string hash, word, release;
  zi >> hash >> word >> release;  // "# version 2025b"
  ASSERT_EQ(word, "version");
  uint16_t v = 0;
  ASSERT_EQ(ltzGetFileVersion(img, &v), LTZ_OK);
  EXPECT_EQ(v, 2);
  ASSERT_EQ(ltzGetFileContentVer(img, &v), LTZ_OK);
  EXPECT_EQ(v, std::stoi(release.substr(2, 2)) * 100 + (release[4] - 'a' + 1));
  uint16_t id1 = 0, id2 = 0;
  EXPECT_EQ(ltzGetFileID(img, &id1), LTZ_OK);
  EXPECT_EQ(ltzGetFileID(img, &id2), LTZ_OK);
  EXPECT_EQ(id1, id2);
}

TEST(TimezoneOracle, AfterTheLastTransitionTheLastStateHolds) {
  const void *img = built_image();
  ASSERT_NE(img, nullptr);
  for (const char *name : {"America/New_York", "Australia/Sydney", "Asia/Tokyo"}) {
    uint16_t id = 0;
    ASSERT_EQ(ltzID(img, name, std::strlen(name), &id), LTZ_OK);
    uint8_t *arr = nullptr;
    size_t len = 0;
    ASSERT_EQ(ltzGetTransArray(img, nullptr, nullptr, id, &arr, &len), LTZ_OK);
    const uint8_t *last = arr + len - 10;
    int32_t want_min = (last[7] - 20) * 60 + (last[8] - 60);
    uint8_t want_dst = last[9];
    ltzFreeTransArray(nullptr, nullptr, arr);
    for (int year : {2100, 9999}) {
      LdiDateTime t = tztest::stamp(year, 7, 1);
      int32_t off = 0;
      uint8_t dst = 9;
      uint32_t idx = 0;
      ASSERT_EQ(ltzGetIndex(img, id, &t, &off, nullptr, 0, &dst, &idx), LTZ_OK);
      EXPECT_EQ(off / 60, want_min) << name;
      EXPECT_EQ(dst, want_dst) << name;
      EXPECT_EQ(idx * 10 + 11, len) << name;
    }
  }
}

}  // namespace
