#!/usr/bin/env python3
"""Clients of bench/http/run that wrk does not provide; loopback only, bounded in time.

  clients.py hold PORT IDLE SLOW SECONDS
      Opens IDLE keep-alive connections (each sends GET /healthz and reads its answer,
      then stays idle) and SLOW slowloris connections (each sends half a request header,
      then one more header line every second; one the server closes is opened again).
      Prints "ready <idle open> <slow open>" once all are open, holds them for SECONDS
      (or until stdin closes), then closes them all.

  clients.py bodies PORT COUNT SIZE PATH
      Sends COUNT POSTs of a SIZE-byte JSON array [0,0,...] at once, each on its own
      connection, and prints "answered <n> of <count>: <status>=<n> ..." (a connection
      closed or reset without an answer is counted as "none").
"""
import collections
import select
import socket
import sys
import threading
import time


def connect(port):
    s = socket.create_connection(("127.0.0.1", port), timeout=10)
    s.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return s


def read_answer(s):
    data = b""
    while b"\r\n\r\n" not in data:
        chunk = s.recv(65536)
        if not chunk:
            return None
        data += chunk
    head, _, rest = data.partition(b"\r\n\r\n")
    length = 0
    for line in head.split(b"\r\n")[1:]:
        name, _, value = line.partition(b":")
        if name.strip().lower() == b"content-length":
            length = int(value.strip())
    while len(rest) < length:
        chunk = s.recv(65536)
        if not chunk:
            return None
        rest += chunk
    return int(head.split(b" ")[1])


def hold(port, idle, slow, seconds):
    idle_socks = []
    for _ in range(idle):
        s = connect(port)
        s.sendall(b"GET /healthz HTTP/1.1\r\nHost: bench\r\n\r\n")
        if read_answer(s) is None:
            raise SystemExit("an idle connection was closed before its answer")
        idle_socks.append(s)

    def open_slow():
        s = connect(port)
        s.setblocking(False)
        s.send(b"POST /shop/ReserveItem HTTP/1.1\r\nHost: bench\r\n")
        return s

    slow_socks = [open_slow() for _ in range(slow)]
    print("ready %d %d" % (len(idle_socks), len(slow_socks)), flush=True)
    deadline = time.monotonic() + seconds
    reopened = 0
    while time.monotonic() < deadline:
        readable, _, _ = select.select([sys.stdin], [], [], 1.0)
        if readable and not sys.stdin.readline():
            break
        for i, s in enumerate(slow_socks):
            try:
                s.send(b"X-Slow: 1\r\n")
                try:
                    if s.recv(4096) == b"":
                        raise ConnectionError
                except BlockingIOError:
                    pass
            except (ConnectionError, OSError):
                s.close()
                slow_socks[i] = open_slow()
                reopened += 1
    for s in idle_socks + slow_socks:
        s.close()
    print("closed; slowloris connections reopened after the server closed them: %d" % reopened,
          flush=True)


def bodies(port, count, size, path):
    body = b"[" + b"0," * ((size - 2) // 2 - 1) + b"0]"
    request = (b"POST " + path.encode() + b" HTTP/1.1\r\nHost: bench\r\n"
               b"Content-Type: application/json\r\nConnection: close\r\n"
               b"Content-Length: " + str(len(body)).encode() + b"\r\n\r\n" + body)
    statuses = collections.Counter()
    lock = threading.Lock()
    start = threading.Barrier(count)

    def one():
        status = "none"
        try:
            s = connect(port)
            s.settimeout(120)
            start.wait()
            s.sendall(request)
            answer = read_answer(s)
            status = answer if answer is not None else "none"
            s.close()
        except OSError:
            pass
        with lock:
            statuses[status] += 1

    threads = [threading.Thread(target=one) for _ in range(count)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    answered = count - statuses.get("none", 0)
    print("answered %d of %d (%d-byte bodies): %s" % (
        answered, count, len(body),
        " ".join("%s=%d" % (k, v) for k, v in sorted(statuses.items(), key=str))), flush=True)
    return 0 if answered == count else 1


def main():
    if len(sys.argv) == 6 and sys.argv[1] == "hold":
        hold(int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4]), float(sys.argv[5]))
        return 0
    if len(sys.argv) == 6 and sys.argv[1] == "bodies":
        return bodies(int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4]), sys.argv[5])
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main())
