// The start record of lpmpmai: the same layout as slslameta (record, system
// area, handle word) laid out in storage the caller provides, typically on
// the stack of a program's main entry.
#include "lpm.h"
#include "sys/slpm_impl.h"

static_assert(((sizeof(lcorectx) + 7) & ~size_t{7}) + sizeof(slslops) + sizeof(void *) <= LPM_MAIN_CTXSZ,
              "LPM_MAIN_CTXSZ too small for the start record");

int32_t slslmeta_in(void *storage, size_t size, lcorectx **record, void **handle) {
  if (storage == nullptr || record == nullptr || handle == nullptr || size < LPM_MAIN_CTXSZ ||
      reinterpret_cast<uintptr_t>(storage) % alignof(lcorectx) != 0)
    return -1;
  auto *p = static_cast<char *>(storage);
  for (size_t i = 0; i < LPM_MAIN_CTXSZ; ++i) p[i] = 0;
  size_t rl = (sizeof(lcorectx) + 7) & ~size_t{7};
  *record = reinterpret_cast<lcorectx *>(p);
  (*record)->length = rl + sizeof(slslops) + sizeof(void *);
  *handle = p + rl + sizeof(slslops);
  return 0;
}
