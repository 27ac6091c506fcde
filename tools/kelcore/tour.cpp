#include "common.h"
namespace kelcore_tool {
int cmd_tour() { return kOk; }
}  // namespace kelcore_tool
