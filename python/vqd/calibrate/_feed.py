# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Where frames come from: a camera, two cameras in step, or recordings, each with the settings that a calibration needs."""
from __future__ import annotations

import contextlib
import os
import subprocess
import tempfile
import time
from collections.abc import Callable, Iterable, Iterator, Mapping
from contextlib import contextmanager
from dataclasses import dataclass
from typing import Any, Optional

from .._bus import choose, list_cameras
from .._camera import HOST_CORRECTED, Camera
from .._connect import connect
from .._errors import Error, LostError, UsageError
from .._frame import Frame
from .._lens import Lens, lens_from
from .._recording import Recording
from .._sets import Cameras
from .._tool import failure_text, tool
from ._rays import rms_difference, usable

_ALWAYS: dict[str, Any] = {"flip_horizontal": False, "flip_vertical": False}

Settings = Callable[[str], Mapping[str, Any]]  # by the model

_STARTS_WITHIN = 30.0  # seconds
_SAME_LENS = 0.01  # pixels
_MOST_SKEW = 0.05  # seconds between frames of two recordings that belong together


def host_corrects(product: str) -> bool:
    """Whether FPPN and orthogonal factors of this model act on the host, in the undistorted image."""
    return any(model in product for model in HOST_CORRECTED)


def raw(_: str) -> Mapping[str, Any]:
    """Images as the sensor has them, in which the lens is calibrated."""
    return {**_ALWAYS, "undistortion": 0}


def without_fppn(product: str) -> Mapping[str, Any]:
    """Depth without FPPN offsets, in the image in which they are added. On the host the factors come later: exact ones."""
    on_host = host_corrects(product)
    return {**_ALWAYS, "undistortion": int(on_host), "orthogonal": not on_host, "fppn": False}


def corrected(_: str) -> Mapping[str, Any]:
    """Images with all corrections that there are."""
    return {**_ALWAYS, "undistortion": 1, "orthogonal": True, "fppn": True}


@dataclass(frozen=True)
class Subject:
    """A camera that is calibrated, with the lens that it has so far."""

    serial: str
    product: str
    lens: Lens

    def is_same(self, other: Subject) -> bool:
        """Whether it is the same camera with the same lens, but for how numbers are rounded on their way."""
        return self.serial == other.serial and rms_difference(usable(self.lens), usable(other.lens)) < _SAME_LENS


@dataclass(frozen=True)
class Feed:
    """Cameras, and their frames in sets of one from each."""

    subjects: tuple[Subject, ...]
    sets: Iterator[tuple[Frame, ...]]


def limited(
    sets: Iterable[tuple[Frame, ...]], frames: Optional[int] = None, seconds: Optional[float] = None
) -> Iterator[tuple[Frame, ...]]:
    """So many of them, or for so long."""
    end = None if seconds is None else time.monotonic() + seconds
    for number, one in enumerate(sets, 1):
        yield one
        if number == frames or (end is not None and time.monotonic() >= end):
            return


def _serial(serial: object, name: str) -> str:
    if not serial:
        raise Error(f"the serial number of {name} is not known, and a calibration belongs to one camera")
    return str(serial)


@contextmanager
def _camera(chosen: Optional[str], settings: Settings) -> Iterator[Feed]:
    with Camera(chosen) as camera:
        camera.settings.update(settings(camera.product))
        subject = Subject(_serial(camera.serial, camera.info.name), camera.product, camera.lens)
        yield Feed((subject,), ((frame,) for frame in camera))


def _parameters(recording: Recording) -> dict[str, Any]:
    for _ in recording:
        break
    else:
        raise UsageError("the recording has no frame")
    return recording.parameters


def _recorded_settings(path: str, parameters: dict[str, Any], wanted: Mapping[str, Any], product: str) -> dict[str, Any]:
    """What acts on the host is set; what acted in the camera must have been so."""
    on_host = {"undistortion"}
    if host_corrects(product):
        on_host |= {"orthogonal", "fppn"}
    recorded = parameters.get("settings")
    for name, value in wanted.items():
        key = name.replace("_", "-")
        was = recorded.get(key) if isinstance(recorded, dict) else None
        if name not in on_host and was is not None and was != int(value):
            raise UsageError(f"{path} was recorded with {key}={was}; record it with {key}={int(value)}")
    return {name: value for name, value in wanted.items() if name in on_host}


def _recorded(path: str, settings: Settings) -> tuple[Subject, Recording]:
    with Recording(path) as first:
        parameters = _parameters(first)
    camera = parameters.get("camera")
    identity = camera if isinstance(camera, dict) else {}
    lens = parameters.get("lens")
    product = str(identity.get("product") or "")
    subject = Subject(
        _serial(identity.get("serial"), f"the camera of {path}"), product,
        lens_from(lens.get("depth") if isinstance(lens, dict) else None, "depth"),
    )
    return subject, Recording(path, **_recorded_settings(path, parameters, settings(product), product))


@contextmanager
def _recording(path: str, settings: Settings) -> Iterator[Feed]:
    subject, recording = _recorded(path, settings)
    with recording:
        yield Feed((subject,), ((frame,) for frame in recording))


def open_one(recording: Optional[str], camera: Optional[str], settings: Settings) -> contextlib.AbstractContextManager[Feed]:
    """A camera, or a recording of one."""
    if recording is not None and camera is not None:
        raise UsageError("give a camera or a recording, not both")
    return _camera(camera, settings) if recording is None else _recording(recording, settings)


def _matched(one: Iterable[Frame], other: Iterable[Frame]) -> Iterator[tuple[Frame, ...]]:
    """Frames of two recordings that were read at about the same time."""
    later = iter(other)
    before: Optional[Frame] = None
    after = next(later, None)
    for frame in one:
        while after is not None and after.time < frame.time:
            before, after = after, next(later, None)
        near = [candidate for candidate in (before, after) if candidate is not None]
        best = min(near, key=lambda candidate: abs(candidate.time - frame.time))
        if abs(best.time - frame.time) <= _MOST_SKEW:
            yield frame, best


@contextmanager
def _recordings(paths: tuple[str, str], settings: Settings) -> Iterator[Feed]:
    (first, one), (second, other) = (_recorded(path, settings) for path in paths)
    with one, other:
        yield Feed((first, second), _matched(one, other))


@contextmanager
def _workers(chosen: tuple[str, str], settings: Settings) -> Iterator[Feed]:
    """Each camera behind a worker of our own, because a process has one camera."""
    attached = list_cameras()
    serials = [_serial(one.serial, one.name) for one in (choose(attached, word) for word in chosen)]
    with tempfile.TemporaryDirectory(prefix="vqd-") as folder, contextlib.ExitStack() as stack:
        paths = []
        for number, serial in enumerate(serials, 1):
            paths.append(os.path.join(folder, f"{number}.sock"))
            errors = stack.enter_context(open(os.path.join(folder, f"{number}.txt"), "w+b"))
            process = subprocess.Popen(
                [tool(), "worker", "-q", "-c", serial, "--socket", paths[-1]],
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=errors,
            )
            stack.callback(process.wait)
            stack.callback(process.terminate)
            _await_worker(process, paths[-1], errors)
        cameras = stack.enter_context(Cameras(paths, timeout=_STARTS_WITHIN))
        cameras.read()
        for one in cameras.cameras:
            one.settings.update(settings(one.product))
        subjects = tuple(Subject(_serial(one.serial, "a camera"), one.product, one.lens) for one in cameras.cameras)
        yield Feed(subjects, (one.frames for one in cameras))


def _await_worker(process: subprocess.Popen[bytes], path: str, errors: Any) -> None:
    """Until it has a camera that sends frames, or says why not."""
    end = time.monotonic() + _STARTS_WITHIN
    while True:
        try:
            with connect(path, timeout=0.25) as camera:
                camera.read(max(0.0, end - time.monotonic()))
                return
        except LostError as why:
            if process.poll() is not None:
                errors.seek(0)
                raise Error(failure_text(errors.read())) from why
            if time.monotonic() >= end:
                raise


def open_pair(
    recordings: Optional[tuple[str, str]], cameras: Optional[tuple[str, str]], settings: Settings
) -> contextlib.AbstractContextManager[Feed]:
    """Two cameras, or a recording of each."""
    if (recordings is None) == (cameras is None):
        raise UsageError("give two cameras by their serial numbers, or two recordings that were made at the same time")
    if recordings is not None:
        return _recordings(recordings, settings)
    assert cameras is not None
    return _workers(cameras, settings)
