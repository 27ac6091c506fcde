// kelcore tz: queries of the time-zone image.
#include <cstdio>
#include <string>

#include "common.h"
#include "ldi.h"
#include "ldx.h"
#include "lmm.h"
#include "ltz.h"
#include "sl.h"

namespace kelcore_tool {

int32_t load_tz_image(const void **img) { return ltzGetImage(img); }

namespace {

const char kUsageText[] =
    "usage: kelcore tz list\n"
    "       kelcore tz info REGION\n"
    "       kelcore tz at REGION INSTANT        (INSTANT in UTC: YYYY-MM-DD[ HH:MI[:SS]])\n"
    "       kelcore tz transitions REGION [--from YEAR] [--to YEAR]\n"
    "  the time-zone file is KEL_TZFILE, else KELTAR_HOME/kelcore/zoneinfo/timezlrg.dat,\n"
    "  else the one of the installation (or build) this tool belongs to\n";

int load(const void **img) {
  int32_t st = load_tz_image(img);
  if (st != 0) {
    std::fprintf(stderr, "kelcore tz: the time-zone file cannot be loaded (status %d%s)\n", st,
                 st == 5 ? ": no path or unreadable" : st == 2 ? ": not a time-zone image" : "");
    return kFail;
  }
  return kOk;
}

int region(const void *img, const char *name, uint16_t *id) {
  if (ltzID(img, name, std::strlen(name), id) != 0) {
    std::fprintf(stderr, "kelcore tz: unknown region '%s'\n", name);
    return kFail;
  }
  return kOk;
}

std::string offset_text(int32_t off) {
  char buf[16];
  int32_t a = off < 0 ? -off : off;
  if (a % 60)
    std::snprintf(buf, sizeof buf, "%c%02d:%02d:%02d", off < 0 ? '-' : '+', a / 3600, a / 60 % 60, a % 60);
  else
    std::snprintf(buf, sizeof buf, "%c%02d:%02d", off < 0 ? '-' : '+', a / 3600, a / 60 % 60);
  return buf;
}

int do_list() {
  const void *img;
  if (load(&img)) return kFail;
  char name[LTZ_NAME_MAX];
  for (uint32_t i = 0;; i++) {
    uint16_t id = 0;
    int32_t st = ltzStep(img, i, name, sizeof name, &id);
    if (st == LTZ_ERR_NOTFOUND) break;
    if (st != 0) {
      std::fprintf(stderr, "kelcore tz: reading the name index failed (status %d)\n", st);
      return kFail;
    }
    std::printf("%s\n", name);
  }
  return kOk;
}

int do_info(const char *name) {
  const void *img;
  uint16_t id;
  if (load(&img) || region(img, name, &id)) return kFail;
  char primary[LTZ_NAME_MAX];
  ltzName(img, static_cast<uint16_t>(id & 0x1FF), primary, sizeof primary, nullptr);
  uint16_t content = 0, fileid = 0;
  ltzGetFileContentVer(img, &content);
  ltzGetFileID(img, &fileid);
  uint8_t *arr = nullptr;
  size_t len = 0;
  ltzGetTransArray(img, nullptr, nullptr, id, &arr, &len);
  std::printf("region       %s\n", name);
  std::printf("id           %u (slot %u, name %u)\n", id, id & 0x1FFu, id >> 9);
  std::printf("primary name %s\n", primary);
  std::printf("transitions  %zu\n", len ? (len - 1) / 10 : 0);
  std::printf("data release %u\n", content);
  std::printf("file id      %u\n", fileid);
  ltzFreeTransArray(nullptr, nullptr, arr);
  return kOk;
}

bool parse_instant(const char *s, LdiDateTime *t) {
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, sec = 0;
  char sep = 0;
  int n = std::sscanf(s, "%d-%d-%d%c%d:%d:%d", &y, &mo, &d, &sep, &h, &mi, &sec);
  if (n != 3 && n != 6 && n != 7) return false;
  if (n > 3 && sep != ' ' && sep != 'T') return false;
  *t = LdiDateTime{};
  if (LdiDateConstruct(nullptr, t, y, mo, d, h, mi, sec, 0, 0, 0, 0, LDI_KIND_TIMESTAMP, nullptr) != 0) return false;
  return true;
}

int do_at(const char *name, const char *instant) {
  const void *img;
  uint16_t id;
  if (load(&img) || region(img, name, &id)) return kFail;
  LdiDateTime utc;
  if (!parse_instant(instant, &utc)) {
    std::fprintf(stderr, "kelcore tz: bad instant '%s' (want YYYY-MM-DD[ HH:MI[:SS]])\n", instant);
    return kUsage;
  }
  int32_t off = 0;
  char abbr[LTZ_ABBR_MAX];
  uint8_t dst = 0;
  int32_t st = ltzGet(img, id, &utc, &off, abbr, sizeof abbr, &dst);
  if (st != 0) {
    std::fprintf(stderr, "kelcore tz: lookup failed (status %d)\n", st);
    return kFail;
  }
  ldxctx dc;
  ldxbegin(&dc, nullptr, nullptr, nullptr);
  ldxdate d{};
  LdiDateToLDX(&utc, &d);
  ldxdays inc{0, off};
  if (ldxads(&dc, &d, &d, &inc) != 0) {
    std::fprintf(stderr, "kelcore tz: the local time is out of range\n");
    return kFail;
  }
  std::printf("%04d-%02d-%02d %02d:%02d:%02d %s %s%s\n", d.year, d.month, d.day, d.hour, d.minute, d.second,
              offset_text(off).c_str(), abbr, dst ? " DST" : "");
  return kOk;
}

int do_transitions(const char *name, long long from, long long to) {
  const void *img;
  uint16_t id;
  if (load(&img) || region(img, name, &id)) return kFail;
  uint8_t *arr = nullptr;
  size_t len = 0;
  int32_t st = ltzGetTransArray(img, nullptr, nullptr, id, &arr, &len);
  if (st != 0) {
    std::fprintf(stderr, "kelcore tz: reading the transitions failed (status %d)\n", st);
    return kFail;
  }
  for (size_t p = 1; p + 10 <= len; p += 10) {
    const uint8_t *e = arr + p;
    int year = (e[0] - 100) * 100 + (e[1] - 100);
    if (year < from || year > to) continue;
    int32_t off = (e[7] - 20) * 3600 + (e[8] - 60) * 60;
    std::printf("%04d-%02d-%02d %02d:%02d:%02d UTC %s%s\n", year, e[2], e[3], e[4] - 1, e[5] - 1, e[6] - 1,
                offset_text(off).c_str(), e[9] ? " DST" : "");
  }
  ltzFreeTransArray(nullptr, nullptr, arr);
  return kOk;
}

}  // namespace

int cmd_tz(int argc, char **argv) {
  for (int i = 0; i < argc; i++)
    if (is_help(argv[i])) {
      std::fputs(kUsageText, stdout);
      return kOk;
    }
  if (argc < 1) return usage_error("tz", kUsageText, "missing the action");
  const char *act = argv[0];
  if (std::strcmp(act, "list") == 0) {
    if (argc != 1) return usage_error("tz", kUsageText, "list takes no arguments");
    return do_list();
  }
  if (std::strcmp(act, "info") == 0) {
    if (argc != 2) return usage_error("tz", kUsageText, "info takes REGION");
    return do_info(argv[1]);
  }
  if (std::strcmp(act, "at") == 0) {
    if (argc != 3) return usage_error("tz", kUsageText, "at takes REGION and INSTANT");
    return do_at(argv[1], argv[2]);
  }
  if (std::strcmp(act, "transitions") == 0) {
    const char *name = nullptr;
    long long from = -4712, to = 9999;
    for (int i = 1; i < argc; i++) {
      if (std::strcmp(argv[i], "--from") == 0 || std::strcmp(argv[i], "--to") == 0) {
        long long v;
        if (i + 1 >= argc || !parse_int(argv[i + 1], &v))
          return usage_error("tz", kUsageText, "%s needs a year", argv[i]);
        (argv[i][2] == 'f' ? from : to) = v;
        i++;
      } else if (argv[i][0] == '-' && argv[i][1] == '-') {
        return usage_error("tz", kUsageText, "unknown option '%s'", argv[i]);
      } else if (name) {
        return usage_error("tz", kUsageText, "transitions takes one REGION");
      } else {
        name = argv[i];
      }
    }
    if (!name) return usage_error("tz", kUsageText, "transitions takes REGION");
    return do_transitions(name, from, to);
  }
  return usage_error("tz", kUsageText, "unknown action '%s'", act);
}

}  // namespace kelcore_tool
