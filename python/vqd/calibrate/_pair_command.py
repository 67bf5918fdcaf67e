# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""vqd-calibrate pair: how the second of two cameras stands to the first."""
from __future__ import annotations

import os
from typing import Any, Optional

import numpy as np

from .._errors import Error, UsageError
from ._boards import gathered, wanted_board
from ._board import rms
from ._feed import open_pair, raw
from ._opencv import opencv
from ._options import Options
from ._pair_fit import Pose, prediction_errors, solve_pair
from ._picture import picture_of
from ._rays import usable
from ._report import Folder, Progress, json_text, lines_of
from ._views import require_square, require_tilts
from ._writing import into_profile, profile_of

_LEAST, _ENOUGH, _MOST = 6, 12, 30  # views


def _known_pose(first: str, second: str) -> Optional[Pose]:
    """The pose that the profile of the second camera has already."""
    try:
        found = profile_of(second)
    except Error:
        return None  # a recording may come from cameras that are not here
    for pose in ((found or {}).get("profile") or {}).get("poses", []):
        if pose["to"] == first:
            return Pose(np.array(pose["rotation"]), np.array(pose["translation"]))
    return None


def _text(report: dict[str, Any]) -> str:
    pose, error, first, second = (report[name] for name in ("pose", "reprojection", "first", "second"))
    before = error["held-back-before"]
    was = "" if before is None else f"; with the pose before {before:.3f}"
    x, y, z = pose["translation"]
    return lines_of([
        (f"Pose of camera {second['serial']} in the coordinates of {first['serial']}", ""),
        ("views", f"{report['used']} of {report['views']} agree"),
        ("reprojection", f"{error['fit']:.3f} px rms"),
        ("held-back views", f"{error['held-back']:.3f} px rms{was}"),
        ("position", f"{x:.2f}, {y:.2f}, {z:.2f} mm, uncertain by {report['deviations']['position']:.2f}"),
        ("turned by", f"{report['angle']:.3f} degrees, uncertain by {report['deviations']['angle']:.3f}"),
    ])


def run(options: Options) -> tuple[dict[str, Any], str]:
    """Does it, and returns the report for programs and for people."""
    cv2 = opencv()
    board = wanted_board(options)
    if not board.is_one_way_round:
        raise UsageError(
            f"a board with {board} looks the same upside down, so two cameras could take it differently; one of the numbers "
            "must be even and the other odd"
        )
    one, other = options.pair
    if one == other:
        raise UsageError("a pair is two different cameras")
    are_files = [os.path.exists(word) for word in (one, other)]
    if are_files[0] != are_files[1]:
        raise UsageError("give two cameras by their serial numbers, or two recordings that were made at the same time")
    folder, progress = Folder(options.output, "pair", options.force), Progress(options.quiet)
    with open_pair((one, other) if are_files[0] else None, None if are_files[0] else (one, other), raw) as feed:
        first, second = feed.subjects
        if first.serial == second.serial:
            raise UsageError(f"both are of camera {first.serial}")
        found = gathered(feed, board, options, progress, _LEAST, _ENOUGH, _MOST)
    require_tilts(found.views)
    for camera in (0, 1):
        require_square(board, found.views, camera)
    lenses = [usable(first.lens), usable(second.lens)]
    result = solve_pair(board, found.views, lenses, _LEAST)
    before = _known_pose(first.serial, second.serial)
    good = [found.views[i] for i in result.used]
    report: dict[str, Any] = {
        "schema": "vqd.calibrate-pair/1",
        "first": {"serial": first.serial, "product": first.product},
        "second": {"serial": second.serial, "product": second.product},
        "board": {"columns": board.columns, "rows": board.rows, "square": board.square},
        "frames": found.frames,
        "views": len(found.views),
        "used": len(result.used),
        "rejected": dict(found.rejected),
        "pose": {
            "schema": "vqd.pose/1", "to": first.serial, "rotation": result.pose.rotation.tolist(),
            "translation": result.pose.translation.tolist(),
        },
        "angle": float(np.degrees(np.linalg.norm(cv2.Rodrigues(result.pose.rotation)[0]))),
        "deviations": {"angle": result.turn_deviation, "position": result.shift_deviation},
        "reprojection": {
            "fit": result.rms, "held-back": result.held_back,
            "held-back-before": None if before is None else rms(
                np.concatenate([prediction_errors(board, view, lenses, before) for view in good])
            ),
        },
    }
    text = _text(report)
    pictures = {
        f"views-{camera + 1}.png": picture_of(
            board, good[-1].shots[camera].amplitude, [view.corners[camera] for view in good]
        )
        for camera in (0, 1)
    }
    path = folder.write(second.serial, {"pose.json": json_text(report["pose"]).encode(), **pictures}, report, text)
    file = str(path / "pose.json")
    if options.write:
        progress.say(f"the result is in {path}")
        wanted = {name: value for name, value in report["pose"].items() if name != "schema"}
        into_profile(second.serial, ["--pose", file], lambda profile: wanted in profile.get("poses", []), progress.say)
    else:
        text += f"Take it into use: vqd profile import --pose {file} -c {second.serial}\n"
    return report, f"{text}{path}\n"
