// fixed_impl.h - what the fast readers and the fast writer of fixed models
// share: the slots of the fields read, the table of number elements, and the
// layout plans (fixed_plan.cpp).
//
// A fixed model (kHdrFixed) holds only plain number elements, each written
// at its full width, and one-byte separators, so it fixes its text
// completely: the length, which bytes are digits and which are separators.
#ifndef KEL_DATETIME_FIXED_IMPL_H
#define KEL_DATETIME_FIXED_IMPL_H

#include <array>
#include <cstring>

#include "datetime/calendar/elements_impl.h"

namespace ldx_internal {

// The fields read so far, one slot each, so that a reader can file a value
// by a slot number taken from a table. -1 = not read. The year slot holds
// the value as read; F_YKIND says how to take it: 0 none, 1 ... 3 the last
// digits of the current year, 'F' full year (negated after BC), 'S' signed
// year, 'R' century window. F_WDAY is the weekday counted from Sunday = 0,
// F_MERIDIAN 0 = AM, 1 = PM, F_BC 1 after a BC indicator. F_SINK takes the
// stores a table row does not need.
enum Slot : uint8_t {
  F_YKIND, F_YEAR, F_MONTH, F_DAY, F_DOY, F_JDAY, F_HOUR24, F_HOUR12, F_MERIDIAN, F_MINUTE, F_SECOND,
  F_SSSSS, F_WDAY, F_BC, F_SINK, kSlots
};

// Each number element is one row of kFixedIn, made from the attribute table:
// its width, the slot its value goes to, and a second store that records how
// a year was given. The readers need no per-element dispatch but the digit
// count.
struct FixedIn {
  uint8_t width;  // 0: not for this reader
  uint8_t slot;
  uint8_t kslot;  // slot of the second store (F_SINK for none)
  uint8_t kval;   // value of the second store
  int32_t min;
  uint32_t span;  // max - min
};
constexpr std::array<FixedIn, 64> make_fixed_in() {
  std::array<FixedIn, 64> t{};
  struct Row {
    int32_t code;
    uint8_t slot, kslot, kval;
  };
  // RRRR read with all four digits is a full year.
  constexpr Row rows[] = {
      {C_Y, F_YEAR, F_YKIND, 1},     {C_YY, F_YEAR, F_YKIND, 2},     {C_YYY, F_YEAR, F_YKIND, 3},
      {C_YYYY, F_YEAR, F_YKIND, 'F'}, {C_RRRR, F_YEAR, F_YKIND, 'F'}, {C_RR, F_YEAR, F_YKIND, 'R'},
      {C_MM, F_MONTH, F_SINK, 0},    {C_D, F_WDAY, F_SINK, 0},       {C_DD, F_DAY, F_SINK, 0},
      {C_DDD, F_DOY, F_SINK, 0},     {C_HH24, F_HOUR24, F_SINK, 0},  {C_HH, F_HOUR12, F_SINK, 0},
      {C_MI, F_MINUTE, F_SINK, 0},   {C_SS, F_SECOND, F_SINK, 0},    {C_SSSSS, F_SSSSS, F_SINK, 0},
      {C_J, F_JDAY, F_SINK, 0},
  };
  for (const Row &r : rows) {
    const Attr &a = kAttrTable[r.code];
    t[static_cast<size_t>(r.code)] = {a.width, r.slot, r.kslot, r.kval, a.min, static_cast<uint32_t>(a.max - a.min)};
  }
  return t;
}
constexpr auto kFixedIn = make_fixed_in();
// A digit that is none reads as -1, which the readers' range test must refuse.
constexpr bool mins_not_negative() {
  for (const FixedIn &e : kFixedIn)
    if (e.min < 0) return false;
  return true;
}
static_assert(mins_not_negative());


// ------------------------------------------------------------ layout plans
//
// A plan holds the layout of a fixed model as two windows of byte bounds,
// so that one vector test checks every byte of a text, and as a list of
// fields at fixed offsets, so that values are taken without walking the
// model. The lower bounds are also the text a writer starts from: the
// separators in place and '0' in every digit. Making a plan costs a walk of
// the model; each thread keeps plans for the last few fixed models it used,
// keyed by the compiled bytes themselves (not by where they lie), so a
// caller that compiles a model once and converts many dates with it walks
// it once. Plans are made under the rules of read_fixed and give exactly
// what it gives.

typedef uint8_t U8x16 __attribute__((vector_size(16)));

struct Plan {
  // The number elements in model order: their kFixedIn rows and offsets.
  struct Field {
    uint8_t off, width, slot, kslot, kval;
    bool weekday;  // "D": counted from the territory's first day
    int32_t min;
    uint32_t span;
  };
  U8x16 lo[2], span[2];  // byte bounds of the two windows, see plan_window
  uint8_t klen;          // bytes of the model the entry is kept by; 0: free
  uint8_t textlen;       // 0: the model has no plan (read_fixed serves it)
  uint8_t nfields;
  bool fill;             // some element carries the fill flag: no plan for writing
  // Simple plans: a full year (YYYY or RRRR), a month (MM) and a day (DD),
  // and at most an hour (HH24), a minute (MI) and a second (SS), each once.
  // Offsets of those fields; 0xFF for a time field the model lacks.
  bool simple;
  uint8_t oy, om, od, oh, omi, os;
  uint8_t model[72];
  Field fields[16];
};

// The text is seen through two 16-byte windows: for 16 ... 32 bytes its first
// and its last 16 (overlapping when shorter than 32); for 8 ... 15 bytes its
// first and last 8 in one window, the second window unused (all zero).
constexpr size_t kPlanTextMin = 8, kPlanTextMax = 32;

// Text position seen by byte k of window w of a text of n bytes, or -1.
constexpr int32_t plan_window(size_t n, int w, int k) {
  if (n >= 16) return w == 0 ? k : static_cast<int32_t>(n) - 16 + k;
  if (w == 1) return -1;
  return k < 8 ? k : static_cast<int32_t>(n) - 16 + k;
}

// The two windows of a text of n (kPlanTextMin ... kPlanTextMax) bytes.
inline void load_windows(const uint8_t *t, size_t n, U8x16 w[2]) {
  w[1] = U8x16{};
  if (n >= 16) {
    std::memcpy(&w[0], t, 16);
    std::memcpy(&w[1], t + n - 16, 16);
  } else {
    std::memcpy(&w[0], t, 8);
    std::memcpy(reinterpret_cast<uint8_t *>(&w[0]) + 8, t + n - 8, 8);
  }
}

// Writes the two windows back as a text of n bytes.
inline void store_windows(const U8x16 w[2], size_t n, char *t) {
  if (n >= 16) {
    std::memcpy(t, &w[0], 16);
    std::memcpy(t + n - 16, &w[1], 16);
  } else {
    std::memcpy(t, &w[0], 8);
    std::memcpy(t + n - 8, reinterpret_cast<const uint8_t *>(&w[0]) + 8, 8);
  }
}

// The plan for a compiled fixed model of mlen bytes (kept or made now), or
// null when the model has none. Valid until the thread's next call.
const Plan *plan_for(const uint8_t *m, size_t mlen);

}  // namespace ldx_internal

#endif  // KEL_DATETIME_FIXED_IMPL_H
