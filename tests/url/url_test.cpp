// URL parsing, composing, resolution, percent-coding and base64, checked
// against the published resolution examples and against Python's urllib
// and base64 modules.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "support/python.h"
#include "kelmsg_kelcore_lpu.h"
#include "lem.h"
#include "lpm.h"
#include "lpu.h"
#include "url/url_impl.h"

namespace {

struct Lib {
  lcorectx *ctx = lpminit();
  void *u = lpuini(ctx);
  ~Lib() {
    lputrm(u);
    lpmterm(ctx);
  }
  std::string last() {
    char b[512];
    lemgem(ctx->lemctx, 1, b, sizeof b);
    return b;
  }
  int32_t top() { return lemgec(ctx->lemctx, 1); }
};

std::string S(const lpupart &p) { return p.ptr ? std::string(p.ptr, p.len) : std::string("<none>"); }

std::string resolve(void *u, const std::string &base, const std::string &ref) {
  char buf[256];
  size_t n = 0;
  if (lpuresolve(u, base.data(), base.size(), ref.data(), ref.size(), buf, sizeof buf, &n) != 0) return "<error>";
  return std::string(buf, n);
}

// Lines of the oracle script as fields; "-" is absent, "=hex" a value. No
// field is ever empty, so splitting at tabs is exact.
std::vector<std::vector<std::string>> oracle(const char *mode, int seed, int count, std::vector<std::vector<bool>> *present) {
  std::vector<std::vector<std::string>> rows;
  std::string all;
  if (!kel_test::run_python("tests/url/url_oracle.py", std::string(mode) + " " + std::to_string(seed) + " " +
                                std::to_string(count), all))
    return rows;
  std::istringstream lines(all);
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> row;
    std::vector<bool> pres;
    std::istringstream fields(line);
    for (std::string f; std::getline(fields, f, '\t');) {
      std::string v = f;
      if (f[0] == '=') {
        v.clear();
        for (size_t k = 1; k + 1 < f.size(); k += 2) v += static_cast<char>(std::stoi(f.substr(k, 2), nullptr, 16));
      }
      row.push_back(f == "-" ? "" : v);
      pres.push_back(f != "-");
    }
    rows.push_back(row);
    if (present) present->push_back(pres);
  }
  return rows;
}

TEST(Url, ResolvesEveryPublishedExample) {
  Lib lib;
  const std::string base = "http://a/b/c/d;p?q";
  struct {
    const char *ref, *want;
  } cases[] = {
      // normal examples
      {"g:h", "g:h"}, {"g", "http://a/b/c/g"}, {"./g", "http://a/b/c/g"}, {"g/", "http://a/b/c/g/"},
      {"/g", "http://a/g"}, {"//g", "http://g"}, {"?y", "http://a/b/c/d;p?y"}, {"g?y", "http://a/b/c/g?y"},
      {"#s", "http://a/b/c/d;p?q#s"}, {"g#s", "http://a/b/c/g#s"}, {"g?y#s", "http://a/b/c/g?y#s"},
      {";x", "http://a/b/c/;x"}, {"g;x", "http://a/b/c/g;x"}, {"g;x?y#s", "http://a/b/c/g;x?y#s"},
      {"", "http://a/b/c/d;p?q"}, {".", "http://a/b/c/"}, {"./", "http://a/b/c/"}, {"..", "http://a/b/"},
      {"../", "http://a/b/"}, {"../g", "http://a/b/g"}, {"../..", "http://a/"}, {"../../", "http://a/"},
      {"../../g", "http://a/g"},
      // abnormal examples
      {"../../../g", "http://a/g"}, {"../../../../g", "http://a/g"}, {"/./g", "http://a/g"},
      {"/../g", "http://a/g"}, {"g.", "http://a/b/c/g."}, {".g", "http://a/b/c/.g"}, {"g..", "http://a/b/c/g.."},
      {"..g", "http://a/b/c/..g"}, {"./../g", "http://a/b/g"}, {"./g/.", "http://a/b/c/g/"},
      {"g/./h", "http://a/b/c/g/h"}, {"g/../h", "http://a/b/c/h"}, {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
      {"g;x=1/../y", "http://a/b/c/y"}, {"g?y/./x", "http://a/b/c/g?y/./x"}, {"g?y/../x", "http://a/b/c/g?y/../x"},
      {"g#s/./x", "http://a/b/c/g#s/./x"}, {"g#s/../x", "http://a/b/c/g#s/../x"}, {"http:g", "http:g"},
  };
  for (auto &c : cases) EXPECT_EQ(resolve(lib.u, base, c.ref), c.want) << "ref " << c.ref;

  // Bases the examples do not cover: an empty path under an authority, a
  // relative base, and dot removal of a path on its own.
  EXPECT_EQ(resolve(lib.u, "http://a", "g"), "http://a/g");
  EXPECT_EQ(resolve(lib.u, "http://a?x", "?y#f"), "http://a?y#f");
  EXPECT_EQ(resolve(lib.u, "mailto:x@y", "z"), "mailto:z");
  // Dot removal can leave a path starting "//" where there is no authority.
  EXPECT_EQ(resolve(lib.u, "x:/a", "/.//b"), "x:/.//b");
  EXPECT_EQ(resolve(lib.u, "httpsttps:", "httpsttps:/.//.:'.//."), "httpsttps:/.//.:'.//");
  lpuurl rel{};
  rel.path = lpupart{"a:b/c", 5};
  char cb[16];
  size_t cn;
  ASSERT_EQ(lpucompose(lib.u, &rel, cb, sizeof cb, &cn), 0);
  EXPECT_EQ(std::string(cb, cn), "./a:b/c");
  EXPECT_EQ(resolve(lib.u, "//a/b", "c"), "<error>");
  EXPECT_EQ(lib.top(), kelmsg::LPU_NOTABS);
  char out[64];
  size_t n;
  struct {
    const char *in, *want;
  } dots[] = {{"/a/b/c/./../../g", "/a/g"}, {"mid/content=5/../6", "mid/6"}, {"/..", "/"}, {"", ""}, {"a/..", "/"},
              {"/a/b/..", "/a/"}, {"../a/./b/.", "a/b/"}};
  for (auto &d : dots) {
    ASSERT_EQ(lpurmdot(lib.u, d.in, strlen(d.in), out, sizeof out, &n), 0);
    EXPECT_EQ(std::string(out, n), d.want) << d.in;
  }
}

TEST(Url, ParsesPartsAndRefusesBadSyntax) {
  Lib lib;
  struct {
    const char *in;
    const char *parts;  // scheme|user|password|host|port|path|query|fragment, "-" for none
    int hosttype, portnum;
  } good[] = {
      {"http://u:p@h.example:8080/a/b?q=1#f", "http|u|p|h.example|8080|/a/b|q=1|f", 1, 8080},
      {"https://[2001:db8::1]:443/", "https|-|-|2001:db8::1|443|/|-|-", 3, 443},
      {"ftp://10.0.0.255", "ftp|-|-|10.0.0.255|-||-|-", 2, -1},
      {"file:///etc/hosts", "file|-|-||-|/etc/hosts|-|-", 1, -1},
      {"mailto:a@b.c", "mailto|-|-|-|-|a@b.c|-|-", 0, -1},
      {"//h:/p?", "-|-|-|h||/p||-", 1, -1},
      {"../x;y?a=b/c?d#", "-|-|-|-|-|../x;y|a=b/c?d|", 0, -1},
      {"http://256.1.1.1/", "http|-|-|256.1.1.1|-|/|-|-", 1, -1},
      {"http://@h", "http||-|h|-||-|-", 1, -1},
      {"http://h:65535", "http|-|-|h|65535||-|-", 1, 65535},
      {"x://[::ffff:1.2.3.4]", "x|-|-|::ffff:1.2.3.4|-||-|-", 3, -1},
      {"x://[v7.a:b]", "x|-|-|v7.a:b|-||-|-", 3, -1},
      {"", "-|-|-|-|-||-|-", 0, -1},
  };
  for (auto &g : good) {
    lpuurl u;
    ASSERT_EQ(lpuparse(lib.u, g.in, strlen(g.in), &u), 0) << g.in << ": " << lib.last();
    std::string got;
    for (const lpupart *p : {&u.scheme, &u.user, &u.password, &u.host, &u.port, &u.path, &u.query, &u.fragment})
      got += (p == &u.scheme ? "" : "|") + (p->ptr ? std::string(p->ptr, p->len) : "-");
    EXPECT_EQ(got, g.parts) << g.in;
    EXPECT_EQ(u.hosttype, g.hosttype) << g.in;
    EXPECT_EQ(u.portnum, g.portnum) << g.in;
    char buf[128];
    size_t n;
    ASSERT_EQ(lpucompose(lib.u, &u, buf, sizeof buf, &n), 0);
    EXPECT_EQ(std::string(buf, n), g.in);
  }
  struct {
    const char *in;
    int64_t off;
  } bad[] = {
      {"http://h/a b", 10}, {"http://h:65536/", 9}, {"http://h:8x/", 10}, {"http://[::1/", 7},
      {"http://[1:2:3:4:5:6:7:8:9]/", 8}, {"http://[1::2::3]/", 8}, {"http://[::1]x/", 12}, {"1http://h", 5},
      {":x", 0}, {"a:b/%zz", 4}, {"a:b/%4", 4}, {"http://h/#a#b", 11}, {"http://u@v@h/", 8}, {"x://[12345::]", 5},
      {"http://h/\x01", 9}, {"http://h/[", 9}, {"x://[1.2.3.4]", 5},
  };
  for (auto &b : bad) {
    lpuurl u;
    lemces(lib.ctx->lemctx);
    EXPECT_EQ(lpuparse(lib.u, b.in, strlen(b.in), &u), -1) << b.in;
    EXPECT_EQ(u.path.ptr, nullptr);
    EXPECT_EQ(lib.top(), kelmsg::LPU_BADURL) << b.in;
    int64_t off = -1;
    lemgnp(lib.ctx->lemctx, 1, 1, &off, nullptr);
    EXPECT_EQ(off, b.off) << b.in;
  }
  EXPECT_NE(lib.last().find("malformed URL at offset"), std::string::npos) << lib.last();
}

TEST(Url, RandomUrlsAgreeWithUrllibAndRoundTrip) {
  Lib lib;
  std::vector<std::vector<bool>> pres;
  auto rows = oracle("urls", 20261121, 2000, &pres);
  ASSERT_EQ(rows.size(), 2000u);
  for (size_t i = 0; i < rows.size(); i++) {
    auto &r = rows[i];
    const std::string &url = r[0];
    lpuurl u;
    ASSERT_EQ(lpuparse(lib.u, url.data(), url.size(), &u), 0) << url << ": " << lib.last();
    const lpupart *parts[] = {&u.scheme, &u.user, &u.password, &u.host, &u.port, &u.path, &u.query, &u.fragment};
    for (int k = 0; k < 8; k++) {
      EXPECT_EQ(parts[k]->ptr != nullptr, static_cast<bool>(pres[i][k + 1])) << url << " part " << k;
      if (parts[k]->ptr) EXPECT_EQ(S(*parts[k]), r[k + 1]) << url << " part " << k;
    }
    int ht = std::stoi(r[9]);
    if (ht != 1) EXPECT_EQ(u.hosttype, ht) << url;
    if (pres[i][5]) EXPECT_EQ(u.portnum, std::stoi(r[5])) << url;
    char buf[512];
    size_t n;
    ASSERT_EQ(lpucompose(lib.u, &u, buf, sizeof buf, &n), 0);
    EXPECT_EQ(std::string(buf, n), url);
  }
}

TEST(Url, PercentCodingAgreesWithUrllib) {
  Lib lib;
  auto rows = oracle("pct", 7, 500, nullptr);
  ASSERT_EQ(rows.size(), 500u);
  for (auto &r : rows) {
    char buf[256];
    size_t n;
    const uint32_t flags[] = {0, LPU_PCT_PATH, LPU_PCT_PLUS};
    for (int k = 0; k < 3; k++) {
      ASSERT_EQ(lpupenc(lib.u, r[0].data(), r[0].size(), nullptr, flags[k], buf, sizeof buf, &n), 0);
      EXPECT_EQ(std::string(buf, n), r[k + 1]);
      char dec[256];
      size_t m;
      ASSERT_EQ(lpupdec(lib.u, buf, n, flags[k], dec, sizeof dec, &m), 0);
      EXPECT_EQ(std::string(dec, m), r[0]);
    }
  }
  // Bad escapes, the "keep" set, lower-case digits and a short buffer.
  const char *bad[] = {"%", "a%4", "%g0", "%0g", "ab%"};
  for (const char *b : bad) {
    char out[8];
    size_t n;
    EXPECT_EQ(lpupdec(lib.u, b, strlen(b), 0, out, sizeof out, &n), -1) << b;
    EXPECT_EQ(lib.top(), kelmsg::LPU_BADPCT);
  }
  char buf[32];
  size_t n;
  ASSERT_EQ(lpupenc(lib.u, "a=b&c d\xff", 8, "=&", LPU_PCT_LOWER, buf, sizeof buf, &n), 0);
  EXPECT_EQ(std::string(buf, n), "a=b&c%20d%ff");
  EXPECT_EQ(lpupenc(lib.u, "a b", 3, nullptr, 0, buf, 4, &n), -1);
  EXPECT_EQ(n, 5u);
  EXPECT_EQ(lib.top(), kelmsg::LPU_BUFSMALL);
  EXPECT_EQ(lpupenc(lib.u, "a b", 3, nullptr, 0, buf, 5, &n), 0);  // exactly fits, no NUL
  EXPECT_EQ(lpupenc(lib.u, nullptr, 1, nullptr, 0, buf, sizeof buf, &n), -1);
  EXPECT_EQ(std::string(buf, 5), "a%20b");
}

TEST(Url, Base64AgreesWithPythonAndRefusesBadInput) {
  Lib lib;
  auto rows = oracle("b64", 11, 600, nullptr);
  ASSERT_EQ(rows.size(), 600u);
  for (auto &r : rows) {
    const uint32_t flags[] = {0, LPU_B64_URL, LPU_B64_NOPAD};
    for (int k = 0; k < 3; k++) {
      char buf[128];
      size_t n;
      ASSERT_EQ(lpub64enc(lib.u, r[0].data(), r[0].size(), flags[k], buf, sizeof buf, &n), 0);
      EXPECT_EQ(std::string(buf, n), r[k + 1]);
      uint8_t dec[128];
      size_t m;
      ASSERT_EQ(lpub64dec(lib.u, r[k + 1].data(), r[k + 1].size(), flags[k], dec, sizeof dec, &m), 0) << r[k + 1];
      EXPECT_EQ(std::string(reinterpret_cast<char *>(dec), m), r[0]);
    }
    // Padding is optional for the NOPAD decoder.
    uint8_t dec[128];
    size_t m;
    ASSERT_EQ(lpub64dec(lib.u, r[1].data(), r[1].size(), LPU_B64_NOPAD, dec, sizeof dec, &m), 0);
    EXPECT_EQ(m, r[0].size());
  }
  struct {
    const char *in;
    uint32_t flags;
    int64_t off;
  } bad[] = {
      {"QQ", 0, 2},          {"Q===", 0, 1},      {"QQ=", 0, 2},       {"QUJD=", 0, 4},    {"QR==", 0, 1},
      {"QUI=QUI=", 0, 3},    {"QU J", 0, 2},      {"QUJ\n", 0, 3},     {"Q", LPU_B64_NOPAD, 0},
      {"QUJDR", LPU_B64_NOPAD, 4}, {"a-_b", 0, 1}, {"a+/b", LPU_B64_URL, 1}, {"QUK", LPU_B64_NOPAD, 2},
      {"====", 0, 1},        {"QUJ\xff", 0, 3},
  };
  for (auto &b : bad) {
    uint8_t out[16];
    size_t n;
    lemces(lib.ctx->lemctx);
    EXPECT_EQ(lpub64dec(lib.u, b.in, strlen(b.in), b.flags, out, sizeof out, &n), -1) << b.in;
    EXPECT_EQ(lib.top(), kelmsg::LPU_BADB64) << b.in;
    int64_t off = -1;
    lemgnp(lib.ctx->lemctx, 1, 1, &off, nullptr);
    EXPECT_EQ(off, b.off) << b.in;
  }
  // All-zero groups, an output that fits exactly, a length query and a
  // short output buffer.
  size_t n;
  uint8_t zeros[3] = {9, 9, 9};
  ASSERT_EQ(lpub64dec(lib.u, "AAAA", 4, 0, zeros, sizeof zeros, &n), 0);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(zeros), 3), std::string(3, '\0'));
  char exact[4];
  ASSERT_EQ(lpub64enc(lib.u, "abc", 3, 0, exact, sizeof exact, &n), 0);
  EXPECT_EQ(std::string(exact, 4), "YWJj");
  EXPECT_EQ(lpub64enc(lib.u, "abcd", 4, 0, nullptr, 0, &n), -1);
  EXPECT_EQ(n, 8u);
  uint8_t two[2];
  EXPECT_EQ(lpub64dec(lib.u, "YWJj", 4, 0, two, sizeof two, &n), -1);
  EXPECT_EQ(n, 3u);
  EXPECT_EQ(lpub64dec(lib.u, "QQ==", 4, 0, nullptr, 0, &n), -1);
  EXPECT_EQ(n, 1u);
  EXPECT_EQ(lpub64dec(nullptr, "Y", 1, 0, two, sizeof two, &n), -1);  // no context: silent
}

TEST(Url, ResponseFramingReadInSmallPieces) {
  // The in-memory reader hands the bytes over 7 at a time, so chunk sizes,
  // CR LF pairs and header ends fall across every boundary.
  std::string big(5000, 'z');
  struct {
    std::string in;
    bool head;
    int rc, status;
    size_t bodyl;
  } rows[] = {
      {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello", false, 0, 200, 5},
      {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n", true, 0, 200, 0},
      {"HTTP/1.0 404 Not Found\nContent-Length: 2\n\nno", false, 0, 404, 2},  // bare LF
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip, chunked\r\n\r\n1\r\na\r\n" "A;x=y\r\n0123456789\r\n"
       "0\r\nT: 1\r\n\r\n", false, 0, 200, 11},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1388\r\n" + big + "\r\n0\r\n\r\n", false, 0, 200,
       5000},
      {"HTTP/1.1 200 OK\r\n\r\n" + big, false, 0, 200, 5000},  // until close
      {"HTTP/1.1 204 No Content\r\n\r\n", false, 0, 204, 0},
      {"HTTP/1.1 304 Not Modified\r\nContent-Length: 9\r\n\r\n", false, 0, 304, 0},
      {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 102 Processing\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx",
       false, 0, 200, 1},
      {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 2\r\n\r\nab", false, 0, 200, 2},
      {"HTTP/1.1 200\r\nContent-Length: 0\r\n\r\n", false, 0, 200, 0},  // no reason phrase
      {"HTTP/1.1 200 OK\r\nContent-Length: 1 \r\n\r\nx", false, 0, 200, 1},  // trailing space trimmed
      {"HTTP/1.1 200 OK\r\nContent-Length: +1\r\n\r\nx", false, -1, 0, 0},
      {"HTTP/1.1 200 OK\r\nContent-Length: 1,1\r\n\r\nx", false, -1, 0, 0},
      {"HTTP/1.1 200 OK\r\n Folded: x\r\n\r\n", false, -1, 0, 0},  // a fold needs a field before it
      {"HTTP/1.1 200 OK\r\nX: a\r\n b\r\nContent-Length:\r\n\t 1\r\n\r\nx", false, 0, 200, 1},
      {"HTTP/1.1 099 Low\r\n\r\n", false, -1, 0, 0},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n", false, -1, 0, 0},  // no last chunk
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n 2\r\nab\r\n0\r\n\r\n", false, -1, 0, 0},
      {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nab", false, -1, 0, 0},
      {"HTTP/1.1 200 OK", false, -1, 0, 0},
  };
  for (auto &row : rows) {
    int32_t status = 0;
    size_t bodyl = 0;
    EXPECT_EQ(lpu_internal::parse_response_mem(row.in.data(), row.in.size(), row.head, &status, &bodyl), row.rc)
        << row.in.substr(0, 80);
    if (row.rc == 0) {
      EXPECT_EQ(status, row.status) << row.in.substr(0, 80);
      EXPECT_EQ(bodyl, row.bodyl) << row.in.substr(0, 80);
    }
  }
}

}  // namespace
