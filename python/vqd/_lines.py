# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What the library prints, caught during its calls and never shown by itself.

The library's lines on standard output are its only error channel. In the GNU C library ``stdout`` is a variable, so a
stream of our own stands there for the time of a call. Descriptor 1 is not touched: what Python, child processes and C++
streams print goes where it always goes. Another thread may print with C's stdio during a call; such text is known by not
being one of the library's lines, and is passed on when the call ends. Of a line that it prints just when a call begins or
ends, the newline may come apart from the text, because puts() looks at the variable twice.

The stream writes to memory and never asks for Python's lock. A callback in its place would wait for that lock while it
holds the stream's own, and a thread that prints while it holds Python's would then wait for ever.
"""
from __future__ import annotations

import atexit
import ctypes
import os
import re

from ._errors import Error

# How the library's lines begin. Some follow the number of a camera.
STARTS = (
    "Could not get Config descriptor", "Device Open Success", "EEPROM Parameter Save Success.", "Error Read Fifo Data",
    "Error in Device not connection", "Error in b1 Control transfer", "Error in b2 Control transfer",
    "Error in b3 Control transfer", "Error in b4 Control transfer", "Error in claiming interface",
    "Error in device connection", "Error in initializing libusb library...", "Error in openning device.",
    "Error: Multi Cam Slave", "FPS Delay Range:", "Lens Parameter Error, Set Default Param", "Max Depth Range:",
    "Min Depth Range:", "Offset Range:", "Orthogonal table ", "RGB error", "ReOpen Error in b2 Control transfer",
    "ReadFromDevice Read Error, Device Reset", "VQD Device ", "VQD EEPROM Parameter Load Fail",
    "VQD device handle error.", "VQD max device", "VQD_Library_Ver", "incorrect Start code", "kernel driver active.",
    "loadorthogonal error", "vqdWriteToDevice ",
)
SAVED = "EEPROM Parameter Save Success."
TRANSFER_FAILED = "ReadFromDevice Read Error, Device Reset2"
NO_USB_MEMORY = "ReadFromDevice Read Error, Device Reset2, -11"
IMAGE_NOT_SENT = "vqdWriteToDevice"

_LINE = re.compile(rb"(?:\d+ )?(?:" + b"|".join(re.escape(start.encode()) for start in STARTS) + rb")[^\n]*\n")
_MOST_KEPT = 1 << 20
_BY_LINES = 1  # _IOLBF


def _pass_on(text: bytes) -> None:
    while text:
        try:
            text = text[os.write(1, text) :]
        except OSError:
            return


class Lines:
    """The stream. enter() and leave() stand around a call of the library; one call at a time.

    Attributes:
        variable: C's stdout.
        stream: ours, as an address.
        before: what stood in the variable before.
        memory: the descriptor to which the stream writes.
        taken: bytes of the memory that have been looked at.
    """

    def __init__(self) -> None:
        libc = ctypes.CDLL(None)
        if not hasattr(libc, "gnu_get_libc_version"):
            raise Error("this C library is not GNU's, and only there can the lines of the camera library be caught")
        self.variable = ctypes.c_void_p.in_dll(libc, "stdout")
        libc.fdopen.restype = ctypes.c_void_p
        libc.fdopen.argtypes = [ctypes.c_int, ctypes.c_char_p]
        self.memory = os.memfd_create("vqd-lines")
        self.stream: int = libc.fdopen(self.memory, b"a")
        # A line comes whole. Without a buffer its end would be another write, and a call could end between the two.
        libc.setvbuf(ctypes.c_void_p(self.stream), None, _BY_LINES, ctypes.c_size_t(1 << 12))
        self._pending = ctypes.PyDLL(None)["__fpending"]  # it waits for nobody
        self._pending.argtypes = [ctypes.c_void_p]
        self._pending.restype = ctypes.c_size_t
        self._flush = libc["fflush"]
        self._flush.argtypes = [ctypes.c_void_p]
        self.before = self.variable.value
        self.taken = 0
        atexit.register(self.restore)

    def restore(self) -> None:
        """Puts C's own stream back, whatever call goes on."""
        if self.variable.value == self.stream:
            self.variable.value = self.before

    def enter(self) -> None:
        """From here on the library's lines are caught."""
        if self.variable.value != self.stream:
            self.before = self.variable.value
        self.variable.value = self.stream

    def leave(self) -> tuple[str, ...]:
        """To here. Returns the library's lines without their ends."""
        self.variable.value = self.before
        if self._pending(self.stream):  # text without an end, or a line that another thread is just writing
            self._flush(self.stream)
        size = os.lseek(self.memory, 0, os.SEEK_END)
        return () if size == self.taken else self.take(size)

    def take(self, size: int) -> tuple[str, ...]:
        """The lines that are in the memory now, which has this size."""
        text = os.pread(self.memory, size - self.taken, self.taken)
        self.taken = size
        if size > _MOST_KEPT:
            os.ftruncate(self.memory, 0)
            self.taken = 0
        lines: list[str] = []
        for part in text.splitlines(keepends=True):
            if _LINE.fullmatch(part):
                lines.append(part.decode("ascii", "replace").strip())
            else:
                _pass_on(part)
        return tuple(lines)
