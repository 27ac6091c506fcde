// Message catalogues: one per product and facility. The texts compiled into
// the library are the default; a file of the same name under
// $KELTAR_HOME/<product>/mesg/ replaces them, so that an installation can
// ship its own texts without rebuilding.
//
// A handle owns the file's texts when it read one; otherwise it points at
// the built-in table. Handles are immutable after lmsaicmt, so many threads
// may read one at once.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "nls/msgcat_impl.h"
#include "nls/nls_impl.h"

using namespace nls_internal;

struct lmshdl {
  const msgent *entries;
  size_t count;
  msgent *owned;     // entries read from a file
  char *owned_text;  // their texts
};

namespace nls_internal {

bool parse_catalogue(char *text, size_t size, msgent **out, size_t *count) {
  size_t lines = 1;
  for (size_t i = 0; i < size; i++) lines += text[i] == '\n';
  auto *ents = static_cast<msgent *>(nls_malloc(lines * sizeof(msgent)));
  if (ents == nullptr) return false;
  size_t n = 0;
  for (char *line = text; line != nullptr && *line;) {
    char *nl = std::strchr(line, '\n');
    if (nl) *nl = '\0';
    size_t l = std::strlen(line);
    if (l > 0 && line[l - 1] == '\r') line[--l] = '\0';
    char *p = line;
    while (*p == ' ' || *p == '\t') p++;
    if (std::isdigit(static_cast<unsigned char>(*p))) {
      char *end;
      long num = std::strtol(p, &end, 10);
      if (*end == ',' && num >= 0 && num <= INT32_MAX) {
        end++;
        if (*end == ' ') end++;
        ents[n++] = msgent{static_cast<int32_t>(num), end};
      }
    }
    line = nl ? nl + 1 : nullptr;
  }
  // Later lines win over earlier ones with the same number.
  std::stable_sort(ents, ents + n, [](const msgent &a, const msgent &b) { return a.num < b.num; });
  size_t k = 0;
  for (size_t i = 0; i < n; i++) {
    if (k > 0 && ents[k - 1].num == ents[i].num) ents[k - 1] = ents[i];
    else ents[k++] = ents[i];
  }
  *out = ents;
  *count = k;
  return true;
}

}  // namespace nls_internal

namespace {

void lower(char *d, const char *s, size_t cap) {
  size_t i = 0;
  for (; s[i] && i + 1 < cap; i++) d[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(s[i])));
  d[i] = '\0';
}

// Reads a catalogue file; false when there is none or it cannot be read
// whole (the built-in texts are used then).
bool read_file(const char *path, lmshdl *h) {
  FILE *f = std::fopen(path, "rb");
  if (f == nullptr) return false;
  std::fseek(f, 0, SEEK_END);
  long size = std::ftell(f);
  std::fseek(f, 0, SEEK_SET);
  if (size < 0 || size > (16L << 20)) {
    std::fclose(f);
    return false;
  }
  auto *text = static_cast<char *>(nls_malloc(static_cast<size_t>(size) + 1));
  if (text == nullptr || std::fread(text, 1, static_cast<size_t>(size), f) != static_cast<size_t>(size)) {
    nls_free(text);
    std::fclose(f);
    return false;
  }
  std::fclose(f);
  text[size] = '\0';
  msgent *ents = nullptr;
  size_t k = 0;
  if (!parse_catalogue(text, static_cast<size_t>(size), &ents, &k)) {
    nls_free(text);
    return false;
  }
  h->entries = ents;
  h->count = k;
  h->owned = ents;
  h->owned_text = text;
  return true;
}

}  // namespace

extern "C" {

KELAPI lmshdl *lmsaicmt(const lxenv *env, const char *product, const char *facility) {
  if (product == nullptr || facility == nullptr) return nullptr;
  char prod[32], fac[32];
  lower(prod, product, sizeof prod);
  lower(fac, facility, sizeof fac);
  auto *h = static_cast<lmshdl *>(nls_calloc(sizeof(lmshdl)));
  if (h == nullptr) return nullptr;
  if (const char *home = std::getenv("KELTAR_HOME"); home != nullptr && *home) {
    char path[1024];
    int n = std::snprintf(path, sizeof path, "%s/%s/mesg/%s_%s.msg", home, prod, prod, fac);
    if (n > 0 && static_cast<size_t>(n) < sizeof path && read_file(path, h)) return h;
  }
  for (size_t i = 0; i < kCatalogueCount; i++) {
    if (std::strcmp(kCatalogues[i].product, prod) == 0 && std::strcmp(kCatalogues[i].facility, fac) == 0) {
      h->entries = kCatalogues[i].entries;
      h->count = kCatalogues[i].count;
      return h;
    }
  }
  nls_free(h);
  return nullptr;
}

KELAPI int32_t lmsagbf(lmshdl *h, int32_t msg, char *buf, size_t len) {
  if (h == nullptr) return -1;
  const msgent *e = std::lower_bound(h->entries, h->entries + h->count, msg,
                                     [](const msgent &a, int32_t n) { return a.num < n; });
  if (e == h->entries + h->count || e->num != msg) {
    if (buf != nullptr && len > 0) buf[0] = '\0';
    return -1;
  }
  size_t l = std::strlen(e->text);
  if (buf != nullptr && len > 0) {
    size_t n = l < len - 1 ? l : len - 1;
    std::memcpy(buf, e->text, n);
    buf[n] = '\0';
  }
  return static_cast<int32_t>(l);
}

KELAPI int32_t lmsacin(lmshdl *h) { return h == nullptr ? -1 : static_cast<int32_t>(h->count); }

KELAPI int32_t lmsacbn(lmshdl *h, int32_t idx) {
  if (h == nullptr || idx < 0 || static_cast<size_t>(idx) >= h->count) return -1;
  return h->entries[idx].num;
}

KELAPI int32_t lmsatrm(lmshdl *h) {
  if (h == nullptr) return -1;
  nls_free(h->owned);
  nls_free(h->owned_text);
  nls_free(h);
  return 0;
}

}  // extern "C"
