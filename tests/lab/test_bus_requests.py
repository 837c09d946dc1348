# SPDX-License-Identifier: MIT
"""Requests over the bus."""
from marks import LATE_S, scenario



# holds: one-shot-dhcp
@scenario("proto-detect")
def test_every_one_shot_request_leaves_its_protocol_in_the_file(seen):
    """The checks of the scenario say so."""


@scenario("proto-detect")
def test_a_request_for_one_port_asks_that_port_only_for_both_protocols(seen):
    answer = seen.facts["answers"]["a DHCP port"]
    assert sorted(answer["probes"]) == [["eth1", "discover"], ["eth1", "padi"]]


@scenario("proto-detect")
def test_a_request_for_one_protocol_sends_only_its_probe(seen):
    assert seen.facts["answers"]["a DHCP port asked for PPPoE only"]["probes"] == [["eth1", "padi"]]


# holds: request-without-link
@scenario("proto-detect")
def test_a_request_for_a_port_without_a_link_ends_at_once(seen):
    answer = seen.facts["answers"]["a port without a cable"]
    assert answer["probes"] == []
    assert seen.find("uloop_proto_detect_start",
                     "Error sending dhcp discovery & pppoe discovery packet via dev:eth4", *answer["lines"])


# holds: one-shot-timeout
@scenario("proto-detect")
def test_a_silent_port_ends_the_stage_at_its_time_out(seen):
    default, longest = (seen.facts["answers"][name] for name in ("a silent port", "the longest time-out"))
    assert 2 <= default["seconds"] <= 2.5 + LATE_S
    assert 4 <= longest["seconds"] <= 4.5 + LATE_S


# holds: bus-request-static
@scenario("proto-detect")
def test_odd_arguments_are_reported_and_replaced(seen):
    for name, function, text in (
            ("an unknown port, so all of them", "ubus_protocol_detect", "Device:eth77 doesn't existed!"),
            ("an unknown protocol, so both", "ubus_protocol_detect", "Protocol:static not supported! dhcp/pppoe only!"),
            ("a time-out out of range", "ubus_protocol_detect",
             "timeout must in the range [1000,4000]ms, set to default 2000ms!")):
        seen.one(function, text, *seen.facts["answers"][name]["lines"])


# holds: request-while-stage-runs
@scenario("proto-detect")
def test_a_request_while_one_runs_is_refused(seen):
    assert seen.facts["busy"] == {"first": {"err_code": 0}, "second": {"err_code": -85}, "file": "static"}
    seen.one("start_proto_detect", "A instace is running protocol detection! Not allowed detect protocol now!")


# holds: request-while-cycle-runs
@scenario("restart")
def test_a_running_cycle_gives_up_for_a_requested_one(seen):
    assert seen.find("uloop_init_wan_detect_all", "Aleady has a instace is running wan detect!", seen.facts["asked"])
    assert seen.find("uloop_start_wan_detect", "exiting this cycle of detecting, waiting for detect all!",
                     seen.facts["asked"], seen.facts["given_up"])


# holds: request-while-cycle-runs
@scenario("restart")
def test_the_new_cycle_follows_the_old_ones_end(seen):
    ended, reopened = seen.lines[seen.facts["given_up"]], seen.lines[seen.facts["reopened"]]
    assert reopened["at"] - ended["at"] <= 0.5 + LATE_S


@scenario("bus-restart")
def test_the_object_comes_back_after_a_restart_of_the_bus(seen):
    assert seen.facts["back_after_real_s"] <= 2
