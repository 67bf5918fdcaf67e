# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The way of one frame from the library into arrays. It is walked with cold caches every 33 ms, so it is short."""
from __future__ import annotations

import ctypes
import logging
import sys
import time
from collections import deque
from typing import Callable, Optional

import numpy as np

from ._arrivals import Arrivals
from ._errors import Error, LostError
from ._frame import HEIGHT, WIDTH, Frame
from ._library import Library, address_of
from ._lines import NO_USB_MEMORY, TRANSFER_FAILED
from ._records import FrameInfo

_log = logging.getLogger("vqd")

_PLANE_BYTES = WIDTH * HEIGHT * 2
_NO_REOPEN = 2  # the library writes 0 to m_nDeviceOpen when a re-open begins, 1 when it has found the camera, never this
_BUDGET = 600  # of searches, so that a read after a lost camera searches again
_MOST_REOPENS = 3
_MOST_BLOCKS = 4  # that are kept for later frames


class _Block:
    """Memory for a frame. Most of the way of a frame would else be spent on new arrays."""

    __slots__ = ("planes", "amplitude", "depth", "images", "_pointers", "_references")

    def __init__(self) -> None:
        self.planes = np.empty((2, HEIGHT, WIDTH), np.uint16)
        self.amplitude, self.depth = self.planes
        address = address_of(self.planes)
        self._pointers = (ctypes.c_void_p * 2)(address, address + _PLANE_BYTES)
        self.images = ctypes.addressof(self._pointers)
        self._references = self._count()

    def _count(self) -> tuple[int, int, int]:
        count = sys.getrefcount
        return count(self.planes), count(self.amplitude), count(self.depth)

    def is_free(self) -> bool:
        """Whether nobody refers to its arrays, or to anything that shares their memory."""
        return self._count() == self._references


class Reads:
    """Reads the frames of one camera.

    Args:
        library: with the camera opened.
        n: the library's number of the camera.
        serial: for the frames.
        is_changed: whether the host changes the frames, and whether values of a profile are in use.
        found_again: is called after the library has opened the camera again.
    """

    def __init__(
        self,
        library: Library,
        n: int,
        serial: str,
        is_changed: Callable[[], tuple[bool, bool]],
        found_again: Callable[[], None],
    ) -> None:
        self.arrivals = Arrivals()
        self.reopens = self.failed_transfers = 0
        self._library = library
        self._number = n
        self._is_changed = is_changed
        self._found_again = found_again
        self._open_flags = library.place("m_nDeviceOpen")
        self._temperatures = library.place("m_dTemperature")
        self._blocks: deque[_Block] = deque(maxlen=_MOST_BLOCKS)
        self._info = FrameInfo()
        self._call = library.functions["vqdReadFromDevice"]
        self._info_address = ctypes.addressof(self._info)
        self._serial = serial
        self._session = time.time_ns()
        self._version = -1
        self._changed = (False, False)

    def read(self) -> Frame:
        """Waits for the next frame, over up to three re-opens."""
        lines: tuple[str, ...] = ()
        for reopens in range(_MOST_REOPENS):
            frame, lines = self._once(reopens > 0)
            if frame is not None:
                return frame
        if any(line.startswith(NO_USB_MEMORY) for line in lines):
            raise Error(
                "the kernel has no memory left for a frame; the transfers of all programs share it: echo 64 | sudo tee "
                "/sys/module/usbcore/parameters/usbfs_memory_mb",
                lines,
            )
        raise LostError(f"the camera sends no frames, not even after {_MOST_REOPENS} re-opens", lines)

    @property
    def temperature(self) -> float:
        """Of the sensor, with the latest frame."""
        return float(self._temperatures[self._number])

    def _free_block(self) -> _Block:
        """Memory that nobody uses. When the caller keeps frames, there is new memory for each."""
        blocks = self._blocks
        for _ in range(len(blocks)):
            blocks.rotate()
            if blocks[0].is_free():
                return blocks[0]
        blocks.appendleft(_Block())
        return blocks[0]

    def _once(self, reopened: bool) -> tuple[Optional[Frame], tuple[str, ...]]:
        """One read of the library. No frame when the library had to open the camera again."""
        flags, n, caught = self._open_flags, self._number, self._library.lines
        turn, arrivals, monotonic = self._library.turn, self.arrivals, time.monotonic_ns
        # As call_in_turn(), without its steps in between. The turn also guards what this object has, down to the frame
        # that refers to its memory.
        with turn.next:
            turn.lock.acquire()
        try:
            block = self._free_block()
            flags[n] = _NO_REOPEN
            began = monotonic()
            try:
                caught.enter()
                result = self._call(n, block.images, self._info_address)
                ended, now = monotonic(), time.time()
            finally:
                lines = caught.leave()
            was_found = flags[n] == 1
            if lines or was_found or result <= 0:
                self._note(result, lines, was_found)
                if was_found:
                    return None, lines
            if self._version != self._library.changes:
                self._version, self._changed = self._library.changes, self._is_changed()
            dropped = arrivals.add(began, ended, reopened)
            return Frame(
                block.depth, block.amplitude, arrivals.frames, self._info.nTimeStamp, now, ended, self._temperatures[n],
                self._serial, self._session, dropped, 0, reopened, *self._changed,
            ), lines
        finally:
            turn.lock.release()

    def _note(self, result: int, lines: tuple[str, ...], was_found: bool) -> None:
        self.failed_transfers += sum(line.startswith(TRANSFER_FAILED) for line in lines)
        for line in lines:
            _log.info("library: %s", line)
        self._library.place("m_nReopenTime").value = _BUDGET
        if result <= 0:
            raise LostError(f"the camera is lost (frame read {result})", lines)
        if was_found:
            self.reopens += 1
            self._found_again()
