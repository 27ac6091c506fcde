// loader_impl.h - dynamic libraries: the platform's table.
//
// The exported sldl* functions (sys/loader.cpp) keep the text of the calling
// thread's last failure, which the platform may clear on its next call; the
// entries load, look up and unload.
//
// Defined by sys/<platform>/loader.cpp as kLoaderOs. Test builds call it
// through g_loader_os, which a test may point at a copy with entries
// replaced (tests/support/sys_swap.h).
#ifndef KEL_SYS_LOADER_IMPL_H
#define KEL_SYS_LOADER_IMPL_H

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace sl_internal {

struct LoaderOps {
  // Loads a library by file name (searched the platform's way when it has
  // no directory part), resolving its symbols now; null on failure.
  void *(*open)(const char *file);
  // The address of an exported symbol, or null.
  void *(*sym)(void *lib, const char *name);
  // Unloads: 0 / -1.
  int32_t (*close)(void *lib);
  // The text of the failure of the calling thread's last entry into buf
  // (NUL-terminated, truncated; len > 0): its length.
  size_t (*error)(char *buf, size_t len);
};

extern const LoaderOps kLoaderOs;

#ifdef KEL_TEST_HOOKS
inline std::atomic<const LoaderOps *> g_loader_os{&kLoaderOs};
inline const LoaderOps &loader_os() noexcept { return *g_loader_os.load(std::memory_order_acquire); }
#else
inline const LoaderOps &loader_os() noexcept { return kLoaderOs; }
#endif

}  // namespace sl_internal

#endif
