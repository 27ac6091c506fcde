// Shared pieces of the date tests: an error recorder behind a started date
// context, a date literal, a date printed for messages and a pinned "now".
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "datetime/calendar/ldx_impl.h"
#include "ldx.h"

namespace ldxtest {

// Collects the error numbers the date functions report through the
// context's callback.
struct Recorder {
  std::vector<int32_t> errs;
};
inline void record(ldxctx *ctx, int32_t err) { static_cast<Recorder *>(ctx->cbarg)->errs.push_back(err); }

// A started context reporting into its own recorder.
struct Ctx {
  ldxctx c{};
  Recorder rec;
  Ctx() { EXPECT_EQ(ldxbegin(&c, nullptr, record, &rec), 0); }
  int32_t last() const { return rec.errs.empty() ? 0 : rec.errs.back(); }
};

inline ldxdate D(int y, int m, int d, int hh = 0, int mi = 0, int ss = 0) {
  return ldxdate{static_cast<int16_t>(y), static_cast<int8_t>(m), static_cast<int8_t>(d),
                 static_cast<int8_t>(hh), static_cast<int8_t>(mi), static_cast<int8_t>(ss), 0};
}

inline std::string str(const ldxdate &d) {
  char b[64];
  std::snprintf(b, sizeof b, "%d-%02d-%02d %02d:%02d:%02d", d.year, d.month, d.day, d.hour, d.minute, d.second);
  return b;
}

// "now" pinned for the elements that take the current year or month; by
// default 2024-07-15 10:20:30 UTC.
constexpr int64_t kPinned = 1721038830LL * 1000000;
struct PinNow {
  explicit PinNow(int64_t us = kPinned) { ldx_internal::pin_now_for_test(us); }
  ~PinNow() { ldx_internal::pin_now_for_test(0); }
  PinNow(const PinNow &) = delete;
  PinNow &operator=(const PinNow &) = delete;
};

}  // namespace ldxtest
