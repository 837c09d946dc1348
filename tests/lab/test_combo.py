# SPDX-License-Identifier: MIT
"""Combo ports: one port, two media."""
import pytest


def scenario(name):
    return pytest.mark.scenario(name)


@scenario("combo")
def test_a_combo_port_follows_its_media(seen):
    assert seen.failed_checks() == []
    first, second = seen.find("toggle_combo_state", "Toggle combo")[:2]
    assert first["body"] == (
        "Toggle combo eth4 state, phy down, sfp up, serdes was using phy, success switch it to sfp!")
    assert second["body"] == (
        "Toggle combo eth4 state, phy up, sfp up, serdes was using sfp, success switch it to phy!")


@scenario("combo-wins")
def test_the_swap_to_a_combo_port_names_the_side_in_use(seen):
    assert seen.failed_checks() == []
    assert seen.one("switch_wan_to_dev", "execute:")["body"] == (
        "wan_detect:Switching wan dev to eth4 execute:network_lanwan_swap set port5 sfp!")
