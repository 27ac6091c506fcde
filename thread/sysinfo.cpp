// The system's description in one record, for tools that print or log it.
#include <cstring>

#include "slt.h"

extern "C" {

KELAPI int32_t ltssysinfo(ltssi *si) {
  if (si == nullptr) return -1;
  memset(si, 0, sizeof *si);
  si->pid = slsipid();
  si->ncpu = slsincpu();
  si->pagesize = slsipage();
  si->memory = slsimem();
  // Each text is best effort: one the system cannot tell stays empty.
  int32_t rc = 0;
  if (slsihost(si->host, sizeof si->host) < 0) si->host[0] = '\0', rc = -1;
  if (slsiuser(si->user, sizeof si->user) < 0) si->user[0] = '\0', rc = -1;
  if (slgetcwd(si->cwd, sizeof si->cwd) < 0) si->cwd[0] = '\0', rc = -1;
  if (sltmpdir(si->tmpdir, sizeof si->tmpdir) < 0) si->tmpdir[0] = '\0', rc = -1;
  return rc;
}

}  // extern "C"
