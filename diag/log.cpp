// Log files of diagnostic records: the family context, writers with
// rotation by size, and readers with filters.
//
// A writer formats each record outside its lock and then, under the lock,
// rotates the file if the record would take it past its limit and appends
// the line with a single write, so records of concurrent threads never
// interleave and a record never straddles two files. A reader walks the
// rotated files oldest first, splits them on line feeds, parses each line
// into a scratch buffer and copies the texts of a record that passes the
// filter into one block of the caller's heap.
//
// Sections: context and recorders; writer; reader.
#include <cstring>
#include <new>
#include <string_view>

#include "diag/diag_impl.h"
#include "lfi.h"
#include "lut.h"
#include "sl.h"
#include "slt.h"

namespace ldm_internal {
namespace {

using sv = std::string_view;

// -------------------------------------------------- context and recorders
struct ldmctx {
  uint32_t magic;
  void *lemctx;
  lemfac *fac;
};
constexpr uint32_t kCtxMagic = 0x4C444D43;     // "LDMC"
constexpr uint32_t kWriterMagic = 0x4C444D57;  // "LDMW"
constexpr uint32_t kReaderMagic = 0x4C444D52;  // "LDMR"

ldmctx *ctx_of(void *p) {
  auto *c = static_cast<ldmctx *>(p);
  return (c != nullptr && c->magic == kCtxMagic) ? c : nullptr;
}

void rec(void *d, int32_t msg, const char *a) {
  if (ldmctx *c = ctx_of(d)) lemrec(c->lemctx, c->fac, msg, 1, LEM_ARG_TEXT, a, LEM_ARG_END);
}

void rec_sys(void *d, int32_t msg, const char *path) {
  char why[128];
  slcgems(slerrno(), why, sizeof why);
  if (ldmctx *c = ctx_of(d)) lemrec(c->lemctx, c->fac, msg, 1, LEM_ARG_TEXT, path, LEM_ARG_TEXT, why, LEM_ARG_END);
}

char *dup(const char *s) {
  if (s == nullptr) return nullptr;
  size_t n = strlen(s) + 1;
  auto *p = static_cast<char *>(ss_mem_alc(n));
  if (p) memcpy(p, s, n);
  return p;
}

// The log's files through the system layer's file primitives: a handle or -1.
int64_t open_file(const char *path, uint32_t flags) {
  int64_t h;
  slfopen(path, flags, &h);
  return h;
}
int64_t open_append(const char *path) { return open_file(path, SLF_WRITE | SLF_APPEND | SLF_CREATE); }
void close_file(int64_t h) {
  if (h >= 0) slfclose(h);
}
bool exists(const char *path) {
  slfinfo info;
  return slfstat(path, &info) == 0;
}

// "<path>.<i>" into out (room for the path and 4 more bytes).
void numbered(char *out, const char *path, size_t pl, int32_t i) {
  memcpy(out, path, pl);
  size_t k = pl;
  out[k++] = '.';
  if (i >= 10) out[k++] = static_cast<char>('0' + i / 10);
  out[k++] = static_cast<char>('0' + i % 10);
  out[k] = '\0';
}

}  // namespace
}  // namespace ldm_internal

using namespace ldm_internal;

// ------------------------------------------------------------------ writer
struct ldmwriter {
  uint32_t magic;
  void *d;
  slcs cs;
  int64_t fd;
  uint64_t size;
  uint64_t max;
  int32_t keep;
  char *path;
  char *inst;
  char *comp;
  char host[256];
};

namespace {

// Under the writer's lock: moves the full file aside and starts a new one.
int32_t rotate(ldmwriter *w) {
  close_file(w->fd);
  w->fd = -1;
  size_t pl = strlen(w->path);
  auto *a = static_cast<char *>(ss_mem_alc(pl + 5));
  auto *b = static_cast<char *>(ss_mem_alc(pl + 5));
  int32_t rc = 0;
  if (a == nullptr || b == nullptr) {
    rec(w->d, kelmsg::LDM_NOMEM, "rotation");
    rc = -1;
  } else if (w->keep == 0) {
    if (slfremove(w->path) != 0 && exists(w->path)) {
      rec_sys(w->d, kelmsg::LDM_ROTATE, w->path);
      rc = -1;
    }
  } else {
    // Oldest first, so that nothing is overwritten before it has moved.
    for (int32_t i = w->keep - 1; i >= 1; i--) {
      numbered(a, w->path, pl, i);
      numbered(b, w->path, pl, i + 1);
      if (exists(a)) slfrename(a, b);
    }
    numbered(a, w->path, pl, 1);
    if (slfrename(w->path, a) != 0 && exists(w->path)) {
      rec_sys(w->d, kelmsg::LDM_ROTATE, w->path);
      rc = -1;
    }
  }
  ss_mem_fre(a);
  ss_mem_fre(b);
  w->fd = open_append(w->path);
  if (w->fd < 0) {
    rec_sys(w->d, kelmsg::LDM_OPEN, w->path);
    return -1;
  }
  w->size = 0;
  return rc;
}

int32_t write_line(ldmwriter *w, const ldmrec *r) {
  char small[2048];
  size_t n = ldmfmt(r, small, sizeof small);
  char *line = small;
  if (n > sizeof small) {
    line = static_cast<char *>(ss_mem_alc(n));
    if (line == nullptr) {
      rec(w->d, kelmsg::LDM_NOMEM, "record");
      return -1;
    }
    ldmfmt(r, line, n);
  }
  int32_t rc = 0;
  slcsenter(&w->cs);
  if (w->fd < 0 || (w->max > 0 && w->size > 0 && w->size + n > w->max)) rc = rotate(w);
  if (w->fd >= 0) {
    if (slfwrite(w->fd, line, n) < 0) {
      rec_sys(w->d, kelmsg::LDM_WRITE, w->path);
      rc = -1;
    } else {
      w->size += n;  // a failed rotation still reports -1 below
    }
  }
  slcsleave(&w->cs);
  if (line != small) ss_mem_fre(line);
  return rc;
}

void free_writer(ldmwriter *w) {
  ss_mem_fre(w->path);
  ss_mem_fre(w->inst);
  ss_mem_fre(w->comp);
  ss_mem_fre(w);
}

}  // namespace

// ------------------------------------------------------------------ reader
struct ldmreader {
  uint32_t magic;
  void *d;
  char *path;
  char *cur;      // name of the file being read
  int32_t next;   // index of the next file: N..1, then 0 = the path itself, -1 none
  int64_t fd;
  int64_t lineno;
  char *line;     // current line (growable)
  size_t linecap;
  size_t r, w;
  char buf[65536];
};

namespace {

// Opens the next existing file; false when none is left.
bool open_next(ldmreader *rd) {
  close_file(rd->fd);
  rd->fd = -1;
  size_t pl = strlen(rd->path);
  while (rd->next >= 0) {
    int32_t i = rd->next--;
    if (i == 0) {
      memcpy(rd->cur, rd->path, pl + 1);
    } else {
      numbered(rd->cur, rd->path, pl, i);
    }
    rd->fd = open_file(rd->cur, SLF_READ);
    if (rd->fd >= 0) {
      rd->lineno = 0;
      rd->r = rd->w = 0;
      return true;
    }
  }
  return false;
}

// Next line (without its line feed) in rd->line; its length in *n.
// 1 line, 0 end of all files, -1 read error.
int32_t next_line(ldmreader *rd, size_t *n) {
  size_t len = 0;
  for (;;) {
    if (rd->fd < 0 && !open_next(rd)) {
      if (len > 0) break;
      return 0;
    }
    if (rd->r == rd->w) {
      int64_t k = slfread(rd->fd, rd->buf, sizeof rd->buf);
      if (k < 0) {
        rec_sys(rd->d, kelmsg::LDM_READ, rd->cur);
        return -1;
      }
      if (k == 0) {
        // A file ending without a line feed ends its last line.
        if (len > 0) {
          rd->lineno++;
          *n = len;
          close_file(rd->fd);
          rd->fd = -1;
          return 1;
        }
        close_file(rd->fd);
        rd->fd = -1;
        continue;
      }
      rd->r = 0;
      rd->w = static_cast<size_t>(k);
    }
    const char *start = rd->buf + rd->r;
    const char *nl = static_cast<const char *>(memchr(start, '\n', rd->w - rd->r));
    size_t take = nl ? static_cast<size_t>(nl - start) : rd->w - rd->r;
    if (len + take + 1 > rd->linecap) {
      size_t cap = rd->linecap ? rd->linecap : 4096;
      while (cap < len + take + 1) cap *= 2;
      auto *p = static_cast<char *>(ss_mem_ralc(rd->line, cap));
      if (p == nullptr) {
        rec(rd->d, kelmsg::LDM_NOMEM, "record line");
        return -1;
      }
      rd->line = p;
      rd->linecap = cap;
    }
    memcpy(rd->line + len, start, take);
    len += take;
    rd->r += take + (nl ? 1 : 0);
    if (nl) break;
  }
  rd->lineno++;
  *n = len;
  return 1;
}

bool equal(const char *want, const char *p, size_t n) {
  return want == nullptr || (p != nullptr && strlen(want) == n && memcmp(want, p, n) == 0);
}

bool passes(const ldmfilter *f, const ldmrec &r) {
  if (f == nullptr) return true;
  if (f->maxsev > 0 && r.severity > f->maxsev) return false;
  if (f->from_us != 0 && r.time_us < f->from_us) return false;
  if (f->to_us != 0 && r.time_us >= f->to_us) return false;
  if (!equal(f->instance, r.instance, r.instancel) || !equal(f->host, r.host, r.hostl) ||
      !equal(f->component, r.component, r.componentl))
    return false;
  if (f->contains != nullptr &&
      (r.message == nullptr || lutsfind(r.message, r.messagel, f->contains, strlen(f->contains)) == nullptr))
    return false;
  return true;
}

}  // namespace

extern "C" {

KELAPI void *ldmini(lcorectx *ctx) {
  if (ctx == nullptr || ctx->lemctx == nullptr) return nullptr;
  auto *c = static_cast<ldmctx *>(ss_mem_calc(sizeof(ldmctx)));
  if (c == nullptr) return nullptr;
  c->fac = lemfaa(ctx->lemctx, nullptr, "KELCORE", "LDM", kelmsg::LDM_INTERNAL, kelmsg::LDM_FAIL);
  if (c->fac == nullptr) {
    ss_mem_fre(c);
    return nullptr;
  }
  c->lemctx = ctx->lemctx;
  c->magic = kCtxMagic;
  return c;
}

KELAPI int32_t ldmtrm(void *dctx) {
  ldmctx *c = ctx_of(dctx);
  if (c == nullptr) return -1;
  int32_t rc = lemfaf(c->lemctx, c->fac);
  c->magic = 0;
  ss_mem_fre(c);
  return rc;
}

KELAPI ldmwriter *ldmopen(void *dctx, const char *path, uint64_t maxbytes, int32_t keep, const char *instance,
                          const char *component) {
  if (ctx_of(dctx) == nullptr) return nullptr;
  if (path == nullptr || *path == '\0' || keep < 0 || keep > 99) {
    rec(dctx, kelmsg::LDM_BADARG, "ldmopen");
    return nullptr;
  }
  auto *w = static_cast<ldmwriter *>(ss_mem_calc(sizeof(ldmwriter)));
  if (w == nullptr || slcsinit(&w->cs) != 0) {
    ss_mem_fre(w);
    rec(dctx, kelmsg::LDM_NOMEM, "ldmopen");
    return nullptr;
  }
  w->d = dctx;
  w->max = maxbytes;
  w->keep = keep;
  w->path = dup(path);
  w->inst = dup(instance);
  w->comp = dup(component);
  if (w->path == nullptr || (instance && !w->inst) || (component && !w->comp)) {
    slcsdelete(&w->cs);
    free_writer(w);
    rec(dctx, kelmsg::LDM_NOMEM, "ldmopen");
    return nullptr;
  }
  // A host whose name cannot be told writes records with an empty host.
  if (slsihost(w->host, sizeof w->host) < 0) w->host[0] = '\0';
  w->fd = open_append(path);
  slfinfo info;
  int64_t size = w->fd >= 0 && slffstat(w->fd, &info) == 0 ? info.size : -1;
  if (size < 0) {
    rec_sys(dctx, kelmsg::LDM_OPEN, path);
    close_file(w->fd);
    slcsdelete(&w->cs);
    free_writer(w);
    return nullptr;
  }
  w->size = static_cast<uint64_t>(size);
  w->magic = kWriterMagic;
  return w;
}

KELAPI int32_t ldmwrite(ldmwriter *w, int32_t severity, const char *msg, size_t msgl, const char *detail,
                        size_t detaill) {
  if (w == nullptr || w->magic != kWriterMagic) return -1;
  if (severity < 1 || severity > 99 || (msg == nullptr && msgl > 0) || (detail == nullptr && detaill > 0)) {
    rec(w->d, kelmsg::LDM_BADARG, "ldmwrite");
    return -1;
  }
  ldmrec r{};
  r.time_us = slwallus();
  r.severity = severity;
  r.pid = slsipid();
  r.tid = slthrself();
  r.instance = w->inst;
  r.instancel = w->inst ? strlen(w->inst) : 0;
  r.host = w->host;
  r.hostl = strlen(w->host);
  r.component = w->comp;
  r.componentl = w->comp ? strlen(w->comp) : 0;
  r.message = msg;
  r.messagel = msgl;
  r.detail = detail;
  r.detaill = detaill;
  return write_line(w, &r);
}

KELAPI int32_t ldmwrec(ldmwriter *w, const ldmrec *r) {
  if (w == nullptr || w->magic != kWriterMagic) return -1;
  if (r == nullptr || r->severity < 1 || r->severity > 99) {
    rec(w->d, kelmsg::LDM_BADARG, "ldmwrec");
    return -1;
  }
  return write_line(w, r);
}

KELAPI int32_t ldmclose(ldmwriter *w) {
  if (w == nullptr) return 0;
  if (w->magic != kWriterMagic) return -1;
  w->magic = 0;
  close_file(w->fd);
  slcsdelete(&w->cs);
  free_writer(w);
  return 0;
}

KELAPI ldmreader *ldmropen(void *dctx, const char *path, int32_t rotated) {
  if (ctx_of(dctx) == nullptr) return nullptr;
  if (path == nullptr || *path == '\0') {
    rec(dctx, kelmsg::LDM_BADARG, "ldmropen");
    return nullptr;
  }
  auto *rd = static_cast<ldmreader *>(ss_mem_calc(sizeof(ldmreader)));
  size_t pl = strlen(path);
  if (rd == nullptr || (rd->path = dup(path)) == nullptr ||
      (rd->cur = static_cast<char *>(ss_mem_alc(pl + 5))) == nullptr) {
    if (rd) {
      ss_mem_fre(rd->path);
      ss_mem_fre(rd);
    }
    rec(dctx, kelmsg::LDM_NOMEM, "ldmropen");
    return nullptr;
  }
  rd->d = dctx;
  rd->fd = -1;
  int32_t n = 0;
  bool any = exists(path) != 0;
  if (rotated) {
    while (n < 99) {
      numbered(rd->cur, path, pl, n + 1);
      if (!exists(rd->cur)) break;
      n++;
      any = true;
    }
  }
  if (!any) {
    // The reason, as the system gives it, that the file is not there.
    slfinfo info;
    int32_t err = slfstat(path, &info) == 0 ? 0 : slerrno();
    char why[128] = "";
    if (err != 0) slcgems(err, why, sizeof why);
    if (ldmctx *c = ctx_of(dctx))
      lemrec(c->lemctx, c->fac, kelmsg::LDM_OPEN, 1, LEM_ARG_TEXT, path, LEM_ARG_TEXT, why, LEM_ARG_END);
    ss_mem_fre(rd->cur);
    ss_mem_fre(rd->path);
    ss_mem_fre(rd);
    return nullptr;
  }
  rd->next = n;
  rd->magic = kReaderMagic;
  return rd;
}

KELAPI int32_t ldmread(ldmreader *rd, const ldmfilter *filter, void *mctx, lmmheap *heap, ldmrec *out) {
  if (out != nullptr) *out = ldmrec{};
  if (rd == nullptr || rd->magic != kReaderMagic) return -1;
  if (out == nullptr || heap == nullptr) {
    rec(rd->d, kelmsg::LDM_BADARG, "ldmread");
    return -1;
  }
  for (;;) {
    size_t n = 0;
    int32_t got = next_line(rd, &n);
    if (got <= 0) return got;
    auto *scratch = static_cast<char *>(ss_mem_alc(n + 1));
    if (scratch == nullptr) {
      rec(rd->d, kelmsg::LDM_NOMEM, "ldmread");
      return -1;
    }
    ldmrec r;
    if (ldmparse(rd->line, n, scratch, &r) != 0) {
      ss_mem_fre(scratch);
      if (ldmctx *c = ctx_of(rd->d))
        lemrec(c->lemctx, c->fac, kelmsg::LDM_BADREC, 1, LEM_ARG_TEXT, rd->cur, LEM_ARG_NUM, rd->lineno,
               LEM_ARG_END);
      return -1;
    }
    if (!passes(filter, r)) {
      ss_mem_fre(scratch);
      continue;
    }
    size_t total = r.instancel + r.hostl + r.componentl + r.messagel + r.detaill + 5;
    auto *blk = static_cast<char *>(lmmmalloc(mctx, heap, total, 0, "ldmread", __LINE__));
    if (blk == nullptr) {
      ss_mem_fre(scratch);
      rec(rd->d, kelmsg::LDM_NOMEM, "ldmread");
      return -1;
    }
    char *p = blk;
    auto move = [&](const char *&t, size_t l) {
      if (t == nullptr) return;
      memcpy(p, t, l);
      p[l] = '\0';
      t = p;
      p += l + 1;
    };
    move(r.instance, r.instancel);
    move(r.host, r.hostl);
    move(r.component, r.componentl);
    move(r.message, r.messagel);
    move(r.detail, r.detaill);
    r.block = blk;
    ss_mem_fre(scratch);
    *out = r;
    return 1;
  }
}

KELAPI int32_t ldmrfree(void *mctx, lmmheap *heap, ldmrec *r) {
  if (r == nullptr) return -1;
  int32_t rc = r->block ? lmmfree(mctx, heap, r->block, 0) : 0;
  *r = ldmrec{};
  return rc;
}

KELAPI int32_t ldmrclose(ldmreader *rd) {
  if (rd == nullptr) return 0;
  if (rd->magic != kReaderMagic) return -1;
  rd->magic = 0;
  close_file(rd->fd);
  ss_mem_fre(rd->line);
  ss_mem_fre(rd->cur);
  ss_mem_fre(rd->path);
  ss_mem_fre(rd);
  return 0;
}

}  // extern "C"
