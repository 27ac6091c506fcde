// A package in a shared library of its own, loaded by name by the package
// tests. Operation 1 makes the private area and publishes three functions;
// the function codes exercise calls, results, errors and lpmexitprog.
#include <atomic>
#include <cstdint>

#include "lem.h"
#include "lpm.h"

namespace {

std::atomic<int> g_inits{0};
std::atomic<int> g_terms{0};

int inits() { return g_inits.load(); }
int terms() { return g_terms.load(); }
int twice(int x) { return 2 * x; }

}  // namespace

extern "C" __attribute__((visibility("default"))) int32_t kel_testpkg_entry(lcorectx *ctx, void *priv, int32_t op,
                                                                             void *arg, void *result) {
  switch (op) {
    case 1: {
      g_inits++;
      if (lpmmkpri(ctx, 64) == nullptr) return -1;
      const lpmfunc fns[] = {reinterpret_cast<lpmfunc>(&inits), reinterpret_cast<lpmfunc>(&terms),
                             reinterpret_cast<lpmfunc>(&twice)};
      return lpmarrfuncs(ctx, nullptr, 3, fns) == nullptr ? -1 : 0;
    }
    case 2:
      g_terms++;
      return 0;
    case 10:  // result = 2 * arg
      *static_cast<int64_t *>(result) = 2 * *static_cast<int64_t *>(arg);
      return 0;
    case 11:  // leave through lpmexitprog with the argument as status
      lpmexitprog(ctx, static_cast<int32_t>(*static_cast<int64_t *>(arg)));
    case 12: {  // record an error of its own and fail
      lemfac *f = lemfaa(ctx->lemctx, nullptr, "TESTPKG", "TPK", 3, 4);
      lemrec(ctx->lemctx, f, 5, 1, LEM_ARG_TEXT, "from the package", LEM_ARG_END);
      lemrec(ctx->lemctx, f, 6, 1, LEM_ARG_END);
      lemfaf(ctx->lemctx, f);
      return 7;
    }
    default:
      return -1;
  }
}
