# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Rays of a lens, and how far those of two lenses differ."""
from __future__ import annotations

import numpy as np
import numpy.typing as npt

from .._frame import HEIGHT, WIDTH
from .._lens import Lens

Array = npt.NDArray[np.float64]

_STEPS = 30
_USUAL = Lens(204, 204, 160, 120, -0.3, 0.1)


def usable(lens: Lens) -> Lens:
    """The lens, or a usual one instead of one that no camera has."""
    return lens if lens.plausible else _USUAL


def grid(step: int = 1) -> Array:
    """Columns and rows of pixels over the whole image, (n, 2)."""
    columns, rows = np.meshgrid(np.arange(0, WIDTH, step), np.arange(0, HEIGHT, step))
    return np.array([columns.ravel(), rows.ravel()], dtype=np.float64).T


def _distorted(lens: Lens, rays: Array) -> tuple[Array, Array]:
    """Rays as the lens bends them, and the derivative of that, (n, 2, 2)."""
    x, y = rays[:, 0], rays[:, 1]
    r2 = x * x + y * y
    radial = 1 + r2 * (lens.k1 + r2 * (lens.k2 + r2 * lens.k3))
    slope = 2 * (lens.k1 + r2 * (2 * lens.k2 + r2 * 3 * lens.k3))
    bent = np.stack([
        x * radial + 2 * lens.p1 * x * y + lens.p2 * (r2 + 2 * x * x),
        y * radial + lens.p1 * (r2 + 2 * y * y) + 2 * lens.p2 * x * y,
    ], axis=1)
    cross = x * y * slope + 2 * lens.p1 * x + 2 * lens.p2 * y
    derivative = np.stack([
        radial + x * x * slope + 2 * lens.p1 * y + 6 * lens.p2 * x, cross,
        cross, radial + y * y * slope + 6 * lens.p1 * y + 2 * lens.p2 * x,
    ], axis=1).reshape(-1, 2, 2)
    return bent, derivative


def project(lens: Lens, rays: Array) -> Array:
    """Where rays (x / z, y / z) fall in the raw image."""
    bent, _ = _distorted(lens, rays)
    return bent * [lens.fx, lens.fy] + [lens.cx, lens.cy]


def straight_rays(lens: Lens, pixels: Array) -> Array:
    """The rays of pixels of an undistorted image."""
    return (pixels - [lens.cx, lens.cy]) / [lens.fx, lens.fy]


def rays_of(lens: Lens, pixels: Array) -> Array:
    """The rays of pixels of a raw image; no numbers where the lens has none."""
    wanted = straight_rays(lens, pixels)
    rays = wanted.copy()
    with np.errstate(all="ignore"):
        for _ in range(_STEPS):
            bent, slope = _distorted(lens, rays)
            off = bent - wanted
            determinant = slope[:, 0, 0] * slope[:, 1, 1] - slope[:, 0, 1] * slope[:, 1, 0]
            rays[:, 0] -= (off[:, 0] * slope[:, 1, 1] - off[:, 1] * slope[:, 0, 1]) / determinant
            rays[:, 1] -= (off[:, 1] * slope[:, 0, 0] - off[:, 0] * slope[:, 1, 0]) / determinant
        bent, slope = _distorted(lens, rays)
        folded = np.linalg.det(np.nan_to_num(slope)) <= 0
        rays[folded | ~(np.abs(bent - wanted).max(axis=1) < 1e-9)] = np.nan
    return rays


def differences(lens: Lens, other: Lens, step: int = 8) -> Array:
    """For pixels all over the raw image: how far from it the other lens puts its ray, (n, 2) in pixels."""
    pixels = grid(step)
    return project(other, rays_of(lens, pixels)) - pixels


def rms_difference(lens: Lens, other: Lens) -> float:
    """Of all rays, in pixels."""
    lengths = (differences(lens, other) ** 2).sum(axis=1)
    return float(np.sqrt(np.nanmean(lengths)))
