// python.h - runs an oracle script of the test suite with the Python the
// build found (KEL_PYTHON) and hands back what it printed.
#pragma once

#include <cstdio>
#include <string>

#ifdef _WIN32
#include <process.h>

#include <cctype>
#include <cstdlib>

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>
#endif

namespace kel_test {

inline std::string source_path(const std::string &script) {
  return script[0] == '/' ? script : std::string(KEL_SOURCE_DIR) + "/" + script;
}

#ifdef _WIN32
// The Windows tests run under Wine on the build machine, and the oracles run
// on that machine's Python: Wine starts a Unix program when asked for one,
// but gives back no process handle and no pipes. So the command goes into a
// shell script whose output lands in a file, and the exit status in a second
// file renamed into place last, which the test waits for. In arguments,
// which are words and paths, backslashes become slashes, and a Windows path
// ("C:\...") the Unix path of that drive in the Wine prefix. Returns the
// files' common stem, "" when nothing started.
inline std::string start_script(const std::string &script, const std::string &args) {
  static std::atomic<int> serial{0};
  // Windows reuses process numbers: the clock tells runs apart.
  const std::string base = std::string(KEL_BINARY_DIR) + "/oracle_" + std::to_string(_getpid()) + "_" +
                           std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) + "_" +
                           std::to_string(serial++);
  std::ofstream sh(base + ".sh", std::ios::binary);  // no CRs for the shell
  // Nothing of the test's own stdio: ctest would wait for a server to end.
  sh << "exec </dev/null >/dev/null 2>&1\n" << KEL_PYTHON << " " << source_path(script) << " >" << base << ".out";
  std::istringstream words(args);
  for (std::string w; words >> w;) {
    for (char &c : w) c = c == '\\' ? '/' : c;
    if (w.size() > 2 && w[1] == ':' && w[2] == '/')
      w = "\"$WINEPREFIX/dosdevices/" + std::string(1, static_cast<char>(tolower(w[0]))) + w.substr(1) + "\"";
    sh << " " << w;
  }
  sh << "\necho $? >" << base << ".tmp && mv " << base << ".tmp " << base << ".rc\n";
  sh.close();
  return _spawnl(_P_NOWAIT, "Z:\\bin\\sh", "sh", (base + ".sh").c_str(), nullptr) != -1 ? base : "";
}

// Waits up to ten minutes for `done` to hold what it waits for.
template <class F>
bool wait_for(F done) {
  for (int ms = 0; ms < 600000; ms += 10) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

inline bool run_python(const std::string &script, const std::string &args, std::string &out) {
  const std::string base = start_script(script, args);
  int rc = -1;
  if (base.empty() || !wait_for([&] { return bool(std::ifstream(base + ".rc") >> rc); })) return false;
  std::ifstream o(base + ".out", std::ios::binary);
  std::ostringstream all;
  all << o.rdbuf();
  out = all.str();
  o.close();
  for (const char *ext : {".sh", ".out", ".rc"}) std::remove((base + ext).c_str());
  return rc == 0;
}

// A script that keeps running (a server): its output so far, once it has
// printed a first whole line. The files stay behind in the build tree.
inline FILE *open_python(const std::string &script) {
  const std::string base = start_script(script, "");
  std::string first;
  if (base.empty() ||
      !wait_for([&] { return std::getline(std::ifstream(base + ".out"), first) && !first.empty(); }))
    return nullptr;
  return fopen((base + ".out").c_str(), "r");
}
inline void close_python(FILE *f) { fclose(f); }
#else
// script: a path below the source tree ("tests/format/number_oracle.py") or
// an absolute one,
// args: appended to the command line as they are. False when the script
// could not be started or did not exit with 0.
inline bool run_python(const std::string &script, const std::string &args, std::string &out) {
  std::string cmd = std::string(KEL_PYTHON) + " " + source_path(script);
  if (!args.empty()) cmd += " " + args;
  FILE *p = popen(cmd.c_str(), "r");
  if (p == nullptr) return false;
  out.clear();
  char buf[65536];
  for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  return pclose(p) == 0;
}

// A script that keeps running (a server): a stream of what it prints.
inline FILE *open_python(const std::string &script) {
  return popen((std::string(KEL_PYTHON) + " " + source_path(script)).c_str(), "r");
}
inline void close_python(FILE *f) { pclose(f); }
#endif

}  // namespace kel_test
