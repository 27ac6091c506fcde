// Differential tests: random operands over every exponent range, sign and
// length, with the results compared byte for byte against Python's decimal
// module with the family's rounding rules (tests/number/lnx_oracle.py).
#include <gtest/gtest.h>

#include <functional>

#include "lnx.h"
#include "number/lnx_impl.h"
#include "tests/number/lnx_test_util.h"

using namespace lnxtest;

namespace {

using BinOp = void (*)(const uint8_t *, size_t, const uint8_t *, size_t, uint8_t *, size_t *);

// Each case is run with alternating argument conventions so that both the
// length-prefixed and the explicit forms are exercised; both must agree.
std::string bin_case(const char *name, BinOp op, const Bytes &a, const Bytes &b, int variant) {
  uint8_t out[22];
  size_t ol = 0;
  if (variant % 2 == 0) {
    op(a.data(), a.size(), b.data(), b.size(), out, &ol);
    return std::string(name) + " " + hex(a) + " " + hex(b) + " " + hex(out, ol);
  }
  uint8_t pa[22], pb[22];
  pa[0] = static_cast<uint8_t>(a.size());
  std::copy(a.begin(), a.end(), pa + 1);
  pb[0] = static_cast<uint8_t>(b.size());
  std::copy(b.begin(), b.end(), pb + 1);
  op(pa, 0, pb, 0, out, nullptr);
  return std::string(name) + " " + hex(a) + " " + hex(b) + " " + hex(out + 1, out[0]);
}

void expect_oracle(const std::string &name, const std::vector<std::string> &lines) {
  bool ok = false;
  std::string report = run_oracle(name, lines, ok);
  EXPECT_TRUE(ok) << report;
}

struct BinFamily {
  const char *name;
  BinOp op;
  int count;
};

TEST(NumberDifferential, ArithmeticAgainstPythonDecimal) {
  const BinFamily fams[] = {
      {"add", lnxadd, 40000}, {"sub", lnxsub, 40000}, {"mul", lnxmul, 40000}, {"div", lnxdiv, 40000},
  };
  for (const auto &fam : fams) {
    Gen g(0x5eed0000u + static_cast<uint64_t>(fam.name[0]) * 7 + fam.name[1]);
    std::vector<std::string> lines;
    lines.reserve(static_cast<size_t>(fam.count));
    for (int i = 0; i < fam.count; ++i) {
      Bytes a = g.any();
      Bytes b = (i % 3 == 0) ? g.any() : g.near(a);
      for (const Bytes *x : {&a, &b}) ASSERT_EQ(lnxchk(x->data(), x->size()), 1) << hex(*x);
      lines.push_back(bin_case(fam.name, fam.op, a, b, i));
      Bytes out = hexbytes(lines.back().substr(lines.back().rfind(' ') + 1));
      ASSERT_EQ(lnxchk(out.data(), out.size()), 1) << lines.back();
    }
    expect_oracle(fam.name, lines);
  }
}

TEST(NumberDifferential, RoundTruncateFloorCeilShift) {
  Gen g(77);
  std::vector<std::string> lines;
  for (int i = 0; i < 60000; ++i) {
    Bytes a = g.any();
    uint8_t out[22];
    size_t ol;
    int k = i % 5;
    if (k < 2) {
      int places = g.uni(0, 9) == 0 ? g.uni(-300, 300) : g.uni(-45, 45);
      if (k == 0)
        lnxrou(a.data(), a.size(), out, &ol, places);
      else
        lnxtru(a.data(), a.size(), out, &ol, places);
      lines.push_back(std::string(k == 0 ? "rou " : "tru ") + hex(a) + " " + std::to_string(places) + " " + hex(out, ol));
    } else if (k == 2) {
      lnxflo(a.data(), a.size(), out, &ol);
      lines.push_back("flo " + hex(a) + " " + hex(out, ol));
    } else if (k == 3) {
      lnxcei(a.data(), a.size(), out, &ol);
      lines.push_back("cei " + hex(a) + " " + hex(out, ol));
    } else {
      int s = g.uni(0, 9) == 0 ? g.uni(-400, 400) : g.uni(-41, 41);
      lnxshift(a.data(), a.size(), s, out, &ol);
      lines.push_back("shift " + hex(a) + " " + std::to_string(s) + " " + hex(out, ol));
    }
    ASSERT_EQ(lnxchk(out, ol), 1) << lines.back();
  }
  expect_oracle("round", lines);
}

TEST(NumberDifferential, CompareMatchesNumericOrder) {
  Gen g(99);
  std::vector<std::string> lines;
  for (int i = 0; i < 40000; ++i) {
    Bytes a = g.any();
    Bytes b = i % 4 == 0 ? a : g.near(a);
    if (i % 7 == 0) {  // the same number cut short: a prefix or a near neighbour
      uint8_t t[22];
      size_t tl;
      lnxtru(a.data(), a.size(), t, &tl, g.uni(-4, 30));
      b.assign(t, t + tl);
    }
    if (lnxchk(b.data(), b.size()) != 1) b = a;
    int c = lnxcmp(a.data(), a.size(), b.data(), b.size());
    lines.push_back("cmp " + hex(a) + " " + hex(b) + " " + std::to_string((c > 0) - (c < 0)));
  }
  expect_oracle("cmp", lines);
}

}  // namespace

namespace {

TEST(NumberDifferential, ModRemSumScale) {
  Gen g(1234);
  std::vector<std::string> lines;
  for (int i = 0; i < 20000; ++i) {
    Bytes a = g.any();
    Bytes b = (i % 4 == 0) ? g.any() : g.near(a);
    if (i % 5 == 0) b = g.finite(g.uni(-3, 3));
    lines.push_back(bin_case(i % 2 ? "mod" : "rem", i % 2 ? lnxmod : lnxrem, a, b, i));
    Bytes out = hexbytes(lines.back().substr(lines.back().rfind(' ') + 1));
    ASSERT_EQ(lnxchk(out.data(), out.size()), 1) << lines.back();
  }
  for (int i = 0; i < 4000; ++i) {
    int n = g.uni(0, 12);
    std::vector<Bytes> v;
    Bytes first = g.any();
    for (int k = 0; k < n; ++k) v.push_back(k == 0 ? first : (g.uni(0, 30) == 0 ? g.any() : g.near(first)));
    if (n >= 2 && i % 3 == 0) {  // a cancelling pair
      uint8_t t[22];
      size_t tl;
      lnxneg(v[0].data(), v[0].size(), t, &tl);
      v[1].assign(t, t + tl);
    }
    uint8_t out[22];
    size_t ol;
    std::string line = "sum " + std::to_string(n);
    if (i % 2 == 0) {
      std::vector<const uint8_t *> p;
      std::vector<size_t> l;
      for (auto &x : v) p.push_back(x.data()), l.push_back(x.size());
      lnxsum(p.data(), l.data(), v.size(), out, &ol);
    } else {
      std::vector<uint8_t> vec(v.size() * 22);
      for (size_t k = 0; k < v.size(); ++k) {
        vec[k * 22] = static_cast<uint8_t>(v[k].size());
        std::copy(v[k].begin(), v[k].end(), vec.begin() + static_cast<long>(k * 22 + 1));
      }
      lnxvsum(vec.data(), 22, v.size(), out, &ol);
    }
    for (auto &x : v) line += " " + hex(x);
    lines.push_back(line + " " + hex(out, ol));
    ASSERT_EQ(lnxchk(out, ol), 1) << lines.back();
  }
  for (int i = 0; i < 10000; ++i) {
    Bytes a = g.uni(0, 3) ? g.finite(g.uni(-10, 10)) : g.any();
    int p = g.uni(1, 38), s = g.uni(-10, 40);
    uint8_t out[22];
    size_t ol;
    int st = lnxsca(a.data(), a.size(), p, s, out, &ol);
    lines.push_back("sca " + hex(a) + " " + std::to_string(p) + " " + std::to_string(s) + " " +
                    std::to_string(st) + " " + hex(out, ol));
  }
  expect_oracle("modsum", lines);
}

TEST(NumberDifferential, TextFormsParseBackExactly) {
  Gen g(4321);
  std::vector<std::string> lines;
  for (int i = 0; i < 30000; ++i) {
    Bytes a = g.any();
    int form = i % 3;
    int places = g.uni(-45, 45);
    char buf[300];
    size_t tl = 0;
    ASSERT_EQ(lnxn2t(a.data(), a.size(), form, places, buf, sizeof buf, &tl), 0) << hex(a);
    lines.push_back("text " + hex(a) + " " + std::to_string(form) + " " + std::to_string(places) + " " +
                    hex(reinterpret_cast<uint8_t *>(buf), tl));
  }
  expect_oracle("text", lines);
}

}  // namespace
