// reclaim_impl.h - when memory that searches may still be reading can be
// given back: the epochs of the threads that read hash tables.
//
// Searches, the probe functions and Yield take no lock, so a change can
// unlink memory that a search on another thread is still reading: the slot
// storage a resize replaced, or a string or arbitrary key that a remove took
// out (the caller frees it once Remove returns). Each thread that reads owns
// a reader record and announces in it, for the length of a read, the epoch
// in which the read began (0: not reading). A change that unlinked memory
// frees it at once when no thread is reading, which is the single-threaded
// case; otherwise it advances the epoch and frees the memory once every
// reading thread has announced a later epoch or stopped reading: whatever a
// read that began after the unlink can reach, the unlink has already removed.
//
// The ordering argument. A reader stores its announcement (sequentially
// consistent) before its first load of the table, which is sequentially
// consistent too; a scan of the records starts with a sequentially
// consistent fence, which comes after the change's last store to the table.
// In the single order of those operations either the fence comes first, and
// then the reader's loads see the change, or the announcement comes first,
// and then the scan sees it and the memory is kept. Changes that unlink
// nothing (most inserts and removes) neither scan nor fence. A reader that announced
// an epoch later than the one the change advanced from read the epoch after
// the change was complete. Announcing costs one locked store per read; a
// read inside another (a search from a caller's hash or compare callback)
// keeps the outer announcement.
//
// Records live in one static array that threads take and give back; a thread
// takes one at its first read and gives it back when it ends. The array is
// large, but only the records ever taken are touched or scanned. A thread
// that finds no free record reads under the table's mutex instead.
#ifndef KEL_HASH_RECLAIM_IMPL_H
#define KEL_HASH_RECLAIM_IMPL_H

#include <atomic>
#include <cstdint>

namespace lht_internal {

struct alignas(64) Reader {
  std::atomic<uint64_t> epoch{0};  // 0: not reading; else the epoch the read began in
  std::atomic<uint32_t> taken{0};  // 1 while a live thread owns the record
};

// Records taken at most at once; beyond that, threads read under the mutex.
inline constexpr uint32_t kMaxReaders = 4096;

// The current epoch (starts at 1, only grows).
extern std::atomic<uint64_t> g_epoch;

// The calling thread's record, or null before its first read. Initial-exec
// TLS: one load relative to the thread pointer, no call, also in the shared
// library (eight bytes of static TLS).
[[gnu::tls_model("initial-exec")]] inline thread_local Reader *tl_reader = nullptr;

// Takes a record for the calling thread (and gives it back when the thread
// ends); null when every record is taken or the thread is ending.
Reader *reader_attach() noexcept;

// A read: announces the current epoch on entry (unless the thread is already
// inside a read), withdraws it on leave(). Without a record (ok() false) the
// caller reads under the table's mutex.
class ReadSection {
 public:
  ReadSection() noexcept {
    Reader *r = tl_reader;
    if (__builtin_expect(r == nullptr, 0)) r = reader_attach();
    r_ = r;
    if (r == nullptr) return;
    outer_ = r->epoch.load(std::memory_order_relaxed);
    if (outer_ == 0) r->epoch.store(g_epoch.load(std::memory_order_acquire), std::memory_order_seq_cst);
  }
  ~ReadSection() { leave(); }
  ReadSection(const ReadSection &) = delete;
  ReadSection &operator=(const ReadSection &) = delete;

  bool ok() const noexcept { return r_ != nullptr; }
  void leave() noexcept {
    if (r_ != nullptr && outer_ == 0) r_->epoch.store(0, std::memory_order_release);
    r_ = nullptr;
  }

 private:
  Reader *r_;
  uint64_t outer_ = 0;
};

// For changes (after their last store to the table); each scan fences
// first. `ignore` is a record left out of the scan (null: none).
//
// Whether no thread is reading.
bool readers_idle(const Reader *ignore) noexcept;
// The earliest epoch a reading thread announced; UINT64_MAX when none reads.
uint64_t oldest_reading_epoch() noexcept;
// Advances the epoch; returns the epoch it advanced from.
inline uint64_t epoch_advance() noexcept { return g_epoch.fetch_add(1, std::memory_order_seq_cst); }
// Waits until every thread but `ignore` reads in an epoch after `e` or not
// at all. Reads are short; the wait yields the processor between looks.
void wait_readers_past(uint64_t e, const Reader *ignore) noexcept;
// Waits until no read that began before this call can still be running,
// except one of the calling thread itself.
void wait_for_readers() noexcept;

}  // namespace lht_internal

#endif
