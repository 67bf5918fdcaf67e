# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The element vqdsrc in pipelines, on virtual cameras: pixels, times, gaps, and what is refused, silent, unplugged or killed."""
import json
import os
import re
import signal
import subprocess
import threading
import time
from pathlib import Path

import gi
import numpy as np
import pytest

gi.require_version("Gst", "1.0")
gi.require_version("GstApp", "1.0")
from gi.repository import GLib, GObject, Gst, GstApp  # noqa: E402, F401

pytest_plugins = ["vqd.pytest_plugin"]
Gst.init(None)
PATIENCE = 60  # seconds that no machine should need
CORE, RESOURCE = Gst.CoreError.quark(), Gst.ResourceError.quark()
NOT_FOUND, READ = (RESOURCE, int(Gst.ResourceError.NOT_FOUND)), (RESOURCE, int(Gst.ResourceError.READ))
SETTINGS = (RESOURCE, int(Gst.ResourceError.SETTINGS))


@pytest.fixture(autouse=True)
def run_folder(tmp_path, monkeypatch):
    monkeypatch.setenv("VQD_RUNTIME_DIR", str(tmp_path))


@pytest.fixture
def cameras(vqd_sim, monkeypatch):
    def start(*models, **options):
        simulation = vqd_sim(*models, **options)
        monkeypatch.setenv("VQD_RUNTIME_DIR", simulation.runtime_dir)
        return simulation

    return start


@pytest.fixture
def pipeline():
    made = []

    def make(text, play=True):
        made.append(Gst.parse_launch(text))
        if play:
            made[-1].set_state(Gst.State.PLAYING)
        return made[-1]

    yield make
    for one in made:
        one.set_state(Gst.State.NULL)


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False, timeout=PATIENCE)


def pull(pipeline, name="sink"):
    sample = pipeline.get_by_name(name).try_pull_sample(PATIENCE * Gst.SECOND)
    assert sample is not None, error_of(pipeline)
    return sample


def pixels(sample):
    content = sample.get_buffer()
    return np.frombuffer(content.extract_dup(0, content.get_size()), np.uint16).reshape(240, 320)


def error_of(pipeline):
    """Domain and code, and the sentence."""
    message = pipeline.get_bus().timed_pop_filtered(PATIENCE * Gst.SECOND, Gst.MessageType.ERROR)
    assert message is not None, "no error came"
    error = message.parse_error()[0]
    return (GLib.quark_from_string(error.domain), error.code), error.message


def test_two_cameras_in_one_pipeline_give_the_frames_of_their_workers(cameras, pipeline):
    simulation = cameras("VQD-HT120", "VQD-RS110", scene="ramp")
    seen = {}

    def read(camera):
        for frame in camera.stream():
            seen[camera.serial, frame.number] = frame
            if done.is_set():
                return

    done = threading.Event()
    readers = [threading.Thread(target=read, args=[camera]) for camera in simulation.cameras]
    for reader in readers:
        reader.start()
    plays = pipeline(" ".join(
        f"vqdsrc serial={serial} stream={stream} ! appsink name={stream}"
        for serial, stream in zip(simulation.serials, ("depth", "amplitude"))))
    try:
        for serial, stream in zip(simulation.serials, ("depth", "amplitude")):
            compared = 0
            while compared < 5:
                sample = pull(plays, stream)
                content = sample.get_buffer()
                time.sleep(0.05)  # the reader gets it, too
                frame = seen.get((serial, content.offset))
                if frame is None:
                    continue
                np.testing.assert_array_equal(pixels(sample), getattr(frame, stream))
                assert content.pts == frame.monotonic_ns - plays.get_base_time()
                assert abs(taken(content) / 1e9 - frame.time) < 1e-5
                assert content.offset_end == content.offset + 1
                compared += 1
            caps = sample.get_caps().get_structure(0)
            assert re.match(r"video/x-raw, format=\(string\)GRAY16_LE, width=\(int\)320, height=\(int\)240, framerate=\(fraction\)[1-9]",
                            caps.to_string())
            latency = Gst.Query.new_latency()
            assert plays.get_by_name(stream).get_static_pad("sink").peer_query(latency)
            assert latency.parse_latency() == (True, content.duration, content.duration)
    finally:
        done.set()
        for reader in readers:
            reader.join()


def taken(content):
    """In nanoseconds since 1970."""
    return content.get_reference_timestamp_meta(None).timestamp


def gaps(pipeline, most=1000):
    """For each discontinuity the buffers around it. All others follow the one before."""
    last = pull(pipeline).get_buffer()
    for _ in range(most):
        content = pull(pipeline).get_buffer()
        assert content.pts > last.pts
        if content.has_flags(Gst.BufferFlags.DISCONT):
            yield last, content
        else:
            assert content.offset == last.offset + 1
        last = content


def test_a_gap_is_marked_and_a_pause_leaves_no_old_frames(cameras, pipeline):
    cameras(fault="unplug after frame 60, back after 500 ms")
    plays = pipeline("vqdsrc ! appsink name=sink")
    around = gaps(plays)
    assert any(after.pts > before.pts + 500 * Gst.MSECOND for before, after in around)  # opened again
    plays.set_state(Gst.State.PAUSED)
    time.sleep(0.5)
    resumed = time.monotonic_ns()
    plays.set_state(Gst.State.PLAYING)
    # What was on its way already comes first.
    after = next(after for before, after in around if taken(after) - taken(before) > 400 * Gst.MSECOND)
    assert after.pts >= resumed - plays.get_base_time()


def test_another_clock_of_the_pipeline(cameras, pipeline):
    cameras()
    plays = pipeline("vqdsrc ! appsink name=sink", play=False)
    plays.use_clock(GObject.new(Gst.SystemClock, clock_type=Gst.ClockType.REALTIME))
    plays.set_state(Gst.State.PLAYING)
    content = pull(plays).get_buffer()
    assert abs(content.pts + plays.get_base_time() - taken(content)) < 2 * Gst.SECOND


@pytest.mark.parametrize("models, cases", [
    ((), {
        "vqdsrc": (NOT_FOUND, r"No worker is running: start one with 'vqd worker'\."),
        "vqdsrc serial=1-2": (NOT_FOUND, r"No worker has the camera 1-2: start one with 'vqd worker -c 1-2'\."),
        "vqdsrc serial=./no.sock": (NOT_FOUND, r".*no worker answers at \./no\.sock: No such file or directory\."),
    }),
    (("VQD-HT110", "VQD-RS110"), {
        "vqdsrc": (NOT_FOUND, r"The property serial must name one of these .*: 24061100000001, 24061100000002\."),
    }),
    (("VQD-HT110",), {
        "vqdsrc settings=offset=1000": (SETTINGS, r"The settings were not taken: offset takes -255 to 255\."),
        "vqdsrc settings=offset=,5": (SETTINGS, r"The settings 'offset=,5' are not of the form .*\."),
        "vqdsrc settings=5": (SETTINGS, r"The settings '5' are not of the form .*\."),
        'vqdsrc settings="a\\"b=5"': (SETTINGS, r"The settings .* are not of the form .*\."),
        "vqdsrc ! video/x-raw,framerate=1/1": ((CORE, int(Gst.CoreError.NEGOTIATION)), r".* videorate make other .*\."),
    }),
])
def test_what_is_refused_is_said_in_a_sentence(cameras, pipeline, models, cases):
    if models:
        cameras(*models)
    for launch, (kind, sentence) in cases.items():
        seen, text = error_of(pipeline(launch + " ! fakesink"))
        assert seen == kind and re.fullmatch(sentence, text), (launch, text)


def test_settings_are_those_of_the_first_frame_and_the_rate_can_be_named(cameras, pipeline):
    simulation = cameras("VQD-HT110", scene="ramp")
    rows = np.median(simulation.camera.read().depth.astype(int), axis=1)
    plays = pipeline("vqdsrc settings=offset=-7,depth-range=300,6000,flip-vertical=1 ! appsink name=sink")
    first = pull(plays)
    np.testing.assert_allclose(np.median(pixels(first).astype(int), axis=1)[60:180], rows[::-1][60:180], atol=60)
    assert simulation.camera.offset == -7 and tuple(simulation.camera.settings["depth-range"]) == (300, 6000)
    rate = first.get_caps().get_structure(0).to_string().split("(fraction)")[1].split(";")[0].split(",")[0]
    plays.set_state(Gst.State.NULL)
    named = pipeline(f"vqdsrc ! videorate ! video/x-raw,framerate={rate} ! appsink name=sink")
    assert rate in pull(named).get_caps().to_string()


def test_a_worker_whose_camera_is_still_being_opened(pipeline, tmp_path):
    with subprocess.Popen([os.environ["VQD_TOOL"], "sim", "VQD-HT110", "--", os.environ["VQD_TOOL"], "worker", "-q"]) as worker:
        try:
            while not list(tmp_path.glob("*.sock")):
                time.sleep(0.01)
            assert pixels(pull(pipeline("vqdsrc ! appsink name=sink"))).any()
        finally:
            worker.terminate()


def test_an_unplugged_camera_ends_the_pipeline(cameras, pipeline):
    cameras(fault="unplug after frame 60")
    plays = pipeline("vqdsrc ! fakesink")
    kind, sentence = error_of(plays)
    assert kind == READ and re.fullmatch(r"No more frames come: the camera is lost.*\.", sentence), sentence
    plays.set_state(Gst.State.NULL)
    kind, sentence = error_of(pipeline("vqdsrc ! fakesink"))
    assert kind == NOT_FOUND and re.fullmatch(r"The worker has no camera to take frames from: .*\.", sentence), sentence


@pytest.mark.parametrize("victim", ["process", "supervisor"])
def test_a_killed_worker_ends_the_pipeline(cameras, pipeline, victim):
    cameras()
    plays = pipeline("vqdsrc ! appsink name=sink max-buffers=1 drop=true")
    pull(plays)
    os.kill(json.loads(run(os.environ["VQD_TOOL"], "status", "--json").stdout)["workers"][0][victim], signal.SIGKILL)
    kind, sentence = error_of(plays)
    assert kind == READ and "the worker has ended the connection" in sentence, sentence


@pytest.mark.parametrize("frames", [3, 60])  # the rate is not known yet, or it is
def test_a_pipeline_stops_while_its_camera_is_silent(cameras, pipeline, frames):
    cameras(fault=f"silent after frame {frames}")
    plays = pipeline("vqdsrc ! appsink name=sink")
    while plays.get_by_name("sink").try_pull_sample(Gst.SECOND) is not None:
        pass
    for state in (Gst.State.PAUSED, Gst.State.PLAYING):
        assert plays.set_state(state) != Gst.StateChangeReturn.FAILURE
        assert plays.get_bus().timed_pop_filtered(Gst.SECOND // 5, Gst.MessageType.ERROR) is None
    plays.send_event(Gst.Event.new_eos())
    assert plays.get_bus().timed_pop_filtered(PATIENCE * Gst.SECOND, Gst.MessageType.EOS) is not None
    for one in (plays, pipeline("vqdsrc ! fakesink")):
        assert one.set_state(Gst.State.NULL) == Gst.StateChangeReturn.SUCCESS


def test_the_commands_of_gstreamer_know_the_element(cameras, tmp_path):
    cameras()
    shown = run("gst-inspect-1.0", "vqdsrc")
    assert shown.returncode == 0 and not shown.stderr and "GRAY16_LE" in shown.stdout, shown.stderr
    ended = run("gst-launch-1.0", "-q", "vqdsrc", "num-buffers=3", "!", "filesink", f"location={tmp_path}/frames")
    assert ended.returncode == 0 and (tmp_path / "frames").stat().st_size == 3 * 2 * 320 * 240, ended.stderr


PAGE = (Path(__file__).resolve().parents[2] / "docs/gstreamer.md").read_text()
LINES = re.findall(r"^gst-launch-1\.0 (?:.*\\\n)*.*", PAGE, re.MULTILINE)


@pytest.mark.parametrize("line", [line for line in LINES if "num-buffers" in line])
def test_the_lines_of_the_page(cameras, tmp_path, monkeypatch, line):
    missing = [name for name in re.findall(r"(?:^|[!\n] *)([a-z0-9_]+)", line) if Gst.ElementFactory.find(name) is None]
    if missing := set(missing) - {"gst"}:
        pytest.skip(f"not installed: {missing}")
    cameras(*(["VQD-HT120", "VQD-RS110"] if "24061100000002" in line else ["VQD-HT120"]))
    monkeypatch.chdir(tmp_path)
    ended = run("sh", "-c", line)
    made = [name.replace("%03d", "009") for name in re.findall(r"location=(\S+)", line)]
    assert ended.returncode == 0 and all((tmp_path / name).stat().st_size > 50_000 for name in made), ended.stderr


def test_opencv_captures_16_bits(cameras, tmp_path, monkeypatch):
    cv2 = pytest.importorskip("cv2")
    if not re.search("GStreamer: +YES", cv2.getBuildInformation()):
        pytest.skip("OpenCV was built without GStreamer")
    cameras(scene="plane")
    monkeypatch.chdir(tmp_path)
    there = {"cv2": cv2}
    exec(re.search(r"```python\n(.*?)```", PAGE, re.DOTALL)[1], there)  # as the page has it
    assert there["depth"].dtype == np.uint16 and abs(np.median(there["depth"]) - 1500) < 5
    assert cv2.imread("depth.png").shape == (240, 320, 3)
