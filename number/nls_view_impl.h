// nls_view_impl.h - the territory settings the number parser needs, in a
// form of its own, so that the parser is independent of the layout of the
// language-services handle. nls_view.cpp is the one place that reads a
// handle; everything else takes a view.
#ifndef KEL_NUMBER_NLS_VIEW_IMPL_H
#define KEL_NUMBER_NLS_VIEW_IMPL_H

#include <cstddef>
#include <cstdint>

namespace lnx_internal {

enum class Alphabet : uint8_t {
  Ascii,    // ASCII-based single- or multi-byte character sets
  Ebcdic,   // EBCDIC-based character sets
  Utf16Be,  // two-byte Unicode, most significant byte first
  Utf16Le,  // two-byte Unicode, least significant byte first
};

struct NlsView {
  // The decimal character: a byte of the text's character set for Ascii and
  // Ebcdic, a UTF-16 code unit for the two-byte forms.
  uint32_t decimal;
  Alphabet alphabet;
};

constexpr NlsView kDefaultView{'.', Alphabet::Ascii};

// The NLS global context of a handle, or null when the handle has none
// (or the language services cannot be reached yet).
void *nls_global_of(void *handle);

// Fills `v` from a handle and its global context. False when the handle
// cannot be served; the parser then consumes nothing.
bool nls_view_from(void *handle, void *global, NlsView &v);

// The parser behind lnxcpn and lnxcpng, on a ready view. Returns `out`, or
// the thread's scratch buffer when out is null.
uint8_t *parse_number(const char *text, size_t textlen, const NlsView &view, uint8_t *out,
                      size_t *outlen, bool precgiven, uint32_t precision, bool scalegiven,
                      int32_t scale, size_t *consumed);

}  // namespace lnx_internal

#endif
