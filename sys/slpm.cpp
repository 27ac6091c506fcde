// The system layer's part of the package manager: the start allocation, the
// process slot, the package table and entry location.
//
// The table copies every string it is given, so rows may come from a
// caller's stack. Names compare by length first and then ignoring ASCII
// case. Dynamic libraries go through the loader functions of sl.h.
#include <cstring>

#include "sl.h"
#include "sys/slpm_impl.h"

// The formatter's package entry (format/lsf_package.cpp).
extern "C" int32_t lsfpkgent(lcorectx *ctx, void *priv, int32_t op, void *arg, void *result);

namespace {

lcorectx *g_slot = nullptr;
void *g_extra = nullptr;

void *extra_word() { return g_extra; }
lcorectx **slot_address() { return &g_slot; }

bool same_name(const char *a, size_t al, const char *b, size_t bl) noexcept {
  if (al != bl) return false;
  for (size_t i = 0; i < al; i++) {
    unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
    if (x >= 'a' && x <= 'z') x = static_cast<unsigned char>(x - 32);
    if (y >= 'a' && y <= 'z') y = static_cast<unsigned char>(y - 32);
    if (x != y) return false;
  }
  return true;
}

char *copy_text(const char *s, size_t n, bool *ok) noexcept {
  if (s == nullptr) return nullptr;
  auto *p = static_cast<char *>(ss_mem_alc(n + 1));
  if (p == nullptr) {
    *ok = false;
    return nullptr;
  }
  memcpy(p, s, n);
  p[n] = '\0';
  return p;
}

void free_row(slpmrow &r) noexcept {
  ss_mem_fre(r.name);
  ss_mem_fre(r.lib);
  ss_mem_fre(r.sym);
  r = slpmrow{};
}

constexpr lpmpdesc kBuiltin[] = {
    {"lsf", 3, nullptr, 0, nullptr, 0, lsfpkgent, LPM_PKG_STATIC},
    {nullptr, 0, nullptr, 0, nullptr, 0, nullptr, LPM_PKG_END},
};

}  // namespace

// ------------------------------------------------ context record and slot

int32_t slslameta(size_t length, lcorectx **record, void **handle) {
  if (record == nullptr || handle == nullptr) return -1;
  size_t rl = (length + 7) & ~size_t{7};
  size_t total = rl + sizeof(slslops) + sizeof(void *);
  auto *p = static_cast<char *>(ss_mem_calc(total));
  if (p == nullptr) return -1;
  *record = reinterpret_cast<lcorectx *>(p);
  (*record)->length = total;
  *handle = p + rl + sizeof(slslops);
  return 0;
}

void slslfree(lcorectx *record) { ss_mem_fre(record); }

int32_t slslini(lcorectx *record, void *handle) {
  if (record == nullptr || handle == nullptr) return -1;
  auto *ops = reinterpret_cast<slslops *>(static_cast<char *>(handle) - sizeof(slslops));
  ops->zero = 0;
  ops->four = 4;
  ops->extra = extra_word;
  ops->slot = slot_address;
  record->slblock = ops;
  *static_cast<lcorectx **>(handle) = record;
  return 0;
}

lcorectx *slslgetmeta(void) { return g_slot; }
void slpmstor(lcorectx *record) { g_slot = record; }

// ------------------------------------------------------------ package table

int32_t slpmini(slpmtab **table) {
  if (table == nullptr) return -1;
  *table = static_cast<slpmtab *>(ss_mem_calc(sizeof(slpmtab)));
  return *table == nullptr ? -1 : 0;
}

void slpmtrm(slpmtab *table) {
  if (table == nullptr) return;
  for (int32_t i = 0; i < table->count; i++) free_row(table->rows[i]);
  ss_mem_fre(table);
}

int32_t slpmadp(lcorectx *ctx, slpmtab *table, const lpmpdesc *rows, int32_t count, int32_t *where, void *reserved,
                int32_t check, int32_t append) {
  if (table == nullptr || rows == nullptr || count < 0) return -1;
  int32_t before = table->count;
  int32_t rc = 0;
  for (int32_t i = 0; count == 0 ? (rows[i].flags & LPM_PKG_END) == 0 : i < count; i++) {
    const lpmpdesc &d = rows[i];
    if (d.name == nullptr) {
      rc = -1;
      break;
    }
    if (check) {
      for (int32_t k = 0; k < table->count; k++) {
        if (same_name(table->rows[k].name, table->rows[k].namel, d.name, d.namel)) {
          if (where) *where = i;
          rc = -2;
          break;
        }
      }
      if (rc != 0) break;
    }
    if (table->count >= kSlpmMaxRows) {
      rc = -3;
      break;
    }
    bool ok = true;
    slpmrow r{};
    r.name = copy_text(d.name, d.namel, &ok);
    r.namel = d.namel;
    r.lib = copy_text(d.lib, d.libl, &ok);
    r.libl = d.libl;
    r.sym = copy_text(d.sym, d.syml, &ok);
    r.syml = d.syml;
    r.entry = d.entry;
    r.flags = d.flags;
    if (!ok) {
      free_row(r);
      rc = -1;
      break;
    }
    table->rows[table->count++] = r;
  }
  if (rc != 0) {
    while (table->count > before) free_row(table->rows[--table->count]);
  }
  return rc;
}

int32_t slpmloc(lcorectx *ctx, slpmtab *table, void **module, const char *name, size_t len, lpmentry *entry) {
  if (table == nullptr || name == nullptr || entry == nullptr) return -1;
  const slpmrow *row = nullptr;
  for (int32_t k = 0; k < table->count && row == nullptr; k++)
    if (same_name(table->rows[k].name, table->rows[k].namel, name, len)) row = &table->rows[k];
  if (row == nullptr) return -1;
  if (row->flags & LPM_PKG_STATIC) {
    if (row->entry == nullptr) return -1;
    *entry = row->entry;
    return 0;
  }
  if (row->flags & LPM_PKG_OTHER) return -1;  // no second loader on this platform
  if ((row->flags & LPM_PKG_DYNLIB) == 0 || row->lib == nullptr || row->sym == nullptr) return -1;
  void *lib = sldlopen(row->lib);
  if (lib == nullptr) return -1;
  void *sym = sldlsym(lib, row->sym);
  if (sym == nullptr) {
    sldlclose(lib);
    return -1;
  }
  if (module) *module = lib;
  *entry = reinterpret_cast<lpmentry>(sym);
  return 0;
}

int32_t slpmfpb(lcorectx *ctx, void *module) {
  if (module == nullptr) return 0;
  return sldlclose(module);
}

// Nothing per instance is needed on this platform; the calls stay so that a
// port that needs per-instance system state has its place.
int32_t slpmali(lcorectx *ctx, void **data) {
  if (data) *data = nullptr;
  return 0;
}

int32_t slpmfin(lcorectx *ctx, void *data) { return 0; }

const lpmpdesc *slpmgpt(void) { return kBuiltin; }
