# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Flat walls: the plane that a depth image shows, and the offset of each block of pixels that several walls agree upon.

A plane is 1 / z = a + b x + c y along the ray (x, y). One wall cannot tell a wall that is tilted from offsets that are;
walls at several distances and tilts can, because the depth of a tilted wall is no linear function of the ray.
"""
from __future__ import annotations

import warnings
from collections.abc import Sequence
from typing import NamedTuple, Optional

import numpy as np
import numpy.typing as npt

from .._errors import Error
from .._frame import HEIGHT, WIDTH

Array = npt.NDArray[np.float64]

BLOCK = 4
BLOCK_ROWS, BLOCK_COLUMNS = HEIGHT // BLOCK, WIDTH // BLOCK
_LEAST_PIXELS = 0.5  # of the image
_LEAST_IN_BLOCK = 8
NOT_FLAT = 60.0  # mm rms; no pattern of a sensor is so large
_NOT_ONE_WALL = 15.0  # mm rms that walls differ by once the offsets are taken off; the error that goes with distance is in it
_MOST_UNCERTAIN = 1.5  # mm rms over the blocks
_TAPE = 1.0  # mm, deviation of a distance that was measured
# What a lens leaves wrong, as a share of the depth. It is the same over large parts of an image, so that thousands of blocks
# tell no more than some hundredth of them, and a measured distance goes before them.
_LENS_ERROR = 5e-4 * 10
_MOST_MISMATCH = 20.0  # mm between a measured distance and that which all walls together give
_ROUNDS, _DONE = 20, 1e-3  # steps, and the mm that end them
_MEDIAN_SQUARE = 0.455  # median of the square of a normal deviation
_NOTHING = 1e-14


class Plane(NamedTuple):
    """A wall: where it crosses the optical axis, how its right and its lower side are turned away, and what is left, in mm
    and degrees."""

    distance: float
    right: float
    lower: float
    rms: float
    pixels: int


def _depths(plane: Array, rays: Array) -> Array:
    return np.asarray(1 / (plane[0] + rays[..., 0] * plane[1] + rays[..., 1] * plane[2]), dtype=np.float64)


def _slopes(plane: Array, rays: Array) -> Array:
    """Of the depths after a, b and c."""
    square = -(_depths(plane, rays) ** 2)
    return np.stack([square, square * rays[..., 0], square * rays[..., 1]], axis=-1)


def _fitted(depth: Array, rays: Array) -> Array:
    valid = np.isfinite(depth) & np.isfinite(rays).all(axis=-1)
    if valid.sum() < _LEAST_PIXELS * depth.size:
        raise Error(f"only {valid.mean():.0%} of the pixels have a depth; the wall must fill the image")
    z, directions = depth[valid], rays[valid]
    lines = np.column_stack([np.ones(len(z)), directions])
    plane = np.linalg.lstsq(lines * z[:, None], np.ones(len(z)), rcond=None)[0]
    for _ in range(3):
        plane = plane + np.linalg.lstsq(_slopes(plane, directions), z - _depths(plane, directions), rcond=None)[0]
    return np.asarray(plane)


def plane_of(depth: Array, rays: Array) -> Plane:
    """The plane with the least errors along the optical axis. ``rays`` are (240, 320, 2)."""
    plane = _fitted(depth, rays)
    errors = depth - _depths(plane, rays)
    a, b, c = plane
    return Plane(
        float(1 / a), float(np.degrees(np.arctan2(-b, a))), float(np.degrees(np.arctan2(-c, a))),
        float(np.sqrt(np.nanmean(errors**2))), int(np.isfinite(errors).sum()),
    )


def _blocks(image: Array) -> Array:
    """Means of blocks, (60, 80, ...)."""
    shape = (BLOCK_ROWS, BLOCK, BLOCK_COLUMNS, BLOCK, *image.shape[2:])
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", RuntimeWarning)  # blocks without a number
        return np.asarray(np.nanmean(image.reshape(shape), axis=(1, 3)))


def _around(blocks: Array) -> Array:
    """The mean of each block and its eight neighbours, as far as they have a value."""
    framed = np.pad(blocks, 1, constant_values=np.nan)
    rows, columns = blocks.shape
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", RuntimeWarning)
        mean = np.nanmean([framed[r : r + rows, c : c + columns] for r in range(3) for c in range(3)], axis=0)
    return np.asarray(mean, dtype=np.float64)


class Offsets(NamedTuple):
    """What to add to the depth of each block, (60, 80) mm; blocks that no wall showed have their neighbours' value."""

    values: Array
    planes: list[Array]
    uncertainty: float  # rms deviation of what the blocks have in common, in mm
    disagreement: float  # rms of what the walls differ by, in mm
    filled: int


def _filled(offsets: Array) -> tuple[Array, int]:
    values, empty = offsets.copy(), int(np.isnan(offsets).sum())
    while np.isnan(values).any():
        values = np.where(np.isnan(values), _around(values), values)
    return values, empty


class _Seen(NamedTuple):
    """A wall in blocks: which pixels have a depth (1, else no number), the means, and which blocks have enough pixels."""

    mask: Array
    blocks: Array
    enough: npt.NDArray[np.bool_]


def _seen(depth: Array) -> _Seen:
    valid = np.isfinite(depth)
    enough = _blocks(valid.astype(float)) * BLOCK**2 >= _LEAST_IN_BLOCK
    return _Seen(np.where(valid, 1.0, np.nan), _blocks(depth), enough)


def _starting_planes(depths: Sequence[Array], rays: Array) -> list[Array]:
    planes = [_fitted(depth, rays) for depth in depths]
    for number, (plane, depth) in enumerate(zip(planes, depths), 1):
        rest = float(np.sqrt(np.nanmean((depth - _depths(plane, rays)) ** 2)))
        if not rest <= NOT_FLAT:
            raise Error(f"wall {number} is not flat: its depth misses a plane by {rest:.0f} mm rms")
    return planes


def _missed(planes: Sequence[Array], walls: Sequence[_Seen], rays: Array) -> Array:
    """What each wall's blocks are short of its plane, (walls, 60, 80)."""
    return np.stack([_blocks(_depths(plane, rays) * wall.mask) - wall.blocks for plane, wall in zip(planes, walls)])


class _Step(NamedTuple):
    """One step of Newton's method: changes of all planes, their covariance, how offsets go with them, and what is left."""

    change: Array
    covariance: Array
    shared: Array
    rest: float


def _step(planes: Sequence[Array], walls: Sequence[_Seen], rays: Array, distances: Sequence[Optional[float]]) -> _Step:
    common = np.logical_and.reduce([wall.enough for wall in walls])
    count = 3 * len(walls)
    errors = _missed(planes, walls, rays)[:, common]
    slopes = np.zeros((*errors.shape, count))
    for i, (plane, wall) in enumerate(zip(planes, walls)):
        slopes[i, :, 3 * i : 3 * i + 3] = _blocks(_slopes(plane, rays) * wall.mask[..., None])[common]
    strength = (_LENS_ERROR * np.stack([wall.blocks[common] for wall in walls])) ** -2
    parts = strength / strength.sum(axis=0)
    errors = errors - (parts * errors).sum(axis=0)  # what the walls have in common is the offset
    shared = (parts[..., None] * slopes).sum(axis=0)
    rest = float(np.sqrt(np.median((errors**2).sum(axis=0) / (len(walls) - 1)) / _MEDIAN_SQUARE))
    rows = [((slopes - shared) * np.sqrt(strength)[..., None]).reshape(-1, count)]
    wanted = [-(errors * np.sqrt(strength)).ravel()]
    for i, distance in enumerate(distances):
        if distance is not None:
            row = np.zeros((1, count))
            row[0, 3 * i] = -1 / planes[i][0] ** 2 / _TAPE
            rows.append(row)
            wanted.append(np.array([(distance - 1 / planes[i][0]) / _TAPE]))
    matrix = np.concatenate(rows)
    scale = np.linalg.norm(matrix, axis=0)  # columns get one length, as they have different units
    matrix = matrix / scale
    change = np.linalg.lstsq(matrix, np.concatenate(wanted), rcond=None)[0] / scale
    # What the walls do not tell at all gets a huge deviation, where an inverse would fail.
    strengths, ways = np.linalg.eigh(matrix.T @ matrix)
    covariance = (ways / np.maximum(strengths, _NOTHING * strengths[-1])) @ ways.T / np.outer(scale, scale)
    return _Step(change, covariance, shared, rest)


def _require_agreement(planes: Sequence[Array], last: _Step, distances: Sequence[Optional[float]]) -> float:
    """Returns the deviation of what the blocks have in common, rms in mm."""
    if not last.rest <= _NOT_ONE_WALL:
        raise Error(f"the walls do not agree: {last.rest:.1f} mm rms remain; each must be one flat surface that fills the image")
    for number, (plane, distance) in enumerate(zip(planes, distances), 1):
        if distance is not None and abs(1 / plane[0] - distance) > _MOST_MISMATCH:
            raise Error(
                f"the walls do not agree with their distances: wall {number} would be at {1 / plane[0]:.0f} mm, and not at "
                f"{distance:.0f}; measure from the lens along the optical axis"
            )
    uncertainty = float(np.sqrt(np.einsum("bi,ij,bj->b", last.shared, last.covariance, last.shared).mean()))
    if not uncertainty <= _MOST_UNCERTAIN:
        raise Error(
            f"the walls are too much alike: the offsets would be uncertain by {uncertainty:.1f} mm; turn the camera by 15 "
            "degrees or more to one side and then to the other, and give the measured distances"
        )
    return uncertainty


def solve_offsets(depths: Sequence[Array], rays: Array, distances: Sequence[Optional[float]]) -> Offsets:
    """From mean depth images of two or more walls, and the distances along the optical axis where they were measured."""
    planes, walls = _starting_planes(depths, rays), [_seen(depth) for depth in depths]
    if np.logical_and.reduce([wall.enough for wall in walls]).mean() < _LEAST_PIXELS / 2:
        raise Error("the walls are in different parts of the image; each must fill it")
    for _ in range(_ROUNDS):
        last = _step(planes, walls, rays, distances)
        planes = [plane + last.change[3 * i : 3 * i + 3] for i, plane in enumerate(planes)]
        if any(plane[0] <= 0 for plane in planes):
            raise Error("the walls do not agree; each must be one flat surface that fills the image")
        if np.abs(last.shared @ last.change).max() < _DONE:
            break
    uncertainty = _require_agreement(planes, last, distances)
    missed = _missed(planes, walls, rays)
    missed[~np.stack([wall.enough for wall in walls])] = np.nan
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", RuntimeWarning)  # blocks that no wall shows
        values, filled = _filled(np.nanmean(missed, axis=0))
    return Offsets(values, planes, uncertainty, last.rest, filled)


def add_offsets(depth: Array, offsets: Array) -> Array:
    """As the camera's host does it."""
    return depth + np.kron(np.rint(offsets), np.ones((BLOCK, BLOCK)))
