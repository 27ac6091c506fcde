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

}  // namespace nls_internal

#endif
