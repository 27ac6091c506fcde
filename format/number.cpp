// number.cpp - the formatter's %N directive: a library decimal number
// (length-prefixed bytes) written as text.
//
// The digits come from the number family's own text conversion, so that
// what the formatter prints always parses back to the same number. The
// directive adds only the printf field handling: sign flags, width, '-' and
// '0' padding. A precision asks for that many places after the point; the
// number family renders at most kExactPlaces of them, which is more than any
// number has, and the rest are zeros appended here, so a huge precision costs
// time in proportion to the text, not a buffer.
#include "format/format_impl.h"
#include "kelmsg_kelcore_lsf.h"
#include "lem.h"
#include "lnx.h"
#include "lpm.h"

namespace lsf_internal {
namespace {

// The smallest number has its last digit 2 * 65 + 38 places after the point;
// anything beyond is always zero.
constexpr int32_t kExactPlaces = 176;
// Sign, 126 integer digits, the point and kExactPlaces decimals, with room.
constexpr size_t kTextCap = 384;

}  // namespace

// lsfpcon: converts one number for one conversion; false (nothing
// written) for a null pointer or bytes that are no well-formed number.
bool lsfpcon(Sink &o, const Spec &s, const uint8_t *num) {
  if (num == nullptr || lnxchk(num, 0) == 0) return false;
  char text[kTextCap];
  size_t n = 0;
  int32_t extra = 0;  // zeros appended past what the number family renders
  int32_t r;
  if (s.prec >= 0) {
    int32_t places = s.prec;
    if (places > kExactPlaces) {
      extra = places - kExactPlaces;
      places = kExactPlaces;
    }
    r = lnxn2t(num, 0, LNX_TEXT_FIXED, places, text, sizeof text, &n);
  } else {
    r = lnxn2t(num, 0, s.alt ? LNX_TEXT_SHORTEST : LNX_TEXT_PLAIN, 0, text, sizeof text, &n);
  }
  if (r != 0) return false;
  // Infinities come back as words; the places apply to finite values only.
  bool finite = n == 0 || (text[n - 1] >= '0' && text[n - 1] <= '9');
  if (!finite) extra = 0;

  const char *body = text;
  char sign = 0;
  if (n > 0 && text[0] == '-') {
    sign = '-';
    ++body;
    --n;
  } else if (s.plus) {
    sign = '+';
  } else if (s.space) {
    sign = ' ';
  }
  uint64_t blen = n + static_cast<uint64_t>(extra);
  Pad pad = field_pad(s, sign ? 1 : 0, blen, finite);
  o.fill(' ', pad.left);
  if (sign) o.put(sign);
  o.fill('0', pad.zeros);
  o.write(body, n);
  o.fill('0', static_cast<uint64_t>(extra));
  o.fill(' ', pad.right);
  return true;
}

// Records LSF 10 on the caller's error stack when ctx is a started library.
void report_bad_number(void *ctx) {
  auto *core = static_cast<lcorectx *>(ctx);
  if (core == nullptr || core->lemctx == nullptr) return;
  lemfac *fac = lemfaa(core->lemctx, nullptr, "KELCORE", "LSF", kelmsg::LSF_INTERNAL, kelmsg::LSF_FAIL);
  if (fac == nullptr) return;
  lemrec(core->lemctx, fac, kelmsg::LSF_BADNUM, 1, LEM_ARG_END);
  lemfaf(core->lemctx, fac);
}

}  // namespace lsf_internal
