# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Which frames of several cameras belong together: a judgement on times alone, all CLOCK_MONOTONIC in ns.

It is the judgement of worker/client/nearest.c: of the frames that wait longest, one a camera, the one that was taken last
leads, and every other camera adds the frame that is nearest to it.
"""
from __future__ import annotations

from collections.abc import Sequence
from typing import NamedTuple, Optional

# From the return of the worker's read to the frame's arrival here, at most: corrections, the socket, the scheduler.
_TRANSIT = 8_000_000
_ALWAYS = -(1 << 63)


class Times(NamedTuple):
    """Of the frames of a camera that are there, ascending, and the interval between two, 0 while it is not known."""

    times: Sequence[int]
    interval: int


class Choice(NamedTuple):
    """The index of a frame for each camera; None while a nearer one may come, which is certain only at ``until``."""

    chosen: Optional[list[int]]
    until: Optional[int]


def _certain_from(camera: Times, time: int) -> int:
    """When no frame nearer to ``time`` than the newest one can come any more."""
    newest = camera.times[-1]
    # A read may be late, and the one after it then comes early, but never within half an interval.
    if newest >= time or newest + camera.interval // 2 >= time + (time - newest):
        return _ALWAYS
    return time + (time - newest) + _TRANSIT


def nearest(cameras: Sequence[Times], now: int) -> Choice:
    """Chooses a frame of each camera, if that can be judged by now."""
    if any(not camera.times for camera in cameras):
        return Choice(None, None)
    pivot = max(camera.times[0] for camera in cameras)
    certain = max(_certain_from(camera, pivot) for camera in cameras)
    if now < certain:
        return Choice(None, certain)
    chosen = [min(range(len(times)), key=lambda i: (abs(times[i] - pivot), i)) for times, _ in cameras]
    return Choice(chosen, certain)
