# SPDX-License-Identifier: MIT
"""PPPoE lines, several lines at once, slow servers."""
from marks import scenario


@scenario("pppoe")
def test_a_pppoe_line_wins_among_dhcp_servers(seen):
    """The checks of the scenario say so."""


# holds: way-of-confirming
@scenario("pppoe")
def test_a_pppoe_cycle_asks_for_pppoe_only(seen):
    assert seen.probes(kinds=("discover",)) == []
    assert {probe["port"] for probe in seen.probes(kinds=("padi",))} == {"eth1", "eth2", "eth3", "eth0"}


# holds: two-answers
@scenario("two-pppoe")
def test_of_two_pppoe_lines_the_one_with_the_higher_priority_wins(seen):
    assert seen.one("uloop_wan_detect_using_proto_detect", "as wan")["body"] == (
        "Overall 2 device using protocol pppoe! Use first priority device:eth4 as wan!")


# holds: three-stages
@scenario("slow-dhcp")
def test_a_slow_dhcp_server_is_found_in_a_later_stage(seen):
    assert len(seen.find("uloop_start_wan_detect", "using protocol detect")) >= 2


# holds: three-stages
@scenario("slow-dhcp")
def test_a_silent_port_stays_a_candidate_after_its_first_stage(seen):
    kept = seen.find("remove_specific_proto_dev_from_list", "Continue keep it")
    assert kept[0]["body"] == (
        "Continue keep it in possible wan list due to no dhcp was detected in eth2, retry! retry times:1/2")
