# SPDX-License-Identifier: MIT
"""Floods of every kind while the daemon probes: shorter versions of bench/hostile.sh."""
import pytest

probes = pytest.mark.scenario("hostile", "--speed", "5", long=True)
cycles = pytest.mark.scenario("hostile-static", "--speed", "5", long=True)


def phase_of(seen, kind):
    return next(phase for phase in seen.facts["phases"] if phase["kind"] == kind)


def assert_right(phase):
    assert phase["answers"]
    for what, got, wanted in phase["answers"]:
        assert got == wanted, f"{what} in a flood of {phase['kind']}"


@probes
@pytest.mark.parametrize("kind", ["garbage", "dhcp", "pppoe", "near"])
def test_dhcp_and_pppoe_answers_are_found_in_a_flood(seen, kind):
    assert_right(phase_of(seen, kind))


@probes
@pytest.mark.parametrize("kind", ["garbage", "dhcp", "pppoe", "near"])
def test_the_flood_does_not_reach_the_daemon(seen, kind):
    phase = phase_of(seen, kind)
    flooded = sum(phase["rates"].values()) * phase["seconds"]
    assert phase["taken"] < flooded / 1000
    assert phase["lost"] == 0


@cycles
@pytest.mark.parametrize("kind", ["garbage", "arp", "dns", "near"])
def test_lan_hosts_gateway_and_name_server_are_found_in_a_flood(seen, kind):
    assert_right(phase_of(seen, kind))


@pytest.mark.parametrize("limit", ["what is there is found", "its memory grows by at most", "% of a processor", "every call is answered",
                                   "as many descriptors"])
@pytest.mark.parametrize("flooded", [pytest.param(0, marks=probes), pytest.param(1, marks=cycles)], ids=["probes", "cycles"])
def test_the_limits_hold_in_every_flood(seen, flooded, limit):
    checks = [check for check in seen.report["checks"] if limit in check["what"]]
    assert checks
    assert [check for check in checks if not check["passed"]] == []


@probes
def test_the_daemon_ends_well_after_the_floods(seen):
    """The checks of the scenario say so."""


@cycles
def test_the_daemon_ends_well_after_flooded_cycles(seen):
    """The checks of the scenario say so."""
