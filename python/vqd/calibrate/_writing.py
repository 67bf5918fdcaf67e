# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Taking a result into use, only by the tool's own commands, which judge, ask, back up and read back."""
from __future__ import annotations

import json
import subprocess
import sys
from collections.abc import Callable, Sequence
from typing import Any

from .._eeprom import back_up
from .._errors import Error, VerificationError, error_of
from .._tool import failure_text, tool

Say = Callable[[str, bool], None]


def _ask(*arguments: str) -> Any:
    ended = subprocess.run([tool(), *arguments], stdin=subprocess.DEVNULL, capture_output=True, check=False)
    if ended.returncode != 0:
        raise error_of(ended.returncode, failure_text(ended.stderr))
    return json.loads(ended.stdout)


def profile_of(serial: str) -> Any:
    """What this machine keeps of a camera, as JSON; None when it keeps nothing."""
    try:
        return _ask("profile", "show", "--json", "-c", serial)
    except Error as why:
        if "there is no profile" in str(why):
            return None
        raise


def into_profile(serial: str, parts: Sequence[str], expected: Callable[[Any], bool], say: Say) -> None:
    """Imports parts of a profile, such as ``["--lens", file]``. The profile as it was is kept, the new one read back."""
    before = profile_of(serial)
    if before is not None:
        with open(before["file"], "rb") as file:
            say(f"the profile as it was is in {back_up('profile', serial, file.read())}", True)
    done = _ask("profile", "import", "--json", "-c", serial, *parts)
    after = profile_of(serial)
    if after is None or not expected(after["profile"]):
        raise VerificationError(f"the profile {done['file']} reads back differently")
    say(f"{done['file']} holds it, and was read back", True)


def into_camera(serial: str, command: Sequence[str], yes: bool) -> None:
    """Runs a command that writes to the camera: it asks on this terminal, unless ``yes``."""
    words = [tool(), *command, "-c", serial, *(["--yes"] if yes else [])]
    code = subprocess.run(words, stdout=sys.stderr, check=False).returncode
    if code != 0:
        raise error_of(code, f"vqd {command[0]} has ended with {code}, and its message says what the camera holds")
