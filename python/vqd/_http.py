# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""A camera of a server (``vqd serve``): the wire of workers in the bodies of HTTP answers."""
from __future__ import annotations

import contextlib
import http.client
import ipaddress
import json
import threading
import time
import urllib.parse
from collections.abc import Iterable, Mapping
from typing import Any, Optional

from ._errors import AccessError, LostError, UsageError, error_of
from ._frame import Frame
from ._wire import MOST_MESSAGE, Assembler, Kind, WireError, frame_in
from ._workers import folders

_TIMEOUT = 20.0  # longer than the server waits for a worker's answer
_BETWEEN = 0.2
_TOKEN_BYTES = 4096


def _is_this_machine(host: str) -> bool:
    """Whether nobody else can be there, to whom the token of this machine's server would be shown."""
    try:
        return host == "localhost" or ipaddress.ip_address(host).is_loopback
    except ValueError:
        return False


class _Address:
    """A server, and what every request to it needs."""

    def __init__(self, url: str, token: Optional[str]) -> None:
        try:
            parts = urllib.parse.urlsplit(url)
            port = parts.port
        except ValueError as why:
            raise UsageError(f"{url} is no address of a server: {why}") from why
        if not parts.hostname or parts.path not in ("", "/") or parts.username is not None:
            raise UsageError(f"{url} is no address of a server, such as http://127.0.0.1:8760")
        self.name = f"{parts.scheme}://{parts.netloc}"
        self._secure = parts.scheme == "https"
        self._host, self._port = parts.hostname, port or (443 if self._secure else 80)
        query = urllib.parse.parse_qs(parts.query)
        self.token = token or query.get("token", [""])[0] or (self._token_in_file() if _is_this_machine(self._host) else "")
        if not self.token.isprintable() or not self.token.isascii():
            raise UsageError("the token is no text of printable characters")

    def _token_in_file(self) -> str:
        """The server keeps its token where this user may read it, if he may use the cameras."""
        for folder in folders():
            with contextlib.suppress(OSError, UnicodeDecodeError):
                with open(folder / f"serve-{self._port}.token", encoding="ascii") as file:
                    return file.read(_TOKEN_BYTES).strip()
        return ""

    def connection(self) -> http.client.HTTPConnection:
        """A connection that is not made yet."""
        if self._secure:
            return http.client.HTTPSConnection(self._host, self._port, timeout=_TIMEOUT)
        return http.client.HTTPConnection(self._host, self._port, timeout=_TIMEOUT)


class _Channel:
    """One connection, kept for many requests of one thread at a time."""

    def __init__(self, address: _Address) -> None:
        self._address = address
        self._connection = address.connection()
        self._ended = False
        self.lock = threading.RLock()

    def answer(self, path: str, content: Optional[Mapping[str, Any]] = None) -> http.client.HTTPResponse:
        """Makes a request. Raises LostError when there is no answer."""
        if self._ended:
            raise UsageError("the camera is closed")
        headers = {"Authorization": f"Bearer {self._address.token}"} if self._address.token else {}
        body = None
        if content is not None:
            headers.update({"X-VQD": "1", "Content-Type": "application/json"})
            body = json.dumps(content)
            self._connection.close()  # a kept one may be at its end, and what changes something is not tried twice
        for last in (False, True):
            fresh = self._connection.sock is None
            try:
                self._connection.request("GET" if body is None else "POST", path, body, headers)
                return self._connection.getresponse()
            except (OSError, http.client.HTTPException) as why:
                self._connection.close()
                if last or fresh:  # a server closes a connection that was kept for too long
                    raise LostError(f"{self._address.name} does not answer: {why or type(why).__name__}") from why
        raise AssertionError

    def json(self, path: str, content: Optional[Mapping[str, Any]] = None) -> tuple[int, dict[str, Any]]:
        """The status and the object of an answer."""
        with self.lock:
            response = self.answer(path, content)
            try:
                text = response.read(MOST_MESSAGE + 1)
                found = json.loads(text)
            except (OSError, ValueError, RecursionError, http.client.HTTPException) as why:
                self.close()
                raise WireError(f"what answers at {self._address.name} is no vqd serve (status {response.status})") from why
            if len(text) > MOST_MESSAGE or not isinstance(found, dict):
                self.close()
                raise WireError(f"what answers at {self._address.name} is no vqd serve (status {response.status})")
            return response.status, found

    def close(self) -> None:
        """Ends the connection; the next request makes another one."""
        self._connection.close()

    def end(self) -> None:
        """Ends it for good."""
        self._ended = True
        self._connection.close()


class HttpLink:
    """A camera of a server. Frames have a connection of their own, so requests need not wait for them."""

    def __init__(self, url: str, camera: Optional[str], token: Optional[str]) -> None:
        self._address = _Address(url, token)
        self._wanted = camera
        self._frames, self._requests = _Channel(self._address), _Channel(self._address)
        self._path = ""
        self.name = self._address.name
        self.state: dict[str, Any] = {}
        self.parameters: dict[str, Any] = {}
        self.why = f"{self.name} has not answered"
        self._answers = False

    @property
    def events(self) -> Iterable[dict[str, Any]]:
        """The last 20 events of the camera."""
        self._load_state()
        events = self.state.get("events")
        return [event for event in events if isinstance(event, dict)] if isinstance(events, list) else []

    @property
    def connected(self) -> bool:
        """Whether the server answers, with or without frames of the camera."""
        return self._answers

    def wait_for_state(self, timeout: float, parameters: bool = False) -> None:
        """Until the server has told of the camera, and with ``parameters`` how it is set. Fails with the reason."""
        end = time.monotonic() + timeout
        while True:
            try:
                self._load_state()
                if parameters:
                    self._load_parameters()
                return
            except LostError as why:
                self.why = str(why)
                if time.monotonic() >= end:
                    raise
                time.sleep(_BETWEEN)

    def trouble(self) -> str:
        """Why there are no frames."""
        return self.why

    def _get(self, path: str) -> dict[str, Any]:
        status, content = self._requests.json(path)
        self._require(status, content)
        return content

    def _require(self, status: int, content: Mapping[str, Any]) -> None:
        if status == 200:
            self._answers = True
            return
        text = f"{self.name}: {content.get('error') or f'status {status}'}"
        if status in (401, 403):
            raise AccessError(text)
        if status in (503, 504):
            raise LostError(text)
        code = content.get("code")
        raise error_of(code if isinstance(code, int) else 1, text)

    def _load_state(self) -> None:
        cameras = self._get("/api/v1/state").get("cameras")
        rows = [row for row in cameras if isinstance(row, dict)] if isinstance(cameras, list) else []
        found = [row for row in rows if self._wanted is None or self._wanted in (row.get("id"), row.get("serial"), row.get("port"))]
        names = ", ".join(str(row.get("id")) for row in rows) or "none"
        if not found:
            raise LostError(f"{self.name} has no camera {self._wanted or 'yet'}; its cameras are: {names}")
        if len(found) > 1:
            raise UsageError(f"{self.name} has several cameras, so choose one: {names}")
        row = found[0]
        self.state = {**row, "camera": {"serial": row.get("serial"), "product": row.get("product")}}
        self._path = f"/api/v1/cameras/{urllib.parse.quote(str(row.get('id')), safe='')}"
        self.name = f"{self._address.name} camera {row.get('id')}"

    def _load_parameters(self) -> None:
        self.parameters = self._get(f"{self._path}/parameters")

    def next_frame(self, session: int, after: int, timeout: Optional[float]) -> Optional[Frame]:
        """The newest frame that this reader has not got; None when none comes in time."""
        end = None if timeout is None else time.monotonic() + timeout
        while True:
            began = time.monotonic()
            frame = self._try_frame(session, after)
            if frame is not None and (frame.session != session or frame.number > after):
                if frame.session != session:
                    self.parameters = {}  # those of another start of the worker
                return frame
            now = time.monotonic()
            if end is not None and now >= end:
                return None
            if now - began < _BETWEEN:  # it did not wait for a frame, so there is none to come soon
                time.sleep(_BETWEEN if end is None else min(_BETWEEN, end - now))

    def _try_frame(self, session: int, after: int) -> Optional[Frame]:
        with self._frames.lock:
            try:
                response = self._frames.answer(f"{self._path}/frame?after={after}&session={session}")
                if response.status == 200:
                    message = Assembler(lambda into: response.readinto(into)).step()
                    response.read()
                    self._answers = True
                    if message is None or message.kind != Kind.FRAME:
                        raise WireError(f"{self.name} sends something else than a frame")
                    return frame_in(message.body)
                text = response.read(MOST_MESSAGE)
            except (EOFError, OSError, http.client.HTTPException) as why:
                self._frames.close()
                self._answers, self.why = False, f"{self.name}: the answer is cut short: {why}"
                return None
            except LostError as why:
                self._answers, self.why = False, str(why)
                return None
            except WireError:
                self._frames.close()
                raise
        if response.status == 204:
            self._answers, self.why = True, f"{self.name} has no frame"
            return None
        with contextlib.suppress(LostError):
            try:
                content = json.loads(text)
            except ValueError:
                content = {}
            self._require(response.status, content if isinstance(content, dict) else {})
        error = content.get("error") if isinstance(content, dict) else None
        self._answers, self.why = True, f"{self.name}: {error or f'status {response.status}'}"
        return None

    def request(self, content: dict[str, Any], timeout: float) -> dict[str, Any]:
        """Makes a worker's request by way of the server."""
        if content["do"] == "get":
            self._load_parameters()
            settings = self.parameters.get("settings")
            known = dict(settings) if isinstance(settings, dict) else {}
            if "temperature" in content["names"]:  # is known with a frame, so the state has it
                self._load_state()
                known["temperature"] = self.state.get("temperature")
            return {"ok": True, "settings": {name: known[name] for name in content["names"] if name in known}}
        if content["do"] == "save":
            path, body = "save", {"serial": self.state.get("serial")}
        else:
            path, body = "settings", {"settings": content["settings"]}
        status, reply = self._requests.json(f"{self._path}/{path}", body)
        if status in (401, 403, 404):
            self._require(status, reply)
        self.parameters = {}  # they have changed
        return reply

    def close(self) -> None:
        """Ends the connections."""
        self._frames.end()
        self._requests.end()
