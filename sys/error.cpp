// System error texts and classes, over the platform's (error_impl.h).
#include <cstring>

#include "lfi.h"
#include "sl.h"
#include "sys/error_impl.h"

namespace {

const char *library_text(int32_t err) noexcept {
  switch (err) {
    case SL_ERR_TIMEOUT: return "the operation timed out";
    case SL_ERR_LIMIT: return "a count would pass its maximum";
    case SL_ERR_FAULT: return "refused by an injected fault";
    case SL_ERR_INTR: return "the call was interrupted";
    case SL_ERR_AGAIN: return "the operation would block";
    case SL_ERR_REFUSED: return "the connection was refused";
    default: return nullptr;
  }
}

}  // namespace

extern "C" {

KELAPI size_t slcgems(int32_t err, char *buf, size_t len) {
  if (buf == nullptr || len == 0) return 0;
  const char *text = library_text(err);
  if (text == nullptr) return sl_internal::os_error_text(err, buf, len);
  size_t n = strlen(text);
  if (n >= len) n = len - 1;
  memcpy(buf, text, n);
  buf[n] = '\0';
  return n;
}

KELAPI int32_t slfclass(int32_t err) {
  // The library's codes carry no file meaning; a refusal of a fault point
  // stands for some other failure.
  return library_text(err) != nullptr ? SLF_E_OTHER : sl_internal::os_error_class(err);
}

}  // extern "C"
