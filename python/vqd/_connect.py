# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Ways to a camera of another process."""
from __future__ import annotations

from typing import Optional

from ._errors import UsageError
from ._http import HttpLink
from ._link import SocketLink
from ._remote import Link, RemoteCamera


def connect(target: str, camera: Optional[str] = None, *, token: Optional[str] = None, timeout: float = 15.0) -> RemoteCamera:
    """A camera behind a worker (``vqd worker``) or a server (``vqd serve``), which any number of programs may read.

    Args:
        target: the name of a worker, which as a rule is the camera's serial number; the path of its socket, with a slash
            in it; or the address of a server, such as "http://127.0.0.1:8760".
        camera: of a server, the serial number or port of the camera; may be left out when it has only one.
        token: of a server; for an address such as 127.0.0.1 it may be left out by who may use the cameras, since a file
            has it.
        timeout: seconds to wait for a worker that is still starting, and later for a frame or a reply. The worker need not
            have a camera yet. A server answers within a second when there is no frame, and a read lasts until then.

    Raises:
        LostError: no worker answered in time.
        AccessError: the server refuses the token.
        UsageError: the target or the token makes no sense.
    """
    if not timeout >= 0:
        raise UsageError(f"a time-out is 0 s or more, not {timeout}")
    link: Link
    if target.startswith(("http://", "https://")):
        link = HttpLink(target, camera, token)
    else:
        if camera is not None or token is not None:
            raise UsageError("only a server, as http://ADDRESS, has several cameras and a token")
        link = SocketLink(target)
    try:
        link.wait_for_state(timeout)
    except BaseException:
        link.close()
        raise
    return RemoteCamera(link, timeout)
