// The scanner of parameter files and command lines (lrmplex).
//
// One call makes one token from the context's current source. The scanner
// is driven from inside the parse's error frame: on a failure it frees what
// it made for the token, records the status and raises it (a longjmp), so
// this file keeps to plain data and heap blocks of the context's heap.
//
// Sections: character source, token records, blanks, quoted strings, words,
// the scanner entry.
#include <cstring>

#include "param/lrm_impl.h"

using namespace lrm_internal;

namespace {

// ------------------------------------------------------- character source
// Mode 0 peeks, mode 1 consumes; -1 is end of input.

inline int peek(const lrmsource &s, size_t ahead = 0) {
  return s.pos + ahead < s.len ? static_cast<uint8_t>(s.buf[s.pos + ahead]) : -1;
}

inline int get(lrmsource &s) {
  if (s.pos >= s.len) return -1;
  int ch = static_cast<uint8_t>(s.buf[s.pos++]);
  if (ch == '\n') s.line++;
  return ch;
}

// ----------------------------------------------------------- token records

// A token record has room for a short text behind it, so that most tokens
// cost one allocation.
constexpr size_t kInlineText = 64;

inline char *inline_text(lrmpztok *t) { return reinterpret_cast<char *>(t + 1); }

lrmpztok *new_token(lrmctx_rec *c) {
  auto *t = static_cast<lrmpztok *>(hmalloc(c, sizeof(lrmpztok) + kInlineText));
  if (t == nullptr) {
    perr(c, kNoMemory, LEM_ARG_TEXT, "allocating a token", LEM_ARG_END);
    raise(c, kNoMemory);
  }
  memset(t, 0, sizeof *t);
  c->live_tokens++;
  return t;
}

void free_token(lrmctx_rec *c, lrmpztok *t) {
  if (t == nullptr) return;
  c->live_tokens--;
  if (t->text != inline_text(t)) hfree(c, t->text);
  hfree(c, t);
}

// A growing text buffer in the context heap.
struct textbuf {
  char *p;
  size_t n, cap;
};

void buf_put(lrmctx_rec *c, lrmpztok *t, textbuf &b, char ch, size_t step) {
  if (b.n + 1 >= b.cap) {
    size_t ncap = b.cap + (step != 0 ? step : b.cap);
    char *np = static_cast<char *>(hmalloc(c, ncap));
    if (np == nullptr) {
      hfree(c, b.p);
      free_token(c, t);
      perr(c, kNoMemory, LEM_ARG_TEXT, "collecting a token's text", LEM_ARG_END);
      raise(c, kNoMemory);
    }
    memcpy(np, b.p, b.n);
    hfree(c, b.p);
    b.p = np;
    b.cap = ncap;
  }
  b.p[b.n++] = ch;
}

void buf_start(lrmctx_rec *c, lrmpztok *t, textbuf &b, size_t cap) {
  b.n = 0;
  b.cap = cap;
  b.p = static_cast<char *>(hmalloc(c, cap));
  if (b.p == nullptr) {
    free_token(c, t);
    perr(c, kNoMemory, LEM_ARG_TEXT, "collecting a token's text", LEM_ARG_END);
    raise(c, kNoMemory);
  }
}

void set_text(lrmctx_rec *c, lrmpztok *t, const char *s, size_t n) {
  t->text = n < kInlineText ? inline_text(t) : static_cast<char *>(hmalloc(c, n + 1));
  if (t->text == nullptr) {
    free_token(c, t);
    perr(c, kNoMemory, LEM_ARG_TEXT, "copying a token's text", LEM_ARG_END);
    raise(c, kNoMemory);
  }
  memcpy(t->text, s, n);
  t->text[n] = '\0';
}

// ------------------------------------------------------------------ blanks

inline bool is_blank(const lrmctx_rec *c, int ch) { return ch >= 0 && c->blank[ch]; }

// Is the backslash at the current position a line continuation: followed by
// blanks up to and including a newline?
bool continuation_at(const lrmctx_rec *c, const lrmsource &s) {
  for (size_t k = 1;; k++) {
    int ch = peek(s, k);
    if (ch == '\n') return true;
    if (!is_blank(c, ch)) return false;
  }
}

// Skips a continuation (the backslash through the newline).
void skip_continuation(lrmsource &s) {
  while (get(s) != '\n') {
  }
}

// Skips blanks and continuations; true when a newline was crossed.
bool skip_blanks(lrmctx_rec *c, lrmpztok *t, bool commas_checked) {
  lrmsource &s = c->src;
  bool newline = false;
  for (;;) {
    int ch = peek(s);
    if (ch < 0) return newline;
    if (is_blank(c, ch)) {
      get(s);
      if (ch == '\n') newline = true;
      continue;
    }
    if (ch == '\\' && continuation_at(c, s)) {
      skip_continuation(s);
      continue;
    }
    if (ch == ',' && commas_checked) {
      if ((c->options & LRM_OPT_COMMA) || c->depth > 0) {
        get(s);
        continue;
      }
      free_token(c, t);
      perr(c, kCommaQuoted, LEM_ARG_TEXT, ",", LEM_ARG_END);
      perr(c, kCommaNotAllowed, LEM_ARG_END);
      raise(c, kCommaNotAllowed);
    }
    return newline;
  }
}

bool comments_on(const lrmctx_rec *c) { return c->src.kind == 2 || (c->options & LRM_OPT_COMMENTS); }

// After a value: skip blanks and note whether a kept comment follows on the
// same line.
void after_value(lrmctx_rec *c) {
  lrmsource &s = c->src;
  bool newline = false;
  for (;;) {
    int ch = peek(s);
    if (is_blank(c, ch)) {
      get(s);
      if (ch == '\n') newline = true;
      continue;
    }
    if (ch == '\\' && continuation_at(c, s)) {
      skip_continuation(s);
      continue;
    }
    break;
  }
  if (peek(s) == '#' && (c->options & LRM_OPT_COMMENTS) && !newline) c->comment_follows = 1;
}

// ---------------------------------------------------------- quoted strings

void scan_quoted(lrmctx_rec *c, lrmpztok *t) {
  lrmsource &s = c->src;
  int q = get(s);
  textbuf b;
  buf_start(c, t, b, 100);
  for (;;) {
    int ch = get(s);
    if (ch < 0) {
      char shown[16];
      size_t n = b.n < 10 ? b.n : 10;
      shown[0] = static_cast<char>(q);
      memcpy(shown + 1, b.p, n);
      shown[n + 1] = '\0';
      hfree(c, b.p);
      free_token(c, t);
      perr(c, kUnterminatedString, LEM_ARG_TEXT, shown, LEM_ARG_END);
      raise(c, kUnterminatedString);
    }
    if (ch == q) {
      if (peek(s) != q) break;
      get(s);
    } else if (ch == '\\' && peek(s) == '\n') {
      get(s);
      continue;
    }
    buf_put(c, t, b, static_cast<char>(ch), 100);
  }
  b.p[b.n] = '\0';
  t->text = b.p;
  t->code = LRM_TK_QUOTED;
  after_value(c);
}

// ------------------------------------------------------------------- words

bool escapable(int ch) {
  return ch == '#' || ch == '(' || ch == ')' || ch == '"' || ch == '\'' || ch == '=' || ch == ',' || ch == '-' ||
         ch == '\\';
}

bool ends_word(const lrmctx_rec *c, int ch) {
  if (ch < 0 || is_blank(c, ch)) return true;
  switch (ch) {
    case '(':
    case '"':
    case '\'':
    case '=':
    case ',':
      return true;
    case ')':
      return c->depth > 0;
    case '#':
      return comments_on(c);
    default:
      return false;
  }
}

void scan_word(lrmctx_rec *c, lrmpztok *t) {
  lrmsource &s = c->src;
  // Most words are short and plain: take them straight from the source.
  size_t start = s.pos, k = start;
  while (k < s.len) {
    int ch = static_cast<uint8_t>(s.buf[k]);
    if (ch == '\\' || ends_word(c, ch)) break;
    k++;
  }
  if (k >= s.len || s.buf[k] != '\\') {
    set_text(c, t, s.buf + start, k - start);
    s.pos = k;
  } else {
    textbuf b;
    buf_start(c, t, b, k - start + 32);
    memcpy(b.p, s.buf + start, k - start);
    b.n = k - start;
    s.pos = k;
    for (;;) {
      int ch = peek(s);
      if (ch == '\\') {
        int nx = peek(s, 1);
        if (escapable(nx)) {
          get(s);
          get(s);
          buf_put(c, t, b, static_cast<char>(nx), 0);
          continue;
        }
        if (continuation_at(c, s)) {
          skip_continuation(s);
          continue;
        }
      } else if (ends_word(c, ch)) {
        break;
      }
      get(s);
      buf_put(c, t, b, static_cast<char>(ch), 0);
    }
    b.p[b.n] = '\0';
    t->text = b.p;
  }
  if (c->dash_seen) {
    c->dash_seen = 0;
    uint8_t type = 0;
    uint32_t st = lrmckv(reinterpret_cast<lrmctx *>(c), t->text, strlen(t->text), &type);
    if (st != 0) {
      free_token(c, t);
      raise(c, st);
    }
    t->code = type == LRM_T_BOOL ? LRM_TK_FLAG_ID : LRM_TK_KEY_ID;
    after_value(c);
    c->comment_follows = 0;  // an option name is no value to comment on
    return;
  }
  after_value(c);
  if (peek(s) == '=') {
    t->code = LRM_TK_ID;
    c->comment_follows = 0;
  } else {
    t->code = LRM_TK_STRING;
  }
}

lrmpztok *scan(lrmctx_rec *c) {
  lrmpztok *t = new_token(c);
  bool comment_follows = c->comment_follows != 0;
  c->comment_follows = 0;
  lrmsource &s = c->src;
  for (;;) {
    skip_blanks(c, t, true);
    t->aux32 = s.line;
    int ch = peek(s);
    if (ch < 0) {
      t->code = LRM_TK_END;
      set_text(c, t, "", 0);
      return t;
    }
    char one[2] = {static_cast<char>(ch), '\0'};
    switch (ch) {
      case '=':
        get(s);
        t->code = LRM_TK_EQUAL;
        set_text(c, t, one, 1);
        return t;
      case '(':
        if (c->depth == 255) {
          // The depth is eight bits: deeper lists are refused, which also
          // bounds the recursion of storing them.
          free_token(c, t);
          perr(c, kSyntaxError, LEM_ARG_TEXT, "\"(\" (lists nested too deeply)", LEM_ARG_TEXT, s.name,
               LEM_ARG_NUM, static_cast<int64_t>(s.line), LEM_ARG_END);
          raise(c, kSyntaxError);
        }
        get(s);
        c->depth++;
        t->code = LRM_TK_LPAREN;
        set_text(c, t, one, 1);
        return t;
      case ')':
        get(s);
        if (c->depth > 0) c->depth--;
        t->code = LRM_TK_RPAREN;
        set_text(c, t, one, 1);
        return t;
      case '#':
        if (!comments_on(c)) break;
        get(s);
        if ((c->options & LRM_OPT_COMMENTS) && comment_follows) {
          size_t start = s.pos;
          while (peek(s) >= 0 && peek(s) != '\n') get(s);
          // The text is NUL-terminated: a NUL byte ends it.
          const void *nul = memchr(s.buf + start, '\0', s.pos - start);
          size_t end = nul != nullptr ? static_cast<size_t>(static_cast<const char *>(nul) - s.buf) : s.pos;
          // Trailing blanks (a CR of a CRLF line among them) are no part of it.
          while (end > start && is_blank(c, static_cast<uint8_t>(s.buf[end - 1]))) end--;
          t->code = LRM_TK_COMMENT;
          set_text(c, t, s.buf + start, end - start);
          return t;
        }
        while (peek(s) >= 0 && peek(s) != '\n') get(s);
        comment_follows = false;
        continue;
      case '-':
        if ((s.kind == 1 || s.kind == 3) && !(peek(s, 1) >= '0' && peek(s, 1) <= '9')) {
          get(s);
          c->dash_seen = 1;
          t->code = LRM_TK_DASH;
          set_text(c, t, one, 1);
          return t;
        }
        break;
      case '"':
      case '\'':
        c->dash_seen = 0;
        scan_quoted(c, t);
        return t;
      default:
        break;
    }
    scan_word(c, t);
    return t;
  }
}

}  // namespace

extern "C" KELAPI lrmpztok *lrmplex(lrmctx *h, int32_t op, lrmpztok *tok) {
  if (h == nullptr) return nullptr;
  lrmctx_rec *c = rec(h);
  switch (op) {
    case 1:
      if (c->npush > 0) return c->push[--c->npush];
      return scan(c);
    case 2:
      if (tok != nullptr && c->npush < kPushMax) c->push[c->npush++] = tok;
      return tok;
    case 4:
      free_token(c, tok);
      return nullptr;
    default:
      c->status = kInternalError;
      return nullptr;
  }
}
