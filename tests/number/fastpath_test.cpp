// The byte-level fast paths of addition, subtraction, multiplication and
// division against the plain kernels on decoded operands: every result the
// fast path accepts to produce must be the same bytes, in both output
// conventions and with the output aliasing an input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "lnx.h"
#include "number/lnx_impl.h"
#include "tests/number/lnx_test_util.h"

using namespace lnxtest;
using namespace lnx_internal;

namespace {

enum class Op { Add, Sub, Mul, Div };

bool fast(Op op, const uint8_t *a, size_t al, const uint8_t *b, size_t bl, uint8_t *out, size_t *ol) {
  switch (op) {
    case Op::Add: return add_fast(a, al, b, bl, false, out, ol);
    case Op::Sub: return add_fast(a, al, b, bl, true, out, ol);
    case Op::Mul: return mul_fast(a, al, b, bl, out, ol);
    case Op::Div: return div_fast(a, al, b, bl, out, ol);
  }
  return false;
}

void plain(Op op, const Bytes &a, const Bytes &b, uint8_t *out, size_t *ol) {
  Num x, y;
  decode_arg(a.data(), a.size(), x);
  decode_arg(b.data(), b.size(), y);
  switch (op) {
    case Op::Add: add_num(x, y, false, out, ol); break;
    case Op::Sub: add_num(x, y, true, out, ol); break;
    case Op::Mul: mul_num(x, y, out, ol); break;
    case Op::Div: div_num(x, y, out, ol); break;
  }
}

// Operands shaped to hit the word boundaries of the fast paths: lengths
// 1..20 (1 to 40 decimal digits), exponents anywhere, both signs, runs of
// 99 and 00 for long carries and borrows, 49/50 at the rounding place.
struct Shapes {
  Gen g;
  explicit Shapes(uint64_t seed) : g(seed) {}
  Bytes pick(int exp, int n, int style) {
    std::vector<int> d(static_cast<size_t>(n));
    for (auto &x : d) x = g.digit(style);
    if (d[0] == 0) d[0] = g.uni(1, 99);
    if (d.back() == 0) d.back() = g.uni(1, 99);
    return make(g.uni(0, 1) == 1, exp, d);
  }
  // A pair with the second operand close in exponent, often the same.
  std::pair<Bytes, Bytes> pair() {
    const int k = g.uni(0, 9);
    const int ea = k == 0 ? g.uni(-64, 62) : (k == 1 ? g.uni(56, 62) : (k == 2 ? g.uni(-64, -58) : g.uni(-8, 8)));
    int eb = g.uni(0, 2) == 0 ? ea : ea + g.uni(-32, 32);
    if (eb < -64) eb = -64;
    if (eb > 62) eb = 62;
    const int style = g.uni(0, 4);
    const int na = g.uni(0, 2) == 0 ? 20 : g.uni(1, 20);
    const int nb = g.uni(0, 2) == 0 ? 20 : g.uni(1, 20);
    Bytes a = pick(ea, na, style);
    Bytes b = pick(eb, nb, g.uni(0, 1) ? style : g.uni(0, 4));
    if (g.uni(0, 7) == 0) {  // the same magnitude, maybe the other sign
      b = a;
      if (g.uni(0, 1)) {
        uint8_t t[22];
        size_t tl;
        lnxneg(a.data(), a.size(), t, &tl);
        b.assign(t, t + tl);
      }
    }
    return {a, b};
  }
};

TEST(NumberFastPath, SameBytesAsPlainKernels) {
  const struct {
    Op op;
    const char *name;
  } ops[] = {{Op::Add, "add"}, {Op::Sub, "sub"}, {Op::Mul, "mul"}, {Op::Div, "div"}};
  for (const auto &o : ops) {
    Shapes s(0xfa57 + static_cast<uint64_t>(o.op));
    int taken = 0;
    constexpr int kCases = 200000;
    for (int i = 0; i < kCases; ++i) {
      auto [a, b] = i % 10 == 0 ? std::pair<Bytes, Bytes>{s.g.any(), s.g.any()} : s.pair();
      if (o.op == Op::Div && i % 4 == 1) {
        // A dividend that is a rounded product of the divisor: quotient
        // limbs a hair above or below whole numbers, where a limb estimate
        // is most likely to come out one too large.
        uint8_t t[22];
        size_t tl;
        lnxmul(a.data(), a.size(), b.data(), b.size(), t, &tl);
        if (tl > 1 && t[0] != 0 && t[0] != 0xFF && i % 8 == 1) {  // nudge by one unit of the last place
          const int e = t[0] >= 0x80 ? t[0] - 193 : 62 - t[0];
          if (e - 19 >= -64) {
            const Bytes ulp = make(s.g.uni(0, 1) == 1, e - 19, {1});
            lnxadd(t, tl, ulp.data(), ulp.size(), t, &tl);
          }
        }
        a.assign(t, t + tl);
      }
      uint8_t want[22], got[22];
      size_t wl = 0, gl = 0;
      plain(o.op, a, b, want, &wl);
      if (!fast(o.op, a.data(), a.size(), b.data(), b.size(), got, &gl)) continue;
      ++taken;
      ASSERT_EQ(hex(got, gl), hex(want, wl)) << o.name << " " << hex(a) << " " << hex(b);
      // Length-prefixed operands and output.
      uint8_t pa[22], pb[22], pout[22];
      pa[0] = static_cast<uint8_t>(a.size());
      std::copy(a.begin(), a.end(), pa + 1);
      pb[0] = static_cast<uint8_t>(b.size());
      std::copy(b.begin(), b.end(), pb + 1);
      ASSERT_TRUE(fast(o.op, pa, 0, pb, 0, pout, nullptr));
      ASSERT_EQ(hex(pout + 1, pout[0]), hex(want, wl)) << o.name << " prefixed " << hex(a) << " " << hex(b);
      // The output replacing the first operand in place.
      ASSERT_TRUE(fast(o.op, pa, 0, pb, 0, pa, nullptr));
      ASSERT_EQ(hex(pa + 1, pa[0]), hex(want, wl)) << o.name << " in place " << hex(a) << " " << hex(b);
    }
    // The fast path must serve the common shapes, not hand everything on.
    EXPECT_GT(taken, kCases * 7 / 10) << o.name;
  }
}

// Every pair of mantissa lengths 1..20 with every exponent distance the
// addition path serves (and some it hands on), both signs of each operand,
// and operands sharing a prefix of their digits (the cancellations of a
// subtraction that empty whole words), against the plain kernels. The
// output buffer is fenced: a result must not touch a byte past its own
// length, in either output convention, since callers size buffers to the
// number they expect.
TEST(NumberFastPath, SweepOfLengthsAndDistances) {
  const struct {
    Op op;
    const char *name;
    int max_dist;  // exponent distances tried: -max_dist..max_dist
  } ops[] = {{Op::Add, "add", 33}, {Op::Sub, "sub", 33}, {Op::Mul, "mul", 6}, {Op::Div, "div", 6}};
  constexpr uint8_t kFence = 0xA5;
  for (const auto &o : ops) {
    Gen g(0x5eed + static_cast<uint64_t>(o.op));
    for (int rep = 0; rep < 4; ++rep)
    for (int na = 1; na <= 20; ++na)
      for (int nb = 1; nb <= 20; ++nb)
        for (int dist = -o.max_dist; dist <= o.max_dist; ++dist) {
          // Exponents in the middle of the range, now and then at its ends,
          // where results overflow to infinity or underflow to zero.
          const int k = g.uni(0, 15);
          const int ea = k == 0 ? g.uni(52, 62) : (k == 1 ? g.uni(-64, -54) : g.uni(-4, 4));
          const int eb = std::min(62, std::max(-64, ea - dist));
          const int style = g.uni(0, 4);
          std::vector<int> da(static_cast<size_t>(na)), db(static_cast<size_t>(nb));
          for (auto &x : da) x = g.digit(style);
          for (auto &x : db) x = g.digit(style);
          if (g.uni(0, 3) == 0) {  // a shared prefix: cancellation in a subtraction
            const int share = g.uni(0, std::min(na, nb));
            for (int i = 0; i < share; ++i) db[static_cast<size_t>(i)] = da[static_cast<size_t>(i)];
          }
          da[0] = da[0] == 0 ? g.uni(1, 99) : da[0];
          db[0] = db[0] == 0 ? g.uni(1, 99) : db[0];
          if (da.back() == 0) da.back() = g.uni(1, 99);
          if (db.back() == 0) db.back() = g.uni(1, 99);
          const int signs = g.uni(0, 3);
          const Bytes a = make(signs & 1, ea, da), b = make((signs & 2) != 0, eb, db);
          // Addition takes the pair when the digits of the operand with the
          // smaller exponent fit in the 32 places from the other's first
          // digit; multiplication and division take every finite pair.
          const int lo_n = ea < eb ? na : nb;
          const bool served = (o.op == Op::Mul || o.op == Op::Div) || std::abs(ea - eb) + lo_n <= 32;
          uint8_t want[22];
          size_t wl = 0;
          plain(o.op, a, b, want, &wl);
          uint8_t got[32];
          std::fill(std::begin(got), std::end(got), kFence);
          size_t gl = 0;
          const bool took = fast(o.op, a.data(), a.size(), b.data(), b.size(), got, &gl);
          ASSERT_EQ(took, served) << o.name << " " << hex(a) << " " << hex(b);
          if (!took) {
            for (uint8_t byte : got) ASSERT_EQ(byte, kFence) << o.name << " wrote before handing on";
            continue;
          }
          ASSERT_EQ(hex(got, gl), hex(want, wl)) << o.name << " " << hex(a) << " " << hex(b);
          for (size_t i = gl; i < sizeof got; ++i)
            ASSERT_EQ(got[i], kFence) << o.name << " wrote past the result at " << i << ": " << hex(a) << " "
                                      << hex(b);
          std::fill(std::begin(got), std::end(got), kFence);
          ASSERT_TRUE(fast(o.op, a.data(), a.size(), b.data(), b.size(), got, nullptr));
          ASSERT_EQ(hex(got, static_cast<size_t>(got[0]) + 1), hex(std::vector<uint8_t>{static_cast<uint8_t>(wl)}) + hex(want, wl))
              << o.name << " prefixed " << hex(a) << " " << hex(b);
          for (size_t i = got[0] + 1u; i < sizeof got; ++i)
            ASSERT_EQ(got[i], kFence) << o.name << " prefixed, wrote past the result at " << i << ": " << hex(a)
                                      << " " << hex(b);
        }
  }
}

// Division whose quotient is short or whole: the dividend is the divisor
// times a small integer or a short fraction, exactly or one unit off in the
// last place. The remainder ends at or next to zero, many quotient limbs
// are zero or cross zero on the way, and the divisor runs from a leading
// digit 1 followed by zeros (the smallest top limb) to all nines.
TEST(NumberFastPath, DivisionByFactorsOfTheDividend) {
  Gen g(0xd1f);
  int taken = 0;
  for (int i = 0; i < 60000; ++i) {
    const int nb = g.uni(0, 1) ? 20 : g.uni(1, 20);
    std::vector<int> db(static_cast<size_t>(nb));
    const int style = g.uni(0, 4);
    for (auto &x : db) x = style == 4 ? 0 : g.digit(style);
    db[0] = g.uni(0, 2) == 0 ? 1 : (g.uni(0, 1) ? 99 : g.uni(1, 99));
    if (db.back() == 0) db.back() = g.uni(0, 1) ? 1 : 99;
    const Bytes b = make(g.uni(0, 1) == 1, g.uni(-3, 3), db);
    // The factor: 1..9999, or a few base-100 digits with a point.
    std::vector<int> dk(static_cast<size_t>(g.uni(1, 3)));
    for (auto &x : dk) x = g.uni(0, 99);
    if (dk[0] == 0) dk[0] = g.uni(1, 99);
    if (dk.back() == 0) dk.back() = 7;
    const Bytes k = make(g.uni(0, 3) == 0, g.uni(-2, 2), dk);
    uint8_t t[22];
    size_t tl;
    lnxmul(b.data(), b.size(), k.data(), k.size(), t, &tl);
    if (i % 3 == 1 && tl > 1 && t[0] != 0 && t[0] != 0xFF) {
      const int e = t[0] >= 0x80 ? t[0] - 193 : 62 - t[0];
      const Bytes ulp = make(g.uni(0, 1) == 1, e - 19, {1});
      lnxadd(t, tl, ulp.data(), ulp.size(), t, &tl);
    }
    const Bytes a(t, t + tl);
    uint8_t want[22], got[22];
    size_t wl = 0, gl = 0;
    plain(Op::Div, a, b, want, &wl);
    if (!fast(Op::Div, a.data(), a.size(), b.data(), b.size(), got, &gl)) continue;
    ++taken;
    ASSERT_EQ(hex(got, gl), hex(want, wl)) << hex(a) << " / " << hex(b);
  }
  EXPECT_GT(taken, 50000);
}

// Edges where the word arithmetic changes hands: carries through whole
// words of 99s, borrows that empty the leading words, rounding that carries
// off the top, results at the ends of the exponent range.
TEST(NumberFastPath, WordBoundaryEdges) {
  auto nines = [](int n) { return std::vector<int>(static_cast<size_t>(n), 99); };
  const struct {
    Op op;
    Bytes a, b;
  } cases[] = {
      {Op::Add, make(false, 19, nines(20)), make(false, 0, {1})},
      {Op::Add, make(false, 62, nines(20)), make(false, 62, nines(20))},
      {Op::Sub, make(true, 62, nines(20)), make(false, 62, nines(20))},
      {Op::Add, make(false, 0, nines(20)), make(false, -20, {50})},
      {Op::Add, make(false, 0, nines(20)), make(false, -20, {49})},
      {Op::Sub, make(false, 0, {1}), make(false, -30, {1})},
      {Op::Sub, make(false, 0, {1}), make(false, -19, {1})},
      {Op::Sub, make(false, 0, {1}), make(false, -20, {1})},
      {Op::Sub, make(false, -64, {1, 1}), make(false, -64, {1})},
      {Op::Sub, make(false, -63, {1}), make(false, -64, {99})},
      {Op::Add, make(true, -64, {1}), make(false, -64, {1, 5})},
      {Op::Mul, make(false, 31, nines(20)), make(false, 31, nines(20))},
      {Op::Mul, make(false, -32, {1}), make(false, -33, {1})},
      {Op::Mul, make(true, 0, nines(20)), make(false, 0, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1})},
      {Op::Div, make(false, 0, {1}), make(false, 0, {3})},
      {Op::Div, make(false, 0, {2}), make(false, 0, {3})},
      {Op::Div, make(true, 62, nines(20)), make(false, -64, {1})},
      {Op::Div, make(false, -64, {1}), make(false, 62, nines(20))},
      {Op::Div, make(false, 0, nines(20)), make(false, 0, {99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 98})},
      // quotient limbs just below a whole number: the estimate overshoots
      {Op::Div, make(false, 0, {99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 98}), make(false, 0, nines(20))},
      {Op::Div, make(true, 3, {33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 32}), make(false, 0, {33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33, 33})},
      {Op::Div, make(false, 0, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}), make(false, 0, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2})},
  };
  for (const auto &c : cases) {
    uint8_t want[22], got[22];
    size_t wl = 0, gl = 0;
    plain(c.op, c.a, c.b, want, &wl);
    ASSERT_TRUE(fast(c.op, c.a.data(), c.a.size(), c.b.data(), c.b.size(), got, &gl)) << hex(c.a) << " " << hex(c.b);
    EXPECT_EQ(hex(got, gl), hex(want, wl)) << hex(c.a) << " " << hex(c.b);
  }
}

}  // namespace
