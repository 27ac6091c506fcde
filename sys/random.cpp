// Strong random bytes, over the platform's entry (random_impl.h): retried
// across interrupted calls and short deliveries.
#include "sys/random_impl.h"

#include "sl.h"

int32_t slrndbytes(void *buf, size_t n) noexcept {
  auto *p = static_cast<unsigned char *>(buf);
  while (n > 0) {
    int64_t got = sl_internal::random_os().fill(p, n);
    if (got < 0) {
      if (slerrno() == SL_ERR_INTR) continue;
      return -1;
    }
    p += got;
    n -= static_cast<size_t>(got);
  }
  return 0;
}
