# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Frames from a recording, through the library as it was set, by ``vqd convert``."""
from __future__ import annotations

import os
import subprocess
import tempfile
from collections.abc import Iterator
from typing import IO, Any, Optional, Union

from . import _rays
from ._closing import Closing
from ._errors import Error, UsageError, error_of
from ._frame import Frame
from ._lens import Lens, lens_from
from ._rays import Points
from ._settings import assignments_of
from ._tool import failure_text, tool
from ._wire import Assembler, Kind, WireError, frame_in, json_in


class Recording(Closing):
    """The frames of a recording: an iterator of Frame.

    The library makes them anew from what the camera sent, with the settings of that time or with others. Iterating a
    second time begins anew. Frames come as fast as they are taken.

    Args:
        path: of the file.
        camera: its serial number, when the recording holds several.
        settings: other values than those of the recording, such as ``undistortion=0``.

    Raises:
        UsageError: a setting makes no sense, or, by the iteration, the file is no recording.
    """

    def __init__(self, path: Union[str, os.PathLike[str]], *, camera: Optional[str] = None, **settings: Any) -> None:
        self._path = os.path.abspath(os.fspath(path))
        self._arguments = [] if camera is None else ["-c", camera]
        for setting, numbers in assignments_of(settings):
            self._arguments += ["-s", f"{setting.name}={','.join(map(str, numbers))}"]
        self._parameters: dict[str, Any] = {}
        self._running: list[subprocess.Popen[bytes]] = []

    @property
    def parameters(self) -> dict[str, Any]:
        """Identity, settings, lens and parameter image of the camera, as of the frame read last."""
        return self._parameters

    @property
    def lens(self) -> Lens:
        """The depth lens, as of the frame read last."""
        lens = self._parameters.get("lens")
        if not isinstance(lens, dict):
            raise UsageError("the lens is known once a frame has been read")
        return lens_from(lens.get("depth"), "depth")

    def points(self, frame: Frame, axes: str = "optical") -> Points:
        """The points that a frame shows, float32 (240, 320, 3) in metres: as Camera.points() has them."""
        return _rays.points(frame.depth, self.lens, axes)

    def __iter__(self) -> Iterator[Frame]:
        with tempfile.TemporaryFile() as errors:
            process = subprocess.Popen(
                [tool(), "convert", self._path, "--stream", *self._arguments],
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=errors,
            )
            self._running.append(process)
            try:
                yield from self._frames_of(process)
                if process not in self._running:  # close() has ended it
                    return
                code = process.wait()
                if code != 0:
                    errors.seek(0)
                    raise error_of(code, failure_text(errors.read()))
            finally:
                self._end(process)

    def _frames_of(self, process: subprocess.Popen[bytes]) -> Iterator[Frame]:
        assert process.stdout is not None
        pipe: IO[bytes] = process.stdout
        assembler = Assembler(lambda into: 0 if pipe.closed else os.readv(pipe.fileno(), [into]))
        session = number = 0
        while True:
            try:
                message = assembler.step()
            except EOFError as why:
                if str(why) and process.wait() == 0:
                    raise WireError(f"the frames of {self._path} end {why}") from None
                return
            if message is None:
                continue
            if message.kind == Kind.PARAMETERS:
                self._parameters = json_in(message.body)
            elif message.kind == Kind.FRAME:
                frame = frame_in(message.body)
                if frame.session == session:
                    frame.missed = max(0, frame.number - number - 1)
                session, number = frame.session, frame.number
                yield frame

    def _end(self, process: subprocess.Popen[bytes]) -> None:
        if process.poll() is None:
            process.terminate()
        if process.stdout is not None:
            process.stdout.close()
        process.wait()
        if process in self._running:
            self._running.remove(process)

    def close(self) -> None:
        """Ends the iterations that are under way."""
        for process in [*self._running]:
            self._end(process)
