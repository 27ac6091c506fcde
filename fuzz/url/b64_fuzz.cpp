// base64 and percent decoding of arbitrary bytes: whatever decodes must
// encode back to the same text (the decoders accept one spelling only),
// and encoding then decoding any bytes gives them back.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lpu.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  uint32_t flags = data[0] & 3u;
  const char *text = reinterpret_cast<const char *>(data + 1);
  size_t len = size - 1;
  std::vector<uint8_t> dec(len + 1);
  size_t n = 0;
  if (lpub64dec(nullptr, text, len, flags, dec.data(), dec.size(), &n) == 0) {
    std::vector<char> enc(len + 8);
    size_t m = 0;
    if (lpub64enc(nullptr, dec.data(), n, flags, enc.data(), enc.size(), &m) != 0) abort();
    // With optional padding the input may have carried it or not.
    bool same = m == len && memcmp(enc.data(), text, m) == 0;
    bool padded_alt = (flags & LPU_B64_NOPAD) && len >= m && memcmp(enc.data(), text, m) == 0;
    if (!same && !padded_alt) abort();
  }
  std::vector<char> enc(len * 4 / 3 + 8);
  size_t m = 0;
  if (lpub64enc(nullptr, text, len, flags, enc.data(), enc.size(), &m) != 0) abort();
  if (lpub64dec(nullptr, enc.data(), m, flags, dec.data(), dec.size(), &n) != 0 || n != len ||
      memcmp(dec.data(), text, len) != 0)
    abort();
  std::vector<char> pct(len * 3 + 1);
  if (lpupenc(nullptr, text, len, nullptr, flags, pct.data(), pct.size(), &m) != 0) abort();
  if (lpupdec(nullptr, pct.data(), m, flags & LPU_PCT_PLUS, dec.data(), dec.size(), &n) != 0 || n != len ||
      memcmp(dec.data(), text, len) != 0)
    abort();
  lpupdec(nullptr, text, len, flags, dec.data(), dec.size(), &n);
  return 0;
}
