# SPDX-License-Identifier: MIT
"""Several DHCP lines, and the DNS question that tells them apart."""
import pytest

from marks import scenario

DNS = ("dns",)
UNLEARNED = [pytest.param(marks=pytest.mark.scenario(name), id=name)
             for name in ("unlearned-dhcp", "unlearned-dhcp-remote")]


def rejections(seen):
    """What was said about the answers that did not count."""
    return [line["body"] for line in seen.find("recv_dns_query", "DNS response check fail")]


# holds: two-answers
@scenario("two-dhcp")
def test_of_two_dhcp_lines_the_one_that_resolves_names_wins(seen):
    assert seen.find("uloop_wan_detect_using_proto_detect",
                     "Found 2 devices provide dhcp protocol! Next try dns detect!")
    assert seen.one("uloop_wan_detect_using_dns", "wan detect Success")["body"] == (
        "DNS lookup shows dev:eth3 online, wan detect Success!")
    assert {probe["port"] for probe in seen.probes(kinds=DNS)} == {"eth1", "eth3"}


# holds: two-gateways-silent-dns
@scenario("dhcp-priority")
def test_of_two_dhcp_lines_without_dns_the_one_with_the_higher_priority_wins(seen):
    assert {probe["port"] for probe in seen.probes(kinds=DNS)} == {"eth1", "eth3"}
    assert seen.one("uloop_wan_detect_using_dns", "as wan")["body"] == (
        "Overall 2 device using protocol dhcp! Use first priority device:eth3 as wan!")


# holds: dhcp-tie
@pytest.mark.parametrize((), UNLEARNED)
def test_of_two_dhcp_lines_that_leave_no_arp_entry_behind_the_one_that_resolves_names_wins(seen):
    assert seen.one("uloop_wan_detect_using_dns", "wan detect Success")["body"] == (
        "DNS lookup shows dev:eth3 online, wan detect Success!")


# holds: dhcp-tie
@pytest.mark.parametrize((), UNLEARNED)
def test_who_asks_for_an_offered_address_is_told_while_the_question_is_out(seen):
    sent = seen.find("gethostbyname_own_implement", "Send dns request to")
    told = seen.find("answer_arp_questions", "Told 10.10.4.1, who asked via dev:eth3, that this port has 10.10.4.100")
    done = seen.one("wait_dns_response", "gethostbyname_own_implement return success!")
    assert told and sent[0]["at"] <= told[0]["at"] <= done["at"]


@scenario("forged-dns")
def test_forged_and_foreign_dns_answers_do_not_count(seen):
    assert seen.one("recv_dns_query", "dns response checked! eth=eth3, dev_ip:")
    assert seen.find("recv_dns_query", "dns response checked! eth=eth1") == []


# holds: dns-other-server
@scenario("forged-dns")
@pytest.mark.parametrize("said", ["IP protocol: 6/17", "src_addr: 192.0.2.66", "dst_addr: 192.0.2.66",
                                  "udp port: 5353/53", "dns id: "])
def test_a_forged_answer_is_rejected_for_its_flaw(seen, said):
    assert any(said in body for body in rejections(seen))


# holds: dns-no-records
@scenario("forged-dns")
def test_an_answer_without_answers_in_it_is_dropped_without_a_word(seen):
    read = seen.find("recv_dns_query", "dns response from ip=10.10.2.")
    told = [line for line in rejections(seen) if "dst_addr" not in line]
    others = [line for line in seen.find("recv_dns_query", "dns response from ip=10.10.4.")]
    accepted = seen.find("recv_dns_query", "dns response checked! eth=eth3, dev_ip")
    assert len(read) + len(others) - len(told) - len(accepted) == 1


# holds: dns-timeout
@scenario("late-dns")
def test_a_dns_answer_after_3_s_does_not_count(seen):
    assert seen.find("recv_dns_query", "dns response checked!") == []
    assert seen.one("uloop_wan_detect_using_dns", "as wan")["body"] == (
        "Overall 2 device using protocol dhcp! Use first priority device:eth1 as wan!")


# holds: dns-timeout
@scenario("late-dns")
def test_the_wait_for_dns_answers_ends_after_3_s(seen):
    sent = seen.find("gethostbyname_own_implement", "Send dns request to")[-1]
    given_up = seen.find("wait_dns_response", "dnslookup failed at:")[0]
    assert 2.5 <= given_up["at"] - sent["at"] <= 3 + 8
