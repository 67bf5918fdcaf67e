#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What vqd serve costs, and what slow and hostile clients do to the others.

    serve.py VQD [SECONDS]

A row is a run of so many seconds (10) under `vqd sim` with one camera. CPU time is in per cent of one core and that of the server
alone. Clients are processes of their own. Age is the time from the worker's read to the end of the client's work. Ends with 1 when a
figure is on the wrong side of its limit."""
import http.client
import json
import multiprocessing
import os
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

VQD = str(Path(sys.argv[1]).resolve())
SECONDS = float(sys.argv[2]) if len(sys.argv) > 2 else 10
CAMERA = "24061100000001"
missed = []  # limits


def limit(what, good):
    if not good:
        print(f"  {what}")
        missed.append(what)


class Client:
    def __init__(self, port, token):
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=20)
        self.headers = {"Authorization": f"Bearer {token}"}
        self.after = self.session = 0

    def get(self, path):
        self.connection.request("GET", path, headers=self.headers)
        answer = self.connection.getresponse()
        return answer.status, answer.read()

    def frame(self):
        """The time when the worker read it; None without one."""
        status, body = self.get(f"/api/v1/cameras/{CAMERA}/frame?after={self.after}&session={self.session}")
        if status != 200:
            return None
        self.session, self.after = struct.unpack_from("<QQ", body, 32)
        return struct.unpack_from("<q", body, 56)[0]


def follow(port, token, work, seconds, result):
    """Frames a second, and the greatest age of 99 % of them in ms, of a client that works so long on each."""
    client, frames, ages = Client(port, token), 0, []
    client.frame()
    began = time.monotonic()
    while time.monotonic() < began + seconds:
        if (read := client.frame()) is not None:
            frames += 1
            ages.append((time.monotonic_ns() - read) / 1e6 + 1000 * work)
        time.sleep(work)
    result.put((frames / (time.monotonic() - began), sorted(ages)[int(len(ages) * 0.99)]))


def cpu(process):
    return sum(int((task / "schedstat").read_text().split()[0]) for task in Path(f"/proc/{process}/task").iterdir()) / 1e9


def memory(process):
    return int(Path(f"/proc/{process}/statm").read_text().split()[1]) * os.sysconf("SC_PAGESIZE") / 1e6


def run(title, port, token, server, works):
    result = multiprocessing.Queue()
    clients = [multiprocessing.Process(target=follow, args=(port, token, work, SECONDS, result)) for work in works]
    before, began = cpu(server), time.monotonic()
    for client in clients:
        client.start()
    rates = [result.get() for _ in clients]
    share = 100 * (cpu(server) - before) / (time.monotonic() - began)
    for client in clients:
        client.join()
    print(f"{title}: " + ", ".join(f"{rate:.2f} fps (age {age:.0f} ms)" for rate, age in rates) +
          f"; server {share:.2f} %, {memory(server):.1f} MB", flush=True)
    limit("the server is to need 3 % at most", share <= 3)
    for work, (rate, age) in zip(works, rates):
        limit("a client is to get 29.5 frames a second at least", work or rate >= 29.5)
        limit("a frame is to be younger than 100 ms", age < 100)


def stalled(port, token, count):
    sockets = []
    for _ in range(count):
        client = socket.socket()
        client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        client.connect(("127.0.0.1", port))
        request = f"GET /api/v1/cameras/{CAMERA}/frame?after=0 HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer {token}\r\n\r\n"
        client.sendall(request.encode() * 8)
        sockets.append(client)
        time.sleep(0.04)  # so that each holds another frame
    return sockets


def inside():
    log = Path("said")
    server = subprocess.Popen([VQD, "serve", "--port", "0"], stderr=log.open("w"))
    while not (address := re.search(r"127\.0\.0\.1:(\d+), with the token in (\S+)", log.read_text())):
        time.sleep(0.05)
    port, token, process = int(address[1]), Path(address[2]).read_text().strip(), server.pid
    client = Client(port, token)
    while client.frame() is None:
        time.sleep(0.1)
    before = cpu(process)
    time.sleep(SECONDS)
    print(f"nobody: server {100 * (cpu(process) - before) / SECONDS:.2f} %, {memory(process):.1f} MB", flush=True)
    run("one client", port, token, process, [0])
    run("four clients", port, token, process, [0] * 4)
    idle = memory(process)
    hostile = stalled(port, token, 1)
    run("four and a stalled one", port, token, process, [0] * 4)
    run("one that needs 50 ms a frame", port, token, process, [0.05])
    hostile += stalled(port, token, 63)
    most = memory(process)
    run("four and 64 stalled ones", port, token, process, [0] * 4)
    more = max(most, memory(process)) - idle
    print(f"memory with 64 stalled ones: {more:+.1f} MB")
    limit("it is to be 16 MB at most", more <= 16)
    for one in hostile:
        one.close()
    client = Client(port, token)  # the connection before was silent for too long
    client.frame()
    for victim in ("process", "supervisor"):
        camera = json.loads(client.get("/api/v1/state")[1])["cameras"][0]
        os.kill(camera[victim], signal.SIGKILL)
        began, session = time.monotonic(), client.session
        while client.frame() is None or client.session == session:
            pass
        passed = time.monotonic() - began
        print(f"frames again after the worker's {victim} was killed: {passed:.2f} s")
        limit("it is to be 3 s at most", passed <= 3)
    began = time.monotonic()
    server.terminate()
    server.wait()
    print(f"SIGTERM to the end: {time.monotonic() - began:.2f} s")
    return int(bool(missed))


if __name__ == "__main__":
    if sys.argv[3:] == ["inside"]:
        sys.exit(inside())
    with tempfile.TemporaryDirectory() as folder:
        words = [VQD, "sim", "VQD-HT110", "--", sys.executable, str(Path(__file__).resolve()), VQD, str(SECONDS), "inside"]
        done = subprocess.run(words, cwd=folder, env=os.environ | {"VQD_RUNTIME_DIR": folder, "XDG_STATE_HOME": folder})
    sys.exit(done.returncode)
