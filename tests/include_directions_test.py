#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Includes point downwards: a file sees its own folder and what the row of its folder names."""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

# They describe the camera rather than the library, so programs around the library read them too.
CAMERA = """src/config/param_image.h src/device/base/models.h src/device/base/usb_ids.h src/geometry/lens_fields.h
            src/usb/vendor_channel.h"""
SEES = {
    "src/simd": "",
    "src/device/base": "include",
    "src/usb": "include src/device/base",
    "src/config": "include src/device/base src/usb",
    "src/geometry": "include src/device/base src/usb src/config src/simd",
    "src/calib": "include src/device/base src/usb src/config",
    "src/frame": "include src/device/base src/usb src/config src/simd",
    "src/device": "include src/device/base src/usb src/config src/geometry src/calib src/frame",
    "sim": "",
    "host": "include " + CAMERA,
    "measure": "include",
    "worker": "include host measure recording/recorder.h",
    "worker/client": "worker/wire.h",
    "recording": "include host sim messages.h worker/sink.h worker/recording_sink.h worker/wire.h worker/packing.h " + CAMERA,
    "serve": "include host worker",
    "ros": "include host worker worker/client recording messages.h " + CAMERA,
    "gstreamer": "worker/client",
    "tools/vqd": "include host measure sim worker worker/client recording serve messages.h " + CAMERA,
}
# The single files ask libusb about cameras that the library has not listed.
SEES_LIBUSB = """src/device/base src/device src/usb sim
                 host/bus_view.cpp tools/vqd/doctor_camera.cpp tools/vqd/udev_events.cpp"""


def faults(path):
    folder, name = path.parent.relative_to(ROOT).as_posix(), path.relative_to(ROOT).as_posix()
    if folder not in SEES:
        yield f"{name}: the folder has no row in {Path(__file__).name}"
        return
    allowed = [folder, *SEES[folder].split()]
    for bracket, target in re.findall(r'^#\s*include ([<"])([^">]+)', path.read_text(), re.MULTILINE):
        if bracket == '"':
            places = [place for place in (path.parent, ROOT / "src", ROOT, ROOT / "include") if (place / target).is_file()]
            seen = (places[0] / target).resolve().relative_to(ROOT) if places else Path(target)
            if seen.as_posix() not in allowed and seen.parent.as_posix() not in allowed:
                yield f"{name} must not include {seen}"
        elif "libusb.h" in target and not {folder, name} & set(SEES_LIBUSB.split()):
            yield f"{name} must not include {target}"


FOLDERS = ("src", "sim", "host", "measure", "recording", "worker", "serve", "ros", "gstreamer", "tools")
files = [path for top in FOLDERS for path in sorted((ROOT / top).rglob("*")) if path.suffix in (".h", ".c", ".cpp")]
found = [fault for path in files for fault in faults(path)]
print("\n".join(found) or f"{len(files)} files, every include points downwards")
sys.exit(bool(found or not files))
