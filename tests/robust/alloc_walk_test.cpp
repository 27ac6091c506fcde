// Out of memory everywhere: a representative operation of each family runs
// with its 1st, 2nd, ... allocation refused, once and from then on, at each
// kind of allocation it makes (system requests and extents, heap
// allocations, kelnls10, the date territory view). Every refused run must
// end in the family's designed failure (null, -1 or its status) with its
// record on the calling thread's stack, and the same operation must then
// succeed in full: nothing left half-made. The asan preset checks that
// nothing leaked. Only the public interface is used.
#include <gtest/gtest.h>


#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>

#include "kelstream.h"
#include "ldm.h"
#include "ldx.h"
#include "lem.h"
#include "lht.h"
#include "lmm.h"
#include "lpm.h"
#include "lpu.h"
#include "lrm.h"
#include "ltz.h"
#include "lx.h"
#include "sl.h"
#include "tests/support/fault_walk.h"
#include "tests/support/portable.h"

namespace {

using kel_test::Fail;

// The allocation points: system requests and extents (one count), heap
// allocations, kelnls10, the territory view.
constexpr int32_t kPoints[] = {SL_FAULT_ANYMEM, SL_FAULT_HEAP, SL_FAULT_NLS, SL_FAULT_DATE_VIEW};

std::string text_of(int32_t (*get)(void *, int32_t, char *, size_t), void *lem, int32_t i) {
  char b[64] = {0};
  get(lem, i, b, sizeof b);
  return b;
}

// One run of a family's operation. Each step is checked where it is made:
// a step that fails must have been refused at the walked point and must
// leave the family's record as the calling thread's newest, and never more
// than one mark.
struct Attempt {
  lcorectx *ctx;
  void *lem;
  int32_t point;
  Fail mode;

  int64_t hits() const { return slfaulthits(point); }
  // 0-7: which of the walks this is, for operations whose first success is
  // kept for good (caches), so that each walk can start from an empty one.
  int walk() const {
    int i = 0;
    while (kPoints[i] != point) i++;
    return 2 * i + (mode == Fail::FromThenOn);
  }
  // Starts a step: the stack is cleared and the refusals so far counted.
  int64_t step() const {
    lemces(lem);
    return hits();
  }
  // A step that failed: refused since `h0`, recorded by `fac` with `msg`
  // (0: any number). Returns false, the run's result.
  bool failed(int64_t h0, const char *fac, int32_t msg = 0, const char *what = "") const {
    EXPECT_GT(hits(), h0) << what << ": failed without a refusal";
    if (fac == nullptr) return false;  // the family records nothing
    // With every system request refused from some point on, the record
    // itself cannot be made: nothing is recorded then.
    if (lemged(lem) == 0 && point == SL_FAULT_ANYMEM && mode == Fail::FromThenOn) return false;
    EXPECT_GE(lemged(lem), 1) << what << ": no record";
    EXPECT_EQ(text_of(lemgef, lem, 1), fac) << what << stack();
    if (msg != 0) EXPECT_EQ(lemgec(lem, 1), msg) << what << stack();
    // Families whose operations carry an error flag mark their first
    // failure; none marks twice.
    EXPECT_LE(lwemnmk(lem), 1) << what << ": one failure, one mark" << stack();
    if (std::strcmp(fac, "LMM") == 0 || std::strcmp(fac, "LPM") == 0 || std::strcmp(fac, "LHT") == 0)
      EXPECT_EQ(lwemnmk(lem), 1) << what << ": unmarked" << stack();
    return false;
  }
  // The stack, newest first, for failure messages.
  std::string stack() const {
    std::string s;
    for (int32_t i = 1; i <= lemged(lem); i++)
      s += "\n  " + text_of(lemgef, lem, i) + " " + std::to_string(lemgec(lem, i)) + "/" +
           std::to_string(lemgsc(lem, i)) + (lwemimk(lem, i) == 1 ? " marked" : "");
    return s;
  }
};

using Operation = std::function<bool(Attempt &)>;

// Walks `op` over every allocation point, in both modes; returns the number
// of refused runs.
int64_t walk_all(lcorectx *ctx, const char *family, const Operation &op) {
  int64_t total = 0;
  std::string counts;
  for (int32_t point : kPoints) {
    for (Fail mode : {Fail::Once, Fail::FromThenOn}) {
      Attempt r{ctx, ctx->lemctx, point, mode};
      int64_t n = kel_test::walk_failures(
          point, mode,
          [&](int64_t) {
            bool ok = op(r);
            if (r.hits() == 0) EXPECT_TRUE(ok) << family << ": failed with nothing refused";
          },
          100000,
          [&] {
            // Usable afterwards: the whole operation now succeeds.
            Attempt quiet{ctx, ctx->lemctx, point, mode};
            EXPECT_TRUE(op(quiet)) << family << ": not usable after a refusal";
          });
      total += n;
      counts += " " + std::to_string(n);
      if (::testing::Test::HasFatalFailure()) return total;
    }
  }
  lemces(ctx->lemctx);
  std::printf("[ walk     ] %-12s %4lld refused runs (system, heap, nls, view; once/on:%s)\n", family,
              static_cast<long long>(total), counts.c_str());
  return total;
}

class Walk : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!kel_test::fault_points_built()) GTEST_SKIP() << "a build without fault points";
    ctx = lpminit();
    ASSERT_NE(ctx, nullptr);
    lem = ctx->lemctx;
    mctx = ctx->lmmctx;
    slsetenv("KEL_TZFILE", KEL_TZFILE, 1);
  }
  void TearDown() override {
    slfaultreset();
    if (ctx != nullptr) {
      lemces(lem);
      EXPECT_EQ(lpmterm(ctx), 0);
    }
  }
  void expect_walked(const char *family, const Operation &op) {
    EXPECT_GT(walk_all(ctx, family, op), 0) << family << ": no allocation was refused";
  }
  lcorectx *ctx = nullptr;
  void *lem = nullptr;
  void *mctx = nullptr;
};

// ------------------------------------------------------------------ start

// A start that fails leaves the families before the failing one started
// (on purpose: nothing can tell that half-start from a real one), so the
// walk runs in a child process whose leaks die with it.
TEST(WalkStart, StartAndStop) {
  if (!kel_test::fault_points_built()) GTEST_SKIP() << "a build without fault points";
  EXPECT_EXIT(
      {
        int64_t total = 0;
        for (int32_t point : kPoints)
          for (Fail mode : {Fail::Once, Fail::FromThenOn})
            total += kel_test::walk_failures(
                point, mode,
                [&](int64_t) {
                  lcorectx *c = lpminit();
                  if (c == nullptr) {
                    EXPECT_GT(slfaulthits(point), 0);
                    return;
                  }
                  EXPECT_EQ(lpmterm(c), 0);
                },
                100000,
                [&] {
                  lcorectx *c = lpminit();
                  ASSERT_NE(c, nullptr);
                  EXPECT_EQ(lpmterm(c), 0);
                });
        std::printf("[ walk     ] %-12s %lld refused runs\n", "start", static_cast<long long>(total));
        std::fflush(stdout);
        std::_Exit(::testing::Test::HasFailure() || total == 0 ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
}

// ------------------------------------------------------------------ heaps

TEST_F(Walk, Heaps) {
  expect_walked("heaps", [&](Attempt &r) {
    for (const lmmmfp *model : {lmmgetstmfp(), lmmgetfsmfp()}) {
      lmmheap *h = nullptr;
      int64_t h0 = r.step();
      if (lmmhpinit(mctx, &h, lmmtophp(mctx), 0, nullptr, "walk", __LINE__, model) != 0)
        return r.failed(h0, "LMM", 3, "lmmhpinit");
      bool ok = true;
      void *p[6] = {};
      // Small, large, and larger than any extent the top heap keeps.
      const size_t sizes[] = {16, 300, 70000, 3000000};
      for (int i = 0; i < 4 && ok; i++) {
        h0 = r.step();
        p[i] = i == 1 ? lmmcalloc(mctx, h, sizes[i], 0, "walk", __LINE__)
                      : lmmmalloc(mctx, h, sizes[i], 0, "walk", __LINE__);
        ok = p[i] != nullptr || r.failed(h0, "LMM", 3, "lmmmalloc");
        if (ok) std::memset(p[i], i, sizes[i]);
      }
      if (ok) {
        h0 = r.step();
        p[4] = lmmvalloc(mctx, h, 100, 0, "walk", __LINE__);
        ok = p[4] != nullptr || r.failed(h0, "LMM", 3, "lmmvalloc");
      }
      if (ok) {
        h0 = r.step();
        void *q = lmmrealloc(mctx, h, p[0], 5000, 0, "walk", __LINE__);
        ok = q != nullptr || r.failed(h0, "LMM", 3, "lmmrealloc");
        if (ok) {
          EXPECT_EQ(static_cast<uint8_t *>(q)[15], 0) << "realloc keeps the contents";
          p[0] = q;
        } else {
          EXPECT_EQ(static_cast<uint8_t *>(p[0])[15], 0) << "a failed realloc leaves the block";
        }
      }
      if (ok) {
        h0 = r.step();
        p[5] = lmmomallocblklist(mctx, h, 64, 0);
        ok = p[5] != nullptr || r.failed(h0, "LMM", 3, "lmmomallocblklist");
      }
      for (void *b : p)
        if (b != nullptr) EXPECT_EQ(lmmfree(mctx, h, b, 0), 0);
      EXPECT_EQ(lmmhpfree(mctx, h, 0), 0);
      if (!ok) return false;
    }
    return true;
  });
}

// ----------------------------------------------------------------- errors

TEST_F(Walk, Errors) {
  expect_walked("errors", [&](Attempt &r) {
    // An error context of its own, with its own stacks.
    alignas(8) unsigned char storage[lemctxsz];
    int64_t h0 = r.step();
    void *own = leminit(ctx, storage, nullptr);
    if (own == nullptr) return r.failed(h0, nullptr, 0, "leminit");
    bool ok = true;
    lemfac *f = lemfaa(own, nullptr, "KELCORE", "LPM", 3, 4);
    if (f == nullptr) ok = r.failed(h0, nullptr, 0, "lemfaa");
    for (int i = 0; ok && i < 3; i++) {
      int32_t depth = lemged(own);
      int64_t h1 = r.hits();
      lemrec(own, f, 31, 1, LEM_ARG_TEXT, "pkg", LEM_ARG_END);
      // A record that cannot be made is not made; nothing else changes.
      EXPECT_EQ(lemged(own), depth + (r.hits() > h1 ? 0 : 1));
      if (r.hits() > h1) ok = false;
    }
    if (ok) {
      char buf[256];
      lemgem(own, 1, buf, sizeof buf);
      EXPECT_NE(std::strstr(buf, "pkg"), nullptr) << "the argument is in the text, catalogue or not: " << buf;
    }
    if (f != nullptr) EXPECT_EQ(lemfaf(own, f), 0);
    EXPECT_EQ(lemfre(own), 0);
    if (!ok) return false;

    // The library's own context: a facility's catalogue is opened on first
    // use and kept, so a failed opening must not be kept in its place. Each
    // walk takes a facility not opened yet; message 4 is in all of them.
    static const char *const facs[] = {"LDM", "LFI", "LHT", "LMM", "LPM", "LPU", "LSF", "LTS"};
    h0 = r.step();
    lemfac *g = lemfaa(lem, nullptr, "KELCORE", facs[r.walk()], 3, 4);
    if (g == nullptr) return r.failed(h0, nullptr, 0, "lemfaa");
    lemrec(lem, g, 4, 1, LEM_ARG_TEXT, "walk", LEM_ARG_END);
    char buf[256] = {0};
    lemgem(lem, 1, buf, sizeof buf);
    bool catalogue = std::strstr(buf, "not found") == nullptr && std::strstr(buf, "walk") != nullptr;
    EXPECT_TRUE(catalogue || r.hits() > h0) << buf;
    EXPECT_EQ(lemfaf(lem, g), 0);
    lemces(lem);
    return lemged(lem) == 0 && catalogue;
  });
}

// --------------------------------------------------------------- packages

int32_t walk_package(lcorectx *c, void *, int32_t op, void *arg, void *result) {
  static const lpmfunc fns[] = {reinterpret_cast<lpmfunc>(&walk_package)};
  switch (op) {
    case 1:
      if (lpmmkpri(c, 32) == nullptr) return -1;
      return lpmarrfuncs(c, nullptr, 1, fns) == nullptr ? -1 : 0;
    case 2:
      return 0;
    default:
      *static_cast<int64_t *>(result) = 2 * *static_cast<int64_t *>(arg);
      return 0;
  }
}

TEST_F(Walk, Packages) {
  const lpmpdesc row = {"walkpkg", 7, nullptr, 0, nullptr, 0, &walk_package, LPM_PKG_STATIC};
  ASSERT_EQ(lpmapd(ctx, &row, 1, nullptr, nullptr), 0);
  expect_walked("packages", [&](Attempt &r) {
    int64_t h0 = r.step();
    lpmiftab *t = lpmloadpkg(ctx, "walkpkg");
    if (t == nullptr) return r.failed(h0, "LPM", 0, "lpmloadpkg");
    EXPECT_EQ(t->count, 1);
    int64_t arg = 21, res = 0;
    h0 = r.step();
    int32_t st = lpmcall(ctx, "walkpkg", 7, &arg, &res);
    bool ok = st == 0 || r.failed(h0, "LPM", 0, "lpmcall");
    if (ok) EXPECT_EQ(res, 42);
    h0 = r.step();
    EXPECT_EQ(lpmdelete(ctx, "walkpkg"), 0);
    return ok;
  });
}

// ------------------------------------------------------------- parameters

TEST_F(Walk, Parameters) {
  static const lrmkey keys[] = {{"n", LRM_T_INT, 0, 0, 0, 0, 0, "7", nullptr},
                                {"s", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr}};
  static const lrmkeyset set = {keys, 2, LRM_KS_ANYKEY, nullptr, nullptr, nullptr, nullptr};
  const std::string text = "n = 5 s = (a 'b c' \"d\") sec:t = x";
  expect_walked("parameters", [&](Attempt &r) {
    int64_t h0 = r.step();
    lrmctx *h = lrminiu(ctx, nullptr, 0, nullptr, nullptr);
    if (h == nullptr) return r.failed(h0, nullptr, 0, "lrminiu");
    bool ok = true;
    h0 = r.step();
    uint32_t st = lrmpsvp(h, &set);
    if (st != 0) ok = r.failed(h0, "LRM", 106, "lrmpsvp");
    if (ok) {
      h0 = r.step();
      st = lrmpst(h, text.data(), text.size());
      if (st != 0) ok = r.failed(h0, "LRM", 106, ("lrmpst " + std::to_string(st)).c_str());
    }
    if (ok) {
      char buf[16];
      EXPECT_EQ(lrmgsv(h, nullptr, nullptr, "s", 1, 1, buf, sizeof buf, nullptr), 0u);
      EXPECT_STREQ(buf, "b c");
      std::string dump;
      h0 = r.step();
      st = lrmdtw(h, [](void *a, const char *t, size_t n) { static_cast<std::string *>(a)->append(t, n); }, &dump);
      if (st != 0) ok = r.failed(h0, "LRM", 106, "lrmdtw");
      else EXPECT_NE(dump.find("b c"), std::string::npos) << dump;
    }
    EXPECT_EQ(lrmtrm(h), 0);
    return ok;
  });
}

// ------------------------------------------------------------ hash tables

TEST_F(Walk, HashTables) {
  expect_walked("hash tables", [&](Attempt &r) {
    lmmheap *heap = nullptr;
    int64_t h0 = r.step();
    if (lmmhpinit(mctx, &heap, lmmtophp(mctx), 0, nullptr, "walk", __LINE__, nullptr) != 0)
      return r.failed(h0, "LMM", 3, "lmmhpinit");
    const LhtMem mem = {heap, nullptr, nullptr, nullptr};
    h0 = r.step();
    LhtTable *t = LhtIntCreate(ctx, lem, 0, &mem);
    // (The table's mutex may be what could not be made.)
    bool ok = t != nullptr || r.failed(h0, "LHT", 0, "LhtIntCreate");
    // Enough keys to grow through several sizes, then back down.
    for (uint32_t k = 1; ok && k <= 200; k++) {
      h0 = r.step();
      int32_t rc = LhtIntInsert(t, k, reinterpret_cast<void *>(uintptr_t{k}));
      if (rc != LHT_OK) {
        EXPECT_EQ(rc, -LHT_ERR_NOMEM);
        ok = r.failed(h0, "LHT", LHT_ERR_NOMEM, "LhtIntInsert");
        void *v = nullptr;
        EXPECT_EQ(LhtIntSearch(t, k, &v), -LHT_ERR_NOKEY) << "a refused insert adds nothing";
        for (uint32_t j = 1; j < k; j++) EXPECT_EQ(LhtIntSearch(t, j, &v), LHT_OK) << "and loses nothing";
      }
    }
    for (uint32_t k = 1; ok && k <= 190; k++) {
      void *v = nullptr;
      h0 = r.step();
      int32_t rc = LhtIntRemove(t, k, &v);
      // A shrink that cannot get memory keeps the larger storage.
      EXPECT_EQ(rc, LHT_OK) << "remove " << k;
      EXPECT_EQ(v, reinterpret_cast<void *>(uintptr_t{k}));
    }
    if (t != nullptr) EXPECT_EQ(LhtIntDestroy(t), LHT_OK);
    EXPECT_EQ(lmmhpfree(mctx, heap, 0), 0);
    return ok;
  });
}

// ------------------------------------------------------------- time zones

TEST_F(Walk, TimeZones) {
  expect_walked("time zones", [&](Attempt &r) {
    const void *image = nullptr;
    int64_t h0 = r.step();
    int32_t st = ltzGetImage(&image);
    if (st != 0) {
      EXPECT_EQ(st, 8) << "out of memory";
      return r.failed(h0, nullptr, 0, "ltzGetImage");
    }
    uint16_t id = 0;
    EXPECT_EQ(ltzID(image, "Europe/Paris", 12, &id), 0);
    uint8_t *arr = nullptr;
    size_t len = 0;
    h0 = r.step();
    st = ltzGetTransArray(image, mctx, nullptr, id, &arr, &len);
    if (st != 0) {
      EXPECT_EQ(st, 8) << "out of memory";
      EXPECT_EQ(arr, nullptr);
      return r.failed(h0, nullptr, 0, "ltzGetTransArray");
    }
    EXPECT_GT(len, 100u);
    ltzFreeTransArray(mctx, nullptr, arr);
    return true;
  });
}

// ---------------------------------------------------- diagnostic records

TEST_F(Walk, DiagnosticRecords) {
  const std::string path = "/tmp/kel_walk_" + std::to_string(kel_test::process_id()) + ".log";
  expect_walked("diag records", [&](Attempt &r) {
    std::remove(path.c_str());
    int64_t h0 = r.step();
    void *d = ldmini(ctx);
    if (d == nullptr) return r.failed(h0, nullptr, 0, "ldmini");
    bool ok = true;
    h0 = r.step();
    ldmwriter *w = ldmopen(d, path.c_str(), 0, 0, "inst", "comp");
    if (w == nullptr) ok = r.failed(h0, "LDM", 0, "ldmopen");
    if (ok) {
      h0 = r.step();
      if (ldmwrite(w, LDM_SEV_ERROR, "hello", 5, "det\tail", 7) != 0) ok = r.failed(h0, "LDM", 0, "ldmwrite");
      EXPECT_EQ(ldmclose(w), 0);
    }
    ldmreader *rd = nullptr;
    if (ok) {
      h0 = r.step();
      rd = ldmropen(d, path.c_str(), 0);
      if (rd == nullptr) ok = r.failed(h0, "LDM", 0, "ldmropen");
    }
    if (ok) {
      ldmrec rec{};
      h0 = r.step();
      int32_t got = ldmread(rd, nullptr, mctx, lmmtophp(mctx), &rec);
      if (got != 1) {
        EXPECT_EQ(got, -1);
        ok = r.failed(h0, "LDM", 0, "ldmread");
      } else {
        EXPECT_EQ(std::string(rec.detail, rec.detaill), "det\tail");
        EXPECT_EQ(ldmrfree(mctx, lmmtophp(mctx), &rec), 0);
      }
    }
    if (rd != nullptr) EXPECT_EQ(ldmrclose(rd), 0);
    EXPECT_EQ(ldmtrm(d), 0);
    return ok;
  });
  std::remove(path.c_str());
}

// -------------------------------------------------------------- URL, HTTP

// A server on 127.0.0.1 that answers every request with one small page.
class PageServer {
 public:
  PageServer() {
    fd_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t al = sizeof a;
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0 || listen(fd_, 16) != 0 ||
        getsockname(fd_, reinterpret_cast<sockaddr *>(&a), &al) != 0)
      return;
    port_ = ntohs(a.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~PageServer() {
    if (fd_ >= 0) kel_test::wake_accept(fd_);  // wakes the accept up with an error
    if (thread_.joinable()) thread_.join();
    if (fd_ >= 0) kel_test::close_socket(fd_);
  }
  int port() const { return port_; }

 private:
  void serve() {
    for (;;) {
      int c = accept(fd_, nullptr, nullptr);
      if (c < 0) return;
      std::string req;
      char buf[1024];
      while (req.find("\r\n\r\n") == std::string::npos) {
        ssize_t n = recv(c, buf, sizeof buf, 0);
        if (n <= 0) break;
        req.append(buf, static_cast<size_t>(n));
      }
      static const char page[] =
          "HTTP/1.1 200 OK\r\nContent-Length: 11\r\nX-Walk: yes\r\nConnection: close\r\n\r\nhello world";
      if (!req.empty()) (void)!send(c, page, sizeof page - 1, 0);
      kel_test::close_socket(c);
    }
  }
  int fd_ = -1;
  int port_ = 0;
  std::thread thread_;
};

TEST_F(Walk, UrlAndHttp) {
  PageServer server;
  ASSERT_NE(server.port(), 0);
  const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/page";
  expect_walked("url/http", [&](Attempt &r) {
    int64_t h0 = r.step();
    void *u = lpuini(ctx);
    if (u == nullptr) return r.failed(h0, nullptr, 0, "lpuini");
    bool ok = true;
    lpuurl parts{};
    EXPECT_EQ(lpuparse(u, url.data(), url.size(), &parts), 0);
    h0 = r.step();
    lpuhc *hc = lpuhcnew(u);
    if (hc == nullptr) ok = r.failed(h0, nullptr, 0, "lpuhcnew");
    if (ok) {
      lpureq rq{};
      rq.method = "GET";
      rq.url = url.c_str();
      lpuresp resp{};
      h0 = r.step();
      if (lpuhreq(hc, &rq, mctx, lmmtophp(mctx), &resp) != 0) {
        ok = r.failed(h0, "LPU", 0, "lpuhreq");
        EXPECT_EQ(resp.block, nullptr);
      } else {
        EXPECT_EQ(resp.status, 200);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(resp.body), resp.bodyl), "hello world");
        EXPECT_STREQ(lpuhget(&resp, "x-walk"), "yes");
        EXPECT_EQ(lpuhrfree(mctx, lmmtophp(mctx), &resp), 0);
      }
      lpuhcfree(hc);
    }
    EXPECT_EQ(lputrm(u), 0);
    return ok;
  });
}

// ---------------------------------------------------------------- streams

int32_t sink_write(void *word, void *, void *, const void *buf, size_t *len) {
  static_cast<std::string *>(word)->append(static_cast<const char *>(buf), *len);
  return 0;
}

TEST_F(Walk, Streams) {
  expect_walked("streams", [&](Attempt &r) {
    int64_t h0 = r.step();
    KelMem *mem = KelMemInit(nullptr, nullptr, nullptr);
    if (mem == nullptr) return r.failed(h0, nullptr, 0, "KelMemInit");
    std::string out;
    int32_t status = -1;
    h0 = r.step();
    KelStream *s = KelStreamInit(&out, nullptr, &status, "kelmem_context", static_cast<void *>(mem), "write",
                                 reinterpret_cast<void *>(&sink_write), static_cast<const char *>(nullptr));
    bool ok = true;
    if (s == nullptr) {
      EXPECT_EQ(status, KELSTREAM_DEAD) << "allocation refused";
      ok = r.failed(h0, nullptr, 0, "KelStreamInit");
    } else {
      size_t n = 5;
      EXPECT_EQ(KelStreamOpen(s, nullptr), KELSTREAM_OK);
      EXPECT_EQ(KelStreamWrite(s, "bytes", &n), KELSTREAM_OK);
      EXPECT_EQ(out, "bytes");
      EXPECT_EQ(KelStreamTerm(s), KELSTREAM_OK);
    }
    EXPECT_EQ(KelMemTerm(mem), KELSTREAM_OK);
    return ok;
  });
}

// -------------------------------------------------------------------- NLS

TEST_F(Walk, LanguageServices) {
  expect_walked("nls", [&](Attempt &r) {
    int64_t h0 = r.step();
    lxglo *glo = lxlinit(nullptr, 0);
    if (glo == nullptr) return r.failed(h0, nullptr, 0, "lxlinit");
    bool ok = true;
    // The date family keeps the view of a territory once made: each walk
    // takes one it has not seen.
    static const char *const names[] = {
        "GERMAN_GERMANY.WE8ISO8859P1", "GERMAN_GERMANY.AL32UTF8", "GERMAN_GERMANY.US7ASCII",
        "GERMAN_GERMANY.AL16UTF16",    "FRENCH_FRANCE.WE8ISO8859P1", "FRENCH_FRANCE.AL32UTF8",
        "FRENCH_FRANCE.US7ASCII",      "FRENCH_FRANCE.AL16UTF16"};
    const char *name = names[r.walk()];
    h0 = r.step();
    const lxenv *env = lxhLangEnv(glo, name, std::strlen(name));
    if (env == nullptr) ok = r.failed(h0, nullptr, 0, "lxhLangEnv");
    if (ok) {
      h0 = r.step();
      lmshdl *cat = lmsaicmt(env, "KELCORE", "LMM");
      if (cat == nullptr) {
        ok = r.failed(h0, nullptr, 0, "lmsaicmt");
      } else {
        char buf[128];
        EXPECT_GT(lmsagbf(cat, 3, buf, sizeof buf), 0);
        EXPECT_EQ(lmsatrm(cat), 0);
      }
    }
    if (ok) {
      // The date family's view of the territory, made on first use.
      struct Seen {
        int32_t err = 0;
      } seen;
      ldxctx dc;
      h0 = r.step();
      int32_t rc = ldxbegin(&dc, const_cast<lxenv *>(env), [](ldxctx *c, int32_t e) {
        static_cast<Seen *>(c->cbarg)->err = e;
      }, &seen);
      if (rc != 0) {
        EXPECT_EQ(rc, -1);
        EXPECT_EQ(seen.err, 600) << "the callback hears of it";
        ok = r.failed(h0, nullptr, 0, "ldxbegin");
      }
    }
    EXPECT_EQ(lxlterm(glo), 0);
    return ok;
  });
}

}  // namespace
