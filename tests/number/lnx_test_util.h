// Helpers shared by the number tests: numbers built from their parts
// (written from the byte format, independently of the library's encoder),
// random operands that reach every exponent range, word boundary and
// rounding place, hex rendering, and the Python oracle over a list of cases.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "lnx.h"
#include "support/python.h"

namespace lnxtest {

using Bytes = std::vector<uint8_t>;

// The number (-1)^neg * d0.d1 d2 ... * 100^exp, digits base 100.
inline Bytes make(bool neg, int exp, const std::vector<int> &digits) {
  Bytes b{static_cast<uint8_t>(neg ? 255 - (193 + exp) : 193 + exp)};
  for (int d : digits) b.push_back(static_cast<uint8_t>(neg ? 101 - d : d + 1));
  if (neg && b.size() < 21) b.push_back(102);
  return b;
}

inline Bytes hexbytes(const std::string &h) {
  Bytes b;
  for (size_t i = 0; i + 1 < h.size(); i += 2) b.push_back(static_cast<uint8_t>(std::stoi(h.substr(i, 2), nullptr, 16)));
  return b;
}

inline std::string hex(const uint8_t *p, size_t n) {
  static const char *x = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) s += {x[p[i] >> 4], x[p[i] & 15]};
  return s;
}
inline std::string hex(const Bytes &b) { return hex(b.data(), b.size()); }

// Random operands: mostly finite with 1..20 digits, exponents over the whole
// range or near a given one, digit patterns that provoke carries (99s) and
// rounding ties (50s); sometimes zero or an infinity.
struct Gen {
  std::mt19937_64 rng;
  explicit Gen(uint64_t seed) : rng(seed) {}
  int uni(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
  int digit(int style) {
    switch (style) {
      case 1: return uni(0, 9) == 0 ? uni(0, 99) : 99;
      case 2: return uni(0, 3) == 0 ? 50 : (uni(0, 1) ? 0 : 49);
      case 3: return uni(0, 2) == 0 ? uni(0, 99) : 0;
      default: return uni(0, 99);
    }
  }
  std::vector<int> digits(int n, int style) {
    std::vector<int> d(static_cast<size_t>(n));
    for (auto &x : d) x = digit(style);
    if (d[0] == 0) d[0] = uni(1, 99);
    if (d.back() == 0) d.back() = uni(1, 99);
    return d;
  }
  Bytes finite(int exp) { return make(uni(0, 1) == 1, exp, digits(uni(0, 3) == 0 ? uni(15, 20) : uni(1, 20), uni(0, 4))); }
  Bytes any() {
    int k = uni(0, 99);
    if (k == 0) return {0x80};
    if (k == 1) return {0xFF, 101};
    if (k == 2) return {0x00};
    return finite(k < 40 ? uni(-64, 62) : uni(-6, 6));
  }
  Bytes near(const Bytes &other) {
    bool special = other.size() <= 2 && (other[0] == 0x80 || other[0] == 0 || other[0] == 0xFF);
    int e = special ? 0 : (other[0] >= 0x80 ? other[0] - 193 : 62 - other[0]);
    if (uni(0, 9) == 0) return any();
    return finite(std::clamp(e + uni(-25, 25), -64, 62));
  }
  // A pair for the arithmetic, shaped to the word boundaries of the fast
  // paths: often full 20-digit mantissas, exponents equal or a few words
  // apart (now and then at the ends of the range), a shared digit prefix
  // (cancellation), or the same magnitude of either sign.
  std::pair<Bytes, Bytes> pair() {
    if (uni(0, 9) == 0) return {any(), any()};
    const int k = uni(0, 9);
    const int ea = k == 0 ? uni(-64, 62) : k == 1 ? uni(56, 62) : k == 2 ? uni(-64, -58) : uni(-8, 8);
    const int eb = std::clamp(uni(0, 2) == 0 ? ea : ea + uni(-32, 32), -64, 62);
    const int style = uni(0, 4);
    std::vector<int> da = digits(uni(0, 2) == 0 ? 20 : uni(1, 20), style);
    std::vector<int> db = digits(uni(0, 2) == 0 ? 20 : uni(1, 20), uni(0, 1) ? style : uni(0, 4));
    if (uni(0, 3) == 0) std::copy_n(da.begin(), uni(0, static_cast<int>(std::min(da.size(), db.size())) - 1), db.begin());
    Bytes a = make(uni(0, 1) == 1, ea, da), b = make(uni(0, 1) == 1, eb, db);
    if (uni(0, 7) == 0) b = make(uni(0, 1) == 1, ea, da);
    return {a, b};
  }
};

// Writes `lines` to a file and has tests/number/lnx_oracle.py check them.
inline ::testing::AssertionResult oracle_agrees(const std::string &name, const std::vector<std::string> &lines) {
  const std::string path = std::string(KEL_BINARY_DIR) + "/lnx_cases_" + name + ".txt";
  {
    std::ofstream f(path);
    for (const auto &l : lines) f << l << '\n';
  }
  std::string report;
  if (kel_test::run_python("tests/number/lnx_oracle.py", path + " 2>&1", report))
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << report;
}

}  // namespace lnxtest
