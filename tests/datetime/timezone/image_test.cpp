// The lookups on small hand-made images: statuses, the edge cases of IDs and
// transition lists, local-time resolution around known changes, damaged images.
#include <algorithm>
#include <cstring>
#include <functional>

#include "lmm.h"
#include "lpm.h"
#include "tests/datetime/datetime_test.h"

namespace {

using namespace dttest;

// An image built byte by byte from the published layout, independent of
// keltzc.
struct SynthRegion {
  uint16_t slot;
  std::vector<std::string> names;
  struct Tr {
    LdiDateTime at;
    int32_t offset;
    std::string abbr;
    uint8_t dst;
  };
  std::vector<Tr> trans;
};

struct SynthImage {
  std::vector<uint8_t> b;
  uint32_t off_index = 0, off_map = 0, off_types = 0;
  void put(size_t at, uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) b[at + static_cast<size_t>(i)] = static_cast<uint8_t>(v >> (8 * i));
  }
  void put16(size_t at, uint16_t v) { put(at, v, 2); }
  void put32(size_t at, uint32_t v) { put(at, v, 4); }
  // Appends `bytes` bytes of v (or a string and its NUL); returns where.
  uint32_t add(uint32_t v, int bytes) {
    b.resize(b.size() + static_cast<size_t>(bytes));
    put(b.size() - static_cast<size_t>(bytes), v, bytes);
    return static_cast<uint32_t>(b.size()) - static_cast<uint32_t>(bytes);
  }
  uint32_t add(const std::string &s) {
    b.insert(b.end(), s.c_str(), s.c_str() + s.size() + 1);
    return static_cast<uint32_t>(b.size() - s.size() - 1);
  }
  const void *data() const { return b.data(); }
};

// The header, then the name lists, the index (in ltzCmp order), the
// records, the map, one type per record, the abbreviations and the flags.
SynthImage build_synthetic(const std::vector<SynthRegion> &regions) {
  SynthImage im;
  im.b.assign(LTZ_HEADER_SIZE, 0);
  std::vector<std::pair<std::string, uint32_t>> index;  // a name and where it lies
  std::vector<uint16_t> ids;                             // its ID
  for (const auto &r : regions) {
    im.put32(40 + 8 * r.slot + 4, static_cast<uint32_t>(im.b.size()));
    for (size_t k = 0; k < r.names.size(); ++k)
      index.push_back({r.names[k], im.add(r.names[k])}), ids.push_back(static_cast<uint16_t>(r.slot | k << 9));
    im.add(0, 1);
  }
  std::vector<size_t> order(index.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(),
            [&](size_t x, size_t y) { return ltzCmp(index[x].first.c_str(), index[y].first.c_str()) < 0; });
  im.off_index = static_cast<uint32_t>(im.b.size());
  for (size_t i : order) im.add(index[i].second, 4), im.add(ids[i], 4);
  const uint32_t off_trans = static_cast<uint32_t>(im.b.size());
  uint16_t rec = 0;
  for (const auto &r : regions) {
    im.put16(40 + 8 * r.slot, static_cast<uint16_t>(r.trans.size()));
    im.put16(40 + 8 * r.slot + 2, rec);
    for (const auto &t : r.trans) {
      const auto *at = reinterpret_cast<const uint8_t *>(&t.at);
      im.b.insert(im.b.end(), at, at + 20), ++rec;
    }
  }
  im.off_map = static_cast<uint32_t>(im.b.size());
  for (uint16_t i = 0; i < rec; ++i) im.add(i, 2);
  im.off_types = static_cast<uint32_t>(im.b.size());
  for (const auto &r : regions)
    for (const auto &t : r.trans) im.add(static_cast<uint32_t>(t.offset), 4), im.add(0, 4);
  uint32_t type = im.off_types + 4;
  for (const auto &r : regions)
    for (const auto &t : r.trans) im.put32(type, im.add(t.abbr)), type += 8;
  const uint32_t off_dst = static_cast<uint32_t>(im.b.size());
  for (const auto &r : regions)
    for (const auto &t : r.trans) im.add(t.dst, 1);
  // Format 2, content version 1234, file ID 4321.
  const uint32_t head[] = {LTZ_MAGIC,    static_cast<uint32_t>(im.b.size()), 2 | 1234u << 16,
                           4321 | static_cast<uint32_t>(index.size()) << 16, 0, im.off_index, off_trans,
                           im.off_types, im.off_map, off_dst};
  for (size_t i = 0; i < std::size(head); ++i) im.put32(4 * i, head[i]);
  return im;
}

// A New York-like region (slot 5: "Test/West", alias "Test/West-Alias"), a
// Sydney-like one east of UTC (slot 6) and a 300-change region (slot 7).
SynthImage sample() {
  SynthRegion west{5, {"Test/West", "Test/West_Alias"}, {}};
  west.trans = {{stamp(1970, 1, 1), -18000, "EST", 0},
                {stamp(2021, 3, 14, 7), -14400, "EDT", 1},   // 02:00 EST -> 03:00 EDT
                {stamp(2021, 11, 7, 6), -18000, "EST", 0}};  // 02:00 EDT -> 01:00 EST
  SynthRegion east{6, {"Test/East"}, {}};
  east.trans = {{stamp(1970, 1, 1), 39600, "AEDT", 1},
                {stamp(2021, 4, 3, 16), 36000, "AEST", 0},   // 03:00 AEDT -> 02:00 AEST
                {stamp(2021, 10, 2, 16), 39600, "AEDT", 1}}; // 02:00 AEST -> 03:00 AEDT
  SynthRegion many{7, {"Test/Many"}, {}};
  for (int i = 0; i < 300; ++i)
    many.trans.push_back({stamp(1970 + i / 4, 1 + (i % 4) * 3, 1 + i % 28, i % 24, i % 60, i % 59),
                          (i % 2 ? -1 : 1) * (3600 * (i % 15) + 60 * (i % 7) * 5), "M" + std::to_string(i),
                          static_cast<uint8_t>(i % 2)});
  return build_synthetic({west, east, many});
}

TEST(TimezoneImage, StatusesOfTheHeaderAndIds) {
  SynthImage im = sample();
  const void *img = im.data();
  LdiDateTime t = stamp(2000, 1, 1);
  int32_t off = 0;
  char buf[64];
  uint16_t v = 0;
  EXPECT_EQ(ltzGetFileVersion(img, &v), LTZ_OK);
  EXPECT_EQ(v, 2);
  EXPECT_EQ(ltzGetFileContentVer(img, &v), LTZ_OK);
  EXPECT_EQ(v, 1234);
  EXPECT_EQ(ltzGetFileID(img, &v), LTZ_OK);
  EXPECT_EQ(v, 4321);

  // Every lookup by ID answers alike: out of range, an empty slot, or an
  // alias past the end of the slot's name list.
  const struct {
    uint16_t id;
    int32_t st;
  } cases[] = {
      {0, LTZ_ERR_RANGE}, {8192, LTZ_ERR_RANGE}, {65535, LTZ_ERR_RANGE},
      {4, LTZ_ERR_NOTFOUND}, {5 | 2 << 9, LTZ_ERR_NOTFOUND}, {6 | 1 << 9, LTZ_ERR_NOTFOUND},
      {8191, LTZ_ERR_NOTFOUND}, {5 | 1 << 9, LTZ_OK}, {6, LTZ_OK},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.id);
    char abbr[LTZ_ABBR_MAX];
    uint8_t dst = 0;
    uint32_t index = 0;
    EXPECT_EQ(ltzName(img, c.id, buf, sizeof buf, nullptr), c.st);
    EXPECT_EQ(ltzGet(img, c.id, &t, &off, nullptr, 0, nullptr), c.st);
    EXPECT_EQ(ltzGetIndex(img, c.id, &t, &off, abbr, sizeof abbr, &dst, &index), c.st);
    EXPECT_EQ(ltzGetLocal(img, c.id, &t, &off, nullptr), c.st);
    EXPECT_EQ(ltzGetLocalA(img, c.id, &t, &off, abbr, sizeof abbr, &dst), c.st);
    EXPECT_EQ(ltzGetLocalByIndex(img, c.id, &t, &off, abbr, sizeof abbr, &dst, 1, &index), c.st);
    uint8_t *arr = reinterpret_cast<uint8_t *>(1);
    size_t len = 99;
    EXPECT_EQ(ltzGetTransArray(img, nullptr, nullptr, c.id, &arr, &len), c.st);
    if (c.st != LTZ_OK) {
      EXPECT_EQ(arr, nullptr);
      EXPECT_EQ(len, 0u);
    }
    ltzFreeTransArray(nullptr, nullptr, arr);
  }
  ASSERT_EQ(ltzName(img, 5 | 1 << 9, buf, sizeof buf, nullptr), LTZ_OK);
  EXPECT_STREQ(buf, "Test/West_Alias");

  // Missing arguments and instants of the wrong kind.
  EXPECT_EQ(ltzGet(nullptr, 5, &t, &off, nullptr, 0, nullptr), LTZ_ERR_ARG);
  EXPECT_EQ(ltzGet(img, 5, nullptr, &off, nullptr, 0, nullptr), LTZ_ERR_ARG);
  EXPECT_EQ(ltzGet(img, 5, &t, nullptr, nullptr, 0, nullptr), LTZ_ERR_ARG);
  EXPECT_EQ(ltzGetFileVersion(nullptr, &v), LTZ_ERR_ARG);
  EXPECT_EQ(ltzID(img, nullptr, 0, &v), LTZ_ERR_ARG);
  for (uint8_t kind : {0, 1, 2, 4, 5, 7}) {
    LdiDateTime k = t;
    k.kind = kind;
    EXPECT_EQ(ltzGet(img, 5, &k, &off, nullptr, 0, nullptr), LTZ_ERR_IMAGE) << int(kind);
    EXPECT_EQ(ltzGetLocal(img, 5, &k, &off, nullptr), LTZ_ERR_IMAGE) << int(kind);
  }
  // Output areas that are too small.
  char small[3];
  EXPECT_EQ(ltzName(img, 5, small, sizeof small, nullptr), LTZ_ERR_SPACE);
  EXPECT_STREQ(small, "");
  EXPECT_EQ(ltzGet(img, 5, &t, &off, small, sizeof small, nullptr), LTZ_ERR_SPACE);
  char four[4];
  EXPECT_EQ(ltzGet(img, 5, &t, &off, four, sizeof four, nullptr), LTZ_OK);
  EXPECT_STREQ(four, "EST");
}

TEST(TimezoneImage, DamagedImagesGiveAStatusNotACrash) {
  // A damaged header is refused by every lookup with its status; a table or
  // string pointed past the end of the image (status 0 below) is noticed by
  // some lookup on the region it damages (slot 5), and no lookup crashes.
  const uint32_t end = static_cast<uint32_t>(sample().b.size());
  struct Case {
    const char *what;
    std::function<void(SynthImage &)> damage;
    int32_t status;
  } cases[] = {
      {"magic", [](SynthImage &m) { m.b[0] ^= 1; }, LTZ_ERR_IMAGE},
      {"format 3", [](SynthImage &m) { m.put16(8, 3); }, LTZ_ERR_VERSION},
      {"length below the header", [](SynthImage &m) { m.put32(4, 4147); }, LTZ_ERR_IMAGE},
      {"length over the limit", [](SynthImage &m) { m.put32(4, LTZ_MAX_IMAGE + 1); }, LTZ_ERR_IMAGE},
      {"index offset", [end](SynthImage &m) { m.put32(20, end - 4); }, 0},
      {"index count", [](SynthImage &m) { m.put16(14, 60000); }, 0},
      {"name offset in the index", [](SynthImage &m) { m.put32(m.off_index, 0xFFFFFFF0u); }, 0},
      {"name list offset", [end](SynthImage &m) { m.put32(40 + 8 * 5 + 4, end); }, 0},
      {"transition offset", [end](SynthImage &m) { m.put32(24, end - 20); }, 0},
      {"first record", [](SynthImage &m) { m.put16(40 + 8 * 5 + 2, 65535); }, 0},
      {"record count", [](SynthImage &m) { m.put16(40 + 8 * 5, 65535); }, 0},
      {"map offset", [](SynthImage &m) { m.put32(32, 0xFFFFFFFFu); }, 0},
      {"type offset", [end](SynthImage &m) { m.put32(28, end - 4); }, 0},
      {"type index", [](SynthImage &m) { m.put16(m.off_map, 0xFFFF); }, 0},
      {"flag offset", [end](SynthImage &m) { m.put32(36, end); }, 0},
      {"abbreviation offset", [](SynthImage &m) { m.put32(m.off_types + 8 + 4, 0x7FFFFFFF); }, 0},  // July's type
      {"unterminated abbreviation", [end](SynthImage &m) { m.put32(m.off_types + 8 + 4, end - 1), m.b.back() = 'X'; }, 0},
      {"unterminated names", [](SynthImage &m) {
         std::fill(m.b.begin() + 4148, m.b.end(), 'A');
         m.put32(40 + 8 * 5 + 4, m.off_index - 3);
         m.put32(20, m.off_index - 3);
       }, 0},
  };
  for (const auto &c : cases) {
    SynthImage im = sample();
    c.damage(im);
    const void *img = im.data();
    LdiDateTime t = stamp(2021, 7, 1);
    int32_t off = 0;
    char buf[64];
    uint16_t id = 0;
    uint8_t *arr = nullptr;
    size_t len = 0;
    const int32_t got[] = {ltzGet(img, 5, &t, &off, buf, sizeof buf, nullptr),
                           ltzGetLocalA(img, 5, &t, &off, buf, sizeof buf, nullptr),
                           ltzID(img, "Test/West", 9, &id),
                           ltzName(img, 5, buf, sizeof buf, nullptr),
                           ltzStep(img, 0, buf, sizeof buf, &id),
                           ltzGetTransArray(img, nullptr, nullptr, 5, &arr, &len),
                           ltzGetFileContentVer(img, &id)};
    ltzFreeTransArray(nullptr, nullptr, arr);
    int images = 0;
    for (size_t i = 0; i < std::size(got); ++i) {
      if (c.status) EXPECT_EQ(got[i], c.status) << c.what << " " << i;
      EXPECT_TRUE(got[i] == LTZ_OK || got[i] == LTZ_ERR_IMAGE || got[i] == LTZ_ERR_NOTFOUND || got[i] == c.status)
          << c.what << ": " << got[i];
      images += got[i] == LTZ_ERR_IMAGE;
    }
    if (!c.status) EXPECT_GT(images, 0) << c.what << ": no lookup noticed the damage";
  }
}

TEST(TimezoneImage, TransitionListOf300Changes) {
  SynthImage im = sample();
  uint8_t *arr = nullptr;
  size_t len = 0;
  ASSERT_EQ(ltzGetTransArray(im.data(), nullptr, nullptr, 7, &arr, &len), LTZ_OK);
  ASSERT_EQ(len, 3001u);
  EXPECT_EQ(arr[0], 44);  // 300 truncated to 8 bits
  for (int i = 0; i < 300; ++i) {
    const uint8_t *r = arr + 1 + 10 * i;
    int year = 1970 + i / 4;
    int32_t off = (i % 2 ? -1 : 1) * (3600 * (i % 15) + 60 * (i % 7) * 5);
    int32_t minutes = off / 60;
    uint8_t want[10] = {static_cast<uint8_t>(year / 100 + 100), static_cast<uint8_t>(year % 100 + 100),
                        static_cast<uint8_t>(1 + (i % 4) * 3), static_cast<uint8_t>(1 + i % 28),
                        static_cast<uint8_t>(i % 24 + 1), static_cast<uint8_t>(i % 60 + 1),
                        static_cast<uint8_t>(i % 59 + 1), static_cast<uint8_t>(minutes / 60 + 20),
                        static_cast<uint8_t>(minutes % 60 + 60), static_cast<uint8_t>(i % 2)};
    for (int k = 0; k < 10; ++k) ASSERT_EQ(r[k], want[k]) << "record " << i << " byte " << k;
  }
  ltzFreeTransArray(nullptr, nullptr, arr);

  // Out of memory: status 8, nothing returned.
  ASSERT_EQ(slfaultarm(SL_FAULT_MEM, 1, 1), 0);
  arr = reinterpret_cast<uint8_t *>(1);
  len = 5;
  EXPECT_EQ(ltzGetTransArray(im.data(), nullptr, nullptr, 7, &arr, &len), LTZ_ERR_NOMEM);
  EXPECT_EQ(arr, nullptr);
  EXPECT_EQ(len, 0u);
  slfaultreset();
}

TEST(TimezoneImage, UtcInstantsAroundChanges) {
  SynthImage im = sample();
  struct Case {
    uint16_t id;
    LdiDateTime at;
    int32_t off;
    const char *abbr;
    uint8_t dst;
    uint32_t index;
  } cases[] = {
      {5, stamp(1969, 12, 31, 23, 59, 59), -18000, "EST", 0, 0},  // before the first record
      {5, stamp(2021, 3, 14, 6, 59, 59), -18000, "EST", 0, 0}, {5, stamp(2021, 3, 14, 7), -14400, "EDT", 1, 1},
      {5, stamp(2300, 1, 1), -18000, "EST", 0, 2},  // after the last change
      {5 | 1 << 9, stamp(2021, 7, 1), -14400, "EDT", 1, 1}, {6, stamp(2021, 4, 3, 16), 36000, "AEST", 0, 1},
  };
  for (const auto &c : cases) {
    int32_t off = 0;
    char abbr[8];
    uint8_t dst = 9;
    uint32_t index = 99;
    ASSERT_EQ(ltzGetIndex(im.data(), c.id, &c.at, &off, abbr, sizeof abbr, &dst, &index), LTZ_OK);
    EXPECT_EQ(off, c.off) << c.at.year << "-" << int(c.at.month) << "-" << int(c.at.day) << " " << int(c.at.hour);
    EXPECT_STREQ(abbr, c.abbr);
    EXPECT_EQ(dst, c.dst);
    EXPECT_EQ(index, c.index);
  }
  // A time-only value (year, month, day zero) reads the first real state.
  LdiDateTime tonly = stamp(0, 0, 0, 12);
  int32_t off = 0;
  uint32_t index = 99;
  ASSERT_EQ(ltzGetIndex(im.data(), 5, &tonly, &off, nullptr, 0, nullptr, &index), LTZ_OK);
  EXPECT_EQ(off, -14400);
  EXPECT_EQ(index, 0u);
}

TEST(TimezoneImage, LocalTimesAroundChanges) {
  SynthImage im = sample();
  struct Case {
    uint16_t id;
    LdiDateTime local;
    int32_t offset_in;
    int32_t off;
    uint32_t index;
  } cases[] = {
      // West: spring forward 02:00 -> 03:00 on 14 March.
      {5, stamp(2021, 3, 14, 1, 59, 59), 0, -18000, 0},
      {5, stamp(2021, 3, 14, 2, 0, 0), 0, -18000, 0},  // in the gap: the clock that was running
      {5, stamp(2021, 3, 14, 2, 59, 59), 0, -18000, 0}, {5, stamp(2021, 3, 14, 3, 0, 0), 0, -14400, 1},
      {5, stamp(2021, 3, 14, 3, 0, 0), -18000, -14400, 1},  // a preference does not move a real time
      // West: fall back 02:00 -> 01:00 on 7 November; 01:00 ... 01:59 twice.
      {5, stamp(2021, 11, 7, 0, 59, 59), 0, -14400, 1}, {5, stamp(2021, 11, 7, 1, 0, 0), 0, -18000, 2},
      {5, stamp(2021, 11, 7, 1, 30, 0), -14400, -14400, 1}, {5, stamp(2021, 11, 7, 1, 59, 59), -14400, -14400, 1},
      {5, stamp(2021, 11, 7, 1, 59, 59), -18000, -18000, 2}, {5, stamp(2021, 11, 7, 1, 59, 59), 3600, -18000, 2},
      {5, stamp(2021, 11, 7, 2, 0, 0), -14400, -18000, 2},
      // East (+11 / +10): the local clock runs ahead of UTC.
      {6, stamp(2021, 4, 4, 1, 59, 59), 0, 39600, 0}, {6, stamp(2021, 4, 4, 2, 0, 0), 0, 36000, 1},
      {6, stamp(2021, 4, 4, 2, 30, 0), 39600, 39600, 0}, {6, stamp(2021, 4, 4, 3, 0, 0), 39600, 36000, 1},
      {6, stamp(2021, 10, 3, 1, 59, 59), 0, 36000, 1},
      {6, stamp(2021, 10, 3, 2, 30, 0), 0, 36000, 1},  // gap
      {6, stamp(2021, 10, 3, 3, 0, 0), 0, 39600, 2},
      {6, stamp(2021, 10, 2, 20, 0, 0), 0, 36000, 1},  // after the UTC instant, before the local change
  };
  for (const auto &c : cases) {
    for (uint32_t hint : {LTZ_NO_HINT, 0u, 1u, 2u}) {
      int32_t off = c.offset_in;
      uint32_t index = 99;
      ASSERT_EQ(ltzGetLocalByIndex(im.data(), c.id, &c.local, &off, nullptr, 0, nullptr, hint, &index), LTZ_OK);
      EXPECT_EQ(off, c.off) << c.id << " " << int(c.local.month) << "-" << int(c.local.day) << " "
                            << int(c.local.hour) << ":" << int(c.local.minute) << " hint " << hint;
      EXPECT_EQ(index, c.index) << c.id << " hint " << hint;
    }
  }
}

}  // namespace

// With a memory context the transition list is a block of the memory
// manager's heap: lmmfree takes it back (it refuses anything else), the
// contents equal the system-allocator list, and freeing through
// ltzFreeTransArray with the same heap is accepted.
TEST(TimezoneImage, TransitionListComesFromTheCallersHeap) {
  SynthImage im = sample();
  lcorectx *ctx = lpminit();
  ASSERT_NE(ctx, nullptr);
  void *mctx = ctx->lmmctx;
  lmmheap *heap = nullptr;
  ASSERT_EQ(lmmhpinit(mctx, &heap, lmmtophp(mctx), 0, nullptr, "tz", __LINE__, lmmgetstmfp()), 0);
  uint8_t *sys = nullptr, *mine = nullptr, *top = nullptr;
  size_t ls = 0, lm = 0, lt = 0;
  ASSERT_EQ(ltzGetTransArray(im.data(), nullptr, nullptr, 7, &sys, &ls), LTZ_OK);
  ASSERT_EQ(ltzGetTransArray(im.data(), mctx, heap, 7, &mine, &lm), LTZ_OK);
  ASSERT_EQ(ltzGetTransArray(im.data(), mctx, nullptr, 7, &top, &lt), LTZ_OK);
  ASSERT_EQ(lm, ls);
  ASSERT_EQ(lt, ls);
  EXPECT_EQ(std::memcmp(mine, sys, ls), 0);
  EXPECT_EQ(std::memcmp(top, sys, ls), 0);
  EXPECT_EQ(lmmfree(mctx, heap, mine, 0), 0) << "a block of the heap";
  EXPECT_EQ(lmmfree(mctx, heap, mine, 0), -1) << "and freed only once";
  ltzFreeTransArray(mctx, nullptr, top);
  ltzFreeTransArray(nullptr, nullptr, sys);
  // A list left in the heap goes with it.
  ASSERT_EQ(ltzGetTransArray(im.data(), mctx, heap, 7, &mine, &lm), LTZ_OK);
  EXPECT_EQ(lmmhpfree(mctx, heap, 0), 0);
  EXPECT_EQ(lpmterm(ctx), 0);
}
