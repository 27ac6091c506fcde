// The territory view of an NLS handle: everything territory-dependent that
// the date code reads (formats, names, words, first day of the week, calendar
// kind, character set) gathered in one record, so that the date code never
// talks to the language services directly. The null handle is American
// English; filling the view from a real kelnls10 handle lands here and only
// here.
#include "datetime/ldx_impl.h"

namespace ldx_internal {

namespace {

constexpr ldx_territory_view kAmerican = {
    "DD-MON-RR",
    "fmDay, Month DD, YYYY",
    "fmMM/DD/YYYY",
    "HH:MI:SS AM",
    0,
    true,
    false,
    {"JANUARY", "FEBRUARY", "MARCH", "APRIL", "MAY", "JUNE", "JULY", "AUGUST", "SEPTEMBER",
     "OCTOBER", "NOVEMBER", "DECEMBER"},
    {"JAN", "FEB", "MAR", "APR", "MAY", "JUN", "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"},
    {"SUNDAY", "MONDAY", "TUESDAY", "WEDNESDAY", "THURSDAY", "FRIDAY", "SATURDAY"},
    {"SUN", "MON", "TUE", "WED", "THU", "FRI", "SAT"},
    "AM", "PM", "A.M.", "P.M.",
    "AD", "BC", "A.D.", "B.C.",
    {"ANNO DOMINI", "BEFORE CHRIST"},
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

}  // namespace

const ldx_territory_view &default_view() { return kAmerican; }

const ldx_territory_view *view_for_handle(void *nlshd) {
  // Only the default territory exists until the language services hand out
  // territory data.
  if (nlshd == nullptr) return &kAmerican;
  return nullptr;
}

}  // namespace ldx_internal
