// Helpers of the datetime tests: record builders, the built time-zone image
// and the Python oracle (tests/ldi/ldi_oracle.py) run over a query file.
#ifndef KEL_TESTS_LDI_LDI_TEST_UTIL_H
#define KEL_TESTS_LDI_LDI_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "ldi.h"
#include "ltz.h"
#include "sl.h"

namespace lditest {

inline LdiDateTime dt(int kind, int y, int mo, int d, int h = 0, int mi = 0, int s = 0, uint32_t ns = 0,
                      int tzh = 0, int tzm = 0, uint16_t region = 0) {
  LdiDateTime v{};
  v.kind = static_cast<uint8_t>(kind);
  v.year = static_cast<int16_t>(y);
  v.month = static_cast<uint8_t>(mo);
  v.day = static_cast<uint8_t>(d);
  v.hour = static_cast<uint8_t>(h);
  v.minute = static_cast<uint8_t>(mi);
  v.second = static_cast<uint8_t>(s);
  v.fraction = ns;
  v.tzhour = static_cast<int8_t>(tzh);
  v.tzminute = static_cast<int8_t>(tzm);
  v.region = region;
  return v;
}

inline LdiInterval iv(int kind, int32_t f1, int32_t f2 = 0, int32_t f3 = 0, int32_t f4 = 0, int32_t frac = 0) {
  LdiInterval v{};
  v.kind = static_cast<uint8_t>(kind);
  v.f1 = f1;
  v.f2 = f2;
  v.f3 = f3;
  v.f4 = f4;
  v.fraction = frac;
  return v;
}

inline const void *image() {
  slsetenv("KEL_TZFILE", KEL_TZFILE, 1);
  const void *img = nullptr;
  EXPECT_EQ(ltzGetImage(&img), LTZ_OK) << KEL_TZFILE;
  return img;
}

// Writes the queries, runs the oracle, returns one answer per query.
inline std::vector<std::string> oracle(const std::string &tag, const std::vector<std::string> &queries) {
  std::string q = std::string(KEL_BINARY_DIR) + "/tests/datetime/" + tag + ".q";
  std::string a = std::string(KEL_BINARY_DIR) + "/tests/datetime/" + tag + ".a";
  {
    std::ofstream out(q);
    for (const auto &l : queries) out << l << "\n";
  }
  std::string cmd = std::string(KEL_PYTHON) + " " + KEL_SOURCE_DIR + "/tests/datetime/types/ldi_oracle.py " + q + " " + a;
  EXPECT_EQ(std::system(cmd.c_str()), 0) << cmd;
  std::vector<std::string> out;
  std::ifstream in(a);
  for (std::string l; std::getline(in, l);) out.push_back(l);
  EXPECT_EQ(out.size(), queries.size());
  return out;
}

inline std::string fields(const LdiDateTime &v) {
  return std::to_string(v.year) + " " + std::to_string(v.month) + " " + std::to_string(v.day) + " " +
         std::to_string(v.hour) + " " + std::to_string(v.minute) + " " + std::to_string(v.second);
}

}  // namespace lditest

#endif
