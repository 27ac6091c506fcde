// Intervals and Julian days meeting library numbers, checked against
// Python's decimal module.
#include <cstring>
#include <random>
#include <string>

#include "datetime/types/ldi_impl.h"
#include "tests/datetime/datetime_test.h"
#include "lnx.h"

using namespace dttest;

namespace {

std::string i128_text(__int128 v) {
  if (v == 0) return "0";
  bool neg = v < 0;
  std::string s;
  for (__int128 a = neg ? -v : v; a; a /= 10) s.insert(s.begin(), static_cast<char>('0' + static_cast<int>(a % 10)));
  return neg ? "-" + s : s;
}

struct Number {
  uint8_t b[LNX_BUFSIZE];
  size_t n = 0;
  explicit Number(const std::string &t) { lnxcpn(t.data(), t.size(), b, &n, 0, 0, 0, 0, nullptr, nullptr); }
  Number() = default;
  std::string text() const {
    char buf[LNX_TEXT_MAX];
    size_t k = 0;
    lnxn2t(b, n, LNX_TEXT_PLAIN, 0, buf, sizeof buf, &k);
    return std::string(buf, k);
  }
};

TEST(LdiNumber, ScaleAgainstDecimal) {
  std::mt19937 rng(3);
  const char *factors[] = {"1.5", "-0.333", "2", "0.0000001", "-7", "1234.5678", "0.5", "3", "-1.25", "1E-9"};
  std::vector<LdiInterval> vals;
  std::vector<std::string> facs, q;
  std::vector<char> ops;
  for (int i = 0; i < 600; ++i) {
    uint8_t kind = static_cast<uint8_t>(1 + rng() % 13);
    bool ym = ldi_internal::ym_kind(kind);
    LdiInterval src = ym ? iv(2, 0, static_cast<int32_t>(rng() % 200000) - 100000)
                         : iv(6, 0, 0, 0, static_cast<int32_t>(rng() % 20000000) - 10000000,
                              0);
    if (!ym) src.fraction = src.f4 < 0 ? -static_cast<int32_t>(rng() % 1000000000) : static_cast<int32_t>(rng() % 1000000000);
    LdiInterval v{};
    if (LdiInterInterConvert(&src, kind, &v)) continue;
    vals.push_back(v);
    facs.push_back(factors[rng() % 10]);
    ops.push_back(rng() % 2 ? '*' : '/');
    q.push_back("SCALE " + i128_text(ldi_internal::inter_total(v)) + " " + facs.back() + " " + ops.back() + " " +
                (ym ? "1" : "0"));
  }
  auto ans = oracle("scale", q);
  for (size_t i = 0; i < vals.size(); ++i) {
    Number f(facs[i]);
    LdiInterval r{};
    int32_t st = ops[i] == '*' ? LdiInterMultiply(&vals[i], f.b, f.n, &r) : LdiInterDivide(&vals[i], f.b, f.n, &r);
    LdiInterval want{};
    // The oracle's total, spread over the kind's fields by the conversion.
    __int128 t = 0;
    bool neg = ans[i][0] == '-';
    for (char c : ans[i]) if (c >= '0' && c <= '9') t = t * 10 + (c - '0');
    if (neg) t = -t;
    int32_t wst = ldi_internal::inter_from_total(t, vals[i].kind, &want);
    EXPECT_EQ(st, wst) << q[i];
    if (st == 0 && wst == 0) EXPECT_EQ(std::memcmp(&r, &want, sizeof r), 0) << q[i];
  }
  LdiInterval one = iv(3, 1), r{};
  Number zero("0"), bad;
  EXPECT_EQ(LdiInterDivide(&one, zero.b, zero.n, &r), LDI_ERR_DIVZERO);
  bad.b[0] = 0xFF, bad.b[1] = 0x65, bad.n = 2;  // infinity
  EXPECT_EQ(LdiInterMultiply(&one, bad.b, bad.n, &r), LDI_ERR_NUMBER);
  Number huge("1E30");
  EXPECT_EQ(LdiInterMultiply(&one, huge.b, huge.n, &r), LDI_ERR_OVERFLOW);
}

TEST(LdiNumber, IntervalsAndJulianDays) {
  struct Case {
    LdiInterval v;
    const char *text;
  } cases[] = {
      {iv(7, -2, -3), "-27"}, {iv(10, 1, 0, 0, 1, 500000000), "86401.5"}, {iv(6, 0, 0, 0, 0, -1), "-0.000000001"},
      {iv(10, 999999999, 23, 59, 59, 999999999), "86399999999999.999999999"},
  };
  for (const auto &c : cases) {
    Number n;
    ASSERT_EQ(LdiInterToNumber(&c.v, n.b, &n.n), 0);
    EXPECT_EQ(n.text(), c.text);
    LdiInterval back{};
    ASSERT_EQ(LdiInterFromNumber(n.b, n.n, c.v.kind, &back), 0);
    EXPECT_EQ(std::memcmp(&back, &c.v, sizeof back), 0) << c.text;
  }
  // Julian days against decimal division.
  std::mt19937 rng(12);
  std::vector<std::string> q;
  std::vector<LdiDateTime> d;
  for (int i = 0; i < 300; ++i) {
    int32_t j = 1 + static_cast<int32_t>(rng() % 5373484);
    LdiDateTime v{};
    ASSERT_EQ(LdiJDaysToDate(j, &v), 0);
    v.kind = LDI_KIND_TIMESTAMP;
    v.hour = static_cast<uint8_t>(rng() % 24), v.minute = static_cast<uint8_t>(rng() % 60);
    v.second = static_cast<uint8_t>(rng() % 60), v.fraction = rng() % 1000000000;
    d.push_back(v);
    __int128 ns = (static_cast<__int128>(j) * 86400 + v.hour * 3600 + v.minute * 60 + v.second) * 1000000000 + v.fraction;
    q.push_back("DIV " + i128_text(ns) + " 86400000000000");
  }
  auto ans = oracle("julian", q);
  for (size_t i = 0; i < d.size(); ++i) {
    Number n;
    ASSERT_EQ(LdiJulianToNumber(&d[i], n.b, &n.n), 0);
    EXPECT_EQ(n.text(), ans[i]);
    LdiDateTime back{};
    ASSERT_EQ(LdiJulianFromNumber(n.b, n.n, &back), 0);
    EXPECT_EQ(fields(back), fields(d[i]));
    EXPECT_LE(back.fraction > d[i].fraction ? back.fraction - d[i].fraction : d[i].fraction - back.fraction, 1000u);
  }
  Number n("0.5");
  LdiDateTime out{};
  EXPECT_EQ(LdiJulianFromNumber(n.b, n.n, &out), LDI_ERR_YEAR);
}

}  // namespace
