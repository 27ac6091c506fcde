#!/usr/bin/env python3
"""Compiles the C examples of README.md as a reader would use them.

usage: readme_examples.py README CC [COMPILER AND LINKER ARGUMENTS...]

Every ```c block becomes one program: the functions it defines at the margin
go before main, its other lines into main. main first starts the library and
names what the examples share: the context `ctx`, its memory context `mctx`
and a heap `heap` (the first example shows how they are made; a block that
declares them itself gets its own). Every public header is included, as a
reader includes the ones the example names. The program must compile and
link without warnings."""
import os
import re
import subprocess
import sys
import tempfile

readme, cc, *args = sys.argv[1:]
include = next(a[2:] for a in args if a.startswith("-I"))
headers = sorted(h for h in os.listdir(include) if h.endswith(".h"))
for a in args:
    if a.startswith("-I") and a[2:] != include:
        headers += sorted(h for h in os.listdir(a[2:]) if h.startswith("kelmsg_") and h.endswith(".h"))

blocks = re.findall(r"^```c\n(.*?)^```", open(readme, encoding="utf-8").read(), re.S | re.M)
if not blocks:
    sys.exit("no C examples found in " + readme)
FUNC = re.compile(r"^(static\s+|inline\s+)*[A-Za-z_]\w*[\s*]+[A-Za-z_]\w*\s*\([^;]*\)\s*\{\s*$")
failures = 0
with tempfile.TemporaryDirectory() as tmp:
    for n, block in enumerate(blocks, 1):
        outer, inner, in_func = [], [], False
        for line in block.splitlines():
            if FUNC.match(line):
                in_func = True
            (outer if in_func else inner).append(line)
            if in_func and line == "}":
                in_func = False
        src = "".join("#include <%s>\n" % h for h in headers)
        src += "#include <stdio.h>\n#include <string.h>\n\n" + "\n".join(outer) + "\n\nint main(void) {\n"
        src += "  lcorectx *ctx = lpminit();\n  void *mctx = ctx->lmmctx;\n  lmmheap *heap = lmmtophp(mctx);\n"
        src += "  (void)mctx;\n  (void)heap;\n  {\n" + "\n".join("    " + l for l in inner) + "\n  }\n"
        src += "  lpmterm(ctx);\n  return 0;\n}\n"
        path = os.path.join(tmp, "example%d.c" % n)
        with open(path, "w") as f:
            f.write(src)
        r = subprocess.run([cc, "-std=c11", "-Wall", "-Werror", "-Wno-unused-variable", "-Wno-unused-but-set-variable",
                            "-Wno-shadow", path, "-o", path[:-2]] + args, capture_output=True, text=True)
        if r.returncode != 0:
            failures += 1
            print("README example %d does not compile:\n%s\n%s" % (n, block, r.stderr))
print("%d README example(s), %d failing" % (len(blocks), failures))
sys.exit(1 if failures else 0)
