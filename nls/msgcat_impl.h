// msgcat_impl.h - the built-in message catalogues (generated at build time).
#ifndef KEL_NLS_MSGCAT_IMPL_H
#define KEL_NLS_MSGCAT_IMPL_H

#include <cstddef>
#include <cstdint>

namespace nls_internal {

struct msgent {
  int32_t num;
  const char *text;
};

struct msgcat {
  const char *product;   // lower case
  const char *facility;  // lower case
  const msgent *entries;  // ascending numbers
  size_t count;
};

extern const msgcat kCatalogues[];
extern const size_t kCatalogueCount;

// Parses a catalogue file's text (NUL-terminated, `size` bytes, changed in
// place; the entries point into it) into entries sorted by number, the last
// of equal numbers kept. *out is malloc'd. False when out of memory.
bool parse_catalogue(char *text, size_t size, msgent **out, size_t *count);

}  // namespace nls_internal

#endif
