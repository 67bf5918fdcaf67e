# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Virtual cameras for tests: workers under ``vqd sim``, and clients of them.

The virtual bus exists only in programs that were started below it, so the cameras are in processes of their own. A test
of ``vqd.Camera`` runs as a whole below it: ``vqd sim -- pytest``.
"""
from __future__ import annotations

import contextlib
import os
import shutil
import subprocess
import tempfile
import time
from collections.abc import Mapping
from typing import Any, Optional

from ._closing import Closing
from ._connect import connect
from ._errors import Error, LostError
from ._remote import RemoteCamera
from ._settings import assignments_of
from ._tool import failure_text, tool

# Starts a worker for each camera, and ends with its standard input, which ends with the program that holds its other end.
_WORKERS = """
tool=$1
settings=$2
shift 2
workers=
trap 'kill $workers 2>/dev/null; exit' TERM INT HUP
for serial; do
    # shellcheck disable=SC2086
    "$tool" worker -q -c "$serial" $settings </dev/null &
    workers="$workers $!"
done
read -r _
kill $workers 2>/dev/null
wait
"""
_FIRST_SERIAL = 24061100000001
_SLICE = 0.25
_ENDS_WITHIN = 15.0


class Simulation(Closing):
    """Virtual cameras until close(), or until the block ends. ``vqd.sim()`` makes one.

    Attributes:
        cameras: a client of each.
        serials: their serial numbers.
        runtime_dir: where their workers listen: VQD_RUNTIME_DIR for other programs that are to see them.
    """

    def __init__(
        self,
        *models: str,
        scene: str = "room",
        fps: float = 30,
        seed: int = 1,
        fault: Optional[str] = None,
        settings: Optional[Mapping[str, Any]] = None,
        timeout: float = 30.0,
    ) -> None:
        models = models or ("VQD-HT120",)
        self.serials = tuple(str(_FIRST_SERIAL + i) for i in range(len(models)))
        self.cameras: tuple[RemoteCamera, ...] = ()
        assignments = assignments_of(settings or {})
        texts = [f"-s {setting.name}={','.join(map(str, numbers))}" for setting, numbers in assignments]
        self._folder = tempfile.mkdtemp(prefix="vqd-")
        self.runtime_dir = self._folder
        self._process: Optional[subprocess.Popen[bytes]] = None
        self._errors_path = os.path.join(self._folder, "errors")
        options = ["--scene", scene, "--fps", f"{fps:g}", "--seed", str(seed)]
        options += [] if fault is None else ["--fault", fault]
        try:
            command = [tool(), "sim", *models, *options, "--", "sh", "-c", _WORKERS, "sh", tool(), " ".join(texts)]
            self._start([*command, *self.serials])
            self._connect(timeout)
        except BaseException:
            self.close()
            raise

    def _start(self, command: list[str]) -> None:
        # Backups and profiles of virtual cameras are none of this user's.
        own = {"VQD_RUNTIME_DIR": self._folder, "XDG_STATE_HOME": self._folder, "XDG_DATA_HOME": self._folder}
        with open(self._errors_path, "wb") as errors:
            # In a session of its own, so that Ctrl-C in a terminal is for this program, which then ends the cameras.
            self._process = subprocess.Popen(
                command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=errors, env={**os.environ, **own},
                start_new_session=True,
            )

    def _connect(self, timeout: float) -> None:
        end = time.monotonic() + timeout
        for serial in self.serials:
            path = os.path.join(self._folder, f"{serial}.sock")
            while True:
                try:
                    camera = connect(path, timeout=_SLICE)
                    break
                except LostError as why:
                    self._require_running()
                    if time.monotonic() >= end:
                        raise LostError(f"the virtual camera {serial} did not start within {timeout:g} s: {why}") from why
            camera.timeout = timeout
            self.cameras += (camera,)
        for camera in self.cameras:
            camera.read(max(0.0, end - time.monotonic()))

    def _require_running(self) -> None:
        if self._process is not None and self._process.poll() is not None:
            with open(self._errors_path, "rb") as errors:
                raise Error(f"vqd sim has ended: {failure_text(errors.read())}")

    @property
    def camera(self) -> RemoteCamera:
        """The first camera."""
        return self.cameras[0]

    def close(self) -> None:
        """Ends the cameras and their workers."""
        for camera in self.cameras:
            camera.close()
        process, self._process = self._process, None
        if process is not None:
            assert process.stdin is not None
            process.stdin.close()
            for end in (process.terminate, process.kill, None):
                with contextlib.suppress(subprocess.TimeoutExpired):
                    process.wait(_ENDS_WITHIN)
                    break
                if end is not None:
                    end()
        shutil.rmtree(self._folder, ignore_errors=True)


def sim(*models: str, **options: Any) -> Simulation:
    """Virtual cameras, each behind a worker, for tests.

        with vqd.sim("VQD-HT120", scene="wall") as simulation:
            frame = simulation.camera.read()

    Args:
        models: one for each camera, "VQD-HT120" by default. Their serial numbers are 24061100000001, ...02 and so on.
        scene: "room", "wall", "ramp" or "plane" (docs/testing-with-the-virtual-camera.md).
        fps: frames a second; with 0, a frame is always ready.
        seed: of everything that is random.
        fault: what goes wrong, such as "unplug after frame 40, back after 350 ms".
        settings: of all cameras, to begin with.
        timeout: seconds to wait for the first frames.

    Raises:
        Error: the command vqd is missing or has failed; its message says why.
    """
    return Simulation(*models, **options)
