# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Cameras behind real workers, below ``vqd sim`` processes of their own."""
import json
import os
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import vqd
from vqd import _wire


def test_a_camera_behind_a_worker_is_as_one_in_this_process(vqd_camera):
    frame = next(iter(vqd_camera))
    assert frame.depth.shape == (240, 320) and abs(float(np.median(frame.depth)) - 1500) < 5
    assert abs(float(np.median(frame.amplitude)) - 1000) < 5
    assert (vqd_camera.serial, vqd_camera.product) == ("24061100000001", "VQD-HT120")
    assert vqd_camera.lens.matrix.tolist() == [[204, 0, 160], [0, 204, 120], [0, 0, 1]]
    assert vqd_camera.lens.coefficients.tolist() == [-0.346, 0.12, 0, 0, 0]
    assert vqd_camera.extrinsics.rotation[0][0] == 0.9999 and vqd_camera.extrinsics.translation == (None,) * 3
    points = vqd_camera.points(frame)
    np.testing.assert_allclose(points[0, 0], np.array([-160 / 204, -120 / 204, 1]) * frame.depth[0, 0] / 1000, rtol=1e-5)
    vqd_camera.settings.update(offset=-9, undistortion=2)
    before = vqd_camera.read()
    assert vqd_camera.offset == -9 and before.corrected
    assert vqd_camera.save() is True and vqd_camera.save() is False
    frames = [before, *(vqd_camera.read() for _ in range(4))]
    _, late = max((late.monotonic_ns - early.monotonic_ns, late) for early, late in zip(frames, frames[1:]))
    assert late.dropped == 0  # the camera has paused for the save, and made none
    for name, value, kind in (("frequency", 10, vqd.SettingError), ("illumination", 0, vqd.UsageError), ("offset", 999, vqd.UsageError)):
        with pytest.raises(kind):
            vqd_camera.settings[name] = value
    assert set(vqd_camera.settings.as_dict()) == set(vqd_camera.settings)
    start = vqd_camera.read()
    time.sleep(0.3)
    late = vqd_camera.read()
    assert late.missed > 3  # none of those that came meanwhile
    assert late.number - start.number == late.missed + 1


def test_packed_frames_are_those_of_the_worker(vqd_sim):
    pytest.importorskip("zstandard")
    simulation = vqd_sim("VQD-HT110", scene="ramp", fps=3)
    link = simulation.camera._link
    plain = simulation.camera.read()
    link._pull = 77
    link._send(_wire.message(_wire.Kind.PULL, _wire.PULL.pack(plain.number - 1, _wire.PACKED, 0), 77))
    seen = []
    take_in, link._take_in = link._take_in, lambda came: (seen.append(came), take_in(came))
    packed = link.next_frame(0, 0, 5)
    assert any(message.kind == _wire.Kind.FRAME and len(message.body) < 250_000 for message in seen)
    if packed.number == plain.number:  # no frame came between the two pulls
        np.testing.assert_array_equal(packed.depth, plain.depth)
    assert abs(int(packed.depth[5, 100]) - 1500) < 50


def test_sets_hold_frames_of_one_moment(vqd_sim):
    simulation = vqd_sim("VQD-HT120", "VQD-RS110", scene="plane")
    serials = list(simulation.serials)
    os.environ["VQD_RUNTIME_DIR"], before = simulation.runtime_dir, os.environ["VQD_RUNTIME_DIR"]
    try:
        assert [(found.name, found.serial) for found in vqd.workers()] == [(serial, serial) for serial in serials]
        with vqd.cameras(serials) as cameras:
            sets = [cameras.read() for _ in range(20)]
            cameras.cameras[1].offset = 4
            assert cameras.cameras[1].offset == 4 and cameras.cameras[0].offset == 0
    finally:
        os.environ["VQD_RUNTIME_DIR"] = before
    for one in sets:
        assert [frame.serial for frame in one.frames] == serials
        assert one.skew == pytest.approx(abs(one.frames[0].monotonic_ns - one.frames[1].monotonic_ns) / 1e9)
    numbers = np.array([[frame.number for frame in one.frames] for one in sets])
    assert (np.diff(numbers, axis=0) > 0).all()
    assert np.median([one.skew for one in sets]) < 0.05
    for wrong, text in (([simulation.camera, simulation.camera], "twice"), ([5], "names of workers"), ([], "at least one")):
        with pytest.raises(vqd.UsageError, match=text):
            vqd.cameras(wrong)
    closing = vqd.cameras(simulation.cameras)
    threading.Timer(0.5, closing.close).start()
    with pytest.raises(vqd.UsageError, match="are closed"):
        for _ in closing:
            pass


def test_frames_go_on_after_an_unplug_and_after_the_death_of_the_worker(vqd_sim):
    simulation = vqd_sim("VQD-HT120", scene="plane", fault="unplug after frame 10, back after 300 ms")
    camera = simulation.camera
    reopened = next(frame for frame in camera if frame.reopened)
    assert camera.statistics.reopens == 1 and reopened.session == camera.read().session
    assert [event["event"] for event in camera.events][:2] == ["lost", "reopened"]
    camera.offset = 6
    os.kill(camera.worker["process"], 9)
    revived = next(frame for frame in camera if frame.session != reopened.session)
    assert revived.missed == 0 and camera.offset == 6
    with vqd.cameras([camera]) as cameras:
        assert cameras.read().frames[0].session == revived.session
    with vqd.connect(f"{simulation.runtime_dir}/{camera.serial}.sock") as other:
        os.kill(other.worker["process"], 9)
        next(frame for frame in other if frame.session != revived.session)
    camera.offset = 7  # it has not noticed yet
    assert camera.offset == 7


def test_a_simulation_ends_with_its_program_and_says_why_it_does_not_start(tmp_path):
    program = "import os, vqd; s = vqd.sim(); print(s._process.pid, s.runtime_dir, flush=True); os._exit(0)"
    made = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, check=True)
    process, folder = made.stdout.split()
    for _ in range(300):
        if not os.path.exists(f"/proc/{process}"):
            break
        time.sleep(0.1)
    assert not os.path.exists(f"/proc/{process}")
    subprocess.run(["rm", "-r", folder], check=True)  # nobody was left to do it
    with vqd.sim() as simulation:
        worker = next(name for name in os.listdir(simulation.runtime_dir) if name.endswith(".status"))[: -len(".status")]
        simulation._process.terminate()  # and not by the end of its input
        for _ in range(300):
            if not os.path.exists(f"/proc/{worker}"):
                break
            time.sleep(0.1)
        assert not os.path.exists(f"/proc/{worker}")
    with pytest.raises(vqd.Error, match="VQD-XX"):
        vqd.sim("VQD-XX")
    with pytest.raises(vqd.UsageError):
        vqd.sim(settings={"offset": 1000})
    assert "workers" in json.loads(subprocess.check_output([os.environ["VQD_TOOL"], "status", "--json"]))
