# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""USB time-of-flight depth cameras: a camera is an iterator of numpy arrays.

    import vqd
    with vqd.Camera(undistortion=1, orthogonal=True) as camera:
        for frame in camera:                  # frame.depth, frame.amplitude: uint16 (240, 320)
            points = camera.points(frame)     # float32 (240, 320, 3), metres

``Camera`` is a camera in this process. ``connect()`` gives one behind a worker, which any number of programs may read, and
``cameras()`` several of them in step. ``Recording`` gives the same frames from a file. Nothing here prints; what is worth
knowing goes to the logger "vqd", and failures are exceptions derived from ``vqd.Error``.
"""
from __future__ import annotations

import logging

from . import _filters as filters
from ._bus import CameraInfo
from ._bus import list_cameras as _list_cameras
from ._camera import Camera
from ._connect import connect
from ._errors import (
    AccessError,
    Error,
    HeldError,
    LostError,
    NoCameraError,
    NoFrameError,
    SettingError,
    UsageError,
    VerificationError,
)
from ._frame import Frame
from ._lens import Extrinsics, Lens
from ._library import exported
from ._recording import Recording
from ._remote import RemoteCamera
from ._sets import Cameras, FrameSet
from ._sets import Cameras as cameras
from ._sim import Simulation, sim
from ._source import Source, Statistics
from ._workers import WorkerInfo, workers

__version__ = "2.4.0"
__all__ = [
    "AccessError", "Camera", "CameraInfo", "Cameras", "Error", "Extrinsics", "Frame", "FrameSet", "HeldError", "Lens",
    "LostError", "NoCameraError", "NoFrameError", "Recording", "RemoteCamera", "SettingError", "Simulation", "Source",
    "Statistics", "UsageError", "VerificationError", "WorkerInfo", "cameras", "connect", "exported", "filters", "sim",
    "workers",
]

list = _list_cameras  # not in __all__, where it would hide Python's own
logging.getLogger("vqd").addHandler(logging.NullHandler())
