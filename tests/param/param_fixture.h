// Shared set-up of the parameter tests: a started library, a parameter
// context, and helpers to read the error stack.
#ifndef KEL_TESTS_PARAM_FIXTURE_H
#define KEL_TESTS_PARAM_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lem.h"
#include "lpm.h"
#include "lrm.h"
#include "param/lrm_impl.h"
#include "tests/support/library.h"

class ParamTest : public kel_test::StartedLibrary {
 protected:
  void SetUp() override {
    StartedLibrary::SetUp();
    if (HasFatalFailure()) return;
    lemces(lem);
    h = lrmini(ctx, nullptr, nullptr);
    ASSERT_NE(h, nullptr);
    lrmsout(h, Collect, &out);
  }
  void TearDown() override {
    if (h != nullptr) {
      EXPECT_EQ(lrm_internal::rec(h)->live_tokens, 0) << "a token record was not freed";
      EXPECT_EQ(lrmtrm(h), 0);
    }
    StartedLibrary::TearDown();
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
  std::vector<std::string> All(const char *key, const char *qual = nullptr) {
    std::vector<std::string> v;
    uint32_t n = Count(key, qual);
    for (uint32_t i = 0; i < n; i++) v.push_back(Str(key, i, qual));
    return v;
  }
  uint32_t Parse(const std::string &s) { return lrmpst(h, s.data(), s.size()); }
  uint32_t ParseCmd(const std::string &s) { return lrmpas(h, s.data(), s.size()); }

  lrmctx *h = nullptr;
  std::string out;
};

using Strings = std::vector<std::string>;

#endif
