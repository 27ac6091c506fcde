// Threads and thread-local storage (slt* of slt.h, sltls* of sl.h), over the
// platform's table (thread_impl.h).
//
// A started thread's record is shared by the starter and the thread itself:
// whichever of "thread ended" and "handle given up (join/detach)" comes last
// frees it, so a detached thread that ends at once never touches freed
// memory. The body's result travels in the record, not through the
// platform's thread exit code, which is narrower than a pointer on some
// systems.
#include <atomic>
#include <new>

#include "lfi.h"
#include "slt.h"
#include "sys/error_impl.h"
#include "sys/fault_impl.h"
#include "sys/thread_impl.h"

using sl_internal::fail;
using sl_internal::thread_os;

struct sltthread {
  uint64_t os;
  sltbody body;
  void *arg;
  void *result;
  std::atomic<uint64_t> id;
  std::atomic<int> refs;  // 2 at start: the thread and the handle
};

namespace {

std::atomic<uint64_t> g_next_thread{1};
thread_local uint64_t t_self = 0;

void drop(sltthread *t) noexcept {
  if (t->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    t->~sltthread();
    ss_mem_fre(t);
  }
}

}  // namespace

void sl_internal::thread_main(void *record) noexcept {
  auto *t = static_cast<sltthread *>(record);
  t->id.store(slthrself(), std::memory_order_release);
  t->result = t->body(t->arg);
  drop(t);
}

extern "C" {

KELAPI uint64_t slthrself(void) {
  // Process-unique numbers handed out on first request, not the platform's
  // thread handles: those are reused as soon as a thread is joined, and an
  // error stack filtered by a reused identifier would show one thread the
  // records of another that has ended.
  if (t_self == 0) t_self = g_next_thread.fetch_add(1, std::memory_order_relaxed);
  return t_self;
}

KELAPI void slyield(void) { thread_os().yield(); }

// ------------------------------------------------------------------ threads

KELAPI sltthread *sltcreate(sltbody body, void *arg, size_t stacksize) {
  if (body == nullptr) {
    fail(SLF_E_BADARG);
    return nullptr;
  }
  if (SL_FAULT(SL_FAULT_THREAD)) return nullptr;
  void *mem = ss_mem_alc(sizeof(sltthread));
  if (mem == nullptr) return nullptr;
  auto *t = new (mem) sltthread{0, body, arg, nullptr, {0}, {2}};
  // Below this a thread cannot even run the library's own frames.
  if (stacksize > 0 && stacksize < 65536) stacksize = 65536;
  if (thread_os().start(t, stacksize, &t->os) != 0) {
    t->~sltthread();
    ss_mem_fre(t);
    return nullptr;
  }
  return t;
}

KELAPI int32_t sltjoin(sltthread *t, void **result) {
  // A thread that joins itself would wait for ever.
  if (t == nullptr || t->id.load(std::memory_order_acquire) == slthrself()) return fail(SLF_E_BADARG);
  if (thread_os().join(t->os) != 0) return -1;
  if (result != nullptr) *result = t->result;
  drop(t);
  return 0;
}

KELAPI int32_t sltdetach(sltthread *t) {
  if (t == nullptr) return fail(SLF_E_BADARG);
  if (thread_os().detach(t->os) != 0) return -1;
  drop(t);
  return 0;
}

KELAPI uint64_t sltid(sltthread *t) {
  if (t == nullptr) return 0;
  uint64_t id;
  while ((id = t->id.load(std::memory_order_acquire)) == 0) slyield();
  return id;
}

// ----------------------------------------------------- thread-local storage

KELAPI int32_t sltlscreate(sltlskey *key, void (*dtor)(void *)) {
  if (key == nullptr) return fail(SLF_E_BADARG);
  if (SL_FAULT(SL_FAULT_TLS)) return -1;
  uint32_t k;
  if (thread_os().tls_create(dtor, &k) != 0) return -1;
  key->key = k;
  key->valid = 1;
  return 0;
}

KELAPI int32_t sltlsdelete(sltlskey *key) {
  if (key == nullptr || !key->valid) return fail(SLF_E_BADARG);
  key->valid = 0;
  return thread_os().tls_delete(key->key);
}

KELAPI void *sltlsget(const sltlskey *key) {
  if (key == nullptr || !key->valid) return nullptr;
  return thread_os().tls_get(key->key);
}

KELAPI int32_t sltlsset(const sltlskey *key, void *value) {
  if (key == nullptr || !key->valid) return fail(SLF_E_BADARG);
  if (SL_FAULT(SL_FAULT_TLS)) return -1;
  return thread_os().tls_set(key->key, value);
}

}  // extern "C"
