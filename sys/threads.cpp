// Thread-services contexts, thread identifiers and thread-local storage.
//
// Thread identifiers are process-unique 64-bit numbers handed out on a
// thread's first request, not pthread_t values: a pthread_t is reused as soon
// as a thread is joined, and an error stack filtered by a reused identifier
// would show one thread the records of another that has ended.
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "sl.h"
#include "sys/fault_impl.h"

// The context holds nothing yet but exists so that a port whose mutexes need
// a per-owner table (or a debugging registry) has somewhere to keep it.
struct sltsctx {
  uint32_t magic;
};

namespace {

constexpr uint32_t kTsMagic = 0x6B747363;  // "ktsc"

std::atomic<uint64_t> g_next_thread{1};
thread_local uint64_t t_self = 0;

bool bad_ts(const sltsctx *ts) noexcept { return ts == nullptr || ts->magic != kTsMagic; }

}  // namespace

extern "C" {

KELAPI uint64_t slthrself(void) {
  if (t_self == 0) t_self = g_next_thread.fetch_add(1, std::memory_order_relaxed);
  return t_self;
}

KELAPI sltsctx *sltsini(void) {
  if (SL_FAULT(SL_FAULT_MEM)) return nullptr;
  auto *ts = static_cast<sltsctx *>(malloc(sizeof(sltsctx)));
  if (ts != nullptr) ts->magic = kTsMagic;
  return ts;
}

KELAPI int32_t sltster(sltsctx *ts) {
  if (bad_ts(ts)) {
    errno = EINVAL;
    return -1;
  }
  ts->magic = 0;
  free(ts);
  return 0;
}

KELAPI int32_t sltsmxi(sltsctx *ts, sltsmx *mx) {
  if (bad_ts(ts) || mx == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return slcsinit(&mx->cs);
}

KELAPI int32_t sltsmxd(sltsctx *ts, sltsmx *mx) {
  if (bad_ts(ts) || mx == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return slcsdelete(&mx->cs);
}

KELAPI int32_t sltsmna(sltsctx *ts, sltsmx *mx) {
  if (mx == nullptr) {
    errno = EINVAL;
    return -1;
  }
  (void)ts;
  slcsenter(&mx->cs);
  return 0;
}

KELAPI int32_t sltsmnr(sltsctx *ts, sltsmx *mx) {
  if (mx == nullptr) {
    errno = EINVAL;
    return -1;
  }
  (void)ts;
  slcsleave(&mx->cs);
  return 0;
}

KELAPI int32_t sltsmnt(sltsctx *ts, sltsmx *mx) {
  if (mx == nullptr) return 0;
  (void)ts;
  return slcstry(&mx->cs);
}

KELAPI int32_t sltstidinit(sltsctx *ts, sltstid *tid) {
  if (tid == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (SL_FAULT(SL_FAULT_TID)) return -1;
  (void)ts;
  tid->id = 0;
  return 0;
}

KELAPI int32_t sltstgi(sltsctx *ts, sltstid *tid) {
  if (tid == nullptr) {
    errno = EINVAL;
    return -1;
  }
  (void)ts;
  tid->id = slthrself();
  return 0;
}

KELAPI int32_t sltstiddestroy(sltsctx *ts, sltstid *tid) {
  if (tid == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (SL_FAULT(SL_FAULT_TID)) return -1;
  (void)ts;
  tid->id = 0;
  return 0;
}

KELAPI int32_t sltstidcmp(sltsctx *ts, const sltstid *a, const sltstid *b) {
  (void)ts;
  if (a == nullptr || b == nullptr) return 0;
  return a->id == b->id ? 1 : 0;
}

KELAPI int32_t sltstidcpy(sltsctx *ts, sltstid *dst, const sltstid *src) {
  (void)ts;
  if (dst == nullptr || src == nullptr) {
    errno = EINVAL;
    return -1;
  }
  dst->id = src->id;
  return 0;
}

KELAPI int32_t sltstidnull(sltsctx *ts, const sltstid *tid) {
  (void)ts;
  return tid == nullptr || tid->id == 0 ? 1 : 0;
}

// ----------------------------------------------------- thread-local storage

static_assert(sizeof(pthread_key_t) <= sizeof(uint32_t), "pthread_key_t does not fit sltlskey");

KELAPI int32_t sltlscreate(sltlskey *key, void (*dtor)(void *)) {
  if (key == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (SL_FAULT(SL_FAULT_TLS)) return -1;
  pthread_key_t k;
  int rc = pthread_key_create(&k, dtor);
  if (rc != 0) {
    errno = rc;
    return -1;
  }
  key->key = static_cast<uint32_t>(k);
  key->valid = 1;
  return 0;
}

KELAPI int32_t sltlsdelete(sltlskey *key) {
  if (key == nullptr || !key->valid) {
    errno = EINVAL;
    return -1;
  }
  key->valid = 0;
  return pthread_key_delete(static_cast<pthread_key_t>(key->key)) == 0 ? 0 : -1;
}

KELAPI void *sltlsget(const sltlskey *key) {
  if (key == nullptr || !key->valid) return nullptr;
  return pthread_getspecific(static_cast<pthread_key_t>(key->key));
}

KELAPI int32_t sltlsset(const sltlskey *key, void *value) {
  if (key == nullptr || !key->valid) {
    errno = EINVAL;
    return -1;
  }
  if (SL_FAULT(SL_FAULT_TLS)) return -1;
  int rc = pthread_setspecific(static_cast<pthread_key_t>(key->key), value);
  if (rc != 0) errno = rc;
  return rc == 0 ? 0 : -1;
}

KELAPI void slyield(void) { sched_yield(); }

}  // extern "C"
