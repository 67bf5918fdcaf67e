# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""A camera in this process: the library without anything between."""
from __future__ import annotations

import atexit
import contextlib
import ctypes
import logging
import time
import weakref
from collections.abc import Iterable, Iterator, Mapping
from dataclasses import replace
from functools import partial
from typing import Any, Optional, Union

import numpy as np

from . import _camera_settings, _rays
from ._arrivals import Arrivals
from ._bus import CameraInfo, choose, list_cameras, require_access
from ._errors import Error, HeldError, LostError, UsageError
from ._frame import HEIGHT, WIDTH, Frame
from ._latest import LatestReader
from ._lens import Extrinsics, Lens
from ._library import Turn, library
from ._lines import NO_USB_MEMORY, TRANSFER_FAILED
from ._lock import CameraLock
from ._memory import Memory
from ._profile import apply_profile, find_profile, fingerprint
from ._rays import Points
from ._records import EEPROM_BYTES, MAX_DEVICES, DevInfo, FrameInfo
from ._settings import Assignment, assignments_of
from ._source import Source, Statistics
from ._tables import Tables

_log = logging.getLogger("vqd")

_HOST_CORRECTED = ("VQD-HT120", "VQD-HT950X")
_PLANE_BYTES = WIDTH * HEIGHT * 2
_NO_REOPEN = 2  # the library writes 0 to m_nDeviceOpen when a re-open begins, 1 when it has found the camera, never this
_BUDGET = 600  # of searches, so that a read after a lost camera searches again
_MOST_REOPENS = 3
_LONGEST_READ = 15.0  # seconds that a read may take while the library searches
_PATIENCE = 1.0  # seconds that a close waits for a read; a camera that is silent longer is let go by the reading thread

_open_camera: Optional[weakref.ref[Camera]] = None


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
        "_library", "_info", "_number", "_lock", "_memory", "_reading", "_reader", "_grabs", "_images", "_frame_info",
        "_read_frame", "_open_flags", "_temperatures", "_switches", "_arrivals", "_session", "_reopens",
        "_failed_transfers", "_profile_path", "tables",
    )

    tables: Tables

    def __init__(self, camera: Union[str, int, None] = None, *, profile: bool = True, **settings: Any) -> None:
        super().__init__()
        assignments = assignments_of(settings)
        self._lock: Optional[CameraLock] = None
        self._require_alone()
        self._library = library()
        self._number = -1
        self._reader: Optional[LatestReader] = None
        self._grabs = False
        self._reading = Turn()
        self._profile_path: Optional[str] = None
        cameras = list_cameras()
        chosen = choose(cameras, None if camera is None else str(camera))
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
        other = _open_camera() if _open_camera is not None else None
        if other is not None and other._lock is not None:
            raise HeldError(
                f"this process has camera {other.serial} already, and the library keeps one set of corrections in a "
                "process; for several cameras start a worker for each (vqd worker -c SERIAL) and use vqd.connect(SERIAL)"
            )

    def _open(self, cameras: list[CameraInfo], chosen: CameraInfo, profile: bool) -> None:
        devices, count = (DevInfo * MAX_DEVICES)(), ctypes.c_int(-100)
        result, lines = self._library.call("vqdGetDeviceList", ctypes.addressof(devices), ctypes.addressof(count))
        if result != 1:
            raise Error("the cameras could not be listed", lines)
        listed = list_cameras()
        if len(listed) != count.value or [one.place for one in listed] != [one.place for one in cameras]:
            raise Error("cameras were plugged in or out while they were listed", lines)
        n = chosen.index
        image = bytes(_camera_settings.image_of(self._library, n)[:EEPROM_BYTES])
        if count.value > 1:  # the library's maps and tables are those of the camera that it loaded last
            again = ctypes.create_string_buffer(512)
            result, lines = self._library.call("vqdEEPROM_ParameterData_Load", n, ctypes.addressof(again))
            if result != 1 or again.raw[:EEPROM_BYTES] != image:
                raise Error(f"the parameters of {chosen.name} could not be loaded", lines)
        if chosen.serial is not None and listed[n].eeprom != image:
            raise Error(f"the EEPROM of {chosen.name} could not be read by the library", lines)
        result, lines = self._library.call("vqdDeviceOpen", n)
        if result != 1:
            raise Error(f"{chosen.name} cannot be opened", lines)
        self._info, self._number = chosen, n
        self._memory = Memory(self)
        self.tables = Tables(self)
        if chosen.serial is None:
            _log.warning("the EEPROM of %s cannot be read or was never written: factory settings are used", chosen.name)
        self._loaded(profile)

    def _loaded(self, profile: bool) -> None:
        """The library has loaded the camera: puts the host's profile over it."""
        _rays.forget()
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
        self._images = (ctypes.c_void_p * 2)()
        self._frame_info = FrameInfo()
        pointers = ctypes.addressof(self._images), ctypes.addressof(self._frame_info)
        self._read_frame = partial(self._library.functions["vqdReadFromDevice"], self._number, *pointers)
        self._open_flags = self._library.array("m_nDeviceOpen")
        self._temperatures = self._library.array("m_dTemperature")
        names = ("m_nUndistortionMode", "m_bFPPN", "m_bOrthogonal", "m_bRemoveEdge")
        self._switches = [self._library.place(name) for name in names]
        self._arrivals = Arrivals()
        self._arrivals.set_delay(_camera_settings.read(self._library, self._number, "fps-delay"))
        self._session = time.time_ns()
        self._reopens = self._failed_transfers = 0

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
        arrivals = self._arrivals
        return Statistics(
            arrivals.frames, arrivals.dropped, self._reopens, self._failed_transfers, arrivals.longest / 1e9,
            float(self._temperatures[self._number]),
        )

    def start(self) -> None:
        """Starts the stream, which takes 1.2 s. The first read does it, too."""
        self._require_open()
        if self._grabs:
            return
        self._grabs = True  # also after a Ctrl-C, which comes once the library has started it
        result, lines = self._library.call("vqdGrabStart", self._number)
        if result != 1:
            self._grabs = False
            raise LostError(f"{self._info.name} does not start", lines)

    def stop(self) -> None:
        """Stops the stream, which takes 0.4 s; the light goes off."""
        if self._reader is not None:
            self._reader.stop(_LONGEST_READ)
        with self._reading:
            if self._grabs:
                self._grabs = False
                self._library.call("vqdGrabStop", self._number)

    @contextlib.contextmanager
    def stopped(self) -> Iterator[None]:
        """While the block runs, the camera is not grabbing and nobody reads."""
        with self._reading:
            grabs, self._grabs = self._grabs, False
            if grabs:
                self._library.call("vqdGrabStop", self._number)
            try:
                yield
            finally:
                if grabs:
                    self.start()

    def read(self, timeout: Optional[float] = None) -> Frame:
        """Waits for the next frame: without a time-out as long as the library does, which searches for a lost camera for
        up to 12 s. With one, a thread reads, and this and all later reads take its newest frame."""
        if timeout is None and (self._reader is None or not self._reader.runs):
            return self._read_here()
        return self._running_reader().take(timeout)

    def stream(self, latest: bool = False) -> Iterator[Frame]:
        """Yields frames until an error. With ``latest`` a thread reads, so a slow loop gets the newest frame each time and
        Ctrl-C acts at once, even when the camera is silent."""
        if latest:
            return self._latest_frames()
        return iter(self.read, None)

    def _latest_frames(self) -> Iterator[Frame]:
        reader = self._running_reader()
        try:
            while True:
                yield reader.take(None)
        finally:
            reader.stop()

    def _running_reader(self) -> LatestReader:
        self._require_open()
        if self._reader is None or not self._reader.runs:
            self._reader = LatestReader(self._read_here)
        return self._reader

    def _read_here(self) -> Frame:
        if not self._grabs:
            self.start()
        for reopens in range(_MOST_REOPENS):
            with self._reading:
                frame, lines = self._read_once(reopens > 0)
            if frame is not None:
                return frame
        if any(line.startswith(NO_USB_MEMORY) for line in lines):
            raise Error(
                "the kernel has no memory left for a frame; the transfers of all programs share it: echo 64 | sudo tee "
                "/sys/module/usbcore/parameters/usbfs_memory_mb", lines,
            )
        raise LostError(f"the camera sends no frames, not even after {_MOST_REOPENS} re-opens", lines)

    def _read_once(self, reopened: bool) -> tuple[Optional[Frame], tuple[str, ...]]:
        """One read of the library. No frame when the library had to open the camera again."""
        if self._lock is None:
            self._require_open()
        planes = np.empty((2, HEIGHT, WIDTH), np.uint16)
        address = planes.__array_interface__["data"][0]
        loaded, n = self._library, self._number
        lines: tuple[str, ...] = ()
        with loaded.turn:
            self._images[0], self._images[1] = address, address + _PLANE_BYTES
            self._open_flags[n] = _NO_REOPEN
            loaded.place("m_nReopenTime").value = _BUDGET
            began = time.monotonic_ns()
            try:
                loaded.lines.enter()
                result = self._read_frame()
            finally:
                ended, now = time.monotonic_ns(), time.time()
                lines = loaded.lines.leave()
            was_found = self._open_flags[n] == 1
        if lines:
            self._note(lines, was_found)
        if result <= 0:
            raise LostError(f"the camera is lost (frame read {result})", lines)
        if was_found:
            return None, lines
        info, arrivals = self._frame_info, self._arrivals
        mode, *corrections = (switch.value for switch in self._switches)
        on_host = 1 in corrections and any(model in self._info.product for model in _HOST_CORRECTED)
        dropped = arrivals.add(began, ended, reopened)
        frame = Frame(
            planes[1], planes[0], arrivals.frames, info.nTimeStamp, now, ended, float(self._temperatures[n]),
            self._info.serial or "", self._session, dropped, 0, reopened, mode in (1, 2, 3) or on_host,
            self._profile_path is not None,
        )
        return frame, lines

    def _note(self, lines: tuple[str, ...], was_found: bool) -> None:
        self._failed_transfers += sum(line.startswith(TRANSFER_FAILED) for line in lines)
        for line in lines:
            _log.info("library: %s", line)
        if was_found:
            self._reopens += 1
            _log.warning("%s was opened again", self._info.name)
            self._follow()

    def _follow(self) -> None:
        """What is plugged in again has a new address, or sits at another port."""
        was = self._info
        try:
            cameras = list_cameras()
        except Error:
            return
        same = [one for one in cameras if one.port and one.port == was.port]
        same = same or [one for one in cameras if was.serial is not None and one.serial == was.serial]
        if len(same) == 1:
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
        _camera_settings.require_taken(self._library, self._number, assignments)
        if any(setting.name == "fps-delay" for setting, _ in assignments):
            self._arrivals.set_delay(_camera_settings.read(self._library, self._number, "fps-delay"))

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

    def _let_go(self, lock: CameraLock) -> None:
        if self._number >= 0:
            _, lines = self._library.call("vqdDeviceClose", self._number)  # this number only: others may grab
            for line in lines:
                _log.debug("library: %s", line)
        self._grabs = False
        lock.release()


@atexit.register
def _close_at_exit() -> None:
    camera = _open_camera() if _open_camera is not None else None
    if camera is not None:
        camera.close()
