// Number arithmetic, comparison, parsing and text at 38 digits against GCC's
// decimal128 (34 digits, libgcc) and Boost.Multiprecision cpp_dec_float<38>,
// and number-from-double against snprintf("%.17g"). Each case runs over a
// ring of prepared operands; the table at the end gives ours / peer.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <decimal/decimal>
#include <map>
#include <random>
#include <string>
#include <vector>

#if KEL_PEER_BOOST
#include <boost/multiprecision/cpp_dec_float.hpp>
#endif

#include "lnx.h"
#include "bench/support/ratio.h"

namespace {

#if KEL_PEER_BOOST
using boost_dec = boost::multiprecision::number<boost::multiprecision::cpp_dec_float<38>,
                                                boost::multiprecision::et_off>;
#endif
using std::decimal::decimal128;

constexpr size_t kRing = 256;

std::string digits(std::mt19937_64 &rng, int n) {
  std::string s;
  s += static_cast<char>('1' + rng() % 9);
  for (int i = 1; i < n; ++i) s += static_cast<char>('0' + rng() % 10);
  return s;
}

struct Operand {
  uint8_t num[22];
  size_t len;
  decimal128 d128;
#if KEL_PEER_BOOST
  boost_dec boost;
#endif
  std::string text;
  double dbl;
};

// decimal128 from an integer significand and a power of ten.
decimal128 make_d128(const std::string &sig, int exp10) {
  decimal128 v = 0;
  for (char c : sig) v = v * 10 + (c - '0');
  decimal128 p = 1;
  for (int i = 0; i < (exp10 < 0 ? -exp10 : exp10); ++i) p *= 10;
  return exp10 < 0 ? v / p : v * p;
}

std::vector<Operand> make_ring(uint64_t seed, int ndig) {
  std::mt19937_64 rng(seed);
  std::vector<Operand> r(kRing);
  for (auto &o : r) {
    std::string sig = digits(rng, ndig);
    int point = static_cast<int>(rng() % 12) + 1;  // digits after the point
    std::string t = sig.substr(0, sig.size() - point) + "." + sig.substr(sig.size() - point);
    if (rng() % 2) t = "-" + t;
    o.text = t;
    lnxcpn(t.data(), t.size(), o.num, &o.len, 0, 0, 0, 0, nullptr, nullptr);
    o.d128 = make_d128(sig.substr(0, 34 < sig.size() ? 34 : sig.size()), -point) * (t[0] == '-' ? -1 : 1);
#if KEL_PEER_BOOST
    o.boost = boost_dec(t);
#endif
    o.dbl = std::strtod(t.c_str(), nullptr);
  }
  return r;
}

const std::vector<Operand> &ring_a() { static auto r = make_ring(1, 38); return r; }
const std::vector<Operand> &ring_b() { static auto r = make_ring(2, 38); return r; }

using LnxBin = void (*)(const uint8_t *, size_t, const uint8_t *, size_t, uint8_t *, size_t *);

void lnx_bin(benchmark::State &st, LnxBin f) {
  const auto &A = ring_a(), &B = ring_b();
  uint8_t out[22];
  size_t ol;
  size_t i = 0;
  for (auto _ : st) {
    const auto &a = A[i % kRing], &b = B[(i * 7 + 3) % kRing];
    f(a.num, a.len, b.num, b.len, out, &ol);
    benchmark::DoNotOptimize(out);
    ++i;
  }
}

template <class Op>
void d128_bin(benchmark::State &st, Op op) {
  const auto &A = ring_a(), &B = ring_b();
  size_t i = 0;
  for (auto _ : st) {
    decimal128 r = op(A[i % kRing].d128, B[(i * 7 + 3) % kRing].d128);
    benchmark::DoNotOptimize(r);
    ++i;
  }
}

#if KEL_PEER_BOOST
template <class Op>
void boost_bin(benchmark::State &st, Op op) {
  const auto &A = ring_a(), &B = ring_b();
  size_t i = 0;
  for (auto _ : st) {
    boost_dec r = op(A[i % kRing].boost, B[(i * 7 + 3) % kRing].boost);
    benchmark::DoNotOptimize(r);
    ++i;
  }
}
#endif

void register_all() {
  benchmark::RegisterBenchmark("add/lnx", lnx_bin, lnxadd);
  benchmark::RegisterBenchmark("add/dec128", d128_bin<std::plus<>>, std::plus<>());
  benchmark::RegisterBenchmark("sub/lnx", lnx_bin, lnxsub);
  benchmark::RegisterBenchmark("sub/dec128", d128_bin<std::minus<>>, std::minus<>());
  benchmark::RegisterBenchmark("mul/lnx", lnx_bin, lnxmul);
  benchmark::RegisterBenchmark("mul/dec128", d128_bin<std::multiplies<>>, std::multiplies<>());
  benchmark::RegisterBenchmark("div/lnx", lnx_bin, lnxdiv);
  benchmark::RegisterBenchmark("div/dec128", d128_bin<std::divides<>>, std::divides<>());
#if KEL_PEER_BOOST
  benchmark::RegisterBenchmark("add/boost", boost_bin<std::plus<>>, std::plus<>());
  benchmark::RegisterBenchmark("sub/boost", boost_bin<std::minus<>>, std::minus<>());
  benchmark::RegisterBenchmark("mul/boost", boost_bin<std::multiplies<>>, std::multiplies<>());
  benchmark::RegisterBenchmark("div/boost", boost_bin<std::divides<>>, std::divides<>());
#endif

  benchmark::RegisterBenchmark("cmp/lnx", [](benchmark::State &st) {
    const auto &A = ring_a(), &B = ring_b();
    size_t i = 0;
    for (auto _ : st) {
      const auto &a = A[i % kRing], &b = B[(i * 7 + 3) % kRing];
      int c = lnxcmp(a.num, a.len, b.num, b.len);
      benchmark::DoNotOptimize(c);
      ++i;
    }
  });
  benchmark::RegisterBenchmark("cmp/memcmp", [](benchmark::State &st) {
    const auto &A = ring_a(), &B = ring_b();
    size_t i = 0;
    for (auto _ : st) {
      const auto &a = A[i % kRing], &b = B[(i * 7 + 3) % kRing];
      int c = std::memcmp(a.num, b.num, a.len < b.len ? a.len : b.len);
      benchmark::DoNotOptimize(c);
      ++i;
    }
  });
  benchmark::RegisterBenchmark("cmp/dec128", d128_bin<std::less<>>, std::less<>());
#if KEL_PEER_BOOST
  benchmark::RegisterBenchmark("cmp/boost", [](benchmark::State &st) {
    const auto &A = ring_a(), &B = ring_b();
    size_t i = 0;
    for (auto _ : st) {
      bool c = A[i % kRing].boost < B[(i * 7 + 3) % kRing].boost;
      benchmark::DoNotOptimize(c);
      ++i;
    }
  });
#endif

  benchmark::RegisterBenchmark("parse/lnx", [](benchmark::State &st) {
    const auto &A = ring_a();
    uint8_t out[22];
    size_t ol;
    size_t i = 0;
    for (auto _ : st) {
      const auto &t = A[i++ % kRing].text;
      lnxcpn(t.data(), t.size(), out, &ol, 0, 0, 0, 0, nullptr, nullptr);
      benchmark::DoNotOptimize(out);
    }
  });
#if KEL_PEER_BOOST
  benchmark::RegisterBenchmark("parse/boost", [](benchmark::State &st) {
    const auto &A = ring_a();
    size_t i = 0;
    for (auto _ : st) {
      boost_dec v(A[i++ % kRing].text);
      benchmark::DoNotOptimize(v);
    }
  });
#endif

  benchmark::RegisterBenchmark("totext/lnx", [](benchmark::State &st) {
    const auto &A = ring_a();
    char buf[LNX_TEXT_MAX];
    size_t tl;
    size_t i = 0;
    for (auto _ : st) {
      const auto &a = A[i++ % kRing];
      lnxn2t(a.num, a.len, LNX_TEXT_PLAIN, 0, buf, sizeof buf, &tl);
      benchmark::DoNotOptimize(buf);
    }
  });
#if KEL_PEER_BOOST
  benchmark::RegisterBenchmark("totext/boost", [](benchmark::State &st) {
    const auto &A = ring_a();
    size_t i = 0;
    for (auto _ : st) {
      std::string s = A[i++ % kRing].boost.str(38, std::ios_base::fixed);
      benchmark::DoNotOptimize(s);
    }
  });
#endif

  benchmark::RegisterBenchmark("fromdouble/lnx", [](benchmark::State &st) {
    const auto &A = ring_a();
    uint8_t out[22];
    size_t ol;
    size_t i = 0;
    for (auto _ : st) {
      slfpd2lnx(nullptr, A[i++ % kRing].dbl, out, &ol);
      benchmark::DoNotOptimize(out);
    }
  });
  benchmark::RegisterBenchmark("fromdouble/snprintf", [](benchmark::State &st) {
    const auto &A = ring_a();
    char buf[40];
    size_t i = 0;
    for (auto _ : st) {
      int n = std::snprintf(buf, sizeof buf, "%.17g", A[i++ % kRing].dbl);
      benchmark::DoNotOptimize(n);
      benchmark::DoNotOptimize(buf);
    }
  });
}

}  // namespace

int main(int argc, char **argv) {
  register_all();
  benchmark::Initialize(&argc, argv);
  kelbench::RatioReporter rep(kelbench::RatioReporter::Clock::kCpu);
  benchmark::RunSpecifiedBenchmarks(&rep);
  std::printf("\nratio ours / peer (below 1: ours is faster)\n");
  for (const auto &[name, t] : rep.time) {
    auto slash = name.find('/');
    if (slash == std::string::npos || name.substr(slash + 1) != "lnx") continue;
    std::string op = name.substr(0, slash);
    for (const auto &[peer, pt] : rep.time)
      if (peer.rfind(op + "/", 0) == 0 && peer != name)
        std::printf("  %-12s vs %-22s %6.2f  (%.1f vs %.1f ns CPU)\n", op.c_str(), peer.c_str(),
                    rep.ratio("number", name, peer), t, pt);
  }
  rep.print_ratios();
  benchmark::Shutdown();
  return 0;
}
