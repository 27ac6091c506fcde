#!/usr/bin/env python3
"""Runs the kelcore tool and checks its answers against Python's own
decimal, datetime and zoneinfo modules."""
import base64
import datetime as dt
import os
import subprocess
import sys
import tempfile
from decimal import Decimal, getcontext, ROUND_HALF_UP, ROUND_FLOOR, ROUND_CEILING, ROUND_DOWN
from zoneinfo import ZoneInfo

TOOL = sys.argv[1]
IMAGE = sys.argv[2]
failures = []
checks = [0]


def run(args, stdin=b"", env_extra=None, drop_env=()):
    env = dict(os.environ)
    for k in drop_env:
        env.pop(k, None)
    if env_extra:
        env.update(env_extra)
    p = subprocess.run([TOOL] + args, input=stdin, capture_output=True, env=env, timeout=60)
    return p.returncode, p.stdout, p.stderr


def check(name, cond, detail=""):
    checks[0] += 1
    if not cond:
        failures.append(f"{name}: {detail}")


# ---------------------------------------------------------------- num
getcontext().prec = 80
D = Decimal


def rnd(x, n=0):
    return x.quantize(D(1).scaleb(-n), rounding=ROUND_HALF_UP)


def trc(x, n=0):
    return x.quantize(D(1).scaleb(-n), rounding=ROUND_DOWN)


def mod(a, b):  # sign of the dividend
    return a - b * (a / b).to_integral_value(rounding=ROUND_DOWN)


# (expression, exact expected value, whether the result is exact)
NUM_CASES = [
    ("1+2*3", D(1) + D(2) * D(3), True),
    ("(1+2)*3", (D(1) + D(2)) * D(3), True),
    ("-(1.5 - 0.25) * -4", -(D("1.5") - D("0.25")) * D(-4), True),
    ("0.1 + 0.2", D("0.1") + D("0.2"), True),
    ("123456789012345678901234567890 * 1000", D("123456789012345678901234567890") * 1000, True),
    ("1e10 / 4", D("1e10") / 4, True),
    ("2.5E-3 - 1", D("2.5E-3") - 1, True),
    ("round(2.345, 2)", rnd(D("2.345"), 2), True),
    ("round(-2.5)", rnd(D("-2.5")), True),
    ("round(1234.5, -2)", rnd(D("1234.5"), -2), True),
    ("trunc(-2.99)", trc(D("-2.99")), True),
    ("trunc(3.14159, 3)", trc(D("3.14159"), 3), True),
    ("floor(-2.5)", D("-2.5").to_integral_value(rounding=ROUND_FLOOR), True),
    ("ceil(2.1)", D("2.1").to_integral_value(rounding=ROUND_CEILING), True),
    ("mod(-7, 3)", mod(D(-7), D(3)), True),
    ("mod(7.5, -2)", mod(D("7.5"), D(-2)), True),
    ("1/3", D(1) / D(3), False),
    ("2/3 * 3", D(2) / D(3) * 3, False),
    ("-10/7", D(-10) / D(7), False),
]
for expr, want, exact in NUM_CASES:
    rc, out, err = run(["num", expr])
    if rc != 0:
        check(f"num {expr!r}", False, f"rc={rc} {err!r}")
        continue
    got = D(out.decode().strip())
    if exact:
        check(f"num {expr!r}", got == want, f"got {got}, want {want}")
    else:
        # Rounded to 38 or more significant digits.
        check(f"num {expr!r}", abs(got - want) <= abs(want) * D("1e-37"), f"got {got}, want ~{want}")

# --bytes: the stored form of a few numbers, derived from the base-100 layout.
def lnx_bytes(text):
    x = D(text)
    if x == 0:
        return [0x80]
    neg = x < 0
    x = abs(x)
    e = 0
    while x >= 100:
        x /= 100
        e += 1
    while x < 1:
        x *= 100
        e -= 1
    digits = []
    while x != 0 and len(digits) < 20:
        d = int(x)
        digits.append(d)
        x = (x - d) * 100
    while digits and digits[-1] == 0:
        digits.pop()
    if neg:
        b = [255 - (193 + e)] + [101 - d for d in digits]
        if len(b) < 21:
            b.append(102)
    else:
        b = [193 + e] + [d + 1 for d in digits]
    return b


for text in ["1", "100", "-1", "123.45", "0.001", "-98765.4321", "0"]:
    rc, out, err = run(["num", text, "--bytes"])
    lines = out.decode().split("\n")
    want = " ".join("%02X" % b for b in lnx_bytes(text))
    check(f"num --bytes {text}", rc == 0 and len(lines) >= 2 and lines[1] == want, f"got {lines!r}, want {want}")

for expr in ["1 +", "(1", "foo(2)", "1 2", "round(1, 0.5)", ""]:
    rc, out, err = run(["num", expr])
    check(f"num bad {expr!r}", rc == 1 and err, f"rc={rc}")

# ---------------------------------------------------------------- date
def add_months(d, n):
    """Adds months, moving a month's last day to the target month's last day."""
    m = d.month - 1 + n
    y, m = d.year + m // 12, m % 12 + 1
    last = (dt.date(y + (m == 12), m % 12 + 1, 1) - dt.timedelta(days=1)).day
    src_last = (dt.date(d.year + (d.month == 12), d.month % 12 + 1, 1) - dt.timedelta(days=1)).day
    day = last if d.day == src_last else min(d.day, last)
    return d.replace(year=y, month=m, day=day)


DATE_CASES = [
    ("2024-01-31", 1), ("2024-01-31", 13), ("2023-02-28", 12), ("2024-02-29", -12),
    ("2000-05-15", -5), ("1999-12-31", 2), ("2024-03-30", 1),
]
for text, n in DATE_CASES:
    d = dt.datetime.strptime(text, "%Y-%m-%d")
    want = add_months(d, n).strftime("%Y-%m-%d")
    rc, out, err = run(["date", text, "--add-months", str(n)])
    check(f"date {text} +{n}m", rc == 0 and out.decode().strip() == want, f"got {out!r} {err!r}, want {want}")

for text, n in [("2024-02-28 23:59:59", 1), ("2023-12-31 12:00:00", 1), ("2024-03-01 00:00:00", -366),
                ("1970-01-01 00:00:00", 20000)]:
    d = dt.datetime.strptime(text, "%Y-%m-%d %H:%M:%S") + dt.timedelta(days=n)
    want = d.strftime("%Y-%m-%d %H:%M:%S")
    rc, out, err = run(["date", text, "--add-days", str(n)])
    check(f"date {text} +{n}d", rc == 0 and out.decode().strip() == want, f"got {out!r} {err!r}, want {want}")

for text, unit, want in [("2024-08-17 13:45:10", "MM", "2024-08-01 00:00:00"),
                         ("2024-08-17 13:45:10", "YYYY", "2024-01-01 00:00:00"),
                         ("2024-08-17 13:45:10", "HH", "2024-08-17 13:00:00")]:
    rc, out, err = run(["date", text, "--trunc", unit])
    check(f"date trunc {unit}", rc == 0 and out.decode().strip() == want, f"got {out!r} {err!r}")
for text, unit, want in [("2024-08-17", "YYYY", "2025-01-01"), ("2024-08-15", "MM", "2024-08-01"),
                         ("2024-08-16", "MM", "2024-09-01")]:
    rc, out, err = run(["date", text, "--round", unit])
    check(f"date round {text} {unit}", rc == 0 and out.decode().strip() == want, f"got {out!r} {err!r}")

rc, out, err = run(["date", "17/08/2024", "--in", "DD/MM/YYYY", "--out", "YYYY-MM-DD"])
check("date --in/--out", rc == 0 and out.decode().strip() == "2024-08-17", f"{out!r} {err!r}")

for text in ["2024-02-30", "2023-13-01", "not a date"]:
    rc, out, err = run(["date", text])
    check(f"date bad {text}", rc == 1 and err, f"rc={rc}")

# ---------------------------------------------------------------- tz
TZ_ENV = {"KEL_TZFILE": IMAGE}


def fmt_off(td):
    s = int(td.total_seconds())
    a = abs(s)
    r = "%c%02d:%02d" % ("-" if s < 0 else "+", a // 3600, a // 60 % 60)
    if a % 60:
        r += ":%02d" % (a % 60)
    return r


TZ_CASES = [
    ("Europe/Paris", "2024-07-01 12:00:00"), ("Europe/Paris", "2024-01-15 08:30:00"),
    ("America/New_York", "2024-11-03 05:30:00"), ("America/New_York", "2024-11-03 06:30:00"),
    ("America/New_York", "2024-03-10 06:59:59"), ("America/New_York", "2024-03-10 07:00:00"),
    ("Asia/Kolkata", "2000-01-01 00:00:00"), ("Australia/Lord_Howe", "2024-01-01 00:00:00"),
    ("Australia/Sydney", "2023-06-30 18:00:00"), ("Pacific/Chatham", "2010-12-31 23:00:00"),
    ("America/Sao_Paulo", "2018-12-01 12:00:00"), ("Asia/Tokyo", "1990-05-05 05:05:05"),
]
for region, instant in TZ_CASES:
    u = dt.datetime.strptime(instant, "%Y-%m-%d %H:%M:%S").replace(tzinfo=dt.timezone.utc)
    loc = u.astimezone(ZoneInfo(region))
    want = "%s %s %s%s" % (loc.strftime("%Y-%m-%d %H:%M:%S"), fmt_off(loc.utcoffset()), loc.tzname(),
                           " DST" if loc.dst() else "")
    rc, out, err = run(["tz", "at", region, instant], env_extra=TZ_ENV)
    check(f"tz at {region} {instant}", rc == 0 and out.decode().strip() == want,
          f"got {out!r} {err!r}, want {want!r}")

# Without KEL_TZFILE and KELTAR_HOME the tool finds the image built with it.
rc, out, err = run(["tz", "at", "Europe/Paris", "2024-07-01 12:00"], drop_env=("KEL_TZFILE", "KELTAR_HOME"))
check("tz fallback image", rc == 0 and out.decode().startswith("2024-07-01 14:00:00 +02:00"), f"{out!r} {err!r}")

rc, out, err = run(["tz", "list"], env_extra=TZ_ENV)
names = out.decode().split()
check("tz list", rc == 0 and "Europe/Paris" in names and "America/New_York" in names and len(names) > 300,
      f"rc={rc} {len(names)} names")

# Transitions of a region in a year: the instants where Python sees the offset change.
for region, year in [("Europe/Paris", 2024), ("America/New_York", 2023), ("Australia/Sydney", 2022)]:
    z = ZoneInfo(region)
    want = []
    t = dt.datetime(year, 1, 1, tzinfo=dt.timezone.utc)
    end = dt.datetime(year + 1, 1, 1, tzinfo=dt.timezone.utc)
    prev = t.astimezone(z).utcoffset()
    while t < end:
        nxt = t + dt.timedelta(hours=1)
        off = nxt.astimezone(z).utcoffset()
        if off != prev:
            lo, hi = t, nxt  # find the exact second
            while hi - lo > dt.timedelta(seconds=1):
                mid = lo + (hi - lo) / 2
                if mid.astimezone(z).utcoffset() == prev:
                    lo = mid
                else:
                    hi = mid
            loc = hi.astimezone(z)
            want.append("%s UTC %s%s" % (hi.strftime("%Y-%m-%d %H:%M:%S"), fmt_off(off), " DST" if loc.dst() else ""))
            prev = off
        t = nxt
    rc, out, err = run(["tz", "transitions", region, "--from", str(year), "--to", str(year)], env_extra=TZ_ENV)
    got = out.decode().strip().split("\n")
    check(f"tz transitions {region} {year}", rc == 0 and got == want, f"got {got}, want {want}")

rc, out, err = run(["tz", "at", "No/Such_Region", "2024-01-01"], env_extra=TZ_ENV)
check("tz unknown region", rc == 1 and b"No/Such_Region" in err, f"rc={rc}")
rc, out, err = run(["tz", "info", "europe/paris"], env_extra=TZ_ENV)
check("tz info", rc == 0 and b"Europe/Paris" in out, f"{out!r}")

rc, out, err = run(["date", "2024-06-01 00:00:00", "--tz", "Asia/Kolkata"], env_extra=TZ_ENV)
check("date --tz", rc == 0 and out.decode().strip() == "2024-06-01 05:30:00 +05:30 IST", f"{out!r} {err!r}")

# ---------------------------------------------------------------- params
with tempfile.TemporaryDirectory() as tmp:
    good = os.path.join(tmp, "good.par")
    with open(good, "w") as f:
        f.write("# settings\nname = \"hello world\"\ncount = 42\nverbose = yes\nrate = 1.25\nlist = (a b c)\n")
    rc, out, err = run(["params", good, "count=7", "--keys",
                        "name,count:int,verbose:bool,rate:number,list"])
    want = ['name[0] string = "hello world"', "count[0] int = 42", "count[1] int = 7",
            "verbose[0] bool = TRUE", "rate[0] number = 1.25", 'list[0] string = "a"',
            'list[1] string = "b"', 'list[2] string = "c"']
    check("params typed", rc == 0 and out.decode().strip().split("\n") == want, f"{out!r} {err!r}")
    rc, out, err = run(["params", good])
    check("params dump", rc == 0 and b"count=42" in out and b'name="hello world"' in out, f"{out!r} {err!r}")

    bad = os.path.join(tmp, "bad.par")
    with open(bad, "w") as f:
        f.write("a = 1\n\nb = (x\n")
    rc, out, err = run(["params", bad])
    check("params syntax error", rc == 1 and b"bad.par" in err and b"line" in err, f"rc={rc} {err!r}")
    rc, out, err = run(["params", good, "--keys", "count:int"])
    check("params unknown key", rc == 1 and b"name" in err, f"rc={rc} {err!r}")
    rc, out, err = run(["params", good, "--keys", "count:float"])
    check("params bad keyspec", rc == 2, f"rc={rc}")
    rc, out, err = run(["params", os.path.join(tmp, "missing.par")])
    check("params missing file", rc == 1 and b"missing.par" in err, f"rc={rc} {err!r}")

# ---------------------------------------------------------------- base64, url
for data in [b"", b"f", b"fo", b"foo", b"foob", b"hello world", bytes(range(256))]:
    rc, out, err = run(["base64"], stdin=data)
    check(f"base64 enc {data[:8]!r}", rc == 0 and out.strip() == base64.b64encode(data), f"{out!r}")
    rc, out, err = run(["base64", "-d"], stdin=base64.b64encode(data) + b"\n")
    check(f"base64 dec {data[:8]!r}", rc == 0 and out == data, f"{out!r} {err!r}")
rc, out, err = run(["base64", "--url"], stdin=b"\xfb\xff\xfe")
check("base64 url", rc == 0 and out.strip() == base64.urlsafe_b64encode(b"\xfb\xff\xfe"), f"{out!r}")
rc, out, err = run(["base64", "-d"], stdin=b"ab$d")
check("base64 bad", rc == 1 and err, f"rc={rc}")

# The reference-resolution examples of the generic URL syntax.
BASE = "http://a/b/c/d;p?q"
for ref, want in [("g", "http://a/b/c/g"), ("./g", "http://a/b/c/g"), ("g/", "http://a/b/c/g/"),
                  ("/g", "http://a/g"), ("//g", "http://g"), ("?y", "http://a/b/c/d;p?y"),
                  ("#s", "http://a/b/c/d;p?q#s"), ("../g", "http://a/b/g"), ("../../g", "http://a/g"),
                  ("../../../g", "http://a/g"), ("g;x?y#s", "http://a/b/c/g;x?y#s"), ("", BASE)]:
    rc, out, err = run(["url", "resolve", BASE, ref])
    check(f"url resolve {ref!r}", rc == 0 and out.decode().strip() == want, f"got {out!r} {err!r}")
rc, out, err = run(["url", "resolve", "no-scheme", "g"])
check("url not absolute", rc == 1 and err, f"rc={rc}")
rc, out, err = run(["http", "get", "http://127.0.0.1:1/"])
check("http refused", rc == 1 and err, f"rc={rc}")

# ---------------------------------------------------------------- usage, help, tour
for args in [["frobnicate"], ["num"], ["num", "1", "--what"], ["date"], ["date", "2024-01-01", "--add-days", "x"],
             ["tz"], ["tz", "at", "Europe/Paris"], ["tz", "transitions", "Europe/Paris", "--from"],
             ["params"], ["url"], ["url", "resolve", "a"], ["http", "put", "x"], ["base64", "-x"]]:
    rc, out, err = run(args)
    check(f"usage {args}", rc == 2 and b"usage" in err, f"rc={rc} {err!r}")
for args in [["--help"], ["num", "--help"], ["date", "--help"], ["tz", "--help"], ["params", "--help"],
             ["http", "--help"], ["url", "--help"], ["base64", "--help"]]:
    rc, out, err = run(args)
    check(f"help {args}", rc == 0 and b"usage" in out, f"rc={rc}")
rc, out, err = run([])
check("tour", rc == 0 and b"29 February 2024" in out and b"does not exist" in out, f"rc={rc} {out!r} {err!r}")

for f in failures:
    print("FAIL", f)
print("%d check(s), %d failure(s)" % (checks[0], len(failures)))
sys.exit(1 if failures else 0)
