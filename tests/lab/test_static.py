# SPDX-License-Identifier: MIT
"""Static addresses, and tunnels over static and dynamic ones."""
import pytest

from marks import scenario

DNS = ("dns",)
UNPLACED = [pytest.param(marks=pytest.mark.scenario(name), id=name)
            for name in ("unplaced-static", "unplaced-static-remote")]


# holds: one-gateway
@scenario("static")
def test_the_port_behind_which_the_gateway_answers_wins(seen):
    assert seen.one("uloop_wan_detect_using_arp", "treat it as wan")["body"] == (
        "ARP shows Only one device:eth3 using protocol static(have gateway ip in arp detect:203.0.113.1)! "
        "treat it as wan!")


# holds: way-of-confirming
@scenario("static")
def test_a_static_line_is_not_asked_for_dhcp_or_pppoe(seen):
    assert seen.probes() == []


# holds: two-gateways-dns
@scenario("two-gateways")
def test_of_two_gateways_the_one_that_resolves_names_wins(seen):
    assert seen.one("uloop_wan_detect_using_dns", "wan detect Success")["body"] == (
        "DNS lookup shows dev:eth3 online, wan detect Success!")


# holds: way-of-confirming
@scenario("l2tp")
def test_an_l2tp_tunnel_over_a_dynamic_address_is_found_by_dhcp_alone(seen):
    assert seen.probes(kinds=("padi",)) == []


# holds: way-of-confirming
@scenario("pptp-dynamic")
def test_a_pptp_tunnel_over_a_dynamic_address_is_found_by_dhcp_alone(seen):
    assert seen.probes(kinds=("padi",)) == []


# holds: way-of-confirming
@scenario("pptp")
def test_a_pptp_tunnel_over_a_static_address_is_found_by_its_server(seen):
    assert seen.probes() == []
    assert seen.one("uloop_wan_detect_using_arp", "wan detect Success")["body"] == (
        "ARP shows server ip:203.0.113.1 in dev:eth2, wan detect Success!")


# holds: static-tunnel, two-ports-answer
@scenario("l2tp-static")
def test_an_l2tp_tunnel_over_a_static_address_takes_the_first_port_of_its_server_without_dns(seen):
    assert seen.probes(kinds=DNS) == []
    assert seen.one("find_target_ip_and_device_with_arp", "Detect 2 device own same ip:203.0.113.1!")
    assert seen.one("uloop_wan_detect_using_arp", "wan detect Success")["body"] == (
        "ARP shows server ip:203.0.113.1 in dev:eth3, wan detect Success!")


# holds: two-gateways-silent-dns
@scenario("static-priority")
def test_of_two_gateways_without_dns_the_one_with_the_higher_priority_wins(seen):
    assert {probe["port"] for probe in seen.probes(kinds=DNS)} == {"eth1", "eth3"}
    assert seen.one("wait_dns_response", "gethostbyname_own_implement resolve failed!, ret = 96")
    assert seen.one("uloop_wan_detect_using_dns", "as wan")["body"] == (
        "Overall 2 device using protocol static(all have gateway ip in arp detect:203.0.113.1)! "
        "Use first priority device:eth3 as wan!")


# holds: no-name-server
@scenario("static-no-dns")
def test_without_a_dns_server_the_gateway_is_asked(seen):
    assert {(probe["port"], probe["target"]) for probe in seen.probes(kinds=DNS)} == {
        ("eth1", "203.0.113.1"), ("eth3", "203.0.113.1")}
    assert seen.one("uloop_wan_detect_using_dns", "DNS lookup shows dev:eth3 online")


@scenario("static-remote-dns")
def test_a_dns_server_outside_the_subnet_is_asked_by_way_of_the_gateway(seen):
    assert seen.find("send_special_arp", "Send a arp packet to ip:198.51.100.53 via eth3, however no response!!")
    assert seen.one("uloop_wan_detect_using_dns", "DNS lookup shows dev:eth3 online")


# holds: static-tie
@pytest.mark.parametrize((), UNPLACED)
def test_of_two_gateways_the_one_that_resolves_names_wins_though_the_router_does_not_own_its_address(seen):
    assert seen.one("uloop_wan_detect_using_dns", "DNS lookup shows dev:eth3 online")
    assert seen.find("answer_arp_questions", "Told 203.0.113.1, who asked via dev:eth3, that this port has 203.0.113.2")


# holds: gateway-ignores-strangers
@scenario("strict-gateway")
def test_a_gateway_that_ignores_a_foreign_network_is_found_in_the_connections_own_name(seen):
    assert seen.find("uloop_wan_detect_using_arp", "Can't find gateway ip:203.0.113.1 in arp table")
    assert seen.one("uloop_wan_detect_using_arp", "treat it as wan")["body"] == (
        "ARP shows Only one device:eth3 using protocol static(have gateway ip in arp detect:203.0.113.1)! "
        "treat it as wan!")


# holds: nobody-left, no-gateway
@scenario("static-late")
def test_while_nobody_answers_for_the_gateway_the_cycle_goes_on(seen):
    assert seen.one("uloop_wan_detect_using_arp", "Can't find gateway ip")["body"] == (
        "Can't find gateway ip:203.0.113.1 in arp table, waiting for another device")
    assert len(seen.find("uloop_start_wan_detect", "Zero device need to detect")) >= 10
    assert seen.one("uloop_wan_detect_using_arp", "treat it as wan")
