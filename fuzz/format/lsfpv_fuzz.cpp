// lsfpv over arbitrary format bytes, with a va_list that any format can read
// safely: every 8-byte slot holds the address of a block that is valid as
// narrow text and as wide text, so %s, %ls, %p, integers, doubles and long
// doubles all read defined bytes (the numbers are just that address). This
// reaches the positional path (first walk, type collection, fetching) that
// lsfpd does not use.
//
// Input: [buffer length, 2 bytes][format bytes (up to the first NUL)]
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lsf.h"
#include "tests/format/oracle.h"

namespace {

// "ab" then zeros: as wchar_t it reads 0x6261, then a NUL.
alignas(16) const char kText[32] = "ab";

// Each conversion takes at most 32 bytes (two * values and a long double);
// a 4096-byte format holds at most 2048 conversions.
constexpr size_t kSlots = 2048 * 4 + 16;

struct Area {
  alignas(16) uintptr_t slot[kSlots];
  Area() {
    for (uintptr_t &s : slot) s = reinterpret_cast<uintptr_t>(kText);
  }
};

int32_t call(char *buf, size_t len, const char *fmt, void *area) {
  va_list ap;
  lsftest::va_list_at(ap, area);
  return lsfpv(nullptr, buf, len, fmt, ap);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Area *area = new Area;
  if (size < 2 || size > 4096 + 2) return 0;
  size_t len = (static_cast<size_t>(data[0]) | static_cast<size_t>(data[1]) << 8) % 600;
  data += 2;
  size -= 2;
  size_t flen = strnlen(reinterpret_cast<const char *>(data), size);
  char *fmt = new char[flen + 1];
  std::memcpy(fmt, data, flen);
  fmt[flen] = '\0';
  char *buf = len ? new char[len] : nullptr;
  int32_t r = call(buf, len, fmt, area->slot);
  if (r < -1) abort();
  if (len && !std::memchr(buf, 0, len)) abort();
  if (r >= 0 && r < (1 << 20)) {
    size_t full_len = static_cast<size_t>(r) + 1;
    char *full = new char[full_len];
    if (call(full, full_len, fmt, area->slot) != r || full[r] != '\0') abort();
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
