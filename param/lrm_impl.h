// lrm_impl.h - the parameter context and the pieces of the parameter
// manager that its files share.
//
// Files: context.cpp (opening, errors, UTF-16), chars.cpp (the character
// set's rules: blanks, case, columns), keys.cpp (key sets, matching,
// conversions, help), values.cpp (the value table, storage and the journal
// that makes a call all-or-nothing), getters.cpp (getters, dumps and the
// calls that set values directly), scanner.cpp (lrmplex), driver.cpp (the
// LALR(1) driver), sources.cpp (parse actions, command lines, strings,
// files and includes, the environment), file.cpp (file access).
#ifndef KEL_PARAM_LRM_IMPL_H
#define KEL_PARAM_LRM_IMPL_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "lem.h"
#include "lmm.h"
#include "lpm.h"
#include "lrm.h"
#include "lx.h"
#include "param/lrm_status_impl.h"

namespace lrm_internal {

// One stored occurrence of a key; its text follows the record.
struct lrmval {
  char *text;      // the value as given (NUL-terminated, inside character set)
  size_t len;
  char *comment;   // same-line comment kept with the value, or null
  uint8_t boolv;
  uint8_t numlen;
  uint8_t num[22];
  uint32_t u32;
  int64_t i64;
};

// One stored key: its qualifier, its name and its occurrences in order.
// The visible occurrences are vals[base .. count); base is 0 outside a call
// (see the journal in values.cpp).
struct lrmentry {
  uint32_t hash;
  char *qual;         // null: unqualified
  size_t quallen;
  char *name;         // canonical name ("" for positional values)
  size_t namelen;
  int32_t keyidx;     // declared key, -2 - k built-in k, or -1
  uint8_t type;
  uint8_t isdefault;  // holds the declared default, which a user's value replaces
  uint8_t saved_default;
  lrmval **vals;
  uint32_t count, cap, base;
  // journal of the running call
  uint32_t gen;          // the call that last touched the entry
  uint32_t saved_count;  // count before that call
  lrmentry *touched;     // next entry touched by the running call
};

// A slot of the value table's index: the hash of an entry's (qualifier,
// name) and 1 + its place in the entries array (0: a free slot).
struct lrmslot {
  uint32_t hash;
  uint32_t entry;
};

// Where a source came from, for messages.
enum Origin : uint8_t { kFromFile = 0, kFromCommandLine, kFromString, kFromEnvironment };

// Where the scanner reads from. Saved and restored around nested inputs.
struct lrmsource {
  const char *buf;
  size_t len;
  size_t pos;
  int32_t line;
  uint8_t kind;          // 1 command line, 2 parameter file, 3 string
  uint8_t origin;        // Origin
  const char *name;      // file path, variable name, or "command line" / "string"
};

// Classes of bytes for the scanner.
enum : uint8_t {
  kClsBlank = 1,       // a blank of one byte
  kClsStop = 2,        // ends a word: ( " ' = ,
  kClsClose = 4,       // )
  kClsHash = 8,        // #
  kClsBackslash = 16,  // a backslash
  kClsHigh = 32,       // part of a longer character: ask the character set
};

constexpr int kPushMax = 8;
constexpr int kTokenCache = 8;
constexpr size_t kKeyShown = 100;  // bytes of a key or value kept for messages

struct lrmctx_rec {
  lcorectx *core;
  void *mctx;
  lmmheap *heap;
  lemfac *fac;
  lpmiftab *lsf;
  const lxenv *env;
  uint32_t flags;
  uint32_t options;       // LRM_OPT_*
  bool unicode;
  bool bytewise;          // single-byte character set: the byte tables say all
  int32_t csid;           // the character set's id
  uint8_t blank[256];     // blanks among single bytes (ASCII only for multi-byte sets)
  uint8_t cls[256];       // the scanner's classes of bytes (kCls*)
  bool plainfast;         // 0x2D-0x7E but '=' and '\\' are in no class
  uint8_t upper[256];     // upper case of single bytes (likewise)
  char progname[256];
  lrmoutfn out;
  void *outarg;
  size_t maxsource;       // largest source text, in bytes
  // key set
  const lrmkeyset *set;
  // value table (values.cpp)
  lrmentry **entries;     // in storage order
  uint32_t nentries, capentries;
  lrmslot *slots;         // open-addressed index of the entries
  uint32_t nslots;        // a power of two, at least twice nentries (0: none)
  // journal of the running call (values.cpp)
  int32_t calls;          // nesting of begin_call
  uint32_t gen;
  lrmentry *touched;
  uint32_t saved_nentries;
  // scanner
  lrmsource src;
  lrmpztok *push[kPushMax];
  int32_t npush;
  lrmpztok *held[kPushMax];  // tokens the settings' fast path holds (sources.cpp)
  int32_t nheld;
  bool plain_parse;       // tests: every setting through the driver
  lrmpztok *cache[kTokenCache];  // token records kept for reuse
  int32_t ncache;
  uint8_t depth;
  uint8_t comment_follows;
  uint8_t dash_seen;
  uint8_t bol;            // nothing but blanks since the last newline
  uint8_t include_seen;   // the scanner stopped at an include line
  const char *include_name;
  size_t include_len;
  const char *include_at;
  struct {
    const char *at;       // a key met by the scanner, by its place
    uint32_t hash;        // and its hash, computed to prefetch its slot
    uint32_t colon;       // where "q:k" splits (0: no qualifier)
  } hints[2];             // the key whose value is being stored, and the next
  uint8_t nexthint;
  // The key being set and the one before it (a syntax error at a key
  // belongs to the setting before), for messages: keys[lastkey] and
  // keys[lastkey ^ 1].
  char keys[2][kKeyShown + 1];
  uint8_t lastkey;
  uint32_t status;        // last status of the scanner / storage
  int32_t live_tokens;    // token records made and not yet freed (tests)
  // parse
  lmmheap *pheap;         // per-parse heap of the reductions' values
};

inline lrmctx_rec *rec(lrmctx *h) { return reinterpret_cast<lrmctx_rec *>(h); }

// Copies n bytes with a few word moves when n is small (a library copy of
// unknown length costs more than the copy of a short key or value).
inline void copy_bytes(char *d, const char *s, size_t n) {
  if (n > 64) {
    memcpy(d, s, n);
  } else if (n >= 8) {
    for (size_t i = 0; i + 8 <= n; i += 8) memcpy(d + i, s + i, 8);
    memcpy(d + n - 8, s + n - 8, 8);
  } else if (n >= 4) {
    memcpy(d, s, 4);
    memcpy(d + n - 4, s + n - 4, 4);
  } else if (n > 0) {
    d[0] = s[0];
    d[n >> 1] = s[n >> 1];
    d[n - 1] = s[n - 1];
  }
}
inline const char *last_key(const lrmctx_rec *c) { return c->keys[c->lastkey]; }
inline const char *previous_key(const lrmctx_rec *c) { return c->keys[c->lastkey ^ 1]; }

// Heap helpers (context heap). Test builds route every request through the
// system allocator's fault point, so that a test can refuse each in turn.
bool alloc_refused();
void *hmalloc(lrmctx_rec *c, size_t n);
void hfree(lrmctx_rec *c, void *p);
char *hstrdup(lrmctx_rec *c, const char *s, size_t n);

// Records `status` with the argument pairs and returns it.
uint32_t perr(lrmctx_rec *c, uint32_t status, ...);
// A caller's text as a message argument: at most its first kKeyShown bytes,
// so that a huge or unterminated text cannot flood the error stack.
struct Shown {
  char text[kKeyShown + 28];
};
Shown shown(const char *s, size_t n);
// Records a status met while reading a source or storing a value: its own
// text arguments (at most two), then where it happened, which the message
// prints and which follows as separate arguments (the source's name, line,
// column, key; "", 0, 0 outside a source). `at` points into the current
// source text (null: no place in it). Returns status.
uint32_t report(lrmctx_rec *c, uint32_t status, std::initializer_list<std::string_view> own, const char *at,
                std::string_view key);
// Records `status` (when not 0 already recorded) and raises it to the
// innermost error frame.
[[noreturn]] void raise(lrmctx_rec *c, uint32_t status);

// The character set's rules (chars.cpp).
// Length of the blank at p (n bytes left), 0 when it is no blank.
size_t blank_at(const lrmctx_rec *c, const char *p, size_t n);
// Names compared by the key set's rules (case-insensitive unless LRM_KS_CASE).
bool names_equal(const lrmctx_rec *c, const char *a, size_t alen, const char *b, size_t blen);
// Matches a given name against a key: 2 equal, 1 a proper prefix of it, 0 neither.
int32_t name_match(const lrmctx_rec *c, const char *key, size_t keylen, const char *given, size_t glen);
// Case-insensitive comparison whatever the key set says (word lists).
bool words_equal(const lrmctx_rec *c, const char *a, size_t alen, const char *b, size_t blen);
// Orders two names case-insensitively (the help listing).
int32_t names_order(const lrmctx_rec *c, const char *a, const char *b);
uint32_t name_hash(const lrmctx_rec *c, const char *qual, size_t quallen, const char *s, size_t n);
// Upper-cases text in place, character by character.
void upper_text(const lrmctx_rec *c, char *s, size_t n);
// The first character of text as a code of the character set (0 for none).
uint32_t first_char(const lrmctx_rec *c, const char *text, size_t len);
// The 1-based column of `at` on its line of the source text starting at buf.
int32_t column_of(const lrmctx_rec *c, const char *buf, const char *at);

// The scanner (lrmplex without its push-back stack): the next token, or a
// raise; and the end of a token record.
lrmpztok *scan(lrmctx_rec *c);
void free_token(lrmctx_rec *c, lrmpztok *t);
// A copy of a token record (the driver's operation 8); null when out of memory.
lrmpztok *copy_token(lrmctx_rec *c, const lrmpztok *tok);

// Names.
// Resolves a key name: 0 with *idx the declared key (or -1 for undeclared but
// accepted, -2 - k for built-in k), or 101/107 (not recorded).
enum Builtin { kHelp = 0, kUsage, kQuestion, kVersion, kBuiltins };
extern const char *const kBuiltinNames[kBuiltins];
uint32_t resolve(lrmctx_rec *c, const char *name, size_t len, int32_t *idx);
// Checks the name of a "-name" option (lrmckv); `at` is its place in the
// current source, for messages.
uint32_t check_option(lrmctx_rec *c, const char *name, size_t len, const char *at, uint8_t *type);
// Splits "q:k" into qualifier and key at the last colon that is neither first
// nor last; false when the name has no qualifier.
bool split_qualified(const char *s, size_t n, size_t *colon);

// Conversions of the value text for type `type` into v (text fields set by
// the caller). Status 0 or 102-105, 120 (not recorded).
uint32_t convert(lrmctx_rec *c, int32_t keyidx, uint8_t type, const char *text, size_t len, lrmval *v);

// Storage (values.cpp).
enum StoreHow : uint32_t {
  kStoreValue = 0,
  kStoreFlag = 1,     // a -flag: the boolean true, whatever the text
  kStoreDefault = 2,  // a declared default
};
// Stores a value for (qual, key); `at` is the value's place in the current
// source (null: none), for messages. Status recorded on failure.
uint32_t store(lrmctx_rec *c, const char *qual, size_t quallen, const char *key, size_t klen, const char *text,
               size_t len, const char *comment, uint32_t how, const char *at, const char *keyat);
void clear_values(lrmctx_rec *c);
lrmentry *find_entry(lrmctx_rec *c, const char *qual, size_t quallen, const char *name, size_t namelen);
// Starts loading the index slot of the key "q:k" or "k" met at `at` in the
// source into the cache: the scanner calls it when it meets a key, well
// before the key's value is stored, which finds the hash kept for it.
void prefetch_entry(lrmctx_rec *c, const char *at, const char *key, size_t klen);
void drop_values(lrmctx_rec *c, lrmentry *e);
// Calls that store several values are all-or-nothing: begin_call before the
// first, end_call after the last (ok false undoes every change since
// begin_call). Calls nest; only the outermost ends the journal.
void begin_call(lrmctx_rec *c);
void end_call(lrmctx_rec *c, bool ok);

// Sources (sources.cpp): parses `len` bytes of `text` as a source of `kind`
// from `origin`; statuses recorded. `depth` counts the includes around it.
uint32_t parse_source(lrmctx_rec *c, const char *text, size_t len, uint8_t kind, uint8_t origin, const char *name,
                      int32_t depth);
// Reads and parses the parameter file `path` (at: the include line that named
// it, null for the top).
uint32_t read_param_file(lrmctx_rec *c, const char *path, int32_t depth, const char *at);

// UTF conversions into the context heap.
uint32_t u16to8(lrmctx_rec *c, const uint16_t *src, size_t units, char **out, size_t *outlen);
uint32_t u8to16(lrmctx_rec *c, const char *src, size_t len, uint16_t **out, size_t *outunits);

// Writes text through the context's output function.
void emit(lrmctx_rec *c, const char *text, size_t len);

}  // namespace lrm_internal

#endif
