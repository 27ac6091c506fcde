// Helpers shared by the number tests: building numbers from their parts
// (written from the byte format, independently of the library's encoder),
// random operands that reach every exponent range and rounding boundary, hex
// rendering, and running the Python oracle over a file of cases.
#ifndef KEL_TESTS_NUMBER_LNX_TEST_UTIL_H
#define KEL_TESTS_NUMBER_LNX_TEST_UTIL_H

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace lnxtest {

using Bytes = std::vector<uint8_t>;

inline Bytes make(bool neg, int exp, const std::vector<int> &digits) {
  Bytes b;
  if (!neg) {
    b.push_back(static_cast<uint8_t>(193 + exp));
    for (int d : digits) b.push_back(static_cast<uint8_t>(d + 1));
  } else {
    b.push_back(static_cast<uint8_t>(255 - (193 + exp)));
    for (int d : digits) b.push_back(static_cast<uint8_t>(101 - d));
    if (b.size() < 21) b.push_back(102);
  }
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
  for (size_t i = 0; i < n; ++i) {
    s += x[p[i] >> 4];
    s += x[p[i] & 15];
  }
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
  Bytes finite(int exp) {
    int n = uni(0, 3) == 0 ? uni(15, 20) : uni(1, 20);
    int style = uni(0, 4);
    std::vector<int> d(static_cast<size_t>(n));
    for (auto &x : d) x = digit(style);
    if (d[0] == 0) d[0] = uni(1, 99);
    if (d.back() == 0) d.back() = uni(1, 99);
    return make(uni(0, 1) == 1, exp, d);
  }
  Bytes any() {
    int k = uni(0, 99);
    if (k == 0) return {0x80};
    if (k == 1) return {0xFF, 101};
    if (k == 2) return {0x00};
    if (k < 40) return finite(uni(-64, 62));
    return finite(uni(-6, 6));
  }
  Bytes near(const Bytes &other) {
    int e = other[0] >= 0x80 ? other[0] - 193 : (255 - other[0]) - 193;
    if (other.size() <= 2 && (other[0] == 0x80 || other[0] == 0 || other[0] == 0xFF)) e = 0;
    int k = uni(0, 9);
    if (k == 0) return any();
    int ne = e + uni(-25, 25);
    if (ne < -64) ne = -64;
    if (ne > 62) ne = 62;
    return finite(ne);
  }
};

// Runs the oracle over `lines` and returns its report; `ok` is its verdict.
inline std::string run_oracle(const std::string &name, const std::vector<std::string> &lines, bool &ok) {
  std::string path = std::string(KEL_BINARY_DIR) + "/lnx_cases_" + name + ".txt";
  FILE *f = std::fopen(path.c_str(), "w");
  if (!f) {
    ok = false;
    return "cannot write " + path;
  }
  for (const auto &l : lines) std::fprintf(f, "%s\n", l.c_str());
  std::fclose(f);
  std::string cmd = std::string(KEL_PYTHON) + " " + KEL_SOURCE_DIR + "/tests/number/lnx_oracle.py " + path + " 2>&1";
  FILE *p = popen(cmd.c_str(), "r");
  std::string out;
  char buf[512];
  while (p && std::fgets(buf, sizeof buf, p)) out += buf;
  int rc = p ? pclose(p) : -1;
  ok = rc == 0;
  return out;
}

}  // namespace lnxtest

#endif
