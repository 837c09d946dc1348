# SPDX-License-Identifier: MIT
"""Memory, descriptors and system calls refused to the daemon, some of each; tests/faults/run.py refuses all of them."""
import pytest

memory = pytest.mark.scenario("memory-refused", "--speed", "50", "--option", "sample=24")
descriptors = pytest.mark.scenario("descriptors-used-up", "--speed", "100", "--option", "step=2")
calls = pytest.mark.scenario("failing-calls", "--speed", "50")

RECOVERED = "went on, and the next cycle found the port"


def assert_no_harm(seen, least):
    assert seen.facts["broken"] == []
    assert sum(seen.facts["outcomes"].values()) >= least


@memory
def test_whichever_allocation_is_refused_the_daemon_goes_on_or_gives_up_as_described(seen):
    assert_no_harm(seen, 24)


@memory
def test_after_most_refused_allocations_the_next_cycle_finds_the_port(seen):
    outcomes = seen.facts["outcomes"]
    assert outcomes[RECOVERED] > sum(outcomes.values()) / 2


@descriptors
def test_with_too_few_descriptors_the_daemon_gives_up_as_described_or_waits_for_more(seen):
    assert_no_harm(seen, 20)
    assert seen.facts["outcomes"]["gave up in start-up, as described"] >= 5
    assert seen.facts["outcomes"][RECOVERED] >= 5


@calls
def test_a_call_that_fails_for_a_while_is_told_and_the_next_cycle_finds_the_port(seen):
    assert_no_harm(seen, 40)
    assert seen.facts["outcomes"][RECOVERED] == sum(seen.facts["outcomes"].values())
