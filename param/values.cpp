// The value table: entries by (qualifier, name) with their occurrences, the
// storage of a value, and the journal that makes every storing call
// all-or-nothing.
//
// The table is an array of entries in storage order (dumps keep it) with
// an open-addressed hash index on (qualifier, name). An entry keeps its
// occurrences in an array, so occurrence i is one index away. Every block
// lives in the context heap.
//
// The journal. A call that may store several values (a source, lrmavla)
// runs between begin_call and end_call. The first time the call touches an
// entry, the entry remembers its count and default flag and joins the list
// of touched entries. New values are appended; a value that replaces the
// others (a key declared single, or the first value a user gives to a key
// that holds its default) frees the values this call added and hides the
// older ones behind `base` instead of freeing them. Ending the call well
// frees the hidden values; ending it badly frees what it added, shows the
// hidden values again and drops the entries the call made (all behind the
// ones it found), so the table is as it was before the call.
//
// Sections: table, journal, storage.
#include <cstring>

#include "param/lrm_impl.h"

namespace lrm_internal {

// ------------------------------------------------------------------- table

namespace {

// Does entry e hold (qual, name)?
bool entry_is(const lrmctx_rec *c, const lrmentry *e, const char *qual, size_t quallen, const char *name,
              size_t namelen) {
  size_t eq = e->qual != nullptr ? e->quallen : 0;
  if (c->bytewise && (eq != quallen || e->namelen != namelen)) return false;
  if ((eq > 0 || quallen > 0) &&
      !names_equal(c, e->qual != nullptr ? e->qual : "", eq, qual != nullptr ? qual : "", quallen))
    return false;
  return names_equal(c, e->name, e->namelen, name, namelen);
}

// The slot holding (qual, name), or the free slot where it would go.
uint32_t find_slot(const lrmctx_rec *c, uint32_t hv, const char *qual, size_t quallen, const char *name,
                   size_t namelen) {
  const uint32_t mask = c->nslots - 1;
  for (uint32_t i = hv & mask;; i = (i + 1) & mask) {
    const lrmslot &s = c->slots[i];
    if (s.entry == 0) return i;
    if (s.hash == hv && entry_is(c, c->entries[s.entry - 1], qual, quallen, name, namelen)) return i;
  }
}

void put_slot(lrmslot *slots, uint32_t mask, lrmslot s) {
  uint32_t i = s.hash & mask;
  while (slots[i].entry != 0) i = (i + 1) & mask;
  slots[i] = s;
}

// Builds the index of the entries from scratch.
void index_entries(lrmctx_rec *c) {
  memset(c->slots, 0, sizeof(lrmslot) * c->nslots);
  for (uint32_t k = 0; k < c->nentries; k++) put_slot(c->slots, c->nslots - 1, lrmslot{c->entries[k]->hash, k + 1});
}

// Room for one more entry: in the array, and in an index kept at most half
// full.
bool room_for_entry(lrmctx_rec *c) {
  if (c->nentries == c->capentries) {
    uint32_t ncap = c->capentries == 0 ? 64 : c->capentries * 2;
    auto *n = static_cast<lrmentry **>(hmalloc(c, sizeof(lrmentry *) * ncap));
    if (n == nullptr) return false;
    if (c->nentries > 0) memcpy(n, c->entries, sizeof(lrmentry *) * c->nentries);
    hfree(c, c->entries);
    c->entries = n;
    c->capentries = ncap;
  }
  if ((c->nentries + 1) * 2 > c->nslots) {
    uint32_t n = c->nslots == 0 ? 128 : c->nslots * 2;
    auto *slots = static_cast<lrmslot *>(hmalloc(c, sizeof(lrmslot) * n));
    if (slots == nullptr) return false;
    // The old slots hold the hashes: no entry needs reading to move them.
    memset(slots, 0, sizeof(lrmslot) * n);
    for (uint32_t i = 0; i < c->nslots; i++)
      if (c->slots[i].entry != 0) put_slot(slots, n - 1, c->slots[i]);
    hfree(c, c->slots);
    c->slots = slots;
    c->nslots = n;
  }
  return true;
}

lrmentry *make_entry(lrmctx_rec *c, uint32_t hv, uint32_t slot, const char *qual, size_t quallen, const char *name,
                     size_t namelen, int32_t keyidx, uint8_t type) {
  // A grown index has the entry's free slot elsewhere.
  if (c->nslots == 0 || (c->nentries + 1) * 2 > c->nslots) slot = UINT32_MAX;
  if (!room_for_entry(c)) return nullptr;
  // One block: the entry, room for one occurrence, its name and qualifier.
  auto *e = static_cast<lrmentry *>(hmalloc(c, sizeof(lrmentry) + sizeof(lrmval *) + namelen + quallen + 2));
  if (e == nullptr) return nullptr;
  memset(e, 0, sizeof *e);
  e->vals = reinterpret_cast<lrmval **>(e + 1);
  e->cap = 1;
  e->name = reinterpret_cast<char *>(e->vals + 1);
  copy_bytes(e->name, name, namelen);
  e->name[namelen] = '\0';
  if (quallen > 0) {
    e->qual = e->name + namelen + 1;
    copy_bytes(e->qual, qual, quallen);
    e->qual[quallen] = '\0';
  }
  e->namelen = namelen;
  e->quallen = quallen;
  e->keyidx = keyidx;
  e->type = type;
  e->hash = hv;
  c->entries[c->nentries++] = e;
  if (slot == UINT32_MAX) slot = find_slot(c, hv, qual, quallen, name, namelen);
  c->slots[slot] = lrmslot{hv, c->nentries};
  // An entry the running call makes needs no journal: undoing the call
  // drops it whole.
  if (c->calls > 0) e->gen = c->gen;
  return e;
}

inline bool own_array(const lrmentry *e) { return e->vals != reinterpret_cast<lrmval *const *>(e + 1); }

void free_range(lrmctx_rec *c, lrmentry *e, uint32_t from, uint32_t to) {
  for (uint32_t i = from; i < to; i++) {
    hfree(c, e->vals[i]->comment);
    hfree(c, e->vals[i]);
  }
}

void free_entry(lrmctx_rec *c, lrmentry *e) {
  free_range(c, e, 0, e->count);
  if (own_array(e)) hfree(c, e->vals);
  hfree(c, e);
}

bool append(lrmctx_rec *c, lrmentry *e, lrmval *v) {
  if (e->count == e->cap) {
    // Doubling keeps appends linear overall.
    uint32_t ncap = e->cap * 2;
    auto *n = static_cast<lrmval **>(hmalloc(c, sizeof(lrmval *) * ncap));
    if (n == nullptr) return false;
    memcpy(n, e->vals, sizeof(lrmval *) * e->count);
    if (own_array(e)) hfree(c, e->vals);
    e->vals = n;
    e->cap = ncap;
  }
  e->vals[e->count++] = v;
  return true;
}

}  // namespace

lrmentry *find_entry(lrmctx_rec *c, const char *qual, size_t quallen, const char *name, size_t namelen) {
  if (c->nentries == 0) return nullptr;
  const lrmslot &s = c->slots[find_slot(c, name_hash(c, qual, quallen, name, namelen), qual, quallen, name, namelen)];
  return s.entry != 0 ? c->entries[s.entry - 1] : nullptr;
}

void prefetch_entry(lrmctx_rec *c, const char *at, const char *key, size_t klen) {
  size_t colon = 0;
  uint32_t hv = split_qualified(key, klen, &colon) ? name_hash(c, key, colon, key + colon + 1, klen - colon - 1)
                                                   : name_hash(c, nullptr, 0, key, klen);
  c->hints[c->nexthint] = {at, hv, static_cast<uint32_t>(colon)};
  c->nexthint ^= 1;
  if (c->nslots != 0) __builtin_prefetch(&c->slots[hv & (c->nslots - 1)]);
}

void drop_values(lrmctx_rec *c, lrmentry *e) {
  free_range(c, e, 0, e->count);
  e->count = e->base = 0;
  e->isdefault = 0;
}

void clear_values(lrmctx_rec *c) {
  for (uint32_t k = 0; k < c->nentries; k++) free_entry(c, c->entries[k]);
  hfree(c, c->entries);
  hfree(c, c->slots);
  c->entries = nullptr;
  c->slots = nullptr;
  c->nentries = c->capentries = c->nslots = 0;
}

// ----------------------------------------------------------------- journal

void begin_call(lrmctx_rec *c) {
  if (c->calls++ > 0) return;
  c->gen++;
  c->touched = nullptr;
  c->saved_nentries = c->nentries;
}

namespace {

void touch(lrmctx_rec *c, lrmentry *e) {
  if (c->calls == 0 || e->gen == c->gen) return;
  e->gen = c->gen;
  e->saved_count = e->count;
  e->saved_default = e->isdefault;
  e->touched = c->touched;
  c->touched = e;
}

// Hides every occurrence: the call's own are freed, older ones kept out of
// sight until the call ends.
void replace_all(lrmctx_rec *c, lrmentry *e) {
  if (c->calls == 0) {
    drop_values(c, e);
    return;
  }
  free_range(c, e, e->saved_count, e->count);
  e->count = e->base = e->saved_count;
}

}  // namespace

void end_call(lrmctx_rec *c, bool ok) {
  if (--c->calls > 0) return;
  for (lrmentry *e = c->touched; e != nullptr; e = e->touched) {
    if (ok) {
      free_range(c, e, 0, e->base);
      memmove(e->vals, e->vals + e->base, sizeof(lrmval *) * (e->count - e->base));
      e->count -= e->base;
    } else {
      free_range(c, e, e->saved_count, e->count);
      e->count = e->saved_count;
      e->isdefault = e->saved_default;
    }
    e->base = 0;
  }
  c->touched = nullptr;
  if (ok || c->nentries == c->saved_nentries) return;
  // Undo: the entries the call made go, and the index forgets them.
  for (uint32_t k = c->saved_nentries; k < c->nentries; k++) free_entry(c, c->entries[k]);
  c->nentries = c->saved_nentries;
  index_entries(c);
}

// ----------------------------------------------------------------- storage

uint32_t store(lrmctx_rec *c, const char *qual, size_t quallen, const char *key, size_t klen, const char *text,
               size_t len, const char *comment, uint32_t how, const char *at, const char *keyat) {
  int32_t idx = -1;
  const char *name = key;
  size_t namelen = klen;
  uint8_t type = LRM_T_STRING;
  if (klen > 0) {
    uint32_t st = resolve(c, key, klen, &idx);
    if (st != 0) return report(c, st, {std::string_view(key, klen)}, keyat, std::string_view(key, klen));
    if (idx >= 0) {
      name = c->set->keys[idx].name;
      namelen = strlen(name);
      type = c->set->keys[idx].type;
    } else if (idx <= -2) {
      name = kBuiltinNames[-2 - idx];
      namelen = strlen(name);
      type = LRM_T_BOOL;
    }
  }
  lrmval tmp{};
  if ((how & kStoreFlag) && type == LRM_T_BOOL) {
    // A -flag is true by being there, whatever the set's words for true.
    text = "TRUE";
    len = 4;
    tmp.boolv = 1;
  } else {
    uint32_t st = convert(c, idx, type, text, len, &tmp);
    if (st != 0) {
      std::string_view shown_name(name, namelen);
      if (st == kOutOfRange) return report(c, st, {std::string_view(text, len), shown_name}, at, shown_name);
      return report(c, st, {std::string_view(text, len)}, at, shown_name);
    }
  }
  // The scanner hashed the key as given; that is the hash of its name as
  // kept unless the name is a declared key's other spelling.
  uint32_t hv;
  const bool as_given = keyat != nullptr && namelen == klen && (name == key || memcmp(name, key, klen) == 0);
  if (as_given && c->hints[0].at == keyat)
    hv = c->hints[0].hash;
  else if (as_given && c->hints[1].at == keyat)
    hv = c->hints[1].hash;
  else
    hv = name_hash(c, qual, quallen, name, namelen);
  lrmentry *e = nullptr;
  uint32_t slot = UINT32_MAX;
  if (c->nentries > 0) {
    slot = find_slot(c, hv, qual, quallen, name, namelen);
    if (c->slots[slot].entry != 0) e = c->entries[c->slots[slot].entry - 1];
  }
  if (e == nullptr) e = make_entry(c, hv, slot, qual, quallen, name, namelen, idx, type);
  if (e == nullptr) return report(c, kNoMemory, {"storing a value"}, at, std::string_view(name, namelen));
  // One block: the value record, then its text.
  auto *v = static_cast<lrmval *>(hmalloc(c, sizeof(lrmval) + len + 1));
  if (v == nullptr) return report(c, kNoMemory, {"storing a value"}, at, std::string_view(name, namelen));
  *v = tmp;
  v->len = len;
  v->text = reinterpret_cast<char *>(v + 1);
  copy_bytes(v->text, text, len);
  v->text[len] = '\0';
  v->comment = nullptr;
  if (comment != nullptr) {
    v->comment = hstrdup(c, comment, strlen(comment));
    if (v->comment == nullptr) {
      hfree(c, v);
      return report(c, kNoMemory, {"storing a value"}, at, std::string_view(name, namelen));
    }
  }
  if (type == LRM_T_NAME && !(c->set != nullptr && (c->set->flags & LRM_KS_CASE))) upper_text(c, v->text, len);
  touch(c, e);
  // A user's value takes the place of the declared default; a key declared
  // single keeps its newest value only.
  if ((e->isdefault && !(how & kStoreDefault)) || (idx >= 0 && c->set->keys[idx].single)) replace_all(c, e);
  if (!append(c, e, v)) {
    hfree(c, v->comment);
    hfree(c, v);
    return report(c, kNoMemory, {"storing a value"}, at, std::string_view(name, namelen));
  }
  e->isdefault = (how & kStoreDefault) ? 1 : 0;
  return 0;
}

}  // namespace lrm_internal
