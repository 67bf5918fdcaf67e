# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Fixtures for the tests of other projects: ``pytest_plugins = ["vqd.pytest_plugin"]`` in their conftest.py."""
from __future__ import annotations

from collections.abc import Iterator
from typing import Any, Callable

import pytest

from ._remote import RemoteCamera
from ._sim import Simulation, sim


@pytest.fixture
def vqd_sim() -> Iterator[Callable[..., Simulation]]:
    """Makes virtual cameras, as vqd.sim() does, and ends them with the test."""
    running: list[Simulation] = []

    def start(*models: str, **options: Any) -> Simulation:
        running.append(sim(*models, **options))
        return running[-1]

    yield start
    for simulation in running:
        simulation.close()


@pytest.fixture(scope="module")
def vqd_camera() -> Iterator[RemoteCamera]:
    """A virtual VQD-HT120 that looks at a plane at 1500 mm, for all tests of a module."""
    with sim("VQD-HT120", scene="plane") as simulation:
        yield simulation.camera
