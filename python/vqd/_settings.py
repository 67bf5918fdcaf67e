# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Settings as a mapping: names, and values that are checked before anything is sent."""
from __future__ import annotations

import operator
from collections.abc import Iterable, Iterator, Mapping
from typing import Any, NamedTuple, Protocol, Union

from ._errors import Error, UsageError
from ._setting_types import Setting, Value
from ._settings_table import TABLE

SettingValue = Union[int, float, str, "tuple[int, ...]"]

_BY_NAME = {setting.name: setting for setting in TABLE}


class Assignment(NamedTuple):
    """A setting, and the numbers that it is to get."""

    setting: Setting
    numbers: tuple[int, ...]


class SettingsOwner(Protocol):
    """What has settings: a camera in this process, or a worker's."""

    def _read_settings(self, names: Iterable[str]) -> Mapping[str, Any]: ...

    def _write_settings(self, assignments: list[Assignment]) -> None: ...


def setting_named(name: str) -> Setting:
    """The setting with this name; an underscore counts as a hyphen."""
    setting = _BY_NAME.get(name.replace("_", "-"))
    if setting is None:
        raise UsageError(f"there is no setting {name!r}; the settings are {', '.join(_BY_NAME)}")
    return setting


def _range_text(value: Value) -> str:
    if value.choices:
        return " or ".join(
            f"{choice.value}" + (f" ({', '.join(choice.models)})" if choice.models else f" {choice.meaning}")
            for choice in value.choices
        )
    return f"{value.minimum} to {value.maximum}"


def values_text(setting: Setting) -> str:
    """What a setting takes: "-255 to 255"."""
    texts = [_range_text(value) for value in setting.values]
    if len(texts) == 1:
        return texts[0] + (f" {setting.unit}" if setting.unit else "")
    text = ", ".join(f"{value.name} {text}" for value, text in zip(setting.values, texts))
    return f"({text}{', ascending' if setting.ascending else ''})" + (f" {setting.unit}" if setting.unit else "")


def assignment_of(name: str, value: Any) -> Assignment:
    """Checks a value. Takes whole numbers of any type, truth values, and a sequence of them for several numbers."""
    setting = setting_named(name)
    if setting.read_only:
        raise UsageError(f"{setting.name} can only be read")
    try:
        numbers = tuple(operator.index(number) for number in (value if len(setting.values) > 1 else (value,)))
    except TypeError:
        numbers = ()
    fits = len(numbers) == len(setting.values) and all(
        row.minimum is not None and row.maximum is not None and row.minimum <= number <= row.maximum
        for row, number in zip(setting.values, numbers)
    )
    if not fits or (setting.ascending and numbers[0] >= numbers[1]):
        raise UsageError(f"{setting.name} takes {values_text(setting)}, not {value!r}")
    return Assignment(setting, numbers)


def assignments_of(values: Mapping[str, Any]) -> list[Assignment]:
    """Checks several, and puts them into the order of the table."""
    return sorted((assignment_of(name, value) for name, value in values.items()), key=lambda one: TABLE.index(one.setting))


def value_of(setting: Setting, raw: Any) -> SettingValue:
    """A value as the tool and the wire have it, in Python's types."""
    if isinstance(raw, (list, tuple)):
        return tuple(int(number) for number in raw)
    if setting.values[0].type == "switch" and raw in (0, 1):
        return bool(raw)
    return raw  # type: ignore[no-any-return]


class Settings(Mapping[str, SettingValue]):
    """The settings of a camera, by their names in ``vqd settings``.

    Reading one gives what the camera has. ``settings["offset"] = 5`` and ``settings.update(offset=5)`` send; update()
    checks all of its values before it sends the first. Raises UsageError for a name or value that is none, SettingError
    when the camera refuses it, and VerificationError when the camera keeps another one.
    """

    def __init__(self, owner: SettingsOwner) -> None:
        self._owner = owner

    def __getitem__(self, name: str) -> SettingValue:
        try:
            setting = setting_named(name)
        except UsageError as why:
            raise KeyError(str(why)) from None
        found = self._owner._read_settings([setting.name])
        if setting.name not in found:
            raise Error(f"the value of {setting.name} is not known here")
        return value_of(setting, found[setting.name])

    def __setitem__(self, name: str, value: Any) -> None:
        self.update({name: value})

    def __iter__(self) -> Iterator[str]:
        return iter(_BY_NAME)

    def __len__(self) -> int:
        return len(_BY_NAME)

    def update(self, values: Mapping[str, Any] = {}, **more: Any) -> None:
        """Sets several, in the order of the table."""
        self._owner._write_settings(assignments_of({**values, **more}))

    def as_dict(self) -> dict[str, SettingValue]:
        """All of them, read at once."""
        raw = self._owner._read_settings(list(self))
        return {name: value_of(_BY_NAME[name], raw[name]) for name in self if name in raw}

    def __repr__(self) -> str:
        return f"Settings({self.as_dict()!r})"
