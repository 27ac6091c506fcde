// portable.h - what the tests ask of the operating system beside the
// library, for POSIX systems and for Windows (run under Wine): folders,
// the environment, UTC time, the user and the machine, sockets.
#pragma once

#include <cstdlib>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <string>

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <direct.h>
#include <lmcons.h>
#include <psapi.h>
#include <process.h>
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

// In a GoogleTest test: skips it on Windows, saying why.
#ifdef _WIN32
#define KEL_SKIP_ON_WINDOWS(why) GTEST_SKIP() << "not on Windows: " why
#else
#define KEL_SKIP_ON_WINDOWS(why) (void)0
#endif

namespace kel_test {

#ifdef _WIN32
// The library starts Winsock for its own sockets; a test's server may come first.
inline const int kWinsock = [] {
  WSADATA d;
  return WSAStartup(MAKEWORD(2, 2), &d);
}();
inline int make_dir(const std::string &d) { return _mkdir(d.c_str()); }
inline int set_env(const char *name, const char *value) { return _putenv_s(name, value ? value : ""); }
// timegm: fills the weekday and day of the year (_mkgmtime stops at 3000).
inline time_t utc_time(std::tm *tm) {
  using namespace std::chrono;
  const year_month_day ymd{year(tm->tm_year + 1900), month(tm->tm_mon + 1), day(tm->tm_mday)};
  const sys_days d{ymd};
  tm->tm_wday = static_cast<int>(weekday(d).c_encoding());
  tm->tm_yday = static_cast<int>((d - sys_days{ymd.year() / January / 1}).count());
  return static_cast<time_t>(d.time_since_epoch().count()) * 86400 + tm->tm_hour * 3600 + tm->tm_min * 60 + tm->tm_sec;
}
inline long process_id() { return _getpid(); }
inline int close_socket(int s) { return closesocket(static_cast<SOCKET>(s)); }
inline void wake_accept(int s) { closesocket(static_cast<SOCKET>(s)); }  // shutdown() does not
inline std::string user_name() {
  char b[UNLEN + 1];
  DWORD n = sizeof b;
  return GetUserNameA(b, &n) ? b : "";
}
inline std::string host_name() {
  char b[256];
  DWORD n = sizeof b;
  return GetComputerNameExA(ComputerNameDnsHostname, b, &n) ? b : "";
}
inline long cpu_count() {
  SYSTEM_INFO si;
  GetSystemInfo(&si);
  return static_cast<long>(si.dwNumberOfProcessors);
}
inline long page_size() {
  SYSTEM_INFO si;
  GetSystemInfo(&si);
  return static_cast<long>(si.dwPageSize);
}
inline long peak_memory_kib() {
  PROCESS_MEMORY_COUNTERS c{};
  return K32GetProcessMemoryInfo(GetCurrentProcess(), &c, sizeof c) ? static_cast<long>(c.PeakWorkingSetSize >> 10) : 0;
}
inline constexpr bool kWindows = true;
// The process's open handles: Wine keeps no steady count (its own handles
// come and go), so the Windows tests count none.
inline size_t open_handles() { return 0; }
// A library of the system with a C function in it ("cos").
inline const char kMathLibrary[] = "msvcrt.dll";
#else
inline int make_dir(const std::string &d) { return mkdir(d.c_str(), 0700); }
inline int set_env(const char *name, const char *value) { return value ? setenv(name, value, 1) : unsetenv(name); }
inline time_t utc_time(std::tm *tm) { return timegm(tm); }
inline long process_id() { return getpid(); }
inline int close_socket(int s) { return close(s); }
inline void wake_accept(int s) { shutdown(s, SHUT_RDWR); }
inline std::string user_name() {
  const passwd *pw = getpwuid(geteuid());
  return pw ? pw->pw_name : "";
}
inline std::string host_name() {
  char b[256];
  return gethostname(b, sizeof b) == 0 ? b : "";
}
inline long cpu_count() { return sysconf(_SC_NPROCESSORS_ONLN); }
inline long page_size() { return sysconf(_SC_PAGESIZE); }
inline long peak_memory_kib() {
  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  return ru.ru_maxrss;
}
inline constexpr bool kWindows = false;
inline size_t open_handles() {
  size_t n = 0;
  for (auto &e : std::filesystem::directory_iterator("/proc/self/fd")) (void)e, n++;
  return n;
}
inline const char kMathLibrary[] = "libm.so.6";
#endif

// A new empty folder of the test's own under the system's temporary folder.
inline std::string temp_folder(const std::string &stem) {
  static int serial = 0;
  for (int i = 0; i < 100; i++) {
    std::string d = std::string(getenv("TMPDIR") ? getenv("TMPDIR") : getenv("TEMP") ? getenv("TEMP") : "/tmp") +
                     "/" + stem + "_" + std::to_string(process_id()) + "_" + std::to_string(serial++);
    if (make_dir(d) == 0) return d;
  }
  return "";
}

}  // namespace kel_test
