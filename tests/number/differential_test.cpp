// The operations against Python's decimal module with the family's rounding
// rules (tests/number/lnx_oracle.py): random operands over every exponent
// range, sign and length, shaped to the word boundaries of the fast paths,
// and the edges of infinities, overflow, underflow and carries.
#include <gtest/gtest.h>

#include "lnx.h"
#include "number/lnx_impl.h"
#include "tests/number/lnx_test_util.h"

using namespace lnxtest;

namespace {

using BinOp = void (*)(const uint8_t *, size_t, const uint8_t *, size_t, uint8_t *, size_t *);

// The plain digit-array kernels, which the operations reach only for the
// shapes their fast paths hand on, are held to the oracle on every shape.
void add_plain(const uint8_t *a, size_t al, const uint8_t *b, size_t bl, uint8_t *o, size_t *ol) {
  lnx_internal::add_plain(a, al, b, bl, false, o, ol);
}
void sub_plain(const uint8_t *a, size_t al, const uint8_t *b, size_t bl, uint8_t *o, size_t *ol) {
  lnx_internal::add_plain(a, al, b, bl, true, o, ol);
}

// "name a b result". The length-prefixed form writes over its first operand,
// so half of the cases also check the output aliasing an input.
std::string bin_case(const char *name, BinOp op, const Bytes &a, const Bytes &b, bool prefixed) {
  uint8_t out[22], pa[22] = {static_cast<uint8_t>(a.size())}, pb[22] = {static_cast<uint8_t>(b.size())};
  size_t ol = 0;
  if (prefixed) {
    std::copy(a.begin(), a.end(), pa + 1);
    std::copy(b.begin(), b.end(), pb + 1);
    op(pa, 0, pb, 0, pa, nullptr);
    ol = pa[0];
    std::copy(pa + 1, pa + 1 + ol, out);
  } else {
    op(a.data(), a.size(), b.data(), b.size(), out, &ol);
  }
  EXPECT_EQ(lnxchk(out, ol), 1) << name << " " << hex(a) << " " << hex(b);
  return std::string(name) + " " + hex(a) + " " + hex(b) + " " + hex(out, ol);
}

// The divisor times a short factor, exactly or one unit of the last place
// off: quotients that are short or whole, where many limbs are zero and an
// estimated limb is most likely one too large. The divisor's top digit runs
// from 1 (the smallest top limb) to 99.
Bytes product_of(Gen &g, Bytes &b) {
  if (g.uni(0, 1)) {
    std::vector<int> db = g.digits(g.uni(0, 1) ? 20 : g.uni(1, 20), g.uni(0, 4));
    db[0] = g.uni(0, 2) == 0 ? 1 : g.uni(0, 1) ? 99 : db[0];
    b = make(g.uni(0, 1) == 1, g.uni(-3, 3), db);
  }
  const Bytes k = make(g.uni(0, 3) == 0, g.uni(-2, 2), g.digits(g.uni(1, 3), 0));
  uint8_t t[22];
  size_t tl;
  lnxmul(b.data(), b.size(), k.data(), k.size(), t, &tl);
  if (g.uni(0, 2) == 0 && tl > 1 && t[0] != 0 && t[0] != 0xFF) {
    const int e = t[0] >= 0x80 ? t[0] - 193 : 62 - t[0];
    if (e - 19 >= -64) {
      const Bytes ulp = make(g.uni(0, 1) == 1, e - 19, {1});
      lnxadd(t, tl, ulp.data(), ulp.size(), t, &tl);
    }
  }
  return Bytes(t, t + tl);
}

TEST(NumberDifferential, ArithmeticAgainstPythonDecimal) {
  const auto n = [](int count, int d) { return std::vector<int>(static_cast<size_t>(count), d); };
  std::vector<int> one_one = n(20, 0), nines_8 = n(20, 99), thirds = n(20, 33);
  one_one[0] = one_one[19] = 1;  // 1 00 .. 00 01
  nines_8[19] = 98;
  const Bytes one = make(false, 0, {1}), zero{0x80}, pinf{0xFF, 101}, ninf{0x00}, max = make(false, 62, n(20, 99));
  const Bytes edges[][2] = {
      {one, make(true, 0, {1})}, {make(false, 19, n(20, 99)), one}, {max, max}, {make(true, 62, n(20, 99)), max},
      {pinf, pinf}, {ninf, ninf}, {pinf, ninf}, {ninf, pinf}, {one, pinf}, {zero, pinf}, {ninf, make(true, 0, {1})},
      {zero, zero}, {one, zero}, {ninf, zero}, {one, ninf}, {make(false, -64, {1}), make(false, 5, {1})},
      {max, make(false, -1, {1})}, {make(false, -64, {1}), make(false, -1, {1})},
      {make(false, 19, one_one), make(false, 1, {1, 50})}, {make(false, 19, one_one), make(false, 1, {1, 49})},
      {make(false, 0, n(20, 99)), make(false, -20, {50})}, {make(false, 0, n(20, 99)), make(false, -20, {49})},
      {one, make(false, -30, {1})}, {one, make(false, -19, {1})}, {one, make(false, -20, {1})},
      {make(false, -64, {1, 1}), make(false, -64, {1})}, {make(false, -63, {1}), make(false, -64, {99})},
      {make(true, -64, {1}), make(false, -64, {1, 5})}, {make(false, 31, n(20, 99)), make(false, 31, n(20, 99))},
      {make(false, -32, {1}), make(false, -33, {1})}, {make(true, 0, n(20, 99)), make(false, 0, one_one)},
      {one, make(false, 0, {3})}, {make(false, 0, {2}), make(false, 0, {3})},
      {make(false, 0, n(20, 99)), make(false, 0, nines_8)}, {make(false, 0, nines_8), make(false, 0, n(20, 99))},
      {make(true, 3, thirds), make(false, 0, thirds)}, {make(false, 0, one_one), make(false, 0, one_one)},
  };
  const struct {
    const char *name;
    BinOp op, plain;
  } ops[] = {{"add", lnxadd, add_plain},
             {"sub", lnxsub, sub_plain},
             {"mul", lnxmul, lnx_internal::mul_plain},
             {"div", lnxdiv, lnx_internal::div_plain}};
  for (const auto &o : ops) {
    Gen g(0x5eed0000u + static_cast<uint64_t>(o.name[0]) * 7 + o.name[1]);
    std::vector<std::string> lines;
    for (const auto &e : edges) {
      lines.push_back(bin_case(o.name, o.op, e[0], e[1], false));
      lines.push_back(bin_case(o.name, o.op, e[1], e[0], true));
    }
    for (int i = 0; i < 80000; ++i) {
      auto [a, b] = g.pair();
      if (i % 3 == 0) b = g.near(a);
      if (o.op == lnxdiv && i % 4 == 1) a = product_of(g, b);
      lines.push_back(bin_case(o.name, i % 8 == 5 || i % 8 == 6 ? o.plain : o.op, a, b, i % 2));
    }
    EXPECT_TRUE(oracle_agrees(o.name, lines));
  }
}

TEST(NumberDifferential, RoundTruncateFloorCeilShift) {
  Gen g(77);
  std::vector<std::string> lines;
  // Ties of either sign, carries into a new digit, places beyond the number,
  // and the largest number rounded up to infinity.
  const std::pair<Bytes, int> edges[] = {
      {hexbytes("c033"), 0},     {hexbytes("3f3366"), 0},   {hexbytes("c02e"), 1},     {hexbytes("c2022e"), -2},
      {hexbytes("c20233"), -2},  {hexbytes("c133"), -2},    {hexbytes("c13d"), -3},    {hexbytes("ff65"), 3},
      {hexbytes("00"), -3},      {hexbytes("80"), 2},       {hexbytes("c202182e"), 1}, {hexbytes("c202182e"), -1},
      {hexbytes("ff64"), -250},  {make(false, 62, std::vector<int>(20, 99)), -126}};
  for (const auto &[a, places] : edges)
    for (bool up : {true, false}) {
      uint8_t out[22];
      size_t ol;
      (up ? lnxrou : lnxtru)(a.data(), a.size(), out, &ol, places);
      lines.push_back((up ? "rou " : "tru ") + hex(a) + " " + std::to_string(places) + " " + hex(out, ol));
    }
  for (int i = 0; i < 60000; ++i) {
    Bytes a = g.any();
    uint8_t out[22];
    size_t ol;
    const int places = g.uni(0, 9) == 0 ? g.uni(-300, 300) : g.uni(-45, 45);
    const int shift = g.uni(0, 9) == 0 ? g.uni(-400, 400) : g.uni(-41, 41);
    switch (i % 5) {
      case 0: lnxrou(a.data(), a.size(), out, &ol, places); break;
      case 1: lnxtru(a.data(), a.size(), out, &ol, places); break;
      case 2: lnxflo(a.data(), a.size(), out, &ol); break;
      case 3: lnxcei(a.data(), a.size(), out, &ol); break;
      default: lnxshift(a.data(), a.size(), shift, out, &ol); break;
    }
    static const char *const names[] = {"rou ", "tru ", "flo ", "cei ", "shift "};
    const std::string arg = i % 5 < 2 ? std::to_string(places) + " " : i % 5 == 4 ? std::to_string(shift) + " " : "";
    lines.push_back(names[i % 5] + hex(a) + " " + arg + hex(out, ol));
    ASSERT_EQ(lnxchk(out, ol), 1) << lines.back();
  }
  EXPECT_TRUE(oracle_agrees("round", lines));
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
    int c = lnxcmp(a.data(), a.size(), b.data(), b.size());
    lines.push_back("cmp " + hex(a) + " " + hex(b) + " " + std::to_string((c > 0) - (c < 0)));
  }
  EXPECT_TRUE(oracle_agrees("cmp", lines));
}

TEST(NumberDifferential, ModRemSumScale) {
  Gen g(1234);
  std::vector<std::string> lines;
  for (int i = 0; i < 20000; ++i) {
    Bytes a = g.any();
    Bytes b = i % 5 == 0 ? g.finite(g.uni(-3, 3)) : i % 4 == 0 ? g.any() : g.near(a);
    lines.push_back(bin_case(i % 2 ? "mod" : "rem", i % 2 ? lnxmod : lnxrem, a, b, i % 3 == 0));
  }
  for (int i = 0; i < 4000; ++i) {
    const size_t n = static_cast<size_t>(g.uni(0, 12));
    std::vector<Bytes> v;
    for (size_t k = 0; k < n; ++k) v.push_back(k == 0 ? g.any() : g.uni(0, 30) == 0 ? g.any() : g.near(v[0]));
    if (n >= 2 && i % 3 == 0) {  // a cancelling pair
      uint8_t t[22];
      size_t tl;
      lnxneg(v[0].data(), v[0].size(), t, &tl);
      v[1].assign(t, t + tl);
    }
    uint8_t out[22];
    size_t ol;
    std::string line = "sum " + std::to_string(n);
    std::vector<const uint8_t *> p;
    std::vector<size_t> l;
    std::vector<uint8_t> vec(n * 22);  // lnxvsum: length-prefixed numbers 22 bytes apart
    for (size_t k = 0; k < n; ++k) {
      p.push_back(v[k].data());
      l.push_back(v[k].size());
      vec[k * 22] = static_cast<uint8_t>(v[k].size());
      std::copy(v[k].begin(), v[k].end(), vec.begin() + static_cast<long>(k * 22 + 1));
      line += " " + hex(v[k]);
    }
    if (i % 2 == 0)
      lnxsum(p.data(), l.data(), n, out, &ol);
    else
      lnxvsum(vec.data(), 22, n, out, &ol);
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
  EXPECT_TRUE(oracle_agrees("modsum", lines));
}

// Text in the three forms, and packed and zoned decimal fields both ways.
TEST(NumberDifferential, TextAndDecimalFields) {
  Gen g(4321);
  std::vector<std::string> lines;
  for (int i = 0; i < 30000; ++i) {
    Bytes a = g.any();
    int form = i % 3, places = g.uni(-45, 45);
    char buf[300];
    size_t tl = 0;
    ASSERT_EQ(lnxn2t(a.data(), a.size(), form, places, buf, sizeof buf, &tl), 0) << hex(a);
    lines.push_back("text " + hex(a) + " " + std::to_string(form) + " " + std::to_string(places) + " " +
                    hex(reinterpret_cast<uint8_t *>(buf), tl));
  }
  for (int i = 0; i < 20000; ++i) {
    Bytes n = i % 50 ? g.finite(g.uni(-10, 10)) : g.any();
    int32_t scale = g.uni(-5, 25);
    size_t size = static_cast<size_t>(g.uni(1, 32)), digits = 2 * size - 1;
    uint8_t pd[32], zd[63];
    int st = lnxn2pd(n.data(), n.size(), scale, pd, size), stz = lnxn2zd(n.data(), n.size(), scale, zd, digits);
    const std::string head = hex(n) + " " + std::to_string(scale) + " " + std::to_string(digits) + " ";
    lines.push_back("pd " + head + std::to_string(st) + (st ? "" : " " + hex(pd, size)));
    lines.push_back("zd " + head + std::to_string(stz) + (stz ? "" : " " + hex(zd, digits)));
    uint8_t r[22];
    size_t rl = 0;
    if (st == 0 && lnxpd2n(pd, size, scale, r, &rl) == 0)
      lines.push_back("pdn " + hex(pd, size) + " " + std::to_string(scale) + " " + hex(r, rl));
    if (stz == 0 && lnxzd2n(zd, digits, scale, r, &rl) == 0)
      lines.push_back("zdn " + hex(zd, digits) + " " + std::to_string(scale) + " " + hex(r, rl));
  }
  EXPECT_TRUE(oracle_agrees("text", lines));
}

}  // namespace
