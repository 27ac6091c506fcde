// Fuzz harness of the parameter manager. The first byte picks the options
// (comments, commas), the mode (single-byte or Unicode) and the source kind;
// the rest is the text. Each input is read:
//  - as a parameter file next to files it may include ("@inc.par",
//    "include loop.par", a file with a syntax error), twice: with the fast
//    path for simple settings and with every setting through the driver,
//    which must come to the same status, record and values; a text that
//    parses must dump to text that parses back to the same dump;
//  - split at NUL bytes, as command-line arguments (lrmpaa), and whole as a
//    command line and as a string;
//  - and its values are read back through the getters, in Unicode mode with
//    UTF-16 keys.
// A failed call must leave the values as they were.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "lem.h"
#include "lpm.h"
#include "lrm.h"
#include "param/lrm_impl.h"
#include "tests/support/portable.h"

namespace {

lcorectx *Library() {
  static lcorectx *ctx = lpminit();
  return ctx;
}

// A folder of included files, made once.
const std::string &Folder() {
  static std::string dir = [] {
    std::string d = kel_test::temp_folder("kel_lrm_fuzz");
    auto put = [&](const char *name, const char *text) {
      FILE *f = fopen((d + "/" + name).c_str(), "wb");
      if (f == nullptr) return;
      fputs(text, f);
      fclose(f);
    };
    put("inc.par", "n = 7\ns = (a 'b c') # x\nsec:flag = yes\n");
    put("loop.par", "s = loop\n@loop.par\n");
    put("bad.par", "s = )\n");
    return d;
  }();
  return dir;
}

const lrmkey kKeys[] = {
    {"flag", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, "a flag"},
    {"n", LRM_T_INT, 0, 1, 0, 0, 100000, "5", "a number"},
    {"size", LRM_T_INT8, 0, 0, 0, 0, 0, nullptr, nullptr},
    {"name", LRM_T_NAME, 1, 0, 0, 0, 0, nullptr, nullptr},
    {"s", LRM_T_STRING, 0, 0, 0, 0, 0, "default", nullptr},
    {"\xC3\xA4rger", LRM_T_STRING, 0, 0, 0, 0, 0, nullptr, nullptr},
};
const lrmkeyset kSet = {kKeys, 6, LRM_KS_ANYKEY | LRM_KS_ABBREV | LRM_KS_NOVERSION, nullptr, nullptr, nullptr,
                        nullptr};

void Sink(void *, const char *, size_t) {}
void Append(void *arg, const char *text, size_t len) { static_cast<std::string *>(arg)->append(text, len); }

lrmctx *Open(uint32_t flags) {
  lrmctx *h = lrminiu(Library(), nullptr, flags, nullptr, nullptr);
  if (h == nullptr) abort();
  lrmsout(h, Sink, nullptr);
  if (lrmpsvp(h, &kSet) != 0) abort();
  return h;
}

std::string Dump(lrmctx *h) {
  std::string d;
  lrmdtw(h, Append, &d);
  return d;
}

std::string Newest() {
  char buf[1024];
  int32_t n = lemgem(Library()->lemctx, 1, buf, sizeof buf);
  return n > 0 ? std::string(buf) : std::string();
}

// Parses text as a source of `kind` named as a file of the folder, as one
// call; the fast path for simple settings on or off.
uint32_t Read(lrmctx *h, const std::string &text, uint8_t kind, bool plain) {
  lrm_internal::lrmctx_rec *c = lrm_internal::rec(h);
  c->plain_parse = plain;
  static const std::string name = Folder() + "/top.par";
  lemces(Library()->lemctx);
  lrm_internal::begin_call(c);
  uint32_t st = lrm_internal::parse_source(c, text.data(), text.size(), kind, lrm_internal::kFromFile, name.c_str(), 0);
  lrm_internal::end_call(c, st == 0);
  return st;
}

// Reads every value back: the getters must agree with the count.
void Walk(lrmctx *h, bool unicode) {
  static const uint16_t kSec16[] = {'s', 'e', 'c', 0};
  const void *sec = unicode ? static_cast<const void *>(kSec16) : "sec";
  for (const char *key : {"", "s", "n", "flag", "name", "size", "x", "sec:flag", "\xC3\xA4rger"}) {
    uint16_t wkey[32];
    size_t klen = strlen(key);
    const void *k = key;
    if (unicode) {
      for (size_t i = 0; i < klen; i++) wkey[i] = static_cast<uint8_t>(key[i]);
      k = wkey;
    }
    uint32_t count = 0;
    lrmavlo(h, nullptr, k, klen, &count);
    for (uint32_t i = 0; i <= count; i++) {
      char buf[64];
      const char *p = nullptr;
      uint32_t u = 0;
      uint8_t b = 0;
      lrmgsv(h, nullptr, nullptr, k, klen, i, buf, sizeof buf, nullptr);
      lrmgsp(h, sec, nullptr, k, klen, i, &p);
      lrmgiv(h, nullptr, nullptr, k, klen, i, &u);
      lrmgbv(h, nullptr, nullptr, k, klen, i, &b);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (Library() == nullptr || size == 0) return 0;
  const uint8_t mode = data[0];
  const uint32_t flags = (mode & 1 ? LRM_OPT_COMMENTS : 0) | (mode & 2 ? LRM_OPT_COMMA : 0) |
                         (mode & 4 ? LRM_F_UNICODE : 0);
  const uint8_t kind = static_cast<uint8_t>(1 + (mode >> 3) % 3);
  const std::string text(reinterpret_cast<const char *>(data) + 1, size - 1);

  // As a source, with and without the fast path.
  std::string results[2];
  for (int plain = 0; plain < 2; plain++) {
    lrmctx *h = Open(flags);
    const std::string before = Dump(h);
    uint32_t st = Read(h, text, kind, plain != 0);
    const std::string after = Dump(h);
    results[plain] = std::to_string(st) + "\n" + (st != 0 ? Newest() : "") + "\n" + after;
    if (st != 0 && after != before) abort();  // a failed call stores nothing
    if (st == 0 && plain == 0) {
      // The dump reads back to itself.
      lrmctx *g = Open(flags);
      lrmavlc(g, nullptr, "s", 1);
      lrmavlc(g, nullptr, "n", 1);
      if (Read(g, after, 2, false) != 0 || Dump(g) != after) abort();
      lrmtrm(g);
      Walk(h, (flags & LRM_F_UNICODE) != 0);
    }
    lrmtrm(h);
  }
  if (results[0] != results[1]) abort();

  // As command-line arguments, a command line and a string.
  std::vector<std::string> args(1);
  for (char ch : text) {
    if (ch == '\0')
      args.emplace_back();
    else
      args.back().push_back(ch);
  }
  std::vector<const char *> argv;
  for (const std::string &a : args) argv.push_back(a.c_str());
  lrmctx *h = Open(flags);
  lrmslim(h, 1 << 12);
  lrmpaa(h, static_cast<int32_t>(argv.size()), argv.data());
  lrmpas(h, text.data(), text.size());
  lrmpst(h, text.data(), text.size());
  Walk(h, (flags & LRM_F_UNICODE) != 0);
  lrmtrm(h);
  lemces(Library()->lemctx);
  return 0;
}
