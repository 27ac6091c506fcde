// kelcore - the command-line face of the library: each subcommand is a thin
// layer over the public interface.
#include <cstdio>
#include <cstring>

#include "sl.h"

namespace {

int tour() {
  std::printf("kelcore10 - core portability and utility library\n\n");
  std::printf("system layer\n");
  std::printf("  page size          %zu bytes\n", slmmvallocsz());
  std::printf("  default extent     %zu bytes\n", slmmstmsr());
  std::printf("  this thread        #%llu\n", static_cast<unsigned long long>(slthrself()));
  char home[256];
  int32_t n = slgetenv("KELTAR_HOME", home, sizeof home);
  std::printf("  KELTAR_HOME        %s\n", n < 0 ? "(not set)" : home);
  uint64_t t0 = slmonons();
  slsleepms(5);
  std::printf("  slept 5 ms, clock  %.2f ms passed\n", static_cast<double>(slmonons() - t0) / 1e6);
  return 0;
}

void usage(FILE *out) {
  std::fprintf(out,
               "usage: kelcore [--help]\n"
               "  with no arguments: a short tour of what the library does\n");
}

}  // namespace

int main(int argc, char **argv) {
  if (argc == 1) return tour();
  if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    usage(stdout);
    return 0;
  }
  std::fprintf(stderr, "kelcore: unknown command '%s'\n", argv[1]);
  usage(stderr);
  return 2;
}
