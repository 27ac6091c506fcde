// Everything of a table that does not depend on its kind: the allocator
// choice, the chunked slot storage, error reporting, creation and the
// exported allocator functions.
//
// Slot storage is a small array of chunk pointers followed by the chunks,
// each one allocation of at most LHT_CHUNK_SLOTS slots (under 2 GiB), the
// last one holding the remainder. Every slot of fresh storage is empty.
//
// Storage that a resize replaced may still be read by searches on other
// threads; it is retired and freed once no reader can hold it.
//
// Sections: allocator; slot storage; reporting; creation; exported allocator.
#include <new>

#include "hash/lht_impl.h"

namespace lht_internal {

namespace {

// Every kind's slot has the same shape: a word of key, the value, the state.
using RawSlot = ISlot<uint64_t>;
template <class Pub, class KeyT>
constexpr bool same_layout() {
  return sizeof(Pub) == sizeof(ISlot<KeyT>) && offsetof(Pub, key) == offsetof(ISlot<KeyT>, key) &&
         offsetof(Pub, value) == offsetof(ISlot<KeyT>, value) && offsetof(Pub, state) == offsetof(ISlot<KeyT>, state) &&
         offsetof(ISlot<KeyT>, state) == offsetof(RawSlot, state);
}
static_assert(same_layout<LhtIntSlot, uint32_t>() && same_layout<LhtStrSlot, const char *>() &&
              same_layout<LhtArbSlot, const void *>(), "internal and public slots must share their layout");

constexpr int32_t kSeverity = 1;

}  // namespace

// ------------------------------------------------------------- allocator

void *mem_alloc(Table &t, size_t bytes, Status &st) noexcept {
  if (t.heap != nullptr) {
    // The memory manager records its own failure; remember that it did so
    // that this call's record, not the nested one, carries the mark.
    int32_t before = t.errh != nullptr ? lwemnmk(t.errh) : 0;
    void *p = lmmmalloc(t.mctx, t.heap, bytes, 0, "LhtqmAlloc", __LINE__);
    if (p == nullptr && t.errh != nullptr && lwemnmk(t.errh) > before) st.nested = true;
    return p;
  }
  if (t.alloc != nullptr) return t.alloc(t.actx, bytes);
  return ss_mem_alc(bytes);
}

void mem_free(Table &t, void *p) noexcept {
  if (p == nullptr) return;
  if (t.heap != nullptr)
    lmmfree(t.mctx, t.heap, p, 0);
  else if (t.fre != nullptr)
    t.fre(t.actx, p);
  else
    ss_mem_fre(p);
}

// ---------------------------------------------------------- slot storage

int32_t storage_make(Table &t, uint32_t size, Storage &out, Status &st) noexcept {
  uint32_t per = size < t.chunk_limit ? size : t.chunk_limit;
  uint32_t n = (size + per - 1) / per;
  uint32_t last = size - (n - 1) * per;

  size_t arr_bytes = size_t{n} * sizeof(void *);
  auto **arr = static_cast<void **>(mem_alloc(t, arr_bytes, st));
  if (arr == nullptr) return st.fail_num(LHT_ERR_NOMEM, static_cast<int64_t>(arr_bytes));
  for (uint32_t c = 0; c < n; ++c) {
    uint32_t slots = c + 1 == n ? last : per;
    size_t bytes = size_t{slots} * sizeof(RawSlot);
    auto *chunk = static_cast<RawSlot *>(mem_alloc(t, bytes, st));
    if (chunk == nullptr) {
      while (c > 0) mem_free(t, arr[--c]);
      mem_free(t, arr);
      return st.fail_num(LHT_ERR_NOMEM, static_cast<int64_t>(bytes));
    }
    for (uint32_t i = 0; i < slots; ++i) {
      chunk[i].key = 0;
      chunk[i].value = nullptr;
      chunk[i].state = kEmpty;
      chunk[i].reach = 0;
      chunk[i].marks = 0;
      chunk[i].check = 0;
    }
    arr[c] = chunk;
  }
  out.chunks = arr;
  out.first = arr[0];
  out.size = size;
  out.per_chunk = per;
  out.last = last;
  out.nchunks = n;
  return 0;
}

void storage_free(Table &t, Storage &s) noexcept {
  if (s.chunks == nullptr) return;
  for (uint32_t c = 0; c < s.nchunks; ++c) mem_free(t, s.chunks[c]);
  mem_free(t, s.chunks);
  s = Storage{};
}

// Searches read the storage fields while a resize replaces them: the stores
// are atomic, and the table's sequence (odd around them) tells a search that
// it read a mixture.
void storage_publish(Table &t, const Storage &ns) noexcept {
  const Divisor div(ns.size - 1);
  store_rel(t.st.chunks, ns.chunks);
  store_rel(t.st.first, ns.first);
  store_rel(t.st.size, ns.size);
  store_rel(t.st.per_chunk, ns.per_chunk);
  store_rel(t.st.last, ns.last);
  store_rel(t.st.nchunks, ns.nchunks);
  store_rel(t.size, ns.size);
  store_rel(t.step_div.d, div.d);
  store_rel(t.step_div.m, div.m);
}

void storage_retire(Table &t, Storage &old) noexcept {
  // Nobody reading (always so for a table used by one thread): free it now.
  if (readers_idle(nullptr)) {
    storage_free(t, old);
    return;
  }
  t.retired[t.nretired++] = Retired{old, epoch_advance()};
  old = Storage{};
}

void storage_reclaim(Table &t) noexcept {
  if (t.nretired == 0) return;
  const uint64_t oldest = oldest_reading_epoch();
  uint32_t kept = 0;
  for (uint32_t i = 0; i < t.nretired; ++i) {
    if (t.retired[i].epoch < oldest)
      storage_free(t, t.retired[i].st);
    else
      t.retired[kept++] = t.retired[i];
  }
  t.nretired = kept;
}

void storage_free_retired(Table &t) noexcept {
  for (uint32_t i = 0; i < t.nretired; ++i) storage_free(t, t.retired[i].st);
  t.nretired = 0;
}

// ------------------------------------------------------------- reporting

namespace {

void record(void *errh, lemfac *fac, Status &st) noexcept {
  // A nested failure (the memory manager's) marked its own record; the mark
  // belongs to this call's record, which says what failed for the caller.
  if (st.nested && st.flag == 0 && lwemimk(errh, 1) == 1) lemcmk(errh);
  if (st.argtype == LEM_ARG_NUM)
    lemprc(errh, fac, st.code, 0, kSeverity, &st.flag, LEM_ARG_NUM, st.num, LEM_ARG_END);
  else if (st.argtype == LEM_ARG_TEXT)
    lemprc(errh, fac, st.code, 0, kSeverity, &st.flag, LEM_ARG_TEXT, st.text, LEM_ARG_END);
  else
    lemprc(errh, fac, st.code, 0, kSeverity, &st.flag, LEM_ARG_END);
  st.code = 0;  // once per call
}

}  // namespace

void report(Table *t, Status &st) noexcept {
  if (st.code == 0 || t == nullptr || t->errh == nullptr || t->fac == nullptr) return;
  record(t->errh, t->fac, st);
}

void report_detached(void *errh, Status &st) noexcept {
  if (st.code == 0 || errh == nullptr) return;
  lemfac *fac = lemfaa(errh, nullptr, "KELCORE", "LHT", 3, 4);
  if (fac == nullptr) return;
  record(errh, fac, st);
  lemfaf(errh, fac);
}

// -------------------------------------------------------------- creation

Table *create(Kind kind, lcorectx *ctx, void *errh, uint32_t size, const LhtMem *mem, LhtArbHashFn hash,
              LhtArbCmpFn cmp, void *uctx, uint32_t chunk_limit) noexcept {
  Status st;
  void *eh = errh != nullptr ? errh : ctx != nullptr ? ctx->lemctx : nullptr;
  int32_t idx = index_for_request(size);
  if (idx < 0)
    st.fail_num(LHT_ERR_ARG, 3);
  else if (mem != nullptr && mem->heap != nullptr && (ctx == nullptr || ctx->lmmctx == nullptr))
    st.fail_num(LHT_ERR_ARG, 4);
  else if (mem != nullptr && mem->heap == nullptr && (mem->alloc == nullptr) != (mem->free == nullptr))
    st.fail_num(LHT_ERR_ARG, 4);
  else if (kind == Kind::Arb && hash == nullptr)
    st.fail_num(LHT_ERR_ARG, 5);
  else if (kind == Kind::Arb && cmp == nullptr)
    st.fail_num(LHT_ERR_ARG, 6);
  if (st.code != 0) {
    report_detached(eh, st);
    return nullptr;
  }

  void *raw = ss_mem_calc(sizeof(LhtTable));
  if (raw == nullptr) {
    st.fail_num(LHT_ERR_NOMEM, static_cast<int64_t>(sizeof(LhtTable)));
    report_detached(eh, st);
    return nullptr;
  }
  auto *t = new (raw) LhtTable{};
  t->kind = kind;
  if (mem != nullptr && mem->heap != nullptr) {
    t->mctx = ctx->lmmctx;
    t->heap = mem->heap;
  } else if (mem != nullptr && mem->alloc != nullptr) {
    t->alloc = mem->alloc;
    t->fre = mem->free;
    t->actx = mem->actx;
  }
  t->hash = hash;
  t->cmp = cmp;
  t->uctx = uctx;
  t->chunk_limit = chunk_limit != 0 && chunk_limit < kChunkSlots ? chunk_limit : kChunkSlots;
  t->ctx = ctx;
  t->errh = eh;

  t->ts = sltsini();
  if (t->ts == nullptr || sltsmxi(t->ts, &t->mx) != 0) {
    if (t->ts != nullptr) sltster(t->ts);
    ss_mem_fre(t);
    st.fail(LHT_ERR_MUTEX);
    report_detached(eh, st);
    return nullptr;
  }
  if (eh != nullptr) t->fac = lemfaa(eh, nullptr, "KELCORE", "LHT", 3, 4);

  if (storage_make(*t, kSizes[idx], t->st, st) != 0) {
    report(t, st);
    if (t->fac != nullptr) lemfaf(eh, t->fac);
    sltsmxd(t->ts, &t->mx);
    sltster(t->ts);
    ss_mem_fre(t);
    return nullptr;
  }
  t->size = t->st.size;
  t->step_div = Divisor(t->size - 1);
  t->index = static_cast<uint32_t>(idx);
  t->grow_above = t->size - 1;
  t->shrink_below = t->size >> 2;
  return t;
}

}  // namespace lht_internal

using namespace lht_internal;

extern "C" {

KELAPI void *LhtqmAlloc(LhtTable *t, size_t size) {
  if (t == nullptr || size == 0) return nullptr;
  Status st;
  return mem_alloc(*t, size, st);
}

KELAPI void LhtqmFree(LhtTable *t, void *ptr) {
  if (t == nullptr) return;
  mem_free(*t, ptr);
}

}  // extern "C"
