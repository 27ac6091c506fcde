#!/usr/bin/env python3
"""Answers time-zone queries with Python's zoneinfo, the independent oracle of
the time-zone tests.

  tz_oracle.py QUERIES ANSWERS   one answer line per query line:
      "U name epoch"               -> "offset dst abbr"   (UTC instant)
      "L name y m d h mi s"        -> "o0 dst0 abbr0 o1 dst1 abbr1"
                                      (local time read with fold 0 and fold 1)
  tz_oracle.py names             every name zoneinfo knows, one a line
  tz_oracle.py cp037             the code page 037 byte of each ASCII character
  tz_oracle.py ordinals FILE OUT "y m d" lines -> proleptic Gregorian ordinal
"""
import sys
import zoneinfo
from datetime import datetime, timezone

def answer(zone, dt):
    off = int(dt.utcoffset().total_seconds())
    dst = 1 if dt.dst() else 0
    return f"{off} {dst} {dt.tzname()}"

def queries(src, dst):
    zones = {}
    with open(src) as inp, open(dst, "w") as out:
        for line in inp:
            f = line.split()
            z = zones.get(f[1]) or zones.setdefault(f[1], zoneinfo.ZoneInfo(f[1]))
            if f[0] == "U":
                dt = datetime.fromtimestamp(int(f[2]), tz=z)
                out.write(answer(z, dt) + "\n")
            else:
                y, m, d, h, mi, s = map(int, f[2:8])
                a = answer(z, datetime(y, m, d, h, mi, s, tzinfo=z, fold=0))
                b = answer(z, datetime(y, m, d, h, mi, s, tzinfo=z, fold=1))
                out.write(f"{a} {b}\n")

def main():
    if sys.argv[1] == "names":
        for n in sorted(zoneinfo.available_timezones()):
            print(n)
    elif sys.argv[1] == "cp037":
        print(" ".join(str(b) for b in bytes(range(128)).decode("ascii").encode("cp037")))
    elif sys.argv[1] == "ordinals":
        from datetime import date
        with open(sys.argv[2]) as inp, open(sys.argv[3], "w") as out:
            for line in inp:
                y, m, d = map(int, line.split())
                out.write(f"{date(y, m, d).toordinal()}\n")
    else:
        queries(sys.argv[1], sys.argv[2])

main()
