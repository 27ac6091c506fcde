// Character-set conversion of arbitrary bytes between every pair of sets:
// never out of bounds, and a conversion into UTF-8 and back from it to
// UTF-16 keeps its length within the sets' bounds.
#include <cstdint>
#include <vector>

#include "lx.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const int32_t sets[] = {LX_CSID_US7ASCII, LX_CSID_WE8ISO8859P1, LX_CSID_WE8EBCDIC37, LX_CSID_AL32UTF8,
                                 LX_CSID_AL16UTF16};
  std::vector<uint8_t> out(size * 4 + 4);
  for (int32_t from : sets) {
    for (int32_t to : sets) {
      int64_t n = lxgcnv(out.data(), out.size(), to, data, size, from);
      if (n < 0 || static_cast<size_t>(n) > out.size()) __builtin_trap();
    }
  }
  // Too small a target fails cleanly.
  if (size > 0 && lxgcnv(out.data(), 0, LX_CSID_AL32UTF8, data, size, LX_CSID_WE8ISO8859P1) != -1) __builtin_trap();
  return 0;
}
