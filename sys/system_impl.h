// system_impl.h - the environment and the system's description: the
// platform's table.
//
// Environment variables, the process and its account, the host, processors
// and memory, and ending the process. The exported functions
// (sys/environment.cpp, sys/sysinfo.cpp) check names and buffers and keep
// the environment under one lock; the entries ask the platform.
//
// Defined by sys/<platform>/system.cpp as kSystemOs; the portable part calls it
// through system_os() (table_impl.h), which test builds can redirect.
#ifndef KEL_SYS_SYSTEM_IMPL_H
#define KEL_SYS_SYSTEM_IMPL_H

#include <cstddef>
#include <cstdint>

#include "sys/table_impl.h"

namespace sl_internal {

struct SystemOps {
  // ------------------------------------------------- environment variables
  // Names are checked already (not empty, no '='). get copies the value
  // into buf (truncated, NUL-terminated; buf may be null when len is 0) and
  // returns its full length, or -1 when the variable is not set.
  int32_t (*env_get)(const char *name, char *buf, size_t len);
  int32_t (*env_set)(const char *name, const char *value, int32_t overwrite);
  int32_t (*env_unset)(const char *name);
  // --------------------------------------------------- process and system
  int64_t (*pid)(void);
  // The host's name / the name of the account the process runs as (its
  // effective user) into buf: 0 / -1.
  int32_t (*host)(char *buf, size_t len);
  int32_t (*user)(char *buf, size_t len);
  // Processors available (0 when unknown) / physical memory in bytes (0 when
  // unknown).
  int32_t (*ncpu)(void);
  uint64_t (*memory)(void);
  // Ends the process at once with `status`, running no exit handlers.
  void (*exit)(int32_t status);
};

extern const SystemOps kSystemOs;

KEL_SYS_TABLE(SystemOps, system, kSystemOs)

}  // namespace sl_internal

#endif
