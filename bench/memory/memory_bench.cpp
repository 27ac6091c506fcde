// The memory manager against glibc malloc, mimalloc and jemalloc.
//
//   Pair/<size>/<impl>   one allocation and its free, repeated
//       ours: lmmmalloc + lmmfree on one standard heap made before the loop,
//             with its mutex (std_lock: taken twice per pair, never
//             contended) or without (std_nolock);
//       peers: malloc + free (glibc through __libc_malloc/__libc_free).
//   Batch/<size>/<impl>  1000 allocations, then all of them released
//       ours std_*: 1000 lmmmalloc, then 1000 lmmfree, on one standard heap
//             made before the loop;
//       ours fast: per round, a new fast-model heap inside a standard parent
//             (lmmhpinit), 1000 lmmmalloc, then lmmhpfree: the fast model
//             frees nothing singly and is meant for heaps that die whole, so
//             making and freeing the heap is its "release everything" and is
//             timed with it;
//       peers: 1000 malloc, then 1000 free.
//
// Our heaps are reached only through the exported calls, as a caller of the
// library would; no case reuses a heap across rounds in a way a peer could
// not. At the end a table gives ours / peer for every case (below 1: ours
// faster).
#include <benchmark/benchmark.h>
#if KEL_PEER_JEMALLOC
#include <jemalloc/jemalloc.h>
#endif
#if KEL_PEER_MIMALLOC
#include <mimalloc.h>
#endif

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "lmm.h"
#include "lpm.h"
#include "bench/support/ratio.h"

extern "C" void *__libc_malloc(size_t);
extern "C" void __libc_free(void *);

namespace {

lcorectx *g_ctx;

lmmheap *new_heap(const lmmmfp *model, uint32_t flags) {
  lmmheap *h = nullptr;
  lmmhpinit(g_ctx->lmmctx, &h, lmmtophp(g_ctx->lmmctx), flags, nullptr, "bench", 0, model);
  return h;
}

// ------------------------------------------------------------------ pairs

void PairStd(benchmark::State &st, uint32_t flags) {
  size_t n = static_cast<size_t>(st.range(0));
  void *m = g_ctx->lmmctx;
  lmmheap *h = new_heap(lmmgetstmfp(), flags);
  for (auto _ : st) {
    void *p = lmmmalloc(m, h, n, 0, "b", 0);
    benchmark::DoNotOptimize(p);
    lmmfree(m, h, p, 0);
  }
  lmmhpfree(m, h, 0);
}
void Pair_ours_std_nolock(benchmark::State &st) { PairStd(st, LMM_HP_NOLOCK); }
void Pair_ours_std_lock(benchmark::State &st) { PairStd(st, 0); }

void Pair_glibc(benchmark::State &st) {
  size_t n = static_cast<size_t>(st.range(0));
  for (auto _ : st) {
    void *p = __libc_malloc(n);
    benchmark::DoNotOptimize(p);
    __libc_free(p);
  }
}
#if KEL_PEER_MIMALLOC
void Pair_mimalloc(benchmark::State &st) {
  size_t n = static_cast<size_t>(st.range(0));
  for (auto _ : st) {
    void *p = mi_malloc(n);
    benchmark::DoNotOptimize(p);
    mi_free(p);
  }
}
#endif
#if KEL_PEER_JEMALLOC
void Pair_jemalloc(benchmark::State &st) {
  size_t n = static_cast<size_t>(st.range(0));
  for (auto _ : st) {
    void *p = mallocx(n, 0);
    benchmark::DoNotOptimize(p);
    dallocx(p, 0);
  }
}
#endif

// ---------------------------------------------------------------- batches

constexpr int kBatch = 1000;

void BatchStd(benchmark::State &st, uint32_t flags) {
  size_t n = static_cast<size_t>(st.range(0));
  void *m = g_ctx->lmmctx;
  lmmheap *h = new_heap(lmmgetstmfp(), flags);
  std::vector<void *> ps(kBatch);
  for (auto _ : st) {
    for (auto &p : ps) p = lmmmalloc(m, h, n, 0, "b", 0);
    benchmark::DoNotOptimize(ps.data());
    for (auto &p : ps) lmmfree(m, h, p, 0);
  }
  lmmhpfree(m, h, 0);
  st.SetItemsProcessed(st.iterations() * kBatch);
}
void Batch_ours_std_nolock(benchmark::State &st) { BatchStd(st, LMM_HP_NOLOCK); }
void Batch_ours_std_lock(benchmark::State &st) { BatchStd(st, 0); }

void Batch_ours_fast(benchmark::State &st) {
  size_t n = static_cast<size_t>(st.range(0));
  void *m = g_ctx->lmmctx;
  // Each round allocates into a fresh fast heap inside a standard parent
  // and frees the heap whole, the way the model is meant to be used.
  lmmheap *parent = new_heap(lmmgetstmfp(), LMM_HP_NOLOCK);
  std::vector<void *> ps(kBatch);
  for (auto _ : st) {
    lmmheap *h = nullptr;
    lmmhpinit(m, &h, parent, LMM_HP_NOLOCK, nullptr, "b", 0, lmmgetfsmfp());
    for (auto &p : ps) p = lmmmalloc(m, h, n, 0, "b", 0);
    benchmark::DoNotOptimize(ps.data());
    lmmhpfree(m, h, 0);
  }
  lmmhpfree(m, parent, 0);
  st.SetItemsProcessed(st.iterations() * kBatch);
}

template <void *(*A)(size_t), void (*F)(void *)>
void BatchPeer(benchmark::State &st) {
  size_t n = static_cast<size_t>(st.range(0));
  std::vector<void *> ps(kBatch);
  for (auto _ : st) {
    for (auto &p : ps) p = A(n);
    benchmark::DoNotOptimize(ps.data());
    for (auto &p : ps) F(p);
  }
  st.SetItemsProcessed(st.iterations() * kBatch);
}
void Batch_glibc(benchmark::State &st) { BatchPeer<__libc_malloc, __libc_free>(st); }

#define SIZES ->Arg(16)->Arg(64)->Arg(200)->Arg(1024)->Arg(8192)->Arg(100000)
BENCHMARK(Pair_ours_std_nolock) SIZES;
BENCHMARK(Pair_ours_std_lock) SIZES;
BENCHMARK(Pair_glibc) SIZES;
BENCHMARK(Batch_ours_std_nolock) SIZES;
BENCHMARK(Batch_ours_std_lock) SIZES;
BENCHMARK(Batch_ours_fast) SIZES;
BENCHMARK(Batch_glibc) SIZES;

#if KEL_PEER_MIMALLOC
void Batch_mimalloc(benchmark::State &st) { BatchPeer<mi_malloc, mi_free>(st); }
BENCHMARK(Pair_mimalloc) SIZES;
BENCHMARK(Batch_mimalloc) SIZES;
#endif
#if KEL_PEER_JEMALLOC
void *je_a(size_t n) { return mallocx(n, 0); }
void je_f(void *p) { dallocx(p, 0); }
void Batch_jemalloc(benchmark::State &st) { BatchPeer<je_a, je_f>(st); }
BENCHMARK(Pair_jemalloc) SIZES;
BENCHMARK(Batch_jemalloc) SIZES;
#endif

}  // namespace

int main(int argc, char **argv) {
  g_ctx = lpminit();
  if (g_ctx == nullptr) return 1;
  benchmark::Initialize(&argc, argv);
  kelbench::RatioReporter rep(kelbench::RatioReporter::Clock::kCpu);
  benchmark::RunSpecifiedBenchmarks(&rep);
  benchmark::Shutdown();
  std::printf("\nratio ours / peer (below 1: ours faster)\n");
  std::printf("%-14s %-16s %8s %9s %9s\n", "case", "ours", "glibc", "mimalloc", "jemalloc");
  for (const auto &[name, t] : rep.time) {
    size_t us = name.find('_'), sl = name.find('/');  // Kind_impl/size
    if (us == std::string::npos || sl == std::string::npos || sl < us) continue;
    std::string kind = name.substr(0, us), impl = name.substr(us + 1, sl - us - 1), size = name.substr(sl + 1);
    if (impl.rfind("ours", 0) != 0) continue;
    auto ratio = [&](const char *peer) { return rep.ratio("memory", name, kind + "_" + peer + "/" + size); };
    std::printf("%-14s %-16s %8.2f %9.2f %9.2f\n", (kind + "/" + size).c_str(), impl.c_str(), ratio("glibc"),
                ratio("mimalloc"), ratio("jemalloc"));
  }
  rep.print_ratios();
  lpmterm(g_ctx);
  return 0;
}
