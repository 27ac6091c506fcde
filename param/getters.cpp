// What a caller reads and sets directly: the getters, the calls that set or
// drop values of a key, and the dump of every stored value as text.
//
// Sections: keys at the interface, getters, dump, interface.
#include <cstring>

#include "lsf.h"
#include "param/file_impl.h"
#include "param/lrm_impl.h"
#include "sl.h"

namespace lrm_internal {

namespace {

// ---------------------------------------------------- keys at the interface

// A key as a caller gives it, in the inside character set: converted from
// UTF-16 in Unicode mode, and "q:k" split when no qualifier is given.
struct keyarg {
  const char *qual;
  size_t quallen;
  const char *key;
  size_t klen;
  char *qtmp, *ktmp;  // Unicode conversions to free
};

void put_key(lrmctx_rec *c, keyarg *k) {
  hfree(c, k->ktmp);
  hfree(c, k->qtmp);
}

uint32_t get_key(lrmctx_rec *c, const void *qual, const void *key, size_t klen, keyarg *k) {
  memset(k, 0, sizeof *k);
  if (key == nullptr && klen > 0) return perr(c, kNullArgument, LEM_ARG_TEXT, "key", LEM_ARG_END);
  if (c->unicode) {
    uint32_t st = u16to8(c, static_cast<const uint16_t *>(key), klen, &k->ktmp, &k->klen);
    if (st != 0) return st;
    k->key = k->ktmp;
    if (qual != nullptr) {
      const auto *q = static_cast<const uint16_t *>(qual);
      size_t n = 0;
      while (q[n] != 0) n++;
      st = u16to8(c, q, n, &k->qtmp, &k->quallen);
      if (st != 0) {
        put_key(c, k);
        return st;
      }
      k->qual = k->qtmp;
    }
  } else {
    k->key = klen > 0 ? static_cast<const char *>(key) : "";
    k->klen = klen;
    if (qual != nullptr) {
      k->qual = static_cast<const char *>(qual);
      k->quallen = strlen(k->qual);
    }
  }
  size_t colon = 0;
  if (k->qual == nullptr && split_qualified(k->key, k->klen, &colon)) {
    k->qual = k->key;
    k->quallen = colon;
    k->key += colon + 1;
    k->klen -= colon + 1;
  }
  return 0;
}

// The name under which a key's values are kept: a declared or built-in key's
// own spelling (abbreviations resolved), else the key as given. *idx as
// resolve gives it (-1 for an unknown key).
void canonical(lrmctx_rec *c, const keyarg &k, const char **name, size_t *namelen, int32_t *idx) {
  *name = k.key;
  *namelen = k.klen;
  *idx = -1;
  if (k.klen == 0 || resolve(c, k.key, k.klen, idx) != 0) {
    *idx = -1;
    return;
  }
  if (*idx >= 0) *name = c->set->keys[*idx].name;
  if (*idx <= -2) *name = kBuiltinNames[-2 - *idx];
  if (*idx != -1) *namelen = strlen(*name);
}

// ----------------------------------------------------------------- getters

void copy_qname(lrmctx_rec *c, void *qname, const lrmentry *e) {
  if (qname == nullptr) return;
  char buf[LRM_QNAME_MAX];
  int m = e->qual != nullptr ? lsfp(nullptr, buf, sizeof buf, "%s:%s", e->qual, e->name)
                             : lsfp(nullptr, buf, sizeof buf, "%s", e->name);
  size_t n = static_cast<size_t>(m) < sizeof buf ? static_cast<size_t>(m) : sizeof buf - 1;
  if (!c->unicode) {
    memcpy(qname, buf, n + 1);
    return;
  }
  uint16_t *w = nullptr;
  size_t units = 0;
  auto *out = static_cast<uint16_t *>(qname);
  if (u8to16(c, buf, n, &w, &units) != 0) {
    out[0] = 0;
    return;
  }
  if (units > LRM_QNAME_MAX / 2 - 1) units = LRM_QNAME_MAX / 2 - 1;
  memcpy(out, w, units * 2);
  out[units] = 0;
  hfree(c, w);
}

// The key a caller names, in canonical form: its name, its declared index
// (-1 when undeclared) and its entry (null when it has none; with
// `fallback`, the unqualified key's when the qualified one has none, as the
// getters read it). On success the caller puts k back.
uint32_t resolve_key(lrmctx_rec *c, const void *qual, const void *key, size_t klen, bool fallback, keyarg *k,
                     const char **name, int32_t *idx, lrmentry **e) {
  uint32_t st = get_key(c, qual, key, klen, k);
  if (st != 0) return st;
  size_t namelen;
  canonical(c, *k, name, &namelen, idx);
  *e = find_entry(c, k->qual, k->quallen, *name, namelen);
  if (*e == nullptr && fallback && k->quallen > 0) *e = find_entry(c, nullptr, 0, *name, namelen);
  return 0;
}

// Finds occurrence `occ` of the key, qualified first and then unqualified.
// 0 with *v null when there is none; 202 when the key's type is not one of
// the wanted types. *e receives the entry of the value.
uint32_t lookup(lrmctx_rec *c, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                uint8_t want1, uint8_t want2, const lrmval **v, const lrmentry **ent = nullptr) {
  *v = nullptr;
  keyarg k;
  const char *name;
  int32_t idx;
  lrmentry *e;
  uint32_t st = resolve_key(c, qual, key, klen, true, &k, &name, &idx, &e);
  if (st != 0) return st;
  if (idx >= 0) {
    uint8_t t = c->set->keys[idx].type;
    if (t != want1 && t != want2) {
      put_key(c, &k);
      return perr(c, kWrongType, LEM_ARG_TEXT, name, LEM_ARG_END);
    }
  }
  put_key(c, &k);
  if (e == nullptr) return 0;
  if (e->type != want1 && e->type != want2) return perr(c, kWrongType, LEM_ARG_TEXT, e->name, LEM_ARG_END);
  if (occ >= e->count - e->base) return 0;
  copy_qname(c, qname, e);
  *v = e->vals[e->base + occ];
  if (ent != nullptr) *ent = e;
  return 0;
}

// The typed getters share the checks and the lookup; each stores its field.
template <class Store>
uint32_t get_typed(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                   const void *out, uint32_t type, Store put) {
  if (h == nullptr || key == nullptr || out == nullptr) return kNullArgument;
  const lrmval *v;
  uint32_t st = lookup(rec(h), qual, qname, key, klen, occ, type, type, &v);
  if (st == 0 && v != nullptr) put(*v);
  return st;
}

// --------------------------------------------------------------------- dump

// A value that would not read back as one word is written quoted.
bool needs_quotes(const lrmctx_rec *c, const char *s, size_t n) {
  // A leading '-' would be an option; a leading '@', or "include" with a
  // comment after it, an include line.
  if (n == 0 || s[0] == '-' || s[0] == '@' || (n == 7 && memcmp(s, "include", 7) == 0)) return true;
  for (size_t i = 0; i < n; i++) {
    auto ch = static_cast<unsigned char>(s[i]);
    if (ch <= ' ' || ch == '#' || ch == '(' || ch == ')' || ch == '"' || ch == '\'' || ch == '=' || ch == ',' ||
        ch == '\\' || ch == 0x7F || blank_at(c, s + i, n - i) > 0)
      return true;
  }
  return false;
}

struct dumper {
  lrmoutfn fn;
  void *arg;
};

void put(const dumper &d, const char *s, size_t n) { d.fn(d.arg, s, n); }
void put(const dumper &d, const char *s) { d.fn(d.arg, s, strlen(s)); }

void put_value(const lrmctx_rec *c, const dumper &d, const char *s, size_t n) {
  if (!needs_quotes(c, s, n)) {
    put(d, s, n);
    return;
  }
  put(d, "\"", 1);
  size_t start = 0;
  for (size_t i = 0; i < n; i++) {
    if (s[i] == '"') {
      put(d, s + start, i - start + 1);
      put(d, "\"", 1);
      start = i + 1;
    }
  }
  put(d, s + start, n - start);
  put(d, "\"", 1);
}

// Key names come from words: the characters a word can only hold escaped
// are written escaped.
void put_name(const dumper &d, const char *s, size_t n) {
  size_t start = 0;
  for (size_t i = 0; i < n; i++) {
    char ch = s[i];
    if (ch == '#' || ch == '(' || ch == ')' || ch == '"' || ch == '\'' || ch == '=' || ch == ',' || ch == '\\') {
      put(d, s + start, i - start);
      put(d, "\\", 1);
      start = i;
    }
  }
  put(d, s + start, n - start);
}

// A boolean as the set reads it back: TRUE and FALSE, or the first of the
// set's own words when it has a list.
const char *bool_text(const lrmctx_rec *c, bool v) {
  const char *const *words = c->set == nullptr ? nullptr : v ? c->set->truewords : c->set->falsewords;
  if (words != nullptr && words[0] != nullptr) return words[0];
  return v ? "TRUE" : "FALSE";
}

void dump(lrmctx_rec *c, const dumper &d) {
  // Positional values first: they must come before any setting.
  for (int pass = 0; pass < 2; pass++) {
    for (uint32_t k = 0; k < c->nentries; k++) {
      const lrmentry *e = c->entries[k];
      bool positional = e->namelen == 0 && e->qual == nullptr;
      if (positional != (pass == 0)) continue;
      for (uint32_t i = e->base; i < e->count; i++) {
        const lrmval *v = e->vals[i];
        char num[32];
        if (!positional) {
          if (e->qual != nullptr) {
            put_name(d, e->qual, e->quallen);
            put(d, ":", 1);
          }
          put_name(d, e->name, e->namelen);
          put(d, "=", 1);
        }
        switch (e->type) {
          case LRM_T_BOOL:
            put(d, bool_text(c, v->boolv != 0));
            break;
          case LRM_T_INT:
            lsfp(nullptr, num, sizeof num, "%u", v->u32);
            put(d, num);
            break;
          case LRM_T_INT8:
            lsfp(nullptr, num, sizeof num, "%lld", static_cast<long long>(v->i64));
            put(d, num);
            break;
          default:
            put_value(c, d, v->text, v->len);
            break;
        }
        if (v->comment != nullptr) {
          put(d, " #", 2);
          put(d, v->comment);
        }
        put(d, "\n", 1);
      }
    }
  }
}

struct fileout {
  lrm_file::outfile *f;
};

void to_file(void *arg, const char *s, size_t n) { lrm_file::write_file(static_cast<fileout *>(arg)->f, s, n); }

// ---------------------------------------------------------- set and check

// A caller's value as text: as given, or in a Unicode context converted from
// UTF-16 into *tmp, which the caller frees with hfree (null otherwise).
uint32_t value_text(lrmctx_rec *c, const void *value, size_t vlen, const char **text, size_t *len, char **tmp) {
  *tmp = nullptr;
  *text = static_cast<const char *>(value);
  *len = vlen;
  if (!c->unicode) return 0;
  uint32_t st = u16to8(c, static_cast<const uint16_t *>(value), vlen, tmp, len);
  *text = *tmp;
  return st;
}

// The arguments of a call that takes a key and a value, as inside text.
struct keyvalue {
  keyarg k;
  const char *text;  // never null once opened
  size_t len;
  char *vtmp;
};

// Checks and converts the key and value of such a call; on success the
// caller ends with close_key_value.
uint32_t open_key_value(lrmctx_rec *c, const void *qual, const void *key, size_t klen, const void *value,
                        size_t vlen, keyvalue *kv) {
  kv->vtmp = nullptr;
  if (key == nullptr || (value == nullptr && vlen > 0))
    return perr(c, kNullArgument, LEM_ARG_TEXT, "key or value", LEM_ARG_END);
  uint32_t st = get_key(c, qual, key, klen, &kv->k);
  if (st != 0) return st;
  st = value_text(c, value, vlen, &kv->text, &kv->len, &kv->vtmp);
  if (st != 0) {
    put_key(c, &kv->k);
    return st;
  }
  if (kv->text == nullptr) kv->text = "";
  return 0;
}

void close_key_value(lrmctx_rec *c, keyvalue *kv) {
  hfree(c, kv->vtmp);
  put_key(c, &kv->k);
}

// The entry of a key the caller names (null when it has none); with
// `fallback`, the unqualified key's when the qualified one has none, as the
// getters read it.
uint32_t caller_entry(lrmctx_rec *c, const void *qual, const void *key, size_t klen, bool fallback, lrmentry **e) {
  keyarg k;
  const char *name;
  int32_t idx;
  uint32_t st = resolve_key(c, qual, key, klen, fallback, &k, &name, &idx, e);
  if (st == 0) put_key(c, &k);
  return st;
}

}  // namespace

}  // namespace lrm_internal

// --------------------------------------------------------------- interface

using namespace lrm_internal;

extern "C" {

KELAPI uint32_t lrmspv2(lrmctx *h, const void *qual, const void *key, size_t klen, const void *value, size_t vlen) {
  if (h == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  keyvalue kv;
  uint32_t st = open_key_value(c, qual, key, klen, value, vlen, &kv);
  if (st != 0) return st;
  st = store(c, kv.k.qual, kv.k.quallen, kv.k.key, kv.k.klen, kv.text, kv.len, nullptr, kStoreValue, nullptr,
             nullptr);
  close_key_value(c, &kv);
  return st;
}

KELAPI uint32_t lrmspv(lrmctx *h, const void *key, size_t klen, const void *value, size_t vlen) {
  return lrmspv2(h, nullptr, key, klen, value, vlen);
}

KELAPI uint32_t lrmvsk2(lrmctx *h, const void *qual, const void *key, size_t klen, const void *value, size_t vlen,
                        uint8_t *type) {
  if (h == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  keyvalue kv;
  uint32_t st = open_key_value(c, qual, key, klen, value, vlen, &kv);
  if (st != 0) return st;
  int32_t idx = -1;
  std::string_view key_given(kv.k.key, kv.k.klen);
  st = kv.k.klen == 0 ? 0 : resolve(c, kv.k.key, kv.k.klen, &idx);
  if (st != 0) {
    report(c, st, {key_given}, nullptr, key_given);
  } else {
    uint8_t t = idx >= 0 ? c->set->keys[idx].type : idx <= -2 ? LRM_T_BOOL : LRM_T_STRING;
    lrmval v{};
    st = convert(c, idx, t, kv.text, kv.len, &v);
    std::string_view value_given(kv.text, kv.len);
    if (st == kOutOfRange)
      report(c, st, {value_given, key_given}, nullptr, key_given);
    else if (st != 0)
      report(c, st, {value_given}, nullptr, key_given);
    if (type != nullptr) *type = t;
  }
  close_key_value(c, &kv);
  return st;
}

KELAPI uint32_t lrmvskv(lrmctx *h, const void *key, size_t klen, const void *value, size_t vlen, uint8_t *type) {
  return lrmvsk2(h, nullptr, key, klen, value, vlen, type);
}

KELAPI uint32_t lrmavla(lrmctx *h, const void *key, size_t klen, const void *const *values, uint32_t count) {
  if (h == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  if (values == nullptr && count > 0) return perr(c, kNullArgument, LEM_ARG_TEXT, "values", LEM_ARG_END);
  begin_call(c);
  uint32_t st = 0;
  for (uint32_t i = 0; i < count && st == 0; i++) {
    if (values[i] == nullptr) {
      st = perr(c, kNullArgument, LEM_ARG_TEXT, "values", LEM_ARG_END);
      break;
    }
    size_t len = 0;
    if (c->unicode) {
      const auto *w = static_cast<const uint16_t *>(values[i]);
      while (w[len] != 0) len++;
    } else {
      len = strlen(static_cast<const char *>(values[i]));
    }
    st = lrmspv(h, key, klen, values[i], len);
  }
  end_call(c, st == 0);
  return st;
}

KELAPI uint32_t lrmavlc(lrmctx *h, const void *qual, const void *key, size_t klen) {
  if (h == nullptr || key == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  lrmentry *e = nullptr;
  uint32_t st = caller_entry(c, qual, key, klen, false, &e);
  if (st == 0 && e != nullptr) drop_values(c, e);
  return st;
}

KELAPI uint32_t lrmavlo(lrmctx *h, const void *qual, const void *key, size_t klen, uint32_t *count) {
  if (h == nullptr || key == nullptr || count == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  lrmentry *e = nullptr;
  uint32_t st = caller_entry(c, qual, key, klen, true, &e);
  if (st == 0) *count = e != nullptr ? e->count - e->base : 0;
  return st;
}

KELAPI uint32_t lrmgbv(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                       uint8_t *out) {
  return get_typed(h, qual, qname, key, klen, occ, out, LRM_T_BOOL, [&](const lrmval &v) { *out = v.boolv; });
}

KELAPI uint32_t lrmgiv(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                       uint32_t *out) {
  return get_typed(h, qual, qname, key, klen, occ, out, LRM_T_INT, [&](const lrmval &v) { *out = v.u32; });
}

KELAPI uint32_t lrmg8v(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                       int64_t *out) {
  return get_typed(h, qual, qname, key, klen, occ, out, LRM_T_INT8, [&](const lrmval &v) { *out = v.i64; });
}

KELAPI uint32_t lrmgonv(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                        uint8_t *out, size_t *outlen) {
  return get_typed(h, qual, qname, key, klen, occ, out, LRM_T_NUMBER, [&](const lrmval &v) {
    memcpy(out, v.num, v.numlen);
    if (outlen != nullptr) *outlen = v.numlen;
  });
}

KELAPI uint32_t lrmgsv(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                       void *buf, size_t cap, size_t *outlen) {
  if (h == nullptr || key == nullptr || buf == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  const lrmval *v;
  const lrmentry *e = nullptr;
  uint32_t st = lookup(c, qual, qname, key, klen, occ, LRM_T_STRING, LRM_T_NAME, &v, &e);
  if (st != 0 || v == nullptr) return st;
  // A value that fills the buffer exactly is copied without a terminator.
  if (!c->unicode) {
    if (v->len > cap) return perr(c, kBufferTooSmall, LEM_ARG_TEXT, e->name, LEM_ARG_END);
    memcpy(buf, v->text, v->len);
    if (v->len < cap) static_cast<char *>(buf)[v->len] = '\0';
    if (outlen != nullptr) *outlen = v->len;
    return 0;
  }
  uint16_t *w = nullptr;
  size_t units = 0;
  st = u8to16(c, v->text, v->len, &w, &units);
  if (st != 0) return st;
  if (units * 2 > cap) {
    hfree(c, w);
    return perr(c, kBufferTooSmall, LEM_ARG_TEXT, e->name, LEM_ARG_END);
  }
  memcpy(buf, w, units * 2 + ((units + 1) * 2 <= cap ? 2 : 0));
  if (outlen != nullptr) *outlen = units;
  hfree(c, w);
  return 0;
}

KELAPI uint32_t lrmgsp(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                       const char **out) {
  if (h == nullptr || key == nullptr || out == nullptr) return kNullArgument;
  const lrmval *v;
  uint32_t st = lookup(rec(h), qual, qname, key, klen, occ, LRM_T_STRING, LRM_T_NAME, &v);
  if (st == 0 && v != nullptr) *out = v->text;
  return st;
}

KELAPI uint32_t lrmdtw(lrmctx *h, lrmoutfn fn, void *arg) {
  if (h == nullptr || fn == nullptr) return kNullArgument;
  dump(rec(h), dumper{fn, arg});
  return 0;
}

KELAPI uint32_t lrmdtf(lrmctx *h, const char *path) {
  if (h == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  if (path == nullptr) return perr(c, kNullArgument, LEM_ARG_TEXT, "path", LEM_ARG_END);
  int32_t err = 0;
  fileout fo{lrm_file::create_file(path, &err)};
  char why[128];
  if (fo.f == nullptr) {
    slcgems(err, why, sizeof why);
    return report(c, kCannotOpen, {path, why}, nullptr, "");
  }
  dump(c, dumper{to_file, &fo});
  err = lrm_file::close_file(fo.f);
  if (err != 0) {
    slcgems(err, why, sizeof why);
    return report(c, kReadError, {path, why}, nullptr, "");
  }
  return 0;
}

}  // extern "C"
