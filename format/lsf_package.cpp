// The formatter as package "lsf": operation 1 makes the instance's private
// area and publishes the formatter's functions through the package manager,
// operation 2 has nothing to release (the area goes with the instance).
#include "lsf.h"
#include "lpm.h"

extern "C" int32_t lsfpkgent(lcorectx *ctx, void *priv, int32_t op, void *arg, void *result) {
  switch (op) {
    case 1: {
      if (lpmmkpri(ctx, 16) == nullptr && priv == nullptr) return -1;
      // Slot 0 is lsfpd, the row-argument form every caller can reach without
      // a variadic call through a pointer; then lsfpv and lsfp.
      const lpmfunc funcs[] = {reinterpret_cast<lpmfunc>(&lsfpd), reinterpret_cast<lpmfunc>(&lsfpv),
                               reinterpret_cast<lpmfunc>(&lsfp)};
      return lpmarrfuncs(ctx, nullptr, 3, funcs) == nullptr ? -1 : 0;
    }
    case 2:
      return 0;
    default:
      return -1;
  }
}
