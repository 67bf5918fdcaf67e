# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""A thread that reads without a pause and keeps the newest frame, for loops that are slow or must end at once."""
from __future__ import annotations

import threading
import time
from typing import Callable, Optional

from ._errors import NoFrameError
from ._frame import Frame


class LatestReader:
    """Reads until stop(), or until a read fails."""

    def __init__(self, read: Callable[[], Frame]) -> None:
        self._read = read
        self._news = threading.Condition()
        self._frame: Optional[Frame] = None
        self._failure: Optional[BaseException] = None
        self._missed = 0
        self._told = False
        self._stops = self._ended = False
        self._at_end: Optional[Callable[[], None]] = None
        self._thread = threading.Thread(target=self._run, name="vqd-reader", daemon=True)
        self._thread.start()

    def _run(self) -> None:
        self._read_on()
        with self._news:
            self._ended = True
        if self._at_end is not None:
            self._at_end()

    def _read_on(self) -> None:
        while not self._stops:
            try:
                frame = self._read()
            except BaseException as failure:  # the one that waits for a frame gets it
                with self._news:
                    self._failure = failure
                    self._news.notify_all()
                return
            with self._news:
                if self._frame is not None:
                    self._missed += 1
                    # What the frame that nobody takes had to tell is told by the next one.
                    frame.reopened = frame.reopened or self._frame.reopened
                    frame.dropped += self._frame.dropped
                self._frame = frame
                self._news.notify_all()

    def take(self, timeout: Optional[float]) -> Optional[Frame]:
        """The newest frame that was not taken yet; None once it was stopped. Ctrl-C ends the wait at once."""
        end = None if timeout is None else time.monotonic() + timeout
        with self._news:
            while self._frame is None:
                if self._failure is not None:
                    self._told = True
                    raise self._failure
                if self._stops:
                    return None
                left = None if end is None else end - time.monotonic()
                if left is not None and left <= 0:
                    raise NoFrameError(f"no frame came within {timeout:g} s")
                self._news.wait(left)
            frame, self._frame = self._frame, None
            frame.missed, self._missed = self._missed, 0
            return frame

    @property
    def runs(self) -> bool:
        """Whether there is more to take: frames, or a failure that nobody was told yet."""
        return not self._stops and not self._told

    def stop(self, timeout: float = 0.0, at_end: Optional[Callable[[], None]] = None) -> bool:
        """Ends the thread after its present read. Returns whether it has ended within the time-out; if not, it calls
        ``at_end`` when it does."""
        with self._news:
            self._stops = True
            self._news.notify_all()
        self._thread.join(timeout)
        with self._news:
            if not self._ended:
                self._at_end = at_end
            return self._ended
