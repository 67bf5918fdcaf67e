# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""The command line of vqd-calibrate."""
from __future__ import annotations

import argparse
import os
import signal
import sys
from collections.abc import Callable, Sequence
from typing import Any, NoReturn, Optional

from .._errors import Error
from . import _check_command, _fppn_command, _lens_command, _pair_command
from ._options import Options
from ._report import json_text

_INTERRUPTED = 130
_USAGE = 2

_RUN: dict[str, Callable[[Options], tuple[dict[str, Any], str]]] = {
    "lens": _lens_command.run, "fppn": _fppn_command.run, "pair": _pair_command.run, "check": _check_command.run,
}


class _Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        print(f"vqd-calibrate: {message}\nRun with --help for more information.", file=sys.stderr)
        sys.exit(_USAGE)


def _positive(text: str) -> int:
    number = int(text)
    if not 1 <= number <= 1_000_000:
        raise ValueError
    return number


def _seconds(text: str) -> float:
    for unit, factor in (("min", 60.0), ("h", 3600.0), ("s", 1.0), ("", 1.0)):
        if text.endswith(unit):
            seconds = float(text[: len(text) - len(unit)]) * factor
            break
    if not 0 < seconds < 1e6:
        raise ValueError
    return seconds


_positive.__name__, _seconds.__name__ = "number", "time"  # as argparse calls them in messages


def _add_board(parser: argparse.ArgumentParser, required: bool) -> None:
    parser.add_argument("--board", metavar="NxM", required=required, help="inner corners of the chessboard, such as 8x5")
    parser.add_argument("--square", type=float, default=0.0, metavar="MM", required=required, help="side of a square in mm")
    parser.add_argument("--views", type=_positive, metavar="N", help="end with so many views, whatever they show")
    parser.add_argument("--mean-of", type=_positive, default=5, metavar="N",
                        help="frames that a view is the mean of, while the board holds still (default 5)")


def _add_source(parser: argparse.ArgumentParser) -> None:
    parser.add_argument("-c", "--camera", metavar="CAMERA", help="index, serial number, port or BUS:ADDRESS, as in vqd list")


def _add_limits(parser: argparse.ArgumentParser, frames: str) -> None:
    parser.add_argument("-n", "--frames", type=_positive, metavar="N", help=frames)
    parser.add_argument("--for", type=_seconds, dest="seconds", metavar="TIME", help="end after 90s, 10min or 1h")


def _add_results(parser: argparse.ArgumentParser, places: Sequence[str]) -> None:
    parser.add_argument("-o", "--output", metavar="FOLDER", help="new folder for the results and the report")
    parser.add_argument("--force", action="store_true", help="replace that folder")
    parser.add_argument("--write", action="append", default=[], choices=places, help="take the result into use there, too")
    if "camera" in places:
        parser.add_argument("-y", "--yes", action="store_true", help="do not ask before writing to the camera's memory")


def _parser() -> argparse.ArgumentParser:
    parser = _Parser(prog="vqd-calibrate", description="Calibrates cameras from boards and walls (docs/calibrate.md).")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND", parser_class=_Parser)
    lens = commands.add_parser("lens", help="the depth lens from a chessboard")
    _add_source(lens)
    lens.add_argument("--recording", metavar="FILE", help="a recording instead of a camera")
    _add_board(lens, True)
    _add_limits(lens, "end after so many frames")
    _add_results(lens, ("profile", "camera"))
    fppn = commands.add_parser("fppn", help="offsets of blocks of pixels from two or more flat walls")
    _add_source(fppn)
    fppn.add_argument("walls", nargs="+", metavar="WALL", help="a recording or the word camera; @MM is its measured distance")
    fppn.add_argument("--held-back", action="append", default=[], metavar="WALL", help="a wall that only judges the result")
    fppn.add_argument("-n", "--frames", type=_positive, metavar="N", help="frames of each wall (default 120)")
    _add_results(fppn, ("profile", "camera"))
    pair = commands.add_parser("pair", help="how the second camera stands to the first, from a chessboard that both see")
    pair.add_argument("pair", nargs=2, metavar="CAMERA", help="two serial numbers, or two recordings of the same time")
    _add_board(pair, True)
    _add_limits(pair, "end after so many frames of each")
    _add_results(pair, ("profile",))
    check = commands.add_parser("check", help="what the present calibration is worth")
    _add_source(check)
    check.add_argument("walls", nargs="*", metavar="WALL", help="a recording or the word camera; @MM is its measured distance")
    check.add_argument("--recording", metavar="FILE", help="a recording of a board instead of a camera")
    _add_board(check, False)
    _add_limits(check, "frames of each wall (default 120); with --board, end after so many")
    for one in (lens, fppn, pair, check):
        one.add_argument("--json", action="store_true", help="print the report as one JSON object")
        one.add_argument("-q", "--quiet", action="store_true", help="print nothing but the report and failures")
    return parser


def _interrupt(number: int, _: object) -> None:
    raise KeyboardInterrupt(number)  # Ctrl-C gives no number


def main(arguments: Optional[Sequence[str]] = None) -> int:
    """Runs a command line, and returns the exit code, which is that of vqd in the same case."""
    for number in (signal.SIGTERM, signal.SIGHUP):
        if signal.getsignal(number) == signal.SIG_DFL:  # under nohup, SIGHUP stays ignored
            signal.signal(number, _interrupt)
    options = Options(**vars(_parser().parse_args(arguments)))
    try:
        report, text = _RUN[options.command](options)
        sys.stdout.write(json_text(report) if options.json else text)
        sys.stdout.flush()
    except KeyboardInterrupt:
        print("vqd-calibrate: interrupted", file=sys.stderr)
        return _INTERRUPTED
    except Error as why:
        print(f"vqd-calibrate: {why}", file=sys.stderr)
        return why.code
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return Error.code
    except OSError as why:
        print(f"vqd-calibrate: {why}", file=sys.stderr)
        return Error.code
    return 0
