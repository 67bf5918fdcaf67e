# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""A camera behind a worker: the same frames and settings as of a camera in this process."""
from __future__ import annotations

import contextlib
from collections.abc import Iterable, Iterator, Mapping
from typing import Any, Optional, Protocol

from . import _rays
from ._errors import Error, LostError, NoFrameError, SettingError, error_of
from ._frame import Frame
from ._lens import Extrinsics, Lens, extrinsics_from, lens_from
from ._rays import Points
from ._settings import Assignment
from ._source import Source, Statistics

_PATIENCE = 15.0  # seconds: longer than the library searches for a lost camera


class Link(Protocol):
    """A way to a worker."""

    name: str
    state: dict[str, Any]
    parameters: dict[str, Any]

    @property
    def events(self) -> Iterable[dict[str, Any]]: ...

    @property
    def connected(self) -> bool: ...

    def wait_for_state(self, timeout: float, parameters: bool = False) -> None: ...

    def next_frame(self, session: int, after: int, timeout: Optional[float]) -> Optional[Frame]: ...

    def request(self, content: dict[str, Any], timeout: float) -> dict[str, Any]: ...

    def trouble(self) -> str: ...

    def close(self) -> None: ...


class RemoteCamera(Source):
    """A camera behind a worker. ``vqd.connect()`` makes one.

    It outlives its worker and its camera: reads go on when they are back. A frame whose ``session`` is another one comes
    from a new start of the worker. Every read gets the newest frame, however slow the reader is.

    Attributes:
        timeout: seconds that a read waits when it is told none, and that a request waits; None: for ever.
    """

    __slots__ = ("timeout", "_link", "_seen", "_frames", "_dropped", "_reopens", "_longest", "_last")

    def __init__(self, link: Link, timeout: Optional[float] = _PATIENCE) -> None:
        super().__init__()
        self.timeout = timeout
        self._link = link
        self._seen = 0, 0  # session and number of the newest frame that no read is to get any more
        self._frames = self._dropped = self._reopens = self._longest = 0
        self._last: Optional[Frame] = None

    @property
    def worker(self) -> Mapping[str, Any]:
        """What the worker said of itself when the connection was made: docs/worker.md lists the members."""
        return self._link.state

    @property
    def events(self) -> Iterable[Mapping[str, Any]]:
        """The latest events of the worker, up to 64, the oldest first: docs/worker.md lists them."""
        return tuple(self._link.events)

    @property
    def parameters(self) -> Mapping[str, Any]:
        """The camera's identity, settings, lens and parameter image, as the worker told them last."""
        if not self._link.parameters:
            self._link.wait_for_state(self._patience, parameters=True)
        return self._link.parameters

    @property
    def connected(self) -> bool:
        """Whether there is a worker, with or without a camera."""
        return self._link.connected

    @property
    def _patience(self) -> float:
        return _PATIENCE if self.timeout is None else self.timeout

    def _identity(self, name: str) -> Any:
        if self._link.state.get("state") in ("starting", "restarting") and not self._link.parameters:
            with contextlib.suppress(LostError):  # the worker did not know it yet
                self._link.wait_for_state(self._patience, parameters=True)
        camera = self._link.parameters.get("camera") or self._link.state.get("camera")
        return camera.get(name) if isinstance(camera, dict) else None

    @property
    def serial(self) -> Optional[str]:
        serial = self._identity("serial")
        return str(serial) if serial else None

    @property
    def product(self) -> str:
        return str(self._identity("product") or "")

    @property
    def lens(self) -> Lens:
        return self._lens_named("depth")

    @property
    def colour_lens(self) -> Lens:
        return self._lens_named("colour")

    def _lens_named(self, name: str) -> Lens:
        return lens_from(self._lens_json().get(name), name)

    @property
    def extrinsics(self) -> Extrinsics:
        return extrinsics_from(self._lens_json().get("extrinsic"))

    def _lens_json(self) -> Mapping[str, Any]:
        lens = self.parameters.get("lens")
        return lens if isinstance(lens, dict) else {}

    @property
    def statistics(self) -> Statistics:
        temperature = self._last.temperature if self._last else 0.0
        return Statistics(self._frames, self._dropped, self._reopens, 0, self._longest / 1e9, temperature)

    def read(self, timeout: Optional[float] = None) -> Frame:
        limit = self.timeout if timeout is None else timeout
        frame = self._link.next_frame(*self._seen, limit)
        if frame is None:
            text = f"{self._link.trouble()} (waited for {limit:g} s)"
            raise NoFrameError(text) if self._link.connected else LostError(text)
        self._count(frame)
        return frame

    def _count(self, frame: Frame) -> None:
        if self._last is not None and frame.session == self._last.session:
            frame.missed = frame.number - self._last.number - 1
            self._longest = max(self._longest, frame.monotonic_ns - self._last.monotonic_ns)
        self._seen, self._last = (frame.session, frame.number), frame
        self._frames += 1
        self._dropped += frame.dropped
        self._reopens += frame.reopened

    def stream(self, latest: bool = False) -> Iterator[Frame]:
        """Yields frames until an error; always the newest, so ``latest`` makes no difference."""
        while True:
            yield self.read()

    def points(self, frame: Frame, axes: str = "optical") -> Points:
        return _rays.points(frame.depth, self.lens, axes)

    def save(self) -> bool:
        return bool(self._ask({"do": "save"}, Error).get("written"))

    def _read_settings(self, names: Iterable[str]) -> Mapping[str, Any]:
        settings = self._ask({"do": "get", "names": [*names]}, Error).get("settings")
        return settings if isinstance(settings, dict) else {}

    def _write_settings(self, assignments: list[Assignment]) -> None:
        values = {setting.name: numbers[0] if len(numbers) == 1 else numbers for setting, numbers in assignments}
        if values:
            reply = self._ask({"do": "set", "settings": values}, SettingError)
            # The worker's newest frame is older than the settings, and no read after these is to get it.
            after = reply.get("after")
            session, number = (after.get("session"), after.get("frame")) if isinstance(after, dict) else (None, None)
            if isinstance(session, int) and isinstance(number, int):
                self._seen = session, max(number, self._seen[1] if session == self._seen[0] else 0)

    def _ask(self, request: dict[str, Any], refusal: type[Error]) -> Mapping[str, Any]:
        """Makes a request. A refusal without a kind of its own is raised as ``refusal``."""
        reply = self._link.request(request, self._patience)
        if reply.get("ok") is True:
            return reply
        code, text = reply.get("code"), str(reply.get("error"))
        raise error_of(code, text) if isinstance(code, int) and code != Error.code else refusal(text)

    def close(self) -> None:
        self._link.close()

