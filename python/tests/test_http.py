# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""A server that answers as docs/serve.md says, and one that does not."""
import json
import os
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from urllib.parse import parse_qs, urlsplit

import pytest
from test_wire import PLANES, frame_bytes

import vqd
from vqd import _http, _wire

SERIAL = "24061100000001"
LENS = {"fx": 204, "fy": 204, "cx": 160, "cy": 120, "k1": 0, "k2": 0, "k3": 0, "p1": 0, "p2": 0, "skew": 0}


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *arguments):
        pass

    def send(self, status, body=b""):
        if isinstance(body, dict):
            body = json.dumps(body).encode()
        self.send_response(status)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        server, url = self.server, urlsplit(self.path)
        self.close_connection = server.closes  # without a word of it in the answer
        if self.headers.get("Authorization") != "Bearer secret":
            return self.send(401, {"ok": False, "error": "the token is missing or is another one", "code": 4})
        if url.path == "/api/v1/state":
            return self.send(200, {"cameras": server.cameras})
        if url.path == f"/api/v1/cameras/{SERIAL}/parameters":
            lens = {"depth": LENS, "colour": LENS}
            return self.send(200, {"camera": server.cameras[0], "settings": server.settings, "lens": lens})
        if url.path == f"/api/v1/cameras/{SERIAL}/frame":
            server.asked.append({name: values[0] for name, values in parse_qs(url.query).items()})
            answer = server.answers.pop(0) if server.answers else (204, b"")
            return self.close_connection_after(answer) if answer[0] == 0 else self.send(*answer)
        return self.send(404, {"ok": False, "error": "there is no such path", "code": 2})

    def close_connection_after(self, answer):
        self.wfile.write(answer[1])
        self.close_connection = True
        return None

    def do_POST(self):
        body = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
        if self.headers.get("X-VQD") != "1" or self.headers.get("Content-Type") != "application/json":
            return self.send(403, {"ok": False, "error": "X-VQD: 1 is missing", "code": 4})
        if self.path.endswith("/save"):
            self.server.saved = body
            return self.send(200, {"ok": True, "written": True})
        if body["settings"].get("offset") == 9:
            return self.send(409, {"ok": False, "error": "the camera does not take offset=9", "code": 1})
        self.server.settings.update(body["settings"])
        return self.send(200, {"ok": True, "settings": self.server.settings})


@pytest.fixture
def server():
    server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    camera = {"id": SERIAL, "serial": SERIAL, "port": "1-1", "product": "VQD-HT120", "state": "streaming", "temperature": 36.5}
    server.cameras, server.settings = [camera], {"offset": 1, "fps-delay": 0}
    server.asked, server.answers, server.saved, server.closes = [], [], None, False
    server.url = f"http://127.0.0.1:{server.server_port}"
    threading.Thread(target=server.serve_forever, daemon=True).start()
    yield server
    server.shutdown()
    server.server_close()


def answer(**of_frame):
    return 200, _wire.message(_wire.Kind.FRAME, frame_bytes(**of_frame))


def test_frames_and_settings_of_a_server_are_those_of_a_worker(server):
    server.answers = [
        answer(number=3), (204, b""), answer(number=5), (503, {"ok": False, "error": "the worker is not there", "code": 5}),
        (0, b"HTTP/1.1 200 OK\r\nContent-Length: 307312\r\n\r\nVQDW"), answer(number=1, session=8),
    ]
    with vqd.connect(server.url, token="secret") as camera:
        assert (camera.serial, camera.product) == (SERIAL, "VQD-HT120")
        frames = [camera.read() for _ in range(3)]
        assert [(frame.session, frame.number, frame.missed) for frame in frames] == [(7, 3, 0), (7, 5, 1), (8, 1, 0)]
        assert (frames[0].depth == PLANES[1]).all() and camera.points(frames[0]).shape == (240, 320, 3)
        server.closes = True
        assert [camera.settings["fps-delay"] for _ in range(3)] == [0] * 3
        server.closes = False
        camera.offset = -5
        assert camera.offset == -5 and camera.settings["temperature"] == 36.5
        with pytest.raises(vqd.SettingError, match="does not take offset=9"):
            camera.offset = 9
        with pytest.raises(vqd.Error, match="logic-version is not known here"):
            camera.logic_version
        assert camera.save() is True and server.saved == {"serial": SERIAL}
        with pytest.raises(vqd.NoFrameError, match="has no frame"):
            camera.read(0.1)
    with pytest.raises(vqd.UsageError, match="closed"):
        camera.read(0.1)
    assert [one["after"] for one in server.asked][:6] == ["0", "3", "3", "5", "5", "5"]
    assert [one["session"] for one in server.asked][:2] == ["0", "7"]


def test_a_token_is_found_where_the_server_keeps_it(server):
    port = server.server_port
    path = os.path.join(os.environ["VQD_RUNTIME_DIR"], f"serve-{port}.token")
    with open(path, "w", encoding="ascii") as file:
        file.write("secret\n")
    with vqd.connect(f"{server.url}/"):
        pass
    tokens = [_http._Address(f"http://{host}:{port}", None).token for host in ("localhost", "[::1]", "192.0.2.1", "vqd.example")]
    assert tokens == ["secret", "secret", "", ""]  # which is nobody else's business
    os.unlink(path)
    for kind, text, arguments in (
        (vqd.AccessError, "token is missing", {}),
        (vqd.AccessError, "token is missing", {"token": "other"}),
        (vqd.UsageError, "printable", {"token": "a\nb"}),
        (vqd.LostError, f"its cameras are: {SERIAL}", {"token": "secret", "camera": "1-9", "timeout": 0.1}),
    ):
        with pytest.raises(kind, match=text):
            vqd.connect(server.url, **arguments)
    server.cameras.append({"id": "1-2"})
    with pytest.raises(vqd.UsageError, match=f"choose one: {SERIAL}, 1-2"):
        vqd.connect(server.url, token="secret")


@pytest.mark.parametrize(
    "content, kind, text",
    [
        (answer(height=3), vqd.Error, "planes of a frame"),
        ((200, b"<html>no such page</html>"), vqd.Error, "no worker"),
        ((200, _wire.message(_wire.Kind.STATE, b"{}")), vqd.Error, "something else than a frame"),
        ((404, b"<html>"), vqd.Error, "status 404"),
    ],
)
def test_what_is_no_frame_is_told(server, content, kind, text):
    server.answers = [content]
    with vqd.connect(server.url, token="secret") as camera, pytest.raises(kind, match=text):
        camera.read(0.1)


def test_no_server_is_told(server):
    server.shutdown()
    server.server_close()
    with pytest.raises(vqd.LostError, match="does not answer"):
        vqd.connect(server.url, token="secret", timeout=0.1)
    for wrong in ("http://", "http://a:b", "http://[::1", "http://127.0.0.1:1/api", "http://user@127.0.0.1:1"):
        with pytest.raises(vqd.UsageError, match="no address of a server"):
            vqd.connect(wrong)
