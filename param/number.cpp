// Number-typed values: text to the library's decimal number, by the number
// family's literal parser. The whole text must be one literal.
#include "lnx.h"
#include "param/lrm_impl.h"

namespace lrm_internal {

uint32_t to_number(lrmctx_rec *c, const char *text, size_t len, uint8_t *out, size_t *outlen) {
  (void)c;
  if (len == 0) return kBadNumber;
  size_t consumed = 0, n = 0;
  uint8_t buf[LNX_BUFSIZE];
  if (lnxcpn(text, len, buf, &n, 0, 0, 0, 0, &consumed, nullptr) == nullptr || consumed != len || n == 0 ||
      n > LNX_BUFSIZE)
    return kBadNumber;
  for (size_t i = 0; i < n; i++) out[i] = buf[i];
  *outlen = n;
  return 0;
}

}  // namespace lrm_internal
