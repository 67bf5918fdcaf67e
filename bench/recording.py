#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What a recorder costs, how small its files are, and whether four at once keep up.

    recording.py VQD [SECONDS]

A row is three runs of so many seconds (10) of `vqd record` to a folder in memory, under `vqd sim`: their median, and the frames that any of
them lost or did not record. CPU time is that of the threads that write, in per cent of one core and for each camera. Ends with 1 when a
figure is on the wrong side of its limit."""
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

VQD = str(Path(sys.argv[1]).resolve())
SECONDS = int(sys.argv[2]) if len(sys.argv) > 2 else 10
FRAME_BYTES = 307712
FOUR = ["VQD-HT120", "VQD-RS110", "VQD-HT110", "VQD-WN120", "--scene", "plane"]
RUNS = {  # options of the bus, options of the recorder, and what must hold
    "one camera and the room, raw frames": ([], ["--no-images"], {"cpu": 3}),
    "one camera and the room, compact": ([], ["--no-images", "--compact"], {"cpu": 2, "ratio": 2.2}),
    "one camera and the room, with the library's images": ([], ["--images"], {}),
    "four cameras and a plane, raw frames": (FOUR, ["--no-images"], {"drops": 0}),
}


def states(cameras):
    """The workers of all cameras, once each of them records."""
    while True:
        text = subprocess.run([VQD, "status", "--json"], capture_output=True, check=True).stdout
        workers = [worker for worker in json.loads(text)["workers"] if (worker.get("recording") or {}).get("frames")]
        if len(workers) == cameras:
            return workers
        time.sleep(0.2)


def cpu(process):
    """Seconds of the thread that writes a recording."""
    tasks = [task for task in Path(f"/proc/{process}/task").iterdir() if (task / "comm").read_text() == "vqd-recorder\n"]
    return sum(int((task / "schedstat").read_text().split()[0]) for task in tasks) / 1e9


def measured(cameras, options):
    """Under the bus: the figures of a recording that runs."""
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
        running = subprocess.Popen([VQD, "record", "-q", "-c", "all", "-o", folder, *options], stdout=subprocess.DEVNULL)
        before, began = states(cameras), time.monotonic()
        seconds = sum(cpu(worker["process"]) for worker in before)
        time.sleep(SECONDS)
        seconds = sum(cpu(worker["process"]) for worker in before) - seconds
        after, passed = states(cameras), time.monotonic() - began
        running.terminate()
        running.wait()
    grown = lambda name: sum(new["recording"][name] - old["recording"][name] for new, old in zip(after, before))
    return {"cpu": 100 * seconds / passed / cameras, "ratio": grown("frames") * FRAME_BYTES / grown("bytes"),
            "rate": grown("frames") / passed / cameras, "megabytes": grown("bytes") / passed / 1e6,
            "drops": grown("dropped") + grown("not-recorded")}


def run(name, bus):
    with tempfile.TemporaryDirectory() as folder:
        words = [VQD, "sim", *bus, "--", sys.executable, str(Path(__file__).resolve()), VQD, str(SECONDS), name]
        return json.loads(subprocess.run(words, check=True, cwd=folder, env=os.environ | {"VQD_RUNTIME_DIR": folder},
                                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout)


def main():
    if len(sys.argv) > 3:
        bus, options, _ = RUNS[sys.argv[3]]
        print(json.dumps(measured(4 if bus else 1, options)))
        return 0
    failed = False
    for name, (bus, _, limits) in RUNS.items():
        runs = [run(name, bus) for _ in range(3)]
        figures = {figure: statistics.median(one[figure] for one in runs) for figure in runs[0]}
        figures["drops"] = sum(one["drops"] for one in runs)
        print(f"{name}: {figures['rate']:.1f} frames a second, {figures['cpu']:.2f} % of a core, {figures['megabytes']:.2f} MB/s, "
              f"{figures['ratio']:.2f} : 1, {figures['drops']} lost or not recorded", flush=True)
        for figure, limit in limits.items():
            if figures[figure] < limit if figure == "ratio" else figures[figure] > limit:
                print(f"  {figure} is to be {limit} at {'least' if figure == 'ratio' else 'most'}")
                failed = True
    return int(failed)


sys.exit(main())
