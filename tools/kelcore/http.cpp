// kelcore http get: fetches a URL with the library's HTTP client.
#include "common.h"
#include "lmm.h"
#include "lpu.h"

namespace kelcore_tool {
namespace {

const char kUsageText[] =
    "usage: kelcore http get URL [--head]\n"
    "  fetches an http URL and writes the body to standard output;\n"
    "  --head writes the status line and headers to standard error as well\n";

}  // namespace

int cmd_http(int argc, char **argv) {
  for (int i = 0; i < argc; i++)
    if (is_help(argv[i])) {
      std::fputs(kUsageText, stdout);
      return kOk;
    }
  if (argc < 1) return usage_error("http", kUsageText, "missing the action");
  if (std::strcmp(argv[0], "get") != 0) return usage_error("http", kUsageText, "unknown action '%s'", argv[0]);
  const char *url = nullptr;
  bool head = false;
  for (int i = 1; i < argc; i++) {
    if (std::strcmp(argv[i], "--head") == 0)
      head = true;
    else if (argv[i][0] == '-' && argv[i][1] == '-')
      return usage_error("http", kUsageText, "unknown option '%s'", argv[i]);
    else if (url)
      return usage_error("http", kUsageText, "more than one URL");
    else
      url = argv[i];
  }
  if (!url) return usage_error("http", kUsageText, "missing URL");
  Lib lib;
  void *u = lib.ok() ? lpuini(lib.ctx) : nullptr;
  lpuhc *hc = u ? lpuhcnew(u) : nullptr;
  if (!hc) {
    std::fprintf(stderr, "kelcore http: cannot start the library\n");
    if (u) lputrm(u);
    return kFail;
  }
  lpureq rq{};
  rq.method = "GET";
  rq.url = url;
  void *m = lib.ctx->lmmctx;
  lmmheap *heap = lmmtophp(m);
  lpuresp r{};
  int rc = kOk;
  if (lpuhreq(hc, &rq, m, heap, &r) != 0) {
    lib.report("http");
    rc = kFail;
  } else {
    if (head) {
      std::fprintf(stderr, "%d %s\n", r.status, r.reason ? r.reason : "");
      for (size_t i = 0; i < r.nheaders; i++) std::fprintf(stderr, "%s: %s\n", r.headers[i].name, r.headers[i].value);
    }
    std::fwrite(r.body, 1, r.bodyl, stdout);
    if (r.status >= 400) {
      std::fprintf(stderr, "kelcore http: the server answered %d %s\n", r.status, r.reason ? r.reason : "");
      rc = kFail;
    }
    lpuhrfree(m, heap, &r);
  }
  lpuhcfree(hc);
  lputrm(u);
  return rc;
}

}  // namespace kelcore_tool
