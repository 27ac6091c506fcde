// Shared helpers of the hash-table tests: the started library, a counting
// allocator that can be told to fail, and a uniform face over the three kinds
// so that one model test drives them all.
#ifndef KEL_TESTS_HASH_LHT_TEST_UTIL_H
#define KEL_TESTS_HASH_LHT_TEST_UTIL_H

#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_set>

#include "hash/lht_impl.h"
#include "lem.h"
#include "lht.h"
#include "lmm.h"
#include "lpm.h"

namespace lht_test {

// The library, started once for the whole test binary.
inline lcorectx *lib() {
  static lcorectx *ctx = lpminit();
  return ctx;
}

// Allocator callbacks that keep every live block, so that a test can check
// that a table frees all it took, and that fail from a chosen request on.
struct CountingAlloc {
  std::mutex mu;
  std::unordered_set<void *> live;
  int64_t requests = 0;
  int64_t fail_from = -1;  // request number (1-based) from which to fail; -1 never
  int64_t fail_count = 0;  // how many to fail (-1: all)

  static void *alloc(void *self, size_t n) {
    auto *a = static_cast<CountingAlloc *>(self);
    std::lock_guard<std::mutex> g(a->mu);
    ++a->requests;
    if (a->fail_from > 0 && a->requests >= a->fail_from &&
        (a->fail_count < 0 || a->requests < a->fail_from + a->fail_count))
      return nullptr;
    void *p = ::operator new(n);
    a->live.insert(p);
    return p;
  }
  static void free(void *self, void *p) {
    auto *a = static_cast<CountingAlloc *>(self);
    std::lock_guard<std::mutex> g(a->mu);
    if (a->live.erase(p) != 1) ++a->bad_frees;
    ::operator delete(p);
  }
  int64_t bad_frees = 0;
  LhtMem mem() { return LhtMem{nullptr, &CountingAlloc::alloc, &CountingAlloc::free, this}; }
  void fail(int64_t from, int64_t count) {
    std::lock_guard<std::mutex> g(mu);
    requests = 0;
    fail_from = from;
    fail_count = count;
  }
  void heal() { fail(-1, 0); }
  size_t live_blocks() {
    std::lock_guard<std::mutex> g(mu);
    return live.size();
  }
};

enum class AllocKind { System, Callback, Heap };

inline const char *alloc_name(AllocKind a) {
  return a == AllocKind::System ? "system" : a == AllocKind::Callback ? "callback" : "heap";
}

// Arbitrary-kind keys in the tests: NUL-terminated strings compared by
// content, hashed by a simple FNV-1a (any hash will do: the table must be
// right for all of them), or by a constant to force the longest probe paths.
inline uint32_t fnv_hash(const void *key, uint32_t size, void *) {
  uint32_t h = 2166136261u;
  for (auto *p = static_cast<const unsigned char *>(key); *p; ++p) h = (h ^ *p) * 16777619u;
  return h;  // deliberately not reduced: the table takes it modulo size
}
inline uint32_t const_hash(const void *, uint32_t size, void *) { return size / 2; }
inline int32_t str_cmp(const void *a, const void *b, void *) {
  return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

// The three kinds behind one face: key n is the integer n (kInt) or the
// text at s (kStr, and kArb with strings as arbitrary keys).
enum KindIx { kInt, kStr, kArb };
inline const char *kind_name(int k) { return k == kInt ? "int" : k == kStr ? "str" : "arb"; }

inline LhtTable *make(int kind, lcorectx *ctx, uint32_t size, const LhtMem *mem, uint32_t chunk_limit = 0,
                      LhtArbHashFn h = fnv_hash) {
  auto k = kind == kInt ? lht_internal::Kind::Int : kind == kStr ? lht_internal::Kind::Str : lht_internal::Kind::Arb;
  return static_cast<LhtTable *>(lht_internal::create(k, ctx, nullptr, size, mem, kind == kArb ? h : nullptr,
                                                      kind == kArb ? str_cmp : nullptr, nullptr, chunk_limit));
}

struct Kinds {
  int kind;
  LhtTable *t = nullptr;
  int32_t insert(uint32_t n, const char *s, void *v) const {
    return kind == kInt ? LhtIntInsert(t, n, v) : kind == kStr ? LhtStrInsert(t, s, v) : LhtArbInsert(t, s, v);
  }
  int32_t remove(uint32_t n, const char *s, void **v) const {
    return kind == kInt ? LhtIntRemove(t, n, v) : kind == kStr ? LhtStrRemove(t, s, v) : LhtArbRemove(t, s, v);
  }
  int32_t search(uint32_t n, const char *s, void **v) const {
    return kind == kInt ? LhtIntSearch(t, n, v) : kind == kStr ? LhtStrSearch(t, s, v) : LhtArbSearch(t, s, v);
  }
  // The probe function: LHT_FOUND with the slot's value in *v, or LHT_NOTFOUND.
  int32_t probe(uint32_t n, const char *s, uint32_t *slotno, void **v) const {
    LhtIntSlot *is = nullptr;
    LhtStrSlot *ss = nullptr;
    LhtArbSlot *as = nullptr;
    int32_t rc = kind == kInt   ? LhtInqGetIndex(t, n, slotno, &is)
                 : kind == kStr ? LhtStqGetIndex(t, s, slotno, &ss)
                                : LhtArqGetIndex(t, s, slotno, &as);
    if (rc == LHT_FOUND && v != nullptr) *v = is ? is->value : ss ? ss->value : as->value;
    return rc;
  }
  // The next entry of an iteration; the key in *n or *s.
  int32_t yield(uint32_t *n, const char **s, void **v, uint32_t *pos) const {
    if (kind == kInt) return LhtIntYield(t, n, v, pos);
    const void *a = nullptr;
    int32_t rc = kind == kStr ? LhtStrYield(t, s, v, pos) : LhtArbYield(t, &a, v, pos);
    if (kind == kArb) *s = static_cast<const char *>(a);
    return rc;
  }
  int32_t begin() const { return kind == kInt ? LhtIntBeginIter(t) : kind == kStr ? LhtStrBeginIter(t) : LhtArbBeginIter(t); }
  int32_t end() const { return kind == kInt ? LhtIntEndIter(t) : kind == kStr ? LhtStrEndIter(t) : LhtArbEndIter(t); }
  int32_t destroy() const { return kind == kInt ? LhtIntDestroy(t) : kind == kStr ? LhtStrDestroy(t) : LhtArbDestroy(t); }
  int32_t resize(uint32_t ix) const {
    return kind == kInt ? LhtInqResize(t, ix) : kind == kStr ? LhtStqResize(t, ix) : LhtArqResize(t, ix);
  }
};

}  // namespace lht_test

#endif
