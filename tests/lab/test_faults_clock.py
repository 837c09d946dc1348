# SPDX-License-Identifier: MIT
"""The time of day jumps, and the daemon is stopped for a while."""
import pytest

SPEED = 10
pytestmark = pytest.mark.scenario("bad-clock")


def test_jumps_and_stops_change_nothing(seen):
    """The checks of the scenario say so."""


def test_nobody_asks_for_the_time_of_day(seen):
    assert seen.facts["questions"] == 0


def test_delays_last_as_long_as_they_should_while_the_clock_jumps(seen):
    delays = [lasted for lasted, fixed, _ in seen.waits("full") if fixed == 6]
    assert len(delays) == 4
    assert all(3 <= lasted <= 6 + 0.8 * SPEED for lasted in delays)
