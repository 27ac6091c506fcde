// lookup_impl.h - helpers shared by the files of the time-zone lookups.
#ifndef KEL_DATETIME_TZ_LOOKUP_IMPL_H
#define KEL_DATETIME_TZ_LOOKUP_IMPL_H

#include <cstddef>
#include <cstdint>

#include "datetime/timezone/image_impl.h"

namespace ltz_internal {

// Names and abbreviations are ASCII in the image; an EBCDIC host converts.
inline constexpr bool kEbcdicHost = static_cast<unsigned char>('A') == 0xC1;

// Copies the NUL-terminated string of length n at image offset off into buf
// (buflen bytes) for a caller, converting on an EBCDIC host. LTZ_ERR_SPACE
// when it does not fit (buf is then an empty string when buflen > 0).
int32_t copy_out(const ImageView &v, uint32_t off, size_t n, char *buf, size_t buflen);

// Where name k (0 = the primary name) of the list of the directory slot at
// image offset `slot` lies: LTZ_OK with *off and *len, LTZ_ERR_NOTFOUND when
// the slot is empty or its list ends before name k, LTZ_ERR_IMAGE when the
// list runs off the image. Every lookup by ID asks it, so that an alias ID
// the slot does not carry is refused the same way everywhere.
int32_t slot_name(const ImageView &v, uint32_t slot, uint32_t k, uint32_t *off, size_t *len);

// Allocation of blocks handed to callers (ltzGetTransArray). One place, so
// that the memory manager's heaps can replace the system allocator here.
void *caller_alloc(void *memctx, void *heap, size_t size);
void caller_free(void *memctx, void *heap, void *block);

}  // namespace ltz_internal

#endif
