// models_impl.h - the block layouts of the two heap models, shared by the
// models and by the quick paths of lmmmalloc/lmmfree.
#ifndef KEL_MEMORY_MODELS_IMPL_H
#define KEL_MEMORY_MODELS_IMPL_H

#include <cstddef>
#include <cstdint>

#include "lmm.h"

namespace lmm_model {

// ------------------------------------------------------ the standard model

constexpr size_t kClassSize[5] = {23, 55, 119, 247, 247};
constexpr size_t kSmallHdr = 9;
constexpr size_t kSmallMax = 247;
constexpr size_t kLargeHdr = 40;
constexpr size_t kTrailer = 32;
constexpr size_t kVrtOverhead = kLargeHdr + kTrailer;  // 72
constexpr size_t kMinLarge = 256;
constexpr size_t kMinRest = 296;
constexpr size_t kChunk = 8192;
constexpr size_t kChunkCut = 16385;
constexpr size_t kChunkFrom = 2048;
constexpr int kBuckets = 1025;


constexpr uint8_t kInUse = 0x08;
constexpr uint8_t kAligned = 6;
constexpr uint8_t kLarge = 7;

struct large;
struct vtrail {
  char *start;
  vtrail *next;      // every extent of the heap
  vtrail *freenext;  // free extents
  size_t total;
};

struct large {
  large *pphys;
  large *nphys;
  size_t size;
  uint8_t pad[7];
  uint8_t tag;
  large **bucket;
  // user area; while free:
  large *bnext;
  large *bprev;
};
static_assert(offsetof(large, bnext) == kLargeHdr, "large block header is 40 bytes");
static_assert(offsetof(large, tag) == kLargeHdr - kSmallHdr, "the tag lies 9 bytes before the user area");

struct chunk {
  chunk *next;
  chunk *prev;
  size_t room;
  size_t inuse;
  char *free;
};
constexpr size_t kChunkHdr = sizeof(chunk);  // 40

struct sfree {
  sfree *next;
  sfree *prev;
};

struct stmodel {
  chunk *cfirst;
  chunk *clast;
  vtrail *freev;
  size_t nfreev;
  size_t freebytes;  // total of the free extents
  size_t vbytes;     // total of every extent
  vtrail *allv;
  sfree *cls[5];
  large *bucket[kBuckets];
  uint32_t bits[32];
  uint32_t summary;
};

inline uint8_t &tag_of(void *user) noexcept { return *(static_cast<uint8_t *>(user) - kSmallHdr); }
inline large *hdr_of(void *user) noexcept { return reinterpret_cast<large *>(static_cast<char *>(user) - kLargeHdr); }
inline char *user_of(large *b) noexcept { return reinterpret_cast<char *>(b) + kLargeHdr; }
inline chunk *&chunk_of(void *user) noexcept {
  return *reinterpret_cast<chunk **>(static_cast<char *>(user) - 8);
}
inline vtrail *trailer_of(large *whole) noexcept { return reinterpret_cast<vtrail *>(user_of(whole) + whole->size); }

// The first small block of a chunk sits where its user area is 16-aligned.
inline char *first_block(chunk *ch) noexcept {
  auto a = reinterpret_cast<uintptr_t>(ch) + kChunkHdr + kSmallHdr;
  a = (a + 15) & ~uintptr_t{15};
  return reinterpret_cast<char *>(a - kSmallHdr);
}

// The class of a small request (1 to 247 bytes): the first class at least n.
// The class edges are all 8k - 1, so (n + 8) / 8 names the class exactly and a
// 32-entry table replaces the chain of comparisons.
constexpr int kClassSlots = (kSmallMax + 8) / 8 + 1;  // 32
struct class_table {
  uint8_t of[kClassSlots];
  constexpr class_table() : of{} {
    for (size_t n = 1; n <= kSmallMax; n++) {
      int k = 0;
      while (kClassSize[k] < n) k++;
      of[(n + 8) / 8] = static_cast<uint8_t>(k);
    }
  }
};
constexpr class_table kClassOf{};
constexpr bool class_table_exact() {
  for (size_t n = 1; n <= kSmallMax; n++) {
    int k = kClassOf.of[(n + 8) / 8];
    if (kClassSize[k] < n || (k > 0 && kClassSize[k - 1] >= n)) return false;
  }
  return true;
}
static_assert(class_table_exact(), "the class table must pick the first class that holds the request");

inline int class_of(size_t n) noexcept { return kClassOf.of[(n + 8) >> 3]; }

// Bytes a small block of class k occupies with its 9-byte head: 32 << k,
// computed rather than looked up.
constexpr size_t block_size(int k) noexcept { return size_t{32} << k; }
static_assert(block_size(0) == kClassSize[0] + kSmallHdr && block_size(1) == kClassSize[1] + kSmallHdr &&
                  block_size(2) == kClassSize[2] + kSmallHdr && block_size(3) == kClassSize[3] + kSmallHdr,
              "small blocks occupy 32, 64, 128 and 256 bytes");
inline int bucket_of(size_t s) noexcept { return s < 65536 ? static_cast<int>(s / 64) : 1024; }

// The standard model's operations (standard.cpp). Hidden, so that the quick
// paths compare a heap's table with its address directly.
KEL_HIDDEN extern const lmmmfp kStandardOps;

// Pops a block of class k from its free list (the caller checked that the
// list is not empty): the chunk counts it, the tag says in use.
inline void *st_pop(stmodel *m, int k) noexcept {
  sfree *f = m->cls[k];
  sfree *next = f->next;
  m->cls[k] = next;
  if (next) next->prev = nullptr;
  chunk_of(f)->inuse++;
  tag_of(f) = static_cast<uint8_t>(k | kInUse);
  return f;
}

// Carves a block of class k from chunk ch, which has the room for it.
inline void *st_carve(chunk *ch, int k) noexcept {
  size_t need = block_size(k);
  ch->inuse++;
  ch->room -= need;
  char *user = ch->free + kSmallHdr;
  ch->free += need;
  chunk_of(user) = ch;
  tag_of(user) = static_cast<uint8_t>(k | kInUse);
  return user;
}

// Pushes the freed small block p of class k on its class list.
inline void st_push(stmodel *m, int k, void *p) noexcept {
  tag_of(p) = static_cast<uint8_t>(k);
  auto *f = static_cast<sfree *>(p);
  sfree *head = m->cls[k];
  f->prev = nullptr;
  f->next = head;
  if (head) head->prev = f;
  m->cls[k] = f;
}

// ---------------------------------------------------------- the fast model

// An extent of a fast heap: {previous extent, next free byte, end of the
// extent (so the bytes left are end - free), allocations, total size}.
struct fsvrt {
  fsvrt *prev;
  char *free;
  char *end;
  size_t count;
  size_t total;
  size_t spare;
};
constexpr size_t kFsHdr = 16;

struct fsmodel {
  fsvrt *cur;
};

// The fast model's operations (fast.cpp).
KEL_HIDDEN extern const lmmmfp kFastOps;

// Serves n bytes from a fast heap's current extent, or null when it has no
// room (the model's malloc then gets a new extent).
inline void *fs_bump(lmmheap *h, size_t n) noexcept {
  size_t r = ((n + 7) & ~size_t{7}) + kFsHdr;
  fsvrt *v = static_cast<fsmodel *>(h->model)->cur;
  char *p = v->free;
  if (static_cast<size_t>(v->end - p) < r) return nullptr;
  v->free = p + r;
  v->count++;
  reinterpret_cast<size_t *>(p)[0] = r - kFsHdr;
  reinterpret_cast<size_t *>(p)[1] = 0;
  return p + kFsHdr;
}

}  // namespace lmm_model

#endif
