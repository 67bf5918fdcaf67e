# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""vqd-calibrate check: what the present calibration is worth, by a board, by walls, or by both. Writes nothing."""
from __future__ import annotations

from typing import Any

import numpy as np

from .._errors import UsageError
from .._lens import Lens
from ._board import Board, place, rms
from ._boards import gathered, wanted_board
from ._feed import Subject, corrected, open_one
from ._opencv import opencv
from ._options import Options, wall_of
from ._planes import Array, plane_of
from ._report import Progress, lines_of
from ._views import Collection, View, coverage
from ._walls import rays_of_image, require_still, seen_walls

_LEAST, _ENOUGH, _MOST = 4, 10, 30  # views
_GOOD_REPROJECTION = 0.2  # pixels
_GOOD_SCALE = 0.01  # of the distance
_GOOD_PLANE = 3.0  # mm rms


def _depth_of_board(view: View, rays: Array) -> tuple[float, float]:
    """How much further than by the lens the board is by depth, as a share, and how rough its plane is, in mm rms."""
    cv2 = opencv()
    placed = view.placed[0]
    inside = np.zeros(rays.shape[:2], np.uint8)
    outline = cv2.convexHull(np.rint(view.corners[0]).astype(np.int32))
    cv2.fillConvexPoly(inside, outline, 1)
    directions = np.dstack([rays, np.ones(rays.shape[:2])])
    normal = placed.rotation[:, 2]
    expected = (normal @ placed.translation) / (directions @ normal)
    seen = (inside > 0) & np.isfinite(view.shots[0].depth)
    if seen.sum() < 50:
        raise UsageError("the board has no depth; move it into the camera's range")
    errors = view.shots[0].depth[seen] - expected[seen]
    lines = np.column_stack([np.ones(errors.size), directions[seen][:, :2]])
    rest = errors - lines @ np.linalg.lstsq(lines, errors, rcond=None)[0]
    return float(np.median(errors / expected[seen])), float(np.sqrt((rest**2).mean()))


def _by_board(options: Options, progress: Progress) -> tuple[Subject, dict[str, Any]]:
    board: Board = wanted_board(options)
    opencv()
    with open_one(options.recording, options.camera, corrected) as feed:
        subject = feed.subjects[0]
        straight = Lens(*subject.lens.intrinsic)
        found: Collection = gathered(feed, board, options, progress, _LEAST, _ENOUGH, _MOST)
    rays = rays_of_image(straight, True)
    views = [view._replace(placed=(place(board, view.corners[0], straight),)) for view in found.views]
    depths = [_depth_of_board(view, rays) for view in views]
    return subject, {
        "views": len(views),
        "coverage": coverage([view.corners[0] for view in views]),
        "reprojection": rms(np.concatenate([view.placed[0].errors for view in views])),
        "depth-by-lens": float(np.median([share for share, _ in depths])),
        "plane-rms": float(np.median([rough for _, rough in depths])),
    }


def _by_walls(options: Options, progress: Progress) -> tuple[Subject, list[dict[str, Any]]]:
    walls = [wall_of(word) for word in options.walls]
    seen, rays = seen_walls(walls, options, corrected, progress, straight=True)
    found = []
    for one in seen:
        require_still(one, rays)
        plane = plane_of(one.depth, rays)
        found.append({
            "wall": one.wall.name, "given-distance": one.wall.distance, "distance": plane.distance,
            "bias": None if one.wall.distance is None else plane.distance - one.wall.distance,
            "tilt": {"right": plane.right, "lower": plane.lower}, "rms": plane.rms, "noise": one.noise / np.sqrt(2),
            "pixels": plane.pixels,
        })
    return seen[0].subject, found


def _findings(report: dict[str, Any]) -> list[str]:
    board, walls = report["board"], report["walls"]
    found = []
    if board is not None and board["reprojection"] > _GOOD_REPROJECTION:
        found.append("The lens does not make straight what is straight: vqd calibrate lens.")
    if board is not None and abs(board["depth-by-lens"]) > _GOOD_SCALE:
        found.append("Depth and lens do not agree on how far the board is: vqd calibrate lens, then fppn.")
    if any(wall["rms"] > _GOOD_PLANE for wall in walls):
        found.append("A flat wall is not flat: vqd calibrate fppn.")
    return found or ["Nothing is wrong with what was looked at."]


def _text(report: dict[str, Any]) -> str:
    board = report["board"]
    rows = [(f"Calibration of {report['camera']['product']}, serial {report['camera']['serial']}", "")]
    if board is not None:
        rows += [
            ("board", f"{board['views']} views, coverage {board['coverage']:.0%}"),
            ("reprojection", f"{board['reprojection']:.3f} px rms in the undistorted image"),
            ("depth", f"{board['depth-by-lens']:+.2%} against the lens; the board is flat to {board['plane-rms']:.1f} mm rms"),
        ]
    for wall in report["walls"]:
        bias = "" if wall["bias"] is None else f", {wall['bias']:+.1f} from what was measured"
        rows.append((
            wall["wall"], f"flat to {wall['rms']:.2f} mm rms (noise {wall['noise']:.2f}), at {wall['distance']:.1f} mm{bias}",
        ))
    return lines_of(rows) + "".join(f"{finding}\n" for finding in report["findings"])


def run(options: Options) -> tuple[dict[str, Any], str]:
    """Does it, and returns the report for programs and for people."""
    if options.board is None and not options.walls:
        raise UsageError("give a board (--board and --square), walls, or both")
    progress = Progress(options.quiet)
    subject, board = _by_board(options, progress) if options.board is not None else (None, None)
    of_walls, walls = _by_walls(options, progress) if options.walls else (None, [])
    if subject is not None and of_walls is not None and not subject.is_same(of_walls):
        raise UsageError("board and walls are of different cameras, or the camera had different lenses")
    seen = subject or of_walls
    assert seen is not None
    report: dict[str, Any] = {
        "schema": "vqd.calibrate-check/1", "camera": {"serial": seen.serial, "product": seen.product}, "board": board,
        "walls": walls,
    }
    report["findings"] = _findings(report)
    return report, _text(report)
