# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""A frame, wherever it came from."""
from __future__ import annotations

from typing import Any

import numpy as np
import numpy.typing as npt

WIDTH = 320
HEIGHT = 240

Image = npt.NDArray[np.uint16]


class Frame:
    """An amplitude image and a depth image, with what is known of them.

    Nobody writes to the arrays later, and they live as long as something refers to them or to a part of them.

    Attributes:
        depth: uint16 (240, 320), millimetres along the optical axis, 0 invalid. HT120 and HT950X deliver the length of
            the ray unless the orthogonal correction is on.
        amplitude: uint16 (240, 320), counts of the sensor.
        number: counts the frames of a session from 1; frames that this reader did not get leave gaps.
        stamp: milliseconds from the first frame of the stream to this one; 0 or -1 for the first.
        time: when the frame had been read, in seconds since 1970. Somebody may set that clock.
        monotonic_ns: the same moment on CLOCK_MONOTONIC, which never jumps and is the same for all cameras of a machine.
        temperature: of the sensor, in degrees Celsius.
        serial: the camera's serial number; empty when it is not known.
        session: another number after each opening of the camera, or start of its worker; numbers then begin anew.
        dropped: an estimate of the frames that the camera made since the frame before and that nobody got.
        missed: frames of the session that this reader did not get since its last one.
        reopened: the camera was opened again since the frame before.
        corrected: undistortion, FPPN, orthogonal correction or edge removal changed the frame on the host.
        profiled: values of the host's profile were in use.
    """

    __slots__ = (
        "depth", "amplitude", "number", "stamp", "time", "monotonic_ns", "temperature", "serial", "session", "dropped",
        "missed", "reopened", "corrected", "profiled",
    )

    def __init__(
        self,
        depth: Image,
        amplitude: Image,
        number: int = 0,
        stamp: int = 0,
        time: float = 0.0,
        monotonic_ns: int = 0,
        temperature: float = 0.0,
        serial: str = "",
        session: int = 0,
        dropped: int = 0,
        missed: int = 0,
        reopened: bool = False,
        corrected: bool = False,
        profiled: bool = False,
    ) -> None:
        self.depth = depth
        self.amplitude = amplitude
        self.number = number
        self.stamp = stamp
        self.time = time
        self.monotonic_ns = monotonic_ns
        self.temperature = temperature
        self.serial = serial
        self.session = session
        self.dropped = dropped
        self.missed = missed
        self.reopened = reopened
        self.corrected = corrected
        self.profiled = profiled

    def __repr__(self) -> str:
        return f"<Frame {self.number} of {self.serial or 'a camera'}, {self.stamp} ms>"

    def __reduce__(self) -> tuple[Any, ...]:
        return Frame, tuple(getattr(self, name) for name in self.__slots__)
