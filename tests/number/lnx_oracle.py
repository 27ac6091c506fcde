#!/usr/bin/env python3
"""Independent oracle for the decimal number tests.

Reads a file of cases written by the C++ tests, one per line:
    <op> <arg> ... <result>
numbers are hex byte strings (no length prefix). The oracle decodes the
operands with its own reading of the byte format, computes the operation
exactly with Python's decimal module, applies the family's rules (half away
from zero to twenty base-100 digits; overflow to infinity, underflow to zero),
encodes the expected bytes and compares. Prints the first mismatches; exit
status 1 if any.
"""
import decimal
import struct
import sys
from decimal import Decimal, ROUND_HALF_UP, ROUND_DOWN, ROUND_FLOOR, ROUND_CEILING, ROUND_HALF_EVEN
from fractions import Fraction

CTX = decimal.Context(prec=600, Emax=decimal.MAX_EMAX, Emin=decimal.MIN_EMIN,
                      rounding=ROUND_HALF_UP, traps=[decimal.InvalidOperation, decimal.DivisionByZero])
decimal.setcontext(CTX)
PINF, NINF = 'PINF', 'NINF'
DIGITS = '0123456789'


def decode(h):
    b = bytes.fromhex(h)
    if b == b'\x80':
        return Decimal(0)
    if b == b'\xff\x65':
        return PINF
    if b == b'\x00':
        return NINF
    if b[0] > 0x80:
        digits, exp, sign = [x - 1 for x in b[1:]], b[0] - 193, 1
    else:
        body = b[1:-1] if b[-1] == 102 else b[1:]
        digits, exp, sign = [101 - x for x in body], (255 - b[0]) - 193, -1
    assert digits and all(0 <= d <= 99 for d in digits), h
    m = 0
    for d in digits:
        m = m * 100 + d
    return sign * Decimal(m).scaleb(2 * (exp - len(digits) + 1))


def encode(v):
    """Bytes of the exact value v after the family's rounding and range rules."""
    if v == PINF:
        return 'ff65'
    if v == NINF:
        return '00'
    if v == 0:
        return '80'
    neg, a = v < 0, abs(v)
    e = a.adjusted() // 2
    q = a.quantize(Decimal(1).scaleb(2 * (e - 19)), rounding=ROUND_HALF_UP)
    if q >= Decimal(1).scaleb(2 * (e + 1)):
        e += 1
    if e > 62:
        return '00' if neg else 'ff65'
    if e < -64:
        return '80'
    m = int(q.scaleb(-2 * (e - 19)))
    digits = [(m // 100 ** k) % 100 for k in range(19, -1, -1)]
    while digits[-1] == 0:
        digits.pop()
    if not neg:
        return bytes([e + 193] + [d + 1 for d in digits]).hex()
    out = [255 - (e + 193)] + [101 - d for d in digits]
    return bytes(out + [102] if len(out) < 21 else out).hex()


def isinf(v):
    return v == PINF or v == NINF


def sgn(v):
    return 1 if v == PINF else -1 if v == NINF else (v > 0) - (v < 0)


def add(a, b):
    return a if isinf(a) else b if isinf(b) else a + b


def sub(a, b):
    if isinf(a):
        return Decimal(0) if a == PINF and b == PINF else a
    if isinf(b):
        return NINF if b == PINF else PINF
    return a - b


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
        return PINF if sgn(a) * (sgn(b) or 1) > 0 else NINF
    if b == 0:
        return PINF if a > 0 else NINF
    if isinf(b):
        return Decimal(0)
    # 60 digits cut, then rounded once by encode: no double rounding at 40.
    return decimal.Context(prec=60, rounding=ROUND_DOWN, Emax=decimal.MAX_EMAX,
                           Emin=decimal.MIN_EMIN).divide(a, b)


def modrem(a, b, near):
    if isinf(a):
        return Decimal(0)
    if isinf(b) or b == 0:
        return a
    return CTX.remainder_near(a, b) if near else CTX.remainder(a, b)


def rnd(v, places, mode):
    return v if isinf(v) else v.quantize(Decimal(1).scaleb(-places), rounding=mode)


BINARY = {'add': add, 'sub': sub, 'mul': mul, 'div': div,
          'mod': lambda x, y: modrem(x, y, False), 'rem': lambda x, y: modrem(x, y, True)}
ROUNDING = {'rou': ROUND_HALF_UP, 'tru': ROUND_DOWN, 'flo': ROUND_FLOOR, 'cei': ROUND_CEILING}


def order_key(v):
    return (2, 0) if v == PINF else (-2, 0) if v == NINF else (0, v)


def expect(f):
    """(expected, got) for the case in the fields f."""
    op = f[0]
    if op in BINARY:
        return encode(BINARY[op](decode(f[1]), decode(f[2]))), f[3]
    if op in ('rou', 'tru'):  # rou <num> <places> <result>
        return encode(rnd(decode(f[1]), int(f[2]), ROUNDING[op])), f[3]
    if op in ('flo', 'cei'):
        return encode(rnd(decode(f[1]), 0, ROUNDING[op])), f[2]
    if op == 'shift':
        a = decode(f[1])
        return encode(a if isinf(a) else a.scaleb(int(f[2]))), f[3]
    if op == 'cmp':
        ka, kb = order_key(decode(f[1])), order_key(decode(f[2]))
        return str((ka > kb) - (ka < kb)), f[3]
    if op == 'sum':  # sum <n> <num>... <result>
        n = int(f[1])
        vals = [decode(h) for h in f[2:2 + n]]
        infs = [v for v in vals if isinf(v)]
        return encode(infs[0] if infs else sum(vals, Decimal(0))), f[2 + n]
    if op == 'sca':  # sca <num> <precision> <scale> <status> <result>
        a, p, s = decode(f[1]), int(f[2]), int(f[3])
        want = encode(rnd(a, s, ROUND_HALF_UP))
        r = decode(want)
        st = 2 if isinf(a) else 1 if isinf(r) or abs(r) >= Decimal(1).scaleb(p - s) else 0
        return '%d %s' % (st, want), '%s %s' % (f[4], f[5])
    if op in ('pd', 'zd'):  # pd <num> <scale> <size in digits> <status> <field>
        return packed(op, decode(f[1]), int(f[2]), int(f[3])), ' '.join(f[4:])
    if op in ('pdn', 'zdn'):  # pdn <field> <scale> <result>: a field read back, as a literal would be
        b = bytes.fromhex(f[1])
        digits = f[1][:-1] if op == 'pdn' else ''.join('%d' % (x & 15) for x in b)
        sign = f[1][-1] if op == 'pdn' else '%x' % (b[-1] >> 4)
        return encode(parse(('-' if sign in 'bd' else '') + digits + 'E' + str(-int(f[2])), 0, 0, 0, 0)[0]), f[3]
    if op == 'text':  # text <num> <form> <places> <hex of text>
        return text(decode(f[1]), int(f[2]), int(f[3]), bytes.fromhex(f[4] if len(f) > 4 else '').decode())
    if op == 'parse':  # parse <hex text> <pflag> <prec> <sflag> <scale> <consumed> <result>
        t = bytes.fromhex(f[1]).decode('latin-1') if f[1] != '-' else ''
        v, used = parse(t, *map(int, f[2:6]))
        return '%d %s' % (used, encode(v)), '%s %s' % (f[6], f[7])
    if op == 'd2n':  # d2n <double bits> <digits> <result>
        return double_to_num(int(f[1], 16), int(f[2])), f[3]
    if op == 'n2d':  # n2d <num> <double bits>
        v = decode(f[1])
        x = float('inf') if v == PINF else float('-inf') if v == NINF else float(v)  # correctly rounded
        return struct.pack('>d', x).hex(), f[2]
    if op == 'n2f':  # n2f <num> <float bits>
        return to_float_bits(decode(f[1])), f[2]
    if op == 'int':  # int <decimal text> <result>
        return encode(Decimal(int(f[1]))), f[2]
    if op == 'r2n':  # r2n <hex bytes or -> <status> <result>
        v = int(f[1], 16) if f[1] != '-' else 0
        return ('0 ' + encode(Decimal(v)) if v < 10 ** 40 else '1 ff65'), f[2] + ' ' + f[3]
    raise ValueError('unknown op ' + op)


def packed(op, a, scale, ndig):
    """Status and field of lnxn2pd / lnxn2zd with room for ndig digits."""
    if isinf(a):
        return '2'
    v = rnd(a, scale, ROUND_HALF_UP)
    digits = str(int(abs(v).scaleb(scale)))
    if len(digits) > ndig:
        return '1'
    digits = digits.zfill(ndig)
    sign = 'd' if v < 0 else 'c'
    if op == 'pd':
        return '0 ' + digits + sign
    return '0 ' + ''.join('f' + d for d in digits[:-1]) + sign + digits[-1]


def text(a, form, places, t):
    """lnxn2t's text: form 2 is fixed to `places`; forms 0 and 1 must read
    back exactly, 0 as plain digits, 1 as the shorter of plain and E form."""
    if isinf(a):
        return ('Infinity' if a == PINF else '-Infinity'), t
    if form == 2:
        r = rnd(a, places, ROUND_HALF_UP).quantize(Decimal(1).scaleb(-max(places, 0)))
        want = '{:f}'.format(r)
        return (want[1:] if want.startswith('-') and r == 0 else want), t
    plain = '{:f}'.format(a.normalize()) if a != 0 else '0'
    ok = Decimal(t) == a and (t == plain if form == 0 else
                              len(t) <= len(plain) and ('E' in t) == (len(t) < len(plain)))
    return (t if ok else plain), t


def parse(text, pflag, prec, sflag, scale):
    """The literal rules: (value or infinity, characters consumed)."""
    i, n = 0, len(text)
    while i < n and text[i] == ' ':
        i += 1
    neg = i < n and text[i] == '-'
    if i < n and text[i] in '+-':
        i += 1
    j = i
    while i < n and text[i] in DIGITS:
        i += 1
    intd, frac = text[j:i], ''
    if i < n and text[i] == '.':
        j = i = i + 1
        while i < n and text[i] in DIGITS:
            i += 1
        frac = text[j:i]
    if not intd and not frac:
        return Decimal(0), 0
    exp, expdigits = 0, ''
    if i < n and text[i] in 'eE':
        j = i + 1 + (i + 1 < n and text[i + 1] in '+-')
        k = j
        while k < n and text[k] in DIGITS:
            k += 1
        if k > j:
            expdigits = text[j:k].lstrip('0')
            exp = -int(text[j:k]) if text[j - 1] == '-' else int(text[j:k])
            i = k
    while i < n and text[i] == ' ':
        i += 1
    consumed = i
    digits = (intd + frac).lstrip('0')
    if not digits:
        return Decimal(0), consumed
    nint = len(intd.lstrip('0'))
    E = exp + nint - 1 if nint else exp - (len(frac) - len(frac.lstrip('0'))) - 1  # power of the first digit
    if len(expdigits) > 3:
        return (Decimal(0) if exp < 0 else NINF if neg else PINF), consumed
    P = (prec if pflag else 0x7FFFFFFF) if pflag or sflag else None
    K = E + (scale if sflag else 0) + 1 if P is not None else len(digits.rstrip('0'))
    if P is not None and K > P:
        consumed = 0
    K = min(K, 40 if E % 2 else 39)
    if K < 0 or (K == 0 and digits[0] < '5'):
        return Decimal(0), consumed
    kept = digits[:K]
    if digits[K:K + 1] >= '5':
        up = str(int(kept or '0') + 1)
        if len(up) > len(kept):
            E, up = E + 1, '1'
            if P is not None and E + (scale if sflag else 0) + 1 > P:
                consumed = 0
        kept = up
    kept = kept.rstrip('0')
    if not kept or E < -128:
        return Decimal(0), consumed
    if E > 125:
        return (NINF if neg else PINF), consumed
    v = Decimal(int(kept)).scaleb(E - len(kept) + 1)
    return (-v if neg else v), consumed


def double_to_num(bits, nd):
    """slfpd2lnxl: the double correctly rounded (half even) to nd digits, then
    read as a literal."""
    x = struct.unpack('>d', bits.to_bytes(8, 'big'))[0]
    if x in (0, float('inf'), float('-inf')):
        return '80' if x == 0 else 'ff65' if x > 0 else '00'
    c = decimal.Context(prec=nd, rounding=ROUND_HALF_EVEN, Emax=decimal.MAX_EMAX, Emin=decimal.MIN_EMIN)
    return encode(parse('{:e}'.format(c.plus(Decimal(x))), 0, 0, 0, 0)[0])


def to_float_bits(v):
    """The exact value rounded to binary32 directly (not through a double)."""
    if isinf(v) or v == 0:
        return {PINF: '7f800000', NINF: 'ff800000'}.get(v, '00000000')
    q = abs(Fraction(v))
    e = q.numerator.bit_length() - q.denominator.bit_length()
    if Fraction(2) ** e > q:
        e -= 1
    e = max(e, -126)  # subnormal spacing
    m = q * Fraction(2) ** (23 - e)
    fl, rem = divmod(m.numerator, m.denominator)
    if 2 * rem > m.denominator or (2 * rem == m.denominator and fl % 2):
        fl += 1
    if fl >= 2 ** 24:
        fl, e = fl // 2, e + 1
    bits = 0x7F800000 if e > 127 else fl if fl < 2 ** 23 else ((e + 127) << 23) | (fl - 2 ** 23)
    return '%08x' % (bits | (0x80000000 if v < 0 else 0))


def main():
    bad, count = [], 0
    for line in open(sys.argv[1]):
        f = line.split()
        if f:
            count += 1
            want, got = expect(f)
            if want != got:
                bad.append('%s: want %s got %s' % (line.strip(), want, got))
    for b in bad[:25]:
        print(b)
    print('%d cases, %d mismatches' % (count, len(bad)))
    sys.exit(1 if bad or count == 0 else 0)


if __name__ == '__main__':
    main()
