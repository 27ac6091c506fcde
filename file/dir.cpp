// Names on the file system: existence, size, removal, renaming and
// directories.
#include <algorithm>
#include <cstring>

#include "file/lfi_impl.h"
#include "kelmsg_kelcore_lfi.h"
#include "sl.h"

using namespace lfi_internal;

namespace {

constexpr size_t kPathMax = 4096;

bool args(lfictx *c, const char *path, const char *fn) noexcept {
  if (c == nullptr) return false;
  if (path == nullptr || *path == '\0') {
    rec(c, kelmsg::LFI_BADARG, fn, 0);
    return false;
  }
  return true;
}

// Removes everything below directory `path` and then the directory; the
// first failure stops the walk (its record names the entry).
bool remove_tree(lfictx *c, const char *path, int depth) noexcept {
  if (depth > 256) {
    rec(c, kelmsg::LFI_RMDIR, path, 0);
    return false;
  }
  void *d = slfdopen(path);
  if (d == nullptr) {
    rec_sys(c, kelmsg::LFI_LIST, path, slerrno());
    return false;
  }
  char name[1024];
  char child[kPathMax];
  bool ok = true;
  for (;;) {
    int32_t n = slfdnext(d, name, sizeof name);
    if (n == 0) break;
    if (n < 0 || lfipjoin(path, name, child, sizeof child) < 0) {
      rec_sys(c, kelmsg::LFI_LIST, path, n < 0 ? slerrno() : 0);
      ok = false;
      break;
    }
    // A link is removed, never followed: unlink first, a directory refuses.
    if (slfremove(child) == 0) continue;
    int32_t cls = slfclass(slerrno());
    if ((cls == SLF_E_ISDIR || cls == SLF_E_DENIED) && remove_tree(c, child, depth + 1)) continue;
    if (cls != SLF_E_ISDIR && cls != SLF_E_DENIED) rec_sys(c, kelmsg::LFI_REMOVE, child, slerrno());
    ok = false;
    break;
  }
  slfdclose(d);
  if (ok && slfrmdir(path) != 0) {
    rec_sys(c, kelmsg::LFI_RMDIR, path, slerrno());
    ok = false;
  }
  return ok;
}

}  // namespace

extern "C" {

KELAPI int32_t lfiexists(void *fctx, const char *path) {
  lfictx *c = ctx_of(fctx);
  if (!args(c, path, "lfiexists")) return -1;
  slfinfo info;
  if (slfstat(path, &info) == 0) return info.type == SLF_TYPE_FILE ? LFI_FILE : info.type == SLF_TYPE_DIR ? LFI_DIR : LFI_OTHER;
  int32_t err = slerrno();
  int32_t cls = slfclass(err);
  if (cls == SLF_E_NOTFOUND || cls == SLF_E_NOTDIR) return LFI_NONE;
  rec_sys(c, kelmsg::LFI_STAT, path, err);
  return -1;
}

KELAPI int64_t lfifsize(void *fctx, const char *path) {
  lfictx *c = ctx_of(fctx);
  if (!args(c, path, "lfifsize")) return -1;
  slfinfo info;
  if (slfstat(path, &info) != 0) {
    rec_sys(c, kelmsg::LFI_STAT, path, slerrno());
    return -1;
  }
  return info.size;
}

KELAPI int32_t lfiremove(void *fctx, const char *path) {
  lfictx *c = ctx_of(fctx);
  if (!args(c, path, "lfiremove")) return -1;
  if (slfremove(path) == 0) return 0;
  int32_t err = slerrno();
  // Some systems say "not permitted" for a directory; name the real reason.
  slfinfo info;
  if (slfclass(err) == SLF_E_DENIED && slfstat(path, &info) == 0 && info.type == SLF_TYPE_DIR) {
    rec(c, kelmsg::LFI_ISDIR, path, err);
    return -1;
  }
  rec_sys(c, kelmsg::LFI_REMOVE, path, err);
  return -1;
}

KELAPI int32_t lfirename(void *fctx, const char *from, const char *to) {
  lfictx *c = ctx_of(fctx);
  if (!args(c, from, "lfirename") || !args(c, to, "lfirename")) return -1;
  if (slfrename(from, to) == 0) return 0;
  rec_sys(c, kelmsg::LFI_RENAME, from, slerrno());
  return -1;
}

KELAPI int32_t lfimkdir(void *fctx, const char *path, int32_t parents) {
  lfictx *c = ctx_of(fctx);
  if (!args(c, path, "lfimkdir")) return -1;
  if (!parents) {
    if (slfmkdir(path) == 0) return 0;
    rec_sys(c, kelmsg::LFI_MKDIR, path, slerrno());
    return -1;
  }
  char work[kPathMax];
  int32_t n = lfipnorm(path, work, sizeof work);
  if (n < 0) {
    rec(c, kelmsg::LFI_BADARG, "lfimkdir", 0);
    return -1;
  }
  // Each prefix in turn; one that exists must be a directory.
  for (int32_t i = 1; i <= n; i++) {
    if (i < n && work[i] != '/') continue;
    char keep = work[i];
    work[i] = '\0';
    if (slfmkdir(work) != 0) {
      int32_t err = slerrno();
      slfinfo info;
      bool exists = slfclass(err) == SLF_E_EXISTS && slfstat(work, &info) == 0;
      if (exists && info.type != SLF_TYPE_DIR) {
        rec(c, kelmsg::LFI_NOTDIR, work, err);
        return -1;
      }
      if (!exists) {
        rec_sys(c, kelmsg::LFI_MKDIR, work, err);
        return -1;
      }
    }
    work[i] = keep;
  }
  return 0;
}

KELAPI int32_t lfirmdir(void *fctx, const char *path, int32_t recursive) {
  lfictx *c = ctx_of(fctx);
  if (!args(c, path, "lfirmdir")) return -1;
  if (recursive) return remove_tree(c, path, 0) ? 0 : -1;
  if (slfrmdir(path) == 0) return 0;
  rec_sys(c, kelmsg::LFI_RMDIR, path, slerrno());
  return -1;
}

KELAPI char **lfilist(void *fctx, const char *path, size_t *count) {
  lfictx *c = ctx_of(fctx);
  if (count != nullptr) *count = 0;
  if (!args(c, path, "lfilist")) return nullptr;
  void *mctx = mctx_of(c);
  lmmheap *heap = mctx == nullptr ? nullptr : lmmtophp(mctx);
  if (heap == nullptr) {
    rec(c, kelmsg::LFI_NOMEM, "lfilist", 0);
    return nullptr;
  }
  void *d = slfdopen(path);
  if (d == nullptr) {
    rec_sys(c, kelmsg::LFI_LIST, path, slerrno());
    return nullptr;
  }
  // Names are gathered back to back in a growing block, then laid out once
  // behind the pointer array of the result.
  char *names = nullptr;
  size_t used = 0, cap = 0, n = 0;
  char name[1024];
  bool ok = true;
  for (;;) {
    int32_t l = slfdnext(d, name, sizeof name);
    if (l == 0) break;
    if (l < 0) {
      rec_sys(c, kelmsg::LFI_LIST, path, slerrno());
      ok = false;
      break;
    }
    if (used + static_cast<size_t>(l) + 1 > cap) {
      size_t ncap = cap == 0 ? 4096 : cap * 2;
      while (ncap < used + static_cast<size_t>(l) + 1) ncap *= 2;
      auto *grown = static_cast<char *>(lmmrealloc(mctx, heap, names, ncap, 0, "lfilist", __LINE__));
      if (grown == nullptr) {
        rec(c, kelmsg::LFI_NOMEM, "lfilist", 0);
        ok = false;
        break;
      }
      names = grown;
      cap = ncap;
    }
    memcpy(names + used, name, static_cast<size_t>(l) + 1);
    used += static_cast<size_t>(l) + 1;
    n++;
  }
  slfdclose(d);
  char **out = nullptr;
  if (ok) {
    size_t ptrs = (n + 1) * sizeof(char *);
    out = static_cast<char **>(lmmmalloc(mctx, heap, ptrs + used + 1, 0, "lfilist", __LINE__));
    if (out == nullptr) {
      rec(c, kelmsg::LFI_NOMEM, "lfilist", 0);
    } else {
      char *text = reinterpret_cast<char *>(out) + ptrs;
      if (used > 0) memcpy(text, names, used);
      size_t at = 0;
      for (size_t i = 0; i < n; i++) {
        out[i] = text + at;
        at += strlen(text + at) + 1;
      }
      out[n] = nullptr;
      std::sort(out, out + n, [](const char *a, const char *b) { return strcmp(a, b) < 0; });
      if (count != nullptr) *count = n;
    }
  }
  if (names != nullptr) lmmfree(mctx, heap, names, 0);
  return out;
}

KELAPI void lfilfree(void *fctx, char **list) {
  lfictx *c = ctx_of(fctx);
  if (c == nullptr || list == nullptr) return;
  void *mctx = mctx_of(c);
  if (mctx != nullptr) lmmfree(mctx, lmmtophp(mctx), list, 0);
}

}  // extern "C"
