# Expected texts of the formatter's %N directive, from Python's decimal.
# Prints lines "<number text>\t<format>\t<expected>".
import random
from decimal import Decimal, ROUND_HALF_UP, getcontext

getcontext().prec = 400
rng = random.Random(20261121)


def number():
    nd = rng.randint(1, 38)
    digits = str(rng.randint(1, 9)) + "".join(rng.choice("0123456789") for _ in range(nd - 1))
    # Inside the number range: below 1E+126, last digit no finer than 1E-128.
    exp = rng.choice([rng.randint(-12, 12), rng.randint(-128, 120 - nd)])
    sign = rng.choice(["", "-"])
    return Decimal(sign + digits + "E" + str(exp))


for _ in range(4000):
    d = number() if rng.random() > 0.03 else Decimal(0)
    flags = "".join(f for f in "-+ 0" if rng.random() < 0.25)
    width = rng.choice(["", str(rng.randint(1, 60))])
    prec = rng.choice([None, None, rng.randint(0, 6), rng.randint(0, 140)])
    fmt = "%" + flags + width + ("" if prec is None else "." + str(prec)) + "N"
    if prec is None:
        v = d.normalize()
        body = format(v, "f")
    else:
        v = d.quantize(Decimal(1).scaleb(-prec), rounding=ROUND_HALF_UP)
        body = format(v, "f")
    neg = body.startswith("-")
    if neg:
        body = body[1:]
    if neg and set(body) <= set("0."):
        neg = False  # a value rounded to zero has no sign
    sign = "-" if neg else "+" if "+" in flags else " " if " " in flags else ""
    w = int(width) if width else 0
    pad = max(0, w - len(sign) - len(body))
    if "-" in flags:
        out = sign + body + " " * pad
    elif "0" in flags:
        out = sign + "0" * pad + body
    else:
        out = " " * pad + sign + body
    print(str(d) + "\t" + fmt + "\t" + out)
