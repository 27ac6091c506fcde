/*
 * ltz.h - time-zone regions of kelcore10.
 *
 * Regions (named zones with their history of UTC-offset changes) come from one
 * binary image file, "timezlrg.dat", that the library finds (sldigpt), reads
 * whole once per process (ltzGetImage) and then queries in place. Every lookup
 * takes that image first; an image is any buffer holding at least the number
 * of bytes its header states (bytes 4 ... 7), which the loader guarantees.
 * Nothing read from an image is trusted: a damaged image yields a status, never
 * a read outside the stated length.
 *
 * Region IDs are 16-bit values 1 ... 8191: the low 9 bits select one of 512
 * directory slots, the high bits (0 ... 15) one of the slot's names (its
 * primary name and aliases). IDs are stored in users' data and never change
 * between releases of the image.
 *
 * Years covered: the image built with the library (tools/keltzc) holds every
 * region's history for the same span of years, from 1970 to as far into the
 * future as the 524288 bytes allow (2060 with tzdata 2025b), with the first
 * and last year as 16-bit numbers at header offsets 4136 and 4138; some
 * regions are carried further back, up to their whole history. Before a
 * region's first record its first state holds, after its last record its
 * last state.
 *
 * Instants are LdiDateTime records (ldi.h) of kind LDI_KIND_TIMESTAMP; their
 * zone and region fields are ignored by the lookups.
 *
 * Every function is thread-safe: the image is read-only.
 */
#ifndef LTZ_H
#define LTZ_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"
#include "ldi.h"

KEL_BEGIN_DECLS

/* Status codes of the lookups. */
#define LTZ_OK          0 /* success */
#define LTZ_ERR_ARG     1 /* a required argument is missing (null) */
#define LTZ_ERR_IMAGE   2 /* bad magic or a damaged image; or an instant not of kind 3 */
#define LTZ_ERR_VERSION 3 /* format version is not LTZ_FORMAT_VERSION */
#define LTZ_ERR_RANGE   4 /* region ID outside 1 ... 8191 */
#define LTZ_ERR_NOTFOUND 5 /* no such name, empty slot, or no such alias */
#define LTZ_ERR_SPACE   6 /* the caller's output area is too small */
#define LTZ_ERR_NOMEM   8 /* out of memory */

#define LTZ_MAGIC          0x4B65545Au
#define LTZ_FORMAT_VERSION 2
#define LTZ_MAX_IMAGE      524288u /* largest image the library accepts */
#define LTZ_HEADER_SIZE    4148u
#define LTZ_MAX_REGION     8191
#define LTZ_NAME_MAX       256     /* longest name plus its NUL that ltzName writes */
#define LTZ_ABBR_MAX       32      /* longest abbreviation plus NUL written by the lookups */

/* "No start hint" for ltzGetLocalByIndex. */
#define LTZ_NO_HINT 0xFFFFFFFFu

/* ------------------------------------------------------- finding the image */

/* Writes the path of the time-zone image into buf (NUL-terminated) and
 * returns its length: the value of KEL_TZFILE when set (at most 255
 * characters), else <KELTAR_HOME>/kelcore/zoneinfo/timezlrg.dat. Returns -1
 * when KEL_TZFILE is longer than 255 characters, when neither variable is set,
 * or when buf (len bytes) cannot hold the path; buf is then an empty string
 * (when len > 0). Thread-safe. */
KELAPI int32_t sldigpt(char *buf, size_t len);

/* Checks the first bytes of an image (len bytes at head): returns 3 when
 * len < LTZ_HEADER_SIZE, 4 when the magic is wrong, 5 when the stated length
 * exceeds LTZ_MAX_IMAGE, else the stated length (>= LTZ_HEADER_SIZE is not
 * implied: a stated length below the header is returned as is). */
KELAPI int32_t sldigsz(const void *head, size_t len);

/* Loads the process's image on first use (path from sldigpt) and stores its
 * address in *image. Later calls return the same image; it stays valid until
 * the process ends and is never written. Statuses: 0; 1 image null; 5 no path
 * or the file cannot be read; 2 the file is not an image (too short, wrong
 * magic, stated length over LTZ_MAX_IMAGE or larger than the file);
 * 8 out of memory. A failed load is remembered: later calls return the same
 * status without trying again. *image is null on failure. Thread-safe. */
KELAPI int32_t ltzGetImage(const void **image);

/* ---------------------------------------------------------- header fields */

/* The image's format version (2), content version (the tz data release, as
 * (year % 100) * 100 + letter number, e.g. 2025b -> 2502) and file ID (a
 * checksum of the content). Statuses: 0; 1 image or out null; 2 bad magic;
 * 3 wrong format version (ltzGetFileVersion still stores the version it
 * found). */
KELAPI int32_t ltzGetFileVersion(const void *image, uint16_t *version);
KELAPI int32_t ltzGetFileContentVer(const void *image, uint16_t *version);
KELAPI int32_t ltzGetFileID(const void *image, uint16_t *id);

/* ------------------------------------------------------------------ names */

/* Orders two NUL-terminated region names the way the name index is sorted:
 * byte by byte, letters without case, '-' equal to '_', a name that is a
 * prefix of the other first. Returns -1, 0 or 1; a null name orders first. */
KELAPI int32_t ltzCmp(const char *a, const char *b);

/* Finds the region ID of `name` (len bytes, no NUL needed; letters in any
 * case, '-' for '_') by binary search of the name index. Statuses: 0 with *id
 * set; 1 image, name or id null; 2/3 image not usable; 5 not found (*id = 0). */
KELAPI int32_t ltzID(const void *image, const char *name, size_t len, uint16_t *id);

/* Copies the name of region `id` (primary name for high part 0, else the
 * alias it selects) into buf, NUL included; *outlen (may be null) gets the
 * length without the NUL. Statuses: 0; 1 image or buf null; 2/3 image not
 * usable; 4 id outside 1 ... 8191; 5 empty slot or no such alias; 6 buf
 * (buflen bytes) too small. buf is an empty string on failure when buflen > 0. */
KELAPI int32_t ltzName(const void *image, uint16_t id, char *buf, size_t buflen, size_t *outlen);

/* The i-th name of the name index (in index order) and its ID, to enumerate
 * all names: copies the name into buf (NUL included), *id (may be null) gets
 * its region ID. Statuses: 0; 1 image or buf null; 2/3 image not usable;
 * 5 i >= the number of names; 6 buf too small. */
KELAPI int32_t ltzStep(const void *image, uint32_t i, char *buf, size_t buflen, uint16_t *id);

/* -------------------------------------------------------- offset lookups */

/* The state of region `id` at the UTC instant `utc` (kind LDI_KIND_TIMESTAMP):
 * *offset = UTC offset in seconds (local = UTC + offset), the abbreviation
 * copied into abbr (abbrlen bytes, NUL included; abbr may be null to skip it),
 * *dst = daylight-saving flag (may be null). Instants before the region's
 * first record give its first state, instants after its last transition its
 * last state. ltzGetIndex also stores in *index the number of the transition
 * found, counted from the region's first record (0). Statuses: 0; 1 image,
 * utc or offset null; 2 bad magic, damaged image, or utc not of kind 3;
 * 3 wrong format version; 4 id outside 1 ... 8191; 5 empty slot, or an
 * alias the slot does not carry (its name list ends first); 6 abbr too
 * small. On failure *offset, *dst and *index are untouched; abbr is an empty
 * string after status 6, else untouched. */
KELAPI int32_t ltzGet(const void *image, uint16_t id, const LdiDateTime *utc, int32_t *offset,
                      char *abbr, size_t abbrlen, uint8_t *dst);
KELAPI int32_t ltzGetIndex(const void *image, uint16_t id, const LdiDateTime *utc, int32_t *offset,
                           char *abbr, size_t abbrlen, uint8_t *dst, uint32_t *index);

/* The state of region `id` at the local wall-clock time `local` (kind 3).
 * *offset is read first: in the repeated hour when daylight-saving time ends,
 * a non-zero *offset equal to the earlier (daylight) offset selects it; any
 * other value, zero included, selects the later (standard) one. A local time
 * in the gap when daylight-saving time begins does not exist; it is resolved
 * with the offset in force before the gap (so 02:30 in a 02:00 -> 03:00 gap
 * is read as 02:30 of the old offset, i.e. 03:30 of the new one) and the
 * state reported is the one before the gap.
 * ltzGetLocal gives offset and flag; ltzGetLocalA adds the abbreviation;
 * ltzGetLocalByIndex also takes a start hint (a transition number from
 * ltzGetIndex or an earlier call, or LTZ_NO_HINT) and stores the number of
 * the transition chosen in *index (may be null).
 * Statuses as for ltzGet (1 also when offset is null). */
KELAPI int32_t ltzGetLocal(const void *image, uint16_t id, const LdiDateTime *local, int32_t *offset,
                           uint8_t *dst);
KELAPI int32_t ltzGetLocalA(const void *image, uint16_t id, const LdiDateTime *local, int32_t *offset,
                            char *abbr, size_t abbrlen, uint8_t *dst);
KELAPI int32_t ltzGetLocalByIndex(const void *image, uint16_t id, const LdiDateTime *local,
                                  int32_t *offset, char *abbr, size_t abbrlen, uint8_t *dst,
                                  uint32_t start, uint32_t *index);

/* ------------------------------------------------------ transition lists */

/* Builds the external transition list of region `id`: one count byte (the
 * number of transitions n, truncated to 8 bits), then 10 bytes per
 * transition: the 7-byte external date of the transition's UTC instant,
 * offset hours + 20, remaining offset minutes + 60 (both truncated toward
 * zero from the offset in whole minutes) and the daylight flag. *array gets a
 * new block of 10n + 1 bytes and *len its length. memctx and heap name the
 * memory manager heap to allocate from (lmmmalloc); a null heap with a memory
 * context means that context's top heap; a null memctx means the system
 * allocator (for callers without a started library).
 * *len is set to 0 and *array to null first. Statuses: 0; 1 image, array or
 * len null; 2/3 image not usable; 4 id out of range; 5 empty slot or no such
 * alias; 8 out of memory. The block is freed with ltzFreeTransArray and the
 * same memctx and heap. */
KELAPI int32_t ltzGetTransArray(const void *image, void *memctx, void *heap, uint16_t id,
                                uint8_t **array, size_t *len);
/* Frees a block of ltzGetTransArray (null is ignored); memctx and heap must
 * be the ones it was made with (freeing the heap frees it as well). */
KELAPI void ltzFreeTransArray(void *memctx, void *heap, uint8_t *array);

/* ------------------------------------------------------------ EBCDIC hosts
 * Names and abbreviations are ASCII in the image. On an EBCDIC host the
 * lookups convert results with ltzAscEbcConvert and caller-supplied names with
 * ltzAscEbcConvertR; both are available everywhere. The code page is EBCDIC
 * 037 restricted to the 128 ASCII characters; a byte without a counterpart
 * becomes the code page's substitute character (0x3F in EBCDIC, 0x1A in
 * ASCII). dst and src may be the same buffer. */

/* ASCII -> EBCDIC, len bytes. */
KELAPI void ltzAscEbcConvert(char *dst, const char *src, size_t len);
/* EBCDIC -> ASCII, len bytes. */
KELAPI void ltzAscEbcConvertR(char *dst, const char *src, size_t len);

KEL_END_DECLS

#endif /* LTZ_H */
