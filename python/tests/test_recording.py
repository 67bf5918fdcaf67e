# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Frames of a recording, from a command that stands for ``vqd convert``: it notes its arguments and writes what a file holds."""
import os
import sys

import pytest
from test_wire import PLANES, frame_bytes

import vqd
from vqd import _wire

LENS = b'{"lens": {"depth": {"fx": 200, "fy": 200, "cx": 160, "cy": 120, "k1": 0, "k2": 0, "k3": 0, "p1": 0, "p2": 0, "skew": 0}}}'


@pytest.fixture
def command(tmp_path, monkeypatch):
    """Makes the command write these bytes, and end in this way."""
    script = tmp_path / "vqd"
    script.write_text(
        f"#!{sys.executable}\nimport os, sys\n"
        f"open({str(tmp_path / 'asked')!r}, 'a').write(' '.join(sys.argv[1:]) + '\\n')\n"
        f"sys.stdout.buffer.write(open({str(tmp_path / 'stream')!r}, 'rb').read())\nsys.stdout.flush()\n"
        f"code, text = open({str(tmp_path / 'end')!r}).read().split(' ', 1)\nsys.stderr.write(text)\nsys.exit(int(code))\n"
    )
    script.chmod(0o755)
    monkeypatch.setenv("VQD_TOOL", str(script))

    def write(stream, end="0 "):
        (tmp_path / "stream").write_bytes(stream)
        (tmp_path / "end").write_text(end)

    write.asked = lambda: (tmp_path / "asked").read_text().splitlines()
    return write


def test_a_recording_gives_its_frames_again_and_again(command, tmp_path):
    frames = [frame_bytes(number=number) for number in (1, 2, 5)]
    messages = [_wire.message(1, b"{}"), _wire.message(3, LENS), *(_wire.message(2, frame) for frame in frames)]
    command(b"".join(messages))
    recording = vqd.Recording("drive.mcap", camera="24061100000001", depth_range=(300, 4000), orthogonal=True)
    with pytest.raises(vqd.UsageError, match="once a frame"):
        recording.lens
    for _ in range(2):
        found = list(recording)
        assert [(frame.number, frame.missed) for frame in found] == [(1, 0), (2, 0), (5, 2)]
        assert (found[2].depth == PLANES[1]).all() and recording.lens.fx == 200
        assert recording.points(found[0]).shape == (240, 320, 3)
    arguments = "--stream -c 24061100000001 -s depth-range=300,4000 -s orthogonal=1"
    assert command.asked() == [f"convert {os.path.abspath('drive.mcap')} {arguments}"] * 2


def test_a_recording_that_is_closed_ends_its_loops(command):
    command(b"".join(_wire.message(2, frame_bytes(number=number)) for number in (1, 2, 3)))
    recording = vqd.Recording("drive.mcap")
    seen = []
    for frame in recording:
        seen.append(frame.number)
        recording.close()
    assert seen == [1]


def test_a_recording_that_cannot_be_read_is_told(command):
    whole = _wire.message(2, frame_bytes())
    for stream, end, kind, text in (
        (b"", "2 vqd: drive.mcap is no recording\n", vqd.UsageError, "drive.mcap is no recording"),
        (whole[:-1], "0 ", vqd.Error, "in the middle of a message"),
        (whole[:-1], "1 vqd: the disk is gone", vqd.Error, "the disk is gone"),
        (whole + b"rubbish of the standard output", "0 ", vqd.Error, "no worker"),
    ):
        command(stream, end)
        with pytest.raises(kind, match=text):
            list(vqd.Recording("drive.mcap"))
    with pytest.raises(vqd.UsageError, match="offset takes"):
        vqd.Recording("drive.mcap", offset=1000)


def test_an_iteration_that_is_left_ends_the_command(command):
    command(_wire.message(2, frame_bytes()) * 50)
    with vqd.Recording("drive.mcap") as recording:
        frames = iter(recording)
        next(frames)
        process = recording._running[0]
        del frames
    assert process.poll() is not None and recording._running == []
