# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""A lens from views of a board, with how far it is to be believed.

A small reprojection error says little, because boards move to where they fit a wrong lens. So each view is also judged by
a lens that was fitted without it, and what those lenses differ by shows how uncertain the rays are.
"""
from __future__ import annotations

from collections.abc import Sequence
from typing import NamedTuple

import numpy as np
import numpy.typing as npt

from .._errors import Error
from .._frame import HEIGHT, WIDTH
from .._lens import Lens
from ._board import Board, place, rms
from ._opencv import opencv
from ._rays import differences, rms_difference

Array = npt.NDArray[np.float64]

_FOLDS = 4
_OUTLIER, _LEAST_OUTLIER = 3.0, 0.3  # times the median error of a view; pixels
_MOST_RMS = 0.6  # pixels; a board that is flat and still stays far below
_STEPS = {"fx": 0.1, "fy": 0.1, "cx": 0.1, "cy": 0.1, "k1": 0.001, "k2": 0.001, "k3": 0.001, "p1": 0.01, "p2": 0.01}
PARAMETERS = ("fx", "fy", "cx", "cy", "k1", "k2", "p1", "p2", "k3")  # in OpenCV's order


class Fit(NamedTuple):
    """What OpenCV gives."""

    lens: Lens
    deviations: dict[str, float]
    rms: float
    of_views: Array


class LensResult(NamedTuple):
    """A lens and its worth, in pixels. ``used`` are the numbers of the views that were not left out."""

    fit: Fit
    used: list[int]
    held_back: float
    held_back_before: float
    uncertainty: float
    corner_uncertainty: float
    stored_difference: float
    moved: float  # rays of the lens before against these


def fit_lens(board: Board, corners: Sequence[Array], start: Lens) -> Fit:
    """From the corners of the views alone."""
    cv2 = opencv()
    points = [board.points.astype(np.float32)] * len(corners)
    images = [one.astype(np.float32) for one in corners]
    try:
        error, matrix, coefficients, _, _, deviations, _, of_views = cv2.calibrateCameraExtended(
            points, images, (WIDTH, HEIGHT), start.matrix, start.coefficients, flags=cv2.CALIB_USE_INTRINSIC_GUESS
        )
    except cv2.error as why:
        raise Error("OpenCV finds no lens that fits the views; more views in other poses are needed") from why
    k1, k2, p1, p2, k3 = (float(value) for value in coefficients.ravel()[:5])
    lens = Lens(matrix[0, 0], matrix[1, 1], matrix[0, 2], matrix[1, 2], k1, k2, k3, p1, p2)
    spread = dict(zip(PARAMETERS, deviations.ravel().tolist()))
    return Fit(Lens(*(float(value) for value in (*lens.intrinsic, *lens.distortion))), spread, float(error), of_views.ravel())


def folds(count: int) -> list[list[int]]:
    """Each view is in one of them."""
    return [list(range(start, count, _FOLDS)) for start in range(_FOLDS)]


def stored(lens: Lens) -> Lens:
    """As an EEPROM holds it."""
    return Lens(**{name: round(getattr(lens, name) / step) * step for name, step in _STEPS.items()})


def _require_sound(lens: Lens, error: float) -> None:
    if error > _MOST_RMS:
        raise Error(
            f"the corners miss their places by {error:.2f} px: the board is not flat, or it moved, or its squares are not square"
        )
    if not lens.plausible:
        raise Error(
            f"the views give a lens that no camera has: focal length {lens.fx:.1f}, {lens.fy:.1f}, centre {lens.cx:.1f}, "
            f"{lens.cy:.1f}; more views with the board tilted and at the borders are needed"
        )
    most = max(np.hypot((u - lens.cx) / lens.fx, (v - lens.cy) / lens.fy) for u in (0, WIDTH) for v in (0, HEIGHT))
    r2 = np.linspace(0, most, 50) ** 2
    if (1 + r2 * (3 * lens.k1 + r2 * (5 * lens.k2 + r2 * 7 * lens.k3)) <= 0).any():
        raise Error("the views give a lens that folds the image before its corners; hold the board into the corners, too")


def solve_lens(board: Board, corners: Sequence[Array], before: Lens) -> LensResult:
    """Fits a lens, leaves out views that do not belong to the others, and judges each by a lens fitted without it."""
    used = list(range(len(corners)))
    fit = fit_lens(board, corners, before)
    for _ in range(2):
        limit = max(_LEAST_OUTLIER, _OUTLIER * float(np.median(fit.of_views)))
        good = [number for number, error in zip(used, fit.of_views) if error <= limit]
        if len(good) in (len(used), 0):
            break
        used = good
        fit = fit_lens(board, [corners[i] for i in used], before)
    _require_sound(fit.lens, fit.rms)
    errors, errors_before, moved = [], [], []
    for fold in folds(len(used)):
        without = fit_lens(board, [corners[used[i]] for i in range(len(used)) if i not in fold], before).lens
        moved.append(differences(fit.lens, without))
        for i in fold:
            errors.append(place(board, corners[used[i]], without).errors)
            errors_before.append(place(board, corners[used[i]], before).errors)
    # The jackknife: how far the result would move with other views.
    variance = (len(moved) - 1) / len(moved) * np.sum([(one**2).sum(axis=1) for one in moved], axis=0)
    return LensResult(
        fit, used, rms(np.concatenate(errors)), rms(np.concatenate(errors_before)),
        float(np.sqrt(np.nanmean(variance))), float(np.sqrt(np.nanmax(variance))),
        rms_difference(fit.lens, stored(fit.lens)), rms_difference(fit.lens, before),
    )
