# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""libVQD_API.so by ctypes: what of it is bound, and how it is called.

The library starts no thread and takes no lock, and its cameras share state. So all calls that touch this state go
through one turn; ctypes lets go of Python's lock meanwhile.
"""
from __future__ import annotations

import ctypes
import os
import threading
from collections.abc import Iterator
from contextlib import contextmanager
from ctypes import c_double, c_float, c_int, c_uint, c_uint8, c_uint16, c_void_p
from typing import Any, Callable, Optional

import numpy as np
import numpy.typing as npt

from ._errors import Error
from ._frame import HEIGHT, WIDTH
from ._lines import Lines
from ._records import FRAME_BYTES, MAX_DEVICES, CamParam, ExtrinsicParam, LensDistortion, LensIntrinsic

_GET = (c_int, [c_int])
_SET = (c_int, [c_int, c_int])
_BYTES = (c_int, [c_int, c_void_p])
_PAIR = (c_int, [c_int, c_void_p, c_void_p])
_LENS = (c_int, [c_int, LensIntrinsic, LensDistortion])
_CHECK = (None, [c_void_p, c_void_p, c_int, c_int, c_int])

# Results and arguments. Every pointer is an address.
FUNCTIONS: dict[str, tuple[Any, list[Any]]] = {
    "vqdGetDeviceList": (c_int, [c_void_p, c_void_p]),
    "vqdDeviceOpen": _GET,
    "vqdDeviceClose": _GET,
    "vqdGrabStart": _GET,
    "vqdGrabStop": _GET,
    "vqdReadFromDevice": (c_int, [c_int, c_void_p, c_void_p]),
    "vqdParameterData_Load": _BYTES,
    "vqdEEPROM_ParameterData_Load": _BYTES,
    "vqdEEPROM_ParameterData_Save": _BYTES,
    "vqdWriteToDevice": _BYTES,
    "vqdGetIntegrationTime": _GET,
    "vqdSetModuleFrequency": _SET,
    "vqdGetModuleFrequency": _GET,
    "vqdSetOffset": _SET,
    "vqdGetOffset": _GET,
    "vqdSetScatterThreshold": _SET,
    "vqdGetScatterThreshold": _GET,
    "vqdSetCheckThreshold": _SET,
    "vqdGetCheckThreshold": _GET,
    "vqdGetDepthRange": _PAIR,
    "vqdSetFlipHorizontal": _SET,
    "vqdGetFlipHorizontal": _GET,
    "vqdSetFlipVertical": _SET,
    "vqdGetFlipVertical": _GET,
    "vqdSetFPSDelay": _SET,
    "vqdGetFPSDelay": _GET,
    "vqdSetMultiSyncMode": _SET,
    "vqdGetMultiSyncMode": _GET,
    "vqdIlluminationOnOff": _SET,
    "vqdGetTemperature": (c_double, [c_int]),
    "vqdGetLogincVersion": _PAIR,
    "vqdSetRemoveEdge": _SET,
    "vqdGetRemoveEdge": _GET,
    "vqdSetRemoveMotionBlur": (c_int, [c_int, c_int, c_int]),
    "vqdGetRemoveMotionBlur": _BYTES,
    "vqdAmplitudeCheckFilter": _CHECK,
    "vqdScatteringCheckFilter": _CHECK,
    "vqdMinMaxCheckFilter": (None, [c_void_p, c_uint, c_uint, c_int, c_int]),
    "vqdSetLensParameter": _LENS,
    "vqdGetLensParameter": _PAIR,
    "vqdSetRGBLensParameter": _LENS,
    "vqdGetRGBLensParameter": _PAIR,
    "vqdSetExtrinsicParameter": (c_int, [c_int, ExtrinsicParam]),
    "vqdGetExtrinsicParameter": _BYTES,
    "vqdSetUndistortion": _SET,
    "vqdGetUndistortion": _GET,
    "vqdDepthFrameToCameraSpace": (None, [c_void_p, c_void_p, c_int, c_int]),
    "vqdSaveWigglingData": _BYTES,
    "vqdSaveWigglingData2": (c_int, [c_int, c_void_p, c_int]),
    "vqdSaveFPPNData": _BYTES,
    "vqdSaveFPPNData_4x4": (c_int, [c_int, c_void_p, c_int]),
    "vqdSaveFPPNData_5x5": (c_int, [c_int, c_void_p, c_int]),
    "vqdSaveOrthogonalData": _BYTES,
    "vqdSetFPPN": _SET,
    "vqdGetFPPN": _GET,
    "vqdSetOrthogonal": _SET,
    "vqdGetOrthogonal": _GET,
    "BuildUndistortionMap": _GET,
    "BuildPointCloudTable": (None, [LensIntrinsic]),
    "device_is_of_interest": (c_int, [c_void_p]),
}

_IMAGE = (HEIGHT, WIDTH)
_EACH = (MAX_DEVICES,)

# The exported tables, switches and values: the type of an element, and the shape as an array.
VARIABLES: dict[str, tuple[Any, tuple[int, ...]]] = {
    "stCamParam": (CamParam, _EACH),
    "m_nDeviceOpen": (c_int, _EACH),
    "m_nDeviceCount": (c_int, ()),
    "m_nReopenTime": (c_int, ()),
    "buffers": (c_uint8, (FRAME_BYTES,)),
    "m_nReadingStop": (c_int, ()),
    "m_nTimeStampStartFlag": (c_int, ()),
    "m_dTemperature": (c_double, _EACH),
    "m_nDepthGab": (c_uint16, ()),
    "m_nEdgeThres": (c_uint8, ()),
    "m_nEdgeDepth": (c_uint8, ()),
    "fAmpScale": (c_float, ()),
    "fScatterScale": (c_float, ()),
    "m_bRemoveEdge": (c_int, ()),
    "m_bFPPN": (c_int, ()),
    "m_bOrthogonal": (c_int, ()),
    "m_nUndistortionMode": (c_int, ()),
    "m_fIntrinsicParam": (c_float, (MAX_DEVICES, 4)),
    "m_fDistorParam": (c_float, (MAX_DEVICES, 6)),
    "m_fRGBIntrinsicParam": (c_float, (MAX_DEVICES, 4)),
    "m_fRGBDistorParam": (c_float, (MAX_DEVICES, 6)),
    "m_fExtrinsicParam": (c_float, (MAX_DEVICES, 12)),
    "m_fXp2": (c_float, _IMAGE),
    "m_fYp2": (c_float, _IMAGE),
    "fDist_x2": (c_float, _IMAGE),
    "fDist_y2": (c_float, _IMAGE),
    "pPointCloud": (c_float, (*_IMAGE, 3)),
    "m_nEEPROMFPPNBuf": (c_int, (60, 80)),
    "m_dOrthogonalData": (c_double, _IMAGE),
}


class Turn:
    """A lock that is given out in the order of asking, so that a thread which reads without a pause lets others in.

    Attributes:
        next: whoever waits for the turn has it, so those behind wait here.
        lock: the turn. Ctrl-C just after it was taken leaves it taken; the same thread gets on all the same.
    """

    def __init__(self) -> None:
        self.next = threading.Lock()
        self.lock = threading.RLock()
        self._holder = 0

    def __enter__(self) -> None:
        if self._holder == threading.get_ident():
            self.lock.acquire()
            return
        with self.next:
            self.lock.acquire()

    def __exit__(self, *_: object) -> None:
        self.lock.release()

    @contextmanager
    def held(self) -> Iterator[None]:
        """For several calls in a row, between which no other thread gets the turn."""
        with self:
            before, self._holder = self._holder, threading.get_ident()
            try:
                yield
            finally:
                self._holder = before


class Library:
    """The loaded library. library() loads it."""

    def __init__(self, path: str) -> None:
        try:
            self._dll = ctypes.CDLL(path)
        except OSError as why:
            raise Error(
                f"the camera library cannot be loaded: {why} (Debian: libvqd-api; VQD_LIBRARY names another file)"
            ) from why
        self.turn = Turn()
        self.lines = Lines()
        self.changes = 0  # of exported values, so that what follows from them is worked out only then
        self.functions: dict[str, Callable[..., Any]] = {}
        for name, (result, arguments) in FUNCTIONS.items():
            function = getattr(self._dll, name)
            function.restype, function.argtypes = result, arguments
            self.functions[name] = function
        self._places: dict[str, Any] = {}
        self._arrays: dict[str, npt.NDArray[Any]] = {}
        for name, (kind, shape) in VARIABLES.items():
            whole = kind
            for length in reversed(shape):
                whole = whole * length
            self._places[name] = whole.in_dll(self._dll, name)
            if shape and not issubclass(kind, ctypes.Structure):
                self._arrays[name] = np.ctypeslib.as_array(self._places[name])

    def call(self, name: str, *arguments: Any) -> tuple[Any, tuple[str, ...]]:
        """Calls a function; returns its result and what the library printed."""
        with self.turn:
            return self.call_in_turn(name, *arguments)

    def call_in_turn(self, name: str, *arguments: Any) -> tuple[Any, tuple[str, ...]]:
        """The same, for callers that have the turn."""
        lines: tuple[str, ...] = ()
        try:
            self.lines.enter()
            result = self.functions[name](*arguments)
        finally:
            lines = self.lines.leave()
        return result, lines

    def place(self, name: str) -> Any:
        """The ctypes object of a value or an array."""
        return self._places[name]

    def array(self, name: str) -> npt.NDArray[Any]:
        """An exported table as a view: what is written to it counts from the next frame on."""
        return self._arrays[name]


class Exported:
    """The library's exported tables, switches and values under their names in VQD_API.h.

    ``vqd.exported.m_dOrthogonalData`` is a numpy view of (240, 320) factors, and ``vqd.exported.m_nDepthGab = 200`` sets
    a value. They count from the next frame on. There is one set for the process, that of the camera in it.
    """

    __slots__ = ()

    def __dir__(self) -> list[str]:
        return [name for name, (kind, _) in VARIABLES.items() if not issubclass(kind, ctypes.Structure)]

    def __getattr__(self, name: str) -> Any:
        if name not in dir(self):
            raise AttributeError(f"the library exports no value {name!r}")
        loaded = library()
        return loaded.array(name) if VARIABLES[name][1] else loaded.place(name).value

    def __setattr__(self, name: str, value: Any) -> None:
        if name not in dir(self):
            raise AttributeError(f"the library exports no value {name!r}")
        loaded = library()
        with loaded.turn:
            loaded.changes += 1
            if VARIABLES[name][1]:
                loaded.array(name)[...] = value
            else:
                loaded.place(name).value = value


exported = Exported()

_loaded: Optional[Library] = None
_loading = threading.Lock()


def _begin_in_child() -> None:
    """A fork copies the turn as it is, though the thread that has it does not exist in the child, and both processes
    would write their lines to one memory."""
    global _loading
    _loading = threading.Lock()
    if _loaded is not None:
        _loaded.turn = Turn()
        _loaded.lines.restore()
        _loaded.lines = Lines()


os.register_at_fork(after_in_child=_begin_in_child)


def library() -> Library:
    """The library: the file that VQD_LIBRARY names, or what the loader finds. Loaded once, at the first use."""
    global _loaded
    if _loaded is None:
        with _loading:
            if _loaded is None:
                _loaded = Library(os.environ.get("VQD_LIBRARY") or "libVQD_API.so")
    return _loaded


def address_of(array: npt.NDArray[Any]) -> int:
    """Where an array's first element is."""
    return int(array.__array_interface__["data"][0])


