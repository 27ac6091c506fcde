// Finding, checking and loading the time-zone image, once per process.
//
// The path comes from the environment (sldigpt); the file is read whole
// through the system layer's file primitives and its header checked
// (sldigsz) before anything else may look at it. The first caller of
// ltzGetImage does the work; the result, image or failure, is kept for the
// life of the process, so every caller sees the same stable image. Only a
// load that ran out of memory is not kept: the next caller tries again.
#include <atomic>
#include <cstring>
#include <mutex>

#include "datetime/timezone/image_impl.h"
#include "datetime/timezone/load_impl.h"
#include "lfi.h"
#include "ltz.h"
#include "sl.h"

namespace ltz_internal {

namespace {

constexpr size_t kMaxTzfileValue = 255;
constexpr char kZoneinfoDir[] = "/kelcore/zoneinfo/";
constexpr char kImageName[] = "timezlrg.dat";

// Reads at most `max` bytes of the file at `path` into a new block of the
// system allocator. 0, LTZ_ERR_NOTFOUND (cannot open or read) or
// LTZ_ERR_NOMEM; *data is null on failure.
int32_t read_file(const char *path, size_t max, uint8_t **data, size_t *len) {
  *data = nullptr;
  *len = 0;
  int64_t fh = -1;
  if (slfopen(path, SLF_READ, &fh) != 0) return LTZ_ERR_NOTFOUND;
  auto *buf = static_cast<uint8_t *>(ss_mem_alc(max));
  if (buf == nullptr) {
    slfclose(fh);
    return LTZ_ERR_NOMEM;
  }
  size_t got = 0;
  int64_t n = 0;
  while (got < max && (n = slfread(fh, buf + got, max - got)) > 0) got += static_cast<size_t>(n);
  slfclose(fh);
  if (n < 0) {
    ss_mem_fre(buf);
    return LTZ_ERR_NOTFOUND;
  }
  *data = buf;
  *len = got;
  return LTZ_OK;
}

}  // namespace

int32_t load_image(const char *path, const uint8_t **image) {
  *image = nullptr;
  uint8_t *data = nullptr;
  size_t len = 0;
  int32_t st = read_file(path, LTZ_MAX_IMAGE, &data, &len);
  if (st != LTZ_OK) return st;
  int32_t stated = sldigsz(data, len);
  // sldigsz answers 3, 4, 5 for its failures; any real image is longer.
  if (stated < static_cast<int32_t>(LTZ_HEADER_SIZE) || static_cast<size_t>(stated) > len) {
    ss_mem_fre(data);
    return LTZ_ERR_IMAGE;
  }
  *image = data;
  return LTZ_OK;
}

}  // namespace ltz_internal

namespace {

struct Loaded {
  const uint8_t *image = nullptr;
  int32_t status = LTZ_ERR_NOTFOUND;
};

Loaded load_once() {
  Loaded r;
  char path[512];
  if (sldigpt(path, sizeof path) < 0) return r;
  r.status = ltz_internal::load_image(path, &r.image);
  return r;
}

}  // namespace

using namespace ltz_internal;

extern "C" {

KELAPI int32_t sldigpt(char *buf, size_t len) {
  if (buf == nullptr || len == 0) return -1;
  buf[0] = '\0';
  char value[kMaxTzfileValue + 1];
  int32_t n = slgetenv("KEL_TZFILE", value, sizeof value);
  if (n >= 0) {
    if (n == 0 || static_cast<size_t>(n) > kMaxTzfileValue || static_cast<size_t>(n) >= len) return -1;
    std::memcpy(buf, value, static_cast<size_t>(n) + 1);
    return n;
  }
  int32_t h = slgetenv("KELTAR_HOME", nullptr, 0);
  if (h <= 0) return -1;
  size_t need = static_cast<size_t>(h) + sizeof kZoneinfoDir - 1 + sizeof kImageName - 1;
  if (need >= len) return -1;
  slgetenv("KELTAR_HOME", buf, static_cast<size_t>(h) + 1);
  size_t at = std::strlen(buf);  // the variable may have changed in between
  // One separator between the home directory and the zoneinfo directory.
  const char *dir = kZoneinfoDir;
  if (at > 0 && buf[at - 1] == '/') ++dir;
  size_t dl = std::strlen(dir);
  if (at + dl + sizeof kImageName > len) {
    buf[0] = '\0';
    return -1;
  }
  std::memcpy(buf + at, dir, dl);
  std::memcpy(buf + at + dl, kImageName, sizeof kImageName);
  return static_cast<int32_t>(at + dl + sizeof kImageName - 1);
}

KELAPI int32_t sldigsz(const void *head, size_t len) {
  if (head == nullptr || len < LTZ_HEADER_SIZE) return 3;
  ImageView v{static_cast<const uint8_t *>(head), 8};
  if (v.u32(kOffMagic) != LTZ_MAGIC) return 4;
  uint32_t stated = v.u32(kOffLength);
  if (stated > LTZ_MAX_IMAGE) return 5;
  return static_cast<int32_t>(stated);
}

KELAPI int32_t ltzGetImage(const void **image) {
  if (image == nullptr) return LTZ_ERR_ARG;
  static std::atomic<bool> kept{false};
  static std::mutex mx;
  static Loaded loaded;
  if (!kept.load(std::memory_order_acquire)) {
    std::lock_guard<std::mutex> lock(mx);
    if (!kept.load(std::memory_order_relaxed)) {
      loaded = load_once();
      if (loaded.status != LTZ_ERR_NOMEM) kept.store(true, std::memory_order_release);
    }
    *image = loaded.image;
    return loaded.status;
  }
  *image = loaded.image;
  return loaded.status;
}

}  // extern "C"
