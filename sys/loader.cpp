// Dynamic libraries: the role LoadLibrary/GetProcAddress/FreeLibrary play on
// other platforms.
#include <dlfcn.h>

#include <cerrno>
#include <cstring>

#include "sl.h"
#include "sys/fault_impl.h"

namespace {
// dlerror() is per thread already, but it is cleared by the next dl call;
// keep our own copy so that a caller can read it after more work.
thread_local char t_dlerr[256];

void keep_error(const char *text) noexcept {
  if (text == nullptr) text = "unknown loader error";
  size_t n = strlen(text);
  if (n >= sizeof t_dlerr) n = sizeof t_dlerr - 1;
  memcpy(t_dlerr, text, n);
  t_dlerr[n] = '\0';
}
}  // namespace

extern "C" {

KELAPI void *sldlopen(const char *file) {
  if (file == nullptr || *file == '\0') {
    keep_error("no library file name");
    errno = EINVAL;
    return nullptr;
  }
  if (SL_FAULT(SL_FAULT_DLOPEN)) {
    keep_error("refused by an injected fault");
    return nullptr;
  }
  void *h = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (h == nullptr) keep_error(dlerror());
  return h;
}

KELAPI void *sldlsym(void *lib, const char *name) {
  if (lib == nullptr || name == nullptr) {
    keep_error("no library or symbol name");
    return nullptr;
  }
  dlerror();
  void *p = dlsym(lib, name);
  if (p == nullptr) keep_error(dlerror());
  return p;
}

KELAPI int32_t sldlclose(void *lib) {
  if (lib == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (dlclose(lib) != 0) {
    keep_error(dlerror());
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
