// Arbitrary text read by an arbitrary datetime model as every kind, with and
// without a time-zone image; what is read must write again and read back.
// The first byte picks how much of the input is the model.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "datetime/calendar/ldx_impl.h"
#include "ldi.h"
#include "ltz.h"

namespace {

// A small image made of the header alone: every region lookup fails
// cleanly, which is what a harness without the built image can exercise.
const void *empty_image() {
  static uint8_t img[LTZ_HEADER_SIZE];
  static bool done = false;
  if (!done) {
    const uint32_t magic = LTZ_MAGIC, len = LTZ_HEADER_SIZE;
    const uint16_t ver = LTZ_FORMAT_VERSION;
    std::memcpy(img, &magic, 4);
    std::memcpy(img + 4, &len, 4);
    std::memcpy(img + 8, &ver, 2);
    done = true;
  }
  return img;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  ldx_internal::pin_now_for_test(1721038830LL * 1000000);
  size_t mlen = data[0] % (size);
  const char *model = reinterpret_cast<const char *>(data + 1);
  if (mlen > size - 1) mlen = size - 1;
  const char *text = model + mlen;
  size_t tlen = size - 1 - mlen;
  // The model's canonical text must check, write and read as the model does.
  char canon[1024];
  size_t cn = 0;
  if (LdiUnparse(nullptr, model, mlen, canon, sizeof canon, &cn) != 0) cn = 0;
  if (cn) {
    for (uint8_t k : {3, 5}) {
      // Expanded territory models may push the canonical text past the limit.
      int32_t a = LdiParseForOutput(nullptr, model, mlen, k), b = LdiParseForOutput(nullptr, canon, cn, k);
      if (a != b && b != 1800) std::abort();
      // What the model writes, the canonical model writes.
      LdiDateTime v{2024, 2, 29, 13, 4, 5, 0, 123456789, -3, -30, k, 0, 0};
      char x[600], y[600];
      size_t xn = 0, yn = 0;
      if (LdiDateToString(nullptr, &v, model, mlen, 9, x, sizeof x, &xn, nullptr) == 0) {
        const int32_t st = LdiDateToString(nullptr, &v, canon, cn, 9, y, sizeof y, &yn, nullptr);
        if (st != 1800 && (st != 0 || xn != yn || std::memcmp(x, y, xn) != 0)) std::abort();
      }
      // What the model reads, the canonical model reads.
      LdiDateTime r{}, q{};
      const int32_t ra = LdiDateFromString(nullptr, text, tlen, model, mlen, k, &r, nullptr);
      const int32_t rb = LdiDateFromString(nullptr, text, tlen, canon, cn, k, &q, nullptr);
      if (rb != 1800 && (ra != rb || (ra == 0 && std::memcmp(&r, &q, sizeof r) != 0))) std::abort();
    }
  }
  static const uint8_t kinds[] = {1, 2, 3, 4, 5, 7, 6};
  for (uint8_t kind : kinds) {
    for (const void *img : {static_cast<const void *>(nullptr), empty_image()}) {
      LdiDateTime v{};
      if (LdiDateFromString(nullptr, text, tlen, model, mlen, kind, &v, img) != 0) continue;
      if (LdiDateCheck(&v, 0, 0) != 0) std::abort();
      char out[600];
      size_t n = 0;
      if (LdiDateToString(nullptr, &v, model, mlen, 9, out, sizeof out, &n, img) == 0) {
        LdiDateTime back{};
        LdiDateFromString(nullptr, out, n, model, mlen, kind, &back, img);
      }
      LdiDateToString(nullptr, &v, model, mlen, 3, out, size % 23, &n, img);
    }
  }
  LdiDateTime lit{};
  if (LdiDateFromLiteral(reinterpret_cast<const char *>(data), size, &lit, nullptr) == 0) {
    char out[128];
    size_t n = 0;
    if (LdiDateToLiteral(&lit, 9, out, sizeof out, &n, nullptr) != 0) std::abort();
  }
  return 0;
}
