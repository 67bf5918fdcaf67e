# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What cannot be calibrated is told in one sentence, with an exit code, and nothing is written."""
import io
import os
import subprocess
import sys

import numpy as np
import pytest
from calibration import BOARD, FRAMES_PER_POSE, LENS, SERIALS, FakeRecording, board_file, capture

from vqd import Lens
from vqd.calibrate import _feed, main

FACTORY = Lens(204, 204, 160, 120, -0.346, 0.12)
NEAR = {"position": [0, 0, 800], "angles": [0, 0, 0]}


@pytest.fixture(scope="module")
def still(tmp_path_factory):
    """A board in one pose, and empty frames."""
    pytest.importorskip("cv2", reason="OpenCV is missing (python3-opencv)")
    folder = tmp_path_factory.mktemp("still")
    return capture(["VQD-HT120", "--scene", board_file(folder / "one.json", [NEAR])], SERIALS[0], folder / "one.npz", 6)


@pytest.fixture(scope="module")
def parallel(tmp_path_factory):
    """A board that is moved, but never tilted."""
    folder = tmp_path_factory.mktemp("parallel")
    poses = [{"position": [150 * (k % 4) - 225, 120 * (k // 4) - 120, 850 + 30 * k], "angles": [0, 0, 0]} for k in range(11)]
    options = ["VQD-HT120", "--scene", board_file(folder / "parallel.json", poses)]
    return capture(options, SERIALS[0], folder / "parallel.npz", len(poses) * FRAMES_PER_POSE)


def test_each_is_told_and_nothing_is_written(still, parallel, tmp_path, monkeypatch, capsys):
    monkeypatch.setattr(_feed, "Recording", FakeRecording)
    monkeypatch.chdir(tmp_path)
    amplitude, depth = still
    noise = np.random.default_rng(1).integers(90, 110, amplitude.shape).astype(np.uint16)
    FakeRecording.known = {
        "board": (amplitude, depth, SERIALS[0], FACTORY), "dark": (amplitude * 0, depth, SERIALS[0], FACTORY),
        "empty": (noise, depth, SERIALS[0], FACTORY), "none": ([], [], SERIALS[0], FACTORY),
        "nobody": (amplitude, depth, "", FACTORY), "parallel": (*parallel, SERIALS[0], FACTORY),
        "same": (amplitude, depth, SERIALS[0], LENS), "other": (amplitude, depth, SERIALS[1], FACTORY),
    }
    os.makedirs("there")
    os.makedirs("mixed")
    for name, content in (("report.json", '{"schema": "vqd.calibrate-lens/1"}'), ("notes.txt", "of somebody")):
        with open(f"mixed/{name}", "w", encoding="utf-8") as file:
            file.write(content)
    for name in FakeRecording.known:
        open(name, "w", encoding="utf-8").close()
    before = sorted(os.listdir())
    lens = ["lens", *BOARD, "--recording"]
    for words, code, text in (
        ([*lens, "empty"], 1, "no board with 8 x 5 inner corners was found in 6 frames"),
        (["lens", "--board", "9x6", "--square", "60", "--recording", "board"], 1, "no board with 9 x 6 inner corners"),
        ([*lens, "board"], 1, "1 views of the board differ from one another, and 10 are needed"),
        ([*lens, "parallel"], 1, "show the board in one pose"),
        ([*lens, "dark"], 2, "the frames have no amplitude"),
        ([*lens, "none"], 2, "the recording has no frame"),
        ([*lens, "nobody"], 1, "the serial number of the camera of nobody is not known"),
        ([*lens, "board", "-o", "there"], 2, "there exists already; --force replaces it"),
        ([*lens, "board", "-o", "there", "--force"], 2, "no folder of a calibration"),
        ([*lens, "board", "-o", "mixed", "--force"], 2, "no folder of a calibration alone"),
        ([*lens, "board", "-o", "x" * 300], 1, "File name too long"),
        ([*lens, "board", "-c", "0"], 2, "not both"),
        ([*lens, "board", "--views", "3"], 2, "--views is 10 or more"),
        (["lens", "--board", "8by5", "--square", "60", "--recording", "board"], 2, "such as 8x5, not '8by5'"),
        (["lens", "--board", "8x5", "--square", "0", "--recording", "board"], 2, "--board and --square describe the board"),
        (["pair", "board", "other", "--board", "8x6", "--square", "60"], 2, "looks the same upside down"),
        (["pair", "board", "same", *BOARD], 2, "both are of camera"),
        (["pair", "board", SERIALS[1], *BOARD], 2, "two cameras by their serial numbers, or two recordings"),
        (["check"], 2, "give a board"),
        (["check", *BOARD, "--recording", "board"], 1, "1 views of the board differ"),
        (["check", "board@900"], 2, "has 6 frames"),
    ):
        assert main(words) == code, words
        out, err = capsys.readouterr()
        assert out == "" and err.splitlines()[-1].startswith("vqd-calibrate: ") and text in err.splitlines()[-1], err
    assert sorted(os.listdir()) == before and os.listdir("there") == [] and len(os.listdir("mixed")) == 2


def test_a_wrong_side_of_the_squares_shows_in_the_depth(still):
    from vqd.calibrate._board import board_of, find_corners, place
    from vqd.calibrate._stillness import Shot
    from vqd.calibrate._views import View, require_square

    amplitude, depth = (images.mean(axis=0) for images in still)
    corners = find_corners(amplitude, board_of("8x5", 60))
    for side, fits in ((60, True), (30, False)):
        board = board_of("8x5", side)
        view = View((corners,), (place(board, corners, FACTORY),), (Shot(amplitude, depth),))
        if fits:
            assert abs(require_square(board, [view]) - 60) < 3
        else:
            with pytest.raises(ValueError, match="a square is 5[89] mm wide, and not 30"):
                require_square(board, [view])


def test_a_terminal_cuts_no_line_that_stays(monkeypatch):
    """Advice stands at the end of a line."""
    from vqd.calibrate._report import Progress

    terminal = io.StringIO()
    terminal.isatty = lambda: True
    monkeypatch.setattr(sys, "stderr", terminal)
    monkeypatch.setenv("COLUMNS", "40")
    progress = Progress(False)
    progress.say("3 views; rejected: no board; next: " + "x" * 40, keep=False)
    progress.say("view 4: " + "far away, " * 5 + "next: tilt it")
    passing, staying = terminal.getvalue().split("\r")[1:]
    assert len(passing) == 39 and staying.endswith("next: tilt it\n")


def test_missing_programs_and_modules_are_named(tmp_path, monkeypatch, capsys):
    monkeypatch.setitem(sys.modules, "cv2", None)
    for command in (["lens"], ["pair", "1", "2"], ["check"]):
        assert main([*command, *BOARD]) == 1
        assert "python3-opencv" in capsys.readouterr().err
    tool = os.environ["VQD_TOOL"]
    path = {"PATH": str(tmp_path)}
    ended = subprocess.run([tool, "calibrate", "lens"], env={**os.environ, **path}, capture_output=True, text=True, check=False)
    assert ended.returncode == 1 and ended.stderr.splitlines() == [
        "vqd: vqd calibrate needs vqd-calibrate, which is not installed (Debian: python3-vqd)"
    ]
    stand_in = tmp_path / "vqd-calibrate"
    stand_in.write_text('#!/bin/sh\nfor word; do echo "$word"; done\n/usr/bin/basename "$VQD_TOOL"\nexit 6\n')
    stand_in.chmod(0o755)
    environment = {name: value for name, value in {**os.environ, **path}.items() if name != "VQD_TOOL"}
    words = ["lens", "--help", "-o", "a folder", "--", "-q"]
    ended = subprocess.run([tool, "calibrate", *words], env=environment, capture_output=True, text=True, check=False)
    assert (ended.returncode, ended.stdout.splitlines()) == (6, [*words, "vqd"])
