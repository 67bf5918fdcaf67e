# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""OpenCV, which Debian ships without types and which only boards need."""
from __future__ import annotations

import importlib
from typing import Any

from .._errors import Error


def opencv() -> Any:
    """The module cv2."""
    try:
        return importlib.import_module("cv2")
    except ImportError as why:
        raise Error("OpenCV is missing, which finds the boards (Debian: python3-opencv)") from why
