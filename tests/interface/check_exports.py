#!/usr/bin/env python3
"""The dynamic symbol tables of the libraries show the interface and nothing
else: every defined function symbol is declared KELAPI in a public header, and
every KELAPI function of a header is defined by one of the libraries."""
import pathlib
import re
import subprocess
import sys

include_dir, *libs = sys.argv[1:]

declared = set()
decl_re = re.compile(r"\bKELAPI\b[^;{]*?\b([A-Za-z_][A-Za-z0-9_]*)\s*\(", re.S)
for header in pathlib.Path(include_dir).glob("*.h"):
    text = re.sub(r"/\*.*?\*/", " ", header.read_text(), flags=re.S)
    text = re.sub(r"//[^\n]*", " ", text)
    text = re.sub(r"#define[^\n]*", " ", text)
    declared.update(decl_re.findall(text))

defined = set()
for lib in libs:
    out = subprocess.run(["nm", "-D", "--defined-only", lib], capture_output=True, text=True, check=True).stdout
    for line in out.splitlines():
        parts = line.split()
        if len(parts) == 3 and parts[1] in ("T", "W", "i"):
            defined.add(parts[2])

# Symbols the toolchain adds on its own.
toolchain = {"_init", "_fini"}
extra = sorted(defined - declared - toolchain)
missing = sorted(declared - defined)
ok = True
if extra:
    ok = False
    print("exported but declared in no public header:", " ".join(extra))
if missing:
    ok = False
    print("declared KELAPI but exported by no library:", " ".join(missing))
print(f"{len(defined)} exported functions, {len(declared)} declared")
sys.exit(0 if ok else 1)
