// kelcore http get: fetches a URL with the library's HTTP client and streams
// the body to standard output as it arrives.
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "common.h"
#include "lmm.h"
#include "lpu.h"

namespace kelcore_tool {
namespace {

const char kUsageText[] =
    "usage: kelcore http get URL [--head] [--data TEXT|@FILE|@-] [--header 'NAME: VALUE']...\n"
    "                            [--timeout SECONDS] [--include] [--cacert FILE] [--insecure]\n"
    "  fetches an http or https URL and writes the body to standard output as it comes;\n"
    "  --head sends HEAD and writes the status line and headers instead;\n"
    "  --data sends TEXT (or FILE's contents, or standard input) with POST;\n"
    "  --timeout limits the whole request (seconds, decimals allowed);\n"
    "  --include writes the status line and headers before the body;\n"
    "  --cacert trusts the certificates of FILE instead of the system's,\n"
    "  --insecure accepts any certificate. A 4xx or 5xx answer exits with 1.\n";

// Writes the status line and the headers of a response to stdout.
void print_head(const lpuresp *r) {
  std::printf("%d %s\n", r->status, r->reason ? r->reason : "");
  for (size_t i = 0; i < r->nheaders; i++) std::printf("%s: %s\n", r->headers[i].name, r->headers[i].value);
}

struct Output {
  bool include = false;
  bool failed = false;  // stdout refused a write
};

int32_t to_stdout(void *arg, const lpuresp *head, const void *data, size_t n) {
  auto *o = static_cast<Output *>(arg);
  if (data == nullptr) {
    if (o->include) {
      print_head(head);
      std::printf("\n");
    }
    return 0;
  }
  if (!write_stdout(data, n)) o->failed = true;
  return o->failed ? -1 : 0;
}

// A request body from a file, read where the client asks.
int64_t from_file(void *arg, uint64_t offset, void *buf, size_t bufl) {
  FILE *f = static_cast<FILE *>(arg);
  if (std::fseek(f, static_cast<long>(offset), SEEK_SET) != 0) return -1;
  size_t n = std::fread(buf, 1, bufl, f);
  return std::ferror(f) ? -1 : static_cast<int64_t>(n);
}

bool parse_seconds(const char *s, int32_t *ms) {
  char *end = nullptr;
  errno = 0;
  double v = std::strtod(s, &end);
  if (errno != 0 || end == s || *end != '\0' || !(v > 0) || v > 2000000) return false;
  *ms = static_cast<int32_t>(v * 1000 + 0.5);
  return *ms > 0;
}

}  // namespace

int cmd_http(int argc, char **argv) {
  for (int i = 0; i < argc; i++)
    if (is_help(argv[i])) {
      std::fputs(kUsageText, stdout);
      return kOk;
    }
  if (argc < 1) return usage_error("http", kUsageText, "missing the action");
  if (std::strcmp(argv[0], "get") != 0) return usage_error("http", kUsageText, "unknown action '%s'", argv[0]);
  const char *url = nullptr, *data = nullptr, *cafile = nullptr;
  bool head = false, insecure = false;
  Output out;
  int32_t total_ms = 0;
  std::vector<std::string> hdrtext;
  for (int i = 1; i < argc; i++) {
    const char *a = argv[i];
    bool takes = std::strcmp(a, "--data") == 0 || std::strcmp(a, "--timeout") == 0 ||
                 std::strcmp(a, "--header") == 0 || std::strcmp(a, "--cacert") == 0;
    if (takes && i + 1 >= argc) return usage_error("http", kUsageText, "%s needs a value", a);
    if (std::strcmp(a, "--head") == 0) {
      head = true;
    } else if (std::strcmp(a, "--include") == 0) {
      out.include = true;
    } else if (std::strcmp(a, "--insecure") == 0) {
      insecure = true;
    } else if (std::strcmp(a, "--data") == 0) {
      data = argv[++i];
    } else if (std::strcmp(a, "--cacert") == 0) {
      cafile = argv[++i];
    } else if (std::strcmp(a, "--timeout") == 0) {
      if (!parse_seconds(argv[++i], &total_ms))
        return usage_error("http", kUsageText, "--timeout needs a positive number of seconds, not '%s'", argv[i]);
    } else if (std::strcmp(a, "--header") == 0) {
      const char *h = argv[++i];
      if (std::strchr(h, ':') == nullptr || h[0] == ':')
        return usage_error("http", kUsageText, "--header needs 'NAME: VALUE', not '%s'", h);
      hdrtext.emplace_back(h);
    } else if (a[0] == '-' && a[1] == '-') {
      return usage_error("http", kUsageText, "unknown option '%s'", a);
    } else if (url) {
      return usage_error("http", kUsageText, "more than one URL");
    } else {
      url = a;
    }
  }
  if (!url) return usage_error("http", kUsageText, "missing URL");
  if (head && data) return usage_error("http", kUsageText, "--head and --data do not go together");

  Lib lib;
  void *u = lib.ok() ? lpuini(lib.ctx) : nullptr;
  lpuhc *hc = u ? lpuhcnew(u) : nullptr;
  if (!hc) {
    std::fprintf(stderr, "kelcore http: cannot start the library\n");
    if (u) lputrm(u);
    return kFail;
  }
  // Names and values of --header, split at the first colon.
  std::vector<lpuhdr> hdrs;
  for (std::string &h : hdrtext) {
    size_t c = h.find(':');
    h[c] = '\0';
    size_t v = h.find_first_not_of(" \t", c + 1);
    hdrs.push_back({h.c_str(), h.c_str() + (v == std::string::npos ? h.size() : v)});
  }
  lpureq rq{};
  rq.method = head ? "HEAD" : data ? "POST" : "GET";
  rq.url = url;
  rq.headers = hdrs.empty() ? nullptr : hdrs.data();
  rq.nheaders = hdrs.size();
  rq.total_ms = total_ms;
  rq.cafile = cafile;
  rq.tlsflags = insecure ? LPU_TLS_NOVERIFY : 0;
  if (!head) {
    rq.sink = to_stdout;
    rq.sinkarg = &out;
  }
  std::string body;
  FILE *file = nullptr;
  int rc = kOk;
  if (data && data[0] == '@' && std::strcmp(data, "@-") != 0) {
    file = std::fopen(data + 1, "rb");
    if (file == nullptr || std::fseek(file, 0, SEEK_END) != 0) {
      std::fprintf(stderr, "kelcore http: cannot read '%s': %s\n", data + 1, std::strerror(errno));
      rc = kFail;
    } else {
      rq.source = from_file;
      rq.sourcearg = file;
      rq.sourcel = std::ftell(file);
    }
  } else if (data) {
    body = std::strcmp(data, "@-") == 0 ? read_stdin() : std::string(data);
    rq.body = body.data();
    rq.bodyl = body.size();
  }
  void *m = lib.ctx->lmmctx;
  lmmheap *heap = lmmtophp(m);
  lpuresp r{};
  if (rc == kOk && lpuhreq(hc, &rq, m, heap, &r) != 0) {
    if (out.failed)
      std::fprintf(stderr, "kelcore http: cannot write to standard output\n");
    else
      lib.report("http", quoted(url).c_str());
    rc = kFail;
  } else if (rc == kOk) {
    if (head) print_head(&r);
    if (std::fflush(stdout) != 0) rc = kFail;
    if (r.status >= 400) {
      std::fprintf(stderr, "kelcore http: '%s': the server answered %d %s\n", url, r.status, r.reason ? r.reason : "");
      rc = kFail;
    }
    lpuhrfree(m, heap, &r);
  }
  if (file) std::fclose(file);
  lpuhcfree(hc);
  lputrm(u);
  return rc;
}

}  // namespace kelcore_tool
