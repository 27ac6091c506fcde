#!/usr/bin/env python3
"""Independent oracle for the decimal number tests.

Reads a file of cases written by the C++ tests, one per line:
    <op> <arg> ... <result>
numbers are hex byte strings (no length prefix), decodes the operands with its
own reading of the byte format, computes the operation exactly with Python's
decimal module, applies the family's rounding rule (half away from zero to
twenty base-100 digits; overflow to infinity, underflow to zero), encodes the
expected bytes and compares. Prints the first mismatches; exit status 1 if any.
"""
import decimal
import struct
import sys
from decimal import Decimal, ROUND_HALF_UP, ROUND_DOWN, ROUND_FLOOR, ROUND_CEILING, ROUND_HALF_EVEN

CTX = decimal.Context(prec=600, Emax=decimal.MAX_EMAX, Emin=decimal.MIN_EMIN,
                      rounding=ROUND_HALF_UP, traps=[decimal.InvalidOperation, decimal.DivisionByZero])
decimal.setcontext(CTX)
DIG = '0123456789'
PINF = 'PINF'
NINF = 'NINF'


def decode(h):
    b = bytes.fromhex(h)
    e = b[0]
    if e == 0x80 and len(b) == 1:
        return Decimal(0)
    if e == 0xFF and len(b) == 2 and b[1] == 101:
        return PINF
    if e == 0 and len(b) == 1:
        return NINF
    if e > 0x80:
        digits = [x - 1 for x in b[1:]]
        exp = e - 193
        sign = 1
    else:
        body = b[1:]
        if body and body[-1] == 102:
            body = body[:-1]
        digits = [101 - x for x in body]
        exp = (255 - e) - 193
        sign = -1
    assert digits and all(0 <= d <= 99 for d in digits), h
    m = 0
    for d in digits:
        m = m * 100 + d
    v = Decimal(m).scaleb(2 * (exp - len(digits) + 1))
    return v if sign > 0 else -v


def encode(v):
    """Bytes of the exact value v after the family's rounding and range rules."""
    if v == PINF:
        return 'ff65'
    if v == NINF:
        return '00'
    if v == 0:
        return '80'
    neg = v < 0
    a = abs(v)
    e = a.adjusted() // 2
    q = a.quantize(Decimal(1).scaleb(2 * (e - 19)), rounding=ROUND_HALF_UP)
    if q >= Decimal(1).scaleb(2 * (e + 1)):
        e += 1
    if e > 62:
        return '00' if neg else 'ff65'
    if e < -64:
        return '80'
    m = int(q.scaleb(-2 * (e - 19)))
    digits = []
    for _ in range(20):
        digits.append(m % 100)
        m //= 100
    assert m == 0
    digits.reverse()
    while digits[-1] == 0:
        digits.pop()
    if not neg:
        out = [e + 193] + [d + 1 for d in digits]
    else:
        out = [255 - (e + 193)] + [101 - d for d in digits]
        if len(out) < 21:
            out.append(102)
    return bytes(out).hex()


def isinf(v):
    return v == PINF or v == NINF


def add(a, b):
    if isinf(a):
        return a
    if isinf(b):
        return b
    return a + b


def sub(a, b):
    if isinf(a):
        if a == PINF and b == PINF:
            return Decimal(0)
        return a
    if isinf(b):
        return NINF if b == PINF else PINF
    return a - b


def sgn(v):
    if v == PINF:
        return 1
    if v == NINF:
        return -1
    return (v > 0) - (v < 0)


def mul(a, b):
    if not isinf(a) and a == 0 or not isinf(b) and b == 0:
        return Decimal(0)
    if isinf(a) or isinf(b):
        return PINF if sgn(a) * sgn(b) > 0 else NINF
    return a * b


def div(a, b):
    if not isinf(a) and a == 0:
        return Decimal(0)
    if isinf(a):
        s = sgn(a) * (sgn(b) if sgn(b) != 0 else 1)
        return PINF if s > 0 else NINF
    if not isinf(b) and b == 0:
        return PINF if a > 0 else NINF
    if isinf(b):
        return Decimal(0)
    c = decimal.Context(prec=60, rounding=ROUND_DOWN, Emax=decimal.MAX_EMAX, Emin=decimal.MIN_EMIN)
    return c.divide(a, b)


def modrem(a, b, near):
    if isinf(a):
        return Decimal(0)
    if isinf(b) or b == 0:
        return a
    if near:
        return CTX.remainder_near(a, b)
    return CTX.remainder(a, b)


def rnd(v, places, mode):
    if isinf(v):
        return v
    try:
        return v.quantize(Decimal(1).scaleb(-places), rounding=mode)
    except decimal.InvalidOperation:
        raise


def fail(line, want, got, bad):
    bad.append('%s: want %s got %s' % (line, want, got))


def main():
    bad = []
    count = 0
    for line in open(sys.argv[1]):
        f = line.split()
        if not f:
            continue
        count += 1
        op = f[0]
        if op in ('add', 'sub', 'mul', 'div', 'mod', 'rem'):
            a, b = decode(f[1]), decode(f[2])
            r = {'add': add, 'sub': sub, 'mul': mul, 'div': div,
                 'mod': lambda x, y: modrem(x, y, False),
                 'rem': lambda x, y: modrem(x, y, True)}[op](a, b)
            want = encode(r)
            if want != f[3]:
                fail(line.strip(), want, f[3], bad)
        elif op in ('rou', 'tru'):
            a, p = decode(f[1]), int(f[2])
            want = encode(rnd(a, p, ROUND_HALF_UP if op == 'rou' else ROUND_DOWN))
            if want != f[3]:
                fail(line.strip(), want, f[3], bad)
        elif op in ('flo', 'cei'):
            a = decode(f[1])
            want = encode(rnd(a, 0, ROUND_FLOOR if op == 'flo' else ROUND_CEILING))
            if want != f[2]:
                fail(line.strip(), want, f[2], bad)
        elif op == 'shift':
            a, s = decode(f[1]), int(f[2])
            want = encode(a if isinf(a) else a.scaleb(s))
            if want != f[3]:
                fail(line.strip(), want, f[3], bad)
        elif op == 'cmp':
            a, b = decode(f[1]), decode(f[2])
            ka = (2, 0) if a == PINF else (-2, 0) if a == NINF else (0, a)
            kb = (2, 0) if b == PINF else (-2, 0) if b == NINF else (0, b)
            want = (ka > kb) - (ka < kb)
            if want != int(f[3]):
                fail(line.strip(), want, f[3], bad)
        elif op == 'sum':
            n = int(f[1])
            vals = [decode(h) for h in f[2:2 + n]]
            infs = [v for v in vals if isinf(v)]
            r = infs[0] if infs else sum(vals, Decimal(0))
            want = encode(r)
            if want != f[2 + n]:
                fail(line.strip(), want, f[2 + n], bad)
        elif op == 'sca':
            # sca <num> <precision> <scale> <status> <result>
            a, p, s = decode(f[1]), int(f[2]), int(f[3])
            r = rnd(a, s, ROUND_HALF_UP)
            want = encode(r)
            rr = decode(want)
            st = 2 if isinf(a) else (1 if isinf(rr) or abs(rr) >= Decimal(1).scaleb(p - s) else 0)
            if want != f[5] or st != int(f[4]):
                fail(line.strip(), '%s %s' % (st, want), '%s %s' % (f[4], f[5]), bad)
        elif op == 'text':
            # text <num> <form> <places> <hex of text>
            a, form, places = decode(f[1]), int(f[2]), int(f[3])
            t = bytes.fromhex(f[4]).decode('ascii') if len(f) > 4 else ''
            if isinf(a):
                want = 'Infinity' if a == PINF else '-Infinity'
                if t != want:
                    fail(line.strip(), want, t, bad)
                continue
            if form == 2:
                r = rnd(a, places, ROUND_HALF_UP)
                want = '{:f}'.format(r.quantize(Decimal(1).scaleb(-max(places, 0)))) if places >= 0 \
                    else '{:f}'.format(r.quantize(Decimal(1)))
                if want.startswith('-') and Decimal(want) == 0:
                    want = want[1:]
                if t != want:
                    fail(line.strip(), want, t, bad)
                continue
            ok = Decimal(t) == a
            plain = '{:f}'.format(a.normalize()) if a != 0 else '0'
            if form == 0 and t != plain:
                ok = False
            if form == 1 and len(t) > len(plain):
                ok = False
            if form == 1 and ('E' in t) != (len(t) < len(plain)):
                ok = False
            if not ok:
                fail(line.strip(), plain, t, bad)
        elif op == 'parse':
            # parse <hex text> <pflag> <prec> <sflag> <scale> <consumed> <result>
            check_parse(f, line.strip(), bad)
        elif op in ('d2n', 'f2n'):
            # d2n <double bits hex> <ndigits> <result>
            check_float_to_num(f, line.strip(), bad, op == 'f2n')
        elif op in ('n2d', 'n2f'):
            # n2d <num> <double bits hex>
            a = decode(f[1])
            if op == 'n2d':
                want = to_double_bits(a)
            else:
                want = to_float_bits(a)
            if want != f[2]:
                fail(line.strip(), want, f[2], bad)
        elif op == 'int':
            # int <decimal text> <result>
            want = encode(Decimal(int(f[1])))
            if want != f[2]:
                fail(line.strip(), want, f[2], bad)
        elif op == 'r2n':
            # r2n <hex bytes or -> <status> <result>
            v = int(f[1], 16) if f[1] != '-' else 0
            st, want = (0, encode(Decimal(v))) if v < 10 ** 40 else (1, 'ff65')
            if (st, want) != (int(f[2]), f[3]):
                fail(line.strip(), (st, want), (f[2], f[3]), bad)
        else:
            bad.append('unknown op ' + op)
    for b in bad[:25]:
        print(b)
    print('%d cases, %d mismatches' % (count, len(bad)))
    sys.exit(1 if bad or count == 0 else 0)


# ------------------------------------------------------------------ parse
def parse_oracle(text, pflag, prec, sflag, scale):
    """Parses with the family's literal rules; returns (value or inf tag, consumed)."""
    i, n = 0, len(text)
    while i < n and text[i] == ' ':
        i += 1
    neg = False
    if i < n and text[i] in '+-':
        neg = text[i] == '-'
        i += 1
    intd = ''
    while i < n and text[i] in DIG:
        intd += text[i]
        i += 1
    frac = ''
    if i < n and text[i] == '.':
        i += 1
        while i < n and text[i] in DIG:
            frac += text[i]
            i += 1
    if not intd and not frac:
        # no digits at all: zero, and only blanks and sign are consumed? the
        # family reports 0 consumed for empty or unparsable text
        pass
    exp = 0
    expdigits = ''
    if (intd or frac) and i < n and text[i] in 'eE':
        j = i + 1
        eneg = False
        if j < n and text[j] in '+-':
            eneg = text[j] == '-'
            j += 1
        k = j
        while k < n and text[k] in DIG:
            k += 1
        if k > j:
            expdigits = text[j:k].lstrip('0')
            exp = int(text[j:k])
            if eneg:
                exp = -exp
            i = k
    while i < n and text[i] == ' ':
        i += 1
    consumed = i
    digits = (intd + frac).lstrip('0')
    if not intd and not frac:
        return Decimal(0), 0
    if not digits:
        return Decimal(0), consumed
    # Decimal exponent of the first significant digit.
    nint = len(intd.lstrip('0'))
    if nint:
        E = exp + nint - 1
    else:
        lz = len(frac) - len(frac.lstrip('0'))
        E = exp - lz - 1
    eneg = exp < 0
    if len(expdigits) > 3:
        return (Decimal(0) if eneg else (NINF if neg else PINF)), consumed
    if pflag or sflag:
        P = prec if pflag else 0x7FFFFFFF
        S = scale if sflag else 0
        K = E + S + 1
    else:
        P = None
        K = len(digits.rstrip('0'))
    if P is not None and K > P:
        consumed = 0
    cap = 40 if E % 2 else 39
    if K > cap:
        K = cap
    if K < 0 or (K == 0 and digits[0] < '5'):
        return Decimal(0), consumed
    kept = digits[:K]
    dropped = digits[K:K + 1]
    if dropped and dropped >= '5':
        v = int(kept) + 1 if kept else 1
        kept2 = str(v)
        if len(kept2) > len(kept):
            E += 1
            kept2 = '1'
            if P is not None:
                K2 = E + (scale if sflag else 0) + 1
                if K2 > P:
                    consumed = 0
        kept = kept2
    kept = kept.rstrip('0')
    if not kept:
        return Decimal(0), consumed
    # Saturation: above 10^126 to an infinity, below 10^-128 to zero.
    if E > 125:
        return (NINF if neg else PINF), consumed
    if E < -128:
        return Decimal(0), consumed
    v = Decimal(int(kept)).scaleb(E - len(kept) + 1)
    return (-v if neg else v), consumed


def enc_exact(v):
    if isinf(v):
        return encode(v)
    if v == 0:
        return '80'
    return encode(v)


def check_parse(f, line, bad):
    text = bytes.fromhex(f[1]).decode('latin-1') if f[1] != '-' else ''
    pflag, prec, sflag, scale = int(f[2]), int(f[3]), int(f[4]), int(f[5])
    v, consumed = parse_oracle(text, pflag, prec, sflag, scale)
    want = '%d %s' % (consumed, enc_exact(v))
    got = '%s %s' % (f[6], f[7])
    if want != got:
        fail(line, want, got, bad)


# ------------------------------------------------------------------ floats
def float_digits(x, nd):
    """Correctly rounded (half even) nd significant digits of double x."""
    return '{:.{}e}'.format(Decimal(x), nd - 1)


def check_float_to_num(f, line, bad, single):
    bits = int(f[1], 16)
    nd = int(f[2])
    if single:
        x = struct.unpack('>f', bits.to_bytes(4, 'big'))[0]
    else:
        x = struct.unpack('>d', bits.to_bytes(8, 'big'))[0]
    if x != x:
        return
    if x == float('inf'):
        want = 'ff65'
    elif x == float('-inf'):
        want = '00'
    elif x == 0:
        want = '80'
    else:
        c = decimal.Context(prec=nd, rounding=ROUND_HALF_EVEN, Emax=decimal.MAX_EMAX, Emin=decimal.MIN_EMIN)
        d = c.plus(Decimal(x))
        s = '{:e}'.format(d)
        v, _ = parse_oracle(s, 0, 0, 0, 0)
        want = enc_exact(v)
    if want != f[3]:
        fail(line, want, f[3], bad)


def to_double_bits(v):
    if v == PINF:
        x = float('inf')
    elif v == NINF:
        x = float('-inf')
    else:
        x = float(v)  # correctly rounded by CPython (half even)
    return struct.pack('>d', x).hex()


def to_float_bits(v):
    # Round the exact value to binary32 directly (not through double).
    if v == PINF:
        return struct.pack('>f', float('inf')).hex()
    if v == NINF:
        return struct.pack('>f', float('-inf')).hex()
    if v == 0:
        return '00000000'
    from fractions import Fraction
    q = Fraction(v)
    neg = q < 0
    q = abs(q)
    # find exponent e so that 2^e <= q < 2^(e+1)
    e = q.numerator.bit_length() - q.denominator.bit_length()
    if Fraction(2) ** e > q:
        e -= 1
    if e < -126:
        e = -126  # subnormal spacing
    scale = Fraction(2) ** (23 - e)
    m = q * scale
    fl = m.numerator // m.denominator
    rem = m - fl
    if rem > Fraction(1, 2) or (rem == Fraction(1, 2) and fl % 2 == 1):
        fl += 1
    if fl >= 2 ** 24:
        fl //= 2
        e += 1
    if e > 127:
        bits = 0x7F800000
    elif fl < 2 ** 23:
        bits = fl
    else:
        bits = ((e + 127) << 23) | (fl - 2 ** 23)
    if neg:
        bits |= 0x80000000
    return '%08x' % bits


if __name__ == '__main__':
    main()
