// keltzc as a program: region IDs survive new data, new names get new IDs
// the way users' data needs, and an image that cannot fit is refused.
#ifdef KEL_KELTZC
#include <cstring>
#include <set>

#include "tests/datetime/datetime_test.h"

namespace {

int run(const std::string &args, const std::string &err_file) {
  std::string cmd = std::string(KEL_KELTZC) + " " + args + " 2>" + err_file;
  return std::system(cmd.c_str());
}

TEST(TimezoneCompiler, IdsNeverChangeAndNewNamesGetFreeOnes) {
  const std::string table = std::string(KEL_SOURCE_DIR) + "/datetime/timezone/ids.txt";
  auto full = dttest::read_ids(table);
  ASSERT_GT(full.size(), 500u);
  // As if these names had appeared in a later data release.
  const std::set<std::string> fresh = {"Europe/Paris", "Asia/Tokyo", "US/Eastern", "Japan"};
  std::string trimmed = dttest::temp_path("ids_trimmed.txt"), out = dttest::temp_path("ids_out.txt");
  {
    std::ofstream f(trimmed);
    for (const auto &[name, id] : full)
      if (!fresh.count(name)) f << id << ' ' << name << '\n';
  }
  ASSERT_EQ(run("--ids " + trimmed + " --write-ids " + out, dttest::temp_path("ids_err.txt")), 0);
  auto kept = dttest::read_ids(trimmed);
  auto now = dttest::read_ids(out);
  EXPECT_EQ(now.size(), full.size());
  for (const auto &[name, id] : kept) EXPECT_EQ(now[name], id) << name;

  std::set<unsigned> used_slots;
  for (const auto &[name, id] : kept) used_slots.insert(id & 511);
  // New zones take slots nobody used; new links join their target's slot.
  for (const char *zone : {"Europe/Paris", "Asia/Tokyo"}) {
    ASSERT_TRUE(now.count(zone));
    EXPECT_EQ(now[zone] >> 9, 0u) << zone;
    EXPECT_FALSE(used_slots.count(now[zone] & 511)) << zone;
  }
  EXPECT_EQ(now["US/Eastern"] & 511, now["America/New_York"] & 511);
  EXPECT_EQ(now["Japan"] & 511, now["Asia/Tokyo"] & 511);
  std::set<unsigned> all;
  for (const auto &[name, id] : now) EXPECT_TRUE(all.insert(id).second) << name << " reuses " << id;

  // Nothing new: the table comes back as it was.
  ASSERT_EQ(run("--ids " + table + " --write-ids " + out, dttest::temp_path("ids_err.txt")), 0);
  EXPECT_EQ(dttest::read_ids(out), full);
}

// The compiler reports the years it covers, as the image's header holds
// them, and refuses years that cannot fit, naming the region and the year.
TEST(TimezoneCompiler, ReportsItsYearsAndRefusesYearsThatCannotFit) {
  const std::string ids = std::string(KEL_SOURCE_DIR) + "/datetime/timezone/ids.txt";
  std::string out = dttest::temp_path("keltzc_out.txt"), err = dttest::temp_path("keltzc_err.txt");
  std::string img = dttest::temp_path("keltzc.dat");
  ASSERT_EQ(run("--ids " + ids + " -o " + img + " >" + out, err), 0);
  std::string text;
  for (const auto &l : dttest::read_lines(out)) text += l;
  int first = 0, last = 0;
  const size_t at = text.find("years ");
  ASSERT_NE(at, std::string::npos) << text;
  ASSERT_EQ(std::sscanf(text.c_str() + at, "years %d ... %d", &first, &last), 2) << text;
  std::ifstream f(img, std::ios::binary);
  std::vector<uint8_t> head(LTZ_HEADER_SIZE);
  f.read(reinterpret_cast<char *>(head.data()), static_cast<std::streamsize>(head.size()));
  EXPECT_EQ(head[4136] | head[4137] << 8, first);
  EXPECT_EQ(head[4138] | head[4139] << 8, last);
  EXPECT_EQ(first, 1970);
  EXPECT_GE(last, 2050);

  EXPECT_NE(run("--ids " + ids + " --first-year 1900 --last-year 2100 -o " + img, err), 0);
  text.clear();
  for (const auto &l : dttest::read_lines(err)) text += l;
  EXPECT_NE(text.find("over the limit of 524288"), std::string::npos) << text;
  int year = 0;
  char region[64] = "";
  const size_t t = text.find("the transitions of ");
  ASSERT_NE(t, std::string::npos) << text;
  ASSERT_EQ(std::sscanf(text.c_str() + t, "the transitions of %63s from %d on do not fit", region, &year), 2) << text;
  uint16_t id = 0;
  EXPECT_EQ(ltzID(dttest::image(), region, std::strlen(region), &id), LTZ_OK) << region;
  EXPECT_GE(year, 1900);
  EXPECT_LE(year, 2100);
  // A damaged ID list is refused too, naming the line.
  std::string bad = dttest::temp_path("ids_bad.txt");
  std::ofstream(bad) << "1 Africa/Abidjan\n1 Africa/Accra\n";
  EXPECT_NE(run("--ids " + bad + " -o " + img, err), 0);
  text.clear();
  for (const auto &l : dttest::read_lines(err)) text += l;
  EXPECT_NE(text.find(":2:"), std::string::npos) << text;
}

}  // namespace
#endif
