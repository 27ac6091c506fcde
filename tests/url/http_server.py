#!/usr/bin/env python3
"""Scripted HTTP/1.1 server of the HTTP client tests, plain and TLS.

Makes a CA with the openssl command and, signed by it, a good certificate
(localhost, 127.0.0.1, ::1), an expired one and one for another host; beside
them a self-signed one. Prints one line of NAME=VALUE pairs: port (plain,
127.0.0.1), port6 (plain, ::1; 0 without IPv6), dead (nothing listens), hole
(never accepts, queue full), good, tls12 (TLS 1.2 only), expired, wronghost,
selfsigned (TLS ports with those certificates) and ca (the CA file). Stops
when the test closes its end of the output, after 20000 requests or after
120 seconds.

A request's path picks its scenario: a CANNED answer (bytes sent as they are,
a number sleeps that many seconds; some close the connection after), or one
of the computed answers in answer(): /file/N (N bytes, byte i = i * 7 % 251),
/chunked/N (the same in chunks with a trailer), /close/N (the same until
close), /dribble/N (one byte every 100 ms), /redirect/K (302 to K-1, "done"
at 0), /to?URL (302 to URL), /echo (the request line, headers and body),
/conn and /conn-close ("connection C request R"), /drop (closed 100 ms after
the answer), /swallow ("swallowed N" as the first request of a connection,
else closed unanswered), /sni (the TLS server name or "-"). Requests with
an absolute URL are served as a proxy would; CONNECT opens a tunnel to a port
of 127.0.0.1 when it carries "Proxy-Authorization: Basic dXNlcjpwQHNz"
(user, p@ss), else answers 407.
"""
import os
import shutil
import socket
import ssl
import subprocess
import tempfile
import threading
import time
import urllib.parse

OK = b"HTTP/1.1 200 OK\r\n"
CHUNKED = OK + b"Transfer-Encoding: chunked\r\n\r\n"


def moved(status, location):
    return [b"HTTP/1.1 %s\r\nLocation: %s\r\nContent-Length: 0\r\n\r\n" % (status, location)]


# path: (what to send, close afterwards)
CANNED = {
    "/fold": ([OK + b"X-Fold: a\r\n  b\r\n\tc\r\nX-Empty:\r\n  d\r\nContent-Length:\r\n 2\r\n\r\nok"], False),
    "/interim": ([b"HTTP/1.1 100 Continue\r\n\r\n" + OK + b"Content-Length: 5\r\n\r\nfinal"], False),
    "/loop": (moved(b"301 Moved Permanently", b"loop"), False),
    "/moved": (moved(b"301 Moved Permanently", b"/echo"), False),
    "/see-other": (moved(b"303 See Other", b"/echo#frag"), False),
    "/temp": (moved(b"307 Temporary Redirect", b"/echo"), False),
    "/slow": ([3, OK + b"Content-Length: 4\r\n\r\nlate"], False),
    "/slowbody": ([OK + b"Content-Length: 10\r\n\r\nhalf.", 3], True),
    "/bad/nolocation": ([b"HTTP/1.1 302 Found\r\nContent-Length: 0\r\n\r\n"], True),
}
BAD = {  # malformed answers, each closing the connection
    "garbage": b"this is not http\r\n\r\n",
    "status": b"HTTP/1.1 2x0 OK\r\nContent-Length: 0\r\n\r\n",
    "version": b"HTTP/2.0 200 OK\r\nContent-Length: 0\r\n\r\n",
    "nocolon": OK + b"BadHeader\r\nContent-Length: 0\r\n\r\n",
    "spacename": OK + b"Bad Header: x\r\nContent-Length: 0\r\n\r\n",
    "chunksize": CHUNKED + b"zz\r\nabc\r\n0\r\n\r\n",
    "chunkhuge": CHUNKED + b"FFFFFFFFFFFFFFFFFF\r\nabc\r\n",
    "chunkend": CHUNKED + b"3\r\nabcXY\r\n0\r\n\r\n",
    "chunktrunc": CHUNKED + b"10\r\nabc",
    "short": OK + b"Content-Length: 100\r\n\r\nonly this",
    "conflict": OK + b"Content-Length: 3\r\nContent-Length: 4\r\n\r\nabcd",
    "negative": OK + b"Content-Length: -1\r\n\r\n",
    "empty": b"",
    "headersonly": OK + b"Content-Length: 5\r\n",
    "ctl": OK + b"X: a\x01b\r\nContent-Length: 0\r\n\r\n",
    "longline": OK + b"X: " + b"a" * 40000 + b"\r\n\r\n",
    "badlocation": b"HTTP/1.1 302 Found\r\nLocation: http://[::1\r\nContent-Length: 0\r\n\r\n",
}
CANNED.update({"/bad/" + k: ([v], True) for k, v in BAD.items()})
PATTERN = bytes(i * 7 % 251 for i in range(251))
state = {"requests": 0, "conns": 0, "swallowed": 0, "stop": False}
lock = threading.Lock()


def data(n):
    return (PATTERN * (n // 251 + 1))[:n]


def read_request(f):
    line = f.readline(65536)
    if not line:
        return None
    headers = []
    while (h := f.readline(65536)) not in (b"\r\n", b"\n", b""):
        headers.append(h.rstrip(b"\r\n"))
    fields = {k.strip().lower(): v.strip() for k, _, v in (h.partition(b":") for h in headers)}
    body = b""
    if fields.get(b"transfer-encoding", b"").lower() == b"chunked":
        while (n := int(f.readline(100).split(b";")[0], 16)) != 0:
            body += f.read(n + 2)[:n]
        while f.readline(65536) not in (b"\r\n", b""):  # the trailer
            pass
    elif b"content-length" in fields:
        body = f.read(int(fields[b"content-length"]))
    return line.rstrip(b"\r\n"), headers, fields, body


def pump(a, b):
    try:
        while d := a.recv(65536):
            b.sendall(d)
    except OSError:
        pass
    for s in (a, b):
        try:
            s.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass


def answer(conn, cid, nreq, method, path, query, line, headers, body):
    """Sends the answer to one request; False when the connection ends."""
    def send(status, b, extra=b"", close=False):
        out = b"HTTP/1.1 " + status + b"\r\nContent-Length: %d\r\n" % len(b) + extra
        conn.sendall(out + (b"Connection: close\r\n" if close else b"") + b"\r\n" + (b"" if method == b"HEAD" else b))
        return not close

    if path in CANNED:
        pieces, close = CANNED[path]
        for p in pieces:
            time.sleep(p) if isinstance(p, int) else conn.sendall(p)
        return not close
    name, _, n = path[1:].partition("/")
    if name == "file":
        return send(b"200 OK", data(int(n)))
    if name == "chunked":
        d, out, i, k = data(int(n)), [CHUNKED], 0, 1
        while i < len(d):
            out.append(b"%x;ext=1\r\n" % len(d[i:i + k]) + d[i:i + k] + b"\r\n")
            i, k = i + k, k * 3 % 1000 + 1
        conn.sendall(b"".join(out) + b"0\r\nX-Trailer: yes\r\n\r\n")
    elif name == "close":
        conn.sendall(OK + b"Connection: close\r\n\r\n" + data(int(n)))
        return False
    elif name == "dribble":
        conn.sendall(OK + b"Content-Length: %d\r\n\r\n" % int(n))
        for _ in range(int(n)):
            time.sleep(0.1)
            conn.sendall(b"x")
    elif name == "redirect":
        k = int(n)
        return send(b"200 OK", b"done") if k == 0 else send(b"302 Found", b"moved", b"Location: /redirect/%d\r\n" % (k - 1))
    elif name == "to":
        return send(b"302 Found", b"", b"Location: " + query.encode() + b"\r\n")
    elif name == "echo":
        return send(b"200 OK", line + b"\n" + b"\n".join(headers) + b"\n\n" + body, b"X-Multi: a\r\nX-Multi: b\r\n")
    elif name in ("conn", "conn-close"):
        return send(b"200 OK", b"connection %d request %d" % (cid, nreq), close=name == "conn-close")
    elif name == "drop":
        send(b"200 OK", b"dropping")
        time.sleep(0.1)
        return False
    elif name == "swallow":
        with lock:
            state["swallowed"] += 1
            seen = state["swallowed"]
        return nreq == 1 and send(b"200 OK", b"swallowed %d" % seen)
    elif name == "sni":
        return send(b"200 OK", (getattr(conn, "sni", None) or "-").encode())
    else:
        return send(b"404 Not Found", b"no such path")
    return True


def handle(conn, tls_ctx):
    with lock:
        state["conns"] += 1
        cid = state["conns"]
    conn.settimeout(20)
    try:
        if tls_ctx is not None:
            conn = tls_ctx.wrap_socket(conn, server_side=True)
        elif conn.recv(1, socket.MSG_PEEK) == b"\x16":  # a TLS handshake on the plain port
            conn.sendall(b"HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n")
            return
        f = conn.makefile("rb")
        nreq = 0
        while (req := read_request(f)) is not None:
            line, headers, fields, body = req
            nreq += 1
            with lock:
                state["requests"] += 1
                state["stop"] |= state["requests"] > 20000
            method, target, _ = line.split(b" ", 2)
            if method == b"CONNECT":
                if fields.get(b"proxy-authorization") != b"Basic dXNlcjpwQHNz":
                    conn.sendall(b"HTTP/1.1 407 Proxy Authentication Required\r\nContent-Length: 0\r\n\r\n")
                    return
                far = socket.create_connection(("127.0.0.1", int(target.rsplit(b":", 1)[1])))
                conn.sendall(b"HTTP/1.1 200 Connection established\r\n\r\n")
                threading.Thread(target=pump, args=(far, conn), daemon=True).start()
                return pump(conn, far)
            if target.startswith(b"http://"):
                target = b"/" + target.split(b"/", 3)[3] if target.count(b"/") >= 3 else b"/"
            path, _, query = target.decode().partition("?")
            if state["stop"] or not answer(conn, cid, nreq, method, path, urllib.parse.unquote(query), line,
                                           headers, body):
                return
    except (OSError, ValueError, ssl.SSLError):
        return
    finally:
        try:
            conn.close()
        except OSError:
            pass


def serve(lsock, tls_ctx):
    lsock.settimeout(0.2)
    deadline = time.time() + 120
    while not state["stop"] and time.time() < deadline:
        try:
            c, _ = lsock.accept()
        except socket.timeout:
            continue
        c.setblocking(True)
        threading.Thread(target=handle, args=(c, tls_ctx), daemon=True).start()
    state["stop"] = True
    lsock.close()


def listener(family=socket.AF_INET, host="127.0.0.1", backlog=64):
    s = socket.socket(family)
    s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    s.bind((host, 0))
    s.listen(backlog)
    return s


def certificates(d):
    """Makes the CA and the four server certificates in d; returns {name: (cert, key)}."""
    def openssl(*args):
        subprocess.run(["openssl", *args], check=True, capture_output=True)
    ec = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
    j = lambda n: os.path.join(d, n)
    openssl("req", "-x509", *ec, "-keyout", j("ca.key"), "-out", j("ca.pem"), "-subj", "/CN=kelcore test CA",
            "-days", "2")
    out = {}
    for name, san, days, signer in [("good", "DNS:localhost,IP:127.0.0.1,IP:::1", "2", "ca"),
                                    ("expired", "DNS:localhost,IP:127.0.0.1", "-1", "ca"),
                                    ("wronghost", "DNS:wrong.example", "2", "ca"),
                                    ("selfsigned", "DNS:localhost,IP:127.0.0.1", "2", None)]:
        if signer is None:
            openssl("req", "-x509", *ec, "-keyout", j(name + ".key"), "-out", j(name + ".pem"),
                    "-subj", "/CN=localhost", "-days", days, "-addext", "subjectAltName=" + san)
        else:
            with open(j(name + ".ext"), "w") as f:
                f.write("subjectAltName=" + san + "\n")
            openssl("req", *ec, "-keyout", j(name + ".key"), "-out", j(name + ".csr"), "-subj", "/CN=" + name)
            openssl("x509", "-req", "-in", j(name + ".csr"), "-CA", j("ca.pem"), "-CAkey", j("ca.key"),
                    "-CAcreateserial", "-out", j(name + ".pem"), "-days", days, "-extfile", j(name + ".ext"))
        out[name] = (j(name + ".pem"), j(name + ".key"))
    return out


def tls_context(cert, key, maxver=None):
    ctx = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    ctx.load_cert_chain(cert, key)
    if maxver:
        ctx.maximum_version = maxver
    ctx.sni_callback = lambda sock, name, _ctx: setattr(sock, "sni", name)
    return ctx


def main():
    d = tempfile.mkdtemp(prefix="kelhttp")
    try:
        certs = certificates(d)
        ports, threads = {}, []

        def start(name, lsock, ctx=None):
            ports[name] = lsock.getsockname()[1]
            threads.append(threading.Thread(target=serve, args=(lsock, ctx), daemon=True))

        start("port", listener())
        try:
            start("port6", listener(socket.AF_INET6, "::1"))
        except OSError:
            ports["port6"] = 0
        start("good", listener(), tls_context(*certs["good"]))
        start("tls12", listener(), tls_context(*certs["good"], ssl.TLSVersion.TLSv1_2))
        for name in ("expired", "wronghost", "selfsigned"):
            start(name, listener(), tls_context(*certs[name]))
        dead = listener()
        ports["dead"] = dead.getsockname()[1]
        dead.close()
        # A listener that never accepts, its queue filled, so that a further
        # connection attempt gets no answer.
        hole = listener(backlog=0)
        ports["hole"] = hole.getsockname()[1]
        fillers = [socket.socket() for _ in range(3)]
        for s in fillers:
            s.setblocking(False)
            try:
                s.connect(("127.0.0.1", ports["hole"]))
            except BlockingIOError:
                pass
        time.sleep(0.2)
        for t in threads:
            t.start()
        print(" ".join("%s=%s" % kv for kv in ports.items()) + " ca=" + os.path.join(d, "ca.pem"), flush=True)
        while not state["stop"]:
            time.sleep(0.1)
            os.write(1, b"\n")  # fails once the test has closed its end
    except BrokenPipeError:
        pass
    finally:
        shutil.rmtree(d, ignore_errors=True)


main()
