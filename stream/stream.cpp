// Caller-implemented streams: the property table that names the operations,
// the set check of KelStreamInit, and the dispatch functions.
//
// A stream object holds the caller's context word and stream identifier, the
// memory context it came from, a handle area the operations share, the open
// flag and the six operation pointers. Each dispatch checks the tag first,
// then the open flag, then the operation, and otherwise hands the caller's
// result back unchanged.
#include <cstdarg>
#include <cstring>

#include "kelstream.h"
#include "sl.h"
#include "stream/stream_impl.h"

using kelstream_internal::kDeadTag;
using kelstream_internal::kStreamTag;

namespace {

enum Code : int32_t { kMemContext = 0, kOpen, kClose, kRead, kWrite, kReadChar, kWriteChar, kCodes };

// The names KelStreamInit understands, with the code that says which field
// they fill.
constexpr KelProp kStreamProps[] = {
    {"kelmem_context", kMemContext, KELPROP_POINTER, 0},
    {"open", kOpen, KELPROP_POINTER, 0},
    {"close", kClose, KELPROP_POINTER, 0},
    {"read", kRead, KELPROP_POINTER, 0},
    {"write", kWrite, KELPROP_POINTER, 0},
    {"read_char", kReadChar, KELPROP_POINTER, 0},
    {"write_char", kWriteChar, KELPROP_POINTER, 0},
    {nullptr, 0, 0, 0},
};

}  // namespace

struct KelStream {
  uint32_t tag;
  void *word;
  void *sid;
  KelMem *mem;  // null: the system allocator
  alignas(16) unsigned char handle[KELSTREAM_HANDLE_SIZE];
  int32_t open;
  KelStreamOpenFn op_open;
  KelStreamCloseFn op_close;
  KelStreamReadFn op_read;
  KelStreamWriteFn op_write;
  KelStreamReadCharFn op_read_char;
  KelStreamWriteCharFn op_write_char;
};

namespace {

bool live(const KelStream *s) noexcept { return s != nullptr && s->tag == kStreamTag; }

// Function pointers travel through the variadic list as void *.
template <class Fn>
Fn as_fn(void *p) noexcept {
  Fn f;
  static_assert(sizeof f == sizeof p, "function and data pointers differ in size");
  std::memcpy(&f, &p, sizeof f);
  return f;
}

// The set rule: a stream reads or writes, never both. Only these pairs are
// looked at, so "read" with "write_char" passes.
int32_t check_set(void *const (&v)[kCodes]) noexcept {
  bool r = v[kRead] != nullptr, w = v[kWrite] != nullptr;
  bool rc = v[kReadChar] != nullptr, wc = v[kWriteChar] != nullptr;
  if (r) return w ? KELSTREAM_BOTHWAYS : KELSTREAM_OK;
  if (w) return KELSTREAM_OK;
  if (rc) return wc ? KELSTREAM_BOTHWAYS : KELSTREAM_OK;
  if (wc) return KELSTREAM_OK;
  return KELSTREAM_NODIRECTION;
}

// The common gate of the four transfer functions: the status to return
// before calling anything, or -1 when `op` may be called.
int32_t precheck(const KelStream *s, bool have_op, bool have_other_kind) noexcept {
  if (!live(s)) return KELSTREAM_DEAD;
  if (!s->open) return KELSTREAM_NOTOPEN;
  if (!have_op) return have_other_kind ? KELSTREAM_OTHERKIND : KELSTREAM_NOOP;
  return -1;
}

}  // namespace

extern "C" {

KELAPI KelStream *KelStreamInit(void *word, void *sid, int32_t *status, const char *name, ...) {
  void *values[kCodes] = {};
  int32_t st = KELSTREAM_OK;
  va_list ap;
  va_start(ap, name);
  for (const char *n = name; n != nullptr; n = va_arg(ap, const char *)) {
    const KelProp *row = KelPropGet(kStreamProps, n);
    if (row == nullptr) {
      // The type of the value after an unknown name is unknown too, so the
      // rest of the list cannot be read.
      st = KELSTREAM_UNKNOWN;
      break;
    }
    values[row->code] = va_arg(ap, void *);
  }
  va_end(ap);
  if (st == KELSTREAM_OK) st = check_set(values);

  KelStream *s = nullptr;
  auto *mem = static_cast<KelMem *>(values[kMemContext]);
  if (st == KELSTREAM_OK) {
    void *p = mem != nullptr ? KelMemAlloc(mem, sizeof(KelStream)) : ss_mem_alc(sizeof(KelStream));
    if (p == nullptr) st = KELSTREAM_DEAD;
    s = static_cast<KelStream *>(p);
  }
  if (st != KELSTREAM_OK) {
    if (status != nullptr) *status = st;
    return nullptr;
  }
  std::memset(static_cast<void *>(s), 0, sizeof *s);
  s->tag = kStreamTag;
  s->word = word;
  s->sid = sid;
  s->mem = mem;
  s->op_open = as_fn<KelStreamOpenFn>(values[kOpen]);
  s->op_close = as_fn<KelStreamCloseFn>(values[kClose]);
  s->op_read = as_fn<KelStreamReadFn>(values[kRead]);
  s->op_write = as_fn<KelStreamWriteFn>(values[kWrite]);
  s->op_read_char = as_fn<KelStreamReadCharFn>(values[kReadChar]);
  s->op_write_char = as_fn<KelStreamWriteCharFn>(values[kWriteChar]);
  return s;
}

KELAPI int32_t KelStreamSid(KelStream *stream, void *sid, void **old) {
  if (!live(stream)) return KELSTREAM_DEAD;
  if (old != nullptr) *old = stream->sid;
  stream->sid = sid;
  return KELSTREAM_OK;
}

KELAPI void *KelStreamHandle(KelStream *stream) { return live(stream) ? stream->handle : nullptr; }

KELAPI int32_t KelStreamOpen(KelStream *stream, void *info) {
  if (!live(stream)) return KELSTREAM_DEAD;
  if (stream->open) return KELSTREAM_OK;
  if (stream->op_open != nullptr) {
    alignas(16) unsigned char scratch[KELSTREAM_HANDLE_SIZE] = {};
    int32_t rc = stream->op_open(stream->word, stream->sid, stream->handle, info != nullptr ? info : scratch);
    if (rc != 0) return rc;
  }
  stream->open = 1;
  return KELSTREAM_OK;
}

KELAPI int32_t KelStreamClose(KelStream *stream) {
  if (!live(stream)) return KELSTREAM_DEAD;
  if (!stream->open) return KELSTREAM_OK;
  if (stream->op_close != nullptr) {
    int32_t rc = stream->op_close(stream->word, stream->sid, stream->handle);
    if (rc != 0) return rc;
  }
  stream->open = 0;
  return KELSTREAM_OK;
}

KELAPI int32_t KelStreamRead(KelStream *s, void *buffer, size_t *length) {
  int32_t st = precheck(s, live(s) && s->op_read, live(s) && s->op_read_char);
  return st >= 0 ? st : s->op_read(s->word, s->sid, s->handle, buffer, length);
}

KELAPI int32_t KelStreamWrite(KelStream *s, const void *buffer, size_t *length) {
  int32_t st = precheck(s, live(s) && s->op_write, live(s) && s->op_write_char);
  return st >= 0 ? st : s->op_write(s->word, s->sid, s->handle, buffer, length);
}

KELAPI int32_t KelStreamReadChar(KelStream *s, void *chars, size_t *count) {
  int32_t st = precheck(s, live(s) && s->op_read_char, live(s) && s->op_read);
  return st >= 0 ? st : s->op_read_char(s->word, s->sid, s->handle, chars, count);
}

KELAPI int32_t KelStreamWriteChar(KelStream *s, const void *chars, size_t *count) {
  int32_t st = precheck(s, live(s) && s->op_write_char, live(s) && s->op_write);
  return st >= 0 ? st : s->op_write_char(s->word, s->sid, s->handle, chars, count);
}

KELAPI int32_t KelStreamReadable(KelStream *s) {
  return live(s) && (s->op_read != nullptr || s->op_read_char != nullptr) ? 1 : 0;
}

KELAPI int32_t KelStreamWritable(KelStream *s) {
  return live(s) && (s->op_write != nullptr || s->op_write_char != nullptr) ? 1 : 0;
}

KELAPI int32_t KelStreamWriteable(KelStream *s) { return KelStreamWritable(s); }

KELAPI int32_t KelStreamTerm(KelStream *stream) {
  if (!live(stream)) return KELSTREAM_DEAD;
  KelMem *mem = stream->mem;
  stream->tag = kDeadTag;
  if (mem != nullptr)
    KelMemFree(mem, stream);
  else
    ss_mem_fre(stream);
  return KELSTREAM_OK;
}

}  // extern "C"
