// url_impl.h - internals shared by the files of the URL and HTTP family.
#ifndef KEL_URL_URL_IMPL_H
#define KEL_URL_URL_IMPL_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kelmsg_kelcore_lpu.h"
#include "lem.h"
#include "lpu.h"

namespace lpu_internal {

struct lpuctx {
  uint32_t magic;
  lcorectx *core;
  void *lemctx;
  lemfac *fac;
};

constexpr uint32_t kMagic = 0x4C505543;  // "LPUC"

inline lpuctx *ctx_of(void *p) noexcept {
  auto *c = static_cast<lpuctx *>(p);
  return (c != nullptr && c->magic == kMagic) ? c : nullptr;
}

// Records message `msg` with up to one number and one text; the numbers
// and texts passed are the ones the message's text names, in order.
void rec(void *uctx, int32_t msg, const char *text) noexcept;
void recn(void *uctx, int32_t msg, int64_t num, const char *text = nullptr) noexcept;
void rec2(void *uctx, int32_t msg, const char *text, const char *text2) noexcept;
void recsn(void *uctx, int32_t msg, const char *text, int64_t num, const char *text2 = nullptr) noexcept;

// Parses without recording: -1 for success, else the offset of the first
// error with *why naming it.
int64_t parse_url(const char *text, size_t len, lpuurl *u, const char **why);

// Reads one HTTP response held whole in memory, as the client reads one
// from a connection: 0 with its status and body length, -1 when malformed
// or incomplete. For the fuzz harness and tests.
int32_t parse_response_mem(const char *p, size_t n, bool head, int32_t *status, size_t *bodyl);

// Output into a caller buffer with the "length needed" contract of lpu.h.
struct Out {
  char *buf;
  size_t cap;
  size_t n = 0;
  void put(char c) noexcept {
    if (n < cap) buf[n] = c;
    n++;
  }
  void put(const char *s, size_t l) noexcept {
    if (n < cap) memcpy(buf + n, s, l <= cap - n ? l : cap - n);
    n += l;
  }
  // Finishes: 0, or -1 with LPU_BUFSMALL recorded when it did not fit.
  int32_t finish(void *uctx, size_t *outl) noexcept {
    if (outl != nullptr) *outl = n;
    if (n > cap || (buf == nullptr && n > 0)) {
      recn(uctx, kelmsg::LPU_BUFSMALL, static_cast<int64_t>(n));
      return -1;
    }
    if (n < cap) buf[n] = '\0';
    return 0;
  }
};

inline int hexval(unsigned char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace lpu_internal

#endif
