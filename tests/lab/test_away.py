# SPDX-License-Identifier: MIT
"""The bus daemon and the network manager away for a while."""
import pytest

SLOWER = ("--speed", "4")    # a bus daemon takes real time to start


def scenario(name):
    return pytest.mark.scenario(name, *SLOWER)


# holds: live-absent-manager
@scenario("bus-away")
def test_a_bus_away_for_3_s_makes_no_working_wan_port_bad(seen):
    assert seen.failed_checks() == []


# holds: live-absent-manager
@scenario("bus-away-start")
def test_a_bus_restarted_before_the_first_cycle_makes_no_working_wan_port_bad(seen):
    assert seen.failed_checks() == []


# holds: live-absent-manager
@scenario("manager-away")
def test_a_network_manager_away_for_3_s_makes_no_working_wan_port_bad(seen):
    assert seen.failed_checks() == []


# holds: live-absent-manager
@scenario("manager-gone")
def test_a_network_manager_gone_for_good_is_waited_for_ten_times(seen):
    assert seen.failed_checks() == []


# holds: live-absent-manager
@scenario("manager-never")
def test_a_network_manager_that_never_was_there_is_not_waited_for(seen):
    assert seen.failed_checks() == []
