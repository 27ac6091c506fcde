// Buffered files.
//
// One buffer per file serves either reading or writing, never both at once.
// `sys` is where the system handle's position stands; the caller's position
// is derived from it and the buffer state:
//   reading: buf[0, rlen) came from the file at sys - rlen; the caller is at
//            sys - rlen + rpos
//   writing: buf[0, wlen) waits to go to the file at sys; the caller is at
//            sys + wlen
// A switch of direction first settles the buffer (writes it, or moves the
// handle back over what was read ahead). Requests at least as large as the
// buffer bypass it, so a caller with its own large blocks pays no copy.
//
// Sections: records and recording; open and close; reading; writing;
// position and size.
#include <cstring>

#include "file/lfi_impl.h"
#include "kelmsg_kelcore_lfi.h"
#include "sl.h"

using namespace lfi_internal;

struct lfifile {
  uint32_t magic;
  lfifile *prev, *next;  // the context's open files
  uint32_t mode;  // LFI_* as opened (LFI_WRITE added for LFI_APPEND)
  int64_t h;
  lfictx *ctx;
  lmmheap *heap;
  char *buf;
  size_t cap;
  size_t rpos, rlen;  // reading state
  size_t wlen;        // writing state
  int64_t sys;        // position of the handle
  bool eof;
  char name[];        // the name as opened, then the buffer
};

namespace {

constexpr uint32_t kFileMagic = 0x4C464946;  // "LFIF"

// -------------------------------------------------- records and recording

bool check(void *fctx, lfifile *f, lfictx **out) noexcept {
  lfictx *c = ctx_of(fctx);
  *out = c;
  if (c == nullptr) return false;
  if (f == nullptr || f->magic != kFileMagic) {
    rec(c, kelmsg::LFI_BADARG, "a file function (no open file given)", 0);
    return false;
  }
  return true;
}

// Writes the pending output. On failure the buffer is dropped: the caller
// was told through the record, and retrying the same bytes would only fail
// again or land at the wrong place.
// Writes n bytes at the handle's position and keeps the known system
// position in step (in append mode the system decides where they went).
bool write_direct(lfifile *f, const char *in, size_t n) noexcept {
  if (slfwrite(f->h, in, n) < 0) {
    rec_sys(f->ctx, kelmsg::LFI_WRITEFAIL, f->name, slerrno());
    return false;
  }
  if (f->mode & LFI_APPEND) {
    int64_t p = slfseek(f->h, 0, SLF_SEEK_CUR);
    if (p < 0) {
      rec(f->ctx, kelmsg::LFI_SEEK, f->name, slerrno());
      return false;
    }
    f->sys = p;
  } else {
    f->sys += static_cast<int64_t>(n);
  }
  return true;
}

bool flush_out(lfifile *f) noexcept {
  if (f->wlen == 0) return true;
  size_t n = f->wlen;
  f->wlen = 0;
  return write_direct(f, f->buf, n);
}

// Gives back what was read ahead, so that the handle stands at the caller's
// position.
bool settle_in(lfifile *f) noexcept {
  if (f->rlen == 0) return true;
  size_t ahead = f->rlen - f->rpos;
  f->rlen = f->rpos = 0;
  if (ahead == 0) return true;
  int64_t p = slfseek(f->h, f->sys - static_cast<int64_t>(ahead), SLF_SEEK_SET);
  if (p < 0) {
    rec(f->ctx, kelmsg::LFI_SEEK, f->name, slerrno());
    return false;
  }
  f->sys = p;
  return true;
}


}  // namespace

namespace lfi_internal {

void track(lfictx *c, lfifile *f) noexcept {
  slcsenter(&c->lock);
  f->prev = nullptr;
  f->next = c->files;
  if (c->files != nullptr) c->files->prev = f;
  c->files = f;
  slcsleave(&c->lock);
}

void untrack(lfictx *c, lfifile *f) noexcept {
  slcsenter(&c->lock);
  if (f->prev != nullptr)
    f->prev->next = f->next;
  else
    c->files = f->next;
  if (f->next != nullptr) f->next->prev = f->prev;
  f->prev = f->next = nullptr;
  slcsleave(&c->lock);
}

int32_t close_all(lfictx *c) noexcept {
  int32_t n = 0;
  for (;;) {
    slcsenter(&c->lock);
    lfifile *f = c->files;
    if (f != nullptr) {
      c->files = f->next;
      if (f->next != nullptr) f->next->prev = nullptr;
    }
    slcsleave(&c->lock);
    if (f == nullptr) return n;
    if (f->wlen > 0) slfwrite(f->h, f->buf, f->wlen);
    slfclose(f->h);
    f->magic = 0;
    lmmfree(mctx_of(c), f->heap, f, 0);
    n++;
  }
}

}  // namespace lfi_internal

extern "C" {

// ----------------------------------------------------------- open and close

KELAPI lfifile *lfiopen(void *fctx, const char *path, uint32_t mode, size_t bufsize) {
  lfictx *c = ctx_of(fctx);
  if (c == nullptr) return nullptr;
  const uint32_t known = LFI_READ | LFI_WRITE | LFI_APPEND | LFI_CREATE | LFI_EXCL | LFI_TEMP | LFI_TRUNC;
  if ((path == nullptr && !(mode & LFI_TEMP)) || (mode & ~known) != 0 ||
      (mode & (LFI_READ | LFI_WRITE | LFI_APPEND | LFI_TEMP)) == 0) {
    rec(c, kelmsg::LFI_BADARG, "lfiopen", 0);
    return nullptr;
  }
  if (mode & LFI_TEMP) mode = LFI_TEMP | LFI_READ | LFI_WRITE;
  if (mode & LFI_APPEND) mode |= LFI_WRITE;
  uint32_t sf = 0;
  if (mode & LFI_READ) sf |= SLF_READ;
  if (mode & LFI_WRITE) sf |= SLF_WRITE;
  if (mode & LFI_APPEND) sf |= SLF_APPEND | SLF_CREATE;
  // Writing alone is "make this file anew"; reading and writing keep it.
  if ((mode & (LFI_READ | LFI_WRITE | LFI_APPEND)) == LFI_WRITE) sf |= SLF_CREATE | SLF_TRUNC;
  if (mode & LFI_CREATE) sf |= SLF_CREATE;
  if (mode & LFI_TRUNC) sf |= SLF_TRUNC;
  if (mode & LFI_EXCL) sf |= SLF_CREATE | SLF_EXCL;

  if (bufsize == 0) bufsize = LFI_BUFSIZE;
  const char *shown = (path != nullptr && *path != '\0') ? path : "(temporary file)";
  size_t namelen = strlen(shown);
  void *mctx = mctx_of(c);
  lmmheap *heap = mctx == nullptr ? nullptr : lmmtophp(mctx);
  size_t head = (sizeof(lfifile) + namelen + 1 + 15) & ~size_t{15};
  if (heap == nullptr || bufsize > LMM_MAX_REQUEST - head) {
    rec(c, kelmsg::LFI_NOMEM, "lfiopen", 0);
    return nullptr;
  }
  auto *f = static_cast<lfifile *>(lmmmalloc(mctx, heap, head + bufsize, 0, "lfiopen", __LINE__));
  if (f == nullptr) {
    rec(c, kelmsg::LFI_NOMEM, "lfiopen", 0);
    return nullptr;
  }
  int64_t h = -1;
  int32_t rc = (mode & LFI_TEMP) ? slftemp(path, &h) : slfopen(path, sf, &h);
  if (rc != 0) {
    rec_sys(c, kelmsg::LFI_OPEN, shown, slerrno());
    lmmfree(mctx, heap, f, 0);
    return nullptr;
  }
  memset(f, 0, sizeof(lfifile));
  f->magic = kFileMagic;
  f->mode = mode;
  f->h = h;
  f->ctx = c;
  f->heap = heap;
  f->buf = reinterpret_cast<char *>(f) + head;
  f->cap = bufsize;
  memcpy(f->name, shown, namelen + 1);
  track(c, f);
  return f;
}

KELAPI int32_t lficlose(void *fctx, lfifile *f) {
  lfictx *c;
  if (!check(fctx, f, &c)) return -1;
  untrack(f->ctx, f);
  bool ok = flush_out(f);
  if (slfclose(f->h) != 0 && ok) {
    rec(c, kelmsg::LFI_CLOSE, f->name, slerrno());
    ok = false;
  }
  f->magic = 0;
  lmmfree(mctx_of(f->ctx), f->heap, f, 0);
  return ok ? 0 : -1;
}

// ------------------------------------------------------------------ reading

namespace {

bool can_read(lfifile *f) noexcept {
  if (f->mode & LFI_READ) return true;
  rec(f->ctx, kelmsg::LFI_MODE, f->name, 0);
  return false;
}

// Refills the buffer; returns the bytes now available (0 at the end), -1.
int64_t refill(lfifile *f) noexcept {
  int64_t r = slfread(f->h, f->buf, f->cap);
  if (r < 0) {
    rec_sys(f->ctx, kelmsg::LFI_READFAIL, f->name, slerrno());
    return -1;
  }
  f->rpos = 0;
  f->rlen = static_cast<size_t>(r);
  f->sys += r;
  if (r == 0) f->eof = true;
  return r;
}

}  // namespace

KELAPI int64_t lfiread(void *fctx, lfifile *f, void *buf, size_t n) {
  lfictx *c;
  if (!check(fctx, f, &c) || !can_read(f)) return -1;
  if (buf == nullptr && n > 0) {
    rec(c, kelmsg::LFI_BADARG, "lfiread", 0);
    return -1;
  }
  if (!flush_out(f)) return -1;
  char *out = static_cast<char *>(buf);
  size_t done = 0;
  while (done < n) {
    if (f->rpos < f->rlen) {
      size_t k = f->rlen - f->rpos;
      if (k > n - done) k = n - done;
      memcpy(out + done, f->buf + f->rpos, k);
      f->rpos += k;
      done += k;
      continue;
    }
    if (n - done >= f->cap) {
      // Large remainder: straight into the caller's memory.
      f->rlen = f->rpos = 0;
      int64_t r = slfread(f->h, out + done, n - done);
      if (r < 0) {
        rec_sys(c, kelmsg::LFI_READFAIL, f->name, slerrno());
        return -1;
      }
      if (r == 0) {
        f->eof = true;
        break;
      }
      f->sys += r;
      done += static_cast<size_t>(r);
      continue;
    }
    int64_t r = refill(f);
    if (r < 0) return -1;
    if (r == 0) break;
  }
  return static_cast<int64_t>(done);
}

KELAPI int32_t lfigetl(void *fctx, lfifile *f, char *buf, size_t len) {
  lfictx *c;
  if (!check(fctx, f, &c) || !can_read(f)) return -1;
  if (buf == nullptr || len < 2 || len > 0x7FFFFFFF) {
    rec(c, kelmsg::LFI_BADARG, "lfigetl", 0);
    return -1;
  }
  if (!flush_out(f)) return -1;
  size_t done = 0;
  while (done < len - 1) {
    if (f->rpos == f->rlen) {
      int64_t r = refill(f);
      if (r < 0) return -1;
      if (r == 0) break;
    }
    size_t k = f->rlen - f->rpos;
    if (k > len - 1 - done) k = len - 1 - done;
    const char *from = f->buf + f->rpos;
    const void *nl = memchr(from, '\n', k);
    if (nl != nullptr) k = static_cast<size_t>(static_cast<const char *>(nl) - from) + 1;
    memcpy(buf + done, from, k);
    f->rpos += k;
    done += k;
    if (nl != nullptr) break;
  }
  buf[done] = '\0';
  return static_cast<int32_t>(done);
}

KELAPI int32_t lfieof(void *fctx, lfifile *f) {
  lfictx *c;
  if (!check(fctx, f, &c)) return 0;
  return (f->eof && f->rpos == f->rlen) ? 1 : 0;
}

// ------------------------------------------------------------------ writing

KELAPI int32_t lfiwrite(void *fctx, lfifile *f, const void *buf, size_t n) {
  lfictx *c;
  if (!check(fctx, f, &c)) return -1;
  if (!(f->mode & LFI_WRITE)) {
    rec(c, kelmsg::LFI_MODE, f->name, 0);
    return -1;
  }
  if (buf == nullptr && n > 0) {
    rec(c, kelmsg::LFI_BADARG, "lfiwrite", 0);
    return -1;
  }
  if (!settle_in(f)) return -1;
  f->eof = false;
  const char *in = static_cast<const char *>(buf);
  if (f->wlen + n < f->cap) {
    memcpy(f->buf + f->wlen, in, n);
    f->wlen += n;
    return 0;
  }
  // Top the buffer up and write it, then write a large rest straight
  // through, or keep a small one.
  if (f->wlen > 0) {
    size_t k = f->cap - f->wlen;
    memcpy(f->buf + f->wlen, in, k);
    f->wlen = f->cap;
    if (!flush_out(f)) return -1;
    in += k;
    n -= k;
  }
  if (n < f->cap) {
    memcpy(f->buf, in, n);
    f->wlen = n;
    return 0;
  }
  return write_direct(f, in, n) ? 0 : -1;
}

KELAPI int32_t lfiputs(void *fctx, lfifile *f, const char *s) {
  if (s == nullptr) {
    lfictx *c = ctx_of(fctx);
    if (c != nullptr) rec(c, kelmsg::LFI_BADARG, "lfiputs", 0);
    return -1;
  }
  return lfiwrite(fctx, f, s, strlen(s));
}

KELAPI int32_t lfiflush(void *fctx, lfifile *f) {
  lfictx *c;
  if (!check(fctx, f, &c)) return -1;
  return flush_out(f) ? 0 : -1;
}

KELAPI int32_t lfisync(void *fctx, lfifile *f) {
  lfictx *c;
  if (!check(fctx, f, &c) || !flush_out(f)) return -1;
  if (slfsync(f->h) != 0) {
    rec(c, kelmsg::LFI_SYNC, f->name, slerrno());
    return -1;
  }
  return 0;
}

// ------------------------------------------------------- position and size

KELAPI int64_t lfitell(void *fctx, lfifile *f) {
  lfictx *c;
  if (!check(fctx, f, &c)) return -1;
  if (f->wlen > 0) {
    // An appending file's next byte lands at the end, wherever that is now.
    if (f->mode & LFI_APPEND) {
      if (!flush_out(f)) return -1;
      return f->sys;
    }
    return f->sys + static_cast<int64_t>(f->wlen);
  }
  return f->sys - static_cast<int64_t>(f->rlen - f->rpos);
}

KELAPI int64_t lfiseek(void *fctx, lfifile *f, int64_t offset, int32_t whence) {
  lfictx *c;
  if (!check(fctx, f, &c)) return -1;
  if (whence != LFI_SEEK_SET && whence != LFI_SEEK_CUR && whence != LFI_SEEK_END) {
    rec(c, kelmsg::LFI_BADARG, "lfiseek", 0);
    return -1;
  }
  if (!flush_out(f)) return -1;
  int64_t here = f->sys - static_cast<int64_t>(f->rlen - f->rpos);
  int64_t target = offset;
  int32_t how = SLF_SEEK_END;
  if (whence != LFI_SEEK_END) {
    if ((whence == LFI_SEEK_CUR && __builtin_add_overflow(here, offset, &target)) || target < 0) {
      rec(c, kelmsg::LFI_SEEK, f->name, 0);
      return -1;
    }
    // Inside what is buffered: move the cursor only.
    int64_t start = f->sys - static_cast<int64_t>(f->rlen);
    if (f->rlen > 0 && target >= start && target <= f->sys) {
      f->rpos = static_cast<size_t>(target - start);
      if (f->rpos < f->rlen) f->eof = false;
      return target;
    }
    how = SLF_SEEK_SET;
  }
  // The handle moves first: when it cannot, nothing has changed.
  int64_t p = slfseek(f->h, target, how);
  if (p < 0) {
    rec(c, kelmsg::LFI_SEEK, f->name, slerrno());
    return -1;
  }
  f->rlen = f->rpos = 0;
  f->sys = p;
  f->eof = false;
  return p;
}

KELAPI int64_t lfisize(void *fctx, lfifile *f) {
  lfictx *c;
  if (!check(fctx, f, &c) || !flush_out(f)) return -1;
  slfinfo info;
  if (slffstat(f->h, &info) != 0) {
    rec(c, kelmsg::LFI_STAT, f->name, slerrno());
    return -1;
  }
  return info.size;
}

}  // extern "C"
