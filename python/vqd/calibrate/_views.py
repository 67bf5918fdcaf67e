# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Views of a board, gathered from frames: which are worth keeping, why others are not, and what is still missing."""
from __future__ import annotations

from collections import Counter
from collections.abc import Iterable, Sequence
from typing import Callable, NamedTuple, Optional

import numpy as np
import numpy.typing as npt

from .._errors import Error, UsageError
from .._frame import HEIGHT, WIDTH, Frame
from .._lens import Lens
from ._board import Board, Placed, find_corners, place
from ._rays import usable
from ._stillness import Shot, still_shots

Array = npt.NDArray[np.float64]

CELL = 40  # pixels a side, in which coverage is counted
_LEAST_SHIFT, _LEAST_TURN = 8.0, 8.0  # pixels, mean over the corners, and degrees, from a view that is kept
_STEEP, _TILTED = 60.0, 15.0  # degrees
_WANTED_OF_EACH_TILT = 2
_WANTED_COVERAGE = 0.85
_NEAR_BY_FAR = 1.3  # farthest by nearest distance


class View(NamedTuple):
    """The corners of one board in the images of one or several cameras, where it stands before each, and the shots."""

    corners: tuple[Array, ...]
    placed: tuple[Placed, ...]
    shots: tuple[Shot, ...]


def coverage(corners: Sequence[Array]) -> float:
    """The share of the image's cells with a corner in them."""
    if not corners:
        return 0.0
    cells = np.floor(np.concatenate(corners) / CELL).astype(int)
    return len({(u, v) for u, v in cells.tolist()}) / (WIDTH // CELL * (HEIGHT // CELL))


def _uncovered(corners: Sequence[Array]) -> Optional[str]:
    """The ninth of the image with the fewest corners, if they are few."""
    names = ("left", "middle", "right"), ("upper", "middle", "lower")
    places = np.concatenate(corners) if corners else np.empty((0, 2))
    count, _, _ = np.histogram2d(places[:, 1], places[:, 0], bins=(3, 3), range=((0, HEIGHT), (0, WIDTH)))
    row, column = np.unravel_index(int(count.argmin()), count.shape)
    if count.min() >= max(5.0, count.mean() / 6):
        return None
    return f"{names[1][row]} {names[0][column]}".replace("middle middle", "middle")


def missing(views: Sequence[View], whole_image: bool = True) -> list[str]:
    """What further views should show, the most useful first. Empty when the views are enough."""
    wanted = []
    corners = [view.corners[0] for view in views]
    ninth = _uncovered(corners)
    if whole_image and (ninth is not None or coverage(corners) < _WANTED_COVERAGE):
        wanted.append(f"hold it into the {ninth or 'corners'} of the image")
    tilts = np.array([view.placed[0].tilts for view in views]).reshape(-1, 2)
    for axis, sign, side in ((0, 1, "right"), (0, -1, "left"), (1, 1, "lower"), (1, -1, "upper")):
        if (sign * tilts[:, axis] > _TILTED).sum() < _WANTED_OF_EACH_TILT:
            wanted.append(f"turn its {side} side away")
    distances = [float(view.placed[0].translation[2]) for view in views]
    if not distances or max(distances) < _NEAR_BY_FAR * min(distances):
        wanted.append("hold it nearer and further away")
    return wanted


class Collection:
    """Views as they come in.

    Args:
        board: what is looked for.
        lenses: of each camera, as they are now, which tell roughly how the board stands.
        say: takes a line for people, and whether it is worth keeping.
    """

    def __init__(self, board: Board, lenses: Sequence[Lens], say: Callable[[str, bool], None]) -> None:
        self.views: list[View] = []
        self.rejected: Counter[str] = Counter()
        self.frames = 0
        self._board = board
        self._lenses = [usable(lens) for lens in lenses]
        self._say = say

    def _judge(self, shots: tuple[Shot, ...]) -> Optional[str]:
        """Keeps a view, or says why not."""
        corners = []
        for i, shot in enumerate(shots):
            found = find_corners(shot.amplitude, self._board)
            if found is None:
                return "no board" if len(shots) == 1 else f"no board in camera {i + 1}"
            corners.append(found)
        placed = [place(self._board, found, lens) for found, lens in zip(corners, self._lenses)]
        for k, view in enumerate(self.views):
            shifts = [np.hypot(*(one - other).T).mean() for one, other in zip(corners, view.corners)]
            turns = [np.abs(np.subtract(one.tilts, other.tilts)).max() for one, other in zip(placed, view.placed)]
            if max(shifts) < _LEAST_SHIFT and max(turns) < _LEAST_TURN:
                return f"like view {k + 1}"
        if any(abs(tilt) > _STEEP for one in placed for tilt in one.tilts):
            return "too steep"
        self.views.append(View(tuple(corners), tuple(placed), shots))
        return None

    def gather(self, sets: Iterable[tuple[Frame, ...]], mean_of: int, most: int, least: int) -> None:
        """Takes views until there are ``most``, or ``least`` of which nothing is missing, or the frames end."""
        for shots in still_shots(sets, mean_of):
            self.frames += 1
            if shots is None:
                continue
            why = self._judge(shots)
            count = len(self.views)
            if why is not None:
                self.rejected["like another view" if why.startswith("like") else why] += 1
                self._say(f"{count} views; rejected: {why}; {self.advice}", False)
                continue
            self._say(f"view {count}: {self._describe(self.views[-1])}; {self.advice}", True)
            if count >= most or (count >= least and not self._missing()):
                return

    def _missing(self) -> list[str]:
        # A lens needs the whole image. What two cameras see in common is only a part of it.
        return missing(self.views, whole_image=len(self._lenses) == 1)

    def _describe(self, view: View) -> str:
        right, lower = view.placed[0].tilts
        share = coverage([one.corners[0] for one in self.views])
        return f"{view.placed[0].translation[2]:.0f} mm, tilted {right:+.0f} and {lower:+.0f} degrees, coverage {share:.0%}"

    @property
    def advice(self) -> str:
        """What to do next."""
        wanted = self._missing()
        return "next: " + wanted[0] if wanted else "nothing is missing"

    def require(self, least: int) -> None:
        """Fails where there are fewer views, or all of one pose."""
        if not self.views and not self.rejected["like another view"]:
            if not self.frames:
                raise Error("there was no frame")
            raise Error(
                f"no board with {self._board} was found in {self.frames} frames; --board counts the corners between squares"
            )
        if len(self.views) < least:
            raise Error(
                f"{len(self.views)} views of the board differ from one another, and {least} are needed; {self.advice}"
            )


def require_tilts(views: Sequence[View]) -> None:
    """Boards that stand in parallel cannot tell a long lens from a far board."""
    normals = np.array([view.placed[0].rotation[:, 2] * np.sign(view.placed[0].rotation[2, 2]) for view in views])
    if np.degrees(np.arccos(np.clip((normals @ normals.T).min(), -1, 1))) < _TILTED:
        raise Error(f"all {len(views)} views show the board in one pose; it must be tilted to all sides, by 15 degrees or more")


def require_square(board: Board, views: Sequence[View], camera: int = 0) -> Optional[float]:
    """The side of a square by the camera's own depth, in mm; None without depth. Fails where the given one is not it."""
    most = 0.1  # depth may lack corrections
    ratios = []
    for view in views:
        corners, placed, depth = view.corners[camera], view.placed[camera], view.shots[camera].depth
        nearest = int(np.hypot(*(corners - [WIDTH / 2, HEIGHT / 2]).T).argmin())
        corner = placed.rotation @ board.points[nearest] + placed.translation
        column, row = np.rint(corners[nearest]).astype(int)
        around = depth[max(row - 1, 0) : row + 2, max(column - 1, 0) : column + 2]
        if np.isfinite(around).any():
            ratios.append(float(np.nanmedian(around)) / np.array([np.linalg.norm(corner), corner[2]]))
    if not ratios:
        return None
    # By model and settings, depth is the length of the ray or that along the axis: the one that fits better.
    sides = board.square * np.median(ratios, axis=0)
    side = float(sides[np.abs(sides - board.square).argmin()])
    if abs(side / board.square - 1) > most:
        raise UsageError(f"by the camera's depth a square is {side:.0f} mm wide, and not {board.square:g}, as --square says")
    return side
