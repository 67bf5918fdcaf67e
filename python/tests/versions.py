#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The package on every supported Python that the machine has: it compiles, and passes its quick tests where numpy and pytest
are."""
import glob
import os
import shutil
import subprocess
import sys
from pathlib import Path

TESTS = Path(__file__).resolve().parent
COMPILE = "import sys\nfor name in sys.argv[1:]: compile(open(name, encoding='utf-8').read(), name, 'exec')"


def interpreters():
    places = [*os.environ["PATH"].split(os.pathsep), *glob.glob(os.path.expanduser("~/.pyenv/versions/*/bin"))]
    for minor in range(9, 14):
        found = [path for place in places if (path := shutil.which(f"python3.{minor}", path=place))]
        works = [path for path in found if subprocess.run([path, "-V"], capture_output=True, check=False).returncode == 0]
        if works:
            yield minor, works[0]


def main():
    files = sorted(map(str, TESTS.parent.rglob("*.py")))
    count = failed = 0
    for minor, python in interpreters():
        count += 1
        whole = subprocess.run([python, "-c", "import numpy, pytest"], capture_output=True, check=False).returncode == 0
        command = [python, "-m", "pytest", "-q", "-p", "no:cacheprovider", TESTS / "test_drift.py", TESTS / "test_wire.py"]
        ended = subprocess.run(command if whole else [python, "-c", COMPILE, *files], check=False)
        failed += ended.returncode != 0
        print(f"3.{minor}: {'tests' if whole else 'compiled'} {'failed' if ended.returncode else 'passed'}", flush=True)
    sys.exit(77 if count == 0 else failed > 0)


if __name__ == "__main__":
    main()
