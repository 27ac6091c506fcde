// elements_impl.h - the format-element table, its index and the per-element
// attributes (elements.cpp).
#ifndef KEL_DATETIME_ELEMENTS_IMPL_H
#define KEL_DATETIME_ELEMENTS_IMPL_H

#include "datetime/calendar/ldx_impl.h"

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
// kind, width, error, min, max, suffixes. Visible here so that the readers
// and writers can derive their own compile-time tables from it.
inline constexpr Attr kAttrTable[kMaxCode + 1] = {
    {Kind::None, 0, 0, 0, 0, false},
    {Kind::Num, 2, E_RANGE_YEAR, 0, 99, true},              // CC
    {Kind::Num, 3, E_RANGE_YEAR, -99, 99, true},            // SCC
    {Kind::Num, 1, E_RANGE_YEAR, 0, 9, true},               // I
    {Kind::Num, 1, E_RANGE_YEAR, 0, 9, true},               // Y
    {Kind::Num, 2, E_RANGE_YEAR, 0, 99, true},              // IY
    {Kind::Num, 2, E_RANGE_YEAR, 0, 99, true},              // YY
    {Kind::Num, 3, E_RANGE_YEAR, 0, 999, true},             // IYY
    {Kind::Num, 3, E_RANGE_YEAR, 0, 999, true},             // YYY
    {Kind::Num, 4, E_RANGE_YEAR, 0, 9999, true},            // IYYY
    {Kind::Num, 4, E_RANGE_YEAR, 0, 9999, true},            // YYYY
    {Kind::Num, 5, E_RANGE_YEAR, 0, 9999, true},            // Y,YYY
    {Kind::Num, 5, E_RANGE_YEAR, -4712, 9999, true},        // SYYYY
    {Kind::Num, 6, E_RANGE_YEAR, -4712, 9999, true},        // SY,YYY
    {Kind::Word, 0, E_RANGE_YEAR, 0, 0, false},             // YEAR
    {Kind::Word, 0, E_RANGE_YEAR, 0, 0, false},             // SYEAR
    {Kind::Num, 1, E_RANGE_QUARTER, 1, 4, true},            // Q
    {Kind::Num, 2, E_RANGE_MONTH, 1, 12, true},             // MM
    {Kind::Num, 2, E_RANGE_WEEK_YEAR, 1, 53, true},         // IW
    {Kind::Num, 2, E_RANGE_WEEK_YEAR, 1, 53, true},         // WW
    {Kind::Num, 1, E_RANGE_WEEK_MONTH, 1, 5, true},         // W
    {Kind::Num, 1, E_RANGE_WEEKDAY, 1, 7, true},            // D
    {Kind::Num, 2, E_RANGE_DAY, 1, 31, true},               // DD
    {Kind::Num, 3, E_DOY366, 1, 366, true},                 // DDD
    {Kind::Num, 2, E_RANGE_HOUR24, 0, 23, true},            // HH24
    {Kind::Num, 2, E_RANGE_HOUR12, 1, 12, true},            // HH, HH12
    {Kind::Num, 2, E_RANGE_MINUTE, 0, 59, true},            // MI
    {Kind::Num, 2, E_RANGE_SECOND, 0, 59, true},            // SS
    {Kind::Num, 5, E_RANGE_SSSSS, 0, 86399, true},          // SSSSS
    {Kind::Num, 7, E_JDAY, 1, kMaxJday, true},              // J
    {Kind::Name, 0, E_RANGE_MONTH, 0, 0, false},            // MONTH
    {Kind::Name, 0, E_RANGE_MONTH, 0, 0, false},            // MON
    {Kind::Name, 0, E_RANGE_WEEKDAY, 0, 0, false},          // DAY
    {Kind::Name, 0, E_RANGE_WEEKDAY, 0, 0, false},          // DY
    {Kind::Word, 0, E_NEED_MERIDIAN, 0, 0, false},          // AM/PM
    {Kind::Word, 0, E_NEED_MERIDIAN, 0, 0, false},          // A.M./P.M.
    {Kind::Word, 0, E_NEED_ERA, 0, 0, false},               // AD/BC
    {Kind::Word, 0, E_NEED_ERA, 0, 0, false},               // A.D./B.C.
    {Kind::Word, 4, E_RANGE_MONTH, 1, 12, false},           // RM
    {Kind::Switch, 0, 0, 0, 0, false},                      // FM
    {Kind::Num, 2, E_RANGE_YEAR, 0, 99, true},              // RR
    {Kind::Num, 4, E_RANGE_YEAR, 0, 9999, true},            // RRRR
    {Kind::Switch, 0, 0, 0, 0, false},                      // FX
    {Kind::Word, 0, E_NEED_ERA, 0, 0, false},               // E
    {Kind::Word, 0, E_NEED_ERA, 0, 0, false},               // EE
    {Kind::Num, 5, E_RANGE_YEAR, -4712, 9999, true},        // NYYYY
    {Kind::None, 0, 0, 0, 0, false},                        // 46: unused
    {Kind::Expand, 0, 0, 0, 0, false},                      // DL
    {Kind::Expand, 0, 0, 0, 0, false},                      // DS
    {Kind::Expand, 0, 0, 0, 0, false},                      // TS
};
inline const Attr &attr(int32_t code) {
  return kAttrTable[code >= 0 && code <= kMaxCode ? code : 0];
}

}  // namespace ldx_internal

#endif  // KEL_DATETIME_ELEMENTS_IMPL_H
