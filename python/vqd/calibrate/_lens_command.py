# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""vqd-calibrate lens: the depth lens from a board."""
from __future__ import annotations

import math
from typing import Any

from .._lens import Lens
from ._board import Board
from ._boards import gathered, wanted_board
from ._feed import Subject, open_one, raw
from ._lens_fit import PARAMETERS, LensResult, solve_lens
from ._opencv import opencv
from ._options import Options
from ._picture import picture_of
from ._rays import usable
from ._report import Folder, Progress, json_text, lines_of
from ._views import Collection, coverage, missing, require_square, require_tilts
from ._writing import into_camera, into_profile, profile_of

_LEAST, _ENOUGH, _MOST = 10, 25, 40  # views
_NAMES = ("fx", "fy", "cx", "cy", "k1", "k2", "k3", "p1", "p2", "skew")


def lens_json(lens: Lens) -> dict[str, float]:
    """In the form of ``vqd lens``."""
    return {name: getattr(lens, name) for name in _NAMES}


def _report(subject: Subject, board: Board, found: Collection, result: LensResult, side: Any) -> dict[str, Any]:
    used = [found.views[number] for number in result.used]
    return {
        "schema": "vqd.calibrate-lens/1",
        "camera": {"serial": subject.serial, "product": subject.product},
        "board": {"columns": board.columns, "rows": board.rows, "square": board.square, "square-by-depth": side},
        "frames": found.frames,
        "views": len(found.views),
        "used": len(used),
        "rejected": dict(found.rejected),
        "coverage": coverage([view.corners[0] for view in used]),
        "missing": missing(used),
        "lens": lens_json(result.fit.lens),
        "deviations": result.fit.deviations,
        "before": lens_json(subject.lens),
        "reprojection": {
            "fit": result.fit.rms, "held-back": result.held_back, "held-back-before": result.held_back_before,
        },
        "rays": {
            "uncertainty": result.uncertainty, "largest-uncertainty": result.corner_uncertainty,
            "from-before": result.moved, "from-stored": result.stored_difference,
        },
    }


def _text(report: dict[str, Any]) -> str:
    camera, lens, before = report["camera"], report["lens"], report["before"]
    error, rays, board = report["reprojection"], report["rays"], report["board"]
    rejected = ", ".join(f"{count} {why}" for why, count in report["rejected"].items())
    rows = [
        (f"Lens of {camera['product']}, serial {camera['serial']}", ""),
        ("views", f"{report['used']} of {report['views']} used" + (f"; rejected: {rejected}" if rejected else "")),
        ("coverage", f"{report['coverage']:.0%} of the image's cells have a corner"),
        ("reprojection", f"{error['fit']:.3f} px rms"),
        ("held-back views", f"{error['held-back']:.3f} px rms; with the lens before {error['held-back-before']:.3f}"),
        ("rays", f"uncertain by {rays['uncertainty']:.2f} px rms, {rays['largest-uncertainty']:.2f} at most"),
        ("", f"the lens before puts them {rays['from-before']:.2f} px away; rounded for the EEPROM {rays['from-stored']:.2f}"),
    ]
    if board["square-by-depth"] is not None:
        rows.append(("square by depth", f"{board['square-by-depth']:.1f} mm, given {board['square']:g}"))
    for name in PARAMETERS:
        digits = 2 if name in ("fx", "fy", "cx", "cy") else 5
        deviation = f"+- {report['deviations'][name]:.{digits}f}"
        rows.append((name, f"{lens[name]:.{digits}f} {deviation}, before {before[name]:.{digits}f}"))
    return lines_of(rows) + "".join(f"Better with more views: {what}.\n" for what in report["missing"])


def _holds(lens: Lens, profile: Any) -> bool:
    held = profile.get("depth") if isinstance(profile, dict) else None
    return isinstance(held, dict) and all(
        math.isclose(float(held[name]), getattr(lens, name), rel_tol=1e-6, abs_tol=1e-9) for name in _NAMES
    )


def _write(options: Options, serial: str, lens: Lens, file: str, progress: Progress) -> None:
    before = profile_of(serial) if "profile" in options.write else None
    if "camera" in options.write:
        into_camera(serial, ["lens", "--set", file], options.yes)
    if "profile" in options.write:
        parts = ["--lens", file, "--orthogonal", "lens"]
        # The old profile belongs to the lens that the EEPROM had until just now.
        parts += ["--force"] if "camera" in options.write else []
        into_profile(serial, parts, lambda profile: _holds(lens, profile), progress.say)
        if before is not None and (before["profile"] or {}).get("fppn"):
            progress.say("the FPPN offsets of the profile were measured through the lens before; measure them again")


def run(options: Options) -> tuple[dict[str, Any], str]:
    """Does it, and returns the report for programs and for people."""
    opencv()
    board = wanted_board(options)
    folder, progress = Folder(options.output, "lens", options.force), Progress(options.quiet)
    with open_one(options.recording, options.camera, raw) as feed:
        found = gathered(feed, board, options, progress, _LEAST, _ENOUGH, _MOST)
        subject = feed.subjects[0]
    require_tilts(found.views)
    side = require_square(board, found.views)
    result = solve_lens(board, [view.corners[0] for view in found.views], usable(subject.lens))
    report = _report(subject, board, found, result, side)
    text = _text(report)
    picture = picture_of(board, found.views[-1].shots[0].amplitude, [view.corners[0] for view in found.views])
    document = {"schema": "vqd.lens/1", "depth": lens_json(result.fit.lens)}
    path = folder.write(subject.serial, {"lens.json": json_text(document).encode(), "views.png": picture}, report, text)
    file = str(path / "lens.json")
    if options.write:
        progress.say(f"the result is in {path}")
        _write(options, subject.serial, result.fit.lens, file, progress)
    else:
        text += f"Take it into use: vqd profile import --lens {file} --orthogonal lens -c {subject.serial}\n"
    return report, f"{text}{path}\n"
