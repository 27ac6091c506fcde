// Files and directories on Windows: the system's file handles in the int64_t
// handles, the wide-character file API with 64-bit sizes and offsets, one
// system call per entry (file_impl.h). Names are UTF-8 on the library's side
// and UTF-16 on the system's; every name crosses through widen/narrow.
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sl.h"
#include "sys/error_impl.h"
#include "sys/file_impl.h"

namespace {

// ----------------------------------------------------------------- names

// A UTF-8 name as UTF-16, on the heap (names may be long); ok() false with
// the system error set when the name is not UTF-8 or memory is short.
class Wide {
 public:
  explicit Wide(const char *s, const wchar_t *suffix = nullptr) noexcept {
    int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, s, -1, nullptr, 0);
    if (n <= 0) return;
    size_t extra = suffix ? wcslen(suffix) : 0;
    w_ = static_cast<wchar_t *>(malloc((static_cast<size_t>(n) + extra) * sizeof(wchar_t)));
    if (w_ == nullptr) {
      SetLastError(ERROR_NOT_ENOUGH_MEMORY);
      return;
    }
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, s, -1, w_, n);
    if (extra) memcpy(w_ + n - 1, suffix, (extra + 1) * sizeof(wchar_t));
  }
  ~Wide() { free(w_); }
  Wide(const Wide &) = delete;
  Wide &operator=(const Wide &) = delete;
  bool ok() const noexcept { return w_ != nullptr; }
  const wchar_t *get() const noexcept { return w_; }

 private:
  wchar_t *w_ = nullptr;
};

// A UTF-16 name of `n` units into buf as UTF-8 with its NUL: the length, or
// -1 (ERROR_FILENAME_EXCED_RANGE) when it does not fit len.
int32_t narrow(const wchar_t *w, int n, char *buf, size_t len) noexcept {
  int need = WideCharToMultiByte(CP_UTF8, 0, w, n, nullptr, 0, nullptr, nullptr);
  if (need < 0 || (n > 0 && need == 0)) return -1;
  if (static_cast<size_t>(need) + 1 > len) {
    SetLastError(ERROR_FILENAME_EXCED_RANGE);
    return -1;
  }
  if (n > 0) WideCharToMultiByte(CP_UTF8, 0, w, n, buf, need, nullptr, nullptr);
  buf[need] = '\0';
  return need;
}

// --------------------------------------------------------------- handles

HANDLE h_of(int64_t h) noexcept { return reinterpret_cast<HANDLE>(static_cast<intptr_t>(h)); }
int64_t of_h(HANDLE h) noexcept { return static_cast<int64_t>(reinterpret_cast<intptr_t>(h)); }

bool bad(int64_t h) noexcept {
  if (h != -1 && h != 0) return false;
  SetLastError(ERROR_INVALID_HANDLE);
  return true;
}

// What POSIX programs expect of open files: others may read, write, rename
// and delete them meanwhile.
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// FILETIME (100 ns since 1601) to microseconds since 1970.
int64_t unix_us(FILETIME ft) noexcept {
  int64_t t = static_cast<int64_t>((static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime);
  return (t - 116444736000000000LL) / 10;
}

int32_t info_of(HANDLE h, slfinfo *info) noexcept {
  BY_HANDLE_FILE_INFORMATION fi;
  if (!GetFileInformationByHandle(h, &fi)) {
    // Pipes and consoles have no file information.
    DWORD type = GetFileType(h);
    if (type == FILE_TYPE_UNKNOWN) return -1;
    info->size = 0;
    info->mtimeus = 0;
    info->mode = 0600;
    info->type = SLF_TYPE_OTHER;
    return 0;
  }
  info->size = static_cast<int64_t>((static_cast<uint64_t>(fi.nFileSizeHigh) << 32) | fi.nFileSizeLow);
  info->mtimeus = unix_us(fi.ftLastWriteTime);
  bool dir = (fi.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  bool ro = (fi.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
  // Windows has one permission bit that POSIX modes can show: read-only.
  info->mode = dir ? 0777u : ro ? 0444u : 0666u;
  info->type = dir ? SLF_TYPE_DIR : GetFileType(h) == FILE_TYPE_DISK ? SLF_TYPE_FILE : SLF_TYPE_OTHER;
  return 0;
}

bool is_dir(const wchar_t *path) noexcept {
  DWORD a = GetFileAttributesW(path);
  return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// ------------------------------------------------------------ open files

int32_t f_open(const char *path, uint32_t flags, int64_t *handle) {
  Wide w(path);
  if (!w.ok()) return -1;
  bool append = (flags & SLF_APPEND) != 0;
  DWORD access = 0;
  if (flags & SLF_READ) access |= GENERIC_READ;
  // An append handle may only add at the end: without FILE_WRITE_DATA every
  // write goes to the end of the file, whatever another writer did.
  if (flags & SLF_WRITE) access |= append ? (FILE_GENERIC_WRITE & ~FILE_WRITE_DATA) : GENERIC_WRITE;
  DWORD disp;
  if (flags & SLF_EXCL)
    disp = CREATE_NEW;
  else if ((flags & SLF_CREATE) && (flags & SLF_TRUNC))
    disp = CREATE_ALWAYS;
  else if (flags & SLF_CREATE)
    disp = OPEN_ALWAYS;
  else if (flags & SLF_TRUNC)
    disp = TRUNCATE_EXISTING;
  else
    disp = OPEN_EXISTING;
  // Cutting a file needs write access to its data, which an append handle
  // lacks: cut it through a first handle, then open the append handle on the
  // same file.
  bool cut_first = append && (disp == TRUNCATE_EXISTING || disp == CREATE_ALWAYS);
  HANDLE h = CreateFileW(w.get(), cut_first ? (access | GENERIC_WRITE) : access, kShareAll, nullptr, disp,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) {
    // A directory cannot be opened as a file; say so rather than "denied".
    if (GetLastError() == ERROR_ACCESS_DENIED && is_dir(w.get())) SetLastError(sl_internal::os_error_of(SLF_E_ISDIR));
    return -1;
  }
  if (cut_first) {
    HANDLE a = ReOpenFile(h, access, kShareAll, 0);
    DWORD err = GetLastError();
    CloseHandle(h);
    if (a == INVALID_HANDLE_VALUE) {
      SetLastError(err);
      return -1;
    }
    h = a;
  }
  *handle = of_h(h);
  return 0;
}

std::atomic<uint32_t> g_temp_seq{0};

int32_t f_temp(const char *dir, int64_t *handle) {
  // A file that the system deletes when its last handle closes, so nothing
  // is left behind however the process ends; names are tried until one is
  // new.
  for (int attempt = 0; attempt < 100; ++attempt) {
    LARGE_INTEGER c;
    QueryPerformanceCounter(&c);
    wchar_t name[64];
    swprintf(name, 64, L"\\kel%lx_%x_%llx.tmp", static_cast<unsigned long>(GetCurrentProcessId()),
             g_temp_seq.fetch_add(1, std::memory_order_relaxed), static_cast<unsigned long long>(c.QuadPart));
    Wide w(dir, name);
    if (!w.ok()) return -1;
    HANDLE h = CreateFileW(w.get(), GENERIC_READ | GENERIC_WRITE | DELETE, kShareAll, nullptr, CREATE_NEW,
                           FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (h != INVALID_HANDLE_VALUE) {
      *handle = of_h(h);
      return 0;
    }
    DWORD e = GetLastError();
    if (e != ERROR_FILE_EXISTS && e != ERROR_ALREADY_EXISTS) return -1;
  }
  return -1;
}

int64_t f_stdio(int32_t which) {
  DWORD id = which == 0 ? STD_INPUT_HANDLE : which == 1 ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE;
  HANDLE h = GetStdHandle(id);
  return h == nullptr ? -1 : of_h(h);
}

int32_t f_close(int64_t h) {
  if (bad(h)) return -1;
  return CloseHandle(h_of(h)) ? 0 : -1;
}

// One call moves at most a DWORD of bytes; the portable loop asks again.
DWORD chunk(size_t n) noexcept { return n > 0x40000000u ? 0x40000000u : static_cast<DWORD>(n); }

int64_t f_read(int64_t h, void *buf, size_t n) {
  if (bad(h)) return -1;
  DWORD got = 0;
  if (!ReadFile(h_of(h), buf, chunk(n), &got, nullptr)) {
    // The writer of a pipe went away: that is the end of the data.
    DWORD e = GetLastError();
    if (e == ERROR_BROKEN_PIPE || e == ERROR_HANDLE_EOF) return 0;
    return -1;
  }
  return got;
}

int64_t f_write(int64_t h, const void *buf, size_t n) {
  if (bad(h)) return -1;
  DWORD put = 0;
  if (!WriteFile(h_of(h), buf, chunk(n), &put, nullptr)) return -1;
  return put;
}

int64_t f_seek(int64_t h, int64_t offset, int32_t whence) {
  if (bad(h)) return -1;
  DWORD w = whence == SLF_SEEK_SET ? FILE_BEGIN : whence == SLF_SEEK_CUR ? FILE_CURRENT : FILE_END;
  LARGE_INTEGER to, at;
  to.QuadPart = offset;
  if (!SetFilePointerEx(h_of(h), to, &at, w)) return -1;
  return at.QuadPart;
}

int32_t f_sync(int64_t h) {
  if (bad(h)) return -1;
  return FlushFileBuffers(h_of(h)) ? 0 : -1;
}

int32_t f_truncate(int64_t h, int64_t size) {
  if (bad(h)) return -1;
  if (size < 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return -1;
  }
  // Sets the length without moving the file pointer, as ftruncate does.
  FILE_END_OF_FILE_INFO eof;
  eof.EndOfFile.QuadPart = size;
  return SetFileInformationByHandle(h_of(h), FileEndOfFileInfo, &eof, sizeof eof) ? 0 : -1;
}

// ----------------------------------------------------- names and details

int32_t f_stat(const char *path, slfinfo *info) {
  Wide w(path);
  if (!w.ok()) return -1;
  // Opened for its attributes only (directories too), through links, as
  // stat() follows them.
  HANDLE h = CreateFileW(w.get(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                         FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (h == INVALID_HANDLE_VALUE) return -1;
  int32_t rc = info_of(h, info);
  DWORD e = GetLastError();
  CloseHandle(h);
  if (rc != 0) SetLastError(e);
  return rc;
}

int32_t f_fstat(int64_t h, slfinfo *info) {
  if (bad(h)) return -1;
  return info_of(h_of(h), info);
}

int32_t f_remove(const char *path) {
  Wide w(path);
  if (!w.ok()) return -1;
  if (DeleteFileW(w.get())) return 0;
  if (GetLastError() == ERROR_ACCESS_DENIED && is_dir(w.get())) SetLastError(sl_internal::os_error_of(SLF_E_ISDIR));
  return -1;
}

int32_t f_rename(const char *from, const char *to) {
  Wide f(from);
  if (!f.ok()) return -1;
  Wide t(to);
  if (!t.ok()) return -1;
  // rename() replaces an existing target in one step.
  return MoveFileExW(f.get(), t.get(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) ? 0 : -1;
}

int32_t f_mkdir(const char *path) {
  Wide w(path);
  if (!w.ok()) return -1;
  return CreateDirectoryW(w.get(), nullptr) ? 0 : -1;
}

int32_t f_rmdir(const char *path) {
  Wide w(path);
  if (!w.ok()) return -1;
  return RemoveDirectoryW(w.get()) ? 0 : -1;
}

// ----------------------------------------------------------- directories

// FindFirstFileW returns the first name with the search handle; next hands
// it out before asking for more.
struct DirCursor {
  HANDLE find;
  WIN32_FIND_DATAW data;
  bool pending;  // data holds a name not yet handed out
};

void *f_dir_open(const char *path) {
  if (*path == '\0') {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return nullptr;
  }
  size_t n = strlen(path);
  bool sep = path[n - 1] == '\\' || path[n - 1] == '/';
  Wide w(path, sep ? L"*" : L"\\*");
  if (!w.ok()) return nullptr;
  auto *d = static_cast<DirCursor *>(malloc(sizeof(DirCursor)));
  if (d == nullptr) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  d->find = FindFirstFileExW(w.get(), FindExInfoBasic, &d->data, FindExSearchNameMatch, nullptr, 0);
  if (d->find == INVALID_HANDLE_VALUE) {
    DWORD e = GetLastError();
    free(d);
    // A file where a directory was meant reads as "not a directory".
    if (e == ERROR_PATH_NOT_FOUND || e == ERROR_DIRECTORY || e == ERROR_INVALID_NAME) {
      Wide p(path);
      DWORD a = p.ok() ? GetFileAttributesW(p.get()) : INVALID_FILE_ATTRIBUTES;
      if (a != INVALID_FILE_ATTRIBUTES && !(a & FILE_ATTRIBUTE_DIRECTORY)) e = ERROR_DIRECTORY;
    }
    SetLastError(e);
    return nullptr;
  }
  d->pending = true;
  return d;
}

int32_t f_dir_next(void *dir, char *buf, size_t len) {
  auto *d = static_cast<DirCursor *>(dir);
  if (!d->pending) {
    if (!FindNextFileW(d->find, &d->data)) return GetLastError() == ERROR_NO_MORE_FILES ? 0 : -1;
  }
  d->pending = false;
  return narrow(d->data.cFileName, static_cast<int>(wcslen(d->data.cFileName)), buf, len);
}

int32_t f_dir_close(void *dir) {
  auto *d = static_cast<DirCursor *>(dir);
  BOOL ok = FindClose(d->find);
  free(d);
  return ok ? 0 : -1;
}

// A name the system writes into a wide buffer of its choosing, as UTF-8.
template <class Get>
int32_t system_path(Get get, char *buf, size_t len) noexcept {
  DWORD need = get(0, nullptr);
  if (need == 0) return -1;
  auto *w = static_cast<wchar_t *>(malloc(need * sizeof(wchar_t)));
  if (w == nullptr) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return -1;
  }
  DWORD n = get(need, w);
  int32_t rc = (n == 0 || n >= need) ? -1 : narrow(w, static_cast<int>(n), buf, len);
  free(w);
  return rc;
}

int32_t f_cwd(char *buf, size_t len) {
  return system_path([](DWORD n, wchar_t *w) { return GetCurrentDirectoryW(n, w); }, buf, len);
}

int32_t f_tmpdir(char *buf, size_t len) {
  // GetTempPathW reads TMP, then TEMP, then USERPROFILE, then the Windows
  // directory, the order every Windows program follows.
  return system_path([](DWORD n, wchar_t *w) { return GetTempPathW(n, w); }, buf, len);
}

}  // namespace

namespace sl_internal {

const FileOps kFileOs = {
    .open = f_open,
    .temp = f_temp,
    .stdio = f_stdio,
    .close = f_close,
    .read = f_read,
    .write = f_write,
    .seek = f_seek,
    .sync = f_sync,
    .truncate = f_truncate,
    .stat = f_stat,
    .fstat = f_fstat,
    .remove = f_remove,
    .rename = f_rename,
    .mkdir = f_mkdir,
    .rmdir = f_rmdir,
    .dir_open = f_dir_open,
    .dir_next = f_dir_next,
    .dir_close = f_dir_close,
    .cwd = f_cwd,
    .tmpdir = f_tmpdir,
};

}  // namespace sl_internal
