// fault_walk.h - walks "fail the Nth request" over an operation.
//
// A failure path is only tested when every request an operation makes can be
// refused in turn. The walker arms one fault point to refuse its 1st, 2nd, ...
// request (once, or from then on) and runs the operation each time, until a run
// makes fewer requests than the armed number: then every request has failed once.
// The operation checks its own outcome (the designed result and record); it
// can ask slfaulthits(point) whether its run was refused. `after`, if given,
// runs after each refused run with the point disarmed: the place to check
// that the library is still usable.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

#include "sl.h"

namespace kel_test {

enum class Fail { Once, FromThenOn };

// True in builds with fault points; tests that walk failures skip otherwise.
inline bool fault_points_built() { return slfaultarm(SL_FAULT_MEM, 0, 0) == 0; }

// Runs op(n) with `point` armed to refuse its nth request, for n = 1, 2, ...
// until a run is not refused or `limit` runs were made (a failure then: the
// operation never completes without the point). Returns the number of refused
// runs; 0 in a build without fault points. The point is disarmed on return.
inline int64_t walk_failures(int32_t point, Fail mode, const std::function<void(int64_t n)> &op,
                             int64_t limit = 100000, const std::function<void()> &after = {}) {
  if (!fault_points_built()) return 0;
  int64_t refused = 0;
  for (int64_t n = 1;; n++) {
    if (n > limit) {
      ADD_FAILURE() << "fault point " << point << ": still refusing after " << limit << " runs";
      break;
    }
    SCOPED_TRACE(::testing::Message() << "fault point " << point << ", request " << n
                                      << (mode == Fail::Once ? " refused" : " and later refused"));
    slfaultarm(point, n, mode == Fail::Once ? 1 : -1);
    op(n);
    bool hit = slfaulthits(point) > 0;
    slfaultarm(point, 0, 0);
    if (!hit || ::testing::Test::HasFatalFailure()) break;
    refused++;
    if (after) after();
    if (::testing::Test::HasFatalFailure()) break;
  }
  return refused;
}

}  // namespace kel_test
