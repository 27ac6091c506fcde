/*
 * lfi.h - the file interface: buffered, portable file access.
 *
 * Three layers, top down:
 *   lfi*  buffered files, names and directories for callers. The first
 *         argument `fctx` is a file context: field lfictx of a context record
 *         (the library's, or a package instance's copy). Failures return -1
 *         (or null) and leave one marked record of facility "LFI" on the
 *         calling thread's error stack, carrying the system error number
 *         (lemgse) and the file name as its first text argument.
 *   lfip* file names and paths: pure functions on caller buffers, no records.
 *   slf*  the system layer's unbuffered primitives (OS calls live there only);
 *         results 0 / -1 with the reason in slerrno().
 *
 * Thread safety: the functions on names, paths and directories are safe from
 * any number of threads. One open file (lfifile) is used by one thread at a
 * time; different files may be used from different threads at once.
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

/* ================================================== system-layer primitives */

/* Open flags of slfopen. */
#define SLF_READ   0x01u /* open for reading */
#define SLF_WRITE  0x02u /* open for writing */
#define SLF_APPEND 0x04u /* every write goes to the end of the file */
#define SLF_CREATE 0x08u /* create the file when it does not exist */
#define SLF_EXCL   0x10u /* create the file; fail when it exists */
#define SLF_TRUNC  0x20u /* cut an existing file to length 0 */

/* Seek origins. */
#define SLF_SEEK_SET 0
#define SLF_SEEK_CUR 1
#define SLF_SEEK_END 2

/* Types of slfinfo.type. */
#define SLF_TYPE_FILE  1
#define SLF_TYPE_DIR   2
#define SLF_TYPE_OTHER 3

/* Portable classes of system errors (slfclass). */
#define SLF_E_NONE     0
#define SLF_E_NOTFOUND 1 /* no such file or directory */
#define SLF_E_EXISTS   2 /* exists already */
#define SLF_E_DENIED   3 /* permission denied, read-only medium */
#define SLF_E_ISDIR    4 /* a directory where a file was needed */
#define SLF_E_NOTDIR   5 /* a file where a directory was needed */
#define SLF_E_NOSPACE  6 /* device or quota full, file too large */
#define SLF_E_NOTEMPTY 7 /* directory not empty */
#define SLF_E_BADARG   8 /* bad handle or argument */
#define SLF_E_OTHER    9

/* What slfstat / slffstat report. */
typedef struct slfinfo {
  int64_t size;    /* bytes */
  int64_t mtimeus; /* last modification, microseconds since 1970 UTC */
  uint32_t mode;   /* permission bits */
  int32_t type;    /* SLF_TYPE_* */
} slfinfo;

/* The portable class (SLF_E_*) of system error number `err`. */
KELAPI int32_t slfclass(int32_t err);

/* Opens `path` with SLF_* flags (at least one of SLF_READ, SLF_WRITE); new
 * files get the process's default permissions. A directory is refused
 * (SLF_E_ISDIR). *handle receives the handle, or -1 on failure. 0 / -1. */
KELAPI int32_t slfopen(const char *path, uint32_t flags, int64_t *handle);
/* Opens a new, unnamed file for reading and writing in directory `dir`
 * (null or "": the temporary directory, sltmpdir); it vanishes
 * when closed. 0 / -1. */
KELAPI int32_t slftemp(const char *dir, int64_t *handle);
/* The handle of the process's standard input (which 0), output (1) or
 * error (2), for slfread / slfwrite; -1 for any other `which`. The library
 * never closes these. */
KELAPI int64_t slfstd(int32_t which);
/* Closes a handle; the handle is invalid afterwards whatever the result. */
KELAPI int32_t slfclose(int64_t handle);
/* Reads at most n bytes at the current position: the number read, 0 at the
 * end of the file, -1 on failure. */
KELAPI int64_t slfread(int64_t handle, void *buf, size_t n);
/* Writes all n bytes: n, or -1 when the write stopped (the file may hold a
 * part of the data then). */
KELAPI int64_t slfwrite(int64_t handle, const void *buf, size_t n);
/* Moves the position: the new position from the start, or -1. */
KELAPI int64_t slfseek(int64_t handle, int64_t offset, int32_t whence);
/* Forces the file's data to the medium. */
KELAPI int32_t slfsync(int64_t handle);
/* Sets the file's length (cut or extended with zeros). */
KELAPI int32_t slftruncate(int64_t handle, int64_t size);
/* Information on a file by name (links followed) or by handle. 0 / -1. */
KELAPI int32_t slfstat(const char *path, slfinfo *info);
KELAPI int32_t slffstat(int64_t handle, slfinfo *info);
/* Removes a file (not a directory) / renames a file or directory, replacing
 * an existing target file. */
KELAPI int32_t slfremove(const char *path);
KELAPI int32_t slfrename(const char *from, const char *to);
/* Creates one directory / removes an empty one. */
KELAPI int32_t slfmkdir(const char *path);
KELAPI int32_t slfrmdir(const char *path);
/* Directory listing: slfdopen gives a cursor (null on failure); slfdnext
 * copies the next name (never "." or "..") into buf and returns its length,
 * 0 after the last, -1 on failure (a name longer than len - 1 included);
 * slfdclose ends the cursor. A cursor belongs to one thread at a time. */
KELAPI void *slfdopen(const char *path);
KELAPI int32_t slfdnext(void *dir, char *buf, size_t len);
KELAPI int32_t slfdclose(void *dir);
/* The current directory / the temporary directory ($TMPDIR when set and not
 * empty, else /tmp; the system's own elsewhere), without a trailing
 * separator, into buf (NUL-terminated). Their length, or -1 when buf is too
 * small or the system cannot tell. Thread-safe. */
KELAPI int32_t slgetcwd(char *buf, size_t len);
KELAPI int32_t sltmpdir(char *buf, size_t len);

/* ========================================================= names and paths
 * Names use '/' as the separator. Every function writes a NUL-terminated
 * result into buf and returns its length, or -1 (buf unchanged) when an
 * argument is null or the result needs more than len - 1 bytes. Pure and
 * thread-safe. */

/* `dir` and `name` joined by one separator; an absolute `name` replaces
 * `dir`, an empty `dir` gives `name`, and no separator is added after a
 * `dir` that ends in one. */
KELAPI int32_t lfipjoin(const char *dir, const char *name, char *buf, size_t len);
/* The directory part: everything before the last separator, with trailing
 * separators removed unless it is all separators ("/a/b" -> "/a", "a" -> "",
 * "/a" -> "/"). */
KELAPI int32_t lfipdir(const char *path, char *buf, size_t len);
/* The part after the last separator ("a/b.txt" -> "b.txt", "a/" -> ""). */
KELAPI int32_t lfipbase(const char *path, char *buf, size_t len);
/* The extension of the last part, its dot included ("a/b.tar.gz" -> ".gz");
 * "" when there is none, and leading dots do not start one (".profile"). */
KELAPI int32_t lfipext(const char *path, char *buf, size_t len);
/* The path without the extension that lfipext gives. */
KELAPI int32_t lfipstem(const char *path, char *buf, size_t len);
/* The path normalised without looking at the file system: repeated
 * separators and "." parts removed, "x/.." pairs folded, ".." kept where it
 * cannot fold (at the start of a relative path; dropped at the root), no
 * trailing separator; "" becomes ".". A leading "//" (exactly two) is kept.
 * The result may be written over `path` itself. A name of more than 2048
 * parts is refused (-1). */
KELAPI int32_t lfipnorm(const char *path, char *buf, size_t len);
/* 1 when `path` is absolute, else 0 (null: 0). */
KELAPI int32_t lfipisabs(const char *path);
/* `path` made absolute against the current directory and normalised. */
KELAPI int32_t lfipabs(const char *path, char *buf, size_t len);

/* ============================================================ buffered files */

/* An open file. Its record and buffer come from the top heap of the file
 * context's memory manager and are freed by lficlose. */
typedef struct lfifile lfifile;

/* Modes of lfiopen. */
#define LFI_READ   0x01u /* reading */
#define LFI_WRITE  0x02u /* writing (alone: create or truncate, as "w") */
#define LFI_APPEND 0x04u /* writes go to the end (implies LFI_WRITE; creates) */
#define LFI_CREATE 0x08u /* with LFI_READ|LFI_WRITE: create when missing, keep contents */
#define LFI_EXCL   0x10u /* create; fail with "already exists" when present */
#define LFI_TEMP   0x20u /* unnamed temporary file for reading and writing in
                          * directory `path` (null: the temporary directory);
                          * it vanishes when closed */
#define LFI_TRUNC  0x40u /* with LFI_READ|LFI_WRITE: cut to length 0 */

/* Default buffer size for bufsize 0. */
#define LFI_BUFSIZE 65536u

#define LFI_SEEK_SET 0
#define LFI_SEEK_CUR 1
#define LFI_SEEK_END 2

/* Opens `path` in `mode` with a buffer of `bufsize` bytes (0: LFI_BUFSIZE;
 * 1 is allowed and means every byte goes to the system). LFI_READ alone
 * opens an existing file; LFI_WRITE alone creates or truncates. Returns the
 * file, or null with a record: LFI_NOTFOUND, LFI_EXISTS, LFI_DENIED,
 * LFI_ISDIR, LFI_NOTDIR, LFI_OPEN (other system errors), LFI_BADARG (null
 * fctx is not recorded), LFI_NOMEM. Nothing is left open or allocated on
 * failure. */
KELAPI lfifile *lfiopen(void *fctx, const char *path, uint32_t mode, size_t bufsize);

/* Writes what is buffered, closes the file and frees its record; the file is
 * gone whatever the result. 0, or -1 with LFI_WRITEFAIL/LFI_NOSPACE (the buffer
 * could not be written) or LFI_CLOSE. A null file is -1, not recorded. */
KELAPI int32_t lficlose(void *fctx, lfifile *f);

/* Reads up to n bytes into buf; fewer only at the end of the file. Returns
 * the number read (0 at the end), or -1 with LFI_READFAIL or LFI_MODE (the file
 * is not open for reading). Bytes read before a failure are lost. */
KELAPI int64_t lfiread(void *fctx, lfifile *f, void *buf, size_t n);

/* Writes n bytes: 0, or -1 with LFI_NOSPACE, LFI_WRITEFAIL or LFI_MODE. After a
 * failure the file position is unknown until the next lfiseek. */
KELAPI int32_t lfiwrite(void *fctx, lfifile *f, const void *buf, size_t n);

/* Reads one line into buf: the bytes up to and including the next '\n',
 * NUL-terminated. A line longer than len - 1 bytes is returned in pieces
 * (only the last piece ends with '\n'). Returns the bytes stored (not
 * counting the NUL), 0 at the end of the file, -1 with a record (len < 2
 * gives LFI_BADARG). */
KELAPI int32_t lfigetl(void *fctx, lfifile *f, char *buf, size_t len);

/* Writes the NUL-terminated text s (no newline added): 0 / -1 as lfiwrite. */
KELAPI int32_t lfiputs(void *fctx, lfifile *f, const char *s);

/* Moves the position (LFI_SEEK_*) and returns it, counted from the start;
 * -1 with LFI_SEEK (a position before the start included). Buffered output
 * is written first. Seeking in an LFI_APPEND file only affects reading. */
KELAPI int64_t lfiseek(void *fctx, lfifile *f, int64_t offset, int32_t whence);

/* The current position, buffered data included; -1 with a record. */
KELAPI int64_t lfitell(void *fctx, lfifile *f);

/* Writes buffered output to the system (lfiflush), and further to the
 * medium (lfisync). 0 / -1 with a record. */
KELAPI int32_t lfiflush(void *fctx, lfifile *f);
KELAPI int32_t lfisync(void *fctx, lfifile *f);

/* Size of the open file in bytes, buffered output included; -1. */
KELAPI int64_t lfisize(void *fctx, lfifile *f);

/* 1 at the end of the file after a read found it, else 0. */
KELAPI int32_t lfieof(void *fctx, lfifile *f);

/* ================================================== names on the file system */

/* What `path` is: LFI_NONE (0, does not exist), LFI_FILE (1), LFI_DIR (2),
 * LFI_OTHER (3); -1 with a record when it cannot be told (not a missing part
 * of the path: that is LFI_NONE). */
#define LFI_NONE  0
#define LFI_FILE  1
#define LFI_DIR   2
#define LFI_OTHER 3
KELAPI int32_t lfiexists(void *fctx, const char *path);

/* Size of the named file in bytes; -1 with a record. */
KELAPI int64_t lfifsize(void *fctx, const char *path);

/* Removes a file (a directory is refused with LFI_ISDIR). 0 / -1. */
KELAPI int32_t lfiremove(void *fctx, const char *path);

/* Renames `from` to `to`, replacing a file `to`. 0 / -1. */
KELAPI int32_t lfirename(void *fctx, const char *from, const char *to);

/* Creates directory `path`; with parents 1 also the missing directories
 * above it, and an existing directory is then no error. 0 / -1. */
KELAPI int32_t lfimkdir(void *fctx, const char *path, int32_t parents);

/* Removes directory `path`: empty only (LFI_NOTEMPTY otherwise), or with
 * recursive 1 everything in it first. 0 / -1. */
KELAPI int32_t lfirmdir(void *fctx, const char *path, int32_t recursive);

/* Lists directory `path`: returns a null-terminated array of its entry names
 * (without "." and ".."), sorted by byte value, and stores their number in
 * *count (may be null). The array and the names are one block of the file
 * context's top heap: free it with lfilfree. Null with a record on failure. */
KELAPI char **lfilist(void *fctx, const char *path, size_t *count);
/* Frees a list made by lfilist (null is ignored). */
KELAPI void lfilfree(void *fctx, char **list);

KEL_END_DECLS

#endif /* LFI_H */
