#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Writes vqd/_settings_table.py from what the tool says of the settings; a test compares the two.

    vqd settings --json | python/make_settings.py >python/vqd/_settings_table.py
"""
import json
import sys

HEAD = '''# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Made by make_settings.py; do not edit. The table of settings, and an attribute for each of them."""
from __future__ import annotations

from typing import Any

from ._setting_types import Choice, Setting, Value

TABLE = (
'''

CLASS = ''')


class SettingAttributes:
    """The settings as attributes. Setting one takes some 0.3 s, until the camera acts on it."""

    __slots__ = ()

    def _get(self, name: str) -> Any:
        raise NotImplementedError

    def _set(self, name: str, value: Any) -> None:
        raise NotImplementedError
'''

PROPERTY = '''
    @property
    def {attribute}(self) -> {type}:
        """{text}."""
        return self._get("{name}")  # type: ignore[no-any-return]
'''

SETTER = '''
    @{attribute}.setter
    def {attribute}(self, value: {type}) -> None:
        self._set("{name}", value)
'''

TYPES = {"switch": "bool", "integer": "int", "choice": "int", "number": "float", "text": "str"}


def value_text(value):
    texts = [f'"{value["name"]}", "{value["type"]}"']
    if "minimum" in value:
        texts.append(f'{value["minimum"]}, {value["maximum"]}')
    choices = [tuple([c["value"], c["meaning"]] + ([tuple(c["models"])] if "models" in c else [])) for c in value.get("choices", [])]
    if choices and value["type"] != "switch":
        texts.append("(" + ", ".join(f"Choice{choice!r}".replace("'", '"') for choice in choices) + ",)")
    return f"Value({', '.join(texts)})"


def row_text(row):
    unit = f'"{row["unit"]}"' if row["unit"] else "None"
    lines = [f'    Setting("{row["name"]}", "{row["label"]}", {unit}, {row["read-only"]}, {row["needs-frame"]}, {row["ascending"]}, (']
    lines += [f"        {value_text(value)}," for value in row["values"]]
    return "\n".join([*lines, "    )),", ""])


def range_text(value):
    if value["type"] == "switch":
        return "off or on"
    if any("models" not in choice for choice in value.get("choices", [])):
        return ", ".join(f'{c["value"]} {c["meaning"]}' for c in value["choices"])
    if "choices" in value:
        return ", ".join(f'{c["value"]} ({", ".join(c["models"])})' for c in value["choices"])
    return f'{value["minimum"]} to {value["maximum"]}' if "minimum" in value else ""


def property_text(row):
    values = row["values"]
    types = [TYPES[value["type"]] for value in values]
    several = len(values) > 1
    ranges = "; ".join((f'{v["name"]}: ' if several else "") + range_text(v) for v in values if range_text(v))
    text = row["label"] + (f' in {row["unit"]}' if row["unit"] else "") + (f": {ranges}" if ranges else "")
    text += ". Read only" if row["read-only"] else ""
    fields = {
        "attribute": row["name"].replace("-", "_"),
        "name": row["name"],
        "type": f"tuple[{', '.join('int' for _ in types)}]" if several else types[0],
        "text": text,
    }
    return PROPERTY.format(**fields) + ("" if row["read-only"] else SETTER.format(**fields))


def main():
    rows = json.load(sys.stdin)["settings"]
    sys.stdout.write(HEAD + "".join(map(row_text, rows)) + CLASS + "".join(map(property_text, rows)))


if __name__ == "__main__":
    main()
