// Record lines from a damaged or hostile log file: parsing must stay in
// bounds, and a line that parses must format back to a line that parses to
// the same record.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ldm.h"

static bool same(const char *a, size_t al, const char *b, size_t bl) {
  if ((a == nullptr) != (b == nullptr)) return false;
  return a == nullptr || (al == bl && memcmp(a, b, al) == 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::vector<char> scratch(size + 1);
  ldmrec r;
  if (ldmparse(reinterpret_cast<const char *>(data), size, scratch.data(), &r) != 0) return 0;
  size_t n = ldmfmt(&r, nullptr, 0);
  std::vector<char> line(n), s2(n);
  if (ldmfmt(&r, line.data(), n) != n) abort();
  ldmrec b;
  if (ldmparse(line.data(), n, s2.data(), &b) != 0) abort();
  if (b.time_us != r.time_us || b.severity != r.severity || b.pid != r.pid || b.tid != r.tid) abort();
  if (!same(b.instance, b.instancel, r.instance, r.instancel) || !same(b.host, b.hostl, r.host, r.hostl) ||
      !same(b.component, b.componentl, r.component, r.componentl) ||
      !same(b.message, b.messagel, r.message, r.messagel) || !same(b.detail, b.detaill, r.detail, r.detaill))
    abort();
  return 0;
}
