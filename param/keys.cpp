// Key sets: declaration, name matching with abbreviations and built-in
// keys, the help listing, and the conversions of value text to typed values.
#include <cstring>

#include "lsf.h"
#include "lsr.h"
#include "param/lrm_impl.h"

namespace lrm_internal {

const char *const kBuiltinNames[kBuiltins] = {"help", "usage", "?", "version"};

bool split_qualified(const char *s, size_t n, size_t *colon) {
  // The last colon that is neither first nor last.
  if (n < 3) return false;
  const char *last = nullptr;
  for (const char *p = s + 1, *end = s + n - 1; p < end; p++) {
    p = static_cast<const char *>(memchr(p, ':', static_cast<size_t>(end - p)));
    if (p == nullptr) break;
    last = p;
  }
  if (last == nullptr) return false;
  *colon = static_cast<size_t>(last - s);
  return true;
}

uint32_t resolve(lrmctx_rec *c, const char *name, size_t len, int32_t *idx) {
  const lrmkeyset *set = c->set;
  uint32_t flags = set != nullptr ? set->flags : LRM_KS_ANYKEY;
  int32_t found = -1;
  bool ambiguous = false;
  if (set != nullptr) {
    const bool abbrev = (flags & LRM_KS_ABBREV) && len > 0;
    for (uint32_t k = 0; k < set->count; k++) {
      const char *kn = set->keys[k].name;
      size_t kl = strlen(kn);
      // Byte lengths decide before any comparison in a single-byte set.
      if (c->bytewise && (abbrev ? kl < len : kl != len)) continue;
      int32_t m = name_match(c, kn, kl, name, len);
      if (m == 2) {
        *idx = static_cast<int32_t>(k);
        return 0;
      }
      if (m == 1 && abbrev) {
        if (found >= 0) ambiguous = true;
        found = static_cast<int32_t>(k);
      }
    }
  }
  if (ambiguous) return kAmbiguous;
  if (found >= 0) {
    *idx = found;
    return 0;
  }
  // Every built-in name starts with one of these; most names do not.
  const char first = static_cast<char>(len > 0 ? name[0] | 0x20 : 0);
  const bool maybe_builtin = first == 'h' || first == 'u' || first == '?' || first == 'v';
  for (int b = 0; maybe_builtin && b < kBuiltins; b++) {
    if (b <= kQuestion && (flags & LRM_KS_NOHELP)) continue;
    if (b == kVersion && (flags & LRM_KS_NOVERSION)) continue;
    static constexpr size_t kLengths[kBuiltins] = {4, 5, 1, 7};
    size_t bl = kLengths[b];
    if (len == 0 || len > bl) continue;
    if (len == bl || (flags & LRM_KS_ABBREV)) {
      // Built-in names compare case-insensitively in any set.
      bool eq = true;
      for (size_t i = 0; i < len && eq; i++)
        eq = (name[i] | 0x20) == (kBuiltinNames[b][i] | 0x20) || name[i] == kBuiltinNames[b][i];
      if (eq) {
        *idx = -2 - b;
        return 0;
      }
    }
  }
  if (flags & LRM_KS_ANYKEY) {
    *idx = -1;
    return 0;
  }
  return kUnknownKey;
}

// ------------------------------------------------------------ conversions

namespace {

bool word_in(const lrmctx_rec *c, const char *const *words, const char *text, size_t len) {
  for (; *words != nullptr; words++)
    if (words_equal(c, *words, strlen(*words), text, len)) return true;
  return false;
}

}  // namespace

uint32_t to_bool(lrmctx_rec *c, const char *text, size_t len, uint8_t *out) {
  const lrmkeyset *set = c->set;
  uint32_t ch = first_char(c, text, len);
  bool t = set != nullptr && set->truewords != nullptr ? word_in(c, set->truewords, text, len)
                                                         : (ch == 'T' || ch == 't' || ch == 'Y' || ch == 'y');
  if (t) {
    *out = 1;
    return 0;
  }
  bool f = set != nullptr && set->falsewords != nullptr ? word_in(c, set->falsewords, text, len)
                                                          : (ch == 'F' || ch == 'f' || ch == 'N' || ch == 'n');
  if (f) {
    *out = 0;
    return 0;
  }
  return kBadBoolean;
}

uint32_t to_int(const char *text, size_t len, uint32_t *out) {
  uint32_t base = 10;
  if (len >= 1 && text[0] == '%') {
    if (len < 2) return kBadBase;
    char b = text[1];
    if (b == 'd' || b == 'D')
      base = 10;
    else if (b == 'h' || b == 'H')
      base = 16;
    else
      return kBadBase;
    text += 2;
    len -= 2;
  }
  bool neg = false;
  if (len > 0 && (text[0] == '-' || text[0] == '+')) {
    neg = text[0] == '-';
    text++;
    len--;
  }
  if (len == 0) return kBadInteger;
  uint64_t v = 0;
  for (size_t i = 0; i < len; i++) {
    int ch = static_cast<uint8_t>(text[i]);
    uint32_t d;
    if (ch >= '0' && ch <= '9')
      d = ch - '0';
    else if (base == 16 && (ch | 0x20) >= 'a' && (ch | 0x20) <= 'f')
      d = (ch | 0x20) - 'a' + 10;
    else
      return kBadInteger;
    v = v * base + d;
    if (v > 0xFFFFFFFFull) return kBadInteger;
  }
  // A negative value is kept as its 32-bit two's complement, as strtol into
  // an unsigned 32-bit field would, but only within the signed range.
  if (neg) {
    if (v > 0x80000000ull) return kBadInteger;
    v = static_cast<uint32_t>(-static_cast<int64_t>(v));
  }
  *out = static_cast<uint32_t>(v);
  return 0;
}

uint32_t to_int8(const char *text, size_t len, int64_t *out) {
  if (len == 0) return kBadInteger;
  int shift = 0;
  size_t digits = len;
  switch (text[len - 1]) {
    case 'K':
    case 'k':
      shift = 10;
      digits--;
      break;
    case 'M':
    case 'm':
      shift = 20;
      digits--;
      break;
    case 'G':
    case 'g':
      shift = 30;
      digits--;
      break;
    default:
      break;
  }
  if (digits == 0) return kBadInteger;
  uint64_t v = 0;
  for (size_t i = 0; i < digits; i++) {
    if (text[i] < '0' || text[i] > '9') return kBadInteger;
    v = v * 10 + static_cast<uint64_t>(text[i] - '0');
    if (v > static_cast<uint64_t>(INT64_MAX)) return kBadInteger;
  }
  if (shift != 0 && v > (static_cast<uint64_t>(INT64_MAX) >> shift)) return kBadInteger;
  *out = static_cast<int64_t>(v << shift);
  return 0;
}

// The number conversion lives behind this one function so that the number
// family's parser can be connected without touching the rest.
uint32_t to_number(lrmctx_rec *c, const char *text, size_t len, uint8_t *out, size_t *outlen);

uint32_t convert(lrmctx_rec *c, int32_t keyidx, uint8_t type, const char *text, size_t len, lrmval *v) {
  const lrmkey *k = keyidx >= 0 && c->set != nullptr ? &c->set->keys[keyidx] : nullptr;
  uint32_t st = 0;
  switch (type) {
    case LRM_T_BOOL:
      return to_bool(c, text, len, &v->boolv);
    case LRM_T_STRING:
    case LRM_T_NAME:
      return 0;
    case LRM_T_INT:
      st = to_int(text, len, &v->u32);
      if (st == 0 && k != nullptr && k->hasrange &&
          (static_cast<int64_t>(v->u32) < k->min || static_cast<int64_t>(v->u32) > k->max))
        st = kOutOfRange;
      return st;
    case LRM_T_INT8:
      st = to_int8(text, len, &v->i64);
      if (st == 0 && k != nullptr && k->hasrange && (v->i64 < k->min || v->i64 > k->max)) st = kOutOfRange;
      return st;
    case LRM_T_NUMBER: {
      size_t n = 0;
      st = to_number(c, text, len, v->num, &n);
      v->numlen = static_cast<uint8_t>(n);
      return st;
    }
    default:
      return kBadDeclaration;
  }
}

}  // namespace lrm_internal

namespace lrm_internal {

uint32_t check_option(lrmctx_rec *c, const char *name, size_t len, const char *at, uint8_t *type) {
  // "q:k" names the key k under qualifier q.
  size_t colon = 0;
  const char *key = name;
  size_t klen = len;
  if (split_qualified(name, len, &colon)) {
    key = name + colon + 1;
    klen = len - colon - 1;
  }
  int32_t idx = -1;
  uint32_t st = resolve(c, key, klen, &idx);
  if (st != 0) return report(c, st, {std::string_view(key, klen)}, at, std::string_view(name, len));
  uint8_t t = LRM_T_STRING;
  if (idx >= 0) {
    t = c->set->keys[idx].type;
  } else if (idx <= -2) {
    t = LRM_T_BOOL;
    if (-2 - idx == kVersion) {
      if (c->set != nullptr && c->set->version != nullptr)
        c->set->version(c->set->versionarg, reinterpret_cast<lrmctx *>(c));
    } else {
      st = lrmprh(reinterpret_cast<lrmctx *>(c));
      if (st == kNoKeySet) st = 0;
    }
  }
  if (type != nullptr) *type = t;
  return st;
}

}  // namespace lrm_internal

using namespace lrm_internal;

namespace {

int32_t by_name(void *ctx, const void *a, const void *b) {
  const auto *c = static_cast<const lrmctx_rec *>(ctx);
  return names_order(c, c->set->keys[*static_cast<const uint32_t *>(a)].name,
                     c->set->keys[*static_cast<const uint32_t *>(b)].name);
}

const char *const kTypeNames[] = {"", "boolean", "string", "integer", "name", "number", "size (K, M, G)"};

// The line of the help listing that says what a key takes.
int32_t describe(const lrmkey &key, char *line, size_t len) {
  int32_t n = lsfp(nullptr, line, len, "\t\ttype %s", kTypeNames[key.type]);
  auto add = [&](const char *fmt, auto... args) {
    if (n >= 0 && static_cast<size_t>(n) < len) n += lsfp(nullptr, line + n, len - static_cast<size_t>(n), fmt, args...);
  };
  if (key.defval != nullptr) add(", default \"%s\"", key.defval);
  if (key.hasrange) add(", range %lld to %lld", static_cast<long long>(key.min), static_cast<long long>(key.max));
  add("\n");
  return n;
}

void emit_line(lrmctx_rec *c, const char *line, int32_t m, size_t cap) {
  if (m > 0) emit(c, line, static_cast<size_t>(m) < cap ? static_cast<size_t>(m) : cap - 1);
}

}  // namespace

extern "C" {

KELAPI uint32_t lrmpsvp(lrmctx *h, const lrmkeyset *set) {
  if (h == nullptr || set == nullptr || (set->keys == nullptr && set->count > 0)) {
    if (h != nullptr) perr(rec(h), kNullArgument, LEM_ARG_TEXT, "key set", LEM_ARG_END);
    return kNullArgument;
  }
  lrmctx_rec *c = rec(h);
  const lrmkeyset *old = c->set;
  c->set = set;
  uint32_t st = 0;
  for (uint32_t k = 0; k < set->count && st == 0; k++) {
    const lrmkey &key = set->keys[k];
    if (key.name == nullptr || key.name[0] == '\0') {
      st = perr(c, kBadDeclaration, LEM_ARG_TEXT, "", LEM_ARG_TEXT, "no name", LEM_ARG_END);
    } else if (key.type < LRM_T_BOOL || key.type > LRM_T_INT8) {
      st = perr(c, kBadDeclaration, LEM_ARG_TEXT, key.name, LEM_ARG_TEXT, "unknown type", LEM_ARG_END);
    } else if (key.hasrange && key.min > key.max) {
      st = perr(c, kBadDeclaration, LEM_ARG_TEXT, key.name, LEM_ARG_TEXT, "empty range", LEM_ARG_END);
    } else {
      for (uint32_t j = 0; j < k; j++) {
        if (names_equal(c, key.name, strlen(key.name), set->keys[j].name, strlen(set->keys[j].name))) {
          st = perr(c, kDuplicateKey, LEM_ARG_TEXT, key.name, LEM_ARG_END);
          break;
        }
      }
    }
  }
  for (uint32_t k = 0; k < set->count && st == 0; k++) {
    const lrmkey &key = set->keys[k];
    if (key.defval == nullptr) continue;
    lrmval v{};
    uint32_t cs = convert(c, static_cast<int32_t>(k), key.type, key.defval, strlen(key.defval), &v);
    if (cs != 0) {
      report(c, cs, {key.defval}, nullptr, key.name);
      st = perr(c, kBadDeclaration, LEM_ARG_TEXT, key.name, LEM_ARG_TEXT, "bad default", LEM_ARG_END);
    }
  }
  if (st != 0) {
    c->set = old;
    return st;
  }
  clear_values(c);
  for (uint32_t k = 0; k < set->count && st == 0; k++) {
    const lrmkey &key = set->keys[k];
    if (key.defval != nullptr)
      st = store(c, nullptr, 0, key.name, strlen(key.name), key.defval, strlen(key.defval), nullptr, kStoreDefault,
                 nullptr, nullptr);
  }
  if (st != 0) {
    // Out of memory half way: no set, no values, rather than some defaults.
    clear_values(c);
    c->set = nullptr;
  }
  return st;
}

KELAPI uint32_t lrmckv(lrmctx *h, const char *name, size_t len, uint8_t *type) {
  if (h == nullptr || name == nullptr) {
    if (h != nullptr) perr(rec(h), kNullArgument, LEM_ARG_TEXT, "name", LEM_ARG_END);
    return kNullArgument;
  }
  return check_option(rec(h), name, len, nullptr, type);
}

KELAPI uint32_t lrmpatk(lrmctx *h, const char *name, size_t len, uint32_t *index) {
  if (h == nullptr || name == nullptr || index == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  if (c->set == nullptr) return perr(c, kNoKeySet, LEM_ARG_END);
  if (!(c->set->flags & LRM_KS_ABBREV)) return perr(c, kNotAbbreviable, LEM_ARG_END);
  int32_t idx = -1;
  uint32_t st = resolve(c, name, len, &idx);
  if (st == 0 && idx < 0) st = kUnknownKey;
  if (st != 0) return report(c, st, {std::string_view(name, len)}, nullptr, std::string_view(name, len));
  *index = static_cast<uint32_t>(idx);
  return 0;
}

KELAPI uint32_t lrmprh(lrmctx *h) {
  if (h == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  if (c->set == nullptr) return kNoKeySet;
  uint32_t n = c->set->count;
  auto *order = static_cast<uint32_t *>(hmalloc(c, sizeof(uint32_t) * (n + 1)));
  if (order == nullptr) return perr(c, kNoMemory, LEM_ARG_TEXT, "listing help", LEM_ARG_END);
  for (uint32_t k = 0; k < n; k++) order[k] = k;
  lsrsrx(order, n, sizeof(uint32_t), by_name, c);
  char line[1024];
  for (uint32_t k = 0; k < n; k++) {
    const lrmkey &key = c->set->keys[order[k]];
    const char *help = key.help != nullptr ? key.help : "";
    const char *nl = strchr(help, '\n');
    size_t first = nl != nullptr ? static_cast<size_t>(nl - help) : strlen(help);
    emit_line(c, line, lsfp(nullptr, line, sizeof line, "%s\t\t%.*s\n", key.name, static_cast<int>(first), help),
              sizeof line);
    while (nl != nullptr) {
      const char *p = nl + 1;
      nl = strchr(p, '\n');
      size_t l = nl != nullptr ? static_cast<size_t>(nl - p) : strlen(p);
      emit_line(c, line, lsfp(nullptr, line, sizeof line, "\t\t%.*s\n", static_cast<int>(l), p), sizeof line);
    }
    emit_line(c, line, describe(key, line, sizeof line), sizeof line);
  }
  hfree(c, order);
  return 0;
}

KELAPI uint32_t lrmt2b(lrmctx *h, const char *text, size_t len, uint8_t *out) {
  if (h == nullptr || text == nullptr || out == nullptr) return kNullArgument;
  uint8_t v = 0;
  uint32_t st = to_bool(rec(h), text, len, &v);
  if (st == 0) *out = v;
  return st;
}

KELAPI uint32_t lrmt2i(lrmctx *h, const char *text, size_t len, uint32_t *out) {
  if (h == nullptr || text == nullptr || out == nullptr) return kNullArgument;
  return to_int(text, len, out);
}

KELAPI uint32_t lrmt2i8(lrmctx *h, const char *text, size_t len, int64_t *out) {
  if (h == nullptr || text == nullptr || out == nullptr) return kNullArgument;
  return to_int8(text, len, out);
}

KELAPI uint32_t lrmt2on(lrmctx *h, const char *text, size_t len, uint8_t *out, size_t *outlen) {
  if (h == nullptr || text == nullptr || out == nullptr) return kNullArgument;
  uint8_t num[22];
  size_t n = 0;
  uint32_t st = to_number(rec(h), text, len, num, &n);
  if (st == 0) {
    memcpy(out, num, n);
    if (outlen != nullptr) *outlen = n;
  }
  return st;
}

}  // extern "C"
