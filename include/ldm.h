/*
 * ldm.h - diagnostic log records.
 *
 * A record carries a time stamp, a severity, the process and thread that
 * wrote it, and five texts: instance, host, component, message and detail.
 * Records are written one per line as tagged text to a log file:
 *
 *   ldm1<TAB>ts=2026-11-21T06:28:36.123456Z<TAB>sev=2<TAB>pid=41<TAB>tid=3
 *       <TAB>inst=...<TAB>host=...<TAB>comp=...<TAB>msg=...<TAB>det=...
 *
 * Texts are byte strings with a length, so they may hold any byte: a
 * backslash, tab, line feed, carriage return and the other control bytes
 * (0-31 and 127) are written as escapes (\\ \t \n \r \xHH), so that every
 * text reads back exactly as written. A reader ignores tags it does not
 * know; an absent text reads back as absent (null), not as empty.
 *
 * When a log file would grow beyond its size limit, it is rotated: the file
 * becomes <path>.1, an older <path>.1 becomes <path>.2 and so on, keeping at
 * most `keep` old files.
 *
 * Errors: failures put a record of facility "LDM" (product "KELCORE") on
 * the calling thread's error stack. Results are 0 / -1, pointers null on
 * failure, unless a function says otherwise.
 *
 * Thread safety: a writer may be used by many threads at once; each record
 * is written whole, never interleaved with another. A reader is used by one
 * thread at a time.
 */
#ifndef LDM_H
#define LDM_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"
#include "lmm.h"
#include "lpm.h"

KEL_BEGIN_DECLS

/* Severities: a lower number is more severe. Any value 1-99 may be used. */
#define LDM_SEV_FATAL 1
#define LDM_SEV_ERROR 2
#define LDM_SEV_WARNING 3
#define LDM_SEV_NOTICE 4
#define LDM_SEV_INFO 5
#define LDM_SEV_TRACE 6

/* A record. Texts are (pointer, length) pairs; a null pointer is an absent
 * text. */
typedef struct ldmrec {
  int64_t time_us;  /* microseconds since 1970-01-01 00:00:00 UTC */
  int32_t severity; /* 1-99 */
  int32_t spare;
  int64_t pid;
  uint64_t tid;
  const char *instance;
  size_t instancel;
  const char *host;
  size_t hostl;
  const char *component;
  size_t componentl;
  const char *message;
  size_t messagel;
  const char *detail;
  size_t detaill;
  void *block; /* records read by ldmread: the heap block holding the texts */
} ldmrec;

typedef struct ldmwriter ldmwriter;
typedef struct ldmreader ldmreader;

/* Makes the diagnostic-record context of a started library (registers the
 * facility "LDM"); null for a null ctx or no memory. Free it with ldmtrm
 * after every writer and reader made with it is closed. */
KELAPI void *ldmini(lcorectx *ctx);
KELAPI int32_t ldmtrm(void *dctx);

/* Opens (creating it if needed) the log file `path` for appending.
 * maxbytes: rotate before a record would take the file beyond this size
 * (0: never rotate; a record larger than the limit is still written, to a
 * fresh file). keep: old files kept (0-99; 0 removes the full file).
 * instance and component (NUL-terminated, may be null) are put into every
 * record written by ldmwrite; the host name is the machine's. */
KELAPI ldmwriter *ldmopen(void *dctx, const char *path, uint64_t maxbytes, int32_t keep, const char *instance,
                          const char *component);
/* Writes a record with the current time, the calling process and thread,
 * the writer's instance, host and component, and the given severity,
 * message and detail (either text may be null = absent). */
KELAPI int32_t ldmwrite(ldmwriter *w, int32_t severity, const char *msg, size_t msgl, const char *detail,
                        size_t detaill);
/* Writes the record *r exactly as given (all its fields).
 * Both writers return -1 when the record could not be written, and also
 * when a rotation failed (LDM_ROTATE) even though the record was then
 * appended to the file that could not be moved. */
KELAPI int32_t ldmwrec(ldmwriter *w, const ldmrec *r);
/* Closes the writer; null is ignored (0). */
KELAPI int32_t ldmclose(ldmwriter *w);

/* Record filter: a record passes when every condition set holds. */
typedef struct ldmfilter {
  int32_t maxsev;        /* 0: any; else severity <= maxsev */
  int32_t spare;
  int64_t from_us;       /* 0: any; else time_us >= from_us */
  int64_t to_us;         /* 0: any; else time_us < to_us */
  const char *instance;  /* null: any; else equal (NUL-terminated) */
  const char *host;      /* null: any; else equal */
  const char *component; /* null: any; else equal */
  const char *contains;  /* null: any; else a substring of the message */
} ldmfilter;

/* Opens the log `path` for reading. With rotated != 0 the old files are
 * read first, oldest first (<path>.N ... <path>.1, then <path>), so records
 * come in the order they were written. A missing file is read as empty
 * unless none of the files exists (then null). */
KELAPI ldmreader *ldmropen(void *dctx, const char *path, int32_t rotated);
/* Reads the next record that passes `filter` (null: all) into *out, its
 * texts in one block of `heap` (out->block; free it with lmmfree, or with
 * ldmrfree). Returns 1 for a record, 0 at the end, -1 for a malformed
 * record (LDM_BADREC, naming the file and line; the reader moves past it,
 * so the next call continues) or an error. */
KELAPI int32_t ldmread(ldmreader *rd, const ldmfilter *filter, void *mctx, lmmheap *heap, ldmrec *out);
/* Frees the block of a record read by ldmread and zeroes *r. */
KELAPI int32_t ldmrfree(void *mctx, lmmheap *heap, ldmrec *r);
/* Closes a reader; null is ignored (0). */
KELAPI int32_t ldmrclose(ldmreader *rd);

/* Formats *r as one record line (with its line feed) into buf: the number
 * of bytes the line has; nothing (or a part) is written when bufl is too
 * small, so call with the result to get it whole. */
KELAPI size_t ldmfmt(const ldmrec *r, char *buf, size_t bufl);
/* Parses one record line line[0..len) (without or with its line feed) into
 * *r; its texts point into `scratch` (at least len bytes), where they are
 * unescaped. 0, or -1 for a malformed line (nothing recorded). */
KELAPI int32_t ldmparse(const char *line, size_t len, char *scratch, ldmrec *r);

KEL_END_DECLS

#endif /* LDM_H */
