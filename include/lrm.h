/*
 * lrm.h - the parameter manager: parameter files and command lines, declared
 * key sets, typed values.
 *
 * A caller opens a parameter context (lrmini, lrminit, lrminiu), declares the
 * keys it accepts (lrmpsvp), feeds it command lines, strings, parameter files
 * and environment variables (lrmpaa, lrmpst, lrmpfi, lrmpev), and reads typed
 * values back by key (lrmgsv, lrmgiv, lrmg8v, lrmgbv, lrmgonv, lrmgsp).
 *
 * The language. An input is optional positional values, then named settings
 * (NAME = value value ... or, on command lines and strings, Unix-style -flag,
 * -key value, -key=value), then values trailing the last Unix-style option.
 * A value is a word, a quoted string ('..' or "..", the quote doubled inside
 * stands for itself) or a parenthesised list of values; a backslash at the
 * end of a line joins the next line. '#' starts a comment in files (and
 * everywhere with LRM_OPT_COMMENTS, which also keeps a comment that follows a
 * value on its line and gives it back in dumps).
 *
 * Storage. Every value given to a key is kept as one occurrence, in order,
 * whatever the source; a parenthesised list contributes its words as further
 * occurrences. Occurrence 0 is the first. A declared default is occurrence 0
 * until the user gives the key a value: the user's values then replace it,
 * as occurrences 0, 1, 2... in the order given. Values are checked and
 * converted to the key's declared type when stored. A key name "q:k" (in a
 * source, on a command line as -q:k, or given to any call that takes a key
 * without a qualifier) stands for the key k under qualifier q (a section);
 * getters with qualifier q find it, and fall back to the unqualified k.
 * Positional values, and values trailing a -flag, are kept under the empty
 * key (length 0). Values trailing a -key belong to that key.
 *
 * Every call that stores values (lrmspv, lrmavla, lrmpaa, lrmpas, lrmpst,
 * lrmpfi with its includes, lrmpev) stores all of them or, when it fails,
 * none: after a failure the values are as they were before the call.
 *
 * Statuses. Functions returning uint32_t return 0 for success or a status
 * number of message facility "LRM" of product "KELCORE"; each failure is also
 * recorded on the calling thread's error stack (lem.h) with that number:
 *   101 unknown key name          102 value outside the declared range
 *   103 bad base prefix (%x)      104 integer text not convertible
 *   105 not a boolean word        106 out of memory
 *   107 ambiguous abbreviation    109 syntax error
 *   110 comma not allowed         111 unterminated quoted string
 *   113 file cannot be opened     114 file cannot be read
 *   115 files nested too deeply   116 source larger than the limit
 *   120 not a valid number
 *   201 required argument null    202 key type does not match the getter
 *   206 value longer than buffer  211 abbreviated lookup not allowed
 *   212 bad declaration           213 key declared twice
 *   221 invalid UTF-8/UTF-16 text 222 no key set declared (lrmpatk, lrmprh)
 * The records of statuses 101-107, 109-111, 113-116 and 120 say where: their
 * text ends with the source (file name, "command line", "string" or the
 * environment variable), line and column (1-based; the column counts
 * characters) and the parameter concerned, as far as known, and the record
 * carries these as its last four arguments: source name (text, "" outside a
 * source), line and column (numbers, 0 outside a source), parameter (text,
 * "" when none).
 *
 * The character set's rules. Names are compared, and values of type
 * LRM_T_NAME upper-cased, by the case rules of the context's character set;
 * blanks are the characters of its space class (so U+00A0 separates values
 * in Unicode mode). A single-byte set is applied byte by byte; a multi-byte
 * set character by character, each read and classified by the set (lx.h).
 *
 * Unicode mode (LRM_F_UNICODE): key names, qualifiers and values cross the
 * interface as UTF-16 in native byte order (lengths in 16-bit units,
 * NUL-terminated strings end with a 0 unit) and are kept as UTF-8 inside.
 * File and command-line text is UTF-8 in that mode.
 *
 * Thread safety: a context is for one thread at a time. Different contexts
 * may be used by different threads.
 */
#ifndef LRM_H
#define LRM_H

#include <stddef.h>
#include <stdint.h>

#include "kelapi.h"
#include "lpm.h"
#include "lx.h"

KEL_BEGIN_DECLS

/* Opaque parameter context. */
typedef struct lrmctx lrmctx;

/* --------------------------------------------------------------- opening */

/* Context flags (lrminiu). */
#define LRM_F_UNICODE      0x0001u /* UTF-16 at the interface, UTF-8 inside */
#define LRM_OPT_COMMA      0x0400u /* a comma may separate values */
#define LRM_OPT_COMMENTS   0x1000u /* keep comments; '#' starts one on command lines too */

/* Initialisation callback: called once by lrminiu with a 256-byte buffer the
 * caller may fill with a NUL-terminated program name for messages. A
 * non-zero result makes the initialisation fail. */
typedef int32_t (*lrminitcb)(void *arg, char *buf256);

/* Makes a parameter context.
 *   ctx      the library's context record (lpm.h); required
 *   charset  character-set handle (an environment of lx.h) for the caller's
 *            text, or null for "AMERICAN_AMERICA.US7ASCII" (ignored in Unicode
 *            mode, where the inside is "AL32UTF8"); a two-byte Unicode set
 *            (AL16UTF16, AL16UTF16LE) cannot be one and makes the call fail
 *   flags    LRM_F_* and LRM_OPT_* bits
 *   cb, cbarg optional initialisation callback and its argument
 * Opens facility "LRM" of "KELCORE", makes the context's heap inside the
 * top heap and loads the formatter package "lsf". Returns the context, or
 * null when ctx is null, memory runs out, a step fails or the callback
 * refuses; everything made so far is then freed. */
KELAPI lrmctx *lrminiu(lcorectx *ctx, const lxenv *charset, uint32_t flags, lrminitcb cb, void *cbarg);
/* lrminiu with flags 0. */
KELAPI lrmctx *lrminit(lcorectx *ctx, const lxenv *charset, lrminitcb cb, void *cbarg);
/* lrminiu with no character-set handle and flags 0. */
KELAPI lrmctx *lrmini(lcorectx *ctx, lrminitcb cb, void *cbarg);
/* Frees the context and everything it holds (null is ignored). 0 / -1. */
KELAPI int32_t lrmtrm(lrmctx *h);

/* Sets the scanner options LRM_OPT_COMMA and LRM_OPT_COMMENTS for later
 * input (other bits are ignored); returns the previous options. */
KELAPI uint32_t lrmsopt(lrmctx *h, uint32_t options);

/* Largest source the context reads unless told otherwise: 64 MiB. */
#define LRM_MAX_SOURCE_DEFAULT ((size_t)64 << 20)

/* Sets the largest source (a file, each included file, a command line, a
 * string, an environment variable's value) the context reads, in bytes;
 * larger ones fail with 116 before anything of them is stored. 0 leaves the
 * limit as it is; values above SIZE_MAX / 4 are taken as SIZE_MAX / 4.
 * Returns the previous limit (0 for a null h). */
KELAPI size_t lrmslim(lrmctx *h, size_t bytes);

/* Output function for help listings and the version routine's caller
 * (null: the process's standard output). */
typedef void (*lrmoutfn)(void *arg, const char *text, size_t len);
KELAPI void lrmsout(lrmctx *h, lrmoutfn fn, void *arg);

/* ----------------------------------------------------------- declarations */

/* Value types. */
#define LRM_T_BOOL   1  /* boolean byte: lrmgbv */
#define LRM_T_STRING 2  /* string: lrmgsv, lrmgsp */
#define LRM_T_INT    3  /* unsigned 32-bit integer, "%d"/"%h" prefixes: lrmgiv */
#define LRM_T_NAME   4  /* string compared as a name: kept upper-cased
                           unless the key set is case-sensitive: lrmgsv */
#define LRM_T_NUMBER 5  /* library number (lnx.h), 22-byte buffer: lrmgonv */
#define LRM_T_INT8   6  /* 64-bit integer with K/M/G suffix: lrmg8v */

/* Key set flags. */
#define LRM_KS_CASE       0x001u /* names compared case-sensitively */
#define LRM_KS_ABBREV     0x002u /* unambiguous prefixes are accepted */
#define LRM_KS_ANYKEY     0x004u /* unknown names are accepted (stored as strings) */
#define LRM_KS_NOHELP     0x080u /* no built-in "help", "usage", "?" */
#define LRM_KS_NOVERSION  0x100u /* no built-in "version" */

/* One declared key. The strings are not copied: they must outlive the
 * context (static tables are the usual case). */
typedef struct lrmkey {
  const char *name;     /* the key's name (NUL-terminated; UTF-8 in Unicode mode) */
  uint8_t type;         /* LRM_T_* */
  uint8_t single;       /* 1: a new value replaces the old one instead of adding an occurrence */
  uint8_t hasrange;     /* 1: integer values must lie in [min, max] (types 3 and 6) */
  uint8_t spare;
  int64_t min, max;
  const char *defval;   /* default value text, or null; stored when the set is declared */
  const char *help;     /* help text, or null; '\n' starts a continuation line */
} lrmkey;

/* Version routine of a key set, called for the built-in key "version". */
typedef void (*lrmverfn)(void *arg, lrmctx *h);

/* A key set. */
typedef struct lrmkeyset {
  const lrmkey *keys;
  uint32_t count;
  uint32_t flags;                 /* LRM_KS_* */
  const char *const *truewords;   /* null-terminated list, or null: first letter T/t/Y/y */
  const char *const *falsewords;  /* null-terminated list, or null: first letter F/f/N/n */
  lrmverfn version;
  void *versionarg;
} lrmkeyset;

/* Declares the key set of the context (the set is kept by reference and must
 * outlive the context) and stores the declared defaults as occurrence 0 of
 * their keys (until a value given by the user replaces them). Replaces an
 * earlier set and drops every stored value. Statuses: 201 null argument; 212
 * a key without a name or with a bad type or range, or a default that does
 * not convert (then the status of the conversion is recorded too); 213 a
 * name declared twice (by the set's comparison rules); the earlier set then
 * stays declared with its values. 106: no set is declared and no value
 * stays. */
KELAPI uint32_t lrmpsvp(lrmctx *h, const lrmkeyset *set);

/* Stores `value` (vlen units) as a new occurrence of `key` (klen units) with
 * qualifier `qual` (NUL-terminated, or null; without one, a key "q:k" names
 * k under q), after checking and converting it for the key's type. A key of
 * a set with LRM_KS_ABBREV may be abbreviated. Statuses: 201, 101, 107, the
 * conversion statuses 102-105 and 120, 106, 221. Nothing is stored on
 * failure. */
KELAPI uint32_t lrmspv2(lrmctx *h, const void *qual, const void *key, size_t klen, const void *value, size_t vlen);
/* lrmspv2 without a qualifier. */
KELAPI uint32_t lrmspv(lrmctx *h, const void *key, size_t klen, const void *value, size_t vlen);

/* Checks that `value` is acceptable for `key` without storing it: the status
 * lrmspv would give. *type receives the key's type (may be null). */
KELAPI uint32_t lrmvskv(lrmctx *h, const void *key, size_t klen, const void *value, size_t vlen, uint8_t *type);
/* As lrmvskv for a qualified key. */
KELAPI uint32_t lrmvsk2(lrmctx *h, const void *qual, const void *key, size_t klen, const void *value, size_t vlen,
                        uint8_t *type);

/* Adds `count` NUL-terminated values in order as occurrences of `key`
 * (lrmspv each); at the first failure returns its status and stores none of
 * them. */
KELAPI uint32_t lrmavla(lrmctx *h, const void *key, size_t klen, const void *const *values, uint32_t count);
/* Drops every occurrence of `key` under qualifier `qual` (null: unqualified). */
KELAPI uint32_t lrmavlc(lrmctx *h, const void *qual, const void *key, size_t klen);
/* Number of stored occurrences of `key` under `qual` into *count (0 when
 * none): those the getters read, so the unqualified key's when `qual` has
 * none of its own. */
KELAPI uint32_t lrmavlo(lrmctx *h, const void *qual, const void *key, size_t klen, uint32_t *count);

/* Key matching for a name met as "-name": 0 when the name is a declared key
 * (*type gets its type, may be null), or when it is built in ("help",
 * "usage", "?": the help listing is written and *type is LRM_T_BOOL;
 * "version": the version routine is called, *type LRM_T_BOOL), or when the
 * set accepts any key (*type LRM_T_STRING; so does a context without a
 * key set). A name "q:k" is matched by its key k. Otherwise 201 (null
 * argument), 107 (ambiguous prefix) or 101 (unknown, recorded with the
 * name). Names are in the inside character set. */
KELAPI uint32_t lrmckv(lrmctx *h, const char *name, size_t len, uint8_t *type);
/* Abbreviated lookup: 0 and the index of the declared key in *index, 211
 * when the set does not allow abbreviations, 107, 101, 201, 222. */
KELAPI uint32_t lrmpatk(lrmctx *h, const char *name, size_t len, uint32_t *index);

/* Writes the help listing: one line "%s\t\t%s\n" per declared key (name,
 * first line of help), continuation lines "\t\t%s\n" for the rest of the
 * help and then one that says what the key takes:
 * "\t\ttype integer, default \"7\", range 1 to 1000" (the default and the
 * range when declared; types boolean, string, integer, name, number,
 * "size (K, M, G)"). Keys sorted by name. Returns 0 (222 without a key set). */
KELAPI uint32_t lrmprh(lrmctx *h);

/* --------------------------------------------------------------- sources */

/* Parses the command-line arguments argv[0..argc-1] (argument 0 is a value,
 * not a program name: pass argv + 1) and stores what they set. Arguments are
 * joined with blanks; an argument holding blanks or special characters
 * should be quoted by the caller as on a shell. Statuses: 201, 116 and every
 * status of the scanner, parser and storage (first failure); on failure
 * nothing of the call is stored. Without a declared key set every name is
 * accepted as a string key. */
KELAPI uint32_t lrmpaa(lrmctx *h, int32_t argc, const char *const *argv);
/* Parses one command-line string (source kind 1). */
KELAPI uint32_t lrmpas(lrmctx *h, const char *text, size_t len);
/* Parses a string (source kind 3: as a command line, "-name" options are
 * recognised). */
KELAPI uint32_t lrmpst(lrmctx *h, const char *text, size_t len);
/* Parses the parameter file `path` (no "-name" options; '#' comments). A
 * line whose text starts with "@other-file" (or "include other-file") and
 * holds no '=' reads another file in place, relative names taken
 * from the including file's folder, at most 16 deep; the name runs to the
 * end of the line (blanks around it and one pair of quotes dropped). Such a
 * line counts only where a new setting or value may start: not inside a
 * quoted string, which runs to its closing quote over newlines, not inside
 * a parenthesised list, where a newline is a blank, and not after a line
 * ending in a backslash. The text before the line and the text after it are
 * parsed as inputs of their own. Statuses: 113 cannot open (the file name
 * and the system's reason are recorded), 114 read error, 115 too deep, 116
 * a file larger than the limit (lrmslim), and those of lrmpaa. Syntax
 * errors are recorded as 109 with the token. On failure, in an included
 * file too, nothing of the call is stored. */
KELAPI uint32_t lrmpfi(lrmctx *h, const char *path);
/* Parses the value of environment variable `name` as a command-line string;
 * an unset variable is 0 and stores nothing. */
KELAPI uint32_t lrmpev(lrmctx *h, const char *name);

/* ------------------------------------------------------------------ getters
 * Common arguments: h; qual (qualifier, NUL-terminated or null); qname (null,
 * or a buffer of LRM_QNAME_MAX bytes that receives the qualified key name
 * found, "q:k" or "k", NUL-terminated; in Unicode mode UTF-16 of
 * LRM_QNAME_MAX bytes); key and klen; occ (occurrence, 0 = first). When the
 * key has no such occurrence the getter returns 0 and leaves the result
 * untouched. Statuses: 201 null h or key, 202 the key's type does not match
 * the getter, 221 bad UTF-16 key (Unicode mode). */
#define LRM_QNAME_MAX 256

KELAPI uint32_t lrmgbv(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                       uint8_t *out);
KELAPI uint32_t lrmgiv(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                       uint32_t *out);
KELAPI uint32_t lrmg8v(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                       int64_t *out);
/* out: a buffer of 22 bytes; *outlen receives the number's length (may be null). */
KELAPI uint32_t lrmgonv(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                        uint8_t *out, size_t *outlen);
/* Copies the string value into buf of cap bytes (in Unicode mode as UTF-16
 * units of two bytes). A value of at most cap bytes (cap / 2 units) is
 * copied, followed by a terminating NUL (0 unit) when there is room for one:
 * a value that fills the buffer exactly has none. A longer one gives 206 and
 * buf is not written. *outlen gets the value's length in bytes (units; may
 * be null). Types 2 and 4; a key of another type gives 202. */
KELAPI uint32_t lrmgsv(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                       void *buf, size_t cap, size_t *outlen);
/* The string value by pointer (inside character set, NUL-terminated; valid
 * until the key's values change or the context is freed). Types 2 and 4. */
KELAPI uint32_t lrmgsp(lrmctx *h, const void *qual, void *qname, const void *key, size_t klen, uint32_t occ,
                       const char **out);

/* ----------------------------------------------------------- conversions
 * Text to typed value as the storage does it; `key` is the key's
 * declaration (for the word lists of lrmt2b: the context's key set), may be
 * null for defaults. Results are written only on success. */
KELAPI uint32_t lrmt2b(lrmctx *h, const char *text, size_t len, uint8_t *out);
KELAPI uint32_t lrmt2i(lrmctx *h, const char *text, size_t len, uint32_t *out);
KELAPI uint32_t lrmt2i8(lrmctx *h, const char *text, size_t len, int64_t *out);
/* out: 22 bytes; *outlen receives the number's length. */
KELAPI uint32_t lrmt2on(lrmctx *h, const char *text, size_t len, uint8_t *out, size_t *outlen);

/* --------------------------------------------------------- dumps, errors */

/* Writes every stored value as text to the file `path` (replaced), one
 * "key=value" line per occurrence in storage order ("%s=%s" for strings,
 * quoted when needed; "%s=%d" for integers; booleans as TRUE/FALSE, or as
 * the first word of the key set's lists when it has them), with " #comment"
 * when the value carried one; positional values first, as bare values. The
 * file parses back to the same values. 201, 113, 114. */
KELAPI uint32_t lrmdtf(lrmctx *h, const char *path);
/* As lrmdtf, into a caller's function instead of a file. */
KELAPI uint32_t lrmdtw(lrmctx *h, lrmoutfn fn, void *arg);

/* Records message `status` of facility "LRM" on the calling thread's error
 * stack with the argument pairs (as lemrec of lem.h) and returns status. */
KELAPI uint32_t lrmperr(lrmctx *h, uint32_t status, ...);
/* Formats the newest error record of the calling thread as
 * "%s-%05d: text" (facility, number) into buf of len bytes; returns the
 * full length (0 when there is no record). */
KELAPI int32_t lrmpfmt(lrmctx *h, char *buf, size_t len);

/* ---------------------------------------------------- UTF-16 conversions */

/* Converts `units` UTF-16 units to a new NUL-terminated UTF-8 text in the
 * context's heap (*out; *outlen bytes without the NUL, may be null). 221
 * for unpaired surrogates, 106. Free with lrmpufree. */
KELAPI uint32_t lrmpu16to8(lrmctx *h, const uint16_t *src, size_t units, char **out, size_t *outlen);
/* Converts `len` bytes of UTF-8 to new 0-terminated UTF-16 in the heap. */
KELAPI uint32_t lrmpu8to16(lrmctx *h, const char *src, size_t len, uint16_t **out, size_t *outunits);
/* Frees a conversion result (null ignored). */
KELAPI void lrmpufree(lrmctx *h, void *p);

/* ------------------------------------------------------- scanner, parser */

/* Token codes. */
#define LRM_TK_END       0
#define LRM_TK_LPAREN    40
#define LRM_TK_RPAREN    41
#define LRM_TK_DASH      45
#define LRM_TK_EQUAL     61
#define LRM_TK_ERROR     256
#define LRM_TK_FLAG_ID   259
#define LRM_TK_KEY_ID    260
#define LRM_TK_QUOTED    261
#define LRM_TK_STRING    262
#define LRM_TK_ID        263
#define LRM_TK_COMMENT   264

/* A token record. The scanner puts the source line of the token's first
 * character in aux32, a pointer to that character in the source text in
 * aux1, the length of `text` in bytes in aux2 (as an integer), and in aux3 a
 * pointer to the text in the source when it stands there as it is (else
 * null); the pointers are valid while the source is read. aux16 is 0. `text` is a NUL-terminated copy of the token's text
 * in the context's inside character set (UTF-8 in Unicode mode). */
typedef struct lrmpztok {
  uint16_t code;
  uint16_t aux16;
  int32_t aux32;
  void *aux1;
  void *aux2;
  void *aux3;
  uint16_t refs;
  uint16_t spare[3];
  char *text;
} lrmpztok;

/* The scanner of a context whose input was set by one of the source
 * functions (it is called by them; callers use it to tokenise): operation 1
 * returns the next token (null at a failure: the status is in the context
 * and has been recorded and raised to the innermost error frame), 2 pushes
 * `tok` back, 4 frees `tok`; any other operation sets status 100 and
 * returns null. */
KELAPI lrmpztok *lrmplex(lrmctx *h, int32_t op, lrmpztok *tok);

/* Callbacks of a parse (lrmpzpparse). */
typedef struct lrmpzcb {
  /* Token source: op 1 next token, 4 release a token, 8 copy a token
   * (returns the copy). */
  lrmpztok *(*token)(void *src, int32_t op, lrmpztok *tok);
  /* Reduction by `rule` (0-21): rhs[0..n-1] are the values of the rule's
   * symbols (token records for terminals, *result of earlier reductions for
   * nonterminals); *result is the new value (null by default). Token values
   * are released by the driver after the call (take a copy with op 8 to
   * keep one). A non-zero result makes the parse fail with that status. */
  int32_t (*action)(void *user, int32_t rule, void *const *rhs, int32_t n, void **result);
  /* Syntax error: status 109 and the offending token. */
  void (*error)(void *user, int32_t status, const lrmpztok *tok);
  /* Completion: the value of the accepted input. */
  void (*accept)(void *user, void *value);
  /* Trace output (null: no trace). */
  void (*trace)(void *user, const char *text);
  /* Optional allocator of the parser context (null: the top heap). */
  void *(*alloc)(void *user, size_t size);
  void (*free)(void *user, void *p);
  void *user;
  lcorectx *ctx;
} lrmpzcb;

/* Parses one input from token source `src` with the parameter grammar.
 * flags16 bit 0x1 turns the trace on; flags8 is the driver level (3 and
 * above keep the last two tokens for messages). Returns 0 on success and -1
 * (255 as a byte) on failure: a syntax error, a failed action, no memory, or
 * an error raised by the token source into the parse's error frame (errors
 * of facility "lrmpzp"/"par" are counted; any other is raised on to the
 * caller's frame after the parser context is freed). */
KELAPI int8_t lrmpzpparse(void *src, const lrmpzcb *cb, uint16_t flags16, uint8_t flags8);

/* The driver over its tables; `parser` is the opaque parser context that
 * lrmpzpparse makes. Exposed for the parse's own use and for tools that step
 * a parse; callers normally use lrmpzpparse. pz5strt7 returns the parse
 * status (0 success, 1 recovered error, 2 failed). */
KELAPI int32_t pz5strt7(void *parser, void *src, void **result, int32_t single_step, void *user);
KELAPI int32_t pz5goto7(void *parser, int32_t state, int32_t nonterminal);
KELAPI int32_t pz5spus7(void *parser, int32_t state, void *value);
KELAPI int32_t pz5ckcallb7(void *parser, int32_t rule, void **result);
KELAPI void *pz7arlgc(void *parser, size_t entries);
KELAPI int32_t pz7arlge(void *parser);
KELAPI void pz7arlcl(void *parser);
KELAPI void pz7arlfr(void *parser);
KELAPI void pz5ctxfr7(void *parser);
/* The same driver under the older names, on the parser's own tables. */
KELAPI int32_t pz5strt(void *parser, void *src, void **result, int32_t single_step, void *user);
KELAPI int32_t pz5goto(void *parser, int32_t state, int32_t nonterminal);
KELAPI int32_t pz5spus(void *parser, int32_t state, void *value);
KELAPI int32_t pz5ckcallb(void *parser, int32_t rule, void **result);
KELAPI void *pz5arlgc(void *parser, size_t entries);
KELAPI int32_t pz5arlge(void *parser);
KELAPI void pz5arlcl(void *parser);
KELAPI void pz5arlfr(void *parser);
KELAPI void pz5ctxfr(void *parser);

KEL_END_DECLS

#endif /* LRM_H */
