/*
 * lfi.h - the file interface: buffered, portable file access.
 *
 * This header holds the family's start/stop and the package sub-context;
 * the file functions themselves are added by the file family.
 */
#ifndef LFI_H
#define LFI_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"
#include "lpm.h"

KEL_BEGIN_DECLS

/* Start/stop entry of the file interface in the family table (mode 0 start,
 * 1 stop, else -1): registers facility "LFI" of "KELCORE" and sets field
 * lfictx of the record. Called by lpminitm/lpmterm only. */
KELAPI int32_t lfirist(lcorectx *ctx, void *handle, int32_t mode);

/* The file sub-context of a package instance: *out receives it. 0 / -1. */
KELAPI int32_t lficis(lcorectx *ctx, void **out, void *component);
/* Ends a sub-context made by lficis. 0 / -1. */
KELAPI int32_t lficit(lcorectx *ctx, void *sub, void *component);

KEL_END_DECLS

#endif /* LFI_H */
