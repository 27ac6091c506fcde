// python.h - runs an oracle script of the test suite with the Python the
// build found (KEL_PYTHON) and hands back what it printed.
#pragma once

#include <cstdio>
#include <string>

namespace kel_test {

// script: a path below the source tree ("tests/format/number_oracle.py"),
// args: appended to the command line as they are. False when the script
// could not be started or did not exit with 0.
inline bool run_python(const std::string &script, const std::string &args, std::string &out) {
  std::string cmd = std::string(KEL_PYTHON) + " " + KEL_SOURCE_DIR + "/" + script;
  if (!args.empty()) cmd += " " + args;
  FILE *p = popen(cmd.c_str(), "r");
  if (p == nullptr) return false;
  out.clear();
  char buf[65536];
  for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  return pclose(p) == 0;
}

}  // namespace kel_test
