// Arbitrary text into the literal parser, with limits and territory views
// taken from the first bytes: the result is always a well-formed number, the
// consumed count never exceeds the text, and its plain text parses back.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "lnx.h"
#include "number/nls_view_impl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 4) return 0;
  const uint8_t flags = data[0];
  const uint32_t prec = data[1] % 50;
  const int32_t scale = static_cast<int8_t>(data[2]);
  const char *text = reinterpret_cast<const char *>(data + 4);
  size_t len = size - 4;
  if (len == 0) return 0;
  uint8_t out[22];
  size_t ol = 0, used = 0;
  using namespace lnx_internal;
  static const NlsView views[] = {{'.', Alphabet::Ascii}, {',', Alphabet::Ascii},
                                  {0x4B, Alphabet::Ebcdic}, {'.', Alphabet::Utf16Be},
                                  {0x066B, Alphabet::Utf16Le}};
  const NlsView &v = views[data[3] % 5];
  parse_number(text, len, v, out, &ol, flags & 1, prec, flags & 2, scale, &used);
  if (lnxchk(out, ol) != 1) abort();
  if (used > len) abort();
  // Length-prefixed text and output through the public entry.
  if (len < 256 && (flags & 4)) {
    char t[257];
    t[0] = static_cast<char>(len);
    memcpy(t + 1, text, len);
    uint8_t *r = lnxcpn(t, 0, nullptr, nullptr, flags & 1, prec, flags & 2, scale, &used, nullptr);
    if (!r || lnxchk(r, 0) != 1) abort();
  }
  char back[LNX_TEXT_MAX];
  size_t bl;
  if (lnxn2t(out, ol, LNX_TEXT_PLAIN, 0, back, sizeof back, &bl) != 0) abort();
  if (lnxint(out, ol) < 3) {
    uint8_t again[22];
    size_t al;
    lnxcpn(back, bl, again, &al, 0, 0, 0, 0, nullptr, nullptr);
    if (al != ol || memcmp(again, out, ol) != 0) abort();
  }
  return 0;
}
