# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Views of a board by the options of the command line."""
from __future__ import annotations

from .._errors import UsageError
from ._board import Board, board_of
from ._feed import Feed, limited
from ._options import Options
from ._report import Progress
from ._views import Collection


def wanted_board(options: Options) -> Board:
    """The board that the options describe."""
    if options.board is None or not options.square:
        raise UsageError("--board and --square describe the board, such as --board 8x5 --square 60")
    return board_of(options.board, options.square)


def gathered(feed: Feed, board: Board, options: Options, progress: Progress, least: int, enough: int, most: int) -> Collection:
    """Views until there are enough. Ctrl-C ends the gathering, and everything when there are fewer than ``least``. Signals that
    end programs end everything."""
    collection = Collection(board, [subject.lens for subject in feed.subjects], progress.say)
    if options.views is not None:
        if options.views < least:
            raise UsageError(f"--views is {least} or more")
        enough, most = options.views, options.views
    progress.say(f"looking for a board with {board}; hold it still for a moment in each pose")
    try:
        sets = limited(feed.sets, options.frames, options.seconds)
        collection.gather(sets, options.mean_of, most, enough)
    except KeyboardInterrupt as why:
        if why.args or len(collection.views) < least:
            raise
    finally:
        progress.end()
    collection.require(least)
    return collection
