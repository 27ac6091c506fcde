// Shared plumbing of the kelcore subcommands: the started library, error
// reporting through the error stack, and small argument helpers.
#ifndef KELCORE_TOOL_COMMON_H
#define KELCORE_TOOL_COMMON_H

#include <cstdio>
#include <cstring>
#include <string>

#include "lem.h"
#include "lpm.h"

namespace kelcore_tool {

// Exit codes: 0 success, 1 a failure of the operation, 2 a usage error.
constexpr int kOk = 0;
constexpr int kFail = 1;
constexpr int kUsage = 2;

// The library, started for the life of one subcommand.
struct Lib {
  lcorectx *ctx = nullptr;
  Lib() : ctx(lpminit()) {}
  ~Lib() {
    if (ctx) lpmterm(ctx);
  }
  Lib(const Lib &) = delete;
  Lib &operator=(const Lib &) = delete;
  bool ok() const { return ctx != nullptr; }
  // Prints every record on the error stack (newest first) formatted by
  // lemgem, each prefixed with the command name and, when given, the input
  // it is about ("kelcore url: 'http://[::1': malformed URL ..."; see
  // quoted), then clears the stack. Returns the number of records printed.
  int report(const char *cmd, const char *input = nullptr) const;
};

// 'text', for showing an input in a message.
std::string quoted(const char *s);
bool is_help(const char *a);
// Prints "kelcore CMD: MESSAGE" and the usage line to stderr; returns 2.
int usage_error(const char *cmd, const char *usage, const char *fmt, ...);
// Parses a decimal int; false for anything else.
bool parse_int(const char *s, long long *out);
// Standard input and output as bytes: what a body or decoded data holds
// must reach the caller unchanged, also where stdio translates line ends.
// read_stdin reads to the end; write_stdout writes all n bytes (false when
// the output refused them).
std::string read_stdin();
bool write_stdout(const void *data, size_t n);

// Loads the time-zone image as the library does (KEL_TZFILE, KELTAR_HOME).
// Returns the loader's status (0 on success).
int32_t load_tz_image(const void **img);

// When neither KELTAR_HOME nor KEL_TZFILE is set, points the tool (its own
// environment) at the data of the installation it was run from, found
// relative to the executable named by argv0: <prefix>/share/kelcore10 as
// KELTAR_HOME, or in a build tree the time-zone image built beside it as
// KEL_TZFILE.
void find_own_data(const char *argv0);

int cmd_num(int argc, char **argv);
int cmd_base64(int argc, char **argv);
int cmd_url(int argc, char **argv);
int cmd_http(int argc, char **argv);
int cmd_date(int argc, char **argv);
int cmd_tz(int argc, char **argv);
int cmd_params(int argc, char **argv);
int cmd_tour();
// The usage text of every command (kelcore help).
extern const char kMainUsage[];

}  // namespace kelcore_tool

#endif
