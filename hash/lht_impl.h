// lht_impl.h - internals of the hash tables: the size list, the table header,
// the hash kernels and the per-kind traits that the generic core in
// hash/table.cpp is instantiated with.
#ifndef KEL_HASH_LHT_IMPL_H
#define KEL_HASH_LHT_IMPL_H

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "hash/reclaim_impl.h"
#include "lem.h"
#include "lht.h"
#include "sl.h"

namespace lht_internal {

// ------------------------------------------------------------- constants

inline constexpr uint32_t kSizes[26] = {0,       2,       5,       11,       17,       37,      67,
                                        131,     257,     521,     1031,     2053,     4099,    8209,
                                        16411,   32771,   65537,   131101,   262147,   524309,  1048583,
                                        2097169, 4194319, 8388617, 16777259, 33554467};
inline constexpr uint32_t kMinIndex = 3;       // 11 slots: the smallest table
inline constexpr uint32_t kMaxIndex = 25;      // 33554467 slots
inline constexpr uint32_t kDefaultIndex = 9;   // 521 slots, for a request of 0
inline constexpr uint32_t kMaxEntries = LHT_MAX_ENTRIES;
inline constexpr uint32_t kChunkSlots = LHT_CHUNK_SLOTS;
// Slot storage up to this size is taken to stay in the nearer caches: integer
// searches on larger tables read several probes ahead (see search_on).
inline constexpr size_t kCachedBytes = 256 * 1024;
// "No step yet": one above the largest size, so it can never be a real step.
inline constexpr uint32_t kNoStep = 0x2000024;
inline constexpr uint32_t kNoSlot = UINT32_MAX;
// The arbitrary kind's fixed probe coefficients (see LhtArqQuad).
inline constexpr uint32_t kArbB = 14;
inline constexpr uint32_t kArbC = 0;

static_assert(kSizes[kMaxIndex] == kMaxEntries);
static_assert(kNoStep == kSizes[kMaxIndex] + 1);
static_assert(sizeof(LhtIntSlot) == 24 && sizeof(LhtStrSlot) == 24 && sizeof(LhtArbSlot) == 24,
              "the chunk limit assumes 24-byte slots");
static_assert(uint64_t{kChunkSlots} * 24 < (uint64_t{1} << 31), "a chunk must stay below 2 GiB");
static_assert(uint64_t{kChunkSlots} * 24 <= LMM_MAX_REQUEST, "a chunk must fit one heap request");

enum : uint8_t { kEmpty = LHT_SLOT_EMPTY, kDeleted = LHT_SLOT_DELETED, kUsed = LHT_SLOT_USED };

enum class Kind : uint32_t { Int = 0x4C485449, Str = 0x4C485453, Arb = 0x4C485441 };  // "LHTI" "LHTS" "LHTA"

// ---------------------------------------------------------- hash kernels
// Written once here so that the exported functions and the inlined probes
// cannot drift apart. The double arithmetic must not be contracted into
// fused multiply-adds: stored tables depend on the exact rounding, so the
// steps are separate statements and hash/ is compiled with -ffp-contract=off
// (hash/build.cmake).

inline uint32_t inq1(uint32_t k, uint32_t size) noexcept {
  double x = static_cast<double>(k) * 0.6180339887498949;
  double f = x - static_cast<double>(static_cast<int64_t>(x));  // 0 <= x < 2^32: exact truncation
  double y = static_cast<double>(size) * f;  // 0 <= y < size
  return static_cast<uint32_t>(static_cast<int64_t>(y));
}

inline uint32_t inq2(uint32_t k, uint32_t size) noexcept {
  if (size < 2) return 1;
  return (k + 777u) % (size - 1) + 1;
}

// The string fold with its overflow guard: below the threshold h * mul + c
// cannot leave 32 bits by much; above it the fold subtracts (0x7FFFFFFF / h)
// multiples of h first, wrapping as unsigned 32-bit arithmetic does.
//
// The division is the cost of a fold (one per byte past the fourth), and the
// next byte waits for it. (0x7FFFFFFF / h) * h is 0x7FFFFFFF minus the
// remainder, which the same division yields, so the byte adds the remainder
// to h * mul + c - 0x7FFFFFFF (computed meanwhile) instead of waiting for a
// multiplication as well. Same value, bit for bit.
template <uint32_t Mul, uint32_t Limit>
inline uint32_t fold(const char *s) noexcept {
  if (s == nullptr || *s == '\0') return 0;
  auto p = reinterpret_cast<const unsigned char *>(s);
  uint32_t h = *p++;
  for (uint32_t c; (c = *p) != 0; ++p) {
    if (h <= Limit)
      h = h * Mul + c;
    else
      h = (h * Mul + c - 0x7FFFFFFFu) + 0x7FFFFFFFu % h;
  }
  return h;
}
inline uint32_t fold1(const char *s) noexcept { return fold<128, 0xFFFFFF>(s); }
inline uint32_t fold2(const char *s) noexcept { return fold<131, 0xFA232C>(s); }

// ------------------------------------------------------------ status
// One per call: the first failure of the call, recorded once when the call
// ends (outside the table's mutex).
struct Status {
  int32_t code = 0;       // positive status code of the first failure, 0 = none
  int32_t argtype = 0;    // LEM_ARG_NUM / LEM_ARG_TEXT / 0
  int64_t num = 0;
  const char *text = nullptr;
  uint8_t flag = 0;       // 1 once this call has marked the error stack
  bool nested = false;    // a nested call (the memory manager) left records

  int32_t fail(int32_t c) noexcept {
    if (code == 0) code = c;
    return -c;
  }
  int32_t fail_num(int32_t c, int64_t v) noexcept {
    if (code == 0) {
      code = c;
      argtype = LEM_ARG_NUM;
      num = v;
    }
    return -c;
  }
  int32_t fail_text(int32_t c, const char *t) noexcept {
    if (code == 0) {
      code = c;
      argtype = LEM_ARG_TEXT;
      text = t;
    }
    return -c;
  }
};

// ------------------------------------------------------- exact modulus
// a mod d by multiplication (Lemire, Kaser and Kurz): exact for every 32-bit
// a and d >= 1, and several times faster than a division. The probes use it
// for the step, whose divisor is fixed between resizes.
struct Divisor {
  uint32_t d = 1;
  uint64_t m = 0;
  Divisor() = default;
  explicit Divisor(uint32_t div) noexcept : d(div), m(UINT64_MAX / div + 1) {}
  uint32_t mod(uint32_t a) const noexcept {
    uint64_t low = m * a;
    return static_cast<uint32_t>((static_cast<unsigned __int128>(low) * d) >> 64);
  }
};

// --------------------------------------------------------- slot storage
// The slot as the table itself sees it: the public layout, with the padding
// after the state byte holding what outside code never sees.
//
// The check word (integer kind: the key itself; string kind: the raw first
// fold of the key; arbitrary kind: the caller's hash for the current size)
// lets probes pass unequal keys without comparing them and lets a resize of
// a string table skip folding every key again.
//
// The reach and the marks belong to the slot position, not to its entry;
// they describe the entries whose home is this slot:
// - the reach: the most probes any of them needed to be placed (0: none was
//   ever placed from this home, kReachOpen: too many to count). An entry is
//   found on the probe where it was placed, so a search may stop after its
//   home slot's reach, long before the empty slot that ends the path on a
//   nearly full table;
// - the marks: one bit of 16 per entry, chosen by its check word (mark_of).
//   A key whose bit is clear has no entry at this home, so a search can give
//   up after the home slot without taking a step (for a string key, without
//   its second fold).
// Removes leave both as they are (a bound that is too high is still a
// bound); a resize counts afresh.
//
// The state byte, the reach, the marks and the check word make one 64-bit
// tag, state | reach << 8 | marks << 16 | check << 32, that a search reads
// with a single load: (tag & kTagMatch) == used_tag(check) says "occupied by
// a key with this check word" (for the integer kind: by this very key), the
// low byte says empty, and tag_reach() and tag_marks() give the rest.
inline constexpr uint32_t kReachOpen = 255;

template <class KeyT>
struct ISlot {
  KeyT key;
  void *value;
  uint8_t state;
  uint8_t reach;
  uint16_t marks;
  uint32_t check;
};

// Searches read slots while a change writes them, so every access to slot
// storage that searches can see is atomic (plain moves on x86-64). Changes
// store release: a key and value before the tag that says the slot is used.
// Searches load tags relaxed as they walk, and order_loads() before they
// read a key or value behind a tag, and before their last look at the
// table's sequence; keys load acquire, so that the characters of a string
// key are seen as they were written. Slots of storage still being built
// are written plainly; publishing the storage orders those writes.
template <class T>
inline T load_acq(const T &x) noexcept {
  return std::atomic_ref<T>(const_cast<T &>(x)).load(std::memory_order_acquire);
}
template <class T>
inline void store_rel(T &x, T v) noexcept {
  std::atomic_ref<T>(x).store(v, std::memory_order_release);
}

// Orders the loads before it before the loads after it (nothing but a
// compiler barrier on x86-64). ThreadSanitizer does not model fences: what
// it must see ordered, the acquire loads of keys and of the table's fields
// order too.
inline void order_loads() noexcept {
#if defined(__SANITIZE_THREAD__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wtsan"
#endif
  std::atomic_thread_fence(std::memory_order_acquire);
#if defined(__SANITIZE_THREAD__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
}

// The tag word overlays four fields of the slot, hence the aliasing type.
typedef uint64_t TagWord __attribute__((may_alias));

template <class KeyT>
inline const TagWord *tag_word(const ISlot<KeyT> &s) noexcept {
  static_assert(offsetof(ISlot<KeyT>, reach) == offsetof(ISlot<KeyT>, state) + 1);
  static_assert(offsetof(ISlot<KeyT>, marks) == offsetof(ISlot<KeyT>, state) + 2);
  static_assert(offsetof(ISlot<KeyT>, check) == offsetof(ISlot<KeyT>, state) + 4);
  static_assert(offsetof(ISlot<KeyT>, state) % 8 == 0 && sizeof(ISlot<KeyT>) % 8 == 0);
  return reinterpret_cast<const TagWord *>(&s.state);
}
template <class KeyT>
inline uint64_t slot_tag(const ISlot<KeyT> &s) noexcept {
  return __atomic_load_n(tag_word(s), __ATOMIC_RELAXED);
}
template <class KeyT>
inline void set_tag(ISlot<KeyT> &s, uint64_t tag) noexcept {
  __atomic_store_n(const_cast<TagWord *>(tag_word(s)), tag, __ATOMIC_RELEASE);
}
inline constexpr uint64_t kTagMatch = 0xFFFFFFFF000000FFu;  // the check word and the state
inline constexpr uint64_t used_tag(uint32_t check) noexcept { return uint64_t{kUsed} | uint64_t{check} << 32; }
inline constexpr uint32_t tag_reach(uint64_t tag) noexcept { return static_cast<uint8_t>(tag >> 8); }
inline constexpr uint32_t tag_marks(uint64_t tag) noexcept { return static_cast<uint16_t>(tag >> 16); }
inline constexpr uint64_t kTagState = 0xFF;
inline constexpr uint64_t kTagCheck = 0xFFFFFFFF00000000u;

// The mark of a check word. Entries that share a home have check words
// that hash 1 (or the caller's hash) sent to the same slot, so the mark must
// come from bits that hash does not look at the same way: a mix of its own,
// not a multiplication by the golden ratio. Nor the step of hash 2: its low
// bit is fixed by the key's (size - 1 is even), so keys of one parity would
// all share half the marks.
inline constexpr uint16_t mark_of(uint32_t check) noexcept {
  uint32_t x = check * 0x85EBCA6Bu;
  x ^= x >> 15;
  x *= 0xC2B2AE35u;
  return static_cast<uint16_t>(1u << (x >> 28));
}

static_assert(std::endian::native == std::endian::little, "slot tags assume a little-endian layout");

struct Storage {
  void **chunks = nullptr;  // nchunks chunk pointers
  void *first = nullptr;    // chunks[0], one load less on every probe
  uint32_t size = 0;        // slots
  uint32_t per_chunk = 0;   // slots in each chunk but the last
  uint32_t last = 0;        // slots in the last chunk
  uint32_t nchunks = 0;
};

// Storage that a resize replaced while some thread was reading, kept until
// no reader can hold it (see reclaim_impl.h).
struct Retired {
  Storage st;
  uint64_t epoch;  // the epoch the resize advanced from
};
// Retired storage a table keeps at most; a change that finds them all still
// held waits for the readers first (outside the mutex).
inline constexpr uint32_t kRetiredMax = 4;

// ------------------------------------------------------------ the table
// The fields a search reads come first, so that a lookup touches one cache
// line of the header besides its slots.
struct Table {
  Kind kind;
  uint32_t size;          // slots (a copy of st.size, read by the probes)
  Divisor step_div;       // size - 1, the divisor of the integer and string steps
  Storage st;
  // Odd while a change writes what searches read (see table.cpp): a search
  // that saw it move reads again.
  std::atomic<uint64_t> seq;
  // arbitrary kind: the caller's callbacks
  LhtArbHashFn hash;
  LhtArbCmpFn cmp;
  void *uctx;
  // sizes and counts
  uint32_t index;         // position of size in kSizes
  uint32_t count;         // entries
  uint32_t grow_above;    // size - 1: grow when count passes it
  uint32_t shrink_below;  // size / 4: shrink when count drops below it
  uint32_t chunk_limit;   // most slots per chunk (LHT_CHUNK_SLOTS; tests lower it)
  // allocator choice
  void *mctx;
  lmmheap *heap;
  LhtAllocFn alloc;
  LhtFreeFn fre;
  void *actx;
  // error reporting
  lcorectx *ctx;
  void *errh;             // error manager context, or null: report nothing
  lemfac *fac;            // "LHT", registered with errh for the table's life
  // concurrency: the mutex guards insert, remove, resize and the count of
  // open iterations; searches and Yield read without it (see lht.h)
  sltsctx *ts;
  sltsmx mx;
  uint32_t iters;         // open iterations (under mx)
  Retired retired[kRetiredMax];  // under mx
  uint32_t nretired;
};

// Makes a table of any kind; the public Create functions are thin wrappers.
// `chunk_limit` caps the slots of one chunk (tests use small limits to walk
// the multi-chunk paths that real sizes never reach).
Table *create(Kind kind, lcorectx *ctx, void *errh, uint32_t size, const LhtMem *mem, LhtArbHashFn hash,
              LhtArbCmpFn cmp, void *uctx, uint32_t chunk_limit) noexcept;

// The size-list position a creation request selects, or -1 past the maximum.
int32_t index_for_request(uint32_t size) noexcept;

// Records the failure held in `st` (if any) under the table's facility, or,
// without a table, under a facility opened for the purpose.
void report(Table *t, Status &st) noexcept;
void report_detached(void *errh, Status &st) noexcept;

// Allocator of the table, counting nested error records for the mark rule.
void *mem_alloc(Table &t, size_t bytes, Status &st) noexcept;
void mem_free(Table &t, void *p) noexcept;

// Slot storage: make (every slot empty) and free. make returns 0, or -9 with
// the failure in st and nothing allocated.
int32_t storage_make(Table &t, uint32_t size, Storage &out, Status &st) noexcept;
void storage_free(Table &t, Storage &s) noexcept;

// The storage that searches read, with the fields they take from it, loaded
// at once (acquire) or stored at once (release).
struct View {
  void *const *chunks;
  const void *first;
  uint32_t size;
  uint32_t per_chunk;
  uint32_t nchunks;
  Divisor div;
};
inline View view_of(const Table &t) noexcept {
  Divisor d;
  d.d = load_acq(t.step_div.d);
  d.m = load_acq(t.step_div.m);
  return {load_acq(t.st.chunks), load_acq(t.st.first), load_acq(t.size), load_acq(t.st.per_chunk),
          load_acq(t.st.nchunks), d};
}
// Makes `ns` the table's storage, inside a change (under the mutex).
void storage_publish(Table &t, const Storage &ns) noexcept;
// After a change that replaced storage `old`: frees it when no thread reads,
// else keeps it for storage_reclaim. The caller made room (nretired <
// kRetiredMax).
void storage_retire(Table &t, Storage &old) noexcept;
// Frees the retired storage that no reader can hold any more.
void storage_reclaim(Table &t) noexcept;
// Frees every retired storage (the table is idle: Destroy).
void storage_free_retired(Table &t) noexcept;

// A change of what searches read: the table's sequence is odd from begin to
// end. (A scan of the readers made after the end fences first, so that it
// sees every read that could have missed the change; see reclaim_impl.h.)
inline void write_begin(Table &t) noexcept {
  t.seq.store(t.seq.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}
inline void write_end(Table &t) noexcept {
  t.seq.store(t.seq.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

// Accessors for tests.
inline uint32_t table_size(const Table *t) noexcept { return t->size; }
inline uint32_t table_count(const Table *t) noexcept { return t->count; }
inline uint32_t table_chunks(const Table *t) noexcept { return t->st.nchunks; }

}  // namespace lht_internal

// The public handle is the internal header.
struct LhtTable : lht_internal::Table {};

#endif
