// diag_impl.h - internals shared by the files of the diagnostic records.
#ifndef KEL_DIAG_DIAG_IMPL_H
#define KEL_DIAG_DIAG_IMPL_H

#include <cstddef>
#include <cstdint>

#include "kelmsg_kelcore_ldm.h"
#include "ldm.h"
#include "lem.h"

namespace ldm_internal {

// Parses a record line (ldmparse without clearing *r on failure).
int32_t parse_line(const char *line, size_t len, char *scratch, ldmrec *r);

}  // namespace ldm_internal

#endif
