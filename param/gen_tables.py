#!/usr/bin/env python3
"""Packs the LALR(1) automaton that bison reports in XML into the parse
driver's row-displacement tables and writes them as a C++ source.

Usage: gen_tables.py report.xml out.cpp symbol

Action rows are indexed by token code (end of input 0, characters by their
own code, named tokens from 259, `error` 256); goto rows by state number.
Both kinds share one table and check array; every row gets its own base, so
a probe can only match an entry of its own row. A table value v >= 1 shifts
to state v, v <= 0 reduces by rule -v; reducing by rule 0 (whose left-hand
side is the accepting symbol) accepts, which is how the shift of end of
input into bison's final state is written. A state without any entry of its
own gets base -32768 so the driver can reduce by its default rule without a
lookahead. The same actions and gotos are also written out dense (see
below), which is what the driver reads on its hot path."""
import sys
import xml.etree.ElementTree as ET

NONE_BASE = -32768

src, out, sym = sys.argv[1:4]
root = ET.parse(src).getroot()
gram = root.find("grammar")

term_code = {}
for t in gram.find("terminals"):
    term_code[t.get("name")] = int(t.get("token-number"))
nonterms = sorted(gram.find("nonterminals"), key=lambda n: int(n.get("symbol-number")))
nt_index = {n.get("name"): i for i, n in enumerate(nonterms)}

def shown(name):
    if name == "$end":
        return "end$"
    if len(name) == 3 and name[0] == "'" and name[2] == "'":
        return name[1]
    return name

rules = []
for r in gram.find("rules"):
    num = int(r.get("number"))
    lhs = r.find("lhs").text
    rhs = [s.text for s in r.find("rhs") if s.tag == "symbol"]
    assert num == len(rules), "rules out of order"
    text = lhs + ": " + (" ".join(shown(s) for s in rhs) if rhs else "(empty)")
    rules.append((nt_index[lhs], len(rhs), text))
assert rules[0][0] == 0, "rule 0 must be the accepting rule"

states = root.find("automaton")
nstates = len(states)
final_states = set()
actions = []   # per state: dict code -> value, default rule (0 = error)
gotos = {}     # nonterminal index -> {state: target}
for st in states:
    s = int(st.get("number"))
    assert s == len(actions)
    row, dflt = {}, 0
    acts = st.find("actions")
    for tr in acts.find("transitions"):
        name, target = tr.get("symbol"), int(tr.get("state"))
        if tr.get("type") == "shift":
            row[term_code[name]] = target
        else:
            gotos.setdefault(nt_index[name], {})[s] = target
    for err in acts.find("errors"):
        sys.exit("explicit error actions are not supported")
    for red in acts.find("reductions"):
        if red.get("enabled") == "false":
            continue
        rule = red.get("rule")
        if rule == "accept":
            final_states.add(s)
            continue
        if red.get("symbol") == "$default":
            dflt = int(rule)
        else:
            row[term_code[red.get("symbol")]] = -int(rule)
    actions.append([row, dflt])

# Shifting end of input into the final state is the accept action.
for row, _ in actions:
    for code, v in list(row.items()):
        if v > 0 and v in final_states:
            assert code == 0
            row[code] = 0

# Default gotos: the most common target of each nonterminal.
nnt = len(nonterms)
gdef = [0] * nnt
grows = [dict() for _ in range(nnt)]
for a, m in gotos.items():
    counts = {}
    for t in m.values():
        counts[t] = counts.get(t, 0) + 1
    d = max(sorted(counts), key=lambda t: counts[t])
    gdef[a] = d
    grows[a] = {s: t for s, t in m.items() if t != d}

# Row-displacement packing, densest rows first, every base distinct.
rows = [("a", s, r[0]) for s, r in enumerate(actions)] + [("g", a, r) for a, r in enumerate(grows)]
rows.sort(key=lambda x: (-len(x[2]), x[0], x[1]))
table, check = {}, {}
used = set()
base = [NONE_BASE] * nstates
gbase = [NONE_BASE] * nnt
for kind, idx, row in rows:
    if not row:
        continue
    cols = sorted(row)
    b = -cols[0]
    while b in used or any((b + c) in table for c in cols):
        b += 1
    used.add(b)
    for c in cols:
        table[b + c] = row[c]
        check[b + c] = c
    if kind == "a":
        base[idx] = b
    else:
        gbase[idx] = b
last = max(table) if table else 0
for v in base + gbase + [last]:
    assert -32768 <= v <= 32767
tab = [table.get(i, 0) for i in range(last + 1)]
chk = [check.get(i, -1) for i in range(last + 1)]

# The same actions as a dense table, one column per terminal, read off the
# packed tables exactly as the driver's plain lookup reads them: the driver
# takes one index where the plain lookup takes several probes. Entries: 0
# error, v > 0 shift to state v, v < 0 reduce by rule -v - 1 (accept when
# that rule's left-hand side is the accepting symbol).
codes = sorted(set(term_code.values()))
ncols = len(codes) + 1            # the last column: any other code, an error
col_of = [len(codes)] * 265
for i, code in enumerate(codes):
    col_of[code] = i
def packed_action(state, code):
    b = base[state]
    i = b + code
    if b != NONE_BASE and 0 <= i <= last and chk[i] == code:
        v = tab[i]
        return v if v >= 1 else -(-v) - 1
    d = actions[state][1]
    return -d - 1 if d >= 1 else 0
dense = []
for st in range(nstates):
    dense += [packed_action(st, code) for code in codes] + [0]
def packed_goto(a, state):
    b = gbase[a]
    i = b + state
    if b != NONE_BASE and 0 <= i <= last and chk[i] == state:
        return tab[i]
    return gdef[a]
dgoto = [packed_goto(a, st) for a in range(nnt) for st in range(nstates)]

def arr(ctype, name, vals):
    body = ", ".join(str(v) for v in vals)
    return f"static const {ctype} {name}[] = {{{body}}};"

def cstr(s):
    return '"' + s.replace("\\", "\\\\").replace('"', '\\"') + '"'

lines = [
    "// Generated by param/gen_tables.py from bison's report of param/lrmpzp.y; do not edit.",
    '#include "param/pz_impl.h"',
    "",
    "namespace pz_internal {",
    "",
    arr("int16_t", "k_base", base),
    arr("int16_t", "k_default", [a[1] for a in actions]),
    arr("int16_t", "k_table", tab),
    arr("int16_t", "k_check", chk),
    arr("int16_t", "k_gbase", gbase),
    arr("int16_t", "k_gdefault", gdef),
    arr("int16_t", "k_lhs", [r[0] for r in rules]),
    arr("uint8_t", "k_rlen", [r[1] for r in rules]),
    "static const char *const k_rtext[] = {" + ", ".join(cstr(r[2]) for r in rules) + "};",
    arr("uint8_t", "k_column", col_of),
    arr("int16_t", "k_dense", dense),
    arr("int16_t", "k_dgoto", dgoto),
    "",
    f"extern const pztables {sym} = {{",
    f"    {nstates}, {len(rules)}, {nnt}, {last}, 0,",
    "    k_base, k_default, k_table, k_check, k_gbase, k_gdefault, k_lhs, k_rlen, k_rtext,",
    f"    {ncols}, k_column, k_dense, k_dgoto}};",
    "",
    "}  // namespace pz_internal",
]
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
