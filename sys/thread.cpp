// Starting, joining and detaching threads.
//
// The handle is shared by the starter and the thread itself: whichever of
// "thread ended" and "handle given up (join/detach)" comes last frees it, so
// a detached thread that ends at once never touches freed memory.
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "slt.h"
#include "sys/fault_impl.h"

struct sltthread {
  pthread_t th;
  sltbody body;
  void *arg;
  std::atomic<uint64_t> id;
  std::atomic<int> refs;  // 2 at start: the thread and the handle
};

namespace {

void drop(sltthread *t) noexcept {
  if (t->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) free(t);
}

void *trampoline(void *p) {
  auto *t = static_cast<sltthread *>(p);
  t->id.store(slthrself(), std::memory_order_release);
  sltbody body = t->body;
  void *arg = t->arg;
  void *r = body(arg);
  drop(t);
  return r;
}

}  // namespace

extern "C" {

KELAPI sltthread *sltcreate(sltbody body, void *arg, size_t stacksize) {
  if (body == nullptr) {
    errno = EINVAL;
    return nullptr;
  }
  if (SL_FAULT(SL_FAULT_THREAD)) return nullptr;
  auto *t = static_cast<sltthread *>(malloc(sizeof(sltthread)));
  if (t == nullptr) return nullptr;
  t->body = body;
  t->arg = arg;
  new (&t->id) std::atomic<uint64_t>(0);
  new (&t->refs) std::atomic<int>(2);
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  if (stacksize > 0) {
    if (stacksize < 65536) stacksize = 65536;
    pthread_attr_setstacksize(&attr, stacksize);
  }
  int rc = pthread_create(&t->th, &attr, trampoline, t);
  pthread_attr_destroy(&attr);
  if (rc != 0) {
    free(t);
    errno = rc;
    return nullptr;
  }
  return t;
}

KELAPI int32_t sltjoin(sltthread *t, void **result) {
  if (t == nullptr || pthread_equal(t->th, pthread_self())) {
    errno = t == nullptr ? EINVAL : EDEADLK;
    return -1;
  }
  void *r = nullptr;
  int rc = pthread_join(t->th, &r);
  if (rc != 0) {
    errno = rc;
    return -1;
  }
  if (result != nullptr) *result = r;
  drop(t);
  return 0;
}

KELAPI int32_t sltdetach(sltthread *t) {
  if (t == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int rc = pthread_detach(t->th);
  if (rc != 0) {
    errno = rc;
    return -1;
  }
  drop(t);
  return 0;
}

KELAPI uint64_t sltid(sltthread *t) {
  if (t == nullptr) return 0;
  uint64_t id;
  while ((id = t->id.load(std::memory_order_acquire)) == 0) slyield();
  return id;
}

}  // extern "C"
