// lrm_status_impl.h - the status numbers of the parameter family under the
// names its code uses. The numbers themselves come from the message file
// of facility LRM (nls/messages/kelcore_lrm.msg) through kelmsg_kelcore_lrm.h.
#ifndef KEL_PARAM_LRM_STATUS_IMPL_H
#define KEL_PARAM_LRM_STATUS_IMPL_H

#include <cstdint>

#include "kelmsg_kelcore_lrm.h"

namespace lrm_internal {

constexpr uint32_t kOk = kelmsg::LRM_OK;
constexpr uint32_t kInternalError = kelmsg::LRM_INTERNAL_ERROR;
constexpr uint32_t kUnknownKey = kelmsg::LRM_UNKNOWN_KEY;
constexpr uint32_t kOutOfRange = kelmsg::LRM_OUT_OF_RANGE;
constexpr uint32_t kBadBase = kelmsg::LRM_BAD_BASE;
constexpr uint32_t kBadInteger = kelmsg::LRM_BAD_INTEGER;
constexpr uint32_t kBadBoolean = kelmsg::LRM_BAD_BOOLEAN;
constexpr uint32_t kNoMemory = kelmsg::LRM_NO_MEMORY;
constexpr uint32_t kAmbiguous = kelmsg::LRM_AMBIGUOUS;
constexpr uint32_t kSyntaxError = kelmsg::LRM_SYNTAX_ERROR;
constexpr uint32_t kCommaNotAllowed = kelmsg::LRM_COMMA_NOT_ALLOWED;
constexpr uint32_t kUnterminatedString = kelmsg::LRM_UNTERMINATED_STRING;
constexpr uint32_t kCannotOpen = kelmsg::LRM_CANNOT_OPEN;
constexpr uint32_t kReadError = kelmsg::LRM_READ_ERROR;
constexpr uint32_t kNestingTooDeep = kelmsg::LRM_NESTING_TOO_DEEP;
constexpr uint32_t kTooLarge = kelmsg::LRM_TOO_LARGE;
constexpr uint32_t kCommaQuoted = kelmsg::LRM_COMMA_QUOTED;
constexpr uint32_t kBadNumber = kelmsg::LRM_BAD_NUMBER;
constexpr uint32_t kNullArgument = kelmsg::LRM_NULL_ARGUMENT;
constexpr uint32_t kWrongType = kelmsg::LRM_WRONG_TYPE;
constexpr uint32_t kGetFailed = kelmsg::LRM_GET_FAILED;
constexpr uint32_t kBufferTooSmall = kelmsg::LRM_BUFFER_TOO_SMALL;
constexpr uint32_t kNotAbbreviable = kelmsg::LRM_NOT_ABBREVIABLE;
constexpr uint32_t kBadDeclaration = kelmsg::LRM_BAD_DECLARATION;
constexpr uint32_t kDuplicateKey = kelmsg::LRM_DUPLICATE_KEY;
constexpr uint32_t kBadUnicode = kelmsg::LRM_BAD_UNICODE;
constexpr uint32_t kNoKeySet = kelmsg::LRM_NO_KEY_SET;

}  // namespace lrm_internal

#endif
