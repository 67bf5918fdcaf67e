# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The pose between two cameras from boards, against where the virtual cameras stand."""
import json
import random
import subprocess

import numpy as np
import pytest
from calibration import BOARD, FRAMES_PER_POSE, SERIALS, FakeRecording, board_file, calibrate, capture

from vqd import Lens
from vqd.calibrate import _feed, _pair_command, _views, main
from vqd.calibrate._board import find_corners

cv2 = pytest.importorskip("cv2", reason="OpenCV is missing (python3-opencv)")

POSES = 12
SHIFT, TURN = (580.0, 0.0, 0.0), -24.0  # of the second camera
PLACE = "2:580,0,0,0,-24,0"
FACTORY = Lens(204, 204, 160, 120, -0.346, 0.12)


def seen_by_both():
    rng = random.Random(3)

    def either_side(least, most):
        return rng.choice((-1, 1)) * rng.uniform(least, most)

    return [
        {"position": [290 + rng.uniform(-120, 120), rng.uniform(-130, 130), rng.uniform(900, 1200)],
         "angles": [either_side(8, 28), either_side(5, 25), rng.uniform(-8, 8)]}
        for _ in range(POSES)
    ]


@pytest.fixture(scope="module")
def images(tmp_path_factory):
    """Frames of both cameras, which see the same pose at the same index."""
    folder = tmp_path_factory.mktemp("pair")
    options = ["VQD-HT120", "VQD-HT120", "--scene", board_file(folder / "board.json", seen_by_both()), "--pose", PLACE]
    return [capture(options, serial, folder / f"{serial}.npz", POSES * FRAMES_PER_POSE) for serial in SERIALS]


@pytest.fixture(scope="module")
def find_once():
    """The finder, which looks at each image only once, because that takes half a second."""
    found = {}

    def find(amplitude, board):
        key = amplitude.tobytes()
        if key not in found:
            found[key] = find_corners(amplitude, board)
        return found[key]

    return find


@pytest.fixture
def recordings(images, find_once, tmp_path, monkeypatch):
    """Two paths that stand for recordings of the frames; the second one's may be in another order."""
    monkeypatch.setattr(_feed, "Recording", FakeRecording)
    monkeypatch.setattr(_views, "find_corners", find_once)

    def make(order=range(POSES * FRAMES_PER_POSE)):
        paths = []
        for (amplitude, depth), serial, chosen in zip(images, SERIALS, (slice(None), list(order))):
            path = tmp_path / f"{serial}.mcap"
            path.touch()
            FakeRecording.known[str(path)] = amplitude[chosen], depth[chosen], serial, FACTORY
            paths.append(str(path))
        return paths

    return make


def errors_of(pose):
    angle = np.radians(TURN)
    true = np.array([[np.cos(angle), 0, np.sin(angle)], [0, 1, 0], [-np.sin(angle), 0, np.cos(angle)]])
    turn = np.degrees(np.linalg.norm(cv2.Rodrigues(np.array(pose["rotation"]) @ true.T)[0]))
    return turn, float(np.linalg.norm(np.array(pose["translation"]) - SHIFT))


def test_the_pose_is_found_also_when_the_board_moved_between_the_images(recordings, tmp_path, capsys):
    still = np.arange(POSES * FRAMES_PER_POSE).reshape(POSES, -1)
    moved = still.copy()
    moved[[4, 5]] = still[[5, 4]]  # the second camera saw two poses at another time
    for name, order, used in (("still", still, POSES), ("moved", moved, POSES - 2)):
        folder = tmp_path / name
        assert main(["pair", *recordings(order.ravel()), *BOARD, "-q", "--json", "-o", str(folder)]) == 0
        report = json.loads(capsys.readouterr().out)
        turn, shift = errors_of(report["pose"])
        assert turn < 0.02 and shift < 0.5, (turn, shift)
        assert (report["views"], report["used"]) == (POSES, used) and report["pose"]["to"] == SERIALS[0]
        assert turn < 4 * report["deviations"]["angle"] < 0.1 and shift < 4 * report["deviations"]["position"] < 3
        assert report["reprojection"]["held-back"] < 0.2 and report["reprojection"]["held-back-before"] is None
        assert json.loads((folder / "pose.json").read_text()) == report["pose"]


def test_the_pose_goes_into_the_profile_of_the_second_camera(recordings, tmp_path, monkeypatch, capsys):
    """The tool is asked to import the pose and to show it again; one that it shows differently is a failure."""
    asked, shown = [], {}

    def run(words, **_):
        asked.append(words[1:])
        if words[2] == "import":
            pose = json.loads(open(words[-1], encoding="utf-8").read())
            shown.update({name: pose[name] for name in ("to", "rotation", "translation")})
        found = json.dumps({"file": __file__, "profile": {"poses": [shown] if shown else []}})
        return subprocess.CompletedProcess(words, 0, found.encode(), b"")

    monkeypatch.setattr("vqd.calibrate._writing.subprocess.run", run)
    words = ["pair", *recordings(), *BOARD, "-q", "--json", "--write", "profile", "-o"]
    assert main([*words, str(tmp_path / "one")]) == 0
    assert [line for line in asked if line[1] == "import"] == [
        ["profile", "import", "--json", "-c", SERIALS[1], "--pose", str(tmp_path / "one/pose.json")]
    ]
    capsys.readouterr()
    assert main([*words, str(tmp_path / "two")]) == 0  # judges the pose that is there
    assert json.loads(capsys.readouterr().out)["reprojection"]["held-back-before"] < 0.2
    monkeypatch.setattr(_pair_command, "into_profile", lambda serial, parts, expected, say: expected({"poses": []}) or 1 / 0)
    with pytest.raises(ZeroDivisionError):
        main([*words, str(tmp_path / "three")])


def test_ctrl_c_ends_the_views_and_other_signals_end_everything(recordings, tmp_path, monkeypatch):
    matched = _feed._matched

    def interrupted(*number):
        def frames(*both):
            yield from matched(*both)
            raise KeyboardInterrupt(*number)
        return frames

    paths = recordings()
    for number, code in (((), 0), ((15,), 130)):
        monkeypatch.setattr(_feed, "_matched", interrupted(*number))
        folder = tmp_path / f"ended-{code}"
        assert main(["pair", *paths, *BOARD, "-q", "--views", "13", "-o", str(folder)]) == code
        assert folder.exists() == (code == 0)


def test_two_cameras_are_read_by_workers_of_its_own(tmp_path):
    """A board that never moves is one view, however fast the machine is."""
    scene = board_file(tmp_path / "one.json", seen_by_both()[:1])
    options = ["VQD-HT120", "VQD-HT110", "--fps", "20", "--scene", scene, "--pose", PLACE]
    told = calibrate(options, "pair", *SERIALS, *BOARD, "-n", "12", code=1)
    assert "view 1:" in told and told.splitlines()[-1].startswith("vqd-calibrate: 1 views of the board differ")
    told = calibrate(options, "pair", SERIALS[0], "24061100000009", *BOARD, code=3)
    assert "24061100000009" in told.splitlines()[-1]
