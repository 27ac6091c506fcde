// Start and stop of the library, the context record, the package table,
// packages from a static entry and from a shared library, calls, at-term
// callbacks and saved contexts.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "lem.h"
#include "memory/lmm_impl.h"
#include "lmm.h"
#include "lpm.h"
#include "lsf.h"
#include "sl.h"
#include "tests/support/library.h"

// The record's layout: fourteen words in the designed order.
static_assert(sizeof(lcorectx) == 14 * 8);
static_assert(offsetof(lcorectx, length) == 0);
static_assert(offsetof(lcorectx, insth) == 8);
static_assert(offsetof(lcorectx, version) == 16);
static_assert(offsetof(lcorectx, lmmctx) == 24);
static_assert(offsetof(lcorectx, lemctx) == 32);
static_assert(offsetof(lcorectx, pkgh) == 40);
static_assert(offsetof(lcorectx, lfictx) == 48);
static_assert(offsetof(lcorectx, slblock) == 56);
static_assert(offsetof(lcorectx, initialised) == 64);
static_assert(offsetof(lcorectx, ownslml) == 65);
static_assert(offsetof(lcorectx, lwemctx) == 72);
static_assert(offsetof(lcorectx, lmlh) == 80);
static_assert(offsetof(lcorectx, langenv) == 88);
static_assert(offsetof(lcorectx, nlsglobal) == 96);
static_assert(offsetof(lcorectx, localnls) == 104);
static_assert(sizeof(lcorectxc) == 15 * 8);
static_assert(offsetof(lcorectxc, parent) == 112);

namespace {

class Library : public kel_test::StartedLibrary {
 protected:
  lpmpdesc row(const char *name, lpmentry entry, uint16_t flags = LPM_PKG_STATIC) {
    return lpmpdesc{name, strlen(name), nullptr, 0, nullptr, 0, entry, flags};
  }
};

TEST(Start, SecondStartSharesTheRecordAndOneStopEndsIt) {
  lcorectx *a = lpminit();
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->version, LCORECTX_VERSION);
  EXPECT_EQ(a->initialised, 1);
  EXPECT_EQ(a->insth, a->pkgh);
  EXPECT_NE(a->lmmctx, nullptr);
  EXPECT_NE(a->lemctx, nullptr);
  EXPECT_NE(a->lfictx, nullptr);
  EXPECT_EQ(lpminit(), a);
  EXPECT_EQ(lpmprinit(), a);
  EXPECT_EQ(lpmterm(a), 0);
  EXPECT_EQ(lpmterm(a), 0) << "a further stop does nothing";
  EXPECT_EQ(lpmterm(nullptr), 0);
  lcorectx *b = lpmprinit();
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b->localnls, 1);
  EXPECT_EQ(lpmdone(b), 0);
}

TEST(Start, MemoryOptionSetsTheExtentOfTheCallersHeap) {
  lcorectx *a = lpminitm(nullptr, 1 << 20, nullptr, nullptr, 0);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(static_cast<lmmctx *>(a->lmmctx)->extent, size_t{1} << 20);
  lmmheap *h = lmmtophp(a->lmmctx);
  void *p = lmmmalloc(a->lmmctx, h, 100, 0, "t", 1);
  EXPECT_NE(p, nullptr);
  EXPECT_EQ(lmmfree(a->lmmctx, h, p, 0), 0);
  EXPECT_EQ(lpmterm(a), 0);
}

// Every allocation of the start failing in turn: the start returns null
// (families already started stay so, deliberately), or succeeds. Run in a
// child so that what a failed start leaves behind is not reported as lost.
int g_order[16];
int g_ran = 0;
void at_term(void *arg) { g_order[g_ran++] = static_cast<int>(reinterpret_cast<intptr_t>(arg)); }

TEST(Start, AtTermCallbacksRunLastFirst) {
  lcorectx *c = lpminit();
  ASSERT_NE(c, nullptr);
  g_ran = 0;
  for (intptr_t i = 0; i < 10; i++) EXPECT_EQ(lpmatterm(c, at_term, reinterpret_cast<void *>(i)), 0);
  EXPECT_EQ(lpmatterm(c, at_term, nullptr), -1) << "the 11th is refused";
  EXPECT_EQ(lpmatterm(c, nullptr, nullptr), -1);
  EXPECT_EQ(lpmterm(c), 0);
  ASSERT_EQ(g_ran, 10);
  for (int i = 0; i < 10; i++) EXPECT_EQ(g_order[i], 9 - i);
}

TEST_F(Library, SavedContexts) {
  int a = 0, b = 0;
  struct Case {
    const char *name;
    void *context;
    int32_t replace;
    int32_t rc;
    int32_t msg;  // newest record afterwards, 0 for none
  } cases[] = {
      {"sixteen_chars_ok", &a, 0, 0, 0},
      {"seventeen_chars_x", &a, 0, -1, 150},
      {"sixteen_chars_ok", &b, 0, -1, 151},
      {"sixteen_chars_ok", &b, 1, 0, 0},
      {"other", nullptr, 0, 0, 0},  // removing a name that is not there
  };
  for (const Case &c : cases) {
    lemces(lem);
    EXPECT_EQ(lpmsavecompctx(ctx, c.name, c.context, c.replace), c.rc) << c.name;
    EXPECT_EQ(c.msg == 0 ? -1 : c.msg, lemgec(lem, 1)) << c.name;
  }
  EXPECT_EQ(lpmgetcompctx(ctx, "sixteen_chars_ok"), &b);
  lemces(lem);
  EXPECT_EQ(lpmgetcompctx(ctx, "seventeen_chars_x"), nullptr);
  EXPECT_EQ(lemgec(lem, 1), 91);
  int64_t limit = 0;
  EXPECT_EQ(lemgnp(lem, 1, 2, &limit, nullptr), LEM_ARG_NUM);
  EXPECT_EQ(limit, 16);
  EXPECT_EQ(lpmsavecompctx(ctx, "sixteen_chars_ok", nullptr, 0), 0);
  lemces(lem);
  EXPECT_EQ(lpmgetcompctx(ctx, "sixteen_chars_ok"), nullptr);
  EXPECT_EQ(lemgec(lem, 1), 90);
}

int32_t noop_entry(lcorectx *, void *, int32_t, void *, void *) { return 0; }

TEST_F(Library, PackageTableLimitsAndDuplicates) {
  // The built-in table holds "lsf"; fill up to 100 rows.
  std::vector<std::string> names;
  for (int i = 0; i < 120; i++) names.push_back("pkg" + std::to_string(i));
  std::vector<lpmpdesc> rows;
  for (int i = 0; i < 99; i++) rows.push_back(row(names[i].c_str(), noop_entry));
  int32_t where = -1;
  EXPECT_EQ(lpmapd(ctx, rows.data(), 98, &where, nullptr), 0);
  // Two more rows would pass 100: refused whole.
  EXPECT_EQ(lpmapd(ctx, rows.data() + 98, 1, &where, nullptr), 0);
  lpmpdesc extra[] = {row(names[100].c_str(), noop_entry), row(names[101].c_str(), noop_entry)};
  EXPECT_EQ(lpmapd(ctx, extra, 2, &where, nullptr), -3);
  lemces(lem);
  EXPECT_EQ(lpmloadpkg(ctx, names[100].c_str()), nullptr) << "the refused batch left nothing behind";
  EXPECT_EQ(lemgec(lem, 1), 31);
  char name[16];
  const char *text = nullptr;
  EXPECT_EQ(lemgnp(lem, 1, 1, nullptr, &text), LEM_ARG_TEXT);
  snprintf(name, sizeof name, "%s", text ? text : "");
  EXPECT_STREQ(name, "pkg100");

  // Duplicates, in any case, give -2 and the index of the offending row.
  lpmpdesc dup[] = {row("LSF", noop_entry)};
  where = -1;
  EXPECT_EQ(lpmapd(ctx, dup, 1, &where, nullptr), -2);
  EXPECT_EQ(where, 0);
}

TEST_F(Library, RowsUpToTheEndMarkAndDuplicateIndex) {
  lpmpdesc rows[] = {row("alpha", noop_entry), row("beta", noop_entry), row("Alpha", noop_entry),
                     {nullptr, 0, nullptr, 0, nullptr, 0, nullptr, LPM_PKG_END}};
  int32_t where = -1;
  EXPECT_EQ(lpmapd(ctx, rows, 0, &where, nullptr), -2);
  EXPECT_EQ(where, 2);
  // Nothing of the batch stayed: the first two can be added now.
  EXPECT_EQ(lpmapd(ctx, rows, 2, &where, nullptr), 0);
  EXPECT_EQ(lpmapd(ctx, rows + 3, 0, &where, nullptr), 0) << "an end row first adds nothing";
}

// Packages whose operation 1 does not publish what it must are refused.
int32_t no_private(lcorectx *ctx, void *, int32_t op, void *, void *) {
  if (op == 1) {
    const lpmfunc f[] = {reinterpret_cast<lpmfunc>(&noop_entry)};
    return lpmarrfuncs(ctx, nullptr, 1, f) ? 0 : -1;
  }
  return 0;
}
std::atomic<int> g_noift_terms{0};
int32_t no_interface(lcorectx *ctx, void *, int32_t op, void *, void *) {
  if (op == 1) return lpmmkpri(ctx, 8) ? 0 : -1;
  if (op == 2) g_noift_terms++;
  return 0;
}
int32_t refuses(lcorectx *, void *, int32_t op, void *, void *) { return op == 1 ? 5 : 0; }

TEST_F(Library, PackagesThatDoNotInitialiseAreRefused) {
  lpmpdesc rows[] = {row("nopriv", no_private), row("noift", no_interface), row("refuses", refuses)};
  ASSERT_EQ(lpmapd(ctx, rows, 3, nullptr, nullptr), 0);
  struct Case {
    const char *name;
    int32_t msg;
  } cases[] = {{"nopriv", 32}, {"noift", 33}, {"refuses", -1}, {"absent", 31}};
  for (const Case &c : cases) {
    lemces(lem);
    EXPECT_EQ(lpmloadpkg(ctx, c.name), nullptr) << c.name;
    if (c.msg > 0) {
      bool found = false;
      for (int i = 1; i <= lemged(lem); i++) found |= lemgec(lem, i) == c.msg;
      EXPECT_TRUE(found) << c.name;
    }
    EXPECT_EQ(lpmdelete(ctx, c.name), -1) << "left unloaded: " << c.name;
  }
  EXPECT_EQ(g_noift_terms.load(), 1) << "operation 2 after an attempted initialisation";
}

// ------------------------------------------------- the shared-library package

class Package : public Library {
 protected:
  void SetUp() override {
    Library::SetUp();
    const char *lib = KEL_TESTPKG_PATH;
    lpmpdesc d{"testpkg", 7, lib, strlen(lib), "kel_testpkg_entry", 17, nullptr, LPM_PKG_DYNLIB};
    ASSERT_EQ(lpmapd(ctx, &d, 1, nullptr, nullptr), 0);
  }
};

using counter_fn = int (*)();

TEST_F(Package, LoadedOnceSharedAndReleasedByTheLastUser) {
  lpmiftab *a = lpmloadpkg(ctx, "testpkg");
  ASSERT_NE(a, nullptr) << lemgec(lem, 1);
  ASSERT_EQ(a->count, 3);
  auto inits = reinterpret_cast<counter_fn>(a->funcs[0]);
  auto terms = reinterpret_cast<counter_fn>(a->funcs[1]);
  int terms_before = terms();
  int inits_before = inits();
  lpmiftab *b = lpmloadpkg(ctx, "testpkg");
  EXPECT_EQ(a, b);
  EXPECT_EQ(inits(), inits_before) << "operation 1 only once";
  EXPECT_EQ(reinterpret_cast<int (*)(int)>(a->funcs[2])(21), 42);
  EXPECT_EQ(lpmdelete(ctx, "testpkg"), 0);
  EXPECT_EQ(terms(), terms_before) << "still used";
  // Keep the library loaded across the last delete so that the counter
  // can still be read: a call holds its own use.
  lpmiftab *c = lpmloadpkg(ctx, "testpkg");
  EXPECT_EQ(c, a);
  EXPECT_EQ(lpmdelete(ctx, "testpkg"), 0);
  EXPECT_EQ(lpmdelete(ctx, "testpkg"), 0);
  lemces(lem);
  EXPECT_EQ(lpmdelete(ctx, "testpkg"), -1);
  EXPECT_EQ(lemgec(lem, 1), 60);
  // Loading again starts afresh: a new operation 1.
  lpmiftab *d = lpmloadpkg(ctx, "testpkg");
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(reinterpret_cast<counter_fn>(d->funcs[0])(), 1) << "the library was unloaded and loaded again";
  EXPECT_EQ(lpmdelete(ctx, "testpkg"), 0);
}

TEST_F(Package, CallsReturnResultsAndExitStatus) {
  struct Case {
    int32_t code;
    int64_t arg;
    int32_t status;
    int64_t result;
  } cases[] = {{10, 21, 0, 42}, {10, -5, 0, -10}, {11, 77, 77, -1}, {11, 0, 0, -1}, {99, 0, -1, -1}};
  for (const Case &c : cases) {
    int64_t arg = c.arg, result = -1;
    EXPECT_EQ(lpmcall(ctx, "testpkg", c.code, &arg, &result), c.status) << c.code << " " << c.arg;
    EXPECT_EQ(result, c.result);
  }
  lemces(lem);
  EXPECT_EQ(lpmcall(ctx, "nosuch", 10, nullptr, nullptr), -1);
  EXPECT_EQ(lemgec(lem, 1), 31);
}

TEST_F(Package, ErrorsOfAPackageCallCarryOneMark) {
  int64_t arg = 0, result = 0;
  EXPECT_EQ(lpmcall(ctx, "testpkg", 12, &arg, &result), 7);
  ASSERT_EQ(lemged(lem), 2);
  EXPECT_EQ(lemgec(lem, 1), 6);
  EXPECT_EQ(lemgec(lem, 2), 5);
  EXPECT_EQ(lwemnmk(lem), 1);
  EXPECT_EQ(lwemimk(lem, 2), 1) << "the first record of the call carries the mark";
}

// Calls from several threads while another loads and releases the shared
// instance (whose lookup reads every instance's flags).
TEST_F(Package, ConcurrentCallsFromManyThreads) {
  std::atomic<int> bad{0};
  std::vector<std::thread> ts;
  ts.emplace_back([&] {
    for (int k = 0; k < 50; k++) {
      if (lpmloadpkg(ctx, "testpkg") == nullptr) bad++;
      if (lpmdelete(ctx, "testpkg") != 0) bad++;
    }
  });
  for (int t = 0; t < 4; t++) {
    ts.emplace_back([&, t] {
      for (int k = 0; k < 50; k++) {
        int64_t arg = t * 1000 + k, result = 0;
        int32_t code = (k % 3 == 0) ? 11 : 10;
        int32_t st = lpmcall(ctx, "testpkg", code, &arg, &result);
        if (code == 10 && (st != 0 || result != 2 * arg)) bad++;
        if (code == 11 && st != static_cast<int32_t>(arg)) bad++;
      }
    });
  }
  for (auto &t : ts) t.join();
  EXPECT_EQ(bad.load(), 0);
}

// Every system request of a load and a call failing in turn: each failure
// gives null or -1 with a record on the stack, and the package manager is
// usable afterwards (nothing left half-made; asan checks for leaks).
TEST_F(Package, EveryFailureOfLoadAndCallIsClean) {
  if (slfaultarm(SL_FAULT_MEM, 0, 0) != 0) GTEST_SKIP() << "a build without fault points";
  for (int32_t point : {SL_FAULT_MEM, SL_FAULT_CS_INIT, SL_FAULT_TID, SL_FAULT_DLOPEN}) {
    int64_t nth = 1;
    for (;; nth++) {
      SCOPED_TRACE("point " + std::to_string(point) + " nth " + std::to_string(nth));
      lemces(lem);
      slfaultarm(point, nth, 1);
      lpmiftab *t = lpmloadpkg(ctx, "testpkg");
      if (t == nullptr) EXPECT_GE(lemged(lem), 1) << "a failed load leaves a record";
      lemces(lem);
      int64_t arg = 3, res = 0;
      int32_t st = lpmcall(ctx, "testpkg", 10, &arg, &res);
      if (st != 0) EXPECT_GE(lemged(lem), 1) << "a failed call leaves a record";
      else EXPECT_EQ(res, 6);
      int64_t hits = slfaulthits(point);
      slfaultreset();
      if (t != nullptr) EXPECT_EQ(lpmdelete(ctx, "testpkg"), 0);
      if (hits == 0) break;
      ASSERT_LT(nth, 100);
    }
    EXPECT_GT(nth, 1) << "point " << point << " was never reached";
    lemces(lem);
    lpmiftab *t = lpmloadpkg(ctx, "testpkg");
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(lpmdelete(ctx, "testpkg"), 0);
  }
}

TEST_F(Library, ExitOutsideACallEndsTheProcess) {
  EXPECT_EXIT(lpmexitprog(ctx, 5), ::testing::ExitedWithCode(1), "");
}

TEST_F(Library, FormatterIsPackageLsf) {
  lpmiftab *t = lpmloadpkg(ctx, "lsf");
  ASSERT_NE(t, nullptr);
  ASSERT_EQ(t->count, 3);
  lsfarg args[3] = {};
  args[0].type = LSF_ARG_TEXT;
  args[0].v.s = "abc";
  args[1].type = LSF_ARG_INT;
  args[1].v.i = 42;
  auto pd = reinterpret_cast<decltype(&lsfpd)>(t->funcs[0]);
  auto p = reinterpret_cast<decltype(&lsfp)>(t->funcs[2]);
  char buf[64];
  EXPECT_EQ(pd(nullptr, buf, sizeof buf, "%s=%d", args), 6);
  EXPECT_STREQ(buf, "abc=42");
  EXPECT_EQ(p(nullptr, buf, sizeof buf, "%d-%s", 7, "x"), 3);
  EXPECT_STREQ(buf, "7-x");
  EXPECT_EQ(lpmdelete(ctx, "lsf"), 0);
}

}  // namespace
