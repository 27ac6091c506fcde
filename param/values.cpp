// The value table: entries by (qualifier, name) with their occurrences, the
// storage of a value, and the journal that makes every storing call
// all-or-nothing.
//
// The table is a list of entries in storage order (dumps keep it) with a
// chained hash index on (qualifier, name). An entry keeps its occurrences in
// an array, so occurrence i is one index away. Every block lives in the
// context heap.
//
// The journal. A call that may store several values (a source, lrmavla)
// runs between begin_call and end_call. The first time the call touches an
// entry, the entry remembers its count and default flag and joins the list
// of touched entries. New values
// are appended; a value that replaces the others (a key declared single, or
// the first value a user gives to a key that holds its default) frees the
// values this call added and hides the older ones behind `base` instead of
// freeing them. Ending the call well frees the hidden values; ending it
// badly frees what it added, shows the hidden values again and drops the
// entries the call made (all behind the tail it found), so the table is as
// it was before the call.
//
// Sections: table, journal, storage.
#include <cstring>

#include "param/lrm_impl.h"

namespace lrm_internal {

// ------------------------------------------------------------------- table

lrmentry *find_entry(lrmctx_rec *c, const char *qual, size_t quallen, const char *name, size_t namelen) {
  if (c->nbuckets == 0) return nullptr;
  uint32_t hv = name_hash(c, qual, quallen, name, namelen);
  for (lrmentry *e = c->buckets[hv & (c->nbuckets - 1)]; e != nullptr; e = e->hnext) {
    if (e->hash != hv) continue;
    size_t eq = e->qual != nullptr ? e->quallen : 0;
    if (eq != quallen && c->bytewise) continue;
    if ((eq > 0 || quallen > 0) &&
        !names_equal(c, e->qual != nullptr ? e->qual : "", eq, qual != nullptr ? qual : "", quallen))
      continue;
    if (names_equal(c, e->name, e->namelen, name, namelen)) return e;
  }
  return nullptr;
}

namespace {

void rehash(lrmctx_rec *c, lrmentry **b, uint32_t n) {
  memset(b, 0, sizeof(lrmentry *) * n);
  for (lrmentry *e = c->head; e != nullptr; e = e->next) {
    e->hnext = b[e->hash & (n - 1)];
    b[e->hash & (n - 1)] = e;
  }
}

bool grow_buckets(lrmctx_rec *c) {
  uint32_t n = c->nbuckets == 0 ? 64 : c->nbuckets * 2;
  auto *b = static_cast<lrmentry **>(hmalloc(c, sizeof(lrmentry *) * n));
  if (b == nullptr) return false;
  rehash(c, b, n);
  hfree(c, c->buckets);
  c->buckets = b;
  c->nbuckets = n;
  return true;
}

lrmentry *make_entry(lrmctx_rec *c, const char *qual, size_t quallen, const char *name, size_t namelen,
                     int32_t keyidx, uint8_t type) {
  if ((c->nentries + 1) * 2 > c->nbuckets && !grow_buckets(c)) return nullptr;
  // One block: the entry, room for one occurrence, its name and qualifier.
  auto *e = static_cast<lrmentry *>(hmalloc(c, sizeof(lrmentry) + sizeof(lrmval *) + namelen + quallen + 2));
  if (e == nullptr) return nullptr;
  memset(e, 0, sizeof *e);
  e->vals = reinterpret_cast<lrmval **>(e + 1);
  e->cap = 1;
  e->name = reinterpret_cast<char *>(e->vals + 1);
  memcpy(e->name, name, namelen);
  e->name[namelen] = '\0';
  if (quallen > 0) {
    e->qual = e->name + namelen + 1;
    memcpy(e->qual, qual, quallen);
    e->qual[quallen] = '\0';
  }
  e->namelen = namelen;
  e->quallen = quallen;
  e->keyidx = keyidx;
  e->type = type;
  e->hash = name_hash(c, qual, quallen, name, namelen);
  e->hnext = c->buckets[e->hash & (c->nbuckets - 1)];
  c->buckets[e->hash & (c->nbuckets - 1)] = e;
  if (c->tail != nullptr)
    c->tail->next = e;
  else
    c->head = e;
  c->tail = e;
  c->nentries++;
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

void drop_values(lrmctx_rec *c, lrmentry *e) {
  free_range(c, e, 0, e->count);
  e->count = e->base = 0;
  e->isdefault = 0;
}

void clear_values(lrmctx_rec *c) {
  for (lrmentry *e = c->head; e != nullptr;) {
    lrmentry *n = e->next;
    free_entry(c, e);
    e = n;
  }
  hfree(c, c->buckets);
  c->head = c->tail = nullptr;
  c->buckets = nullptr;
  c->nbuckets = c->nentries = 0;
}

// ----------------------------------------------------------------- journal

void begin_call(lrmctx_rec *c) {
  if (c->calls++ > 0) return;
  c->gen++;
  c->touched = nullptr;
  c->saved_tail = c->tail;
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
  lrmentry *first = c->saved_tail != nullptr ? c->saved_tail->next : c->head;
  if (ok || first == nullptr) return;
  // Undo: the entries the call made go, and the index forgets them.
  if (c->saved_tail != nullptr)
    c->saved_tail->next = nullptr;
  else
    c->head = nullptr;
  c->tail = c->saved_tail;
  for (lrmentry *e = first; e != nullptr;) {
    lrmentry *n = e->next;
    free_entry(c, e);
    c->nentries--;
    e = n;
  }
  rehash(c, c->buckets, c->nbuckets);
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
  lrmentry *e = find_entry(c, qual, quallen, name, namelen);
  if (e == nullptr) e = make_entry(c, qual, quallen, name, namelen, idx, type);
  if (e == nullptr) return report(c, kNoMemory, {"storing a value"}, at, std::string_view(name, namelen));
  // One block: the value record, then its text.
  auto *v = static_cast<lrmval *>(hmalloc(c, sizeof(lrmval) + len + 1));
  if (v == nullptr) return report(c, kNoMemory, {"storing a value"}, at, std::string_view(name, namelen));
  *v = tmp;
  v->len = len;
  v->text = reinterpret_cast<char *>(v + 1);
  memcpy(v->text, text, len);
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
