# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""How each setting is read and set by the library: a row for each, in the order of the table.

Some of the library's setters refuse what cameras come with, such as the factory's depth range. There the bytes of the
parameter image are written instead, as the command ``vqd set`` does.
"""
from __future__ import annotations

import ctypes
from collections.abc import Iterable
from ctypes import c_int, c_uint, c_uint8
from typing import Any, Callable, NamedTuple, Optional

from ._errors import SettingError, VerificationError
from ._library import Library
from ._lines import IMAGE_NOT_SENT
from ._records import IMAGE_BYTES
from ._settings import Assignment, values_text

# Bytes of the parameter image.
GRAB = 11
_DEPTH_RANGE = 20  # two pairs, big-endian
_MULTI_CAM = 40  # three bytes
_MOTION_BLUR_LEVEL = 66  # twice


def image_of(library: Library, n: int) -> bytearray:
    """The host's copy of the parameter image."""
    image = (c_uint8 * IMAGE_BYTES)()
    result, lines = library.call("vqdParameterData_Load", n, ctypes.addressof(image))
    if result != 1:
        raise SettingError("the settings could not be read", lines)
    return bytearray(image)


Sent = tuple[int, tuple[str, ...]]


def _send(library: Library, n: int, offset: int, values: Iterable[int]) -> Sent:
    image = image_of(library, n)
    for i, value in enumerate(values):
        image[offset + i] = value
    data = (c_uint8 * IMAGE_BYTES).from_buffer(image)
    return library.call("vqdWriteToDevice", n, ctypes.addressof(data))


def _depth_range(library: Library, n: int) -> list[int]:
    least, most = c_int(), c_int()
    library.call("vqdGetDepthRange", n, ctypes.addressof(least), ctypes.addressof(most))
    return [least.value, most.value]


def _set_depth_range(library: Library, n: int, least: int, most: int) -> Sent:
    return _send(library, n, _DEPTH_RANGE, [least >> 8, least & 255, most >> 8, most & 255])


def _motion_blur(library: Library, n: int) -> list[int]:
    level = c_uint()
    on, _ = library.call("vqdGetRemoveMotionBlur", n, ctypes.addressof(level))
    return [on, level.value]


def _set_motion_blur(library: Library, n: int, on: int, level: int) -> Sent:
    sent = library.call("vqdSetRemoveMotionBlur", n, on, level)
    if on == 0 and sent[0] == 1:  # the library's setter drops the level when it switches off
        sent = _send(library, n, _MOTION_BLUR_LEVEL, [level, level])
    return sent


def _multi_cam(library: Library, n: int) -> list[int]:
    return list(image_of(library, n)[_MULTI_CAM : _MULTI_CAM + 3])


def _set_multi_cam(library: Library, n: int, *values: int) -> Sent:
    return _send(library, n, _MULTI_CAM, values)


def _illumination(library: Library, n: int) -> int:
    return image_of(library, n)[GRAB]


def _logic_version(library: Library, n: int) -> str:
    first, second = c_int(), c_int()
    library.call("vqdGetLogincVersion", n, ctypes.addressof(first), ctypes.addressof(second))
    return f"{first.value}.{second.value}"


class _Row(NamedTuple):
    get: Callable[[Library, int], Any]
    set: Optional[Callable[..., Sent]] = None


def _by(getter: str, setter: Optional[str]) -> _Row:
    def get(library: Library, n: int) -> Any:
        return library.call(getter, n)[0]

    def set_one(library: Library, n: int, value: int) -> Sent:
        return library.call(str(setter), n, value)

    return _Row(get, set_one if setter else None)


def _pair(name: str) -> _Row:
    return _by(f"vqdGet{name}", f"vqdSet{name}")


ROWS: dict[str, _Row] = {
    "frequency": _pair("ModuleFrequency"),
    "integration-time": _by("vqdGetIntegrationTime", None),
    "offset": _pair("Offset"),
    "scatter-threshold": _pair("ScatterThreshold"),
    "check-threshold": _pair("CheckThreshold"),
    "depth-range": _Row(_depth_range, _set_depth_range),
    "flip-horizontal": _pair("FlipHorizontal"),
    "flip-vertical": _pair("FlipVertical"),
    "fps-delay": _pair("FPSDelay"),
    "multi-cam": _Row(_multi_cam, _set_multi_cam),
    "multi-sync": _pair("MultiSyncMode"),
    "illumination": _Row(_illumination, _by("", "vqdIlluminationOnOff").set),
    "remove-edge": _pair("RemoveEdge"),
    "motion-blur": _Row(_motion_blur, _set_motion_blur),
    "undistortion": _pair("Undistortion"),
    "fppn": _pair("FPPN"),
    "orthogonal": _pair("Orthogonal"),
    "temperature": _by("vqdGetTemperature", None),
    "logic-version": _Row(_logic_version),
}


def read(library: Library, n: int, name: str) -> Any:
    """A number, a text, or a list of several numbers."""
    return ROWS[name].get(library, n)


def write(library: Library, n: int, assignment: Assignment) -> None:
    """Sends one. Fails when the library, the transfer or the camera refuses it."""
    setting, numbers = assignment
    setter = ROWS[setting.name].set
    assert setter is not None
    result, lines = setter(library, n, *numbers)
    shown = numbers[0] if len(numbers) == 1 else numbers
    if result == 1:
        return
    if any(line.startswith(IMAGE_NOT_SENT) for line in lines):
        raise SettingError(f"{setting.name} is not set: its transfer to the camera failed or was refused", lines)
    raise SettingError(f"{setting.name} = {shown} was refused; it takes {values_text(setting)}", lines)


def require_taken(library: Library, n: int, assignments: list[Assignment]) -> None:
    """Fails when the camera has another value: some models take every value and keep what they have.

    The host clips with a depth range only once it has been read back, so this also puts it into force.
    """
    for setting, numbers in assignments:
        has = read(library, n, setting.name)
        if (tuple(has) if isinstance(has, list) else (has,)) != numbers:
            wanted = numbers[0] if len(numbers) == 1 else numbers
            raise VerificationError(f"{setting.name} is {has} instead of {wanted}")
