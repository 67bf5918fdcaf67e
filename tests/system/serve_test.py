#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""vqd serve on virtual cameras, by its clients: frames, settings, access, hostile clients, and what is killed or unplugged.

    serve_test.py VQD            runs every check below, each under a vqd sim of its own
    serve_test.py VQD CHECK...   only these"""
import contextlib
import http.client
import json
import os
import re
import shlex
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import jsonschema

VQD = str(Path(sys.argv[1]).resolve())
SCHEMA = json.loads((Path(__file__).resolve().parents[2] / "docs/serve.schema.json").read_text())
ONE, TWO = "24061100000001", "24061100000002"
PATIENCE = 120  # seconds that no machine should need


def until(what, question):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        with contextlib.suppress(OSError, http.client.HTTPException, KeyError, IndexError, TypeError, StopIteration):
            if answer := question():
                return answer
        time.sleep(0.05)
    raise AssertionError(f"never: {what}")


def expect(what, good, *seen):
    if not good:
        raise AssertionError(" ".join([what, *map(repr, seen)]))


def lives(process):
    with contextlib.suppress(OSError):
        return Path(f"/proc/{process}/stat").read_text().rsplit(")", 1)[1].split()[0] != "Z"
    return False


class Server:
    """vqd serve with these options, until the end of the with block."""

    def __init__(self, *options):
        self.run = Path(os.environ["VQD_RUNTIME_DIR"])
        self.process = subprocess.Popen([VQD, "serve", "--port", "0", *options], stderr=open("said", "w"))
        self.port = int(until("a server", lambda: re.search(r"127\.0\.0\.1:(\d+), with", Path("said").read_text()))[1])
        self.token_file = self.run / f"serve-{self.port}.token"
        self.token = self.token_file.read_text().strip()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait(PATIENCE)

    def ask(self, path, body=None, method=None, version="HTTP/1.1", **headers):
        """Status, headers and content. A header is left out when it is None."""
        sent = {"Host": f"127.0.0.1:{self.port}", "Authorization": f"Bearer {self.token}"}
        if body is not None:
            body = body if isinstance(body, bytes) else json.dumps(body).encode()
            sent |= {"X-VQD": "1", "Content-Type": "application/json", "Content-Length": str(len(body))}
        sent |= {name.replace("_", "-"): value for name, value in headers.items()}
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE)
        with contextlib.closing(connection):
            connection.putrequest(method or ("GET" if body is None else "POST"), path, skip_host=True, skip_accept_encoding=True)
            for name, value in sent.items():
                if value is not None:
                    connection.putheader(name, value)
            connection.endheaders(body)
            answer = connection.getresponse()
            return answer.status, answer.headers, answer.read()

    def api(self, path, body=None, status=200):
        got, _, content = self.ask("/api/v1/" + path, body)
        expect(path, got == status, got, content[:300])
        return json.loads(content)

    def camera(self, name=ONE):
        return next(camera for camera in self.api("state")["cameras"] if camera["id"] == name or camera["name"] == name)

    def frame(self, name=ONE, after=0, session=0, **more):
        """Session and sequence number, and the whole content; None when there is no newer frame."""
        query = "&".join(f"{key}={value}" for key, value in {"after": after, "session": session, **more}.items())
        status, headers, content = self.ask(f"/api/v1/cameras/{name}/frame?{query}")
        if status in (204, 404):  # there is none now, or the camera was not found yet
            return None
        expect("a frame", status == 200 and len(content) == 16 + 96 + 4 * 76800, status, content[:200])
        expect("its type", headers["Content-Type"] == "application/octet-stream", headers)
        return *struct.unpack_from("<QQ", content, 32), content

    def first_frame(self, name=ONE):
        return until("a frame", lambda: self.frame(name))


def memory(process):
    return int(Path(f"/proc/{process}/statm").read_text().split()[1]) * os.sysconf("SC_PAGESIZE")


def frames_go_on(server, name=ONE):
    session, sequence, _ = server.first_frame(name)
    for _ in range(5):
        before = (session, sequence)
        session, sequence, _ = until("a newer frame", lambda: server.frame(name, sequence, session))
        expect("it is newer", (session, sequence) > before, before, session, sequence)
    return session


def check_frames():
    """--scene wall VQD-HT110 VQD-HT120"""
    with Server() as server:
        frames_go_on(server)
        frames_go_on(server, TWO)
        session, sequence, content = server.first_frame()
        expect("the wire", content[:8] == b"VQDW\1\0\2\0" and content[16:30] == ONE.encode(), content[:40])
        expect("depth", 500 < struct.unpack_from("<H", content, 112 + 153600 + 2 * (120 * 320 + 160))[0] < 5000)
        until("the wait for a frame that does not come", lambda: server.frame(after=sequence + 10**6, session=session) is None)
        packed = server.ask(f"/api/v1/cameras/{ONE}/frame?small=1", Accept_Encoding="gzip, zstd")
        expect("fewer bytes", packed[1]["Content-Encoding"] == "zstd" and len(packed[2]) < 200_000, packed[0], packed[1])
        whole = subprocess.run(["zstd", "-dc"], input=packed[2], capture_output=True, check=True).stdout
        flags, size = struct.unpack_from("<I", whole, 16 + 72)[0], struct.unpack_from("<I", whole, 16 + 84)[0]
        expect("all bytes", len(whole) == 307312 and size == 307200 and flags & 16, len(whole), size, flags)
        plane, low, high = 0, whole[112:112 + 76800], whole[112 + 76800:112 + 2 * 76800]
        for small, large in zip(low, high):
            zigzag = small | large << 8
            plane = (plane + ((zigzag >> 1) ^ -(zigzag & 1))) & 0xFFFF
        expect("an amplitude", plane < 10000, plane)  # the last pixel is the sum of all differences
        expect("unpacked for who cannot unpack", len(server.ask(f"/api/v1/cameras/{ONE}/frame?small=1")[2]) == 307312)
        for query in ("after=x", "after=-1", "after=99999999999999999999", "session=", "small=yes"):
            expect(query, server.ask(f"/api/v1/cameras/{ONE}/frame?{query}")[0] == 400)


def check_state_and_settings():
    """--scene wall VQD-HT110"""
    with Server() as server:
        server.first_frame()
        state = until("a state with all", lambda: (lambda s: s["cameras"][0]["settings"] and s["cameras"][0]["frames"] and s)(server.api("state")))
        jsonschema.validate(state, SCHEMA)
        camera = state["cameras"][0]
        expect("who it is", camera["serial"] == ONE and camera["state"] == "streaming" and camera["product"] == "VQD-HT110", camera)
        port = camera["port"]
        expect("by its port, too", server.frame(port))
        table = server.api("settings")["settings"]
        expect("the table", {row["name"] for row in table} > {"offset", "depth-range"} and all(row["group"] for row in table), table)
        expect("parameters", len(server.api(f"cameras/{ONE}/parameters")["image"]) == 1024)

        path = f"cameras/{ONE}/"
        reply = server.api(path + "settings", {"settings": {"offset": 7, "depth-range": [300, 4000]}})
        expect("what it has now", reply["ok"] and reply["settings"] == {"offset": 7, "depth-range": [300, 4000]}, reply)
        until("the state has it, too", lambda: server.camera()["settings"]["offset"] == 7)
        expect("an event", server.camera()["events"][-1]["event"] == "set", server.camera()["events"])
        expect("an offset out of range", "-255" in server.api(path + "settings", {"settings": {"offset": 900}}, 400)["error"])
        expect("still", server.camera()["settings"]["offset"] == 7)
        for body in (b"", b"{", b"[]", {}, {"settings": 5}, {"settings": {}, "x": 1}, {"do": "stop"}, b"[" * 4000):
            server.ask("/api/v1/" + path + "settings", body)[0] == 400 or expect("refused", False, body)

        for wrong in ({}, {"serial": TWO}, {"serial": None}, {"serial": ONE, "force": True}):
            server.api(path + "save", wrong, 400)
        expect("saved", server.api(path + "save", {"serial": ONE})["written"] is True)
        expect("not twice", server.api(path + "save", {"serial": ONE})["written"] is False)

        wall = {"name": "wall", "x": 140, "y": 100, "width": 40, "height": 30}
        expect("watched", server.api(path + "regions", {"regions": [wall]})["regions"][0]["name"] == "wall")
        figures = until("figures", lambda: (lambda r: r and r[0]["figures"] and r[0]["figures"]["frames"] > 3 and r[0]["figures"])(server.camera()["regions"]))
        expect("of the wall", figures["pixels"] == 1200 and figures["fill-rate"] > 0.9 and abs(figures["plane"]["tilt"] - 11.31) < 1, figures)
        expect("its depth", figures["minimum"] <= figures["mean"] <= figures["maximum"] and 0 < figures["sigma-time"] < 50, figures)
        expect("its histogram", sum(figures["histogram"]["counts"]) == figures["valid"], figures)
        jsonschema.validate(server.api("state"), SCHEMA)
        for wrong in ({}, {"regions": [wall] * 9}, {"regions": [wall | {"x": 300}]}, {"regions": [wall | {"width": 0}]},
                      {"regions": [wall | {"y": -1}]}, {"regions": [wall | {"x": 1.5}]}, {"regions": [wall | {"z": 1}]}, {"regions": [1]}):
            server.api(path + "regions", wrong, 400)
        expect("as before", len(server.camera()["regions"]) == 1)
        process = server.camera()["process"]
        os.kill(process, signal.SIGKILL)
        until("the next process watches it, too", lambda: (lambda c: c["process"] != process and c["regions"][0]["figures"])(server.camera()))
        expect("and has what was set", server.camera()["settings"]["offset"] == 7)


def check_access():
    """VQD-HT110"""
    with Server("--allow-host", "robot.example") as server:
        server.first_frame()
        host = f"127.0.0.1:{server.port}"
        page = server.ask("/")
        expect("the page", page[0] == 200 and b"<html" in page[2], page)
        expect("its headers", "default-src 'none'" in page[1]["Content-Security-Policy"] and page[1]["Cache-Control"] == "no-store", page[1])
        status, headers, _ = server.ask(f"/?token={server.token}", Authorization=None)
        cookie = headers["Set-Cookie"].split(";")[0]
        expect("the cookie", status == 303 and headers["Location"] == "/" and "HttpOnly" in headers["Set-Cookie"], headers)
        post = f"/api/v1/cameras/{ONE}/settings"
        table = [
            (200, "/api/v1/state", {"Authorization": None, "Cookie": cookie}),
            (200, "/api/v1/state", {"Host": "robot.example:8760"}),
            (401, "/api/v1/state", {"Authorization": None}),
            (401, "/", {"Authorization": None}),
            (401, f"/?token={server.token[:-1]}", {}),
            (403, "/api/v1/state", {"Origin": "http://evil.example"}),
            (403, "/api/v1/state", {"Sec_Fetch_Site": "cross-site"}),
            (421, "/api/v1/state", {"Host": "evil.example"}),
            (421, "/api/v1/state", {"Host": f"{host}, evil.example"}),
            (404, "/app/../state", {}),
            (404, "/api/v1/cameras/0/frame", {}),
            (404, f"/api/v1/cameras/{ONE}/", {}),
            (404, "/api/v1/cameras/", {}),
            (405, "/api/v1/state", {"method": "PUT"}),
            (405, post, {}),
            (405, "/api/v1/state", {"body": {}}),
            (405, f"/api/v1/cameras/{ONE}/frame", {"body": {}}),
            (403, post, {"body": {}, "X_VQD": None}),
            (411, post, {"body": {}, "Content_Length": None, "Transfer_Encoding": "chunked"}),
            (413, post, {"body": b" " * 4097}),
            (415, post, {"body": {}, "Content_Type": "text/plain"}),
        ]
        for status, path, change in table:
            got, headers, content = server.ask(path, **change)
            expect("access", got == status, status, got, path, change, content[:200])
            expect("a reason", got < 400 or json.loads(content)["error"], content)
            expect("never without it", "default-src" in headers["Content-Security-Policy"], headers)
        mode = server.token_file.stat().st_mode & 0o777
        expect("nobody else reads the token", mode in (0o600, 0o640), oct(mode))
        expect("nor in what it says", server.token not in Path("said").read_text())


def check_refused_starts():
    """VQD-HT110"""
    Path("bad.json").write_text('{"cameras": {\n"1-1": {"settings": {\n"ofset": 5}}}}')
    Path("publish.json").write_text(json.dumps({"cameras": {"1-1": {"publish": True}}}))
    alone = Path("vqd").resolve()  # without the program that comes with another package
    shutil.copy(VQD, alone)
    libraries = os.environ | {"LD_LIBRARY_PATH": str(Path(VQD).parent)}
    taken = socket.create_server(("127.0.0.1", 0))
    for options, code, text in ((["--config", "bad.json"], 2, 'bad.json:3: "ofset" is refused'),
                                (["--config", "absent.json"], 1, "absent.json cannot be read"),
                                (["--config", "publish.json"], 1, "/vqd-ros, of the package vqd-ros"),
                                (["--ros"], 1, "ROS 2 topics need the program"),
                                (["--host", "0.0.0.0"], 2, "--allow-host must say"),
                                (["--host", "robot"], 2, "'robot' is not an IPv4 or IPv6 address"),
                                (["--allow-host", "http://robot"], 2, "'http://robot' is not a host's name"),
                                (["--port", str(taken.getsockname()[1])], 1, "Address already in use")):
        run = subprocess.run([alone, "serve", *options], env=libraries, stderr=subprocess.PIPE, text=True, timeout=PATIENCE)
        expect("refused", run.returncode == code and text in run.stderr, options, run.returncode, run.stderr)
    expect("no worker is left", not list(Path(os.environ["VQD_RUNTIME_DIR"]).glob("*")))


def check_configuration():
    """VQD-HT110 VQD-RS110 VQD-HT120"""
    Path("cameras.json").write_text(json.dumps({"cameras": {
        ONE: {"name": "left", "settings": {"offset": 11}}, "9-9": {"name": "absent"}, TWO: {"show": False}}, "unknown": "ignore"}))
    with Server("--config", "cameras.json") as server:
        until("the configured settings", lambda: server.camera("left")["settings"]["offset"] == 11)
        until("the hidden one", lambda: server.camera(TWO)["state"] == "streaming" and not server.camera(TWO)["show"])
        expect("the absent one", server.camera("absent")["state"] in ("restarting", "waiting", "starting"), server.camera("absent"))
        server.api("cameras/9-9/settings", {"settings": {"offset": 1}}, 503)
        server.api("cameras/9-9/save", {"serial": ONE}, 400)
        server.api("cameras/9-9/parameters", status=503)
        expect("the third is ignored", len(server.api("state")["cameras"]) == 3)
        jsonschema.validate(server.api("state"), SCHEMA)


def check_recordings():
    """VQD-HT110 VQD-HT120"""
    Path("cameras.json").write_text(json.dumps({"cameras": {ONE: {"name": "left", "record": True}}, "recordings": "/nowhere"}))
    folder = Path("recordings")
    with Server("--config", "cameras.json", "--recordings", str(folder)) as server:
        server.first_frame(TWO)
        disk = server.api("state")["server"]["disk"]
        expect("the floor", disk["low"] == (disk["free"] < max(1_000_000_000, disk["total"] // 20)), disk)
        recording = lambda name: server.camera(name)["recording"]
        record = lambda body, status=200: server.api(f"cameras/{TWO}/record", body, status)
        if disk["low"]:
            expect("nothing is recorded", "stay free" in record({"name": "drive"}, 409)["error"])
            return
        until("as the configuration wishes", lambda: recording("left")["frames"] > 3)
        for wrong in ({}, {"name": ""}, {"name": "../drive"}, {"name": "a/b"}, {"name": 5}, {"name": "a", "folder": "/tmp"}, {"stop": 1}):
            record(wrong, 400)
        record({"name": "drive"})
        record({"name": "other"}, 409)
        jsonschema.validate(server.api("state"), SCHEMA)
        until("frames", lambda: recording(TWO)["frames"] > 3)
        record({"stop": True})
        until("the file", lambda: recording(TWO)["state"] == "done" and (folder / "drive.mcap").stat().st_size > 0)
        record({"name": "drive"}, 409)
        before, time_of_first = server.camera("left")["process"], time.time()
        until("another second, for another name", lambda: time.time() > time_of_first + 1)
        os.kill(before, signal.SIGKILL)
        until("the next process records, too", lambda: server.camera("left")["process"] != before and recording("left")["frames"] > 3)
    expect("all files", len(list(folder.glob("camera-left-*.mcap"))) == 1, list(folder.iterdir()))


def check_hostile_clients():
    """VQD-HT110"""
    def connect(small_window=False):
        client = socket.socket()
        if small_window:
            client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        client.connect(("127.0.0.1", server.port))
        return client

    pull = lambda query: (f"GET /api/v1/cameras/{ONE}/frame?{query} HTTP/1.1\r\nHost: 127.0.0.1:{server.port}\r\n"
                          f"Authorization: Bearer {server.token}\r\n\r\n").encode()
    with Server() as server:
        session, sequence, _ = server.first_frame()
        for _ in range(30):
            session, sequence, _ = until("a frame", lambda: server.frame(ONE, sequence, session))
        idle = memory(server.process.pid)
        crowd = [connect(small_window=True) for _ in range(40)]  # take their frames slowly, but all the same one
        for _ in range(2):
            server.process.send_signal(signal.SIGSTOP)
            for client in crowd:
                client.sendall(pull("after=0"))
            server.process.send_signal(signal.SIGCONT)
            for client in crowd:
                answer = http.client.HTTPResponse(client)
                answer.begin()
                expect("a whole frame", len(answer.read()) == 307312)
        for client in crowd:
            client.close()
        hostile = [connect() for _ in range(300)]  # more than there may be, and they say nothing
        frames_go_on(server)
        for _ in range(64):  # ask for frame after frame and read nothing
            stalled = connect(small_window=True)
            stalled.sendall(pull("after=0") * 8)
            hostile.append(stalled)
            server.frame(ONE)
        for line in (b"\0" * 4000, b"GET / HTTP/1.1\r\nHost: x\r\nA: " + b"b" * 60000, b"POST / HTTP/1.1\r\nContent-Length: 9999999999\r\n\r\n",
                     b"\x16\x03\x01\x02", b"GET /%00%ff/../ HTTP/1.1\r\n\r\n", b"GET /?" + b"a=b&" * 3000 + b" HTTP/1.1\r\n\r\n"):
            hostile.append(connect())
            with contextlib.suppress(OSError):
                hostile[-1].sendall(line)
        frames_go_on(server)
        expect("memory is bounded", memory(server.process.pid) < idle + 16e6, memory(server.process.pid) - idle)
        trickling = connect()

        def is_cut():
            try:
                trickling.sendall(b"G")
                return trickling.recv(1, socket.MSG_DONTWAIT) == b""
            except BlockingIOError:
                return False
            except OSError:
                return True

        until("one that trickles is cut", is_cut)
        for client in hostile:
            client.close()
        until("they are gone", lambda: server.api("state")["server"]["clients"] < 10)
        frames_go_on(server)


def check_killed_workers():
    """VQD-HT110 VQD-HT120"""
    with Server() as server:
        session = frames_go_on(server)
        frames_go_on(server, TWO)
        for victim in ("process", "supervisor"):
            before = server.camera()[victim]
            os.kill(before, signal.SIGKILL)
            until("frames of a new session", lambda: (server.frame(after=10**9, session=session) or (session,))[0] != session)
            session = frames_go_on(server)
            until("a new one", lambda: server.camera()[victim] not in (None, before))
            expect("the other camera", frames_go_on(server, TWO))


def check_unplugged():
    """--fault "1: unplug after frame 40, back after 2500 ms" VQD-HT110 VQD-HT120"""
    with Server() as server:
        server.first_frame(TWO)
        until("it is lost", lambda: any(event["event"] == "lost" for event in server.camera()["events"]))
        expect("the other camera", frames_go_on(server, TWO))
        until("it is back", lambda: server.camera()["state"] == "streaming" and server.camera()["events"][-1]["event"] != "lost")
        frames_go_on(server)


def check_a_worker_that_runs_already():
    """VQD-HT110"""
    worker = subprocess.Popen([VQD, "worker", "-q"])
    with Server() as server:
        frames_go_on(server)
        expect("that one", server.camera()["supervisor"] == worker.pid, server.camera())
    expect("it is not ours to end", worker.poll() is None)
    with Server() as server:
        frames_go_on(server)
        worker.terminate()
        worker.wait(PATIENCE)
        until("one of its own", lambda: server.camera()["supervisor"] not in (None, worker.pid) and server.first_frame())


def check_the_end():
    """VQD-HT110 VQD-HT120"""
    with Server() as server:
        session, sequence, _ = server.first_frame()
        server.first_frame(TWO)
        processes = [server.camera(name)[which] for name in (ONE, TWO) for which in ("process", "supervisor")]
        request = (f"GET /api/v1/cameras/{ONE}/frame?after={sequence + 10**6}&session={session} HTTP/1.1\r\n"
                   f"Host: 127.0.0.1\r\nAuthorization: Bearer {server.token}\r\n\r\n").encode()
        waiting, unread = (socket.create_connection(("127.0.0.1", server.port)) for _ in range(2))
        waiting.sendall(request)
        server.api("state")  # by now it waits for its frame
        server.process.send_signal(signal.SIGSTOP)
        unread.sendall(request)
        server.process.terminate()
        server.process.send_signal(signal.SIGCONT)
        expect("exit code", server.process.wait(PATIENCE) == 0)
        for connection in waiting, unread:
            expect("it was answered", b"503" in connection.recv(100).splitlines()[0])
        expect("no worker is left", not any(map(lives, processes)), processes)
        expect("nor a file", not list(server.run.glob("*")), list(server.run.glob("*")))
    with Server() as server:
        server.first_frame()
        processes = [server.camera()[which] for which in ("process", "supervisor")]
        server.process.kill()
        until("they end with it", lambda: not any(map(lives, processes)))


def run(name, check, folder):
    """One check, under the cameras that it names."""
    sim = [VQD, "sim", *shlex.split(check.__doc__), "--", sys.executable, str(Path(sys.argv[0]).resolve()), VQD, "--inside", name]
    environment = os.environ | {"VQD_RUNTIME_DIR": f"{folder}/run", "XDG_STATE_HOME": f"{folder}/state", "HOME": folder}
    Path(folder, "run").mkdir()
    done = subprocess.run(sim, cwd=folder, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    print(f"{'ok' if done.returncode == 0 else 'FAILED'} {name}", flush=True)
    if done.returncode != 0:
        said = Path(folder, "said")
        print(done.stdout[-6000:], said.read_text()[-3000:] if said.exists() else "", sep="\n", flush=True)
    return done.returncode == 0


def main(names):
    """Runs the checks among these names: all, or those of the command line."""
    checks = {name.removeprefix("check_"): check for name, check in names.items() if name.startswith("check_")}
    if sys.argv[2:3] == ["--inside"]:
        checks[sys.argv[3]]()
        sys.exit(0)
    good = True
    for chosen in sys.argv[2:] or checks:
        with tempfile.TemporaryDirectory() as folder:
            good = run(chosen, checks[chosen], folder) and good
    sys.exit(not good)


if __name__ == "__main__":
    main(globals())
