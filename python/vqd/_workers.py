# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Where workers listen, and which there are."""
from __future__ import annotations

import os
import socket
import stat
import time
from pathlib import Path
from typing import NamedTuple, Optional

from ._errors import UsageError
from ._wire import Assembler, Kind, WireError, json_in

_PATH_BYTES = 107  # of the address of a Unix socket, without its final zero


def _is_ours(folder: Path) -> bool:
    """Anybody may make a folder in /tmp before its owner does."""
    try:
        status = folder.lstat()
    except OSError:
        return False
    ours = status.st_uid == os.geteuid() and not status.st_mode & (stat.S_IWGRP | stat.S_IWOTH)
    return stat.S_ISDIR(status.st_mode) and ours


def folders() -> list[Path]:
    """The folders of sockets, in order of preference."""
    named = os.environ.get("VQD_RUNTIME_DIR")
    if named:
        return [Path(named)]
    found = [Path("/run/vqd"), Path("/run/vqd/serve")]
    session = os.environ.get("XDG_RUNTIME_DIR", "")
    if session.startswith("/"):
        found.append(Path(session) / "vqd")
    temporary = Path(f"/tmp/vqd-{os.geteuid()}")
    return [*found, temporary] if _is_ours(temporary) else found


def socket_paths(name: str) -> list[Path]:
    """Where a worker with this name may listen; a name with a slash in it is a path."""
    if not name:
        raise UsageError("a worker has a name: a serial number, a port, or the path of a socket")
    paths = [Path(name)] if "/" in name else [folder / f"{name}.sock" for folder in folders()]
    fitting = [path for path in paths if len(os.fsencode(path)) <= _PATH_BYTES]
    if not fitting:
        raise UsageError(f"the path of a socket has at most {_PATH_BYTES} bytes: {paths[0]}")
    return fitting


class WorkerInfo(NamedTuple):
    """A worker of this machine.

    Attributes:
        name: for ``vqd.connect()``; as a rule the serial number of its camera.
        path: of its socket.
        serial: of its camera; None while that is not known.
        state: as the worker calls it, such as "streaming"; or why there is none.
    """

    name: str
    path: str
    serial: Optional[str]
    state: str


def _ask(path: Path, timeout: float) -> Optional[WorkerInfo]:
    serial, state = None, "no answer"
    with socket.socket(socket.AF_UNIX) as link:
        try:
            link.settimeout(timeout)
            link.connect(os.fspath(path))
            first = Assembler(lambda into: link.recv_into(into)).step()
            if first is None or first.kind != Kind.STATE:
                raise WireError("what answers there is no worker")
            content = json_in(first.body)
            camera = content.get("camera")
            serial = camera.get("serial") if isinstance(camera, dict) else None
            state = str(content.get("state"))
        except (ConnectionRefusedError, FileNotFoundError):
            return None  # nobody listens any more
        except (OSError, EOFError, WireError) as why:
            state = str(why) or state
    return WorkerInfo(path.stem, str(path), serial, state)


def workers(timeout: float = 1.0) -> list[WorkerInfo]:
    """The workers of this machine whose sockets are in the usual folders, by their names."""
    end = time.monotonic() + timeout
    found = {}
    for folder in folders():
        try:
            paths = sorted(path for path in folder.glob("*.sock") if len(os.fsencode(path)) <= _PATH_BYTES)
        except OSError:
            continue
        for path in paths:
            info = _ask(path, max(end - time.monotonic(), 0.05))
            if info is not None and info.name not in found:
                found[info.name] = info
    return sorted(found.values())
