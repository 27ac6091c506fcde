// Loading the time-zone image once per process.
//
// The first caller of ltzGetImage finds the file (sldigpt), reads it whole
// and checks it (sldigsz); the result, image or failure, is kept for the
// life of the process, so every caller sees the same stable image. Only a
// load that ran out of memory is not kept: the next caller tries again.
#include <atomic>
#include <mutex>

#include "datetime/tz_load_impl.h"
#include "ltz.h"
#include "sl.h"
#include "sys/tzfile_impl.h"

namespace ltz_internal {

int32_t load_image(const char *path, const uint8_t **image) {
  *image = nullptr;
  uint8_t *data = nullptr;
  size_t len = 0;
  int32_t rc = sl_internal::tz_read_file(path, LTZ_MAX_IMAGE, &data, &len);
  if (rc == -2) return LTZ_ERR_NOMEM;
  if (rc != 0) return LTZ_ERR_NOTFOUND;
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

extern "C" {

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
