# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""What is closed at the end of a ``with`` block."""
from __future__ import annotations

from types import TracebackType
from typing import Optional, TypeVar

Self = TypeVar("Self", bound="Closing")


class Closing:
    """Something with a ``close()`` that may be called twice."""

    __slots__ = ()

    def close(self) -> None:
        """Lets go of what it holds."""
        raise NotImplementedError

    def __enter__(self: Self) -> Self:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        value: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()
