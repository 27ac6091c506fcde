#!/usr/bin/env python3
"""Compiles the message files (nls/messages/<product>_<facility>.msg) into a
C++ source holding the built-in catalogues, and one header per file with the
message numbers as named constants (C macros, and C++ constants), so that
code, callers and catalogue share one list. Each line of a message file is "number, text"; '#' starts a comment
line, and a comment "#: NAME" names the message on the next line. Numbers
must be unique and are emitted in ascending order so that the library can
search them.

usage: gen_catalogues.py OUT.cpp HEADER_DIR FILE.msg..."""
import pathlib
import sys

out, hdrdir, *files = sys.argv[1:]
cats = []
for f in sorted(files):
    p = pathlib.Path(f)
    product, _, facility = p.stem.rpartition("_")
    if not product:
        sys.exit(f"{f}: file name must be <product>_<facility>.msg")
    seen = {}
    names = {}
    pending = None
    for n, line in enumerate(p.read_text(encoding="ascii").splitlines(), 1):
        if line.startswith("#:"):
            pending = line[2:].strip()
            if not pending.isidentifier():
                sys.exit(f"{f}:{n}: bad message name {pending!r}")
            continue
        if not line.strip() or line.lstrip().startswith("#"):
            continue
        num, sep, text = line.partition(",")
        if not sep or not num.strip().isdigit():
            sys.exit(f"{f}:{n}: expected 'number, text'")
        k = int(num)
        if k in seen:
            sys.exit(f"{f}:{n}: message {k} defined twice")
        seen[k] = text[1:] if text.startswith(" ") else text
        if pending:
            if pending in names:
                sys.exit(f"{f}:{n}: message name {pending} used twice")
            names[pending] = k
            pending = None
    cats.append((product.lower(), facility.lower(), sorted(seen.items())))
    # Plain C for callers (installed with the public headers): KELMSG_<NAME>
    # macros; C++ also gets the constants as kelmsg::<NAME>.
    guard = f"KEL_MSG_{product.upper()}_{facility.upper()}_H"
    hdr = [f"/* Message numbers of facility {facility.upper()} (product {product.upper()}), as lemgec",
           " * reports them for its records. Generated from nls/messages/"
           f"{p.name} by nls/gen_catalogues.py; do not edit. */",
           f"#ifndef {guard}", f"#define {guard}", ""]
    hdr += [f"#define KELMSG_{name} {num}" for name, num in names.items()]
    hdr += ["", "#ifdef __cplusplus", "#include <stdint.h>", "namespace kelmsg {"]
    hdr += [f"constexpr int32_t {name} = KELMSG_{name};" for name in names]
    hdr += ["}  // namespace kelmsg", "#endif", "", "#endif"]
    hpath = pathlib.Path(hdrdir) / f"kelmsg_{product.lower()}_{facility.lower()}.h"
    text = "\n".join(hdr) + "\n"
    if not hpath.exists() or hpath.read_text() != text:
        hpath.write_text(text)

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
