# SPDX-License-Identifier: MIT
"""Cables pulled and plugged while the daemon runs."""
from marks import LATE_S, scenario

FIRST_DETECTION_S = 10
EARLY_S = 0.5


@scenario("cable-move")
def test_the_wan_role_follows_the_cable(seen):
    """The checks of the scenario say so."""


# holds: loss-opens-cycle
@scenario("cable-move")
def test_a_cycle_opens_10_s_after_the_wan_port_lost_its_link(seen):
    loss = seen.lines[seen.facts["loss_seen"]]
    assert loss["body"] == "Wan down!! Begin detecting in 10000ms"
    opened = next(line for line in seen.lines[seen.facts["loss_seen"]:] if line["function"] == "uloop_start_wan_detect")
    assert FIRST_DETECTION_S - 0.5 <= opened["at"] - loss["at"] <= FIRST_DETECTION_S + LATE_S


# holds: plugged-in-joins
@scenario("cable-move")
def test_a_port_that_came_up_joins_9_s_later(seen):
    noticed = seen.find("wan_detect_process_link_change", "turned up during")[0]
    joined = seen.one("delay_trigger_thread", "Add device eth3 to backup possible wan list(1 devices contained)!")
    assert 8.5 <= joined["at"] - noticed["at"] <= 9 + LATE_S


# holds: threads-rest-after-switch
@scenario("cable-move")
def test_both_threads_pause_once_for_20_s_after_a_swap(seen):
    for kind, function, text in (("scan pause", "update_eth_link_status_trigger", "Block update eth link for 20s"),
                                 ("combo pause", "wan_combo_auto_switch", "Block wan_combo_auto_switch for 20s")):
        pause = seen.one(function, f"{text} due to success switch wan!")
        assert not [line for line in seen.lines if line["function"] == function
                    and pause["at"] < line["at"] < pause["at"] + 20 - EARLY_S]
        (lasted, fixed, slack), = seen.waits(kind)
        assert fixed == 20
        assert fixed - EARLY_S <= lasted <= fixed + slack + LATE_S


# holds: confirming-cycle
@scenario("cable-move")
def test_the_confirming_cycle_opens_21_s_after_the_swap_and_keeps_the_port(seen):
    (lasted, fixed, _), = seen.waits("full")
    assert fixed == 21
    assert fixed - EARLY_S <= lasted <= fixed + LATE_S
    confirmed = seen.find("switch_wan_to_dev", "Same wan device, no need to switch!", seen.facts["first_end"])
    assert len(confirmed) == 1


@scenario("cable-move")
def test_the_sequence_of_a_moved_cable_is_loss_settled_port_verdict_swap_pauses_and_confirmation(seen):
    landmarks = [("wan_detect_process_link_change", "Wan down!! Begin detecting in 10000ms"),
                 ("wan_detect_process_link_change", "Noticed lan dev:eth3 turned up during delay!"),
                 ("delay_trigger_thread", "Add device eth3 to backup"),
                 ("uloop_start_wan_detect", "Start to detect in 2 device(s):eth0、eth3、"),
                 ("uloop_wan_detect_using_proto_detect", "Only one device:eth3 using protocol dhcp! treat it as wan!"),
                 ("switch_wan_to_dev", "execute:network_lanwan_swap set port4!"),
                 ("switch_wan_to_dev", "Block update eth link & combo switch for 20s!! Start re-detect all in 21s!"),
                 ("uloop_wan_detect_end", "Wan Detection over!"),
                 ("uloop_init_wan_detect_all", "Entering function"),
                 ("switch_wan_to_dev", "Same wan device")]
    place = -1
    for function, text in landmarks:
        place = next(index for index, line in enumerate(seen.lines)
                     if index > place and line["function"] == function and text in line["body"])


@scenario("cable-move")
def test_the_timeline_states_each_wait_beside_its_fixed_length(seen):
    for text in ("(fixed 10 s) since the link of the WAN port changed", "(fixed 9 s) since the link of eth3 came up",
                 "(fixed 21 s) for the full cycle", "(fixed 20 s) by the link scan"):
        assert text in seen.output


@scenario("cable-move")
def test_the_closing_lines_tell_what_the_probes_take_beyond_the_fixed_waits(seen):
    figure = seen.facts["plug_to_verdict"]
    assert f"Beyond the fixed waits: {figure['beyond']:.2f} s" in seen.output
    assert figure["beyond"] - figure["probes"] <= LATE_S


@scenario("cable-move")
def test_a_port_linked_all_the_time_is_no_candidate_of_that_cycle(seen):
    named = seen.find("uloop_start_wan_detect", "Start to detect in", seen.facts["loss_seen"], seen.facts["first_end"])
    assert named
    assert not any("eth2" in line["body"] for line in named)


@scenario("cable-back")
def test_a_cable_that_comes_back_keeps_the_wan_role_without_probes(seen):
    assert seen.find("wan_detect_process_link_change", "Reset start detecting time to 10000ms")


# holds: wait-for-link
@scenario("late-cable")
def test_without_any_link_the_daemon_waits_75_s_and_then_takes_the_first_line(seen):
    assert len(seen.find("main", "No device has plugged in, Waiting & check after 2s!")) == 30
    assert seen.one("main", "No device plugged in in 60s, Waiting for another 15s before starting main!")
    opened = seen.find("uloop_start_wan_detect", "Start to detect in")[0]
    assert 74 <= opened["at"] <= 75 + 2 * LATE_S


# holds: loss-again
@scenario("cable-twice")
def test_a_second_loss_within_the_10_s_begins_them_anew(seen):
    assert len(seen.find("wan_detect_process_link_change", "Reset start detecting time to 10000ms")) == 2
    assert len(seen.find("wan_detect_process_link_change", "Wan down!!")) == 1


# holds: loss-in-cycle
@scenario("pull-in-cycle")
def test_a_loss_during_a_cycle_filters_the_candidates_again_after_1_s(seen):
    lost = seen.one("wan_detect_process_link_change", "Wan down during detecting!! Begin detecting in 1000ms")
    again = next(line for line in seen.find("uloop_start_wan_detect", "Entering function") if line["at"] > lost["at"])
    assert 1 - EARLY_S <= again["at"] - lost["at"] <= 1 + LATE_S


# holds: pass-cuts-stage
@scenario("pull-in-cycle")
def test_a_loss_in_the_middle_of_a_stage_drops_the_stage(seen):
    lost = seen.facts["loss_seen"]
    restarted = next(index for index, line in enumerate(seen.lines)
                     if index > lost and line["function"] == "uloop_start_wan_detect" and "Entering" in line["body"])
    assert seen.find("uloop_proto_detect_end", "Detection over!", lost, restarted) == []
    assert seen.find("uloop_wan_detect_using_proto_detect", "No device using", lost, restarted) == []


# holds: plugged-in-too-late
@scenario("short-link")
def test_a_port_that_goes_down_within_its_9_s_does_not_join(seen):
    assert seen.one("delay_trigger_thread", "turned down")["body"] == (
        "device eth2 turned down during 9000ms delay, skipping add it to possible_wan_dev_list_cache")
    assert seen.one("delay_trigger_thread", "Add device eth2 to backup")


# holds: plugged-in-at-rest
@scenario("plug-at-rest")
def test_a_port_plugged_in_while_no_cycle_is_open_is_ignored(seen):
    assert seen.find("delay_trigger_thread", "") == []


# holds: change-seen-twice
@scenario("hotplug")
def test_a_change_told_over_the_bus_and_seen_by_the_scan_counts_once(seen):
    assert len(seen.find("delay_trigger_thread", "Add device eth3 to backup")) == 1


# holds: bus-hotplug-codes
@scenario("hotplug")
def test_odd_hotplug_reports_are_refused_with_a_line_each(seen):
    assert seen.one("device_hotplug_event", "Device eth77 doesn't existed!")
    assert seen.one("device_hotplug_event", "Bad device name")
    assert seen.one("device_hotplug_event", "Bad device status")
    assert seen.one("device_hotplug_event", "Device eth4 status not change!")
