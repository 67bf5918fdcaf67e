#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The package on every supported Python that the machine has: its quick tests where numpy and pytest are; elsewhere it
compiles, lists a virtual camera and catches the library's lines, with a stand-in for numpy that is enough for that."""
import glob
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

TESTS = Path(__file__).resolve().parent
NUMPY = """
class Anything:
    def __getitem__(self, key): return self
uint8 = uint16 = int32 = float32 = float64 = ndarray = Anything()
class ctypeslib:
    as_array = staticmethod(lambda array: array)
"""
TYPING = "class NDArray:\n    def __class_getitem__(cls, key): return cls\n"
PROGRAM = """
import pathlib, sys, vqd
for name in sys.argv[1:]: compile(pathlib.Path(name).read_bytes(), name, "exec")
assert [camera.serial for camera in vqd.list()] == ["24061100000001"]
assert vqd._library.library().call("vqdSetOffset", 0, 5) == (0, ("VQD Device not opened.",))
"""


def interpreters():
    places = [*os.environ["PATH"].split(os.pathsep), *glob.glob(os.path.expanduser("~/.pyenv/versions/*/bin"))]
    for minor in range(9, 14):
        found = [path for place in places if (path := shutil.which(f"python3.{minor}", path=place))]
        works = [path for path in found if subprocess.run([path, "-V"], capture_output=True, check=False).returncode == 0]
        if works:
            yield minor, works[0]


def check(python, stand_in):
    """Runs what this interpreter can run; returns what that was, and whether it passed."""
    if subprocess.run([python, "-c", "import numpy, pytest"], capture_output=True, check=False).returncode == 0:
        command = [python, "-m", "pytest", "-q", "-p", "no:cacheprovider", TESTS / "test_drift.py", TESTS / "test_wire.py"]
        return "tests", subprocess.run(command, check=False).returncode == 0
    files = sorted(map(str, TESTS.parent.rglob("*.py")))
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join([stand_in, str(TESTS.parent)])}
    command = [os.environ["VQD_TOOL"], "sim", "--", python, "-W", "error", "-c", PROGRAM, *files]
    return "without numpy", subprocess.run(command, env=environment, check=False).returncode == 0


def main():
    results = []
    with tempfile.TemporaryDirectory() as folder:
        (Path(folder) / "numpy").mkdir()
        (Path(folder) / "numpy/__init__.py").write_text(NUMPY)
        (Path(folder) / "numpy/typing.py").write_text(TYPING)
        for minor, python in interpreters():
            what, passed = check(python, folder)
            results.append(passed)
            print(f"3.{minor}: {what} {'passed' if passed else 'failed'}", flush=True)
    sys.exit(77 if not results else not all(results))


if __name__ == "__main__":
    main()
