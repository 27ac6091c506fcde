#!/usr/bin/env python3
"""Scripted HTTP/1.1 server for the HTTP client tests, plain and TLS.

Makes its certificates with the openssl command in a temporary folder: a CA,
and signed by it a good certificate (localhost, 127.0.0.1, ::1), an expired
one and one for another host; besides them a self-signed one. Then prints one
line of NAME=VALUE pairs: port (plain, 127.0.0.1), port6 (plain, ::1; 0 when
the machine has no IPv6), dead (nothing listens), hole (never accepts, queue
full), good, tls12 (TLS 1.2 only), expired, wronghost, selfsigned (TLS ports
with those certificates) and ca (the CA file). Serves at most 20000 requests
and stops after /quit or 120 seconds.

Paths:
  /file/N        N bytes (byte i = i * 7 % 251) with Content-Length
  /chunked/N     the same bytes in chunks of varying size, with a trailer
  /close/N       the same bytes, no length, connection closed at the end
  /dribble/N     Content-Length N, then one byte every 100 ms
  /redirect/K    302 to /redirect/K-1; /redirect/0 answers "done"
  /loop          301 to itself
  /moved         301 to /echo
  /see-other     303 to /echo#frag
  /temp          307 to /echo on this server
  /to?URL        302 to URL (percent-decoded)
  /echo          the request line, headers and body as the body
  /conn          "connection C request R"; /conn-close the same, then close
  /drop          answers, then closes the kept connection 100 ms later
  /swallow       "swallowed N" (the /swallow requests seen so far) when it is
                 the first request of its connection, else closes unanswered
  /sni           the server name the TLS client sent ("-" none)
  /fold          a response with folded header lines
  /slow          answers after 3 seconds; /slowbody stalls in the body
  /interim       a 100 Continue before the final response
  /bad/NAME      a malformed response (see BAD), then close
  /quit          stops the server
Requests with an absolute URL are served as a proxy would (the same paths).
CONNECT opens a tunnel to a port of 127.0.0.1 when the request carries
"Proxy-Authorization: Basic dXNlcjpwQHNz" (user, p@ss), else answers 407.
"""
import os
import shutil
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse

BAD = {
    "garbage": b"this is not http\r\n\r\n",
    "status": b"HTTP/1.1 2x0 OK\r\nContent-Length: 0\r\n\r\n",
    "version": b"HTTP/2.0 200 OK\r\nContent-Length: 0\r\n\r\n",
    "nocolon": b"HTTP/1.1 200 OK\r\nBadHeader\r\nContent-Length: 0\r\n\r\n",
    "spacename": b"HTTP/1.1 200 OK\r\nBad Header: x\r\nContent-Length: 0\r\n\r\n",
    "chunksize": b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nabc\r\n0\r\n\r\n",
    "chunkhuge": b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFFFF\r\nabc\r\n",
    "chunkend": b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabcXY\r\n0\r\n\r\n",
    "chunktrunc": b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n10\r\nabc",
    "short": b"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this",
    "conflict": b"HTTP/1.1 200 OK\r\nContent-Length: 3\r\nContent-Length: 4\r\n\r\nabcd",
    "negative": b"HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n",
    "empty": b"",
    "headersonly": b"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n",
    "ctl": b"HTTP/1.1 200 OK\r\nX: a\x01b\r\nContent-Length: 0\r\n\r\n",
    "longline": b"HTTP/1.1 200 OK\r\nX: " + b"a" * 40000 + b"\r\n\r\n",
    "nolocation": b"HTTP/1.1 302 Found\r\nContent-Length: 0\r\n\r\n",
    "badlocation": b"HTTP/1.1 302 Found\r\nLocation: http://[::1\r\nContent-Length: 0\r\n\r\n",
}
PROXY_AUTH = b"Basic dXNlcjpwQHNz"
PATTERN = bytes(i * 7 % 251 for i in range(251))


def data(n):
    return (PATTERN * (n // 251 + 1))[:n]


lock = threading.Lock()
state = {"requests": 0, "conns": 0, "swallowed": 0, "stop": False}


def read_request(f):
    line = f.readline(65536)
    if not line:
        return None
    headers = []
    while True:
        h = f.readline(65536)
        if h in (b"\r\n", b"\n", b""):
            break
        headers.append(h.rstrip(b"\r\n"))
    fields = {k.strip().lower(): v.strip() for k, _, v in (h.partition(b":") for h in headers)}
    body = b""
    if fields.get(b"transfer-encoding", b"").lower() == b"chunked":
        while True:
            n = int(f.readline(100).split(b";")[0], 16)
            if n == 0:
                break
            body += f.read(n + 2)[:n]
        while f.readline(65536) not in (b"\r\n", b""):  # the trailer
            pass
    elif b"content-length" in fields:
        body = f.read(int(fields[b"content-length"]))
    return line.rstrip(b"\r\n"), headers, fields, body


def tunnel(conn, target, fields):
    if fields.get(b"proxy-authorization") != PROXY_AUTH:
        conn.sendall(b"HTTP/1.1 407 Proxy Authentication Required\r\nContent-Length: 0\r\n\r\n")
        return
    far = socket.create_connection(("127.0.0.1", int(target.rsplit(b":", 1)[1])))
    conn.sendall(b"HTTP/1.1 200 Connection established\r\n\r\n")

    def pump(a, b):
        try:
            while True:
                d = a.recv(65536)
                if not d:
                    break
                b.sendall(d)
        except OSError:
            pass
        for s in (a, b):
            try:
                s.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass

    threading.Thread(target=pump, args=(far, conn), daemon=True).start()
    pump(conn, far)


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
        while True:
            req = read_request(f)
            if req is None:
                return
            line, headers, fields, body = req
            nreq += 1
            with lock:
                state["requests"] += 1
                if state["requests"] > 20000:
                    state["stop"] = True
                    return
            method, target, _ = line.split(b" ", 2)
            if method == b"CONNECT":
                return tunnel(conn, target, fields)
            path = target
            if path.startswith(b"http://"):
                path = b"/" + path.split(b"/", 3)[3] if path.count(b"/") >= 3 else b"/"
            p, _, query = path.decode().partition("?")
            query = urllib.parse.unquote(query)
            head = method == b"HEAD"

            def send(status, b, extra=b"", close=False):
                out = b"HTTP/1.1 " + status + b"\r\nContent-Length: " + str(len(b)).encode() + b"\r\n" + extra
                if close:
                    out += b"Connection: close\r\n"
                conn.sendall(out + b"\r\n" + (b"" if head else b))

            if p == "/quit":
                send(b"200 OK", b"bye", close=True)
                state["stop"] = True
                return
            if p.startswith("/file/"):
                send(b"200 OK", data(int(p[6:])))
            elif p.startswith("/chunked/"):
                d = data(int(p[9:]))
                out = [b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"]
                i, k = 0, 1
                while i < len(d):
                    c = d[i:i + k]
                    out.append(b"%x;ext=1\r\n" % len(c) + c + b"\r\n")
                    i += len(c)
                    k = k * 3 % 1000 + 1
                out.append(b"0\r\nX-Trailer: yes\r\n\r\n")
                conn.sendall(b"".join(out))
            elif p.startswith("/close/"):
                conn.sendall(b"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + data(int(p[7:])))
                return
            elif p.startswith("/dribble/"):
                n = int(p[9:])
                conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % n)
                for _ in range(n):
                    time.sleep(0.1)
                    conn.sendall(b"x")
            elif p.startswith("/redirect/"):
                k = int(p[10:])
                if k == 0:
                    send(b"200 OK", b"done")
                else:
                    send(b"302 Found", b"moved", b"Location: /redirect/%d\r\n" % (k - 1))
            elif p == "/loop":
                send(b"301 Moved Permanently", b"", b"Location: loop\r\n")
            elif p == "/moved":
                send(b"301 Moved Permanently", b"", b"Location: /echo\r\n")
            elif p == "/see-other":
                send(b"303 See Other", b"", b"Location: /echo#frag\r\n")
            elif p == "/temp":
                send(b"307 Temporary Redirect", b"", b"Location: /echo\r\n")
            elif p == "/to":
                send(b"302 Found", b"", b"Location: " + query.encode() + b"\r\n")
            elif p == "/echo":
                send(b"200 OK", line + b"\n" + b"\n".join(headers) + b"\n\n" + body, b"X-Multi: a\r\nX-Multi: b\r\n")
            elif p.startswith("/conn"):
                send(b"200 OK", b"connection %d request %d" % (cid, nreq), close=(p == "/conn-close"))
                if p == "/conn-close":
                    return
            elif p == "/drop":
                send(b"200 OK", b"dropping")
                time.sleep(0.1)
                return
            elif p == "/swallow":
                with lock:
                    state["swallowed"] += 1
                    n = state["swallowed"]
                if nreq > 1:
                    return
                send(b"200 OK", b"swallowed %d" % n)
            elif p == "/sni":
                send(b"200 OK", (getattr(conn, "sni", None) or "-").encode())
            elif p == "/fold":
                conn.sendall(b"HTTP/1.1 200 OK\r\nX-Fold: a\r\n  b\r\n\tc\r\nX-Empty:\r\n  d\r\n"
                             b"Content-Length:\r\n 2\r\n\r\nok")
            elif p == "/slow":
                time.sleep(3)
                send(b"200 OK", b"late")
            elif p == "/slowbody":
                conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf.")
                time.sleep(3)
                return
            elif p == "/interim":
                conn.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
                send(b"200 OK", b"final")
            elif p.startswith("/bad/"):
                conn.sendall(BAD[p[5:]])
                return
            else:
                send(b"404 Not Found", b"no such path")
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


def listener(family=socket.AF_INET, host="127.0.0.1"):
    s = socket.socket(family)
    s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    s.bind((host, 0))
    s.listen(64)
    return s


def openssl(*args):
    subprocess.run(["openssl", *args], check=True, capture_output=True)


def certificates(d):
    """Makes the CA and the four server certificates in d; returns {name: (cert, key)}."""
    ec = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
    j = lambda n: os.path.join(d, n)
    openssl("req", "-x509", *ec, "-keyout", j("ca.key"), "-out", j("ca.pem"), "-subj", "/CN=kelcore test CA",
            "-days", "2")
    out = {}
    for name, san, days, signer in [("good", "DNS:localhost,IP:127.0.0.1,IP:::1", "2", "ca"),
                                    ("expired", "DNS:localhost,IP:127.0.0.1", "-1", "ca"),
                                    ("wronghost", "DNS:wrong.example", "2", "ca"),
                                    ("selfsigned", "DNS:localhost,IP:127.0.0.1", "2", None)]:
        with open(j(name + ".ext"), "w") as f:
            f.write("subjectAltName=" + san + "\n")
        if signer is None:
            openssl("req", "-x509", *ec, "-keyout", j(name + ".key"), "-out", j(name + ".pem"),
                    "-subj", "/CN=localhost", "-days", days, "-addext", "subjectAltName=" + san)
        else:
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

    def sni(sock, name, _ctx):
        sock.sni = name
    ctx.sni_callback = sni
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
        # A listener that never accepts, with its queue filled, so that a
        # further connection attempt gets no answer.
        hole = socket.socket()
        hole.bind(("127.0.0.1", 0))
        hole.listen(0)
        ports["hole"] = hole.getsockname()[1]
        fillers = []
        for _ in range(3):
            s = socket.socket()
            s.setblocking(False)
            try:
                s.connect(("127.0.0.1", ports["hole"]))
            except BlockingIOError:
                pass
            fillers.append(s)
        time.sleep(0.2)
        for t in threads:
            t.start()
        print(" ".join("%s=%s" % kv for kv in ports.items()) + " ca=" + os.path.join(d, "ca.pem"), flush=True)
        while not state["stop"]:
            time.sleep(0.1)
    finally:
        shutil.rmtree(d, ignore_errors=True)


main()
