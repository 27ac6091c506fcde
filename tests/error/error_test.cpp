// The error manager: facilities, per-thread stacks, marks, message texts and
// frames.
#include <gtest/gtest.h>

#include <atomic>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "lem.h"
#include "lpm.h"
#include "sl.h"
#include "tests/support/library.h"

namespace {

class Errors : public kel_test::StartedLibrary {
 protected:
  void SetUp() override {
    StartedLibrary::SetUp();
    if (HasFatalFailure()) return;
    fac = lemfaa(lem, nullptr, "KELCORE", "LPM", 3, 4);
    ASSERT_NE(fac, nullptr);
  }
  void TearDown() override {
    if (fac != nullptr) EXPECT_EQ(lemfaf(lem, fac), 0);
    StartedLibrary::TearDown();
  }
  lemfac *fac = nullptr;
};

// The catalogue text of a message, read from the source tree's message file:
// the oracle for what lemgem substitutes into.
std::string catalogue_text(const char *file, int num) {
  std::ifstream in(std::string(KEL_SOURCE_DIR) + "/nls/messages/" + file);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    size_t comma = line.find(',');
    if (std::stoi(line.substr(0, comma)) == num) return line.substr(comma + 2);
  }
  return {};
}

std::string gem(void *lem, int i) {
  char buf[1024];
  int32_t n = lemgem(lem, i, buf, sizeof buf);
  EXPECT_EQ(n, static_cast<int32_t>(strlen(buf)));
  return buf;
}

TEST_F(Errors, FacilityArguments) {
  struct Case {
    const char *product, *facility;
    int32_t a, b;
    bool ok;
  } cases[] = {
      {"KELCORE", "XYZ", 3, 4, true}, {nullptr, "XYZ", 3, 4, false}, {"KELCORE", nullptr, 3, 4, false},
      {"KELCORE", "XYZ", 0, 4, false}, {"KELCORE", "XYZ", 3, 0, false}, {"", "XYZ", 3, 4, false},
  };
  for (const Case &c : cases) {
    lemfac *f = lemfaa(lem, nullptr, c.product, c.facility, c.a, c.b);
    EXPECT_EQ(f != nullptr, c.ok);
    if (f) EXPECT_EQ(lemfaf(lem, f), 0);
  }
  EXPECT_EQ(lemfaa(nullptr, nullptr, "KELCORE", "XYZ", 3, 4), nullptr);
}

TEST_F(Errors, RecordAndReadBack) {
  lemrec(lem, fac, 31, 2, LEM_ARG_TEXT, "mypkg", LEM_ARG_END);
  lemric(lem, fac, 77, 1, LEM_ARG_TEXT, "In place: broke", LEM_ARG_END);
  lemrec(lem, fac, 91, 3, LEM_ARG_TEXT, "averyveryverylongname", LEM_ARG_NUM, int64_t{16}, LEM_ARG_END);
  lemrec(lem, fac, 60, 1, LEM_ARG_INT, int64_t{4242}, LEM_ARG_END);
  ASSERT_EQ(lemged(lem), 4);
  struct Row {
    int i;
    int32_t msg, sev, sub, nargs;
  } rows[] = {{1, 60, 1, 0, 1}, {2, 91, 3, 0, 2}, {3, 3, 1, 77, 1}, {4, 31, 2, 0, 1}};
  for (const Row &r : rows) {
    EXPECT_EQ(lemgec(lem, r.i), r.msg) << r.i;
    EXPECT_EQ(lemgsv(lem, r.i), r.sev) << r.i;
    EXPECT_EQ(lemgsc(lem, r.i), r.sub) << r.i;
    EXPECT_EQ(lemgep(lem, r.i), r.nargs) << r.i;
    EXPECT_EQ(lemget(lem, r.i), LEM_TYPE_MSG);
  }
  EXPECT_EQ(lemgia(lem, 1), 4242);
  EXPECT_EQ(lemgia(lem, 2), -1);
  int64_t num = 0;
  const char *text = nullptr;
  EXPECT_EQ(lemgnp(lem, 2, 1, &num, &text), LEM_ARG_TEXT);
  EXPECT_STREQ(text, "averyveryverylongname");
  EXPECT_EQ(lemgnp(lem, 2, 2, &num, &text), LEM_ARG_NUM);
  EXPECT_EQ(num, 16);
  EXPECT_EQ(lemgnp(lem, 2, 3, &num, &text), 0);
  char buf[16];
  EXPECT_EQ(lemgef(lem, 1, buf, sizeof buf), 3);
  EXPECT_STREQ(buf, "LPM");
  EXPECT_EQ(lemgpd(lem, 1, buf, sizeof buf), 7);
  EXPECT_STREQ(buf, "KELCORE");
  EXPECT_EQ(lemgpd(lem, 1, buf, 4), 3);
  EXPECT_STREQ(buf, "KEL");
  // Out of range.
  EXPECT_EQ(lemgec(lem, 0), -1);
  EXPECT_EQ(lemget(lem, 0), LEM_TYPE_NONE);
  EXPECT_EQ(lemget(lem, 5), LEM_TYPE_NONE);
  EXPECT_EQ(lemgec(lem, 5), -1);
  EXPECT_EQ(lemgef(lem, 0, buf, sizeof buf), 0);
  EXPECT_EQ(lemgef(lem, 1, buf, 0), 0);
  EXPECT_EQ(lemgec(nullptr, 1), -1);
  EXPECT_EQ(lemged(nullptr), 0);
  // Removal.
  EXPECT_EQ(lemdec(lem, 2), 0);
  EXPECT_EQ(lemged(lem), 3);
  EXPECT_EQ(lemgec(lem, 2), 3);
  lemces(lem);
  EXPECT_EQ(lemged(lem), 0);
}

TEST_F(Errors, RefusedRecords) {
  lemrec(lem, fac, 0, 1, LEM_ARG_END);
  lemric(lem, fac, 0, 1, LEM_ARG_TEXT, "x", LEM_ARG_END);
  lemrec(lem, fac, 3, 1, LEM_ARG_END);  // internal message with sub-code 0
  lemrec(nullptr, fac, 31, 1, LEM_ARG_END);
  lemrec(lem, nullptr, 31, 1, LEM_ARG_END);
  EXPECT_EQ(lemged(lem), 0);
}

TEST_F(Errors, OneMarkPerOperation) {
  uint8_t flag = 0;
  lemprc(lem, fac, 31, 0, 1, &flag, LEM_ARG_TEXT, "a", LEM_ARG_END);
  lemprc(lem, fac, 32, 0, 1, &flag, LEM_ARG_TEXT, "b", LEM_ARG_END);
  EXPECT_EQ(lwemnmk(lem), 1);
  EXPECT_EQ(lwemimk(lem, 2), 1) << "the first failure carries the mark";
  EXPECT_EQ(lwemimk(lem, 1), 0);
  EXPECT_EQ(lwemimk(lem, 3), -1);
  lemmrk(lem);
  EXPECT_EQ(lwemnmk(lem), 2);
  lemcmk(lem);
  EXPECT_EQ(lwemimk(lem, 1), 0);
  EXPECT_EQ(lwemimk(lem, 2), 1);
}

TEST_F(Errors, MessageTexts) {
  lemrec(lem, fac, 31, 1, LEM_ARG_TEXT, "mypkg", LEM_ARG_END);
  char expect[512];
  snprintf(expect, sizeof expect, catalogue_text("kelcore_lpm.msg", 31).c_str(), "mypkg");
  EXPECT_EQ(gem(lem, 1), expect);

  lemrec(lem, fac, 91, 1, LEM_ARG_TEXT, "n17characterslong", LEM_ARG_NUM, int64_t{16}, LEM_ARG_END);
  snprintf(expect, sizeof expect, catalogue_text("kelcore_lpm.msg", 91).c_str(), "n17characterslong", 16);
  EXPECT_EQ(gem(lem, 1), expect);

  // No text for the number: the arguments are listed instead.
  lemrec(lem, fac, 7777, 1, LEM_ARG_TEXT, "abc", LEM_ARG_NUM, int64_t{-42}, LEM_ARG_TEXT, "50%", LEM_ARG_END);
  std::string s = gem(lem, 1);
  EXPECT_NE(s.find("; arguments: [abc] [-42] [50%]"), std::string::npos) << s;

  // Truncation reports the full length as snprintf does.
  char small[8];
  int32_t full = lemgem(lem, 2, small, sizeof small);
  EXPECT_EQ(full, static_cast<int32_t>(strlen(expect)));
  EXPECT_EQ(std::string(small), std::string(expect).substr(0, 7));

  EXPECT_EQ(lemgem(lem, 0, small, sizeof small), 0);
  // A zero length is misuse, recorded as LEM 30.
  EXPECT_EQ(lemgem(lem, 1, small, 0), 0);
  EXPECT_EQ(lemgec(lem, 1), 30);
  char f[8];
  lemgef(lem, 1, f, sizeof f);
  EXPECT_STREQ(f, "LEM");
}

TEST_F(Errors, OperatingSystemError) {
  lemrse(lem, fac, 8, 2);  // ENOENT
  EXPECT_EQ(lemget(lem, 1), LEM_TYPE_OSERR);
  EXPECT_EQ(lemgse(lem, 1), 2);
  char expect[256];
  slcgems(2, expect, sizeof expect);
  EXPECT_EQ(gem(lem, 1), expect);
}

// Each thread sees only its own records. Two threads flood their stacks
// past the limit while a third records, reads and clears its own: each flood
// keeps its first LEM_MAX_DEPTH records, newest first, and counts the rest,
// and no other thread's stack changes.
TEST_F(Errors, ThreadsHaveStacksOfTheirOwn) {
  constexpr int kOver = 904;
  lemrec(lem, fac, 31, 1, LEM_ARG_TEXT, "main", LEM_ARG_END);
  std::atomic<int> bad{0};
  std::atomic<bool> flooding{true};
  std::thread reader([&] {
    int rounds = 0;
    while (flooding || rounds < 10) {
      lemrec(lem, fac, 32, 1, LEM_ARG_NUM, int64_t{rounds}, LEM_ARG_END);
      int64_t num = -1;
      if (lemged(lem) != 1 || lemgnp(lem, 1, 1, &num, nullptr) != LEM_ARG_NUM || num != rounds ||
          lemgdr(lem) != 0)
        bad++;
      lemces(lem);
      rounds++;
    }
  });
  auto flood = [&](int32_t msg) {
    for (int k = 1; k <= LEM_MAX_DEPTH + kOver; k++) {
      lemrec(lem, fac, msg, k, LEM_ARG_NUM, int64_t{k}, LEM_ARG_END);
      if (k % 1000 == 0 && k <= LEM_MAX_DEPTH && (lemged(lem) != k || lemgec(lem, 1) != msg)) bad++;
    }
    if (lemged(lem) != LEM_MAX_DEPTH || lemgdr(lem) != kOver) bad++;
    for (int i = 1; i <= LEM_MAX_DEPTH; i += 97) {  // the first ones stay, newest first
      int64_t num = 0;
      if (lemgnp(lem, i, 1, &num, nullptr) != LEM_ARG_NUM || num != LEM_MAX_DEPTH + 1 - i) bad++;
    }
    char buf[200];
    if (lemgem(lem, 1, buf, sizeof buf) <= 0) bad++;
    lemces(lem);
    if (lemged(lem) != 0 || lemgdr(lem) != 0) bad++;
    lemrec(lem, fac, msg, 1, LEM_ARG_END);
    if (lemged(lem) != 1) bad++;
    lemces(lem);
  };
  std::thread f1(flood, 33), f2(flood, 34);
  f1.join();
  f2.join();
  flooding = false;
  reader.join();
  EXPECT_EQ(bad.load(), 0);
  EXPECT_EQ(lemged(lem), 1) << "the main thread's record stays";
  EXPECT_EQ(lemgec(lem, 1), 31);
  EXPECT_EQ(lemgdr(nullptr), 0);
}

// ------------------------------------------------------------------ frames

TEST_F(Errors, ThrowIntoFrame) {
  lemfctx *fc = lemgfc(lem);
  ASSERT_NE(fc, nullptr);
  EXPECT_EQ(lemgfc(lem), fc) << "one frame context per thread";
  static lemframe outer, inner;
  volatile int reached = 0;
  lemptfs(fc, &outer);
  int code = setjmp(*reinterpret_cast<jmp_buf *>(LEM_FRAME_JB(&outer)));
  if (code == 0) {
    lemptfs(fc, &inner);
    EXPECT_EQ(fc->depth, 2);
    lemptfr(fc, &outer);  // not the innermost: ignored
    EXPECT_EQ(fc->depth, 2);
    lemptfr(fc, &inner);
    EXPECT_EQ(fc->depth, 1);
    reached = 1;
    lemtec(fc, fac, 151, 2, LEM_ARG_TEXT, "taken", LEM_ARG_END);
    reached = 2;  // not reached
  }
  EXPECT_EQ(reached, 1);
  EXPECT_EQ(code, 151);
  EXPECT_EQ(fc->depth, 0);
  EXPECT_EQ(fc->top, nullptr);
  EXPECT_EQ(lemgec(lem, 1), 151);

  // Re-throw of record 1.
  lemptfs(fc, &outer);
  code = setjmp(*reinterpret_cast<jmp_buf *>(LEM_FRAME_JB(&outer)));
  if (code == 0) lemprse(lem);
  EXPECT_EQ(code, 151);

  // The internal-error form checks its arguments before throwing.
  lemces(lem);
  lemtic(fc, fac, 0, 1, LEM_ARG_END);
  EXPECT_EQ(lemgec(lem, 1), 30);
  lemtic(fc, fac, 5, 0, LEM_ARG_END);
  EXPECT_EQ(lemged(lem), 2);
  lemptfs(fc, &outer);
  code = setjmp(*reinterpret_cast<jmp_buf *>(LEM_FRAME_JB(&outer)));
  if (code == 0) lemtic(fc, fac, 5, 1, LEM_ARG_TEXT, "here", LEM_ARG_END);
  EXPECT_EQ(code, 3);
  EXPECT_EQ(lemgsc(lem, 1), 5);
}

TEST_F(Errors, ThrowWithoutFrameRecordsAndReturns) {
  lemfctx *fc = lemgfc(lem);
  lemptpo(fc, fac, 31, 0);
  EXPECT_EQ(lemgec(lem, 1), 3);
  EXPECT_EQ(lemgsc(lem, 1), 4);
  lemces(lem);
  lemptrs(fc);  // empty stack
  EXPECT_EQ(lemgec(lem, 1), 900);
  lemptfs(fc, nullptr);
  EXPECT_EQ(lemgec(lem, 1), 30);
}

int g_callback_calls = 0;
void on_throw(void *, void *, int32_t code, int32_t) { g_callback_calls += code; }

TEST_F(Errors, ThrowCallbackMayRecord) {
  lemfasc(lem, fac, on_throw);
  lemfctx *fc = lemgfc(lem);
  static lemframe fr;
  lemptfs(fc, &fr);
  int code = setjmp(*reinterpret_cast<jmp_buf *>(LEM_FRAME_JB(&fr)));
  if (code == 0) lemsec(lem, fac, 12, 1, LEM_ARG_END);
  EXPECT_EQ(code, 12);
  EXPECT_EQ(g_callback_calls, 12);
  lemfasc(lem, fac, nullptr);
}

}  // namespace
