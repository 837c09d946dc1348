# SPDX-License-Identifier: MIT
"""Ports that may never win, and situations in which nothing may happen."""
from marks import scenario


# holds: candidates
@scenario("reserved")
def test_reserved_ports_never_win(seen):
    winners = {line["body"].split()[4] for line in seen.find("switch_wan_to_dev", "Switching wan dev to")}
    assert winners == {"eth6"}


# holds: candidates
@scenario("reserved")
def test_aggregated_gaming_and_lan_ports_are_not_even_asked(seen):
    assert {probe["port"] for probe in seen.probes()}.isdisjoint({"eth1", "eth2", "eth5"})


@scenario("reserved")
def test_the_lan_host_is_recognised_by_the_bridge_and_the_arp_cache(seen):
    assert seen.find("update_brlan_dev", "has same subnet as LAN in dev:eth5!")
    assert seen.find("remove_brlan_dev_from_list", "Remove eth5 out of pssible wan list")


@scenario("reserved")
def test_the_bus_bans_a_port(seen):
    assert seen.one("add_unique_banned_device_to_list", "dev:eth3 is banned to act as wan now for 1800s!")


# holds: off-at-start
@scenario("disabled")
def test_with_detection_off_nothing_happens(seen):
    assert seen.find("update_eth_link_status_trigger", "Skip update eth link status due to wan detect switch off!")


# holds: no-router-at-start
@scenario("ap-mode")
def test_in_access_point_mode_nothing_happens(seen):
    assert seen.find("update_eth_link_status_trigger", "Skip update eth link status due to wan detect switch off!")


# holds: link-outside-router-mode
@scenario("ap-mode")
def test_in_access_point_mode_link_changes_are_not_even_stored(seen):
    assert len(seen.find("device_hotplug_event", "Device eth2 link status change to up by ubus!")) == 2
    assert seen.find("wan_detect_process_link_change", "Device eth2 link status change") == []


# holds: working-wan-ends-cycle
@scenario("good-wan")
def test_a_good_wan_port_is_left_alone_without_a_probe(seen):
    assert seen.find("get_network_status", "Get network status return: connected")


@scenario("swap-fails")
def test_a_failed_swap_is_repeated_by_the_next_cycle(seen):
    swaps = seen.find("switch_wan_to_dev", "Switching wan dev to eth2")
    assert len(swaps) == 2
    assert 20.5 <= swaps[1]["at"] - swaps[0]["at"] <= 35


# holds: no-result
@scenario("fake-wan")
def test_the_fake_wan_is_kept_without_and_dropped_with_a_verdict(seen):
    dropped = seen.one("wan_detect_remove_fake_wan", "Set fake_wan_dev=null")
    assert dropped["body"] == "Set fake_wan_dev=null, network.auto_wan_detect.fake_wan_port=-1."


# holds: fake-wan-wins
@scenario("fake-wan-wins")
def test_a_fake_wan_port_that_wins_is_swapped_before_it_is_dropped(seen):
    order = [line["function"] for line in seen.lines
             if "success switching wan dev to eth4" in line["body"] or "Set fake_wan_dev=null" in line["body"]]
    assert order == ["switch_wan_to_dev", "wan_detect_remove_fake_wan"]
