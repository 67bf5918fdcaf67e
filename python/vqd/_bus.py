# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Cameras as libusb shows them without the camera library: where they are, and what their EEPROM holds.

Each visit has a libusb context of its own and claims nothing, so it disturbs neither the library nor a program that
grabs. The library's own reading is not enough: it does not tell a whole EEPROM from a short answer, or from the factory
settings that it substitutes.
"""
from __future__ import annotations

import ctypes
import os
from collections.abc import Iterator
from contextlib import contextmanager
from ctypes import c_char_p, c_int, c_ssize_t, c_uint8, c_uint16, c_void_p
from dataclasses import dataclass, field
from typing import Any, NamedTuple, Optional

from ._errors import AccessError, Error, NoCameraError
from ._library import library
from ._records import EEPROM_BYTES

_VENDOR_IN = 0xC0
_READ_EEPROM = 0xB8
_EEPROM_REGION = 0x1200
_TIMEOUT_MS = 1000
_SIGNATURE = (4, 0x81)  # offset and value in every EEPROM that was written
_SERIAL = slice(57, 64)


class _Descriptor(ctypes.Structure):
    _fields_ = [
        ("bLength", c_uint8), ("bDescriptorType", c_uint8), ("bcdUSB", c_uint16), ("bDeviceClass", c_uint8),
        ("bDeviceSubClass", c_uint8), ("bDeviceProtocol", c_uint8), ("bMaxPacketSize0", c_uint8),
        ("idVendor", c_uint16), ("idProduct", c_uint16), ("bcdDevice", c_uint16), ("iManufacturer", c_uint8),
        ("iProduct", c_uint8), ("iSerialNumber", c_uint8), ("bNumConfigurations", c_uint8),
    ]


class Place(NamedTuple):
    """Where a camera is plugged in."""

    bus: int
    address: int
    port: str  # "1-2.3" is port 3 of the hub at port 2 of bus 1; empty when it is unknown

    @property
    def node(self) -> str:
        """The device node."""
        return f"/dev/bus/usb/{self.bus:03d}/{self.address:03d}"


@dataclass(frozen=True)
class CameraInfo:
    """A camera on the bus.

    Attributes:
        index: in the order of libusb, from 0.
        serial: 14 digits; None when the EEPROM cannot be read or was never written.
        product: the model, such as "VQD-HT120".
        port: the place where it is plugged in, such as "1-2.3", which stays the same when it is plugged in again.
        bus: number of the bus.
        address: on the bus; another one each time it is plugged in.
        usb: vendor and product id, such as "03a4:871a".
        eeprom: its 128 bytes; empty when they cannot be read.
    """

    index: int
    serial: Optional[str]
    product: str
    port: str
    bus: int
    address: int
    usb: str
    eeprom: bytes = field(repr=False)

    @property
    def place(self) -> Place:
        """Where it is plugged in."""
        return Place(self.bus, self.address, self.port)

    @property
    def name(self) -> str:
        """For messages."""
        return f"camera {self.serial or 'without a serial number'} at {self.port or f'{self.bus:03d}:{self.address:03d}'}"


def _libusb() -> Any:
    usb = ctypes.CDLL("libusb-1.0.so.0")
    for name, result, arguments in (
        ("libusb_get_device_list", c_ssize_t, [c_void_p, c_void_p]),
        ("libusb_free_device_list", None, [c_void_p, c_int]),
        ("libusb_exit", None, [c_void_p]),
        ("libusb_get_bus_number", c_uint8, [c_void_p]),
        ("libusb_get_device_address", c_uint8, [c_void_p]),
        ("libusb_get_port_numbers", c_int, [c_void_p, c_void_p, c_int]),
        ("libusb_get_device_descriptor", c_int, [c_void_p, c_void_p]),
        ("libusb_open", c_int, [c_void_p, c_void_p]),
        ("libusb_close", None, [c_void_p]),
        ("libusb_get_string_descriptor_ascii", c_int, [c_void_p, c_uint8, c_char_p, c_int]),
        ("libusb_control_transfer", c_int,
         [c_void_p, c_uint8, c_uint8, c_uint16, c_uint16, c_char_p, c_uint16, ctypes.c_uint]),
    ):
        function = getattr(usb, name)
        function.restype, function.argtypes = result, arguments
    return usb


@contextmanager
def _camera_devices() -> Iterator[tuple[Any, list[int]]]:
    loaded = library()  # also loads the libusb that the library uses
    usb = _libusb()
    context = c_void_p()
    if usb.libusb_init(ctypes.byref(context)) != 0:
        raise Error("libusb does not start")
    devices = ctypes.POINTER(c_void_p)()
    count = 0
    try:
        count = usb.libusb_get_device_list(context, ctypes.byref(devices))
        of_interest = loaded.functions["device_is_of_interest"]
        yield usb, [devices[i] for i in range(max(count, 0)) if of_interest(devices[i])]
    finally:
        if count > 0:
            usb.libusb_free_device_list(devices, 1)
        usb.libusb_exit(context)


def _place_of(usb: Any, device: int) -> Place:
    ports = (c_uint8 * 7)()  # USB allows no longer chain of hubs
    count = usb.libusb_get_port_numbers(device, ports, len(ports))
    bus = usb.libusb_get_bus_number(device)
    port = f"{bus}-" + ".".join(str(ports[i]) for i in range(count)) if count > 0 else ""
    return Place(bus, usb.libusb_get_device_address(device), port)


def _info_of(usb: Any, device: int, index: int) -> CameraInfo:
    descriptor = _Descriptor()
    usb.libusb_get_device_descriptor(device, ctypes.byref(descriptor))
    product, eeprom = "", b""
    handle = c_void_p()
    if usb.libusb_open(device, ctypes.byref(handle)) == 0:
        text = ctypes.create_string_buffer(256)
        if usb.libusb_get_string_descriptor_ascii(handle, descriptor.iProduct, text, len(text)) > 0:
            product = text.value.decode("ascii", "replace")
        data = ctypes.create_string_buffer(EEPROM_BYTES)
        moved = usb.libusb_control_transfer(
            handle, _VENDOR_IN, _READ_EEPROM, _EEPROM_REGION, 0, data, EEPROM_BYTES, _TIMEOUT_MS
        )
        eeprom = data.raw if moved == EEPROM_BYTES else b""
        usb.libusb_close(handle)
    place = _place_of(usb, device)
    return CameraInfo(
        index, serial_in(eeprom), product, place.port, place.bus, place.address,
        f"{descriptor.idVendor:04x}:{descriptor.idProduct:04x}", eeprom,
    )


def serial_in(eeprom: bytes) -> Optional[str]:
    """The serial number in an EEPROM, if it was ever written."""
    offset, value = _SIGNATURE
    return eeprom[_SERIAL].hex() if len(eeprom) == EEPROM_BYTES and eeprom[offset] == value else None


def list_cameras() -> list[CameraInfo]:
    """The attached cameras, in the library's order. Claims nothing, and may be called while cameras grab."""
    with _camera_devices() as (usb, devices):
        return [_info_of(usb, device, index) for index, device in enumerate(devices)]


def read_eeprom(place: Place) -> bytes:
    """The 128 bytes that the camera at this place keeps."""
    with _camera_devices() as (usb, devices):
        for device in devices:
            if _place_of(usb, device)[:2] == place[:2]:
                eeprom = _info_of(usb, device, 0).eeprom
                if eeprom:
                    return eeprom
                raise Error(f"the EEPROM of the camera at {place.port or place.node} could not be read")
    raise NoCameraError(f"the camera at {place.port or place.node} is gone")


def choose(cameras: list[CameraInfo], name: Optional[str]) -> CameraInfo:
    """The camera with this index, serial number, port or BUS:ADDRESS; the only one when no name is given."""
    if not cameras:
        raise NoCameraError("no camera found")
    if name is None:
        if len(cameras) > 1:
            raise NoCameraError(f"several cameras are attached, so choose one: {_names(cameras)}")
        return cameras[0]
    found = [camera for camera in cameras if name in (str(camera.index), camera.serial, camera.port)
             or _is_address(name, camera)]
    if not found:
        raise NoCameraError(f"no camera has the index, serial number, port or BUS:ADDRESS {name}: {_names(cameras)}")
    if len(found) > 1:
        raise NoCameraError(f"several cameras have the serial number {name}; choose by port")
    return found[0]


def _is_address(name: str, camera: CameraInfo) -> bool:
    bus, colon, address = name.partition(":")
    return colon == ":" and bus.isdecimal() and address.isdecimal() and (int(bus), int(address)) == camera.place[:2]


def _names(cameras: list[CameraInfo]) -> str:
    return ", ".join(f"{camera.serial or '-'} at {camera.port}" for camera in cameras)


def require_access(cameras: list[CameraInfo]) -> None:
    """Fails for a camera whose node this user may not open. The permission bits alone would miss a container's rules."""
    for camera in cameras:
        try:
            os.close(os.open(camera.place.node, os.O_RDWR | os.O_CLOEXEC))
        except OSError as why:
            raise AccessError(
                f"a camera is attached but {camera.place.node} cannot be opened: {why.strerror}"
            ) from why
