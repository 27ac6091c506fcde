#!/usr/bin/env python3
"""Runs the kelcore tool the way a user does and checks its own handling of
arguments: help, version and usage errors of every command, bad input shown
back in the message, one answer per command, the data it finds without
KELTAR_HOME, and `http get` against the HTTP client tests' local server
(streaming, HEAD, POST, time limit, certificates).

usage: kelcore_test.py KELCORE SOURCE_DIR"""
import os
import re
import resource
import subprocess
import sys
import tempfile
import time

*TOOL, SRC = sys.argv[1:]  # the tool may come after its emulator (Wine)
failures, checks = [], [0]


def run(args, stdin=b"", env=None):
    e = {k: v for k, v in os.environ.items() if k not in ("KELTAR_HOME", "KEL_TZFILE", "http_proxy", "https_proxy")}
    e.update(env or {})
    p = subprocess.run(TOOL + args, input=stdin, capture_output=True, env=e, timeout=60)
    return p.returncode, p.stdout, p.stderr.decode(errors="replace")


def check(name, cond, detail=""):
    checks[0] += 1
    if not cond:
        failures.append(f"{name}: {detail}")


def expect(args, rc, out=None, err=None, stdin=b""):
    """Runs; checks the exit status, that stdout holds `out` and stderr matches `err` (a regular expression)."""
    got_rc, got_out, got_err = run(args, stdin)
    ok = got_rc == rc and (out is None or out in got_out) and (err is None or re.search(err, got_err))
    check(" ".join(args) or "(none)", ok, f"rc={got_rc} out={got_out[:200]!r} err={got_err[:300]!r}")
    return got_out


# Help and version, for the tool and every command.
COMMANDS = ["num", "date", "tz", "params", "http", "url", "base64"]
for args in [["--help"], ["help"], ["-h"]] + [[c, "--help"] for c in COMMANDS] + [["help", c] for c in COMMANDS]:
    expect(args, 0, out=b"usage: kelcore")
expect(["help", "http"], 0, out=b"--timeout")
expect(["--version"], 0, out=b"kelcore ")
check("version format", re.fullmatch(rb"kelcore \d+\.\d+\.\d+\n", run(["--version"])[1]) is not None)

# Usage errors: exit 2, the usage text, and the offending argument named.
USAGE = [
    (["frobnicate"], "unknown command 'frobnicate'"), (["help", "frob"], "unknown command 'frob'"),
    (["num"], "missing EXPR"), (["num", "1", "--what"], "unknown option '--what'"),
    (["date"], "missing TEXT"), (["date", "2024-01-01", "--add-days", "x"], "--add-days needs an integer"),
    (["date", "2024-01-01", "--in"], "--in needs a value"), (["tz"], ""), (["tz", "at", "Europe/Paris"], ""),
    (["params"], ""), (["url"], "missing the action"), (["url", "resolve", "a"], "BASE and REF"),
    (["http", "put", "x"], "unknown action 'put'"), (["http", "get"], "missing URL"),
    (["http", "get", "http://h/", "--timeout", "abc"], "'abc'"), (["http", "get", "http://h/", "--data"], "--data"),
    (["http", "get", "http://h/", "--head", "--data", "x"], "--head and --data"),
    (["http", "get", "http://h/", "--header", "novalue"], "'novalue'"), (["base64", "-x"], "'-x'"),
]
for args, named in USAGE:
    rc, _, err = run(args)
    check(" ".join(args), rc == 2 and "usage: kelcore" in err and named in err, f"rc={rc} {err!r}")

# Bad input: exit 1 and the input shown in the message.
BAD = [
    (["num", "1 +"], r"'1 \+'.*end of expression"),
    (["date", "2024-13-01"], r"'2024-13-01' read by the model 'YYYY-MM-DD'.*month"),
    (["date", "17 Aug 2024", "--in", "DD/MM/YYYY"], r"'17 Aug 2024' read by the model 'DD/MM/YYYY': a digit"),
    (["date", "2024-01-01", "--trunc", "XX"], r"'XX'"),
    (["url", "resolve", "http://[::1", "g"], r"'http://\[::1'.*offset 7"),
    (["url", "resolve", "http://a/", "b c"], r"'b c'.*offset 1"),
    (["url", "resolve", "no-scheme", "g"], r"'no-scheme'.*not absolute"),
    (["http", "get", "notaurl"], r"'notaurl'.*not an absolute URL"),
    (["http", "get", "http://127.0.0.1:1/"], r"'http://127.0.0.1:1/'.*refused"),
    (["tz", "at", "No/Such_Region", "2024-01-01"], r"'No/Such_Region'"),
    (["params", "/no/such/file.par"], r"/no/such/file.par"),
]
for args, shown in BAD:
    expect(args, 1, err=shown)
expect(["tz", "at", "Europe/Paris", "garbage"], 2, err=r"'garbage'")
expect(["base64", "-d"], 1, err=r"'ab\$d'.*offset 2", stdin=b"ab$d")

# One answer per command; tz and date --tz find the image built with the
# tool although neither KELTAR_HOME nor KEL_TZFILE is set.
expect(["num", "(1.5+2)*3"], 0, out=b"10.5\n")
expect(["date", "2024-01-31", "--add-months", "1"], 0, out=b"2024-02-29\n")
expect(["tz", "at", "Europe/Paris", "2024-07-01 12:00"], 0, out=b"2024-07-01 14:00:00 +02:00 CEST")
expect(["date", "2024-06-01 00:00:00", "--tz", "Asia/Kolkata"], 0, out=b"05:30:00 +05:30 IST")
expect(["url", "resolve", "http://a/b/c/d;p?q", "../g"], 0, out=b"http://a/b/g\n")
check("base64 round trip", run(["base64", "-d"], stdin=run(["base64"], stdin=bytes(range(256)))[1])[1] ==
      bytes(range(256)))
with tempfile.NamedTemporaryFile("w", suffix=".par") as f:
    f.write("count = 42\n")
    f.flush()
    expect(["params", f.name, "count=7", "--keys", "count:int"], 0, out=b"count[1] int = 7")
expect([], 0, out=b"29 February 2024")

# http get against the HTTP client tests' server.
srv = subprocess.Popen([sys.executable, os.path.join(SRC, "tests/url/http_server.py")], stdout=subprocess.PIPE)
ports = dict(kv.split("=", 1) for kv in srv.stdout.readline().decode().split())
try:
    base = "http://127.0.0.1:%s" % ports["port"]
    tls = "https://127.0.0.1:%s" % ports["good"]
    pattern = bytes(i * 7 % 251 for i in range(251))
    big = 40 << 20
    before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    rc, out, err = run(["http", "get", base + "/file/%d" % big])
    check("http streams a large body", rc == 0 and out == (pattern * (big // 251 + 1))[:big], f"rc={rc} {err}")
    grown = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    check("http does not hold the body", grown < 24 * 1024, f"max rss {grown} KiB (before {before})")
    expect(["http", "get", base + "/file/100", "--head"], 0, out=b"200 OK\nContent-Length: 100\n")
    check("--head sends HEAD", run(["http", "get", base + "/echo", "--head"])[1].startswith(b"200 OK\n"))
    expect(["http", "get", base + "/echo", "--data", "hello", "--header", "X-A: b"], 0,
           out=b"POST /echo HTTP/1.1\n")
    check("--data body", run(["http", "get", base + "/echo", "--data", "hello"])[1].endswith(b"\n\nhello"))
    check("--data @-", run(["http", "get", base + "/echo", "--data", "@-"], stdin=b"from stdin")[1]
          .endswith(b"\n\nfrom stdin"))
    with tempfile.NamedTemporaryFile() as f:
        f.write(b"x" * 100000)
        f.flush()
        out = run(["http", "get", base + "/echo", "--data", "@" + f.name])[1]
        check("--data @FILE", out.endswith(b"\n\n" + b"x" * 100000) and b"Content-Length: 100000" in out)
    expect(["http", "get", base + "/file/3", "--include"], 0, out=b"200 OK\nContent-Length: 3\n\n")
    t0 = time.time()
    expect(["http", "get", base + "/dribble/50", "--timeout", "0.5"], 1, err=r"time-out.*500 ms")
    check("--timeout cuts a dribbling server off", time.time() - t0 < 3, f"{time.time() - t0:.1f} s")
    expect(["http", "get", base + "/nothing"], 1, out=b"no such path", err="404 Not Found")
    expect(["http", "get", tls + "/file/3", "--cacert", ports["ca"]], 0, out=pattern[:3])
    expect(["http", "get", tls + "/file/3"], 1, err="certificate of 127.0.0.1 not accepted")
    expect(["http", "get", tls + "/file/3", "--insecure"], 0, out=pattern[:3])
    run(["http", "get", base + "/quit"])
finally:
    srv.kill()
    srv.wait()

for f in failures:
    print("FAIL", f)
print("%d check(s), %d failure(s)" % (checks[0], len(failures)))
sys.exit(1 if failures else 0)
