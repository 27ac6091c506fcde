// kelcore base64 and kelcore url: thin layers over the URL utilities.
#include <string>
#include <vector>

#include "common.h"
#include "lpu.h"

namespace kelcore_tool {
namespace {

const char kB64Usage[] =
    "usage: kelcore base64 [-d] [--url] [--nopad]\n"
    "  encodes standard input as base64 to standard output (-d decodes);\n"
    "  --url uses the URL-safe alphabet, --nopad omits (or accepts missing) padding\n";

const char kUrlUsage[] =
    "usage: kelcore url resolve BASE REF\n"
    "  resolves the reference REF against the absolute URL BASE\n";

// The URL context of a started library.
struct UrlLib {
  Lib lib;
  void *u = nullptr;
  UrlLib() {
    if (lib.ok()) u = lpuini(lib.ctx);
  }
  ~UrlLib() {
    if (u) lputrm(u);
  }
};

}  // namespace

int cmd_base64(int argc, char **argv) {
  bool decode = false;
  uint32_t flags = 0;
  for (int i = 0; i < argc; i++) {
    if (is_help(argv[i])) {
      std::fputs(kB64Usage, stdout);
      return kOk;
    }
    if (std::strcmp(argv[i], "-d") == 0 || std::strcmp(argv[i], "--decode") == 0)
      decode = true;
    else if (std::strcmp(argv[i], "--url") == 0)
      flags |= LPU_B64_URL;
    else if (std::strcmp(argv[i], "--nopad") == 0)
      flags |= LPU_B64_NOPAD;
    else
      return usage_error("base64", kB64Usage, "unexpected argument '%s'", argv[i]);
  }
  UrlLib ul;
  if (!ul.u) {
    std::fprintf(stderr, "kelcore base64: cannot start the library\n");
    return kFail;
  }
  std::string in = read_stdin();
  if (decode) {
    // Line breaks and a trailing newline are the usual wrapping of encoded
    // text; the decoder itself refuses white space.
    std::string clean;
    for (char c : in)
      if (c != '\n' && c != '\r') clean += c;
    std::vector<char> out(clean.size() + 1);
    size_t n = 0;
    if (lpub64dec(ul.u, clean.data(), clean.size(), flags, out.data(), out.size(), &n) != 0) {
      // The input is shown around the offset the decoder names.
      int64_t off = 0;
      lemgnp(ul.lib.ctx->lemctx, 1, 1, &off, nullptr);
      size_t from = off > 10 ? static_cast<size_t>(off) - 10 : 0;
      std::string near = clean.substr(from, 20);
      for (char &c : near)
        if (static_cast<unsigned char>(c) < 32 || static_cast<unsigned char>(c) > 126) c = '?';
      ul.lib.report("base64", ("input " + quoted(((from > 0 ? "..." : "") + near).c_str())).c_str());
      return kFail;
    }
    if (!write_stdout(out.data(), n)) return kFail;
  } else {
    std::vector<char> out((in.size() + 2) / 3 * 4 + 1);
    size_t n = 0;
    if (lpub64enc(ul.u, in.data(), in.size(), flags, out.data(), out.size(), &n) != 0) {
      ul.lib.report("base64");
      return kFail;
    }
    out.resize(n);
    out.push_back('\n');
    if (!write_stdout(out.data(), out.size())) return kFail;
  }
  return kOk;
}

int cmd_url(int argc, char **argv) {
  for (int i = 0; i < argc; i++)
    if (is_help(argv[i])) {
      std::fputs(kUrlUsage, stdout);
      return kOk;
    }
  if (argc < 1) return usage_error("url", kUrlUsage, "missing the action");
  if (std::strcmp(argv[0], "resolve") != 0) return usage_error("url", kUrlUsage, "unknown action '%s'", argv[0]);
  if (argc != 3) return usage_error("url", kUrlUsage, "resolve takes BASE and REF");
  UrlLib ul;
  if (!ul.u) {
    std::fprintf(stderr, "kelcore url: cannot start the library\n");
    return kFail;
  }
  size_t bl = std::strlen(argv[1]), rl = std::strlen(argv[2]);
  // Each argument is checked on its own first, so that a failure names it.
  lpuurl parts;
  for (int k = 1; k <= 2; k++) {
    if (lpuparse(ul.u, argv[k], std::strlen(argv[k]), &parts) != 0) {
      ul.lib.report("url", quoted(argv[k]).c_str());
      return kFail;
    }
  }
  std::vector<char> out(bl + rl + 64);
  size_t n = 0;
  if (lpuresolve(ul.u, argv[1], bl, argv[2], rl, out.data(), out.size(), &n) != 0) {
    ul.lib.report("url", (quoted(argv[1]) + " and " + quoted(argv[2])).c_str());
    return kFail;
  }
  std::printf("%.*s\n", static_cast<int>(n), out.data());
  return kOk;
}

}  // namespace kelcore_tool
