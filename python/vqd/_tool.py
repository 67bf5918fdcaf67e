# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The command vqd, for what needs a process of its own."""
from __future__ import annotations

import os
import shutil
import subprocess

from ._errors import Error, error_of


def tool() -> str:
    """The command: the file that VQD_TOOL names, or what PATH has."""
    found = os.environ.get("VQD_TOOL") or shutil.which("vqd")
    if not found:
        raise Error("the command vqd is not installed (Debian: vqd-tools; VQD_TOOL names another file)")
    return found


def failure_text(stderr: bytes) -> str:
    """Why the command failed: its last message, or the first line about its arguments."""
    lines = stderr.decode("utf-8", "replace").strip().splitlines()
    messages = [line[len("vqd: ") :] for line in lines if line.startswith("vqd: ")]
    return messages[-1] if messages else lines[0] if lines else "vqd failed without a message"


def run_tool(*arguments: str) -> None:
    """Runs a command. Fails with its message."""
    ended = subprocess.run([tool(), *arguments], stdin=subprocess.DEVNULL, capture_output=True, check=False)
    if ended.returncode != 0:
        raise error_of(ended.returncode, failure_text(ended.stderr))
