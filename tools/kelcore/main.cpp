// kelcore - the command-line face of the library: each subcommand is a thin
// layer over the public interface, one file per subcommand.
#include "common.h"
#include "lut.h"

using namespace kelcore_tool;

namespace kelcore_tool {

const char kMainUsage[] =
    "usage: kelcore [COMMAND ARGS... | help [COMMAND] | --version]\n"
    "  num EXPR [--bytes]              decimal arithmetic in library numbers\n"
    "  date TEXT [options]             convert and compute dates\n"
    "  tz list|info|at|transitions     query the time-zone file\n"
    "  params FILE [ARGS...]           parse a parameter file and command line\n"
    "  http get URL [options]          fetch an http or https URL\n"
    "  base64 [-d]                     base64 from standard input\n"
    "  url resolve BASE REF            resolve a URL reference\n"
    "  (no arguments)                  a short tour of a typical request\n"
    "Each command takes --help. Exit status: 0 success, 1 failure, 2 usage error.\n";

}  // namespace kelcore_tool

namespace {

struct Command {
  const char *name;
  int (*fn)(int, char **);
};

const Command kCommands[] = {
    {"num", cmd_num},   {"date", cmd_date}, {"tz", cmd_tz},         {"params", cmd_params},
    {"http", cmd_http}, {"url", cmd_url},   {"base64", cmd_base64},
};

const Command *find(const char *name) {
  for (const Command &c : kCommands)
    if (std::strcmp(name, c.name) == 0) return &c;
  return nullptr;
}

}  // namespace

int main(int argc, char **argv) {
  find_own_data(argv[0]);
  if (argc == 1) return cmd_tour();
  const char *a = argv[1];
  if (is_help(a) || (std::strcmp(a, "help") == 0 && argc == 2)) {
    std::fputs(kMainUsage, stdout);
    return kOk;
  }
  if (std::strcmp(a, "--version") == 0 && argc == 2) {
    std::printf("kelcore %s\n", lutver());
    return kOk;
  }
  if (std::strcmp(a, "help") == 0) {
    if (argc > 3) return usage_error("help", kMainUsage, "help takes one COMMAND");
    const Command *c = find(argv[2]);
    if (c == nullptr) return usage_error("help", kMainUsage, "unknown command '%s'", argv[2]);
    char help[] = "--help";
    char *args[] = {help, nullptr};
    return c->fn(1, args);
  }
  if (const Command *c = find(a)) return c->fn(argc - 2, argv + 2);
  std::fprintf(stderr, "kelcore: unknown command '%s'\n%s", a, kMainUsage);
  return kUsage;
}
