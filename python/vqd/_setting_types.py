# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What a row of the table of settings says."""
from __future__ import annotations

from typing import NamedTuple, Optional


class Choice(NamedTuple):
    """A value with a meaning. One with models is for these models only."""

    value: int
    meaning: str
    models: tuple[str, ...] = ()


class Value(NamedTuple):
    """One of the numbers of a setting; minimum and maximum are those of whole numbers."""

    name: str
    type: str
    minimum: Optional[int] = None
    maximum: Optional[int] = None
    choices: tuple[Choice, ...] = ()


class Setting(NamedTuple):
    """A setting of the cameras."""

    name: str
    label: str
    unit: Optional[str]
    read_only: bool
    needs_frame: bool
    ascending: bool
    values: tuple[Value, ...]
