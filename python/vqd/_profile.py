# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What this machine keeps of a camera beside its EEPROM, put into the library's tables.

docs/profile.md describes the file. ``vqd profile`` writes it, and judges it in full; here its parts are judged as far as
they are used.
"""
from __future__ import annotations

import json
import os
from pathlib import Path
from typing import Any, NamedTuple, Optional

import numpy as np
import numpy.typing as npt

from ._errors import UsageError
from ._frame import HEIGHT, WIDTH
from ._lens import Lens, lens_from
from ._library import Library
from ._records import LensIntrinsic

_MOST_BYTES = 1 << 20
_MEMBERS = {"schema", "serial", "product", "eeprom", "depth", "colour", "orthogonal", "fppn", "poses"}
_RADII = 2048  # factors by radius, eight for each pixel


class Profile(NamedTuple):
    """A profile that was found for a camera."""

    path: str
    eeprom: str
    depth: Optional[Lens]
    colour: Optional[Lens]
    fppn: Optional[npt.NDArray[np.int32]]
    orthogonal_of_lens: bool
    orthogonal: Optional[npt.NDArray[np.float64]]


def fingerprint(eeprom: bytes) -> str:
    """Changes when the lenses in the EEPROM change: a 64-bit FNV-1a hash of bytes 80 to 127."""
    value = 0xCBF29CE484222325
    for byte in eeprom[80:]:
        value = (value ^ byte) * 0x100000001B3 & 0xFFFFFFFFFFFFFFFF
    return f"{value:016x}"


def _numbers(content: dict[str, Any], name: str, count: int, least: float, most: float) -> npt.NDArray[np.float64]:
    given = content[name]
    if not isinstance(given, list) or len(given) != count or any(type(value) not in (int, float) for value in given):
        raise UsageError(f"{name} is not an array of {count} numbers")
    values = np.array(given, dtype=np.float64)
    if not ((values >= least) & (values <= most)).all():
        raise UsageError(f"{name} has a value that is not from {least:g} to {most:g}")
    return values


def _profile_from(content: Any, path: str, serial: str) -> Profile:
    if not isinstance(content, dict) or content.get("schema") != "vqd.profile/1":
        raise UsageError("the schema is not vqd.profile/1")
    unknown = sorted(set(content) - _MEMBERS)
    if unknown:
        raise UsageError(f"there is no member {unknown[0]!r}")
    if content.get("serial") != serial:
        raise UsageError(f"it is the profile of camera {content.get('serial')}")
    lenses = [lens_from(content[name], name) if name in content else None for name in ("depth", "colour")]
    if lenses[0] and not lenses[0].plausible:
        raise UsageError("depth: no camera has such a lens")
    of_lens = content.get("orthogonal") == "lens"
    fppn = _numbers(content, "fppn", 4800, -32768, 65535) if "fppn" in content else None
    if fppn is not None and (fppn != np.trunc(fppn)).any():
        raise UsageError("fppn has a value that is not a whole number of mm")
    by_radius = "orthogonal" in content and not of_lens
    return Profile(
        path,
        str(content.get("eeprom")),
        lenses[0],
        lenses[1],
        None if fppn is None else fppn.astype(np.int32),
        of_lens,
        _numbers(content, "orthogonal", _RADII, 0, 1) if by_radius else None,
    )


def find_profile(serial: str) -> Optional[Profile]:
    """The profile of this user, else that of the machine. Fails for a file that is no profile of this camera."""
    data, home = os.environ.get("XDG_DATA_HOME", ""), os.environ.get("HOME", "")
    folders = [Path("/etc/vqd/profiles")]
    if data.startswith("/") or home.startswith("/"):
        folders.insert(0, (Path(data) if data.startswith("/") else Path(home) / ".local/share") / "vqd/profiles")
    for folder in folders:
        path = folder / f"{serial}.json"
        if not os.path.exists(path):  # nor one in a folder that this user may not look into
            continue
        try:
            with open(path, "rb") as file:
                text = file.read(_MOST_BYTES + 1)
            if len(text) > _MOST_BYTES:
                raise UsageError("it is larger than 1 MiB")
            return _profile_from(json.loads(text), str(path), serial)
        except (OSError, ValueError, RecursionError) as why:
            raise UsageError(f"{path}: {why}; profile=False works without it") from why
    return None


def _factors(profile: Profile, lens: npt.NDArray[np.float32]) -> Optional[npt.NDArray[np.float64]]:
    fx, fy, cx, cy = (float(value) for value in lens)
    dx, dy = np.meshgrid(np.arange(WIDTH) - cx, np.arange(HEIGHT) - cy)
    if profile.orthogonal_of_lens:
        x, y = dx / fx, dy / fy
        return np.asarray(1 / np.sqrt(1 + x * x + y * y), dtype=np.float64)
    if profile.orthogonal is None:
        return None
    radius = np.minimum(np.floor(np.hypot(dx, dy) + 0.5), _RADII // 8 - 1).astype(int)
    return np.asarray(profile.orthogonal[8 * radius], dtype=np.float64)


def apply_profile(library: Library, n: int, profile: Profile) -> None:
    """Puts the values into the library's tables, from which the next frame is made."""
    if profile.depth:
        library.array("m_fIntrinsicParam")[n] = profile.depth.intrinsic
        library.array("m_fDistorParam")[n] = profile.depth.distortion
        library.call("BuildPointCloudTable", LensIntrinsic(*profile.depth.intrinsic))
        library.call("BuildUndistortionMap", n)
    if profile.colour:
        library.array("m_fRGBIntrinsicParam")[n] = profile.colour.intrinsic
        library.array("m_fRGBDistorParam")[n] = profile.colour.distortion
    factors = _factors(profile, library.array("m_fIntrinsicParam")[n])
    if factors is not None:
        library.array("m_dOrthogonalData")[...] = factors
    if profile.fppn is not None:
        library.array("m_nEEPROMFPPNBuf")[...] = profile.fppn.reshape(60, 80)
