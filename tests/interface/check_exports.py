#!/usr/bin/env python3
"""The dynamic symbol tables of the libraries show the interface and nothing
else: every defined function symbol is declared KELAPI in a public header, and
every KELAPI function of a header is defined by one of the libraries.

Declarations inside `#ifdef KEL_TEST_HOOKS` belong to test builds only: with
--test-hooks ON they must be exported like the rest, with OFF they must not."""
import pathlib
import re
import subprocess
import sys

args = sys.argv[1:]
hooks = True
if args[0] == "--test-hooks":
    hooks = args[1].upper() in ("ON", "1", "TRUE", "YES")
    args = args[2:]
include_dir, *libs = args

declared = set()
test_only = set()
decl_re = re.compile(r"\bKELAPI\b[^;{]*?\b([A-Za-z_][A-Za-z0-9_]*)\s*\(", re.S)
hooks_re = re.compile(r"#ifdef\s+KEL_TEST_HOOKS\b(.*?)#endif", re.S)
for header in pathlib.Path(include_dir).glob("*.h"):
    text = re.sub(r"/\*.*?\*/", " ", header.read_text(), flags=re.S)
    text = re.sub(r"//[^\n]*", " ", text)
    for block in hooks_re.findall(text):
        test_only.update(decl_re.findall(block))
    text = hooks_re.sub(" ", text)
    text = re.sub(r"#define[^\n]*", " ", text)
    declared.update(decl_re.findall(text))
if hooks:
    declared |= test_only

defined = set()
for lib in libs:
    if lib.endswith(".dll"):  # a Windows DLL: the names of its export table
        out = subprocess.run(["objdump", "-p", lib], capture_output=True, text=True, check=True).stdout
        table = out.split("[Ordinal/Name Pointer] Table\n", 1)[1:] or [""]
        defined.update(re.findall(r"^\t\[\s*\d+\] (\S+)$", table[0].split("\n\n", 1)[0], re.M))
        continue
    out = subprocess.run(["nm", "-D", "--defined-only", lib], capture_output=True, text=True, check=True).stdout
    for line in out.splitlines():
        parts = line.split()
        if len(parts) == 3 and parts[1] in ("T", "W", "i"):
            defined.add(parts[2])

# Symbols the toolchain adds on its own.
# (mangle_path and __gcov_* come with gcc's --coverage runtime.)
toolchain = {"_init", "_fini", "mangle_path"}
extra = sorted(n for n in defined - declared - toolchain if not n.startswith("__gcov"))
missing = sorted(declared - defined)
ok = True
if not hooks and test_only & defined:
    ok = False
    print("test-build functions exported by a release build:", " ".join(sorted(test_only & defined)))
    extra = sorted(set(extra) - test_only)
if extra:
    ok = False
    print("exported but declared in no public header:", " ".join(extra))
if missing:
    ok = False
    print("declared KELAPI but exported by no library:", " ".join(missing))
print(f"{len(defined)} exported functions, {len(declared)} declared")
sys.exit(0 if ok else 1)
