// keltzc as a program: region IDs survive new data, new names get new IDs
// the way users' data needs, and an image that cannot fit is refused.
#ifdef KEL_KELTZC
#include <map>
#include <set>
#include <sstream>

#include "tz_test_util.h"

namespace {

std::map<std::string, unsigned> read_ids(const std::string &path) {
  std::map<std::string, unsigned> ids;
  for (const auto &l : tztest::read_lines(path)) {
    if (l.empty() || l[0] == '#') continue;
    std::istringstream s(l);
    unsigned id = 0;
    std::string name;
    s >> id >> name;
    ids[name] = id;
  }
  return ids;
}

int run(const std::string &args, const std::string &err_file) {
  std::string cmd = std::string(KEL_KELTZC) + " " + args + " 2>" + err_file;
  return std::system(cmd.c_str());
}

TEST(TimezoneCompiler, IdsNeverChangeAndNewNamesGetFreeOnes) {
  const std::string table = std::string(KEL_SOURCE_DIR) + "/datetime/timezone/ids.txt";
  auto full = read_ids(table);
  ASSERT_GT(full.size(), 500u);
  // As if these names had appeared in a later data release.
  const std::set<std::string> fresh = {"Europe/Paris", "Asia/Tokyo", "US/Eastern", "Japan"};
  std::string trimmed = tztest::temp_path("ids_trimmed.txt"), out = tztest::temp_path("ids_out.txt");
  {
    std::ofstream f(trimmed);
    for (const auto &[name, id] : full)
      if (!fresh.count(name)) f << id << ' ' << name << '\n';
  }
  ASSERT_EQ(run("--ids " + trimmed + " --write-ids " + out, tztest::temp_path("ids_err.txt")), 0);
  auto kept = read_ids(trimmed);
  auto now = read_ids(out);
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
  ASSERT_EQ(run("--ids " + table + " --write-ids " + out, tztest::temp_path("ids_err.txt")), 0);
  EXPECT_EQ(read_ids(out), full);
}

TEST(TimezoneCompiler, AnImageThatCannotFitIsRefused) {
  std::string err = tztest::temp_path("keltzc_err.txt"), img = tztest::temp_path("too_big.dat");
  EXPECT_NE(run("--ids " + std::string(KEL_SOURCE_DIR) + "/datetime/timezone/ids.txt --first-year 1900 --last-year 2100 -o " +
                    img,
                err),
            0);
  std::string text;
  for (const auto &l : tztest::read_lines(err)) text += l;
  EXPECT_NE(text.find("over the limit of 524288"), std::string::npos) << text;
  EXPECT_NE(text.find("--first-year"), std::string::npos) << text;
  // A damaged ID table is refused too, naming the line.
  std::string bad = tztest::temp_path("ids_bad.txt");
  std::ofstream(bad) << "1 Africa/Abidjan\n1 Africa/Accra\n";
  EXPECT_NE(run("--ids " + bad + " -o " + img, err), 0);
  text.clear();
  for (const auto &l : tztest::read_lines(err)) text += l;
  EXPECT_NE(text.find(":2:"), std::string::npos) << text;
}

}  // namespace
#endif
