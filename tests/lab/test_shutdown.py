# SPDX-License-Identifier: MIT
"""Ends at random moments, some thirty of them; `tests/soak/shutdown.sh` has a thousand."""
import pytest

# At ten times the speed: the half second in which an ended swap puts its change back is short enough then.
HALVES = [pytest.param(seed, marks=pytest.mark.scenario("ends", "--count", "15", "--seed", seed, long=True))
          for seed in ("one", "two")]


@pytest.mark.parametrize("half", HALVES)
def test_whenever_it_is_asked_to_the_daemon_ends_with_status_0_and_leaves_nothing_behind(half, seen):
    """The checks of the scenario say so."""


@pytest.mark.parametrize("half", HALVES)
def test_no_end_takes_five_seconds_and_most_take_a_blink(half, seen):
    assert seen.facts["ends"]["count"] == 15
    assert seen.facts["ends"]["longest_s"] <= 5
    assert seen.facts["ends"]["median_s"] <= 0.5


@pytest.mark.parametrize("half", HALVES)
def test_the_moments_are_spread_over_the_daemons_life(half, seen):
    assert len(seen.facts["ends"]["moments"]) == 15
    assert len(seen.facts["ends"]["phases"]) >= 6
