// URL parsing, composing and reference resolution.
//
// The parser is a single left-to-right pass over the generic URI syntax
// (scheme, authority, path, query, fragment) that records each part as a
// view into the caller's text and checks its characters against the class
// table below; nothing is copied or decoded. Resolution merges a reference
// with its base in a scratch buffer, removes dot segments in place there
// and composes the target into the caller's buffer.
//
// Sections: character classes; host checks; lpuparse; composing;
// dot-segment removal; lpuresolve.
#include <string_view>

#include "sl.h"
#include "url/url_impl.h"

namespace lpu_internal {
namespace {

using sv = std::string_view;

// ------------------------------------------------------ character classes
constexpr uint8_t kUnres = 1, kSub = 2, kAlpha = 4, kDigit = 8;

constexpr auto kClass = [] {
  struct T {
    uint8_t v[256]{};
  } t;
  for (int c = 'a'; c <= 'z'; c++) t.v[c] = kUnres | kAlpha;
  for (int c = 'A'; c <= 'Z'; c++) t.v[c] = kUnres | kAlpha;
  for (int c = '0'; c <= '9'; c++) t.v[c] = kUnres | kDigit;
  for (char c : sv("-._~")) t.v[static_cast<uint8_t>(c)] = kUnres;
  for (char c : sv("!$&'()*+,;=")) t.v[static_cast<uint8_t>(c)] = kSub;
  return t;
}();

inline bool is(char c, uint8_t m) { return (kClass.v[static_cast<uint8_t>(c)] & m) != 0; }

// Checks that s holds only unreserved, sub-delims, complete percent escapes
// and the characters of `extra`. Returns the offset of the first bad
// character, or npos.
size_t check(sv s, sv extra) {
  for (size_t i = 0; i < s.size(); i++) {
    char c = s[i];
    if (is(c, kUnres | kSub)) continue;
    if (c == '%') {
      if (i + 2 < s.size() && hexval(s[i + 1]) >= 0 && hexval(s[i + 2]) >= 0) {
        i += 2;
        continue;
      }
      return i;
    }
    if (extra.find(c) != sv::npos) continue;
    return i;
  }
  return sv::npos;
}

// ------------------------------------------------------------ host checks
// dec-octet: 0-255 without leading zeros.
bool octet(sv s) {
  if (s.empty() || s.size() > 3) return false;
  for (char c : s)
    if (!is(c, kDigit)) return false;
  if (s.size() > 1 && s[0] == '0') return false;
  int v = 0;
  for (char c : s) v = v * 10 + (c - '0');
  return v <= 255;
}

bool ipv4(sv s) {
  for (int k = 0; k < 3; k++) {
    size_t d = s.find('.');
    if (d == sv::npos || !octet(s.substr(0, d))) return false;
    s.remove_prefix(d + 1);
  }
  return octet(s);
}

bool ipfuture(sv s) {
  // "v" 1*HEXDIG "." 1*( unreserved / sub-delims / ":" )
  size_t i = 1;
  while (i < s.size() && hexval(s[i]) >= 0) i++;
  if (i == 1 || i >= s.size() || s[i] != '.') return false;
  sv rest = s.substr(i + 1);
  if (rest.empty()) return false;
  for (char c : rest)
    if (!is(c, kUnres | kSub) && c != ':') return false;
  return true;
}

bool ipv6(sv s) {
  if (!s.empty() && (s[0] == 'v' || s[0] == 'V')) return ipfuture(s);
  size_t i = 0, n = s.size();
  int groups = 0;
  bool dbl = false;
  if (n >= 2 && s[0] == ':' && s[1] == ':') {
    dbl = true;
    i = 2;
    if (i == n) return true;
  } else if (n == 0 || s[0] == ':') {
    return false;
  }
  for (;;) {
    size_t start = i;
    while (i < n && i - start < 5 && hexval(s[i]) >= 0) i++;
    if (i < n && s[i] == '.') {
      // An IPv4 address ends the literal and counts as two groups.
      if (!ipv4(s.substr(start))) return false;
      groups += 2;
      break;
    }
    if (i == start || i - start > 4) return false;
    groups++;
    if (i == n) break;
    if (s[i] != ':') return false;
    i++;
    if (i < n && s[i] == ':') {
      if (dbl) return false;
      dbl = true;
      i++;
      if (i == n) break;
    } else if (i == n) {
      return false;
    }
  }
  return dbl ? groups <= 7 : groups == 8;
}

lpupart part(const char *base, size_t off, size_t len) { return lpupart{base + off, len}; }

// -------------------------------------------------------------- composing
void compose(Out &o, const lpuurl *u) {
  if (u->scheme.ptr != nullptr) {
    o.put(u->scheme.ptr, u->scheme.len);
    o.put(':');
  }
  if (u->host.ptr != nullptr) {
    o.put("//", 2);
    if (u->user.ptr != nullptr || u->password.ptr != nullptr) {
      if (u->user.ptr != nullptr) o.put(u->user.ptr, u->user.len);
      if (u->password.ptr != nullptr) {
        o.put(':');
        o.put(u->password.ptr, u->password.len);
      }
      o.put('@');
    }
    bool br = u->hosttype == LPU_HOST_IPV6;
    if (br) o.put('[');
    o.put(u->host.ptr, u->host.len);
    if (br) o.put(']');
    if (u->port.ptr != nullptr) {
      o.put(':');
      o.put(u->port.ptr, u->port.len);
    } else if (u->portnum >= 0) {
      char d[12];
      int k = 0;
      int32_t v = u->portnum;
      do {
        d[k++] = static_cast<char>('0' + v % 10);
        v /= 10;
      } while (v > 0);
      o.put(':');
      while (k > 0) o.put(d[--k]);
    }
  }
  if (u->path.ptr != nullptr) {
    sv path(u->path.ptr, u->path.len);
    if (u->host.ptr == nullptr) {
      // Without an authority, a path starting "//" would read back as one,
      // and a relative path whose first segment has a ":" as a scheme: a
      // leading "/." or "./" keeps their meaning (dot removal drops it).
      if (path.substr(0, 2) == "//") {
        o.put("/.", 2);
      } else if (u->scheme.ptr == nullptr && path.substr(0, path.find('/')).find(':') != sv::npos) {
        o.put("./", 2);
      }
    }
    o.put(path.data(), path.size());
  }
  if (u->query.ptr != nullptr) {
    o.put('?');
    o.put(u->query.ptr, u->query.len);
  }
  if (u->fragment.ptr != nullptr) {
    o.put('#');
    o.put(u->fragment.ptr, u->fragment.len);
  }
}

// --------------------------------------------------- dot-segment removal
// Removes dot segments of p[0..n) in place (the output never overtakes the
// input) and returns the new length.
size_t rmdot(char *p, size_t n) {
  size_t i = 0, o = 0;
  auto starts = [&](sv pre) { return n - i >= pre.size() && sv(p + i, pre.size()) == pre; };
  auto rest_is = [&](sv s) { return sv(p + i, n - i) == s; };
  auto drop_last = [&] {
    while (o > 0 && p[o - 1] != '/') o--;
    if (o > 0) o--;
  };
  while (i < n) {
    if (starts("../")) {
      i += 3;
    } else if (starts("./")) {
      i += 2;
    } else if (starts("/./")) {
      i += 2;
    } else if (rest_is("/.")) {
      i += 1;
      p[i] = '/';
    } else if (starts("/../")) {
      i += 3;
      drop_last();
    } else if (rest_is("/..")) {
      i += 2;
      p[i] = '/';
      drop_last();
    } else if (rest_is(".") || rest_is("..")) {
      i = n;
    } else {
      if (p[i] == '/') p[o++] = p[i++];
      while (i < n && p[i] != '/') p[o++] = p[i++];
    }
  }
  return o;
}

// Scratch memory: on the stack when small, else from the system allocator
// (it never reaches the caller).
class Scratch {
 public:
  explicit Scratch(size_t n) : p_(n <= sizeof small_ ? small_ : static_cast<char *>(ss_mem_alc(n))) {}
  ~Scratch() {
    if (p_ != small_) ss_mem_fre(p_);
  }
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;
  char *get() const { return p_; }

 private:
  char small_[512];
  char *p_;
};

}  // namespace

// Parses without recording; returns the offset of the first error or -1
// for success, with *why naming the problem.
int64_t parse_url(const char *text, size_t len, lpuurl *u, const char **why) {
  *u = lpuurl{};
  u->portnum = -1;
  sv s(text, len);
  size_t pos = 0;

  // scheme
  size_t d = s.find_first_of(":/?#");
  if (d != sv::npos && s[d] == ':') {
    if (d == 0 || !is(s[0], kAlpha)) {
      *why = "bad scheme or colon in first path segment";
      return static_cast<int64_t>(d);
    }
    for (size_t i = 1; i < d; i++) {
      if (!is(s[i], kAlpha | kDigit) && s[i] != '+' && s[i] != '-' && s[i] != '.') {
        *why = "bad character in scheme";
        return static_cast<int64_t>(i);
      }
    }
    u->scheme = part(text, 0, d);
    pos = d + 1;
  }

  // authority
  if (s.substr(pos, 2) == "//") {
    pos += 2;
    size_t end = s.find_first_of("/?#", pos);
    if (end == sv::npos) end = len;
    sv auth = s.substr(pos, end - pos);
    size_t hp = pos;  // start of host[:port]
    size_t at = auth.rfind('@');
    if (at != sv::npos) {
      sv ui = auth.substr(0, at);
      size_t bad = check(ui, ":");
      if (bad != sv::npos) {
        *why = "bad character in user information";
        return static_cast<int64_t>(pos + bad);
      }
      size_t colon = ui.find(':');
      if (colon == sv::npos) {
        u->user = part(text, pos, at);
      } else {
        u->user = part(text, pos, colon);
        u->password = part(text, pos + colon + 1, at - colon - 1);
      }
      hp = pos + at + 1;
    }
    sv hostport = s.substr(hp, end - hp);
    size_t portsep;
    if (!hostport.empty() && hostport[0] == '[') {
      size_t rb = hostport.find(']');
      if (rb == sv::npos) {
        *why = "unterminated IP literal";
        return static_cast<int64_t>(hp);
      }
      if (!ipv6(hostport.substr(1, rb - 1))) {
        *why = "bad IP literal";
        return static_cast<int64_t>(hp + 1);
      }
      u->host = part(text, hp + 1, rb - 1);
      u->hosttype = LPU_HOST_IPV6;
      if (rb + 1 < hostport.size() && hostport[rb + 1] != ':') {
        *why = "text after IP literal";
        return static_cast<int64_t>(hp + rb + 1);
      }
      portsep = rb + 1 < hostport.size() ? rb + 1 : sv::npos;
    } else {
      portsep = hostport.find(':');
      sv host = hostport.substr(0, portsep);
      size_t bad = check(host, "");
      if (bad != sv::npos) {
        *why = "bad character in host";
        return static_cast<int64_t>(hp + bad);
      }
      u->host = part(text, hp, host.size());
      u->hosttype = ipv4(host) ? LPU_HOST_IPV4 : LPU_HOST_NAME;
    }
    if (portsep != sv::npos) {
      sv port = hostport.substr(portsep + 1);
      int64_t v = 0;
      for (size_t i = 0; i < port.size(); i++) {
        if (!is(port[i], kDigit)) {
          *why = "bad character in port";
          return static_cast<int64_t>(hp + portsep + 1 + i);
        }
        v = v * 10 + (port[i] - '0');
        if (v > 65535) {
          *why = "port out of range";
          return static_cast<int64_t>(hp + portsep + 1);
        }
      }
      u->port = part(text, hp + portsep + 1, port.size());
      u->portnum = port.empty() ? -1 : static_cast<int32_t>(v);
    }
    pos = end;
  }

  // path
  size_t pend = s.find_first_of("?#", pos);
  if (pend == sv::npos) pend = len;
  size_t bad = check(s.substr(pos, pend - pos), ":@/");
  if (bad != sv::npos) {
    *why = "bad character in path";
    return static_cast<int64_t>(pos + bad);
  }
  u->path = part(text, pos, pend - pos);
  pos = pend;

  if (pos < len && s[pos] == '?') {
    size_t qend = s.find('#', pos + 1);
    if (qend == sv::npos) qend = len;
    bad = check(s.substr(pos + 1, qend - pos - 1), ":@/?");
    if (bad != sv::npos) {
      *why = "bad character in query";
      return static_cast<int64_t>(pos + 1 + bad);
    }
    u->query = part(text, pos + 1, qend - pos - 1);
    pos = qend;
  }
  if (pos < len && s[pos] == '#') {
    bad = check(s.substr(pos + 1), ":@/?");
    if (bad != sv::npos) {
      *why = "bad character in fragment";
      return static_cast<int64_t>(pos + 1 + bad);
    }
    u->fragment = part(text, pos + 1, len - pos - 1);
  }
  return -1;
}

}  // namespace lpu_internal

using namespace lpu_internal;

extern "C" {

KELAPI int32_t lpuparse(void *uctx, const char *text, size_t len, lpuurl *url) {
  if (url == nullptr || (text == nullptr && len > 0)) {
    rec(uctx, kelmsg::LPU_BADARG, "lpuparse");
    if (url != nullptr) *url = lpuurl{};
    return -1;
  }
  const char *why = "";
  int64_t off = parse_url(text == nullptr ? "" : text, len, url, &why);
  if (off >= 0) {
    *url = lpuurl{};
    recn(uctx, kelmsg::LPU_BADURL, off, why);
    return -1;
  }
  return 0;
}

KELAPI int32_t lpucompose(void *uctx, const lpuurl *url, char *buf, size_t bufl, size_t *outl) {
  if (url == nullptr) {
    rec(uctx, kelmsg::LPU_BADARG, "lpucompose");
    return -1;
  }
  Out o{buf, buf == nullptr ? 0 : bufl};
  compose(o, url);
  return o.finish(uctx, outl);
}

KELAPI int32_t lpurmdot(void *uctx, const char *p, size_t len, char *buf, size_t bufl, size_t *outl) {
  if (p == nullptr && len > 0) {
    rec(uctx, kelmsg::LPU_BADARG, "lpurmdot");
    return -1;
  }
  Scratch sc(len + 1);
  if (sc.get() == nullptr) {
    rec(uctx, kelmsg::LPU_NOMEM, "lpurmdot");
    return -1;
  }
  if (len > 0) memcpy(sc.get(), p, len);
  size_t n = rmdot(sc.get(), len);
  Out o{buf, buf == nullptr ? 0 : bufl};
  o.put(sc.get(), n);
  return o.finish(uctx, outl);
}

KELAPI int32_t lpuresolve(void *uctx, const char *base, size_t basel, const char *ref, size_t refl, char *buf,
                          size_t bufl, size_t *outl) {
  if ((base == nullptr && basel > 0) || (ref == nullptr && refl > 0)) {
    rec(uctx, kelmsg::LPU_BADARG, "lpuresolve");
    return -1;
  }
  lpuurl b, r;
  if (lpuparse(uctx, base ? base : "", basel, &b) != 0 || lpuparse(uctx, ref ? ref : "", refl, &r) != 0) return -1;
  if (b.scheme.ptr == nullptr) {
    rec(uctx, kelmsg::LPU_NOTABS, "no scheme");
    return -1;
  }
  Scratch sc(b.path.len + r.path.len + 2);
  if (sc.get() == nullptr) {
    rec(uctx, kelmsg::LPU_NOMEM, "lpuresolve");
    return -1;
  }
  char *p = sc.get();
  size_t pl = 0;
  lpuurl t = r;
  auto take_path = [&](const lpupart &x) {
    memcpy(p, x.ptr, x.len);
    pl = rmdot(p, x.len);
  };
  if (r.scheme.ptr != nullptr) {
    take_path(r.path);
  } else {
    if (r.host.ptr != nullptr) {
      take_path(r.path);
    } else {
      if (r.path.len == 0) {
        memcpy(p, b.path.ptr, b.path.len);
        pl = b.path.len;
        t.query = r.query.ptr != nullptr ? r.query : b.query;
      } else if (r.path.ptr[0] == '/') {
        take_path(r.path);
      } else {
        // Merge: the base path up to its last "/" (or "/" for an empty path
        // under an authority), then the reference's path.
        if (b.host.ptr != nullptr && b.path.len == 0) {
          p[pl++] = '/';
        } else {
          size_t k = b.path.len;
          while (k > 0 && b.path.ptr[k - 1] != '/') k--;
          memcpy(p, b.path.ptr, k);
          pl = k;
        }
        memcpy(p + pl, r.path.ptr, r.path.len);
        pl = rmdot(p, pl + r.path.len);
      }
      t.user = b.user;
      t.password = b.password;
      t.host = b.host;
      t.port = b.port;
      t.portnum = b.portnum;
      t.hosttype = b.hosttype;
    }
    t.scheme = b.scheme;
  }
  t.path = lpupart{p, pl};
  Out o{buf, buf == nullptr ? 0 : bufl};
  compose(o, &t);
  return o.finish(uctx, outl);
}

}  // extern "C"
