# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What the tests share: folders of their own, so that no profile, backup or save of this user is touched."""
import os
import subprocess
import sys
from pathlib import Path

import pytest

pytest_plugins = ["vqd.pytest_plugin"]

_SKIPPED = 77  # as ctest knows it


def pytest_sessionfinish(session, exitstatus):
    """A file whose module is missing is skipped, and not a failure."""
    if exitstatus == pytest.ExitCode.NO_TESTS_COLLECTED:
        session.exitstatus = _SKIPPED


ROOT = Path(__file__).resolve().parents[2]


@pytest.fixture(autouse=True, scope="session")
def _own_folders(tmp_path_factory):
    for name in ("XDG_STATE_HOME", "XDG_DATA_HOME", "VQD_RUNTIME_DIR"):
        os.environ[name] = str(tmp_path_factory.mktemp(name.lower()))


@pytest.fixture
def tool():
    """Runs the tool and returns what it prints."""

    def run(*arguments, code=0):
        ended = subprocess.run([os.environ["VQD_TOOL"], *arguments], capture_output=True, text=True, check=False)
        assert ended.returncode == code, ended.stderr
        return ended.stdout

    return run


@pytest.fixture
def run_python():
    """Runs a program of its own, and returns its exit code and what it prints."""

    def run(program, *arguments):
        ended = subprocess.run([sys.executable, "-c", program, *arguments], capture_output=True, text=True, check=False, timeout=60)
        return ended.returncode, ended.stdout, ended.stderr

    return run
