// kelcore params: parses a parameter file and a command line with the
// parameter manager and prints what it stored, typed.
#include <string>
#include <vector>

#include "common.h"
#include "lnx.h"
#include "lrm.h"

namespace kelcore_tool {
namespace {

const char kUsageText[] =
    "usage: kelcore params FILE [ARGS...] [--keys KEYSPEC]\n"
    "  parses FILE, then ARGS as a command line (NAME=value or -key value), and\n"
    "  prints every stored value. KEYSPEC declares the accepted keys and their\n"
    "  types: NAME:TYPE[,NAME:TYPE...] with TYPE one of bool, string, int, name,\n"
    "  number, int8 (a key without :TYPE is a string). Without --keys any key is\n"
    "  accepted as a string and the values are dumped as the manager writes them.\n";

struct TypeName {
  const char *name;
  uint8_t type;
};
const TypeName kTypes[] = {{"bool", LRM_T_BOOL}, {"string", LRM_T_STRING}, {"int", LRM_T_INT},
                           {"name", LRM_T_NAME}, {"number", LRM_T_NUMBER}, {"int8", LRM_T_INT8}};

const char *type_name(uint8_t t) {
  for (const TypeName &n : kTypes)
    if (n.type == t) return n.name;
  return "?";
}

// The declared keys; the manager keeps pointers to the names, so they live
// here for the whole run.
struct KeySpec {
  std::vector<std::string> names;
  std::vector<lrmkey> keys;
};

bool parse_keys(const char *spec, KeySpec *ks, std::string *err) {
  std::string s(spec);
  size_t p = 0;
  while (p <= s.size()) {
    size_t c = s.find(',', p);
    if (c == std::string::npos) c = s.size();
    std::string item = s.substr(p, c - p);
    p = c + 1;
    if (item.empty()) {
      *err = "empty key in KEYSPEC";
      return false;
    }
    uint8_t type = LRM_T_STRING;
    size_t colon = item.find(':');
    if (colon != std::string::npos) {
      std::string t = item.substr(colon + 1);
      item.resize(colon);
      type = 0;
      for (const TypeName &n : kTypes)
        if (t == n.name) type = n.type;
      if (type == 0) {
        *err = "unknown type '" + t + "' in KEYSPEC";
        return false;
      }
    }
    ks->names.push_back(item);
    lrmkey k{};
    k.type = type;
    ks->keys.push_back(k);
    if (c == s.size()) break;
  }
  for (size_t i = 0; i < ks->keys.size(); i++) ks->keys[i].name = ks->names[i].c_str();
  return true;
}

void write_out(void *, const char *text, size_t len) { std::fwrite(text, 1, len, stdout); }

int report(Lib &lib, lrmctx *h) {
  if (lib.report("params") == 0) {
    char buf[512];
    int32_t n = lrmpfmt(h, buf, sizeof buf);
    if (n > 0) std::fprintf(stderr, "kelcore params: %s\n", buf);
  }
  return kFail;
}

void print_value(lrmctx *h, const char *key, uint8_t type, uint32_t occ) {
  size_t klen = std::strlen(key);
  switch (type) {
    case LRM_T_BOOL: {
      uint8_t b = 0;
      lrmgbv(h, nullptr, nullptr, key, klen, occ, &b);
      std::printf("%s", b ? "TRUE" : "FALSE");
      break;
    }
    case LRM_T_INT: {
      uint32_t v = 0;
      lrmgiv(h, nullptr, nullptr, key, klen, occ, &v);
      std::printf("%u", v);
      break;
    }
    case LRM_T_INT8: {
      int64_t v = 0;
      lrmg8v(h, nullptr, nullptr, key, klen, occ, &v);
      std::printf("%lld", static_cast<long long>(v));
      break;
    }
    case LRM_T_NUMBER: {
      uint8_t num[LNX_BUFSIZE];
      size_t nl = 0;
      lrmgonv(h, nullptr, nullptr, key, klen, occ, num, &nl);
      char buf[LNX_TEXT_MAX];
      size_t tl = 0;
      if (lnxn2t(num, nl, LNX_TEXT_PLAIN, 0, buf, sizeof buf, &tl) == 0) std::printf("%.*s", static_cast<int>(tl), buf);
      break;
    }
    default: {
      const char *s = nullptr;
      lrmgsp(h, nullptr, nullptr, key, klen, occ, &s);
      std::printf("\"%s\"", s ? s : "");
      break;
    }
  }
}

}  // namespace

int cmd_params(int argc, char **argv) {
  const char *file = nullptr, *keys = nullptr;
  std::vector<const char *> args;
  for (int i = 0; i < argc; i++) {
    if (is_help(argv[i])) {
      std::fputs(kUsageText, stdout);
      return kOk;
    }
    if (std::strcmp(argv[i], "--keys") == 0) {
      if (i + 1 >= argc) return usage_error("params", kUsageText, "--keys needs a KEYSPEC");
      keys = argv[++i];
    } else if (!file) {
      file = argv[i];
    } else {
      args.push_back(argv[i]);
    }
  }
  if (!file) return usage_error("params", kUsageText, "missing FILE");
  KeySpec ks;
  if (keys) {
    std::string err;
    if (!parse_keys(keys, &ks, &err)) return usage_error("params", kUsageText, "%s", err.c_str());
  }
  Lib lib;
  lrmctx *h = lib.ok() ? lrmini(lib.ctx, nullptr, nullptr) : nullptr;
  if (!h) {
    std::fprintf(stderr, "kelcore params: cannot start the parameter manager\n");
    return kFail;
  }
  int rc = kOk;
  lrmkeyset set{};
  if (keys) {
    set.keys = ks.keys.data();
    set.count = static_cast<uint32_t>(ks.keys.size());
    set.flags = LRM_KS_NOHELP | LRM_KS_NOVERSION;
    if (lrmpsvp(h, &set) != 0) rc = report(lib, h);
  }
  if (rc == kOk && lrmpfi(h, file) != 0) rc = report(lib, h);
  if (rc == kOk && !args.empty() && lrmpaa(h, static_cast<int32_t>(args.size()), args.data()) != 0)
    rc = report(lib, h);
  if (rc == kOk) {
    if (!keys) {
      lrmdtw(h, write_out, nullptr);
    } else {
      uint32_t npos = 0;
      lrmavlo(h, nullptr, "", 0, &npos);
      for (uint32_t o = 0; o < npos; o++) {
        const char *s = nullptr;
        lrmgsp(h, nullptr, nullptr, "", 0, o, &s);
        std::printf("(positional)[%u] string = \"%s\"\n", o, s ? s : "");
      }
      for (const lrmkey &k : ks.keys) {
        uint32_t count = 0;
        lrmavlo(h, nullptr, k.name, std::strlen(k.name), &count);
        for (uint32_t o = 0; o < count; o++) {
          std::printf("%s[%u] %s = ", k.name, o, type_name(k.type));
          print_value(h, k.name, k.type, o);
          std::printf("\n");
        }
      }
    }
  }
  lrmtrm(h);
  return rc;
}

}  // namespace kelcore_tool
