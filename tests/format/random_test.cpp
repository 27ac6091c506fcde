// Random formats and arguments, each compared byte for byte with the C
// library's vsnprintf: the text, the result, truncation at random buffer
// lengths, for lsfpv and (with the same arguments as rows) lsfpd.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "tests/format/oracle.h"
#include "tests/support/portable.h"

namespace lsftest {
namespace {

// One conversion before it is written out plainly or with positions.
struct Piece {
  std::string flags;
  int wkind = 0;  // 0 none, 1 digits, 2 star
  int width = 0;
  int pkind = 0;  // 0 none, 1 digits, 2 star, 3 a lone '.'
  int prec = 0;
  std::string len;
  char conv = 'd';
  Arg value;
};

Arg int_arg(int v) {
  Arg a;
  a.kind = kInt;
  a.i = v;
  a.row.type = LSF_ARG_INT;
  a.row.v.i = v;
  return a;
}

void set_float(Gen &g, bool ld, Piece &p) {
  Arg &a = p.value;
  if (ld) {
    p.len = "L";
    a.kind = kLongDouble;
    a.ld = g.long_double_value();
    a.has_row = false;  // rows carry doubles only
    return;
  }
  a.kind = kDouble;
  a.d = g.double_value();
  a.row.type = LSF_ARG_DOUBLE;
  a.row.v.d = a.d;
}

// positional: the C library mishandles a few things there that are not
// worth copying (L and q on integers read as int; a negative *m$ width with
// the 0 flag pads zeros on the right), so those stay out of such formats.
Piece random_piece(Gen &g, int max_prec, bool positional = false) {
  static const char convs[] = "diouxXcspfFeEgGaA";
  Piece p;
  p.conv = convs[g.range(0, sizeof convs - 2)];
  for (char f : std::string("-+ #0"))
    if (g.chance(22)) p.flags += f;
  if (g.chance(10) && !p.flags.empty()) p.flags += p.flags[0];  // repeated flag
  std::shuffle(p.flags.begin(), p.flags.end(), g.rng);
  int w = g.range(0, 99);
  if (w < 35) {
    p.wkind = 1;
    p.width = g.range(1, 30);
  } else if (w < 42) {
    p.wkind = 1;
    p.width = g.range(31, 1500);
  } else if (w < 55) {
    p.wkind = 2;
    p.width = g.chance(90) ? g.range(-30, 30) : g.range(-1500, 1500);
  }
  int q = g.range(0, 99);
  if (q < 35) {
    p.pkind = 1;
    p.prec = g.range(0, 20);
  } else if (q < 42) {
    p.pkind = 1;
    p.prec = g.range(21, max_prec);
  } else if (q < 55) {
    p.pkind = 2;
    p.prec = g.chance(90) ? g.range(-5, 25) : g.range(-1000, max_prec);
  } else if (q < 58) {
    p.pkind = 3;
  }
  Arg &a = p.value;
  switch (p.conv) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X': {
      static const char *const lens[] = {"", "", "", "hh", "h", "l", "ll", "j", "z", "t", "q", "L"};
      p.len = lens[g.range(0, positional ? 9 : 11)];
      long long v = g.int_value();
      bool is_signed = p.conv == 'd' || p.conv == 'i';
      if (p.len.empty() || p.len == "h" || p.len == "hh") {
        a.kind = kInt;
        a.i = static_cast<int>(v);
        // A row carries the value the conversion sees; h and hh still narrow.
        if (is_signed || !p.len.empty()) {
          a.row.type = LSF_ARG_INT;
          a.row.v.i = a.i;
        } else {
          a.row.type = LSF_ARG_UINT;
          a.row.v.u = static_cast<unsigned>(a.i);
        }
      } else {
        a.kind = kLong;
        a.ll = v;
        a.row.type = is_signed ? LSF_ARG_INT : LSF_ARG_UINT;
        a.row.v.i = v;
      }
      break;
    }
    case 'c':
      a.kind = kInt;
      if (g.chance(25)) {
        p.len = "l";
        a.i = g.range(1, 127);
      } else {
        a.i = g.range(0, 255);
      }
      a.row.type = g.chance(50) ? LSF_ARG_CHAR : LSF_ARG_INT;
      a.row.v.i = a.i;
      break;
    case 's':
      a.kind = kPtr;
      if (g.chance(20)) {
        p.len = "l";
        a.p = g.chance(10) ? nullptr : kWideTexts[g.range(0, 3)];
        a.row.type = LSF_ARG_WTEXT;
      } else {
        a.p = g.chance(5) ? nullptr : kTexts[g.range(0, sizeof kTexts / sizeof *kTexts - 1)];
        a.row.type = LSF_ARG_TEXT;
      }
      a.row.v.p = a.p;
      break;
    case 'p':
      a.kind = kPtr;
      a.p = g.chance(15) ? nullptr : reinterpret_cast<const void *>(static_cast<uintptr_t>(g.u64() >> g.range(0, 63)));
      a.row.type = LSF_ARG_PTR;
      a.row.v.p = a.p;
      break;
    default:
      set_float(g, g.chance(20), p);
      if (a.kind == kDouble && g.chance(10)) p.len = "l";
      break;
  }
  return p;
}

// A lone floating conversion: every decimal and hexadecimal style at small
// and huge precisions, with the values where rounding is hardest.
Piece float_piece(Gen &g, bool ld) {
  static const char convs[] = "fFeEgGaA";
  Piece p;
  p.conv = convs[g.range(0, 7)];
  p.pkind = g.chance(85) ? 1 : 0;
  p.prec = g.chance(90) ? g.range(0, ld ? 30 : 25) : g.range(ld ? 31 : 26, 1100);
  if (g.chance(20)) p.flags = "#";
  set_float(g, ld, p);
  return p;
}

std::string random_literal(Gen &g) {
  static const char *const lits[] = {"", "", " ", "x=", "] [", "%%", "text with spaces ", "\xc3\xa9", "100%% "};
  return lits[g.range(0, sizeof lits / sizeof *lits - 1)];
}

// Writes pieces as one format. Positional: every argument (star values
// included) gets a position from a random permutation, and the arguments are
// reordered to match.
void render(Gen &g, const std::vector<Piece> &ps, bool positional, std::string &fmt, std::vector<Arg> &args) {
  std::vector<Arg> slots;
  if (positional)
    for (const Piece &p : ps)
      if (p.wkind == 2 && p.width < 0 && p.flags.find('0') != std::string::npos)
        const_cast<Piece &>(p).width = -p.width;
  struct Refs {
    int w = 0, p = 0, v = 0;
  };
  std::vector<Refs> refs(ps.size());
  for (size_t i = 0; i < ps.size(); ++i) {
    if (ps[i].wkind == 2) refs[i].w = static_cast<int>(slots.size()), slots.push_back(int_arg(ps[i].width));
    if (ps[i].pkind == 2) refs[i].p = static_cast<int>(slots.size()), slots.push_back(int_arg(ps[i].prec));
    refs[i].v = static_cast<int>(slots.size());
    slots.push_back(ps[i].value);
  }
  std::vector<int> perm(slots.size());
  std::iota(perm.begin(), perm.end(), 0);
  if (positional) std::shuffle(perm.begin(), perm.end(), g.rng);
  args.assign(slots.size(), Arg{});
  for (size_t i = 0; i < slots.size(); ++i) args[perm[i]] = slots[i];
  fmt = random_literal(g);
  for (size_t i = 0; i < ps.size(); ++i) {
    const Piece &p = ps[i];
    fmt += '%';
    if (positional) fmt += std::to_string(perm[refs[i].v] + 1) + "$";
    fmt += p.flags;
    if (p.wkind == 1) fmt += std::to_string(p.width);
    if (p.wkind == 2) fmt += positional ? "*" + std::to_string(perm[refs[i].w] + 1) + "$" : "*";
    if (p.pkind == 1) fmt += "." + std::to_string(p.prec);
    if (p.pkind == 2) fmt += positional ? ".*" + std::to_string(perm[refs[i].p] + 1) + "$" : ".*";
    if (p.pkind == 3) fmt += ".";
    fmt += p.len;
    fmt += p.conv;
    fmt += random_literal(g);
  }
}

struct Checker {
  int failures = 0;
  long cases = 0;

  void fail(const std::string &what) {
    if (++failures <= 25) ADD_FAILURE() << what;
  }

  void same(const char *who, const Out &want, const Out &got, const std::string &fmt, const std::vector<Arg> &args,
            size_t len) {
    if (got.overrun) fail(std::string(who) + " wrote past the buffer: \"" + fmt + "\"" + describe(args));
    if (want.r != got.r || want.text != got.text)
      fail(std::string(who) + " differs for \"" + fmt + "\"" + describe(args) + " len " + std::to_string(len) +
           "\n  libc " + std::to_string(want.r) + " [" + want.text.substr(0, 300) + "]\n  ours " +
           std::to_string(got.r) + " [" + got.text.substr(0, 300) + "]");
  }

  // Full-length and truncated calls of every entry point against snprintf.
  void check(Gen &g, const std::string &fmt, const std::vector<Arg> &args) {
    ArgBlock block(args);
    const char *f = fmt.c_str();
    auto libc = [&](size_t len) {
      return capture(len, [&](char *b, size_t k) {
        va_list ap;
        block.start(ap);
        return vsnprintf(b, k, f, ap);
      });
    };
    int n = libc(0).r;
    if (n < 0) return;  // the C library refused (a wide character it cannot convert)
    bool rows = std::all_of(args.begin(), args.end(), [](const Arg &a) { return a.has_row; });
    std::vector<lsfarg> rowv;
    for (const Arg &a : args) rowv.push_back(a.row);
    rowv.push_back(lsfarg{});
    size_t lens[4] = {static_cast<size_t>(n) + 1, static_cast<size_t>(g.range(0, n + 1)),
                      static_cast<size_t>(g.range(0, std::min(n + 1, 12))), 0};
    for (size_t len : lens) {
      ++cases;
      Out want = libc(len);
      Out v = capture(len, [&](char *b, size_t k) {
        va_list ap;
        block.start(ap);
        return lsfpv(nullptr, b, k, f, ap);
      });
      same("lsfpv", want, v, fmt, args, len);
      if (rows) {
        Out d = capture(len, [&](char *b, size_t k) { return lsfpd(nullptr, b, k, f, rowv.data()); });
        same("lsfpd", want, d, fmt, args, len);
      }
    }
  }
};

// Mixed formats of up to three conversions, plain and with positions, then
// floating point on its own in volume.
TEST(FormatRandom, MatchesSnprintf) {
  KEL_SKIP_ON_WINDOWS("MinGW's snprintf is no glibc oracle (%p, %a, long double; it faults on some formats)");
  enum Shape { kMixed, kPositional, kDoubles, kLongDoubles };
  const struct {
    const char *what;
    Shape shape;
    int count;
  } sweeps[] = {{"mixed", kMixed, 12000}, {"positional", kPositional, 6000}, {"doubles", kDoubles, 40000},
                {"long doubles", kLongDoubles, 3000}};
  for (const auto &s : sweeps) {
    Gen g(0x5eed0001 + s.shape);
    Checker c;
    for (int i = 0; i < s.count && c.failures < 25; ++i) {
      std::vector<Piece> ps;
      if (s.shape >= kDoubles)
        ps.push_back(float_piece(g, s.shape == kLongDoubles));
      else
        for (int k = g.range(1, 3); k > 0; --k) ps.push_back(random_piece(g, s.shape == kMixed ? 1100 : 60, s.shape == kPositional));
      std::string fmt;
      std::vector<Arg> args;
      render(g, ps, s.shape == kPositional, fmt, args);
      c.check(g, fmt, args);
    }
    EXPECT_EQ(c.failures, 0) << s.what << ": of " << c.cases << " calls";
  }
}

}  // namespace
}  // namespace lsftest
