# SPDX-License-Identifier: MIT
"""The WAN role moved by somebody other than the daemon."""
from marks import scenario


# holds: live-role-in-cycle
@scenario("role-moved")
def test_an_open_cycle_takes_the_port_that_somebody_chose_as_the_current_one(seen):
    assert seen.facts["swaps"] == []


# holds: live-role-in-cycle
@scenario("role-moved-stage", "--speed", "3")
def test_what_a_stage_finds_does_not_undo_a_role_that_was_moved_meanwhile(seen):
    assert seen.facts["stage"] is not None
    assert seen.facts["swaps"] == []


# holds: live-role-at-rest
@scenario("role-moved-rest", "--speed", "4")
def test_without_a_cycle_the_new_wan_port_is_watched_and_the_former_one_is_not(seen):
    """The checks of the scenario say so."""


# holds: live-role-at-rest
@scenario("role-moved-dead", "--speed", "4")
def test_a_role_moved_to_a_port_without_a_link_counts_as_a_wan_loss_within_2_s(seen):
    """The checks of the scenario say so."""


# holds: live-role-at-rest
@scenario("wan-unknown", "--speed", "4")
def test_a_wan_port_unknown_at_the_start_is_watched_once_the_role_is_put_right(seen):
    """The checks of the scenario say so."""
