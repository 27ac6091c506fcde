// Shared set-up of the parameter tests: a started library, a parameter
// context, and helpers to read values and the error stack.
#ifndef KEL_TESTS_PARAM_FIXTURE_H
#define KEL_TESTS_PARAM_FIXTURE_H

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "lem.h"
#include "lpm.h"
#include "lrm.h"
#include "param/lrm_impl.h"
#include "tests/support/library.h"
#include "tests/support/portable.h"

using Strings = std::vector<std::string>;

class ParamTest : public kel_test::StartedLibrary {
 protected:
  void SetUp() override {
    StartedLibrary::SetUp();
    if (HasFatalFailure()) return;
    lemces(lem);
    Open(0);
  }
  void TearDown() override {
    Close();
    StartedLibrary::TearDown();
  }
  // A new context with these flags (and the character set, when given).
  void Open(uint32_t flags, const char *charset = nullptr) {
    Close();
    const lxenv *env = charset != nullptr ? lxhLangEnv(nullptr, charset, strlen(charset)) : nullptr;
    h = lrminiu(ctx, env, flags, nullptr, nullptr);
    ASSERT_NE(h, nullptr);
    lrmsout(h, Collect, &out);
  }
  void Close() {
    if (h == nullptr) return;
    EXPECT_EQ(lrm_internal::rec(h)->live_tokens, 0) << "a token record was not freed";
    EXPECT_EQ(lrmtrm(h), 0);
    h = nullptr;
  }
  static void Collect(void *arg, const char *text, size_t len) {
    static_cast<std::string *>(arg)->append(text, len);
  }
  // Newest error record: number and formatted text.
  int32_t LastError() { return lemgec(lem, 1); }
  std::string LastText() {
    char buf[1024];
    lemgem(lem, 1, buf, sizeof buf);
    return buf;
  }
  std::string Arg(int32_t i, int32_t n) {
    const char *t = nullptr;
    int64_t num = 0;
    int32_t type = lemgnp(lem, i, n, &num, &t);
    if (type == LEM_ARG_TEXT) return t;
    if (type == LEM_ARG_NUM) return std::to_string(num);
    return "";
  }
  // Where the newest record says it happened: its last four arguments,
  // "source|line|column|key".
  std::string Where() {
    int32_t n = 0;
    while (lemgnp(lem, 1, n + 1, nullptr, nullptr) != 0) n++;
    if (n < 4) return "<no place>";
    return Arg(1, n - 3) + "|" + Arg(1, n - 2) + "|" + Arg(1, n - 1) + "|" + Arg(1, n);
  }
  std::string Str(const char *key, uint32_t occ = 0, const char *qual = nullptr) {
    char buf[512] = "<none>";
    uint32_t st = lrmgsv(h, qual, nullptr, key, strlen(key), occ, buf, sizeof buf, nullptr);
    if (st != 0) return "<status " + std::to_string(st) + ">";
    return buf;
  }
  uint32_t Count(const char *key, const char *qual = nullptr) {
    uint32_t n = 0;
    EXPECT_EQ(lrmavlo(h, qual, key, strlen(key), &n), 0u);
    return n;
  }
  Strings All(const char *key, const char *qual = nullptr) {
    Strings v;
    uint32_t n = Count(key, qual);
    for (uint32_t i = 0; i < n; i++) v.push_back(Str(key, i, qual));
    return v;
  }
  std::string Dump() {
    std::string d;
    EXPECT_EQ(lrmdtw(h, Collect, &d), 0u);
    return d;
  }
  uint32_t Parse(const std::string &s) { return lrmpst(h, s.data(), s.size()); }
  uint32_t ParseCmd(const std::string &s) { return lrmpas(h, s.data(), s.size()); }
  // A folder of the test's own, so that tests running side by side do not
  // share files.
  static std::string Dir() {
    std::string d = ::testing::TempDir() + "kelparam_" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
    kel_test::make_dir(d);
    return d;
  }
  // Writes a file in the test's folder; returns its path.
  static std::string Write(const std::string &name, const std::string &text) {
    std::string path = Dir() + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  lrmctx *h = nullptr;
  std::string out;
};

#endif
