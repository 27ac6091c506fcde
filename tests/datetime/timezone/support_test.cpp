// Around the lookups: the record layouts, name ordering, the EBCDIC tables, finding and loading the image.
#include <chrono>
#include <cstddef>
#include <cstring>
#include <random>
#include <sstream>
#include <thread>

#include "datetime/timezone/load_impl.h"
#include "tests/datetime/datetime_test.h"

namespace {

using namespace dttest;

// The records cross the interface and the datetime one is also the image's
// transition record, so every offset is fixed.
static_assert(sizeof(LdiDateTime) == 20);
static_assert(offsetof(LdiDateTime, year) == 0 && offsetof(LdiDateTime, month) == 2 &&
              offsetof(LdiDateTime, day) == 3 && offsetof(LdiDateTime, hour) == 4 &&
              offsetof(LdiDateTime, minute) == 5 && offsetof(LdiDateTime, second) == 6 &&
              offsetof(LdiDateTime, fraction) == 8 && offsetof(LdiDateTime, tzhour) == 12 &&
              offsetof(LdiDateTime, tzminute) == 13 && offsetof(LdiDateTime, kind) == 14 &&
              offsetof(LdiDateTime, flags) == 15 && offsetof(LdiDateTime, region) == 16);
static_assert(sizeof(LdiInterval) == 24);
static_assert(offsetof(LdiInterval, fraction) == 16 && offsetof(LdiInterval, kind) == 20 &&
              offsetof(LdiInterval, region) == 21);

TEST(TimezoneSupport, NameOrdering) {
  struct Case {
    const char *a, *b;
    int32_t want;
  } cases[] = {
      {"Europe/Paris", "europe/paris", 0}, {"America/Port-au-Prince", "AMERICA/PORT_AU_PRINCE", 0},
      {"America/New_York", "America/New-York", 0}, {"Etc/GMT", "Etc/GMT+1", -1},
      {"Etc/GMT+1", "Etc/GMT", 1}, {"Asia/Tokyo", "Asia/Tomsk", -1},
      {"a", "B", -1}, {"_", "-", 0}, {"", "", 0}, {"", "A", -1}, {nullptr, "A", -1}, {"A", nullptr, 1},
      {nullptr, nullptr, 0},                {"Z", "a", 1},  // 'z' after 'a' once folded
  };
  for (const auto &c : cases) {
    EXPECT_EQ(ltzCmp(c.a, c.b), c.want) << (c.a ? c.a : "(null)") << " vs " << (c.b ? c.b : "(null)");
  }
}

TEST(TimezoneSupport, EbcdicTablesMatchCodePage037) {
  std::string path = dttest::temp_path("oracle_cp037.txt");
  ASSERT_TRUE(dttest::run_tz_oracle("cp037 > " + path));
  std::istringstream in(dttest::read_lines(path).at(0));
  char ascii[128], ebc[128], back[128];
  for (int c = 0; c < 128; ++c) ascii[c] = static_cast<char>(c);
  ltzAscEbcConvert(ebc, ascii, 128);
  for (int c = 0; c < 128; ++c) {
    int want = -1;
    in >> want;
    EXPECT_EQ(static_cast<uint8_t>(ebc[c]), want) << "ASCII " << c;
  }
  ltzAscEbcConvertR(back, ebc, 128);
  EXPECT_EQ(std::memcmp(back, ascii, 128), 0);
  // In place, and the characters without a counterpart.
  char s[] = "Europe/Paris";
  ltzAscEbcConvert(s, s, sizeof s - 1);
  EXPECT_EQ(static_cast<uint8_t>(s[0]), 0xC5);
  ltzAscEbcConvertR(s, s, sizeof s - 1);
  EXPECT_STREQ(s, "Europe/Paris");
  char hi = static_cast<char>(0xE9), out = 0;
  ltzAscEbcConvert(&out, &hi, 1);
  EXPECT_EQ(static_cast<uint8_t>(out), 0x3F);
  char unmapped = static_cast<char>(0xFF);
  ltzAscEbcConvertR(&out, &unmapped, 1);
  EXPECT_EQ(out, 0x1A);
  // Either side missing: nothing is written.
  ltzAscEbcConvert(nullptr, s, 1);
  ltzAscEbcConvert(s, nullptr, 1);
  ltzAscEbcConvertR(nullptr, s, 1);
  ltzAscEbcConvertR(s, nullptr, 1);
  EXPECT_STREQ(s, "Europe/Paris");
}

struct EnvGuard {
  std::string tz, home;
  bool had_tz, had_home;
  EnvGuard() {
    char buf[1024];
    had_tz = slgetenv("KEL_TZFILE", buf, sizeof buf) >= 0;
    tz = had_tz ? buf : "";
    had_home = slgetenv("KELTAR_HOME", buf, sizeof buf) >= 0;
    home = had_home ? buf : "";
  }
  ~EnvGuard() {
    if (had_tz) slsetenv("KEL_TZFILE", tz.c_str(), 1); else slunsetenv("KEL_TZFILE");
    if (had_home) slsetenv("KELTAR_HOME", home.c_str(), 1); else slunsetenv("KELTAR_HOME");
  }
};

TEST(TimezoneSupport, FindingTheFile) {
  EnvGuard guard;
  std::string long_value(256, 'x');
  struct Case {
    const char *tzfile;  // null: unset
    const char *home;
    size_t buflen;
    int32_t want_len;
    const char *want;
  } cases[] = {
      {"/data/tz.dat", "/opt/kel", 512, 12, "/data/tz.dat"}, {"tz.dat", nullptr, 512, 6, "tz.dat"},
      {nullptr, "/opt/kel", 512, 38, "/opt/kel/kelcore/zoneinfo/timezlrg.dat"},
      {nullptr, "/opt/kel/", 512, 38, "/opt/kel/kelcore/zoneinfo/timezlrg.dat"}, {nullptr, nullptr, 512, -1, ""},
      {nullptr, "/opt/kel", 38, -1, ""},  // no room for the NUL
      {nullptr, "/opt/kel", 39, 38, "/opt/kel/kelcore/zoneinfo/timezlrg.dat"}, {"/data/tz.dat", nullptr, 12, -1, ""},
      {long_value.c_str(), "/opt/kel", 512, -1, ""},  // 256 characters: refused, no fallback
      {long_value.c_str() + 1, nullptr, 512, 255, long_value.c_str() + 1},
  };
  for (const auto &c : cases) {
    if (c.tzfile) slsetenv("KEL_TZFILE", c.tzfile, 1); else slunsetenv("KEL_TZFILE");
    if (c.home) slsetenv("KELTAR_HOME", c.home, 1); else slunsetenv("KELTAR_HOME");
    char buf[512];
    int32_t n = sldigpt(buf, c.buflen);
    EXPECT_EQ(n, c.want_len) << (c.tzfile ? "tz " : "- ") << (c.home ? c.home : "-") << " " << c.buflen;
    EXPECT_STREQ(buf, c.want);
  }
}

TEST(TimezoneSupport, CheckingAndLoadingFiles) {
  std::vector<uint8_t> head(LTZ_HEADER_SIZE, 0);
  auto put32 = [&](size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) head[at + i] = static_cast<uint8_t>(v >> (8 * i));
  };
  put32(0, LTZ_MAGIC);
  put32(4, 5000);
  EXPECT_EQ(sldigsz(head.data(), head.size()), 5000);
  EXPECT_EQ(sldigsz(head.data(), head.size() - 1), 3);
  EXPECT_EQ(sldigsz(nullptr, 0), 3);
  put32(4, LTZ_MAX_IMAGE + 1);
  EXPECT_EQ(sldigsz(head.data(), head.size()), 5);
  put32(4, LTZ_MAX_IMAGE);
  EXPECT_EQ(sldigsz(head.data(), head.size()), static_cast<int32_t>(LTZ_MAX_IMAGE));
  put32(0, 0x5A54654B);  // the magic in the wrong byte order
  EXPECT_EQ(sldigsz(head.data(), head.size()), 4);

  auto write = [](const std::string &path, const std::vector<uint8_t> &bytes) {
    FILE *f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  };
  std::string good = dttest::temp_path("load_good.dat"), bad = dttest::temp_path("load_bad.dat");
  // An image claiming more bytes than the file has is refused.
  put32(0, LTZ_MAGIC);
  put32(4, LTZ_HEADER_SIZE + 10);
  write(bad, head);
  head.resize(LTZ_HEADER_SIZE + 10);
  write(good, head);

  const uint8_t *img = nullptr;
  EXPECT_EQ(ltz_internal::load_image(good.c_str(), &img), LTZ_OK);
  ASSERT_NE(img, nullptr);
  EXPECT_EQ(std::memcmp(img, head.data(), head.size()), 0);
  ss_mem_fre(const_cast<uint8_t *>(img));
  EXPECT_EQ(ltz_internal::load_image(bad.c_str(), &img), LTZ_ERR_IMAGE);
  EXPECT_EQ(img, nullptr);
  EXPECT_EQ(ltz_internal::load_image(dttest::temp_path("no_such_file.dat").c_str(), &img), LTZ_ERR_NOTFOUND);
  struct Fault {
    int32_t point;
    int32_t want;
  } faults[] = {{SL_FAULT_MEM, LTZ_ERR_NOMEM}, {SL_FAULT_FILE_OPEN, LTZ_ERR_NOTFOUND},
                {SL_FAULT_FILE_READ, LTZ_ERR_NOTFOUND}};
  for (const auto &f : faults) {
    if (slfaultarm(f.point, 1, 1) != 0) GTEST_SKIP() << "no fault points in this build";
    EXPECT_EQ(ltz_internal::load_image(good.c_str(), &img), f.want) << f.point;
    EXPECT_EQ(img, nullptr);
    slfaultreset();
  }
}

TEST(TimezoneSupport, OneImagePerProcessFromManyThreads) {
  slsetenv("KEL_TZFILE", KEL_TZFILE, 1);
  const void *seen[8] = {};
  int32_t st[8] = {};
  std::vector<std::thread> ts;
  for (int i = 0; i < 8; ++i) ts.emplace_back([&, i] { st[i] = ltzGetImage(&seen[i]); });
  for (auto &t : ts) t.join();
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(st[i], LTZ_OK);
    EXPECT_EQ(seen[i], seen[0]);
  }
  EXPECT_NE(seen[0], nullptr);
  EXPECT_EQ(ltzGetImage(nullptr), LTZ_ERR_ARG);
}

}  // namespace
