# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""One connection to a worker, made again whenever it ends."""
from __future__ import annotations

import contextlib
import json
import logging
import os
import select
import socket
import time
from collections import deque
from typing import Any, Optional

from ._errors import Error, LostError, UsageError
from ._frame import Frame
from ._library import Turn
from ._wire import PULL, Assembler, Kind, Message, WireError, frame_in, json_in, message
from ._workers import socket_paths

_log = logging.getLogger("vqd")

_BETWEEN_ATTEMPTS = 0.1
_SLICE = 0.1  # a wait for a frame lets other threads make requests this often
_MOST_EVENTS = 64


class SocketLink:
    """The worker with this name, or at this path. Several threads may use it; each call waits no longer than told."""

    def __init__(self, name: str) -> None:
        self.name = name
        self.state: dict[str, Any] = {}
        self.parameters: dict[str, Any] = {}
        self.events: deque[dict[str, Any]] = deque(maxlen=_MOST_EVENTS)
        self._paths = socket_paths(name)
        self._turn = Turn()
        self._socket: Optional[socket.socket] = None
        self._assembler: Optional[Assembler] = None
        self._greeted = self._closed = False
        self._next_attempt = 0.0
        self._number = 0
        self._pull = 0  # number of the pull without an answer
        self._pull_after = 0
        self._arrived: Optional[Frame] = None
        self._refusal = ""  # why the worker does not answer a pull
        self._replies: dict[int, dict[str, Any]] = {}
        self._awaited: set[int] = set()
        self._connections = 0
        self.why = f"no worker {name} has answered"

    def wait_for_state(self, timeout: float, parameters: bool = False) -> None:
        """Until the worker has said who it is, and with ``parameters`` how its camera is set. Fails with the reason."""
        end = time.monotonic() + timeout
        while not (self._greeted and (self.parameters or not parameters)):
            with self._turn:
                self._pump(min(end, time.monotonic() + _SLICE))
            if time.monotonic() >= end and not (self._greeted and (self.parameters or not parameters)):
                raise LostError(self.trouble())

    def trouble(self) -> str:
        """Why there are no frames."""
        if self._socket is None or not self._greeted:
            return self.why
        reason = self.state.get("error") or f"its camera is {self.state.get('state', 'silent')}"
        return f"the worker {self.name} has no frame: {reason}"

    @property
    def connected(self) -> bool:
        """Whether there is a worker, with or without a camera."""
        return self._socket is not None and self._greeted

    def next_frame(self, session: int, after: int, timeout: Optional[float]) -> Optional[Frame]:
        """The newest frame that this reader has not got; None when none comes in time."""
        end = None if timeout is None else time.monotonic() + timeout
        while True:
            with self._turn:
                self._ask_for_frame(session, after)
                limit = time.monotonic() + _SLICE
                self._pump(limit if end is None else min(end, limit))
                frame, self._arrived = self._arrived, None
                refusal, self._refusal = self._refusal, ""
            if refusal:
                raise Error(f"the worker {self.name} sends no frame: {refusal}")
            if frame is not None and (frame.session != session or frame.number > after):
                return frame
            if end is not None and time.monotonic() >= end:
                return None

    def _ask_for_frame(self, session: int, after: int) -> None:
        if self._socket is None or not self._greeted or self._pull:
            return
        self._pull_after = after if self.state.get("session") in (None, session) else 0
        self._pull = self._new_number()
        self._send(message(Kind.PULL, PULL.pack(self._pull_after, 0, 0), self._pull))

    def request(self, content: dict[str, Any], timeout: float) -> dict[str, Any]:
        """Makes a request and returns its reply, which may be a refusal."""
        end = time.monotonic() + timeout
        self._catch_up()
        self.wait_for_state(timeout)
        with self._turn:
            number, connection = self._new_number(), self._connections
            self._awaited.add(number)
            self._send(message(Kind.REQUEST, json.dumps(content).encode(), number))
        try:
            while True:
                with self._turn:
                    if number not in self._replies:
                        self._pump(min(end, time.monotonic() + _SLICE))
                    if number in self._replies:
                        return self._replies.pop(number)
                    if connection != self._connections or self._socket is None:
                        raise LostError(f"{self.why}, and it is not known whether the request was carried out")
                if time.monotonic() >= end:
                    raise LostError(f"the worker {self.name} did not answer within {timeout:g} s")
        finally:
            self._awaited.discard(number)

    def _catch_up(self) -> None:
        """Takes in what has come meanwhile, so that a request is not sent to a worker that has gone."""
        with self._turn:
            while self._socket is not None:
                poll = select.poll()
                poll.register(self._socket, select.POLLIN)
                if not poll.poll(0):
                    return
                self._pump(0.0)

    def _new_number(self) -> int:
        self._number = self._number % 0xFFFFFFFF + 1
        return self._number

    def _send(self, data: bytes) -> None:
        # Requests are small and the worker reads always; one that leaves no room for a request is stuck.
        if self._socket is None:
            raise LostError(self.why)
        try:
            self._socket.sendall(data)
        except OSError as why:
            self._drop(f"the worker {self.name} has gone: {why.strerror or why}")

    def _pump(self, until: float) -> None:
        """Takes in what comes, until something has come or time is up."""
        if self._closed:
            raise UsageError("the camera is closed")
        if self._socket is None and not self._try_to_connect():
            time.sleep(max(0.0, min(until, self._next_attempt) - time.monotonic()))
            return
        assert self._socket is not None and self._assembler is not None
        poll = select.poll()
        poll.register(self._socket, select.POLLIN)
        while self._socket is not None:
            if not poll.poll(max(0.0, until - time.monotonic()) * 1000):
                return
            try:
                came = self._assembler.step()
            except EOFError as why:
                self._drop(f"the worker {self.name} has ended the connection {why}".rstrip())
                return
            except WireError as why:
                self._drop(f"{self.name}: {why}")
                raise
            except OSError as why:
                self._drop(f"the worker {self.name} has gone: {why.strerror or why}")
                return
            if came is not None:
                self._take_in(came)
                return

    def _try_to_connect(self) -> bool:
        if time.monotonic() < self._next_attempt:
            return False
        self._next_attempt = time.monotonic() + _BETWEEN_ATTEMPTS
        trouble = ""
        for path in self._paths:
            link = socket.socket(socket.AF_UNIX)
            try:
                link.settimeout(1.0)
                link.connect(os.fspath(path))
            except OSError as why:
                link.close()
                # A socket that is there but does not answer tells more than one that is not there.
                if not trouble or not isinstance(why, FileNotFoundError):
                    trouble = f"no worker answers at {path}: {why.strerror or why}"
                continue
            link.setblocking(False)
            self._socket = link
            self._assembler = Assembler(self._receive)
            self._connections += 1
            return True
        self.why = trouble
        return False

    def _receive(self, into: memoryview) -> Optional[int]:
        assert self._socket is not None
        try:
            return self._socket.recv_into(into)
        except BlockingIOError:
            return None

    def _take_in(self, came: Message) -> None:
        kind = came.kind
        if kind == Kind.STATE:
            self.state = json_in(came.body)
            self._greeted = True
        elif kind == Kind.PARAMETERS:
            self.parameters = json_in(came.body)
        elif kind == Kind.EVENT:
            self._note(json_in(came.body))
        elif kind == Kind.FRAME and came.request == self._pull:
            self._pull = 0
            self._arrived = frame_in(came.body)
        elif kind == Kind.REPLY and came.request == self._pull:
            self._pull = 0
            self._refusal = str(json_in(came.body).get("error"))
        elif kind == Kind.REPLY:
            reply = json_in(came.body)
            if came.request == 0:
                self.why = f"{self.name}: {reply.get('error')}"
            elif came.request in self._awaited:
                self._replies[came.request] = reply

    def _note(self, event: dict[str, Any]) -> None:
        self.events.append(event)
        what = event.get("event")
        level = logging.WARNING if what in ("lost", "failed", "no-memory", "profile-not-used") else logging.INFO
        _log.log(level, "the worker %s: %s %s", self.name, what, event.get("text", ""))

    def _drop(self, why: str) -> None:
        if self._socket is not None:
            self._socket.close()
        self._socket = self._assembler = None
        self._greeted = False
        self._pull = 0
        self.parameters = {}  # those of the next connection come with it
        self.why = why
        _log.info("%s", why)

    def close(self) -> None:
        """Ends the connection. What was told of the camera stays known."""
        with contextlib.suppress(Error), self._turn:
            parameters = self.parameters
            self._drop("the camera is closed")
            self.parameters, self._closed = parameters, True
