# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Means of frames while nothing moves.

The mean of some frames shows corners and depths better than one, but only of a thing that holds still. That is judged in
blocks of pixels, which noise hardly touches: an edge that moves by a third of a pixel changes a block by some percent.
"""
from __future__ import annotations

import warnings
from collections.abc import Iterable, Iterator, Sequence
from typing import NamedTuple, Optional

import numpy as np
import numpy.typing as npt

from .._errors import UsageError
from .._frame import HEIGHT, WIDTH, Frame

Array = npt.NDArray[np.float64]

_BLOCK = 8
_DARK = 30.0  # counts; a darker block is mostly noise
_MOST_CHANGE = 0.04  # of a block's light
_SHARE = 0.98  # of the blocks that must hold still


class Shot(NamedTuple):
    """The mean of some frames: amplitude in counts, and depth in mm, which is no number where half of them had none."""

    amplitude: Array
    depth: Array


def mean_of(frames: Sequence[Frame]) -> Shot:
    """Their mean."""
    amplitude = np.mean([frame.amplitude for frame in frames], axis=0, dtype=np.float64)
    depth = np.array([frame.depth for frame in frames], dtype=np.float64)
    valid = depth > 0
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", RuntimeWarning)  # a pixel that has no depth in any frame
        mean = depth.sum(axis=0) / valid.sum(axis=0)
    mean[2 * valid.sum(axis=0) < len(frames)] = np.nan
    return Shot(amplitude, mean)


def _blocks(frame: Frame) -> Array:
    blocks = frame.amplitude.reshape(HEIGHT // _BLOCK, _BLOCK, WIDTH // _BLOCK, _BLOCK)
    return np.asarray(blocks.mean(axis=(1, 3)), dtype=np.float64)


def _moved(first: Array, now: Array) -> bool:
    light = np.maximum(first, now)
    bright = light > _DARK
    if not bright.any():
        return True
    return bool(np.quantile(np.abs(now - first)[bright] / light[bright], _SHARE) > _MOST_CHANGE)


def still_shots(sets: Iterable[tuple[Frame, ...]], count: int) -> Iterator[Optional[tuple[Shot, ...]]]:
    """For each set of frames of one or several cameras: the means when ``count`` sets have shown the same, else None.

    After a mean there is no other one until something has moved.
    """
    first: Optional[list[Array]] = None
    kept: list[tuple[Frame, ...]] = []
    for frames in sets:
        if not all(frame.amplitude.any() for frame in frames):
            raise UsageError("the frames have no amplitude, in which the board is looked for")
        now = [_blocks(frame) for frame in frames]
        if first is None or any(_moved(one, other) for one, other in zip(first, now)):
            first, kept = now, []
        if len(kept) < count:
            kept.append(frames)
            if len(kept) == count:
                yield tuple(mean_of(views) for views in zip(*kept))
                continue
        yield None
