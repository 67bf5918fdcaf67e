# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""vqd-calibrate fppn: offsets of blocks of 4 x 4 pixels from flat walls."""
from __future__ import annotations

from typing import Any

import numpy as np

from .._errors import UsageError
from .._tables import encode
from ._feed import host_corrects, without_fppn
from ._options import Options, wall_of
from ._planes import Array, Offsets, add_offsets, plane_of, solve_offsets
from ._report import Folder, Progress, lines_of
from ._walls import SeenWall, require_still, seen_walls
from ._writing import into_camera, into_profile

_TABLE = "fppn-4x4"
_CUT = 0.5  # mm, of which the host's correction shortens depths on average, because it cuts fractions


def _corrected(seen: SeenWall, rays: Array) -> SeenWall:
    """As the host makes it of the lengths of rays, with the factors of the lens; the camera's table of factors is rounded."""
    factors = 1 / np.sqrt(1 + (rays**2).sum(axis=-1))
    return seen._replace(first=seen.first * factors - _CUT, second=seen.second * factors - _CUT)


def _of_wall(seen: SeenWall, rays: Array, offsets: Offsets, held_back: bool) -> dict[str, Any]:
    """Judged by the half of the frames that the offsets were not made from."""
    before, after = plane_of(seen.second, rays), plane_of(add_offsets(seen.second, offsets.values), rays)
    given = seen.wall.distance
    return {
        "wall": seen.wall.name,
        "held-back": held_back,
        "given-distance": given,
        "distance": {"before": before.distance, "after": after.distance},
        "tilt": {"right": after.right, "lower": after.lower},
        "rms": {"before": before.rms, "after": after.rms},
        "noise": seen.noise,
    }


def _text(report: dict[str, Any]) -> str:
    offsets = report["offsets"]
    rows = [(f"FPPN of {report['camera']['product']}, serial {report['camera']['serial']}", "")]
    for wall in report["walls"]:
        distance = f"{wall['distance']['before']:.1f} -> {wall['distance']['after']:.1f} mm"
        given = "" if wall["given-distance"] is None else f", measured {wall['given-distance']:g}"
        rows.append((
            wall["wall"] + (" (held back)" if wall["held-back"] else ""),
            f"plane {wall['rms']['before']:.2f} -> {wall['rms']['after']:.2f} mm rms (noise {wall['noise']:.2f}); "
            f"{distance}{given}; turned {wall['tilt']['right']:+.1f} and {wall['tilt']['lower']:+.1f} degrees",
        ))
    rows += [
        ("offsets", f"{offsets['least']:.0f} to {offsets['most']:.0f} mm, mean {offsets['mean']:.1f}"),
        ("uncertainty", f"{offsets['uncertainty']:.2f} mm rms; the walls disagree by {offsets['disagreement']:.2f}"),
    ]
    if offsets["filled"]:
        rows.append(("filled", f"{offsets['filled']} blocks without depth have the mean of their neighbours"))
    return lines_of(rows) + "Planes are judged by the half of the frames that the offsets were not made from.\n"


def run(options: Options) -> tuple[dict[str, Any], str]:
    """Does it, and returns the report for programs and for people."""
    walls, judges = ([wall_of(word) for word in words] for words in (options.walls, options.held_back))
    folder, progress = Folder(options.output, "fppn", options.force), Progress(options.quiet)
    if len(walls) < 2:
        raise UsageError("one wall cannot tell a tilted wall from tilted offsets; give two, at other distances and tilts")
    seen, rays = seen_walls([*walls, *judges], options, without_fppn, progress)
    subject = seen[0].subject
    on_host = host_corrects(subject.product)
    if not on_host and "profile" in options.write:
        raise UsageError(f"FPPN of {subject.product} acts in the camera, so it goes there: --write camera")
    if on_host:
        seen = [_corrected(one, rays) for one in seen]
    for one in seen:
        require_still(one, rays)
    made_from = seen[: len(walls)]
    offsets = solve_offsets([one.first for one in made_from], rays, [one.wall.distance for one in made_from])
    whole = np.rint(offsets.values).astype(np.int32)
    report = {
        "schema": "vqd.calibrate-fppn/1",
        "camera": {"serial": subject.serial, "product": subject.product},
        "walls": [_of_wall(one, rays, offsets, i >= len(walls)) for i, one in enumerate(seen)],
        "offsets": {
            "least": int(whole.min()), "most": int(whole.max()), "mean": float(whole.mean()),
            "uncertainty": offsets.uncertainty, "disagreement": offsets.disagreement, "filled": offsets.filled,
        },
    }
    text = _text(report)
    table = encode(_TABLE, whole % 65536)  # 65526 acts as -10 does
    path = folder.write(subject.serial, {f"{_TABLE}.bin": table}, report, text)
    file = str(path / f"{_TABLE}.bin")
    parts = ["--orthogonal", "lens", "--fppn"]
    if options.write:
        progress.say(f"the result is in {path}")
    if "camera" in options.write:
        into_camera(subject.serial, ["table", "restore", _TABLE, file, "--direct"], options.yes)
    if "profile" in options.write:
        held = (whole % 65536).ravel().tolist()
        into_profile(subject.serial, [*parts, file], lambda profile: bool(profile.get("fppn") == held), progress.say)
    if not options.write:
        use = f"profile import {' '.join(parts)} {file}" if on_host else f"table restore {_TABLE} {file} --direct"
        text += f"Take it into use: vqd {use} -c {subject.serial}\n"
    return report, f"{text}{path}\n"
