// Number-typed values: text to the library's decimal number. The number
// family's literal parser does the work when it is part of the build; this
// is the one place that knows about it.
#include "param/lrm_impl.h"

#if __has_include("lnx.h")
#include "lnx.h"
#define KEL_PARAM_HAVE_LNX 1
#endif

namespace lrm_internal {

uint32_t to_number(lrmctx_rec *c, const char *text, size_t len, uint8_t *out, size_t *outlen) {
#ifdef KEL_PARAM_HAVE_LNX
  if (len == 0) return kBadNumber;
  size_t consumed = 0, n = 0;
  uint8_t buf[22];
  if (lnxcpn(text, len, buf, &n, 0, 0, 0, 0, &consumed, nullptr) == nullptr || consumed != len || n == 0 ||
      n > 22)
    return kBadNumber;
  for (size_t i = 0; i < n; i++) out[i] = buf[i];
  *outlen = n;
  return 0;
#else
  (void)c;
  (void)text;
  (void)len;
  (void)out;
  (void)outlen;
  return kBadNumber;
#endif
}

}  // namespace lrm_internal
