// Diagnostic records: the text form against Python's datetime, round trips
// of arbitrary bytes, malformed lines, writers on many threads with
// rotation, filters and failures.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "kelmsg_kelcore_ldm.h"
#include "ldm.h"
#include "lem.h"
#include "lpm.h"
#include "sl.h"
#include "tests/support/fault_walk.h"
#include "tests/support/python.h"

namespace fs = std::filesystem;

namespace {

struct Lib {
  lcorectx *ctx = lpminit();
  void *d = ldmini(ctx);
  void *m = ctx->lmmctx;
  lmmheap *heap = lmmtophp(ctx->lmmctx);
  ~Lib() {
    ldmtrm(d);
    lpmterm(ctx);
  }
  int32_t top() { return lemgec(ctx->lemctx, 1); }
  std::string last() {
    char b[512];
    lemgem(ctx->lemctx, 1, b, sizeof b);
    return b;
  }
};

std::string dir(const char *name) {
  fs::path p = fs::path(KEL_BINARY_DIR) / "diag_test" / name;
  fs::remove_all(p);
  fs::create_directories(p);
  return p.string();
}

std::string T(const char *p, size_t n) { return p ? std::string(p, n) : std::string("<absent>"); }

std::string fmt(const ldmrec &r) {
  size_t n = ldmfmt(&r, nullptr, 0);
  std::string s(n, '\0');
  EXPECT_EQ(ldmfmt(&r, s.data(), n), n);
  return s;
}

TEST(Diag, TimeStampsAgreeWithPythonDatetime) {
  std::mt19937_64 g(3);
  std::vector<int64_t> times = {0, 1, -1, 951782400000000LL, 253402300799999999LL, -62135596800000000LL,
                                4102444800000000LL, -86400000000LL};
  for (int i = 0; i < 300; i++) times.push_back(static_cast<int64_t>(g() % 253402300800000000ULL) - 62135596800000000LL);
  std::string path = dir("ts") + "/times.txt";
  {
    FILE *f = fopen(path.c_str(), "w");
    for (int64_t t : times) fprintf(f, "%lld\n", static_cast<long long>(t));
    fclose(f);
  }
  std::string out;
  ASSERT_TRUE(kel_test::run_python("tests/diag/time_oracle.py", path, out));
  std::istringstream in(out);
  std::string want;
  size_t k = 0;
  while (in >> want && k < times.size()) {
    ldmrec r{};
    r.time_us = times[k];
    r.severity = 1;
    std::string line = fmt(r);
    size_t a = line.find("ts=") + 3;
    // Python pads years below 1000 differently on some platforms: compare
    // the calendar fields, not the padding.
    std::string got = line.substr(a, line.find('\t', a) - a);
    while (want.size() < 27) want = "0" + want;
    EXPECT_EQ(got, want) << times[k];
    ldmrec back;
    std::vector<char> scratch(line.size());
    ASSERT_EQ(ldmparse(line.data(), line.size(), scratch.data(), &back), 0) << line;
    EXPECT_EQ(back.time_us, times[k]);
    k++;
  }
  EXPECT_EQ(k, times.size());
  // Times beyond four-digit years still round-trip.
  for (int64_t t : {INT64_MIN, INT64_MAX, int64_t{253402300800000000LL}, int64_t{-62135596800000001LL}}) {
    ldmrec r{};
    r.time_us = t;
    r.severity = 9;
    std::string line = fmt(r);
    ldmrec back;
    std::vector<char> scratch(line.size());
    ASSERT_EQ(ldmparse(line.data(), line.size(), scratch.data(), &back), 0) << line;
    EXPECT_EQ(back.time_us, t);
  }
}

TEST(Diag, AnyBytesRoundTripAndBadLinesAreRefused) {
  std::mt19937_64 g(11);
  for (int it = 0; it < 2000; it++) {
    std::string texts[5];
    bool present[5];
    for (int k = 0; k < 5; k++) {
      present[k] = g() % 5 != 0;
      texts[k].resize(g() % 40);
      for (auto &c : texts[k]) c = static_cast<char>(g() % 3 == 0 ? g() % 256 : "\\\t\n\r=x "[g() % 7]);
    }
    ldmrec r{};
    r.time_us = static_cast<int64_t>(g());
    r.severity = static_cast<int32_t>(g() % 99 + 1);
    r.pid = static_cast<int64_t>(g());
    r.tid = g();
    const char **ptrs[] = {&r.instance, &r.host, &r.component, &r.message, &r.detail};
    size_t *lens[] = {&r.instancel, &r.hostl, &r.componentl, &r.messagel, &r.detaill};
    for (int k = 0; k < 5; k++) {
      *ptrs[k] = present[k] ? texts[k].data() : nullptr;
      *lens[k] = present[k] ? texts[k].size() : 0;
    }
    std::string line = fmt(r);
    ASSERT_EQ(line.back(), '\n');
    ASSERT_EQ(line.find('\n'), line.size() - 1);  // one line, whatever the texts
    std::vector<char> scratch(line.size());
    ldmrec b;
    ASSERT_EQ(ldmparse(line.data(), line.size(), scratch.data(), &b), 0) << line;
    EXPECT_EQ(b.time_us, r.time_us);
    EXPECT_EQ(b.severity, r.severity);
    EXPECT_EQ(b.pid, r.pid);
    EXPECT_EQ(b.tid, r.tid);
    const char *const *bp[] = {&b.instance, &b.host, &b.component, &b.message, &b.detail};
    size_t *bl[] = {&b.instancel, &b.hostl, &b.componentl, &b.messagel, &b.detaill};
    for (int k = 0; k < 5; k++)
      EXPECT_EQ(T(*bp[k], *bl[k]), present[k] ? texts[k] : "<absent>") << line << " field " << k;
  }
  const char *bad[] = {
      "",
      "ldm2\tts=1970-01-01T00:00:00.000000Z\tsev=1",
      "ldm1\tsev=1",                                    // no time
      "ldm1\tts=1970-01-01T00:00:00.000000Z",           // no severity
      "ldm1\tts=1970-13-01T00:00:00.000000Z\tsev=1",    // month
      "ldm1\tts=1970-02-29T00:00:00.000000Z\tsev=1",    // not a leap year
      "ldm1\tts=1970-01-01T24:00:00.000000Z\tsev=1",    // hour
      "ldm1\tts=1970-01-01T00:00:00.00000Z\tsev=1",     // five fraction digits
      "ldm1\tts=@12x\tsev=1",                           // raw time
      "ldm1\tts=@99999999999999999999\tsev=1",          // overflow
      "ldm1\tts=@0\tsev=0",                             // severity range
      "ldm1\tts=@0\tsev=100",
      "ldm1\tts=@0\tsev=1\tmsg=a\\q",                   // unknown escape
      "ldm1\tts=@0\tsev=1\tmsg=a\\x4",                  // short hex escape
      "ldm1\tts=@0\tsev=1\tmsg=a\\",                    // dangling backslash
      "ldm1\tts=@0\tsev=1\tmsg=a\rb",                   // raw control byte
      "ldm1\tts=@0\tsev=1\tmsg=a\tmsg=b",               // field twice
      "ldm1\tts=@0\tsev=1\tnoequals",
      "ldm1\tts=@0\tsev=1\ttid=-1",
      "ldm1\tts=@0\tsev=1\tpid=9223372036854775808",
  };
  for (const char *b : bad) {
    std::vector<char> scratch(strlen(b) + 1);
    ldmrec r;
    EXPECT_EQ(ldmparse(b, strlen(b), scratch.data(), &r), -1) << b;
    EXPECT_EQ(r.message, nullptr);
  }
  // Unknown tags are skipped; pid may be negative.
  const char *ok = "ldm1\tts=@5\tfuture=whatever\\q\tsev=7\tpid=-3\tmsg=hi\n";
  std::vector<char> scratch(strlen(ok));
  ldmrec r;
  ASSERT_EQ(ldmparse(ok, strlen(ok), scratch.data(), &r), 0);
  EXPECT_EQ(r.pid, -3);
  EXPECT_EQ(T(r.message, r.messagel), "hi");
  EXPECT_EQ(r.detail, nullptr);
}

TEST(Diag, ThreadsWriteRotateAndReadBackIntact) {
  Lib lib;
  std::string d = dir("threads");
  std::string path = d + "/app.log";
  const uint64_t max = 16384;
  ldmwriter *w = ldmopen(lib.d, path.c_str(), max, 99, "inst-1", "comp-A");
  ASSERT_NE(w, nullptr) << lib.last();
  const int threads = 6, per = 400;
  std::vector<std::thread> ts;
  for (int t = 0; t < threads; t++) {
    ts.emplace_back([w, t] {
      std::mt19937 g(static_cast<unsigned>(t));
      for (int i = 0; i < per; i++) {
        std::string msg = "t" + std::to_string(t) + " n" + std::to_string(i);
        std::string det(g() % 60, '\0');
        for (auto &c : det) c = static_cast<char>(g() % 256);
        det = msg + "|" + det;  // the detail names its record, then any bytes
        ASSERT_EQ(ldmwrite(w, 1 + (i % 6), msg.data(), msg.size(), det.data(), det.size()), 0);
      }
    });
  }
  for (auto &t : ts) t.join();
  ASSERT_EQ(ldmclose(w), 0);

  size_t files = 0;
  for (auto &e : fs::directory_iterator(d)) {
    files++;
    EXPECT_LE(fs::file_size(e.path()), max) << e.path();
  }
  EXPECT_GT(files, 5u);  // it did rotate

  // Regenerate what each thread wrote and compare in order.
  std::map<int, int> next;
  std::map<int, std::mt19937> gens;
  for (int t = 0; t < threads; t++) gens.emplace(t, std::mt19937(static_cast<unsigned>(t)));
  ldmreader *rd = ldmropen(lib.d, path.c_str(), 1);
  ASSERT_NE(rd, nullptr);
  ldmrec r;
  int count = 0;
  int64_t last_time = 0;
  while (ldmread(rd, nullptr, lib.m, lib.heap, &r) == 1) {
    int t = 0, i = 0;
    ASSERT_EQ(sscanf(r.message, "t%d n%d", &t, &i), 2);
    ASSERT_EQ(i, next[t]++) << "thread " << t << " out of order";
    std::string msg = "t" + std::to_string(t) + " n" + std::to_string(i);
    std::string det(gens[t]() % 60, '\0');
    for (auto &c : det) c = static_cast<char>(gens[t]() % 256);
    EXPECT_EQ(T(r.detail, r.detaill), msg + "|" + det);
    EXPECT_EQ(r.severity, 1 + (i % 6));
    EXPECT_EQ(T(r.instance, r.instancel), "inst-1");
    EXPECT_EQ(T(r.component, r.componentl), "comp-A");
    EXPECT_GT(r.hostl, 0u);
    EXPECT_GE(r.time_us, last_time - 1000000);  // files come oldest first
    last_time = r.time_us;
    count++;
    ldmrfree(lib.m, lib.heap, &r);
  }
  EXPECT_EQ(count, threads * per);
  ldmrclose(rd);
}

TEST(Diag, FiltersAndRotationLimits) {
  Lib lib;
  std::string d = dir("filter");
  std::string path = d + "/f.log";
  ldmwriter *w = ldmopen(lib.d, path.c_str(), 0, 0, nullptr, nullptr);
  ASSERT_NE(w, nullptr);
  struct {
    int64_t t;
    int32_t sev;
    const char *inst, *host, *comp, *msg;
  } recs[] = {
      {1000, 2, "a", "h1", "net", "connection lost"}, {2000, 5, "a", "h1", "disk", "disk almost full"},
      {3000, 1, "b", "h2", "net", "connection refused"}, {4000, 4, "b", "h2", "disk", "checkpoint"},
      {5000, 3, nullptr, nullptr, nullptr, nullptr},
  };
  for (auto &x : recs) {
    ldmrec r{};
    r.time_us = x.t;
    r.severity = x.sev;
    auto text = [](const char *&p, size_t &len, const char *v) { p = v, len = v ? strlen(v) : 0; };
    text(r.instance, r.instancel, x.inst);
    text(r.host, r.hostl, x.host);
    text(r.component, r.componentl, x.comp);
    text(r.message, r.messagel, x.msg);
    ASSERT_EQ(ldmwrec(w, &r), 0);
  }
  ldmclose(w);
  struct {
    ldmfilter f;
    std::vector<int64_t> want;
  } rows[] = {
      {{0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr}, {1000, 2000, 3000, 4000, 5000}},
      {{2, 0, 0, 0, nullptr, nullptr, nullptr, nullptr}, {1000, 3000}},
      {{0, 0, 2000, 4000, nullptr, nullptr, nullptr, nullptr}, {2000, 3000}},
      {{0, 0, 0, 0, "b", nullptr, nullptr, nullptr}, {3000, 4000}},
      {{0, 0, 0, 0, nullptr, "h1", "disk", nullptr}, {2000}},
      {{0, 0, 0, 0, nullptr, nullptr, nullptr, "connection"}, {1000, 3000}},
      {{4, 0, 0, 0, nullptr, nullptr, "net", "refused"}, {3000}},
      {{0, 0, 0, 0, "", nullptr, nullptr, nullptr}, {}},
  };
  for (auto &row : rows) {
    ldmreader *rd = ldmropen(lib.d, path.c_str(), 0);
    ASSERT_NE(rd, nullptr);
    std::vector<int64_t> got;
    ldmrec r;
    while (ldmread(rd, &row.f, lib.m, lib.heap, &r) == 1) {
      got.push_back(r.time_us);
      ldmrfree(lib.m, lib.heap, &r);
    }
    EXPECT_EQ(got, row.want);
    ldmrclose(rd);
  }

  // keep 2 with a tiny limit: at most the file and two old ones remain, and
  // they hold the newest records.
  std::string p2 = d + "/k.log";
  w = ldmopen(lib.d, p2.c_str(), 200, 2, "i", "c");
  for (int i = 0; i < 50; i++) {
    std::string msg = "record " + std::to_string(i);
    ASSERT_EQ(ldmwrite(w, 3, msg.data(), msg.size(), nullptr, 0), 0);
  }
  ldmclose(w);
  EXPECT_TRUE(fs::exists(p2 + ".2"));
  EXPECT_FALSE(fs::exists(p2 + ".3"));
  ldmreader *rd = ldmropen(lib.d, p2.c_str(), 1);
  ldmrec r;
  std::vector<std::string> got;
  while (ldmread(rd, nullptr, lib.m, lib.heap, &r) == 1) {
    got.push_back(r.message);
    ldmrfree(lib.m, lib.heap, &r);
  }
  ldmrclose(rd);
  ASSERT_FALSE(got.empty());
  EXPECT_EQ(got.back(), "record 49");
  for (size_t i = 1; i < got.size(); i++)
    EXPECT_EQ(std::stoi(got[i].substr(7)), std::stoi(got[i - 1].substr(7)) + 1);
}

TEST(Diag, FailuresAreRecorded) {
  Lib lib;
  std::string d = dir("fail");
  EXPECT_EQ(ldmopen(lib.d, (d + "/no/such/dir/x.log").c_str(), 0, 1, nullptr, nullptr), nullptr);
  EXPECT_EQ(lib.top(), kelmsg::LDM_OPEN);
  EXPECT_NE(lib.last().find("no/such/dir"), std::string::npos) << lib.last();
  EXPECT_EQ(ldmropen(lib.d, (d + "/missing.log").c_str(), 1), nullptr);
  EXPECT_EQ(lib.top(), kelmsg::LDM_OPEN);
  EXPECT_EQ(ldmopen(lib.d, (d + "/x.log").c_str(), 0, 100, nullptr, nullptr), nullptr);
  EXPECT_EQ(lib.top(), kelmsg::LDM_BADARG);
  ldmwriter *w = ldmopen(lib.d, (d + "/x.log").c_str(), 0, 1, nullptr, nullptr);
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(ldmwrite(w, 0, "m", 1, nullptr, 0), -1);
  EXPECT_EQ(ldmwrite(w, 1, "first", 5, nullptr, 0), 0);
  ldmclose(w);
  // A damaged line is reported with its line number; reading goes on.
  {
    FILE *f = fopen((d + "/x.log").c_str(), "a");
    fputs("ldm1\tts=garbage\tsev=1\n", f);
    fclose(f);
  }
  w = ldmopen(lib.d, (d + "/x.log").c_str(), 0, 1, nullptr, nullptr);
  EXPECT_EQ(ldmwrite(w, 1, "third", 5, nullptr, 0), 0);
  ldmclose(w);
  ldmreader *rd = ldmropen(lib.d, (d + "/x.log").c_str(), 0);
  ldmrec r;
  EXPECT_EQ(ldmread(rd, nullptr, lib.m, lib.heap, &r), 1);
  EXPECT_STREQ(r.message, "first");
  ldmrfree(lib.m, lib.heap, &r);
  EXPECT_EQ(ldmread(rd, nullptr, lib.m, lib.heap, &r), -1);
  EXPECT_EQ(lib.top(), kelmsg::LDM_BADREC);
  EXPECT_NE(lib.last().find("line 2"), std::string::npos) << lib.last();
  EXPECT_EQ(ldmread(rd, nullptr, lib.m, lib.heap, &r), 1);
  EXPECT_STREQ(r.message, "third");
  ldmrfree(lib.m, lib.heap, &r);
  EXPECT_EQ(ldmread(rd, nullptr, lib.m, lib.heap, &r), 0);
  ldmrclose(rd);
}

TEST(Diag, SystemFailuresAreReported) {
  Lib lib;
  std::string d = dir("sysfail");
  std::string path = d + "/s.log";
  slfaultarm(SL_FAULT_FILE_OPEN, 1, 1);
  EXPECT_EQ(ldmopen(lib.d, path.c_str(), 0, 1, nullptr, nullptr), nullptr);
  slfaultreset();
  EXPECT_EQ(lib.top(), kelmsg::LDM_OPEN);

  ldmwriter *w = ldmopen(lib.d, path.c_str(), 120, 1, nullptr, nullptr);
  ASSERT_NE(w, nullptr);
  slfaultarm(SL_FAULT_FILE_WRITE, 1, 1);
  EXPECT_EQ(ldmwrite(w, 1, "lost", 4, nullptr, 0), -1);
  slfaultreset();
  EXPECT_EQ(lib.top(), kelmsg::LDM_WRITE);
  EXPECT_EQ(ldmwrite(w, 1, "kept one", 8, nullptr, 0), 0);
  // The rename of a rotation fails: reported, and the record is still
  // written (to the file that could not be moved).
  slfaultarm(SL_FAULT_FILE_OTHER, 1, 1);
  EXPECT_EQ(ldmwrite(w, 1, "kept two", 8, nullptr, 0), -1);
  slfaultreset();
  EXPECT_EQ(lib.top(), kelmsg::LDM_ROTATE);
  EXPECT_EQ(ldmwrite(w, 1, "kept three", 10, nullptr, 0), 0);
  ldmclose(w);

  ldmreader *rd = ldmropen(lib.d, path.c_str(), 1);
  ASSERT_NE(rd, nullptr);
  ldmrec r;
  slfaultarm(SL_FAULT_FILE_READ, 1, 1);
  EXPECT_EQ(ldmread(rd, nullptr, lib.m, lib.heap, &r), -1);
  slfaultreset();
  EXPECT_EQ(lib.top(), kelmsg::LDM_READ);
  ldmrclose(rd);
  rd = ldmropen(lib.d, path.c_str(), 1);
  std::vector<std::string> got;
  while (ldmread(rd, nullptr, lib.m, lib.heap, &r) == 1) {
    got.push_back(r.message);
    ldmrfree(lib.m, lib.heap, &r);
  }
  ldmrclose(rd);
  EXPECT_EQ(got, (std::vector<std::string>{"kept one", "kept two", "kept three"}));

  // Allocations of a writer and a reader, one failure at a time.
  kel_test::walk_failures(SL_FAULT_MEM, kel_test::Fail::Once, [&](int64_t) {
    lemces(lib.ctx->lemctx);
    ldmwriter *w2 = ldmopen(lib.d, (d + "/m.log").c_str(), 0, 1, "i", "c");
    int32_t wrc = w2 ? ldmwrite(w2, 2, "x", 1, nullptr, 0) : -1;
    ldmreader *r2 = ldmropen(lib.d, path.c_str(), 0);
    int32_t rrc = r2 ? ldmread(r2, nullptr, lib.m, lib.heap, &r) : -1;
    bool hit = slfaulthits(SL_FAULT_MEM) > 0;
    if (rrc == 1) ldmrfree(lib.m, lib.heap, &r);
    ldmclose(w2);
    ldmrclose(r2);
    if (!hit) EXPECT_TRUE(wrc == 0 && rrc == 1);
    else if (wrc != 0 || rrc != 1) EXPECT_GE(lemged(lib.ctx->lemctx), 1);
  });
}

}  // namespace
