// System error numbers and their texts.
#include <cerrno>
#include <cstring>

#include "sl.h"

extern "C" {

KELAPI int32_t slerrno(void) { return errno; }

KELAPI void slseterrno(int32_t err) { errno = err; }

KELAPI size_t slcgems(int32_t err, char *buf, size_t len) {
  if (buf == nullptr || len == 0) return 0;
  const char *text;
  char scratch[256];
  switch (err) {
    case SL_ERR_TIMEOUT: text = "the operation timed out"; break;
    case SL_ERR_LIMIT: text = "a count would pass its maximum"; break;
    case SL_ERR_FAULT: text = "refused by an injected fault"; break;
    default:
      // GNU strerror_r may return a static text instead of filling scratch.
      text = strerror_r(err, scratch, sizeof scratch);
      break;
  }
  size_t n = strlen(text);
  if (n >= len) n = len - 1;
  memcpy(buf, text, n);
  buf[n] = '\0';
  return n;
}

}  // extern "C"
