// File names and paths: pure string work on '/'-separated names.
//
// The rules are the long-standing ones of POSIX path handling (the same that
// scripting languages' path modules follow), so that names built here mean
// the same to the tools that receive them. Nothing looks at the file system
// except lfipabs, which asks for the current directory.
#include <cstdint>
#include <cstring>
#include <string_view>

#include "lfi.h"
#include "slt.h"

namespace lfi_internal {

int32_t put(std::string_view s, char *buf, size_t len) noexcept {
  if (buf == nullptr || s.size() + 1 > len || s.size() > 0x7FFFFFFF) return -1;
  if (!s.empty()) memmove(buf, s.data(), s.size());
  buf[s.size()] = '\0';
  return static_cast<int32_t>(s.size());
}

// Index of the start of the extension of p, or npos.
size_t ext_at(std::string_view p) noexcept {
  size_t sep = p.rfind('/');
  size_t dot = p.rfind('.');
  if (dot == std::string_view::npos || (sep != std::string_view::npos && dot < sep)) return std::string_view::npos;
  size_t first = sep == std::string_view::npos ? 0 : sep + 1;
  for (size_t i = first; i < dot; i++)
    if (p[i] != '.') return dot;
  return std::string_view::npos;
}

}  // namespace lfi_internal

using lfi_internal::put;

extern "C" {

KELAPI int32_t lfipjoin(const char *dir, const char *name, char *buf, size_t len) {
  if (dir == nullptr || name == nullptr || buf == nullptr) return -1;
  std::string_view d(dir), n(name);
  if (!n.empty() && n[0] == '/') return put(n, buf, len);
  bool sep = !d.empty() && d.back() != '/';
  size_t total = d.size() + (sep ? 1 : 0) + n.size();
  if (total + 1 > len || total > 0x7FFFFFFF) return -1;
  // buf may alias neither input's tail, so copy name first into place.
  memmove(buf + d.size() + (sep ? 1 : 0), n.data(), n.size());
  memmove(buf, d.data(), d.size());
  if (sep) buf[d.size()] = '/';
  buf[total] = '\0';
  return static_cast<int32_t>(total);
}

KELAPI int32_t lfipdir(const char *path, char *buf, size_t len) {
  if (path == nullptr) return -1;
  std::string_view p(path);
  size_t i = p.rfind('/');
  std::string_view head = i == std::string_view::npos ? std::string_view() : p.substr(0, i + 1);
  if (!head.empty() && head.find_first_not_of('/') != std::string_view::npos)
    while (!head.empty() && head.back() == '/') head.remove_suffix(1);
  return put(head, buf, len);
}

KELAPI int32_t lfipbase(const char *path, char *buf, size_t len) {
  if (path == nullptr) return -1;
  std::string_view p(path);
  size_t i = p.rfind('/');
  return put(i == std::string_view::npos ? p : p.substr(i + 1), buf, len);
}

KELAPI int32_t lfipext(const char *path, char *buf, size_t len) {
  if (path == nullptr) return -1;
  std::string_view p(path);
  size_t e = lfi_internal::ext_at(p);
  return put(e == std::string_view::npos ? std::string_view() : p.substr(e), buf, len);
}

KELAPI int32_t lfipstem(const char *path, char *buf, size_t len) {
  if (path == nullptr) return -1;
  std::string_view p(path);
  size_t e = lfi_internal::ext_at(p);
  return put(e == std::string_view::npos ? p : p.substr(0, e), buf, len);
}

KELAPI int32_t lfipnorm(const char *path, char *buf, size_t len) {
  if (path == nullptr || buf == nullptr) return -1;
  std::string_view p(path);
  if (p.empty()) return put(".", buf, len);
  size_t lead = 0;
  if (p[0] == '/') lead = (p.size() >= 2 && p[1] == '/' && (p.size() < 3 || p[2] != '/')) ? 2 : 1;
  // Kept parts as (offset, length) into the input, a stack that ".." pops.
  // The array is left uninitialised: only the first n entries are ever read.
  struct Part {
    uint32_t at, len;
  };
  constexpr size_t kMaxParts = 2048;
  Part parts[kMaxParts];
  if (p.size() > 0xFFFFFFFFu) return -1;
  auto text = [&](const Part &x) { return p.substr(x.at, x.len); };
  size_t n = 0;
  size_t pos = 0;
  while (pos <= p.size()) {
    size_t end = p.find('/', pos);
    if (end == std::string_view::npos) end = p.size();
    std::string_view c = p.substr(pos, end - pos);
    Part part{static_cast<uint32_t>(pos), static_cast<uint32_t>(end - pos)};
    pos = end + 1;
    if (c.empty() || c == ".") continue;
    if (c != ".." || (lead == 0 && n == 0) || (n > 0 && text(parts[n - 1]) == "..")) {
      if (n == kMaxParts) return -1;
      parts[n++] = part;
    } else if (n > 0) {
      n--;
    }
  }
  size_t total = lead;
  for (size_t i = 0; i < n; i++) total += parts[i].len + (i > 0 ? 1 : 0);
  if (total == 0) return put(".", buf, len);
  if (total + 1 > len || total > 0x7FFFFFFF) return -1;
  // Each part lands at or before where it stood in the input, so the result
  // may be written over the input itself (buf == path).
  size_t o = 0;
  for (size_t i = 0; i < lead; i++) buf[o++] = '/';
  for (size_t i = 0; i < n; i++) {
    if (i > 0) buf[o++] = '/';
    memmove(buf + o, path + parts[i].at, parts[i].len);
    o += parts[i].len;
  }
  buf[o] = '\0';
  return static_cast<int32_t>(o);
}

KELAPI int32_t lfipisabs(const char *path) { return (path != nullptr && path[0] == '/') ? 1 : 0; }

KELAPI int32_t lfipabs(const char *path, char *buf, size_t len) {
  if (path == nullptr || buf == nullptr) return -1;
  char work[8192];
  if (path[0] == '/') return lfipnorm(path, buf, len);
  if (slgetcwd(work, sizeof work) < 0) return -1;
  size_t c = strlen(work), l = strlen(path);
  if (c + 1 + l + 1 > sizeof work) return -1;
  work[c] = '/';
  memcpy(work + c + 1, path, l + 1);
  return lfipnorm(work, buf, len);
}

}  // extern "C"
