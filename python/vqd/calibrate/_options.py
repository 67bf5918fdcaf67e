# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What the command line gave."""
from __future__ import annotations

from dataclasses import dataclass, field
from pathlib import Path
from typing import Optional

from .._errors import UsageError


@dataclass
class Options:
    """Of all commands; each uses those that it has."""

    command: str = ""
    camera: Optional[str] = None
    recording: Optional[str] = None
    board: Optional[str] = None
    square: float = 0.0
    views: Optional[int] = None
    mean_of: int = 5
    frames: Optional[int] = None
    seconds: Optional[float] = None
    walls: list[str] = field(default_factory=list)
    held_back: list[str] = field(default_factory=list)
    pair: list[str] = field(default_factory=list)
    output: Optional[str] = None
    force: bool = False
    write: list[str] = field(default_factory=list)
    yes: bool = False
    json: bool = False
    quiet: bool = False


@dataclass(frozen=True)
class Wall:
    """One of the command line: a recording, or the camera that looks at it now, and its distance if it was measured."""

    recording: Optional[str]
    distance: Optional[float]

    @property
    def name(self) -> str:
        """For reports."""
        return Path(self.recording).name if self.recording else "camera"


def wall_of(word: str) -> Wall:
    """From "near.mcap@1200", "camera@1200" or either without a distance."""
    source, at, number = word.rpartition("@")
    distance: Optional[float] = None
    if at:
        try:
            distance = float(number)
        except ValueError:
            source = word
    else:
        source = word
    if not source or (distance is not None and not 50 <= distance <= 20000):
        raise UsageError(f"a wall is a recording or the word camera, then @ and its distance of 50 to 20000 mm, not {word!r}")
    if source != "camera" and not Path(source).is_file():
        raise UsageError(f"there is no recording {source}")
    return Wall(None if source == "camera" else source, distance)
