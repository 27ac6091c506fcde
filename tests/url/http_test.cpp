// The HTTP client against a scripted server on 127.0.0.1 started by the
// test (tests/url/http_server.py): bodies of every framing, methods,
// redirects, kept connections, time-outs, refused connections, a proxy from
// the environment and malformed responses.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <vector>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "kelmsg_kelcore_lpu.h"
#include "lem.h"
#include "lpm.h"
#include "lpu.h"
#include "sl.h"

namespace {

struct Server {
  FILE *p = nullptr;
  int port = 0, dead = 0, hole = 0;
  Server() {
    std::string cmd = std::string(KEL_PYTHON) + " " + KEL_SOURCE_DIR + "/tests/url/http_server.py";
    p = popen(cmd.c_str(), "r");
    if (p == nullptr || fscanf(p, "%d %d %d", &port, &dead, &hole) != 3) port = 0;
  }
  ~Server() {
    if (p) pclose(p);
  }
};

class Http : public ::testing::Test {
 protected:
  static Server *srv;
  static void SetUpTestSuite() { srv = new Server; }
  static void TearDownTestSuite() {
    // Ask the server to stop, then wait for it.
    lcorectx *c = lpminit();
    void *u = lpuini(c);
    lpuhc *hc = lpuhcnew(u);
    lpureq rq{};
    std::string url = "http://127.0.0.1:" + std::to_string(srv->port) + "/quit";
    rq.url = url.c_str();
    rq.read_ms = 2000;
    lpuresp r;
    if (lpuhreq(hc, &rq, c->lmmctx, lmmtophp(c->lmmctx), &r) == 0) lpuhrfree(c->lmmctx, lmmtophp(c->lmmctx), &r);
    lpuhcfree(hc);
    lputrm(u);
    lpmterm(c);
    delete srv;
  }
  void SetUp() override {
    ASSERT_NE(srv->port, 0) << "test server did not start";
    ctx = lpminit();
    u = lpuini(ctx);
    hc = lpuhcnew(u);
    m = ctx->lmmctx;
    heap = lmmtophp(m);
  }
  void TearDown() override {
    lpuhcfree(hc);
    lputrm(u);
    lpmterm(ctx);
  }
  std::string url(const std::string &path, int port = 0) {
    return "http://127.0.0.1:" + std::to_string(port ? port : srv->port) + path;
  }
  // Runs a request; returns the result and leaves the response in r.
  int32_t get(const std::string &target, const char *method = "GET", const char *body = nullptr, size_t bodyl = 0,
              int32_t read_ms = 0, int32_t maxr = -1, const lpuhdr *hdrs = nullptr, size_t nh = 0) {
    lpuhrfree(m, heap, &r);
    lemces(ctx->lemctx);
    lpureq rq{};
    rq.method = method;
    rq.url = target.c_str();
    rq.body = body;
    rq.bodyl = bodyl;
    rq.read_ms = read_ms;
    rq.connect_ms = 1000;
    rq.maxredirects = maxr;
    rq.headers = hdrs;
    rq.nheaders = nh;
    return lpuhreq(hc, &rq, m, heap, &r);
  }
  std::string body() const { return std::string(reinterpret_cast<const char *>(r.body), r.bodyl); }
  std::string msg() {
    char b[512];
    lemgem(ctx->lemctx, 1, b, sizeof b);
    return b;
  }
  int32_t top() { return lemgec(ctx->lemctx, 1); }

  lcorectx *ctx = nullptr;
  void *u = nullptr;
  lpuhc *hc = nullptr;
  void *m = nullptr;
  lmmheap *heap = nullptr;
  lpuresp r{};
};
Server *Http::srv = nullptr;

std::string data(size_t n) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; i++) s[i] = static_cast<char>(i * 7 % 251);
  return s;
}

TEST_F(Http, BodiesOfEveryFraming) {
  struct {
    const char *path;
    size_t n;
  } rows[] = {{"/file/0", 0},       {"/file/1", 1},       {"/file/100000", 100000}, {"/chunked/0", 0},
              {"/chunked/1", 1},    {"/chunked/70000", 70000}, {"/close/5000", 5000}, {"/close/0", 0},
              {"/interim", 5}};
  for (auto &row : rows) {
    ASSERT_EQ(get(url(row.path)), 0) << row.path << ": " << msg();
    EXPECT_EQ(r.status, 200) << row.path;
    EXPECT_STREQ(r.reason, "OK");
    if (strcmp(row.path, "/interim") == 0)
      EXPECT_EQ(body(), "final");
    else
      EXPECT_EQ(body(), data(row.n)) << row.path;
    EXPECT_EQ(r.body[r.bodyl], 0);
  }
  lpuhrfree(m, heap, &r);
}

TEST_F(Http, MethodsHeadersAndBodies) {
  const std::string bin("a\0b\r\nc", 6);
  lpuhdr h[] = {{"X-Test", "one two"}, {"Accept", "*/*"}};
  struct {
    const char *method;
    const std::string body;
    const char *first;
  } rows[] = {{"POST", "hello", "POST /echo HTTP/1.1"}, {"PUT", bin, "PUT /echo HTTP/1.1"},
              {"GET", "", "GET /echo HTTP/1.1"},     {"POST", "", "POST /echo HTTP/1.1"}};
  for (auto &row : rows) {
    ASSERT_EQ(get(url("/echo"), row.method, row.body.empty() ? nullptr : row.body.data(), row.body.size(), 0, -1,
                  h, 2),
              0)
        << msg();
    std::string b = body();
    EXPECT_EQ(b.substr(0, b.find('\n')), row.first);
    EXPECT_NE(b.find("X-Test: one two\n"), std::string::npos) << b;
    EXPECT_NE(b.find("Host: 127.0.0.1:" + std::to_string(srv->port) + "\n"), std::string::npos) << b;
    bool has_len = b.find("Content-Length: " + std::to_string(row.body.size()) + "\n") != std::string::npos;
    EXPECT_EQ(has_len, strcmp(row.method, "GET") != 0) << b;
    EXPECT_EQ(b.substr(b.find("\n\n") + 2), row.body);
  }
  EXPECT_STREQ(lpuhget(&r, "x-multi"), "a");
  EXPECT_STREQ(lpuhget(&r, "CONTENT-LENGTH"), std::to_string(r.bodyl).c_str());
  EXPECT_EQ(lpuhget(&r, "X-None"), nullptr);

  ASSERT_EQ(get(url("/file/100"), "HEAD"), 0) << msg();
  EXPECT_EQ(r.bodyl, 0u);
  EXPECT_STREQ(lpuhget(&r, "Content-Length"), "100");
  ASSERT_EQ(get(url("/file/3")), 0) << msg();  // the connection is still in step
  EXPECT_EQ(body(), data(3));
  EXPECT_EQ(r.reused, 1);
  ASSERT_EQ(get(url("/nothing")), 0);
  EXPECT_EQ(r.status, 404);
  EXPECT_STREQ(r.reason, "Not Found");
  lpuhrfree(m, heap, &r);
}

TEST_F(Http, RedirectsAreFollowedWithinTheLimit) {
  ASSERT_EQ(get(url("/redirect/3")), 0) << msg();
  EXPECT_EQ(body(), "done");
  EXPECT_EQ(r.redirects, 3);
  EXPECT_EQ(std::string(r.url), url("/redirect/0"));

  ASSERT_EQ(get(url("/redirect/3"), "GET", nullptr, 0, 0, 0), 0);  // not followed
  EXPECT_EQ(r.status, 302);
  EXPECT_STREQ(lpuhget(&r, "Location"), "/redirect/2");

  EXPECT_EQ(get(url("/redirect/3"), "GET", nullptr, 0, 0, 2), -1);
  EXPECT_EQ(top(), kelmsg::LPU_TOOMANYREDIR);
  EXPECT_EQ(r.block, nullptr);
  EXPECT_EQ(get(url("/loop")), -1);
  EXPECT_EQ(top(), kelmsg::LPU_TOOMANYREDIR);
  EXPECT_NE(msg().find("5"), std::string::npos) << msg();

  // 303 turns a POST into a GET without body; 307 keeps both.
  ASSERT_EQ(get(url("/see-other"), "POST", "data", 4), 0) << msg();
  EXPECT_EQ(body().substr(0, body().find('\n')), "GET /echo HTTP/1.1");
  EXPECT_EQ(std::string(r.url), url("/echo"));
  ASSERT_EQ(get(url("/temp"), "POST", "data", 4), 0) << msg();
  EXPECT_EQ(body().substr(0, body().find('\n')), "POST /echo HTTP/1.1");
  EXPECT_EQ(body().substr(body().find("\n\n") + 2), "data");
  lpuhrfree(m, heap, &r);
}

TEST_F(Http, KeptConnectionsAreReused) {
  ASSERT_EQ(get(url("/conn")), 0) << msg();
  std::string first = body();
  EXPECT_EQ(first.substr(first.find("request")), "request 1");
  ASSERT_EQ(get(url("/conn")), 0) << msg();
  EXPECT_EQ(r.reused, 1);
  std::string second = body();
  EXPECT_EQ(second.substr(0, second.find(" request")), first.substr(0, first.find(" request")));
  EXPECT_EQ(second.substr(second.find("request")), "request 2");

  // The server closes: the next request opens a new connection.
  ASSERT_EQ(get(url("/conn-close")), 0) << msg();
  ASSERT_EQ(get(url("/conn")), 0) << msg();
  EXPECT_EQ(r.reused, 0);
  EXPECT_EQ(body().substr(body().find("request")), "request 1");

  // The server drops a kept connection while it is parked.
  ASSERT_EQ(get(url("/drop")), 0) << msg();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ASSERT_EQ(get(url("/conn")), 0) << msg();
  EXPECT_EQ(body().substr(body().find("request")), "request 1");
  lpuhrfree(m, heap, &r);
}

TEST_F(Http, TimeOutsAndRefusedConnections) {
  struct {
    std::string target;
    int32_t read_ms;
    int32_t msg;
    const char *text;
  } rows[] = {
      {url("/slow"), 300, kelmsg::LPU_TIMEOUT, "time-out while reading the status line"},
      {url("/slowbody"), 300, kelmsg::LPU_TIMEOUT, "time-out while reading the body"},
      {url("/", srv->dead), 300, kelmsg::LPU_CONNECT, "connection refused"},
      {url("/", srv->hole), 300, kelmsg::LPU_TIMEOUT, "time-out"},
  };
  for (auto &row : rows) {
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(get(row.target, "GET", nullptr, 0, row.read_ms), -1) << row.target;
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_LT(ms, 2500) << row.target;  // the limit, not the server, ended it
    EXPECT_EQ(top(), row.msg) << row.target << ": " << msg();
    EXPECT_NE(msg().find(row.text), std::string::npos) << msg();
  }
}

TEST_F(Http, ProxyFromTheEnvironment) {
  std::string proxy = "http://127.0.0.1:" + std::to_string(srv->port);
  std::string target = "http://localhost:" + std::to_string(srv->dead) + "/echo?x=1";
  setenv("http_proxy", proxy.c_str(), 1);
  unsetenv("no_proxy");
  ASSERT_EQ(get(target), 0) << msg();
  EXPECT_EQ(body().substr(0, body().find('\n')), "GET " + target + " HTTP/1.1");
  setenv("no_proxy", "example.org, .localhost", 1);
  EXPECT_EQ(get(target), -1);  // straight to the dead port
  EXPECT_EQ(top(), kelmsg::LPU_CONNECT);
  unsetenv("no_proxy");
  setenv("http_proxy", ("127.0.0.1:" + std::to_string(srv->port)).c_str(), 1);  // without scheme
  EXPECT_EQ(get(target), 0) << msg();
  unsetenv("http_proxy");
  lpuhrfree(m, heap, &r);
}

TEST_F(Http, MalformedResponsesAndRequestsGiveErrors) {
  struct {
    const char *name;
    int32_t msg;  // 0: success expected
  } rows[] = {
      {"garbage", kelmsg::LPU_BADRESP},   {"status", kelmsg::LPU_BADRESP},     {"version", kelmsg::LPU_BADRESP},
      {"nocolon", kelmsg::LPU_BADRESP},   {"spacename", kelmsg::LPU_BADRESP},  {"chunksize", kelmsg::LPU_BADRESP},
      {"chunkhuge", kelmsg::LPU_BADRESP}, {"chunkend", kelmsg::LPU_BADRESP},   {"chunktrunc", kelmsg::LPU_BADRESP},
      {"short", kelmsg::LPU_BADRESP},     {"conflict", kelmsg::LPU_BADRESP},   {"negative", kelmsg::LPU_BADRESP},
      {"empty", kelmsg::LPU_BADRESP},     {"headersonly", kelmsg::LPU_BADRESP}, {"ctl", kelmsg::LPU_BADRESP},
      {"longline", kelmsg::LPU_BADRESP},  {"nolocation", 0},                   {"badlocation", kelmsg::LPU_BADRESP},
  };
  for (auto &row : rows) {
    int32_t rc = get(url(std::string("/bad/") + row.name));
    if (row.msg == 0) {
      EXPECT_EQ(rc, 0) << row.name << ": " << msg();
      continue;
    }
    EXPECT_EQ(rc, -1) << row.name;
    EXPECT_EQ(r.block, nullptr);
    EXPECT_EQ(top(), row.msg) << row.name << ": " << msg();
  }
  // Requests the client refuses to send.
  lpuhdr crlf[] = {{"X-A", "a\r\nInjected: 1"}};
  lpuhdr badname[] = {{"X A", "a"}};
  struct {
    std::string target;
    const char *method;
    const lpuhdr *h;
    int32_t msg;
  } reqs[] = {
      {"https://127.0.0.1/", "GET", nullptr, kelmsg::LPU_SCHEME},
      {"ftp://127.0.0.1/", "GET", nullptr, kelmsg::LPU_SCHEME},
      {"http:///nohost", "GET", nullptr, kelmsg::LPU_BADARG},
      {"http://127.0.0.1:99999/", "GET", nullptr, kelmsg::LPU_BADURL},
      {url("/echo"), "GE T", nullptr, kelmsg::LPU_BADARG},
      {url("/echo"), "GET", crlf, kelmsg::LPU_BADARG},
      {url("/echo"), "GET", badname, kelmsg::LPU_BADARG},
  };
  for (auto &q : reqs) {
    EXPECT_EQ(get(q.target, q.method, nullptr, 0, 0, -1, q.h, q.h ? 1 : 0), -1) << q.target;
    EXPECT_EQ(top(), q.msg) << q.target << ": " << msg();
  }
  // The client still works after all that.
  ASSERT_EQ(get(url("/file/10")), 0) << msg();
  EXPECT_EQ(body(), data(10));
  lpuhrfree(m, heap, &r);
}

TEST_F(Http, SystemFailuresAreReportedAndLeaveTheClientUsable) {
  struct {
    int32_t point;
    int64_t nth;
    int32_t msg;
  } rows[] = {
      {SL_FAULT_SOCKET, 1, kelmsg::LPU_CONNECT},  // connect
      {SL_FAULT_SOCKET, 2, kelmsg::LPU_IO},       // send
      {SL_FAULT_SOCKET, 3, kelmsg::LPU_IO},       // first receive
  };
  for (auto &row : rows) {
    lpuhcfree(hc);  // start without a kept connection
    hc = lpuhcnew(u);
    ASSERT_EQ(slfaultarm(row.point, row.nth, 1), 0);
    EXPECT_EQ(get(url("/file/100")), -1) << row.nth;
    slfaultreset();
    EXPECT_EQ(top(), row.msg) << row.nth << ": " << msg();
    ASSERT_EQ(get(url("/file/100")), 0) << msg();
    EXPECT_EQ(body(), data(100));
  }
  // Every allocation of a request in turn: a failure is a clean -1 with a
  // record, and the next request works.
  bool finished = false;
  for (int64_t nth = 1; nth < 200 && !finished; nth++) {
    lpuhrfree(m, heap, &r);
    lemces(ctx->lemctx);
    slfaultarm(SL_FAULT_MEM, nth, 1);
    int32_t rc = get(url("/redirect/1"));
    bool hit = slfaulthits(SL_FAULT_MEM) > 0;
    slfaultreset();
    if (!hit) {
      ASSERT_EQ(rc, 0) << msg();
      EXPECT_EQ(body(), "done");
      finished = true;
      continue;
    }
    if (rc == 0) {
      EXPECT_EQ(body(), "done");  // a failure the client could route around
    } else {
      EXPECT_GE(lemged(ctx->lemctx), 1) << "no record for allocation " << nth;
      EXPECT_EQ(r.block, nullptr);
    }
    ASSERT_EQ(get(url("/file/7")), 0) << msg();
    EXPECT_EQ(body(), data(7));
  }
  EXPECT_TRUE(finished);
  lpuhrfree(m, heap, &r);
}

TEST_F(Http, ClientsOnSeveralThreadsShareOneContext) {
  std::vector<std::thread> ts;
  std::atomic<int> good{0};
  for (int t = 0; t < 4; t++) {
    ts.emplace_back([&, t] {
      lpuhc *mine = lpuhcnew(u);
      for (int i = 0; i < 25; i++) {
        size_t n = static_cast<size_t>(t * 1000 + i * 37);
        std::string target = url("/file/" + std::to_string(n));
        lpureq rq{};
        rq.url = target.c_str();
        lpuresp resp;
        if (lpuhreq(mine, &rq, m, heap, &resp) != 0) continue;
        if (std::string(reinterpret_cast<const char *>(resp.body), resp.bodyl) == data(n))
          good++;
        lpuhrfree(m, heap, &resp);
        // Failures on this thread go on this thread's stack only.
        std::string bad = url("/", srv->dead);
        rq.url = bad.c_str();
        if (lpuhreq(mine, &rq, m, heap, &resp) == -1 && lemgec(ctx->lemctx, 1) == kelmsg::LPU_CONNECT) good++;
        lemces(ctx->lemctx);
      }
      lpuhcfree(mine);
    });
  }
  for (auto &t : ts) t.join();
  EXPECT_EQ(good.load(), 4 * 25 * 2);
}

}  // namespace
