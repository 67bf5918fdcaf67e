# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What can go wrong, as exceptions that carry what the library said."""
from __future__ import annotations

from collections.abc import Sequence


class Error(RuntimeError):
    """A failure.

    Attributes:
        lines: what the library printed during the call that failed.
        code: the exit code that the command vqd has for the same failure.
    """

    code = 1

    def __init__(self, message: str, lines: Sequence[str] = ()) -> None:
        self.lines = tuple(lines)
        super().__init__("\n".join([message, *(f"  library: {line}" for line in self.lines)]))


class UsageError(Error, ValueError):
    """An argument or a file makes no sense; nothing was changed."""

    code = 2


class NoCameraError(Error):
    """There is no camera, or none with this name."""

    code = 3


class AccessError(Error):
    """A camera is attached, but this user may not open it."""

    code = 4


class HeldError(Error):
    """Another program has the camera."""


class LostError(Error):
    """The camera or its worker is gone, or does not answer any more."""

    code = 5


class NoFrameError(Error, TimeoutError):
    """No frame came within the time-out."""


class SettingError(Error):
    """The camera or the library refused a setting."""


class VerificationError(Error):
    """What was set or written reads back differently."""

    code = 6


_BY_CODE: dict[int, type[Error]] = {
    kind.code: kind for kind in (UsageError, NoCameraError, AccessError, LostError, VerificationError)
}


def error_of(code: int, message: str) -> Error:
    """The exception for an exit code of vqd, or for the code in a worker's refusal."""
    kind = _BY_CODE.get(code)
    if kind is not None:
        return kind(message)
    error = Error(message)
    error.code = code
    return error
