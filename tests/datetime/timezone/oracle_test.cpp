// The built image against the system's own zoneinfo read by Python's
// zoneinfo module (tz_oracle.py): every name, over every year the image
// claims (the first and last year in its header), and before that for the
// regions it carries further back. Offsets, abbreviations and daylight
// flags at UTC instants and at local times around every transition
// (repeated and skipped times included), and at random instants; then the
// names, the committed IDs and the header.
#include <cinttypes>
#include <cstdio>
#include <random>
#include <set>
#include <sstream>

#include "datetime/calendar/calendar_impl.h"
#include "datetime/timezone/image_impl.h"
#include "tests/datetime/datetime_test.h"

namespace {

namespace cal = ldx_internal;
using namespace dttest;

struct Name {
  std::string name;
  uint16_t id;
};

std::vector<Name> all_names(const void *img) {
  std::vector<Name> out;
  char buf[LTZ_NAME_MAX];
  uint16_t id = 0;
  for (uint32_t i = 0; ltzStep(img, i, buf, sizeof buf, &id) == LTZ_OK; ++i) out.push_back({buf, id});
  return out;
}

int64_t epoch_of(int y, int m, int d, int hh = 0, int mi = 0, int ss = 0) {
  return cal::to_seconds(y, m, d, hh, mi, ss) - cal::kUnixEpochSecs;
}

LdiDateTime from_epoch(int64_t t) {
  cal::Civil c{};
  cal::from_seconds(t + cal::kUnixEpochSecs, &c);
  return dttest::stamp(c.year, c.month, c.day, c.hour, c.minute, c.second);
}

// A region's records from its external list: UTC instant (epoch seconds)
// and offset in whole minutes.
struct Record {
  int64_t at;
  int32_t minutes;
};
std::vector<Record> records(const void *img, uint16_t id) {
  uint8_t *arr = nullptr;
  size_t len = 0;
  std::vector<Record> out;
  EXPECT_EQ(ltzGetTransArray(img, nullptr, nullptr, id, &arr, &len), LTZ_OK) << id;
  for (size_t p = 1; p + 10 <= len; p += 10)
    out.push_back({epoch_of(arr[p] * 100 + arr[p + 1] - 10100, arr[p + 2], arr[p + 3], arr[p + 4] - 1,
                            arr[p + 5] - 1, arr[p + 6] - 1),
                   (arr[p + 7] - 20) * 60 + (arr[p + 8] - 60)});
  ltzFreeTransArray(nullptr, nullptr, arr);
  return out;
}

struct Query {
  bool utc;
  const Name *name;
  int64_t t;  // UTC epoch, or local seconds counted the same way
};

TEST(TimezoneOracle, EveryRegionAgreesWithZoneinfoOverTheClaimedYears) {
  const void *img = image();
  ASSERT_NE(img, nullptr);
  const auto *h = static_cast<const uint8_t *>(img);
  const int first = h[ltz_internal::kOffFirstYear] | h[ltz_internal::kOffFirstYear + 1] << 8;
  const int last = h[ltz_internal::kOffLastYear] | h[ltz_internal::kOffLastYear + 1] << 8;
  ASSERT_LE(first, 1970);
  ASSERT_GE(last, 2050);
  const std::vector<Name> names = all_names(img);
  ASSERT_GT(names.size(), 500u);

  const int64_t lo = epoch_of(first, 1, 1), hi = epoch_of(last + 1, 1, 1) - 1;
  std::mt19937_64 rng(20251121);
  std::vector<Query> qs;
  std::set<uint32_t> slots_done;
  size_t carried_back = 0;
  for (const Name &n : names) {
    std::vector<Record> rec = records(img, n.id);
    ASSERT_FALSE(rec.empty()) << n.name;
    // A region carried further back is exact from its first change on. (A
    // first record may also stand earlier because the region's records are
    // the end of another region's.)
    int64_t from = rec.size() > 1 && rec[0].at < lo ? std::min(lo, rec[1].at) : lo;
    carried_back += from < lo;
    std::uniform_int_distribution<int64_t> when(std::max<int64_t>(from, epoch_of(1800, 1, 1)), hi);
    for (int i = 0; i < 16; ++i) qs.push_back({true, &n, when(rng)}), qs.push_back({false, &n, when(rng)});
    if (!slots_done.insert(n.id & 511).second) continue;
    // Around every change, on both clocks: the two readings of the local
    // clock (before and after), one second before each, and between them.
    for (size_t j = 1; j < rec.size(); ++j) {
      const int64_t t = rec[j].at;
      if (t < from || t > hi) continue;
      qs.push_back({true, &n, t - 1});
      qs.push_back({true, &n, t});
      // Local times are resolved on offsets in whole minutes: around a
      // change from or to an offset with seconds (the local mean times of
      // the 19th century) the clocks' readings differ by those seconds.
      int32_t before = 0, after = 0;
      LdiDateTime u0 = from_epoch(t - 1), u1 = from_epoch(t);
      ASSERT_EQ(ltzGet(img, n.id, &u0, &before, nullptr, 0, nullptr), LTZ_OK);
      ASSERT_EQ(ltzGet(img, n.id, &u1, &after, nullptr, 0, nullptr), LTZ_OK);
      if (before % 60 || after % 60) continue;
      const int64_t a = t + before, b = t + after;
      for (int64_t l : {a - 1, a, b - 1, b, (a + b) / 2}) qs.push_back({false, &n, l});
    }
  }
  EXPECT_GT(carried_back, 0u);

  std::string qpath = dttest::temp_path("oracle_queries.txt"), apath = dttest::temp_path("oracle_answers.txt");
  {
    FILE *f = std::fopen(qpath.c_str(), "w");
    ASSERT_NE(f, nullptr);
    for (const auto &q : qs) {
      LdiDateTime d = from_epoch(q.t);
      if (q.utc)
        std::fprintf(f, "U %s %" PRId64 "\n", q.name->name.c_str(), q.t);
      else
        std::fprintf(f, "L %s %d %d %d %d %d %d\n", q.name->name.c_str(), d.year, d.month, d.day, d.hour, d.minute,
                     d.second);
    }
    std::fclose(f);
  }
  ASSERT_TRUE(dttest::run_tz_oracle(qpath + " " + apath));
  const std::vector<std::string> answers = dttest::read_lines(apath);
  ASSERT_EQ(answers.size(), qs.size());

  size_t failures = 0, overlaps = 0, gaps = 0;
  auto fail = [&](const Query &q, const std::string &got, const std::string &want) {
    if (++failures <= 20)
      ADD_FAILURE() << q.name->name << (q.utc ? " UTC " : " local ") << dttest::fields(from_epoch(q.t)) << ": got "
                    << got << ", zoneinfo " << want;
  };
  for (size_t i = 0; i < qs.size(); ++i) {
    const Query &q = qs[i];
    const uint16_t id = q.name->id;
    std::istringstream a(answers[i]);
    LdiDateTime d = from_epoch(q.t);
    char abbr[LTZ_ABBR_MAX] = "";
    int32_t off = 0;
    uint8_t dst = 9;
    auto got = [&](int32_t st) {
      return std::to_string(st) + " " + std::to_string(off) + " " + std::to_string(dst) + " " + abbr;
    };
    if (q.utc) {
      int32_t want_off = 0, want_dst = 0;
      std::string want_abbr;
      a >> want_off >> want_dst >> want_abbr;
      int32_t st = ltzGet(img, id, &d, &off, abbr, sizeof abbr, &dst);
      if (st != LTZ_OK || off != want_off || dst != want_dst || want_abbr != abbr) fail(q, got(st), answers[i]);
      continue;
    }
    // Python's fold 0 is the earlier reading of a repeated time and the old
    // offset in a skipped one. The library takes the later reading of a
    // repeated time unless the caller names the earlier offset (zero names
    // none, so an earlier reading of UTC+0 stays the later one), and the old
    // offset in a skipped time.
    int32_t o[2], ds[2];
    std::string ab[2];
    a >> o[0] >> ds[0] >> ab[0] >> o[1] >> ds[1] >> ab[1];
    overlaps += o[0] > o[1];
    gaps += o[0] < o[1];
    const int w = o[0] > o[1] ? 1 : 0;
    int32_t st = ltzGetLocalA(img, id, &d, &off, abbr, sizeof abbr, &dst);
    if (st != LTZ_OK || off != o[w] || dst != ds[w] || ab[w] != abbr) fail(q, got(st), answers[i]);
    if (o[0] > o[1] && o[0] != 0) {
      off = o[0];
      st = ltzGetLocal(img, id, &d, &off, &dst);
      if (st != LTZ_OK || off != o[0] || dst != ds[0]) fail(q, "earlier asked: " + got(st), answers[i]);
    }
    // The start hint never changes the answer.
    uint32_t idx = 0, idx2 = 0;
    int32_t off2 = 0;
    off = 0;
    ASSERT_EQ(ltzGetLocalByIndex(img, id, &d, &off, nullptr, 0, &dst, LTZ_NO_HINT, &idx), LTZ_OK);
    ASSERT_EQ(ltzGetLocalByIndex(img, id, &d, &off2, nullptr, 0, &dst, idx > 0 ? idx - 1 : 0, &idx2), LTZ_OK);
    if (off != off2 || idx != idx2) fail(q, "hint " + std::to_string(off2), std::to_string(off));
  }
  EXPECT_EQ(failures, 0u) << "of " << qs.size() << " queries";
  // The sample must reach the hard cases.
  EXPECT_GT(overlaps, 1000u);
  EXPECT_GT(gaps, 1000u);
}

TEST(TimezoneOracle, EverySystemNameIsFoundInAnySpelling) {
  const void *img = image();
  ASSERT_NE(img, nullptr);
  std::string path = dttest::temp_path("oracle_names.txt");
  ASSERT_TRUE(dttest::run_tz_oracle("names > " + path));
  std::vector<std::string> names = dttest::read_lines(path);
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
    std::string up = n, low = n, dash = n;
    for (auto &c : up) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    for (auto &c : low) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (auto &c : dash) c = c == '_' ? '-' : c == '-' ? '_' : c;
    for (const std::string &v : {up, low, dash}) {
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
  for (const char *miss : {"Europe/Pari", "Europe/Pariss", "", "Europe", "Europe/Paris/", "UTC "}) {
    uint16_t id = 7;
    EXPECT_EQ(ltzID(img, miss, std::strlen(miss), &id), LTZ_ERR_NOTFOUND) << miss;
    EXPECT_EQ(id, 0);
  }
}

// The committed IDs are the image's, and the header names the data release.
TEST(TimezoneOracle, CommittedIdsAndTheDataRelease) {
  const void *img = image();
  ASSERT_NE(img, nullptr);
  const auto ids = dttest::read_ids(std::string(KEL_SOURCE_DIR) + "/datetime/timezone/ids.txt");
  for (const auto &[name, id] : ids) {
    uint16_t got = 0;
    ASSERT_EQ(ltzID(img, name.data(), name.size(), &got), LTZ_OK) << name;
    EXPECT_EQ(got, id) << name;
  }
  EXPECT_GT(ids.size(), 500u);
  std::ifstream zi("/usr/share/zoneinfo/tzdata.zi");
  std::string hash, word, release;
  zi >> hash >> word >> release;  // "# version 2025b"
  ASSERT_EQ(word, "version");
  uint16_t v = 0;
  ASSERT_EQ(ltzGetFileContentVer(img, &v), LTZ_OK);
  EXPECT_EQ(v, std::stoi(release.substr(2, 2)) * 100 + (release[4] - 'a' + 1));
}

}  // namespace
