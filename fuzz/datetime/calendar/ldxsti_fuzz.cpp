// Arbitrary format models through the scanner, the compiler and the writer:
// whatever compiles must also write every date edge without overrunning.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ldx.h"

namespace {
void ignore(ldxctx *, int32_t) {}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  ldxctx ctx;
  ldxbegin(&ctx, nullptr, ignore, nullptr);
  const char *model = reinterpret_cast<const char *>(data);
  // The model as given, scanned item by item.
  ldxscan scan;
  ldxsni(&ctx, &scan, model, size);
  for (int i = 0; i < 1000 && ldxsnf(&ctx, &scan) > 0; ++i) {
  }
  uint8_t compiled[512];
  size_t n = ldxsti(&ctx, model, size, compiled, size % 2 ? sizeof compiled : 48);
  ldxgpc(&ctx, model, size);
  static const ldxdate dates[] = {{-4712, 1, 1, 0, 0, 0, 0},
                                  {9999, 12, 31, 23, 59, 59, 0},
                                  {2024, 2, 29, 12, 0, 0, 0},
                                  {-1, 12, 31, 11, 59, 59, 0}};
  char out[600];
  for (const ldxdate &d : dates) {
    // Text models write even when they hold elements reading refuses.
    if (size && model[0] != 0) ldxdts(&ctx, out, sizeof out, &d, model, size);
    if (n) {
      int32_t w = ldxdts(&ctx, out, sizeof out, &d, reinterpret_cast<const char *>(compiled), n);
      if (w > 0) {
        ldxdate back;
        ldxsto(&ctx, &back, out, static_cast<size_t>(w), reinterpret_cast<const char *>(compiled), n, LDX_OPT_QUIET);
      }
      ldxdts(&ctx, out, static_cast<size_t>(size % 17), &d, reinterpret_cast<const char *>(compiled), n);
    }
  }
  return 0;
}
