#!/usr/bin/env python3
"""Makes the status constants of the parameter family from the message file
of facility LRM, so that numbers are written once: a comment line "#= Name"
names the message on the next line. Usage: gen_status.py file.msg out.h"""
import sys

src, out = sys.argv[1:3]
names, pending = [], None
for n, line in enumerate(open(src, encoding="ascii"), 1):
    line = line.strip()
    if line.startswith("#="):
        pending = line[2:].strip()
    elif line and not line.startswith("#"):
        num = int(line.partition(",")[0])
        if pending:
            names.append((pending, num))
        pending = None
body = ["// Generated from nls/messages/kelcore_lrm.msg by param/gen_status.py; do not edit.",
        "#ifndef KEL_PARAM_LRM_STATUS_IMPL_H", "#define KEL_PARAM_LRM_STATUS_IMPL_H", "#include <cstdint>",
        "namespace lrm_internal {"]
body += [f"constexpr uint32_t k{name} = {num};" for name, num in names]
body += ["}  // namespace lrm_internal", "#endif"]
open(out, "w").write("\n".join(body) + "\n")
