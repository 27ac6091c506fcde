#!/usr/bin/env python3
"""Writes the proleptic Gregorian calendar from 15 October 1582 to 31 December
9999 as Python's datetime sees it: per day four little-endian 16-bit words
(year, month << 8 | day, ISO week << 8 | ISO weekday, ISO year)."""
import array
import datetime
import sys

start = datetime.date(1582, 10, 15)
end = datetime.date(9999, 12, 31)
out = array.array("H")
d = start
one = datetime.timedelta(days=1)
for o in range(start.toordinal(), end.toordinal() + 1):
    iy, iw, wd = d.isocalendar()
    out.extend((d.year, d.month << 8 | d.day, iw << 8 | wd, iy))
    if o != end.toordinal():
        d += one
if sys.byteorder != "little":
    out.byteswap()
with open(sys.argv[1], "wb") as f:
    out.tofile(f)
