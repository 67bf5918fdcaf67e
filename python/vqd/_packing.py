# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Unpacks planes: worker/packing.h describes them byte by byte."""
from __future__ import annotations

import numpy as np
import numpy.typing as npt

from ._errors import Error
from ._frame import Image


def unpack(packed: npt.NDArray[np.uint8], planes: int, height: int, width: int) -> Image:
    """The planes, uint16 (planes, height, width). Fails unless the bytes are just that many pixels."""
    try:
        import zstandard
    except ImportError as why:
        raise Error("packed frames need the module zstandard (Debian: python3-zstandard)") from why
    pixels = height * width
    size = 2 * planes * pixels
    data = packed.tobytes()
    try:
        if zstandard.get_frame_parameters(data).content_size != size:
            raise Error("the packed planes of a frame do not have the size of the frame")
        content = zstandard.ZstdDecompressor().decompress(data, max_output_size=size)
    except zstandard.ZstdError as why:
        raise Error(f"the packed planes of a frame are damaged: {why}") from why
    if len(content) != size:
        raise Error("the packed planes of a frame are cut short")
    # Low bytes, then high bytes, of the differences between neighbours in zigzag order.
    halves = np.frombuffer(content, np.uint8).reshape(planes, 2, pixels)
    zigzag = halves[:, 0] | (halves[:, 1].astype(np.uint16) << np.uint16(8))
    differences = (zigzag >> np.uint16(1)) ^ (np.uint16(0) - (zigzag & np.uint16(1)))
    return np.cumsum(differences, axis=1, dtype=np.uint16).reshape(planes, height, width)
