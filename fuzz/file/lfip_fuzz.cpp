// The path functions over arbitrary names. Checks what must hold for any
// input: no access outside the input and the buffers (ASan), results that
// are -1 or the length of a NUL-terminated text, and the laws that tie the
// functions together:
//   - normalising is idempotent and never lengthens a name ("" gives ".");
//   - dir and base split the name at its last separator;
//   - stem followed by ext gives the name back;
//   - a buffer one byte too short is refused.
//
// Input: [split byte][bytes]: the bytes up to the split (mod length) are the
// first name, the rest the second (for join); NULs end a name early.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lfi.h"

namespace {

void check(bool ok) {
  if (!ok) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  size_t split = size > 1 ? data[0] % size : 0;
  std::string a(reinterpret_cast<const char *>(data + 1), split > 0 ? split - 1 : 0);
  std::string b(reinterpret_cast<const char *>(data + (split > 0 ? split : 1)), size - (split > 0 ? split : 1));
  a = a.c_str();
  b = b.c_str();
  const size_t cap = a.size() + b.size() + 8;
  std::string buf(cap, '\0'), buf2(cap, '\0');

  int32_t n = lfipnorm(a.c_str(), buf.data(), cap);
  check(n >= 1 && static_cast<size_t>(n) == strlen(buf.c_str()));
  check(static_cast<size_t>(n) <= (a.empty() ? 1 : a.size()));
  int32_t n2 = lfipnorm(buf.c_str(), buf2.data(), cap);
  check(n2 == n && strcmp(buf.c_str(), buf2.c_str()) == 0);
  check(lfipnorm(a.c_str(), buf2.data(), static_cast<size_t>(n)) == -1);

  int32_t d = lfipdir(a.c_str(), buf.data(), cap);
  int32_t bs = lfipbase(a.c_str(), buf2.data(), cap);
  check(d >= 0 && bs >= 0);
  check(a.size() >= static_cast<size_t>(bs) && a.compare(a.size() - bs, bs, buf2.c_str()) == 0);
  check(a.compare(0, d, buf.c_str()) == 0);

  int32_t e = lfipext(a.c_str(), buf.data(), cap);
  int32_t s = lfipstem(a.c_str(), buf2.data(), cap);
  check(e >= 0 && s >= 0 && static_cast<size_t>(e + s) == a.size());
  check(std::string(buf2.c_str()) + buf.c_str() == a);

  std::string big(a.size() + b.size() + 2, '\0');
  int32_t j = lfipjoin(a.c_str(), b.c_str(), big.data(), big.size());
  check(j >= 0 && static_cast<size_t>(j) == strlen(big.c_str()));
  if (!b.empty() && b[0] == '/') check(b == big.c_str());
  if (j > 0) check(lfipjoin(a.c_str(), b.c_str(), big.data(), static_cast<size_t>(j)) == -1);
  return 0;
}
