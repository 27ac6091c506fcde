// Property lists: rows of (name, code, type, value) ended by a null name.
#include <cstring>

#include "kelstream.h"

namespace {

// The first row named `name` that `accept` takes, or null.
template <class Accept>
KelProp *find(const KelProp *list, const char *name, Accept accept) noexcept {
  for (const KelProp *r = list; r->name != nullptr; ++r)
    if (std::strcmp(r->name, name) == 0 && accept(*r)) return const_cast<KelProp *>(r);
  return nullptr;
}

bool any_type(const KelProp &) noexcept { return true; }

template <class T, class Accept, class Convert>
int32_t get(const KelProp *list, const char *name, T *out, Accept accept, Convert convert) noexcept {
  if (list == nullptr || name == nullptr || out == nullptr) return KELSTREAM_NULL;
  const KelProp *r = find(list, name, accept);
  if (r == nullptr) {
    *out = T{};
    return KELSTREAM_NOTFOUND;
  }
  *out = convert(r->value);
  return KELSTREAM_OK;
}

int32_t set(KelProp *list, const char *name, uint64_t value) noexcept {
  if (list == nullptr || name == nullptr) return KELSTREAM_NULL;
  KelProp *r = find(list, name, any_type);
  if (r == nullptr) return KELSTREAM_NOTFOUND;
  r->value = value;
  return KELSTREAM_OK;
}

}  // namespace

extern "C" {

KELAPI KelProp *KelPropGet(const KelProp *table, const char *name) {
  if (table == nullptr || name == nullptr) return nullptr;
  return find(table, name, any_type);
}

KELAPI int32_t KelPropGetPointer(const KelProp *list, const char *name, void **out) {
  return get(
      list, name, out, [](const KelProp &r) { return r.type == KELPROP_POINTER; },
      [](uint64_t v) { return reinterpret_cast<void *>(static_cast<uintptr_t>(v)); });
}

KELAPI int32_t KelPropGetUnsigned(const KelProp *list, const char *name, uint64_t *out) {
  return get(
      list, name, out, [](const KelProp &r) { return r.type == KELPROP_UNSIGNED; }, [](uint64_t v) { return v; });
}

KELAPI int32_t KelPropGetBoolean(const KelProp *list, const char *name, int32_t *out) {
  return get(list, name, out, any_type, [](uint64_t v) { return static_cast<int32_t>(v != 0); });
}

KELAPI int32_t KelPropSetPointer(KelProp *list, const char *name, void *value) {
  return set(list, name, reinterpret_cast<uintptr_t>(value));
}

KELAPI int32_t KelPropSetUnsigned(KelProp *list, const char *name, uint64_t value) {
  return set(list, name, value);
}

KELAPI int32_t KelPropSetBoolean(KelProp *list, const char *name, int32_t value) {
  return set(list, name, value != 0 ? 1 : 0);
}

}  // extern "C"
