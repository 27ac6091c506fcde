// Provisional formatter: the subset of printf conversions the error manager's
// catalogue texts use (%s %d %i %u %x %X %c %%, flags, width, precision and
// the length modifiers h l ll z j t), each conversion taking the next
// argument row. It goes when the formatter family lands.
#include <cstdio>
#include <cstring>

#include "error/lsf_impl.h"

extern "C" int32_t lsfpd(void *ctx, char *buf, size_t len, const char *fmt, const lsfarg *args) {
  (void)ctx;
  if (fmt == nullptr) return -1;
  size_t out = 0;
  auto put = [&](const char *s, size_t n) {
    if (out < len) {
      size_t room = len - 1 - out;
      memcpy(buf + out, s, n < room ? n : room);
    }
    out += n;
  };
  const lsfarg *a = args;
  for (const char *p = fmt; *p;) {
    if (*p != '%') {
      const char *q = strchr(p, '%');
      size_t n = q ? static_cast<size_t>(q - p) : strlen(p);
      put(p, n);
      p += n;
      continue;
    }
    if (p[1] == '%') {
      put("%", 1);
      p += 2;
      continue;
    }
    // Copy flags, width and precision; drop length modifiers (rows are 64-bit).
    char spec[32];
    size_t k = 0;
    spec[k++] = '%';
    const char *q = p + 1;
    while (*q && strchr("-+ #0123456789.", *q) && k < 20) spec[k++] = *q++;
    while (*q && strchr("hlzjt", *q)) q++;
    char conv = *q;
    if (conv == '\0' || !strchr("sdiuxXc", conv)) return -1;
    char tmp[512];
    int n;
    bool have = a != nullptr && a->type != 0;
    if (conv == 's') {
      spec[k++] = 's';
      spec[k] = '\0';
      const char *s = have && a->type == 25 ? a->v.s : "";
      char num[32];
      if (have && a->type != 25) {
        snprintf(num, sizeof num, "%lld", static_cast<long long>(a->v.i));
        s = num;
      }
      n = snprintf(tmp, sizeof tmp, spec, s ? s : "");
    } else {
      spec[k++] = 'l';
      spec[k++] = 'l';
      spec[k++] = conv;
      spec[k] = '\0';
      long long v = have && a->type != 25 ? static_cast<long long>(a->v.i) : 0;
      if (conv == 'c') {
        spec[k - 3] = 'c';
        spec[k - 2] = '\0';
        n = snprintf(tmp, sizeof tmp, spec, static_cast<int>(v));
      } else {
        n = snprintf(tmp, sizeof tmp, spec, v);
      }
    }
    if (n < 0) return -1;
    put(tmp, static_cast<size_t>(n) < sizeof tmp ? static_cast<size_t>(n) : sizeof tmp - 1);
    if (have) a++;
    p = q + 1;
  }
  if (len > 0) buf[out < len ? out : len - 1] = '\0';
  return static_cast<int32_t>(out);
}
