# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Reports for people and programs, and the folder of a calibration, which is there as a whole or not at all."""
from __future__ import annotations

import json
import os
import shutil
import sys
import tempfile
import time
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any, Optional

from .._errors import Error, UsageError

_REPORT = "report.json"
_FILES = {_REPORT, "report.txt", "lens.json", "views.png", "fppn-4x4.bin", "pose.json", "views-1.png", "views-2.png"}


def lines_of(rows: Sequence[tuple[str, str]]) -> str:
    """Names and values in two columns; a row without a value is a sentence."""
    width = max((len(name) for name, value in rows if value), default=0)
    return "".join(f"{name:<{width}}  {value}\n" if value else f"{name}\n" for name, value in rows)


def json_text(content: Mapping[str, Any]) -> str:
    """As the tool writes it."""
    return json.dumps(content, indent=2, allow_nan=False) + "\n"


def _is_calibration(path: Path) -> bool:
    """Whether a folder holds a calibration and nothing that somebody else has put there."""
    if path.is_symlink() or not path.is_dir() or not {one.name for one in path.iterdir()} <= _FILES:
        return False
    try:
        report = json.loads((path / _REPORT).read_bytes())
    except (OSError, ValueError):
        return False
    return isinstance(report, dict) and str(report.get("schema")).startswith("vqd.calibrate-")


class Folder:
    """Where the files of one calibration go. Judged at once, written at the end."""

    def __init__(self, given: Optional[str], kind: str, force: bool) -> None:
        stamp = time.strftime("%Y%m%d-%H%M%S")
        self._given = given
        self._stem = f"{kind}-{{serial}}-{stamp}"
        self._force = force
        self._judge(Path(given or self._stem))

    def _judge(self, path: Path) -> None:
        parent = path.absolute().parent
        if not parent.is_dir():
            raise UsageError(f"{parent} is no folder")
        if not os.access(parent, os.W_OK | os.X_OK):
            raise Error(f"{parent} cannot be written to; -o names another place")
        try:
            path.lstat()
        except FileNotFoundError:
            return
        except OSError as why:
            raise Error(f"{path} cannot be written: {why.strerror}") from why
        if not self._force:
            raise UsageError(f"{path} exists already; --force replaces it")
        if not _is_calibration(path):
            raise UsageError(f"{path} exists and is no folder of a calibration alone, so --force does not replace it")

    def write(self, serial: str, files: Mapping[str, bytes], report: Mapping[str, Any], text: str) -> Path:
        """Writes all files and returns the folder."""
        path = Path(self._given or self._stem.format(serial=serial))
        self._judge(path)
        all_files = {**files, "report.txt": text.encode(), _REPORT: json_text(report).encode()}
        try:
            with tempfile.TemporaryDirectory(prefix=".vqd-calibrate-", dir=path.absolute().parent) as work:
                part = Path(work, "new")
                part.mkdir()
                for name, content in all_files.items():
                    with open(part / name, "wb") as file:
                        file.write(content)
                        file.flush()
                        os.fsync(file.fileno())
                if path.exists():
                    os.rename(path, Path(work, "old"))
                os.rename(part, path)
        except OSError as why:
            raise Error(f"{path} cannot be written: {why.strerror}") from why
        return path


class Progress:
    """Lines for people on standard error. On a terminal, those that are not worth keeping make room for the next, and are cut
    so that they need no second line."""

    def __init__(self, quiet: bool) -> None:
        self._quiet = quiet
        self._changes = sys.stderr.isatty()
        self._open = 0

    def say(self, text: str, keep: bool = True) -> None:
        """Shows a line."""
        if self._quiet:
            return
        if self._changes:
            text = text if keep else text[: shutil.get_terminal_size().columns - 1]
            print("\r" + text.ljust(self._open), end="\n" if keep else "", file=sys.stderr, flush=True)
            self._open = 0 if keep else len(text)
        else:
            print(text, file=sys.stderr, flush=True)

    def end(self) -> None:
        """Ends a line that is still open."""
        if self._open:
            print(file=sys.stderr)
            self._open = 0
