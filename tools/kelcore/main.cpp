// kelcore - the command-line face of the library: each subcommand is a thin
// layer over the public interface, one file per subcommand.
#include "common.h"

using namespace kelcore_tool;

namespace {

const char kUsageText[] =
    "usage: kelcore [COMMAND ARGS... | --help]\n"
    "  num EXPR [--bytes]              decimal arithmetic in library numbers\n"
    "  date TEXT [options]             convert and compute dates\n"
    "  tz list|info|at|transitions     query the time-zone file\n"
    "  params FILE [ARGS...]           parse a parameter file and command line\n"
    "  http get URL                    fetch an http URL\n"
    "  base64 [-d]                     base64 from standard input\n"
    "  url resolve BASE REF            resolve a URL reference\n"
    "  (no arguments)                  a short tour of a typical request\n"
    "Each command takes --help. Exit status: 0 success, 1 failure, 2 usage error.\n";

struct Command {
  const char *name;
  int (*fn)(int, char **);
};

const Command kCommands[] = {
    {"num", cmd_num},   {"date", cmd_date}, {"tz", cmd_tz},         {"params", cmd_params},
    {"http", cmd_http}, {"url", cmd_url},   {"base64", cmd_base64},
};

}  // namespace

int main(int argc, char **argv) {
  if (argc == 1) return cmd_tour();
  if (is_help(argv[1])) {
    std::fputs(kUsageText, stdout);
    return kOk;
  }
  for (const Command &c : kCommands)
    if (std::strcmp(argv[1], c.name) == 0) return c.fn(argc - 2, argv + 2);
  std::fprintf(stderr, "kelcore: unknown command '%s'\n%s", argv[1], kUsageText);
  return kUsage;
}
