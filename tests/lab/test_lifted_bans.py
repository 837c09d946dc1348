# SPDX-License-Identifier: MIT
"""Bans and links that return, and a banned WAN port."""
from marks import scenario


# holds: ban-lifted-by-link
@scenario("ban-hotplug", "--speed", "4")
def test_a_link_reported_over_the_bus_lifts_the_ban(seen):
    """The checks of the scenario say so."""


# holds: ban-lifted-by-link
@scenario("ban-cycle")
def test_a_link_seen_first_by_the_pass_of_an_open_cycle_lifts_the_ban(seen):
    """The checks of the scenario say so."""


# holds: banned-wan-line
@scenario("banned-wan")
def test_a_wan_port_that_works_but_is_banned_gives_its_role_to_another_line(seen):
    """The checks of the scenario say so."""


# holds: banned-wan-line
@scenario("banned-wan-alone")
def test_no_line_repeats_every_second_for_a_banned_wan_port(seen):
    """The checks of the scenario say so."""
