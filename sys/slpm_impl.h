// slpm_impl.h - the system layer's part of library start and of packages:
// the start allocation of the context record and the process slot, the
// package table, locating entries (static or in dynamic libraries) and the
// per-instance system data.
#ifndef KEL_SYS_SLPM_IMPL_H
#define KEL_SYS_SLPM_IMPL_H

#include <cstddef>
#include <cstdint>

#include "lpm.h"

// ------------------------------------------------ context record and slot

// One block from the system allocator: the record (length rounded up to 8),
// the system area, then one word that is the system handle. 0 / -1.
int32_t slslameta(size_t length, lcorectx **record, void **handle);
// The same layout in the caller's storage (size >= LPM_MAIN_CTXSZ, aligned
// for the record; cleared here). 0 / -1. Nothing to free afterwards.
int32_t slslmeta_in(void *storage, size_t size, lcorectx **record, void **handle);
// Frees the block of slslameta.
void slslfree(lcorectx *record);
// Fills the system area's operations table, records it in field 8 of the
// record and points the handle back at the record. 0 / -1.
int32_t slslini(lcorectx *record, void *handle);

// The system area: {0, 4, extra-word function, slot-address function}.
struct slslops {
  uint64_t zero;
  uint64_t four;
  void *(*extra)(void);
  lcorectx **(*slot)(void);
};

// The process slot: the root context record while the library is started.
lcorectx *slslgetmeta(void);
void slpmstor(lcorectx *record);

// ------------------------------------------------------------ package table

struct slpmrow {
  char *name;
  size_t namel;
  char *lib;
  size_t libl;
  char *sym;
  size_t syml;
  lpmentry entry;
  uint16_t flags;
};

constexpr int32_t kSlpmMaxRows = 100;

struct slpmtab {
  int32_t count;
  slpmrow rows[kSlpmMaxRows];
};

// Makes / frees an empty table. 0 / -1.
int32_t slpmini(slpmtab **table);
void slpmtrm(slpmtab *table);

// Adds rows (count, or with 0 up to the row flagged LPM_PKG_END). With
// `check`, a name already present (ignoring case) gives -2 and its row index
// in *where; passing 100 rows gives -3; both leave the table as it was. -1
// when out of memory (also undone). 0 on success.
int32_t slpmadp(lcorectx *ctx, slpmtab *table, const lpmpdesc *rows, int32_t count, int32_t *where, void *reserved,
                int32_t check, int32_t append);

// Locates the entry of `name`: a static entry, or the entry symbol of a
// dynamic library, whose handle goes to *module. 0 / -1.
int32_t slpmloc(lcorectx *ctx, slpmtab *table, void **module, const char *name, size_t len, lpmentry *entry);

// Unloads what slpmloc loaded for a block (module may be null). 0 / -1.
int32_t slpmfpb(lcorectx *ctx, void *module);

// System data of a package instance. 0 / -1.
int32_t slpmali(lcorectx *ctx, void **data);
int32_t slpmfin(lcorectx *ctx, void *data);

// The built-in package table: rows ending with a row flagged LPM_PKG_END.
const lpmpdesc *slpmgpt(void);

#endif
