// Allocation of kelnls10. Every request goes through here, so that a test
// build can refuse any of them (fault point SL_FAULT_NLS of sl.h).
//
// The fault points belong to kelcore10's system layer, which this library
// lies beneath and cannot link. A weak reference finds them whenever both
// libraries are linked into one program (the test suite links their
// archives); elsewhere it stays null and nothing is refused.
#include <cstdlib>

#include "nls/nls_impl.h"
#include "sl.h"

#ifdef KEL_TEST_HOOKS
namespace sl_internal {
[[gnu::weak]] bool fault_hit(int32_t point) noexcept;
}
#endif

namespace nls_internal {

namespace {
inline bool refused() noexcept {
#ifdef KEL_TEST_HOOKS
  return sl_internal::fault_hit != nullptr && sl_internal::fault_hit(SL_FAULT_NLS);
#else
  return false;
#endif
}
}  // namespace

void *nls_malloc(size_t n) noexcept { return refused() ? nullptr : std::malloc(n); }

void *nls_calloc(size_t n) noexcept { return refused() ? nullptr : std::calloc(1, n); }

void nls_free(void *p) noexcept { std::free(p); }

}  // namespace nls_internal
