// Process-wide start of the language services.
#include "lx.h"

extern "C" {

// Nothing needs building at start yet: the tables of the library are
// compile-time constants. The call stays so that callers have one place to
// start the services whatever they grow to need.
KELAPI int32_t lxzinit(void) { return 0; }

}  // extern "C"
