# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Made by make_settings.py; do not edit. The table of settings, and an attribute for each of them."""
from __future__ import annotations

from typing import Any

from ._setting_types import Choice, Setting, Value

TABLE = (
    Setting("frequency", "Modulation frequency", "MHz", False, False, False, (
        Value("frequency", "choice", 1, 255, (Choice(20, "20 MHz", ("VQD-HT110", "VQD-HT120")), Choice(30, "30 MHz", ("VQD-HT110", "VQD-HT120")), Choice(10, "10 MHz", ("VQD-RS110", "VQD-RS120")),)),
    )),
    Setting("integration-time", "Integration time", None, True, False, False, (
        Value("time", "integer", 0, 25500),
    )),
    Setting("offset", "Depth offset", None, False, False, False, (
        Value("offset", "integer", -255, 255),
    )),
    Setting("scatter-threshold", "Scatter threshold", None, False, False, False, (
        Value("threshold", "integer", 0, 255),
    )),
    Setting("check-threshold", "Amplitude check threshold", None, False, False, False, (
        Value("threshold", "integer", 0, 255),
    )),
    Setting("depth-range", "Depth range", "mm", False, False, True, (
        Value("min", "integer", 0, 15000),
        Value("max", "integer", 0, 15000),
    )),
    Setting("flip-horizontal", "Flip left to right", None, False, False, False, (
        Value("on", "switch", 0, 1),
    )),
    Setting("flip-vertical", "Flip top to bottom", None, False, False, False, (
        Value("on", "switch", 0, 1),
    )),
    Setting("fps-delay", "Frame delay", None, False, False, False, (
        Value("delay", "integer", 0, 100),
    )),
    Setting("multi-cam", "Lighting in turn with other cameras", None, False, False, False, (
        Value("mode", "switch", 0, 1),
        Value("slaves", "integer", 0, 9),
        Value("id", "integer", 0, 9),
    )),
    Setting("multi-sync", "Lighting in turn, the switch alone", None, False, False, False, (
        Value("on", "switch", 0, 1),
    )),
    Setting("illumination", "Light and capture", None, False, False, False, (
        Value("on", "switch", 0, 1),
    )),
    Setting("remove-edge", "Edge removal", None, False, False, False, (
        Value("on", "switch", 0, 1),
    )),
    Setting("motion-blur", "Motion blur removal", None, False, False, False, (
        Value("on", "switch", 0, 1),
        Value("level", "integer", 0, 255),
    )),
    Setting("undistortion", "Undistortion", None, False, False, False, (
        Value("mode", "choice", 0, 3, (Choice(0, "none"), Choice(1, "gated"), Choice(2, "bilinear"), Choice(3, "nearest"),)),
    )),
    Setting("fppn", "FPPN correction", None, False, False, False, (
        Value("on", "switch", 0, 1),
    )),
    Setting("orthogonal", "Orthogonal correction", None, False, False, False, (
        Value("on", "switch", 0, 1),
    )),
    Setting("temperature", "Sensor temperature", None, True, True, False, (
        Value("temperature", "number"),
    )),
    Setting("logic-version", "Logic version", None, True, True, False, (
        Value("version", "text"),
    )),
)


class SettingAttributes:
    """The settings as attributes. Setting one takes some 0.3 s, until the camera acts on it."""

    __slots__ = ()

    def _get(self, name: str) -> Any:
        raise NotImplementedError

    def _set(self, name: str, value: Any) -> None:
        raise NotImplementedError

    @property
    def frequency(self) -> int:
        """Modulation frequency in MHz: 20 (VQD-HT110, VQD-HT120), 30 (VQD-HT110, VQD-HT120), 10 (VQD-RS110, VQD-RS120)."""
        return self._get("frequency")  # type: ignore[no-any-return]

    @frequency.setter
    def frequency(self, value: int) -> None:
        self._set("frequency", value)

    @property
    def integration_time(self) -> int:
        """Integration time: 0 to 25500. Read only."""
        return self._get("integration-time")  # type: ignore[no-any-return]

    @property
    def offset(self) -> int:
        """Depth offset: -255 to 255."""
        return self._get("offset")  # type: ignore[no-any-return]

    @offset.setter
    def offset(self, value: int) -> None:
        self._set("offset", value)

    @property
    def scatter_threshold(self) -> int:
        """Scatter threshold: 0 to 255."""
        return self._get("scatter-threshold")  # type: ignore[no-any-return]

    @scatter_threshold.setter
    def scatter_threshold(self, value: int) -> None:
        self._set("scatter-threshold", value)

    @property
    def check_threshold(self) -> int:
        """Amplitude check threshold: 0 to 255."""
        return self._get("check-threshold")  # type: ignore[no-any-return]

    @check_threshold.setter
    def check_threshold(self, value: int) -> None:
        self._set("check-threshold", value)

    @property
    def depth_range(self) -> tuple[int, int]:
        """Depth range in mm: min: 0 to 15000; max: 0 to 15000."""
        return self._get("depth-range")  # type: ignore[no-any-return]

    @depth_range.setter
    def depth_range(self, value: tuple[int, int]) -> None:
        self._set("depth-range", value)

    @property
    def flip_horizontal(self) -> bool:
        """Flip left to right: off or on."""
        return self._get("flip-horizontal")  # type: ignore[no-any-return]

    @flip_horizontal.setter
    def flip_horizontal(self, value: bool) -> None:
        self._set("flip-horizontal", value)

    @property
    def flip_vertical(self) -> bool:
        """Flip top to bottom: off or on."""
        return self._get("flip-vertical")  # type: ignore[no-any-return]

    @flip_vertical.setter
    def flip_vertical(self, value: bool) -> None:
        self._set("flip-vertical", value)

    @property
    def fps_delay(self) -> int:
        """Frame delay: 0 to 100."""
        return self._get("fps-delay")  # type: ignore[no-any-return]

    @fps_delay.setter
    def fps_delay(self, value: int) -> None:
        self._set("fps-delay", value)

    @property
    def multi_cam(self) -> tuple[int, int, int]:
        """Lighting in turn with other cameras: mode: off or on; slaves: 0 to 9; id: 0 to 9."""
        return self._get("multi-cam")  # type: ignore[no-any-return]

    @multi_cam.setter
    def multi_cam(self, value: tuple[int, int, int]) -> None:
        self._set("multi-cam", value)

    @property
    def multi_sync(self) -> bool:
        """Lighting in turn, the switch alone: off or on."""
        return self._get("multi-sync")  # type: ignore[no-any-return]

    @multi_sync.setter
    def multi_sync(self, value: bool) -> None:
        self._set("multi-sync", value)

    @property
    def illumination(self) -> bool:
        """Light and capture: off or on."""
        return self._get("illumination")  # type: ignore[no-any-return]

    @illumination.setter
    def illumination(self, value: bool) -> None:
        self._set("illumination", value)

    @property
    def remove_edge(self) -> bool:
        """Edge removal: off or on."""
        return self._get("remove-edge")  # type: ignore[no-any-return]

    @remove_edge.setter
    def remove_edge(self, value: bool) -> None:
        self._set("remove-edge", value)

    @property
    def motion_blur(self) -> tuple[int, int]:
        """Motion blur removal: on: off or on; level: 0 to 255."""
        return self._get("motion-blur")  # type: ignore[no-any-return]

    @motion_blur.setter
    def motion_blur(self, value: tuple[int, int]) -> None:
        self._set("motion-blur", value)

    @property
    def undistortion(self) -> int:
        """Undistortion: 0 none, 1 gated, 2 bilinear, 3 nearest."""
        return self._get("undistortion")  # type: ignore[no-any-return]

    @undistortion.setter
    def undistortion(self, value: int) -> None:
        self._set("undistortion", value)

    @property
    def fppn(self) -> bool:
        """FPPN correction: off or on."""
        return self._get("fppn")  # type: ignore[no-any-return]

    @fppn.setter
    def fppn(self, value: bool) -> None:
        self._set("fppn", value)

    @property
    def orthogonal(self) -> bool:
        """Orthogonal correction: off or on."""
        return self._get("orthogonal")  # type: ignore[no-any-return]

    @orthogonal.setter
    def orthogonal(self, value: bool) -> None:
        self._set("orthogonal", value)

    @property
    def temperature(self) -> float:
        """Sensor temperature. Read only."""
        return self._get("temperature")  # type: ignore[no-any-return]

    @property
    def logic_version(self) -> str:
        """Logic version. Read only."""
        return self._get("logic-version")  # type: ignore[no-any-return]
