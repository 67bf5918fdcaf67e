# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Writing a camera's EEPROM: what it holds is kept first, and what it holds afterwards is read back.

An EEPROM wears out with writes, so a write of what it holds already is left out, and there is at most one write in 10 s.
The tool and the workers follow the same rules and share the time of the last write.
"""
from __future__ import annotations

import contextlib
import fcntl
import os
import time
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Optional, Union

from ._errors import Error, UsageError
from ._records import EEPROM_BYTES

PAUSE_SECONDS = 10
_BACKUPS_KEPT = 20
_FREQUENCY_CODES = bytes.fromhex("00010203330444055506 4556")
_MOST_DEPTH = 15000


def state_folder() -> Optional[Path]:
    """Where backups and the times of writes are; None without a home."""
    state, home = os.environ.get("XDG_STATE_HOME", ""), os.environ.get("HOME", "")
    if state.startswith("/"):
        return Path(state) / "vqd"
    return Path(home) / ".local/state/vqd" if home.startswith("/") else None


def write_new_file(path: Path, content: bytes) -> None:
    """Writes a file that is whole or not there, and replaces none."""
    part = path.with_name(f".{path.name}.{os.getpid()}")
    try:
        with open(part, "xb") as file:
            file.write(content)
            file.flush()
            os.fsync(file.fileno())
        os.link(part, path)  # fails when there is such a file
    except OSError as why:
        raise Error(f"{path} cannot be written: {why.strerror}") from why
    finally:
        with contextlib.suppress(OSError):
            part.unlink()


def back_up(what: str, serial: str, content: bytes) -> Path:
    """Writes a new file for this camera and returns its path. The first file and the newest 19 stay."""
    folder = state_folder()
    if folder is None:
        raise Error("there is no home folder for a backup, so nothing is written; XDG_STATE_HOME names another place")
    start = f"{what}-{serial}-"
    name = start + time.strftime("%Y%m%d-%H%M%S", time.gmtime())
    try:
        folder.mkdir(parents=True, exist_ok=True)
    except OSError as why:
        raise Error(f"no backup is possible, so nothing is written: {folder}: {why.strerror}") from why
    path, i = folder / f"{name}.bin", 2
    while path.exists():
        path, i = folder / f"{name}-{i}.bin", i + 1
    write_new_file(path, content)
    # Files with other names are the user's own.
    own = [file for file in folder.glob(f"{start}*.bin") if not file.stem[len(start) :].strip("0123456789-")]
    own.sort(key=lambda file: (file.stat().st_mtime_ns, file.name))
    for old in own[1 : max(1, len(own) - _BACKUPS_KEPT + 1)]:
        with contextlib.suppress(OSError):
            old.unlink()
    return path


_own_times: dict[str, float] = {}


@contextmanager
def save_turn(serial: str, at_once: bool = False) -> Iterator[None]:
    """The right to write to a camera's EEPROM. Fails when the last write was less than 10 s ago, or goes on just now."""
    folder, file = state_folder(), -1
    if folder is not None:
        with contextlib.suppress(OSError):
            folder.mkdir(parents=True, exist_ok=True)
            file = os.open(folder / f"saved-{serial}", os.O_RDWR | os.O_CREAT | os.O_CLOEXEC | os.O_NOFOLLOW, 0o600)
    try:
        last = _own_times.get(serial, 0.0)
        if file >= 0:
            try:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                raise Error(f"another program is just writing to the EEPROM of camera {serial}") from None
            status = os.fstat(file)
            last = max(last, status.st_mtime if status.st_size else 0.0)
        # A clock that was set back leaves a last write in the future, which must not lock the camera for so long.
        passed = time.time() - last
        if not at_once and abs(passed) < PAUSE_SECONDS:
            raise Error(
                f"the EEPROM of camera {serial} was written {max(passed, 0.0):.0f} s ago and wears out with writes; the "
                f"next save is possible in {PAUSE_SECONDS - max(passed, 0.0):.0f} s"
            )
        try:
            yield
        finally:  # it may have been written even if that failed
            _own_times[serial] = time.time()
            if file >= 0:
                os.pwrite(file, b"\n", 0)
                os.utime(file)
    finally:
        if file >= 0:
            os.close(file)


def implausible_in(eeprom: bytes) -> list[str]:
    """What a camera could not work with, as the tool judges it."""

    def pair(offset: int) -> int:
        return eeprom[offset] * 256 + eeprom[offset + 1]

    found = []
    if eeprom[5] not in _FREQUENCY_CODES:
        found.append(f"the modulation frequency has no known code ({eeprom[5]})")
    least, most = pair(20), pair(22)
    if least >= most or most > _MOST_DEPTH:
        found.append(f"the depth range is not plausible: {least} to {most} mm")
    # A lens block begins with fx, fy, three radial coefficients, cx, cy, each a pair.
    depth, colour = ([pair(at + step) / 10 for step in (0, 2, 10, 12)] for at in (80, 100))
    if not (140 <= depth[2] <= 180 and 80 <= depth[3] <= 160 and min(depth[:2]) >= 50):
        found.append("the depth lens is not plausible: focal length {}, {}, centre {}, {}".format(*depth))
    if any(colour) and not all(value > 0 for value in colour):
        found.append("the colour lens is not plausible: focal length {}, {}, centre {}, {}".format(*colour))
    return found


def eeprom_from(source: Union[bytes, str, os.PathLike[str]], force: bool) -> bytes:
    """The bytes of a backup, judged before anything is written."""
    if isinstance(source, (bytes, bytearray)):
        content, name = bytes(source), "the backup"
    else:
        name = os.fspath(source)
        try:
            with open(source, "rb") as file:
                content = file.read(EEPROM_BYTES + 1)
        except OSError as why:
            raise UsageError(f"{name} cannot be read: {why.strerror}") from why
    if len(content) != EEPROM_BYTES:
        raise UsageError(f"{name} is not {EEPROM_BYTES} bytes long")
    if content[4] != 0x81:
        raise UsageError(f"{name} is no EEPROM of a camera: its signature is missing")
    found = implausible_in(content)
    if found and not force:
        raise UsageError(f"{name}: {'; '.join(found)}; force=True writes it all the same")
    return content
