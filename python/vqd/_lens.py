# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Lenses and transforms."""
from __future__ import annotations

from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from typing import Any, Optional

import numpy as np
import numpy.typing as npt

from ._errors import UsageError

_NAMES = ("fx", "fy", "cx", "cy", "k1", "k2", "k3", "p1", "p2", "skew")


@dataclass(frozen=True)
class Lens:
    """A lens by the model of Brown and Conrady.

    Attributes:
        fx, fy: focal lengths in columns and rows of the 320 x 240 image.
        cx, cy: column and row of the principal point; the centre of pixel (u, v) is at (u, v).
        k1, k2, k3: radial coefficients of r^2, r^4 and r^6.
        p1, p2: tangential coefficients.
        skew: of the image axes.
    """

    fx: float
    fy: float
    cx: float
    cy: float
    k1: float = 0.0
    k2: float = 0.0
    k3: float = 0.0
    p1: float = 0.0
    p2: float = 0.0
    skew: float = 0.0

    @property
    def matrix(self) -> npt.NDArray[np.float64]:
        """The camera matrix, float64 (3, 3), as OpenCV has it."""
        return np.array([[self.fx, 0, self.cx], [0, self.fy, self.cy], [0, 0, 1]], dtype=np.float64)

    @property
    def coefficients(self) -> npt.NDArray[np.float64]:
        """The distortion in OpenCV's order, float64 (5,): k1, k2, p1, p2, k3."""
        return np.array([self.k1, self.k2, self.p1, self.p2, self.k3], dtype=np.float64)

    @property
    def intrinsic(self) -> tuple[float, float, float, float]:
        """fx, fy, cx, cy."""
        return self.fx, self.fy, self.cx, self.cy

    @property
    def distortion(self) -> tuple[float, float, float, float, float, float]:
        """k1, k2, k3, p1, p2, skew."""
        return self.k1, self.k2, self.k3, self.p1, self.p2, self.skew

    @property
    def plausible(self) -> bool:
        """Whether this can be the depth lens of these cameras; the library replaces one whose cx is not 140 to 180."""
        return 140 <= self.cx <= 180 and 80 <= self.cy <= 160 and self.fx >= 50 and self.fy >= 50


def lens_from(json: Any, where: str) -> Lens:
    """A lens in the form of ``vqd lens``."""
    if not isinstance(json, Mapping) or set(json) != set(_NAMES):
        raise UsageError(f"{where} does not have just the members {', '.join(_NAMES)}")
    for name, value in json.items():
        if isinstance(value, bool) or not isinstance(value, (int, float)) or not np.isfinite(value):
            raise UsageError(f"{where}.{name} is not a number")
    return Lens(**{name: float(json[name]) for name in _NAMES})


@dataclass(frozen=True)
class Extrinsics:
    """The transform from the depth to the colour camera: p' = rotation p + translation.

    Attributes:
        rotation: three rows of three numbers. Only the first four numbers fit into the EEPROM; what a camera does not
            store is None.
        translation: three numbers, in the unit of the points.
    """

    rotation: tuple[tuple[Optional[float], ...], ...]
    translation: tuple[Optional[float], ...]

    @staticmethod
    def of(rotation: Sequence[Sequence[Optional[float]]], translation: Sequence[Optional[float]]) -> Extrinsics:
        """From nested sequences, such as arrays of (3, 3) and (3,)."""
        rows = tuple(tuple(None if value is None else float(value) for value in row) for row in rotation)
        shift = tuple(None if value is None else float(value) for value in translation)
        if [len(row) for row in rows] != [3, 3, 3] or len(shift) != 3:
            raise UsageError("a transform has a rotation of three rows of three numbers, and a translation of three")
        return Extrinsics(rows, shift)


def extrinsics_from(json: Any) -> Extrinsics:
    """A transform in the form of ``vqd lens``."""
    try:
        return Extrinsics.of(json["rotation"], json["translation"])
    except (KeyError, TypeError, ValueError) as why:
        raise UsageError(f"extrinsic is no transform: {why}") from why
