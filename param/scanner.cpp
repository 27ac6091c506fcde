// The scanner of parameter files and command lines (lrmplex).
//
// One call makes one token from the context's current source. The scanner
// is driven from inside the parse's error frame: on a failure it frees what
// it made for the token, records the status and raises it (a longjmp), so
// this file keeps to plain data and heap blocks of the context's heap.
//
// Blanks are the character set's space class: bytes through the context's
// tables, characters of a multi-byte set through the set (chars.cpp).
// Every token records where it starts in the source (aux1) and its line
// (aux32), for messages, the length of its text (aux2), and where its text
// stands in the source when it stands there as it is (aux3), so that the
// parse can take a value from there without copying it.
//
// In a parameter file, a line whose first non-blank text is "@name" or
// "include name", with no '=' on it, reads another file in its place. The scanner recognises
// such a line only where a token may start a line: not inside a quoted
// string (which runs to its closing quote, newlines and all), not inside a
// list (where a newline is a blank), not after a continuation. It then ends
// the current input there (token 0) and notes the name; the source reader
// (sources.cpp) reads the file and goes on after the line.
//
// Sections: character source, token records, blanks, includes, quoted
// strings, words, the scanner entry.
#include <bit>
#include <cstring>

#include "lsf.h"
#include "param/lrm_impl.h"

using namespace lrm_internal;

namespace {

// ------------------------------------------------------- character source
// Peeking does not consume; -1 is end of input.

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
// cost one allocation; freed records are kept for reuse.
constexpr size_t kInlineText = 64;

inline char *inline_text(lrmpztok *t) { return reinterpret_cast<char *>(t + 1); }

lrmpztok *new_token(lrmctx_rec *c) {
  lrmpztok *t;
  if (c->ncache > 0) {
    t = c->cache[--c->ncache];
  } else {
    t = static_cast<lrmpztok *>(hmalloc(c, sizeof(lrmpztok) + kInlineText));
    if (t == nullptr) {
      report(c, kNoMemory, {"allocating a token"}, c->src.buf + c->src.pos, last_key(c));
      raise(c, kNoMemory);
    }
  }
  t->code = 0;
  t->aux16 = 0;
  t->aux32 = 0;
  t->aux1 = t->aux2 = t->aux3 = nullptr;
  t->refs = 0;
  t->text = nullptr;
  c->live_tokens++;
  return t;
}

}  // namespace

void lrm_internal::free_token(lrmctx_rec *c, lrmpztok *t) {
  if (t == nullptr) return;
  c->live_tokens--;
  if (t->text != inline_text(t)) hfree(c, t->text);
  if (c->ncache < kTokenCache)
    c->cache[c->ncache++] = t;
  else
    hfree(c, t);
}

lrmpztok *lrm_internal::copy_token(lrmctx_rec *c, const lrmpztok *tok) {
  const char *text = tok->text != nullptr ? tok->text : "";
  size_t n = tok->text != nullptr ? reinterpret_cast<uintptr_t>(tok->aux2) : 0;
  auto *t = static_cast<lrmpztok *>(hmalloc(c, sizeof(lrmpztok) + kInlineText));
  char *p = t == nullptr ? nullptr : n < kInlineText ? inline_text(t) : static_cast<char *>(hmalloc(c, n + 1));
  if (p == nullptr) {
    hfree(c, t);
    return nullptr;
  }
  *t = *tok;
  t->refs = 0;
  memcpy(p, text, n);
  p[n] = '\0';
  t->text = p;
  c->live_tokens++;
  return t;
}

namespace {

[[noreturn]] void fail(lrmctx_rec *c, lrmpztok *t, uint32_t status, std::initializer_list<std::string_view> own,
                       const char *at) {
  free_token(c, t);
  report(c, status, own, at, last_key(c));
  raise(c, status);
}

char *text_buffer(lrmctx_rec *c, lrmpztok *t, size_t n) {
  char *p = n < kInlineText ? inline_text(t) : static_cast<char *>(hmalloc(c, n + 1));
  if (p == nullptr) fail(c, t, kNoMemory, {"collecting a token's text"}, static_cast<const char *>(t->aux1));
  return p;
}

inline void set_length(lrmpztok *t, size_t n) { t->aux2 = reinterpret_cast<void *>(static_cast<uintptr_t>(n)); }

void set_text(lrmctx_rec *c, lrmpztok *t, const char *s, size_t n) {
  char *p = text_buffer(c, t, n);
  copy_bytes(p, s, n);
  p[n] = '\0';
  t->text = p;
  set_length(t, n);
}

// ------------------------------------------------------------------ blanks

inline size_t blank_len(const lrmctx_rec *c, const lrmsource &s, size_t pos) {
  if (pos >= s.len) return 0;
  const uint8_t k = c->cls[static_cast<uint8_t>(s.buf[pos])];
  if (k & kClsBlank) return 1;
  return (k & kClsHigh) ? blank_at(c, s.buf + pos, s.len - pos) : 0;
}

// Is the backslash at the current position a line continuation: followed by
// blanks up to and including a newline?
bool continuation_at(const lrmctx_rec *c, const lrmsource &s) {
  for (size_t k = s.pos + 1;;) {
    if (k < s.len && s.buf[k] == '\n') return true;
    size_t n = blank_len(c, s, k);
    if (n == 0) return false;
    k += n;
  }
}

// Skips a continuation (the backslash through the newline).
void skip_continuation(lrmctx_rec *c) {
  while (get(c->src) != '\n') {
  }
  c->bol = 0;
}

// Skips blanks and continuations, noting the start of a line; with
// `commas` a comma where none may stand is an error. True when a newline
// was crossed.
bool skip_blanks(lrmctx_rec *c, lrmpztok *t, bool commas) {
  lrmsource &s = c->src;
  bool newline = false;
  for (;;) {
    while (s.pos < s.len && (c->cls[static_cast<uint8_t>(s.buf[s.pos])] & kClsBlank)) {
      if (s.buf[s.pos] == '\n') {
        s.line++;
        newline = true;
        c->bol = 1;
      }
      s.pos++;
    }
    if (size_t n = blank_len(c, s, s.pos); n > 0) {
      s.pos += n;
      continue;
    }
    int ch = peek(s);
    if (ch == '\\' && continuation_at(c, s)) {
      skip_continuation(c);
      continue;
    }
    if (ch == ',' && commas) {
      if ((c->options & LRM_OPT_COMMA) || c->depth > 0) {
        get(s);
        continue;
      }
      free_token(c, t);
      perr(c, kCommaQuoted, LEM_ARG_TEXT, ",", LEM_ARG_END);
      report(c, kCommaNotAllowed, {}, s.buf + s.pos, last_key(c));
      raise(c, kCommaNotAllowed);
    }
    return newline;
  }
}

bool comments_on(const lrmctx_rec *c) { return c->src.kind == 2 || (c->options & LRM_OPT_COMMENTS); }

// After a value: skip blanks and note whether a kept comment follows on the
// same line.
void after_value(lrmctx_rec *c) {
  bool newline = skip_blanks(c, nullptr, false);
  if (peek(c->src) == '#' && (c->options & LRM_OPT_COMMENTS) && !newline) c->comment_follows = 1;
}

// ---------------------------------------------------------------- includes

// At the start of a line of a file outside lists: is this an include line?
// If so, consume it up to its newline and note the name.
bool include_line(lrmctx_rec *c) {
  lrmsource &s = c->src;
  size_t p = s.pos;
  if (s.buf[p] == '@') {
    p++;
  } else if (s.len - p > 8 && memcmp(s.buf + p, "include", 7) == 0 && (s.buf[p + 7] == ' ' || s.buf[p + 7] == '\t')) {
    p += 8;
  } else {
    return false;
  }
  const void *nl = memchr(s.buf + p, '\n', s.len - p);
  const size_t eol = nl != nullptr ? static_cast<size_t>(static_cast<const char *>(nl) - s.buf) : s.len;
  // A line with an '=' is a setting: "include = x", "@key = x".
  if (memchr(s.buf + p, '=', eol - p) != nullptr) return false;
  size_t q = p;
  for (size_t n; q < eol && (n = blank_len(c, s, q)) > 0;) q += n;
  size_t end = eol;
  while (end > q) {
    // Trailing blanks: step back over whole characters.
    size_t k = end - 1;
    while (k > q && !c->bytewise && (static_cast<uint8_t>(s.buf[k]) & 0xC0) == 0x80) k--;
    if (blank_len(c, s, k) != end - k) break;
    end = k;
  }
  if (end - q >= 2 && (s.buf[q] == '"' || s.buf[q] == '\'') && s.buf[end - 1] == s.buf[q]) {
    q++;
    end--;
  }
  if (end <= q) return false;
  c->include_at = s.buf + s.pos;
  c->include_name = s.buf + q;
  c->include_len = end - q;
  c->include_seen = 1;
  s.pos = eol;
  return true;
}

// ---------------------------------------------------------- quoted strings
// Two passes: the first finds the closing quote and the text's length, the
// second copies the text into a buffer of that size, so a long string costs
// no regrowing.

void scan_quoted(lrmctx_rec *c, lrmpztok *t) {
  lrmsource &s = c->src;
  const char *open = s.buf + s.pos;
  const char q = s.buf[s.pos];
  size_t start = s.pos + 1, k = start, n = 0;
  for (;;) {
    if (k >= s.len) {
      char head[16];
      size_t m = s.len - start < 10 ? s.len - start : 10;
      head[0] = q;
      memcpy(head + 1, s.buf + start, m);
      fail(c, t, kUnterminatedString, {std::string_view(head, m + 1)}, open);
    }
    char ch = s.buf[k];
    if (ch == q) {
      if (k + 1 >= s.len || s.buf[k + 1] != q) break;
      k += 2;
    } else if (ch == '\\' && k + 1 < s.len && s.buf[k + 1] == '\n') {
      k += 2;
      continue;
    } else {
      k++;
    }
    n++;
  }
  char *p = text_buffer(c, t, n);
  size_t w = 0;
  for (size_t i = start; i < k;) {
    char ch = s.buf[i];
    if (ch == '\n') s.line++;
    if (ch == q) {
      i += 2;
    } else if (ch == '\\' && s.buf[i + 1] == '\n') {
      s.line++;
      i += 2;
      continue;
    } else {
      i++;
    }
    p[w++] = ch;
  }
  p[n] = '\0';
  t->text = p;
  // The text ends at a NUL byte, as every NUL-terminated copy of it would.
  const void *nul = memchr(p, '\0', n);
  set_length(t, nul != nullptr ? static_cast<size_t>(static_cast<const char *>(nul) - p) : n);
  if (n == k - start) t->aux3 = const_cast<char *>(s.buf + start);
  t->code = LRM_TK_QUOTED;
  s.pos = k + 1;
  after_value(c);
}

// ------------------------------------------------------------------- words

bool escapable(int ch) {
  return ch == '#' || ch == '(' || ch == ')' || ch == '"' || ch == '\'' || ch == '=' || ch == ',' || ch == '-' ||
         ch == '\\';
}

// How many of the eight bytes at p, from the first, are plain word
// characters: 0x2D to 0x7E but for '=' and the backslash? (A set whose
// classes make any of them special has plainfast off.) Word at a time: most
// of a word's bytes are these.
inline size_t plain_run(const char *p) {
  constexpr uint64_t kOnes = 0x0101010101010101ull, kHigh = 0x8080808080808080ull;
  uint64_t w;
  memcpy(&w, p, 8);
  const uint64_t low = w & ~kHigh;
  const uint64_t from = low + (0x80 - 0x2D) * kOnes;  // high bit: >= 0x2D
  const uint64_t past = low + (0x80 - 0x7F) * kOnes;  // high bit: >= 0x7F
  // A zero byte of v, exact for the lowest one, which is all that counts.
  auto zero = [&](uint64_t v) { return (v - kOnes) & ~v & kHigh; };
  const uint64_t odd = (w & kHigh) | ((~from | past) & kHigh) | zero(w ^ ('=' * kOnes)) | zero(w ^ ('\\' * kOnes));
  return static_cast<size_t>(std::countr_zero(odd)) / 8;
}

// The classes of bytes that end a word here: a ')' only inside a list, a
// '#' only where comments are.
uint8_t word_ends(const lrmctx_rec *c) {
  return kClsBlank | kClsStop | kClsHigh | (c->depth > 0 ? kClsClose : 0) | (comments_on(c) ? kClsHash : 0);
}

// Does the character at s.buf[k] end a word (ends: word_ends)?
inline bool ends_word(const lrmctx_rec *c, const lrmsource &s, size_t k, uint8_t ends) {
  if (k >= s.len) return true;
  const uint8_t cls = c->cls[static_cast<uint8_t>(s.buf[k])] & ends;
  if (cls != kClsHigh) return cls != 0;
  return blank_at(c, s.buf + k, s.len - k) > 0;
}

// A key met in the source, for messages about what follows it.
void note_key(lrmctx_rec *c, const char *name, size_t len) {
  c->lastkey ^= 1;
  if (len > kKeyShown) len = kKeyShown;
  copy_bytes(c->keys[c->lastkey], name, len);
  c->keys[c->lastkey][len] = '\0';
}

void scan_word(lrmctx_rec *c, lrmpztok *t) {
  lrmsource &s = c->src;
  // Most words are short and plain: take them straight from the source.
  const uint8_t ends = word_ends(c);
  size_t start = s.pos, k = start;
  for (;;) {
    if (c->plainfast) {
      while (k + 8 <= s.len) {
        size_t n = plain_run(s.buf + k);
        k += n;
        if (n < 8) break;
      }
    }
    while (k < s.len && !(c->cls[static_cast<uint8_t>(s.buf[k])] & (ends | kClsBackslash))) k++;
    if (k < s.len && s.buf[k] != '\\' && !ends_word(c, s, k, ends)) {
      k++;  // a character of a multi-byte set that is no blank
      continue;
    }
    break;
  }
  if (k >= s.len || s.buf[k] != '\\') {
    set_text(c, t, s.buf + start, k - start);
    t->aux3 = const_cast<char *>(s.buf + start);
    s.pos = k;
  } else {
    // Escapes and continuations: collect into a buffer that doubles.
    size_t cap = k - start + 32, w = k - start;
    char *p = static_cast<char *>(hmalloc(c, cap));
    if (p == nullptr) fail(c, t, kNoMemory, {"collecting a token's text"}, s.buf + start);
    memcpy(p, s.buf + start, w);
    s.pos = k;
    for (;;) {
      int ch = peek(s);
      if (ch == '\\') {
        int nx = peek(s, 1);
        if (escapable(nx)) {
          s.pos++;
        } else if (continuation_at(c, s)) {
          skip_continuation(c);
          continue;
        }
      } else if (ends_word(c, s, s.pos, ends)) {
        break;
      }
      if (w + 1 >= cap) {
        char *np = static_cast<char *>(hmalloc(c, cap * 2));
        if (np == nullptr) {
          hfree(c, p);
          fail(c, t, kNoMemory, {"collecting a token's text"}, s.buf + start);
        }
        memcpy(np, p, w);
        hfree(c, p);
        p = np;
        cap *= 2;
      }
      p[w++] = static_cast<char>(get(s));
    }
    p[w] = '\0';
    t->text = p;
    set_length(t, w);
  }
  size_t len = reinterpret_cast<uintptr_t>(t->aux2);
  if (c->dash_seen) {
    c->dash_seen = 0;
    uint8_t type = 0;
    note_key(c, t->text, len);
    uint32_t st = check_option(c, t->text, len, s.buf + start, &type);
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
    note_key(c, t->text, len);
    // The key's value comes a few tokens later; its index slot can be on
    // its way into the cache meanwhile.
    prefetch_entry(c, s.buf + start, t->text, len);
  } else {
    t->code = LRM_TK_STRING;
  }
}

lrmpztok *punctuation(lrmctx_rec *c, lrmpztok *t, uint16_t code) {
  t->code = code;
  t->text = inline_text(t);
  t->text[0] = static_cast<char>(get(c->src));
  t->text[1] = '\0';
  set_length(t, 1);
  return t;
}

}  // namespace

lrmpztok *lrm_internal::scan(lrmctx_rec *c) {
  lrmpztok *t = new_token(c);
  bool comment_follows = c->comment_follows != 0;
  c->comment_follows = 0;
  lrmsource &s = c->src;
  for (;;) {
    // After a value the blanks are gone already; skip_blanks has the rest.
    if (s.pos >= s.len || (c->cls[static_cast<uint8_t>(s.buf[s.pos])] & (kClsBlank | kClsBackslash | kClsHigh)) ||
        s.buf[s.pos] == ',')
      skip_blanks(c, t, true);
    t->aux32 = s.line;
    t->aux1 = const_cast<char *>(s.buf + s.pos);
    int ch = peek(s);
    if (ch < 0) {
      t->code = LRM_TK_END;
      set_text(c, t, "", 0);
      return t;
    }
    const bool bol = c->bol != 0;
    c->bol = 0;
    if (bol && s.kind == 2 && c->depth == 0 && (ch == '@' || ch == 'i') && include_line(c)) {
      t->code = LRM_TK_END;
      set_text(c, t, "", 0);
      return t;
    }
    switch (ch) {
      case '=':
        return punctuation(c, t, LRM_TK_EQUAL);
      case '(':
        // The depth is eight bits: deeper lists are refused, which also
        // bounds the recursion of storing them.
        if (c->depth == 255) fail(c, t, kSyntaxError, {"\"(\" (lists nested too deeply)"}, s.buf + s.pos);
        c->depth++;
        return punctuation(c, t, LRM_TK_LPAREN);
      case ')':
        if (c->depth > 0) c->depth--;
        return punctuation(c, t, LRM_TK_RPAREN);
      case '#':
        if (!comments_on(c)) break;
        get(s);
        if ((c->options & LRM_OPT_COMMENTS) && comment_follows) {
          size_t start = s.pos;
          const void *nl = memchr(s.buf + start, '\n', s.len - start);
          s.pos = nl != nullptr ? static_cast<size_t>(static_cast<const char *>(nl) - s.buf) : s.len;
          // The text is NUL-terminated: a NUL byte ends it.
          const void *nul = memchr(s.buf + start, '\0', s.pos - start);
          size_t end = nul != nullptr ? static_cast<size_t>(static_cast<const char *>(nul) - s.buf) : s.pos;
          // Trailing blanks (a CR of a CRLF line among them) are no part of it.
          while (end > start && c->blank[static_cast<uint8_t>(s.buf[end - 1])]) end--;
          t->code = LRM_TK_COMMENT;
          set_text(c, t, s.buf + start, end - start);
          return t;
        }
        if (const void *nl = memchr(s.buf + s.pos, '\n', s.len - s.pos))
          s.pos = static_cast<size_t>(static_cast<const char *>(nl) - s.buf);
        else
          s.pos = s.len;
        comment_follows = false;
        continue;
      case '-':
        if ((s.kind == 1 || s.kind == 3) && !(peek(s, 1) >= '0' && peek(s, 1) <= '9')) {
          c->dash_seen = 1;
          return punctuation(c, t, LRM_TK_DASH);
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
