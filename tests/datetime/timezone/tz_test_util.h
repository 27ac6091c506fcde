// Helpers shared by the time-zone tests: the built image, the Python oracle,
// and a hand-made image builder independent of keltzc.
#ifndef KEL_TESTS_TIMEZONE_TZ_TEST_UTIL_H
#define KEL_TESTS_TIMEZONE_TZ_TEST_UTIL_H

#include <gtest/gtest.h>

#include <algorithm>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "ldi.h"
#include "ltz.h"
#include "sl.h"

namespace tztest {

// The image of this build, loaded through the library's own loader.
inline const void *built_image() {
  slsetenv("KEL_TZFILE", KEL_TZFILE, 1);
  const void *img = nullptr;
  int32_t st = ltzGetImage(&img);
  EXPECT_EQ(st, LTZ_OK) << "image " << KEL_TZFILE;
  return img;
}

inline std::string temp_path(const std::string &tag) {
  return std::string(KEL_BINARY_DIR) + "/tests/datetime/" + tag;
}

// Runs tests/timezone/tz_oracle.py with `args`; true when it succeeded.
inline bool run_oracle(const std::string &args) {
  std::string cmd = std::string(KEL_PYTHON) + " " + KEL_SOURCE_DIR + "/tests/datetime/timezone/tz_oracle.py " + args;
  return std::system(cmd.c_str()) == 0;
}

inline std::vector<std::string> read_lines(const std::string &path) {
  std::vector<std::string> out;
  std::ifstream in(path);
  for (std::string l; std::getline(in, l);) out.push_back(l);
  return out;
}

inline LdiDateTime stamp(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  LdiDateTime v{};
  v.year = static_cast<int16_t>(y);
  v.month = static_cast<uint8_t>(mo);
  v.day = static_cast<uint8_t>(d);
  v.hour = static_cast<uint8_t>(h);
  v.minute = static_cast<uint8_t>(mi);
  v.second = static_cast<uint8_t>(s);
  v.kind = LDI_KIND_TIMESTAMP;
  return v;
}

// Builds an image byte by byte from the published layout: header, directory,
// name lists, index, records, map, types, abbreviations, flags.
struct SynthRegion {
  uint16_t slot;
  std::vector<std::string> names;
  struct Tr {
    LdiDateTime at;
    int32_t offset;
    std::string abbr;
    uint8_t dst;
  };
  std::vector<Tr> trans;
};

struct SynthImage {
  std::vector<uint8_t> b;
  uint32_t off_index = 0, off_trans = 0, off_map = 0, off_types = 0, off_dst = 0;

  void put16(size_t at, uint16_t v) {
    b[at] = static_cast<uint8_t>(v);
    b[at + 1] = static_cast<uint8_t>(v >> 8);
  }
  void put32(size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
  }
  const void *data() const { return b.data(); }
};

// Names in the index are given sorted by the caller (ltzCmp order).
inline SynthImage build_synthetic(const std::vector<SynthRegion> &regions) {
  SynthImage im;
  std::vector<uint8_t> names;
  struct Ent {
    std::string name;
    uint32_t off;
    uint16_t id;
  };
  std::vector<Ent> index;
  std::vector<uint32_t> list_off;
  for (const auto &r : regions) {
    list_off.push_back(4148 + static_cast<uint32_t>(names.size()));
    for (size_t k = 0; k < r.names.size(); ++k) {
      index.push_back({r.names[k], 4148 + static_cast<uint32_t>(names.size()),
                       static_cast<uint16_t>(r.slot | (k << 9))});
      names.insert(names.end(), r.names[k].begin(), r.names[k].end());
      names.push_back(0);
    }
    names.push_back(0);
  }
  std::sort(index.begin(), index.end(),
            [](const Ent &a, const Ent &b) { return ltzCmp(a.name.c_str(), b.name.c_str()) < 0; });
  size_t nrec = 0;
  for (const auto &r : regions) nrec += r.trans.size();
  im.off_index = 4148 + static_cast<uint32_t>(names.size());
  im.off_trans = im.off_index + static_cast<uint32_t>(index.size() * 8);
  im.off_map = im.off_trans + static_cast<uint32_t>(nrec * 20);
  im.off_types = im.off_map + static_cast<uint32_t>(nrec * 2);
  // One type per record, abbreviations right after the types.
  uint32_t off_abbr = im.off_types + static_cast<uint32_t>(nrec * 8);
  std::vector<uint8_t> abbrs;
  std::vector<uint32_t> abbr_at;
  for (const auto &r : regions)
    for (const auto &t : r.trans) {
      abbr_at.push_back(off_abbr + static_cast<uint32_t>(abbrs.size()));
      abbrs.insert(abbrs.end(), t.abbr.begin(), t.abbr.end());
      abbrs.push_back(0);
    }
  im.off_dst = off_abbr + static_cast<uint32_t>(abbrs.size());
  uint32_t total = im.off_dst + static_cast<uint32_t>(nrec);
  im.b.assign(total, 0);
  im.put32(0, LTZ_MAGIC);
  im.put32(4, total);
  im.put16(8, 2);
  im.put16(10, 1234);
  im.put16(12, 4321);
  im.put16(14, static_cast<uint16_t>(index.size()));
  im.put32(20, im.off_index);
  im.put32(24, im.off_trans);
  im.put32(28, im.off_types);
  im.put32(32, im.off_map);
  im.put32(36, im.off_dst);
  std::memcpy(&im.b[4148], names.data(), names.size());
  for (size_t i = 0; i < index.size(); ++i) {
    im.put32(im.off_index + 8 * i, index[i].off);
    im.put16(im.off_index + 8 * i + 4, index[i].id);
  }
  size_t rec = 0;
  for (size_t ri = 0; ri < regions.size(); ++ri) {
    const auto &r = regions[ri];
    size_t slot = 40 + 8 * static_cast<size_t>(r.slot);
    im.put16(slot, static_cast<uint16_t>(r.trans.size()));
    im.put16(slot + 2, static_cast<uint16_t>(rec));
    im.put32(slot + 4, list_off[ri]);
    for (const auto &t : r.trans) {
      std::memcpy(&im.b[im.off_trans + 20 * rec], &t.at, 20);
      im.put16(im.off_map + 2 * rec, static_cast<uint16_t>(rec));
      im.put32(im.off_types + 8 * rec, static_cast<uint32_t>(t.offset));
      im.put32(im.off_types + 8 * rec + 4, abbr_at[rec]);
      im.b[im.off_dst + rec] = t.dst;
      ++rec;
    }
  }
  std::memcpy(&im.b[off_abbr], abbrs.data(), abbrs.size());
  return im;
}

}  // namespace tztest

#endif
