#include "common.h"
namespace kelcore_tool {
int cmd_tz(int, char **) {
  std::fprintf(stderr, "kelcore tz: not available yet\n");
  return kFail;
}
}  // namespace kelcore_tool
