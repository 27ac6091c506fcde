#!/usr/bin/env python3
"""Dates and increments as numbers of days, by Python's datetime and decimal:
lines "D y m d hh mi ss text" (Julian day number plus the day's fraction) and
"I days seconds text", each text rounded half up to 20 decimal places."""
import datetime
import decimal
import random

decimal.getcontext().prec = 80
Q = decimal.Decimal(1).scaleb(-20)
rng = random.Random(20261121)
lo = datetime.date(1583, 1, 1).toordinal()
hi = datetime.date(9999, 12, 31).toordinal()


def text(x):
    return str(x.quantize(Q, rounding=decimal.ROUND_HALF_UP))


for i in range(3000):
    d = datetime.date.fromordinal(rng.randint(lo, hi))
    h, mi, s = rng.randrange(24), rng.randrange(60), rng.randrange(60)
    if i % 10 == 0:
        h = mi = s = 0
    if i % 10 == 1:
        h, mi, s = 23, 59, 59
    # Python's calendar is proleptic Gregorian: anchor on 1 January 2000.
    jday = d.toordinal() - datetime.date(2000, 1, 1).toordinal() + 2451545
    x = decimal.Decimal(jday) + decimal.Decimal((h * 60 + mi) * 60 + s) / 86400
    print("D", d.year, d.month, d.day, h, mi, s, text(x))
for i in range(1000):
    days = rng.randint(-3000000, 3000000)
    secs = rng.randint(-200000, 200000)
    x = decimal.Decimal(days) + decimal.Decimal(secs) / 86400
    print("I", days, secs, text(x))
