// Where the tool finds its data when the caller names none: beside the
// executable, as installed (<prefix>/bin/kelcore and <prefix>/share/
// kelcore10) or as built (the image the build made). The paths are relative
// to the executable, so that an installation works wherever it is put and
// holds no path of the tree it was built in.
#include <filesystem>
#include <string>
#include <system_error>

#include "common.h"
#include "sl.h"

#ifndef KELCORE_REL_HOME
#define KELCORE_REL_HOME "../share/kelcore10"
#endif
#ifndef KELCORE_REL_BUILD_IMAGE
#define KELCORE_REL_BUILD_IMAGE ""
#endif

namespace kelcore_tool {
namespace {

namespace fs = std::filesystem;

// Windows separates directories with '\' as well as '/', and the entries of
// PATH with ';'.
constexpr bool kWindowsPaths = fs::path::preferred_separator == '\\';
constexpr char kListSep = kWindowsPaths ? ';' : ':';

// The library takes UTF-8 names on every system.
std::string utf8(const fs::path &p) {
  std::u8string u = p.u8string();
  return std::string(u.begin(), u.end());
}

// The executable: argv0 itself when it has a directory part, else the first
// file of that name in a directory of PATH.
fs::path own_path(const char *argv0) {
  std::error_code ec;
  std::string a = argv0 != nullptr ? argv0 : "";
  if (a.empty()) return {};
  if (a.find('/') != std::string::npos || (kWindowsPaths && a.find('\\') != std::string::npos))
    return fs::canonical(a, ec);
  int32_t n = slgetenv("PATH", nullptr, 0);
  if (n <= 0) return {};
  std::string path(static_cast<size_t>(n) + 1, '\0');
  slgetenv("PATH", path.data(), path.size());
  path.resize(static_cast<size_t>(n));
  for (size_t b = 0; b <= path.size();) {
    size_t e = path.find(kListSep, b);
    if (e == std::string::npos) e = path.size();
    fs::path p = fs::path(e > b ? path.substr(b, e - b) : ".") / a;
    if (fs::is_regular_file(p, ec)) return fs::canonical(p, ec);
    b = e + 1;
  }
  return {};
}

}  // namespace

void find_own_data(const char *argv0) {
  if (slgetenv("KELTAR_HOME", nullptr, 0) >= 0 || slgetenv("KEL_TZFILE", nullptr, 0) >= 0) return;
  fs::path exe = own_path(argv0);
  if (exe.empty()) return;
  std::error_code ec;
  fs::path home = fs::weakly_canonical(exe.parent_path() / KELCORE_REL_HOME, ec);
  if (!ec && fs::is_directory(home / "kelcore", ec)) {
    slsetenv("KELTAR_HOME", utf8(home).c_str(), 0);
    return;
  }
  if (KELCORE_REL_BUILD_IMAGE[0] == '\0') return;
  fs::path image = fs::weakly_canonical(exe.parent_path() / KELCORE_REL_BUILD_IMAGE, ec);
  if (!ec && fs::is_regular_file(image, ec)) slsetenv("KEL_TZFILE", utf8(image).c_str(), 0);
}

}  // namespace kelcore_tool
