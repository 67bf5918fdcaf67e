# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""One lock a camera, by the place where it is plugged in; the tool and the workers take the same one.

The kernel lets one program claim a camera, but a program that tries and fails still stops the other's frames. So it
looks here first.
"""
from __future__ import annotations

import contextlib
import errno
import fcntl
import os
import time
from typing import Optional

from ._bus import CameraInfo, Place
from ._errors import HeldError

_TRIES = 5  # whoever asks for the holder has the lock for a moment
_BETWEEN = 0.01
_GETDRIVER = 0x41045508  # usbdevfs_getdriver: an interface's number, then the name of its driver


def _path_of(place: Place) -> str:
    # A virtual bus has ports of the same names as the machine's, so its locks lie in its own folder.
    folder = os.environ.get("UMOCKDEV_DIR", "/run/lock")
    return f"{folder}/vqd-{place.port or f'{place.bus:03d}-{place.address:03d}'}.lock"


def _open(path: str) -> Optional[int]:
    # Linux does not let anybody open another user's file in a folder like /run/lock in a way that could have created it,
    # so creating is a step of its own.
    for _ in range(2):
        for access in (os.O_RDWR, os.O_RDONLY):
            with contextlib.suppress(OSError):
                return os.open(path, access | os.O_CLOEXEC | os.O_NOFOLLOW)
        with contextlib.suppress(OSError):
            file = os.open(path, os.O_RDWR | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC | os.O_NOFOLLOW, 0o666)
            os.fchmod(file, 0o666)  # whatever the umask is
            return file
    return None


def _holder(path: str) -> str:
    with contextlib.suppress(OSError, ValueError):
        with open(path, encoding="utf-8", errors="replace") as file:
            process, _, program = file.readline().strip().partition(" ")
        if program:
            return f"; {program} (process {int(process)}) has it open"
    return ""


def _is_claimed(place: Place) -> bool:
    """Whether some program has claimed the camera, one that knows nothing of locks included."""
    try:
        node = os.open(place.node, os.O_RDWR | os.O_CLOEXEC)
    except OSError:
        return False
    try:
        answer = fcntl.ioctl(node, _GETDRIVER, bytes(260))  # of interface 0
        return answer[4:].split(b"\0", 1)[0] == b"usbfs"
    except OSError:
        return False
    finally:
        os.close(node)


class CameraLock:
    """The lock of a camera, until release(). Raises HeldError when another program has the camera."""

    def __init__(self, camera: CameraInfo) -> None:
        path = _path_of(camera.place)
        self._file = _open(path)  # where no lock can be kept, only the kernel's claim is left
        if self._file is not None:
            self._take(self._file, camera, path)
        if _is_claimed(camera.place):
            self.release()
            raise HeldError(f"{camera.name} cannot be opened; another program has claimed it")

    def _take(self, file: int, camera: CameraInfo, path: str) -> None:
        for i in range(_TRIES):
            try:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
                break
            except OSError as why:
                if why.errno == errno.EWOULDBLOCK and i + 1 < _TRIES:
                    time.sleep(_BETWEEN)
                    continue
                if why.errno == errno.EWOULDBLOCK:
                    self.release()
                    raise HeldError(f"{camera.name} cannot be opened{_holder(path)}") from None
                return
        with contextlib.suppress(OSError):  # another user's file may be locked, but not written
            os.ftruncate(file, 0)
            os.pwrite(file, f"{os.getpid()} python\n".encode(), 0)

    def release(self) -> None:
        """Gives the lock back. The file stays: another process may be about to lock it."""
        if self._file is not None:
            os.close(self._file)
            self._file = None
