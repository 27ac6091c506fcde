// pz_impl.h - the tables of the table-driven LALR(1) parse driver.
//
// The tables are generated at build time (param/gen_tables.py over bison's
// report of a grammar) and handed to the driver as data, so one driver serves
// every grammar.
#ifndef KEL_PARAM_PZ_IMPL_H
#define KEL_PARAM_PZ_IMPL_H

#include <cstddef>
#include <cstdint>

#include "lrm.h"

namespace pz_internal {

// Row-displacement LALR(1) tables.
//   action for state s, token code t: i = base[s] + t; when 0 <= i <= last
//   and check[i] == t, table[i] (>= 1 shift to that state, <= 0 reduce by
//   rule -table[i]); otherwise default_rule[s] (>= 1 reduce, 0 error).
//   goto for nonterminal A from state s: i = gbase[A] + s; when in range and
//   check[i] == s, table[i]; otherwise gdefault[A].
// A state with base -32768 has no entry of its own: it reduces by its
// default rule without looking at the next token. Reducing by a rule whose
// left-hand side is `accept` accepts.
struct pztables {
  int16_t nstates;
  int16_t nrules;
  int16_t nnonterms;
  int16_t last;
  int16_t accept;            // nonterminal index of the accepting symbol
  const int16_t *base;
  const int16_t *default_rule;
  const int16_t *table;
  const int16_t *check;
  const int16_t *gbase;
  const int16_t *gdefault;
  const int16_t *lhs;        // nonterminal index of each rule's left-hand side
  const uint8_t *rlen;       // symbols on each rule's right-hand side
  const char *const *rtext;  // each rule as text, for the trace
};

constexpr int16_t kNoBase = -32768;
constexpr int32_t kErrorToken = 256;

// The parameter-file grammar (param/lrmpzp.y).
extern const pztables kParamTables;

// One entry of the parse stack: a state and the value of the symbol that
// led to it (a token record when `istok`, else a reduction's result).
struct pzent {
  uint16_t state;
  uint8_t istok;
  void *val;
};

// The parser context of one parse. Plain data: the parse runs under an error
// frame and may be left by a longjmp, after which the frame's handler frees
// it through the pointers kept here.
struct pzparser {
  const pztables *tab;
  const lrmpzcb *cb;
  void *src;
  pzent *stk;
  uint32_t cap;
  uint32_t top;          // entries in use
  int32_t status;        // 0 success, 1 recovered error, 2 failed
  uint16_t flags;        // 0x1 trace
  uint8_t level;
  uint8_t haslook;
  lrmpztok *look;        // the lookahead while haslook
  lrmpztok *cur, *prev;  // copies of the last two tokens (level >= 3)
  uint32_t errors;       // errors raised into the parse's frame
};

constexpr uint32_t kInitialStack = 150;

// Runs the driver on `tab` (the tables are data: any generated grammar).
int32_t run(pzparser *p, void *src, void **result, int32_t single_step, void *user);
// Allocation of driver storage through the callbacks or the top heap.
void *pzalloc(const lrmpzcb *cb, size_t size);
void pzfree(const lrmpzcb *cb, void *ptr);
// Releases every token still held by the parser (stack, lookahead, copies).
void release_all(pzparser *p);

}  // namespace pz_internal

#endif
