// lsfpd over arbitrary format bytes and argument rows. Checks what must hold
// for any input: no read or write outside the format, the rows and the
// buffer (ASan), a NUL inside the buffer, a result of -1 or the length, and a
// truncated text that is a prefix of the full one.
//
// Input: [row count][buffer length, 2 bytes][rows: type byte + 8 value bytes]
//        [format bytes (up to the first NUL)]
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lsf.h"

namespace {

const char *const kTexts[] = {"", "t", "some text", "%s %d %n", nullptr};
const wchar_t *const kWide[] = {L"", L"w", L"wide \u00e9\u20ac", nullptr};
const wchar_t kBadWide[] = {0xd800, static_cast<wchar_t>(WCHAR_MAX > 0xffff ? 0x110000 : 0xd800), 0x41, 0};  // UTF-16: lone surrogates

lsfarg make_row(const uint8_t *p) {
  lsfarg r{};
  uint64_t v;
  std::memcpy(&v, p + 1, 8);
  r.v.u = v;
  switch (p[0] % 10) {
    case 0: r.type = LSF_ARG_INT; break;
    case 1: r.type = LSF_ARG_UINT; break;
    case 2: r.type = LSF_ARG_DOUBLE; break;  // any bit pattern: nan, inf, subnormal
    case 3: r.type = LSF_ARG_PTR; break;     // only its value is printed
    case 4: r.type = LSF_ARG_CHAR; break;
    case 5: r.type = LSF_ARG_CODE; break;
    case 6:
      r.type = LSF_ARG_TEXT;
      r.v.s = kTexts[v % 5];
      break;
    case 7:
      r.type = LSF_ARG_WTEXT;
      r.v.p = v % 5 == 4 ? kBadWide : kWide[v % 4];
      break;
    case 8: r.type = 77; break;  // a type the formatter does not know
    default: r.type = LSF_ARG_INT; r.v.i = static_cast<int64_t>(v % 64) - 8; break;  // star-sized
  }
  return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 3) return 0;
  size_t nrows = data[0] % 9;
  size_t len = (static_cast<size_t>(data[1]) | static_cast<size_t>(data[2]) << 8) % 600;
  data += 3;
  size -= 3;
  std::vector<lsfarg> rows;
  for (size_t i = 0; i < nrows && size >= 9; ++i, data += 9, size -= 9) rows.push_back(make_row(data));
  rows.push_back(lsfarg{});
  // The format in a block of its exact size, so that a read past its NUL shows.
  size_t flen = strnlen(reinterpret_cast<const char *>(data), size);
  char *fmt = new char[flen + 1];
  std::memcpy(fmt, data, flen);
  fmt[flen] = '\0';

  char *buf = len ? new char[len] : nullptr;
  int32_t r = lsfpd(nullptr, buf, len, fmt, rows.data());
  if (r < -1) abort();
  if (len && !std::memchr(buf, 0, len)) abort();
  if (r >= 0 && r < (1 << 20)) {
    // The full text, and the truncated one must be its prefix.
    size_t full_len = static_cast<size_t>(r) + 1;
    char *full = new char[full_len];
    int32_t r2 = lsfpd(nullptr, full, full_len, fmt, rows.data());
    if (r2 != r || full[r] != '\0') abort();
    if (len) {
      size_t k = static_cast<size_t>(r) < len - 1 ? static_cast<size_t>(r) : len - 1;
      if (std::memcmp(buf, full, k) != 0 || buf[k] != '\0') abort();
    }
    delete[] full;
  }
  delete[] buf;
  delete[] fmt;
  return 0;
}
