// The value table and what fills and reads it: storage of occurrences, the
// parse actions that map grammar rules to storage, the sources (command
// lines, strings, files with includes, the environment), the getters and
// the dump.
//
// The value table is a list of entries in storage order (dumps keep it)
// with a chained hash index on (qualifier, name). Every block lives in the
// context heap. Values made while a parse runs (the reductions' nodes) live
// in a per-parse fast heap that dies with the parse.
//
// Sections: table, storage, parse actions, token source, sources, getters,
// dump, interface.
#include <csetjmp>
#include <cstring>

#include "lsf.h"
#include "param/lrm_impl.h"
#include "sl.h"
#include "param/file_impl.h"

namespace lrm_internal {

// ------------------------------------------------------------------- table

lrmentry *find_entry(lrmctx_rec *c, const char *qual, size_t quallen, const char *name, size_t namelen) {
  if (c->nbuckets == 0) return nullptr;
  uint32_t hv = name_hash(c, qual, quallen, name, namelen);
  for (lrmentry *e = c->buckets[hv & (c->nbuckets - 1)]; e != nullptr; e = e->hnext) {
    if (e->hash != hv) continue;
    size_t eq = e->qual != nullptr ? e->quallen : 0;
    if (eq != quallen || (eq > 0 && !names_equal(c, e->qual, eq, qual, quallen))) continue;
    if (names_equal(c, e->name, e->namelen, name, namelen)) return e;
  }
  return nullptr;
}

namespace {

bool grow_buckets(lrmctx_rec *c) {
  uint32_t n = c->nbuckets == 0 ? 64 : c->nbuckets * 2;
  auto *b = static_cast<lrmentry **>(hmalloc(c, sizeof(lrmentry *) * n));
  if (b == nullptr) return false;
  memset(b, 0, sizeof(lrmentry *) * n);
  for (lrmentry *e = c->head; e != nullptr; e = e->next) {
    e->hnext = b[e->hash & (n - 1)];
    b[e->hash & (n - 1)] = e;
  }
  hfree(c, c->buckets);
  c->buckets = b;
  c->nbuckets = n;
  return true;
}

lrmentry *make_entry(lrmctx_rec *c, const char *qual, size_t quallen, const char *name, size_t namelen,
                     int32_t keyidx, uint8_t type) {
  if ((c->nentries + 1) * 2 > c->nbuckets && !grow_buckets(c)) return nullptr;
  // One block: the entry, then its name and qualifier.
  auto *e = static_cast<lrmentry *>(hmalloc(c, sizeof(lrmentry) + namelen + quallen + 2));
  if (e == nullptr) return nullptr;
  memset(e, 0, sizeof *e);
  e->name = reinterpret_cast<char *>(e + 1);
  memcpy(e->name, name, namelen);
  e->name[namelen] = '\0';
  if (quallen > 0) {
    e->qual = e->name + namelen + 1;
    memcpy(e->qual, qual, quallen);
    e->qual[quallen] = '\0';
  }
  e->namelen = namelen;
  e->quallen = quallen;
  e->keyidx = keyidx;
  e->type = type;
  e->hash = name_hash(c, qual, quallen, name, namelen);
  e->hnext = c->buckets[e->hash & (c->nbuckets - 1)];
  c->buckets[e->hash & (c->nbuckets - 1)] = e;
  if (c->tail != nullptr)
    c->tail->next = e;
  else
    c->head = e;
  c->tail = e;
  c->nentries++;
  return e;
}

void free_values(lrmctx_rec *c, lrmentry *e) {
  for (lrmval *v = e->first; v != nullptr;) {
    lrmval *n = v->next;
    hfree(c, v->comment);
    hfree(c, v);
    v = n;
  }
  e->first = e->last = nullptr;
  e->count = 0;
}

}  // namespace

void clear_values(lrmctx_rec *c) {
  for (lrmentry *e = c->head; e != nullptr;) {
    lrmentry *n = e->next;
    free_values(c, e);
    hfree(c, e);
    e = n;
  }
  hfree(c, c->buckets);
  c->head = c->tail = nullptr;
  c->buckets = nullptr;
  c->nbuckets = c->nentries = 0;
}

// Records a value that does not convert for its key; a range error names
// the key as well.
uint32_t value_error(lrmctx_rec *c, uint32_t st, const char *text, size_t len, const char *name, size_t namelen) {
  const Shown v = shown(text, len);
  if (st == kOutOfRange) return perr(c, st, LEM_ARG_TEXT, v.text, LEM_ARG_TEXT, shown(name, namelen).text, LEM_ARG_END);
  return perr(c, st, LEM_ARG_TEXT, v.text, LEM_ARG_END);
}

// ----------------------------------------------------------------- storage

uint32_t store(lrmctx_rec *c, const char *qual, size_t quallen, const char *key, size_t klen, const char *text,
               size_t len, const char *comment, bool is_flag) {
  int32_t idx = -1;
  const char *name = key;
  size_t namelen = klen;
  uint8_t type = LRM_T_STRING;
  if (klen > 0) {
    uint32_t st = resolve(c, key, klen, &idx);
    if (st != 0) return perr(c, st, LEM_ARG_TEXT, shown(key, klen).text, LEM_ARG_END);
    if (idx >= 0) {
      name = c->set->keys[idx].name;
      namelen = strlen(name);
      type = c->set->keys[idx].type;
    } else if (idx <= -2) {
      name = kBuiltinNames[-2 - idx];
      namelen = strlen(name);
      type = LRM_T_BOOL;
      if (is_flag) text = "TRUE", len = 4;
    }
  } else {
    idx = -1;
  }
  if (is_flag && type == LRM_T_BOOL) {
    text = "TRUE";
    len = 4;
  }
  lrmval tmp{};
  tmp.type = type;
  uint32_t st = convert(c, idx, type, text, len, &tmp);
  if (st == 0 && type == LRM_T_BOOL && is_flag) tmp.boolv = 1;
  if (st != 0) return value_error(c, st, text, len, name, namelen);
  lrmentry *e = find_entry(c, qual, quallen, name, namelen);
  if (e == nullptr) e = make_entry(c, qual, quallen, name, namelen, idx, type);
  if (e == nullptr) return perr(c, kNoMemory, LEM_ARG_TEXT, "storing a value", LEM_ARG_END);
  // One block: the value record, then its text.
  auto *v = static_cast<lrmval *>(hmalloc(c, sizeof(lrmval) + len + 1));
  if (v == nullptr) return perr(c, kNoMemory, LEM_ARG_TEXT, "storing a value", LEM_ARG_END);
  *v = tmp;
  v->next = nullptr;
  v->len = len;
  v->text = reinterpret_cast<char *>(v + 1);
  memcpy(v->text, text, len);
  v->text[len] = '\0';
  v->comment = nullptr;
  if (comment != nullptr) {
    v->comment = hstrdup(c, comment, strlen(comment));
    if (v->comment == nullptr) {
      hfree(c, v);
      return perr(c, kNoMemory, LEM_ARG_TEXT, "storing a value", LEM_ARG_END);
    }
  }
  if (type == LRM_T_NAME && !(c->set != nullptr && (c->set->flags & LRM_KS_CASE)))
    for (size_t i = 0; i < len; i++) v->text[i] = static_cast<char>(c->upper[static_cast<uint8_t>(v->text[i])]);
  if (idx >= 0 && c->set->keys[idx].single) free_values(c, e);
  if (e->last != nullptr)
    e->last->next = v;
  else
    e->first = v;
  e->last = v;
  e->count++;
  return 0;
}

namespace {

// Splits "q:k" into qualifier and key (the last colon that is neither first
// nor last). Returns false when there is no qualifier.
bool split_qualified(const char *s, size_t n, size_t *colon) {
  for (size_t i = n; i-- > 1;) {
    if (s[i] == ':' && i + 1 < n) {
      *colon = i;
      return true;
    }
  }
  return false;
}

// ---------------------------------------------------------- parse actions
// A value of the grammar: a word, a quoted string or a list, with its
// same-line comment. Nodes live in the per-parse heap.
struct pnode {
  pnode *next;
  pnode *child;
  char *text;
  size_t len;
  char *comment;
  uint8_t islist;
};

// The result of unix_param: the option's key and whether it was a flag.
struct pkey {
  char *name;
  size_t len;
  uint8_t isflag;
};

struct parse_state {
  lrmctx_rec *c;
  uint32_t status;  // first failure of an action
};

void *palloc(lrmctx_rec *c, size_t n) {
  if (alloc_fails(c)) return nullptr;
  return lmmmalloc(c->mctx, c->pheap, n, 0, "lrmpz", __LINE__);
}

char *pdup(lrmctx_rec *c, const char *s, size_t n) {
  char *d = static_cast<char *>(palloc(c, n + 1));
  if (d != nullptr) {
    memcpy(d, s, n);
    d[n] = '\0';
  }
  return d;
}

uint32_t store_node(lrmctx_rec *c, const char *key, size_t klen, const pnode *n) {
  for (; n != nullptr; n = n->next) {
    if (n->islist) {
      uint32_t st = store_node(c, key, klen, n->child);
      if (st != 0) return st;
      continue;
    }
    size_t colon = 0;
    uint32_t st;
    if (klen > 0 && split_qualified(key, klen, &colon))
      st = store(c, key, colon, key + colon + 1, klen - colon - 1, n->text, n->len, n->comment, false);
    else
      st = store(c, nullptr, 0, key, klen, n->text, n->len, n->comment, false);
    if (st != 0) return st;
  }
  return 0;
}

int32_t action(void *user, int32_t rule, void *const *rhs, int32_t n, void **result) {
  auto *ps = static_cast<parse_state *>(user);
  lrmctx_rec *c = ps->c;
  auto tok = [&](int i) { return static_cast<lrmpztok *>(rhs[i]); };
  auto node = [&](int i) { return static_cast<pnode *>(rhs[i]); };
  uint32_t st = 0;
  // Only the settings' own nonterminals have no value; after an error
  // recovery any other may be gone, and such a rule stores nothing.
  for (int32_t i = 0; i < n; i++)
    if (rhs[i] == nullptr && !(rule == 1 || rule == 4 || rule == 6 || rule == 8)) return kSyntaxError;
  switch (rule) {
    case 2:  // positional_list: list_of_vals
      st = store_node(c, "", 0, node(0));
      break;
    case 7: {  // list_of_params: unix_param list_of_vals
      auto *k = static_cast<pkey *>(rhs[0]);
      st = k->isflag ? store_node(c, "", 0, node(1)) : store_node(c, k->name, k->len, node(1));
      break;
    }
    case 9: {  // key_spec: ID_STRING = list_of_vals
      lrmpztok *t = tok(0);
      st = store_node(c, t->text, strlen(t->text), node(2));
      break;
    }
    case 11:  // unix_param: - FLAG_ID_STRING
    case 12: {  // unix_param: - KEY_ID_STRING ending
      lrmpztok *t = tok(1);
      auto *k = static_cast<pkey *>(palloc(c, sizeof(pkey)));
      if (k == nullptr) {
        st = perr(c, kNoMemory, LEM_ARG_TEXT, "parsing", LEM_ARG_END);
        break;
      }
      k->len = strlen(t->text);
      k->name = pdup(c, t->text, k->len);
      k->isflag = rule == 11;
      if (k->name == nullptr) {
        st = perr(c, kNoMemory, LEM_ARG_TEXT, "parsing", LEM_ARG_END);
        break;
      }
      if (rule == 11) {
        size_t colon = 0;
        if (split_qualified(k->name, k->len, &colon))
          st = store(c, k->name, colon, k->name + colon + 1, k->len - colon - 1, "TRUE", 4, nullptr, true);
        else
          st = store(c, nullptr, 0, k->name, k->len, "TRUE", 4, nullptr, true);
      } else {
        st = store_node(c, k->name, k->len, node(2));
      }
      *result = k;
      break;
    }
    case 13:  // ending: value
      *result = rhs[0];
      break;
    case 14:  // ending: = value
      *result = rhs[1];
      break;
    case 15:  // list_of_vals: value list_of_vals
      node(0)->next = node(1);
      *result = rhs[0];
      break;
    case 16:  // list_of_vals: value
    case 18:  // value: val2
      *result = rhs[0];
      break;
    case 17: {  // value: val2 COMMENT
      lrmpztok *t = tok(1);
      node(0)->comment = pdup(c, t->text, strlen(t->text));
      if (node(0)->comment == nullptr) st = perr(c, kNoMemory, LEM_ARG_TEXT, "parsing", LEM_ARG_END);
      *result = rhs[0];
      break;
    }
    case 19:  // val2: STRING
    case 20:  // val2: QUOTED_STRING
    case 21: {  // val2: ( list_of_vals )
      auto *p = static_cast<pnode *>(palloc(c, sizeof(pnode)));
      if (p == nullptr) {
        st = perr(c, kNoMemory, LEM_ARG_TEXT, "parsing", LEM_ARG_END);
        break;
      }
      memset(p, 0, sizeof *p);
      if (rule == 21) {
        p->islist = 1;
        p->child = node(1);
      } else {
        p->len = strlen(tok(0)->text);
        p->text = pdup(c, tok(0)->text, p->len);
        if (p->text == nullptr) st = perr(c, kNoMemory, LEM_ARG_TEXT, "parsing", LEM_ARG_END);
      }
      *result = p;
      break;
    }
    default:
      break;
  }
  if (st != 0 && ps->status == 0) ps->status = st;
  return static_cast<int32_t>(st);
}

void syntax_error(void *user, int32_t status, const lrmpztok *tok) {
  auto *ps = static_cast<parse_state *>(user);
  lrmctx_rec *c = ps->c;
  char shown[80];
  int32_t line = c->src.line;
  if (tok == nullptr || tok->code == LRM_TK_END) {
    lsfp(nullptr, shown, sizeof shown, "-end of file-");
  } else {
    lsfp(nullptr, shown, sizeof shown, "\"%.60s\"", tok->text != nullptr ? tok->text : "");
    line = tok->aux32;
  }
  perr(c, static_cast<uint32_t>(status), LEM_ARG_TEXT, shown, LEM_ARG_TEXT, c->src.name, LEM_ARG_NUM,
       static_cast<int64_t>(line), LEM_ARG_END);
  if (ps->status == 0) ps->status = static_cast<uint32_t>(status);
}

// ------------------------------------------------------------ token source

lrmpztok *token_source(void *src, int32_t op, lrmpztok *tok) {
  auto *ps = static_cast<parse_state *>(src);
  lrmctx_rec *c = ps->c;
  lrmctx *h = reinterpret_cast<lrmctx *>(c);
  switch (op) {
    case 1:
      return lrmplex(h, 1, nullptr);
    case 4:
      return lrmplex(h, 4, tok);
    case 8: {
      auto *t = static_cast<lrmpztok *>(hmalloc(c, sizeof(lrmpztok)));
      if (t == nullptr) return nullptr;
      *t = *tok;
      t->refs = 0;
      t->text = hstrdup(c, tok->text != nullptr ? tok->text : "", tok->text != nullptr ? strlen(tok->text) : 0);
      if (t->text == nullptr) {
        hfree(c, t);
        return nullptr;
      }
      c->live_tokens++;
      return t;
    }
    default:
      return nullptr;
  }
}

}  // namespace

// ------------------------------------------------------------------ sources

uint32_t parse_text(lrmctx_rec *c, const char *text, size_t len, uint8_t kind, const char *name, int32_t line) {
  // Nested inputs (includes) keep the outer scanner state aside.
  lrmsource saved = c->src;
  lrmpztok *saved_push[kPushMax];
  int32_t saved_npush = c->npush;
  memcpy(saved_push, c->push, sizeof saved_push);
  uint8_t saved_depth = c->depth, saved_cf = c->comment_follows, saved_dash = c->dash_seen;
  lmmheap *saved_pheap = c->pheap;

  c->src = lrmsource{text, len, 0, line, kind, name};
  c->npush = 0;
  c->depth = c->comment_follows = c->dash_seen = 0;
  c->status = 0;
  c->pheap = nullptr;
  uint32_t result = 0;
  if (lmmhpinit(c->mctx, &c->pheap, c->heap, LMM_HP_NOLOCK, nullptr, "lrmparse", __LINE__, lmmgetfsmfp()) != 0) {
    c->pheap = nullptr;
    result = perr(c, kNoMemory, LEM_ARG_TEXT, "starting a parse", LEM_ARG_END);
  } else {
    parse_state ps{c, 0};
    lrmpzcb cb{};
    cb.token = token_source;
    cb.action = action;
    cb.error = syntax_error;
    cb.user = &ps;
    cb.ctx = c->core;
    // The scanner raises its failures; catch them here so the caller gets a
    // status. Nothing below owns an object with a destructor.
    lemfctx *fc = lemgfc(c->core->lemctx);
    lemframe fr;
    if (fc == nullptr) {
      result = perr(c, kNoMemory, LEM_ARG_TEXT, "starting a parse", LEM_ARG_END);
    } else {
      lemptfs(fc, &fr);
      if (setjmp(*static_cast<jmp_buf *>(LEM_FRAME_JB(&fr))) == 0) {
        int8_t rc = lrmpzpparse(&ps, &cb, 0, 0);
        lemptfr(fc, &fr);
        // A parse that stops with no status of its own could not get memory
        // for the driver's state or stack.
        if (rc != 0)
          result = ps.status != 0   ? ps.status
                   : c->status != 0 ? c->status
                                    : perr(c, kNoMemory, LEM_ARG_TEXT, "parsing", LEM_ARG_END);
      } else {
        result = c->status != 0 ? c->status : kInternalError;
      }
    }
    for (int32_t k = 0; k < c->npush; k++) lrmplex(reinterpret_cast<lrmctx *>(c), 4, c->push[k]);
    lmmhpfree(c->mctx, c->pheap, 0);
  }
  c->src = saved;
  c->npush = saved_npush;
  memcpy(c->push, saved_push, sizeof saved_push);
  c->depth = saved_depth;
  c->comment_follows = saved_cf;
  c->dash_seen = saved_dash;
  c->pheap = saved_pheap;
  c->status = result;
  return result;
}

namespace {

constexpr int32_t kMaxIncludes = 16;

void *file_alloc(void *arg, size_t n) { return hmalloc(static_cast<lrmctx_rec *>(arg), n); }

// An include line: first non-blank "@name" or "include name".
bool include_line(const lrmctx_rec *c, const char *p, const char *end, const char **name, size_t *namelen) {
  while (p < end && *p != '\n' && c->blank[static_cast<uint8_t>(*p)]) p++;
  if (p < end && *p == '@') {
    p++;
  } else if (end - p > 8 && memcmp(p, "include", 7) == 0 && (p[7] == ' ' || p[7] == '\t')) {
    p += 8;
  } else {
    return false;
  }
  while (p < end && (*p == ' ' || *p == '\t')) p++;
  const char *q = p;
  while (q < end && *q != '\n') q++;
  while (q > p && c->blank[static_cast<uint8_t>(q[-1])]) q--;
  if (q - p >= 2 && (*p == '"' || *p == '\'') && q[-1] == *p) {
    p++;
    q--;
  }
  *name = p;
  *namelen = static_cast<size_t>(q - p);
  return q > p;
}

uint32_t read_param_file(lrmctx_rec *c, const char *path, int32_t depth);

// Parses a file's text: the pieces between include lines one by one, each
// included file in its place.
uint32_t parse_file_text(lrmctx_rec *c, const char *path, const char *text, size_t len, int32_t depth) {
  const char *seg = text, *p = text, *end = text + len;
  int32_t line = 1, segline = 1;
  bool continued = false;
  while (p < end) {
    const char *eol = static_cast<const char *>(memchr(p, '\n', static_cast<size_t>(end - p)));
    const char *next = eol != nullptr ? eol + 1 : end;
    const char *name;
    size_t namelen;
    if (!continued && include_line(c, p, next, &name, &namelen)) {
      uint32_t st = parse_text(c, seg, static_cast<size_t>(p - seg), 2, path, segline);
      if (st != 0) return st;
      // Relative names are taken from the including file's folder.
      const char *slash = strrchr(path, '/');
      size_t dirlen = name[0] != '/' && slash != nullptr ? static_cast<size_t>(slash - path + 1) : 0;
      char *full = static_cast<char *>(hmalloc(c, dirlen + namelen + 1));
      if (full == nullptr) return perr(c, kNoMemory, LEM_ARG_TEXT, "reading a file", LEM_ARG_END);
      memcpy(full, path, dirlen);
      memcpy(full + dirlen, name, namelen);
      full[dirlen + namelen] = '\0';
      st = read_param_file(c, full, depth + 1);
      hfree(c, full);
      if (st != 0) return st;
      seg = next;
      segline = line + 1;
    }
    // A line ending in a backslash continues: the next line is no include.
    const char *q = eol != nullptr ? eol : end;
    while (q > p && (q[-1] == '\r' || q[-1] == ' ' || q[-1] == '\t')) q--;
    continued = q > p && q[-1] == '\\';
    p = next;
    line++;
  }
  return parse_text(c, seg, static_cast<size_t>(end - seg), 2, path, segline);
}

uint32_t read_param_file(lrmctx_rec *c, const char *path, int32_t depth) {
  if (depth > kMaxIncludes) return perr(c, kNestingTooDeep, LEM_ARG_TEXT, path, LEM_ARG_END);
  char *data = nullptr;
  size_t len = 0;
  int32_t err = 0;
  int32_t rc = lrm_file::read_file(path, file_alloc, c, &data, &len, &err);
  if (rc != 0) {
    char why[128];
    if (rc == 3) return perr(c, kNoMemory, LEM_ARG_TEXT, "reading a file", LEM_ARG_END);
    slcgems(err, why, sizeof why);
    return perr(c, rc == 1 ? kCannotOpen : kReadError, LEM_ARG_TEXT, path, LEM_ARG_TEXT, why, LEM_ARG_END);
  }
  char *name = hstrdup(c, path, strlen(path));
  uint32_t st = name == nullptr ? perr(c, kNoMemory, LEM_ARG_TEXT, "reading a file", LEM_ARG_END)
                                : parse_file_text(c, name, data, len, depth);
  hfree(c, name);
  hfree(c, data);
  return st;
}

// ----------------------------------------------------------------- getters

struct keyarg {
  const char *qual;
  size_t quallen;
  const char *key;
  size_t klen;
  char *qtmp, *ktmp;  // Unicode conversions to free
};

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
        hfree(c, k->ktmp);
        return st;
      }
      k->qual = k->qtmp;
    }
  } else {
    k->key = static_cast<const char *>(key);
    k->klen = klen;
    if (qual != nullptr) {
      k->qual = static_cast<const char *>(qual);
      k->quallen = strlen(k->qual);
    }
  }
  return 0;
}

void put_key(lrmctx_rec *c, keyarg *k) {
  hfree(c, k->ktmp);
  hfree(c, k->qtmp);
}

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

// Finds occurrence `occ` of the key, qualified first and then unqualified.
// 0 with *v null when there is none; 202 when the key's type is not one of
// the wanted types.
uint32_t lookup(lrmctx_rec *c, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                uint8_t want1, uint8_t want2, const lrmval **v) {
  *v = nullptr;
  keyarg k;
  uint32_t st = get_key(c, qual, key, klen, &k);
  if (st != 0) return st;
  const char *name = k.key;
  size_t namelen = k.klen;
  int32_t idx = -1;
  if (namelen > 0 && resolve(c, k.key, k.klen, &idx) == 0) {
    if (idx >= 0) {
      name = c->set->keys[idx].name;
      namelen = strlen(name);
      uint8_t t = c->set->keys[idx].type;
      if (t != want1 && t != want2) {
        put_key(c, &k);
        return perr(c, kWrongType, LEM_ARG_TEXT, name, LEM_ARG_END);
      }
    } else if (idx <= -2) {
      name = kBuiltinNames[-2 - idx];
      namelen = strlen(name);
    }
  }
  lrmentry *e = nullptr;
  if (k.quallen > 0) e = find_entry(c, k.qual, k.quallen, name, namelen);
  if (e == nullptr) e = find_entry(c, nullptr, 0, name, namelen);
  put_key(c, &k);
  if (e == nullptr) return 0;
  if (e->type != want1 && e->type != want2) return perr(c, kWrongType, LEM_ARG_TEXT, e->name, LEM_ARG_END);
  const lrmval *p = e->first;
  for (uint32_t i = 0; p != nullptr && i < occ; i++) p = p->next;
  if (p == nullptr) return 0;
  copy_qname(c, qname, e);
  *v = p;
  return 0;
}

// --------------------------------------------------------------------- dump

bool needs_quotes(const char *s, size_t n) {
  if (n == 0) return true;
  if (s[0] == '-') return true;
  for (size_t i = 0; i < n; i++) {
    unsigned char ch = static_cast<unsigned char>(s[i]);
    if (ch <= ' ' || ch == '#' || ch == '(' || ch == ')' || ch == '"' || ch == '\'' || ch == '=' || ch == ',' ||
        ch == '\\' || ch == 0x7F)
      return true;
  }
  return false;
}

struct dumper {
  lrmoutfn fn;
  void *arg;
};

void put(const dumper &d, const char *s, size_t n) { d.fn(d.arg, s, n); }
void puts_(const dumper &d, const char *s) { d.fn(d.arg, s, strlen(s)); }

void put_value(const dumper &d, const char *s, size_t n) {
  if (!needs_quotes(s, n)) {
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

void dump(lrmctx_rec *c, const dumper &d) {
  // Positional values first: they must come before any setting.
  for (int pass = 0; pass < 2; pass++) {
    for (lrmentry *e = c->head; e != nullptr; e = e->next) {
      bool positional = e->namelen == 0 && e->qual == nullptr;
      if (positional != (pass == 0)) continue;
      for (lrmval *v = e->first; v != nullptr; v = v->next) {
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
          case LRM_T_INT:
            lsfp(nullptr, num, sizeof num, "%u", v->u32);
            puts_(d, num);
            break;
          case LRM_T_INT8:
            lsfp(nullptr, num, sizeof num, "%lld", static_cast<long long>(v->i64));
            puts_(d, num);
            break;
          default:
            put_value(d, v->text, v->len);
            break;
        }
        if (v->comment != nullptr) {
          put(d, " #", 2);
          puts_(d, v->comment);
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

}  // namespace

// The typed getters share the checks and the lookup; each stores its field.
template <class Store>
uint32_t get_typed(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                   const void *out, uint32_t type, Store store) {
  if (h == nullptr || key == nullptr || out == nullptr) return kNullArgument;
  const lrmval *v;
  uint32_t st = lookup(rec(h), qual, qname, key, klen, occ, type, type, &v);
  if (st == 0 && v != nullptr) store(*v);
  return st;
}

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

// The arguments of a call that takes a key and a value, as UTF-8 text.
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

}  // namespace lrm_internal

using namespace lrm_internal;

extern "C" {

KELAPI uint32_t lrmspv2(lrmctx *h, const void *qual, const void *key, size_t klen, const void *value, size_t vlen) {
  if (h == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  keyvalue kv;
  uint32_t st = open_key_value(c, qual, key, klen, value, vlen, &kv);
  if (st != 0) return st;
  st = store(c, kv.k.qual, kv.k.quallen, kv.k.key, kv.k.klen, kv.text, kv.len, nullptr, false);
  close_key_value(c, &kv);
  return st;
}

KELAPI uint32_t lrmspv(lrmctx *h, const void *key, size_t klen, const void *value, size_t vlen) {
  return lrmspv2(h, nullptr, key, klen, value, vlen);
}

KELAPI uint32_t lrmvsk2(lrmctx *h, const void *qual, const void *key, size_t klen, const void *value, size_t vlen,
                        uint8_t *type) {
  (void)qual;
  if (h == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  keyvalue kv;
  uint32_t st = open_key_value(c, nullptr, key, klen, value, vlen, &kv);
  if (st != 0) return st;
  int32_t idx = -1;
  st = resolve(c, kv.k.key, kv.k.klen, &idx);
  if (st != 0) {
    perr(c, st, LEM_ARG_TEXT, shown(kv.k.key, kv.k.klen).text, LEM_ARG_END);
  } else {
    uint8_t t = idx >= 0 ? c->set->keys[idx].type : idx <= -2 ? LRM_T_BOOL : LRM_T_STRING;
    lrmval v{};
    st = convert(c, idx, t, kv.text, kv.len, &v);
    if (st != 0) value_error(c, st, kv.text, kv.len, kv.k.key, kv.k.klen);
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
  if (values == nullptr && count > 0) return perr(rec(h), kNullArgument, LEM_ARG_TEXT, "values", LEM_ARG_END);
  for (uint32_t i = 0; i < count; i++) {
    size_t len = 0;
    if (rec(h)->unicode) {
      const auto *w = static_cast<const uint16_t *>(values[i]);
      while (w[len] != 0) len++;
    } else {
      len = strlen(static_cast<const char *>(values[i]));
    }
    uint32_t st = lrmspv(h, key, klen, values[i], len);
    if (st != 0) return st;
  }
  return 0;
}

KELAPI uint32_t lrmavlc(lrmctx *h, const void *qual, const void *key, size_t klen) {
  if (h == nullptr || key == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  keyarg k;
  uint32_t st = get_key(c, qual, key, klen, &k);
  if (st != 0) return st;
  const char *name = k.key;
  size_t namelen = k.klen;
  int32_t idx = -1;
  if (namelen > 0 && resolve(c, k.key, k.klen, &idx) == 0 && idx >= 0) {
    name = c->set->keys[idx].name;
    namelen = strlen(name);
  }
  lrmentry *e = find_entry(c, k.qual, k.quallen, name, namelen);
  if (e != nullptr) free_values(c, e);
  put_key(c, &k);
  return 0;
}

KELAPI uint32_t lrmavlo(lrmctx *h, const void *qual, const void *key, size_t klen, uint32_t *count) {
  if (h == nullptr || key == nullptr || count == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  keyarg k;
  uint32_t st = get_key(c, qual, key, klen, &k);
  if (st != 0) return st;
  const char *name = k.key;
  size_t namelen = k.klen;
  int32_t idx = -1;
  if (namelen > 0 && resolve(c, k.key, k.klen, &idx) == 0) {
    if (idx >= 0) {
      name = c->set->keys[idx].name;
      namelen = strlen(name);
    } else if (idx <= -2) {
      name = kBuiltinNames[-2 - idx];
      namelen = strlen(name);
    }
  }
  lrmentry *e = find_entry(c, k.qual, k.quallen, name, namelen);
  *count = e != nullptr ? e->count : 0;
  put_key(c, &k);
  return 0;
}

KELAPI uint32_t lrmpaa(lrmctx *h, int32_t argc, const char *const *argv) {
  if (h == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  if (argc < 0 || (argv == nullptr && argc > 0))
    return perr(c, kNullArgument, LEM_ARG_TEXT, "argv", LEM_ARG_END);
  size_t total = 1;
  for (int32_t i = 0; i < argc; i++) {
    if (argv[i] == nullptr) return perr(c, kNullArgument, LEM_ARG_TEXT, "argv", LEM_ARG_END);
    total += strlen(argv[i]) + 1;
  }
  char *line = static_cast<char *>(hmalloc(c, total));
  if (line == nullptr) return perr(c, kNoMemory, LEM_ARG_TEXT, "joining arguments", LEM_ARG_END);
  size_t n = 0;
  for (int32_t i = 0; i < argc; i++) {
    size_t l = strlen(argv[i]);
    memcpy(line + n, argv[i], l);
    n += l;
    line[n++] = ' ';
  }
  line[n] = '\0';
  uint32_t st = parse_text(c, line, n, 1, "command line", 1);
  hfree(c, line);
  return st;
}

KELAPI uint32_t lrmpas(lrmctx *h, const char *text, size_t len) {
  if (h == nullptr) return kNullArgument;
  if (text == nullptr && len > 0) return perr(rec(h), kNullArgument, LEM_ARG_TEXT, "text", LEM_ARG_END);
  return parse_text(rec(h), text != nullptr ? text : "", len, 1, "command line", 1);
}

KELAPI uint32_t lrmpst(lrmctx *h, const char *text, size_t len) {
  if (h == nullptr) return kNullArgument;
  if (text == nullptr && len > 0) return perr(rec(h), kNullArgument, LEM_ARG_TEXT, "text", LEM_ARG_END);
  return parse_text(rec(h), text != nullptr ? text : "", len, 3, "string", 1);
}

KELAPI uint32_t lrmpfi(lrmctx *h, const char *path) {
  if (h == nullptr) return kNullArgument;
  if (path == nullptr) return perr(rec(h), kNullArgument, LEM_ARG_TEXT, "path", LEM_ARG_END);
  return read_param_file(rec(h), path, 0);
}

KELAPI uint32_t lrmpev(lrmctx *h, const char *name) {
  if (h == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  if (name == nullptr) return perr(c, kNullArgument, LEM_ARG_TEXT, "name", LEM_ARG_END);
  int32_t n = slgetenv(name, nullptr, 0);
  if (n < 0) return 0;
  char *buf = static_cast<char *>(hmalloc(c, static_cast<size_t>(n) + 1));
  if (buf == nullptr) return perr(c, kNoMemory, LEM_ARG_TEXT, "reading the environment", LEM_ARG_END);
  slgetenv(name, buf, static_cast<size_t>(n) + 1);
  uint32_t st = parse_text(c, buf, static_cast<size_t>(n), 1, name, 1);
  hfree(c, buf);
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
  uint32_t st = lookup(c, qual, qname, key, klen, occ, LRM_T_STRING, LRM_T_NAME, &v);
  if (st != 0 || v == nullptr) return st;
  if (!c->unicode) {
    if (v->len + 1 > cap) return perr(c, kBufferTooSmall, LEM_ARG_TEXT, v->text, LEM_ARG_END);
    memcpy(buf, v->text, v->len + 1);
    if (outlen != nullptr) *outlen = v->len;
    return 0;
  }
  uint16_t *w = nullptr;
  size_t units = 0;
  st = u8to16(c, v->text, v->len, &w, &units);
  if (st != 0) return st;
  if ((units + 1) * 2 > cap) {
    hfree(c, w);
    return perr(c, kBufferTooSmall, LEM_ARG_TEXT, v->text, LEM_ARG_END);
  }
  memcpy(buf, w, (units + 1) * 2);
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
    return perr(c, kCannotOpen, LEM_ARG_TEXT, path, LEM_ARG_TEXT, why, LEM_ARG_END);
  }
  dump(c, dumper{to_file, &fo});
  err = lrm_file::close_file(fo.f);
  if (err != 0) {
    slcgems(err, why, sizeof why);
    return perr(c, kReadError, LEM_ARG_TEXT, path, LEM_ARG_TEXT, why, LEM_ARG_END);
  }
  return 0;
}

}  // extern "C"
