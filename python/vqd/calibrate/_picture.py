# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""A picture of the views: the last one, and the corners of all."""
from __future__ import annotations

from collections.abc import Sequence

import numpy as np
import numpy.typing as npt

from .._frame import HEIGHT, WIDTH
from ._board import Board
from ._opencv import opencv
from ._views import CELL

_SCALE, _GAP, _SHIFT = 2, 8, 4  # the last: bits behind the binary point of OpenCV's coordinates
_LINE, _DARK = (70, 70, 70), 30


def _draw(image: npt.NDArray[np.uint8], board: Board, corners: npt.NDArray[np.float64], colour: tuple[int, int, int]) -> None:
    cv2 = opencv()
    places = np.rint(((corners + 0.5) * _SCALE - 0.5) * (1 << _SHIFT)).astype(np.int32)
    grid = places.reshape(board.rows, board.columns, 2)
    frame = np.array([grid[0, 0], grid[0, -1], grid[-1, -1], grid[-1, 0]])
    cv2.polylines(image, [frame], True, colour, 1, cv2.LINE_AA, _SHIFT)
    for column, row in places.tolist():
        cv2.circle(image, (column, row), 2 << _SHIFT, colour, -1, cv2.LINE_AA, _SHIFT)


def picture_of(board: Board, amplitude: npt.NDArray[np.float64], corners: Sequence[npt.NDArray[np.float64]]) -> bytes:
    """PNG: left the last view with its corners, right the corners of all views over the cells of coverage."""
    cv2 = opencv()
    size = (WIDTH * _SCALE, HEIGHT * _SCALE)
    grey = np.clip(amplitude / np.quantile(amplitude, 0.99) * 255, 0, 255).astype(np.uint8)
    left = cv2.cvtColor(cv2.resize(grey, size, interpolation=cv2.INTER_CUBIC), cv2.COLOR_GRAY2BGR)
    _draw(left, board, corners[-1], (0, 200, 255))
    right = np.full_like(left, _DARK)
    for at in range(0, WIDTH, CELL):
        cv2.line(right, (at * _SCALE, 0), (at * _SCALE, size[1]), _LINE)
    for at in range(0, HEIGHT, CELL):
        cv2.line(right, (0, at * _SCALE), (size[0], at * _SCALE), _LINE)
    for number, one in enumerate(corners):
        hue = np.array([[[180 * number // len(corners), 170, 255]]], np.uint8)
        blue, green, red = cv2.cvtColor(hue, cv2.COLOR_HSV2BGR)[0, 0].tolist()
        _draw(right, board, one, (blue, green, red))
    gap = np.full((size[1], _GAP, 3), 255, np.uint8)
    return bytes(cv2.imencode(".png", np.hstack([left, gap, right]))[1].tobytes())
