# SPDX-License-Identifier: MIT
"""A flash without room for another byte: what commits loses nothing. On the stand-ins, and on the router's own libraries."""
import pytest

pytestmark = pytest.mark.scenario("full-flash", "--speed", "20")


# holds: full-flash
def test_a_commit_without_room_leaves_every_file_as_it_was(seen):
    assert seen.facts["harmed"] == []
    assert seen.facts["strange"] == []


# holds: full-flash
def test_whoever_cannot_commit_notices(seen):
    assert seen.find("_uci_set_value_commit", "fail to commit network.auto_wan_detect.fake_wan_port")
    assert seen.facts["swap_status"] not in (0, None)


# holds: full-flash
def test_with_room_again_the_next_cycle_does_what_could_not_be_done(seen):
    """The checks of the scenario say so."""
