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
// counts the open iterations. Searches, the probe functions and Yield only
// read and take no lock: any number of them may run at once. While an
// iteration is open, changes are refused, so the slots an iterator reads
// cannot change under it; a search that overlaps a change is the caller's
// fault (a change can free the storage being read), and callers that mix
// them serialise themselves. Failures are collected in a per-call Status and
// recorded once, after the mutex is released; a search sets up none.
//
// Sections: kind traits; slot access and probe; search; resize; operations
// (insert, remove, search, iteration, probe, resize, destroy); exported
// functions.
#include <cstring>
#include <type_traits>

#include "hash/lht_impl.h"

namespace lht_internal {

namespace {

// ------------------------------------------------------------ kind traits
// hash(): the home slot for `size` and the check word kept in the slot.
// rehash(): the same for an entry already in the table (a resize).
// step(): the probe step, asked for only at the first collision.
// same(): whether the entry in a slot has the key (the check word first).

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
  static Hashed rehash(const Table &t, const Slot &s, uint32_t size) noexcept { return hash(t, s.key, size); }
  static uint32_t step(const Table &, Key k, const Divisor &d) noexcept { return d.mod(k + 777u) + 1; }
  static bool same(const Table &, const Slot &s, Key k, uint32_t) noexcept { return s.key == k; }
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
  static Hashed rehash(const Table &, const Slot &s, uint32_t size) noexcept { return {inq1(s.check, size), s.check}; }
  static uint32_t step(const Table &, Key k, const Divisor &d) noexcept { return d.mod(fold2(k) + 777u) + 1; }
  static bool same(const Table &, const Slot &s, Key k, uint32_t check) noexcept {
    return s.check == check && (s.key == k || strcmp(s.key, k) == 0);
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
  static Hashed rehash(const Table &t, const Slot &s, uint32_t size) noexcept { return hash(t, s.key, size); }
  // Probe n looks at home + LhtArqQuad(n, 14, 0) = home + 14n, so each move
  // adds 14 (mod size); d.d + 1 is the size.
  static uint32_t step(const Table &, Key, const Divisor &d) noexcept {
    uint32_t size = d.d + 1;
    return (kArbB + kArbC) < size ? kArbB + kArbC : (kArbB + kArbC) % size;
  }
  static bool same(const Table &t, const Slot &s, Key k, uint32_t check) noexcept {
    return s.check == check && t.cmp(s.key, k, t.uctx) == 0;
  }
  static int32_t fail_key(Status &st, int32_t code, Key k) noexcept {
    return st.fail_num(code, static_cast<int64_t>(reinterpret_cast<uintptr_t>(k)));
  }
};

// -------------------------------------------------- slot access and probe

template <class Slot>
inline Slot *slot_at(const Storage &s, uint32_t i) noexcept {
  // Real tables have one chunk, so the first test settles nearly every access.
  if (__builtin_expect(i < s.per_chunk, 1)) return static_cast<Slot *>(s.first) + i;
  return static_cast<Slot *>(s.chunks[i / s.per_chunk]) + i % s.per_chunk;
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
// entry's mark is set.
template <class Slot>
inline void note_homed(const Storage &s, uint32_t home, uint32_t n, uint32_t check) noexcept {
  Slot *h = slot_at<Slot>(s, home);
  uint32_t need = n < kReachOpen ? n + 1 : kReachOpen;
  if (h->reach < need) h->reach = static_cast<uint8_t>(need);
  h->marks |= mark_of(check);
}

template <class K>
Probe probe(const Table &t, typename K::Key key) noexcept {
  const Storage &s = t.st;
  const uint32_t size = t.size;
  const Hashed h = K::hash(t, key, size);
  uint32_t i = h.home;
  uint32_t step = kNoStep;
  uint32_t first_deleted = kNoSlot, deleted_n = 0;
  for (uint32_t n = 0; n < size; ++n) {
    const auto *slot = slot_at<typename K::Slot>(s, i);
    if (slot->state == kEmpty) {
      if (first_deleted != kNoSlot) return {false, first_deleted, h.check, h.home, deleted_n};
      return {false, i, h.check, h.home, n};
    }
    if (slot->state == kDeleted) {
      if (first_deleted == kNoSlot) {
        first_deleted = i;
        deleted_n = n;
      }
    } else if (K::same(t, *slot, key, h.check)) {
      return {true, i, h.check, h.home, n};
    }
    if (step == kNoStep) step = K::step(t, key, t.step_div);
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
// (see search_apart).

struct IntFinder {
  using Slot = ISlot<uint32_t>;
  uint32_t key;
  uint32_t home;
  uint64_t tag;  // the check word of an integer slot is its key: the tag decides
  static constexpr bool kWalkApart = true;
  IntFinder(const Table &t, uint32_t k) noexcept : key(k), home(inq1(k, t.size)), tag(used_tag(k)) {}
  uint32_t step(const Table &t) const noexcept { return t.step_div.mod(key + 777u) + 1; }
  static constexpr bool match(const Table &, const Slot &) noexcept { return true; }
};

struct StrFinder {
  using Slot = ISlot<const char *>;
  const char *key;
  uint32_t home;
  uint64_t tag;  // with the raw first fold as check word
  static constexpr bool kWalkApart = false;
  StrFinder(const Table &t, const char *k) noexcept : key(k) {
    uint32_t check = fold1(k);
    home = inq1(check, t.size);
    tag = used_tag(check);
  }
  uint32_t step(const Table &t) const noexcept { return t.step_div.mod(fold2(key) + 777u) + 1; }
  // Equal folds nearly always mean equal keys; the first byte and strcmp
  // make sure.
  bool match(const Table &, const Slot &s) const noexcept {
    return s.key == key || (s.key[0] == key[0] && strcmp(s.key, key) == 0);
  }
};

struct ArbFinder {
  using Slot = ISlot<const void *>;
  const void *key;
  uint32_t home;
  uint64_t tag;  // with the caller's hash as check word
  static constexpr bool kWalkApart = false;
  ArbFinder(const Table &t, const void *k) noexcept : key(k) {
    uint32_t h = t.hash(k, t.size, t.uctx);
    home = h < t.size ? h : h % t.size;
    tag = used_tag(h);
  }
  uint32_t step(const Table &t) const noexcept { return ArbKind::step(t, key, t.step_div); }
  bool match(const Table &t, const Slot &s) const noexcept { return t.cmp(s.key, key, t.uctx) == 0; }
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
inline bool step_if_marked(const Table &t, const F &f, uint64_t home_tag, uint32_t &step) noexcept {
  if ((tag_marks(home_tag) & mark_of(static_cast<uint32_t>(f.tag >> 32))) == 0) return false;
  step = f.step(t);
  return true;
}

// How many probes after the home slot a search makes at most: the reach
// says how far entries of this home went, an open reach means "to the first
// empty slot", and no walk goes beyond `size` probes.
inline uint32_t probes_after_home(uint32_t reach, uint32_t size) noexcept {
  return reach < kReachOpen ? reach - 1 : size - 1;
}

// The answer of a search from the slot found (or null).
template <class Slot>
inline int32_t answer(const Slot *s, void **value) noexcept {
  // A miss is an answer, not a failure: nothing is recorded.
  if (s == nullptr) return -LHT_ERR_NOKEY;
  if (value != nullptr) *value = s->value;
  return LHT_OK;
}

// One chunk, every real table: the walk past the home slot (at `at`, with
// tag `home_tag`, which did not match) steps byte addresses through the
// chunk, wrapping by one subtraction.
//
// With ReadAhead (integer keys on a table larger than the nearer caches, see
// search()), a hit that is not at home is mostly within the next three
// probes: their slots are fetched at once, each from memory, and compared
// without branches, rather than one trip to memory after another. The tag
// of an integer slot holds the key itself, and a key is never further along
// its path than its home's reach or an empty slot, so a match among the
// slots read ahead is the answer. On a small table the slots are at hand and
// the plain walk is quicker.
template <bool ReadAhead, class F>
inline int32_t search_on(const Table &t, const F &f, uintptr_t at, uint64_t home_tag, void **value) noexcept {
  using Slot = typename F::Slot;
  uint32_t step;
  if (!step_if_marked(t, f, home_tag, step)) return -LHT_ERR_NOKEY;
  const auto base = reinterpret_cast<uintptr_t>(t.st.first);
  const uintptr_t span = uintptr_t{t.size} * sizeof(Slot);
  const uintptr_t end = base + span;
  const uintptr_t stride = uintptr_t{step} * sizeof(Slot);
  auto next = [&](uintptr_t a) {
    a += stride;
    return a >= end ? a - span : a;
  };
  uint32_t left = probes_after_home(tag_reach(home_tag), t.size);
  if constexpr (ReadAhead) {
    static_assert(std::is_same_v<F, IntFinder>, "only an integer tag decides a match by itself");
    auto tag_at = [](uintptr_t a) { return slot_tag(*reinterpret_cast<const Slot *>(a)); };
    const uintptr_t a1 = next(at), a2 = next(a1), a3 = next(a2);
    const uint64_t t1 = tag_at(a1), t2 = tag_at(a2), t3 = tag_at(a3);
    uintptr_t hit = (t3 & kTagMatch) == f.tag ? a3 : 0;
    hit = (t2 & kTagMatch) == f.tag ? a2 : hit;
    hit = (t1 & kTagMatch) == f.tag ? a1 : hit;
    if (hit != 0) return answer(reinterpret_cast<const Slot *>(hit), value);
    if (left <= 3 || static_cast<uint8_t>(t1) == kEmpty || static_cast<uint8_t>(t2) == kEmpty ||
        static_cast<uint8_t>(t3) == kEmpty)
      return -LHT_ERR_NOKEY;
    left -= 3;
    at = a3;
  }
  do {
    at = next(at);
    const Slot *s = reinterpret_cast<const Slot *>(at);
    const uint64_t tag = slot_tag(*s);
    if ((tag & kTagMatch) == f.tag && f.match(t, *s)) return answer(s, value);
    if (static_cast<uint8_t>(tag) == kEmpty) return -LHT_ERR_NOKEY;
  } while (--left != 0);
  return -LHT_ERR_NOKEY;
}

// The same walk out of line, entered by a tail call, for integer keys: a
// search that ends at the home slot, a hit there or a miss, then needs no
// more registers than its arguments and saves none. (A string search spends
// its time folding the key; there the call would only cost.)
template <bool ReadAhead, class F>
[[gnu::noinline]] int32_t search_apart(const Table &t, const F f, uintptr_t at, uint64_t home_tag,
                                       void **value) noexcept {
  return search_on<ReadAhead>(t, f, at, home_tag, value);
}

// A search of one-chunk storage: the home slot, then the walk.
template <bool ReadAhead, class F>
inline int32_t search_one(const Table &t, const F &f, void **value) noexcept {
  using Slot = typename F::Slot;
  const uintptr_t at = reinterpret_cast<uintptr_t>(t.st.first) + uintptr_t{f.home} * sizeof(Slot);
  const Slot *s = reinterpret_cast<const Slot *>(at);
  const uint64_t tag = slot_tag(*s);
  if ((tag & kTagMatch) == f.tag && f.match(t, *s)) return answer(s, value);
  if (tag_reach(tag) <= 1) return -LHT_ERR_NOKEY;  // an empty home has reach 0
  if constexpr (F::kWalkApart)
    return search_apart<ReadAhead>(t, f, at, tag, value);
  else
    return search_on<ReadAhead>(t, f, at, tag, value);
}

// Several chunks (only tests make them): slot i is found by division.
template <class F>
const typename F::Slot *walk_many(const Table &t, const F &f) noexcept {
  using Slot = typename F::Slot;
  const Storage &st = t.st;
  auto at = [&st](uint32_t i) {
    return static_cast<const Slot *>(st.chunks[i / st.per_chunk]) + i % st.per_chunk;
  };
  const uint32_t size = t.size;
  const Slot *s = at(f.home);
  uint64_t tag = slot_tag(*s);
  const uint32_t reach = tag_reach(tag);
  uint32_t step;
  if ((tag & kTagMatch) == f.tag && f.match(t, *s)) return s;
  if (reach <= 1 || !step_if_marked(t, f, tag, step)) return nullptr;  // an empty home has reach 0
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

// ------------------------------------------------------------------ resize

// Moves every entry into fresh storage of size kSizes[index]. The new storage
// holds no deleted slots and no equal keys, so each entry goes to the first
// empty slot of its probe path. On failure the table is untouched.
template <class K>
int32_t resize_locked(Table &t, uint32_t index, Status &st) noexcept {
  using Slot = typename K::Slot;
  Storage ns;
  if (storage_make(t, kSizes[index], ns, st) != 0) return -LHT_ERR_NOMEM;
  const uint32_t size = ns.size;
  const Divisor div(size - 1);
  const Storage &os = t.st;
  for (uint32_t c = 0; c < os.nchunks; ++c) {
    const auto *chunk = static_cast<const Slot *>(os.chunks[c]);
    uint32_t n = c + 1 == os.nchunks ? os.last : os.per_chunk;
    for (uint32_t j = 0; j < n; ++j) {
      if (chunk[j].state != kUsed) continue;
      Hashed h = K::rehash(t, chunk[j], size);
      uint32_t i = h.home, n = 0;
      Slot *dst = slot_at<Slot>(ns, i);
      if (dst->state != kEmpty) {
        uint32_t step = K::step(t, chunk[j].key, div);
        do {
          i += step;
          if (i >= size) i -= size;
          dst = slot_at<Slot>(ns, i);
          ++n;
        } while (dst->state != kEmpty);
      }
      dst->key = chunk[j].key;
      dst->value = chunk[j].value;
      dst->state = kUsed;
      dst->check = h.check;
      note_homed<Slot>(ns, h.home, n, h.check);
    }
  }
  storage_free(t, t.st);
  t.st = ns;
  t.size = size;
  t.step_div = div;
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

class Locked {
 public:
  explicit Locked(Table &t) noexcept : t_(t) { sltsmna(t_.ts, &t_.mx); }
  ~Locked() { sltsmnr(t_.ts, &t_.mx); }
  Locked(const Locked &) = delete;
  Locked &operator=(const Locked &) = delete;

 private:
  Table &t_;
};

template <class K>
int32_t insert_locked(Table &t, typename K::Key key, void *value, Status &st) noexcept {
  if (t.iters != 0) return st.fail(LHT_ERR_ITER);
  if (t.count >= kMaxEntries) return st.fail_num(LHT_ERR_FULL, kMaxEntries);
  Probe p = probe<K>(t, key);
  if (p.found) return K::fail_key(st, LHT_ERR_DUP, key);
  if (p.slot == kNoSlot) return st.fail_num(LHT_ERR_FULL, t.count);  // a table is never left without a free slot
  auto *slot = slot_at<typename K::Slot>(t.st, p.slot);
  uint8_t was = slot->state;
  slot->key = key;
  slot->value = value;
  slot->state = kUsed;
  slot->check = p.check;
  note_homed<typename K::Slot>(t.st, p.home, p.n, p.check);
  ++t.count;
  if (t.count > t.grow_above && t.index < kMaxIndex) {
    int32_t rc = resize_locked<K>(t, t.index + 1, st);
    if (rc < 0) {
      // Could not grow: undo, so that the caller sees no change and the
      // table keeps a free slot for its probes to end at. The home's reach
      // and marks may keep what was noted: they only ever overstate.
      slot->state = was;
      --t.count;
      return rc;
    }
  }
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
    Locked lock(*t);
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
  Probe p = probe<K>(t, key);
  if (!p.found) return K::fail_key(st, LHT_ERR_NOKEY, key);
  auto *slot = slot_at<typename K::Slot>(t.st, p.slot);
  slot->state = kDeleted;
  if (value != nullptr) *value = slot->value;
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
  return change<K>(t, key, [&](Table &tb, Status &st) { return remove_locked<K>(tb, key, value, st); });
}

// A null string key: the one failure of a search worth a record. Kept out
// of line so that the search itself sets up no status.
[[gnu::noinline, gnu::cold]] int32_t search_bad_key(LhtTable *t) noexcept {
  Status st;
  int32_t rc = st.fail_num(LHT_ERR_ARG, 2);
  report(t, st);
  return rc;
}

// A search of several chunks, out of line: its division and registers stay
// out of the one-chunk search.
template <class K>
[[gnu::noinline]] int32_t search_many(const Table &t, typename K::Key key, void **value) noexcept {
  return answer(walk_many(t, typename FinderOf<K>::type(t, key)), value);
}

// Takes no lock: the storage changes only under insert, remove and resize,
// which callers keep apart from searches (see lht.h).
template <class K>
int32_t search(LhtTable *t, typename K::Key key, void **value) noexcept {
  if (!is<K>(t)) return -LHT_ERR_ARG;
  if (__builtin_expect(!K::valid(key), 0)) return search_bad_key(t);
  using F = typename FinderOf<K>::type;
  static_assert(std::is_same_v<typename F::Slot, typename K::Slot>);
  if (__builtin_expect(t->st.nchunks != 1, 0)) return search_many<K>(*t, key, value);
  const F f(*t, key);
  if constexpr (std::is_same_v<K, IntKind>)
    if (size_t{t->size} * sizeof(typename K::Slot) > kCachedBytes) return search_one<true>(*t, f, value);
  return search_one<false>(*t, f, value);
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

template <class K>
int32_t yield(LhtTable *t, typename K::Key *key, void **value, uint32_t *pos) noexcept {
  using Slot = typename K::Slot;
  if (!is<K>(t)) return -LHT_ERR_ARG;
  if (key == nullptr || pos == nullptr) {
    Status st;
    int32_t rc = st.fail_num(LHT_ERR_ARG, key == nullptr ? 2 : 4);
    report(t, st);
    return rc;
  }
  const Storage &s = t->st;
  uint32_t i = *pos;
  if (i >= s.size) return -LHT_ERR_END;
  // Walk the rest of i's chunk, then the following chunks.
  for (uint32_t c = i / s.per_chunk, j = i % s.per_chunk; c < s.nchunks; ++c, j = 0) {
    const auto *chunk = static_cast<const Slot *>(s.chunks[c]);
    uint32_t n = c + 1 == s.nchunks ? s.last : s.per_chunk;
    for (; j < n; ++j) {
      if (chunk[j].state == kUsed) {
        *key = chunk[j].key;
        if (value != nullptr) *value = chunk[j].value;
        *pos = c * s.per_chunk + j + 1;
        return LHT_OK;
      }
    }
  }
  return -LHT_ERR_END;
}

template <class K>
int32_t get_index(LhtTable *t, typename K::Key key, uint32_t *slotno, typename K::Public **slot) noexcept {
  if (!is<K>(t) || !K::valid(key)) return -LHT_ERR_ARG;
  Probe p = probe<K>(*t, key);
  if (slotno != nullptr) *slotno = p.slot;
  if (slot != nullptr)
    *slot = p.slot == kNoSlot ? nullptr
                              : reinterpret_cast<typename K::Public *>(slot_at<typename K::Slot>(t->st, p.slot));
  return p.found ? LHT_FOUND : LHT_NOTFOUND;
}

template <class K>
int32_t resize(LhtTable *t, uint32_t index) noexcept {
  if (!is<K>(t)) return -LHT_ERR_ARG;
  Status st;
  int32_t rc;
  {
    Locked lock(*t);
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
