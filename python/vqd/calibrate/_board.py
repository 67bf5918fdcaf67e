# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Chessboards: where their inner corners are in an amplitude image, and where the camera must have been."""
from __future__ import annotations

from dataclasses import dataclass
from typing import Any, NamedTuple, Optional

import numpy as np
import numpy.typing as npt

from .._errors import UsageError
from .._lens import Lens
from ._opencv import opencv

Array = npt.NDArray[np.float64]

# The finder works to a part of its own pixels, and these images have few. A quick look spares most images without a board.
_QUICK_SCALE, _SCALE = 2, 3
_LIGHT_SIGMA = 20.0  # pixels over which the light of the camera changes, and a board does not
_MIDDLE_GREY = 110.0
_LEAST_CORNERS, _MOST_CORNERS = 3, 40


@dataclass(frozen=True)
class Board:
    """Inner corners, which are one less than the squares in each direction, and the side of a square in mm."""

    columns: int
    rows: int
    square: float

    @property
    def points(self) -> Array:
        """The corners on the board, (n, 3), row by row."""
        columns, rows = np.meshgrid(np.arange(self.columns), np.arange(self.rows))
        return np.array([columns.ravel(), rows.ravel(), np.zeros(columns.size)], dtype=np.float64).T * self.square

    @property
    def is_one_way_round(self) -> bool:
        """Whether its colours tell it from itself turned by half a turn."""
        return (self.columns + self.rows) % 2 == 1

    def __str__(self) -> str:
        return f"{self.columns} x {self.rows} inner corners"


def board_of(size: str, square: float) -> Board:
    """From the words of the command line."""
    numbers = size.lower().split("x")
    if len(numbers) != 2 or not all(number.isdecimal() for number in numbers):
        raise UsageError(f"--board is the number of inner corners, such as 8x5, not {size!r}")
    columns, rows = (int(number) for number in numbers)
    if not (_LEAST_CORNERS <= min(columns, rows) and max(columns, rows) <= _MOST_CORNERS):
        raise UsageError(f"a board has {_LEAST_CORNERS} to {_MOST_CORNERS} inner corners each way, not {size}")
    if not 1 <= square <= 2000:
        raise UsageError(f"--square is the side of a square in mm, from 1 to 2000, not {square:g}")
    return Board(columns, rows, square)


def _in_order(corners: Array, board: Board, image: Array) -> Array:
    """The same corners, in the order of ``Board.points`` with the board right side out, and with a black first square."""
    grid = corners.reshape(board.rows, board.columns, 2)
    right, down = grid[0, -1] - grid[0, 0], grid[-1, 0] - grid[0, 0]
    if right[0] * down[1] - right[1] * down[0] < 0:
        grid = grid[:, ::-1]
    middles = (grid[:-1, :-1] + grid[1:, 1:] + grid[:-1, 1:] + grid[1:, :-1]) / 4
    columns, rows = (np.rint(middles[..., axis]).astype(int) for axis in (0, 1))
    light = image[rows.clip(0, image.shape[0] - 1), columns.clip(0, image.shape[1] - 1)]
    even = np.indices(light.shape).sum(axis=0) % 2 == 0
    if board.is_one_way_round and light[even].mean() > light[~even].mean():
        grid = grid[::-1, ::-1]
    return np.ascontiguousarray(grid.reshape(-1, 2))


def find_corners(amplitude: Array, board: Board) -> Optional[Array]:
    """Columns and rows of the corners, (n, 2); None where the whole board is not seen."""
    cv2 = opencv()
    even = amplitude / (cv2.GaussianBlur(amplitude, (0, 0), _LIGHT_SIGMA) + 1)
    image = np.clip(even * _MIDDLE_GREY, 0, 255).astype(np.uint8)
    corners: Any = None
    for scale, accuracy in ((_QUICK_SCALE, 0), (_SCALE, cv2.CALIB_CB_ACCURACY)):
        large = cv2.resize(image, None, fx=scale, fy=scale, interpolation=cv2.INTER_CUBIC)
        flags = cv2.CALIB_CB_NORMALIZE_IMAGE | accuracy
        found, corners = cv2.findChessboardCornersSB(large, (board.columns, board.rows), flags=flags)
        if not found:
            return None
    return _in_order((corners.reshape(-1, 2).astype(np.float64) + 0.5) / _SCALE - 0.5, board, amplitude)


class Placed(NamedTuple):
    """Where a board stands before a camera: p' = rotation p + translation, in mm, and how well that fits, in pixels."""

    rotation: Array
    translation: Array
    errors: Array  # (n, 2): seen minus expected

    @property
    def tilts(self) -> tuple[float, float]:
        """In degrees: how far the right side is turned away, and how far the lower side is."""
        normal = self.rotation[:, 2] * np.sign(self.rotation[2, 2])
        return (
            float(np.degrees(np.arctan2(-normal[0], normal[2]))),
            float(np.degrees(np.arctan2(-normal[1], normal[2]))),
        )


def place(board: Board, corners: Array, lens: Lens) -> Placed:
    """From the corners in an image that this lens has made."""
    cv2 = opencv()
    points = board.points
    _, turn, shift = cv2.solvePnP(points, corners, lens.matrix, lens.coefficients)
    seen, _ = cv2.projectPoints(points, turn, shift, lens.matrix, lens.coefficients)
    rotation: Any = cv2.Rodrigues(turn)[0]
    return Placed(rotation, shift.ravel(), corners - seen.reshape(-1, 2))


def rms(errors: Array) -> float:
    """Of lengths in a plane."""
    return float(np.sqrt((errors**2).sum(axis=-1).mean()))
