// The hash table core: one implementation of probe, insert, remove, search,
// resize and iteration, instantiated for the three kinds.
//
// Design. A table is open addressing over a prime number of slots taken from
// a fixed list of sizes. A kind is a small traits class that says how a key
// is hashed to its home slot, how the probe steps on from there, and how two
// keys compare; the integer and string kinds step by a second hash computed
// only at the first collision (double hashing), the arbitrary kind by a fixed
// stride of 14 slots. Removed entries leave deleted markers that searches
// walk over and inserts reuse; they disappear when the table is resized. The
// table grows only when an insert leaves it without a free slot and shrinks
// when removes leave it under a quarter full, so a table often runs nearly
// full (1000 keys in 1031 slots): a hit still ends after a few probes, but
// the path to an empty slot is long, `size` probes at worst. Inserts and
// removes walk it; searches stop earlier (below).
// Each slot's padding keeps a check word of its key (see ISlot), so that
// probes pass most unequal string and arbitrary keys without comparing them,
// and, for the entries homed there, their reach and a bit each (marks), so
// that a search stops where the last of them could be instead of walking on
// to an empty slot, and most misses stop at the home slot. The step's
// modulus is a multiplication by a reciprocal fixed at resize.
//
// Changes (insert, remove, resize) run under the table's mutex, which also
// counts the open iterations. Searches, the probe functions and Yield take
// no lock and write nothing shared but their thread's reader record: any
// number of them run at once, and alongside changes. A read sees either the
// table before a change or after it, never a mixture:
// - a change brackets its stores to what readers see with the table's
//   sequence (odd while it writes). A read notes the sequence, loads the
//   storage fields, checks the sequence again before it touches a slot (so
//   that it walks only storage whose size it knows), and once more before
//   it answers; a read that saw the sequence move starts again. After a few
//   tries (a stream of changes) it reads under the mutex, so it always ends;
//   it waits there also when its thread has no reader record;
// - a change writes a slot's key and value before the tag that says the
//   slot is used, and a read loads the tag before them (see load_acq in
//   lht_impl.h), so a key read from a used slot is one that was stored
//   there;
// - a resize builds the new storage aside, while searches go on in the old
//   one, and swaps it in with one short change; the old storage is freed
//   only when no read can still hold it, and a Remove of a string or
//   arbitrary key returns only when no read can still compare against it,
//   so that the caller may free it (both in reclaim_impl.h);
// - an insert that fills the table puts its entry straight into the grown
//   storage, at the place that putting it into the full storage and then
//   growing would give; a failed growth leaves nothing to undo.
// Failures are collected in a per-call Status and recorded once, after the
// mutex is released; a search sets up none.
//
// Sections: kind traits; slot access and probe; search; reads; resize;
// operations (insert, remove, search, iteration, probe, resize, destroy);
// exported functions.
#include <cstring>
#include <type_traits>
#include <utility>

#include "hash/lht_impl.h"

namespace lht_internal {

namespace {

// ------------------------------------------------------------ kind traits
// hash(): the home slot for `size` and the check word kept in the slot.
// rehash(): the same for an entry already in the table (a resize), from its
// key and stored check word.
// step(): the probe step, asked for only at the first collision.
// same(): whether the used slot with tag `tag` holds the key (the check word
// first).

struct Hashed {
  uint32_t home;
  uint32_t check;
};

struct IntKind {
  using Key = uint32_t;
  using Slot = ISlot<uint32_t>;
  using Public = LhtIntSlot;
  static constexpr Kind kKind = Kind::Int;
  static bool valid(Key) noexcept { return true; }
  static Hashed hash(const Table &, Key k, uint32_t size) noexcept { return {inq1(k, size), k}; }
  static Hashed rehash(const Table &t, Key k, uint32_t, uint32_t size) noexcept { return hash(t, k, size); }
  static uint32_t step(const Table &, Key k, const Divisor &d) noexcept { return d.mod(k + 777u) + 1; }
  // The check word of an integer entry is its key.
  static bool same(const Table &, const Slot &, uint64_t tag, Key k, uint32_t) noexcept {
    return static_cast<uint32_t>(tag >> 32) == k;
  }
  static int32_t fail_key(Status &st, int32_t code, Key k) noexcept { return st.fail_num(code, k); }
};

struct StrKind {
  using Key = const char *;
  using Slot = ISlot<const char *>;
  using Public = LhtStrSlot;
  static constexpr Kind kKind = Kind::Str;
  static bool valid(Key k) noexcept { return k != nullptr; }
  static Hashed hash(const Table &, Key k, uint32_t size) noexcept {
    uint32_t h = fold1(k);
    return {inq1(h, size), h};
  }
  static Hashed rehash(const Table &, Key, uint32_t check, uint32_t size) noexcept { return {inq1(check, size), check}; }
  static uint32_t step(const Table &, Key k, const Divisor &d) noexcept { return d.mod(fold2(k) + 777u) + 1; }
  static bool same(const Table &, const Slot &s, uint64_t tag, Key k, uint32_t check) noexcept {
    if (static_cast<uint32_t>(tag >> 32) != check) return false;
    order_loads();
    const char *stored = load_acq(s.key);
    return stored == k || strcmp(stored, k) == 0;
  }
  static int32_t fail_key(Status &st, int32_t code, Key k) noexcept { return st.fail_text(code, k); }
};

struct ArbKind {
  using Key = const void *;
  using Slot = ISlot<const void *>;
  using Public = LhtArbSlot;
  static constexpr Kind kKind = Kind::Arb;
  static bool valid(Key) noexcept { return true; }
  static Hashed hash(const Table &t, Key k, uint32_t size) noexcept {
    uint32_t h = t.hash(k, size, t.uctx);
    return {h < size ? h : h % size, h};
  }
  static Hashed rehash(const Table &t, Key k, uint32_t, uint32_t size) noexcept { return hash(t, k, size); }
  // Probe n looks at home + LhtArqQuad(n, 14, 0) = home + 14n, so each move
  // adds 14 (mod size); d.d + 1 is the size.
  static uint32_t step(const Divisor &d) noexcept {
    uint32_t size = d.d + 1;
    return (kArbB + kArbC) < size ? kArbB + kArbC : (kArbB + kArbC) % size;
  }
  static uint32_t step(const Table &, Key, const Divisor &d) noexcept { return step(d); }
  static bool same(const Table &t, const Slot &s, uint64_t tag, Key k, uint32_t check) noexcept {
    if (static_cast<uint32_t>(tag >> 32) != check) return false;
    order_loads();
    return t.cmp(load_acq(s.key), k, t.uctx) == 0;
  }
  static int32_t fail_key(Status &st, int32_t code, Key k) noexcept {
    return st.fail_num(code, static_cast<int64_t>(reinterpret_cast<uintptr_t>(k)));
  }
};

// -------------------------------------------------- slot access and probe

template <class Slot>
inline Slot *slot_at(const View &v, uint32_t i) noexcept {
  // Real tables have one chunk, so the first test settles nearly every access.
  if (__builtin_expect(i < v.per_chunk, 1)) return static_cast<Slot *>(const_cast<void *>(v.first)) + i;
  return static_cast<Slot *>(v.chunks[i / v.per_chunk]) + i % v.per_chunk;
}

struct Probe {
  bool found;
  uint32_t slot;   // the key's slot, or where it would go (kNoSlot: nowhere)
  uint32_t check;  // the key's check word, for a slot about to be filled
  uint32_t home;   // the key's home slot
  uint32_t n;      // which probe of the path `slot` is (0: the home slot)
};

// Records at its home slot (see ISlot) that an entry with check word `check`
// sits on probe n of its path: the reach becomes at least n + 1, and the
// entry's mark is set. The home slot's tag is written whole, as searches
// read it.
template <class Slot>
inline void note_homed(const View &v, uint32_t home, uint32_t n, uint32_t check) noexcept {
  Slot *h = slot_at<Slot>(v, home);
  const uint64_t tag = slot_tag(*h);
  uint32_t need = n < kReachOpen ? n + 1 : kReachOpen;
  uint32_t reach = tag_reach(tag) < need ? need : tag_reach(tag);
  uint32_t marks = tag_marks(tag) | mark_of(check);
  uint64_t next = (tag & ~uint64_t{0xFFFFFF00}) | uint64_t{reach} << 8 | uint64_t{marks} << 16;
  if (next != tag) set_tag(*h, next);
}

// Fills the empty or deleted slot s (key and value first, then the tag that
// says it is used: a search that sees the tag sees them).
template <class Slot, class Key>
inline void fill(Slot &s, Key key, void *value, uint32_t check) noexcept {
  store_rel(s.key, key);
  store_rel(s.value, value);
  set_tag(s, (slot_tag(s) & ~(kTagState | kTagCheck)) | used_tag(check));
}

template <class K>
Probe probe(const Table &t, const View &v, typename K::Key key) noexcept {
  const uint32_t size = v.size;
  const Hashed h = K::hash(t, key, size);
  uint32_t i = h.home;
  uint32_t step = kNoStep;
  uint32_t first_deleted = kNoSlot, deleted_n = 0;
  for (uint32_t n = 0; n < size; ++n) {
    const auto *slot = slot_at<typename K::Slot>(v, i);
    const uint64_t tag = slot_tag(*slot);
    const uint8_t state = static_cast<uint8_t>(tag);
    if (state == kEmpty) {
      if (first_deleted != kNoSlot) return {false, first_deleted, h.check, h.home, deleted_n};
      return {false, i, h.check, h.home, n};
    }
    if (state == kDeleted) {
      if (first_deleted == kNoSlot) {
        first_deleted = i;
        deleted_n = n;
      }
    } else if (K::same(t, *slot, tag, key, h.check)) {
      return {true, i, h.check, h.home, n};
    }
    if (step == kNoStep) step = K::step(t, key, v.div);
    i += step;  // i, step < size: one subtraction is the modulus
    if (i >= size) i -= size;
  }
  return {false, first_deleted, h.check, h.home, deleted_n};
}

// ------------------------------------------------------------------ search
// The read-only walk of Search: the same path as probe() (the hashes and
// steps are part of the stored format), minus what only a change needs. It
// tracks no deleted slot, computes the home slot once and the step only at
// the first collision, reads each slot's state, reach and check word as one
// tag (see ISlot), stops after the home slot's reach, or at the home slot
// when the key's mark is missing there, and indexes one-chunk storage (every
// real size) with no division; the chunk arithmetic is paid only by
// multi-chunk storage.
//
// The reach and the marks are what keep misses short: a table grows only
// when full, so at 97% load the path to an empty slot is some 33 probes
// long, while the entries homed at one slot were nearly all placed within a
// few probes, about a third of the homes have none (reach 0), and most of
// the rest have one or two, whose marks a missing key seldom shares: more
// than nine misses in ten end at the home slot.
//
// A Finder holds the hashed key: its home slot, the tag of a slot holding a
// key with its check word, step(), match(), which confirms a slot whose tag
// is that one, and whether the walk past its home slot is kept out of line
// (see search_int_walk).

struct IntFinder {
  using Slot = ISlot<uint32_t>;
  uint32_t key;
  uint32_t home;
  uint64_t tag;  // the check word of an integer slot is its key: the tag decides
  static constexpr bool kWalkApart = true;
  explicit IntFinder(uint32_t k) noexcept : key(k), home(0), tag(used_tag(k)) {}
  IntFinder(const Table &, uint32_t size, uint32_t k) noexcept : key(k), home(inq1(k, size)), tag(used_tag(k)) {}
  uint32_t step(const View &v) const noexcept { return v.div.mod(key + 777u) + 1; }
  static constexpr bool match(const Table &, const Slot &) noexcept { return true; }
};

struct StrFinder {
  using Slot = ISlot<const char *>;
  const char *key;
  uint32_t home;
  uint64_t tag;  // with the raw first fold as check word
  static constexpr bool kWalkApart = false;
  StrFinder(const Table &, uint32_t size, const char *k) noexcept : key(k) {
    uint32_t check = fold1(k);
    home = inq1(check, size);
    tag = used_tag(check);
  }
  uint32_t step(const View &v) const noexcept { return v.div.mod(fold2(key) + 777u) + 1; }
  // Equal folds nearly always mean equal keys; the first byte and strcmp
  // make sure.
  bool match(const Table &, const Slot &s) const noexcept {
    order_loads();
    const char *stored = load_acq(s.key);
    return stored == key || (stored[0] == key[0] && strcmp(stored, key) == 0);
  }
};

struct ArbFinder {
  using Slot = ISlot<const void *>;
  const void *key;
  uint32_t home;
  uint64_t tag;  // with the caller's hash as check word
  static constexpr bool kWalkApart = false;
  ArbFinder(const Table &t, uint32_t size, const void *k) noexcept : key(k) {
    uint32_t h = t.hash(k, size, t.uctx);
    home = h < size ? h : h % size;
    tag = used_tag(h);
  }
  uint32_t step(const View &v) const noexcept { return ArbKind::step(v.div); }
  bool match(const Table &t, const Slot &s) const noexcept {
    order_loads();
    return t.cmp(load_acq(s.key), key, t.uctx) == 0;
  }
};
template <class K> struct FinderOf;
template <> struct FinderOf<IntKind> { using type = IntFinder; };
template <> struct FinderOf<StrKind> { using type = StrFinder; };
template <> struct FinderOf<ArbKind> { using type = ArbFinder; };

// The path home, home + step, home + 2 step ... (mod size) visits every slot
// once before it returns home: sizes are primes and 0 < step < size. So a
// walk of `size` probes, the most it may make, never looks at a slot twice.
constexpr bool sizes_are_odd_primes() {
  for (uint32_t ix = kMinIndex; ix <= kMaxIndex; ++ix) {
    uint32_t n = kSizes[ix];
    if (n % 2 == 0 || (kArbB + kArbC) % n == 0) return false;
    for (uint32_t d = 3; d * d <= n; d += 2)
      if (n % d == 0) return false;
  }
  return true;
}
static_assert(sizes_are_odd_primes(), "the walks cover every slot once, the stride of 14 too");

// Past a home slot that did not match, with tag `home_tag` and a reach past
// it: whether the key's mark is there, and then the key's step. Worked out
// only once the home slot has not matched, so a hit at home pays for
// neither; a string key's step (its second fold) only once its mark is
// found.
template <class F>
inline bool marked(const F &f, uint64_t home_tag) noexcept {
  return (tag_marks(home_tag) & mark_of(static_cast<uint32_t>(f.tag >> 32))) != 0;
}
template <class F>
inline bool step_if_marked(const View &v, const F &f, uint64_t home_tag, uint32_t &step) noexcept {
  if (!marked(f, home_tag)) return false;
  step = f.step(v);
  return true;
}

// How many probes after the home slot a search makes at most: the reach
// says how far entries of this home went, an open reach means "to the first
// empty slot", and no walk goes beyond `size` probes.
inline uint32_t probes_after_home(uint32_t reach, uint32_t size) noexcept {
  return reach < kReachOpen ? reach - 1 : size - 1;
}

// One chunk, every real table: the walk past the home slot (at `at`, with
// tag `home_tag`, which did not match) steps byte addresses through the
// chunk, wrapping by one subtraction. Returns the key's slot or null.
//
// With ReadAhead (integer keys on a table larger than the nearer caches, see
// find()), a hit that is not at home is mostly within the next three
// probes: their slots are fetched at once, each from memory, and compared
// without branches, rather than one trip to memory after another. The tag
// of an integer slot holds the key itself, and a key is never further along
// its path than its home's reach or an empty slot, so a match among the
// slots read ahead is the answer. On a small table the slots are at hand and
// the plain walk is quicker.
template <bool ReadAhead, class F>
inline const typename F::Slot *search_on(const Table &t, const View &v, const F &f, uintptr_t at,
                                         uint64_t home_tag) noexcept {
  using Slot = typename F::Slot;
  uint32_t step;
  if (!step_if_marked(v, f, home_tag, step)) return nullptr;
  const auto base = reinterpret_cast<uintptr_t>(v.first);
  const uintptr_t span = uintptr_t{v.size} * sizeof(Slot);
  const uintptr_t end = base + span;
  const uintptr_t stride = uintptr_t{step} * sizeof(Slot);
  auto next = [&](uintptr_t a) {
    a += stride;
    return a >= end ? a - span : a;
  };
  uint32_t left = probes_after_home(tag_reach(home_tag), v.size);
  if constexpr (ReadAhead) {
    static_assert(std::is_same_v<F, IntFinder>, "only an integer tag decides a match by itself");
    auto tag_at = [](uintptr_t a) { return slot_tag(*reinterpret_cast<const Slot *>(a)); };
    const uintptr_t a1 = next(at), a2 = next(a1), a3 = next(a2);
    const uint64_t t1 = tag_at(a1), t2 = tag_at(a2), t3 = tag_at(a3);
    uintptr_t hit = (t3 & kTagMatch) == f.tag ? a3 : 0;
    hit = (t2 & kTagMatch) == f.tag ? a2 : hit;
    hit = (t1 & kTagMatch) == f.tag ? a1 : hit;
    if (hit != 0) return reinterpret_cast<const Slot *>(hit);
    if (left <= 3 || static_cast<uint8_t>(t1) == kEmpty || static_cast<uint8_t>(t2) == kEmpty ||
        static_cast<uint8_t>(t3) == kEmpty)
      return nullptr;
    left -= 3;
    at = a3;
  }
  do {
    at = next(at);
    const Slot *s = reinterpret_cast<const Slot *>(at);
    const uint64_t tag = slot_tag(*s);
    if ((tag & kTagMatch) == f.tag && f.match(t, *s)) return s;
    if (static_cast<uint8_t>(tag) == kEmpty) return nullptr;
  } while (--left != 0);
  return nullptr;
}

// A search of one-chunk storage: the home slot, then the walk.
template <class F>
inline const typename F::Slot *search_one(const Table &t, const View &v, const F &f) noexcept {
  using Slot = typename F::Slot;
  const uintptr_t at = reinterpret_cast<uintptr_t>(v.first) + uintptr_t{f.home} * sizeof(Slot);
  const Slot *s = reinterpret_cast<const Slot *>(at);
  const uint64_t tag = slot_tag(*s);
  if ((tag & kTagMatch) == f.tag && f.match(t, *s)) return s;
  if (tag_reach(tag) <= 1) return nullptr;  // an empty home has reach 0
  if constexpr (std::is_same_v<F, IntFinder>)
    if (size_t{v.size} * sizeof(Slot) > kCachedBytes) return search_on<true>(t, v, f, at, tag);
  return search_on<false>(t, v, f, at, tag);
}

// Several chunks (only tests make them): slot i is found by division.
template <class F>
const typename F::Slot *walk_many(const Table &t, const View &v, const F &f) noexcept {
  using Slot = typename F::Slot;
  auto at = [&v](uint32_t i) {
    return static_cast<const Slot *>(v.chunks[i / v.per_chunk]) + i % v.per_chunk;
  };
  const uint32_t size = v.size;
  const Slot *s = at(f.home);
  uint64_t tag = slot_tag(*s);
  const uint32_t reach = tag_reach(tag);
  uint32_t step;
  if ((tag & kTagMatch) == f.tag && f.match(t, *s)) return s;
  if (reach <= 1 || !step_if_marked(v, f, tag, step)) return nullptr;  // an empty home has reach 0
  uint32_t left = probes_after_home(reach, size);
  for (uint32_t i = f.home; left != 0; --left) {
    i += step;  // i, step < size: one subtraction is the modulus
    if (i >= size) i -= size;
    s = at(i);
    tag = slot_tag(*s);
    if ((tag & kTagMatch) == f.tag && f.match(t, *s)) return s;
    if (static_cast<uint8_t>(tag) == kEmpty) return nullptr;
  }
  return nullptr;
}

// The key's slot in the storage `v`, or null.
template <class K>
const typename K::Slot *find(const Table &t, const View &v, typename K::Key key) noexcept {
  using F = typename FinderOf<K>::type;
  static_assert(std::is_same_v<typename F::Slot, typename K::Slot>);
  const F f(t, v.size, key);
  return v.nchunks == 1 ? search_one(t, v, f) : walk_many(t, v, f);
}

// ------------------------------------------------------------------- reads
// Searches, probes and Yield read through read(): a read announced to the
// reclamation (so that no storage it may reach is freed under it), run on a
// view of the storage taken between two looks at the table's sequence, and
// repeated when a change overlapped it (see the top of the file). `fn` only
// reads and returns its whole answer; the caller writes the outputs.

class Locked {
 public:
  explicit Locked(Table &t) noexcept : t_(t) { sltsmna(t_.ts, &t_.mx); }
  ~Locked() { sltsmnr(t_.ts, &t_.mx); }
  Locked(const Locked &) = delete;
  Locked &operator=(const Locked &) = delete;

 private:
  Table &t_;
};

// Lock-free tries before a read waits for the mutex: each failed one means
// that a change ran meanwhile, so several in a row mean a stream of them.
// (No change waits for readers while it holds the mutex, so a read inside
// another one, from a callback, may wait for it too.)
constexpr int kReadTries = 8;

template <class Fn>
inline auto read(Table &t, Fn fn) noexcept -> decltype(fn(std::declval<const View &>())) {
  {
    ReadSection rs;
    if (__builtin_expect(rs.ok(), 1)) {
      for (int tries = 1;; ++tries) {
        const uint64_t seq = t.seq.load(std::memory_order_seq_cst);
        const View v = view_of(t);
        // The view is of one storage only if no change ran while it was
        // loaded; only then may the walk trust its size.
        if (__builtin_expect((seq & 1) == 0 && t.seq.load(std::memory_order_acquire) == seq, 1)) {
          auto answer = fn(v);
          order_loads();
          if (__builtin_expect(t.seq.load(std::memory_order_acquire) == seq, 1)) return answer;
        }
        if (tries == kReadTries) break;
      }
    }
  }
  Locked lock(t);
  return fn(view_of(t));
}

// ------------------------------------------------------------------ resize

// An entry that an insert puts straight into the grown storage: it takes the
// place of old slot `slot` (empty or deleted there) in the move.
template <class K>
struct Pending {
  uint32_t slot;
  typename K::Key key;
  void *value;
  uint32_t check;
};

// Moves every entry (and `extra`, if any) into fresh storage of size
// kSizes[index], then swaps it in with one short change and retires the old
// storage. The new storage holds no deleted slots and no equal keys, so each
// entry goes to the first empty slot of its probe path. Searches go on in
// the old storage meanwhile: nothing else writes it (the mutex). On failure
// the table is untouched.
template <class K>
int32_t resize_locked(Table &t, uint32_t index, Status &st, const Pending<K> *extra = nullptr) noexcept {
  using Slot = typename K::Slot;
  // Only a change made from inside a read on this thread (a callback that
  // changes a table) finds no room: it cannot wait for its own read.
  if (t.nretired == kRetiredMax)
    return st.fail_num(LHT_ERR_NOMEM, static_cast<int64_t>(size_t{kSizes[index]} * sizeof(Slot)));
  Storage ns;
  if (storage_make(t, kSizes[index], ns, st) != 0) return -LHT_ERR_NOMEM;
  const View nv{ns.chunks, ns.first, ns.size, ns.per_chunk, ns.nchunks, Divisor(ns.size - 1)};
  const uint32_t size = ns.size;
  const Storage &os = t.st;
  for (uint32_t c = 0; c < os.nchunks; ++c) {
    const auto *chunk = static_cast<const Slot *>(os.chunks[c]);
    uint32_t n = c + 1 == os.nchunks ? os.last : os.per_chunk;
    for (uint32_t j = 0; j < n; ++j) {
      typename K::Key key;
      void *value;
      uint32_t check;
      if (chunk[j].state == kUsed) {
        key = chunk[j].key;
        value = chunk[j].value;
        check = chunk[j].check;
      } else if (extra != nullptr && c * os.per_chunk + j == extra->slot) {
        key = extra->key;
        value = extra->value;
        check = extra->check;
      } else {
        continue;
      }
      Hashed h = K::rehash(t, key, check, size);
      uint32_t i = h.home, probes = 0;
      Slot *dst = slot_at<Slot>(nv, i);
      if (dst->state != kEmpty) {
        uint32_t step = K::step(t, key, nv.div);
        do {
          i += step;
          if (i >= size) i -= size;
          dst = slot_at<Slot>(nv, i);
          ++probes;
        } while (dst->state != kEmpty);
      }
      fill(*dst, key, value, h.check);
      note_homed<Slot>(nv, h.home, probes, h.check);
    }
  }
  Storage old = t.st;
  write_begin(t);
  storage_publish(t, ns);
  write_end(t);
  storage_retire(t, old);
  t.index = index;
  t.grow_above = size - 1;
  t.shrink_below = size >> 2;
  return LHT_OK;
}

// -------------------------------------------------------------- operations

template <class K>
inline bool is(const LhtTable *t) noexcept {
  return t != nullptr && t->kind == K::kKind;
}

// Whether the calling thread is inside a read (a callback of a search).
inline bool reading() noexcept {
  const Reader *r = tl_reader;
  return r != nullptr && r->epoch.load(std::memory_order_relaxed) != 0;
}

// The mutex, for a change. First frees the retired storage no reader holds
// any more; when all the room for retired storage is still held, waits for
// those readers without the mutex (they may need it to finish).
class ChangeLock {
 public:
  explicit ChangeLock(Table &t) noexcept : t_(t) {
    sltsmna(t_.ts, &t_.mx);
    if (t_.nretired != 0) storage_reclaim(t_);
    while (t_.nretired == kRetiredMax && !reading()) {
      const uint64_t newest = t_.retired[kRetiredMax - 1].epoch;
      sltsmnr(t_.ts, &t_.mx);
      wait_readers_past(newest, nullptr);
      sltsmna(t_.ts, &t_.mx);
      storage_reclaim(t_);
    }
  }
  ~ChangeLock() { sltsmnr(t_.ts, &t_.mx); }
  ChangeLock(const ChangeLock &) = delete;
  ChangeLock &operator=(const ChangeLock &) = delete;

 private:
  Table &t_;
};

template <class K>
int32_t insert_locked(Table &t, typename K::Key key, void *value, Status &st) noexcept {
  if (t.iters != 0) return st.fail(LHT_ERR_ITER);
  if (t.count >= kMaxEntries) return st.fail_num(LHT_ERR_FULL, kMaxEntries);
  const View v = view_of(t);
  Probe p = probe<K>(t, v, key);
  if (p.found) return K::fail_key(st, LHT_ERR_DUP, key);
  if (p.slot == kNoSlot) return st.fail_num(LHT_ERR_FULL, t.count);  // a table is never left without a free slot
  if (t.count + 1 > t.grow_above && t.index < kMaxIndex) {
    // The entry fills the table: it goes straight into the grown storage.
    // Without memory for it the table stays as it was.
    const Pending<K> entry{p.slot, key, value, p.check};
    int32_t rc = resize_locked<K>(t, t.index + 1, st, &entry);
    if (rc < 0) return rc;
  } else {
    write_begin(t);
    fill(*slot_at<typename K::Slot>(v, p.slot), key, value, p.check);
    note_homed<typename K::Slot>(v, p.home, p.n, p.check);
    write_end(t);
  }
  ++t.count;
  return LHT_OK;
}

// A change of the table: the key checked, the change made under the mutex,
// and its record (if any) made after the mutex is released.
template <class K, class Change>
int32_t change(LhtTable *t, typename K::Key key, Change fn) noexcept {
  if (!is<K>(t)) return -LHT_ERR_ARG;
  Status st;
  int32_t rc;
  if (!K::valid(key)) {
    rc = st.fail_num(LHT_ERR_ARG, 2);
  } else {
    ChangeLock lock(*t);
    rc = fn(*t, st);
  }
  report(t, st);
  return rc;
}

template <class K>
int32_t insert(LhtTable *t, typename K::Key key, void *value) noexcept {
  return change<K>(t, key, [&](Table &tb, Status &st) { return insert_locked<K>(tb, key, value, st); });
}

template <class K>
int32_t remove_locked(Table &t, typename K::Key key, void **value, Status &st) noexcept {
  if (t.iters != 0) return st.fail(LHT_ERR_ITER);
  if (t.count == 0) return K::fail_key(st, LHT_ERR_NOKEY, key);
  const View v = view_of(t);
  Probe p = probe<K>(t, v, key);
  if (!p.found) return K::fail_key(st, LHT_ERR_NOKEY, key);
  auto *slot = slot_at<typename K::Slot>(v, p.slot);
  void *was = slot->value;
  write_begin(t);
  set_tag(*slot, (slot_tag(*slot) & ~kTagState) | kDeleted);
  write_end(t);
  if (value != nullptr) *value = was;
  --t.count;
  if (t.count < t.shrink_below && t.index > kMinIndex) {
    // Shrinking only saves memory: without memory for it, try another time.
    Status quiet;
    resize_locked<K>(t, t.index - 1, quiet);
  }
  return LHT_OK;
}

template <class K>
int32_t remove(LhtTable *t, typename K::Key key, void **value) noexcept {
  int32_t rc = change<K>(t, key, [&](Table &tb, Status &st) { return remove_locked<K>(tb, key, value, st); });
  // The caller may free a string or arbitrary key once it is out of the
  // table; searches that began before may still be comparing against it.
  if constexpr (!std::is_same_v<K, IntKind>)
    if (rc == LHT_OK) wait_for_readers();
  return rc;
}

// A null string key: the one failure of a search worth a record. Kept out
// of line so that the search itself sets up no status.
[[gnu::noinline, gnu::cold]] int32_t search_bad_key(LhtTable *t) noexcept {
  Status st;
  int32_t rc = st.fail_num(LHT_ERR_ARG, 2);
  report(t, st);
  return rc;
}

// A miss is an answer, not a failure: nothing is recorded.
template <class Slot>
inline int32_t answer(const Slot *s, void *found, void **value) noexcept {
  if (s == nullptr) return -LHT_ERR_NOKEY;
  if (value != nullptr) *value = found;
  return LHT_OK;
}

// Every search the quick way below does not end: read() with its tries and
// its mutex.
template <class K>
[[gnu::noinline]] int32_t search_slow(LhtTable *t, typename K::Key key, void **value) noexcept {
  using Slot = typename K::Slot;
  struct Found {
    const Slot *slot;
    void *value;
  };
  const Found f = read(*t, [&](const View &v) {
    const Slot *s = find<K>(*t, v, key);
    order_loads();
    return Found{s, s != nullptr ? load_acq(s->value) : nullptr};
  });
  return answer(f.slot, f.value, value);
}

// The quick way is one try of read(), written out so that what follows a
// search at its home slot is a few loads: a thread with a reader record, not
// inside another read, on one-chunk storage (every real table).
//
// Its end: the answer found in slot s (or none) when no change overlapped
// the search since the table's sequence read `seq`, else the slow way.
template <class K>
inline int32_t search_end(const Table &t, Reader *r, typename K::Key key, uint64_t seq, const typename K::Slot *s,
                          void **value) noexcept {
  order_loads();
  void *found = s != nullptr ? load_acq(s->value) : nullptr;
  const bool same = t.seq.load(std::memory_order_acquire) == seq;
  r->epoch.store(0, std::memory_order_release);
  if (__builtin_expect(same, 1)) return answer(s, found, value);
  return search_slow<K>(const_cast<LhtTable *>(static_cast<const LhtTable *>(&t)), key, value);
}

// The walk past the home slot (at `at`, tag `home_tag`), with the storage
// fields loaded again: a change may have replaced them since `seq`.
template <class K>
inline int32_t search_walk(const Table &t, const typename FinderOf<K>::type &f, uintptr_t at, uint64_t home_tag,
                           uint64_t seq, void **value) noexcept {
  using Slot = typename K::Slot;
  const View v = view_of(t);
  const Slot *s = nullptr;
  if (__builtin_expect(t.seq.load(std::memory_order_acquire) == seq, 1)) {
    if constexpr (std::is_same_v<K, IntKind>)
      s = size_t{v.size} * sizeof(Slot) > kCachedBytes ? search_on<true>(t, v, f, at, home_tag)
                                                       : search_on<false>(t, v, f, at, home_tag);
    else
      s = search_on<false>(t, v, f, at, home_tag);
  }
  return search_end<K>(t, tl_reader, f.key, seq, s, value);
}

// The same out of line, entered by a tail call, for integer keys: a search
// that ends at the home slot, a hit there or a miss, then needs no more
// registers than its arguments and saves none. (A string search spends its
// time folding the key; there the call would only cost.)
[[gnu::noinline]] int32_t search_int_walk(const Table &t, uint32_t key, uintptr_t at, uint64_t home_tag, uint64_t seq,
                                          void **value) noexcept {
  return search_walk<IntKind>(t, IntFinder(key), at, home_tag, seq, value);
}

template <class K>
int32_t search(LhtTable *t, typename K::Key key, void **value) noexcept {
  using Slot = typename K::Slot;
  using F = typename FinderOf<K>::type;
  if (!is<K>(t)) return -LHT_ERR_ARG;
  if (__builtin_expect(!K::valid(key), 0)) return search_bad_key(t);
  Reader *const r = tl_reader;
  if (__builtin_expect(r == nullptr || r->epoch.load(std::memory_order_relaxed) != 0, 0))
    return search_slow<K>(t, key, value);
  r->epoch.store(g_epoch.load(std::memory_order_acquire), std::memory_order_seq_cst);
  const uint64_t seq = t->seq.load(std::memory_order_seq_cst);
  const void *first = load_acq(t->st.first);
  const uint32_t size = load_acq(t->size);
  const uint32_t nchunks = load_acq(t->st.nchunks);
  // The home slot is in this storage only if no change ran meanwhile.
  if (__builtin_expect(nchunks != 1 || (seq & 1) != 0 || t->seq.load(std::memory_order_acquire) != seq, 0)) {
    r->epoch.store(0, std::memory_order_release);
    return search_slow<K>(t, key, value);
  }
  const F f(*t, size, key);
  const uintptr_t at = reinterpret_cast<uintptr_t>(first) + uintptr_t{f.home} * sizeof(Slot);
  const Slot *s = reinterpret_cast<const Slot *>(at);
  const uint64_t tag = slot_tag(*s);
  if ((tag & kTagMatch) == f.tag && f.match(*t, *s)) return search_end<K>(*t, r, key, seq, s, value);
  // An empty home has reach 0; most other misses lack their mark.
  if (tag_reach(tag) <= 1 || !marked(f, tag)) return search_end<K>(*t, r, key, seq, nullptr, value);
  if constexpr (F::kWalkApart)
    return search_int_walk(*t, key, at, tag, seq, value);
  else
    return search_walk<K>(*t, f, at, tag, seq, value);
}

template <class K>
int32_t begin_iter(LhtTable *t) noexcept {
  if (!is<K>(t)) return -LHT_ERR_ARG;
  Locked lock(*t);
  ++t->iters;
  return 0;
}

template <class K>
int32_t end_iter(LhtTable *t) noexcept {
  if (!is<K>(t)) return -LHT_ERR_ARG;
  Status st;
  int32_t rc = LHT_OK;
  {
    Locked lock(*t);
    if (t->iters == 0)
      rc = st.fail_num(LHT_ERR_ARG, 1);
    else
      --t->iters;
  }
  report(t, st);
  return rc;
}

// The entry at or after slot `from` of storage `v`: the slot after it
// (0: none), its key and value.
template <class K>
struct Next {
  uint32_t at;
  typename K::Key key;
  void *value;
};

template <class K>
inline Next<K> next_entry(const View &v, uint32_t from) noexcept {
  using Slot = typename K::Slot;
  if (from >= v.size) return {0, {}, nullptr};
  // One chunk (every real table): no division.
  if (__builtin_expect(v.nchunks == 1, 1)) {
    const auto *slots = static_cast<const Slot *>(v.first);
    for (uint32_t j = from; j < v.size; ++j)
      if (static_cast<uint8_t>(slot_tag(slots[j])) == kUsed) {
        order_loads();
        return {j + 1, load_acq(slots[j].key), load_acq(slots[j].value)};
      }
    return {0, {}, nullptr};
  }
  const uint32_t last = v.size - (v.nchunks - 1) * v.per_chunk;
  // Walk the rest of from's chunk, then the following chunks.
  for (uint32_t c = from / v.per_chunk, j = from % v.per_chunk; c < v.nchunks; ++c, j = 0) {
    const auto *chunk = static_cast<const Slot *>(v.chunks[c]);
    uint32_t n = c + 1 == v.nchunks ? last : v.per_chunk;
    for (; j < n; ++j)
      if (static_cast<uint8_t>(slot_tag(chunk[j])) == kUsed) {
        order_loads();
        return {c * v.per_chunk + j + 1, load_acq(chunk[j].key), load_acq(chunk[j].value)};
      }
  }
  return {0, {}, nullptr};
}

template <class K>
int32_t yield(LhtTable *t, typename K::Key *key, void **value, uint32_t *pos) noexcept {
  if (!is<K>(t)) return -LHT_ERR_ARG;
  if (key == nullptr || pos == nullptr) {
    Status st;
    int32_t rc = st.fail_num(LHT_ERR_ARG, key == nullptr ? 2 : 4);
    report(t, st);
    return rc;
  }
  // While an iteration is open nothing changes, so the quick way (one try
  // of read(), as in search()) nearly always ends it; a Yield outside an
  // iteration still reads one consistent table.
  const uint32_t from = *pos;
  Next<K> next;
  Reader *const r = tl_reader;
  bool done = false;
  if (__builtin_expect(r != nullptr && r->epoch.load(std::memory_order_relaxed) == 0, 1)) {
    r->epoch.store(g_epoch.load(std::memory_order_acquire), std::memory_order_seq_cst);
    const uint64_t seq = t->seq.load(std::memory_order_seq_cst);
    const View v = view_of(*t);
    if (__builtin_expect((seq & 1) == 0 && t->seq.load(std::memory_order_acquire) == seq, 1)) {
      next = next_entry<K>(v, from);
      order_loads();
      done = t->seq.load(std::memory_order_acquire) == seq;
    }
    r->epoch.store(0, std::memory_order_release);
  }
  if (__builtin_expect(!done, 0)) next = read(*t, [&](const View &v) { return next_entry<K>(v, from); });
  if (next.at == 0) return -LHT_ERR_END;
  *key = next.key;
  if (value != nullptr) *value = next.value;
  *pos = next.at;
  return LHT_OK;
}

template <class K>
int32_t get_index(LhtTable *t, typename K::Key key, uint32_t *slotno, typename K::Public **slot) noexcept {
  if (!is<K>(t) || !K::valid(key)) return -LHT_ERR_ARG;
  struct Where {
    Probe p;
    typename K::Public *slot;
  };
  const Where w = read(*t, [&](const View &v) {
    Probe p = probe<K>(*t, v, key);
    auto *at = p.slot == kNoSlot ? nullptr : reinterpret_cast<typename K::Public *>(slot_at<typename K::Slot>(v, p.slot));
    return Where{p, at};
  });
  if (slotno != nullptr) *slotno = w.p.slot;
  if (slot != nullptr) *slot = w.slot;
  return w.p.found ? LHT_FOUND : LHT_NOTFOUND;
}

template <class K>
int32_t resize(LhtTable *t, uint32_t index) noexcept {
  if (!is<K>(t)) return -LHT_ERR_ARG;
  Status st;
  int32_t rc;
  {
    ChangeLock lock(*t);
    if (t->iters != 0)
      rc = st.fail(LHT_ERR_ITER);
    else if (index < kMinIndex || index > kMaxIndex)
      rc = st.fail_num(LHT_ERR_ARG, 2);
    else if (t->count > kSizes[index] - 1)
      rc = st.fail_num(LHT_ERR_FULL, t->count);
    else
      rc = resize_locked<K>(*t, index, st);
  }
  report(t, st);
  return rc;
}

template <class K>
int32_t destroy(LhtTable *t) noexcept {
  if (!is<K>(t)) return -LHT_ERR_ARG;
  Status st;
  {
    Locked lock(*t);
    if (t->iters != 0) st.fail(LHT_ERR_ITER);
  }
  if (st.code != 0) {
    report(t, st);
    return -LHT_ERR_ITER;
  }
  // No read of this table runs any more (the caller's part): the retired
  // storage goes with the rest.
  storage_free_retired(*t);
  storage_free(*t, t->st);
  if (t->fac != nullptr) lemfaf(t->errh, t->fac);
  sltsmxd(t->ts, &t->mx);
  sltster(t->ts);
  t->kind = Kind{0};  // a stale handle is refused, not used
  t->~LhtTable();
  ss_mem_fre(t);
  return LHT_OK;
}

}  // namespace

}  // namespace lht_internal

using namespace lht_internal;

// ------------------------------------------------------- exported functions

extern "C" {

KELAPI LhtTable *LhtIntCreate(lcorectx *ctx, void *errh, uint32_t size, const LhtMem *mem) {
  return static_cast<LhtTable *>(create(Kind::Int, ctx, errh, size, mem, nullptr, nullptr, nullptr, 0));
}
KELAPI LhtTable *LhtStrCreate(lcorectx *ctx, void *errh, uint32_t size, const LhtMem *mem) {
  return static_cast<LhtTable *>(create(Kind::Str, ctx, errh, size, mem, nullptr, nullptr, nullptr, 0));
}
KELAPI LhtTable *LhtArbCreate(lcorectx *ctx, void *errh, uint32_t size, const LhtMem *mem, LhtArbHashFn hash,
                              LhtArbCmpFn cmp, void *uctx) {
  return static_cast<LhtTable *>(create(Kind::Arb, ctx, errh, size, mem, hash, cmp, uctx, 0));
}

KELAPI int32_t LhtIntDestroy(LhtTable *t) { return destroy<IntKind>(t); }
KELAPI int32_t LhtStrDestroy(LhtTable *t) { return destroy<StrKind>(t); }
KELAPI int32_t LhtArbDestroy(LhtTable *t) { return destroy<ArbKind>(t); }

KELAPI int32_t LhtIntInsert(LhtTable *t, uint32_t key, void *value) { return insert<IntKind>(t, key, value); }
KELAPI int32_t LhtStrInsert(LhtTable *t, const char *key, void *value) { return insert<StrKind>(t, key, value); }
KELAPI int32_t LhtArbInsert(LhtTable *t, const void *key, void *value) { return insert<ArbKind>(t, key, value); }

KELAPI int32_t LhtIntRemove(LhtTable *t, uint32_t key, void **value) { return remove<IntKind>(t, key, value); }
KELAPI int32_t LhtStrRemove(LhtTable *t, const char *key, void **value) { return remove<StrKind>(t, key, value); }
KELAPI int32_t LhtArbRemove(LhtTable *t, const void *key, void **value) { return remove<ArbKind>(t, key, value); }

KELAPI int32_t LhtIntSearch(LhtTable *t, uint32_t key, void **value) { return search<IntKind>(t, key, value); }
KELAPI int32_t LhtStrSearch(LhtTable *t, const char *key, void **value) { return search<StrKind>(t, key, value); }
KELAPI int32_t LhtArbSearch(LhtTable *t, const void *key, void **value) { return search<ArbKind>(t, key, value); }

KELAPI int32_t LhtIntBeginIter(LhtTable *t) { return begin_iter<IntKind>(t); }
KELAPI int32_t LhtStrBeginIter(LhtTable *t) { return begin_iter<StrKind>(t); }
KELAPI int32_t LhtArbBeginIter(LhtTable *t) { return begin_iter<ArbKind>(t); }

KELAPI int32_t LhtIntYield(LhtTable *t, uint32_t *key, void **value, uint32_t *pos) {
  return yield<IntKind>(t, key, value, pos);
}
KELAPI int32_t LhtStrYield(LhtTable *t, const char **key, void **value, uint32_t *pos) {
  return yield<StrKind>(t, key, value, pos);
}
KELAPI int32_t LhtArbYield(LhtTable *t, const void **key, void **value, uint32_t *pos) {
  return yield<ArbKind>(t, key, value, pos);
}

KELAPI int32_t LhtIntEndIter(LhtTable *t) { return end_iter<IntKind>(t); }
KELAPI int32_t LhtStrEndIter(LhtTable *t) { return end_iter<StrKind>(t); }
KELAPI int32_t LhtArbEndIter(LhtTable *t) { return end_iter<ArbKind>(t); }

KELAPI int32_t LhtInqResize(LhtTable *t, uint32_t index) { return resize<IntKind>(t, index); }
KELAPI int32_t LhtStqResize(LhtTable *t, uint32_t index) { return resize<StrKind>(t, index); }
KELAPI int32_t LhtArqResize(LhtTable *t, uint32_t index) { return resize<ArbKind>(t, index); }

KELAPI int32_t LhtInqGetIndex(LhtTable *t, uint32_t key, uint32_t *slotno, LhtIntSlot **slot) {
  return get_index<IntKind>(t, key, slotno, slot);
}
KELAPI int32_t LhtStqGetIndex(LhtTable *t, const char *key, uint32_t *slotno, LhtStrSlot **slot) {
  return get_index<StrKind>(t, key, slotno, slot);
}
KELAPI int32_t LhtArqGetIndex(LhtTable *t, const void *key, uint32_t *slotno, LhtArbSlot **slot) {
  return get_index<ArbKind>(t, key, slotno, slot);
}

}  // extern "C"
