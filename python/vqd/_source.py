# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What every camera offers, whether it is in this process or behind a worker."""
from __future__ import annotations

import abc
from collections.abc import Iterable, Iterator, Mapping
from typing import Any, NamedTuple, Optional

from ._closing import Closing
from ._frame import Frame
from ._lens import Extrinsics, Lens
from ._rays import Points
from ._settings import Assignment, Settings
from ._settings_table import SettingAttributes


class Statistics(NamedTuple):
    """What happened since the camera was opened, or since the connection to its worker.

    Attributes:
        frames: that were read.
        dropped: an estimate of the frames that the camera made and nobody got.
        reopens: how often the camera was opened again.
        failed_transfers: of frames; most are repeated with success. 0 for a worker's camera, which does not tell.
        longest_gap: seconds between two frames.
        temperature: of the sensor, with the latest frame, in degrees Celsius.
    """

    frames: int = 0
    dropped: int = 0
    reopens: int = 0
    failed_transfers: int = 0
    longest_gap: float = 0.0
    temperature: float = 0.0


class Source(SettingAttributes, Closing, abc.ABC):
    """A camera: an iterator of frames, with settings as attributes and as the mapping ``settings``."""

    __slots__ = ("settings", "__weakref__")

    settings: Settings

    def __init__(self) -> None:
        self.settings = Settings(self)

    @property
    @abc.abstractmethod
    def serial(self) -> Optional[str]:
        """The serial number, 14 digits; None when the camera has none."""

    @property
    @abc.abstractmethod
    def product(self) -> str:
        """The model, such as "VQD-HT120"."""

    @property
    @abc.abstractmethod
    def lens(self) -> Lens:
        """The depth lens that is in use, with the profile's exact values where there is a profile."""

    @property
    @abc.abstractmethod
    def colour_lens(self) -> Lens:
        """The colour lens; zeros for a camera without a colour sensor."""

    @property
    @abc.abstractmethod
    def extrinsics(self) -> Extrinsics:
        """The transform from the depth to the colour camera."""

    @property
    @abc.abstractmethod
    def statistics(self) -> Statistics:
        """What happened so far."""

    @abc.abstractmethod
    def read(self, timeout: Optional[float] = None) -> Frame:
        """Waits for the next frame.

        Raises:
            NoFrameError: none came within the time-out, in seconds.
            LostError: the camera is lost, and was not found again.
        """

    @abc.abstractmethod
    def stream(self, latest: bool = False) -> Iterator[Frame]:
        """Yields frames without an end. With ``latest`` a slow loop gets the newest frame each time, and no old one."""

    @abc.abstractmethod
    def points(self, frame: Frame, axes: str = "optical") -> Points:
        """The points that a frame shows, by the lens in use.

        Args:
            frame: of this camera, undistorted, and with true depth: see ``orthogonal``.
            axes: "optical": x right, y down, z ahead, right-handed as in OpenCV; "camera": Y up, the library's own.

        Returns:
            float32 (240, 320, 3) in metres; (0, 0, 0) where there is no depth.
        """

    @abc.abstractmethod
    def save(self) -> bool:
        """Keeps the present settings in the camera's EEPROM; frames pause for it. What it held is backed up first.

        Returns:
            Whether anything was written; False when the EEPROM holds them already.

        Raises:
            Error: it was written less than 10 s ago, it cannot be read, or there is no place for the backup.
            VerificationError: it does not hold what was written.
        """

    @abc.abstractmethod
    def close(self) -> None:
        """Lets the camera go. May be called twice, and never fails."""

    @abc.abstractmethod
    def _read_settings(self, names: Iterable[str]) -> Mapping[str, Any]: ...

    @abc.abstractmethod
    def _write_settings(self, assignments: list[Assignment]) -> None: ...

    def _get(self, name: str) -> Any:
        return self.settings[name]

    def _set(self, name: str, value: Any) -> None:
        self.settings.update({name: value})

    def __iter__(self) -> Iterator[Frame]:
        return self.stream()
