# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Mean depth images of walls, from recordings or from the camera while it is pointed at them one after the other."""
from __future__ import annotations

import sys
from collections.abc import Sequence
from typing import NamedTuple, Optional

import numpy as np
import numpy.typing as npt

from .._errors import Error, UsageError
from .._frame import HEIGHT, WIDTH, Frame
from .._lens import Lens
from ._feed import Settings, Subject, host_corrects, limited, open_one
from ._options import Options, Wall
from ._planes import NOT_FLAT, plane_of
from ._rays import grid, rays_of, straight_rays
from ._report import Progress
from ._stillness import mean_of

Array = npt.NDArray[np.float64]

FRAMES = 120
_LEAST_FRAMES = 20
_MOST_SHIFT, _MOST_TURN = 3.0, 0.2  # mm and degrees, between the halves of the frames


class SeenWall(NamedTuple):
    """The means of the first and of the second half of its frames."""

    wall: Wall
    subject: Subject
    first: Array
    second: Array

    @property
    def depth(self) -> Array:
        """The mean of all."""
        return (self.first + self.second) / 2

    @property
    def noise(self) -> float:
        """What noise leaves in one half, in mm rms."""
        return float(np.sqrt(np.nanmean((self.first - self.second) ** 2) / 2))


def rays_of_image(lens: Lens, straight: bool) -> Array:
    """Of each pixel, (240, 320, 2)."""
    pixels = grid()
    return (straight_rays(lens, pixels) if straight else rays_of(lens, pixels)).reshape(HEIGHT, WIDTH, 2)


def require_still(seen: SeenWall, rays: Array) -> None:
    """Fails where the halves of the frames show different planes. What is no plane at all is told elsewhere."""
    one, other = plane_of(seen.first, rays), plane_of(seen.second, rays)
    if max(one.rms, other.rms) > NOT_FLAT:
        return
    turn = max(abs(one.right - other.right), abs(one.lower - other.lower))
    if abs(one.distance - other.distance) > _MOST_SHIFT or turn > _MOST_TURN:
        raise Error(f"the camera moved while it looked at the wall of {seen.wall.name}; it must stand still")


def _frames_of(wall: Wall, options: Options, settings: Settings) -> tuple[Subject, list[Frame]]:
    wanted = options.frames or FRAMES
    with open_one(wall.recording, options.camera if wall.recording is None else None, settings) as feed:
        frames = [frame for (frame,) in limited(feed.sets, wanted)]
        subject = feed.subjects[0]
    if len(frames) < _LEAST_FRAMES:
        raise UsageError(f"{wall.name} has {len(frames)} frames, and {_LEAST_FRAMES} are needed for a mean")
    return subject, frames


def _await_pointing(number: int, count: int) -> None:
    request = f"wall {number} of {count}: point the camera at it so that it fills the image, and press Enter"
    print(request, file=sys.stderr, flush=True)  # also where progress is quiet
    if not sys.stdin.readline():
        raise UsageError("nobody can press Enter here, between one wall and the next; give recordings of the walls")


def seen_walls(
    walls: Sequence[Wall], options: Options, settings: Settings, progress: Progress, straight: Optional[bool] = None
) -> tuple[list[SeenWall], Array]:
    """All walls, and the rays of the images. All must come from one camera with one lens."""
    live, all_live = 0, sum(wall.recording is None for wall in walls)
    seen: list[SeenWall] = []
    rays = np.empty(0)
    for wall in walls:
        if wall.recording is None:
            live += 1
            if all_live > 1:
                _await_pointing(live, all_live)
        subject, frames = _frames_of(wall, options, settings)
        middle = len(frames) // 2
        one = SeenWall(wall, subject, mean_of(frames[:middle]).depth, mean_of(frames[middle:]).depth)
        if not seen:
            rays = rays_of_image(subject.lens, host_corrects(subject.product) if straight is None else straight)
        elif not subject.is_same(seen[0].subject):
            raise UsageError(f"{wall.name} shows another camera, or the camera with another lens, than the walls before it")
        progress.say(f"{wall.name}: {len(frames)} frames")
        seen.append(one)
    return seen, rays
