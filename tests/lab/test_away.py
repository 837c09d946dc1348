# SPDX-License-Identifier: MIT
"""The bus daemon and the network manager away for a while."""
from marks import scenario

SLOWER = ("--speed", "4")    # a bus daemon takes real time to start


# holds: live-absent-manager
@scenario("bus-away", *SLOWER)
def test_a_bus_away_for_3_s_makes_no_working_wan_port_bad(seen):
    """The checks of the scenario say so."""


# holds: live-absent-manager
@scenario("bus-away-start", *SLOWER)
def test_a_bus_restarted_before_the_first_cycle_makes_no_working_wan_port_bad(seen):
    """The checks of the scenario say so."""


# holds: live-absent-manager
@scenario("manager-away", *SLOWER)
def test_a_network_manager_away_for_3_s_makes_no_working_wan_port_bad(seen):
    """The checks of the scenario say so."""


# holds: live-absent-manager
@scenario("manager-gone", *SLOWER)
def test_a_network_manager_gone_for_good_is_waited_for_ten_times(seen):
    """The checks of the scenario say so."""


# holds: live-absent-manager
@scenario("manager-never", *SLOWER)
def test_a_network_manager_that_never_was_there_is_not_waited_for(seen):
    """The checks of the scenario say so."""
