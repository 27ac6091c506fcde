// Threads and synchronisation on Windows (thread_impl.h): threads started
// through the C runtime, TLS slots, the system's critical sections
// (cslock_impl.h), and the kernel's own semaphores and events, whose waits
// count time on a clock that the wall clock does not move.
//
// Sections: threads; thread-local storage; critical sections; semaphores and
// events; the table.
#include <windows.h>
#include <process.h>

#include <cerrno>

#include "sys/cslock_impl.h"
#include "sys/thread_impl.h"

namespace {

// ------------------------------------------------------------------ threads

static_assert(sizeof(HANDLE) <= sizeof(uint64_t), "a HANDLE does not fit the handle");

unsigned __stdcall trampoline(void *record) {
  sl_internal::thread_main(record);
  return 0;
}

int32_t t_start(void *record, size_t stack, uint64_t *os) {
  if (stack > 0xFFFFFFFFu) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return -1;
  }
  // STACK_SIZE_PARAM_IS_A_RESERVATION: the size is the stack's reach, as
  // with pthreads, not memory committed up front.
  SetLastError(ERROR_SUCCESS);
  uintptr_t h = _beginthreadex(nullptr, static_cast<unsigned>(stack), trampoline, record,
                               stack > 0 ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0, nullptr);
  if (h == 0) {
    // _beginthreadex leaves errno, and the system error only when the
    // system refused.
    if (GetLastError() == ERROR_SUCCESS)
      SetLastError(errno == EAGAIN ? ERROR_NOT_ENOUGH_MEMORY : ERROR_INVALID_PARAMETER);
    return -1;
  }
  *os = static_cast<uint64_t>(h);
  return 0;
}

HANDLE handle_of(uint64_t os) noexcept { return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(os)); }

int32_t t_join(uint64_t os) {
  HANDLE h = handle_of(os);
  if (WaitForSingleObject(h, INFINITE) != WAIT_OBJECT_0) return -1;
  return CloseHandle(h) ? 0 : -1;
}

int32_t t_detach(uint64_t os) { return CloseHandle(handle_of(os)) ? 0 : -1; }

void t_yield() { SwitchToThread(); }

// ----------------------------------------------------- thread-local storage

// TLS slots have no destructors. The library's keys want one that runs when
// a thread ends with a value set, as pthread keys do (and not when the key is
// deleted, which FLS slots would do), so the destructors are kept here by slot
// and run from the image's TLS callback, which the system calls in every
// ending thread, started by the library or not.
constexpr DWORD kSlots = 1088;  // TLS_MINIMUM_AVAILABLE + the expansion slots
std::atomic<void (*)(void *)> g_dtor[kSlots];

int32_t t_tls_create(void (*dtor)(void *), uint32_t *key) {
  DWORD k = TlsAlloc();
  if (k == TLS_OUT_OF_INDEXES) {
    SetLastError(ERROR_NO_SYSTEM_RESOURCES);
    return -1;
  }
  if (k >= kSlots) {  // cannot happen on any Windows known; refuse rather than lose the destructor
    TlsFree(k);
    SetLastError(ERROR_NO_SYSTEM_RESOURCES);
    return -1;
  }
  g_dtor[k].store(dtor, std::memory_order_release);
  *key = k;
  return 0;
}

int32_t t_tls_delete(uint32_t key) {
  if (key < kSlots) g_dtor[key].store(nullptr, std::memory_order_release);
  return TlsFree(key) ? 0 : -1;
}

void *t_tls_get(uint32_t key) {
  // TlsGetValue clears the last error on success; the callers keep theirs.
  DWORD saved = GetLastError();
  void *v = TlsGetValue(key);
  SetLastError(saved);
  return v;
}

int32_t t_tls_set(uint32_t key, void *value) { return TlsSetValue(key, value) ? 0 : -1; }

// Runs the destructors of the ending thread's values; a destructor may set
// values again, so a few more rounds follow, as pthreads allow.
void run_tls_dtors() noexcept {
  for (int round = 0; round < 4; ++round) {
    bool ran = false;
    for (DWORD k = 0; k < kSlots; ++k) {
      void (*dtor)(void *) = g_dtor[k].load(std::memory_order_acquire);
      if (dtor == nullptr) continue;
      void *v = TlsGetValue(k);
      if (v == nullptr) continue;
      TlsSetValue(k, nullptr);
      dtor(v);
      ran = true;
    }
    if (!ran) break;
  }
}

void NTAPI tls_callback(PVOID, DWORD reason, PVOID) {
  if (reason == DLL_THREAD_DETACH) run_tls_dtors();
}

}  // namespace

// The image's TLS directory (set up by the MinGW runtime) calls every
// pointer placed in the .CRT$XL? sections.
extern "C" __attribute__((section(".CRT$XLK"), used)) const PIMAGE_TLS_CALLBACK kel_tls_callback = tls_callback;

// -------------------------------------------------------- critical sections

namespace sl_internal {

// An slcs holds a CRITICAL_SECTION in its first bytes.
static_assert(sizeof(CRITICAL_SECTION) <= sizeof(slcs) && alignof(CRITICAL_SECTION) <= alignof(slcs),
              "slcs cannot hold a CRITICAL_SECTION");

namespace {

CRITICAL_SECTION *cs_of(slcs *cs) noexcept { return reinterpret_cast<CRITICAL_SECTION *>(cs->opaque); }

// Rounds of spinning before a waiter sleeps: the heap holds its section for
// well under a microsecond, so most waits end without the kernel.
constexpr DWORD kSpins = 100;

}  // namespace

void cs_init(slcs *cs) noexcept {
  // Without debug information the section allocates nothing, so a section
  // that is never deleted (the environment's lock) leaks nothing. Cannot
  // fail on any Windows this library runs on.
  InitializeCriticalSectionEx(cs_of(cs), kSpins, CRITICAL_SECTION_NO_DEBUG_INFO);
}

void cs_enter(slcs *cs) noexcept { EnterCriticalSection(cs_of(cs)); }

bool cs_try(slcs *cs) noexcept {
  CRITICAL_SECTION *c = cs_of(cs);
  if (!TryEnterCriticalSection(c)) return false;
  // The system's sections are recursive; the library's are not, so the
  // holder's second try gives the section back and fails.
  if (c->RecursionCount > 1) {
    LeaveCriticalSection(c);
    return false;
  }
  return true;
}

void cs_leave(slcs *cs) noexcept { LeaveCriticalSection(cs_of(cs)); }

bool cs_destroy(slcs *cs) noexcept {
  CRITICAL_SECTION *c = cs_of(cs);
  // A section with an owner is in use: refuse, as the lock word does.
  if (c->OwningThread != nullptr) return false;
  DeleteCriticalSection(c);
  return true;
}

}  // namespace sl_internal

namespace {

// --------------------------------------------------- semaphores and events

// slsem and slevt are the kernel objects' handles themselves.
HANDLE h_of(slsem *s) noexcept { return reinterpret_cast<HANDLE>(s); }
HANDLE h_of(slevt *e) noexcept { return reinterpret_cast<HANDLE>(e); }

int32_t wait_one(HANDLE h, uint32_t ms) noexcept {
  switch (WaitForSingleObject(h, ms == SL_INFINITE ? INFINITE : ms)) {
    case WAIT_OBJECT_0: return SL_WAIT_OK;
    case WAIT_TIMEOUT: return SL_WAIT_TIMEOUT;
    default: return SL_WAIT_FAILED;
  }
}

static_assert(SL_INFINITE == INFINITE, "the library's endless wait is the system's");

slsem *t_sem_create(int32_t initial, int32_t maximum) {
  return reinterpret_cast<slsem *>(CreateSemaphoreW(nullptr, initial, maximum, nullptr));
}

int32_t t_sem_wait(slsem *sem, uint32_t ms) { return wait_one(h_of(sem), ms); }

// A release past the maximum fails with ERROR_TOO_MANY_POSTS, which is
// SL_ERR_LIMIT, and leaves the count as it was.
int32_t t_sem_release(slsem *sem, int32_t count) { return ReleaseSemaphore(h_of(sem), count, nullptr) ? 0 : -1; }

int32_t t_sem_close(slsem *sem) { return CloseHandle(h_of(sem)) ? 0 : -1; }

slevt *t_ev_create(int32_t manual_reset, int32_t initially_set) {
  return reinterpret_cast<slevt *>(CreateEventW(nullptr, manual_reset != 0, initially_set != 0, nullptr));
}

int32_t t_ev_set(slevt *ev) { return SetEvent(h_of(ev)) ? 0 : -1; }
int32_t t_ev_reset(slevt *ev) { return ResetEvent(h_of(ev)) ? 0 : -1; }
int32_t t_ev_wait(slevt *ev, uint32_t ms) { return wait_one(h_of(ev), ms); }
int32_t t_ev_close(slevt *ev) { return CloseHandle(h_of(ev)) ? 0 : -1; }

}  // namespace

// -------------------------------------------------------------------- table

namespace sl_internal {

const ThreadOps kThreadOs = {
    .start = t_start,
    .join = t_join,
    .detach = t_detach,
    .yield = t_yield,
    .tls_create = t_tls_create,
    .tls_delete = t_tls_delete,
    .tls_get = t_tls_get,
    .tls_set = t_tls_set,
    .sem_create = t_sem_create,
    .sem_wait = t_sem_wait,
    .sem_release = t_sem_release,
    .sem_close = t_sem_close,
    .ev_create = t_ev_create,
    .ev_set = t_ev_set,
    .ev_reset = t_ev_reset,
    .ev_wait = t_ev_wait,
    .ev_close = t_ev_close,
};

}  // namespace sl_internal
