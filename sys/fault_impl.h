// fault_impl.h - fault-injection points of the system layer (test builds).
//
// A point is a counter and an armed window [nth, nth + count). Each request
// that reaches a point counts itself and asks whether it falls in the window.
// Release builds compile SL_FAULT to false, so the hot paths carry nothing.
#ifndef KEL_SYS_FAULT_IMPL_H
#define KEL_SYS_FAULT_IMPL_H

#include <cstdint>

namespace sl_internal {

#ifdef KEL_TEST_HOOKS
// True when this request at `point` must fail (sets slerrno to SL_ERR_FAULT).
bool fault_hit(int32_t point) noexcept;
#define SL_FAULT(point) (__builtin_expect(::sl_internal::fault_hit(point), 0))
#else
#define SL_FAULT(point) (false)
#endif

}  // namespace sl_internal

#endif
