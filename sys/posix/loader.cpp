// Dynamic libraries on POSIX (loader_impl.h): dlopen and friends.
#include <dlfcn.h>

#include <cstring>

#include "sys/loader_impl.h"

namespace {

void *l_open(const char *file) { return dlopen(file, RTLD_NOW | RTLD_LOCAL); }

void *l_sym(void *lib, const char *name) {
  dlerror();  // a null symbol is only a failure if dlerror says so
  return dlsym(lib, name);
}

int32_t l_close(void *lib) { return dlclose(lib) == 0 ? 0 : -1; }

// dlerror() names the file or symbol itself, so `what` adds nothing.
size_t l_error(const char *, char *buf, size_t len) {
  const char *text = dlerror();
  if (text == nullptr) return 0;
  size_t n = strlen(text);
  if (n >= len) n = len - 1;
  memcpy(buf, text, n);
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
