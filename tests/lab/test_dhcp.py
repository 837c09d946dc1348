# SPDX-License-Identifier: MIT
"""The main job: a DHCP line in another port than the WAN role."""
import pytest

from marks import LATE_S

pytestmark = pytest.mark.scenario("dhcp")

STAGE_START = ("uloop_start_wan_detect", "using protocol detect")
# The engine's own delays in seconds, and how late a step may be seen in fast time on a busy machine.
START_PAUSE_S = 15
REDETECT_S = 21


def test_the_port_with_the_dhcp_server_gets_the_wan_role(seen):
    """The checks of the scenario say so."""


# holds: wait-for-link
def test_the_first_cycle_begins_after_the_pause_of_15_s(seen):
    first = seen.find("uloop_start_wan_detect", "Start to detect in")[0]
    assert START_PAUSE_S - 0.5 <= first["at"] <= START_PAUSE_S + LATE_S


# holds: joined-names
def test_the_candidates_are_named_with_the_current_wan_port(seen):
    assert seen.find("uloop_start_wan_detect", "Start to detect in")[0]["body"] == (
        "Start to detect in 3 device(s):eth0、eth2、eth3、")


def test_every_candidate_is_asked_once_per_stage(seen):
    stages = len(seen.find(*STAGE_START))
    assert stages >= 1
    for port in ("eth2", "eth3"):
        assert len(seen.probes(port, kinds=("discover",))) == stages


# holds: one-answer
def test_the_only_answering_port_wins_at_once(seen):
    verdict = seen.one("uloop_wan_detect_using_proto_detect", "treat it as wan")
    assert verdict["body"] == "Only one device:eth2 using protocol dhcp! treat it as wan!"


# holds: way-of-confirming
def test_a_dhcp_line_is_not_asked_for_pppoe(seen):
    assert seen.probes(kinds=("padi",)) == []


# holds: result-file
def test_the_result_file_holds_the_port_as_soon_as_the_first_cycle_closes(seen):
    assert seen.facts["result_after_first"] == "eth2"


def test_the_swap_command_is_called_once_with_the_switch_port(seen):
    assert seen.one("switch_wan_to_dev", "execute:")["body"] == (
        "wan_detect:Switching wan dev to eth2 execute:network_lanwan_swap set port3!")


# holds: confirming-cycle
def test_a_second_cycle_21_s_after_the_swap_confirms_it_without_probes(seen):
    swap = seen.one("switch_wan_to_dev", "Start re-detect all")
    second = seen.lines[seen.facts["first_end"] + 1:]
    opened = next(line for line in second if line["function"] == "uloop_init_wan_detect_all")
    assert REDETECT_S - 0.5 <= opened["at"] - swap["at"] <= REDETECT_S + LATE_S
    assert not any(probe["at"] > swap["at"] for probe in seen.probes())
    assert any(line["function"] == "switch_wan_to_dev" and "Same wan device" in line["body"] for line in second)


def test_the_console_tells_the_debug_level(seen):
    assert "Success set wan_detect debug level to 7!" in seen.console
