// Fuzz harness of the parameter manager: the input is read as a parameter
// file, and split at NUL bytes as command-line arguments. A file that parses
// must dump to text that parses back to the same dump.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "lem.h"
#include "lpm.h"
#include "lrm.h"
#include "param/lrm_impl.h"

namespace {

lcorectx *Library() {
  static lcorectx *ctx = lpminit();
  return ctx;
}

const lrmkey kKeys[] = {
    {"flag", LRM_T_BOOL, 0, 0, 0, 0, 0, nullptr, "a flag"},
    {"n", LRM_T_INT, 0, 1, 0, 0, 100000, nullptr, "a number"},
    {"size", LRM_T_INT8, 0, 0, 0, 0, 0, nullptr, nullptr},
    {"name", LRM_T_NAME, 1, 0, 0, 0, 0, nullptr, nullptr},
    {"s", LRM_T_STRING, 0, 0, 0, 0, 0, "default", nullptr},
};
const lrmkeyset kSet = {kKeys, 5, LRM_KS_ANYKEY | LRM_KS_ABBREV | LRM_KS_NOVERSION, nullptr, nullptr, nullptr,
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (Library() == nullptr) return 0;
  uint32_t flags = size > 0 ? (data[0] & 1 ? LRM_OPT_COMMENTS : 0) | (data[0] & 2 ? LRM_OPT_COMMA : 0) : 0;
  const char *text = reinterpret_cast<const char *>(data);

  // As a parameter file.
  lrmctx *h = Open(flags);
  uint32_t st = lrm_internal::parse_text(lrm_internal::rec(h), text, size, 2, "fuzz", 1);
  if (st == 0) {
    std::string d1, d2;
    lrmdtw(h, Append, &d1);
    lrmctx *g = Open(flags);
    lrmavlc(g, nullptr, "s", 1);
    if (lrm_internal::parse_text(lrm_internal::rec(g), d1.data(), d1.size(), 2, "dump", 1) != 0) abort();
    lrmdtw(g, Append, &d2);
    if (d1 != d2) abort();
    lrmtrm(g);
  }
  lrmtrm(h);

  // As command-line arguments.
  std::vector<std::string> args;
  std::string cur;
  for (size_t i = 0; i < size; i++) {
    if (data[i] == 0) {
      args.push_back(cur);
      cur.clear();
    } else {
      cur.push_back(static_cast<char>(data[i]));
    }
  }
  args.push_back(cur);
  std::vector<const char *> argv;
  for (const std::string &a : args) argv.push_back(a.c_str());
  h = Open(flags);
  lrmpaa(h, static_cast<int32_t>(argv.size()), argv.data());
  lrmpst(h, text, strnlen(text, size));
  lrmtrm(h);
  lemces(Library()->lemctx);
  return 0;
}
