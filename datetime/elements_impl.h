// elements_impl.h - the format-element table, its index and the per-element
// attributes (elements.cpp).
#ifndef KEL_DATETIME_ELEMENTS_IMPL_H
#define KEL_DATETIME_ELEMENTS_IMPL_H

#include "datetime/ldx_impl.h"

namespace ldx_internal {

struct Element {
  char text[8];  // up to 7 characters, NUL-terminated
  uint8_t len;
  int32_t code;
};

// How an element is written and read: Num = digits (width = digits written
// out of fill mode), Name = month or day name, Word = fixed words (meridian,
// era, Roman month, spelled year), Switch = FM/FX, Expand = DL/DS/TS.
enum class Kind : uint8_t { None, Num, Name, Word, Switch, Expand };

struct Attr {
  Kind kind;
  uint8_t width;
  int16_t err;  // error for a value out of range on input
  int32_t min, max;
  bool suffix;  // TH / SP / SPTH / THSP allowed
};
static_assert(sizeof(Attr) == 16, "one attribute row per 16 bytes keeps the lookup a shift");

// The table rows (ASCII or EBCDIC copy) and their number.
const Element *element_rows(bool ebcdic, size_t *count);
// First row of an initial letter 0 ... 25, or -1.
int32_t element_index(int letter);
extern const Attr kAttrTable[kMaxCode + 1];
inline const Attr &attr(int32_t code) {
  return kAttrTable[code >= 0 && code <= kMaxCode ? code : 0];
}

}  // namespace ldx_internal

#endif  // KEL_DATETIME_ELEMENTS_IMPL_H
