// The table-driven LALR(1) parse driver.
//
// One driver serves any grammar: the row-displacement tables (pz_impl.h)
// are data generated from the grammar at build time. The driver pulls tokens
// from a token source (operation 1 next, 4 release, 8 copy), calls the
// caller's action on every reduction with the rule number, and reports a
// syntax error it cannot recover from as 109 through the error callback.
// Token records are reference-counted: the driver holds one reference on
// each token it has on its stack or as lookahead and gives the record back
// to the source (operation 4) when the count falls to zero.
//
// lrmpzpparse runs the driver under an error frame, because the token
// source (the scanner) raises its failures with a longjmp. Everything the
// parse owns is reachable from the parser context, which is plain data, so
// the frame's handler can release it; no object with a destructor lives on
// the frames a longjmp leaves.
//
// Sections: storage (pz7arl*), table lookups (action, pz5goto7), tokens,
// trace, the driver loop (pz5strt7), the parse entry (lrmpzpparse), the
// older entry names.
#include <csetjmp>
#include <cstring>

#include "lsf.h"
#include "lem.h"
#include "lmm.h"
#include "lrm.h"
#include "param/pz_impl.h"

namespace pz_internal {

// ------------------------------------------------------------------ storage

void *pzalloc(const lrmpzcb *cb, size_t size) {
  if (cb->alloc != nullptr) return cb->alloc(cb->user, size);
  if (cb->ctx == nullptr) return nullptr;
  return lmmmalloc(cb->ctx->lmmctx, lmmtophp(cb->ctx->lmmctx), size, 0, "pz", __LINE__);
}

void pzfree(const lrmpzcb *cb, void *ptr) {
  if (ptr == nullptr) return;
  if (cb->alloc != nullptr) {
    if (cb->free != nullptr) cb->free(cb->user, ptr);
    return;
  }
  lmmfree(cb->ctx->lmmctx, lmmtophp(cb->ctx->lmmctx), ptr, 0);
}

namespace {

const char *const kKindName[] = {"ERR ", "ACC ", "SHFT", "REDU"};

constexpr size_t kEntryBytes = sizeof(void *) + sizeof(uint16_t) + sizeof(uint8_t);

bool grow(pzparser *p) {
  uint32_t ncap = p->cap == 0 ? kInitialStack : p->cap * 2;
  auto *vals = static_cast<void **>(pzalloc(p->cb, kEntryBytes * ncap));
  if (vals == nullptr) return false;
  auto *states = reinterpret_cast<uint16_t *>(vals + ncap);
  auto *istok = reinterpret_cast<uint8_t *>(states + ncap);
  if (p->vals != nullptr) {
    memcpy(vals, p->vals, sizeof(void *) * p->top);
    memcpy(states, p->states, sizeof(uint16_t) * p->top);
    memcpy(istok, p->istok, p->top);
    pzfree(p->cb, p->vals);
  }
  p->vals = vals;
  p->states = states;
  p->istok = istok;
  p->cap = ncap;
  return true;
}

// --------------------------------------------------------------- lookups

inline Action reduce_or_accept(const pztables *t, int32_t rule) {
  if (t->lhs[rule] == t->accept) return {kAcc, rule};
  return {kReduce, rule};
}

}  // namespace

Action packed_action(const pztables *t, int32_t state, int32_t code) {
  int32_t i = t->base[state] + code;
  if (t->base[state] != kNoBase && i >= 0 && i <= t->last && t->check[i] == code) {
    int32_t v = t->table[i];
    if (v >= 1) return {kShift, v};
    return reduce_or_accept(t, -v);
  }
  int32_t d = t->default_rule[state];
  if (d < 1) return {kErr, 0};
  return reduce_or_accept(t, d);
}

Action action_of(const pztables *t, int32_t state, int32_t code) {
  // Codes the grammar lacks are rare (a caller's token source): the packed
  // tables answer for them.
  if (t->dense == nullptr || code < 0 || code > 264 || t->column[code] == t->ncols - 1)
    return packed_action(t, state, code);
  int32_t v = t->dense[state * t->ncols + t->column[code]];
  if (v > 0) return {kShift, v};
  if (v == 0) return {kErr, 0};
  return reduce_or_accept(t, -v - 1);
}

int32_t packed_goto(const pztables *t, int32_t nonterm, int32_t state) {
  int32_t i = t->gbase[nonterm] + state;
  if (t->gbase[nonterm] != kNoBase && i >= 0 && i <= t->last && t->check[i] == state) return t->table[i];
  return t->gdefault[nonterm];
}

int32_t goto_of(const pztables *t, int32_t nonterm, int32_t state) {
  if (t->dgoto == nullptr) return packed_goto(t, nonterm, state);
  return t->dgoto[nonterm * t->nstates + state];
}

namespace {

// ---------------------------------------------------------------- tokens

void release(pzparser *p, lrmpztok *tok) {
  if (tok == nullptr) return;
  if (tok->refs > 0) tok->refs--;
  if (tok->refs == 0) p->cb->token(p->src, 4, tok);
}

lrmpztok *next_token(pzparser *p) {
  lrmpztok *tok = p->cb->token(p->src, 1, nullptr);
  if (tok == nullptr) return nullptr;
  tok->refs = 1;
  if (p->level >= 3) {
    lrmpztok *copy = p->cb->token(p->src, 8, tok);
    if (copy != nullptr) {
      copy->refs = 1;
      release(p, p->prev);
      p->prev = p->cur;
      p->cur = copy;
    }
  }
  return tok;
}

// Releases the tokens on the stack (their entries stay, emptied).
void release_stack_tokens(pzparser *p) {
  for (uint32_t k = 0; k < p->top; k++) {
    if (p->istok[k]) {
      release(p, static_cast<lrmpztok *>(p->vals[k]));
      p->istok[k] = 0;
      p->vals[k] = nullptr;
    }
  }
}

// ----------------------------------------------------------------- trace

void trace_step(pzparser *p, Action a) {
  if (!(p->flags & 0x1) || p->cb->trace == nullptr) return;
  char buf[64];
  p->cb->trace(p->cb->user, "\n       (PAR STK)");
  for (uint32_t k = 0; k < p->top; k++) {
    lsfp(nullptr, buf, sizeof buf, " [%d]", p->states[k]);
    p->cb->trace(p->cb->user, buf);
  }
  lsfp(nullptr, buf, sizeof buf, " [%d, %s]", a.value, kKindName[a.kind]);
  p->cb->trace(p->cb->user, buf);
  if (a.kind == kReduce) {
    p->cb->trace(p->cb->user, " ");
    p->cb->trace(p->cb->user,
                 a.value >= 0 && a.value < p->tab->nrules ? p->tab->rtext[a.value] : "-no such reduction-");
  }
}

inline int32_t push(pzparser *p, int32_t state, void *val, uint8_t istok) {
  if (p->top == p->cap && !grow(p)) return -1;
  p->states[p->top] = static_cast<uint16_t>(state);
  p->istok[p->top] = istok;
  p->vals[p->top] = val;
  p->top++;
  return 0;
}

// Calls the action of `rule` and replaces its right-hand side by the goto
// state and the action's result. 0, or the action's non-zero status, or -1
// when the stack cannot grow.
int32_t reduce(pzparser *p, int32_t rule, void **result) {
  const pztables *t = p->tab;
  const uint32_t n = t->rlen[rule];
  if (n >= p->top) return -1;
  // The right-hand side's values are the top n of the stack, in order.
  const uint32_t first = p->top - n;
  void *none = nullptr;
  void *const *rhs = n > 0 ? p->vals + first : &none;
  void *res = nullptr;
  int32_t rc = 0;
  if (p->cb->action != nullptr) rc = p->cb->action(p->cb->user, rule, rhs, static_cast<int32_t>(n), &res);
  for (uint32_t k = first; k < p->top; k++)
    if (p->istok[k]) release(p, static_cast<lrmpztok *>(p->vals[k]));
  p->top = first;
  if (result != nullptr) *result = res;
  if (rc != 0) return rc;
  int32_t g = goto_of(t, t->lhs[rule], p->states[p->top - 1]);
  return push(p, g, res, 0);
}

// Error recovery: pop states until one shifts `error`, shift it, then drop
// tokens until one is acceptable. True when the parse can go on.
bool recover(pzparser *p) {
  const pztables *t = p->tab;
  while (p->top > 0) {
    Action a = action_of(t, p->states[p->top - 1], kErrorToken);
    if (a.kind == kShift) {
      if (push(p, a.value, nullptr, 0) != 0) return false;
      for (;;) {
        Action b = action_of(t, a.value, p->look->code);
        if (b.kind != kErr) return true;
        if (p->look->code == LRM_TK_END) return false;
        release(p, p->look);
        p->haslook = 0;
        p->look = next_token(p);
        if (p->look == nullptr) return false;
        p->haslook = 1;
      }
    }
    --p->top;
    if (p->istok[p->top]) release(p, static_cast<lrmpztok *>(p->vals[p->top]));
  }
  return false;
}

}  // namespace

void release_all(pzparser *p) {
  release_stack_tokens(p);
  if (p->haslook) release(p, p->look);
  p->haslook = 0;
  p->look = nullptr;
  release(p, p->cur);
  release(p, p->prev);
  p->cur = p->prev = nullptr;
}

// ------------------------------------------------------------- driver loop

int32_t run(pzparser *p, void *src, void **result, int32_t single_step, void *user) {
  const pztables *t = p->tab;
  p->status = 0;
  p->src = src;
  p->top = 0;
  if (push(p, 0, nullptr, 0) != 0) return p->status = 2;
  p->look = next_token(p);
  if (p->look == nullptr) return p->status = 2;
  p->haslook = 1;
  for (;;) {
    int32_t s = p->states[p->top - 1];
    Action a;
    if (!p->haslook && t->base[s] == kNoBase && t->default_rule[s] != 0) {
      a = reduce_or_accept(t, t->default_rule[s]);
    } else {
      if (!p->haslook) {
        p->look = next_token(p);
        if (p->look == nullptr) return p->status = 2;
        p->haslook = 1;
      }
      a = action_of(t, s, p->look->code);
    }
    trace_step(p, a);
    switch (a.kind) {
      case kShift:
        if (push(p, a.value, p->look, 1) != 0) return p->status = 2;
        p->haslook = 0;
        p->look = nullptr;
        if (single_step) {
          release_stack_tokens(p);
          return p->status;
        }
        break;
      case kReduce: {
        int32_t rc = reduce(p, a.value, nullptr);
        if (rc != 0) return p->status = 2;
        break;
      }
      case kAcc: {
        void *value = p->vals[p->top - 1];
        if (result != nullptr) *result = value;
        if (p->cb->accept != nullptr) p->cb->accept(p->cb->user, value);
        if (p->haslook) release(p, p->look);
        p->haslook = 0;
        p->look = nullptr;
        return p->status;
      }
      case kErr:
        if (p->status == 0) {
          release_stack_tokens(p);
          p->status = 1;
        }
        if (!recover(p)) {
          if (p->cb->error != nullptr) p->cb->error(p->cb->user, 109, p->haslook ? p->look : nullptr);
          p->status = 2;
          if (p->haslook) release(p, p->look);
          p->haslook = 0;
          p->look = nullptr;
          return p->status;
        }
        break;
    }
  }
}

}  // namespace pz_internal

using namespace pz_internal;

namespace {

pzparser *as_parser(void *parser) { return static_cast<pzparser *>(parser); }

bool is_parse_error(void *lemctx) {
  char fac[16], prod[16];
  return lemgef(lemctx, 1, fac, sizeof fac) > 0 && lemgpd(lemctx, 1, prod, sizeof prod) > 0 &&
         strcmp(fac, "par") == 0 && strcmp(prod, "lrmpzp") == 0;
}

}  // namespace

extern "C" {

KELAPI int32_t pz5strt7(void *parser, void *src, void **result, int32_t single_step, void *user) {
  if (parser == nullptr) return 2;
  return run(as_parser(parser), src, result, single_step, user);
}

KELAPI int32_t pz5goto7(void *parser, int32_t state, int32_t nonterminal) {
  pzparser *p = as_parser(parser);
  if (p == nullptr || nonterminal < 0 || nonterminal >= p->tab->nnonterms || state < 0 ||
      state >= p->tab->nstates)
    return -1;
  return goto_of(p->tab, nonterminal, state);
}

KELAPI int32_t pz5spus7(void *parser, int32_t state, void *value) {
  if (parser == nullptr) return -1;
  return push(as_parser(parser), state, value, 0);
}

KELAPI int32_t pz5ckcallb7(void *parser, int32_t rule, void **result) {
  pzparser *p = as_parser(parser);
  if (p == nullptr || rule < 0 || rule >= p->tab->nrules) return -1;
  return reduce(p, rule, result);
}

KELAPI void *pz7arlgc(void *parser, size_t entries) {
  pzparser *p = as_parser(parser);
  if (p == nullptr) return nullptr;
  while (p->cap < entries)
    if (!grow(p)) return nullptr;
  if (p->vals == nullptr && !grow(p)) return nullptr;
  return p->vals;
}

KELAPI int32_t pz7arlge(void *parser) {
  pzparser *p = as_parser(parser);
  return p != nullptr && grow(p) ? 0 : -1;
}

KELAPI void pz7arlcl(void *parser) {
  pzparser *p = as_parser(parser);
  if (p == nullptr) return;
  release_stack_tokens(p);
  p->top = 0;
}

KELAPI void pz7arlfr(void *parser) {
  pzparser *p = as_parser(parser);
  if (p == nullptr) return;
  pzfree(p->cb, p->vals);
  p->vals = nullptr;
  p->states = nullptr;
  p->istok = nullptr;
  p->cap = p->top = 0;
}

KELAPI void pz5ctxfr7(void *parser) {
  pzparser *p = as_parser(parser);
  if (p == nullptr) return;
  release_all(p);
  pz7arlfr(p);
  const lrmpzcb *cb = p->cb;
  pzfree(cb, p);
}

KELAPI int8_t lrmpzpparse(void *src, const lrmpzcb *cb, uint16_t flags16, uint8_t flags8) {
  if (cb == nullptr || cb->token == nullptr || (cb->alloc == nullptr && cb->ctx == nullptr)) return -1;
  pzparser *volatile p = static_cast<pzparser *>(pzalloc(cb, sizeof(pzparser)));
  if (p == nullptr) return -1;
  memset(p, 0, sizeof(pzparser));
  p->tab = &kParamTables;
  p->cb = cb;
  p->src = src;
  p->flags = flags16;
  p->level = flags8;
  void *lemctx = cb->ctx != nullptr ? cb->ctx->lemctx : nullptr;
  lemfac *volatile fac = lemctx != nullptr ? lemfaa(lemctx, nullptr, "lrmpzp", "par", 10000, 10000) : nullptr;
  lemfctx *fc = lemctx != nullptr ? lemgfc(lemctx) : nullptr;
  if (fc == nullptr) {
    int32_t st = run(p, src, nullptr, 0, cb->user);
    pz5ctxfr7(p);
    if (fac != nullptr) lemfaf(lemctx, fac);
    return st == 0 ? 0 : -1;
  }
  lemframe fr;
  lemptfs(fc, &fr);
  int code = setjmp(*static_cast<jmp_buf *>(LEM_FRAME_JB(&fr)));
  if (code == 0) {
    int32_t st = run(p, src, nullptr, 0, cb->user);
    lemptfr(fc, &fr);
    pz5ctxfr7(p);
    if (fac != nullptr) lemfaf(lemctx, fac);
    return st == 0 ? 0 : -1;
  }
  // Raised into our frame (already popped). A parser error is ours; anything
  // else belongs to the caller and is raised on once we have cleaned up.
  bool ours = is_parse_error(lemctx);
  if (ours) p->errors++;
  pz5ctxfr7(p);
  if (fac != nullptr) lemfaf(lemctx, fac);
  if (!ours) lemptrs(fc);
  return -1;
}

// The older names: the same driver.
KELAPI int32_t pz5strt(void *parser, void *src, void **result, int32_t single_step, void *user) {
  return pz5strt7(parser, src, result, single_step, user);
}
KELAPI int32_t pz5goto(void *parser, int32_t state, int32_t nonterminal) {
  return pz5goto7(parser, state, nonterminal);
}
KELAPI int32_t pz5spus(void *parser, int32_t state, void *value) { return pz5spus7(parser, state, value); }
KELAPI int32_t pz5ckcallb(void *parser, int32_t rule, void **result) { return pz5ckcallb7(parser, rule, result); }
KELAPI void *pz5arlgc(void *parser, size_t entries) { return pz7arlgc(parser, entries); }
KELAPI int32_t pz5arlge(void *parser) { return pz7arlge(parser); }
KELAPI void pz5arlcl(void *parser) { pz7arlcl(parser); }
KELAPI void pz5arlfr(void *parser) { pz7arlfr(parser); }
KELAPI void pz5ctxfr(void *parser) { pz5ctxfr7(parser); }

}  // extern "C"
