// Arbitrary interval text read as every kind and precision: whatever is read
// must be a valid interval, and its SQL and ISO texts (also in UTF-16) must
// read back to it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "ldi.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const char *t = reinterpret_cast<const char *>(data);
  for (uint8_t kind = 0; kind <= 14; ++kind) {
    LdiInterval v{};
    int32_t lead = size ? data[0] % 11 : 9, frac = size > 1 ? data[1] % 11 : 9;
    int32_t st = LdiInterFromStringPrec(t, size, kind, lead, frac, &v);
    if (st == 0 && LdiInterCheck(&v, lead, frac) != 0) std::abort();
    if (LdiInterFromString(t, size, kind, &v) != 0) continue;
    if (LdiInterCheck(&v, 9, 9) != 0) std::abort();
    char out[96];
    size_t n = 0;
    LdiInterval back{};
    if (LdiInterToString(&v, 9, 9, out, sizeof out, &n) != 0) std::abort();
    if (LdiInterFromString(out, n, kind, &back) != 0 || std::memcmp(&back, &v, sizeof v) != 0) std::abort();
    if (LdiInterToStringISO(&v, 9, out, sizeof out, &n) != 0) std::abort();
    if (LdiInterFromString(out, n, kind, &back) != 0 || std::memcmp(&back, &v, sizeof v) != 0) std::abort();
    // The UTF-16 forms write the same characters and read them back.
    uint16_t w[96];
    size_t wn = 0;
    if (LdiInterToStringISOU(&v, 9, w, 96, &wn) != 0 || wn != n) std::abort();
    for (size_t i = 0; i < n; ++i)
      if (w[i] != static_cast<uint8_t>(out[i])) std::abort();
    if (LdiInterFromStringU(w, wn, kind, &back) != 0 || std::memcmp(&back, &v, sizeof v) != 0) std::abort();
    LdiInterToString(&v, 2, 3, out, size % 11, &n);
  }
  return 0;
}
