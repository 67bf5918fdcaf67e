# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What was written down twice is the same: the header, the wire, the table of settings, the library's lines."""
import ctypes
import re
import struct
import subprocess
import sys

import pytest
from conftest import ROOT

import vqd
from vqd import _camera_settings, _library, _lines, _records, _settings_table, _wire

HEADER = re.sub(r"/\*.*?\*/", "", (ROOT / "include/VQD_API.h").read_text(), flags=re.DOTALL)
NUMBERS = dict(re.findall(r"(VQD_\w+) = (-?\d+)", HEADER))
C_TYPES = {
    "char": ctypes.c_char, "unsigned char": ctypes.c_uint8, "int": ctypes.c_int32, "unsigned int": ctypes.c_uint32,
    "int16_t": ctypes.c_int16, "int32_t": ctypes.c_int32, "int64_t": ctypes.c_int64, "uint8_t": ctypes.c_uint8,
    "uint16_t": ctypes.c_uint16, "uint32_t": ctypes.c_uint32, "uint64_t": ctypes.c_uint64, "float": ctypes.c_float,
    "double": ctypes.c_double, "void": None,
}
RECORDS = {name: kind for name, kind in vars(_records).items() if isinstance(kind, type) and issubclass(kind, ctypes.Structure)}


def c_type(text, dimensions=""):
    """The type of a declaration, arrays included; any pointer is an address."""
    if "*" in text:
        return ctypes.c_void_p
    name = re.sub(r"\b(const|struct)\b", "", text).strip()
    kind = ctypes.c_uint8 * 512 if name == "ParamImage" else RECORDS.get(name) or C_TYPES[name]
    for length in reversed(re.findall(r"\[(\w+)\]", dimensions)):
        kind = kind * int(NUMBERS.get(length, length))
    return kind


def test_functions_have_the_types_of_the_header():
    declared = {}
    for result, name, arguments in re.findall(r"^VQD_API ([\w\s*]+?)\b(\w+)\(([^)]*)\);", HEADER, re.MULTILINE):
        types = [] if arguments == "void" else [re.sub(r"\w+$", "", part.strip()) for part in arguments.split(",")]
        declared[name] = (c_type(result), [c_type(text) for text in types])
    assert len(declared) > 90
    for name, bound in _library.FUNCTIONS.items():
        assert bound == declared[name], name


def test_variables_have_the_types_and_sizes_of_the_header():
    declared = {
        name: c_type(kind, dimensions)
        for kind, name, dimensions in re.findall(r"^VQD_API extern ([\w\s]+?) (\w+)\s*((?:\s*\[\w+\])*);", HEADER, re.MULTILINE)
    }
    assert len(declared) > 50
    for name, (kind, shape) in _library.VARIABLES.items():
        size = ctypes.sizeof(kind)
        for length in shape:
            size *= length
        element = declared[name]
        while hasattr(element, "_length_"):
            element = element._type_
        if element is _records.Point3f:  # seen as an array of three numbers
            element = ctypes.c_float
        assert (kind, size) == (element, ctypes.sizeof(declared[name])), name


def test_records_have_the_layout_of_the_header():
    found = re.findall(r"typedef struct (\w+) \{(.*?)\} \1;", HEADER, re.DOTALL)
    assert {name for name, _ in found} == set(RECORDS)
    for name, body in found:
        fields = [
            (field, c_type(kind, dimensions))
            for kind, field, dimensions in re.findall(r"^\s*([\w ]+?) (\w+)((?:\[\w+\])*);", body, re.MULTILINE)
        ]
        assert RECORDS[name]._fields_ == fields, name


def test_the_wire_has_the_layout_of_its_header():
    text = re.sub(r"/\*.*?\*/", "", (ROOT / "worker/wire.h").read_text(), flags=re.DOTALL)
    letters = {"uint16_t": "H", "uint32_t": "I", "uint64_t": "Q", "int64_t": "q", "double": "d"}
    for name, packed in (("prefix", _wire.PREFIX), ("frame", _wire.HEADER), ("pull", _wire.PULL)):
        body = re.search(rf"typedef struct vqd_wire_{name} {{(.*?)}}", text, re.DOTALL)[1]
        letter_of = "<"
        for kind, names in re.findall(r"(\w+) ([\w, \[\]]+);", body):
            for field in names.split(","):
                letter_of += field[field.index("[") + 1 : -1] + "s" if kind == "char" else letters[kind]
        assert struct.Struct(letter_of).format == packed.format, name
    constants = dict(re.findall(r"VQD_WIRE_(\w+)(?: =)? (\d+)\b", text))
    assert {kind.name: kind.value for kind in _wire.Kind}.items() <= {k: int(v) for k, v in constants.items()}.items()
    for name in ("REOPENED", "CORRECTED", "PROFILE", "CLOCK_STEP", "PACKED", "VERSION"):
        assert getattr(_wire, name) == int(constants[name])


def test_the_table_of_settings_is_what_the_tool_says(tool):
    made = subprocess.run(
        [sys.executable, ROOT / "python/make_settings.py"], input=tool("settings", "--json"), capture_output=True, text=True, check=True
    )
    assert made.stdout == (ROOT / "python/vqd/_settings_table.py").read_text(), "run make_settings.py again"
    assert [*_camera_settings.ROWS] == [setting.name for setting in _settings_table.TABLE]
    for setting in _settings_table.TABLE:
        assert (_camera_settings.ROWS[setting.name].set is None) == setting.read_only, setting.name


def test_the_lines_of_the_library_are_known():
    texts = set()
    for file in (ROOT / "src").rglob("*.cpp"):
        code = re.sub(r"^\s*//.*$|^#.*$", "", file.read_text(), flags=re.MULTILINE)
        texts |= {text for text in re.findall(r'"([^"\n]+)"', code) if re.search(r"[A-Za-z]{3}.* ", text)}
        texts |= {text for text in re.findall(r'Print\w+\("([^"]+)"', code)}
    assert len(texts) > 40
    for text in texts:
        line = text.replace("\\n", "").replace("%d", "7").encode() + b"\n"
        assert _lines._LINE.fullmatch(line), text


def test_the_version_is_that_of_the_project():
    version = re.search(r"project\(VQD_API VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())[1]
    assert vqd.__version__ == version
    assert f'version = "{version}"' in (ROOT / "python/pyproject.toml").read_text()


@pytest.mark.parametrize("name", ["vqdSetIntegrationTime", "m_bHorizontal"])
def test_what_is_not_bound_is_refused(name):
    with pytest.raises(AttributeError):
        setattr(vqd.exported, name, 1)
