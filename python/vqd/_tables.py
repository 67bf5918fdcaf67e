# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The calibration tables in a camera's memory."""
from __future__ import annotations

import logging
import os
import tempfile
from typing import Any, NamedTuple, Optional, Protocol

import numpy as np
import numpy.typing as npt

from ._bus import CameraInfo
from ._eeprom import back_up
from ._errors import Error, UsageError, VerificationError
from ._library import Library, address_of
from ._tool import run_tool

_log = logging.getLogger("vqd")

Values = npt.NDArray[Any]


class _Table(NamedTuple):
    size: int  # bytes
    shape: tuple[int, ...]  # of its values
    kind: str  # how they travel, two bytes each; empty when only the maker knows
    save: str
    flag: Optional[int] = None


_TABLES = {
    "wiggling": _Table(3840, (1920,), "words", "vqdSaveWigglingData"),
    "wiggling-a": _Table(8192, (4096,), "words", "vqdSaveWigglingData2", 0),
    "wiggling-b": _Table(8192, (4096,), "words", "vqdSaveWigglingData2", 1),
    "fppn": _Table(12288, (6144,), "", "vqdSaveFPPNData"),
    "fppn-4x4": _Table(9600, (60, 80), "words", "vqdSaveFPPNData_4x4", 0),
    "fppn-5x5": _Table(6144, (48, 64), "signed", "vqdSaveFPPNData_5x5", 0),
    "orthogonal": _Table(4096, (256, 8), "factors", "vqdSaveOrthogonalData"),
}
_SCALE = {"words": 1, "factors": 10000}


def _named(name: str) -> _Table:
    if name not in _TABLES:
        raise UsageError(f"there is no table {name!r}; the tables are {', '.join(_TABLES)}")
    return _TABLES[name]


def decode(name: str, data: bytes) -> Values:
    """The values in the bytes of a table."""
    table = _named(name)
    if not table.kind:
        raise UsageError(f"{name!r} has no values to show, only bytes")
    if table.kind == "signed":  # a sign byte, 2 or 3 for negative, and a magnitude
        pairs = np.frombuffer(data, np.uint8).reshape(-1, 2).astype(np.int32)
        return np.where(pairs[:, 0] >> 1 == 1, -pairs[:, 1], pairs[:, 1]).reshape(table.shape)
    words = np.frombuffer(data, ">u2").reshape(table.shape)
    return words / _SCALE[table.kind] if table.kind == "factors" else words.astype(np.int32)


def encode(name: str, values: object) -> bytes:
    """The bytes of a table with these values; bytes are taken as they are."""
    table = _named(name)
    if isinstance(values, (bytes, bytearray)):
        if len(values) != table.size:
            raise UsageError(f"the table {name!r} is {table.size} bytes long, not {len(values)}")
        return bytes(values)
    if not table.kind:
        raise UsageError(f"{name!r} is written as bytes, because only the maker knows what they mean")
    array = np.asarray(values)
    if array.shape != table.shape or array.dtype.kind not in "iuf":
        raise UsageError(f"the table {name!r} is an array of numbers with the shape {table.shape}, not {array.shape}")
    if table.kind == "signed":
        if not ((array >= -255) & (array <= 255) & (array == np.trunc(array))).all():
            raise UsageError(f"the table {name!r} holds whole numbers from -255 to 255")
        pairs = np.stack([np.where(array < 0, 2, 0), np.abs(array)], axis=-1)
        return bytes(pairs.astype(np.uint8))
    scaled = np.floor(array * _SCALE[table.kind] + 0.5)
    if not ((scaled >= 0) & (scaled <= 65535)).all():
        raise UsageError(f"the table {name!r} holds numbers from 0 to {65535 / _SCALE[table.kind]:g}")
    return bytes(scaled.astype(">u2"))


class TableOwner(Protocol):
    """A camera in this process."""

    _library: Library

    @property
    def number(self) -> int: ...

    @property
    def info(self) -> CameraInfo: ...

    def _require_written_eeprom(self) -> str: ...


class Tables:
    """The calibration tables of a camera in this process: "wiggling", "wiggling-a", "wiggling-b", "fppn", "fppn-4x4",
    "fppn-5x5" and "orthogonal".

    They are read by the command vqd, past libusb, which on Linux reads none above 4096 bytes. Frames go on meanwhile.
    """

    def __init__(self, owner: TableOwner) -> None:
        self._owner = owner

    def read_bytes(self, name: str) -> bytes:
        """The bytes of a table, as they travel."""
        table, place = _named(name), self._owner.info.place
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "table")
            run_tool("table", "backup", name, path, "--direct", "-c", place.port or f"{place.bus}:{place.address}")
            with open(path, "rb") as file:
                data = file.read()
        if len(data) != table.size:
            raise Error(f"the table {name!r} has {len(data)} bytes instead of {table.size}")
        return data

    def read(self, name: str) -> Values:
        """The values of a table: int32, of "orthogonal" float64 (256, 8), of "fppn-4x4" (60, 80) millimetres."""
        return decode(name, self.read_bytes(name))

    def write(self, name: str, values: object) -> None:
        """Writes values, or bytes as they travel. What the camera held is backed up first, and read back after it.

        The library takes a table into use when the camera is opened the next time.
        """
        data = encode(name, values)
        owner, table = self._owner, _named(name)
        serial = owner._require_written_eeprom()
        before = self.read_bytes(name)
        if before == data:
            return
        _log.info("the table %s as it was is in %s", name, back_up(name, serial, before))
        array = np.frombuffer(data, np.uint8)
        flag = () if table.flag is None else (table.flag,)
        result, lines = owner._library.call(table.save, owner.number, address_of(array), *flag)
        if result != 1:
            raise Error(f"the table {name!r} was not written", lines)
        different = sum(a != b for a, b in zip(self.read_bytes(name), data))
        if different:
            raise VerificationError(f"the table {name!r} reads back with {different} different bytes")
