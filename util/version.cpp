// The library's version and the comparison of version texts.
#include "lut.h"

namespace lut_internal {
namespace {

constexpr int32_t kMajor = 10, kMinor = 0, kPatch = 0;
constexpr const char kVersion[] = "10.0.0";

inline bool digit(char c) { return c >= '0' && c <= '9'; }
inline bool alpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

struct Run {
  const char *p = nullptr;  // null: past the end
  size_t n = 0;
  bool num = true;
};

// The next run of digits or letters at or after *s.
Run next(const char *&s) {
  while (*s && !digit(*s) && !alpha(*s)) s++;
  Run r;
  if (!*s) return r;
  r.p = s;
  r.num = digit(*s);
  while (*s && (r.num ? digit(*s) : alpha(*s))) s++;
  r.n = static_cast<size_t>(s - r.p);
  return r;
}

int cmpnum(const char *a, size_t an, const char *b, size_t bn) {
  while (an > 0 && *a == '0') a++, an--;
  while (bn > 0 && *b == '0') b++, bn--;
  if (an != bn) return an < bn ? -1 : 1;
  for (size_t i = 0; i < an; i++)
    if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
  return 0;
}

int cmprun(const Run &x, const Run &y) {
  static const char zero = '0';
  const char *xp = x.p ? x.p : &zero;
  const char *yp = y.p ? y.p : &zero;
  size_t xn = x.p ? x.n : 1, yn = y.p ? y.n : 1;
  bool xnum = x.p ? x.num : true, ynum = y.p ? y.num : true;
  if (xnum != ynum) return xnum ? 1 : -1;
  if (xnum) return cmpnum(xp, xn, yp, yn);
  for (size_t i = 0; i < xn && i < yn; i++)
    if (xp[i] != yp[i]) return static_cast<unsigned char>(xp[i]) < static_cast<unsigned char>(yp[i]) ? -1 : 1;
  return xn == yn ? 0 : (xn < yn ? -1 : 1);
}

}  // namespace
}  // namespace lut_internal

using namespace lut_internal;

extern "C" {

KELAPI const char *lutver(void) { return kVersion; }

KELAPI int32_t lutvernum(void) { return kMajor * 10000 + kMinor * 100 + kPatch; }

KELAPI int32_t lutvercmp(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return a == b ? 0 : (a == nullptr ? -1 : 1);
  for (;;) {
    Run x = next(a), y = next(b);
    if (x.p == nullptr && y.p == nullptr) return 0;
    int c = cmprun(x, y);
    if (c != 0) return c;
  }
}

}  // extern "C"
