# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The depth lens from a board, against the lens that the virtual camera has."""
import json
import os

import numpy as np
import pytest
from calibration import BOARD, FRAMES_PER_POSE, LENS, SERIALS, all_over_the_image, below_sim, board_file, calibrate, lens_option

from vqd import Lens
from vqd.calibrate import _rays

cv2 = pytest.importorskip("cv2", reason="OpenCV is missing (python3-opencv)")

POSES = 30
SEEDS = (1, 2, 3, 4, 5) if os.environ.get("VQD_ALL_SEEDS") else (1,)


def ray_error(true, found):
    """How far off the found lens puts the rays of all pixels, in pixels rms, by OpenCV's model of a lens."""
    pixels = np.stack(np.meshgrid(np.arange(0, 320, 8.0), np.arange(0, 240, 8.0)), axis=-1).reshape(-1, 1, 2)
    end = (cv2.TERM_CRITERIA_EPS | cv2.TERM_CRITERIA_MAX_ITER, 200, 1e-12)
    rays = cv2.undistortPointsIter(pixels, true.matrix, true.coefficients, None, None, end)
    seen, _ = cv2.projectPoints(cv2.convertPointsToHomogeneous(rays), np.zeros(3), np.zeros(3), found.matrix, found.coefficients)
    return float(np.sqrt(((seen - pixels) ** 2).sum(axis=-1).mean()))


def test_the_lens_is_found_and_goes_into_the_profile(tmp_path, monkeypatch):
    errors = []
    for seed in SEEDS:
        monkeypatch.setenv("XDG_DATA_HOME", str(tmp_path / f"data-{seed}"))
        scene = board_file(tmp_path / "board.json", all_over_the_image(seed, POSES))
        options = ["VQD-HT120", "--seed", str(seed), "--scene", scene, "--lens", lens_option(LENS)]
        folder = tmp_path / f"lens-{seed}"
        words = ["-n", str(POSES * FRAMES_PER_POSE), "-o", str(folder), "--write", "profile"]
        report = calibrate(options, "lens", *BOARD, *words)
        profile = json.loads(below_sim(["VQD-HT120"], os.environ["VQD_TOOL"], "profile", "show", "--json"))["profile"]
        assert profile["serial"] == SERIALS[0] and profile["orthogonal"] == "lens"
        found = Lens(**profile["depth"])
        assert abs(found.fx / LENS.fx - 1) < 0.003 and abs(found.fy / LENS.fy - 1) < 0.003
        assert abs(found.cx - LENS.cx) < 0.5 and abs(found.cy - LENS.cy) < 0.5
        errors.append(ray_error(LENS, found))
        # What the report says of the result is true of it.
        assert errors[-1] < 3 * report["rays"]["uncertainty"] < 1.5 and report["rays"]["from-before"] > 2
        assert report["reprojection"]["held-back"] < 0.08 < report["reprojection"]["held-back-before"]
        assert abs(found.fx - LENS.fx) < 4 * report["deviations"]["fx"] < 1.5 and report["coverage"] > 0.6
        assert abs(report["board"]["square-by-depth"] - 60) < 3
        assert json.loads((folder / "lens.json").read_text())["depth"]["fx"] == pytest.approx(found.fx, rel=1e-6)
        assert sorted(os.listdir(folder)) == ["lens.json", "report.json", "report.txt", "views.png"]
    assert np.median(errors) <= 0.35


def test_the_lens_goes_into_the_camera_and_the_check_sees_the_difference(tmp_path, monkeypatch):
    """The check of a wrong lens fails, though boards fit it well; that of the right one, read back from an EEPROM, does not."""
    monkeypatch.setenv("XDG_DATA_HOME", str(tmp_path / "data"))
    poses = all_over_the_image(7, 6)
    for pose in poses:  # the undistorted image shows less than the raw one
        pose["position"][:2] = [place / 3 for place in pose["position"][:2]]
    scene = board_file(tmp_path / "board.json", poses)
    options = ["VQD-HT110", "--scene", scene, "--lens", lens_option(LENS)]
    check = ["check", *BOARD, "-n", str(6 * FRAMES_PER_POSE)]
    before = calibrate(options, *check)
    assert before["board"]["depth-by-lens"] == pytest.approx(LENS.fx / 204 - 1, abs=0.006)
    assert "vqd calibrate lens" in before["findings"][0]
    lens = {"schema": "vqd.lens/1", "depth": {name: getattr(LENS, name) for name in LENS.__dataclass_fields__}}
    (tmp_path / "lens.json").write_text(json.dumps(lens))
    tool = os.environ["VQD_TOOL"]
    below_sim(options, "sh", "-c", f"{tool} lens --set {tmp_path}/lens.json -y && {tool} eeprom backup {tmp_path}/eeprom")
    after = calibrate([*options, "--eeprom", str(tmp_path / "eeprom")], *check)
    assert abs(after["board"]["depth-by-lens"]) < 0.004 and after["board"]["reprojection"] < 0.1
    assert after["findings"] == ["Nothing is wrong with what was looked at."]


def test_rays_are_those_of_opencv():
    other = Lens(204, 204, 160, 120, -0.346, 0.12)
    assert _rays.rms_difference(LENS, other) == pytest.approx(ray_error(LENS, other), rel=1e-4)
    folded = Lens(204, 204, 160, 120, -0.9)  # shows no corner of the image
    assert np.isnan(_rays.rays_of(folded, np.zeros((1, 2)))).all() and np.isfinite(_rays.rms_difference(folded, LENS))
