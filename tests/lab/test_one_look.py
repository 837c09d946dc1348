# SPDX-License-Identifier: MIT
"""Changes of links at bad moments."""
from marks import scenario


# holds: loss-and-link-at-once
@scenario("one-look", "--speed", "4")
def test_a_cable_moved_between_two_looks_loses_no_up(seen):
    assert seen.find("wan_detect_process_link_change", "Noticed lan dev:eth1 turned up during delay!")


# holds: live-flapping-wan
@scenario("flapping")
def test_a_flapping_wan_port_puts_its_cycle_off_for_60_s_at_most(seen):
    """The checks of the scenario say so."""


# holds: live-toggle-after-switch
@scenario("combo-late-toggle")
def test_a_toggle_that_waited_for_a_swap_does_nothing(seen):
    """The checks of the scenario say so."""
