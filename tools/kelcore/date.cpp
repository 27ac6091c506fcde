#include "common.h"
namespace kelcore_tool {
int cmd_date(int, char **) {
  std::fprintf(stderr, "kelcore date: not available yet\n");
  return kFail;
}
}  // namespace kelcore_tool
