# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Frames by way of the programs themselves: vqd serve over HTTP, and vqd convert of what vqd record kept."""
import os
import re
import subprocess
import time

import numpy as np
import pytest

import vqd

SERIAL = "24061100000001"


@pytest.fixture
def server(tmp_path):
    """The address of a vqd serve with one virtual camera."""
    command = [os.environ["VQD_TOOL"], "sim", "VQD-HT120", "--scene", "plane", "--", os.environ["VQD_TOOL"], "serve", "--port", "0"]
    said = tmp_path / "said"
    with open(said, "wb") as errors, subprocess.Popen(command, stderr=errors) as process:
        try:
            end = time.monotonic() + 60
            while not (found := re.search(r"(127\.0\.0\.1:\d+), with", said.read_text())):
                assert process.poll() is None and time.monotonic() < end, said.read_text()
                time.sleep(0.05)
            yield f"http://{found[1]}"
        finally:
            process.terminate()


def test_a_server_gives_what_its_worker_gives(server):
    with vqd.connect(server, timeout=60) as camera, vqd.connect(SERIAL, timeout=60) as worker:
        assert (camera.serial, camera.product) == (SERIAL, "VQD-HT120")
        assert camera.lens == worker.lens and camera.settings["undistortion"] == 0
        seen, common, last = {}, 0, 0
        while common < 3:  # each takes the newest frame, which need not be the same one
            for reader in (camera, worker):
                frame = reader.read(60)
                if reader is camera:
                    assert frame.number > last
                    last = frame.number
                if (other := seen.setdefault(frame.number, frame)) is not frame:
                    np.testing.assert_array_equal(other.depth, frame.depth)
                    np.testing.assert_array_equal(other.amplitude, frame.amplitude)
                    assert (other.session, other.stamp, other.time) == (frame.session, frame.stamp, frame.time)
                    common += 1
        np.testing.assert_array_equal(camera.points(frame), worker.points(frame))
        camera.offset = -5
        assert worker.settings["offset"] == -5 and camera.settings["temperature"] > 0
        with pytest.raises(vqd.SettingError, match="frequency"):
            camera.settings["frequency"] = 10
        assert camera.save() is True
    with pytest.raises(vqd.AccessError):
        vqd.connect(server, token="another")


def test_a_recording_gives_the_images_of_the_recorded_session(tool, tmp_path):
    file = str(tmp_path / "drive.mcap")
    program = [os.environ["VQD_TOOL"], "record", "-q", "-n", "12", "-s", "undistortion=1", "-o", file]
    tool("sim", "VQD-HT120", "--scene", "plane", "--", *program)
    tool("convert", "-q", file, "-o", str(tmp_path), "--format", "npy")
    with vqd.Recording(file) as recording:
        frames = list(recording)
        assert len(frames) == 12 and recording.lens.fx == 204
    for row, frame in enumerate(frames, 1):
        assert frame.corrected
        np.testing.assert_array_equal(frame.depth, np.load(tmp_path / f"depth-{row:06}.npy"))
        np.testing.assert_array_equal(frame.amplitude, np.load(tmp_path / f"amplitude-{row:06}.npy"))
    raw = list(vqd.Recording(file, undistortion=0))
    assert [frame.number for frame in raw] == [frame.number for frame in frames]
    assert not raw[0].corrected and (raw[0].depth != frames[0].depth).any()
    with pytest.raises(vqd.UsageError, match="frequency acts in the camera"):
        list(vqd.Recording(file, frequency=20))
    with pytest.raises(vqd.Error):
        list(vqd.Recording(__file__))
