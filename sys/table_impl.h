// table_impl.h - how the portable part of a concern reaches its platform
// table.
//
// KEL_SYS_TABLE(FileOps, file) after `extern const FileOps kFileOs;` gives
// file_os(), the table every call goes through. Release builds read the
// constant table directly. Test builds read it through the atomic pointer
// g_file_os, which a test may point at a copy with entries replaced
// (tests/support/sys_swap.h); the platform's own entries stay reachable as
// kFileOs.
#ifndef KEL_SYS_TABLE_IMPL_H
#define KEL_SYS_TABLE_IMPL_H

#include <atomic>

#ifdef KEL_TEST_HOOKS
#define KEL_SYS_TABLE(Ops, concern, constant)                                \
  inline std::atomic<const Ops *> g_##concern##_os{&constant};              \
  inline const Ops &concern##_os() noexcept { return *g_##concern##_os.load(std::memory_order_acquire); }
#else
#define KEL_SYS_TABLE(Ops, concern, constant) \
  inline const Ops &concern##_os() noexcept { return constant; }
#endif

#endif
