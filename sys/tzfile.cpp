// The time-zone image file: where it is (sldigpt), whether a buffer starts
// like one (sldigsz), and reading it whole (tz_read_file).
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ltz.h"
#include "sl.h"
#include "sys/fault_impl.h"
#include "sys/tzfile_impl.h"

namespace {

constexpr size_t kMaxTzfileValue = 255;
constexpr char kZoneinfoDir[] = "/kelcore/zoneinfo/";
constexpr char kImageName[] = "timezlrg.dat";

uint32_t le32(const unsigned char *p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}

}  // namespace

namespace sl_internal {

int32_t tz_read_file(const char *path, size_t max, uint8_t **data, size_t *len) {
  *data = nullptr;
  *len = 0;
  if (SL_FAULT(SL_FAULT_FILE_OPEN)) return -1;
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  auto *buf = static_cast<uint8_t *>(ss_mem_alc(max));
  if (buf == nullptr) {
    close(fd);
    return -2;
  }
  size_t got = 0;
  while (got < max) {
    if (SL_FAULT(SL_FAULT_FILE_READ)) {
      got = static_cast<size_t>(-1);
      break;
    }
    ssize_t n = read(fd, buf + got, max - got);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      got = static_cast<size_t>(-1);
      break;
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  close(fd);
  if (got == static_cast<size_t>(-1)) {
    ss_mem_fre(buf);
    return -1;
  }
  *data = buf;
  *len = got;
  return 0;
}

}  // namespace sl_internal

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
  const auto *p = static_cast<const unsigned char *>(head);
  if (le32(p) != LTZ_MAGIC) return 4;
  uint32_t stated = le32(p + 4);
  if (stated > LTZ_MAX_IMAGE) return 5;
  return static_cast<int32_t>(stated);
}

}  // extern "C"
