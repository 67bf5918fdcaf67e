# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What the tests of the calibrations share: boards in known poses, frames of them, and vqd-calibrate below a virtual camera.

With --fps 0 a frame is always ready, so a program gets every frame and no test depends on the speed of the machine.
"""
import json
import os
import random
import subprocess
import sys

import numpy as np

from vqd import Frame, Lens

SERIALS = "24061100000001", "24061100000002"
LENS = Lens(207.3, 206.8, 161.7, 118.4, -0.33, 0.105, 0.006, 0.0012, -0.0007)
FRAMES_PER_POSE = 6
BOARD = ["--board", "8x5", "--square", "60"]


def lens_option(lens):
    return ",".join(f"{name}={getattr(lens, name)}" for name in ("fx", "fy", "cx", "cy", "k1", "k2", "k3", "p1", "p2"))


def all_over_the_image(seed, count):
    """Poses of a board of 9 x 6 squares of 60 mm, tilted to all sides, in all parts of the image."""
    rng = random.Random(seed)
    poses = []
    for i in range(count):
        z = rng.uniform(540, 950)
        x, y = ((i % 4) - 1.5) / 1.5 * 0.46 * z, ((i // 4) % 3 - 1) * 0.33 * z
        tilts = [rng.uniform(-35, 35), rng.uniform(-35, 35)]
        place = [x + rng.uniform(-30, 30), y + rng.uniform(-30, 30), z]
        poses.append({"position": place, "angles": [*tilts, rng.uniform(-8, 8)]})
    return poses


def board_file(path, poses):
    board = {"columns": 9, "rows": 6, "square": 60, "wall": 3500, "frames-per-pose": FRAMES_PER_POSE, "poses": poses}
    path.write_text(json.dumps({"schema": "vqd.board/1", **board}))
    return f"board:{path}"


def below_sim(options, *command, code=0):
    """Runs a command below ``vqd sim --fps 0`` and returns what it prints."""
    words = [os.environ["VQD_TOOL"], "sim", *options, *([] if "--fps" in options else ["--fps", "0"]), "--", *command]
    ended = subprocess.run(words, capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL)
    assert ended.returncode == code, ended.stderr
    return ended.stdout if code == 0 else ended.stderr


def calibrate(options, *words, code=0):
    """Runs vqd-calibrate there; its report, or what it says of a failure."""
    told = below_sim(options, sys.executable, "-m", "vqd.calibrate", *words, "--json", code=code)
    return json.loads(told) if code == 0 else told


_CAPTURE = """
import sys, numpy, vqd
with vqd.Camera(sys.argv[1], undistortion=0) as camera:
    frames = [camera.read() for _ in range(int(sys.argv[3]))]
numpy.savez(sys.argv[2], amplitude=[f.amplitude for f in frames], depth=[f.depth for f in frames])
"""


def capture(options, serial, path, count):
    """Raw frames as arrays, (count, 240, 320) each."""
    below_sim(options, sys.executable, "-c", _CAPTURE, serial, str(path), str(count))
    with np.load(path) as held:
        return held["amplitude"], held["depth"]


class FakeRecording:
    """Stands for vqd.Recording: frames of arrays, 30 of them a second."""

    known = {}  # by path: amplitudes, depths, serial number, lens

    def __init__(self, path, **settings):
        self._amplitudes, self._depths, serial, lens = self.known[str(path)]
        names = ("fx", "fy", "cx", "cy", "k1", "k2", "k3", "p1", "p2", "skew")
        self.parameters = {
            "camera": {"serial": serial, "product": "VQD-HT120"}, "settings": {"flip-horizontal": 0, "undistortion": 2},
            "lens": {"depth": {name: getattr(lens, name) for name in names}},
        }

    def __iter__(self):
        for i, (amplitude, depth) in enumerate(zip(self._amplitudes, self._depths)):
            yield Frame(depth, amplitude, number=i + 1, time=1000 + i / 30)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        pass
