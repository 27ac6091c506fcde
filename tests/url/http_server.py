#!/usr/bin/env python3
"""Scripted HTTP/1.1 server on 127.0.0.1 for the HTTP client tests.

Prints three lines: its port, a port where nothing listens, and a port whose
listener never accepts and whose queue is full. Serves at most 5000
requests and stops after /quit or 120 seconds, whichever comes first.

Paths:
  /file/N        N bytes (byte i = i * 7 % 251) with Content-Length
  /chunked/N     the same bytes in chunks of varying size, with a trailer
  /close/N       the same bytes, no length, connection closed at the end
  /redirect/K    302 to /redirect/K-1; /redirect/0 answers "done"
  /loop          301 to itself
  /see-other     303 to /echo
  /temp          307 to /echo
  /echo          the request line, headers and body as the body
  /conn          "connection C request R"
  /conn-close    the same with Connection: close
  /drop          answers, then closes the kept connection 100 ms later
  /slow          answers after 3 seconds
  /slowbody      sends half the body, then stalls 3 seconds
  /interim       a 100 Continue before the final response
  /bad/NAME      a malformed response (see BAD), then close
  /quit          stops the server
"""
import socket
import sys
import threading
import time

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

def data(n):
    return bytes(i * 7 % 251 for i in range(n))

lock = threading.Lock()
state = {"requests": 0, "conns": 0, "stop": False}

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
    length = 0
    for h in headers:
        k, _, v = h.partition(b":")
        if k.strip().lower() == b"content-length":
            length = int(v.strip())
    body = f.read(length) if length else b""
    return line.rstrip(b"\r\n"), headers, body

def respond(conn, status, body, extra=b"", close=False):
    head = b"HTTP/1.1 " + status + b"\r\nContent-Length: " + str(len(body)).encode() + b"\r\n" + extra
    if close:
        head += b"Connection: close\r\n"
    conn.sendall(head + b"\r\n" + body)

def handle(conn):
    with lock:
        state["conns"] += 1
        cid = state["conns"]
    conn.settimeout(20)
    f = conn.makefile("rb")
    nreq = 0
    try:
        while True:
            req = read_request(f)
            if req is None:
                return
            line, headers, body = req
            nreq += 1
            with lock:
                state["requests"] += 1
                if state["requests"] > 5000:
                    state["stop"] = True
                    return
            method, target, _ = line.split(b" ", 2)
            path = target
            if path.startswith(b"http://"):
                path = b"/" + path.split(b"/", 3)[3] if path.count(b"/") >= 3 else b"/"
            p = path.split(b"?")[0].decode()
            head = method == b"HEAD"
            def send(status, b, extra=b"", close=False):
                if head:
                    conn.sendall(b"HTTP/1.1 " + status + b"\r\nContent-Length: " + str(len(b)).encode() +
                                 b"\r\n" + extra + b"\r\n")
                else:
                    respond(conn, status, b, extra, close)
            if p == "/quit":
                send(b"200 OK", b"bye", close=True)
                state["stop"] = True
                return
            if p.startswith("/file/"):
                send(b"200 OK", data(int(p[6:])))
            elif p.startswith("/chunked/"):
                d = data(int(p[9:]))
                out = b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                i, k = 0, 1
                while i < len(d):
                    c = d[i:i + k]
                    out += b"%x;ext=1\r\n" % len(c) + c + b"\r\n"
                    i += len(c)
                    k = k * 3 % 1000 + 1
                out += b"0\r\nX-Trailer: yes\r\n\r\n"
                conn.sendall(out)
            elif p.startswith("/close/"):
                conn.sendall(b"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + data(int(p[7:])))
                return
            elif p.startswith("/redirect/"):
                k = int(p[10:])
                if k == 0:
                    send(b"200 OK", b"done")
                else:
                    send(b"302 Found", b"moved", b"Location: /redirect/%d\r\n" % (k - 1))
            elif p == "/loop":
                send(b"301 Moved Permanently", b"", b"Location: loop\r\n")
            elif p == "/see-other":
                send(b"303 See Other", b"", b"Location: /echo#frag\r\n")
            elif p == "/temp":
                send(b"307 Temporary Redirect", b"", b"Location: http://127.0.0.1:%d/echo\r\n" % PORT)
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
    except (OSError, ValueError):
        return
    finally:
        try:
            f.close()
            conn.close()
        except OSError:
            pass

srv = socket.socket()
srv.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
srv.bind(("127.0.0.1", 0))
srv.listen(64)
PORT = srv.getsockname()[1]

dead = socket.socket()
dead.bind(("127.0.0.1", 0))
DEAD = dead.getsockname()[1]
dead.close()

# A listener that never accepts, with its queue filled, so that a further
# connection attempt gets no answer.
hole = socket.socket()
hole.bind(("127.0.0.1", 0))
hole.listen(0)
HOLE = hole.getsockname()[1]
fillers = []
for _ in range(3):
    s = socket.socket()
    s.setblocking(False)
    try:
        s.connect(("127.0.0.1", HOLE))
    except BlockingIOError:
        pass
    fillers.append(s)
time.sleep(0.2)

print(PORT)
print(DEAD)
print(HOLE, flush=True)
srv.settimeout(0.2)
deadline = time.time() + 120
while not state["stop"] and time.time() < deadline:
    try:
        c, _ = srv.accept()
    except socket.timeout:
        continue
    c.setblocking(True)
    threading.Thread(target=handle, args=(c,), daemon=True).start()
srv.close()
