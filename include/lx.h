/*
 * lx.h - kelnls10, the national-language-support library: character sets and
 * classes, language environments, territory information and message
 * catalogues. kelcore10 imports it; applications may call it directly.
 */
#ifndef LX_H
#define LX_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"

KEL_BEGIN_DECLS

/* Process-wide start of the language services. Idempotent and cheap after the
 * first call; 0 on success, -1 on failure. Thread-safe. */
KELAPI int32_t lxzinit(void);

KEL_END_DECLS

#endif /* LX_H */
