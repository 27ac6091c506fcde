#!/usr/bin/env python3
"""Independent oracle for the URL tests.

usage: url_oracle.py urls SEED COUNT   random URLs, each checked with urlsplit
       url_oracle.py pct SEED COUNT    random bytes and their quote()
       url_oracle.py b64 SEED COUNT    random bytes and their base64 forms

Every output line is tab-separated; a field is "-" for an absent part or
"=" followed by the hex of its bytes."""
import base64
import random
import sys
import urllib.parse

def f(v):
    return "-" if v is None else "=" + v.encode("latin-1").hex() if isinstance(v, str) else "=" + v.hex()

UNRES = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~"
SUB = "!$&'()*+,;="

def chunk(rng, extra, n=8):
    out = []
    for _ in range(rng.randint(0, n)):
        r = rng.random()
        if r < 0.1:
            out.append("%%%02X" % rng.randint(0, 255))
        elif r < 0.2 and extra:
            out.append(rng.choice(extra))
        elif r < 0.3:
            out.append(rng.choice(SUB))
        else:
            out.append(rng.choice(UNRES))
    return "".join(out)

def urls(rng, count):
    for _ in range(count):
        scheme = rng.choice(["http", "https", "ftp", "x-y.z+w", "file"])
        user = password = host = port = None
        hosttype = 0
        if rng.random() < 0.85:
            k = rng.random()
            if k < 0.15:
                host = "%d.%d.%d.%d" % tuple(rng.randint(0, 255) for _ in range(4))
                hosttype = 2
            elif k < 0.3:
                host = rng.choice(["::1", "2001:db8::7", "fe80::1:2:3:4", "1:2:3:4:5:6:7:8", "::ffff:192.0.2.1"])
                hosttype = 3
            else:
                host = "".join(rng.choice("abcdefghijklmnopqrstuvwxyz0123456789-.")
                               for _ in range(rng.randint(1, 12)))
                hosttype = 1
            if rng.random() < 0.3:
                user = chunk(rng, "", 6)
                if rng.random() < 0.5:
                    password = chunk(rng, ":", 6)
            if rng.random() < 0.4:
                port = str(rng.randint(0, 65535))
        segs = ["/" + chunk(rng, ":@") for _ in range(rng.randint(0, 4))]
        path = "".join(segs)
        if host is None and path.startswith("//"):
            path = "/x" + path
        query = chunk(rng, ":@/?") if rng.random() < 0.5 else None
        frag = chunk(rng, ":@/?") if rng.random() < 0.4 else None
        url = scheme + ":"
        if host is not None:
            url += "//"
            if user is not None:
                url += user + ("" if password is None else ":" + password) + "@"
            url += "[" + host + "]" if hosttype == 3 else host
            if port is not None:
                url += ":" + port
        url += path
        if query is not None:
            url += "?" + query
        if frag is not None:
            url += "#" + frag
        # Cross-check the generator's own model with urllib.
        s = urllib.parse.urlsplit(url)
        assert s.scheme == scheme.lower(), url
        assert s.path == path, url
        assert s.query == (query or ""), url
        assert s.fragment == (frag or ""), url
        if host is not None:
            assert (s.hostname or "") == host.lower(), url
            assert s.username == user, url
            assert s.password == password, url
            assert s.port == (int(port) if port else None), url
        print("\t".join([f(url), f(scheme), f(user), f(password), f(host), f(port), f(path), f(query), f(frag),
                         str(hosttype)]))

def pct(rng, count):
    for _ in range(count):
        data = bytes(rng.randint(0, 255) if rng.random() < 0.5 else ord(rng.choice(UNRES + " /"))
                     for _ in range(rng.randint(0, 40)))
        print("\t".join([f(data), f(urllib.parse.quote(data, safe="")), f(urllib.parse.quote(data, safe="/")),
                         f(urllib.parse.quote_plus(data, safe=""))]))

def b64(rng, count):
    for _ in range(count):
        data = bytes(rng.randint(0, 255) for _ in range(rng.randint(0, 70)))
        std = base64.b64encode(data)
        url = base64.urlsafe_b64encode(data)
        print("\t".join([f(data), f(std), f(url), f(std.rstrip(b"="))]))

mode, seed, count = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
{"urls": urls, "pct": pct, "b64": b64}[mode](random.Random(seed), count)
