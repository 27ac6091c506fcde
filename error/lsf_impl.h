// lsf_impl.h - the formatter call the error manager formats messages with.
//
// The formatter family publishes lsf.h; until it is in the tree this header
// carries the same row type and declaration so that message formatting can
// be built and tested.
#ifndef KEL_ERROR_LSF_IMPL_H
#define KEL_ERROR_LSF_IMPL_H

#if __has_include("lsf.h")
#include "lsf.h"
#else
#include <cstdarg>
#include <cstddef>
#include <cstdint>

extern "C" {
typedef struct lsfarg {
  int32_t type; /* 0 = end, 1 = signed 64-bit number (v.i), 25 = text (v.s) */
  int32_t spare;
  union {
    int64_t i;
    uint64_t u;
    double d;
    const void *p;
    const char *s;
  } v;
} lsfarg;
int32_t lsfpd(void *ctx, char *buf, size_t len, const char *fmt, const lsfarg *args);
}
#endif

#endif
