# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""A camera in this process. To be run below ``vqd sim VQD-HT120 --scene plane``."""
import ctypes
import json
import logging
import os
import re
import threading
import time

import numpy as np
import pytest

import vqd

SERIAL = "24061100000001"

if "UMOCKDEV_DIR" not in os.environ:
    pytest.skip("not below vqd sim", allow_module_level=True)


@pytest.fixture(scope="module")
def camera():
    with vqd.Camera(SERIAL, profile=False) as camera:
        camera.read()
        yield camera


def no_pause():
    """The pause between two saves is for real EEPROMs."""
    for file in os.listdir(os.environ["XDG_STATE_HOME"] + "/vqd"):
        if file.startswith("saved-"):
            os.utime(f"{os.environ['XDG_STATE_HOME']}/vqd/{file}", (0, 0))
    vqd._eeprom._own_times.clear()


def test_frames_are_what_the_camera_sees(camera):
    frames = [camera.read() for _ in range(3)]
    for frame in frames:
        assert frame.depth.shape == frame.amplitude.shape == (240, 320)
        assert abs(float(np.median(frame.depth)) - 1500) < 5 and abs(float(np.median(frame.amplitude)) - 1000) < 5
        assert frame.serial == SERIAL and frame.temperature > 20 and abs(time.time() - frame.time) < 60
    assert np.ptp(frames[0].depth) > 0 and not np.array_equal(frames[0].depth, frames[1].depth)  # noise; no shared memory
    assert [frame.number - frames[0].number for frame in frames] == [0, 1, 2]
    assert frames[2].stamp > frames[0].stamp and frames[2].monotonic_ns > frames[1].monotonic_ns


def test_what_a_program_keeps_of_frames_stays_as_it_was(camera):
    whole = [camera.read() for _ in range(6)]
    part = camera.read().depth[100:101, ::2]  # the frame itself is gone
    copies = [frame.depth.copy() for frame in whole], part.copy()
    for _ in range(10):
        camera.read()
    assert all(np.array_equal(frame.depth, copy) for frame, copy in zip(whole, copies[0])) and np.array_equal(part, copies[1])


def test_points_lie_on_the_rays_of_the_lens(camera):
    frame = camera.read()
    frame.depth[10, 20] = 0
    points = camera.points(frame)
    rows, columns = np.indices((240, 320))
    lens, depth = camera.lens, frame.depth.astype(float)
    expected = np.dstack([(columns - lens.cx) * depth / lens.fx, (rows - lens.cy) * depth / lens.fy, depth]) / 1000
    np.testing.assert_allclose(points, expected, atol=1e-6)
    assert points[10, 20].tolist() == [0, 0, 0]
    np.testing.assert_array_equal(camera.points(frame, axes="camera") * np.float32([1, -1, 1]), points)
    for _ in range(2):  # the rays of another camera stand in the library's table for a moment
        other = vqd._rays.points(frame.depth, vqd.Lens(102, 204, 160, 120), "optical")
        np.testing.assert_allclose(other[..., 0], 2 * expected[..., 0], atol=1e-5)
    np.testing.assert_array_equal(camera.points(frame), points)
    for wrong in (lambda: camera.points(frame, axes="x"), lambda: camera.points(vqd.Frame(depth[:5], depth))):
        with pytest.raises(vqd.UsageError):
            wrong()


def test_every_setting_is_what_the_tool_reads_after_a_save(camera, tool):
    values = {
        "frequency": 30, "offset": -77, "scatter-threshold": 3, "check-threshold": 12, "depth-range": (300, 14000),
        "flip-horizontal": True, "flip-vertical": True, "fps-delay": 2, "multi-cam": (1, 4, 5), "remove-edge": True,
        "motion-blur": (0, 9), "undistortion": 2, "fppn": True, "orthogonal": True,
    }
    backup = camera.read_eeprom()
    camera.settings.update(values)
    assert camera.settings.as_dict().items() >= values.items()
    assert camera.flip_vertical is True and camera.depth_range == (300, 14000) and camera.read().corrected
    assert camera.save() is True
    assert camera.save() is False  # it holds them already
    shown = json.loads(tool("get", "--json"))["settings"]
    assert {name: tuple(value) if isinstance(value, list) else value for name, value in shown.items()}.items() >= values.items()
    assert shown["illumination"] == 0 and camera.settings["illumination"]  # frames went on
    camera.read()
    camera.offset = 3
    with pytest.raises(vqd.Error, match="next save is possible in"):
        camera.save()
    no_pause()
    assert camera.restore_eeprom(backup) is True
    assert camera.settings["offset"] == 0
    no_pause()


@pytest.mark.parametrize(
    "name, value, kind, text",
    [
        ("offset", 256, vqd.UsageError, "offset takes -255 to 255, not 256"),
        ("offset", 1.5, vqd.UsageError, "not 1.5"),
        ("depth_range", (4000, 300), vqd.UsageError, "ascending"),
        ("depth_range", 5, vqd.UsageError, "not 5"),
        ("frequency", 10, vqd.SettingError, "frequency = 10 was refused; it takes 20 .VQD-HT110, VQD-HT120"),
        ("illumination", False, vqd.UsageError, "no frame would come"),
    ],
)
def test_a_refused_setting_says_what_it_takes(camera, name, value, kind, text):
    before = camera.settings.as_dict()
    with pytest.raises(kind, match=text):
        setattr(camera, name, value)
    del before["temperature"]
    assert camera.settings.as_dict().items() >= before.items()
    with pytest.raises(AttributeError):
        camera.ofset = 5


def test_lines_of_the_library_come_with_the_error_and_nowhere_else(camera, capfd):
    result, lines = camera._library.call("vqdSetOffset", camera.number, 300)
    assert (result, lines) == (0, ("Offset Range: -255 ~ 255",))
    assert str(vqd.Error("it failed", lines)) == "it failed\n  library: Offset Range: -255 ~ 255"
    assert capfd.readouterr().out == ""


def test_what_others_print_meanwhile_goes_where_it_belongs(camera, capfd):
    libc, ends = ctypes.CDLL(None), threading.Event()
    held = ctypes.PyDLL(None)  # it keeps Python's lock, as extensions often do

    def print_lines():
        i = 0
        while not ends.is_set():
            libc.puts(b"of another thread %d" % i)
            held.puts(b"with the lock %d" % i)
            i += 1
            time.sleep(0.001)

    thread = threading.Thread(target=print_lines)
    thread.start()
    for _ in range(30):
        assert camera._library.call("vqdSetOffset", camera.number, 300)[1] == ("Offset Range: -255 ~ 255",)
        camera.read()
    ends.set()
    thread.join()
    camera._library.call("vqdSetOffset", camera.number, 300)  # takes along what came during the end of the last call
    libc.puts(b"outside a call 0")
    libc.fflush(None)
    printed = capfd.readouterr().out
    for start in ("of another thread", "with the lock"):  # not by lines: puts() may write the end of one to the other stream
        numbers = [int(number) for number in re.findall(start + r" (\d+)", printed)]
        assert sorted(numbers) == [*range(len(numbers))] and len(numbers) > 20
    assert "Offset" not in printed and printed.splitlines()[-1] == "outside a call 0"


def test_a_camera_is_for_one_process_and_one_object(camera, run_python, tool):
    with pytest.raises(vqd.HeldError, match="vqd.connect"):
        vqd.Camera()
    code, _, errors = run_python("import vqd; vqd.Camera()")
    assert code == 1 and f"python (process {os.getpid()}) has it open" in errors
    assert "python (process" in tool("status", "--json") or '"program": "python"' in tool("status", "--json")
    assert [found.serial for found in vqd.list()] == [SERIAL]
    camera.read()


def test_the_newest_frame_is_for_the_slow_and_settings_go_on(camera):
    missed = 0
    for i, frame in enumerate(camera.stream(latest=True)):
        camera.offset = i
        time.sleep(0.2)
        missed += frame.missed
        if i == 3:
            break
    assert missed > 3 and camera.offset == 3
    with pytest.raises(vqd.NoFrameError, match="within 0.001 s"):
        for _ in range(50):
            camera.read(timeout=0.001)
    camera.stop()
    assert not any(thread.name == "vqd-reader" for thread in threading.enumerate())
    camera.read()


def test_a_pause_loses_no_frames(camera):
    camera.read()
    before = camera.statistics
    camera.stop()
    time.sleep(0.5)
    camera.read()
    with camera._stopped():
        time.sleep(0.5)
    camera.read()
    assert camera.statistics.dropped == before.dropped and camera.statistics.longest_gap == before.longest_gap


def test_a_loop_of_newest_frames_goes_on_after_a_stop_and_is_told_of_its_end(camera):
    frames = camera.stream(latest=True)
    next(frames)
    camera.stop()
    assert next(frames).number < next(frames).number
    frames.close()
    failing = vqd._latest.LatestReader(lambda: 1 / 0)
    failing._thread.join()  # nobody waits when the failure comes
    assert failing.runs
    with pytest.raises(ZeroDivisionError):
        failing.take(0)
    assert not failing.runs
    waiting = vqd._latest.LatestReader(lambda: time.sleep(0.2) or 1 / 0)
    threading.Timer(0.05, waiting.stop).start()
    assert waiting.take(None) is None


def test_a_forked_child_leaves_the_camera_to_its_parent(camera):
    frame = camera.read()
    with camera._library.turn:  # as a reading thread has it most of the time
        child = os.fork()
        if child == 0:
            try:
                assert camera.points(frame).any()
                with pytest.raises(vqd.UsageError, match="closed"):
                    camera.read()
                with pytest.raises(vqd.HeldError, match=f"process {os.getppid()}"):
                    vqd.Camera()
                vqd._camera._close_at_exit()
                camera.close()
                os._exit(0)
            finally:
                os._exit(1)
    assert os.waitpid(child, 0)[1] == 0
    before = camera.statistics.reopens
    camera.read()
    assert camera.read().number == frame.number + 2 and camera.statistics.reopens == before


def test_a_backup_comes_back_with_everything_in_it(camera, tmp_path, tool):
    backup = camera.read_eeprom()
    tool("eeprom", "backup", str(tmp_path / "tool.bin"))
    assert backup == (tmp_path / "tool.bin").read_bytes()
    before = camera.lens
    with pytest.raises(vqd.UsageError, match="not plausible"):
        camera.write_lens(vqd.Lens(204, 204, 100, 120))
    with pytest.raises(vqd.UsageError, match="neither a lens nor"):
        camera.write_lens()  # which would count as a write
    camera.write_lens(vqd.Lens(211.26, 209.9, 158.3, 121.2, -0.3456, 0.12, 0.0014, 0.05, -0.07, 0.001))
    shown = json.loads(tool("lens"))["depth"]
    held = {"fx": 211.3, "fy": 209.9, "cx": 158.3, "cy": 121.2, "k1": -0.346, "k2": 0.12, "k3": 0.001, "p1": 0.05, "p2": -0.07}
    for name, value in held.items():
        assert shown[name] == pytest.approx(value, abs=1e-5) == getattr(camera.lens, name)
    np.testing.assert_allclose(vqd.exported.pPointCloud[0, 0, 0], -158.3 / 211.3 / 1000, rtol=1e-6)
    no_pause()
    for wrong, text in ((backup[:-1], "128 bytes"), (bytes(128), "signature"), (backup[:60] + b"\1" + backup[61:], "backup is that")):
        with pytest.raises(vqd.UsageError, match=text):
            camera.restore_eeprom(wrong)
    path = tmp_path / "backup.bin"
    path.write_bytes(backup)
    assert camera.restore_eeprom(path) is True and camera.restore_eeprom(backup) is False
    assert camera.lens == before and camera.read_eeprom() == backup
    kept = sorted(os.listdir(os.environ["XDG_STATE_HOME"] + "/vqd"))
    assert f"saved-{SERIAL}" in kept and sum(name.startswith("eeprom-") for name in kept) >= 3
    no_pause()
    assert abs(float(np.median(camera.read().depth)) - 1500) < 30


def test_tables_come_back_as_they_were_written(camera, tmp_path):
    rng = np.random.default_rng(1)
    fppn = rng.integers(0, 60, (60, 80))
    before = camera.tables.read("fppn-4x4")
    camera.tables.write("fppn-4x4", fppn)
    np.testing.assert_array_equal(camera.tables.read("fppn-4x4"), fppn)
    camera.tables.write("fppn-4x4", before)
    signed = rng.integers(-255, 256, (48, 64))
    np.testing.assert_array_equal(vqd._tables.decode("fppn-5x5", vqd._tables.encode("fppn-5x5", signed)), signed)
    for name, values, text in (
        ("fppn-4x4", fppn[1:], "shape"), ("orthogonal", np.full((256, 8), 7.0), "to 6.5535"), ("x", 1, "no table"),
        ("fppn", fppn, "only the maker"), ("fppn-5x5", signed * 2, "-255 to 255"),
    ):
        with pytest.raises(vqd.UsageError, match=text):
            camera.tables.write(name, values)


def test_exported_tables_are_views_that_count_from_the_next_frame_on(camera):
    camera.orthogonal = True
    kept = vqd.exported.m_dOrthogonalData.copy()
    vqd.exported.m_dOrthogonalData[:120] = 0.5
    vqd.exported.m_dOrthogonalData[120:] = 0.25
    depth = camera.read().depth
    assert abs(float(np.median(depth[:120])) - 750) < 5 and abs(float(np.median(depth[120:])) - 375) < 5
    vqd.exported.m_dOrthogonalData = kept
    camera.orthogonal = False
    camera.depth_range = (1600, 9000)
    assert not camera.read().depth.any()  # the host clips
    camera.depth_range = (0, 15000)
    vqd.exported.m_nDepthGab = 123
    assert vqd.exported.m_nDepthGab == 123


def test_filters_work_in_place_and_refuse_what_they_cannot_work_on():
    amplitude = np.array([[10, 100], [64, 66]], np.uint16)
    depth = np.full((2, 2), 1000, np.uint16)
    vqd.filters.amplitude_check(amplitude, depth, 50)  # 50 * 1.3
    assert depth.tolist() == [[0, 1000], [0, 1000]]
    vqd.filters.min_max_check(depth, 1001, 2000)
    assert depth.tolist() == [[0, 0], [0, 0]]
    for wrong in (depth.T[:1], depth.astype(float), depth[:, ::2], [1]):
        with pytest.raises(vqd.UsageError):
            vqd.filters.amplitude_check(amplitude, wrong, 5)
    with pytest.raises(vqd.UsageError):
        vqd.filters.scattering_check(amplitude, depth, 256)


def test_the_profile_of_the_machine_is_used_as_the_tool_does(camera, tool, tmp_path, caplog):
    camera.close()
    lens = json.loads(tool("lens"))
    lens["depth"]["fx"] = 204.04
    (tmp_path / "lens.json").write_text(json.dumps(lens))
    tool("profile", "import", "--lens", str(tmp_path / "lens.json"), "--orthogonal", "lens", "--fppn", "camera")
    tool("profile", "export", "--plain", str(tmp_path / "plain"))
    words = (tmp_path / "plain").read_text().split()
    with vqd.Camera(orthogonal=True) as other:
        assert other.profile and other.lens.fx == np.float32(204.04)
        start = words.index("orthogonal") + 1
        np.testing.assert_array_equal(vqd.exported.m_dOrthogonalData.ravel(), np.array(words[start : start + 76800], float))
        start = words.index("fppn") + 1
        np.testing.assert_array_equal(vqd.exported.m_nEEPROMFPPNBuf.ravel(), np.array(words[start : start + 4800], int))
        assert other.read().profiled
        with caplog.at_level(logging.WARNING):
            other.write_lens(vqd.Lens(205, 205, 160, 120))
        assert other.profile is None and "has changed" in caplog.text and other.lens.fx == 205
    with open(f"{os.environ['XDG_DATA_HOME']}/vqd/profiles/{SERIAL}.json", "w", encoding="utf-8") as file:
        file.write('{"schema": "vqd.profile/1", "serial": "1"}')
    with pytest.raises(vqd.UsageError, match="the profile of camera 1; profile=False"):
        vqd.Camera()
    with vqd.Camera(profile=False) as again:  # nothing holds the camera after the failure
        assert again.read().profiled is False
    again.close()
    with pytest.raises(vqd.UsageError, match="closed"):
        again.read()
    assert [vqd.Camera(profile=False).serial for _ in range(2)] == [SERIAL] * 2  # one that is forgotten is let go
