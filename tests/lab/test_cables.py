# SPDX-License-Identifier: MIT
"""Cables pulled and plugged while the daemon runs, and combo ports."""
import pytest

FIRST_DETECTION_S = 10
LATE_S = 8


def scenario(name):
    return pytest.mark.scenario(name)


@scenario("cable-move")
def test_the_wan_role_follows_the_cable(seen):
    assert seen.failed_checks() == []
    assert seen.status == 0


@scenario("cable-move")
def test_a_cycle_opens_10_s_after_the_wan_port_lost_its_link(seen):
    loss = seen.lines[seen.facts["loss_seen"]]
    assert loss["body"] == "Wan down!! Begin detecting in 10000ms"
    opened = next(line for line in seen.lines[seen.facts["loss_seen"]:] if line["function"] == "uloop_start_wan_detect")
    assert FIRST_DETECTION_S - 0.5 <= opened["at"] - loss["at"] <= FIRST_DETECTION_S + LATE_S


@scenario("cable-move")
def test_a_port_that_came_up_joins_9_s_later(seen):
    noticed = seen.find("wan_detect_process_link_change", "turned up during")[0]
    joined = seen.one("delay_trigger_thread", "Add device eth3 to backup possible wan list(1 devices contained)!")
    assert 8.5 <= joined["at"] - noticed["at"] <= 9 + LATE_S


@scenario("cable-move")
def test_a_port_linked_all_the_time_is_no_candidate_of_that_cycle(seen):
    named = seen.find("uloop_start_wan_detect", "Start to detect in", seen.facts["loss_seen"], seen.facts["first_end"])
    assert named
    assert not any("eth2" in line["body"] for line in named)


@scenario("cable-back")
def test_a_cable_that_comes_back_keeps_the_wan_role_without_probes(seen):
    assert seen.failed_checks() == []
    assert seen.find("wan_detect_process_link_change", "Reset start detecting time to 10000ms")


@scenario("late-cable")
def test_without_any_link_the_daemon_waits_75_s_and_then_takes_the_first_line(seen):
    assert seen.failed_checks() == []
    assert len(seen.find("main", "No device has plugged in, Waiting & check after 2s!")) == 30
    assert seen.one("main", "No device plugged in in 60s, Waiting for another 15s before starting main!")
    opened = seen.find("uloop_start_wan_detect", "Start to detect in")[0]
    assert 74 <= opened["at"] <= 75 + 2 * LATE_S


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
