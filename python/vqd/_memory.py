# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The EEPROM of a camera in this process: settings and lenses that stay."""
from __future__ import annotations

import ctypes
import logging
import math
from dataclasses import replace
from typing import Any, Optional, Protocol

from . import _camera_settings
from ._bus import CameraInfo, read_eeprom, serial_in
from ._eeprom import back_up, eeprom_from, save_turn
from ._errors import Error, UsageError, VerificationError
from ._lens import Extrinsics, Lens
from ._library import Library, address_of
from ._lines import SAVED
from ._records import EEPROM_BYTES, ExtrinsicParam, LensDistortion, LensIntrinsic

_log = logging.getLogger("vqd")

# Steps in which the EEPROM holds a lens, and the largest number of them: focal lengths and centre, distortion.
_INTRINSIC = (10, 65535)
_RADIAL = (1000, 32767)
_TANGENTIAL = {"depth": (100, 32767), "colour": (1000, 32767)}


class MemoryOwner(Protocol):
    """A camera in this process."""

    _library: Library
    _info: CameraInfo

    @property
    def number(self) -> int: ...

    def _stopped(self) -> Any: ...

    def _loaded(self, profile: bool) -> None: ...

    @property
    def profile(self) -> Optional[str]: ...

    def _require_written_eeprom(self) -> str: ...

    def _require_open(self) -> None: ...


def _held(value: float, scale: int, most: int, name: str) -> float:
    """The nearest value that the EEPROM holds, such that the library, which cuts off, stores it."""
    steps = round(value * scale) if math.isfinite(value) else most + 1
    if abs(steps) > most or (steps < 0 and most == _INTRINSIC[1]):
        raise UsageError(f"{name} = {value:g} is more than the EEPROM can hold")
    return (steps + math.copysign(0.25, steps)) / scale if steps else 0.0


class Memory:
    """What a camera keeps without power."""

    def __init__(self, owner: MemoryOwner) -> None:
        self._owner = owner

    def read(self) -> bytes:
        """The 128 bytes, from the camera."""
        self._owner._require_open()
        return read_eeprom(self._owner._info.place)

    def save(self) -> bool:
        """Writes the present settings."""
        owner = self._owner
        serial, before = owner._require_written_eeprom(), self.read()
        # A camera does not start to capture by itself, so the settings are saved with light and capture off.
        image = _camera_settings.image_of(owner._library, owner.number)
        image[_camera_settings.GRAB] = 0
        return self._write(serial, before, bytes(image[:EEPROM_BYTES]), at_once=False)

    def _write(self, serial: str, before: bytes, wanted: bytes, at_once: bool) -> bool:
        owner = self._owner
        if before == wanted:
            return False
        with owner._stopped(), save_turn(serial, at_once):
            if before:
                _log.info("the EEPROM as it was is in %s", back_up("eeprom", serial, before))
            data = ctypes.create_string_buffer(wanted, EEPROM_BYTES)
            address = ctypes.addressof(data)
            result, lines = owner._library.call("vqdEEPROM_ParameterData_Save", owner.number, address)
            if result != 1 or SAVED not in lines:  # the result is 1 even if the camera has refused
                raise Error("the EEPROM was not written", lines)
            self._require_stored(wanted)
        return True

    def _require_stored(self, wanted: bytes) -> None:
        if self.read() != wanted:
            raise VerificationError("the EEPROM does not hold what was written")

    def restore(self, backup: Any, force: bool) -> bool:
        """Writes a backup, and has the library load it."""
        owner = self._owner
        wanted = eeprom_from(backup, force)
        serial = owner._info.serial
        if not force:
            owner._require_written_eeprom()
            if serial_in(wanted) != serial:
                raise UsageError(
                    f"the backup is that of camera {serial_in(wanted)}, not of {serial}; force=True writes it all the same"
                )
        try:
            before = self.read()
        except Error:
            if not force:
                raise
            before = b""
        written = self._write(serial or "unknown", before, wanted, at_once=force)
        with owner._stopped():
            image = ctypes.create_string_buffer(512)
            result, lines = owner._library.call("vqdEEPROM_ParameterData_Load", owner.number, ctypes.addressof(image))
            if result != 1 or image.raw[:EEPROM_BYTES] != wanted:
                raise Error("the restored EEPROM could not be loaded", lines)
        self._has_changed(wanted)
        return written

    def _has_changed(self, eeprom: bytes) -> None:
        owner = self._owner
        owner._info = replace(owner._info, eeprom=eeprom, serial=serial_in(eeprom))
        owner._loaded(owner.profile is not None)

    def write_lens(
        self, depth: Optional[Lens], colour: Optional[Lens], extrinsics: Optional[Extrinsics], force: bool
    ) -> None:
        """Writes them by the library's setters, which save the EEPROM themselves."""
        owner = self._owner
        if depth and not depth.plausible and not force:
            raise UsageError(f"the depth lens is not plausible: {depth}; force=True writes it all the same")
        calls: list[tuple[Any, ...]] = []
        if depth:
            calls.append(("vqdSetLensParameter", *_lens_records(depth, "depth")))
        if colour:
            calls.append(("vqdSetRGBLensParameter", *_lens_records(colour, "colour")))
        if extrinsics:
            calls.append(("vqdSetExtrinsicParameter", self._extrinsic_record(extrinsics)))
        if not calls:
            raise UsageError("there is neither a lens nor a transform to write")
        serial = owner._require_written_eeprom()
        before = self.read()
        with owner._stopped(), save_turn(serial):
            _log.info("the EEPROM as it was is in %s", back_up("eeprom", serial, before))
            for function, *records in calls:
                result, lines = owner._library.call(function, owner.number, *records)
                if result != 1 or SAVED not in lines:
                    raise Error("the lens was not written", lines)
            image = bytes(_camera_settings.image_of(owner._library, owner.number)[:EEPROM_BYTES])
            self._require_stored(image)
            self._take_into_use()
        self._has_changed(image)

    def _take_into_use(self) -> None:
        """The getters decode what is stored into the lenses in use; rays and maps follow from them."""
        owner = self._owner
        loaded, n = owner._library, owner.number
        for kind, function in (("", "vqdGetLensParameter"), ("RGB", "vqdGetRGBLensParameter")):
            k, d = loaded.array(f"m_f{kind}IntrinsicParam")[n], loaded.array(f"m_f{kind}DistorParam")[n]
            loaded.call(function, n, address_of(k), address_of(d))
        loaded.call("vqdGetExtrinsicParameter", n, address_of(loaded.array("m_fExtrinsicParam")[n]))
        loaded.call("BuildPointCloudTable", LensIntrinsic(*loaded.array("m_fIntrinsicParam")[n].tolist()))
        loaded.call("BuildUndistortionMap", n)

    def _extrinsic_record(self, extrinsics: Extrinsics) -> ExtrinsicParam:
        owner = self._owner
        given = [value for row in extrinsics.rotation for value in row] + list(extrinsics.translation)
        present = owner._library.array("m_fExtrinsicParam")[owner.number].tolist()
        values = [old if new is None else new for old, new in zip(present, given)]
        for value in values:
            _held(value, 10000, 32767, "extrinsics")
        return ExtrinsicParam(*values)


def _lens_records(lens: Lens, name: str) -> tuple[LensIntrinsic, LensDistortion]:
    steps = [_RADIAL, _RADIAL, _RADIAL, _TANGENTIAL[name], _TANGENTIAL[name], _RADIAL]
    return (
        LensIntrinsic(*(_held(value, *_INTRINSIC, f"{name}.f or .c") for value in lens.intrinsic)),
        LensDistortion(*(_held(value, *step, f"{name}.k, .p or .skew") for value, step in zip(lens.distortion, steps))),
    )
