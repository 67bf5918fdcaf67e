# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The wire of workers: the same bytes on a socket, in a pipe and in the body of an HTTP answer (docs/worker.md)."""
from __future__ import annotations

import json
import struct
from enum import IntEnum
from typing import Any, Callable, NamedTuple, Optional

import numpy as np
import numpy.typing as npt

from ._errors import Error
from ._frame import Frame
from ._packing import unpack

MAGIC = b"VQDW"
VERSION = 1
MOST_MESSAGE = 1 << 20

PREFIX = struct.Struct("<4sHHII")  # magic, version, kind, size, request
HEADER = struct.Struct("<16sQQqqqQdIIHHIQ")  # as vqd_wire_frame
PULL = struct.Struct("<QII")  # after, flags, reserved

REOPENED, CORRECTED, PROFILE, CLOCK_STEP, PACKED = 1, 2, 4, 8, 16

Body = npt.NDArray[np.uint8]


class Kind(IntEnum):
    """What a message is."""

    STATE = 1
    FRAME = 2
    PARAMETERS = 3
    EVENT = 4
    REQUEST = 5
    REPLY = 6
    PULL = 7


class WireError(Error):
    """The other end does not speak the wire, or another version of it."""


class Message(NamedTuple):
    """A whole message."""

    kind: int
    request: int
    body: Body


class Assembler:
    """Makes messages of a stream of bytes, however it is cut.

    Args:
        receive: fills as much of the memory as there is, and returns how many bytes that was; 0 at the end of the
            stream, None when nothing is there yet.
    """

    def __init__(self, receive: Callable[[memoryview], Optional[int]]) -> None:
        self._receive = receive
        self._prefix = bytearray(PREFIX.size)
        self._body: Optional[Body] = None
        self._have = 0
        self._kind = self._request = 0

    def step(self) -> Optional[Message]:
        """The next message, or None when it is not there yet. Raises EOFError at the end of the stream."""
        while True:
            into = memoryview(self._prefix) if self._body is None else self._body.data
            if self._have < len(into):
                came = self._receive(into[self._have :])
                if came is None:
                    return None
                if came == 0:
                    raise EOFError("in the middle of a message" if self._have or self._body is not None else "")
                self._have += came
                if self._have < len(into):
                    continue
            self._have = 0
            if self._body is None:
                self._body = np.empty(self._judge_prefix(), np.uint8)
            else:
                message, self._body = Message(self._kind, self._request, self._body), None
                return message

    def _judge_prefix(self) -> int:
        magic, version, self._kind, size, self._request = PREFIX.unpack(self._prefix)
        if magic != MAGIC:
            raise WireError("what answers there is no worker")
        if version != VERSION:
            raise WireError(f"the other end speaks version {version} of the wire, and this program version {VERSION}")
        if size > MOST_MESSAGE:
            raise WireError(f"a message of {size} bytes is larger than the wire allows")
        return int(size)


def message(kind: Kind, body: bytes, request: int = 0) -> bytes:
    """A message as bytes."""
    return PREFIX.pack(MAGIC, VERSION, kind, len(body), request) + body


def json_in(body: Body) -> dict[str, Any]:
    """The object in the body of a message."""
    try:
        content = json.loads(body.tobytes())
    except (ValueError, RecursionError) as why:
        raise WireError(f"a message holds no JSON: {why}") from why
    if not isinstance(content, dict):
        raise WireError("a message holds JSON that is no object")
    return content


def frame_in(body: Body) -> Frame:
    """The frame in the body of a message. Its images are views of the body unless they were packed."""
    if len(body) < HEADER.size:
        raise WireError(f"a frame of {len(body)} bytes has no whole header")
    (serial, session, sequence, real, monotonic, stamp, _, temperature, flags, dropped, width, height, size, _) = (
        HEADER.unpack_from(body.data)
    )
    planes = body[HEADER.size :]
    whole = 4 * width * height
    packed = bool(flags & PACKED)
    if size != len(planes) or whole == 0 or (size > whole if packed else size != whole):
        raise WireError(f"the planes of a frame have {len(planes)} bytes, which is not what its header says")
    if packed:
        amplitude, depth = unpack(planes, 2, height, width)
    else:
        amplitude, depth = planes.view("<u2").reshape(2, height, width)
    return Frame(
        depth, amplitude, sequence, stamp, real / 1e9, monotonic, temperature,
        serial.partition(b"\0")[0].decode("ascii", "replace"), session, dropped, 0, bool(flags & REOPENED),
        bool(flags & CORRECTED), bool(flags & PROFILE),
    )
