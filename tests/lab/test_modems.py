# SPDX-License-Identifier: MIT
"""Lines that serve long after their link came up."""
from marks import scenario


# holds: live-late-upstreams
@scenario("modem-dhcp")
def test_a_dhcp_modem_that_serves_60_s_after_its_link_is_found_by_itself(seen):
    """The checks of the scenario say so."""


# holds: live-late-upstreams
@scenario("modem-pppoe")
def test_a_pppoe_modem_that_serves_60_s_after_its_link_is_found_by_itself(seen):
    """The checks of the scenario say so."""


# holds: live-late-upstreams
@scenario("modem-static")
def test_a_static_gateway_that_answers_60_s_after_its_link_is_found_by_itself(seen):
    """The checks of the scenario say so."""


# holds: live-late-upstreams
@scenario("stp")
def test_a_line_behind_a_switch_that_forwards_30_s_after_its_link_is_found_by_itself(seen):
    """The checks of the scenario say so."""


# holds: live-late-upstreams
@scenario("stp")
def test_the_switch_hears_each_question_and_passes_none_on_before(seen):
    early = [probe for probe in seen.probes("eth3", ("discover",)) if probe["at"] < seen.facts["served_at"]]
    assert len(early) >= 3
    assert seen.find("recv_dhcp_discovery_packet", "Success parse dhcp discovery packet in dev=eth3")[0]["at"] \
        >= seen.facts["served_at"] - 1
