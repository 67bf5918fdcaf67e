# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Points in space, by the library, and its one table of rays in turn for every camera that this process knows of."""
from __future__ import annotations

import sys
from typing import Optional

import numpy as np
import numpy.typing as npt

from ._errors import UsageError
from ._frame import HEIGHT, WIDTH, Image
from ._lens import Lens
from ._library import Library, address_of, library
from ._records import LensIntrinsic

Points = npt.NDArray[np.float32]

_lens_in_table: Optional[Lens] = None  # None: the rays are those of the camera in this process
_kept: Optional[Points] = None  # the rays of that camera, while those of another are in the table


def forget() -> None:
    """The library has just made the rays of the camera in this process."""
    global _lens_in_table, _kept
    _lens_in_table, _kept = None, None


def _use(loaded: Library, lens: Optional[Lens]) -> None:
    global _lens_in_table, _kept
    if lens == _lens_in_table:
        return
    rays = loaded.array("pPointCloud")
    if lens is None:
        assert _kept is not None
        rays[...] = _kept
    else:
        if _lens_in_table is None:
            _kept = rays.copy()
        loaded.call_in_turn("BuildPointCloudTable", LensIntrinsic(*lens.intrinsic))
    _lens_in_table = lens


def image_for_library(image: object, name: str) -> Image:
    """The image itself, if the library can work on it."""
    if not isinstance(image, np.ndarray) or image.dtype != np.uint16 or image.ndim != 2 or sys.byteorder != "little":
        raise UsageError(f"{name} is not an array of uint16 with two dimensions")
    return image


def points(depth: Image, lens: Optional[Lens], axes: str) -> Points:
    """float32 (240, 320, 3) in metres, (0, 0, 0) where there is no depth."""
    if axes not in ("optical", "camera"):
        raise UsageError(f"axes are optical or camera, not {axes!r}")
    image = np.ascontiguousarray(image_for_library(depth, "depth"))
    if image.shape != (HEIGHT, WIDTH):
        raise UsageError(f"a depth image has the shape ({HEIGHT}, {WIDTH}), not {image.shape}")
    found = np.empty((HEIGHT, WIDTH, 3), dtype=np.float32)
    loaded = library()
    with loaded.turn:
        _use(loaded, lens)
        loaded.functions["vqdDepthFrameToCameraSpace"](address_of(image), address_of(found), WIDTH, HEIGHT)
    if axes == "optical":
        np.negative(found[..., 1], out=found[..., 1])
        found[..., 1] += 0.0  # -0.0 becomes 0.0
    return found
