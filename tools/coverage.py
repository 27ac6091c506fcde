#!/usr/bin/env python3
"""coverage.py - line and branch coverage of the library, one row per family.

Run by `./build.sh coverage` after the coverage preset's test suite: gcovr
reads the .gcda files under the build folder, and the files of each source
folder (a family; sys/ and nls/ included) are summed into one row. Tests,
benchmarks, fuzz harnesses, tools and generated sources are left out.
Branches are counted as gcc reports them, less the ones only exceptions take.

  tools/coverage.py build/coverage
"""
import collections
import json
import os
import subprocess
import sys

build = sys.argv[1] if len(sys.argv) > 1 else "build/coverage"
root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
out = os.path.join(build, "coverage.json")
# (gcov's complaints about CMake's own probe programs are of no interest.)
subprocess.run(
    ["gcovr", "--root", root, "--object-directory", build, "--json-summary", out,
     "--exclude-throw-branches", "--exclude-unreachable-branches", "--gcov-ignore-parse-errors"],
    check=True, cwd=root, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
with open(out) as f:
    files = json.load(f)["files"]

not_library = {"tests", "bench", "fuzz", "tools", "build"}
fams = collections.defaultdict(lambda: [0, 0, 0, 0])
for rec in files:
    parts = rec["filename"].replace("\\", "/").split("/")
    if len(parts) < 2 or parts[0] in not_library:
        continue
    t = fams[parts[0]]
    t[0] += rec["line_covered"]
    t[1] += rec["line_total"]
    t[2] += rec["branch_covered"]
    t[3] += rec["branch_total"]


def pct(a, b):
    return f"{100.0 * a / b:5.1f}%" if b else "    -"


print(f"{'family':10} {'lines':>17} {'':6} {'branches':>17} {'':6}")
total = [0, 0, 0, 0]
for fam in sorted(fams):
    t = fams[fam]
    total = [x + y for x, y in zip(total, t)]
    print(f"{fam:10} {t[0]:8}/{t[1]:<8} {pct(t[0], t[1])} {t[2]:8}/{t[3]:<8} {pct(t[2], t[3])}")
print(f"{'all':10} {total[0]:8}/{total[1]:<8} {pct(total[0], total[1])} "
      f"{total[2]:8}/{total[3]:<8} {pct(total[2], total[3])}")
