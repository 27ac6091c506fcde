// nls_impl.h - internals of kelnls10 shared by its files.
#ifndef KEL_NLS_IMPL_H
#define KEL_NLS_IMPL_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "lx.h"

namespace nls_internal {

// Everything a territory and language contribute to an environment. Texts
// are UTF-8; lxhlinfo hands them out in the environment's character set.
struct territory {
  std::string_view language;   // "AMERICAN"
  std::string_view territory;  // "AMERICA"
  std::string_view date_fmt;
  std::string_view long_date_fmt;
  std::string_view short_date_fmt;
  std::string_view short_time_fmt;
  std::string_view decimal;
  std::string_view group;
  std::string_view currency;
  int32_t first_day;  // 0 = Sunday
  std::string_view months[12];
  std::string_view month_abbr[12];
  std::string_view days[7];  // Sunday first
  std::string_view day_abbr[7];
  std::string_view am, pm, am_dots, pm_dots;
  std::string_view ad, bc, ad_dots, bc_dots;
  std::string_view ad_name, bc_name;  // era names spelled out
};

// Finds a language/territory pair (ASCII case-insensitive); empty parts take
// the first entry's. Null if unknown.
const territory *find_territory(std::string_view language, std::string_view terr) noexcept;

struct charset {
  int32_t id;
  std::string_view name;
  int32_t kind;       // LX_CS_*
  int32_t maxbytes;
  const uint16_t *to_uni;  // single-byte sets: 256 entries, 0xFFFF = unmapped
};

const charset *find_charset(int32_t id) noexcept;
const charset *find_charset_name(std::string_view name) noexcept;

// A character of the set as a code point (single-byte: through the table;
// Unicode sets: itself); 0xFFFFFFFF when unmapped.
uint32_t to_unicode(const charset *cs, uint32_t c) noexcept;
// A code point as a character of the set; 0xFFFFFFFF when unmapped.
uint32_t from_unicode(const charset *cs, uint32_t u) noexcept;

bool iequal(std::string_view a, std::string_view b) noexcept;

// Every allocation of the library (a test build can refuse any of them).
void *nls_malloc(size_t n) noexcept;
void *nls_calloc(size_t n) noexcept;
void nls_free(void *p) noexcept;

}  // namespace nls_internal

struct lxenv {
  const nls_internal::territory *terr;
  const nls_internal::charset *cs;
  lxglo *glo;  // the global context that made it
};

#endif
