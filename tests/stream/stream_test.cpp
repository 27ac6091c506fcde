// Streams, memory contexts and property lists: every status number, the
// set rule of KelStreamInit, dispatch with the caller's arguments passed
// through, memory taken from and given back to a counting caller allocator,
// and terminated objects refused.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "kelstream.h"
#include "sl.h"

namespace {

// A caller allocator that counts and keeps every block until the end of the
// test, so that a terminated record can still be read (its dead tag) and a
// double free shows up.
struct Pool {
  std::map<void *, size_t> live, freed;
  long allocs = 0, frees = 0, foreign = 0;
  bool fail = false;
  ~Pool() {
    for (auto *m : {&live, &freed})
      for (auto &[p, n] : *m) std::free(p);
  }
  static void *alloc(void *word, size_t n) {
    auto *pool = static_cast<Pool *>(word);
    ++pool->allocs;
    if (pool->fail) return nullptr;
    void *p = std::malloc(n);
    std::memset(p, 0xAA, n);  // so that zeroing by the library shows
    pool->live[p] = n;
    return p;
  }
  static void release(void *word, void *p) {
    auto *pool = static_cast<Pool *>(word);
    ++pool->frees;
    auto it = pool->live.find(p);
    if (it == pool->live.end()) {
      ++pool->foreign;
      return;
    }
    pool->freed.insert(*it);
    pool->live.erase(it);
  }
};

uint32_t tag_of(const void *record) {
  uint32_t t;
  std::memcpy(&t, record, sizeof t);
  return t;
}

// ---------------------------------------------------------- memory contexts

TEST(KelMem, InitNeedsBothFunctionsOrNeither) {
  Pool pool;
  const struct {
    KelMemAllocFn a;
    KelMemFreeFn f;
    bool made;
  } cases[] = {{Pool::alloc, Pool::release, true}, {nullptr, nullptr, true}, {Pool::alloc, nullptr, false},
               {nullptr, Pool::release, false}};
  for (const auto &k : cases) {
    KelMem *m = KelMemInit(&pool, k.a, k.f);
    EXPECT_EQ(m != nullptr, k.made);
    if (m) EXPECT_EQ(KelMemTerm(m), KELSTREAM_OK);
  }
  EXPECT_EQ(pool.allocs, 1) << "a refused pair must not allocate";
  EXPECT_EQ(pool.frees, 1);
  pool.fail = true;
  EXPECT_EQ(KelMemInit(&pool, Pool::alloc, Pool::release), nullptr);
}

TEST(KelMem, CallerAllocatorServesEveryBlockAndTheRecord) {
  Pool pool;
  KelMem *m = KelMemInit(&pool, Pool::alloc, Pool::release);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(pool.live.count(m), 1u) << "the record comes from the caller";
  EXPECT_EQ(KelMemAlloc(m, 0), nullptr);
  EXPECT_EQ(KelMemCalloc(m, 0), nullptr);
  EXPECT_EQ(pool.allocs, 1) << "a size of 0 does not reach the allocator";

  auto *a = static_cast<unsigned char *>(KelMemAlloc(m, 100));
  auto *z = static_cast<unsigned char *>(KelMemCalloc(m, 77));
  ASSERT_TRUE(a && z);
  EXPECT_EQ(pool.live[a] + pool.live[z], 177u);
  EXPECT_EQ(a[0], 0xAA) << "KelMemAlloc does not zero";
  for (int i = 0; i < 77; ++i) ASSERT_EQ(z[i], 0) << i;
  KelMemFree(m, nullptr);
  EXPECT_EQ(pool.frees, 0);
  KelMemFree(m, a);
  KelMemFree(m, z);
  EXPECT_EQ(pool.frees, 2);
  pool.fail = true;
  EXPECT_EQ(KelMemCalloc(m, 8), nullptr);
  pool.fail = false;

  EXPECT_EQ(KelMemTerm(m), KELSTREAM_OK);
  EXPECT_TRUE(pool.live.empty());
  EXPECT_EQ(pool.foreign, 0);
  // The record is dead: tagged, cleared, and refused everywhere.
  EXPECT_EQ(tag_of(m), 0xDEADBEEFu);
  ASSERT_GT(pool.freed[m], 4u);
  for (size_t i = 4; i < pool.freed[m]; ++i) EXPECT_EQ(reinterpret_cast<unsigned char *>(m)[i], 0) << i;
  long allocs = pool.allocs, frees = pool.frees;
  int dummy;
  for (KelMem *gone : {m, static_cast<KelMem *>(nullptr)}) {
    EXPECT_EQ(KelMemAlloc(gone, 8), nullptr);
    EXPECT_EQ(KelMemCalloc(gone, 8), nullptr);
    KelMemFree(gone, &dummy);
    EXPECT_EQ(KelMemTerm(gone), KELSTREAM_DEAD);
  }
  EXPECT_EQ(pool.allocs, allocs);
  EXPECT_EQ(pool.frees, frees);
}

TEST(KelMem, SystemAllocatorWhenNoFunctions) {
  KelMem *m = KelMemInit(nullptr, nullptr, nullptr);
  ASSERT_NE(m, nullptr);
  auto *z = static_cast<unsigned char *>(KelMemCalloc(m, 4096));
  ASSERT_NE(z, nullptr);
  for (int i = 0; i < 4096; ++i) ASSERT_EQ(z[i], 0);
  KelMemFree(m, z);  // the sanitizer builds see a leak or a bad free
  if (slfaultarm(SL_FAULT_MEM, 1, 1) == 0) {
    EXPECT_EQ(KelMemAlloc(m, 16), nullptr);
    EXPECT_EQ(slfaultarm(SL_FAULT_MEM, 1, 1), 0);
    EXPECT_EQ(KelMemInit(nullptr, nullptr, nullptr), nullptr);
    slfaultreset();
  }
  EXPECT_EQ(KelMemTerm(m), KELSTREAM_OK);
}

// ------------------------------------------------------------------ streams

// What the operations saw, and what they answer.
struct Calls {
  int count[6] = {};  // open, close, read, write, read_char, write_char
  int32_t rc[3] = {};  // open, close, transfers
  void *word = nullptr, *sid = nullptr, *handle = nullptr, *info = nullptr;
  const void *buffer = nullptr;
  size_t *length = nullptr;
  size_t info_bytes = KELSTREAM_HANDLE_SIZE;  // how much of info to copy
  unsigned char info_copy[KELSTREAM_HANDLE_SIZE];
  int total() const { return count[0] + count[1] + count[2] + count[3] + count[4] + count[5]; }
};

Calls *g_calls;  // set by each test (single-threaded)

void seen(void *word, void *sid, void *handle) {
  g_calls->word = word;
  g_calls->sid = sid;
  g_calls->handle = handle;
}
int32_t op_open(void *w, void *s, void *h, void *info) {
  seen(w, s, h);
  ++g_calls->count[0];
  g_calls->info = info;
  std::memcpy(g_calls->info_copy, info, g_calls->info_bytes);
  return g_calls->rc[0];
}
int32_t op_close(void *w, void *s, void *h) {
  seen(w, s, h);
  ++g_calls->count[1];
  return g_calls->rc[1];
}
// Every transfer operation records the same things; only its counter differs.
template <int K, class Buf>
int32_t op_io(void *w, void *s, void *h, Buf b, size_t *n) {
  seen(w, s, h);
  ++g_calls->count[K];
  g_calls->buffer = b;
  g_calls->length = n;
  return g_calls->rc[2];
}

void *const R = reinterpret_cast<void *>(op_io<2, void *>);
void *const W = reinterpret_cast<void *>(op_io<3, const void *>);
void *const RC = reinterpret_cast<void *>(op_io<4, void *>);
void *const WC = reinterpret_cast<void *>(op_io<5, const void *>);
void *const OPEN = reinterpret_cast<void *>(op_open);
void *const CLOSE = reinterpret_cast<void *>(op_close);

struct Pair {
  const char *name;
  void *value;
};

// Calls KelStreamInit with up to six pairs; the list ends at the first null
// name.
KelStream *make(std::vector<Pair> p, int32_t *status, void *word = nullptr, void *sid = nullptr) {
  p.resize(6, Pair{nullptr, nullptr});
  return KelStreamInit(word, sid, status, p[0].name, p[0].value, p[1].name, p[1].value, p[2].name, p[2].value,
                       p[3].name, p[3].value, p[4].name, p[4].value, p[5].name, p[5].value,
                       static_cast<const char *>(nullptr));
}

// The four transfers of a stream, by number: read, write, read_char, write_char.
int32_t transfer(KelStream *s, int fn, void *buf, size_t *len) {
  switch (fn) {
    case 0: return KelStreamRead(s, buf, len);
    case 1: return KelStreamWrite(s, buf, len);
    case 2: return KelStreamReadChar(s, buf, len);
    default: return KelStreamWriteChar(s, buf, len);
  }
}

TEST(KelStream, InitChecksTheOperationSet) {
  Pool pool;
  KelMem *dead = KelMemInit(&pool, Pool::alloc, Pool::release);
  ASSERT_EQ(KelMemTerm(dead), KELSTREAM_OK);
  const struct {
    const char *what;
    std::vector<Pair> pairs;
    int32_t status;  // KELSTREAM_OK: made
    int readable, writable;
  } cases[] = {
      {"nothing", {}, KELSTREAM_NODIRECTION, 0, 0},
      {"open and close only", {{"open", OPEN}, {"close", CLOSE}}, KELSTREAM_NODIRECTION, 0, 0},
      {"null operation is not given", {{"read", nullptr}}, KELSTREAM_NODIRECTION, 0, 0},
      {"read and write", {{"read", R}, {"write", W}}, KELSTREAM_BOTHWAYS, 0, 0},
      {"read_char and write_char", {{"read_char", RC}, {"write_char", WC}}, KELSTREAM_BOTHWAYS, 0, 0},
      {"read", {{"read", R}}, KELSTREAM_OK, 1, 0},
      {"write", {{"write", W}}, KELSTREAM_OK, 0, 1},
      {"read_char", {{"read_char", RC}}, KELSTREAM_OK, 1, 0},
      {"write_char", {{"write_char", WC}}, KELSTREAM_OK, 0, 1},
      {"read with write_char passes", {{"read", R}, {"write_char", WC}}, KELSTREAM_OK, 1, 1},
      {"write with read_char passes", {{"write", W}, {"read_char", RC}}, KELSTREAM_OK, 1, 1},
      {"both kinds of read", {{"read", R}, {"read_char", RC}}, KELSTREAM_OK, 1, 0},
      {"write cleared again", {{"read", R}, {"write", W}, {"write", nullptr}}, KELSTREAM_OK, 1, 0},
      {"everything", {{"kelmem_context", nullptr}, {"open", OPEN}, {"close", CLOSE}, {"write", W}},
       KELSTREAM_OK, 0, 1},
      {"unknown name", {{"read", R}, {"seek", R}}, KELSTREAM_UNKNOWN, 0, 0},
      {"names are case-sensitive", {{"Read", R}}, KELSTREAM_UNKNOWN, 0, 0},
      {"unknown before a bad set", {{"bogus", nullptr}, {"read", R}, {"write", W}}, KELSTREAM_UNKNOWN, 0, 0},
      {"dead memory context", {{"kelmem_context", dead}, {"read", R}}, KELSTREAM_DEAD, 0, 0},
  };
  for (const auto &k : cases) {
    SCOPED_TRACE(k.what);
    int32_t st = 99;
    KelStream *s = make(k.pairs, &st);
    if (k.status == KELSTREAM_OK) {
      ASSERT_NE(s, nullptr);
      EXPECT_EQ(st, 99) << "status is not written on success";
      EXPECT_EQ(KelStreamReadable(s), k.readable);
      EXPECT_EQ(KelStreamWritable(s), k.writable);
      EXPECT_EQ(KelStreamWriteable(s), k.writable);
      EXPECT_EQ(KelStreamTerm(s), KELSTREAM_OK);
    } else {
      EXPECT_EQ(s, nullptr);
      EXPECT_EQ(st, k.status);
      EXPECT_EQ(make(k.pairs, nullptr), nullptr) << "a null status pointer is allowed";
    }
  }
}

TEST(KelStream, DispatchStatusesAndPassThrough) {
  const struct {
    const char *what;
    std::vector<Pair> ops;
    int32_t want[4];  // per transfer once open; -1: the operation is called
  } cases[] = {
      {"read", {{"read", R}}, {-1, KELSTREAM_NOOP, KELSTREAM_OTHERKIND, KELSTREAM_NOOP}},
      {"write", {{"write", W}}, {KELSTREAM_NOOP, -1, KELSTREAM_NOOP, KELSTREAM_OTHERKIND}},
      {"read_char", {{"read_char", RC}}, {KELSTREAM_OTHERKIND, KELSTREAM_NOOP, -1, KELSTREAM_NOOP}},
      {"write_char", {{"write_char", WC}}, {KELSTREAM_NOOP, KELSTREAM_OTHERKIND, KELSTREAM_NOOP, -1}},
      {"read + write_char", {{"read", R}, {"write_char", WC}}, {-1, KELSTREAM_OTHERKIND, KELSTREAM_OTHERKIND, -1}},
      {"read + read_char", {{"read", R}, {"read_char", RC}}, {-1, KELSTREAM_NOOP, -1, KELSTREAM_NOOP}},
  };
  for (const auto &k : cases) {
    SCOPED_TRACE(k.what);
    Calls calls;
    g_calls = &calls;
    int word, sid;
    int32_t st;
    KelStream *s = make(k.ops, &st, &word, &sid);
    ASSERT_NE(s, nullptr);
    unsigned char buf[16];
    size_t len = sizeof buf;
    for (int fn = 0; fn < 4; ++fn) EXPECT_EQ(transfer(s, fn, buf, &len), KELSTREAM_NOTOPEN) << fn;
    ASSERT_EQ(KelStreamOpen(s, nullptr), KELSTREAM_OK);
    for (int fn = 0; fn < 4; ++fn) {
      SCOPED_TRACE(fn);
      int before = calls.total(), mine = calls.count[2 + fn];
      calls.rc[2] = 100 + fn;  // the operation's own result comes back unchanged
      calls.buffer = nullptr;
      int32_t got = transfer(s, fn, buf, &len);
      if (k.want[fn] == -1) {
        EXPECT_EQ(got, 100 + fn);
        EXPECT_EQ(calls.count[2 + fn], mine + 1) << "the operation of that name, once";
        EXPECT_EQ(calls.word, &word);
        EXPECT_EQ(calls.sid, &sid);
        EXPECT_EQ(calls.handle, KelStreamHandle(s));
        EXPECT_EQ(calls.buffer, buf);
        EXPECT_EQ(calls.length, &len);
      } else {
        EXPECT_EQ(got, k.want[fn]);
        EXPECT_EQ(calls.total(), before) << "no operation may be called";
      }
    }
    EXPECT_EQ(KelStreamTerm(s), KELSTREAM_OK);
  }
}

TEST(KelStream, OpenAndCloseRunTheirOperationsOnce) {
  Calls calls;
  g_calls = &calls;
  int32_t st;
  KelStream *s = make({{"open", OPEN}, {"close", CLOSE}, {"read", R}}, &st);
  ASSERT_NE(s, nullptr);
  size_t n = 0;
  EXPECT_EQ(KelStreamClose(s), KELSTREAM_OK);
  EXPECT_EQ(calls.count[1], 0) << "closing a closed stream calls nothing";

  calls.rc[0] = 201;
  EXPECT_EQ(KelStreamOpen(s, nullptr), 201);
  EXPECT_EQ(KelStreamRead(s, nullptr, &n), KELSTREAM_NOTOPEN) << "a failed open leaves it closed";
  ASSERT_NE(calls.info, nullptr) << "a scratch area stands in for a null info";
  for (unsigned char c : calls.info_copy) EXPECT_EQ(c, 0);

  calls.rc[0] = 0;
  int info = 5;
  calls.info_bytes = sizeof info;
  EXPECT_EQ(KelStreamOpen(s, &info), KELSTREAM_OK);
  EXPECT_EQ(calls.info, &info);
  EXPECT_EQ(KelStreamOpen(s, &info), KELSTREAM_OK);
  EXPECT_EQ(calls.count[0], 2) << "opening an open stream calls nothing";
  EXPECT_EQ(KelStreamRead(s, nullptr, &n), KELSTREAM_OK);

  calls.rc[1] = 202;
  EXPECT_EQ(KelStreamClose(s), 202);
  EXPECT_EQ(KelStreamRead(s, nullptr, &n), KELSTREAM_OK) << "a failed close leaves it open";
  calls.rc[1] = 0;
  EXPECT_EQ(KelStreamClose(s), KELSTREAM_OK);
  EXPECT_EQ(calls.count[1], 2);
  EXPECT_EQ(KelStreamRead(s, nullptr, &n), KELSTREAM_NOTOPEN);
  EXPECT_EQ(KelStreamTerm(s), KELSTREAM_OK);

  // Without open and close operations the flag alone changes.
  KelStream *bare = make({{"write", W}}, &st);
  ASSERT_NE(bare, nullptr);
  EXPECT_EQ(KelStreamWrite(bare, nullptr, &n), KELSTREAM_NOTOPEN);
  EXPECT_EQ(KelStreamOpen(bare, nullptr), KELSTREAM_OK);
  EXPECT_EQ(KelStreamWrite(bare, nullptr, &n), KELSTREAM_OK);
  EXPECT_EQ(KelStreamClose(bare), KELSTREAM_OK);
  EXPECT_EQ(KelStreamWrite(bare, nullptr, &n), KELSTREAM_NOTOPEN);
  EXPECT_EQ(KelStreamTerm(bare), KELSTREAM_OK);
}

TEST(KelStream, IdentifierAndHandleArea) {
  Calls calls;
  g_calls = &calls;
  int a, b;
  int32_t st;
  KelStream *s = make({{"read", R}}, &st, nullptr, &a);
  ASSERT_NE(s, nullptr);
  auto *h = static_cast<unsigned char *>(KelStreamHandle(s));
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(h) % 16, 0u);
  for (int i = 0; i < KELSTREAM_HANDLE_SIZE; ++i) ASSERT_EQ(h[i], 0) << i;
  std::memset(h, 0x5C, KELSTREAM_HANDLE_SIZE);  // the caller's to use

  void *old = nullptr;
  EXPECT_EQ(KelStreamSid(s, &b, &old), KELSTREAM_OK);
  EXPECT_EQ(old, &a);
  EXPECT_EQ(KelStreamSid(s, &a, nullptr), KELSTREAM_OK);
  EXPECT_EQ(KelStreamSid(s, &b, &old), KELSTREAM_OK);
  EXPECT_EQ(old, &a);
  ASSERT_EQ(KelStreamOpen(s, nullptr), KELSTREAM_OK);
  size_t n = 0;
  EXPECT_EQ(KelStreamRead(s, nullptr, &n), KELSTREAM_OK);
  EXPECT_EQ(calls.sid, &b) << "operations see the identifier last set";
  EXPECT_EQ(calls.handle, h);
  EXPECT_EQ(KelStreamTerm(s), KELSTREAM_OK);
}

TEST(KelStream, MemoryContextServesTheObjectAndDeadStreamsAreRefused) {
  Pool pool;
  KelMem *m = KelMemInit(&pool, Pool::alloc, Pool::release);
  ASSERT_NE(m, nullptr);
  Calls calls;
  g_calls = &calls;
  int32_t st;
  KelStream *s = make({{"kelmem_context", m}, {"open", OPEN}, {"close", CLOSE}, {"read", R}}, &st);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(pool.allocs, 2) << "the record, then the stream object";
  EXPECT_EQ(pool.live.count(s), 1u);
  ASSERT_EQ(KelStreamOpen(s, nullptr), KELSTREAM_OK);
  EXPECT_EQ(KelStreamTerm(s), KELSTREAM_OK);
  EXPECT_EQ(pool.frees, 1);
  EXPECT_EQ(pool.live.count(s), 0u);
  EXPECT_EQ(tag_of(s), 0xDEADBEEFu);
  EXPECT_EQ(calls.count[1], 0) << "terminating does not close";

  // Every entry point refuses a dead object, or null, without calling anything.
  int before = calls.total();
  for (KelStream *gone : {s, static_cast<KelStream *>(nullptr)}) {
    size_t n = 0;
    void *old = nullptr;
    EXPECT_EQ(KelStreamSid(gone, nullptr, &old), KELSTREAM_DEAD);
    EXPECT_EQ(KelStreamHandle(gone), nullptr);
    EXPECT_EQ(KelStreamOpen(gone, nullptr), KELSTREAM_DEAD);
    EXPECT_EQ(KelStreamClose(gone), KELSTREAM_DEAD);
    for (int fn = 0; fn < 4; ++fn) EXPECT_EQ(transfer(gone, fn, nullptr, &n), KELSTREAM_DEAD) << fn;
    EXPECT_EQ(KelStreamReadable(gone) + KelStreamWritable(gone) + KelStreamWriteable(gone), 0);
    EXPECT_EQ(KelStreamTerm(gone), KELSTREAM_DEAD);
  }
  EXPECT_EQ(calls.total(), before);
  EXPECT_EQ(pool.frees, 1) << "no second free";

  // A caller allocator with nothing left, then the system allocator failing
  // through its fault point.
  pool.fail = true;
  st = 0;
  EXPECT_EQ(make({{"kelmem_context", m}, {"write", W}}, &st), nullptr);
  EXPECT_EQ(st, KELSTREAM_DEAD);
  pool.fail = false;
  EXPECT_EQ(KelMemTerm(m), KELSTREAM_OK);
  EXPECT_EQ(pool.foreign, 0);
  EXPECT_TRUE(pool.live.empty());
  if (slfaultarm(SL_FAULT_MEM, 1, 1) == 0) {
    st = 0;
    EXPECT_EQ(make({{"write", W}}, &st), nullptr);
    EXPECT_EQ(st, KELSTREAM_DEAD);
    EXPECT_EQ(slfaulthits(SL_FAULT_MEM), 1);
    slfaultreset();
  }
}

// ---------------------------------------------------------- property lists

TEST(KelProp, FindGetAndSetByNameAndType) {
  int x = 0, y = 0;
  KelProp list[] = {
      {"a", 1, KELPROP_POINTER, reinterpret_cast<uintptr_t>(&x)},
      {"a", 2, KELPROP_UNSIGNED, 5},
      {"b", 3, KELPROP_BOOLEAN, 0},
      {"c", 4, KELPROP_UNSIGNED, 7},
      {"c", 5, KELPROP_POINTER, reinterpret_cast<uintptr_t>(&y)},
      {"ab", 6, KELPROP_BOOLEAN, 9},
      {nullptr, 0, 0, 0},
  };
  const struct {
    const char *name;
    int row;  // -1: none
  } finds[] = {{"a", 0}, {"b", 2}, {"c", 3}, {"ab", 5}, {"abc", -1}, {"", -1}, {"A", -1}};
  for (const auto &f : finds) EXPECT_EQ(KelPropGet(list, f.name), f.row < 0 ? nullptr : &list[f.row]) << f.name;
  EXPECT_EQ(KelPropGet(nullptr, "a"), nullptr);
  EXPECT_EQ(KelPropGet(list, nullptr), nullptr);

  // Each name read by the three getters: status and value (pointers as their
  // address), -1 for not found. A pointer or unsigned getter skips rows of
  // other types; the boolean one takes the first row of the name.
  const struct {
    const char *name;
    int64_t ptr, uns, boolean;
  } gets[] = {
      {"a", static_cast<int64_t>(reinterpret_cast<uintptr_t>(&x)), 5, 1},
      {"b", -1, -1, 0},
      {"c", static_cast<int64_t>(reinterpret_cast<uintptr_t>(&y)), 7, 1},
      {"ab", -1, -1, 1},
      {"zz", -1, -1, -1},
  };
  auto seen = [](int32_t st, uint64_t v) { return st == KELSTREAM_NOTFOUND && v == 0 ? -1 : st ? -2 : static_cast<int64_t>(v); };
  for (const auto &g : gets) {
    void *p = &p;
    uint64_t u = 99;
    int32_t b = 99;
    const int32_t stp = KelPropGetPointer(list, g.name, &p), stu = KelPropGetUnsigned(list, g.name, &u),
                  stb = KelPropGetBoolean(list, g.name, &b);
    EXPECT_EQ(seen(stp, reinterpret_cast<uintptr_t>(p)), g.ptr) << g.name;
    EXPECT_EQ(seen(stu, u), g.uns) << g.name;
    EXPECT_EQ(seen(stb, static_cast<uint64_t>(b)), g.boolean) << g.name;
  }
  void *p;
  uint64_t u;
  int32_t b;
  EXPECT_EQ(KelPropGetPointer(nullptr, "a", &p), KELSTREAM_NULL);
  EXPECT_EQ(KelPropGetUnsigned(list, nullptr, &u), KELSTREAM_NULL);
  EXPECT_EQ(KelPropGetBoolean(list, "a", nullptr), KELSTREAM_NULL);

  // Setters write the first row of the name and nothing else.
  KelProp before[7];
  std::memcpy(before, list, sizeof list);
  EXPECT_EQ(KelPropSetUnsigned(list, "c", 9), KELSTREAM_OK);
  EXPECT_EQ(KelPropSetPointer(list, "a", &y), KELSTREAM_OK);
  EXPECT_EQ(KelPropSetBoolean(list, "b", 42), KELSTREAM_OK);
  EXPECT_EQ(KelPropSetBoolean(list, "ab", 0), KELSTREAM_OK);
  const uint64_t after[] = {reinterpret_cast<uintptr_t>(&y), 5, 1, 9, reinterpret_cast<uintptr_t>(&y), 0};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(list[i].value, after[i]) << i;
    EXPECT_EQ(list[i].type, before[i].type) << "types are kept";
  }
  KelProp empty[] = {{nullptr, 0, 0, 0}};
  EXPECT_EQ(KelPropSetUnsigned(empty, "a", 1), KELSTREAM_NOTFOUND);
  EXPECT_EQ(KelPropSetPointer(list, "zz", nullptr), KELSTREAM_NOTFOUND);
  EXPECT_EQ(KelPropSetBoolean(nullptr, "a", 1), KELSTREAM_NULL);
  EXPECT_EQ(KelPropSetUnsigned(list, nullptr, 1), KELSTREAM_NULL);
  EXPECT_EQ(KelPropGetUnsigned(empty, "a", &u), KELSTREAM_NOTFOUND);
}

}  // namespace
