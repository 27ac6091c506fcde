// Failure paths: every allocation and file request of a source refused in
// turn. Each run must end with a status (never a crash), free every token,
// leave the values as they were before the call, and leave the context
// usable.
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>

#include "sl.h"
#include "tests/param/param_fixture.h"
#include "tests/support/fault_walk.h"

namespace {

class Faults : public ParamTest {
 protected:
  void TearDown() override {
    slfaultreset();
    ParamTest::TearDown();
  }
  std::string Dump() {
    std::string d;
    lrmdtw(h, Collect, &d);
    return d;
  }
};

TEST_F(Faults, EveryRequestOfASourceRefused) {
  if (!kel_test::fault_points_built()) GTEST_SKIP() << "fault points are compiled in test builds only";
  static const lrmkey keys[] = {{"flag", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, nullptr},
                                {"n", LRM_T_INT, 0, 0, 0, 0, 0, "1", nullptr},
                                {"k", LRM_T_STRING, 1, 0, 0, 0, 0, nullptr, nullptr}};
  static const lrmkeyset set = {keys, 3, LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};
  const std::string dir = ::testing::TempDir();
  std::ofstream(dir + "/faults_inc.par") << "b = (x 'y' (z)) # two\n";
  const std::string top = dir + "/faults_top.par";
  std::ofstream(top) << "a = 1 # one\n@faults_inc.par\nsec:c = \"q\"\"q\" " << std::string(300, 'w') << "\n";
  const std::string cmd = "p1 'p 2' -flag -n 5 -k=(a \"b c\" (d)) -sec:k 7 t1";
  lrmsopt(h, LRM_OPT_COMMENTS);
  auto reset = [&] {
    ASSERT_EQ(lrmpsvp(h, &set), 0u);
    ASSERT_EQ(lrmspv(h, "k", 1, "before", 6), 0u);
  };
  reset();
  const std::string before = Dump();
  struct Source {
    const char *what;
    std::function<uint32_t()> read;
  } sources[] = {
      {"command line", [&] { return lrmpst(h, cmd.data(), cmd.size()); }},
      {"file with an include", [&] { return lrmpfi(h, top.c_str()); }},
  };
  for (const Source &s : sources) {
    SCOPED_TRACE(s.what);
    ASSERT_EQ(s.read(), 0u) << LastText();
    const std::string after = Dump();
    ASSERT_NE(after, before);
    reset();
    for (int32_t point : {SL_FAULT_MEM, SL_FAULT_FILE_OPEN, SL_FAULT_FILE_READ}) {
      int64_t failed = 0;
      kel_test::walk_failures(point, kel_test::Fail::Once, [&](int64_t) {
        lemces(lem);
        uint32_t st = s.read();
        if (slfaulthits(point) == 0) {
          slfaultarm(point, 0, 0);  // the walk ends: put the values back unhindered
          reset();
          return;
        }
        // A refused request either fails the call, which then stores
        // nothing, or is one the call can do without.
        EXPECT_EQ(lrm_internal::rec(h)->live_tokens, 0);
        if (st != 0) {
          failed++;
          EXPECT_TRUE(st == 106 || st == 113 || st == 114) << "status " << st;
          EXPECT_EQ(LastError(), static_cast<int32_t>(st));
          EXPECT_EQ(Dump(), before);
        } else {
          EXPECT_EQ(Dump(), after);
        }
        reset();
      });
      if (point == SL_FAULT_MEM) EXPECT_GT(failed, 20);
    }
  }
  FILE *f = fopen(top.c_str(), "w");
  fclose(f);
  slfaultarm(SL_FAULT_FILE_WRITE, 1, 1);
  EXPECT_EQ(lrmdtf(h, top.c_str()), 114u);
  EXPECT_EQ(LastError(), 114);
}

}  // namespace
