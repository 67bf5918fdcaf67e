# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The estimate of lost frames from the times between those that came."""
from __future__ import annotations

import statistics
from collections import deque


class Arrivals:
    """Counts frames, and estimates those that did not come. Times in ns."""

    def __init__(self) -> None:
        self.frames = 0
        self.dropped = 0
        self.longest = 0
        self._nominal = 1e9 / 30
        self._recent: deque[float] = deque(maxlen=15)
        self._last = 0

    def set_delay(self, milliseconds: int) -> None:
        """The frame delay that the camera now has."""
        self._nominal = 1e9 / 30 + milliseconds * 1e6
        self._recent.clear()

    def pause(self) -> None:
        """The stream stops, so the time until the next frame is no gap."""
        self._last = 0

    def add(self, began: int, ended: int, reopened: bool) -> int:
        """A read's begin and end. Returns how many frames were lost before this one."""
        lost = 0
        if self._last:
            interval = ended - self._last
            if interval > self.longest:
                self.longest = interval
            # A camera may be slower than it says, as when several take turns. The recent intervals show that.
            if not reopened and began - self._last < self._nominal / 2:
                self._recent.append(interval)
            if interval > 1.4 * self._nominal:
                period = max(self._nominal, statistics.median(self._recent)) if self._recent else self._nominal
                lost = max(round(interval / period) - 1, 0)
        self.frames += 1
        self.dropped += lost
        self._last = ended
        return lost
