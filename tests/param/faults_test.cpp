// Failure paths: memory and file faults injected through the system layer.
// Every run must end with a status (never a crash), free every token, and
// leave the context usable.
#include <cstdio>
#include <fstream>
#include <string>

#include "sl.h"
#include "tests/param/param_fixture.h"

namespace {

class Faults : public ParamTest {
 protected:
  void TearDown() override {
    slfaultreset();
    ParamTest::TearDown();
  }
};

const lrmkeyset kAny = {nullptr, 0, LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};

TEST_F(Faults, EveryAllocationFailureDuringParse) {
#ifndef KEL_TEST_HOOKS
  GTEST_SKIP() << "fault points are compiled in test builds only";
#else
  const std::string in =
      "p1 'p 2' -flag -n 5 -k=(a \"b c\" (d)) t1\n";
  const std::string file = "a = 1 # one\nsec:b = (x 'y' (z)) # two\nc = \"q\"\"q\"\n";
  static const lrmkey keys[] = {{"flag", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, nullptr},
                                {"n", LRM_T_INT, 0, 0, 0, 0, 0, nullptr, nullptr},
                                {"k", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr}};
  static const lrmkeyset set = {keys, 3, LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};
  auto *c = lrm_internal::rec(h);
  lrmsopt(h, LRM_OPT_COMMENTS);
  for (int pass = 0; pass < 2; pass++) {
    const std::string &text = pass == 0 ? in : file;
    ASSERT_EQ(lrmpsvp(h, &set), 0u);
    c->allocs = 0;
    ASSERT_EQ(pass == 0 ? lrmpst(h, text.data(), text.size())
                        : lrm_internal::parse_text(c, text.data(), text.size(), 2, "f", 1), 0u);
    int64_t total = c->allocs;
    ASSERT_GT(total, 10);
    std::string want;
    lrmdtw(h, Collect, &want);
    for (int64_t nth = 1; nth <= total; nth++) {
      ASSERT_EQ(lrmpsvp(h, &set), 0u);
      lemces(lem);
      c->fail_alloc_at = nth;
      uint32_t st = pass == 0 ? lrmpst(h, text.data(), text.size())
                              : lrm_internal::parse_text(c, text.data(), text.size(), 2, "f", 1);
      c->fail_alloc_at = 0;
      EXPECT_TRUE(st == 106 || st == 109) << "status " << st << " at allocation " << nth;
      EXPECT_EQ(c->live_tokens, 0) << "allocation " << nth;
      // The context is still usable: the same input parses in full.
      ASSERT_EQ(lrmpsvp(h, &set), 0u);
      ASSERT_EQ(pass == 0 ? lrmpst(h, text.data(), text.size())
                          : lrm_internal::parse_text(c, text.data(), text.size(), 2, "f", 1), 0u) << nth;
      std::string got;
      lrmdtw(h, Collect, &got);
      EXPECT_EQ(got, want) << nth;
    }
  }
#endif
}

TEST_F(Faults, FileFailures) {
#ifndef KEL_TEST_HOOKS
  GTEST_SKIP() << "fault points are compiled in test builds only";
#endif
  ASSERT_EQ(lrmpsvp(h, &kAny), 0u);
  std::string path = "/tmp/kel_param_faults.par";
  std::ofstream(path) << "a = 1\n";
  EXPECT_EQ(lrmpfi(h, path.c_str()), 0u);
  slfaultarm(SL_FAULT_FILE_OPEN, 1, 1);
  EXPECT_EQ(lrmpfi(h, path.c_str()), 113u);
  EXPECT_EQ(LastError(), 113);
  slfaultarm(SL_FAULT_FILE_READ, 1, 1);
  EXPECT_EQ(lrmpfi(h, path.c_str()), 114u);
  slfaultarm(SL_FAULT_FILE_WRITE, 1, 1);
  EXPECT_EQ(lrmdtf(h, path.c_str()), 114u);
  slfaultreset();
  EXPECT_EQ(Str("a"), "1");
  std::remove(path.c_str());
}

}  // namespace
