// Strong random bytes from the kernel (getrandom), retried across signals
// and short reads.
#include "sys/random_impl.h"

#include <errno.h>
#include <sys/random.h>

#include "sl.h"

int32_t slrndbytes(void *buf, size_t n) noexcept {
  auto *p = static_cast<unsigned char *>(buf);
  while (n > 0) {
    ssize_t got = getrandom(p, n, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      slseterrno(errno);
      return -1;
    }
    p += got;
    n -= static_cast<size_t>(got);
  }
  return 0;
}
