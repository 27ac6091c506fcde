/*
 * lx.h - kelnls10, the national-language-support library: character sets and
 * classes, language environments, territory information and message
 * catalogues. kelcore10 imports it; applications may call it directly.
 *
 * Thread safety: every function may be called from many threads at once.
 * Environments and catalogue handles do not change once made, so many
 * threads may share one; a global context may be used by many threads until
 * lxlterm, which must not race with other use of it. No function here keeps
 * an error state: failures are the results described at each declaration.
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

/* ------------------------------------------------------------ handles
 * A global context (lxlinit) owns the language environments made from it
 * (lxhLangEnv); they live until lxlterm. A null global context means the
 * process-wide default one, which lives until the process ends. */
typedef struct lxglo lxglo;
typedef struct lxenv lxenv;

/* A formatting context: a global context and an environment (lxinitc). */
typedef struct lxctx {
  lxglo *glo;
  const lxenv *env;
} lxctx;

/* Makes a global context; null when out of memory. flags: reserved, 0. */
KELAPI lxglo *lxlinit(void *reserved, int32_t flags);
/* Frees a global context and its environments; 0 / -1 (null glo). */
KELAPI int32_t lxlterm(lxglo *glo);
/* The environment named "LANGUAGE_TERRITORY.CHARSET" (case-insensitive;
 * the part before the dot may be empty for the American default, and the
 * character set may be left out for US7ASCII). `len` is the name's length.
 * Territories: AMERICAN_AMERICA, and, in builds made with ICU's locale data,
 * GERMAN_GERMANY, FRENCH_FRANCE and SPANISH_SPAIN. Null for an unknown
 * language, territory or character set. */
KELAPI const lxenv *lxhLangEnv(lxglo *glo, const char *name, size_t len);
/* The global context an environment was made from (the process-wide default
 * one for environments made with a null glo); null for a null env. */
KELAPI lxglo *lxGetGloPtr(const lxenv *env);
/* Fills `out` with glo (may be null) and env (null: "AMERICAN_AMERICA.US7ASCII");
 * 0 / -1 (null out). */
KELAPI int32_t lxinitc(lxctx *out, lxglo *glo, const lxenv *env);

/* ------------------------------------------------------ territory items
 * Text items (lxhlinfo) and number items (lxhninfo) of an environment. */
#define LX_DEFAULT_DATE_FMT  76   /* "DD-MON-RR" */
#define LX_CHARSET_NAME      85   /* "US7ASCII" */
#define LX_FIRST_DAY        97    /* number: first day of the week, 0 = Sunday */
#define LX_LONG_DATE_FMT    143
#define LX_SHORT_TIME_FMT   144
#define LX_SHORT_DATE_FMT   151
#define LX_LANGUAGE_NAME    200   /* "AMERICAN" */
#define LX_TERRITORY_NAME   201   /* "AMERICA" */
#define LX_DECIMAL_CHAR     202   /* "." */
#define LX_GROUP_SEP        203   /* "," */
#define LX_MONTH_NAME       210   /* + 0..11: "January" ... */
#define LX_MONTH_ABBR       230   /* + 0..11: "Jan" ... */
#define LX_DAY_NAME         250   /* + 0..6, Sunday first: "Sunday" ... */
#define LX_DAY_ABBR         260   /* + 0..6: "Sun" ... */
#define LX_AM               270   /* "AM" */
#define LX_PM               271   /* "PM" */
#define LX_AM_DOTS          272   /* "A.M." */
#define LX_PM_DOTS          273   /* "P.M." */
#define LX_AD               274   /* "AD" */
#define LX_BC               275   /* "BC" */
#define LX_AD_DOTS          276   /* "A.D." */
#define LX_BC_DOTS          277   /* "B.C." */
#define LX_CURRENCY         278   /* "$" */
#define LX_CHARSET_KIND     280   /* number: LX_CS_* */
#define LX_CHARSET_ID       281   /* number: LX_CSID_* */
#define LX_MAX_CHAR_BYTES   282   /* number: longest character in bytes */
#define LX_GREGORIAN        283   /* number: 1 Gregorian calendar, 0 another (see lxeadm) */
#define LX_TERR_CHANGED     284   /* number: 1 when the territory data changed since the
                                     environment was made (environments here never change: 0) */
#define LX_AD_NAME          290   /* "Anno Domini" */
#define LX_BC_NAME          291   /* "Before Christ" */

/* Character-set kinds. */
#define LX_CS_ASCII   1  /* ASCII-based single- or multi-byte */
#define LX_CS_EBCDIC  2
#define LX_CS_UTF16   3  /* two-byte Unicode */

/* Character sets. */
#define LX_CSID_US7ASCII     1
#define LX_CSID_WE8ISO8859P1 31
#define LX_CSID_WE8EBCDIC37  140   /* EBCDIC code page 37 */
#define LX_CSID_AL32UTF8     873   /* also "UTF8", ".utf8" */
#define LX_CSID_AL16UTF16    2000  /* big-endian UTF-16 */
#define LX_CSID_AL16UTF16LE  2002  /* little-endian UTF-16 */

/* Copies text item `item` of env (null: American default) into buf,
 * NUL-terminated (one zero byte), truncated to len - 1 bytes; returns the
 * item's full length in bytes, or -1 for an unknown item. The names of the
 * character set, language and territory (85, 200, 201) are ASCII; every
 * other text is in the environment's character set (a character it cannot
 * hold becomes its replacement character). */
KELAPI int32_t lxhlinfo(const lxenv *env, int32_t item, char *buf, size_t len);
/* Number item of env (null: American default), or -1 for an unknown item. */
KELAPI int32_t lxhninfo(const lxenv *env, int32_t item);

/* The character-set id of a name ("US7ASCII", "WE8ISO8859P1", "AL32UTF8",
 * "UTF8", ".utf8", "AL16UTF16", "AL16UTF16LE", "WE8EBCDIC37";
 * case-insensitive), or 0. */
KELAPI int32_t lxhcsn(const char *name, size_t len);

/* Converts srclen bytes of src in character set srccs to dstcs into dst of
 * dstlen bytes. Characters the target cannot hold become '?' (U+FFFD for
 * Unicode targets); malformed input bytes count as unmappable characters.
 * Returns the bytes written, or -1 for an unknown character set or when dst
 * is too small (dst then holds a prefix). No terminator is written. */
KELAPI int64_t lxgcnv(void *dst, size_t dstlen, int32_t dstcs, const void *src, size_t srclen, int32_t srccs);

/* Character classes of one character `c` of env's character set (the byte
 * value for single-byte sets, the code point for Unicode sets). 1 / 0. The
 * classes cover ASCII and Latin-1 letters; other code points are 0. */
KELAPI int32_t lxmalpx(const lxenv *env, uint32_t c);
KELAPI int32_t lxmuppx(const lxenv *env, uint32_t c);
KELAPI int32_t lxmlowx(const lxenv *env, uint32_t c);
KELAPI int32_t lxmdigx(const lxenv *env, uint32_t c);
KELAPI int32_t lxmspax(const lxenv *env, uint32_t c);
/* Reads the character at src (len bytes available) in env's character set:
 * *c receives its code as the class functions above take it (the byte value
 * for single-byte sets, the code point for Unicode sets) and the result is
 * its length in bytes. 0 when len is 0; -1 (*c untouched) when the bytes are
 * no character of the set: a malformed or truncated sequence, a surrogate,
 * an overlong form. A byte of a single-byte set is always a character (one
 * the set does not map is in no class). */
KELAPI int32_t lxmdecx(const lxenv *env, const void *src, size_t len, uint32_t *c);
/* Upper-case / lower-case fold of `c` in env's character set. */
KELAPI uint32_t lxmtupx(const lxenv *env, uint32_t c);
KELAPI uint32_t lxmtlox(const lxenv *env, uint32_t c);

/* ------------------------------------------------------ other calendars
 * Month arithmetic and last day of month in the calendar of env's territory,
 * for territories whose calendar is not Gregorian (item LX_GREGORIAN 0).
 * The date is (year, month, day) of the Gregorian calendar on entry and on
 * exit. The low byte of the result is non-zero when the call did the work
 * (the outputs are then written), 0 when the caller should use the Gregorian
 * rules (every territory of this library is Gregorian today, so that is
 * always the answer). Thread-safe. */
KELAPI int32_t lxeadm(const lxenv *env, int32_t *year, int32_t *month, int32_t *day, int32_t months);
KELAPI int32_t lxeldd(const lxenv *env, int32_t *year, int32_t *month, int32_t *day);

/* ------------------------------------------------------ message catalogues
 * One catalogue per (product, facility): the text compiled into the library,
 * unless $KELTAR_HOME/<product>/mesg/<product>_<facility>.msg (names in lower
 * case) exists; that file then replaces it. A catalogue file has lines
 * "number, text" with printf-style placeholders; '#' starts a comment line. */
typedef struct lmshdl lmshdl;

/* Opens the catalogue of product/facility; null when there is none (or out
 * of memory). env is reserved (texts are American English). Thread-safe;
 * each handle is for one thread at a time, or read-only use by many. */
KELAPI lmshdl *lmsaicmt(const lxenv *env, const char *product, const char *facility);
/* Text of message `msg` into buf (NUL-terminated, truncated to len - 1);
 * returns the full length, or -1 when the catalogue has no such message. */
KELAPI int32_t lmsagbf(lmshdl *h, int32_t msg, char *buf, size_t len);
/* Number of messages in the catalogue (-1 for a null handle). */
KELAPI int32_t lmsacin(lmshdl *h);
/* Message number of the idx-th (0-based, ascending) message, or -1. */
KELAPI int32_t lmsacbn(lmshdl *h, int32_t idx);
/* Closes a handle; 0 / -1. */
KELAPI int32_t lmsatrm(lmshdl *h);

KEL_END_DECLS

#endif /* LX_H */
