#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""How fast recordings play and convert, as multiples of the 30 frames a second at which cameras send.

    playback.py VQD [FRAMES]

Records so many frames (300) of the room, plain and compact, and measures both on the way from the first frame to the last, without
the start of the programs. Ends with 1 when playing as a camera is slower than five times real time."""
import json
import os
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

VQD = str(Path(sys.argv[1]).resolve())
FRAMES = sys.argv[2] if len(sys.argv) > 2 else "300"
REAL_TIME, LEAST = 30, 5


def run(*words):
    return subprocess.run([VQD, *words], check=True, capture_output=True)


def played(file):
    """Frames a second of a program that only reads them."""
    reader = [VQD, "grab", "-q", "-n", FRAMES, "-o", "last", "--force", "--json"]
    text = run("sim", "--play", file, "--fps", "0", "--", *reader).stdout
    return json.loads(text)["frames-per-second"]


def converted(file):
    """Frames a second on the wire; each message has a prefix of 16 bytes, with its kind and size."""
    stream = subprocess.Popen([VQD, "convert", "-q", "--stream", file], stdout=subprocess.PIPE)
    times = []
    while prefix := stream.stdout.read(16):
        kind, size = struct.unpack_from("<HI", prefix, 6)
        stream.stdout.read(size)
        if kind == 2:
            times.append(time.monotonic())
    if stream.wait() != 0 or len(times) != int(FRAMES):
        sys.exit(f"{len(times)} frames came of {file}")
    return (len(times) - 1) / (times[-1] - times[0])


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    os.environ["VQD_RUNTIME_DIR"] = folder
    slow = False
    for name, options in {"plain": [], "compact": ["--compact"]}.items():
        file = f"{name}.mcap"
        run("sim", "--", VQD, "record", "-q", "-n", FRAMES, "--no-images", *options, "-o", file)
        print(f"{name}: {os.stat(file).st_size / int(FRAMES) / 1000:.0f} kB a frame")
        for what, measure in {"played as a camera": played, "converted to a stream": converted}.items():
            rate = measure(file)
            slow = slow or (measure is played and rate < LEAST * REAL_TIME)
            print(f"  {what}: {rate:.0f} frames a second, {rate / REAL_TIME:.1f} times real time")
sys.exit(slow)
