// Message catalogue files are read from an installation directory: any bytes
// must parse without fault, and every parsed entry must be found again.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "nls/msgcat_impl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  auto *text = static_cast<char *>(std::malloc(size + 1));
  if (text == nullptr) return 0;
  std::memcpy(text, data, size);
  text[size] = '\0';
  nls_internal::msgent *ents = nullptr;
  size_t n = 0;
  if (nls_internal::parse_catalogue(text, size, &ents, &n)) {
    for (size_t i = 1; i < n; i++)
      if (ents[i - 1].num >= ents[i].num) __builtin_trap();
    for (size_t i = 0; i < n; i++)
      if (std::strlen(ents[i].text) > size) __builtin_trap();
    std::free(ents);
  }
  std::free(text);
  return 0;
}
