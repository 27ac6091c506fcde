// lrm_impl.h - the parameter context and the pieces of the parameter
// manager that its files share.
#ifndef KEL_PARAM_LRM_IMPL_H
#define KEL_PARAM_LRM_IMPL_H

#include <cstddef>
#include <cstdint>

#include "lem.h"
#include "lmm.h"
#include "lpm.h"
#include "lrm.h"
#include "lx.h"
#include "param/lrm_status_impl.h"

namespace lrm_internal {

// One stored occurrence of a key.
struct lrmval {
  lrmval *next;
  char *text;      // the value as given (NUL-terminated, inside character set)
  size_t len;
  char *comment;   // same-line comment kept with the value, or null
  uint8_t type;
  uint8_t boolv;
  uint8_t numlen;
  uint8_t num[22];
  uint32_t u32;
  int64_t i64;
};

// One stored key: its qualifier, its name and its occurrences in order.
struct lrmentry {
  lrmentry *next;     // storage order
  lrmentry *hnext;    // hash chain
  uint32_t hash;
  char *qual;         // null: unqualified
  size_t quallen;
  char *name;         // canonical name ("" for positional values)
  size_t namelen;
  int32_t keyidx;     // declared key, or -1
  uint8_t type;
  uint32_t count;
  lrmval *first, *last;
};

// Where the scanner reads from. Saved and restored around nested inputs.
struct lrmsource {
  const char *buf;
  size_t len;
  size_t pos;
  int32_t line;
  uint8_t kind;          // 1 command line, 2 parameter file, 3 string
  const char *name;      // for messages: file name, or "command line"
};

constexpr int kPushMax = 8;

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
  bool bytewise;          // single-byte character set: byte tables below
  uint8_t blank[256];
  uint8_t upper[256];
  char progname[256];
  lrmoutfn out;
  void *outarg;
  // key set
  const lrmkeyset *set;
  // value table
  lrmentry *head, *tail;
  lrmentry **buckets;
  uint32_t nbuckets;
  uint32_t nentries;
  // scanner
  lrmsource src;
  lrmpztok *push[kPushMax];
  int32_t npush;
  uint8_t depth;
  uint8_t comment_follows;
  uint8_t dash_seen;
  uint32_t status;        // last status of the scanner / storage
  int32_t live_tokens;    // token records made and not yet freed (tests)
#ifdef KEL_TEST_HOOKS
  int64_t fail_alloc_at;  // tests: the n-th allocation from now fails (0: none)
  int64_t allocs;         // tests: allocations made
#endif
  // parse
  lmmheap *pheap;         // per-parse heap of the reductions' values
  int32_t include_depth;
};

inline lrmctx_rec *rec(lrmctx *h) { return reinterpret_cast<lrmctx_rec *>(h); }

// Test builds can fail the n-th allocation of a context.
inline bool alloc_fails(lrmctx_rec *c) {
#ifdef KEL_TEST_HOOKS
  c->allocs++;
  return c->fail_alloc_at > 0 && --c->fail_alloc_at == 0;
#else
  (void)c;
  return false;
#endif
}

// Heap helpers (context heap).
void *hmalloc(lrmctx_rec *c, size_t n);
void hfree(lrmctx_rec *c, void *p);
char *hstrdup(lrmctx_rec *c, const char *s, size_t n);

// Records `status` with the argument pairs and returns it.
uint32_t perr(lrmctx_rec *c, uint32_t status, ...);
// A caller's text as a message argument: at most its first 100 bytes, so
// that a huge or unterminated key cannot flood the error stack.
struct Shown {
  char text[128];
};
Shown shown(const char *s, size_t n);
// Records `status` (when not 0 already recorded) and raises it to the
// innermost error frame.
[[noreturn]] void raise(lrmctx_rec *c, uint32_t status);

// Names.
bool names_equal(const lrmctx_rec *c, const char *a, size_t alen, const char *b, size_t blen);
uint32_t name_hash(const lrmctx_rec *c, const char *qual, size_t quallen, const char *s, size_t n);
// Resolves a key name: 0 with *idx the declared key (or -1 for undeclared but
// accepted, -2 - k for built-in k), or 101/107 (not recorded).
enum Builtin { kHelp = 0, kUsage, kQuestion, kVersion, kBuiltins };
extern const char *const kBuiltinNames[kBuiltins];
uint32_t resolve(lrmctx_rec *c, const char *name, size_t len, int32_t *idx);

// Conversions of the value text for type `type` into v (text fields set by
// the caller). Status 0 or 102-105, 120 (not recorded).
uint32_t convert(lrmctx_rec *c, int32_t keyidx, uint8_t type, const char *text, size_t len, lrmval *v);

// Storage: a value for (qual, key); status recorded on failure.
uint32_t store(lrmctx_rec *c, const char *qual, size_t quallen, const char *key, size_t klen, const char *text,
               size_t len, const char *comment, bool is_flag);
void clear_values(lrmctx_rec *c);
lrmentry *find_entry(lrmctx_rec *c, const char *qual, size_t quallen, const char *name, size_t namelen);

// Parses `len` bytes of `text` as a source of `kind`; statuses recorded.
uint32_t parse_text(lrmctx_rec *c, const char *text, size_t len, uint8_t kind, const char *name, int32_t line);

// UTF conversions into the context heap.
uint32_t u16to8(lrmctx_rec *c, const uint16_t *src, size_t units, char **out, size_t *outlen);
uint32_t u8to16(lrmctx_rec *c, const char *src, size_t len, uint16_t **out, size_t *outunits);

// Writes text through the context's output function.
void emit(lrmctx_rec *c, const char *text, size_t len);

}  // namespace lrm_internal

#endif
