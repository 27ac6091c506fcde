// The parameter manager's file access, over the system layer's unbuffered
// file primitives (lfi.h): a parameter file is read whole into the caller's
// heap, a dump is written straight through.
#include "lfi.h"
#include "param/file_impl.h"
#include "sl.h"

#include <cstring>

namespace lrm_file {

int32_t read_file(const char *path, size_t limit, allocfn alloc, freefn release, void *arg, char **data, size_t *len,
                  int32_t *syserr) {
  *syserr = 0;
  int64_t h;
  if (slfopen(path, SLF_READ, &h) != 0) {
    *syserr = slerrno();
    return 1;
  }
  // The size the file says it has decides the first block; a file without
  // one (a pipe, a device) is read in blocks that double, up to the limit.
  slfinfo info;
  bool sized = slffstat(h, &info) == 0 && info.size > 0;
  if (sized && static_cast<uint64_t>(info.size) > limit) {
    slfclose(h);
    return 4;
  }
  size_t cap = sized ? static_cast<size_t>(info.size) + 1 : 4096;
  if (cap > limit + 1) cap = limit + 1;
  char *buf = static_cast<char *>(alloc(arg, cap + 1));
  if (buf == nullptr) {
    slfclose(h);
    return 3;
  }
  size_t used = 0;
  int32_t rc = 0;
  for (;;) {
    if (used == cap) {
      if (cap > limit) {
        rc = 4;
        break;
      }
      size_t ncap = cap * 2 > limit + 1 ? limit + 1 : cap * 2;
      char *n = static_cast<char *>(alloc(arg, ncap + 1));
      if (n == nullptr) {
        rc = 3;
        break;
      }
      memcpy(n, buf, used);
      release(arg, buf);
      buf = n;
      cap = ncap;
    }
    int64_t r = slfread(h, buf + used, cap - used);
    if (r < 0) {
      *syserr = slerrno();
      rc = 2;
      break;
    }
    if (r == 0) break;
    used += static_cast<size_t>(r);
  }
  slfclose(h);
  if (rc == 0 && used > limit) rc = 4;
  if (rc != 0) {
    release(arg, buf);
    return rc;
  }
  buf[used] = '\0';
  *data = buf;
  *len = used;
  return 0;
}

struct outfile {
  int64_t h;
  int32_t err;
};

outfile *create_file(const char *path, int32_t *syserr) {
  int64_t h;
  if (slfopen(path, SLF_WRITE | SLF_CREATE | SLF_TRUNC, &h) != 0) {
    *syserr = slerrno();
    return nullptr;
  }
  auto *f = static_cast<outfile *>(ss_mem_alc(sizeof(outfile)));
  if (f == nullptr) {
    *syserr = slerrno();
    slfclose(h);
    return nullptr;
  }
  f->h = h;
  f->err = 0;
  return f;
}

int32_t write_file(outfile *f, const char *data, size_t len) {
  if (f->err == 0 && slfwrite(f->h, data, len) < 0) f->err = slerrno();
  return f->err == 0 ? 0 : -1;
}

int32_t close_file(outfile *f) {
  int32_t err = f->err;
  if (slfclose(f->h) != 0 && err == 0) err = slerrno();
  ss_mem_fre(f);
  return err;
}

void write_stdout(const char *data, size_t len) { slfwrite(slfstd(1), data, len); }

}  // namespace lrm_file
