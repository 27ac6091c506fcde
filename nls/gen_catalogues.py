#!/usr/bin/env python3
"""Compiles the message files (nls/messages/<product>_<facility>.msg) into a
C++ source holding the built-in catalogues. Each line of a message file is
"number, text"; '#' starts a comment line. Numbers must be unique and are
emitted in ascending order so that the library can search them."""
import pathlib
import sys

out, *files = sys.argv[1:]
cats = []
for f in sorted(files):
    p = pathlib.Path(f)
    product, _, facility = p.stem.rpartition("_")
    if not product:
        sys.exit(f"{f}: file name must be <product>_<facility>.msg")
    seen = {}
    for n, line in enumerate(p.read_text(encoding="ascii").splitlines(), 1):
        if not line.strip() or line.lstrip().startswith("#"):
            continue
        num, sep, text = line.partition(",")
        if not sep or not num.strip().isdigit():
            sys.exit(f"{f}:{n}: expected 'number, text'")
        k = int(num)
        if k in seen:
            sys.exit(f"{f}:{n}: message {k} defined twice")
        seen[k] = text[1:] if text.startswith(" ") else text
    cats.append((product.lower(), facility.lower(), sorted(seen.items())))

def cstr(s):
    return '"' + s.replace("\\", "\\\\").replace('"', '\\"') + '"'

lines = ["// Generated from nls/messages/*.msg by nls/gen_catalogues.py; do not edit.",
         '#include "nls/msgcat_impl.h"', "", "namespace nls_internal {", ""]
for prod, fac, items in cats:
    lines.append(f"static const msgent k_{prod}_{fac}[] = {{")
    lines += [f"    {{{k}, {cstr(t)}}}," for k, t in items]
    lines.append("};")
lines.append("")
lines.append("const msgcat kCatalogues[] = {")
for prod, fac, items in cats:
    lines.append(f'    {{"{prod}", "{fac}", k_{prod}_{fac}, {len(items)}}},')
lines.append("};")
lines.append(f"const size_t kCatalogueCount = {len(cats)};")
lines.append("")
lines.append("}  // namespace nls_internal")
pathlib.Path(out).write_text("\n".join(lines) + "\n")
