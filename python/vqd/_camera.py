# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""A camera in this process: the library without anything between."""
from __future__ import annotations

import atexit
import contextlib
import gc
import logging
import os
import threading
import weakref
from collections.abc import Iterable, Iterator, Mapping
from dataclasses import replace
from functools import partial
from typing import Any, Optional, Union

from . import _camera_settings, _rays
from ._bus import CameraInfo, choose, list_cameras, require_access
from ._errors import Error, HeldError, LostError, UsageError
from ._frame import Frame
from ._latest import LatestReader
from ._lens import Extrinsics, Lens
from ._library import library
from ._lock import CameraLock
from ._memory import Memory
from ._opening import open_listed
from ._profile import apply_profile, find_profile, fingerprint
from ._rays import Points
from ._reads import Reads
from ._settings import Assignment, assignments_of
from ._source import Source, Statistics
from ._tables import Tables

_log = logging.getLogger("vqd")

HOST_CORRECTED = ("VQD-HT120", "VQD-HT950X")
_LONGEST_READ = 15.0  # seconds that a read may take while the library searches
_PATIENCE = 1.0  # seconds that a close waits for a read; a camera that is silent longer is let go by the reading thread

_open_camera: Optional[weakref.ref[Camera]] = None
_opening = threading.Lock()  # two threads that open a camera at once each find none open


class Camera(Source):
    """A camera that this process has to itself, with the lowest latency.

    The library keeps one set of maps, corrections and switches in a process, so there is one such camera in a process;
    ``vqd.connect()`` gives any number of them, each behind a worker.

    Args:
        camera: serial number, port, BUS:ADDRESS or index, as ``vqd.list()`` shows them. May be left out when only one is
            attached.
        profile: whether to use what this machine keeps of the camera (docs/profile.md).
        settings: to begin with, such as ``undistortion=1``.

    Raises:
        NoCameraError: there is none, or none with this name, or no name and several cameras.
        AccessError: this user may not open it.
        HeldError: another program has it, or this process has a camera already.
        UsageError: a setting or a profile makes no sense.
    """

    __slots__ = (
        "_library", "_info", "_number", "_lock", "_memory", "_reader", "_reads", "_grabs", "_exchanged",
        "_profile_path", "tables",
    )

    tables: Tables

    def __init__(self, camera: Union[str, int, None] = None, *, profile: bool = True, **settings: Any) -> None:
        super().__init__()
        assignments = assignments_of(settings)
        self._lock: Optional[CameraLock] = None
        self._library = library()
        self._number = -1
        self._reader: Optional[LatestReader] = None
        self._grabs = self._exchanged = False
        self._profile_path: Optional[str] = None
        with _opening:
            self._require_alone()
            self._begin(None if camera is None else str(camera), profile, assignments)

    def _begin(self, name: Optional[str], profile: bool, assignments: list[Assignment]) -> None:
        cameras = list_cameras()
        chosen = choose(cameras, name)
        require_access(cameras)
        self._lock = CameraLock(chosen)
        try:
            self._open(cameras, chosen, profile)
            self._prepare_reads()
            self._write_settings(assignments)
        except BaseException:
            self.close()
            raise
        global _open_camera
        _open_camera = weakref.ref(self)

    @staticmethod
    def _require_alone() -> None:
        if _own() is not None:
            gc.collect()  # one that the program has forgotten is closed by this
        other = _own()
        if other is not None:
            raise HeldError(
                f"this process has camera {other.serial} already, and the library keeps one set of corrections in a "
                "process; for several cameras start a worker for each (vqd worker -c SERIAL) and use vqd.connect(SERIAL)"
            )

    def _open(self, cameras: list[CameraInfo], chosen: CameraInfo, profile: bool) -> None:
        self._info = chosen
        self._memory = Memory(self)
        self.tables = Tables(self)
        if chosen.serial is None:
            _log.warning("the EEPROM of %s cannot be read or was never written: factory settings are used", chosen.name)
        with self._library.turn.held():  # so that no other thread takes the new rays for those of another camera
            open_listed(self._library, cameras, chosen)
            self._number = chosen.index
            self._loaded(profile)

    def _loaded(self, profile: bool) -> None:
        """The library has loaded the camera: puts the host's profile over it."""
        _rays.forget()
        self._library.changes += 1
        self._profile_path = None
        found = find_profile(self._info.serial) if profile and self._info.serial is not None else None
        if found is None:
            return
        if found.eeprom != fingerprint(self._info.eeprom):
            _log.warning("the profile %s is not applied: the lens in the EEPROM has changed since it was made", found.path)
            return
        apply_profile(self._library, self._number, found)
        self._profile_path = found.path

    def _prepare_reads(self) -> None:
        self._reads = Reads(self._library, self._number, self._info.serial or "", self._is_changed, self._follow)
        self._take_delay()

    def _take_delay(self) -> None:
        self._reads.arrivals.set_delay(_camera_settings.read(self._library, self._number, "fps-delay"))

    @property
    def serial(self) -> Optional[str]:
        return self._info.serial

    @property
    def product(self) -> str:
        return self._info.product

    @property
    def info(self) -> CameraInfo:
        """What ``vqd.list()`` said of it."""
        return self._info

    @property
    def number(self) -> int:
        """The library's number of the camera, for ``vqd.exported``."""
        return self._number

    @property
    def profile(self) -> Optional[str]:
        """The file of the host's profile that is in use."""
        return self._profile_path

    @property
    def lens(self) -> Lens:
        return self._lens_in("m_fIntrinsicParam", "m_fDistorParam")

    @property
    def colour_lens(self) -> Lens:
        return self._lens_in("m_fRGBIntrinsicParam", "m_fRGBDistorParam")

    def _lens_in(self, intrinsic: str, distortion: str) -> Lens:
        n = self._number
        return Lens(*self._library.array(intrinsic)[n].tolist(), *self._library.array(distortion)[n].tolist())

    @property
    def extrinsics(self) -> Extrinsics:
        values = self._library.array("m_fExtrinsicParam")[self._number].tolist()
        return Extrinsics.of([values[0:3], values[3:6], values[6:9]], values[9:12])

    @property
    def statistics(self) -> Statistics:
        reads, arrivals = self._reads, self._reads.arrivals
        return Statistics(
            arrivals.frames, arrivals.dropped, reads.reopens, reads.failed_transfers, arrivals.longest / 1e9,
            reads.temperature,
        )

    def start(self) -> None:
        """Starts the stream, which takes 1.2 s. The first read does it, too."""
        self._require_open()
        if not self._grabs:
            self._start()

    def _start(self) -> None:
        self._grabs = True  # also after a Ctrl-C, which comes once the library has started it
        result, lines = self._library.call("vqdGrabStart", self._number)
        if result != 1:
            self._grabs = False
            raise LostError(f"{self._info.name} does not start", lines)

    def stop(self) -> None:
        """Stops the stream, which takes 0.4 s; the light goes off."""
        if self._reader is not None:
            self._reader.stop(_LONGEST_READ)
        if self._grabs:
            self._grabs = False
            self._library.call("vqdGrabStop", self._number)
            self._reads.arrivals.pause()

    @contextlib.contextmanager
    def _stopped(self) -> Iterator[None]:
        """While the block runs, the camera is not grabbing and no other thread reads."""
        with self._library.turn.held():
            grabs = self._grabs
            if grabs:
                self._library.call("vqdGrabStop", self._number)
            try:
                yield
            finally:
                if grabs:
                    self._start()
                    self._reads.arrivals.pause()

    def read(self, timeout: Optional[float] = None) -> Frame:
        """Waits for the next frame: without a time-out as long as the library does, which searches for a lost camera for
        up to 12 s. With one, a thread reads, and this and all later reads take its newest frame."""
        if timeout is None and (self._reader is None or not self._reader.runs):
            return self._read_here()
        return self._take(timeout)

    def stream(self, latest: bool = False) -> Iterator[Frame]:
        """Yields frames until an error. With ``latest`` a thread reads, so a slow loop gets the newest frame each time and
        Ctrl-C acts at once, even when the camera is silent."""
        if latest:
            return self._latest_frames()
        return iter(self.read, None)

    def _latest_frames(self) -> Iterator[Frame]:
        try:
            while True:
                yield self._take(None)
        finally:
            if self._reader is not None:
                self._reader.stop()

    def _take(self, timeout: Optional[float]) -> Frame:
        while True:
            frame = self._running_reader().take(timeout)
            if frame is not None:  # else somebody has stopped the thread, and the next one goes on
                return frame

    def _running_reader(self) -> LatestReader:
        self._require_open()
        if self._reader is None or not self._reader.runs:
            self._reader = LatestReader(self._read_here)
        return self._reader

    def _read_here(self) -> Frame:
        if self._lock is None or not self._grabs:
            self.start()
        self._require_same()
        return self._reads.read()

    def _require_same(self) -> None:
        if self._exchanged:
            raise LostError(f"another camera was plugged in where {self._info.name} was; a new vqd.Camera opens it")

    def _is_changed(self) -> tuple[bool, bool]:
        """Whether the host changes the frames, and whether values of a profile are in use."""
        exports = self._library.place
        corrected = 1 in (exports(name).value for name in ("m_bFPPN", "m_bOrthogonal", "m_bRemoveEdge"))
        on_host = corrected and any(model in self._info.product for model in HOST_CORRECTED)
        return exports("m_nUndistortionMode").value in (1, 2, 3) or on_host, self._profile_path is not None

    def _follow(self) -> None:
        """What was opened again has a new address, or sits at another port."""
        was = self._info
        _log.warning("%s was opened again", was.name)
        try:
            cameras = list_cameras()
        except Error:
            return
        same = [one for one in cameras if one.port and one.port == was.port]
        same = same or [one for one in cameras if was.serial is not None and one.serial == was.serial]
        if len(same) == 1:
            # The library opens whatever camera it finds, with the lens and the tables of the first one.
            self._exchanged = bool(was.serial and same[0].serial) and (
                (was.serial, fingerprint(was.eeprom)) != (same[0].serial, fingerprint(same[0].eeprom))
            )
            self._require_same()
            self._info = replace(was, port=same[0].port, bus=same[0].bus, address=same[0].address)

    def points(self, frame: Frame, axes: str = "optical") -> Points:
        return _rays.points(frame.depth, None, axes)

    def save(self) -> bool:
        return self._memory.save()

    def read_eeprom(self) -> bytes:
        """The 128 bytes that the camera keeps, read from it now."""
        return self._memory.read()

    def restore_eeprom(self, backup: Any, force: bool = False) -> bool:
        """Writes the 128 bytes of a backup, given as bytes or as a file, and loads them. Frames pause for it.

        Args:
            backup: bytes, or the path of a file, such as read_eeprom() or ``vqd eeprom backup`` gave.
            force: also write what is implausible, or belongs to another camera, or over an EEPROM that cannot be read.

        Returns:
            Whether anything was written.
        """
        return self._memory.restore(backup, force)

    def write_lens(
        self,
        depth: Optional[Lens] = None,
        colour: Optional[Lens] = None,
        extrinsics: Optional[Extrinsics] = None,
        force: bool = False,
    ) -> None:
        """Writes lenses and transform to the camera's EEPROM, each rounded to what it can hold. Frames pause for it.

        All present settings are saved with them. ``force`` also writes a depth lens that is not plausible.
        """
        self._memory.write_lens(depth, colour, extrinsics, force)

    def _require_written_eeprom(self) -> str:
        if self._info.serial is None:
            raise Error(f"the EEPROM of {self._info.name} cannot be read or was never written, so nothing is written to it")
        return self._info.serial

    def _read_settings(self, names: Iterable[str]) -> Mapping[str, Any]:
        self._require_open()
        return {name: _camera_settings.read(self._library, self._number, name) for name in names}

    def _write_settings(self, assignments: list[Assignment]) -> None:
        self._require_open()
        for setting, numbers in assignments:
            if setting.name == "illumination" and numbers == (0,) and self._grabs:
                raise UsageError("illumination off also ends the capture, and no frame would come; stop() does both")
        for assignment in assignments:
            _camera_settings.write(self._library, self._number, assignment)
        self._library.changes += 1
        _camera_settings.require_taken(self._library, self._number, assignments)
        if any(setting.name == "fps-delay" for setting, _ in assignments):
            self._take_delay()

    def _require_open(self) -> None:
        if self._lock is None:
            raise UsageError("the camera is closed")

    def close(self) -> None:
        """Lets the camera go. A reading thread that waits for a silent camera does so when its read ends."""
        lock, self._lock = self._lock, None
        if lock is None:
            return
        let_go = partial(self._let_go, lock)
        if self._reader is None or self._reader.stop(_PATIENCE, let_go):
            let_go()

    def __del__(self) -> None:
        with contextlib.suppress(Exception):  # it may not even have begun to open, or the interpreter ends
            self.close()

    def _let_go(self, lock: CameraLock) -> None:
        if self._number >= 0:
            _, lines = self._library.call("vqdDeviceClose", self._number)  # this number only: others may grab
            for line in lines:
                _log.debug("library: %s", line)
        self._grabs = False
        lock.release()


def _own() -> Optional[Camera]:
    """The camera that this process has open."""
    camera = _open_camera() if _open_camera is not None else None
    return camera if camera is not None and camera._lock is not None else None


def _leave_to_parent() -> None:
    """A forked child shares the camera's handle. It must not stop the stream of its parent, such as when it ends."""
    global _opening
    _opening = threading.Lock()
    camera = _own()
    if camera is not None and camera._lock is not None:
        camera._lock.release()
        camera._lock = None


os.register_at_fork(after_in_child=_leave_to_parent)


@atexit.register
def _close_at_exit() -> None:
    camera = _own()
    if camera is not None:
        camera.close()
