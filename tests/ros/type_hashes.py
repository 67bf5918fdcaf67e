#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Prints types of messages with their hashes, RIHS01 of REP 2016, from definitions that may be anybody's.

    type_hashes.py FOLDER PACKAGE/TYPE..."""
import hashlib
import sys
from pathlib import Path

# The numbers that REP 2016 gives to fields; 48 more for an array, 144 more for a sequence.
NUMBERS = {"int8": 2, "uint8": 3, "int16": 4, "uint16": 5, "int32": 6, "uint32": 7, "int64": 8, "uint64": 9, "float32": 10,
           "float64": 11, "bool": 15, "byte": 16, "string": 17}


def description(folder, name, others):
    """The text that is hashed, of one type; those that it names go into `others`."""
    fields = []
    for line in (folder / f"{name}.msg").read_text().splitlines():
        words = line.partition("#")[0].split()
        if not words or "=" in "".join(words):  # nothing, or a constant
            continue
        kind, _, count = words[0].partition("[")
        number, length, nested = NUMBERS.get(kind, 1), count.rstrip("]") or "0", ""
        if kind not in NUMBERS:
            nested = kind.replace("/", "/msg/")
            others[nested] = description(folder, kind, others)
        if "[" in words[0]:
            number += 144 if length == "0" else 48
        fields.append(f'{{"name": "{words[1]}", "type": {{"type_id": {number}, "capacity": {length}, "string_capacity": 0, '
                      f'"nested_type_name": "{nested}"}}}}')
    return f'{{"type_name": "{name.replace("/", "/msg/")}", "fields": [{", ".join(fields)}]}}'


for name in sys.argv[2:]:
    others = {}
    own = description(Path(sys.argv[1]), name, others)
    referenced = ", ".join(others[key] for key in sorted(others))
    text = f'{{"type_description": {own}, "referenced_type_descriptions": [{referenced}]}}'
    print(name, hashlib.sha256(text.encode()).hexdigest())
