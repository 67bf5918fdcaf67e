# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""How a second camera stands to a first, from views of a board that both saw at the same time."""
from __future__ import annotations

from collections.abc import Sequence
from typing import NamedTuple

import numpy as np
import numpy.typing as npt

from .._errors import Error
from .._frame import HEIGHT, WIDTH
from .._lens import Lens
from ._board import Board, Placed, place, rms
from ._lens_fit import folds
from ._opencv import opencv
from ._views import View

Array = npt.NDArray[np.float64]

_SAME_TURN, _SAME_SHIFT = 2.0, 0.05  # degrees, and a share of the board's distance, by one view alone
_MOST_RMS = 0.6  # pixels


class Pose(NamedTuple):
    """From the second camera's coordinates to the first one's: p' = rotation p + translation, in mm."""

    rotation: Array
    translation: Array


class PairResult(NamedTuple):
    """A pose and its worth. ``used`` are the numbers of the views that agree."""

    pose: Pose
    used: list[int]
    rms: float
    held_back: float
    turn_deviation: float  # degrees
    shift_deviation: float  # mm


def angle_between(one: Array, other: Array) -> float:
    """Of two rotations, in degrees."""
    return float(np.degrees(np.linalg.norm(opencv().Rodrigues(one @ other.T)[0])))


def _of_view(view: View) -> Pose:
    first, second = view.placed
    rotation = first.rotation @ second.rotation.T
    return Pose(rotation, first.translation - rotation @ second.translation)


def _agreeing(views: Sequence[View]) -> list[int]:
    """The views that most others agree with. Those of a board that moved between the two images do not."""
    poses = [_of_view(view) for view in views]
    best: list[int] = []
    for one in poses:
        near = [
            i for i, other in enumerate(poses)
            if angle_between(one.rotation, other.rotation) < _SAME_TURN
            and np.linalg.norm(one.translation - other.translation) < _SAME_SHIFT * views[i].placed[0].translation[2]
        ]
        best = max(best, near, key=len)
    return best


def _fit(board: Board, views: Sequence[View], lenses: Sequence[Lens]) -> tuple[Pose, float]:
    cv2 = opencv()
    points = [board.points.astype(np.float32)] * len(views)
    # OpenCV's transform is from its first camera to its second, so ours are given the other way round.
    images = [[view.corners[camera].astype(np.float32) for view in views] for camera in (1, 0)]
    error, _, _, _, _, rotation, translation, _, _ = cv2.stereoCalibrate(
        points, images[0], images[1], lenses[1].matrix, lenses[1].coefficients, lenses[0].matrix, lenses[0].coefficients,
        (WIDTH, HEIGHT), flags=cv2.CALIB_FIX_INTRINSIC,
        criteria=(cv2.TERM_CRITERIA_EPS | cv2.TERM_CRITERIA_MAX_ITER, 100, 1e-9),
    )
    return Pose(rotation, translation.ravel()), float(error)


def prediction_errors(board: Board, view: View, lenses: Sequence[Lens], pose: Pose) -> Array:
    """Where the first camera sees the corners, against where the second one and the pose say, (n, 2) in pixels."""
    cv2 = opencv()
    second: Placed = place(board, view.corners[1], lenses[1])
    points = (board.points @ second.rotation.T + second.translation) @ pose.rotation.T + pose.translation
    expected, _ = cv2.projectPoints(points, np.zeros(3), np.zeros(3), lenses[0].matrix, lenses[0].coefficients)
    return np.asarray(view.corners[0] - expected.reshape(-1, 2))


def solve_pair(board: Board, views: Sequence[View], lenses: Sequence[Lens], least: int) -> PairResult:
    """Fits the pose, and judges each view by a pose that was fitted without it."""
    used = _agreeing(views)
    if len(used) < least:
        raise Error(
            f"only {len(used)} of {len(views)} views agree on how the cameras stand, and {least} are needed; the board must "
            "hold still for both, and each camera needs its own lens (vqd calibrate lens)"
        )
    good = [views[i] for i in used]
    pose, error = _fit(board, good, lenses)
    if error > _MOST_RMS:
        raise Error(f"the corners miss their places by {error:.2f} px: a lens is not that of its camera, or a camera moved")
    turns, shifts, errors = [], [], []
    for fold in folds(len(good)):
        without, _ = _fit(board, [view for i, view in enumerate(good) if i not in fold], lenses)
        turns.append(angle_between(without.rotation, pose.rotation) ** 2)
        shifts.append(float(((without.translation - pose.translation) ** 2).sum()))
        errors += [prediction_errors(board, good[i], lenses, without) for i in fold]
    jackknife = (len(turns) - 1) / len(turns)
    return PairResult(
        pose, used, error, rms(np.concatenate(errors)), float(np.sqrt(jackknife * sum(turns))),
        float(np.sqrt(jackknife * sum(shifts))),
    )
