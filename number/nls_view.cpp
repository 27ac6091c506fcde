// nls_view.cpp - fills the parser's territory view from a language-services
// handle. Until the handle layout of kelnls10 is available here, only the
// absence of a handle is served (ASCII digits, "." as decimal character); a
// non-null handle has no reachable global context and parses nothing.
#include "number/nls_view_impl.h"

namespace lnx_internal {

void *nls_global_of(void *handle) {
  (void)handle;
  return nullptr;
}

bool nls_view_from(void *handle, void *global, NlsView &v) {
  if (handle == nullptr) {
    v = kDefaultView;
    return true;
  }
  (void)global;
  return false;
}

}  // namespace lnx_internal
