// kelcore num: a small recursive-descent evaluator of decimal expressions
// over the library's numbers. Grammar:
//   expr   := term (("+" | "-") term)*
//   term   := unary (("*" | "/") unary)*
//   unary  := "-" unary | "+" unary | primary
//   primary:= literal | "(" expr ")" | name "(" expr ("," expr)? ")"
#include <cctype>
#include <cstdint>
#include <string>

#include "common.h"
#include "lnx.h"

namespace kelcore_tool {
namespace {

const char kUsageText[] =
    "usage: kelcore num EXPR [--bytes]\n"
    "  evaluates + - * / with parentheses, unary minus and the functions\n"
    "  round(x[,n]) trunc(x[,n]) floor(x) ceil(x) mod(x,y) in decimal numbers;\n"
    "  --bytes also prints the stored bytes of the result in hex\n";

struct Num {
  uint8_t b[LNX_MAXLEN];
  size_t n = 0;
};

class Parser {
 public:
  explicit Parser(const std::string &s) : s_(s) {}
  bool parse(Num *out) {
    if (!expr(out)) return false;
    skip();
    if (p_ != s_.size()) return fail("unexpected '%c'", s_[p_]);
    return true;
  }
  const std::string &error() const { return err_; }

 private:
  bool fail(const char *fmt, char c = 0) {
    if (err_.empty()) {
      char buf[160];
      std::snprintf(buf, sizeof buf, fmt, c);
      err_ = buf;
      err_ += " at column " + std::to_string(p_ + 1);
    }
    return false;
  }
  void skip() {
    while (p_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[p_]))) p_++;
  }
  bool eat(char c) {
    skip();
    if (p_ < s_.size() && s_[p_] == c) {
      p_++;
      return true;
    }
    return false;
  }
  bool expr(Num *out) {
    if (!term(out)) return false;
    for (;;) {
      bool add = eat('+');
      if (!add && !eat('-')) return true;
      Num r;
      if (!term(&r)) return false;
      if (add)
        lnxadd(out->b, out->n, r.b, r.n, out->b, &out->n);
      else
        lnxsub(out->b, out->n, r.b, r.n, out->b, &out->n);
    }
  }
  bool term(Num *out) {
    if (!unary(out)) return false;
    for (;;) {
      bool mul = eat('*');
      if (!mul && !eat('/')) return true;
      Num r;
      if (!unary(&r)) return false;
      if (mul)
        lnxmul(out->b, out->n, r.b, r.n, out->b, &out->n);
      else
        lnxdiv(out->b, out->n, r.b, r.n, out->b, &out->n);
    }
  }
  bool unary(Num *out) {
    if (eat('-')) {
      if (!unary(out)) return false;
      lnxneg(out->b, out->n, out->b, &out->n);
      return true;
    }
    if (eat('+')) return unary(out);
    return primary(out);
  }
  bool literal(Num *out) {
    size_t start = p_;
    while (p_ < s_.size() && std::isdigit(static_cast<unsigned char>(s_[p_]))) p_++;
    if (p_ < s_.size() && s_[p_] == '.') p_++;
    while (p_ < s_.size() && std::isdigit(static_cast<unsigned char>(s_[p_]))) p_++;
    bool digits = false;
    for (size_t i = start; i < p_; i++) digits |= std::isdigit(static_cast<unsigned char>(s_[i])) != 0;
    if (!digits) {
      p_ = start;
      return fail("expected a number");
    }
    // Exponent only when digits follow (an "e" alone ends the literal).
    if (p_ < s_.size() && (s_[p_] == 'e' || s_[p_] == 'E')) {
      size_t q = p_ + 1;
      if (q < s_.size() && (s_[q] == '+' || s_[q] == '-')) q++;
      if (q < s_.size() && std::isdigit(static_cast<unsigned char>(s_[q]))) {
        while (q < s_.size() && std::isdigit(static_cast<unsigned char>(s_[q]))) q++;
        p_ = q;
      }
    }
    size_t consumed = 0;
    if (!lnxcpn(s_.data() + start, p_ - start, out->b, &out->n, 0, 0, 0, 0, &consumed, nullptr) ||
        consumed != p_ - start) {
      p_ = start;
      return fail("bad number");
    }
    return true;
  }
  bool int_arg(const Num &n, int32_t *v) {
    int64_t x = 0;
    if (!lnxint(n.b, n.n) || lnxsni(n.b, n.n, &x, sizeof x, LNX_SIGNED) != 0 || x < -200 || x > 200)
      return fail("the places argument must be an integer between -200 and 200");
    *v = static_cast<int32_t>(x);
    return true;
  }
  bool call(const std::string &name, Num *out) {
    Num a, b;
    if (!expr(&a)) return false;
    bool two = eat(',');
    if (two && !expr(&b)) return false;
    if (!eat(')')) return fail("expected ')'");
    if (name == "round" || name == "trunc") {
      int32_t places = 0;
      if (two && !int_arg(b, &places)) return false;
      if (name == "round")
        lnxrou(a.b, a.n, out->b, &out->n, places);
      else
        lnxtru(a.b, a.n, out->b, &out->n, places);
    } else if (name == "floor" || name == "ceil") {
      if (two) return fail("too many arguments");
      if (name == "floor")
        lnxflo(a.b, a.n, out->b, &out->n);
      else
        lnxcei(a.b, a.n, out->b, &out->n);
    } else if (name == "mod") {
      if (!two) return fail("mod needs two arguments");
      lnxmod(a.b, a.n, b.b, b.n, out->b, &out->n);
    } else {
      return fail("unknown function");
    }
    return true;
  }
  bool primary(Num *out) {
    skip();
    if (p_ >= s_.size()) return fail("unexpected end of expression");
    if (eat('(')) {
      if (!expr(out)) return false;
      if (!eat(')')) return fail("expected ')'");
      return true;
    }
    if (std::isalpha(static_cast<unsigned char>(s_[p_]))) {
      size_t start = p_;
      while (p_ < s_.size() && std::isalpha(static_cast<unsigned char>(s_[p_]))) p_++;
      std::string name = s_.substr(start, p_ - start);
      if (!eat('(')) {
        p_ = start;
        return fail("expected a number");
      }
      return call(name, out);
    }
    return literal(out);
  }

  const std::string &s_;
  size_t p_ = 0;
  std::string err_;
};

}  // namespace

int cmd_num(int argc, char **argv) {
  const char *text = nullptr;
  bool bytes = false;
  for (int i = 0; i < argc; i++) {
    if (is_help(argv[i])) {
      std::fputs(kUsageText, stdout);
      return kOk;
    }
    if (std::strcmp(argv[i], "--bytes") == 0) {
      bytes = true;
    } else if (argv[i][0] == '-' && argv[i][1] == '-') {
      return usage_error("num", kUsageText, "unknown option '%s'", argv[i]);
    } else if (text) {
      return usage_error("num", kUsageText, "more than one expression (quote it)");
    } else {
      text = argv[i];
    }
  }
  if (!text) return usage_error("num", kUsageText, "missing EXPR");
  std::string s(text);
  Parser p(s);
  Num r;
  if (!p.parse(&r)) {
    std::fprintf(stderr, "kelcore num: '%s': %s\n", text, p.error().c_str());
    return kFail;
  }
  char buf[LNX_TEXT_MAX];
  size_t len = 0;
  if (lnxn2t(r.b, r.n, LNX_TEXT_PLAIN, 0, buf, sizeof buf, &len) != 0) {
    std::fprintf(stderr, "kelcore num: cannot write the result\n");
    return kFail;
  }
  std::printf("%.*s\n", static_cast<int>(len), buf);
  if (bytes) {
    for (size_t i = 0; i < r.n; i++) std::printf("%s%02X", i ? " " : "", r.b[i]);
    std::printf("\n");
  }
  return kOk;
}

}  // namespace kelcore_tool
