# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Calibration of cameras: the command vqd-calibrate, which docs/calibrate.md describes."""
from __future__ import annotations

from ._command import main

__all__ = ["main"]
