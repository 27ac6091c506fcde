// HTTP responses from a hostile server: the reader must refuse or accept
// any byte sequence without reading out of bounds or looping.
#include <cstdint>

#include "url/url_impl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  int32_t status = 0;
  size_t bodyl = 0;
  bool head = size > 0 && (data[0] & 1);
  if (lpu_internal::parse_response_mem(reinterpret_cast<const char *>(data), size, head, &status, &bodyl) == 0) {
    if (status < 100 || status > 999 || bodyl > size) __builtin_trap();
  }
  return 0;
}
