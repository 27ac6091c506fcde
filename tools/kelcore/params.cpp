#include "common.h"
namespace kelcore_tool {
int cmd_params(int, char **) {
  std::fprintf(stderr, "kelcore params: not available yet\n");
  return kFail;
}
}  // namespace kelcore_tool
