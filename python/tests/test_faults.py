# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""A camera in this process that goes wrong: each case is a program below ``vqd sim --fault``. They all run at once, since
they mostly wait."""
import os
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

import pytest

PROGRAMS = {
    "unplugged": (
        "unplug after frame 10, back after 300 ms; 25th frame has a bad start code",
        """
logging.basicConfig()
frames = [camera.read() for _ in range(30)]
print([f.number for f in frames] == [*range(1, 31)], [f.reopened for f in frames].count(True), camera.statistics)
print(min(int(f.depth.max()) for f in frames) > 1400, camera.read_eeprom()[4])
""",
    ),
    "away": (
        "unplug after frame 3",
        """
try:
    for frame in camera: pass
except vqd.Error as error: print(type(error).__name__, error)
camera.close()
camera.close()
""",
    ),
    "exchanged": (
        "unplug after frame 3, back after 300 ms",
        """
listed = vqd._camera.list_cameras
vqd._camera.list_cameras = lambda: [dataclasses.replace(one, serial="24061100000009") for one in listed()]
for _ in range(2):
    try:
        for frame in camera: last = frame.number
    except vqd.LostError as error: print(last, error)
""",
    ),
    "memory": (
        "every frame is out of memory",
        """
try: camera.read()
except vqd.Error as error: print(type(error).__name__, error)
""",
    ),
    "silent": (
        "silent after frame 5",
        """
times = []
def interrupt():
    times.append(time.monotonic())
    os.kill(os.getpid(), signal.SIGINT)
try:
    with camera:
        for frame in camera.stream(latest=True):
            if frame.number == 5: threading.Timer(1, interrupt).start()
except KeyboardInterrupt: print(frame.number, time.monotonic() - times[0] < 6)
""",
    ),
    "interrupted": (
        "unplug after frame 1000",
        """
for i in range(3):
    threading.Timer(2.5 if i == 0 else 0.2, os.kill, [os.getpid(), signal.SIGINT]).start()
    try:
        for frame in camera: pass
    except KeyboardInterrupt: print("interrupted")
camera.offset = 5
print(camera.offset, camera.read().number > 1)
""",
    ),
    "refused": (
        "every EEPROM write refused",
        """
camera.read(); camera.offset = 5
try: camera.save()
except vqd.Error as error: print(type(error).__name__, error)
print(camera.read().number, camera.offset, vqd.list()[0].eeprom[25])
""",
    ),
    "unread": (
        "every EEPROM read answers 40 of 128 bytes",
        """
print(camera.serial, vqd.list()[0].serial, camera.read().number)
for call in (camera.save, lambda: camera.write_lens(camera.lens), lambda: camera.restore_eeprom(bytes(128))):
    try: call()
    except vqd.Error as error: print(error)
""",
    ),
    "two": (
        "unplug after frame 1000",
        """
try: vqd.Camera()
except vqd.NoCameraError as error: print(error)
opened = []
def open_one(serial):
    try: opened.append(vqd.Camera(serial))
    except vqd.HeldError as error: opened.append(None)
threads = [threading.Thread(target=open_one, args=[f"2406110000000{i}"]) for i in (1, 2)]
for thread in threads: thread.start()
for thread in threads: thread.join()
print(opened.count(None))
for one in opened: one and one.close()
camera = vqd.Camera("24061100000002", undistortion=2)
camera.read()
camera.offset = 5
print(camera.product, camera.number, camera.save(), camera.read_eeprom()[25])
print([(one.serial, one.eeprom[25]) for one in vqd.list()], vqd.exported.m_nUndistortionMode)
""",
        "VQD-HT120",
        "VQD-RS110",
    ),
}
START = "import dataclasses, logging, os, signal, threading, time, vqd\n"


def run(fault, program, *models):
    models = models or ["VQD-HT110"]
    command = [os.environ["VQD_TOOL"], "sim", *models, "--scene", "plane", "--fault", fault, "--", sys.executable, "-c"]
    program = program if len(models) > 1 else "camera = vqd.Camera()" + program
    # As long as any machine should need.
    return subprocess.run([*command, START + program], capture_output=True, text=True, check=False, timeout=100)


@pytest.fixture(scope="module")
def said():
    """What each program has printed; the library's own lines are never among it."""
    with ThreadPoolExecutor(len(PROGRAMS)) as pool:
        ended = dict(zip(PROGRAMS, pool.map(lambda case: run(*case), PROGRAMS.values())))

    def of(name):
        assert ended[name].returncode == 0, ended[name].stderr
        lines = ended[name].stdout.splitlines()
        assert not any(line.startswith(("VQD_Library", "ReadFromDevice", "Device")) for line in lines)
        return ended[name].stdout + ended[name].stderr

    return of


def test_an_unplugged_camera_comes_back_and_is_reported(said):
    text = said("unplugged")
    assert "True 2 Statistics(frames=30" in text and "reopens=2, failed_transfers=3" in text and "True 129" in text
    assert text.count("WARNING:vqd:camera 24061100000001 at 1-1 was opened again") == 2


@pytest.mark.parametrize(
    "name, start, end",
    [
        ("away", "LostError the camera is lost (frame read -3)", ""),
        ("memory", "Error the kernel has no memory left for a frame", "usbfs_memory_mb"),
    ],
)
def test_a_camera_without_frames_is_told_with_the_lines_of_the_library(said, name, start, end):
    text = said(name)
    assert text.startswith(start) and end in text and "  library: ReadFromDevice Read Error, Device Reset2, " in text


def test_frames_of_another_camera_are_not_those_of_the_first(said):
    assert said("exchanged").count("3 another camera was plugged in where camera 24061100000001 at 1-1 was") == 2


def test_an_interrupt_ends_a_wait_for_a_silent_camera_at_once(said):
    assert said("silent").split() == ["5", "True"]


def test_an_interrupt_between_frames_leaves_the_camera_usable(said):
    assert said("interrupted").split() == ["interrupted"] * 3 + ["5", "True"]


def test_a_refused_write_is_an_error_although_the_library_says_yes(said):
    assert said("refused") == "Error the EEPROM was not written\n2 5 0\n"


def test_what_was_never_read_is_not_written(said):
    text = said("unread")
    assert text.splitlines()[0] == "None None 1"
    assert text.count("cannot be read or was never written, so nothing is written to it") == 2
    assert "its signature is missing" in text


def test_one_of_two_cameras_is_opened_and_saved_to(said):
    lines = said("two").splitlines()
    assert lines[0].startswith("several cameras are attached, so choose one: ")
    assert lines[1] == "1"
    assert lines[2:] == ["VQD-RS110 1 True 5", "[('24061100000001', 0), ('24061100000002', 5)] 2"]
