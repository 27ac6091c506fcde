// What feeds the value table from text: the parse actions that map grammar
// rules to storage, the token source the driver pulls from, and the sources
// themselves (command lines, strings, files with their includes, the
// environment).
//
// A source is parsed in pieces: the scanner ends a piece at an include line
// of a file, the included file is read in its place, and the next piece
// starts after the line. Every public call runs as one journal call
// (values.cpp), so a failure anywhere, in an included file too, leaves the
// values as they were before the call.
//
// Sections: parse actions, token source, one parse, sources, files and
// includes, interface.
#include <csetjmp>
#include <cstring>

#include "lsf.h"
#include "param/file_impl.h"
#include "param/lrm_impl.h"
#include "sl.h"

namespace lrm_internal {

namespace {

// ---------------------------------------------------------- parse actions
// A value of the grammar: a word, a quoted string or a list, with its
// same-line comment and its place in the source. Nodes live in the
// per-parse heap.
struct pnode {
  pnode *next;
  pnode *child;
  const char *text;  // in the source, or a copy in the per-parse heap
  size_t len;
  char *comment;
  const char *at;
  uint8_t islist;
};

// The result of unix_param: the option's key and whether it was a flag.
struct pkey {
  char *name;
  size_t len;
  const char *at;
  uint8_t isflag;
};

struct parse_state {
  lrmctx_rec *c;
  uint32_t status;  // first failure of an action
};

void *palloc(lrmctx_rec *c, size_t n) {
  if (alloc_refused()) return nullptr;
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

const char *place(const lrmpztok *t) { return static_cast<const char *>(t->aux1); }
size_t length(const lrmpztok *t) { return reinterpret_cast<uintptr_t>(t->aux2); }

// Stores the values of a setting of key k under qualifier q, lists flattened.
uint32_t store_values(lrmctx_rec *c, const char *qual, size_t quallen, const char *key, size_t klen,
                      const char *keyat, const pnode *n) {
  for (; n != nullptr; n = n->next) {
    uint32_t st = n->islist ? store_values(c, qual, quallen, key, klen, keyat, n->child)
                            : store(c, qual, quallen, key, klen, n->text, n->len, n->comment, kStoreValue, n->at, keyat);
    if (st != 0) return st;
  }
  return 0;
}

// Stores the values of a setting of `key` ("q:k" names k under q).
uint32_t store_node(lrmctx_rec *c, const char *key, size_t klen, const char *keyat, const pnode *n) {
  size_t colon = 0;
  // The scanner split the key it met there already.
  bool split = false;
  if (keyat != nullptr && c->hints[0].at == keyat)
    colon = c->hints[0].colon, split = colon != 0;
  else if (keyat != nullptr && c->hints[1].at == keyat)
    colon = c->hints[1].colon, split = colon != 0;
  else
    split = klen > 0 && split_qualified(key, klen, &colon);
  if (!split) return store_values(c, nullptr, 0, key, klen, keyat, n);
  return store_values(c, key, colon, key + colon + 1, klen - colon - 1, keyat, n);
}

uint32_t no_memory(lrmctx_rec *c, const char *at) { return report(c, kNoMemory, {"parsing"}, at, last_key(c)); }

int32_t action(void *user, int32_t rule, void *const *rhs, int32_t n, void **result) {
  auto *ps = static_cast<parse_state *>(user);
  lrmctx_rec *c = ps->c;
  auto tok = [&](int i) { return static_cast<lrmpztok *>(rhs[i]); };
  auto node = [&](int i) { return static_cast<pnode *>(rhs[i]); };
  uint32_t st = 0;
  // Only the settings' own nonterminals have no value; after an error
  // recovery any other may be gone, and such a rule stores nothing.
  if (rule == 1 || rule == 4 || rule == 6 || rule == 8) return 0;
  for (int32_t i = 0; i < n; i++)
    if (rhs[i] == nullptr) return kSyntaxError;
  switch (rule) {
    case 2:  // positional_list: list_of_vals
      st = store_node(c, "", 0, nullptr, node(0));
      break;
    case 7: {  // list_of_params: unix_param list_of_vals
      auto *k = static_cast<pkey *>(rhs[0]);
      st = k->isflag ? store_node(c, "", 0, nullptr, node(1)) : store_node(c, k->name, k->len, k->at, node(1));
      break;
    }
    case 9: {  // key_spec: ID_STRING = list_of_vals
      lrmpztok *t = tok(0);
      st = store_node(c, t->text, length(t), place(t), node(2));
      break;
    }
    case 11:    // unix_param: - FLAG_ID_STRING
    case 12: {  // unix_param: - KEY_ID_STRING ending
      lrmpztok *t = tok(1);
      auto *k = static_cast<pkey *>(palloc(c, sizeof(pkey)));
      size_t len = length(t);
      char *name = k != nullptr ? pdup(c, t->text, len) : nullptr;
      if (name == nullptr) {
        st = no_memory(c, place(t));
        break;
      }
      *k = pkey{name, len, place(t), static_cast<uint8_t>(rule == 11)};
      if (rule == 11) {
        size_t colon = 0;
        if (split_qualified(name, len, &colon))
          st = store(c, name, colon, name + colon + 1, len - colon - 1, "TRUE", 4, nullptr, kStoreFlag, k->at, k->at);
        else
          st = store(c, nullptr, 0, name, len, "TRUE", 4, nullptr, kStoreFlag, k->at, k->at);
      } else {
        st = store_node(c, name, len, k->at, node(2));
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
      node(0)->comment = pdup(c, t->text, length(t));
      if (node(0)->comment == nullptr) st = no_memory(c, place(t));
      *result = rhs[0];
      break;
    }
    case 19:    // val2: STRING
    case 20:    // val2: QUOTED_STRING
    case 21: {  // val2: ( list_of_vals )
      auto *p = static_cast<pnode *>(palloc(c, sizeof(pnode)));
      if (p == nullptr) {
        st = no_memory(c, place(tok(0)));
        break;
      }
      memset(p, 0, sizeof *p);
      p->at = place(tok(0));
      if (rule == 21) {
        p->islist = 1;
        p->child = node(1);
      } else {
        const lrmpztok *t = tok(0);
        p->len = length(t);
        p->text = t->aux3 != nullptr ? static_cast<const char *>(t->aux3) : pdup(c, t->text, p->len);
        if (p->text == nullptr) st = no_memory(c, p->at);
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
  char what[80];
  const char *at = c->src.buf + c->src.pos;
  if (tok == nullptr || tok->code == LRM_TK_END) {
    lsfp(nullptr, what, sizeof what, "-end of file-");
    if (tok != nullptr) at = place(tok);
  } else {
    lsfp(nullptr, what, sizeof what, "\"%.60s\"", tok->text != nullptr ? tok->text : "");
    at = place(tok);
  }
  // A key that cannot stand where it is belongs to no setting yet: the
  // setting is the one before it.
  const bool at_key = tok != nullptr && (tok->code == LRM_TK_ID || tok->code == LRM_TK_KEY_ID ||
                                         tok->code == LRM_TK_FLAG_ID);
  report(c, static_cast<uint32_t>(status), {what}, at, at_key ? previous_key(c) : last_key(c));
  if (ps->status == 0) ps->status = static_cast<uint32_t>(status);
}

// ------------------------------------------------------------ token source

lrmpztok *token_source(void *src, int32_t op, lrmpztok *tok) {
  auto *ps = static_cast<parse_state *>(src);
  lrmctx_rec *c = ps->c;
  lrmctx *h = reinterpret_cast<lrmctx *>(c);
  switch (op) {
    case 1:
      return c->npush > 0 ? lrmplex(h, 1, nullptr) : scan(c);
    case 4:
      free_token(c, tok);
      return nullptr;
    case 8:
      return copy_token(c, tok);
    default:
      return nullptr;
  }
}

// ------------------------------------------------------ simple settings
// Most settings are "key = value" or "key = value value ...", words or
// quoted strings, one after the other. The driver would shift the key, the
// '=' and each value, reduce them through val2, value and list_of_vals to a
// key_spec and store the values there, having read the token after them; a
// key_spec followed by another key or by the end leaves nothing else
// behind (list_of_params only strings key_specs together). So as long as
// the input goes on like that, the values are stored here in the same
// order, at the same point of the scanning, with the same statuses, and the
// first piece of input of any other shape, with the tokens read ahead of it,
// is handed back to the driver, which then parses the rest as the same
// language: a rest that starts with a key cannot start with positional
// values. Only a piece's leading run of such settings is taken here, and
// at most kPushMax - 3 values of one key (the tokens held must fit the
// push-back stack).

lrmpztok *hold(lrmctx_rec *c) {
  lrmpztok *t = c->npush > 0 ? c->push[--c->npush] : scan(c);
  c->held[c->nheld++] = t;
  return t;
}

void drop_held(lrmctx_rec *c) {
  while (c->nheld > 0) free_token(c, c->held[--c->nheld]);
}

// Stores the leading simple settings of the piece. 0 with the tokens read
// past them pushed back, or a storage status; *done when the piece ended.
// The tokens it holds are in c->held, for the parse to free on any exit.
uint32_t quick_settings(lrmctx_rec *c, bool *done) {
  *done = false;
  lrmpztok *key = hold(c);
  for (;;) {
    if (key->code == LRM_TK_END) {
      *done = true;
      drop_held(c);
      return 0;
    }
    if (key->code != LRM_TK_ID || hold(c)->code != LRM_TK_EQUAL) break;
    lrmpztok *next = hold(c);
    while ((next->code == LRM_TK_STRING || next->code == LRM_TK_QUOTED) && c->nheld < kPushMax) next = hold(c);
    // Held: the key, '=', the values, and the token after them.
    if (c->nheld < 4 || (next->code != LRM_TK_ID && next->code != LRM_TK_END)) break;
    size_t colon = 0;
    const char *name = key->text, *qual = nullptr;
    size_t namelen = length(key), quallen = 0;
    bool split;
    if (c->hints[0].at == place(key))
      split = (colon = c->hints[0].colon) != 0;
    else if (c->hints[1].at == place(key))
      split = (colon = c->hints[1].colon) != 0;
    else
      split = split_qualified(name, namelen, &colon);
    if (split) {
      qual = name;
      quallen = colon;
      name += colon + 1;
      namelen -= colon + 1;
    }
    for (int32_t i = 2; i < c->nheld - 1; i++) {
      const lrmpztok *v = c->held[i];
      const char *text = v->aux3 != nullptr ? static_cast<const char *>(v->aux3) : v->text;
      uint32_t st = store(c, qual, quallen, name, namelen, text, length(v), nullptr, kStoreValue, place(v), place(key));
      if (st != 0) return st;
    }
    // The token after the values starts the next round.
    --c->nheld;
    drop_held(c);
    c->held[c->nheld++] = next;
    key = next;
  }
  // Not a simple setting: the driver reads the held tokens again, in order.
  while (c->nheld > 0) c->push[c->npush++] = c->held[--c->nheld];
  return 0;
}

// -------------------------------------------------------------- one parse

// Parses the current source from where the scanner stands up to its end or
// an include line.
uint32_t parse_piece(lrmctx_rec *c) {
  c->status = 0;
  c->depth = c->comment_follows = c->dash_seen = 0;
  c->pheap = nullptr;
  if (lmmhpinit(c->mctx, &c->pheap, c->heap, LMM_HP_NOLOCK, nullptr, "lrmparse", __LINE__, lmmgetfsmfp()) != 0) {
    c->pheap = nullptr;
    return report(c, kNoMemory, {"starting a parse"}, nullptr, "");
  }
  uint32_t result = 0;
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
    result = report(c, kNoMemory, {"starting a parse"}, nullptr, "");
  } else {
    lemptfs(fc, &fr);
    if (setjmp(*static_cast<jmp_buf *>(LEM_FRAME_JB(&fr))) == 0) {
      bool done = false;
      uint32_t st = c->plain_parse ? 0 : quick_settings(c, &done);
      int8_t rc = st != 0 || done ? 0 : lrmpzpparse(&ps, &cb, 0, 0);
      lemptfr(fc, &fr);
      if (st != 0)
        result = st;
      else if (rc != 0)
        // A parse that stops with no status of its own could not get memory
        // for the driver's state or stack.
        result = ps.status != 0   ? ps.status
                 : c->status != 0 ? c->status
                                  : report(c, kNoMemory, {"parsing"}, nullptr, "");
    } else {
      result = c->status != 0 ? c->status : kInternalError;
    }
  }
  drop_held(c);
  for (int32_t k = 0; k < c->npush; k++) free_token(c, c->push[k]);
  c->npush = 0;
  lmmhpfree(c->mctx, c->pheap, 0);
  c->pheap = nullptr;
  return result;
}

constexpr int32_t kMaxIncludes = 16;

uint32_t include(lrmctx_rec *c, int32_t depth) {
  const char *name = c->include_name, *at = c->include_at;
  size_t namelen = c->include_len;
  // Relative names are taken from the including file's folder.
  const char *path = c->src.name;
  const char *slash = strrchr(path, '/');
  size_t dirlen = name[0] != '/' && slash != nullptr ? static_cast<size_t>(slash - path + 1) : 0;
  char *full = static_cast<char *>(hmalloc(c, dirlen + namelen + 1));
  if (full == nullptr) return report(c, kNoMemory, {"reading a file"}, at, "");
  memcpy(full, path, dirlen);
  memcpy(full + dirlen, name, namelen);
  full[dirlen + namelen] = '\0';
  uint32_t st = read_param_file(c, full, depth + 1, at);
  hfree(c, full);
  return st;
}

uint32_t too_large(lrmctx_rec *c, const char *name, const char *at) {
  char limit[24];
  lsfp(nullptr, limit, sizeof limit, "%zu", c->maxsource);
  return report(c, kTooLarge, {name, limit}, at, "");
}

void *file_alloc(void *arg, size_t n) { return hmalloc(static_cast<lrmctx_rec *>(arg), n); }
void file_free(void *arg, void *p) { hfree(static_cast<lrmctx_rec *>(arg), p); }

}  // namespace

// ------------------------------------------------------------------ sources

uint32_t parse_source(lrmctx_rec *c, const char *text, size_t len, uint8_t kind, uint8_t origin, const char *name,
                      int32_t depth) {
  if (len > c->maxsource) return too_large(c, name, nullptr);
  // Nested inputs (includes) keep the outer scanner state aside.
  const lrmsource saved = c->src;
  uint8_t saved_bol = c->bol;
  char saved_keys[2][kKeyShown + 1];
  memcpy(saved_keys, c->keys, sizeof saved_keys);
  const uint8_t saved_last = c->lastkey;

  c->src = lrmsource{text, len, 0, 1, kind, origin, name};
  // Places of another text are no places in this one.
  memset(c->hints, 0, sizeof c->hints);
  c->bol = 1;
  c->keys[0][0] = c->keys[1][0] = '\0';
  uint32_t st;
  for (;;) {
    c->include_seen = 0;
    st = parse_piece(c);
    if (st != 0 || !c->include_seen) break;
    c->include_seen = 0;
    st = include(c, depth);
    if (st != 0) break;
  }
  c->include_seen = 0;
  memset(c->hints, 0, sizeof c->hints);
  c->src = saved;
  c->bol = saved_bol;
  memcpy(c->keys, saved_keys, sizeof saved_keys);
  c->lastkey = saved_last;
  c->status = st;
  return st;
}

uint32_t read_param_file(lrmctx_rec *c, const char *path, int32_t depth, const char *at) {
  if (depth > kMaxIncludes) return report(c, kNestingTooDeep, {path}, at, "");
  char *data = nullptr;
  size_t len = 0;
  int32_t err = 0;
  int32_t rc = lrm_file::read_file(path, c->maxsource, file_alloc, file_free, c, &data, &len, &err);
  if (rc != 0) {
    char why[128];
    switch (rc) {
      case 3:
        return report(c, kNoMemory, {"reading a file"}, at, "");
      case 4:
        return too_large(c, path, at);
      default:
        slcgems(err, why, sizeof why);
        return report(c, rc == 1 ? kCannotOpen : kReadError, {path, why}, at, "");
    }
  }
  // The path names the source in messages and anchors its includes.
  char *name = hstrdup(c, path, strlen(path));
  uint32_t st = name == nullptr ? report(c, kNoMemory, {"reading a file"}, at, "")
                                : parse_source(c, data, len, 2, kFromFile, name, depth);
  hfree(c, name);
  hfree(c, data);
  return st;
}

}  // namespace lrm_internal

// --------------------------------------------------------------- interface

using namespace lrm_internal;

namespace {

// Runs one source as one all-or-nothing call.
uint32_t one_call(lrmctx_rec *c, const char *text, size_t len, uint8_t kind, uint8_t origin, const char *name) {
  begin_call(c);
  uint32_t st = parse_source(c, text, len, kind, origin, name, 0);
  end_call(c, st == 0);
  return st;
}

}  // namespace

extern "C" {

KELAPI uint32_t lrmpaa(lrmctx *h, int32_t argc, const char *const *argv) {
  if (h == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  if (argc < 0 || (argv == nullptr && argc > 0)) return perr(c, kNullArgument, LEM_ARG_TEXT, "argv", LEM_ARG_END);
  size_t total = 1;
  for (int32_t i = 0; i < argc; i++) {
    if (argv[i] == nullptr) return perr(c, kNullArgument, LEM_ARG_TEXT, "argv", LEM_ARG_END);
    total += strlen(argv[i]) + 1;
    if (total > c->maxsource + 1) return too_large(c, "command line", nullptr);
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
  uint32_t st = one_call(c, line, n, 1, kFromCommandLine, "command line");
  hfree(c, line);
  return st;
}

KELAPI uint32_t lrmpas(lrmctx *h, const char *text, size_t len) {
  if (h == nullptr) return kNullArgument;
  if (text == nullptr && len > 0) return perr(rec(h), kNullArgument, LEM_ARG_TEXT, "text", LEM_ARG_END);
  return one_call(rec(h), text != nullptr ? text : "", len, 1, kFromCommandLine, "command line");
}

KELAPI uint32_t lrmpst(lrmctx *h, const char *text, size_t len) {
  if (h == nullptr) return kNullArgument;
  if (text == nullptr && len > 0) return perr(rec(h), kNullArgument, LEM_ARG_TEXT, "text", LEM_ARG_END);
  return one_call(rec(h), text != nullptr ? text : "", len, 3, kFromString, "string");
}

KELAPI uint32_t lrmpfi(lrmctx *h, const char *path) {
  if (h == nullptr) return kNullArgument;
  lrmctx_rec *c = rec(h);
  if (path == nullptr) return perr(c, kNullArgument, LEM_ARG_TEXT, "path", LEM_ARG_END);
  begin_call(c);
  uint32_t st = read_param_file(c, path, 0, nullptr);
  end_call(c, st == 0);
  return st;
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
  uint32_t st = one_call(c, buf, static_cast<size_t>(n), 1, kFromEnvironment, name);
  hfree(c, buf);
  return st;
}

}  // extern "C"
