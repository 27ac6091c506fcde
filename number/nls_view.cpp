// nls_view.cpp - fills the parser's territory view from a kelnls10 language
// environment (the NLS handle of lnxcpn): the character-set kind decides the
// alphabet, the territory's decimal character is read in the set's own
// encoding.
#include "lx.h"
#include "number/nls_view_impl.h"

namespace lnx_internal {

void *nls_global_of(void *handle) { return lxGetGloPtr(static_cast<const lxenv *>(handle)); }

bool nls_view_from(void *handle, void *global, NlsView &v) {
  if (handle == nullptr) {
    v = kDefaultView;
    return true;
  }
  (void)global;  // the environment carries everything the parser reads
  const lxenv *env = static_cast<const lxenv *>(handle);
  const int32_t kind = lxhninfo(env, LX_CHARSET_KIND);
  uint8_t dec[8];
  const int32_t n = lxhlinfo(env, LX_DECIMAL_CHAR, reinterpret_cast<char *>(dec), sizeof dec);
  switch (kind) {
    case LX_CS_ASCII:
    case LX_CS_EBCDIC:
      // A decimal character of more than one byte cannot be matched by a
      // byte scanner; such a territory is not served.
      if (n != 1) return false;
      v.decimal = dec[0];
      v.alphabet = kind == LX_CS_EBCDIC ? Alphabet::Ebcdic : Alphabet::Ascii;
      return true;
    case LX_CS_UTF16: {
      if (n != 2) return false;
      const bool le = lxhninfo(env, LX_CHARSET_ID) == LX_CSID_AL16UTF16LE;
      v.alphabet = le ? Alphabet::Utf16Le : Alphabet::Utf16Be;
      v.decimal = le ? (uint32_t{dec[1]} << 8 | dec[0]) : (uint32_t{dec[0]} << 8 | dec[1]);
      return true;
    }
    default:
      return false;
  }
}

}  // namespace lnx_internal
