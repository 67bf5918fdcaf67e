#!/usr/bin/env python3
# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Makes C++ of message definitions: a struct for each, how it is written and read as CDR, its schema and its type hash.

    generate.py FOLDER OUTPUT

FOLDER holds PACKAGE/TYPE.msg in the language of ROS 2 interfaces (fields, arrays, constants and defaults; no bounds). OUTPUT gets
messages.h and messages.cpp, and vqd_ros_types.idl for programs that read the topics by DDS alone. The hash is RIHS01 of REP 2016: SHA-256 of the description of the type as JSON."""
import hashlib
import json
import re
import sys
from pathlib import Path

# Name in a definition: C++ type, number in a type description, IDL type.
PRIMITIVES = {
    "int8": ("int8_t", 2, "int8"), "uint8": ("uint8_t", 3, "octet"), "int16": ("int16_t", 4, "short"),
    "uint16": ("uint16_t", 5, "unsigned short"), "int32": ("int32_t", 6, "long"),
    "uint32": ("uint32_t", 7, "unsigned long"), "int64": ("int64_t", 8, "long long"),
    "uint64": ("uint64_t", 9, "unsigned long long"), "float32": ("float", 10, "float"),
    "float64": ("double", 11, "double"), "bool": ("bool", 15, "boolean"), "byte": ("uint8_t", 16, "octet"),
    "string": ("std::string", 17, "string"),
}
NESTED, ARRAY, SEQUENCE = 1, 48, 144  # the last two are added to a number

LINE = re.compile(r"(?P<type>[a-z0-9_]+(/[A-Za-z0-9]+)?)(?P<array>\[(?P<count>\d*)\])? +(?P<name>[A-Za-z][A-Za-z0-9_]*)"
                  r"( *= *(?P<constant>\S+)| +(?P<default>\S+))?")


def dds_name(key):
    """The name of a type in DDS: sensor_msgs/Image is sensor_msgs::msg::dds_::Image_."""
    return key.replace("/", "::msg::dds_::") + "_"


class Field:
    def __init__(self, match):
        self.name, self.type, self.default = match["name"], match["type"], match["default"]
        self.is_array, self.count = match["array"] is not None, int(match["count"] or 0)

    @property
    def is_nested(self):
        return self.type not in PRIMITIVES

    def cpp(self):
        element = self.type.replace("/", "::") if self.is_nested else PRIMITIVES[self.type][0]
        if not self.is_array:
            return element
        return f"std::array<{element}, {self.count}>" if self.count else f"std::vector<{element}>"

    def idl(self):
        element = dds_name(self.type) if self.is_nested else PRIMITIVES[self.type][2]
        if self.is_array and not self.count:
            element = f"sequence<{element}>"
        name = f"_{self.name}" if self.name == "sequence" else self.name  # IDL's escape of its own words
        return f"{element} {name}" + (f"[{self.count}]" if self.count else "")

    def description(self):
        number = NESTED if self.is_nested else PRIMITIVES[self.type][1]
        if self.is_array:
            number += ARRAY if self.count else SEQUENCE
        return {"name": self.name, "type": {
            "type_id": number, "capacity": self.count, "string_capacity": 0,
            "nested_type_name": self.type.replace("/", "/msg/") if self.is_nested else ""}}


class Message:
    def __init__(self, path):
        self.package, self.name = path.parent.name, path.stem
        self.text = path.read_text()
        self.fields, self.constants = [], []
        for number, line in enumerate(self.text.splitlines(), 1):
            line = line.split("#")[0].strip()
            if not line:
                continue
            match = LINE.fullmatch(line)
            if not match:
                sys.exit(f"{path}:{number}: this is no field")
            if match["constant"]:
                self.constants.append((PRIMITIVES[match["type"]][0], match["name"], match["constant"]))
            else:
                self.fields.append(Field(match))

    @property
    def key(self):
        return f"{self.package}/{self.name}"

    def needed(self, messages):
        """The types that this one is made of, each once, in the order in which they are met."""
        found = {}
        for field in self.fields:
            if field.is_nested:
                found[field.type] = None
                found.update(dict.fromkeys(messages[field.type].needed(messages)))
        return list(found)

    def description(self):
        return {"type_name": f"{self.package}/msg/{self.name}", "fields": [field.description() for field in self.fields]}

    def hash(self, messages):
        others = [messages[key].description() for key in self.needed(messages)]
        text = json.dumps({"type_description": self.description(),
                           "referenced_type_descriptions": sorted(others, key=lambda other: other["type_name"])})
        return "RIHS01_" + hashlib.sha256(text.encode()).hexdigest()

    def schema(self, messages):
        parts = [self.text] + [f"MSG: {key}\n{messages[key].text}" for key in self.needed(messages)]
        return ("=" * 80 + "\n").join(parts)

    def declaration(self):
        lines = [f"namespace {self.package}\n{{", f"struct {self.name} {{", "    static const MessageType kType;"]
        lines += [f"    static constexpr {kind} {name} = {value};" for kind, name, value in self.constants]
        lines += [f"    {field.cpp()} {field.name}{{{field.default or ''}}};" for field in self.fields]
        return "\n".join(lines + ["};", f"void encode(CdrWriter& to, const {self.name}& message);",
                                  f"void decode(CdrReader& from, {self.name}& message);", "}\n"])

    def idl(self):
        fields = "".join(f"    {field.idl()};\n" for field in self.fields)
        return f"module {self.package} {{ module msg {{ module dds_ {{\n  @topic @final struct {self.name}_ {{\n{fields}  }};\n}}; }}; }};\n"

    def definition(self, messages):
        encode = "".join(f"    ::msg::put(to, message.{field.name});\n" for field in self.fields)
        decode = "".join(f"    ::msg::get(from, message.{field.name});\n" for field in self.fields)
        return f'''const MessageType {self.package}::{self.name}::kType = {{"{self.package}/msg/{self.name}", R"schema({self.schema(messages)})schema",
    "{self.hash(messages)}"}};
void {self.package}::encode(CdrWriter& to, const {self.name}& message)
{{
{encode}}}
void {self.package}::decode(CdrReader& from, {self.name}& message)
{{
{decode}}}
'''


def main():
    folder, output = map(Path, sys.argv[1:])
    messages = {message.key: message for message in map(Message, sorted(folder.glob("*/*.msg")))}
    for message in messages.values():
        for field in message.fields:
            if field.is_nested and field.type not in messages:
                sys.exit(f"{message.key}: there is no type {field.type}")
    # A type is made of more types than any of those, so each stands behind what it is made of.
    ordered = sorted(messages.values(), key=lambda message: (len(message.needed(messages)), message.key))
    head = "// Made by recording/generate.py.\n"
    output.mkdir(parents=True, exist_ok=True)
    (output / "messages.h").write_text(
        head + '#pragma once\n\n#include "recording/cdr_fields.h"\n#include "recording/message_type.h"\n\nnamespace msg\n{\n'
        + "".join(message.declaration() for message in ordered) + "}\n")
    (output / "messages.cpp").write_text(
        head + '#include "messages.h"\n\nnamespace msg\n{\n'
        + "".join(message.definition(messages) for message in ordered) + "}\n")
    (output / "vqd_ros_types.idl").write_text(head + "".join(message.idl() for message in ordered))


main()
