#!/usr/bin/env python3
"""Answers datetime queries with Python's datetime and zoneinfo, the
independent oracle of the datetime tests. One answer line per query line.

  SUB  y m d h mi s  y m d h mi s      -> whole seconds of a - b
  ADDS y m d h mi s secs               -> "y m d h mi s" or "ERR"
  ADDM y m d years months              -> "y m d", "ERR1839" or "ERR1841"
  MONB y m d h mi s  y m d h mi s      -> whole months from b to a
  UTC  zone y m d h mi s hint          -> "y m d h mi s offset"  (local -> UTC)
  LOC  zone y m d h mi s               -> "y m d h mi s offset"  (UTC -> local)
  ADDTZ zone y m d h mi s hint secs    -> "y m d h mi s offset"  (wall clock + secs)
  ISO  days secs nanos                 -> ISO 8601 duration text of the sum
  SCALE total factor op ym             -> total * factor (op "*") or / factor,
                                          to an integer: half away from zero,
                                          or toward zero when ym is 1
  DIV  total divisor                   -> total / divisor as plain decimal text
"""
import decimal
import calendar
import sys
import zoneinfo
from datetime import datetime, timedelta, timezone

def resolve(z, y, m, d, h, mi, s, hint):
    """The aware value of a local time, the hint offset choosing a fold."""
    a = datetime(y, m, d, h, mi, s, tzinfo=z, fold=0)
    b = datetime(y, m, d, h, mi, s, tzinfo=z, fold=1)
    oa = int(a.utcoffset().total_seconds())
    ob = int(b.utcoffset().total_seconds())
    if oa != ob and oa > ob:  # a repeated hour: fold 0 is the earlier (larger) offset
        return a if hint != 0 and hint == oa else b
    return a

def fields(dt):
    return f"{dt.year} {dt.month} {dt.day} {dt.hour} {dt.minute} {dt.second}"

def iso(days, secs, nanos):
    total = (days * 86400 + secs) * 10**9 + nanos
    neg = total < 0
    total = abs(total)
    d, r = divmod(total, 86400 * 10**9)
    h, r = divmod(r, 3600 * 10**9)
    mi, r = divmod(r, 60 * 10**9)
    s, ns = divmod(r, 10**9)
    out = "-P" if neg else "P"
    if d:
        out += f"{d}D"
    if h or mi or s or ns or not d:
        out += "T"
        if h:
            out += f"{h}H"
        if mi:
            out += f"{mi}M"
        if s or ns or not (d or h or mi):
            out += str(s)
            if ns:
                out += "." + f"{ns:09d}".rstrip("0")
            out += "S"
    return out

def answer(f, zones):
    op = f[0]
    if op == "SUB":
        a = datetime(*map(int, f[1:7]))
        b = datetime(*map(int, f[7:13]))
        td = a - b
        return str(td.days * 86400 + td.seconds)
    if op == "ADDS":
        a = datetime(*map(int, f[1:7]))
        try:
            return fields(a + timedelta(seconds=int(f[7])))
        except OverflowError:
            return "ERR"
    if op == "ADDM":
        y, m, d, years, months = map(int, f[1:6])
        n = (y + years) * 12 + (m - 1) + months
        y2, m2 = divmod(n, 12)
        m2 += 1
        if y2 < -4712 or y2 > 9999:
            return "ERR1841"
        if y2 >= 1 and d > calendar.monthrange(y2, m2)[1]:
            return "ERR1839"
        return f"{y2} {m2} {d}"
    if op == "MONB":
        a = datetime(*map(int, f[1:7]))
        b = datetime(*map(int, f[7:13]))
        lo, hi, sign = (b, a, 1) if a >= b else (a, b, -1)
        n = (hi.year - lo.year) * 12 + hi.month - lo.month
        # The last month counts only when complete.
        if (hi.day, hi.hour, hi.minute, hi.second) < (lo.day, lo.hour, lo.minute, lo.second):
            n -= 1
        return str(sign * n)
    if op in ("UTC", "LOC", "ADDTZ"):
        z = zones.get(f[1]) or zones.setdefault(f[1], zoneinfo.ZoneInfo(f[1]))
        y, m, d, h, mi, s = map(int, f[2:8])
        if op == "LOC":
            dt = datetime(y, m, d, h, mi, s, tzinfo=timezone.utc).astimezone(z)
            return f"{fields(dt)} {int(dt.utcoffset().total_seconds())}"
        hint = int(f[8])
        dt = resolve(z, y, m, d, h, mi, s, hint)
        if op == "UTC":
            u = dt.astimezone(timezone.utc)
            return f"{fields(u)} {int(dt.utcoffset().total_seconds())}"
        w = dt.replace(tzinfo=None) + timedelta(seconds=int(f[9]))
        r = resolve(z, w.year, w.month, w.day, w.hour, w.minute, w.second,
                    int(dt.utcoffset().total_seconds()))
        return f"{fields(w)} {int(r.utcoffset().total_seconds())}"
    if op == "ISO":
        return iso(int(f[1]), int(f[2]), int(f[3]))
    if op == "SCALE":
        ctx = decimal.Context(prec=80)
        t, fac = decimal.Decimal(f[1]), decimal.Decimal(f[2])
        v = ctx.multiply(t, fac) if f[3] == "*" else ctx.divide(t, fac)
        mode = decimal.ROUND_DOWN if f[4] == "1" else decimal.ROUND_HALF_UP
        return str(int(v.quantize(decimal.Decimal(1), rounding=mode, context=ctx)))
    if op == "DIV":
        # Library numbers keep 20 base-100 digits: 40 decimal digits when
        # the first base-100 digit has two, else 39.
        ctx = decimal.Context(prec=80)
        v = ctx.divide(decimal.Decimal(f[1]), decimal.Decimal(f[2]))
        lead = v.adjusted() + 1
        sig = 40 if lead % 2 == 0 else 39
        v = v.quantize(decimal.Decimal(10) ** (lead - sig), rounding=decimal.ROUND_HALF_UP, context=ctx)
        return format(v.normalize(ctx), "f")
    raise ValueError(op)

def main():
    zones = {}
    with open(sys.argv[1]) as inp, open(sys.argv[2], "w") as out:
        for line in inp:
            out.write(answer(line.split(), zones) + "\n")

main()
