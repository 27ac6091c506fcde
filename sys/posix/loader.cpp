// Dynamic libraries on POSIX (loader_impl.h): dlopen and friends.
#include <dlfcn.h>

#include <cstring>

#include "sys/loader_impl.h"

namespace {

// dlerror() is per thread and cleared when read: keep the text of the last
// failure until the next one.
thread_local char t_last[256];

void keep(const char *text) noexcept {
  if (text == nullptr) text = "";
  size_t n = strlen(text);
  if (n >= sizeof t_last) n = sizeof t_last - 1;
  memcpy(t_last, text, n);
  t_last[n] = '\0';
}

void *l_open(const char *file) {
  void *h = dlopen(file, RTLD_NOW | RTLD_LOCAL);
  if (h == nullptr) keep(dlerror());
  return h;
}

void *l_sym(void *lib, const char *name) {
  dlerror();
  void *p = dlsym(lib, name);
  if (p == nullptr) keep(dlerror());
  return p;
}

int32_t l_close(void *lib) {
  if (dlclose(lib) == 0) return 0;
  keep(dlerror());
  return -1;
}

size_t l_error(char *buf, size_t len) {
  size_t n = strlen(t_last);
  if (n >= len) n = len - 1;
  memcpy(buf, t_last, n);
  buf[n] = '\0';
  return n;
}

}  // namespace

namespace sl_internal {

const LoaderOps kLoaderOs = {
    .open = l_open,
    .sym = l_sym,
    .close = l_close,
    .error = l_error,
};

}  // namespace sl_internal
