# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The library's filters, which work in place on images of any size."""
from __future__ import annotations

from ._errors import UsageError
from ._frame import Image
from ._library import address_of, library
from ._rays import image_for_library


def _writable(image: Image, name: str) -> Image:
    image_for_library(image, name)
    if not image.flags.c_contiguous or not image.flags.writeable:
        raise UsageError(f"{name} is not an array that can be written and has no gaps")
    return image


def _threshold(value: int, most: int, name: str) -> int:
    if not 0 <= value <= most:
        raise UsageError(f"{name} is 0 to {most}, not {value}")
    return int(value)


def _check(function: str, amplitude: Image, depth: Image, threshold: int) -> None:
    _writable(depth, "depth")
    image_for_library(amplitude, "amplitude")
    if amplitude.shape != depth.shape or not amplitude.flags.c_contiguous:
        raise UsageError("amplitude does not have the shape of depth, or has gaps")
    height, width = depth.shape
    number = _threshold(threshold, 255, "the threshold")
    library().functions[function](address_of(amplitude), address_of(depth), number, width, height)


def amplitude_check(amplitude: Image, depth: Image, threshold: int) -> None:
    """Sets depth to 0 where the amplitude is below threshold * vqd.exported.fAmpScale (1.3 at first)."""
    _check("vqdAmplitudeCheckFilter", amplitude, depth, threshold)


def scattering_check(amplitude: Image, depth: Image, threshold: int) -> None:
    """Sets depth to 0 where the amplitude is below threshold / (depth^2 * vqd.exported.fScatterScale)."""
    _check("vqdScatteringCheckFilter", amplitude, depth, threshold)


def min_max_check(image: Image, minimum: int, maximum: int) -> None:
    """Sets pixels below the minimum or above the maximum to 0."""
    _writable(image, "image")
    limits = _threshold(minimum, 65535, "the minimum"), _threshold(maximum, 65535, "the maximum")
    height, width = image.shape
    library().functions["vqdMinMaxCheckFilter"](address_of(image), *limits, width, height)
