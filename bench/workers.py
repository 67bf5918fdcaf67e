#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What workers cost, and what a camera or a reader does to the others.

    workers.py VQD PROBE [SECONDS]

A row is a run of so many seconds (20) under `vqd sim`. CPU time is in per cent of one core. That of the virtual cameras is
not in it, but a program's own part of a transfer costs more on their bus than on a real one."""
import json
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

VQD, PROBE = (str(Path(path).resolve()) for path in sys.argv[1:3])
SECONDS = int(sys.argv[3]) if len(sys.argv) > 3 else 20
SPARE = []  # descriptors: programs that have the same ones share a socket of the virtual bus


def serial(camera):
    return f"2406110000000{camera}"


def spawn(*words, lines=subprocess.DEVNULL):
    SPARE.extend(os.open("/dev/null", os.O_RDONLY) for _ in range(6))
    return subprocess.Popen(words, stdout=lines, stderr=subprocess.DEVNULL, pass_fds=SPARE)


def cpu(process):
    """Seconds of all threads of a process until now."""
    return sum(int((task / "schedstat").read_text().split()[0]) for task in Path(f"/proc/{process}/task").iterdir()) / 1e9


def memory(process):
    return int(Path(f"/proc/{process}/statm").read_text().split()[1]) * os.sysconf("SC_PAGESIZE") / 2**20


def measure(processes):
    """Per cent of a core that each group of processes takes."""
    before = {name: sum(map(cpu, group)) for name, group in processes.items()}
    began = time.monotonic()
    time.sleep(SECONDS)
    passed = time.monotonic() - began
    return {name: 100 * (sum(map(cpu, group)) - before[name]) / passed for name, group in processes.items()}


def status():
    text = subprocess.run([VQD, "status", "--json"], capture_output=True, check=True).stdout
    return {worker["wanted"]: worker for worker in json.loads(text)["workers"]}


def show(rates, shares):
    print("  frames a second: " + ", ".join(f"{rate:.2f}" for rate in rates))
    for name, share in shares.items():
        print(f"  {name}: {share:.2f} %")


def programs(cameras):
    """vqd stats, once for each camera."""
    with tempfile.TemporaryDirectory(dir=".") as folder:
        files = [open(f"{folder}/{camera}", "w+") for camera in range(cameras)]
        running = [spawn(VQD, "stats", "--json", "-c", serial(n + 1), lines=file) for n, file in enumerate(files)]
        while not all(os.fstat(file.fileno()).st_size for file in files):
            time.sleep(0.2)
        shares = measure({"programs": [program.pid for program in running]})
        for program in running:
            program.terminate()
            program.wait()
        rates = []
        for file in files:
            file.seek(0)
            seconds = [json.loads(line) for line in file][1:-1]  # whole ones
            rates.append(sum(row["frames"] for row in seconds) / sum(row["duration"] for row in seconds))
        show(rates, shares)


def workers(cameras, readers=1, stalled=0):
    running = [spawn(VQD, "worker", "-q", "-c", serial(n + 1)) for n in range(cameras)]
    names = [serial(n + 1) for n in range(cameras)]
    while not all(status().get(name, {}).get("frames") for name in names):
        time.sleep(0.2)
    path = os.environ["VQD_RUNTIME_DIR"] + "/{}.sock"
    reading = [spawn(PROBE, path.format(name), "frames", "1000000000") for name in names for _ in range(readers)]
    reading += [spawn(PROBE, path.format(name), "stall") for name in names for _ in range(stalled)]
    time.sleep(1)
    before, began = status(), time.monotonic()
    pids = [before[name]["process"] for name in names]
    supervisors = [before[name]["supervisor"] for name in names]
    shares = measure({"cameras' processes": pids, "supervisors": supervisors})
    after, passed = status(), time.monotonic() - began
    show([(after[name]["frames"] - before[name]["frames"]) / passed if after[name]["session"] == before[name]["session"] else 0
          for name in names], shares)
    try:
        print(f"  memory of the first camera's process: {memory(pids[0]):.1f} MiB")
    except OSError:
        print("  the first camera's process has ended")
    for process in reading + running:
        process.terminate()
    for process in reading + running:
        process.wait()


def again(fault):
    return ["--fault", "; ".join("1: " + fault.format(frame) for frame in range(100, 100 + 30 * SECONDS, 150))]


FOUR = ["VQD-HT120", "VQD-RS110", "VQD-HT110", "VQD-WN120", "--scene", "plane"]
RUNS = {
    "one camera, vqd stats": (["--scene", "plane"], lambda: programs(1)),
    "one camera, a worker without readers": (["--scene", "plane"], lambda: workers(1, 0)),
    "one camera, a worker with a reader": (["--scene", "plane"], lambda: workers(1)),
    "one camera, a worker with four readers": (["--scene", "plane"], lambda: workers(1, 4)),
    "one camera, a worker with a reader and one that stopped reading": (["--scene", "plane"], lambda: workers(1, 1, 1)),
    "four cameras, vqd stats": (FOUR, lambda: programs(4)),
    "four cameras, workers with a reader each": (FOUR, lambda: workers(4)),
    "the same, and the first camera is unplugged again and again":
        (FOUR + again("unplug after frame {}, back after 2 s"), lambda: workers(4)),
    "the same, and the first camera is silent for 2 s again and again":
        (FOUR + again("silent for 2 s after frame {}"), lambda: workers(4)),
}


def main():
    if len(sys.argv) > 4:
        return RUNS[sys.argv[4]][1]()
    for name, (options, _) in RUNS.items():
        print(name, flush=True)
        with tempfile.TemporaryDirectory() as folder:
            environment = os.environ | {"VQD_RUNTIME_DIR": folder, "TMPDIR": folder}
            subprocess.run([VQD, "sim", *options, "--", sys.executable, Path(__file__).resolve(), VQD, PROBE, str(SECONDS), name],
                           check=True, cwd=folder, env=environment, stderr=subprocess.DEVNULL)


main()
