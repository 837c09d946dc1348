# SPDX-License-Identifier: MIT
"""The bus daemon dies, hangs and talks nonsense; the network manager never answers."""
import pytest

BACK_S = 2.0
SPEED, LATE_REAL_S, LIMIT_REAL_S = 10, 0.8, 1.0
bad_bus = pytest.mark.scenario("bad-bus", long=True)
pytestmark = bad_bus


def test_whatever_the_bus_does_the_daemon_goes_on(seen):
    """The checks of the scenario say so."""


@pytest.mark.parametrize("kill", ["killed at rest", "killed while it calls the daemon", "killed while the daemon calls",
                                  "killed many times in a row"])
def test_a_killed_bus_has_the_object_back_within_two_seconds(seen, kill):
    assert seen.facts["back_s"][kill] <= BACK_S + LATE_REAL_S * SPEED


@pytest.mark.parametrize("manner", ["hangs after its greeting", "sends half a frame", "floods"])
def test_a_bus_that_lets_the_daemon_wait_does_not_keep_its_loop(seen, manner):
    assert seen.facts["back_s"][f"a bus that {manner}"] <= BACK_S + (LIMIT_REAL_S + LATE_REAL_S) * SPEED


def test_a_call_in_flight_fails_when_the_bus_dies(seen):
    assert seen.find("get_network_status", "Failed to run ubus call")


def test_a_line_is_found_while_the_bus_hangs_and_the_manager_is_silent_or_gone(seen):
    checks = {check["what"] for check in seen.report["checks"] if check["passed"]}
    assert {"a hanging bus: the line is found", "a manager that never answers: the next cycle finds eth2",
            "no manager: the next cycle finds eth2"} <= checks
