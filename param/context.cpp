// Parameter contexts: opening and closing, error reporting, UTF-16/UTF-8
// conversions at the interface.
#include <cstdarg>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "lsf.h"
#include "param/lrm_impl.h"
#include "param/file_impl.h"
#include "sl.h"

namespace lrm_internal {

bool alloc_refused() {
#ifdef KEL_TEST_HOOKS
  void *probe = ss_mem_alc(1);
  if (probe == nullptr) return true;
  ss_mem_fre(probe);
#endif
  return false;
}

void *hmalloc(lrmctx_rec *c, size_t n) {
  if (alloc_refused()) return nullptr;
  return lmmmalloc(c->mctx, c->heap, n == 0 ? 1 : n, 0, "lrm", __LINE__);
}

void hfree(lrmctx_rec *c, void *p) {
  if (p != nullptr) lmmfree(c->mctx, c->heap, p, 0);
}

char *hstrdup(lrmctx_rec *c, const char *s, size_t n) {
  char *d = static_cast<char *>(hmalloc(c, n + 1));
  if (d == nullptr) return nullptr;
  if (n > 0) memcpy(d, s, n);
  d[n] = '\0';
  return d;
}

uint32_t perr(lrmctx_rec *c, uint32_t status, ...) {
  va_list ap;
  va_start(ap, status);
  lemrev(c->core->lemctx, c->fac, static_cast<int32_t>(status), 2, ap);
  va_end(ap);
  return status;
}

Shown shown(const char *s, size_t n) {
  Shown r;
  lsfp(nullptr, r.text, sizeof r.text, "%.*s", static_cast<int>(n < kKeyShown ? n : kKeyShown), s);
  return r;
}

uint32_t report(lrmctx_rec *c, uint32_t status, std::initializer_list<std::string_view> own, const char *at,
                std::string_view key) {
  const lrmsource &s = c->src;
  const bool placed = s.buf != nullptr && at != nullptr && at >= s.buf && at <= s.buf + s.len;
  int32_t line = 0, column = 0;
  if (placed) {
    line = 1;
    for (const char *p = s.buf; p < at; p++) {
      p = static_cast<const char *>(memchr(p, '\n', static_cast<size_t>(at - p)));
      if (p == nullptr) break;
      line++;
    }
    column = column_of(c, s.buf, at);
  }
  const char *source = s.buf != nullptr ? s.name : "";
  const Shown k = shown(key.data(), key.size());
  // What the message prints: the source, the place and the key, as known.
  char where[3 * sizeof(Shown) + 64];
  size_t n = 0;
  auto add = [&](const char *fmt, auto... args) {
    int m = lsfp(nullptr, where + n, sizeof where - n, fmt, args...);
    if (m > 0) n += static_cast<size_t>(m) < sizeof where - n ? static_cast<size_t>(m) : sizeof where - n - 1;
  };
  const char *sep = " (";
  if (s.buf != nullptr) {
    const Shown name = shown(s.name, strlen(s.name));
    if (s.origin == kFromFile)
      add("%sfile \"%s\"", sep, name.text);
    else if (s.origin == kFromEnvironment)
      add("%senvironment variable \"%s\"", sep, name.text);
    else
      add("%s%s", sep, name.text);
    sep = ", ";
    if (placed) add(", line %d, column %d", line, column);
  }
  if (k.text[0] != '\0') {
    add("%sparameter \"%s\"", sep, k.text);
    sep = ", ";
  }
  if (sep[0] == ',') add(")");
  where[n] = '\0';
  Shown a[2];
  size_t nown = 0;
  for (std::string_view t : own)
    if (nown < 2) a[nown++] = shown(t.data(), t.size());
#define LRM_WHERE                                                                                             \
  LEM_ARG_TEXT, where, LEM_ARG_TEXT, source, LEM_ARG_NUM, static_cast<int64_t>(line), LEM_ARG_NUM,           \
      static_cast<int64_t>(column), LEM_ARG_TEXT, k.text, LEM_ARG_END
  if (nown == 0) return perr(c, status, LRM_WHERE);
  if (nown == 1) return perr(c, status, LEM_ARG_TEXT, a[0].text, LRM_WHERE);
  return perr(c, status, LEM_ARG_TEXT, a[0].text, LEM_ARG_TEXT, a[1].text, LRM_WHERE);
#undef LRM_WHERE
}

void raise(lrmctx_rec *c, uint32_t status) {
  c->status = status;
  lemptpo(lemgfc(c->core->lemctx), c->fac, static_cast<int32_t>(status), 0);
  // No frame: lemptpo recorded that and returned. Nothing above us can go
  // on without one, so end here the way an unhandled raise would.
  slzexit(70);
}

void emit(lrmctx_rec *c, const char *text, size_t len) {
  if (c->out != nullptr)
    c->out(c->outarg, text, len);
  else
    lrm_file::write_stdout(text, len);
}

uint32_t u16to8(lrmctx_rec *c, const uint16_t *src, size_t units, char **out, size_t *outlen) {
  char *d = static_cast<char *>(hmalloc(c, units * 3 + 1));
  if (d == nullptr) return perr(c, kNoMemory, LEM_ARG_TEXT, "converting UTF-16", LEM_ARG_END);
  size_t n = 0;
  for (size_t i = 0; i < units; i++) {
    uint32_t u = src[i];
    if (u >= 0xD800 && u <= 0xDBFF) {
      if (i + 1 >= units || src[i + 1] < 0xDC00 || src[i + 1] > 0xDFFF) {
        hfree(c, d);
        return perr(c, kBadUnicode, LEM_ARG_TEXT, "UTF-16", LEM_ARG_END);
      }
      u = 0x10000 + ((u - 0xD800) << 10) + (src[++i] - 0xDC00);
    } else if (u >= 0xDC00 && u <= 0xDFFF) {
      hfree(c, d);
      return perr(c, kBadUnicode, LEM_ARG_TEXT, "UTF-16", LEM_ARG_END);
    }
    if (u < 0x80) {
      d[n++] = static_cast<char>(u);
    } else if (u < 0x800) {
      d[n++] = static_cast<char>(0xC0 | (u >> 6));
      d[n++] = static_cast<char>(0x80 | (u & 0x3F));
    } else if (u < 0x10000) {
      d[n++] = static_cast<char>(0xE0 | (u >> 12));
      d[n++] = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
      d[n++] = static_cast<char>(0x80 | (u & 0x3F));
    } else {
      d[n++] = static_cast<char>(0xF0 | (u >> 18));
      d[n++] = static_cast<char>(0x80 | ((u >> 12) & 0x3F));
      d[n++] = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
      d[n++] = static_cast<char>(0x80 | (u & 0x3F));
    }
  }
  d[n] = '\0';
  *out = d;
  if (outlen != nullptr) *outlen = n;
  return 0;
}

uint32_t u8to16(lrmctx_rec *c, const char *src, size_t len, uint16_t **out, size_t *outunits) {
  auto *d = static_cast<uint16_t *>(hmalloc(c, (len + 1) * 2));
  if (d == nullptr) return perr(c, kNoMemory, LEM_ARG_TEXT, "converting UTF-8", LEM_ARG_END);
  const auto *s = reinterpret_cast<const uint8_t *>(src);
  size_t n = 0, i = 0;
  while (i < len) {
    uint32_t b = s[i], u;
    int extra;
    if (b < 0x80) {
      u = b;
      extra = 0;
    } else if (b >= 0xC2 && b <= 0xDF) {
      u = b & 0x1F;
      extra = 1;
    } else if (b >= 0xE0 && b <= 0xEF) {
      u = b & 0x0F;
      extra = 2;
    } else if (b >= 0xF0 && b <= 0xF4) {
      u = b & 0x07;
      extra = 3;
    } else {
      hfree(c, d);
      return perr(c, kBadUnicode, LEM_ARG_TEXT, "UTF-8", LEM_ARG_END);
    }
    for (int k = 1; k <= extra; k++) {
      if (i + k >= len || (s[i + k] & 0xC0) != 0x80) {
        hfree(c, d);
        return perr(c, kBadUnicode, LEM_ARG_TEXT, "UTF-8", LEM_ARG_END);
      }
      u = (u << 6) | (s[i + k] & 0x3F);
    }
    static const uint32_t kMin[] = {0, 0x80, 0x800, 0x10000};
    if (u < kMin[extra] || u > 0x10FFFF || (u >= 0xD800 && u <= 0xDFFF)) {
      hfree(c, d);
      return perr(c, kBadUnicode, LEM_ARG_TEXT, "UTF-8", LEM_ARG_END);
    }
    i += extra + 1;
    if (u >= 0x10000) {
      u -= 0x10000;
      d[n++] = static_cast<uint16_t>(0xD800 + (u >> 10));
      d[n++] = static_cast<uint16_t>(0xDC00 + (u & 0x3FF));
    } else {
      d[n++] = static_cast<uint16_t>(u);
    }
  }
  d[n] = 0;
  *out = d;
  if (outunits != nullptr) *outunits = n;
  return 0;
}

}  // namespace lrm_internal

using namespace lrm_internal;

namespace {

void free_context(lrmctx_rec *c) {
  lcorectx *core = c->core;
  if (c->lsf != nullptr) lpmdelete(core, "lsf");
  if (c->heap != nullptr) lmmhpfree(c->mctx, c->heap, 0);
  if (c->fac != nullptr) lemfaf(core->lemctx, c->fac);
  ss_mem_fre(c);
}

}  // namespace

extern "C" {

KELAPI lrmctx *lrminiu(lcorectx *ctx, const lxenv *charset, uint32_t flags, lrminitcb cb, void *cbarg) {
  if (ctx == nullptr || ctx->lmmctx == nullptr || ctx->lemctx == nullptr) return nullptr;
  // The context record itself is a core record of the family.
  auto *c = static_cast<lrmctx_rec *>(ss_mem_calc(sizeof(lrmctx_rec)));
  if (c == nullptr) return nullptr;
  c->core = ctx;
  c->mctx = ctx->lmmctx;
  c->flags = flags;
  c->options = flags & (LRM_OPT_COMMA | LRM_OPT_COMMENTS);
  c->unicode = (flags & LRM_F_UNICODE) != 0;
  c->fac = lemfaa(ctx->lemctx, nullptr, "KELCORE", "LRM", 100, 4);
  if (c->fac == nullptr) {
    free_context(c);
    return nullptr;
  }
  if (lmmhpinit(c->mctx, &c->heap, lmmtophp(c->mctx), LMM_HP_NOLOCK, nullptr, "lrminiu", __LINE__, nullptr) != 0) {
    c->heap = nullptr;
    free_context(c);
    return nullptr;
  }
  if (c->unicode) {
    static const char kUtf8[] = ".AL32UTF8";
    c->env = lxhLangEnv(nullptr, kUtf8, sizeof kUtf8 - 1);
  } else if (charset != nullptr) {
    c->env = charset;
  } else {
    static const char kDefault[] = "AMERICAN_AMERICA.US7ASCII";
    c->env = lxhLangEnv(nullptr, kDefault, sizeof kDefault - 1);
  }
  // Texts are NUL-terminated bytes with ASCII punctuation: a two-byte
  // Unicode set cannot be the inside character set.
  if (c->env == nullptr || lxhninfo(c->env, LX_CHARSET_KIND) == LX_CS_UTF16) {
    free_context(c);
    return nullptr;
  }
  c->csid = lxhninfo(c->env, LX_CHARSET_ID);
  c->maxsource = LRM_MAX_SOURCE_DEFAULT;
  c->bytewise = lxhninfo(c->env, LX_MAX_CHAR_BYTES) == 1;
  for (uint32_t b = 0; b < 256; b++) {
    // Multi-byte sets: only ASCII bytes can be blanks or fold; the rest are
    // parts of longer characters.
    bool single = c->bytewise || b < 0x80;
    c->blank[b] = single && lxmspax(c->env, b) ? 1 : 0;
    uint32_t up = single ? lxmtupx(c->env, b) : b;
    c->upper[b] = static_cast<uint8_t>(up < 256 ? up : b);
  }
  // A NUL byte cannot be part of a NUL-terminated token text: it separates
  // like a blank.
  static const unsigned char kBlanks[] = {'\n', '\r', '\t', ' ', '\0'};
  for (unsigned char b : kBlanks) c->blank[b] = 1;
  for (uint32_t b = 0; b < 256; b++) {
    uint8_t k = c->blank[b] ? kClsBlank : 0;
    if (b == '(' || b == '"' || b == '\'' || b == '=' || b == ',') k |= kClsStop;
    if (b == ')') k |= kClsClose;
    if (b == '#') k |= kClsHash;
    if (b == '\\') k |= kClsBackslash;
    if (b >= 0x80 && !c->bytewise) k |= kClsHigh;
    c->cls[b] = k;
  }
  c->plainfast = true;
  for (uint32_t b = 0x2D; b <= 0x7E; b++)
    if (b != '=' && b != '\\' && c->cls[b] != 0) c->plainfast = false;
  c->lsf = lpmloadpkg(ctx, "lsf");
  if (c->lsf == nullptr) {
    free_context(c);
    return nullptr;
  }
  if (cb != nullptr && cb(cbarg, c->progname) != 0) {
    free_context(c);
    return nullptr;
  }
  c->progname[sizeof c->progname - 1] = '\0';
  return reinterpret_cast<lrmctx *>(c);
}

KELAPI lrmctx *lrminit(lcorectx *ctx, const lxenv *charset, lrminitcb cb, void *cbarg) {
  return lrminiu(ctx, charset, 0, cb, cbarg);
}

KELAPI lrmctx *lrmini(lcorectx *ctx, lrminitcb cb, void *cbarg) { return lrminiu(ctx, nullptr, 0, cb, cbarg); }

KELAPI int32_t lrmtrm(lrmctx *h) {
  if (h == nullptr) return 0;
  free_context(rec(h));
  return 0;
}

KELAPI size_t lrmslim(lrmctx *h, size_t bytes) {
  if (h == nullptr) return 0;
  lrmctx_rec *c = rec(h);
  size_t old = c->maxsource;
  if (bytes > SIZE_MAX / 4) bytes = SIZE_MAX / 4;
  if (bytes != 0) c->maxsource = bytes;
  return old;
}

KELAPI uint32_t lrmsopt(lrmctx *h, uint32_t options) {
  if (h == nullptr) return 0;
  lrmctx_rec *c = rec(h);
  uint32_t old = c->options;
  c->options = options & (LRM_OPT_COMMA | LRM_OPT_COMMENTS);
  return old;
}

KELAPI void lrmsout(lrmctx *h, lrmoutfn fn, void *arg) {
  if (h == nullptr) return;
  rec(h)->out = fn;
  rec(h)->outarg = arg;
}

KELAPI uint32_t lrmperr(lrmctx *h, uint32_t status, ...) {
  if (h == nullptr) return status;
  va_list ap;
  va_start(ap, status);
  lemrev(rec(h)->core->lemctx, rec(h)->fac, static_cast<int32_t>(status), 2, ap);
  va_end(ap);
  return status;
}

KELAPI int32_t lrmpfmt(lrmctx *h, char *buf, size_t len) {
  if (h == nullptr || buf == nullptr || len == 0) return 0;
  void *lem = rec(h)->core->lemctx;
  int32_t num = lemgec(lem, 1);
  if (num < 0) return 0;
  char fac[16];
  if (lemgef(lem, 1, fac, sizeof fac) <= 0) fac[0] = '\0';
  char text[768];
  lemgem(lem, 1, text, sizeof text);
  return lsfp(nullptr, buf, len, "%s-%05d: %s", fac, num, text);
}

KELAPI uint32_t lrmpu16to8(lrmctx *h, const uint16_t *src, size_t units, char **out, size_t *outlen) {
  if (h == nullptr || out == nullptr || (src == nullptr && units > 0)) return kNullArgument;
  return u16to8(rec(h), src, units, out, outlen);
}

KELAPI uint32_t lrmpu8to16(lrmctx *h, const char *src, size_t len, uint16_t **out, size_t *outunits) {
  if (h == nullptr || out == nullptr || (src == nullptr && len > 0)) return kNullArgument;
  return u8to16(rec(h), src, len, out, outunits);
}

KELAPI void lrmpufree(lrmctx *h, void *p) {
  if (h != nullptr) hfree(rec(h), p);
}

}  // extern "C"
