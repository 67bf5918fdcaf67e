# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Several cameras in step: sets of frames that belong together."""
from __future__ import annotations

import logging
import threading
import time
from collections import deque
from collections.abc import Iterable, Iterator, Sequence
from typing import NamedTuple, Optional, Union

from ._closing import Closing
from ._connect import connect
from ._errors import Error, LostError, NoFrameError, UsageError
from ._frame import Frame
from ._nearest import Times, nearest
from ._remote import RemoteCamera

_log = logging.getLogger("vqd")

_KEPT = 4  # frames of a camera among which the nearest is chosen
_USUAL_INTERVAL = 33_333_333  # of a camera that has not shown its own yet
_LONGEST_INTERVAL = 1_000_000_000  # a longer one is an outage
_READ_TIMEOUT = 0.5  # how soon a reading thread notices the end
_BETWEEN = 0.2


class FrameSet(NamedTuple):
    """Frames that belong together.

    Attributes:
        frames: one of each camera, in the order of the cameras.
        skew: seconds from the earliest to the latest of them.
    """

    frames: tuple[Frame, ...]
    skew: float


class _Feed:
    """What has come from one camera, by a thread of its own."""

    def __init__(self, camera: RemoteCamera, news: threading.Condition) -> None:
        self.camera = camera
        self.frames: deque[Frame] = deque(maxlen=_KEPT)
        self.trouble = f"no frame has come from camera {camera.serial or 'without a serial number'}"
        self._interval = 0
        self._last: Optional[Frame] = None
        self._news = news
        self.stops = False
        self._thread = threading.Thread(target=self._run, name="vqd-set", daemon=True)
        self._thread.start()

    def _run(self) -> None:
        while not self.stops:
            try:
                frame = self.camera.read(_READ_TIMEOUT)
            except Error as why:
                with self._news:
                    self.trouble = str(why)
                if not isinstance(why, NoFrameError):
                    time.sleep(_BETWEEN)  # until the worker is back
                continue
            with self._news:
                self._keep(frame)
                self._news.notify_all()

    def _keep(self, frame: Frame) -> None:
        last, self._last = self._last, frame
        if last is not None and last.session == frame.session and frame.number > last.number:
            # The shortest interval counts, but one that is longer for a while is believed in the end.
            interval = max(0, frame.monotonic_ns - last.monotonic_ns) // (frame.number - last.number)
            if interval <= _LONGEST_INTERVAL:
                known = self._interval
                self._interval = interval if known == 0 or interval < known else known + (interval - known) // 16
        if self.frames and frame.monotonic_ns < self.frames[-1].monotonic_ns:
            self.frames.clear()
        self.frames.append(frame)

    def times(self, oldest: int) -> Times:
        """Of the frames that are not older than this by more than an interval and a half."""
        limit = oldest - max(self._interval, _USUAL_INTERVAL) * 3 // 2
        while self.frames and self.frames[0].monotonic_ns < limit:
            self.frames.popleft()
        return Times([frame.monotonic_ns for frame in self.frames], self._interval)

    def take(self, chosen: int) -> Frame:
        """The chosen frame; those before it are forgotten."""
        for _ in range(chosen):
            self.frames.popleft()
        return self.frames.popleft()

    def join(self) -> None:
        """Waits for the end of the thread once ``stops`` is set."""
        self._thread.join()


class Cameras(Closing):
    """Several cameras in step: an iterator of FrameSet. ``vqd.cameras()`` makes one.

    Attributes:
        cameras: the cameras, in the order in which they were given. Their settings may be changed at any time.
        timeout: seconds that a read waits when it is told none.
    """

    def __init__(self, cameras: Iterable[Union[str, RemoteCamera]], *, timeout: float = 15.0) -> None:
        given: list[Union[str, RemoteCamera]] = [cameras] if isinstance(cameras, str) else [*cameras]
        if not all(isinstance(camera, str) or hasattr(camera, "connected") for camera in given):
            raise UsageError("a set has names of workers, or cameras that vqd.connect() gave")
        if not given or len({id(camera) if isinstance(camera, RemoteCamera) else camera for camera in given}) < len(given):
            raise UsageError("a set has at least one camera, and none of them twice")
        self.timeout = timeout
        self._news = threading.Condition()
        self._own: list[RemoteCamera] = []
        self._feeds: list[_Feed] = []
        found: list[RemoteCamera] = []
        try:
            for camera in given:
                if isinstance(camera, str):
                    camera = connect(camera, timeout=timeout)
                    self._own.append(camera)
                found.append(camera)
        except BaseException:
            self.close()
            raise
        self.cameras: Sequence[RemoteCamera] = tuple(found)
        self._feeds = [_Feed(camera, self._news) for camera in found]

    def read(self, timeout: Optional[float] = None) -> FrameSet:
        """Waits for the next set. When a camera has gone, it waits for its return, as long as the time-out allows.

        Raises:
            LostError: no set came in time, because a worker or its camera is gone.
            NoFrameError: no set came in time.
        """
        limit = self.timeout if timeout is None else timeout
        asked = time.monotonic_ns()
        end = asked + int(limit * 1e9)
        with self._news:
            while True:
                if not self._feeds:
                    raise UsageError("the cameras are closed")
                now = time.monotonic_ns()
                choice = nearest([feed.times(asked) for feed in self._feeds], now)
                if choice.chosen is not None:
                    frames = tuple(feed.take(i) for feed, i in zip(self._feeds, choice.chosen))
                    times = [frame.monotonic_ns for frame in frames]
                    return FrameSet(frames, (max(times) - min(times)) / 1e9)
                if now >= end:
                    raise self._failure(limit)
                until = end if choice.until is None else min(end, choice.until)
                self._news.wait(max(0, until - now) / 1e9)

    def _failure(self, limit: float) -> Error:
        for feed in self._feeds:
            if not feed.frames:
                text = f"no set came within {limit:g} s: {feed.trouble}"
                return NoFrameError(text) if feed.camera.connected else LostError(text)
        return NoFrameError(f"no set came within {limit:g} s")

    def __iter__(self) -> Iterator[FrameSet]:
        while True:
            yield self.read()

    def close(self) -> None:
        """Stops reading, and closes the cameras that this object has connected to."""
        with self._news:
            feeds, self._feeds = self._feeds, []
            self._news.notify_all()
        for feed in feeds:
            feed.stops = True
        for feed in feeds:
            feed.join()
        for camera in self._own:
            camera.close()
