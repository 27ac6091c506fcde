// Arbitrary bytes as a time-zone image, through every lookup. The loader
// guarantees that the buffer holds the length the header states, so the
// harness patches a larger stated length down to the input's size; all the
// rest (offsets, counts, strings, records) is the fuzzer's.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "ltz.h"

namespace {

uint32_t le32(const uint8_t *p) { return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24; }

void exercise(const void *img, uint16_t id, const LdiDateTime &when, uint32_t hint) {
  int32_t off = 0;
  char abbr[LTZ_ABBR_MAX];
  uint8_t dst = 0;
  uint32_t index = 0;
  ltzGet(img, id, &when, &off, abbr, sizeof abbr, &dst);
  ltzGetIndex(img, id, &when, &off, abbr, sizeof abbr, &dst, &index);
  off = static_cast<int32_t>(hint);
  ltzGetLocal(img, id, &when, &off, &dst);
  ltzGetLocalA(img, id, &when, &off, abbr, sizeof abbr, &dst);
  ltzGetLocalByIndex(img, id, &when, &off, abbr, sizeof abbr, &dst, hint % 300, &index);
  char name[LTZ_NAME_MAX];
  size_t len = 0;
  ltzName(img, id, name, sizeof name, &len);
  uint8_t *arr = nullptr;
  size_t alen = 0;
  if (ltzGetTransArray(img, nullptr, nullptr, id, &arr, &alen) == LTZ_OK) {
    volatile uint8_t sink = arr[alen - 1];
    (void)sink;
  }
  ltzFreeTransArray(nullptr, nullptr, arr);
}

// A real image starts with a 4148-byte header, longer than the inputs the
// fuzzer is run with; so an input is taken in a compact form: its first 40
// bytes are the header fields, the next 512 the directory slots 0 ... 63
// (the other slots stay empty), and the rest is the body from byte 4148 on.
// An input that already starts with the magic and holds a whole header is
// used as it is.
constexpr size_t kHead = 40, kDir = 64 * 8;

std::vector<uint8_t> expand(const uint8_t *data, size_t size) {
  if (size >= LTZ_HEADER_SIZE && le32(data) == LTZ_MAGIC) return {data, data + size};
  std::vector<uint8_t> img(LTZ_HEADER_SIZE, 0);
  std::memcpy(img.data(), data, size < kHead + kDir ? size : kHead + kDir);
  if (size > kHead + kDir) img.insert(img.end(), data + kHead + kDir, data + size);
  return img;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // The last 32 bytes (when present) also steer the queries, so that the
  // fuzzer can reach every region and instant.
  std::vector<uint8_t> buf = expand(data, size);
  uint32_t stated = le32(buf.data() + 4);
  if (stated > buf.size()) {
    uint32_t n = static_cast<uint32_t>(buf.size());
    for (int i = 0; i < 4; ++i) buf[4 + i] = static_cast<uint8_t>(n >> (8 * i));
  }
  const void *img = buf.data();
  uint8_t q[32] = {};
  if (size >= 32) std::memcpy(q, data + size - 32, 32);

  uint16_t v = 0;
  ltzGetFileVersion(img, &v);
  ltzGetFileContentVer(img, &v);
  ltzGetFileID(img, &v);

  LdiDateTime when{};
  std::memcpy(&when, q, sizeof when);
  when.kind = (q[20] & 1) ? LDI_KIND_TIMESTAMP : q[21];
  uint16_t id = static_cast<uint16_t>(q[22] | q[23] << 8);
  uint32_t hint = le32(q + 24);
  exercise(img, id, when, hint);
  exercise(img, static_cast<uint16_t>(1 + q[28] % 64), when, hint);

  char name[LTZ_NAME_MAX];
  uint16_t found = 0;
  for (uint32_t i = 0; i < 4; ++i) {
    if (ltzStep(img, i + q[29], name, sizeof name, &found) == LTZ_OK) {
      ltzID(img, name, std::strlen(name), &found);
      exercise(img, found, when, hint);
    }
  }
  ltzID(img, reinterpret_cast<const char *>(q), q[30] % 33, &found);
  ltzCmp(name, "Europe/Paris");
  return 0;
}
