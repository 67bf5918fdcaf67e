# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Listing by the library, compared with what is on the bus, and opening one camera of the list."""
from __future__ import annotations

import ctypes

from . import _camera_settings
from ._bus import CameraInfo, list_cameras
from ._errors import Error
from ._library import Library
from ._records import EEPROM_BYTES, IMAGE_BYTES, MAX_DEVICES, DevInfo


def open_listed(library: Library, cameras: list[CameraInfo], chosen: CameraInfo) -> None:
    """Has the library list the cameras and open the chosen one, whose maps and tables are then the library's.

    The library numbers cameras in the order of libusb, as the list does. It calls an EEPROM loaded that it had to make up,
    so its copy is compared with what the camera holds.
    """
    devices, count = (DevInfo * MAX_DEVICES)(), ctypes.c_int(-1)
    result, lines = library.call("vqdGetDeviceList", ctypes.addressof(devices), ctypes.addressof(count))
    if result != 1:
        raise Error("the cameras could not be listed", lines)
    listed = list_cameras()
    if len(listed) != count.value or [one.place for one in listed] != [one.place for one in cameras]:
        raise Error("cameras were plugged in or out while they were listed", lines)
    n = chosen.index
    image = bytes(_camera_settings.image_of(library, n)[:EEPROM_BYTES])
    if chosen.serial is not None and listed[n].eeprom != image:
        raise Error(f"the EEPROM of {chosen.name} could not be read by the library", lines)
    if count.value > 1:  # the library's maps and tables are those of the camera that it loaded last
        again = ctypes.create_string_buffer(IMAGE_BYTES)
        result, lines = library.call("vqdEEPROM_ParameterData_Load", n, ctypes.addressof(again))
        if result != 1 or again.raw[:EEPROM_BYTES] != image:
            raise Error(f"the parameters of {chosen.name} could not be loaded", lines)
    result, lines = library.call("vqdDeviceOpen", n)
    if result != 1:
        raise Error(f"{chosen.name} cannot be opened", lines)
