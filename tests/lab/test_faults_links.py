# SPDX-License-Identifier: MIT
"""Answers that are late, lost, doubled or out of order; ports and bridges that vanish in the middle of a probe."""
import pytest

LINKS = ["bad-link-dhcp", "bad-link-arp", "bad-link-dns"]
VANISHING = ["vanishing-dhcp", "vanishing-pppoe", "vanishing-static"]


def scenarios(names, *options):
    return [pytest.param(name, marks=pytest.mark.scenario(name, *options)) for name in names]


@pytest.mark.parametrize("name", scenarios(LINKS))
def test_what_comes_in_time_counts_once_and_what_does_not_never_does(seen, name):
    assert seen.report["scenario"] == name


@pytest.mark.parametrize("name", scenarios(LINKS))
def test_a_late_answer_and_three_answers_need_no_second_cycle(seen, name):
    assert seen.report["scenario"] == name
    assert seen.facts["cycles"]["late answers"] == seen.facts["cycles"]["each answer three times"] == 1


@pytest.mark.parametrize("name", scenarios(VANISHING))
def test_a_port_that_vanishes_in_the_middle_of_a_probe_takes_nothing_with_it(seen, name):
    assert seen.report["scenario"] == name


@pytest.mark.scenario("vanishing-dhcp")
@pytest.mark.parametrize("probe", ["DHCP", "DNS"])
def test_a_deleted_port_comes_back_with_another_number(seen, probe):
    before, after = seen.facts[f"eth3 is deleted during {probe}: numbers"]
    assert before != after


@pytest.mark.scenario("vanishing-dhcp")
def test_a_missing_bridge_is_told_and_the_next_cycle_after_its_return_finds_the_line(seen):
    assert seen.find("send_dhcp_discovery_all", "Couldn't get br-lan ip, netmask, mac!")
    passed = {check["what"] for check in seen.report["checks"] if check["passed"]}
    assert "of the bridge: the next cycle finds eth2" in passed
