#!/usr/bin/env python3
"""Runs the benchmark binaries and prints one table of ratios ours / peer.

Every bench_<family> binary prints lines "RATIO <family> <ours> <peer> <ratio>"
after its usual output (bench/support/ratio.h). This script runs the binaries
of the bench preset's build (./build.sh bench) with a short minimum time per
case, gathers those lines and prints them as one table, so that figures taken
on a loaded machine can still be compared: below 1 means ours is faster. Pairs
whose peer library was not installed when the benchmarks were configured are
named under the table.

  python3 bench/ratios.py                        every family
  python3 bench/ratios.py number datetime        only these families
  python3 bench/ratios.py --filter 'parse' url   also pass --benchmark_filter
  python3 bench/ratios.py --min-time 0.05 --build build/bench
  python3 bench/ratios.py hash --pass=--max=100000   extra argument for the binaries
"""
import argparse
import os
import subprocess
import sys
import time


def find_binaries(bench_dir):
    found = {}
    for root, _dirs, files in os.walk(bench_dir):
        for f in files:
            path = os.path.join(root, f)
            if f.startswith("bench_") and os.access(path, os.X_OK) and os.path.isfile(path):
                found[f[len("bench_"):]] = path
    return dict(sorted(found.items()))


def parse_ratios(text):
    rows = []
    for line in text.splitlines():
        parts = line.split()
        if len(parts) == 5 and parts[0] == "RATIO":
            try:
                rows.append((parts[1], parts[2], parts[3], float(parts[4])))
            except ValueError:
                pass
    return rows


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("families", nargs="*", help="families to run (default: all)")
    ap.add_argument("--build", default=os.path.join(here, "..", "build", "bench"),
                    help="build folder of the bench preset (default: build/bench)")
    ap.add_argument("--min-time", default="0.05",
                    help="seconds per case, passed as --benchmark_min_time (default 0.05)")
    ap.add_argument("--filter", help="regular expression passed as --benchmark_filter")
    ap.add_argument("--pass", dest="extra", action="append", default=[],
                    help="extra argument given to every binary run (repeatable)")
    ap.add_argument("--timeout", type=float, default=900, help="seconds per binary (default 900)")
    ap.add_argument("--list", action="store_true", help="list the families found and stop")
    args = ap.parse_args()

    bench_dir = os.path.join(args.build, "bench")
    binaries = find_binaries(bench_dir)
    if not binaries:
        sys.exit(f"ratios.py: no bench_* binaries under {bench_dir} (run ./build.sh bench first)")
    if args.list:
        print("\n".join(binaries))
        return 0
    unknown = [f for f in args.families if f not in binaries]
    if unknown:
        sys.exit(f"ratios.py: unknown families {' '.join(unknown)}; found: {' '.join(binaries)}")
    chosen = args.families or list(binaries)

    # Google Benchmark 1.8 wants a unit ("0.05s"); older releases a bare number.
    min_time = args.min_time if args.min_time.endswith(("s", "x")) else args.min_time + "s"
    rows, failed = [], []
    for fam in chosen:
        cmd = [binaries[fam], f"--benchmark_min_time={min_time}"]
        if args.filter:
            cmd.append(f"--benchmark_filter={args.filter}")
        cmd.extend(args.extra)
        start = time.monotonic()
        print(f"running {fam} ...", file=sys.stderr, flush=True)
        try:
            run = subprocess.run(cmd, capture_output=True, text=True, timeout=args.timeout,
                                 cwd=os.path.dirname(binaries[fam]))
        except subprocess.TimeoutExpired:
            failed.append(f"{fam} (timed out)")
            continue
        if run.returncode != 0 and "min_time" in run.stderr and min_time.endswith("s"):
            # An older library that does not take the unit.
            cmd[1] = f"--benchmark_min_time={min_time[:-1]}"
            run = subprocess.run(cmd, capture_output=True, text=True, timeout=args.timeout,
                                 cwd=os.path.dirname(binaries[fam]))
        got = parse_ratios(run.stdout)
        print(f"  {fam}: {len(got)} ratios in {time.monotonic() - start:.0f} s", file=sys.stderr)
        if run.returncode != 0:
            last = (run.stderr.strip().splitlines() or [""])[-1]
            failed.append(f"{fam} (exit {run.returncode}: {last})")
        elif not got:
            failed.append(f"{fam} (no RATIO lines)")
        rows.extend(got)

    if rows:
        wf = max(len("family"), *(len(r[0]) for r in rows))
        wo = max(len("ours"), *(len(r[1]) for r in rows))
        wp = max(len("peer"), *(len(r[2]) for r in rows))
        print(f"{'family':<{wf}}  {'ours':<{wo}}  {'peer':<{wp}}  {'ours/peer':>9}")
        for fam, ours, peer, ratio in rows:
            mark = "" if ratio <= 1 else "  slower"
            print(f"{fam:<{wf}}  {ours:<{wo}}  {peer:<{wp}}  {ratio:9.2f}{mark}")
        faster = sum(1 for r in rows if r[3] <= 1)
        print(f"\n{len(rows)} pairs: ours faster in {faster}, slower in {len(rows) - faster}")
    skipped = os.path.join(bench_dir, "skipped.txt")
    if os.path.exists(skipped):
        for line in open(skipped, encoding="utf-8").read().splitlines():
            if not args.families or line.split()[0].rstrip(":")[len("bench_"):] in args.families:
                print(f"note: {line}")
    for f in failed:
        print(f"ratios.py: {f}", file=sys.stderr)
    return 1 if failed or not rows else 0


if __name__ == "__main__":
    sys.exit(main())
