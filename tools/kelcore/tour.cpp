// kelcore with no arguments: a short tour through a typical request - start
// the library, read a parameter file, compute with a date, report an error
// through the error stack, stop.
#include <cstdio>
#include <string>

#include "common.h"
#include "ldx.h"
#include "lrm.h"
#include "sl.h"

namespace kelcore_tool {
namespace {

const lrmkey kKeys[] = {
    {"start", LRM_T_STRING, 1, 0, 0, 0, 0, nullptr, "first day of the period (YYYY-MM-DD)"},
    {"months", LRM_T_INT, 1, 1, 0, 0, 1200, "1", "length of the period in months"},
};

struct TourErrors {
  int32_t last = 0;
};
void on_error(ldxctx *ctx, int32_t err) {
  auto *e = static_cast<TourErrors *>(ctx->cbarg);
  if (e->last == 0) e->last = err;
}

}  // namespace

int cmd_tour() {
  std::printf("kelcore10 tour: a typical request\n\n");
  std::printf("1. start the library\n");
  Lib lib;
  if (!lib.ok()) {
    std::fprintf(stderr, "kelcore: cannot start the library\n");
    return kFail;
  }
  std::printf("   context record version %u, page size %zu bytes\n\n", lib.ctx->version, slmmvallocsz());

  char dir[512];
  if (slgetenv("TMPDIR", dir, sizeof dir) < 0 || dir[0] == '\0') std::snprintf(dir, sizeof dir, "/tmp");
  std::string path = std::string(dir) + "/kelcore-tour-" + std::to_string(slmonons()) + ".par";
  const char text[] = "# period to report on\nstart = 2024-01-31\nmonths = 1\n";
  std::printf("2. read the parameter file %s:\n%s", path.c_str(), text);
  FILE *f = std::fopen(path.c_str(), "w");
  if (!f) {
    std::fprintf(stderr, "kelcore: cannot write %s\n", path.c_str());
    return kFail;
  }
  std::fputs(text, f);
  std::fclose(f);
  lrmctx *h = lrmini(lib.ctx, nullptr, nullptr);
  lrmkeyset set{kKeys, 2, LRM_KS_NOHELP | LRM_KS_NOVERSION, nullptr, nullptr, nullptr, nullptr};
  uint32_t st = h ? lrmpsvp(h, &set) : 201;
  if (st == 0) st = lrmpfi(h, path.c_str());
  std::remove(path.c_str());
  const char *start = nullptr;
  uint32_t months = 0;
  if (st == 0) st = lrmgsp(h, nullptr, nullptr, "start", 5, 0, &start);
  if (st == 0) st = lrmgiv(h, nullptr, nullptr, "months", 6, 0, &months);
  if (st != 0 || !start) {
    lib.report("tour");
    lrmtrm(h);
    return kFail;
  }
  std::printf("   start = %s, months = %u\n\n", start, months);

  std::printf("3. parse the date and add the months (the day is clipped to the month's end)\n");
  TourErrors errs;
  ldxctx dc;
  ldxbegin(&dc, nullptr, on_error, &errs);
  ldxdate d{};
  const char model[] = "YYYY-MM-DD";
  char out[64];
  if (ldxsto(&dc, &d, start, std::strlen(start), model, sizeof model - 1, 0) == 0 &&
      ldxadm(&dc, &d, &d, static_cast<int32_t>(months)) == 0) {
    int32_t n = ldxdts(&dc, out, sizeof out, &d, "FMDay, DD Month YYYY", 20);
    std::printf("   %s + %u month(s) = %.*s\n\n", start, months, n < 0 ? 0 : n, out);
  }
  lrmtrm(h);

  std::printf("4. an error: reading \"2024-02-30\" records it on the error stack,\n"
              "   formatted with lemgem:\n");
  errs.last = 0;
  ldxsto(&dc, &d, "2024-02-30", 10, model, sizeof model - 1, 0);
  if (errs.last != 0) {
    lemfac *fac = lemfaa(lib.ctx->lemctx, nullptr, "KELCORE", "LDX", 1899, 1899);
    lemrec(lib.ctx->lemctx, fac, errs.last, 1, LEM_ARG_END);
    char msg[512];
    int32_t n = lemgem(lib.ctx->lemctx, 1, msg, sizeof msg);
    std::printf("   %.*s\n\n", n < 0 ? 0 : n, msg);
    lemces(lib.ctx->lemctx);
    lemfaf(lib.ctx->lemctx, fac);
  }

  std::printf("5. stop the library\n");
  return kOk;
}

}  // namespace kelcore_tool
