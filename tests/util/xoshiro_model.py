# The fast generator written out from its published algorithm (a splitmix64
# seeding of xoshiro256**): 50 outputs for each of four seeds, "seed value".
M = (1 << 64) - 1


def splitmix(x):
    x = (x + 0x9E3779B97F4A7C15) & M
    z = x
    z = ((z ^ (z >> 30)) * 0xBF58476D1CE4E5B9) & M
    z = ((z ^ (z >> 27)) * 0x94D049BB133111EB) & M
    return x, z ^ (z >> 31)


def rotl(v, k):
    return ((v << k) | (v >> (64 - k))) & M


for seed in (0, 1, 123456789, 2**64 - 1):
    s, x = [], seed
    for _ in range(4):
        x, z = splitmix(x)
        s.append(z)
    for _ in range(50):
        r = (rotl((s[1] * 5) & M, 7) * 9) & M
        t = (s[1] << 17) & M
        s[2] ^= s[0]; s[3] ^= s[1]; s[1] ^= s[2]; s[0] ^= s[3]; s[2] ^= t; s[3] = rotl(s[3], 45)
        print(seed, r)
