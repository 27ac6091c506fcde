/*
 * kelstream.h - caller-implemented streams, memory callbacks and property
 * lists.
 *
 * A caller hands the library a stream whose behaviour it implements itself:
 * it names the stream's operations (open, close, read, write, read_char,
 * write_char) in a null-terminated list of (name, value) pairs given to
 * KelStreamInit; the library checks the set, keeps it in a stream object and
 * dispatches to it. A stream is one-way: it reads or it writes.
 *
 * Memory for stream objects comes from a memory context made by KelMemInit
 * (the caller's allocate/free pair) when the "kelmem_context" property names
 * one, otherwise from the system allocator.
 *
 * Every function returns a small status number (below) or, where stated, a
 * pointer or a 1/0 answer; nothing is recorded on the error stack.
 *
 * Live objects carry a magic tag; terminating one overwrites its tag with
 * 0xDEADBEEF before its memory is given back, so a terminated object is
 * refused (status KELSTREAM_DEAD, 0 for the predicates, null for pointers)
 * for as long as its memory has not been reused; with a caller allocator
 * that keeps freed blocks that is always.
 *
 * Thread safety: memory contexts are as thread-safe as the caller's
 * functions; a stream object must not be used by two threads at once.
 * Property functions only read (or, for the setters, write) the given list.
 */
#ifndef KELSTREAM_H
#define KELSTREAM_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"

KEL_BEGIN_DECLS

/* ------------------------------------------------------------ status numbers */
#define KELSTREAM_OK          0 /* success */
#define KELSTREAM_NULL        1 /* null list, name or output (property functions) */
#define KELSTREAM_DEAD        2 /* not a live stream or memory context; allocation refused */
#define KELSTREAM_NOTFOUND    2 /* property not found (same number) */
#define KELSTREAM_NOOP        3 /* the stream has no operation of that direction */
#define KELSTREAM_UNKNOWN     4 /* unknown property name given to KelStreamInit */
#define KELSTREAM_NODIRECTION 5 /* neither a read nor a write operation */
#define KELSTREAM_BOTHWAYS    6 /* a stream given both directions */
#define KELSTREAM_NOTOPEN     7 /* the stream is not open */
#define KELSTREAM_OTHERKIND   8 /* only the other kind (bytes/characters) of that direction */

/* ----------------------------------------------------------- property lists */

#define KELPROP_BOOLEAN  1
#define KELPROP_UNSIGNED 2
#define KELPROP_POINTER  3

/* One row of a property list; a list ends with a row whose name is null.
 * Pointer values are stored as their address (uintptr_t) in `value`. */
typedef struct KelProp {
  const char *name; /* NUL-terminated; null ends the list */
  int32_t code;     /* the list owner's number for the property */
  int32_t type;     /* KELPROP_BOOLEAN, KELPROP_UNSIGNED or KELPROP_POINTER */
  uint64_t value;
} KelProp;

/* The first row of `table` whose name equals `name` byte for byte, or null
 * when there is none or table or name is null. The row is the caller's. */
KELAPI KelProp *KelPropGet(const KelProp *table, const char *name);

/* Reads the value of the first row named `name` whose type is
 * KELPROP_POINTER (KelPropGetPointer) or KELPROP_UNSIGNED
 * (KelPropGetUnsigned); rows of that name with another type are skipped.
 * KelPropGetBoolean takes the first row of that name whatever its type and
 * gives 1 for a non-zero value, else 0.
 * Status: KELSTREAM_OK; KELSTREAM_NULL for a null list, name or output
 * pointer; KELSTREAM_NOTFOUND when no row qualifies, with *out set to 0. */
KELAPI int32_t KelPropGetPointer(const KelProp *list, const char *name, void **out);
KELAPI int32_t KelPropGetUnsigned(const KelProp *list, const char *name, uint64_t *out);
KELAPI int32_t KelPropGetBoolean(const KelProp *list, const char *name, int32_t *out);

/* Stores `value` in the first row named `name`, whatever its type (the type
 * is kept; a boolean is stored as 1 or 0). Status: KELSTREAM_OK;
 * KELSTREAM_NULL for a null list or name; KELSTREAM_NOTFOUND for an empty
 * list or no row of that name (nothing written). */
KELAPI int32_t KelPropSetPointer(KelProp *list, const char *name, void *value);
KELAPI int32_t KelPropSetUnsigned(KelProp *list, const char *name, uint64_t value);
KELAPI int32_t KelPropSetBoolean(KelProp *list, const char *name, int32_t value);

/* --------------------------------------------------------- memory contexts */

typedef struct KelMem KelMem;

/* The caller's allocator: alloc(context word, size) returns a block of at
 * least `size` bytes aligned for any type, or null; free(context word,
 * block) gives one back. */
typedef void *(*KelMemAllocFn)(void *context, size_t size);
typedef void (*KelMemFreeFn)(void *context, void *block);

/* Makes a memory context over the caller's allocator pair, or over the
 * system allocator when both functions are null. The context record itself
 * comes from alloc(context, record size), or from the system allocator.
 * Returns null when only one of the two functions is given or the record
 * cannot be allocated. End it with KelMemTerm. */
KELAPI KelMem *KelMemInit(void *context, KelMemAllocFn alloc_fn, KelMemFreeFn free_fn);

/* A block of `size` bytes from the context's allocator (zero-filled by
 * KelMemCalloc). Null for a null or dead context, a size of 0, or when the
 * allocator has nothing. Free it with KelMemFree on the same context. */
KELAPI void *KelMemAlloc(KelMem *mem, size_t size);
KELAPI void *KelMemCalloc(KelMem *mem, size_t size);

/* Gives `block` back to the context's allocator; a null or dead context or
 * a null block is ignored. */
KELAPI void KelMemFree(KelMem *mem, void *block);

/* Ends a memory context: clears the record, overwrites its tag with
 * 0xDEADBEEF and frees it the way it was allocated. Blocks still allocated
 * through it are not touched. Status: KELSTREAM_OK, or KELSTREAM_DEAD for a
 * null or dead context (nothing done). */
KELAPI int32_t KelMemTerm(KelMem *mem);

/* ------------------------------------------------------------------ streams */

typedef struct KelStream KelStream;

/* Size in bytes of the handle area every stream carries for its operations
 * (aligned to 16 bytes, zero-filled when the stream is made). */
#define KELSTREAM_HANDLE_SIZE 64

/* The operations a caller implements. Each receives the context word and
 * the stream identifier given to KelStreamInit (the identifier as last set
 * by KelStreamSid), the stream's handle area, and then the arguments the
 * caller gave to the library function, passed through unchanged. A result
 * of 0 means success; any other value is handed back to the caller as the
 * status of the library function, so implementations should use numbers
 * that do not clash with the KELSTREAM_ ones (for instance 100 and up).
 *
 *   open(word, sid, handle, info): info as given to KelStreamOpen, or a
 *       zero-filled scratch area of KELSTREAM_HANDLE_SIZE bytes that lives
 *       for the call when info is null.
 *   close(word, sid, handle)
 *   read(word, sid, handle, buffer, length): *length holds the buffer's
 *       size in bytes on entry and the number of bytes read on return.
 *   write(word, sid, handle, buffer, length): *length holds the number of
 *       bytes to write on entry and the number written on return.
 *   read_char / write_char: as read and write, in the caller's characters:
 *       *count counts characters, not bytes.
 */
typedef int32_t (*KelStreamOpenFn)(void *word, void *sid, void *handle, void *info);
typedef int32_t (*KelStreamCloseFn)(void *word, void *sid, void *handle);
typedef int32_t (*KelStreamReadFn)(void *word, void *sid, void *handle, void *buffer, size_t *length);
typedef int32_t (*KelStreamWriteFn)(void *word, void *sid, void *handle, const void *buffer, size_t *length);
typedef int32_t (*KelStreamReadCharFn)(void *word, void *sid, void *handle, void *chars, size_t *count);
typedef int32_t (*KelStreamWriteCharFn)(void *word, void *sid, void *handle, const void *chars, size_t *count);

/* Makes a stream. After `status` come (name, value) pairs ended by a null
 * name; every value is passed as a pointer (void *; cast operation
 * functions to void *). Names: "kelmem_context" (a KelMem *), "open",
 * "close", "read", "write", "read_char", "write_char"; a null value counts
 * as not given, and a name given twice keeps its last value. Rule on the
 * operations: "read" with "write" is refused (KELSTREAM_BOTHWAYS); "read"
 * alone or with anything else is accepted; without "read", "write" is
 * accepted; otherwise "read_char" is accepted unless "write_char" is also
 * given (KELSTREAM_BOTHWAYS), "write_char" alone is accepted, and no
 * operation of either direction gives KELSTREAM_NODIRECTION.
 * Returns the stream (closed), or null with the status stored through
 * `status` (when not null): KELSTREAM_UNKNOWN for a name not in the list
 * above (the pairs after it are not read), KELSTREAM_NODIRECTION,
 * KELSTREAM_BOTHWAYS, or KELSTREAM_DEAD when the memory context is dead or
 * the object cannot be allocated. On success `status` is not written. */
KELAPI KelStream *KelStreamInit(void *word, void *sid, int32_t *status, const char *name, ...);

/* Sets the stream identifier to `sid` and stores the previous one through
 * `old` (when not null). Status: KELSTREAM_OK or KELSTREAM_DEAD. */
KELAPI int32_t KelStreamSid(KelStream *stream, void *sid, void **old);

/* The stream's handle area (KELSTREAM_HANDLE_SIZE bytes, the caller's to
 * use), or null for a null or dead stream. */
KELAPI void *KelStreamHandle(KelStream *stream);

/* Opens the stream: KELSTREAM_OK at once when it is already open; else the
 * open operation, if any, is called and a non-zero result of it is returned
 * (the stream stays closed); else the stream is marked open.
 * KELSTREAM_DEAD for a null or dead stream. */
KELAPI int32_t KelStreamOpen(KelStream *stream, void *info);

/* Closes the stream: KELSTREAM_OK at once when it is not open; else the
 * close operation, if any, is called and a non-zero result of it is
 * returned (the stream stays open); else the stream is marked closed.
 * KELSTREAM_DEAD for a null or dead stream. */
KELAPI int32_t KelStreamClose(KelStream *stream);

/* Dispatch to the stream's operation of that name with the arguments as
 * described for the operation types. Status: KELSTREAM_DEAD for a null or
 * dead stream; KELSTREAM_NOTOPEN when not open; when the operation is
 * missing, KELSTREAM_OTHERKIND if the stream has the other kind (bytes or
 * characters) of the same direction, else KELSTREAM_NOOP; otherwise the
 * operation's own result. Nothing is written on a library status. */
KELAPI int32_t KelStreamRead(KelStream *stream, void *buffer, size_t *length);
KELAPI int32_t KelStreamWrite(KelStream *stream, const void *buffer, size_t *length);
KELAPI int32_t KelStreamReadChar(KelStream *stream, void *chars, size_t *count);
KELAPI int32_t KelStreamWriteChar(KelStream *stream, const void *chars, size_t *count);

/* 1 when the stream has a read (KelStreamReadable) or write
 * (KelStreamWritable, also exported as KelStreamWriteable) operation of
 * either kind, else 0; 0 for a null or dead stream. */
KELAPI int32_t KelStreamReadable(KelStream *stream);
KELAPI int32_t KelStreamWritable(KelStream *stream);
KELAPI int32_t KelStreamWriteable(KelStream *stream);

/* Ends the stream without calling its close operation: overwrites its tag
 * with 0xDEADBEEF and frees it through its memory context, or the system
 * allocator. End a stream before the memory context it came from (a dead
 * context frees nothing). Status: KELSTREAM_OK or KELSTREAM_DEAD. */
KELAPI int32_t KelStreamTerm(KelStream *stream);

KEL_END_DECLS

#endif /* KELSTREAM_H */
