"""The fixture ``marvane_sim``."""

from __future__ import annotations

import contextlib
from collections.abc import Callable, Iterator

import pytest

from marvane_sim.simulation import Simulation


@pytest.fixture
def marvane_sim() -> Iterator[Callable[..., Simulation]]:
    """Begins simulations that end with the test: ``sim = marvane_sim("k44", options=[...])``."""
    with contextlib.ExitStack() as ends:
        yield lambda *boards, **options: ends.enter_context(Simulation(*boards, **options))
