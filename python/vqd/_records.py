# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The records of the library's interface, as VQD_API.h lays them out."""
from __future__ import annotations

import ctypes
from ctypes import c_char, c_double, c_float, c_int16, c_int32, c_int64, c_uint8, c_uint16, c_uint32, c_uint64

MAX_DEVICES = 10
PIXELS = 76800
FRAME_BYTES = 307712
IMAGE_BYTES = 512
EEPROM_BYTES = 128


class DevInfo(ctypes.Structure):
    """The identity of one camera."""

    _fields_ = [
        ("nIndex", c_int32),
        ("szReserved", c_char * 256),
        ("szVendorName", c_char * 256),
        ("szDeviceName", c_char * 256),
        ("szSerialNumber", c_char * 256),
        ("nVendorId", c_uint16),
        ("nProductId", c_uint16),
        ("nModelFlag", c_uint16),
        ("nReserved", c_uint16),
    ]


class FrameInfo(ctypes.Structure):
    """What is known of a stream's latest frame."""

    _fields_ = [("nWidth", c_uint32), ("nHeight", c_uint32), ("nFrameCount", c_uint64), ("nTimeStamp", c_int64)]


class CamParam(ctypes.Structure):
    """A camera's parameter image and the values decoded from it."""

    _fields_ = [
        ("image", c_uint8 * IMAGE_BYTES),
        ("nMaxDistance", c_uint16),
        ("nModFrequency", c_uint16),
        ("nIntegrationTime", c_uint16),
        ("nOffset", c_int16),
        ("nThreshold", c_uint16),
        ("nMaxDepth", c_int32),
        ("nMinDepth", c_int32),
    ]


class StreamTimer(ctypes.Structure):
    """The times of one stream."""

    _fields_ = [("init", c_double), ("start", c_int64), ("latest", c_int64)]


class Point3f(ctypes.Structure):
    """A point in depth space or in camera space."""

    _fields_ = [("x", c_float), ("y", c_float), ("z", c_float)]


class LensIntrinsic(ctypes.Structure):
    """The intrinsic parameters of a lens."""

    _fields_ = [("fx", c_float), ("fy", c_float), ("cx", c_float), ("cy", c_float)]


class LensDistortion(ctypes.Structure):
    """The distortion of a lens."""

    _fields_ = [(name, c_float) for name in ("k1", "k2", "k3", "p1", "p2", "skew")]


class ExtrinsicParam(ctypes.Structure):
    """A rigid transform: the matrix row by row, then the translation."""

    _fields_ = [
        (name, c_float)
        for name in ("r11", "r12", "r13", "r21", "r22", "r23", "r31", "r32", "r33", "tx", "ty", "tz")
    ]
