// Territory and language texts. Each row is one language/territory pair.
// American English is kept by hand (its formats are the library's
// traditional defaults); the rows after it are generated from ICU's locale
// data at build time.
#include "nls/nls_impl.h"

namespace nls_internal {

namespace {

constexpr territory kTerritories[] = {
    {
        "AMERICAN",
        "AMERICA",
        "DD-MON-RR",
        "fmDay, Month DD, YYYY",
        "fmMM/DD/YYYY",
        "HH:MI:SS AM",
        ".",
        ",",
        "$",
        0,
        {"January", "February", "March", "April", "May", "June", "July", "August", "September", "October",
         "November", "December"},
        {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"},
        {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"},
        {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"},
        "AM",
        "PM",
        "A.M.",
        "P.M.",
        "AD",
        "BC",
        "A.D.",
        "B.C.",
        "Anno Domini",
        "Before Christ",
    },
// The other territories come from ICU's locale data (gen_territories.cc).
#include "territories.inc"
};

}  // namespace

bool iequal(std::string_view a, std::string_view b) noexcept {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); i++) {
    unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
    if (x >= 'a' && x <= 'z') x = static_cast<unsigned char>(x - 32);
    if (y >= 'a' && y <= 'z') y = static_cast<unsigned char>(y - 32);
    if (x != y) return false;
  }
  return true;
}

const territory *find_territory(std::string_view language, std::string_view terr) noexcept {
  for (const territory &t : kTerritories) {
    if ((language.empty() || iequal(language, t.language)) && (terr.empty() || iequal(terr, t.territory))) return &t;
  }
  return nullptr;
}

}  // namespace nls_internal
