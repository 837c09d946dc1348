# SPDX-License-Identifier: MIT
"""Memory refused to the daemon at some of its allocations; tests/faults/memory.py refuses every one."""
import pytest

memory = pytest.mark.scenario("memory-refused", "--speed", "50", "--option", "sample=24")


@memory
def test_whichever_allocation_is_refused_the_daemon_goes_on_or_gives_up_as_described(seen):
    assert seen.facts["broken"] == []
    assert seen.failed_checks() == []
    assert sum(seen.facts["outcomes"].values()) >= 24


@memory
def test_after_most_refusals_the_next_cycle_finds_the_port(seen):
    outcomes = seen.facts["outcomes"]
    assert outcomes["went on, and the next cycle found the port"] > sum(outcomes.values()) / 2
