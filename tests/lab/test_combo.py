# SPDX-License-Identifier: MIT
"""Combo ports: one port, two media."""
from marks import LATE_S, scenario

EARLY_S = 0.5


# holds: combo-falls-back
@scenario("combo")
def test_a_combo_port_follows_its_media(seen):
    first, second = seen.find("toggle_combo_state", "Toggle combo")[:2]
    assert first["body"] == (
        "Toggle combo eth4 state, phy down, sfp up, serdes was using phy, success switch it to sfp!")
    assert second["body"] == (
        "Toggle combo eth4 state, phy up, sfp up, serdes was using sfp, success switch it to phy!")


# holds: combo-cadence
@scenario("combo-preference")
def test_the_preference_is_read_again_every_ten_passes(seen):
    reads = [line["at"] for line in seen.find("wan_combo_auto_switch", "Success get network")]
    toggles = [line["at"] for line in seen.find("toggle_combo_state", "success switch it to")]
    undisturbed = [later - earlier for earlier, later in zip(reads, reads[1:])
                   if not any(earlier <= at <= later for at in toggles)]
    assert undisturbed
    assert all(9.5 <= gap <= 10 + LATE_S for gap in undisturbed)


@scenario("combo-preference")
def test_a_preference_that_no_port_has_counts_as_copper(seen):
    assert seen.find("wan_combo_auto_switch", "network.auto_wan_detect.wan_combo_first_priority only support phy/sfp, "
                                              "fibre not supported! treat it as phy")
    assert seen.facts["changes"][1]["serdes"] == "phy"


# holds: threads-rest-after-switch
@scenario("combo-preference")
def test_a_toggle_lets_both_threads_pause_once(seen):
    for change in seen.facts["changes"]:
        for function, text in (("update_eth_link_status_trigger", "Block update eth link for 20s"),
                               ("wan_combo_auto_switch", "Block wan_combo_auto_switch for 20s")):
            pause = seen.one(function, f"{text} due to success switch wan!", *change["lines"])
            assert not [line for line in seen.lines if line["function"] == function
                        and pause["at"] < line["at"] < pause["at"] + 20 - EARLY_S]


@scenario("combo-wins")
def test_the_swap_to_a_combo_port_names_the_side_in_use(seen):
    assert seen.one("switch_wan_to_dev", "execute:")["body"] == (
        "wan_detect:Switching wan dev to eth4 execute:network_lanwan_swap set port5 sfp!")
