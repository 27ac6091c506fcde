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
  // The same automaton read off the packed tables into dense ones (null:
  // none): column[code] (codes 0-264) picks one of ncols columns, the last
  // for any code the grammar lacks (the packed tables answer for those);
  // dense[s * ncols + col] is 0 error, v > 0 shift to v, v < 0 reduce by
  // rule -v - 1; dgoto[A * nstates + s].
  int16_t ncols;
  const uint8_t *column;
  const int16_t *dense;
  const int16_t *dgoto;
};

constexpr int16_t kNoBase = -32768;
constexpr int32_t kErrorToken = 256;

// The parameter-file grammar (param/lrmpzp.y).
extern const pztables kParamTables;

// The parser context of one parse. Plain data: the parse runs under an error
// frame and may be left by a longjmp, after which the frame's handler frees
// it through the pointers kept here.
struct pzparser {
  const pztables *tab;
  const lrmpzcb *cb;
  void *src;
  // The parse stack, in one block of `cap` entries: for each entry the
  // value of the symbol that led to it (a token record when istok, else a
  // reduction's result), its state, and whether it holds a token. Values
  // are kept apart so that a rule's right-hand side is one run of them.
  void **vals;
  uint16_t *states;
  uint8_t *istok;
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

// The action for state s and lookahead code t.
enum Kind { kErr = 0, kAcc = 1, kShift = 2, kReduce = 3 };
struct Action {
  Kind kind;
  int32_t value;  // state to shift to, or rule to reduce by
};
// As the packed tables give it, probe by probe.
Action packed_action(const pztables *t, int32_t state, int32_t code);
// As the driver reads it: from the dense tables when the grammar has them.
Action action_of(const pztables *t, int32_t state, int32_t code);
// The goto of nonterminal A from state s, packed and as the driver reads it.
int32_t packed_goto(const pztables *t, int32_t nonterm, int32_t state);
int32_t goto_of(const pztables *t, int32_t nonterm, int32_t state);

// Runs the driver on `tab` (the tables are data: any generated grammar).
int32_t run(pzparser *p, void *src, void **result, int32_t single_step, void *user);
// Allocation of driver storage through the callbacks or the top heap.
void *pzalloc(const lrmpzcb *cb, size_t size);
void pzfree(const lrmpzcb *cb, void *ptr);
// Releases every token still held by the parser (stack, lookahead, copies).
void release_all(pzparser *p);

}  // namespace pz_internal

#endif
