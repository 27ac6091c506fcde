// URL parsing, base64 and HTTP GET latency, each beside its peer:
//   parse   lpuparse                  vs curl_url_set (libcurl's URL API)
//   b64enc  lpub64enc                 vs boost::beast::detail::base64::encode
//   b64dec  lpub64dec                 vs boost::beast::detail::base64::decode
//   get     lpuhreq on a kept connection vs curl_easy_perform with a reused
//           handle, both fetching the same file from a small server thread on
//           127.0.0.1 in this process.
//   tlsget  the same over TLS (OpenSSL on both sides; a certificate made
//           with the openssl command at start, trusted through a CA file).
// After the usual output a table gives the ratio ours / peer (time; below 1
// = ours faster).
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#if KEL_PEER_CURL
#include <curl/curl.h>
#endif
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#if KEL_PEER_BOOST
#include <boost/beast/core/detail/base64.hpp>
#endif
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "lpm.h"
#include "lpu.h"
#include "bench/support/ratio.h"

#if KEL_PEER_BOOST
namespace b64 = boost::beast::detail::base64;
#endif

namespace {

const char *const kUrls[] = {
    "http://user:pw@www.example.com:8080/path/to/resource.html?query=1&b=two#frag",
    "https://[2001:db8::1]:443/a/b/c",
    "ftp://ftp.example.org/pub/file.tar.gz",
    "http://10.1.2.3/index.html?x=%20y",
    "https://api.example.net/v2/items/12345/children?limit=50&offset=100",
};

void parse_ours(benchmark::State &s) {
  lpuurl u;
  for (auto _ : s)
    for (const char *url : kUrls) {
      lpuparse(nullptr, url, strlen(url), &u);
      benchmark::DoNotOptimize(u);
    }
  s.SetItemsProcessed(static_cast<int64_t>(s.iterations() * 5));
}

#if KEL_PEER_CURL
void parse_curl(benchmark::State &s) {
  CURLU *h = curl_url();
  for (auto _ : s)
    for (const char *url : kUrls) {
      curl_url_set(h, CURLUPART_URL, url, CURLU_NON_SUPPORT_SCHEME);
      benchmark::DoNotOptimize(h);
    }
  curl_url_cleanup(h);
  s.SetItemsProcessed(static_cast<int64_t>(s.iterations() * 5));
}
#endif

std::vector<uint8_t> random_bytes(size_t n) {
  std::mt19937_64 g(1);
  std::vector<uint8_t> v(n);
  for (auto &b : v) b = static_cast<uint8_t>(g());
  return v;
}

void b64enc_ours(benchmark::State &s) {
  auto in = random_bytes(static_cast<size_t>(s.range(0)));
  std::vector<char> out(in.size() * 4 / 3 + 8);
  size_t n;
  for (auto _ : s) {
    lpub64enc(nullptr, in.data(), in.size(), 0, out.data(), out.size(), &n);
    benchmark::DoNotOptimize(out.data());
  }
  s.SetBytesProcessed(static_cast<int64_t>(s.iterations() * in.size()));
}

#if KEL_PEER_BOOST
void b64enc_beast(benchmark::State &s) {
  auto in = random_bytes(static_cast<size_t>(s.range(0)));
  std::vector<char> out(b64::encoded_size(in.size()) + 8);
  for (auto _ : s) {
    b64::encode(out.data(), in.data(), in.size());
    benchmark::DoNotOptimize(out.data());
  }
  s.SetBytesProcessed(static_cast<int64_t>(s.iterations() * in.size()));
}
#endif

std::string encoded(size_t n) {
  auto in = random_bytes(n);
  std::string out(n * 4 / 3 + 8, '\0');
  size_t len = 0;
  lpub64enc(nullptr, in.data(), n, 0, out.data(), out.size(), &len);
  out.resize(len);
  return out;
}

void b64dec_ours(benchmark::State &s) {
  std::string in = encoded(static_cast<size_t>(s.range(0)));
  std::vector<uint8_t> out(in.size());
  size_t n;
  for (auto _ : s) {
    lpub64dec(nullptr, in.data(), in.size(), 0, out.data(), out.size(), &n);
    benchmark::DoNotOptimize(out.data());
  }
  s.SetBytesProcessed(static_cast<int64_t>(s.iterations() * in.size()));
}

#if KEL_PEER_BOOST
void b64dec_beast(benchmark::State &s) {
  std::string in = encoded(static_cast<size_t>(s.range(0)));
  std::vector<uint8_t> out(in.size());
  for (auto _ : s) {
    auto r = b64::decode(out.data(), in.data(), in.size());
    benchmark::DoNotOptimize(r);
  }
  s.SetBytesProcessed(static_cast<int64_t>(s.iterations() * in.size()));
}
#endif

// ------------------------------------------------------------ the server
// Answers every request on a connection with the same file, keeping the
// connection open; one thread per connection. With an SSL_CTX it speaks TLS.
struct Server {
  int fd = -1;
  int port = 0;
  SSL_CTX *tls = nullptr;
  std::atomic<bool> stop{false};
  std::thread acceptor;
  std::vector<std::thread> workers;
  std::string file1k, file64k;

  explicit Server(SSL_CTX *ctx = nullptr) : tls(ctx), file1k(1024, 'a'), file64k(65536, 'b') {
    fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a);
    socklen_t al = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr *>(&a), &al);
    port = ntohs(a.sin_port);
    listen(fd, 16);
    acceptor = std::thread([this] {
      for (;;) {
        int c = accept(fd, nullptr, nullptr);
        if (c < 0 || stop) {
          if (c >= 0) close(c);
          return;
        }
        workers.emplace_back([this, c] { serve(c); });
      }
    });
  }
  void serve(int c) {
    int one = 1;
    setsockopt(c, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    SSL *ssl = nullptr;
    if (tls != nullptr) {
      ssl = SSL_new(tls);
      SSL_set_fd(ssl, c);
      if (SSL_accept(ssl) != 1) {
        SSL_free(ssl);
        close(c);
        return;
      }
    }
    auto rd = [&](char *b, size_t n) { return ssl ? SSL_read(ssl, b, static_cast<int>(n)) : recv(c, b, n, 0); };
    auto wr = [&](const std::string &out) {
      return ssl ? SSL_write(ssl, out.data(), static_cast<int>(out.size())) > 0
                 : send(c, out.data(), out.size(), MSG_NOSIGNAL) >= 0;
    };
    std::string in;
    char buf[4096];
    for (;;) {
      size_t end;
      while ((end = in.find("\r\n\r\n")) == std::string::npos) {
        auto k = rd(buf, sizeof buf);
        if (k <= 0) goto done;
        in.append(buf, static_cast<size_t>(k));
      }
      {
        const std::string &body = in.compare(0, 10, "GET /64k H") == 0 ? file64k : file1k;
        in.erase(0, end + 4);
        if (!wr("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body)) goto done;
      }
    }
  done:
    if (ssl) SSL_free(ssl);
    close(c);
  }
  ~Server() {
    stop = true;
    shutdown(fd, SHUT_RDWR);
    close(fd);
    acceptor.join();
    for (auto &w : workers) w.detach();
  }
};

// A certificate for 127.0.0.1 and its key, made once with the openssl
// command in a temporary folder; the certificate is its own CA.
struct Certificate {
  std::string dir, cert, key;
  Certificate() {
    char tmpl[] = "/tmp/kelbenchXXXXXX";
    if (mkdtemp(tmpl) == nullptr) return;
    dir = tmpl;
    cert = dir + "/cert.pem";
    key = dir + "/key.pem";
    std::string cmd = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
                      "-subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout " +
                      key + " -out " + cert + " 2>/dev/null";
    if (std::system(cmd.c_str()) != 0) cert.clear();
  }
  ~Certificate() {
    if (!dir.empty()) std::system(("rm -rf " + dir).c_str());
  }
};

Server *g_srv = nullptr;
Server *g_tls = nullptr;
const Certificate *g_cert = nullptr;

std::string url_of(benchmark::State &s, bool tls) {
  return std::string(tls ? "https" : "http") + "://127.0.0.1:" + std::to_string((tls ? g_tls : g_srv)->port) +
         (s.range(0) == 1 ? "/1k" : "/64k");
}

void get_ours(benchmark::State &s, bool tls) {
  lcorectx *ctx = lpminit();
  void *u = lpuini(ctx);
  lpuhc *hc = lpuhcnew(u);
  std::string url = url_of(s, tls);
  lpureq rq{};
  rq.url = url.c_str();
  rq.cafile = g_cert->cert.c_str();
  lpuresp r;
  int64_t reused = 0;
  for (auto _ : s) {
    if (lpuhreq(hc, &rq, ctx->lmmctx, lmmtophp(ctx->lmmctx), &r) != 0) {
      s.SkipWithError("request failed");
      break;
    }
    benchmark::DoNotOptimize(r.bodyl);
    reused += r.reused;
    lpuhrfree(ctx->lmmctx, lmmtophp(ctx->lmmctx), &r);
  }
  s.counters["reused"] = benchmark::Counter(static_cast<double>(reused), benchmark::Counter::kAvgIterations);
  lpuhcfree(hc);
  lputrm(u);
  lpmterm(ctx);
}

#if KEL_PEER_CURL
size_t sink(char *p, size_t sz, size_t n, void *ud) {
  static_cast<std::string *>(ud)->append(p, sz * n);
  return sz * n;
}

void get_curl(benchmark::State &s, bool tls) {
  CURL *h = curl_easy_init();
  std::string url = url_of(s, tls);
  std::string body;
  curl_easy_setopt(h, CURLOPT_URL, url.c_str());
  curl_easy_setopt(h, CURLOPT_CAINFO, g_cert->cert.c_str());
  curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, sink);
  curl_easy_setopt(h, CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(h, CURLOPT_PROXY, "");
  for (auto _ : s) {
    body.clear();
    if (curl_easy_perform(h) != CURLE_OK) {
      s.SkipWithError("request failed");
      break;
    }
    benchmark::DoNotOptimize(body.size());
  }
  curl_easy_cleanup(h);
}
#endif

}  // namespace

int main(int argc, char **argv) {
#if KEL_PEER_CURL
  curl_global_init(CURL_GLOBAL_DEFAULT);
#endif
  Certificate cert;
  SSL_CTX *sctx = SSL_CTX_new(TLS_server_method());
  if (cert.cert.empty() || SSL_CTX_use_certificate_file(sctx, cert.cert.c_str(), SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_use_PrivateKey_file(sctx, cert.key.c_str(), SSL_FILETYPE_PEM) != 1) {
    std::fprintf(stderr, "bench_url: cannot make the TLS server's certificate\n");
    return 1;
  }
  Server srv, tlssrv(sctx);
  g_srv = &srv;
  g_tls = &tlssrv;
  g_cert = &cert;
  benchmark::RegisterBenchmark("parse/ours", parse_ours);
#if KEL_PEER_CURL
  benchmark::RegisterBenchmark("parse/peer", parse_curl);
#endif
  struct {
    const char *name;
    void (*fn)(benchmark::State &);
  } coders[] = {{"b64enc/ours", b64enc_ours}, {"b64dec/ours", b64dec_ours},
#if KEL_PEER_BOOST
                {"b64enc/peer", b64enc_beast}, {"b64dec/peer", b64dec_beast},
#endif
  };
  for (auto &c : coders) benchmark::RegisterBenchmark(c.name, c.fn)->Arg(64)->Arg(65536);
  for (bool tls : {false, true}) {
    std::string name = tls ? "tlsget" : "get";
    benchmark::RegisterBenchmark((name + "/ours").c_str(), get_ours, tls)->Arg(1)->Arg(64)->Unit(benchmark::kMicrosecond);
#if KEL_PEER_CURL
    benchmark::RegisterBenchmark((name + "/peer").c_str(), get_curl, tls)->Arg(1)->Arg(64)->Unit(benchmark::kMicrosecond);
#endif
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  kelbench::RatioReporter rep;
  benchmark::RunSpecifiedBenchmarks(&rep);
  benchmark::Shutdown();

  std::printf("\nratio ours / peer (time; below 1 = ours faster)\n");
  std::printf("%-8s %-6s %8s   peer\n", "case", "arg", "ratio");
  const char *peers[] = {"curl_url_set", "beast base64", "beast base64", "libcurl easy (reused handle)",
                         "libcurl easy over TLS (reused handle)"};
  const char *cases[] = {"parse", "b64enc", "b64dec", "get", "tlsget"};
  const char *args[][2] = {{"", nullptr}, {"/64", "/65536"}, {"/64", "/65536"}, {"/1", "/64"}, {"/1", "/64"}};
  for (int i = 0; i < 5; i++)
    for (const char *a : args[i]) {
      if (a == nullptr) continue;
      auto name = [&](const char *who) { return std::string(cases[i]) + "/" + who + a; };
      double r = rep.ratio("url", name("ours"), name("peer"));
      if (r > 0) std::printf("%-8s %-6s %8.2f   %s\n", cases[i], a[0] ? a + 1 : "-", r, peers[i]);
    }
  rep.print_ratios();
#if KEL_PEER_CURL
  curl_global_cleanup();
#endif
  SSL_CTX_free(sctx);
  return 0;
}
