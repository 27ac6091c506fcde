#include "common.h"

#include "lfi.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>

namespace kelcore_tool {

int Lib::report(const char *cmd, const char *input) const {
  if (!ctx) return 0;
  void *lem = ctx->lemctx;
  int32_t n = lemged(lem);
  for (int32_t i = 1; i <= n; i++) {
    char buf[1024];
    int32_t len = lemgem(lem, i, buf, sizeof buf);
    if (len < 0) len = 0;
    if (static_cast<size_t>(len) >= sizeof buf) len = sizeof buf - 1;
    buf[len] = '\0';
    // A formatted message may already end with a newline.
    while (len > 0 && (buf[len - 1] == '\n' || buf[len - 1] == '\r')) buf[--len] = '\0';
    if (input != nullptr)
      std::fprintf(stderr, "kelcore %s: %s: %s\n", cmd, input, buf);
    else
      std::fprintf(stderr, "kelcore %s: %s\n", cmd, buf);
  }
  lemces(lem);
  return n;
}

std::string quoted(const char *s) { return std::string("'") + s + "'"; }

bool is_help(const char *a) { return std::strcmp(a, "--help") == 0 || std::strcmp(a, "-h") == 0; }

int usage_error(const char *cmd, const char *usage, const char *fmt, ...) {
  std::fprintf(stderr, "kelcore %s: ", cmd);
  va_list ap;
  va_start(ap, fmt);
  std::vfprintf(stderr, fmt, ap);
  va_end(ap);
  std::fprintf(stderr, "\n%s", usage);
  return kUsage;
}

bool parse_int(const char *s, long long *out) {
  if (!s || !*s) return false;
  char *end = nullptr;
  errno = 0;
  long long v = std::strtoll(s, &end, 10);
  if (errno != 0 || *end != '\0') return false;
  *out = v;
  return true;
}

std::string read_stdin() {
  std::string s;
  char buf[65536];
  int64_t n;
  while ((n = slfread(slfstd(0), buf, sizeof buf)) > 0) s.append(buf, static_cast<size_t>(n));
  return s;
}

bool write_stdout(const void *data, size_t n) {
  // Text written through stdio so far goes first; the bytes then go to the
  // handle itself, past any line-end translation of the C library.
  if (std::fflush(stdout) != 0) return false;
  return n == 0 || slfwrite(slfstd(1), data, n) == static_cast<int64_t>(n);
}

}  // namespace kelcore_tool
