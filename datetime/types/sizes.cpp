// Sizes of datetime and interval values: byte-form lengths, widest default
// text, and the packed precision code.
#include "datetime/types/ldi_impl.h"
#include "ltz.h"

using namespace ldi_internal;

KELAPI int32_t LdiMaxSize(uint8_t kind, int32_t interval, size_t *size) {
  if (interval) {
    if (!valid_ikind(kind)) return LDI_ERR_KIND;
    const IKind &k = kIKinds[kind];
    *size = 4 + (k.last - k.first) + (k.frac ? 4u : 0u);
    return 0;
  }
  static constexpr uint8_t kLen[8] = {0, 4, 7, 11, 9, 13, 0, 11};
  if (!valid_kind(kind)) return LDI_ERR_KIND;
  *size = kLen[kind];
  return 0;
}

KELAPI int32_t LdiMaxDispWidth(uint8_t kind, int32_t interval, int32_t leadprec, int32_t fracprec, size_t *width) {
  if (leadprec < 0 || leadprec > 9 || fracprec < 0 || fracprec > 9) return LDI_ERR_PREC;
  size_t frac = fracprec ? 1 + static_cast<size_t>(fracprec) : 0;
  if (interval) {
    if (!valid_ikind(kind)) return LDI_ERR_KIND;
    const IKind &k = kIKinds[kind];
    // Sign, the leading field, then separator and two digits per field.
    *width = 1 + static_cast<size_t>(leadprec ? leadprec : 1) + 3u * (k.last - k.first) + (k.frac ? frac : 0);
    return 0;
  }
  if (!valid_kind(kind)) return LDI_ERR_KIND;
  // The default models: "DD-MON-RR"; "YYYY-MM-DD"; "HH24:MI:SS" + fraction;
  // a zone as its region name at the widest.
  const size_t zone = 1 + (LTZ_NAME_MAX - 1);
  switch (kind) {
    case LDI_KIND_DATE: *width = 9; break;
    case LDI_KIND_TIME: *width = 8 + frac; break;
    case LDI_KIND_TIME_TZ: *width = 8 + frac + zone; break;
    case LDI_KIND_TSTZ: *width = 19 + frac + zone; break;
    default: *width = 19 + frac; break;
  }
  return 0;
}

KELAPI int32_t LdiPrecisionCode(int32_t leadprec, int32_t fracprec, uint8_t *code) {
  if (leadprec < 0 || leadprec > 9 || fracprec < 0 || fracprec > 9) return LDI_ERR_PREC;
  *code = static_cast<uint8_t>(leadprec << 4 | fracprec);
  return 0;
}
