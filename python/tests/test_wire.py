# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The wire without a camera: messages cut anywhere, hostile ones, and workers that vanish."""
import contextlib
import json
import socket
import threading
import time

import numpy as np
import pytest

import vqd
from vqd import _library, _nearest, _packing, _wire

MS = 1_000_000
PLANES = (np.arange(2 * 240 * 320) % 5000).astype("<u2").reshape(2, 240, 320)


def frame_bytes(number=1, session=7, flags=0, width=320, height=240, planes=None, size=None, time=0):
    body = PLANES.tobytes() if planes is None else planes
    header = (b"24061100000001", session, number, 5 * 10**9, time, 33, 1, 36.5, flags, 2, width, height)
    return _wire.HEADER.pack(*header, len(body) if size is None else size, 0) + body


def messages_of(data, cut):
    """What an assembler makes of a stream that comes in parts of this size."""
    rest = memoryview(data)

    def receive(into):
        nonlocal rest
        count = min(cut, len(into), len(rest))
        into[:count], rest = rest[:count], rest[count:]
        return count

    assembler, found = _wire.Assembler(receive), []
    try:
        while True:
            found.append(assembler.step())
    except EOFError as why:
        return found, str(why)


@pytest.mark.parametrize("cut", [1, 15, 16, 17, 100_000, 1_000_000])
def test_messages_are_whole_however_the_stream_is_cut(cut):
    size = 40 if cut == 1 else 240
    planes = PLANES[:, :size].tobytes()
    sent = [(3, 0, b"{}"), (4, 0, b""), (2, 9, frame_bytes(height=size, planes=planes))]
    data = b"".join(_wire.message(kind, body, request) for kind, request, body in sent)
    found, why = messages_of(data, cut)
    assert [(m.kind, m.request, m.body.tobytes()) for m in found] == sent and why == ""
    assert messages_of(data[:-1], cut)[1] == "in the middle of a message"
    frame = _wire.frame_in(found[2].body)
    np.testing.assert_array_equal(frame.amplitude, PLANES[0, :size])
    np.testing.assert_array_equal(frame.depth, PLANES[1, :size])
    assert (frame.number, frame.session, frame.serial, frame.time, frame.dropped) == (1, 7, "24061100000001", 5.0, 2)


def test_what_is_no_frame_is_refused():
    short = np.frombuffer(frame_bytes()[:90], np.uint8)
    cases = {"no whole header": short}
    for name, wrong in {
        "300 bytes": {"planes": bytes(300)}, "307200": {"height": 241}, "0 bytes": {"planes": b"", "width": 0},
        "307200 b": {"size": 5}, "damaged": {"flags": 16}, "307201": {"flags": 16, "planes": bytes(307201)},
    }.items():
        cases[name.split()[0]] = np.frombuffer(frame_bytes(**wrong), np.uint8)
    for text, body in cases.items():
        with pytest.raises(vqd.Error, match=text):
            _wire.frame_in(body)
    for data, text in (
        (b"HTTP/1.1 400 Bad Request", "no worker"), (_wire.PREFIX.pack(b"VQDW", 2, 1, 0, 0), "speaks version 2"),
        (_wire.PREFIX.pack(b"VQDW", 1, 1, 1 << 21, 0), "larger than the wire"),
    ):
        with pytest.raises(_wire.WireError, match=text):
            messages_of(data, 100)
    for text in (b"\xff", b"[]", b"[" * 100_000):
        with pytest.raises(_wire.WireError):
            _wire.json_in(np.frombuffer(text, np.uint8))


def test_packed_planes_of_another_size_are_refused():
    zstandard = pytest.importorskip("zstandard")
    rng = np.random.default_rng(2)
    planes = rng.integers(0, 65536, (2, 4, 8), dtype=np.uint16)
    flat = planes.reshape(2, 32)
    differences = np.diff(flat, axis=1, prepend=np.uint16(0)).astype(np.int64) % 65536
    zigzag = np.where(differences < 32768, 2 * differences, 131071 - 2 * differences)
    content = np.stack([zigzag & 255, zigzag >> 8], axis=1).astype(np.uint8).tobytes()
    packed = np.frombuffer(zstandard.ZstdCompressor().compress(content), np.uint8)
    np.testing.assert_array_equal(_packing.unpack(packed, 2, 4, 8), planes)
    unknown = zstandard.ZstdCompressor(write_content_size=False).compress(content)
    for data, height in ((packed, 5), (packed[:-3], 4), (np.frombuffer(unknown, np.uint8), 4)):
        with pytest.raises(vqd.Error, match="packed planes"):
            _packing.unpack(data, 2, height, 8)


class Worker(threading.Thread):
    """Says what it is told to, to one reader after the other, and notes what it is asked."""

    def __init__(self, path, *talks):
        super().__init__(daemon=True)
        self.talks, self.asked = talks, []
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(path))
        self.listener.listen()
        self.start()

    def run(self):
        for talk in self.talks:
            link, _ = self.listener.accept()
            with link:
                for step in talk:
                    if step is None:
                        with contextlib.suppress(EOFError):  # the reader has gone
                            self.asked.append(_wire.Assembler(lambda into: link.recv_into(into)).step())
                    else:
                        link.sendall(step(self.asked[-1]) if callable(step) else step)
        self.listener.close()


STATE = _wire.message(1, json.dumps({"state": "streaming", "session": 7}).encode())


def answer(**of_frame):
    return lambda asked: _wire.message(2, frame_bytes(**of_frame), asked.request)


def test_a_reader_goes_on_with_the_next_session_of_its_worker(tmp_path):
    other = _wire.message(1, json.dumps({"state": "streaming", "session": 8}).encode())
    worker = Worker(tmp_path / "w.sock", [STATE, None, answer(), None, answer(number=4), None], [other, None, answer(session=8)])
    with vqd.connect(str(tmp_path / "w.sock")) as camera:
        frames = [camera.read(10) for _ in range(3)]
    assert [(frame.session, frame.number, frame.missed) for frame in frames] == [(7, 1, 0), (7, 4, 2), (8, 1, 0)]
    with pytest.raises(vqd.UsageError, match="closed"):  # and not a new connection
        camera.read(0)
    afters = [_wire.PULL.unpack(asked.body.tobytes())[0] for asked in worker.asked]
    assert afters == [0, 1, 4, 0]  # the numbers of the other session mean nothing to the new one


@pytest.mark.parametrize(
    "talk, kind, text",
    [
        ([b"SSH-2.0-OpenSSH\r\nxxxxxxxx"], vqd.Error, "no worker"),
        ([STATE, None, _wire.message(6, b'{"ok": false}', 0) + answer(height=3)(_wire.Message(7, 1, b""))], vqd.Error, "planes"),
        (
            [STATE, None, lambda asked: _wire.message(6, b'{"ok": false, "error": "no packing"}', asked.request), None],
            vqd.Error,
            "sends no frame: no packing",
        ),
        ([STATE, None, b"VQDW"], vqd.LostError, "no worker answers|ended the connection"),
        ([_wire.message(1, b'{"state": "waiting"}'), None, None], vqd.Error, "waiting|ended the connection|answers"),
    ],
)
def test_a_worker_that_talks_rubbish_or_goes_is_told(tmp_path, talk, kind, text):
    Worker(tmp_path / "w.sock", talk)
    with pytest.raises(kind, match=text):
        with vqd.connect(str(tmp_path / "w.sock"), timeout=2) as camera:
            camera.read(0.5)


def test_no_worker_is_told_with_its_place(tmp_path):
    with pytest.raises(vqd.LostError, match="no worker answers at .*nobody.sock"):
        vqd.connect("nobody", timeout=0.1)
    for name, timeout in (("", 1), ("/" + "x" * 200, 1), ("a", -1), ("a", float("nan"))):
        with pytest.raises(vqd.UsageError):
            vqd.connect(name, timeout=timeout)


def test_a_lost_connection_does_not_leave_a_request_waiting(tmp_path):
    Worker(tmp_path / "w.sock", [STATE, None])
    with vqd.connect(str(tmp_path / "w.sock"), timeout=5) as camera, pytest.raises(vqd.LostError, match="not known whether"):
        camera.offset = 5


def test_a_turn_goes_to_who_has_waited_for_it():
    turn, ends, taken = _library.Turn(), threading.Event(), 0

    def take_again_and_again():
        nonlocal taken
        while not ends.is_set() and taken < 1000:
            with turn:
                time.sleep(0.002)
                taken += 1

    thread = threading.Thread(target=take_again_and_again)
    thread.start()
    time.sleep(0.05)
    before = taken
    with turn.held():
        between, _ = taken, time.sleep(0.01)
        with turn:
            assert taken == between
    ends.set()
    thread.join()
    assert between - before < 20


@pytest.mark.parametrize(
    "first, second, now, expected",
    [
        ([100, 133], [101, 134], 150, [0, 0]),  # the later of the oldest leads
        ([100, 133], [131], 150, [1, 0]),
        ([100], [131], 140, None),  # 133 may still come to the first
        ([100], [131], 171, [0, 0]),  # and has not
        ([125], [131], 132, [0, 0]),  # nothing nearer can come within half an interval
        ([], [131], 500, None),
    ],
)
def test_frames_that_are_nearest_in_time_belong_together(first, second, now, expected):
    cameras = [_nearest.Times([time * MS for time in times], 33 * MS) for times in (first, second)]
    assert _nearest.nearest(cameras, now * MS).chosen == expected


class Feeder:
    """Stands for a camera: gives frames that were taken at these moments, then none."""

    connected = True

    def __init__(self, serial, times):
        self.serial, self.frames = serial, [vqd.Frame(PLANES[1], PLANES[0], i + 1, monotonic_ns=t) for i, t in enumerate(times)]

    def read(self, timeout):
        if not self.frames:
            time.sleep(0.01)
            raise vqd.NoFrameError("no frame")
        return self.frames.pop(0)


def test_a_set_takes_the_chosen_frames_and_forgets_those_before_them():
    now = time.monotonic_ns() + 2000 * MS  # so that nothing is old, however slow the machine is
    first = Feeder("a", [now - 20 * MS, now - 10 * MS, now, now + 33 * MS])
    with vqd.cameras([first, Feeder("b", [now - MS, now + 32 * MS])]) as cameras:
        sets = [cameras.read(5) for _ in range(2)]
        assert [[frame.number for frame in one.frames] for one in sets] == [[3, 1], [4, 2]]
        assert sets[0].skew == pytest.approx(0.001)
        with pytest.raises(vqd.NoFrameError, match="no set came within 0.05 s: no frame"):
            cameras.read(0.05)
