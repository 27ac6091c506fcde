// kelcore date: reads a date by a format model, computes with it and writes
// it by another model, all through the date kernel.
#include <string>

#include "common.h"
#include "ldi.h"
#include "ldx.h"
#include "ltz.h"

namespace kelcore_tool {
namespace {

const char kUsageText[] =
    "usage: kelcore date TEXT [--in MODEL] [--out MODEL] [--add-months N] [--add-days N]\n"
    "                         [--trunc UNIT] [--round UNIT] [--tz REGION]\n"
    "  reads TEXT by MODEL (default YYYY-MM-DD, or YYYY-MM-DD HH24:MI:SS when the text\n"
    "  has a time), applies in this order: months, days, truncation, rounding (UNIT a\n"
    "  one-element model: YYYY, Q, MM, WW, IW, DD, DAY, HH, MI ...), then with --tz\n"
    "  takes the result as UTC and shows the local time of REGION; writes it by the\n"
    "  output model (default as the input)\n";

// The error callback records the error numbers for the error stack.
struct DateErrors {
  int32_t last = 0;
};

void on_error(ldxctx *ctx, int32_t err) {
  auto *e = static_cast<DateErrors *>(ctx->cbarg);
  if (e && e->last == 0) e->last = err;
}

// Pushes a date error on the library's error stack and prints the stack,
// naming what failed (the text and the model it was read by, ...).
int fail_with(Lib &lib, const std::string &subject, int32_t err) {
  lemfac *fac = lemfaa(lib.ctx->lemctx, nullptr, "KELCORE", "LDX", 1899, 1899);
  if (fac) {
    lemrec(lib.ctx->lemctx, fac, err, 1, LEM_ARG_END);
    if (lib.report("date", subject.c_str()) == 0)
      std::fprintf(stderr, "kelcore date: %s: date error %d\n", subject.c_str(), err);
    lemfaf(lib.ctx->lemctx, fac);
  } else {
    std::fprintf(stderr, "kelcore date: %s: date error %d\n", subject.c_str(), err);
  }
  return kFail;
}

}  // namespace

int cmd_date(int argc, char **argv) {
  const char *text = nullptr, *in = nullptr, *out = nullptr, *trunc = nullptr, *round = nullptr, *tz = nullptr;
  long long months = 0, days = 0;
  bool have_months = false, have_days = false;
  for (int i = 0; i < argc; i++) {
    const char *a = argv[i];
    if (is_help(a)) {
      std::fputs(kUsageText, stdout);
      return kOk;
    }
    auto value = [&](const char **dst) {
      if (i + 1 >= argc) return false;
      *dst = argv[++i];
      return true;
    };
    bool ok = true;
    if (std::strcmp(a, "--in") == 0) {
      ok = value(&in);
    } else if (std::strcmp(a, "--out") == 0) {
      ok = value(&out);
    } else if (std::strcmp(a, "--trunc") == 0) {
      ok = value(&trunc);
    } else if (std::strcmp(a, "--round") == 0) {
      ok = value(&round);
    } else if (std::strcmp(a, "--tz") == 0) {
      ok = value(&tz);
    } else if (std::strcmp(a, "--add-months") == 0 || std::strcmp(a, "--add-days") == 0) {
      const char *v = nullptr;
      bool m = a[6] == 'm';
      long long n = 0;
      if (!value(&v) || !parse_int(v, &n) || n < -1000000 || n > 1000000)
        return usage_error("date", kUsageText, "%s needs an integer", a);
      (m ? months : days) = n;
      (m ? have_months : have_days) = true;
    } else if (a[0] == '-' && a[1] == '-') {
      return usage_error("date", kUsageText, "unknown option '%s'", a);
    } else if (text) {
      return usage_error("date", kUsageText, "more than one TEXT (quote it)");
    } else {
      text = a;
    }
    if (!ok) return usage_error("date", kUsageText, "%s needs a value", a);
  }
  if (!text) return usage_error("date", kUsageText, "missing TEXT");

  Lib lib;
  if (!lib.ok()) {
    std::fprintf(stderr, "kelcore date: cannot start the library\n");
    return kFail;
  }
  DateErrors errs;
  ldxctx dc;
  if (ldxbegin(&dc, nullptr, on_error, &errs) != 0) return fail_with(lib, "starting", errs.last ? errs.last : 600);

  bool has_time = std::strchr(text, ':') != nullptr;
  std::string inmodel = in ? in : (has_time ? "YYYY-MM-DD HH24:MI:SS" : "YYYY-MM-DD");
  std::string outmodel = out ? out : in ? in : (has_time || tz ? "YYYY-MM-DD HH24:MI:SS" : "YYYY-MM-DD");

  ldxdate d{};
  std::string subject = quoted(text) + " read by the model " + quoted(inmodel.c_str());
  if (ldxsto(&dc, &d, text, std::strlen(text), inmodel.data(), inmodel.size(), 0) != 0)
    return fail_with(lib, subject, errs.last);
  subject = quoted(text);
  if (have_months && ldxadm(&dc, &d, &d, static_cast<int32_t>(months)) != 0) return fail_with(lib, subject, errs.last);
  if (have_days) {
    ldxdays inc{static_cast<int32_t>(days), 0};
    if (ldxads(&dc, &d, &d, &inc) != 0) return fail_with(lib, subject, errs.last);
  }
  for (int k = 0; k < 2; k++) {
    const char *unit = k == 0 ? trunc : round;
    if (!unit) continue;
    int32_t code = ldxgpc(&dc, unit, std::strlen(unit));
    if (code == 0) return fail_with(lib, "unit " + quoted(unit), errs.last ? errs.last : 1899);
    int32_t rc = k == 0 ? ldxtrn(&dc, &d, &d, code) : ldxrnd(&dc, &d, &d, code);
    if (rc != 0) return fail_with(lib, subject, errs.last);
  }
  std::string suffix;
  if (tz) {
    const void *img = nullptr;
    int32_t st = load_tz_image(&img);
    if (st != 0) {
      std::fprintf(stderr, "kelcore date: the time-zone file cannot be loaded (status %d)\n", st);
      return kFail;
    }
    uint16_t id = 0;
    if (ltzID(img, tz, std::strlen(tz), &id) != 0) {
      std::fprintf(stderr, "kelcore date: unknown time-zone region '%s'\n", tz);
      return kFail;
    }
    LdiDateTime utc{};
    if (LdiDateFromLDX(&d, LDI_KIND_TIMESTAMP, &utc) != 0) return fail_with(lib, subject, LDI_ERR_VALUE);
    int32_t off = 0;
    char abbr[LTZ_ABBR_MAX];
    uint8_t dst = 0;
    if (ltzGet(img, id, &utc, &off, abbr, sizeof abbr, &dst) != 0) {
      std::fprintf(stderr, "kelcore date: lookup in region '%s' failed\n", tz);
      return kFail;
    }
    ldxdays inc{0, off};
    if (ldxads(&dc, &d, &d, &inc) != 0) return fail_with(lib, subject, errs.last);
    char buf[64];
    int32_t a = off < 0 ? -off : off;
    std::snprintf(buf, sizeof buf, " %c%02d:%02d %s", off < 0 ? '-' : '+', a / 3600, a / 60 % 60, abbr);
    suffix = buf;
  }
  char buf[256];
  int32_t n = ldxdts(&dc, buf, sizeof buf, &d, outmodel.data(), outmodel.size());
  if (n < 0) return fail_with(lib, subject, errs.last);
  std::printf("%.*s%s\n", static_cast<int>(n), buf, suffix.c_str());
  return kOk;
}

}  // namespace kelcore_tool
