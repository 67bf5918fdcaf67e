# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What the tests of the page stand on: virtual cameras with vqd serve, its answers without a browser, and what a picture should show."""
import json
import math
import os
import shutil
import signal
import struct
import subprocess
import tempfile
import time
import urllib.error
import urllib.request
from pathlib import Path

WIDTH, HEIGHT, PIXELS = 320, 240, 320 * 240
PATIENCE = 60
PAGES = ["--pages", os.environ["VQD_PAGES"]] if "VQD_PAGES" in os.environ else []  # for work on the page
FIRST = "24061100000001"
SPECTRUM = [(132, 8, 4), (186, 32, 2), (226, 66, 8), (248, 112, 26), (252, 164, 46), (236, 206, 54), (200, 236, 60), (148, 252, 84),
            (84, 248, 138), (34, 224, 188), (30, 190, 228), (52, 146, 252), (70, 104, 232), (66, 64, 172), (48, 22, 78)]


class Server:
    """vqd serve below vqd sim, with folders of its own. The cameras' corrections are on, so that points are to scale."""

    def __init__(self, vqd, models, *options):
        self.folder = Path(tempfile.mkdtemp())
        (self.folder / "run").mkdir()
        (self.folder / "tmp").mkdir()
        serials = [f"{int(FIRST) + i}" for i in range(len(models))]
        cameras = {serial: {"name": f"camera {serial[-1]}", "settings": {"undistortion": 2, "orthogonal": 1}} for serial in serials}
        (self.folder / "serve.json").write_text(json.dumps({"cameras": cameras}))
        environment = os.environ | {"VQD_RUNTIME_DIR": f"{self.folder}/run", "XDG_STATE_HOME": f"{self.folder}/state",
                                    "TMPDIR": f"{self.folder}/tmp"}
        self.log = open(self.folder / "log", "w+", encoding="utf-8")
        command = [vqd, "sim", *models, *options, "--", vqd, "serve", "--port", "0", *PAGES, "--config", f"{self.folder}/serve.json"]
        self.process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log)
        token = self.wait(lambda: next((self.folder / "run").glob("serve-*.token"), None), "a token")
        self.token = self.wait(lambda: token.read_text().strip(), "a token")
        self.port = int(token.stem.removeprefix("serve-"))
        self.url = f"http://127.0.0.1:{self.port}"
        self.wait(lambda: len(self.state()["cameras"]) == len(models) and
                  all(camera["frames"] and camera["settings"] for camera in self.state()["cameras"]), "frames")

    def wait(self, true, what):
        end = time.monotonic() + PATIENCE
        while not (value := true()):
            if time.monotonic() > end or self.process.poll() is not None:
                self.log.flush()
                raise AssertionError(f"never: {what}\n{Path(self.log.name).read_text()[-2000:]}")
            time.sleep(0.05)
        return value

    def ask(self, path, body=None):
        headers = {"Authorization": f"Bearer {self.token}"}
        if body is not None:
            headers |= {"X-VQD": "1", "Content-Type": "application/json"}
        data = None if body is None else json.dumps(body).encode()
        with urllib.request.urlopen(urllib.request.Request(self.url + "/api/v1/" + path, data, headers), timeout=PATIENCE) as answer:
            return answer.read()

    def state(self):
        return json.loads(self.ask("state"))

    def camera(self, serial=FIRST):
        return next(camera for camera in self.state()["cameras"] if camera["id"] == serial)

    def frame(self, after=0, serial=FIRST):
        """Amplitude and depth of a frame that the page has not touched."""
        body = self.wait(lambda: self.ask(f"cameras/{serial}/frame?after={after}"), "a frame")
        planes = struct.unpack_from(f"<{2 * PIXELS}H", body, 112)
        return planes[:PIXELS], planes[PIXELS:]

    def set(self, **settings):
        self.ask(f"cameras/{FIRST}/settings", {"settings": settings})

    def processes(self):
        """Of the server, the workers and the cameras: what has this test's folder in its environment."""
        found = []
        for process in Path("/proc").glob("[0-9]*"):
            try:
                if f"VQD_RUNTIME_DIR={self.folder}/run\0".encode() in (process / "environ").read_bytes():
                    found.append(int(process.name))
            except OSError:
                pass
        return found

    def end(self):
        """Seconds that the end took after SIGTERM to the server itself."""
        servers = [number for number in self.processes() if b"serve" in Path(f"/proc/{number}/cmdline").read_bytes().split(b"\0")[1:2]]
        began = time.monotonic()
        for server in servers:
            os.kill(server, signal.SIGTERM)
        self.process.wait(PATIENCE)
        return time.monotonic() - began

    def close(self):
        if self.process.poll() is None:
            self.process.terminate()
            self.process.wait(PATIENCE)
        self.log.close()
        shutil.rmtree(self.folder, ignore_errors=True)


def place_of_colour(colour):
    """Where a colour is in the spectrum, 0 near to 1 far, and how far off it is."""
    best = (1e9, 0)
    for i, (a, b) in enumerate(zip(SPECTRUM, SPECTRUM[1:])):
        d = [y - x for x, y in zip(a, b)]
        t = sum((c - x) * e for c, x, e in zip(colour, a, d)) / sum(e * e for e in d)
        t = min(max(t, 0), 1)
        best = min(best, (math.dist(colour, [x + t * e for x, e in zip(a, d)]), (i + t) / (len(SPECTRUM) - 1)))
    return best[1], best[0]


def still_spots(server, step=12):
    """Pixels that stand still and are like their neighbours, so that noise and the moving ball do not matter:
    {(u, v): (amplitude, depth)}."""
    frames = []
    for _ in range(6):
        frames.append(server.frame())
        time.sleep(0.4)
    spots = {}
    for v in range(6, HEIGHT - 6, step):
        for u in range(6, WIDTH - 6, step):
            seen = [depth[(v + dv) * WIDTH + u + du] for _, depth in frames for dv in (-2, 0, 2) for du in (-2, 0, 2)]
            light = [amplitude[(v + dv) * WIDTH + u + du] for amplitude, _ in frames for dv in (-2, 0, 2) for du in (-2, 0, 2)]
            if min(seen) > 0 and max(seen) - min(seen) < 0.05 * max(seen) and max(light) - min(light) < 0.3 * max(light):
                spots[u, v] = (sum(light) / len(light), sum(seen) / len(seen))
    return spots


def point_of(lens, u, v, depth):
    return [(u - lens["cx"]) * depth / lens["fx"], (v - lens["cy"]) * depth / lens["fy"], depth]
