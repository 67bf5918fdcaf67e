# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""FPPN offsets from two walls, judged at distances and tilts that they were not made from."""
import os
import sys

import numpy as np
import pytest
from calibration import below_sim, calibrate

from vqd import Lens
from vqd._errors import Error
from vqd.calibrate import _planes, _rays

TOOL = os.environ["VQD_TOOL"]


@pytest.fixture(scope="module")
def walls(tmp_path_factory):
    """Recordings of two walls."""
    folder = tmp_path_factory.mktemp("walls")
    for name, wall in (("near", "1100,16"), ("far", "1900,-13")):
        file = str(folder / f"{name}.mcap")
        below_sim(["VQD-HT120", "--fps", "60", "--scene", f"wall:{wall}"], TOOL, "record", "-q", "-n", "120", "-o", file)
    return folder


def test_walls_are_flat_with_the_offsets_of_two_others(walls, tmp_path, monkeypatch):
    monkeypatch.setenv("XDG_DATA_HOME", str(tmp_path / "data"))
    near, far = f"{walls}/near.mcap@1100", f"{walls}/far.mcap@1900"
    sim = ["VQD-HT120", "--scene", "wall:2500,4"]
    before = calibrate(sim, "check", "camera@2500")["walls"][0]
    assert 8 < before["rms"] < 9 and -22 < before["bias"] < -19
    words = [near, far, "--held-back", "camera@2500", "-o", str(tmp_path / "fppn"), "--write", "profile"]
    report = calibrate(sim, "fppn", *words)
    assert [wall["held-back"] for wall in report["walls"]] == [False, False, True]
    assert report["offsets"]["uncertainty"] < 1 and report["offsets"]["filled"] == 0
    assert (tmp_path / "fppn/fppn-4x4.bin").stat().st_size == 9600
    assert calibrate(sim, "check", "camera@2500")["walls"][0]["rms"] <= 1.1
    after = calibrate(["VQD-HT120", "--scene", "wall:900,-5"], "check", "camera@900")
    assert after["walls"][0]["rms"] <= 1.1 and abs(after["walls"][0]["bias"]) < 1
    assert after["findings"] == ["Nothing is wrong with what was looked at."]


def test_walls_that_cannot_do_are_refused_and_nothing_is_written(walls, tmp_path):
    near = f"{walls}/near.mcap@1100"
    (tmp_path / "there").mkdir()
    for words, code, text in (
        ([near, near], 1, "too much alike"),
        ([near], 2, "cannot tell a tilted wall"),
        ([near, f"{walls}/far.mcap@here"], 2, "here"),
        ([near, "@20"], 2, "'@20'"),
        ([near, f"{walls}/far.mcap@2100"], 1, "do not agree"),
        ([near, f"{walls}/far.mcap", "-o", str(tmp_path / "there")], 2, "exists already"),
        ([near, f"{walls}/far.mcap", "-o", str(tmp_path / "there"), "--force"], 2, "no folder of a calibration"),
        ([near, f"{walls}/far.mcap", "-o", str(tmp_path / "no/such")], 2, "is no folder"),
        ([near, "camera@1500"], 1, "wall 2 is not flat"),
        (["camera@1100", "camera@1900", "-q"], 2, "nobody can press Enter"),
    ):
        where = [] if "-o" in words else ["-o", str(tmp_path / "new")]
        told = calibrate(["VQD-HT120", "--scene", "room"], "fppn", *words, *where, code=code)
        assert text in told.splitlines()[-1], told
    assert os.listdir(tmp_path) == ["there"] and os.listdir(tmp_path / "there") == []


def test_the_camera_gets_its_table_where_it_corrects_itself(tmp_path):
    """Offsets of walls as a camera shows them that adds none: to be looked at in what the camera holds."""
    out, held = tmp_path / "fppn", tmp_path / "held"
    for name, wall in (("near", "1000,17"), ("far", "1700,-15")):
        words = ["record", "-q", "-n", "60", "-o", f"{tmp_path}/{name}.mcap", "-s", "orthogonal=1"]
        below_sim(["VQD-HT110", "--fps", "60", "--sensor", "bias=-12", "--scene", f"wall:{wall}"], TOOL, *words)
    walls = f"{tmp_path}/near.mcap@1000 {tmp_path}/far.mcap@1700"
    python = f"{sys.executable} -m vqd.calibrate"
    told = below_sim(["VQD-HT110"], "sh", "-c", f"{python} fppn {walls} --write profile -o {out}", code=2)
    assert "acts in the camera" in told and not out.exists()
    backup = f"{TOOL} table backup fppn-4x4 {held} --direct"
    told = below_sim(["VQD-HT110"], "sh", "-c", f"{python} fppn {walls} --write camera -o {out} </dev/null", code=2)  # cannot ask
    assert f"the result is in {out}" in told and out.exists()
    below_sim(["VQD-HT110"], "sh", "-c", f"{python} fppn {walls} --write camera -y --force -o {out} && {backup}")
    table = np.frombuffer(held.read_bytes(), ">u2").reshape(60, 80)
    assert held.read_bytes() == (out / "fppn-4x4.bin").read_bytes()
    assert abs(float(np.median(table)) - 12) <= 1


def test_offsets_of_made_walls_come_back_also_where_blocks_see_nothing():
    rng = np.random.default_rng(1)
    rays = _rays.straight_rays(Lens(204, 204, 160, 120), _rays.grid()).reshape(240, 320, 2)
    true = np.rint(rng.normal(-10, 6, (60, 80)) + np.linspace(0, 8, 80))
    depths = []
    for a, b, c in ((1 / 1000, -0.3 / 1000, 0.02 / 1000), (1 / 1600, 0.26 / 1600, -0.1 / 1600)):
        depth = 1 / (a + b * rays[..., 0] + c * rays[..., 1]) - np.kron(true, np.ones((4, 4)))
        depths.append(depth + rng.normal(0, 0.2, depth.shape))
    depths[0][:8, :8] = depths[1][:8, :8] = np.nan
    found = _planes.solve_offsets(depths, rays, [1000, None])
    error = (found.values - true)[2:]
    assert found.filled == 4 and np.isfinite(found.values).all()
    assert np.abs(error).max() < 0.6 and abs(error.mean()) < 3 * found.uncertainty
    with pytest.raises(Error, match="only .* of the pixels"):
        _planes.solve_offsets([np.where(np.arange(320) < 200, np.nan, depth) for depth in depths], rays, [None, None])
