# SPDX-License-Identifier: MIT
"""LAN hosts behind ports."""
import pytest

BOTH = [pytest.param(marks=pytest.mark.scenario(name), id=name) for name in ("lan-hosts", "lan-ioctl")]
both_ways = pytest.mark.parametrize((), BOTH)


def dropped(seen):
    return {line["body"].split()[1] for line in seen.find("remove_brlan_dev_from_list", "Remove ")}


# holds: lan-port-no-candidate
@both_ways
def test_ports_with_lan_hosts_behind_them_are_no_candidates_though_a_dhcp_server_answers_there(seen):
    assert dropped(seen) == {"eth1", "eth3"}
    assert seen.probes("eth1") == seen.probes("eth3") == []


# holds: arp-other-subnet
@both_ways
def test_a_host_of_another_network_does_not_count(seen):
    assert "eth2" not in dropped(seen)
    mac = seen.facts["macs"]["eth2"].upper().replace(":", "-")
    assert seen.find("update_filtered_arp_table", mac) == []
    assert seen.find("update_brlan_dev", f"Failed to find arp entry for {mac}!")


@both_ways
def test_a_host_that_is_gone_drops_out_though_the_arp_cache_still_holds_it(seen):
    mac = seen.facts["macs"]["eth4"].upper().replace(":", "-")
    assert seen.find("update_filtered_arp_table", f"Detect new arp entry for {mac}, flags=2")
    assert seen.find("double_check_arp_packet_all_blocked",
                     f"No arp reply from 192.168.1.105|{mac}! Remove it from arp hash table!")
    assert seen.find("update_brlan_dev", f"Failed to find arp entry for {mac}!")


# holds: many-forwarding-records
@both_ways
def test_more_than_64_forwarding_entries_are_joined(seen):
    assert seen.facts["place"] >= 64
    counts = {int(line["body"].split()[3]) for line in seen.find("get_bridge_table", "entry in fdb table")}
    assert min(counts) > 100


# holds: no-forwarding-file
@pytest.mark.scenario("lan-ioctl")
def test_without_the_forwarding_file_the_private_request_is_used(seen):
    assert seen.facts["told_by_request"] == 64
    assert seen.find("br_get_fdb", "read of forward table failed") == []
