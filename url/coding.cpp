// Percent-coding and base64.
//
// Both encoders know their output length before writing, so a buffer that
// is too small is refused up front with the length needed. The base64
// decoder is strict: it accepts exactly the texts its encoder (with the same
// flags) can produce, so that a decoded value has one spelling.
#include "url/url_impl.h"

namespace lpu_internal {
namespace {

constexpr char kStd[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUrl[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

struct Rev {
  int8_t v[256];
};
constexpr Rev rev(const char *alpha) {
  Rev r{};
  for (int i = 0; i < 256; i++) r.v[i] = -1;
  for (int i = 0; i < 64; i++) r.v[static_cast<uint8_t>(alpha[i])] = static_cast<int8_t>(i);
  return r;
}
constexpr Rev kRevStd = rev(kStd);
constexpr Rev kRevUrl = rev(kUrl);

bool unreserved(uint8_t c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

bool in_keep(const char *keep, uint8_t c) {
  if (keep == nullptr || c == 0) return false;
  for (; *keep; keep++)
    if (static_cast<uint8_t>(*keep) == c) return true;
  return false;
}

}  // namespace
}  // namespace lpu_internal

using namespace lpu_internal;

extern "C" {

KELAPI int32_t lpupenc(void *uctx, const void *src, size_t len, const char *keep, uint32_t flags, char *buf,
                       size_t bufl, size_t *outl) {
  if (src == nullptr && len > 0) {
    rec(uctx, kelmsg::LPU_BADARG, "lpupenc");
    return -1;
  }
  const char *hex = (flags & LPU_PCT_LOWER) ? "0123456789abcdef" : "0123456789ABCDEF";
  auto *s = static_cast<const uint8_t *>(src);
  Out o{buf, buf == nullptr ? 0 : bufl};
  for (size_t i = 0; i < len; i++) {
    uint8_t c = s[i];
    if (unreserved(c) || in_keep(keep, c) || (c == '/' && (flags & LPU_PCT_PATH))) {
      o.put(static_cast<char>(c));
    } else if (c == ' ' && (flags & LPU_PCT_PLUS)) {
      o.put('+');
    } else {
      o.put('%');
      o.put(hex[c >> 4]);
      o.put(hex[c & 15]);
    }
  }
  return o.finish(uctx, outl);
}

KELAPI int32_t lpupdec(void *uctx, const char *src, size_t len, uint32_t flags, void *buf, size_t bufl,
                       size_t *outl) {
  if (src == nullptr && len > 0) {
    rec(uctx, kelmsg::LPU_BADARG, "lpupdec");
    return -1;
  }
  Out o{static_cast<char *>(buf), buf == nullptr ? 0 : bufl};
  for (size_t i = 0; i < len; i++) {
    char c = src[i];
    if (c == '%') {
      int h = i + 2 < len ? hexval(src[i + 1]) : -1;
      int l = h >= 0 ? hexval(src[i + 2]) : -1;
      if (l < 0) {
        if (outl != nullptr) *outl = 0;
        recn(uctx, kelmsg::LPU_BADPCT, static_cast<int64_t>(i));
        return -1;
      }
      o.put(static_cast<char>(h * 16 + l));
      i += 2;
    } else if (c == '+' && (flags & LPU_PCT_PLUS)) {
      o.put(' ');
    } else {
      o.put(c);
    }
  }
  // The decoded bytes may hold NULs, so no terminator is promised beyond
  // the one finish writes when there is room.
  return o.finish(uctx, outl);
}

KELAPI int32_t lpub64enc(void *uctx, const void *src, size_t len, uint32_t flags, char *buf, size_t bufl,
                         size_t *outl) {
  if (src == nullptr && len > 0) {
    rec(uctx, kelmsg::LPU_BADARG, "lpub64enc");
    return -1;
  }
  if (len > (SIZE_MAX / 4) * 3 - 3) {
    rec(uctx, kelmsg::LPU_BADARG, "lpub64enc: input too long");
    return -1;
  }
  const char *a = (flags & LPU_B64_URL) ? kUrl : kStd;
  bool pad = !(flags & LPU_B64_NOPAD);
  size_t full = len / 3, rest = len % 3;
  size_t need = full * 4 + (rest == 0 ? 0 : (pad ? 4 : rest + 1));
  if (outl != nullptr) *outl = need;
  if (buf == nullptr || need > bufl) {
    if (need == 0 && buf == nullptr) return 0;
    recn(uctx, kelmsg::LPU_BUFSMALL, static_cast<int64_t>(need));
    return -1;
  }
  auto *s = static_cast<const uint8_t *>(src);
  char *o = buf;
  for (size_t i = 0; i < full; i++, s += 3, o += 4) {
    uint32_t v = (uint32_t{s[0]} << 16) | (uint32_t{s[1]} << 8) | s[2];
    o[0] = a[v >> 18];
    o[1] = a[(v >> 12) & 63];
    o[2] = a[(v >> 6) & 63];
    o[3] = a[v & 63];
  }
  if (rest != 0) {
    uint32_t v = uint32_t{s[0]} << 16;
    if (rest == 2) v |= uint32_t{s[1]} << 8;
    *o++ = a[v >> 18];
    *o++ = a[(v >> 12) & 63];
    if (rest == 2) *o++ = a[(v >> 6) & 63];
    if (pad) {
      if (rest == 1) *o++ = '=';
      *o++ = '=';
    }
  }
  if (need < bufl) buf[need] = '\0';
  return 0;
}

KELAPI int32_t lpub64dec(void *uctx, const char *src, size_t len, uint32_t flags, void *buf, size_t bufl,
                         size_t *outl) {
  if (src == nullptr && len > 0) {
    rec(uctx, kelmsg::LPU_BADARG, "lpub64dec");
    return -1;
  }
  if (outl != nullptr) *outl = 0;
  const Rev &r = (flags & LPU_B64_URL) ? kRevUrl : kRevStd;
  bool padopt = (flags & LPU_B64_NOPAD) != 0;
  auto bad = [&](size_t off, const char *why) {
    recn(uctx, kelmsg::LPU_BADB64, static_cast<int64_t>(off), why);
    return -1;
  };
  // Strip the padding first: at most two "=", only at the end, and only so
  // much that the data characters then have a length of 2 or 3 modulo 4.
  size_t n = len, padn = 0;
  while (n > 0 && src[n - 1] == '=' && padn < 3) {
    n--;
    padn++;
  }
  if (padn > 0) {
    if (padn > 2 || (len % 4) != 0 || (n % 4) + padn != 4) return bad(n, "bad padding");
  } else if (n % 4 != 0 && !padopt) {
    return bad(len, "missing padding");
  }
  if (n % 4 == 1) return bad(n - 1, "truncated input");
  size_t need = n / 4 * 3 + (n % 4 == 0 ? 0 : n % 4 - 1);
  if (buf == nullptr ? need > 0 : need > bufl) {
    // Check the characters anyway so that bad input is reported as such.
    for (size_t i = 0; i < n; i++)
      if (r.v[static_cast<uint8_t>(src[i])] < 0) return bad(i, "character outside the alphabet");
    if (outl != nullptr) *outl = need;
    recn(uctx, kelmsg::LPU_BUFSMALL, static_cast<int64_t>(need));
    return -1;
  }
  auto *o = static_cast<uint8_t *>(buf);
  size_t i = 0;
  for (; i + 4 <= n; i += 4) {
    int a = r.v[static_cast<uint8_t>(src[i])], b = r.v[static_cast<uint8_t>(src[i + 1])],
        c = r.v[static_cast<uint8_t>(src[i + 2])], d = r.v[static_cast<uint8_t>(src[i + 3])];
    if ((a | b | c | d) < 0) {
      size_t k = a < 0 ? i : b < 0 ? i + 1 : c < 0 ? i + 2 : i + 3;
      return bad(k, "character outside the alphabet");
    }
    uint32_t v = (uint32_t(a) << 18) | (uint32_t(b) << 12) | (uint32_t(c) << 6) | uint32_t(d);
    *o++ = static_cast<uint8_t>(v >> 16);
    *o++ = static_cast<uint8_t>(v >> 8);
    *o++ = static_cast<uint8_t>(v);
  }
  size_t rest = n - i;
  if (rest > 0) {
    int v3[3] = {0, 0, 0};
    for (size_t k = 0; k < rest; k++) {
      v3[k] = r.v[static_cast<uint8_t>(src[i + k])];
      if (v3[k] < 0) return bad(i + k, "character outside the alphabet");
    }
    uint32_t v = (uint32_t(v3[0]) << 18) | (uint32_t(v3[1]) << 12) | (uint32_t(v3[2]) << 6);
    // Bits below the last whole byte must be zero, or two texts would decode
    // to the same bytes.
    uint32_t spare = rest == 2 ? (v & 0xFFFF) : (v & 0xFF);
    if (spare != 0) return bad(i + rest - 1, "non-zero trailing bits");
    *o++ = static_cast<uint8_t>(v >> 16);
    if (rest == 3) *o++ = static_cast<uint8_t>(v >> 8);
  }
  if (outl != nullptr) *outl = need;
  return 0;
}

}  // extern "C"
