// Memory contexts: a caller's allocate/free pair, or the system allocator.
#include <cstring>

#include "kelstream.h"
#include "sl.h"
#include "stream/stream_impl.h"

using kelstream_internal::kDeadTag;
using kelstream_internal::kMemTag;

namespace {

bool live(const KelMem *m) noexcept { return m != nullptr && m->tag == kMemTag; }

}  // namespace

extern "C" {

KELAPI KelMem *KelMemInit(void *context, KelMemAllocFn alloc_fn, KelMemFreeFn free_fn) {
  // A pair that cannot give back what it hands out (or the reverse) is
  // refused rather than mixed with the system allocator.
  if ((alloc_fn == nullptr) != (free_fn == nullptr)) return nullptr;
  void *p = alloc_fn != nullptr ? alloc_fn(context, sizeof(KelMem)) : ss_mem_alc(sizeof(KelMem));
  if (p == nullptr) return nullptr;
  auto *m = static_cast<KelMem *>(p);
  m->tag = kMemTag;
  m->word = context;
  m->alloc = alloc_fn;
  m->free = free_fn;
  return m;
}

KELAPI void *KelMemAlloc(KelMem *mem, size_t size) {
  if (!live(mem) || size == 0) return nullptr;
  return mem->alloc != nullptr ? mem->alloc(mem->word, size) : ss_mem_alc(size);
}

KELAPI void *KelMemCalloc(KelMem *mem, size_t size) {
  void *p = KelMemAlloc(mem, size);
  if (p != nullptr) std::memset(p, 0, size);
  return p;
}

KELAPI void KelMemFree(KelMem *mem, void *block) {
  if (!live(mem) || block == nullptr) return;
  if (mem->free != nullptr)
    mem->free(mem->word, block);
  else
    ss_mem_fre(block);
}

KELAPI int32_t KelMemTerm(KelMem *mem) {
  if (!live(mem)) return KELSTREAM_DEAD;
  KelMemFreeFn free_fn = mem->free;
  void *word = mem->word;
  std::memset(static_cast<void *>(mem), 0, sizeof *mem);
  mem->tag = kDeadTag;
  if (free_fn != nullptr)
    free_fn(word, mem);
  else
    ss_mem_fre(mem);
  return KELSTREAM_OK;
}

}  // extern "C"
