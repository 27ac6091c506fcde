#!/usr/bin/env python3
"""Independent model of the hash functions of the hash tables.

Prints one line per (key, size):
    i <key> <size> <hash1> <hash2>
    s <hex bytes of the key> <size> <hash1> <hash2>
computed with Python's own IEEE doubles and unbounded integers (masked to
32 bits where the functions wrap), for fixed and seeded-random keys."""
import math
import random

M32 = 0xFFFFFFFF
SIZES = [2, 5, 11, 17, 37, 67, 131, 257, 521, 1031, 2053, 4099, 8209, 16411,
         32771, 65537, 131101, 262147, 524309, 1048583, 2097169, 4194319,
         8388617, 16777259, 33554467, 1000, 3, 4294967295]


def int_hash1(k, size):
    x = float(k) * 0.6180339887498949
    f = x - math.trunc(x)
    return int(float(size) * f) & M32


def int_hash2(k, size):
    return ((k + 777) & M32) % (size - 1) + 1


def fold(data, mul, limit):
    h = 0
    for n, c in enumerate(data):
        if n == 0 or h <= limit:
            h = (h * mul + c) & M32
        else:
            h = (h * mul + c - (0x7FFFFFFF // h) * h) & M32
    return h


def prefix_for(mul, target, n=4):
    """Non-zero bytes whose plain fold (no guard on the way) is exactly
    target, so that the next byte meets the guard at its boundary."""
    if n == 1:
        return bytes([target]) if 1 <= target <= 255 else None
    for c in range(1, 256):
        if (target - c) % mul == 0 and target - c > 0:
            head = prefix_for(mul, (target - c) // mul, n - 1)
            if head is not None:
                return head + bytes([c])
    return None


def main():
    rnd = random.Random(20261121)
    ints = [0, 1, 2, 3, 776, 777, 778, 1000, 65535, 65536, 0x7FFFFFFF,
            0x80000000, 0xFFFFFFFF, 0xFFFFFFFF - 776, 0xFFFFFFFF - 777,
            0xFFFFFCF6, 123456789, 987654321]
    ints += [rnd.getrandbits(32) for _ in range(300)]
    ints += [rnd.randrange(0, 5000) for _ in range(100)]
    out = []
    for k in ints:
        for size in SIZES:
            out.append(f"i {k} {size} {int_hash1(k, size)} {int_hash2(k, size)}")

    strs = [b"", b"a", b"z", b"ab", b"abc", b"hello", b"hello world",
            b"\xff", b"\x80\x81", b"\xff" * 4, b"\xff" * 40, b"key-0001",
            b"The quick brown fox jumps over the lazy dog",
            bytes(range(1, 256)), b"a" * 1000]
    # The guards at their thresholds: h equal to, just below and just above.
    for mul, limit in ((128, 0xFFFFFF), (131, 0xFA232C)):
        for target in (limit - 1, limit, limit + 1):
            head = prefix_for(mul, target)
            assert head is not None and fold(head, mul, limit) == target
            for tail in (b"", b"\x01", b"A", b"\xff", b"AB"):
                strs.append(head + tail)
    for n in range(1, 64):
        strs.append(bytes(rnd.randrange(1, 256) for _ in range(n)))
    for n in range(64, 400, 37):
        strs.append(bytes(rnd.randrange(32, 127) for _ in range(n)))
    for s in strs:
        for size in SIZES:
            h1 = int_hash1(fold(s, 128, 0xFFFFFF), size)
            h2 = int_hash2(fold(s, 131, 0xFA232C), size)
            out.append(f"s {s.hex() or '-'} {size} {h1} {h2}")
    print("\n".join(out))


main()
