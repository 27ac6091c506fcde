// URL parsing, composing and resolution on arbitrary bytes: a URL that
// parses must compose back to the same bytes, and resolution against a
// fixed base must either fail cleanly or give a URL that parses again.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "lpu.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const char *text = reinterpret_cast<const char *>(data);
  lpuurl u;
  if (lpuparse(nullptr, text, size, &u) == 0) {
    char *buf = static_cast<char *>(malloc(size + 1));
    size_t n = 0;
    if (lpucompose(nullptr, &u, buf, size + 1, &n) != 0 || n != size || memcmp(buf, text, size) != 0) abort();
    free(buf);
  }
  static const char base[] = "http://a/b/c/d;p?q";
  size_t need = 0;
  if (lpuresolve(nullptr, base, sizeof base - 1, text, size, nullptr, 0, &need) == 0 && need != 0) abort();
  if (need > 0) {
    char *out = static_cast<char *>(malloc(need + 1));
    size_t n = 0;
    if (lpuresolve(nullptr, base, sizeof base - 1, text, size, out, need + 1, &n) == 0) {
      if (n != need) abort();
      lpuurl t;
      if (lpuparse(nullptr, out, n, &t) != 0 || t.scheme.ptr == nullptr) abort();
    }
    free(out);
  }
  char dots[512];
  lpurmdot(nullptr, text, size, dots, sizeof dots, &need);
  return 0;
}
