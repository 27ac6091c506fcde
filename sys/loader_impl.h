// loader_impl.h - dynamic libraries: the platform's table.
//
// The exported sldl* functions (sys/loader.cpp) keep the text of the calling
// thread's last failure, which the platform may clear on its next call; the
// entries load, look up and unload, and say why the one just called failed.
//
// Defined by sys/<platform>/loader.cpp as kLoaderOs; the portable part calls it
// through loader_os() (table_impl.h), which test builds can redirect.
#ifndef KEL_SYS_LOADER_IMPL_H
#define KEL_SYS_LOADER_IMPL_H

#include <cstddef>
#include <cstdint>

#include "sys/table_impl.h"

namespace sl_internal {

struct LoaderOps {
  // Loads a library by file name (searched the platform's way when it has
  // no directory part), resolving its symbols now; null on failure.
  void *(*open)(const char *file);
  // The address of an exported symbol, or null.
  void *(*sym)(void *lib, const char *name);
  // Unloads: 0 / -1.
  int32_t (*close)(void *lib);
  // Called at once after an entry failed: why it failed, about `what` (the
  // file or symbol name, or the entry's name), into buf (NUL-terminated,
  // truncated; len > 0); its length, 0 when the system has no text.
  size_t (*error)(const char *what, char *buf, size_t len);
};

extern const LoaderOps kLoaderOs;

KEL_SYS_TABLE(LoaderOps, loader, kLoaderOs)

}  // namespace sl_internal

#endif
