// Dynamic libraries (sl.h), over the platform's table (loader_impl.h).
#include <cstring>

#include "lfi.h"
#include "sl.h"
#include "sys/error_impl.h"
#include "sys/fault_impl.h"
#include "sys/loader_impl.h"

using sl_internal::loader_os;

namespace {

// The platform clears its error text on the next call; keep a copy per
// thread so that a caller can read it after more work. Room for a long path
// and the system's text.
thread_local char t_dlerr[320];

void keep_text(const char *text) noexcept {
  size_t n = strlen(text);
  if (n >= sizeof t_dlerr) n = sizeof t_dlerr - 1;
  memcpy(t_dlerr, text, n);
  t_dlerr[n] = '\0';
}

void keep_platform_error(const char *what) noexcept {
  if (loader_os().error(what, t_dlerr, sizeof t_dlerr) == 0) keep_text("unknown loader error");
}

}  // namespace

extern "C" {

KELAPI void *sldlopen(const char *file) {
  if (file == nullptr || *file == '\0') {
    keep_text("no library file name");
    sl_internal::fail(SLF_E_BADARG);
    return nullptr;
  }
  if (SL_FAULT(SL_FAULT_DLOPEN)) {
    keep_text("refused by an injected fault");
    return nullptr;
  }
  void *h = loader_os().open(file);
  if (h == nullptr) keep_platform_error(file);
  return h;
}

KELAPI void *sldlsym(void *lib, const char *name) {
  if (lib == nullptr || name == nullptr) {
    keep_text("no library or symbol name");
    return nullptr;
  }
  void *p = loader_os().sym(lib, name);
  if (p == nullptr) keep_platform_error(name);
  return p;
}

KELAPI int32_t sldlclose(void *lib) {
  if (lib == nullptr) return sl_internal::fail(SLF_E_BADARG);
  if (loader_os().close(lib) != 0) {
    keep_platform_error("unloading a library");
    return -1;
  }
  return 0;
}

KELAPI size_t sldlerror(char *buf, size_t len) {
  if (buf == nullptr || len == 0) return 0;
  size_t n = strlen(t_dlerr);
  if (n >= len) n = len - 1;
  memcpy(buf, t_dlerr, n);
  buf[n] = '\0';
  return n;
}

}  // extern "C"
