// The character set's rules as the parameter manager applies them: blanks,
// case-insensitive names, upper-cased values, columns.
//
// A single-byte set is all in the byte tables of the context (made from the
// set's classes when it opens). In a multi-byte set (UTF-8 in Unicode mode)
// an ASCII byte is a character of its own and the tables serve it too;
// anything else is read as one character of the set (lxmdecx) and its class
// and case asked of the set. Bytes that are no character of the set stand
// for themselves: no blank, no case.
#include <cstring>

#include "param/lrm_impl.h"

namespace lrm_internal {

namespace {

// A code outside every character set for a byte that is no character.
constexpr uint32_t kStray = 0x110000;

// The character at s[*i] (n bytes in all), upper-cased when fold; advances *i.
inline uint32_t next_char(const lrmctx_rec *c, const char *s, size_t n, size_t *i, bool fold) {
  const auto b = static_cast<uint8_t>(s[*i]);
  if (c->bytewise || b < 0x80) {
    (*i)++;
    return fold ? c->upper[b] : b;
  }
  uint32_t u = 0;
  int32_t k = lxmdecx(c->env, s + *i, n - *i, &u);
  if (k <= 0) {
    (*i)++;
    return kStray + b;
  }
  *i += static_cast<size_t>(k);
  return fold ? lxmtupx(c->env, u) : u;
}

inline bool folding(const lrmctx_rec *c) { return c->set == nullptr || !(c->set->flags & LRM_KS_CASE); }

// Compares a and b character by character; the result as name_match.
int32_t match(const lrmctx_rec *c, const char *key, size_t keylen, const char *given, size_t glen, bool fold) {
  if (!fold || c->bytewise) {
    if (glen > keylen) return 0;
    if (!fold) {
      if (memcmp(key, given, glen) != 0) return 0;
    } else {
      for (size_t i = 0; i < glen; i++)
        if (c->upper[static_cast<uint8_t>(key[i])] != c->upper[static_cast<uint8_t>(given[i])]) return 0;
    }
    return glen == keylen ? 2 : 1;
  }
  size_t i = 0, j = 0;
  while (j < glen) {
    if (i >= keylen) return 0;
    if (next_char(c, key, keylen, &i, true) != next_char(c, given, glen, &j, true)) return 0;
  }
  return i == keylen ? 2 : 1;
}

}  // namespace

size_t blank_at(const lrmctx_rec *c, const char *p, size_t n) {
  if (n == 0) return 0;
  const auto b = static_cast<uint8_t>(*p);
  if (c->bytewise || b < 0x80) return c->blank[b];
  uint32_t u = 0;
  int32_t k = lxmdecx(c->env, p, n, &u);
  return k > 0 && lxmspax(c->env, u) ? static_cast<size_t>(k) : 0;
}

int32_t name_match(const lrmctx_rec *c, const char *key, size_t keylen, const char *given, size_t glen) {
  return match(c, key, keylen, given, glen, folding(c));
}

bool names_equal(const lrmctx_rec *c, const char *a, size_t alen, const char *b, size_t blen) {
  if (alen == blen && memcmp(a, b, alen) == 0) return true;
  return match(c, a, alen, b, blen, folding(c)) == 2;
}

bool words_equal(const lrmctx_rec *c, const char *a, size_t alen, const char *b, size_t blen) {
  return match(c, a, alen, b, blen, true) == 2;
}

int32_t names_order(const lrmctx_rec *c, const char *a, const char *b) {
  size_t an = strlen(a), bn = strlen(b), i = 0, j = 0;
  while (i < an && j < bn) {
    uint32_t x = next_char(c, a, an, &i, true), y = next_char(c, b, bn, &j, true);
    if (x != y) return x < y ? -1 : 1;
  }
  return i < an ? 1 : j < bn ? -1 : 0;
}

namespace {

// Upper-cases the eight ASCII bytes of w (a-z to A-Z), as every ASCII-based
// set folds them.
inline uint64_t fold_ascii8(uint64_t w) {
  constexpr uint64_t kOnes = 0x0101010101010101ull;
  const uint64_t from_a = w + (0x80 - 'a') * kOnes;      // high bit: >= 'a'
  const uint64_t past_z = w + (0x80 - 'z' - 1) * kOnes;  // high bit: > 'z'
  return w - (((from_a & ~past_z) & (0x80 * kOnes)) >> 2);
}

// The k (1 to 8) bytes at p as the low bytes of a word, little-endian. Whole
// loads that overlap where k is not a power of two: a word put together
// byte by byte in memory and read back whole stalls the processor.
inline uint64_t load(const char *p, size_t k) {
  const auto *b = reinterpret_cast<const uint8_t *>(p);
  if (k >= 4) {
    uint32_t lo, hi;
    memcpy(&lo, b, 4);
    memcpy(&hi, b + k - 4, 4);
    if (k == 8) {
      uint64_t w;
      memcpy(&w, b, 8);
      return w;
    }
    return lo | (static_cast<uint64_t>(hi) << (8 * (k - 4)));
  }
  return b[0] | (static_cast<uint64_t>(b[k >> 1]) << (8 * (k >> 1))) | (static_cast<uint64_t>(b[k - 1]) << (8 * (k - 1)));
}

// Hashes the characters of names as they compare: a stream of bytes, eight
// at a time, in which a character below 0x80 is its folded byte and any
// other its folded code in four bytes with the high bit set.
struct Hasher {
  uint64_t h = 0x9E3779B97F4A7C15ull;
  uint64_t acc = 0;
  int n = 0;

  void mix(uint64_t w) {
    h = (h ^ w) * 0xFF51AFD7ED558CCDull;
    h = (h << 31) | (h >> 33);
  }
  void byte(uint8_t b) {
    acc |= static_cast<uint64_t>(b) << (8 * n);
    if (++n == 8) {
      mix(acc);
      acc = 0;
      n = 0;
    }
  }
  void text(const lrmctx_rec *c, const char *s, size_t len, bool fold) {
    size_t i = 0;
    while (i < len) {
      if (n == 0) {
        // Eight bytes at a time; the last few as one partial word.
        size_t k = len - i < 8 ? len - i : 8;
        uint64_t w = load(s + i, k);
        if (k < 8) {
          if (fold && (w & 0x8080808080808080ull) != 0) goto one;
          acc = fold ? fold_ascii8(w) : w;
          n = static_cast<int>(k);
          return;
        }
        if (!fold) {
          mix(w);
          i += 8;
          continue;
        }
        if ((w & 0x8080808080808080ull) == 0) {
          mix(fold_ascii8(w));
          i += 8;
          continue;
        }
      }
    one:
      if (!fold) {
        byte(static_cast<uint8_t>(s[i++]));
        continue;
      }
      uint32_t u = next_char(c, s, len, &i, true);
      if (u < 0x80 || (c->bytewise && u < 0x100)) {
        byte(static_cast<uint8_t>(u));
      } else {
        for (int k = 3; k >= 0; k--) byte(static_cast<uint8_t>(0x80 | (u >> (7 * k))));
      }
    }
  }
  // Ends a text: its last partial word, marked with its length.
  void flush() {
    mix(acc | (static_cast<uint64_t>(n) << 60) | (1ull << 63));
    acc = 0;
    n = 0;
  }
  // The high half of a product, which every bit of the state reaches.
  uint32_t finish() const { return static_cast<uint32_t>(((h ^ (h >> 32)) * 0xC4CEB9FE1A85EC53ull) >> 32); }
};

}  // namespace

namespace {

// One text into the hash and its end, as Hasher::text and flush do it: word
// by word when every byte is ASCII (the usual case), else through Hasher.
void hash_text(const lrmctx_rec *c, Hasher &hs, const char *s, size_t len, bool fold) {
  constexpr uint64_t kHigh = 0x8080808080808080ull;
  size_t i = 0;
  for (; i + 8 <= len; i += 8) {
    uint64_t w;
    memcpy(&w, s + i, 8);
    if (fold && (w & kHigh) != 0) break;
    hs.mix(fold ? fold_ascii8(w) : w);
  }
  if (i + 8 > len) {
    const size_t k = len - i;
    const uint64_t w = k > 0 ? load(s + i, k) : 0;
    if (!fold || (w & kHigh) == 0) {
      hs.acc = fold ? fold_ascii8(w) : w;
      hs.n = static_cast<int>(k);
      hs.flush();
      return;
    }
  }
  hs.text(c, s + i, len - i, fold);
  hs.flush();
}

}  // namespace

uint32_t name_hash(const lrmctx_rec *c, const char *qual, size_t quallen, const char *s, size_t n) {
  const bool fold = folding(c);
  Hasher hs;
  hash_text(c, hs, qual, quallen, fold);
  hash_text(c, hs, s, n, fold);
  return hs.finish();
}

void upper_text(const lrmctx_rec *c, char *s, size_t n) {
  if (c->bytewise) {
    for (size_t i = 0; i < n; i++) s[i] = static_cast<char>(c->upper[static_cast<uint8_t>(s[i])]);
    return;
  }
  for (size_t i = 0; i < n;) {
    size_t at = i;
    uint32_t u = next_char(c, s, n, &i, false);
    if (u < 0x80) {
      s[at] = static_cast<char>(c->upper[u]);
      continue;
    }
    uint32_t up = u < kStray ? lxmtupx(c->env, u) : u;
    if (up == u || up > 0xFFFF) continue;
    // The upper case in the set's own bytes; kept only when it takes the
    // place of the lower case exactly, so the text keeps its length.
    const char unit[2] = {static_cast<char>(up >> 8), static_cast<char>(up & 0xFF)};
    char enc[8];
    int64_t m = lxgcnv(enc, sizeof enc, c->csid, unit, 2, LX_CSID_AL16UTF16);
    if (m == static_cast<int64_t>(i - at)) memcpy(s + at, enc, static_cast<size_t>(m));
  }
}

uint32_t first_char(const lrmctx_rec *c, const char *text, size_t len) {
  if (len == 0) return 0;
  size_t i = 0;
  return next_char(c, text, len, &i, false);
}

int32_t column_of(const lrmctx_rec *c, const char *buf, const char *at) {
  const char *p = at;
  while (p > buf && p[-1] != '\n') p--;
  if (c->bytewise) return static_cast<int32_t>(at - p) + 1;
  int32_t col = 1;
  size_t n = static_cast<size_t>(at - p);
  for (size_t i = 0; i < n; col++) next_char(c, p, n, &i, false);
  return col;
}

}  // namespace lrm_internal
